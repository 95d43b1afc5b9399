// Runs a loaded locale through its tables: what a data file let through must not make the
// functions that use it read or write out of bounds.
#pragma once

#include "fuzz/fuzz.h"

namespace nus_fuzz {

inline void exercise_locale(nu_locale_t h, const std::string &sample) {
    const int zeros = nu_mb_loc_min(h);
    if (zeros < 1 || zeros > 4) return;
    const std::string texts[] = {sample.substr(0, 24), "abc", "Zoë", "\xe4\xf6\xfc",
                                 "\x82\xa0\x82\xa2", "\xa4\xa2\xa4\xa4", "\xc3\xa9t\xc3\xa9",
                                 "\xe0\xb8\x81\xe0\xb8\x82", "\xa1\xa1 1,234.5"};
    for (const std::string &t : texts) {
        Exact s = terminated(t, zeros);
        (void)nu_full_mblen(h, s.get(), static_cast<int>(t.size()));
        nu_wchar wc = 0;
        (void)_tsn_nu_full_mbtowc(h, &wc, s.get(), static_cast<int>(t.size()));
        unsigned char back[8];
        (void)nu_full_wctomb(h, back, wc);
        const int need = nu_full_mbsxfrm(h, nullptr, s.get(), 0);
        if (need >= 0 && need < 1 << 16) {
            Exact key(static_cast<size_t>(need) + 1);
            (void)nu_full_mbsxfrm(h, key.get(), s.get(), need + 1);
        }
        for (const std::string &u : texts) {
            Exact other = terminated(u, zeros);
            (void)nu_full_mbscoll(h, s.get(), other.get());
            (void)_tsn_nu_full_mbscoll(h, s.get(), static_cast<int>(t.size()), other.get(),
                                       static_cast<int>(u.size()));
        }
        const int room = nu_case_conv_outbuflen(h, static_cast<int>(t.size() + zeros));
        if (room > 0 && room < 1 << 16) {
            Exact upper(static_cast<size_t>(room));
            (void)nu_tombsupper(h, upper.get(), s.get());
        }
        unsigned char bound[64];
        (void)nu_mbsCollBound(h, s.get(), 1, bound, sizeof bound);
        (void)nu_mbswidth(h, s.get(), static_cast<int>(t.size()));
        char *end = nullptr;
        (void)nu_mbstod(h, reinterpret_cast<const char *>(s.get()), &end, 1);
    }
    (void)nu_localeconv(h);
    for (int item = 0; item < 80; ++item) {
        (void)nu_nl_langinfo(h, item);
        (void)nu_wc_nl_langinfo(h, item);
    }
    char out[96];
    (void)nu_mbsfnum(h, out, sizeof out, "%'.2f|%'d|%s", 1234567.891, -1234567, "x");
    (void)nu_mbsfmon(h, out, sizeof out, "%n|%i|%(#5.1n", -1234.5, 98765.25, -0.5);
    double amount = 0;
    (void)nu_mbspmon(h, "1,234.56", "%n", &amount);
}

} // namespace nus_fuzz
