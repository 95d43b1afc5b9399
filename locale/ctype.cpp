// The CTYPE category: reading its section, classification and case mapping.
#include "chars/chars.h"
#include "locale/locale.h"
#include "locale/nuu.h"

#include <climits>
#include <cmath>

namespace {

constexpr int kClassNameSize = 128;   // words of at most 127 characters

struct ClassEntry {
    const char *name;
    uint16_t mask;
};

// Standard classes in the order they are compared.
constexpr ClassEntry kStandardClasses[] = {
    {"alpha", 4},   {"lower", 2},    {"upper", 1},    {"digit", 8},
    {"xdigit", 512}, {"alnum", 12},  {"blank", 1024}, {"space", 16},
    {"punct", 64},  {"graph", 128},  {"print", 256},  {"cntrl", 32},
};

// The 16-bit value a table holds for a wide character (its bytes found by the table's own
// structure, as _nu_retrieve_wchar_multi_nl finds them), 0 when the table has none.
[[gnu::always_inline]] inline uint16_t value_of(const multi_t *table, nu_wchar wc) {
    unsigned char bytes[4];
    const multi_arr_t *leaf = nullptr;
    if (nus::encode_in(table, bytes, wc, &leaf) == 0) return 0;
    return nus::leaf_value(table, nus::Walk{0, wc, 0, leaf});
}

// The class-table value of a wide character, 0 when the table has none.
uint16_t class_of(nu_locale_rec *h, nu_wchar wc) { return value_of(h->ctype.class_table, wc); }

uint16_t case_index(nu_locale_rec *h, nu_wchar wc) { return value_of(h->ctype.case_table, wc); }

void free_class_names(nus::CtypeFields &ct, int32_t count) {
    for (int32_t i = 0; i < count; ++i) {
        _nu_free_ptr(ct.class_names[i].name);
        ct.class_names[i].name = nullptr;
    }
}

} // namespace

namespace nus {

// White space, then up to eight hexadecimal digits; false when there is none.
bool read_nu_wchar(FILE *stream, nu_wchar *wc) {
    Chars in(stream);
    if (InputBlock *block = in.block()) {
        // From memory when the field ends inside the block.
        unsigned char *p = block->pos;
        unsigned char *const end = block->end;
        while (p < end && c_isspace(*p)) ++p;
        nu_wchar value = 0;
        int digits = 0;
        for (; digits < 8 && p < end; ++digits, ++p) {
            const int d = c_hexvalue(*p);
            if (d < 0) break;
            value = value * 16 + static_cast<nu_wchar>(d);
        }
        if (p < end || digits == 8) {
            block->pos = p;
            *wc = value;
            return digits > 0;
        }
    }
    skip_whitespace(in);
    nu_wchar value = 0;
    int digits = 0;
    for (; digits < 8; ++digits) {
        const int c = in.get();
        const int d = nus::c_hexvalue(c);
        if (d < 0) {
            in.unget(c);
            break;
        }
        value = value * 16 + static_cast<nu_wchar>(d);
    }
    *wc = value;
    return digits > 0;
}

int read_ctype(FILE *stream, nu_locale_rec *h) {
    CtypeFields &ct = h->ctype;
    if (ct.class_table == nullptr || ct.case_table == nullptr) {
        set_error(h, NU_ENOMEM);
        return -1;
    }
    if (_nu_fscanf_multi(stream, ct.class_table, MULTI_MAX_DEPTH, ub2_reader) != 0) {
        set_error(h, _nu_multi_err(ct.class_table));
        return -1;
    }
    // The shortest character is the length of every string's terminator: a class table that
    // claims none, or more than four bytes, cannot describe a code set.
    const int shortest = _nu_multi_min_length(ct.class_table);
    if (shortest < 1 || shortest > MULTI_MAX_DEPTH || _nu_multi_max_length(ct.class_table) < 0) {
        set_error(h, NU_EBADFILE);
        return -1;
    }
    long count = 0;
    if (!read_decimal(stream, &count) || count < 0 || count > 32) {
        set_error(h, NU_EBADFILE);
        return -1;
    }
    if (count > 0) {
        ct.class_names = alloc_zeroed<ClassName>(static_cast<size_t>(count));
        if (ct.class_names == nullptr) {
            set_error(h, NU_ENOMEM);
            return -1;
        }
        ct.class_name_count = static_cast<int32_t>(count);
        for (long i = 0; i < count; ++i) {
            long number = 0;
            char word[kClassNameSize];
            if (!read_decimal(stream, &number)) {
                set_error(h, NU_EBADFILE);
                return -1;
            }
            _nu_skip_whitespace(stream);
            _nu_get_str(word, sizeof word, stream);
            const size_t length = std::strlen(word);
            char *name = alloc_array<char>(length + 1);
            if (name == nullptr) {
                free_class_names(ct, ct.class_name_count);
                _nu_free_ptr(ct.class_names);
                ct.class_names = nullptr;
                ct.class_name_count = 0;
                set_error(h, NU_ENOMEM);
                return -1;
            }
            std::memcpy(name, word, length + 1);
            ct.class_names[i] = {static_cast<int32_t>(number), name};
        }
    }
    if (_nu_fscanf_multi(stream, ct.case_table, MULTI_MAX_DEPTH, ub2_reader) != 0) {
        set_error(h, _nu_multi_err(ct.case_table));
        return -1;
    }
    long pairs = 0;
    if (!read_decimal(stream, &pairs) || pairs < 0 || pairs > 0xFFFF) {
        set_error(h, NU_EBADFILE);
        return -1;
    }
    ct.case_pairs = alloc_zeroed<CasePair>(static_cast<size_t>(pairs) + 1);
    if (ct.case_pairs == nullptr) {
        set_error(h, NU_ENOMEM);
        return -1;
    }
    ct.case_pair_count = static_cast<int32_t>(pairs);
    for (long i = 1; i <= pairs; ++i) {
        if (!read_nu_wchar(stream, &ct.case_pairs[i].upper) ||
            !read_nu_wchar(stream, &ct.case_pairs[i].lower)) {
            set_error(h, NU_EBADFILE);
            return -1;
        }
    }
    // The rest of the line holds the expansion factor; an empty rest means 4.
    char rest[64];
    if (stream_gets(rest, sizeof rest, stream) == nullptr || rest[0] == '\n' ||
        rest[0] == '\0') {
        h->case_expansion = 4.0;
    } else {
        h->case_expansion = std::strtod(rest, nullptr);
        // A character grows at most from one byte to four: anything else (a negative, a
        // huge or a NaN factor) is damage, and would make the output size meaningless.
        if (!(h->case_expansion >= 0.0 && h->case_expansion <= MULTI_MAX_DEPTH)) {
            h->case_expansion = 4.0;
            set_error(h, NU_EBADFILE);
            return -1;
        }
    }
    return 0;
}

} // namespace nus

NU_EXPORT int nu_ctype(nu_locale_t h, const char *name) {
    if (nus::no_handle(h)) return 0;
    if (name == nullptr) return 0;
    // No standard class begins with "f": such names go straight to the locale's own.
    if (name[0] != 'f') {
        for (const ClassEntry &c : kStandardClasses) {
            if (std::strcmp(name, c.name) == 0) return c.mask;
        }
    }
    const nus::CtypeFields &ct = h->ctype;
    for (int32_t i = 0; i < ct.class_name_count; ++i) {
        if (ct.class_names[i].name != nullptr && std::strcmp(ct.class_names[i].name, name) == 0)
            return static_cast<int>(2048u << (static_cast<uint32_t>(ct.class_names[i].number) % 32));
    }
    return 0;
}

NU_EXPORT int _nu_im_iswctype(nu_locale_t h, nu_wchar wc, int mask) {
    if (nus::no_handle(h)) return 0;
    // Served by the companion library: Unicode's classes of the code point.
    if (nus::nuu_chars(h))
        return nus::nuu_call(h, nus::kNuuCtype, nus::call_nuu_iswctype(), wc, mask);
    return class_of(h, wc) & mask;
}

NU_EXPORT nu_wchar _nu_im_towupper(nu_locale_t h, nu_wchar wc) {
    if (nus::no_handle(h)) return wc;
    if (nus::nuu_chars(h)) return nus::nuu_call(h, nus::kNuuCtype, nus::call_nuu_towupper(), wc);
    const uint16_t i = case_index(h, wc);
    if (i != 0 && i <= h->ctype.case_pair_count && h->ctype.case_pairs[i].upper != 0)
        return h->ctype.case_pairs[i].upper;
    return wc;
}

NU_EXPORT nu_wchar _nu_im_towlower(nu_locale_t h, nu_wchar wc) {
    if (nus::no_handle(h)) return wc;
    if (nus::nuu_chars(h)) return nus::nuu_call(h, nus::kNuuCtype, nus::call_nuu_towlower(), wc);
    const uint16_t i = case_index(h, wc);
    if (i != 0 && i <= h->ctype.case_pair_count && h->ctype.case_pairs[i].lower != 0)
        return h->ctype.case_pairs[i].lower;
    return wc;
}

NU_EXPORT int nu_case_conv_outbuflen(nu_locale_t h, int length) {
    if (nus::no_handle(h)) return -1;
    // Saturated rather than wrapped for lengths near the int range.
    const long long size = static_cast<long long>(std::ceil(h->case_expansion)) * length;
    return size > INT_MAX ? INT_MAX : size < INT_MIN ? INT_MIN : static_cast<int>(size);
}

// ---- multibyte characters and strings --------------------------------------------------------

namespace {

// Decodes the character at s (length bytes, or up to its terminator with -1).
bool decode_one(nu_locale_rec *h, const unsigned char *s, int length, nu_wchar *wc, int *used) {
    if (length == -1) length = 4;
    if (nus::nuu_chars(h)) {
        // The companion decodes to a code point (a null character is one byte there).
        const int n = nu_full_mbtowc(h, wc, s, length);
        if (n < 0) return false;
        *used = n == 0 ? 1 : n;
        return true;
    }
    const nus::Walk w = nus::walk(h->ctype.class_table, s, length);
    if (w.status != 0) {
        nus::set_error(h, w.status);
        return false;
    }
    *wc = w.wc;
    *used = w.length;
    return true;
}

// One character mapped by `map`: input length * 256 + output length.
int map_char(nu_locale_rec *h, unsigned char *out, const unsigned char *in, int length,
             nu_wchar (*map)(nu_locale_t, nu_wchar)) {
    nu_wchar wc;
    int used;
    if (!decode_one(h, in, length, &wc, &used)) return -1;
    const nu_wchar mapped = map(h, wc);
    int written = used;
    if (mapped != wc) {
        written = nu_full_wctomb(h, out, mapped);
        if (written < 0) return -1;
    } else {
        std::memcpy(out, in, static_cast<size_t>(used));
    }
    return used * 256 + written;
}

int map_string(nu_locale_rec *h, unsigned char *out, const unsigned char *in,
               const unsigned char *table, nu_wchar (*map)(nu_locale_t, nu_wchar)) {
    if (table != nullptr) {
        int i = 0;
        for (; in[i] != 0; ++i) out[i] = table[in[i]];
        out[i] = 0;
        return i;
    }
    const int m = nu_mb_loc_min(h);
    int written = 0;
    for (;;) {
        bool terminator = true;
        for (int k = 0; k < m; ++k) terminator = terminator && in[k] == 0;
        if (terminator) break;
        const int packed = map_char(h, out + written, in, -1, map);
        if (packed < 0) return -1;
        in += packed >> 8;
        written += packed & 0xFF;
    }
    return written + nu_mbsterm(h, out + written);
}

int map_wide(nu_locale_rec *h, nu_wchar *out, const nu_wchar *in,
             nu_wchar (*map)(nu_locale_t, nu_wchar)) {
    const bool single = h->sb_upper != nullptr;
    int i = 0;
    for (; in[i] != 0; ++i) {
        if (single && in[i] > 0xFF) {
            nus::set_error(h, NU_EILSEQ);
            return -1;
        }
        out[i] = map(h, in[i]);
    }
    out[i] = 0;
    return 0;
}

} // namespace

NU_EXPORT int _tsn_nu_im_ismctype(nu_locale_t h, const unsigned char *mbchar, int length,
                                  int mask) {
    if (nus::no_handle(h) || nus::missing(h, mbchar)) return 0;
    nu_wchar wc;
    int used;
    if (!decode_one(h, mbchar, length, &wc, &used)) return 0;
    if (nus::nuu_chars(h)) return _nu_im_iswctype(h, wc, mask);
    return class_of(h, wc) & mask;
}

NU_EXPORT int _nu_im_ismctype(nu_locale_t h, const unsigned char *mbchar, int mask) {
    if (nus::no_handle(h)) return 0;
    return _tsn_nu_im_ismctype(h, mbchar, -1, mask);
}

NU_EXPORT int _tsn_nu_im_tomupper(nu_locale_t h, unsigned char *out, const unsigned char *in,
                                  int length) {
    if (nus::no_handle(h) || nus::missing(h, out, in)) return -1;
    return map_char(h, out, in, length, _nu_im_towupper);
}
NU_EXPORT int _tsn_nu_im_tomlower(nu_locale_t h, unsigned char *out, const unsigned char *in,
                                  int length) {
    if (nus::no_handle(h) || nus::missing(h, out, in)) return -1;
    return map_char(h, out, in, length, _nu_im_towlower);
}
NU_EXPORT int _nu_im_tomupper(nu_locale_t h, unsigned char *out, const unsigned char *in) {
    if (nus::no_handle(h) || nus::missing(h, out, in)) return -1;
    return map_char(h, out, in, -1, _nu_im_towupper);
}
NU_EXPORT int _nu_im_tomlower(nu_locale_t h, unsigned char *out, const unsigned char *in) {
    if (nus::no_handle(h) || nus::missing(h, out, in)) return -1;
    return map_char(h, out, in, -1, _nu_im_towlower);
}

NU_EXPORT int nu_tombsupper(nu_locale_t h, unsigned char *out, const unsigned char *in) {
    if (nus::no_handle(h) || nus::missing(h, out, in)) return -1;
    return map_string(h, out, in, h->sb_upper, _nu_im_towupper);
}
NU_EXPORT int nu_tombslower(nu_locale_t h, unsigned char *out, const unsigned char *in) {
    if (nus::no_handle(h) || nus::missing(h, out, in)) return -1;
    return map_string(h, out, in, h->sb_lower, _nu_im_towlower);
}
NU_EXPORT int nu_towcsupper(nu_locale_t h, nu_wchar *out, const nu_wchar *in) {
    if (nus::no_handle(h) || nus::missing(h, out, in)) return -1;
    return map_wide(h, out, in, _nu_im_towupper);
}
NU_EXPORT int nu_towcslower(nu_locale_t h, nu_wchar *out, const nu_wchar *in) {
    if (nus::no_handle(h) || nus::missing(h, out, in)) return -1;
    return map_wide(h, out, in, _nu_im_towlower);
}

// ---- single-byte fast tables -----------------------------------------------------------------

namespace nus {

// The 16-bit value of each one-byte character: its root entry when the byte is a whole
// character there, else 0 (a lookup of the one byte in the table).
static void fill_byte_values(const multi_t *table, uint16_t *classes) {
    const multi_arr_t *root = table->root;
    const unsigned char *flags = root != nullptr ? root->flag_arr : nullptr;
    if (flags != nullptr && root->data_arr != nullptr && table->shift == 1) {
        // The usual layout, 16-bit slots side by side: one pass without branches.
        const unsigned char *data = root->data_arr;
        for (int b = 0; b < 256; ++b) {
            uint16_t value;
            std::memcpy(&value, data + 2 * b, sizeof value);
            classes[b] = flags[b] == MULTI_LAST ? value : 0;
        }
        return;
    }
    for (int b = 0; b < 256; ++b)
        classes[b] = flags != nullptr && flags[b] == MULTI_LAST
                         ? leaf_value(table, Walk{1, static_cast<nu_wchar>(b), 0, root})
                         : 0;
}

int build_single_byte_tables(nu_locale_rec *h) {
    // Tables already there are brought up to date in place: the case tables would be copied
    // from themselves, the class table is read again from the CTYPE now loaded. A load comes
    // here once per category it initialises, and this needs no memory.
    if (h->sb_upper != nullptr && h->sb_lower != nullptr && h->sb_class != nullptr) {
        fill_byte_values(h->ctype.class_table, h->sb_class);
        return 0;
    }
    auto *upper = alloc_array<unsigned char>(256);
    auto *lower = alloc_array<unsigned char>(256);
    auto *classes = alloc_zeroed<uint16_t>(256);
    if (upper == nullptr || lower == nullptr || classes == nullptr) {
        _nu_free_ptr(upper);
        _nu_free_ptr(lower);
        _nu_free_ptr(classes);
        set_error(h, NU_ENOMEM);
        return -1;
    }
    for (int b = 0; b < 256; ++b) {
        const auto wc = static_cast<nu_wchar>(b);
        upper[b] = h->sb_upper != nullptr ? h->sb_upper[b] : static_cast<unsigned char>(_nu_im_towupper(h, wc));
        lower[b] = h->sb_lower != nullptr ? h->sb_lower[b] : static_cast<unsigned char>(_nu_im_towlower(h, wc));
    }
    fill_byte_values(h->ctype.class_table, classes);
    free_single_byte_tables(h);
    h->sb_upper = upper;
    h->sb_lower = lower;
    h->sb_class = classes;
    return 0;
}

} // namespace nus
