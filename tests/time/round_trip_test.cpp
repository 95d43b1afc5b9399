// Every day of years 1 to 9999 converted to the Hebrew and Islamic calendars and back, each
// local date checked to follow the one before; and the shared month table under threads.
#include "time/calendar.h"
#include "time/time_test_util.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using nus_test::Ymd;
using nus_test::ymd;

namespace {

// The local date of the day before, to check that each day follows it.
struct Previous {
    bool valid = false;
    nu_time_rec r{};
};

// Hebrew: the next day of the month, the first of the next month, or the first day of the
// next year after a year of a valid length; the name follows the month.
void check_hebrew_step(const Previous &prev, const nu_time_rec &h) {
    const bool leap_now = (7 * (h.year + 1900) + 1) % 19 < 7;
    const int name = !leap_now || h.month < 5 ? h.month : h.month == 5 ? 12 : h.month == 6 ? 13 : h.month - 1;
    ASSERT_EQ(h.month_name, name) << ymd(h);
    if (!prev.valid) return;
    const nu_time_rec &p = prev.r;
    if (h.year == p.year && h.month == p.month) {
        ASSERT_EQ(h.mday, p.mday + 1) << ymd(h);
    } else if (h.year == p.year) {
        ASSERT_EQ(h.month, p.month + 1) << ymd(h);
        ASSERT_EQ(h.mday, 1);
        ASSERT_TRUE(p.mday == 29 || p.mday == 30) << ymd(p);
    } else {
        ASSERT_EQ(h.year, p.year + 1);
        ASSERT_EQ(ymd(h), (Ymd{h.year + 1900, 0, 1}));
        const bool leap_before = (7 * (p.year + 1900) + 1) % 19 < 7;
        ASSERT_EQ(p.month, leap_before ? 12 : 11);
        ASSERT_EQ(p.mday, 29);
        const int length = p.yday + 1;
        ASSERT_TRUE(leap_before ? length >= 383 && length <= 385 : length >= 353 && length <= 355)
            << ymd(p) << " ends a year of " << length << " days";
    }
    ASSERT_EQ(h.yday, h.year == p.year ? p.yday + 1 : 0);
}

// Islamic: months of 30 and 29 days, the last one 30 in the long years of the cycle (whose
// 355th day is the 30th of month 11).
void check_islamic_step(const Previous &prev, const nu_time_rec &i) {
    ASSERT_EQ(i.month_name, i.month);
    if (!prev.valid) return;
    const nu_time_rec &p = prev.r;
    const int year = p.year + 1900;
    const bool long_year = nus::cycle_year_length[(year - 1) % 30] == 355;
    const int month_length = p.month % 2 == 0 || (p.month == 11 && long_year) ? 30 : 29;
    if (i.year == p.year && i.month == p.month) {
        ASSERT_EQ(i.mday, p.mday + 1) << ymd(i);
        ASSERT_LE(i.mday, month_length);
    } else {
        ASSERT_EQ(p.mday, month_length) << ymd(p);
        ASSERT_EQ(i.mday, 1);
        if (i.year == p.year) {
            ASSERT_EQ(i.month, p.month + 1);
        } else {
            ASSERT_EQ(i.year, p.year + 1);
            ASSERT_EQ(i.month, 0);
            ASSERT_EQ(p.month, 11);
        }
    }
    ASSERT_EQ(i.yday, i.year == p.year ? p.yday + 1 : 0);
}

TEST(RoundTrip, EveryDayOfYears1To9999) {
    Previous hebrew, islamic;
    int wday = 1;   // 1 January of year 1 was a Monday
    int yday = 0;
    long hebrew_days = 0, islamic_days = 0;
    for (int y = 1; y <= 9999; ++y) {
        for (int m = 0; m < 12; ++m) {
            const int days = nus_test::month_days(y, m);
            for (int d = 1; d <= days; ++d, wday = (wday + 1) % 7, ++yday) {
                if (m == 0 && d == 1) yday = 0;
                ASSERT_EQ(_nu_gregorian_weekday(d, m, y), wday) << y << '/' << m << '/' << d;
                ASSERT_EQ(_nu_gregorian_yearday(d, m, y), yday);
                nu_time_rec g = nus_test::date(y, m, d), local{}, back{};

                ASSERT_EQ(nu_cal_gregorian_to_hebrew(&g, &local), 0) << ymd(g);
                ASSERT_EQ(local.wday, wday);
                check_hebrew_step(hebrew, local);
                if (testing::Test::HasFatalFailure()) return;
                hebrew = {true, local};
                ASSERT_EQ(nu_cal_hebrew_to_gregorian(&local, &back), 0) << ymd(local);
                ASSERT_EQ(ymd(back), ymd(g)) << "from " << ymd(local);
                ASSERT_EQ(back.month_name, m);
                ASSERT_EQ(back.wday, wday);
                ASSERT_EQ(back.yday, yday);
                ++hebrew_days;

                if (nu_cal_gregorian_to_islamic(&g, &local) != 0) {
                    // Only the days before the epoch fail.
                    ASSERT_TRUE(y < 622 || (y == 622 && (m < 6 || (m == 6 && d < 18)))) << ymd(g);
                    continue;
                }
                ASSERT_EQ(local.wday, wday) << ymd(g);
                check_islamic_step(islamic, local);
                if (testing::Test::HasFatalFailure()) return;
                islamic = {true, local};
                ASSERT_EQ(nu_cal_islamic_to_gregorian(&local, &back), 0) << ymd(local);
                ASSERT_EQ(ymd(back), ymd(g)) << "from " << ymd(local);
                ASSERT_EQ(back.wday, wday);
                ASSERT_EQ(back.yday, yday);
                ++islamic_days;
            }
        }
    }
    EXPECT_EQ(hebrew_days, 3652059);   // every day of the 400-year cycles
    EXPECT_EQ(islamic_days, 3652059 - 227013);
}

TEST(Threads, IslamicConversionsNeverShowOthersALeapFebruary) {
    // Two threads convert Islamic dates that fall in Gregorian leap years (whose conversion
    // once set February to 29 days for a moment) while two others do Gregorian arithmetic
    // on common years with the shared table.
    std::atomic<bool> stop{false};
    std::atomic<long> bad_february{0}, bad_conversion{0}, readings{0};
    auto convert = [&] {
        while (!stop.load(std::memory_order_relaxed)) {
            for (int year = 1441; year <= 1446; ++year) {     // 2019 to 2025
                for (int month = 0; month < 12; ++month) {
                    nu_time_rec in = nus_test::date(year, month, 10), g{}, back{};
                    if (nu_cal_islamic_to_gregorian(&in, &g) != 0 ||
                        nu_cal_gregorian_to_islamic(&g, &back) != 0 || ymd(back) != ymd(in))
                        bad_conversion.fetch_add(1);
                }
            }
        }
    };
    auto arithmetic = [&] {
        for (int round = 0; round < 200000; ++round) {
            const int year = 2021 + round % 3;   // 2021 to 2023: common years
            int days = 0;
            for (int m = 0; m < 12; ++m) days += __atomic_load_n(&_nu_greg_month_length[m], __ATOMIC_RELAXED);
            if (days != 365 || __atomic_load_n(&_nu_greg_month_length[1], __ATOMIC_RELAXED) != 28)
                bad_february.fetch_add(1);
            if (_nu_gregorian_yearday(1, 2, year) != 59) bad_february.fetch_add(1);
            readings.fetch_add(1, std::memory_order_relaxed);
        }
    };
    std::vector<std::thread> threads;
    threads.emplace_back(convert);
    threads.emplace_back(convert);
    std::thread a(arithmetic), b(arithmetic);
    a.join();
    b.join();
    stop = true;
    for (std::thread &t : threads) t.join();
    EXPECT_EQ(readings.load(), 400000);
    EXPECT_EQ(bad_february.load(), 0);
    EXPECT_EQ(bad_conversion.load(), 0);
}

} // namespace
