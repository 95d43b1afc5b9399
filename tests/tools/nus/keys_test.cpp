// nus key and nus bound: sort keys in hex, and the bounds of a prefix that every string
// beginning with it sorts between.
#include "support/support.h"
#include "tools/nus/nus_run.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using nus_test::lines;
using nus_test::nus;
using nus_test::usage;

namespace {

std::string key_of(const char *locale, const std::string &text) {
    auto r = nus({"key", "-l", locale, "--", text});
    EXPECT_EQ(r.status, 0) << locale << " '" << text << "': " << r.err;
    return r.out.empty() ? r.out : r.out.substr(0, r.out.size() - 1);
}

struct Bound {
    std::string text;
    std::string key;
};

// The lower and upper bounds as the tool prints them: "lower\tTEXT\tKEY".
std::pair<Bound, Bound> bounds_of(const char *locale, const std::string &prefix) {
    auto r = nus({"bound", "-l", locale, "--", prefix});
    EXPECT_EQ(r.status, 0) << locale << " '" << prefix << "': " << r.err;
    EXPECT_EQ(r.err, "") << locale << " '" << prefix << "'";
    Bound found[2];
    auto out = lines(r.out);
    EXPECT_EQ(out.size(), 2u);
    for (size_t i = 0; i < out.size() && i < 2; ++i) {
        const std::string &line = out[i];
        const size_t tab1 = line.find('\t'), tab2 = line.rfind('\t');
        EXPECT_EQ(line.substr(0, tab1), i == 0 ? "lower" : "upper");
        found[i] = {line.substr(tab1 + 1, tab2 - tab1 - 1), line.substr(tab2 + 1)};
    }
    return {found[0], found[1]};
}

} // namespace

TEST(NusKey, KeysAreTheLibrarysAndSortTheLocalesWay) {
    // The tool's hex is the library's key, byte for byte.
    nus_test::EnvGuard root("TESSARONDIR", std::string(NUS_DATA_DIR));
    for (const char *locale : {"de_de.8859-1", "en_us.utf8", "ja_jp.sjis", "th_th.tis620"}) {
        nu_locale_t h = nullptr;
        ASSERT_EQ(nu_lc_load(&h, locale, nullptr, nullptr), 0) << locale;
        unsigned char key[512];
        const int n = nu_full_mbsxfrm(h, key, reinterpret_cast<const unsigned char *>("Abc"), 512);
        nu_lc_unload(h);
        ASSERT_GT(n, 0) << locale;
        static const char kHex[] = "0123456789abcdef";
        std::string hex;
        for (int i = 0; i < n; ++i) {
            hex += kHex[key[i] >> 4];
            hex += kHex[key[i] & 15];
        }
        EXPECT_EQ(key_of(locale, "Abc"), hex) << locale;
    }
    // One line per string, in order; hex order is collation order.
    auto r = nus({"key", "-l", "de_de.8859-1", "abd", "abc", "abcz",
                  "\xC4"
                  "bc"});
    ASSERT_EQ(r.status, 0) << r.err;
    auto keys = lines(r.out);
    ASSERT_EQ(keys.size(), 4u);
    EXPECT_LT(keys[1], keys[2]); // abc < abcz
    EXPECT_LT(keys[2], keys[0]); // abcz < abd
    EXPECT_LT(keys[1], keys[3]); // abc < Äbc: equal letters, the accent decides later
    EXPECT_LT(keys[3], keys[2]); // Äbc < abcz
    // The primary key drops accents and case; it begins the full key.
    auto primary = nus({"key", "-l", "de_de.8859-1", "--primary", "abc", "ABC",
                        "\xC4"
                        "bc"});
    auto prim = lines(primary.out);
    ASSERT_EQ(prim.size(), 3u);
    EXPECT_EQ(prim[0], prim[1]);
    EXPECT_EQ(prim[0], prim[2]);
    EXPECT_EQ(keys[1].rfind(prim[0], 0), 0u);
    EXPECT_LT(prim[0].size(), keys[1].size());
}

TEST(NusBound, BoundsOfAGermanPrefix) {
    auto r = nus({"bound", "-l", "de_de.8859-1", "abc"});
    ASSERT_EQ(r.status, 0) << r.err;
    // c is replaced by its neighbours in primary order (the first of each primary weight
    // in code order: the capitals).
    EXPECT_EQ(r.out, "lower\tabB\t" + key_of("de_de.8859-1", "abB") + "\n" + "upper\tabD\t" +
                         key_of("de_de.8859-1", "abD") + "\n");
    auto upper = nus({"bound", "-l", "de_de.8859-1", "--upper", "abc"});
    EXPECT_EQ(upper.out, "upper\tabD\t" + key_of("de_de.8859-1", "abD") + "\n");
    auto lower = nus({"bound", "-l", "de_de.8859-1", "--lower", "abc"});
    EXPECT_EQ(lower.out, "lower\tabB\t" + key_of("de_de.8859-1", "abB") + "\n");
    // The micro sign is the last letter in primary order: no upper bound.
    auto last = nus({"bound", "-l", "de_de.8859-1", "--upper", "\xB5"});
    EXPECT_EQ(last.status, 0);
    EXPECT_EQ(last.out, "upper\t(none)\tend\n");
}

// lower <= key(prefix + anything) <= upper, checked against nus key, in single-byte,
// multibyte and Thai locales, with contractions, accents and expansions; and strings that
// differ from both bounds at the first level, and do not begin with the prefix, fall
// outside. (The range also holds strings without the prefix: in Czech, the bounds of "c"
// are "B" and "I", which enclose d to h as well as ch.)
TEST(NusBound, EveryContinuationSortsBetweenTheBounds) {
    struct Case {
        const char *locale;
        std::string prefix;
        std::vector<std::string> suffixes;
        std::vector<std::string> outside;
    };
    const std::vector<Case> cases = {
        {"de_de.8859-1", "abc", {"", "z", "Z", "0", "\xE4", "zzz", " x", "-"}, {"abe", "aba", "b"}},
        {"de_de.8859-1",
         "Stra",
         {"\xDF"
          "e",
          "sse", "", "\xDF"},
         {"Strc", "Str"}},
        {"de_de.8859-1", "M\xFC", {"ller", "nchen", ""}, {"Mw", "Ms"}},
        {"en_us.utf8", "caf", {"\xC3\xA9", "e", "E", "", "\xE2\x82\xAC"}, {"cah", "cad"}},
        // Czech "ch" is one letter after h: the bounds of "c" enclose it too.
        {"cs_cz.8859-2", "c", {"h", "hata", "", "a", "z", "H"}, {"a", "j", "ia"}},
        {"cs_cz.8859-2", "ch", {"a", "", "z"}, {"ia", "g"}},
        {"ja_jp.sjis", "\x82\xA0", {"\x82\xA2", "a", ""}, {"\x82\xA4"}},
        {"th_th.tis620", "\xA1", {"\xD2", "\xA1", "", "a"}, {"\xA4"}},
        {"th_th.tis620", "ab", {"c", "", "z"}, {"ad"}},
        {"sv_se.8859-1", "\xE5", {"a", "", "z"}, {"\xF6", "z"}},
    };
    for (const Case &c : cases) {
        const auto [lower, upper] = bounds_of(c.locale, c.prefix);
        ASSERT_FALSE(lower.key.empty()) << c.locale;
        EXPECT_EQ(lower.key, key_of(c.locale, lower.text)) << c.locale << " " << c.prefix;
        EXPECT_EQ(upper.key, key_of(c.locale, upper.text)) << c.locale << " " << c.prefix;
        for (const std::string &suffix : c.suffixes) {
            const std::string key = key_of(c.locale, c.prefix + suffix);
            EXPECT_LE(lower.key, key) << c.locale << " '" << c.prefix << suffix << "'";
            EXPECT_LE(key, upper.key) << c.locale << " '" << c.prefix << suffix << "'";
        }
        for (const std::string &other : c.outside) {
            const std::string key = key_of(c.locale, other);
            EXPECT_TRUE(key < lower.key || key > upper.key) << c.locale << " '" << other << "'";
        }
    }
}

TEST(NusBound, PrefixesWithoutBoundsAreFlagged) {
    auto ignorable = nus({"bound", "-l", "de_de.8859-1", "ab-"});
    EXPECT_EQ(ignorable.status, 0);
    EXPECT_EQ(ignorable.err,
              "nus: bound: the last character of 'ab-' is ignored at the first level: the bounds "
              "do not enclose the strings that begin with it (bound the prefix without it "
              "instead)\n");
    // A Thai leading vowel (0xE0) sorts after the consonant that follows it.
    auto vowel = nus({"bound", "-l", "th_th.tis620", "\xA1\xE0"});
    EXPECT_EQ(vowel.status, 0);
    EXPECT_NE(vowel.err.find("is a Thai leading vowel"), std::string::npos) << vowel.err;
    EXPECT_EQ(nus({"bound", "-l", "th_th.tis620", "\xA1"}).err, "");
}

TEST(NusKeyBound, Errors) {
    EXPECT_EQ(nus({"bound", "-l", "de_de.8859-1"}).err, usage("bound", "no PREFIX given"));
    EXPECT_EQ(nus({"bound", "-l", "de_de.8859-1", "a", "b"}).err,
              usage("bound", "one PREFIX at a time ('b' is one too many)"));
    EXPECT_EQ(nus({"bound", "-l", "de_de.8859-1", ""}).err,
              usage("bound", "the PREFIX is empty: every string begins with it"));
    EXPECT_EQ(nus({"bound", "-l", "de_de.8859-1", "--middle", "a"}).status, 2);
    EXPECT_EQ(nus({"key", "-l", "de_de.8859-1"}).err, usage("key", "no STRING given"));

    auto invalid = nus({"bound", "-l", "en_us.utf8", "ab\xFF"});
    EXPECT_EQ(invalid.status, 1);
    EXPECT_EQ(invalid.out, "");
    EXPECT_EQ(
        invalid.err.rfind("nus: bound: 'ab\xFF' is not valid text in the locale's code set", 0), 0u)
        << invalid.err;
    auto keys = nus({"key", "-l", "en_us.utf8", "a", "\xC3", "b"});
    EXPECT_EQ(keys.status, 1);
    EXPECT_EQ(lines(keys.out).size(), 2u); // the valid strings still get their keys

    EXPECT_EQ(nus({"key", "-l", "no_such.utf8", "a"}).status, 1);
    EXPECT_EQ(nus({"bound", "-l", "no_such.utf8", "a"}).status, 1);
    auto help = nus({"bound", "--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("key(lower) <= key(S) <= key(upper)"), std::string::npos);
    EXPECT_EQ(nus({"key", "-h"}).status, 0);
}
