// The character map compiler's core: charmap entries to the characters of a character map
// object, and the file's text.
#include "tools/cmdef/cmdef.h"

#include "nus.h"

#include <algorithm>
#include <set>

namespace nus::tools {

namespace {

// Symbols are written between angle brackets and read back up to the closing one: printable
// ASCII without blanks and without the brackets, at most NU_CM_SYMBOL_MAX characters.
bool writable_symbol(const std::string &s) {
    if (s.empty() || s.size() > NU_CM_SYMBOL_MAX) return false;
    return std::all_of(s.begin(), s.end(), [](char c) {
        return c > ' ' && c < 0x7F && c != '<' && c != '>';
    });
}

} // namespace

CharacterMap character_map_of(const Charmap &charmap) {
    CharacterMap map;
    std::set<std::string> bytes_seen, symbols_seen;
    for (const CharmapEntry &e : charmap.entries) {
        if (e.bytes.empty() || e.bytes.size() > 4 || !writable_symbol(e.symbol) ||
            bytes_seen.count(e.bytes) != 0 || symbols_seen.count(e.symbol) != 0) {
            ++map.left_out;
            continue;
        }
        bytes_seen.insert(e.bytes);
        symbols_seen.insert(e.symbol);
        map.chars.push_back({e.bytes, e.symbol});
    }
    // Byte order as unsigned bytes, shorter first where one is the other's beginning.
    std::sort(map.chars.begin(), map.chars.end(), [](const CmChar &a, const CmChar &b) {
        return std::lexicographical_compare(
            a.bytes.begin(), a.bytes.end(), b.bytes.begin(), b.bytes.end(),
            [](char x, char y) { return static_cast<unsigned char>(x) < static_cast<unsigned char>(y); });
    });
    size_t min = 4, max = 1;
    for (const CmChar &c : map.chars) {
        min = std::min(min, c.bytes.size());
        max = std::max(max, c.bytes.size());
    }
    map.min_length = map.chars.empty() ? 1 : static_cast<int>(min);
    map.max_length = static_cast<int>(max);
    return map;
}

std::optional<std::string> write_character_map(FILE *out, const CharacterMap &map,
                                               const std::vector<std::string> &header) {
    if (map.chars.empty()) return std::string("the charmap has no characters");
    size_t pool = 0;
    for (const CmChar &c : map.chars) pool += c.symbol.size() + 1;
    std::fprintf(out, "FILE_TYPE=character_map_object\nCOMPILER_VERSION=%s\nHEADER_LENGTH=%zu\n",
                 nu_cm_version(), header.size() + 3);
    for (const std::string &line : header) std::fprintf(out, "%s\n", line.c_str());
    std::fprintf(out, "%d %d %zu %zu\n", map.min_length, map.max_length, map.chars.size(), pool);
    for (const CmChar &c : map.chars) {
        for (unsigned char b : c.bytes) std::fprintf(out, "%02x", b);
        std::fprintf(out, " %s\n", c.symbol.c_str());
    }
    if (std::ferror(out)) return std::string("write error");
    return std::nullopt;
}

} // namespace nus::tools
