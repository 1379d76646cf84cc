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

TITime TIFromUnixTime(std::int64_t seconds) { return Clamp(seconds - EpochUnixSeconds); }

std::int64_t TIToUnixTime(TITime time) { return std::int64_t{time} + EpochUnixSeconds; }

TITime TIGetTime() {
    return TIFromUnixTime(duration_cast<seconds>(system_clock::now().time_since_epoch()).count());
}

TIDate TITimeToDate(TITime time) {
    const sys_seconds instant{seconds{TIToUnixTime(time)}};
    const sys_days day = floor<days>(instant);
    const year_month_day ymd{day};
    const hh_mm_ss clock{instant - day};
    return {static_cast<int>(ymd.year()),        static_cast<int>(static_cast<unsigned>(ymd.month())),
            static_cast<int>(static_cast<unsigned>(ymd.day())), static_cast<int>(clock.hours().count()),
            static_cast<int>(clock.minutes().count()),         static_cast<int>(clock.seconds().count())};
}

TITime TIDateToTime(const TIDate& date) {
    const year_month_day ymd{year{date.year}, month{static_cast<unsigned>(date.month)},
                             day{static_cast<unsigned>(date.day)}};
    const std::int64_t daySeconds = duration_cast<seconds>(sys_days{ymd}.time_since_epoch()).count();
    return TIFromUnixTime(daySeconds + std::int64_t{date.hour} * 3600 + std::int64_t{date.minute} * 60 + date.second);
}

TIDate TIAddMonths(const TIDate& date, int months) {
    const int index = date.year * 12 + (date.month - 1) + months;
    TIDate result = date;
    result.year = index >= 0 ? index / 12 : (index - 11) / 12;
    result.month = index - result.year * 12 + 1;
    const year_month_day_last last{year{result.year} / month{static_cast<unsigned>(result.month)} / std::chrono::last};
    result.day = std::min(date.day, static_cast<int>(static_cast<unsigned>(last.day())));
    return result;
}
