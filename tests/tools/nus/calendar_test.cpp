// nus cal: dates in the Gregorian, Hebrew and Islamic calendars. The expected dates were
// checked against ICU's hebrew and islamic-tbla calendars.
#include "tools/nus/nus_run.h"

#include <gtest/gtest.h>

using nus_test::nus;
using nus_test::usage;

TEST(NusCal, OneDateInThreeCalendars) {
    auto r = nus({"cal", "2026-11-22"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out,
              "gregorian 2026-11-22  Sunday, 22 November 2026, day 326 of the year\n"
              "hebrew    5787-03-12  Sunday, 12 Kislev 5787, day 72 of the year\n"
              "islamic   1448-06-12  Sunday, 12 Jumada al-Akhirah 1448, day 160 of the year\n");
}

TEST(NusCal, HebrewLeapYearsAndInputInOtherCalendars) {
    // 5784 is a leap year: its sixth and seventh months are Adar I and Adar II.
    auto leap = nus({"cal", "--to", "hebrew", "2024-02-20", "2024-03-22", "2024-04-23"});
    EXPECT_EQ(leap.status, 0) << leap.err;
    EXPECT_EQ(leap.out, "hebrew    5784-06-11  Tuesday, 11 Adar I 5784, day 158 of the year\n"
                        "hebrew    5784-07-12  Friday, 12 Adar II 5784, day 189 of the year\n"
                        "hebrew    5784-08-15  Tuesday, 15 Nisan 5784, day 221 of the year\n");
    // And back: month numbers count from Tishri.
    auto back = nus(
        {"cal", "--from", "hebrew", "--to", "gregorian", "5784-06-11", "5784-07-12", "5787-03-12"});
    EXPECT_EQ(back.status, 0) << back.err;
    EXPECT_EQ(back.out, "gregorian 2024-02-20  Tuesday, 20 February 2024, day 51 of the year\n"
                        "gregorian 2024-03-22  Friday, 22 March 2024, day 82 of the year\n"
                        "gregorian 2026-11-22  Sunday, 22 November 2026, day 326 of the year\n");
    auto islamic = nus({"cal", "--from", "islamic", "--to", "hebrew,gregorian", "1445-09-01"});
    EXPECT_EQ(islamic.status, 0) << islamic.err;
    EXPECT_EQ(islamic.out, "hebrew    5784-06-30  Sunday, 30 Adar I 5784, day 177 of the year\n"
                           "gregorian 2024-03-10  Sunday, 10 March 2024, day 70 of the year\n");
}

TEST(NusCal, EdgesOfTheConversions) {
    // The first and last dates each conversion takes, and the days just outside them.
    auto first = nus({"cal", "--to", "hebrew,islamic", "0622-07-18"});
    EXPECT_EQ(first.status, 0) << first.err;
    EXPECT_EQ(first.out, "hebrew    4382-11-02  Thursday, 2 Av 4382, day 297 of the year\n"
                         "islamic   0001-01-01  Thursday, 1 Muharram 1, day 1 of the year\n");
    auto hebrew_first = nus({"cal", "--to", "hebrew", "0001-01-01", "10000-02-23"});
    EXPECT_EQ(hebrew_first.out,
              "hebrew    3761-04-18  Monday, 18 Tevet 3761, day 108 of the year\n"
              "hebrew    13760-04-23  Wednesday, 23 Tevet 13760, day 112 of the year\n");

    auto before = nus({"cal", "0622-07-17"});
    EXPECT_EQ(before.status, 1);
    EXPECT_EQ(before.out, "gregorian 0622-07-17  Wednesday, 17 July 622, day 198 of the year\n"
                          "hebrew    4382-11-01  Wednesday, 1 Av 4382, day 296 of the year\n");
    EXPECT_EQ(before.err, "nus: cal: 0622-07-17: outside the range of the islamic conversion "
                          "(Gregorian 0622-07-18 to 10323-10-20, Islamic years 1 to 9999)\n");
    auto after = nus({"cal", "--to", "islamic", "10323-10-20", "10323-10-21"});
    EXPECT_EQ(after.status, 1);
    EXPECT_EQ(after.out,
              "islamic   9999-12-29  Saturday, 29 Dhu al-Hijjah 9999, day 354 of the year\n");
    auto hebrew_after = nus({"cal", "--to", "hebrew", "10000-02-24"});
    EXPECT_EQ(hebrew_after.status, 1);
    EXPECT_EQ(hebrew_after.out, "");
    // Hebrew year 3761 begins to convert on the 18th of Tevet.
    auto hebrew_low = nus({"cal", "--from", "hebrew", "--to", "gregorian", "3761-04-17"});
    EXPECT_EQ(hebrew_low.status, 1);
}

TEST(NusCal, DatesThatDoNotExist) {
    auto r =
        nus({"cal", "--to", "gregorian", "2026-02-29", "2024-02-29", "2026/1/1", "2026-13-01"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "gregorian 2024-02-29  Thursday, 29 February 2024, day 60 of the year\n");
    EXPECT_EQ(r.err, "nus: cal: 2026-02-29: no such Gregorian date\n"
                     "nus: cal: '2026/1/1' is not a date of the form YYYY-MM-DD\n"
                     "nus: cal: 2026-13-01: no such Gregorian date\n");
    // 5785 is a common year: no thirteenth month; Heshvan 5784 has 29 days (5785's has 30).
    auto hebrew = nus({"cal", "--from", "hebrew", "5785-13-01", "5784-02-30", "5785-02-30"});
    EXPECT_EQ(hebrew.status, 1);
    EXPECT_EQ(hebrew.out,
              "gregorian 2024-12-01  Sunday, 1 December 2024, day 336 of the year\n"
              "hebrew    5785-02-30  Sunday, 30 Heshvan 5785, day 60 of the year\n"
              "islamic   1446-05-30  Sunday, 30 Jumada al-Ula 1446, day 148 of the year\n");
    EXPECT_EQ(hebrew.err, "nus: cal: 5785-13-01: no such hebrew date\n"
                          "nus: cal: 5784-02-30: no such hebrew date\n");
    auto islamic = nus({"cal", "--from", "islamic", "1445-02-30"}); // Safar has 29 days
    EXPECT_EQ(islamic.status, 1);
}

TEST(NusCal, UsageErrors) {
    EXPECT_EQ(nus({"cal"}).err, usage("cal", "no DATE given"));
    EXPECT_EQ(nus({"cal", "--to", "julian", "2026-01-01"}).err,
              usage("cal", "unknown calendar 'julian' (gregorian, hebrew, islamic)"));
    EXPECT_EQ(nus({"cal", "--from", "mayan", "2026-01-01"}).status, 2);
    EXPECT_EQ(nus({"cal", "--to"}).err, usage("cal", "option '--to' needs a value"));
    auto help = nus({"cal", "-h"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.out.rfind("Usage: nus cal", 0), 0u);
}
