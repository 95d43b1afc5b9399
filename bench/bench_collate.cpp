// Collation beside glibc and ICU on the same words: comparisons, sort keys and sorting 100k
// German words, in de_de.8859-1 (the single-byte path) and de_de.utf8. glibc's locales are
// compiled from the same Debian sources as ours; ICU's German collator is a looser reference
// (its rules are CLDR's, not the Debian sources').
#include "bench/bench_load.h"
#include "nus.h"

#include <benchmark/benchmark.h>
#include <unicode/ucol.h>
#include <unicode/ustring.h>

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iconv.h>
#include <locale.h>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr size_t kWords = 100000;

std::string to_latin1(const std::string &utf8) {
    static iconv_t cd = iconv_open("ISO-8859-1", "UTF-8");
    std::string out(utf8.size() + 1, '\0');
    char *in = const_cast<char *>(utf8.data());
    size_t in_left = utf8.size(), out_left = out.size();
    char *o = out.data();
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
    if (iconv(cd, &in, &in_left, &o, &out_left) == static_cast<size_t>(-1)) return {};
    out.resize(out.size() - out_left);
    return out;
}

// 100k words of the German word list in a fixed random order: UTF-8 and their Latin-1 twins
// (the words Latin-1 cannot hold are left out of both).
struct Words {
    std::vector<std::string> utf8, latin1;
};

const Words &words() {
    static const Words w = [] {
        Words out;
        std::ifstream in("/usr/share/dict/ngerman");
        std::string line;
        while (std::getline(in, line)) {
            const std::string l1 = to_latin1(line);
            if (line.empty() || l1.empty()) continue;
            out.utf8.push_back(line);
            out.latin1.push_back(l1);
        }
        std::mt19937 rng(42);
        std::vector<size_t> order(out.utf8.size());
        for (size_t i = 0; i < order.size(); ++i) order[i] = i;
        std::shuffle(order.begin(), order.end(), rng);
        order.resize(std::min(order.size(), kWords));
        Words picked;
        for (size_t i : order) {
            picked.utf8.push_back(out.utf8[i]);
            picked.latin1.push_back(out.latin1[i]);
        }
        return picked;
    }();
    return w;
}

const std::vector<std::string> &text_of(bool utf8) { return utf8 ? words().utf8 : words().latin1; }

const unsigned char *u(const std::string &s) { return reinterpret_cast<const unsigned char *>(s.c_str()); }

struct Locales {
    nu_locale_t nus;
    locale_t glibc;
};

Locales locales(bool utf8) {
    static Locales latin1{bench_load("de_de.8859-1"), newlocale(LC_ALL_MASK, "de_DE.ISO-8859-1", nullptr)};
    static Locales unicode{bench_load("de_de.utf8"), newlocale(LC_ALL_MASK, "de_DE.UTF-8", nullptr)};
    return utf8 ? unicode : latin1;
}

UCollator *icu_german() {
    static UCollator *c = [] {
        UErrorCode status = U_ZERO_ERROR;
        UCollator *col = ucol_open("de", &status);
        return U_SUCCESS(status) ? col : nullptr;
    }();
    return c;
}

bool ready(benchmark::State &state, bool utf8, bool need_glibc) {
    const Locales l = locales(utf8);
    if (l.nus == nullptr || (need_glibc && l.glibc == nullptr) || words().utf8.empty()) {
        state.SkipWithError("locale or word list missing (run make bench)");
        return false;
    }
    return true;
}

// ---- comparisons of neighbouring words --------------------------------------------------

// Compares each word with the next one, round and round.
template <typename Compare>
void neighbours(benchmark::State &state, const std::vector<std::string> &w, Compare compare) {
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(compare(w[i], w[i + 1]));
        if (++i + 1 >= w.size()) i = 0;
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_Coll_Nus(benchmark::State &state) {
    const bool utf8 = state.range(0) != 0;
    if (!ready(state, utf8, false)) return;
    nu_locale_t h = locales(utf8).nus;
    neighbours(state, text_of(utf8), [h](const std::string &a, const std::string &b) {
        return nu_full_mbscoll(h, u(a), u(b));
    });
}
BENCHMARK(BM_Coll_Nus)->Arg(0)->Arg(1);

void BM_Coll_Nus_Counted(benchmark::State &state) {
    const bool utf8 = state.range(0) != 0;
    if (!ready(state, utf8, false)) return;
    nu_locale_t h = locales(utf8).nus;
    neighbours(state, text_of(utf8), [h](const std::string &a, const std::string &b) {
        return _tsn_nu_full_mbscoll(h, u(a), static_cast<int>(a.size()), u(b),
                                    static_cast<int>(b.size()));
    });
}
BENCHMARK(BM_Coll_Nus_Counted)->Arg(0)->Arg(1);

void BM_Coll_Glibc(benchmark::State &state) {
    const bool utf8 = state.range(0) != 0;
    if (!ready(state, utf8, true)) return;
    locale_t l = locales(utf8).glibc;
    neighbours(state, text_of(utf8), [l](const std::string &a, const std::string &b) {
        return strcoll_l(a.c_str(), b.c_str(), l);
    });
}
BENCHMARK(BM_Coll_Glibc)->Arg(0)->Arg(1);

void BM_Coll_Icu(benchmark::State &state) {
    UCollator *c = icu_german();
    if (c == nullptr || words().utf8.empty()) {
        state.SkipWithError("ICU collator or word list missing");
        return;
    }
    neighbours(state, words().utf8, [c](const std::string &a, const std::string &b) {
        UErrorCode status = U_ZERO_ERROR;
        return ucol_strcollUTF8(c, a.c_str(), -1, b.c_str(), -1, &status);
    });
}
BENCHMARK(BM_Coll_Icu);

// ---- sort keys -----------------------------------------------------------------------------

void BM_Xfrm_Nus(benchmark::State &state) {
    const bool utf8 = state.range(0) != 0;
    if (!ready(state, utf8, false)) return;
    nu_locale_t h = locales(utf8).nus;
    const auto &w = text_of(utf8);
    unsigned char key[1024];
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(nu_full_mbsxfrm(h, key, u(w[i]), sizeof key));
        if (++i >= w.size()) i = 0;
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Xfrm_Nus)->Arg(0)->Arg(1);

void BM_Xfrm_Glibc(benchmark::State &state) {
    const bool utf8 = state.range(0) != 0;
    if (!ready(state, utf8, true)) return;
    locale_t l = locales(utf8).glibc;
    const auto &w = text_of(utf8);
    char key[1024];
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(strxfrm_l(key, w[i].c_str(), sizeof key, l));
        if (++i >= w.size()) i = 0;
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Xfrm_Glibc)->Arg(0)->Arg(1);

void BM_Xfrm_Icu(benchmark::State &state) {
    UCollator *c = icu_german();
    const auto &w = words().utf8;
    if (c == nullptr || w.empty()) {
        state.SkipWithError("ICU collator or word list missing");
        return;
    }
    std::vector<std::u16string> w16;
    for (const std::string &s : w) {
        std::u16string t(s.size(), u'\0');
        int32_t n = 0;
        UErrorCode status = U_ZERO_ERROR;
        u_strFromUTF8(reinterpret_cast<UChar *>(t.data()), static_cast<int32_t>(t.size()), &n,
                      s.c_str(), -1, &status);
        t.resize(static_cast<size_t>(n));
        w16.push_back(t);
    }
    uint8_t key[1024];
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(ucol_getSortKey(c, reinterpret_cast<const UChar *>(w16[i].data()),
                                                 static_cast<int32_t>(w16[i].size()), key, sizeof key));
        if (++i >= w16.size()) i = 0;
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Xfrm_Icu);

// ---- sorting 100k words --------------------------------------------------------------------

template <typename Less>
void sort_words(benchmark::State &state, const std::vector<std::string> &w, Less less) {
    std::vector<const std::string *> v;
    for (auto _ : state) {
        state.PauseTiming();
        v.clear();
        for (const std::string &s : w) v.push_back(&s);
        state.ResumeTiming();
        std::sort(v.begin(), v.end(), less);
        benchmark::DoNotOptimize(v.data());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(w.size()));
}

void BM_SortByColl_Nus(benchmark::State &state) {
    const bool utf8 = state.range(0) != 0;
    if (!ready(state, utf8, false)) return;
    nu_locale_t h = locales(utf8).nus;
    sort_words(state, text_of(utf8), [h](const std::string *a, const std::string *b) {
        return nu_full_mbscoll(h, u(*a), u(*b)) < 0;
    });
}
BENCHMARK(BM_SortByColl_Nus)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_SortByColl_Glibc(benchmark::State &state) {
    const bool utf8 = state.range(0) != 0;
    if (!ready(state, utf8, true)) return;
    locale_t l = locales(utf8).glibc;
    sort_words(state, text_of(utf8), [l](const std::string *a, const std::string *b) {
        return strcoll_l(a->c_str(), b->c_str(), l) < 0;
    });
}
BENCHMARK(BM_SortByColl_Glibc)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_SortByColl_Icu(benchmark::State &state) {
    UCollator *c = icu_german();
    if (c == nullptr || words().utf8.empty()) {
        state.SkipWithError("ICU collator or word list missing");
        return;
    }
    sort_words(state, words().utf8, [c](const std::string *a, const std::string *b) {
        UErrorCode status = U_ZERO_ERROR;
        return ucol_strcollUTF8(c, a->c_str(), -1, b->c_str(), -1, &status) < 0;
    });
}
BENCHMARK(BM_SortByColl_Icu)->Unit(benchmark::kMillisecond);

// Keys once per word, then a byte sort of the keys.
template <typename MakeKey>
void sort_by_keys(benchmark::State &state, const std::vector<std::string> &w, MakeKey make_key) {
    std::vector<std::string> keys(w.size());
    for (auto _ : state) {
        for (size_t i = 0; i < w.size(); ++i) keys[i] = make_key(w[i]);
        std::vector<const std::string *> v;
        for (const std::string &k : keys) v.push_back(&k);
        std::sort(v.begin(), v.end(), [](const std::string *a, const std::string *b) { return *a < *b; });
        benchmark::DoNotOptimize(v.data());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(w.size()));
}

void BM_SortByKeys_Nus(benchmark::State &state) {
    const bool utf8 = state.range(0) != 0;
    if (!ready(state, utf8, false)) return;
    nu_locale_t h = locales(utf8).nus;
    sort_by_keys(state, text_of(utf8), [h](const std::string &s) {
        unsigned char key[1024];
        const int n = nu_full_mbsxfrm(h, key, u(s), sizeof key);
        return std::string(reinterpret_cast<char *>(key), n > 0 && n < 1024 ? n : 0);
    });
}
BENCHMARK(BM_SortByKeys_Nus)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_SortByKeys_Glibc(benchmark::State &state) {
    const bool utf8 = state.range(0) != 0;
    if (!ready(state, utf8, true)) return;
    locale_t l = locales(utf8).glibc;
    sort_by_keys(state, text_of(utf8), [l](const std::string &s) {
        char key[1024];
        const size_t n = strxfrm_l(key, s.c_str(), sizeof key, l);
        return std::string(key, n < 1024 ? n : 0);
    });
}
BENCHMARK(BM_SortByKeys_Glibc)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_SortByKeys_Icu(benchmark::State &state) {
    UCollator *c = icu_german();
    if (c == nullptr || words().utf8.empty()) {
        state.SkipWithError("ICU collator or word list missing");
        return;
    }
    sort_by_keys(state, words().utf8, [c](const std::string &s) {
        UChar text[512];
        int32_t n = 0;
        UErrorCode status = U_ZERO_ERROR;
        u_strFromUTF8(text, 512, &n, s.c_str(), -1, &status);
        uint8_t key[1024];
        const int32_t k = ucol_getSortKey(c, text, n, key, sizeof key);
        return std::string(reinterpret_cast<char *>(key), k > 0 && k < 1024 ? static_cast<size_t>(k) : 0);
    });
}
BENCHMARK(BM_SortByKeys_Icu)->Unit(benchmark::kMillisecond);

} // namespace

// ---- bounds of prefix searches ---------------------------------------------------------

namespace {

// The upper bound of a prefix, once the handle's code-set walk is cached (warm), and on a
// freshly loaded handle (cold: the first bound of a handle walks the whole code set).
void BM_Bound_Nus(benchmark::State &state) {
    const bool utf8 = state.range(0) != 0;
    const bool cold = state.range(1) != 0;
    if (!ready(state, utf8, false)) return;
    const char *spec = utf8 ? "de_de.utf8" : "de_de.8859-1";
    const auto &w = text_of(utf8);
    unsigned char out[256];
    nu_locale_t h = locales(utf8).nus;
    size_t i = 0;
    for (auto _ : state) {
        if (cold) {
            state.PauseTiming();
            h = bench_load(spec);
            state.ResumeTiming();
        }
        benchmark::DoNotOptimize(nu_mbsCollBound(h, u(w[i]), 1, out, sizeof out));
        if (cold) {
            state.PauseTiming();
            nu_lc_unload(h);
            state.ResumeTiming();
        }
        if (++i >= w.size()) i = 0;
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Bound_Nus)->Args({0, 0})->Args({1, 0})->Args({0, 1})->Args({1, 1})
    ->Unit(benchmark::kMicrosecond);

} // namespace
