// nus conv: conversions on the generated data, messages and statuses, and block boundaries
// falling inside characters and shift states (checked against glibc's iconv where it has the
// code set).
#include "tools/nus/nus_run.h"
#include "support/support.h"

#include <gtest/gtest.h>
#include <iconv.h>

#include <string>
#include <vector>

using nus_test::nus;

namespace {

// glibc's conversion of `text`, or nullopt when it lacks one of the code sets.
std::optional<std::string> iconv_oracle(const char *to, const char *from, const std::string &text) {
    iconv_t cd = iconv_open(to, from);
    if (cd == reinterpret_cast<iconv_t>(-1)) return std::nullopt;
    std::string out(text.size() * 4 + 16, '\0');
    char *in = const_cast<char *>(text.data());
    size_t inleft = text.size();
    char *o = out.data();
    size_t oleft = out.size();
    const size_t r = iconv(cd, &in, &inleft, &o, &oleft);
    iconv(cd, nullptr, nullptr, &o, &oleft);  // back to the initial shift state
    iconv_close(cd);
    if (r == static_cast<size_t>(-1)) return std::nullopt;
    out.resize(out.size() - oleft);
    return out;
}

bool has_conversion(const std::string &file) {
    return std::filesystem::exists(std::string(NUS_DATA_DIR) + "/nus/cv9/" + file);
}

} // namespace

TEST(NusConv, ConvertsStdinFilesAndLocaleNames) {
    // Latin-1 to UTF-8 by code-set names, from standard input.
    auto r = nus({"conv", "-f", "8859-1", "-t", "utf8"}, "Gr\xFC\xDF" "e\nna\xEFve\n");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "Gr\xC3\xBC\xC3\x9F" "e\nna\xC3\xAFve\n");
    EXPECT_EQ(r.err, "");

    // The same by locale names, from two files and "-" in between: outputs follow
    // one another in order.
    nus_test::TempDir dir;
    const auto a = dir.write("a.txt", "\xE4\n").string();
    const auto b = dir.write("b.txt", "\xF6").string();
    r = nus({"conv", "--from=de_de.8859-1", "--to", "en_us.utf8", a, "-", b}, "\xFC\n");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "\xC3\xA4\n\xC3\xBC\n\xC3\xB6");

    // Shift-JIS to EUC-JP directly (no UTF-8 in between): あ 漢.
    r = nus({"conv", "-f", "ja_jp.sjis", "-t", "ja_jp.ujis"}, "\x82\xA0\x8A\xBF\n");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "\xA4\xA2\xB4\xC1\n");

    // One code set on both sides copies the bytes, whatever they are.
    r = nus({"conv", "-f", "de_de.utf8", "-t", "utf8"}, "\xFF\x80 as is\n");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "\xFF\x80 as is\n");
}

TEST(NusConv, ErrorsNameLineAndByteAndDashCCounts) {
    // The first invalid sequence stops the conversion; what came before it is written.
    auto r = nus({"conv", "-f", "sjis", "-t", "utf8"}, "ab\ncd\x81\x20x\n");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "ab\ncd");
    EXPECT_EQ(r.err, "nus: conv: line 2, byte 6: invalid sequence 0x81 0x20 in sjis\n");

    // A character cut off by the end of the input; in a named file the message names it.
    nus_test::TempDir dir;
    const auto cut = dir.write("cut.txt", "ok\n\xE3\x81\x82\xE3\x81").string();
    r = nus({"conv", "-f", "utf8", "-t", "sjis", cut});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "ok\n\x82\xA0");
    EXPECT_EQ(r.err, "nus: conv: " + cut + ": line 2, byte 7: truncated sequence 0xE3 0x81 in utf8 "
                     "at end of input\n");

    // -c drops each bad sequence up to the byte that broke it; that byte starts afresh when
    // it can (the blank after 0x81), not when it is bad too (0xFF). The status stays 0.
    r = nus({"conv", "-c", "-f", "sjis", "-t", "utf8"}, "a\x81\x20" "b\x81\xFF" "c\xFF\n\x82");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "a b" "c\n");
    EXPECT_EQ(r.err, "nus: conv: 4 invalid sequences dropped\n");

    // Characters the target lacks are written as substitutes and counted, not refused.
    r = nus({"conv", "-f", "utf8", "-t", "8859-1"}, "\xE2\x82\xAC 5, \xE2\x82\xAC 7, \xC3\xA9\n");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.size(), 12u);
    EXPECT_EQ(r.out.substr(1, 4), " 5, ");
    EXPECT_EQ(r.out.substr(6, 4), " 7, ");
    EXPECT_EQ(r.out.substr(10), "\xE9\n");
    EXPECT_EQ(r.err, "nus: conv: 2 characters written as substitutes (no equivalent in 8859-1)\n");

    // Line numbers follow the source's own newline: 2-byte little-endian units here.
    r = nus({"conv", "-f", "unicode", "-t", "utf8"}, std::string("a\0\n\0\n\0b\0\0\xD8", 10));
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "a\n\nb");
    EXPECT_EQ(r.err, "nus: conv: line 3, byte 9: invalid sequence 0x00 0xD8 in unicode\n");
}

TEST(NusConv, UsageErrorsUnknownCodeSetsAndMissingFiles) {
    auto r = nus({"conv", "-t", "utf8"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, "nus: conv: missing -f FROM\nTry 'nus conv --help'.\n");
    r = nus({"conv", "-f", "utf8"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, "nus: conv: missing -t TO\nTry 'nus conv --help'.\n");
    r = nus({"conv", "-x", "-f", "utf8", "-t", "sjis"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, "nus: conv: unknown option '-x'\nTry 'nus conv --help'.\n");
    r = nus({"conv", "-f", "utf8", "-t"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, "nus: conv: option '-t' needs an argument\nTry 'nus conv --help'.\n");
    r = nus({"conv", "--block-size", "0", "-f", "utf8", "-t", "sjis"});
    EXPECT_EQ(r.status, 2);

    r = nus({"conv", "--help"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.rfind("Usage: nus conv -f FROM -t TO [-c] [FILE...]\n", 0), 0u);

    r = nus({"conv", "-f", "klingon", "-t", "utf8"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "nus: conv: unknown code set or locale 'klingon'\n");
    r = nus({"conv", "-f", "8859-2", "-t", "sjis"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "nus: conv: no conversion from 8859-2 to sjis under " NUS_DATA_DIR "\n");

    // A missing file is reported; the others are still converted.
    nus_test::TempDir dir;
    const auto good = dir.write("good.txt", "\xE9\n").string();
    const std::string missing = dir.str() + "/missing.txt";
    r = nus({"conv", "-f", "8859-1", "-t", "utf8", missing, good});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "\xC3\xA9\n");
    EXPECT_EQ(r.err, "nus: conv: " + missing + ": No such file or directory\n");
}

// Every read size from 1 byte to more than the whole input: characters and shift sequences
// cut by a block boundary convert exactly as in one piece, and messages do not move.
TEST(NusConv, BlockBoundariesInsideCharactersAndShiftStates) {
    const std::string utf8 = "A\xE3\x81\x82\xE3\x81\x84\xE6\xBC\xA2\xE5\xAD\x97\n"  // Aあい漢字
                             "line 2: \xE4\xB8\xAD\xE6\x96\x87 end\n"              // 中文
                             "\xE4\xB8\xAD\xE6\x96\x87";                           // ends shifted
    struct Case {
        const char *ours, *glibc, *file;
    };
    const Case cases[] = {{"sjis", "SHIFT_JIS", "sjis_utf8.cvo"},
                          {"ujis", "EUC-JP", "ujis_utf8.cvo"},
                          {"ccsid937", "IBM937", "ccsid937_utf8.cvo"},
                          {"unicode", "UCS-2LE", "unicode_utf8.cvo"}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.ours);
        if (!has_conversion(c.file)) continue;
        auto encoded = nus({"conv", "-f", "utf8", "-t", c.ours}, utf8);
        ASSERT_EQ(encoded.status, 0) << encoded.err;
        if (auto oracle = iconv_oracle(c.glibc, "UTF-8", utf8)) {
            EXPECT_EQ(encoded.out, *oracle);
        }
        const auto back = nus({"conv", "-f", c.ours, "-t", "utf8"}, encoded.out);
        EXPECT_EQ(back.out, utf8);
        for (size_t block = 1; block <= encoded.out.size() + 1; ++block) {
            const std::string size = std::to_string(block);
            auto there = nus({"conv", "--block-size", size, "-f", "utf8", "-t", c.ours}, utf8);
            EXPECT_EQ(there.out, encoded.out) << "block " << block;
            auto again = nus({"conv", "--block-size", size, "-f", c.ours, "-t", "utf8"}, encoded.out);
            EXPECT_EQ(again.out, back.out) << "block " << block;
            EXPECT_EQ(again.err, back.err) << "block " << block;
        }
    }

    // Bad input in the middle of multibyte text: the same message, or with -c the same output
    // and count, whatever the block size.
    const std::string sjis = "\x82\xA0\x82\xA2\n\x8A\xBF\x81\x20\x8E\x9A\xFF\n\x82\xA0\x82";
    const auto whole = nus({"conv", "-f", "sjis", "-t", "utf8"}, sjis);
    EXPECT_EQ(whole.err, "nus: conv: line 2, byte 8: invalid sequence 0x81 0x20 in sjis\n");
    const auto dropped = nus({"conv", "-c", "-f", "sjis", "-t", "utf8"}, sjis);
    EXPECT_EQ(dropped.out, "\xE3\x81\x82\xE3\x81\x84\n\xE6\xBC\xA2 \xE5\xAD\x97\n\xE3\x81\x82");
    EXPECT_EQ(dropped.err, "nus: conv: 3 invalid sequences dropped\n");
    for (size_t block = 1; block <= sjis.size(); ++block) {
        const std::string size = std::to_string(block);
        auto r = nus({"conv", "--block-size", size, "-f", "sjis", "-t", "utf8"}, sjis);
        EXPECT_EQ(r.out, whole.out) << "block " << block;
        EXPECT_EQ(r.err, whole.err) << "block " << block;
        r = nus({"conv", "--block-size", size, "-c", "-f", "sjis", "-t", "utf8"}, sjis);
        EXPECT_EQ(r.out, dropped.out) << "block " << block;
        EXPECT_EQ(r.err, dropped.err) << "block " << block;
    }
}
