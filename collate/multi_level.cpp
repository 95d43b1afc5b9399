// Multi-level collation by the locale's tables: comparison of wide and multibyte strings,
// and sort keys whose byte order is that comparison.
//
// Every level walks the string forward or backward and yields weights: ignorable weights
// are skipped, an expansion's characters are weighed in place of the weight that references
// it, a collating element is weighed as one unit, and a character without a row ends the
// string for that level. Comparison and sort key share the walk, so they agree.
#include "chars/chars.h"
#include "collate/collate.h"
#include "locale/nuu.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace {

using nus::CollElement;
using nus::CollExpansion;

constexpr int kStackChars = 128;    // wide scratch buffers up to this stay on the stack
constexpr int kStackBytes = 512;    // multibyte scratch buffers likewise

// The element covering a position of a string, and the position's index in it.
struct Covered {
    const CollElement *element;
    uint32_t index;
};

// A wide buffer on the stack up to kStackChars characters, from the library's allocator
// above that; sized once.
class WideScratch {
public:
    WideScratch() = default;
    WideScratch(const WideScratch &) = delete;
    WideScratch &operator=(const WideScratch &) = delete;
    ~WideScratch() {
        if (heap_ != nullptr) _nu_free_ptr(heap_);
    }
    bool resize(size_t count) {
        if (count <= kStackChars) return true;
        heap_ = nus::alloc_array<nu_wchar>(count);
        return heap_ != nullptr;
    }
    nu_wchar *data() { return heap_ != nullptr ? heap_ : local_; }

private:
    nu_wchar *heap_ = nullptr;
    nu_wchar local_[kStackChars];
};

// Whether the `plen` characters of p begin the `slen` characters of s.
bool nu_wcspre(const nu_wchar *s, int slen, const nu_wchar *p, int plen) {
    if (plen > slen) return false;
    for (int i = 0; i < plen; ++i)
        if (s[i] != p[i]) return false;
    return true;
}

// Whether some element may begin with wc: exactly for characters below 256, by a bit shared
// by the characters of one remainder modulo 1024 above.
inline bool may_begin_element(const nu_locale_rec *h, nu_wchar wc) {
    if (wc < 256) return h->coll.elem_candidates != nullptr && h->coll.elem_candidates[wc] != 0;
    const nu_wchar bit = wc & 1023u;
    return (h->coll.element_starts[bit / 32] & (1u << (bit % 32))) != 0;
}

// Where the elements beginning with wc start in their index ordered by first character: a
// binary search.
int elements_beginning(const nu_locale_rec *h, nu_wchar wc) {
    const CollElement *elements = h->coll.elements;
    const int32_t *order = h->coll.elements_by_first;
    int lo = 0, hi = h->element_count;
    while (lo < hi) {
        const int mid = (lo + hi) / 2;
        if (elements[order[mid]].chars[0] < wc) lo = mid + 1;
        else hi = mid;
    }
    return lo;
}

// The first element that the `len` characters at s begin with, trying those that begin with
// s[0] from `from` (elements_beginning) on, or null.
const CollElement *element_from(const nu_locale_rec *h, int from, const nu_wchar *s, int len) {
    const CollElement *elements = h->coll.elements;
    const int32_t *order = h->coll.elements_by_first;
    for (int lo = from; lo < h->element_count && elements[order[lo]].chars[0] == s[0]; ++lo) {
        const CollElement &e = elements[order[lo]];
        if (nu_wcspre(s, len, e.chars, static_cast<int>(e.count))) return &e;
    }
    return nullptr;
}

// The first element in table order that the `len` characters at s begin with, or null: the
// elements beginning with s[0] are found by a binary search over their index ordered by first
// character, and tried in table order.
const CollElement *first_element(const nu_locale_rec *h, const nu_wchar *s, int len) {
    if (!may_begin_element(h, s[0])) return nullptr;
    return element_from(h, elements_beginning(h, s[0]), s, len);
}

// Fills the parallel array from position `from` on to at least position `upto`: at each
// position the first element in table order that the rest of the string begins with (the
// first match wins, not the longest). Filling goes left to right, so filling in pieces gives
// what filling at once gives. Returns the position filling stopped at.
int make_parallel_arr(const nu_locale_rec *h, const nu_wchar *ws, int len, Covered *par, int from,
                      int upto) {
    int i = from;
    while (i < len && i <= upto) {
        const CollElement *found = first_element(h, ws + i, len - i);
        if (found == nullptr) {
            par[i++] = {nullptr, 0};
            continue;
        }
        for (uint32_t k = 0; k < found->count; ++k) par[i + k] = {found, k};
        i += static_cast<int>(found->count);
    }
    return i;
}

// A string prepared once per call: its characters, their rows (looked up on first use) and
// its parallel array.
class Prepared {
public:
    Prepared(const nu_locale_rec *h, const nu_wchar *ws, int len)
        : h_(h), ws_(ws), len_(len), rows_(static_cast<size_t>(len)),
          par_(h->element_count > 0 ? static_cast<size_t>(len) : 0) {}
    bool ok() { return rows_.ok() && par_.ok(); }
    int length() const { return len_; }
    nu_wchar at(int i) const { return ws_[i]; }
    bool has_elements() const { return h_->element_count > 0; }
    // The element covering position i (filled on first use), or null.
    const CollElement *element_at(int i) {
        if (par_known_ <= i) par_known_ = make_parallel_arr(h_, ws_, len_, par_.data(), par_known_, i);
        return par_.data()[i].element;
    }
    // The rows of every character for the sort keys' runs of plain characters: -1 where a
    // character has no row or an element covers it.
    const int *run_rows() {
        if (len_ > 0) row(len_ - 1);
        if (!has_elements()) return rows_.data();
        int *runs = runs_.data();
        // Every position an element covers ends a run: the walk takes the element there, and
        // after an element whose weight expands it comes back at the element's next
        // position and takes the element again. An element is found at its first character,
        // so characters that begin none need no look at the parallel array.
        for (int i = 0; i < len_;) {
            const CollElement *e = may_begin_element(h_, ws_[i]) ? element_at(i) : nullptr;
            if (e == nullptr) {
                runs[i] = rows_.data()[i];
                ++i;
                continue;
            }
            const int end = i + static_cast<int>(e->count - par_.data()[i].index);
            for (; i < end; ++i) runs[i] = -1;
        }
        return runs;
    }
    bool ok_runs() { return runs_.ok(); }
    const nu_wchar *chars() const { return ws_; }
    int row(int i) {
        int *rows = rows_.data();
        for (; known_ <= i; ++known_) rows[known_] = nus::collation_row(h_, ws_[known_]);
        return rows[i];
    }

private:
    const nu_locale_rec *h_;
    const nu_wchar *ws_;
    int len_;
    int known_ = 0;
    int par_known_ = 0;
    nus::Scratch<int, kStackChars> rows_;
    nus::Scratch<Covered, kStackChars> par_;
    nus::Scratch<int, kStackChars> runs_{has_elements() ? static_cast<size_t>(len_) : 0};
};

// The walk of one string at one level.
struct CollState {
    Prepared *str;
    bool elements;
    const uint16_t *weights;
    const CollExpansion *expansion;   // the expansion being walked, or null
    int exp_index;
    int pos;
    int limit;
    int step;
    bool done;
};

CollState init_coll_state(const nu_locale_rec *h, Prepared &str, int level) {
    CollState st{};
    st.str = &str;
    st.elements = str.has_elements();
    st.weights = h->coll.weights[level];
    const bool forward = nus::level_forward(h, level);
    st.step = forward ? 1 : -1;
    st.pos = forward ? 0 : str.length() - 1;
    st.limit = forward ? str.length() - 1 : 0;
    st.done = str.length() == 0;
    return st;
}

// The next weight other than ignorable, with its character in *ch (1 for an element); 0
// (and ch 0) once the string has ended for this level.
[[gnu::always_inline]] inline uint16_t next_weight(const nu_locale_rec *h, CollState &st, nu_wchar *ch) {
    for (;;) {
        if (st.done) {
            *ch = 0;
            return 0;
        }
        int row;
        int unit = 1;
        const bool in_expansion = st.expansion != nullptr;
        if (in_expansion) {
            const nu_wchar wc = st.expansion->chars[st.exp_index];
            st.exp_index += st.step;
            if (st.exp_index < 0 || st.exp_index >= static_cast<int>(st.expansion->count))
                st.expansion = nullptr;
            *ch = wc;
            row = nus::collation_row(h, wc);
        } else if (const CollElement *e = st.elements ? st.str->element_at(st.pos) : nullptr) {
            row = e->row;
            *ch = 1;
            unit = static_cast<int>(e->count);
        } else {
            *ch = st.str->at(st.pos);
            row = st.str->row(st.pos);
        }
        // A character without a row ends the string here for this level.
        if (row < 0) {
            st.done = true;
            *ch = 0;
            return 0;
        }
        uint16_t w = st.weights[row];
        if ((w & nus::kExpansionBit) != 0) {
            // An expansion inside an expansion would never end: such a weight is ignored.
            if (!in_expansion) {
                const CollExpansion &e = h->coll.expansions[w & nus::kWeightMask];
                st.expansion = &e;
                st.exp_index = st.step > 0 ? 0 : static_cast<int>(e.count) - 1;
            }
            w = nus::kIgnorable;
        }
        if (st.expansion == nullptr) {
            st.pos += unit * st.step;
            if (st.step > 0 ? st.pos > st.limit : st.pos < st.limit) {
                st.done = true;
                if (w == nus::kIgnorable) {
                    *ch = 0;
                    return 0;
                }
            }
        }
        if (w != nus::kIgnorable) return w;
    }
}

// The weight of wc's row at a level when it is plain, else 0 (also for a character without a
// row); whether an element may begin with wc is the caller's to look at.
uint16_t row_plain_weight(const nu_locale_rec *h, int level, nu_wchar wc) {
    const int row = nus::collation_row(h, wc);
    if (row < 0) return 0;
    const uint16_t w = h->coll.weights[level][row];
    return nus::is_plain(w) ? w : 0;
}

// The plain weight of a character of 256 or more at a level (plain_weight's table covers the
// others); 0 when it is not plain.
uint16_t wide_plain_weight(const nu_locale_rec *h, int level, nu_wchar wc) {
    const nu_wchar bit = wc & 1023u;
    if (h->element_count > 0 && (h->coll.element_starts[bit / 32] & (1u << (bit % 32))) != 0)
        return 0;
    return row_plain_weight(h, level, wc);
}

// The plain weight of wc at a level: a weight other than ignorable, expansion or tie-break,
// of a character with a row at which no element may begin; 0 when it is not plain. Inline
// for the characters below 256, whose weights the handle keeps in a table.
[[gnu::always_inline]] inline uint16_t plain_weight(const nu_locale_rec *h, int level, nu_wchar wc) {
    if (wc < 256) return h->coll.plain_weights[level * 256 + wc];
    return wide_plain_weight(h, level, wc);
}

// The first-level weight of wc, a character that may begin an element, where the walk takes
// it as a unit of its own: at a position where no element begins (the caller has looked).
// 0 when that weight is not plain either.
uint16_t unit_weight(const nu_locale_rec *h, nu_wchar wc) {
    if (h->element_count == 0 || !may_begin_element(h, wc)) return 0;
    return row_plain_weight(h, 0, wc);
}

// The longest element that begins with wc, in characters, trying those from `from`
// (elements_beginning) on.
uint32_t longest_element(const nu_locale_rec *h, int from, nu_wchar wc) {
    const CollElement *elements = h->coll.elements;
    const int32_t *order = h->coll.elements_by_first;
    uint32_t longest = 0;
    for (int i = from; i < h->element_count && elements[order[i]].chars[0] == wc; ++i)
        longest = std::max(longest, elements[order[i]].count);
    return longest;
}

// The first-level weight of the character at position i of a wide string in the first look:
// its plain weight, or, for a character that may begin an element, its own weight when no
// element begins at i (as the full walk finds it). 0 when the first look cannot go on there.
inline uint16_t first_look_weight(const nu_locale_rec *h, const nu_wchar *ws, int i, int len) {
    const uint16_t w = plain_weight(h, 0, ws[i]);
    if (w != 0) return w;
    const uint16_t unit = unit_weight(h, ws[i]);
    return unit != 0 && first_element(h, ws + i, len - i) == nullptr ? unit : 0;
}

// A first look at a forward first level: while both strings have plain weights position by
// position, the first level's walks yield exactly these weights in step (no element begins,
// nothing expands or is skipped), so the first two that differ decide the comparison as the
// full walk would. A character that may begin an element counts with its own weight where
// none begins. 0 when this look cannot decide.
int quick_first_level(const nu_locale_rec *h, const nu_wchar *ws1, int len1, const nu_wchar *ws2,
                      int len2) {
    if (h->coll.level_count < 1 || !nus::level_forward(h, 0)) return 0;
    const int n = len1 < len2 ? len1 : len2;
    for (int i = 0; i < n; ++i) {
        const uint16_t w1 = plain_weight(h, 0, ws1[i]);
        if (w1 == 0) {
            // A character that may begin an element: each string is looked at on its own.
            const uint16_t u1 = first_look_weight(h, ws1, i, len1);
            const uint16_t u2 = u1 == 0 ? 0 : first_look_weight(h, ws2, i, len2);
            if (u2 == 0) return 0;
            if (u1 != u2) return u1 < u2 ? -1 : 1;
            continue;
        }
        if (ws2[i] == ws1[i]) continue;
        const uint16_t w2 = first_look_weight(h, ws2, i, len2);
        if (w2 == 0) return 0;
        if (w1 != w2) return w1 < w2 ? -1 : 1;
    }
    return 0;
}

int collate_pass(const nu_locale_rec *h, Prepared &a, Prepared &b, int level) {
    CollState s1 = init_coll_state(h, a, level);
    CollState s2 = init_coll_state(h, b, level);
    nu_wchar c1 = 0, c2 = 0;
    for (;;) {
        const uint16_t w1 = next_weight(h, s1, &c1);
        const uint16_t w2 = next_weight(h, s2, &c2);
        if (w1 == 0 && w2 == 0 && (s1.done || s2.done)) break;
        const unsigned v1 = w1 & nus::kWeightMask, v2 = w2 & nus::kWeightMask;
        if (v1 != v2) return v1 < v2 ? -1 : 1;
        // Only the first string's weight is looked at for the tie-break, by design.
        if ((w1 & nus::kCodeTieBit) != 0 && c1 != c2) return c1 < c2 ? -1 : 1;
    }
    if (c1 != 0 && c2 == 0) return 1;
    if (c1 == 0 && c2 != 0) return -1;
    return 0;
}

// Digits a value takes in a sort key: as many as the largest value of its kind needs.
constexpr int digit_count(uint32_t largest) {
    return largest <= 253u          ? 1
           : largest <= 64515u      ? 2
           : largest <= 16387063u   ? 3
           : largest <= 4162314255u ? 4
                                    : 5;
}

// Appends a value as `digits` base-254 digits, most significant first, each plus 2 (so that
// bytes 0 and 1 stay free for the terminator and the level separator). Digits are stored
// while the count is below n; the count goes on.
[[gnu::always_inline]] inline void write_weight(uint32_t value, int digits, unsigned char *out,
                                                int *count, int n) {
    // Values 0 and 1 wrap around; the digits are kept as computed.
    uint32_t v = value - 2u;
    if (*count + digits <= n) {
        unsigned char *to = out + *count;
        *count += digits;
        if (v < 254u * 254u && digits >= 2) {
            // Most values (weights, and the codes of most characters) have two digits at most.
            for (int i = 0; i < digits - 2; ++i) to[i] = 2;
            to[digits - 2] = static_cast<unsigned char>(v / 254u + 2u);
            to[digits - 1] = static_cast<unsigned char>(v % 254u + 2u);
            return;
        }
        for (int i = digits - 1; i >= 0; --i) {
            to[i] = static_cast<unsigned char>(v % 254u + 2u);
            v /= 254u;
        }
        return;
    }
    unsigned char d[5];
    for (int i = digits - 1; i >= 0; --i) {
        d[i] = static_cast<unsigned char>(v % 254u + 2u);
        v /= 254u;
    }
    for (int i = 0; i < digits; ++i) {
        if (*count < n) out[*count] = d[i];
        ++*count;
    }
}

int fail(nu_locale_rec *h, int code, int result) {
    nus::set_error(h, code);
    return result;
}

// Wide to multibyte for the Thai method and the code-order keys.
int to_multibyte(nu_locale_rec *h, unsigned char *out, const nu_wchar *ws, int len, int n) {
    return h->single_byte ? _tsn_nu_is_wcstombs(h, out, ws, len, n)
                          : _tsn_nu_full_wcstombs(h, out, ws, len, n);
}

// Appends the digits of a weight of the key's fixed width: D digits copied from the handle's
// table (D is 1 or 2), or, with D 0, computed at the width the largest weight gives.
template <int D>
[[gnu::always_inline]] inline void put_weight(const nu_locale_rec *h, uint16_t w, unsigned char *out,
                                              int *count, int n) {
    if (D == 0 || w > h->coll.largest_weight) {
        write_weight(w, digit_count(static_cast<uint32_t>(h->coll.largest_weight)), out, count, n);
    } else if (*count + D <= n) {
        std::memcpy(out + *count, h->coll.weight_keys + static_cast<size_t>(w) * D, D);
        *count += D;
    } else {
        write_weight(w, D, out, count, n);
    }
}

// Writes the weights of the characters from `pos` on (stepping by `step`, not reaching
// `stop`) for as long as each is a unit of its own with a plain weight and its digits fit;
// returns the position of the first character not written.
template <int D>
int plain_run(const nu_locale_rec *h, const int *rows, const nu_wchar *ws, int level, int pos,
              int stop, int step, int code_digits, unsigned char *out, int *count, int n) {
    const size_t row_count = static_cast<size_t>(h->coll.highest_row) + 1;
    const uint16_t *keys = h->coll.row_keys + row_count * static_cast<size_t>(level);
    const uint16_t *weights = h->coll.weights[level];
    const auto largest = static_cast<uint32_t>(h->coll.largest_weight);
    int c = *count;
    for (; pos != stop; pos += step) {
        const int row = rows[pos];
        if (row < 0) break;
        const uint16_t key = keys[row];
        if (key != 0) {
            if (c + D > n) break;
            std::memcpy(out + c, &key, D);
            c += D;
            continue;
        }
        // A tie-break weight: its digits, then the character's code.
        const uint16_t w = weights[row];
        const uint32_t v = w & nus::kWeightMask;
        if ((w & (nus::kExpansionBit | nus::kCodeTieBit)) != nus::kCodeTieBit || v < 2 ||
            v > largest || c + D + code_digits > n)
            break;
        std::memcpy(out + c, h->coll.weight_keys + static_cast<size_t>(v) * D, D);
        c += D;
        write_weight(ws[pos], code_digits, out, &c, n);
    }
    *count = c;
    return pos;
}

// The sort key of a prepared string: each level's weights in the order the walk yields them,
// a weight with the tie-break bit followed by its character's code, levels separated by the
// byte 1. Returns the full length, whatever fitted into the n bytes.
template <int D>
int write_key(const nu_locale_rec *h, Prepared &str, unsigned char *out, int n, int code_digits) {
    const bool elements = h->element_count > 0;
    const int *runs = D != 0 ? str.run_rows() : nullptr;
    int count = 0;
    for (int level = 0; level < h->coll.level_count; ++level) {
        if (level > 0) {
            if (count < n) out[count] = 1;
            ++count;
        }
        CollState st = init_coll_state(h, str, level);
        // Characters with plain weights are written straight away where the walk can meet
        // no element in their place: on a forward level the walk reaches an element at its
        // first character, which a character that begins no element never is.
        const bool direct = D != 0 && (st.step > 0 || !elements);
        for (;;) {
            if (direct && st.expansion == nullptr && !st.done) {
                const int stop = st.limit + st.step;
                st.pos = plain_run<D>(h, runs, str.chars(), level, st.pos, stop, st.step,
                                      code_digits, out, &count, n);
                if (st.pos == stop) break;
            }
            nu_wchar ch = 0;
            const uint16_t w = next_weight(h, st, &ch);
            if (w == 0 && st.done) break;
            if ((w & nus::kCodeTieBit) != 0) {
                put_weight<D>(h, w & nus::kWeightMask, out, &count, n);
                write_weight(ch, code_digits, out, &count, n);
            } else {
                put_weight<D>(h, w, out, &count, n);
            }
        }
    }
    return count;
}

// ---- sort keys from per-character key bytes ----------------------------------------------

// The characters whose key bytes a handle caches: those below 256 and the two-byte wide
// characters 0xC280 to 0xC3BF whose second byte is 0x80 to 0xBF (in UTF-8, U+0080 to U+00FF).
constexpr int kCachedChars = 256 + 128;

// The cache slot of wc, or -1.
[[gnu::always_inline]] inline int key_slot(nu_wchar wc) {
    if (wc < 256) return static_cast<int>(wc);
    const nu_wchar above = wc - 0xC280u;
    if (above < 0x140u && (wc & 0xC0u) == 0x80u)
        return static_cast<int>(256 + (above >> 8) * 64 + (wc & 0x3Fu));
    return -1;
}

constexpr nu_wchar slot_char(int slot) {
    return slot < 256 ? static_cast<nu_wchar>(slot)
                      : 0xC280u + static_cast<nu_wchar>((slot - 256) / 64 * 256 + (slot - 256) % 64);
}

// The key bytes of the cached characters, per level, as the walk writes them for a character
// that is a unit of its own: its weight's digits, after a tie-break weight the character's
// code too, an expansion's characters' in its place; nothing for an ignorable weight. Built
// on a handle's first sort key.
struct KeyCache {
    int32_t code_digits;           // the code digits the entries hold (they follow the code set)
    int32_t levels;
    // Per slot: 0 when a string holding the character takes the general walk (no row, an
    // unusual weight, an entry longer than eight bytes), 1 when it is a unit of its own, 2
    // when it is one unless an element begins at it.
    uint8_t kind[kCachedChars];
    uint16_t total[kCachedChars];  // its key bytes over all levels
    uint8_t length[nus::kMaxLevels][kCachedChars];
    // The entries' bytes follow the record, kCachedChars per level: the first `length` in key
    // order.
    uint64_t *bytes(int level) {
        return reinterpret_cast<uint64_t *>(this + 1) + kCachedChars * level;
    }
    const uint64_t *bytes(int level) const {
        return reinterpret_cast<const uint64_t *>(this + 1) + kCachedChars * level;
    }
};
static_assert(slot_char(256) == 0xC280u && slot_char(kCachedChars - 1) == 0xC3BFu);
static_assert(sizeof(KeyCache) % alignof(uint64_t) == 0);

// Appends the digits of one weight the walk yields for character c (the tie-break weight's
// followed by c's code); nothing for an ignorable weight. False for a weight that the
// general walk must write.
bool append_weight(uint16_t w, nu_wchar c, int weight_digits, int code_digits, unsigned char *d,
                   int *count, int size) {
    if (w == nus::kIgnorable) return true;
    if (nus::is_plain(w)) {
        write_weight(w, weight_digits, d, count, size);
        return true;
    }
    if ((w & (nus::kExpansionBit | nus::kCodeTieBit)) != nus::kCodeTieBit || (w & nus::kWeightMask) < 2)
        return false;
    write_weight(w & nus::kWeightMask, weight_digits, d, count, size);
    write_weight(c, code_digits, d, count, size);
    return true;
}

// The entry of character c at a level into *bytes and *length: what the walk yields for c as a
// unit of its own, in the level's direction; an expansion's characters weighed in its place
// (an expansion among them is ignored, as the walk ignores it). False where the general walk
// must write c: no row, an unusual weight, more than eight bytes.
bool key_entry(const nu_locale_rec *h, int level, nu_wchar c, int code_digits, uint64_t *bytes,
               uint8_t *length) {
    const int row = nus::collation_row(h, c);
    if (row < 0) return false;
    const uint16_t *weights = h->coll.weights[level];
    const uint16_t w = weights[row];
    const int weight_digits = digit_count(static_cast<uint32_t>(h->coll.largest_weight));
    unsigned char d[32] = {};
    int count = 0;
    if ((w & nus::kExpansionBit) == 0) {
        if (!append_weight(w, c, weight_digits, code_digits, d, &count, sizeof d)) return false;
    } else {
        const uint32_t index = w & nus::kWeightMask;
        if (static_cast<int>(index) >= h->expansion_count) return false;
        const CollExpansion &e = h->coll.expansions[index];
        if (e.count == 0 || e.count > 8) return false;
        const bool forward = nus::level_forward(h, level);
        for (uint32_t k = 0; k < e.count; ++k) {
            const nu_wchar wc = e.chars[forward ? k : e.count - 1 - k];
            const int r = nus::collation_row(h, wc);
            if (r < 0) return false;
            if ((weights[r] & nus::kExpansionBit) != 0) continue;
            if (!append_weight(weights[r], wc, weight_digits, code_digits, d, &count, sizeof d))
                return false;
        }
    }
    if (count > 8) return false;
    std::memcpy(bytes, d, sizeof *bytes);
    *length = static_cast<uint8_t>(count);
    return true;
}

KeyCache *build_key_cache(const nu_locale_rec *h, int code_digits) {
    const int levels = h->coll.level_count;
    void *memory = _nu_alloc_ptr(sizeof(KeyCache) + sizeof(uint64_t) * kCachedChars * levels);
    if (memory == nullptr) return nullptr;
    auto *kc = static_cast<KeyCache *>(memory);
    kc->code_digits = code_digits;
    kc->levels = levels;
    for (int slot = 0; slot < kCachedChars; ++slot) {
        const nu_wchar c = slot_char(slot);
        unsigned total = 0;
        // The zero character ends a wide string: it is never a unit here.
        bool simple = c != 0;
        for (int l = 0; simple && l < kc->levels; ++l) {
            simple = key_entry(h, l, c, code_digits, &kc->bytes(l)[slot], &kc->length[l][slot]);
            total += kc->length[l][slot];
        }
        kc->kind[slot] = !simple ? 0 : h->element_count > 0 && may_begin_element(h, c) ? 2 : 1;
        kc->total[slot] = static_cast<uint16_t>(total);
    }
    return kc;
}

// The handle's key cache, built on first use (by one thread: a concurrent builder's copy is
// dropped); null where it does not apply or its memory is refused.
const KeyCache *key_cache(const nu_locale_rec *h, int code_digits) {
    void *const *slot = &h->coll.key_cache;
    auto *kc = static_cast<const KeyCache *>(__atomic_load_n(slot, __ATOMIC_ACQUIRE));
    if (kc == nullptr) {
        if (h->coll.level_count < 1 || h->coll.level_count > nus::kMaxLevels) return nullptr;
        KeyCache *built = build_key_cache(h, code_digits);
        if (built == nullptr) return nullptr;
        void *expected = nullptr;
        if (!__atomic_compare_exchange_n(const_cast<void **>(slot), &expected, built, false,
                                         __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE)) {
            _nu_free_ptr(built);
            kc = static_cast<const KeyCache *>(expected);
        } else {
            kc = built;
        }
    }
    // A CTYPE of another code set since: the codes after tie-break weights differ.
    return kc->code_digits == code_digits ? kc : nullptr;
}

// Writes the key of `len` characters given by their cache slots, `total` bytes long: entries
// are stored eight bytes at a time into scratch with room for the last one's eight, then as
// much of the key as fits (and its terminator) is copied out. -1 when the scratch cannot be
// had.
template <typename Slot>
int write_cached_key(const nu_locale_rec *h, const KeyCache *kc, const Slot *slot, int len,
                     size_t total, unsigned char *out, int n) {
    nus::Scratch<unsigned char, kStackBytes> scratch(total + 8);
    if (!scratch.ok()) return -1;
    unsigned char *key = scratch.data();
    size_t at = 0;
    for (int l = 0; l < kc->levels; ++l) {
        if (l > 0) key[at++] = 1;
        const uint64_t *bytes = kc->bytes(l);
        const uint8_t *length = kc->length[l];
        if (nus::level_forward(h, l)) {
#pragma GCC unroll 4
            for (int i = 0; i < len; ++i) {
                std::memcpy(key + at, &bytes[slot[i]], 8);
                at += length[slot[i]];
            }
        } else {
            for (int i = len - 1; i >= 0; --i) {
                std::memcpy(key + at, &bytes[slot[i]], 8);
                at += length[slot[i]];
            }
        }
    }
    const size_t room = n > 0 ? static_cast<size_t>(n) : 0;
    if (total < room) {
        key[total] = 0;
        std::memcpy(out, key, total + 1);
    } else if (room > 0) {
        std::memcpy(out, key, room);
    }
    return static_cast<int>(total);
}

// The sort key of a wide string whose characters are all cached and each a unit of its own,
// from the cache; -1 when the string is not such a string (the general walk writes it). The
// same bytes as write_key: the walk of such a string, forward or backward, meets each
// character once, with the weights of its row.
int cached_key(const nu_locale_rec *h, const KeyCache *kc, const nu_wchar *ws, int len,
               unsigned char *out, int n) {
    nus::Scratch<uint16_t, kStackChars> slots(static_cast<size_t>(len));
    if (!slots.ok()) return -1;
    uint16_t *slot = slots.data();
    size_t total = static_cast<size_t>(kc->levels - 1);
    unsigned kinds = 0;
    for (int i = 0; i < len; ++i) {
        const int k = key_slot(ws[i]);
        if (k < 0 || kc->kind[k] == 0) return -1;
        slot[i] = static_cast<uint16_t>(k);
        kinds |= kc->kind[k];
        total += kc->total[k];
    }
    if (total > static_cast<size_t>(INT32_MAX) - 8) return -1;
    if ((kinds & 2) != 0) {
        // Characters that may begin an element: the string is one of units only when no
        // element begins anywhere in it (then none covers any position either).
        for (int i = 0; i < len; ++i)
            if (kc->kind[slot[i]] == 2 && first_element(h, ws + i, len - i) != nullptr) return -1;
    }
    return write_cached_key(h, kc, slot, len, total, out, n);
}

// The same for the bytes of a single-byte code set, which are their own wide characters and
// cache slots (as the conversion to wide characters makes them).
int cached_key(const nu_locale_rec *h, const KeyCache *kc, const unsigned char *s, int len,
               unsigned char *out, int n) {
    size_t total = static_cast<size_t>(kc->levels - 1);
    unsigned kinds = 0;
    for (int i = 0; i < len; ++i) {
        if (kc->kind[s[i]] == 0) return -1;
        kinds |= kc->kind[s[i]];
        total += kc->total[s[i]];
    }
    if (total > static_cast<size_t>(INT32_MAX) - 8) return -1;
    if ((kinds & 2) != 0) {
        // An element has at most 15 characters: 16 of them decide whether one begins here.
        nu_wchar chars[16];
        for (int i = 0; i < len; ++i) {
            if (kc->kind[s[i]] != 2) continue;
            const int count = std::min(len - i, 16);
            for (int k = 0; k < count; ++k) chars[k] = s[i + k];
            if (first_element(h, chars, count) != nullptr) return -1;
        }
    }
    return write_cached_key(h, kc, s, len, total, out, n);
}

// The sort key from the cache where the handle and the string allow; -1 otherwise.
template <typename Char>
int try_cached_key(nu_locale_rec *h, const Char *text, int len, unsigned char *out, int n) {
    if (!h->has_collation || h->coll.method == 2 || h->coll.weights[0] == nullptr) return -1;
    const KeyCache *kc = key_cache(h, digit_count(nus::largest_code(h)));
    return kc == nullptr ? -1 : cached_key(h, kc, text, len, out, n);
}

} // namespace

NU_EXPORT int _tsn_nu_full_wcscoll(nu_locale_t h, const nu_wchar *ws1, int len1,
                                   const nu_wchar *ws2, int len2) {
    if (h != nullptr && nus::nuu_collates(h))
        return nus::nuu_call(h, nus::kNuuCollate, nus::call_nuu_ucs32coll(), ws1, len1, ws2, len2);
    if (h == nullptr || ws1 == nullptr || ws2 == nullptr) return fail(h, NU_EBADARG, 0);
    if ((len1 == -1) != (len2 == -1)) return fail(h, NU_ELENGTHS, 0);
    if (len1 == -1) {
        len1 = nu_wcslen(ws1);
        len2 = nu_wcslen(ws2);
    }
    if (len1 < 0 || len2 < 0) return fail(h, NU_EBADVAL, 0);
    if (h->coll.method == 2) {
        nus::Scratch<unsigned char, kStackBytes> b1(4 * static_cast<size_t>(len1) + 4);
        nus::Scratch<unsigned char, kStackBytes> b2(4 * static_cast<size_t>(len2) + 4);
        if (!b1.ok() || !b2.ok()) return fail(h, NU_ENOMEM, 0);
        const int n1 = to_multibyte(h, b1.data(), ws1, len1, 4 * len1 + 4);
        const int n2 = to_multibyte(h, b2.data(), ws2, len2, 4 * len2 + 4);
        if (n1 < 0 || n2 < 0) return 0;
        nu_mbsterm(h, b1.data() + n1);
        nu_mbsterm(h, b2.data() + n2);
        return _tsn_nu_thaismoncoll(h, b1.data(), -1, b2.data(), -1);
    }
    if (const int quick = quick_first_level(h, ws1, len1, ws2, len2)) return quick;
    Prepared a(h, ws1, len1), b(h, ws2, len2);
    if (!a.ok() || !b.ok()) return fail(h, NU_ENOMEM, 0);
    int result = 0;
    for (int level = 0; level < h->coll.level_count; ++level) {
        result = collate_pass(h, a, b, level);
        if (result != 0) break;
    }
    return result;
}

NU_EXPORT int nu_full_wcscoll(nu_locale_t h, const nu_wchar *ws1, const nu_wchar *ws2) {
    return _tsn_nu_full_wcscoll(h, ws1, -1, ws2, -1);
}

NU_EXPORT int nu_wcsxfrm(nu_locale_t h, unsigned char *out, const nu_wchar *ws, int n) {
    if (h != nullptr && nus::nuu_collates(h))
        return nus::nuu_call(h, nus::kNuuCollate, nus::call_nuu_ucs32xfrm(), out, n, ws);
    if (h == nullptr || ws == nullptr || (out == nullptr && n > 0)) return fail(h, NU_EBADARG, -1);
    const int len = nu_wcslen(ws);
    if (!h->has_collation) {
        // Without collation the key is the string's own bytes.
        int needed = 0;
        for (int i = 0; i < len; ++i) {
            const int l = nu_wclen(h, ws[i]);
            if (l < 0) return -1;
            needed += l;
        }
        if (n > 0 && to_multibyte(h, out, ws, -1, n) < 0) return -1;
        return needed;
    }
    if (h->coll.method == 2) {
        nus::Scratch<unsigned char, kStackBytes> b(4 * static_cast<size_t>(len) + 4);
        if (!b.ok()) return fail(h, NU_ENOMEM, -1);
        const int bytes = to_multibyte(h, b.data(), ws, len, 4 * len + 4);
        if (bytes < 0) return -1;
        nu_mbsterm(h, b.data() + bytes);
        return _nu_thaismoxfrm(h, b.data(), out, n);
    }
    const int cached = try_cached_key(h, ws, len, out, n);
    if (cached >= 0) return cached;
    return nus::walked_key(h, out, ws, len, n);
}

int nus::walked_key(nu_locale_rec *h, unsigned char *out, const nu_wchar *ws, int len, int n) {
    const int code_digits = digit_count(nus::largest_code(h));
    const int weight_digits = digit_count(static_cast<uint32_t>(h->coll.largest_weight));
    Prepared str(h, ws, len);
    if (!str.ok()) return fail(h, NU_ENOMEM, -1);
    int count;
    if (!str.ok_runs()) return fail(h, NU_ENOMEM, -1);
    switch (h->coll.row_keys != nullptr ? weight_digits : 0) {
    case 1: count = write_key<1>(h, str, out, n, code_digits); break;
    case 2: count = write_key<2>(h, str, out, n, code_digits); break;
    default: count = write_key<0>(h, str, out, n, code_digits); break;
    }
    if (count < n) out[count] = 0;
    return count;
}

// The characters of a null-terminated multibyte string in `wide` (with a wide null after
// them); the count, or -1 (error stored). Where the shortest character is one byte, the
// string's byte length bounds its character count and one conversion pass does; else the
// characters are counted first.
int to_wide_string(nu_locale_rec *h, const unsigned char *s, WideScratch &wide) {
    int count;
    if (nu_mb_loc_min(h) == 1) {
        // The terminator is one zero byte: the byte length bounds the character count, and
        // the counted conversion (with its runs of one-byte characters) does it in one pass.
        const size_t bytes = std::strlen(reinterpret_cast<const char *>(s));
        if (bytes > static_cast<size_t>(INT32_MAX - 1)) return fail(h, NU_EBADVAL, -1);
        const int len = static_cast<int>(bytes);
        if (!wide.resize(bytes + 1)) return fail(h, NU_ENOMEM, -1);
        const int n = len == 0 ? 0 : h->counted_to_wide(h, wide.data(), s, len, len);
        if (n < 0) return -1;
        wide.data()[n] = 0;
        return n;
    }
    count = _nu_im_mbslen(h, s);
    if (count < 0) return count;
    if (!wide.resize(static_cast<size_t>(count) + 1)) return fail(h, NU_ENOMEM, -1);
    const int n = h->to_wide(h, wide.data(), s, count + 1);
    if (n < 0) return -1;
    wide.data()[n] = 0;
    return n;
}

NU_EXPORT int nu_full_mbsxfrm(nu_locale_t h, unsigned char *out, const unsigned char *s, int n) {
    if (h == nullptr || s == nullptr) return fail(h, NU_EBADARG, -1);
    // The companion makes the key from the multibyte text itself.
    if (nus::nuu_collates(h)) return _nuu_mbsxfrm(h, out, s, n);
    if (h->single_byte && (out != nullptr || n <= 0)) {
        // Bytes are their own wide characters: most keys need no conversion.
        const size_t bytes = std::strlen(reinterpret_cast<const char *>(s));
        if (bytes < static_cast<size_t>(INT32_MAX)) {
            const int cached = try_cached_key(h, s, static_cast<int>(bytes), out, n);
            if (cached >= 0) return cached;
        }
    }
    WideScratch wide;
    const int count = to_wide_string(h, s, wide);
    if (count < 0) return -1;
    if (out != nullptr || n <= 0) {
        // Most strings take the cached key straight away, without counting the characters
        // again (a string with a zero character among them is not one of those).
        const int cached = try_cached_key(h, wide.data(), count, out, n);
        if (cached >= 0) return cached;
    }
    return nu_wcsxfrm(h, out, wide.data(), n);
}

namespace {

// Whether the bytes from p to end are whole characters of the handle's code set. Bytes below
// 128 are one-byte characters: the walk goes from one byte of 128 or more to the next,
// finding it in blocks of eight bytes that lie inside the text from `start` to end: the
// block at p, or, for the last eight bytes, the block that ends the text less the bytes
// before p (which it may overlap). Text shorter than a block is stepped through byte by byte.
[[gnu::always_inline]] inline bool rest_decodes(const multi_t *table, const unsigned char *root,
                                               const unsigned char *start, const unsigned char *p,
                                               const unsigned char *end) {
    static_assert(std::endian::native == std::endian::little, "byte order of the blocks");
    constexpr uint64_t kHigh = 0x8080808080808080ull;
    const bool blocks = end - start >= 8;
    while (p < end) {
        if (*p < 0x80) {
            if (!blocks) {
                ++p;
                continue;
            }
            const unsigned char *at = end - p > 8 ? p : end - 8;
            uint64_t block;
            std::memcpy(&block, at, sizeof block);
            const uint64_t high = block & kHigh & (~0ull << (8 * (p - at)));
            if (high == 0) {
                if (at != p) return true;   // the block that ends the text
                p += 8;
                continue;
            }
            p = at + __builtin_ctzll(high) / 8;
        }
        if (root[*p] == MULTI_LAST) {
            ++p;
            continue;
        }
        const nus::Walk w = nus::walk(table, p, end - p);
        if (w.status != 0) return false;
        p += w.length;
    }
    return true;
}

constexpr int kUndecodable = 2;

// The bytes a character at p may take: up to end in a counted string; in a null-terminated
// one (Counted false), the bytes before the terminator, counted no further than the longest
// character, so that the terminator is never passed.
template <bool Counted>
[[gnu::always_inline]] inline long char_budget(const unsigned char *p, const unsigned char *end) {
    if (Counted) return end - p;
    long n = 1;
    while (n < MULTI_MAX_DEPTH && p[n] != 0) ++n;
    return n;
}

// Decodes the character at p (before end) into *wc and moves p past it; false when the
// bytes are no character.
template <bool Counted>
[[gnu::always_inline]] inline bool take_char(const multi_t *table, const unsigned char *root,
                                             const unsigned char *&p, const unsigned char *end,
                                             nu_wchar *wc) {
    if (root[*p] == MULTI_LAST) {
        *wc = *p++;
        return true;
    }
    const nus::Walk w = nus::walk(table, p, char_budget<Counted>(p, end));
    if (w.status != 0) return false;
    *wc = w.wc;
    p += w.length;
    return true;
}

// The first-level weight of the character wc, which may begin an element, where the walk
// takes it as a unit of its own: where no element is wc followed by the characters at next
// (before end, or the terminator when Counted is false). Those are decoded as far as the
// longest element beginning with wc reaches and looked up as the full walk does. 0 when an
// element begins there, when the weight is not plain, or when a character after wc does not
// decode (the full walk then fails).
template <bool Counted>
uint16_t lone_weight(const nu_locale_rec *h, const multi_t *table, const unsigned char *root,
                     nu_wchar wc, const unsigned char *next, const unsigned char *end) {
    const uint16_t w = unit_weight(h, wc);
    if (w == 0) return 0;
    constexpr uint32_t kMostChars = 16;   // an element has at most 15 characters (one hex digit)
    nu_wchar chars[kMostChars];
    const int from = elements_beginning(h, wc);
    const uint32_t longest = longest_element(h, from, wc);
    if (longest > kMostChars) return 0;
    chars[0] = wc;
    uint32_t n = 1;
    while (n < longest && (Counted ? next < end : *next != 0)) {
        if (!take_char<Counted>(table, root, next, end, &chars[n])) return 0;
        ++n;
    }
    return element_from(h, from, chars, static_cast<int>(n)) == nullptr ? w : 0;
}

// The first look of the wide comparison (quick_first_level), taken straight on the multibyte
// text of both strings in step: decided at the first two characters of different plain
// first-level weights, undecided (0) at a character that is not plain or at the end of
// either string. A decided result is returned only when the rest of both strings decodes;
// kUndecodable when it does not. For multibyte handles whose bytes below 128 are one-byte
// characters and whose terminator is one byte. Counted strings end at e1 and e2,
// null-terminated ones (Counted false) at their zero byte, found on the way: the rest of a
// string is measured only once a pair of characters has decided.
template <bool Counted>
[[gnu::always_inline]] inline int quick_multibyte(const nu_locale_rec *h, const unsigned char *s1, const unsigned char *e1,
                    const unsigned char *s2, const unsigned char *e2) {
    const unsigned char *p1 = s1, *p2 = s2;
    const multi_t *table = h->ctype.class_table;
    const unsigned char *root = table->root->flag_arr;
    const uint16_t *first = h->coll.plain_weights;   // the first level's
    uint16_t w1, w2;
    for (;;) {
        if (Counted ? p1 >= e1 || p2 >= e2 : *p1 == 0 || *p2 == 0) return 0;
        const unsigned char b1 = *p1, b2 = *p2;
        if ((b1 | b2) < 0x80) {
            // Two one-byte characters, whose codes are their bytes: the common case of two
            // plain ones goes on here.
            w1 = first[b1];
            if (w1 != 0 && b1 == b2) {
                ++p1, ++p2;
                continue;
            }
            w2 = first[b2];
            if (w1 != 0 && w2 != 0) {
                ++p1, ++p2;
                if (w1 != w2) break;
                continue;
            }
        }
        nu_wchar c1, c2;
        if (!take_char<Counted>(table, root, p1, e1, &c1) ||
            !take_char<Counted>(table, root, p2, e2, &c2))
            return kUndecodable;
        w1 = plain_weight(h, 0, c1);
        if (w1 == 0) {
            // A character that may begin an element: the other string's character, even an
            // equal one, is looked at on its own.
            w1 = lone_weight<Counted>(h, table, root, c1, p1, e1);
            if (w1 == 0) return 0;
        } else if (c1 == c2) {
            continue;
        }
        w2 = plain_weight(h, 0, c2);
        if (w2 == 0) w2 = lone_weight<Counted>(h, table, root, c2, p2, e2);
        if (w2 == 0) return 0;
        if (w1 != w2) break;
    }
    // The rest of a null-terminated string is measured by the C library first (nothing here
    // reads past its terminator), then checked as a counted one.
    if (!Counted) {
        e1 = p1 + std::strlen(reinterpret_cast<const char *>(p1));
        e2 = p2 + std::strlen(reinterpret_cast<const char *>(p2));
    }
    if (!rest_decodes(table, root, s1, p1, e1) || !rest_decodes(table, root, s2, p2, e2))
        return kUndecodable;
    return w1 < w2 ? -1 : 1;
}

[[gnu::always_inline]] inline bool quick_multibyte_applies(nu_locale_rec *h) {
    return !h->single_byte && h->ascii_direct && h->has_collation && h->coll.method == 1 &&
           h->coll.level_count >= 1 && nus::level_forward(h, 0) &&
           h->ctype.class_table->min_length == 1;
}

} // namespace

namespace {

// The comparison of checked arguments by their characters (out of line: most comparisons
// are decided by the first look).
[[gnu::noinline]] int collate_characters(nu_locale_rec *h, const unsigned char *s1, int len1,
                                         const unsigned char *s2, int len2) {
    WideScratch w1, w2;
    int count1, count2;
    if (len1 == -1) {
        count1 = to_wide_string(h, s1, w1);
        count2 = count1 < 0 ? -1 : to_wide_string(h, s2, w2);
    } else {
        // A string of n bytes has at most n characters: one pass converts it.
        if (!w1.resize(static_cast<size_t>(len1) + 1) || !w2.resize(static_cast<size_t>(len2) + 1))
            return fail(h, NU_ENOMEM, 0);
        count1 = h->counted_to_wide(h, w1.data(), s1, len1, len1);
        count2 = count1 < 0 ? -1 : h->counted_to_wide(h, w2.data(), s2, len2, len2);
    }
    if (count1 < 0 || count2 < 0) {
        if (h->error != NU_ENOMEM) nus::set_error(h, NU_EILSEQ);
        return 0;
    }
    if (!h->has_collation) return _tsn_nu_wcfscmp(w1.data(), count1, w2.data(), count2);
    return _tsn_nu_full_wcscoll(h, w1.data(), count1, w2.data(), count2);
}

} // namespace

NU_EXPORT int _tsn_nu_im_mbfscoll(nu_locale_t h, const unsigned char *s1, int len1,
                                  const unsigned char *s2, int len2) {
    if (h == nullptr || s1 == nullptr || s2 == nullptr) return fail(h, NU_EBADARG, 0);
    if ((len1 == -1) != (len2 == -1)) return fail(h, NU_ELENGTHS, 0);
    if (len1 < -1 || len2 < -1) return fail(h, NU_EBADVAL, 0);
    if (quick_multibyte_applies(h)) {
        const int quick = len1 == -1 ? quick_multibyte<false>(h, s1, nullptr, s2, nullptr)
                                     : quick_multibyte<true>(h, s1, s1 + len1, s2, s2 + len2);
        if (quick == kUndecodable) return fail(h, NU_EILSEQ, 0);
        if (quick != 0) return quick;
    }
    return collate_characters(h, s1, len1, s2, len2);
}

// The null-terminated form on its own, so that the checks of the counted lengths fold away.
NU_EXPORT int _nu_im_mbscoll(nu_locale_t h, const unsigned char *s1, const unsigned char *s2) {
    if (h == nullptr || s1 == nullptr || s2 == nullptr) return fail(h, NU_EBADARG, 0);
    if (quick_multibyte_applies(h)) {
        const int quick = quick_multibyte<false>(h, s1, nullptr, s2, nullptr);
        if (quick == kUndecodable) return fail(h, NU_EILSEQ, 0);
        if (quick != 0) return quick;
    }
    return collate_characters(h, s1, -1, s2, -1);
}

namespace nus {

void free_key_cache(nu_locale_rec *h) {
    _nu_free_ptr(h->coll.key_cache);
    h->coll.key_cache = nullptr;
}

int build_weight_keys(nu_locale_rec *h) {
    const int32_t largest = h->coll.largest_weight;
    // Weights are 16-bit: a larger declared maximum only widens the digits.
    if (largest > 0xFFFF) return 0;
    const int digits = digit_count(static_cast<uint32_t>(largest));
    const size_t size = (static_cast<size_t>(largest) + 1) * static_cast<size_t>(digits);
    h->coll.weight_keys = alloc_array<unsigned char>(size);
    if (h->coll.weight_keys == nullptr) return fail(h, NU_ENOMEM, -1);
    int count = 0;
    for (int32_t w = 0; w <= largest; ++w)
        write_weight(static_cast<uint32_t>(w), digits, h->coll.weight_keys, &count,
                     static_cast<int>(size));
    if (digits > 2) return 0;
    const size_t rows = static_cast<size_t>(h->coll.highest_row) + 1;
    h->coll.row_keys = alloc_zeroed<uint16_t>(rows * static_cast<size_t>(h->coll.level_count));
    if (h->coll.row_keys == nullptr) return fail(h, NU_ENOMEM, -1);
    for (int l = 0; l < h->coll.level_count; ++l) {
        for (size_t r = 0; r < rows; ++r) {
            const uint16_t w = h->coll.weights[l][r];
            if (!is_plain(w) || w > largest) continue;
            std::memcpy(&h->coll.row_keys[l * rows + r],
                        h->coll.weight_keys + static_cast<size_t>(w) * digits,
                        static_cast<size_t>(digits));
        }
    }
    return 0;
}

} // namespace nus

// Through the functions chosen for the handle's locale.
NU_EXPORT int nu_full_mbscoll(nu_locale_t h, const unsigned char *s1, const unsigned char *s2) {
    if (h == nullptr) return fail(h, NU_EBADARG, 0);
    // In companion mode its collator compares, called from here without the kind-3 hop (the
    // flag is set only while a collation is loaded).
    if (nus::nuu_collates(h)) return nus::nuu_compare(h, s1, -1, s2, -1);
    if (h->collate == nullptr) return fail(h, NU_EBADARG, 0);
    return h->collate(h, s1, s2);
}

NU_EXPORT int _tsn_nu_full_mbscoll(nu_locale_t h, const unsigned char *s1, int len1,
                                   const unsigned char *s2, int len2) {
    if (h == nullptr || h->counted_collate == nullptr) return fail(h, NU_EBADARG, 0);
    return h->counted_collate(h, s1, len1, s2, len2);
}
