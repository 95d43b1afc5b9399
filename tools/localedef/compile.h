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

struct CompileOptions {
    std::string codeset;        // the registry name written in the header, e.g. "8859-1"
    std::string source_name;    // recorded in the header
    const Charmap *width_map = nullptr;   // display widths (the UTF-8 charmap); null: none
};

struct CompileReport {
    std::vector<std::string> warnings;
    size_t characters = 0;
    size_t decoded = 0;          // scalar values a UTF-8 charmap lacks, decoded all the same
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

// Writes the locale object file for `source` in the code set of `charmap` to `out`. Fails
// (with the message) on what cannot be represented at all.
std::optional<std::string> compile_locale(const SourceLocale &source, const Charmap &charmap,
                                          const CompileOptions &options, FILE *out,
                                          CompileReport &report);

} // namespace nus::tools
