// The Thai method: comparison, sort keys, unit classes and the neighbour in primary order,
// on a single-byte handle whose COLLATE names the Thai method.
#include "collate/collate_test_util.h"

#include <gtest/gtest.h>

namespace {

using nus_test::sign;
using nus_test::u;

constexpr char kKoKai[] = "\xA1";     // the first consonant
constexpr char kKhoKhai[] = "\xA2";   // the second
constexpr char kSaraE[] = "\xE0";     // a leading vowel
constexpr char kMaiEk[] = "\xE8";     // a tone mark

int loadThai(nu_locale_t h) {
    nus_test::CollateFixture f;
    f.method = "thai_smo";
    return nus_test::load_collate(h, f);
}

int coll(nu_locale_t h, const std::string &a, const std::string &b) {
    return sign(_nu_thaismocoll(h, u(a), u(b)));
}

// The whole key of s, without its terminator.
std::string thaiKey(nu_locale_t h, const std::string &s) {
    unsigned char buffer[300] = {};
    const int n = _nu_thaismoxfrm(h, const_cast<unsigned char *>(u(s)), buffer, 256);
    return std::string(reinterpret_cast<char *>(buffer), static_cast<size_t>(std::min(n, 256)));
}

struct Neighbour {
    int result;
    std::string unit;
};

Neighbour neighbour(nu_locale_t h, const std::string &s, int whole, int direction) {
    unsigned char out[16] = {};
    const int r = nu_primweight_thai(h, u(s), whole, out, direction);
    return {r, reinterpret_cast<char *>(out)};
}

// Primary part of a key: the bytes before the tone list, i.e. the key of the text without
// its tone marks.
std::string withoutTones(const std::string &s) {
    std::string out;
    for (unsigned char c : s)
        if (c < 0xE7 || c > 0xEE) out.push_back(static_cast<char>(c));
    return out;
}

TEST(Thai, ConsonantsDecideBeforeVowelsAndTones) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    ASSERT_EQ(loadThai(loc), 0);
    const std::string ko = kKoKai, kho = kKhoKhai, e = kSaraE, ek = kMaiEk;
    // A leading vowel sorts by the consonant after it, and after the bare consonant.
    EXPECT_EQ(coll(loc, e + ko, ko), 1);
    EXPECT_EQ(coll(loc, e + ko, kho), -1);
    EXPECT_EQ(coll(loc, ko, e + ko), -1);
    EXPECT_EQ(coll(loc, e + ko, "\xE1" + ko), -1);   // same consonant: the vowels decide
    EXPECT_EQ(coll(loc, e + kho, "\xE1" + ko), 1);   // ... only then
    // A tone mark decides only when everything else is equal.
    EXPECT_EQ(coll(loc, ko + ek, ko), 1);
    EXPECT_EQ(coll(loc, ko, ko + ek), -1);
    EXPECT_EQ(coll(loc, ko + ek + ko, ko + kho), -1);
    EXPECT_EQ(coll(loc, ko + ek, ko + "\xE9"), -1);
    EXPECT_EQ(coll(loc, ko + "\xE9", ko + ek), 1);
    EXPECT_EQ(coll(loc, ko + "\xE9" + ko, ko + ek + kho), -1);
    // Trailing spaces do not count; other spaces do.
    EXPECT_EQ(coll(loc, ko + "  ", ko), 0);
    EXPECT_EQ(coll(loc, ko, ko + "  "), 0);
    EXPECT_EQ(coll(loc, ko + ek + " ", ko), 1);
    EXPECT_EQ(coll(loc, ko + " " + ko, ko), 1);
    EXPECT_EQ(coll(loc, ko, ko + " " + ko), -1);
    EXPECT_EQ(coll(loc, "", ""), 0);
}

TEST(Thai, CountedFormChecksOnlyThatTheLengthsAgree) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    ASSERT_EQ(loadThai(loc), 0);
    *_nu_ext_errno(loc) = 0;
    EXPECT_EQ(_tsn_nu_thaismoncoll(loc, u("\xA1"), -1, u("\xA2"), 1), 0);
    EXPECT_EQ(loc.error(), NU_ELENGTHS);
    *_nu_ext_errno(loc) = 0;
    // The lengths choose the form only: the texts are read to their ends.
    EXPECT_EQ(sign(_tsn_nu_thaismoncoll(loc, u("\xA1\xA1"), 1, u("\xA1\xA2"), 1)), -1);
    EXPECT_EQ(sign(_tsn_nu_thaismoncoll(loc, u("\xA1"), -1, u("\xA2"), -1)), -1);
    EXPECT_EQ(loc.error(), 0);
}

TEST(Thai, SortKeyMovesLeadingVowelsAndListsTones) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    ASSERT_EQ(loadThai(loc), 0);
    unsigned char out[8];
    std::memset(out, 0x55, sizeof out);
    // The tone's position counts the consonant and the vowel before it.
    EXPECT_EQ(_nu_thaismoxfrm(loc, const_cast<unsigned char *>(u("\xE0\xA1\xE8")), out, 8), 4);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(out), 8),
              std::string("\xA1\xE0\x03\x8F\0\0\0\0", 8));
    // Two leading vowels in a row: the second is written, then the first.
    EXPECT_EQ(thaiKey(loc, "\xE0\xE1\xA1"), "\xE1\xE0\xA1");
    // A vowel left pending at the end is written last.
    EXPECT_EQ(thaiKey(loc, "\xA1\xE0"), "\xA1\xE0");
    // Diacritics beyond the comparison's tone marks go to the tone list too; other codes of
    // the list are mapped (0xED -> 0x94), the main text keeps its bytes.
    EXPECT_EQ(thaiKey(loc, "\xA1\xD2\xED"), "\xA1\xD2\x03\x94");
    EXPECT_EQ(_nu_thaismoxfrm(loc, const_cast<unsigned char *>(u("\xA1\xA2")), nullptr, 0), 2);
    // Through the wide entry point.
    const nu_wchar wide[] = {0xE0, 0xA1, 0xE8, 0};
    unsigned char wout[8] = {};
    EXPECT_EQ(nu_wcsxfrm(loc, wout, wide, 8), 4);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(wout)), "\xA1\xE0\x03\x8F");
}

TEST(Thai, LongKeysAreCutAt256AndReportTheirFullLength) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    ASSERT_EQ(loadThai(loc), 0);
    const std::string text(300, '\xA1');
    std::vector<unsigned char> out(400, 0x55);
    EXPECT_EQ(_nu_thaismoxfrm(loc, const_cast<unsigned char *>(u(text)), out.data(), 400), 300);
    EXPECT_EQ(out[255], 0xA1);
    EXPECT_EQ(out[256], 0x55);   // nothing beyond 256 bytes, and no terminator
    // A short key is zero-padded to n.
    std::fill(out.begin(), out.end(), 0x55);
    EXPECT_EQ(_nu_thaismoxfrm(loc, const_cast<unsigned char *>(u("\xA1")), out.data(), 6), 1);
    EXPECT_EQ(out[1], 0);
    EXPECT_EQ(out[5], 0);
    EXPECT_EQ(out[6], 0x55);
    // Tones counted past the 256 bytes that are stored.
    std::string toned;
    for (int i = 0; i < 100; ++i) toned += "\xA1\xE8";
    EXPECT_EQ(_nu_thaismoxfrm(loc, const_cast<unsigned char *>(u(toned)), out.data(), 256), 300);
    // Tone positions are one byte: the 256th position wraps to 0 and ends the tone list.
    std::string wrapping(255, '\xA1');
    EXPECT_EQ(_nu_thaismoxfrm(loc, const_cast<unsigned char *>(u(wrapping + "\xE8")), nullptr, 0),
              255);
    EXPECT_EQ(_nu_thaismoxfrm(loc, const_cast<unsigned char *>(u(wrapping.substr(1) + "\xE8")),
                              nullptr, 0),
              256);
}

TEST(Thai, PrimaryOrderOfKeysAgreesWithTheComparison) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    ASSERT_EQ(loadThai(loc), 0);
    // Syllables: an optional leading vowel, a consonant, an optional tone mark.
    std::mt19937 rng(7);
    auto syllable = [&] {
        std::string s;
        if (rng() % 2) s += static_cast<char>(0xE0 + rng() % 5);
        s += static_cast<char>(0xA1 + rng() % 46);
        if (rng() % 3 == 0) s += static_cast<char>(0xE8 + rng() % 4);
        return s;
    };
    int decided = 0;
    for (int i = 0; i < 3000; ++i) {
        std::string a, b;
        for (int k = 1 + static_cast<int>(rng() % 3); k > 0; --k) a += syllable();
        if (rng() % 4 == 0) b = a;   // a shared start, so that later syllables decide
        for (int k = 1 + static_cast<int>(rng() % 3); k > 0; --k) b += syllable();
        if (withoutTones(a) == withoutTones(b)) continue;
        ++decided;
        ASSERT_EQ(coll(loc, a, b), sign(thaiKey(loc, a).compare(thaiKey(loc, b))))
            << testing::PrintToString(a) << " " << testing::PrintToString(b);
        ASSERT_EQ(coll(loc, a, b), -coll(loc, b, a));
    }
    EXPECT_GT(decided, 2000);
}

TEST(Thai, InstalledAsTheLocalesCollation) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    ASSERT_EQ(loadThai(loc), 0);
    EXPECT_EQ(nu_IsSpecialLocale(loc), 1);
    EXPECT_EQ(sign(nu_full_mbscoll(loc, u("\xE0\xA1"), u("\xA2"))), -1);
    EXPECT_EQ(sign(_tsn_nu_full_mbscoll(loc, u("\xA1\xE8"), -1, u("\xA1"), -1)), 1);
    const nu_wchar a[] = {0xE0, 0xA1, 0}, b[] = {0xA1, 0};
    EXPECT_EQ(sign(nu_full_wcscoll(loc, a, b)), 1);
}

TEST(Thai, UnitClasses) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    ASSERT_EQ(loadThai(loc), 0);
    auto cls = [&](const char *s) { return nu_iscompchar_thai(loc, u(s)); };
    EXPECT_EQ(cls("\xA1"), 2);       // consonant
    EXPECT_EQ(cls("\xCE"), 2);
    EXPECT_EQ(cls("\xE0"), 3);       // leading vowel waits for its consonant
    EXPECT_EQ(cls("\xE8"), 3);       // tone mark
    EXPECT_EQ(cls("\xED"), 1);       // not a tone mark for this purpose
    EXPECT_EQ(cls("a"), 1);
    EXPECT_EQ(cls("\xE0\xA1"), 2);
    EXPECT_EQ(cls("\xA1\xE0"), 3);
    EXPECT_EQ(cls("\xA1\xE8"), 3);
    EXPECT_EQ(cls("\xA1\xA2"), 2);
    EXPECT_EQ(cls("\xA1\xD2"), 1);
    EXPECT_EQ(nu_iscompchar(loc, u("\xE0")), 3);   // the general entry point answers so too
    *_nu_ext_errno(loc) = 0;
    EXPECT_EQ(nu_iscompchar_thai(loc, nullptr), -1);
    EXPECT_EQ(loc.error(), NU_EBADARG);
    EXPECT_EQ(nu_iscompchar_thai(nullptr, u("\xA1")), -1);
}

TEST(Thai, NeighboursInPrimaryOrder) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    ASSERT_EQ(loadThai(loc), 0);
    // After a consonant comes the next consonant, not the consonant with a leading vowel.
    Neighbour n = neighbour(loc, "\xA1", 1, 1);
    EXPECT_EQ(n.result, 1);
    EXPECT_EQ(n.unit, "\xA2");
    // Before a consonant: the previous consonant with the last leading vowel.
    n = neighbour(loc, "\xA2", 1, 2);
    EXPECT_EQ(n.result, 1);
    EXPECT_EQ(n.unit, "\xE4\xA1");
    n = neighbour(loc, "\xE0\xA1", 1, 1);
    EXPECT_EQ(n.unit, "\xE1\xA1");
    n = neighbour(loc, "\xE0\xA1", 1, 2);
    EXPECT_EQ(n.unit, "\xA1");
    n = neighbour(loc, "\xE4\xCE", 1, 1);
    EXPECT_EQ(n.unit, "\xCF");
    // A lone leading vowel waits for more (whole 0) and is searched by its own byte.
    n = neighbour(loc, "\xE0", 0, 1);
    EXPECT_EQ(n.unit, "\xE1");
    n = neighbour(loc, "\xE0", 0, 2);
    EXPECT_EQ(n.unit, "\xDF");   // above the last consonant with its last vowel (0xCE 0xE4)
    // Through the general entry points.
    unsigned char out[16] = {};
    EXPECT_EQ(nu_nextprimweight(loc, u("\xA1"), 1, out), 1);
    EXPECT_STREQ(reinterpret_cast<char *>(out), "\xA2");
    EXPECT_EQ(nu_prevprimweight(loc, u("\xA1"), 1, out), 1);
    EXPECT_STREQ(reinterpret_cast<char *>(out), "\xA0");
    // Tone marks carry no primary weight: no neighbour.
    EXPECT_EQ(neighbour(loc, kMaiEk, 0, 1).result, -2);
    EXPECT_EQ(neighbour(loc, kMaiEk, 0, 2).result, -2);
    // Nothing above the highest byte.
    EXPECT_EQ(neighbour(loc, "\xFF", 1, 1).result, -2);
    EXPECT_EQ(neighbour(loc, "\x01", 1, 2).result, -2);
}

TEST(Thai, BoundsOfThaiText) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    ASSERT_EQ(loadThai(loc), 0);
    unsigned char out[32] = {};
    // The last unit is a consonant with its leading vowel.
    EXPECT_EQ(nu_mbsCollBound(loc, u("\xA1\xE0\xA1"), 1, out, sizeof out), 3);
    EXPECT_STREQ(reinterpret_cast<char *>(out), "\xA1\xE1\xA1");
    EXPECT_EQ(nu_mbsCollBound(loc, u("\xA1\xA1"), 0, out, sizeof out), 2);
    EXPECT_STREQ(reinterpret_cast<char *>(out), "\xA1\xA0");
    // A trailing tone mark has no neighbour: the text comes back as it was.
    EXPECT_EQ(nu_mbsCollBound(loc, u("\xA1\xE8"), 1, out, sizeof out), -2);
    EXPECT_STREQ(reinterpret_cast<char *>(out), "\xA1\xE8");
    // The sort key of a bound is the Thai key of the bound's text.
    unsigned char key[32];
    std::memset(key, 0x55, sizeof key);
    EXPECT_EQ(nu_mbsSortKeyCollBound(loc, u("\xA1\xE0\xA1"), 1, key, sizeof key), 3);
    EXPECT_STREQ(reinterpret_cast<char *>(key), "\xA1\xA1\xE1");
}

TEST(Thai, NeighbourArgumentsAreChecked) {
    NUS_LOAD_OR_SKIP(loc, "xx_yy/0333.lco");
    ASSERT_EQ(loadThai(loc), 0);
    unsigned char out[16];
    auto error = [&](const char *s, int whole, unsigned char *o, int direction) {
        *_nu_ext_errno(loc) = 0;
        const int r = nu_primweight_thai(loc, s != nullptr ? u(s) : nullptr, whole, o, direction);
        return r == -1 ? loc.error() : -100 + r;
    };
    EXPECT_EQ(error("\xA1", 0, out, 1), NU_EBADVAL);   // a whole unit said to wait for more
    EXPECT_EQ(error("\xE0", 1, out, 1), NU_EBADVAL);   // and the other way round
    EXPECT_EQ(error(nullptr, 1, out, 1), NU_EBADARG);
    EXPECT_EQ(error("\xA1", 1, nullptr, 1), NU_EBADARG);
    EXPECT_EQ(error("\xA1", 1, out, 3), NU_EBADARG);
    EXPECT_EQ(nu_primweight_thai(nullptr, u("\xA1"), 1, out, 1), -1);
}

// Every whole unit's next neighbour lies above every text that begins with the unit, its
// previous neighbour below the unit, and no unit's key lies strictly between.
TEST(Thai, NeighboursBoundEveryTextWithTheUnitAsPrefix) {
    NUS_LOAD_OR_SKIP(loc, "th_th.tis620");
    ASSERT_EQ(loadThai(loc), 0);
    std::vector<std::string> units;
    for (int b = 1; b < 256; ++b) {
        const unsigned char s[2] = {static_cast<unsigned char>(b), 0};
        if (nu_full_mblen(loc, s, 1) == 1 && (b < 0xE7 || b > 0xEE))
            units.emplace_back(1, static_cast<char>(b));
    }
    for (int v = 0xE0; v <= 0xE4; ++v)
        for (int c = 0xA1; c <= 0xCE; ++c) units.push_back({static_cast<char>(v), static_cast<char>(c)});
    std::mt19937 rng(11);
    const std::string tails = "\xA1\xA2\xB0\xCE\xD2\xE0\xE4\xE8\xEB\xF0 a";
    int checked = 0;
    for (const std::string &s : units) {
        const int whole = nu_iscompchar_thai(loc, u(s)) == 3 ? 0 : 1;
        const Neighbour next = neighbour(loc, s, whole, 1);
        const Neighbour prev = neighbour(loc, s, whole, 2);
        const std::string k = thaiKey(loc, s);
        if (next.result == 1) {
            const std::string nk = thaiKey(loc, next.unit);
            // A unit that waits for more moves behind what follows it: no prefix to bound.
            for (int i = 0; whole != 0 && i < 20; ++i) {
                const std::string text = s + nus_test::random_string(rng, tails, 1 + i % 4);
                ASSERT_LT(thaiKey(loc, text), nk) << testing::PrintToString(text);
            }
            for (const std::string &other : units) {
                const std::string ok = thaiKey(loc, other);
                const bool extends = ok.compare(0, k.size(), k) == 0;
                ASSERT_FALSE(ok > k && ok < nk && !extends) << testing::PrintToString(other);
            }
            ++checked;
        } else {
            EXPECT_EQ(next.result, -2);
        }
        if (prev.result == 1) {
            const std::string pk = thaiKey(loc, prev.unit);
            ASSERT_LT(pk, k);
            for (const std::string &other : units) {
                const std::string ok = thaiKey(loc, other);
                ASSERT_FALSE(ok > pk && ok < k) << testing::PrintToString(other);
            }
        }
    }
    EXPECT_GT(checked, 200);
}

} // namespace
