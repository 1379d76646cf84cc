#include "containers/LibraryContainerVFSOptions.hpp"

#include "InputOutput/FileSystem.hpp"
#include "KLRoot/Exceptions.hpp"

namespace LM {

LibraryContainerVFSOptions::LibraryContainerVFSOptions() {
    if (IO::fileSystem.GetSpecialLocation(IO::FileSystem::TemporaryFolder, &unzipTempFolderLoc) != 0)
        throw KL::IllegalArgumentException("No temporary folder for unpacking containers.", __FILE__,
                                           __LINE__);
}

LibraryContainerVFSOptions::LibraryContainerVFSOptions(const IO::Location& unzipTempFolderLoc)
    : unzipTempFolderLoc(unzipTempFolderLoc) {}

LibraryContainerVFSOptions::~LibraryContainerVFSOptions() = default;

} // namespace LM
