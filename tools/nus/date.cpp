// nus date: dates and times written and read in a locale by the library's time formatter
// and parser, in the locale's calendar, with its names, eras and digits.
#include "tools/nus/query_common.h"

#include <cstring>
#include <string>
#include <vector>

namespace nus_cli {

namespace {

constexpr const char *kHelp =
    "Usage: nus date -l LOCALE [+FORMAT] [DATE...]\n"
    "       nus date -l LOCALE --parse FORMAT TEXT...\n"
    "Write dates in a locale, or read dates written in it.\n"
    "\n"
    "The first form writes each DATE (now, from the clock, when none is given) by FORMAT\n"
    "(the locale's date and time format %c unless given), one line each, in the locale's\n"
    "code set and calendar. A DATE is Gregorian: YYYY-MM-DD, optionally followed by\n"
    "THH:MM, THH:MM:SS or THH:MM:SS.FFFFFF (a space may stand for the T), or @SECONDS\n"
    "since 1970-01-01 00:00:00.\n"
    "The second form reads each TEXT by FORMAT and shows the Gregorian value found, its\n"
    "weekday and day of the year, and what was left unread:\n"
    "    2024-02-29 13:05:00.000000  Thursday, day 60; unread \"\"\n"
    "\n"
    "FORMAT takes the conversions of strftime: %a %A %b %B %c %C %d %D %e %F %g %G %h %H %I\n"
    "%j %k %l %m %M %n %p %P %r %R %s %S %t %T %u %U %V %w %W %x %X %y %Y %z %Z %%, the\n"
    "flags _ - 0 ^ # and a width; %Ec %EC %Ex %EX %Ey %EY (eras), %Od %Oe %OH %OI %Om %OM\n"
    "%OS %Ou %OU %OV %Ow %OW %Oy (alternative digits), %Ob %OB (the second month names),\n"
    "and %f, %.Nf (the fraction of a second, N digits). A time carries no zone: %z and %Z\n"
    "write nothing.\n"
    "\n"
    "Options:\n"
    "  -l, --locale LOCALE   the locale (required)\n"
    "      --parse FORMAT    read TEXTs instead of writing DATEs\n"
    "  -h, --help            this help\n"
    "\n"
    "Exit status: 0 success, 1 a DATE or TEXT that could not be written or read (the\n"
    "others are still done), 2 usage error.\n";

constexpr const char *kWeekdays[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                     "Thursday", "Friday", "Saturday"};

// The clock, through the library's external-function table.
nu_time_rec now() {
    int record[12] = {};
    _nu_ext_currtime(record);
    nu_time_rec t{};
    t.second = record[1];
    t.minute = record[2];
    t.hour = record[3];
    t.mday = record[4];
    t.month = t.month_name = record[5];
    t.year = record[6];
    t.wday = record[7];
    t.yday = record[8];
    return t;
}

// A DATE operand, read by the library itself with fixed numeric formats.
bool read_date(nu_locale_t h, const char *text, nu_time_rec &t) {
    static const char *const kForms[] = {
        "%Y-%m-%dT%H:%M:%S.%f", "%Y-%m-%dT%H:%M:%S", "%Y-%m-%dT%H:%M", "%Y-%m-%d %H:%M:%S.%f",
        "%Y-%m-%d %H:%M:%S",    "%Y-%m-%d %H:%M",    "%Y-%m-%d",       "@%s"};
    for (const char *form : kForms) {
        nu_time_rec r{};
        const char *end = nu_mbsptime(h, text, form, &r);
        if (end != nullptr && *end == '\0') {
            t = r;
            return true;
        }
    }
    return false;
}

int write_date(nu_locale_t h, const std::string &format, const nu_time_rec &t, const char *what) {
    const int needed = nu_mbsftime(h, nullptr, 0, format.c_str(), &t);
    if (needed < 0)
        return report(kDataError, "%s: %s", what, error_text(*_nu_ext_errno(h)).c_str());
    std::vector<char> out(static_cast<size_t>(needed) + 4);
    const int n = nu_mbsftime(h, out.data(), static_cast<int>(out.size()), format.c_str(), &t);
    if (n < 0) return report(kDataError, "%s: %s", what, error_text(*_nu_ext_errno(h)).c_str());
    std::fwrite(out.data(), 1, static_cast<size_t>(n), stdout);
    std::fputc('\n', stdout);
    return kOk;
}

int parse_text(nu_locale_t h, const char *format, const char *text) {
    nu_time_rec t{};
    const char *end = nu_mbsptime(h, text, format, &t);
    if (end == nullptr)
        return report(kDataError, "%s: %s", quoted(text).c_str(),
                      error_text(*_nu_ext_errno(h)).c_str());
    std::printf("%04d-%02d-%02d %02d:%02d:%02d.%06d  %s, day %d; unread %s\n", t.year + 1900,
                t.month + 1, t.mday, t.hour, t.minute, t.second, t.fraction,
                t.wday >= 0 && t.wday < 7 ? kWeekdays[t.wday] : "?", t.yday + 1,
                quoted(end).c_str());
    return kOk;
}

} // namespace

int run_date(int argc, char **argv) {
    if (wants_help(argc, argv, kHelp)) return kOk;
    Arguments args;
    if (!args.parse(argc, argv, {{"locale", 'l', true}, {"parse", 0, true}})) return kUsage;
    std::vector<const char *> operands = args.operands();
    const char *parse_format = args.value("parse");
    if (parse_format != nullptr && operands.empty()) return usage_error("no TEXT given");
    if (parse_format == nullptr && !operands.empty() && operands[0][0] == '+' &&
        operands.size() > 1 && operands[1][0] == '+')
        return usage_error("more than one +FORMAT");
    Locale locale;
    if (const int status = load_locale_option(args, locale); status != kOk) return status;
    nu_locale_t h = locale.get();

    int worst = kOk;
    if (parse_format != nullptr) {
        for (const char *text : operands) {
            const int status = parse_text(h, parse_format, text);
            if (status > worst) worst = status;
        }
        return worst;
    }
    std::string format = "%c";
    if (!operands.empty() && operands[0][0] == '+') {
        format = operands[0] + 1;
        operands.erase(operands.begin());
    }
    if (operands.empty()) return write_date(h, format, now(), "now");
    for (const char *text : operands) {
        nu_time_rec t{};
        int status;
        if (!read_date(h, text, t))
            status = report(kDataError,
                            "'%s' is not a date (YYYY-MM-DD[THH:MM[:SS[.FFFFFF]]] or @SECONDS, "
                            "years 1 to 9999)",
                            text);
        else
            status = write_date(h, format, t, text);
        if (status > worst) worst = status;
    }
    return worst;
}

} // namespace nus_cli
