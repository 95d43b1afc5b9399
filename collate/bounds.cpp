// Primary weights and the bounds of prefix searches over collation order.
//
// The primary key of a text is its sort key cut after the first level. The neighbour of a
// collation unit (a character, or a collating element) is the unit whose primary key comes
// next after (or just before) the unit's own, among every character of the code set and
// every element. A bound replaces the last unit of a text by its neighbour, so that the texts
// with that prefix sort between the prefix's two bounds (unless its last unit has no primary
// weight at all).
//
// Finding a neighbour means knowing the primary key of every character of the code set. Those
// keys depend only on the handle's code set and COLLATE tables, so the first search builds
// them once:
// one entry per distinct key, sorted, holding the first character (in byte order) with that
// key, and whether the key is that of an expansion. A search is then a binary search, and
// gives the same answer as a walk over every character would.
#include "chars/chars.h"
#include "collate/collate.h"
#include "locale/nuu.h"

#include <algorithm>

namespace {

using nus::CollElement;
using nus::Owned;
using nus::Scratch;

constexpr int kStackChars = 128;   // wide scratch buffers up to this stay on the stack
constexpr int kStackBytes = 512;   // multibyte scratch buffers likewise
constexpr int kNeighbourBytes = 128;
constexpr int kMaxUnit = 16;       // an element has at most 15 characters

constexpr int kNext = 1;
constexpr int kPrevious = 2;

int fail(nu_locale_rec *h, int code, int result) {
    nus::set_error(h, code);
    return result;
}

template <typename T>
T *fail_null(nu_locale_rec *h, int code) {
    nus::set_error(h, code);
    return nullptr;
}

// strcmp order of two keys given with their lengths (primary keys hold no zero byte).
int key_compare(const unsigned char *a, size_t alen, const unsigned char *b, size_t blen) {
    const size_t common = std::min(alen, blen);
    const int c = common > 0 ? std::memcmp(a, b, common) : 0;
    if (c != 0) return c;
    return (alen > blen) - (alen < blen);
}

// Whether key a lies beyond K in the search direction.
bool beyond(int direction, int compared_with_k) {
    return direction == kNext ? compared_with_k > 0 : compared_with_k < 0;
}

// A primary key in a buffer that starts on the stack at 8 bytes and grows when a key is
// longer.
class PrimaryKey {
public:
    PrimaryKey() = default;
    PrimaryKey(const PrimaryKey &) = delete;
    PrimaryKey &operator=(const PrimaryKey &) = delete;
    ~PrimaryKey() { _nu_free_ptr(heap_); }

    // The primary key of the wide string ws; false on failure (error stored).
    bool compute(nu_locale_rec *h, const nu_wchar *ws) {
        int n = nu_wcsxfrm(h, data(), ws, capacity_);
        if (n < 0) return false;
        if (n >= capacity_) {
            if (!grow(h, n + 1)) return false;
            n = nu_wcsxfrm(h, data(), ws, capacity_);
            if (n < 0) return false;
        }
        data()[n] = 0;
        nu_get_prim_coll_weight(data());
        length_ = std::strlen(reinterpret_cast<const char *>(data()));
        return true;
    }
    bool assign(nu_locale_rec *h, const unsigned char *key, size_t length) {
        if (length + 1 > static_cast<size_t>(capacity_) && !grow(h, static_cast<int>(length) + 1))
            return false;
        std::memcpy(data(), key, length);
        data()[length] = 0;
        length_ = length;
        return true;
    }
    unsigned char *data() { return heap_ != nullptr ? heap_ : local_; }
    const unsigned char *data() const { return heap_ != nullptr ? heap_ : local_; }
    size_t length() const { return length_; }
    int compare(const unsigned char *key, size_t length) const {
        return key_compare(data(), length_, key, length);
    }

private:
    bool grow(nu_locale_rec *h, int size) {
        auto *p = nus::alloc_array<unsigned char>(static_cast<size_t>(size));
        if (p == nullptr) return fail(h, NU_ENOMEM, 0) != 0;
        _nu_free_ptr(heap_);
        heap_ = p;
        capacity_ = size;
        return true;
    }

    unsigned char local_[8];
    unsigned char *heap_ = nullptr;
    int capacity_ = 8;
    size_t length_ = 0;
};

// ---- the expansion key list ---------------------------------------------------------------

// One node per expansion of the locale, in table order: the concatenated primary keys of the
// expansion's characters.
struct ExpansionKey {
    unsigned char *key;
    size_t length;
    ExpansionKey *next;
};

void free_local_expansarr(ExpansionKey *node) {
    if (node == nullptr) return;
    free_local_expansarr(node->next);
    _nu_free_ptr(node->key);
    _nu_free_ptr(node);
}

// The list, or null with the error slot set when it could not be built (null as well, with
// the slot untouched, when the locale has no expansions).
ExpansionKey *nu_build_expansion_weights(nu_locale_rec *h) {
    ExpansionKey *head = nullptr, **tail = &head;
    for (int e = 0; e < h->expansion_count; ++e) {
        const nus::CollExpansion &x = h->coll.expansions[e];
        auto *node = nus::alloc_zeroed<ExpansionKey>(1);
        if (node == nullptr) {
            free_local_expansarr(head);
            return fail_null<ExpansionKey>(h, NU_ENOMEM);
        }
        *tail = node;
        tail = &node->next;
        size_t total = 0;
        unsigned char *joined = nus::alloc_array<unsigned char>(1);
        if (joined != nullptr) joined[0] = 0;
        for (uint32_t i = 0; i < x.count && joined != nullptr; ++i) {
            const nu_wchar one[2] = {x.chars[i], 0};
            PrimaryKey k;
            if (!k.compute(h, one)) {
                _nu_free_ptr(joined);
                joined = nullptr;
                break;
            }
            auto *longer = nus::alloc_array<unsigned char>(total + k.length() + 1);
            if (longer == nullptr) {
                _nu_free_ptr(joined);
                joined = nullptr;
                fail(h, NU_ENOMEM, 0);
                break;
            }
            std::memcpy(longer, joined, total);
            std::memcpy(longer + total, k.data(), k.length() + 1);
            _nu_free_ptr(joined);
            joined = longer;
            total += k.length();
        }
        if (joined == nullptr) {
            if (*_nu_ext_errno(h) == 0) nus::set_error(h, NU_ENOMEM);
            free_local_expansarr(head);
            return nullptr;
        }
        node->key = joined;
        node->length = total;
    }
    return head;
}

// ---- the characters of the code set, with their primary keys ---------------------------------

// A block of the library allocator that doubles when full.
template <typename T>
struct Growing {
    T *data = nullptr;
    size_t size = 0;
    size_t capacity = 0;

    Growing() = default;
    Growing(const Growing &) = delete;
    Growing &operator=(const Growing &) = delete;
    ~Growing() { _nu_free_ptr(data); }
    bool append(const T *items, size_t n) {
        if (n == 0) return true;
        if (size + n > capacity) {
            size_t wanted = capacity != 0 ? capacity * 2 : 1024;
            while (wanted < size + n) wanted *= 2;
            T *p = nus::alloc_array<T>(wanted);
            if (p == nullptr) return false;
            if (size > 0) std::memcpy(static_cast<void *>(p), data, size * sizeof(T));
            _nu_free_ptr(data);
            data = p;
            capacity = wanted;
        }
        std::memcpy(static_cast<void *>(data + size), items, n * sizeof(T));
        size += n;
        return true;
    }
    T *release() { return std::exchange(data, nullptr); }
};

// A character met by the code-set walk: where its key starts in the key pool, and its length.
struct Visited {
    nu_wchar wc;
    uint32_t key;
    uint32_t length;
};

// What the walk collects: every complete character with its primary key, in byte order.
struct Collected {
    Growing<Visited> chars;
    Growing<unsigned char> keys;
    bool direct;          // keys of single characters computed by single_char_key
    uint32_t code_max;    // the largest character code, for the code after a bit-15 weight
};

// Digits of a weight exactly as the sort key writes them: value - 2 in base 254, each digit
// plus 2, as many digits as the largest value needs. The number of digits.
int put_weight(uint32_t value, uint32_t largest, unsigned char *out) {
    const int digits = largest <= 253u          ? 1
                       : largest <= 64515u      ? 2
                       : largest <= 16387063u   ? 3
                       : largest <= 4162314255u ? 4
                                                : 5;
    uint64_t v = static_cast<uint32_t>(value - 2u);
    for (int i = digits - 1; i >= 0; --i) {
        out[i] = static_cast<unsigned char>(v % 254u + 2u);
        v /= 254u;
    }
    return digits;
}

// Room for the primary key of one character: at most 15 expansion characters, each a weight
// and a code of at most 5 digits.
constexpr int kCharKeyBytes = 15 * 2 * 5;

// The primary key of the single character wc, as nu_wcsxfrm writes the first level of a
// string holding only wc: its weight, or the weights of its expansion's characters in the
// level's direction (ignorable ones and nested expansions skipped, a character without a row
// ending the key), each bit-15 weight followed by the character's code. The walk of a whole
// string is far more work than this, and the code-set walk asks for every character.
int single_char_key(const nu_locale_rec *h, nu_wchar wc, uint32_t code_max, unsigned char *out) {
    const uint16_t *weights = h->coll.weights[0];
    const auto largest = static_cast<uint32_t>(h->coll.largest_weight);
    auto emit = [&](uint16_t w, nu_wchar ch, unsigned char *p) {
        if ((w & nus::kCodeTieBit) == 0) return put_weight(w, largest, p);
        const int n = put_weight(w & nus::kWeightMask, largest, p);
        return n + put_weight(ch, code_max, p + n);
    };
    const int row = nus::collation_row(h, wc);
    if (row < 0) return 0;
    const uint16_t w = weights[row];
    if ((w & nus::kExpansionBit) == 0)
        return w == nus::kIgnorable || w == 0 ? 0 : emit(w, wc, out);
    const nus::CollExpansion &e = h->coll.expansions[w & nus::kWeightMask];
    const int count = static_cast<int>(std::min<uint32_t>(e.count, 15));
    const bool forward = nus::level_forward(h, 0);
    int length = 0;
    for (int k = 0; k < count; ++k) {
        const nu_wchar c = e.chars[forward ? k : count - 1 - k];
        const int r = nus::collation_row(h, c);
        if (r < 0) break;
        uint16_t cw = weights[r];
        if ((cw & nus::kExpansionBit) != 0) cw = nus::kIgnorable;
        if (cw == nus::kIgnorable) continue;
        if (cw == 0 && k == count - 1) break;   // a last weight of 0 ends the key
        length += emit(cw, c, out + length);
    }
    return length;
}

// Whether single_char_key gives what nu_wcsxfrm would: a table-driven locale whose elements
// all have two characters or more (a one-character element would take over its character).
bool direct_keys_apply(const nu_locale_rec *h) {
    if (h->coll.method != 1 || !h->has_collation || h->coll.level_count < 1 ||
        h->coll.weights[0] == nullptr)
        return false;
    if (h->expansion_count > 0 && h->coll.expansions == nullptr) return false;
    for (int e = 0; e < h->element_count; ++e)
        if (h->coll.elements[e].count < 2) return false;
    return true;
}


// Visits every character of the code set, depth first over byte sequences with the byte
// values 0 to 255 at each depth: a sequence that is incomplete is extended one byte deeper,
// an illegal one is skipped. Each complete character's primary key goes into `out`. 0, or
// -1 with the error slot set (any other decoding failure is an illegal sequence).
int nu_check_all_codepoints(nu_locale_rec *h, unsigned char *bytes, int depth, nu_wchar prefix,
                            Collected &out) {
    for (int b = 0; b < 256; ++b) {
        bytes[depth] = static_cast<unsigned char>(b);
        const nu_wchar wc = (prefix << 8) | static_cast<nu_wchar>(b);
        nus::set_error(h, 0);
        const int length = nu_full_mblen(h, bytes, depth + 1);
        if (length < 0) {
            const int error = *_nu_ext_errno(h);
            if (error == NU_EINVAL && depth + 1 < MULTI_MAX_DEPTH) {
                if (nu_check_all_codepoints(h, bytes, depth + 1, wc, out) != 0) return -1;
            } else if (error != NU_EILSEQ && error != NU_EINVAL) {
                return fail(h, NU_EILSEQ, -1);
            }
            continue;
        }
        if (length == 0) continue;   // the null character ends strings; it is no unit
        const Visited v{wc, static_cast<uint32_t>(out.keys.size), 0};
        if (!out.chars.append(&v, 1)) return fail(h, NU_ENOMEM, -1);
        Visited &added = out.chars.data[out.chars.size - 1];
        if (out.direct) {
            unsigned char key[kCharKeyBytes];
            added.length = static_cast<uint32_t>(single_char_key(h, wc, out.code_max, key));
            if (!out.keys.append(key, added.length)) return fail(h, NU_ENOMEM, -1);
        } else {
            const nu_wchar one[2] = {wc, 0};
            PrimaryKey k;
            if (!k.compute(h, one)) return -1;
            added.length = static_cast<uint32_t>(k.length());
            if (!out.keys.append(k.data(), k.length())) return fail(h, NU_ENOMEM, -1);
        }
    }
    return 0;
}

// What a handle keeps between searches: the distinct primary keys of its characters, sorted,
// each with the first character (in byte order) that has it; and each element's key.
struct BoundCache {
    uint32_t count;
    nu_wchar *chars;           // count
    uint32_t *offsets;         // count + 1: key i is keys[offsets[i] .. offsets[i + 1])
    unsigned char *expansion;  // count: 1 when the key is an expansion's (never taken)
    unsigned char *keys;
    uint32_t *elem_offsets;    // element_count + 1, into elem_keys
    unsigned char *elem_keys;

    const unsigned char *key(uint32_t i) const { return keys + offsets[i]; }
    size_t length(uint32_t i) const { return offsets[i + 1] - offsets[i]; }
    const unsigned char *elem_key(int e) const { return elem_keys + elem_offsets[e]; }
    size_t elem_length(int e) const { return elem_offsets[e + 1] - elem_offsets[e]; }
};

void release(BoundCache *c) {
    if (c == nullptr) return;
    _nu_free_ptr(c->chars);
    _nu_free_ptr(c->offsets);
    _nu_free_ptr(c->expansion);
    _nu_free_ptr(c->keys);
    _nu_free_ptr(c->elem_offsets);
    _nu_free_ptr(c->elem_keys);
    _nu_free_ptr(c);
}

// Whether `key` is one of the expansion keys, which are sorted (a binary search).
bool nu_is_expans_elem(const ExpansionKey *const *sorted, size_t count, const unsigned char *key,
                       size_t length) {
    size_t lo = 0, hi = count;
    while (lo < hi) {
        const size_t mid = lo + (hi - lo) / 2;
        const int c = key_compare(sorted[mid]->key, sorted[mid]->length, key, length);
        if (c == 0) return true;
        if (c < 0) lo = mid + 1;
        else hi = mid;
    }
    return false;
}

// The element keys into the cache; false on failure (error stored).
bool cache_elements(nu_locale_rec *h, BoundCache *c) {
    const int n = h->element_count;
    c->elem_offsets = nus::alloc_zeroed<uint32_t>(static_cast<size_t>(n) + 1);
    if (c->elem_offsets == nullptr) return fail(h, NU_ENOMEM, 0) != 0;
    Growing<unsigned char> keys;
    for (int e = 0; e < n; ++e) {
        const CollElement &el = h->coll.elements[e];
        nu_wchar ws[kMaxUnit + 1] = {};
        const uint32_t count = std::min<uint32_t>(el.count, kMaxUnit);
        std::memcpy(ws, el.chars, count * sizeof(nu_wchar));
        PrimaryKey k;
        if (!k.compute(h, ws)) return false;
        if (!keys.append(k.data(), k.length())) return fail(h, NU_ENOMEM, 0) != 0;
        c->elem_offsets[e + 1] = static_cast<uint32_t>(keys.size);
    }
    c->elem_keys = keys.release();
    return true;
}

// Builds the handle's cache; null with the error slot set on failure.
BoundCache *build_cache(nu_locale_rec *h) {
    struct Guard {
        BoundCache *c;
        ~Guard() { release(c); }
    } guard{nus::alloc_zeroed<BoundCache>(1)};
    BoundCache *c = guard.c;
    if (c == nullptr) return fail_null<BoundCache>(h, NU_ENOMEM);

    nus::set_error(h, 0);
    ExpansionKey *list = nu_build_expansion_weights(h);
    if (*_nu_ext_errno(h) != 0) return nullptr;
    struct ListOwner {
        ExpansionKey *l;
        ~ListOwner() { free_local_expansarr(l); }
    } list_owner{list};
    size_t expansions = 0;
    for (ExpansionKey *n = list; n != nullptr; n = n->next) ++expansions;
    Scratch<ExpansionKey *, 64> sorted(expansions);
    if (!sorted.ok()) return fail_null<BoundCache>(h, NU_ENOMEM);
    expansions = 0;
    for (ExpansionKey *n = list; n != nullptr; n = n->next) sorted.data()[expansions++] = n;
    std::sort(sorted.data(), sorted.data() + expansions, [](const ExpansionKey *a, const ExpansionKey *b) {
        return key_compare(a->key, a->length, b->key, b->length) < 0;
    });

    if (!cache_elements(h, c)) return nullptr;

    Collected all;
    all.direct = direct_keys_apply(h);
    all.code_max = nus::largest_code(h);
    unsigned char bytes[MULTI_MAX_DEPTH + 1] = {};
    if (nu_check_all_codepoints(h, bytes, 0, 0, all) != 0) return nullptr;
    nus::set_error(h, 0);

    // Sorted by key, and by byte order among equal keys, so that the first of each run of
    // equal keys is the character a walk in byte order would have met first.
    const size_t n = all.chars.size;
    Owned<uint32_t> order(nus::alloc_array<uint32_t>(n + 1));
    if (!order) return fail_null<BoundCache>(h, NU_ENOMEM);
    for (size_t i = 0; i < n; ++i) order.get()[i] = static_cast<uint32_t>(i);
    const Visited *v = all.chars.data;
    const unsigned char *pool = all.keys.data;
    std::sort(order.get(), order.get() + n, [v, pool](uint32_t a, uint32_t b) {
        const int order_ab = key_compare(pool + v[a].key, v[a].length, pool + v[b].key, v[b].length);
        return order_ab != 0 ? order_ab < 0 : a < b;
    });
    size_t distinct = 0, bytes_needed = 0;
    for (size_t i = 0; i < n; ++i) {
        const Visited &x = v[order.get()[i]];
        if (i > 0) {
            const Visited &p = v[order.get()[i - 1]];
            if (key_compare(pool + x.key, x.length, pool + p.key, p.length) == 0) continue;
        }
        ++distinct;
        bytes_needed += x.length;
    }
    c->chars = nus::alloc_array<nu_wchar>(distinct + 1);
    c->offsets = nus::alloc_array<uint32_t>(distinct + 1);
    c->expansion = nus::alloc_zeroed<unsigned char>(distinct + 1);
    c->keys = nus::alloc_array<unsigned char>(bytes_needed + 1);
    if (c->chars == nullptr || c->offsets == nullptr || c->expansion == nullptr || c->keys == nullptr)
        return fail_null<BoundCache>(h, NU_ENOMEM);
    uint32_t at = 0, used = 0;
    c->offsets[0] = 0;
    for (size_t i = 0; i < n; ++i) {
        const Visited &x = v[order.get()[i]];
        if (at > 0 && key_compare(pool + x.key, x.length, c->key(at - 1), c->length(at - 1)) == 0)
            continue;
        // A damaged table can give every character an empty key, and the pool no bytes.
        if (x.length != 0) std::memcpy(c->keys + used, pool + x.key, x.length);
        c->chars[at] = x.wc;
        used += x.length;
        c->expansion[at] = nu_is_expans_elem(sorted.data(), expansions, pool + x.key, x.length);
        ++at;
        c->offsets[at] = used;
    }
    c->count = at;
    return std::exchange(guard.c, nullptr);
}

const BoundCache *bound_cache(nu_locale_rec *h) {
    if (h->coll.bound_cache == nullptr) h->coll.bound_cache = build_cache(h);
    return static_cast<const BoundCache *>(h->coll.bound_cache);
}

// The entry of the nearest key beyond K in the direction, skipping expansion keys; -1 when
// there is none.
long nearest_char(const BoundCache &c, const PrimaryKey &k, int direction) {
    // First entry whose key is not below K, then the first above it.
    uint32_t lo = 0, hi = c.count;
    while (lo < hi) {
        const uint32_t mid = lo + (hi - lo) / 2;
        if (k.compare(c.key(mid), c.length(mid)) > 0) lo = mid + 1;
        else hi = mid;
    }
    if (direction == kNext) {
        uint32_t i = lo;
        if (i < c.count && k.compare(c.key(i), c.length(i)) == 0) ++i;
        while (i < c.count && c.expansion[i]) ++i;
        return i < c.count ? static_cast<long>(i) : -1;
    }
    long i = static_cast<long>(lo) - 1;
    while (i >= 0 && c.expansion[i]) --i;
    return i;
}

// The character count of s and s decoded into a block held by `ws`.
struct Wide {
    Scratch<nu_wchar, kStackChars> buffer;
    int count;
    Wide(nu_locale_rec *h, const unsigned char *s, int n) : buffer(static_cast<size_t>(n < 0 ? 0 : n) + 1), count(n) {
        if (n < 0 || !buffer.ok()) return;
        if (h->to_wide(h, buffer.data(), s, n + 1) < 0) count = -1;
        else buffer.data()[n] = 0;
    }
};

int char_count(nu_locale_rec *h, const unsigned char *s) {
    return h->single_byte ? static_cast<int>(std::strlen(reinterpret_cast<const char *>(s)))
                          : _nu_im_mbslen(h, s);
}

// The neighbour search. whole is 0 when s is the start of an element rather than a unit.
int nu_primweight(nu_locale_rec *h, const unsigned char *s, int whole, unsigned char *out,
                  int direction) {
    if (h == nullptr) return -1;
    if (s == nullptr || out == nullptr) return fail(h, NU_EBADARG, -1);
    const int kind = nu_iscompchar(h, s);
    if (kind < 0) return -1;
    if ((whole != 0 && kind == 3) || (whole == 0 && kind != 3)) return fail(h, NU_EBADVAL, -1);

    nus::set_error(h, 0);
    const BoundCache *cache = bound_cache(h);
    if (cache == nullptr) return -1;

    Wide ws(h, s, char_count(h, s));
    if (ws.count < 0) return -1;
    if (!ws.buffer.ok()) return fail(h, NU_ENOMEM, -1);
    const nu_wchar *wide = ws.buffer.data();
    PrimaryKey k;
    if (!k.compute(h, wide)) return -1;

    // The best candidate so far: s itself until something beyond it is found (`replaced`).
    nu_wchar best[kMaxUnit + 1] = {};
    PrimaryKey best_key;
    bool found = false, replaced = false;
    auto try_element = [&](int e) -> bool {
        const unsigned char *ek = cache->elem_key(e);
        const size_t elen = cache->elem_length(e);
        if (!beyond(direction, key_compare(ek, elen, k.data(), k.length()))) return true;
        if (found && !beyond(direction, best_key.compare(ek, elen))) return true;
        const CollElement &el = h->coll.elements[e];
        std::memset(best, 0, sizeof best);
        std::memcpy(best, el.chars, std::min<uint32_t>(el.count, kMaxUnit) * sizeof(nu_wchar));
        found = replaced = true;
        return best_key.assign(h, ek, elen);
    };
    auto is_prefix_of = [&](const CollElement &el) {
        if (static_cast<uint32_t>(ws.count) >= el.count) return false;
        for (int i = 0; i < ws.count; ++i)
            if (wide[i] != el.chars[i]) return false;
        return true;
    };

    if (whole == 0) {
        // The elements that s begins: the nearest one beyond s becomes the point the search
        // goes on from, and the answer when no character lies beyond it.
        for (int e = 0; e < h->element_count; ++e)
            if (is_prefix_of(h->coll.elements[e]) && !try_element(e)) return -1;
        if (found) {
            if (!k.assign(h, best_key.data(), best_key.length())) return -1;
            found = false;
        }
    }
    const long i = nearest_char(*cache, k, direction);
    if (i >= 0) {
        std::memset(best, 0, sizeof best);
        best[0] = cache->chars[i];
        if (!best_key.assign(h, cache->key(static_cast<uint32_t>(i)), cache->length(static_cast<uint32_t>(i))))
            return -1;
        found = replaced = true;
    }
    if (whole != 0)
        for (int e = 0; e < h->element_count; ++e)
            if (!try_element(e)) return -1;

    if (!replaced || nu_wcscmp(best, wide) == 0) return -2;
    const int limit = 4 * nu_wcslen(best) + 1;
    const int written = h->single_byte ? _nu_is_wcstombs(h, out, best, limit)
                                       : nu_full_wcstombs(h, out, best, limit);
    if (written < 0) return -1;
    return h->single_byte ? 1 : nu_wclen(h, best[0]);
}

// The byte length of the character at s (1 per byte in a single-byte handle); -1 when it
// does not decode.
int char_length(nu_locale_rec *h, const unsigned char *s) {
    if (h->single_byte) return 1;
    return nu_full_mblen(h, s, 4);
}

void no_handle_error() {
    if (int *slot = _nu_ext_errno(nullptr); slot != nullptr) *slot = NU_ECODESET;
}

} // namespace

namespace nus {

void free_bound_cache(nu_locale_rec *h) {
    release(static_cast<BoundCache *>(h->coll.bound_cache));
    h->coll.bound_cache = nullptr;
    free_key_cache(h);
}

} // namespace nus

NU_EXPORT int nu_getpassdirection(nu_locale_t h, int level) {
    if (h == nullptr) return -1;
    if (h->coll.method == 2) return fail(h, NU_EBADCONV, -1);
    if (level < 1 || level > h->coll.level_count) return fail(h, NU_ENOWIDTH, -1);
    const int32_t direction = h->coll.level_words[level - 1];
    if (direction != 1 && direction != 2) return fail(h, NU_ECODESET, -1);
    return direction;
}

NU_EXPORT int nu_IsSpecialLocale(nu_locale_t h) {
    return h != nullptr && h->coll.method == 2 ? 1 : 0;
}

NU_EXPORT int nu_iscompchar(nu_locale_t h, const unsigned char *s) {
    if (h == nullptr) return -1;
    if (s == nullptr) return fail(h, NU_EBADARG, -1);
    if (h->coll.method == 2) return nu_iscompchar_thai(h, s);
    const int count = char_count(h, s);
    if (count < 0) return count;
    if (h->element_count == 0) return 1;
    Wide ws(h, s, count);
    if (!ws.buffer.ok()) return fail(h, NU_ENOMEM, -1);
    if (ws.count < 0) return -1;
    const nu_wchar *wide = ws.buffer.data();
    for (int e = 0; e < h->element_count; ++e) {
        const CollElement &el = h->coll.elements[e];
        const auto n = static_cast<uint32_t>(count);
        if (n == 0 || n > el.count || (n == el.count && n < 2)) continue;
        if (std::memcmp(wide, el.chars, n * sizeof(nu_wchar)) != 0) continue;
        return n == el.count ? 2 : 3;
    }
    return 1;
}

NU_EXPORT int nu_get_prim_coll_weight(unsigned char *key) {
    if (key == nullptr) return 0;
    for (unsigned char *p = key; *p != 0; ++p)
        if (*p == 1) {
            *p = 0;
            break;
        }
    return 0;
}

NU_EXPORT int nu_nextprimweight(nu_locale_t h, const unsigned char *s, int whole,
                                unsigned char *out) {
    if (h == nullptr) return -1;
    if (h->coll.method == 2) return nu_primweight_thai(h, s, whole, out, kNext);
    return nu_primweight(h, s, whole, out, kNext);
}

NU_EXPORT int nu_prevprimweight(nu_locale_t h, const unsigned char *s, int whole,
                                unsigned char *out) {
    if (h == nullptr) return -1;
    if (h->coll.method == 2) return nu_primweight_thai(h, s, whole, out, kPrevious);
    return nu_primweight(h, s, whole, out, kPrevious);
}

NU_EXPORT int nu_mbsCollBound(nu_locale_t h, const unsigned char *s, int upper,
                              unsigned char *out, int size) {
    if (h == nullptr) {
        no_handle_error();
        return -1;
    }
    if (s == nullptr || out == nullptr) return fail(h, NU_EBADARG, -1);
    if (nus::nuu_collates(h))
        return nus::nuu_call(h, nus::kNuuCollate, nus::call_nuu_mbsCollBound(), s, upper, out,
                             size);
    const int m = nu_mb_loc_min(h) > 0 ? nu_mb_loc_min(h) : 1;
    const int slen = nus::text_bytes(h, s);
    if (slen < 0) return fail(h, NU_EILSEQ, -1);
    // s may lie in out: work from a copy.
    Scratch<unsigned char, kStackBytes> copy(static_cast<size_t>(slen) + static_cast<size_t>(m));
    if (!copy.ok()) return fail(h, NU_ENOMEM, -1);
    unsigned char *src = copy.data();
    std::memcpy(src, s, static_cast<size_t>(slen));
    std::memset(src + slen, 0, static_cast<size_t>(m));

    // Copy character by character, keeping the start of the current unit: a character that
    // breaks a started element starts a unit of its own.
    int len = 0, start = 0, building = 0;   // building: class of the unit being built, or 0
    int last_start = 0, last_class = 0;
    for (int i = 0; i < slen;) {
        const int clen = char_length(h, src + i);
        if (clen <= 0) return fail(h, NU_EILSEQ, -1);
        if (len + clen + m > size) return fail(h, NU_E2BIG, -1);
        std::memcpy(out + len, src + i, static_cast<size_t>(clen));
        std::memset(out + len + clen, 0, static_cast<size_t>(m));
        const int cls = nu_iscompchar(h, out + start);
        if (cls < 1 || cls > 3) return -1;
        if (building == 3 && cls == 1) {
            std::memset(out + len, 0, static_cast<size_t>(m));
            start = len;
            building = 0;
            continue;
        }
        len += clen;
        i += clen;
        last_start = start;
        last_class = cls;
        if (cls == 3) {
            building = 3;
        } else {
            start = len;
            building = 0;
        }
    }
    if (len == 0) {
        // No unit to replace: out holds the empty string, if its terminator fits.
        if (m > size) return fail(h, NU_E2BIG, -1);
        std::memset(out, 0, static_cast<size_t>(m));
        return -2;
    }

    unsigned char neighbour[kNeighbourBytes] = {};
    const int whole = last_class != 3 ? 1 : 0;
    const int found = upper != 0 ? nu_nextprimweight(h, out + last_start, whole, neighbour)
                                 : nu_prevprimweight(h, out + last_start, whole, neighbour);
    if (found == -1) return -1;
    if (found == -2) return -2;   // out holds s
    const int nlen = nus::text_bytes(h, neighbour);
    if (nlen < 0 || last_start + nlen + m > size) return fail(h, NU_E2BIG, -1);
    std::memcpy(out + last_start, neighbour, static_cast<size_t>(nlen));
    std::memset(out + last_start + nlen, 0, static_cast<size_t>(m));
    return last_start + nlen;
}

NU_EXPORT int nu_mbsSortKeyCollBound(nu_locale_t h, const unsigned char *s, int upper,
                                     unsigned char *key, int size) {
    if (h == nullptr) {
        no_handle_error();
        return -1;
    }
    if (s == nullptr || key == nullptr) return fail(h, NU_EBADARG, -1);
    if (nus::nuu_collates(h))
        return nus::nuu_call(h, nus::kNuuCollate, nus::call_nuu_mbsSortKeyCollBound(), s, upper,
                             key, size);
    const size_t wanted =
        std::max<size_t>(static_cast<size_t>(std::max(nus::text_bytes(h, s), 0)) + 31, kStackBytes);
    Scratch<unsigned char, kStackBytes> bound(wanted);
    if (!bound.ok()) return fail(h, NU_ENOMEM, -1);
    if (nu_mbsCollBound(h, s, upper, bound.data(), static_cast<int>(wanted)) == -1) return -1;
    // The Thai sort-key function takes its source first (see thai.cpp).
    if (h->transform == _nu_thaismoxfrm) return _nu_thaismoxfrm(h, bound.data(), key, size);
    nus::TransformFn transform = h->transform != nullptr ? h->transform : nu_full_mbsxfrm;
    return transform(h, key, bound.data(), size);
}
