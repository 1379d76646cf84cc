#pragma once

// Packs the parts of a library set into one container file (docs/formats/lcf.md) in two phases.
// First a tree of folders is built in memory that mirrors the active libraries and holds only the
// parts that go in, so that every count of a record is known when the record is written. Then the
// tree is written depth first; a block's length is patched when the block closes.
//
// A part's content is read from its location, its place in the tree follows its first location
// (GetOrigLocation). Positions and lengths are 32-bit: a container stays below 4 GiB, and a write
// that would pass it fails.
#include "LibraryContainerWriteOptions.hpp"
#include "containers/ContainerFormat.hpp"

#include "InputOutput/Location.hpp"
#include "KLRoot/HashTable.hpp"
#include "KLRoot/KLExport.hpp"

#include <memory>
#include <vector>

namespace IO {
class File;
class Name;
} // namespace IO
namespace KL {
class OChannel;
class ProcessControl;
} // namespace KL

namespace LM {

class ContentReader;
struct SourceFacts;
class LibPart;
class LibrarySet;

struct LM_EXPORT ContainerFileRecord {
    const LibPart* libPart = nullptr;
    IO::Location location; // where the content is read from
    InfoArray infos;
};

struct LM_EXPORT ContainerFolderRecord {
    IO::Location location;
    std::vector<std::unique_ptr<ContainerFileRecord>> files;
    ContainerFolderRecord* parent = nullptr; // null for a root
    std::vector<std::unique_ptr<ContainerFolderRecord>> subfolders;
    InfoArray infos;
    bool isSubContainer = false; // noted, never written
    bool isEmbedded = false;

    bool IsEmpty() const { return files.empty() && subfolders.empty(); }
};

class LM_EXPORT ContainerWriter {
public:
    ContainerWriter(const LibrarySet* librarySet, const ContainerWriteOptions& options);
    ~ContainerWriter();
    ContainerWriter(const ContainerWriter&) = delete;
    ContainerWriter& operator=(const ContainerWriter&) = delete;

    // `selection`: null takes every part; otherwise a part goes in only with an entry of true.
    void BuildTree(const KL::HashTable<const LibPart*, bool>* selection);
    // Writes the tree at the file's position: 0, or -7003 on any failure or a user's break.
    int Write(KL::ProcessControl& process, IO::File& file);
    // Writes the tree into a new file at `location` through a scratch file, so that nothing
    // reaches the location unless the whole write succeeds. 0, -7003, or the status of a scratch
    // file that could not be opened.
    int WriteToLocation(KL::ProcessControl& process, const IO::Location& location);

    const std::vector<std::unique_ptr<ContainerFolderRecord>>& GetRoots() const { return roots; }
    int GetPartCount() const { return partCount; }
    int GetFilesWritten() const { return filesWritten; }
    int GetFoldersWritten() const { return foldersWritten; }
    // Bytes of the files read, and of the container written.
    std::uint64_t GetBytesRead() const { return bytesRead; }
    std::uint64_t GetBytesWritten() const { return bytesWritten; }

private:
    struct OpenBlock {
        std::uint64_t start = 0;
        ChunkHeader header;
    };

    void AddRoots();
    void PlacePart(const LibPart* part);
    void AddPartUnder(ContainerFolderRecord& folder, const IO::Location& placement,
                      std::unique_ptr<ContainerFileRecord> record);
    ContainerFolderRecord& AddSubfolder(ContainerFolderRecord& folder, const IO::Name& name);
    void HoistSingleContainerLibrary();

    int WriteTree(KL::ProcessControl& process);
    int WriteFolder(KL::ProcessControl& process, const ContainerFolderRecord& folder);
    int WriteFile(KL::ProcessControl& process, const ContainerFileRecord& record);
    int WriteFileContent(const ContainerFileRecord& record, const std::vector<char>& nameField,
                         std::uint32_t flags);
    int CopyFileContent(const ContainerFileRecord& record, const std::vector<char>& nameField,
                        std::uint32_t flags);
    int WriteFileRecord(const ContainerFileRecord& record, const std::vector<char>& nameField,
                        std::uint32_t flags, const SourceFacts& facts, std::uint64_t storedLength);
    bool PollForBreak(KL::ProcessControl& process);
    std::vector<IO::Location> CollectSourcesInWriteOrder() const;

    int BeginBlock(std::uint32_t tag, std::int32_t flags);
    int EndBlock();
    int Position(std::uint64_t* position) const;

    std::vector<std::unique_ptr<ContainerFolderRecord>> roots;
    std::vector<std::unique_ptr<ContainerFolderRecord>> retired;
    KL::HashTable<IO::Location, ContainerFolderRecord*> folderTable;
    int partCount = 0;
    int filesWritten = 0;
    int foldersWritten = 0;
    std::uint64_t bytesRead = 0;
    std::uint64_t bytesWritten = 0;
    std::uint32_t fileCounter = 0;
    bool cancelled = false;
    const LibrarySet* librarySet;
    std::vector<OpenBlock> blockStack;
    ContainerWriteOptions options;
    IO::File* file = nullptr;
    KL::OChannel* out = nullptr;
    std::unique_ptr<ContentReader> reader;
};

// Packs the parts of `librarySet` (all, or those `selection` marks true) into a new container
// file at `location`, through a scratch file: nothing reaches the location unless the whole write
// succeeds. 0, -7003 on failure, or the status of a scratch file that could not be opened.
LM_EXPORT int CreateContainer(KL::ProcessControl& process, const IO::Location& location,
                              const LibrarySet* librarySet,
                              const KL::HashTable<const LibPart*, bool>* selection,
                              const ContainerWriteOptions& options);
// The same into a file already open for writing, from its position; the file stays open.
LM_EXPORT int CreateContainer(KL::ProcessControl& process, IO::File& file, const LibrarySet* librarySet,
                              const KL::HashTable<const LibPart*, bool>* selection,
                              const ContainerWriteOptions& options);

} // namespace LM
