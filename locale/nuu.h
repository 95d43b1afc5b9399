// The companion bridge as the rest of the library sees it: whether a handle's characters or
// collation are served by the companion, and one call form for every companion branch.
#pragma once

#include "companion/nuu.h"
#include "frame/frame.h"

namespace nus {

// The typed entry points behind the exported pointers.
#define NUS_NUU_CALLER(ret, name, args)                                                        \
    inline name##_fn call_##name() { return reinterpret_cast<name##_fn>(fn_##name); }
NUU_ENTRY_POINTS(NUS_NUU_CALLER)
#undef NUS_NUU_CALLER

inline constexpr int kNuuCtype = 0;     // index of the CTYPE companion object and flag
inline constexpr int kNuuCollate = 1;   // index of the COLLATE ones

// The handle's characters (decoding, strings, widths, classes) are the companion's.
inline bool nuu_chars(const nu_locale_rec *h) { return h->companion_flag[kNuuCtype] == 1; }
// The handle's collation is the companion's.
inline bool nuu_collates(const nu_locale_rec *h) {
    return h->companion_flag[kNuuCollate] == 1;
}

// Calls a companion entry point with the category's object first, the arguments, and a
// status last; a positive status becomes the handle's error code.
[[gnu::cold, gnu::noinline]] inline void nuu_failed(nu_locale_rec *h, nuu_status status) {
    set_error(h, status);
}
template <typename Fn, typename... A>
auto nuu_call(nu_locale_rec *h, int index, Fn fn, A... args) {
    nuu_status status = 0;
    auto result = fn(static_cast<nuu_obj *>(h->companion[index]), args..., &status);
    if (status > 0) [[unlikely]] nuu_failed(h, status);
    return result;
}

// A comparison by the companion's collator, called directly through the head of its object;
// when it fails (or a companion leaves the head empty), the companion's entry point compares
// again, for the status.
[[gnu::cold, gnu::noinline]] inline int nuu_compare_again(nu_locale_rec *h,
                                                          const unsigned char *s1, int len1,
                                                          const unsigned char *s2, int len2) {
    return nuu_call(h, kNuuCollate, call_nuu_mbscoll(), s1, len1, s2, len2);
}
inline int nuu_compare(nu_locale_rec *h, const unsigned char *s1, int len1,
                       const unsigned char *s2, int len2) {
    const auto *head = static_cast<const nuu_obj_head *>(h->companion[kNuuCollate]);
    if (head->compare == nullptr) [[unlikely]]
        return nuu_compare_again(h, s1, len1, s2, len2);
    int error = 0;
    const int r = head->compare(head->collator, reinterpret_cast<const char *>(s1), len1,
                                reinterpret_cast<const char *>(s2), len2, &error);
    if (error > 0) [[unlikely]] return nuu_compare_again(h, s1, len1, s2, len2);
    return r;
}

// The companion is loaded and NU_USENUU asks for it now: what a load or an open consults, so
// that a process whose variable is gone again keeps its later handles and descriptors in
// table mode.
bool nuu_active();

// After a category was read: lets the companion serve it when it is a Unicode locale that
// locmap lists (the companion flag tells whether it does); 0, as the read succeeded.
int set_categories_nuu(nu_locale_rec *h, int category, const char *name);
// Clears the category's companion state, closing its object unless it was shared by a copy.
void nuu_release(nu_locale_rec *h, int category, bool owned);

} // namespace nus
