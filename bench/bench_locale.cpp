// Loading a locale and decoding whole strings in it, beside glibc on the same work.
//
// nuslib reads the hand-made locales of the tests (an EUC-like code set and a Latin-1-like
// one) from a temporary installation; glibc uses ja_JP.EUC-JP and de_DE.ISO-8859-1 compiled
// into the directory named by LOCPATH (make bench does that).
#include "nus.h"
#include "bench/euc_text.h"

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

using nus_bench::euc_text;
using Text = nus_bench::EucText;

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

// Bytes a handle holds: allocations through the external-function table, counted while it
// is loaded.
long long g_live_bytes = 0;
void *counting_malloc(size_t size) {
    auto *p = static_cast<size_t *>(std::malloc(size + 16));
    if (p == nullptr) return nullptr;
    *p = size;
    g_live_bytes += static_cast<long long>(size);
    return reinterpret_cast<char *>(p) + 16;
}
void counting_free(void *p) {
    if (p == nullptr) return;
    auto *base = reinterpret_cast<size_t *>(static_cast<char *>(p) - 16);
    g_live_bytes -= static_cast<long long>(*base);
    std::free(base);
}

// Loading all six categories of a locale of the generated data tree, and unloading it.
void BM_NusLoad(benchmark::State &state, const char *spec) {
    setenv("TESSARONDIR", NUS_DATA_DIR, 1);
    unsetenv("NU_PATH");
    for (auto _ : state) {
        nu_locale_t h = nullptr;
        if (nu_lc_load(&h, spec, nullptr, nullptr) != 0) {
            state.SkipWithError("load failed: is the data tree built?");
            nu_lc_unload(h);
            break;
        }
        nu_lc_unload(h);
    }
    nu_setextfunc(nullptr, NU_EXT_MALLOC, reinterpret_cast<nu_extfunc>(&counting_malloc));
    nu_setextfunc(nullptr, NU_EXT_FREE, reinterpret_cast<nu_extfunc>(&counting_free));
    g_live_bytes = 0;
    nu_locale_t h = nullptr;
    if (nu_lc_load(&h, spec, nullptr, nullptr) == 0) state.counters["bytes held"] = static_cast<double>(g_live_bytes);
    nu_lc_unload(h);
    nu_setextfunc(nullptr, NU_EXT_MALLOC, nullptr);
    nu_setextfunc(nullptr, NU_EXT_FREE, nullptr);
}
BENCHMARK_CAPTURE(BM_NusLoad, de_de_8859_1, "de_de.8859-1")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_NusLoad, ja_jp_sjis, "ja_jp.sjis")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_NusLoad, en_us_utf8, "en_us.utf8")->Unit(benchmark::kMicrosecond);

// Loading a locale again while a handle of it stays loaded (a second session): the
// categories are shared with that handle. "bytes per handle" counts what each further handle
// holds of its own.
void BM_NusLoadAgain(benchmark::State &state, const char *spec) {
    setenv("TESSARONDIR", NUS_DATA_DIR, 1);
    unsetenv("NU_PATH");
    nu_locale_t first = nullptr;
    if (nu_lc_load(&first, spec, nullptr, nullptr) != 0) {
        state.SkipWithError("load failed: is the data tree built?");
        nu_lc_unload(first);
        return;
    }
    for (auto _ : state) {
        nu_locale_t h = nullptr;
        if (nu_lc_load(&h, spec, nullptr, nullptr) != 0) {
            state.SkipWithError("second load failed");
            nu_lc_unload(h);
            break;
        }
        nu_lc_unload(h);
    }
    nu_setextfunc(nullptr, NU_EXT_MALLOC, reinterpret_cast<nu_extfunc>(&counting_malloc));
    nu_setextfunc(nullptr, NU_EXT_FREE, reinterpret_cast<nu_extfunc>(&counting_free));
    // The first handle's tables came from the standard allocator: a handle whose allocator
    // differs reads its own, so the counting one loads twice and measures the second.
    nu_locale_t counted = nullptr, again = nullptr;
    if (nu_lc_load(&counted, spec, nullptr, nullptr) == 0) {
        const long long one = g_live_bytes;
        if (nu_lc_load(&again, spec, nullptr, nullptr) == 0) {
            state.counters["bytes held"] = static_cast<double>(one);
            state.counters["bytes per handle"] = static_cast<double>(g_live_bytes - one);
        }
    }
    nu_lc_unload(again);
    nu_lc_unload(counted);
    nu_setextfunc(nullptr, NU_EXT_MALLOC, nullptr);
    nu_setextfunc(nullptr, NU_EXT_FREE, nullptr);
    nu_lc_unload(first);
}
BENCHMARK_CAPTURE(BM_NusLoadAgain, de_de_8859_1, "de_de.8859-1")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_NusLoadAgain, ja_jp_sjis, "ja_jp.sjis")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_NusLoadAgain, en_us_utf8, "en_us.utf8")->Unit(benchmark::kMicrosecond);

// The same with the code-set registry cached, the process-wide setup a server makes once
// (nu_cache_registry): the locale name's mapping to a file then reads no registry file.
void BM_NusLoadAgainRegistryCached(benchmark::State &state, const char *spec) {
    setenv("TESSARONDIR", NUS_DATA_DIR, 1);
    unsetenv("NU_PATH");
    int32_t scratch = 0;
    nu_cache_registry(&scratch, nullptr);
    nu_locale_t first = nullptr;
    if (nu_lc_load(&first, spec, nullptr, nullptr) != 0) {
        state.SkipWithError("load failed: is the data tree built?");
    } else {
        for (auto _ : state) {
            nu_locale_t h = nullptr;
            if (nu_lc_load(&h, spec, nullptr, nullptr) != 0) {
                state.SkipWithError("second load failed");
                nu_lc_unload(h);
                break;
            }
            nu_lc_unload(h);
        }
    }
    nu_lc_unload(first);
    nu_free_registry_cache();
}
BENCHMARK_CAPTURE(BM_NusLoadAgainRegistryCached, en_us_utf8, "en_us.utf8")->Unit(benchmark::kMicrosecond);

void BM_GlibcNewlocale(benchmark::State &state, const char *name) {
    for (auto _ : state) {
        locale_t l = newlocale(LC_ALL_MASK, name, static_cast<locale_t>(0));
        if (l == static_cast<locale_t>(0)) {
            state.SkipWithError("glibc locale not available (see make bench)");
            break;
        }
        freelocale(l);
    }
}
BENCHMARK_CAPTURE(BM_GlibcNewlocale, de_DE_ISO_8859_1, "de_DE.ISO-8859-1")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_GlibcNewlocale, ja_JP_SHIFT_JIS, "ja_JP.SHIFT_JIS")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_GlibcNewlocale, en_US_UTF_8, "en_US.UTF-8")->Unit(benchmark::kMicrosecond);

} // namespace
