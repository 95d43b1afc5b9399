// The formatter's and parser's failures (formats cut short, unknown conversions, malformed
// modifiers, fields out of range, each field the parser cannot find), output sizes from 0
// upward with nothing written past the size, the conversions of our own (%f, no zone), and
// the date information.
#include "chars/chars.h"
#include "time/category.h"
#include "time/timefmt.h"
#include "time/time_fixture.h"

namespace {

using namespace nus_test;

class TimeFormat : public ::testing::Test {
protected:
    void SetUp() override {
        for (const char *spec : {"en_us.utf8", "ja_jp.utf8", "ja_jp.sjis"}) {
            handles_.push_back(std::make_unique<TestLocale>(spec));
            if (handles_.back()->h == nullptr) GTEST_SKIP() << spec << " not available";
        }
        const std::pair<const char *, const char *> sources[] = {
            {"en_US", "UTF-8"}, {"ja_JP", "UTF-8"}, {"ja_JP", "SHIFT_JIS"}};
        for (size_t i = 0; i < 3; ++i) {
            glibc_.push_back(glibc_locale(sources[i].first, sources[i].second));
            ASSERT_NE(glibc_.back(), nullptr);
            fills_.push_back(std::make_unique<TimeFill>(handles_[i]->h, glibc_.back(),
                                                        sources[i].first));
        }
    }
    void TearDown() override {
        fills_.clear();
        for (locale_t g : glibc_) freelocale(g);
    }
    nu_locale_t en() { return handles_[0]->h; }
    nu_locale_t ja() { return handles_[1]->h; }
    nu_locale_t sjis() { return handles_[2]->h; }

    std::vector<std::unique_ptr<TestLocale>> handles_;
    std::vector<locale_t> glibc_;
    std::vector<std::unique_ptr<TimeFill>> fills_;
};

int format_error(nu_locale_t h, const char *f, const nu_time_rec &t) {
    char out[256];
    *_nu_ext_errno(h) = 0;
    const int n = nu_mbsftime(h, out, sizeof out, f, &t);
    // The wide form agrees.
    nu_wchar wf[64], wout[256];
    int k = 0;
    for (; f[k] != 0; ++k) wf[k] = static_cast<unsigned char>(f[k]);
    wf[k] = 0;
    const int code = *_nu_ext_errno(h);
    *_nu_ext_errno(h) = 0;
    const int wn = nu_wcsftime(h, wout, 256, wf, &t);
    EXPECT_EQ(n < 0, wn < 0) << f;
    EXPECT_EQ(*_nu_ext_errno(h), code) << f;
    return n < 0 ? code : 0;
}

TEST_F(TimeFormat, MalformedFormatsAndFieldsOutOfRange) {
    const nu_time_rec t = date(2024, 1, 29);
    nu_time_rec ok = t;
    ok.wday = weekday(2024, 1, 29);
    ok.yday = yearday(2024, 1, 29);
    for (const char *f : {"%", "abc%", "%_", "%-^#", "%5", "%E", "%O", "%_E", "%10O", "%.3"})
        EXPECT_EQ(format_error(en(), f, ok), NU_EBADFMT) << f;
    for (const char *f : {"%q", "%Q", "%i", "%J", "%K", "%L", "%N", "%o", "%v", "%=", "%Eq", "%5&"})
        EXPECT_EQ(format_error(en(), f, ok), NU_EFORMAT) << f;
    for (const char *f : {"%Ea", "%OA", "%Eb", "%Oc", "%Od%EH", "%OY", "%E%", "%OD", "%EF", "%Ef",
                          "%Of", "%.3d", "%+d", "%*d", "% d", "%'Y", "%.x", "%.0f", "%.10f"})
        EXPECT_EQ(format_error(en(), f, ok), NU_EMODIFIER) << f;
    struct Case {
        const char *format;
        int nu_time_rec::*field;
        int value;
        int code;
    };
    const Case cases[] = {
        {"%f", &nu_time_rec::fraction, 1000000, NU_EFRACTION},
        {"%.3f", &nu_time_rec::fraction, -1, NU_EFRACTION},
        {"%S", &nu_time_rec::second, 61, NU_ESECOND},
        {"%T", &nu_time_rec::minute, 60, NU_EMINUTE},
        {"%H", &nu_time_rec::hour, 24, NU_EHOUR},
        {"%p", &nu_time_rec::hour, -1, NU_EHOUR},
        {"%d", &nu_time_rec::mday, 0, NU_EMDAY},
        {"%e", &nu_time_rec::mday, 30, NU_EMDAY},   // 30 February
        {"%a", &nu_time_rec::wday, 7, NU_EWDAY},
        {"%u", &nu_time_rec::wday, -1, NU_EWDAY},
        {"%j", &nu_time_rec::yday, 366, NU_EYDAY},
        {"%U", &nu_time_rec::yday, -1, NU_EYDAY},
        {"%B", &nu_time_rec::month, 12, NU_EMONTH},
        {"%m", &nu_time_rec::month, -1, NU_EMONTH},
        {"%Y", &nu_time_rec::year, 10000 - 1900, NU_EYEAR},
        {"%c", &nu_time_rec::year, -1900, NU_EYEAR},
    };
    for (const Case &c : cases) {
        nu_time_rec bad = ok;
        bad.*(c.field) = c.value;
        EXPECT_EQ(format_error(en(), c.format, bad), c.code) << c.format << " " << c.value;
        // A field no conversion reads is not looked at.
        EXPECT_EQ(format_error(en(), "%%", bad), 0) << c.format;
    }
}

TEST_F(TimeFormat, SizesFromZeroUpwardNeverWritePastTheSize) {
    std::mt19937 rng(11);
    for (nu_locale_t h : {en(), ja(), sjis()}) {
        for (const char *f : {"%c", "%Ec", "%EC%Ey", "%A %B %Oy", "x%%y", ""}) {
            const nu_time_rec t = random_time(rng);
            const int needed = nu_mbsftime(h, nullptr, 0, f, &t);
            char full[256];
            ASSERT_EQ(nu_mbsftime(h, full, sizeof full, f, &t), needed) << f;
            char none[4] = {'x'};
            EXPECT_EQ(nu_mbsftime(h, none, 0, f, &t), needed);
            EXPECT_EQ(none[0], 'x');   // size 0 only measures
            for (int size = 1; size <= needed + 2; ++size) {
                std::vector<char> out(static_cast<size_t>(size) + 8, '\x7f');
                *_nu_ext_errno(h) = 0;
                const int n = nu_mbsftime(h, out.data(), size, f, &t);
                for (size_t i = static_cast<size_t>(size); i < out.size(); ++i)
                    ASSERT_EQ(out[i], '\x7f') << f << " size " << size;
                if (size > needed) {
                    EXPECT_EQ(n, needed);
                    EXPECT_EQ(std::string(out.data(), static_cast<size_t>(n)),
                              std::string(full, static_cast<size_t>(needed)));
                    EXPECT_EQ(out[static_cast<size_t>(n)], 0);
                    continue;
                }
                EXPECT_EQ(n, -1);
                EXPECT_EQ(*_nu_ext_errno(h), NU_E2BIG);
                // What was written is whole characters of the text.
                size_t written = 0;
                while (written < static_cast<size_t>(size) && out[written] != '\x7f') ++written;
                const std::string prefix(out.data(), written);
                EXPECT_EQ(std::string(full, written), prefix);
                EXPECT_GE(nu_mbsbytes(h, reinterpret_cast<const unsigned char *>(
                                             (prefix + std::string(4, '\0')).c_str())),
                          1);
            }
            nu_wchar wf[64], wout[256];
            int k = 0;
            for (; f[k] != 0; ++k) wf[k] = static_cast<unsigned char>(f[k]);
            wf[k] = 0;
            const int wneeded = nu_wcsftime(h, nullptr, 0, wf, &t);
            ASSERT_GE(wneeded, 0);
            for (int size = 1; size <= wneeded + 1; ++size) {
                std::vector<nu_wchar> w(static_cast<size_t>(size) + 4, 0x7f7f);
                const int n = nu_wcsftime(h, w.data(), size, wf, &t);
                EXPECT_EQ(n, size > wneeded ? wneeded : -1);
                for (size_t i = static_cast<size_t>(size); i < w.size(); ++i)
                    ASSERT_EQ(w[i], 0x7f7fu);
            }
            (void)wout;
            // Written over the value itself, from its first word and from its middle: the
            // text of the value as it was.
            for (size_t at : {size_t{0}, 6 * sizeof(int32_t)}) {
                alignas(nu_time_rec) char both[sizeof t + 256];
                std::memcpy(both + at, &t, sizeof t);
                const auto *in = reinterpret_cast<const nu_time_rec *>(both + at);
                ASSERT_EQ(nu_mbsftime(h, both, sizeof both, f, in), needed) << f;
                EXPECT_EQ(std::string(both, static_cast<size_t>(needed)),
                          std::string(full, static_cast<size_t>(needed)))
                    << f;
            }
        }
    }
}

TEST_F(TimeFormat, FractionZoneAndEpoch) {
    nu_time_rec t = date(1970, 0, 2);
    t.wday = 5;
    t.hour = 1;
    t.second = 5;
    t.fraction = 123456;
    char out[64];
    auto fmt = [&](const char *f) {
        const int n = nu_mbsftime(en(), out, sizeof out, f, &t);
        return n < 0 ? std::string("error ") + std::to_string(*_nu_ext_errno(en())) : std::string(out);
    };
    EXPECT_EQ(fmt("%S.%f|%.3f|%.1f|%.9f|%10.3f|%-10.2f|"), "05.123456|123|1|123456000|0000000123|        12|");
    EXPECT_EQ(fmt("[%z][%Z][%4Z]"), "[][][    ]");
    EXPECT_EQ(fmt("%s"), "90005");
    nu_time_rec back{};
    const char *end = nu_mbsptime(en(), "05.1234 x", "%S.%.4f", &back);
    ASSERT_NE(end, nullptr);
    EXPECT_STREQ(end, " x");
    EXPECT_EQ(back.fraction, 123400);
    ASSERT_NE(nu_mbsptime(en(), "1999-12-31T23:59:60.5Z", "%Y-%m-%dT%H:%M:%S.%f%z", &back), nullptr);
    EXPECT_EQ(back.second, 60);
    EXPECT_EQ(back.fraction, 500000);
    EXPECT_EQ(back.wday, 5);
    EXPECT_EQ(back.yday, 364);
    ASSERT_NE(nu_mbsptime(en(), "-86400", "%s", &back), nullptr);
    EXPECT_EQ(ymd(back), (Ymd{1969, 11, 31}));
}

nu_time_rec parsed;
int parse_error(nu_locale_t h, const char *text, const char *format) {
    *_nu_ext_errno(h) = 0;
    parsed = nu_time_rec{};
    return nu_mbsptime(h, text, format, &parsed) == nullptr ? *_nu_ext_errno(h) : 0;
}

TEST_F(TimeFormat, EveryParseFailureHasItsCode) {
    struct Case {
        const char *text, *format;
        int code;
    };
    const Case cases[] = {
        {"12:x", "%H:%f", NU_EPFRACTION},  {"12:30:", "%H:%M:%S", NU_EPSECOND},
        {"12:61", "%H:%M", NU_EPMINUTE},   {"24", "%H", NU_EPHOUR},
        {"13", "%I", NU_EPHOUR},           {"10 xm", "%I %p", NU_EPHOUR},
        {"32", "%d", NU_EPMDAY},           {"Sundae", "%A", 0},
        {"Sonday", "%A", NU_EPWDAY},       {"Monday 2024-02-29", "%A %F", NU_EPWDAY},
        {"8", "%u", NU_EPWDAY},            {"13", "%m", NU_EPMONTH},
        {"Jum", "%b", NU_EPMONNAME},       {"y2k", "%Y", NU_EPYEAR},
        {"2024-02-30", "%F", NU_EMDAY},    {"2023-366", "%Y-%j", NU_EYDAY},
        {"2024/02", "%Y-%m", NU_ENOMATCH}, {"%", "%%%", NU_EBADFMT},
        {"x", "%Q", NU_EFORMAT},           {"1", "%Od%Ea", NU_EMODIFIER},
        {"0", "%Y", NU_EYEAR},             {"12", "%.3d", NU_EMODIFIER},
    };
    for (const Case &c : cases) EXPECT_EQ(parse_error(en(), c.text, c.format), c.code) << c.text << " " << c.format;
    // Names: any case, the longest match, either list.
    EXPECT_EQ(parse_error(en(), "JUNE 3 2024", "%B %d %Y"), 0);
    EXPECT_EQ(ymd(parsed), (Ymd{2024, 5, 3}));
    EXPECT_EQ(parse_error(en(), "Thu, 1 feb 2024", "%a, %d %h %Y"), 0);
    EXPECT_EQ(parse_error(en(), "  7:05pm", "%l:%M%p"), 0);
    EXPECT_EQ(parsed.hour, 19);
    // Eras and alternative digits (ja_JP): the era's first year, an era year, kanji numerals.
    EXPECT_EQ(parse_error(ja(), "令和元年", "%EY"), 0);
    EXPECT_EQ(ymd(parsed).year, 2019);
    EXPECT_EQ(parse_error(ja(), "平成31年四月三十日", "%EY%Om月%Od日"), 0);
    EXPECT_EQ(ymd(parsed), (Ymd{2019, 3, 30}));
    EXPECT_EQ(parse_error(ja(), "昭和", "%EC"), 0);
    EXPECT_EQ(parse_error(ja(), "大正x年", "%EC%Ey年"), NU_EPERA);
    EXPECT_EQ(parse_error(ja(), "未知", "%EC"), NU_EPERA);
    EXPECT_EQ(parse_error(sjis(), "\x95\xbd\x90\xac" "9" "\x94\x4e", "%EY"), 0);   // 平成9年
    EXPECT_EQ(ymd(parsed).year, 1997);
    // Two-digit years: 69 to 99 the twentieth century, 00 to 68 the twenty-first.
    EXPECT_EQ(parse_error(en(), "68 69", "%y"), 0);
    EXPECT_EQ(ymd(parsed).year, 2068);
    EXPECT_EQ(parse_error(en(), "69", "%y"), 0);
    EXPECT_EQ(ymd(parsed).year, 1969);
    EXPECT_EQ(parse_error(en(), "19 05", "%C %y"), 0);
    EXPECT_EQ(ymd(parsed).year, 1905);
    // The format read last, its compiled form then pushed out by wide formats: read again.
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(parse_error(en(), "2024-02-03", "%Y-%m-%d"), 0);
        EXPECT_EQ(ymd(parsed), (Ymd{2024, 1, 3}));
        for (nu_wchar c = 'a'; c < 'a' + 6; ++c) {
            const nu_wchar wide_format[] = {'%', 'Y', c, 0}, wide_text[] = {'1', '9', '9', '9', c, 0};
            nu_time_rec w{};
            EXPECT_NE(nu_wcsptime(en(), wide_text, wide_format, &w), nullptr);
        }
    }
    // Week and weekday name the date.
    EXPECT_EQ(parse_error(en(), "2024 09 Tue", "%Y %W %a"), 0);
    EXPECT_EQ(ymd(parsed), (Ymd{2024, 1, 27}));
}

// The era of a date, found through one number per date and a table of whole years, against
// the segments' fields compared one by one (the first segment that holds the date), for random
// overlapping segments in either order, with open ends and months and days out of range.
TEST_F(TimeFormat, EraOfRandomSegments) {
    nu_locale_t h = en();
    nus::free_era_cache(h);
    const nus::TimeFields saved = h->time;
    std::mt19937 rng(5);
    auto field = [&](int32_t low, int32_t span) { return low + static_cast<int32_t>(rng() % span); };
    for (int round = 0; round < 200; ++round) {
        nus::EraSegment seg[6] = {};
        int32_t ends[6][2][3];   // as dates compare: year - 1900, month from 0, day
        const int count = field(1, 6);
        for (int i = 0; i < count; ++i)
            for (int e = 0; e < 2; ++e) {
                const int k = field(0, 12);
                const int32_t year = k == 0 ? nus::kEraOpenBefore : k == 1 ? nus::kEraOpenAfter : field(1880, 300);
                const int32_t month = field(0, 14), day = field(0, 33);
                (e == 0 ? seg[i].start_year : seg[i].end_year) = year;
                (e == 0 ? seg[i].start_month : seg[i].end_month) = month;
                (e == 0 ? seg[i].start_day : seg[i].end_day) = day;
                int32_t *d = ends[i][e];
                if (year == nus::kEraOpenBefore) d[0] = INT32_MIN, d[1] = 0, d[2] = 1;
                else if (year == nus::kEraOpenAfter) d[0] = INT32_MAX, d[1] = 11, d[2] = 31;
                else d[0] = year - 1900, d[1] = month - 1, d[2] = day;
            }
        h->time.eras = seg;
        h->time.era_count = count;
        auto not_after = [](const int32_t *a, const int32_t *b) {
            return a[0] < b[0] || (a[0] == b[0] && (a[1] < b[1] || (a[1] == b[1] && a[2] <= b[2])));
        };
        for (int k = 0; k < 500; ++k) {
            const int32_t date[3] = {field(-30, 300), field(0, 12), field(1, 28)};
            int expected = -1;
            for (int i = 0; i < count && expected < 0; ++i)
                if ((not_after(ends[i][0], date) && not_after(date, ends[i][1])) ||
                    (not_after(ends[i][1], date) && not_after(date, ends[i][0])))
                    expected = i;
            ASSERT_EQ(nus::tm::find_era(h, date[0], date[1], date[2]), expected)
                << "round " << round << " date " << date[0] << "/" << date[1] << "/" << date[2];
        }
        nus::free_era_cache(h);
    }
    h->time = saved;
}

TEST_F(TimeFormat, DateInformation) {
    // ISO weeks against glibc's %G/%V, the locale's week, its first weekday.
    std::mt19937 rng(3);
    for (int i = 0; i < 3000; ++i) {
        const nu_time_rec t = random_time(rng);
        struct tm tm = to_tm(t);
        char expected[32];
        strftime(expected, sizeof expected, "%G-%V", &tm);
        int year = 0;
        const int week = nu_time_isoweek(en(), &t, &year);
        char got[32];
        std::snprintf(got, sizeof got, "%d-%02d", year, week);
        ASSERT_EQ(std::string(got), expected);
        // en_US weeks begin on Sunday and the first holds 1 January (glibc's %U counts weeks
        // before the first Sunday as week 0 instead: compare on the days after it).
        strftime(expected, sizeof expected, "%U", &tm);
        const int sunday_weeks = std::atoi(expected);
        const bool jan1_sunday = _nu_gregorian_weekday(1, 0, t.year + 1900) == 0;
        if (sunday_weeks > 0 && t.month < 11) {
            EXPECT_EQ(nu_time_localweek(en(), &t, &year), sunday_weeks + (jan1_sunday ? 0 : 1))
                << ymd(t);
        }
        nu_time_rec n = t;
        n.wday = n.yday = n.month_name = -1;
        ASSERT_EQ(nu_time_normalize(en(), &n), 0);
        EXPECT_EQ(n.wday, t.wday);
        EXPECT_EQ(n.yday, t.yday);
    }
    EXPECT_EQ(nu_time_first_weekday(en()), 0);
    EXPECT_EQ(nu_time_first_weekday(ja()), 0);
    EXPECT_EQ(nu_time_expand_year(en(), 0), 2000);
    EXPECT_EQ(nu_time_expand_year(en(), 99), 1999);
    EXPECT_EQ(nu_time_expand_year(en(), 100), -1);
    EXPECT_EQ(*_nu_ext_errno(en()), NU_EYEAR);
    nu_time_rec bad = date(2023, 1, 29);
    EXPECT_EQ(nu_time_normalize(en(), &bad), -1);
    EXPECT_EQ(*_nu_ext_errno(en()), NU_EMDAY);
    EXPECT_EQ(nu_time_isoweek(en(), &bad, nullptr), -1);
}

} // namespace
