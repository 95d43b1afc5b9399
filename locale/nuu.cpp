// The companion bridge: loading the companion Unicode library named by "dllregistry" when
// NU_USENUU asks for it, its locale map "locmap", and the switch of a handle's Unicode
// categories into companion mode.
//
// dllregistry: lines "BITS PATH": the companion for a library of that word size (32 or 64);
// "#" starts a comment. locmap: lines "LOCALE-FILE COMPANION-LOCALE", the locale file name as
// a category loads it ("de_de/e01c.lco") and the companion's locale ("de_DE").
#include "locale/nuu.h"

#include "locale/locale.h"

#include <dlfcn.h>

struct nu_nuu_map {
    int32_t count;
    struct Entry {
        char file[64];
        char locale[64];
    } *entries;
};

extern "C" {
#define NUS_NUU_POINTER(ret, name, args)                                                       \
    __attribute__((visibility("default"))) nu_nuu_entry fn_##name = nullptr;
NUU_ENTRY_POINTS(NUS_NUU_POINTER)
#undef NUS_NUU_POINTER
__attribute__((visibility("default"))) int unicode_collate = 0;
__attribute__((visibility("default"))) int nuu_capable = 0;
__attribute__((visibility("default"))) nu_nuu_map *pMap = nullptr;
}

namespace {

constexpr unsigned kUtf8 = 0xE01C;   // the registry's number of UTF-8
void *g_library = nullptr;

void log_message(const char *text) { nu_message(text); }

void log_pair(const char *text, const char *detail) {
    char line[1200];
    std::snprintf(line, sizeof line, "%s%s", text, detail != nullptr ? detail : "");
    log_message(line);
}

bool requested() {
    const char *value = _nu_get_env_var("NU_USENUU");
    return value != nullptr && value[0] != '\0' && std::strcmp(value, "0") != 0;
}

void forget_entry_points() {
#define NUS_NUU_FORGET(ret, name, args) fn_##name = nullptr;
    NUU_ENTRY_POINTS(NUS_NUU_FORGET)
#undef NUS_NUU_FORGET
}

// Each line of a data file, without its newline, its blanks and its comment; false at the end.
bool next_line(FILE *stream, char *line, int size) {
    while (_nu_ext_fgets(line, size, stream) != nullptr) {
        char *hash = std::strchr(line, '#');
        if (hash != nullptr) *hash = '\0';
        size_t n = std::strlen(line);
        while (n > 0 && (line[n - 1] == '\n' || line[n - 1] == ' ' || line[n - 1] == '\t'))
            line[--n] = '\0';
        char *p = line;
        while (*p == ' ' || *p == '\t') ++p;
        if (*p == '\0') continue;
        std::memmove(line, p, std::strlen(p) + 1);
        return true;
    }
    return false;
}

// The companion that dllregistry names for this word size, into path; false when there is
// none (not installed for this build).
bool companion_path(FILE *stream, char *path, size_t size) {
    const int bits = static_cast<int>(sizeof(void *) * 8);
    char line[1100];
    while (next_line(stream, line, sizeof line)) {
        char *end = nullptr;
        const long entry_bits = std::strtol(line, &end, 10);
        if (end == line || entry_bits != bits || (*end != ' ' && *end != '\t')) continue;
        while (*end == ' ' || *end == '\t') ++end;
        // A line without a path names nothing (an empty name would be the program itself).
        if (*end == '\0' || std::strlen(end) >= size) continue;
        std::strcpy(path, end);
        return true;
    }
    return false;
}

// The first two blank-separated words of a line, each shorter than `size`; false for a line
// with fewer words or a longer word (a line the map cannot hold whole).
bool two_words(const char *line, char *first, char *second, size_t size) {
    char *out[2] = {first, second};
    const char *p = line;
    for (char *word : out) {
        while (*p == ' ' || *p == '\t') ++p;
        size_t n = 0;
        while (p[n] != '\0' && p[n] != ' ' && p[n] != '\t') ++n;
        if (n == 0 || n >= size) return false;
        std::memcpy(word, p, n);
        word[n] = '\0';
        p += n;
    }
    return true;
}

// Reads locmap; a missing file gives an empty map (the companion then serves nothing).
nu_nuu_map *read_locmap(nu_locale_rec *h) {
    auto *map = nus::alloc_zeroed<nu_nuu_map>(1);
    if (map == nullptr) return nullptr;
    FILE *stream = nu_path_search(h, "locmap", "cm", nu_cm_version());
    if (stream == nullptr) return map;
    int capacity = 0;
    char line[256];
    while (next_line(stream, line, sizeof line)) {
        nu_nuu_map::Entry entry{};
        if (!two_words(line, entry.file, entry.locale, sizeof entry.file)) continue;
        if (map->count == capacity) {
            capacity = capacity == 0 ? 64 : capacity * 2;
            auto *grown = nus::alloc_array<nu_nuu_map::Entry>(static_cast<size_t>(capacity));
            if (grown == nullptr) {
                _nu_ext_fclose(stream);
                _nu_free_ptr(map->entries);
                _nu_free_ptr(map);
                return nullptr;
            }
            if (map->count > 0)
                std::memcpy(grown, map->entries, sizeof entry * static_cast<size_t>(map->count));
            _nu_free_ptr(map->entries);
            map->entries = grown;
        }
        map->entries[map->count++] = entry;
    }
    _nu_ext_fclose(stream);
    return map;
}

// The host functions the companion calls back: code-set names from the registry, and the
// external-function table's stream functions.
int host_codeset_name(unsigned int number, char *out) {
    char name[NU_CS_NAME_SIZE];
    if (nu_cs_num2cs_name(nullptr, number, name, nullptr) != 0) return -1;
    std::snprintf(out, 64, "%s", name);
    return 0;
}
int host_fgetc(void *stream) { return _nu_ext_fgetc(static_cast<FILE *>(stream)); }
int host_feof(void *stream) { return _nu_ext_feof(static_cast<FILE *>(stream)); }
int host_ferror(void *stream) { return _nu_ext_ferror(static_cast<FILE *>(stream)); }
const nuu_host g_host{NUU_INTERFACE_VERSION, host_codeset_name, host_fgetc, host_feof,
                      host_ferror};

// Loads the companion at path and resolves every entry point; false (logged) when it cannot.
bool load_companion(const char *path) {
    void *library = tsrn_dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        log_pair("nu_init_nuu: cannot load the companion: ", tsrn_dlerror());
        return false;
    }
    bool complete = true;
#define NUS_NUU_RESOLVE(ret, name, args)                                                       \
    if (complete) {                                                                            \
        fn_##name = reinterpret_cast<nu_nuu_entry>(tsrn_dlsym(library, #name));                \
        if (fn_##name == nullptr) {                                                            \
            log_pair("nu_init_nuu: the companion lacks ", #name);                              \
            complete = false;                                                                  \
        }                                                                                      \
    }
    NUU_ENTRY_POINTS(NUS_NUU_RESOLVE)
#undef NUS_NUU_RESOLVE
    nuu_status status = 0;
    if (complete && nus::call_nuu_init()(&g_host, &status) != 0) {
        log_message("nu_init_nuu: the companion refused to start");
        complete = false;
    }
    if (!complete) {
        forget_entry_points();
        tsrn_dlclose(library);
        return false;
    }
    g_library = library;
    return true;
}

const char *companion_locale(const char *name) {
    if (pMap == nullptr || name == nullptr) return nullptr;
    const size_t length = std::strlen(name);
    for (int i = 0; i < pMap->count; ++i) {
        const char *file = pMap->entries[i].file;
        const size_t n = std::strlen(file);
        // The file name alone, or at the end of a path (a load from a given directory).
        if (n <= length && std::strcmp(name + length - n, file) == 0 &&
            (n == length || name[length - n - 1] == '/' ||
             static_cast<unsigned char>(name[length - n - 1]) == NU_PATH_MARK))
            return pMap->entries[i].locale;
    }
    return nullptr;
}

} // namespace

NU_EXPORT int nu_init_nuu(nu_locale_t h) {
    if (!requested() || nuu_capable == 1) return 0;
    // Not finding the registry is no failure: the companion is not installed.
    const int saved = h != nullptr ? *_nu_ext_errno(h) : 0;
    FILE *stream = nu_path_search(h, "dllregistry", "cm", nu_cm_version());
    if (h != nullptr) nus::set_error(h, saved);
    if (stream == nullptr) {
        log_message("nu_init_nuu: no dllregistry, the locales stay table-driven");
        return 0;
    }
    char path[1024];
    const bool listed = companion_path(stream, path, sizeof path);
    _nu_ext_fclose(stream);
    if (!listed) {
        log_message("nu_init_nuu: no companion for this build, the locales stay table-driven");
        return 0;
    }
    if (!load_companion(path)) {
        if (h != nullptr) nus::set_error(h, NU_ELOAD);
        return -1;
    }
    nu_nuu_map *map = read_locmap(h);
    if (h != nullptr) nus::set_error(h, saved);
    if (map == nullptr) {
        nu_free_nuu();
        if (h != nullptr) nus::set_error(h, NU_ENOMEM);
        return -1;
    }
    pMap = map;
    nuu_capable = 1;
    unicode_collate = 1;
    log_message("nu_init_nuu: companion loaded");
    return 0;
}

NU_EXPORT void nu_free_nuu(void) {
    if (pMap != nullptr) {
        _nu_free_ptr(pMap->entries);
        _nu_free_ptr(pMap);
        pMap = nullptr;
    }
    forget_entry_points();
    if (g_library != nullptr) tsrn_dlclose(g_library);
    g_library = nullptr;
    nuu_capable = 0;
    unicode_collate = 0;
}

NU_EXPORT const char *nu_nuu_locale(nu_locale_t h, int category) {
    if (h == nullptr || (category != NU_CTYPE && category != NU_COLLATE)) return nullptr;
    const int i = nus::cat_index(category);
    if (h->companion_flag[i] != 1) return nullptr;
    return companion_locale(h->locname[i][0] != '\0' ? h->locname[i] : nullptr);
}

namespace nus {

bool nuu_active() { return nuu_capable == 1 && requested(); }

int set_categories_nuu(nu_locale_rec *h, int category, const char *name) {
    // NU_USENUU is read at every load: a load without it stays table-driven even once the
    // companion is loaded for other handles.
    if (!nuu_active() || (category != NU_CTYPE && category != NU_COLLATE)) return 0;
    const char *locale = companion_locale(name);
    if (locale == nullptr) return 0;
    const int i = cat_index(category);
    const int saved = h->error;
    const unsigned number = nu_cs_name2cs_num(h, h->codeset[i], nullptr);
    set_error(h, saved);
    if (number != kUtf8) return 0;
    nuu_status status = 0;
    nuu_obj *object = call_nuu_open()(locale, "utf8", category, &status);
    if (object == nullptr) {
        log_pair("set_categories_nuu: the companion cannot serve ", locale);
        return 0;
    }
    h->companion[i] = object;
    h->companion_flag[i] = 1;
    if (category == NU_COLLATE) h->coll.method = 3;
    return 0;
}

void nuu_release(nu_locale_rec *h, int category, bool owned) {
    const int i = cat_index(category);
    if (i < 0 || i >= kCategories) return;
    if (owned && h->companion[i] != nullptr && fn_nuu_close != nullptr)
        call_nuu_close()(static_cast<nuu_obj *>(h->companion[i]));
    h->companion[i] = nullptr;
    h->companion_flag[i] = 0;
}

} // namespace nus
