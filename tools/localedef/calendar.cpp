// The month and day names of a local calendar, from ICU's data through its C API, for
// nus-localedef --calendar. Only the compiler links ICU; the library never does.
#include "tools/localedef/calendar.h"

#include <unicode/udat.h>
#include <unicode/ustring.h>
#include <unicode/utf16.h>

#include <memory>

namespace nus::tools {

namespace {

struct FormatCloser {
    void operator()(UDateFormat *f) const { udat_close(f); }
};
using Format = std::unique_ptr<UDateFormat, FormatCloser>;

// The symbols of one kind, as code points; empty when ICU has none.
std::vector<UString> symbols(UDateFormat *format, UDateFormatSymbolType type) {
    std::vector<UString> out;
    const int32_t count = udat_countSymbols(format, type);
    for (int32_t i = 0; i < count; ++i) {
        UErrorCode status = U_ZERO_ERROR;
        UChar buffer[256];
        const int32_t length = udat_getSymbols(format, type, i, buffer, 256, &status);
        if (U_FAILURE(status) || length > 256) return {};
        UString text;
        for (int32_t k = 0; k < length;) {
            UChar32 c;
            U16_NEXT(buffer, k, length, c);
            text.push_back(static_cast<uint32_t>(c));
        }
        out.push_back(std::move(text));
    }
    return out;
}

// ICU's Hebrew months run Tishri .. Shevat, Adar I, Adar, Nisan .. Elul, and Adar II last
// (14 symbols). The library's month-name indices: 0-4 Tishri .. Shevat, 5 Adar, 6-11 Nisan ..
// Elul, 12 Adar I, 13 Adar II.
std::vector<UString> hebrew_order(const std::vector<UString> &icu) {
    if (icu.size() != 14) return {};
    std::vector<UString> out(icu.begin(), icu.begin() + 5);
    out.push_back(icu[6]);
    out.insert(out.end(), icu.begin() + 7, icu.begin() + 13);
    out.push_back(icu[5]);
    out.push_back(icu[13]);
    return out;
}

// Sunday first: ICU numbers the weekdays from 1 (Sunday), leaving entry 0 empty.
std::vector<UString> weekdays(const std::vector<UString> &icu) {
    if (icu.size() != 8) return {};
    return std::vector<UString>(icu.begin() + 1, icu.end());
}

} // namespace

std::optional<std::string> calendar_names(const std::string &calendar,
                                          const std::string &locale_name, CalendarNames &out) {
    out = CalendarNames{};
    std::string icu_calendar;
    if (calendar == "hebrew") {
        out.calendar = 2;
        icu_calendar = "hebrew";
    } else if (calendar == "islamic") {
        out.calendar = 3;
        // The arithmetic calendar of 30-year cycles; its month names are those of every
        // Islamic calendar ICU has.
        icu_calendar = "islamic-civil";
    } else {
        return "unknown calendar \"" + calendar + "\" (hebrew or islamic)";
    }
    const std::string language = locale_name.substr(0, locale_name.find_first_of(".@"));
    const std::string icu_locale = language + "@calendar=" + icu_calendar;
    UErrorCode status = U_ZERO_ERROR;
    Format format(udat_open(UDAT_NONE, UDAT_DEFAULT, icu_locale.c_str(), nullptr, 0, nullptr, 0,
                            &status));
    if (U_FAILURE(status) || format == nullptr)
        return "ICU has no date format for " + icu_locale + ": " + u_errorName(status);
    auto months = [&](UDateFormatSymbolType type) {
        std::vector<UString> list = symbols(format.get(), type);
        return out.calendar == 2 ? hebrew_order(list) : list;
    };
    out.mon = months(UDAT_MONTHS);
    out.abmon = months(UDAT_SHORT_MONTHS);
    out.alt_mon = months(UDAT_STANDALONE_MONTHS);
    out.ab_alt_mon = months(UDAT_STANDALONE_SHORT_MONTHS);
    out.day = weekdays(symbols(format.get(), UDAT_WEEKDAYS));
    out.abday = weekdays(symbols(format.get(), UDAT_SHORT_WEEKDAYS));
    const size_t expected = out.calendar == 2 ? 14 : 12;
    if (out.mon.size() != expected || out.abmon.size() != expected || out.day.size() != 7 ||
        out.abday.size() != 7)
        return "ICU's month or day names for " + icu_locale + " are incomplete";
    // A second list only where the stand-alone forms differ from the format forms.
    if (out.alt_mon == out.mon && out.ab_alt_mon == out.abmon) out.alt_mon.clear();
    if (out.alt_mon.size() != expected || out.ab_alt_mon.size() != expected) {
        out.alt_mon.clear();
        out.ab_alt_mon.clear();
    }
    return std::nullopt;
}

} // namespace nus::tools
