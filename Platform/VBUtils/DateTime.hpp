#pragma once

// Points in time as the object file systems and container files store them. Two 32-bit words,
// the high and the low half of a signed count of seconds since 1970-01-01T00:00:00 UTC, so a stored
// time never runs out and converts to the foundation's time and back without loss inside its span.
#include "KLRoot/KLExport.hpp"
#include "KLRoot/Time.hpp"

#include <cstdint>

namespace OVFS {

class LM_EXPORT DateTime {
public:
    DateTime() = default;
    DateTime(std::uint32_t high, std::uint32_t low) : high(high), low(low) {}

    static DateTime CreateDateTime(TITime time);
    // Times outside the foundation's span clamp to its ends.
    TITime ConvertToKLTime() const;

    std::uint32_t GetHigh() const { return high; }
    std::uint32_t GetLow() const { return low; }
    bool operator==(const DateTime&) const = default;

private:
    std::uint32_t high = 0;
    std::uint32_t low = 0;
};

} // namespace OVFS
