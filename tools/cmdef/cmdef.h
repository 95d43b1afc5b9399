// The character map compiler: the symbols of a charmap's characters, written as a character
// map object file.
#pragma once

#include "tools/common/charmap.h"

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

namespace nus::tools {

struct CmChar {
    std::string bytes;    // 1 to 4 bytes
    std::string symbol;   // without the angle brackets
};

struct CharacterMap {
    int min_length = 1, max_length = 1;
    std::vector<CmChar> chars;   // in increasing byte order, each character once
    size_t left_out = 0;         // charmap entries without a place: another symbol of the same
                                 // bytes, a symbol given twice, more than 4 bytes, a symbol
                                 // the format cannot hold
};

// The characters of a charmap with their first symbol.
CharacterMap character_map_of(const Charmap &charmap);

// Writes the object: the fixed header, the `header` lines (without newline), the counts and
// the characters.
std::optional<std::string> write_character_map(FILE *out, const CharacterMap &map,
                                               const std::vector<std::string> &header);

} // namespace nus::tools
