// Calendar conversions beside ICU: Gregorian dates to the Hebrew and the tabular Islamic
// calendar and back, 4096 dates of 1900 to 2100 in a fixed random order. ICU's side of
// "to the calendar" is ucal_setMillis and ucal_get of the fields ours computes (year,
// month, day, day of week, day of year); of "from the calendar", ucal_clear, ucal_set of
// year, month and day, ucal_getMillis, and the Gregorian fields from the day number.
#include "nus.h"

#include <benchmark/benchmark.h>
#include <unicode/ucal.h>

#include <cstdint>
#include <random>
#include <vector>

namespace {

constexpr size_t kDates = 4096;

int64_t days_from_epoch(int y, int m, int d) {
    const int64_t yy = m < 2 ? y - 1 : y;
    const int64_t era = (yy >= 0 ? yy : yy - 399) / 400;
    const int64_t yoe = yy - era * 400;
    const int64_t doy = (153 * ((m + 10) % 12) + 2) / 5 + d - 1;
    return era * 146097 + yoe * 365 + yoe / 4 - yoe / 100 + doy - 719468;
}

// The Gregorian fields of a day number, as the reverse conversions produce them.
nu_time_rec civil_from_days(int64_t z) {
    z += 719468;
    const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const int64_t doe = z - era * 146097;
    const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const int64_t mp = (5 * doy + 2) / 153;
    nu_time_rec r{};
    r.mday = static_cast<int32_t>(doy - (153 * mp + 2) / 5 + 1);
    r.month = static_cast<int32_t>(mp < 10 ? mp + 2 : mp - 10);
    const int64_t year = yoe + era * 400 + (r.month < 2 ? 1 : 0);
    r.year = static_cast<int32_t>(year - 1900);
    r.wday = static_cast<int32_t>(((z - 719468 + 4) % 7 + 7) % 7);
    r.yday = static_cast<int32_t>(z - 719468 - days_from_epoch(static_cast<int>(year), 0, 1));
    return r;
}

struct Dates {
    std::vector<nu_time_rec> gregorian, hebrew, islamic;
    std::vector<double> millis;
};

const Dates &dates() {
    static const Dates d = [] {
        Dates out;
        std::mt19937 rng(7);
        std::uniform_int_distribution<int64_t> day(days_from_epoch(1900, 0, 1), days_from_epoch(2100, 11, 31));
        for (size_t i = 0; i < kDates; ++i) {
            const int64_t z = day(rng);
            nu_time_rec g = civil_from_days(z), h{}, is{};
            nu_cal_gregorian_to_hebrew(&g, &h);
            nu_cal_gregorian_to_islamic(&g, &is);
            out.gregorian.push_back(g);
            out.hebrew.push_back(h);
            out.islamic.push_back(is);
            out.millis.push_back(static_cast<double>(z) * 86400000.0 + 43200000.0);
        }
        return out;
    }();
    return d;
}

UCalendar *open_calendar(const char *locale) {
    UErrorCode status = U_ZERO_ERROR;
    return ucal_open(u"UTC", -1, locale, UCAL_DEFAULT, &status);
}

void to_calendar_nus(benchmark::State &state, int (*convert)(const nu_time_rec *, nu_time_rec *)) {
    const auto &g = dates().gregorian;
    nu_time_rec out{};
    size_t i = 0;
    for (auto _ : state) {
        convert(&g[i], &out);
        benchmark::DoNotOptimize(out);
        i = (i + 1) % kDates;
    }
    state.SetItemsProcessed(state.iterations());
}

void to_calendar_icu(benchmark::State &state, const char *locale) {
    UCalendar *cal = open_calendar(locale);
    const auto &millis = dates().millis;
    size_t i = 0;
    for (auto _ : state) {
        UErrorCode status = U_ZERO_ERROR;
        ucal_setMillis(cal, millis[i], &status);
        benchmark::DoNotOptimize(ucal_get(cal, UCAL_EXTENDED_YEAR, &status));
        benchmark::DoNotOptimize(ucal_get(cal, UCAL_MONTH, &status));
        benchmark::DoNotOptimize(ucal_get(cal, UCAL_DATE, &status));
        benchmark::DoNotOptimize(ucal_get(cal, UCAL_DAY_OF_WEEK, &status));
        benchmark::DoNotOptimize(ucal_get(cal, UCAL_DAY_OF_YEAR, &status));
        i = (i + 1) % kDates;
    }
    state.SetItemsProcessed(state.iterations());
    ucal_close(cal);
}

void from_calendar_nus(benchmark::State &state, const std::vector<nu_time_rec> &local,
                       int (*convert)(const nu_time_rec *, nu_time_rec *)) {
    nu_time_rec out{};
    size_t i = 0;
    for (auto _ : state) {
        convert(&local[i], &out);
        benchmark::DoNotOptimize(out);
        i = (i + 1) % kDates;
    }
    state.SetItemsProcessed(state.iterations());
}

// ICU's month of a Hebrew month of ours: ICU keeps month 5 for Adar I, absent in common
// years.
int icu_month(const nu_time_rec &r, bool hebrew) {
    if (!hebrew) return r.month;
    const bool leap = (7 * (r.year + 1900) + 1) % 19 < 7;
    return leap || r.month < 5 ? r.month : r.month + 1;
}

void from_calendar_icu(benchmark::State &state, const std::vector<nu_time_rec> &local, const char *locale,
                       bool hebrew) {
    UCalendar *cal = open_calendar(locale);
    std::vector<int> months;
    for (const nu_time_rec &r : local) months.push_back(icu_month(r, hebrew));
    size_t i = 0;
    for (auto _ : state) {
        UErrorCode status = U_ZERO_ERROR;
        ucal_clear(cal);
        ucal_set(cal, UCAL_EXTENDED_YEAR, local[i].year + 1900);
        ucal_set(cal, UCAL_MONTH, months[i]);
        ucal_set(cal, UCAL_DATE, local[i].mday);
        const double ms = ucal_getMillis(cal, &status);
        nu_time_rec g = civil_from_days(static_cast<int64_t>(ms / 86400000.0));
        benchmark::DoNotOptimize(g);
        i = (i + 1) % kDates;
    }
    state.SetItemsProcessed(state.iterations());
    ucal_close(cal);
}

void BM_Cal_ToHebrew_Nus(benchmark::State &state) { to_calendar_nus(state, nu_cal_gregorian_to_hebrew); }
void BM_Cal_ToHebrew_Icu(benchmark::State &state) { to_calendar_icu(state, "en@calendar=hebrew"); }
void BM_Cal_FromHebrew_Nus(benchmark::State &state) {
    from_calendar_nus(state, dates().hebrew, nu_cal_hebrew_to_gregorian);
}
void BM_Cal_FromHebrew_Icu(benchmark::State &state) {
    from_calendar_icu(state, dates().hebrew, "en@calendar=hebrew", true);
}
void BM_Cal_ToIslamic_Nus(benchmark::State &state) { to_calendar_nus(state, nu_cal_gregorian_to_islamic); }
void BM_Cal_ToIslamic_Icu(benchmark::State &state) { to_calendar_icu(state, "en@calendar=islamic-tbla"); }
void BM_Cal_FromIslamic_Nus(benchmark::State &state) {
    from_calendar_nus(state, dates().islamic, nu_cal_islamic_to_gregorian);
}
void BM_Cal_FromIslamic_Icu(benchmark::State &state) {
    from_calendar_icu(state, dates().islamic, "en@calendar=islamic-tbla", false);
}

BENCHMARK(BM_Cal_ToHebrew_Nus);
BENCHMARK(BM_Cal_ToHebrew_Icu);
BENCHMARK(BM_Cal_FromHebrew_Nus);
BENCHMARK(BM_Cal_FromHebrew_Icu);
BENCHMARK(BM_Cal_ToIslamic_Nus);
BENCHMARK(BM_Cal_ToIslamic_Icu);
BENCHMARK(BM_Cal_FromIslamic_Nus);
BENCHMARK(BM_Cal_FromIslamic_Icu);

} // namespace
