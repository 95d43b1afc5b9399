// The locale compiler: a locale definition and a charmap into a locale object file.
#pragma once

#include "tools/common/charmap.h"
#include "tools/common/source.h"

#include <cstdio>
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
    size_t case_pairs = 0;
    double expansion = 1.0;
};

// Writes the locale object file for `source` in the code set of `charmap` to `out`. Fails
// (with the message) on what cannot be represented at all.
std::optional<std::string> compile_locale(const SourceLocale &source, const Charmap &charmap,
                                          const CompileOptions &options, FILE *out,
                                          CompileReport &report);

} // namespace nus::tools
