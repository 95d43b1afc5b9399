// The forms of a locale name: the check, the short form (code set as its number), the long
// form (code set as its registry name), the normal form, the six per-category names of any
// name or list, and the locale name of a locale object file name. Every name is read by the
// file-name builder's own walk, so that what is accepted here is exactly what names a locale
// object file.
#include "names/names.h"

namespace {

using nus::names::c_tolower;
using nus::names::c_toupper;
using nus::names::kNameSize;
using nus::names::SpecItem;

constexpr int kCategories = 6;
constexpr size_t kListSize = NU_LC_SPEC_LIST_SIZE;

// The keywords in the numbering of _nu_is_category (1 to 6), and the place of each in the
// per-category arrays, which follow the category numbers (CTYPE 2, COLLATE 3, NUMERIC 4,
// MONETARY 5, TIME 6, MESSAGES 7, less 2).
constexpr const char *kKeyword[7] = {"",           "NU_CTYPE",   "NU_COLLATE", "NU_TIME",
                                     "NU_MONETARY", "NU_NUMERIC", "NU_MESSAGES"};
constexpr int kIndexOfKeyword[7] = {-1, 0, 1, 4, 3, 2, 5};
constexpr int kKeywordOfIndex[kCategories] = {1, 2, 5, 4, 3, 6};

enum class Form { number, name, normal };

// Text built in a fixed buffer; a text that would not fit marks the builder as failed.
struct Builder {
    char text[kListSize];
    size_t length = 0;
    bool ok = true;
    void add(const char *s, size_t n) {
        if (!ok || length + n >= kListSize) {
            ok = false;
            return;
        }
        std::memcpy(text + length, s, n);
        length += n;
        text[length] = '\0';
    }
    void add(const char *s) { add(s, std::strlen(s)); }
};

void decimal(char *out, unsigned value) {
    char digits[8];
    int n = 0;
    do digits[n++] = static_cast<char>('0' + value % 10);
    while ((value /= 10) != 0);
    while (n > 0) *out++ = digits[--n];
    *out = '\0';
}

// One item's piece in a form. The piece has been read by the file-name builder, so it is
// "ll_tt." followed by the code set and an optional "@" and modifier.
bool write_piece(void *handle, const char *registry, const SpecItem &item, Form form,
                 Builder &b) {
    const char *at = static_cast<const char *>(std::memchr(item.piece, '@', item.length));
    const char *modifier = at != nullptr ? at + 1 : item.piece + item.length;
    const size_t modifier_length = static_cast<size_t>(item.piece + item.length - modifier);
    char codeset[kNameSize];
    if (form == Form::name) {
        // A number without a registry name keeps the lookup's code (NU_EINVAL, or
        // NU_EBADFMT when the registry cannot be read).
        if (nu_cs_num2cs_name(handle, item.number, codeset, registry) != 0) return false;
    } else {
        decimal(codeset, item.number);
    }
    char lang_terr[6];
    std::memcpy(lang_terr, item.piece, 5);
    lang_terr[5] = '\0';
    if (form == Form::normal) {
        lang_terr[0] = static_cast<char>(c_tolower(static_cast<unsigned char>(lang_terr[0])));
        lang_terr[1] = static_cast<char>(c_tolower(static_cast<unsigned char>(lang_terr[1])));
        lang_terr[3] = static_cast<char>(c_toupper(static_cast<unsigned char>(lang_terr[3])));
        lang_terr[4] = static_cast<char>(c_toupper(static_cast<unsigned char>(lang_terr[4])));
    }
    b.add(lang_terr, 5);
    b.add(".");
    b.add(codeset);
    if (modifier_length > 0) {
        b.add("@");
        b.add(modifier, modifier_length);
    }
    if (!b.ok) nus::set_error_if(handle, NU_EINVAL);
    return b.ok;
}

// A locale name in a form: a plain one as one piece; a per-category one as its items
// ("NU_CTYPE = piece ; NU_TIME = piece"), in the order written for the number and name forms,
// in category order for the normal form, which is the plain piece when all six categories
// name one locale. 0, or -1 with the error stored.
int to_form(void *handle, const char *spec, char *out, const char *registry, Form form) {
    if (spec == nullptr || out == nullptr) {
        nus::set_error_if(handle, NU_EINVAL);
        return -1;
    }
    // The walk works on its own copy of the locale name; the pieces point into it and are
    // used while it lives, inside the visit.
    struct Context {
        void *handle;
        const char *registry;
        Form form;
        Builder text;
        Builder normal[kCategories];
        bool named[kCategories] = {};
        int items = 0;
        bool plain = false;
        bool ok = true;
    } context{handle, registry, form, {}, {}};
    auto visit = [](void *p, const SpecItem &item) {
        auto *c = static_cast<Context *>(p);
        if (!c->ok) return;
        if (item.keyword == 0) {
            c->plain = true;
            c->ok = write_piece(c->handle, c->registry, item, c->form, c->text);
            return;
        }
        if (c->form == Form::normal) {
            const int index = kIndexOfKeyword[item.keyword];
            c->named[index] = true;
            c->ok = write_piece(c->handle, c->registry, item, Form::normal, c->normal[index]);
            return;
        }
        if (c->items++ > 0) c->text.add(" ; ");
        c->text.add(kKeyword[item.keyword]);
        c->text.add(" = ");
        c->ok = write_piece(c->handle, c->registry, item, c->form, c->text);
    };
    if (nus::names::walk_spec(handle, spec, registry, visit, &context) != 0) return -1;
    if (!context.ok) return -1;
    if (form == Form::normal && !context.plain) {
        bool all_same = true;
        for (int i = 0; i < kCategories; ++i)
            all_same = all_same && context.named[i] &&
                       std::strcmp(context.normal[i].text, context.normal[0].text) == 0;
        if (all_same) {
            context.text.add(context.normal[0].text);
        } else {
            int written = 0;
            for (int i = 0; i < kCategories; ++i) {
                if (!context.named[i]) continue;
                if (written++ > 0) context.text.add(" ; ");
                context.text.add(kKeyword[kKeywordOfIndex[i]]);
                context.text.add(" = ");
                context.text.add(context.normal[i].text);
            }
        }
    }
    std::memcpy(out, context.text.text, context.text.length + 1);
    return 0;
}

// The piece "ll_tt/xxxx[mod].lco" at the end of an item of a file name, after any directory
// (its path mark or "/" separators): the normal piece, or false.
bool fname_piece(void *handle, const char *name, size_t length, Builder &b) {
    if (length < 10 || std::memcmp(name + length - 4, ".lco", 4) != 0) return false;
    // The last "/" separates the language directory from the file; the directory begins five
    // characters before it.
    size_t slash = length;
    while (slash > 0 && name[slash - 1] != '/' && name[slash - 1] != '\\') --slash;
    if (slash < 6) return false;
    const size_t start = slash - 6;
    if (start > 0 && name[start - 1] != '/' &&
        static_cast<unsigned char>(name[start - 1]) != NU_PATH_MARK)
        return false;
    char file[32];
    const size_t n = length - start;
    if (n >= sizeof file) return false;
    std::memcpy(file, name + start, n - 4);   // without ".lco"
    file[n - 4] = '\0';
    char lang_terr[6], codeset[6], modifier[5];
    char piece[NU_LC_SPEC_SIZE];
    if (nu_lc_fname2lc_pieces(nullptr, file, lang_terr, codeset, modifier) != 0 ||
        nu_lc_pieces2lc_spec(nullptr, lang_terr, codeset, modifier, piece) != 0)
        return false;
    (void)handle;
    b.add(piece);
    return b.ok;
}

} // namespace

NU_EXPORT int nu_is_lc_spec(void *handle, const char *spec, const char *registry) {
    if (spec == nullptr) {
        nus::set_error_if(handle, NU_EINVAL);
        return 0;
    }
    return nus::names::walk_spec(handle, spec, registry, nullptr, nullptr) == 0 ? 1 : 0;
}

NU_EXPORT int nu_lc_spec2lc_short(void *handle, const char *spec, char *out,
                                  const char *registry) {
    return to_form(handle, spec, out, registry, Form::number);
}

NU_EXPORT int nu_lc_short2lc_long(void *handle, const char *spec, char *out,
                                  const char *registry) {
    return to_form(handle, spec, out, registry, Form::name);
}

NU_EXPORT int nu_lc_spec2lc_norm(void *handle, const char *spec, char *out,
                                 const char *registry) {
    return to_form(handle, spec, out, registry, Form::normal);
}

NU_EXPORT int nu_lc_spec2category(void *handle, const char *spec,
                                  char (*out)[NU_LC_SPEC_SIZE], const char *registry) {
    if (out == nullptr) {
        nus::set_error_if(handle, NU_EINVAL);
        return -1;
    }
    char normal[kListSize];
    if (nu_lc_spec2lc_norm(handle, spec, normal, registry) != 0) return -1;
    for (int i = 0; i < kCategories; ++i) out[i][0] = '\0';
    if (_nu_is_category(normal, nullptr) == 0) {
        for (int i = 0; i < kCategories; ++i) std::memcpy(out[i], normal, std::strlen(normal) + 1);
        return 0;
    }
    // The normal list: "KEYWORD = piece" items joined by " ; ".
    for (const char *p = normal; *p != '\0';) {
        int length = 0;
        const int keyword = _nu_is_category(p, &length);
        p += length + 3;
        const char *end = std::strstr(p, " ; ");
        const size_t n = end != nullptr ? static_cast<size_t>(end - p) : std::strlen(p);
        char *target = out[kIndexOfKeyword[keyword]];
        std::memcpy(target, p, n);
        target[n] = '\0';
        p += n + (end != nullptr ? 3 : 0);
    }
    return 0;
}

NU_EXPORT int nu_lc_fname2lc_spec(void *handle, const char *fname, char *out,
                                  const char *registry) {
    if (fname == nullptr || out == nullptr) {
        nus::set_error_if(handle, NU_EINVAL);
        return -1;
    }
    Builder spec;
    bool ok = true;
    if (_nu_is_category(fname, nullptr) == 0) {
        ok = fname_piece(handle, fname, std::strlen(fname), spec);
    } else {
        // "KEYWORD = [directory and mark]ll_tt/xxxx.lco" items joined by " ; ".
        for (const char *p = fname; ok && *p != '\0';) {
            int length = 0;
            if (_nu_is_category(p, &length) == 0 || std::strncmp(p + length, " = ", 3) != 0) {
                ok = false;
                break;
            }
            if (spec.length > 0) spec.add(" ; ");
            spec.add(p, static_cast<size_t>(length) + 3);
            p += length + 3;
            const char *end = std::strstr(p, " ; ");
            const size_t n = end != nullptr ? static_cast<size_t>(end - p) : std::strlen(p);
            ok = fname_piece(handle, p, n, spec);
            p += n + (end != nullptr ? 3 : 0);
        }
    }
    if (!ok || !spec.ok) {
        nus::set_error_if(handle, NU_EINVAL);
        return -1;
    }
    // Through the normal form: the code sets checked against the registry, the items put in
    // category order.
    return nu_lc_spec2lc_norm(handle, spec.text, out, registry);
}
