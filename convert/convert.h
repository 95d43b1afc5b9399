// Internal interface of code-set conversion: the descriptor record, the file reader, the
// choice of converter and the converters themselves.
#pragma once

#include "convert/cv_rec.h"
#include "frame/frame.h"

namespace nus {

// Bits of byte 0 of a conversion record; the low three bits count the target bytes.
inline constexpr unsigned char kCvCount = 0x07;
inline constexpr unsigned char kCvEnd = 0x08;          // the string's terminating character
inline constexpr unsigned char kCvValid = 0x10;        // a character with a conversion
inline constexpr unsigned char kCvIrreversible = 0x20; // converted to a substitute
inline constexpr unsigned char kCvTargetShifted = 0x40;
inline constexpr unsigned char kCvSourceShift = 0x80;
inline constexpr unsigned char kCvInvalidMask = 0xF8;  // all zero: no conversion

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
