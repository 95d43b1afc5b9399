// nus date: dates written by a format and read back by one, through the library's time
// formatter and parser; the clock when no date is given.
#include "tools/nus/nus_run.h"

#include <gtest/gtest.h>

using nus_test::nus;
using nus_test::usage;

TEST(NusDate, WritesDatesAndReadsThemBack) {
    auto w = nus({"date", "-l", "en_us.utf8", "+%F %T.%.3f|%j|%u|%V|%s|%5d|%-m",
                  "2024-02-29T13:05:07.123456", "@0", "1999-12-31 23:59", "0001-01-01"});
    EXPECT_EQ(w.status, 0) << w.err;
    EXPECT_EQ(w.out, "2024-02-29 13:05:07.123|060|4|09|1709211907|00029|2\n"
                     "1970-01-01 00:00:00.000|001|4|01|0|00001|1\n"
                     "1999-12-31 23:59:00.000|365|5|52|946684740|00031|12\n"
                     "1-01-01 00:00:00.000|001|1|01|-62135596800|00001|1\n");
    auto r = nus({"date", "-l", "en_us.utf8", "--parse", "%d.%m.%Y %H:%M", "29.02.2024 13:05 Uhr",
                  "29-02-2024 13:05", "30.02.2024 10:00"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "2024-02-29 13:05:00.000000  Thursday, day 60; unread \" Uhr\"\n");
    EXPECT_NE(r.err.find("\"29-02-2024 13:05\": NU_ENOMATCH"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("\"30.02.2024 10:00\": NU_EMDAY"), std::string::npos) << r.err;
}

TEST(NusDate, NowAndMistakes) {
    auto now = nus({"date", "-l", "en_us.utf8", "+%Y-%m-%d"});
    EXPECT_EQ(now.status, 0) << now.err;
    ASSERT_EQ(now.out.size(), 11u) << now.out;
    EXPECT_EQ(now.out[4], '-');
    auto bad = nus({"date", "-l", "en_us.utf8", "+%q", "2024-01-01", "2024-13-01"});
    EXPECT_EQ(bad.status, 1);
    EXPECT_NE(bad.err.find("NU_EFORMAT"), std::string::npos) << bad.err;
    EXPECT_NE(bad.err.find("'2024-13-01' is not a date"), std::string::npos) << bad.err;
    EXPECT_EQ(nus({"date", "+%F"}).err, usage("date", "no locale given (-l LOCALE, e.g. -l de_de.8859-1)"));
    EXPECT_EQ(nus({"date", "-l", "en_us.utf8", "--parse", "%F"}).status, 2);
}
