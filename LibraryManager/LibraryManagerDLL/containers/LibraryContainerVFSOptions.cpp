#include "containers/LibraryContainerVFSOptions.hpp"

#include "InputOutput/FileSystem.hpp"
#include "KLRoot/Exceptions.hpp"

namespace LM {

LibraryContainerVFSOptions::LibraryContainerVFSOptions() {
    if (IO::fileSystem.GetSpecialLocation(IO::FileSystem::TemporaryFolder, &unzipTempFolderLoc) != 0)
        throw KL::IllegalArgumentException("No temporary folder for unpacking containers.", __FILE__, __LINE__);
}

LibraryContainerVFSOptions::LibraryContainerVFSOptions(const IO::Location& unzipTempFolderLoc)
    : unzipTempFolderLoc(unzipTempFolderLoc) {}

LibraryContainerVFSOptions::~LibraryContainerVFSOptions() = default;

// Until mounts are shared between users, the catalogue is a mount's only user and releasing it
// unmounts it.
bool ReleaseVirtualFileSystem(const IO::Location& location) { return IO::fileSystem.Unmount(location) == 0; }

} // namespace LM
