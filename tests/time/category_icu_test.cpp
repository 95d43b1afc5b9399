// The locales of the default set that show their dates in the Hebrew and the Islamic calendar
// (compiled with nus-localedef --calendar): for every day of 2000 to 2040 the month name our
// record gives the converted date (through its month-name index) and the day name of its day
// of week are the ones ICU formats for that day in the same calendar, full and abbreviated.
// ICU's tabular Islamic calendar with the Thursday epoch ("islamic-tbla") is the one the
// library converts to; its month names are those of every Islamic calendar of ICU.
#include "support/support.h"

#include "frame/handle.h"
#include "nus.h"

#include <gtest/gtest.h>
#include <unicode/udat.h>
#include <unicode/ustring.h>

#include <string>

namespace {

std::string str(const char *s) { return s != nullptr ? s : "<null>"; }

// An ICU formatter of one pattern, in UTC.
class IcuFormat {
public:
    IcuFormat(const char *locale, const char *pattern) {
        UChar upattern[32];
        u_uastrcpy(upattern, pattern);
        UErrorCode status = U_ZERO_ERROR;
        f_ = udat_open(UDAT_PATTERN, UDAT_PATTERN, locale, u"UTC", -1, upattern, -1, &status);
        if (U_FAILURE(status)) f_ = nullptr;
    }
    ~IcuFormat() {
        if (f_ != nullptr) udat_close(f_);
    }
    bool ok() const { return f_ != nullptr; }
    std::string operator()(int64_t day) const {
        UChar out[128];
        UErrorCode status = U_ZERO_ERROR;
        const int32_t n = udat_format(f_, static_cast<UDate>(day) * 86400000.0, out, 128, nullptr, &status);
        char utf8[512];
        int32_t length = 0;
        u_strToUTF8(utf8, sizeof utf8, &length, out, n, &status);
        return U_SUCCESS(status) ? std::string(utf8, static_cast<size_t>(length)) : "<icu error>";
    }

private:
    UDateFormat *f_;
};

TEST(TimeCalendarLocales, NamesAreIcusForEveryDay) {
    struct Case {
        const char *spec, *icu, *calendar_name;
        int calendar, months;
    };
    const Case cases[] = {{"he_il.utf8@hebr", "he_IL@calendar=hebrew", "hebrew\n", 2, 14},
                          {"ar_sa.utf8@isla", "ar_SA@calendar=islamic-tbla", "islamic\n", 3, 12}};
    for (const Case &c : cases) {
        NUS_LOAD_OR_SKIP(h, c.spec);
        const nus::TimeFields &t = h.h->time;
        EXPECT_EQ(t.calendar, c.calendar) << c.spec;
        EXPECT_EQ(t.month_count, c.months) << c.spec;
        EXPECT_EQ(str(nu_nl_langinfo(h, 73)), c.calendar_name);
        for (int item = 15; item < 15 + c.months; ++item) EXPECT_NE(str(nu_nl_langinfo(h, item)), "") << item;
        *_nu_ext_errno(h) = 0;
        EXPECT_EQ(nu_nl_langinfo(h, 15 + c.months), nullptr);
        EXPECT_EQ(*_nu_ext_errno(h), NU_EBADVAL);
        const IcuFormat month(c.icu, "MMMM"), short_month(c.icu, "MMM"), weekday(c.icu, "EEEE"),
            short_weekday(c.icu, "EEE");
        ASSERT_TRUE(month.ok() && short_month.ok() && weekday.ok() && short_weekday.ok());
        int days = 0, names_seen = 0;
        bool seen[20] = {};
        // Day 10957 is 2000-01-01; 14975 days reach the end of 2040.
        for (int64_t day = 10957; day < 10957 + 14975; ++day) {
            const int64_t z = day + 719468, era = z / 146097, doe = z - era * 146097;
            const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
            const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100), mp = (5 * doy + 2) / 153;
            const int m = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
            nu_time_rec in{};
            in.year = static_cast<int32_t>(yoe + era * 400 + (m <= 2 ? 1 : 0)) - 1900;
            in.month = m - 1;
            in.month_name = m - 1;
            in.mday = static_cast<int32_t>(doy - (153 * mp + 2) / 5 + 1);
            nu_time_rec local{};
            ASSERT_EQ(nu_cal_gregorian_to_local(h, &in, &local), 0);
            ASSERT_TRUE(local.month_name >= 0 && local.month_name < t.month_count);
            ASSERT_TRUE(local.wday >= 0 && local.wday < 7);
            seen[local.month_name] = true;
            EXPECT_EQ(str(t.mon[local.month_name].mb), month(day)) << c.spec << " day " << day;
            EXPECT_EQ(str(t.abmon[local.month_name].mb), short_month(day)) << c.spec << " day " << day;
            EXPECT_EQ(str(t.day[local.wday].mb), weekday(day)) << c.spec << " day " << day;
            EXPECT_EQ(str(t.abday[local.wday].mb), short_weekday(day)) << c.spec << " day " << day;
            ++days;
            if (HasFailure()) break;
        }
        for (bool s : seen) names_seen += s ? 1 : 0;
        EXPECT_EQ(names_seen, c.months) << c.spec;   // every name, the two Adars included
        std::printf("%s: month and day names of %d days equal ICU's\n", c.spec, days);
    }
}

} // namespace
