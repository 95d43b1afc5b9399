// The multi-level byte table: a 256-way trie over the bytes of a character (at most four
// levels) whose leaves carry fixed-size descriptors. Field order is the documented one.
#pragma once

#include "nus.h"

#include <cstdint>

// Flag values of a node's flag array.
inline constexpr unsigned char MULTI_INVALID = 0;
inline constexpr unsigned char MULTI_MORE = 1;
inline constexpr unsigned char MULTI_LAST = 4;

struct multi_arr_t {
    int32_t child_count;          // entries equal to MULTI_MORE in flag_arr
    int32_t flag_index;           // compressed: index in flag_list, else -1
    int32_t data_index;           // compressed: index in data_list, else -1
    unsigned char *flag_arr;      // 256 flags, or null
    unsigned char *offset_arr;    // 256 child indexes into next_arr, or null
    unsigned char *data_arr;      // 256 slots of 1 << shift bytes, or null
    multi_arr_t **next_arr;       // children, or null
};

struct multi_t {
    uint32_t desc_size;
    int32_t max_length;
    int32_t min_length;
    uint32_t flags;
    int32_t data_count;
    int32_t flag_count;
    int32_t offset_count;
    int32_t err;
    multi_arr_t *root;
    unsigned char *default_desc;
    uint32_t shift;
    unsigned char **flag_list;    // compressed: the distinct flag arrays
    unsigned char **data_list;    // compressed: the distinct data arrays
    int32_t *child_counts;        // compressed and read from a file: ones per flag array
    void *arena;                  // compressed and read from a file: the blocks holding its
                                  // nodes and arrays, freed as a whole (null otherwise)
};

// ---- internal helpers shared by the table code and its text form ---------------------------

#include <cstddef>
#include <cstring>

namespace nus::multi {

inline constexpr int kSlots = 256;

// A table counts as compressed once its arrays belong to the shared lists.
inline bool is_compressed(const multi_t *t) {
    return (t->flags & MULTI_COMPRESSED) != 0 && t->flag_list != nullptr;
}

// Bytes of one data array: 256 slots of 1 << shift bytes.
inline size_t data_array_size(const multi_t *t) { return size_t{kSlots} << t->shift; }

// Whether two descriptor slots are equal in their meaningful bytes.
inline bool same_desc(const multi_t *t, const unsigned char *a, const unsigned char *b) {
    return std::memcmp(a, b, t->desc_size) == 0;
}

// A node with no arrays and no index, or null when memory runs out.
multi_arr_t *new_node();
// Arrays made for a node: zeroed flags, offsets, and data slots holding the default. The
// make_ forms count the array in the table; the alloc_ form does not.
unsigned char *make_flag_array(multi_t *t);
unsigned char *make_offset_array(multi_t *t);
unsigned char *make_data_array(multi_t *t);
unsigned char *alloc_data_array(const multi_t *t);
// Copies the default descriptor into every slot of a zeroed data array.
void fill_default(const multi_t *t, unsigned char *arr);
// Zeroed memory for a table read from a file, carved from blocks that the table frees
// together (16-byte aligned); null when memory runs out.
void *arena_alloc(multi_t *t, size_t size);
// Makes the first block of the arena `size` bytes large (within the usual bounds), when the
// table has none yet.
void arena_reserve(multi_t *t, size_t size);
void free_arena(multi_t *t);
// Frees an uncompressed subtree and takes its arrays off the table's counts.
void discard_subtree(multi_t *t, multi_arr_t *node);
// Marks every byte of the root a complete character when all characters are one byte long.
void complete_single_byte(multi_t *t);

} // namespace nus::multi
