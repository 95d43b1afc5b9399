// The forms of a locale specification: the check, short, long and normal forms, the
// per-category expander and file names back to specifications; round trips through every
// form for every compiled locale against the installed registry, and the faults against a
// small registry of known contents.
#include "names/names.h"
#include "support/support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

using nus_test::EnvGuard;
using nus_test::TempDir;

namespace {

namespace fs = std::filesystem;

// The file names of every compiled locale object, relative to nus/lc11 ("de_de/0333.lco").
std::vector<std::string> compiled_files() {
    std::vector<std::string> out;
    const fs::path root = fs::path(NUS_DATA_DIR) / "nus" / "lc11";
    if (!fs::exists(root)) return out;
    for (const auto &dir : fs::directory_iterator(root)) {
        if (!dir.is_directory()) continue;
        for (const auto &file : fs::directory_iterator(dir.path()))
            if (file.path().extension() == ".lco")
                out.push_back(dir.path().filename().string() + "/" +
                              file.path().filename().string());
    }
    std::sort(out.begin(), out.end());
    return out;
}

std::string call(int (*f)(void *, const char *, char *, const char *), void *h,
                 const std::string &in, const char *registry = nullptr) {
    std::string out(NU_LC_SPEC_LIST_SIZE + 32, '\xA5');
    if (f(h, in.c_str(), out.data(), registry) != 0) return "<fail>";
    // Nothing past the documented size.
    EXPECT_EQ(out.find_first_not_of('\xA5', NU_LC_SPEC_LIST_SIZE), std::string::npos) << in;
    return out.c_str();
}

TEST(LocaleNameForms, EveryCompiledLocaleThroughEveryForm) {
    const auto files = compiled_files();
    if (files.empty()) GTEST_SKIP() << "no compiled locales (build the 64-bit tree)";
    nu_free_registry_cache();
    EnvGuard root("TESSARONDIR", std::string(NUS_DATA_DIR));
    EnvGuard path("NU_PATH", std::nullopt);
    nu_locale_t h = nullptr;
    ASSERT_EQ(nu_create_null_locale_4(&h), 0);
    int trips = 0;
    for (const std::string &file : files) {
        *_nu_ext_errno(h) = 0;
        const std::string norm = call(nu_lc_fname2lc_spec, h, file);
        ASSERT_NE(norm, "<fail>") << file << " error " << *_nu_ext_errno(h);
        // A directory before the file name changes nothing.
        EXPECT_EQ(call(nu_lc_fname2lc_spec, h, "/usr/tessaron/nus/lc11/" + file), norm);
        const std::string long_form = call(nu_lc_short2lc_long, h, norm);
        const std::string short_form = call(nu_lc_spec2lc_short, h, long_form);
        ASSERT_NE(long_form, "<fail>") << file;
        EXPECT_NE(long_form, norm) << "the long form names the code set: " << file;
        // Mixed case in, each form out; the normal form is the same from all of them.
        std::string shouted = long_form;
        for (size_t i = 0; i < 5; ++i) shouted[i] = static_cast<char>(std::toupper(shouted[i]));
        for (const std::string &form : {norm, long_form, short_form, shouted}) {
            EXPECT_EQ(nu_is_lc_spec(h, form.c_str(), nullptr), 1) << form;
            EXPECT_EQ(call(nu_lc_spec2lc_norm, h, form), norm) << form;
            EXPECT_EQ(call(nu_lc_spec2lc_short, h, call(nu_lc_short2lc_long, h, form)),
                      call(nu_lc_spec2lc_short, h, form))
                << form;
            // Every form names the file it came from.
            std::string fname(NU_LC_FNAME_SIZE(0), '\0');
            ASSERT_EQ(nu_lc_spec2lc_fname(h, form.c_str(), fname.data(), nullptr, nullptr), 0);
            EXPECT_EQ(std::string(fname.c_str()), file) << form;
        }
        // The six categories: all the normal form; a list of the six in any forms comes
        // back as the plain normal form, a list of fewer keeps its categories in order.
        char six[6][NU_LC_SPEC_SIZE];
        ASSERT_EQ(nu_lc_spec2category(h, long_form.c_str(), six, nullptr), 0);
        for (const auto &one : six) EXPECT_EQ(std::string(one), norm);
        const std::string list = "NU_MESSAGES = " + long_form + " ; NU_TIME = " + shouted +
                                 " ; NU_CTYPE = " + short_form + " ; NU_NUMERIC = " + norm +
                                 " ; NU_MONETARY = " + long_form + " ; NU_COLLATE = " + norm +
                                 " ; ";
        EXPECT_EQ(call(nu_lc_spec2lc_norm, h, list), norm);
        const std::string part = "NU_TIME = " + long_form + " ; NU_CTYPE = " + short_form;
        const std::string part_norm = "NU_CTYPE = " + norm + " ; NU_TIME = " + norm;
        EXPECT_EQ(call(nu_lc_spec2lc_norm, h, part), part_norm);
        EXPECT_EQ(call(nu_lc_spec2lc_short, h, part),
                  "NU_TIME = " + short_form + " ; NU_CTYPE = " + short_form);
        ASSERT_EQ(nu_lc_spec2category(h, part.c_str(), six, nullptr), 0);
        for (int i = 0; i < 6; ++i)
            EXPECT_EQ(std::string(six[i]), i == 0 || i == 4 ? norm : "") << part << " " << i;
        // The per-category file name comes back as the list's normal form.
        std::string fname(NU_LC_FNAME_SIZE(8), '\0');
        ASSERT_EQ(nu_lc_spec2lc_fname(h, part.c_str(), fname.data(), nullptr, "/x/lc11"), 0);
        EXPECT_EQ(call(nu_lc_fname2lc_spec, h, fname), part_norm) << fname;
        ++trips;
    }
    std::printf("%d compiled locales through the forms\n", trips);
    nu_lc_unload(h);
}

// A registry of known contents, passed by path and installed where the search finds it.
class LocaleNameFaults : public ::testing::Test {
protected:
    void SetUp() override { nu_free_registry_cache(); }
    void TearDown() override { nu_free_registry_cache(); }
    TempDir dir_;
    EnvGuard root_{"TESSARONDIR", dir_.str()};
    EnvGuard path_{"NU_PATH", std::nullopt};
    std::string registry_ = dir_.write("nus/cm3/registry",
                                       "# c and posix are locale names\nc 819\nposix 819\n"
                                       "8859-1 819\nlatin-1 819\nlatin-5 920\nutf8 57372\n")
                                .string();
};

TEST_F(LocaleNameFaults, BadSpecificationsAndUnnamedNumbers) {
    nu_locale_t h = nullptr;
    ASSERT_EQ(nu_create_null_locale_4(&h), 0);
    struct Case {
        const char *spec;
        int valid;
    };
    const Case cases[] = {
        {"de_de.8859-1", 1},
        {"de_de.819@euro", 1},
        {"de_de.latin-1@eur5", 1},
        {"de_de.latin-1@euro5", 0},      // a modifier of five characters
        {"de_de.koi8", 0},               // a name the registry does not know
        {"dede.819", 0},
        {"de_de.819 ", 0},               // text after the locale name
        {"NU_CTYPE = de_de.819 ; NU_TIME = fr_fr.latin-1", 1},
        {"NU_CTYPE = de_de.819 ; NU_TIME = tr_tr.latin-5", 0},   // two code sets
        {"NU_CTYPE = de_de.819 ; NU_CTYPE = de_de.819", 0},      // a keyword twice
        {"NU_CTYPE=de_de.819", 0},
        {"", 0},
    };
    for (const Case &c : cases) {
        *_nu_ext_errno(h) = 0;
        EXPECT_EQ(nu_is_lc_spec(h, c.spec, nullptr), c.valid) << c.spec;
        EXPECT_EQ(*_nu_ext_errno(h), c.valid ? 0 : NU_EINVAL) << c.spec;
        EXPECT_EQ(call(nu_lc_spec2lc_norm, h, c.spec) == "<fail>", c.valid == 0) << c.spec;
        EXPECT_EQ(nu_is_lc_spec(nullptr, c.spec, registry_.c_str()), c.valid) << c.spec;
    }
    // "c" and "posix" are never a code set's long name; a number the registry has no name
    // for has no long form, and the registry's code stays.
    EXPECT_EQ(call(nu_lc_short2lc_long, h, "de_DE.819@euro"), "de_DE.8859-1@euro");
    EXPECT_EQ(call(nu_lc_short2lc_long, h, "NU_TIME = de_de.latin-1 ; NU_CTYPE = de_de.c"),
              "NU_TIME = de_de.8859-1 ; NU_CTYPE = de_de.8859-1");
    *_nu_ext_errno(h) = 0;
    EXPECT_EQ(call(nu_lc_short2lc_long, h, "de_de.4321"), "<fail>");
    EXPECT_EQ(*_nu_ext_errno(h), NU_EINVAL);
    EXPECT_EQ(call(nu_lc_spec2lc_short, h, "de_de.4321"), "de_de.4321");
    char name[NU_CS_NAME_SIZE];
    EXPECT_EQ(nu_cs_num2cs_name(h, 57372, name, nullptr), 0);
    EXPECT_STREQ(name, "utf8");
    EXPECT_EQ(nu_cs_num2cs_name(h, NU_UNKNOWN_CODESET, name, nullptr), -1);
    // The cached registry and the built-in table answer the same way.
    nu_cache_registry(h, registry_.c_str());
    EXPECT_EQ(nu_cs_num2cs_name(h, 819, name, nullptr), 0);
    EXPECT_STREQ(name, "8859-1");
    nu_free_registry_cache();
    nus_registry_array_cache = nus_canned_registry;
    EXPECT_EQ(nu_cs_num2cs_name(h, 915, name, nullptr), 0);
    EXPECT_STREQ(name, "cyrillic-8bit");
    nus_registry_array_cache = nullptr;
    // Without a registry file the locale name itself is refused, as the file-name builder
    // refuses it; the name lookup alone reports the unreadable registry.
    fs::remove(registry_);
    *_nu_ext_errno(h) = 0;
    EXPECT_EQ(call(nu_lc_short2lc_long, h, "de_de.819"), "<fail>");
    EXPECT_EQ(*_nu_ext_errno(h), NU_EINVAL);
    *_nu_ext_errno(h) = 0;
    EXPECT_EQ(nu_cs_num2cs_name(h, 819, name, nullptr), -1);
    EXPECT_EQ(*_nu_ext_errno(h), NU_EBADFMT);

    // File names back to specifications.
    dir_.write("nus/cm3/registry", "8859-1 819\nutf8 57372\n");
    const struct {
        const char *fname, *spec;
    } names[] = {
        {"de_de/0333euro.lco", "de_DE.819@euro"},
        {"DE_de/e01c.lco", "de_DE.57372"},
        {"lc\xff" "de_de/0333.lco", "de_DE.819"},
        {"de_de\\0333.lco", "de_DE.819"},
        {"de_de/0333.lcx", "<fail>"},
        {"xde_de/0333.lco", "<fail>"},
        {"de_de/0333toolong.lco", "<fail>"},
        {"NU_TIME = de_de/0333.lco ; NU_CTYPE = /a/fr_fr/0333.lco", "NU_CTYPE = fr_FR.819 ; NU_TIME = de_DE.819"},
        {"NU_TIME = de_de/0333.lco ; ", "NU_TIME = de_DE.819"},   // as the builder writes it
        {"NU_TIME = de_de/0333.lco ; NU_TIME", "<fail>"},
    };
    for (const auto &n : names) EXPECT_EQ(call(nu_lc_fname2lc_spec, h, n.fname), n.spec) << n.fname;
    // Null arguments.
    EXPECT_EQ(nu_is_lc_spec(h, nullptr, nullptr), 0);
    EXPECT_EQ(nu_lc_spec2lc_norm(h, "de_de.819", nullptr, nullptr), -1);
    EXPECT_EQ(nu_lc_spec2category(h, "de_de.819", nullptr, nullptr), -1);
    EXPECT_EQ(nu_lc_fname2lc_spec(nullptr, nullptr, name, nullptr), -1);
    nu_lc_unload(h);
}

} // namespace
