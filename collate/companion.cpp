// Collation kind 3: the companion library compares and makes sort keys with its collator.
// The collator handle goes first and a 16-bit status last, which becomes the handle's error
// code when positive; note the sort key's order: the size comes before the source.
#include "collate/collate.h"
#include "locale/nuu.h"

namespace {

[[gnu::always_inline]] inline bool usable(nu_locale_rec *h) {
    if (nus::no_handle(h)) return false;
    if (!nus::nuu_collates(h)) {
        nus::set_error(h, NU_EBADARG);   // the companion does not collate for this handle
        return false;
    }
    return true;
}

} // namespace

NU_EXPORT int _nuu_mbscoll(nu_locale_t h, const unsigned char *s1, const unsigned char *s2) {
    if (!usable(h)) return 0;
    return nus::nuu_compare(h, s1, -1, s2, -1);
}

NU_EXPORT int _nuu_mbfscoll(nu_locale_t h, const unsigned char *s1, int len1,
                            const unsigned char *s2, int len2) {
    if (!usable(h)) return 0;
    if ((len1 == -1) != (len2 == -1)) {
        nus::set_error(h, NU_ELENGTHS);
        return 0;
    }
    if (len1 < -1 || len2 < -1) {
        nus::set_error(h, NU_EBADVAL);
        return 0;
    }
    return nus::nuu_compare(h, s1, len1, s2, len2);
}

NU_EXPORT int _nuu_mbsxfrm(nu_locale_t h, unsigned char *out, const unsigned char *s, int n) {
    if (!usable(h)) return -1;
    return nus::nuu_call(h, nus::kNuuCollate, nus::call_nuu_mbsxfrm(), out, n, s);
}
