// String operations beside glibc on the same text and locale: display width of UTF-8 text,
// character and substring search and the length without trailing blanks of Shift-JIS text.
//
// Shift-JIS cannot be searched bytewise: the second byte of a two-byte character may be the
// code of an ASCII character (ソ is 83 5C, and 5C is the backslash). strchr and strstr are the
// speed reference only; the text below is built so that their answers coincide with the
// character-aware ones (the sought characters appear once, at the end).
#include "bench/bench_load.h"
#include "nus.h"

#include <benchmark/benchmark.h>

#include <climits>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr size_t kSize = size_t{1} << 20;

// 1 MiB of Shift-JIS: ASCII letters and digits, ソ (whose trail byte is a backslash), other
// kanji and half-width katakana, ending in "@@" and a run of blanks.
const std::string &sjis_text() {
    static const std::string text = [] {
        std::string t;
        std::mt19937 rng(7);
        while (t.size() < kSize) {
            switch (rng() % 4) {
            case 0: t += static_cast<char>('a' + rng() % 26); break;
            case 1: t += "\x83\x5c"; break;
            case 2:
                t += static_cast<char>(0x88 + rng() % 8);
                t += static_cast<char>(0x9F + rng() % 90);
                break;
            default: t += static_cast<char>(0xB1 + rng() % 40); break;
            }
        }
        t += "@@       ";
        return t;
    }();
    return text;
}

// 1 MiB of UTF-8: ASCII and CJK ideographs (two columns each).
const std::string &utf8_text() {
    static const std::string text = [] {
        std::string t;
        std::mt19937 rng(11);
        while (t.size() < kSize) {
            if (rng() % 2 == 0) {
                t += static_cast<char>('a' + rng() % 26);
            } else {
                const unsigned cp = 0x4E00 + rng() % 0x5000;
                t += static_cast<char>(0xE0 | (cp >> 12));
                t += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
                t += static_cast<char>(0x80 | (cp & 0x3F));
            }
        }
        return t;
    }();
    return text;
}

const unsigned char *u(const std::string &s) {
    return reinterpret_cast<const unsigned char *>(s.c_str());
}

void bytes_per_second(benchmark::State &state, size_t bytes) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

void BM_NusMbswidth(benchmark::State &state) {
    nu_locale_t h = bench_load("en_us.utf8");
    if (h == nullptr) return state.SkipWithError("en_us.utf8 not in the data tree");
    const std::string &text = utf8_text();
    int width = 0;
    for (auto _ : state) benchmark::DoNotOptimize(width = nu_mbswidth(h, u(text), INT_MAX));
    state.counters["width"] = width;
    bytes_per_second(state, text.size());
    nu_lc_unload(h);
}
BENCHMARK(BM_NusMbswidth);

void BM_GlibcMbstowcsWcswidth(benchmark::State &state) {
    if (std::setlocale(LC_CTYPE, "en_US.UTF-8") == nullptr)
        return state.SkipWithError("glibc locale en_US.UTF-8 not available (see make bench)");
    const std::string &text = utf8_text();
    std::vector<wchar_t> wide(text.size() + 1);
    int width = 0;
    for (auto _ : state) {
        const size_t n = std::mbstowcs(wide.data(), text.c_str(), wide.size());
        benchmark::DoNotOptimize(width = wcswidth(wide.data(), n));
    }
    std::setlocale(LC_CTYPE, "C");
    state.counters["width"] = width;
    bytes_per_second(state, text.size());
}
BENCHMARK(BM_GlibcMbstowcsWcswidth);

void BM_NusMbschr(benchmark::State &state) {
    nu_locale_t h = bench_load("ja_jp.sjis");
    if (h == nullptr) return state.SkipWithError("ja_jp.sjis not in the data tree");
    const std::string &text = sjis_text();
    for (auto _ : state) benchmark::DoNotOptimize(nu_full_mbschr(h, u(text), u(std::string("@"))));
    bytes_per_second(state, text.size());
    nu_lc_unload(h);
}
BENCHMARK(BM_NusMbschr);

void BM_GlibcStrchr(benchmark::State &state) {
    const std::string &text = sjis_text();
    for (auto _ : state) benchmark::DoNotOptimize(std::strchr(text.c_str(), '@'));
    bytes_per_second(state, text.size());
}
BENCHMARK(BM_GlibcStrchr);

void BM_NusMbsmbs(benchmark::State &state) {
    nu_locale_t h = bench_load("ja_jp.sjis");
    if (h == nullptr) return state.SkipWithError("ja_jp.sjis not in the data tree");
    const std::string &text = sjis_text();
    for (auto _ : state) benchmark::DoNotOptimize(nu_full_mbsmbs(h, u(text), u(std::string("@@"))));
    bytes_per_second(state, text.size());
    nu_lc_unload(h);
}
BENCHMARK(BM_NusMbsmbs);

void BM_GlibcStrstr(benchmark::State &state) {
    const std::string &text = sjis_text();
    for (auto _ : state) benchmark::DoNotOptimize(std::strstr(text.c_str(), "@@"));
    bytes_per_second(state, text.size());
}
BENCHMARK(BM_GlibcStrstr);

void BM_NusMbsntslen(benchmark::State &state) {
    nu_locale_t h = bench_load("ja_jp.sjis");
    if (h == nullptr) return state.SkipWithError("ja_jp.sjis not in the data tree");
    const std::string &text = sjis_text();
    int length = 0;
    for (auto _ : state) benchmark::DoNotOptimize(length = nu_mbsntslen(h, u(text)));
    state.counters["chars"] = length;
    bytes_per_second(state, text.size());
    nu_lc_unload(h);
}
BENCHMARK(BM_NusMbsntslen);

// The same count through glibc: mbrtowc, iswblank and iswcntrl per character.
void BM_GlibcMbrtowcBlanks(benchmark::State &state) {
    if (std::setlocale(LC_CTYPE, "ja_JP.SHIFT_JIS") == nullptr)
        return state.SkipWithError("glibc locale ja_JP.SHIFT_JIS not available (see make bench)");
    const std::string &text = sjis_text();
    long length = 0;
    for (auto _ : state) {
        long count = 0, pending = 0;
        std::mbstate_t st{};
        const char *p = text.c_str();
        const char *end = p + text.size();
        while (p < end) {
            wchar_t wc;
            const size_t n = std::mbrtowc(&wc, p, static_cast<size_t>(end - p), &st);
            if (n == 0 || n > 4) break;
            if (std::iswblank(static_cast<wint_t>(wc)) && !std::iswcntrl(static_cast<wint_t>(wc))) {
                ++pending;
            } else {
                count += 1 + pending;
                pending = 0;
            }
            p += n;
        }
        benchmark::DoNotOptimize(length = count);
    }
    std::setlocale(LC_CTYPE, "C");
    state.counters["chars"] = static_cast<double>(length);
    bytes_per_second(state, text.size());
}
BENCHMARK(BM_GlibcMbrtowcBlanks);

} // namespace
