// Internal interface of the character layer: the byte-class walk and the encoder that the
// string, collation and formatting code build on.
#pragma once

#include "frame/frame.h"
#include "frame/multi.h"

namespace nus {

// One character decoded by the byte-class walk over a CTYPE table.
struct Walk {
    int length;      // bytes taken
    nu_wchar wc;     // the bytes concatenated big-endian; 0 exactly for the null character
    int status;      // 0, NU_EILSEQ, or NU_EINVAL when the budget ended inside a character
    const multi_arr_t *leaf;   // the node of the last byte (status 0 only)
};

// Decodes the character at s taking at most `budget` bytes; never reads past the budget.
// A null table (a CTYPE category lost to an allocation failure) holds no characters. Inline
// because it is the hot path of every string function: one flag, offset and child read per
// byte, no call.
[[gnu::always_inline]] inline Walk walk(const multi_t *table, const unsigned char *s,
                                        long budget) {
    Walk w{0, 0, 0, nullptr};
    if (budget < 1) {
        w.status = NU_EINVAL;
        return w;
    }
    const multi_arr_t *node = table != nullptr ? table->root : nullptr;
    for (;;) {
        const unsigned char b = s[w.length++];
        w.wc = (w.wc << 8) | b;
        const unsigned char flag =
            node != nullptr && node->flag_arr != nullptr ? node->flag_arr[b] : MULTI_INVALID;
        if (flag == MULTI_LAST) {
            w.leaf = node;
            return w;
        }
        if (flag != MULTI_MORE || w.length == MULTI_MAX_DEPTH) {
            w.status = NU_EILSEQ;
            return w;
        }
        if (w.length >= budget) {
            w.status = NU_EINVAL;
            return w;
        }
        node = node->next_arr[node->offset_arr[b]];
    }
}

// The 16-bit value (class mask, case index) that a table of 16-bit descriptors holds for the
// character a successful walk over that table ended on.
inline uint16_t leaf_value(const multi_t *table, const Walk &w) {
    const unsigned char *p = w.leaf->data_arr != nullptr
                                 ? w.leaf->data_arr + (size_t{w.wc & 0xFFu} << table->shift)
                                 : table->default_desc;
    uint16_t value = 0;
    if (p != nullptr) __builtin_memcpy(&value, p, sizeof value);
    return value;
}

// Bytes that wc takes in a code set whose shortest character has m bytes: m below 256, at
// least 2 below 65536, at least 3 up to 0xFFFFFF, else 4. 0 when that is no length at all.
constexpr int encoded_length(nu_wchar wc, int m) {
    const int length = wc < 0x100u     ? m
                       : wc < 0x10000u ? (m > 2 ? m : 2)
                       : wc <= 0xFFFFFFu ? (m > 3 ? m : 3)
                                         : 4;
    return length >= 1 && length <= 4 ? length : 0;
}

// Encodes wc by the byte structure of `table` into out (at most 4 bytes): every byte but the
// last must lead on in its node, the last must end the character. The length, with the node
// of the last byte in *leaf, or 0 when the table has no such character.
inline int encode_in(const multi_t *table, unsigned char *out, nu_wchar wc,
                     const multi_arr_t **leaf) {
    const int length = table != nullptr ? encoded_length(wc, table->min_length) : 0;
    if (length == 0) return 0;
    const multi_arr_t *node = table->root;
    for (int i = 0; i < length - 1; ++i) {
        const auto b = static_cast<unsigned char>(wc >> (8 * (length - 1 - i)));
        if (node == nullptr || node->flag_arr == nullptr || node->flag_arr[b] != MULTI_MORE)
            return 0;
        out[i] = b;
        node = node->next_arr[node->offset_arr[b]];
    }
    const auto last = static_cast<unsigned char>(wc);
    out[length - 1] = last;
    if (node == nullptr || node->flag_arr == nullptr || node->flag_arr[last] != MULTI_LAST)
        return 0;
    *leaf = node;
    return length;
}

// Encodes wc in the handle's code set into out (at most 4 bytes); the length, or -1 with
// NU_EILSEQ stored.
int encode(nu_locale_rec *h, unsigned char *out, nu_wchar wc);

} // namespace nus

// The characters of a null-terminated multibyte string as a wide array with a wide null after
// them, in a block from the library's allocator that starts with room for one character and
// doubles when full; the caller frees it. Null after a decoding or allocation failure (error
// stored).
nu_wchar *nu_mbstowcslen(nu_locale_t h, const unsigned char *s, int *count);
