// Calendar conversions: the Gregorian helpers, the Hebrew year start, the limits of the four
// conversions, month names of Hebrew leap years, the words carried through, and the choice
// of the local calendar by the handle.
#include "frame/handle.h"
#include "time/calendar.h"
#include "time/time_test_util.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

using nus_test::date;
using nus_test::Ymd;
using nus_test::ymd;

namespace {

using Conversion = int (*)(const nu_time_rec *, nu_time_rec *);

// An output record full of garbage, so that clearing and copying show.
nu_time_rec garbage() {
    nu_time_rec r;
    std::memset(&r, 0x5A, sizeof r);
    return r;
}

bool all_zero(const nu_time_rec &r) {
    const nu_time_rec zero{};
    return std::memcmp(&r, &zero, sizeof r) == 0;
}

// Days from 1970-01-01 of the first day of Hebrew year `year`.
int64_t hebrew_new_year(int year) {
    // The year-start day numbers count 1 January of year 1 as day 6307.
    return nus::hebrew_size_in_days(year - 3744) - 6307 + nus_test::days_from_epoch(1, 0, 1);
}

// Every day of years 1 to 9999 is checked in round_trip_test.cpp; here, the table and the
// months outside a year.
TEST(Gregorian, HelpersAndSharedTable) {
    const int32_t lengths[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    EXPECT_EQ(std::memcmp(_nu_greg_month_length, lengths, sizeof lengths), 0);
    EXPECT_EQ(_nu_gregorian_weekday(1, 0, 1), 1);       // 1 January of year 1: a Monday
    EXPECT_EQ(_nu_gregorian_yearday(1, 2, 2100), 59);   // 2100 is not a leap year
    // A month outside the year reads nothing beyond the table.
    EXPECT_EQ(_nu_gregorian_yearday(1, 12, 2000), -1);
    EXPECT_EQ(_nu_gregorian_weekday(1, -1, 2000), -1);
}

TEST(Hebrew, YearStartsFollowTheCycleAndThePostponements) {
    // Known new years: 5784 (leap, deficient) on 2023-09-16, 5785 (common, complete) on
    // 2024-10-03, 5786 on 2025-09-23; 5760 on 1999-09-11.
    EXPECT_EQ(hebrew_new_year(5784), nus_test::days_from_epoch(2023, 8, 16));
    EXPECT_EQ(hebrew_new_year(5785), nus_test::days_from_epoch(2024, 9, 3));
    EXPECT_EQ(hebrew_new_year(5786), nus_test::days_from_epoch(2025, 8, 23));
    EXPECT_EQ(hebrew_new_year(5760), nus_test::days_from_epoch(1999, 8, 11));

    // Every year the conversions reach, and beyond (where the day arithmetic needs 64 bits),
    // against the rules in their usual form.
    for (int year = 3761; year <= 20000; ++year) {
        ASSERT_EQ(hebrew_new_year(year), nus_test::textbook_new_year(year)) << year;
        const int64_t length = hebrew_new_year(year + 1) - hebrew_new_year(year);
        if (nus_test::hebrew_leap(year)) ASSERT_TRUE(length >= 383 && length <= 385) << year;
        else ASSERT_TRUE(length >= 353 && length <= 355) << year;
    }
}

struct Limit {
    Conversion convert;
    Ymd in;
    bool ok;
    Ymd out;   // when ok
};

TEST(Conversions, RangeLimitsClearTheOutput) {
    const Conversion g2h = nu_cal_gregorian_to_hebrew, h2g = nu_cal_hebrew_to_gregorian;
    const Conversion g2i = nu_cal_gregorian_to_islamic, i2g = nu_cal_islamic_to_gregorian;
    const Limit limits[] = {
        // Gregorian to Hebrew: 0001-01-01 to 10000-02-23.
        {g2h, {1, 0, 1}, true, {3761, 3, 18}},
        {g2h, {1, 0, 0}, false, {}},
        {g2h, {1, -1, 31}, false, {}},
        {g2h, {0, 11, 31}, false, {}},
        {g2h, {10000, 1, 23}, true, {13760, 3, 23}},
        {g2h, {10000, 1, 24}, false, {}},
        {g2h, {10000, 2, 1}, false, {}},
        {g2h, {10001, 0, 1}, false, {}},
        // Hebrew to Gregorian: from 3761, month 3, day 18; years below 14214.
        {h2g, {3761, 3, 18}, true, {1, 0, 1}},
        {h2g, {3761, 3, 17}, false, {}},
        {h2g, {3761, 2, 29}, false, {}},
        {h2g, {3761, 4, 1}, true, {1, 0, 13}},
        {h2g, {3760, 11, 29}, false, {}},
        {h2g, {14213, 0, 1}, true, {10452, 10, 7}},
        {h2g, {14214, 0, 1}, false, {}},
        // Gregorian to Islamic: 0622-07-18 to 10323-10-20.
        {g2i, {622, 6, 18}, true, {1, 0, 1}},
        {g2i, {622, 6, 17}, false, {}},
        {g2i, {622, 5, 30}, false, {}},
        {g2i, {621, 11, 31}, false, {}},
        {g2i, {10323, 9, 20}, true, {9999, 11, 29}},
        {g2i, {10323, 9, 21}, false, {}},
        {g2i, {10323, 10, 1}, false, {}},
        {g2i, {10324, 0, 1}, false, {}},
        {g2i, {2000, 12, 1}, false, {}},   // no day of year for a 13th month
        // Islamic to Gregorian: years 1 to 9999.
        {i2g, {1, 0, 1}, true, {622, 6, 18}},
        {i2g, {1, 0, 0}, false, {}},
        {i2g, {1, -2, 30}, false, {}},
        {i2g, {0, 11, 29}, false, {}},
        {i2g, {9999, 11, 29}, true, {10323, 9, 20}},
        {i2g, {10000, 0, 1}, false, {}},
        // Numbers far outside any calendar.
        {g2h, {2000, 1 << 30, 1}, false, {}},
        {h2g, {5784, 0, -(1 << 30)}, false, {}},
        {i2g, {1445, 0x7FFFFFFF, 1}, false, {}},
    };
    for (const Limit &l : limits) {
        SCOPED_TRACE(testing::Message() << l.in << (l.ok ? " converts" : " fails"));
        const nu_time_rec in = date(l.in.year, l.in.month, l.in.mday);
        nu_time_rec out = garbage();
        const int result = l.convert(&in, &out);
        if (!l.ok) {
            EXPECT_EQ(result, -1);
            EXPECT_TRUE(all_zero(out));
            continue;
        }
        ASSERT_EQ(result, 0);
        EXPECT_EQ(ymd(out), l.out);
    }
}

TEST(Hebrew, LeapYearMonthsAndTheirNames) {
    struct Day {
        Ymd gregorian;
        Ymd hebrew;
        int name;
        int yday;
    };
    // 5784 is a leap year of 383 days, 5785 a common year of 355.
    const Day days[] = {
        {{2023, 8, 16}, {5784, 0, 1}, 0, 0},
        {{2024, 1, 9}, {5784, 4, 30}, 4, 146},    // the last day of Shevat
        {{2024, 1, 10}, {5784, 5, 1}, 12, 147},   // Adar I
        {{2024, 2, 11}, {5784, 6, 1}, 13, 177},   // Adar II
        {{2024, 2, 24}, {5784, 6, 14}, 13, 190},  // Purim
        {{2024, 3, 23}, {5784, 7, 15}, 6, 220},   // Passover: Nisan carries its common name
        {{2024, 9, 2}, {5784, 12, 29}, 11, 382},  // the last day of the year
        {{2024, 9, 3}, {5785, 0, 1}, 0, 0},
        {{2025, 2, 14}, {5785, 5, 14}, 5, 162},   // Purim of a common year
        {{2025, 8, 22}, {5785, 11, 29}, 11, 354},
    };
    for (const Day &d : days) {
        SCOPED_TRACE(testing::Message() << d.gregorian);
        nu_time_rec in = date(d.gregorian.year, d.gregorian.month, d.gregorian.mday), out{};
        ASSERT_EQ(nu_cal_gregorian_to_hebrew(&in, &out), 0);
        EXPECT_EQ(ymd(out), d.hebrew);
        EXPECT_EQ(out.month_name, d.name);
        EXPECT_EQ(out.yday, d.yday);
        EXPECT_EQ(out.wday, nus_test::weekday(d.gregorian.year, d.gregorian.month, d.gregorian.mday));
        // Back by the month number, and by the name alone.
        nu_time_rec back{};
        ASSERT_EQ(nu_cal_hebrew_to_gregorian(&out, &back), 0);
        EXPECT_EQ(ymd(back), d.gregorian);
        out.month = -1;
        ASSERT_EQ(nu_cal_hebrew_to_gregorian(&out, &back), 0);
        EXPECT_EQ(ymd(back), d.gregorian);
    }
}

TEST(Hebrew, NamesThatGiveNoMonthKeepTheCopiedWords) {
    struct Case {
        int year, name;
        int result;
        int month;   // the month the name gives, when it gives one
    };
    const Case cases[] = {
        {5784, 12, 0, 5}, {5784, 13, 0, 6}, {5784, 5, 0, 5}, {5784, 6, 0, 7}, {5784, 11, 0, 12},
        {5784, 0, 0, 0},  {5784, 14, -1, 0}, {5784, -1, -1, 0}, {5785, 11, 0, 11},
        {5785, 12, -1, 0}, {5785, -1, -1, 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(testing::Message() << c.year << " name " << c.name);
        nu_time_rec in = date(c.year, -1, 1);
        in.month_name = c.name;
        in.fraction = 7;
        in.carried[2] = 9;
        in.hour = 13;
        nu_time_rec out = garbage();
        ASSERT_EQ(nu_cal_hebrew_to_gregorian(&in, &out), c.result);
        if (c.result == 0) {
            nu_time_rec by_number = date(c.year, c.month, 1), expected{};
            ASSERT_EQ(nu_cal_hebrew_to_gregorian(&by_number, &expected), 0);
            EXPECT_EQ(ymd(out), ymd(expected));
            continue;
        }
        nu_time_rec copied{};
        copied.fraction = 7;
        copied.carried[2] = 9;
        EXPECT_EQ(std::memcmp(&out, &copied, sizeof out), 0);
    }
    // The Islamic conversion takes the month from its name the same way, and fails the
    // same way when neither is given.
    nu_time_rec in = date(1445, -1, 1), out = garbage();
    in.month_name = 8;
    ASSERT_EQ(nu_cal_islamic_to_gregorian(&in, &out), 0);
    nu_time_rec by_number = date(1445, 8, 1), expected{};
    ASSERT_EQ(nu_cal_islamic_to_gregorian(&by_number, &expected), 0);
    EXPECT_EQ(ymd(out), ymd(expected));
    in.month_name = -1;
    in.second = 59;
    out = garbage();
    EXPECT_EQ(nu_cal_islamic_to_gregorian(&in, &out), -1);
    nu_time_rec copied{};
    copied.second = 59;
    EXPECT_EQ(std::memcmp(&out, &copied, sizeof out), 0);
}

TEST(Conversions, CarriedWordsAndTheHourPassThrough) {
    const Conversion all[] = {nu_cal_gregorian_to_hebrew, nu_cal_hebrew_to_gregorian,
                              nu_cal_gregorian_to_islamic, nu_cal_islamic_to_gregorian};
    const Ymd inputs[] = {{2024, 2, 24}, {5784, 6, 14}, {2024, 2, 24}, {1445, 8, 14}};
    for (int i = 0; i < 4; ++i) {
        SCOPED_TRACE(i);
        nu_time_rec in = date(inputs[i].year, inputs[i].month, inputs[i].mday);
        in.fraction = 999999;
        in.second = 58;
        in.minute = 59;
        in.hour = 23;
        in.wday = 77;   // computed, never taken from the input
        in.yday = 999;
        in.carried[0] = -1;
        in.carried[1] = 0x12345678;
        in.carried[2] = 42;
        nu_time_rec out = garbage();
        ASSERT_EQ(all[i](&in, &out), 0);
        EXPECT_EQ(out.fraction, 999999);
        EXPECT_EQ(out.second, 58);
        EXPECT_EQ(out.minute, 59);
        EXPECT_EQ(out.hour, 23);
        EXPECT_EQ(out.carried[0], -1);
        EXPECT_EQ(out.carried[1], 0x12345678);
        EXPECT_EQ(out.carried[2], 42);
        EXPECT_NE(out.wday, 77);
        EXPECT_NE(out.yday, 999);
        // Converting in place gives the same record.
        nu_time_rec same = in;
        ASSERT_EQ(all[i](&same, &same), 0);
        EXPECT_EQ(std::memcmp(&same, &out, sizeof out), 0);
    }
    nu_time_rec out{};
    EXPECT_EQ(nu_cal_gregorian_to_hebrew(nullptr, &out), -1);
    EXPECT_EQ(nu_cal_islamic_to_gregorian(&out, nullptr), -1);
}

class Handle : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(nu_create_null_locale_4(&h_), 0); }
    void TearDown() override { nu_lc_unload(h_); }
    nu_locale_t h_ = nullptr;
};

TEST_F(Handle, CalendarNumberChoosesTheConversion) {
    nu_time_rec in = date(2024, 2, 24);
    in.carried[1] = 5;
    in.wday = 33;   // copied as it is by the Gregorian calendar
    nu_time_rec out{}, expected{};

    // The null locale's calendar is the Gregorian: a plain copy of all thirteen words.
    EXPECT_EQ(h_->time.calendar, 1);
    EXPECT_EQ(nu_alt_getcentury(h_), 0);
    ASSERT_EQ(nu_cal_gregorian_to_local(h_, &in, &out), 0);
    EXPECT_EQ(std::memcmp(&in, &out, sizeof out), 0);
    ASSERT_EQ(nu_cal_local_to_gregorian(h_, &in, &out), 0);
    EXPECT_EQ(std::memcmp(&in, &out, sizeof out), 0);

    h_->time.calendar = 2;
    EXPECT_EQ(nu_alt_getcentury(h_), 57);
    ASSERT_EQ(nu_cal_gregorian_to_local(h_, &in, &out), 0);
    ASSERT_EQ(nu_cal_gregorian_to_hebrew(&in, &expected), 0);
    EXPECT_EQ(std::memcmp(&expected, &out, sizeof out), 0);
    ASSERT_EQ(nu_cal_local_to_gregorian(h_, &expected, &out), 0);
    EXPECT_EQ(ymd(out), ymd(in));

    h_->time.calendar = 3;
    EXPECT_EQ(nu_alt_getcentury(h_), 14);
    ASSERT_EQ(nu_cal_gregorian_to_local(h_, &in, &out), 0);
    ASSERT_EQ(nu_cal_gregorian_to_islamic(&in, &expected), 0);
    EXPECT_EQ(std::memcmp(&expected, &out, sizeof out), 0);
    ASSERT_EQ(nu_cal_local_to_gregorian(h_, &expected, &out), 0);
    EXPECT_EQ(ymd(out), ymd(in));

    // Calendar 4 (Arabic) has no conversion: -1, the output untouched, no error stored.
    for (int calendar : {4, 0}) {
        h_->time.calendar = calendar;
        EXPECT_EQ(nu_alt_getcentury(h_), 0);
        out = garbage();
        EXPECT_EQ(nu_cal_gregorian_to_local(h_, &in, &out), -1);
        EXPECT_EQ(nu_cal_local_to_gregorian(h_, &in, &out), -1);
        const nu_time_rec untouched = garbage();
        EXPECT_EQ(std::memcmp(&untouched, &out, sizeof out), 0);
    }
    EXPECT_EQ(*_nu_ext_errno(h_), 0);

    // A TIME category made null again is Gregorian again.
    nu_make_null_category(h_, NU_TIME);
    EXPECT_EQ(h_->time.calendar, 1);
}

} // namespace
