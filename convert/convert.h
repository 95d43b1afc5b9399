// Internal interface of code-set conversion: the descriptor record, the file reader, the
// choice of converter and the converters themselves.
#pragma once

#include "convert/cv_rec.h"
#include "frame/frame.h"
#include "frame/multi.h"

namespace nus {

// Bits of byte 0 of a conversion record; the low three bits count the target bytes.
inline constexpr unsigned char kCvCount = 0x07;
inline constexpr unsigned char kCvEnd = 0x08;          // the string's terminating character
inline constexpr unsigned char kCvValid = 0x10;        // a character with a conversion
inline constexpr unsigned char kCvIrreversible = 0x20; // converted to a substitute
inline constexpr unsigned char kCvTargetShifted = 0x40;
inline constexpr unsigned char kCvSourceShift = 0x80;
inline constexpr unsigned char kCvInvalidMask = 0xF8;  // all zero: no conversion

// The records of the characters' first bytes, copied out of a table's root when a descriptor
// is opened, so that the converters reach a one-byte character, and the node of a longer
// one's second byte, without the trie's indirections. An opened descriptor keeps them in its
// own block, after the record; word 25 of the record marks that they are there.
struct FastEntry {
    unsigned char rec[5];      // a one-byte character's record (byte 0, target bytes), zero-filled
    unsigned char kind;        // kFastInvalid, kFastChar, kFastMore or kFastOther
    unsigned char count;       // the target bytes of a kFastChar (1 to 4)
    unsigned char unused;
    const multi_arr_t *child;  // the node of the second byte, for kFastMore
    const multi_arr_t **grand; // by second byte, the node of the third, or null
    // For a first byte that starts only two-byte characters: by second byte, the character's
    // target bytes packed (kPair...), zero where the general walk decides; or null.
    const uint32_t *pairs;
};
// A packed two-byte character: its target byte count (1 to 3) in the low byte, the target
// bytes above it. Only characters that convert plainly (valid, no substitute, no change of
// state, not the terminator) are packed.
inline constexpr unsigned kPairCount = 0xFF;
inline constexpr unsigned char kFastInvalid = 0;
// A one-byte character that the runs convert: valid, writing 1 to 4 bytes and, in a
// conversion with shift states, changing neither state.
inline constexpr unsigned char kFastChar = 1;
inline constexpr unsigned char kFastMore = 2;
// Any other one-byte character (no conversion, no bytes to write, a change of state): the
// general loop converts or refuses it.
inline constexpr unsigned char kFastOther = 3;

struct CvBlock {
    nu_cv_rec rec;
    FastEntry root[256];        // of `table`
    FastEntry shift_root[256];  // of `shift_table`, when the source has shift states
    // Bytes 00-7f are one-byte characters converting to themselves, but for at most two
    // (ascii_except; both 0x80 when there is none, the second the first when there is one),
    // which end the copied runs.
    bool ascii_identity;
    unsigned char ascii_except[2];
    // Three-byte UTF-8 sources (first bytes E0-EF) to double-byte targets: by the sequence's
    // 16 payload bits (see utf8_three_index), its two target bytes (first byte low), zero
    // where the table walk decides. Null for other conversions.
    const uint16_t *utf8_three;
    // True for a single-byte source whose bytes 00-7F convert plainly to themselves and
    // 80-FF plainly to two bytes each (8859-1 to UTF-8 and its kind); then high_pairs holds,
    // by byte - 0x80, those two bytes, the first one low.
    bool two_byte_highs;
    uint16_t high_pairs[128];
};
// The index of E0-EF, 80-BF, 80-BF in utf8_three.
inline unsigned utf8_three_index(unsigned b0, unsigned b1, unsigned b2) {
    return ((b0 & 0x0Fu) << 12) | ((b1 & 0x3Fu) << 6) | (b2 & 0x3Fu);
}
inline constexpr int32_t kFastRootMark = 0x52544f4f;
inline const CvBlock *fast_block(const nu_cv_rec *cv) {
    return cv->unused3 == kFastRootMark ? reinterpret_cast<const CvBlock *>(cv) : nullptr;
}
// Fills the block's entries from the tables read and marks the record.
void build_fast_root(CvBlock *block);
// Frees what build_fast_root allocated.
void free_fast_root(CvBlock *block);

// The fixed descriptors handed out when opening fails (error slots 3, 8 and 7).
extern nu_cv_rec cd_enomem;
extern nu_cv_rec cd_fileerr;
extern nu_cv_rec cd_einval;
bool is_fixed_descriptor(const nu_cv_rec *cv);

// Reads a conversion object file into a cleared descriptor: 0, or -1 (error slot set except
// for a target length out of range, as the file format has always done). Closes the stream
// only on success.
int read_cv_file(FILE *stream, nu_cv_rec *cv);
// Chooses the descriptor's converter from its lengths and shift flags.
void set_iconv_fps(nu_cv_rec *cv);

// The converters (arguments as nu_cv_mconv; the state is used by the stateful one only).
int mb_miconv(nu_cv_rec *cv, void *state, unsigned char **in, int *inlen, unsigned char **out,
              int *room, int *irreversible);
int sb_miconv(nu_cv_rec *cv, void *state, unsigned char **in, int *inlen, unsigned char **out,
              int *room, int *irreversible);
int little_endian_unicode_source_miconv(nu_cv_rec *cv, void *state, unsigned char **in,
                                        int *inlen, unsigned char **out, int *room,
                                        int *irreversible);
int little_endian_unicode_target_miconv(nu_cv_rec *cv, void *state, unsigned char **in,
                                        int *inlen, unsigned char **out, int *room,
                                        int *irreversible);
int mb_smiconv(nu_cv_rec *cv, void *state, unsigned char **in, int *inlen, unsigned char **out,
               int *room, int *irreversible);

// The code-set name of a locale specification: what follows the first "." up to a blank, an
// "@" or the end, into `out` (1024 bytes); empty when there is none or it is 1023 characters
// or longer.
void lc_spec2cs_name(const char *spec, char *out);
inline constexpr size_t kCsNameBuffer = 1024;

} // namespace nus
