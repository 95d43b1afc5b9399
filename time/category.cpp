// The TIME category: the section reader, the null locale's record, the wide twins and the
// time parser's validation caches made once CTYPE is loaded, copies and release.
//
// The TIME section of a locale object file, after its marker line. Numbers are decimal;
// strings are written as the NUMERIC strings are: a byte count, then (only when it is above 0)
// one blank and the bytes as pairs of hexadecimal digits. Every item is followed by white
// space (the compiler writes one item per line):
//
//   calendar month_count alt_month_count era_count alt_digit_count
//   week_days week_start week_min_days first_weekday first_workday
//   d_t_fmt
//   7 abbreviated day names, then 7 full day names (Sunday first)
//   month_count full month names (by month-name index), then alt_month_count names of the
//       second list
//   d_fmt t_fmt t_fmt_ampm am pm date_fmt era_d_t_fmt era_d_fmt era_t_fmt era_year
//   month_count abbreviated month names, then alt_month_count of the second list
//   era_count segments: direction offset start_year start_month start_day end_year
//       end_month end_day, then the era's name and its year format
//   alt_digit_count alternative digits, 0 upwards
//
// calendar 1 to 4 (nus_canned_calendars); month_count 12 to 20; alt_month_count 0 or 12 to
// 20; era_count at most 1024; alt_digit_count at most 100; week_days 1 to 7 and the three
// day numbers after week_start 1 to week_days; direction 1 or -1; a year of an era's start or
// end is the full (astronomical) year, or -2147483648 / 2147483647 for an end open towards
// the past / the future, whose month and day are then 0; otherwise month 1 to 12 and day 1
// to 31; no string longer than 4096 bytes. Anything else, or a section cut short, is a
// damaged file (NU_EBADFILE); the record is then left as it was.
#include "time/category.h"
#include "locale/locale.h"

#include <array>
#include <climits>
#include <functional>

namespace {

using nus::CatString;
using nus::EraSegment;
using nus::TimeFields;

// ---- the null locale's texts ------------------------------------------------------------

// Every text of the POSIX locale's TIME values, in one static block with its wide twin.
constexpr const char *kCTexts[] = {
    "Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat",
    "Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday",
    "Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec",
    "January", "February", "March", "April", "May", "June", "July", "August", "September",
    "October", "November", "December",
    "%a %b %e %H:%M:%S %Y", "%m/%d/%y", "%H:%M:%S", "%I:%M:%S %p", "AM", "PM",
    "%a %b %e %H:%M:%S %Z %Y", ""};
enum CText {
    kAbdaySun = 0, kDaySun = 7, kAbmonJan = 14, kMonJan = 26, kDateTime = 38, kDate, kTime,
    kTimeAmPm, kAm, kPm, kDateCmd, kEmpty, kCTextCount
};
static_assert(std::size(kCTexts) == kCTextCount);

constexpr size_t c_text_bytes() {
    size_t n = 0;
    for (const char *t : kCTexts) {
        while (*t++ != '\0') ++n;
        ++n;
    }
    return n;
}

struct CBlock {
    std::array<char, c_text_bytes()> mb;
    std::array<nu_wchar, c_text_bytes()> wide;   // ASCII: each byte is its character
    std::array<size_t, kCTextCount> at;
};

constexpr CBlock kC = [] {
    CBlock b{};
    size_t at = 0;
    for (size_t i = 0; i < kCTextCount; ++i) {
        b.at[i] = at;
        for (const char *p = kCTexts[i];; ++p) {
            b.mb[at] = *p;
            b.wide[at] = static_cast<unsigned char>(*p);
            ++at;
            if (*p == '\0') break;
        }
    }
    return b;
}();

// The static texts are never written: the record's pointers are not const only because its
// loaded strings are owned.
CatString c_text(int index) {
    return {const_cast<char *>(kC.mb.data() + kC.at[static_cast<size_t>(index)]),
            const_cast<nu_wchar *>(kC.wide.data() + kC.at[static_cast<size_t>(index)])};
}

bool within(const void *p, const void *begin, size_t bytes) {
    const auto v = reinterpret_cast<uintptr_t>(p);
    const auto b = reinterpret_cast<uintptr_t>(begin);
    return v >= b && v < b + bytes;
}

// Every string of the record, the era names and formats and the digits included.
template <typename F>
void for_each_string(TimeFields &t, F f) {
    f(t.date_time_format);
    for (CatString &s : t.abday) f(s);
    for (CatString &s : t.day) f(s);
    for (CatString &s : t.mon) f(s);
    for (CatString &s : t.alt_mon) f(s);
    for (CatString *s : {&t.date_format, &t.time_format, &t.time_format_ampm, &t.am, &t.pm,
                         &t.date_cmd_format, &t.era_date_time_format, &t.era_date_format,
                         &t.era_time_format, &t.era_year})
        f(*s);
    for (CatString &s : t.abmon) f(s);
    for (CatString &s : t.ab_alt_mon) f(s);
    if (t.eras != nullptr) {
        for (int32_t i = 0; i < t.era_count; ++i) {
            f(t.eras[i].name);
            f(t.eras[i].format);
        }
    }
    if (t.alt_digits != nullptr) {
        for (int32_t i = 0; i < t.alt_digit_count; ++i) f(t.alt_digits[i]);
    }
}

void release(CatString &s) {
    if (!nus::static_time_text(s.mb)) _nu_free_ptr(s.mb);
    if (!nus::static_time_text(s.wide)) _nu_free_ptr(s.wide);
    s = {};
}

// Frees what a record owns; the record itself is left for the caller to reset.
void release_all(nu_locale_rec *h, TimeFields &t) {
    for_each_string(t, release);
    _nu_free_ptr(t.eras);
    _nu_free_ptr(t.alt_digits);
    for (int k = 0; k < nus::kTimeCaches; ++k) {
        _nu_free_mb_cache(h, t.mb_cache[k]);
        _nu_free_wc_cache(h, t.wc_cache[k]);
    }
    nus::release_time_derived(t.era_cache);
}

// ---- reading -----------------------------------------------------------------------------

class SectionReader {
public:
    SectionReader(FILE *stream, int *error) : stream_(stream), error_(error) {}

    // A decimal number within [low, high]; false (damaged) otherwise.
    bool number(int32_t &out, long low, long high) {
        long value = 0;
        if (!nus::read_decimal(stream_, &value) || value < low || value > high) return damaged();
        out = static_cast<int32_t>(value);
        return true;
    }

    // A string into a new buffer with four zero bytes after it (the terminator of any code
    // set), followed by white space.
    bool text(CatString &out) {
        long count = 0;
        if (!nus::read_decimal(stream_, &count) || count < 0 || count > nus::kMaxTimeString)
            return damaged();
        char *bytes = nus::alloc_zeroed<char>(static_cast<size_t>(count) + 4);
        if (bytes == nullptr) {
            *error_ = NU_ENOMEM;
            return false;
        }
        out.mb = bytes;   // owned by the record from here, released with it on failure
        if (count > 0) {
            nus::Chars in(stream_);
            if (in.get() != ' ') return damaged();
            for (long i = 0; i < count; ++i) {
                const int high = nus::c_hexvalue(in.get());
                const int low = high < 0 ? -1 : nus::c_hexvalue(in.get());
                if (low < 0) return damaged();
                bytes[i] = static_cast<char>(high * 16 + low);
            }
        }
        _nu_skip_whitespace(stream_);
        return true;
    }

    template <size_t N>
    bool texts(CatString (&list)[N], int32_t count) {
        for (int32_t i = 0; i < count; ++i) {
            if (!text(list[i])) return false;
        }
        return true;
    }

    // One end of an era: a year, or an open end whose month and day are 0.
    bool era_date(int32_t &year, int32_t &month, int32_t &day) {
        if (!number(year, INT32_MIN, INT32_MAX)) return false;
        const bool open = year == nus::kEraOpenBefore || year == nus::kEraOpenAfter;
        return open ? number(month, 0, 0) && number(day, 0, 0)
                    : number(month, 1, 12) && number(day, 1, 31);
    }

    bool era(EraSegment &e) {
        if (!number(e.direction, -1, 1) || !require(e.direction != 0) ||
            !number(e.offset, INT32_MIN, INT32_MAX) ||
            !era_date(e.start_year, e.start_month, e.start_day) ||
            !era_date(e.end_year, e.end_month, e.end_day))
            return false;
        return text(e.name) && text(e.format);
    }

    // A condition the section must meet; false (damaged) when it does not.
    bool require(bool condition) { return condition || damaged(); }

private:
    bool damaged() {
        *error_ = NU_EBADFILE;
        return false;
    }

    FILE *stream_;
    int *error_;
};

bool read_section(FILE *stream, TimeFields &t, int *error) {
    SectionReader r(stream, error);
    int32_t era_count = 0, digit_count = 0;
    if (!r.number(t.calendar, 1, 4) || !r.number(t.month_count, nus::kMinMonths, nus::kMonthSlots) ||
        !r.number(t.alt_month_count, 0, nus::kMonthSlots) ||
        !r.require(t.alt_month_count == 0 || t.alt_month_count >= nus::kMinMonths) ||
        !r.number(era_count, 0, nus::kMaxEras) || !r.number(digit_count, 0, nus::kAltDigitSlots))
        return false;
    if (!r.number(t.week_days, 1, 7) || !r.number(t.week_start, 0, INT32_MAX) ||
        !r.number(t.week_min_days, 1, t.week_days) || !r.number(t.first_weekday, 1, t.week_days) ||
        !r.number(t.first_workday, 1, t.week_days))
        return false;
    if (!r.text(t.date_time_format) || !r.texts(t.abday, 7) || !r.texts(t.day, 7) ||
        !r.texts(t.mon, t.month_count) || !r.texts(t.alt_mon, t.alt_month_count))
        return false;
    for (CatString *s : {&t.date_format, &t.time_format, &t.time_format_ampm, &t.am, &t.pm,
                         &t.date_cmd_format, &t.era_date_time_format, &t.era_date_format,
                         &t.era_time_format, &t.era_year}) {
        if (!r.text(*s)) return false;
    }
    if (!r.texts(t.abmon, t.month_count) || !r.texts(t.ab_alt_mon, t.alt_month_count))
        return false;
    if (era_count > 0) {
        t.eras = nus::alloc_zeroed<EraSegment>(static_cast<size_t>(era_count));
        if (t.eras == nullptr) {
            *error = NU_ENOMEM;
            return false;
        }
        t.era_count = era_count;
        for (int32_t i = 0; i < era_count; ++i) {
            if (!r.era(t.eras[i])) return false;
        }
    }
    if (digit_count > 0) {
        t.alt_digits = nus::alloc_zeroed<CatString>(static_cast<size_t>(digit_count));
        if (t.alt_digits == nullptr) {
            *error = NU_ENOMEM;
            return false;
        }
        t.alt_digit_count = digit_count;
        for (int32_t i = 0; i < digit_count; ++i) {
            if (!r.text(t.alt_digits[i])) return false;
        }
    }
    return true;
}

// Month slots beyond the counts hold the static empty string, so that no slot is null.
void fill_unused_slots(TimeFields &t) {
    for (int i = 0; i < nus::kMonthSlots; ++i) {
        if (i >= t.month_count) t.mon[i] = t.abmon[i] = c_text(kEmpty);
        if (i >= t.alt_month_count) t.alt_mon[i] = t.ab_alt_mon[i] = c_text(kEmpty);
    }
}

// ---- initialisation ----------------------------------------------------------------------

// The validation caches: both tries of each kind, values as frame/handle.h lists them. The
// lists are entered from the least to the most preferred, since entering a string again
// overwrites its value: the full names win over the abbreviations and the second month list
// where they are equal, and an era name shared by several segments keeps the first segment's
// index (the most recent era in the sources' order).
class CacheBuilder {
public:
    explicit CacheBuilder(nu_locale_rec *h) : h_(h), t_(h->time) {}

    bool add(nus::TimeCache kind, const CatString &s, uint32_t value) {
        if (s.mb == nullptr || s.mb[0] == '\0') return true;   // an empty name is never sought
        const auto *bytes = reinterpret_cast<const unsigned char *>(s.mb);
        return _nu_cache_mb_string(h_, &t_.mb_cache[kind], bytes, value) == 0 &&
               _nu_cache_wc_string(h_, &t_.wc_cache[kind], bytes, value) == 0;
    }

    bool build() {
        for (int list = 3; list >= 0; --list) {
            const CatString *names = list == 0 ? t_.mon : list == 1 ? t_.abmon
                                   : list == 2 ? t_.alt_mon : t_.ab_alt_mon;
            const int32_t count = list < 2 ? t_.month_count : t_.alt_month_count;
            for (int32_t i = 0; i < count; ++i) {
                if (!add(nus::kCacheMonths, names[i], static_cast<uint32_t>(list << 8 | i)))
                    return false;
            }
        }
        for (int i = 0; i < 7; ++i) {
            if (!add(nus::kCacheDays, t_.abday[i], static_cast<uint32_t>(1 << 8 | i))) return false;
        }
        for (int i = 0; i < 7; ++i) {
            if (!add(nus::kCacheDays, t_.day[i], static_cast<uint32_t>(i))) return false;
        }
        for (int32_t i = t_.era_count - 1; i >= 0; --i) {
            if (!add(nus::kCacheEras, t_.eras[i].name, static_cast<uint32_t>(i))) return false;
        }
        if (!add(nus::kCacheAmPm, t_.pm, 1) || !add(nus::kCacheAmPm, t_.am, 0)) return false;
        for (int32_t i = 0; i < t_.alt_digit_count; ++i) {
            if (!add(nus::kCacheDigits, t_.alt_digits[i], static_cast<uint32_t>(i))) return false;
        }
        return true;
    }

private:
    nu_locale_rec *h_;
    TimeFields &t_;
};

void free_caches(nu_locale_rec *h) {
    for (int k = 0; k < nus::kTimeCaches; ++k) {
        _nu_free_mb_cache(h, h->time.mb_cache[k]);
        _nu_free_wc_cache(h, h->time.wc_cache[k]);
        h->time.mb_cache[k] = nullptr;
        h->time.wc_cache[k] = nullptr;
    }
}

} // namespace

namespace nus {

bool static_time_text(const void *p) {
    return within(p, kC.mb.data(), sizeof kC.mb) || within(p, kC.wide.data(), sizeof kC.wide);
}

void init_ltime(nu_locale_rec *h) {
    TimeFields &t = h->time;
    t = {};
    t.date_time_format = c_text(kDateTime);
    for (int i = 0; i < 7; ++i) {
        t.abday[i] = c_text(kAbdaySun + i);
        t.day[i] = c_text(kDaySun + i);
    }
    t.month_count = 12;
    for (int i = 0; i < 12; ++i) {
        t.mon[i] = c_text(kMonJan + i);
        t.abmon[i] = c_text(kAbmonJan + i);
    }
    t.date_format = c_text(kDate);
    t.time_format = c_text(kTime);
    t.time_format_ampm = c_text(kTimeAmPm);
    t.am = c_text(kAm);
    t.pm = c_text(kPm);
    t.date_cmd_format = c_text(kDateCmd);
    t.era_date_time_format = t.era_date_format = t.era_time_format = t.era_year = c_text(kEmpty);
    fill_unused_slots(t);
    t.calendar = 1;
    t.week_days = 7;
    t.week_start = 19971130;   // a Sunday
    t.week_min_days = 4;
    t.first_weekday = 1;
    t.first_workday = 2;
}

int init_time_info(nu_locale_rec *h) {
    if (const int ready = can_widen(h); ready != 1) return ready;
    free_era_cache(h);   // what was derived from the strings goes with their wide twins
    bool ok = true;
    for_each_string(h->time, [&](CatString &s) {
        if (ok && !static_time_text(s.mb) && !widen_string(h, s)) ok = false;
    });
    if (!ok) {
        // A string that is no text of the code set: the file is damaged.
        if (h->error != NU_ENOMEM) set_error(h, NU_EBADFILE);
        return -1;
    }
    free_caches(h);
    if (!CacheBuilder(h).build()) {
        if (h->error != NU_ENOMEM) set_error(h, NU_EBADFILE);
        return -1;
    }
    return 1;
}

void free_era_cache(nu_locale_rec *h) {
    release_time_derived(h->time.era_cache);
    h->time.era_cache = nullptr;
    h->time.era_cache_count = 0;
}

void free_ltime(nu_locale_rec *h) {
    release_all(h, h->time);
    h->time = {};
}

} // namespace nus

// Reads the section into a record of its own and installs it only when the whole section
// was good, releasing what the handle's record held before.
NU_EXPORT int _nu_read_time(FILE *stream, nu_locale_t h, int *error) {
    if (nus::no_handle(h) || error == nullptr) return -1;
    if (stream == nullptr) {
        *error = NU_EBADARG;
        return -1;
    }
    TimeFields t{};
    if (!read_section(stream, t, error)) {
        release_all(h, t);
        return -1;
    }
    fill_unused_slots(t);
    // A record copied from another handle belongs to that one: it is only let go of.
    // So does one shared between handles that loaded the same file.
    int32_t &borrowed = h->borrowed[nus::cat_index(NU_TIME)];
    if (borrowed != 0 || h->shared[nus::cat_index(NU_TIME)] != nullptr) nus::free_era_cache(h);
    else nus::free_ltime(h);
    borrowed = 0;
    nus::release_shared(h, NU_TIME);
    h->time = t;
    return 0;
}

NU_EXPORT const char *nu_time_name(nu_locale_t h, int list, int index) {
    if (nus::no_handle(h)) return nullptr;
    const TimeFields &t = h->time;
    const CatString *names = list == 0 ? t.mon : list == 1 ? t.abmon : list == 2 ? t.alt_mon
                           : list == 3 ? t.ab_alt_mon : t.alt_digits;
    const int32_t count = list < 2 ? t.month_count : list < 4 ? t.alt_month_count
                        : list == 4 ? t.alt_digit_count : 0;
    if (index < 0 || index >= count || names == nullptr || names[index].mb == nullptr) {
        nus::set_error(h, NU_EBADVAL);
        return nullptr;
    }
    return names[index].mb;
}

NU_EXPORT int nu_time_era(nu_locale_t h, int index, nu_era_segment *segment) {
    if (nus::no_handle(h)) return -1;
    if (segment == nullptr) return nus::bad_argument(h), -1;
    const TimeFields &t = h->time;
    if (index >= 0 && index < t.era_count && t.eras != nullptr) {
        const EraSegment &e = t.eras[index];
        static const nu_wchar kNoWide[1] = {0};
        *segment = {e.direction, e.offset, e.start_year, e.start_month, e.start_day,
                    e.end_year, e.end_month, e.end_day, e.name.mb != nullptr ? e.name.mb : "",
                    e.format.mb != nullptr ? e.format.mb : "",
                    e.name.wide != nullptr ? e.name.wide : kNoWide,
                    e.format.wide != nullptr ? e.format.wide : kNoWide};
    }
    return t.era_count;
}

NU_EXPORT int nu_time_week(nu_locale_t h, int32_t week[5]) {
    if (nus::no_handle(h)) return -1;
    if (week == nullptr) return nus::bad_argument(h), -1;
    const TimeFields &t = h->time;
    week[0] = t.week_days;
    week[1] = t.week_start;
    week[2] = t.week_min_days;
    week[3] = t.first_weekday;
    week[4] = t.first_workday;
    return 0;
}
