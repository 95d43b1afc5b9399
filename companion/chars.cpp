// The companion's objects and its character functions: decoding and encoding UTF-8 to and
// from UTF-32, stepping, searching, widths, classes and case, all from ICU's properties.
#include "internal.h"

#include <unicode/uchar.h>

#include <cstdlib>
#include <cstring>
#include <strings.h>

using nuu::fail;
using nuu::step;

namespace {

const nuu_host *g_host = nullptr;

bool is_utf8(const char *codeset) {
    return codeset != nullptr &&
           (strcasecmp(codeset, "utf8") == 0 || strcasecmp(codeset, "utf-8") == 0);
}

// The step's failure as the status the callers report.
int failed(nuu_status *status, int code) {
    fail(status, static_cast<nuu_status>(-code));
    return -1;
}

// Display width of a code point, or -1 when it has none: nothing for the null character, two
// columns for East Asian wide and full-width characters, none for combining marks and format
// characters, one otherwise; controls, unassigned code points and surrogates are not shown.
int width_of(UChar32 c) {
    if (c == 0) return 0;
    const int8_t type = u_charType(c);
    if (type == U_NON_SPACING_MARK || type == U_ENCLOSING_MARK || type == U_FORMAT_CHAR)
        return 0;
    if (!u_isprint(c) || type == U_UNASSIGNED || type == U_SURROGATE) return -1;
    const int eaw = u_getIntPropertyValue(c, UCHAR_EAST_ASIAN_WIDTH);
    return eaw == U_EA_WIDE || eaw == U_EA_FULLWIDTH ? 2 : 1;
}

bool valid_scalar(nuu_uc32 wc) { return wc <= 0x10FFFF && !U_IS_SURROGATE(wc); }

// A trailing blank: a horizontal space that is not a control (so a tab is not one).
bool trailing_blank(UChar32 c) { return u_isblank(c) && !u_iscntrl(c); }

} // namespace

namespace nuu {
const nuu_host *host() { return g_host; }
}

NUU_EXPORT int nuu_init(const nuu_host *host, nuu_status *status) {
    if (host == nullptr || host->version != NUU_INTERFACE_VERSION) {
        fail(status, kEbadarg);
        return -1;
    }
    g_host = host;
    return 0;
}

NUU_EXPORT nuu_obj *nuu_open(const char *locale, const char *codeset, int category,
                             nuu_status *status) {
    if (locale == nullptr) {
        fail(status, kEbadarg);
        return nullptr;
    }
    if (!is_utf8(codeset)) {
        fail(status, kEcodeset);
        return nullptr;
    }
    auto *o = static_cast<nuu_obj *>(std::calloc(1, sizeof(nuu_obj)));
    if (o == nullptr) {
        fail(status, kEnomem);
        return nullptr;
    }
    o->category = category;
    if (category == 3) {
        UErrorCode err = U_ZERO_ERROR;
        o->coll = ucol_open(locale, &err);
        if (U_FAILURE(err)) {
            std::free(o);
            fail(status, err == U_MEMORY_ALLOCATION_ERROR ? kEnomem : kEload);
            return nullptr;
        }
        // The comparison's types are ICU's, as the C ABI passes them (enums are ints).
        o->head.compare = reinterpret_cast<nuu_compare_fn>(&ucol_strcollUTF8);
        o->head.collator = o->coll;
    }
    return o;
}

NUU_EXPORT void nuu_close(nuu_obj *o) {
    if (o == nullptr) return;
    if (o->primary != nullptr) ucol_close(o->primary);
    if (o->coll != nullptr) ucol_close(o->coll);
    std::free(o);
}

// ---- decoding and encoding --------------------------------------------------------------

NUU_EXPORT int nuu_mblen(nuu_obj *, const unsigned char *s, int n, nuu_status *status) {
    if (s == nullptr) return 0;
    UChar32 c;
    const int k = step(s, n, &c);
    if (k < 0) return failed(status, k);
    return c == 0 ? 0 : k;
}

NUU_EXPORT int nuu_mbtouc32(nuu_obj *, nuu_uc32 *pwc, const unsigned char *s, int n,
                            nuu_status *status) {
    if (s == nullptr) return 0;
    if (pwc == nullptr) {
        fail(status, kEbadarg);
        return -1;
    }
    // -1: the string up to its terminator.
    const int budget = n == -1 ? nuu::length_of(s, -1) : n;
    UChar32 c;
    const int k = step(s, budget, &c);
    if (k < 0) return failed(status, k);
    *pwc = static_cast<nuu_uc32>(c);
    return c == 0 ? 0 : k;
}

NUU_EXPORT int nuu_uc32tomb(nuu_obj *, unsigned char *s, nuu_uc32 wc, nuu_status *status) {
    if (s == nullptr) {
        fail(status, kEbadarg);
        return -1;
    }
    if (!valid_scalar(wc)) {
        fail(status, kEilseq);
        return -1;
    }
    int32_t i = 0;
    U8_APPEND_UNSAFE(s, i, static_cast<UChar32>(wc));
    return i;
}

// Results as the library's own multibyte-to-wide conversion gives them: without a length the
// characters before the stored wide null (or n); with one, the characters stored when the end
// was reached, or n + 1 when the room ran out first.
NUU_EXPORT int nuu_mbstoucs32(nuu_obj *, nuu_uc32 *wcs, const unsigned char *s, int slen, int n,
                              nuu_status *status) {
    if (wcs == nullptr || s == nullptr) {
        fail(status, kEbadarg);
        return -1;
    }
    if (slen == 0) return 0;
    const unsigned char *end = slen != -1 ? s + slen : nullptr;
    for (int i = 0; i < n; ++i) {
        UChar32 c;
        // A span that ends inside a character is an illegal sequence here.
        const int k = step(s, end != nullptr ? static_cast<int>(end - s) : 4, &c);
        if (k < 0) return failed(status, end != nullptr ? -kEilseq : k);
        wcs[i] = static_cast<nuu_uc32>(c);
        s += k;
        if (end != nullptr) {
            if (s >= end) return i + 1;
        } else if (c == 0) {
            return i;
        }
    }
    return end != nullptr ? n + 1 : n;
}

NUU_EXPORT int nuu_ucs32tombs(nuu_obj *, unsigned char *s, const nuu_uc32 *wcs, int wlen,
                              int n, nuu_status *status) {
    if (s == nullptr || wcs == nullptr) {
        fail(status, kEbadarg);
        return -1;
    }
    int written = 0;
    for (int i = 0; wlen == -1 || i < wlen; ++i) {
        const nuu_uc32 wc = wcs[i];
        if (!valid_scalar(wc)) {
            fail(status, kEilseq);
            return -1;
        }
        const int need = U8_LENGTH(static_cast<UChar32>(wc));
        if (written + need > n) return written;
        if (wlen == -1 && wc == 0) {
            s[written] = 0;
            return written;
        }
        int32_t at = written;
        U8_APPEND_UNSAFE(s, at, static_cast<UChar32>(wc));
        written = at;
    }
    return written;
}

NUU_EXPORT int nuu_mb_loc_min(nuu_obj *, nuu_status *) { return 1; }
NUU_EXPORT int nuu_mb_loc_max(nuu_obj *, nuu_status *) { return U8_MAX_LENGTH; }

// ---- stepping and searching -------------------------------------------------------------

NUU_EXPORT const unsigned char *nuu_mbsnext(nuu_obj *, const unsigned char *s, int n,
                                            nuu_status *status) {
    if (s == nullptr) {
        fail(status, kEbadarg);
        return nullptr;
    }
    UChar32 c;
    // Without a budget the terminator is stepped over like any character.
    const int k = step(s, n == -1 ? 4 : n, &c);
    if (k < 0) {
        failed(status, k);
        return nullptr;
    }
    return s + k;
}

NUU_EXPORT const unsigned char *nuu_mbsprev(nuu_obj *, const unsigned char *start,
                                            const unsigned char *pos, nuu_status *status) {
    if (start == nullptr || pos == nullptr) {
        fail(status, kEbadarg);
        return nullptr;
    }
    if (pos <= start) {
        fail(status, kEposition);
        return nullptr;
    }
    int32_t i = static_cast<int32_t>(pos - start);
    U8_BACK_1(start, 0, i);
    return start + i;
}

NUU_EXPORT unsigned char *nuu_putmbsi(nuu_obj *, unsigned char *s, int i,
                                      const unsigned char *c, nuu_status *status) {
    if (s == nullptr || c == nullptr) {
        fail(status, kEbadarg);
        return nullptr;
    }
    if (i < 0) {
        fail(status, kEnowidth);
        return nullptr;
    }
    unsigned char *p = s;
    UChar32 ch;
    for (int k = 0; k < i; ++k) {
        const int step_length = step(p, 4, &ch);
        if (step_length < 0) {
            failed(status, step_length);
            return nullptr;
        }
        p += step_length;
    }
    const int old_length = step(p, 4, &ch);
    const int new_length = step(c, 4, &ch);
    if (old_length < 0 || new_length < 0) {
        failed(status, old_length < 0 ? old_length : new_length);
        return nullptr;
    }
    const size_t rest = std::strlen(reinterpret_cast<char *>(p + old_length)) + 1;
    std::memmove(p + new_length, p + old_length, rest);
    std::memcpy(p, c, static_cast<size_t>(new_length));
    return s;
}

NUU_EXPORT const unsigned char *nuu_mbschr(nuu_obj *, const unsigned char *s, int sn,
                                           const unsigned char *c, int cn,
                                           nuu_status *status) {
    if (s == nullptr || c == nullptr) {
        fail(status, kEbadarg);
        return nullptr;
    }
    UChar32 wanted;
    const int clen = step(c, cn == -1 ? 4 : cn, &wanted);
    if (clen < 0) {
        failed(status, clen);
        return nullptr;
    }
    const int length = sn == -1 ? nuu::length_of(s, -1) + 1 : sn;
    for (int at = 0; at < length;) {
        UChar32 ch;
        const int k = step(s + at, length - at, &ch);
        if (k < 0) {
            failed(status, k);
            return nullptr;
        }
        if (ch == wanted) return s + at;
        if (sn == -1 && ch == 0) break;
        at += k;
    }
    return nullptr;
}

NUU_EXPORT int nuu_mbsntsbytes(nuu_obj *, const unsigned char *s, int n, nuu_status *status) {
    if (s == nullptr) {
        fail(status, kEbadarg);
        return -1;
    }
    int count = 0, pending = 0;
    for (int at = 0; n == -1 ? s[at] != 0 : at < n;) {
        UChar32 c;
        const int k = step(s + at, n == -1 ? 4 : n - at, &c);
        if (k < 0) return failed(status, k);
        if (trailing_blank(c)) {
            pending += k;
        } else {
            count += pending + k;
            pending = 0;
        }
        at += k;
    }
    return count;
}

// ---- widths ------------------------------------------------------------------------------

NUU_EXPORT int nuu_uc32width(nuu_obj *, nuu_uc32 wc, nuu_status *status) {
    const int w = wc > 0x10FFFF ? -1 : width_of(static_cast<UChar32>(wc));
    if (w < 0) fail(status, kEinval);
    return w;
}

NUU_EXPORT int nuu_mbwidth(nuu_obj *, const unsigned char *s, nuu_status *status) {
    if (s == nullptr) {
        fail(status, kEbadarg);
        return -1;
    }
    UChar32 c;
    const int k = step(s, 4, &c);
    if (k < 0) return failed(status, -kEilseq);
    const int w = width_of(c);
    if (w < 0) fail(status, kEinval);
    return w;
}

namespace {

// Sum of the widths of the wide characters in [ws, end) (end null: at most n), stopping at a
// null character.
int wide_width(const nuu_uc32 *ws, const nuu_uc32 *end, int n, nuu_status *status) {
    int sum = 0;
    for (int i = 0; end != nullptr ? ws + i < end : i < n; ++i) {
        if (ws[i] == 0) break;
        const int w = ws[i] > 0x10FFFF ? -1 : width_of(static_cast<UChar32>(ws[i]));
        if (w < 0) {
            fail(status, kEinval);
            return -1;
        }
        sum += w;
    }
    return sum;
}

int multibyte_width(const unsigned char *s, const unsigned char *end, int n,
                    nuu_status *status) {
    int sum = 0;
    for (int i = 0; end != nullptr ? s < end : i < n; ++i) {
        UChar32 c;
        const int k = step(s, end != nullptr ? static_cast<int>(end - s) : 4, &c);
        if (k < 0) return failed(status, -kEilseq);
        if (c == 0) break;
        const int w = width_of(c);
        if (w < 0) {
            fail(status, kEinval);
            return -1;
        }
        sum += w;
        s += k;
    }
    return sum;
}

// True, with `code` stored, when an argument check finds `bad`.
bool refused(bool bad, nuu_status code, nuu_status *status) {
    if (bad) fail(status, code);
    return bad;
}

} // namespace

NUU_EXPORT int nuu_ucs32width(nuu_obj *, const nuu_uc32 *ws, int n, nuu_status *status) {
    if (refused(ws == nullptr, kEbadarg, status) || refused(n < 0, kEnowidth, status)) return -1;
    return wide_width(ws, nullptr, n, status);
}

NUU_EXPORT int nuu_mbswidth(nuu_obj *, const unsigned char *s, int n, nuu_status *status) {
    if (refused(s == nullptr, kEbadarg, status) || refused(n < 0, kEnowidth, status)) return -1;
    return multibyte_width(s, nullptr, n, status);
}

NUU_EXPORT int nuu_ucs32pwidth(nuu_obj *, const nuu_uc32 *start, const nuu_uc32 *end,
                               nuu_status *status) {
    if (refused(start == nullptr || end == nullptr, kEbadarg, status) ||
        refused(end < start, kEposition, status))
        return -1;
    return wide_width(start, end, 0, status);
}

NUU_EXPORT int nuu_mbspwidth(nuu_obj *, const unsigned char *start, const unsigned char *end,
                             nuu_status *status) {
    if (refused(start == nullptr || end == nullptr, kEbadarg, status) ||
        refused(end < start, kEposition, status))
        return -1;
    return multibyte_width(start, end, 0, status);
}

// ---- classes and case -------------------------------------------------------------------

// The classes of a code point by ICU's POSIX-compatible definitions.
NUU_EXPORT int nuu_iswctype(nuu_obj *, nuu_uc32 wc, int mask, nuu_status *) {
    if (wc > 0x10FFFF) return 0;
    const UChar32 c = static_cast<UChar32>(wc);
    int classes = 0;
    if (u_isUUppercase(c)) classes |= NUU_UPPER;
    if (u_isULowercase(c)) classes |= NUU_LOWER;
    if (u_isUAlphabetic(c)) classes |= NUU_ALPHA;
    if (u_isdigit(c)) classes |= NUU_DIGIT;
    if (u_isspace(c)) classes |= NUU_SPACE;
    if (u_iscntrl(c)) classes |= NUU_CNTRL;
    if (u_ispunct(c)) classes |= NUU_PUNCT;
    // graph and print as ICU's regular expressions define them for POSIX.
    const int8_t type = u_charType(c);
    const bool graph = !u_isUWhiteSpace(c) && type != U_CONTROL_CHAR && type != U_SURROGATE &&
                       type != U_UNASSIGNED;
    if (graph) classes |= NUU_GRAPH;
    if ((graph || u_isblank(c)) && !u_iscntrl(c)) classes |= NUU_PRINT;
    if (u_isxdigit(c)) classes |= NUU_XDIGIT;
    if (u_isblank(c)) classes |= NUU_BLANK;
    return classes & mask;
}

NUU_EXPORT nuu_uc32 nuu_towupper(nuu_obj *, nuu_uc32 wc, nuu_status *) {
    return wc > 0x10FFFF ? wc : static_cast<nuu_uc32>(u_toupper(static_cast<UChar32>(wc)));
}

NUU_EXPORT nuu_uc32 nuu_towlower(nuu_obj *, nuu_uc32 wc, nuu_status *) {
    return wc > 0x10FFFF ? wc : static_cast<nuu_uc32>(u_tolower(static_cast<UChar32>(wc)));
}

// One character read a byte at a time: its bytes into buf and their count into *len; the
// failure as the library's readers report it: NU_EILSEQ at the first byte that cannot go on,
// and otherwise the code `ended` gives for the end of the bytes (before any byte, or inside
// a character).
template <class Next, class Ended>
int read_character(unsigned char *buf, int *len, Next next, Ended ended, nuu_uc32 *out,
                   nuu_status *status) {
    *len = 0;
    for (;;) {
        const int b = next();
        if (b < 0) {
            fail(status, ended(*len == 0));
            return -1;
        }
        buf[(*len)++] = static_cast<unsigned char>(b);
        UChar32 c;
        const int k = step(buf, *len, &c);
        if (k > 0) {
            *out = static_cast<nuu_uc32>(c);
            return 0;
        }
        if (k == -kEilseq || *len == 4) {
            fail(status, kEilseq);
            return -1;
        }
    }
}

NUU_EXPORT int nuu_getmb(nuu_obj *, unsigned char *buf, nuu_getbyte getbyte, void *stream,
                         int *len, nuu_status *status) {
    int taken = 0;
    if (len == nullptr) len = &taken;
    *len = 0;
    if (buf == nullptr || getbyte == nullptr) {
        fail(status, kEbadarg);
        return -1;
    }
    nuu_uc32 c = 0;
    return read_character(
        buf, len, [&] { return getbyte(stream); },
        [](bool first) { return first ? kEeof : kEinval; }, &c, status);
}

NUU_EXPORT nuu_uc32 nuu_fgetuc32(nuu_obj *, void *stream, nuu_status *status) {
    const nuu_host *h = nuu::host();
    if (stream == nullptr || h == nullptr) {
        fail(status, kEbadarg);
        return static_cast<nuu_uc32>(-1);
    }
    unsigned char buf[4];
    int len = 0;
    nuu_uc32 c = 0;
    const int r = read_character(
        buf, &len, [&] { return h->fgetc(stream); },
        [&](bool first) {
            if (h->feof(stream)) return first ? kEeof : kEinval;
            return h->ferror(stream) ? kEio : kEread;
        },
        &c, status);
    return r == 0 ? c : static_cast<nuu_uc32>(-1);
}
