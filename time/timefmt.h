// Internal interface of the time formatter, parser and date information: the TIME strings as
// they read them, case mapping of wide characters, field checks, the era table in the form
// the conversions use, and the week arithmetic they share.
#pragma once

#include "chars/chars.h"
#include "time/calendar.h"

#include <cstdint>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace nus::tm {

inline constexpr nu_wchar kEmptyWide[1] = {0};
inline constexpr char kEmptyMb[4] = {0, 0, 0, 0};

inline const char *mb(const CatString &s) { return s.mb != nullptr ? s.mb : kEmptyMb; }
inline const nu_wchar *wide(const CatString &s) { return s.wide != nullptr ? s.wide : kEmptyWide; }

inline int wlen(const nu_wchar *s) {
    int n = 0;
    while (s[n] != 0) ++n;
    return n;
}

// Bytes of the code set's string terminator (as many as its shortest character), at least 1.
inline int term_length(nu_locale_rec *h) {
    if (h->single_byte) return 1;
    int m = 0;
    if (h->companion_flag[cat_index(NU_CTYPE)] == 0)
        m = h->ctype.class_table != nullptr ? h->ctype.class_table->min_length : 0;
    else
        m = nu_mb_loc_min(h);
    return m > 0 ? m : 1;
}

// Case mapping of one wide character of the handle's code set.
inline nu_wchar to_upper(nu_locale_rec *h, nu_wchar wc) {
    if (h->single_byte) return h->sb_upper != nullptr && wc < 256 ? h->sb_upper[wc] : wc;
    return _nu_im_towupper(h, wc);
}
inline nu_wchar to_lower(nu_locale_rec *h, nu_wchar wc) {
    if (h->single_byte) return h->sb_lower != nullptr && wc < 256 ? h->sb_lower[wc] : wc;
    return _nu_im_towlower(h, wc);
}

// The locale's white space, as the parser skips it: the space class of CTYPE, and the ASCII
// blanks in a locale without one.
inline bool is_space(nu_locale_rec *h, nu_wchar wc) {
    if (wc == ' ' || (wc >= '\t' && wc <= '\r')) return true;
    if (wc < 0x80) return false;
    if (h->single_byte) return h->sb_class != nullptr && wc < 256 && (h->sb_class[wc] & NU_CLASS_SPACE);
    return _nu_im_iswctype(h, wc, NU_CLASS_SPACE) != 0;
}

// Two different ASCII characters that are one letter in either case.
constexpr bool ascii_case_pair(unsigned a, unsigned b) {
    return ((a ^ b) == 0x20) && ((a | 0x20) - 'a' < 26u);
}
// An ASCII character's lower and upper case as ASCII has them.
constexpr unsigned ascii_lower(unsigned c) { return c - 'A' < 26u ? c | 0x20 : c; }
constexpr unsigned ascii_upper(unsigned c) { return c - 'a' < 26u ? c & ~0x20u : c; }

// One character of input against one of a name, without regard to case: ASCII directly,
// others through the locale's case maps, lower and then upper case (final and medial sigma
// lower differently but upper alike).
inline bool eq_fold(nu_locale_rec *h, nu_wchar a, nu_wchar b) {
    if (a == b) return true;
    if (a < 0x80 && b < 0x80) return ascii_case_pair(a, b);
    return to_lower(h, a) == to_lower(h, b) || to_upper(h, a) == to_upper(h, b);
}

// One era segment with its dates as the conversions compare them: year - 1900 (or the open
// ends unchanged), month from 0, day; and the sign of its year count, +1 when its years grow
// with time, -1 when they fall.
struct EraSpan {
    int32_t start[3];
    int32_t stop[3];
    int32_t absolute_direction;
    int32_t name_bytes;   // of the era's multibyte name
    const char *name;     // that name (never null)
    int64_t year_base;    // the era's year of a date in year - 1900 y: year_base + y * direction
    // The first and the last day of the segment as date_key orders them.
    int64_t first, last;
};

// A date (year - 1900, month from 0, day) as one number in the order of dates. A month or day
// out of range is taken as one just beyond the range: it keeps its order against every valid
// date, which is all an era's limits are compared with.
constexpr int64_t date_key(int32_t year, int32_t month, int32_t mday) {
    const int32_t m = month < -1 ? -1 : month > 12 ? 12 : month;
    const int32_t d = mday < 0 ? 0 : mday > 32 ? 32 : mday;
    return int64_t{year} * 512 + (m + 1) * 32 + d;
}

// The first era of `spans` that holds a valid date, or -1.
inline int era_of(const EraSpan *spans, int count, int32_t year, int32_t month, int32_t mday) {
    const int64_t key = date_key(year, month, mday);
    for (int i = 0; i < count; ++i)
        if (spans[i].first <= key && key <= spans[i].last) return i;
    return -1;
}

// The handle's eras in that form, made on first use in the per-handle era cache (one block
// from the library allocator, freed with the handle's TIME category). Null without eras, or
// with NU_ENOMEM stored when the block cannot be had.
const EraSpan *era_spans(nu_locale_rec *h);

// The first era of `spans` that holds a date no calendar has (a month or day out of range),
// its fields compared one by one; -1 for none.
int era_by_fields(const EraSpan *spans, int count, int32_t year, int32_t month, int32_t mday);

// The year (year - 1900) of a date counted in era `era` of the spans.
inline int64_t year_in_era(const EraSpan *spans, int era, int32_t year) {
    return spans[era].year_base + int64_t{year} * spans[era].absolute_direction;
}
// Its inverse: the full year of year `era_year` of era `era` (the direction is 1 or -1).
inline int64_t full_year_of_era(const EraSpan *spans, int era, int64_t era_year) {
    return (era_year - spans[era].year_base) * spans[era].absolute_direction + 1900;
}

// ---- what the formatter and parser derive from the record, kept per handle ------------------
//
// Made when first needed, in one block hung on the TIME record's era cache (never shared by a
// copy; it goes when TIME or CTYPE is freed, since it holds case maps and encodings): the era
// spans, the names of each kind ready for matching without regard to case, and the formats
// last compiled by the formatter and the parser.

// One name of a kind of the validation caches (kCacheMonths ...), as the parser matches it.
struct Name {
    const nu_wchar *text;    // the name after its leading blanks
    const nu_wchar *lower;   // its characters lower- and upper-cased by the locale
    const nu_wchar *upper;
    int32_t length;          // characters; 0 for an empty name, which never matches
};

// The names of one kind, in the parser's order (time/derived.cpp lists it), with the set of
// names (as bits) whose first character may match a given input character: exact for ASCII
// input, by a hash of the character and its two cases above it. More than kNameBits names
// make every name a candidate.
inline constexpr int kNameBits = 128;
struct NameSet {
    uint64_t bits[kNameBits / 64];
};
struct NameTable {
    int32_t count;
    bool every;
    Name *names;
    NameSet ascii[128];
    NameSet other[64];
    // The candidates of the characters beyond ASCII met last, by a hash of the character
    // (finding them maps its case twice).
    nu_wchar seen[16];
    NameSet seen_set[16];
};

// The names of `kind`; null with NU_ENOMEM stored when they cannot be had.
NameTable *name_table(nu_locale_rec *h, int kind);

// The names whose first character may match `a`: a superset of those eq_fold accepts (none
// for a table whose every name is a candidate).
NameSet name_candidates(nu_locale_rec *h, NameTable &t, nu_wchar a);

// Characters of the name matched at `in` without regard to case (eq_fold); 0 when it does
// not match or is empty.
inline int match_name(nu_locale_rec *h, const Name &n, const nu_wchar *in) {
    for (int i = 0; i < n.length; ++i) {
        const nu_wchar a = in[i], b = n.text[i];
        if (a == b) continue;   // b is never 0 within the name, so neither is a
        if (a == 0) return 0;
        if (a < 0x80 && b < 0x80) {
            if (ascii_case_pair(a, b)) continue;
            return 0;
        }
        if (to_lower(h, a) != n.lower[i] && to_upper(h, a) != n.upper[i]) return 0;
    }
    return n.length;
}

// Compiled formats: a block from the library allocator that starts with this header; the
// key (the format as the caller gave it: its bytes, or its wide characters) lies in the block.
enum ProgramKind { kFormatProgram, kParseProgram, kProgramKinds };
struct ProgramHeader {
    const unsigned char *key;
    uint32_t key_bytes;
    uint32_t wide;   // the key is a wide format
};
inline constexpr size_t kMaxProgramKey = 256;   // longer formats are interpreted every time
inline constexpr int kProgramSlots = 4;

// The program compiled before for this format, or null.
const ProgramHeader *find_program(nu_locale_rec *h, ProgramKind kind, const void *key,
                                  size_t key_bytes, bool wide);
// The same for a format of the multibyte functions, a string of bytes whose terminator is one
// byte (no longer than kMaxProgramKey when it was kept).
const ProgramHeader *find_program(nu_locale_rec *h, ProgramKind kind, const char *format);
// Keeps a compiled program in place of the least recently made one: the program, or null when
// there is nowhere to keep it or its key is empty (it is freed then).
ProgramHeader *keep_program(nu_locale_rec *h, ProgramKind kind, ProgramHeader *program);

// The beginning of the per-handle block: the era spans (era_cache_count of them) or null, and
// the program of each kind found or kept last.
inline constexpr int kEraYears = 256;   // the years 1900 to 2155
inline constexpr int16_t kEraChanges = -2;
struct DerivedHead {
    EraSpan *spans;
    NameTable *names[kTimeCaches];   // made by name_table
    const ProgramHeader *last[kProgramKinds];   // of a multibyte format
    // With the spans: for each year (counted from 1900) the era of every date in it, -1 for
    // none, or kEraChanges when that is not the same all year.
    int16_t era_of_year[kEraYears];
};

// era_spans without a call once they are made.
inline const EraSpan *known_era_spans(nu_locale_rec *h) {
    const auto *d = static_cast<const DerivedHead *>(h->time.era_cache);
    if (d != nullptr && d->spans != nullptr && h->time.era_cache_count == h->time.era_count &&
        h->time.eras != nullptr)
        return d->spans;
    return era_spans(h);
}

// name_table without a call once the names of the kind are made.
inline NameTable *known_name_table(nu_locale_rec *h, int kind) {
    const auto *d = static_cast<const DerivedHead *>(h->time.era_cache);
    if (d != nullptr && d->names[kind] != nullptr) return d->names[kind];
    return name_table(h, kind);
}

// The era of a valid date (year - 1900, month from 0, day), with the spans known_era_spans
// gave: -1 for none.
inline int era_of_date(nu_locale_rec *h, const EraSpan *spans, int32_t year, int32_t month,
                       int32_t mday) {
    const int era = static_cast<uint32_t>(year) < kEraYears
                        ? static_cast<const DerivedHead *>(h->time.era_cache)->era_of_year[year]
                        : kEraChanges;
    return era != kEraChanges ? era : era_of(spans, h->time.era_count, year, month, mday);
}

// The index of the era a date (year - 1900, month from 0, day) falls in, with the spans in
// *found when given; -1 when none does, -2 when the era cache cannot be made (NU_ENOMEM stored).
inline int find_era(nu_locale_rec *h, int32_t year, int32_t month, int32_t mday,
                    const EraSpan **found = nullptr) {
    if (h->time.era_count <= 0 || h->time.eras == nullptr) return -1;
    const EraSpan *spans = known_era_spans(h);
    if (spans == nullptr) return -2;
    if (found != nullptr) *found = spans;
    if (month >= 0 && month <= 11 && mday >= 1 && mday <= 31)
        return era_of_date(h, spans, year, month, mday);
    return era_by_fields(spans, h->time.era_count, year, month, mday);
}

// Whether the multibyte format f is the key of program p (not null): compared as the strings
// they are, counted up to the key's end from below it, so that a byte of the format is read
// only once the one before it, equal to a byte of the key (which holds no zero), is known to be
// no terminator.
inline bool same_format(const ProgramHeader *p, const unsigned char *f) {
    const ptrdiff_t n = p->key_bytes;   // at least 1
    const unsigned char *k = p->key + n;
    f += n;
    // A key of up to eight bytes without a loop, from its first byte (byte n - c at case c).
    switch (n) {
    case 8: if (f[-8] != k[-8]) return false; [[fallthrough]];
    case 7: if (f[-7] != k[-7]) return false; [[fallthrough]];
    case 6: if (f[-6] != k[-6]) return false; [[fallthrough]];
    case 5: if (f[-5] != k[-5]) return false; [[fallthrough]];
    case 4: if (f[-4] != k[-4]) return false; [[fallthrough]];
    case 3: if (f[-3] != k[-3]) return false; [[fallthrough]];
    case 2: if (f[-2] != k[-2]) return false; [[fallthrough]];
    case 1: return f[-1] == k[-1] && *f == 0;
    default: break;
    }
    ptrdiff_t i = -n;
    do {
        if (f[i] != k[i]) return false;
    } while (++i != 0);
    return *f == 0;
}
// The program of `kind` used last when its format is `format`, found without a call; null
// otherwise (the program used last is always one of a multibyte format).
inline const ProgramHeader *last_program(nu_locale_rec *h, ProgramKind kind, const char *format) {
    const auto *d = static_cast<const DerivedHead *>(h->time.era_cache);
    if (d == nullptr) return nullptr;
    const ProgramHeader *last = d->last[kind];
    return last != nullptr && same_format(last, reinterpret_cast<const unsigned char *>(format))
               ? last
               : nullptr;
}
// find_program of a multibyte format, the program used last tried first.
inline const ProgramHeader *find_format_program(nu_locale_rec *h, ProgramKind kind, const char *format) {
    if (const ProgramHeader *p = last_program(h, kind, format)) return p;
    return find_program(h, kind, format);
}

// Days from the first day of the first ISO week of a year to day yday of the year whose
// weekday is wday; yday may be as small as -366.
constexpr int iso_week_days(int yday, int wday) {
    constexpr int kBig = (366 / 7 + 2) * 7;
    return yday - (yday - wday + 4 + kBig) % 7 + 3;
}

// ISO 8601 week-based year (full) and week (1 to 53) of a date given by its full year, day of
// year and day of week.
struct IsoWeek {
    int year;
    int week;
};
constexpr IsoWeek iso_week(int year, int yday, int wday) {
    int days = iso_week_days(yday, wday);
    if (days < 0) {
        --year;
        days = iso_week_days(yday + (365 + (gregorian_leap(year) ? 1 : 0)), wday);
    } else {
        const int d = iso_week_days(yday - (365 + (gregorian_leap(year) ? 1 : 0)), wday);
        if (d >= 0) {
            ++year;
            days = d;
        }
    }
    return {year, days / 7 + 1};
}

// Length of a Gregorian month (from 0) of a full year.
inline constexpr int kMonthLength[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
constexpr int month_length(int month, int year) {
    return month == 1 && gregorian_leap(year) ? 29 : kMonthLength[month];
}

// Range checks of a time value's words; 0, or the error code of the first word out of range.
// `date` also checks the day of month against the month's length.
// fraction, seconds, minutes, hour
inline int check_time(const nu_time_rec &t) {
    if (t.fraction < 0 || t.fraction > 999999) return NU_EFRACTION;
    if (t.second < 0 || t.second > 60) return NU_ESECOND;   // 60: a leap second
    if (t.minute < 0 || t.minute > 59) return NU_EMINUTE;
    if (t.hour < 0 || t.hour > 23) return NU_EHOUR;
    return 0;
}
// year 1 to 9999, month, day of month
inline int check_date(const nu_time_rec &t) {
    if (t.year < 1 - 1900 || t.year > 9999 - 1900) return NU_EYEAR;
    if (t.month < 0 || t.month > 11) return NU_EMONTH;
    if (t.mday < 1 || t.mday > month_length(t.month, t.year + 1900)) return NU_EMDAY;
    return 0;
}

// Days from 1970-01-01 of a valid Gregorian date (full year, month from 0, day).
int64_t epoch_days(int year, int month, int mday);

// A null-terminated multibyte string of the handle's code set as wide characters, with the
// byte offset of each (for the parser's stopping point): on the stack up to N characters, from
// the library allocator above. One decoding pass in code sets whose terminator is one byte
// (a string of n bytes has at most n characters); the others are measured first.
template <size_t N>
class Widened {
public:
    Widened(nu_locale_rec *h, const char *s) : size_(capacity(h, s)), wide_(size_), offsets_(size_) {
        if (size_ == 0 || !wide_.ok() || !offsets_.ok()) return;
        nu_wchar *w = wide_.data();
        int32_t *o = offsets_.data();
        const auto *p = reinterpret_cast<const unsigned char *>(s);
        size_t k = 0, at = 0;
        if (h->single_byte) {
#if defined(__SSE2__)
            for (const size_t bytes = size_ - 1; at + 16 <= bytes; at += 16, k += 16)
                widen16(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p + at)), w + k, o + k, at);
#endif
            for (; p[at] != 0; ++at, ++k) {
                w[k] = p[at];
                o[k] = static_cast<int32_t>(at);
            }
        } else {
            const int m = term_length(h);
            const bool direct = m == 1 && h->ascii_direct;
#if defined(__SSE2__)
            // With a one-byte terminator the string's length is known (the capacity): runs of
            // sixteen ASCII bytes are widened at once.
            const size_t bytes = m == 1 ? size_ - 1 : 0;
#endif
            for (;;) {
#if defined(__SSE2__)
                if (direct && at + 16 <= bytes) {
                    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p + at));
                    if (_mm_movemask_epi8(v) == 0) {
                        widen16(v, w + k, o + k, at);
                        k += 16;
                        at += 16;
                        continue;
                    }
                }
#endif
                if (direct && p[at] < 0x80) {   // an ASCII byte is its character
                    if (p[at] == 0) break;
                    w[k] = p[at];
                    o[k++] = static_cast<int32_t>(at++);
                    continue;
                }
                int zeros = 0;
                while (zeros < m && p[at + static_cast<size_t>(zeros)] == 0) ++zeros;
                if (zeros == m) break;   // the terminator
                if (k + 1 >= size_) return;   // cannot happen: the capacity bounds it
                const Walk step = walk(h->ctype.class_table, p + at, 4);
                if (step.status != 0) {
                    set_error(h, step.status);
                    return;
                }
                w[k] = step.wc;
                o[k++] = static_cast<int32_t>(at);
                at += static_cast<size_t>(step.length);
            }
        }
        w[k] = 0;
        o[k] = static_cast<int32_t>(at);
        text_ = w;
        at_ = o;
    }
    // Null when the text does not decode (error stored) or memory was short (no_memory()).
    const nu_wchar *get() const { return text_; }
    bool no_memory() const { return size_ != 0 && (!wide_.ok() || !offsets_.ok()); }
    // The byte offset of character k (k up to the character count).
    long offset(long k) const { return at_[k]; }

private:
#if defined(__SSE2__)
    // Sixteen bytes that are their own characters, loaded from byte offset `at`, as
    // characters and offsets.
    static void widen16(__m128i v, nu_wchar *w, int32_t *o, size_t at) {
        const __m128i zero = _mm_setzero_si128();
        const __m128i lo = _mm_unpacklo_epi8(v, zero), hi = _mm_unpackhi_epi8(v, zero);
        auto *wk = reinterpret_cast<__m128i *>(w);
        _mm_storeu_si128(wk, _mm_unpacklo_epi16(lo, zero));
        _mm_storeu_si128(wk + 1, _mm_unpackhi_epi16(lo, zero));
        _mm_storeu_si128(wk + 2, _mm_unpacklo_epi16(hi, zero));
        _mm_storeu_si128(wk + 3, _mm_unpackhi_epi16(hi, zero));
        const __m128i base =
            _mm_add_epi32(_mm_set1_epi32(static_cast<int32_t>(at)), _mm_setr_epi32(0, 1, 2, 3));
        auto *ok = reinterpret_cast<__m128i *>(o);
        _mm_storeu_si128(ok, base);
        _mm_storeu_si128(ok + 1, _mm_add_epi32(base, _mm_set1_epi32(4)));
        _mm_storeu_si128(ok + 2, _mm_add_epi32(base, _mm_set1_epi32(8)));
        _mm_storeu_si128(ok + 3, _mm_add_epi32(base, _mm_set1_epi32(12)));
    }
#endif
    static size_t capacity(nu_locale_rec *h, const char *s) {
        if (term_length(h) == 1) return std::strlen(s) + 1;
        const int n = _nu_im_mbslen(h, reinterpret_cast<const unsigned char *>(s));
        return n < 0 ? 0 : static_cast<size_t>(n) + 1;
    }
    size_t size_;
    Scratch<nu_wchar, N> wide_;
    Scratch<int32_t, N> offsets_;
    const nu_wchar *text_ = nullptr;
    const int32_t *at_ = nullptr;
};

// The composite conversions of a fixed form (%D %F %R %T %r), as wide strings.
template <size_t N>
struct Fixed {
    nu_wchar w[N];
    constexpr Fixed(const char (&s)[N]) : w{} {
        for (size_t i = 0; i < N; ++i) w[i] = static_cast<unsigned char>(s[i]);
    }
};
constexpr Fixed kFmtD("%m/%d/%y");
constexpr Fixed kFmtF("%Y-%m-%d");
constexpr Fixed kFmtR("%H:%M");
constexpr Fixed kFmtT("%H:%M:%S");
constexpr Fixed kFmtr("%I:%M:%S %p");

// The format a composite conversion (%c %x %X %D %F %R %T %r) stands for, given the modifier
// it is written with; null for any other conversion and for a modifier it does not take
// (which the conversion itself reports).
inline const nu_wchar *composite_format(const TimeFields &t, nu_wchar c, int mod) {
    auto pick = [&](const CatString &era, const CatString &plain) {
        return mod == 'E' && *wide(era) != 0 ? wide(era) : wide(plain);
    };
    switch (c) {
    case 'c':
        return mod == 'O' ? nullptr : pick(t.era_date_time_format, t.date_time_format);
    case 'x':
        return mod == 'O' ? nullptr : pick(t.era_date_format, t.date_format);
    case 'X':
        return mod == 'O' ? nullptr : pick(t.era_time_format, t.time_format);
    case 'D':
        return mod == 0 ? kFmtD.w : nullptr;
    case 'F':
        return mod == 0 ? kFmtF.w : nullptr;
    case 'R':
        return kFmtR.w;
    case 'T':
        return kFmtT.w;
    case 'r':
        return *wide(t.time_format_ampm) != 0 ? wide(t.time_format_ampm) : kFmtr.w;
    default:
        return nullptr;
    }
}

} // namespace nus::tm
