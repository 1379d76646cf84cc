#pragma once

#include "InputOutput/Location.hpp"
#include "KLRoot/KLExport.hpp"

namespace LM {

// How containers are mounted: where a mounted container unpacks compressed files for reading.
// Each mount copies the options, so a change reaches only later mounts.
class LM_EXPORT LibraryContainerVFSOptions {
public:
    // Unpacks into the process's temporary folder.
    LibraryContainerVFSOptions();
    explicit LibraryContainerVFSOptions(const IO::Location& unzipTempFolderLoc);
    LibraryContainerVFSOptions(const LibraryContainerVFSOptions&) = default;
    LibraryContainerVFSOptions& operator=(const LibraryContainerVFSOptions&) = default;
    virtual ~LibraryContainerVFSOptions();

    const IO::Location& GetUnzipTempFolderLoc() const { return unzipTempFolderLoc; }

private:
    IO::Location unzipTempFolderLoc;
};

} // namespace LM
