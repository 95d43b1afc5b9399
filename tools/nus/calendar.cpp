// nus cal: dates converted between the Gregorian, Hebrew and Islamic calendars by the
// library's calendar conversions, each shown with its weekday and day of the year.
#include "tools/nus/query_common.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace nus_cli {

namespace {

constexpr const char *kHelp =
    "Usage: nus cal [--from CALENDAR] [--to CALENDAR[,CALENDAR...]] DATE...\n"
    "Convert dates between calendars: gregorian, hebrew, islamic.\n"
    "\n"
    "Each DATE is YYYY-MM-DD in the --from calendar (gregorian unless given), months\n"
    "and days counted from 1. It is shown in each --to calendar (all three unless\n"
    "given), one line per calendar, with its weekday and its day of the year (from 1):\n"
    "    hebrew    5787-03-12  Sunday, 12 Kislev 5787, day 72 of the year\n"
    "A blank line separates the dates when more than one calendar is shown.\n"
    "\n"
    "Hebrew months are numbered from Tishri (1) to Elul (12; 13 in a leap year, whose\n"
    "months 6 and 7 are Adar I and Adar II). The Islamic calendar is the arithmetic one\n"
    "(30-year cycle, epoch 16 July 622 of the Julian calendar, a Thursday).\n"
    "The conversions cover Gregorian 0001-01-01 to 10000-02-23 for the Hebrew calendar\n"
    "(Hebrew years 3761 to 14213) and Gregorian 0622-07-18 to 10323-10-20 for the\n"
    "Islamic calendar (Islamic years 1 to 9999). Gregorian dates are proleptic.\n"
    "\n"
    "Options:\n"
    "      --from CALENDAR  the calendar the DATEs are written in\n"
    "      --to CALENDARS   the calendars to show, separated by commas\n"
    "  -h, --help           this help\n"
    "\n"
    "Exit status: 0 success, 1 a DATE that is malformed, does not exist or lies outside\n"
    "a conversion's range (the other dates and calendars are still shown), 2 usage error.\n";

enum Calendar { kGregorian, kHebrew, kIslamic };
constexpr const char *kCalendarNames[] = {"gregorian", "hebrew", "islamic"};

constexpr const char *kWeekdays[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                     "Thursday", "Friday", "Saturday"};
constexpr const char *kGregorianMonths[] = {"January",   "February", "March",    "April",
                                            "May",       "June",     "July",     "August",
                                            "September", "October",  "November", "December"};
// By the month-name word of the time value: 12 and 13 are the two Adars of a leap year.
constexpr const char *kHebrewMonths[] = {"Tishri", "Heshvan", "Kislev", "Tevet",  "Shevat",
                                         "Adar",   "Nisan",   "Iyar",   "Sivan",  "Tammuz",
                                         "Av",     "Elul",    "Adar I", "Adar II"};
constexpr const char *kIslamicMonths[] = {
    "Muharram", "Safar",  "Rabi al-Awwal", "Rabi al-Thani", "Jumada al-Ula", "Jumada al-Akhirah",
    "Rajab",    "Shaban", "Ramadan",       "Shawwal",       "Dhu al-Qadah",  "Dhu al-Hijjah"};

constexpr const char *kRanges[] = {
    "", "Gregorian 0001-01-01 to 10000-02-23, Hebrew years 3761 to 14213",
    "Gregorian 0622-07-18 to 10323-10-20, Islamic years 1 to 9999"};

bool calendar_named(const std::string &name, Calendar &calendar) {
    for (int c = kGregorian; c <= kIslamic; ++c)
        if (name == kCalendarNames[c]) {
            calendar = static_cast<Calendar>(c);
            return true;
        }
    return false;
}

bool gregorian_leap(long year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

// "YYYY-MM-DD" (each part one or more digits); false when the text has another shape.
bool read_date(const char *text, long &year, long &month, long &day) {
    long parts[3];
    const char *p = text;
    for (int i = 0; i < 3; ++i) {
        if (*p < '0' || *p > '9') return false;
        char *end = nullptr;
        parts[i] = std::strtol(p, &end, 10);
        if (end - p > 6) return false;
        p = end;
        if (i < 2 && *p++ != '-') return false;
    }
    if (*p != '\0') return false;
    year = parts[0];
    month = parts[1];
    day = parts[2];
    return true;
}

int convert(Calendar from, Calendar to, const nu_time_rec &in, nu_time_rec &out) {
    if (from == to) {
        out = in;
        return 0;
    }
    if (from == kGregorian)
        return to == kHebrew ? nu_cal_gregorian_to_hebrew(&in, &out)
                             : nu_cal_gregorian_to_islamic(&in, &out);
    if (to == kGregorian)
        return from == kHebrew ? nu_cal_hebrew_to_gregorian(&in, &out)
                               : nu_cal_islamic_to_gregorian(&in, &out);
    nu_time_rec gregorian{};
    if (convert(from, kGregorian, in, gregorian) != 0) return -1;
    return convert(kGregorian, to, gregorian, out);
}

std::string show(Calendar calendar, const nu_time_rec &t) {
    const char *month = "?";
    if (calendar == kGregorian && t.month >= 0 && t.month < 12) month = kGregorianMonths[t.month];
    if (calendar == kHebrew && t.month_name >= 0 && t.month_name < 14)
        month = kHebrewMonths[t.month_name];
    if (calendar == kIslamic && t.month_name >= 0 && t.month_name < 12)
        month = kIslamicMonths[t.month_name];
    const char *weekday = t.wday >= 0 && t.wday < 7 ? kWeekdays[t.wday] : "?";
    const long year = static_cast<long>(t.year) + 1900;
    char line[160];
    std::snprintf(line, sizeof line, "%-9s %04ld-%02d-%02d  %s, %d %s %ld, day %d of the year",
                  kCalendarNames[calendar], year, t.month + 1, t.mday, weekday, t.mday, month, year,
                  t.yday + 1);
    return line;
}

} // namespace

int run_cal(int argc, char **argv) {
    if (wants_help(argc, argv, kHelp)) return kOk;
    Arguments args;
    if (!args.parse(argc, argv, {{"from", 0, true}, {"to", 0, true}})) return kUsage;
    Calendar from = kGregorian;
    if (const char *name = args.value("from");
        name != nullptr && !calendar_named(lower_ascii(name), from))
        return usage_error("unknown calendar '%s' (gregorian, hebrew, islamic)", name);
    std::vector<Calendar> targets;
    if (const char *list = args.value("to")) {
        std::string rest = lower_ascii(list);
        for (;;) {
            const size_t comma = rest.find(',');
            const std::string name = rest.substr(0, comma);
            Calendar c;
            if (!calendar_named(name, c))
                return usage_error("unknown calendar '%s' (gregorian, hebrew, islamic)",
                                   name.c_str());
            targets.push_back(c);
            if (comma == std::string::npos) break;
            rest.erase(0, comma + 1);
        }
    } else {
        targets = {kGregorian, kHebrew, kIslamic};
    }
    if (args.operands().empty()) return usage_error("no DATE given");

    int worst = kOk;
    bool first = true;
    for (const char *text : args.operands()) {
        long year, month, day;
        if (!read_date(text, year, month, day)) {
            worst = report(kDataError, "'%s' is not a date of the form YYYY-MM-DD", text);
            continue;
        }
        nu_time_rec in{};
        in.year = static_cast<int32_t>(year - 1900);
        in.month = static_cast<int32_t>(month - 1);
        in.month_name = in.month;
        in.mday = static_cast<int32_t>(day);
        if (from == kGregorian) {
            static constexpr int kLengths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
            const bool valid = year >= 1 && month >= 1 && month <= 12 && day >= 1 &&
                               day <= kLengths[month - 1] + (month == 2 && gregorian_leap(year));
            if (!valid) {
                worst = report(kDataError, "%s: no such Gregorian date", text);
                continue;
            }
            in.yday = _nu_gregorian_yearday(in.mday, in.month, static_cast<int>(year));
            in.wday = _nu_gregorian_weekday(in.mday, in.month, static_cast<int>(year));
        } else {
            // A local date exists when it comes back unchanged from the Gregorian calendar;
            // the conversions themselves take any day number of a month.
            nu_time_rec gregorian{}, back{};
            const bool plausible = month >= 1 && month <= 13 && day >= 1 && day <= 30;
            if (!plausible || convert(from, kGregorian, in, gregorian) != 0) {
                worst = report(kDataError,
                               "%s: no such %s date, or outside the conversion's range (%s)", text,
                               kCalendarNames[from], kRanges[from]);
                continue;
            }
            if (convert(kGregorian, from, gregorian, back) != 0 || back.year != in.year ||
                back.month != in.month || back.mday != in.mday) {
                worst = report(kDataError, "%s: no such %s date", text, kCalendarNames[from]);
                continue;
            }
            in = back;
        }
        if (targets.size() > 1 && !first) std::fputc('\n', stdout);
        first = false;
        for (Calendar to : targets) {
            nu_time_rec out{};
            if (convert(from, to, in, out) != 0) {
                const Calendar local = to == kGregorian ? from : to;
                worst = report(kDataError, "%s: outside the range of the %s conversion (%s)", text,
                               kCalendarNames[local], kRanges[local]);
                continue;
            }
            std::printf("%s\n", show(to, out).c_str());
        }
    }
    return worst;
}

} // namespace nus_cli
