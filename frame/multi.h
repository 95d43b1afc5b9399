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
};
