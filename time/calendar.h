// Internal interface of the calendar code: what the Gregorian, Hebrew and Islamic
// conversions share, and the helpers the tests reach.
#pragma once

#include "frame/frame.h"

#include <array>
#include <cstdint>

namespace nus {

// Day number of the first day of Hebrew year k + 3744, counted so that 1 January of year 1
// is day 6307 (hebrew.cpp).
int64_t hebrew_size_in_days(int64_t k);

// Lengths of the years of the Islamic 30-year cycle: 355 days for years 2, 5, 7, 10, 13,
// 16, 18, 21, 24, 26 and 29, 354 for the others; a cycle has 10631 days.
inline constexpr std::array<int32_t, 30> cycle_year_length = [] {
    std::array<int32_t, 30> lengths{};
    for (int32_t &n : lengths) n = 354;
    for (int year : {2, 5, 7, 10, 13, 16, 18, 21, 24, 26, 29}) lengths[year - 1] = 355;
    return lengths;
}();
inline constexpr int32_t kIslamicCycleDays = 10631;

// Day of week (0 = Sunday) of day mday of month m (from 0) of Islamic year y.
int islamic_weekday(int mday, int m, int y);

constexpr bool gregorian_leap(int64_t year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}
constexpr bool gregorian_leap(int32_t year) {   // the common case without 64-bit division
    return (year & 3) == 0 && (year % 100 != 0 || year % 400 == 0);
}

// Days before each month in a common year.
inline constexpr int32_t kDaysBeforeMonth[12] = {0,   31,  59,  90,  120, 151,
                                                 181, 212, 243, 273, 304, 334};

// The day of the year (from 0) and the day of the week (0 = Sunday) of a Gregorian date of
// the years 1 to 9999 (month from 0 to 11).
struct DayFacts {
    int32_t yday, wday;
};
// The day of the week of 1 January of each year of the 400-year cycle, which repeats exactly
// (146,097 days are 20,871 weeks), and the remainders by 7 of the numbers a day of the week and
// a day of the year add up to.
struct WeekTables {
    uint8_t january_first[400];
    uint8_t mod7[6 + 366];
};
inline constexpr WeekTables kWeekTables = [] {
    WeekTables w{};
    for (uint32_t i = 0; i < 400; ++i) {
        const uint32_t y = i + 400 - 1;   // 1 January of year 1 was a Monday
        w.january_first[i] = static_cast<uint8_t>((365 * y + y / 4 - y / 100 + y / 400 + 1) % 7);
    }
    for (uint32_t i = 0; i < sizeof w.mod7; ++i) w.mod7[i] = static_cast<uint8_t>(i % 7);
    return w;
}();
inline DayFacts gregorian_day_facts(int32_t year, int32_t month, int32_t mday) {
    const int32_t yday =
        kDaysBeforeMonth[month] + (month > 1 && gregorian_leap(year) ? 1 : 0) + mday - 1;
    const uint32_t first = kWeekTables.january_first[static_cast<uint32_t>(year) % 400];
    return {yday, kWeekTables.mod7[first + static_cast<uint32_t>(yday)]};
}

// The year and day of year of a day counted from 1 January of year 1 (day 0) in the
// proleptic Gregorian calendar; exact for every day from 0 on.
struct YearDay {
    int32_t year;
    int32_t yday;   // from 0
};
YearDay gregorian_year_of_day(int32_t day);

// Words 4 to 9 of `r` for a day counted as gregorian_year_of_day counts it: day, month (and
// its name), year - 1900, day of week, day of year.
void set_gregorian_day(nu_time_rec &r, int32_t day);

// Day and month numbers further from 0 than this are refused by every conversion: no
// calendar reaches them, and the day arithmetic (32 bits) needs them bounded.
inline constexpr int32_t kFarOutside = 100000;
constexpr bool far_outside(int64_t v) { return v > kFarOutside || v < -kFarOutside; }

// The start of every conversion: the words carried (0 to 2, 10 to 12) copied, the others
// cleared. Reads `in` before writing, so in and out may be the same record.
inline nu_time_rec carried_words(const nu_time_rec &in) {
    nu_time_rec r{};
    r.fraction = in.fraction;
    r.second = in.second;
    r.minute = in.minute;
    r.carried[0] = in.carried[0];
    r.carried[1] = in.carried[1];
    r.carried[2] = in.carried[2];
    return r;
}

// The result of a date outside the supported range: all thirteen words zero.
inline int out_of_range(nu_time_rec *out) {
    *out = nu_time_rec{};
    return -1;
}

} // namespace nus
