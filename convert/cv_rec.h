// The code-set conversion descriptor record (nu_cv_t). Its first word is an error slot like
// the locale handle's, so _nu_ext_errno works on both.
#pragma once

#include "nus.h"

#include <cstdint>

struct nu_cv_rec;
using nu_cv_convert_fn = int (*)(nu_cv_rec *, void *, unsigned char **, int *, unsigned char **,
                                 int *, int *);

struct nu_cv_rec {
    int32_t error;
    unsigned char *byte_table;      // single-byte source: byte -> target byte, or null
    int32_t source_stateful;
    int32_t target_stateful;
    int32_t special_len[4];         // lengths of the four special sequences
    int32_t target_min_len;
    int32_t target_max_len;         // 1 to 4
    int32_t unused1;
    int32_t unused2;
    int32_t source_min_len;
    int32_t source_max_len;
    int32_t build_byte_table;       // single-byte conversions: 0 asks for byte_table
    float expansion;                // largest number of target bytes per source byte
    unsigned char special[4][4];    // target shift-out, target shift-in, two kept unused
    multi_t *table;                 // source characters in the initial shift state
    multi_t *shift_table;           // stateful source: the shifted state, else null
    int32_t reserved;
    nu_cv_convert_fn convert;
    int32_t unused3;                // marks a descriptor followed by its first-byte records
    void *nuu_cv;                   // companion library converter
    int32_t nuu_in_use;
};
