// The TIME section: LC_TIME of a locale definition (or a local calendar's names) in the
// layout the library's reader documents (time/category.cpp). What a definition leaves out
// takes the value glibc's localedef gives it, so that both compilers agree item for item.
#include "tools/localedef/compile.h"

#include <climits>
#include <cstdlib>

namespace nus::tools {

namespace {

constexpr const char *kCDays[] = {"Sunday", "Monday", "Tuesday", "Wednesday",
                                  "Thursday", "Friday", "Saturday"};
constexpr const char *kCMonths[] = {"January", "February", "March", "April", "May", "June",
                                    "July", "August", "September", "October", "November",
                                    "December"};
constexpr const char *kCAmPm[] = {"AM", "PM"};
constexpr size_t kMaxAltDigits = 100;
constexpr size_t kMaxMonths = 20;
constexpr size_t kMaxEras = 1024;

UString ascii(const std::string &s) { return UString(s.begin(), s.end()); }

struct Era {
    int direction = 1;
    long offset = 0;
    long start[3] = {0, 0, 0};
    long end[3] = {0, 0, 0};
    UString name, format;
};

// One end of an era: "yyyy/mm/dd" (a negative year counts before year 1: -1 is 1 BC, year 0
// astronomically), "-*" or "+*" (open, month and day 0).
bool era_date(const std::string &text, long (&date)[3]) {
    if (text == "-*" || text == "+*") {
        date[0] = text[0] == '-' ? INT32_MIN : INT32_MAX;
        date[1] = date[2] = 0;
        return true;
    }
    const char *p = text.c_str();
    char *end = nullptr;
    for (int k = 0; k < 3; ++k) {
        date[k] = std::strtol(p, &end, 10);
        if (end == p || *end != (k < 2 ? '/' : '\0')) return false;
        p = end + 1;
    }
    if (date[0] < 0) ++date[0];
    return date[0] > INT32_MIN && date[0] < INT32_MAX && date[1] >= 1 && date[1] <= 12 &&
           date[2] >= 1 && date[2] <= 31;
}

// "direction:offset:start:end:name:format"; the format is the rest, colons included.
bool parse_era(const UString &text, Era &era) {
    std::vector<UString> fields(1);
    for (uint32_t c : text) {
        if (c == ':' && fields.size() < 6) fields.emplace_back();
        else fields.back().push_back(c);
    }
    if (fields.size() != 6) return false;
    std::string numbers[4];
    for (int k = 0; k < 4; ++k) {
        for (uint32_t c : fields[static_cast<size_t>(k)]) {
            if (c >= 0x80) return false;
            numbers[k] += static_cast<char>(c);
        }
    }
    if (numbers[0] != "+" && numbers[0] != "-") return false;
    era.direction = numbers[0] == "+" ? 1 : -1;
    char *end = nullptr;
    era.offset = std::strtol(numbers[1].c_str(), &end, 10);
    if (numbers[1].empty() || *end != '\0' || era.offset < INT32_MIN || era.offset > INT32_MAX)
        return false;
    if (!era_date(numbers[2], era.start) || !era_date(numbers[3], era.end)) return false;
    era.name = fields[4];
    era.format = fields[5];
    return true;
}

class TimeWriter {
public:
    TimeWriter(const SourceLocale &source, const Charmap &charmap, FILE *out,
               CompileReport &report)
        : source_(source), charmap_(charmap), out_(out), report_(report) {}

    const std::vector<Value> *values(const char *key) const {
        return source_.values("LC_TIME", key);
    }

    // The strings of a keyword, or nothing when it is not defined.
    std::optional<std::vector<UString>> list(const char *key) const {
        const auto *v = values(key);
        if (v == nullptr) return std::nullopt;
        std::vector<UString> out;
        for (const Value &value : *v)
            out.push_back(value.is_string ? value.text : ascii(std::to_string(value.number)));
        return out;
    }

    // A list of exactly `count` strings: padded with empty ones or cut, with a warning.
    std::vector<UString> sized(const char *key, std::vector<UString> items, size_t count) {
        if (items.size() != count) {
            warn(std::string(key) + " has " + std::to_string(items.size()) + " strings instead of " +
                 std::to_string(count));
            items.resize(count);
        }
        return items;
    }

    std::vector<UString> list_or(const char *key, size_t count, const char *const *fallback,
                                 size_t cut = 0) {
        if (auto items = list(key)) return sized(key, *items, count);
        std::vector<UString> out;
        for (size_t i = 0; i < count; ++i) {
            const std::string s = fallback[i];
            out.push_back(ascii(cut > 0 ? s.substr(0, cut) : s));
        }
        return out;
    }

    std::optional<UString> single(const char *key) const {
        auto items = list(key);
        if (!items || items->empty()) return std::nullopt;
        return items->front();
    }

    long number(const char *key, size_t index, long fallback) const {
        const auto *v = values(key);
        size_t seen = 0;
        if (v != nullptr) {
            for (const Value &value : *v) {
                if (value.is_string) continue;
                if (seen++ == index) return value.number;
            }
        }
        return fallback;
    }

    void text(const UString &s, const std::string &what) {
        auto bytes = encode(charmap_, source_, s);
        if (!bytes) warn(what + ": a character is not in the code set; left empty");
        write_string(out_, bytes.value_or(std::string()));
    }

    void texts(const std::vector<UString> &items, const char *what) {
        for (size_t i = 0; i < items.size(); ++i)
            text(items[i], std::string(what) + " " + std::to_string(i + 1));
    }

    void warn(const std::string &message) { report_.warnings.push_back("LC_TIME " + message); }

    FILE *out() const { return out_; }

private:
    const SourceLocale &source_;
    const Charmap &charmap_;
    FILE *out_;
    CompileReport &report_;
};

} // namespace

std::optional<std::string> write_time(const SourceLocale &source, const Charmap &charmap,
                                      const CompileOptions &options, FILE *out,
                                      CompileReport &report) {
    TimeWriter w(source, charmap, out, report);
    const CalendarNames *local = options.calendar;

    std::vector<UString> abday = w.list_or("abday", 7, kCDays, 3);
    std::vector<UString> day = w.list_or("day", 7, kCDays);
    std::vector<UString> abmon = w.list_or("abmon", 12, kCMonths, 3);
    std::vector<UString> mon = w.list_or("mon", 12, kCMonths);
    // The second month list: when a definition gives only one of its two halves, the other is
    // the first list's (as glibc's localedef has it); none at all: no second list.
    std::vector<UString> alt_mon, ab_alt_mon;
    const auto alt = w.list("alt_mon");
    const auto ab_alt = w.list("ab_alt_mon");
    if (alt || ab_alt) {
        alt_mon = alt ? w.sized("alt_mon", *alt, 12) : mon;
        ab_alt_mon = ab_alt ? w.sized("ab_alt_mon", *ab_alt, 12) : abmon;
    }
    if (local != nullptr) {
        if (local->mon.size() < 12 || local->mon.size() > kMaxMonths ||
            local->abmon.size() != local->mon.size() || local->day.size() != 7 ||
            local->abday.size() != 7 ||
            (!local->alt_mon.empty() && local->alt_mon.size() != local->mon.size()) ||
            local->ab_alt_mon.size() != local->alt_mon.size())
            return std::string("the calendar's name lists have the wrong lengths");
        abday = local->abday;
        day = local->day;
        abmon = local->abmon;
        mon = local->mon;
        alt_mon = local->alt_mon;
        ab_alt_mon = local->ab_alt_mon;
    }

    std::vector<UString> am_pm = w.list_or("am_pm", 2, kCAmPm);
    const UString t_fmt = w.single("t_fmt").value_or(ascii("%H:%M:%S"));
    // Without t_fmt_ampm: the 24-hour format when there are no am/pm strings, else the
    // POSIX one.
    const UString t_fmt_ampm = w.single("t_fmt_ampm").value_or(
        am_pm[0].empty() && am_pm[1].empty() ? t_fmt : ascii("%I:%M:%S %p"));

    std::vector<Era> eras;
    if (auto segments = w.list("era")) {
        for (size_t i = 0; i < segments->size(); ++i) {
            Era era;
            if (!parse_era((*segments)[i], era)) {
                w.warn("era " + std::to_string(i + 1) + " is malformed; left out");
                continue;
            }
            if (eras.size() == kMaxEras) {
                w.warn("more than " + std::to_string(kMaxEras) + " era segments; the rest left out");
                break;
            }
            eras.push_back(era);
        }
    }
    std::vector<UString> digits = w.list("alt_digits").value_or(std::vector<UString>{});
    if (digits.size() > kMaxAltDigits) {
        w.warn("more than 100 alt_digits; the rest left out");
        digits.resize(kMaxAltDigits);
    }

    // week: days in a week, a date of a first day of the week, days the first week of a year
    // needs; then the first weekday and workday, counted from that day as 1.
    long week_days = w.number("week", 0, 7);
    long week_start = w.number("week", 1, 19971130);
    long week_min = w.number("week", 2, 7);
    if (week_days < 1 || week_days > 7) {
        w.warn("week: the number of days must be 1 to 7; 7 is taken");
        week_days = 7;
    }
    if (week_start < 0 || week_start > INT32_MAX) {
        w.warn("week: bad date of the first day; 19971130 is taken");
        week_start = 19971130;
    }
    auto day_number = [&](const char *what, long value, long fallback) {
        if (value >= 1 && value <= week_days) return value;
        w.warn(std::string(what) + " must be 1 to " + std::to_string(week_days) + "; " +
               std::to_string(fallback) + " is taken");
        return fallback;
    };
    week_min = day_number("week: the days of the first week", week_min, week_days);
    const long first_weekday = day_number("first_weekday", w.number("first_weekday", 0, 1), 1);
    const long first_workday =
        day_number("first_workday", w.number("first_workday", 0, 2), week_days >= 2 ? 2 : 1);

    const int calendar = local != nullptr ? local->calendar : 1;
    std::fprintf(out, "%d %zu %zu %zu %zu\n", calendar, mon.size(), alt_mon.size(), eras.size(),
                 digits.size());
    std::fprintf(out, "%ld %ld %ld %ld %ld\n", week_days, week_start, week_min, first_weekday,
                 first_workday);
    w.text(w.single("d_t_fmt").value_or(ascii("%a %b %e %H:%M:%S %Y")), "d_t_fmt");
    w.texts(abday, "abday");
    w.texts(day, "day");
    w.texts(mon, "mon");
    w.texts(alt_mon, "alt_mon");
    w.text(w.single("d_fmt").value_or(ascii("%m/%d/%y")), "d_fmt");
    w.text(t_fmt, "t_fmt");
    w.text(t_fmt_ampm, "t_fmt_ampm");
    w.texts(am_pm, "am_pm");
    w.text(w.single("date_fmt").value_or(ascii("%a %b %e %H:%M:%S %Z %Y")), "date_fmt");
    for (const char *key : {"era_d_t_fmt", "era_d_fmt", "era_t_fmt", "era_year"})
        w.text(w.single(key).value_or(UString{}), key);
    w.texts(abmon, "abmon");
    w.texts(ab_alt_mon, "ab_alt_mon");
    for (size_t i = 0; i < eras.size(); ++i) {
        const Era &e = eras[i];
        std::fprintf(out, "%d %ld %ld %ld %ld %ld %ld %ld\n", e.direction, e.offset, e.start[0],
                     e.start[1], e.start[2], e.end[0], e.end[1], e.end[2]);
        w.text(e.name, "era " + std::to_string(i + 1) + " name");
        w.text(e.format, "era " + std::to_string(i + 1) + " format");
    }
    w.texts(digits, "alt_digits");
    return std::nullopt;
}

} // namespace nus::tools
