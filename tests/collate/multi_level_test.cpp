// Multi-level comparison and sort keys on hand-made tables, and the agreement of comparison
// and sort key in hand-made and generated locales.
#include "collate/collate_test_util.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <sys/mman.h>
#include <unistd.h>

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

// The sort key of s cut at every size from 0 to past its end: each call reports the length
// a size query reports, stores exactly the first bytes of the whole key that fit (and the
// terminator when there is room) and nothing at or past the size. A description of the first
// fault, or nothing.
std::string cut_key_fault(nu_locale_t h, const std::string &s) {
    const int full = nu_full_mbsxfrm(h, nullptr, u(s), 0);
    if (full < 0) return "size query gives " + std::to_string(full);
    std::vector<unsigned char> whole(static_cast<size_t>(full) + 1);
    if (nu_full_mbsxfrm(h, whole.data(), u(s), full + 1) != full) return "the whole key has another length";
    for (int n = 1; n <= full + 1; ++n) {
        std::vector<unsigned char> cut(static_cast<size_t>(full) + 8, 0xEE);
        if (nu_full_mbsxfrm(h, cut.data(), u(s), n) != full) return "size " + std::to_string(n) + ": length";
        const size_t stored = static_cast<size_t>(std::min(n, full));
        if (std::memcmp(cut.data(), whole.data(), stored) != 0)
            return "size " + std::to_string(n) + ": not a prefix of the whole key";
        const size_t untouched = n > full ? stored + 1 : stored;
        if (n > full && cut[stored] != 0) return "no terminator";
        for (size_t i = untouched; i < cut.size(); ++i)
            if (cut[i] != 0xEE) return "size " + std::to_string(n) + ": byte " + std::to_string(i) + " written";
    }
    return "";
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
    for (const std::string &s : strings) {
        const std::string fault = cut_key_fault(h, s);
        if (!fault.empty() && ++mismatches <= 5) ADD_FAILURE() << "key of \"" << s << "\": " << fault;
    }
    for (size_t i = 0; i < strings.size(); ++i) {
        for (size_t j = i; j < strings.size() && j < i + 8; ++j) {
            const std::string &a = strings[i], &b = strings[j];
            const int c = sign(_nu_im_mbscoll(h, u(a), u(b)));
            const int keyed = key_order(h, a, b);
            const int counted = sign(_tsn_nu_im_mbfscoll(h, u(a), static_cast<int>(a.size()), u(b),
                                                         static_cast<int>(b.size())));
            const int wide_c = sign(nu_full_wcscoll(h, wides[i].data(), wides[j].data()));
            const int chosen = sign(nu_full_mbscoll(h, u(a), u(b)));
            const int chosen_counted = sign(_tsn_nu_full_mbscoll(
                h, u(a), static_cast<int>(a.size()), u(b), static_cast<int>(b.size())));
            const int reverse = sign(_nu_im_mbscoll(h, u(b), u(a)));
            if (c != keyed || c != counted || c != wide_c || c != chosen || c != chosen_counted ||
                c != -reverse) {
                if (++mismatches <= 5)
                    ADD_FAILURE() << "\"" << a << "\" vs \"" << b << "\": coll " << c << " key "
                                  << keyed << " counted " << counted << " wide " << wide_c
                                  << " chosen " << chosen << " " << chosen_counted << " reversed "
                                  << reverse;
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

// Elements whose weight at a level is an expansion: the walk weighs the expansion at each
// character the element covers. All levels forward (a single-byte variant is chosen), and
// with a backward level (the general comparison is).
TEST(MultiLevel, CollAndKeysAgreeWithElementsThatExpand) {
    std::mt19937 rng(13);
    for (const std::vector<int> &directions : {std::vector<int>{1, 1, 1}, std::vector<int>{1, 2, 1}}) {
        NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
        CollateFixture f = letters(directions);
        f.expansions = {{'a', 'e'}, {'b', 'd', 'c'}};
        f.map("h", f.row({8, 3, 2}));
        f.map("-", f.row({1, 1, 2}));
        f.elements = {{{'c', 'h'}, f.row({9, 0x4000, 2})},
                      {{'d', 'e', 'e'}, f.row({0x4001, 2, 0x4000})}};
        ASSERT_EQ(nus_test::load_collate(loc, f), 0);
        SCOPED_TRACE(directions[1] == 1 ? "forward" : "backward");
        check_consistency(loc, random_strings(loc, rng, "abcdeh-"));
    }
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

// The characters of the first n bytes of s and a wide null, or nothing when they do not
// decode.
std::optional<std::vector<nu_wchar>> decoded(nu_locale_t h, const std::string &s, size_t n) {
    std::vector<nu_wchar> w(n + 1);
    const int count = n == 0 ? 0 : h->counted_to_wide(h, w.data(), u(s), static_cast<int>(n), static_cast<int>(n));
    if (count < 0) return std::nullopt;
    w.resize(static_cast<size_t>(count) + 1);
    w.back() = 0;
    return w;
}

// The first na bytes of a against the first nb of b, counted and (for whole strings)
// null-terminated, each in a buffer of its exact size so that the sanitizers see a read past
// the end or the terminator: the sign of the comparison of the decoded wide strings, or 0
// with NU_EILSEQ when either does not decode. Returns a description of a disagreement.
std::string disagreement(nu_locale_t h, const std::string &a, size_t na, const std::string &b,
                         size_t nb) {
    const auto wa = decoded(h, a, na), wb = decoded(h, b, nb);
    const bool good = wa && wb;
    const int expected = good ? sign(_tsn_nu_full_wcscoll(h, wa->data(), static_cast<int>(wa->size() - 1),
                                                          wb->data(), static_cast<int>(wb->size() - 1)))
                              : 0;
    const auto exact = [](const std::string &s, size_t n, bool terminated) {
        std::unique_ptr<unsigned char[]> buf(new unsigned char[n + terminated]);
        std::memcpy(buf.get(), s.data(), n);
        if (terminated) buf[n] = 0;
        return buf;
    };
    const auto check = [&](const char *form, auto compare) -> std::string {
        *_nu_ext_errno(h) = 0;
        const int got = sign(compare());
        const int error = *_nu_ext_errno(h);
        if (got == expected && (error == NU_EILSEQ) == !good) return "";
        return std::string(form) + " gives " + std::to_string(got) + " error " + std::to_string(error) +
               ", expected " + std::to_string(expected) + (good ? "" : " with NU_EILSEQ");
    };
    const auto ca = exact(a, na, false), cb = exact(b, nb, false);
    std::string out = check("counted", [&] {
        return _tsn_nu_im_mbfscoll(h, ca.get(), static_cast<int>(na), cb.get(), static_cast<int>(nb));
    });
    if (out.empty() && na == a.size() && nb == b.size()) {
        const auto ta = exact(a, na, true), tb = exact(b, nb, true);
        out = check("null-terminated", [&] { return _nu_im_mbscoll(h, ta.get(), tb.get()); });
    }
    return out;
}

// A hand-made collation for the UTF-8 locale with elements whose first-level weight is not
// their first character's: beginning with a one-byte and with a two-byte character, and a
// longer one listed before a shorter one with the same beginning.
CollateFixture utf8_elements() {
    CollateFixture f;
    f.directions = {1, 1};
    f.map("a", f.row({2, 2}));
    f.map("b", f.row({3, 2}));
    f.map("l", f.row({4, 2}));
    f.map("-", f.row({1, 1}));
    f.chars.emplace_back("\xc2\xb7", f.row({5, 2}));            // U+00B7
    f.chars.emplace_back("\xc3\xa4", f.row({2, 3}));            // U+00E4: an accented a
    f.chars.emplace_back("\xe2\x82\xac", f.row({6, 2}));        // U+20AC
    f.chars.emplace_back("\xf0\x9f\x98\x80", f.row({7, 2}));    // U+1F600
    f.elements = {{{'l', 0xC2B7, 0xC2B7}, f.row({8, 3})},
                  {{'l', 0xC2B7}, f.row({2, 4})},
                  {{0xC3A4, 'b'}, f.row({9, 2})}};
    return f;
}

// The comparison of multibyte text (which decides on the bytes where it can, checking that the
// rest of both strings decodes) against the wide comparison, in a UTF-8 locale (with its own
// collation and with the hand-made one above), a Shift-JIS and an EUC one: pairs of strings
// of one- to four-byte characters with a shared beginning, so that the deciding position
// moves; the same with an undecodable or cut sequence put at every character boundary of
// either string; and counted lengths that end anywhere, inside a character too.
TEST(MultiLevel, MultibyteComparisonAgreesWithTheWideOneAndFindsEveryBadSequence) {
    struct Case {
        std::string locale;
        bool hand_made;
        std::vector<std::string> pieces, bad;
    };
    const std::vector<std::string> utf8_bad = {"\x80", "\xff", "\xc3", "\xc3(", "\xe2\x82", "\xf0\x9f\x98"};
    const std::vector<Case> cases = {
        {"de_de.utf8", false,
         {"a", "b", "l", "L", "Z", " ", "-", "abbaabba", "\xc3\xa4", "\xc3\x9f", "l\xc2\xb7", "L\xce\x87",
          "\xe2\x82\xac", "\xe6\x97\xa5", "\xf0\x9f\x98\x80"},
         utf8_bad},
        {"de_de.utf8", true,
         {"a", "b", "l", "-", "abbaabba", "\xc2\xb7", "l\xc2\xb7", "\xc3\xa4", "\xc3\xa4" "b", "\xe2\x82\xac",
          "\xf0\x9f\x98\x80"},
         utf8_bad},
        {"ja_jp.sjis", false, {"a", "l", "Z", " ", "abbaabba", "\xb1", "\x82\xa0", "\x83\x41", "\x88\x9f"},
         {"\x82", "\x82 "}},
        {"ja_jp.ujis", false, {"a", "l", " ", "abbaabba", "\x8e\xb1", "\xa4\xa2", "\xa5\xa2", "\xb0\xa1"},
         {"\xa4", "\xa4 ", "\x8e"}},
    };
    int loaded = 0;
    for (const Case &c : cases) {
        nus_test::TestLocale loc(c.locale);
        if (loc.h == nullptr) continue;
        ++loaded;
        SCOPED_TRACE(c.locale + (c.hand_made ? " (hand-made collation)" : ""));
        if (c.hand_made) {
            ASSERT_EQ(nus_test::load_collate(loc, utf8_elements()), 0);
        }
        for (const std::string &bad : c.bad) ASSERT_FALSE(decoded(loc, bad, bad.size())) << bad;
        std::mt19937 rng(11);
        const auto piece = [&](const std::vector<std::string> &from) { return from[rng() % from.size()]; };
        int failures = 0;
        const auto expect = [&](const std::string &a, size_t na, const std::string &b, size_t nb) {
            const std::string why = disagreement(loc, a, na, b, nb);
            if (!why.empty() && ++failures <= 5)
                ADD_FAILURE() << "\"" << a.substr(0, na) << "\" vs \"" << b.substr(0, nb) << "\": " << why;
        };
        // The pieces joined, with `bad` before piece bad_at.
        const auto join = [](const std::vector<std::string> &p, size_t bad_at, const std::string &bad) {
            std::string s;
            for (size_t i = 0; i <= p.size(); ++i) {
                if (i == bad_at) s += bad;
                if (i < p.size()) s += p[i];
            }
            return s;
        };
        for (int round = 0; round < 400; ++round) {
            // Up to 40 bytes each, the first `shared` pieces common.
            std::vector<std::string> pa, pb;
            for (size_t i = rng() % 5; i > 0; --i) pa.push_back(piece(c.pieces));
            pb = pa;
            for (size_t i = rng() % 4; i > 0; --i) pa.push_back(piece(c.pieces));
            for (size_t i = rng() % 4; i > 0; --i) pb.push_back(piece(c.pieces));
            const std::string a = join(pa, SIZE_MAX, ""), b = join(pb, SIZE_MAX, "");
            expect(a, a.size(), b, b.size());
            for (size_t i = 0; i <= pa.size(); ++i) {
                const std::string bad = join(pa, i, piece(c.bad));
                expect(bad, bad.size(), b, b.size());
                expect(b, b.size(), bad, bad.size());
            }
            for (size_t n = 0; n < a.size(); ++n) {
                expect(a, n, b, b.size());
                expect(b, b.size(), a, n);
            }
        }
        EXPECT_EQ(failures, 0);
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
        {"cs_cz.8859-2", {"ch", "Chrchel", "\xe8" "CHh-ch"}},
    };
    int loaded = 0;
    for (const auto &[spec, strings] : cases) {
        nus_test::TestLocale loc(spec);
        if (loc.h == nullptr) continue;
        ++loaded;
        for (const std::string &s : strings) EXPECT_EQ(cut_key_fault(loc, s), "") << spec << " \"" << s << "\"";
    }
    if (loaded == 0) GTEST_SKIP() << "no generated locale (build the 64-bit tree)";
}

// Sort keys are mostly copied from key bytes the handle caches per character; they must be
// the bytes the walk writes. Generated locales (expansions, tie-break codes, an element whose
// first character is cached, characters outside the cache) and hand-made tables with a
// backward level, an expansion, a tie-break weight and an ignorable character.
TEST(MultiLevel, CachedKeysAreTheWalksKeys) {
    const std::vector<std::pair<std::string, std::string>> generated = {
        {"de_de.8859-1", "aAoO\xf6\xd6\xe4\xdf\xb7lLs -"},
        {"de_de.utf8", "aAoO\xc3\xb6\xc3\x96\xc3\x9f\xc2\xb7lLs -\xe2\x82\xac"},
        {"cs_cz.8859-2", "cChHrR\xe8\xc8\xf8 -"},
    };
    CollateFixture backward = letters({1, 2, 1});
    backward.expansions = {{'a', 'b', 'c'}};
    backward.map("X", backward.row({4, 0x4000, 3}));
    backward.map("T", backward.row({5, 0x8006, 0x8002}));
    backward.map("-", backward.row({1, 1, 2}));
    std::mt19937 rng(5);
    int loaded = 0;
    for (size_t round = 0; round <= generated.size(); ++round) {
        const bool hand_made = round == generated.size();
        nus_test::TestLocale loc(hand_made ? "xx_yy/0333.lco" : generated[round].first);
        if (loc.h == nullptr) continue;
        ++loaded;
        if (hand_made) {
            ASSERT_EQ(nus_test::load_collate(loc, backward), 0);
        }
        SCOPED_TRACE(hand_made ? "hand-made" : generated[round].first);
        int faults = 0;
        for (const std::string &s : random_strings(loc, rng, hand_made ? "abcdeXT-" : generated[round].second)) {
            std::vector<nu_wchar> w(s.size() + 1);
            const int n = loc.h->to_wide(loc.h, w.data(), u(s), static_cast<int>(w.size()));
            ASSERT_GE(n, 0);
            std::vector<unsigned char> walked(1024), cached(1024);
            const int lw = nus::walked_key(loc.h, walked.data(), w.data(), n, 1024);
            const int lc = nu_full_mbsxfrm(loc.h, cached.data(), u(s), 1024);
            if ((lw != lc || walked != cached) && ++faults <= 5) ADD_FAILURE() << "\"" << s << "\"";
        }
    }
    if (loaded == 0) GTEST_SKIP() << "no locale (build the 64-bit tree)";
}

// The rest of a null-terminated string is checked sixteen bytes at a time; near the end of a
// page it must not read the next one. Strings whose terminator is the last byte before an
// inaccessible page, valid or with a bad sequence anywhere in their last 20 bytes, compare
// as their counted form does.
TEST(MultiLevel, NullTerminatedComparisonStopsAtItsPage) {
    NUS_LOAD_OR_SKIP(loc, "de_de.utf8");
    const long page = sysconf(_SC_PAGESIZE);
    void *map = mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(map, MAP_FAILED);
    auto *base = static_cast<unsigned char *>(map);
    ASSERT_EQ(mprotect(base + page, page, PROT_NONE), 0);
    int faults = 0;
    for (const std::string bad : {"", "\xc3\xa4", "\x80", "\xc3(", "\xc3"}) {
        for (size_t length = 1; length <= 20; ++length) {
            for (size_t at = 1; at < length; ++at) {
                std::string text(length, 'x');
                text[0] = 'b';
                text.replace(at, std::min(bad.size(), length - at), bad.substr(0, length - at));
                unsigned char *s = base + page - text.size() - 1;
                std::memcpy(s, text.c_str(), text.size() + 1);
                for (bool first : {true, false}) {
                    const unsigned char *a = first ? s : u("a"), *b = first ? u("a") : s;
                    const int la = first ? static_cast<int>(text.size()) : 1, lb = first ? 1 : static_cast<int>(text.size());
                    *_nu_ext_errno(loc) = 0;
                    const int counted = sign(_tsn_nu_im_mbfscoll(loc, a, la, b, lb));
                    const int counted_error = loc.error();
                    *_nu_ext_errno(loc) = 0;
                    const int terminated = sign(_nu_im_mbscoll(loc, a, b));
                    if ((terminated != counted || loc.error() != counted_error) && ++faults <= 5)
                        ADD_FAILURE() << "length " << length << " bad at " << at << ": " << terminated
                                      << " error " << loc.error() << ", counted " << counted << " error "
                                      << counted_error;
                }
            }
        }
    }
    munmap(map, 2 * page);
}

} // namespace
