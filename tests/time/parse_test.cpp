// Round trips: nu_mbsptime of nu_mbsftime output gives the value back, for the locales'
// own formats (date and time, date, time, 12-hour time, the date command's format, the era
// formats), with names as written, in upper case and in lower case; glibc's strptime_l,
// where it parses the same text, finds the same fields; local calendars round-trip too.
#include "chars/chars.h"
#include "frame/handle.h"
#include "time/time_fixture.h"

#include <map>
#include <time.h>

namespace {

using namespace nus_test;

const char *const kSources[] = {
    "ja_JP", "th_TH", "zh_TW", "fa_IR", "my_MM", "ru_RU", "uk_UA", "pl_PL", "el_GR", "ar_SA",
    "he_IL", "hi_IN", "ko_KR", "es_ES", "de_DE", "en_US", "fr_FR", "it_IT", "pt_BR", "cs_CZ",
    "fi_FI", "hu_HU", "lt_LT", "vi_VN", "zh_CN", "lo_LA", "am_ET", "ka_GE", "ga_IE", "sw_KE",
};

enum Casing { kAsWritten, kUpper, kLower };

std::string format(nu_locale_t h, const std::string &f, const nu_time_rec &t) {
    char out[512];
    const int n = nu_mbsftime(h, out, sizeof out, f.c_str(), &t);
    return n < 0 ? "<error " + std::to_string(*_nu_ext_errno(h)) + ">" : std::string(out, n);
}

std::string recase(nu_locale_t h, const std::string &s, Casing c) {
    if (c == kAsWritten) return s;
    std::vector<unsigned char> out(static_cast<size_t>(nu_case_conv_outbuflen(h, int(s.size()))) + 8);
    const auto *in = reinterpret_cast<const unsigned char *>(s.c_str());
    const int n = c == kUpper ? nu_tombsupper(h, out.data(), in) : nu_tombslower(h, out.data(), in);
    if (n < 0) return s;
    std::string r(reinterpret_cast<char *>(out.data()), static_cast<size_t>(n));
    while (!r.empty() && r.back() == 0) r.pop_back();   // the count holds the terminator
    return r;
}

struct Tally {
    long trips = 0, failed = 0, glibc_agree = 0, glibc_differ = 0, interpreted = 0;
};

// A format longer than the library compiles is interpreted every time: behind this prefix,
// each format and text is read the other way, and must give what the compiled form gives (the
// formatter's text, for the text as written; the parser's value and stopping point, or its
// error, in every casing and also for a text with one character changed).
const std::string kLong(300, '#');

void same_as_interpreted(nu_locale_t h, const std::string &f, const nu_time_rec &t,
                         const std::string &text, Casing c, std::mt19937 &rng, Tally &tally) {
    ++tally.interpreted;
    const std::string long_f = kLong + f;
    std::string mutated = text;
    if (!mutated.empty()) mutated[rng() % mutated.size()] = "0 9:Xa-\xe5."[rng() % 9];
    std::string differs;
    if (c == kAsWritten && format(h, long_f, t) != kLong + text) differs = "formatted";
    for (const std::string &in : {text, mutated}) {
        nu_time_rec a{}, b{};
        const char *end = nu_mbsptime(h, in.c_str(), f.c_str(), &a);
        const int code = *_nu_ext_errno(h);
        const std::string long_in = kLong + in;
        const char *long_end = nu_mbsptime(h, long_in.c_str(), long_f.c_str(), &b);
        if (end == nullptr ? long_end != nullptr || *_nu_ext_errno(h) != code
                           : long_end == nullptr || long_end - long_in.c_str() != end - in.c_str() + 300 ||
                                 std::memcmp(&a, &b, sizeof a) != 0)
            differs = "parsed [" + in + "]: " + std::to_string(end == nullptr ? -code : 0) +
                      " against " + std::to_string(long_end == nullptr ? -*_nu_ext_errno(h) : 0);
    }
    if (!differs.empty() && ++tally.failed <= 20)
        ADD_FAILURE() << "[" << f << "] compiled and interpreted differ: " << differs;
}

// Every format of the locale over random dates: the text parsed back formats to itself.
void round_trips(nu_locale_t h, locale_t g, const std::string &name, Tally &tally) {
    const nus::TimeFields &tf = h->time;
    std::vector<std::string> formats = {"%c", "%x", "%X", "%Y-%m-%d %H:%M:%S.%f", "%A %d %B %Y",
                                        "%a %e %b %y %I%p", "%j %Y %T", "%Ob %OB %Y", "%s"};
    if (*tf.am.mb != 0 && *tf.pm.mb != 0) formats.push_back("%r");
    if (*tf.date_cmd_format.mb != 0) formats.push_back(tf.date_cmd_format.mb);
    if (tf.era_count > 0)
        for (const char *e : {"%Ec", "%Ex", "%EX", "%EC %Ey %m-%d", "%EY %b %d", "%Ey %m %d"}) formats.push_back(e);
    if (tf.alt_digit_count > 0) formats.push_back("%Od/%Om %OH:%OM:%OS");
    std::mt19937 rng(static_cast<unsigned>(std::hash<std::string>{}(name)));
    for (int i = 0; i < 120; ++i) {
        nu_time_rec t = random_time(rng);
        // Near today, where two-digit years are unambiguous (in a local calendar, within the
        // century its two-digit years belong to: Hebrew 57xx, Islamic 14xx).
        const bool local = h->time.calendar > 1;
        if (i % 2 == 0 || local) {
            const int y = local ? 1980 + static_cast<int>(rng() % 55) : 1969 + static_cast<int>(rng() % 100);
            t.year = y - 1900;
            t.mday = std::min(t.mday, month_days(y, t.month));
            t.wday = weekday(y, t.month, t.mday);
            t.yday = yearday(y, t.month, t.mday);
        }
        const int y = t.year + 1900;
        nu_time_rec cycle = t;   // 400 years on: the same days of week and year
        cycle.year += y + 400 <= 9999 ? 400 : -400;
        for (const std::string &f : formats) {
            // A format with two-digit years only (no era) names its century by the pivot.
            if ((y < 1969 || y > 2068) && format(h, f, t) == format(h, f, cycle)) continue;
            for (Casing c : {kAsWritten, kUpper, kLower}) {
                const std::string text = recase(h, format(h, f, t), c);
                same_as_interpreted(h, f, t, text, c, rng, tally);
                nu_time_rec back{};
                const char *end = nu_mbsptime(h, text.c_str(), f.c_str(), &back);
                ++tally.trips;
                const std::string again = end != nullptr ? recase(h, format(h, f, back), c) : "";
                if (end == nullptr || again != text || *end != 0) {
                    if (++tally.failed <= 20)
                        ADD_FAILURE() << name << " [" << f << "] casing " << c << ": [" << text
                                      << "] -> "
                                      << (end == nullptr ? "error " + std::to_string(*_nu_ext_errno(h))
                                                         : "[" + again + "]");
                    continue;
                }
                if (c != kAsWritten || f != "%c" || g == nullptr) continue;
                // glibc's strptime_l on the same text, where it parses it whole.
                struct tm tm {};
                const char *gend = strptime_l(text.c_str(), f.c_str(), &tm, g);
                if (gend == nullptr || *gend != 0) continue;
                const bool same = tm.tm_year == back.year && tm.tm_mon == back.month &&
                                  tm.tm_mday == back.mday && tm.tm_hour == back.hour &&
                                  tm.tm_min == back.minute && tm.tm_sec == back.second;
                if (same) ++tally.glibc_agree;
                else if (++tally.glibc_differ <= 10)
                    ADD_FAILURE() << name << " strptime_l [" << text << "] " << tm.tm_year << "/"
                                  << tm.tm_mon << "/" << tm.tm_mday << " ours " << ymd(back);
            }
        }
    }
}

TEST(TimeParse, RoundTripsInEveryLocale) {
    setenv("TZ", "UTC", 1);
    tzset();
    NUS_LOAD_OR_SKIP(h, "en_us.utf8");
    Tally tally;
    for (const char *source : kSources) {
        const locale_t g = glibc_locale(source, "UTF-8");
        if (g == nullptr) continue;
        {
            TimeFill fill(h, g, source);
            round_trips(h, g, source, tally);
        }
        freelocale(g);
    }
    // Every locale of the default set with its own TIME category (the Hebrew and Islamic
    // calendars too), glibc's strptime_l beside it where glibc has the locale.
    static const std::pair<const char *, const char *> kDefaultSet[] = {
        {"en_us.8859-1", "en_US.ISO-8859-1"}, {"de_de.8859-1", "de_DE.ISO-8859-1"},
        {"fr_fr.8859-1", "fr_FR.ISO-8859-1"}, {"es_es.8859-1", "es_ES.ISO-8859-1"},
        {"sv_se.8859-1", "sv_SE.ISO-8859-1"}, {"cs_cz.8859-2", "cs_CZ.ISO-8859-2"},
        {"ru_ru.8859-5", "ru_RU.ISO-8859-5"}, {"el_gr.8859-7", "el_GR.ISO-8859-7"},
        {"he_il.8859-8", "he_IL.ISO-8859-8"}, {"tr_tr.8859-9", "tr_TR.ISO-8859-9"},
        {"en_us.cp1252", "en_US.CP1252"},     {"ja_jp.sjis", "ja_JP.SHIFT_JIS"},
        {"ja_jp.ujis", "ja_JP.EUC-JP"},       {"ko_kr.euckr", "ko_KR.EUC-KR"},
        {"zh_cn.gb", "zh_CN.GB2312"},         {"zh_tw.big5", "zh_TW.BIG5"},
        {"th_th.tis620", "th_TH.TIS-620"},    {"en_us.utf8", "en_US.UTF-8"},
        {"de_de.utf8", "de_DE.UTF-8"},        {"fr_fr.utf8", "fr_FR.UTF-8"},
        {"es_es.utf8", "es_ES.UTF-8"},        {"sv_se.utf8", "sv_SE.UTF-8"},
        {"ja_jp.utf8", "ja_JP.UTF-8"},        {"ru_ru.utf8", "ru_RU.UTF-8"},
        {"uk_ua.utf8", "uk_UA.UTF-8"},        {"pl_pl.utf8", "pl_PL.UTF-8"},
        {"el_gr.utf8", "el_GR.UTF-8"},        {"ar_sa.utf8", "ar_SA.UTF-8"},
        {"he_il.utf8", "he_IL.UTF-8"},        {"hi_in.utf8", "hi_IN.UTF-8"},
        {"ko_kr.utf8", "ko_KR.UTF-8"},        {"zh_tw.utf8", "zh_TW.UTF-8"},
        {"th_th.utf8", "th_TH.UTF-8"},        {"fa_ir.utf8", "fa_IR.UTF-8"},
        {"my_mm.utf8", "my_MM.UTF-8"},        {"he_il.utf8@hebr", nullptr},
        {"ar_sa.utf8@isla", nullptr}};
    int own = 0;
    for (const auto &[ours, glibc] : kDefaultSet) {
        TestLocale l(ours);
        ASSERT_NE(l.h, nullptr) << ours;
        if (l.h->time.month_count == 0 || *l.h->time.mon[0].mb == 0) continue;   // no TIME yet
        locale_t g = nullptr;
        if (glibc != nullptr) {
            const std::string name(glibc);
            g = glibc_locale(name.substr(0, name.find('.')), name.substr(name.find('.') + 1));
        }
        round_trips(l, g, ours, tally);
        if (g != nullptr) freelocale(g);
        ++own;
    }
    std::printf("[ parse    ] %d locales of the default set with their own TIME\n", own);
    EXPECT_EQ(tally.failed, 0) << "of " << tally.trips;
    EXPECT_EQ(tally.glibc_differ, 0) << "agreeing " << tally.glibc_agree;
    EXPECT_GT(tally.glibc_agree, 1000);
    std::printf("[ parse    ] %ld round trips, %ld failed; strptime_l agrees %ld, differs %ld; "
                "%ld formats and texts also interpreted\n",
                tally.trips, tally.failed, tally.glibc_agree, tally.glibc_differ, tally.interpreted);
}

// A Hebrew and an Islamic calendar: the month's name by its name index, the local year and
// day, and back to the same Gregorian date.
TEST(TimeParse, LocalCalendarsRoundTrip) {
    NUS_LOAD_OR_SKIP(h, "en_us.utf8");
    const locale_t g = glibc_locale("en_US", "UTF-8");
    ASSERT_NE(g, nullptr);
    TimeFill fill(h, g, "en_US");
    nus::TimeFields &t = h.h->time;
    std::vector<std::string> names;
    for (int i = 0; i < 14; ++i) names.push_back("Month" + std::string(1, char('A' + i)));
    nus::CatString saved[14];
    for (int i = 0; i < 14; ++i) {
        saved[i] = t.mon[i];
        int count = 0;
        t.mon[i] = {const_cast<char *>(names[i].c_str()),
                    nu_mbstowcslen(h, reinterpret_cast<const unsigned char *>(names[i].c_str()),
                                   &count)};
    }
    t.month_count = 14;
    _nu_free_wc_cache(h, t.wc_cache[nus::kCacheMonths]);
    t.wc_cache[nus::kCacheMonths] = nullptr;
    for (int i = 0; i < 14; ++i)
        _nu_cache_wc_string(h, &t.wc_cache[nus::kCacheMonths],
                            reinterpret_cast<const unsigned char *>(names[i].c_str()), i);
    std::mt19937 rng(5);
    for (int calendar : {2, 3}) {
        t.calendar = calendar;
        for (int i = 0; i < 2000; ++i) {
            nu_time_rec greg = random_time(rng);
            if (calendar == 3 && greg.year < 700 - 1900) {   // before the Islamic epoch
                greg.year += 1000;
                const int y = greg.year + 1900;
                greg.mday = std::min(greg.mday, month_days(y, greg.month));
                greg.wday = weekday(y, greg.month, greg.mday);
                greg.yday = yearday(y, greg.month, greg.mday);
            }
            nu_time_rec local{};
            ASSERT_EQ(nu_cal_gregorian_to_local(h, &greg, &local), 0);
            const std::string text = format(h, "%d %B %Y %y %H:%M", greg);
            char expected[64];
            std::snprintf(expected, sizeof expected, "%02d %s %d %02d %02d:%02d", local.mday,
                          names[local.month_name].c_str(), local.year + 1900,
                          (local.year + 1900) % 100, greg.hour, greg.minute);
            ASSERT_EQ(text, expected);
            nu_time_rec full{};
            ASSERT_NE(nu_mbsptime(h, text.c_str(), "%d %B %Y", &full), nullptr) << text;
            EXPECT_EQ(ymd(full), ymd(greg)) << calendar << " " << text;
            EXPECT_EQ(full.wday, greg.wday);
            EXPECT_EQ(full.yday, greg.yday);
        }
        // Two-digit years belong to the calendar's century.
        EXPECT_EQ(nu_time_expand_year(h, 84), (calendar == 2 ? 5700 : 1400) + 84);
    }
    t.calendar = 1;
    for (int i = 0; i < 14; ++i) {
        _nu_free_ptr(t.mon[i].wide);
        t.mon[i] = saved[i];
    }
    freelocale(g);
}

} // namespace
