// The locale's printf: integers in bases 2 to 36, doubles, characters and strings written
// with the NUMERIC category's decimal point, thousands separator, grouping and sign strings,
// padded in display columns. Also the conversion-specification scanner, the integer writer
// and the wide-to-multibyte output step that the other formatters and parsers share.
#include "numeric/numeric.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <clocale>
#include <cmath>

namespace {

using nus::Grouping;
using nus::num::GroupState;
using nus::num::wide;
using nus::num::wlen;

constexpr int kMaxNumber = 99999999;   // widths and precisions stop growing here
constexpr int kFloatText = 100;        // the system formatter's text: at most 99 characters

int fail(nu_locale_rec *h, int code) {
    nus::set_error(h, code);
    return -1;
}

// Display columns: 2 for a character of the locale's "full_width" class, else 1 (characters
// without a width count one column here: padding must not fail on them).
// The class is looked up on first use: most calls measure nothing.
struct Columns {
    nu_locale_rec *h;
    mutable int full_width = -1;
    explicit Columns(nu_locale_rec *handle) : h(handle) {}
    int of(nu_wchar wc) const {
        if (full_width < 0) full_width = nu_ctype(h, "full_width");
        if (full_width == 0) return 1;
        int mask;
        if (h->single_byte && h->sb_class != nullptr) mask = wc > 0xFF ? 0 : h->sb_class[wc];
        else mask = _nu_im_iswctype(h, wc, 0xFFFF);
        return (mask & full_width) != 0 ? 2 : 1;
    }
    int of(const nu_wchar *s, int n) const {
        int sum = 0;
        for (int i = 0; i < n && s[i] != 0; ++i) sum += of(s[i]);
        return sum;
    }
};

bool is_digit(nu_locale_rec *h, nu_wchar wc) {
    return wc != 0 && nus::num::wclass(h, wc, NU_CLASS_DIGIT) != 0;
}

// A run of digits of the locale's digit class, valued as value * 10 + code - '0'.
int read_number(nu_locale_rec *h, const nu_wchar **f) {
    long value = 0;
    while (is_digit(h, **f)) {
        value = value * 10 + (static_cast<long>(**f) - '0');
        if (value > kMaxNumber) value = kMaxNumber;
        if (value < -kMaxNumber) value = -kMaxNumber;
        ++*f;
    }
    return static_cast<int>(value);
}

// G[i] of a grouping list whose entry 0 is the count itself, as the set-up reads it.
int group_at(const Grouping &g, int i) {
    if (i <= 0) return g.count;
    if (i > 15) i = 15;
    return g.sizes[i - 1];
}

// The separator writer, after each digit while separators remain. Forward mode writes the
// separator after the digit; reverse mode (writing right to left) before it.
[[gnu::always_inline]] inline void maybe_separate(const Grouping &g, GroupState &s, bool reverse,
                                                  const nu_wchar *sep, int sep_length,
                                                  nu_wchar **cursor, int *count) {
    if (--s.digits_to_sep > 0) return;
    if (reverse) {
        *cursor -= sep_length;
        for (int k = 0; k < sep_length; ++k) (*cursor)[k] = sep[k];
    } else {
        for (int k = 0; k < sep_length; ++k) *(*cursor)++ = sep[k];
        if (count != nullptr) *count += sep_length;
    }
    if (s.repeats_left >= 1) {
        --s.repeats_left;
    } else if (!reverse) {
        if (s.group_index > 0) --s.group_index;
    } else if (s.group_index < g.count) {
        ++s.group_index;
    }
    const int size = group_at(g, s.group_index);
    s.digits_to_sep = size != 0 ? size : group_at(g, s.group_index - 1);
    --s.seps_left;
}

// The sign of a number: the negative string, the positive string under "+", or as many
// spaces as the positive string has characters under " ".
struct Sign {
    const nu_wchar *text = nus::num::kEmptyWide;
    int length = 0;
    bool spaces = false;
};

Sign sign_of(nu_locale_rec *h, bool negative, unsigned flags) {
    Sign s;
    if (negative) {
        s.text = wide(h->lc.negative_sign);
    } else if ((flags & NU_FMT_PLUS) != 0) {
        s.text = wide(h->lc.positive_sign);
    } else if ((flags & NU_FMT_SPACE) != 0) {
        s.text = wide(h->lc.positive_sign);
        s.spaces = true;
    } else {
        return s;
    }
    s.length = wlen(s.text);
    return s;
}

// Writes chars without counting them, never past the output (the infinity and NaN texts);
// padding stops where the output does, however wide the field.
void put_uncounted(nu_wchar **cursor, nu_wchar *end, const char *text, int pad, bool pad_after) {
    auto put = [&](nu_wchar c) {
        if (*cursor < end) *(*cursor)++ = c;
    };
    auto fill = [&] {
        for (long k = std::min<long>(pad, end - *cursor); k > 0; --k) *(*cursor)++ = ' ';
    };
    if (!pad_after) fill();
    for (const char *t = text; *t != 0; ++t) put(static_cast<unsigned char>(*t));
    if (pad_after) fill();
}

} // namespace

namespace nus::num {

void init_grouping(const Grouping &g, int digits, bool reverse, GroupState &s) {
    const int n = g.count > 15 ? 15 : g.count;
    s.seps_left = 0;
    s.repeats_left = 0;
    s.group_index = 1;
    s.digits_to_sep = 0;
    if (n <= 0) return;
    long covered = 0;
    if (n > 1) {
        long sum = 0;
        for (;;) {
            const int size = group_at(g, s.group_index);
            sum += size;
            if (sum >= digits) {
                covered = sum - size;
                break;
            }
            ++s.seps_left;
            if (++s.group_index == n) {
                covered = sum;
                break;
            }
        }
    }
    // The repeating size applies even when the walk above stopped early: with a list whose
    // repeating size is smaller than its first (3;2) a number of more than 2 and at most 3
    // digits gets one separator. Kept for compatibility.
    const int last = group_at(g, n);
    if (last != -1) {
        const int r = last != 0 ? last : group_at(g, n - 1);
        if (r > 0) {
            while (covered + r < digits) {
                covered += r;
                ++s.seps_left;
                ++s.repeats_left;
            }
        }
    }
    if (!reverse) {
        s.digits_to_sep = static_cast<int>(digits - covered);
        return;
    }
    const int first = group_at(g, 1);
    s.digits_to_sep = first;
    const bool repeating = n == 1 || (n == 2 && group_at(g, 2) == 0);
    s.repeats_left = repeating ? digits / (first > 0 ? first : 1) + 1 : 0;
    s.group_index = 1;
}

int CheckForInfinity(double value) {
    if (!std::isinf(value)) return 0;
    return value < 0 ? 1 : 2;
}

int CheckForNaN(double value) { return std::isnan(value) ? 2 : 0; }

int format_char(nu_locale_rec *h, nu_wchar wc, int *count, int size, nu_wchar **out, int width,
                unsigned flags) {
    const Columns cols(h);
    const int w = cols.of(wc);
    const nu_wchar pad = (flags & NU_FMT_ZERO) != 0 ? '0' : ' ';
    const int pw = cols.of(pad);
    const long padding = width >= w ? (width - w + pw / 2) / pw : 0;
    if (*count + 1L + padding > size) return fail(h, NU_E2BIG);
    nu_wchar *o = *out;
    if ((flags & NU_FMT_LEFT) != 0) {
        *o++ = wc;
        for (long i = 0; i < padding; ++i) *o++ = ' ';
    } else {
        for (long i = 0; i < padding; ++i) *o++ = pad;
        *o++ = wc;
    }
    *count += static_cast<int>(1 + padding);
    *out = o;
    return 0;
}

int format_string(nu_locale_rec *h, const nu_wchar *s, int *count, int size, nu_wchar **out,
                  int width, int precision, unsigned flags) {
    const int length = wlen(s);
    if (width == 0 && precision == -1) width = precision = length;
    // A width without a precision truncates as well: "%5s" of "abcdefgh" gives "abcde".
    // Kept for compatibility.
    const int limit = width >= 1 && precision == -1 ? width : precision;
    const Columns cols(h);
    int taken = 0;
    long display = 0, bytes = 0;
    while (taken < limit && taken < length) {
        display += cols.of(s[taken]);
        const int b = h->single_byte ? 1 : nu_wclen(h, s[taken]);
        bytes += b > 0 ? b : 1;
        ++taken;
    }
    const long padding = width - display > 0 ? width - display : 0;
    // The room is checked against the whole size in bytes (kept for compatibility), and
    // against what is left so that nothing is written past the output.
    if (bytes + padding > size || *count + taken + padding > size) return fail(h, NU_E2BIG);
    nu_wchar *o = *out;
    if ((flags & NU_FMT_LEFT) != 0) {
        for (int i = 0; i < taken; ++i) *o++ = s[i];
        for (long i = 0; i < padding; ++i) *o++ = ' ';
    } else {
        const nu_wchar pad = (flags & NU_FMT_ZERO) != 0 ? '0' : ' ';
        for (long i = 0; i < padding; ++i) *o++ = pad;
        for (int i = 0; i < taken; ++i) *o++ = s[i];
    }
    *count += static_cast<int>(taken + padding);
    *out = o;
    return 0;
}

int format_float(nu_locale_rec *h, double value, int *count, int size, nu_wchar **out,
                 int width, int precision, unsigned flags, nu_wchar conversion) {
    if (width > 99) return fail(h, NU_E2BIG);
    const bool negative = value < 0;
    if (negative) value = -value;
    const char style = static_cast<char>(conversion);
    const Grouping &g = h->lc.grouping;
    GroupState gs{1, 0, 0, 0};
    if (style == 'f' && (flags & NU_FMT_GROUP) != 0) {
        // Counted before rounding: 999.9 with "%.0f" shows "1000" ungrouped. Kept for
        // compatibility.
        int digits = 0;
        for (double v = value; v >= 1.0 && digits < 400; v /= 10) ++digits;
        init_grouping(g, digits, false, gs);
    }
    const nu_wchar *sep = wide(h->lc.thousands_sep);
    const nu_wchar *point = wide(h->lc.decimal_point);
    const nu_wchar *neg = wide(h->lc.negative_sign);
    const nu_wchar *pos = wide(h->lc.positive_sign);
    const int sep_length = wlen(sep), point_length = wlen(point);
    const int neg_length = wlen(neg), pos_length = wlen(pos);
    const int field = neg_length > pos_length ? neg_length : pos_length;
    const Columns cols(h);
    const bool signed_out = negative || (flags & (NU_FMT_PLUS | NU_FMT_SPACE)) != 0;
    int inner = width;
    if (width > 0) {
        int sign_cols = 0;
        if (negative) sign_cols = field - neg_length + cols.of(neg, neg_length);
        else if ((flags & NU_FMT_PLUS) != 0) sign_cols = field - pos_length + cols.of(pos, pos_length);
        else if ((flags & NU_FMT_SPACE) != 0) sign_cols = field;
        inner = width - ((signed_out ? sign_cols : 0) + cols.of(sep, sep_length) * gs.seps_left);
    }

    char flag_text[4];
    int nf = 0;
    if ((flags & NU_FMT_ALT) != 0) flag_text[nf++] = '#';
    if ((flags & NU_FMT_LEFT) != 0) flag_text[nf++] = '-';
    if ((flags & NU_FMT_ZERO) != 0) flag_text[nf++] = '0';
    flag_text[nf] = 0;
    // The process's locale may give the system formatter another decimal mark: that mark is
    // the one translated below.
    char text[kFloatText + 1];
    // The inner format: "%", the flags, the inner width when above 0, the precision when
    // given, the style letter.
    auto make = [&]() -> int {
        char fmt[40];
        int k = 0;
        fmt[k++] = '%';
        for (int i = 0; i < nf; ++i) fmt[k++] = flag_text[i];
        auto number = [&](int v) {
            char digits[12];
            int n = 0;
            do {
                digits[n++] = static_cast<char>('0' + v % 10);
                v /= 10;
            } while (v > 0);
            while (n > 0) fmt[k++] = digits[--n];
        };
        // Widths and precisions above 1000 are written as 1000: the text is refused either
        // way (it holds at least that many characters), except for a "g" text, which a
        // double's exact digits (767 at most) already end; the system formatter would
        // otherwise be asked for a buffer of the precision's size.
        constexpr int kInnerLimit = 1000;
        if (inner > 0) number(std::min(inner, kInnerLimit));
        if (precision >= 0) {   // a negative precision from "*" counts as none
            fmt[k++] = '.';
            number(std::min(precision, kInnerLimit));
        }
        fmt[k++] = style;
        fmt[k] = 0;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        return std::snprintf(text, sizeof text, fmt, value);
#pragma GCC diagnostic pop
    };
    // Plain "f" texts come from the exact digit path when it covers the value; the system
    // formatter (with the process's decimal mark) makes the rest.
    char text_point = '.';
    auto make_text = [&]() -> int {
        const int p = precision >= 0 ? precision : 6;
        if (style == 'f' && nus::num::fixed_digits(value, p, text, kFloatText)) {
            int length = static_cast<int>(std::strlen(text));
            if ((flags & NU_FMT_ALT) != 0 && p == 0) {
                text[length++] = '.';
                text[length] = 0;
            }
            if (inner > length) {
                if (inner >= kFloatText) return inner;
                const int pad = inner - length;
                if ((flags & NU_FMT_LEFT) != 0) {
                    std::memset(text + length, ' ', static_cast<size_t>(pad));
                } else {
                    std::memmove(text + pad, text, static_cast<size_t>(length));
                    std::memset(text, (flags & NU_FMT_ZERO) != 0 ? '0' : ' ', static_cast<size_t>(pad));
                }
                length = inner;
                text[length] = 0;
            }
            text_point = '.';
            return length;
        }
        text_point = *std::localeconv()->decimal_point;
        return make();
    };
    int made = make_text();
    // The intermediate text is limited to 99 characters: a longer one is refused.
    if (made < 0 || made >= kFloatText) return fail(h, NU_E2BIG);
    if (inner > 0) {
        // Measured with the locale's decimal point, which may be wider than one column.
        int measured = 0;
        const int point_cols = cols.of(point, point_length);
        for (int i = 0; i < made; ++i) measured += text[i] == text_point ? point_cols : 1;
        if (measured > inner) {
            inner = 2 * inner - measured;
            made = make_text();
            if (made < 0 || made >= kFloatText) return fail(h, NU_E2BIG);
        }
    }

    nu_wchar *o = *out;
    int c = *count;
    auto room = [&](long more) { return c + more <= size; };
    int i = 0;
    while (text[i] == ' ') {
        if (!room(1)) return fail(h, NU_E2BIG);
        *o++ = ' ';
        ++c;
        ++i;
    }
    if (signed_out) {
        const nu_wchar *s = negative ? neg : pos;
        const int s_length = negative ? neg_length : pos_length;
        const bool spaces_only = !negative && (flags & NU_FMT_PLUS) == 0;
        const int blanks = spaces_only ? field : field - s_length;
        if (!room(field > 0 ? (spaces_only ? field : blanks + s_length) : 0))
            return fail(h, NU_E2BIG);
        for (int k = 0; k < blanks; ++k) *o++ = ' ';
        if (!spaces_only)
            for (int k = 0; k < s_length; ++k) *o++ = s[k];
        c += spaces_only ? field : blanks + s_length;
    }
    // Integer digits, grouped.
    while (text[i] >= '0' && text[i] <= '9') {
        const bool sep_next = gs.seps_left > 0 && gs.digits_to_sep == 1;
        if (!room(1 + (sep_next ? sep_length : 0))) return fail(h, NU_E2BIG);
        *o++ = static_cast<unsigned char>(text[i++]);
        ++c;
        if (gs.seps_left > 0) maybe_separate(g, gs, false, sep, sep_length, &o, &c);
    }
    if (text[i] == text_point && text[i] != 0) {
        if (c + point_length > size) return fail(h, NU_E2BIG);
        for (int k = 0; k < point_length; ++k) *o++ = point[k];
        c += point_length;
        ++i;
    }
    for (; text[i] != 0; ++i) {
        const char ch = text[i];
        if (ch == '+' || ch == '-') {
            const nu_wchar *s = ch == '+' ? pos : neg;
            const int s_length = ch == '+' ? pos_length : neg_length;
            if (c + s_length > size) return fail(h, NU_E2BIG);
            for (int k = 0; k < s_length; ++k) *o++ = s[k];
            c += s_length;
            continue;
        }
        if (!room(1)) return fail(h, NU_E2BIG);
        *o++ = static_cast<unsigned char>(ch);
        ++c;
    }
    *out = o;
    *count = c;
    return 0;
}

} // namespace nus::num

NU_EXPORT int nu_getDecimalCharIndex(const char *text) {
    int i = 0;
    while (nus::c_isspace(static_cast<unsigned char>(text[i]))) ++i;
    if (text[i] == '+' || text[i] == '-') ++i;
    while (nus::c_isdigit(static_cast<unsigned char>(text[i]))) ++i;
    return text[i] == '.' || text[i] == ',' ? i : -1;
}

namespace {

// The implementations behind the exported scanner, integer writer and output step: called
// directly inside the library (no interposable call), exported through thin wrappers.
int scan_modifiers(nu_locale_rec *h, const nu_wchar **format, int *justify, nu_wchar *pad,
                   int *width, int *precision, unsigned int *flags, unsigned int *position,
                   va_list *args) {
    const nu_wchar *f = *format;
    if (position != nullptr) {
        const nu_wchar *p = f;
        const int value = read_number(h, &p);
        if (p != f && *p == '$') {
            *position = static_cast<unsigned>(value);
            f = p + 1;
        }
    }
    for (bool more = true; more;) {
        switch (*f) {
        case ' ': *flags |= NU_FMT_SPACE; ++f; break;
        case '#': *flags |= NU_FMT_ALT; ++f; break;
        case '\'': *flags |= NU_FMT_GROUP; ++f; break;
        case '+': *flags |= NU_FMT_PLUS; ++f; break;
        case '-': *flags |= NU_FMT_LEFT; ++f; break;
        case '0':
            // "0" ends the flags: "%0-5d" fails at its conversion character. Kept for
            // compatibility.
            if ((*flags & NU_FMT_LEFT) == 0) *flags |= NU_FMT_ZERO;
            ++f;
            more = false;
            break;
        default: more = false;
        }
    }
    if (*f == '*') {
        if ((*flags & NU_FMT_STAR_ARG) != 0 && args != nullptr) *width = va_arg(*args, int);
        else *flags |= NU_FMT_STAR_SEEN;
        ++f;
    } else if (is_digit(h, *f)) {
        *width = read_number(h, &f);
    }
    if (*f == '.') {
        ++f;
        if (*f == '*') {
            if (args != nullptr) *precision = va_arg(*args, int);
            ++f;
        } else if (is_digit(h, *f)) {
            *precision = read_number(h, &f);
        } else if (*f <= 0xFF && std::isalpha(static_cast<int>(*f))) {
            *precision = 0;   // "%.f" and "%.ld" are accepted
        } else {
            *format = f;
            return fail(h, NU_EMODIFIER);
        }
    }
    if ((*flags & NU_FMT_LEFT) != 0) {
        *justify = -1;
        *pad = ' ';
    }
    if ((*flags & NU_FMT_ZERO) != 0) {
        *justify = 0;
        *pad = '0';
    }
    *format = f;
    return 0;
}

int format_decimal(nu_locale_rec *h, uint32_t magnitude, int negative, int base, int *count,
                   int size, nu_wchar **out, int width, int precision, unsigned int flags) {
    if (base >= 37 || base < 2) return fail(h, NU_EBADVAL);
    const Columns cols(h);
    nu_wchar digits[40];
    int n = 0;
    const char alpha = (flags & NU_FMT_UPPER) != 0 ? 'A' : 'a';
    if (base == 10) {
        // A constant divisor: no division instruction per digit.
        do {
            digits[n++] = static_cast<nu_wchar>('0' + magnitude % 10);
            magnitude /= 10;
        } while (magnitude != 0);
    } else if ((base & (base - 1)) == 0) {
        const int shift = __builtin_ctz(static_cast<unsigned>(base));
        do {
            const int d = static_cast<int>(magnitude & static_cast<unsigned>(base - 1));
            digits[n++] = static_cast<nu_wchar>(d < 10 ? '0' + d : alpha + d - 10);
            magnitude >>= shift;
        } while (magnitude != 0);
    } else {
        do {
            const int d = static_cast<int>(magnitude % static_cast<unsigned>(base));
            digits[n++] = static_cast<nu_wchar>(d < 10 ? '0' + d : alpha + d - 10);
            magnitude /= static_cast<unsigned>(base);
        } while (magnitude != 0);
    }
    // Display columns matter only for padding (a width) and the octal leading zero.
    const bool octal_alt = (flags & NU_FMT_ALT) != 0 && base == 8;
    int digit_cols = 0;
    if (width > 0 || octal_alt)
        for (int i = 0; i < n; ++i) digit_cols += cols.of(digits[i]);
    if (octal_alt && precision <= digit_cols) precision = cols.of('0') + digit_cols;
    const Grouping &g = h->lc.grouping;
    GroupState gs{1, 0, 0, 0};
    if ((flags & NU_FMT_GROUP) != 0) nus::num::init_grouping(g, n, true, gs);
    const int zeros = precision - n > 0 ? precision - n : 0;
    const nu_wchar *sep = wide(h->lc.thousands_sep);
    const int sep_length = wlen(sep);
    const Sign sign = sign_of(h, negative != 0, flags);
    const bool alt16 = base == 16 && (flags & NU_FMT_ALT) != 0;
    long total = n + zeros + static_cast<long>(gs.seps_left) * sep_length + sign.length +
                 (alt16 ? 2 : 0);
    // The sign of a value that is not negative is measured over the positive string but with
    // the negative string's length (the two are meant to be equally long): kept for
    // compatibility.
    const bool zero_pad = (flags & NU_FMT_ZERO) != 0;
    long padding = 0;
    if (width > 0) {   // every field is at least one column wide
        int sign_cols = 0;
        if (negative) sign_cols = cols.of(sign.text, sign.length);
        else if (sign.length > 0 || (flags & (NU_FMT_PLUS | NU_FMT_SPACE)) != 0)
            sign_cols = cols.of(wide(h->lc.positive_sign), wlen(wide(h->lc.negative_sign)));
        const long display = digit_cols + static_cast<long>(zeros) * cols.of('0') +
                             static_cast<long>(gs.seps_left) * cols.of(sep, sep_length) +
                             sign_cols + (alt16 ? 2 : 0);
        const int pw = cols.of(zero_pad ? '0' : ' ');
        padding = width >= display ? (width - display + pw / 2) / pw : 0;
    }
    total += padding;
    if (*count + total > size) return fail(h, NU_E2BIG);

    // Written backwards from the end of the field.
    nu_wchar *end = *out + total;
    nu_wchar *o = end;
    const bool left = (flags & NU_FMT_LEFT) != 0;
    if (left && !zero_pad)
        for (long i = 0; i < padding; ++i) *--o = ' ';
    for (int i = 0; i < n; ++i) {
        *--o = digits[i];
        if (gs.seps_left > 0) maybe_separate(g, gs, true, sep, sep_length, &o, nullptr);
    }
    // Separators the set-up counted but the digits did not receive leave a gap: the field
    // is moved down over it below.
    const long gap = static_cast<long>(gs.seps_left) * sep_length;
    for (int i = 0; i < zeros; ++i) *--o = '0';
    if (alt16) {
        *--o = (flags & NU_FMT_UPPER) != 0 ? 'X' : 'x';
        *--o = '0';
    }
    auto put_sign = [&] {
        for (int k = sign.length - 1; k >= 0; --k) *--o = sign.spaces ? ' ' : sign.text[k];
    };
    if (!zero_pad) {
        put_sign();
        if (!left)
            for (long i = 0; i < padding; ++i) *--o = ' ';
    } else {
        for (long i = 0; i < padding; ++i) *--o = '0';
        put_sign();
    }
    if (gap > 0 && o != *out) {
        std::memmove(*out, o, static_cast<size_t>(end - o) * sizeof(nu_wchar));
        end -= o - *out;
        total = end - *out;
    }
    *out = end;
    *count += static_cast<int>(total);
    return 0;
}

int get_mbstring(nu_locale_rec *h, char *out, const nu_wchar *ws, int size);

} // namespace

NU_EXPORT int _nu_scan_format_modifiers(nu_locale_t h, const nu_wchar **format, int *justify,
                                        nu_wchar *pad, int *width, int *precision,
                                        unsigned int *flags, unsigned int *position,
                                        va_list *args) {
    if (nus::no_handle(h) || nus::missing(h, format, justify, pad, width, precision, flags) ||
        nus::missing(h, *format))
        return -1;
    return scan_modifiers(h, format, justify, pad, width, precision, flags, position, args);
}

NU_EXPORT int _nu_format_decimal(nu_locale_t h, uint32_t magnitude, int negative, int base,
                                 int *count, int size, nu_wchar **out, int width, int precision,
                                 unsigned int flags) {
    if (nus::no_handle(h) || nus::missing(h, count, out) || nus::missing(h, *out)) return -1;
    return format_decimal(h, magnitude, negative, base, count, size, out, width, precision, flags);
}

NU_EXPORT int nu_wcsfnum1(nu_locale_t h, nu_wchar *out, int size, const nu_wchar *format,
                          va_list args) {
    if (nus::no_handle(h)) return -1;
    if (out == nullptr || format == nullptr) return fail(h, NU_EBADARG);
    if (size < 1) return fail(h, NU_E2BIG);
    va_list ap;
    va_copy(ap, args);
    // Flags, the negative indicator and the base are set once per call: they stay in force
    // for the later conversions of the same format ("%+d %d" signs both). Kept for
    // compatibility.
    unsigned flags = 0;
    int negative = 0;
    int base = 10;
    int count = 1;
    // Characters written without being counted (infinity and NaN): the room checks see them,
    // the result does not.
    int hidden = 0;
    nu_wchar *o = out;
    nu_wchar *const last = out + size - 1;
    const nu_wchar *f = format;
    int result = -1;
    while (*f != 0) {
        if (*f != '%' || f[1] == '%') {
            if (count + hidden >= size) {
                fail(h, NU_E2BIG);
                goto done;
            }
            *o++ = *f;
            f += *f == '%' ? 2 : 1;
            ++count;
            continue;
        }
        {
            nu_wchar pad = ' ';
            int justify = 0, width = 0, precision = -1;
            bool is_long = false, is_short = false, is_signed = false;
            flags |= NU_FMT_STAR_ARG;
            ++f;
            if (scan_modifiers(h, &f, &justify, &pad, &width, &precision, &flags, nullptr, &ap) != 0)
                goto done;
            if (*f == 0) {
                fail(h, NU_EBADFMT);
                goto done;
            }
            if (*f == 'l' || *f == 'L') {
                is_long = true;
                ++f;
            } else if (*f == 'h' || *f == 'H') {
                is_short = true;
                ++f;
            }
            const nu_wchar conversion = *f;
            if (conversion != 0) ++f;
            int c = count + hidden;
            int status = 0;
            switch (conversion) {
            case 'd': case 'i': case 'u': case 'o': case 'x': case 'X': case 'b': case 'q': {
                // Every integer conversion but "u" is signed: "%x" of -255 is "-ff". Kept for
                // compatibility.
                is_signed = conversion != 'u';
                base = conversion == 'o' ? 8 : conversion == 'x' || conversion == 'X' ? 16
                       : conversion == 'b' ? 2 : conversion == 'q' ? 4 : 10;
                if (conversion == 'X') flags |= NU_FMT_UPPER;
                uint32_t magnitude;
                if (is_short) {
                    const int v = va_arg(ap, int);
                    if (is_signed) {
                        const auto s16 = static_cast<int16_t>(v);
                        if (s16 < 0) negative = 1;
                        magnitude = s16 < 0 ? static_cast<uint32_t>(-static_cast<int32_t>(s16))
                                            : static_cast<uint32_t>(s16);
                    } else {
                        magnitude = static_cast<uint16_t>(v);
                    }
                } else {
                    const auto v = static_cast<int32_t>(is_long ? va_arg(ap, long) : va_arg(ap, int));
                    if (is_signed && v < 0) {
                        negative = 1;   // stays set for the rest of the call
                        magnitude = 0u - static_cast<uint32_t>(v);
                    } else {
                        magnitude = static_cast<uint32_t>(v);
                    }
                }
                status = format_decimal(h, magnitude, negative, base, &c, size, &o, width,
                                        precision, flags);
                break;
            }
            case 'e': case 'E': case 'f': case 'g': case 'G': {
                const double v = va_arg(ap, double);
                const int inf = nus::num::CheckForInfinity(v);
                const int nan = nus::num::CheckForNaN(v);
                if (inf != 0 || nan != 0) {
                    // Written without a room check and left out of the count: kept for
                    // compatibility (here never past the output).
                    nu_wchar *before = o;
                    const char *text = inf == 1 ? "-Inf" : inf == 2 ? "Inf" : "NaN";
                    const int pad_count = inf == 1 ? 0 : width - 3 > 0 ? width - 3 : 0;
                    put_uncounted(&o, last, text, pad_count, (flags & NU_FMT_LEFT) != 0);
                    hidden += static_cast<int>(o - before);
                    c = count + hidden;
                    break;
                }
                status = nus::num::format_float(h, v, &c, size, &o, width, precision, flags,
                                                conversion);
                break;
            }
            case 'c': {
                nu_wchar wc;
                if (is_long) {
                    wc = static_cast<nu_wchar>(va_arg(ap, int));
                } else {
                    const auto *p = va_arg(ap, const unsigned char *);
                    if (h->single_byte) {
                        if (p == nullptr || *p == 0) goto done;   // no error code: as documented
                        wc = *p;
                    } else {
                        const int used = nu_full_mbtowc(h, &wc, p, 4);
                        if (used <= 0) goto done;
                    }
                }
                status = nus::num::format_char(h, wc, &c, size, &o, width, flags);
                break;
            }
            case 's': {
                if (is_long) {
                    const nu_wchar *ws = va_arg(ap, const nu_wchar *);
                    if (ws == nullptr) {
                        fail(h, NU_EBADARG);
                        goto done;
                    }
                    status = nus::num::format_string(h, ws, &c, size, &o, width, precision, flags);
                } else {
                    const char *s = va_arg(ap, const char *);
                    if (s == nullptr) {
                        fail(h, NU_EBADARG);
                        goto done;
                    }
                    // Up to 31 wide characters (124 bytes) on the stack.
                    const nus::num::WideText<31> wide_text(h, s);
                    if (wide_text.no_memory()) {
                        fail(h, NU_ENOMEM);
                        goto done;
                    }
                    if (wide_text.get() == nullptr) goto done;
                    status = nus::num::format_string(h, wide_text.get(), &c, size, &o, width,
                                                     precision, flags);
                }
                break;
            }
            default:
                fail(h, NU_EFORMAT);
                goto done;
            }
            (void)is_signed;
            (void)justify;
            (void)pad;
            if (status != 0) goto done;
            count = c - hidden;
        }
    }
    *o = 0;
    result = count - 1;
done:
    va_end(ap);
    return result;
}

NU_EXPORT int nu_wcsfnum(nu_locale_t h, nu_wchar *out, int size, const nu_wchar *format, ...) {
    va_list args;
    va_start(args, format);
    const int result = nu_wcsfnum1(h, out, size, format, args);
    va_end(args);
    return result;
}

NU_EXPORT int _nu_get_mbstring(nu_locale_t h, char *out, const nu_wchar *ws, int size) {
    if (nus::no_handle(h) || nus::missing(h, out, ws)) return -1;
    return get_mbstring(h, out, ws, size);
}

namespace {

int get_mbstring(nu_locale_rec *h, char *out, const nu_wchar *ws, int size) {
    long bytes = 0;
    if (h->single_byte) {
        // One byte a character and one for the terminator.
        const long most = static_cast<long>(size) - 1;
        for (; *ws != 0; ++ws) {
            if (bytes >= most) return fail(h, NU_E2BIG);
            out[bytes++] = static_cast<char>(*ws);
        }
        if (bytes + 1 > size) return fail(h, NU_E2BIG);
        out[bytes] = 0;
        return static_cast<int>(bytes);
    }
    const int m = nu_mb_loc_min(h) > 0 ? nu_mb_loc_min(h) : 1;
    for (; *ws != 0; ++ws) {
        unsigned char one[4];
        int n;
        if (h->single_byte) {
            one[0] = static_cast<unsigned char>(*ws);
            n = 1;
        } else {
            n = nus::encode(h, one, *ws);
            if (n < 0) return -1;
        }
        if (m + bytes + n > size) return fail(h, NU_E2BIG);
        std::memcpy(out + bytes, one, static_cast<size_t>(n));
        bytes += n;
    }
    if (m + bytes > size) return fail(h, NU_E2BIG);
    for (int i = 0; i < m; ++i) out[bytes + i] = 0;
    return static_cast<int>(bytes);
}

} // namespace

namespace nus::num {

// The multibyte front ends of the formatters: the format widened, the wide engine into a
// buffer of size + 1 characters, the result encoded into the caller's buffer.
int format_multibyte(nu_locale_rec *h, char *out, int size, const char *format,
                     int (*engine)(nu_locale_t, nu_wchar *, int, const nu_wchar *, va_list),
                     va_list args) {
    if (nus::no_handle(h)) return -1;
    if (out == nullptr || format == nullptr) return fail(h, NU_EBADARG);
    if (size < 1) return fail(h, NU_E2BIG);
    Scratch<nu_wchar, 127> wide_out(static_cast<size_t>(size) + 1);
    if (!wide_out.ok()) return fail(h, NU_ENOMEM);
    const WideText<31> wide_format(h, format);
    if (wide_format.no_memory()) return fail(h, NU_ENOMEM);
    if (wide_format.get() == nullptr) return -1;
    if (engine(h, wide_out.data(), size, wide_format.get(), args) < 0) return -1;
    return get_mbstring(h, out, wide_out.data(), size);
}

} // namespace nus::num

NU_EXPORT int nu_mbsfnum(nu_locale_t h, char *out, int size, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const int result = nus::num::format_multibyte(h, out, size, format, nu_wcsfnum1, args);
    va_end(args);
    return result;
}
