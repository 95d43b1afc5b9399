// Dates and times beside glibc and ICU: the locale's date and time ("%c"), its date and its
// time ("%x %X"), and in ja_jp.utf8 the era year ("%EC%Ey"), each formatted and then parsed
// back, in de_de.utf8, ja_jp.utf8 and en_us.8859-1. glibc runs strftime_l/strptime_l in its
// locale compiled from the same Debian source (LOCPATH, make bench); ICU formats and parses
// with a date format of the locale (medium date and time for "%c", short for "%x %X", the
// pattern "Gy" of the Japanese calendar for the era year).
#include "bench/bench_load.h"
#include "nus.h"

#include <benchmark/benchmark.h>
#include <unicode/udat.h>
#include <unicode/ustring.h>

#include <cstring>
#include <locale.h>
#include <random>
#include <string>
#include <time.h>
#include <vector>

namespace {

struct Case {
    const char *ours;      // our locale
    const char *glibc;     // the glibc locale
    const char *icu;       // the ICU locale
    const char *format;    // ours and glibc's
    UDateFormatStyle date_style, time_style;
    const char *icu_pattern;   // instead of the styles, when set
};

const Case kCases[] = {
    {"de_de.utf8", "de_DE.UTF-8", "de_DE", "%c", UDAT_MEDIUM, UDAT_MEDIUM, nullptr},
    {"de_de.utf8", "de_DE.UTF-8", "de_DE", "%x %X", UDAT_SHORT, UDAT_SHORT, nullptr},
    {"ja_jp.utf8", "ja_JP.UTF-8", "ja_JP", "%c", UDAT_MEDIUM, UDAT_MEDIUM, nullptr},
    {"ja_jp.utf8", "ja_JP.UTF-8", "ja_JP", "%x %X", UDAT_SHORT, UDAT_SHORT, nullptr},
    {"ja_jp.utf8", "ja_JP.UTF-8", "ja_JP@calendar=japanese", "%EC%Ey", UDAT_PATTERN,
     UDAT_PATTERN, "Gy"},
    {"en_us.8859-1", "en_US.ISO-8859-1", "en_US", "%c", UDAT_MEDIUM, UDAT_MEDIUM, nullptr},
    {"en_us.8859-1", "en_US.ISO-8859-1", "en_US", "%x %X", UDAT_SHORT, UDAT_SHORT, nullptr},
};

// 1024 times between 1990 and 2030, fixed by the seed.
const std::vector<nu_time_rec> &times() {
    static const std::vector<nu_time_rec> v = [] {
        std::vector<nu_time_rec> out;
        std::mt19937 rng(9);
        for (int i = 0; i < 1024; ++i) {
            nu_time_rec t{};
            t.year = 90 + static_cast<int>(rng() % 40);
            t.month = t.month_name = static_cast<int>(rng() % 12);
            t.mday = 1 + static_cast<int>(rng() % 28);
            t.hour = static_cast<int>(rng() % 24);
            t.minute = static_cast<int>(rng() % 60);
            t.second = static_cast<int>(rng() % 60);
            t.yday = _nu_gregorian_yearday(t.mday, t.month, t.year + 1900);
            t.wday = _nu_gregorian_weekday(t.mday, t.month, t.year + 1900);
            out.push_back(t);
        }
        return out;
    }();
    return v;
}

struct tm to_tm(const nu_time_rec &t) {
    struct tm r {};
    r.tm_sec = t.second;
    r.tm_min = t.minute;
    r.tm_hour = t.hour;
    r.tm_mday = t.mday;
    r.tm_mon = t.month;
    r.tm_year = t.year;
    r.tm_wday = t.wday;
    r.tm_yday = t.yday;
    r.tm_isdst = -1;
    return r;
}

UDate to_udate(const nu_time_rec &t) {
    const long long days = [&] {
        const long long y = t.year + 1900 - (t.month < 2 ? 1 : 0);
        const long long era = y / 400, yoe = y - era * 400;
        const long long doy = (153 * ((t.month + 10) % 12) + 2) / 5 + t.mday - 1;
        return era * 146097 + yoe * 365 + yoe / 4 - yoe / 100 + doy - 719468;
    }();
    return static_cast<UDate>((days * 86400 + t.hour * 3600 + t.minute * 60 + t.second) * 1000.0);
}

locale_t glibc(const Case &c) { return newlocale(LC_ALL_MASK, c.glibc, static_cast<locale_t>(nullptr)); }

// Our locale, loaded once for the whole run.
nu_locale_t ours(const Case &c) {
    static nu_locale_t loaded[3] = {};
    const int i = std::strcmp(c.ours, "de_de.utf8") == 0 ? 0 : std::strcmp(c.ours, "ja_jp.utf8") == 0 ? 1 : 2;
    if (loaded[i] == nullptr) loaded[i] = bench_load(c.ours);
    return loaded[i];
}

UDateFormat *icu(const Case &c) {
    UErrorCode status = U_ZERO_ERROR;
    UChar tz[4];
    u_uastrcpy(tz, "UTC");
    UChar pattern[16] = {};
    if (c.icu_pattern != nullptr) u_uastrcpy(pattern, c.icu_pattern);
    UDateFormat *f = udat_open(c.time_style, c.date_style, c.icu, tz, 3,
                               c.icu_pattern != nullptr ? pattern : nullptr,
                               c.icu_pattern != nullptr ? -1 : 0, &status);
    return U_FAILURE(status) ? nullptr : f;
}

// Our texts of the case's format, to parse.
std::vector<std::string> our_texts(nu_locale_t h, const Case &c) {
    std::vector<std::string> out;
    for (const nu_time_rec &t : times()) {
        char text[128];
        const int n = nu_mbsftime(h, text, sizeof text, c.format, &t);
        out.emplace_back(n < 0 ? "" : std::string(text, n));
    }
    return out;
}

bool has_names(nu_locale_t h) {
    char out[64];
    const nu_time_rec t = times()[0];
    return h != nullptr && nu_mbsftime(h, out, sizeof out, "%A", &t) > 0;
}

void nus_format(benchmark::State &state, const Case *c) {
    nu_locale_t h = ours(*c);
    if (!has_names(h)) return state.SkipWithError("no TIME category in the data tree");
    char out[128];
    size_t i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(nu_mbsftime(h, out, sizeof out, c->format, &times()[i++ & 1023]));
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

void glibc_format(benchmark::State &state, const Case *c) {
    locale_t g = glibc(*c);
    if (g == nullptr) return state.SkipWithError("glibc locale missing: make bench");
    std::vector<struct tm> tms;
    for (const nu_time_rec &t : times()) tms.push_back(to_tm(t));
    char out[128];
    size_t i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(strftime_l(out, sizeof out, c->format, &tms[i++ & 1023], g));
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
    freelocale(g);
}

void icu_format(benchmark::State &state, const Case *c) {
    UDateFormat *f = icu(*c);
    if (f == nullptr) return state.SkipWithError("ICU date format not opened");
    std::vector<UDate> dates;
    for (const nu_time_rec &t : times()) dates.push_back(to_udate(t));
    UChar out[128];
    size_t i = 0;
    for (auto _ : state) {
        UErrorCode status = U_ZERO_ERROR;
        benchmark::DoNotOptimize(udat_format(f, dates[i++ & 1023], out, 128, nullptr, &status));
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
    udat_close(f);
}

void nus_parse(benchmark::State &state, const Case *c) {
    nu_locale_t h = ours(*c);
    if (!has_names(h)) return state.SkipWithError("no TIME category in the data tree");
    const std::vector<std::string> texts = our_texts(h, *c);
    nu_time_rec t{};
    size_t i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(nu_mbsptime(h, texts[i++ & 1023].c_str(), c->format, &t));
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

void glibc_parse(benchmark::State &state, const Case *c) {
    locale_t g = glibc(*c);
    if (g == nullptr) return state.SkipWithError("glibc locale missing: make bench");
    std::vector<std::string> texts;
    for (const nu_time_rec &t : times()) {
        char out[128];
        const struct tm tm = to_tm(t);
        texts.emplace_back(out, strftime_l(out, sizeof out, c->format, &tm, g));
    }
    struct tm tm {};
    size_t i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(strptime_l(texts[i++ & 1023].c_str(), c->format, &tm, g));
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
    freelocale(g);
}

void icu_parse(benchmark::State &state, const Case *c) {
    UDateFormat *f = icu(*c);
    if (f == nullptr) return state.SkipWithError("ICU date format not opened");
    std::vector<std::vector<UChar>> texts;
    for (const nu_time_rec &t : times()) {
        UChar out[128];
        UErrorCode status = U_ZERO_ERROR;
        const int n = udat_format(f, to_udate(t), out, 128, nullptr, &status);
        texts.emplace_back(out, out + (n > 0 ? n : 0));
    }
    size_t i = 0;
    for (auto _ : state) {
        const std::vector<UChar> &text = texts[i++ & 1023];
        UErrorCode status = U_ZERO_ERROR;
        int32_t pos = 0;
        benchmark::DoNotOptimize(udat_parse(f, text.data(), static_cast<int32_t>(text.size()), &pos, &status));
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
    udat_close(f);
}

// Names such as "time/format/nus/de_de.utf8/%c".
[[maybe_unused]] const bool registered = [] {
    for (const Case &c : kCases) {
        const std::string tail = std::string(c.ours) + "/" + c.format;
        benchmark::RegisterBenchmark(("time/format/nus/" + tail).c_str(), nus_format, &c);
        benchmark::RegisterBenchmark(("time/format/glibc/" + tail).c_str(), glibc_format, &c);
        benchmark::RegisterBenchmark(("time/format/icu/" + tail).c_str(), icu_format, &c);
        benchmark::RegisterBenchmark(("time/parse/nus/" + tail).c_str(), nus_parse, &c);
        benchmark::RegisterBenchmark(("time/parse/glibc/" + tail).c_str(), glibc_parse, &c);
        benchmark::RegisterBenchmark(("time/parse/icu/" + tail).c_str(), icu_parse, &c);
    }
    return true;
}();

} // namespace
