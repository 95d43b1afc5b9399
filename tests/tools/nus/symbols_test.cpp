// nus check --symbols: the characters of each line by their charmap symbols.
#include "tools/nus/nus_run.h"
#include "support/support.h"

#include <gtest/gtest.h>

#include <string>

using nus_test::nus;

TEST(NusCheckSymbols, LinesAsSymbolsWithWidthsAndFaults) {
    // Shift-JIS: A, あ (82 A0), 漢 (8A BF); a second line with an invalid sequence.
    auto r = nus({"check", "-l", "ja_jp.sjis", "--symbols"}, "A\x82\xA0\x8A\xBF\nx\x81\x20\n");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "<U0041><U3042><U6F22>\n-\n");
    r = nus({"check", "--codeset", "8859-1", "-w", "-s"}, "Gr\xFC\xDF" "e\n\n");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "5\t<U0047><U0072><U00FC><U00DF><U0065>\n0\t\n");
    // A locale file name names the code set too.
    r = nus({"check", "-l", "el_gr/032d.lco", "-s"}, "\xE1\n");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "<U03B1>\n");
    // ISO 8859-7 has no character at 0xAE: valid for no locale, reported as invalid.
    r = nus({"check", "-l", "el_gr.8859-7", "-s"}, "\xAE\n");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "-\n");
}
