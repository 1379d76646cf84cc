#pragma once

// Wall-clock timing for the benchmarks that run outside Google Benchmark (beside processes such
// as find and tar): one measurement, and the median of several rounds.
#include <algorithm>
#include <chrono>
#include <functional>
#include <vector>

namespace bench {

inline double Milliseconds(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

inline double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace bench
