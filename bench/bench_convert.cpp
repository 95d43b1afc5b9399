// Code-set conversion beside glibc's iconv and ICU's ucnv_convertEx on the same 16 MiB of
// text per pair: German word-list text (8859-1 <-> UTF-8), generated Japanese text
// (Shift-JIS <-> UTF-8, EUC-JP -> Shift-JIS) and generated Traditional Chinese text in the
// mixed single/double-byte EBCDIC code set 937 (-> UTF-8). Each run converts the whole text
// into a buffer large enough for it; MB/s counts input bytes. memcpy of the 8859-1 text is
// the reference for a conversion that mostly copies.
#include "nus.h"

#include <benchmark/benchmark.h>
#include <unicode/ucnv.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iconv.h>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr size_t kTextSize = size_t{16} << 20;

// Converts with an open descriptor; empty when the text does not convert.
std::string iconv_with(iconv_t cd, const std::string &in) {
    std::string out(in.size() * 4 + 16, '\0');
    char *src = const_cast<char *>(in.data());
    size_t src_left = in.size();
    char *dst = out.data();
    size_t dst_left = out.size();
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
    const size_t r = iconv(cd, &src, &src_left, &dst, &dst_left);
    iconv(cd, nullptr, nullptr, &dst, &dst_left);
    if (r == static_cast<size_t>(-1)) return {};
    out.resize(out.size() - dst_left);
    return out;
}

std::string iconv_text(const char *to, const char *from, const std::string &in) {
    iconv_t cd = iconv_open(to, from);
    if (cd == reinterpret_cast<iconv_t>(-1)) return {};
    std::string out = iconv_with(cd, in);
    iconv_close(cd);
    return out;
}

// Repeats `piece` up to the text size, cut at a line end.
std::string fill(const std::string &piece) {
    std::string text;
    text.reserve(kTextSize + piece.size());
    while (text.size() < kTextSize) text += piece;
    const size_t cut = text.rfind('\n', kTextSize);
    text.resize(cut == std::string::npos ? kTextSize : cut + 1);
    return text;
}

// German words, eight to a line, in UTF-8 (the words Latin-1 lacks left out).
const std::string &german_utf8() {
    static const std::string text = [] {
        std::ifstream in("/usr/share/dict/ngerman");
        std::string piece, word;
        int n = 0;
        iconv_t latin1 = iconv_open("ISO-8859-1", "UTF-8");
        while (std::getline(in, word)) {
            if (iconv_with(latin1, word).empty()) continue;
            piece += word;
            piece += ++n % 8 == 0 ? '\n' : ' ';
        }
        iconv_close(latin1);
        return fill(piece);
    }();
    return text;
}

// Japanese-looking EUC-JP text: runs of kana and level-1 kanji with ASCII words, digits and
// punctuation between them, about 70% of the characters Japanese.
const std::string &japanese_euc() {
    static const std::string text = [] {
        std::mt19937 rng(2024);
        std::string piece;
        while (piece.size() < (size_t{1} << 20)) {
            const unsigned kind = rng() % 10;
            if (kind < 7) {
                for (unsigned n = 2 + rng() % 10; n > 0; --n) {
                    const unsigned pick = rng() % 10;
                    unsigned row = pick < 4 ? 4 : pick < 5 ? 5 : 16 + rng() % 31;
                    unsigned col = row == 4 ? 1 + rng() % 83 : row == 5 ? 1 + rng() % 86 : 1 + rng() % 94;
                    piece += static_cast<char>(0xA0 + row);
                    piece += static_cast<char>(0xA0 + col);
                }
                if (rng() % 4 == 0) piece += "\xa1\xa3";   // the ideographic full stop
            } else if (kind < 9) {
                for (unsigned n = 2 + rng() % 7; n > 0; --n) piece += static_cast<char>('a' + rng() % 26);
                piece += ' ';
            } else {
                piece += std::to_string(rng() % 10000);
                piece += rng() % 3 == 0 ? "\n" : ", ";
            }
        }
        piece += '\n';
        return fill(piece);
    }();
    return text;
}

// Traditional Chinese in code set 937: Big5 level-1 hanzi (those 937 has) between ASCII words,
// shift-out and shift-in around each run.
const std::string &chinese_937() {
    static const std::string text = [] {
        std::mt19937 rng(937);
        std::string big5;
        iconv_t to937 = iconv_open("IBM937", "BIG5");
        while (big5.size() < (size_t{1} << 20)) {
            if (rng() % 10 < 7) {
                for (unsigned n = 2 + rng() % 10; n > 0; --n) {
                    const unsigned lead = 0xA4 + rng() % 0x22;
                    const unsigned trail = rng() % 2 == 0 ? 0x40 + rng() % 0x3F : 0xA1 + rng() % 0x5E;
                    const std::string c{static_cast<char>(lead), static_cast<char>(trail)};
                    if (!iconv_with(to937, c).empty()) big5 += c;
                }
            } else {
                for (unsigned n = 2 + rng() % 7; n > 0; --n) big5 += static_cast<char>('a' + rng() % 26);
                big5 += rng() % 4 == 0 ? '\n' : ' ';
            }
        }
        big5 += '\n';
        iconv_close(to937);
        return fill(iconv_text("IBM937", "BIG5", big5));
    }();
    return text;
}

struct Case {
    const char *from, *to;              // iconv names
    const char *nus_from, *nus_to;      // nus registry names
    const char *icu_from, *icu_to;      // ICU converter names
    const std::string &(*text)();
};

const std::string &latin1_text() {
    static const std::string t = iconv_text("ISO-8859-1", "UTF-8", german_utf8());
    return t;
}
const std::string &sjis_text() {
    static const std::string t = iconv_text("SHIFT_JIS", "EUC-JP", japanese_euc());
    return t;
}
const std::string &japanese_utf8() {
    static const std::string t = iconv_text("UTF-8", "EUC-JP", japanese_euc());
    return t;
}

const Case kCases[] = {
    {"ISO-8859-1", "UTF-8", "8859-1", "utf8", "ISO-8859-1", "UTF-8", latin1_text},
    {"UTF-8", "ISO-8859-1", "utf8", "8859-1", "UTF-8", "ISO-8859-1", german_utf8},
    {"SHIFT_JIS", "UTF-8", "sjis", "utf8", "Shift_JIS", "UTF-8", sjis_text},
    {"UTF-8", "SHIFT_JIS", "utf8", "sjis", "UTF-8", "Shift_JIS", japanese_utf8},
    {"EUC-JP", "SHIFT_JIS", "ujis", "sjis", "EUC-JP", "Shift_JIS", japanese_euc},
    {"IBM937", "UTF-8", "ccsid937", "utf8", "ibm-937", "UTF-8", chinese_937},
};

void finish(benchmark::State &state, size_t bytes, const std::string &out) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
    state.counters["out_bytes"] = static_cast<double>(out.size());
}

void BM_ConvertNus(benchmark::State &state, int which) {
    const Case &c = kCases[which];
    setenv("TESSARONDIR", NUS_DATA_DIR, 1);
    unsetenv("NU_PATH");
    nu_cv_t cv = nullptr;
    if (nu_iconv_open(&cv, c.nus_to, c.nus_from) != 0) {
        nu_cv_unload(cv);
        state.SkipWithError("no conversion object in the generated tree");
        return;
    }
    const std::string &in = c.text();
    std::string out(in.size() * 4, '\0');
    int written = 0;
    for (auto _ : state) {
        unsigned char *p = reinterpret_cast<unsigned char *>(const_cast<char *>(in.data()));
        unsigned char *o = reinterpret_cast<unsigned char *>(out.data());
        int length = static_cast<int>(in.size()), room = static_cast<int>(out.size()), irr;
        if (nu_miconv(cv, &p, &length, &o, &room, &irr) != 0) {
            state.SkipWithError("conversion failed");
            break;
        }
        written = static_cast<int>(out.size()) - room;
        benchmark::DoNotOptimize(out.data());
    }
    nu_cv_unload(cv);
    finish(state, in.size(), out.substr(0, static_cast<size_t>(written)));
}

void BM_ConvertGlibc(benchmark::State &state, int which) {
    const Case &c = kCases[which];
    iconv_t cd = iconv_open(c.to, c.from);
    const std::string &in = c.text();
    std::string out(in.size() * 4, '\0');
    size_t written = 0;
    for (auto _ : state) {
        iconv(cd, nullptr, nullptr, nullptr, nullptr);
        char *src = const_cast<char *>(in.data());
        size_t src_left = in.size();
        char *dst = out.data();
        size_t dst_left = out.size();
        if (iconv(cd, &src, &src_left, &dst, &dst_left) == static_cast<size_t>(-1)) {
            state.SkipWithError("iconv failed");
            break;
        }
        iconv(cd, nullptr, nullptr, &dst, &dst_left);
        written = out.size() - dst_left;
        benchmark::DoNotOptimize(out.data());
    }
    iconv_close(cd);
    finish(state, in.size(), out.substr(0, written));
}

void BM_ConvertIcu(benchmark::State &state, int which) {
    const Case &c = kCases[which];
    UErrorCode status = U_ZERO_ERROR;
    UConverter *from = ucnv_open(c.icu_from, &status);
    UConverter *to = ucnv_open(c.icu_to, &status);
    if (U_FAILURE(status)) {
        state.SkipWithError("ICU has no such converter");
        ucnv_close(from);
        ucnv_close(to);
        return;
    }
    const std::string &in = c.text();
    std::string out(in.size() * 4, '\0');
    std::vector<UChar> pivot(1 << 14);
    size_t written = 0;
    for (auto _ : state) {
        status = U_ZERO_ERROR;
        char *target = out.data();
        const char *source = in.data();
        UChar *pivot_source = pivot.data(), *pivot_target = pivot.data();
        ucnv_convertEx(to, from, &target, out.data() + out.size(), &source, in.data() + in.size(),
                       pivot.data(), &pivot_source, &pivot_target, pivot.data() + pivot.size(), true,
                       true, &status);
        if (U_FAILURE(status)) {
            state.SkipWithError("ucnv_convertEx failed");
            break;
        }
        written = static_cast<size_t>(target - out.data());
        benchmark::DoNotOptimize(out.data());
    }
    ucnv_close(from);
    ucnv_close(to);
    finish(state, in.size(), out.substr(0, written));
}

// The speed reference of a conversion that mostly copies: memcpy of the same 8859-1 text into
// a buffer of the same size as the converters'.
void BM_ConvertMemcpy(benchmark::State &state) {
    const std::string &in = latin1_text();
    std::string out(in.size() * 4, '\0');
    for (auto _ : state) {
        std::memcpy(out.data(), in.data(), in.size());
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * in.size()));
}
BENCHMARK(BM_ConvertMemcpy)->Name("BM_ConvertMemcpy/latin1")->Unit(benchmark::kMillisecond);

#define CONVERT_CASE(name, index)                                                            \
    BENCHMARK_CAPTURE(BM_ConvertNus, name, index)->Unit(benchmark::kMillisecond);           \
    BENCHMARK_CAPTURE(BM_ConvertGlibc, name, index)->Unit(benchmark::kMillisecond);         \
    BENCHMARK_CAPTURE(BM_ConvertIcu, name, index)->Unit(benchmark::kMillisecond)

CONVERT_CASE(latin1_to_utf8, 0);
CONVERT_CASE(utf8_to_latin1, 1);
CONVERT_CASE(sjis_to_utf8, 2);
CONVERT_CASE(utf8_to_sjis, 3);
CONVERT_CASE(ujis_to_sjis, 4);
CONVERT_CASE(ccsid937_to_utf8, 5);

} // namespace
