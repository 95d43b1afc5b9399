// The multi-level byte table: creation, insertion, the lookups, compression and freeing.
// The text form (writing and reading) lives in multi_text.cpp.
#include "frame/multi.h"

#include "convert/cv_rec.h"
#include "frame/frame.h"

#include <algorithm>

using namespace nus::multi;

namespace {

// Descriptors larger than this are refused at creation: a data array holds 256 slots rounded
// up to a power of two, and no user of the table needs more than a few words.
constexpr unsigned kMaxDescSize = 1u << 16;

// ---- node arrays ----------------------------------------------------------------------------

// Frees a node, its children and (when `arrays` is set, i.e. they are not shared) its flag
// and data arrays. Recursion is bounded by the depth of the trie, at most four levels.
void free_node(multi_arr_t *node, bool arrays) {
    if (node == nullptr) return;
    if (arrays) {
        _nu_free_ptr(node->flag_arr);
        _nu_free_ptr(node->data_arr);
    }
    _nu_free_ptr(node->offset_arr);
    if (node->next_arr != nullptr) {
        for (int32_t i = 0; i < node->child_count; ++i) free_node(node->next_arr[i], arrays);
        _nu_free_ptr(node->next_arr);
    }
    _nu_free_ptr(node);
}

// ---- insertion ------------------------------------------------------------------------------

// Inserts the key's bytes from position d on below `node`. A new child is linked (and its
// byte's flag set to 1) only once the rest of the key is in it, so a failure never leaves a
// flag of 1 without its child.
int insert_at(multi_t *t, multi_arr_t *node, const multi_key *key, int d, const void *desc) {
    const unsigned b = key->bytes[d];
    if (d + 1 != key->length) {
        if (node->flag_arr != nullptr && node->flag_arr[b] == MULTI_LAST) return -1;
        if (node->flag_arr == nullptr && (node->flag_arr = make_flag_array(t)) == nullptr) {
            return -1;
        }
        if (node->offset_arr == nullptr && (node->offset_arr = make_offset_array(t)) == nullptr) {
            return -1;
        }
        if (node->flag_arr[b] == MULTI_MORE) {
            return insert_at(t, node->next_arr[node->offset_arr[b]], key, d + 1, desc);
        }
        multi_arr_t *child = new_node();
        if (child == nullptr) return -1;
        if (insert_at(t, child, key, d + 1, desc) != 0) {
            discard_subtree(t, child);
            return -1;
        }
        // The child array holds exactly child_count entries, as a table read from a file
        // has it, so that insertion stays safe in either kind of table.
        const int32_t index = node->child_count;
        multi_arr_t **grown = nus::alloc_array<multi_arr_t *>(static_cast<size_t>(index) + 1);
        if (grown == nullptr) {
            discard_subtree(t, child);
            return -1;
        }
        if (index > 0) std::memcpy(grown, node->next_arr, sizeof(multi_arr_t *) * index);
        grown[index] = child;
        _nu_free_ptr(node->next_arr);
        node->next_arr = grown;
        node->offset_arr[b] = static_cast<unsigned char>(index);
        node->flag_arr[b] = MULTI_MORE;
        node->child_count = index + 1;
        return 0;
    }
    const bool mark_end = (t->flags & MULTI_MARK_END) != 0;
    if (mark_end) {
        if (node->flag_arr != nullptr && node->flag_arr[b] == MULTI_MORE) return -1;
        if (node->flag_arr == nullptr && (node->flag_arr = make_flag_array(t)) == nullptr) {
            return -1;
        }
    }
    // The data array is made before the flag is set, so that an insertion refused for want
    // of memory does not leave the character valid.
    if (desc != nullptr && node->data_arr == nullptr &&
        (node->data_arr = make_data_array(t)) == nullptr) {
        return -1;
    }
    if (mark_end) node->flag_arr[b] = MULTI_LAST;
    if (desc != nullptr) std::memcpy(node->data_arr + (size_t{b} << t->shift), desc, t->desc_size);
    return 0;
}

// ---- the walk shared by every lookup ----------------------------------------------------------

enum class End { found, invalid, input_ended };

struct Walk {
    const multi_arr_t *node; // node of the last flag read
    unsigned byte;           // last byte read
    int length;              // bytes read
    End end;
};

// Where the bytes of a walk come from.
struct Unbounded {
    const unsigned char *s;
    static constexpr bool has(int) { return true; }
    unsigned at(int i) const { return s[i]; }
};
struct Counted {
    const unsigned char *s;
    int count;
    bool has(int i) const { return i < count; }
    unsigned at(int i) const { return s[i]; }
};
// A little-endian code unit: the byte at the highest address first.
struct Reversed {
    const unsigned char *s;
    int width;
    bool has(int i) const { return i < width; }
    unsigned at(int i) const { return s[width - 1 - i]; }
};
// A wide character's bytes, the most significant of `width` first.
struct WideBytes {
    nu_wchar wc;
    int width;
    bool has(int i) const { return i < width; }
    unsigned at(int i) const { return (wc >> (8 * (width - 1 - i))) & 0xFFu; }
};

// One flag read, one offset read and one pointer read per byte. The trie is at most four
// levels deep, so even the unbounded walk ends within four bytes.
template <typename Source>
[[gnu::always_inline]] inline Walk walk(const multi_t *t, const Source &src) {
    const multi_arr_t *node = t->root;
    for (int i = 0;; ++i) {
        if (!src.has(i)) return {node, 0, i, End::input_ended};
        const unsigned b = src.at(i);
        const unsigned char *flags = node->flag_arr;
        const unsigned flag = flags != nullptr ? flags[b] : MULTI_INVALID;
        if (flag != MULTI_MORE) {
            return {node, b, i + 1, flag == MULTI_LAST ? End::found : End::invalid};
        }
        node = node->next_arr[node->offset_arr[b]];
    }
}

// The descriptor of the character ending with byte b at `node`.
[[gnu::always_inline]] inline void *desc_at(const multi_t *t, const multi_arr_t *node, unsigned b) {
    unsigned char *p =
        node->data_arr != nullptr ? node->data_arr + (size_t{b} << t->shift) : t->default_desc;
    return p;
}

// Stores the error of a walk that did not find a character.
inline void report(void *handle, End end) {
    nus::set_error(handle, end == End::input_ended ? NU_EINVAL : NU_EILSEQ);
}

} // namespace

// ---- helpers shared with the text form ------------------------------------------------------

namespace nus::multi {

void fill_default(const multi_t *t, unsigned char *arr) {
    // A zeroed array already holds a default of zero bytes.
    bool zero = true;
    for (uint32_t i = 0; i < t->desc_size && zero; ++i) zero = t->default_desc[i] == 0;
    if (zero) return;
    const size_t stride = size_t{1} << t->shift;
    for (int b = 0; b < kSlots; ++b) std::memcpy(arr + b * stride, t->default_desc, t->desc_size);
}

multi_arr_t *new_node() {
    multi_arr_t *node = alloc_zeroed<multi_arr_t>(1);
    if (node != nullptr) {
        node->flag_index = -1;
        node->data_index = -1;
    }
    return node;
}

unsigned char *make_flag_array(multi_t *t) {
    unsigned char *arr = alloc_zeroed<unsigned char>(kSlots);
    if (arr != nullptr) ++t->flag_count;
    return arr;
}

unsigned char *make_offset_array(multi_t *t) {
    unsigned char *arr = alloc_zeroed<unsigned char>(kSlots);
    if (arr != nullptr) ++t->offset_count;
    return arr;
}

unsigned char *alloc_data_array(const multi_t *t) {
    unsigned char *arr = alloc_zeroed<unsigned char>(data_array_size(t));
    if (arr != nullptr) fill_default(t, arr);
    return arr;
}

unsigned char *make_data_array(multi_t *t) {
    unsigned char *arr = alloc_data_array(t);
    if (arr != nullptr) ++t->data_count;
    return arr;
}

// A block of the arena; the memory carved from it follows the header.
struct ArenaBlock {
    ArenaBlock *next;
    size_t used;
    size_t size;
    size_t grown; // the size of the next ordinary block (the header stays 16-byte aligned)
};
static_assert(sizeof(ArenaBlock) % 16 == 0);

// Ordinary blocks grow from the first size to the last, so that a small table holds little
// and a large one takes a few dozen allocations; a request larger than a block gets its own.
// A reserved first block is at most kLargestReserve (a damaged file's announced counts cost
// no more).
constexpr size_t kFirstArenaBlock = 2048;
constexpr size_t kLastArenaBlock = 65536;
constexpr size_t kLargestReserve = size_t{1} << 20;

ArenaBlock *new_block(size_t capacity, size_t grown) {
    auto *block = static_cast<ArenaBlock *>(_nu_alloc_ptr(sizeof(ArenaBlock) + capacity));
    if (block == nullptr) return nullptr;
    std::memset(static_cast<void *>(block + 1), 0, capacity);
    block->next = nullptr;
    block->used = 0;
    block->size = capacity;
    block->grown = grown;
    return block;
}

void arena_reserve(multi_t *t, size_t size) {
    if (t->arena != nullptr || size == 0) return;
    // Without memory nothing is reserved: the first request fails in its turn.
    t->arena = new_block(std::min(size, kLargestReserve), kFirstArenaBlock);
}

void *arena_alloc(multi_t *t, size_t size) {
    if (size > SIZE_MAX / 2) return nullptr;
    size = (size + 15) & ~size_t{15};
    auto *head = static_cast<ArenaBlock *>(t->arena);
    if (head == nullptr || head->size - head->used < size) {
        const size_t grown = head == nullptr ? kFirstArenaBlock : head->grown;
        const size_t capacity = std::max(grown, size);
        ArenaBlock *block = new_block(capacity, std::min(grown * 2, kLastArenaBlock));
        if (block == nullptr) return nullptr;
        if (head != nullptr && capacity > grown) {
            // A large request: the current block stays in front for the small ones.
            block->next = head->next;
            head->next = block;
        } else {
            block->next = head;
            t->arena = block;
        }
        head = block;
    }
    unsigned char *p = reinterpret_cast<unsigned char *>(head + 1) + head->used;
    head->used += size;
    return p;
}

// Frees every block of the arena.
void free_arena(multi_t *t) {
    auto *block = static_cast<ArenaBlock *>(t->arena);
    while (block != nullptr) {
        ArenaBlock *next = block->next;
        _nu_free_ptr(block);
        block = next;
    }
    t->arena = nullptr;
}

void discard_subtree(multi_t *t, multi_arr_t *node) {
    if (node == nullptr) return;
    if (node->next_arr != nullptr) {
        for (int32_t i = 0; i < node->child_count; ++i) discard_subtree(t, node->next_arr[i]);
        _nu_free_ptr(node->next_arr);
    }
    if (node->flag_arr != nullptr) --t->flag_count;
    if (node->offset_arr != nullptr) --t->offset_count;
    if (node->data_arr != nullptr) --t->data_count;
    _nu_free_ptr(node->flag_arr);
    _nu_free_ptr(node->offset_arr);
    _nu_free_ptr(node->data_arr);
    _nu_free_ptr(node);
}

// In a single-byte code set every byte is a character. A byte that leads to a child keeps
// its flag (a single-byte table has none; this only guards the trie's consistency).
void complete_single_byte(multi_t *t) {
    if (t->max_length >= 2 || t->min_length != 1) return;
    unsigned char *flags = t->root->flag_arr;
    if (flags == nullptr) return;
    for (int b = 0; b < kSlots; ++b) {
        if (flags[b] != MULTI_MORE) flags[b] = MULTI_LAST;
    }
}

} // namespace nus::multi

// ---- creation and insertion ------------------------------------------------------------------

NU_EXPORT multi_t *_nu_create_multi(unsigned int desc_size, unsigned int flags,
                                    const void *default_desc) {
    if (desc_size > kMaxDescSize) return nullptr;
    multi_t *t = nus::alloc_zeroed<multi_t>(1);
    if (t == nullptr) return nullptr;
    t->desc_size = desc_size;
    t->flags = flags | MULTI_MARK_END;
    t->max_length = 0;
    t->min_length = 4;
    // A descriptor of size 0 still gets a block, so that lookups always return an address.
    t->default_desc = nus::alloc_zeroed<unsigned char>(std::max(desc_size, 1u));
    if (t->default_desc == nullptr) {
        _nu_free_ptr(t);
        return nullptr;
    }
    if (default_desc != nullptr) std::memcpy(t->default_desc, default_desc, desc_size);
    t->root = new_node();
    if (t->root == nullptr || (t->root->flag_arr = make_flag_array(t)) == nullptr) {
        _nu_free_ptr(t->root);
        _nu_free_ptr(t->default_desc);
        _nu_free_ptr(t);
        return nullptr;
    }
    uint32_t shift = 0;
    for (uint32_t size = 1; size < desc_size; size <<= 1) ++shift;
    t->shift = shift;
    return t;
}

NU_EXPORT int _nu_insert_desc_multi(const multi_key *key, const void *desc, multi_t *table) {
    if (table == nullptr || key == nullptr) return -1;
    if (key->length < 1 || key->length > MULTI_MAX_DEPTH) return -1;
    // Arrays of a compressed table are shared between nodes; it takes no more characters.
    if (is_compressed(table)) return -1;
    if (insert_at(table, table->root, key, 0, desc) != 0) return -1;
    table->max_length = std::max(table->max_length, key->length);
    table->min_length = std::min(table->min_length, key->length);
    return 0;
}

// ---- lookups --------------------------------------------------------------------------------

NU_EXPORT void *_nu_retrieve_desc_multi(const multi_key *key, const multi_t *table) {
    if (key == nullptr || table == nullptr) return nullptr;
    if (key->length < 1 || key->length > MULTI_MAX_DEPTH) return nullptr;
    const Walk w = walk(table, Counted{key->bytes, key->length});
    // A valid character shorter than the key is no answer for the key.
    if (w.end != End::found || w.length != key->length) return nullptr;
    return desc_at(table, w.node, w.byte);
}

NU_EXPORT void *_nu_retrieve_text_multi(const multi_t *table, const unsigned char *s, int *length,
                                        void *handle) {
    const Walk w = walk(table, Unbounded{s});
    if (length != nullptr) *length = w.length;
    if (w.end != End::found) {
        report(handle, w.end);
        return nullptr;
    }
    return desc_at(table, w.node, w.byte);
}

NU_EXPORT void *_nu_retrieve_text_multi_nl(const multi_t *table, const unsigned char *s,
                                           void *handle) {
    const Walk w = walk(table, Unbounded{s});
    if (w.end != End::found) {
        report(handle, w.end);
        return nullptr;
    }
    return desc_at(table, w.node, w.byte);
}

NU_EXPORT int _nu_retrieve_text_multi_nv(const multi_t *table, const unsigned char *s,
                                         void *handle) {
    const Walk w = walk(table, Unbounded{s});
    if (w.end != End::found) {
        report(handle, w.end);
        return 0;
    }
    return w.length;
}

NU_EXPORT void *_nu_retrieve_text_multi_limit(const unsigned char *s, const multi_t *table,
                                              int count, int *length, void *handle) {
    const Walk w = walk(table, Counted{s, count < 0 ? 0 : count});
    if (length != nullptr) *length = w.length;
    if (w.end != End::found) {
        report(handle, w.end);
        return nullptr;
    }
    return desc_at(table, w.node, w.byte);
}

NU_EXPORT void *_nu_retrieve_text_multi_limit_nl(const multi_t *table, const unsigned char *s,
                                                 int count, void *handle) {
    const Walk w = walk(table, Counted{s, count < 0 ? 0 : count});
    if (w.end != End::found) {
        report(handle, w.end);
        return nullptr;
    }
    return desc_at(table, w.node, w.byte);
}

NU_EXPORT void *_nu_retrieve_little_endian_unicode_limit(const unsigned char *s,
                                                         const multi_t *table, int count,
                                                         void *conversion) {
    const nu_cv_rec *cv = static_cast<const nu_cv_rec *>(conversion);
    const int width = cv->source_min_len == 4 && cv->source_max_len == 4 ? 4 : 2;
    if (count < width) {
        nus::set_error(conversion, NU_EINVAL);
        return nullptr;
    }
    const Walk w = walk(table, Reversed{s, width});
    if (w.end != End::found) {
        nus::set_error(conversion, NU_EILSEQ);
        return nullptr;
    }
    // Deliberate: the slot is that of the byte at the lowest address, even when the walk
    // ended earlier on a complete character at a higher address.
    return desc_at(table, w.node, s[0]);
}

NU_EXPORT void *_nu_retrieve_wchar_multi_nl(void *handle, nu_wchar wc, const multi_t *table) {
    if (table == nullptr) {
        nus::set_error(handle, NU_EBADARG);
        return nullptr;
    }
    int width = table->min_length;
    if (wc > 0xFFFFFFu) {
        width = 4;
    } else if (wc > 0xFFFFu) {
        width = std::max(width, 3);
    } else if (wc > 0xFFu) {
        width = std::max(width, 2);
    }
    if (width < 1 || width > MULTI_MAX_DEPTH) {
        nus::set_error(handle, NU_EILSEQ);
        return nullptr;
    }
    const Walk w = walk(table, WideBytes{wc, width});
    // Every byte but the low one must lead on, and the low one must end the character.
    if (w.end != End::found || w.length != width) {
        nus::set_error(handle, NU_EILSEQ);
        return nullptr;
    }
    return desc_at(table, w.node, w.byte);
}

// ---- compression and freeing -----------------------------------------------------------------

namespace {

struct Counts {
    size_t flags = 0;
    size_t data = 0;
};

void count_arrays(const multi_arr_t *node, Counts &counts) {
    if (node->flag_arr != nullptr) ++counts.flags;
    if (node->data_arr != nullptr) ++counts.data;
    for (int32_t i = 0; i < node->child_count; ++i) count_arrays(node->next_arr[i], counts);
}

// The arrays met so far, each with a fingerprint, so that most arrays that differ are told
// apart without comparing them (large tables have thousands of distinct arrays).
struct Shared {
    unsigned char **list;
    int32_t &count;
    uint64_t *prints;   // one per list entry, or null when there was no memory for them
};

// Gives the node the first equal array of the list (freeing its own) or appends its own.
template <typename Equal>
int32_t share(unsigned char *&arr, Shared list, uint64_t print, Equal equal) {
    for (int32_t i = 0; i < list.count; ++i) {
        if (list.prints != nullptr && list.prints[i] != print) continue;
        if (equal(list.list[i], arr)) {
            _nu_free_ptr(arr);
            arr = list.list[i];
            return i;
        }
    }
    if (list.prints != nullptr) list.prints[list.count] = print;
    list.list[list.count] = arr;
    return list.count++;
}

// FNV-1a over the bytes that equality compares.
inline uint64_t fingerprint(uint64_t h, const unsigned char *p, size_t n) {
    for (size_t i = 0; i < n; ++i) h = (h ^ p[i]) * 0x100000001b3ull;
    return h;
}
inline constexpr uint64_t kPrintSeed = 0xcbf29ce484222325ull;

// Depth first from the root, children in increasing byte order.
void compress_node(multi_t *t, multi_arr_t *node, uint64_t *flag_prints, uint64_t *data_prints) {
    if (node->flag_arr != nullptr) {
        const uint64_t print = fingerprint(kPrintSeed, node->flag_arr, kSlots);
        node->flag_index = share(node->flag_arr, Shared{t->flag_list, t->flag_count, flag_prints},
                                 print, [](const unsigned char *a, const unsigned char *b) {
                                     return std::memcmp(a, b, kSlots) == 0;
                                 });
    } else {
        node->flag_index = -1;
    }
    if (node->data_arr != nullptr) {
        const size_t stride = size_t{1} << t->shift;
        uint64_t print = kPrintSeed;
        for (int slot = 0; slot < kSlots; ++slot) {
            print = fingerprint(print, node->data_arr + slot * stride, t->desc_size);
        }
        node->data_index = share(node->data_arr, Shared{t->data_list, t->data_count, data_prints},
                                 print, [t, stride](const unsigned char *a, const unsigned char *b) {
                                     for (int s = 0; s < kSlots; ++s) {
                                         if (!same_desc(t, a + s * stride, b + s * stride)) {
                                             return false;
                                         }
                                     }
                                     return true;
                                 });
    } else {
        node->data_index = -1;
    }
    if (node->child_count == 0) return;
    for (int b = 0; b < kSlots; ++b) {
        if (node->flag_arr[b] == MULTI_MORE) {
            compress_node(t, node->next_arr[node->offset_arr[b]], flag_prints, data_prints);
        }
    }
}

} // namespace

NU_EXPORT int _nu_compress_multi(multi_t *table) {
    if (table == nullptr) return 0;
    // Compressing twice would free arrays that the lists already own.
    if (is_compressed(table)) return 0;
    complete_single_byte(table);
    // The lists are sized by the arrays actually present rather than by the counts.
    Counts counts;
    count_arrays(table->root, counts);
    unsigned char **flag_list =
        nus::alloc_zeroed<unsigned char *>(std::max<size_t>(counts.flags, 1));
    if (flag_list == nullptr) return -1;
    unsigned char **data_list = nullptr;
    if (counts.data != 0) {
        data_list = nus::alloc_zeroed<unsigned char *>(counts.data);
        if (data_list == nullptr) {
            _nu_free_ptr(flag_list);
            return -1;
        }
    }
    table->flags |= MULTI_COMPRESSED;
    table->flag_list = flag_list;
    table->data_list = data_list;
    table->flag_count = 0;
    table->data_count = 0;
    // Without memory for the fingerprints every array is compared in full.
    uint64_t *flag_prints = nus::alloc_array<uint64_t>(std::max<size_t>(counts.flags, 1));
    uint64_t *data_prints = nus::alloc_array<uint64_t>(std::max<size_t>(counts.data, 1));
    compress_node(table, table->root, flag_prints, data_prints);
    _nu_free_ptr(flag_prints);
    _nu_free_ptr(data_prints);
    return 0;
}

NU_EXPORT void _nu_free_multi(multi_t *table) {
    if (table == nullptr) return;
    const bool compressed = is_compressed(table);
    const bool in_arena = table->arena != nullptr;
    if (in_arena) {
        // Everything below the root, and the shared arrays, live in the arena.
        _nu_free_ptr(table->root);
        free_arena(table);
    } else {
        free_node(table->root, !compressed);
    }
    _nu_free_ptr(table->default_desc);
    if (compressed && !in_arena) {
        for (int32_t i = 0; i < table->flag_count; ++i) _nu_free_ptr(table->flag_list[i]);
        if (table->data_list != nullptr) {
            for (int32_t i = 0; i < table->data_count; ++i) _nu_free_ptr(table->data_list[i]);
        }
    }
    _nu_free_ptr(table->flag_list);
    _nu_free_ptr(table->data_list);
    _nu_free_ptr(table->child_counts);
    _nu_free_ptr(table);
}

// ---- accessors -------------------------------------------------------------------------------

NU_EXPORT int _nu_multi_max_length(const multi_t *table) {
    return table != nullptr ? table->max_length : 0;
}

NU_EXPORT int _nu_multi_min_length(const multi_t *table) {
    return table != nullptr ? table->min_length : 0;
}

NU_EXPORT int _nu_multi_err(const multi_t *table) { return table != nullptr ? table->err : 0; }

NU_EXPORT int _nu_multi_node_count(const multi_t *table, int *data_count, int *flag_count,
                                   int *offset_count) {
    if (table == nullptr) return 0;
    if (data_count != nullptr) *data_count = table->data_count;
    if (flag_count != nullptr) *flag_count = table->flag_count;
    if (offset_count != nullptr) *offset_count = table->offset_count;
    return table->offset_count;
}
