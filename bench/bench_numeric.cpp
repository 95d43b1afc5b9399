// Numbers and money beside glibc and ICU: a grouped double with two decimals, a grouped
// integer, text to double, and a national monetary amount, in de_de.8859-1 / de_DE (decimal
// comma, full-stop separator). glibc runs in its locale compiled from the same Debian source
// (LOCPATH, make bench); ICU with a de_DE number formatter that groups.
#include "bench/bench_load.h"
#include "nus.h"

#include <benchmark/benchmark.h>
#include <unicode/unum.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <locale.h>
#include <monetary.h>
#include <random>
#include <vector>

namespace {

struct Locales {
    nu_locale_t ours;
    locale_t glibc;
};

const Locales &german() {
    static Locales l{bench_load("de_de.8859-1"),
                     newlocale(LC_ALL_MASK, "de_DE.ISO-8859-1", static_cast<locale_t>(nullptr))};
    return l;
}

// 1024 values between -10^7 and 10^7 with cents, fixed by the seed.
const std::vector<double> &values() {
    static const std::vector<double> v = [] {
        std::vector<double> out;
        std::mt19937 rng(3);
        std::uniform_int_distribution<long> cents(-1000000000L, 1000000000L);
        for (int i = 0; i < 1024; ++i) out.push_back(static_cast<double>(cents(rng)) / 100.0);
        return out;
    }();
    return v;
}

const std::vector<int> &integers() {
    static const std::vector<int> v = [] {
        std::vector<int> out;
        std::mt19937 rng(5);
        std::uniform_int_distribution<int> any(-100000000, 100000000);
        for (int i = 0; i < 1024; ++i) out.push_back(any(rng));
        return out;
    }();
    return v;
}

void items(benchmark::State &state) { state.SetItemsProcessed(static_cast<int64_t>(state.iterations())); }

// Runs `work` on the values in turn, round and round.
template <typename Values, typename Work>
void over(benchmark::State &state, const Values &values, Work work) {
    size_t i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(work(values[i++ & 1023]));
}

#define NEED_OURS(l)                                                                         \
    if ((l).ours == nullptr) return state.SkipWithError("de_de.8859-1 not in the data tree")
#define NEED_GLIBC(l)                                                                        \
    if ((l).glibc == nullptr) return state.SkipWithError("glibc de_DE.ISO-8859-1 missing: make bench")

void BM_NusFnumGroupedDouble(benchmark::State &state) {
    const Locales &l = german();
    NEED_OURS(l);
    char out[64];
    over(state, values(), [&](const auto &v) { return nu_mbsfnum(l.ours, out, sizeof out, "%'.2f", v); });
    items(state);
}
BENCHMARK(BM_NusFnumGroupedDouble);

void BM_GlibcSnprintfGroupedDouble(benchmark::State &state) {
    const Locales &l = german();
    NEED_GLIBC(l);
    const locale_t old = uselocale(l.glibc);
    char out[64];
    over(state, values(), [&](const auto &v) { return std::snprintf(out, sizeof out, "%'.2f", v); });
    uselocale(old);
    items(state);
}
BENCHMARK(BM_GlibcSnprintfGroupedDouble);

UNumberFormat *icu_formatter() {
    static UNumberFormat *f = [] {
        UErrorCode status = U_ZERO_ERROR;
        UNumberFormat *nf = unum_open(UNUM_DECIMAL, nullptr, 0, "de_DE", nullptr, &status);
        unum_setAttribute(nf, UNUM_GROUPING_USED, 1);
        unum_setAttribute(nf, UNUM_MIN_FRACTION_DIGITS, 2);
        unum_setAttribute(nf, UNUM_MAX_FRACTION_DIGITS, 2);
        return U_SUCCESS(status) ? nf : nullptr;
    }();
    return f;
}

UNumberFormat *icu_integer_formatter() {
    static UNumberFormat *f = [] {
        UErrorCode status = U_ZERO_ERROR;
        UNumberFormat *nf = unum_open(UNUM_DECIMAL, nullptr, 0, "de_DE", nullptr, &status);
        unum_setAttribute(nf, UNUM_GROUPING_USED, 1);
        return U_SUCCESS(status) ? nf : nullptr;
    }();
    return f;
}

void BM_IcuFormatDoubleGrouped(benchmark::State &state) {
    UNumberFormat *nf = icu_formatter();
    if (nf == nullptr) return state.SkipWithError("no ICU formatter");
    UChar out[64];
    size_t i = 0;
    for (auto _ : state) {
        UErrorCode status = U_ZERO_ERROR;
        benchmark::DoNotOptimize(unum_formatDouble(nf, values()[i++ & 1023], out, 64, nullptr, &status));
    }
    items(state);
}
BENCHMARK(BM_IcuFormatDoubleGrouped);

void BM_NusFnumGroupedInt(benchmark::State &state) {
    const Locales &l = german();
    NEED_OURS(l);
    char out[64];
    over(state, integers(), [&](const auto &v) { return nu_mbsfnum(l.ours, out, sizeof out, "%'d", v); });
    items(state);
}
BENCHMARK(BM_NusFnumGroupedInt);

void BM_GlibcSnprintfGroupedInt(benchmark::State &state) {
    const Locales &l = german();
    NEED_GLIBC(l);
    const locale_t old = uselocale(l.glibc);
    char out[64];
    over(state, integers(), [&](const auto &v) { return std::snprintf(out, sizeof out, "%'d", v); });
    uselocale(old);
    items(state);
}
BENCHMARK(BM_GlibcSnprintfGroupedInt);

void BM_IcuFormatIntGrouped(benchmark::State &state) {
    UNumberFormat *nf = icu_integer_formatter();
    if (nf == nullptr) return state.SkipWithError("no ICU formatter");
    UChar out[64];
    size_t i = 0;
    for (auto _ : state) {
        UErrorCode status = U_ZERO_ERROR;
        benchmark::DoNotOptimize(unum_format(nf, integers()[i++ & 1023], out, 64, nullptr, &status));
    }
    items(state);
}
BENCHMARK(BM_IcuFormatIntGrouped);

// The texts to convert: each value as "%.2f" writes it in the locale ("-1234,56").
struct Texts {
    std::vector<std::string> ours, glibc;
};

const Texts &texts() {
    static const Texts t = [] {
        Texts out;
        const Locales &l = german();
        for (double v : values()) {
            char buffer[64];
            if (l.ours != nullptr) {
                nu_mbsfnum(l.ours, buffer, sizeof buffer, "%.2f", v);
                out.ours.push_back(buffer);
            }
            if (l.glibc != nullptr) {
                const locale_t old = uselocale(l.glibc);
                std::snprintf(buffer, sizeof buffer, "%.2f", v);
                uselocale(old);
                out.glibc.push_back(buffer);
            }
        }
        return out;
    }();
    return t;
}

void BM_NusMbstod(benchmark::State &state) {
    const Locales &l = german();
    NEED_OURS(l);
    const auto &t = texts().ours;
    size_t i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(nu_mbstod(l.ours, t[i++ & 1023].c_str(), nullptr, 0));
    items(state);
}
BENCHMARK(BM_NusMbstod);

void BM_GlibcStrtodL(benchmark::State &state) {
    const Locales &l = german();
    NEED_GLIBC(l);
    const auto &t = texts().glibc;
    size_t i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(strtod_l(t[i++ & 1023].c_str(), nullptr, l.glibc));
    items(state);
}
BENCHMARK(BM_GlibcStrtodL);

void BM_IcuParseDouble(benchmark::State &state) {
    UNumberFormat *nf = icu_formatter();
    if (nf == nullptr) return state.SkipWithError("no ICU formatter");
    std::vector<std::u16string> t;
    for (const std::string &s : texts().glibc) t.emplace_back(s.begin(), s.end());
    if (t.empty()) return state.SkipWithError("no texts");
    size_t i = 0;
    for (auto _ : state) {
        UErrorCode status = U_ZERO_ERROR;
        const std::u16string &s = t[i++ & 1023];
        benchmark::DoNotOptimize(unum_parseDouble(nf, s.c_str(), static_cast<int32_t>(s.size()), nullptr, &status));
    }
    items(state);
}
BENCHMARK(BM_IcuParseDouble);

void BM_NusFmonNational(benchmark::State &state) {
    const Locales &l = german();
    NEED_OURS(l);
    char out[64];
    over(state, values(), [&](const auto &v) { return nu_mbsfmon(l.ours, out, sizeof out, "%n", v); });
    items(state);
}
BENCHMARK(BM_NusFmonNational);

void BM_GlibcStrfmonL(benchmark::State &state) {
    const Locales &l = german();
    NEED_GLIBC(l);
    char out[64];
    over(state, values(), [&](const auto &v) { return strfmon_l(out, sizeof out, l.glibc, "%n", v); });
    items(state);
}
BENCHMARK(BM_GlibcStrfmonL);

UNumberFormat *icu_currency() {
    static UNumberFormat *f = [] {
        UErrorCode status = U_ZERO_ERROR;
        UNumberFormat *nf = unum_open(UNUM_CURRENCY, nullptr, 0, "de_DE", nullptr, &status);
        return U_SUCCESS(status) ? nf : nullptr;
    }();
    return f;
}

void BM_IcuFormatCurrency(benchmark::State &state) {
    UNumberFormat *nf = icu_currency();
    if (nf == nullptr) return state.SkipWithError("no ICU currency formatter");
    UChar out[64];
    size_t i = 0;
    for (auto _ : state) {
        UErrorCode status = U_ZERO_ERROR;
        benchmark::DoNotOptimize(unum_formatDouble(nf, values()[i++ & 1023], out, 64, nullptr, &status));
    }
    items(state);
}
BENCHMARK(BM_IcuFormatCurrency);

} // namespace
