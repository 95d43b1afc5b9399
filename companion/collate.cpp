// The companion's collation: comparisons and sort keys by the locale's ICU collator (CLDR
// root and the locale's tailoring), bounds of sort keys by ucol_getBound, and string bounds
// by the neighbouring primary weight.
#include "internal.h"

#include <unicode/uchar.h>
#include <unicode/ustring.h>
#include <unicode/uset.h>

#include <cstdlib>
#include <cstring>

using nuu::fail;

namespace {

// UTF-16 text on the stack up to a fixed size, from the heap above it.
class Utf16 {
public:
    Utf16() = default;
    Utf16(const Utf16 &) = delete;
    Utf16 &operator=(const Utf16 &) = delete;
    ~Utf16() {
        if (heap_ != nullptr) std::free(heap_);
    }
    // Ill-formed input becomes U+FFFD, as ucol_strcollUTF8 reads it.
    bool from_utf8(const unsigned char *s, int n) {
        return fill([&](UChar *out, int32_t cap, int32_t *len, UErrorCode *err) {
            u_strFromUTF8WithSub(out, cap, len, reinterpret_cast<const char *>(s), n, 0xFFFD,
                                 nullptr, err);
        });
    }
    bool from_utf32(const nuu_uc32 *ws, int n) {
        return fill([&](UChar *out, int32_t cap, int32_t *len, UErrorCode *err) {
            u_strFromUTF32WithSub(out, cap, len, reinterpret_cast<const UChar32 *>(ws), n,
                                  0xFFFD, nullptr, err);
        });
    }
    const UChar *data() const { return heap_ != nullptr ? heap_ : stack_; }
    int32_t size() const { return length_; }

private:
    template <class Convert> bool fill(Convert convert) {
        UErrorCode err = U_ZERO_ERROR;
        convert(stack_, kStack, &length_, &err);
        if (err == U_BUFFER_OVERFLOW_ERROR) {
            heap_ = static_cast<UChar *>(std::malloc(sizeof(UChar) * (length_ + 1)));
            if (heap_ == nullptr) return false;
            err = U_ZERO_ERROR;
            convert(heap_, length_ + 1, &length_, &err);
        }
        return U_SUCCESS(err) || err == U_STRING_NOT_TERMINATED_WARNING;
    }
    static constexpr int32_t kStack = 512;
    UChar stack_[kStack];
    UChar *heap_ = nullptr;
    int32_t length_ = 0;
};

int order(UCollationResult r) { return r == UCOL_LESS ? -1 : r == UCOL_GREATER ? 1 : 0; }

// The key of UTF-16 text into out (n bytes): the bytes it needs without its terminating 0,
// which is stored after the key when there is room.
int key_of(const UCollator *coll, const Utf16 &text, unsigned char *out, int n) {
    const int32_t needed =
        ucol_getSortKey(coll, text.data(), text.size(), n > 0 ? out : nullptr, n > 0 ? n : 0);
    return needed > 0 ? needed - 1 : 0;
}

[[gnu::always_inline]] inline bool usable(nuu_obj *o, const void *a, const void *b,
                                          nuu_status *status) {
    if (o == nullptr || o->coll == nullptr || a == nullptr || b == nullptr) {
        fail(status, kEbadarg);
        return false;
    }
    return true;
}

} // namespace

NUU_EXPORT int nuu_mbscoll(nuu_obj *o, const unsigned char *s1, int len1,
                           const unsigned char *s2, int len2, nuu_status *status) {
    if (!usable(o, s1, s2, status)) return 0;
    UErrorCode err = U_ZERO_ERROR;
    const UCollationResult r =
        ucol_strcollUTF8(o->coll, reinterpret_cast<const char *>(s1), len1,
                         reinterpret_cast<const char *>(s2), len2, &err);
    if (U_FAILURE(err)) [[unlikely]] {
        fail(status, err == U_MEMORY_ALLOCATION_ERROR ? kEnomem : kEilseq);
        return 0;
    }
    return r;   // UCOL_LESS, UCOL_EQUAL, UCOL_GREATER are -1, 0, 1
}

NUU_EXPORT int nuu_mbsxfrm(nuu_obj *o, unsigned char *out, int n, const unsigned char *s,
                           nuu_status *status) {
    if (!usable(o, s, s, status) || (out == nullptr && n > 0)) {
        fail(status, kEbadarg);
        return -1;
    }
    Utf16 text;
    if (!text.from_utf8(s, -1)) {
        fail(status, kEnomem);
        return -1;
    }
    return key_of(o->coll, text, out, n);
}

NUU_EXPORT int nuu_ucs32coll(nuu_obj *o, const nuu_uc32 *ws1, int len1, const nuu_uc32 *ws2,
                             int len2, nuu_status *status) {
    if (!usable(o, ws1, ws2, status)) return 0;
    Utf16 a, b;
    if (!a.from_utf32(ws1, len1) || !b.from_utf32(ws2, len2)) {
        fail(status, kEnomem);
        return 0;
    }
    return order(ucol_strcoll(o->coll, a.data(), a.size(), b.data(), b.size()));
}

NUU_EXPORT int nuu_ucs32xfrm(nuu_obj *o, unsigned char *out, int n, const nuu_uc32 *ws,
                             nuu_status *status) {
    if (!usable(o, ws, ws, status) || (out == nullptr && n > 0)) {
        fail(status, kEbadarg);
        return -1;
    }
    Utf16 text;
    if (!text.from_utf32(ws, -1)) {
        fail(status, kEnomem);
        return -1;
    }
    return key_of(o->coll, text, out, n);
}

// The key of the bound of s: all keys of strings that begin with s at the primary level lie
// between the lower and the upper bound.
NUU_EXPORT int nuu_mbsSortKeyCollBound(nuu_obj *o, const unsigned char *s, int upper,
                                       unsigned char *key, int size, nuu_status *status) {
    if (!usable(o, s, key, status)) return -1;
    Utf16 text;
    if (!text.from_utf8(s, -1)) {
        fail(status, kEnomem);
        return -1;
    }
    uint8_t stack[512];
    uint8_t *full = stack;
    int32_t length = ucol_getSortKey(o->coll, text.data(), text.size(), stack, sizeof stack);
    if (length > static_cast<int32_t>(sizeof stack)) {
        full = static_cast<uint8_t *>(std::malloc(static_cast<size_t>(length)));
        if (full == nullptr) {
            fail(status, kEnomem);
            return -1;
        }
        length = ucol_getSortKey(o->coll, text.data(), text.size(), full, length);
    }
    UErrorCode err = U_ZERO_ERROR;
    const int32_t needed = ucol_getBound(full, length,
                                         upper ? UCOL_BOUND_UPPER_LONG : UCOL_BOUND_LOWER, 1,
                                         key, size, &err);
    if (full != stack) std::free(full);
    if (U_FAILURE(err) && err != U_BUFFER_OVERFLOW_ERROR) {
        fail(status, kEilseq);
        return -1;
    }
    return needed > 0 ? needed - 1 : 0;
}

// ---- string bounds ------------------------------------------------------------------------

namespace {

// The primary key of UTF-16 text (without its terminator), in a caller's 64-byte buffer;
// its length, 0 for text that is ignorable at the primary level, -1 for a longer key.
int primary_key(const UCollator *primary, const UChar *u, int32_t n, uint8_t *key) {
    const int32_t needed = ucol_getSortKey(primary, u, n, key, 64);
    return needed > 64 ? -1 : needed - 1;
}

int compare_keys(const uint8_t *a, int an, const uint8_t *b, int bn) {
    const int common = an < bn ? an : bn;
    const int r = std::memcmp(a, b, static_cast<size_t>(common));
    return r != 0 ? r : an - bn;
}

} // namespace

// s with its last collation unit (its last character of primary weight and the marks that
// follow it) replaced by the character whose primary weight comes next above it (upper) or
// below it; characters that expand to several weights or begin contractions are never taken.
// -2 when there is none (out holds s).
NUU_EXPORT int nuu_mbsCollBound(nuu_obj *o, const unsigned char *s, int upper,
                                unsigned char *out, int size, nuu_status *status) {
    if (!usable(o, s, out, status)) return -1;
    UErrorCode err = U_ZERO_ERROR;
    if (o->primary == nullptr) {
        o->primary = ucol_clone(o->coll, &err);
        if (U_FAILURE(err)) {
            fail(status, kEnomem);
            return -1;
        }
        ucol_setStrength(o->primary, UCOL_PRIMARY);
    }
    const int length = nuu::length_of(s, -1);
    if (length + 1 > size) {
        fail(status, kE2big);
        return -1;
    }
    std::memmove(out, s, static_cast<size_t>(length) + 1);   // s may be out itself
    // The last unit starts at the last character that has a primary weight.
    int unit = length;
    uint8_t key[64];
    int key_length = 0;
    while (unit > 0) {
        int32_t at = unit;
        U8_BACK_1(s, 0, at);
        UChar32 c;
        int32_t i = at;
        U8_NEXT(s, i, length, c);
        unit = at;
        if (c < 0) continue;
        UChar u[2];
        int32_t n = 0;
        U16_APPEND_UNSAFE(u, n, c);
        key_length = primary_key(o->primary, u, n, key);
        if (key_length != 0) break;
    }
    if (key_length <= 0) return -2;
    USet *special = uset_openEmpty();
    if (special == nullptr) {
        fail(status, kEnomem);
        return -1;
    }
    ucol_getContractionsAndExpansions(o->coll, special, special, false, &err);
    UChar32 best = -1;
    uint8_t best_key[64];
    int best_length = 0;
    uint8_t candidate[64];
    for (UChar32 c = 1; c <= 0x10FFFF; ++c) {
        if (!u_isdefined(c) || U_IS_SURROGATE(c) || uset_contains(special, c)) continue;
        UChar u[2];
        int32_t n = 0;
        U16_APPEND_UNSAFE(u, n, c);
        const int k = primary_key(o->primary, u, n, candidate);
        if (k <= 0) continue;
        const int against = compare_keys(candidate, k, key, key_length);
        if (upper ? against <= 0 : against >= 0) continue;
        if (best >= 0) {
            const int nearer = compare_keys(candidate, k, best_key, best_length);
            if (upper ? nearer >= 0 : nearer <= 0) continue;
        }
        best = c;
        std::memcpy(best_key, candidate, static_cast<size_t>(k));
        best_length = k;
    }
    uset_close(special);
    if (best < 0) return -2;
    if (unit + U8_LENGTH(best) + 1 > size) {
        fail(status, kE2big);
        return -1;
    }
    int32_t at = unit;
    U8_APPEND_UNSAFE(out, at, best);
    out[at] = 0;
    return at;
}
