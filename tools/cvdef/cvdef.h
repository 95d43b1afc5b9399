// The conversion compiler: builds the character pairs of a conversion from two charmaps or
// from the system's iconv, and writes them as a conversion object file.
#pragma once

#include "tools/common/charmap.h"

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

namespace nus::tools {

// Bits of byte 0 of a conversion record (the low three count the target bytes).
inline constexpr unsigned char kRecEnd = 0x08;
inline constexpr unsigned char kRecValid = 0x10;
inline constexpr unsigned char kRecSubstitute = 0x20;
inline constexpr unsigned char kRecTargetShifted = 0x40;
inline constexpr unsigned char kRecSourceShift = 0x80;

struct CvChar {
    std::string source;    // the source character's bytes (for fixed-width sources: the code
                           // unit, most significant byte first, as the table is keyed)
    std::string target;    // the target bytes (fixed-width targets: most significant first)
    unsigned char flags = kRecValid;
    bool listed = true;    // false: found by iconv beyond the source charmap, left out
                           // when it clashes with a listed character
};

struct Conversion {
    bool source_stateful = false;
    bool target_stateful = false;
    std::string shift_out, shift_in;   // the target's sequences
    int source_min = 1, source_max = 1, target_min = 1, target_max = 1;
    std::vector<CvChar> initial;       // the source's initial state
    std::vector<CvChar> shifted;       // the source's shifted state (stateful sources)
    size_t substituted = 0;            // characters the target lacks
};

// Pairs the characters of two charmaps by symbolic (UCS) name. A source character the
// target lacks converts as the system's iconv converts it, else to the target's substitute
// (its SUB control, else "?"); either is irreversible unless the reverse conversion gives the
// character back. Source characters iconv knows beyond the source charmap are added.
std::optional<std::string> conversion_from_charmaps(const Charmap &from, const Charmap &to,
                                                    Conversion &out);

// Enumerates the source's characters through iconv: UTF-8, fixed-width 2- or 4-byte Unicode
// forms (little-endian; keyed and written most significant byte first, since the library
// reads and writes such code sets little-endian), or a mixed single/double-byte code set with
// shift-out 0x0e and shift-in 0x0f (both states enumerated). Targets: any stateless code
// set, or such a mixed one. A UTF-8 source has the characters of `utf8` (the UTF-8 charmap, as
// in the conversions made from charmaps), or every scalar value when it is null.
std::optional<std::string> conversion_from_iconv(const std::string &from, const std::string &to,
                                                 Conversion &out, const Charmap *utf8 = nullptr);

// Writes the conversion object; `header` lines (without newline) follow the three fixed ones.
std::optional<std::string> write_conversion(FILE *out, const Conversion &c,
                                            const std::vector<std::string> &header);

// The largest number of target bytes per source byte, shift sequences included.
double expansion_of(const Conversion &c);

} // namespace nus::tools
