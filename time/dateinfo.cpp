// Date information: the checks of a time value, the era table in the form the formatter and
// parser compare with, weeks (ISO and the locale's), the locale's first weekday and the
// century of two-digit years.
#include "time/timefmt.h"

#include <climits>

namespace nus::tm {

int64_t epoch_days(int year, int month, int mday) {
    const int64_t y = int64_t{year} - 1;
    const int64_t days = _nu_gregorian_yearday(mday, month, year) + 365 * y + y / 4 - y / 100 +
                         y / 400;   // from 0001-01-01
    return days - 719162;           // 1970-01-01 is day 719162 counted so
}

int era_by_fields(const EraSpan *spans, int count, int32_t year, int32_t month, int32_t mday) {
    const int32_t d[3] = {year, month, mday};
    auto not_after = [](const int32_t *a, const int32_t *b) {
        return a[0] < b[0] || (a[0] == b[0] && (a[1] < b[1] || (a[1] == b[1] && a[2] <= b[2])));
    };
    for (int i = 0; i < count; ++i) {
        const EraSpan &s = spans[i];
        if ((not_after(s.start, d) && not_after(d, s.stop)) ||
            (not_after(s.stop, d) && not_after(d, s.start)))
            return i;
    }
    return -1;
}

} // namespace nus::tm

using namespace nus::tm;

NU_EXPORT int nu_time_normalize(nu_locale_t h, nu_time_rec *t) {
    if (nus::no_handle(h) || nus::missing(h, t)) return -1;
    int code = check_time(*t);
    if (code == 0) code = check_date(*t);
    if (code != 0) {
        nus::set_error(h, code);
        return -1;
    }
    const int year = t->year + 1900;
    t->month_name = t->month;
    t->yday = _nu_gregorian_yearday(t->mday, t->month, year);
    t->wday = _nu_gregorian_weekday(t->mday, t->month, year);
    return 0;
}

NU_EXPORT int nu_time_isoweek(nu_locale_t h, const nu_time_rec *t, int *year) {
    if (nus::no_handle(h) || nus::missing(h, t)) return -1;
    if (const int code = check_date(*t)) {
        nus::set_error(h, code);
        return -1;
    }
    const int y = t->year + 1900;
    const IsoWeek w = iso_week(y, _nu_gregorian_yearday(t->mday, t->month, y),
                               _nu_gregorian_weekday(t->mday, t->month, y));
    if (year != nullptr) *year = w.year;
    return w.week;
}

NU_EXPORT int nu_time_first_weekday(nu_locale_t h) {
    if (nus::no_handle(h)) return -1;
    const nus::TimeFields &t = h->time;
    // The week's first day is the day of week_start (a date yyyymmdd; 19971130 was a Sunday),
    // first_weekday counting from it (1 = that day itself).
    int base = 0;
    const int ws = t.week_start;
    if (ws > 0) {
        const int year = ws / 10000, month = ws / 100 % 100 - 1, day = ws % 100;
        if (year >= 1 && year <= 9999 && month >= 0 && month <= 11 && day >= 1 &&
            day <= month_length(month, year))
            base = _nu_gregorian_weekday(day, month, year);
    }
    const int first = t.first_weekday >= 1 && t.first_weekday <= 7 ? t.first_weekday : 1;
    return (base + first - 1) % 7;
}

NU_EXPORT int nu_time_localweek(nu_locale_t h, const nu_time_rec *t, int *year) {
    if (nus::no_handle(h) || nus::missing(h, t)) return -1;
    if (const int code = check_date(*t)) {
        nus::set_error(h, code);
        return -1;
    }
    const int first = nu_time_first_weekday(h);
    const int min_days = h->time.week_min_days >= 1 && h->time.week_min_days <= 7
                             ? h->time.week_min_days : 1;
    int y = t->year + 1900;
    const int yday = _nu_gregorian_yearday(t->mday, t->month, y);
    // Day of year on which week 1 of year y begins (may be negative: in the year before).
    auto week1_start = [&](int year_) {
        const int jan1 = _nu_gregorian_weekday(1, 0, year_);
        const int offset = (jan1 - first + 7) % 7;   // days of January 1's week before it
        return 7 - offset >= min_days ? -offset : 7 - offset;
    };
    int start = week1_start(y);
    if (yday < start) {
        --y;
        start = week1_start(y) - (365 + (nus::gregorian_leap(y) ? 1 : 0));
    } else {
        const int next = week1_start(y + 1) + 365 + (nus::gregorian_leap(y) ? 1 : 0);
        if (yday >= next) {
            ++y;
            start = next;
        }
    }
    if (year != nullptr) *year = y;
    return (yday - start) / 7 + 1;
}

NU_EXPORT int nu_time_expand_year(nu_locale_t h, int yy) {
    if (nus::no_handle(h)) return -1;
    if (yy < 0 || yy > 99) {
        nus::set_error(h, NU_EYEAR);
        return -1;
    }
    const int century = nu_alt_getcentury(h);
    if (century != 0) return century * 100 + yy;
    // POSIX: 69 to 99 are the twentieth century, 00 to 68 the twenty-first.
    return yy >= 69 ? 1900 + yy : 2000 + yy;
}
