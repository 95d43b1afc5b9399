// Time formatting: a TIME record, a format and a time value from the fuzzer's bytes, an
// output of exactly the size given; the result fits what was asked, the size query agrees
// with it, and the wide form agrees on success.
#include "fuzz/time_record.h"

NUS_FUZZ_TARGET(time_format) {
    using namespace nus_fuzz;
    environment();
    Input in(data, size);
    nu_locale_t h = locale(kTimeLocales[in.byte() % 4]);
    if (h == nullptr) return 0;
    FuzzTime record(h, in);
    const nu_time_rec t = time_value(in);
    const int room = in.range(0, 80);
    std::string format = in.rest();
    format.erase(std::find(format.begin(), format.end(), '\0'), format.end());
    const int needed = nu_mbsftime(h, nullptr, 0, format.c_str(), &t);
    Exact out(static_cast<size_t>(room));
    const int n = nu_mbsftime(h, out.chars(), room, format.c_str(), &t);
    if (room == 0) NUS_FUZZ_CHECK(n == needed);   // size 0 only measures
    else NUS_FUZZ_CHECK(n == -1 || (n == needed && n < room));
    if (needed >= 0 && room > needed + 3) NUS_FUZZ_CHECK(n == needed);
    // The wide form over the same format, widened by the locale.
    std::vector<nu_wchar> wide(format.size() + 1);
    const auto *p = reinterpret_cast<const unsigned char *>(format.c_str());
    const int chars = nu_mb_loc_max(h) == 1 ? _nu_is_mbstowcs(h, wide.data(), p, int(wide.size()))
                                            : _nu_im_mbstowcs(h, wide.data(), p, int(wide.size()));
    if (chars >= 0 && chars < int(wide.size())) {
        wide[static_cast<size_t>(chars)] = 0;
        Exact wout(sizeof(nu_wchar) * 96);
        const int wn = nu_wcsftime(h, reinterpret_cast<nu_wchar *>(wout.get()), 96, wide.data(), &t);
        NUS_FUZZ_CHECK(wn < 96);
        if (needed >= 0 && needed < 90 && nu_mb_loc_max(h) == 1) NUS_FUZZ_CHECK(wn == needed);
    }
    return 0;
}
