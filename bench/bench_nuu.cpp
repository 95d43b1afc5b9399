// Companion mode beside ICU called directly: comparisons and sort keys of German words in
// de_de.utf8 through the library's entry points (the companion's collator: one indirect call
// into ICU's comparison) and through ICU's own calls on the same collator's locale.
#include "nus.h"

#include <benchmark/benchmark.h>
#include <unicode/ucol.h>
#include <unicode/ustring.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

const std::vector<std::string> &words() {
    static const std::vector<std::string> w = [] {
        std::vector<std::string> out;
        std::ifstream in("/usr/share/dict/ngerman");
        for (std::string line; std::getline(in, line);)
            if (!line.empty()) out.push_back(line);
        std::mt19937 rng(42);
        std::shuffle(out.begin(), out.end(), rng);
        if (out.size() > 100000) out.resize(100000);
        return out;
    }();
    return w;
}

const unsigned char *u(const std::string &s) {
    return reinterpret_cast<const unsigned char *>(s.c_str());
}

// de_de.utf8 served by the companion of this tree: its dllregistry and locmap are written to a
// directory of their own, searched first; the variables are put back once it is loaded, so
// that the other benchmarks' loads stay table-driven.
nu_locale_t companion_handle() {
    static nu_locale_t h = [] {
        char dir[] = "/tmp/nus-bench-nuu-XXXXXX";
        if (mkdtemp(dir) == nullptr) return static_cast<nu_locale_t>(nullptr);
        const std::string d = dir;
        std::ofstream(d + "/dllregistry") << "64 " << NUS_COMPANION << "\n";
        std::ofstream(d + "/locmap") << "de_de/e01c.lco de_DE\n";
        const std::string data = NUS_DATA_DIR;
        setenv("NU_PATH", (d + ":" + data + "/nus/lc11:" + data + "/nus/cm3").c_str(), 1);
        setenv("NU_USENUU", "1", 1);
        nu_locale_t loaded = nullptr;
        const int r = nu_lc_load(&loaded, "de_de.utf8", nullptr, nullptr);
        unsetenv("NU_USENUU");
        unsetenv("NU_PATH");
        std::remove((d + "/dllregistry").c_str());
        std::remove((d + "/locmap").c_str());
        rmdir(dir);
        if (r != 0 || nu_nuu_locale(loaded, NU_COLLATE) == nullptr) {
            nu_lc_unload(loaded);
            return static_cast<nu_locale_t>(nullptr);
        }
        return loaded;
    }();
    return h;
}

UCollator *icu_german() {
    static UCollator *c = [] {
        UErrorCode status = U_ZERO_ERROR;
        UCollator *col = ucol_open("de_DE", &status);
        return U_SUCCESS(status) ? col : nullptr;
    }();
    return c;
}

bool ready(benchmark::State &state) {
    if (companion_handle() == nullptr || icu_german() == nullptr || words().empty()) {
        state.SkipWithError("companion, data tree or word list missing");
        return false;
    }
    return true;
}

template <typename Compare> void neighbours(benchmark::State &state, Compare compare) {
    const std::vector<std::string> &w = words();
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(compare(w[i], w[i + 1]));
        if (++i + 1 >= w.size()) i = 0;
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_Nuu_Coll_Nus(benchmark::State &state) {
    if (!ready(state)) return;
    nu_locale_t h = companion_handle();
    neighbours(state, [h](const std::string &a, const std::string &b) {
        return nu_full_mbscoll(h, u(a), u(b));
    });
}
BENCHMARK(BM_Nuu_Coll_Nus);

void BM_Nuu_Coll_Icu(benchmark::State &state) {
    if (!ready(state)) return;
    UCollator *c = icu_german();
    neighbours(state, [c](const std::string &a, const std::string &b) {
        UErrorCode err = U_ZERO_ERROR;
        return ucol_strcollUTF8(c, a.c_str(), -1, b.c_str(), -1, &err);
    });
}
BENCHMARK(BM_Nuu_Coll_Icu);

template <typename Key> void keys(benchmark::State &state, Key key) {
    const std::vector<std::string> &w = words();
    unsigned char out[512];
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(key(w[i], out, static_cast<int>(sizeof out)));
        if (++i >= w.size()) i = 0;
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_Nuu_Key_Nus(benchmark::State &state) {
    if (!ready(state)) return;
    nu_locale_t h = companion_handle();
    keys(state, [h](const std::string &s, unsigned char *out, int n) {
        return nu_full_mbsxfrm(h, out, u(s), n);
    });
}
BENCHMARK(BM_Nuu_Key_Nus);

// ICU's key of UTF-8 text: to UTF-16 on the stack, then the key.
void BM_Nuu_Key_Icu(benchmark::State &state) {
    if (!ready(state)) return;
    UCollator *c = icu_german();
    keys(state, [c](const std::string &s, unsigned char *out, int n) {
        UChar text[512];
        int32_t length = 0;
        UErrorCode err = U_ZERO_ERROR;
        u_strFromUTF8WithSub(text, 512, &length, s.c_str(), -1, 0xFFFD, nullptr, &err);
        return ucol_getSortKey(c, text, length, out, n);
    });
}
BENCHMARK(BM_Nuu_Key_Icu);

} // namespace
