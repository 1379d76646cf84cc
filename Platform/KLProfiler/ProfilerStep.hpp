#pragma once

#include "KLRoot/KLExport.hpp"

#include <chrono>
#include <cstdint>
#include <map>
#include <string>

namespace KL {

// Time and count of every run of one named step, summed over the process.
struct ProfilerTotal {
    std::uint64_t runs = 0;
    std::chrono::nanoseconds elapsed{0};
};

// Times the scope it lives in and adds the time to its step's total. Steps nest; each counts its
// own scope whole. Totals are kept under a lock, so script threads may time steps too.
class LM_EXPORT ProfilerStep {
public:
    explicit ProfilerStep(const char* name);
    ~ProfilerStep();
    ProfilerStep(const ProfilerStep&) = delete;
    ProfilerStep& operator=(const ProfilerStep&) = delete;

    static std::map<std::string, ProfilerTotal> GetTotals();
    static void ResetTotals();

private:
    const char* name;
    std::chrono::steady_clock::time_point start;
};

} // namespace KL
