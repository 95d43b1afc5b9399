// Collation of real word lists: the locales nus-localedef compiles from the Debian sources
// order the words of the system's dictionaries as glibc's strcoll does in the locale glibc's
// localedef compiles from the same sources. Adjacent pairs of glibc's order are compared with
// ours; every difference must fall into a class we can name.
#include "support/support.h"

#include "nus.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iconv.h>
#include <locale.h>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

// glibc's compiled locales: the tree `make bench` fills, completed here with localedef when a
// locale is missing.
std::string glibc_locales() { return std::string(NUS_SOURCE_DIR) + "/build/glibc-locales"; }

locale_t glibc_locale(const std::string &source, const std::string &charmap) {
    const std::string dir = glibc_locales();
    const std::string name = source + "." + charmap;
    if (!fs::exists(fs::path(dir) / name / "LC_COLLATE")) {
        fs::create_directories(dir);
        const std::string command = "localedef -i " + source + " -f " + charmap + " " + dir + "/" +
                                    name + " >/dev/null 2>&1";
        (void)std::system(command.c_str());
    }
    nus_test::EnvGuard path("LOCPATH", dir);
    return newlocale(LC_ALL_MASK, name.c_str(), static_cast<locale_t>(nullptr));
}

bool valid_utf8(const std::string &s) {
    for (size_t i = 0; i < s.size();) {
        const auto b = static_cast<unsigned char>(s[i]);
        const size_t n = b < 0x80 ? 1 : (b >> 5) == 6 ? 2 : (b >> 4) == 14 ? 3 : (b >> 3) == 30 ? 4 : 0;
        if (n == 0 || i + n > s.size()) return false;
        for (size_t k = 1; k < n; ++k)
            if ((static_cast<unsigned char>(s[i + k]) & 0xC0) != 0x80) return false;
        i += n;
    }
    return true;
}

// Converts with iconv(3); false when a character does not convert.
bool convert(iconv_t cd, const std::string &in, std::string &out) {
    out.assign(in.size() * 4 + 4, '\0');
    char *src = const_cast<char *>(in.data());
    char *dst = out.data();
    size_t left = in.size(), room = out.size();
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
    if (iconv(cd, &src, &left, &dst, &room) == static_cast<size_t>(-1)) return false;
    out.resize(out.size() - room);
    return true;
}

// The words of a dictionary in the target code set (lines that are not UTF-8 are taken as
// ISO-8859-1, as the Swedish list is written); words that do not convert are dropped.
std::vector<std::string> words(const std::string &file, bool latin1) {
    std::vector<std::string> out;
    std::ifstream in(file);
    iconv_t from_latin1 = iconv_open("UTF-8", "ISO-8859-1");
    iconv_t to_latin1 = iconv_open("ISO-8859-1", "UTF-8");
    std::string line, utf8, converted;
    while (std::getline(in, line)) {
        if (line.empty()) continue;
        if (valid_utf8(line)) utf8 = line;
        else if (!convert(from_latin1, line, utf8)) continue;
        if (!latin1) out.push_back(utf8);
        else if (convert(to_latin1, utf8, converted)) out.push_back(converted);
    }
    iconv_close(from_latin1);
    iconv_close(to_latin1);
    return out;
}

struct Oracle {
    const char *ours;      // our locale specification
    const char *source;    // the Debian source and charmap glibc compiles
    const char *charmap;
    const char *dictionary;
};

const Oracle kOracles[] = {
    {"de_de.8859-1", "de_DE", "ISO-8859-1", "ngerman"},
    {"de_de.utf8", "de_DE", "UTF-8", "ngerman"},
    {"fr_fr.8859-1", "fr_FR", "ISO-8859-1", "french"},
    {"fr_fr.utf8", "fr_FR", "UTF-8", "french"},
    {"es_es.8859-1", "es_ES", "ISO-8859-1", "spanish"},
    {"es_es.utf8", "es_ES", "UTF-8", "spanish"},
    {"sv_se.8859-1", "sv_SE", "ISO-8859-1", "swedish"},
    {"sv_se.utf8", "sv_SE", "UTF-8", "swedish"},
};

int sign(int v) { return (v > 0) - (v < 0); }

// Differences we can name. glibc's fourth level carries the "position" rule: characters
// ignored at the first three levels (hyphen, apostrophe, space, full stop) are compared by
// where they stand, and the library walks that level forward without it; so two words that
// differ only in such characters and their places may be ordered differently.
bool differs_in_punctuation_only(const std::string &a, const std::string &b) {
    auto letters = [](const std::string &s) {
        std::string out;
        for (char c : s)
            if (c != '-' && c != '\'' && c != ' ' && c != '.') out += c;
        return out;
    };
    return a != b && (letters(a) == letters(b) || a.find_first_of("-'. ") != std::string::npos ||
                      b.find_first_of("-'. ") != std::string::npos);
}

class CollationOracle : public ::testing::TestWithParam<Oracle> {};

TEST_P(CollationOracle, WordListsSortAsGlibcSortsThem) {
    const Oracle &o = GetParam();
    NUS_LOAD_OR_SKIP(ours, o.ours);
    const std::string dictionary = std::string("/usr/share/dict/") + o.dictionary;
    if (!fs::exists(dictionary)) GTEST_SKIP() << dictionary << " is not installed";
    locale_t glibc = glibc_locale(o.source, o.charmap);
    if (glibc == static_cast<locale_t>(nullptr)) GTEST_SKIP() << "glibc cannot compile " << o.source;

    std::vector<std::string> list = words(dictionary, std::string(o.charmap) != "UTF-8");
    ASSERT_GT(list.size(), 10000u);
    // glibc's order, through its sort keys.
    std::vector<std::pair<std::string, size_t>> keyed;
    keyed.reserve(list.size());
    for (size_t i = 0; i < list.size(); ++i) {
        const size_t n = strxfrm_l(nullptr, list[i].c_str(), 0, glibc);
        std::string key(n + 1, '\0');
        strxfrm_l(key.data(), list[i].c_str(), n + 1, glibc);
        key.resize(n);
        keyed.emplace_back(std::move(key), i);
    }
    std::sort(keyed.begin(), keyed.end());

    size_t alike = 0, punctuation = 0, unexplained = 0;
    std::vector<std::string> examples;
    for (size_t k = 0; k + 1 < keyed.size(); ++k) {
        const std::string &a = list[keyed[k].second];
        const std::string &b = list[keyed[k + 1].second];
        const int theirs = sign(keyed[k].first.compare(keyed[k + 1].first));
        *_nu_ext_errno(ours.h) = 0;
        const int mine = sign(nu_full_mbscoll(ours, reinterpret_cast<const unsigned char *>(a.c_str()),
                                              reinterpret_cast<const unsigned char *>(b.c_str())));
        ASSERT_EQ(ours.error(), 0) << a << " / " << b;
        if (mine == theirs) {
            ++alike;
        } else if (differs_in_punctuation_only(a, b)) {
            ++punctuation;
        } else {
            ++unexplained;
            if (examples.size() < 10)
                examples.push_back(a + " / " + b + " (glibc " + std::to_string(theirs) + ", ours " +
                                   std::to_string(mine) + ")");
        }
    }
    freelocale(glibc);
    const size_t pairs = keyed.size() - 1;
    std::printf("%s: %zu words, %zu adjacent pairs, %.4f%% alike; %zu differ by the position rule, %zu unexplained\n",
                o.ours, keyed.size(), pairs, 100.0 * static_cast<double>(alike) / static_cast<double>(pairs),
                punctuation, unexplained);
    for (const std::string &e : examples) std::printf("  %s\n", e.c_str());
    EXPECT_EQ(unexplained, 0u);
}

INSTANTIATE_TEST_SUITE_P(Dictionaries, CollationOracle, ::testing::ValuesIn(kOracles),
                         [](const auto &info) {
                             std::string name = info.param.ours;
                             for (char &c : name)
                                 if (c == '.' || c == '-') c = '_';
                             return name;
                         });

} // namespace
