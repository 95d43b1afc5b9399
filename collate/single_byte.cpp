// Collation in single-byte code sets straight from the bytes (one variant per set of table
// features, chosen when a locale is loaded), and the code-order comparisons of multibyte
// strings.
#include "chars/chars.h"
#include "collate/collate.h"
#include "locale/nuu.h"

namespace {

using nus::CollElement;
using nus::CollExpansion;

int fail(nu_locale_rec *h, int code, int result) {
    nus::set_error(h, code);
    return result;
}

// One string of a single-byte comparison: where it is and where it ends (a null end: at its
// zero byte), and, inside an expansion, the expansion's characters as bytes.
struct SbCursor {
    const unsigned char *p;
    const unsigned char *end;
    const unsigned char *in_expansion;   // next byte of buf, or null
    const unsigned char *resume;         // the byte after the expansion's source
    uint32_t repeats;                    // further walks of the expansion before resuming
    unsigned char buf[16];

    bool at_end() const { return end != nullptr ? p >= end : *p == 0; }
    // The byte at the cursor, 0 at the end (never read past a given length).
    unsigned char next_byte() const { return at_end() ? 0 : *p; }
    // Bytes left before the end, counting no further than `most`.
    uint32_t room(uint32_t most) const {
        if (end != nullptr) return static_cast<uint32_t>(end - p);
        uint32_t n = 0;
        while (n < most && p[n] != 0) ++n;
        return n;
    }
};

SbCursor cursor(const unsigned char *s, int len) {
    return {s, len == -1 ? nullptr : s + len, nullptr, nullptr, 0, {}};
}

// The first element in table order whose characters are the bytes at the cursor.
const CollElement *true_elem(const nu_locale_rec *h, const SbCursor &c) {
    const CollElement *elements = h->coll.elements;
    for (int e = 0; e < h->element_count; ++e) {
        const CollElement &el = elements[e];
        if (c.room(el.count) < el.count) continue;
        uint32_t k = 0;
        while (k < el.count && el.chars[k] == c.p[k]) ++k;
        if (k == el.count) return &el;
    }
    return nullptr;
}

void enter_expansion(SbCursor &c, const CollExpansion *e, const unsigned char *resume,
                     uint32_t repeats = 0) {
    uint32_t k = 0;
    for (; k < e->count && k < sizeof c.buf - 1; ++k) c.buf[k] = static_cast<unsigned char>(e->chars[k]);
    c.buf[k] = 0;
    c.in_expansion = c.buf;
    c.resume = resume;
    c.repeats = repeats;
}

// The next weight other than ignorable at a level, walking forward, with the character it
// came from (a unit's first byte for an element); false at the end of the string. A weight
// referencing an expansion that is not entered here is taken as ignorable.
template <bool Exp, bool Elem>
bool take(const nu_locale_rec *h, int level, SbCursor &c, uint16_t *w, unsigned char *ch) {
    const uint16_t *weights = h->coll.byte_weights + 256 * level;
    for (;;) {
        if (Exp && c.in_expansion != nullptr) {
            const unsigned char b = *c.in_expansion;
            if (b == 0) {
                if (c.repeats > 0) {
                    --c.repeats;
                    c.in_expansion = c.buf;
                } else {
                    c.in_expansion = nullptr;
                    c.p = c.resume;
                }
                continue;
            }
            ++c.in_expansion;
            *ch = b;
            *w = weights[b];
            if ((*w & nus::kExpansionBit) == 0 && *w != nus::kIgnorable) return true;
            continue;
        }
        if (c.at_end()) return false;
        const unsigned char b = *c.p;
        if (Exp) {
            if (const CollExpansion *e = h->coll.exp_candidates[level][b]) {
                enter_expansion(c, e, c.p + 1);
                continue;
            }
        }
        if (Elem && h->coll.elem_candidates[b] != 0) {
            if (const CollElement *e = true_elem(h, c)) {
                const uint16_t ew = h->coll.weights[level][e->row];
                c.p += e->count;
                *ch = b;
                *w = ew;
                if (Exp && (ew & nus::kExpansionBit) != 0) {
                    // The element is weighed at each of its characters, as the general walk
                    // does: its expansion once per character.
                    enter_expansion(c, &h->coll.expansions[ew & nus::kWeightMask], c.p,
                                    e->count - 1);
                    continue;
                }
                if ((ew & nus::kExpansionBit) == 0 && ew != nus::kIgnorable) return true;
                continue;
            }
        }
        ++c.p;
        *ch = b;
        *w = weights[b];
        if ((*w & nus::kExpansionBit) == 0 && *w != nus::kIgnorable) return true;
    }
}

// One level walked forward. Without features the bit-15 tie-break looks at the bytes after
// the two characters, not at the characters: that is the defined behaviour of this pass.
template <bool Exp, bool Elem>
int collate_forward(const nu_locale_rec *h, int level, const unsigned char *s1, int len1,
                    const unsigned char *s2, int len2) {
    SbCursor a = cursor(s1, len1), b = cursor(s2, len2);
    for (;;) {
        uint16_t w1 = 0, w2 = 0;
        unsigned char c1 = 0, c2 = 0;
        const bool more1 = take<Exp, Elem>(h, level, a, &w1, &c1);
        const bool more2 = take<Exp, Elem>(h, level, b, &w2, &c2);
        if (!more1) return more2 ? -1 : 0;
        if (!more2) return 1;
        const unsigned v1 = w1 & nus::kWeightMask, v2 = w2 & nus::kWeightMask;
        if (v1 != v2) return v1 < v2 ? -1 : 1;
        if ((w1 & nus::kCodeTieBit) != 0) {
            if (!Exp && !Elem) {
                c1 = a.next_byte();
                c2 = b.next_byte();
            }
            if (c1 != c2) return c1 < c2 ? -1 : 1;
        }
    }
}

// One level walked from the last byte to the first; the tie-break compares the characters.
int collate_sb_back(const nu_locale_rec *h, int level, const unsigned char *s1, int len1,
                    const unsigned char *s2, int len2) {
    const uint16_t *weights = h->coll.byte_weights + 256 * level;
    int i1 = len1 - 1, i2 = len2 - 1;
    for (;;) {
        uint16_t w1 = nus::kIgnorable, w2 = nus::kIgnorable;
        while (i1 >= 0 && (w1 = weights[s1[i1]]) == nus::kIgnorable) --i1;
        while (i2 >= 0 && (w2 = weights[s2[i2]]) == nus::kIgnorable) --i2;
        if (i1 < 0) return i2 < 0 ? 0 : -1;
        if (i2 < 0) return 1;
        const unsigned v1 = w1 & nus::kWeightMask, v2 = w2 & nus::kWeightMask;
        if (v1 != v2) return v1 < v2 ? -1 : 1;
        if ((w1 & nus::kCodeTieBit) != 0 && s1[i1] != s2[i2]) return s1[i1] < s2[i2] ? -1 : 1;
        --i1;
        --i2;
    }
}

// Checks the lengths; false with the error stored when they do not go together.
[[gnu::always_inline]] inline bool lengths_ok(nu_locale_rec *h, const unsigned char *s1, int len1, const unsigned char *s2,
                int len2) {
    if (s1 == nullptr || s2 == nullptr) return fail(h, NU_EBADARG, 0), false;
    if ((len1 == -1) != (len2 == -1)) return fail(h, NU_ELENGTHS, 0), false;
    if (len1 < -1 || len2 < -1) return fail(h, NU_EBADVAL, 0), false;
    return true;
}

// A first look at the first level: while both strings go on with bytes the walk takes as
// single plain units, the two walks stay in step, so the first two weights that differ (or
// the end of one string before a plain byte of the other) decide as the full comparison
// would. 0 when this look cannot decide.
template <bool Counted>
int quick_first_level(const nu_locale_rec *h, const unsigned char *s1, int len1,
                      const unsigned char *s2, int len2) {
    const uint16_t *quick = h->coll.byte_quick;
    if (quick == nullptr) return 0;
    const unsigned char *e1 = Counted ? s1 + len1 : nullptr;
    const unsigned char *e2 = Counted ? s2 + len2 : nullptr;
    for (;;) {
        const bool end1 = Counted ? s1 >= e1 : *s1 == 0;
        const bool end2 = Counted ? s2 >= e2 : *s2 == 0;
        if (end1 || end2) {
            if (end1 && end2) return 0;
            return quick[end1 ? *s2 : *s1] == 0 ? 0 : end1 ? -1 : 1;
        }
        const uint16_t w1 = quick[*s1];
        if (w1 == 0) return 0;
        if (*s1 != *s2) {
            const uint16_t w2 = quick[*s2];
            if (w2 == 0) return 0;
            if (w1 != w2) return w1 < w2 ? -1 : 1;
        }
        ++s1;
        ++s2;
    }
}

// The first look, for counted strings or (len1 -1) null-terminated ones.
inline int quick_first_level(const nu_locale_rec *h, const unsigned char *s1, int len1,
                             const unsigned char *s2, int len2) {
    return len1 == -1 ? quick_first_level<false>(h, s1, len1, s2, len2)
                      : quick_first_level<true>(h, s1, len1, s2, len2);
}

// Every level walked forward (out of line: the first look decides most comparisons).
template <bool Exp, bool Elem>
[[gnu::noinline]] int collate_forward_levels(nu_locale_rec *h, const unsigned char *s1, int len1,
                                             const unsigned char *s2, int len2) {
    int result = 0;
    for (int level = 0; level < h->coll.level_count && result == 0; ++level)
        result = collate_forward<Exp, Elem>(h, level, s1, len1, s2, len2);
    return result;
}

template <bool Exp, bool Elem>
[[gnu::always_inline]] inline int collate_levels(nu_locale_rec *h, const unsigned char *s1, int len1,
                                                 const unsigned char *s2, int len2) {
    if (h == nullptr || !lengths_ok(h, s1, len1, s2, len2)) return 0;
    if (h->coll.byte_weights == nullptr) return 0;
    if (const int quick = quick_first_level(h, s1, len1, s2, len2)) return quick;
    return collate_forward_levels<Exp, Elem>(h, s1, len1, s2, len2);
}

// Bytes before the terminator of a null-terminated string in the handle's code set.
int byte_length(nu_locale_rec *h, const unsigned char *s) {
    return nu_mbsbytes(h, s) - nu_mb_loc_min(h);
}

} // namespace

NU_EXPORT int _tsn_nu_is_mbfscoll_back(nu_locale_t h, const unsigned char *s1, int len1,
                                       const unsigned char *s2, int len2) {
    if (h == nullptr || !lengths_ok(h, s1, len1, s2, len2)) return 0;
    if (h->coll.byte_weights == nullptr) return 0;
    if (const int quick = quick_first_level(h, s1, len1, s2, len2)) return quick;
    int result = 0;
    for (int level = 0; level < h->coll.level_count && result == 0; ++level) {
        if (h->coll.level_words[level] == 1) {
            result = collate_forward<false, false>(h, level, s1, len1, s2, len2);
        } else {
            // Any direction but 1 is walked backward.
            if (len1 == -1) {
                len1 = byte_length(h, s1);
                len2 = byte_length(h, s2);
            }
            result = collate_sb_back(h, level, s1, len1, s2, len2);
        }
    }
    return result;
}

NU_EXPORT int _nu_is_mbscoll_back(nu_locale_t h, const unsigned char *s1, const unsigned char *s2) {
    return _tsn_nu_is_mbfscoll_back(h, s1, -1, s2, -1);
}

NU_EXPORT int _tsn_nu_is_mbfscoll_exp(nu_locale_t h, const unsigned char *s1, int len1,
                                      const unsigned char *s2, int len2) {
    return collate_levels<true, false>(h, s1, len1, s2, len2);
}

NU_EXPORT int _nu_is_mbscoll_exp(nu_locale_t h, const unsigned char *s1, const unsigned char *s2) {
    return collate_levels<true, false>(h, s1, -1, s2, -1);
}

NU_EXPORT int _tsn_nu_is_mbfscoll_elem(nu_locale_t h, const unsigned char *s1, int len1,
                                       const unsigned char *s2, int len2) {
    if (h != nullptr && h->coll.elem_candidates == nullptr) return collate_levels<false, false>(h, s1, len1, s2, len2);
    return collate_levels<false, true>(h, s1, len1, s2, len2);
}

NU_EXPORT int _nu_is_mbscoll_elem(nu_locale_t h, const unsigned char *s1, const unsigned char *s2) {
    if (h != nullptr && h->coll.elem_candidates == nullptr) return collate_levels<false, false>(h, s1, -1, s2, -1);
    return collate_levels<false, true>(h, s1, -1, s2, -1);
}

NU_EXPORT int _tsn_nu_is_mbfscoll_exp_elem(nu_locale_t h, const unsigned char *s1, int len1,
                                           const unsigned char *s2, int len2) {
    if (h != nullptr && h->coll.elem_candidates == nullptr) return collate_levels<true, false>(h, s1, len1, s2, len2);
    return collate_levels<true, true>(h, s1, len1, s2, len2);
}

NU_EXPORT int _nu_is_mbscoll_exp_elem(nu_locale_t h, const unsigned char *s1,
                                      const unsigned char *s2) {
    if (h != nullptr && h->coll.elem_candidates == nullptr) return collate_levels<true, false>(h, s1, -1, s2, -1);
    return collate_levels<true, true>(h, s1, -1, s2, -1);
}

// ---- code order ------------------------------------------------------------------------------

// Character by character: a shorter character sorts first, characters of one length by
// their bytes.
NU_EXPORT int nu_full_mbscmp(nu_locale_t h, const unsigned char *s1, const unsigned char *s2) {
    if (h == nullptr || s1 == nullptr || s2 == nullptr) return fail(h, NU_EBADARG, 0);
    for (;;) {
        const int l1 = h->single_byte ? (*s1 != 0 ? 1 : 0) : nu_full_mblen(h, s1, 4);
        const int l2 = h->single_byte ? (*s2 != 0 ? 1 : 0) : nu_full_mblen(h, s2, 4);
        if (l1 != l2) return l1 < l2 ? -1 : 1;
        if (l1 == 0) return 0;
        // An illegal sequence is compared and passed over one byte at a time.
        const int n = l1 > 0 ? l1 : 1;
        for (int i = 0; i < n; ++i)
            if (s1[i] != s2[i]) return s1[i] < s2[i] ? -1 : 1;
        s1 += n;
        s2 += n;
    }
}

NU_EXPORT int _tsn_nu_mbscmp(nu_locale_t h, const unsigned char *s1, int len1,
                             const unsigned char *s2, int len2) {
    if (h == nullptr || !lengths_ok(h, s1, len1, s2, len2)) return 0;
    if (len1 == -1) {
        len1 = byte_length(h, s1);
        len2 = byte_length(h, s2);
    }
    const int common = len1 < len2 ? len1 : len2;
    for (int i = 0; i < common; ++i)
        if (s1[i] != s2[i]) return s1[i] < s2[i] ? -1 : 1;
    return len1 - len2;
}

NU_EXPORT int nu_full_mbsncmp(nu_locale_t h, const unsigned char *s1, const unsigned char *s2,
                              int n) {
    if (h == nullptr || s1 == nullptr || s2 == nullptr) return fail(h, NU_EBADARG, 0);
    const unsigned char *e1 = s1, *e2 = s2;
    for (int i = 0; i < n; ++i) {
        for (const unsigned char **e : {&e1, &e2}) {
            const int l = h->single_byte ? (**e != 0 ? 1 : 0) : nu_full_mblen(h, *e, 4);
            if (l < 0) return fail(h, NU_EILSEQ, 0);
            *e += l;
        }
    }
    const long n1 = e1 - s1, n2 = e2 - s2;
    const long common = n1 < n2 ? n1 : n2;
    for (long i = 0; i < common; ++i)
        if (s1[i] != s2[i]) return s1[i] < s2[i] ? -1 : 1;
    return n1 == n2 ? 0 : n1 < n2 ? -1 : 1;
}

// ---- choosing the handle's functions -------------------------------------------------------

namespace nus {

void set_collation_fp(nu_locale_rec *h) {
    const CollateFields &c = h->coll;
    h->transform = nu_full_mbsxfrm;
    if (c.method == 2) {
        h->collate = _nu_thaismocoll;
        h->counted_collate = _tsn_nu_thaismoncoll;
        h->transform = _nu_thaismoxfrm;
        return;
    }
    // Method 3: the companion library collates (set by the companion bridge).
    if (c.method == 3 && h->companion_flag[nus::cat_index(NU_COLLATE)] == 1) {
        h->collate = _nuu_mbscoll;
        h->counted_collate = _nuu_mbfscoll;
        h->transform = _nuu_mbsxfrm;
        return;
    }
    h->collate = _nu_im_mbscoll;
    h->counted_collate = _tsn_nu_im_mbfscoll;
    if (!h->single_byte || !h->has_collation || c.byte_weights == nullptr) return;
    const bool elements = h->element_count > 0, expansions = h->expansion_count > 0;
    bool backward = false;
    for (int l = 0; l < c.level_count; ++l) backward = backward || c.level_words[l] == 2;
    if (expansions && !elements && !backward) {
        h->collate = _nu_is_mbscoll_exp;
        h->counted_collate = _tsn_nu_is_mbfscoll_exp;
    } else if (elements && !expansions && !backward) {
        h->collate = _nu_is_mbscoll_elem;
        h->counted_collate = _tsn_nu_is_mbfscoll_elem;
    } else if (!elements && !expansions) {
        h->collate = _nu_is_mbscoll_back;
        h->counted_collate = _tsn_nu_is_mbfscoll_back;
    } else if (elements && expansions && !backward) {
        h->collate = _nu_is_mbscoll_exp_elem;
        h->counted_collate = _tsn_nu_is_mbfscoll_exp_elem;
    }
}

} // namespace nus
