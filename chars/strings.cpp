// String operations on multibyte and wide strings: stepping and positions, lengths without
// trailing blanks, display widths, copy, concatenation, search and span. Every function keeps
// to character boundaries: a byte inside a multibyte character is never taken for a character
// of its own. The null-terminated and length-given forms share one walker each.
//
// The companion Unicode library is not part of this library, so the handle's companion flag
// is never set and the forwarding paths of these functions do not exist here.
#include "chars/chars.h"
#include "locale/nuu.h"

#include <cstring>

namespace {

using nus::Walk;

constexpr int kBlank = NU_CLASS_BLANK;
constexpr int kSpace = NU_CLASS_SPACE;
constexpr int kCntrl = NU_CLASS_CNTRL;
constexpr int kPrint = NU_CLASS_PRINT;

// One character of a multibyte string.
struct Char {
    int length;       // bytes
    nu_wchar wc;      // 0 for the null character
    uint16_t mask;    // its classes
};

// Reads the characters of one handle's code set: bytes in a single-byte handle (classes from
// its byte table), the byte-class walk otherwise (classes from the walk's last node).
class Reader {
public:
    explicit Reader(nu_locale_rec *h)
        : h_(h), table_(h->ctype.class_table), sb_class_(h->single_byte ? h->sb_class : nullptr),
          min_(_nu_multi_min_length(h->ctype.class_table)) {
        if (min_ < 1) min_ = 1;
    }

    int min_length() const { return min_; }
    nu_locale_rec *handle() const { return h_; }

    // The character at p, taking at most `budget` bytes; false with the error stored when
    // there is none (NU_EILSEQ, or NU_EINVAL when the budget ends inside it).
    bool at(const unsigned char *p, long budget, Char &c) const {
        if (sb_class_ != nullptr) {
            if (budget < 1) return fail(NU_EINVAL);
            c = {1, *p, sb_class_[*p]};
            return true;
        }
        const Walk w = nus::walk(table_, p, budget);
        if (w.status != 0) return fail(w.status);
        c = {w.length, w.wc, nus::leaf_value(table_, w)};
        return true;
    }

    bool fail(int code) const {
        nus::set_error(h_, code);
        return false;
    }

private:
    nu_locale_rec *h_;
    const multi_t *table_;
    const uint16_t *sb_class_;
    int min_;
};

// A multibyte string: up to its terminator (length -1) or a span of `length` bytes, in which a
// null character is a character of the minimum length.
struct Text {
    const unsigned char *s;
    long length;
    bool counted() const { return length != -1; }
};

// Walks the characters of a text, calling visit(position, character) for each until it
// returns false. The terminator of a null-terminated text is not visited. Returns where the
// walk stopped (the terminator, the character visit refused, or the end of the span; a last
// character running past the span fails), or null after a failed step.
template <typename Visit>
const unsigned char *walk_text(const Reader &r, Text t, Visit visit) {
    const unsigned char *p = t.s;
    if (!t.counted()) {
        for (;;) {
            Char c;
            if (!r.at(p, 4, c)) return nullptr;
            if (c.wc == 0 || !visit(p, c)) return p;
            p += c.length;
        }
    }
    const unsigned char *end = t.s + t.length;
    while (p < end) {
        Char c;
        if (!r.at(p, end - p, c)) return nullptr;
        if (!visit(p, c)) return p;
        p += c.length;
    }
    return p;
}

// The common argument checks of the length-given forms: a null string is 2, a length below -1
// is 9, one length -1 and the other not is 56. True when the call may go on.
bool lengths_ok(nu_locale_rec *h, const void *a, long an, const void *b, long bn) {
    int code = 0;
    if (a == nullptr || b == nullptr) code = NU_EBADARG;
    else if (an < -1 || bn < -1) code = NU_EBADVAL;
    else if ((an == -1) != (bn == -1)) code = NU_ELENGTHS;
    if (code == 0) return true;
    nus::set_error_if(h, code);
    return false;
}

bool length_ok(nu_locale_rec *h, const void *a, long an) { return lengths_ok(h, a, an, a, an); }

// The classes of a wide character: from the byte table of a single-byte handle (a character
// above 255 is outside every class there, with error 1), from the multi-level class table
// otherwise.
int wide_mask(nu_locale_rec *h, nu_wchar wc) {
    if (h->single_byte && h->sb_class != nullptr) {
        if (wc > 0xFF) {
            nus::set_error(h, NU_EILSEQ);
            return 0;
        }
        return h->sb_class[wc];
    }
    return _nu_im_iswctype(h, wc, 0xFFFF);
}

} // namespace

// ---- companion branches ---------------------------------------------------------------------

namespace {

// The companion serves the handle's characters: its CTYPE object first, the arguments, a
// status last that becomes the error code when positive.
using nus::nuu_chars;
template <typename Fn, typename... A> auto companion(nu_locale_rec *h, Fn fn, A... args) {
    return nus::nuu_call(h, nus::kNuuCtype, fn, args...);
}
unsigned char *writable(const unsigned char *p) { return const_cast<unsigned char *>(p); }

} // namespace

// ---- stepping and positions ---------------------------------------------------------------

NU_EXPORT unsigned char *_tsn_nu_full_mbsnext(nu_locale_t h, const unsigned char *s, int n) {
    if (nus::no_handle(h)) return nullptr;
    if (nuu_chars(h)) return writable(companion(h, nus::call_nuu_mbsnext(), s, n));
    if (s == nullptr) {
        nus::set_error(h, NU_EBADARG);
        return nullptr;
    }
    const Walk w = nus::walk(h->ctype.class_table, s, n);
    if (w.status != 0) {
        nus::set_error(h, w.status);
        return nullptr;
    }
    return const_cast<unsigned char *>(s) + w.length;
}

// A terminator is stepped over like any other character.
NU_EXPORT unsigned char *nu_full_mbsnext(nu_locale_t h, const unsigned char *s) {
    if (nus::no_handle(h)) return nullptr;
    if (nuu_chars(h)) return writable(companion(h, nus::call_nuu_mbsnext(), s, -1));
    return _tsn_nu_full_mbsnext(h, s, 4);
}

NU_EXPORT unsigned char *nu_full_mbsprev(nu_locale_t h, const unsigned char *start,
                                         const unsigned char *pos) {
    if (h != nullptr && nuu_chars(h))
        return writable(companion(h, nus::call_nuu_mbsprev(), start, pos));
    if (start == nullptr || pos == nullptr) {
        nus::set_error(h, NU_EBADARG);
        return nullptr;
    }
    if (pos <= start) {
        nus::set_error(h, NU_EPOSITION);
        return nullptr;
    }
    const Reader r(h);
    const unsigned char *p = start;
    const unsigned char *last = start;
    while (p < pos) {
        Char c;
        if (!r.at(p, pos - p, c)) return nullptr;
        last = p;
        p += c.length;
    }
    return const_cast<unsigned char *>(last);
}

namespace {

// Character number i of s: i steps (bytes in a single-byte handle). With stop_at_end the walk
// ends on the terminator of a shorter string; without it, it steps over terminators.
unsigned char *position_of(nu_locale_rec *h, const unsigned char *s, int i, bool stop_at_end) {
    if (s == nullptr) {
        nus::set_error(h, NU_EBADARG);
        return nullptr;
    }
    if (i < 0) {
        nus::set_error(h, NU_ENOWIDTH);
        return nullptr;
    }
    const Reader r(h);
    if (!stop_at_end && h->single_byte) return const_cast<unsigned char *>(s) + i;
    const unsigned char *p = s;
    for (int k = 0; k < i; ++k) {
        Char c;
        if (!r.at(p, 4, c)) return nullptr;
        if (stop_at_end && c.wc == 0) break;
        p += c.length;
    }
    return const_cast<unsigned char *>(p);
}

} // namespace

NU_EXPORT unsigned char *nu_full_getmbsi(nu_locale_t h, const unsigned char *s, int i) {
    if (nus::no_handle(h)) return nullptr;
    return position_of(h, s, i, false);
}

NU_EXPORT unsigned char *nu_getmbsinull(nu_locale_t h, const unsigned char *s, int i) {
    if (nus::no_handle(h)) return nullptr;
    return position_of(h, s, i, true);
}

NU_EXPORT int nu_ismbsterm(nu_locale_t h, const unsigned char *p) {
    if (nus::no_handle(h)) return 0;
    if (p == nullptr) return 0;
    const int m = Reader(h).min_length();
    for (int k = 0; k < m; ++k)
        if (p[k] != 0) return 0;
    return m;
}

NU_EXPORT unsigned char *nu_mbcreplace(nu_locale_t h, unsigned char *p, const unsigned char *c) {
    if (nus::no_handle(h)) return nullptr;
    if (p == nullptr || c == nullptr) {
        nus::set_error(h, NU_EBADARG);
        return nullptr;
    }
    const Reader r(h);
    Char old, with;
    if (!r.at(p, 4, old) || !r.at(c, 4, with)) return nullptr;
    // Replacing the terminator itself keeps it after the new character.
    const unsigned char *rest = old.wc == 0 ? p : p + old.length;
    const long rest_bytes = nu_mbsbytes(h, rest);
    if (rest_bytes < 1) return nullptr;
    const size_t total = static_cast<size_t>(with.length + rest_bytes);
    nus::Owned<unsigned char> block(nus::alloc_array<unsigned char>(static_cast<size_t>(rest_bytes) + 4));
    if (!block) {
        nus::set_error(h, NU_ENOMEM);
        return nullptr;
    }
    std::memcpy(block.get(), c, static_cast<size_t>(with.length));
    std::memcpy(block.get() + with.length, rest, static_cast<size_t>(rest_bytes));
    std::memcpy(p, block.get(), total);
    return p;
}

NU_EXPORT unsigned char *nu_full_putmbsi(nu_locale_t h, unsigned char *s, int i,
                                         const unsigned char *c) {
    if (nus::no_handle(h)) return nullptr;
    if (nuu_chars(h)) return companion(h, nus::call_nuu_putmbsi(), s, i, c);
    unsigned char *at = nu_full_getmbsi(h, s, i);
    if (at == nullptr) return nullptr;
    return nu_mbcreplace(h, at, c) != nullptr ? s : nullptr;
}

NU_EXPORT int nu_mbsbytes_nt(nu_locale_t h, const unsigned char *s) {
    if (nus::no_handle(h)) return 0;
    if (s == nullptr) {
        nus::set_error(h, NU_EBADARG);
        return -1;
    }
    const long bytes = nu_mbsbytes(h, s);
    if (bytes < 1) return -1;
    // The companion's strings: one byte less, whatever the minimum length (kept so).
    if (nuu_chars(h)) return static_cast<int>(bytes) - 1;
    return static_cast<int>(bytes) - Reader(h).min_length();
}

// ---- lengths without trailing blanks ------------------------------------------------------

namespace {

// Characters (or bytes) up to and including the last one that is not a trailing blank: of
// class blank and not cntrl. -1 after a failed step.
int length_without_blanks(nu_locale_rec *h, Text t, bool in_bytes) {
    const Reader r(h);
    long count = 0, pending = 0;
    const auto *end = walk_text(r, t, [&](const unsigned char *, const Char &c) {
        const long size = in_bytes ? c.length : 1;
        if ((c.mask & kBlank) != 0 && (c.mask & kCntrl) == 0) {
            pending += size;
        } else {
            count += size + pending;
            pending = 0;
        }
        return true;
    });
    return end == nullptr ? -1 : static_cast<int>(count);
}

// The wide form: a trailing blank is of class space (not blank) and not cntrl.
int wide_length_without_blanks(nu_locale_rec *h, const nu_wchar *ws, long n) {
    long count = 0, pending = 0;
    for (long i = 0; n == -1 ? ws[i] != 0 : i < n; ++i) {
        const int mask = wide_mask(h, ws[i]);
        if ((mask & kSpace) != 0 && (mask & kCntrl) == 0) {
            ++pending;
        } else {
            count += 1 + pending;
            pending = 0;
        }
    }
    return static_cast<int>(count);
}

} // namespace

NU_EXPORT int _tsn_nu_mbsntslen(nu_locale_t h, const unsigned char *s, int n) {
    if (nus::no_handle(h)) return -1;
    if (!length_ok(h, s, n)) return -1;
    return length_without_blanks(h, {s, n}, false);
}
NU_EXPORT int nu_mbsntslen(nu_locale_t h, const unsigned char *s) {
    if (nus::no_handle(h)) return -1;
    return _tsn_nu_mbsntslen(h, s, -1);
}
NU_EXPORT int _tsn_nu_mbsntsbytes(nu_locale_t h, const unsigned char *s, int n) {
    if (nus::no_handle(h)) return -1;
    if (!length_ok(h, s, n)) return -1;
    if (nuu_chars(h)) return companion(h, nus::call_nuu_mbsntsbytes(), s, n);
    return length_without_blanks(h, {s, n}, true);
}
NU_EXPORT int nu_mbsntsbytes(nu_locale_t h, const unsigned char *s) {
    if (nus::no_handle(h)) return -1;
    return _tsn_nu_mbsntsbytes(h, s, -1);
}
NU_EXPORT int _tsn_nu_wcsntslen(nu_locale_t h, const nu_wchar *ws, int n) {
    if (h == nullptr || !length_ok(h, ws, n)) return -1;
    return wide_length_without_blanks(h, ws, n);
}
NU_EXPORT int nu_wcsntslen(nu_locale_t h, const nu_wchar *ws) {
    return _tsn_nu_wcsntslen(h, ws, -1);
}

// The final run of space-class characters is cut; unlike the length functions, control
// characters of class space are cut too (kept so deliberately).
NU_EXPORT nu_wchar *nu_wcsntstrunc(nu_locale_t h, nu_wchar *ws) {
    if (ws == nullptr) {
        nus::set_error(h, NU_EBADARG);
        return nullptr;
    }
    nu_wchar *run = nullptr;
    for (nu_wchar *p = ws; *p != 0; ++p) {
        if ((wide_mask(h, *p) & kSpace) != 0) {
            if (run == nullptr) run = p;
        } else {
            run = nullptr;
        }
    }
    if (run != nullptr) *run = 0;
    return ws;
}

NU_EXPORT unsigned char *nu_mbsp(nu_locale_t h, const unsigned char *s) {
    if (nus::no_handle(h)) return nullptr;
    if (s == nullptr) {
        nus::set_error(h, NU_EBADARG);
        return nullptr;
    }
    const Reader r(h);
    const unsigned char *run = nullptr;
    const auto *end = walk_text(r, {s, -1}, [&](const unsigned char *p, const Char &c) {
        if ((c.mask & kBlank) != 0 && (c.mask & kCntrl) == 0) {
            if (run == nullptr) run = p;
        } else {
            run = nullptr;
        }
        return true;
    });
    return end == nullptr ? nullptr : const_cast<unsigned char *>(run);
}

NU_EXPORT unsigned char *nu_mbsntstrunc(nu_locale_t h, unsigned char *s) {
    if (nus::no_handle(h)) return nullptr;
    unsigned char *run = nu_mbsp(h, s);
    if (run != nullptr) nu_mbsterm(h, run);
    return run;
}

// ---- display widths -----------------------------------------------------------------------

namespace {

// Width of one character of known classes: 2 in the full-width class, else 1; -1 (error 7)
// when it is not printable.
int width_of(nu_locale_rec *h, int mask, int full_width) {
    if ((mask & kPrint) == 0) {
        nus::set_error(h, NU_EINVAL);
        return -1;
    }
    return full_width != 0 && (mask & full_width) != 0 ? 2 : 1;
}

// Sum of the widths of the characters from s, at most `count` of them (-1: no limit), up to
// `end` (null: no end), stopping at the null character.
int multibyte_width(nu_locale_rec *h, const unsigned char *s, long count,
                    const unsigned char *end) {
    const Reader r(h);
    const int full_width = nu_ctype(h, "full_width");
    long sum = 0, seen = 0;
    bool failed = false;
    const unsigned char *p = s;
    while ((count == -1 || seen < count) && (end == nullptr || p < end)) {
        Char c;
        if (!r.at(p, 4, c)) {
            nus::set_error(h, NU_EILSEQ);
            return -1;
        }
        if (c.wc == 0) break;
        const int w = width_of(h, c.mask, full_width);
        if (w < 0) {
            failed = true;
            break;
        }
        sum += w;
        ++seen;
        p += c.length;
    }
    return failed ? -1 : static_cast<int>(sum);
}

int wide_width(nu_locale_rec *h, const nu_wchar *ws, long count, const nu_wchar *end) {
    const int full_width = nu_ctype(h, "full_width");
    long sum = 0;
    for (long i = 0; (count == -1 || i < count) && (end == nullptr || ws + i < end); ++i) {
        if (ws[i] == 0) break;
        const int w = width_of(h, wide_mask(h, ws[i]), full_width);
        if (w < 0) return -1;
        sum += w;
    }
    return static_cast<int>(sum);
}

} // namespace

NU_EXPORT int nu_wcwidth(nu_locale_t h, nu_wchar wc) {
    if (nus::no_handle(h)) return -1;
    if (nuu_chars(h)) return companion(h, nus::call_nuu_uc32width(), wc);
    if (wc == 0) return 0;
    return width_of(h, wide_mask(h, wc), nu_ctype(h, "full_width"));
}

// A one-byte character of a multibyte code set is one column wide even when it is not
// printable: kept for compatibility.
NU_EXPORT int nu_mbwidth(nu_locale_t h, const unsigned char *s) {
    if (nus::no_handle(h)) return -1;
    if (s == nullptr) {
        nus::set_error(h, NU_EBADARG);
        return -1;
    }
    if (nuu_chars(h)) return companion(h, nus::call_nuu_mbwidth(), s);
    Char c;
    if (!Reader(h).at(s, 4, c)) return -1;
    if (c.wc == 0) return 0;
    if (!h->single_byte && c.length == 1 && (c.mask & kPrint) == 0) return 1;
    return width_of(h, c.mask, nu_ctype(h, "full_width"));
}

NU_EXPORT int nu_wcswidth(nu_locale_t h, const nu_wchar *ws, int n) {
    if (nus::no_handle(h)) return -1;
    if (ws == nullptr) {
        nus::set_error(h, NU_EBADARG);
        return -1;
    }
    if (n < 0) {
        nus::set_error(h, NU_ENOWIDTH);
        return -1;
    }
    if (nuu_chars(h)) return companion(h, nus::call_nuu_ucs32width(), ws, n);
    return n == 0 ? 0 : wide_width(h, ws, n, nullptr);
}

NU_EXPORT int nu_mbswidth(nu_locale_t h, const unsigned char *s, int n) {
    if (nus::no_handle(h)) return -1;
    if (s == nullptr) {
        nus::set_error(h, NU_EBADARG);
        return -1;
    }
    if (n < 0) {
        nus::set_error(h, NU_ENOWIDTH);
        return -1;
    }
    if (nuu_chars(h)) return companion(h, nus::call_nuu_mbswidth(), s, n);
    return n == 0 ? 0 : multibyte_width(h, s, n, nullptr);
}

NU_EXPORT int nu_wcspwidth(nu_locale_t h, const nu_wchar *start, const nu_wchar *end) {
    if (nus::no_handle(h)) return -1;
    if (start == nullptr || end == nullptr) {
        nus::set_error(h, NU_EBADARG);
        return -1;
    }
    if (end < start) {
        nus::set_error(h, NU_EPOSITION);
        return -1;
    }
    if (nuu_chars(h)) return companion(h, nus::call_nuu_ucs32pwidth(), start, end);
    return wide_width(h, start, -1, end);
}

// The error slot is cleared first; a stop on a non-printable character reports 7 only when
// nothing else was reported.
NU_EXPORT int nu_mbspwidth(nu_locale_t h, const unsigned char *start, const unsigned char *end) {
    if (nus::no_handle(h)) return -1;
    nus::set_error(h, 0);
    if (start == nullptr || end == nullptr) {
        nus::set_error(h, NU_EBADARG);
        return -1;
    }
    if (end < start) {
        nus::set_error(h, NU_EPOSITION);
        return -1;
    }
    if (nuu_chars(h)) return companion(h, nus::call_nuu_mbspwidth(), start, end);
    return multibyte_width(h, start, -1, end);
}

// ---- copy and concatenate -----------------------------------------------------------------

namespace {

// Walks the bytes written from start over `bytes`, character by character: a null character
// inside advances by the minimum length. The bytes walked (a last character passing the end
// counts whole), or -1 with the decoder's error.
long validate(nu_locale_rec *h, const unsigned char *start, long bytes) {
    const Reader r(h);
    const unsigned char *p = start;
    const unsigned char *end = start + bytes;
    while (p < end) {
        Char c;
        if (!r.at(p, end - p, c)) return -1;
        p += c.wc == 0 ? r.min_length() : c.length;
    }
    return p - start;
}

// Bytes of the first n characters of s (fewer when s ends first): up to the terminator in a
// null-terminated text, within the span otherwise. -1 after a failed step.
long bytes_of_characters(nu_locale_rec *h, Text t, long n) {
    const Reader r(h);
    long taken = 0;
    const unsigned char *end = walk_text(r, t, [&](const unsigned char *, const Char &) {
        return taken++ < n;
    });
    return end == nullptr ? -1 : end - t.s;
}

} // namespace

NU_EXPORT unsigned char *nu_full_mbscpy(nu_locale_t h, unsigned char *d, const unsigned char *s) {
    if (nus::no_handle(h)) return nullptr;
    if (d == nullptr || s == nullptr) {
        nus::set_error(h, NU_EBADARG);
        return nullptr;
    }
    const long bytes = nu_mbsbytes(h, s);
    if (bytes < 1) return nullptr;
    std::memmove(d, s, static_cast<size_t>(bytes));
    return d;
}

// Given a length, the bytes are copied first and checked afterwards: what was written stays
// when the check fails.
NU_EXPORT int _tsn_nu_mbscpy(nu_locale_t h, unsigned char *d, const unsigned char *s, int n) {
    if (nus::no_handle(h)) return -1;
    if (!lengths_ok(h, d, n, s, n)) return -1;
    if (n == -1) {
        const long bytes = nu_mbsbytes(h, s);
        if (bytes < 1) return -1;
        std::memmove(d, s, static_cast<size_t>(bytes));
        return static_cast<int>(bytes);
    }
    std::memmove(d, s, static_cast<size_t>(n));
    return static_cast<int>(validate(h, d, n));
}

NU_EXPORT unsigned char *nu_full_mbscat(nu_locale_t h, unsigned char *d, const unsigned char *s) {
    if (nus::no_handle(h)) return nullptr;
    if (d == nullptr || s == nullptr) {
        nus::set_error(h, NU_EBADARG);
        return nullptr;
    }
    const int at = nu_mbsbytes_nt(h, d);
    if (at < 0) return nullptr;
    return nu_full_mbscpy(h, d + at, s) != nullptr ? d : nullptr;
}

NU_EXPORT int _tsn_nu_mbscat(nu_locale_t h, unsigned char *d, int dn, const unsigned char *s,
                             int sn) {
    if (nus::no_handle(h)) return -1;
    if (!lengths_ok(h, d, dn, s, sn)) return -1;
    if (dn == -1) {
        const int at = nu_mbsbytes_nt(h, d);
        if (at < 0) return -1;
        const int copied = _tsn_nu_mbscpy(h, d + at, s, -1);
        return copied < 0 ? -1 : at + copied;
    }
    std::memmove(d + dn, s, static_cast<size_t>(sn));
    return static_cast<int>(validate(h, d, static_cast<long>(dn) + sn));
}

NU_EXPORT unsigned char *nu_mbsncpy(nu_locale_t h, unsigned char *d, const unsigned char *s,
                                    int n) {
    if (nus::no_handle(h)) return nullptr;
    if (d == nullptr) {
        nus::set_error(h, NU_EBADARG);
        return nullptr;
    }
    const unsigned char *stop = nu_getmbsinull(h, s, n);
    if (stop == nullptr) return nullptr;
    const size_t bytes = static_cast<size_t>(stop - s);
    std::memmove(d, s, bytes);
    nu_mbsterm(h, d + bytes);
    return d;
}

NU_EXPORT int _tsn_nu_mbsncpy(nu_locale_t h, unsigned char *d, const unsigned char *s, int sn,
                              int n) {
    if (nus::no_handle(h)) return -1;
    if (!length_ok(h, s, sn) || !length_ok(h, d, 0)) return -1;
    if (n < 0) {
        nus::set_error(h, NU_ENOWIDTH);
        return -1;
    }
    if (sn == -1) {
        const unsigned char *stop = nu_getmbsinull(h, s, n);
        if (stop == nullptr) return -1;
        const size_t bytes = static_cast<size_t>(stop - s);
        std::memmove(d, s, bytes);
        nu_mbsterm(h, d + bytes);
        return static_cast<int>(bytes);
    }
    // Whole characters only, and no terminator.
    const long bytes = bytes_of_characters(h, {s, sn}, n);
    if (bytes < 0) return -1;
    std::memmove(d, s, static_cast<size_t>(bytes));
    return static_cast<int>(bytes);
}

NU_EXPORT unsigned char *nu_mbsncat(nu_locale_t h, unsigned char *d, const unsigned char *s,
                                    int n) {
    if (nus::no_handle(h)) return nullptr;
    if (d == nullptr || s == nullptr) {
        nus::set_error(h, NU_EBADARG);
        return nullptr;
    }
    const int at = nu_mbsbytes_nt(h, d);
    if (at < 0) return nullptr;
    return nu_mbsncpy(h, d + at, s, n) != nullptr ? d : nullptr;
}

NU_EXPORT int _tsn_nu_mbsncat(nu_locale_t h, unsigned char *d, int dn, const unsigned char *s,
                              int sn, int n) {
    if (nus::no_handle(h)) return -1;
    if (!lengths_ok(h, d, dn, s, sn)) return -1;
    if (dn == -1) {
        const int at = nu_mbsbytes_nt(h, d);
        if (at < 0) return -1;
        const int copied = _tsn_nu_mbsncpy(h, d + at, s, -1, n);
        return copied < 0 ? -1 : at + copied + Reader(h).min_length();
    }
    const int copied = _tsn_nu_mbsncpy(h, d + dn, s, sn, n);
    if (copied < 0) return -1;
    return static_cast<int>(validate(h, d, static_cast<long>(dn) + copied));
}

// ---- wide copy and concatenate ------------------------------------------------------------

NU_EXPORT int _tsn_nu_wcscpy(nu_locale_t h, nu_wchar *d, const nu_wchar *s, int n) {
    if (!lengths_ok(h, d, n, s, n)) return -1;
    const long count = n == -1 ? nu_wcslen(s) : n;
    std::memmove(d, s, static_cast<size_t>(count + (n == -1 ? 1 : 0)) * sizeof(nu_wchar));
    return static_cast<int>(count);
}

NU_EXPORT nu_wchar *nu_wcscpy(nu_wchar *d, const nu_wchar *s) {
    return _tsn_nu_wcscpy(nullptr, d, s, -1) < 0 ? nullptr : d;
}

NU_EXPORT int _tsn_nu_wcscat(nu_locale_t h, nu_wchar *d, int dn, const nu_wchar *s, int sn) {
    if (!lengths_ok(h, d, dn, s, sn)) return -1;
    const bool terminated = dn == -1;
    const long at = terminated ? nu_wcslen(d) : dn;
    const long count = terminated ? nu_wcslen(s) : sn;
    std::memmove(d + at, s, static_cast<size_t>(count) * sizeof(nu_wchar));
    if (terminated) d[at + count] = 0;
    return static_cast<int>(at + count);
}

NU_EXPORT nu_wchar *nu_wcscat(nu_wchar *d, const nu_wchar *s) {
    return _tsn_nu_wcscat(nullptr, d, -1, s, -1) < 0 ? nullptr : d;
}

// The null-terminated form pads the destination with wide nulls up to n characters.
NU_EXPORT int _tsn_nu_wcsncpy(nu_locale_t h, nu_wchar *d, const nu_wchar *s, int sn, int n) {
    if (!length_ok(h, s, sn) || !length_ok(h, d, 0)) return -1;
    if (n < 0) {
        nus::set_error_if(h, NU_EBADVAL);
        return -1;
    }
    if (sn != -1) {
        const int count = sn < n ? sn : n;
        std::memmove(d, s, static_cast<size_t>(count) * sizeof(nu_wchar));
        return count;
    }
    int count = 0;
    while (count < n && s[count] != 0) ++count;
    std::memmove(d, s, static_cast<size_t>(count) * sizeof(nu_wchar));
    for (int k = count; k < n; ++k) d[k] = 0;
    return count;
}

NU_EXPORT nu_wchar *nu_wcsncpy(nu_wchar *d, const nu_wchar *s, int n) {
    return _tsn_nu_wcsncpy(nullptr, d, s, -1, n) < 0 ? nullptr : d;
}

NU_EXPORT int _tsn_nu_wcsncat(nu_locale_t h, nu_wchar *d, int dn, const nu_wchar *s, int sn,
                              int n) {
    if (!lengths_ok(h, d, dn, s, sn)) return -1;
    if (n < 0) {
        nus::set_error_if(h, NU_EBADVAL);
        return -1;
    }
    const bool terminated = dn == -1;
    const long at = terminated ? nu_wcslen(d) : dn;
    long count = 0;
    if (terminated) {
        while (count < n && s[count] != 0) ++count;
    } else {
        count = sn < n ? sn : n;
    }
    std::memmove(d + at, s, static_cast<size_t>(count) * sizeof(nu_wchar));
    if (terminated) d[at + count] = 0;
    return static_cast<int>(at + count);
}

NU_EXPORT nu_wchar *nu_wcsncat(nu_wchar *d, const nu_wchar *s, int n) {
    return _tsn_nu_wcsncat(nullptr, d, -1, s, -1, n) < 0 ? nullptr : d;
}

// ---- multibyte search ---------------------------------------------------------------------

namespace {

// Whether the bytes at p equal the n bytes of t, reading p no further than its first
// difference (p may be a null-terminated string shorter than t).
bool starts_with(const unsigned char *p, const unsigned char *t, long n) {
    for (long k = 0; k < n; ++k)
        if (p[k] != t[k]) return false;
    return true;
}

// The first (or last) character of the text equal to the character c: a byte compare of
// characters of c's length. Null when absent (the error slot cleared) or after a failure.
unsigned char *find_char(nu_locale_rec *h, Text t, const unsigned char *c, long cn, bool last) {
    if (!lengths_ok(h, t.s, t.length, c, cn)) return nullptr;
    const Reader r(h);
    Char sought;
    if (!r.at(c, cn == -1 ? 4 : cn, sought)) return nullptr;
    const unsigned char *found = nullptr;
    const auto *end = walk_text(r, t, [&](const unsigned char *p, const Char &ch) {
        if (ch.length == sought.length && starts_with(p, c, ch.length)) {
            found = p;
            return last;
        }
        return true;
    });
    if (end == nullptr) return nullptr;
    // The terminator is a character too: a search for the null character finds it.
    if (found == nullptr && !t.counted() && sought.wc == 0) found = end;
    if (found == nullptr || last) nus::set_error(h, 0);
    return const_cast<unsigned char *>(found);
}

unsigned char *find_text(nu_locale_rec *h, Text t, const unsigned char *sought, long n) {
    if (n == 0) return const_cast<unsigned char *>(t.s);
    const Reader r(h);
    const unsigned char *limit = t.counted() ? t.s + t.length : nullptr;
    const unsigned char *found = nullptr;
    const auto *end = walk_text(r, t, [&](const unsigned char *p, const Char &) {
        if (limit != nullptr && limit - p < n) return false;
        if (starts_with(p, sought, n)) {
            found = p;
            return false;
        }
        return true;
    });
    if (end == nullptr) return nullptr;
    if (found == nullptr) nus::set_error(h, 0);
    return const_cast<unsigned char *>(found);
}

} // namespace

NU_EXPORT unsigned char *nu_full_mbschr(nu_locale_t h, const unsigned char *s,
                                        const unsigned char *c) {
    if (nus::no_handle(h)) return nullptr;
    if (nuu_chars(h)) {
        nuu_status status = 0;
        const unsigned char *found = nus::call_nuu_mbschr()(
            static_cast<nuu_obj *>(h->companion[nus::kNuuCtype]), s, -1, c, 4, &status);
        // Absent: the slot is cleared, so that absence and failure can be told apart.
        nus::set_error(h, status > 0 ? status : 0);
        return writable(found);
    }
    return _tsn_nu_mbschr(h, s, -1, c, -1);
}

NU_EXPORT unsigned char *_tsn_nu_mbschr(nu_locale_t h, const unsigned char *s, int sn,
                                        const unsigned char *c, int cn) {
    if (nus::no_handle(h)) return nullptr;
    return find_char(h, {s, sn}, c, cn, false);
}

// The error slot ends at 0 on success as well: the search for a further occurrence found
// none.
NU_EXPORT unsigned char *nu_full_mbsrchr(nu_locale_t h, const unsigned char *s,
                                         const unsigned char *c) {
    if (nus::no_handle(h)) return nullptr;
    return _tsn_nu_mbsrchr(h, s, -1, c, -1);
}

NU_EXPORT unsigned char *_tsn_nu_mbsrchr(nu_locale_t h, const unsigned char *s, int sn,
                                         const unsigned char *c, int cn) {
    if (nus::no_handle(h)) return nullptr;
    return find_char(h, {s, sn}, c, cn, true);
}

NU_EXPORT unsigned char *nu_full_mbsmbs(nu_locale_t h, const unsigned char *s,
                                        const unsigned char *t) {
    if (nus::no_handle(h)) return nullptr;
    return _tsn_nu_mbsmbs(h, s, -1, t, -1);
}

NU_EXPORT unsigned char *_tsn_nu_mbsmbs(nu_locale_t h, const unsigned char *s, int sn,
                                        const unsigned char *t, int tn) {
    if (nus::no_handle(h)) return nullptr;
    if (!lengths_ok(h, s, sn, t, tn)) return nullptr;
    const int n = tn == -1 ? nu_mbsbytes_nt(h, t) : tn;
    if (n < 0) return nullptr;
    return find_text(h, {s, sn}, t, n);
}

// ---- multibyte sets -----------------------------------------------------------------------

nu_wchar *nu_mbstowcslen(nu_locale_t h, const unsigned char *s, int *count) {
    size_t room = 1, used = 0;
    nu_wchar *set = nus::alloc_array<nu_wchar>(room);
    if (set == nullptr) {
        nus::set_error(h, NU_ENOMEM);
        return nullptr;
    }
    for (;;) {
        nu_wchar wc;
        int length;
        if (h->single_byte) {
            wc = *s;
            length = 1;
        } else {
            length = nu_full_mbtowc(h, &wc, s, 4);
            if (length < 0) {
                _nu_free_ptr(set);
                return nullptr;
            }
        }
        if (used == room) {
            nu_wchar *bigger = nus::alloc_array<nu_wchar>(room * 2);
            if (bigger == nullptr) {
                _nu_free_ptr(set);
                nus::set_error(h, NU_ENOMEM);
                return nullptr;
            }
            std::memcpy(bigger, set, room * sizeof(nu_wchar));
            _nu_free_ptr(set);
            set = bigger;
            room *= 2;
        }
        if (wc == 0) break;
        set[used++] = wc;
        s += length;
    }
    set[used] = 0;
    if (count != nullptr) *count = static_cast<int>(used);
    return set;
}

namespace {

enum class SetQuery { span, complement_span, first_of };

bool in_set(const nu_wchar *set, long n, nu_wchar wc) {
    for (long k = 0; k < n; ++k)
        if (set[k] == wc) return true;
    return false;
}

// The span functions over a multibyte string: the characters before the first one in the set
// (complement_span, first_of) or not in it (span). -1 after a failure; `at` receives the
// position where the scan stopped, null when it reached the end.
long scan_set(nu_locale_rec *h, Text t, const nu_wchar *set, long set_count, SetQuery q,
              const unsigned char **at) {
    *at = nullptr;
    const unsigned char *p = t.s;
    const int m = Reader(h).min_length();
    long count = 0;
    const unsigned char *end = t.counted() ? t.s + t.length : nullptr;
    while (end == nullptr || p < end) {
        nu_wchar wc;
        int length;
        if (h->single_byte) {
            wc = *p;
            length = 1;
        } else if (end == nullptr) {
            length = nu_full_mbtowc(h, &wc, p, 4);
        } else {
            // Each step may take the whole length, not what is left of it: kept so, an
            // incomplete last character is completed from the bytes after the span.
            length = _tsn_nu_full_mbtowc(h, &wc, p, static_cast<int>(t.length));
        }
        if (length < 0) return -1;
        if (end == nullptr && wc == 0) break;
        if (length == 0) length = m;
        const bool member = in_set(set, set_count, wc);
        if (q == SetQuery::span ? !member : member) {
            *at = p;
            break;
        }
        ++count;
        p += length;
    }
    return count;
}

long multibyte_set(nu_locale_rec *h, Text t, const unsigned char *set, long setn, SetQuery q,
                   const unsigned char **at) {
    if (!lengths_ok(h, t.s, t.length, set, setn)) return -1;
    if (q == SetQuery::first_of) nus::set_error(h, 0);
    if (setn == -1) {
        int count = 0;
        nus::Owned<nu_wchar> wide(nu_mbstowcslen(h, set, &count));
        if (!wide) return -1;
        return scan_set(h, t, wide.get(), count, q, at);
    }
    nus::Owned<nu_wchar> wide(nus::alloc_array<nu_wchar>(setn > 0 ? static_cast<size_t>(setn) : 1));
    if (!wide) {
        nus::set_error(h, NU_ENOMEM);
        return -1;
    }
    const int count = h->counted_to_wide != nullptr
                          ? h->counted_to_wide(h, wide.get(), set, static_cast<int>(setn),
                                               static_cast<int>(setn))
                          : -1;
    if (count < 1) return -1;
    return scan_set(h, t, wide.get(), count < setn ? count : setn, q, at);
}

} // namespace

NU_EXPORT int nu_full_mbsspn(nu_locale_t h, const unsigned char *s, const unsigned char *set) {
    if (nus::no_handle(h)) return -1;
    const unsigned char *at;
    return static_cast<int>(multibyte_set(h, {s, -1}, set, -1, SetQuery::span, &at));
}
NU_EXPORT int nu_full_mbscspn(nu_locale_t h, const unsigned char *s, const unsigned char *set) {
    if (nus::no_handle(h)) return -1;
    const unsigned char *at;
    return static_cast<int>(multibyte_set(h, {s, -1}, set, -1, SetQuery::complement_span, &at));
}
NU_EXPORT unsigned char *nu_full_mbspbrk(nu_locale_t h, const unsigned char *s,
                                         const unsigned char *set) {
    if (nus::no_handle(h)) return nullptr;
    const unsigned char *at;
    return multibyte_set(h, {s, -1}, set, -1, SetQuery::first_of, &at) < 0
               ? nullptr
               : const_cast<unsigned char *>(at);
}
NU_EXPORT int _tsn_nu_mbsspn(nu_locale_t h, const unsigned char *s, int sn,
                             const unsigned char *set, int setn) {
    if (nus::no_handle(h)) return -1;
    const unsigned char *at;
    return static_cast<int>(multibyte_set(h, {s, sn}, set, setn, SetQuery::span, &at));
}
NU_EXPORT int _tsn_nu_mbscspn(nu_locale_t h, const unsigned char *s, int sn,
                              const unsigned char *set, int setn) {
    if (nus::no_handle(h)) return -1;
    const unsigned char *at;
    return static_cast<int>(multibyte_set(h, {s, sn}, set, setn, SetQuery::complement_span, &at));
}
NU_EXPORT unsigned char *_tsn_nu_mbspbrk(nu_locale_t h, const unsigned char *s, int sn,
                                         const unsigned char *set, int setn) {
    if (nus::no_handle(h)) return nullptr;
    const unsigned char *at;
    return multibyte_set(h, {s, sn}, set, setn, SetQuery::first_of, &at) < 0
               ? nullptr
               : const_cast<unsigned char *>(at);
}

// ---- wide search and sets -----------------------------------------------------------------

namespace {

// Wide search: the first or last occurrence of wc among n characters (-1: up to the wide
// null, which a search for 0 finds). A null handle fails silently.
nu_wchar *find_wide(nu_locale_rec *h, const nu_wchar *ws, long n, nu_wchar wc, bool last) {
    if (!length_ok(h, ws, n)) return nullptr;
    const nu_wchar *found = nullptr;
    for (long i = 0;; ++i) {
        if (n != -1 && i >= n) break;
        if (ws[i] == wc) {
            found = ws + i;
            if (!last) break;
        }
        if (n == -1 && ws[i] == 0) break;
    }
    if (found == nullptr) nus::set_error_if(h, 0);
    return const_cast<nu_wchar *>(found);
}

long wide_set(nu_locale_rec *h, const nu_wchar *ws, long n, const nu_wchar *set, long setn,
              SetQuery q, const nu_wchar **at) {
    *at = nullptr;
    if (!lengths_ok(h, ws, n, set, setn)) return -1;
    const long set_count = setn == -1 ? nu_wcslen(set) : setn;
    long i = 0;
    for (; n == -1 ? ws[i] != 0 : i < n; ++i) {
        const bool member = in_set(set, set_count, ws[i]);
        if (q == SetQuery::span ? !member : member) {
            *at = ws + i;
            break;
        }
    }
    if (q == SetQuery::first_of && *at == nullptr) nus::set_error_if(h, 0);
    return i;
}

nu_wchar *find_wide_text(nu_locale_rec *h, const nu_wchar *ws, long n, const nu_wchar *t,
                         long tn) {
    if (!lengths_ok(h, ws, n, t, tn)) return nullptr;
    const long length = n == -1 ? nu_wcslen(ws) : n;
    const long sought = tn == -1 ? nu_wcslen(t) : tn;
    if (sought == 0) return const_cast<nu_wchar *>(ws);
    for (long i = 0; i + sought <= length; ++i)
        if (nu_wcsncmp(ws + i, t, static_cast<int>(sought)) == 0)
            return const_cast<nu_wchar *>(ws + i);
    nus::set_error_if(h, 0);
    return nullptr;
}

} // namespace

NU_EXPORT nu_wchar *nu_wcschr(nu_locale_t h, const nu_wchar *ws, nu_wchar wc) {
    return find_wide(h, ws, -1, wc, false);
}
NU_EXPORT nu_wchar *nu_wcsrchr(nu_locale_t h, const nu_wchar *ws, nu_wchar wc) {
    return find_wide(h, ws, -1, wc, true);
}
NU_EXPORT nu_wchar *_tsn_nu_wcschr(nu_locale_t h, const nu_wchar *ws, int n, nu_wchar wc) {
    return find_wide(h, ws, n, wc, false);
}
NU_EXPORT nu_wchar *_tsn_nu_wcsrchr(nu_locale_t h, const nu_wchar *ws, int n, nu_wchar wc) {
    return find_wide(h, ws, n, wc, true);
}

NU_EXPORT int _tsn_nu_wcsspn(nu_locale_t h, const nu_wchar *ws, int n, const nu_wchar *set,
                             int setn) {
    const nu_wchar *at;
    return static_cast<int>(wide_set(h, ws, n, set, setn, SetQuery::span, &at));
}
NU_EXPORT int _tsn_nu_wcscspn(nu_locale_t h, const nu_wchar *ws, int n, const nu_wchar *set,
                              int setn) {
    const nu_wchar *at;
    return static_cast<int>(wide_set(h, ws, n, set, setn, SetQuery::complement_span, &at));
}
NU_EXPORT nu_wchar *_tsn_nu_wcspbrk(nu_locale_t h, const nu_wchar *ws, int n, const nu_wchar *set,
                                    int setn) {
    const nu_wchar *at;
    return wide_set(h, ws, n, set, setn, SetQuery::first_of, &at) < 0
               ? nullptr
               : const_cast<nu_wchar *>(at);
}
NU_EXPORT nu_wchar *_tsn_nu_wcswcs(nu_locale_t h, const nu_wchar *ws, int n, const nu_wchar *set,
                                   int setn) {
    return find_wide_text(h, ws, n, set, setn);
}
NU_EXPORT int nu_wcsspn(nu_locale_t h, const nu_wchar *ws, const nu_wchar *set) {
    return _tsn_nu_wcsspn(h, ws, -1, set, -1);
}
NU_EXPORT int nu_wcscspn(nu_locale_t h, const nu_wchar *ws, const nu_wchar *set) {
    return _tsn_nu_wcscspn(h, ws, -1, set, -1);
}
NU_EXPORT nu_wchar *nu_wcspbrk(nu_locale_t h, const nu_wchar *ws, const nu_wchar *set) {
    return _tsn_nu_wcspbrk(h, ws, -1, set, -1);
}
NU_EXPORT nu_wchar *nu_wcswcs(nu_locale_t h, const nu_wchar *ws, const nu_wchar *set) {
    return _tsn_nu_wcswcs(h, ws, -1, set, -1);
}

// ---- code-order comparison of wide strings ------------------------------------------------

NU_EXPORT int nu_wcscmp(const nu_wchar *ws1, const nu_wchar *ws2) {
    for (;; ++ws1, ++ws2) {
        if (*ws1 != *ws2) return *ws1 < *ws2 ? -1 : 1;
        if (*ws1 == 0) return 0;
    }
}

// When either length runs out first, the difference of what is left of the two lengths.
NU_EXPORT int _tsn_nu_wcfscmp(const nu_wchar *ws1, int len1, const nu_wchar *ws2, int len2) {
    while (len1 > 0 && len2 > 0) {
        if (*ws1 != *ws2) return *ws1 < *ws2 ? -1 : 1;
        ++ws1, ++ws2, --len1, --len2;
    }
    return len1 - len2;
}

// The difference of the two codes where the comparison stopped, not reduced to -1 or 1.
NU_EXPORT int nu_wcsncmp(const nu_wchar *ws1, const nu_wchar *ws2, int n) {
    for (int i = 0; i < n; ++i) {
        if (ws1[i] != ws2[i] || ws1[i] == 0) return static_cast<int>(ws1[i] - ws2[i]);
    }
    return 0;
}
