// The time formatter's and parser's tests: glibc locales built from the Debian sources, a
// handle's TIME record filled from such a locale (names, formats, eras, alternative digits,
// week, the parser's caches), and random Gregorian dates.
#pragma once

#include "frame/handle.h"
#include "support/glibc_time.h"
#include "support/support.h"
#include "time/time_test_util.h"

#include "nus.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <langinfo.h>
#include <locale.h>
#include <random>
#include <string>
#include <vector>

namespace nus_test {

// A glibc locale compiled from a Debian source and charmap into build/glibc-locales (once).
inline locale_t glibc_locale(const std::string &source, const std::string &charmap) {
    namespace fs = std::filesystem;
    const std::string dir = std::string(NUS_SOURCE_DIR) + "/build/glibc-locales";
    const std::string name = source + "." + charmap;
    if (!fs::exists(fs::path(dir) / name / "LC_TIME")) {
        fs::create_directories(dir);
        const std::string command = "localedef -i " + source + " -f " + charmap + " " + dir +
                                    "/" + name + " >/dev/null 2>&1";
        (void)std::system(command.c_str());
    }
    EnvGuard path("LOCPATH", dir);
    return newlocale(LC_ALL_MASK, name.c_str(), static_cast<locale_t>(nullptr));
}

// A random valid Gregorian value of a year from 1 to 9999, with every word filled.
inline nu_time_rec random_time(std::mt19937 &rng) {
    std::uniform_int_distribution<int> year(1, 9999), month(0, 11), hour(0, 23), minute(0, 59),
        second(0, 59), fraction(0, 999999);
    nu_time_rec t{};
    const int y = year(rng), m = month(rng);
    t.year = y - 1900;
    t.month = t.month_name = m;
    t.mday = std::uniform_int_distribution<int>(1, month_days(y, m))(rng);
    t.hour = hour(rng);
    t.minute = minute(rng);
    t.second = second(rng);
    t.fraction = fraction(rng);
    t.wday = weekday(y, m, t.mday);
    t.yday = yearday(y, m, t.mday);
    return t;
}

inline struct tm to_tm(const nu_time_rec &t) {
    struct tm r {};
    r.tm_sec = t.second;
    r.tm_min = t.minute;
    r.tm_hour = t.hour;
    r.tm_mday = t.mday;
    r.tm_mon = t.month;
    r.tm_year = t.year;
    r.tm_wday = t.wday;
    r.tm_yday = t.yday;
    r.tm_isdst = -1;   // no zone, as a time value has none
    return r;
}

} // namespace nus_test
