// Locale specifications to locale object file names and back, message directories, and the
// names of code-set conversion files.
//
// A specification "ll_tt.codeset[@mod]" names the file "ll_tt/xxxx[mod].lco", xxxx being the
// code set's number in four lower-case hexadecimal digits. A per-category specification
// "NU_CTYPE = spec ; NU_COLLATE = spec ..." keeps its structure in its file name, each item's
// name preceded by the caller's directory and the path mark.
#include "names/names.h"

namespace {

using nus::names::c_isalnum;
using nus::names::c_isalpha;
using nus::names::c_isgraph;
using nus::names::c_tolower;
using nus::names::c_toupper;
using nus::names::kNameSize;
using nus::names::kSpecCopyLength;
using nus::names::kUnknownCodeset;

constexpr char kHexDigits[] = "0123456789abcdef";
constexpr int kModifierLength = 4;

inline unsigned char at(const char *p, size_t i) { return static_cast<unsigned char>(p[i]); }

// Writes the low `digits` hexadecimal digits of `value`, least significant last.
char *put_hex(char *out, unsigned value, int digits) {
    for (int i = digits - 1; i >= 0; --i) {
        out[i] = kHexDigits[value & 0xF];
        value >>= 4;
    }
    return out + digits;
}

char *put_text(char *out, const char *text, size_t length) {
    std::memcpy(out, text, length);
    return out + length;
}

// The directory and the mark at `out`, terminated; returns the end.
char *put_mark(char *out, const char *directory) {
    if (directory != nullptr && directory[0] != '\0') {
        out = put_text(out, directory, std::strlen(directory));
        *out++ = static_cast<char>(nus::names::kPathMark);
    }
    *out = '\0';
    return out;
}

// The first kSpecCopyLength characters of a specification: longer ones are cut there.
struct SpecCopy {
    char text[kSpecCopyLength + 1];
    explicit SpecCopy(const char *spec) {
        size_t length = 0;
        while (length < kSpecCopyLength && spec[length] != '\0') ++length;
        std::memcpy(text, spec, length);
        text[length] = '\0';
    }
};

// How a per-category specification may end.
enum class LastItem {
    may_end_text,     // the last item may end the text, or be followed by " ; "
    needs_separator,  // every item, the last included, is followed by " ; "
};

// Where each item's locale file name starts in the output, by keyword number (1 to 6).
using ItemNames = const char *[7];

// Walks a per-category specification (it begins with a keyword), writing its file name to
// `out` (lc_fname_size(directory) bytes). All items must name one code set, stored in
// *number. false on any fault.
struct Visit {
    nus::names::ItemVisitor visit;
    void *context;
    void operator()(int keyword, const char *piece, const char *end, unsigned number) const {
        if (visit != nullptr)
            visit(context, {keyword, piece, static_cast<size_t>(end - piece), number});
    }
};

bool walk_items(void *handle, const char *text, char *out, const char *registry,
                const char *directory, LastItem rule, unsigned *number, ItemNames *names,
                Visit visit = {}) {
    bool seen[7] = {};
    bool first = true;
    for (;;) {
        int length = 0;
        const int keyword = _nu_is_category(text, &length);
        if (keyword == 0 || seen[keyword]) return false;
        seen[keyword] = true;
        out = put_text(out, text, static_cast<size_t>(length));
        text += length;
        if (std::strncmp(text, " = ", 3) != 0) return false;
        out = put_text(out, " = ", 3);
        text += 3;
        out = put_mark(out, directory);
        if (names != nullptr) (*names)[keyword] = out;
        unsigned item_number = kUnknownCodeset;
        const char *piece = text;
        if (_nu_is_xopen_spec(handle, &text, &out, &item_number, registry) == 0) return false;
        visit(keyword, piece, text, item_number);
        if (first) *number = item_number;
        else if (item_number != *number) return false;
        first = false;
        if (*text == '\0') {
            // Kept for compatibility: only the file-name builder lets the last item end the
            // text; the code-set query insists on the separator after it.
            if (rule == LastItem::needs_separator) return false;
            break;
        }
        if (std::strncmp(text, " ; ", 3) != 0) return false;
        out = put_text(out, " ; ", 3);
        text += 3;
        if (*text == '\0') break;
    }
    *out = '\0';
    return true;
}

// The file name of a plain or per-category specification; error 7 on any fault.
int spec_to_fname(void *handle, const char *spec, char *out, const char *registry,
                  const char *directory, ItemNames *names, Visit visit = {}) {
    if (spec == nullptr || out == nullptr) {
        nus::set_error_if(handle, NU_EINVAL);
        return -1;
    }
    const SpecCopy copy(spec);
    unsigned number = kUnknownCodeset;
    bool ok;
    if (_nu_is_category(copy.text, nullptr) != 0) {
        ok = walk_items(handle, copy.text, out, registry, directory, LastItem::may_end_text,
                        &number, names, visit);
    } else {
        // A plain specification takes no directory: that is for per-category names only.
        const char *text = copy.text;
        char *end = out;
        ok = _nu_is_xopen_spec(handle, &text, &end, &number, registry) != 0 && *text == '\0';
        if (ok) visit(0, copy.text, text, number);
    }
    if (!ok) {
        nus::set_error_if(handle, NU_EINVAL);   // overrides the registry's own code
        return -1;
    }
    return 0;
}

// Decimal text of a code-set number (at most 5 digits and the zero).
void put_decimal(char *out, unsigned value) {
    char digits[6];
    int n = 0;
    do {
        digits[n++] = static_cast<char>('0' + value % 10);
        value /= 10;
    } while (value != 0 && n < 5);
    while (n > 0) *out++ = digits[--n];
    *out = '\0';
}

bool is_lang_terr(const char *text) {
    return c_isalpha(at(text, 0)) && c_isalpha(at(text, 1)) && text[2] == '_' &&
           c_isalpha(at(text, 3)) && c_isalpha(at(text, 4));
}

int fail(void *handle) {
    nus::set_error_if(handle, NU_EINVAL);
    return -1;
}

} // namespace

int nus::names::walk_spec(void *handle, const char *spec, const char *registry,
                          ItemVisitor visit, void *context) {
    char name[NU_LC_FNAME_SIZE(0)];
    return spec_to_fname(handle, spec, name, registry, nullptr, nullptr, Visit{visit, context});
}

void pathcat_mark(char *out, const char *directory) {
    if (out == nullptr) return;
    put_mark(out + std::strlen(out), directory);
}

// The piece is consumed in three steps: "ll_tt." (checked as a whole), the code-set name,
// the modifier. On a fault the pointer into the locale specification stays after the last
// complete step, so that callers can take the rest as a bare code-set name.
NU_EXPORT int _nu_is_xopen_spec(void *handle, const char **spec, char **out,
                                unsigned int *number, const char *registry) {
    if (spec == nullptr || *spec == nullptr || out == nullptr || *out == nullptr) return 0;
    const char *s = *spec;
    char *o = *out;
    if (!is_lang_terr(s) || s[5] != '.') return 0;
    o[0] = static_cast<char>(c_tolower(at(s, 0)));
    o[1] = static_cast<char>(c_tolower(at(s, 1)));
    o[2] = '_';
    o[3] = static_cast<char>(c_tolower(at(s, 3)));
    o[4] = static_cast<char>(c_tolower(at(s, 4)));
    o[5] = '/';
    s += 6;
    o += 6;
    *spec = s;
    *out = o;

    if (!c_isgraph(at(s, 0)) || s[0] == '#') return 0;
    size_t length = 0;
    while (c_isgraph(at(s, length)) && s[length] != '@') {
        if (++length >= static_cast<size_t>(kNameSize)) return 0;
    }
    char name[kNameSize];
    std::memcpy(name, s, length);
    name[length] = '\0';
    const unsigned cs = nu_cs_name2cs_num(handle, name, registry);
    if (cs == kUnknownCodeset) return 0;
    if (number != nullptr) *number = cs;
    o = put_hex(o, cs, 4);
    s += length;
    *spec = s;
    *out = o;

    if (*s == '@') {
        const char *modifier = s + 1;
        int n = 0;
        while (c_isalnum(at(modifier, static_cast<size_t>(n)))) {
            if (n == kModifierLength) return 0;
            ++n;
        }
        o = put_text(o, modifier, static_cast<size_t>(n));
        s = modifier + n;
    }
    o = put_text(o, ".lco", 4);
    *o = '\0';
    *spec = s;
    *out = o;
    return 1;
}

NU_EXPORT int nu_lc_spec2lc_fname(void *handle, const char *spec, char *out,
                                  const char *registry, const char *directory) {
    return spec_to_fname(handle, spec, out, registry, directory, nullptr);
}

NU_EXPORT int nu_lc_spec2msg_dname(void *handle, const char *spec, char *out,
                                   const char *registry, const char * /*directory*/) {
    if (out == nullptr) return fail(handle);
    // The message directory is relative: it never holds the caller's directory, so the name
    // is made without it and needs no more than the fixed size.
    char name[NU_LC_FNAME_SIZE(0)];
    ItemNames names = {};
    if (spec_to_fname(handle, spec, name, registry, nullptr, &names) != 0) return -1;
    const char *from = name;
    if (_nu_is_category(name, nullptr) != 0) {
        from = names[6];   // NU_MESSAGES
        if (from == nullptr) return fail(handle);
    }
    size_t n = 0;
    while (n < 10 && from[n] != '\0') {
        out[n] = from[n];
        ++n;
    }
    out[n] = '\0';
    return 0;
}

NU_EXPORT int nu_lc_fname2lc_pieces(void *handle, const char *fname, char *lang_terr,
                                    char *codeset, char *modifier) {
    if (fname == nullptr || lang_terr == nullptr || codeset == nullptr || modifier == nullptr)
        return fail(handle);
    if (!is_lang_terr(fname) || (fname[5] != '/' && fname[5] != '\\')) return fail(handle);
    const char *p = fname + 6;
    if (nus::c_hexvalue(at(p, 0)) < 0) return fail(handle);
    unsigned number = 0;
    for (int i = 0; i < 4 && nus::c_hexvalue(at(p, 0)) >= 0; ++i, ++p)
        number = number * 16 + static_cast<unsigned>(nus::c_hexvalue(at(p, 0)));
    size_t mod_length = 0;
    while (p[mod_length] != '.' && p[mod_length] != '\0') {
        if (++mod_length > static_cast<size_t>(kModifierLength)) return fail(handle);
    }
    lang_terr[0] = static_cast<char>(c_tolower(at(fname, 0)));
    lang_terr[1] = static_cast<char>(c_tolower(at(fname, 1)));
    lang_terr[2] = '_';
    lang_terr[3] = static_cast<char>(c_toupper(at(fname, 3)));
    lang_terr[4] = static_cast<char>(c_toupper(at(fname, 4)));
    lang_terr[5] = '\0';
    put_decimal(codeset, number);
    std::memcpy(modifier, p, mod_length);
    modifier[mod_length] = '\0';
    return 0;
}

NU_EXPORT int nu_lc_pieces2lc_spec(void *handle, const char *lang_terr, const char *codeset,
                                   const char *modifier, char *out) {
    if (lang_terr == nullptr || codeset == nullptr || out == nullptr || !is_lang_terr(lang_terr))
        return fail(handle);
    if (codeset[0] == '\0') return fail(handle);
    for (const char *c = codeset; *c != '\0'; ++c) {
        if (nus::c_hexvalue(static_cast<unsigned char>(*c)) < 0) return fail(handle);
    }
    char *o = put_text(out, lang_terr, 5);
    *o++ = '.';
    for (int i = 0; i < 5 && codeset[i] != '\0'; ++i) *o++ = codeset[i];
    if (modifier != nullptr && modifier[0] != '\0') {
        *o++ = '@';
        for (int i = 0; i < kModifierLength && modifier[i] != '\0'; ++i) *o++ = modifier[i];
    }
    *o = '\0';
    return 0;
}

NU_EXPORT int _nu_lc_short_spec2lc_short_norm(void *handle, const char *spec, char *out,
                                              const char *registry) {
    char name[NU_LC_FNAME_SIZE(0)];
    if (spec_to_fname(handle, spec, name, registry, nullptr, nullptr) != 0) return -1;
    char lang_terr[6];
    char codeset[6];
    char modifier[kModifierLength + 1];
    if (nu_lc_fname2lc_pieces(handle, name, lang_terr, codeset, modifier) != 0) return -1;
    return nu_lc_pieces2lc_spec(handle, lang_terr, codeset, modifier, out);
}

NU_EXPORT unsigned int nu_lc_spec2cs_num(void *handle, const char *spec, const char *registry) {
    if (spec == nullptr) {
        nus::set_error_if(handle, NU_EINVAL);
        return kUnknownCodeset;
    }
    const SpecCopy copy(spec);
    char name[NU_LC_FNAME_SIZE(0)];
    unsigned number = kUnknownCodeset;
    if (_nu_is_category(copy.text, nullptr) != 0) {
        if (walk_items(handle, copy.text, name, registry, nullptr, LastItem::needs_separator,
                       &number, nullptr))
            return number;
        nus::set_error_if(handle, NU_EINVAL);
        return kUnknownCodeset;
    }
    const char *text = copy.text;
    char *end = name;
    if (_nu_is_xopen_spec(handle, &text, &end, &number, registry) != 0 && *text == '\0')
        return number;
    // The rest, from where the piece stopped, as a bare code-set name or number
    // ("8859-1" is accepted as a specification here).
    return nu_cs_name2cs_num(handle, text, registry);
}

NU_EXPORT void nu_cs_nums2cv_fname(void * /*handle*/, unsigned int first, unsigned int second,
                                   char *out, const char *directory) {
    if (out == nullptr) return;
    char *o = put_mark(out, directory);
    o = put_hex(o, first, 4);
    o = put_hex(o, second, 4);
    std::memcpy(o, ".cvo", 5);
}
