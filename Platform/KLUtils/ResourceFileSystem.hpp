#pragma once

#include "InputOutput/Location.hpp"
#include "KLRoot/KLExport.hpp"

namespace IOUtil {

// Resource file systems show files that ship with the host (its built-in libraries) at a mount
// point of their own. The host registers each mount point with the location the resources come
// from, so that they can be named after their origin rather than after a scratch mount point.
LM_EXPORT int RegisterResourceFileSystem(const IO::Location& mountPoint,
                                         const IO::Location& resourceLocation);
LM_EXPORT int UnregisterResourceFileSystem(const IO::Location& mountPoint);
LM_EXPORT bool IsResourceFileSystemMountPoint(const IO::Location& location);
// The registered origin of a mount point; the empty location for any other location.
LM_EXPORT IO::Location GetResourceFileSystemLocationFromMountPoint(const IO::Location& mountPoint);

} // namespace IOUtil
