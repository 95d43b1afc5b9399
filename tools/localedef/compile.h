// The locale compiler: a locale definition and a charmap into a locale object file.
#pragma once

#include "tools/common/charmap.h"
#include "tools/common/source.h"

#include <cstdint>
#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace nus::tools {

// The names of a local calendar (Hebrew, Islamic), which replace the source's Gregorian ones
// (calendar.cpp gets them from ICU). The month lists are by month-name index (see word 6 of
// nu_time_rec); the second lists are empty when they would equal the first.
struct CalendarNames {
    int calendar = 1;                  // the number of nus_canned_calendars
    std::vector<UString> mon, abmon, alt_mon, ab_alt_mon;
    std::vector<UString> day, abday;   // Sunday first
};

struct CompileOptions {
    std::string codeset;        // the registry name written in the header, e.g. "8859-1"
    std::string source_name;    // recorded in the header
    const Charmap *width_map = nullptr;   // display widths (the UTF-8 charmap); null: none
    const CalendarNames *calendar = nullptr;   // null: the Gregorian calendar of the source
};

struct CompileReport {
    std::vector<std::string> warnings;
    size_t characters = 0;
    size_t case_pairs = 0;
    double expansion = 1.0;
};

// The CTYPE tables as the compiler holds them before writing: keyed by the bytes of each
// character of the charmap (characters absent from a map have the value 0).
struct CtypeTables {
    std::map<std::string, uint16_t> classes;    // class bits: 1 upper ... 1024 blank, 2048 << n own
    std::vector<std::string> own_classes;       // the locale's own classes, bit order
    std::map<std::string, uint16_t> case_of;    // 1-based index into pairs
    std::vector<std::pair<uint32_t, uint32_t>> pairs;   // (upper, lower) as wide characters
    double expansion = 1.0;                     // largest byte growth of a case mapping
};

std::optional<std::string> build_ctype(const SourceLocale &source, const Charmap &charmap,
                                       const CompileOptions &options, CtypeTables &tables,
                                       CompileReport &report);

// A string in the code set, or nothing when a character is missing from it. A character the
// code set lacks is replaced by the first of its transliterations whose characters it has all.
std::optional<std::string> encode(const Charmap &charmap, const SourceLocale &source,
                                  const UString &text);
// A string as the sections write it: its byte count, a blank and the bytes in hexadecimal.
void write_string(FILE *out, const std::string &bytes);

// The TIME section (time.cpp).
std::optional<std::string> write_time(const SourceLocale &source, const Charmap &charmap,
                                      const CompileOptions &options, FILE *out,
                                      CompileReport &report);

// Writes the locale object file for `source` in the code set of `charmap` to `out`. Fails
// (with the message) on what cannot be represented at all.
std::optional<std::string> compile_locale(const SourceLocale &source, const Charmap &charmap,
                                          const CompileOptions &options, FILE *out,
                                          CompileReport &report);

} // namespace nus::tools
