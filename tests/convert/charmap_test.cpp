// Character maps: every character of every compiled map to its symbol and back, one at a time
// and as one text; the faults of the conversions at every output size; malformed map files;
// refused memory while loading.
#include "support/support.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

using nus_test::EnvGuard;
using nus_test::TempDir;

namespace {

namespace fs = std::filesystem;

struct Char {
    std::string bytes, symbol;
};

// The characters a map file lists, read from its text as the format describes it.
std::vector<Char> listed(const fs::path &file, int *min_length) {
    std::ifstream in(file);
    std::string line;
    int header = 0;
    for (int i = 0; i < 3 && std::getline(in, line); ++i)
        if (line.rfind("HEADER_LENGTH=", 0) == 0) header = std::stoi(line.substr(14));
    for (int i = 3; i < header; ++i) std::getline(in, line);
    size_t count = 0, pool = 0;
    int max = 0;
    in >> *min_length >> max >> count >> pool;
    std::vector<Char> out;
    for (std::string hex, symbol; out.size() < count && in >> hex >> symbol;) {
        std::string bytes;
        for (size_t i = 0; i + 1 < hex.size(); i += 2)
            bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
        out.push_back({bytes, symbol});
    }
    EXPECT_EQ(out.size(), count) << file;
    return out;
}

std::string to_symbols(nu_locale_t h, nu_cm_t cm, const std::string &bytes, int size = 0) {
    std::vector<char> out(static_cast<size_t>(size > 0 ? size : 16 * bytes.size() + 16) + 8, '#');
    const int n = nu_mbstosyms(h, cm, out.data(), static_cast<int>(out.size()) - 8,
                               bytes.data(), static_cast<int>(bytes.size()));
    if (n < 0) return "<fail " + std::to_string(*_nu_ext_errno(h)) + ">";
    return std::string(out.data(), static_cast<size_t>(n));
}

std::string to_bytes(nu_locale_t h, nu_cm_t cm, const std::string &symbols, int terminator) {
    std::vector<char> out(symbols.size() + 8, '#');
    const int n = nu_symstombs(h, cm, out.data(), static_cast<int>(symbols.size()) + 4,
                               symbols.c_str());
    if (n < 0) return "<fail " + std::to_string(*_nu_ext_errno(h)) + ">";
    EXPECT_EQ(std::string(out.data() + n, static_cast<size_t>(terminator)),
              std::string(static_cast<size_t>(terminator), '\0'));
    return std::string(out.data(), static_cast<size_t>(n));
}

struct Handle {
    Handle() { EXPECT_EQ(nu_create_null_locale_4(&h), 0); }
    ~Handle() { nu_lc_unload(h); }
    int error() const { return *_nu_ext_errno(h); }
    nu_locale_t h = nullptr;
};

TEST(CharacterMaps, EveryCharacterOfEveryCompiledMapToItsSymbolAndBack) {
    const fs::path dir = fs::path(NUS_DATA_DIR) / "nus" / "cm3";
    std::vector<fs::path> files;
    if (fs::exists(dir))
        for (const auto &e : fs::directory_iterator(dir))
            if (e.path().extension() == ".cmo") files.push_back(e.path());
    if (files.empty()) GTEST_SKIP() << "no compiled character maps (build the 64-bit tree)";
    std::sort(files.begin(), files.end());
    EnvGuard root("TESSARONDIR", std::string(NUS_DATA_DIR));
    EnvGuard path("NU_PATH", std::nullopt);
    Handle h;
    long characters = 0;
    for (const fs::path &file : files) {
        int min_length = 0;
        const std::vector<Char> chars = listed(file, &min_length);
        const unsigned number = static_cast<unsigned>(std::stoul(file.stem().string(), nullptr, 16));
        nu_cm_t cm = nullptr;
        ASSERT_EQ(nu_cm_load(h.h, &cm, number, nullptr), 0) << file << " error " << h.error();
        int min = 0, max = 0;
        EXPECT_EQ(nu_cm_info(cm, &min, &max), static_cast<int>(chars.size())) << file;
        EXPECT_EQ(min, min_length);
        std::string text, symbols;
        for (const Char &c : chars) {
            const std::string symbol = "<" + c.symbol + ">";
            ASSERT_EQ(to_symbols(h.h, cm, c.bytes), symbol) << file;
            ASSERT_EQ(to_bytes(h.h, cm, symbol, min), c.bytes) << file << " " << symbol;
            if (c.bytes.find_first_not_of('\0') == std::string::npos) continue;
            text += c.bytes;
            symbols += symbol;
            ++characters;
        }
        // The whole map as one text, counted and up to its terminator.
        EXPECT_EQ(to_symbols(h.h, cm, text), symbols) << file;
        std::vector<char> out(symbols.size() + 1);
        const std::string terminated = text + std::string(static_cast<size_t>(min), '\0');
        EXPECT_EQ(nu_mbstosyms(h.h, cm, out.data(), static_cast<int>(out.size()),
                               terminated.data(), -1),
                  static_cast<int>(symbols.size()))
            << file;
        EXPECT_EQ(to_bytes(h.h, cm, symbols, min), text) << file;
        nu_cm_unload(cm);
    }
    std::printf("%zu maps, %ld characters to symbols and back\n", files.size(), characters);
}

// A small map of a code set of two-byte characters (strings end with two zero bytes), and
// one of single bytes, written for the test.
class CharacterMapFaults : public ::testing::Test {
protected:
    static std::string file(const std::string &counts, const std::string &lines,
                            const std::string &version = "3") {
        return "FILE_TYPE=character_map_object\nCOMPILER_VERSION=" + version +
               "\nHEADER_LENGTH=5\nCODESET=test\nSOURCE_VERSION=TEST\n" + counts + "\n" + lines;
    }
    int load(const std::string &content, nu_cm_t *cm) {
        dir_.write("e123.cmo", content);
        *_nu_ext_errno(h_.h) = 0;
        return nu_cm_load(h_.h, cm, 0xe123, dir_.str().c_str());
    }
    TempDir dir_;
    Handle h_;
    const std::string two_ = file("2 2 4 24", "0000 NUL\n0041 A\n00c4 A-diaeresis\n4e00 U4E00\n");
    const std::string one_ = file("1 2 3 7", "41 A\n42 B\n8ea1 KA\n");
};

TEST_F(CharacterMapFaults, ConversionsAtEverySizeAndTheirFaults) {
    nu_cm_t cm = nullptr;
    ASSERT_EQ(load(two_, &cm), 0) << h_.error();
    const std::string text("\0A\0\xc4\x4e\x00\0\0", 8);
    const std::string symbols = "<A><A-diaeresis><U4E00>";
    // Up to the terminator at a character boundary: 4e 00 is a character, not its start.
    std::vector<char> out(64);
    EXPECT_EQ(nu_mbstosyms(h_.h, cm, out.data(), 64, text.data(), -1), 23);
    EXPECT_EQ(std::string(out.data()), symbols);
    // Every size: the result, or NU_E2BIG with a terminated prefix and nothing past the size.
    for (int size = 1; size <= 24; ++size) {
        std::vector<char> o(static_cast<size_t>(size) + 4, '#');
        *_nu_ext_errno(h_.h) = 0;
        const int n = nu_mbstosyms(h_.h, cm, o.data(), size, text.data(), 6);
        EXPECT_EQ(n, size >= 24 ? 23 : -1) << size;
        if (n < 0) {
            EXPECT_EQ(h_.error(), NU_E2BIG);
        }
        EXPECT_EQ(std::string(o.data() + size, 4), "####") << size;
        EXPECT_EQ(symbols.compare(0, std::strlen(o.data()), o.data()), 0) << size;
    }
    for (int size = 2; size <= 8; ++size) {
        std::vector<char> o(static_cast<size_t>(size) + 4, '#');
        const int n = nu_symstombs(h_.h, cm, o.data(), size, symbols.c_str());
        EXPECT_EQ(n, size >= 8 ? 6 : -1) << size;
        EXPECT_EQ(std::string(o.data() + size, 4), "####") << size;
    }
    struct Case {
        std::string input;
        bool to_symbols;
        int error;
    };
    const Case cases[] = {
        {std::string("\0A\x12\x34", 4), true, NU_ENOSYM},   // a sequence the map lacks
        {std::string("\0A\0", 3), true, NU_ENOSYM},          // cut inside a character
        {"<A><B>", false, NU_ENOSYM},                        // a symbol naming nothing
        {"<A> <A>", false, NU_EINVAL},
        {"<A", false, NU_EINVAL},
        {"<>", false, NU_EINVAL},
        {"A", false, NU_EINVAL},
        {"<" + std::string(65, 'x') + ">", false, NU_EINVAL},
    };
    for (const Case &c : cases) {
        *_nu_ext_errno(h_.h) = 0;
        const std::string got = c.to_symbols ? to_symbols(h_.h, cm, c.input)
                                             : to_bytes(h_.h, cm, c.input, 2);
        EXPECT_EQ(got, "<fail " + std::to_string(c.error) + ">") << c.input;
    }
    // Arguments.
    char o[8];
    EXPECT_EQ(nu_mbstosyms(h_.h, nullptr, o, 8, "A", 1), -1);
    EXPECT_EQ(h_.error(), NU_EBADARG);
    EXPECT_EQ(nu_mbstosyms(h_.h, cm, o, 0, "A", 1), -1);
    EXPECT_EQ(h_.error(), NU_EBADVAL);
    EXPECT_EQ(nu_mbstosyms(h_.h, cm, o, 8, "A", -2), -1);
    EXPECT_EQ(nu_symstombs(h_.h, cm, o, 1, "<A>"), -1);
    EXPECT_EQ(h_.error(), NU_EBADVAL);
    EXPECT_EQ(nu_symstombs(nullptr, cm, o, 8, "<A>"), -1);
    EXPECT_EQ(nu_cm_info(nullptr, nullptr, nullptr), -1);
    nu_cm_unload(cm);

    // Characters of one and two bytes; a lead byte alone is no character.
    ASSERT_EQ(load(one_, &cm), 0) << h_.error();
    EXPECT_EQ(to_symbols(h_.h, cm, "AB\x8e\xa1" "A"), "<A><B><KA><A>");
    EXPECT_EQ(to_symbols(h_.h, cm, "A\x8e"), "<fail 53>");
    EXPECT_EQ(to_bytes(h_.h, cm, "<KA><B><A>", 1), "\x8e\xa1" "BA");
    nu_cm_unload(cm);
}

TEST_F(CharacterMapFaults, MalformedFilesAreRefused) {
    const struct {
        const char *what;
        std::string content;
        int error;
    } cases[] = {
        {"another version", file("1 1 1 2", "41 A\n", "4"), NU_EVERSION},
        {"another type", "FILE_TYPE=codeset_conversion_object\n" + one_.substr(31), NU_EBADFILE},
        {"no counts", file("", ""), NU_EBADFILE},
        {"out of order", file("1 1 2 4", "42 B\n41 A\n"), NU_EBADFILE},
        {"a character twice", file("1 1 2 4", "41 A\n41 B\n"), NU_EBADFILE},
        {"a symbol twice", file("1 1 2 4", "41 A\n42 A\n"), NU_EBADFILE},
        {"fewer lines than counted", file("1 1 3 6", "41 A\n42 B\n"), NU_EBADFILE},
        {"a pool too small", file("1 1 2 4", "41 AB\n42 B\n"), NU_EBADFILE},
        {"odd hexadecimal digits", file("1 1 1 2", "410 A\n"), NU_EBADFILE},
        {"five bytes", file("1 4 1 2", "4142434445 A\n"), NU_EBADFILE},
        {"longer than the longest", file("1 1 1 2", "4142 A\n"), NU_EBADFILE},
        {"a symbol with a bracket", file("1 1 1 3", "41 A>\n"), NU_EBADFILE},
        {"no final newline", file("1 1 1 2", "41 A"), NU_EBADFILE},
        {"lengths 0", file("0 1 1 2", "41 A\n"), NU_EBADFILE},
        {"a count beyond any code set", file("1 1 99999999 200000000", "41 A\n"), NU_EBADFILE},
        {"a header length too small", "FILE_TYPE=character_map_object\nCOMPILER_VERSION=3\n"
                                      "HEADER_LENGTH=2\n1 1 1 2\n41 A\n", NU_EBADFILE},
    };
    for (const auto &c : cases) {
        nu_cm_t cm = reinterpret_cast<nu_cm_t>(&h_);
        EXPECT_EQ(load(c.content, &cm), -1) << c.what;
        EXPECT_EQ(h_.error(), c.error) << c.what;
        EXPECT_EQ(cm, nullptr) << c.what;
    }
    nu_cm_t cm = nullptr;
    *_nu_ext_errno(h_.h) = 0;
    EXPECT_EQ(nu_cm_load(h_.h, &cm, 0xe124, dir_.str().c_str()), -1);
    EXPECT_EQ(h_.error(), NU_ENOFILE);
    EXPECT_EQ(nu_cm_load(h_.h, &cm, NU_UNKNOWN_CODESET, nullptr), -1);
    EXPECT_EQ(h_.error(), NU_EBADARG);
    EXPECT_EQ(nu_cm_load(h_.h, nullptr, 0xe123, nullptr), -1);
}

// Every allocation of the loader refused in turn: NU_ENOMEM (or the search's NU_ENOFILE when
// its own buffer is refused), no map, nothing held.
TEST_F(CharacterMapFaults, RefusedMemoryWhileLoading) {
    dir_.write("e123.cmo", two_);
    for (long n = 1;; ++n) {
        nus_test::CountingAllocator counting;
        counting.fail_from(n);
        nu_cm_t cm = nullptr;
        *_nu_ext_errno(h_.h) = 0;
        const int result = nu_cm_load(h_.h, &cm, 0xe123, dir_.str().c_str());
        if (result == 0) {
            nu_cm_unload(cm);
            EXPECT_EQ(counting.live, 0);
            EXPECT_GT(n, 3);
            break;
        }
        EXPECT_EQ(cm, nullptr) << n;
        EXPECT_TRUE(h_.error() == NU_ENOMEM || h_.error() == NU_ENOFILE) << n << " " << h_.error();
        EXPECT_EQ(counting.live, 0) << n;
        ASSERT_LT(n, 20);
    }
}

} // namespace
