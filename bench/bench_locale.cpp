// Loading a locale and decoding whole strings in it, beside glibc on the same work.
//
// nuslib reads the hand-made locales of the tests (an EUC-like code set and a Latin-1-like
// one) from a temporary installation; glibc uses ja_JP.EUC-JP and de_DE.ISO-8859-1 compiled
// into the directory named by LOCPATH (make bench does that).
#include "nus.h"

#include <benchmark/benchmark.h>

#include <clocale>
#include <cstdlib>
#include <cwchar>
#include <filesystem>
#include <locale.h>
#include <random>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

// A temporary installation tree: the test locales and the registry, removed at exit.
const std::string &installation() {
    static const std::string root = [] {
        std::string dir = (fs::temp_directory_path() / "nus-bench-XXXXXX").string();
        if (mkdtemp(dir.data()) == nullptr) std::abort();
        const fs::path source(NUS_SOURCE_DIR);
        fs::create_directories(fs::path(dir) / "nus/cm3");
        fs::copy(source / "tests/data/lc11", fs::path(dir) / "nus/lc11", fs::copy_options::recursive);
        fs::copy_file(source / "data/registry", fs::path(dir) / "nus/cm3/registry");
        setenv("TESSARONDIR", dir.c_str(), 1);
        unsetenv("NU_PATH");
        std::atexit([] { fs::remove_all(installation()); });
        return dir;
    }();
    return root;
}

// 1 MiB of ASCII mixed with two-byte EUC characters of rows B0-CE, zero-terminated.
struct Text {
    std::vector<unsigned char> bytes;
    int chars = 0;
};

const Text &euc_text() {
    static const Text t = [] {
        Text out;
        std::mt19937 rng(4242);
        const size_t size = size_t{1} << 20;
        while (out.bytes.size() < size) {
            if (out.bytes.size() + 2 <= size && rng() % 2 == 0) {
                out.bytes.push_back(static_cast<unsigned char>(0xB0 + rng() % 31));
                out.bytes.push_back(static_cast<unsigned char>(0xA1 + rng() % 94));
            } else {
                out.bytes.push_back(static_cast<unsigned char>(0x20 + rng() % 95));
            }
            ++out.chars;
        }
        out.bytes.push_back(0);
        return out;
    }();
    return t;
}

nu_locale_t euc_locale() {
    static nu_locale_t h = [] {
        installation();
        nu_locale_t loaded = nullptr;
        if (nu_lc_load(&loaded, "ja_jp/13ba.lco", nullptr, nullptr) != 0) std::abort();
        return loaded;
    }();
    return h;
}

void set_counters(benchmark::State &state, int chars) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(euc_text().bytes.size() - 1));
    state.counters["chars/s"] = benchmark::Counter(static_cast<double>(chars) *
                                                       static_cast<double>(state.iterations()),
                                                   benchmark::Counter::kIsRate);
}

void BM_NusMbstowcs(benchmark::State &state) {
    nu_locale_t h = euc_locale();
    const Text &text = euc_text();
    std::vector<nu_wchar> out(static_cast<size_t>(text.chars) + 1);
    int count = 0;
    for (auto _ : state) {
        count = _nu_im_mbstowcs(h, out.data(), text.bytes.data(), text.chars + 1);
        benchmark::DoNotOptimize(out.data());
    }
    if (count != text.chars) state.SkipWithError("character count differs");
    set_counters(state, text.chars);
}
BENCHMARK(BM_NusMbstowcs);

void BM_NusMbslen(benchmark::State &state) {
    nu_locale_t h = euc_locale();
    const Text &text = euc_text();
    int count = 0;
    for (auto _ : state) {
        count = _nu_im_mbslen(h, text.bytes.data());
        benchmark::DoNotOptimize(count);
    }
    if (count != text.chars) state.SkipWithError("character count differs");
    set_counters(state, text.chars);
}
BENCHMARK(BM_NusMbslen);

void BM_GlibcMbstowcs(benchmark::State &state) {
    const Text &text = euc_text();
    if (std::setlocale(LC_CTYPE, "ja_JP.EUC-JP") == nullptr) {
        state.SkipWithError("glibc locale ja_JP.EUC-JP not available (see make bench)");
        return;
    }
    std::vector<wchar_t> out(static_cast<size_t>(text.chars) + 1);
    size_t count = 0;
    for (auto _ : state) {
        count = std::mbstowcs(out.data(), reinterpret_cast<const char *>(text.bytes.data()),
                              out.size());
        benchmark::DoNotOptimize(out.data());
    }
    std::setlocale(LC_CTYPE, "C");
    if (count != static_cast<size_t>(text.chars)) state.SkipWithError("character count differs");
    set_counters(state, text.chars);
}
BENCHMARK(BM_GlibcMbstowcs);

void BM_NusLoadLocale(benchmark::State &state) {
    installation();
    for (auto _ : state) {
        nu_locale_t h = nullptr;
        if (nu_lc_load(&h, "xx_yy/0333.lco", nullptr, nullptr) != 0) {
            state.SkipWithError("load failed");
            nu_lc_unload(h);
            break;
        }
        nu_lc_unload(h);
    }
}
BENCHMARK(BM_NusLoadLocale)->Unit(benchmark::kMicrosecond);

void BM_GlibcNewlocale(benchmark::State &state) {
    for (auto _ : state) {
        locale_t l = newlocale(LC_ALL_MASK, "de_DE.ISO-8859-1", static_cast<locale_t>(0));
        if (l == static_cast<locale_t>(0)) {
            state.SkipWithError("glibc locale de_DE.ISO-8859-1 not available (see make bench)");
            break;
        }
        freelocale(l);
    }
}
BENCHMARK(BM_GlibcNewlocale)->Unit(benchmark::kMicrosecond);

} // namespace
