#pragma once

#include "KLRoot/KLExport.hpp"

#include <cstdint>

// Time in the foundation's unit: signed 32-bit seconds since 2020-01-01T00:00:00 UTC. That spans
// 1951-12-13 to 2088-01-19, so it neither runs out in 2038 nor loses the dates of old files.
using TITime = std::int32_t;

// A calendar date and time of day in UTC; month 1 to 12, day 1 to 31.
struct TIDate {
    int year = 2020;
    int month = 1;
    int day = 1;
    int hour = 0;
    int minute = 0;
    int second = 0;

    bool operator==(const TIDate&) const = default;
};

// Averages of two times should be taken as a + (b - a) / 2: their sum leaves the range from 2054 on.
LM_EXPORT TITime TIGetTime();
LM_EXPORT TIDate TITimeToDate(TITime time);
// Dates outside the span clamp to its ends.
LM_EXPORT TITime TIDateToTime(const TIDate& date);
// Moves a date by whole months; a day past the end of the target month becomes its last day.
LM_EXPORT TIDate TIAddMonths(const TIDate& date, int months);
LM_EXPORT TITime TIFromUnixTime(std::int64_t seconds);
LM_EXPORT std::int64_t TIToUnixTime(TITime time);
