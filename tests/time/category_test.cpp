// The TIME category. The default locales compiled from the Debian sources answer every item of
// nu_nl_langinfo, and hold the era table, the alternative digits and the week, as glibc's
// nl_langinfo_l answers in the glibc locale localedef builds from the same source; the null
// locale answers as glibc's "C" locale. Damaged sections fail with 11 and leave the record as
// it was; loading, per-category loading, copies and release; the parser's validation caches.
#include "support/support.h"

#include "frame/handle.h"
#include "nus.h"
#include "time/category.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <langinfo.h>
#include <locale.h>
#include <map>
#include <sstream>
#include <vector>

namespace {

namespace fs = std::filesystem;
using nus_test::TestLocale;

std::string str(const char *s) { return s != nullptr ? s : "<null>"; }
const unsigned char *u(const char *s) { return reinterpret_cast<const unsigned char *>(s); }

// The default locale set (data/locales): source, charmap and our specification.
struct Listed {
    std::string source, charmap, spec;
    bool local_calendar;
};

std::vector<Listed> default_locales() {
    std::map<std::string, std::string> registry_names;
    std::ifstream names(std::string(NUS_SOURCE_DIR) + "/data/charmap-names");
    for (std::string line; std::getline(names, line);) {
        std::istringstream f(line);
        std::string charmap, name;
        if (f >> charmap >> name && charmap[0] != '#') registry_names[charmap] = name;
    }
    std::vector<Listed> out;
    std::ifstream list(std::string(NUS_SOURCE_DIR) + "/data/locales");
    for (std::string line; std::getline(list, line);) {
        std::istringstream f(line);
        std::string source, charmap, word, codeset, modifier;
        if (!(f >> source >> charmap) || source[0] == '#') continue;
        while (f >> word) {
            if (word.rfind("calendar=", 0) == 0) modifier = "@" + word.substr(9, 4);
            else codeset = word;
        }
        if (codeset.empty()) codeset = registry_names[charmap];
        std::string spec = source + "." + codeset + modifier;
        std::transform(spec.begin(), spec.begin() + 5, spec.begin(), ::tolower);
        out.push_back({source, charmap, spec, !modifier.empty()});
    }
    return out;
}

// glibc's locale compiled from the same source into build/glibc-locales (made when missing);
// null when glibc cannot build it.
locale_t glibc_locale(const std::string &source, const std::string &charmap) {
    const std::string dir = std::string(NUS_SOURCE_DIR) + "/build/glibc-locales";
    const std::string name = source + "." + charmap;
    if (!fs::exists(fs::path(dir) / name / "LC_TIME")) {
        fs::create_directories(dir);
        const std::string command = "localedef -i " + source + " -f " + charmap + " " + dir +
                                    "/" + name + " >/dev/null 2>&1";
        (void)std::system(command.c_str());
    }
    nus_test::EnvGuard path("LOCPATH", dir);
    return newlocale(LC_ALL_MASK, name.c_str(), static_cast<locale_t>(nullptr));
}

// glibc's strings of a list item: `count` strings separated by NULs.
std::vector<std::string> glibc_list(nl_item item, locale_t loc, size_t count) {
    std::vector<std::string> out;
    const char *p = nl_langinfo_l(item, loc);
    for (size_t i = 0; i < count; ++i) {
        out.emplace_back(p);
        p += out.back().size() + 1;
    }
    return out;
}

std::string mb(const nus::CatString &s) { return str(s.mb); }

// The wide twin, encoded back by the library: it must give the string again.
std::string wide_back(nu_locale_t h, const nu_wchar *w) {
    if (w == nullptr) return "<null>";
    std::string out;
    for (; *w != 0; ++w) {
        unsigned char bytes[8] = {};
        const int n = nu_full_wctomb(h, bytes, *w);
        if (n <= 0) return "<bad wide character>";
        out.append(reinterpret_cast<char *>(bytes), static_cast<size_t>(n));
    }
    return out;
}

// An era string as glibc keeps it, "+:2:2020/01/01:+*:name:format", in our terms.
std::string era_text(const nus::EraSegment &e) {
    auto date = [](int32_t y, int32_t m, int32_t d) {
        if (y == nus::kEraOpenBefore) return std::string("-*");
        if (y == nus::kEraOpenAfter) return std::string("+*");
        char text[40];
        // Years before 1 are written from -1 (1 BC), ours count astronomically from 0.
        std::snprintf(text, sizeof text, "%d/%d/%d", y <= 0 ? y - 1 : y, m, d);
        return std::string(text);
    };
    return std::string(e.direction > 0 ? "+" : "-") + ":" + std::to_string(e.offset) + ":" +
           date(e.start_year, e.start_month, e.start_day) + ":" +
           date(e.end_year, e.end_month, e.end_day) + ":" + mb(e.name) + ":" + mb(e.format);
}

// glibc's era string with the dates' numbers normalised ("0001/01/01" to "1/1/1").
std::string normalised_era(const std::string &text) {
    std::vector<std::string> f;
    size_t at = 0;
    for (int k = 0; k < 5; ++k) {
        const size_t colon = text.find(':', at);
        if (colon == std::string::npos) return text;
        f.push_back(text.substr(at, colon - at));
        at = colon + 1;
    }
    f.push_back(text.substr(at));
    for (int k : {2, 3}) {
        long y, m, d;
        char slash1, slash2;
        std::istringstream in(f[static_cast<size_t>(k)]);
        if (in >> y >> slash1 >> m >> slash2 >> d)
            f[static_cast<size_t>(k)] = std::to_string(y) + "/" + std::to_string(m) + "/" + std::to_string(d);
    }
    return f[0] + ":" + f[1] + ":" + f[2] + ":" + f[3] + ":" + f[4] + ":" + f[5];
}

// Every item, the era table, the digits and the week of one locale against glibc's; returns
// the number of items compared.
int compare_with_glibc(nu_locale_t h, locale_t g, const std::string &what) {
    int compared = 0;
    const nus::TimeFields &t = h->time;
    auto same = [&](int item, nl_item theirs) {
        *_nu_ext_errno(h) = 0;
        const std::string ours = str(nu_nl_langinfo(h, item));
        EXPECT_EQ(ours, str(nl_langinfo_l(theirs, g))) << what << " item " << item;
        EXPECT_EQ(wide_back(h, nu_wc_nl_langinfo(h, item)), ours) << what << " wide item " << item;
        EXPECT_EQ(*_nu_ext_errno(h), 0) << what << " item " << item;
        ++compared;
    };
    same(0, D_T_FMT);
    for (int i = 0; i < 7; ++i) {
        same(1 + i, ABDAY_1 + i);
        same(8 + i, DAY_1 + i);
    }
    EXPECT_EQ(t.month_count, 12) << what;
    for (int i = 0; i < 12; ++i) {
        same(15 + i, MON_1 + i);
        EXPECT_EQ(mb(t.abmon[i]), nl_langinfo_l(ABMON_1 + i, g)) << what << " abmon " << i;
    }
    *_nu_ext_errno(h) = 0;
    EXPECT_EQ(nu_nl_langinfo(h, 27), nullptr) << what;
    EXPECT_EQ(*_nu_ext_errno(h), NU_EBADVAL) << what;
    // glibc repeats the first month list where a locale has no second one; we have none then.
    if (t.alt_month_count == 0) {
        *_nu_ext_errno(h) = 0;
        EXPECT_EQ(nu_nl_langinfo(h, 35), nullptr) << what;
        EXPECT_EQ(*_nu_ext_errno(h), NU_EBADVAL) << what;
        for (int i = 0; i < 12; ++i) {
            EXPECT_STREQ(nl_langinfo_l(ALTMON_1 + i, g), nl_langinfo_l(MON_1 + i, g)) << what;
            EXPECT_STREQ(nl_langinfo_l(_NL_ABALTMON_1 + i, g), nl_langinfo_l(ABMON_1 + i, g)) << what;
        }
    } else {
        EXPECT_EQ(t.alt_month_count, 12) << what;
        for (int i = 0; i < 12; ++i) {
            same(35 + i, ALTMON_1 + i);
            EXPECT_EQ(mb(t.ab_alt_mon[i]), nl_langinfo_l(_NL_ABALTMON_1 + i, g)) << what;
        }
    }
    const nl_item formats[] = {D_FMT,  T_FMT,       T_FMT_AMPM, AM_STR,    PM_STR,
                               _DATE_FMT, ERA_D_T_FMT, ERA_D_FMT, ERA_T_FMT, ERA_YEAR};
    for (int i = 0; i < 10; ++i) same(61 + i, formats[i]);
    EXPECT_EQ(str(nu_nl_langinfo(h, 73)), "gregorian\n") << what;

    // A word item: its value is the low 32 bits of what nl_langinfo returns.
    const auto eras = static_cast<size_t>(static_cast<uint32_t>(
        reinterpret_cast<uintptr_t>(nl_langinfo_l(_NL_TIME_ERA_NUM_ENTRIES, g))));
    EXPECT_EQ(static_cast<size_t>(t.era_count), eras) << what;
    if (static_cast<size_t>(t.era_count) == eras) {
        const std::vector<std::string> theirs = glibc_list(ERA, g, eras);
        for (size_t i = 0; i < eras; ++i) {
            EXPECT_EQ(era_text(t.eras[i]), normalised_era(theirs[i])) << what << " era " << i;
            EXPECT_EQ(wide_back(h, t.eras[i].name.wide), mb(t.eras[i].name)) << what;
            ++compared;
        }
    }
    const std::vector<std::string> digits = glibc_list(ALT_DIGITS, g, 100);
    const auto defined = static_cast<size_t>(
        std::find(digits.begin(), digits.end(), std::string()) - digits.begin());
    EXPECT_EQ(static_cast<size_t>(t.alt_digit_count), defined) << what;
    for (size_t i = 0; i < defined && i < static_cast<size_t>(t.alt_digit_count); ++i) {
        EXPECT_EQ(mb(t.alt_digits[i]), digits[i]) << what << " digit " << i;
        ++compared;
    }
    EXPECT_EQ(t.week_days, *nl_langinfo_l(_NL_TIME_WEEK_NDAYS, g)) << what;
    EXPECT_EQ(t.week_start, static_cast<int32_t>(reinterpret_cast<intptr_t>(
                                nl_langinfo_l(_NL_TIME_WEEK_1STDAY, g))))
        << what;
    EXPECT_EQ(t.week_min_days, *nl_langinfo_l(_NL_TIME_WEEK_1STWEEK, g)) << what;
    EXPECT_EQ(t.first_weekday, *nl_langinfo_l(_NL_TIME_FIRST_WEEKDAY, g)) << what;
    EXPECT_EQ(t.first_workday, *nl_langinfo_l(_NL_TIME_FIRST_WORKDAY, g)) << what;
    return compared + 5;
}

TEST(TimeCategory, DefaultLocalesAnswerAsGlibc) {
    int locales = 0, items = 0;
    std::vector<std::string> skipped;
    for (const Listed &l : default_locales()) {
        if (l.local_calendar) continue;   // glibc has no locale of another calendar
        TestLocale h(l.spec);
        if (h.h == nullptr) GTEST_SKIP() << l.spec << " not available (build the 64-bit tree)";
        locale_t g = glibc_locale(l.source, l.charmap);
        if (g == nullptr) {
            skipped.push_back(l.source + "." + l.charmap);
            continue;
        }
        items += compare_with_glibc(h, g, l.spec);
        ++locales;
        freelocale(g);
    }
    std::printf("TIME items of %d locales compared with glibc: %d values\n", locales, items);
    for (const std::string &s : skipped) std::printf("glibc cannot build %s\n", s.c_str());
    EXPECT_TRUE(skipped.empty());
    EXPECT_GE(locales, 35);
}

// The null locale (and a handle whose TIME category was freed and emptied) answers as glibc's
// "C" locale; its texts are static and a release leaves them alone.
TEST(TimeCategory, NullLocaleIsThePosixLocale) {
    nu_locale_t h = nullptr;
    ASSERT_EQ(nu_create_null_locale_4(&h), 0);
    locale_t c = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    ASSERT_NE(c, nullptr);
    for (int pass = 0; pass < 2; ++pass) {
        auto same = [&](int item, nl_item theirs) {
            EXPECT_EQ(str(nu_nl_langinfo(h, item)), str(nl_langinfo_l(theirs, c))) << item;
            const nu_wchar *w = nu_wc_nl_langinfo(h, item);
            ASSERT_NE(w, nullptr) << item;
            std::string narrowed;
            for (; *w != 0; ++w) narrowed += static_cast<char>(*w);
            EXPECT_EQ(narrowed, str(nl_langinfo_l(theirs, c))) << item;
        };
        same(0, D_T_FMT);
        for (int i = 0; i < 7; ++i) {
            same(1 + i, ABDAY_1 + i);
            same(8 + i, DAY_1 + i);
        }
        for (int i = 0; i < 12; ++i) same(15 + i, MON_1 + i);
        const nl_item formats[] = {D_FMT,  T_FMT,       T_FMT_AMPM, AM_STR,    PM_STR,
                                   _DATE_FMT, ERA_D_T_FMT, ERA_D_FMT, ERA_T_FMT, ERA_YEAR};
        for (int i = 0; i < 10; ++i) same(61 + i, formats[i]);
        const nus::TimeFields &t = h->time;
        EXPECT_EQ(t.week_days, *nl_langinfo_l(_NL_TIME_WEEK_NDAYS, c));
        EXPECT_EQ(t.week_min_days, *nl_langinfo_l(_NL_TIME_WEEK_1STWEEK, c));
        EXPECT_EQ(t.first_weekday, *nl_langinfo_l(_NL_TIME_FIRST_WEEKDAY, c));
        EXPECT_EQ(t.first_workday, *nl_langinfo_l(_NL_TIME_FIRST_WORKDAY, c));
        for (int item : {27, 35}) {
            *_nu_ext_errno(h) = 0;
            EXPECT_EQ(nu_nl_langinfo(h, item), nullptr);
            EXPECT_EQ(*_nu_ext_errno(h), NU_EBADVAL);
        }
        EXPECT_EQ(str(nu_nl_langinfo(h, 73)), "gregorian\n");
        EXPECT_TRUE(nus::static_time_text(t.mon[0].mb) && nus::static_time_text(t.mon[19].wide));
        nu_free_category(h, NU_TIME);
        nu_make_null_category(h, NU_TIME);
    }
    freelocale(c);
    nu_lc_unload(h);
}

// ---- the section reader ------------------------------------------------------------------

const fs::path kFixtures = fs::path(NUS_SOURCE_DIR) / "tests/data/lc11";

std::string fixture_text(const char *file) { return nus_test::read_file(kFixtures / file); }

// The TIME section of a locale file, its marker line excluded.
std::string time_section(const std::string &file) {
    const size_t start = file.find("### LC_TIME\n") + 12;
    return file.substr(start, file.find("### LC_MESSAGES\n") - start);
}

// Reads a section into `h` through the reader; the code, or 0.
int read_section(nu_locale_t h, const std::string &section) {
    const std::string text = section + "### LC_MESSAGES\n";
    FILE *f = nus_test::text_stream(text);
    int error = 0;
    const int result = _nu_read_time(f, h, &error);
    // A section read whole leaves the stream at the next marker.
    if (result == 0) {
        EXPECT_EQ(nus_test::rest_of(f), "### LC_MESSAGES\n");
    }
    std::fclose(f);
    EXPECT_EQ(result == 0, error == 0);
    return result == 0 ? 0 : error;
}

// A print of what the record holds, through the items and the record itself.
std::string record_print(nu_locale_t h) {
    std::string print;
    for (int item = 0; item <= 73; ++item) print += str(nu_nl_langinfo(h, item)) + "|";
    const nus::TimeFields &t = h->time;
    for (int i = 0; i < t.era_count; ++i) print += era_text(t.eras[i]) + "|";
    for (int i = 0; i < t.alt_digit_count; ++i) print += mb(t.alt_digits[i]) + "|";
    print += std::to_string(t.calendar) + " " + std::to_string(t.week_start);
    *_nu_ext_errno(h) = 0;
    return print;
}

TEST(TimeSection, FixtureSectionsRead) {
    nu_locale_t h = nullptr;
    ASSERT_EQ(nu_create_null_locale_4(&h), 0);
    const std::string section = time_section(fixture_text("xx_yy/0333.lco"));
    ASSERT_EQ(read_section(h, section), 0);
    const nus::TimeFields &t = h->time;
    EXPECT_EQ(str(nu_nl_langinfo(h, 46)), "DECEMBER");
    EXPECT_EQ(mb(t.ab_alt_mon[11]), "DEC");
    EXPECT_EQ(str(nu_nl_langinfo(h, 67)), "%EC %Ey");
    ASSERT_EQ(t.era_count, 3);
    EXPECT_EQ(era_text(t.eras[0]), "+:2:1990/1/1:+*:Heisei:%EC%Ey");
    EXPECT_EQ(era_text(t.eras[2]), "-:1:-1/12/31:-*:B.C.:%Ey %EC");
    EXPECT_EQ(t.eras[2].start_year, 0);
    ASSERT_EQ(t.alt_digit_count, 4);
    EXPECT_EQ(mb(t.alt_digits[3]), "three");
    // Read again over a loaded record: the old one is released (the leak checkers watch).
    ASSERT_EQ(read_section(h, section), 0);
    nu_lc_unload(h);
}

// A section cut anywhere before its last string, counts and values out of their ranges,
// hostile lengths and garbage: 11 every time, the record as it was, nothing leaked.
TEST(TimeSection, DamagedSectionsFailWithBadFile) {
    nu_locale_t h = nullptr;
    ASSERT_EQ(nu_create_null_locale_4(&h), 0);
    const std::string good = time_section(fixture_text("xx_yy/0333.lco"));
    const std::string before = record_print(h);
    const size_t last = good.find_last_not_of(" \n") + 1;
    for (size_t cut = 0; cut < last; ++cut) {
        EXPECT_EQ(read_section(h, good.substr(0, cut)), NU_EBADFILE) << "cut at " << cut;
        EXPECT_EQ(record_print(h), before) << "cut at " << cut;
    }
    struct Edit {
        const char *what, *from, *to;
    };
    const Edit edits[] = {
        {"calendar 5", "1 12 12 3 4\n", "5 12 12 3 4\n"},
        {"11 months", "1 12 12 3 4\n", "1 11 12 3 4\n"},
        {"21 months", "1 12 12 3 4\n", "1 21 12 3 4\n"},
        {"a second list of 5", "1 12 12 3 4\n", "1 12 5 3 4\n"},
        {"negative eras", "1 12 12 3 4\n", "1 12 12 -3 4\n"},
        {"more eras than written", "1 12 12 3 4\n", "1 12 12 4 4\n"},
        {"eras in the millions", "1 12 12 3 4\n", "1 12 12 4000000 4\n"},
        {"101 digits", "1 12 12 3 4\n", "1 12 12 3 101\n"},
        {"an 8-day week", "7 19971130 4 1 2\n", "8 19971130 4 1 2\n"},
        {"first weekday 0", "7 19971130 4 1 2\n", "7 19971130 4 0 2\n"},
        {"first workday 8", "7 19971130 4 1 2\n", "7 19971130 4 1 8\n"},
        {"a hostile length", "\n6 53756e646179\n", "\n2000000000 53756e646179\n"},
        {"a length past the bytes", "\n6 53756e646179\n", "\n7 53756e646179\n"},
        {"a negative length", "\n6 53756e646179\n", "\n-6 53756e646179\n"},
        {"no blank after the length", "\n6 53756e646179\n", "\n6\t53756e646179\n"},
        {"no hexadecimal digit", "\n6 53756e646179\n", "\n6 53756e6461zz\n"},
        {"a word for a number", "1 12 12 3 4\n", "one 12 12 3 4\n"},
        {"direction 0", "\n1 2 1990 1 1 2147483647 0 0\n", "\n0 2 1990 1 1 2147483647 0 0\n"},
        {"month 13", "\n1 2 1990 1 1 2147483647 0 0\n", "\n1 2 1990 13 1 2147483647 0 0\n"},
        {"day 0", "\n1 2 1990 1 1 2147483647 0 0\n", "\n1 2 1990 1 0 2147483647 0 0\n"},
        {"an open end with a month", "\n1 2 1990 1 1 2147483647 0 0\n", "\n1 2 1990 1 1 2147483647 1 0\n"},
        {"an era cut short", "\n1 2 1990 1 1 2147483647 0 0\n", "\n1 2 1990 1 1\n"},
    };
    for (const Edit &e : edits) {
        std::string bad = good;
        const size_t at = bad.find(e.from);
        ASSERT_NE(at, std::string::npos) << e.what;
        bad.replace(at, std::strlen(e.from), e.to);
        EXPECT_EQ(read_section(h, bad), NU_EBADFILE) << e.what;
        EXPECT_EQ(record_print(h), before) << e.what;
    }
    nu_lc_unload(h);
}

// A damaged section or a name the code set cannot decode fails the load with 11 and the
// texts of the failure; a TIME category read without CTYPE fails with 57.
TEST(TimeSection, LoadsFailWithTheirCodes) {
    nus_test::TempDir dir;
    std::string text = fixture_text("ja_jp/13ba.lco");
    const std::string section = time_section(text);
    std::string undecodable = text;
    // "Sun" becomes a lead byte without its trail byte.
    undecodable.replace(undecodable.find("\n3 53756e\n", undecodable.find("### LC_TIME")), 10,
                        "\n3 53a475\n");
    std::string damaged = text;
    damaged.replace(damaged.find("### LC_TIME\n1 12 "), 17, "### LC_TIME\n1 99 ");
    dir.write("nus/lc11/bad/13ba.lco", undecodable);
    dir.write("nus/lc11/cut/13ba.lco", damaged);
    nus_test::EnvGuard root("TESSARONDIR", dir.str());
    nus_test::EnvGuard search("NU_PATH", std::nullopt);
    for (const char *name : {"bad/13ba.lco", "cut/13ba.lco"}) {
        nu_locale_t h = nullptr;
        EXPECT_EQ(nu_lc_load(&h, name, nullptr, nullptr), -1) << name;
        EXPECT_EQ(*_nu_ext_errno(h), NU_EBADFILE) << name;
        EXPECT_EQ(h->locname[nus::cat_index(NU_TIME)][0], '\0') << name;
        nu_lc_unload(h);
    }
    dir.write("nus/lc11/good/13ba.lco", text);
    nu_locale_t h = nullptr;
    ASSERT_EQ(nu_create_null_locale_4(&h), 0);
    EXPECT_EQ(nu_setlocale_4(h, NU_TIME, "good/13ba.lco"), nullptr);
    EXPECT_EQ(*_nu_ext_errno(h), NU_ENOTLOADED);
    nu_lc_unload(h);
}

// ---- lifecycle ---------------------------------------------------------------------------

// NU_TIME in the environment names the TIME category's locale; a copy shares the record but
// not the era cache, which each handle frees with itself; a category of another code set is
// refused.
TEST(TimeCategory, PerCategoryLoadsCopiesAndRelease) {
    NUS_LOAD_OR_SKIP(ja, "ja_jp.utf8");
    const std::string japanese_file = ja.h->locname[nus::cat_index(NU_TIME)];
    nus_test::EnvGuard root("TESSARONDIR", std::string(NUS_DATA_DIR));
    nus_test::EnvGuard all("NU_ALL", std::nullopt);
    nus_test::EnvGuard path("NU_PATH", std::nullopt);
    nus_test::EnvGuard lang("NU_LANG", std::nullopt);
    char file[NU_LC_FNAME_SIZE(0)];
    int32_t scratch = 0;
    ASSERT_EQ(nu_lc_spec2lc_fname(&scratch, "en_us.utf8", file, nullptr, nullptr), 0);
    nu_locale_t h = nullptr;
    ASSERT_EQ(nu_create_null_locale_4(&h), 0);
    nu_destroystring(nu_setlocale_4(h, NU_CTYPE, file));
    {
        nus_test::EnvGuard time("NU_TIME", japanese_file);
        char *names = nu_setlocale_4(h, NU_TIME, "");
        ASSERT_NE(names, nullptr);
        EXPECT_EQ(str(names), japanese_file);
        nu_destroystring(names);
    }
    EXPECT_EQ(str(nu_nl_langinfo(h, 15)), str(nu_nl_langinfo(ja, 15)));
    EXPECT_EQ(h->time.era_count, ja.h->time.era_count);
    EXPECT_GT(h->time.era_count, 0);
    // Another code set for TIME than CTYPE's.
    char sjis[NU_LC_FNAME_SIZE(0)];
    ASSERT_EQ(nu_lc_spec2lc_fname(&scratch, "ja_jp.sjis", sjis, nullptr, nullptr), 0);
    EXPECT_EQ(nu_setlocale_4(h, NU_TIME, sjis), nullptr);
    EXPECT_EQ(*_nu_ext_errno(h), NU_ECATCODESET);
    nu_lc_unload(h);

    // Copies: the record's strings, eras and caches shared; the era cache each handle's own.
    nu_time_rec day{};
    day.year = 124;
    day.mday = 1;
    char era[64];
    ASSERT_GT(nu_mbsftime(ja, era, sizeof era, "%EC%Ey", &day), 0);   // makes the era cache
    ASSERT_NE(ja.h->time.era_cache, nullptr);
    nu_locale_t copy = nullptr;
    ASSERT_EQ(nu_create_null_locale_4(&copy), 0);
    ASSERT_EQ(nu_copy_cat(copy, ja, NU_ALL), 0);
    EXPECT_EQ(copy->time.eras, ja.h->time.eras);
    EXPECT_EQ(copy->time.mon[0].mb, ja.h->time.mon[0].mb);
    EXPECT_EQ(copy->time.mb_cache[nus::kCacheMonths], ja.h->time.mb_cache[nus::kCacheMonths]);
    EXPECT_EQ(copy->time.era_cache, nullptr);
    EXPECT_EQ(copy->time.era_cache_count, 0);
    ASSERT_GT(nu_mbsftime(copy, era, sizeof era, "%EC%Ey", &day), 0);   // the copy's own
    EXPECT_NE(copy->time.era_cache, ja.h->time.era_cache);   // freed with the copy
    EXPECT_EQ(nu_copy_cat(copy, ja, NU_TIME), -1);
    EXPECT_EQ(*_nu_ext_errno(copy), NU_ECOPY);
    const std::string month = str(nu_nl_langinfo(ja, 26));
    // A section read over the shared record replaces it without freeing the owner's.
    ASSERT_EQ(read_section(copy, time_section(fixture_text("xx_yy/0333.lco"))), 0);
    EXPECT_EQ(str(nu_nl_langinfo(copy, 46)), "DECEMBER");
    nu_free_nonshared_loc(copy);
    EXPECT_EQ(str(nu_nl_langinfo(ja, 26)), month);
    EXPECT_NE(ja.h->time.era_cache, nullptr);   // freed with its handle
    // The code sets of the categories must agree: TIME's is compared with CTYPE's.
    char latin1[NU_LC_FNAME_SIZE(0)];
    ASSERT_EQ(nu_lc_spec2lc_fname(&scratch, "de_de.8859-1", latin1, nullptr, nullptr), 0);
    nu_locale_t mixed = nullptr;
    ASSERT_EQ(nu_create_null_locale_4(&mixed), 0);
    nu_destroystring(nu_setlocale_4(mixed, NU_CTYPE, latin1));
    EXPECT_EQ(nu_copy_cat(mixed, ja, NU_TIME), 0);
    EXPECT_EQ(*_nu_ext_errno(mixed), NU_ECODESET);
    nu_free_nonshared_loc(mixed);
    EXPECT_EQ(str(nu_nl_langinfo(ja, 73)), "gregorian\n");
}

// ---- validation caches -------------------------------------------------------------------

std::string folded(nu_locale_t h, const std::string &s) {
    std::vector<unsigned char> out(s.size() * 4 + 8, 0);
    std::vector<unsigned char> in(s.begin(), s.end());
    in.resize(in.size() + 4, 0);
    nu_tombslower(h, out.data(), in.data());
    return reinterpret_cast<char *>(out.data());
}

std::string upper(nu_locale_t h, const std::string &s) {
    std::vector<unsigned char> out(s.size() * 4 + 8, 0);
    std::vector<unsigned char> in(s.begin(), s.end());
    in.resize(in.size() + 4, 0);
    nu_tombsupper(h, out.data(), in.data());
    return reinterpret_cast<char *>(out.data());
}

// The string of the record a cache value names.
const nus::CatString *named(const nus::TimeFields &t, nus::TimeCache kind, uint32_t v) {
    const uint32_t list = v >> 8, index = v & 0xFF;
    switch (kind) {
    case nus::kCacheMonths: {
        const nus::CatString *lists[] = {t.mon, t.abmon, t.alt_mon, t.ab_alt_mon};
        const int32_t count = list < 2 ? t.month_count : t.alt_month_count;
        return list < 4 && static_cast<int32_t>(index) < count ? &lists[list][index] : nullptr;
    }
    case nus::kCacheDays: return list < 2 && index < 7 ? &(list == 0 ? t.day : t.abday)[index] : nullptr;
    case nus::kCacheEras: return static_cast<int32_t>(v) < t.era_count ? &t.eras[v].name : nullptr;
    case nus::kCacheAmPm: return v == 0 ? &t.am : v == 1 ? &t.pm : nullptr;
    default: return static_cast<int32_t>(v) < t.alt_digit_count ? &t.alt_digits[v] : nullptr;
    }
}

// Every name of the record, in capitals and followed by more text, is recognised by both
// tries: the value names a string of the record that starts the input (case aside) and
// covers exactly the bytes (characters) the lookup reports.
TEST(TimeCategory, ValidationCachesRecogniseEveryName) {
    int looked_up = 0;
    for (const char *spec : {"de_de.8859-1", "ru_ru.utf8", "el_gr.8859-7", "ja_jp.sjis",
                             "ja_jp.utf8", "my_mm.utf8", "fa_ir.utf8"}) {
        TestLocale h(spec);
        if (h.h == nullptr) GTEST_SKIP() << spec << " not available (build the 64-bit tree)";
        const nus::TimeFields &t = h.h->time;
        auto check = [&](nus::TimeCache kind, const nus::CatString &s) {
            if (s.mb[0] == '\0') return;
            const std::string input = upper(h, s.mb) + " 1999";
            std::vector<unsigned char> in(input.begin(), input.end());
            in.resize(in.size() + 4, 0);
            int len = -1;
            uint32_t value = 0;
            ASSERT_EQ(_nu_validate_mb_string(h, t.mb_cache[kind], in.data(), &len, &value), 0)
                << spec << " " << s.mb;
            const nus::CatString *found = named(t, kind, value);
            ASSERT_NE(found, nullptr) << spec << " " << s.mb << " value " << value;
            EXPECT_EQ(static_cast<size_t>(len), std::strlen(found->mb)) << spec << " " << s.mb;
            EXPECT_EQ(folded(h, input.substr(0, static_cast<size_t>(len))), folded(h, found->mb))
                << spec << " " << s.mb;
            // The wide trie, on the wide form of the same input.
            std::vector<nu_wchar> wide(in.size() + 1, 0);
            ASSERT_GE(h.h->to_wide(h, wide.data(), in.data(), static_cast<int>(wide.size())), 0);
            int wlen = -1;
            uint32_t wvalue = 0;
            ASSERT_EQ(_nu_validate_wc_string(h, t.wc_cache[kind], wide.data(), &wlen, &wvalue), 0);
            const nus::CatString *wfound = named(t, kind, wvalue);
            ASSERT_NE(wfound, nullptr);
            int chars = 0;
            for (const nu_wchar *w = wfound->wide; *w != 0; ++w) ++chars;
            EXPECT_EQ(wlen, chars) << spec << " " << s.mb;
            ++looked_up;
        };
        for (int i = 0; i < t.month_count; ++i) {
            check(nus::kCacheMonths, t.mon[i]);
            check(nus::kCacheMonths, t.abmon[i]);
        }
        for (int i = 0; i < t.alt_month_count; ++i) check(nus::kCacheMonths, t.alt_mon[i]);
        for (int i = 0; i < 7; ++i) {
            check(nus::kCacheDays, t.day[i]);
            check(nus::kCacheDays, t.abday[i]);
        }
        for (int i = 0; i < t.era_count; ++i) check(nus::kCacheEras, t.eras[i].name);
        check(nus::kCacheAmPm, t.am);
        check(nus::kCacheAmPm, t.pm);
        for (int i = 0; i < t.alt_digit_count; ++i) check(nus::kCacheDigits, t.alt_digits[i]);
    }
    EXPECT_GT(looked_up, 500);
}

// The values of a few names, as the time parser relies on them.
TEST(TimeCategory, ValidationCacheValues) {
    NUS_LOAD_OR_SKIP(de, "de_de.8859-1");
    NUS_LOAD_OR_SKIP(ja, "ja_jp.utf8");
    auto lookup = [](nu_locale_t h, nus::TimeCache kind, const char *s) {
        int len = -1;
        uint32_t value = 0;
        std::string in = std::string(s) + std::string(4, '\0');
        const int r = _nu_validate_mb_string(h, h->time.mb_cache[kind], u(in.c_str()), &len, &value);
        return r == 0 ? std::to_string(value) + "/" + std::to_string(len) : std::string("none");
    };
    EXPECT_EQ(lookup(de, nus::kCacheMonths, "MAI 2020"), "4/3");          // the full name wins
    EXPECT_EQ(lookup(de, nus::kCacheMonths, "dezember"), "267/3");        // abbreviation 11
    EXPECT_EQ(lookup(de, nus::kCacheDays, "sonntag"), "256/2");           // "So", Sunday
    EXPECT_EQ(lookup(de, nus::kCacheMonths, "Smarch"), "none");
    EXPECT_EQ(lookup(ja, nus::kCacheEras, "\xE5\xB9\xB3\xE6\x88\x90"), "2/6");   // Heisei
    EXPECT_EQ(lookup(ja, nus::kCacheDigits, "\xE4\xB8\x89"), "3/3");
    EXPECT_EQ(lookup(ja, nus::kCacheAmPm, "\xE5\x8D\x88\xE5\xBE\x8C"), "1/6");
}

} // namespace
