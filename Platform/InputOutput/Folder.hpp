#pragma once

#include "InputOutput/FolderEntry.hpp"
#include "InputOutput/Location.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/Time.hpp"

#include <optional>
#include <utility>
#include <vector>

namespace IO {

class FixedVFS;

// A folder at a location, on the local disk or on a mounted file system alike.
class LM_EXPORT Folder {
public:
    enum NotFoundMode { Fail = 0, Create = 1 };
    // Receives each entry; returns false to stop.
    using EnumCallback = bool (*)(const Folder& folder, const Name& name, bool isFolder, void* data);

    Folder();
    // With Create, the folder and every missing folder above it are made.
    explicit Folder(const Location& location, NotFoundMode mode = Fail);
    Folder(const Folder& other);
    Folder& operator=(const Folder& other);
    virtual ~Folder();

    int GetStatus() const { return status; }
    int GetLocation(Location* result) const;
    const Location& GetLocation() const { return location; }
    // The mounted file system that serves this folder's entries, or null for the local disk.
    FixedVFS* GetOwnerFileSystem() const { return owner; }

    // Reports every entry by name order, the same order on every call; links count as files.
    int Enumerate(EnumCallback callback, void* data) const;
    // The same with the kind of each entry, links told apart.
    int EnumerateEntries(EntryCallback callback, void* data) const;
    using Listing = std::vector<std::pair<Name, EntryType>>;
    // All entries with their kinds, in the order of Enumerate.
    int List(Listing* entries) const;
    struct TimedEntry {
        Name name;
        EntryType type;
        // A file's, when `withTimes` was asked and the file system had it at hand.
        std::optional<TITime> modificationTime;
    };
    using TimedListing = std::vector<TimedEntry>;
    int List(TimedListing* entries, bool withTimes) const;
    bool Contains(const Name& name) const;
    int GetEntryType(const Name& name, EntryType* type) const;

    int CreateFile(const Name& name);
    int CreateFolder(const Name& name);
    // Removes a file, a link or an empty folder of this folder.
    int Delete(const Name& name);
    // Removes everything inside this folder, which stays.
    int DeleteAll();
    int GenerateUnusedName(const Name& base, Name* result, const KL::UniString& suffix = {}) const;
    int GenerateUnusedNameFromString(const KL::UniString& text, Name* result,
                                     const KL::UniString& suffix = {}) const;

    int GetCreationTime(TITime* time) const;
    int GetModificationTime(TITime* time) const;
    bool IsValid() const;
    bool IsWriteable() const;
    bool IsOnLocalVolume() const;
    bool IsOnFixedVolume() const;

private:
    void Connect(NotFoundMode mode);
    void Disconnect();

    Location location;
    FolderEntry* entry = nullptr;
    FixedVFS* owner = nullptr;
    int status;
};

} // namespace IO
