// The nus tool in companion mode: with NU_USENUU and the companion of this tree, info names the
// companion's locales, conv converts a pair only the companion converts, and key gives the
// companion's keys (which differ from the locale tables' ones).
#include "support/support.h"
#include "tools/nus/nus_run.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#ifdef NUS_COMPANION

TEST(NusCompanion, InfoConvAndKey) {
    nus_test::TempDir dir;
    dir.write("dllregistry", std::to_string(sizeof(void *) * 8) + " " NUS_COMPANION "\n");
    dir.write("locmap", "de_de/e01c.lco de_DE\n");
    std::ifstream registry(std::string(NUS_SOURCE_DIR) + "/data/registry");
    dir.write("registry", std::string(std::istreambuf_iterator<char>(registry), {}));
    const std::string data = NUS_DATA_DIR;
    const std::vector<std::string> companion = {
        "NU_USENUU=1", "NU_PATH=" + dir.str() + ":" + data + "/nus/lc11:" + data + "/nus/cm3:" +
                           data + "/nus/cv9"};
    auto info = nus_test::nus({"info", "-l", "de_de.utf8", "collate"}, {}, companion);
    ASSERT_EQ(info.status, 0) << info.err;
    EXPECT_NE(info.out.find("companion:\n  ctype:   de_DE\n  collate: de_DE\n"), std::string::npos)
        << info.out;
    EXPECT_NE(info.out.find("method:     companion\n"), std::string::npos) << info.out;
    EXPECT_EQ(nus_test::nus({"info", "-l", "de_de.utf8", "numeric"}).out.find("companion"),
              std::string::npos);

    auto conv = nus_test::nus({"conv", "-f", "utf8", "-t", "iso-2022-jp"}, "東京\n", companion);
    ASSERT_EQ(conv.status, 0) << conv.err;
    EXPECT_EQ(conv.out, "\x1b$BEl5~\x1b(B\n");

    auto key = nus_test::nus({"key", "-l", "de_de.utf8", "Äpfel"}, {}, companion);
    auto table_key = nus_test::nus({"key", "-l", "de_de.utf8", "Äpfel"});
    ASSERT_EQ(key.status, 0) << key.err;
    EXPECT_NE(key.out, table_key.out);
    auto sorted =
        nus_test::nus({"sort", "-l", "de_de.utf8"}, "Zebra\nÄpfel\nabc\nApfel\n", companion);
    EXPECT_EQ(sorted.out, "abc\nApfel\nÄpfel\nZebra\n");
}

#endif
