// Internal interface of the code-set registry and the locale and conversion file names.
#pragma once

#include "frame/frame.h"

#include <cstddef>
#include <cstdlib>

namespace nus::names {

inline constexpr unsigned kUnknownCodeset = NU_UNKNOWN_CODESET;
inline constexpr int kNameSize = NU_CS_NAME_SIZE;            // 21 characters and the zero
inline constexpr size_t kSpecCopyLength = 285;              // longest specification read
inline constexpr unsigned char kPathMark = NU_PATH_MARK;

// Output size of a locale file name for a directory of `directory` (null: none).
inline size_t lc_fname_size(const char *directory) {
    return NU_LC_FNAME_SIZE(directory != nullptr ? std::strlen(directory) : 0);
}

// Character classes and case of the "C" locale, whatever the process locale; any int,
// EOF and bytes above 0x7F included, is safe to pass.
constexpr bool c_isupper(int c) { return c >= 'A' && c <= 'Z'; }
constexpr bool c_islower(int c) { return c >= 'a' && c <= 'z'; }
constexpr bool c_isalpha(int c) { return c_isupper(c) || c_islower(c); }
constexpr bool c_isalnum(int c) { return c_isalpha(c) || c_isdigit(c); }
constexpr bool c_isgraph(int c) { return c > ' ' && c < 0x7F; }   // printable, not blank
constexpr int c_tolower(int c) { return c_isupper(c) ? c - 'A' + 'a' : c; }
constexpr int c_toupper(int c) { return c_islower(c) ? c - 'a' + 'A' : c; }

// The memory of the registry list cache. The list comes from the standard allocator, not
// from the library's allocation wrappers, so that it does not depend on what an embedding
// program installs there; tests point these elsewhere to refuse memory and count blocks.
struct RegistryMemory {
    void *(*alloc)(size_t);
    void (*release)(void *);
};
extern RegistryMemory registry_memory;   // std::malloc and std::free

// One item of a locale specification as the file-name builder reads it.
struct SpecItem {
    int keyword;          // 1 to 6 as _nu_is_category numbers them; 0 for a plain locale name
    const char *piece;    // its "ll_tt.codeset[@mod]" text (not terminated)
    size_t length;
    unsigned number;      // its code set's number
};
using ItemVisitor = void (*)(void *context, const SpecItem &item);

// Reads a plain locale name or a per-category list exactly as nu_lc_spec2lc_fname does, handing
// each item, in the order written, to `visit` (null: none): 0, or -1 with NU_EINVAL when a
// handle is given.
int walk_spec(void *handle, const char *spec, const char *registry, ItemVisitor visit,
              void *context);

} // namespace nus::names

// Appends `directory` and the path mark to the string in `out`; a null or empty directory
// appends nothing. Kept out of the exported names.
void pathcat_mark(char *out, const char *directory);
