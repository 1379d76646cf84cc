#pragma once

#include "InputOutput/Name.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/Time.hpp"

#include <cstdint>

namespace IO {

enum EntryType { FileEntryType = 0, FolderEntryType = 1, LinkEntryType = 2 };

// Receives the entries of a folder; returns false to stop.
using EntryCallback = bool (*)(const Name& name, EntryType type, void* data);
// The same with a file's modification time when the listing learnt it on the way; else null.
using TimedEntryCallback = bool (*)(const Name& name, EntryType type, const TITime* modificationTime,
                                    void* data);

// One folder as a file system serves it. Statuses as for FileEntry (EntryStatus).
// How many entries local folder listings have passed over, since the process began, because their
// names are no UTF-8 and could not be found again from their text. Tools compare it before and
// after a walk to learn that something was left out.
LM_EXPORT std::uint64_t GetPassedOverNameCount();

class LM_EXPORT FolderEntry {
public:
    FolderEntry() = default;
    virtual ~FolderEntry();
    FolderEntry(const FolderEntry&) = delete;
    FolderEntry& operator=(const FolderEntry&) = delete;

    virtual int SetCreationTime(TITime time) = 0;
    virtual int GetCreationTime(TITime* time) const = 0;
    virtual int SetModificationTime(TITime time) = 0;
    virtual int GetModificationTime(TITime* time) const = 0;
    // Makes an empty file or folder; AlreadyExistsError when the name is taken.
    virtual int CreateFile(const Name& name) = 0;
    virtual int CreateFolder(const Name& name) = 0;
    // Removes a file, a link or an empty folder.
    virtual int Delete(const Name& name) = 0;
    // EntryStatus::TransferFailed when there is no such entry.
    virtual int GetEntryType(const Name& name, EntryType* type) const = 0;
    // Reports every entry once, in an order of the file system's choosing.
    virtual int EnumerateContents(EntryCallback callback, void* data) const = 0;
    // The same with the modification times of files where the file system has them at hand; by
    // default none.
    virtual int EnumerateContentsWithTimes(TimedEntryCallback callback, void* data) const;
    virtual bool IsValid() const = 0;
    virtual bool IsWriteable() const = 0;
    virtual bool IsOnLocalVolume() const = 0;
    virtual bool IsOnFixedVolume() const = 0;

    // A name that no entry has yet: `base` + `suffix`, or `base` + a number + `suffix`.
    int GenerateUnusedName(const Name& base, Name* result, const KL::UniString& suffix = {}) const;
    // The same from any text, which is made into a valid name first.
    int GenerateUnusedNameFromString(const KL::UniString& text, Name* result,
                                     const KL::UniString& suffix = {}) const;
};

// Base of the folders of read-only file systems: every changing operation refuses.
class LM_EXPORT ReadOnlyFolderEntry : public FolderEntry {
public:
    int SetCreationTime(TITime time) override;
    int SetModificationTime(TITime time) override;
    int CreateFile(const Name& name) override;
    int CreateFolder(const Name& name) override;
    int Delete(const Name& name) override;
    bool IsWriteable() const override { return false; }
};

} // namespace IO
