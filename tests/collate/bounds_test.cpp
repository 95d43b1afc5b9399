// Pass directions, collating-element classes, primary keys, neighbours in primary order and
// the bounds of prefix searches, on hand-made tables and in a generated UTF-8 locale.
#include "support/utf8.h"
#include "collate/collate_test_util.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <set>

namespace {

using nus_test::CollateFixture;
using nus_test::u;

// Row 0 (where every byte without a row of its own lands) is ignorable; letters a..f have
// primary weights 10, 20, ... and a second level; á (0xE1) is a with an accent, Á (0xC1) too,
// listed after it in byte order only. Optionally the contraction "ch" between c and d, and X
// (0x58) expanding to "ab".
CollateFixture alphabet(bool with_ch, bool with_expansion) {
    CollateFixture f;
    f.directions = {1, 1};
    f.row({1, 1});
    for (char c = 'a'; c <= 'f'; ++c)
        f.map(std::string(1, c), f.row({static_cast<uint16_t>(10 * (c - 'a' + 1)), 5}));
    f.map("\xE1\xC1", f.row({10, 6}));
    if (with_ch) f.elements.push_back({{'c', 'h'}, f.row({35, 5})});
    if (with_expansion) {
        f.expansions = {{'a', 'b'}};
        f.map("X", f.row({0x4000, 0x4000}));
    }
    return f;
}

std::string primaryKey(nu_locale_t h, const std::string &s) {
    std::string k = nus_test::key(h, s);
    k.resize(std::strlen(k.c_str()));   // the sort key without its terminator
    std::vector<unsigned char> buffer(k.begin(), k.end());
    buffer.push_back(0);
    EXPECT_EQ(nu_get_prim_coll_weight(buffer.data()), 0);
    return reinterpret_cast<char *>(buffer.data());
}

struct Result {
    int r;
    std::string text;
    int error;
};

Result next(nu_locale_t h, const std::string &s, int whole = 1) {
    unsigned char out[64] = {};
    *_nu_ext_errno(h) = 0;
    const int r = nu_nextprimweight(h, u(s), whole, out);
    return {r, reinterpret_cast<char *>(out), *_nu_ext_errno(h)};
}

Result prev(nu_locale_t h, const std::string &s, int whole = 1) {
    unsigned char out[64] = {};
    *_nu_ext_errno(h) = 0;
    const int r = nu_prevprimweight(h, u(s), whole, out);
    return {r, reinterpret_cast<char *>(out), *_nu_ext_errno(h)};
}

Result bound(nu_locale_t h, const std::string &s, int upper, int size = 64) {
    // Eight guard bytes after the room, then a zero that ends the text of a failed call.
    std::vector<unsigned char> out(static_cast<size_t>(size) + 9, 0x55);
    out.back() = 0;
    *_nu_ext_errno(h) = 0;
    const int r = nu_mbsCollBound(h, u(s), upper, out.data(), size);
    // Nothing is written past the room given, whatever the outcome.
    EXPECT_TRUE(std::all_of(out.begin() + size, out.end() - 1, [](unsigned char c) { return c == 0x55; }))
        << "bound of \"" << s << "\" wrote past " << size << " bytes";
    return {r, reinterpret_cast<char *>(out.data()), *_nu_ext_errno(h)};
}

int lastError(nu_locale_t h) { return *_nu_ext_errno(h); }

TEST(Bounds, PassDirections) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    CollateFixture f = alphabet(false, false);
    f.directions = {1, 2, 3};
    for (auto &weights : f.rows) weights.push_back(weights.back());
    ASSERT_EQ(nus_test::load_collate(loc, f), 0);
    EXPECT_EQ(nu_getpassdirection(loc, 1), 1);
    EXPECT_EQ(nu_getpassdirection(loc, 2), 2);
    for (auto [level, error] : {std::pair{3, NU_ECODESET}, {0, NU_ENOWIDTH}, {4, NU_ENOWIDTH},
                                {-1, NU_ENOWIDTH}}) {
        *_nu_ext_errno(loc) = 0;
        EXPECT_EQ(nu_getpassdirection(loc, level), -1) << level;
        EXPECT_EQ(lastError(loc), error) << level;
    }
    EXPECT_EQ(nu_getpassdirection(nullptr, 1), -1);
    EXPECT_EQ(nu_IsSpecialLocale(loc), 0);
    CollateFixture thai;
    thai.method = "thai_smo";
    ASSERT_EQ(nus_test::load_collate(loc, thai), 0);
    *_nu_ext_errno(loc) = 0;
    EXPECT_EQ(nu_getpassdirection(loc, 1), -1);
    EXPECT_EQ(lastError(loc), NU_EBADCONV);
}

TEST(Bounds, ElementClasses) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    CollateFixture f = alphabet(true, false);
    f.elements.push_back({{'a', 'b', 'c'}, f.row({15, 5})});
    f.elements.push_back({{'a', 'b'}, f.row({16, 5})});   // listed later: "ab" is a prefix first
    ASSERT_EQ(nus_test::load_collate(loc, f), 0);
    auto cls = [&](const char *s) { return nu_iscompchar(loc, u(s)); };
    EXPECT_EQ(cls("c"), 3);
    EXPECT_EQ(cls("ch"), 2);
    EXPECT_EQ(cls("h"), 1);
    EXPECT_EQ(cls("chh"), 1);
    EXPECT_EQ(cls("a"), 3);
    EXPECT_EQ(cls("ab"), 3);   // the first element in table order decides
    EXPECT_EQ(cls("abc"), 2);
    EXPECT_EQ(cls(""), 1);
    *_nu_ext_errno(loc) = 0;
    EXPECT_EQ(nu_iscompchar(loc, nullptr), -1);
    EXPECT_EQ(lastError(loc), NU_EBADARG);
    EXPECT_EQ(nu_iscompchar(nullptr, u("a")), -1);
}

TEST(Bounds, PrimaryKeyIsTheFirstLevel) {
    unsigned char key[] = "\x05\x07\x01\x09\x01\x04";
    EXPECT_EQ(nu_get_prim_coll_weight(key), 0);
    EXPECT_STREQ(reinterpret_cast<char *>(key), "\x05\x07");
    EXPECT_EQ(key[3], 0x09);   // only the first separator is touched
    unsigned char single[] = "\x05\x07";
    nu_get_prim_coll_weight(single);
    EXPECT_STREQ(reinterpret_cast<char *>(single), "\x05\x07");

    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    ASSERT_EQ(nus_test::load_collate(loc, alphabet(false, false)), 0);
    EXPECT_EQ(primaryKey(loc, "a"), primaryKey(loc, "\xE1"));
    EXPECT_NE(nus_test::key(loc, "a"), nus_test::key(loc, "\xE1"));
}

TEST(Bounds, NeighboursSkipCharactersOfTheSamePrimaryWeight) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    ASSERT_EQ(nus_test::load_collate(loc, alphabet(false, false)), 0);
    Result r = next(loc, "a");
    EXPECT_EQ(r.r, 1);
    EXPECT_EQ(r.text, "b");   // not the accented forms of a
    EXPECT_EQ(next(loc, "\xE1").text, "b");
    r = prev(loc, "b");
    EXPECT_EQ(r.text, "a");   // the first of a, á, Á in byte order
    EXPECT_EQ(next(loc, "e").text, "f");
    // Nothing above the top; below the bottom only the ignorable characters, whose primary
    // key is empty, the first of them in byte order.
    r = next(loc, "f");
    EXPECT_EQ(r.r, -2);
    EXPECT_EQ(r.error, 0);
    EXPECT_EQ(prev(loc, "a").text, "\x01");
    EXPECT_EQ(prev(loc, "\x01").r, -2);
}

TEST(Bounds, BoundsReplaceTheLastUnit) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    ASSERT_EQ(nus_test::load_collate(loc, alphabet(false, false)), 0);
    Result r = bound(loc, "cab", 1);
    EXPECT_EQ(r.r, 3);
    EXPECT_EQ(r.text, "cac");
    r = bound(loc, "cab", 0);
    EXPECT_EQ(r.text, "caa");
    // The top character has no upper neighbour: s is handed back.
    r = bound(loc, "af", 1);
    EXPECT_EQ(r.r, -2);
    EXPECT_EQ(r.text, "af");
    // The sort key of a bound is the key of that text.
    unsigned char key[64] = {};
    const int n = nu_mbsSortKeyCollBound(loc, u("cab"), 1, key, sizeof key);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(key), static_cast<size_t>(n)),
              nus_test::key(loc, "cac"));
    EXPECT_EQ(nu_mbsSortKeyCollBound(loc, u("af"), 1, key, sizeof key),
              static_cast<int>(nus_test::key(loc, "af").size()));
    // The text may be given in the output buffer itself.
    unsigned char inplace[16] = "cab";
    EXPECT_EQ(nu_mbsCollBound(loc, inplace, 0, inplace, sizeof inplace), 3);
    EXPECT_STREQ(reinterpret_cast<char *>(inplace), "caa");
}

TEST(Bounds, TheChContractionIsOneUnit) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    ASSERT_EQ(nus_test::load_collate(loc, alphabet(true, false)), 0);
    // "ch" sorts between c and d and is replaced as a whole.
    EXPECT_EQ(bound(loc, "ach", 1).text, "ad");
    EXPECT_EQ(bound(loc, "ach", 0).text, "ac");
    EXPECT_EQ(bound(loc, "ad", 0).text, "ach");
    EXPECT_EQ(bound(loc, "ad", 0).r, 3);
    // c followed by a character that forms no element: the text ends in that character.
    EXPECT_EQ(bound(loc, "aca", 1).text, "acb");
    EXPECT_EQ(bound(loc, "acha", 0).text, "ach\x01");
    // A text ending in c, which begins "ch": the upper bound lies beyond "ch", the lower one
    // below c.
    EXPECT_EQ(bound(loc, "ac", 1).text, "ad");
    EXPECT_EQ(bound(loc, "ac", 0).text, "ab");
    EXPECT_EQ(next(loc, "c", 0).text, "d");
    EXPECT_EQ(prev(loc, "d").text, "ch");
    EXPECT_EQ(prev(loc, "d").r, 1);   // the length of the element's first character
    EXPECT_EQ(next(loc, "ch").text, "d");
    // whole must say whether s begins an element.
    EXPECT_EQ(next(loc, "c", 1).error, NU_EBADVAL);
    EXPECT_EQ(next(loc, "a", 0).error, NU_EBADVAL);
    EXPECT_EQ(next(loc, "ch", 0).error, NU_EBADVAL);
}

TEST(Bounds, AnElementSortedBelowItsFirstCharacterIsPassedOver) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    CollateFixture f = alphabet(false, false);
    f.elements.push_back({{'c', 'h'}, f.row({15, 5})});   // between a and b
    ASSERT_EQ(nus_test::load_collate(loc, f), 0);
    EXPECT_EQ(next(loc, "c", 0).text, "d");
    // Texts beginning with c reach down to "ch": the lower bound lies below it.
    EXPECT_EQ(prev(loc, "c", 0).text, "a");
    EXPECT_EQ(next(loc, "a").text, "ch");
    EXPECT_EQ(prev(loc, "b").text, "ch");
}

TEST(Bounds, ExpansionKeysAreNeverNeighbours) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    ASSERT_EQ(nus_test::load_collate(loc, alphabet(false, true)), 0);
    // X weighs like "ab", whose primary key lies between a and b.
    EXPECT_EQ(primaryKey(loc, "X"), primaryKey(loc, "ab"));
    EXPECT_GT(primaryKey(loc, "X"), primaryKey(loc, "a"));
    EXPECT_LT(primaryKey(loc, "X"), primaryKey(loc, "b"));
    EXPECT_EQ(next(loc, "a").text, "b");
    EXPECT_EQ(prev(loc, "b").text, "a");
    EXPECT_EQ(next(loc, "X").text, "b");
    EXPECT_EQ(prev(loc, "X").text, "a");
}

TEST(Bounds, Failures) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    ASSERT_EQ(nus_test::load_collate(loc, alphabet(true, false)), 0);
    unsigned char out[8];
    *_nu_ext_errno(loc) = 0;
    EXPECT_EQ(nu_mbsCollBound(loc, nullptr, 1, out, 8), -1);
    EXPECT_EQ(lastError(loc), NU_EBADARG);
    *_nu_ext_errno(loc) = 0;
    EXPECT_EQ(nu_mbsCollBound(loc, u("a"), 1, nullptr, 8), -1);
    EXPECT_EQ(lastError(loc), NU_EBADARG);
    *_nu_ext_errno(loc) = 0;
    EXPECT_EQ(nu_nextprimweight(loc, nullptr, 1, out), -1);
    EXPECT_EQ(lastError(loc), NU_EBADARG);
    EXPECT_EQ(nu_nextprimweight(nullptr, u("a"), 1, out), -1);
    // The copy of s must fit before the last byte of out, and so must the bound.
    EXPECT_EQ(bound(loc, "abc", 1, 3).error, NU_E2BIG);
    EXPECT_EQ(bound(loc, "abc", 1, 4).r, 3);
    Result r = bound(loc, "ad", 0, 3);
    EXPECT_EQ(r.r, -1);
    EXPECT_EQ(r.error, NU_E2BIG);
    EXPECT_EQ(bound(loc, "ad", 0, 4).text, "ach");
    // The empty string has no unit to replace: out holds it, when its terminator fits.
    r = bound(loc, "", 1, 0);
    EXPECT_EQ(r.r, -1);
    EXPECT_EQ(r.error, NU_E2BIG);
    r = bound(loc, "", 0, 1);
    EXPECT_EQ(r.r, -2);
    EXPECT_EQ(r.text, "");

    // A null handle: error 12 in the slot for calls without a handle, when there is one.
    static int no_handle_slot = 0;
    nus_test::ExtTableGuard guard;
    nu_setextfunc(nullptr, NU_EXT_ERRNO, reinterpret_cast<nu_extfunc>(+[](void *h) -> int * {
                      return h != nullptr ? static_cast<int *>(h) : &no_handle_slot;
                  }));
    EXPECT_EQ(nu_mbsCollBound(nullptr, u("a"), 1, out, 8), -1);
    EXPECT_EQ(no_handle_slot, NU_ECODESET);
    no_handle_slot = 0;
    EXPECT_EQ(nu_mbsSortKeyCollBound(nullptr, u("a"), 1, out, 8), -1);
    EXPECT_EQ(no_handle_slot, NU_ECODESET);
}

// In a code set of two-byte characters a string is measured to its two zero bytes, not to its
// first zero byte: the bound of a long text fits its scratch block, and the Thai unit tests,
// which look at a string's last bytes, stay inside it.
TEST(Bounds, TwoByteCharacters) {
    NUS_LOAD_OR_SKIP(loc, "uc_uc/e005.lco");
    std::string text;
    for (int i = 0; i < 300; ++i) text += std::string("\0a", 2);
    text += std::string("\0\0", 2);
    std::vector<unsigned char> key(8192);
    EXPECT_GT(nu_mbsSortKeyCollBound(loc, u(text), 1, key.data(), 8192), 0) << lastError(loc);
    const std::string two = text.substr(text.size() - 6);
    EXPECT_EQ(nu_iscompchar_thai(loc, u(two)), 1);
    unsigned char out[16];
    EXPECT_NE(nu_primweight_thai(loc, u(two), 1, out, 1), -1);
}

TEST(Bounds, ScratchBlocksThatCannotBeHadFailWithNoMemory) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    ASSERT_EQ(nus_test::load_collate(loc, alphabet(false, false)), 0);
    const std::string longText(600, 'a');
    std::vector<unsigned char> key(4096);
    ASSERT_GT(nu_mbsSortKeyCollBound(loc, u(longText), 1, key.data(), 4096), 0);   // cache warm
    {
        nus_test::CountingAllocator counting;
        counting.fail_from(1);
        *_nu_ext_errno(loc) = 0;
        EXPECT_EQ(nu_mbsSortKeyCollBound(loc, u(longText), 1, key.data(), 4096), -1);
        EXPECT_EQ(lastError(loc), NU_ENOMEM);
        EXPECT_EQ(counting.live, 0);
    }
    // A handle whose cache cannot be built fails, and tries again next time.
    nus_test::TestLocale other("xx_yy/0333.lco");
    ASSERT_NE(other.h, nullptr);
    ASSERT_EQ(nus_test::load_collate(other, alphabet(false, true)), 0);
    for (long n = 1; n < 8; ++n) {
        nus_test::CountingAllocator counting;
        counting.fail_from(n);
        *_nu_ext_errno(other) = 0;
        const Result r = next(other, "a");
        if (r.r == -1) {
            EXPECT_EQ(r.error, NU_ENOMEM) << n;
        }
        EXPECT_EQ(other.h->coll.bound_cache == nullptr, r.r == -1) << n;
        nus::free_bound_cache(other.h);   // with the sort-key cache that the bound's key built
        EXPECT_EQ(counting.live, 0) << n;
    }
    EXPECT_EQ(next(other, "a").text, "b");
}

TEST(Bounds, MultibyteNeighboursReportTheirFirstCharactersLength) {
    NUS_LOAD_OR_SKIP(loc, "ja_jp/13ba.lco");
    CollateFixture f = alphabet(false, false);
    f.chars.emplace_back("\xb0\xa1", f.row({65, 5}));
    f.chars.emplace_back("\xb0\xa3", f.row({65, 6}));
    ASSERT_EQ(nus_test::load_collate(loc, f), 0);
    Result r = next(loc, "f");
    EXPECT_EQ(r.r, 2);
    EXPECT_EQ(r.text, "\xb0\xa1");
    EXPECT_EQ(prev(loc, "\xb0\xa3").text, "f");
    r = bound(loc, "a\xb0\xa3", 0);
    EXPECT_EQ(r.r, 2);
    EXPECT_EQ(r.text, "af");
    EXPECT_EQ(bound(loc, "\xb0\xa3", 1).r, -2);
}

// Every neighbour is the nearest: no character's primary key lies strictly between a unit's
// and its neighbour's (expansions apart); and every text that begins with a prefix sorts
// between the prefix's lower and upper bound.
TEST(Bounds, NeighboursAreNearestAndBoundsEncloseThePrefix) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    CollateFixture f = alphabet(true, true);
    f.map("gG\xE7", f.row({60, 5}));
    f.map("h", f.row({70, 5}));
    f.map("\xC7", f.row({60, 7}));
    f.map("\xF1", f.row({0x8000 | 45, 5}));   // its own code breaks ties
    f.map("\xF2", f.row({0x8000 | 45, 5}));
    ASSERT_EQ(nus_test::load_collate(loc, f), 0);
    std::vector<std::string> chars;
    for (int b = 1; b < 256; ++b) chars.emplace_back(1, static_cast<char>(b));
    const std::string expansionKey = primaryKey(loc, "X");
    std::vector<std::string> units = chars;
    units.push_back("ch");
    for (const std::string &s : units) {
        const std::string k = primaryKey(loc, s);
        const int whole = nu_iscompchar(loc, u(s)) == 3 ? 0 : 1;
        for (int direction : {1, 2}) {
            const Result n = direction == 1 ? next(loc, s, whole) : prev(loc, s, whole);
            ASSERT_NE(n.r, -1) << testing::PrintToString(s);
            if (n.r == -2) continue;
            const std::string nk = primaryKey(loc, n.text);
            const std::string lo = direction == 1 ? k : nk, hi = direction == 1 ? nk : k;
            if (whole == 0) continue;   // searched from beyond the elements it begins
            ASSERT_LT(lo, hi) << testing::PrintToString(s);
            for (const std::string &c : chars) {
                const std::string ck = primaryKey(loc, c);
                ASSERT_FALSE(ck > lo && ck < hi && ck != expansionKey)
                    << testing::PrintToString(s) << " " << direction << " "
                    << testing::PrintToString(c);
            }
        }
    }
    // Prefixes of letters (no ignorable last unit, whose key is empty).
    std::mt19937 rng(5);
    const std::string letters = "abcdefghX\xE1\xC1\xE7\xF1\xF2";
    for (int i = 0; i < 400; ++i) {
        const std::string s = nus_test::random_string(rng, letters, 1 + static_cast<int>(rng() % 4));
        const Result up = bound(loc, s, 1), low = bound(loc, s, 0);
        ASSERT_NE(up.r, -1) << testing::PrintToString(s);
        ASSERT_NE(low.r, -1) << testing::PrintToString(s);
        if (low.r >= 0) {
            ASSERT_LT(primaryKey(loc, low.text), primaryKey(loc, s));
        }
        if (up.r < 0) continue;
        for (int t = 0; t < 10; ++t) {
            const std::string text = s + nus_test::random_string(rng, letters, 1 + t % 3);
            ASSERT_LT(primaryKey(loc, text), primaryKey(loc, up.text))
                << testing::PrintToString(s) << " " << testing::PrintToString(text);
        }
    }
}

using nus_test::utf8_of;

// The primary key of one wide character (an expansion may name a carrier, which no
// multibyte text holds).
std::string primaryKeyOf(nu_locale_t h, nu_wchar wc) {
    const nu_wchar ws[2] = {wc, 0};
    std::vector<unsigned char> key(static_cast<size_t>(nu_wcsxfrm(h, nullptr, ws, 0)) + 1);
    nu_wcsxfrm(h, key.data(), ws, static_cast<int>(key.size()));
    EXPECT_EQ(nu_get_prim_coll_weight(key.data()), 0);
    return reinterpret_cast<char *>(key.data());
}

// In a generated locale the neighbours agree with primary keys taken from whole sort keys:
// for each of the first 12288 code points, its neighbours lie beyond it, and of those code
// points only characters that weigh like an expansion (never neighbours) lie strictly
// between a character and its neighbour.
TEST(Bounds, GeneratedNeighboursAreNearestAmongSortKeys) {
    NUS_LOAD_OR_SKIP(loc, "de_de.utf8");
    std::set<std::string> expansionKeys;
    for (int e = 0; e < loc.h->expansion_count; ++e) {
        std::string joined;
        const nus::CollExpansion &x = loc.h->coll.expansions[e];
        for (uint32_t i = 0; i < x.count; ++i) joined += primaryKeyOf(loc, x.chars[i]);
        expansionKeys.insert(joined);
    }
    std::vector<std::pair<std::string, std::string>> keyed;   // primary key, character
    for (uint32_t cp = 1; cp < 0x3000; ++cp) {
        const std::string c = utf8_of(cp);
        if (nu_full_mblen(loc, u(c), 4) != static_cast<int>(c.size())) continue;
        keyed.emplace_back(primaryKey(loc, c), c);
    }
    ASSERT_GT(keyed.size(), 10000u);
    std::sort(keyed.begin(), keyed.end());
    int between = 0;
    for (const auto &[sampleKey, s] : keyed) {
        if (nu_iscompchar(loc, u(s)) == 3) continue;   // begins an element: searched from it
        const std::string &k = sampleKey;
        for (int direction : {1, 2}) {
            const Result n = direction == 1 ? next(loc, s) : prev(loc, s);
            ASSERT_NE(n.r, -1) << testing::PrintToString(s);
            if (n.r == -2) continue;
            ASSERT_EQ(n.r, nu_full_mblen(loc, u(n.text), 4));
            const std::string nk = primaryKey(loc, n.text);
            const std::string lo = direction == 1 ? k : nk, hi = direction == 1 ? nk : k;
            ASSERT_LT(lo, hi) << testing::PrintToString(s) << " " << direction;
            auto it = std::lower_bound(keyed.begin(), keyed.end(), std::pair{lo, std::string()});
            for (; it != keyed.end() && it->first < hi; ++it) {
                if (it->first == lo) continue;
                ++between;
                ASSERT_EQ(expansionKeys.count(it->first), 1u)
                    << testing::PrintToString(s) << " " << direction << " "
                    << testing::PrintToString(it->second);
            }
        }
    }
    std::cout << "[ info     ] " << keyed.size() << " characters sampled, " << between
              << " expansion keys passed over, " << expansionKeys.size() << " expansions\n";
}

// A bound visits every character of the code set once per handle, then uses what it kept.
// Times are printed for the record, not checked.
void timeBounds(const char *name, const std::string &prefix, const std::vector<std::string> &words) {
    NUS_LOAD_OR_SKIP(loc, name);
    using Clock = std::chrono::steady_clock;
    auto ms = [](Clock::duration d) { return std::chrono::duration<double, std::milli>(d).count(); };
    unsigned char out[128];
    const auto t0 = Clock::now();
    ASSERT_GT(nu_mbsCollBound(loc, u(prefix), 1, out, sizeof out), 0) << lastError(loc);
    const auto t1 = Clock::now();
    const std::string upper = reinterpret_cast<char *>(out);
    ASSERT_GT(nu_mbsCollBound(loc, u(prefix), 0, out, sizeof out), 0) << lastError(loc);
    const auto t2 = Clock::now();
    const std::string lower = reinterpret_cast<char *>(out);
    for (const std::string &word : words) {
        if (word.compare(0, prefix.size(), prefix) == 0) {
            EXPECT_LT(primaryKey(loc, word), primaryKey(loc, upper)) << word;
        }
        EXPECT_GE(primaryKey(loc, word), primaryKey(loc, lower)) << word;
    }
    std::cout << "[ timing   ] " << name << " bounds of " << testing::PrintToString(prefix) << ": "
              << ms(t1 - t0) << " ms cold, " << ms(t2 - t1) << " ms warm; upper "
              << testing::PrintToString(upper) << ", lower " << testing::PrintToString(lower)
              << "\n";
}

TEST(Bounds, GeneratedLocales) {
    timeBounds("de_de.utf8", "Stra", {"Stra", "Straße", "Strauß", "Strasse", "Straßenbahn", "strab"});
    timeBounds("de_de.8859-1", "Stra", {"Stra", "Stra\xDF" "e", "Strau\xDF", "Strasse", "strab"});
}

} // namespace
