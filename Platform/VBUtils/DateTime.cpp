#include "VBUtils/DateTime.hpp"

namespace OVFS {

DateTime DateTime::CreateDateTime(TITime time) {
    const auto seconds = static_cast<std::uint64_t>(TIToUnixTime(time));
    return DateTime(static_cast<std::uint32_t>(seconds >> 32), static_cast<std::uint32_t>(seconds));
}

TITime DateTime::ConvertToKLTime() const {
    const auto seconds = static_cast<std::int64_t>((std::uint64_t{high} << 32) | low);
    return TIFromUnixTime(seconds);
}

} // namespace OVFS
