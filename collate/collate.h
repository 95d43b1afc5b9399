// Internal interface of the collation code: the COLLATE section's reader, the choice of the
// handle's collation functions, and what the comparison, sort-key, Thai and bound code share.
#pragma once

#include "frame/frame.h"

#include <cstdio>
#include <cstring>

namespace nus {

// The COLLATE section from the current position of `stream`; 0 on success. See read.cpp.
int read_collate(FILE *stream, nu_locale_rec *h);
// Releases every collation field of the handle and clears the table pointer.
void free_collate(nu_locale_rec *h);
// Installs the collate, counted-collate and transform pointers for the loaded COLLATE.
void set_collation_fp(nu_locale_rec *h);

// The row of a wide character in the collation table, or -1 when it has none.
int collation_row(const nu_locale_rec *h, nu_wchar wc);

// The sort-key digits of every weight value up to the largest weight, so that keys copy
// them instead of computing them; 0, or -1 with NU_ENOMEM.
int build_weight_keys(nu_locale_rec *h);

// Releases what the bound functions derived and cached in the handle (bounds.cpp).
void free_bound_cache(nu_locale_rec *h);
// Releases the sort-key bytes cached in the handle (multi_level.cpp); free_bound_cache calls it.
void free_key_cache(nu_locale_rec *h);
// The sort key of the len characters at ws by the walk of the table-driven method, which
// nu_wcsxfrm takes for the strings whose per-character key bytes are not cached: the same
// bytes, into out as nu_wcsxfrm stores them.
int walked_key(nu_locale_rec *h, unsigned char *out, const nu_wchar *ws, int len, int n);

// The largest character code of the code set, which fixes the digits a sort key gives a
// character after a tie-break weight: by the longest character.
inline uint32_t largest_code(nu_locale_rec *h) {
    switch (nu_mb_loc_max(h)) {
    case 1: return 255u;
    case 2: return 65535u;
    case 3: return 16777215u;
    default: return 4294967295u;
    }
}

// The bytes of a string before its terminator (as many zero bytes as the shortest character:
// not the first zero byte); negative when the string does not decode.
inline int text_bytes(nu_locale_rec *h, const unsigned char *s) {
    if (h->single_byte) return static_cast<int>(std::strlen(reinterpret_cast<const char *>(s)));
    return nu_mbsbytes(h, s) - nu_mb_loc_min(h);
}

// Level direction bit: set = forward.
inline bool level_forward(const nu_locale_rec *h, int level) {
    return (h->coll.level_words[level] & 1) != 0;
}

// Weight bits.
inline constexpr uint16_t kIgnorable = 1;
inline constexpr uint16_t kExpansionBit = 0x4000;
inline constexpr uint16_t kCodeTieBit = 0x8000;

// A plain weight: neither ignorable nor an expansion reference nor a tie-break weight.
constexpr bool is_plain(uint16_t w) { return w >= 2 && (w & (kExpansionBit | kCodeTieBit)) == 0; }
inline constexpr uint16_t kWeightMask = 0x3FFF;

} // namespace nus
