// A handle's TIME record filled from a glibc locale of the same code set (names, formats,
// eras, alternative digits, week, the parser's caches), as the category reader fills it; the
// handle's own record comes back at the end of the scope. For the time tests, and for the
// benchmarks while a data tree has no TIME sections. Only exported functions are used.
#pragma once

#include "frame/handle.h"
#include "time/category.h"

#include "nus.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <langinfo.h>
#include <locale.h>
#include <string>
#include <vector>

namespace nus_test {

// The number of alternative digits a source defines (glibc's item holds no count).
inline int source_alt_digits(const std::string &source) {
    std::ifstream in("/usr/share/i18n/locales/" + source);
    std::string line;
    bool inside = false;
    int count = 0;
    while (std::getline(in, line)) {
        if (!inside && line.rfind("alt_digits", 0) != 0) continue;
        inside = true;
        for (char c : line) count += c == '"';
        if (line.empty() || line.back() != '/') break;
    }
    return std::min(count / 2, 100);
}

// Fills the TIME record of a handle (whose CTYPE is loaded) from a glibc locale of the same
// code set, with wide twins and the parser's caches, as the category reader does; restores
// the handle's own record at the end of the scope.
class TimeFill {
public:
    TimeFill(nu_locale_t h, locale_t g, const std::string &source) : h_(h), saved_(h->time) {
        nus::TimeFields &t = h->time;
        t = nus::TimeFields{};
        auto item = [&](nl_item i) { return std::string(nl_langinfo_l(i, g)); };
        t.date_time_format = str(item(D_T_FMT));
        for (int i = 0; i < 7; ++i) {
            t.abday[i] = str(item(ABDAY_1 + i));
            t.day[i] = str(item(DAY_1 + i));
        }
        t.month_count = 12;
        t.alt_month_count = 12;
        for (int i = 0; i < 12; ++i) {
            t.mon[i] = str(item(MON_1 + i));
            t.abmon[i] = str(item(ABMON_1 + i));
            t.alt_mon[i] = str(item(ALTMON_1 + i));
            t.ab_alt_mon[i] = str(item(_NL_ABALTMON_1 + i));
        }
        for (int i = 12; i < nus::kMonthSlots; ++i)
            t.mon[i] = t.abmon[i] = t.alt_mon[i] = t.ab_alt_mon[i] = str("");
        t.date_format = str(item(D_FMT));
        t.time_format = str(item(T_FMT));
        t.time_format_ampm = str(item(T_FMT_AMPM));
        t.am = str(item(AM_STR));
        t.pm = str(item(PM_STR));
        t.date_cmd_format = str(item(_DATE_FMT));
        t.era_date_time_format = str(item(ERA_D_T_FMT));
        t.era_date_format = str(item(ERA_D_FMT));
        t.era_time_format = str(item(ERA_T_FMT));
        t.era_year = str("");
        const int eras = static_cast<int>(reinterpret_cast<intptr_t>(
            nl_langinfo_l(_NL_TIME_ERA_NUM_ENTRIES, g)));
        t.eras = static_cast<nus::EraSegment *>(_nu_alloc_ptr(sizeof(nus::EraSegment) * (eras + 1)));
        const char *e = nl_langinfo_l(ERA, g);
        for (int i = 0; i < eras; ++i, e += std::strlen(e) + 1) era(t.eras[t.era_count++], e);
        const int digits = source_alt_digits(source);
        t.alt_digits = static_cast<nus::CatString *>(_nu_alloc_ptr(sizeof(nus::CatString) * 101));
        const char *d = nl_langinfo_l(ALT_DIGITS, g);
        for (int i = 0; i < digits; ++i, d += std::strlen(d) + 1) t.alt_digits[t.alt_digit_count++] = str(d);
        t.calendar = 1;
        t.week_days = static_cast<int>(reinterpret_cast<intptr_t>(nl_langinfo_l(_NL_TIME_WEEK_NDAYS, g)));
        t.week_start = static_cast<int>(reinterpret_cast<intptr_t>(nl_langinfo_l(_NL_TIME_WEEK_1STDAY, g)));
        t.week_min_days = static_cast<int>(reinterpret_cast<intptr_t>(nl_langinfo_l(_NL_TIME_WEEK_1STWEEK, g)));
        t.first_weekday = static_cast<unsigned char>(*nl_langinfo_l(_NL_TIME_FIRST_WEEKDAY, g));
        build_caches();
    }
    ~TimeFill() {
        nus::TimeFields &t = h_->time;
        for (int i = 0; i < nus::kTimeCaches; ++i) _nu_free_wc_cache(h_, t.wc_cache[i]);
        for (void *p : owned_) _nu_free_ptr(p);
        _nu_free_ptr(t.eras);
        _nu_free_ptr(t.alt_digits);
        nus::release_time_derived(t.era_cache);
        t = saved_;
    }
    TimeFill(const TimeFill &) = delete;
    TimeFill &operator=(const TimeFill &) = delete;

private:
    nus::CatString str(const std::string &s) {
        auto *mb = static_cast<char *>(_nu_alloc_ptr(s.size() + 4));
        std::memcpy(mb, s.c_str(), s.size());
        std::memset(mb + s.size(), 0, 4);
        auto *w = static_cast<nu_wchar *>(_nu_alloc_ptr(sizeof(nu_wchar) * (s.size() + 1)));
        const auto *in = reinterpret_cast<const unsigned char *>(mb);
        const int n = nu_mb_loc_max(h_) == 1 ? _nu_is_mbstowcs(h_, w, in, int(s.size()) + 1)
                                             : _nu_im_mbstowcs(h_, w, in, int(s.size()) + 1);
        w[n < 0 ? 0 : (n > int(s.size()) ? int(s.size()) : n)] = 0;
        owned_.push_back(mb);
        owned_.push_back(w);
        return {mb, w};
    }
    // "direction:offset:start:end:name:format", dates yyyy/mm/dd or -* / +*.
    void era(nus::EraSegment &seg, const char *text) {
        std::string s(text);
        std::vector<std::string> f;
        size_t at = 0;
        for (int i = 0; i < 5; ++i) {
            const size_t colon = s.find(':', at);
            f.push_back(s.substr(at, colon - at));
            at = colon + 1;
        }
        f.push_back(s.substr(at));
        seg.direction = f[0] == "-" ? -1 : 1;
        seg.offset = std::atoi(f[1].c_str());
        auto date = [](const std::string &d, int32_t &y, int32_t &m, int32_t &dd) {
            if (d == "-*" || d == "+*") {
                y = d[0] == '-' ? nus::kEraOpenBefore : nus::kEraOpenAfter;
                m = dd = 0;
                return;
            }
            std::sscanf(d.c_str(), "%d/%d/%d", &y, &m, &dd);
            if (y < 0) ++y;   // the record counts years astronomically: -1 (1 BC) is 0
        };
        date(f[2], seg.start_year, seg.start_month, seg.start_day);
        date(f[3], seg.end_year, seg.end_month, seg.end_day);
        seg.name = str(f[4]);
        seg.format = str(f[5]);
    }
    void build_caches() {
        nus::TimeFields &t = h_->time;
        auto add = [&](int kind, const nus::CatString &s, uint32_t value) {
            if (s.mb != nullptr && *s.mb != 0)
                _nu_cache_wc_string(h_, &t.wc_cache[kind],
                                    reinterpret_cast<const unsigned char *>(s.mb), value);
        };
        for (int i = 0; i < 12; ++i) {
            add(nus::kCacheMonths, t.mon[i], 0 << 8 | i);
            add(nus::kCacheMonths, t.abmon[i], 1 << 8 | i);
            add(nus::kCacheMonths, t.alt_mon[i], 2 << 8 | i);
            add(nus::kCacheMonths, t.ab_alt_mon[i], 3 << 8 | i);
        }
        for (int i = 0; i < 7; ++i) {
            add(nus::kCacheDays, t.day[i], 0 << 8 | i);
            add(nus::kCacheDays, t.abday[i], 1 << 8 | i);
        }
        for (int i = 0; i < t.era_count; ++i) add(nus::kCacheEras, t.eras[i].name, i);
        add(nus::kCacheAmPm, t.am, 0);
        add(nus::kCacheAmPm, t.pm, 1);
        for (int i = 0; i < t.alt_digit_count; ++i) add(nus::kCacheDigits, t.alt_digits[i], i);
    }

    nu_locale_t h_;
    nus::TimeFields saved_;
    std::vector<void *> owned_;
};

} // namespace nus_test
