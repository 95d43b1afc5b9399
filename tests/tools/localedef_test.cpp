// The locale compiler: real Debian locales compiled, loaded by the library, and compared
// with glibc's own compilation of the same source and charmap.
#include "tools/localedef/compile.h"
#include "support/support.h"

#include "nus.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <clocale>
#include <cstdlib>
#include <langinfo.h>
#include <locale.h>
#include <sys/wait.h>
#include <climits>
#include <cwchar>
#include <cwctype>

using namespace nus::tools;
using nus_test::EnvGuard;
using nus_test::TempDir;

namespace {

const std::string kLocales = "/usr/share/i18n/locales/";
const std::string kCharmaps = "/usr/share/i18n/charmaps/";

// An installation tree with the registry, into which locales are compiled.
class Tree {
public:
    Tree() : path_("NU_PATH", std::nullopt), root_("TESSARONDIR", dir_.str()) {
        std::filesystem::create_directories(dir_.path() / "nus/cm3");
        std::filesystem::copy_file(std::filesystem::path(NUS_SOURCE_DIR) / "data/registry",
                                   dir_.path() / "nus/cm3/registry");
    }
    // Compiles SOURCE with CHARMAP as nus/lc11/NAME; warnings are returned.
    std::vector<std::string> compile(const std::string &source, const std::string &charmap,
                                     const std::string &codeset, const std::string &name) {
        Charmap map, widths;
        EXPECT_FALSE(read_charmap(kCharmaps + charmap + ".gz", map));
        EXPECT_FALSE(read_charmap(kCharmaps + "UTF-8.gz", widths));
        SourceLocale locale;
        EXPECT_FALSE(read_locale_source(kLocales + source, locale));
        const auto file = dir_.path() / "nus/lc11" / name;
        std::filesystem::create_directories(file.parent_path());
        FILE *out = std::fopen(file.c_str(), "w");
        CompileReport report;
        const auto error = compile_locale(locale, map, {codeset, source, &widths}, out, report);
        std::fclose(out);
        EXPECT_FALSE(error) << *error;
        return report.warnings;
    }
    const TempDir &dir() const { return dir_; }

private:
    TempDir dir_;
    EnvGuard path_;
    EnvGuard root_;
};

// glibc's compilation of the same source and charmap, in a directory of its own.
locale_t glibc_locale(const TempDir &dir, const std::string &source, const std::string &charmap) {
    const std::string name = source + "." + charmap;
    const std::string command = "localedef -i " + source + " -f " + charmap + " " +
                                (dir.path() / name).string() + " >/dev/null 2>&1";
    if (std::system(command.c_str()) != 0 && !std::filesystem::exists(dir.path() / name))
        return static_cast<locale_t>(0);
    setenv("LOCPATH", dir.str().c_str(), 1);
    locale_t l = newlocale(LC_ALL_MASK, name.c_str(), static_cast<locale_t>(0));
    unsetenv("LOCPATH");
    return l;
}

// The numeric, monetary and messages values of a loaded locale against glibc's build of the
// same source. Strings with characters the code set lacks are transliterated as glibc does
// them (the euro sign in Latin-1 becomes "EUR", a narrow no-break space a no-break space).
void expect_values_agree(nu_locale_t h, locale_t g, const char *spec) {
    const struct {
        int ours;
        nl_item theirs;
    } items[] = {{55, RADIXCHAR}, {56, THOUSEP}, {71, YESEXPR}, {72, NOEXPR}};
    for (const auto &item : items)
        EXPECT_STREQ(nu_nl_langinfo(h, item.ours), nl_langinfo_l(item.theirs, g)) << spec << " " << item.ours;
    const nu_lconv *c = nu_localeconv(h);
    EXPECT_STREQ(c->decimal_point, nl_langinfo_l(DECIMAL_POINT, g)) << spec;
    EXPECT_STREQ(c->thousands_sep, nl_langinfo_l(THOUSANDS_SEP, g)) << spec;
    EXPECT_STREQ(c->int_curr_symbol, nl_langinfo_l(INT_CURR_SYMBOL, g)) << spec;
    EXPECT_STREQ(c->currency_symbol, nl_langinfo_l(CURRENCY_SYMBOL, g)) << spec;
    EXPECT_STREQ(c->mon_decimal_point, nl_langinfo_l(MON_DECIMAL_POINT, g)) << spec;
    EXPECT_STREQ(c->mon_thousands_sep, nl_langinfo_l(MON_THOUSANDS_SEP, g)) << spec;
    EXPECT_STREQ(c->positive_sign, nl_langinfo_l(POSITIVE_SIGN, g)) << spec;
    EXPECT_STREQ(c->negative_sign, nl_langinfo_l(NEGATIVE_SIGN, g)) << spec;
    EXPECT_EQ(c->int_frac_digits, *nl_langinfo_l(INT_FRAC_DIGITS, g)) << spec;
    EXPECT_EQ(c->frac_digits, *nl_langinfo_l(FRAC_DIGITS, g)) << spec;
    EXPECT_EQ(c->p_cs_precedes, *nl_langinfo_l(P_CS_PRECEDES, g)) << spec;
    EXPECT_EQ(c->p_sep_by_space, *nl_langinfo_l(P_SEP_BY_SPACE, g)) << spec;
    EXPECT_EQ(c->n_cs_precedes, *nl_langinfo_l(N_CS_PRECEDES, g)) << spec;
    EXPECT_EQ(c->n_sep_by_space, *nl_langinfo_l(N_SEP_BY_SPACE, g)) << spec;
    EXPECT_EQ(c->p_sign_posn, *nl_langinfo_l(P_SIGN_POSN, g)) << spec;
    EXPECT_EQ(c->n_sign_posn, *nl_langinfo_l(N_SIGN_POSN, g)) << spec;
}

} // namespace

struct SingleByte {
    const char *source;
    const char *charmap;
    const char *codeset;
    const char *file;
    const char *spec;
};

// Every byte of each single-byte locale of the default set classifies and case-maps as
// glibc's build of the same source and charmap does.
TEST(Localedef, SingleByteLocalesAgreeWithGlibc) {
    const SingleByte locales[] = {
        {"de_DE", "ISO-8859-1", "8859-1", "de_de/0333.lco", "de_de.8859-1"},
        {"fr_FR", "ISO-8859-1", "8859-1", "fr_fr/0333.lco", "fr_fr.8859-1"},
        {"cs_CZ", "ISO-8859-2", "8859-2", "cs_cz/0390.lco", "cs_cz.8859-2"},
        {"ru_RU", "ISO-8859-5", "8859-5", "ru_ru/0393.lco", "ru_ru.8859-5"},
        {"el_GR", "ISO-8859-7", "8859-7", "el_gr/032d.lco", "el_gr.8859-7"},
        {"he_IL", "ISO-8859-8", "8859-8", "he_il/0394.lco", "he_il.8859-8"},
        {"tr_TR", "ISO-8859-9", "8859-9", "tr_tr/0398.lco", "tr_tr.8859-9"},
        {"en_US", "CP1252", "cp1252", "en_us/04e4.lco", "en_us.cp1252"},
        {"th_TH", "TIS-620", "thai620", "th_th/e01d.lco", "th_th.thai620"},
    };
    struct Class {
        const char *name;
        int (*test)(int, locale_t);
    };
    const Class classes[] = {{"upper", isupper_l}, {"lower", islower_l}, {"alpha", isalpha_l},
                             {"digit", isdigit_l}, {"space", isspace_l}, {"cntrl", iscntrl_l},
                             {"punct", ispunct_l}, {"graph", isgraph_l}, {"print", isprint_l},
                             {"xdigit", isxdigit_l}, {"blank", isblank_l}};
    Tree tree;
    TempDir glibc_dir;
    for (const SingleByte &l : locales) {
        const std::vector<std::string> warnings = tree.compile(l.source, l.charmap, l.codeset, l.file);
        nu_locale_t h = nullptr;
        ASSERT_EQ(nu_lc_load(&h, l.spec, nullptr, nullptr), 0) << l.spec;
        locale_t g = glibc_locale(glibc_dir, l.source, l.charmap);
        if (g == static_cast<locale_t>(0)) {
            nu_lc_unload(h);
            ADD_FAILURE() << "glibc's localedef could not build " << l.spec;
            continue;
        }
        int differences = 0;
        for (int b = 0; b < 256 && differences < 8; ++b) {
            const auto wc = static_cast<nu_wchar>(b);
            for (const Class &c : classes) {
                const bool ours = _nu_im_iswctype(h, wc, nu_ctype(h, c.name)) != 0;
                const bool theirs = c.test(b, g) != 0;
                differences += ours != theirs;
                EXPECT_EQ(ours, theirs) << l.spec << ": " << c.name << " of byte " << b;
            }
            EXPECT_EQ(_nu_im_towupper(h, wc), static_cast<nu_wchar>(toupper_l(b, g))) << l.spec << " " << b;
            EXPECT_EQ(_nu_im_towlower(h, wc), static_cast<nu_wchar>(tolower_l(b, g))) << l.spec << " " << b;
        }
        // Strings with characters the code set lacks are transliterated as glibc does them
        // (the euro sign in Latin-1 becomes "EUR", a narrow no-break space a no-break space).
        expect_values_agree(h, g, l.spec);
        freelocale(g);
        nu_lc_unload(h);
    }
}

// Multibyte locales load and answer for characters of every length.
TEST(Localedef, MultibyteLocalesLoad) {
    Tree tree;
    tree.compile("ja_JP", "EUC-JP", "eucjp", "ja_jp/13ba.lco");
    tree.compile("en_US", "UTF-8", "utf8", "en_us/e01c.lco");
    nu_locale_t euc = nullptr;
    ASSERT_EQ(nu_lc_load(&euc, "ja_jp.eucjp", nullptr, nullptr), 0);
    EXPECT_EQ(nu_mb_loc_max(euc), 3);
    const int full = nu_ctype(euc, "full_width");
    EXPECT_NE(full, 0);
    EXPECT_NE(_nu_im_iswctype(euc, 0xA4A2, full), 0);   // HIRAGANA LETTER A
    EXPECT_EQ(_nu_im_iswctype(euc, 'A', full), 0);
    EXPECT_EQ(_nu_im_towupper(euc, 0xA3E1), nu_wchar{0xA3C1});   // FULLWIDTH a -> A
    nu_lc_unload(euc);

    nu_locale_t utf8 = nullptr;
    ASSERT_EQ(nu_lc_load(&utf8, "en_us.utf8", nullptr, nullptr), 0);
    EXPECT_EQ(nu_mb_loc_max(utf8), 4);
    nu_wchar wide[8];
    EXPECT_EQ(_nu_im_mbstowcs(utf8, wide, reinterpret_cast<const unsigned char *>("\xc3\xa9\xe2\x82\xac"), 8), 2);
    EXPECT_EQ(_nu_im_towupper(utf8, wide[0]), nu_wchar{0xC389});   // e-acute -> E-acute
    EXPECT_NE(_nu_im_iswctype(utf8, 0xE4B880, nu_ctype(utf8, "full_width")), 0);   // U+4E00
    EXPECT_STREQ(nu_localeconv(utf8)->currency_symbol, "$");
    nu_lc_unload(utf8);
}

// The generated data tree: every locale of the default set loads, and so does default.lco.
TEST(Localedef, DefaultSetLoads) {
    EnvGuard path("NU_PATH", std::nullopt);
    EnvGuard root("TESSARONDIR", NUS_DATA_DIR);
    nu_locale_t h = nullptr;
    ASSERT_EQ(nu_createlocale_4(&h), 0) << *_nu_ext_errno(h);
    EXPECT_STREQ(nu_localeconv(h)->decimal_point, ".");
    nu_lc_unload(h);
    const char *specs[] = {"en_us.8859-1", "de_de.8859-1", "fr_fr.8859-1", "es_es.8859-1",
                           "cs_cz.8859-2", "ru_ru.8859-5", "el_gr.8859-7", "he_il.8859-8",
                           "tr_tr.8859-9", "en_us.cp1252", "ja_jp.sjis",   "ja_jp.ujis",
                           "ko_kr.euc-kr", "zh_cn.gb",     "zh_tw.big5",   "th_th.thai620",
                           "en_us.utf8",   "de_de.utf8",   "ja_jp.utf8"};
    for (const char *spec : specs) {
        h = nullptr;
        EXPECT_EQ(nu_lc_load(&h, spec, nullptr, nullptr), 0) << spec << " " << *_nu_ext_errno(h);
        EXPECT_GT(nu_ctype(h, "alpha"), 0) << spec;
        nu_lc_unload(h);
    }
}

// The command reports broken input as FILE:LINE: message, exits with 1 and leaves no file.
TEST(Localedef, CommandErrors) {
    TempDir dir;
    const auto broken = dir.write("xx_XX", "comment_char %\nescape_char /\nLC_NUMERIC\n"
                                           "decimal_point \",\nEND LC_NUMERIC\n");
    const auto output = dir.path() / "out.lco";
    const auto errors = dir.path() / "errors";
    auto run = [&](const std::string &arguments) {
        const std::string command = std::string(NUS_LOCALEDEF) + " " + arguments + " -o " +
                                    output.string() + " 2>" + errors.string() + " >/dev/null";
        const int status = std::system(command.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    };
    EXPECT_EQ(run("-i " + broken.string() + " -f ISO-8859-1 -c 8859-1"), 1);
    EXPECT_EQ(nus_test::read_file(errors), broken.string() + ":4: unterminated string\n");
    EXPECT_FALSE(std::filesystem::exists(output));
    EXPECT_EQ(run("-i de_DE -f NO-SUCH-CHARMAP -c 8859-1"), 1);
    EXPECT_NE(nus_test::read_file(errors).find("NO-SUCH-CHARMAP:0: cannot read the charmap"),
              std::string::npos);
    EXPECT_EQ(run("-i de_DE -f ISO-8859-1 -c no-such-codeset"), 1);
    EXPECT_NE(nus_test::read_file(errors).find("does not know the code set"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(output));
    EXPECT_EQ(run("-i de_DE -f ISO-8859-1 -c 8859-1"), 0);
    EXPECT_TRUE(std::filesystem::exists(output));
}

// Sources whose names a locale file name cannot hold. A modifier of more than four characters
// is named by its short form from the modifiers file, which has one for every such source
// with a two-letter language, and the output says so; a three-letter language is refused with
// the hint to use -o, and the file -o writes loads by its name. om_ET, whose collation copies
// iso14651_t1 twice (through am_ET and om_KE), compiles and sorts the Oromo digraphs after z,
// as glibc does.
TEST(Localedef, SourcesTheFileNamesCannotHold) {
    const std::string modifiers = std::string(NUS_SOURCE_DIR) + "/data/locale-modifiers";
    for (const auto &entry : std::filesystem::directory_iterator(kLocales)) {
        const std::string name = entry.path().filename().string();
        const size_t at = name.find('@');
        if (at != 5 || name[2] != '_' || name.size() - at - 1 <= 4) continue;
        std::string short_form;
        EXPECT_FALSE(name_from_list(modifiers, name.substr(at + 1), short_form));
        EXPECT_TRUE(!short_form.empty() && short_form.size() <= 4 &&
                    std::all_of(short_form.begin(), short_form.end(), [](char c) { return std::isalnum(c); }))
            << name << " -> \"" << short_form << "\"";
    }

    Tree tree;
    const auto log = tree.dir().path() / "log";
    auto run = [&](const std::string &arguments) {
        const std::string command = std::string(NUS_LOCALEDEF) + " " + arguments + " >" + log.string() + " 2>&1";
        const int status = std::system(command.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    };
    const std::string into_tree = " --tree " + tree.dir().str();
    auto loads = [](const char *spec) {
        nu_locale_t h = nullptr;
        const int result = nu_lc_load(&h, spec, nullptr, nullptr);
        nu_lc_unload(h);
        return result == 0;
    };
    ASSERT_EQ(run("-i sr_RS@latin -f ISO-8859-2" + into_tree), 0) << nus_test::read_file(log);
    EXPECT_NE(nus_test::read_file(log).find("named sr_RS.8859-2@latn"), std::string::npos) << nus_test::read_file(log);
    EXPECT_TRUE(loads("sr_rs.8859-2@latn"));

    EXPECT_EQ(run("-i ast_ES -f ISO-8859-1" + into_tree), 1);
    EXPECT_NE(nus_test::read_file(log).find("give -o FILE.lco"), std::string::npos) << nus_test::read_file(log);
    ASSERT_EQ(run("-i ast_ES -f ISO-8859-1 -o " + (tree.dir().path() / "nus/lc11/ast_ES.lco").string()), 0);
    EXPECT_TRUE(loads("ast_ES.lco"));

    ASSERT_EQ(run("-i om_ET -f ISO-8859-1" + into_tree), 0) << nus_test::read_file(log);
    nu_locale_t h = nullptr;
    ASSERT_EQ(nu_lc_load(&h, "om_et.8859-1", nullptr, nullptr), 0);
    const char *order[] = {"cz", "sz", "Za", "zz", "cha", "Cha", "nya", "sha"};
    for (size_t i = 0; i + 1 < std::size(order); ++i)
        EXPECT_LT(nu_full_mbscoll(h, reinterpret_cast<const unsigned char *>(order[i]),
                                  reinterpret_cast<const unsigned char *>(order[i + 1])), 0)
            << order[i] << " / " << order[i + 1];
    nu_lc_unload(h);
}

// A compiled table read back by the library answers as the compiler's in-memory tables do,
// for every character of the charmap: the compressed UTF-8 table, a double-byte and a
// single-byte one.
TEST(Localedef, CompiledTablesReadBackAsBuilt) {
    struct Case {
        const char *source, *charmap, *codeset, *file, *spec;
    };
    const Case cases[] = {{"en_US", "UTF-8", "utf8", "en_us/e01c.lco", "en_us.utf8"},
                          {"ja_JP", "SHIFT_JIS", "sjis", "ja_jp/e006.lco", "ja_jp.sjis"},
                          {"tr_TR", "ISO-8859-9", "8859-9", "tr_tr/0398.lco", "tr_tr.8859-9"}};
    Tree tree;
    Charmap widths;
    ASSERT_FALSE(read_charmap(kCharmaps + "UTF-8.gz", widths));
    for (const Case &c : cases) {
        ASSERT_TRUE(tree.compile(c.source, c.charmap, c.codeset, c.file).empty()) << c.spec;
        Charmap map;
        ASSERT_FALSE(read_charmap(kCharmaps + c.charmap + ".gz", map));
        SourceLocale source;
        ASSERT_FALSE(read_locale_source(kLocales + c.source, source));
        CtypeTables built;
        CompileReport report;
        ASSERT_FALSE(build_ctype(source, map, {c.codeset, c.source, &widths}, built, report));
        nu_locale_t h = nullptr;
        ASSERT_EQ(nu_lc_load(&h, c.spec, nullptr, nullptr), 0) << c.spec;
        int differences = 0;
        size_t cased = 0;
        for (const CharmapEntry &e : map.entries) {
            nu_wchar wc = 0;
            for (unsigned char b : e.bytes) wc = (wc << 8) | b;
            const auto mask = built.classes.find(e.bytes);
            const int expected = mask == built.classes.end() ? 0 : mask->second;
            const auto pair = built.case_of.find(e.bytes);
            nu_wchar upper = wc, lower = wc;
            if (pair != built.case_of.end()) {
                upper = built.pairs[pair->second - 1].first;
                lower = built.pairs[pair->second - 1].second;
                ++cased;
            }
            const bool same = _nu_im_iswctype(h, wc, 0xFFFF) == expected &&
                              _nu_im_towupper(h, wc) == upper && _nu_im_towlower(h, wc) == lower;
            if (!same && ++differences <= 5) ADD_FAILURE() << c.spec << " <" << e.symbol << ">";
        }
        EXPECT_EQ(differences, 0) << c.spec;
        EXPECT_GT(cased, 50u) << c.spec;
        nu_lc_unload(h);
    }
}

// Without -c the code-set name comes from the charmap names file: the Shift-JIS charmap
// gives "sjis", written into the header and naming the file.
TEST(Localedef, CodeSetNameFromTheCharmap) {
    TempDir dir;
    const std::string command = std::string(NUS_LOCALEDEF) + " -i ja_JP -f SHIFT_JIS --tree " +
                                dir.str() + " >/dev/null 2>&1";
    ASSERT_EQ(std::system(command.c_str()), 0);
    const std::string text = nus_test::read_file(dir.path() / "nus/lc11/ja_jp/e006.lco");
    EXPECT_NE(text.substr(0, 200).find("sjis"), std::string::npos) << text.substr(0, 200);
}

// Multibyte locales of the default set against glibc's builds: every character of the code
// set (every 13th for UTF-8), decoded by glibc's mbrtowc, classified and case-mapped by both.
TEST(Localedef, MultibyteLocalesAgreeWithGlibc) {
    struct Multi {
        const char *source, *charmap, *codeset, *file, *spec;
        size_t step;
    };
    const Multi locales[] = {
        {"ja_JP", "EUC-JP", "ujis", "ja_jp/e007.lco", "ja_jp.ujis", 1},
        {"ja_JP", "SHIFT_JIS", "sjis", "ja_jp/e006.lco", "ja_jp.sjis", 1},
        {"ko_KR", "EUC-KR", "euc-kr", "ko_kr/03ca.lco", "ko_kr.euc-kr", 1},
        {"zh_CN", "GB2312", "gb", "zh_cn/e00d.lco", "zh_cn.gb", 1},
        {"zh_TW", "BIG5", "big5", "zh_tw/e008.lco", "zh_tw.big5", 1},
        {"de_DE", "UTF-8", "utf8", "de_de/e01c.lco", "de_de.utf8", 13},
        {"en_US", "UTF-8", "utf8", "en_us/e01c.lco", "en_us.utf8", 101},
        {"ja_JP", "UTF-8", "utf8", "ja_jp/e01c.lco", "ja_jp.utf8", 29},
    };
    struct Class {
        const char *name;
        int (*test)(wint_t);
    };
    const Class classes[] = {{"upper", iswupper}, {"lower", iswlower}, {"alpha", iswalpha},
                             {"digit", iswdigit}, {"space", iswspace}, {"cntrl", iswcntrl},
                             {"punct", iswpunct}, {"graph", iswgraph}, {"print", iswprint},
                             {"xdigit", iswxdigit}, {"blank", iswblank}};
    Tree tree;
    TempDir glibc_dir;
    for (const Multi &l : locales) {
        tree.compile(l.source, l.charmap, l.codeset, l.file);
        nu_locale_t h = nullptr;
        ASSERT_EQ(nu_lc_load(&h, l.spec, nullptr, nullptr), 0) << l.spec;
        locale_t g = glibc_locale(glibc_dir, l.source, l.charmap);
        if (g == static_cast<locale_t>(0)) {
            nu_lc_unload(h);
            ADD_FAILURE() << "glibc's localedef could not build " << l.spec;
            continue;
        }
        const locale_t previous = uselocale(g);
        Charmap map;
        ASSERT_FALSE(read_charmap(kCharmaps + l.charmap + ".gz", map));
        // The bytes of a wide character in the code set, through glibc.
        auto glibc_bytes = [](wint_t wc) {
            char out[MB_LEN_MAX];
            mbstate_t state{};
            const size_t n = wcrtomb(out, static_cast<wchar_t>(wc), &state);
            return n == static_cast<size_t>(-1) ? std::string() : std::string(out, n);
        };
        auto ours_bytes = [](nu_wchar wc) {
            std::string out;
            for (int shift = 24; shift >= 0; shift -= 8)
                if ((wc >> shift) != 0 || shift == 0) out += static_cast<char>(wc >> shift);
            return out;
        };
        int differences = 0, compared = 0;
        // Large code sets are sampled every `step` characters; characters with a case partner
        // are all compared.
        for (size_t i = 0; i < map.entries.size() && differences < 10; ++i) {
            const CharmapEntry &e = map.entries[i];
            wchar_t wc = 0;
            mbstate_t state{};
            if (mbrtowc(&wc, e.bytes.data(), e.bytes.size(), &state) != e.bytes.size()) continue;
            const auto w = static_cast<wint_t>(wc);
            if (i % l.step != 0 && towupper(w) == w && towlower(w) == w) continue;
            ++compared;
            nu_wchar ours = 0;
            for (unsigned char b : e.bytes) ours = (ours << 8) | b;
            for (const Class &c : classes) {
                const bool a = _nu_im_iswctype(h, ours, nu_ctype(h, c.name)) != 0;
                const bool b = c.test(static_cast<wint_t>(wc)) != 0;
                if (a != b) ++differences;
                EXPECT_EQ(a, b) << l.spec << ": " << c.name << " of <" << e.symbol << ">";
            }
            const std::string upper = glibc_bytes(towupper(static_cast<wint_t>(wc)));
            const std::string lower = glibc_bytes(towlower(static_cast<wint_t>(wc)));
            if (!upper.empty()) {
                EXPECT_EQ(ours_bytes(_nu_im_towupper(h, ours)), upper) << l.spec << " <" << e.symbol << ">";
            }
            if (!lower.empty()) {
                EXPECT_EQ(ours_bytes(_nu_im_towlower(h, ours)), lower) << l.spec << " <" << e.symbol << ">";
            }
        }
        EXPECT_GT(compared, 100) << l.spec;
        expect_values_agree(h, g, l.spec);
        uselocale(previous);
        freelocale(g);
        nu_lc_unload(h);
    }
}

// LC_TIME of a hand-written source: lists of the wrong length, a second month list given by
// half, a malformed era segment among good ones (1 BC is year 0), more than 100 digits, a
// week out of range: warnings, and glibc's defaults where the source has nothing usable.
TEST(Localedef, TimeOfAHandWrittenSource) {
    Tree tree;
    std::string digits;
    for (int i = 0; i < 101; ++i) digits += (i > 0 ? ";\"d" : "\"d") + std::to_string(i) + "\"";
    tree.dir().write("xx_XX", "comment_char %\nescape_char /\n"
                              "LC_CTYPE\ncopy \"POSIX\"\nEND LC_CTYPE\n"
                              "LC_TIME\n"
                              "abday \"Su\";\"Mo\";\"Tu\";\"We\";\"Th\";\"Fr\"\n"
                              "ab_alt_mon \"a\";\"b\";\"c\";\"d\";\"e\";\"f\";\"g\";\"h\";\"i\";\"j\";\"k\";\"l\"\n"
                              "era \"+:1:2000//01//01:+*:New:%EC %Ey\";/\n"
                              "    \"x:1:1990//01//01:1999//12//31:Bad:%Ey\";/\n"
                              "    \"-:1:-0001//12//31:-*:Old:%Ey %EC\"\n"
                              "alt_digits " + digits + "\n"
                              "week 8;19971130;9\nfirst_weekday 3\n"
                              "END LC_TIME\n");
    Charmap map, widths;
    ASSERT_FALSE(read_charmap(kCharmaps + "ISO-8859-1.gz", map));
    SourceLocale source;
    const auto read = read_locale_source((tree.dir().path() / "xx_XX").string(), source);
    ASSERT_FALSE(read) << read->text();
    const auto file = tree.dir().path() / "nus/lc11/xx_xx/0333.lco";
    std::filesystem::create_directories(file.parent_path());
    FILE *out = std::fopen(file.c_str(), "w");
    CompileReport report;
    ASSERT_FALSE(compile_locale(source, map, {"8859-1", "xx_XX", &widths}, out, report));
    std::fclose(out);
    std::string warnings;
    for (const std::string &w : report.warnings) warnings += w + "\n";
    for (const char *expected : {"LC_TIME abday has 6 strings instead of 7", "LC_TIME era 2 is malformed",
                                 "LC_TIME more than 100 alt_digits", "LC_TIME week: the number of days"})
        EXPECT_NE(warnings.find(expected), std::string::npos) << expected << "\n" << warnings;
    nu_locale_t h = nullptr;
    ASSERT_EQ(nu_lc_load(&h, "xx_xx.8859-1", nullptr, nullptr), 0) << *_nu_ext_errno(h);
    EXPECT_STREQ(nu_nl_langinfo(h, 7), "");             // the seventh abbreviation
    EXPECT_STREQ(nu_nl_langinfo(h, 8), "Sunday");       // no day list: glibc's default
    EXPECT_STREQ(nu_nl_langinfo(h, 35), "January");     // the other half of the second list
    EXPECT_STREQ(nu_time_name(h, 3, 11), "l");
    nu_era_segment era{};
    ASSERT_EQ(nu_time_era(h, 1, &era), 2);
    EXPECT_EQ(era.start_year, 0);
    EXPECT_EQ(era.end_year, INT32_MIN);
    EXPECT_STREQ(era.name, "Old");
    EXPECT_STREQ(nu_time_name(h, 4, 99), "d99");
    EXPECT_EQ(nu_time_name(h, 4, 100), nullptr);
    int32_t week[5];
    ASSERT_EQ(nu_time_week(h, week), 0);
    EXPECT_EQ(week[0], 7);
    EXPECT_EQ(week[2], 7);
    EXPECT_EQ(week[3], 3);
    EXPECT_EQ(week[4], 2);
    nu_lc_unload(h);
}
