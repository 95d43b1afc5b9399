// Character decoding and encoding: the byte-class walk over the CTYPE table, wide characters
// to bytes and back, whole-string conversions and measures.
#include "chars/chars.h"

namespace {

using nus::Walk;

// The bytes that a wide character needs in a code set whose shortest character has `m`
// bytes; 0 when that is no length at all.
inline int encoded_length(nu_wchar wc, int m) {
    int length = wc < 0x100u ? m : wc < 0x10000u ? (m > 2 ? m : 2) : wc <= 0xFFFFFFu ? (m > 3 ? m : 3) : 4;
    return length >= 1 && length <= 4 ? length : 0;
}

int min_length(const nu_locale_rec *h) { return _nu_multi_min_length(h->ctype.class_table); }

} // namespace

namespace nus {

Walk walk(const multi_t *table, const unsigned char *s, long budget) {
    Walk w{};
    const multi_arr_t *node = table->root;
    for (;;) {
        if (node == nullptr || node->flag_arr == nullptr) {
            w.status = NU_EILSEQ;
            return w;
        }
        if (budget < 1) {
            w.status = NU_EINVAL;
            return w;
        }
        const unsigned char b = s[w.length++];
        --budget;
        w.wc = (w.wc << 8) | b;
        w.sum = static_cast<uint16_t>(w.sum + b);
        const unsigned char flag = node->flag_arr[b];
        if (flag == MULTI_LAST) return w;
        if (flag != MULTI_MORE || w.length == MULTI_MAX_DEPTH) {
            w.status = NU_EILSEQ;
            return w;
        }
        node = node->next_arr[node->offset_arr[b]];
    }
}

int encode(nu_locale_rec *h, unsigned char *out, nu_wchar wc) {
    const int length = encoded_length(wc, min_length(h));
    if (length == 0) {
        set_error(h, NU_EILSEQ);
        return -1;
    }
    const multi_arr_t *node = h->ctype.class_table->root;
    for (int i = 0; i < length; ++i) {
        const auto b = static_cast<unsigned char>(wc >> (8 * (length - 1 - i)));
        const bool last = i == length - 1;
        if (node == nullptr || node->flag_arr == nullptr ||
            node->flag_arr[b] != (last ? MULTI_LAST : MULTI_MORE)) {
            set_error(h, NU_EILSEQ);
            return -1;
        }
        out[i] = b;
        if (!last) node = node->next_arr[node->offset_arr[b]];
    }
    return length;
}

} // namespace nus

NU_EXPORT int nu_mb_loc_min(nu_locale_t h) { return min_length(h); }
NU_EXPORT int nu_mb_loc_max(nu_locale_t h) { return _nu_multi_max_length(h->ctype.class_table); }

NU_EXPORT int nu_mbsterm(nu_locale_t h, unsigned char *p) {
    const int m = min_length(h);
    for (int i = 0; i < m; ++i) p[i] = 0;
    return m;
}

// Length of the first character; 0 for the null character or a null string.
NU_EXPORT int nu_full_mblen(nu_locale_t h, const unsigned char *s, int n) {
    if (s == nullptr) return 0;
    const Walk w = nus::walk(h->ctype.class_table, s, n);
    if (w.status != 0) {
        nus::set_error(h, w.status);
        return -1;
    }
    return w.sum == 0 ? 0 : w.length;
}

// The same, but the null character has its length too: scanners step over terminators.
NU_EXPORT int _tsn_nu_full_mblen(nu_locale_t h, const unsigned char *s, int n) {
    if (s == nullptr) return 0;
    const Walk w = nus::walk(h->ctype.class_table, s, n);
    if (w.status != 0) {
        nus::set_error(h, w.status);
        return -1;
    }
    return w.length;
}

NU_EXPORT int nu_mbsbytes(nu_locale_t h, const unsigned char *s) {
    if (s == nullptr) return 0;
    long bytes = 0;
    if (h->single_byte) {
        while (s[bytes] != 0) ++bytes;
    } else {
        for (;;) {
            const int step = nu_full_mblen(h, s + bytes, 4);
            if (step < 0) return 0;
            if (step == 0) break;
            bytes += step;
        }
    }
    return static_cast<int>(bytes) + min_length(h);
}

NU_EXPORT int _tsn_nu_full_mbtowc(nu_locale_t h, nu_wchar *pwc, const unsigned char *s, int n) {
    if (s == nullptr) return 0;
    if (n == -1) {
        const int bytes = nu_mbsbytes(h, s);
        if (bytes < 1) return -1;
        n = bytes - min_length(h);
    }
    if (n < 1) {
        nus::set_error(h, NU_EINVAL);
        return -1;
    }
    const Walk w = nus::walk(h->ctype.class_table, s, n);
    if (w.status != 0) {
        nus::set_error(h, w.status);
        return -1;
    }
    *pwc = w.wc;
    return w.wc == 0 ? 0 : w.length;
}

NU_EXPORT int nu_full_mbtowc(nu_locale_t h, nu_wchar *pwc, const unsigned char *s, int n) {
    if (n < 1 && s != nullptr) {
        nus::set_error(h, NU_EINVAL);
        return -1;
    }
    return _tsn_nu_full_mbtowc(h, pwc, s, n);
}

NU_EXPORT int nu_full_wctomb(nu_locale_t h, unsigned char *s, nu_wchar wc) {
    return nus::encode(h, s, wc);
}

NU_EXPORT int nu_wclen(nu_locale_t h, nu_wchar wc) {
    if (h->single_byte) return 1;
    unsigned char scratch[4];
    return nus::encode(h, scratch, wc);
}

// ---- string conversions -------------------------------------------------------------------

// Multibyte to wide in a multibyte code set. With a length, the result is the number of
// characters stored when the end was reached, or n + 1 when room ran out first: kept as the
// defined result.
NU_EXPORT int _tsn_nu_im_mbfstowcfs(nu_locale_t h, nu_wchar *wcs, const unsigned char *s,
                                    int slen, int n) {
    const bool counted = slen != -1;
    const unsigned char *end = counted ? s + slen : nullptr;
    int i = 0;
    for (; i < n; ++i) {
        const long budget = counted ? end - s : 4;
        const Walk w = nus::walk(h->ctype.class_table, s, budget);
        if (w.status != 0) {
            // A span that ends inside a character is an illegal sequence here.
            nus::set_error(h, counted ? NU_EILSEQ : w.status);
            return -1;
        }
        wcs[i] = w.wc;
        s += w.length;
        if (counted) {
            if (s >= end) return i + 1;
        } else if (w.wc == 0) {
            return i;
        }
    }
    return counted ? n + 1 : n;
}

NU_EXPORT int _nu_im_mbstowcs(nu_locale_t h, nu_wchar *wcs, const unsigned char *s, int n) {
    return _tsn_nu_im_mbfstowcfs(h, wcs, s, -1, n);
}

NU_EXPORT int _tsn_nu_is_mbfstowcfs(nu_locale_t, nu_wchar *wcs, const unsigned char *s,
                                    int slen, int n) {
    int i = 0;
    if (slen != -1) {
        for (; i < n && i < slen; ++i) wcs[i] = s[i];
        return i;
    }
    for (; i < n; ++i) {
        wcs[i] = s[i];
        if (s[i] == 0) break;
    }
    return i;
}

NU_EXPORT int _nu_is_mbstowcs(nu_locale_t h, nu_wchar *wcs, const unsigned char *s, int n) {
    return _tsn_nu_is_mbfstowcfs(h, wcs, s, -1, n);
}

namespace {

// Wide to multibyte, shared by the general and the single-byte forms. A character that does
// not fit in n bytes ends the conversion without error and without a terminator.
template <bool SingleByte>
int wide_to_multibyte(nu_locale_rec *h, unsigned char *s, const nu_wchar *wcs, int wlen,
                      int n) {
    const bool counted = wlen != -1;
    const int m = min_length(h);
    int written = 0;
    for (int i = 0; !counted || i < wlen; ++i) {
        const nu_wchar wc = wcs[i];
        if (!counted && wc == 0) {
            nu_mbsterm(h, s + written);
            return written;
        }
        if (SingleByte) {
            if (written + 1 > n) return written;
            if (wc > 0xFF) {
                nus::set_error(h, NU_EILSEQ);
                return -1;
            }
            s[written++] = static_cast<unsigned char>(wc);
            continue;
        }
        const int need = encoded_length(wc, m);
        if (written + need > n) return written;
        if (h->single_byte) {
            s[written++] = static_cast<unsigned char>(wc);
        } else {
            const int put = nus::encode(h, s + written, wc);
            if (put < 0) return -1;
            written += put;
        }
    }
    return written;
}

} // namespace

NU_EXPORT int _tsn_nu_full_wcstombs(nu_locale_t h, unsigned char *s, const nu_wchar *wcs,
                                    int wlen, int n) {
    return wide_to_multibyte<false>(h, s, wcs, wlen, n);
}

NU_EXPORT int nu_full_wcstombs(nu_locale_t h, unsigned char *s, const nu_wchar *wcs, int n) {
    return wide_to_multibyte<false>(h, s, wcs, -1, n);
}

NU_EXPORT int _tsn_nu_is_wcstombs(nu_locale_t h, unsigned char *s, const nu_wchar *wcs,
                                  int wlen, int n) {
    return wide_to_multibyte<true>(h, s, wcs, wlen, n);
}

NU_EXPORT int _nu_is_wcstombs(nu_locale_t h, unsigned char *s, const nu_wchar *wcs, int n) {
    return wide_to_multibyte<true>(h, s, wcs, -1, n);
}

// ---- measures -----------------------------------------------------------------------------

NU_EXPORT int _nu_im_mbslen(nu_locale_t h, const unsigned char *s) {
    int count = 0;
    for (;;) {
        const int step = nu_full_mblen(h, s, 4);
        if (step < 0) return -1;
        if (step == 0) return count;
        s += step;
        ++count;
    }
}

NU_EXPORT int _tsn_nu_im_mbfslen(nu_locale_t h, const unsigned char *s, int slen) {
    const int m = min_length(h);
    if (slen == -1) slen = nu_mbsbytes(h, s) - m;
    if (slen <= 0) return 0;
    const unsigned char *end = s + slen;
    int count = 0;
    while (s < end) {
        int step;
        if (h->single_byte) step = (s == nullptr || *s == 0) ? 0 : 1;
        else step = nu_full_mblen(h, s, 4);
        if (step < 0) return -1;
        s += step == 0 ? m : step;   // a null character inside the span counts too
        ++count;
    }
    if (s > end) {
        nus::set_error(h, NU_EILSEQ);
        return -1;
    }
    return count;
}

NU_EXPORT int nu_wcslen(const nu_wchar *wcs) {
    int count = 0;
    while (wcs[count] != 0) ++count;
    return count;
}

NU_EXPORT int nu_wcsbytes(const nu_wchar *wcs) { return 4 * (nu_wcslen(wcs) + 1); }
