// The single-byte comparisons: which one a locale gets, their agreement with the general
// comparison, their own tie-break; and the code-order comparisons.
#include "collate/collate_test_util.h"

#include <gtest/gtest.h>

namespace {

using nus_test::CollateFixture;
using nus_test::sign;
using nus_test::u;
using nus_test::wide;

// Letters a..h with weights per level: primary by letter, secondary 2, tertiary 2.
CollateFixture base(std::vector<int> directions = {1, 1, 1}) {
    CollateFixture f;
    f.directions = std::move(directions);
    for (char c = 'a'; c <= 'h'; ++c) {
        std::vector<uint16_t> w(f.directions.size(), 2);
        w[0] = static_cast<uint16_t>(c - 'a' + 2);
        f.map(std::string(1, c), f.row(w));
    }
    // Accented forms on the second level, capitals on the third.
    f.map("A", f.row({2, 2, 3}));
    f.map("\xe1", f.row({2, 3, 2}));
    f.map("\xe9", f.row({6, 3, 2}));
    f.map("-", f.row({1, 1, 1}));
    f.map(" ", f.row({1, 2, 2}));
    return f;
}

void with_expansions(CollateFixture &f) {
    f.expansions = {{'a', 'e'}, {'s', 's'}};
    f.map("\xe6", f.row({0x4000, 0x4000, 0x4000}));
    f.map("s", f.row({15, 2, 2}));
    f.map("\xdf", f.row({0x4001, 4, 2}));
}

void with_elements(CollateFixture &f) {
    const uint16_t ch = f.row({9, 2, 2});
    f.map("C", ch);
    f.elements = {{{'c', 'h'}, ch}, {{'l', 'l'}, f.row({12, 2, 2})}, {{'c', 'h', 'h'}, f.row({30, 2, 2})}};
    f.map("l", f.row({11, 2, 2}));
}

using CollFn = int (*)(nu_locale_t, const unsigned char *, const unsigned char *);
using CountedFn = int (*)(nu_locale_t, const unsigned char *, int, const unsigned char *, int);

struct Chosen {
    CollFn coll;
    CountedFn counted;
};

Chosen chosen(nu_locale_t h) { return {h->collate, h->counted_collate}; }

TEST(SingleByte, TheFeaturesOfTheTablesChooseTheComparison) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    struct Case {
        bool exp, elem;
        std::vector<int> directions;
        CollFn coll;
        CountedFn counted;
    };
    const Case cases[] = {
        {false, false, {1, 1, 1}, _nu_is_mbscoll_back, _tsn_nu_is_mbfscoll_back},
        {false, false, {1, 2, 1}, _nu_is_mbscoll_back, _tsn_nu_is_mbfscoll_back},
        {true, false, {1, 1, 1}, _nu_is_mbscoll_exp, _tsn_nu_is_mbfscoll_exp},
        {false, true, {1, 1, 1}, _nu_is_mbscoll_elem, _tsn_nu_is_mbfscoll_elem},
        {true, true, {1, 1, 1}, _nu_is_mbscoll_exp_elem, _tsn_nu_is_mbfscoll_exp_elem},
        // A backward level with expansions or elements needs the general walk.
        {true, false, {1, 2, 1}, _nu_im_mbscoll, _tsn_nu_im_mbfscoll},
        {false, true, {2, 1, 1}, _nu_im_mbscoll, _tsn_nu_im_mbfscoll},
        {true, true, {1, 1, 2}, _nu_im_mbscoll, _tsn_nu_im_mbfscoll},
        // Only the value 2 counts as a backward level here.
        {true, false, {1, 4, 1}, _nu_is_mbscoll_exp, _tsn_nu_is_mbfscoll_exp},
    };
    for (const Case &c : cases) {
        CollateFixture f = base(c.directions);
        if (c.exp) with_expansions(f);
        if (c.elem) with_elements(f);
        ASSERT_EQ(nus_test::load_collate(loc, f), 0);
        EXPECT_EQ(loc.h->collate, c.coll) << c.exp << c.elem << c.directions[1];
        EXPECT_EQ(loc.h->counted_collate, c.counted);
        EXPECT_EQ(loc.h->transform, nu_full_mbsxfrm);
    }
}

TEST(SingleByte, AMultibyteLocaleAlwaysGetsTheGeneralComparison) {
    NUS_LOAD_OR_SKIP(loc, "ja_jp/13ba.lco");
    EXPECT_EQ(loc.h->collate, _nu_im_mbscoll);
    EXPECT_EQ(loc.h->counted_collate, _tsn_nu_im_mbfscoll);
    ASSERT_EQ(nus_test::load_collate(loc, base()), 0);
    EXPECT_EQ(loc.h->collate, _nu_im_mbscoll);
}

// Each variant agrees with the general comparison on random strings of its features.
void check_against_general(nu_locale_t h, const std::string &alphabet) {
    std::mt19937 rng(5);
    const Chosen fn = chosen(h);
    ASSERT_NE(fn.coll, _nu_im_mbscoll);
    int mismatches = 0;
    for (int i = 0; i < 3000; ++i) {
        const std::string a = nus_test::random_string(rng, alphabet, static_cast<int>(rng() % 6));
        const std::string b = nus_test::random_string(rng, alphabet, static_cast<int>(rng() % 6));
        const int general = sign(_nu_im_mbscoll(h, u(a), u(b)));
        const int fast = sign(fn.coll(h, u(a), u(b)));
        const int counted = sign(fn.counted(h, u(a + "zz"), static_cast<int>(a.size()), u(b + "q"),
                                            static_cast<int>(b.size())));
        if ((general != fast || general != counted) && ++mismatches <= 5)
            ADD_FAILURE() << "\"" << a << "\" vs \"" << b << "\": general " << general
                          << " variant " << fast << " counted " << counted;
    }
    EXPECT_EQ(mismatches, 0);
}

TEST(SingleByte, EveryVariantAgreesWithTheGeneralComparison) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    {
        SCOPED_TRACE("back, forward levels");
        ASSERT_EQ(nus_test::load_collate(loc, base()), 0);
        check_against_general(loc, "abeA\xe1\xe9- ");
    }
    {
        SCOPED_TRACE("back, a backward level");
        ASSERT_EQ(nus_test::load_collate(loc, base({1, 2, 2})), 0);
        check_against_general(loc, "abeA\xe1\xe9- ");
    }
    {
        SCOPED_TRACE("exp");
        CollateFixture f = base();
        with_expansions(f);
        ASSERT_EQ(nus_test::load_collate(loc, f), 0);
        check_against_general(loc, "aes\xe6\xdf\xe9- ");
    }
    {
        SCOPED_TRACE("elem");
        CollateFixture f = base();
        with_elements(f);
        ASSERT_EQ(nus_test::load_collate(loc, f), 0);
        check_against_general(loc, "chlCd\xe1-");
    }
    {
        SCOPED_TRACE("exp_elem");
        CollateFixture f = base();
        with_expansions(f);
        with_elements(f);
        ASSERT_EQ(nus_test::load_collate(loc, f), 0);
        check_against_general(loc, "chls\xe6\xdf" "e-");
    }
}

TEST(SingleByte, TheForwardPassBreaksCodeTiesByTheFollowingBytes) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    CollateFixture f;
    f.map("ab", f.row({0x8005}));
    f.map("xy", f.row({9}));
    ASSERT_EQ(nus_test::load_collate(loc, f), 0);
    ASSERT_EQ(loc.h->collate, _nu_is_mbscoll_back);
    // a and b tie; the bytes after them (both x) are equal, so the walk goes on.
    EXPECT_EQ(_nu_is_mbscoll_back(loc, u("ax"), u("bx")), 0);
    EXPECT_EQ(_nu_is_mbscoll_back(loc, u("ax"), u("by")), -1);
    // The general comparison looks at the characters themselves.
    EXPECT_EQ(_nu_im_mbscoll(loc, u("ax"), u("bx")), -1);
    // Backward, the characters decide.
    f.directions = {2};
    ASSERT_EQ(nus_test::load_collate(loc, f), 0);
    EXPECT_EQ(_nu_is_mbscoll_back(loc, u("xa"), u("xb")), -1);
}

TEST(SingleByte, LengthsAreCheckedAndRespected) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    CollateFixture f = base();
    with_expansions(f);
    with_elements(f);
    ASSERT_EQ(nus_test::load_collate(loc, f), 0);
    for (CountedFn fn : {_tsn_nu_is_mbfscoll_back, _tsn_nu_is_mbfscoll_exp, _tsn_nu_is_mbfscoll_elem,
                         _tsn_nu_is_mbfscoll_exp_elem}) {
        *_nu_ext_errno(loc) = 0;
        EXPECT_EQ(fn(loc, u("a"), -1, u("b"), 1), 0);
        EXPECT_EQ(loc.error(), NU_ELENGTHS);
        // An element is not taken across the end of a counted string.
        EXPECT_EQ(sign(fn(loc, u("ch"), 1, u("c"), 1)), 0);
        EXPECT_EQ(sign(fn(loc, u("abc"), 2, u("abd"), 2)), 0);
        EXPECT_EQ(sign(fn(loc, u("abc"), 3, u("abd"), 2)), 1);
    }
}

TEST(SingleByte, AFixtureLocaleWithABackwardLevelUsesTheBackVariant) {
    NUS_LOAD_OR_SKIP(loc, "de_de/0333.lco");
    EXPECT_EQ(loc.h->collate, _nu_is_mbscoll_back);
    // Case is tertiary, accents secondary (walked backward), the ignorable control bytes
    // count nowhere.
    EXPECT_LT(nu_full_mbscoll(loc, u("abc"), u("Abc")), 0);
    EXPECT_LT(nu_full_mbscoll(loc, u("Abc"), u("abd")), 0);
    EXPECT_EQ(nu_full_mbscoll(loc, u("a\x01" "b"), u("ab")), 0);
    EXPECT_LT(nu_full_mbscoll(loc, u("\xe4" "a"), u("a\xe4")), 0);   // the last accent decides
    EXPECT_LT(nu_full_mbscoll(loc, u("stra\xdf" "e"), u("strasse")), 0);
}

// ---- code order ----------------------------------------------------------------------------

TEST(CodeOrder, WideComparisons) {
    const auto abc = wide("abc"), abd = wide("abd"), abcde = wide("abcde");
    EXPECT_EQ(nu_wcscmp(abc.data(), abd.data()), -1);
    EXPECT_EQ(nu_wcsncmp(abc.data(), abd.data(), 3), -1);
    EXPECT_EQ(nu_wcsncmp(abc.data(), abd.data(), 2), 0);
    const nu_wchar far1[] = {'a', 0x3042, 0}, far2[] = {'a', 0x41, 0};
    EXPECT_EQ(nu_wcsncmp(far1, far2, 2), 0x3042 - 0x41);
    EXPECT_EQ(_tsn_nu_wcfscmp(abc.data(), 3, abcde.data(), 5), -2);
    EXPECT_EQ(_tsn_nu_wcfscmp(abd.data(), 3, abcde.data(), 5), 1);
}

TEST(CodeOrder, MultibyteComparisons) {
    NUS_LOAD_OR_SKIP(loc, "ja_jp/13ba.lco");
    // A one-byte character sorts before any two-byte one, whatever the bytes.
    EXPECT_LT(nu_full_mbscmp(loc, u("\x7f"), u("\xa4\xa2")), 0);
    EXPECT_GT(nu_full_mbscmp(loc, u("a\xa4\xa2"), u("aa")), 0);
    EXPECT_LT(nu_full_mbscmp(loc, u("\xa4\xa1"), u("\xa4\xa2")), 0);
    EXPECT_EQ(nu_full_mbscmp(loc, u("a\xa4\xa2"), u("a\xa4\xa2")), 0);
    EXPECT_LT(nu_full_mbscmp(loc, u("a"), u("ab")), 0);
    EXPECT_EQ(_tsn_nu_mbscmp(loc, u("abc"), 2, u("abd"), 2), 0);
    EXPECT_EQ(_tsn_nu_mbscmp(loc, u("abc"), 3, u("ab"), 2), 1);
    EXPECT_EQ(_tsn_nu_mbscmp(loc, u("abc"), -1, u("abcde"), -1), -2);
    EXPECT_EQ(_tsn_nu_mbscmp(loc, u("b"), -1, u("abcde"), -1), 1);
    EXPECT_EQ(_tsn_nu_mbscmp(loc, u("b"), 1, u("a"), -1), 0);
    EXPECT_EQ(loc.error(), NU_ELENGTHS);
    EXPECT_EQ(nu_full_mbsncmp(loc, u("\xa4\xa2x"), u("\xa4\xa2y"), 1), 0);
    EXPECT_EQ(nu_full_mbsncmp(loc, u("\xa4\xa2x"), u("\xa4\xa2y"), 2), -1);
    EXPECT_EQ(nu_full_mbsncmp(loc, u("ab"), u("abc"), 5), -1);
    const unsigned char bad[] = {'a', 0xA4, 0x20, 0};
    EXPECT_EQ(nu_full_mbsncmp(loc, bad, u("abc"), 3), 0);
    EXPECT_EQ(loc.error(), NU_EILSEQ);
}

} // namespace
