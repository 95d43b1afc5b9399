// Time formatting: nu_wcsftime and nu_mbsftime. One engine, written once over its output: a
// wide buffer, the bytes of the handle's code set (the locale's multibyte strings copied as
// they are, so the multibyte form never goes through a wide buffer), or a count of
// characters for the widths of the composite conversions.
//
// The conversions and their flags, widths and padding are those of the C library's strftime;
// what differs on purpose: a width counts characters, not bytes; "^" and "#" change the case
// of every character, not only of single bytes; a time value carries no time zone, so %z
// writes nothing and %Z the empty string; %f writes the fraction of a second; an unknown
// conversion, a modifier the conversion does not take and a field out of range are errors
// instead of text.
#include "time/timefmt.h"

#include <climits>
#include <cstddef>

namespace {

using namespace nus;
using namespace nus::tm;

enum Case { kAsIs, kUpper, kLower };

int fail(nu_locale_rec *h, int code) {
    set_error(h, code);
    return -1;
}

// ---- outputs ------------------------------------------------------------------------------

// Wide characters into the caller's buffer of `size` characters (the terminator included),
// or only counted.
class WideOut {
public:
    WideOut(nu_locale_rec *h, nu_wchar *out, long size) : h_(h), out_(out), size_(size) {}
    bool put(nu_wchar c) {
        if (!room(1)) return false;
        if (out_ != nullptr) out_[n_] = c;
        ++n_;
        return true;
    }
    bool fill(nu_wchar c, long k) {
        if (!room(k)) return false;
        if (out_ != nullptr)
            for (long i = 0; i < k; ++i) out_[n_ + i] = c;
        n_ += k;
        return true;
    }
    bool ascii(const char *b, long k) {
        if (!room(k)) return false;
        if (out_ != nullptr)
            for (long i = 0; i < k; ++i) out_[n_ + i] = static_cast<unsigned char>(b[i]);
        n_ += k;
        return true;
    }
    bool text(const CatString &s, Case c) {
        const nu_wchar *w = wide(s);
        const long k = wlen(w);
        if (!room(k)) return false;
        if (out_ != nullptr)
            for (long i = 0; i < k; ++i)
                out_[n_ + i] = c == kAsIs ? w[i] : c == kUpper ? to_upper(h_, w[i])
                                                               : to_lower(h_, w[i]);
        n_ += k;
        return true;
    }
    long chars(const CatString &s) const { return wlen(wide(s)); }
    int64_t count() const { return n_; }
    void finish() {
        if (out_ != nullptr) out_[n_] = 0;
    }

private:
    bool room(int64_t k) {
        if (out_ == nullptr || n_ + k + 1 <= size_) return true;
        set_error(h_, NU_E2BIG);
        return false;
    }
    nu_locale_rec *h_;
    nu_wchar *out_;
    long size_;
    int64_t n_ = 0;
};

// Bytes copied without a call: the pieces of a date are short. Two fixed-size moves that
// overlap in the middle cover any length from n to 2n; longer runs go 16 bytes at a time.
inline void copy_bytes(unsigned char *to, const unsigned char *from, long k) {
    for (; k > 16; k -= 16, to += 16, from += 16) std::memcpy(to, from, 16);
    if (k >= 8) {
        std::memcpy(to, from, 8);
        std::memcpy(to + k - 8, from + k - 8, 8);
    } else if (k >= 4) {
        std::memcpy(to, from, 4);
        std::memcpy(to + k - 4, from + k - 4, 4);
    } else if (k >= 2) {
        std::memcpy(to, from, 2);
        std::memcpy(to + k - 2, from + k - 2, 2);
    } else if (k == 1) {
        *to = *from;
    }
}

// Bytes of the handle's code set into the caller's buffer of `size` bytes, the terminator (as
// many zero bytes as the shortest character) included; a character is written whole or not
// at all, and never past the room.
class ByteOut {
public:
    ByteOut(nu_locale_rec *h, char *out, long size) : ByteOut(h, out, size, term_length(h)) {}
    ByteOut(nu_locale_rec *h, char *out, long size, int term)
        : h_(h), out_(reinterpret_cast<unsigned char *>(out)), size_(size), term_(term),
          ascii_(h->single_byte || (h->ascii_direct && term_ == 1)),
          split_(h->companion_flag[cat_index(NU_CTYPE)] == 0) {}
    bool put(nu_wchar c) {
        if (c < 0x80 && ascii_) {
            if (!room(1)) return false;
            if (out_ != nullptr) out_[n_] = static_cast<unsigned char>(c);
            ++n_;
            return true;
        }
        unsigned char b[4];
        int k;
        if (h_->single_byte) {
            if (c > 0xFF) return fail(h_, NU_EILSEQ) == 0;
            b[0] = static_cast<unsigned char>(c);
            k = 1;
        } else if (split_) {
            // Every character here was decoded from the caller's format or the locale's
            // strings (or case-mapped by the locale): its bytes are the character itself.
            k = encoded_length(c, term_);
            if (k == 0) return fail(h_, NU_EILSEQ) == 0;
            for (int i = 0; i < k; ++i) b[i] = static_cast<unsigned char>(c >> (8 * (k - 1 - i)));
        } else {
            k = encode(h_, b, c);
            if (k < 0) return false;
        }
        if (!room(k)) return false;
        if (out_ != nullptr)
            for (int i = 0; i < k; ++i) out_[n_ + i] = b[i];
        n_ += k;
        return true;
    }
    // Padding (a space or a zero): its bytes once, then as many as asked, measured before
    // anything is written, so that a width of millions costs nothing when it cannot fit.
    bool fill(nu_wchar c, long k) {
        if (k <= 0) return true;
        const int64_t before = n_;
        if (!put(c)) return false;
        const int64_t each = n_ - before;
        if (!room(each * (k - 1))) return false;
        if (out_ != nullptr)
            for (long i = 1; i < k; ++i) std::memcpy(out_ + before + i * each, out_ + before, static_cast<size_t>(each));
        n_ += each * (k - 1);
        return true;
    }
    bool text(const CatString &s, Case c) {
        if (c == kAsIs && term_ == 1) {
            const char *m = mb(s);
            const long k = static_cast<long>(std::strlen(m));
            if (!room(k)) return false;
            if (out_ != nullptr) std::memcpy(out_ + n_, m, static_cast<size_t>(k));
            n_ += k;
            return true;
        }
        for (const nu_wchar *w = wide(s); *w != 0; ++w)
            if (!put(c == kAsIs ? *w : c == kUpper ? to_upper(h_, *w) : to_lower(h_, *w)))
                return false;
        return true;
    }
    // ASCII characters (digits, signs).
    bool ascii(const char *b, long k) {
        if (ascii_) return bytes(reinterpret_cast<const unsigned char *>(b), k);
        for (long i = 0; i < k; ++i)
            if (!put(static_cast<unsigned char>(b[i]))) return false;
        return true;
    }
    // Bytes of the code set, as a compiled format holds its literal text.
    bool bytes(const unsigned char *b, long k) {
        if (!room(k)) return false;
        if (out_ != nullptr) copy_bytes(out_ + n_, b, k);
        n_ += k;
        return true;
    }
    long chars(const CatString &s) const { return wlen(wide(s)); }
    int64_t count() const { return n_; }
    void finish() {
        if (out_ != nullptr)
            for (int i = 0; i < term_; ++i) out_[n_ + i] = 0;
    }

private:
    bool room(int64_t k) {
        if (out_ == nullptr || n_ + k + term_ <= size_) return true;
        set_error(h_, NU_E2BIG);
        return false;
    }
    nu_locale_rec *h_;
    unsigned char *out_;
    long size_;
    int64_t n_ = 0;
    int term_;
    bool ascii_;
    bool split_;   // wide characters are their bytes (not code points of the companion)
};

// Characters only: the length of a composite conversion before its width is applied.
class CountOut {
public:
    bool put(nu_wchar) { return ++n_, true; }
    bool fill(nu_wchar, long k) { return n_ += k, true; }
    bool ascii(const char *, long k) { return n_ += k, true; }
    bool text(const CatString &s, Case) { return n_ += wlen(wide(s)), true; }
    long chars(const CatString &s) const { return wlen(wide(s)); }
    int64_t count() const { return n_; }

private:
    int64_t n_ = 0;
};

// ---- the value ------------------------------------------------------------------------------

// The time value being formatted: the caller's Gregorian record, checked field by field when
// a conversion first needs it, and its date in the locale's calendar, converted once.
class Value {
public:
    enum : unsigned { kTime = 1, kDate = 2, kWday = 4, kYday = 8, kFraction = 16 };
    Value(nu_locale_rec *h, const nu_time_rec *g) : h_(h), g_(*g) {
        if (local_calendar()) local_ = g_;   // its time of day until the date is converted
    }

    // Checks (once) the fields behind `mask`; false with the error stored.
    [[gnu::always_inline]] bool need(unsigned mask) {
        const unsigned todo = mask & ~checked_;
        if (todo == 0) return true;
        if (todo == kDate && !local_calendar() && check_date(g_) == 0) {   // the common case
            g_.month_name = g_.month;   // a Gregorian month carries its own name
            checked_ |= kDate;
            return true;
        }
        return check(todo, mask);
    }

private:
    [[gnu::noinline]] bool check(unsigned todo, unsigned mask) {
        int code = 0;
        if ((todo & kFraction) != 0 && (g_.fraction < 0 || g_.fraction > 999999))
            code = NU_EFRACTION;
        if (code == 0 && (todo & kTime) != 0) code = check_time(g_);
        if (code == 0 && (todo & (kDate | kWday | kYday)) != 0 && (checked_ & kDate) == 0) {
            code = check_date(g_);
            if (code == 0) code = to_local();
            if (code == 0) checked_ |= kDate;
        }
        const nu_time_rec &v = local();
        if (code == 0 && (todo & kWday) != 0 && (v.wday < 0 || v.wday > 6)) code = NU_EWDAY;
        // A Hebrew leap year has 385 days.
        if (code == 0 && (todo & kYday) != 0 && (v.yday < 0 || v.yday > (local_calendar() ? 384 : 365)))
            code = NU_EYDAY;
        if (code != 0) return fail(h_, code) == 0;
        checked_ |= mask;
        return true;
    }

public:
    // The era of the local date (checked before), found once: its index, -1 for none, -2 when
    // the era table could not be had (NU_ENOMEM stored).
    int era() {
        if (era_ == kUnknown) era_ = find_era(h_, local().year, local().month, local().mday, &spans_);
        return era_;
    }
    // The era `era` as era() found it, and the local date's year counted in it.
    const EraSpan &era_span(int era) const { return spans_[era]; }
    int64_t era_year(int era) const { return year_in_era(spans_, era, local().year); }
    // (Known to be local or not from the start: a caller may hold the reference before the
    // conversion fills it.)
    const nu_time_rec &local() const { return local_calendar() ? local_ : g_; }
    const nu_time_rec &gregorian() const { return g_; }
    bool local_calendar() const { return h_->time.calendar > 1; }

private:
    int to_local() {
        if (!local_calendar()) {
            g_.month_name = g_.month;   // a Gregorian month carries its own name
            return 0;
        }
        nu_time_rec out{};
        if (nu_cal_gregorian_to_local(h_, &g_, &out) != 0) return NU_EYEAR;
        local_ = out;
        return 0;
    }
    nu_locale_rec *h_;
    nu_time_rec g_;
    nu_time_rec local_;   // the value in a local calendar
    const EraSpan *spans_ = nullptr;
    unsigned checked_ = 0;
    static constexpr int kUnknown = -3;
    int era_ = kUnknown;
};

// A plain number (0 to 99999) of at least `at_least` digits, zeros or spaces in front, written
// to the end of `buf`: where it begins there.
inline constexpr int kPlainDigits = 8;
inline const char *plain_digits(int value, int at_least, bool spaced, char (&buf)[kPlainDigits]) {
    char *const end = buf + kPlainDigits;
    if (at_least == 2 && value >= 0 && value < 100) {
        std::memcpy(end - 2, kDigitPairs + 2 * value, 2);
        if (spaced && value < 10) end[-2] = ' ';
        return end - 2;
    }
    char *b = end;
    unsigned u = static_cast<unsigned>(value);
    do {
        *--b = static_cast<char>('0' + u % 10);
        u /= 10;
    } while (u != 0 && b > buf);
    while (end - b < at_least && b > buf) *--b = spaced ? ' ' : '0';
    return b;
}

// ---- the engine -----------------------------------------------------------------------------

inline constexpr int kMaxDepth = 4;   // composite conversions within composite conversions

constexpr nu_wchar operator""_w(char c) { return static_cast<nu_wchar>(c); }


struct Spec {
    int pad = 0;        // '_', '-', '0' or 0
    int width = -1;
    int precision = -1;
    int modifier = 0;   // 'E', 'O' or 0
    Case casing = kAsIs;
    Case all = kAsIs;
};

// One conversion as written: its character, flags, width, precision and modifier.
struct Conv {
    nu_wchar c = 0;
    Spec s;
    bool upcase = false, change_case = false;
};

// A format compiled for the multibyte formatter (kept per handle, time/derived.cpp): literal
// text as the bytes it writes, composite conversions without width or case change expanded
// in place, every other conversion read once. The steps follow the header in one block, the
// key and the literal bytes after them.
// A conversion that writes a field of the value as a plain number, as it stands (no flag,
// width or modifier): which field, its digits, zeros or spaces in front.
enum Field : int32_t {
    kNotPlain, kMday, kHour, kHour12, kMinute, kSecond, kMonth, kYear2, kYear, kYday,
    kEraName, kEraYear,   // %EC and %Ey: the era's name and year where the date has an era
    kDayName, kDayAbbr, kMonthName, kMonthAbbr, kAmPm,   // %A %a %B %b %p, as the locale has them
    kNothing,   // %Z and %z: a time value carries no time zone
    kLiteral    // not a conversion: literal text
};

struct FormatStep {
    int32_t literal;   // bytes of literal text at `at`, or 0: the conversion
    int32_t at;        // offset of the literal bytes from the block's start
    int32_t depth;
    Field field;       // a plain number, written without reading the conversion again
    int32_t digits;
    bool spaced;
    Conv conv;
};
// A program whose every step is literal text or a plain field of a Gregorian value is also
// compiled for the lean writer: one operation a step, with the names it writes copied into the
// program, each as its bytes and their count.
struct LeanOp {
    enum : uint8_t {
        kEnd,
        kTwo,        // word `word` of the value + `add` in two digits
        kHour12,     // the hour on the 12-hour clock in two digits
        kYear2,      // the year of the century in two digits
        kNumber,     // word + add in at least `digits` digits
        kEraYear,    // the year in the era of the date, in at least two digits
        kEraNameYear,   // the era's name, then its year
        kBytes,      // literal text: `length` bytes at `at` (from the program)
        kEraName,    // the name of the era of the date
        kName,       // name `word` of the value from the list at `at` (`digits` names)
        kAmPm,       // the am or pm string from the list at `at`
    };
    uint8_t op;
    uint8_t digits;
    uint8_t spaced;   // a space for a leading zero
    uint8_t word;
    int32_t add;
    int32_t at;
    int32_t length;
};
struct LeanText {
    int32_t at;       // its bytes' offset from the program
    int32_t length;
};
struct FormatProgram {
    ProgramHeader header;
    uint32_t need;     // what the plain numbers need of the value (Value's bits)
    int32_t lean;      // offset of the lean writer's operations from the program, or 0
    int32_t era;       // the lean operations write the era's name or year
    int32_t steps;
    FormatStep step[1];
};

// Reads the conversion whose "%" is at *fp, leaving *fp at its last character; -1 with
// the error stored when it is malformed.
int scan_conversion(nu_locale_rec *h_, const nu_wchar **fp, Case all, Conv &cv) {
    const nu_wchar *f = *fp + 1;
    Spec &s = cv.s;
    s.all = all;
    bool &upcase = cv.upcase, &change_case = cv.change_case;
    for (;; ++f) {
        if (*f == '_' || *f == '-' || *f == '0') s.pad = static_cast<int>(*f);
        else if (*f == '^') upcase = true;
        else if (*f == '#') change_case = true;
        else break;
    }
    if (*f == 0) return fail(h_, NU_EBADFMT);
    if ((*f >= '1' && *f <= '9') || *f == '.' || *f == '*' || *f == '+' || *f == ' ' ||
        *f == '\'') {
        // Width and precision through the library's specification scanner; the flags of
        // printf that it also knows have no meaning here.
        int justify = 0, width = 0, precision = -1;
        nu_wchar pad = ' ';
        unsigned flags = 0;
        const nu_wchar *at = f;
        if (_nu_scan_format_modifiers(h_, &f, &justify, &pad, &width, &precision, &flags,
                                      nullptr, nullptr) < 0)
            return -1;
        if ((flags & (NU_FMT_PLUS | NU_FMT_SPACE | NU_FMT_GROUP | NU_FMT_LEFT | NU_FMT_ALT |
                      NU_FMT_ZERO | NU_FMT_STAR_SEEN)) != 0)
            return fail(h_, NU_EMODIFIER);
        if (*at >= '1' && *at <= '9') s.width = width;
        s.precision = precision;
        if (*f == 0) return fail(h_, NU_EBADFMT);
    }
    if (*f == 'E' || *f == 'O') {
        s.modifier = static_cast<int>(*f++);
        if (*f == 0) return fail(h_, NU_EBADFMT);
    }
    *fp = f;
    cv.c = *f;
    return 0;
}

template <class Out>
class Engine {
public:
    Engine(nu_locale_rec *h, Out &out, Value &value) : h_(h), out_(out), value_(value) {}

    // Formats `f`; `all` is the case a composite conversion imposes on everything it writes.
    int run(const nu_wchar *f, Case all, int depth) {
        if (depth > kMaxDepth) return fail(h_, NU_EFORMAT);
        for (; *f != 0; ++f) {
            if (*f != '%') {
                const nu_wchar c = all == kAsIs ? *f : all == kUpper ? to_upper(h_, *f)
                                                                     : to_lower(h_, *f);
                if (!out_.put(c)) return -1;
                continue;
            }
            if (conversion(&f, all, depth) < 0) return -1;
        }
        return 0;
    }

    // Formats a compiled format (ByteOut only).
    // A value found out of range gives up before anything is written: the interpreter then
    // reports it where it meets it.
    int run_program(const FormatProgram &p) {
        if (!value_.need(p.need)) return -1;
        const auto *base = reinterpret_cast<const unsigned char *>(&p);
        const nu_time_rec &v = value_.local();
        for (int32_t i = 0; i < p.steps; ++i) {
            const FormatStep &step = p.step[i];
            if (step.literal != 0) {
                if (!out_.bytes(base + step.at, step.literal)) return -1;
                continue;
            }
            int value = 0;
            switch (step.field) {
            case kNotPlain:
                if (execute(step.conv, step.depth) < 0) return -1;
                continue;
            case kMday: value = v.mday; break;
            case kHour: value = v.hour; break;
            case kHour12: value = hour12(); break;
            case kMinute: value = v.minute; break;
            case kSecond: value = v.second; break;
            case kMonth: value = v.month + 1; break;
            case kYear2: value = (v.year % 100 + 100) % 100; break;
            case kYear: value = v.year + 1900; break;
            case kYday: value = v.yday + 1; break;
            case kEraName:
            case kEraYear:
                if (era_step(step) < 0) return -1;
                continue;
            case kDayName:
            case kDayAbbr:
            case kMonthName:
            case kMonthAbbr:
            case kAmPm:
                if (execute(step.conv, step.depth) < 0) return -1;
                continue;
            case kNothing:
            case kLiteral:
                continue;
            }
            if (!plain_number(value, step.digits, step.spaced)) return -1;
        }
        return 0;
    }

    // %EC or %Ey of a compiled format: the era's name, or its year as a plain number; as the
    // conversion says without an era (or with a year beyond the plain range).
    int era_step(const FormatStep &step) {
        const int era = value_.era();
        if (era == -2) return -1;
        if (era >= 0 && step.field == kEraName)
            return out_.bytes(reinterpret_cast<const unsigned char *>(mb(h_->time.eras[era].name)),
                              value_.era_span(era).name_bytes) ? 0 : -1;
        if (era >= 0) {
            const int64_t year = value_.era_year(era);
            if (year >= 0 && year <= 99999)
                return plain_number(static_cast<int>(year), step.digits, false) ? 0 : -1;
        }
        return execute(step.conv, step.depth);
    }

    // A number of at least `digits` digits (0 to 99999), zeros or spaces in front.
    bool plain_number(int value, int digits, bool spaced) {
        char buf[kPlainDigits];
        const char *b = plain_digits(value, digits, spaced, buf);
        return out_.ascii(b, buf + kPlainDigits - b);
    }

    // Writes one conversion read by scan.
    int execute(const Conv &cv, int depth) {
        const nu_wchar c = cv.c;
        Spec s = cv.s;
        const bool upcase = cv.upcase, change_case = cv.change_case;
        if (s.precision >= 0 && c != 'f') return fail(h_, NU_EMODIFIER);
        if (upcase) s.casing = kUpper;
        const TimeFields &t = h_->time;
        const int mod = s.modifier;
        auto no_modifier = [&] { return mod == 0 || (fail(h_, NU_EMODIFIER), false); };
        auto not_e = [&] { return mod != 'E' || (fail(h_, NU_EMODIFIER), false); };
        auto not_o = [&] { return mod != 'O' || (fail(h_, NU_EMODIFIER), false); };
        // "#" makes names upper case and the am/pm strings lower case.
        auto names_case = [&] {
            if (change_case) s.casing = kUpper;
        };
        const nu_time_rec &v = value_.local();
        switch (c) {
        case '%':
            if (!no_modifier()) return -1;
            return literal('%', s);
        case 'n':
            return literal('\n', s);
        case 't':
            return literal('\t', s);
        case 'a':
        case 'A': {
            if (!no_modifier() || !value_.need(Value::kWday)) return -1;
            names_case();
            return text((c == 'a' ? t.abday : t.day)[v.wday], s);
        }
        case 'b':
        case 'h':
        case 'B': {
            if (!not_e() || !value_.need(Value::kDate)) return -1;
            names_case();
            const int index = v.month_name;
            const int count = t.month_count > 0 ? t.month_count : 12;
            if (index < 0 || index >= count || index >= kMonthSlots) return fail(h_, NU_EMONTH);
            const bool second = mod == 'O' && t.alt_month_count > index;
            const CatString *list = c == 'B' ? (second ? t.alt_mon : t.mon)
                                             : (second ? t.ab_alt_mon : t.abmon);
            return text(list[index], s);
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
            return sub == nullptr ? fail(h_, NU_EMODIFIER) : composite(sub, s, upcase, depth);
        }
        case 'C': {
            if (!value_.need(Value::kDate)) return -1;
            if (mod == 'E') {
                const int era = value_.era();
                if (era == -2) return -1;
                if (era >= 0) return text(t.eras[era].name, s);
            }
            const int year = v.year + 1900;
            return number(year / 100 - (year % 100 < 0 ? 1 : 0), 1, s);
        }
        case 'd':
            if (!not_e() || !value_.need(Value::kDate)) return -1;
            return number(v.mday, 2, s);
        case 'e':
            if (!not_e() || !value_.need(Value::kDate)) return -1;
            return number_spaced(v.mday, 2, s);
        case 'H':
            if (!not_e() || !value_.need(Value::kTime)) return -1;
            return number(v.hour, 2, s);
        case 'I':
            if (!not_e() || !value_.need(Value::kTime)) return -1;
            return number(hour12(), 2, s);
        case 'k':
            if (!not_e() || !value_.need(Value::kTime)) return -1;
            return number_spaced(v.hour, 2, s);
        case 'l':
            if (!not_e() || !value_.need(Value::kTime)) return -1;
            return number_spaced(hour12(), 2, s);
        case 'j':
            if (!not_e() || !value_.need(Value::kYday)) return -1;
            return number(v.yday + 1, 3, s);
        case 'M':
            if (!not_e() || !value_.need(Value::kTime)) return -1;
            return number(v.minute, 2, s);
        case 'm':
            if (!not_e() || !value_.need(Value::kDate)) return -1;
            return number(v.month + 1, 2, s);
        case 'S':
            if (!not_e() || !value_.need(Value::kTime)) return -1;
            return number(v.second, 2, s);
        case 'P':
        case 'p': {
            if (!value_.need(Value::kTime)) return -1;
            if (c == 'P' || change_case) s.casing = kLower;
            return text(v.hour > 11 ? t.pm : t.am, s);
        }
        case 's': {
            if (!value_.need(Value::kTime | Value::kDate)) return -1;
            const nu_time_rec &g = value_.gregorian();
            const int64_t seconds = epoch_days(g.year + 1900, g.month, g.mday) * 86400 +
                                    g.hour * 3600 + g.minute * 60 + g.second;
            // The width pads the whole number, never with zeros of its own: kept as strftime.
            return number(seconds, 1, s, false, false);
        }
        case 'u':
            if (!value_.need(Value::kWday)) return -1;
            return number((v.wday + 6) % 7 + 1, 1, s);
        case 'w':
            if (!not_e() || !value_.need(Value::kWday)) return -1;
            return number(v.wday, 1, s);
        case 'U':
            if (!not_e() || !value_.need(Value::kWday | Value::kYday)) return -1;
            return number((v.yday - v.wday + 7) / 7, 2, s);
        case 'W':
            if (!not_e() || !value_.need(Value::kWday | Value::kYday)) return -1;
            return number((v.yday - (v.wday + 6) % 7 + 7) / 7, 2, s);
        case 'V':
        case 'g':
        case 'G': {
            if (!not_e() || !value_.need(Value::kWday | Value::kYday)) return -1;
            const IsoWeek w = iso_week(v.year + 1900, v.yday, v.wday);
            if (c == 'g') return number((w.year % 100 + 100) % 100, 2, s);
            if (c == 'G') return number(w.year, 1, s);
            return number(w.week, 2, s);
        }
        case 'Y': {
            if (!value_.need(Value::kDate)) return -1;
            if (mod == 'E') {
                const int era = value_.era();
                if (era == -2) return -1;
                if (era >= 0) return composite(wide(t.eras[era].format), s, upcase, depth);
            }
            if (!not_o()) return -1;
            return number(v.year + 1900, 1, s);
        }
        case 'y': {
            if (!value_.need(Value::kDate)) return -1;
            if (mod == 'E') {
                const int era = value_.era();
                if (era == -2) return -1;
                if (era >= 0) return number(value_.era_year(era), 2, s);
            }
            return number((v.year % 100 + 100) % 100, 2, s);
        }
        case 'Z':
            // No time zone in a time value: the empty name, padded to the width.
            return text(CatString{nullptr, nullptr}, s);
        case 'z':
            return 0;   // nor an offset: nothing at all, as for a value of unknown zone
        case 'f': {
            if (!no_modifier() || !value_.need(Value::kFraction)) return -1;
            const int p = s.precision < 0 ? 6 : s.precision;
            if (p < 1 || p > 9) return fail(h_, NU_EMODIFIER);
            int64_t digits = value_.gregorian().fraction;
            for (int i = 6; i > p; --i) digits /= 10;
            for (int i = 6; i < p; ++i) digits *= 10;
            return number(digits, p, s, false);
        }
        default:
            return fail(h_, NU_EFORMAT);
        }
    }

private:
    // One conversion; *f is at its "%" and is left at its last character.
    int conversion(const nu_wchar **fp, Case all, int depth) {
        Conv cv;
        return scan_conversion(h_, fp, all, cv) < 0 ? -1 : execute(cv, depth);
    }

    int hour12() const {
        const int hour = value_.local().hour;
        return hour > 12 ? hour - 12 : hour == 0 ? 12 : hour;
    }

    Case effective(const Spec &s) const { return s.all != kAsIs ? s.all : s.casing; }

    bool padding(const Spec &s, long length) {
        const long delta = s.width - length;
        return delta <= 0 || out_.fill(s.pad == '0' ? '0' : ' ', delta);
    }

    int literal(nu_wchar c, const Spec &s) {
        return padding(s, 1) && out_.put(c) ? 0 : -1;
    }

    int text(const CatString &str, const Spec &s) {
        return (s.width <= 0 || padding(s, out_.chars(str))) && out_.text(str, effective(s)) ? 0 : -1;
    }

    // A composite conversion: its format run in place, after the padding its width asks for;
    // "^" makes all of it upper case.
    int composite(const nu_wchar *sub, const Spec &s, bool upcase, int depth) {
        const Case all = upcase ? kUpper : s.all;
        if (s.width > 0) {
            CountOut counter;
            Engine<CountOut> measure(h_, counter, value_);
            if (measure.run(sub, all, depth + 1) < 0) return -1;
            if (!padding(s, counter.count())) return -1;
        }
        return run(sub, all, depth + 1);
    }

    int number_spaced(int64_t value, int d, Spec s) {
        // Padded with spaces unless "0" or "-" asks otherwise.
        if (s.pad != '0' && s.pad != '-') s.pad = '_';
        return number(value, d, s);
    }

    int number(int64_t value, int d, Spec s, bool alt = true, bool width_digits = true) {
        if ((s.modifier != 'O' || !alt) && (s.pad == 0 || s.pad == '0') && s.width <= d &&
            value >= 0 && value < 100 && d <= 2) {
            // The common field: one or two digits, zeros in front, nothing around.
            static constexpr char kPairs[] =
                "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
                "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
                "8081828384858687888990919293949596979899";
            const char *pair = kPairs + 2 * value;
            return (d == 2 || value >= 10 ? out_.ascii(pair, 2) : out_.ascii(pair + 1, 1)) ? 0 : -1;
        }
        const int digits = d > s.width || !width_digits ? d : s.width;
        if (alt && s.modifier == 'O' && value >= 0 && value < h_->time.alt_digit_count &&
            h_->time.alt_digits != nullptr) {
            const CatString &a = h_->time.alt_digits[value];
            if (out_.chars(a) != 0) return text(a, s);
        }
        char buf[24];
        char *end = buf + sizeof buf;
        char *b = end;
        const bool negative = value < 0;
        uint64_t u = negative ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
        do {
            *--b = static_cast<char>('0' + u % 10);
            u /= 10;
        } while (u != 0);
        if (negative) *--b = '-';
        if (s.pad != '-') {
            const long pad = digits - (end - b);
            if (pad > 0) {
                if (s.pad == '_') {
                    if (!out_.fill(' ', pad)) return -1;
                    s.width = s.width > pad ? static_cast<int>(s.width - pad) : 0;
                } else {
                    if (negative) {
                        ++b;
                        if (!out_.put('-')) return -1;
                    }
                    if (!out_.fill('0', pad)) return -1;
                    s.width = 0;
                }
            }
        }
        if (!padding(s, end - b)) return -1;
        return out_.ascii(b, end - b) ? 0 : -1;
    }

    nu_locale_rec *h_;
    Out &out_;
    Value &value_;
};

template <class Out>
int format(nu_locale_rec *h, Out &out, const nu_wchar *format, const nu_time_rec *t) {
    Value value(h, t);
    Engine<Out> engine(h, out, value);
    if (engine.run(format, kAsIs, 0) < 0) return -1;
    out.finish();
    const int64_t n = out.count();
    return n > INT_MAX ? fail(h, NU_E2BIG) : static_cast<int>(n);
}

// Compiles a format for the multibyte formatter of a handle whose wide characters are their
// bytes; null when the format is better interpreted (malformed, too long, or a literal that
// the code set cannot write: the interpreter then reports it where it is met).
class Compiler {
public:
    explicit Compiler(nu_locale_rec *h)
        : h_(h), term_(term_length(h)),
          ascii_(h->single_byte || (h->ascii_direct && term_ == 1)) {}

    FormatProgram *compile(const nu_wchar *format, const void *key, size_t key_bytes) {
        if (!walk(format, 0)) return nullptr;
        const size_t head = offsetof(FormatProgram, step) + sizeof(FormatStep) * (steps_ > 0 ? steps_ : 1);
        bool lean = ascii_ && h_->time.calendar <= 1, era = false;
        for (int i = 0; i < steps_; ++i) {
            if (step_[i].literal != 0) continue;
            lean = lean && step_[i].field != kNotPlain;
            era = era || step_[i].field == kEraName || step_[i].field == kEraYear;
        }
        // The lean operations, and the name lists they write, follow the literal bytes.
        auto align = [](size_t n) { return (n + 7) & ~size_t{7}; };
        size_t end = head + key_bytes + pool_, ops_at = 0, lists_at[kLists] = {};
        if (lean) {
            ops_at = align(end);
            end = ops_at + sizeof(LeanOp) * static_cast<size_t>(steps_ + 1);
            for (int i = 0; i < steps_; ++i) {
                const int list = list_of(step_[i].field);
                if (list < 0 || lists_at[list] != 0) continue;
                lists_at[list] = align(end);
                end = lists_at[list] + list_bytes(list);
            }
        }
        auto *block = alloc_array<unsigned char>(end);
        if (block == nullptr) return nullptr;
        auto *p = reinterpret_cast<FormatProgram *>(block);
        p->header.key = block + head;
        p->header.key_bytes = static_cast<uint32_t>(key_bytes);
        p->header.wide = 0;
        std::memcpy(block + head, key, key_bytes);
        std::memcpy(block + head + key_bytes, pool_bytes_, pool_);
        p->steps = steps_;
        p->need = need_;
        p->lean = static_cast<int32_t>(ops_at);
        p->era = era;
        for (int i = 0; i < steps_; ++i) {
            p->step[i] = step_[i];
            if (step_[i].literal != 0) p->step[i].at += static_cast<int32_t>(head + key_bytes);
        }
        for (int list = 0; list < kLists; ++list)
            if (lists_at[list] != 0) write_list(list, block, lists_at[list]);
        if (lean) lean_ops(*p, reinterpret_cast<LeanOp *>(block + ops_at), lists_at);
        return p;
    }

private:
    bool walk(const nu_wchar *f, int depth) {
        if (depth > kMaxDepth) return false;
        for (; *f != 0; ++f) {
            if (*f != '%') {
                if (!literal(*f)) return false;
                continue;
            }
            Conv cv;
            if (scan_conversion(h_, &f, kAsIs, cv) < 0) return false;
            const nu_wchar *sub = expansion(cv);
            if (sub != nullptr && depth + 1 <= kMaxDepth) {
                if (!walk(sub, depth + 1)) return false;
                continue;
            }
            if (steps_ == kSteps) return false;
            FormatStep step{0, 0, depth, kNotPlain, 0, false, cv};
            plain(step);
            step_[steps_++] = step;
        }
        return true;
    }

    // Marks a conversion that writes a field as a plain number.
    void plain(FormatStep &step) {
        const Conv &cv = step.conv;
        if (cv.s.pad != 0 || cv.s.width >= 0 || cv.s.precision >= 0 || cv.upcase || cv.change_case)
            return;
        if (cv.s.modifier == 'E' && (cv.c == 'C' || cv.c == 'y') && h_->time.era_count > 0) {
            step.field = cv.c == 'C' ? kEraName : kEraYear;
            step.digits = 2;
            need_ |= Value::kDate;
            return;
        }
        if (cv.s.modifier != 0) return;
        struct Name {
            nu_wchar c;
            Field field;
            unsigned need;
        };
        static constexpr Name kNames[] = {
            {'A', kDayName, Value::kWday},   {'a', kDayAbbr, Value::kWday},
            {'B', kMonthName, Value::kDate}, {'b', kMonthAbbr, Value::kDate},
            {'h', kMonthAbbr, Value::kDate}, {'p', kAmPm, Value::kTime},
            {'Z', kNothing, 0},              {'z', kNothing, 0},
        };
        for (const Name &n : kNames)
            if (n.c == cv.c) {
                step.field = n.field;
                need_ |= n.need;
                return;
            }
        struct Plain {
            nu_wchar c;
            Field field;
            int32_t digits;
            bool spaced;
            unsigned need;
        };
        static constexpr Plain kPlain[] = {
            {'d', kMday, 2, false, Value::kDate},    {'e', kMday, 2, true, Value::kDate},
            {'H', kHour, 2, false, Value::kTime},    {'k', kHour, 2, true, Value::kTime},
            {'I', kHour12, 2, false, Value::kTime},  {'l', kHour12, 2, true, Value::kTime},
            {'M', kMinute, 2, false, Value::kTime},  {'S', kSecond, 2, false, Value::kTime},
            {'m', kMonth, 2, false, Value::kDate},   {'y', kYear2, 2, false, Value::kDate},
            {'Y', kYear, 1, false, Value::kDate},    {'j', kYday, 3, false, Value::kYday},
        };
        for (const Plain &p : kPlain)
            if (p.c == cv.c) {
                step.field = p.field;
                step.digits = p.digits;
                step.spaced = p.spaced;
                need_ |= p.need;
            }
    }

    // The format a composite conversion writes in place as it stands (no width, no case
    // change, a modifier it takes); null for any other conversion.
    const nu_wchar *expansion(const Conv &cv) const {
        if (cv.s.precision >= 0 || cv.upcase || cv.s.width > 0) return nullptr;
        return composite_format(h_->time, cv.c, cv.s.modifier);
    }

    // The name lists a lean program writes: days, abbreviated days, months, abbreviated
    // months, am and pm.
    static constexpr int kLists = 5;
    static int list_of(Field field) {
        switch (field) {
        case kDayName: return 0;
        case kDayAbbr: return 1;
        case kMonthName: return 2;
        case kMonthAbbr: return 3;
        case kAmPm: return 4;
        default: return -1;
        }
    }
    int list_count(int list) const {
        const int months = h_->time.month_count > 0 ? h_->time.month_count : 12;
        return list < 2 ? 7 : list < 4 ? std::min(months, kMonthSlots) : 2;
    }
    const CatString &list_name(int list, int i) const {
        const TimeFields &t = h_->time;
        const CatString *const lists[] = {t.day, t.abday, t.mon, t.abmon};
        return list < 4 ? lists[list][i] : i == 0 ? t.am : t.pm;
    }
    size_t list_bytes(int list) const {
        size_t n = sizeof(LeanText) * static_cast<size_t>(list_count(list));
        for (int i = 0; i < list_count(list); ++i) n += std::strlen(mb(list_name(list, i)));
        return n;
    }
    // A list as each name's place and length, then the names' bytes.
    void write_list(int list, unsigned char *block, size_t at) const {
        auto *text = reinterpret_cast<LeanText *>(block + at);
        size_t bytes = at + sizeof(LeanText) * static_cast<size_t>(list_count(list));
        for (int i = 0; i < list_count(list); ++i) {
            const char *name = mb(list_name(list, i));
            const size_t n = std::strlen(name);
            text[i] = LeanText{static_cast<int32_t>(bytes), static_cast<int32_t>(n)};
            std::memcpy(block + bytes, name, n);
            bytes += n;
        }
    }

    // The steps of a lean program as the lean writer runs them.
    void lean_ops(const FormatProgram &p, LeanOp *op, const size_t *lists_at) const {
        for (int i = 0; i < p.steps; ++i) {
            const FormatStep &step = p.step[i];
            LeanOp o{LeanOp::kTwo, static_cast<uint8_t>(step.digits), step.spaced, 0, 0, 0, 0};
            switch (step.field) {
            case kLiteral:
                o.op = LeanOp::kBytes;
                o.at = step.at;
                o.length = step.literal;
                break;
            case kSecond: o.word = 1; break;
            case kMinute: o.word = 2; break;
            case kHour: o.word = 3; break;
            case kMday: o.word = 4; break;
            case kMonth: o.word = 5, o.add = 1; break;
            case kHour12: o.op = LeanOp::kHour12; break;
            case kYear2: o.op = LeanOp::kYear2; break;
            case kYear: o.op = LeanOp::kNumber, o.word = 7, o.add = 1900; break;
            case kYday: o.op = LeanOp::kNumber, o.word = 9, o.add = 1; break;
            case kEraYear: o.op = LeanOp::kEraYear; break;
            case kEraName:
                o.op = LeanOp::kEraName;
                // The era's year that follows at once goes with it (as in the era formats).
                if (i + 1 < p.steps && p.step[i + 1].literal == 0 && p.step[i + 1].field == kEraYear) {
                    o.op = LeanOp::kEraNameYear;
                    ++i;
                }
                break;
            case kNothing: continue;
            default: {   // a name
                const int list = list_of(step.field);
                o.op = list == 4 ? LeanOp::kAmPm : LeanOp::kName;
                o.word = list < 2 ? 8 : 5;   // by the day of week, or the month
                o.digits = static_cast<uint8_t>(list_count(list));
                o.at = static_cast<int32_t>(lists_at[list]);
                break;
            }
            }
            *op++ = o;
        }
        *op = LeanOp{};
    }

    // A literal character as ByteOut writes it.
    bool literal(nu_wchar c) {
        unsigned char b[4];
        int k = 1;
        if ((c < 0x80 && ascii_) || h_->single_byte) {
            if (c > 0xFF) return false;
            b[0] = static_cast<unsigned char>(c);
        } else {
            k = encoded_length(c, term_);
            if (k == 0) return false;
            for (int i = 0; i < k; ++i) b[i] = static_cast<unsigned char>(c >> (8 * (k - 1 - i)));
        }
        if (pool_ + static_cast<size_t>(k) > sizeof pool_bytes_) return false;
        if (steps_ == 0 || step_[steps_ - 1].literal == 0) {
            if (steps_ == kSteps) return false;
            step_[steps_++] = FormatStep{0, static_cast<int32_t>(pool_), 0, kLiteral, 0, false, Conv{}};
        }
        std::memcpy(pool_bytes_ + pool_, b, static_cast<size_t>(k));
        pool_ += static_cast<size_t>(k);
        step_[steps_ - 1].literal += k;
        return true;
    }

    static constexpr int kSteps = 96;
    nu_locale_rec *h_;
    unsigned need_ = 0;
    int term_;
    bool ascii_;
    FormatStep step_[kSteps];
    int steps_ = 0;
    unsigned char pool_bytes_[1024];
    size_t pool_ = 0;
};

// The compiled form of a multibyte format, made on first use; null when the format is
// interpreted instead.
// Compiles a format met for the first time, and keeps it; null when it is interpreted.
[[gnu::noinline]] const FormatProgram *compile_format(nu_locale_rec *h, const char *format) {
    if (term_length(h) > 1) return nullptr;
    const size_t key_bytes = std::strlen(format);
    if (key_bytes > kMaxProgramKey) return nullptr;
    const int32_t error = h->error;
    const Widened<64> wide_format(h, format);
    FormatProgram *p = nullptr;
    if (wide_format.get() != nullptr) p = Compiler(h).compile(wide_format.get(), format, key_bytes);
    if (p == nullptr || keep_program(h, kFormatProgram, &p->header) == nullptr) {
        h->error = error;   // the interpreter reports what compiling met
        return nullptr;
    }
    // A lean program that writes eras finds the spans made: they last as long as it does.
    if (p->era != 0 && era_spans(h) == nullptr) p->lean = 0;
    h->error = error;
    return p;
}

// (Programs are kept only for a handle whose CTYPE has a one-byte terminator; they go with
// that CTYPE.)
[[gnu::always_inline]] inline const FormatProgram *program_for(nu_locale_rec *h, const char *format) {
    if (h->companion_flag[cat_index(NU_CTYPE)] != 0) return nullptr;
    if (const ProgramHeader *p = find_format_program(h, kFormatProgram, format))
        return reinterpret_cast<const FormatProgram *>(p);
    return compile_format(h, format);
}

// The multibyte formatter but for lean programs: the compiled format through the engine, or
// the format interpreted.
[[gnu::noinline]] int format_bytes(nu_locale_rec *h, char *out, int size, const char *format,
                                   const nu_time_rec *t, const FormatProgram *p) {
    if (p != nullptr) {
        ByteOut o(h, size == 0 ? nullptr : out, size, 1);
        Value value(h, t);
        Engine<ByteOut> engine(h, o, value);
        if (engine.run_program(*p) == 0) {
            o.finish();
            if (o.count() <= INT_MAX) return static_cast<int>(o.count());
        }
        // Whatever went wrong, the interpreter meets it again below and reports it.
    }
    const Widened<64> wide_format(h, format);
    if (wide_format.no_memory()) return fail(h, NU_ENOMEM);
    if (wide_format.get() == nullptr) return -1;
    ByteOut o(h, size == 0 ? nullptr : out, size);
    return ::format(h, o, wide_format.get(), t);
}

// Word i of a time value.
inline int32_t word(const nu_time_rec *t, int i) {
    int32_t v;
    std::memcpy(&v, reinterpret_cast<const char *>(t) + sizeof v * static_cast<size_t>(i), sizeof v);
    return v;
}

// A lean program written straight into the caller's buffer (not null, size positive); the
// engine writes it instead where anything is out of the ordinary (an output overlapping the
// value, a field out of range, too little room, a date without an era), and reports it.
[[gnu::noinline]] int format_lean(nu_locale_rec *h, char *out, int size, const char *format,
                                  const nu_time_rec *t, const FormatProgram *p) {
    auto engine = [&] { return format_bytes(h, out, size, format, t, p); };
    // The value is read as the steps go, so the output must not overlap it.
    const auto *first = reinterpret_cast<const char *>(t);
    if (out < first + sizeof *t && first < out + size) return engine();
    const unsigned need = p->need;
    if (need == Value::kDate) {   // the common case
        if (check_date(*t) != 0) return engine();
    } else {
        if ((need & Value::kTime) != 0 && check_time(*t) != 0) return engine();
        if ((need & (Value::kDate | Value::kWday | Value::kYday)) != 0) {
            if (check_date(*t) != 0) return engine();
            if ((need & Value::kWday) != 0 && static_cast<uint32_t>(t->wday) > 6) return engine();
            if ((need & Value::kYday) != 0 && static_cast<uint32_t>(t->yday) > 365) return engine();
        }
    }
    // The era of the date, found once for all its steps.
    const unsigned char *era_name = nullptr;
    long era_bytes = 0;
    int era_year = 0;
    if (p->era != 0) {
        // The program was found in the per-handle block, which has the spans since it was
        // compiled (they go with it).
        const EraSpan *spans = static_cast<const DerivedHead *>(h->time.era_cache)->spans;
        const int era = era_of_date(h, spans, t->year, t->month, t->mday);
        if (era < 0) return engine();
        const int64_t y = year_in_era(spans, era, t->year);
        if (y < 0 || y > 99999) return engine();
        era_name = reinterpret_cast<const unsigned char *>(spans[era].name);
        era_bytes = spans[era].name_bytes;
        era_year = static_cast<int>(y);
    }
    // Written at w, up to limit, where the terminator goes at the latest.
    auto *w = reinterpret_cast<unsigned char *>(out);
    unsigned char *const limit = w + (size - 1);
    const auto *base = reinterpret_cast<const unsigned char *>(p);
    char digits[kPlainDigits];
    for (const auto *op = reinterpret_cast<const LeanOp *>(base + p->lean);; ++op) {
        const unsigned char *b;
        long k;
        int value;
        switch (op->op) {
        case LeanOp::kEnd:
            *w = 0;
            return static_cast<int>(w - reinterpret_cast<unsigned char *>(out));
        case LeanOp::kTwo:
            value = word(t, op->word) + op->add;
            break;
        case LeanOp::kHour12:
            value = t->hour > 12 ? t->hour - 12 : t->hour == 0 ? 12 : t->hour;
            break;
        case LeanOp::kYear2:
            value = (t->year % 100 + 100) % 100;
            break;
        case LeanOp::kEraNameYear:
            if (era_bytes > limit - w) return engine();
            copy_bytes(w, era_name, era_bytes);
            w += era_bytes;
            [[fallthrough]];
        case LeanOp::kEraYear:
            value = era_year;
            if (value < 100) break;
            goto number;
        case LeanOp::kNumber:
            value = word(t, op->word) + op->add;
            goto number;
        case LeanOp::kBytes:
            b = base + op->at;
            k = op->length;
            goto copy;
        case LeanOp::kEraName:
            b = era_name;
            k = era_bytes;
            goto copy;
        case LeanOp::kName:
        case LeanOp::kAmPm: {
            const unsigned i = op->op == LeanOp::kAmPm ? t->hour > 11 : static_cast<unsigned>(word(t, op->word));
            if (i >= op->digits) return engine();
            const LeanText &name = reinterpret_cast<const LeanText *>(base + op->at)[i];
            b = base + name.at;
            k = name.length;
            goto copy;
        }
        default:
            __builtin_unreachable();
        }
        // Two digits.
        if (static_cast<unsigned>(value) > 99 || limit - w < 2) return engine();
        std::memcpy(w, kDigitPairs + 2 * value, 2);
        if (op->spaced != 0 && value < 10) *w = ' ';
        w += 2;
        continue;
    number:
        if (value >= 1000 && value <= 9999) {   // four digits: a year
            if (limit - w < 4) return engine();
            std::memcpy(w, kDigitPairs + 2 * (value / 100), 2);
            std::memcpy(w + 2, kDigitPairs + 2 * (value % 100), 2);
            w += 4;
            continue;
        }
        b = reinterpret_cast<const unsigned char *>(plain_digits(value, op->digits, op->spaced != 0, digits));
        k = digits + kPlainDigits - reinterpret_cast<const char *>(b);
    copy:
        if (k > limit - w) return engine();
        copy_bytes(w, b, k);
        w += k;
    }
}

} // namespace

NU_EXPORT int nu_wcsftime(nu_locale_t h, nu_wchar *out, int size, const nu_wchar *format,
                          const nu_time_rec *t) {
    if (nus::no_handle(h) || nus::missing(h, format, t)) return -1;
    if (size < 0) return fail(h, NU_EBADVAL);
    WideOut o(h, size == 0 ? nullptr : out, size);
    return ::format(h, o, format, t);
}

namespace {

// nu_mbsftime but for the common call below.
[[gnu::noinline]] int format_multibyte(nu_locale_rec *h, char *out, int size, const char *format,
                                       const nu_time_rec *t) {
    if (nus::no_handle(h) || nus::missing(h, format, t)) return -1;
    if (size < 0) return fail(h, NU_EBADVAL);
    const FormatProgram *p = program_for(h, format);
    if (p != nullptr && p->lean != 0 && out != nullptr && size > 0)
        return format_lean(h, out, size, format, t, p);
    return format_bytes(h, out, size, format, t, p);
}

} // namespace

NU_EXPORT int nu_mbsftime(nu_locale_t h, char *out, int size, const char *format,
                          const nu_time_rec *t) {
    // The common call, the format used last with a lean program, without a frame of its own.
    if (h != nullptr && out != nullptr && format != nullptr && t != nullptr && size > 0 &&
        h->companion_flag[cat_index(NU_CTYPE)] == 0) {
        const auto *p = reinterpret_cast<const FormatProgram *>(last_program(h, kFormatProgram, format));
        if (p != nullptr && p->lean != 0) return format_lean(h, out, size, format, t, p);
    }
    return format_multibyte(h, out, size, format, t);
}
