#pragma once

// A container file mounted as a read-only folder tree. Mounting walks the container once and
// keeps only records: a table of folders and one of files by full location, each file with the
// position of its content in the container. Entries read the content from the container file
// through handles of their own; a compressed file is inflated whole into the unzip folder the
// first time it is opened, and that copy lives as long as the mount.
//
// States: created, mounted, unmount pending (released while entries are connected: the tables
// stay until the last Disconnect), cleaned up. Entries and the tables belong to the thread that
// mounts; entries only read what the tables held when they were connected.
#include "containers/ContainerFormat.hpp"
#include "containers/ILibraryContainerProcessor.hpp"
#include "containers/LibraryContainerVFSOptions.hpp"

#include "InputOutput/FixedVFS.hpp"
#include "InputOutput/Folder.hpp"
#include "InputOutput/Location.hpp"
#include "InputOutput/Name.hpp"
#include "KLRoot/HashTable.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/Time.hpp"

#include <atomic>
#include <memory>
#include <mutex>

namespace IO {
class File;
}
namespace KL {
class ProcessControl;
}

namespace LM {

struct FileData;

// One folder of a mounted container.
struct LM_EXPORT FolderData {
    IO::Location location;
    KL::HashTable<IO::Name, FolderData*> subfolders;
    KL::HashTable<IO::Name, FileData*> files;
    InfoArray infos;
    bool isSubContainer = false;
};

// One file of a mounted container: where its content lies, and where its inflated copy lies
// once it was opened.
struct LM_EXPORT FileData {
    IO::Location location;
    IO::Location unzippedLocation;
    std::uint32_t macType = 0;
    std::uint32_t macCreator = 0;
    TITime creationTime = 0;
    TITime modificationTime = 0;
    std::uint64_t contentPosition = 0;
    std::uint32_t dataLength = 0;
    InfoArray infos;
    bool isZipped = false;
    // The innermost enclosing sub-container, or the root.
    FolderData* owner = nullptr;
};

class LM_EXPORT LibraryContainerVFS : public IO::FixedVFS, public ILibraryContainerProcessor {
public:
    explicit LibraryContainerVFS(const LibraryContainerVFSOptions& options);
    ~LibraryContainerVFS() override;

    int Connect(IO::Location* location, IO::FolderEntry** entry) override;
    int Connect(IO::Location* location, IO::FileEntry** entry) override;
    void Disconnect(IO::FileEntry* entry) override;
    void Disconnect(IO::FolderEntry* entry) override;
    bool SubmountingEnabled() const override { return false; }
    // Walks the container at the mount point; does nothing when already mounted.
    void Mounted(const IO::Location& location) override;
    void Unmounted() override;

    bool IsFolderSubContainer(const IO::Location& location) const;
    // Folder first, then file; null when neither. The root has an empty array.
    const KL::Array<InfoData*>* GetInfoForLocation(const IO::Location& location) const;
    const IO::Location& GetOwnLocation() const { return ownLocation; }
    int GetConnectedCount() const { return connectedCount; }
    TITime GetCreationTime() const { return creationTime; }
    TITime GetModificationTime() const { return modificationTime; }
    bool IsMounted() const { return mounted; }
    bool IsOnLocalVolume() const { return onLocalVolume; }
    bool IsOnFixedVolume() const { return onFixedVolume; }
    // Used for the next mount instead of one that no user can stop; not owned.
    void SetProcessControl(KL::ProcessControl* process) { processControl = process; }

    // The walk's receiving side.
    int ProcessFolder(KL::IChannel& channel, IO::File* file, const FolderEntry& folder,
                      const IO::Location& base, const IO::RelativeLocation& relative, bool subContainer,
                      const KL::Array<InfoData*>* infos) override;
    void FolderEntered(const FolderEntry& folder, const IO::Location& base,
                       const IO::RelativeLocation& relative, bool subContainer) override;
    void FolderExited(const FolderEntry& folder, const IO::Location& base,
                      const IO::RelativeLocation& relative, bool subContainer) override;
    int ProcessFile(KL::IChannel& channel, IO::File* file, const FileEntry& entry, const IO::Location& base,
                    const IO::RelativeLocation& relative, const KL::Array<InfoData*>* infos) override;

protected:
    // Walks `file`, the container at `location`; 0 or -36 leave it mounted.
    int Mounted(KL::ProcessControl& process, const IO::Location& location, IO::File& file);

private:
    friend class LCFFileEntry;
    friend class LCFUnzippedFileEntry;
    friend class LCFFolderEntry;

    int ExtractZippedFile(const FileData* data, IO::Location* out);
    IO::Folder* GetUnzipTempFolder();
    // After an entry went: the last one after an unmount lets the tables go.
    void EntryGone();
    void CleanUp();

    KL::HashTable<IO::Location, std::unique_ptr<FolderData>> folderTable;
    KL::HashTable<IO::Location, std::unique_ptr<FileData>> fileTable;
    // Entries of script threads ask it while the owner's thread mounts and unmounts.
    std::atomic<bool> mounted = false;
    bool unmountPending = false;
    IO::Location ownLocation;
    std::unique_ptr<IO::File> containerFile;
    KL::Array<FolderData*> subContainerStack;
    std::atomic<int> connectedCount = 0;
    TITime creationTime = 0;
    TITime modificationTime = 0;
    bool onLocalVolume = false;
    bool onFixedVolume = false;
    std::unique_ptr<IO::Folder> unzipTempFolder;
    LibraryContainerVFSOptions options;
    KL::ProcessControl* processControl = nullptr;
    // Script threads connect and give back entries while the owner's thread works: the count,
    // inflating and cleaning up go one at a time.
    std::mutex connectLock;
};

} // namespace LM
