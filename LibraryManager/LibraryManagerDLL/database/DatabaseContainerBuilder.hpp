#pragma once

// Builds a database container from the parts of a library set: in a database file of its own, or
// under an object of a host's database. It takes the same decisions as the container file writer
// (which libraries, which parts, where each part goes, the "EMBH" items of nested containers,
// embedded libraries renamed), but its tree is made of database objects, and it ends by merging
// folders of equal name, where several libraries meet under the top folder.
//
// A part's whole content is read into its content object, which is written to the database and
// leaves memory as soon as the part is placed; the builder keeps only folders.
#include "database/DatabaseLibraryContainerEntries.hpp"
#include "database/DatabaseLibraryContainerRoot.hpp"

#include "ObjectDatabase/Ref.hpp"

#include "InputOutput/Location.hpp"
#include "KLRoot/HashTable.hpp"
#include "KLRoot/KLExport.hpp"

#include <cstdint>
#include <utility>
#include <vector>

namespace KL {
class ProcessControl;
}
namespace OVFS {
class ProcessControl;
}

namespace LM {

class DatabaseLibraryContainerLibPartContent;
class LibPart;
class LibrarySet;

class LM_EXPORT DatabaseContainerBuilder {
public:
    // `selection`: null takes every part; otherwise a part goes in only with an entry of true.
    DatabaseContainerBuilder(const LibrarySet* librarySet,
                             const KL::HashTable<const LibPart*, bool>* selection);
    ~DatabaseContainerBuilder();
    DatabaseContainerBuilder(const DatabaseContainerBuilder&) = delete;
    DatabaseContainerBuilder& operator=(const DatabaseContainerBuilder&) = delete;

    // Builds the container under `owner`, whose database the new objects join. False with no
    // library, an owner that is no live object of a database or holds a container already, or
    // when the user stopped it; what was built stays for the caller to drop. Database faults pass
    // out as the container exceptions.
    bool Build(KL::ProcessControl& process, OVFS::ProcessControl& progress,
               const ODB::Ref<ODB::Object>& owner, bool createTopFolder);
    // Lets go of every object held, as must happen before the database closes.
    void DropReferences();

    ODB::Ref<DatabaseLibraryContainerRoot> GetContainerRoot() const { return containerRoot; }
    int GetPartCount() const { return partCount; }
    int GetFolderCount() const { return folderCount; }
    std::uint64_t GetBytesRead() const { return bytesRead; }

private:
    using FolderRef = ODB::Ref<DatabaseLibraryContainerFolder>;

    std::uint32_t EstimateFileCount() const;
    bool CreateContainerRoot(const ODB::Ref<ODB::Object>& owner);
    // Adds the libraries as roots; returns the locations of the embedded ones.
    std::vector<IO::Location> AddRoots(bool createTopFolder);
    void AddRoot(const IO::Location& location, bool useTopFolder);
    void AddParts(KL::ProcessControl& process, OVFS::ProcessControl& progress);
    void AddPart(const LibPart& part);
    // The folder a part at `placement` is placed from, with that folder's location; null when it
    // lies outside every library.
    std::pair<FolderRef, IO::Location> FindStartFolder(const IO::Location& placement) const;
    std::pair<ODB::Ref<DatabaseLibraryContainerLibPartHeader>,
              ODB::Ref<DatabaseLibraryContainerLibPartContent>>
    CreateFileObjects(const LibPart& part);
    // Walks down from `folder`, making the folders that are missing; false when `placement` is not
    // below it.
    bool PlaceUnder(FolderRef folder, IO::Location folderLocation, const IO::Location& placement,
                    const ODB::Ref<DatabaseLibraryContainerLibPartHeader>& header);
    FolderRef CreateFolder(const FolderRef& parent, const IO::Location& location, const IO::Name& name);
    void RenameEmbedded(const std::vector<IO::Location>& embedded);
    void MergeFolders(const FolderRef& folder);

    const LibrarySet* librarySet;
    const KL::HashTable<const LibPart*, bool>* selection;
    // The libraries taken, in order: a part outside every folder made so far goes to the first
    // that holds it.
    std::vector<std::pair<IO::Location, FolderRef>> rootTable;
    KL::HashTable<IO::Location, FolderRef> folderTable;
    std::uint32_t fileCount = 0;
    bool cancelled = false;
    FolderRef topFolder;
    ODB::Ref<DatabaseLibraryContainerRoot> containerRoot;
    int partCount = 0;
    int folderCount = 0;
    std::uint64_t bytesRead = 0;
};

// Builds a container of the parts of `librarySet` (all, or those `selection` marks true) in a new
// database file at `location`, through a scratch file: nothing reaches the location unless the
// whole build succeeds. `builder`, if given, is used, so its counts can be read after.
LM_EXPORT bool CreateDatabaseLibraryContainer(KL::ProcessControl& process, const LibrarySet* librarySet,
                                              const IO::Location& location,
                                              const KL::HashTable<const LibPart*, bool>* selection,
                                              bool createTopFolder);
LM_EXPORT bool WriteDatabaseContainerFile(KL::ProcessControl& process, DatabaseContainerBuilder& builder,
                                          const IO::Location& location, bool createTopFolder);
// Builds the container under `owner` in a host's database; `result`, if given, receives the
// container root on success. Flushing, and dropping what a failed build left, are the host's.
LM_EXPORT bool CreateDatabaseLibraryContainer(KL::ProcessControl& process, const LibrarySet* librarySet,
                                              ODB::Ref<ODB::Object> owner,
                                              const KL::HashTable<const LibPart*, bool>* selection,
                                              bool createTopFolder, ODB::Ref<ODB::Object>* result);

} // namespace LM
