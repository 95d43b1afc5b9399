// nus locales: the tables on a small hand-assembled tree (exact text) and on the generated
// tree, whose listed names must load.
#include "tools/nus/nus_run.h"
#include "support/support.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

using nus_test::nus;
using nus_test::run_program;

namespace fs = std::filesystem;

TEST(NusLocales, TablesOfASmallTree) {
    const fs::path data = fs::path(NUS_DATA_DIR) / "nus";
    nus_test::TempDir tree;
    const fs::path nus_dir = tree.path() / "nus";
    for (const char *sub : {"lc11/de_de", "lc11/ja_jp", "lc11/xx_yy", "cv9", "cm3"})
        fs::create_directories(nus_dir / sub);
    fs::copy_file(data / "lc11/de_de/0333.lco", nus_dir / "lc11/de_de/0333.lco");
    fs::copy_file(data / "lc11/de_de/0333.lco", nus_dir / "lc11/de_de/0333euro.lco");
    fs::copy_file(data / "lc11/ja_jp/e006.lco", nus_dir / "lc11/ja_jp/e006.lco");
    // A file whose name gives another code set (912) than the one it holds (8859-1).
    fs::copy_file(data / "lc11/de_de/0333.lco", nus_dir / "lc11/xx_yy/0390.lco");
    for (const char *file : {"e006e007.cvo", "sjis_ujis.cvo", "utf8_sjis.cvo"})
        fs::copy_file(data / "cv9" / file, nus_dir / "cv9" / file);
    fs::copy_file(data / "cm3/registry", nus_dir / "cm3/registry");
    tree.write("nus/cv9/readme.txt", "not a conversion\n");

    const std::string root = tree.str();
    auto r = run_program(NUS_TOOL, {"locales"}, {}, {"TESSARONDIR=" + root});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out,
              "Locales in " + root + "/nus/lc11:\n"
              "  LOCALE             CODE SET  NUMBER  FILE\n"
              "  de_de.8859-1       8859-1    819     de_de/0333.lco\n"
              "  de_de.8859-1@euro  8859-1    819     de_de/0333euro.lco\n"
              "  ja_jp.sjis         sjis      57350   ja_jp/e006.lco\n"
              "  xx_yy.912          8859-1    912 ?   xx_yy/0390.lco\n"
              "\n"
              "Conversions in " + root + "/nus/cv9:\n"
              "  FROM  TO    NUMBERS        FILES\n"
              "  sjis  ujis  57350 > 57351  e006e007.cvo sjis_ujis.cvo\n"
              "  utf8  sjis  57372 > 57350  utf8_sjis.cvo\n"
              "\n"
              "4 locale files, 3 conversion files.\n");

    // An empty tree is a data error; arguments are usage errors.
    nus_test::TempDir empty;
    r = run_program(NUS_TOOL, {"locales"}, {}, {"TESSARONDIR=" + empty.str()});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "nus: locales: no locales or conversions under " + empty.str() + "/nus\n");
    r = nus({"locales", "--all"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, "nus: locales: unknown option '--all'\nTry 'nus locales --help'.\n");
    r = nus({"locales", "de_de"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, "nus: locales: unexpected argument 'de_de'\nTry 'nus locales --help'.\n");
}

// Every locale name listed for the generated tree loads, and every conversion listed opens.
TEST(NusLocales, ListedNamesOfTheGeneratedTreeWork) {
    const auto r = nus({"locales"});
    ASSERT_EQ(r.status, 0) << r.err;
    const auto lines = nus_test::lines(r.out);
    nus_test::TempDir dir;
    const std::string text = dir.write("a.txt", "a\n").string();
    int locales = 0, conversions = 0;
    bool in_conversions = false;
    for (const std::string &line : lines) {
        if (line.rfind("Conversions in ", 0) == 0) in_conversions = true;
        if (line.rfind("  ", 0) != 0 || line.find("FILE") != std::string::npos) continue;
        std::istringstream fields(line);
        std::string first, second;
        fields >> first >> second;
        if (first == "(default)") continue;
        if (!in_conversions) {
            const auto check = nus({"check", "-l", first, text});
            EXPECT_EQ(check.status, 0) << first << ": " << check.err;
            ++locales;
        } else {
            const auto conv = nus({"conv", "-f", first, "-t", second}, "");
            EXPECT_EQ(conv.status, 0) << first << " > " << second << ": " << conv.err;
            ++conversions;
        }
    }
    EXPECT_GE(locales, 10);
    EXPECT_GE(conversions, 10);
}
