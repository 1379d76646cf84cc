#pragma once

#include "InputOutput/Location.hpp"
#include "KLRoot/Time.hpp"

namespace LM {

// One line of a library cache's validity list: a file of the library, relative to the library's
// folder, and the modification time it had when the cache was written.
struct LibraryCacheEntry {
    IO::RelativeLocation relLocation;
    TITime modTime = 0;

    bool operator==(const LibraryCacheEntry&) const = default;
};

} // namespace LM
