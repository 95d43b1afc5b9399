// The companion Unicode library against ICU called directly on the same text: comparisons and
// sort keys on four word lists, key bounds, decoding, widths and conversions.
#include "nuu.h"

#include <gtest/gtest.h>
#include <unicode/ucnv.h>
#include <unicode/ucol.h>
#include <unicode/ustring.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <random>
#include <string>
#include <vector>

extern "C" {
#define NUU_PROTOTYPE(ret, name, args) ret name args;
NUU_ENTRY_POINTS(NUU_PROTOTYPE)
#undef NUU_PROTOTYPE
}

namespace {

// Code-set numbers of the tests' own host, in the private range (no IBM code page fallback).
enum : unsigned { kUtf8 = 0xE101, kGb18030, kIso2022jp, kCp1258, kUnknown };

int codeset_name(unsigned number, char *out) {
    const char *name = number == kUtf8        ? "utf8"
                       : number == kGb18030   ? "gb18030"
                       : number == kIso2022jp ? "iso-2022-jp"
                       : number == kCp1258    ? "windows-1258"
                       : number == kUnknown   ? "no-such-codeset"
                                              : nullptr;
    if (name == nullptr) return -1;
    std::strcpy(out, name);
    return 0;
}
int stream_fgetc(void *stream) { return std::fgetc(static_cast<FILE *>(stream)); }
int stream_feof(void *stream) { return std::feof(static_cast<FILE *>(stream)); }
int stream_ferror(void *stream) { return std::ferror(static_cast<FILE *>(stream)); }
const nuu_host host{NUU_INTERFACE_VERSION, codeset_name, stream_fgetc, stream_feof, stream_ferror};

struct Companion : ::testing::Test {
    static void SetUpTestSuite() {
        nuu_status st = 0;
        ASSERT_EQ(nuu_init(&host, &st), 0);
    }
};

const unsigned char *u8(const std::string &s) {
    return reinterpret_cast<const unsigned char *>(s.c_str());
}

// A word list (the Swedish one is in ISO 8859-1), shuffled and cut to `want` words, in UTF-8.
std::vector<std::string> words(const char *path, size_t want, unsigned seed) {
    std::ifstream in(path);
    const bool latin1 = std::strstr(path, "swedish") != nullptr;
    std::vector<std::string> all;
    for (std::string line; std::getline(in, line);) {
        if (line.empty()) continue;
        if (latin1) {
            std::string utf8;
            for (unsigned char c : line) {
                if (c < 0x80) {
                    utf8 += static_cast<char>(c);
                } else {
                    utf8 += static_cast<char>(0xC0 | (c >> 6));
                    utf8 += static_cast<char>(0x80 | (c & 0x3F));
                }
            }
            line = utf8;
        }
        all.push_back(line);
    }
    std::mt19937 rng(seed);
    std::shuffle(all.begin(), all.end(), rng);
    if (all.size() > want) all.resize(want);
    return all;
}

std::u16string utf16(const std::string &s) {
    std::u16string out(s.size() + 1, u'\0');
    int32_t n = 0;
    UErrorCode err = U_ZERO_ERROR;
    u_strFromUTF8WithSub(reinterpret_cast<UChar *>(out.data()), static_cast<int32_t>(out.size()),
                         &n, s.data(), static_cast<int32_t>(s.size()), 0xFFFD, nullptr, &err);
    out.resize(static_cast<size_t>(n));
    return out;
}

std::string icu_key(const UCollator *c, const std::string &s) {
    const std::u16string u = utf16(s);
    const UChar *p = reinterpret_cast<const UChar *>(u.data());
    std::string key(static_cast<size_t>(ucol_getSortKey(c, p, static_cast<int32_t>(u.size()),
                                                        nullptr, 0)), '\0');
    ucol_getSortKey(c, p, static_cast<int32_t>(u.size()), reinterpret_cast<uint8_t *>(key.data()),
                    static_cast<int32_t>(key.size()));
    key.pop_back();   // the terminating 0
    return key;
}

int sign(int v) { return (v > 0) - (v < 0); }

} // namespace

// Comparisons (multibyte and UTF-32) and sort keys of the companion equal ICU's for the same
// locale, and its keys order the words as its comparisons do.
TEST_F(Companion, CollationMatchesIcuOnWordLists) {
    const struct {
        const char *locale, *dict;
    } lists[] = {{"de_DE", "/usr/share/dict/ngerman"}, {"fr_FR", "/usr/share/dict/french"},
                 {"es_ES", "/usr/share/dict/spanish"}, {"sv_SE", "/usr/share/dict/swedish"}};
    for (const auto &list : lists) {
        SCOPED_TRACE(list.locale);
        const std::vector<std::string> w = words(list.dict, 3000, 25);
        ASSERT_GT(w.size(), 1000u) << list.dict;
        nuu_status st = 0;
        nuu_obj *o = nuu_open(list.locale, "utf8", 3, &st);
        ASSERT_NE(o, nullptr);
        UErrorCode err = U_ZERO_ERROR;
        UCollator *icu = ucol_open(list.locale, &err);
        ASSERT_TRUE(U_SUCCESS(err));
        int mismatches = 0;
        for (size_t i = 0; i + 1 < w.size(); ++i) {
            const std::string &a = w[i], &b = w[i + 1];
            err = U_ZERO_ERROR;
            const int expect = ucol_strcollUTF8(icu, a.c_str(), -1, b.c_str(), -1, &err);
            mismatches += sign(nuu_mbscoll(o, u8(a), -1, u8(b), -1, &st)) != expect;
            mismatches += sign(nuu_mbscoll(o, u8(a), static_cast<int>(a.size()), u8(b),
                                           static_cast<int>(b.size()), &st)) != expect;
            std::vector<nuu_uc32> wa(a.size() + 1), wb(b.size() + 1);
            nuu_mbstoucs32(o, wa.data(), u8(a), -1, static_cast<int>(wa.size()), &st);
            nuu_mbstoucs32(o, wb.data(), u8(b), -1, static_cast<int>(wb.size()), &st);
            mismatches += sign(nuu_ucs32coll(o, wa.data(), -1, wb.data(), -1, &st)) != expect;

            const std::string key = icu_key(icu, a);
            std::string ours(key.size() + 1, '\x7f');
            const int n = nuu_mbsxfrm(o, reinterpret_cast<unsigned char *>(ours.data()),
                                      static_cast<int>(ours.size()), u8(a), &st);
            mismatches += n != static_cast<int>(key.size()) || ours.back() != '\0' ||
                          ours.compare(0, key.size(), key) != 0;
            std::string wide_key(key.size() + 1, '\x7f');
            mismatches += nuu_ucs32xfrm(o, reinterpret_cast<unsigned char *>(wide_key.data()),
                                        static_cast<int>(wide_key.size()), wa.data(), &st) !=
                              n ||
                          wide_key != ours;
            // Asking for the size alone.
            mismatches += nuu_mbsxfrm(o, nullptr, 0, u8(a), &st) != n;
        }
        EXPECT_EQ(mismatches, 0);
        EXPECT_EQ(st, 0);
        ucol_close(icu);
        nuu_close(o);
    }
}

// Key bounds are ICU's; every word that begins with the prefix has a key between them, and
// the string bound replaces the prefix's last letter by the next or previous primary one.
TEST_F(Companion, BoundsEnclosePrefixes) {
    nuu_status st = 0;
    nuu_obj *o = nuu_open("sv_SE", "utf8", 3, &st);
    ASSERT_NE(o, nullptr);
    UErrorCode err = U_ZERO_ERROR;
    UCollator *icu = ucol_open("sv_SE", &err);
    const std::vector<std::string> w = words("/usr/share/dict/swedish", 20000, 7);
    for (const std::string prefix : {"ka", "sto", "Ö", "äl", "z"}) {
        SCOPED_TRACE(prefix);
        unsigned char lower[256], upper[256], expect[256];
        const int nl = nuu_mbsSortKeyCollBound(o, u8(prefix), 0, lower, sizeof lower, &st);
        const int nu = nuu_mbsSortKeyCollBound(o, u8(prefix), 1, upper, sizeof upper, &st);
        const std::string key = icu_key(icu, prefix);
        err = U_ZERO_ERROR;
        const int32_t ne = ucol_getBound(reinterpret_cast<const uint8_t *>(key.c_str()),
                                         static_cast<int32_t>(key.size()) + 1,
                                         UCOL_BOUND_UPPER_LONG, 1, expect, sizeof expect, &err);
        ASSERT_EQ(nu, ne - 1);
        EXPECT_EQ(std::memcmp(upper, expect, static_cast<size_t>(ne)), 0);
        int inside = 0;
        for (const std::string &word : w) {
            if (word.compare(0, prefix.size(), prefix) != 0) continue;
            const std::string k = icu_key(icu, word);
            EXPECT_LT(std::strcmp(reinterpret_cast<const char *>(lower), k.c_str()), 0) << word;
            EXPECT_GT(std::strcmp(reinterpret_cast<const char *>(upper), k.c_str()), 0) << word;
            ++inside;
        }
        EXPECT_GE(nl, 0);
        if (prefix != "Ö" && prefix != "z") {
            EXPECT_GT(inside, 0);
        }
    }
    // The string bound replaces the last letter by one of the next (previous) primary weight:
    // above every word that begins with the prefix and not above the next letter (in
    // Swedish, å follows z); "kb" going down lands on a letter between a and b, or on a.
    UCollator *primary = ucol_open("sv_SE", &err);
    ucol_setStrength(primary, UCOL_PRIMARY);
    const struct {
        const char *s;
        int upper;
        const char *prefix, *limit;
    } strings[] = {{"ka", 1, "ka", "kb"}, {"kz", 1, "kz", "kå"}, {"kb", 0, nullptr, "ka"}};
    unsigned char out[64];
    for (const auto &c : strings) {
        SCOPED_TRACE(c.s);
        ASSERT_GT(nuu_mbsCollBound(o, u8(c.s), c.upper, out, sizeof out, &st), 1);
        const char *bound = reinterpret_cast<char *>(out);
        err = U_ZERO_ERROR;
        const int to_limit = ucol_strcollUTF8(primary, bound, -1, c.limit, -1, &err);
        const int to_s = ucol_strcollUTF8(primary, bound, -1, c.s, -1, &err);
        EXPECT_EQ(to_s, c.upper ? UCOL_GREATER : UCOL_LESS) << bound;
        EXPECT_NE(to_limit, c.upper ? UCOL_GREATER : UCOL_LESS) << bound;
        if (c.prefix == nullptr) continue;
        for (const std::string &word : w) {
            if (word.compare(0, std::strlen(c.prefix), c.prefix) == 0) {
                EXPECT_EQ(ucol_strcollUTF8(icu, word.c_str(), -1, bound, -1, &err), UCOL_LESS);
            }
        }
    }
    ucol_close(primary);
    EXPECT_EQ(nuu_mbsCollBound(o, u8("ka"), 1, out, 2, &st), -1);
    EXPECT_EQ(st, 14);
    ucol_close(icu);
    nuu_close(o);
}

// Whole strings decode as ICU's UTF-8 to UTF-32 conversion; every scalar value encodes as
// ICU encodes it and decodes back; ill-formed and cut-off sequences give 1 and 7.
TEST_F(Companion, DecodingMatchesIcu) {
    nuu_status st = 0;
    nuu_obj *o = nuu_open("de_DE", "utf-8", 2, &st);
    ASSERT_NE(o, nullptr);
    for (const std::string text : {"Grüße, 世界! 😀", "naïve façade", "", "\xc3\xa4x"}) {
        std::vector<UChar32> expect(text.size() + 1);
        int32_t n = 0;
        UErrorCode err = U_ZERO_ERROR;
        const std::u16string u = utf16(text);
        u_strToUTF32(expect.data(), static_cast<int32_t>(expect.size()), &n,
                     reinterpret_cast<const UChar *>(u.data()), static_cast<int32_t>(u.size()),
                     &err);
        std::vector<nuu_uc32> got(text.size() + 1, 0xdead);
        EXPECT_EQ(nuu_mbstoucs32(o, got.data(), u8(text), -1, static_cast<int>(got.size()), &st),
                  n);
        for (int i = 0; i < n; ++i) EXPECT_EQ(got[i], static_cast<nuu_uc32>(expect[i]));
        EXPECT_EQ(got[n], 0u);
        unsigned char back[64];
        EXPECT_EQ(nuu_ucs32tombs(o, back, got.data(), -1, sizeof back, &st),
                  static_cast<int>(text.size()));
        EXPECT_STREQ(reinterpret_cast<char *>(back), text.c_str());
    }
    int bad = 0;
    for (UChar32 c = 1; c <= 0x10FFFF; ++c) {
        if (U_IS_SURROGATE(c)) continue;
        char expect[4];
        int32_t n = 0;
        U8_APPEND_UNSAFE(expect, n, c);
        unsigned char got[4];
        nuu_uc32 back = 0;
        bad += nuu_uc32tomb(o, got, static_cast<nuu_uc32>(c), &st) != n ||
               std::memcmp(got, expect, static_cast<size_t>(n)) != 0 ||
               nuu_mbtouc32(o, &back, got, n, &st) != n || back != static_cast<nuu_uc32>(c) ||
               nuu_mblen(o, got, 4, &st) != n;
    }
    EXPECT_EQ(bad, 0);
    const struct {
        const char *bytes;
        int n, result, status;
    } cases[] = {
        {"\xe2\x82", 2, -1, 7},        {"\xe2\x82\xac", 2, -1, 7}, {"\xe2\x41", 2, -1, 1},
        {"\xf4\x90\x80\x80", 4, -1, 1}, {"\xed\xa0\x80", 3, -1, 1}, {"\xc0\xaf", 2, -1, 1},
        {"\x80", 4, -1, 1},            {"\xe2\x82\xac", 3, 3, 0},  {"", 1, 0, 0},
        {"a", 0, -1, 7},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.bytes);
        st = 0;
        EXPECT_EQ(nuu_mblen(o, reinterpret_cast<const unsigned char *>(c.bytes), c.n, &st),
                  c.result);
        EXPECT_EQ(st, c.status);
    }
    st = 0;
    unsigned char out[4];
    EXPECT_EQ(nuu_uc32tomb(o, out, 0xD800, &st), -1);
    EXPECT_EQ(st, 1);
    nuu_close(o);
}

// Widths from ICU's East Asian width and general category; classes and case mapping.
TEST_F(Companion, WidthsClassesAndCase) {
    nuu_status st = 0;
    nuu_obj *o = nuu_open("ja_JP", "utf8", 2, &st);
    ASSERT_NE(o, nullptr);
    const struct {
        nuu_uc32 c;
        int width;
    } cases[] = {{'A', 1}, {0xE4, 1}, {0x4E16, 2}, {0xFF21, 2}, {0x1F600, 2}, {0x0301, 0},
                 {0x200B, 0}, {0, 0}, {7, -1}, {0x0378, -1}, {0x110000, -1}};
    for (const auto &c : cases) {
        st = 0;
        EXPECT_EQ(nuu_uc32width(o, c.c, &st), c.width) << std::hex << c.c;
        EXPECT_EQ(st, c.width < 0 ? 7 : 0);
    }
    const std::string text = "日本語 text\xcc\x81";
    EXPECT_EQ(nuu_mbswidth(o, u8(text), 100, &st), 11);
    EXPECT_EQ(nuu_mbswidth(o, u8(text), 2, &st), 4);
    EXPECT_EQ(nuu_mbspwidth(o, u8(text), u8(text) + 6, &st), 4);
    EXPECT_EQ(nuu_mbspwidth(o, u8(text) + 6, u8(text), &st), -1);
    EXPECT_EQ(st, 5);
    st = 0;
    EXPECT_EQ(nuu_mbsntsbytes(o, u8("ab \xe3\x80\x80 "), -1, &st), 2);   // ideographic space
    EXPECT_EQ(nuu_mbsntsbytes(o, u8("ab\t"), -1, &st), 3);               // a tab is a control
    EXPECT_EQ(nuu_iswctype(o, 0xC4, NUU_UPPER | NUU_ALPHA, &st), NUU_UPPER | NUU_ALPHA);
    EXPECT_EQ(nuu_iswctype(o, 0x3000, NUU_SPACE | NUU_BLANK | NUU_GRAPH, &st),
              NUU_SPACE | NUU_BLANK);
    EXPECT_EQ(nuu_iswctype(o, 0x661, NUU_DIGIT, &st), NUU_DIGIT);   // Arabic-Indic one
    EXPECT_EQ(nuu_towupper(o, 0xDF, &st), 0xDFu);                   // ß has no single upper
    EXPECT_EQ(nuu_towlower(o, 0x130, &st), 0x69u);
    const std::string s = "aäb";
    EXPECT_EQ(nuu_mbsnext(o, u8(s) + 1, -1, &st), u8(s) + 3);
    EXPECT_EQ(nuu_mbsprev(o, u8(s), u8(s) + 3, &st), u8(s) + 1);
    EXPECT_EQ(nuu_mbschr(o, u8(s), -1, u8("b"), 4, &st), u8(s) + 3);
    EXPECT_EQ(nuu_mbschr(o, u8(s), -1, u8("c"), 4, &st), nullptr);
    unsigned char buffer[16] = "aäb";
    ASSERT_NE(nuu_putmbsi(o, buffer, 1, u8("€"), &st), nullptr);
    EXPECT_STREQ(reinterpret_cast<char *>(buffer), "a€b");
    EXPECT_EQ(st, 0);
    nuu_close(o);
    EXPECT_EQ(nuu_open("de_DE", "8859-1", 2, &st), nullptr);
    EXPECT_EQ(st, 12);
}

namespace {

std::string icu_convert(const char *to, const char *from, const std::string &text) {
    std::string out(text.size() * 8 + 16, '\0');
    UErrorCode err = U_ZERO_ERROR;
    const int32_t n = ucnv_convert(to, from, out.data(), static_cast<int32_t>(out.size()),
                                   text.data(), static_cast<int32_t>(text.size()), &err);
    out.resize(static_cast<size_t>(n));
    return out;
}

} // namespace

// Conversions give ICU's bytes; a small room stops on a character boundary and the rest
// follows on the next call; ill-formed and cut-off input stop on the character; a character
// the target lacks becomes its substitute and marks the conversion irreversible.
TEST_F(Companion, ConversionMatchesIcu) {
    const std::string text = "Grüße aus Hà Nội, 東京と北京 — ½ €";
    const struct {
        unsigned number;
        const char *icu;
    } targets[] = {{kGb18030, "gb18030"}, {kIso2022jp, "iso-2022-jp"}, {kCp1258, "windows-1258"}};
    ASSERT_EQ(nuu_useIcuCvtCall(kUtf8, kUnknown), 0);
    ASSERT_EQ(nuu_useIcuCvtCall(kUtf8, kUtf8), 0);
    for (const auto &t : targets) {
        SCOPED_TRACE(t.icu);
        ASSERT_EQ(nuu_useIcuCvtCall(t.number, kUtf8), 1);
        nuu_status st = 0;
        nuu_cv *to = nuu_cv_open(t.number, kUtf8, &st);
        nuu_cv *from = nuu_cv_open(kUtf8, t.number, &st);
        ASSERT_NE(to, nullptr);
        ASSERT_NE(from, nullptr);
        EXPECT_GE(nuu_iconv_expansion(to), 1.0);
        const std::string expect = icu_convert(t.icu, "utf-8", text);
        std::string out(expect.size() + 8, '\0');
        const unsigned char *in = u8(text);
        int inlen = static_cast<int>(text.size());
        unsigned char *o = reinterpret_cast<unsigned char *>(out.data());
        int room = static_cast<int>(out.size()), irreversible = -1;
        ASSERT_EQ(nuu_cv_conv(to, 1, &in, &inlen, &o, &room, &irreversible, &st), 0);
        out.resize(out.size() - static_cast<size_t>(room));
        EXPECT_EQ(out, expect);
        EXPECT_EQ(inlen, 0);
        // Only GB18030 has every character of the text.
        EXPECT_EQ(irreversible, t.number == kGb18030 ? 0 : 1);

        // Back to UTF-8 in pieces of at most 7 bytes of room.
        std::string back;
        in = reinterpret_cast<const unsigned char *>(expect.data());
        inlen = static_cast<int>(expect.size());
        for (int rounds = 0; inlen > 0 && rounds < 200; ++rounds) {
            unsigned char piece[7];
            o = piece;
            room = sizeof piece;
            st = 0;
            const int r = nuu_cv_conv(from, 1, &in, &inlen, &o, &room, &irreversible, &st);
            EXPECT_TRUE(r == 0 || st == 14) << st;
            back.append(reinterpret_cast<char *>(piece), static_cast<size_t>(o - piece));
        }
        EXPECT_EQ(back, icu_convert("utf-8", t.icu, expect));
        nuu_cv_close(to);
        nuu_cv_close(from);
    }
    nuu_status st = 0;
    nuu_cv *cv = nuu_cv_open(kGb18030, kUtf8, &st);
    const struct {
        std::string input;
        int use_length, status, stop;
    } faults[] = {{"ab\xff" "cd", 1, 1, 2}, {"ab\xe6\x9d", 1, 7, 2}, {std::string("ab\0z", 4), 0, 0, 3}};
    for (const auto &f : faults) {
        const unsigned char *in = u8(f.input);
        int inlen = static_cast<int>(f.input.size());
        unsigned char buffer[32];
        unsigned char *o = buffer;
        int room = sizeof buffer, irreversible = 0;
        st = 0;
        nuu_cv_conv(cv, 1, &in, f.use_length ? &inlen : nullptr, &o, &room, &irreversible, &st);
        EXPECT_EQ(st, f.status) << f.input;
        EXPECT_EQ(in - u8(f.input), f.stop) << f.input;
        EXPECT_EQ(o - buffer, f.stop);
    }
    nuu_cv_close(cv);
    EXPECT_EQ(nuu_cv_open(kUnknown, kUtf8, &st), nullptr);
    EXPECT_EQ(st, 8);
}
