#include "containers/VirtualFileSystemRegistry.hpp"

#include "LibraryContainerVFS.hpp"
#include "containers/ContainerExtraction.hpp"
#include "database/DatabaseContainerChecks.hpp"
#include "database/DatabaseLibraryContainerVFS.hpp"

#include "InputOutput/FileSystem.hpp"
#include "InputOutput/Location.hpp"
#include "KLRoot/Array.hpp"
#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/HashTable.hpp"

#include <algorithm>
#include <memory>
#include <optional>

namespace LM {

namespace {

// What the registry asks of either kind of mounted container.
struct ContainerView {
    int connectedCount;
    bool mounted;
    const IO::Location* ownLocation;
    bool database;
};

std::optional<ContainerView> ViewOf(const IO::FixedVFS* fileSystem) {
    if (const auto* file = dynamic_cast<const LibraryContainerVFS*>(fileSystem))
        return ContainerView{file->GetConnectedCount(), file->IsMounted(), &file->GetOwnLocation(), false};
    if (const auto* database = dynamic_cast<const DatabaseLibraryContainerVFS*>(fileSystem))
        return ContainerView{database->GetConnectedCount(), database->IsMounted(),
                             &database->GetOwnLocation(), true};
    return std::nullopt;
}

// A container file of either format, by content; a database one only while they may be opened.
std::optional<bool> ContainerKind(const IO::Location& location) {
    if (CheckIfContainer(location))
        return false;
    if (IsOpenableDatabaseContainer(location))
        return true;
    return std::nullopt;
}

class VirtualFileSystemRegistry {
public:
    ~VirtualFileSystemRegistry() {
        KL::Array<IO::Location> locations;
        for (const auto& [location, fileSystem] : mountedTable)
            locations.Push(location);
        for (const IO::Location& location : locations)
            Release(location, nullptr);
        for (IO::FixedVFS* fileSystem : retired)
            delete fileSystem;
    }

    bool Holds(const IO::Location& location) const { return mountedTable.ContainsKey(location); }

    // A file system already there is let go first, and the new one mounted in its place.
    void Register(const IO::Location& location, IO::FixedVFS* fileSystem) {
        IO::FixedVFS* const* old = mountedTable.GetPtr(location);
        if (old != nullptr && *old == fileSystem)
            return;
        if (old != nullptr)
            Release(location, fileSystem);
        mountedTable.Put(location, fileSystem);
    }

    bool Release(const IO::Location& location, IO::FixedVFS* replacement) {
        IO::FixedVFS* const* found = mountedTable.GetPtr(location);
        if (found == nullptr)
            return false;
        IO::FixedVFS* fileSystem = *found;
        IO::fileSystem.Unmount(location);
        if (const std::optional<ContainerView> container = ViewOf(fileSystem)) {
            if (container->connectedCount != 0)
                retired.Push(fileSystem);
            else
                delete fileSystem;
        } else if (replacement == nullptr) {
            delete fileSystem;
        }
        // The entry goes before a replacement mounts: its walk may throw.
        mountedTable.Delete(location);
        if (replacement != nullptr)
            IO::fileSystem.Mount(replacement, location);
        return true;
    }

    bool IsValid(const IO::FixedVFS* fileSystem) const {
        if (std::find(retired.begin(), retired.end(), fileSystem) != retired.end())
            return true;
        return std::any_of(mountedTable.begin(), mountedTable.end(),
                           [fileSystem](const auto& entry) { return entry.second == fileSystem; });
    }

    IO::FixedVFS* Find(const IO::Location& location) const {
        if (mountedTable.IsEmpty())
            return nullptr;
        const std::optional<bool> database = ContainerKind(location);
        if (!database)
            return nullptr;
        for (const auto& [mountPoint, fileSystem] : mountedTable) {
            const std::optional<ContainerView> container = ViewOf(fileSystem);
            if (container && container->database == *database &&
                (*container->ownLocation == location || container->ownLocation->IsAncestorOf(location)))
                return fileSystem;
        }
        return nullptr;
    }

private:
    KL::HashTable<IO::Location, IO::FixedVFS*> mountedTable;
    KL::Array<IO::FixedVFS*> retired;
};

// Made on first use, so it ends before the process's file system does.
VirtualFileSystemRegistry& Registry() {
    static VirtualFileSystemRegistry registry;
    return registry;
}

// A file system for the container at `location`; null when the file is neither kind of
// container. A database that cannot be opened throws.
std::unique_ptr<IO::FixedVFS> MakeContainerFileSystem(const IO::Location& location,
                                                      const LibraryContainerVFSOptions* options) {
    const std::optional<bool> database = ContainerKind(location);
    if (database == true)
        return std::make_unique<DatabaseLibraryContainerVFS>(location);
    if (database == false && options != nullptr)
        return std::make_unique<LibraryContainerVFS>(*options);
    return nullptr;
}

// Shows `process` during the mount of either kind of container; null lets it go again.
void SetMountProcess(IO::FixedVFS* fileSystem, KL::ProcessControl* process) {
    if (auto* file = dynamic_cast<LibraryContainerVFS*>(fileSystem))
        file->SetProcessControl(process);
    else if (auto* database = dynamic_cast<DatabaseLibraryContainerVFS*>(fileSystem))
        database->SetProcessControl(process);
}

} // namespace

bool CreateAndMountContainerFileSystem(KL::ProcessControl& process, const IO::Location& location,
                                       const LibraryContainerVFSOptions* options) {
    std::unique_ptr<IO::FixedVFS> container = MakeContainerFileSystem(location, options);
    if (container == nullptr)
        return false;
    SetMountProcess(container.get(), &process);
    try {
        // A place the registry holds gets the new file system in the old one's stead; a place
        // mounted by anybody else is left alone, since registering there would unmount theirs.
        if (Registry().Holds(location)) {
            Registry().Register(location, container.get());
        } else if (IO::fileSystem.Mount(container.get(), location) == KL::NoError) {
            Registry().Register(location, container.get());
        } else {
            return false;
        }
    } catch (...) {
        // A walk that throws must not leave a freed file system mounted.
        IO::fileSystem.Unmount(location);
        throw;
    }
    // The process belongs to this call only.
    SetMountProcess(container.get(), nullptr);
    container.release();
    return true;
}

bool IsContainerFileSystem(const IO::FixedVFS* fileSystem) {
    return ViewOf(fileSystem).has_value();
}

bool IsMountedContainerFileSystem(const IO::FixedVFS* fileSystem) {
    const std::optional<ContainerView> container = ViewOf(fileSystem);
    return container && container->mounted;
}

bool AddVirtualFileSystem(const IO::Location& location, IO::FixedVFS* fileSystem) {
    if (fileSystem == nullptr)
        return false;
    Registry().Register(location, fileSystem);
    return true;
}

bool ReleaseVirtualFileSystem(const IO::Location& location) {
    return Registry().Release(location, nullptr);
}

bool IsValidVirtualFileSystem(const IO::FixedVFS* fileSystem) {
    return Registry().IsValid(fileSystem);
}

IO::FixedVFS* FindFileSystem(const IO::Location& location) {
    return Registry().Find(location);
}

} // namespace LM
