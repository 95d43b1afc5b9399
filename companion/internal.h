// What the companion's source files share: the object record and the UTF-8 step.
#pragma once

#include "nuu.h"

#include <unicode/ucol.h>
#include <unicode/utf8.h>
#include <unicode/utypes.h>

#define NUU_EXPORT extern "C" __attribute__((visibility("default")))

// nuslib's error codes, as the status carries them.
enum : nuu_status {
    kEilseq = 1,
    kEbadarg = 2,
    kEnomem = 3,
    kEnowidth = 4,
    kEposition = 5,
    kEinval = 7,
    kEnofile = 8,
    kEcodeset = 12,
    kEio = 13,
    kE2big = 14,
    kEeof = 16,
    kEread = 17,
    kEload = 55,
};

static_assert(sizeof(UCollationResult) == sizeof(int) && sizeof(UErrorCode) == sizeof(int),
              "the comparison in the object head passes ICU's enums as ints");

struct nuu_obj {
    nuu_obj_head head;        // first: what callers may use directly
    int category;
    UCollator *coll;          // the locale's collator (COLLATE objects only)
    UCollator *primary;       // a primary-strength clone, made by the bound search
};

namespace nuu {

inline void fail(nuu_status *status, nuu_status code) {
    if (status != nullptr) *status = code;
}

// One UTF-8 character of at most `budget` bytes: its length (a zero byte is a character of
// length 1), or -kEinval when the budget ends inside a well-formed beginning, or -kEilseq.
inline int step(const unsigned char *s, int budget, UChar32 *c) {
    if (budget < 1) return -kEinval;
    const int32_t limit = budget > 4 ? 4 : budget;
    int32_t i = 0;
    UChar32 ch;
    U8_NEXT(s, i, limit, ch);
    if (ch >= 0) {
        *c = ch;
        return i;
    }
    if (i == limit && limit == budget && limit < U8_COUNT_TRAIL_BYTES(s[0]) + 1) return -kEinval;
    return -kEilseq;
}

// Length of a NUL-terminated UTF-8 string, or of the given length.
inline int length_of(const unsigned char *s, int n) {
    if (n >= 0) return n;
    int k = 0;
    while (s[k] != 0) ++k;
    return k;
}

} // namespace nuu
