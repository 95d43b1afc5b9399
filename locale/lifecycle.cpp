// Loading locales into handles category by category, queries, copies between handles, and
// the derived state brought up to date after every change.
#include "collate/collate.h"
#include "frame/multi.h"
#include "locale/locale.h"
#include "locale/nuu.h"

namespace {

constexpr size_t kResultSize = 311;     // the text set_categories returns
constexpr size_t kMaxSpecLength = 311;  // longer specifications are refused
constexpr size_t kNameSize = nus::kLocaleNameSize;
constexpr const char kDefaultLocale[] = "default.lco";
constexpr const char kNative[] = "native";

constexpr const char *category_params[] = {"",           "",         "NU_CTYPE",
                                           "NU_COLLATE", "NU_NUMERIC", "NU_MONETARY",
                                           "NU_TIME",    "NU_MESSAGES"};

void log_message(const char *text) { nu_message(text); }

// Copies at most `size` - 1 bytes of `text` and terminates.
void copy_name(char *out, size_t size, const char *text, size_t length) {
    if (length > size - 1) length = size - 1;
    std::memcpy(out, text, length);
    out[length] = '\0';
}

// Opens a locale file: directory + "/" + name when a directory is given, else along the
// search path; null (with the search's code) when it cannot be had.
FILE *open_locale(nu_locale_rec *h, const char *name, const char *directory) {
    if (directory == nullptr) return nu_path_search(h, name, "lc", nu_lc_version());
    const size_t length = std::strlen(directory) + 1 + std::strlen(name);
    nus::Scratch<char, 512> path(length + 1);
    if (!path.ok()) {
        nus::set_error(h, NU_ENOMEM);
        return nullptr;
    }
    std::snprintf(path.data(), length + 1, "%s/%s", directory, name);
    return nu_open_file(h, path.data());
}

// Empties the category and reads its section from the stream, which is closed. A category
// that another handle loaded from the same unchanged file is shared with it instead.
int read_category(nu_locale_rec *h, int category, FILE *stream,
                  nus::SectionResume *resume = nullptr, const char *name = nullptr) {
    nu_free_category(h, category);
    // A shared category replaces the emptied one whole: the empty tables that a reader would
    // fill are made only when the section is read.
    nus::FileKey key{};
    const bool keyed = nus::file_key(stream, &key);
    int result = 1;
    const int taken = keyed ? nus::take_shared(h, category, key) : 0;
    if (taken == 0) {
        nu_make_null_category(h, category);
        result = nus::read_one_category(h, category, stream, resume, name);
        if (result == 0 && keyed) nus::offer_shared(h, category, key);
    } else {
        result = taken > 0 ? 0 : 1;
    }
    _nu_ext_fclose(stream);
    return result;
}

int load_native_category(nu_locale_rec *h, int category, char *name_out,
                         const char *directory) {
    copy_name(name_out, kNameSize, kNative, sizeof kNative - 1);
    FILE *stream = directory != nullptr ? open_locale(h, kNative, directory)
                                        : nu_path_search(h, kDefaultLocale, "lc",
                                                         nu_lc_version());
    if (stream == nullptr) return 1;
    return read_category(h, category, stream);
}

// The name for one category: from the locale specification (its keyword's item, or the whole
// text), else from the environment.
int load_category(nu_locale_rec *h, int category, const char *text, char *name_out,
                  const char *directory, nus::SectionResume *resume) {
    // A whole text is a name of up to a locale name's longest length (a file's path, say);
    // only the name kept for queries is cut to the handle's 32 characters.
    char name[kMaxSpecLength + 1];
    if (text[0] != '\0') {
        const char *keyword = std::strstr(text, category_params[category]);
        if (keyword != nullptr) {
            const char *p = std::strchr(keyword, '=');
            p = p != nullptr ? p + 1 : keyword + std::strlen(keyword);
            while (*p == ' ') ++p;
            size_t length = 0;
            while (p[length] != '\0' && p[length] != ' ' && length < kNameSize) ++length;
            copy_name(name, sizeof name, p, length);
        } else {
            copy_name(name, sizeof name, text, std::strlen(text));
        }
    } else {
        const char *value = _nu_get_env_var("NU_ALL");
        if (value == nullptr) value = _nu_get_env_var(category_params[category]);
        if (value == nullptr) value = _nu_get_env_var("NU_LANG");
        if (value == nullptr) value = kDefaultLocale;
        if (std::strlen(value) > kNameSize) {
            nus::set_error(h, NU_ENOFILE);
            return 1;
        }
        copy_name(name, sizeof name, value, std::strlen(value));
    }
    if (std::strcmp(name, kNative) == 0)
        return load_native_category(h, category, name_out, directory);
    copy_name(name_out, kNameSize, name, std::strlen(name));
    FILE *stream = open_locale(h, name, directory);
    if (stream == nullptr) return 1;
    if (read_category(h, category, stream, resume, name) != 0) return 1;
    // A Unicode locale may be served by the companion library.
    return nus::set_categories_nuu(h, category, name);
}

char *query_locname(nu_locale_rec *h, int category, char *buffer) {
    buffer[0] = '\0';
    if (category == NU_ALL) {
        size_t used = 0;
        for (int c = NU_CTYPE; c <= NU_MESSAGES; ++c) {
            const int n = std::snprintf(buffer + used, kResultSize - used, "%s = %s ; ",
                                        category_params[c], h->locname[nus::cat_index(c)]);
            if (n < 0 || static_cast<size_t>(n) >= kResultSize - used) break;
            used += static_cast<size_t>(n);
        }
    } else if (category >= NU_CTYPE && category <= NU_MESSAGES) {
        std::snprintf(buffer, kResultSize, "%s", h->locname[nus::cat_index(category)]);
    }
    return buffer;
}

// Loads the categories asked for and returns the query text, or null.
char *set_categories(nu_locale_rec *h, int category, const char *spec, const char *directory) {
    nus::Owned<char> result(nus::alloc_array<char>(kResultSize));
    if (!result) {
        nus::set_error(h, NU_ENOMEM);
        return nullptr;
    }
    if (spec == nullptr) return query_locname(h, category, result.release());
    const size_t length = std::strlen(spec);
    if (length > kMaxSpecLength || category < NU_ALL || category > NU_MESSAGES) {
        nus::set_error(h, NU_EBADVAL);
        return nullptr;
    }
    char text[kMaxSpecLength + 1];
    std::memcpy(text, spec, length + 1);
    const int first = category == NU_ALL ? NU_CTYPE : category;
    const int last = category == NU_ALL ? NU_MESSAGES : category;
    nus::SectionResume resume{};
    for (int c = first; c <= last; ++c) {
        char name[kNameSize];
        name[0] = '\0';
        if (load_category(h, c, text, name, directory, &resume) != 0) {
            if (h->error == 0) nus::set_error(h, NU_ELOAD);
            // The failing category was emptied: the flags and functions chosen for what it
            // held before must follow (a collation over the old CTYPE's tables would read
            // freed or missing ones). The load's own code is the one the caller sees.
            const int code = h->error;
            nus::update_locale(h);
            nus::set_error(h, code);
            return nullptr;
        }
        copy_name(h->locname[nus::cat_index(c)], kNameSize, name, std::strlen(name));
    }
    nus::update_locale(h);
    nus::init_locale_info(h);
    return query_locname(h, category, result.release());
}

} // namespace

namespace nus {

// Widens each code-set and locale name byte by byte into its wide twin. Kept out of the
// interprocedural analyses: g++ 12 for i386 otherwise drops calls to it as if the stores were
// dead (seen with -m32 at -O1 and above).
[[gnu::noipa]] void init_locale_info(nu_locale_rec *h) {
    for (int i = 0; i < kCategories; ++i) {
        for (int k = 0; k < kCodesetNameSize; ++k)
            h->wcodeset[i][k] = static_cast<unsigned char>(h->codeset[i][k]);
        for (int k = 0; k < kLocaleNameSize; ++k)
            h->wlocname[i][k] = static_cast<unsigned char>(h->locname[i][k]);
    }
}

// Single-byte code sets get the fast tables and the single-byte converters; then the
// collation functions for the COLLATE category's method and features.
int set_function_pointers(nu_locale_rec *h) {
    if (!h->single_byte) {
        h->to_wide = _nu_im_mbstowcs;
        h->counted_to_wide = _tsn_nu_im_mbfstowcfs;
    } else {
        if (build_single_byte_tables(h) != 0) return -1;
        h->to_wide = _nu_is_mbstowcs;
        h->counted_to_wide = _tsn_nu_is_mbfstowcfs;
    }
    set_collation_fp(h);
    return 0;
}

int set_flags(nu_locale_rec *h) {
    h->single_byte = _nu_multi_max_length(h->ctype.class_table) == 1 ? 1 : 0;
    const multi_t *table = h->ctype.class_table;
    const unsigned char *root =
        table != nullptr && table->root != nullptr ? table->root->flag_arr : nullptr;
    h->ascii_direct = 0;
    if (root != nullptr) {
        int b = 0;
        while (b < 128 && root[b] == MULTI_LAST) ++b;
        h->ascii_direct = b == 128 ? 1 : 0;
    }
    h->has_collation = h->coll.method != 0 && h->coll.table != nullptr ? 1 : 0;
    return set_function_pointers(h) != 0 ? -1 : 0;
}

int check_codesets(nu_locale_rec *h) {
    // One name is one number: only names that differ from CTYPE's need the registry, which
    // is read from its file on every lookup when it is not cached.
    unsigned int ctype = 0;
    bool looked_up = false;
    // The MESSAGES code set is deliberately not compared.
    for (int c = NU_COLLATE; c <= NU_TIME; ++c) {
        const char *name = h->codeset[cat_index(c)];
        if (std::strcmp(name, h->codeset[0]) == 0) continue;
        if (!looked_up) {
            ctype = nu_cs_name2cs_num(h, h->codeset[0], nullptr);
            if (h->error == NU_ENOMEM) return -1;
            looked_up = true;
        }
        const unsigned int number = nu_cs_name2cs_num(h, name, nullptr);
        if (h->error == NU_ENOMEM) return -1;
        if (number != ctype) {
            set_error(h, NU_ECODESET);
            return -1;
        }
    }
    set_error(h, NU_SUCCESS);
    return 0;
}

int update_locale(nu_locale_rec *h) {
    if (set_flags(h) != 0) return -1;
    return check_codesets(h);
}

} // namespace nus

NU_EXPORT char *nu_setlocale_4(nu_locale_t h, int category, const char *spec) {
    if (nus::no_handle(h)) return nullptr;
    log_message("nu_setlocale: Begin");
    log_message("nu_setlocale: Calling nu_init_nuu");
    if (nu_init_nuu(h) != 0) {
        log_message("nu_setlocale: nu_init_nuu failed");
        return nullptr;
    }
    log_message("nu_setlocale: Calling set_categories");
    char *result = set_categories(h, category, spec, nullptr);
    log_message("nu_setlocale: retVal from set_categories");
    log_message(result != nullptr ? result : "NULL");
    log_message("nu_setlocale: End");
    return result;
}

NU_EXPORT int nu_lc_load(nu_locale_t *handle, const char *spec, const char *registry,
                         const char *directory) {
    if (handle == nullptr) return -1;
    char name[512];
    int32_t scratch = 0;
    const char *use = spec;
    if (spec != nullptr && std::strlen(spec) < 286 &&
        nu_lc_spec2lc_fname(&scratch, spec, name, registry, nullptr) == 0)
        use = name;
    if (nu_create_null_locale_4(handle) != 0) return -1;
    nu_locale_t h = *handle;
    if (nu_init_nuu(h) != 0) return -1;
    char *result = set_categories(h, NU_ALL, use != nullptr ? use : "", directory);
    nu_destroystring(result);
    return h->error != 0 ? -1 : 0;
}

// ---- copies -----------------------------------------------------------------------------

namespace {

bool is_loaded(const nu_locale_rec *h, int category) {
    const int i = nus::cat_index(category);
    return h->locname[i][0] != '\0' && h->codeset[i][0] != '\0';
}
bool is_empty(const nu_locale_rec *h, int category) {
    const int i = nus::cat_index(category);
    return h->locname[i][0] == '\0' && h->codeset[i][0] == '\0';
}

// A copy needs a loaded source category and an empty destination; the first category that
// breaks either rule decides.
int invalid_copy(nu_locale_rec *dst, nu_locale_rec *src, int category) {
    const int first = category == NU_ALL ? NU_CTYPE : category;
    const int last = category == NU_ALL ? NU_MESSAGES : category;
    for (int c = first; c <= last; ++c) {
        if (!is_loaded(src, c)) {
            nus::set_error(dst, NU_ENOCAT);
            return -1;
        }
        if (!is_empty(dst, c)) {
            nus::set_error(dst, NU_ECOPY);
            return -1;
        }
    }
    return 0;
}

int copy_category(nu_locale_rec *dst, nu_locale_rec *src, int category) {
    nu_free_category(dst, category);
    // The conventions record is rebuilt for the destination; when its memory is refused the
    // copy fails with 3, which the update that follows would otherwise clear.
    bool record_built = true;
    switch (category) {
    case NU_CTYPE:
        dst->ctype = src->ctype;   // shared with the source
        break;
    case NU_COLLATE:
        dst->coll = src->coll;     // shared with the source
        dst->coll.bound_cache = nullptr;
        dst->coll.key_cache = nullptr;
        dst->element_count = src->element_count;
        dst->expansion_count = src->expansion_count;
        break;
    case NU_NUMERIC:
        nus::copy_numeric(dst, src);
        nus::free_nuconv_numeric(dst);
        record_built = nus::load_nuconv_numeric(dst) == 0;
        break;
    case NU_MONETARY:
        nus::copy_monetary(dst, src);
        nus::free_nuconv_monetary(dst);
        record_built = nus::load_nuconv_monetary(dst) == 0;
        break;
    case NU_TIME:
        dst->time = src->time;     // shared with the source, but for the era cache
        dst->time.era_cache = nullptr;
        dst->time.era_cache_count = 0;
        break;
    case NU_MESSAGES:
        nus::copy_messages(dst, src);
        break;
    default:
        return -1;
    }
    const int i = nus::cat_index(category);
    dst->borrowed[i] = 1;
    // The companion's object of the category is shared as well.
    dst->companion[i] = src->companion[i];
    dst->companion_flag[i] = src->companion_flag[i];
    std::memcpy(dst->codeset[i], src->codeset[i], sizeof dst->codeset[i]);
    std::memcpy(dst->locname[i], src->locname[i], sizeof dst->locname[i]);
    const int updated = nus::update_locale(dst);
    if (!record_built) {
        nus::set_error(dst, NU_ENOMEM);
        return -1;
    }
    return updated;
}

} // namespace

NU_EXPORT int nu_copy_cat(nu_locale_t dst, nu_locale_t src, int category) {
    if (dst == nullptr || src == nullptr) return -1;
    if (category < NU_ALL || category > NU_MESSAGES) {
        nus::set_error(dst, NU_EBADVAL);
        return -1;
    }
    if (invalid_copy(dst, src, category) != 0) return -1;
    const int first = category == NU_ALL ? NU_CTYPE : category;
    const int last = category == NU_ALL ? NU_MESSAGES : category;
    // The result of each copy is not examined (kept for compatibility: the call returns 0),
    // but a refused allocation stays in the error slot, where a later copy's update would
    // otherwise clear it.
    bool out_of_memory = false;
    for (int c = first; c <= last; ++c) {
        if (copy_category(dst, src, c) != 0 && *_nu_ext_errno(dst) == NU_ENOMEM)
            out_of_memory = true;
    }
    if (out_of_memory) nus::set_error(dst, NU_ENOMEM);
    return 0;
}
