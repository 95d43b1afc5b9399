// Locale specifications to file names and back, message directories, code-set numbers of
// specifications, conversion file names. Every output buffer is followed by guard bytes.
#include "names/names.h"
#include "support/support.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using nus_test::EnvGuard;
using nus_test::TempDir;

namespace {

constexpr unsigned kUnknown = NU_UNKNOWN_CODESET;
constexpr char kMark = static_cast<char>(NU_PATH_MARK);

// A registry passed by path, also installed where the search finds it; no cache.
class FileNames : public ::testing::Test {
protected:
    void SetUp() override { nu_free_registry_cache(); }
    const char *reg() const { return registry_.c_str(); }
    TempDir dir_;
    EnvGuard root_{"TESSARONDIR", dir_.str()};
    EnvGuard path_{"NU_PATH", std::nullopt};
    std::string registry_ = dir_.write("nus/cm3/registry",
                                       "8859-1 819\nlatin-1 819\nlatin-5 920\nutf8 57372\n"
                                       "abcdefghijklmnopqrstu 4660\nbig 65535\n")
                                .string();
};

// A caller's buffer of `size` bytes, then guard bytes that must stay untouched.
struct Guarded {
    explicit Guarded(size_t size) : size(size), bytes(size + 64, '\xA5') {}
    char *data() { return bytes.data(); }
    std::string text() const { return bytes.c_str(); }
    bool intact() const { return bytes.find_first_not_of('\xA5', size) == std::string::npos; }
    size_t size;
    std::string bytes;
};

struct Result {
    int status;
    std::string name;
    int error;
    bool operator==(const Result &) const = default;
};
std::ostream &operator<<(std::ostream &o, const Result &r) {
    return o << r.status << " \"" << r.name << "\" " << r.error;
}
Result ok(const std::string &name) { return {0, name, -1}; }
const Result kInvalid{-1, "", NU_EINVAL};

Result fname(const std::string &spec, const char *registry, const char *directory = nullptr) {
    Guarded out(NU_LC_FNAME_SIZE(directory != nullptr ? std::strlen(directory) : 0));
    int slot = -1;
    int status = nu_lc_spec2lc_fname(&slot, spec.c_str(), out.data(), registry, directory);
    EXPECT_TRUE(out.intact()) << spec;
    return {status, status == 0 ? out.text() : "", slot};
}

std::pair<unsigned, int> cs_num(const std::string &spec, const char *registry) {
    int slot = -1;
    unsigned number = nu_lc_spec2cs_num(&slot, spec.c_str(), registry);
    return {number, slot};
}

std::string marked(const std::string &dir, const std::string &name) { return dir + kMark + name; }

} // namespace

TEST_F(FileNames, PlainSpecifications) {
    EXPECT_EQ(fname("de_de.8859-1", reg()), ok("de_de/0333.lco"));
    EXPECT_EQ(fname("DE_de.LATIN-1", reg()), ok("de_de/0333.lco"));
    EXPECT_EQ(fname("de_de.819", reg()), ok("de_de/0333.lco"));
    EXPECT_EQ(fname("de_de.8859-1@euro", reg()), ok("de_de/0333euro.lco"));
    EXPECT_EQ(fname("de_de.8859-1@EUR0", reg()), ok("de_de/0333EUR0.lco"));   // copied as is
    EXPECT_EQ(fname("de_de.8859-1@", reg()), ok("de_de/0333.lco"));
    EXPECT_EQ(fname("en_us.UTF8", reg()), ok("en_us/e01c.lco"));
    EXPECT_EQ(fname("xx_yy.big", reg()), ok("xx_yy/ffff.lco"));
    EXPECT_EQ(fname("xx_yy.abcdefghijklmnopqrstu", reg()), ok("xx_yy/1234.lco"));   // 21
    EXPECT_EQ(fname("de_de.8859-1", reg(), "/dir"), ok("de_de/0333.lco"));   // no directory
    EXPECT_EQ(fname("de_de.latin-1", nullptr), ok("de_de/0333.lco"));        // searched

    const char *bad[] = {
        "", "d_de.819", "de-de.819", "de_d1.819", "de_de819", "de_de.", "de_de.#819",
        "de_de. 819", "de_de.nosuch", "de_de.819 ", "de_de.819x", "de_de.70000",
        "de_de.8859-1@eur-o", "de_de.8859-1@euros", "xx_yy.abcdefghijklmnopqrstuv",
        "\xe4\xe4_de.819", "de_de.819\xe9", "de_de.\xe9", "de_de.819@\xe9", "de_\xc3\xa4.819",
    };
    for (const char *spec : bad) EXPECT_EQ(fname(spec, reg()), kInvalid) << spec;
    EXPECT_EQ(fname("de_de.819" + std::string(300, ' '), reg()), kInvalid);
    // The registry's own code (a missing file here) gives way to 7.
    EXPECT_EQ(fname("de_de.819", (dir_.str() + "/absent").c_str()), kInvalid);
    int slot = -1;
    char out[NU_LC_FNAME_SIZE(0)];
    EXPECT_EQ(nu_lc_spec2lc_fname(&slot, nullptr, out, reg(), nullptr), -1);
    EXPECT_EQ(slot, NU_EINVAL);
}

TEST_F(FileNames, PerCategorySpecifications) {
    const std::string two = "NU_CTYPE = de_de.8859-1 ; NU_COLLATE = DE_DE.latin-1@euro";
    const std::string two_names = "NU_CTYPE = de_de/0333.lco ; NU_COLLATE = de_de/0333euro.lco";
    EXPECT_EQ(fname(two, reg()), ok(two_names));
    EXPECT_EQ(fname(two + " ; ", reg()), ok(two_names + " ; "));
    EXPECT_EQ(fname(two, reg(), ""), ok(two_names));
    EXPECT_EQ(fname(two, reg(), "/opt/lc"),
              ok("NU_CTYPE = " + marked("/opt/lc", "de_de/0333.lco") + " ; NU_COLLATE = " +
                 marked("/opt/lc", "de_de/0333euro.lco")));

    const char *bad[] = {
        "NU_CTYPE = de_de.819 ; NU_CTYPE = de_de.819",      // a repeated keyword
        "NU_CTYPE = de_de.819 ; NU_TIME = de_de.latin-5",   // two code sets
        "NU_CTYPE=de_de.819", "NU_CTYPE  = de_de.819", "NU_CTYPE =  de_de.819",
        "NU_CTYPE = de_de.819; NU_TIME = de_de.819", "NU_CTYPE = de_de.819 ;NU_TIME = de_de.819",
        "NU_CTYPE = de_de.819 ; xx", "NU_CTYPE = de_de.819 ; ; ", "NU_CTYPE = de_de.819 x",
        "NU_CTYPE = ", "NU_CTYPE = de_de.819@abcde", "NU_CTYPEX = de_de.819",
        "NU_CTYPE = de_de.819 ; NU_TIME = \xe9\xe9_de.819",
    };
    for (const char *spec : bad) EXPECT_EQ(fname(spec, reg(), "/d"), kInvalid) << spec;
    // Aliases and the number of one code set agree.
    EXPECT_EQ(fname("NU_CTYPE = de_de.819 ; NU_TIME = fr_fr.LATIN-1 ; NU_NUMERIC = xx_yy.8859-1",
                    reg()),
              ok("NU_CTYPE = de_de/0333.lco ; NU_TIME = fr_fr/0333.lco ; "
                 "NU_NUMERIC = xx_yy/0333.lco"));
}

TEST_F(FileNames, OnlyTheFirst285CharactersCount) {
    // Six items of the greatest length (21-character code-set names, 4-character modifiers)
    // make exactly 285 characters, and the longest name with a directory.
    std::string spec, expected;
    for (const char *k : {"NU_CTYPE", "NU_COLLATE", "NU_TIME", "NU_MONETARY", "NU_NUMERIC",
                          "NU_MESSAGES"}) {
        spec += std::string(k) + " = aa_bb.000000000000000000819@abcd ; ";
        expected += std::string(k) + " = " + marked("/d", "aa_bb/0333abcd.lco") + " ; ";
    }
    ASSERT_EQ(spec.size(), 285u);
    const std::string longer = spec + "junk" + std::string(300, '\xff');   // never seen
    EXPECT_EQ(fname(longer, reg(), "/d"), ok(expected));
    EXPECT_EQ(cs_num(longer, reg()), std::make_pair(819u, -1));
    std::string shorter = spec;
    shorter.erase(shorter.find("@abcd") + 4, 1);   // now the junk is read
    EXPECT_EQ(fname(shorter + "junk", reg(), "/d"), kInvalid);
    EXPECT_EQ(cs_num(shorter + "junk", reg()), std::make_pair(kUnknown, NU_EINVAL));
}

TEST_F(FileNames, CodeSetNumberOfASpecification) {
    const std::pair<unsigned, int> k819{819, -1}, kBad{kUnknown, NU_EINVAL};
    EXPECT_EQ(cs_num("de_de.8859-1@euro", reg()), k819);
    EXPECT_EQ(cs_num("NU_CTYPE = de_de.819 ; NU_TIME = fr_fr.latin-1 ; ", reg()), k819);
    // Stricter than the file-name builder: the last item needs its " ; " here.
    const std::string unended = "NU_CTYPE = de_de.819 ; NU_TIME = fr_fr.latin-1";
    EXPECT_EQ(cs_num(unended, reg()), kBad);
    EXPECT_EQ(fname(unended, reg()).status, 0);
    EXPECT_EQ(cs_num("NU_CTYPE = de_de.819 ; NU_TIME = fr_fr.latin-5 ; ", reg()), kBad);
    EXPECT_EQ(cs_num("NU_CTYPE = de_de.819 ; NU_CTYPE = de_de.819 ; ", reg()), kBad);
    EXPECT_EQ(cs_num("NU_CTYPE = de_de.819 ; junk", reg()), kBad);
    // A bare code-set name or number; what follows a piece is looked up as one.
    EXPECT_EQ(cs_num("8859-1", reg()), k819);
    EXPECT_EQ(cs_num("LATIN-5", reg()), std::make_pair(920u, -1));
    EXPECT_EQ(cs_num("819", reg()), k819);
    for (const char *bad : {"nosuch", "70000", "", "de_de.819 junk", "de_de.8859-1@euros",
                            "\xe9\xe9_de.819"})
        EXPECT_EQ(cs_num(bad, reg()), kBad) << bad;
    // A bare name reports the registry's codes; a per-category text reports 7.
    const std::string absent = dir_.str() + "/absent";
    EXPECT_EQ(cs_num("8859-1", absent.c_str()), std::make_pair(kUnknown, NU_EBADFMT));
    EXPECT_EQ(cs_num("NU_CTYPE = de_de.819 ; ", absent.c_str()), kBad);
    EXPECT_EQ(nu_lc_spec2cs_num(nullptr, "NU_CTYPE = x", reg()), kUnknown);
    EXPECT_EQ(nu_lc_spec2cs_num(nullptr, nullptr, nullptr), kUnknown);
}

TEST_F(FileNames, XOpenPieceAdvancesBothPointers) {
    const char *spec = "de_de.latin-1@euro ; NU_TIME";
    char buffer[32];
    char *out = buffer;
    unsigned number = 0;
    ASSERT_EQ(_nu_is_xopen_spec(nullptr, &spec, &out, &number, reg()), 1);
    EXPECT_EQ(number, 819u);
    EXPECT_STREQ(spec, " ; NU_TIME");
    EXPECT_STREQ(buffer, "de_de/0333euro.lco");
    EXPECT_EQ(out, buffer + std::strlen(buffer));
    // A fault in "ll_tt." leaves the pointer into the locale specification where it was, a
    // later one after the last complete step (for the bare-name reading of the code-set query).
    for (auto [text, left] : {std::pair{"8859-1", 0}, {"de_de", 0}, {"de_de.nosuch", 6},
                              {"de_de.819@abcde", 9}}) {
        spec = text;
        out = buffer;
        EXPECT_EQ(_nu_is_xopen_spec(nullptr, &spec, &out, &number, reg()), 0) << text;
        EXPECT_EQ(spec, text + left) << text;
    }
}

TEST_F(FileNames, MessageDirectory) {
    struct Case {
        const char *spec, *directory, *name;
    } cases[] = {
        {"de_de.8859-1@euro", nullptr, "de_de/0333"},
        {"de_de.8859-1@euro", "/msg", "de_de/0333"},
        {"NU_CTYPE = de_de.819 ; NU_MESSAGES = fr_fr.latin-1@abcd", nullptr, "fr_fr/0333"},
        {"NU_MESSAGES = fr_fr.latin-1 ; NU_CTYPE = de_de.819", "/a/dir", "fr_fr/0333"},
        {"NU_CTYPE = de_de.819", nullptr, nullptr},   // no NU_MESSAGES item
        {"de_de.nosuch", nullptr, nullptr},
    };
    for (const Case &c : cases) {
        Guarded out(11);
        int slot = -1;
        const int status = nu_lc_spec2msg_dname(&slot, c.spec, out.data(), reg(), c.directory);
        EXPECT_EQ(Result(status, status == 0 ? out.text() : "", slot),
                  c.name != nullptr ? ok(c.name) : kInvalid)
            << c.spec;
        EXPECT_TRUE(out.intact()) << c.spec;
    }
}

TEST_F(FileNames, PiecesNormalisationAndRoundTrips) {
    auto pieces = [](const char *name) {
        Guarded lt(6), cs(6), mod(5);
        int slot = -1;
        const int status = nu_lc_fname2lc_pieces(&slot, name, lt.data(), cs.data(), mod.data());
        EXPECT_TRUE(lt.intact() && cs.intact() && mod.intact()) << name;
        return status == 0 ? lt.text() + " " + cs.text() + " " + mod.text()
                           : "error " + std::to_string(slot);
    };
    EXPECT_EQ(pieces("de_de/0333euro.lco"), "de_DE 819 euro");
    EXPECT_EQ(pieces("De_dE\\00AB.lco"), "de_DE 171 ");
    EXPECT_EQ(pieces("en_us/ffff"), "en_US 65535 ");
    EXPECT_EQ(pieces("xx_yy/1.lco"), "xx_YY 1 ");
    EXPECT_EQ(pieces("xx_yy/12345.lco"), "xx_YY 4660 5");   // four digits, then the modifier
    for (const char *bad : {"de_de/0333euros.lco", "de_de.0333.lco", "de_de/x333.lco", "",
                            "d_de/0333.lco", "de_d\xe9/0333.lco", "de_de/0333\xe9\xe9\xe9\xe9\xe9"})
        EXPECT_EQ(pieces(bad), "error 7") << bad;

    auto join = [](const char *lt, const char *cs, const char *mod) {
        Guarded out(NU_LC_SPEC_SIZE);
        int slot = -1;
        const int status = nu_lc_pieces2lc_spec(&slot, lt, cs, mod, out.data());
        EXPECT_TRUE(out.intact()) << lt << " " << cs;
        return status == 0 ? out.text() : "error " + std::to_string(slot);
    };
    EXPECT_EQ(join("de_DE", "819", "euro"), "de_DE.819@euro");
    EXPECT_EQ(join("de_DE", "819", ""), "de_DE.819");
    EXPECT_EQ(join("de_DE", "819", nullptr), "de_DE.819");
    EXPECT_EQ(join("de_DEXX", "123456", "abcdef"), "de_DE.12345@abcd");
    EXPECT_EQ(join("de_DE", "e01c", ""), "de_DE.e01c");   // hexadecimal digits pass
    for (auto [lt, cs] : {std::pair{"de_DE", ""}, {"de_DE", "8x"}, {"de_DE", "\xb9"},
                          {"d_DE", "819"}, {"de-DE", "819"}, {"\xe9\xe9_DE", "819"}})
        EXPECT_EQ(join(lt, cs, ""), "error 7") << lt << " " << cs;

    for (auto [spec, norm] : {std::pair{"de_de.8859-1@euro", "de_DE.819@euro"},
                              {"EN_us.UTF8", "en_US.57372"}, {"xx_yy.big@a1", "xx_YY.65535@a1"}}) {
        Guarded out(NU_LC_SPEC_SIZE), again(NU_LC_SPEC_SIZE);
        ASSERT_EQ(_nu_lc_short_spec2lc_short_norm(nullptr, spec, out.data(), reg()), 0) << spec;
        EXPECT_EQ(out.text(), norm);
        // The normal form names the same file and is its own normal form.
        EXPECT_EQ(fname(out.text(), reg()), fname(spec, reg()));
        ASSERT_EQ(_nu_lc_short_spec2lc_short_norm(nullptr, norm, again.data(), reg()), 0);
        EXPECT_EQ(again.text(), norm);
        EXPECT_TRUE(out.intact() && again.intact());
    }
    for (const char *bad : {"NU_CTYPE = de_de.819", "de_de.nosuch", "8859-1"}) {
        int slot = -1;
        char out[NU_LC_SPEC_SIZE];
        EXPECT_EQ(_nu_lc_short_spec2lc_short_norm(&slot, bad, out, reg()), -1) << bad;
        EXPECT_EQ(slot, NU_EINVAL) << bad;
    }
}

TEST(ConversionNames, DirectoryMarkAndEightDigits) {
    struct Case {
        unsigned first, second;
        const char *directory;
        std::string name;
    } cases[] = {
        {819, 0xE01C, nullptr, "0333e01c.cvo"},
        {0xE01C, 819, "", "e01c0333.cvo"},
        {0, 0xFFFF, "/usr/cv", marked("/usr/cv", "0000ffff.cvo")},
        {0x12345, 0xABCDE, nullptr, "2345bcde.cvo"},   // the low 16 bits
    };
    for (const Case &c : cases) {
        Guarded out((c.directory != nullptr ? std::strlen(c.directory) : 0) + 14);
        nu_cs_nums2cv_fname(nullptr, c.first, c.second, out.data(), c.directory);
        EXPECT_EQ(out.text(), c.name);
        EXPECT_TRUE(out.intact());
    }
    char out[32] = "abc";   // the mark is appended to what is there
    pathcat_mark(out, nullptr);
    pathcat_mark(out, "");
    pathcat_mark(out, "/x");
    EXPECT_EQ(std::string(out), marked("abc/x", ""));
}
