#pragma once

// What the machine gives this process: the memory installed and the address space it may use.
// Sizes of caches are derived from the smaller of the two.
#include "KLRoot/KLExport.hpp"

#include <cstdint>

namespace PerfData {

LM_EXPORT std::uint64_t RAMBytes();
// The process's address space limit; the largest value when there is none.
LM_EXPORT std::uint64_t MaxVirtualBytes();

} // namespace PerfData
