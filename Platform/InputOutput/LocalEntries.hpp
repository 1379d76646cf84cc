#pragma once

#include "InputOutput/FileEntry.hpp"
#include "InputOutput/FolderEntry.hpp"
#include "InputOutput/IOErrors.hpp"

#include <string>

namespace IO {

// A file of the local disk, through POSIX calls.
class LocalFileEntry final : public FileEntry {
public:
    explicit LocalFileEntry(std::string path) : path(std::move(path)) {}
    ~LocalFileEntry() override;

    int SetCreationTime(TITime time) override;
    int GetCreationTime(TITime* time) const override;
    int SetModificationTime(TITime time) override;
    int GetModificationTime(TITime* time) const override;
    int GetPosition(std::uint64_t* result) const override;
    int Open(OpenMode mode) override;
    int Read(void* buffer, std::uint64_t size, std::uint64_t* read) override;
    int Write(const void* buffer, std::uint64_t size) override;
    int Seek(SeekOrigin origin, std::int64_t offset, std::uint64_t* result) override;
    int Flush() override;
    int Close() override;
    int SetDataLength(std::uint64_t length) override;
    int GetDataLength(std::uint64_t* length) const override;
    int SetTypeInfo(std::uint32_t type, std::uint32_t creator) override;
    int GetTypeInfo(std::uint32_t* type, std::uint32_t* creator) const override;
    bool IsWriteProtected() const override;
    int SetWriteProtection(bool protect) override;
    int Lock(LockMode mode) override;
    // Through the kernel (copy_file_range) when the target is a local file too.
    int TransferTo(FileEntry& target, std::uint64_t size, std::uint64_t* moved) override;

private:
    std::string path;
    int descriptor = -1;
    bool writable = false;
    std::uint64_t position = 0;
    // Length and times as a read-only opening found them: nothing here can change them, so a
    // reader asks the system once per opening instead of once per question.
    bool hasOpenFacts = false;
    std::uint64_t openLength = 0;
    TITime openModificationTime = 0;
    TITime openCreationTime = 0;
};

// A folder of the local disk, through POSIX calls.
class LocalFolderEntry final : public FolderEntry {
public:
    explicit LocalFolderEntry(std::string path) : path(std::move(path)) {}

    int SetCreationTime(TITime time) override;
    int GetCreationTime(TITime* time) const override;
    int SetModificationTime(TITime time) override;
    int GetModificationTime(TITime* time) const override;
    int CreateFile(const Name& name) override;
    int CreateFolder(const Name& name) override;
    int Delete(const Name& name) override;
    int GetEntryType(const Name& name, EntryType* type) const override;
    int EnumerateContents(EntryCallback callback, void* data) const override;
    // Each file's time comes from the open folder by name, without a walk of its whole path.
    int EnumerateContentsWithTimes(TimedEntryCallback callback, void* data) const override;
    bool IsValid() const override;
    bool IsWriteable() const override;
    bool IsOnLocalVolume() const override;
    bool IsOnFixedVolume() const override;

private:
    std::string PathOf(const Name& name) const;
    int ListEntries(TimedEntryCallback callback, void* data, bool withTimes) const;

    std::string path; // "/" for the root, else without a trailing "/"
};

} // namespace IO
