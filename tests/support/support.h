// Helpers shared by the test programs: temporary directories, environment guards, stream
// helpers, and an allocator installed through the external-function table.
#pragma once

#include "nus.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <cstring>

namespace nus_test {

// A fresh directory under $TMPDIR, removed with everything in it.
class TempDir {
public:
    TempDir() {
        std::string pattern = (std::filesystem::temp_directory_path() / "nus-test-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) std::abort();
        path_ = pattern;
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    const std::filesystem::path &path() const { return path_; }
    std::string str() const { return path_.string(); }
    // Writes a file below the directory, creating its parents.
    std::filesystem::path write(const std::string &relative, const std::string &content) const {
        auto file = path_ / relative;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << content;
        return file;
    }

private:
    std::filesystem::path path_;
};

// Sets (or unsets, with nullopt) an environment variable for the life of the guard.
class EnvGuard {
public:
    EnvGuard(const char *name, std::optional<std::string> value) : name_(name) {
        if (const char *old = std::getenv(name)) old_ = old;
        if (value) setenv(name, value->c_str(), 1);
        else unsetenv(name);
    }
    ~EnvGuard() {
        if (old_) setenv(name_.c_str(), old_->c_str(), 1);
        else unsetenv(name_.c_str());
    }
    EnvGuard(const EnvGuard &) = delete;
    EnvGuard &operator=(const EnvGuard &) = delete;

private:
    std::string name_;
    std::optional<std::string> old_;
};

// Changes the working directory for the life of the guard.
class CwdGuard {
public:
    explicit CwdGuard(const std::filesystem::path &dir) : old_(std::filesystem::current_path()) {
        std::filesystem::current_path(dir);
    }
    ~CwdGuard() { std::filesystem::current_path(old_); }
    CwdGuard(const CwdGuard &) = delete;
    CwdGuard &operator=(const CwdGuard &) = delete;

private:
    std::filesystem::path old_;
};

// Empties every slot of the external-function table when it goes out of scope.
struct ExtTableGuard {
    ExtTableGuard() = default;
    ExtTableGuard(const ExtTableGuard &) = delete;
    ExtTableGuard &operator=(const ExtTableGuard &) = delete;
    ~ExtTableGuard() {
        for (int slot = 0; slot < NU_EXT_SLOTS; ++slot) _nu_set_ext_funcptr(slot, nullptr);
    }
};

// A counting allocator installed in the malloc and free slots. It can refuse the n-th
// allocation, and tracks the bytes still held so that leaks show.
class CountingAllocator {
public:
    CountingAllocator() {
        instance_ = this;
        nu_setextfunc(nullptr, NU_EXT_MALLOC, reinterpret_cast<nu_extfunc>(&allocate));
        nu_setextfunc(nullptr, NU_EXT_FREE, reinterpret_cast<nu_extfunc>(&release));
    }
    ~CountingAllocator() {
        _nu_set_ext_funcptr(NU_EXT_MALLOC, nullptr);
        _nu_set_ext_funcptr(NU_EXT_FREE, nullptr);
        instance_ = nullptr;
    }
    CountingAllocator(const CountingAllocator &) = delete;
    CountingAllocator &operator=(const CountingAllocator &) = delete;

    // Refuse the allocation numbered `n` (1-based) and every later one; 0 refuses none.
    void fail_from(long n) { fail_from_ = n; }
    long allocations = 0;
    long frees = 0;
    long live = 0;

private:
    static void *allocate(size_t size) {
        CountingAllocator *self = instance_;
        ++self->allocations;
        if (self->fail_from_ != 0 && self->allocations >= self->fail_from_) return nullptr;
        ++self->live;
        return std::malloc(size);
    }
    static void release(void *p) {
        CountingAllocator *self = instance_;
        ++self->frees;
        --self->live;
        std::free(p);
    }
    static inline CountingAllocator *instance_ = nullptr;
    long fail_from_ = 0;
};

// Bytes at the very end of a readable page: a read past them faults.
class Guarded {
public:
    explicit Guarded(const std::string &bytes) : page_(static_cast<size_t>(sysconf(_SC_PAGESIZE))) {
        void *p = mmap(nullptr, 2 * page_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS,
                       -1, 0);
        if (p == MAP_FAILED) std::abort();
        mem_ = static_cast<unsigned char *>(p);
        mprotect(mem_ + page_, page_, PROT_NONE);
        std::memcpy(mem_ + page_ - bytes.size(), bytes.data(), bytes.size());
        data = mem_ + page_ - bytes.size();
    }
    ~Guarded() { munmap(mem_, 2 * page_); }
    Guarded(const Guarded &) = delete;
    Guarded &operator=(const Guarded &) = delete;
    unsigned char *data;

private:
    size_t page_;
    unsigned char *mem_;
};

// A read stream over a string (the string must outlive the stream).
inline FILE *text_stream(const std::string &text) {
    return fmemopen(const_cast<char *>(text.data()), text.size(), "r");
}

// The rest of a stream as a string.
inline std::string rest_of(FILE *stream) {
    std::string out;
    int c;
    while ((c = std::fgetc(stream)) != EOF) out.push_back(static_cast<char>(c));
    return out;
}

inline std::string read_file(const std::filesystem::path &file) {
    std::ifstream in(file, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

// A locale loaded for a test and unloaded at the end of the scope: a specification
// ("ja_jp.sjis") looked up in the generated data tree the build compiles, or the file name of
// a hand-made fixture in tests/data/lc11 ("uc_uc/e005.lco"). `h` is null when it cannot be
// loaded, e.g. when the 64-bit tree has not compiled the data yet; tests skip then.
class TestLocale {
public:
    explicit TestLocale(const std::string &what) {
        const bool fixture = what.size() > 4 && what.compare(what.size() - 4, 4, ".lco") == 0;
        EnvGuard path("NU_PATH", fixture ? std::optional<std::string>(std::string(NUS_SOURCE_DIR) +
                                                                      "/tests/data/lc11")
                                         : std::nullopt);
        EnvGuard root("TESSARONDIR", std::string(NUS_DATA_DIR));
        if (nu_lc_load(&h, what.c_str(), nullptr, nullptr) != 0) {
            nu_lc_unload(h);
            h = nullptr;
        }
    }
    ~TestLocale() { nu_lc_unload(h); }
    TestLocale(const TestLocale &) = delete;
    TestLocale &operator=(const TestLocale &) = delete;
    operator nu_locale_t() const { return h; }
    int error() const { return *_nu_ext_errno(h); }

    nu_locale_t h = nullptr;
};

#define NUS_LOAD_OR_SKIP(var, what)                                                          \
    nus_test::TestLocale var(what);                                                          \
    if (var.h == nullptr) GTEST_SKIP() << "locale " << (what) << " not available (build the 64-bit tree)"

} // namespace nus_test
