// The code-set registry: file reader, lookups through the file and the caches, built-in
// tables, category keywords, and the registry installed in the generated data tree.
#include "names/names.h"
#include "support/support.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <string>
#include <vector>

using nus_test::EnvGuard;
using nus_test::TempDir;

namespace {

constexpr unsigned kUnknown = NU_UNKNOWN_CODESET;
using Entries = std::vector<std::pair<std::string, unsigned>>;

// An installation tree whose registry the data-file search finds; no cache before or after.
class Registry : public ::testing::Test {
protected:
    void SetUp() override { nu_free_registry_cache(); }
    void TearDown() override { nu_free_registry_cache(); }
    std::string write(const std::string &text, const char *kind = "cm3") {
        return dir_.write(std::string("nus/") + kind + "/registry", text).string();
    }
    void remove(const char *kind = "cm3") {
        std::filesystem::remove(dir_.path() / "nus" / kind / "registry");
    }
    TempDir dir_;
    EnvGuard root_{"TESSARONDIR", dir_.str()};
    EnvGuard path_{"NU_PATH", std::nullopt};
};

// A lookup through an error slot that starts at -1, so that "not set" shows.
std::pair<unsigned, int> lookup(const char *name, const char *registry = nullptr, int slot = -1) {
    unsigned number = nu_cs_name2cs_num(&slot, name, registry);
    return {number, slot};
}
const std::pair<unsigned, int> kInvalid{kUnknown, NU_EINVAL};

Entries list_cache() {
    Entries out;
    for (const nu_registry_node *n = nus_registry_list_cache; n != nullptr; n = n->next)
        out.emplace_back(n->name, n->number);
    return out;
}

const void *cache(int *slot) { return nu_cache_registry(slot, nullptr); }
const void *const kList = &nus_registry_list_cache;
const void *const kCanned = nus_canned_registry;

// The registry's memory, counted; the n-th allocation (1-based) is refused.
struct RegistryMemoryGuard {
    explicit RegistryMemoryGuard(long refuse_at) {
        refuse = refuse_at;
        count = live = 0;
        nus::names::registry_memory = {[](size_t size) -> void * {
                                           if (++count == refuse) return nullptr;
                                           ++live;
                                           return std::malloc(size);
                                       },
                                       [](void *p) {
                                           live -= p != nullptr;
                                           std::free(p);
                                       }};
    }
    ~RegistryMemoryGuard() { nus::names::registry_memory = {&std::malloc, &std::free}; }
    static inline long refuse = 0, count = 0, live = 0;
};

const char kSample[] = "# comment\n   # indented comment\n"
                       "latin-1 819 the rest of the line is ignored\n"
                       "\tISO-Upper\t 1234\ndup 1\ndup 2\nwrap 65537\nabcdefghijklmnopqrstu 21\n";

} // namespace

TEST_F(Registry, Reader) {
    std::string text = "  # comment\n\n  Foo-Bar 12 tail\n#x\nbaz\t7\nqux";
    FILE *s = nus_test::text_stream(text);
    char name[NU_CS_NAME_SIZE];
    int slot = -1;
    ASSERT_EQ(_nu_next_cs_name_from_registry(s, name, sizeof name), 1);
    EXPECT_STREQ(name, "foo-bar");
    EXPECT_EQ(_nu_next_cs_number_from_registry(&slot, s), 12u);
    EXPECT_EQ(std::fgetc(s), ' ');   // pushed back
    ASSERT_EQ(_nu_next_cs_name_from_registry(s, name, sizeof name), 1);
    EXPECT_STREQ(name, "tail");      // the rest of a line is the callers' to skip
    ASSERT_EQ(_nu_next_cs_name_from_registry(s, name, sizeof name), 1);
    EXPECT_EQ(_nu_next_cs_number_from_registry(&slot, s), 7u);
    EXPECT_EQ(_nu_next_cs_name_from_registry(s, name, sizeof name), 0);   // "qux" ends the file
    EXPECT_EQ(slot, -1);
    std::fclose(s);

    struct Case {
        const char *text;
        int size, name;             // buffer size, result of the name reader
        unsigned number;
        int error;                  // of the number reader on the same text
    } cases[] = {
        {"abc 4\n", 4, 1, kUnknown, NU_EBADFILE},   // 3 characters and the zero fit ...
        {"abcd \n", 4, 0, kUnknown, NU_EBADFILE},   // ... 4 do not
        {"# open comment", 8, 0, kUnknown, NU_EBADFILE},
        {" \n\t ", 8, 0, kUnknown, NU_EBADFILE},
        {" 42 x", 0, 0, 42, -1},
        {"65536\n", 8, 1, 0, -1},
        {"99999999999999999999999999\n", 8, 0, 65535, -1},   // (10^26 - 1) mod 2^16
        {"-1\n", 8, 1, kUnknown, NU_EBADFILE},
        {"42", 8, 0, kUnknown, NU_EBADFILE},                 // a number ending the file
    };
    for (const Case &c : cases) {
        std::string t = c.text;
        s = nus_test::text_stream(t);
        EXPECT_EQ(_nu_next_cs_name_from_registry(s, name, c.size), c.name) << c.text;
        std::fclose(s);
        s = nus_test::text_stream(t);
        slot = -1;
        EXPECT_EQ(_nu_next_cs_number_from_registry(&slot, s), c.number) << c.text;
        EXPECT_EQ(slot, c.error) << c.text;
        std::fclose(s);
    }
}

TEST_F(Registry, LookupsThroughTheFile) {
    write(kSample);
    for (const char *name : {"latin-1", "Latin-1", "LATIN-1"})
        EXPECT_EQ(lookup(name), std::make_pair(819u, -1)) << name;
    EXPECT_EQ(lookup("iso-upper").first, 1234u);   // the file's names are lower-cased too
    EXPECT_EQ(lookup("dup").first, 1u);            // the first entry wins
    EXPECT_EQ(lookup("wrap").first, 1u);           // numbers wrap at 16 bits
    EXPECT_EQ(lookup("abcdefghijklmnopqrstu").first, 21u);
    EXPECT_EQ(lookup("ABCDEFGHIJKLMNOPQRSTUvwxyz").first, 21u);   // 21 characters count

    // Numbers as names.
    EXPECT_EQ(lookup("819"), std::make_pair(819u, -1));
    EXPECT_EQ(lookup("65535").first, 65535u);
    for (const char *bad : {"70000", "65536", "12a", "", "nosuch", "latin\xe9", "99999999999999"})
        EXPECT_EQ(lookup(bad), kInvalid) << bad;
    EXPECT_EQ(nu_cs_name2cs_num(nullptr, "nosuch", nullptr), kUnknown);
    EXPECT_EQ(nu_cs_name2cs_num(nullptr, nullptr, nullptr), kUnknown);

    // nus/cm3 before nus/cm; a caller's path instead of both; an empty path names no file.
    write("latin-1 1\n", "cm");
    const std::string own = dir_.write("own", "latin-1 2\n").string();
    EXPECT_EQ(lookup("latin-1").first, 819u);
    EXPECT_EQ(lookup("latin-1", own.c_str()).first, 2u);
    remove();
    EXPECT_EQ(lookup("latin-1", "").first, 1u);
}

TEST_F(Registry, MissingFileFailsUntilTheBuiltInTableIsCached) {
    for (const char *name : {"ascii", "819"})
        EXPECT_EQ(lookup(name), std::make_pair(kUnknown, NU_EBADFMT)) << name;
    // A memory failure in the slot after the attempt to open is kept (a caller's path
    // leaves the slot alone; the search stores its own code first).
    const std::string absent = dir_.str() + "/absent";
    EXPECT_EQ(lookup("ascii", absent.c_str(), NU_ENOMEM).second, NU_ENOMEM);
    EXPECT_EQ(lookup("ascii", nullptr, NU_ENOMEM).second, NU_EBADFMT);
    EXPECT_EQ(nu_cs_name2cs_num(nullptr, "ascii", nullptr), kUnknown);

    int slot = -1;
    EXPECT_EQ(cache(&slot), kCanned);
    EXPECT_EQ(slot, NU_EBADFMT);
    EXPECT_EQ(nus_registry_array_cache, nus_canned_registry);
    EXPECT_EQ(lookup("ASCII"), std::make_pair(364u, -1));
    EXPECT_EQ(lookup("ccsid28709").first, 29709u);
    EXPECT_EQ(lookup("1208").first, 1208u);
    EXPECT_EQ(lookup("nosuch"), kInvalid);
}

TEST_F(Registry, MalformedFiles) {
    struct Case {
        const char *file, *name;
        unsigned number;
        int error;
    } cases[] = {
        {"a 1\nb x\n", "b", kUnknown, NU_EBADFILE},   // the number of the name found
        {"a 1\nb x\n", "a", 1, -1},
        {"a 1\nb 2", "b", kUnknown, NU_EBADFILE},     // a number ending the file
        {"a 1\nb 2", "c", kUnknown, NU_EBADFILE},     // a last line without newline
        {"a 1\nb", "c", kUnknown, NU_EINVAL},         // a name ending the file ends the scan
        {"a 1\n# comment to the end", "c", kUnknown, NU_EINVAL},
        {"", "a", kUnknown, NU_EINVAL},
        {"", "17", 17, -1},
        {"a 1\nabcdefghijklmnopqrstuv 2\nb 3\n", "b", kUnknown, NU_EINVAL},   // 22 characters
        {"a 1\nabcdefghijklmnopqrstuv 2\nb 3\n", "a", 1, -1},
        {"a 123456789012345678901234567890\n", "a", 2770, -1},   // mod 2^16
    };
    for (const Case &c : cases) {
        write(c.file);
        EXPECT_EQ(lookup(c.name), std::make_pair(c.number, c.error)) << c.file << " / " << c.name;
    }

    // Binary garbage: a documented code or a number, and a list or the built-in table.
    unsigned seed = 12345;
    for (int round = 0; round < 200; ++round) {
        std::string garbage(round % 50 == 0 ? 0 : seed % 300, '\0');
        for (char &c : garbage) {
            seed = seed * 1103515245u + 12345u;
            c = round % 3 == 0 && (seed >> 8) % 4 == 0 ? "0123456789 \n#"[(seed >> 4) % 13]
                                                        : static_cast<char>(seed >> 16);
        }
        write(garbage);
        auto [number, error] = lookup("name");
        EXPECT_TRUE(error == -1 || (number == kUnknown && (error == NU_EINVAL ||
                                                           error == NU_EBADFILE)));
        int slot = -1;
        const void *in_force = cache(&slot);
        EXPECT_TRUE(in_force == kList ? slot == -1 : in_force == kCanned && slot == NU_EBADFILE);
        for (const auto &[name, value] : list_cache()) EXPECT_LE(name.size(), 21u);
    }
}

TEST_F(Registry, CachingAndFreeing) {
    write(kSample);
    int slot = -1;
    EXPECT_EQ(cache(&slot), kList);
    EXPECT_EQ(slot, -1);
    EXPECT_EQ(nus_registry_array_cache, nullptr);
    EXPECT_EQ(list_cache(), (Entries{{"latin-1", 819}, {"iso-upper", 1234}, {"dup", 1},
                                     {"dup", 2}, {"wrap", 1}, {"abcdefghijklmnopqrstu", 21}}));
    // The file is not read again, and the built-in table is not consulted.
    write("latin-1 5\n");
    EXPECT_EQ(lookup("LATIN-1").first, 819u);
    EXPECT_EQ(lookup("ascii"), kInvalid);
    EXPECT_EQ(lookup("437").first, 437u);
    // Caching again replaces the list; here the last line lacks its newline, which is fine.
    write("a 1\nlatin-1 5 tail");
    EXPECT_EQ(cache(&slot), kList);
    EXPECT_EQ(list_cache(), (Entries{{"a", 1}, {"latin-1", 5}}));

    EXPECT_EQ(nu_free_registry_cache(), &nus_registry_array_cache);
    EXPECT_EQ(nus_registry_list_cache, nullptr);
    EXPECT_EQ(nus_registry_array_cache, nullptr);
    remove();
    EXPECT_EQ(lookup("latin-1").second, NU_EBADFMT);   // the file is read again

    // An empty list caches nothing: the file is read.
    for (const char *empty : {"", "# only a comment", "\n  \n"}) {
        write(empty);
        EXPECT_EQ(cache(&slot), kList);
        EXPECT_EQ(nus_registry_list_cache, nullptr);
        EXPECT_EQ(nus_registry_array_cache, nullptr);
        write("late 9\n");
        EXPECT_EQ(lookup("late").first, 9u);
    }
}

TEST_F(Registry, CachingFailuresInstallTheBuiltInTable) {
    int slot = -1;
    write("a 1\nb 2\nc x\n");   // a bad number after good entries: none of them survives
    {
        RegistryMemoryGuard memory(0);
        EXPECT_EQ(cache(&slot), kCanned);
        EXPECT_EQ(slot, NU_EBADFILE);
        EXPECT_EQ(RegistryMemoryGuard::count, 6);
        EXPECT_EQ(RegistryMemoryGuard::live, 0);
    }
    EXPECT_EQ(nus_registry_list_cache, nullptr);
    EXPECT_EQ(nus_registry_array_cache, nus_canned_registry);

    write("a 1\nb 2\nc 3\n");   // three entries of two blocks each, refused in turn
    for (long refuse = 1; refuse <= 7; ++refuse) {
        nu_free_registry_cache();
        slot = -1;
        RegistryMemoryGuard memory(refuse);
        EXPECT_EQ(cache(&slot), refuse <= 6 ? kCanned : kList) << refuse;
        EXPECT_EQ(slot, refuse <= 6 ? NU_ENOMEM : -1) << refuse;
        EXPECT_EQ(RegistryMemoryGuard::live, refuse <= 6 ? 0 : 6) << refuse;
        nu_free_registry_cache();
        EXPECT_EQ(RegistryMemoryGuard::live, 0) << refuse;
    }

    // The library allocator is not involved.
    nus_test::ExtTableGuard table;
    nus_test::CountingAllocator library;
    cache(nullptr);
    EXPECT_EQ(library.allocations, 0);
}

TEST(Names, CategoryKeywordsAndDigits) {
    struct Case {
        const char *text;
        int result, length;
    } cases[] = {
        {"NU_CTYPE", 1, 8},   {"NU_COLLATE = x", 2, 10}, {"NU_TIME", 3, 7}, {"NU_MONETARY", 4, 11},
        {"NU_NUMERIC", 5, 10}, {"NU_MESSAGES", 6, 11},   {"NU_CTYPEXYZ", 1, 8},
        {"nu_ctype", 0, -1},  {"NU_CTYP", 0, -1},        {" NU_CTYPE", 0, -1}, {"", 0, -1},
    };
    for (const Case &c : cases) {
        int length = -1;
        EXPECT_EQ(_nu_is_category(c.text, &length), c.result) << c.text;
        EXPECT_EQ(length, c.length) << c.text;
    }
    for (const char *yes : {"0", "0123456789"}) EXPECT_EQ(_nu_all_decimal_digits(yes), 1) << yes;
    for (const char *no : {"", " 1", "12a", "-1", "\xb9", "1\xb2"})
        EXPECT_EQ(_nu_all_decimal_digits(no), 0) << no;
}

TEST(Names, BuiltInTables) {
    std::map<std::string, std::vector<unsigned>> numbers;
    size_t count = 0;
    for (; nus_canned_registry[count].name != nullptr; ++count) {
        const nu_registry_entry &e = nus_canned_registry[count];
        numbers[e.name].push_back(e.number);
        EXPECT_LE(std::strlen(e.name), 21u) << e.name;
        EXPECT_TRUE(e.number < 0x10000 && e.number != kUnknown) << e.name;
    }
    ASSERT_EQ(count, 123u);
    EXPECT_EQ(numbers.size(), 122u);   // "greek" twice
    EXPECT_STREQ(nus_canned_registry[0].name, "ascii");
    EXPECT_EQ(nus_canned_registry[122].number, 0xE02Bu);
    const std::map<std::string, unsigned> quirks = {
        {"csid933", 933}, {"ccsid28709", 29709}, {"tchhstexsbcs", 28709}, {"8859-5", 915},
        {"eucjp", 5050},  {"ujis", 0xE007},      {"greek", 737},          {"utf8", 0xE01C}};
    for (const auto &[name, number] : quirks) EXPECT_EQ(numbers[name][0], number) << name;

    const char *calendars[] = {"gregorian\n", "hebrew\n", "islamic\n", "arabic\n", nullptr};
    for (int i = 0; i < 5; ++i) {
        const nu_calendar_entry &e = nus_canned_calendars[i];
        EXPECT_EQ(e.number, calendars[i] != nullptr ? i + 1 : 0);
        if (calendars[i] == nullptr) {
            EXPECT_TRUE(e.name == nullptr && e.wname == nullptr);
            break;
        }
        EXPECT_STREQ(e.name, calendars[i]);
        for (size_t j = 0; j <= std::strlen(e.name); ++j)
            EXPECT_EQ(e.wname[j], static_cast<nu_wchar>(e.name[j]));
    }
}

// The registry the build installs: every line read, every built-in name with its number,
// and names for the code sets of the system's charmaps.
TEST_F(Registry, InstalledRegistry) {
    const std::string file = std::string(NUS_DATA_DIR) + "/nus/cm3/registry";
    EnvGuard root("TESSARONDIR", std::string(NUS_DATA_DIR));
    ASSERT_EQ(cache(nullptr), kList) << file;
    std::ifstream in(file);
    size_t lines = 0;
    for (std::string line; std::getline(in, line);) {
        const size_t first = line.find_first_not_of(" \t");
        lines += first != std::string::npos && line[first] != '#';
    }
    std::map<std::string, unsigned> seen;
    for (const auto &[name, number] : list_cache())
        EXPECT_TRUE(seen.emplace(name, number).second) << name << " twice";
    EXPECT_EQ(seen.size(), lines);
    nu_free_registry_cache();   // the lookups below read the file

    // Every entry, wherever it lies in the file, is found as the cache has it.
    for (const auto &[name, number] : seen)
        EXPECT_EQ(lookup(name.c_str()), std::make_pair(number, -1)) << name;

    for (const nu_registry_entry *e = nus_canned_registry; e->name != nullptr; ++e)
        EXPECT_EQ(lookup(e->name), std::make_pair(e->number, -1)) << e->name;
    const std::map<std::string, unsigned> charmaps = {
        {"ISO-8859-1", 819},     {"ISO-8859-3", 0xE002},  {"ISO-8859-10", 0xE100},
        {"ISO-8859-11", 0xE101}, {"ISO-8859-13", 921},    {"ISO-8859-14", 0xE102},
        {"ISO-8859-15", 923},    {"ISO-8859-16", 0xE103}, {"ISO-8859-9E", 0xE104},
        {"KOI8-R", 878},         {"KOI8-U", 1168},        {"KOI8-T", 0xE105},
        {"CP1252", 1252},        {"CP1257", 1257},        {"UTF-8", 0xE01C},
        {"EUC-JP", 5050},        {"SHIFT_JIS", 0xE006},   {"EUC-KR", 970},
        {"GB2312", 0xE00D},      {"GBK", 1386},           {"GB18030", 1392},
        {"BIG5", 0xE008},        {"BIG5-HKSCS", 1375},    {"EUC-TW", 0xE01F},
        {"TIS-620", 0xE01D},     {"PT154", 0xE107},       {"RK1048", 0xE108},
        {"ARMSCII-8", 0xE109},   {"GEORGIAN-PS", 0xE10A}, {"ANSI_X3.4-1968", 364},
    };
    for (const auto &[name, number] : charmaps)
        EXPECT_EQ(lookup(name.c_str()), std::make_pair(number, -1)) << name;
}
