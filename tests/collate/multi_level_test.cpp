// Multi-level comparison and sort keys on hand-made tables, and the agreement of comparison
// and sort key in hand-made and generated locales.
#include "collate/collate_test_util.h"

#include <gtest/gtest.h>

namespace {

using nus_test::CollateFixture;
using nus_test::key;
using nus_test::key_order;
using nus_test::sign;
using nus_test::u;
using nus_test::wide;

int wcoll(nu_locale_t h, const std::string &a, const std::string &b) {
    const auto wa = wide(a), wb = wide(b);
    return sign(nu_full_wcscoll(h, wa.data(), wb.data()));
}

// Letters a..e with weights 2..6 at every level given.
CollateFixture letters(std::vector<int> directions) {
    CollateFixture f;
    f.directions = std::move(directions);
    for (char c = 'a'; c <= 'e'; ++c) {
        std::vector<uint16_t> w(f.directions.size(), static_cast<uint16_t>(c - 'a' + 2));
        f.map(std::string(1, c), f.row(w));
    }
    return f;
}

TEST(MultiLevel, IgnorableCharactersDoNotCount) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    CollateFixture f = letters({1, 1});
    f.map("-.", f.row({1, 1}));
    ASSERT_EQ(nus_test::load_collate(loc, f), 0);
    EXPECT_EQ(wcoll(loc, "a-b", "ab"), 0);
    EXPECT_EQ(wcoll(loc, "-.a.b-", "ab"), 0);
    EXPECT_EQ(_nu_im_mbscoll(loc, u("a-b"), u("ab")), 0);
    EXPECT_EQ(key(loc, "a-b"), key(loc, "ab"));
    EXPECT_EQ(wcoll(loc, "--", ""), 0);
    EXPECT_EQ(wcoll(loc, "a-", "b"), -1);
}

TEST(MultiLevel, BackwardLevelDecidesByTheLastDifference) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    CollateFixture f;
    f.directions = {1, 2};
    f.map("e", f.row({2, 2}));
    f.map("E", f.row({2, 3}));   // an accent: same primary, heavier secondary
    ASSERT_EQ(nus_test::load_collate(loc, f), 0);
    // Forward the first accent would decide; backward the one nearer the end does.
    EXPECT_EQ(wcoll(loc, "eE", "Ee"), 1);
    EXPECT_EQ(wcoll(loc, "Ee", "eE"), -1);
    EXPECT_EQ(key_order(loc, "eE", "Ee"), 1);
    f.directions = {1, 1};
    ASSERT_EQ(nus_test::load_collate(loc, f), 0);
    EXPECT_EQ(wcoll(loc, "eE", "Ee"), -1);
    EXPECT_EQ(key_order(loc, "eE", "Ee"), -1);
}

TEST(MultiLevel, ExpansionsAreWalkedBackwardOnBackwardLevels) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    CollateFixture f = letters({2});
    f.expansions = {{'a', 'b'}};
    f.map("X", f.row({0x4000}));
    ASSERT_EQ(nus_test::load_collate(loc, f), 0);
    EXPECT_EQ(wcoll(loc, "X", "ab"), 0);
    EXPECT_EQ(wcoll(loc, "X", "ba"), 1);
    EXPECT_EQ(key(loc, "X"), key(loc, "ab"));
    f.directions = {1};
    ASSERT_EQ(nus_test::load_collate(loc, f), 0);
    EXPECT_EQ(wcoll(loc, "X", "ab"), 0);
    EXPECT_EQ(wcoll(loc, "cX", "cab"), 0);
    EXPECT_EQ(wcoll(loc, "Xe", "abd"), 1);
}

TEST(MultiLevel, TheFirstListedElementWinsOverALongerOne) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    CollateFixture f = letters({1});
    const uint16_t ch = f.row({20}), chd = f.row({30});
    f.elements = {{{'c', 'd'}, ch}, {{'c', 'd', 'e'}, chd}};
    f.map("Q", ch);
    f.map("R", chd);
    ASSERT_EQ(nus_test::load_collate(loc, f), 0);
    EXPECT_EQ(key(loc, "cde"), key(loc, "Qe"));
    EXPECT_NE(key(loc, "cde"), key(loc, "R"));
    EXPECT_EQ(wcoll(loc, "cde", "Qe"), 0);
    EXPECT_EQ(wcoll(loc, "cd", "e"), 1);     // the element weighs 20, e only 6
    EXPECT_EQ(wcoll(loc, "c", "e"), -1);     // a lone c is no element
    EXPECT_EQ(wcoll(loc, "acd", "ae"), 1);
}

TEST(MultiLevel, CodeTieBreakLooksAtTheFirstStringsWeight) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    CollateFixture f;
    f.map("ab", f.row({0x8005}));
    f.map("c", f.row({5}));
    ASSERT_EQ(nus_test::load_collate(loc, f), 0);
    EXPECT_EQ(wcoll(loc, "a", "b"), -1);
    EXPECT_EQ(wcoll(loc, "b", "a"), 1);
    EXPECT_EQ(wcoll(loc, "a", "c"), -1);
    EXPECT_EQ(wcoll(loc, "c", "a"), 0);    // the first weight has no bit 15
    EXPECT_EQ(key_order(loc, "a", "b"), -1);
    // The key: the weight, then the character in as many digits as code 255 needs.
    // 255 needs two digits: one digit holds values up to 253.
    EXPECT_EQ(key(loc, "b"), std::string("\x05\x02\x62", 3));
}

TEST(MultiLevel, ACharacterWithoutARowEndsTheString) {
    // In a single-byte table every byte is a character; a multibyte table has gaps.
    NUS_LOAD_OR_SKIP(loc, "ja_jp/13ba.lco");
    CollateFixture f = letters({1, 1});
    f.chars.emplace_back("\xb0\xa1", f.row({7, 7}));
    ASSERT_EQ(nus_test::load_collate(loc, f), 0);
    const std::string z = "\xb0\xa2";   // a character of the code set without a row
    EXPECT_EQ(_nu_im_mbscoll(loc, u("ab" + z + "c"), u("ab")), 0);
    EXPECT_EQ(_nu_im_mbscoll(loc, u("ab" + z + "c"), u("abc")), -1);
    EXPECT_EQ(_nu_im_mbscoll(loc, u("ab\xb0\xa1"), u("abe")), 1);
    EXPECT_EQ(key(loc, "ab" + z + "c"), key(loc, "ab"));
    EXPECT_EQ(_nu_im_mbscoll(loc, u(z + "b"), u("")), 0);
}

TEST(MultiLevel, SortKeysSeparateLevelsAndReportTheirFullLength) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    ASSERT_EQ(nus_test::load_collate(loc, letters({1, 1, 1})), 0);
    const std::string k = key(loc, "abc");
    EXPECT_EQ(k, std::string("\x02\x03\x04\x01\x02\x03\x04\x01\x02\x03\x04"));
    unsigned char cut[16];
    std::memset(cut, 0xEE, sizeof cut);
    EXPECT_EQ(nu_full_mbsxfrm(loc, cut, u("abc"), 5), 11);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(cut), 5), k.substr(0, 5));
    EXPECT_EQ(cut[5], 0xEE);                                  // no terminator when cut
    std::memset(cut, 0xEE, sizeof cut);
    EXPECT_EQ(nu_full_mbsxfrm(loc, cut, u("abc"), 12), 11);
    EXPECT_EQ(cut[11], 0);                                     // room for it: terminated
    EXPECT_EQ(nu_full_mbsxfrm(loc, cut, u("abc"), 11), 11);   // exactly full: not terminated
}

TEST(MultiLevel, TheLargestWeightFixesTheDigitsOfEveryWeight) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    CollateFixture f = letters({1});
    f.largest = 300;
    ASSERT_EQ(nus_test::load_collate(loc, f), 0);
    EXPECT_EQ(key(loc, "d"), std::string("\x02\x05", 2));     // weight 5: two digits
    f.largest = 70000;
    ASSERT_EQ(nus_test::load_collate(loc, f), 0);
    EXPECT_EQ(key(loc, "d"), std::string("\x02\x02\x05", 3));
}

TEST(MultiLevel, LengthsAndArgumentsAreChecked) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    ASSERT_EQ(nus_test::load_collate(loc, letters({1})), 0);
    const auto w = wide("abc");
    EXPECT_EQ(_tsn_nu_full_wcscoll(loc, w.data(), -1, w.data(), 3), 0);
    EXPECT_EQ(loc.error(), NU_ELENGTHS);
    EXPECT_EQ(_tsn_nu_im_mbfscoll(loc, u("abc"), 3, u("abd"), -1), 0);
    EXPECT_EQ(loc.error(), NU_ELENGTHS);
    EXPECT_EQ(_tsn_nu_full_wcscoll(loc, nullptr, -1, w.data(), -1), 0);
    EXPECT_EQ(loc.error(), NU_EBADARG);
    // Lengths in characters and bytes limit what is compared.
    EXPECT_EQ(_tsn_nu_full_wcscoll(loc, w.data(), 2, wide("abd").data(), 2), 0);
    EXPECT_EQ(_tsn_nu_im_mbfscoll(loc, u("abc"), 2, u("abd"), 3), -1);
}

TEST(MultiLevel, UndecodableTextFailsWithAnIllegalSequence) {
    NUS_LOAD_OR_SKIP(loc, "ja_jp/13ba.lco");
    const unsigned char bad[] = {0xA4, 0x20, 0};
    EXPECT_EQ(_nu_im_mbscoll(loc, bad, u("a")), 0);
    EXPECT_EQ(loc.error(), NU_EILSEQ);
    EXPECT_EQ(nu_full_mbsxfrm(loc, nullptr, bad, 0), -1);
}

// In every locale at hand: coll and the order of the keys agree; the counted and
// null-terminated forms agree; the multibyte and wide forms agree; the function chosen for
// the handle agrees with the general one.
void check_consistency(nu_locale_t h, const std::vector<std::string> &strings) {
    std::vector<std::vector<nu_wchar>> wides;
    for (const std::string &s : strings) {
        std::vector<nu_wchar> w(s.size() + 1);
        const int n = h->to_wide(h, w.data(), u(s), static_cast<int>(w.size()));
        ASSERT_GE(n, 0) << s;
        w.resize(static_cast<size_t>(n) + 1);
        w[static_cast<size_t>(n)] = 0;
        wides.push_back(w);
    }
    int mismatches = 0;
    for (size_t i = 0; i < strings.size(); ++i) {
        for (size_t j = i; j < strings.size() && j < i + 8; ++j) {
            const std::string &a = strings[i], &b = strings[j];
            const int c = sign(_nu_im_mbscoll(h, u(a), u(b)));
            const int keyed = key_order(h, a, b);
            const int counted = sign(_tsn_nu_im_mbfscoll(h, u(a), static_cast<int>(a.size()), u(b),
                                                         static_cast<int>(b.size())));
            const int wide_c = sign(nu_full_wcscoll(h, wides[i].data(), wides[j].data()));
            const int chosen = sign(nu_full_mbscoll(h, u(a), u(b)));
            const int reverse = sign(_nu_im_mbscoll(h, u(b), u(a)));
            if (c != keyed || c != counted || c != wide_c || c != chosen || c != -reverse) {
                if (++mismatches <= 5)
                    ADD_FAILURE() << "\"" << a << "\" vs \"" << b << "\": coll " << c << " key "
                                  << keyed << " counted " << counted << " wide " << wide_c
                                  << " chosen " << chosen << " reversed " << reverse;
            }
        }
    }
    EXPECT_EQ(mismatches, 0);
}

// Random strings of the alphabet's bytes that are valid text of the handle's code set.
std::vector<std::string> random_strings(nu_locale_t h, std::mt19937 &rng,
                                        const std::string &alphabet) {
    std::vector<std::string> out;
    while (out.size() < 400) {
        std::string s = nus_test::random_string(rng, alphabet, static_cast<int>(rng() % 7));
        if (_nu_im_mbslen(h, u(s)) >= 0) out.push_back(std::move(s));
    }
    return out;
}

TEST(MultiLevel, CollAndKeysAgreeInHandMadeLocales) {
    std::mt19937 rng(7);
    {
        NUS_LOAD_OR_SKIP(loc, "de_de/0333.lco");
        check_consistency(loc, random_strings(loc, rng, "aAbB\xe4\xc4\xe1 -.,zZ\xdf" "s1\x01"));
    }
    {
        NUS_LOAD_OR_SKIP(loc, "ja_jp/13ba.lco");
        check_consistency(loc, random_strings(loc, rng, "aAb\xa4\xa2\xa4\xa1\xb0\xa1"));
    }
}

TEST(MultiLevel, CollAndKeysAgreeInHandMadeFeatures) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    std::mt19937 rng(11);
    CollateFixture f = letters({1, 2, 1});
    f.expansions = {{'a', 'e'}, {'b', 'c', 'd'}};
    f.map("X", f.row({0x4000, 0x4000, 0x4000}));
    f.map("Y", f.row({4, 0x4001, 3}));
    f.map("-", f.row({1, 1, 2}));
    f.map(" ", f.row({1, 1, 1}));
    const uint16_t ch = f.row({9, 2, 2});
    f.elements = {{{'c', 'h'}, ch}, {{'c', 'h', 'e'}, f.row({10, 2, 2})}};
    f.map("h", f.row({8, 3, 2}));
    ASSERT_EQ(nus_test::load_collate(loc, f), 0);
    check_consistency(loc, random_strings(loc, rng, "abcdehXY- "));
}

TEST(MultiLevel, CollAndKeysAgreeInEveryGeneratedLocale) {
    const std::vector<std::pair<std::string, std::string>> locales = {
        {"en_us.8859-1", "aAbBzZ09 -.,'\xe9\xc9\xe4\xdf\xe6"},
        {"de_de.8859-1", "aAoO\xf6\xd6\xe4\xdf" "ss -"},
        {"fr_fr.8859-1", "eE\xe9\xe8\xea\xc9 c\xe7-'"},
        {"es_es.8859-1", "nN\xf1\xd1" "cChHlL -"},
        {"cs_cz.8859-2", "cChHrR\xe8\xc8\xf8 -"},
        {"de_de.utf8", "aAo\xc3\xb6\xc3\x96\xc3\x9f" "ss -"},
        {"ja_jp.ujis", "aA\xa4\xa2\xa5\xa2\xb0\xa1\xb0\xa2 "},
        {"ja_jp.sjis", "aA\x82\xa0\x83\x41\x88\x9f "},
    };
    std::mt19937 rng(3);
    int loaded = 0;
    for (const auto &[spec, alphabet] : locales) {
        nus_test::TestLocale loc(spec);
        if (loc.h == nullptr) continue;
        ++loaded;
        SCOPED_TRACE(spec);
        check_consistency(loc, random_strings(loc, rng, alphabet));
    }
    if (loaded == 0) GTEST_SKIP() << "no generated locale (build the 64-bit tree)";
}

// Keys cut at every size: the stored bytes are the first bytes of the whole key, nothing is
// written at or past the size, and the full length is reported. The strings mix runs of
// plain characters, tie-break weights (the UTF-8 locale's last level), expansions and an
// element, so that every way of writing a weight meets the end of the room.
TEST(MultiLevel, CutKeysArePrefixesOfTheWholeKey) {
    const std::vector<std::pair<std::string, std::vector<std::string>>> cases = {
        {"de_de.8859-1", {"Zusammenhang", "Stra\xdf" "e", "L\xb7lia", "\xe6on -x"}},
        {"de_de.utf8", {"Zusammenhang", "Stra\xc3\x9f" "e", "L\xc2\xb7lia", "\xe6\x97\xa5\xe6\x9c\xac x"}},
        {"ja_jp.sjis", {"abc\x82\xa0\x83\x41", "\x88\x9f\x88\x9f"}},
    };
    int loaded = 0;
    for (const auto &[spec, strings] : cases) {
        nus_test::TestLocale loc(spec);
        if (loc.h == nullptr) continue;
        ++loaded;
        for (const std::string &s : strings) {
            SCOPED_TRACE(spec + " \"" + s + "\"");
            std::vector<unsigned char> whole(1024);
            const int full = nu_full_mbsxfrm(loc, whole.data(), u(s), static_cast<int>(whole.size()));
            ASSERT_GT(full, 0);
            ASSERT_LT(full, 1024);
            for (int n = 0; n <= full + 1; ++n) {
                std::vector<unsigned char> cut(static_cast<size_t>(full) + 8, 0xEE);
                ASSERT_EQ(nu_full_mbsxfrm(loc, cut.data(), u(s), n), full) << "size " << n;
                const int stored = n <= full ? n : full + 1;   // the terminator when it fits
                for (int i = 0; i < stored && i < full; ++i) {
                    ASSERT_EQ(cut[static_cast<size_t>(i)], whole[static_cast<size_t>(i)]) << "size " << n;
                }
                if (n > full) {
                    ASSERT_EQ(cut[static_cast<size_t>(full)], 0) << "size " << n;
                }
                for (size_t i = static_cast<size_t>(stored); i < cut.size(); ++i) {
                    ASSERT_EQ(cut[i], 0xEE) << "size " << n << ", byte " << i;
                }
            }
        }
    }
    if (loaded == 0) GTEST_SKIP() << "no generated locale (build the 64-bit tree)";
}

} // namespace
