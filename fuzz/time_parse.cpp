// Time parsing: a TIME record, a format and a text from the fuzzer's bytes (the text in a
// block of exactly its size); the parser stops inside the text, and what it returns is a
// Gregorian value the formatter takes.
#include "fuzz/time_record.h"

NUS_FUZZ_TARGET(time_parse) {
    using namespace nus_fuzz;
    environment();
    Input in(data, size);
    nu_locale_t h = locale(kTimeLocales[in.byte() % 4]);
    if (h == nullptr) return 0;
    FuzzTime record(h, in);
    std::string format = in.piece();
    format.erase(std::find(format.begin(), format.end(), '\0'), format.end());
    std::string text = in.rest();
    text.erase(std::find(text.begin(), text.end(), '\0'), text.end());
    Exact exact(text + std::string(4, '\0'));
    nu_time_rec t{};
    const char *end = nu_mbsptime(h, exact.chars(), format.c_str(), &t);
    if (end == nullptr) return 0;
    NUS_FUZZ_CHECK(end >= exact.chars() && end <= exact.chars() + text.size());
    NUS_FUZZ_CHECK(t.year >= 1 - 1900 && t.year <= 9999 - 1900 && t.month >= 0 && t.month <= 11);
    NUS_FUZZ_CHECK(t.wday == _nu_gregorian_weekday(t.mday, t.month, t.year + 1900));
    char out[64];
    // A calendar without conversion (4, Arabic, or a number no file gives) formats no date;
    // a text without one still parses to the Gregorian 1900-01-01.
    const bool convertible = h->time.calendar >= 1 && h->time.calendar <= 3;
    NUS_FUZZ_CHECK(nu_mbsftime(h, out, sizeof out, "%F %T", &t) >= 0 ||
                   *_nu_ext_errno(h) == NU_ESECOND ||
                   (!convertible && *_nu_ext_errno(h) == NU_EYEAR));
    return 0;
}
