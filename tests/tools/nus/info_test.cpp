// nus info: the outline and the JSON form of what a loaded locale holds.
#include "support/support.h"
#include "tools/nus/nus_run.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <clocale>
#include <cwctype>
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <string>

using nus_test::lines;
using nus_test::nus;
using nus_test::usage;

namespace {

// The value of `"key": N` in the tool's JSON (which writes one member per line).
long json_number(const std::string &json, const std::string &key) {
    std::smatch m;
    const std::regex pattern("\"" + key + "\": (-?[0-9]+)");
    if (!std::regex_search(json, m, pattern)) return -1;
    return std::stol(m[1].str());
}

// The system's compiled locales of de_DE.ISO-8859-1 and en_US.UTF-8 in the build tree (the
// tree `make bench` fills), compiled here with localedef when missing; empty when they cannot
// be had.
std::string glibc_locales() {
    const std::filesystem::path dir = std::filesystem::path(NUS_SOURCE_DIR) / "build" / "glibc-locales";
    for (const char *name : {"de_DE.ISO-8859-1", "en_US.UTF-8"}) {
        if (std::filesystem::exists(dir / name / "LC_CTYPE")) continue;
        std::filesystem::create_directories(dir);
        const std::string source(name, std::strchr(name, '.'));
        const std::string command = "localedef -i " + source + " -f " + (std::strchr(name, '.') + 1) +
                                    " " + (dir / name).string() + " >/dev/null 2>&1";
        (void)std::system(command.c_str());
        if (!std::filesystem::exists(dir / name / "LC_CTYPE")) return {};
    }
    return dir.string();
}

} // namespace

TEST(NusInfo, OutlineOfTheGermanConventions) {
    auto r = nus({"info", "-l", "de_de.8859-1", "numeric", "monetary", "messages", "time"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out, "locale:   de_de.8859-1\n"
                     "code set: 8859-1\n"
                     "files:\n"
                     "  ctype:    de_de/0333.lco\n"
                     "  collate:  de_de/0333.lco\n"
                     "  numeric:  de_de/0333.lco\n"
                     "  monetary: de_de/0333.lco\n"
                     "  time:     de_de/0333.lco\n"
                     "  messages: de_de/0333.lco\n"
                     "numeric:\n"
                     "  decimal point: \",\"\n"
                     "  thousands sep: \".\"\n"
                     "  grouping:      3 3\n"
                     "  positive sign: \"\"\n"
                     "  negative sign: \"-\"\n"
                     "  example:       \"-1.234.567,891\"\n"
                     "monetary:\n"
                     "  int curr symbol:       \"EUR \"\n"
                     "  currency symbol:       \"EUR\"\n"
                     "  mon decimal point:     \",\"\n"
                     "  mon thousands sep:     \".\"\n"
                     "  mon grouping:          3 3\n"
                     "  positive sign:         \"\"\n"
                     "  negative sign:         \"-\"\n"
                     "  int frac digits:       2\n"
                     "  frac digits:           2\n"
                     "  p cs precedes:         0\n"
                     "  p sep by space:        1\n"
                     "  n cs precedes:         0\n"
                     "  n sep by space:        1\n"
                     "  p sign posn:           1\n"
                     "  n sign posn:           1\n"
                     "  example national:      \"-1.234.567,89 EUR\"\n"
                     "  example international: \"-1.234.567,89 EUR \"\n"
                     "messages:\n"
                     "  yesexpr: \"^[+1jJyY]\"\n"
                     "  noexpr:  \"^[-0nN]\"\n"
                     "  yesstr:  \"ja\"\n"
                     "  nostr:   \"nein\"\n"
                     "time:\n"
                     "  calendar:                  gregorian\n"
                     "  date time format:          \"%a %d %b %Y %T %Z\"\n"
                     "  date format:               \"%d.%m.%Y\"\n"
                     "  time format:               \"%T\"\n"
                     "  time format ampm:          \"\"\n"
                     "  am:                        \"\"\n"
                     "  pm:                        \"\"\n"
                     "  date cmd format:           \"%a %-d. %b %H:%M:%S %Z %Y\"\n"
                     "  era date time format:      \"\"\n"
                     "  era date format:           \"\"\n"
                     "  era time format:           \"\"\n"
                     "  era year:                  \"\"\n"
                     "  days:                      \"Sonntag\" \"Montag\" \"Dienstag\" \"Mittwoch\" "
                     "\"Donnerstag\" \"Freitag\" \"Samstag\"\n"
                     "  abbreviated days:          \"So\" \"Mo\" \"Di\" \"Mi\" \"Do\" \"Fr\" \"Sa\"\n"
                     "  months:                    \"Januar\" \"Februar\" \"M\xC3\xA4rz\" (bytes 4d e4 72 7a) "
                     "\"April\" \"Mai\" \"Juni\" \"Juli\" \"August\" \"September\" \"Oktober\" "
                     "\"November\" \"Dezember\"\n"
                     "  abbreviated months:        \"Jan\" \"Feb\" \"M\xC3\xA4r\" (bytes 4d e4 72) \"Apr\" "
                     "\"Mai\" \"Jun\" \"Jul\" \"Aug\" \"Sep\" \"Okt\" \"Nov\" \"Dez\"\n"
                     "  second months:             none\n"
                     "  second abbreviated months: none\n"
                     "  alternative digits:        none\n"
                     "  eras: none\n"
                     "  week:\n"
                     "    days:            7\n"
                     "    first day:       19971130\n"
                     "    first week days: 4\n"
                     "    first weekday:   2\n"
                     "    first workday:   2\n");
}

// Eras with their dates, alternative digits, the second month list, a local calendar.
TEST(NusInfo, TimeOfErasDigitsAndCalendars) {
    auto ja = nus({"info", "-l", "ja_jp.utf8", "--json", "time"});
    ASSERT_EQ(ja.status, 0) << ja.err;
    for (const char *part : {"\"start\": \"2020-01-01\",\n        \"end\": \"open (the future)\"",
                             "\"start\": \"0000-12-31\",\n        \"end\": \"open (the past)\"",
                             "\"alternative_digits\": [\"\xE3\x80\x87\", \"\xE4\xB8\x80\""})
        EXPECT_NE(ja.out.find(part), std::string::npos) << part << "\n" << ja.out;
    auto ru = nus({"info", "-l", "ru_ru.utf8", "time"});
    ASSERT_EQ(ru.status, 0) << ru.err;
    EXPECT_NE(ru.out.find("  second months:             \"\xD0\xAF\xD0\xBD\xD0\xB2\xD0\xB0\xD1\x80\xD1\x8C\""),
              std::string::npos) << ru.out;
    auto he = nus({"info", "-l", "he_il.utf8@hebr", "time"});
    ASSERT_EQ(he.status, 0) << he.err;
    EXPECT_NE(he.out.find("  calendar:                  hebrew\n"), std::string::npos) << he.out;
}

TEST(NusInfo, NonAsciiTextIsShownInUtf8WithItsOwnBytes) {
    // The French separator is a no-break space (0xA0 in ISO 8859-1, C2 A0 in UTF-8).
    auto fr = nus({"info", "-l", "fr_fr.8859-1", "numeric"});
    ASSERT_EQ(fr.status, 0) << fr.err;
    EXPECT_NE(fr.out.find("  thousands sep: \"\xC2\xA0\" (bytes a0)\n"), std::string::npos)
        << fr.out;
    // Shift-JIS: the yen sign 81 8F is the full-width U+FFE5.
    auto ja = nus({"info", "-l", "ja_jp.sjis", "monetary"});
    ASSERT_EQ(ja.status, 0) << ja.err;
    EXPECT_NE(ja.out.find("  currency symbol:       \"\xEF\xBF\xA5\" (bytes 81 8f)\n"),
              std::string::npos)
        << ja.out;
    // Thai answers, TIS-620 to UTF-8.
    auto th = nus({"info", "-l", "th_th.tis620", "messages"});
    ASSERT_EQ(th.status, 0) << th.err;
    EXPECT_NE(th.out.find("  yesstr:  \"\xE0\xB9\x83\xE0\xB8\x8A\xE0\xB9\x88\" (bytes e3 aa e8)\n"),
              std::string::npos)
        << th.out;
}

TEST(NusInfo, CollationMethodsAndLevels) {
    auto collate = [](const char *locale) {
        auto r = nus({"info", "-l", locale, "collate"});
        EXPECT_EQ(r.status, 0) << r.err;
        const size_t at = r.out.find("collate:\n  method");
        return at == std::string::npos ? r.out : r.out.substr(at);
    };
    EXPECT_EQ(collate("de_de.8859-1"), "collate:\n"
                                       "  method:     as_specified\n"
                                       "  levels:     4\n"
                                       "  directions: forward forward forward forward\n");
    EXPECT_EQ(collate("ja_jp.sjis"), "collate:\n"
                                     "  method:     as_specified\n"
                                     "  levels:     1\n"
                                     "  directions: forward\n");
    EXPECT_EQ(collate("th_th.tis620"), "collate:\n"
                                       "  method:     thai_smo\n"
                                       "  levels:     n/a\n"
                                       "  directions: n/a\n");
}

TEST(NusInfo, JsonIsValidForEveryKindOfLocale) {
    if (!nus_test::have_python()) GTEST_SKIP() << "no python3 to check the JSON with";
    // Single-byte, multibyte of two and four bytes, the Thai method; every category.
    for (const char *locale : {"de_de.8859-1", "fr_fr.8859-1", "ja_jp.sjis", "zh_tw.big5",
                               "th_th.tis620", "en_us.utf8"}) {
        auto r = nus({"info", "-l", locale, "--json"});
        ASSERT_EQ(r.status, 0) << locale << ": " << r.err;
        auto check = nus_test::run_program("/usr/bin/python3", {"-m", "json.tool"}, r.out);
        EXPECT_EQ(check.status, 0) << locale << ": " << check.err << "\n" << r.out;
    }
    // The values come through as JSON types and UTF-8 text.
    auto r = nus({"info", "-l", "fr_fr.8859-1", "--json", "numeric", "monetary", "collate"});
    ASSERT_EQ(r.status, 0);
    auto values = nus_test::run_program(
        "/usr/bin/python3",
        {"-c", "import json, sys\n"
               "d = json.load(sys.stdin)\n"
               "print(d['numeric']['thousands_sep'].encode().hex(), d['numeric']['grouping'],\n"
               "      d['monetary']['frac_digits'], d['collate']['levels'], "
               "d['collate']['directions'][0],\n"
               "      sorted(d.keys()))\n"},
        r.out);
    EXPECT_EQ(values.status, 0) << values.err;
    EXPECT_EQ(values.out,
              "c2a0 [3] 2 4 forward ['code_set', 'collate', 'files', 'locale', 'monetary', "
              "'numeric']\n");
}

// The class counts agree with the system's own classification of the same locale source:
// over the 256 bytes of ISO 8859-1, and over every character of UTF-8.
TEST(NusInfo, ClassCountsAgreeWithTheSystemLocales) {
    const std::string dir = glibc_locales();
    if (dir.empty()) GTEST_SKIP() << "the system locales are not compiled in this tree";
    nus_test::EnvGuard path("LOCPATH", dir);

    auto latin = nus({"info", "-l", "de_de.8859-1", "--json", "ctype"});
    ASSERT_EQ(latin.status, 0) << latin.err;
    ASSERT_NE(std::setlocale(LC_ALL, "de_DE.ISO-8859-1"), nullptr);
    int (*const byte_tests[])(int) = {isupper, islower, isalpha, isdigit, isalnum, isxdigit,
                                      isspace, isblank, ispunct, isgraph, isprint, iscntrl};
    const char *names[] = {"upper", "lower", "alpha", "digit", "alnum", "xdigit",
                           "space", "blank", "punct", "graph", "print", "cntrl"};
    for (size_t k = 0; k < std::size(names); ++k) {
        long count = 0;
        for (int b = 0; b < 256; ++b) count += byte_tests[k](b) != 0;
        EXPECT_EQ(json_number(latin.out, names[k]), count) << "de_de.8859-1 " << names[k];
    }
    long up = 0, low = 0;
    for (int b = 0; b < 256; ++b) {
        up += toupper(b) != b;
        low += tolower(b) != b;
    }
    EXPECT_EQ(json_number(latin.out, "to_upper"), up);
    EXPECT_EQ(json_number(latin.out, "to_lower"), low);
    EXPECT_EQ(json_number(latin.out, "characters"), 256);

    auto utf8 = nus({"info", "-l", "en_us.utf8", "--json", "ctype"});
    ASSERT_EQ(utf8.status, 0) << utf8.err;
    ASSERT_NE(std::setlocale(LC_ALL, "en_US.UTF-8"), nullptr);
    for (const char *name : names) {
        const wctype_t type = wctype(name);
        long count = 0;
        for (wint_t w = 0; w < 0x110000; ++w) count += iswctype(w, type) != 0;
        EXPECT_EQ(json_number(utf8.out, name), count) << "en_us.utf8 " << name;
    }
    up = low = 0;
    std::set<std::pair<wint_t, wint_t>> pairs;
    for (wint_t w = 0; w < 0x110000; ++w) {
        up += towupper(w) != w;
        low += towlower(w) != w;
        if (towupper(w) != w || towlower(w) != w) pairs.emplace(towupper(w), towlower(w));
    }
    EXPECT_EQ(json_number(utf8.out, "pairs"), static_cast<long>(pairs.size()));
    EXPECT_EQ(json_number(utf8.out, "to_upper"), up);
    EXPECT_EQ(json_number(utf8.out, "to_lower"), low);
    EXPECT_EQ(json_number(utf8.out, "min_length"), 1);
    EXPECT_EQ(json_number(utf8.out, "max_length"), 4);
    std::setlocale(LC_ALL, "C");
}

TEST(NusInfo, CategoriesFromDifferentFiles) {
    // Categories absent from the list take the whole text as their file name and fail;
    // every category is named here.
    auto r = nus({"info", "-l",
                  "NU_CTYPE = de_de/0333.lco ; NU_COLLATE = de_de/0333.lco ; NU_NUMERIC = "
                  "en_us/0333.lco ; NU_MONETARY = fr_fr/0333.lco ; NU_TIME = de_de/0333.lco ; "
                  "NU_MESSAGES = de_de/0333.lco ; ",
                  "numeric", "monetary"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("  numeric:  en_us/0333.lco\n  monetary: fr_fr/0333.lco\n"),
              std::string::npos)
        << r.out;
    EXPECT_NE(r.out.find("  example:       \"-1,234,567.891\"\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("  example national:      \"-1\xC2\xA0"
                         "234\xC2\xA0"
                         "567,89 EUR\""),
              std::string::npos)
        << r.out;
}

TEST(NusInfo, ErrorsAndHelp) {
    auto help = nus({"info", "--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.out.rfind("Usage: nus info -l LOCALE", 0), 0u);

    auto category = nus({"info", "-l", "de_de.8859-1", "lc_time"});
    EXPECT_EQ(category.status, 2);
    EXPECT_EQ(category.err,
              usage("info", "unknown category 'lc_time' (ctype, collate, numeric, monetary, "
                            "messages, time)"));
    EXPECT_EQ(category.out, "");

    auto no_locale = nus({"info", "numeric"});
    EXPECT_EQ(no_locale.status, 2);
    EXPECT_EQ(no_locale.err, usage("info", "no locale given (-l LOCALE, e.g. -l de_de.8859-1)"));

    auto option = nus({"info", "-l", "de_de.8859-1", "--yaml"});
    EXPECT_EQ(option.status, 2);
    EXPECT_EQ(option.err, usage("info", "unknown option '--yaml'"));

    auto missing = nus({"info", "-l", "xx_yy.8859-1"});
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.out, "");
    EXPECT_EQ(missing.err, "nus: info: cannot load locale 'xx_yy.8859-1' from " NUS_DATA_DIR
                           ": NU_ENOFILE (data file not found)\n");

    // Categories come in the order asked, once each, whatever their case.
    auto order = nus({"info", "-l", "de_de.8859-1", "TIME", "messages", "time"});
    ASSERT_EQ(order.status, 0);
    auto out = lines(order.out);
    ASSERT_EQ(out.size(), 41u);
    EXPECT_EQ(out[9], "time:");
    EXPECT_EQ(out[36], "messages:");
}
