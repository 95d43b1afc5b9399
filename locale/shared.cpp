// Categories shared between handles that load the same unchanged locale file.
//
// A category's data never changes once its section is read, so a second handle that loads the
// same file can use the first one's tables: the data moves into a reference-counted entry of a
// process-wide list, each handle that uses it holds one reference, and the last release frees
// it. A file is the same when its device, inode, size and modification time are; these come
// from the open stream, so only streams of the default file functions are considered (an
// embedding program that installs its own file functions sees every load read its files).
// Tables are only handed to a handle whose allocator slots are those the entry was made with.
// Categories other than CTYPE keep wide twins of their strings made with the CTYPE of the
// handle that read them: they are shared only between handles whose CTYPE came from the same
// file.
#include "locale/locale.h"
#include "time/category.h"

#include <cstddef>
#include <pthread.h>
#include <sys/stat.h>

namespace nus {

namespace {

constexpr int kFileSlots[] = {NU_EXT_FCLOSE, NU_EXT_FEOF,  NU_EXT_FERROR, NU_EXT_FGETC,
                              NU_EXT_FGETS,  NU_EXT_FOPEN, NU_EXT_FSEEK,  NU_EXT_FTELL,
                              NU_EXT_GETC,   NU_EXT_UNGETC};
constexpr int kMemorySlots[] = {NU_EXT_MALLOC, NU_EXT_FREE, NU_EXT_CALLOC, NU_EXT_REALLOC};
constexpr int kMemorySlotCount = sizeof kMemorySlots / sizeof kMemorySlots[0];

nu_extfunc slot_function(int slot) { return _nu_ext_func != 0 ? _nu_get_ext_funcptr(slot) : nullptr; }

// A category's fields as a load leaves them in the handle.
struct CtypeData {
    CtypeFields ctype;
    double case_expansion;
};
struct CollateData {
    CollateFields coll;
    int32_t element_count;
    int32_t expansion_count;
};
union Payload {
    CtypeData ctype;
    CollateData collate;
    LconvFields lc;               // NUMERIC, MONETARY or MESSAGES: that category's part
    TimeFields time;
};

struct Entry {
    Entry *next;
    FileKey key;
    FileKey ctype_key;            // the CTYPE file of the handle that read it (not for CTYPE)
    int category;
    long references;
    nu_extfunc memory[kMemorySlotCount];
    char codeset[kCodesetNameSize];
    Payload data;                 // only the category's member is allocated
};

size_t entry_size(int category) {
    const size_t header = offsetof(Entry, data);
    switch (category) {
    case NU_CTYPE: return header + sizeof(CtypeData);
    case NU_COLLATE: return header + sizeof(CollateData);
    case NU_TIME: return header + sizeof(TimeFields);
    default: return header + sizeof(LconvFields);
    }
}

pthread_mutex_t g_lock = PTHREAD_MUTEX_INITIALIZER;
Entry *g_entries = nullptr;

bool same_key(const FileKey &a, const FileKey &b) {
    return a.device == b.device && a.inode == b.inode && a.size == b.size &&
           a.mtime_sec == b.mtime_sec && a.mtime_nsec == b.mtime_nsec;
}

bool same_memory(const Entry &e) {
    for (int k = 0; k < kMemorySlotCount; ++k)
        if (e.memory[k] != slot_function(kMemorySlots[k])) return false;
    return true;
}

void store(Entry *e, const nu_locale_rec *h, int category) {
    switch (category) {
    case NU_CTYPE:
        e->data.ctype = {h->ctype, h->case_expansion};
        break;
    case NU_COLLATE:
        e->data.collate = {h->coll, h->element_count, h->expansion_count};
        e->data.collate.coll.bound_cache = nullptr;   // per handle
        e->data.collate.coll.key_cache = nullptr;     // per handle
        break;
    case NU_TIME:
        e->data.time = h->time;
        e->data.time.era_cache = nullptr;             // per handle
        e->data.time.era_cache_count = 0;
        break;
    default:
        e->data.lc = {};
        copy_lconv(category, e->data.lc, h->lc);
        break;
    }
    std::memcpy(e->codeset, h->codeset[cat_index(category)], sizeof e->codeset);
}

void install(nu_locale_rec *h, const Entry *e, int category) {
    switch (category) {
    case NU_CTYPE:
        h->ctype = e->data.ctype.ctype;
        h->case_expansion = e->data.ctype.case_expansion;
        break;
    case NU_COLLATE:
        h->coll = e->data.collate.coll;
        h->element_count = e->data.collate.element_count;
        h->expansion_count = e->data.collate.expansion_count;
        break;
    case NU_TIME:
        h->time = e->data.time;
        break;
    default:
        copy_lconv(category, h->lc, e->data.lc);
        break;
    }
}

// The CTYPE file key of a handle, when its CTYPE is shared.
const FileKey *ctype_key(const nu_locale_rec *h) {
    const auto *e = static_cast<const Entry *>(h->shared[0]);
    return e != nullptr ? &e->key : nullptr;
}

// The data goes the way the category of a handle that read it would go.
void free_entry(Entry *e) {
    nu_locale_rec owner{};
    install(&owner, e, e->category);
    nu_free_category(&owner, e->category);
    _nu_free_ptr(e);
}

} // namespace

bool file_key(FILE *stream, FileKey *key) {
    if (stream == nullptr) return false;
    for (int slot : kFileSlots)
        if (slot_function(slot) != nullptr) return false;
    // The 64-bit form: a 32-bit stat fails on a file whose inode number needs more bits.
    struct stat64 st;
    if (fstat64(fileno(stream), &st) != 0 || !S_ISREG(st.st_mode)) return false;
    key->device = static_cast<uint64_t>(st.st_dev);
    key->inode = static_cast<uint64_t>(st.st_ino);
    key->size = static_cast<int64_t>(st.st_size);
    key->mtime_sec = static_cast<int64_t>(st.st_mtim.tv_sec);
    key->mtime_nsec = static_cast<int64_t>(st.st_mtim.tv_nsec);
    return true;
}

int take_shared(nu_locale_rec *h, int category, const FileKey &key) {
    const FileKey *ctype = category == NU_CTYPE ? nullptr : ctype_key(h);
    if (category != NU_CTYPE && ctype == nullptr) return 0;
    Entry *found = nullptr;
    pthread_mutex_lock(&g_lock);
    for (Entry *e = g_entries; e != nullptr; e = e->next) {
        if (e->category == category && same_key(e->key, key) &&
            (ctype == nullptr || same_key(e->ctype_key, *ctype)) && same_memory(*e)) {
            ++e->references;
            found = e;
            break;
        }
    }
    pthread_mutex_unlock(&g_lock);
    if (found == nullptr) return 0;
    const int i = cat_index(category);
    std::memcpy(h->codeset[i], found->codeset, sizeof h->codeset[i]);
    if (!same_codeset_as_ctype(h, category)) {
        // As a read of the file would leave it: the category empty but for its code set.
        char codeset[kCodesetNameSize];
        std::memcpy(codeset, h->codeset[i], sizeof codeset);
        release_entry(found);
        nu_make_null_category(h, category);
        std::memcpy(h->codeset[i], codeset, sizeof codeset);
        set_error(h, NU_ECATCODESET);
        return -1;
    }
    install(h, found, category);
    h->shared[i] = found;
    // The conventions record is the handle's own.
    if (category == NU_NUMERIC) {
        free_nuconv_numeric(h);
        if (load_nuconv_numeric(h) != 0) return -1;
    } else if (category == NU_MONETARY) {
        free_nuconv_monetary(h);
        if (load_nuconv_monetary(h) != 0) return -1;
    }
    return 1;
}

void offer_shared(nu_locale_rec *h, int category, const FileKey &key) {
    const int i = cat_index(category);
    if (i < 0 || i >= kCategories || h->shared[i] != nullptr || h->borrowed[i] != 0) return;
    const FileKey *ctype = category == NU_CTYPE ? nullptr : ctype_key(h);
    if (category != NU_CTYPE && ctype == nullptr) return;
    // Without memory for the entry the handle simply keeps its own tables.
    auto *e = static_cast<Entry *>(_nu_alloc_ptr(entry_size(category)));
    if (e == nullptr) return;
    std::memset(static_cast<void *>(e), 0, offsetof(Entry, data));
    e->key = key;
    if (ctype != nullptr) e->ctype_key = *ctype;
    e->category = category;
    e->references = 1;
    for (int k = 0; k < kMemorySlotCount; ++k) e->memory[k] = slot_function(kMemorySlots[k]);
    store(e, h, category);
    h->shared[i] = e;
    pthread_mutex_lock(&g_lock);
    e->next = g_entries;
    g_entries = e;
    pthread_mutex_unlock(&g_lock);
}

void release_entry(void *entry) {
    auto *e = static_cast<Entry *>(entry);
    if (e == nullptr) return;
    bool last = false;
    pthread_mutex_lock(&g_lock);
    if (--e->references == 0) {
        last = true;
        for (Entry **p = &g_entries; *p != nullptr; p = &(*p)->next) {
            if (*p == e) {
                *p = e->next;
                break;
            }
        }
    }
    pthread_mutex_unlock(&g_lock);
    if (last) free_entry(e);
}

void release_shared(nu_locale_rec *h, int category) {
    const int i = cat_index(category);
    if (i < 0 || i >= kCategories || h->shared[i] == nullptr) return;
    void *e = h->shared[i];
    h->shared[i] = nullptr;
    release_entry(e);
}

void own_unshared(nu_locale_rec *h) {
    for (int i = 0; i < kCategories; ++i) {
        auto *e = static_cast<Entry *>(h->shared[i]);
        if (e == nullptr) continue;
        bool alone = false;
        pthread_mutex_lock(&g_lock);
        if (e->references == 1) {
            alone = true;
            for (Entry **p = &g_entries; *p != nullptr; p = &(*p)->next) {
                if (*p == e) {
                    *p = e->next;
                    break;
                }
            }
        }
        pthread_mutex_unlock(&g_lock);
        if (!alone) continue;
        // The handle's fields point at the entry's data: they become the handle's own.
        h->shared[i] = nullptr;
        _nu_free_ptr(e);
    }
}

long shared_entries() {
    long count = 0;
    pthread_mutex_lock(&g_lock);
    for (Entry *e = g_entries; e != nullptr; e = e->next) ++count;
    pthread_mutex_unlock(&g_lock);
    return count;
}

} // namespace nus
