// Collation of real word lists: the locales nus-localedef compiles from the Debian sources
// order the words of the system's dictionaries as glibc's strcoll does in the locale glibc's
// localedef compiles from the same sources. Adjacent pairs of glibc's order are compared with
// ours; every difference must fall into a class we can name.
#include "support/support.h"
#include "support/utf8.h"
#include "tools/localedef/collate.h"
#include "tools/localedef/compile.h"

#include "nus.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iconv.h>
#include <locale.h>
#include <random>
#include <string>
#include <vector>
#include <wctype.h>

namespace {

namespace fs = std::filesystem;

// glibc's compiled locales: the tree `make bench` fills, completed here with localedef when a
// locale is missing. A variant names a directory of modified locale sources that glibc's
// localedef reads before the system's (I18NPATH), and the subdirectory its builds go to.
std::string glibc_locales() { return std::string(NUS_SOURCE_DIR) + "/build/glibc-locales"; }

locale_t glibc_locale(const std::string &source, const std::string &charmap, const std::string &variant = "") {
    const std::string dir = glibc_locales() + (variant.empty() ? "" : "/" + variant);
    const std::string name = source + "." + charmap;
    if (!fs::exists(fs::path(dir) / name / "LC_COLLATE")) {
        fs::create_directories(dir);
        const std::string command = (variant.empty() ? "" : "I18NPATH=" + dir + "/sources ") + "localedef -i " +
                                    source + " -f " + charmap + " " + dir + "/" + name + " >/dev/null 2>&1";
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

// Random strings of each locale's own script, alone and mixed with Latin letters, digits,
// punctuation, spaces, a few characters of other scripts and unassigned code points, in the
// locale compiled by nus-localedef from the Debian source with the UTF-8
// charmap and ordered by glibc's strcoll_l on its own compilation of the same source. The
// strings are sorted by glibc's sort keys and every adjacent pair is compared both ways.
//
// Two things glibc does are beyond the library's tables. glibc keeps a direction per section,
// the library one per level: the common table walks its first section (punctuation, digits,
// combining marks) backward at the second level and every script forward, so glibc reverses
// each run of consecutive characters of that section there, where the library walks the level
// forward. And at a level with the "position" rule glibc compares, before each weight, how many
// characters ignored there stand before it; the library compares the weights of that level
// first and the places of ignored characters at a level of its own after it. So every pair is
// also compared with what those two differences make of glibc's order: the order of glibc's
// build of the same sources with every section forward and no position rule, and where that
// build calls two strings equal, the order of its build with every section forward. That
// "model" order every pair must follow, apart from strings glibc calls equal (the library
// orders every two different strings).
//
// A third is in the library's walk itself: a collating element whose weight at some level is
// a list of weights is weighed by that whole list at each character it covers, where glibc
// weighs it once (th_TH and lo_LA weigh a vowel written before its consonant as the consonant
// and the vowel; fa_IR weighs <U0649><U0654> by a list at the second level). A pair in which
// such an element stands may leave the model order.
//
// Without NUS_ORACLE in the environment only the locales marked quick run; NUS_ORACLE=all runs
// them all (some 30 locales, each compiled once here and three times by glibc's localedef,
// whose builds are kept; minutes), or it names them ("he_IL,ko_KR").
struct Script {
    const char *source;
    bool quick;
    std::vector<std::pair<uint32_t, uint32_t>> ranges;   // the script's characters
};

const Script kScripts[] = {
    {"ja_JP", true, {{0x3041, 0x3096}, {0x30A1, 0x30FC}, {0x4E00, 0x9FFF}, {0xFF66, 0xFF9D}}},
    {"zh_CN", false, {{0x4E00, 0x9FFF}, {0x3400, 0x4DBF}}},
    {"zh_TW", false, {{0x4E00, 0x9FFF}, {0x3105, 0x312F}}},
    {"ko_KR", false, {{0xAC00, 0xD7A3}, {0x1100, 0x11FF}, {0x3131, 0x318E}, {0x4E00, 0x9FFF}}},
    {"he_IL", true, {{0x05D0, 0x05EA}, {0x05B0, 0x05C7}, {0x05F0, 0x05F4}}},
    {"ar_SA", false, {{0x0621, 0x065F}, {0x0660, 0x0669}, {0x0671, 0x06D3}}},
    {"fa_IR", false, {{0x0621, 0x065F}, {0x067E, 0x06CC}, {0x06F0, 0x06F9}}},
    {"hi_IN", false, {{0x0900, 0x097F}}},
    {"bn_IN", false, {{0x0980, 0x09FF}}},
    {"ta_IN", false, {{0x0B80, 0x0BFF}}},
    {"te_IN", false, {{0x0C00, 0x0C7F}}},
    {"th_TH", false, {{0x0E01, 0x0E5B}}},
    {"lo_LA", false, {{0x0E81, 0x0EDF}}},
    {"km_KH", false, {{0x1780, 0x17F9}}},
    {"my_MM", false, {{0x1000, 0x109F}}},
    {"am_ET", false, {{0x1200, 0x137C}}},
    {"ka_GE", false, {{0x10A0, 0x10FF}}},
    {"hy_AM", false, {{0x0531, 0x058A}}},
    {"el_GR", false, {{0x0370, 0x03FF}, {0x1F00, 0x1FFE}}},
    {"ru_RU", false, {{0x0400, 0x045F}}},
    {"uk_UA", false, {{0x0400, 0x045F}, {0x0490, 0x0491}}},
    {"sr_RS", false, {{0x0400, 0x045F}}},
    {"de_DE", false, {{0x00C0, 0x017F}, {0x1E9E, 0x1E9E}}},
    {"da_DK", true, {{0x00C0, 0x017F}}},
    {"hu_HU", false, {{0x00C0, 0x017F}}},
    {"fi_FI", false, {{0x00C0, 0x017F}}},
    {"is_IS", false, {{0x00C0, 0x017F}}},
    {"pl_PL", false, {{0x00C0, 0x017F}}},
    {"vi_VN", false, {{0x00C0, 0x01B0}, {0x0300, 0x0323}, {0x1EA0, 0x1EF9}}},
    {"tr_TR", false, {{0x00C0, 0x017F}}},
};

// "0041 05D0" for the UTF-8 text "Aא".
std::string code_points(const std::string &s) {
    std::string out;
    for (size_t i = 0, n; i < s.size(); i += n) {
        const auto b = static_cast<unsigned char>(s[i]);
        n = b < 0x80 ? 1 : b < 0xE0 ? 2 : b < 0xF0 ? 3 : 4;
        uint32_t cp = n == 1 ? b : b & (0x3F >> (n - 1));
        for (size_t k = 1; k < n; ++k) cp = (cp << 6) | (static_cast<unsigned char>(s[i + k]) & 0x3F);
        char buf[12];
        out.append(buf, static_cast<size_t>(std::snprintf(buf, sizeof buf, out.empty() ? "%04X" : " %04X", cp)));
    }
    return out;
}

TEST(ScriptCollation, RandomStringsSortAsGlibcSortsThem) {
    using namespace nus::tools;
    const char *chosen = std::getenv("NUS_ORACLE");
    const std::string wanted = chosen ? std::string(",") + chosen + "," : "";
    Charmap utf8;
    ASSERT_FALSE(read_charmap("/usr/share/i18n/charmaps/UTF-8.gz", utf8));
    nus_test::TempDir tree;
    fs::create_directories(tree.path() / "nus/cm3");
    fs::copy_file(fs::path(NUS_SOURCE_DIR) / "data/registry", tree.path() / "nus/cm3/registry");
    nus_test::EnvGuard path("NU_PATH", std::nullopt);
    nus_test::EnvGuard root("TESSARONDIR", tree.str());
    // The two variants of glibc's sources: every section forward; and without "position" too.
    for (const char *variant : {"forward", "model"})
        for (const char *name : {"iso14651_t1_common", "iso14651_t1"}) {
            const fs::path file = fs::path(glibc_locales()) / variant / "sources/locales" / name;
            fs::create_directories(file.parent_path());
            std::ifstream in(std::string("/usr/share/i18n/locales/") + name);
            std::ofstream out(file);
            for (std::string line; std::getline(in, line);) {
                for (size_t at; line.rfind("order_start", 0) == 0 && (at = line.find("backward")) != std::string::npos;)
                    line.replace(at, 8, "forward");
                for (size_t at; line.rfind("order_start", 0) == 0 && std::string(variant) == "model" &&
                                (at = line.find(",position")) != std::string::npos;)
                    line.erase(at, 9);
                out << line << '\n';
            }
        }
    // Latin letters, digits, punctuation, a few characters of other scripts, and code points
    // that the charmap lacks (unassigned).
    std::vector<std::string> mixed;
    for (char c : std::string("abcxyzABCXYZ0123456789 -'.,;:!?()/")) mixed.emplace_back(1, c);
    for (uint32_t cp : {0xE9, 0xDF, 0x3A9, 0x436, 0x5D0, 0x4E2D, 0xD55C, 0x20AC, 0x2026, 0x378, 0xE3D, 0x2FFFD})
        mixed.push_back(nus_test::utf8_of(cp));

    for (const Script &script : kScripts) {
        if (chosen ? wanted != ",all," && wanted.find(std::string(",") + script.source + ",") == std::string::npos
                   : !script.quick)
            continue;
        locale_t glibc = glibc_locale(script.source, "UTF-8");
        if (glibc == static_cast<locale_t>(nullptr)) GTEST_SKIP() << "glibc cannot compile " << script.source;
        locale_t forward = glibc_locale(script.source, "UTF-8", "forward");
        locale_t model = glibc_locale(script.source, "UTF-8", "model");
        ASSERT_TRUE(forward && model) << script.source;
        std::string spec = script.source;
        for (char &c : spec) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        SourceLocale source;
        ASSERT_FALSE(read_locale_source(std::string("/usr/share/i18n/locales/") + script.source, source));
        const auto file = tree.path() / "nus/lc11" / spec / "e01c.lco";
        fs::create_directories(file.parent_path());
        FILE *out = std::fopen(file.c_str(), "w");
        CompileReport report;
        const auto error = compile_locale(source, utf8, {"utf8", script.source, &utf8}, out, report);
        std::fclose(out);
        ASSERT_FALSE(error) << script.source << ": " << *error;
        spec += ".utf8";
        nu_locale_t ours = nullptr;
        ASSERT_EQ(nu_lc_load(&ours, spec.c_str(), nullptr, nullptr), 0) << spec;
        // The text of each element weighed by a list at some level.
        std::vector<std::string> listed_elements;
        {
            CollateTables tables;
            std::vector<std::string> warnings;
            ASSERT_FALSE(build_collate(source, utf8, tables, warnings)) << script.source;
            for (const auto &[chars, row] : tables.elements) {
                const auto &w = tables.weights[row];
                if (std::none_of(w.begin(), w.end(), [](uint16_t v) { return (v & kExpansionBit) != 0 && (v & kCodeTieBit) == 0; }))
                    continue;
                std::string text;
                for (nu_wchar c : chars)   // a wide character is the character's bytes, packed
                    for (int shift = 24; shift >= 0; shift -= 8)
                        if (c >> shift != 0) text += static_cast<char>((c >> shift) & 0xFF);
                listed_elements.push_back(text);
            }
        }
        auto holds_listed_element = [&](const std::string &s) {
            return std::any_of(listed_elements.begin(), listed_elements.end(),
                               [&](const std::string &e) { return s.find(e) != std::string::npos; });
        };
        std::vector<std::string> alphabet;
        for (const auto &[first, last] : script.ranges)
            for (uint32_t cp = first; cp <= last; ++cp)
                if (iswgraph_l(static_cast<wint_t>(cp), glibc)) alphabet.push_back(nus_test::utf8_of(cp));
        std::mt19937 random(12345);
        std::vector<std::string> strings;
        for (int i = 0; i < 3000; ++i) {
            std::string s;
            const int length = 1 + static_cast<int>(random() % 6);
            for (int k = 0; k < length; ++k) {
                const auto &from = i % 2 == 0 || random() % 3 != 0 ? alphabet : mixed;
                s += from[random() % from.size()];
            }
            strings.push_back(s);
        }
        // The strings in glibc's order and in the model order (by sort keys); adjacent pairs
        // are then compared with strcoll_l.
        auto key = [](locale_t g, const std::string &s) {
            std::string k(strxfrm_l(nullptr, s.c_str(), 0, g) + 1, '\0');
            k.resize(strxfrm_l(k.data(), s.c_str(), k.size(), g));
            return k;
        };
        std::vector<std::pair<std::string, size_t>> real, modelled;
        for (size_t i = 0; i < strings.size(); ++i) {
            real.emplace_back(key(glibc, strings[i]), i);
            modelled.emplace_back(key(model, strings[i]) + '\0' + key(forward, strings[i]), i);
        }
        // A pair agrees when both order it alike, or glibc calls the two equal.
        size_t alike = 0, follow = 0, walked = 0;
        std::vector<std::string> examples;
        for (auto *order : {&real, &modelled}) {
            std::sort(order->begin(), order->end());
            for (size_t k = 0; k + 1 < order->size(); ++k) {
                const std::string &a = strings[(*order)[k].second], &b = strings[(*order)[k + 1].second];
                auto coll = [&](locale_t g) { return sign(strcoll_l(a.c_str(), b.c_str(), g)); };
                const int theirs = order == &real ? coll(glibc) : coll(model) != 0 ? coll(model) : coll(forward);
                *_nu_ext_errno(ours) = 0;
                const int mine = sign(nu_full_mbscoll(ours, reinterpret_cast<const unsigned char *>(a.c_str()),
                                                      reinterpret_cast<const unsigned char *>(b.c_str())));
                EXPECT_EQ(*_nu_ext_errno(ours), 0) << spec << ": " << code_points(a) << " / " << code_points(b);
                const bool agree = mine == theirs || (theirs == 0 && mine != 0);
                (order == &real ? alike : follow) += agree;
                if (!agree && order == &real && examples.size() < 3)
                    examples.push_back(code_points(a) + " / " + code_points(b) + " (glibc " + std::to_string(theirs) + ")");
                const bool element_walk = holds_listed_element(a) || holds_listed_element(b);
                walked += !agree && order != &real && element_walk;
                EXPECT_TRUE(agree || order == &real || element_walk)
                    << spec << ": " << code_points(a) << " / " << code_points(b) << " (model " << theirs << ", ours " << mine << ")";
            }
        }
        const double pairs = static_cast<double>(strings.size() - 1);
        std::printf("%-6s %7.3f%% of adjacent pairs ordered as glibc orders them, %7.3f%% as the model",
                    script.source, 100.0 * static_cast<double>(alike) / pairs, 100.0 * static_cast<double>(follow) / pairs);
        if (walked > 0) std::printf(" (%zu others hold an element weighed by a list)", walked);
        std::printf("\n");
        for (const std::string &e : examples) std::printf("    %s\n", e.c_str());
        for (locale_t g : {glibc, forward, model}) freelocale(g);
        nu_lc_unload(ours);
    }
}

} // namespace
