// Time parsing: nu_wcsptime and nu_mbsptime. One engine over wide text; the multibyte form
// widens its text and format and maps the stopping point back to its own bytes.
//
// The conversions are the formatter's, read the way the C library's strptime reads them:
// white space in the format matches any run of white space (or none), numbers may follow
// white space and take at most their field's digits, flags and widths are accepted and
// ignored. Unlike strptime, literal text matches without regard to case. Names (days, months of both lists, eras, am/pm) and alternative digits are found
// through the TIME category's validation caches, without regard to case; since a cache
// answers with the shortest name that is a prefix of the text, every name of the kind is then
// tried for a longer match ("June" is taken whole, not as "Jun" followed by "e").
#include "time/timefmt.h"

#include <climits>
#include <cstddef>

namespace {

using namespace nus;
using namespace nus::tm;

int fail(nu_locale_rec *h, int code) {
    set_error(h, code);
    return -1;
}

constexpr int kMaxDepth = 4;

// What the conversions found, before the date is put together.
struct Found {
    int fraction = 0, second = 0, minute = 0, hour = 0;
    int mday = 1, month = 0, month_name = -1;   // month_name: a name was read (local index)
    int year = 1900;                            // full year of the locale's calendar
    int wday = -1, yday = -1;
    unsigned wday_set = 0;                      // the days a name read may stand for
    int century = -1, yy = -1;                  // %C, %y
    int week = -1;                              // %U or %W
    bool monday_week = false;
    bool have_year = false, have_month = false, have_mday = false, have_hour12 = false;
    int pm = -1;                                // -1 none, 0 am, 1 pm
    int era = -1, era_year = -1;
    bool want_era = false;
    bool gregorian = false;                     // the date fields are Gregorian (%s)
};


// The conversions that read a number: at most `digits` digits within [low, high] (with the O
// modifier alternative digits first when `alt`), or the error; the modifiers each takes.
struct NumberField {
    int digits, low, high, error;
    bool alt, e_ok, o_ok;
};

bool number_field(nu_wchar c, int mod, const TimeFields &t, NumberField *f) {
    const bool era = mod == 'E' && t.era_count > 0;
    const bool local = t.calendar > 1;
    switch (c) {
    case 'C':   // with E and eras an era's name
        return !era && (*f = {2, 0, 99, NU_EPYEAR, true, true, true}, true);
    case 'y':   // with E and eras the year of an era, which may pass 9999 (Buddhist 10542)
        *f = era ? NumberField{6, 0, 999999, NU_EPERA, false, true, true}
                 : NumberField{2, 0, 99, NU_EPYEAR, true, true, true};
        return true;
    case 'Y':   // with E and eras an era's year format; Hebrew years pass 9999
        return !era && (*f = {local ? 5 : 4, 0, 99999, NU_EPYEAR, false, true, false}, true);
    case 'G':
        return *f = {4, 0, 9999, NU_EPYEAR, false, false, false}, true;
    case 'd':
    case 'e':
        return *f = {2, 1, 31, NU_EPMDAY, true, false, true}, true;
    case 'H':
    case 'k':
        return *f = {2, 0, 23, NU_EPHOUR, true, false, true}, true;
    case 'I':
    case 'l':
        return *f = {2, 1, 12, NU_EPHOUR, true, false, true}, true;
    case 'j':
        return *f = {3, 1, local ? 385 : 366, NU_EPMDAY, true, false, true}, true;
    case 'm':
        return *f = {2, 1, local ? 13 : 12, NU_EPMONTH, true, false, true}, true;
    case 'M':
        return *f = {2, 0, 59, NU_EPMINUTE, true, false, true}, true;
    case 'S':
        return *f = {2, 0, 60, NU_EPSECOND, true, false, true}, true;
    case 'u':
        return *f = {1, 1, 7, NU_EPWDAY, true, true, true}, true;
    case 'w':
        return *f = {1, 0, 6, NU_EPWDAY, true, false, true}, true;
    case 'U':
    case 'W':
    case 'V':   // read and not used, as by strptime: a week of the ISO year alone names no date
        return *f = {2, 0, 53, NU_EPMDAY, true, false, true}, true;
    case 'g':
        return *f = {2, 0, 99, NU_EPYEAR, true, false, true}, true;
    default:
        return false;
    }
}

[[gnu::always_inline]] inline void store_number(Found &v, nu_wchar c, int mod,
                                                const TimeFields &t, int n) {
    switch (c) {
    case 'C':
        v.century = n;
        break;
    case 'y':
        if (mod == 'E' && t.era_count > 0) {
            v.era_year = n;
            v.want_era = true;
        } else {
            v.yy = n;
            v.have_year = false;
            v.gregorian = false;
        }
        break;
    case 'Y':
        v.year = n;
        v.have_year = true;
        v.gregorian = false;
        v.century = v.yy = -1;
        v.want_era = false;
        break;
    case 'd':
    case 'e':
        v.mday = n;
        v.have_mday = true;
        v.gregorian = false;
        break;
    case 'H':
    case 'k':
        v.hour = n;
        v.have_hour12 = false;
        break;
    case 'I':
    case 'l':
        v.hour = n % 12;
        v.have_hour12 = true;
        break;
    case 'j':
        v.yday = n - 1;
        break;
    case 'm':
        v.month = n - 1;
        v.month_name = -1;
        v.gregorian = false;
        v.have_month = true;
        break;
    case 'M':
        v.minute = n;
        break;
    case 'S':
        v.second = n;
        break;
    case 'u':
    case 'w':
        v.wday = n % 7;
        v.wday_set = 0;
        break;
    case 'U':
    case 'W':
        v.week = n;
        v.monday_week = c == 'W';
        break;
    default:   // G, V, g: read and left aside
        break;
    }
}

// One conversion as written: its character, modifier and precision (flags and widths are
// read and left aside).
struct Conv {
    nu_wchar c = 0;
    int mod = 0;
    int precision = -1;
};

// Reads the conversion whose "%" is at *fp, leaving *fp at its last character; -1 with the
// error stored when it is malformed.
int scan_conversion(nu_locale_rec *h, const nu_wchar **fp, Conv &cv) {
    const nu_wchar *f = *fp + 1;
    while (*f == '_' || *f == '-' || *f == '0' || *f == '^' || *f == '#') ++f;
    if ((*f >= '1' && *f <= '9') || *f == '.' || *f == '*' || *f == '+' || *f == ' ' ||
        *f == '\'') {
        int justify = 0, width = 0;
        nu_wchar pad = ' ';
        unsigned flags = 0;
        if (_nu_scan_format_modifiers(h, &f, &justify, &pad, &width, &cv.precision, &flags,
                                      nullptr, nullptr) < 0)
            return -1;
        if ((flags & (NU_FMT_PLUS | NU_FMT_SPACE | NU_FMT_GROUP | NU_FMT_LEFT | NU_FMT_ALT |
                      NU_FMT_ZERO | NU_FMT_STAR_SEEN)) != 0)
            return fail(h, NU_EMODIFIER);
    }
    if (*f == 0) return fail(h, NU_EBADFMT);
    if (*f == 'E' || *f == 'O') {
        cv.mod = static_cast<int>(*f++);
        if (*f == 0) return fail(h, NU_EBADFMT);
    }
    *fp = f;
    cv.c = *f;
    return 0;
}

// A format compiled for the parser (kept per handle, time/derived.cpp): white space, literal
// characters and conversions, with the composite conversions expanded in place. The steps
// follow the header in one block, the key after them.
struct ParseStep {
    enum : int32_t { kSpace, kLiteral, kConversion, kNumber };
    int32_t kind;
    int32_t depth;
    Conv conv;            // kLiteral: conv.c is the character
    NumberField field;    // kNumber: a conversion that reads a number
    // For read_bytes: a literal character beyond ASCII as its bytes (0: ASCII, or none).
    int32_t length;
    unsigned char bytes[4];
    // For read_bytes: a number followed by literal text other than an ASCII letter (the next
    // step) takes that character's bytes too (then_length 0: not).
    int32_t then_length;
    unsigned char then_bytes[4];
};
// The era names a compiled format reads from the bytes: the distinct names, chained by their
// first byte.
struct EraName {
    const unsigned char *name;   // the era's multibyte name (the TIME record's, which outlives
                                 // the program)
    int32_t length;              // its bytes, at least 1
    int32_t pick;                // the era it stands for
    int32_t next;                // 1 + the next name with the same first byte, or 0
};
struct EraIndex {
    int32_t by_first[256];   // 1 + the first name that begins with the byte, or 0
    EraName name[1];
};
// The day or month names a compiled format reads from the bytes: each distinct spelling in the
// code set, with what the wide reader makes of it alone; chained by the first byte without
// regard to case.
struct ByteName {
    int32_t at;          // offset of its bytes from the index
    int32_t length;      // bytes, at least 1
    int32_t next;        // 1 + the next name of the chain, or 0
    int32_t month;       // %b: the month name's index
    int32_t wday;        // %a: the day of week, and every day that has the name
    uint32_t wday_set;
};
struct NameIndex {
    int32_t by_first[128];   // 1 + the first name beginning with the ASCII byte, or 0
    ByteName name[1];
};
// A compiled format whose numbers are Gregorian days, months, years and times of day (with
// am/pm or an era), each field read at most one way, read from the bytes by read_plain: one
// operation a step, each number stored in its slot as read.
// (The value's neighbouring words are not neighbouring slots: each is then read as stored,
// never two stores at once.)
enum PlainSlot : uint8_t { kMinute, kSecond, kHour12, kHour, kMonth, kMday, kYear, kEraYear, kPm, kEra, kSlots };
constexpr int32_t kPlainStart[kSlots] = {0, 0, -1, 0, 1, 1, 1900, -1, -1, -1};
struct PlainOp {
    enum : uint8_t {
        kEnd,
        kTwoDigits,    // a number of at most two digits, then `length` bytes of literal text (0 to 3)
        kTwoDigits1,
        kTwoDigits2,
        kTwoDigits3,
        kDigits,       // a number of at most `digits` digits, then `length` bytes
        kExact,        // `length` bytes of literal text (1 to 4)
        kLetter,       // an ASCII letter without regard to case (bytes[0]: in lower case)
        kBlank,        // white space, %n, %t
        kAmPm,
        kEraName,
        kZone,
    };
    uint8_t op;
    uint8_t slot;
    uint8_t digits;
    uint8_t length;
    unsigned char bytes[4];
    int32_t low, high;
};
struct ParseProgram {
    ProgramHeader header;
    int32_t bytes;   // only numbers, white space and literal text: read_bytes may read it
    int32_t ops;     // and read_plain too: offset of its PlainOp list (or 0)
    int32_t eras;    // %EC read from the bytes: offset of the EraIndex (or 0)
    int32_t names[2];   // %a %A, %b %B %h read from the bytes: offset of their NameIndex (or 0)
    int32_t steps;
    ParseStep step[1];
};

class Parser {
public:
    Parser(nu_locale_rec *h, const nu_wchar *text) : h_(h), in_(text) {}

    int run(const nu_wchar *f, int depth) {
        if (depth > kMaxDepth) return fail(h_, NU_EFORMAT);
        for (; *f != 0; ++f) {
            if (is_space(h_, *f)) {
                skip_space();
                continue;
            }
            if (*f != '%') {
                // Literal text matches without regard to case, like the names it surrounds
                // ("%Bta" of a Finnish date in capitals).
                if (*in_ == 0 || !eq_fold(*in_, *f)) return fail(h_, NU_ENOMATCH);
                ++in_;
                continue;
            }
            if (conversion(&f, depth) < 0) return -1;
        }
        return 0;
    }

    int run_program(const ParseProgram &p) {
        for (int32_t i = 0; i < p.steps; ++i) {
            const ParseStep &step = p.step[i];
            if (step.kind == ParseStep::kSpace) {
                skip_space();
            } else if (step.kind == ParseStep::kLiteral) {
                if (*in_ == 0 || !eq_fold(*in_, step.conv.c)) return fail(h_, NU_ENOMATCH);
                ++in_;
            } else if (step.kind == ParseStep::kNumber) {
                if (read_number(step.field, step.conv) < 0) return -1;
            } else if (convert(step.conv, step.depth, false) < 0) {   // no number: compiled so
                return -1;
            }
        }
        return 0;
    }

    const nu_wchar *position() const { return in_; }
    bool no_memory() const { return no_memory_; }
    Found &found() { return v_; }

private:
    void skip_space() {
        while (*in_ != 0 && is_space(h_, *in_)) ++in_;
    }

    bool eq_fold(nu_wchar a, nu_wchar b) const { return tm::eq_fold(h_, a, b); }

    // The longest name of `kind` at the input. The cache of `kind` answers first with the
    // shortest cached name that begins there (its value turned into an index by `index_of`);
    // a longer name of the kind wins over it. Its index, with *length set; -1 if none, -2
    // when the names cannot be had (NU_ENOMEM stored). `same`, when given, receives the
    // names that match as long as the one found.
    template <class IndexOf>
    int longest(int kind, IndexOf index_of, int *length, NameSet *same = nullptr) {
        NameTable *names = known_name_table(h_, kind);
        if (names == nullptr) return -2;
        int best = -1, best_length = 0;
        int len = 0;
        uint32_t value = 0;
        const nu_wc_cache_node *root = h_->time.wc_cache[kind];
        if (root != nullptr && _nu_validate_wc_string(h_, root, in_, &len, &value) == 0 &&
            len > 0) {
            best = index_of(value);
            best_length = len;
        }
        NameSet lengths[1] = {};
        const NameSet candidates = *in_ == 0 ? NameSet{} : name_candidates(h_, *names, *in_);
        for (int w = 0; w < kNameBits / 64; ++w) {
            for (uint64_t bits = candidates.bits[w]; bits != 0; bits &= bits - 1) {
                const int i = w * 64 + __builtin_ctzll(bits);
                if (i >= names->count) break;
                const int n = match_name(h_, names->names[i], in_);
                if (n == 0) continue;
                if (n > best_length) {
                    best = i;
                    best_length = n;
                    lengths[0] = {};
                }
                if (n == best_length) lengths[0].bits[w] |= uint64_t{1} << (i % 64);
            }
        }
        if (names->every) {
            for (int i = 0; i < names->count; ++i) {
                const int n = match_name(h_, names->names[i], in_);
                if (n > best_length) {
                    best = i;
                    best_length = n;
                }
            }
        }
        if (same != nullptr) *same = lengths[0];
        *length = best_length;
        return best_length > 0 ? best : -1;
    }

    // A number of at most `digits` digits after optional white space, within [low, high].
    bool number(int digits, int low, int high, int *out) {
        skip_space();
        const nu_wchar *p = in_;
        long value = 0;
        int n = 0;
        while (n < digits && *p >= '0' && *p <= '9') {
            value = value * 10 + (*p++ - '0');
            ++n;
        }
        if (n == 0 || value < low || value > high) return false;
        in_ = p;
        *out = static_cast<int>(value);
        return true;
    }

    // With the O modifier, alternative digits are tried first (the longest that matches).
    bool alt_number(int mod, int digits, int low, int high, int *out) {
        const TimeFields &t = h_->time;
        if (mod == 'O' && t.alt_digit_count > 0 && t.alt_digits != nullptr) {
            skip_space();
            int length = 0;
            const int i = longest(kCacheDigits, [](uint32_t v) { return static_cast<int>(v); },
                                  &length);
            if (i == -2) {
                no_memory_ = true;
                return false;
            }
            if (i >= 0 && i >= low && i <= high) {
                in_ += length;
                *out = i;
                return true;
            }
        }
        return number(digits, low, high, out);
    }

    int conversion(const nu_wchar **fp, int depth) {
        Conv cv;
        return scan_conversion(h_, fp, cv) < 0 ? -1 : convert(cv, depth);
    }

public:
    // A conversion that reads a number, its field found by number_field.
    int read_number(const NumberField &field, const Conv &cv) {
        if ((cv.mod == 'E' && !field.e_ok) || (cv.mod == 'O' && !field.o_ok))
            return fail(h_, NU_EMODIFIER);
        int n = 0;
        if (!(field.alt ? alt_number(cv.mod, field.digits, field.low, field.high, &n)
                        : number(field.digits, field.low, field.high, &n)))
            return fail(h_, field.error);
        store_number(v_, cv.c, cv.mod, h_->time, n);
        return 0;
    }

    // Reads the text of one conversion read by scan_conversion (`number`: it may be a number).
    int convert(const Conv &cv, int depth, bool number = true) {
        const nu_wchar c = cv.c;
        const int mod = cv.mod, precision = cv.precision;
        if (precision >= 0 && c != 'f') return fail(h_, NU_EMODIFIER);
        const TimeFields &t = h_->time;
        auto allow = [&](bool e, bool o) {
            return (mod == 'E' && !e) || (mod == 'O' && !o) ? (fail(h_, NU_EMODIFIER), false)
                                                            : true;
        };
        if (NumberField field; number && number_field(c, mod, t, &field)) return read_number(field, cv);
        switch (c) {
        case '%':
            if (!allow(false, false)) return -1;
            if (*in_ != '%') return fail(h_, NU_ENOMATCH);
            ++in_;
            return 0;
        case 'n':
        case 't':
            skip_space();
            return 0;
        case 'a':
        case 'A': {
            if (!allow(false, false)) return -1;
            skip_space();
            int length = 0;
            NameSet same{};
            const int i = longest(kCacheDays,
                                  [](uint32_t v) { return static_cast<int>((v >> 8) * 7 + (v & 0xFF)); },
                                  &length, &same);
            if (i == -2) return -1;
            if (i < 0) return fail(h_, NU_EPWDAY);
            // Two days may share a name (Lao abbreviates Friday and Saturday alike): every
            // day of that name stays possible until the date decides.
            v_.wday = i % 7;
            v_.wday_set = 0;
            for (int k = 0; k < 14; ++k)
                if ((same.bits[0] >> k) & 1) v_.wday_set |= 1u << (k % 7);
            in_ += length;
            return 0;
        }
        case 'b':
        case 'B':
        case 'h': {
            if (!allow(false, true)) return -1;
            skip_space();
            int length = 0;
            const int k = longest(
                kCacheMonths,
                [](uint32_t v) { return static_cast<int>((v >> 8) * kMonthSlots + (v & 0xFF)); },
                &length);
            if (k == -2) return -1;
            if (k < 0) return fail(h_, NU_EPMONNAME);
            in_ += length;
            v_.month_name = k % kMonthSlots;
            v_.have_month = true;
            v_.gregorian = false;
            return 0;
        }
        case 'c':
        case 'x':
        case 'X':
        case 'D':
        case 'F':
        case 'R':
        case 'T':
        case 'r': {
            const nu_wchar *sub = composite_format(t, c, mod);
            return sub == nullptr ? fail(h_, NU_EMODIFIER) : run(sub, depth + 1);
        }
        case 'C':
            return era_name();   // with E and eras: the others are numbers
        case 'Y':
            return era_year_format(depth);   // likewise
        case 'f': {
            if (!allow(false, false)) return -1;
            const int p = precision < 0 ? 6 : precision;
            if (p < 1 || p > 9) return fail(h_, NU_EMODIFIER);
            const nu_wchar *start = in_;
            int value = 0, k = 0;
            while (k < p && *in_ >= '0' && *in_ <= '9') {
                if (k < 6) value = value * 10 + (*in_ - '0');
                ++in_;
                ++k;
            }
            if (k == 0) {
                in_ = start;
                return fail(h_, NU_EPFRACTION);
            }
            for (int i = k; i < 6; ++i) value *= 10;
            v_.fraction = value;
            return 0;
        }
        case 'p':
        case 'P': {
            skip_space();
            int length = 0;
            const int i = longest(kCacheAmPm, [](uint32_t v) { return static_cast<int>(v); }, &length);
            if (i == -2) return -1;
            if (i < 0) {
                // A locale without am/pm strings writes nothing for them.
                if (*wide(t.am) == 0 || *wide(t.pm) == 0) return 0;
                return fail(h_, NU_EPHOUR);
            }
            in_ += length;
            v_.pm = i;
            return 0;
        }
        case 's': {
            skip_space();
            const nu_wchar *p = in_;
            const bool negative = *p == '-';
            if (negative) ++p;
            int64_t seconds = 0;
            int digits = 0;
            while (*p >= '0' && *p <= '9' && digits < 13) {
                seconds = seconds * 10 + (*p++ - '0');
                ++digits;
            }
            if (digits == 0) return fail(h_, NU_EPSECOND);
            in_ = p;
            if (negative) seconds = -seconds;
            int64_t days = seconds / 86400, rest = seconds % 86400;
            if (rest < 0) {
                rest += 86400;
                --days;
            }
            nu_time_rec r{};
            const int64_t day = days + 719162;   // counted from 0001-01-01
            if (day < 0 || day > 3652058) return fail(h_, NU_EYEAR);
            set_gregorian_day(r, static_cast<int32_t>(day));
            v_.year = r.year + 1900;
            v_.month = r.month;
            v_.month_name = -1;
            v_.mday = r.mday;
            v_.have_year = v_.have_month = v_.have_mday = true;
            v_.gregorian = true;   // a count of seconds names a Gregorian date
            v_.century = v_.yy = -1;
            v_.hour = static_cast<int>(rest / 3600);
            v_.minute = static_cast<int>(rest / 60 % 60);
            v_.second = static_cast<int>(rest % 60);
            v_.have_hour12 = false;
            return 0;
        }
        case 'z': {
            // An offset of a zone is accepted and left aside: a time value has no zone.
            skip_space();
            if (*in_ == 'Z') {
                ++in_;
                return 0;
            }
            if (*in_ != '+' && *in_ != '-') return 0;
            const nu_wchar *p = in_ + 1;
            int digits = 0;
            while (*p >= '0' && *p <= '9' && digits < 4) {
                ++p;
                ++digits;
                if (digits == 2 && *p == ':') ++p;
            }
            if (digits != 2 && digits != 4) return fail(h_, NU_ENOMATCH);
            in_ = p;
            return 0;
        }
        case 'Z':
            // A zone name: letters, accepted and left aside.
            skip_space();
            while ((*in_ >= 'A' && *in_ <= 'Z') || (*in_ >= 'a' && *in_ <= 'z')) ++in_;
            return 0;
        default:
            return fail(h_, NU_EFORMAT);
        }
    }

private:
    // %EC: the name of an era (that of the era being tried by %EY, if any).
    int era_name() {
        skip_space();
        if (era_fixed_ >= 0) {
            const NameTable *names = known_name_table(h_, kCacheEras);
            if (names == nullptr) return -1;
            const int length = match_name(h_, names->names[era_fixed_], in_);
            if (length == 0) return fail(h_, NU_EPERA);
            in_ += length;
            v_.era = era_fixed_;
            v_.want_era = true;
            return 0;
        }
        int length = 0;
        const int i = longest(kCacheEras, [](uint32_t v) { return static_cast<int>(v); }, &length);
        if (i == -2) return -1;
        if (i < 0) return fail(h_, NU_EPERA);
        in_ += length;
        v_.era = i;
        v_.want_era = true;
        return 0;
    }

    // %EY: the year written by one of the eras' formats, tried in order.
    int era_year_format(int depth) {
        const TimeFields &t = h_->time;
        // An era's format that holds %EY again names no year: refused at once, so that the
        // eras are not tried over and over at every level.
        if (era_fixed_ >= 0) return fail(h_, NU_EPERA);
        const nu_wchar *start = in_;
        const Found saved = v_;
        for (int i = 0; i < t.era_count; ++i) {
            if (*wide(t.eras[i].format) == 0) continue;
            era_fixed_ = i;
            const int r = run(wide(t.eras[i].format), depth + 1);
            era_fixed_ = -1;
            if (r == 0) {
                v_.era = i;
                v_.want_era = true;
                return 0;
            }
            in_ = start;
            v_ = saved;
        }
        return fail(h_, NU_EPERA);
    }

    nu_locale_rec *h_;
    const nu_wchar *in_;
    Found v_;
    int era_fixed_ = -1;
    bool no_memory_ = false;   // alternative digits could not be had: NU_ENOMEM, not a mismatch
};

// The parsed fields put together into a Gregorian value in *out, which comes zeroed.
int assemble(nu_locale_rec *h, Found &v, nu_time_rec *out) {
    int year = v.year;
    if (v.want_era && v.era < 0 && v.era_year >= 0) {
        // An era year without the era's name: the first era that holds the date.
        const EraSpan *spans = known_era_spans(h);
        if (spans == nullptr) return fail(h, NU_ENOMEM);
        const int month = v.month_name >= 0 ? v.month_name : v.month;
        for (int i = 0; i < h->time.era_count && v.era < 0; ++i) {
            const int64_t y = full_year_of_era(spans, i, v.era_year) - 1900;
            if (y > INT_MIN / 2 && y < INT_MAX / 2 &&
                find_era(h, static_cast<int32_t>(y), month, v.mday) == i)
                v.era = i;
        }
        if (v.era < 0) return fail(h, NU_EPERA);
    }
    if (v.want_era && v.era >= 0) {
        const EraSpan *spans = known_era_spans(h);
        if (spans == nullptr) return fail(h, NU_ENOMEM);
        const int64_t y = full_year_of_era(
            spans, v.era, v.era_year >= 0 ? v.era_year : h->time.eras[v.era].offset);
        if (y < INT_MIN / 2 || y > INT_MAX / 2) return fail(h, NU_EYEAR);
        year = static_cast<int>(y);
    } else if (v.yy >= 0) {
        if (v.century >= 0) year = v.century * 100 + v.yy;
        else if (h->time.calendar > 1) year = nu_alt_getcentury(h) * 100 + v.yy;
        else year = v.yy >= 69 ? 1900 + v.yy : 2000 + v.yy;
    } else if (v.century >= 0 && !v.have_year) {
        year = v.century * 100;
    }
    int hour = v.hour;
    if (v.have_hour12 && v.pm == 1) hour += 12;
    // In a local calendar, a text without a date names Gregorian 1900-01-01 as elsewhere, and
    // one without a year that of 1900-01-01 in the local calendar.
    bool local = h->time.calendar > 1 && !v.gregorian;
    const bool any_date = v.have_year || v.yy >= 0 || v.century >= 0 || v.want_era ||
                          v.have_month || v.have_mday || v.yday >= 0 || v.week >= 0;
    if (local && !any_date) local = false;
    if (local && !v.have_year && v.yy < 0 && v.century < 0 && !v.want_era) {
        nu_time_rec start{}, there{};
        start.mday = 1;
        if (nu_cal_gregorian_to_local(h, &start, &there) == 0) year = there.year + 1900;
    }

    nu_time_rec &r = *out;   // the caller's, all zero
    r.fraction = v.fraction;
    r.second = v.second;
    r.minute = v.minute;
    r.hour = hour;
    r.mday = v.mday;
    r.year = year - 1900;
    if (!local) {
        if (year < 1 || year > 9999) return fail(h, NU_EYEAR);
        int month = v.month_name >= 0 ? v.month_name : v.month;
        if (month > 11) return fail(h, NU_EMONTH);
        if (v.yday >= 0 && !v.have_month && !v.have_mday) {
            // The day of the year names the date.
            if (v.yday > (gregorian_leap(year) ? 365 : 364)) return fail(h, NU_EYDAY);
            int d = v.yday;
            for (month = 0; d >= month_length(month, year); ++month) d -= month_length(month, year);
            r.mday = d + 1;
        } else if (v.week >= 0 && v.wday >= 0 && !v.have_month && !v.have_mday) {
            // A week of the year and a day of the week name the date.
            const int first = v.monday_week ? 1 : 0;
            const int jan1 = _nu_gregorian_weekday(1, 0, year);
            int d = (7 - (jan1 - first)) % 7 + (v.week - 1) * 7 + (v.wday - first + 7) % 7;
            if (d < 0 || d > (gregorian_leap(year) ? 365 : 364)) return fail(h, NU_EPMDAY);
            for (month = 0; d >= month_length(month, year); ++month) d -= month_length(month, year);
            r.mday = d + 1;
        }
        if (r.mday > month_length(month, year)) return fail(h, NU_EMDAY);
        r.month = r.month_name = month;
    } else {
        r.month = v.month_name >= 0 ? -1 : v.month;
        r.month_name = v.month_name;
        const bool by_yday = v.yday >= 0 && !v.have_month && !v.have_mday;
        if (by_yday) {   // the day of the year counts from the first day of the local year
            r.month = r.month_name = 0;
            r.mday = 1;
        }
        nu_time_rec g{};
        if (nu_cal_local_to_gregorian(h, &r, &g) != 0) return fail(h, NU_EYEAR);
        if (by_yday) {
            const int64_t day = epoch_days(g.year + 1900, g.month, g.mday) + 719162 + v.yday;
            if (day < 0 || day > 3652058) return fail(h, NU_EYEAR);
            set_gregorian_day(g, static_cast<int32_t>(day));
            nu_time_rec check{};
            if (nu_cal_gregorian_to_local(h, &g, &check) != 0 || check.year != r.year)
                return fail(h, NU_EYDAY);
            r = check;   // the local date that day of the year names, compared below
        }
        // A day the month does not have comes back as another date.
        nu_time_rec back{};
        if (nu_cal_gregorian_to_local(h, &g, &back) != 0 || back.mday != r.mday ||
            back.year != r.year)
            return fail(h, NU_EMDAY);
        if (g.year < 1 - 1900 || g.year > 9999 - 1900) return fail(h, NU_EYEAR);
        *out = g;
    }
    const DayFacts facts = gregorian_day_facts(out->year + 1900, out->month, out->mday);
    out->yday = facts.yday;
    out->wday = facts.wday;
    out->month_name = out->month;
    // A day of week that contradicts the date; without a day (of month or year) it names none.
    if (v.wday >= 0 && (v.have_mday || v.yday >= 0) && v.wday != out->wday &&
        (v.wday_set & (1u << out->wday)) == 0)
        return fail(h, NU_EPWDAY);
    if (v.yday >= 0 && !local && v.yday != out->yday) return fail(h, NU_EYDAY);
    return 0;
}

// The am and pm strings can be read as bytes: both ASCII, neither empty nor the beginning of
// the other when case is ignored (so that at most one matches).
bool ascii_am_pm(const TimeFields &t) {
    const char *a = t.am.mb, *b = t.pm.mb;
    if (a == nullptr || b == nullptr || *a == 0 || *b == 0) return false;
    for (const char *s : {a, b})
        for (; *s != 0; ++s)
            if (static_cast<unsigned char>(*s) >= 0x80) return false;
    auto fold = [](char x) { return x >= 'A' && x <= 'Z' ? static_cast<char>(x | 0x20) : x; };
    for (; *a != 0 && *b != 0; ++a, ++b)
        if (fold(*a) != fold(*b)) return true;
    return false;
}

// Appends entry `number` (counted from 1) to the end of the chain that *head begins, whose
// links are the entries' `next` (0 ends it).
template <class Entry>
void append_to_chain(int32_t *head, Entry *entries, int32_t number) {
    while (*head != 0) head = &entries[*head - 1].next;
    *head = number;
}

// Compiles a format for the parser; null when it is better interpreted (malformed or long: the
// interpreter then reports what it meets where it meets it).
class Compiler {
public:
    explicit Compiler(nu_locale_rec *h) : h_(h) {}

    ParseProgram *compile(const nu_wchar *format, const void *key, size_t key_bytes, bool wide) {
        if (!walk(format, 0)) return nullptr;
        const size_t head = offsetof(ParseProgram, step) + sizeof(ParseStep) * (steps_ > 0 ? steps_ : 1);
        bool era_names = false;
        for (int i = 0; i < steps_; ++i)
            era_names |= step_[i].kind == ParseStep::kConversion && step_[i].conv.c == 'C' &&
                         step_[i].conv.mod == 'E';
        const size_t era_count = era_names ? static_cast<size_t>(h_->time.era_count) : 0;
        const size_t picks_at = (head + key_bytes + 7) & ~size_t{7};
        const size_t index_bytes = era_count > 0 ? offsetof(EraIndex, name) + era_count * sizeof(EraName) : 0;
        // The names of days and months the steps read, spelled in the code set.
        size_t names_at[2] = {0, 0}, end = picks_at + index_bytes;
        for (int kind = 0; kind < 2; ++kind) {
            bool wanted = false;
            for (int i = 0; i < steps_; ++i)
                wanted |= step_[i].kind == ParseStep::kConversion && step_[i].conv.mod == 0 &&
                          names_kind(step_[i].conv.c) == kind;
            if (!wanted || !build_names(kind == 0 ? kCacheDays : kCacheMonths, spellings_[kind]))
                continue;
            names_at[kind] = (end + 7) & ~size_t{7};
            end = names_at[kind] + spellings_[kind].bytes();
        }
        // Room for the plain operations where the steps may turn out plain.
        bool plain = h_->time.calendar <= 1;
        for (int i = 0; i < steps_; ++i)
            plain &= !(step_[i].kind == ParseStep::kConversion && names_kind(step_[i].conv.c) >= 0);
        const size_t ops_at = (end + 7) & ~size_t{7};
        if (plain) end = ops_at + sizeof(PlainOp) * static_cast<size_t>(steps_ + 1);
        auto *block = alloc_array<unsigned char>(end);
        if (block == nullptr) return nullptr;
        auto *p = reinterpret_cast<ParseProgram *>(block);
        p->header.key = block + head;
        p->header.key_bytes = static_cast<uint32_t>(key_bytes);
        p->header.wide = wide ? 1 : 0;
        std::memcpy(block + head, key, key_bytes);
        p->steps = steps_;
        p->bytes = (h_->single_byte || (h_->ascii_direct && term_length(h_) == 1)) &&
                   h_->companion_flag[cat_index(NU_CTYPE)] == 0;
        p->ops = 0;
        p->eras = 0;
        if (era_count > 0 && era_index(*reinterpret_cast<EraIndex *>(block + picks_at)))
            p->eras = static_cast<int32_t>(picks_at);
        for (int kind = 0; kind < 2; ++kind) {
            p->names[kind] = static_cast<int32_t>(names_at[kind]);
            if (names_at[kind] != 0) spellings_[kind].write(block + names_at[kind]);
        }
        const bool ampm = ascii_am_pm(h_->time);
        bool hour24 = false, hour12 = false, year = false, era = false;
        for (int i = 0; i < steps_; ++i) {
            p->step[i] = step_[i];
            const ParseStep &step = step_[i];
            const nu_wchar c = step.conv.c;
            if (step.kind == ParseStep::kNumber) {
                if (step.conv.mod != 0 && !(step.conv.mod == 'E' && step.field.e_ok)) p->bytes = 0;
                // The era's year counts as plain where the era's name is read too.
                const bool era_year = c == 'y' && step.conv.mod == 'E' && era_names && p->eras != 0;
                if (!era_year && (step.conv.mod != 0 ||
                                  !(c == 'd' || c == 'e' || c == 'H' || c == 'k' || c == 'I' ||
                                    c == 'l' || c == 'm' || c == 'M' || c == 'S' || c == 'Y')))
                    plain = false;
                hour24 |= step.conv.mod == 0 && (c == 'H' || c == 'k');
                hour12 |= step.conv.mod == 0 && (c == 'I' || c == 'l');
                year |= step.conv.mod == 0 && c == 'Y';
                era |= era_year;
            } else if (step.kind == ParseStep::kConversion) {
                const bool am_pm = (c == 'p' || c == 'P') && step.conv.mod == 0 && ampm;
                const bool era_name = c == 'C' && step.conv.mod == 'E' && p->eras != 0;
                const int kind = names_kind(c);
                const bool name = kind >= 0 && step.conv.mod == 0 && p->names[kind] != 0;
                const bool zone = c == 'Z' && step.conv.mod == 0;
                if (!am_pm && !era_name && !name && !zone &&
                    (step.conv.mod != 0 || (c != 'n' && c != 't')))
                    p->bytes = 0;
                era |= era_name;
            }
            if (step.kind == ParseStep::kNumber && i + 1 < steps_ &&
                step_[i + 1].kind == ParseStep::kLiteral) {
                const ParseStep &next = step_[i + 1];
                const nu_wchar nc = next.conv.c;
                ParseStep &fused = p->step[i];
                if (next.length > 0) {
                    fused.then_length = next.length;
                    std::memcpy(fused.then_bytes, next.bytes, sizeof next.bytes);
                } else if (nc > ' ' && nc < 0x7F && !((nc | 0x20) >= 'a' && (nc | 0x20) <= 'z')) {
                    fused.then_length = 1;
                    fused.then_bytes[0] = static_cast<unsigned char>(nc);
                }
            }
        }
        // A field read two ways is left to read_bytes, where the later one wins.
        if (p->bytes != 0 && plain && !(hour24 && hour12) && !(year && era)) {
            plain_ops(*p, reinterpret_cast<PlainOp *>(block + ops_at));
            p->ops = static_cast<int32_t>(ops_at);
        }
        return p;
    }

private:
    // The steps of a plain program as read_plain reads them.
    static void plain_ops(const ParseProgram &p, PlainOp *op) {
        for (int i = 0; i < p.steps; ++i, ++op) {
            const ParseStep &step = p.step[i];
            const nu_wchar c = step.conv.c;
            *op = PlainOp{};
            if (step.kind == ParseStep::kNumber) {
                op->slot = c == 'S' ? kSecond : c == 'M' ? kMinute : c == 'H' || c == 'k' ? kHour
                         : c == 'I' || c == 'l' ? kHour12 : c == 'd' || c == 'e' ? kMday
                         : c == 'm' ? kMonth : c == 'Y' ? kYear : kEraYear;
                op->digits = static_cast<uint8_t>(step.field.digits);
                op->low = step.field.low;
                op->high = step.field.high;
                op->length = static_cast<uint8_t>(step.then_length);
                std::memcpy(op->bytes, step.then_bytes, sizeof op->bytes);
                op->op = step.field.digits == 2 && step.then_length <= 3
                             ? static_cast<uint8_t>(PlainOp::kTwoDigits + step.then_length)
                             : static_cast<uint8_t>(PlainOp::kDigits);
                if (step.then_length != 0) ++i;   // the literal text it takes
            } else if (step.kind == ParseStep::kLiteral) {
                op->op = PlainOp::kExact;
                op->length = static_cast<uint8_t>(step.length != 0 ? step.length : 1);
                std::memcpy(op->bytes, step.bytes, sizeof op->bytes);
                if (step.length == 0) {
                    op->bytes[0] = static_cast<unsigned char>(ascii_lower(c));
                    if (c - 'a' < 26u || c - 'A' < 26u) op->op = PlainOp::kLetter;
                }
            } else if (step.kind == ParseStep::kConversion && (c | 0x20) == 'p') {
                op->op = PlainOp::kAmPm;
            } else if (step.kind == ParseStep::kConversion && c == 'C') {
                op->op = PlainOp::kEraName;
            } else if (step.kind == ParseStep::kConversion && c == 'Z') {
                op->op = PlainOp::kZone;
            } else {
                op->op = PlainOp::kBlank;
            }
        }
        *op = PlainOp{};
    }

    // Which names %a %A (0) or %b %B %h (1) read; -1 for other conversions.
    static int names_kind(nu_wchar c) {
        return c == 'a' || c == 'A' ? 0 : c == 'b' || c == 'B' || c == 'h' ? 1 : -1;
    }

    // The spellings of a kind of names as the bytes reader finds them, made on the stack.
    struct Spellings {
        static constexpr int kMax = 4 * kMonthSlots;
        int32_t by_first[128];
        ByteName name[kMax];
        int32_t count;
        size_t used;
        unsigned char pool[kMax * 32];
        size_t bytes() const { return offsetof(NameIndex, name) + count * sizeof(ByteName) + used; }
        void write(unsigned char *to) const {
            auto &index = *reinterpret_cast<NameIndex *>(to);
            std::memcpy(index.by_first, by_first, sizeof by_first);
            const size_t pool_at = offsetof(NameIndex, name) + count * sizeof(ByteName);
            for (int i = 0; i < count; ++i) {
                index.name[i] = name[i];
                index.name[i].at += static_cast<int32_t>(pool_at);
            }
            std::memcpy(to + pool_at, pool, used);
        }
    };

    // Day or month names can be read from the bytes when each begins with an ASCII character,
    // the code set cases ASCII as ASCII does and no character of a name beyond ASCII has an
    // ASCII case: a name then matches the bytes of the text exactly but for the case of ASCII
    // letters wherever it matches the characters, unless the text has a character beyond
    // ASCII that may fold to the name's (the reader then leaves the text to the wide reader).
    // What each spelling stands for is what the wide reader makes of it alone: the longest
    // name wins there as here.
    bool build_names(int kind, Spellings &out) {
        NameTable *table = known_name_table(h_, kind);
        if (table == nullptr || table->every) return false;
        for (nu_wchar c = 1; c < 0x80; ++c)
            if (to_lower(h_, c) != ascii_lower(c) || to_upper(h_, c) != ascii_upper(c)) return false;
        static constexpr nu_wchar kDays[] = {'%', 'a', 0}, kMonths[] = {'%', 'b', 0};
        std::fill(std::begin(out.by_first), std::end(out.by_first), 0);
        out.count = 0;
        out.used = 0;
        for (int k = 0; k < table->count; ++k) {
            const Name &n = table->names[k];
            if (n.length == 0) continue;
            if (n.text[0] >= 0x80) return false;
            unsigned char bytes[sizeof out.pool / Spellings::kMax];
            size_t length = 0;
            for (int i = 0; i < n.length; ++i) {
                // No character beyond ASCII has an ASCII case.
                if (n.text[i] >= 0x80 && (n.lower[i] < 0x80 || n.upper[i] < 0x80)) return false;
                if (length + 4 > sizeof bytes) return false;
                const int b = encode(h_, bytes + length, n.text[i]);
                if (b <= 0) return false;
                length += static_cast<size_t>(b);
            }
            bool met = false;
            for (int i = 0; i < out.count && !met; ++i)
                met = static_cast<size_t>(out.name[i].length) == length &&
                      std::memcmp(out.pool + out.name[i].at, bytes, length) == 0;
            if (met) continue;
            Parser reader(h_, n.text);
            if (reader.run(kind == kCacheDays ? kDays : kMonths, 0) != 0 ||
                reader.position() != n.text + n.length || out.count == Spellings::kMax)
                return false;
            const Found &f = reader.found();
            out.name[out.count] = ByteName{static_cast<int32_t>(out.used), static_cast<int32_t>(length),
                                           0, f.month_name, f.wday, f.wday_set};
            std::memcpy(out.pool + out.used, bytes, length);
            out.used += length;
            // Appended to the chain of its first byte, which both cases of a letter begin.
            const unsigned first = bytes[0];
            append_to_chain(&out.by_first[first], out.name, ++out.count);
            out.by_first[ascii_lower(first)] = out.by_first[ascii_upper(first)] = out.by_first[first];
        }
        return out.count > 0;
    }

    // Era names can be read from the bytes when none begins another (without regard to
    // case) unless the two are the same, and none begins with white space: an exact match
    // is then the only name the text can hold. Names written alike stand for the era the
    // wide reader picks for them; a name met before is found there first.
    bool era_index(EraIndex &index) {
        const TimeFields &t = h_->time;
        static constexpr nu_wchar kEraName[] = {'%', 'E', 'C', 0};
        std::fill(std::begin(index.by_first), std::end(index.by_first), 0);
        int32_t names = 0;
        for (int i = 0; i < t.era_count; ++i) {
            const nu_wchar *a = wide(t.eras[i].name);
            const char *bytes = t.eras[i].name.mb;
            if (a == nullptr || bytes == nullptr || *a == 0 || *bytes == 0 || is_space(h_, *a))
                return false;
            for (int j = i + 1; j < t.era_count; ++j) {
                const nu_wchar *b = wide(t.eras[j].name);
                if (b == nullptr) return false;
                int k = 0;
                while (a[k] != 0 && a[k] == b[k]) ++k;
                if (a[k] == 0 && b[k] == 0) continue;   // the same name
                while (a[k] != 0 && b[k] != 0 && eq_fold(h_, a[k], b[k])) ++k;
                if (a[k] == 0 || b[k] == 0) return false;   // one begins the other
            }
            bool met = false;
            for (int j = 0; j < i && !met; ++j) met = std::strcmp(t.eras[j].name.mb, bytes) == 0;
            if (met) continue;
            Parser reader(h_, a);
            if (reader.run(kEraName, 0) != 0 || *reader.position() != 0) return false;
            const size_t length = std::strlen(bytes);
            if (length > INT32_MAX) return false;
            // Chained at the end of the names with its first byte, in the order of the table.
            EraName &e = index.name[names];
            e = EraName{reinterpret_cast<const unsigned char *>(bytes), static_cast<int32_t>(length),
                        reader.found().era, 0};
            append_to_chain(&index.by_first[static_cast<unsigned char>(bytes[0])], index.name, ++names);
        }
        return true;
    }

    bool walk(const nu_wchar *f, int depth) {
        if (depth > kMaxDepth) return false;
        for (; *f != 0; ++f) {
            ParseStep step{ParseStep::kLiteral, depth, Conv{*f, 0, -1}, NumberField{}, 0, {}, 0, {}};
            if (is_space(h_, *f)) {
                // A run of white space skips what one blank skips.
                if (steps_ > 0 && step_[steps_ - 1].kind == ParseStep::kSpace) continue;
                step.kind = ParseStep::kSpace;
            } else if (*f == '%') {
                if (scan_conversion(h_, &f, step.conv) < 0) return false;
                const nu_wchar *sub = expansion(step.conv);
                if (sub != nullptr && depth + 1 <= kMaxDepth) {
                    if (!walk(sub, depth + 1)) return false;
                    continue;
                }
                step.kind = step.conv.precision < 0 && number_field(step.conv.c, step.conv.mod, h_->time, &step.field)
                                ? ParseStep::kNumber : ParseStep::kConversion;
            }
            if (step.kind == ParseStep::kLiteral && step.conv.c >= 0x80) {
                const nu_wchar c = step.conv.c;
                step.length = h_->single_byte ? 1 : encoded_length(c, 1);
                for (int j = 0; j < step.length; ++j)
                    step.bytes[j] = static_cast<unsigned char>(c >> (8 * (step.length - 1 - j)));
            }
            if (steps_ == kSteps) return false;
            step_[steps_++] = step;
        }
        return true;
    }

    // The format a composite conversion reads in place, when the conversion takes its
    // modifier; null for any other conversion.
    const nu_wchar *expansion(const Conv &cv) const {
        return cv.precision >= 0 ? nullptr : composite_format(h_->time, cv.c, cv.mod);
    }

    static constexpr int kSteps = 128;
    nu_locale_rec *h_;
    ParseStep step_[kSteps];
    int steps_ = 0;
    Spellings spellings_[2];
};

// The compiled form of a format given as `key` (its bytes, or its wide characters), made on
// first use from its wide form; null when the format is interpreted instead.
const ParseProgram *program_for(nu_locale_rec *h, const void *key, size_t key_bytes, bool wide,
                                const nu_wchar *wide_format) {
    if (key_bytes > kMaxProgramKey) return nullptr;
    if (const ProgramHeader *p = find_program(h, kParseProgram, key, key_bytes, wide))
        return reinterpret_cast<const ParseProgram *>(p);
    if (wide_format == nullptr) return nullptr;
    const int32_t error = h->error;
    ParseProgram *p = Compiler(h).compile(wide_format, key, key_bytes, wide);
    if (p == nullptr || keep_program(h, kParseProgram, &p->header) == nullptr) {
        h->error = error;   // the interpreter reports what compiling met
        return nullptr;
    }
    // A program that reads era names from the bytes finds the spans made: they last as long
    // as it does.
    if (p->eras != 0 && era_spans(h) == nullptr) p->bytes = 0;
    h->error = error;
    return p;
}

// Reads a compiled format of numbers, white space and literal text straight from the bytes
// of a code set whose ASCII bytes are themselves; where the bytes are the characters, what
// it reads is what the wide reader reads. It gives up (null) at whatever it cannot settle
// alone: a character beyond ASCII where white space may stand or against ASCII literal
// text, any mismatch or number out of range; the wide reader then reads the text from its
// start and reports what it finds.
// The bytes of a literal character beyond ASCII at `in`; a mismatch stops the comparison, so
// nothing past the text's terminator is read.
inline bool same_bytes(const unsigned char *in, const unsigned char *b, int32_t length) {
    return in[0] == b[0] && (length < 2 || (in[1] == b[1] && (length < 3 || (in[2] == b[2] &&
                                                              (length < 4 || in[3] == b[3])))));
}

// The length of an ASCII name at `in` without regard to case, 0 when it is not there, -1 when
// a byte beyond ASCII comes first (which may fold to the name's character).
int ascii_name(const unsigned char *in, const char *name) {
    int i = 0;
    for (; name[i] != 0; ++i) {
        const unsigned a = in[i], b = static_cast<unsigned char>(name[i]);
        if (a == b) continue;
        if (a >= 0x80) return -1;
        if (!ascii_case_pair(a, b)) return 0;
    }
    return i;
}

// The era whose name's bytes stand at *in (which then passes them); -1 when none does.
inline int exact_era(const EraIndex &index, const unsigned char *&in) {
    for (int32_t c = index.by_first[in[0]]; c != 0;) {
        const EraName &e = index.name[c - 1];
        // A mismatch stops the comparison, so nothing past the text's terminator is read.
        const size_t length = static_cast<size_t>(e.length);
        size_t k = 1;
        for (; k < length; ++k)
            if (e.name[k] != in[k]) break;
        if (k == length) {
            in += length;
            return e.pick;
        }
        c = e.next;
    }
    return -1;
}

// Whether the character at `in` (a byte beyond ASCII first) may match the ASCII character b
// without regard to case, as the wide reader compares them; an undecodable one may.
inline bool may_fold_to(nu_locale_rec *h, const unsigned char *in, unsigned b) {
    nu_wchar wc = in[0];
    if (!h->single_byte) {
        const Walk w = walk(h->ctype.class_table, in, 4);
        if (w.status != 0) return true;
        wc = w.wc;
    }
    return to_lower(h, wc) == ascii_lower(b) || to_upper(h, wc) == ascii_upper(b);
}

// The longest day or month name at `in` (an ASCII byte); null when none is there, or when the
// wide reader must decide (a character beyond ASCII differs from a name's where cases may
// still match, or two names as long stand for different things).
inline const ByteName *byte_name(nu_locale_rec *h, const NameIndex &index,
                                 const unsigned char *in) {
    const ByteName *best = nullptr;
    const auto *base = reinterpret_cast<const unsigned char *>(&index);
    for (int32_t c = index.by_first[in[0]]; c != 0;) {
        const ByteName &e = index.name[c - 1];
        c = e.next;
        const unsigned char *name = base + e.at;
        // The first bytes agree but for case (the chain); a byte of the text is read only
        // once the one before it is known to be no terminator. The bytes before a mismatch
        // are whole characters of both.
        const size_t length = static_cast<size_t>(e.length);
        size_t k = 1;
        for (; k < length; ++k) {
            const unsigned a = in[k], b = name[k];
            if (a == b) continue;
            if (a < 0x80 && b < 0x80) {
                if (!ascii_case_pair(a, b)) break;
                continue;
            }
            // An ASCII character of the text never matches one beyond ASCII of a name (the
            // names were chosen so); one beyond ASCII of the text may match an ASCII one.
            if (a < 0x80 || (b < 0x80 && !may_fold_to(h, in + k, b))) break;
            return nullptr;
        }
        if (k < length) continue;
        if (best == nullptr || e.length > best->length) {
            best = &e;
        } else if (e.length == best->length &&
                   (e.month != best->month || e.wday != best->wday || e.wday_set != best->wday_set)) {
            return nullptr;
        }
    }
    return best;
}

// Past the ASCII white space at in.
inline void skip_blanks(const unsigned char *&in) {
    while (*in <= ' ' && (*in == ' ' || (*in >= '\t' && *in <= '\r'))) ++in;
}
// And whether what follows is ASCII (a character beyond it may be white space the wide reader
// skips).
inline bool skip_to_ascii(const unsigned char *&in) {
    skip_blanks(in);
    return *in < 0x80;
}

// The number of at most `digits` digits at in, white space before it passed; -1 when none is
// there.
[[gnu::always_inline]] inline int read_number(const unsigned char *&in, int digits) {
    unsigned d = *in - static_cast<unsigned>('0');
    if (d >= 10) {
        if (!skip_to_ascii(in)) return -1;
        d = *in - static_cast<unsigned>('0');
        if (d >= 10) return -1;
    }
    int value = static_cast<int>(d);
    ++in;
    if (digits == 2) {   // most fields: the second digit without a loop
        if ((d = *in - static_cast<unsigned>('0')) < 10) {
            value = value * 10 + static_cast<int>(d);
            ++in;
        }
    } else {
        for (int n = 1; n < digits && (d = *in - static_cast<unsigned>('0')) < 10; ++n, ++in)
            value = value * 10 + static_cast<int>(d);
    }
    return value;
}

// The am (0) or pm (1) string at in, white space before it passed; -1 when neither is there
// or the wide reader must decide.
inline int read_am_pm(const TimeFields &t, const unsigned char *&in) {
    if (!skip_to_ascii(in)) return -1;
    const int am = ascii_name(in, t.am.mb), pm = ascii_name(in, t.pm.mb);
    if (am < 0 || pm < 0 || am + pm == 0) return -1;
    in += am + pm;
    return am > 0 ? 0 : 1;
}

// The era whose name a compiled format reads at in, white space before it passed; -1 when
// none is there.
inline int read_era(const ParseProgram &p, const unsigned char *&in) {
    skip_blanks(in);
    return exact_era(*reinterpret_cast<const EraIndex *>(reinterpret_cast<const unsigned char *>(&p) + p.eras), in);
}

// Past a zone's name at in (letters, accepted and left aside); false when the wide reader
// must decide.
inline bool skip_zone(const unsigned char *&in) {
    if (!skip_to_ascii(in)) return false;
    while ((*in | 0x20u) - 'a' < 26u) ++in;
    return true;
}

const char *read_bytes(nu_locale_rec *h, const ParseProgram &p, const char *text, Found &v) {
    const auto *in = reinterpret_cast<const unsigned char *>(text);
    const TimeFields &t = h->time;
    for (const ParseStep *step = p.step, *last = p.step + p.steps; step < last; ++step) {
        if (step->kind == ParseStep::kNumber) {
            const NumberField &field = step->field;
            const int value = read_number(in, field.digits);
            if (value < field.low || value > field.high) return nullptr;   // none: -1
            store_number(v, step->conv.c, step->conv.mod, t, value);
            if (step->then_length != 0) {   // the literal text of the next step
                if (!same_bytes(in, step->then_bytes, step->then_length)) return nullptr;
                in += step->then_length;
                ++step;
            }
        } else if (step->kind == ParseStep::kLiteral) {
            if (step->length == 0) {
                const unsigned b = *in, c = step->conv.c;
                if (b != c && !ascii_case_pair(b, c)) return nullptr;
                ++in;
            } else {
                if (!same_bytes(in, step->bytes, step->length)) return nullptr;
                in += step->length;
            }
        } else if (step->kind == ParseStep::kConversion && (step->conv.c | 0x20) == 'p') {
            if ((v.pm = read_am_pm(t, in)) < 0) return nullptr;
        } else if (step->kind == ParseStep::kConversion && step->conv.c == 'C') {   // %EC
            if ((v.era = read_era(p, in)) < 0) return nullptr;
            v.want_era = true;
        } else if (step->kind == ParseStep::kConversion && step->conv.c == 'Z') {
            if (!skip_zone(in)) return nullptr;
        } else if (step->kind == ParseStep::kConversion && step->conv.c != 'n' &&
                   step->conv.c != 't') {   // a day's or month's name
            if (!skip_to_ascii(in)) return nullptr;
            const bool day = step->conv.c == 'a' || step->conv.c == 'A';
            const ByteName *e = byte_name(h, *reinterpret_cast<const NameIndex *>(
                                              reinterpret_cast<const unsigned char *>(&p) + p.names[day ? 0 : 1]),
                                          in);
            if (e == nullptr) return nullptr;
            in += e->length;
            if (day) {
                v.wday = e->wday;
                v.wday_set = e->wday_set;
            } else {
                v.month_name = e->month;
                v.have_month = true;
                v.gregorian = false;
            }
        } else if (!skip_to_ascii(in)) {   // white space, %n, %t
            return nullptr;
        }
    }
    return reinterpret_cast<const char *>(in);
}

// Reads a plain program's text from the bytes as read_bytes does, each number into its slot
// of f; null where the wide reader must decide.
const char *read_plain(nu_locale_rec *h, const ParseProgram &p, const char *text, int32_t *f) {
    const auto *in = reinterpret_cast<const unsigned char *>(text);
    auto two_digits = [&](const PlainOp &op) {
        const int value = read_number(in, 2);
        if (value < op.low || value > op.high) return false;   // none: -1
        f[op.slot] = value;
        return true;
    };
    // A mismatch stops the comparison, so nothing past the text's terminator is read.
    auto exact = [&](const PlainOp &op) {
        for (int k = 0; k < op.length; ++k)
            if (in[k] != op.bytes[k]) return false;
        in += op.length;
        return true;
    };
    const PlainOp *op = reinterpret_cast<const PlainOp *>(reinterpret_cast<const unsigned char *>(&p) + p.ops);
    for (;; ++op) {
        switch (op->op) {
        case PlainOp::kEnd:
            return reinterpret_cast<const char *>(in);
        case PlainOp::kTwoDigits:
            if (!two_digits(*op)) return nullptr;
            break;
        case PlainOp::kTwoDigits1:
            if (!two_digits(*op) || in[0] != op->bytes[0]) return nullptr;
            in += 1;
            break;
        case PlainOp::kTwoDigits2:
            if (!two_digits(*op) || in[0] != op->bytes[0] || in[1] != op->bytes[1]) return nullptr;
            in += 2;
            break;
        case PlainOp::kTwoDigits3:
            if (!two_digits(*op) || in[0] != op->bytes[0] || in[1] != op->bytes[1] ||
                in[2] != op->bytes[2])
                return nullptr;
            in += 3;
            break;
        case PlainOp::kDigits: {
            const int value = read_number(in, op->digits);
            if (value < op->low || value > op->high || !exact(*op)) return nullptr;
            f[op->slot] = value;
            break;
        }
        case PlainOp::kExact:
            if (!exact(*op)) return nullptr;
            break;
        case PlainOp::kLetter:
            if ((*in | 0x20u) != op->bytes[0]) return nullptr;
            ++in;
            break;
        case PlainOp::kBlank:
            if (!skip_to_ascii(in)) return nullptr;
            break;
        case PlainOp::kAmPm:
            if ((f[kPm] = read_am_pm(h->time, in)) < 0) return nullptr;
            break;
        case PlainOp::kEraName:
            if ((f[kEra] = read_era(p, in)) < 0) return nullptr;
            break;
        case PlainOp::kZone:
            if (!skip_zone(in)) return nullptr;
            break;
        default:
            __builtin_unreachable();
        }
    }
}

// What assemble makes of the slots read_plain filled, straight into the caller's value: false
// with the error stored when the date does not exist.
bool deliver_plain(nu_locale_rec *h, const int32_t *f, nu_time_rec *t) {
    int64_t full_year = f[kYear];
    if (f[kEra] >= 0) {   // the era's name was read: the year counts in it
        // The program that read it made the spans, which last as long as it does.
        const EraSpan *spans = static_cast<const DerivedHead *>(h->time.era_cache)->spans;
        full_year = full_year_of_era(spans, f[kEra],
                                     f[kEraYear] >= 0 ? f[kEraYear] : h->time.eras[f[kEra]].offset);
    }
    if (full_year < 1 || full_year > 9999) return fail(h, NU_EYEAR), false;
    const int year = static_cast<int>(full_year);
    const int month = f[kMonth] - 1;
    if (f[kMday] > month_length(month, year)) return fail(h, NU_EMDAY), false;
    const DayFacts facts = gregorian_day_facts(year, month, f[kMday]);
    t->fraction = 0;
    t->second = f[kSecond];
    t->minute = f[kMinute];
    t->hour = f[kHour12] < 0 ? f[kHour] : f[kHour12] % 12 + (f[kPm] == 1 ? 12 : 0);
    t->mday = f[kMday];
    t->month = t->month_name = month;
    t->year = year - 1900;
    t->wday = facts.wday;
    t->yday = facts.yday;
    return true;
}

// The parsed value handed to the caller, whose carried words it keeps.
void deliver(nu_time_rec &r, nu_time_rec *t) {
    r.carried[0] = t->carried[0];
    r.carried[1] = t->carried[1];
    r.carried[2] = t->carried[2];
    *t = r;
}

// Parses `text` by the compiled format, or else by the format itself.
const nu_wchar *parse(nu_locale_rec *h, const nu_wchar *text, const ParseProgram *program,
                      const nu_wchar *format, nu_time_rec *t) {
    Parser p(h, text);
    if ((program != nullptr ? p.run_program(*program) : p.run(format, 0)) < 0) {
        if (p.no_memory()) set_error(h, NU_ENOMEM);
        return nullptr;
    }
    nu_time_rec r{};
    if (assemble(h, p.found(), &r) < 0) return nullptr;
    deliver(r, t);
    return p.position();
}

} // namespace

NU_EXPORT nu_wchar *nu_wcsptime(nu_locale_t h, const nu_wchar *text, const nu_wchar *format,
                                nu_time_rec *t) {
    if (nus::no_handle(h) || nus::missing(h, text, format, t)) return nullptr;
    const size_t n = static_cast<size_t>(wlen(format));
    const ParseProgram *program = program_for(h, format, n * sizeof(nu_wchar), true, format);
    return const_cast<nu_wchar *>(parse(h, text, program, format, t));
}

namespace {

// The multibyte parser by the wide reader: the text widened, read by the compiled format (or
// the format compiled now, or interpreted).
[[gnu::noinline]] char *parse_widened(nu_locale_rec *h, const char *text, const char *format,
                                      nu_time_rec *t, const ParseProgram *program, bool keyed) {
    const Widened<128> wide_text(h, text);
    if (wide_text.no_memory()) {
        nus::set_error(h, NU_ENOMEM);
        return nullptr;
    }
    if (wide_text.get() == nullptr) return nullptr;
    const nu_wchar *end = nullptr;
    if (program != nullptr) {
        end = parse(h, wide_text.get(), program, nullptr, t);
    } else {
        const Widened<64> wide_format(h, format);
        if (wide_format.no_memory()) {
            nus::set_error(h, NU_ENOMEM);
            return nullptr;
        }
        if (wide_format.get() == nullptr) return nullptr;
        program = keyed ? program_for(h, format, std::strlen(format), false, wide_format.get()) : nullptr;
        end = parse(h, wide_text.get(), program, wide_format.get(), t);
    }
    if (end == nullptr) return nullptr;
    return const_cast<char *>(text) + wide_text.offset(end - wide_text.get());
}

} // namespace

namespace {

// Whether the text after `end` decodes: the text is read as a whole string of the code set
// (the wide reader widens all of it, and reports what does not).
inline bool rest_decodes(nu_locale_rec *h, const char *end) {
    if (h->single_byte) return true;
    for (const auto *p = reinterpret_cast<const unsigned char *>(end); *p != 0;) {
        const Walk step = walk(h->ctype.class_table, p, 4);
        if (step.status != 0) return false;
        p += step.length;
    }
    return true;
}

// A format compiled to be read from the bytes, the text read so; by the wide reader where
// that cannot decide.
[[gnu::noinline]] char *parse_bytes(nu_locale_rec *h, const char *text, const char *format,
                                    nu_time_rec *t, const ParseProgram *program) {
    if (program->ops != 0) {
        int32_t f[kSlots];
        std::memcpy(f, kPlainStart, sizeof f);
        const char *end = read_plain(h, *program, text, f);
        if (end != nullptr && rest_decodes(h, end))
            return deliver_plain(h, f, t) ? const_cast<char *>(end) : nullptr;
        return parse_widened(h, text, format, t, program, true);
    }
    Found v;
    const char *end = read_bytes(h, *program, text, v);
    if (end != nullptr && !rest_decodes(h, end)) end = nullptr;
    if (end != nullptr) {
        nu_time_rec r{};
        if (assemble(h, v, &r) < 0) return nullptr;
        deliver(r, t);
        return const_cast<char *>(end);
    }
    return parse_widened(h, text, format, t, program, true);
}

// nu_mbsptime but for the common call below.
[[gnu::noinline]] char *parse_multibyte(nu_locale_rec *h, const char *text, const char *format,
                                        nu_time_rec *t) {
    if (nus::no_handle(h) || nus::missing(h, text, format, t)) return nullptr;
    // The format's bytes name its compiled form where a terminator is one byte.
    const bool keyed = term_length(h) == 1;
    const ParseProgram *program =
        keyed ? reinterpret_cast<const ParseProgram *>(find_format_program(h, kParseProgram, format)) : nullptr;
    if (program != nullptr && program->bytes != 0) return parse_bytes(h, text, format, t, program);
    return parse_widened(h, text, format, t, program, keyed);
}

} // namespace

NU_EXPORT char *nu_mbsptime(nu_locale_t h, const char *text, const char *format,
                            nu_time_rec *t) {
    // The common call, the format used last read from the bytes, without a frame of its own
    // (a program kept under a format's bytes was made for a one-byte terminator, and goes
    // with the CTYPE it was made for).
    if (h != nullptr && text != nullptr && format != nullptr && t != nullptr) {
        const auto *program = reinterpret_cast<const ParseProgram *>(last_program(h, kParseProgram, format));
        if (program != nullptr && program->bytes != 0) return parse_bytes(h, text, format, t, program);
    }
    return parse_multibyte(h, text, format, t);
}
