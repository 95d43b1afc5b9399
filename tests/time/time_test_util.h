// Helpers of the calendar tests: time values built from a date, and a proleptic Gregorian
// day counter independent of the library's.
#pragma once

#include "nus.h"

#include <cstdint>
#include <ostream>

namespace nus_test {

// A time value for day `mday` of `month` (from 0) of `year` (full year) of some calendar.
inline nu_time_rec date(int year, int month, int mday) {
    nu_time_rec r{};
    r.year = year - 1900;
    r.month = month;
    r.month_name = month;
    r.mday = mday;
    return r;
}

struct Ymd {
    int year, month, mday;   // full year, month from 0
    bool operator==(const Ymd &) const = default;
};

inline Ymd ymd(const nu_time_rec &r) { return {r.year + 1900, r.month, r.mday}; }

inline std::ostream &operator<<(std::ostream &os, const Ymd &d) {
    return os << d.year << '/' << d.month << '/' << d.mday;
}

inline bool leap(int y) { return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0; }

inline int month_days(int y, int m) {
    static const int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return m == 1 && leap(y) ? 29 : kDays[m];
}

// Days from 1970-01-01 (the usual civil-from-days arithmetic, written independently of the
// library's).
inline int64_t days_from_epoch(int y, int m, int d) {
    const int64_t yy = m < 2 ? y - 1 : y;
    const int64_t era = (yy >= 0 ? yy : yy - 399) / 400;
    const int64_t yoe = yy - era * 400;
    const int64_t mp = (m + 10) % 12;   // March = 0
    const int64_t doy = (153 * mp + 2) / 5 + d - 1;
    const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
}

// Day of week, 0 = Sunday (1970-01-01 was a Thursday).
inline int weekday(int y, int m, int d) {
    const int64_t n = (days_from_epoch(y, m, d) + 4) % 7;
    return static_cast<int>(n < 0 ? n + 7 : n);
}

inline int yearday(int y, int m, int d) {
    int n = d - 1;
    for (int i = 0; i < m; ++i) n += month_days(y, i);
    return n;
}

inline bool hebrew_leap(int year) { return (7 * year + 1) % 19 < 7; }

// Days from 1970-01-01 of the first day of Hebrew year `year`, by the rules as they are
// usually taught: the molad of Tishri counted from the first one (Monday, 5 hours 204 parts
// after 6 pm; 1080 parts an hour, a month 29 days 12 hours 793 parts), then postponed: a
// molad on Tuesday from 9h 204p in a common year to Thursday; one on Monday from 15h 589p
// in a year after a leap year to Tuesday; otherwise a molad from 18h to the next day, and a
// Sunday, Wednesday or Friday to the day after.
inline int64_t textbook_new_year(int year) {
    const int64_t months = (235 * int64_t{year} - 234) / 19;
    const int64_t parts = 31524 + months * 765433;   // from 6 pm before the first Sunday
    int64_t day = parts / 25920;
    const int64_t part = parts % 25920;
    const int64_t wday = day % 7;                      // 0 = Sunday
    if (wday == 2 && part >= 9 * 1080 + 204 && !hebrew_leap(year)) {
        day += 2;
    } else if (wday == 1 && part >= 15 * 1080 + 589 && hebrew_leap(year - 1)) {
        day += 1;
    } else {
        if (part >= 18 * 1080) day += 1;
        if (day % 7 == 0 || day % 7 == 3 || day % 7 == 5) day += 1;
    }
    // Day 1, the first new year, was the Monday that is day -1373427 of the count in which
    // 1 January of year 1 is day 1, and 1970-01-01 is day 719163 of that count.
    return day - 1373428 - 719163;
}

} // namespace nus_test
