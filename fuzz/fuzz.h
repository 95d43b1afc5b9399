// Shared by the fuzz targets: the entry-point macro, a reader of the fuzzer's bytes, the data
// tree, locales loaded once per process, scratch files and exactly-sized buffers.
//
// Every target is one file defining its entry with NUS_FUZZ_TARGET(name). Built for libFuzzer
// the entry is LLVMFuzzerTestOneInput; built into the replay test (NUS_FUZZ_REPLAY) it is a
// named function registered with the replay test, which runs it on every saved input.
#pragma once

#include "nus.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define NUS_FUZZ_ASAN 1
#endif
#endif
#if !defined(NUS_FUZZ_ASAN) && defined(__SANITIZE_ADDRESS__)
#define NUS_FUZZ_ASAN 1
#endif
#ifdef NUS_FUZZ_ASAN
#include <sanitizer/asan_interface.h>
#else
#define NUS_FUZZ_ASAN 0
#endif

#ifndef NUS_DATA_DIR
#error "NUS_DATA_DIR names the generated data tree"
#endif

namespace nus_fuzz {

using Entry = int (*)(const uint8_t *data, size_t size);

struct Target {
    const char *name;
    Entry entry;
};

// The targets compiled into this program (the replay test holds all of them).
inline std::vector<Target> &targets() {
    static std::vector<Target> list;
    return list;
}

struct Registration {
    Registration(const char *name, Entry entry) { targets().push_back({name, entry}); }
};

// A property the target checks failed: the fuzzer stops on it (abort), the replay test
// reports it as a failure of the input.
[[noreturn]] inline void fail(const char *target, const char *what) {
#ifdef NUS_FUZZ_REPLAY
    throw std::runtime_error(std::string(target) + ": " + what);
#else
    std::fprintf(stderr, "%s: check failed: %s\n", target, what);
    std::abort();
#endif
}

} // namespace nus_fuzz

#define NUS_FUZZ_STR2(x) #x
#define NUS_FUZZ_STR(x) NUS_FUZZ_STR2(x)
#define NUS_FUZZ_CHECK(cond)                                                                   \
    do {                                                                                       \
        if (!(cond)) nus_fuzz::fail(__FILE__ ":" NUS_FUZZ_STR(__LINE__), #cond);               \
    } while (0)

#ifdef NUS_FUZZ_REPLAY
#define NUS_FUZZ_TARGET(name)                                                                  \
    static int nus_fuzz_entry_##name(const uint8_t *data, size_t size);                       \
    static const nus_fuzz::Registration nus_fuzz_registration_##name(#name,                   \
                                                                    nus_fuzz_entry_##name);   \
    static int nus_fuzz_entry_##name(const uint8_t *data, size_t size)
#else
#define NUS_FUZZ_TARGET(name)                                                                  \
    extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
#endif

namespace nus_fuzz {

// Takes values from the front of the input; past its end every value is 0 (or empty).
class Input {
public:
    Input(const uint8_t *data, size_t size) : p_(data), n_(size) {}

    size_t left() const { return n_; }
    bool empty() const { return n_ == 0; }

    uint8_t byte() {
        if (n_ == 0) return 0;
        --n_;
        return *p_++;
    }
    uint32_t u16() { return static_cast<uint32_t>(byte()) | static_cast<uint32_t>(byte()) << 8; }
    uint32_t u32() { return u16() | u16() << 16; }
    bool flag() { return (byte() & 1) != 0; }
    // A value in [lo, hi].
    int range(int lo, int hi) {
        const uint32_t span = static_cast<uint32_t>(hi - lo) + 1;
        const uint32_t v = span <= 256 ? byte() : u16();
        return lo + static_cast<int>(v % span);
    }
    // Up to `count` bytes.
    std::string bytes(size_t count) {
        if (count > n_) count = n_;
        std::string s(reinterpret_cast<const char *>(p_), count);
        p_ += count;
        n_ -= count;
        return s;
    }
    // A piece whose length comes first (one byte).
    std::string piece() { return bytes(byte()); }
    std::string rest() { return bytes(n_); }

private:
    const uint8_t *p_;
    size_t n_;
};

// The generated data tree: NUS_FUZZ_DATA_DIR when set, else the one the build was configured
// with.
inline const char *data_dir() {
    const char *env = std::getenv("NUS_FUZZ_DATA_DIR");
    return env != nullptr && *env != '\0' ? env : NUS_DATA_DIR;
}

// The environment every target runs in: the data tree as installation root, no search path,
// no diagnostics. Done once per process.
inline void environment() {
    static const bool done = [] {
        setenv("TESSARONDIR", data_dir(), 1);
        unsetenv("NU_PATH");
        unsetenv("NUSLOG");
        unsetenv("NUSDEBUG");
        for (const char *v : {"NU_ALL", "NU_CTYPE", "NU_COLLATE", "NU_NUMERIC", "NU_MONETARY",
                              "NU_TIME", "NU_MESSAGES", "NU_LANG"})
            unsetenv(v);
        return true;
    }();
    (void)done;
}

// A locale of the data tree, loaded on first use and kept for the life of the process; null
// when it cannot be loaded (the target then has nothing to do).
nu_locale_t locale(const char *spec);

// A handle holding only the built-in null locale, made on first use and kept likewise.
nu_locale_t null_handle();

// A directory of its own for the process, removed at exit; files written into it are
// rewritten for every input.
const std::string &scratch_dir();
std::string write_scratch(const std::string &name, const std::string &content);

// Bytes copied into a heap block of exactly their size, so that a read or write past them is
// caught by the address sanitizer or memcheck. The address sanitizer gives an empty block one
// usable byte, so that a write of one byte into "no room" would pass unseen: that byte is
// poisoned here while the block lives.
class Exact {
public:
    explicit Exact(size_t size) : size_(size), p_(new unsigned char[size]) {
        if (size != 0) std::memset(p_.get(), 0xAB, size);
        else poison_empty(p_.get(), true);
    }
    Exact(const std::string &bytes) : Exact(bytes.size()) {
        if (!bytes.empty()) std::memcpy(p_.get(), bytes.data(), bytes.size());
    }
    Exact(Exact &&) = default;
    Exact &operator=(Exact &&) = delete;
    ~Exact() {
        if (size_ == 0 && p_ != nullptr) poison_empty(p_.get(), false);
    }
    unsigned char *get() const { return p_.get(); }
    char *chars() const { return reinterpret_cast<char *>(p_.get()); }
    size_t size() const { return size_; }

private:
    static void poison_empty(unsigned char *p, bool on) {
#if NUS_FUZZ_ASAN
        if (on) __asan_poison_memory_region(p, 1);
        else __asan_unpoison_memory_region(p, 1);
#else
        (void)p;
        (void)on;
#endif
    }

    size_t size_;
    std::unique_ptr<unsigned char[]> p_;
};

// A string of the fuzzer's bytes ended by `zeros` zero bytes (a locale's terminator), in a
// block of exactly that size.
inline Exact terminated(const std::string &bytes, int zeros) {
    return Exact(bytes + std::string(static_cast<size_t>(zeros), '\0'));
}

} // namespace nus_fuzz
