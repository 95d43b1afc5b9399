// The time targets' TIME record: every string, count and number of the record taken from the
// fuzzer's bytes (names, formats that refer to each other, eras with any dates, alternative
// digits, the calendar), with wide twins and the parser's caches made as the category's
// reader makes them, put into a loaded locale for one input and taken out again.
#pragma once

#include "frame/handle.h"
#include "time/category.h"
#include "fuzz/fuzz.h"

#include <algorithm>

namespace nus_fuzz {

class FuzzTime {
public:
    FuzzTime(nu_locale_t h, Input &in) : h_(h), saved_(h->time) {
        nus::TimeFields &t = h->time;
        t = nus::TimeFields{};
        t.date_time_format = text(in);
        for (int i = 0; i < 7; ++i) t.abday[i] = text(in), t.day[i] = text(in);
        t.month_count = in.range(0, nus::kMonthSlots + 2);
        t.alt_month_count = in.range(0, nus::kMonthSlots + 2);
        for (int i = 0; i < nus::kMonthSlots; ++i) {
            t.mon[i] = text(in);
            t.abmon[i] = text(in);
            t.alt_mon[i] = text(in);
            t.ab_alt_mon[i] = text(in);
        }
        for (nus::CatString *s : {&t.date_format, &t.time_format, &t.time_format_ampm, &t.am,
                                  &t.pm, &t.date_cmd_format, &t.era_date_time_format,
                                  &t.era_date_format, &t.era_time_format, &t.era_year})
            *s = text(in);
        t.era_count = in.range(0, 4);
        t.eras = static_cast<nus::EraSegment *>(_nu_alloc_ptr(sizeof(nus::EraSegment) * 5));
        for (int i = 0; i < t.era_count; ++i) {
            nus::EraSegment &e = t.eras[i];
            e.direction = in.flag() ? 1 : -1;
            e.offset = static_cast<int32_t>(in.u32());
            for (int32_t *v : {&e.start_year, &e.start_month, &e.start_day, &e.end_year,
                               &e.end_month, &e.end_day})
                *v = in.flag() ? static_cast<int32_t>(in.u32()) : in.range(-20, 2100);
            e.name = text(in);
            e.format = text(in);
        }
        t.alt_digit_count = in.range(0, 12);
        t.alt_digits = static_cast<nus::CatString *>(_nu_alloc_ptr(sizeof(nus::CatString) * 13));
        for (int i = 0; i < t.alt_digit_count; ++i) t.alt_digits[i] = text(in);
        t.calendar = in.range(0, 4);
        t.week_start = static_cast<int32_t>(in.u32());
        t.first_weekday = in.range(0, 8);
        t.week_min_days = in.range(0, 8);
        auto cache = [&](int kind, const nus::CatString &s, uint32_t value) {
            _nu_cache_wc_string(h_, &t.wc_cache[kind], reinterpret_cast<const unsigned char *>(s.mb),
                                value);
        };
        for (int i = 0; i < nus::kMonthSlots; ++i) {
            cache(nus::kCacheMonths, t.mon[i], 0 << 8 | i);
            cache(nus::kCacheMonths, t.abmon[i], 1 << 8 | i);
        }
        for (int i = 0; i < 7; ++i) cache(nus::kCacheDays, t.day[i], i);
        for (int i = 0; i < t.era_count; ++i) cache(nus::kCacheEras, t.eras[i].name, i);
        cache(nus::kCacheAmPm, t.am, 0);
        cache(nus::kCacheAmPm, t.pm, 1);
        for (int i = 0; i < t.alt_digit_count; ++i) cache(nus::kCacheDigits, t.alt_digits[i], i);
    }
    ~FuzzTime() {
        nus::TimeFields &t = h_->time;
        for (int i = 0; i < nus::kTimeCaches; ++i) _nu_free_wc_cache(h_, t.wc_cache[i]);
        for (void *p : owned_) _nu_free_ptr(p);
        _nu_free_ptr(t.eras);
        _nu_free_ptr(t.alt_digits);
        nus::release_time_derived(t.era_cache);
        t = saved_;
    }
    FuzzTime(const FuzzTime &) = delete;
    FuzzTime &operator=(const FuzzTime &) = delete;

private:
    // A short piece of the input, often a conversion, as a string of the locale's code set
    // (dropped to the empty string when it does not decode, as the reader would refuse it).
    nus::CatString text(Input &in) {
        std::string s = in.byte() % 4 == 0 ? std::string("%") + static_cast<char>(in.byte())
                                            : in.bytes(in.range(0, 6));
        s.erase(std::find(s.begin(), s.end(), '\0'), s.end());
        auto *mb = static_cast<char *>(_nu_alloc_ptr(s.size() + 4));
        auto *w = static_cast<nu_wchar *>(_nu_alloc_ptr(sizeof(nu_wchar) * (s.size() + 1)));
        std::memcpy(mb, s.data(), s.size());
        std::memset(mb + s.size(), 0, 4);
        const auto *p = reinterpret_cast<const unsigned char *>(mb);
        const int n = nu_mb_loc_max(h_) == 1 ? _nu_is_mbstowcs(h_, w, p, int(s.size()) + 1)
                                             : _nu_im_mbstowcs(h_, w, p, int(s.size()) + 1);
        const bool decodes = n >= 0 && (nu_mb_loc_max(h_) == 1 || _nu_im_mbslen(h_, p) >= 0);
        if (!decodes) mb[0] = 0, w[0] = 0;
        else w[n > int(s.size()) ? int(s.size()) : n] = 0;
        owned_.push_back(mb);
        owned_.push_back(w);
        return {mb, w};
    }

    nu_locale_t h_;
    nus::TimeFields saved_;
    std::vector<void *> owned_;
};

// A time value: sometimes a valid date and time, sometimes any words.
inline nu_time_rec time_value(Input &in) {
    nu_time_rec t{};
    if (in.flag()) {
        int32_t *w = &t.fraction;
        for (int i = 0; i < 13; ++i) w[i] = static_cast<int32_t>(in.u32());
        return t;
    }
    t.year = in.range(1, 9999) - 1900;
    t.month = t.month_name = in.range(0, 11);
    t.mday = in.range(1, 28);
    t.hour = in.range(0, 23);
    t.minute = in.range(0, 59);
    t.second = in.range(0, 60);
    t.fraction = in.range(0, 999999);
    t.yday = _nu_gregorian_yearday(t.mday, t.month, t.year + 1900);
    t.wday = _nu_gregorian_weekday(t.mday, t.month, t.year + 1900);
    return t;
}

inline const char *const kTimeLocales[] = {"en_us.utf8", "ja_jp.sjis", "de_de.8859-1",
                                           "zh_tw.big5"};

} // namespace nus_fuzz
