// Decoding a two-byte code set character by character through the multi-level byte table,
// beside glibc's mbrtowc and ICU's converters on the same text.
//
// The table is built like the decoding table of an EUC code set: ASCII as one byte, lead
// bytes A1-FE followed by trail bytes A1-FE as two, with a 2-byte descriptor per character,
// compressed. The text is 1 MiB of ASCII mixed with two-byte characters from rows B0-CE,
// which every EUC-JP decoder accepts.
#include "nus.h"
#include "bench/euc_text.h"

#include <benchmark/benchmark.h>
#include <unicode/ucnv.h>

#include <clocale>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <memory>
#include <random>
#include <vector>

namespace {

using nus_bench::kTextSize;

const nus_bench::EucText &text() { return nus_bench::euc_text(); }

struct FreeTable {
    void operator()(multi_t *t) const { _nu_free_multi(t); }
};

const multi_t *euc_table() {
    static const std::unique_ptr<multi_t, FreeTable> table = [] {
        const uint16_t zero = 0;
        std::unique_ptr<multi_t, FreeTable> t(_nu_create_multi(2, 0, &zero));
        multi_key key{};
        key.length = 1;
        for (unsigned b = 0; b < 0x80; ++b) {
            key.bytes[0] = static_cast<unsigned char>(b);
            const uint16_t value = static_cast<uint16_t>(b);
            _nu_insert_desc_multi(&key, &value, t.get());
        }
        key.length = 2;
        for (unsigned lead = 0xA1; lead <= 0xFE; ++lead) {
            for (unsigned trail = 0xA1; trail <= 0xFE; ++trail) {
                key.bytes[0] = static_cast<unsigned char>(lead);
                key.bytes[1] = static_cast<unsigned char>(trail);
                const uint16_t value = static_cast<uint16_t>(lead << 8 | trail);
                _nu_insert_desc_multi(&key, &value, t.get());
            }
        }
        _nu_compress_multi(t.get());
        return t;
    }();
    return table.get();
}

void report(benchmark::State &state, int64_t chars_per_pass) {
    state.counters["chars/s"] = benchmark::Counter(static_cast<double>(chars_per_pass) *
                                                       static_cast<double>(state.iterations()),
                                                   benchmark::Counter::kIsRate);
    state.SetBytesProcessed(static_cast<int64_t>(kTextSize) * state.iterations());
}

void BM_NusRetrieveLimit(benchmark::State &state) {
    const multi_t *table = euc_table();
    const unsigned char *begin = text().bytes.data();
    const unsigned char *end = begin + kTextSize;
    int64_t chars = 0;
    for (auto _ : state) {
        int32_t err = 0;
        uint32_t sum = 0;
        chars = 0;
        for (const unsigned char *p = begin; p < end; ++chars) {
            int length;
            const void *d =
                _nu_retrieve_text_multi_limit(p, table, static_cast<int>(end - p), &length, &err);
            if (d == nullptr) break;
            uint16_t v;
            std::memcpy(&v, d, sizeof v);
            sum += v;
            p += length;
        }
        benchmark::DoNotOptimize(sum);
    }
    if (chars != text().chars) state.SkipWithError("character count differs");
    report(state, text().chars);
}
BENCHMARK(BM_NusRetrieveLimit);

void BM_NusRetrieveLength(benchmark::State &state) {
    const multi_t *table = euc_table();
    const unsigned char *begin = text().bytes.data();
    const unsigned char *end = begin + kTextSize;
    int64_t chars = 0;
    for (auto _ : state) {
        int32_t err = 0;
        chars = 0;
        for (const unsigned char *p = begin; p < end; ++chars) {
            const int length = _nu_retrieve_text_multi_nv(table, p, &err);
            if (length == 0) break;
            p += length;
        }
        benchmark::DoNotOptimize(chars);
    }
    if (chars != text().chars) state.SkipWithError("character count differs");
    report(state, text().chars);
}
BENCHMARK(BM_NusRetrieveLength);

void BM_GlibcMbrtowc(benchmark::State &state) {
    if (std::setlocale(LC_CTYPE, "ja_JP.EUC-JP") == nullptr) {
        state.SkipWithError("locale ja_JP.EUC-JP not available: generate it with localedef -i "
                            "ja_JP -f EUC-JP (system-wide, or into a directory named by LOCPATH)");
        return;
    }
    const char *begin = reinterpret_cast<const char *>(text().bytes.data());
    const char *end = begin + kTextSize;
    int64_t chars = 0;
    for (auto _ : state) {
        std::mbstate_t st{};
        uint32_t sum = 0;
        chars = 0;
        for (const char *p = begin; p < end; ++chars) {
            wchar_t wc;
            const size_t n = std::mbrtowc(&wc, p, static_cast<size_t>(end - p), &st);
            if (n == static_cast<size_t>(-1) || n == static_cast<size_t>(-2) || n == 0) break;
            sum += static_cast<uint32_t>(wc);
            p += n;
        }
        benchmark::DoNotOptimize(sum);
    }
    std::setlocale(LC_CTYPE, "C");
    if (chars != text().chars) state.SkipWithError("character count differs");
    report(state, text().chars);
}
BENCHMARK(BM_GlibcMbrtowc);

struct CloseConverter {
    void operator()(UConverter *c) const { ucnv_close(c); }
};

void BM_IcuToUChars(benchmark::State &state) {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<UConverter, CloseConverter> cnv(ucnv_open("EUC-JP", &status));
    if (U_FAILURE(status)) {
        state.SkipWithError("no EUC-JP converter");
        return;
    }
    std::vector<UChar> out(kTextSize + 1);
    const char *src = reinterpret_cast<const char *>(text().bytes.data());
    int32_t units = 0;
    for (auto _ : state) {
        status = U_ZERO_ERROR;
        units = ucnv_toUChars(cnv.get(), out.data(), static_cast<int32_t>(out.size()), src,
                              static_cast<int32_t>(kTextSize), &status);
        benchmark::DoNotOptimize(out.data());
    }
    // Every character of the text is in the basic plane: one unit each.
    if (U_FAILURE(status) || units != text().chars) state.SkipWithError("conversion differs");
    report(state, text().chars);
}
BENCHMARK(BM_IcuToUChars);

void BM_IcuGetNextUChar(benchmark::State &state) {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<UConverter, CloseConverter> cnv(ucnv_open("EUC-JP", &status));
    if (U_FAILURE(status)) {
        state.SkipWithError("no EUC-JP converter");
        return;
    }
    const char *begin = reinterpret_cast<const char *>(text().bytes.data());
    const char *end = begin + kTextSize;
    int64_t chars = 0;
    for (auto _ : state) {
        ucnv_reset(cnv.get());
        status = U_ZERO_ERROR;
        uint32_t sum = 0;
        chars = 0;
        for (const char *p = begin; p < end && U_SUCCESS(status); ++chars) {
            sum += static_cast<uint32_t>(ucnv_getNextUChar(cnv.get(), &p, end, &status));
        }
        benchmark::DoNotOptimize(sum);
    }
    if (U_FAILURE(status) || chars != text().chars) state.SkipWithError("conversion differs");
    report(state, text().chars);
}
BENCHMARK(BM_IcuGetNextUChar);

} // namespace
