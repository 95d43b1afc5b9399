// A hostile environment: installation roots and search paths of extreme lengths and odd bytes,
// a log that cannot be written, data files and registries that are directories or endless
// (/dev/zero). Each case must end in its documented code, in bounded time and memory. The
// cases run in a child process with an alarm, so that a reader that never stops fails the test
// instead of hanging the suite, and with the library's memory counted through the allocator
// slot, so that a reader that grows without end shows too.
#include "support/support.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <string>

namespace {

using nus_test::EnvGuard;
using nus_test::TempDir;

constexpr int kTimeoutSeconds = 20;
constexpr size_t kMemoryBound = 32u << 20;   // bytes the library may hold at once
constexpr int kOverMemory = 200;             // child exit status: the bound was passed

// The library's memory in the child: the bytes held now and at most, through slots 13 and 8.
struct Held {
    size_t now = 0, peak = 0;
};
Held held;

void *counted_malloc(size_t size) {
    auto *p = static_cast<size_t *>(std::malloc(size + sizeof(size_t) * 2));
    if (p == nullptr) return nullptr;
    p[0] = size;
    held.now += size;
    if (held.now > held.peak) held.peak = held.now;
    if (held.now > kMemoryBound) std::_Exit(kOverMemory);
    return p + 2;
}
void counted_free(void *q) {
    if (q == nullptr) return;
    auto *p = static_cast<size_t *>(q) - 2;
    held.now -= p[0];
    std::free(p);
}

// Runs `body` in a child process with the counted allocator installed and an alarm set; the
// child's exit status is the body's result (an error code, 0 to 99). A signal gives
// 128 + its number (SIGALRM: the case did not finish).
int in_child(const std::function<int()> &body) {
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        alarm(kTimeoutSeconds);
        nu_setextfunc(nullptr, NU_EXT_MALLOC, reinterpret_cast<nu_extfunc>(&counted_malloc));
        nu_setextfunc(nullptr, NU_EXT_FREE, reinterpret_cast<nu_extfunc>(&counted_free));
        const int code = body();
        std::fflush(nullptr);
        std::_Exit(code < 0 || code > 99 ? 99 : code);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
    return WEXITSTATUS(status);
}

// Creation with the default locale: the code the handle carries after a failure, 0 after
// success.
int create_default() {
    nu_locale_t h = nullptr;
    const int r = nu_createlocale_4(&h);
    const int code = r == 0 ? 0 : *_nu_ext_errno(h);
    nu_lc_unload(h);
    return code;
}

// nu_lc_load of a locale name or file name: the handle's code.
int load(const std::string &what) {
    nu_locale_t h = nullptr;
    const int r = nu_lc_load(&h, what.c_str(), nullptr, nullptr);
    const int code = r == 0 ? 0 : *_nu_ext_errno(h);
    nu_lc_unload(h);
    return code;
}

// A conversion object opened by file name: the descriptor's code.
int open_conversion(const std::string &file) {
    nu_cv_t cv = nullptr;
    const int r = nu_iconv_open1(&cv, file.c_str());
    const int code = r >= 0 ? 0 : (cv == nullptr ? 98 : *_nu_ext_errno(cv));
    nu_cv_unload(cv);
    return code;
}

// Odd bytes for names: controls, the path cookie 0xFF, format directives, a lone UTF-8 lead.
std::string odd(size_t length) {
    const std::string pieces[] = {"%s%n%x", "\x01\x1b[2J", "\xff", "\xc3", "..", "//", " \t\n",
                                  "\x7f", "a"};
    std::string s = "/";
    for (size_t i = 0; s.size() < length; ++i) s += pieces[i % std::size(pieces)];
    s.resize(length);
    return s;
}

class HostileEnvironment : public ::testing::Test {
protected:
    EnvGuard path_{"NU_PATH", std::nullopt};
    EnvGuard all_{"NU_ALL", std::nullopt};
    EnvGuard lang_{"NU_LANG", std::nullopt};
    EnvGuard log_{"NUSLOG", std::nullopt};
    EnvGuard debug_{"NUSDEBUG", std::nullopt};
};

TEST_F(HostileEnvironment, InstallationRootOfExtremeLengthsAndBytes) {
    const std::string mib(1u << 20, 'r');
    for (const std::string &root : {mib, odd(1u << 20), odd(257), std::string(257, '/')}) {
        EnvGuard r("TESSARONDIR", root);
        // Longer than 256: nothing is searched, code 8.
        EXPECT_EQ(in_child(create_default), NU_ENOFILE) << root.size();
        EXPECT_EQ(in_child([] { return load("de_de.8859-1"); }), NU_ENOFILE) << root.size();
        EXPECT_EQ(in_child([] { return open_conversion("8859-1_utf8.cvo"); }), NU_ENOFILE);
    }
    // At most 256 bytes, odd or not, the root is searched and nothing is found there.
    for (const std::string &root : {odd(256), odd(100), std::string(256, '/')}) {
        EnvGuard r("TESSARONDIR", root);
        EXPECT_EQ(in_child(create_default), NU_ENOFILE);
        EXPECT_EQ(in_child([] { return load("de_de.8859-1"); }), NU_ENOFILE);
    }
}

TEST_F(HostileEnvironment, SearchPathOfExtremeLengthsAndBytes) {
    EnvGuard root("TESSARONDIR", std::string(NUS_DATA_DIR));
    const std::string real = std::string(NUS_DATA_DIR) + "/nus/lc11";
    std::string many;   // 1 MiB of entries of every length, the real directory last
    for (size_t i = 0; many.size() < (1u << 20); ++i) many += odd(1 + (i * 4099) % 8192) + ":";
    const std::string cases[] = {
        std::string(1u << 20, 'p'),            // one entry of 1 MiB
        std::string(1u << 20, ':'),            // a million empty entries
        odd(1u << 20),                         // odd bytes throughout
        many,
    };
    for (const std::string &list : cases) {
        EnvGuard p("NU_PATH", list);
        EXPECT_EQ(in_child(create_default), NU_ENOFILE) << list.size();
        EXPECT_EQ(in_child([] { return load("de_de.8859-1"); }), NU_ENOFILE) << list.size();
        EnvGuard found("NU_PATH", list + ":" + real);
        const std::string probe = real + "/de_de/0333.lco";
        if (access(probe.c_str(), R_OK) != 0) continue;
        // Found after all the hostile entries.
        EXPECT_EQ(in_child([] { return load("de_de/0333.lco"); }), 0) << list.size();
    }
}

TEST_F(HostileEnvironment, LogThatCannotBeWritten) {
    const std::string probe = std::string(NUS_DATA_DIR) + "/nus/lc11/de_de/0333.lco";
    if (access(probe.c_str(), R_OK) != 0)
        GTEST_SKIP() << "the data tree has not been compiled (build the 64-bit tree)";
    TempDir dir;
    EnvGuard root("TESSARONDIR", std::string(NUS_DATA_DIR));
    EnvGuard on("NUSLOG", std::string("on"));
    // nus.log is a directory: not even a privileged process can append to it.
    std::filesystem::create_directory(dir.path() / "blocked");
    std::filesystem::create_directory(dir.path() / "blocked" / "nus.log");
    // A read-only directory (which stops an unprivileged process only).
    std::filesystem::create_directory(dir.path() / "readonly");
    chmod((dir.path() / "readonly").c_str(), 0555);
    for (const char *where : {"blocked", "readonly"}) {
        nus_test::CwdGuard cwd(dir.path() / where);
        // Loading goes on as usual; a failure is reported as usual.
        EXPECT_EQ(in_child([] {
                      nu_message("a message nobody can keep");
                      return load("de_de.8859-1");
                  }),
                  0)
            << where;
        EXPECT_EQ(in_child([] { return load("xx_yy/nowhere.lco"); }), NU_ENOFILE) << where;
    }
    chmod((dir.path() / "readonly").c_str(), 0755);
}

TEST_F(HostileEnvironment, DirectoriesWhereFilesBelong) {
    TempDir dir;
    // A tree whose registry, default locale, locale object and conversion object are
    // directories.
    for (const char *d : {"nus/cm3/registry", "nus/lc11/default.lco", "nus/lc11/de_de/0333.lco",
                          "nus/cv9/8859-1_utf8.cvo"})
        std::filesystem::create_directories(dir.path() / d);
    EnvGuard root("TESSARONDIR", dir.str());

    EXPECT_EQ(in_child(create_default), NU_EBADFILE);
    EXPECT_EQ(in_child([] { return load("de_de/0333.lco"); }), NU_EBADFILE);
    // A conversion object whose header cannot be read reports 8, like one not found.
    EXPECT_EQ(in_child([] { return open_conversion("8859-1_utf8.cvo"); }), NU_ENOFILE);
    // The registry cannot be read: lookups fail with 15, caching falls back on the built-in
    // table with 15.
    EXPECT_EQ(in_child([] {
                  int32_t code = 0;
                  const unsigned n = nu_cs_name2cs_num(&code, "sjis", nullptr);
                  return n == 0xE000 ? code : 98;
              }),
              NU_EBADFMT);
    const std::string registry_dir = (dir.path() / "nus/cm3/registry").string();
    EXPECT_EQ(in_child([&] {
                  int32_t code = 0;
                  const unsigned n = nu_cs_name2cs_num(&code, "sjis", registry_dir.c_str());
                  return n == 0xE000 ? code : 98;
              }),
              NU_EBADFMT);
    EXPECT_EQ(in_child([] {
                  int32_t code = 0;
                  const void *cache = nu_cache_registry(&code, nullptr);
                  const bool canned = cache == nus_canned_registry;
                  const unsigned n = nu_cs_name2cs_num(&code, "ascii", nullptr);
                  nu_free_registry_cache();
                  return canned && n == 364 ? code : 98;
              }),
              NU_EBADFMT);
}

TEST_F(HostileEnvironment, EndlessDataFiles) {
    if (access("/dev/zero", R_OK) != 0) GTEST_SKIP() << "no /dev/zero";
    TempDir dir;
    for (const char *link : {"nus/cm3/registry", "nus/lc11/default.lco", "nus/lc11/de_de/0333.lco",
                             "nus/cv9/8859-1_utf8.cvo", "path/de_de/0333.lco", "path/zero.cvo"}) {
        std::filesystem::create_directories((dir.path() / link).parent_path());
        std::filesystem::create_symlink("/dev/zero", dir.path() / link);
    }
    EnvGuard root("TESSARONDIR", dir.str());

    // By absolute name, through NU_PATH and under the installation root.
    EXPECT_EQ(in_child([] { return load("/dev/zero"); }), NU_EBADFILE);
    EXPECT_EQ(in_child(create_default), NU_EBADFILE);
    EXPECT_EQ(in_child([] { return load("de_de/0333.lco"); }), NU_EBADFILE);
    EXPECT_EQ(in_child([] { return open_conversion("/dev/zero"); }), NU_ENOFILE);   // its header
    EXPECT_EQ(in_child([] { return open_conversion("8859-1_utf8.cvo"); }), NU_ENOFILE);
    {
        EnvGuard p("NU_PATH", (dir.path() / "path").string());
        EXPECT_EQ(in_child([] { return load("de_de/0333.lco"); }), NU_EBADFILE);
        EXPECT_EQ(in_child([] { return open_conversion("zero.cvo"); }), NU_ENOFILE);
    }
    // A registry without end: a malformed file (11), for lookups and for caching.
    for (const std::string &registry : {std::string("/dev/zero"), std::string()}) {
        EXPECT_EQ(in_child([&] {
                      int32_t code = 0;
                      const unsigned n = nu_cs_name2cs_num(
                          &code, "sjis", registry.empty() ? nullptr : registry.c_str());
                      return n == 0xE000 ? code : 98;
                  }),
                  NU_EBADFILE)
            << registry;
        EXPECT_EQ(in_child([&] {
                      int32_t code = 0;
                      const void *cache =
                          nu_cache_registry(&code, registry.empty() ? nullptr : registry.c_str());
                      const bool canned = cache == nus_canned_registry;
                      nu_free_registry_cache();
                      return canned ? code : 98;
                  }),
                  NU_EBADFILE)
            << registry;
    }
}

} // namespace
