#pragma once

#include "InputOutput/Location.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/UniString.hpp"

namespace IOUtil {

// The text form of a location: a plain path ("/a/b"), or a file URL ("file:///a/b") with every
// byte outside the unreserved set percent-encoded.
LM_EXPORT KL::UniString LocationToSource(const IO::Location& location, bool asPath);
// Reads either form back. A relative path, a URL of another scheme or host, or a bad escape gives
// InvalidLocationError.
LM_EXPORT int SourceToLocation(const KL::UniString& source, IO::Location* location);

} // namespace IOUtil
