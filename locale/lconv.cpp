// NUMERIC, MONETARY and MESSAGES fields: empty states and release, and the same for the
// caller-visible conventions record built from them.
#include "locale/locale.h"

#include <climits>

namespace nus {

void free_string(CatString &s) {
    _nu_free_ptr(s.mb);
    _nu_free_ptr(s.wide);
    s.mb = nullptr;
    s.wide = nullptr;
}

namespace {

void clear_grouping(Grouping &g) {
    g.count = 0;
    for (int32_t &size : g.sizes) size = 0;
}

template <size_t N>
void free_strings(CatString *const (&strings)[N]) {
    for (CatString *s : strings) free_string(*s);
}

} // namespace

void init_numeric(nu_locale_rec *h) {
    LconvFields &lc = h->lc;
    lc.decimal_point = {};
    lc.thousands_sep = {};
    clear_grouping(lc.grouping);
    lc.positive_sign = {};
    lc.negative_sign = {};
}

void init_monetary(nu_locale_rec *h) {
    LconvFields &lc = h->lc;
    lc.int_curr_symbol = {};
    lc.currency_symbol = {};
    lc.mon_decimal_point = {};
    lc.mon_thousands_sep = {};
    clear_grouping(lc.mon_grouping);
    lc.mon_positive_sign = {};
    lc.mon_negative_sign = {};
    for (int32_t &value : lc.mon_values) value = kNotAvailable;
}

void init_messages(nu_locale_rec *h) {
    for (CatString &s : h->lc.messages) s = {};
}

void free_numeric(nu_locale_rec *h) {
    LconvFields &lc = h->lc;
    free_strings({&lc.decimal_point, &lc.thousands_sep, &lc.positive_sign, &lc.negative_sign});
    init_numeric(h);
}

void free_monetary(nu_locale_rec *h) {
    LconvFields &lc = h->lc;
    free_strings({&lc.int_curr_symbol, &lc.currency_symbol, &lc.mon_decimal_point,
                  &lc.mon_thousands_sep, &lc.mon_positive_sign, &lc.mon_negative_sign});
    init_monetary(h);
}

void free_messages(nu_locale_rec *h) {
    for (CatString &s : h->lc.messages) free_string(s);
}

void init_nuconv_numeric(nu_locale_rec *h) {
    ConvRecord &c = h->nuconv;
    c.decimal_point = {};
    c.thousands_sep = {};
    c.grouping = {};
    c.positive_sign = {};
    c.negative_sign = {};
}

void init_nuconv_monetary(nu_locale_rec *h) {
    ConvRecord &c = h->nuconv;
    c.int_curr_symbol = {};
    c.currency_symbol = {};
    c.mon_decimal_point = {};
    c.mon_thousands_sep = {};
    c.mon_grouping = {};
    c.mon_positive_sign = {};
    c.mon_negative_sign = {};
    for (char &value : c.mon_values) value = CHAR_MAX;   // not available
}

void free_nuconv_numeric(nu_locale_rec *h) {
    ConvRecord &c = h->nuconv;
    free_strings({&c.decimal_point, &c.thousands_sep, &c.grouping, &c.positive_sign,
                  &c.negative_sign});
}

void free_nuconv_monetary(nu_locale_rec *h) {
    ConvRecord &c = h->nuconv;
    free_strings({&c.int_curr_symbol, &c.currency_symbol, &c.mon_decimal_point,
                  &c.mon_thousands_sep, &c.mon_grouping, &c.mon_positive_sign,
                  &c.mon_negative_sign});
    init_nuconv_monetary(h);
}

} // namespace nus
