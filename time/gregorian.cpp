// The Gregorian helpers (day of year, day of week, day numbers back to dates), the month
// lengths every caller shares, and the choice of the local calendar by the handle's TIME
// category.
#include "time/calendar.h"

// Exported with its values for callers. The conversions walk the months over a copy of
// their own (set_gregorian_day) and never write it.
int32_t _nu_greg_month_length[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

namespace {


constexpr int32_t kGregorian = 1;
constexpr int32_t kHebrew = 2;
constexpr int32_t kIslamic = 3;

} // namespace

namespace nus {

YearDay gregorian_year_of_day(int32_t day) {
    // 400 years are 146097 days, a century 36524, four years 1461, a year 365; the last
    // day of a 400-year or 4-year period belongs to its last (leap) year.
    const int32_t cycles = day / 146097;
    int32_t rest = day % 146097;
    int32_t centuries = rest / 36524;
    if (centuries == 4) centuries = 3;
    rest -= centuries * 36524;
    const int32_t quads = rest / 1461;
    rest %= 1461;
    int32_t years = rest / 365;
    if (years == 4) years = 3;
    rest -= years * 365;
    return {400 * cycles + 100 * centuries + 4 * quads + years + 1, rest};
}

void set_gregorian_day(nu_time_rec &r, int32_t day) {
    const YearDay yd = gregorian_year_of_day(day);
    // The months are walked over lengths of our own, February set for the year here: the
    // shared _nu_greg_month_length is never written (not even for the length of one
    // conversion), so that concurrent conversions and readers of the table always see a
    // February of 28 days.
    constexpr int32_t kMonthLength[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool leap = gregorian_leap(yd.year);
    int32_t mday = yd.yday + 1;
    int32_t month = 0;
    for (; month < 11; ++month) {
        const int32_t length = month == 1 && leap ? 29 : kMonthLength[month];
        if (mday <= length) break;
        mday -= length;
    }
    r.mday = mday;
    r.month = month;
    r.month_name = month;
    r.year = yd.year - 1900;
    r.wday = (day + 1) % 7;   // day 0, 1 January of year 1, was a Monday
    r.yday = yd.yday;
}

} // namespace nus

NU_EXPORT int _nu_gregorian_yearday(int mday, int month, int year) {
    // Never read beyond the table: a month outside the year has no day of year.
    if (month < 0 || month > 11) return -1;
    const int before = nus::kDaysBeforeMonth[month] + (month > 1 && nus::gregorian_leap(year) ? 1 : 0);
    return mday + before - 1;
}

NU_EXPORT int _nu_gregorian_weekday(int mday, int month, int year) {
    const int yday = _nu_gregorian_yearday(mday, month, year);
    if (yday == -1 && (month < 0 || month > 11)) return -1;
    // The day number of the date (1 January of year 1, a Monday, is day 1).
    const int64_t y = int64_t{year} - 1;
    const int64_t n = yday + 365 * y + y / 4 - y / 100 + y / 400 + 1;
    return static_cast<int>(n % 7);
}

NU_EXPORT int nu_cal_gregorian_to_local(nu_locale_t handle, const nu_time_rec *in,
                                        nu_time_rec *out) {
    if (handle == nullptr || in == nullptr || out == nullptr) return -1;
    switch (handle->time.calendar) {
    case kGregorian: *out = *in; return 0;
    case kHebrew: return nu_cal_gregorian_to_hebrew(in, out);
    case kIslamic: return nu_cal_gregorian_to_islamic(in, out);
    default: return -1;
    }
}

NU_EXPORT int nu_cal_local_to_gregorian(nu_locale_t handle, const nu_time_rec *in,
                                        nu_time_rec *out) {
    if (handle == nullptr || in == nullptr || out == nullptr) return -1;
    switch (handle->time.calendar) {
    case kGregorian: *out = *in; return 0;
    case kHebrew: return nu_cal_hebrew_to_gregorian(in, out);
    case kIslamic: return nu_cal_islamic_to_gregorian(in, out);
    default: return -1;
    }
}

NU_EXPORT int nu_alt_getcentury(nu_locale_t handle) {
    if (handle == nullptr) return 0;
    switch (handle->time.calendar) {
    case kHebrew: return 57;
    case kIslamic: return 14;
    default: return 0;
    }
}
