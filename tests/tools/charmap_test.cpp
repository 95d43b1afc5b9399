// Charmaps: the Debian ones as shipped, and broken ones.
#include "tools/common/charmap.h"
#include "support/support.h"

#include "nus.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

using nus::tools::Charmap;
using nus::tools::read_charmap;

namespace {

const std::string kCharmaps = "/usr/share/i18n/charmaps/";

Charmap load(const std::string &name) {
    Charmap map;
    const auto error = read_charmap(kCharmaps + name, map);
    EXPECT_FALSE(error.has_value()) << (error ? error->text() : "");
    return map;
}

} // namespace

TEST(Charmap, SingleByteCodeSet) {
    const Charmap map = load("ISO-8859-1.gz");
    EXPECT_EQ(map.code_set_name, "ISO-8859-1");
    EXPECT_EQ(map.mb_cur_max, 1);
    EXPECT_EQ(map.entries.size(), 256u);
    ASSERT_NE(map.find("U00E9"), nullptr);
    EXPECT_EQ(map.find("U00E9")->bytes, "\xe9");
    EXPECT_EQ(map.find_ucs(0x41)->bytes, "A");
    EXPECT_EQ(map.find("U20AC"), nullptr);
    EXPECT_EQ(map.width(0xE9), 1);
}

TEST(Charmap, MultibyteRangesAndWidths) {
    const Charmap utf8 = load("UTF-8.gz");
    EXPECT_EQ(utf8.code_set_name, "UTF-8");
    ASSERT_NE(utf8.find_ucs(0x3401), nullptr);   // inside a range of the file
    EXPECT_EQ(utf8.find_ucs(0x3401)->bytes, "\xe3\x90\x81");
    EXPECT_EQ(utf8.find_ucs(0x343F)->bytes, "\xe3\x90\xbf");
    EXPECT_EQ(utf8.find_ucs(0x20AC)->bytes, "\xe2\x82\xac");
    EXPECT_EQ(utf8.width(0x3000), 2);
    EXPECT_EQ(utf8.width(0x8A70), 2);
    EXPECT_EQ(utf8.width(0x0301), 0);
    EXPECT_EQ(utf8.width('A'), 1);

    const Charmap euc = load("EUC-KR.gz");
    EXPECT_GT(euc.entries.size(), 8000u);
    EXPECT_EQ(euc.find_ucs(0xAC00)->bytes, "\xb0\xa1");
    EXPECT_EQ(euc.mb_cur_max, 2);
}

TEST(Charmap, BrokenFilesAreReportedWithTheirLine) {
    nus_test::TempDir dir;
    struct Case {
        const char *what;
        std::string text;
        int line;
    };
    const Case cases[] = {
        {"bad byte", "<escape_char> /\nCHARMAP\n<U0041> /x41\n<U0042> /xZZ\nEND CHARMAP\n", 4},
        {"no name", "<escape_char> /\nCHARMAP\n/x41 A\nEND CHARMAP\n", 3},
        {"bad range", "<escape_char> /\nCHARMAP\n<U0041>..<V0043> /x41\nEND CHARMAP\n", 3},
        {"five bytes", "<escape_char> /\nCHARMAP\n<U0041> /x41/x41/x41/x41/x41\nEND CHARMAP\n",
         3},
        {"no section", "<code_set_name> X\n", 0},
        {"length not a number",
         "<escape_char> /\n<mb_cur_min> MAP\nCHARMAP\n<U0041> /x41\nEND CHARMAP\n", 2},
        {"lengths the wrong way",
         "<escape_char> /\n<mb_cur_min> 2\n<mb_cur_max> 1\nCHARMAP\n<U0041> /x41\nEND CHARMAP\n", 0},
    };
    for (const Case &c : cases) {
        const auto file = dir.write("broken", c.text);
        Charmap map;
        const auto error = read_charmap(file.string(), map);
        ASSERT_TRUE(error.has_value()) << c.what;
        EXPECT_EQ(error->line, c.line) << c.what;
        EXPECT_EQ(error->file, file.string());
    }
    Charmap map;
    EXPECT_TRUE(read_charmap((dir.path() / "absent.gz").string(), map).has_value());

    // A plain file with its own comment and escape characters, a continued line and a
    // decimal range.
    const auto file = dir.write("plain", "<comment_char> #\n<escape_char> \\\n# comment\n"
                                         "<code_set_name> TEST\nCHARMAP\n<j0101>...<j0103> \\d65\n"
                                         "<U00E9> \\\n\\xc3\\xa9\nEND CHARMAP\n");
    ASSERT_FALSE(read_charmap(file.string(), map).has_value());
    EXPECT_EQ(map.code_set_name, "TEST");
    ASSERT_EQ(map.entries.size(), 4u);
    EXPECT_EQ(map.find("j0103")->bytes, "C");
    EXPECT_EQ(map.find("U00E9")->bytes, "\xc3\xa9");
}

// The names file maps charmap names to registry names, without regard to case; every name it
// gives is one the registry knows.
TEST(Charmap, RegistryNamesOfCharmaps) {
    const std::string names = std::string(NUS_SOURCE_DIR) + "/data/charmap-names";
    std::string name;
    ASSERT_FALSE(nus::tools::registry_name_of_charmap(names, "ISO-8859-1", name));
    EXPECT_EQ(name, "8859-1");
    ASSERT_FALSE(nus::tools::registry_name_of_charmap(names, "shift_jis", name));
    EXPECT_EQ(name, "sjis");
    ASSERT_FALSE(nus::tools::registry_name_of_charmap(names, "EUC-JP", name));
    EXPECT_EQ(name, "ujis");
    ASSERT_FALSE(nus::tools::registry_name_of_charmap(names, "NO-SUCH-CHARMAP", name));
    EXPECT_EQ(name, "");

    std::string text;
    ASSERT_TRUE(nus::tools::read_text_file(names, text));
    const std::string registry = std::string(NUS_SOURCE_DIR) + "/data/registry";
    std::istringstream lines(text);
    std::string line;
    int listed = 0;
    while (std::getline(lines, line)) {
        std::istringstream words(line);
        std::string charmap, codeset;
        if (!(words >> charmap >> codeset) || charmap[0] == '#') continue;
        ++listed;
        int32_t error = 0;
        EXPECT_NE(nu_cs_name2cs_num(&error, codeset.c_str(), registry.c_str()), 0xE000u) << codeset;
        EXPECT_TRUE(std::filesystem::exists(kCharmaps + charmap + ".gz")) << charmap;
    }
    EXPECT_GT(listed, 40);

    nus_test::TempDir dir;
    const auto broken = dir.write("names", "# fine\nUTF-8 utf8\nLATIN1 8859-1 extra\n");
    const auto error = nus::tools::registry_name_of_charmap(broken.string(), "LATIN1", name);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->line, 3);
    EXPECT_TRUE(nus::tools::registry_name_of_charmap((dir.path() / "absent").string(), "X", name));
}

TEST(Charmap, Utf8RangesStepThroughTheEncoding) {
    // <U0002B820>..<U0002B85F> /xf0/xab/xa0/xa0 crosses from trail byte bf to the next lead.
    const Charmap map = load("UTF-8.gz");
    ASSERT_NE(map.find_ucs(0x2B83F), nullptr);
    EXPECT_EQ(map.find_ucs(0x2B83F)->bytes, "\xf0\xab\xa0\xbf");
    ASSERT_NE(map.find_ucs(0x2B840), nullptr);
    EXPECT_EQ(map.find_ucs(0x2B840)->bytes, "\xf0\xab\xa1\x80");
    for (const auto &e : map.entries) {
        if (e.ucs) {
            ASSERT_EQ(e.bytes, nus::tools::utf8_bytes(*e.ucs)) << e.symbol;
        }
    }
}
