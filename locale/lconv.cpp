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

// ---- reading the sections -----------------------------------------------------------------

namespace {

constexpr int kMaxGroups = 15;

// Reads `count` pairs of hexadecimal digits into `out`; false on any other character.
bool read_hex_bytes(FILE *stream, char *out, long count) {
    Chars in(stream);
    for (long i = 0; i < count; ++i) {
        const int high = c_hexvalue(in.get());
        const int low = high < 0 ? -1 : c_hexvalue(in.get());
        if (low < 0) return false;
        out[i] = static_cast<char>(high * 16 + low);
    }
    return true;
}

} // namespace

// A string is its byte count, one blank (only when the count is positive), and the bytes as
// pairs of hexadecimal digits. The buffer has three spare zero bytes after the terminator.
char *str_readallc(FILE *stream, int *error) {
    long count = 0;
    if (!read_decimal(stream, &count) || count < 0 || count > INT32_MAX - 4) {
        *error = NU_EBADFILE;
        return nullptr;
    }
    Owned<char> text(alloc_zeroed<char>(static_cast<size_t>(count) + 4));
    if (!text) {
        *error = NU_ENOMEM;
        return nullptr;
    }
    if (count > 0) {
        if (Chars(stream).get() != ' ') {
            *error = NU_ENOFILE;
            return nullptr;
        }
        if (!read_hex_bytes(stream, text.get(), count)) {
            *error = NU_EBADFILE;
            return nullptr;
        }
    }
    _nu_skip_whitespace(stream);
    return text.release();
}

int read_group(FILE *stream, Grouping &group, int *error) {
    long count = 0;
    if (!read_decimal(stream, &count)) {
        *error = NU_EBADFILE;
        return -1;
    }
    clear_grouping(group);
    const long wanted = count > kMaxGroups ? kMaxGroups : count;
    for (long i = 0; i < wanted; ++i) {
        long size = 0;
        if (!read_decimal(stream, &size)) {
            *error = NU_EBADFILE;
            return -1;
        }
        group.sizes[i] = static_cast<int32_t>(size);
    }
    group.count = wanted > 0 ? static_cast<int32_t>(wanted) : 0;
    if (count > kMaxGroups) {
        *error = NU_ENOWIDTH;
        return -1;
    }
    return 0;
}

namespace {

// Reads strings into each field in turn; false at the first that fails (when checked). A
// refused allocation always stops the reading: the string's bytes were not consumed, so the
// fields after it would be read out of step and overwrite the code.
template <size_t N>
bool read_strings(FILE *stream, CatString *const (&fields)[N], int *error, bool checked) {
    bool ok = true;
    for (CatString *field : fields) {
        free_string(*field);
        field->mb = str_readallc(stream, error);
        if (field->mb == nullptr) {
            ok = false;
            if (checked || *error == NU_ENOMEM) return false;
        }
    }
    return ok;
}

} // namespace

} // namespace nus

namespace {
// A reader called on a category shared with other handles starts from its empty state: the
// shared strings are not this handle's to replace.
void unshare(nu_locale_rec *h, int category, void (*init)(nu_locale_rec *)) {
    if (h->shared[nus::cat_index(category)] == nullptr) return;
    init(h);
    nus::release_shared(h, category);
}
} // namespace

NU_EXPORT int _nu_read_numeric(FILE *stream, nu_locale_t h, int *error) {
    unshare(h, NU_NUMERIC, nus::init_numeric);
    nus::LconvFields &lc = h->lc;
    if (!nus::read_strings(stream, {&lc.decimal_point, &lc.thousands_sep}, error, true))
        return -1;
    if (nus::read_group(stream, lc.grouping, error) != 0) return -1;
    if (!nus::read_strings(stream, {&lc.positive_sign, &lc.negative_sign}, error, true))
        return -1;
    return 0;
}

NU_EXPORT int _nu_read_monetary(FILE *stream, nu_locale_t h, int *error) {
    unshare(h, NU_MONETARY, nus::init_monetary);
    nus::LconvFields &lc = h->lc;
    // The strings' own failures are deliberately not checked here, except for memory: the
    // load must then fail as a whole rather than go on out of step with the file.
    nus::read_strings(stream,
                      {&lc.int_curr_symbol, &lc.currency_symbol, &lc.mon_decimal_point,
                       &lc.mon_thousands_sep},
                      error, false);
    if (*error == NU_ENOMEM || nus::read_group(stream, lc.mon_grouping, error) != 0) return -1;
    nus::read_strings(stream, {&lc.mon_positive_sign, &lc.mon_negative_sign}, error, false);
    if (*error == NU_ENOMEM) return -1;
    for (int32_t &value : lc.mon_values) {
        long number = 0;
        if (!nus::read_decimal(stream, &number)) {
            *error = NU_EBADFILE;
            return -1;
        }
        value = static_cast<int32_t>(number);
    }
    return 0;
}

NU_EXPORT int _nu_read_messages(FILE *stream, nu_locale_t h, int *error) {
    unshare(h, NU_MESSAGES, nus::init_messages);
    nus::LconvFields &lc = h->lc;
    return nus::read_strings(stream,
                             {&lc.messages[0], &lc.messages[1], &lc.messages[2],
                              &lc.messages[3]},
                             error, true)
               ? 0
               : -1;
}

// ---- wide twins and the conventions record -------------------------------------------------

namespace nus {

namespace {

// Bytes of a category string in the handle's code set, terminator included (its characters
// may hold zero bytes in a code set of two-byte characters); 0 when it does not decode.
int string_bytes(nu_locale_rec *h, const char *mb) {
    return nu_mbsbytes(h, reinterpret_cast<const unsigned char *>(mb));
}

} // namespace

// The wide twin of a category string, by the CTYPE decoder; null for a null string.
bool widen_string(nu_locale_rec *h, CatString &s) {
    _nu_free_ptr(s.wide);
    s.wide = nullptr;
    if (s.mb == nullptr) return true;
    const int bytes = string_bytes(h, s.mb);
    if (bytes < 1) return false;
    s.wide = alloc_zeroed<nu_wchar>(static_cast<size_t>(bytes) + 1);
    if (s.wide == nullptr) {
        set_error(h, NU_ENOMEM);
        return false;
    }
    return h->to_wide(h, s.wide, reinterpret_cast<const unsigned char *>(s.mb), bytes + 1) >= 0;
}

// Whether the category strings can be widened: 1 yes, 0 CTYPE empty, -1 no table or no
// function pointers.
int can_widen(nu_locale_rec *h) {
    if (h->ctype.class_table == nullptr || set_flags(h) != 0) return -1;
    if (_nu_multi_max_length(h->ctype.class_table) == 0) {
        set_error(h, NU_ENOTLOADED);
        return 0;
    }
    return 1;
}

namespace {

template <size_t N>
bool widen_all(nu_locale_rec *h, CatString *const (&fields)[N]) {
    for (CatString *field : fields) {
        if (!widen_string(h, *field)) return false;
    }
    return true;
}

// A private copy of a category string and its twin.
bool copy_string(nu_locale_rec *h, CatString &to, const CatString &from) {
    to = {};
    if (from.mb == nullptr) return true;
    const int bytes = string_bytes(h, from.mb);
    const size_t length = bytes > 0 ? static_cast<size_t>(bytes) : std::strlen(from.mb) + 1;
    to.mb = alloc_zeroed<char>(length + 3);
    to.wide = alloc_zeroed<nu_wchar>(length + 1);
    if (to.mb == nullptr || to.wide == nullptr) {
        free_string(to);
        set_error(h, NU_ENOMEM);
        return false;
    }
    std::memcpy(to.mb, from.mb, length);
    if (from.wide != nullptr) {
        for (size_t i = 0; i < length && from.wide[i] != 0; ++i) to.wide[i] = from.wide[i];
    }
    return true;
}

// A grouping list as the conventions record shows it: one byte per size, zero-terminated.
bool copy_grouping(nu_locale_rec *h, CatString &to, const Grouping &from) {
    to = {};
    const int count = from.count < 0 ? 0 : from.count;
    to.mb = alloc_zeroed<char>(static_cast<size_t>(count) + 1);
    to.wide = alloc_zeroed<nu_wchar>(static_cast<size_t>(count) + 1);
    if (to.mb == nullptr || to.wide == nullptr) {
        free_string(to);
        set_error(h, NU_ENOMEM);
        return false;
    }
    for (int i = 0; i < count; ++i) {
        const int size = from.sizes[i] < 1 ? 1 : from.sizes[i] > 127 ? 127 : from.sizes[i];
        to.mb[i] = static_cast<char>(size);
        to.wide[i] = static_cast<nu_wchar>(size);
    }
    return true;
}

} // namespace

int load_nuconv_numeric(nu_locale_rec *h) {
    const LconvFields &lc = h->lc;
    ConvRecord &c = h->nuconv;
    const bool ok = copy_string(h, c.decimal_point, lc.decimal_point) &&
                    copy_string(h, c.thousands_sep, lc.thousands_sep) &&
                    copy_grouping(h, c.grouping, lc.grouping) &&
                    copy_string(h, c.positive_sign, lc.positive_sign) &&
                    copy_string(h, c.negative_sign, lc.negative_sign);
    return ok ? 0 : -1;
}

int load_nuconv_monetary(nu_locale_rec *h) {
    const LconvFields &lc = h->lc;
    ConvRecord &c = h->nuconv;
    const bool ok = copy_string(h, c.int_curr_symbol, lc.int_curr_symbol) &&
                    copy_string(h, c.currency_symbol, lc.currency_symbol) &&
                    copy_string(h, c.mon_decimal_point, lc.mon_decimal_point) &&
                    copy_string(h, c.mon_thousands_sep, lc.mon_thousands_sep) &&
                    copy_grouping(h, c.mon_grouping, lc.mon_grouping) &&
                    copy_string(h, c.mon_positive_sign, lc.mon_positive_sign) &&
                    copy_string(h, c.mon_negative_sign, lc.mon_negative_sign);
    for (int i = 0; i < 8; ++i) {
        const int32_t v = lc.mon_values[i];
        c.mon_values[i] = v == kNotAvailable || v < 0 || v > CHAR_MAX ? CHAR_MAX : static_cast<char>(v);
    }
    return ok ? 0 : -1;
}

int init_numeric_info(nu_locale_rec *h) {
    if (const int ready = can_widen(h); ready != 1) return ready;
    LconvFields &lc = h->lc;
    if (!widen_all(h, {&lc.decimal_point, &lc.thousands_sep, &lc.positive_sign,
                       &lc.negative_sign}))
        return -1;
    free_nuconv_numeric(h);
    return load_nuconv_numeric(h) == 0 ? 1 : -1;
}

int init_monetary_info(nu_locale_rec *h) {
    if (const int ready = can_widen(h); ready != 1) return ready;
    LconvFields &lc = h->lc;
    if (!widen_all(h, {&lc.int_curr_symbol, &lc.currency_symbol, &lc.mon_decimal_point,
                       &lc.mon_thousands_sep, &lc.mon_positive_sign, &lc.mon_negative_sign}))
        return -1;
    free_nuconv_monetary(h);
    return load_nuconv_monetary(h) == 0 ? 1 : -1;
}

int init_message_info(nu_locale_rec *h) {
    if (const int ready = can_widen(h); ready != 1) return ready;
    LconvFields &lc = h->lc;
    return widen_all(h, {&lc.messages[0], &lc.messages[1], &lc.messages[2], &lc.messages[3]})
               ? 1
               : -1;
}

void copy_lconv(int category, LconvFields &to, const LconvFields &from) {
    switch (category) {
    case NU_NUMERIC:
        to.decimal_point = from.decimal_point;
        to.thousands_sep = from.thousands_sep;
        to.grouping = from.grouping;
        to.positive_sign = from.positive_sign;
        to.negative_sign = from.negative_sign;
        break;
    case NU_MONETARY:
        to.int_curr_symbol = from.int_curr_symbol;
        to.currency_symbol = from.currency_symbol;
        to.mon_decimal_point = from.mon_decimal_point;
        to.mon_thousands_sep = from.mon_thousands_sep;
        to.mon_grouping = from.mon_grouping;
        to.mon_positive_sign = from.mon_positive_sign;
        to.mon_negative_sign = from.mon_negative_sign;
        std::memcpy(to.mon_values, from.mon_values, sizeof to.mon_values);
        break;
    case NU_MESSAGES:
        for (int i = 0; i < 4; ++i) to.messages[i] = from.messages[i];
        break;
    default:
        break;
    }
}

void copy_numeric(nu_locale_rec *dst, const nu_locale_rec *src) {
    copy_lconv(NU_NUMERIC, dst->lc, src->lc);
}
void copy_monetary(nu_locale_rec *dst, const nu_locale_rec *src) {
    copy_lconv(NU_MONETARY, dst->lc, src->lc);
}
void copy_messages(nu_locale_rec *dst, const nu_locale_rec *src) {
    copy_lconv(NU_MESSAGES, dst->lc, src->lc);
}

} // namespace nus

NU_EXPORT void _nu_init_numeric(nu_locale_t h) {
    if (nus::no_handle(h)) return;
    nus::init_numeric(h);
}
NU_EXPORT void _nu_init_monetary(nu_locale_t h) {
    if (nus::no_handle(h)) return;
    nus::init_monetary(h);
}
NU_EXPORT void _nu_init_messages(nu_locale_t h) {
    if (nus::no_handle(h)) return;
    nus::init_messages(h);
}
NU_EXPORT void _nu_copy_numeric(nu_locale_t dst, nu_locale_t src) {
    if (nus::no_handle(dst) || nus::no_handle(src)) return;
    nus::copy_numeric(dst, src);
}
NU_EXPORT void _nu_copy_monetary(nu_locale_t dst, nu_locale_t src) {
    if (nus::no_handle(dst) || nus::no_handle(src)) return;
    nus::copy_monetary(dst, src);
}
NU_EXPORT void _nu_copy_messages(nu_locale_t dst, nu_locale_t src) {
    if (nus::no_handle(dst) || nus::no_handle(src)) return;
    nus::copy_messages(dst, src);
}

static_assert(sizeof(nu_lconv) == sizeof(nus::ConvRecord), "conventions record layout");
static_assert(offsetof(nu_lconv, int_frac_digits) == offsetof(nus::ConvRecord, mon_values));

NU_EXPORT const nu_lconv *nu_localeconv(nu_locale_t h) {
    if (nus::no_handle(h)) return nullptr;
    return reinterpret_cast<const nu_lconv *>(&h->nuconv);
}

// ---- single items ---------------------------------------------------------------------------

namespace {

constexpr int kLastItem = 73;

// One item: the string and its wide twin, or null with the error to store (0 for none).
struct Item {
    const char *mb;
    const nu_wchar *wide;
    int error;
};

Item item_of(nu_locale_rec *h, int item) {
    static const nu_wchar kNoWide[1] = {0};
    const nus::LconvFields &lc = h->lc;
    auto text = [](const nus::CatString &s) { return Item{s.mb, s.wide, 0}; };
    if (item >= 55 && item <= 60) {
        switch (item) {
        case 55: return text(lc.decimal_point);
        case 56: return text(lc.thousands_sep);
        case 57: return text(lc.messages[2]);
        case 58: return text(lc.messages[3]);
        case 59: return text(lc.currency_symbol);
        default: return {h->codeset[nus::cat_index(NU_NUMERIC)], h->wcodeset[nus::cat_index(NU_NUMERIC)], 0};
        }
    }
    if (item == 71) return text(lc.messages[0]);
    if (item == 72) return text(lc.messages[1]);
    if (item == 73) {
        for (const nu_calendar_entry *c = nus_canned_calendars; c->name != nullptr; ++c) {
            if (c->number == h->time.calendar) return {c->name, c->wname, 0};
        }
        return {nullptr, nullptr, 0};
    }
    // TIME, in the order of its record: see nu_nl_langinfo in nus.h.
    const nus::TimeFields &t = h->time;
    const nus::CatString *s = nullptr;
    if (item == 0) s = &t.date_time_format;
    else if (item <= 7) s = &t.abday[item - 1];
    else if (item <= 14) s = &t.day[item - 8];
    else if (item <= 34) {
        if (item - 14 > t.month_count) return {nullptr, nullptr, NU_EBADVAL};
        s = &t.mon[item - 15];
    } else if (item <= 54) {
        if (item - 34 > t.alt_month_count) return {nullptr, nullptr, NU_EBADVAL};
        s = &t.alt_mon[item - 35];
    } else {
        static constexpr nus::CatString nus::TimeFields::*kFormats[] = {
            &nus::TimeFields::date_format,          &nus::TimeFields::time_format,
            &nus::TimeFields::time_format_ampm,     &nus::TimeFields::am,
            &nus::TimeFields::pm,                   &nus::TimeFields::date_cmd_format,
            &nus::TimeFields::era_date_time_format, &nus::TimeFields::era_date_format,
            &nus::TimeFields::era_time_format,      &nus::TimeFields::era_year};
        s = &(t.*kFormats[item - 61]);
    }
    // A record never read (a handle zeroed by hand) answers the empty text.
    if (s->mb == nullptr) return {"", kNoWide, 0};
    return {s->mb, s->wide != nullptr ? s->wide : kNoWide, 0};
}

} // namespace

NU_EXPORT const char *nu_nl_langinfo(nu_locale_t h, int item) {
    if (h == nullptr || item < 0 || item > kLastItem) return nullptr;
    const Item it = item_of(h, item);
    if (it.error != 0) nus::set_error(h, it.error);
    return it.mb;
}

NU_EXPORT const nu_wchar *nu_wc_nl_langinfo(nu_locale_t h, int item) {
    if (h == nullptr || item < 0 || item > kLastItem) return nullptr;
    const Item it = item_of(h, item);
    if (it.error != 0) nus::set_error(h, it.error);
    return it.wide;
}
