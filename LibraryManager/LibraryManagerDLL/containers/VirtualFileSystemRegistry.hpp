#pragma once

// The one process-wide owner of mounted container file systems. It mounts them on the
// foundation's file system, answers which one serves a location, and keeps a released file
// system alive while entries of it are still connected. It has no lock: mounting and releasing
// belong to the thread that drives the library set.
#include "KLRoot/KLExport.hpp"

namespace IO {
class FixedVFS;
class Location;
} // namespace IO
namespace KL {
class ProcessControl;
}

namespace LM {

class LibraryContainerVFSOptions;

// Mounts the container file at `location`, of either format, in its own place, so that walks go on inside it
// as in a folder. False when the file is no container, or the place takes no mount. A container whose walk
// fails stays registered, not mounted.
LM_EXPORT bool CreateAndMountContainerFileSystem(KL::ProcessControl& process, const IO::Location& location,
                                                 const LibraryContainerVFSOptions* options);
// Takes over a file system that the caller mounted at `location`.
LM_EXPORT bool AddVirtualFileSystem(const IO::Location& location, IO::FixedVFS* fileSystem);
// Unmounts and lets go; a container with connected entries is kept until the registry ends.
LM_EXPORT bool ReleaseVirtualFileSystem(const IO::Location& location);
// Whether a file system the caller kept is still alive.
LM_EXPORT bool IsValidVirtualFileSystem(const IO::FixedVFS* fileSystem);
// The mounted container that serves a container file's location, or null.
LM_EXPORT IO::FixedVFS* FindFileSystem(const IO::Location& location);
// Whether a file system is a container file's, of either format.
LM_EXPORT bool IsContainerFileSystem(const IO::FixedVFS* fileSystem);
// The same, and its walk succeeded.
LM_EXPORT bool IsMountedContainerFileSystem(const IO::FixedVFS* fileSystem);

} // namespace LM
