// Numbers and text: strtol/strtoul/strtod with the locale's blanks, signs, decimal point and
// thousands grouping around the system conversions, and integers written in any base with
// the locale's separators.
#include "numeric/numeric.h"

#include <cerrno>
#include <climits>
#include <clocale>

namespace {

using nus::Grouping;
using nus::num::match_backward;
using nus::num::match_forward;
using nus::num::wclass;
using nus::num::wide;

constexpr long kFailure = 2147483647L;      // the failure value of every conversion here
constexpr double kFailureDouble = 2147483647.0;
constexpr int kBufferChars = 256;           // the system conversion's text, sign included

// Skips the locale's blanks; counts them.
const nu_wchar *skip_spaces(nu_locale_rec *h, const nu_wchar *p) {
    while (*p != 0 && wclass(h, *p, NU_CLASS_SPACE) != 0) ++p;
    return p;
}

// The sign: the locale's negative string, its positive string, an ASCII '-' or '+'. Writes
// the sign character (or nothing) at *cursor.
const nu_wchar *take_sign(const nu_wchar *p, const nu_wchar *negative, const nu_wchar *positive,
                          char **cursor) {
    int n;
    if (*negative != 0 && (n = match_forward(p, negative)) > 0) {
        *(*cursor)++ = '-';
        return p + n;
    }
    if (*positive != 0 && (n = match_forward(p, positive)) > 0) {
        *(*cursor)++ = '+';
        return p + n;
    }
    if (*p == '-' || *p == '+') *(*cursor)++ = static_cast<char>(*p++);
    return p;
}

// A wide character as a byte of the system conversion's text; characters above 255 become a
// byte no conversion takes for a digit.
char as_byte(nu_wchar wc) { return wc <= 0xFF ? static_cast<char>(wc) : '\x7f'; }

// The grouped text from p to its end, copied backwards group by group into `out` (reversed
// back before returning): 0, or -1 with NU_EINVAL when a separator is missing where a group
// ends or the text is too long. Separator characters skipped go to *skipped.
int ungroup(nu_locale_rec *h, const nu_wchar *p, const Grouping &g, const nu_wchar *sep,
            char *out, int room, int *skipped) {
    const int length = nus::num::wlen(p);
    if (length >= kBufferChars || length >= room) {
        nus::set_error(h, NU_EINVAL);
        return -1;
    }
    int index = 0;                                  // 0-based entry of the list in force
    int size = g.count > 0 ? g.sizes[0] : 0;
    int in_group = 0, n = 0;
    *skipped = 0;
    for (int i = length - 1; i >= 0; --i) {
        out[n++] = as_byte(p[i]);
        if (size <= 0 || ++in_group < size || i == 0) continue;
        const int s = match_backward(p, p + i - 1, sep);
        if (s == 0) {
            nus::set_error(h, NU_EINVAL);
            return -1;
        }
        i -= s;
        *skipped += s;
        in_group = 0;
        if (index < g.count - 1) ++index;
        size = g.sizes[index];                      // a size of 0 or less ends grouping
    }
    for (int a = 0, b = n - 1; a < b; ++a, --b) std::swap(out[a], out[b]);
    out[n] = 0;
    return 0;
}

template <typename T>
T wcs_to_integer(nu_locale_rec *h, const nu_wchar *ws, nu_wchar **end, int base, int grouping,
                 T (*convert)(const char *, char **, int)) {
    if (nus::no_handle(h) || nus::missing(h, ws)) return static_cast<T>(kFailure);
    const nu_wchar *p = skip_spaces(h, ws);
    const long spaces = p - ws;
    char buffer[kBufferChars + 2];
    char *cursor = buffer;
    p = take_sign(p, wide(h->lc.negative_sign), wide(h->lc.positive_sign), &cursor);
    int skipped = 0;
    if (!grouping) {
        char *limit = buffer + kBufferChars;
        while (*p != 0 && *p <= 0xFF && cursor < limit) *cursor++ = static_cast<char>(*p++);
        *cursor = 0;
    } else if (ungroup(h, p, h->lc.grouping, wide(h->lc.thousands_sep), cursor,
                       static_cast<int>(buffer + kBufferChars - cursor), &skipped) != 0) {
        return static_cast<T>(kFailure);
    }
    // A base the system conversion does not define converts nothing and stores no end, as
    // the system library does, without handing it the base (which leaves its end pointer to
    // whoever implements it).
    if (base != 0 && (base < 2 || base > 36)) return 0;
    errno = 0;
    char *stop = nullptr;
    const T value = convert(buffer, &stop, base);
    // The sign counts as one character whatever the length of the locale's sign string:
    // kept for compatibility.
    if (end != nullptr && stop != nullptr)
        *end = const_cast<nu_wchar *>(ws + spaces + skipped + (stop - buffer));
    return value;
}

long system_strtol(const char *s, char **end, int base) { return std::strtol(s, end, base); }
unsigned long system_strtoul(const char *s, char **end, int base) {
    return std::strtoul(s, end, base);
}

// The multibyte front ends: the input widened, the wide form, its end mapped back.
template <typename T, typename Wide>
T mbs_to_number(nu_locale_rec *h, const char *s, char **end, T failure, T empty, Wide wide_form) {
    if (end != nullptr) *end = nullptr;
    if (nus::no_handle(h)) return failure;
    // Empty: the terminator, as many zero bytes as the shortest character, stands first.
    if (s == nullptr || nu_ismbsterm(h, reinterpret_cast<const unsigned char *>(s)) != 0) {
        nus::set_error(h, NU_ERANGE);
        return empty;
    }
    nus::num::WideText<128> wide_text(h, s);
    if (wide_text.no_memory()) {
        nus::set_error(h, NU_ENOMEM);
        return failure;
    }
    nu_wchar *w = wide_text.get();
    if (w == nullptr || w[0] == 0) return failure;
    errno = 0;
    nu_wchar *wide_end = nullptr;
    const T value = wide_form(w, end != nullptr ? &wide_end : nullptr);
    if (errno == ERANGE) {
        nus::set_error(h, NU_ERANGE);
        return failure;
    }
    if (end != nullptr && wide_end != nullptr) {
        const char *mb_end = nus::num::step_chars(h, s, wide_end - w);
        if (mb_end == nullptr) return static_cast<T>(-1);
        *end = const_cast<char *>(mb_end);
    }
    return value;
}

// Separators that a grouped number of `length` characters (its '-' included, so a negative
// number may reserve one more than it receives: kept for compatibility) reserves.
int count_separators(const Grouping &g, int length) {
    if (g.count < 1) return 0;
    int index = 0, size = g.sizes[0], run = 0, seps = 0;
    for (int i = 0; i < length; ++i) {
        if (size > 0 && ++run == size) {
            ++seps;
            run = 0;
            if (index < g.count - 1) size = g.sizes[++index];
        }
    }
    return seps;
}

void to_wcs(nu_locale_rec *h, nu_wchar *out, int size, unsigned long magnitude, bool negative,
            int base, int grouping) {
    if (out == nullptr || size < 1) return;
    out[0] = 0;
    if (nus::no_handle(h)) return;
    if (base < 2 || base > 36) return;
    char text[80];
    char *digits = text;
    if (negative) *digits++ = '-';
    nus::num::long_base_str(digits, magnitude, base);
    const int length = static_cast<int>(std::strlen(text));
    int seps = 0, sep_length = 0;
    if (grouping) {
        seps = count_separators(h->lc.grouping, length);
        sep_length = nus::num::wlen(wide(h->lc.thousands_sep));
    }
    // The whole text and its terminator must fit; the ungrouped text is checked as well, so
    // that nothing is written past the output.
    if (static_cast<long>(length) + static_cast<long>(seps) * sep_length + 1 > size) return;
    for (int i = 0; i <= length; ++i) out[i] = static_cast<unsigned char>(text[i]);
    if (grouping) nus::num::add_grp_sep(h, out, length, negative ? 1 : 0);
}

int to_mbs(nu_locale_rec *h, char *out, int size, unsigned long magnitude, bool negative,
           int base, int grouping) {
    if (nus::no_handle(h)) return -1;
    if (out == nullptr || size < 1) return 0;
    nu_wchar wide_text[kBufferChars];
    to_wcs(h, wide_text, kBufferChars, magnitude, negative, base, grouping);
    char bytes[4 * kBufferChars + 4];
    const int written = nus::num::to_multibyte(h, bytes, wide_text, kBufferChars);
    const int m = nu_mb_loc_min(h) > 0 ? nu_mb_loc_min(h) : 1;
    // The caller's size bounds the copy: a text that does not fit leaves the empty string
    // (as much of its terminator as fits).
    if (written < 0 || written + m > size) {
        std::memset(out, 0, static_cast<size_t>(m < size ? m : size));
        return written < 0 ? written : 0;
    }
    std::memcpy(out, bytes, static_cast<size_t>(written));
    for (int i = 0; i < m; ++i) out[written + i] = 0;
    return written;
}

unsigned long magnitude_of(long value) {
    return value < 0 ? 0UL - static_cast<unsigned long>(value) : static_cast<unsigned long>(value);
}

} // namespace

namespace nus::num {

const char *step_chars(nu_locale_rec *h, const char *s, long k) {
    if (h->single_byte) return s + k;
    const auto *p = reinterpret_cast<const unsigned char *>(s);
    for (long i = 0; i < k; ++i) {
        const Walk w = walk(h->ctype.class_table, p, 4);
        if (w.status != 0) {
            set_error(h, w.status);
            return nullptr;
        }
        p += w.length;
    }
    return reinterpret_cast<const char *>(p);
}

int match_forward(const nu_wchar *pos, const nu_wchar *what) {
    int n = 0;
    for (; what[n] != 0; ++n)
        if (pos[n] != what[n]) return 0;
    return n;
}

int match_backward(const nu_wchar *start, const nu_wchar *pos, const nu_wchar *what) {
    const int n = wlen(what);
    if (n == 0 || pos - start < n - 1) return 0;
    const nu_wchar *first = pos - (n - 1);
    for (int i = 0; i < n; ++i)
        if (first[i] != what[i]) return 0;
    return n;
}

void long_base_str(char *out, unsigned long magnitude, int base) {
    char reversed[72];
    int n = 0;
    do {
        const int digit = static_cast<int>(magnitude % static_cast<unsigned long>(base));
        reversed[n++] = static_cast<char>(digit < 10 ? '0' + digit : 'A' + digit - 10);
        magnitude /= static_cast<unsigned long>(base);
    } while (magnitude != 0);
    reversed[n] = 0;
    str_reverse(reversed, out);
}

void str_reverse(const char *source, char *destination) {
    const size_t n = std::strlen(source);
    for (size_t i = 0; i < n; ++i) destination[i] = source[n - 1 - i];
    destination[n] = 0;
}

void add_grp_sep(nu_locale_rec *h, nu_wchar *digits, int length, int negative) {
    const Grouping &g = h->lc.grouping;
    const nu_wchar *sep = wide(h->lc.thousands_sep);
    const int sep_length = wlen(sep);
    if (g.count < 1 || sep_length == 0) return;
    // First the number of separators the digits receive ('-' is no digit), then the text
    // rewritten from the right.
    const int first = negative ? 1 : 0;
    int total = 0;
    {
        int index = 0, size = g.sizes[0], run = 0;
        for (int i = length - 1; i >= first; --i) {
            if (size > 0 && run == size) {
                ++total;
                run = 0;
                if (index < g.count - 1) size = g.sizes[++index];
            }
            ++run;
        }
    }
    int to = length + total * sep_length;
    digits[to] = 0;
    int index = 0, size = g.sizes[0], run = 0;
    for (int i = length - 1; i >= first; --i) {
        if (size > 0 && run == size) {
            for (int k = sep_length - 1; k >= 0; --k) digits[--to] = sep[k];
            run = 0;
            if (index < g.count - 1) size = g.sizes[++index];
        }
        digits[--to] = digits[i];
        ++run;
    }
}

int wcsdigits_to_str(nu_locale_rec *h, const nu_wchar **pos, char **cursor, char *limit,
                     int monetary, int grouping) {
    const nu_wchar *p = *pos;
    if (!grouping) {
        if (*p > 0xFF || !c_isdigit(static_cast<int>(*p))) return -1;
        while (c_isdigit(static_cast<int>(*p))) {
            // Digits beyond what the conversion text holds: the number is refused.
            if (*cursor >= limit) {
                set_error(h, NU_EINVAL);
                return -1;
            }
            *(*cursor)++ = static_cast<char>(*p++);
        }
        *pos = p;
        return 0;
    }
    const Grouping &g = monetary ? h->lc.mon_grouping : h->lc.grouping;
    const nu_wchar *sep = wide(monetary ? h->lc.mon_thousands_sep : h->lc.thousands_sep);
    // The stretch of digits and separators.
    const nu_wchar *q = p;
    long stretch = 0;
    for (;;) {
        if (*q != 0 && wclass(h, *q, NU_CLASS_DIGIT) != 0) {
            ++q;
            ++stretch;
        } else if (const int s = match_forward(q, sep); s > 0) {
            q += s;
            stretch += s;
        } else {
            break;
        }
        if (stretch > kBufferChars) {
            set_error(h, NU_EINVAL);
            return -1;
        }
    }
    if (q == p) return -1;
    const int n = ungroup_digits(p, q, g, sep, 10, *cursor, static_cast<int>(limit - *cursor));
    if (n == -1) return -1;
    if (n < 0) {
        set_error(h, NU_EINVAL);
        return -1;
    }
    *cursor += n;
    *pos = q;
    return 0;
}

int digit_value(nu_wchar wc) {
    if (wc >= '0' && wc <= '9') return static_cast<int>(wc - '0');
    if (wc >= 'a' && wc <= 'z') return static_cast<int>(wc - 'a' + 10);
    if (wc >= 'A' && wc <= 'Z') return static_cast<int>(wc - 'A' + 10);
    return 99;
}

int ungroup_digits(const nu_wchar *p, const nu_wchar *q, const Grouping &g, const nu_wchar *sep,
                   int base, char *out, int room) {
    char reversed[kBufferChars + 2];
    int n = 0, index = 0, in_group = 0;
    int size = g.count > 0 ? g.sizes[0] : 0;
    for (const nu_wchar *r = q - 1; r >= p; --r) {
        if (digit_value(*r) >= base) return -1;
        if (n >= kBufferChars) return -2;
        reversed[n++] = static_cast<char>(*r);
        if (size <= 0 || ++in_group < size || r == p) continue;
        const int s = match_backward(p, r - 1, sep);
        if (s == 0) return -2;
        r -= s;
        in_group = 0;
        if (index < g.count - 1) ++index;
        size = g.sizes[index];
    }
    if (n > room) return -2;
    for (int i = 0; i < n; ++i) out[i] = reversed[n - 1 - i];
    return n;
}

double text_to_double(char *text, char **stop) {
    double value;
    *stop = text + std::strlen(text);
    // Short texts are read exactly without the system conversion (the same double).
    if (fast_decimal(text, &value)) return value;
    // The system conversion reads the decimal mark of the process's locale: the text is
    // given that mark when it differs.
    const int mark = nu_getDecimalCharIndex(text);
    const char process_point = *std::localeconv()->decimal_point;
    if (mark >= 0 && text[mark] != process_point) text[mark] = process_point;
    return std::strtod(text, stop);
}

int wcsfracdigits_to_str(nu_locale_rec *h, const nu_wchar **pos, char **cursor, char *limit,
                         int monetary) {
    const nu_wchar *p = *pos;
    auto put = [&](nu_wchar c) {
        // Fraction and exponent digits beyond the conversion text are consumed and dropped.
        if (*cursor < limit) *(*cursor)++ = static_cast<char>(c);
    };
    auto digits = [&] {
        while (*p <= 0xFF && c_isdigit(static_cast<int>(*p))) put(*p++);
    };
    auto exponent = [&] {
        const int mark = nu_iswcexponent(p);
        if (mark == 0 || !c_isdigit(static_cast<int>(p[mark] > 0xFF ? 0 : p[mark]))) return;
        for (int i = 0; i < mark; ++i) put(*p++);
        digits();
    };
    const int point = nu_iswcdecml(h, p, 0, monetary);
    if (point > 0) {
        put('.');
        p += point;
        digits();
    }
    exponent();
    *pos = p;
    return 0;
}

} // namespace nus::num

NU_EXPORT long nu_wcstol(nu_locale_t h, const nu_wchar *ws, nu_wchar **end, int base,
                         int grouping) {
    return wcs_to_integer<long>(h, ws, end, base, grouping, system_strtol);
}

NU_EXPORT unsigned long nu_wcstoul(nu_locale_t h, const nu_wchar *ws, nu_wchar **end, int base,
                                   int grouping) {
    // A grouping failure returns the signed maximum here too: kept for compatibility.
    return wcs_to_integer<unsigned long>(h, ws, end, base, grouping, system_strtoul);
}

NU_EXPORT long nu_mbstol(nu_locale_t h, const char *s, char **end, int base, int grouping) {
    return mbs_to_number<long>(h, s, end, kFailure, kFailure, [&](nu_wchar *w, nu_wchar **e) {
        return nu_wcstol(h, w, e, base, grouping);
    });
}

NU_EXPORT unsigned long nu_mbstoul(nu_locale_t h, const char *s, char **end, int base,
                                   int grouping) {
    return mbs_to_number<unsigned long>(h, s, end, static_cast<unsigned long>(kFailure),
                                        ULONG_MAX, [&](nu_wchar *w, nu_wchar **e) {
                                            return nu_wcstoul(h, w, e, base, grouping);
                                        });
}

NU_EXPORT void nu_ltowcs(nu_locale_t h, nu_wchar *out, int size, long value, int base,
                         int grouping) {
    to_wcs(h, out, size, magnitude_of(value), value < 0, base, grouping);
}

NU_EXPORT void nu_ultowcs(nu_locale_t h, nu_wchar *out, int size, unsigned long value, int base,
                          int grouping) {
    to_wcs(h, out, size, value, false, base, grouping);
}

NU_EXPORT int nu_ltombs(nu_locale_t h, char *out, int size, long value, int base, int grouping) {
    return to_mbs(h, out, size, magnitude_of(value), value < 0, base, grouping);
}

NU_EXPORT int nu_ultombs(nu_locale_t h, char *out, int size, unsigned long value, int base,
                         int grouping) {
    return to_mbs(h, out, size, value, false, base, grouping);
}

NU_EXPORT int nu_iswgrpsymb(nu_locale_t h, const nu_wchar *pos, int direction, int which) {
    if (nus::no_handle(h) || nus::missing(h, pos)) return 0;
    const nu_wchar *sep = wide(which ? h->lc.mon_thousands_sep : h->lc.thousands_sep);
    if (direction == 0) return nus::num::match_forward(pos, sep);
    const int n = nus::num::wlen(sep);
    return n == 0 ? 0 : match_backward(pos - (n - 1), pos, sep);
}

NU_EXPORT int nu_iswcdecml(nu_locale_t h, const nu_wchar *pos, int direction, int which) {
    if (nus::no_handle(h) || nus::missing(h, pos)) return 0;
    const nu_wchar *point = wide(which ? h->lc.mon_decimal_point : h->lc.decimal_point);
    if (direction == 0) return nus::num::match_forward(pos, point);
    const int n = nus::num::wlen(point);
    return n == 0 ? 0 : match_backward(pos - (n - 1), pos, point);
}

NU_EXPORT int nu_iswcexponent(const nu_wchar *pos) {
    if (*pos != 'e' && *pos != 'E') return 0;
    return pos[1] == '+' || pos[1] == '-' ? 2 : 1;
}

NU_EXPORT double nu_wcstod_num_mon(nu_locale_t h, const nu_wchar *ws, nu_wchar **end,
                                   int grouping, int monetary) {
    if (nus::no_handle(h) || nus::missing(h, ws)) return 0.0;
    const nu_wchar *p = skip_spaces(h, ws);
    const nus::LconvFields &lc = h->lc;
    const nu_wchar *positive = wide(monetary ? lc.mon_positive_sign : lc.positive_sign);
    const nu_wchar *negative = wide(monetary ? lc.mon_negative_sign : lc.negative_sign);
    const nu_wchar *point = wide(monetary ? lc.mon_decimal_point : lc.decimal_point);
    char buffer[kBufferChars + 8];
    char *cursor = buffer;
    char *limit = buffer + kBufferChars;
    p = take_sign(p, negative, positive, &cursor);
    if (cursor > buffer && buffer[0] == '+') cursor = buffer;   // a plus sign is skipped
    // A number may begin with its decimal point.
    if (*point == 0 || *p != *point) {
        if (nus::num::wcsdigits_to_str(h, &p, &cursor, limit, monetary, grouping) != 0) {
            if (end != nullptr) *end = const_cast<nu_wchar *>(ws);
            return 0.0;
        }
    }
    nus::num::wcsfracdigits_to_str(h, &p, &cursor, limit, monetary);
    *cursor = 0;
    errno = 0;
    char *stop = cursor;
    const double value = nus::num::text_to_double(buffer, &stop);
    if (stop == buffer && buffer[0] != 0) nus::set_error(h, NU_ENOMATCH);
    if (end != nullptr && stop != nullptr) *end = const_cast<nu_wchar *>(p);
    return value;
}

NU_EXPORT double nu_wcstod(nu_locale_t h, const nu_wchar *ws, nu_wchar **end, int grouping) {
    return nu_wcstod_num_mon(h, ws, end, grouping, 0);
}

NU_EXPORT double nu_mbstod(nu_locale_t h, const char *s, char **end, int grouping) {
    return mbs_to_number<double>(h, s, end, kFailureDouble, kFailureDouble,
                                 [&](nu_wchar *w, nu_wchar **e) {
                                     return nu_wcstod(h, w, e, grouping);
                                 });
}
