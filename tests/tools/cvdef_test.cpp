// nus-cvdef: pairing two charmaps, enumerating through iconv, the written object as the
// library reads it, and the command's errors.
#include "tools/cvdef/cvdef.h"
#include "convert/cv_rec.h"
#include "support/support.h"

#include "nus.h"

#include <gtest/gtest.h>

#include <filesystem>

using namespace nus::tools;
using nus_test::TempDir;

namespace {

const char kSource[] = R"(<code_set_name> TOYSRC
<escape_char> /
<mb_cur_min> 1
<mb_cur_max> 2
CHARMAP
<U0000>     /x00         NULL
<U0041>     /x41         LATIN CAPITAL LETTER A
<U00E9>     /x82         LATIN SMALL LETTER E WITH ACUTE
<U4E00>     /xa1/xa1     CJK
<U4E01>     /xa1/xa2     CJK, the target lacks it
END CHARMAP
)";

const char kTarget[] = R"(<code_set_name> TOYTGT
<escape_char> /
<mb_cur_min> 1
<mb_cur_max> 3
CHARMAP
<U0000>     /x00         NULL
<U001A>     /x1a         SUBSTITUTE
<U0041>     /x41         LATIN CAPITAL LETTER A
<U00E9>     /xc3/xa9     LATIN SMALL LETTER E WITH ACUTE
<U4E00>     /xe4/xb8/x80 CJK
END CHARMAP
)";

Charmap charmap_of(const TempDir &dir, const char *name, const char *text) {
    Charmap map;
    const auto error = read_charmap(dir.write(name, text).string(), map);
    EXPECT_FALSE(error.has_value()) << (error ? error->text() : "");
    return map;
}

const CvChar *find(const std::vector<CvChar> &chars, const std::string &source) {
    for (const CvChar &c : chars)
        if (c.source == source) return &c;
    return nullptr;
}

// Converts with an object written to `file`.
std::string convert_with(const std::filesystem::path &file, const std::string &in, int *irreversible) {
    nus_test::EnvGuard path("NU_PATH", file.parent_path().string());
    nu_cv_t cv = nullptr;
    EXPECT_EQ(nu_iconv_open1(&cv, file.filename().c_str()), 0);
    std::string out(64, '\0');
    unsigned char *p = reinterpret_cast<unsigned char *>(const_cast<char *>(in.data()));
    unsigned char *o = reinterpret_cast<unsigned char *>(out.data());
    int length = static_cast<int>(in.size()), room = 64;
    EXPECT_EQ(nu_miconv(cv, &p, &length, &o, &room, irreversible), 0);
    nu_cv_unload(cv);
    out.resize(64 - static_cast<size_t>(room));
    return out;
}

TEST(Cvdef, PairsCharmapsByNameWithSubstitutesAndTheTerminator) {
    TempDir dir;
    const Charmap from = charmap_of(dir, "src", kSource), to = charmap_of(dir, "tgt", kTarget);
    Conversion c;
    ASSERT_FALSE(conversion_from_charmaps(from, to, c).has_value());
    EXPECT_EQ(c.initial.size(), 5u);
    EXPECT_EQ(c.substituted, 1u);
    EXPECT_EQ(find(c.initial, std::string(1, '\0'))->flags, kRecValid | kRecEnd);
    EXPECT_EQ(find(c.initial, "\x82")->target, "\xc3\xa9");
    EXPECT_EQ(find(c.initial, "\xa1\xa2")->target, "\x1a");
    EXPECT_EQ(find(c.initial, "\xa1\xa2")->flags, kRecValid | kRecSubstitute);
    EXPECT_EQ(c.source_min, 1);
    EXPECT_EQ(c.source_max, 2);
    EXPECT_EQ(c.target_min, 1);
    EXPECT_EQ(c.target_max, 3);
    EXPECT_DOUBLE_EQ(expansion_of(c), 2.0);   // one byte to two

    // Written, read back by the library, converted.
    const auto file = dir.path() / "toy.cvo";
    FILE *out = std::fopen(file.c_str(), "w");
    ASSERT_FALSE(write_conversion(out, c, {"SOURCE_CODESET=toysrc"}).has_value());
    std::fclose(out);
    int irreversible = -1;
    EXPECT_EQ(convert_with(file, "A\x82\xa1\xa1", &irreversible), "A\xc3\xa9\xe4\xb8\x80");
    EXPECT_EQ(irreversible, 0);
    EXPECT_EQ(convert_with(file, "\xa1\xa2", &irreversible), "\x1a");
    EXPECT_EQ(irreversible, 1);

    // Without SUB the question mark stands in; without either there is no substitute.
    std::string no_sub = kTarget;
    no_sub.erase(no_sub.find("<U001A>"), no_sub.find("<U0041>") - no_sub.find("<U001A>"));
    EXPECT_TRUE(conversion_from_charmaps(from, charmap_of(dir, "nosub", no_sub.c_str()), c).has_value());
}

TEST(Cvdef, SingleBytePairsAskForTheByteTable) {
    TempDir dir;
    Conversion c;
    Charmap latin1, cp1252;
    ASSERT_FALSE(read_charmap("/usr/share/i18n/charmaps/ISO-8859-1.gz", latin1).has_value());
    ASSERT_FALSE(read_charmap("/usr/share/i18n/charmaps/CP1252.gz", cp1252).has_value());
    ASSERT_FALSE(conversion_from_charmaps(cp1252, latin1, c).has_value());
    // The euro sign and the other characters of 0x80-0x9f that Latin-1 lacks.
    EXPECT_EQ(find(c.initial, "\x80")->flags, kRecValid | kRecSubstitute);
    EXPECT_EQ(find(c.initial, "\x81"), nullptr);   // not a character of CP1252
    const auto file = dir.path() / "cp.cvo";
    FILE *out = std::fopen(file.c_str(), "w");
    ASSERT_FALSE(write_conversion(out, c, {}).has_value());
    std::fclose(out);
    const std::string text = nus_test::read_file(file);
    EXPECT_NE(text.find("\n1 1 0 0 1 1 0\n"), std::string::npos);
    int irreversible = -1;
    EXPECT_EQ(convert_with(file, "caf\xe9 \x80", &irreversible), "caf\xe9 \x1a");
    EXPECT_EQ(irreversible, 1);
}

TEST(Cvdef, EnumeratesLittleEndianAndMixedCodeSetsThroughIconv) {
    Conversion c;
    ASSERT_FALSE(conversion_from_iconv("UCS-2LE", "UTF-8", c).has_value());
    // Keyed by the code unit, most significant byte first.
    ASSERT_NE(find(c.initial, std::string("\x4e\x00", 2)), nullptr);
    EXPECT_EQ(find(c.initial, std::string("\x4e\x00", 2))->target, "\xe4\xb8\x80");
    EXPECT_EQ(find(c.initial, std::string("\xd8\x00", 2)), nullptr);   // a surrogate
    EXPECT_EQ(find(c.initial, std::string("\0\0", 2))->flags, kRecValid | kRecEnd);
    EXPECT_EQ(c.source_min, 2);
    EXPECT_EQ(c.source_max, 2);

    ASSERT_FALSE(conversion_from_iconv("IBM937", "UTF-8", c).has_value());
    EXPECT_TRUE(c.source_stateful);
    EXPECT_FALSE(c.target_stateful);
    EXPECT_EQ(find(c.initial, "\x0e")->flags, kRecValid | kRecSourceShift);
    EXPECT_EQ(find(c.shifted, "\x0f")->flags, kRecValid | kRecSourceShift);
    EXPECT_EQ(find(c.initial, "\xc1")->target, "A");
    EXPECT_EQ(find(c.shifted, "\x4c\x41")->target, "\xe4\xb8\x80");
    EXPECT_EQ(find(c.shifted, "\x4c\x41")->flags, kRecValid);  // comes back: reversible
    EXPECT_GT(c.shifted.size(), 10000u);

    EXPECT_TRUE(conversion_from_iconv("UCS-2", "UTF-8", c).has_value());        // byte order?
    EXPECT_TRUE(conversion_from_iconv("NO-SUCH-SET", "UTF-8", c).has_value());
    EXPECT_TRUE(conversion_from_iconv("ISO-8859-1", "UTF-8", c).has_value());  // use charmaps
}

TEST(Cvdef, CommandWritesAllOrNothing) {
    TempDir dir;
    const auto src = dir.write("src", kSource), tgt = dir.write("tgt", kTarget);
    const auto output = dir.path() / "out.cvo";
    auto run = [&](const std::string &arguments) {
        const std::string command = std::string(NUS_CVDEF) + " " + arguments + " >/dev/null 2>" +
                                    (dir.path() / "err").string();
        const int status = std::system(command.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    };
    EXPECT_EQ(run("-f " + src.string() + " -t " + tgt.string() + " -o " + output.string()), 0);
    EXPECT_TRUE(std::filesystem::exists(output));
    std::filesystem::remove(output);

    const auto broken = dir.write("broken", "<code_set_name> X\n<escape_char> /\nCHARMAP\n<U0041> /xZZ A\nEND CHARMAP\n");
    EXPECT_EQ(run("-f " + broken.string() + " -t " + tgt.string() + " -o " + output.string()), 1);
    EXPECT_NE(nus_test::read_file(dir.path() / "err").find(broken.string() + ":"), std::string::npos);
    EXPECT_EQ(run("-f NO-SUCH-CHARMAP -t " + tgt.string() + " -o " + output.string()), 1);
    EXPECT_EQ(run("-f " + src.string() + " -t " + tgt.string()), 1);   // no output named
    EXPECT_FALSE(std::filesystem::exists(output));

    // In a tree, the registry must know both names; then both file names are written.
    EXPECT_EQ(run("-f " + src.string() + " -t " + tgt.string() + " --tree " + dir.str()), 1);
    EXPECT_NE(nus_test::read_file(dir.path() / "err").find("toysrc"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(dir.path() / "nus"));
    EXPECT_EQ(run("-f " + src.string() + " -t " + tgt.string() + " -F 8859-1 -T utf8 --tree " + dir.str()), 0);
    EXPECT_TRUE(std::filesystem::exists(dir.path() / "nus/cv9/0333e01c.cvo"));
    EXPECT_TRUE(std::filesystem::exists(dir.path() / "nus/cv9/8859-1_utf8.cvo"));

    const auto list = dir.write("list", "ISO-8859-1 UTF-8\nthree words here\n");
    EXPECT_EQ(run("--list " + list.string() + " --tree " + dir.str()), 1);
    EXPECT_NE(nus_test::read_file(dir.path() / "err").find(list.string() + ":2:"), std::string::npos);
}

} // namespace
