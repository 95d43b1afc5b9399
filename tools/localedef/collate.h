// The collation compiler: the LC_COLLATE statements of a locale definition (orders with
// collating symbols and elements, string weights, reorder-after, sections) compiled against a
// charmap into the rows, weights, elements and expansions the library's COLLATE section holds.
#pragma once

#include "tools/common/charmap.h"
#include "tools/common/source.h"

#include "nus.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace nus::tools {

// Weight values as the library reads them.
constexpr uint16_t kIgnoreWeight = 1;
constexpr uint16_t kFirstWeight = 2;
constexpr uint16_t kLastWeight = 0x3FFF;
constexpr uint16_t kExpansionBit = 0x4000;   // low 14 bits: an expansion index
constexpr uint16_t kCodeTieBit = 0x8000;     // low 14 bits: a weight; the character code breaks ties

struct CollateTables {
    bool thai = false;                            // the fixed Thai method; nothing else is set
    std::map<std::string, uint16_t> rows;         // bytes of each character (and carrier) -> row
    // The rows of the scalar values a UTF-8 charmap lacks, by the length of their bytes (-1:
    // none); every such value is entered in the collation table with its row.
    std::array<int, 5> missing_rows{-1, -1, -1, -1, -1};
    std::vector<std::vector<uint16_t>> weights;   // per row, per level
    std::vector<uint16_t> directions;             // per level: 1 forward, 2 backward
    std::vector<std::pair<std::vector<nu_wchar>, uint16_t>> elements;   // characters, row
    std::vector<std::vector<nu_wchar>> expansions;
    uint16_t largest = kFirstWeight;              // largest weight (low 14 bits, no references)
    bool weights_only = false;
    // How the orders were represented, for reports and tests.
    size_t compounds = 0;           // lists of weights given one weight of their own
    size_t truncated = 0;           // lists longer than an expansion holds
    size_t carriers = 0;            // rows that only expansions reach
    std::vector<size_t> tie_runs;   // per level: weights that stand for a run broken by code
};

// Builds the tables. Errors name the file and line of the statement at fault.
std::optional<std::string> build_collate(const SourceLocale &source, const Charmap &charmap,
                                         CollateTables &tables, std::vector<std::string> &warnings);

// Writes the section text that follows the "### LC_COLLATE" line.
std::optional<std::string> write_collate(FILE *out, const CollateTables &tables);

} // namespace nus::tools
