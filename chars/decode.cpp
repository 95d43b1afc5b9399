// Character decoding and encoding: the byte-class walk over the CTYPE table, wide characters
// to bytes and back, whole-string conversions and measures.
#include "chars/chars.h"
#include "locale/nuu.h"

#include <array>

namespace {

using nus::Walk;

int min_length(const nu_locale_rec *h) { return _nu_multi_min_length(h->ctype.class_table); }

// The companion branches: the CTYPE object first, the call's own arguments, a status last.
using nus::nuu_chars;
template <typename Fn, typename... A> auto companion(nu_locale_rec *h, Fn fn, A... args) {
    return nus::nuu_call(h, nus::kNuuCtype, fn, args...);
}

// Stores a failed walk's status; -1 for the caller to return.
int fail(nu_locale_rec *h, int status) {
    nus::set_error(h, status);
    return -1;
}

// Decoding of the one- and two-byte characters of a terminated string without the general
// walk, once a string has shown itself long enough to pay for 256 first-byte entries: per
// character one look-up of the first byte, one of the second in its node's flags, and no
// branch that depends on the length, so that text mixing one- and two-byte characters at
// random decodes at an even pace.
constexpr int kShortCharactersAfter = 64;

constexpr std::array<unsigned char, 256> kEveryByteLast = [] {
    std::array<unsigned char, 256> a{};
    for (unsigned char &f : a) f = MULTI_LAST;
    return a;
}();

struct ShortCharacters {
    // By first byte: 0 one byte, 1 two bytes ending in a node without children, 2 other
    // (the terminator, invalid bytes, longer characters): the walk decides.
    unsigned char kind[256];
    // By first byte, the flags of the second byte's node; for one-byte characters flags
    // that accept any next byte.
    const unsigned char *second[256];

    bool build(const multi_t *table) {
        const multi_arr_t *root = table != nullptr ? table->root : nullptr;
        if (root == nullptr || root->flag_arr == nullptr) return false;
        for (unsigned b = 0; b < 256; ++b) {
            kind[b] = 2;
            second[b] = kEveryByteLast.data();
            const unsigned flag = root->flag_arr[b];
            if (flag == MULTI_LAST) {
                kind[b] = 0;
            } else if (flag == MULTI_MORE) {
                const multi_arr_t *child = root->next_arr[root->offset_arr[b]];
                if (child != nullptr && child->child_count == 0 && child->flag_arr != nullptr) {
                    kind[b] = 1;
                    second[b] = child->flag_arr;
                }
            }
        }
        kind[0] = 2;   // the terminator ends the string in the general loop
        high_is_lead = true;
        for (unsigned b = 1; b < 256; ++b) {
            if (kind[b] <= 1 && kind[b] != b >> 7) high_is_lead = false;
        }
        return true;
    }
    // Every byte below 0x80 is a character, every one above a first byte of two or left to
    // the walk (EUC): the length comes from the byte itself, and the loop's chain from one
    // character to the next is a load and a shift, the kinds only checked beside it.
    bool high_is_lead = false;

    // Stores up to n characters from s, advancing s; stops before a character of kind 2 or
    // a two-byte one whose second byte does not end it. Reads the byte after a character's
    // first only when the first is no terminator.
    int decode(nu_wchar *wcs, const unsigned char *&s, int n) const {
        return high_is_lead ? decode_as<true>(wcs, s, n) : decode_as<false>(wcs, s, n);
    }
    template <bool HighIsLead>
    int decode_as(nu_wchar *wcs, const unsigned char *&s, int n) const {
        const unsigned char *p = s;
        int i = 0;
        for (; i < n; ++i) {
            const unsigned b0 = p[0];
            const unsigned k = HighIsLead ? b0 >> 7 : kind[b0];
            if (HighIsLead ? kind[b0] != k : k > 1) break;
            const unsigned b1 = p[1];
            if (second[b0][b1] != MULTI_LAST) break;
            wcs[i] = static_cast<nu_wchar>((b0 << (8 * k)) | (b1 & (0u - k)));
            p += 1 + k;
        }
        s = p;
        return i;
    }
};

} // namespace

namespace nus {

int encode(nu_locale_rec *h, unsigned char *out, nu_wchar wc) {
    const multi_arr_t *leaf = nullptr;
    const int length = encode_in(h->ctype.class_table, out, wc, &leaf);
    return length > 0 ? length : fail(h, NU_EILSEQ);
}

} // namespace nus

NU_EXPORT int nu_mb_loc_min(nu_locale_t h) {
    if (nus::no_handle(h)) return -1;
    if (nuu_chars(h)) return companion(h, nus::call_nuu_mb_loc_min());
    return min_length(h);
}
NU_EXPORT int nu_mb_loc_max(nu_locale_t h) {
    if (nus::no_handle(h)) return -1;
    if (nuu_chars(h)) return companion(h, nus::call_nuu_mb_loc_max());
    return _nu_multi_max_length(h->ctype.class_table);
}

NU_EXPORT int nu_mbsterm(nu_locale_t h, unsigned char *p) {
    if (nus::no_handle(h) || nus::missing(h, p)) return -1;
    const int m = min_length(h);
    for (int i = 0; i < m; ++i) p[i] = 0;
    return m;
}

// Length of the first character; 0 for the null character or a null string.
NU_EXPORT int nu_full_mblen(nu_locale_t h, const unsigned char *s, int n) {
    if (nus::no_handle(h)) return -1;
    if (nuu_chars(h)) return companion(h, nus::call_nuu_mblen(), s, n);
    if (s == nullptr) return 0;
    const Walk w = nus::walk(h->ctype.class_table, s, n);
    if (w.status != 0) return fail(h, w.status);
    return w.wc == 0 ? 0 : w.length;
}

// The same, but the null character has its length too: scanners step over terminators.
NU_EXPORT int _tsn_nu_full_mblen(nu_locale_t h, const unsigned char *s, int n) {
    if (nus::no_handle(h)) return -1;
    if (s == nullptr) return 0;
    const Walk w = nus::walk(h->ctype.class_table, s, n);
    if (w.status != 0) return fail(h, w.status);
    return w.length;
}

// Bytes of the string with its terminator. An illegal string gives 0, not -1: kept for
// compatibility (callers test for "less than 1").
NU_EXPORT int nu_mbsbytes(nu_locale_t h, const unsigned char *s) {
    if (nus::no_handle(h)) return 0;
    if (s == nullptr) return 0;
    long bytes = 0;
    if (h->single_byte) {
        while (s[bytes] != 0) ++bytes;
    } else {
        const multi_t *table = h->ctype.class_table;
        for (;;) {
            const Walk w = nus::walk(table, s + bytes, 4);
            if (w.status != 0) {
                nus::set_error(h, w.status);
                return 0;
            }
            if (w.wc == 0) break;
            bytes += w.length;
        }
    }
    return static_cast<int>(bytes) + min_length(h);
}

NU_EXPORT int _tsn_nu_full_mbtowc(nu_locale_t h, nu_wchar *pwc, const unsigned char *s, int n) {
    if (nus::no_handle(h)) return -1;
    if (nuu_chars(h)) {
        nu_wchar scratch = 0;
        return companion(h, nus::call_nuu_mbtouc32(), pwc != nullptr ? pwc : &scratch, s, n);
    }
    if (s == nullptr) return 0;
    if (n == -1) {
        // The string without its terminator; so an empty string is an incomplete character.
        const int bytes = nu_mbsbytes(h, s);
        if (bytes < 1) return -1;
        n = bytes - min_length(h);
    }
    const Walk w = nus::walk(h->ctype.class_table, s, n);
    if (w.status != 0) return fail(h, w.status);
    if (pwc != nullptr) *pwc = w.wc;
    return w.wc == 0 ? 0 : w.length;
}

// Unlike the counted form, -1 is no "up to the terminator" here: any n below 1 is an
// incomplete character.
NU_EXPORT int nu_full_mbtowc(nu_locale_t h, nu_wchar *pwc, const unsigned char *s, int n) {
    if (nus::no_handle(h)) return -1;
    if (nuu_chars(h)) {
        nu_wchar scratch = 0;
        return companion(h, nus::call_nuu_mbtouc32(), pwc != nullptr ? pwc : &scratch, s, n);
    }
    if (s == nullptr) return 0;
    if (n < 1) return fail(h, NU_EINVAL);
    return _tsn_nu_full_mbtowc(h, pwc, s, n);
}

NU_EXPORT int nu_full_wctomb(nu_locale_t h, unsigned char *s, nu_wchar wc) {
    if (nus::no_handle(h) || nus::missing(h, s)) return -1;
    if (nuu_chars(h)) return companion(h, nus::call_nuu_uc32tomb(), s, wc);
    return nus::encode(h, s, wc);
}

NU_EXPORT int nu_wclen(nu_locale_t h, nu_wchar wc) {
    if (nus::no_handle(h)) return -1;
    if (h->single_byte) return 1;
    unsigned char scratch[4];
    if (nuu_chars(h)) return companion(h, nus::call_nuu_uc32tomb(), scratch, wc);
    return nus::encode(h, scratch, wc);
}

// ---- string conversions -------------------------------------------------------------------

// Multibyte to wide in a multibyte code set. With a length, the result is the number of
// characters stored when the end was reached, or n + 1 when room ran out first: kept for
// compatibility, callers rely on the asymmetry. A span ending inside a character is an
// illegal sequence (1), not an incomplete one (7).
NU_EXPORT int _tsn_nu_im_mbfstowcfs(nu_locale_t h, nu_wchar *wcs, const unsigned char *s,
                                    int slen, int n) {
    if (nus::no_handle(h)) return -1;
    if (nuu_chars(h)) return companion(h, nus::call_nuu_mbstoucs32(), wcs, s, slen, n);
    const multi_t *table = h->ctype.class_table;
    // Characters of one byte end at the root: they are taken without a walk.
    const unsigned char *root_flags =
        table != nullptr && table->root != nullptr ? table->root->flag_arr : nullptr;
    if (slen == -1) {
        // Past the first characters of a long string, one- and two-byte characters come from
        // per-call tables of the first bytes.
        ShortCharacters quick;
        int quick_state = 0;   // 0 not built, 1 built, -1 no tables for this table
        for (int i = 0; i < n; ++i) {
            if (i >= kShortCharactersAfter && quick_state >= 0) {
                if (quick_state == 0) quick_state = quick.build(table) ? 1 : -1;
                if (quick_state > 0) {
                    i += quick.decode(wcs + i, s, n - i);
                    if (i == n) return n;
                }
            }
            if (root_flags != nullptr && root_flags[*s] == MULTI_LAST) {
                wcs[i] = *s;
                if (*s++ == 0) return i;
                continue;
            }
            const Walk w = nus::walk(table, s, 4);
            if (w.status != 0) return fail(h, w.status);
            wcs[i] = w.wc;
            if (w.wc == 0) return i;
            s += w.length;
        }
        return n;
    }
    // Nothing to decode: the first character would lie past the span.
    if (slen < 1) return 0;
    const unsigned char *end = s + slen;
    for (int i = 0; i < n; ++i) {
        // Runs of bytes below 128, eight at a time, where those are one-byte characters.
        if (h->ascii_direct && end - s >= 8 && n - i >= 8) {
            uint64_t block;
            std::memcpy(&block, s, sizeof block);
            if ((block & 0x8080808080808080ull) == 0) {
                for (int k = 0; k < 8; ++k) wcs[i + k] = s[k];
                s += 8;
                i += 7;
                if (s >= end) return i + 1;
                continue;
            }
        }
        if (root_flags != nullptr && root_flags[*s] == MULTI_LAST) {
            wcs[i] = *s++;
        } else {
            const Walk w = nus::walk(table, s, end - s);
            if (w.status != 0) return fail(h, NU_EILSEQ);
            wcs[i] = w.wc;
            s += w.length;
        }
        if (s >= end) return i + 1;
    }
    return n + 1;
}

NU_EXPORT int _nu_im_mbstowcs(nu_locale_t h, nu_wchar *wcs, const unsigned char *s, int n) {
    if (nus::no_handle(h)) return -1;
    return _tsn_nu_im_mbfstowcfs(h, wcs, s, -1, n);
}

// Single-byte code sets: every byte is the character of the same value. Cannot fail.
NU_EXPORT int _tsn_nu_is_mbfstowcfs(nu_locale_t, nu_wchar *wcs, const unsigned char *s,
                                    int slen, int n) {
    int i = 0;
    if (slen != -1) {
        for (; i < n && i < slen; ++i) wcs[i] = s[i];
        return i;
    }
    for (; i < n; ++i) {
        wcs[i] = s[i];
        if (s[i] == 0) break; // stored, not counted
    }
    return i;
}

NU_EXPORT int _nu_is_mbstowcs(nu_locale_t h, nu_wchar *wcs, const unsigned char *s, int n) {
    return _tsn_nu_is_mbfstowcfs(h, wcs, s, -1, n);
}

// Wide to multibyte. A character (the terminator included) that does not fit in the n bytes
// ends the conversion without error and without a terminator.
NU_EXPORT int _tsn_nu_full_wcstombs(nu_locale_t h, unsigned char *s, const nu_wchar *wcs,
                                    int wlen, int n) {
    if (nus::no_handle(h) || nus::missing(h, s, wcs)) return -1;
    if (nuu_chars(h)) return companion(h, nus::call_nuu_ucs32tombs(), s, wcs, wlen, n);
    const bool counted = wlen != -1;
    const int m = min_length(h);
    const bool single = h->single_byte != 0;
    int written = 0;
    for (int i = 0; !counted || i < wlen; ++i) {
        const nu_wchar wc = wcs[i];
        const int need = nus::encoded_length(wc, m);
        if (need == 0) return fail(h, NU_EILSEQ);
        if (static_cast<long>(written) + need > n) return written;
        if (!counted && wc == 0) {
            nu_mbsterm(h, s + written);
            return written;
        }
        if (single) {
            // The room was measured with the multibyte rule; one byte is stored: kept for
            // compatibility.
            s[written++] = static_cast<unsigned char>(wc);
        } else {
            const int put = nus::encode(h, s + written, wc);
            if (put < 0) return -1;
            written += put;
        }
    }
    return written;
}

NU_EXPORT int nu_full_wcstombs(nu_locale_t h, unsigned char *s, const nu_wchar *wcs, int n) {
    if (nus::no_handle(h)) return -1;
    return _tsn_nu_full_wcstombs(h, s, wcs, -1, n);
}

NU_EXPORT int _tsn_nu_is_wcstombs(nu_locale_t h, unsigned char *s, const nu_wchar *wcs,
                                  int wlen, int n) {
    if (nus::no_handle(h) || nus::missing(h, s, wcs)) return -1;
    if (nuu_chars(h)) return companion(h, nus::call_nuu_ucs32tombs(), s, wcs, wlen, n);
    const bool counted = wlen != -1;
    int written = 0;
    for (int i = 0; !counted || i < wlen; ++i) {
        if (written >= n) return written;
        const nu_wchar wc = wcs[i];
        if (!counted && wc == 0) {
            nu_mbsterm(h, s + written);
            return written;
        }
        if (wc > 0xFF) return fail(h, NU_EILSEQ);
        s[written++] = static_cast<unsigned char>(wc);
    }
    return written;
}

NU_EXPORT int _nu_is_wcstombs(nu_locale_t h, unsigned char *s, const nu_wchar *wcs, int n) {
    if (nus::no_handle(h)) return -1;
    return _tsn_nu_is_wcstombs(h, s, wcs, -1, n);
}

// ---- measures -----------------------------------------------------------------------------

NU_EXPORT int _nu_im_mbslen(nu_locale_t h, const unsigned char *s) {
    if (nus::no_handle(h)) return -1;
    if (s == nullptr) return 0;
    const multi_t *table = h->ctype.class_table;
    const unsigned char *root_flags =
        table != nullptr && table->root != nullptr ? table->root->flag_arr : nullptr;
    int count = 0;
    for (;;) {
        // Characters of one byte end at the root: they are counted without a walk.
        if (root_flags != nullptr && root_flags[*s] == MULTI_LAST) {
            if (*s++ == 0) return count;
            ++count;
            continue;
        }
        const Walk w = nus::walk(table, s, 4);
        if (w.status != 0) return fail(h, w.status);
        if (w.wc == 0) return count;
        s += w.length;
        ++count;
    }
}

// Characters in the span; a null character inside it counts as one character of the minimum
// length. A character running past the end of the span is an illegal sequence.
NU_EXPORT int _tsn_nu_im_mbfslen(nu_locale_t h, const unsigned char *s, int slen) {
    if (nus::no_handle(h)) return -1;
    if (s == nullptr) return 0;
    const int m = min_length(h);
    if (slen == -1) slen = nu_mbsbytes(h, s) - m;
    if (slen <= 0) return 0;
    const multi_t *table = h->ctype.class_table;
    const bool single = h->single_byte != 0;
    const unsigned char *end = s + slen;
    int count = 0;
    while (s < end) {
        int step;
        if (single) {
            step = *s == 0 ? 0 : 1;
        } else {
            // At most 4 bytes, and never past the span: a character cut by the end fails
            // below just as one that runs over it.
            const long left = end - s;
            const Walk w = nus::walk(table, s, left < 4 ? left : 4);
            if (w.status == NU_EINVAL && left < 4) return fail(h, NU_EILSEQ);
            if (w.status != 0) return fail(h, w.status);
            step = w.wc == 0 ? 0 : w.length;
        }
        ++count;
        if (step == 0) step = m > 0 ? m : 1;
        if (step > end - s) return fail(h, NU_EILSEQ);
        s += step;
    }
    return count;
}

NU_EXPORT int nu_wcslen(const nu_wchar *wcs) {
    int count = 0;
    while (wcs[count] != 0) ++count;
    return count;
}

NU_EXPORT int nu_wcsbytes(const nu_wchar *wcs) { return 4 * (nu_wcslen(wcs) + 1); }
