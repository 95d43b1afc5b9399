// POSIX locale definitions in the format of /usr/share/i18n/locales: read, with `copy` and
// `include` followed, into the values the locale compiler writes. Characters are code points
// (symbols <Uxxxx>, or literal UTF-8 in strings).
#pragma once

#include "tools/common/charmap.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace nus::tools {

using UString = std::vector<uint32_t>;

// One value of a keyword: a string, a number, or a list of them separated by ";".
struct Value {
    bool is_string = false;
    UString text;       // strings
    long number = 0;    // numbers
};

// One logical line of LC_COLLATE with where it was written and the comment and escape
// characters in force there; the collation compiler reads these statements itself.
struct SourceLine {
    std::string file;
    int line = 0;
    std::string text;
    char comment = '#';
    char escape = '\\';
};

struct SourceLocale {
    // LC_CTYPE: members of each class (the standard ones and those the locale defines), the
    // locale-defined classes in order of definition, and the case mappings.
    std::map<std::string, std::vector<uint32_t>> classes;
    std::vector<std::string> own_classes;
    std::vector<std::pair<uint32_t, uint32_t>> toupper;
    std::vector<std::pair<uint32_t, uint32_t>> tolower;
    // Transliterations (translit_start ... translit_end, with the files they include): for a
    // character, the replacements to try in order. The locale's own entries come first, then
    // those of included files in the order the includes were met.
    std::map<uint32_t, std::vector<UString>> translit;
    // The other categories: keyword -> values, as written.
    std::map<std::string, std::map<std::string, std::vector<Value>>> categories;
    // LC_COLLATE statements in order, with the statements of `copy` files in place of the copy.
    std::vector<SourceLine> collate;
    // Categories that were present.
    std::vector<std::string> present;

    const std::vector<Value> *values(const std::string &category, const std::string &key) const;
};

// Reads a locale definition. Files named by copy and include are looked up beside the source
// and in `search_dir` (the system's locale sources by default).
std::optional<Diagnostic> read_locale_source(const std::string &path, SourceLocale &out,
                                             const std::string &search_dir =
                                                 "/usr/share/i18n/locales");

// Decodes one UTF-8 sequence at s[i] and moves i past it; a stray byte is taken as its own
// value.
uint32_t utf8_at(const std::string &s, size_t &i);

} // namespace nus::tools
