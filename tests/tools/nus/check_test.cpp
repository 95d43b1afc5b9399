// nus check: validation messages with line, column and byte, display widths, and the ways a
// code set is named.
#include "tools/nus/nus_run.h"
#include "support/support.h"

#include <gtest/gtest.h>

#include <string>

using nus_test::nus;

TEST(NusCheck, ValidTextAndDisplayWidths) {
    // Shift-JIS: A (1 column), あ and 漢 (2 each); a tab has no width and counts 0.
    const std::string sjis = "A\x82\xA0\x8A\xBF\n\tx\n\nlast";
    auto r = nus({"check", "-l", "ja_jp.sjis"}, sjis);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "");
    r = nus({"check", "--codeset", "sjis", "--width"}, sjis);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "5\t" "A\x82\xA0\x8A\xBF\n" "1\t\tx\n" "0\t\n" "4\tlast\n");

    // The same text in UTF-8 measures the same; in a single-byte locale every byte is one.
    r = nus({"check", "-w", "-l", "ja_jp.utf8"}, "A\xE3\x81\x82\xE6\xBC\xA2\n");
    EXPECT_EQ(r.out, "5\tA\xE3\x81\x82\xE6\xBC\xA2\n");
    r = nus({"check", "-w", "--codeset", "819"}, "Gr\xFC\xDF" "e\n");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "5\tGr\xFC\xDF" "e\n");
}

TEST(NusCheck, ReportsEveryBadSequence) {
    // 0x81 0x20: the blank that broke the character is checked again (column 4 is the blank);
    // 0x81 0xFF: 0xFF cannot start one, so both go; 0x82 at the very end is truncated.
    const std::string sjis = "ab\n\x82\xA0x\x81\x20y\x81\xFFz\n\x82";
    auto r = nus({"check", "-w", "-l", "ja_jp.sjis"}, sjis);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err,
              "nus: check: line 2, column 3, byte 7: invalid sequence 0x81 0x20 in sjis\n"
              "nus: check: line 2, column 6, byte 10: invalid sequence 0x81 0xFF in sjis\n"
              "nus: check: line 3, column 1, byte 14: truncated sequence 0x82 in sjis\n");
    EXPECT_EQ(r.out, "2\tab\n-\t\x82\xA0x\x81\x20y\x81\xFFz\n-\t\x82\n");

    // A character cut by a newline is invalid (the newline broke it), one cut by the end of
    // the file truncated; named files prefix the messages, "-" reads standard input.
    nus_test::TempDir dir;
    const auto bad = dir.write("bad.txt", "a\xC3\n\xE2\x82\xAC\xE2\x82\n\xE2").string();
    const auto good = dir.write("good.txt", "fine\n").string();
    r = nus({"check", "--codeset=utf8", good, bad, "-"}, "x\xF8y\n");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err,
              "nus: check: " + bad + ": line 1, column 2, byte 2: invalid sequence 0xC3 0x0A in utf8\n"
              "nus: check: " + bad + ": line 2, column 2, byte 7: invalid sequence 0xE2 0x82 0x0A in utf8\n"
              "nus: check: " + bad + ": line 3, column 1, byte 10: truncated sequence 0xE2 in utf8\n"
              "nus: check: line 1, column 2, byte 2: invalid sequence 0xF8 in utf8\n");
}

TEST(NusCheck, UsageErrorsAndUnknownNames) {
    auto r = nus({"check"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, "nus: check: give exactly one of -l LOCALE and --codeset CS\n"
                     "Try 'nus check --help'.\n");
    r = nus({"check", "-l", "en_us.utf8", "--codeset", "utf8"});
    EXPECT_EQ(r.status, 2);
    r = nus({"check", "--codeset"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, "nus: check: option '--codeset' needs an argument\nTry 'nus check --help'.\n");
    r = nus({"check", "--help"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.rfind("Usage: nus check (-l LOCALE | --codeset CS) [--width] [--symbols] [FILE...]\n", 0), 0u);

    r = nus({"check", "--codeset", "klingon"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "nus: check: unknown code set 'klingon'\n");
    r = nus({"check", "--codeset", "pc-latin-2"});  // registered, but no locale uses it
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "nus: check: no locale in code set pc-latin-2 under " NUS_DATA_DIR "/nus/lc11\n");
    r = nus({"check", "-l", "ja_jp.euc-jp-ms"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err.rfind("nus: check: cannot load locale 'ja_jp.euc-jp-ms' from " NUS_DATA_DIR ": ", 0), 0u);
    r = nus({"check", "-l", "en_us.utf8", "/nonexistent/file"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "nus: check: /nonexistent/file: No such file or directory\n");
}
