// The diagnostic log and the data-file search.
#include "frame/frame.h"
#include "support/support.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using nus_test::CwdGuard;
using nus_test::EnvGuard;
using nus_test::ExtTableGuard;
using nus_test::read_file;
using nus_test::TempDir;

namespace {

// Runs `body` in a fresh directory with NUSLOG=on and returns what it logged.
template <typename Body>
std::string logged(Body body) {
    TempDir dir;
    std::string log;
    {
        CwdGuard cwd(dir.path());
        EnvGuard on("NUSLOG", "on");
        EnvGuard quiet("NUSDEBUG", std::nullopt);
        nus::reset_debug_state();
        body();
        log = read_file(dir.path() / "nus.log");
    }
    nus::reset_debug_state();
    return log;
}

// The lines of a log that report open attempts.
std::vector<std::string> attempts(const std::string &log) {
    std::vector<std::string> lines;
    size_t start = 0;
    while (start < log.size()) {
        size_t end = log.find('\n', start);
        if (end == std::string::npos) end = log.size();
        std::string line = log.substr(start, end - start);
        if (line.rfind("Opened: ", 0) == 0 || line.rfind("Could not open: ", 0) == 0)
            lines.push_back(line);
        start = end + 1;
    }
    return lines;
}

int g_fopen_calls = 0;
FILE *counting_fopen(const char *path, const char *mode) {
    ++g_fopen_calls;
    return std::fopen(path, mode);
}

} // namespace

TEST(Log, OnlyOnAndOnSwitchItOn) {
    struct Case {
        const char *value;
        bool logs;
    };
    for (const Case c : {Case{"on", true}, Case{"On", true}, Case{"only", true},
                         Case{"ON", false}, Case{"oN", false}, Case{"yes", false},
                         Case{"o", false}}) {
        TempDir dir;
        {
            CwdGuard cwd(dir.path());
            EnvGuard log("NUSLOG", c.value);
            nus::reset_debug_state();
            nu_message("hello");
        }
        nus::reset_debug_state();
        EXPECT_EQ(std::filesystem::exists(dir.path() / "nus.log"), c.logs) << c.value;
    }
}

TEST(Log, FramesTheStartAndAppendsEachMessage) {
    const std::string log = logged([] {
        nu_message("first");
        nu_message("second");
    });
    ASSERT_EQ(log.rfind("----\nNUS log started ", 0), 0u) << log;
    const size_t header_end = log.find("\n----\n");
    ASSERT_NE(header_end, std::string::npos);
    EXPECT_EQ(log.substr(header_end + 6), "first\nsecond\n");
}

TEST(Log, DebugPrintsOnStandardOutput) {
    EnvGuard log("NUSLOG", std::nullopt);
    EnvGuard debug("NUSDEBUG", "on");
    nus::reset_debug_state();
    testing::internal::CaptureStdout();
    nu_message("shown");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "NUS: shown\n");
    nus::reset_debug_state();
    _nu_exit_utilities(); // nothing open: nothing to do
}

TEST(Search, InstallationRootVersionedDirectoryFirst) {
    TempDir root;
    EnvGuard path("NU_PATH", std::nullopt);
    EnvGuard tess("TESSARONDIR", root.str());
    root.write("nus/lc/x.lco", "unversioned");
    const std::string log = logged([&] {
        char *dir = nullptr;
        int32_t cell = 0;
        FILE *f = nu_path_search1(&cell, "x.lco", &dir, "lc", "11", 0);
        ASSERT_NE(f, nullptr);
        EXPECT_EQ(nus_test::rest_of(f), "unversioned");
        std::fclose(f);
        EXPECT_EQ(std::string(dir), root.str() + "/nus/lc");
        nu_destroystring(dir);
        EXPECT_EQ(cell, 0);
    });
    EXPECT_EQ(attempts(log), (std::vector<std::string>{
                                 "Could not open: " + root.str() + "/nus/lc11/x.lco",
                                 "Opened: " + root.str() + "/nus/lc/x.lco"}));

    root.write("nus/lc11/x.lco", "versioned");
    FILE *f = nu_path_search(nullptr, "x.lco", "lc", "11");
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(nus_test::rest_of(f), "versioned");
    std::fclose(f);

    char *dir = nullptr;
    char *result = nu_path_search_rpath(&dir, nullptr, "x.lco", "lc", "11");
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(result, dir);
    EXPECT_EQ(std::string(dir), root.str() + "/nus/lc11");
    nu_destroystring(dir);
}

TEST(Search, NuPathIsTheOnlyPlaceSearched) {
    TempDir a, b, root;
    root.write("nus/lc11/y.lco", "root");
    EnvGuard tess("TESSARONDIR", root.str());
    EnvGuard path("NU_PATH", a.str() + "::" + b.str());
    int32_t cell = 0;
    const std::string log = logged([&] {
        EXPECT_EQ(nu_path_search(&cell, "y.lco", "lc", "11"), nullptr);
    });
    EXPECT_EQ(cell, NU_ENOFILE);
    EXPECT_EQ(attempts(log),
              (std::vector<std::string>{"Could not open: " + a.str() + "/y.lco",
                                        "Could not open: " + b.str() + "/y.lco"}));

    b.write("y.lco", "from b");
    char *dir = nullptr;
    FILE *f = nu_path_search1(nullptr, "y.lco", &dir, "lc", "11", 0);
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(nus_test::rest_of(f), "from b");
    EXPECT_EQ(std::string(dir), b.str());
    std::fclose(f);
    nu_destroystring(dir);
}

TEST(Search, RootLengthLimit) {
    ExtTableGuard guard;
    EnvGuard path("NU_PATH", std::nullopt);
    nu_setextfunc(nullptr, NU_EXT_FOPEN, reinterpret_cast<nu_extfunc>(&counting_fopen));
    int32_t cell = 0;
    {
        EnvGuard tess("TESSARONDIR", "/" + std::string(255, 'r'));
        g_fopen_calls = 0;
        EXPECT_EQ(nu_path_search(&cell, "z.lco", "lc", "11"), nullptr);
        EXPECT_EQ(g_fopen_calls, 2); // versioned and plain directory
        EXPECT_EQ(cell, NU_ENOFILE);
    }
    {
        EnvGuard tess("TESSARONDIR", "/" + std::string(256, 'r'));
        g_fopen_calls = 0;
        cell = 0;
        const std::string log = logged([&] {
            EXPECT_EQ(nu_path_search(&cell, "z.lco", "lc", "11"), nullptr);
        });
        EXPECT_EQ(g_fopen_calls, 0);
        EXPECT_EQ(cell, NU_ENOFILE);
        EXPECT_NE(log.find("Environment variable TESSARONDIR cannot be greater than 256 "
                           "characters\n"),
                  std::string::npos);
    }
}

TEST(Search, PathCookieAndAbsoluteNames) {
    TempDir dir;
    dir.write("lc/fr.lco", "cookie");
    CwdGuard cwd(dir.path());
    EXPECT_EQ(nus::has_path_cookie("lc\xff" "fr.lco"), true);
    EXPECT_EQ(nus::has_path_cookie(""), false);
    EXPECT_EQ(nus::has_path_cookie("lc/fr.lco"), false);

    char *where = nullptr;
    FILE *f = nu_path_search1(nullptr, "lc\xff" "fr.lco", &where, "lc", "11", 0);
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(nus_test::rest_of(f), "cookie");
    EXPECT_STREQ(where, "lc");
    std::fclose(f);
    nu_destroystring(where);

    const std::string absolute = (dir.path() / "lc" / "fr.lco").string();
    f = nu_path_search1(nullptr, absolute.c_str(), &where, "lc", "11", 0);
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(std::string(where), (dir.path() / "lc").string());
    std::fclose(f);
    nu_destroystring(where);

    int32_t cell = 0;
    EXPECT_EQ(nu_open_file(&cell, "lc\xff" "absent.lco"), nullptr);
    EXPECT_EQ(cell, NU_ENOFILE);
    cell = 0;
    EXPECT_EQ(nu_path_search(&cell, "/nonexistent/dir/a.lco", "lc", "11"), nullptr);
    EXPECT_EQ(cell, NU_ENOFILE);
}

// Paths longer than the 1024-byte buffer take an exact-size buffer from the allocator.
TEST(Search, LongPathsUseTheAllocator) {
    TempDir root;
    std::string deep;
    for (int i = 0; i < 12; ++i) deep += std::string(100, static_cast<char>('a' + i)) + "/";
    root.write("nus/cv9/" + deep + "f.cvo", "deep");
    EnvGuard path("NU_PATH", std::nullopt);
    EnvGuard tess("TESSARONDIR", root.str());
    nus_test::CountingAllocator counter;
    FILE *f = nu_path_search(nullptr, (deep + "f.cvo").c_str(), "cv", "9");
    ASSERT_NE(f, nullptr);
    std::fclose(f);
    EXPECT_GT(counter.allocations, 0);
    EXPECT_EQ(counter.live, 0);

    // Refused memory is NU_ENOMEM, not a crash and not "not found".
    counter.fail_from(counter.allocations + 1);
    int32_t cell = 0;
    EXPECT_EQ(nu_path_search(&cell, (deep + "f.cvo").c_str(), "cv", "9"), nullptr);
    EXPECT_EQ(cell, NU_ENOMEM);
}

// The plain forms use the standard library, not the external-function table.
TEST(Search, PlainFormsBypassTheTable) {
    ExtTableGuard guard;
    TempDir root;
    root.write("nus/cm3/registry", "utf8 57372\n");
    EnvGuard path("NU_PATH", std::nullopt);
    EnvGuard tess("TESSARONDIR", root.str());
    nu_setextfunc(nullptr, NU_EXT_FOPEN, reinterpret_cast<nu_extfunc>(&counting_fopen));
    g_fopen_calls = 0;
    FILE *f = nu_path_search_no_ext(nullptr, "registry", "cm", "3");
    ASSERT_NE(f, nullptr);
    std::fclose(f);
    EXPECT_EQ(g_fopen_calls, 0);
    char *dir = nullptr;
    ASSERT_NE(nu_path_search_no_ext_rpath(&dir, nullptr, "registry", "cm", "3"), nullptr);
    EXPECT_EQ(std::string(dir), root.str() + "/nus/cm3");
    std::free(dir); // plain forms allocate with the standard allocator
    EXPECT_EQ(g_fopen_calls, 0);
    f = nu_path_search(nullptr, "registry", "cm", "3");
    ASSERT_NE(f, nullptr);
    std::fclose(f);
    EXPECT_EQ(g_fopen_calls, 1);
}

TEST(Search, EnvironmentVariableHelperTreatsEmptyAsUnset) {
    EnvGuard empty("NUS_TEST_VAR", "");
    EXPECT_EQ(_nu_get_env_var("NUS_TEST_VAR"), nullptr);
    EnvGuard set("NUS_TEST_VAR", "x");
    EXPECT_STREQ(_nu_get_env_var("NUS_TEST_VAR"), "x");
}
