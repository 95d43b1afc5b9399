// Internal interface of the character layer: the byte-class walk and the encoder that the
// string, collation and formatting code build on.
#pragma once

#include "frame/frame.h"
#include "frame/multi.h"

namespace nus {

// One character decoded by the byte-class walk over a CTYPE table.
struct Walk {
    int length;      // bytes taken
    nu_wchar wc;     // the bytes concatenated big-endian
    uint16_t sum;    // 16-bit sum of the bytes: 0 for the null character
    int status;      // 0, NU_EILSEQ, or NU_EINVAL when the budget ended inside a character
};

// Decodes the character at s taking at most `budget` bytes.
Walk walk(const multi_t *table, const unsigned char *s, long budget);

// Encodes wc in the handle's code set into out (at most 4 bytes); the length, or -1 with
// NU_EILSEQ stored.
int encode(nu_locale_rec *h, unsigned char *out, nu_wchar wc);

} // namespace nus
