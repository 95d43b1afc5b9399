// The COLLATE section's reader: methods, the derived lists, copies, and malformed sections.
#include "collate/collate_test_util.h"

#include <gtest/gtest.h>

#include <set>

namespace {

using nus_test::CollateFixture;
using nus_test::u;

std::set<std::string> ignorables(nu_locale_t h) {
    std::set<std::string> out;
    if (h->coll.ignorables != nullptr)
        for (char **p = h->coll.ignorables; *p != nullptr; ++p) out.insert(*p);
    return out;
}

TEST(ReadCollate, MethodLines) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    EXPECT_EQ(nus_test::load_collate(loc, "thai_smo\n"), 0);
    EXPECT_EQ(loc.h->coll.method, 2);
    // The newline belongs to the comparison: a line cut at 127 bytes is no method.
    *_nu_ext_errno(loc) = 0;
    EXPECT_EQ(nus_test::load_collate(loc, "thai_smo" + std::string(130, ' ')), -1);
    EXPECT_EQ(loc.h->coll.method, 0);
    EXPECT_EQ(loc.error(), 0);
    EXPECT_EQ(nus_test::load_collate(loc, "as_specified"), -1);
}

TEST(ReadCollate, WithoutElementsTheirArraysStayNull) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    CollateFixture f;
    f.map("ab", f.row({2}));
    ASSERT_EQ(nus_test::load_collate(loc, f), 0);
    EXPECT_EQ(loc.h->coll.elements, nullptr);
    EXPECT_EQ(loc.h->coll.elem_candidates, nullptr);
    EXPECT_EQ(loc.h->element_count, 0);
    f.elements = {{{'a', 'b'}, 0}, {{0x3042, 'b'}, 0}};
    ASSERT_EQ(nus_test::load_collate(loc, f), 0);
    EXPECT_EQ(loc.h->coll.elem_candidates['a'], 1);
    EXPECT_EQ(loc.h->coll.elem_candidates['b'], 0);
    EXPECT_EQ(loc.h->coll.longest_sequence, 2);
}

TEST(ReadCollate, IgnorableRowsListTheirCharactersElementsAndExpansions) {
    NUS_LOAD_OR_SKIP(loc, "ja_jp/13ba.lco");
    CollateFixture f;
    f.directions = {1, 1};
    f.map("ab", f.row({2, 2}));
    const uint16_t ignorable = f.row({1, 1});
    f.map("-.", ignorable);
    f.chars.emplace_back("\xa1\xa2", ignorable);
    f.elements = {{{'x', 'y'}, ignorable}};
    f.map("xy", f.row({3, 2}));
    ASSERT_EQ(nus_test::load_collate(loc, f), 0);
    EXPECT_EQ(ignorables(loc), (std::set<std::string>{"-", ".", "\xa1\xa2", "xy"}));
    EXPECT_EQ(loc.h->coll.equivalents[0].member, nullptr);
}

TEST(ReadCollate, RowsWithEqualWeightsFormOneClassRepresentedByTheLastCharacter) {
    NUS_LOAD_OR_SKIP(loc, "ja_jp/13ba.lco");
    CollateFixture f;
    f.directions = {1, 2};
    f.row({30, 30});   // the default row of the bytes the fixture does not list
    f.map("a", f.row({5, 3}));
    f.map("b", f.row({5, 3}));
    f.map("c", f.row({5, 3}));
    f.map("d", f.row({5, 4}));
    f.map("ef", f.row({0x8006, 2}));   // a tie-break row is never in a class
    f.map("g", f.row({0x8006, 2}));
    ASSERT_EQ(nus_test::load_collate(loc, f), 0);
    const nus::EquivPair *p = loc.h->coll.equivalents;
    ASSERT_NE(p, nullptr);
    ASSERT_NE(p[0].member, nullptr);
    ASSERT_NE(p[1].member, nullptr);
    EXPECT_STREQ(p[0].member, "a");
    EXPECT_STREQ(p[0].representative, "c");
    EXPECT_STREQ(p[1].member, "b");
    EXPECT_EQ(p[1].representative, p[0].representative);
    EXPECT_EQ(p[2].member, nullptr);
    EXPECT_TRUE(ignorables(loc).empty());
}

TEST(ReadCollate, WeightsOnlyDerivesNothing) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    CollateFixture f;
    f.weights_only = 1;
    f.map("ab", f.row({5}));
    f.map("-", f.row({1}));
    f.map("c", f.row({5}));
    ASSERT_EQ(nus_test::load_collate(loc, f), 0);
    EXPECT_EQ(loc.h->coll.ignorables, nullptr);
    EXPECT_EQ(loc.h->coll.equivalents, nullptr);
    EXPECT_EQ(nu_full_mbscoll(loc, u("a-"), u("c")), 0);
}

TEST(ReadCollate, ExpansionCandidatesPerLevel) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    CollateFixture f;
    f.directions = {1, 1};
    f.map("ab", f.row({2, 2}));
    f.expansions = {{'a', 'b'}, {'b', 'a', 'b'}};
    f.map("X", f.row({0x4001, 3}));
    ASSERT_EQ(nus_test::load_collate(loc, f), 0);
    EXPECT_EQ(loc.h->coll.exp_candidates[0]['X'], &loc.h->coll.expansions[1]);
    EXPECT_EQ(loc.h->coll.exp_candidates[1]['X'], nullptr);
    EXPECT_EQ(loc.h->coll.exp_candidates[2], nullptr);
    EXPECT_EQ(loc.h->coll.longest_sequence, 3);
}

TEST(ReadCollate, CopiedCollationIsSharedAndUsable) {
    NUS_LOAD_OR_SKIP(src, "de_de/0333.lco");
    nu_locale_t dst = nullptr;
    ASSERT_EQ(nu_create_null_locale_4(&dst), 0);
    ASSERT_EQ(nu_copy_cat(dst, src, NU_CTYPE), 0);
    ASSERT_EQ(nu_copy_cat(dst, src, NU_COLLATE), 0);
    EXPECT_EQ(dst->coll.table, src.h->coll.table);
    EXPECT_EQ(dst->collate, _nu_is_mbscoll_back);
    EXPECT_LT(nu_full_mbscoll(dst, u("abc"), u("Abc")), 0);
    nu_free_nonshared_loc(dst);
    EXPECT_LT(nu_full_mbscoll(src, u("abc"), u("Abc")), 0);
}

// Malformed sections fail with 11 and leave a handle that still compares safely.
TEST(ReadCollate, MalformedSectionsAreRefused) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    CollateFixture f;
    f.directions = {1, 1};
    f.map("ab", f.row({2, 2}));
    f.map("c", f.row({3, 0x4000}));
    f.expansions = {{'a', 'b'}};
    f.elements = {{{'a', 'b'}, 0}};
    const std::string good = f.text();
    ASSERT_EQ(nus_test::load_collate(loc, good), 0);
    const size_t counts = good.find("0 1 2 1 1 3");
    ASSERT_NE(counts, std::string::npos);
    auto with_counts = [&](const std::string &c) {
        return good.substr(0, counts) + c + good.substr(good.find('\n', counts));
    };
    const std::vector<std::string> bad = {
        with_counts("0 1 0 1 1 3"),        // no level
        with_counts("0 1 9 1 1 3"),        // nine levels
        with_counts("0 -1 2 1 1 3"),       // no row
        with_counts("0 70000 2 1 1 3"),    // more rows than 16 bits number
        with_counts("0 1 2 1 0 3"),        // a weight references a missing expansion
        with_counts("0 1 2 1 1 -3"),
        with_counts("0 1 2 x 1 3"),
        good.substr(0, good.size() - 8),   // cut inside the weights
    };
    for (size_t i = 0; i < bad.size(); ++i) {
        *_nu_ext_errno(loc) = 0;
        EXPECT_EQ(nus_test::load_collate(loc, bad[i]), -1) << i;
        EXPECT_EQ(loc.error(), NU_EBADFILE) << i;
        EXPECT_EQ(nu_full_mbscoll(loc, u("abc"), u("cab")), nu_full_mbscoll(loc, u("abc"), u("cab")));
        unsigned char k[64];
        EXPECT_GE(nu_full_mbsxfrm(loc, k, u("abc"), sizeof k), -1);
    }
    // Element records: a count of 0, a row beyond the last.
    std::string zero = good;
    zero.replace(zero.find("20000 "), 6, "00000 ");
    EXPECT_EQ(nus_test::load_collate(loc, zero), -1);
    std::string far = good;
    far.replace(far.find("20000 "), 6, "20009 ");
    EXPECT_EQ(nus_test::load_collate(loc, far), -1);
}

// Random damage to a section with every feature: the load succeeds or fails, and whatever
// was loaded compares, makes keys and finds bounds without reading out of bounds (the
// sanitizer build checks that).
TEST(ReadCollate, DamagedSectionsNeverBreakTheFunctions) {
    NUS_LOAD_OR_SKIP(loc, "ja_jp/13ba.lco");
    CollateFixture f;
    f.directions = {1, 2, 1};
    f.map("abcd", f.row({2, 2, 2}));
    f.map("e", f.row({0x4000, 0x4000, 0x4000}));
    f.map("f", f.row({0x8003, 0x4001, 2}));
    f.map("-", f.row({1, 1, 1}));
    f.chars.emplace_back("\xb0\xa1", f.row({7, 2, 3}));
    f.expansions = {{'a', 'e', 'b'}, {'f', 'f'}};
    f.elements = {{{'c', 'd'}, 1}, {{'c', 'd', 'e'}, 2}};
    const std::string good = f.text();
    const std::string hex = "0123456789abcdef \n-";
    std::mt19937 rng(1);
    int loaded = 0;
    for (int i = 0; i < 1500; ++i) {
        std::string text = good;
        for (int k = 1 + static_cast<int>(rng() % 3); k > 0; --k)
            text[rng() % text.size()] = hex[rng() % hex.size()];
        if (nus_test::load_collate(loc, text) == 0) ++loaded;
        for (const char *s : {"abcde", "cdef-\xb0\xa1", "e", "ffe", ""}) {
            unsigned char k[64];
            nu_full_mbscoll(loc, u(s), u("dcba"));
            nu_full_mbsxfrm(loc, k, u(s), sizeof k);
            nu_full_mbsxfrm(loc, k, u(s), 3);
        }
    }
    EXPECT_GT(loaded, 0);
}

} // namespace
