#include "containers/VirtualFileSystemRegistry.hpp"

#include "LibraryContainerVFS.hpp"
#include "containers/ContainerExtraction.hpp"

#include "InputOutput/FileSystem.hpp"
#include "InputOutput/Location.hpp"
#include "KLRoot/Array.hpp"
#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/HashTable.hpp"

#include <algorithm>
#include <memory>

namespace LM {

namespace {

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
        if (const auto* container = dynamic_cast<const LibraryContainerVFS*>(fileSystem)) {
            if (container->GetConnectedCount() != 0)
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
        if (mountedTable.IsEmpty() || !CheckIfContainer(location))
            return nullptr;
        for (const auto& [mountPoint, fileSystem] : mountedTable) {
            const auto* container = dynamic_cast<const LibraryContainerVFS*>(fileSystem);
            if (container != nullptr && (container->GetOwnLocation() == location ||
                                         container->GetOwnLocation().IsAncestorOf(location)))
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

} // namespace

bool CreateAndMountContainerFileSystem(KL::ProcessControl& process, const IO::Location& location,
                                       const LibraryContainerVFSOptions* options) {
    if (options == nullptr || !CheckIfContainer(location))
        return false;
    auto container = std::make_unique<LibraryContainerVFS>(*options);
    container->SetProcessControl(&process);
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
    container->SetProcessControl(nullptr);
    container.release();
    return true;
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
