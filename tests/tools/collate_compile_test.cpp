// The collation compiler: small hand-written LC_COLLATE sources compiled against the real
// ISO-8859-1 and UTF-8 charmaps, checked in the tables and in the section text; then every
// default locale.
#include "tools/localedef/collate.h"
#include "support/support.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iomanip>
#include <set>
#include <sstream>

using namespace nus::tools;
using nus_test::TempDir;

namespace {

const Charmap &latin1() {
    static Charmap map = [] {
        Charmap m;
        EXPECT_FALSE(read_charmap("/usr/share/i18n/charmaps/ISO-8859-1.gz", m));
        return m;
    }();
    return map;
}

const Charmap &utf8() {
    static Charmap map = [] {
        Charmap m;
        EXPECT_FALSE(read_charmap("/usr/share/i18n/charmaps/UTF-8.gz", m));
        return m;
    }();
    return map;
}

struct Compiled {
    CollateTables tables;
    std::vector<std::string> warnings;
    std::optional<std::string> error;

    const std::vector<uint16_t> &row(const std::string &bytes) const {
        return tables.weights.at(tables.rows.at(bytes));
    }
    uint16_t weight(const std::string &bytes, size_t level) const { return row(bytes).at(level); }
};

// Compiles an LC_COLLATE body (between the category lines) with the given charmap.
Compiled compile(const std::string &body, const Charmap &charmap = latin1()) {
    TempDir dir;
    const auto file = dir.write("xx_XX", "comment_char %\nescape_char /\nLC_COLLATE\n" + body +
                                             "\nEND LC_COLLATE\n");
    SourceLocale source;
    Compiled c;
    if (auto d = read_locale_source(file.string(), source)) {
        c.error = d->text();
        return c;
    }
    c.error = build_collate(source, charmap, c.tables, c.warnings);
    return c;
}

std::string section_text(const Compiled &c) {
    char *buffer = nullptr;
    size_t size = 0;
    FILE *out = open_memstream(&buffer, &size);
    EXPECT_FALSE(write_collate(out, c.tables));
    std::fclose(out);
    std::string text(buffer, size);
    std::free(buffer);
    return text;
}

TEST(CollateCompile, SymbolsIgnoreAndDirections) {
    const Compiled c = compile(R"(collating-symbol <base>
collating-symbol <accent>
order_start forward;backward
<base>
<accent>
<U0062> <U0062>;<accent>
<U0061> <U0061>;<base>
<U002D> IGNORE;IGNORE
order_end)");
    ASSERT_FALSE(c.error) << *c.error;
    EXPECT_TRUE(c.warnings.empty());
    EXPECT_EQ(c.tables.directions, (std::vector<uint16_t>{1, 2}));
    // The order, not the code, decides; the symbols order the second level.
    EXPECT_LT(c.weight("b", 0), c.weight("a", 0));
    EXPECT_GT(c.weight("b", 1), c.weight("a", 1));
    EXPECT_EQ(c.row("-"), (std::vector<uint16_t>{kIgnoreWeight, kIgnoreWeight}));
    for (const auto &row : c.tables.weights)
        for (uint16_t w : row) EXPECT_NE(w, 0);
    // No two rows alike; the text carries the counts and the directions as the reader takes them.
    std::set<std::vector<uint16_t>> distinct(c.tables.weights.begin(), c.tables.weights.end());
    EXPECT_EQ(distinct.size(), c.tables.weights.size());
    const std::string text = section_text(c);
    EXPECT_EQ(text.rfind("as_specified\n", 0), 0u);
    std::ostringstream counts;
    counts << "0 " << c.tables.weights.size() - 1 << " 2 0 0 " << c.tables.largest << "\n00010002\n";
    EXPECT_NE(text.find(counts.str()), std::string::npos) << text;
}

TEST(CollateCompile, CharactersTheOrderDoesNotListWeighLikeGlibc) {
    // glibc's strcoll weighs an unlisted character byte by byte like the listed character with
    // the lowest bytes, whether or not the order has UNDEFINED.
    const Compiled plain = compile("order_start forward\n<U0062>\n<U0061>\norder_end");
    ASSERT_FALSE(plain.error) << *plain.error;
    EXPECT_EQ(plain.row("x"), plain.row("a"));
    const Compiled wide = compile("order_start forward\n<U0062>\n<U0061>\norder_end", utf8());
    ASSERT_FALSE(wide.error) << *wide.error;
    const uint16_t w = wide.weight("\xE3\x90\x80", 0);
    ASSERT_TRUE(w & kExpansionBit);
    EXPECT_EQ(wide.tables.expansions.at(w & 0x3FFF), (std::vector<nu_wchar>{'a', 'a', 'a'}));
    // A row that is one expansion at every level would make the library list the characters
    // of every such row at load, visiting the whole code set: only weights are asked for.
    EXPECT_TRUE(wide.tables.weights_only);
    const Compiled undefined = compile("order_start forward\n<U0061>\nUNDEFINED\n<U0062>\norder_end");
    ASSERT_FALSE(undefined.error) << *undefined.error;
    EXPECT_EQ(undefined.row("x"), undefined.row("a"));
}

// A level with the position rule is followed by one that marks where characters ignored there
// stand: after the weights of the level agree, a string whose ignored character comes first
// sorts after.
TEST(CollateCompile, PositionRuleAddsALevelOfPlaces) {
    const Compiled c = compile(R"(order_start forward;forward,position
<U002D> IGNORE;<U002D>
<U0061> <U0061>;IGNORE
<U0062> <U0062>;IGNORE
order_end)");
    ASSERT_FALSE(c.error) << *c.error;
    EXPECT_EQ(c.tables.directions, (std::vector<uint16_t>{1, 1, 1}));
    EXPECT_EQ(c.weight("a", 1), kIgnoreWeight);
    EXPECT_EQ(c.weight("-", 0), kIgnoreWeight);
    EXPECT_NE(c.weight("-", 2), kIgnoreWeight);
    EXPECT_EQ(c.weight("a", 2), c.weight("b", 2));
    EXPECT_GT(c.weight("a", 2), c.weight("-", 2));
}

TEST(CollateCompile, StringWeightsBecomeExpansionsOrWeightsOfTheirOwn) {
    const std::string body = R"(collating-symbol <base>
collating-symbol <acute>
order_start forward;forward
<base>
<acute>
<U0061> <U0061>;<base>
<U0065> <U0065>;<base>
<U00E6> "<U0061><U0065>";"<base><base>"
<U00E9> <U0065>;"<base><acute>"
<U00EA> <U0065>;"<base><acute><acute>"
<U0066> <U0066>;<base>
order_end)";
    const Compiled c = compile(body);
    ASSERT_FALSE(c.error) << *c.error;
    // Each symbol of the list is carried alone by a character: an expansion of them.
    const uint16_t ae = c.weight("\xE6", 0);
    ASSERT_TRUE(ae & kExpansionBit);
    EXPECT_EQ(c.tables.expansions.at(ae & 0x3FFF), (std::vector<nu_wchar>{0x61, 0x65}));
    const uint16_t base2 = c.weight("\xE6", 1);
    ASSERT_TRUE(base2 & kExpansionBit);
    const auto &chars = c.tables.expansions.at(base2 & 0x3FFF);
    ASSERT_EQ(chars.size(), 2u);
    for (nu_wchar ch : chars) EXPECT_EQ(c.weight(std::string(1, static_cast<char>(ch)), 1), c.weight("a", 1));
    // No character carries <acute> alone. In UTF-8 a carrier does, a sequence no character
    // begins with, with a row that only the expansion reaches.
    const Compiled wide = compile(body, utf8());
    ASSERT_FALSE(wide.error) << *wide.error;
    const uint16_t acute_list = wide.weight("\xC3\xAA", 1);
    ASSERT_TRUE(acute_list & kExpansionBit);
    const auto &carried = wide.tables.expansions.at(acute_list & 0x3FFF);
    ASSERT_EQ(carried.size(), 3u);
    EXPECT_EQ(carried[1], carried[2]);
    EXPECT_EQ(carried[1] >> 24, 0xFFu);
    const std::string carrier = {'\xFF', '\0', '\0', '\0'};
    EXPECT_GT(wide.weight(carrier, 1), wide.weight("e", 1));
    EXPECT_EQ(wide.tables.carriers, 1u);
    // In a single-byte code set the list gets a weight of its own, after <base>
    // alone and ordered among its kind as glibc compares lists.
    const uint16_t acute = c.weight("\xE9", 1), acute2 = c.weight("\xEA", 1);
    EXPECT_FALSE(acute & (kExpansionBit | kCodeTieBit));
    EXPECT_GT(acute, c.weight("e", 1));
    EXPECT_GT(acute2, acute);
    EXPECT_GT(c.tables.compounds, 0u);
    EXPECT_LE(c.tables.largest, kLastWeight);
    // Expansions are listed with their count in the text.
    const std::string text = section_text(c);
    EXPECT_NE(text.find("\n2 00000061 00000065\n"), std::string::npos) << text;
}

TEST(CollateCompile, ElementsReorderAndEllipsis) {
    const Compiled c = compile(R"(collating-symbol <after-c>
collating-element <ch> from "ch"
collating-element <chx> from "<U0063><U0068><U0078>"
collating-element <q-missing> from "<U0063><U0430>"
order_start forward
<U0061>
<U0063>
<after-c>
<U0064>
..
<U0067>
<U0068>
order_end
reorder-after <after-c>
<ch>
<chx>
<U0061>
reorder-end)");
    ASSERT_FALSE(c.error) << *c.error;
    EXPECT_TRUE(c.warnings.empty());
    // The ellipsis stands for e and f, in code order between d and g.
    EXPECT_LT(c.weight("d", 0), c.weight("e", 0));
    EXPECT_LT(c.weight("e", 0), c.weight("f", 0));
    EXPECT_LT(c.weight("f", 0), c.weight("g", 0));
    // Elements whose characters the code set lacks are left out; the longer one is listed
    // first, since the library takes the first element that matches.
    ASSERT_EQ(c.tables.elements.size(), 2u);
    EXPECT_EQ(c.tables.elements[0].first, (std::vector<nu_wchar>{'c', 'h', 'x'}));
    EXPECT_EQ(c.tables.elements[1].first, (std::vector<nu_wchar>{'c', 'h'}));
    const auto &ch = c.tables.weights.at(c.tables.elements[1].second);
    const auto &chx = c.tables.weights.at(c.tables.elements[0].second);
    // reorder-after placed ch, chx and the moved a behind <after-c>: after c, before d.
    EXPECT_GT(ch[0], c.weight("c", 0));
    EXPECT_LT(ch[0], chx[0]);
    EXPECT_LT(chx[0], c.weight("a", 0));
    EXPECT_LT(c.weight("a", 0), c.weight("d", 0));
    const std::string text = section_text(c);
    std::ostringstream element;
    element << "\n3" << std::hex << std::setw(4) << std::setfill('0') << c.tables.elements[0].second
            << " 00000063 00000068 00000078\n";
    EXPECT_NE(text.find(element.str()), std::string::npos) << text;
}

TEST(CollateCompile, ConditionsAndErrorsNameTheirLine) {
    const Compiled c = compile(R"(define BACK
ifdef BACK
order_start forward;backward
else
order_start forward;forward
endif
<U0061>
order_end)");
    ASSERT_FALSE(c.error) << *c.error;
    EXPECT_EQ(c.tables.directions, (std::vector<uint16_t>{1, 2}));
    const Compiled unknown = compile("order_start forward\n<U0061>\norder_end\nreorder-after <nowhere>\n<U0062>\nreorder-end");
    ASSERT_TRUE(unknown.error);
    EXPECT_NE(unknown.error->find("xx_XX:7: <nowhere> is not in the order"), std::string::npos) << *unknown.error;
    const Compiled levels = compile("order_start forward\n<U0061> <U0061>;<U0061>\norder_end");
    ASSERT_TRUE(levels.error);
    EXPECT_NE(levels.error->find("xx_XX:5: more weights than the 1 levels"), std::string::npos) << *levels.error;
    const Compiled weight = compile("order_start forward\n<U0061> <nothing>\norder_end");
    ASSERT_TRUE(weight.error);
    EXPECT_NE(weight.error->find("xx_XX:5: the weight <nothing> of <U0061> has no place"), std::string::npos)
        << *weight.error;
}

// More weights than 14 bits hold: runs in code order share one weight with the tie-break bit,
// and the order the weights and codes give is exactly the order of the source.
TEST(CollateCompile, CodeTieBreakKeepsTheOrderOfLargeBlocks) {
    std::string body = "order_start forward;forward\n<U9FA6> <U9FA6>;IGNORE\n<U0041>\n";
    body += "<U4E00> <U4E00>;IGNORE\n.. ..;IGNORE\n<U9FA5> <U9FA5>;IGNORE\n<U3400>\n<U0042>\norder_end";
    const Compiled c = compile(body, utf8());
    ASSERT_FALSE(c.error) << *c.error;
    EXPECT_GE(c.tables.tie_runs.at(0), 1u);
    EXPECT_LT(c.tables.tie_runs.at(0), 10u);
    // The intended order at the first level, as (weight, code) keys, must rise strictly.
    std::vector<uint32_t> order = {0x9FA6, 0x41};
    for (uint32_t cp = 0x4E00; cp <= 0x9FA5; ++cp) order.push_back(cp);
    order.push_back(0x3400);
    order.push_back(0x42);
    auto key = [&](uint32_t cp) {
        const CharmapEntry *e = utf8().find_ucs(cp);
        const uint16_t w = c.weight(e->bytes, 0);
        EXPECT_FALSE(w & kExpansionBit);
        nu_wchar code = 0;
        for (unsigned char b : e->bytes) code = (code << 8) | b;
        return std::make_pair(static_cast<uint32_t>(w & 0x3FFF), (w & kCodeTieBit) ? code : 0u);
    };
    for (size_t i = 0; i + 1 < order.size(); ++i)
        ASSERT_LT(key(order[i]), key(order[i + 1])) << std::hex << order[i] << " " << order[i + 1];
    // The ideographs share one row: their weights differ only by their codes.
    EXPECT_EQ(c.row("\xE4\xB8\x80"), c.row("\xE9\xBE\xA5"));
}

// Every default locale compiles without a warning, within the row, weight and expansion limits.
TEST(CollateCompile, DefaultLocales) {
    std::ifstream list(std::string(NUS_SOURCE_DIR) + "/data/locales");
    std::string line;
    std::map<std::string, Charmap> charmaps;
    while (std::getline(list, line)) {
        std::istringstream fields(line);
        std::string source_name, charmap_name;
        if (!(fields >> source_name >> charmap_name) || source_name[0] == '#') continue;
        Charmap &charmap = charmaps[charmap_name];
        if (charmap.entries.empty()) {
            ASSERT_FALSE(read_charmap("/usr/share/i18n/charmaps/" + charmap_name + ".gz", charmap));
        }
        SourceLocale source;
        ASSERT_FALSE(read_locale_source("/usr/share/i18n/locales/" + source_name, source));
        CollateTables tables;
        std::vector<std::string> warnings;
        const auto error = build_collate(source, charmap, tables, warnings);
        ASSERT_FALSE(error) << source_name << " " << charmap_name << ": " << *error;
        EXPECT_TRUE(warnings.empty()) << source_name << " " << charmap_name << ": " << warnings.front();
        if (tables.thai) {
            EXPECT_EQ(charmap_name, "TIS-620");
            continue;
        }
        size_t runs = 0;
        for (size_t r : tables.tie_runs) runs += r;
        std::printf("%-6s %-10s rows %5zu levels %zu elements %3zu expansions %4zu largest %5u runs %4zu lists %4zu carriers %zu\n",
                    source_name.c_str(), charmap_name.c_str(), tables.weights.size(), tables.directions.size(),
                    tables.elements.size(), tables.expansions.size(), tables.largest, runs, tables.compounds, tables.carriers);
        // Every character, the carriers, and in UTF-8 one code point the charmap lacks for
        // each length of their bytes, standing for them all.
        const auto standing = std::count_if(tables.missing_rows.begin(), tables.missing_rows.end(), [](int r) { return r >= 0; });
        EXPECT_EQ(charmap_name == "UTF-8" ? 3 : 0, standing) << source_name << " " << charmap_name;
        EXPECT_EQ(tables.rows.size(), charmap.entries.size() + tables.carriers + static_cast<size_t>(standing))
            << source_name << " " << charmap_name;
        if (source_name == "cs_CZ") {
            bool ch = false;
            for (const auto &e : tables.elements) ch = ch || e.first == std::vector<nu_wchar>{'c', 'h'};
            EXPECT_TRUE(ch) << "cs_CZ lacks its ch element";
        }
    }
}

} // namespace
