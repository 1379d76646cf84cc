#pragma once

// The entries a mounted container hands out. A file entry reads its content from the container
// through an IO::File of its own, so entries never share a position; a compressed file's entry
// reads the inflated copy instead. Every operation first asks whether the container is still
// mounted; an entry connected before an unmount keeps working until it is given back.
#include "InputOutput/File.hpp"
#include "InputOutput/FileEntry.hpp"
#include "InputOutput/FolderEntry.hpp"
#include "KLRoot/KLExport.hpp"

namespace LM {

class LibraryContainerVFS;
struct FileData;
struct FolderData;

class LM_EXPORT LCFFileEntry : public IO::ReadOnlyFileEntry {
public:
    // `file` is where the content is read from: the container itself, or the inflated copy.
    LCFFileEntry(LibraryContainerVFS* owner, FileData* data, const IO::Location& file);
    ~LCFFileEntry() override;

    int GetCreationTime(TITime* time) const override;
    int GetModificationTime(TITime* time) const override;
    int GetPosition(std::uint64_t* result) const override;
    int Open(OpenMode mode) override;
    int Read(void* buffer, std::uint64_t size, std::uint64_t* read) override;
    int Seek(SeekOrigin origin, std::int64_t offset, std::uint64_t* result) override;
    int Close() override;
    int GetDataLength(std::uint64_t* length) const override;
    int GetTypeInfo(std::uint32_t* type, std::uint32_t* creator) const override;

    const FileData* GetFileData() const { return data; }

protected:
    bool IsMounted() const;

    LibraryContainerVFS* owner;
    FileData* data;
    std::uint64_t position = 0; // from the start of the content
    IO::File file;
};

// The inflated copy is a plain file: reads and seeks go to it as they come.
class LM_EXPORT LCFUnzippedFileEntry : public LCFFileEntry {
public:
    LCFUnzippedFileEntry(LibraryContainerVFS* owner, FileData* data, const IO::Location& unzipped);
    ~LCFUnzippedFileEntry() override;

    int Open(OpenMode mode) override;
    int Read(void* buffer, std::uint64_t size, std::uint64_t* read) override;
    int Seek(SeekOrigin origin, std::int64_t offset, std::uint64_t* result) override;
};

class LM_EXPORT LCFFolderEntry : public IO::ReadOnlyFolderEntry {
public:
    LCFFolderEntry(const LibraryContainerVFS* owner, const FolderData* data);
    ~LCFFolderEntry() override;

    int GetCreationTime(TITime* time) const override;
    int GetModificationTime(TITime* time) const override;
    int GetEntryType(const IO::Name& name, IO::EntryType* type) const override;
    // Subfolders, then files.
    int EnumerateContents(IO::EntryCallback callback, void* data) const override;
    bool IsValid() const override;
    bool IsOnLocalVolume() const override;
    bool IsOnFixedVolume() const override;

    const FolderData* GetFolderData() const { return folder; }

private:
    const LibraryContainerVFS* owner;
    const FolderData* folder;
};

} // namespace LM
