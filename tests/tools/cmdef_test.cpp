// nus-cmdef: the characters kept from a charmap, the written object as the library reads it,
// the compiled default maps against the Debian charmaps they come from, and the command.
#include "tools/cmdef/cmdef.h"
#include "support/run_tool.h"
#include "support/support.h"

#include "nus.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

using namespace nus::tools;
using nus_test::TempDir;

namespace {

namespace fs = std::filesystem;

const char kToy[] = R"(<code_set_name> TOY
<escape_char> /
<mb_cur_min> 1
<mb_cur_max> 2
CHARMAP
<U0000>     /x00         NULL
<U0042>     /x42         B, before A in the file
<U0041>     /x41         A
<A>         /x41         A again: an alias of the same bytes
<U0041>     /x43         the symbol A again
<U4E00>     /xa1/xa1     CJK
<U4E02>..<U4E04> /xa1/xa2 a range
END CHARMAP
)";

TEST(CmDef, KeepsEachCharacterOnceInByteOrderAndTheLibraryReadsIt) {
    TempDir dir;
    Charmap charmap;
    ASSERT_FALSE(read_charmap(dir.write("TOY", kToy).string(), charmap).has_value());
    const CharacterMap map = character_map_of(charmap);
    std::string listed;
    for (const CmChar &c : map.chars) listed += c.symbol + " ";
    EXPECT_EQ(listed, "U0000 U0041 U0042 U4E00 U4E02 U4E03 U4E04 ");
    EXPECT_EQ(map.left_out, 2u);
    EXPECT_EQ(map.min_length, 1);
    EXPECT_EQ(map.max_length, 2);

    const fs::path file = dir.path() / "e123.cmo";
    FILE *out = std::fopen(file.c_str(), "w");
    ASSERT_NE(out, nullptr);
    EXPECT_FALSE(write_character_map(out, map, {"CODESET=toy", "SOURCE_VERSION=TOY"}));
    std::fclose(out);
    nu_locale_t h = nullptr;
    ASSERT_EQ(nu_create_null_locale_4(&h), 0);
    nu_cm_t cm = nullptr;
    ASSERT_EQ(nu_cm_load(h, &cm, 0xe123, dir.str().c_str()), 0) << *_nu_ext_errno(h);
    char text[64];
    EXPECT_EQ(nu_mbstosyms(h, cm, text, sizeof text, "AB\xa1\xa3", -1), 21);
    EXPECT_STREQ(text, "<U0041><U0042><U4E03>");
    EXPECT_EQ(nu_symstombs(h, cm, text, sizeof text, "<U4E04><U0000><U0041>"), 4);
    EXPECT_EQ(std::string(text, 5), std::string("\xa1\xa4\0A\0", 5));
    nu_cm_unload(cm);
    nu_lc_unload(h);
    Charmap empty;
    EXPECT_TRUE(write_character_map(stdout, character_map_of(empty), {}).has_value());
}

// The default maps in the compiled tree, each character of its Debian charmap (ranges
// expanded by the tools' own reader) to its symbol and back through the library.
TEST(CmDef, TheCompiledDefaultMapsHoldEveryCharacterOfTheirCharmaps) {
    const fs::path cm3 = fs::path(NUS_DATA_DIR) / "nus" / "cm3";
    if (!fs::exists(cm3 / ".compiled")) GTEST_SKIP() << "default character maps not compiled";
    nus_test::EnvGuard root("TESSARONDIR", std::string(NUS_DATA_DIR));
    nus_test::EnvGuard path("NU_PATH", std::nullopt);
    const std::string registry = std::string(NUS_SOURCE_DIR) + "/data/registry";
    const std::string names = std::string(NUS_SOURCE_DIR) + "/data/charmap-names";
    std::ifstream list(std::string(NUS_SOURCE_DIR) + "/data/locales");
    std::map<unsigned, std::string> charmaps;   // by code-set number, each once
    for (std::string line; std::getline(list, line);) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream words(line);
        std::string locale, charmap, name;
        words >> locale >> charmap >> name;
        if (name.find('=') != std::string::npos) name.clear();   // an option of the locale compiler
        if (name.empty()) {
            ASSERT_FALSE(registry_name_of_charmap(names, charmap, name).has_value());
        }
        if (name.empty()) name = charmap;
        int32_t slot = 0;
        const unsigned number = nu_cs_name2cs_num(&slot, name.c_str(), registry.c_str());
        ASSERT_NE(number, NU_UNKNOWN_CODESET) << name;
        charmaps[number] = charmap;
    }
    ASSERT_FALSE(charmaps.empty());
    nu_locale_t h = nullptr;
    ASSERT_EQ(nu_create_null_locale_4(&h), 0);
    long checked = 0;
    for (const auto &[number, charmap_name] : charmaps) {
        Charmap charmap;
        ASSERT_FALSE(read_charmap("/usr/share/i18n/charmaps/" + charmap_name + ".gz", charmap));
        nu_cm_t cm = nullptr;
        ASSERT_EQ(nu_cm_load(h, &cm, number, nullptr), 0) << charmap_name;
        EXPECT_EQ(nu_cm_info(cm, nullptr, nullptr), static_cast<int>(charmap.entries.size()))
            << charmap_name;
        char symbols[NU_CM_SYMBOL_MAX + 3], bytes[8];
        for (const CharmapEntry &e : charmap.entries) {
            const std::string want = "<" + e.symbol + ">";
            ASSERT_EQ(nu_mbstosyms(h, cm, symbols, sizeof symbols, e.bytes.data(),
                                   static_cast<int>(e.bytes.size())),
                      static_cast<int>(want.size()))
                << charmap_name << " " << e.symbol;
            ASSERT_EQ(std::string(symbols), want);
            ASSERT_EQ(nu_symstombs(h, cm, bytes, sizeof bytes, want.c_str()),
                      static_cast<int>(e.bytes.size()));
            ASSERT_EQ(std::string(bytes, e.bytes.size()), e.bytes);
            ++checked;
        }
        nu_cm_unload(cm);
    }
    nu_lc_unload(h);
    std::printf("%zu default charmaps, %ld characters\n", charmaps.size(), checked);
}

TEST(CmDef, Command) {
    TempDir dir;
    const std::string charmap = dir.write("TOY", kToy).string();
    auto run = [](const std::vector<std::string> &args) {
        return nus_test::run_program(NUS_CMDEF, args);
    };
    auto r = run({"-f", charmap, "-o", (dir.path() / "toy.cmo").string()});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("7 characters, 2 charmap entries left out"), std::string::npos) << r.out;
    r = run({"-f", charmap, "-c", "utf8", "--tree", dir.str()});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(fs::exists(dir.path() / "nus" / "cm3" / "e01c.cmo"));
    r = run({"-f", charmap, "--tree", dir.str()});   // "toy" is no registry name
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("does not know the code set \"toy\""), std::string::npos) << r.err;
    r = run({"-f", (dir.path() / "absent").string(), "-o", "x.cmo"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(run({"-f", charmap}).status, 2);
    EXPECT_EQ(run({"--locales", "x", "-o", "y"}).status, 2);
    const std::string locales = dir.write("locales", "xx_YY TOY\nbad\n").string();
    r = run({"--locales", locales, "--tree", dir.str()});
    EXPECT_EQ(r.status, 1);
}

} // namespace
