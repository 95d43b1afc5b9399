// Locale objects: the file format, loading whole and per category, copies, the CTYPE,
// NUMERIC, MONETARY and MESSAGES categories, and damaged files.
#include "frame/frame.h"
#include "locale/locale.h"
#include "support/support.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

using nus_test::CountingAllocator;
using nus_test::EnvGuard;
using nus_test::TempDir;

namespace {

const std::filesystem::path kFixtures = std::filesystem::path(NUS_SOURCE_DIR) / "tests/data";

// An installation tree with the hand-made locales, a default locale and the registry.
class Installation {
public:
    Installation()
        : path_("NU_PATH", std::nullopt), root_("TESSARONDIR", dir_.str()) {
        std::filesystem::create_directories(dir_.path() / "nus");
        std::filesystem::copy(kFixtures / "lc11", dir_.path() / "nus/lc11",
                              std::filesystem::copy_options::recursive);
        std::filesystem::copy_file(kFixtures / "lc11/xx_yy/0333.lco",
                                   dir_.path() / "nus/lc11/default.lco");
        std::filesystem::create_directories(dir_.path() / "nus/cm3");
        std::filesystem::copy_file(std::filesystem::path(NUS_SOURCE_DIR) / "data/registry",
                                   dir_.path() / "nus/cm3/registry");
    }
    const TempDir &dir() const { return dir_; }
    std::string locale_text(const std::string &name) const {
        return nus_test::read_file(dir_.path() / "nus/lc11" / name);
    }

private:
    TempDir dir_;
    EnvGuard path_;
    EnvGuard root_;
};

struct Handle {
    nu_locale_t h = nullptr;
    ~Handle() { nu_lc_unload(h); }
    int error() const { return *_nu_ext_errno(h); }
};

std::string query(nu_locale_t h, int category) {
    char *text = nu_setlocale_4(h, category, nullptr);
    std::string out = text != nullptr ? text : "(null)";
    nu_destroystring(text);
    return out;
}

std::vector<std::string> lines_of(const std::string &text) {
    std::vector<std::string> lines;
    size_t start = 0;
    while (start < text.size()) {
        const size_t end = text.find('\n', start);
        lines.push_back(text.substr(start, end == std::string::npos ? end : end - start + 1));
        if (end == std::string::npos) break;
        start = end + 1;
    }
    return lines;
}

std::string join(const std::vector<std::string> &lines, size_t count) {
    std::string text;
    for (size_t i = 0; i < count && i < lines.size(); ++i) text += lines[i];
    return text;
}

const unsigned char *u(const char *s) { return reinterpret_cast<const unsigned char *>(s); }

} // namespace

TEST(LocaleFile, HeaderChecks) {
    struct Case {
        const char *what;
        std::string text;
        int ok;
        int error;
        const char *codeset;
    };
    const Case cases[] = {
        {"good", "FILE_TYPE=locale_object\nCOMPILER_VERSION=11\nHEADER_LENGTH=3\n8859-1\n", 1,
         0, "8859-1"},
        {"blank after the type", "FILE_TYPE=locale_object \nCOMPILER_VERSION=11\n", 0,
         NU_EBADFILE, ""},
        {"version 10", "FILE_TYPE=locale_object\nCOMPILER_VERSION=10\n", 0, NU_EVERSION, ""},
        {"third line without =", "FILE_TYPE=locale_object\nCOMPILER_VERSION=11\nHEADER\n", 0,
         NU_EBADFILE, ""},
        {"five header lines", "FILE_TYPE=locale_object\nCOMPILER_VERSION=11\nHEADER_LENGTH=5\n"
         "SOURCE=x\nDATE=y\n\n\n  eucjp\n", 1, 0, "eucjp"},
        {"header lines missing", "FILE_TYPE=locale_object\nCOMPILER_VERSION=11\nHEADER_LENGTH=9\n",
         0, NU_EBADFILE, ""},
        // The last character read is taken for the newline.
        {"twenty characters", "FILE_TYPE=locale_object\nCOMPILER_VERSION=11\nHEADER_LENGTH=3\n"
         "abcdefghijklmnopqrst\n", 1, 0, "abcdefghijklmnopqrs"},
        {"empty file", "", 0, NU_EBADFILE, ""},
    };
    for (const Case &c : cases) {
        const std::string text = c.text.empty() ? std::string("\0", 1) : c.text;
        FILE *f = nus_test::text_stream(text);
        char codeset[21] = "";
        int error = -1;
        EXPECT_EQ(nus::read_file_header(f, codeset, &error), c.ok) << c.what;
        EXPECT_EQ(error, c.error) << c.what;
        if (c.ok) {
            EXPECT_STREQ(codeset, c.codeset) << c.what;
        }
        std::fclose(f);
    }
}

TEST(LocaleLoad, WholeSingleByteLocale) {
    Installation install;
    Handle h;
    ASSERT_EQ(nu_lc_load(&h.h, "xx_yy.8859-1", nullptr, nullptr), 0) << h.error();
    EXPECT_EQ(query(h.h, NU_ALL),
              "NU_CTYPE = xx_yy/0333.lco ; NU_COLLATE = xx_yy/0333.lco ; NU_NUMERIC = "
              "xx_yy/0333.lco ; NU_MONETARY = xx_yy/0333.lco ; NU_TIME = xx_yy/0333.lco ; "
              "NU_MESSAGES = xx_yy/0333.lco ; ");
    EXPECT_EQ(query(h.h, NU_NUMERIC), "xx_yy/0333.lco");
    EXPECT_STREQ(h.h->codeset[0], "8859-1");
    EXPECT_EQ(h.h->wcodeset[0][1], nu_wchar{'8'});   // the wide names follow
    EXPECT_EQ(h.h->single_byte, 1);
    EXPECT_EQ(nu_mb_loc_max(h.h), 1);
    EXPECT_EQ(h.h->to_wide, &_nu_is_mbstowcs);

    // Classes and case, through the tables and the single-byte fast tables alike.
    EXPECT_EQ(nu_ctype(h.h, "alnum"), 12);
    const int vowel = nu_ctype(h.h, "vowel");
    EXPECT_EQ(vowel, 2048);
    EXPECT_EQ(nu_ctype(h.h, "full_width"), 0);
    EXPECT_EQ(nu_ctype(h.h, "fvowel"), 0);
    EXPECT_NE(_nu_im_iswctype(h.h, 'A', NU_CLASS_UPPER), 0);
    EXPECT_EQ(_nu_im_iswctype(h.h, 'a', NU_CLASS_UPPER), 0);
    EXPECT_NE(_nu_im_iswctype(h.h, 0xE9, vowel), 0);
    EXPECT_NE(_nu_im_ismctype(h.h, u("\xC9"), NU_CLASS_ALPHA), 0);
    EXPECT_EQ(_nu_im_towupper(h.h, 'q'), nu_wchar{'Q'});
    EXPECT_EQ(_nu_im_towlower(h.h, 0xC9), nu_wchar{0xE9});
    EXPECT_EQ(_nu_im_towupper(h.h, 0xDF), nu_wchar{0xDF});   // no pair: unchanged
    for (int b = 0; b < 256; ++b) {
        const auto wc = static_cast<nu_wchar>(b);
        EXPECT_EQ(h.h->sb_class[b], _nu_im_iswctype(h.h, wc, 0xFFFF)) << b;
        EXPECT_EQ(h.h->sb_upper[b], _nu_im_towupper(h.h, wc)) << b;
        EXPECT_EQ(h.h->sb_lower[b], _nu_im_towlower(h.h, wc)) << b;
    }
    unsigned char out[16];
    EXPECT_EQ(nu_tombsupper(h.h, out, u("Stra\xDF" "e \xE9t\xE9")), 10);
    EXPECT_STREQ(reinterpret_cast<char *>(out), "STRA\xDF" "E \xC9T\xC9");
    const nu_wchar wide[] = {'a', 0xE0, 'Z', 0};
    nu_wchar wout[4];
    EXPECT_EQ(nu_towcsupper(h.h, wout, wide), 0);
    EXPECT_EQ(wout[1], nu_wchar{0xC0});
    const nu_wchar too_wide[] = {'a', 0x100, 0};
    EXPECT_EQ(nu_towcslower(h.h, wout, too_wide), -1);
    EXPECT_EQ(h.error(), NU_EILSEQ);
    EXPECT_EQ(nu_case_conv_outbuflen(h.h, 10), 10);
}

TEST(LocaleLoad, MultibyteAndFixedWidthLocales) {
    Installation install;
    Handle euc;
    ASSERT_EQ(nu_lc_load(&euc.h, "ja_JP.eucjp", nullptr, nullptr), 0) << euc.error();
    EXPECT_EQ(euc.h->single_byte, 0);
    EXPECT_EQ(euc.h->sb_upper, nullptr);
    EXPECT_EQ(nu_mb_loc_max(euc.h), 2);
    EXPECT_EQ(nu_mb_loc_min(euc.h), 1);
    const int full = nu_ctype(euc.h, "full_width");
    EXPECT_EQ(full, 4096);
    EXPECT_NE(_nu_im_iswctype(euc.h, 0xA3C1, full | NU_CLASS_UPPER), 0);
    EXPECT_EQ(_nu_im_iswctype(euc.h, 'A', full), 0);
    EXPECT_EQ(_nu_im_towupper(euc.h, 0xA3E1), nu_wchar{0xA3C1});
    EXPECT_EQ(_tsn_nu_im_ismctype(euc.h, u("\xA3\xC1"), 2, NU_CLASS_UPPER), NU_CLASS_UPPER);
    EXPECT_EQ(_tsn_nu_im_ismctype(euc.h, u("\xA3\xC1"), 1, NU_CLASS_UPPER), 0);
    EXPECT_EQ(euc.error(), NU_EINVAL);
    unsigned char out[16];
    EXPECT_EQ(_nu_im_tomupper(euc.h, out, u("\xA3\xE2")), 2 * 256 + 2);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(out), 2), "\xA3\xC2");
    EXPECT_EQ(nu_tombsupper(euc.h, out, u("a\xA3\xE1z")), 5);
    EXPECT_STREQ(reinterpret_cast<char *>(out), "A\xA3\xC1Z");
    EXPECT_EQ(nu_tombslower(euc.h, out, u("a\x80")), -1);
    EXPECT_EQ(nu_case_conv_outbuflen(euc.h, 10), 40);   // no factor in the file: 4

    Handle fixed;
    ASSERT_EQ(nu_lc_load(&fixed.h, "uc_uc.unicode", nullptr, nullptr), 0) << fixed.error();
    EXPECT_EQ(nu_mb_loc_min(fixed.h), 2);
    const unsigned char text[] = {0x00, 'a', 0x03, 0xB1, 0x00, 0x00};
    EXPECT_EQ(nu_tombsupper(fixed.h, out, text), 6);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(out), 6), std::string("\0A\x03\x91\0\0", 6));
    EXPECT_EQ(nu_case_conv_outbuflen(fixed.h, 10), 20);
}

TEST(LocaleLoad, PerCategoryEnvironmentAndNative) {
    Installation install;
    Handle h;
    ASSERT_EQ(nu_create_null_locale_4(&h.h), 0);
    char *text = nu_setlocale_4(h.h, NU_ALL, "xx_yy/0333.lco");
    ASSERT_NE(text, nullptr) << h.error();
    nu_destroystring(text);
    text = nu_setlocale_4(h.h, NU_NUMERIC, "NU_CTYPE = xx_yy/0333.lco ; NU_NUMERIC = "
                                           "de_de/0333.lco ; ");
    ASSERT_NE(text, nullptr) << h.error();
    EXPECT_STREQ(text, "de_de/0333.lco");
    nu_destroystring(text);
    EXPECT_STREQ(nu_localeconv(h.h)->decimal_point, ",");
    EXPECT_EQ(query(h.h, NU_MONETARY), "xx_yy/0333.lco");

    // The query text loads every category back from its own file.
    const std::string list = query(h.h, NU_ALL);
    Handle again;
    ASSERT_EQ(nu_create_null_locale_4(&again.h), 0);
    text = nu_setlocale_4(again.h, NU_ALL, list.c_str());
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(std::string(text), list);
    nu_destroystring(text);

    {
        EnvGuard all("NU_ALL", std::nullopt);
        EnvGuard time("NU_TIME", "de_de/0333.lco");
        EnvGuard lang("NU_LANG", "xx_yy/0333.lco");
        text = nu_setlocale_4(h.h, NU_ALL, "");
        ASSERT_NE(text, nullptr);
        nu_destroystring(text);
        EXPECT_EQ(query(h.h, NU_TIME), "de_de/0333.lco");
        EXPECT_EQ(query(h.h, NU_NUMERIC), "xx_yy/0333.lco");
        EnvGuard long_name("NU_LANG", std::string(33, 'x'));
        EXPECT_EQ(nu_setlocale_4(h.h, NU_NUMERIC, ""), nullptr);
        EXPECT_EQ(h.error(), NU_ENOFILE);
    }
    text = nu_setlocale_4(h.h, NU_MESSAGES, "native");
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, "native");
    nu_destroystring(text);

    EXPECT_EQ(nu_setlocale_4(h.h, 8, "xx_yy/0333.lco"), nullptr);
    EXPECT_EQ(h.error(), NU_EBADVAL);
    EXPECT_EQ(nu_setlocale_4(h.h, NU_CTYPE, std::string(312, 'x').c_str()), nullptr);
    EXPECT_EQ(h.error(), NU_EBADVAL);
    // A file that is not found changes nothing; one that fails to read leaves its category
    // empty and the others loaded.
    EXPECT_EQ(nu_setlocale_4(h.h, NU_CTYPE, "absent/0333.lco"), nullptr);
    EXPECT_EQ(h.error(), NU_ENOFILE);
    EXPECT_STREQ(h.h->locname[0], "xx_yy/0333.lco");
    // A file named by a text of its own is found by its whole name, however long; the name
    // kept for queries is its first 31 characters.
    const std::string long_name = std::string(90, 'l') + "/0333.lco";
    install.dir().write("nus/lc11/" + long_name, install.locale_text("xx_yy/0333.lco"));
    text = nu_setlocale_4(h.h, NU_MONETARY, long_name.c_str());
    ASSERT_NE(text, nullptr) << h.error();
    EXPECT_EQ(std::string(text), long_name.substr(0, 31));
    nu_destroystring(text);
    const std::string path = install.dir().str() + "/nus/lc11/" + long_name;
    ASSERT_GT(path.size(), 100u);
    Handle by_path;
    EXPECT_EQ(nu_lc_load(&by_path.h, path.c_str(), nullptr, nullptr), 0) << by_path.error();
    EXPECT_STREQ(nu_localeconv(by_path.h)->decimal_point, ".");
    install.dir().write("nus/lc11/broken/0333.lco",
                        "FILE_TYPE=locale_object\nCOMPILER_VERSION=11\nHEADER_LENGTH=3\n8859-1\n");
    EXPECT_EQ(nu_setlocale_4(h.h, NU_CTYPE, "broken/0333.lco"), nullptr);
    EXPECT_EQ(h.error(), NU_EBADFILE);
    EXPECT_STREQ(h.h->locname[0], "");
    EXPECT_EQ(_nu_multi_max_length(h.h->ctype.class_table), 0);
    EXPECT_STREQ(h.h->locname[2], "xx_yy/0333.lco");
}

TEST(LocaleLoad, CodeSetsMustAgree) {
    Installation install;
    Handle h;
    ASSERT_EQ(nu_lc_load(&h.h, "xx_yy.8859-1", nullptr, nullptr), 0);
    // A category file in another code set than CTYPE is refused before its section is read.
    EXPECT_EQ(nu_setlocale_4(h.h, NU_NUMERIC, "ja_jp/13ba.lco"), nullptr);
    EXPECT_EQ(h.error(), NU_ECATCODESET);
    EXPECT_STREQ(h.h->codeset[2], "eucjp");
    EXPECT_EQ(h.h->lc.decimal_point.mb, nullptr);
    // CTYPE itself may change; the other categories then disagree with it.
    char *text = nu_setlocale_4(h.h, NU_CTYPE, "ja_jp/13ba.lco");
    ASSERT_NE(text, nullptr);
    nu_destroystring(text);
    EXPECT_EQ(h.error(), NU_ECODESET);
}

TEST(LocaleCopy, SharesAndFreesOnce) {
    Installation install;
    CountingAllocator counter;
    {
        Handle owner;
        ASSERT_EQ(nu_lc_load(&owner.h, "xx_yy.8859-1", nullptr, nullptr), 0);
        nu_locale_t copy = nullptr;
        ASSERT_EQ(nu_create_null_locale_4(&copy), 0);
        EXPECT_EQ(nu_copy_cat(copy, owner.h, NU_ALL), 0);
        EXPECT_EQ(copy->ctype.class_table, owner.h->ctype.class_table);
        EXPECT_EQ(copy->lc.decimal_point.mb, owner.h->lc.decimal_point.mb);
        EXPECT_NE(copy->nuconv.decimal_point.mb, owner.h->nuconv.decimal_point.mb);
        EXPECT_NE(copy->sb_upper, owner.h->sb_upper);
        EXPECT_EQ(query(copy, NU_CTYPE), "xx_yy/0333.lco");
        EXPECT_EQ(nu_copy_cat(copy, owner.h, NU_CTYPE), -1);
        EXPECT_EQ(*_nu_ext_errno(copy), NU_ECOPY);

        nu_locale_t empty = nullptr;
        ASSERT_EQ(nu_create_null_locale_4(&empty), 0);
        EXPECT_EQ(nu_copy_cat(owner.h, empty, NU_NUMERIC), -1);
        EXPECT_EQ(owner.error(), NU_ENOCAT);
        nu_lc_unload(empty);
        nu_free_nonshared_loc(copy);
    }
    EXPECT_EQ(counter.live, 0);
}

TEST(LocaleConventions, RecordAndItems) {
    Installation install;
    Handle h;
    ASSERT_EQ(nu_lc_load(&h.h, "de_de.8859-1", nullptr, nullptr), 0);
    const nu_lconv *c = nu_localeconv(h.h);
    EXPECT_STREQ(c->decimal_point, ",");
    EXPECT_STREQ(c->thousands_sep, ".");
    EXPECT_STREQ(c->grouping, "\3\3");
    EXPECT_EQ(c->w_decimal_point[0], nu_wchar{','});
    EXPECT_STREQ(c->int_curr_symbol, "EUR ");
    EXPECT_STREQ(c->currency_symbol, "\xA4");
    const char values[8] = {c->int_frac_digits, c->frac_digits,    c->p_cs_precedes,
                            c->p_sep_by_space,  c->n_cs_precedes,  c->n_sep_by_space,
                            c->p_sign_posn,     c->n_sign_posn};
    EXPECT_EQ(std::string(values, 8), std::string("\2\2\1\0\1\0\1\1", 8));
    EXPECT_STREQ(nu_nl_langinfo(h.h, 55), c->decimal_point);
    EXPECT_STREQ(nu_nl_langinfo(h.h, 56), c->thousands_sep);
    EXPECT_STREQ(nu_nl_langinfo(h.h, 59), "\xA4");
    EXPECT_STREQ(nu_nl_langinfo(h.h, 60), "8859-1");
    EXPECT_STREQ(nu_nl_langinfo(h.h, 71), "^[yY]");
    EXPECT_STREQ(nu_nl_langinfo(h.h, 58), "no");
    EXPECT_EQ(nu_wc_nl_langinfo(h.h, 72)[1], nu_wchar{'['});
    h.h->error = 0;
    EXPECT_EQ(nu_nl_langinfo(h.h, 74), nullptr);
    EXPECT_EQ(h.error(), 0);
    EXPECT_EQ(nu_nl_langinfo(h.h, 27), nullptr);   // no month names in this locale
    EXPECT_EQ(h.error(), NU_EBADVAL);
    h.h->time.calendar = 2;
    EXPECT_STREQ(nu_nl_langinfo(h.h, 73), "hebrew\n");
    EXPECT_EQ(nu_nl_langinfo(nullptr, 55), nullptr);
}

TEST(LocaleSections, StringsAndGroupings) {
    int error = 0;
    FILE *f = nus_test::text_stream("2 2C20 0 7x");
    char *s = nus::str_readallc(f, &error);
    ASSERT_NE(s, nullptr);
    EXPECT_STREQ(s, ", ");
    _nu_free_ptr(s);
    s = nus::str_readallc(f, &error);
    ASSERT_NE(s, nullptr);
    EXPECT_STREQ(s, "");
    _nu_free_ptr(s);
    EXPECT_EQ(nus::str_readallc(f, &error), nullptr);   // no blank after the count
    EXPECT_EQ(error, NU_ENOFILE);
    std::fclose(f);

    struct Case {
        std::string text;
        int result;
        int count;
        int error;
    };
    std::string fifteen = "15", sixteen = "16";
    for (int i = 0; i < 16; ++i) {
        if (i < 15) fifteen += " 3";
        sixteen += " 3";
    }
    const Case cases[] = {{fifteen, 0, 15, 0}, {sixteen, -1, 15, NU_ENOWIDTH},
                          {"0", 0, 0, 0},     {"-2", 0, 0, 0},
                          {"2 3 x", -1, 0, NU_EBADFILE}};
    for (const Case &c : cases) {
        nus::Grouping g{};
        error = 0;
        f = nus_test::text_stream(c.text);
        EXPECT_EQ(nus::read_group(f, g, &error), c.result) << c.text;
        EXPECT_EQ(g.count, c.count) << c.text;
        EXPECT_EQ(error, c.error) << c.text;
        std::fclose(f);
    }
    for (const std::string bad : {"99999999999 41", "-5 41", "3 41zz42", "4000000 4142"}) {
        f = nus_test::text_stream(bad);
        error = 0;
        EXPECT_EQ(nus::str_readallc(f, &error), nullptr) << bad;
        EXPECT_NE(error, 0) << bad;
        std::fclose(f);
    }
}

// A file cut after any line, or with its sections out of order, fails to load with a code,
// and the handle can still be freed.
TEST(LocaleBadInput, TruncatedAndReordered) {
    Installation install;
    const std::vector<std::string> lines = lines_of(install.locale_text("xx_yy/0333.lco"));
    ASSERT_GT(lines.size(), 20u);
    for (size_t keep = 0; keep + 1 < lines.size(); ++keep) {
        install.dir().write("nus/lc11/cut/0333.lco", join(lines, keep));
        Handle h;
        EXPECT_EQ(nu_lc_load(&h.h, "cut/0333.lco", nullptr, nullptr), -1) << keep;
        EXPECT_NE(h.error(), 0) << keep;
    }
    // A whole file is read section after section: TIME before NUMERIC is not found again.
    const std::string text = install.locale_text("xx_yy/0333.lco");
    const size_t numeric = text.find("### LC_NUMERIC\n");
    const size_t time = text.find("### LC_TIME\n");
    ASSERT_NE(numeric, std::string::npos);
    const std::string reordered =
        text.substr(0, numeric) + text.substr(time) + text.substr(numeric, time - numeric);
    for (const std::string *file : {&text, &reordered}) {
        Handle h;
        ASSERT_EQ(nu_create_null_locale_4(&h.h), 0);
        FILE *f = nus_test::text_stream(*file);
        const int result = nus::read_locale_file(f, h.h);
        std::fclose(f);
        EXPECT_EQ(result, file == &text ? 0 : 1);
        EXPECT_EQ(h.error(), file == &text ? 0 : NU_EBADFILE);
    }
}

TEST(LocaleBadInput, AbsurdCountsAndGarbage) {
    Installation install;
    const std::string text = install.locale_text("xx_yy/0333.lco");
    struct Edit {
        const char *what;
        std::string from;
        std::string to;
    };
    // The case-pair count is the line before the first pair.
    const size_t first_pair = text.find("\n41 61");
    ASSERT_NE(first_pair, std::string::npos);
    const size_t count_line = text.rfind('\n', first_pair - 1);
    const std::string pair_count = text.substr(count_line, first_pair - count_line);
    const Edit edits[] = {
        {"class names in the millions", "\n1\n0 vowel\n", "\n4000000\n0 vowel\n"},
        {"negative class names", "\n1\n0 vowel\n", "\n-3\n0 vowel\n"},
        {"case pairs in the millions", pair_count + "\n41 61", "\n9999999\n41 61"},
        {"string of a million bytes", "\n1 2c\n", "\n1000000 2c\n"},
        {"negative string count", "\n1 2c\n", "\n-1 2c\n"},
        {"non-hexadecimal string", "\n1 2c\n", "\n1 zz\n"},
        {"grouping of twenty", "\n2 3 3\n", "\n20 3 3\n"},
        {"garbage for a table", "### LC_CTYPE\n1 1 1", "### LC_CTYPE\nx 1 1"},
        {"no shortest character", "### LC_CTYPE\n1 1 1", "### LC_CTYPE\n1 0 1"},
        {"a shortest character of five", "### LC_CTYPE\n1 1 1", "### LC_CTYPE\n1 5 1"},
    };
    for (const Edit &e : edits) {
        std::string bad = text;
        const size_t at = bad.find(e.from);
        ASSERT_NE(at, std::string::npos) << e.what;
        bad.replace(at, e.from.size(), e.to);
        install.dir().write("nus/lc11/bad/0333.lco", bad);
        Handle h;
        EXPECT_EQ(nu_lc_load(&h.h, "bad/0333.lco", nullptr, nullptr), -1) << e.what;
        EXPECT_NE(h.error(), 0) << e.what;
        if (e.from.rfind("### LC_CTYPE", 0) == 0) {
            EXPECT_EQ(h.error(), NU_EBADFILE) << e.what;
        }
    }
}

// Refusing each allocation of a load in turn: a load that fails says NU_ENOMEM, and nothing
// leaks. (An empty category whose table could not be made does not stop a load.)
TEST(LocaleBadInput, AllocationFailuresDuringLoad) {
    Installation install;
    long total = 0;
    {
        CountingAllocator counter;
        Handle h;
        ASSERT_EQ(nu_lc_load(&h.h, "xx_yy/0333.lco", nullptr, nullptr), 0);
        total = counter.allocations;
    }
    for (long n = 1; n <= total; ++n) {
        CountingAllocator counter;
        counter.fail_from(n);
        {
            Handle h;
            if (nu_lc_load(&h.h, "xx_yy/0333.lco", nullptr, nullptr) != 0) {
                EXPECT_EQ(h.error(), NU_ENOMEM) << n;
            }
        }
        EXPECT_EQ(counter.live, 0) << "refusing allocation " << n;
    }
}

// A handle made from a directory reads its "default.lco" whole; without one it searches.
TEST(LocaleCreate, DefaultLocaleFromDirectoryOrSearch) {
    Installation install;
    const std::string directory = (install.dir().path() / "nus/lc11/").string();
    Handle h;
    ASSERT_EQ(nu_createlocale2_4(&h.h, directory.c_str()), 0) << h.error();
    EXPECT_EQ(query(h.h, NU_COLLATE), "default.lco");
    EXPECT_STREQ(h.h->codeset[5], "8859-1");
    EXPECT_EQ(h.h->wlocname[0][0], nu_wchar{'d'});
    EXPECT_EQ(h.h->single_byte, 1);
    EXPECT_STREQ(nu_localeconv(h.h)->decimal_point, ".");

    Handle searched;
    ASSERT_EQ(nu_createlocale_4(&searched.h), 0) << searched.error();
    EXPECT_EQ(_nu_im_towupper(searched.h, 0xE9), nu_wchar{0xC9});

    // A file whose last line has no newline is still whole.
    std::string text = install.locale_text("xx_yy/0333.lco");
    ASSERT_EQ(text.back(), '\n');
    text.pop_back();
    install.dir().write("nus/lc11/default.lco", text);
    Handle unended;
    EXPECT_EQ(nu_createlocale_4(&unended.h), 0) << unended.error();
    EXPECT_STREQ(nu_nl_langinfo(unended.h, 58), "no");
}

TEST(LocaleLoad, SetLocaleLogsItsSteps) {
    Installation install;
    TempDir cwd_dir;
    std::string log;
    {
        nus_test::CwdGuard cwd(cwd_dir.path());
        EnvGuard on("NUSLOG", "on");
        nus::reset_debug_state();
        Handle h;
        ASSERT_EQ(nu_create_null_locale_4(&h.h), 0);
        nu_destroystring(nu_setlocale_4(h.h, NU_CTYPE, "xx_yy/0333.lco"));
        EXPECT_EQ(nu_setlocale_4(h.h, NU_CTYPE, "absent.lco"), nullptr);
        log = nus_test::read_file(cwd_dir.path() / "nus.log");
    }
    nus::reset_debug_state();
    const std::string steps = "nu_setlocale: Begin\nnu_setlocale: Calling nu_init_nuu\n"
                              "nu_setlocale: Calling set_categories\n";
    EXPECT_NE(log.find(steps), std::string::npos) << log;
    EXPECT_NE(log.find("nu_setlocale: retVal from set_categories\nxx_yy/0333.lco\n"
                       "nu_setlocale: End\n"),
              std::string::npos);
    EXPECT_NE(log.find("nu_setlocale: retVal from set_categories\nNULL\nnu_setlocale: End\n"),
              std::string::npos);
}

// NUMERIC cannot be widened without CTYPE: through a load the code sets disagree first.
TEST(LocaleLoad, CategoriesNeedCtype) {
    Installation install;
    Handle h;
    ASSERT_EQ(nu_create_null_locale_4(&h.h), 0);
    EXPECT_EQ(nu_setlocale_4(h.h, NU_NUMERIC, "xx_yy/0333.lco"), nullptr);
    EXPECT_EQ(h.error(), NU_ECATCODESET);
    h.h->error = 0;
    EXPECT_EQ(nus::init_numeric_info(h.h), 0);
    EXPECT_EQ(h.error(), NU_ENOTLOADED);
}

// Later categories of a file start after the sections read before them in the same load; a
// remembered position that the marker does not follow (another file, a rewritten one) falls
// back to the search from the header.
TEST(LocaleLoad, SectionResumePositionsAreChecked) {
    Installation installation;
    const std::string file = (installation.dir().path() / "nus/lc11/de_de/0333.lco").string();
    const long size = static_cast<long>(std::filesystem::file_size(file));
    for (const long bogus : {0L, 1L, size - 2, size + 100}) {
        Handle h;
        ASSERT_EQ(nu_create_null_locale_4(&h.h), 0);
        nus::SectionResume resume{};
        FILE *stream = std::fopen(file.c_str(), "r");
        ASSERT_EQ(nus::read_one_category(h.h, NU_CTYPE, stream, &resume, "x"), 0);
        std::fclose(stream);
        EXPECT_STREQ(resume.name, "x");
        EXPECT_GT(resume.after[0], 0);
        if (bogus != 0) resume.after[0] = bogus;
        stream = std::fopen(file.c_str(), "r");
        ASSERT_EQ(nus::read_one_category(h.h, NU_NUMERIC, stream, &resume, "x"), 0) << bogus;
        std::fclose(stream);
        EXPECT_STREQ(nu_nl_langinfo(h.h, 55), ",") << bogus;
        // Another file name starts from the header and forgets the positions.
        stream = std::fopen(file.c_str(), "r");
        ASSERT_EQ(nus::read_one_category(h.h, NU_MONETARY, stream, &resume, "y"), 0) << bogus;
        std::fclose(stream);
        EXPECT_STREQ(resume.name, "y");
        EXPECT_EQ(resume.after[0], 0);
        EXPECT_GT(resume.after[nus::cat_index(NU_MONETARY)], 0);
    }
}

// Handles that load the same unchanged file share its categories; each handle's references go
// with its release, in any order, and the tables with the last one.
TEST(LocaleSharing, HandlesOfOneFile) {
    Installation install;
    CountingAllocator counter;
    for (const bool first_goes_first : {true, false}) {
        const long before = nus::shared_entries();
        nu_locale_t a = nullptr, b = nullptr;
        ASSERT_EQ(nu_lc_load(&a, "xx_yy.8859-1", nullptr, nullptr), 0);
        const long live_one = counter.live;
        ASSERT_EQ(nu_lc_load(&b, "xx_yy.8859-1", nullptr, nullptr), 0);
        EXPECT_EQ(nus::shared_entries(), before + 6);
        EXPECT_EQ(b->ctype.class_table, a->ctype.class_table);
        EXPECT_EQ(b->coll.table, a->coll.table);
        EXPECT_EQ(b->time.day[0].mb, a->time.day[0].mb);
        EXPECT_EQ(b->lc.decimal_point.mb, a->lc.decimal_point.mb);
        // What each handle keeps of its own: conventions record, single-byte tables, names.
        EXPECT_NE(b->nuconv.decimal_point.mb, a->nuconv.decimal_point.mb);
        EXPECT_NE(b->sb_upper, a->sb_upper);
        EXPECT_LT(counter.live - live_one, live_one / 4);
        EXPECT_EQ(query(b, NU_ALL), query(a, NU_ALL));
        EXPECT_EQ(b->case_expansion, a->case_expansion);
        EXPECT_EQ(b->element_count, a->element_count);
        EXPECT_EQ(b->error, 0);

        nu_locale_t gone = first_goes_first ? a : b, kept = first_goes_first ? b : a;
        nu_lc_unload(gone);
        EXPECT_EQ(nus::shared_entries(), before + 6);
        EXPECT_EQ(_nu_im_towupper(kept, 'q'), nu_wchar{'Q'});
        EXPECT_NE(_nu_im_iswctype(kept, 0xE9, nu_ctype(kept, "vowel")), 0);
        EXPECT_STREQ(nu_nl_langinfo(kept, 8), kept->time.day[0].mb);
        unsigned char key[64];
        EXPECT_GT(nu_full_mbsxfrm(kept, key, u("abc"), sizeof key), 0);
        nu_lc_unload(kept);
        EXPECT_EQ(nus::shared_entries(), before);
    }
    EXPECT_EQ(counter.live, 0);
}

// A changed file is read anew (the handle that read the old one keeps it); per-category
// reloads, copies, nu_free_nonshared_loc and an allocator of another kind keep their own
// rules.
TEST(LocaleSharing, ChangesReloadsCopiesAndAllocators) {
    Installation install;
    const auto file = install.dir().path() / "nus/lc11/xx_yy/0333.lco";
    Handle old_one, new_one, third;
    ASSERT_EQ(nu_lc_load(&old_one.h, "xx_yy.8859-1", nullptr, nullptr), 0);
    {
        // One more byte of padding after the MESSAGES section: size and time both change.
        std::FILE *f = std::fopen(file.c_str(), "a");
        ASSERT_NE(f, nullptr);
        std::fputs("\n", f);
        std::fclose(f);
    }
    ASSERT_EQ(nu_lc_load(&new_one.h, "xx_yy.8859-1", nullptr, nullptr), 0);
    EXPECT_NE(new_one.h->ctype.class_table, old_one.h->ctype.class_table);
    ASSERT_EQ(nu_lc_load(&third.h, "xx_yy.8859-1", nullptr, nullptr), 0);
    EXPECT_EQ(third.h->ctype.class_table, new_one.h->ctype.class_table);

    // A per-category reload in one sharer leaves the other's category alone.
    const multi_t *collation = new_one.h->coll.table;
    char *names = nu_setlocale_4(third.h, NU_COLLATE, "de_de/0333.lco");
    ASSERT_NE(names, nullptr) << third.error();
    nu_destroystring(names);
    EXPECT_NE(third.h->coll.table, collation);
    EXPECT_EQ(new_one.h->coll.table, collation);
    EXPECT_EQ(nu_full_mbscoll(new_one.h, u("a"), u("b")) < 0, true);
    // Reloading the same file shares again; so does the emptied category after a copy.
    names = nu_setlocale_4(third.h, NU_COLLATE, "xx_yy/0333.lco");
    nu_destroystring(names);
    EXPECT_EQ(third.h->coll.table, collation);

    nu_locale_t copy = nullptr;
    ASSERT_EQ(nu_create_null_locale_4(&copy), 0);
    EXPECT_EQ(nu_copy_cat(copy, third.h, NU_ALL), 0);
    EXPECT_EQ(copy->coll.table, collation);
    EXPECT_EQ(nu_copy_cat(copy, third.h, NU_TIME), -1);
    EXPECT_EQ(*_nu_ext_errno(copy), NU_ECOPY);
    nu_free_nonshared_loc(copy);
    EXPECT_EQ(nu_full_mbscoll(third.h, u("b"), u("a")) > 0, true);

    // A handle whose allocator differs reads its own tables, and frees them through it.
    {
        CountingAllocator counter;
        Handle own;
        ASSERT_EQ(nu_lc_load(&own.h, "xx_yy.8859-1", nullptr, nullptr), 0);
        EXPECT_NE(own.h->ctype.class_table, new_one.h->ctype.class_table);
        nu_lc_unload(own.h);
        own.h = nullptr;
        EXPECT_EQ(counter.live, 0);
    }
}

// Every refused allocation of a load that shares ends in code 3 and leaves nothing behind.
TEST(LocaleSharing, AllocationFailuresWhenSharing) {
    Installation install;
    int32_t scratch = 0;
    nu_cache_registry(&scratch, nullptr);   // process-wide setup, before the counting
    CountingAllocator counter;
    nu_locale_t owner = nullptr;
    ASSERT_EQ(nu_lc_load(&owner, "xx_yy.8859-1", nullptr, nullptr), 0);
    const long settled = counter.live;
    long needed = 0;
    for (long k = 1; k < 200; ++k) {
        counter.fail_from(0);
        const long base = counter.allocations;
        counter.fail_from(base + k);
        nu_locale_t h = nullptr;
        const int r = nu_lc_load(&h, "xx_yy.8859-1", nullptr, nullptr);
        counter.fail_from(0);
        if (r == 0) {
            needed = k;
            EXPECT_EQ(h->ctype.class_table, owner->ctype.class_table);
            nu_lc_unload(h);
            break;
        }
        EXPECT_EQ(*_nu_ext_errno(h), NU_ENOMEM) << k;
        nu_lc_unload(h);
        EXPECT_EQ(counter.live, settled) << k;
    }
    EXPECT_GT(needed, 1);
    nu_lc_unload(owner);
    EXPECT_EQ(counter.live, 0);
    nu_free_registry_cache();
}

namespace {
int plain_fgetc(FILE *stream) { return std::fgetc(stream); }
int g_opens = 0;
std::string describe(nu_locale_t h);

// What a load left: its result, code, names and what the categories answer.
std::string load_print(const char *name, int category) {
    nu_locale_t h = nullptr;
    std::string out;
    if (category == NU_ALL) {
        out = std::to_string(nu_lc_load(&h, name, nullptr, nullptr));
    } else {
        nu_create_null_locale_4(&h);
        nu_destroystring(nu_setlocale_4(h, NU_CTYPE, name));
        char *names = nu_setlocale_4(h, category, name);
        out = names != nullptr ? names : "(null)";
        nu_destroystring(names);
    }
    out += " " + describe(h);
    nu_lc_unload(h);
    return out;
}

// What the categories of a handle answer.
std::string describe(nu_locale_t h) {
    std::string out = std::to_string(*_nu_ext_errno(h)) + " " + query(h, NU_ALL);
    for (int b = 1; b < 256; b += 7) {
        const auto wc = static_cast<nu_wchar>(b);
        out += " " + std::to_string(_nu_im_iswctype(h, wc, 0xFFFF)) + "/" +
               std::to_string(_nu_im_towupper(h, wc));
    }
    const char *day = nu_nl_langinfo(h, 8);
    out += std::string(" ") + (day != nullptr ? day : "-") + " " + std::to_string(h->case_expansion) +
           " " + std::to_string(h->coll.highest_row) + " " + std::to_string(h->coll.level_count);
    unsigned char key[64] = {};
    out += " " + std::to_string(nu_full_mbsxfrm(h, key, u("b\xe9" "a"), sizeof key));
    for (int item = 0; item < 80; ++item) {
        const char *text = nu_nl_langinfo(h, item);
        out += std::string(" ") + (text != nullptr ? text : "-");
    }
    return out;
}

FILE *counting_fopen(const char *path, const char *mode) {
    ++g_opens;
    return std::fopen(path, mode);
}
} // namespace

// Files are read in blocks of lines where the default file functions are in use, and a
// character at a time through an installed fgetc: damaged files (cut anywhere, NUL bytes inside
// a line, lines longer than one read, carriage returns) must give the same results both ways.
TEST(LocaleBadInput, BlockAndCharacterReadingAgree) {
    Installation install;
    int32_t scratch = 0;
    nu_cache_registry(&scratch, nullptr);
    const std::string text = install.locale_text("xx_yy/0333.lco");
    std::vector<std::string> variants;
    for (size_t at = 0; at < text.size(); at += 397) {
        variants.push_back(text.substr(0, at));
        variants.push_back(text.substr(0, at) + std::string(1, '\0') + text.substr(at));
        variants.push_back(text.substr(0, at) + std::string(3, '\0') + "\n" + text.substr(at + 1));
    }
    const size_t numeric = text.find("### LC_NUMERIC\n");
    variants.push_back(text.substr(0, numeric) + std::string(10000, '#') + "\n" + text.substr(numeric));
    variants.push_back(text.substr(0, numeric) + std::string(8191, 'x') + std::string(1, '\0') +
                       "\n" + text.substr(numeric));
    std::string crlf;
    for (char c : text) crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
    variants.push_back(crlf);
    variants.push_back(text);
    for (size_t v = 0; v < variants.size(); ++v) {
        install.dir().write("nus/lc11/var/0333.lco", variants[v]);
        for (int category : {NU_ALL, NU_COLLATE}) {
            const std::string blocks = load_print("var/0333.lco", category);
            nu_setextfunc(nullptr, NU_EXT_FGETC, reinterpret_cast<nu_extfunc>(&plain_fgetc));
            const std::string chars = load_print("var/0333.lco", category);
            _nu_set_ext_funcptr(NU_EXT_FGETC, nullptr);
            EXPECT_EQ(blocks, chars) << "variant " << v << " category " << category;
        }
    }
    nu_free_registry_cache();
}

// Each category of a load opens its file (and closes it), a whole locale as a list naming
// files in turn; and what is loaded is what loading the categories one at a time gives, with
// the library's own file functions (blocks of lines, shared categories) and with an installed
// fopen.
TEST(LocaleLoad, EachCategoryOpensItsFile) {
    Installation install;
    int32_t scratch = 0;
    nu_cache_registry(&scratch, nullptr);   // no registry reads among the opens
    const char *list = "NU_CTYPE=xx_yy/0333.lco NU_COLLATE=xx_yy/0333.lco NU_NUMERIC=de_de/0333.lco "
                       "NU_MONETARY=xx_yy/0333.lco NU_TIME=de_de/0333.lco NU_MESSAGES=de_de/0333.lco";
    Handle alone;
    ASSERT_EQ(nu_create_null_locale_4(&alone.h), 0);
    for (int c = NU_CTYPE; c <= NU_MESSAGES; ++c) nu_destroystring(nu_setlocale_4(alone.h, c, list));
    const std::string expected = describe(alone.h);
    EXPECT_NE(expected.find("de_de"), std::string::npos);
    for (const bool installed : {false, true}) {
        if (installed) nu_setextfunc(nullptr, NU_EXT_FOPEN, reinterpret_cast<nu_extfunc>(&counting_fopen));
        g_opens = 0;
        Handle whole, mixed;
        ASSERT_EQ(nu_lc_load(&whole.h, "xx_yy/0333.lco", nullptr, nullptr), 0);
        EXPECT_EQ(g_opens, installed ? 6 : 0);
        g_opens = 0;
        ASSERT_EQ(nu_lc_load(&mixed.h, list, nullptr, nullptr), 0);
        EXPECT_EQ(g_opens, installed ? 6 : 0);
        EXPECT_EQ(describe(mixed.h), expected) << installed;
        _nu_set_ext_funcptr(NU_EXT_FOPEN, nullptr);
    }
    nu_free_registry_cache();
}
