// Reading numbers by a format: the inverse of the locale's printf. Each conversion reads the
// field the formatter writes for it (padding, the locale's signs, "0x", digits grouped with
// the thousands separator and checked group by group, the decimal point, an exponent) and
// stores the value through the next pointer argument, as scanf does.
#include "numeric/numeric.h"

#include <cerrno>
#include <climits>
#include <algorithm>
#include <cmath>

namespace {

using nus::num::match_forward;
using nus::num::wclass;
using nus::num::wide;

constexpr int kMaxDigits = 256;     // integer digits (and their separators) of one field
constexpr int kMaxFraction = 64;    // fraction and exponent digits kept for the conversion

nu_wchar *fail(nu_locale_rec *h, int code) {
    nus::set_error(h, code);
    return nullptr;
}

bool is_space(nu_locale_rec *h, nu_wchar wc) {
    return wc != 0 && wclass(h, wc, NU_CLASS_SPACE) != 0;
}

// Display columns of one character as the formatter counts them for padding: 2 for the
// locale's "full_width" class, else 1.
struct Columns {
    nu_locale_rec *h;
    int full_width = -1;
    int of(nu_wchar wc) {
        if (full_width < 0) full_width = nu_ctype(h, "full_width");
        if (full_width == 0) return 1;
        int mask;
        if (h->single_byte && h->sb_class != nullptr) mask = wc > 0xFF ? 0 : h->sb_class[wc];
        else mask = _nu_im_iswctype(h, wc, 0xFFFF);
        return (mask & full_width) != 0 ? 2 : 1;
    }
    int of(const nu_wchar *from, const nu_wchar *to) {
        int sum = 0;
        for (; from < to; ++from) sum += of(*from);
        return sum;
    }
};

// The sign before a number: the locale's negative string, its positive string, an ASCII '-'
// or '+' (the first that matches). Advances p; true for a negative sign.
bool take_sign(nu_locale_rec *h, const nu_wchar **p) {
    const nu_wchar *negative = wide(h->lc.negative_sign);
    const nu_wchar *positive = wide(h->lc.positive_sign);
    int n;
    if (*negative != 0 && (n = match_forward(*p, negative)) > 0) {
        *p += n;
        return true;
    }
    if (*positive != 0 && (n = match_forward(*p, positive)) > 0) {
        *p += n;
        return false;
    }
    if (**p == '-' || **p == '+') return *(*p)++ == '-';
    return false;
}

bool is_digit(nu_wchar wc, int base) { return nus::num::digit_value(wc) < base; }

// The integer digits at *p in `base` into out (at least kMaxDigits bytes): with grouping,
// the longest stretch of digits and separators (each separator followed by a digit) whose
// groups are right; without, the run of digits. Their count and *p advanced; 0 when no digit
// stands there (nothing consumed); -1 with the error stored.
int integer_digits(nu_locale_rec *h, const nu_wchar **p, int base, bool grouping, char *out,
                   bool carry = false) {
    const nu_wchar *start = *p, *q = start;
    const nu_wchar *sep = wide(h->lc.thousands_sep);
    grouping = grouping && *sep != 0 && h->lc.grouping.count > 0;
    // Where the number may end: before each separator, and at the end of the stretch.
    const nu_wchar *ends[kMaxDigits / 2 + 2];
    int n_ends = 0;
    for (;;) {
        if (q - start > kMaxDigits) {
            nus::set_error(h, NU_EINVAL);
            return -1;
        }
        if (is_digit(*q, base)) {
            ++q;
            continue;
        }
        int s;
        if (grouping && q > start && (s = match_forward(q, sep)) > 0 && is_digit(q[s], base)) {
            ends[n_ends++] = q;
            q += s;
            continue;
        }
        break;
    }
    if (q == start) return 0;
    ends[n_ends++] = q;
    if (!grouping) {
        for (const nu_wchar *r = start; r < q; ++r) *out++ = static_cast<char>(*r);
        *p = q;
        return static_cast<int>(q - start);
    }
    // Zeros that pad the field (the "0" flag, a precision) are written without separators:
    // when the whole text does not group right, it is tried again after them.
    const nu_wchar *after_zeros = start;
    while (*after_zeros == '0' && is_digit(after_zeros[1], base)) ++after_zeros;
    for (const nu_wchar *from : {start, after_zeros}) {
        for (int i = n_ends - 1; i >= 0; --i) {
            if (ends[i] <= from) break;
            const int n = nus::num::ungroup_digits(from, ends[i], h->lc.grouping, sep, base,
                                                   out, kMaxDigits);
            if (n > 0) {
                *p = ends[i];
                return n;
            }
        }
        if (after_zeros == start) break;
    }
    // Kept for compatibility: "%'f" counts the integer digits before rounding, so a value
    // that rounds up to a power of ten is written with the groups of the number one digit
    // shorter ("1000" for 999.9 with "%'.0f"). Such a text, a one and zeros only, is taken.
    if (carry && *start == '1') {
        bool zeros = true;
        for (const nu_wchar *r = start + 1; r < q && zeros; ++r)
            zeros = *r == '0' || !is_digit(*r, base);
        const int n = zeros ? nus::num::ungroup_digits(start, q - 1, h->lc.grouping, sep, base,
                                                       out, kMaxDigits - 1)
                            : -1;
        if (n > 0) {
            out[n] = '0';
            *p = q;
            return n + 1;
        }
    }
    // Grouped wrongly however much of it is taken: refused as the integer conversions
    // refuse it.
    nus::set_error(h, NU_EINVAL);
    return -1;
}

// An integer field. 0 with the sign and magnitude, or -1 with the error stored.
int read_integer(nu_locale_rec *h, const nu_wchar **in, int base, unsigned flags, bool *negative,
                 unsigned long long *magnitude) {
    const nu_wchar *p = *in;
    *negative = take_sign(h, &p);
    // "0x" before hexadecimal digits, after any zeros that pad the field ("%#08x").
    if (base == 16 && *p == '0') {
        const nu_wchar *z = p;
        while (*z == '0') ++z;
        if ((*z == 'x' || *z == 'X') && is_digit(z[1], 16)) p = z + 1;
    }
    char digits[kMaxDigits + 2];
    const int n = integer_digits(h, &p, base, (flags & NU_FMT_GROUP) != 0, digits);
    if (n < 0) return -1;
    if (n == 0) {
        nus::set_error(h, NU_EFORMAT);
        return -1;
    }
    unsigned long long value = 0;
    for (int i = 0; i < n; ++i) {
        const auto d = static_cast<unsigned long long>(nus::num::digit_value(digits[i]));
        if (value > (ULLONG_MAX - d) / static_cast<unsigned long long>(base)) {
            nus::set_error(h, NU_ERANGE);
            return -1;
        }
        value = value * static_cast<unsigned long long>(base) + d;
    }
    *magnitude = value;
    *in = p;
    return 0;
}

// "inf", "infinity" or "nan" in any case at p: its length, else 0.
int special_value(const nu_wchar *p, bool *nan) {
    auto word = [&](const char *w) {
        int i = 0;
        for (; w[i] != 0; ++i)
            if (p[i] > 0x7F || (p[i] | 0x20) != static_cast<nu_wchar>(w[i])) return 0;
        return i;
    };
    *nan = false;
    if (int n = word("infinity")) return n;
    if (int n = word("inf")) return n;
    *nan = true;
    return word("nan");
}

// A floating field. 0 with the value, or -1.
int read_double(nu_locale_rec *h, const nu_wchar **in, unsigned flags, nu_wchar conversion,
                double *value) {
    const nu_wchar *p = *in;
    const bool negative = take_sign(h, &p);
    bool nan;
    if (const int n = special_value(p, &nan)) {
        *value = nan ? std::nan("") : HUGE_VAL;
        if (negative) *value = -*value;
        *in = p + n;
        return 0;
    }
    char text[kMaxDigits + kMaxFraction + 16];
    char *cursor = text;
    if (negative) *cursor++ = '-';
    // Only "f" writes its integer digits grouped.
    const bool grouped = (flags & NU_FMT_GROUP) != 0 && conversion == 'f';
    const int n = integer_digits(h, &p, 10, grouped, cursor, grouped);
    if (n < 0) return -1;
    cursor += n;
    bool any = n > 0;
    char *const limit = cursor + kMaxFraction;     // fraction digits beyond are dropped
    auto digits = [&] {
        while (*p >= '0' && *p <= '9') {
            if (cursor < limit) *cursor++ = static_cast<char>(*p);
            ++p;
            any = true;
        }
    };
    const nu_wchar *point = wide(h->lc.decimal_point);
    const nu_wchar dot[2] = {'.', 0};
    if (*point == 0) point = dot;
    if (const int k = match_forward(p, point); k > 0 && (any || is_digit(p[k], 10))) {
        p += k;
        *cursor++ = '.';
        digits();
    }
    if (!any) {
        nus::set_error(h, NU_EFORMAT);
        return -1;
    }
    // The exponent, its sign written with the locale's sign strings or in ASCII; taken only
    // when a digit follows. Its value stops growing far beyond any double's.
    if (*p == 'e' || *p == 'E') {
        const nu_wchar *e = p + 1;
        const bool minus = take_sign(h, &e);
        if (is_digit(*e, 10)) {
            int exponent = 0;
            for (; is_digit(*e, 10); ++e) exponent = std::min(exponent * 10 + static_cast<int>(*e - '0'), 99999);
            p = e;
            *cursor++ = 'e';
            if (minus) *cursor++ = '-';
            char reversed[8];
            int k = 0;
            do reversed[k++] = static_cast<char>('0' + exponent % 10);
            while ((exponent /= 10) != 0);
            while (k > 0) *cursor++ = reversed[--k];
        }
    }
    *cursor = 0;
    errno = 0;
    char *stop = nullptr;
    const double v = nus::num::text_to_double(text, &stop);
    if (errno == ERANGE && std::isinf(v)) {
        nus::set_error(h, NU_ERANGE);
        return -1;
    }
    *value = v;
    *in = p;
    return 0;
}

// Stores an integer through the argument its conversion and length modifier name.
bool store_integer(nu_locale_rec *h, va_list &ap, bool is_unsigned, char length, bool negative,
                   unsigned long long magnitude, bool suppress, int *converted) {
    long long lo = 0;
    unsigned long long hi;
    if (is_unsigned) {
        hi = length == 'l' ? ULONG_MAX : length == 'h' ? USHRT_MAX : UINT_MAX;
    } else {
        lo = length == 'l' ? LONG_MIN : length == 'h' ? SHRT_MIN : INT_MIN;
        hi = static_cast<unsigned long long>(length == 'l' ? LONG_MAX
                                             : length == 'h' ? SHRT_MAX : INT_MAX);
    }
    // The lowest value's magnitude (0 for the unsigned conversions: only -0 passes).
    const unsigned long long lo_magnitude = 0ULL - static_cast<unsigned long long>(lo);
    if (negative ? magnitude > lo_magnitude : magnitude > hi) {
        nus::set_error(h, NU_ERANGE);
        return false;
    }
    if (suppress) return true;
    const unsigned long long bits = negative ? 0ULL - magnitude : magnitude;
    void *target = va_arg(ap, void *);
    if (target == nullptr) return true;
    if (is_unsigned) {
        if (length == 'l') *static_cast<unsigned long *>(target) = static_cast<unsigned long>(bits);
        else if (length == 'h') *static_cast<unsigned short *>(target) = static_cast<unsigned short>(bits);
        else *static_cast<unsigned *>(target) = static_cast<unsigned>(bits);
    } else {
        const auto v = static_cast<long long>(bits);
        if (length == 'l') *static_cast<long *>(target) = static_cast<long>(v);
        else if (length == 'h') *static_cast<short *>(target) = static_cast<short>(v);
        else *static_cast<int *>(target) = static_cast<int>(v);
    }
    ++*converted;
    return true;
}

int base_of(nu_wchar conversion) {
    switch (conversion) {
    case 'd': case 'i': case 'u': return 10;
    case 'o': return 8;
    case 'x': case 'X': return 16;
    case 'b': return 2;
    case 'q': return 4;
    default: return 0;
    }
}

bool is_float_conversion(nu_wchar c) {
    return c == 'e' || c == 'E' || c == 'f' || c == 'g' || c == 'G';
}

} // namespace

NU_EXPORT nu_wchar *nu_wcspnum1(nu_locale_t h, const nu_wchar *input, int *converted,
                                const nu_wchar *format, va_list args) {
    int ignored = 0;
    int *count = converted != nullptr ? converted : &ignored;
    *count = 0;
    if (nus::no_handle(h)) return nullptr;
    if (input == nullptr || format == nullptr) return fail(h, NU_EBADARG);
    va_list ap;
    va_copy(ap, args);
    const nu_wchar *in = input;
    const nu_wchar *f = format;
    nu_wchar *result = nullptr;
    Columns columns{h};
    while (*f != 0) {
        // White space in the format matches any run of blanks, none included.
        if (is_space(h, *f)) {
            while (is_space(h, *f)) ++f;
            while (is_space(h, *in)) ++in;
            continue;
        }
        if (*f != '%' || f[1] == '%') {
            if (*f != *in) {
                fail(h, NU_ENOMATCH);
                goto done;
            }
            f += *f == '%' ? 2 : 1;
            ++in;
            continue;
        }
        {
            ++f;
            int justify = 0, width = 0, precision = -1;
            nu_wchar pad = ' ';
            unsigned flags = 0;
            // A "*" width (no argument is taken for it) reads the field without storing it.
            if (_nu_scan_format_modifiers(h, &f, &justify, &pad, &width, &precision, &flags,
                                          nullptr, nullptr) != 0)
                goto done;
            if (*f == 0) {
                fail(h, NU_EBADFMT);
                goto done;
            }
            char length = 0;
            if (*f == 'l' || *f == 'L') length = 'l', ++f;
            else if (*f == 'h' || *f == 'H') length = 'h', ++f;
            const nu_wchar conversion = *f;
            const int base = base_of(conversion);
            if (base == 0 && !is_float_conversion(conversion)) {
                fail(h, NU_EFORMAT);
                goto done;
            }
            ++f;
            const bool suppress = (flags & NU_FMT_STAR_SEEN) != 0;
            const nu_wchar *field = in;
            while (is_space(h, *in)) ++in;
            if (*in == 0) {
                fail(h, NU_EFORMAT);
                goto done;
            }
            if (base != 0) {
                bool negative;
                unsigned long long magnitude;
                if (read_integer(h, &in, base, flags, &negative, &magnitude) != 0) goto done;
                if (!store_integer(h, ap, conversion == 'u', length, negative, magnitude,
                                   suppress, count))
                    goto done;
            } else {
                double value;
                if (read_double(h, &in, flags, conversion, &value) != 0) goto done;
                if (!suppress) {
                    // "%f", "%lf" and "%Lf" all store a double, as the formatter takes one.
                    double *target = va_arg(ap, double *);
                    if (target != nullptr) {
                        *target = value;
                        ++*count;
                    }
                }
            }
            // The blanks that pad a left-justified field to its width belong to it.
            if (width > 0) {
                int used = columns.of(field, in);
                while (used < width && *in == ' ') ++in, ++used;
            }
        }
    }
    result = const_cast<nu_wchar *>(in);
done:
    va_end(ap);
    return result;
}

NU_EXPORT nu_wchar *nu_wcspnum(nu_locale_t h, const nu_wchar *input, int *converted,
                               const nu_wchar *format, ...) {
    va_list args;
    va_start(args, format);
    nu_wchar *result = nu_wcspnum1(h, input, converted, format, args);
    va_end(args);
    return result;
}

NU_EXPORT char *nu_mbspnum(nu_locale_t h, const char *input, int *converted, const char *format,
                           ...) {
    if (converted != nullptr) *converted = 0;
    if (nus::no_handle(h)) return nullptr;
    if (input == nullptr || format == nullptr) return reinterpret_cast<char *>(fail(h, NU_EBADARG));
    nus::num::WideText<128> wide_input(h, input);
    nus::num::WideText<32> wide_format(h, format);
    if (wide_input.no_memory() || wide_format.no_memory())
        return reinterpret_cast<char *>(fail(h, NU_ENOMEM));
    if (wide_input.get() == nullptr || wide_format.get() == nullptr) return nullptr;
    va_list args;
    va_start(args, format);
    const nu_wchar *end = nu_wcspnum1(h, wide_input.get(), converted, wide_format.get(), args);
    va_end(args);
    if (end == nullptr) return nullptr;
    return const_cast<char *>(nus::num::step_chars(h, input, end - wide_input.get()));
}
