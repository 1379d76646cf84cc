#include "KLProfiler/ProfilerStep.hpp"

#include <mutex>

namespace KL {

namespace {

struct Totals {
    std::mutex lock;
    std::map<std::string, ProfilerTotal> byName;
};

Totals& GetProcessTotals() {
    static Totals totals;
    return totals;
}

} // namespace

ProfilerStep::ProfilerStep(const char* name) : name(name), start(std::chrono::steady_clock::now()) {}

ProfilerStep::~ProfilerStep() {
    const auto elapsed = std::chrono::steady_clock::now() - start;
    Totals& totals = GetProcessTotals();
    const std::lock_guard guard(totals.lock);
    ProfilerTotal& total = totals.byName[name];
    ++total.runs;
    total.elapsed += std::chrono::duration_cast<std::chrono::nanoseconds>(elapsed);
}

std::map<std::string, ProfilerTotal> ProfilerStep::GetTotals() {
    Totals& totals = GetProcessTotals();
    const std::lock_guard guard(totals.lock);
    return totals.byName;
}

void ProfilerStep::ResetTotals() {
    Totals& totals = GetProcessTotals();
    const std::lock_guard guard(totals.lock);
    totals.byName.clear();
}

} // namespace KL
