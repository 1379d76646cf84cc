#pragma once

#include "KLRoot/KLExport.hpp"

namespace IO {
class Location;
}
namespace KL {
class ProcessControl;
}

namespace LM {

class LibraryContainerVFSOptions;

// Mounts the container file at `location` in its own place, so that walks go on inside it as in a
// folder. True when this call made the mount.
LM_EXPORT bool CreateAndMountContainerFileSystem(KL::ProcessControl& process, const IO::Location& location,
                                                 const LibraryContainerVFSOptions& options);

} // namespace LM
