// Locales for the number and money tests: a hand-made fixture whose NUMERIC and MONETARY
// strings a test sets as it needs them, and wide-string helpers.
#pragma once

#include "frame/handle.h"
#include "locale/locale.h"
#include "support/support.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace nus_test {

// A wide string from ASCII or Latin-1 text (one character per byte) or from explicit values.
inline std::vector<nu_wchar> W(const std::string &s) {
    std::vector<nu_wchar> out;
    for (unsigned char c : s) out.push_back(c);
    out.push_back(0);
    return out;
}

inline std::string narrow(const nu_wchar *w) {
    std::string out;
    for (; *w != 0; ++w) out += *w < 0x100 ? static_cast<char>(*w) : '?';
    return out;
}

// Replaces one category string of a loaded handle (its wide twin made by the handle). The
// handle's categories are made its own first: loaded tables are otherwise shared with later
// handles of the same file and never change.
inline void set_string(nu_locale_t h, nus::CatString &s, const std::string &mb) {
    nus::own_unshared(h);
    nus::free_string(s);
    s.mb = static_cast<char *>(_nu_alloc_ptr(mb.size() + 4));
    std::memset(s.mb, 0, mb.size() + 4);
    std::memcpy(s.mb, mb.data(), mb.size());
    s.wide = static_cast<nu_wchar *>(_nu_alloc_ptr((mb.size() + 1) * sizeof(nu_wchar)));
    h->to_wide(h, s.wide, reinterpret_cast<const unsigned char *>(s.mb),
               static_cast<int>(mb.size() + 1));
}

inline void set_grouping(nus::Grouping &g, const std::vector<int> &sizes) {
    g.count = static_cast<int32_t>(sizes.size());
    for (size_t i = 0; i < 15; ++i) g.sizes[i] = i < sizes.size() ? sizes[i] : 0;
}

inline void set_numeric(nu_locale_t h, const std::string &point, const std::string &sep,
                        const std::vector<int> &grouping, const std::string &pos = "",
                        const std::string &neg = "-") {
    set_string(h, h->lc.decimal_point, point);
    set_string(h, h->lc.thousands_sep, sep);
    set_grouping(h->lc.grouping, grouping);
    set_string(h, h->lc.positive_sign, pos);
    set_string(h, h->lc.negative_sign, neg);
}

// values: frac digits (international, national), then p_cs_precedes, p_sep_by_space,
// n_cs_precedes, n_sep_by_space, p_sign_posn, n_sign_posn.
inline void set_monetary(nu_locale_t h, const std::string &intl, const std::string &symbol,
                         const std::string &point, const std::string &sep,
                         const std::vector<int> &grouping, const std::string &pos,
                         const std::string &neg, const std::vector<int> &values) {
    set_string(h, h->lc.int_curr_symbol, intl);
    set_string(h, h->lc.currency_symbol, symbol);
    set_string(h, h->lc.mon_decimal_point, point);
    set_string(h, h->lc.mon_thousands_sep, sep);
    set_grouping(h->lc.mon_grouping, grouping);
    set_string(h, h->lc.mon_positive_sign, pos);
    set_string(h, h->lc.mon_negative_sign, neg);
    for (int i = 0; i < 8; ++i) h->lc.mon_values[i] = values.at(static_cast<size_t>(i));
}

// Runs `call` (which writes into a buffer of `size` bytes) with a canary after the size;
// the text written, or "<fail N>" with the error code. A write past the size, or a result
// other than the text's length, is a test failure.
template <typename Call>
std::string guarded_text(nu_locale_t h, int size, const char *format, Call call) {
    std::vector<char> out(static_cast<size_t>(size) + 16, '#');
    *_nu_ext_errno(h) = 0;
    const int n = call(out.data());
    for (size_t i = static_cast<size_t>(size); i < out.size(); ++i)
        if (out[i] != '#') ADD_FAILURE() << "write past the size for " << format;
    if (n < 0) return "<fail " + std::to_string(*_nu_ext_errno(h)) + ">";
    EXPECT_EQ(static_cast<size_t>(n), std::strlen(out.data())) << format;
    return out.data();
}

// The Latin-1 fixture: decimal point ".", separator ",", grouping 3;3, signs "" and "-".
#define NUS_FIXTURE(var) NUS_LOAD_OR_SKIP(var, "xx_yy/0333.lco")

} // namespace nus_test
