#include "KLRoot/PerfData.hpp"

#include <sys/resource.h>
#include <unistd.h>

namespace PerfData {

std::uint64_t RAMBytes() {
    const long pages = ::sysconf(_SC_PHYS_PAGES);
    const long pageSize = ::sysconf(_SC_PAGE_SIZE);
    return pages > 0 && pageSize > 0
               ? static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(pageSize)
               : 0;
}

std::uint64_t MaxVirtualBytes() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_AS, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY)
        return UINT64_MAX;
    return limit.rlim_cur;
}

} // namespace PerfData
