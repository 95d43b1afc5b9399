// Charmaps in the POSIX format of /usr/share/i18n/charmaps (plain or gzip-compressed): the
// characters of a code set by symbolic name, their bytes, and their display widths.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace nus::tools {

// Where something went wrong, for "FILE:LINE: message" reports.
struct Diagnostic {
    std::string file;
    int line = 0;
    std::string message;
    std::string text() const { return file + ":" + std::to_string(line) + ": " + message; }
};

struct CharmapEntry {
    std::string symbol;          // without the angle brackets, e.g. "U00E9" or "a-acute"
    std::string bytes;           // 1 to 4 bytes of the character in the code set
    std::optional<uint32_t> ucs; // the code point, when the symbol is <Uxxxx> or <Uxxxxxxxx>
};

class Charmap {
public:
    std::string code_set_name;
    int mb_cur_min = 1;
    int mb_cur_max = 1;
    std::vector<CharmapEntry> entries;   // in file order, ranges expanded

    // The bytes of a symbol, if the charmap has it.
    const CharmapEntry *find(const std::string &symbol) const;
    // The entry of a code point, if the charmap has it.
    const CharmapEntry *find_ucs(uint32_t ucs) const;
    // Display width of a code point from the WIDTH section (1 when unlisted).
    int width(uint32_t ucs) const;
    // Every Unicode scalar value a UTF-8 charmap lacks (unassigned code points, noncharacters),
    // in code order; none for other charmaps. glibc decodes them all in its UTF-8 locales.
    void each_missing_scalar(const std::function<void(uint32_t)> &visit) const;

    void index();   // builds the lookups after entries change

private:
    friend std::optional<Diagnostic> read_charmap(const std::string &, Charmap &);
    std::map<std::string, size_t> by_symbol_;
    std::map<uint32_t, size_t> by_ucs_;
    std::map<uint32_t, std::pair<uint32_t, int>> widths_;   // first -> (last, width)
    int default_width_ = 1;
};

// Reads a charmap file (gzip-compressed or plain); a diagnostic on failure.
std::optional<Diagnostic> read_charmap(const std::string &path, Charmap &out);

// Reads a whole file, gunzipping it when it is compressed; false when it cannot be read.
bool read_text_file(const std::string &path, std::string &out);

// The second name of the line whose first name is `key` in a list of name pairs (lines
// "first second", '#' comments; first names compared without regard to case). `name` is left
// empty when the list has no such line.
std::optional<Diagnostic> name_from_list(const std::string &list_file, const std::string &key,
                                         std::string &name);

// The registry name of a charmap's code set, from a names file (lines "CHARMAP-NAME
// registry-name", '#' comments; charmap names compared without regard to case). `name` is left
// empty when the file does not list the charmap.
std::optional<Diagnostic> registry_name_of_charmap(const std::string &names_file,
                                                  const std::string &charmap_name,
                                                  std::string &name);

// The UTF-8 encoding of a code point.
std::string utf8_bytes(uint32_t cp);

// The code point of a symbol of the form Uxxxx or Uxxxxxxxx.
std::optional<uint32_t> ucs_of_symbol(const std::string &symbol);

} // namespace nus::tools
