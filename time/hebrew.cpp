// The Hebrew calendar: the first day of a year from the molad (mean new moon) of Tishri and
// the postponements, and the conversions of a time value to and from the Gregorian calendar.
//
// Years are indexed from 3744 (k = year - 3744). A year has 12 months, or 13 in years 3, 6,
// 8, 11, 14, 17 and 19 of the 19-year cycle; a lunar month is 29 days and 13753 parts (a day
// has 25920 parts). Months alternate 30 and 29 days from Tishri (month 0), except that
// Heshvan (1) has 30 days in a complete year and Kislev (2) 29 in a deficient one; a leap
// year inserts Adar I (30 days) as month 5, and its Adar becomes month 6.
#include "time/calendar.h"

namespace {

constexpr int32_t kPartsPerDay = 25920;
constexpr int32_t kPartsPerWeek = 7 * kPartsPerDay;

// The months of the last 236 days of every year (Shevat or Adar I to Elul) alternate 30
// and 29 days.
constexpr int32_t kTailDays = 236;

bool leap_length(int64_t length) { return length >= 383; }

// The first day of a year from the day d of its molad, its place r in the leap cycle (r > 6:
// the year before was not a leap year; r < 12: this one is not), the molad's day of the
// week w and its time h in parts of that day. The postponements, in this order: usually the
// year starts on the day of its molad, or the day after when that is day 1, 4 or 6 (days
// of the week as counted here). The two special cases, a molad from part 16404 of day 3 in
// a common year or from part 23269 of day 2 in a year after a leap year, start it one day
// later, and one more when that later day is 4 or 6.
int64_t postponed(int64_t d, int r, int w, int h) {
    if (!(r < 12 && w == 3 && h > 16403) && (r > 6 || w != 2 || h < 23269))
        return w != 1 && w != 4 && w < 6 ? d - 2 : d - 1;
    return w != 0 && w + 1 != 4 && w + 1 != 6 ? d - 1 : d;
}

} // namespace

namespace nus {

int64_t hebrew_size_in_days(int64_t k) {
    // A month is 28 days and 39673 parts; the molad of year 3744 fell at part 8339.
    if (k >= 0 && k <= 12000) {
        // The years of the conversions (3744 to 15744) in 32 bits, where 64-bit divisions
        // are calls: the parts counted as 25920 a day plus a rest that alone must fit.
        const int32_t k32 = static_cast<int32_t>(k);
        const int32_t a = 7 * k32 + 1;
        const int32_t months = 12 * k32 + a / 19;   // months since the molad of year 3744
        const int32_t rest = 13753 * months + 8339;
        const int32_t q = (kPartsPerDay * (months % 7) + rest) % kPartsPerWeek;
        return postponed(29 * months + rest / kPartsPerDay, a % 19, q / kPartsPerDay, q % kPartsPerDay);
    }
    // Any other year (one a caller named, not yet checked against the range).
    const int64_t a = 7 * k + 1;
    const int64_t months = 12 * k + a / 19;
    const int64_t parts = 39673 * months + 8339;
    const int64_t q = parts % kPartsPerWeek;
    return postponed(28 * months + parts / kPartsPerDay, static_cast<int>(a % 19),
                     static_cast<int>(q / kPartsPerDay), static_cast<int>(q % kPartsPerDay));
}

} // namespace nus

NU_EXPORT int nu_cal_gregorian_to_hebrew(const nu_time_rec *in, nu_time_rec *out) {
    if (in == nullptr || out == nullptr) return -1;
    const nu_time_rec src = *in;
    nu_time_rec r = nus::carried_words(src);
    const int64_t year = int64_t{src.year} + 1900;
    const int32_t month = src.month, mday = src.mday;
    if (year < 1 || (year == 1 && (month < 0 || (month == 0 && mday < 1))))
        return nus::out_of_range(out);
    if (year > 10000 || (year == 10000 && (month > 1 || (month == 1 && mday >= 24))))
        return nus::out_of_range(out);
    if (nus::far_outside(month) || nus::far_outside(mday)) return nus::out_of_range(out);

    // Years that start in March: January and February are months 11 and 12 of the year
    // before. Deliberately one step only: months below -1 are not carried further back.
    int32_t y = static_cast<int32_t>(year);
    int32_t mm = month - 1;
    if (mm < 1) {
        mm += 12;
        y -= 1;
    }
    const int32_t day = mday + 5970 + 365 * y + y / 4 - y / 100 + y / 400 + (367 * mm) / 12;
    r.wday = (day + 1) % 7;

    // The Hebrew year that starts in the autumn of year y is index y + 16, the one before
    // y + 15: the search starts low enough and moves forward.
    int64_t k = y + 16;
    int64_t start = nus::hebrew_size_in_days(k);
    int64_t next = nus::hebrew_size_in_days(k + 1);
    while (day >= next) {
        ++k;
        start = next;
        next = nus::hebrew_size_in_days(k + 1);
    }
    const int32_t length = static_cast<int32_t>(next - start);
    const int32_t t = static_cast<int32_t>(day - start);
    const int32_t kind = length % 10;   // 3 deficient, 4 regular, 5 complete

    int32_t n, offset, name;
    if (t < length - kTailDays) {
        // Tishri to Tevet (to Shevat in a leap year): 4 months in 117, 118 or 119 days.
        n = (4 * t) / (kind + 114);
        offset = t - ((kind + 114) * n + 3) / 4;
        name = n;
    } else {
        const int32_t u = t + kTailDays - length;
        const int32_t v = (u * 2) / 59;
        offset = u - (59 * v + 1) / 2;
        if (leap_length(length)) {
            n = v + 5;
            name = v + 4 < 6 ? v + 12 : v + 4;   // Adar I and II carry names 12 and 13
        } else {
            n = name = v + 4;
        }
    }
    r.hour = src.hour;
    r.mday = offset + 1;
    r.month = n;
    r.month_name = name;
    r.year = static_cast<int32_t>(k + 3744 - 1900);
    r.yday = t;
    *out = r;
    return 0;
}

NU_EXPORT int nu_cal_hebrew_to_gregorian(const nu_time_rec *in, nu_time_rec *out) {
    if (in == nullptr || out == nullptr) return -1;
    const nu_time_rec src = *in;
    nu_time_rec r = nus::carried_words(src);
    const int64_t year = int64_t{src.year} + 1900;
    int32_t month = src.month;
    const int32_t mday = src.mday;
    if (month == -1) {
        // The month comes from its name. Deliberately, a name that gives no month returns -1
        // with the copied words in the output rather than an all-zero record.
        const int32_t name = src.month_name;
        if (name == -1) {
            *out = r;
            return -1;
        }
        const int64_t length = nus::hebrew_size_in_days(year - 3743) - nus::hebrew_size_in_days(year - 3744);
        if (length < 356) {
            if (name > 11) {
                *out = r;
                return -1;
            }
            month = name;
        } else {
            if (name > 13) {
                *out = r;
                return -1;
            }
            month = name >= 12 ? name - 7 : name >= 6 ? name + 1 : name;
        }
    }
    if (year < 3761 || (year == 3761 && (month < 3 || (month == 3 && mday < 18))) || year >= 14214)
        return nus::out_of_range(out);
    if (nus::far_outside(month) || nus::far_outside(mday)) return nus::out_of_range(out);

    // Deliberately a 16-bit year index, as it always was; every year in range fits.
    const int16_t k = static_cast<int16_t>(year - 3744);
    const int64_t start = nus::hebrew_size_in_days(k);
    const int32_t length = static_cast<int32_t>(nus::hebrew_size_in_days(k + 1) - start);
    const int32_t kind = length % 10;
    int64_t day = leap_length(length) && month >= 6
                      ? mday + start + (59 * (month - 1) + 1) / 2 + 30
                      : mday + start + (59 * month + 1) / 2;
    // Heshvan of a complete year has 30 days, Kislev of a deficient one 29.
    day -= kind >= 5 && month >= 2 ? 6001 : 6002;
    if (kind <= 3 && month >= 3) day -= 1;
    // `day` now counts from 1 March of year 0; 1 January of year 1 is 306 days later.
    r.hour = src.hour;
    nus::set_gregorian_day(r, static_cast<int32_t>(day - 306));
    *out = r;
    return 0;
}
