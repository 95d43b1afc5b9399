// Internal interface of the numbers-and-money folder: the locale's NUMERIC and MONETARY
// strings as the formatters read them, class tests of wide characters, and the file-local
// pieces of the formatters and converters that the tests reach directly.
#pragma once

#include "chars/chars.h"

#include <cstdarg>
#include <cstring>

namespace nus::num {

inline constexpr nu_wchar kEmptyWide[1] = {0};
// The empty string of every code set: a terminator is as many zero bytes as the code set's
// shortest character, at most 4.
inline constexpr char kEmptyMb[4] = {0, 0, 0, 0};

// A category string, empty when the category holds none (the null locale).
inline const char *mb(const CatString &s) { return s.mb != nullptr ? s.mb : kEmptyMb; }
inline const nu_wchar *wide(const CatString &s) { return s.wide != nullptr ? s.wide : kEmptyWide; }

inline int wlen(const nu_wchar *s) {
    int n = 0;
    while (s[n] != 0) ++n;
    return n;
}

// The classes of a wide character. In a handle whose classification table is single-byte a
// character above 255 has none and stores NU_EILSEQ.
inline int wclass(nu_locale_rec *h, nu_wchar wc, int mask) {
    if (h->single_byte && h->sb_class != nullptr) {
        if (wc > 0xFF) {
            set_error(h, NU_EILSEQ);
            return 0;
        }
        return h->sb_class[wc] & mask;
    }
    return _nu_im_iswctype(h, wc, mask);
}

// Multibyte to wide with the locale's string function: characters stored, or -1.
inline int to_wide(nu_locale_rec *h, nu_wchar *out, const char *s, int n) {
    return h->to_wide(h, out, reinterpret_cast<const unsigned char *>(s), n);
}

// Characters of a null-terminated multibyte string of the handle's code set, before its
// terminator (bytes in a single-byte code set). The terminator is as many zero bytes as the
// shortest character, and in a code set of two-byte characters every ASCII character begins
// with a zero byte: the string is measured by decoding, never up to its first zero byte.
// -1 with the error stored when it does not decode.
inline int mb_chars(nu_locale_rec *h, const char *s) {
    if (h->single_byte) return static_cast<int>(std::strlen(s));
    return _nu_im_mbslen(h, reinterpret_cast<const unsigned char *>(s));
}

// A null-terminated multibyte string of the handle's code set, widened with the locale's
// string function into a buffer of its characters plus the wide null: on the stack up to N
// characters, from the library allocator above that.
template <size_t N>
class WideText {
public:
    WideText(nu_locale_rec *h, const char *mb)
        : chars_(mb != nullptr ? mb_chars(h, mb) : -1),
          buffer_(chars_ >= 0 ? static_cast<size_t>(chars_) + 1 : 1) {
        if (chars_ < 0 || !buffer_.ok()) return;
        nu_wchar *w = buffer_.data();
        if (h->single_byte && h->to_wide == _nu_is_mbstowcs) {
            // The single-byte decoder, inline: each byte is its character.
            for (const char *p = mb; *p != 0; ++p) *w++ = static_cast<unsigned char>(*p);
            w = buffer_.data();
        } else if (to_wide(h, w, mb, chars_ + 1) < 0) {
            return;
        }
        w[chars_] = 0;
        text_ = w;
    }
    // The wide text; null when the string did not decode (error stored), when no buffer
    // could be had (see no_memory()) or for a null string.
    const nu_wchar *get() const { return text_; }
    nu_wchar *get() { return text_; }
    // The buffer was wanted and not obtained.
    bool no_memory() const { return chars_ >= 0 && !buffer_.ok(); }
    // The string was too long for the stack buffer.
    bool allocated() const { return buffer_.size() > N; }

private:
    int chars_;
    Scratch<nu_wchar, N> buffer_;
    nu_wchar *text_ = nullptr;
};

// Wide to multibyte with the locale's string function, at most n bytes.
inline int to_multibyte(nu_locale_rec *h, char *out, const nu_wchar *ws, int n) {
    auto *o = reinterpret_cast<unsigned char *>(out);
    return h->single_byte ? _nu_is_wcstombs(h, o, ws, n) : nu_full_wcstombs(h, o, ws, n);
}

// The position k characters after s, or null when a character cannot be decoded.
const char *step_chars(nu_locale_rec *h, const char *s, long k);

// Does the text ending at pos (backward) or starting there (forward) hold `what`? Its length
// in characters, else 0. The backward form never looks before `start`.
int match_forward(const nu_wchar *pos, const nu_wchar *what);
int match_backward(const nu_wchar *start, const nu_wchar *pos, const nu_wchar *what);

// ---- conversions --------------------------------------------------------------------------

// Digits of a magnitude in a base, most significant first ('0'..'9', then 'A'..'Z').
void long_base_str(char *out, unsigned long magnitude, int base);
void str_reverse(const char *source, char *destination);
void add_grp_sep(nu_locale_rec *h, nu_wchar *digits, int length, int negative);
int wcsdigits_to_str(nu_locale_rec *h, const nu_wchar **pos, char **cursor, char *limit,
                     int monetary, int grouping);
// The value of an ASCII digit or letter as a digit ('a' and 'A' are 10); 99 for others.
int digit_value(nu_wchar wc);
// The digits of the grouped text [p, q) in `base`, checked group by group from the right as
// the integer conversions check them (G1 next to the units, the next size after each
// separator while the list has one, a size of 0 or less ends the grouping), written without
// separators, most significant first, to out (room bytes): their count; -1 when a character
// there is no digit of the base; -2 when a separator is missing where a group ends or the
// digits do not fit (at most 256).
int ungroup_digits(const nu_wchar *p, const nu_wchar *q, const Grouping &g, const nu_wchar *sep,
                   int base, char *out, int room);
// A plain decimal text (C locale; '.' as its mark) as a double, the way the conversions to
// double read it; *stop is where the reading stopped. The text's mark may be rewritten.
double text_to_double(char *text, char **stop);
int wcsfracdigits_to_str(nu_locale_rec *h, const nu_wchar **pos, char **cursor, char *limit,
                         int monetary);

// ---- formatting ---------------------------------------------------------------------------

// The grouping state that travels between the set-up and the separator writer.
struct GroupState {
    int group_index;
    int seps_left;
    int repeats_left;
    int digits_to_sep;
};
void init_grouping(const Grouping &g, int digits, bool reverse, GroupState &s);

int CheckForInfinity(double value);
int CheckForNaN(double value);
int format_float(nu_locale_rec *h, double value, int *count, int size, nu_wchar **out,
                 int width, int precision, unsigned flags, nu_wchar conversion);
int format_char(nu_locale_rec *h, nu_wchar wc, int *count, int size, nu_wchar **out, int width,
                unsigned flags);
int format_string(nu_locale_rec *h, const nu_wchar *s, int *count, int size, nu_wchar **out,
                  int width, int precision, unsigned flags);

// ---- money --------------------------------------------------------------------------------

inline constexpr int kMaskSize = 6;
int mon_mask(int *mask, int cs_precedes, int sign_posn, int sep_by_space);
// The field of a value of value_length characters: the characters written, the terminator
// aside.
int format_money(nu_locale_rec *h, nu_wchar *out, const int *mask, int before, int after,
                 const char *symbol, const char *sign, const nu_wchar *value, int value_length);
int max_dsp_before_val(nu_locale_rec *h, const int *mask, const char *symbol, const char *sign,
                       const nu_wchar *value);
int max_dsp_after_val(nu_locale_rec *h, const int *mask, const char *symbol, const char *sign);
int get_grp_cnt(nu_locale_rec *h, int digits);
// Writes the `count` digits with the monetary separators, at most `separators` of them:
// the characters written.
int put_mon_grouped(nu_locale_rec *h, nu_wchar *out, const char *digits, int count,
                    int separators);
void round_dval(char *fraction, char *integer, int precision);
void get_lval_rval(const char *text, char *integer, char *fraction, int precision);
int mon_maskmatch(nu_locale_rec *h, const int *mask, unsigned flags, const char *sign,
                  const char *symbol, const nu_wchar *input, const nu_wchar **end, double *value);

} // namespace nus::num

namespace nus::num {

// "%.<precision>f" of a finite value of at least 0 as the system formatter writes it with the
// default rounding (to nearest, ties to even, on the exact binary value): digits, and a "."
// when the precision is above 0. False when the value or the precision is outside what the
// exact 64-bit path covers (the caller asks the system formatter then).
bool fixed_digits(double value, int precision, char *out, int room);

// The value of a plain decimal text (optional '-', digits, optional '.' and digits, optional
// exponent) when it has at most 15 significant digits and a small exponent: the correctly
// rounded double, as strtod gives it. False otherwise.
bool fast_decimal(const char *text, double *value);

} // namespace nus::num
