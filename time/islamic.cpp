// The arithmetic Islamic calendar: 30-year cycles of 10631 days, months alternating 30 and
// 29 days (the last month 30 in a year of 355 days), counted from the astronomical epoch,
// Thursday 18 July 622 (Gregorian; 15 July in the Julian calendar).
#include "time/calendar.h"

namespace {

// Days from 1 January of year 1 to the epoch.
constexpr int32_t kEpoch = 227013;

// Days before each year of the cycle.
constexpr std::array<int32_t, 31> kDaysBeforeCycleYear = [] {
    std::array<int32_t, 31> before{};
    for (size_t i = 0; i < 30; ++i) before[i + 1] = before[i] + nus::cycle_year_length[i];
    return before;
}();
static_assert(kDaysBeforeCycleYear[30] == nus::kIslamicCycleDays);

// Days from the epoch to the first day of year y (from 1).
constexpr int32_t days_before_year(int32_t y) {
    const int32_t cycles = (y - 1) / 30;
    return cycles * nus::kIslamicCycleDays + kDaysBeforeCycleYear[static_cast<size_t>((y - 1) % 30)];
}

// Days before month m (from 0) of a year.
constexpr int32_t days_before_month(int32_t m) { return (59 * m + 1) / 2; }

} // namespace

namespace nus {

int islamic_weekday(int mday, int m, int y) {
    // The epoch was a Thursday (4).
    return (mday + days_before_month(m) + days_before_year(y) - 1 + 4) % 7;
}

} // namespace nus

NU_EXPORT int nu_cal_gregorian_to_islamic(const nu_time_rec *in, nu_time_rec *out) {
    if (in == nullptr || out == nullptr) return -1;
    const nu_time_rec src = *in;
    nu_time_rec r = nus::carried_words(src);
    const int64_t year = int64_t{src.year} + 1900;
    const int32_t month = src.month, mday = src.mday;
    if (year < 622 || (year == 622 && (month < 6 || (month == 6 && mday < 18))))
        return nus::out_of_range(out);
    if (year > 10323 || (year == 10323 && (month > 9 || (month == 9 && mday >= 21))))
        return nus::out_of_range(out);
    // The day of year needs a month of the year: any other fails like a date out of range.
    if (month < 0 || month > 11 || nus::far_outside(mday)) return nus::out_of_range(out);

    // Deliberately the year truncated to 16 bits in the product, as it always was; every
    // year in range fits.
    const int32_t g = static_cast<int32_t>(year) - 1;
    const int32_t day = _nu_gregorian_yearday(mday, month, g + 1) + 365 * int32_t{static_cast<int16_t>(g)} +
                        g / 4 - g / 100 + g / 400 - kEpoch;
    const int32_t cycles = day / nus::kIslamicCycleDays;
    int32_t y = 30 * cycles + 1;
    int32_t t = day - cycles * nus::kIslamicCycleDays;
    for (int32_t length : nus::cycle_year_length) {
        if (t < length) break;
        t -= length;
        ++y;
    }
    int32_t m = (2 * t) / 59;
    int32_t d = t - days_before_month(m) + 1;
    if (m == 12) {
        // The 355th day of a long year: the last month has 30 days then.
        m = 11;
        d = 30;
    }
    r.hour = src.hour;
    r.mday = d;
    r.month = m;
    r.month_name = m;
    r.year = y - 1900;
    r.wday = nus::islamic_weekday(d, m, y);
    r.yday = t;
    *out = r;
    return 0;
}

NU_EXPORT int nu_cal_islamic_to_gregorian(const nu_time_rec *in, nu_time_rec *out) {
    if (in == nullptr || out == nullptr) return -1;
    const nu_time_rec src = *in;
    nu_time_rec r = nus::carried_words(src);
    const int32_t m = src.month != -1 ? src.month : src.month_name;
    if (m == -1) {
        // Deliberately not cleared: neither a month nor a month name returns -1 with the
        // copied words in the output.
        *out = r;
        return -1;
    }
    const int64_t year = int64_t{src.year} + 1900;
    const int32_t mday = src.mday;
    if (year < 1 || (year == 1 && (m < 0 || (m == 0 && mday < 1))) || year > 9999)
        return nus::out_of_range(out);
    if (nus::far_outside(m) || nus::far_outside(mday)) return nus::out_of_range(out);

    const int32_t day = mday + days_before_month(m) + days_before_year(static_cast<int32_t>(year)) - 1 + kEpoch;
    r.hour = src.hour;
    // The month walk there uses lengths of its own: this conversion never writes the
    // shared _nu_greg_month_length, not even February's entry for a moment.
    nus::set_gregorian_day(r, day);
    *out = r;
    return 0;
}
