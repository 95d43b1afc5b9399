// Locale definitions: the Debian sources as shipped, with copy chains, and broken ones.
#include "tools/common/source.h"
#include "support/support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>

using nus::tools::read_locale_source;
using nus::tools::SourceLocale;
using nus::tools::UString;

namespace {

const std::string kLocales = "/usr/share/i18n/locales/";

bool has(const std::vector<uint32_t> &v, uint32_t c) {
    return std::find(v.begin(), v.end(), c) != v.end();
}

UString text_of(const SourceLocale &l, const char *category, const char *key) {
    const auto *v = l.values(category, key);
    return v != nullptr && !v->empty() ? v->front().text : UString{0xFFFFFFFF};
}

UString u(const char *ascii) { return UString(ascii, ascii + std::strlen(ascii)); }

} // namespace

TEST(LocaleSource, GermanThroughItsCopies) {
    SourceLocale de;
    const auto error = read_locale_source(kLocales + "de_DE", de);
    ASSERT_FALSE(error) << error->text();
    // LC_CTYPE comes from i18n, which copies i18n_ctype.
    EXPECT_TRUE(has(de.classes["upper"], 'A'));
    EXPECT_TRUE(has(de.classes["upper"], 0xC4));
    EXPECT_FALSE(has(de.classes["upper"], 'a'));
    EXPECT_TRUE(has(de.classes["digit"], '7'));
    EXPECT_TRUE(has(de.classes["blank"], '\t'));
    EXPECT_TRUE(std::find(de.toupper.begin(), de.toupper.end(), std::make_pair(0xE4u, 0xC4u)) !=
                de.toupper.end());
    EXPECT_FALSE(de.own_classes.empty());   // "combining" and friends
    EXPECT_EQ(text_of(de, "LC_NUMERIC", "decimal_point"), u(","));
    EXPECT_EQ(text_of(de, "LC_MONETARY", "currency_symbol"), UString{0x20AC});
    EXPECT_EQ(text_of(de, "LC_MONETARY", "int_curr_symbol"), u("EUR "));
    const auto *grouping = de.values("LC_NUMERIC", "grouping");
    ASSERT_NE(grouping, nullptr);
    ASSERT_EQ(grouping->size(), 2u);
    EXPECT_EQ((*grouping)[0].number, 3);
    EXPECT_EQ(de.values("LC_MONETARY", "p_sep_by_space")->front().number, 1);
    EXPECT_FALSE(text_of(de, "LC_MESSAGES", "yesexpr").empty());
    for (const char *c : {"LC_CTYPE", "LC_NUMERIC", "LC_MONETARY", "LC_MESSAGES", "LC_TIME"})
        EXPECT_NE(std::find(de.present.begin(), de.present.end(), c), de.present.end()) << c;
}

// Transliterations: the locale's own entries win over included files, included files are
// followed (also from a copied category), and alternatives keep their order.
TEST(LocaleSource, Transliterations) {
    SourceLocale de;
    ASSERT_FALSE(read_locale_source(kLocales + "de_DE", de));
    // de_DE's own block includes translit_combining; i18n's includes translit_neutral, which
    // includes translit_compat and others.
    ASSERT_TRUE(de.translit.count(0x20AC));
    EXPECT_EQ(de.translit[0x20AC].front(), u("EUR"));
    ASSERT_TRUE(de.translit.count(0x202F));
    EXPECT_EQ(de.translit[0x202F], (std::vector<UString>{{0xA0}, {0x20}}));
    EXPECT_TRUE(de.translit.count(0x0300));   // translit_combining: an accent omitted

    nus_test::TempDir dir;
    dir.write("xx_inc", "LC_CTYPE\ntranslit_start\n<U0041> \"inc\"\n<U0042> \"b\";<U0062>\n"
                        "translit_end\nEND LC_CTYPE\n");
    const auto file = dir.write("xx_XX", "comment_char %\nescape_char /\nLC_CTYPE\n"
                                         "translit_start\ninclude \"xx_inc\";\"\"\n"
                                         "<U0041> \"own\" % a comment\n"
                                         "\"<U0043><U0044>\" \"cd\"\ntranslit_end\nEND LC_CTYPE\n");
    SourceLocale l;
    const auto error = read_locale_source(file.string(), l, dir.str());
    ASSERT_FALSE(error) << error->text();
    EXPECT_EQ(l.translit[0x41], std::vector<UString>{u("own")});
    EXPECT_EQ(l.translit[0x42], (std::vector<UString>{u("b"), u("b")}));
    EXPECT_EQ(l.translit.size(), 2u);   // the sequence source "CD" is passed over
    const auto missing = dir.write("xx_YY", "LC_CTYPE\ntranslit_start\ninclude \"nowhere\";\"\"\n"
                                            "translit_end\nEND LC_CTYPE\n");
    const auto broken = read_locale_source(missing.string(), l, dir.str());
    ASSERT_TRUE(broken);
    EXPECT_EQ(broken->line, 3);
}

TEST(LocaleSource, EveryDebianSourceReads) {
    int count = 0;
    for (const auto &entry : std::filesystem::directory_iterator(kLocales)) {
        SourceLocale l;
        const auto error = read_locale_source(entry.path().string(), l);
        EXPECT_FALSE(error) << error->text();
        ++count;
    }
    EXPECT_GT(count, 300);
    // The sources the default set uses, and a few with unusual constructs.
    for (const char *name : {"en_US", "fr_FR", "es_ES", "cs_CZ", "ru_RU", "el_GR", "he_IL",
                             "tr_TR", "ja_JP", "ko_KR", "zh_CN", "zh_TW", "th_TH"}) {
        SourceLocale l;
        const auto error = read_locale_source(kLocales + name, l);
        EXPECT_FALSE(error) << name << ": " << error->text();
        EXPECT_FALSE(l.classes["alpha"].empty()) << name;
        EXPECT_FALSE(l.toupper.empty()) << name;
    }
}

TEST(LocaleSource, BrokenSourcesSayWhereAndWhy) {
    nus_test::TempDir dir;
    struct Case {
        const char *what;
        std::string text;
        int line;
    };
    const Case cases[] = {
        {"unterminated string", "LC_NUMERIC\ndecimal_point \",\nEND LC_NUMERIC\n", 2},
        {"wrong END", "LC_NUMERIC\ndecimal_point \",\"\nEND LC_MONETARY\n", 3},
        {"unclosed category", "LC_MESSAGES\nyesexpr \"^y\"\n", 1},
        {"copy of nothing", "LC_CTYPE\ncopy \"no-such-locale\"\nEND LC_CTYPE\n", 2},
        {"bad pair", "LC_CTYPE\ntoupper (<U0061>;<U0041>)\nEND LC_CTYPE\n", 2},
        {"bad range", "LC_CTYPE\nupper <U005A>..<U0041>\nEND LC_CTYPE\n", 2},
        {"garbage number", "LC_MONETARY\nfrac_digits two\nEND LC_MONETARY\n", 2},
    };
    for (const Case &c : cases) {
        const auto file = dir.write("broken", "comment_char %\nescape_char /\n" + c.text);
        SourceLocale l;
        const auto error = read_locale_source(file.string(), l, dir.str());
        ASSERT_TRUE(error.has_value()) << c.what;
        EXPECT_EQ(error->line, c.line + 2) << c.what;
    }
    // Continued lines, a stepped range and a copy found beside the source.
    dir.write("base", "LC_NUMERIC\ndecimal_point \".\"\nthousands_sep \"\"\nEND LC_NUMERIC\n");
    const auto file = dir.write("mine", "comment_char %\nescape_char /\nLC_CTYPE\nupper <U0041>;/\n"
                                        "  <U0100>..(2)..<U0104>\nEND LC_CTYPE\nLC_NUMERIC\n"
                                        "copy \"base\"\nEND LC_NUMERIC\n");
    SourceLocale l;
    const auto error = read_locale_source(file.string(), l, dir.str());
    ASSERT_FALSE(error) << error->text();
    EXPECT_EQ(l.classes["upper"], (std::vector<uint32_t>{0x41, 0x100, 0x102, 0x104}));
    EXPECT_EQ(text_of(l, "LC_NUMERIC", "decimal_point"), u("."));
}

// A line may end in a comment and still continue (uk_UA writes `"<U043D><U0434>"; %nd  /`);
// a comment character inside a string is text.
TEST(LocaleSource, CommentsInContinuedLines) {
    nus_test::TempDir dir;
    dir.write("xx_XX", "comment_char %\nescape_char /\nLC_TIME\n"
                       "abday \"a%b\"; % first /\n"
                       "      \"c\";  % second /\n"
                       "      \"d\"\n"
                       "END LC_TIME\n");
    SourceLocale l;
    const auto error = read_locale_source((dir.path() / "xx_XX").string(), l);
    ASSERT_FALSE(error) << error->text();
    const auto *abday = l.values("LC_TIME", "abday");
    ASSERT_NE(abday, nullptr);
    ASSERT_EQ(abday->size(), 3u);
    EXPECT_EQ((*abday)[0].text, u("a%b"));
    EXPECT_EQ((*abday)[2].text, u("d"));
}
