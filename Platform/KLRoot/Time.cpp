#include "KLRoot/Time.hpp"

#include <algorithm>
#include <chrono>
#include <limits>

namespace {

using namespace std::chrono;

constexpr std::int64_t EpochUnixSeconds = 1577836800; // 2020-01-01T00:00:00Z

TITime Clamp(std::int64_t seconds) {
    return static_cast<TITime>(std::clamp<std::int64_t>(seconds, std::numeric_limits<TITime>::min(),
                                                        std::numeric_limits<TITime>::max()));
}

} // namespace

// Clamped before the shift, so that no stored count, however far off, overflows on the way.
TITime TIFromUnixTime(std::int64_t seconds) {
    return Clamp(std::clamp<std::int64_t>(seconds, -(std::int64_t{1} << 40), std::int64_t{1} << 40) -
                 EpochUnixSeconds);
}

std::int64_t TIToUnixTime(TITime time) {
    return std::int64_t{time} + EpochUnixSeconds;
}

TITime TIGetTime() {
    return TIFromUnixTime(duration_cast<seconds>(system_clock::now().time_since_epoch()).count());
}

TIDate TITimeToDate(TITime time) {
    const sys_seconds instant{seconds{TIToUnixTime(time)}};
    const sys_days day = floor<days>(instant);
    const year_month_day ymd{day};
    const hh_mm_ss clock{instant - day};
    return {static_cast<int>(ymd.year()),
            static_cast<int>(static_cast<unsigned>(ymd.month())),
            static_cast<int>(static_cast<unsigned>(ymd.day())),
            static_cast<int>(clock.hours().count()),
            static_cast<int>(clock.minutes().count()),
            static_cast<int>(clock.seconds().count())};
}

TITime TIDateToTime(const TIDate& date) {
    // Fields out of their range carry over (day 32 is the next month's first), as the month
    // index and the day count are added rather than validated.
    const std::int64_t monthIndex = std::int64_t{date.year} * 12 + (date.month - 1);
    const std::int64_t firstYear = monthIndex >= 0 ? monthIndex / 12 : (monthIndex - 11) / 12;
    if (firstYear < -30000 || firstYear > 30000)
        return Clamp(firstYear < 0 ? std::numeric_limits<std::int64_t>::min()
                                   : std::numeric_limits<std::int64_t>::max());
    const year_month_day first{year{static_cast<int>(firstYear)},
                               month{static_cast<unsigned>(monthIndex - firstYear * 12 + 1)}, day{1}};
    const std::int64_t daySeconds = duration_cast<seconds>(sys_days{first}.time_since_epoch()).count() +
                                    (std::int64_t{date.day} - 1) * 86400;
    return TIFromUnixTime(daySeconds + std::int64_t{date.hour} * 3600 + std::int64_t{date.minute} * 60 +
                          date.second);
}

TIDate TIAddMonths(const TIDate& date, int months) {
    const std::int64_t index = std::int64_t{date.year} * 12 + (date.month - 1) + months;
    const std::int64_t resultYear =
        std::clamp<std::int64_t>(index >= 0 ? index / 12 : (index - 11) / 12, -30000, 30000);
    TIDate result = date;
    result.year = static_cast<int>(resultYear);
    result.month = static_cast<int>(std::clamp<std::int64_t>(index - resultYear * 12, 0, 11) + 1);
    const year_month_day_last last{year{result.year} / month{static_cast<unsigned>(result.month)} /
                                   std::chrono::last};
    result.day = std::min(date.day, static_cast<int>(static_cast<unsigned>(last.day())));
    return result;
}
