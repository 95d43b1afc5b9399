// Locale handles: creation with the built-in null locale, empty categories, release.
#include "collate/collate.h"
#include "frame/frame.h"
#include "frame/multi.h"
#include "locale/locale.h"
#include "locale/nuu.h"
#include "time/category.h"

#include <cinttypes>

namespace {
constexpr nu_locale_rec static_handle(int32_t code) {
    nu_locale_rec h{};
    h.error = code;
    return h;
}
} // namespace

// Handed to the caller instead of a handle when creation fails; never freed.
nu_locale_rec loc_nomem = static_handle(NU_ENOMEM);
nu_locale_rec loc_filer = static_handle(NU_ENOFILE);

namespace {

constexpr char kDefaultLocale[] = "default.lco";
constexpr size_t kMaxDirectoryLength = 116;

bool is_static_handle(const nu_locale_rec *h) { return h == &loc_nomem || h == &loc_filer; }

// An empty two-byte-descriptor table, as the null CTYPE and COLLATE categories hold.
multi_t *empty_table(nu_locale_rec *h) {
    static const uint16_t zero = 0;
    multi_t *table = _nu_create_multi(sizeof zero, 0, &zero);
    if (table == nullptr) nus::set_error(h, NU_ENOMEM);
    return table;
}

void free_ctype(nu_locale_rec *h) {
    nus::CtypeFields &ct = h->ctype;
    _nu_free_multi(ct.class_table);
    _nu_free_multi(ct.case_table);
    if (ct.class_names != nullptr) {
        for (int32_t i = 0; i < ct.class_name_count; ++i) _nu_free_ptr(ct.class_names[i].name);
    }
    _nu_free_ptr(ct.class_names);
    _nu_free_ptr(ct.case_pairs);
    ct = {};
}

void clear_names(nu_locale_rec *h, int category) {
    const int i = nus::cat_index(category);
    // Only the six real categories have names to clear.
    if (i < 0 || i >= nus::kCategories) return;
    h->codeset[i][0] = '\0';
    h->locname[i][0] = '\0';
    h->companion[i] = nullptr;
    h->companion_flag[i] = 0;
}

} // namespace

namespace nus {

void free_single_byte_tables(nu_locale_rec *h) {
    _nu_free_ptr(h->sb_upper);
    _nu_free_ptr(h->sb_lower);
    _nu_free_ptr(h->sb_class);
    h->sb_upper = nullptr;
    h->sb_lower = nullptr;
    h->sb_class = nullptr;
}

} // namespace nus

namespace {

void free_locale(nu_locale_rec *h) {
    char text[64];
    std::snprintf(text, sizeof text, "freeing locale 0x%" PRIxPTR "\n",
                  reinterpret_cast<uintptr_t>(h));
    nu_message(text);
    for (int category = NU_CTYPE; category <= NU_MESSAGES; ++category)
        nu_free_category(h, category);
    nus::free_single_byte_tables(h);
    _nu_free_ptr(h);
}

} // namespace

NU_EXPORT void nu_make_null_category(nu_locale_t h, int category) {
    if (nus::no_handle(h)) return;
    // A category shared with other handles is let go of: the empty one replaces it.
    nus::release_shared(h, category);
    switch (category) {
    case NU_CTYPE:
        h->ctype = {};
        h->ctype.class_table = empty_table(h);
        h->ctype.case_table = empty_table(h);
        nus::free_single_byte_tables(h);
        break;
    case NU_COLLATE:
        h->coll = {};
        h->coll.table = empty_table(h);
        h->has_collation = 0;
        h->element_count = 0;
        h->expansion_count = 0;
        break;
    case NU_NUMERIC:
        nus::init_numeric(h);
        nus::free_nuconv_numeric(h);
        break;
    case NU_MONETARY:
        nus::init_monetary(h);
        nus::free_nuconv_monetary(h);
        break;
    case NU_TIME:
        nus::init_ltime(h);   // the POSIX locale's names and formats, Gregorian dates
        break;
    case NU_MESSAGES:
        nus::init_messages(h);
        break;
    default:
        break;
    }
    clear_names(h, category);
}

NU_EXPORT void nu_free_category(nu_locale_t h, int category) {
    if (h == nullptr || is_static_handle(h)) return;
    const int i = nus::cat_index(category);
    // Data copied from another handle is only let go of: its owner frees it. Data shared
    // between handles that loaded one file goes with the last of them.
    const bool owned =
        i < 0 || i >= nus::kCategories || (h->borrowed[i] == 0 && h->shared[i] == nullptr);
    switch (category) {
    case NU_CTYPE:
        if (owned) free_ctype(h);
        h->ctype = {};
        // The bound functions' cache walked the code set of this CTYPE; what the time
        // functions derived used its case maps and encoding.
        nus::free_bound_cache(h);
        nus::free_era_cache(h);
        break;
    case NU_COLLATE:
        // The bound functions' cache belongs to this handle even when the tables do not.
        if (owned) nus::free_collate(h);
        else nus::free_bound_cache(h);
        h->coll = {};
        break;
    case NU_NUMERIC:
        if (owned) nus::free_numeric(h);
        nus::init_numeric(h);
        nus::free_nuconv_numeric(h);
        break;
    case NU_MONETARY:
        if (owned) nus::free_monetary(h);
        nus::init_monetary(h);
        nus::free_nuconv_monetary(h);
        break;
    case NU_TIME:
        // The era cache is never shared: it goes with the handle either way.
        if (owned) nus::free_ltime(h);
        nus::free_era_cache(h);
        h->time = {};
        break;
    case NU_MESSAGES:
        if (owned) nus::free_messages(h);
        nus::init_messages(h);
        break;
    default:
        break;
    }
    // The companion's object goes with the category, unless a copy only borrows it (each
    // handle that loads a file makes its own, also when it shares the file's tables).
    const bool copied = i >= 0 && i < nus::kCategories && h->borrowed[i] != 0;
    nus::nuu_release(h, category, !copied);
    if (!owned) {
        h->borrowed[i] = 0;
        nus::release_shared(h, category);
    }
    clear_names(h, category);
}

NU_EXPORT int nu_create_null_locale_4(nu_locale_t *handle) {
    if (handle == nullptr) return -1;
    auto *h = nus::alloc_zeroed<nu_locale_rec>(1);
    if (h == nullptr) {
        *handle = &loc_nomem;
        return -1;
    }
    h->error = NU_SUCCESS;
    *handle = h;
    h->case_expansion = 1.0;
    h->expansion2 = 1.0;
    // The string functions of the null locale, until a load chooses the locale's own: the
    // formatting functions widen their formats through them before anything is loaded.
    h->to_wide = _nu_im_mbstowcs;
    h->counted_to_wide = _tsn_nu_im_mbfstowcfs;
    nus::init_nuconv_monetary(h);
    nus::init_nuconv_numeric(h);
    for (int category = NU_CTYPE; category <= NU_MESSAGES; ++category) {
        h->companion[nus::cat_index(category)] = nullptr;
        nu_make_null_category(h, category);
    }
    return 0;
}

NU_EXPORT void nu_lc_unload(nu_locale_t h) {
    if (h == nullptr || is_static_handle(h)) return;
    free_locale(h);
}

// Frees a handle that shares category data with another: its own parts only.
NU_EXPORT void nu_free_nonshared_loc(nu_locale_t h) {
    if (h == nullptr || is_static_handle(h)) return;
    for (int category = NU_CTYPE; category <= NU_MESSAGES; ++category)
        nu_free_category(h, category);
    nus::free_single_byte_tables(h);
    _nu_free_ptr(h);
}

NU_EXPORT int nu_createlocale2_4(nu_locale_t *handle, const char *directory) {
    if (handle == nullptr) return -1;
    if (directory != nullptr && std::strlen(directory) > kMaxDirectoryLength) {
        // Kept for compatibility: the code goes through the error lookup applied to the
        // caller's variable, so with the default lookup the variable reads as the number 8.
        *handle = nullptr;
        nus::set_error(handle, NU_ENOFILE);
        return -1;
    }
    if (nu_create_null_locale_4(handle) != 0 || *handle == nullptr) return -1;
    nu_locale_t h = *handle;

    FILE *stream = nullptr;
    if (directory != nullptr) {
        char path[kMaxDirectoryLength + sizeof kDefaultLocale];
        std::snprintf(path, sizeof path, "%s%s", directory, kDefaultLocale);
        stream = _nu_ext_fopen(path, "r");
    }
    if (stream == nullptr) stream = nu_path_search(h, kDefaultLocale, "lc", nu_lc_version());
    if (stream == nullptr) {
        nu_lc_unload(h);
        *handle = &loc_filer;
        return -1;
    }

    const int failed = nus::read_locale_file(stream, h);
    _nu_ext_fclose(stream);
    if (failed != 0) return -1;
    for (auto &name : h->locname) std::snprintf(name, sizeof name, "%s", kDefaultLocale);
    if (nus::update_locale(h) != 0) return -1;
    nus::init_locale_info(h);
    return 0;
}

NU_EXPORT int nu_createlocale_4(nu_locale_t *handle) {
    return nu_createlocale2_4(handle, nullptr);
}
