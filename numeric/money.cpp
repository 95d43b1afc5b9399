// Monetary amounts: formatting under the MONETARY category's symbols, separators, fraction
// digits and placement rules, and parsing them back by trying the positive and negative
// placements against the input.
#include "numeric/numeric.h"

#include <cmath>

namespace {

using nus::Grouping;
using nus::kNotAvailable;
using nus::num::wclass;
using nus::num::wide;
using nus::num::wlen;

int fail(nu_locale_rec *h, int code) {
    nus::set_error(h, code);
    return -1;
}

constexpr int kMaxPrecision = 100;     // left and right precisions above this are refused
constexpr int kSymbolLocal = 512;      // wide characters widened without an allocation
constexpr int kSignLocal = 128;

enum Element { kOpen = 1, kSymbol = 2, kValue = 3, kSign = 4, kSpace = 5, kClose = 6 };

// A multibyte string of the locale widened: on the stack up to N characters, from the
// library allocator above that. Null stays null.
template <size_t N>
class Widened {
public:
    Widened(nu_locale_rec *h, const char *mb) : text_(h, mb) {
        // The allocated buffer reports NU_ENOMEM even though it was obtained, and the
        // formatting goes on: kept for compatibility.
        if (mb != nullptr && text_.allocated()) nus::set_error(h, NU_ENOMEM);
    }
    const nu_wchar *get() const { return text_.get(); }

private:
    nus::num::WideText<N> text_;
};

// Display columns of a wide string: 2 for the locale's "full_width" class, else 1.
int columns(nu_locale_rec *h, const nu_wchar *s, int full_width) {
    int sum = 0;
    for (; *s != 0; ++s) {
        int mask = 0;
        if (full_width != 0) {
            if (h->single_byte && h->sb_class != nullptr) mask = *s > 0xFF ? 0 : h->sb_class[*s];
            else mask = _nu_im_iswctype(h, *s, 0xFFFF);
        }
        sum += (mask & full_width) != 0 ? 2 : 1;
    }
    return sum;
}

// Columns of the characters of a multibyte string that lie within its first 100 bytes.
int mb_columns(nu_locale_rec *h, const char *s) {
    if (s == nullptr) return 0;
    const int full_width = nu_ctype(h, "full_width");
    nu_wchar w[101];
    int n = 0;
    const auto *p = reinterpret_cast<const unsigned char *>(s);
    long used = 0;
    while (n < 100) {
        int length = 1;
        nu_wchar wc = p[used];
        if (!h->single_byte) {
            const nus::Walk walk = nus::walk(h->ctype.class_table, p + used, 4);
            if (walk.status != 0) break;
            length = walk.length;
            wc = walk.wc;
        }
        // The null character ends the string, whatever its length in bytes.
        if (wc == 0 || used + length > 100) break;
        w[n++] = wc;
        used += length;
    }
    w[n] = 0;
    return columns(h, w, full_width);
}

bool is_blank_start(nu_locale_rec *h, const nu_wchar *value) {
    return value != nullptr && *value != 0 && wclass(h, *value, NU_CLASS_BLANK) != 0;
}

// The element that follows position i of a mask is the value.
bool value_follows(const int *mask, int i) {
    return i + 1 < nus::num::kMaskSize && mask[i + 1] == kValue;
}

} // namespace

namespace nus::num {

int mon_mask(int *mask, int cs_precedes, int sign_posn, int sep_by_space) {
    // Rows by sign position × 10 + separated by space: the symbol following the value, then
    // preceding it. The asymmetries (keys 12 and 22) are part of the table.
    struct Row {
        int key;
        int follows[6];
        int precedes[6];
    };
    static constexpr Row kTable[] = {
        {0, {1, 3, 2, 6}, {1, 2, 3, 6}},       {1, {1, 3, 5, 2, 6}, {1, 2, 5, 3, 6}},
        {2, {1, 3, 2, 6}, {1, 2, 3, 6}},       {10, {4, 3, 2}, {4, 2, 3}},
        {11, {4, 3, 5, 2}, {4, 2, 5, 3}},      {12, {4, 3, 2}, {4, 5, 2, 3}},
        {20, {3, 2, 4}, {2, 3, 4}},            {21, {3, 5, 2, 4}, {2, 5, 3, 4}},
        {22, {3, 2, 5, 4}, {2, 3, 4}},         {30, {3, 4, 2}, {4, 2, 3}},
        {31, {3, 5, 4, 2}, {4, 2, 5, 3}},      {32, {3, 4, 5, 2}, {4, 5, 2, 3}},
        {40, {3, 2, 4}, {2, 4, 3}},            {41, {3, 5, 2, 4}, {2, 4, 5, 3}},
        {42, {3, 2, 5, 4}, {2, 5, 4, 3}},
    };
    static_assert([] {
        for (int i = 0; i < 15; ++i)
            if (kTable[i].key != i / 3 * 10 + i % 3) return false;
        return true;
    }());
    // The rows are in key order, three to a sign position.
    if ((cs_precedes == 0 || cs_precedes == 1) && sign_posn >= 0 && sign_posn <= 4 &&
        sep_by_space >= 0 && sep_by_space <= 2) {
        const Row &row = kTable[sign_posn * 3 + sep_by_space];
        const int *elements = cs_precedes != 0 ? row.precedes : row.follows;
        std::memcpy(mask, elements, sizeof(int) * kMaskSize);
    }
    return mask[0] == 0 ? -1 : 0;
}

int max_dsp_before_val(nu_locale_rec *h, const int *mask, const char *symbol, const char *sign,
                       const nu_wchar *value) {
    int sum = 0;
    for (int i = 0; i < kMaskSize && mask[i] != 0 && mask[i] != kValue; ++i) {
        switch (mask[i]) {
        case kOpen: sum += 1; break;
        case kSymbol: sum += mb_columns(h, symbol); break;
        case kSign: sum += mb_columns(h, sign); break;
        case kSpace:
            if (!(value_follows(mask, i) && is_blank_start(h, value))) sum += 1;
            break;
        default: break;
        }
    }
    return sum;
}

int max_dsp_after_val(nu_locale_rec *h, const int *mask, const char *symbol, const char *sign) {
    int i = 0;
    while (i < kMaskSize && mask[i] != 0 && mask[i] != kValue) ++i;
    if (i == kMaskSize || mask[i] == 0) return 0;
    int sum = 0;
    for (++i; i < kMaskSize && mask[i] != 0; ++i) {
        switch (mask[i]) {
        case kOpen:
        case kSpace:
        case kClose: sum += 1; break;
        case kSymbol: sum += mb_columns(h, symbol); break;
        case kSign: sum += mb_columns(h, sign); break;
        default: break;
        }
    }
    return sum;
}

int format_money(nu_locale_rec *h, nu_wchar *out, const int *mask, int before, int after,
                 const char *symbol, const char *sign, const nu_wchar *value, int value_length) {
    // Columns are counted only for an alignment (a left precision).
    const bool aligned = before != -1 || after != -1;
    const int full_width = aligned ? nu_ctype(h, "full_width") : 0;
    const Widened<kSymbolLocal> wide_symbol(h, symbol);
    const Widened<kSignLocal> wide_sign(h, sign);
    nu_wchar *o = out;
    bool value_done = false;
    int cols_before = 0, cols_after = 0;
    auto put = [&](const nu_wchar *s) {
        if (s == nullptr) return;
        const int c = aligned ? columns(h, s, full_width) : 0;
        while (*s != 0) *o++ = *s++;
        (value_done ? cols_after : cols_before) += c;
    };
    for (int i = 0; i < kMaskSize && mask[i] != 0; ++i) {
        switch (mask[i]) {
        case kOpen: {
            static constexpr nu_wchar open[] = {'(', 0};
            put(open);
            break;
        }
        case kSymbol: put(wide_symbol.get()); break;
        case kSign: put(wide_sign.get()); break;
        case kSpace:
            // No space right before a value that begins with a blank (a blank fill).
            if (value_follows(mask, i) && is_blank_start(h, value)) break;
            *o++ = ' ';
            (value_done ? cols_after : cols_before) += 1;
            break;
        case kValue:
            // Alignment spaces go in front of the field, so that the elements before the
            // value reach the width the widest placement needs.
            if (before != -1 && cols_before < before) {
                const long pad = before - cols_before;
                std::memmove(out + pad, out, static_cast<size_t>(o - out) * sizeof(nu_wchar));
                for (long k = 0; k < pad; ++k) out[k] = ' ';
                o += pad;
                cols_before = before;
            }
            std::memcpy(o, value, static_cast<size_t>(value_length) * sizeof(nu_wchar));
            o += value_length;
            value_done = true;
            break;
        case kClose:
            *o++ = ')';
            cols_after += 1;
            break;
        default: break;
        }
    }
    if (after != -1)
        for (; cols_after < after; ++cols_after) *o++ = ' ';
    *o = 0;
    return static_cast<int>(o - out);
}

int get_grp_cnt(nu_locale_rec *h, int digits) {
    const Grouping &g = h->lc.mon_grouping;
    if (g.count < 1) return 0;
    // A group completed by the last digit counts as well (the fill of a left precision
    // relies on it): kept for compatibility.
    int index = 0, size = g.sizes[0], covered = 0, count = 0;
    while (size >= 1 && covered + size <= digits) {
        covered += size;
        ++count;
        if (index < g.count - 1) size = g.sizes[++index];
    }
    return count;
}

int put_mon_grouped(nu_locale_rec *h, nu_wchar *out, const char *digits, int count,
                    int separators) {
    const Grouping &g = h->lc.mon_grouping;
    const nu_wchar *sep = wide(h->lc.mon_thousands_sep);
    const int sep_length = wlen(sep);
    // Group by group from the right, by the rule of get_grp_cnt; a separator goes only
    // between two digits, so a group completed by the first digit gets none.
    int n = 0, covered = 0;
    if (g.count >= 1 && sep_length > 0) {
        for (int index = 0, size = g.sizes[0];
             size >= 1 && n < separators && covered + size <= count - 1;) {
            covered += size;
            ++n;
            if (index < g.count - 1) size = g.sizes[++index];
        }
    }
    // The digits before the first separator, then each separator and its group (group k
    // from the right has size k of the list, or its last).
    nu_wchar *o = out;
    int i = 0;
    for (const int head = count - covered; i < head; ++i) *o++ = static_cast<unsigned char>(digits[i]);
    for (int k = n; k >= 1; --k) {
        for (int j = 0; j < sep_length; ++j) *o++ = sep[j];
        const int size = g.sizes[k - 1 < g.count - 1 ? k - 1 : g.count - 1];
        for (const int end = i + size; i < end; ++i) *o++ = static_cast<unsigned char>(digits[i]);
    }
    return static_cast<int>(o - out);
}

void round_dval(char *fraction, char *integer, int precision) {
    const int length = static_cast<int>(std::strlen(fraction));
    if (precision < 0 || precision >= length) return;
    const bool up = fraction[precision] > '4';
    fraction[precision] = 0;
    if (!up) return;
    for (int i = precision - 1; i >= 0; --i) {
        if (fraction[i] != '9') {
            ++fraction[i];
            return;
        }
        fraction[i] = '0';
    }
    const int digits = static_cast<int>(std::strlen(integer));
    for (int i = digits - 1; i >= 0; --i) {
        if (integer[i] != '9') {
            ++integer[i];
            return;
        }
        integer[i] = '0';
    }
    std::memmove(integer + 1, integer, static_cast<size_t>(digits) + 1);
    integer[0] = '1';
}

void get_lval_rval(const char *text, char *integer, char *fraction, int precision) {
    const char *p = text;
    if (*p == '-') ++p;
    if (*p == '0') {
        std::strcpy(integer, "0");
        ++p;
        while (c_isdigit(static_cast<unsigned char>(*p))) ++p;
    } else {
        int n = 0;
        while (c_isdigit(static_cast<unsigned char>(*p))) integer[n++] = *p++;
        integer[n] = 0;
    }
    if (*p != 0 && !c_isdigit(static_cast<unsigned char>(*p))) ++p;   // the decimal mark
    int n = 0;
    for (; n < precision + 1; ++n) fraction[n] = c_isdigit(static_cast<unsigned char>(*p)) ? *p++ : '0';
    fraction[n] = 0;
}

int mon_maskmatch(nu_locale_rec *h, const int *mask, unsigned flags, const char *sign,
                  const char *symbol, const nu_wchar *input, const nu_wchar **end,
                  double *value) {
    const nu_wchar *p = input;
    bool found = false;
    double v = 0.0;
    for (int i = 0; i < kMaskSize && mask[i] != 0 && *p != 0; ++i) {
        switch (mask[i]) {
        case kOpen:
            if (*p != '(') return 0;
            ++p;
            break;
        case kSymbol: {
            if (symbol == nullptr) return 0;
            // The symbol is optional in the input.
            const int n = _nu_compare_wc_to_mb(h, p, symbol);
            if (n > 0) p += n;
            break;
        }
        case kValue: {
            nu_wchar *stop = nullptr;
            v = nu_wcstod_num_mon(h, p, &stop, (flags & NU_FMT_GROUP) != 0 ? 1 : 0, 1);
            if (stop == nullptr || stop == p || v == 2147483647.0) return 0;
            found = true;
            p = stop;
            break;
        }
        case kSign: {
            // An empty sign always matches.
            if (sign == nullptr ||
                nu_ismbsterm(h, reinterpret_cast<const unsigned char *>(sign)) != 0)
                break;
            const int n = _nu_compare_wc_to_mb(h, p, sign);
            if (n <= 0) return 0;
            p += n;
            break;
        }
        case kSpace:
            if (wclass(h, *p, NU_CLASS_SPACE) == 0) return 0;
            ++p;
            break;
        case kClose:
            if (*p != ')') return 0;
            ++p;
            break;
        default: break;
        }
    }
    if (!found) return 0;
    *end = p;
    *value = v;
    return 1;
}

// One monetary conversion, formatted into the output at *count. 0, or -1.
struct MonSpec {
    nu_wchar fill = ' ';
    bool plus = false, group = true, symbol = true, left = false, has_left_precision = false;
    int width = 0, left_precision = 0, right_precision = -1;
};

int format_amount(nu_locale_rec *h, const MonSpec &spec, nu_wchar conversion, double amount,
                  const int *placement, nu_wchar *out, int size, int *count) {
    if (!std::isfinite(amount)) return fail(h, NU_EBADVAL);
    const LconvFields &lc = h->lc;
    int precision = spec.right_precision;
    if (precision == -1) {
        const int32_t digits = conversion == 'i' ? lc.mon_values[0] : lc.mon_values[1];
        precision = digits == -1 || digits == kNotAvailable ? 2 : digits;
    }
    if (precision < 0 || precision > kMaxPrecision || spec.left_precision > kMaxPrecision)
        return fail(h, NU_E2BIG);
    char text[400];
    // The "%f" text of the amount; its sign is not read.
    if (!fixed_digits(std::fabs(amount), 6, text, sizeof text))
        std::snprintf(text, sizeof text, "%f", amount);
    char integer[400];
    char fraction[kMaxPrecision + 8];
    get_lval_rval(text, integer, fraction, precision);
    round_dval(fraction, integer, precision);

    const int digits = static_cast<int>(std::strlen(integer));
    const Widened<kSignLocal> point(h, mb(lc.mon_decimal_point));
    const nu_wchar *point_text = point.get() != nullptr ? point.get() : kEmptyWide;
    const int point_length = precision > 0 ? wlen(point_text) : 0;
    const int separators = spec.group ? get_grp_cnt(h, digits) : 0;
    const int sep_length = wlen(wide(lc.mon_thousands_sep));
    // The digits with their separators, the fill of a left precision, the decimal point and
    // the fraction.
    const long fill_room = spec.has_left_precision
                               ? static_cast<long>(get_grp_cnt(h, spec.left_precision)) +
                                     spec.left_precision + 1
                               : 0;
    const long value_room = fill_room + digits + static_cast<long>(separators + 1) *
                            (sep_length + 1) + point_length + precision + 8;
    Scratch<nu_wchar, 512> value_buffer(static_cast<size_t>(value_room));
    if (!value_buffer.ok()) return fail(h, NU_ENOMEM);
    nu_wchar *value = value_buffer.data();
    // The integer digits with their separators (after any fill), the decimal point, then
    // the fraction.
    nu_wchar *v = value + put_mon_grouped(h, value, integer, digits, separators);
    for (int i = 0; i < point_length; ++i) *v++ = point_text[i];
    *v = 0;
    int value_length = static_cast<int>(v - value);
    if (spec.has_left_precision) {
        // A separator of several characters counts as one here.
        const int length = value_length;
        const int actual_seps = sep_length > 0 ? (length - digits - point_length) / sep_length : 0;
        const int fill = (spec.group ? get_grp_cnt(h, spec.left_precision) : 0) +
                         spec.left_precision - (digits + actual_seps + point_length) +
                         (point_length > 0 ? 1 : 0);
        if (fill > 0) {
            std::memmove(value + fill, value, (static_cast<size_t>(length) + 1) * sizeof(nu_wchar));
            for (int i = 0; i < fill; ++i) value[i] = spec.fill;
            value_length += fill;
        }
    }
    v = value + value_length;
    for (int i = 0; i < precision; ++i) *v++ = static_cast<unsigned char>(fraction[i]);
    *v = 0;
    value_length += precision;

    const char *symbol = !spec.symbol ? nullptr
                         : conversion == 'i' ? mb(lc.int_curr_symbol) : mb(lc.currency_symbol);
    const bool negative = amount < 0;
    // Both placements for an alignment, else the one of the amount's sign.
    int positive_mask[kMaskSize] = {}, negative_mask[kMaskSize] = {};
    if (spec.has_left_precision || !negative)
        mon_mask(positive_mask, placement[0], placement[4], placement[1]);
    if (spec.has_left_precision || negative)
        mon_mask(negative_mask, placement[2], placement[5], placement[3]);
    int before = -1, after = -1;
    const char *positive_sign = mb(lc.mon_positive_sign);
    const char *negative_sign = mb(lc.mon_negative_sign);
    if (spec.has_left_precision) {
        const int pb = max_dsp_before_val(h, positive_mask, symbol, positive_sign, value);
        const int nb = max_dsp_before_val(h, negative_mask, symbol, negative_sign, value);
        const int pa = max_dsp_after_val(h, positive_mask, symbol, positive_sign);
        const int na = max_dsp_after_val(h, negative_mask, symbol, negative_sign);
        before = pb > nb ? pb : nb;
        after = pa > na ? pa : na;
    }
    const int *mask = negative ? negative_mask : positive_mask;
    const char *sign = negative ? negative_sign : spec.plus ? positive_sign : nullptr;

    // The symbol's and the sign's characters (a string that does not decode is left out).
    auto chars_of = [&](const char *s) -> long {
        const int n = s != nullptr ? mb_chars(h, s) : 0;
        return n > 0 ? n : 0;
    };
    const long field_room = value_length + 16 + before + after + chars_of(symbol) + chars_of(sign);
    // Without a width, a field that surely fits is formatted in place.
    if (spec.width <= 0 && *count + field_room <= size) {
        *count += format_money(h, out + *count, mask, before, after, symbol, sign, value,
                               value_length);
        return 0;
    }
    Scratch<nu_wchar, 1024> field_buffer(static_cast<size_t>(field_room));
    if (!field_buffer.ok()) return fail(h, NU_ENOMEM);
    nu_wchar *field = field_buffer.data();
    const int field_length =
        format_money(h, field, mask, before, after, symbol, sign, value, value_length);
    // The field's columns matter only for a field width.
    const int field_cols = spec.width > 0 ? nu_wcswidth(h, field, field_length) : 0;
    const long padding = spec.width > field_cols && field_cols >= 0 ? spec.width - field_cols : 0;
    // The piece and the terminator after it must fit.
    if (*count + field_length + padding + 1 > size) return fail(h, NU_E2BIG);
    nu_wchar *o = out + *count;
    if (!spec.left)
        for (long i = 0; i < padding; ++i) *o++ = ' ';
    for (int i = 0; i < field_length; ++i) *o++ = field[i];
    if (spec.left)
        for (long i = 0; i < padding; ++i) *o++ = ' ';
    *o = 0;
    *count += static_cast<int>(field_length + padding);
    return 0;
}

// A number of a monetary specification: digits of the locale's digit class.
int mon_number(nu_locale_rec *h, const nu_wchar **f) {
    long value = 0;
    while (**f != 0) {
        if (h->single_byte && **f > 0xFF) {
            set_error(h, NU_EILSEQ);
            break;
        }
        if (wclass(h, **f, NU_CLASS_DIGIT) == 0) break;
        value = value * 10 + (static_cast<long>(**f) - '0');
        if (value > 99999999) value = 99999999;
        if (value < -99999999) value = -99999999;
        ++*f;
    }
    return static_cast<int>(value);
}

} // namespace nus::num

NU_EXPORT int nu_wcsfmon1(nu_locale_t h, nu_wchar *out, int size, const nu_wchar *format,
                          va_list args) {
    if (nus::no_handle(h)) return -1;
    if (out == nullptr || format == nullptr) return fail(h, NU_EBADARG);
    if (size < 1) return fail(h, NU_E2BIG);
    va_list ap;
    va_copy(ap, args);
    // The placement numbers are copied once per call; "+" and "(" change the copies, so their
    // effect lasts for the rest of the call. Kept for compatibility.
    int placement[6];
    for (int i = 0; i < 6; ++i) placement[i] = h->lc.mon_values[2 + i];
    int count = 0;
    out[0] = 0;
    const nu_wchar *f = format;
    int result = -1;
    while (*f != 0) {
        if (*f != '%' || f[1] == '%') {
            if (count + 2 > size) {
                fail(h, NU_E2BIG);
                goto done;
            }
            out[count++] = *f;
            out[count] = 0;
            f += *f == '%' ? 2 : 1;
            continue;
        }
        {
            nus::num::MonSpec spec;
            ++f;
            for (bool more = true; more && *f != 0;) {
                switch (*f) {
                case '+':
                    spec.plus = true;
                    if (placement[4] == 0) placement[4] = 1;
                    if (placement[5] == 0) placement[5] = 1;
                    ++f;
                    break;
                case '=':
                    if (f[1] == 0) {
                        ++f;
                        break;
                    }
                    spec.fill = f[1];
                    f += 2;
                    break;
                case '-': spec.left = true; ++f; break;
                case '^': spec.group = false; ++f; break;
                case '!': spec.symbol = false; ++f; break;
                case '(': placement[5] = 0; ++f; break;
                default: more = false;
                }
            }
            spec.width = nus::num::mon_number(h, &f);
            if (*f == '#') {
                ++f;
                spec.has_left_precision = true;
                spec.left_precision = nus::num::mon_number(h, &f);
            }
            if (*f == '.') {
                ++f;
                spec.right_precision = nus::num::mon_number(h, &f);
            }
            const nu_wchar conversion = *f;
            if (conversion != 'i' && conversion != 'n') {
                fail(h, NU_EBADCONV);
                goto done;
            }
            ++f;
            const double amount = va_arg(ap, double);
            if (nus::num::format_amount(h, spec, conversion, amount, placement, out, size,
                                        &count) != 0)
                goto done;
        }
    }
    result = count;
done:
    va_end(ap);
    return result;
}

NU_EXPORT int nu_wcsfmon(nu_locale_t h, nu_wchar *out, int size, const nu_wchar *format, ...) {
    va_list args;
    va_start(args, format);
    const int result = nu_wcsfmon1(h, out, size, format, args);
    va_end(args);
    return result;
}

namespace nus::num {
int format_multibyte(nu_locale_rec *h, char *out, int size, const char *format,
                     int (*engine)(nu_locale_t, nu_wchar *, int, const nu_wchar *, va_list),
                     va_list args);
}

NU_EXPORT int nu_mbsfmon(nu_locale_t h, char *out, int size, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const int result = nus::num::format_multibyte(h, out, size, format, nu_wcsfmon1, args);
    va_end(args);
    return result;
}

// ---- parsing ------------------------------------------------------------------------------

// The empty string ends at its first decoded character, the null one: its first byte alone
// does not tell in a code set of two-byte characters.
NU_EXPORT int _nu_compare_wc_to_mb(nu_locale_t h, const nu_wchar *pos, const char *s) {
    if (nus::no_handle(h) || s == nullptr) return 0;
    if (pos == nullptr) return -1;
    const auto *p = reinterpret_cast<const unsigned char *>(s);
    int matched = 0;
    for (;;) {
        nu_wchar wc;
        int length;
        if (h->single_byte) {
            wc = *p;
            length = wc != 0 ? 1 : 0;
        } else {
            length = nu_full_mbtowc(h, &wc, p, 4);
        }
        if (length < 1) return matched;
        if (pos[matched] != wc) return -1;
        ++matched;
        p += length;
    }
}

NU_EXPORT nu_wchar *nu_wcspmon1(nu_locale_t h, const nu_wchar *input, const nu_wchar *format,
                                va_list args) {
    if (nus::no_handle(h)) return nullptr;
    if (input == nullptr || format == nullptr) {
        nus::set_error(h, NU_EBADARG);
        return nullptr;
    }
    va_list ap;
    va_copy(ap, args);
    const nu_wchar *in = input;
    const nu_wchar *f = format;
    nu_wchar *result = nullptr;
    nu_wchar *limited = nullptr;   // the input cut to a width, freed after each conversion
    auto space = [&](nu_wchar wc) { return wc != 0 && wclass(h, wc, NU_CLASS_SPACE) != 0; };
    while (*f != 0) {
        if (space(*f)) {
            while (space(*f)) ++f;
            while (space(*in)) ++in;
            continue;
        }
        if (*f != '%') {
            if (*f != *in) {
                nus::set_error(h, NU_EFORMAT);
                goto done;
            }
            ++f;
            ++in;
            continue;
        }
        if (f[1] == '%') {
            // One input character is skipped whatever it is: kept for compatibility (never
            // past the input's end).
            f += 2;
            if (*in != 0) ++in;
            continue;
        }
        {
            ++f;
            int justify = 0, width = 0, precision = -1;
            nu_wchar pad = ' ';
            unsigned flags = 0;
            if (_nu_scan_format_modifiers(h, &f, &justify, &pad, &width, &precision, &flags,
                                          nullptr, nullptr) != 0)
                goto done;
            if (*f == 0) {
                nus::set_error(h, NU_EFORMAT);
                goto done;
            }
            if ((flags & (NU_FMT_LEFT | NU_FMT_ZERO)) == 0)
                while (space(*in)) ++in;
            const nu_wchar conversion = *f++;
            if (conversion != 'i' && conversion != 'n') {
                nus::set_error(h, NU_EFORMAT);
                goto done;
            }
            const nus::LconvFields &lc = h->lc;
            const char *symbol = conversion == 'i' ? nus::num::mb(lc.int_curr_symbol)
                                                   : nus::num::mb(lc.currency_symbol);
            const int32_t *pl = lc.mon_values + 2;
            int positive_mask[nus::num::kMaskSize] = {}, negative_mask[nus::num::kMaskSize] = {};
            nus::num::mon_mask(positive_mask, pl[0], pl[4], pl[1]);
            nus::num::mon_mask(negative_mask, pl[2], pl[5], pl[3]);
            if (positive_mask[0] == 0 || negative_mask[0] == 0) goto done;   // no error code

            // A width limits the input to the characters whose columns reach it.
            const nu_wchar *text = in;
            if (width > 0) {
                const int full_width = nu_ctype(h, "full_width");
                int taken = 0, cols = 0;
                while (in[taken] != 0 && cols < width) {
                    const nu_wchar one[2] = {in[taken], 0};
                    cols += columns(h, one, full_width);
                    ++taken;
                }
                limited = nus::alloc_array<nu_wchar>(static_cast<size_t>(taken) + 1);
                if (limited == nullptr) {
                    nus::set_error(h, NU_ENOMEM);
                    goto done;
                }
                std::memcpy(limited, in, static_cast<size_t>(taken) * sizeof(nu_wchar));
                limited[taken] = 0;
                text = limited;
            }
            const nu_wchar *pos_end = nullptr, *neg_end = nullptr;
            double pos_value = 0, neg_value = 0;
            bool pos_ok = nus::num::mon_maskmatch(h, positive_mask, flags,
                                                  nus::num::mb(lc.mon_positive_sign), symbol,
                                                  text, &pos_end, &pos_value) == 1 &&
                          pos_value >= 0;
            bool neg_ok = nus::num::mon_maskmatch(h, negative_mask, flags,
                                                  nus::num::mb(lc.mon_negative_sign), symbol,
                                                  text, &neg_end, &neg_value) == 1 &&
                          neg_value >= 0;
            if (pos_ok && neg_ok) {
                if (neg_end > pos_end) pos_ok = false;
                else neg_ok = false;
            }
            if (!pos_ok && !neg_ok) {
                pos_ok = nus::num::mon_maskmatch(h, positive_mask, flags, nus::num::kEmptyMb,
                                                 symbol, text,
                                                 &pos_end, &pos_value) == 1 &&
                         pos_value >= 0;
                if (!pos_ok) {
                    nus::set_error(h, NU_EBADVAL);
                    goto done;
                }
            }
            double *target = va_arg(ap, double *);
            if (target != nullptr) *target = pos_ok ? pos_value : -neg_value;
            in += (pos_ok ? pos_end : neg_end) - text;
            _nu_free_ptr(limited);
            limited = nullptr;
        }
    }
    result = const_cast<nu_wchar *>(in);
done:
    _nu_free_ptr(limited);
    va_end(ap);
    return result;
}

NU_EXPORT nu_wchar *nu_wcspmon(nu_locale_t h, const nu_wchar *input, const nu_wchar *format,
                               ...) {
    va_list args;
    va_start(args, format);
    nu_wchar *result = nu_wcspmon1(h, input, format, args);
    va_end(args);
    return result;
}

NU_EXPORT char *nu_mbspmon(nu_locale_t h, const char *input, const char *format, ...) {
    if (nus::no_handle(h)) return nullptr;
    if (input == nullptr || format == nullptr) {
        nus::set_error(h, NU_EBADARG);
        return nullptr;
    }
    nus::num::WideText<128> wide_input(h, input);
    nus::num::WideText<32> wide_format(h, format);
    if (wide_input.no_memory() || wide_format.no_memory()) {
        nus::set_error(h, NU_ENOMEM);
        return nullptr;
    }
    if (wide_input.get() == nullptr || wide_format.get() == nullptr) return nullptr;
    va_list args;
    va_start(args, format);
    const nu_wchar *end = nu_wcspmon1(h, wide_input.get(), wide_format.get(), args);
    va_end(args);
    if (end == nullptr) return nullptr;
    return const_cast<char *>(nus::num::step_chars(h, input, end - wide_input.get()));
}
