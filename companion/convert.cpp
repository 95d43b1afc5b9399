// The companion's conversions: any pair of code sets that ICU has converters for, with the
// library's conventions: a character the target lacks becomes the target's substitute and
// marks the conversion irreversible; an input that stops converting leaves the caller's
// pointers at the start of the character that stopped it.
#include "internal.h"

#include <unicode/ucnv.h>
#include <unicode/ucnv_err.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

using nuu::fail;

namespace nuu {
const nuu_host *host();
}

struct nuu_cv {
    UConverter *source;
    UConverter *target;
    int substituted;      // the current call wrote a substitute
};

namespace {

// A converter for a code-set number: by its registry name, else as an IBM code page (the
// registry uses those numbers where they exist).
UConverter *open_number(unsigned int number) {
    const nuu_host *host = nuu::host();
    if (host == nullptr) return nullptr;
    char name[64];
    UErrorCode err = U_ZERO_ERROR;
    if (host->codeset_name(number, name) == 0) {
        UConverter *c = ucnv_open(name, &err);
        if (U_SUCCESS(err)) return c;
    }
    if (number == 0 || number >= 0xE000) return nullptr;
    char ibm[32];
    std::snprintf(ibm, sizeof ibm, "ibm-%u", number);
    err = U_ZERO_ERROR;
    UConverter *c = ucnv_open(ibm, &err);
    return U_SUCCESS(err) ? c : nullptr;
}

void UCNV_EXPORT_substitute(const void *context, UConverterFromUnicodeArgs *args,
                            const UChar *units, int32_t length, UChar32 c,
                            UConverterCallbackReason reason, UErrorCode *err) {
    if (reason == UCNV_UNASSIGNED || reason == UCNV_ILLEGAL || reason == UCNV_IRREGULAR)
        static_cast<nuu_cv *>(const_cast<void *>(context))->substituted = 1;
    UCNV_FROM_U_CALLBACK_SUBSTITUTE(nullptr, args, units, length, c, reason, err);
}

// Scratch arrays of one call.
template <class T> struct Block {
    T *p = nullptr;
    ~Block() { std::free(p); }
    bool get(size_t n) {
        p = static_cast<T *>(std::malloc(sizeof(T) * (n == 0 ? 1 : n)));
        return p != nullptr;
    }
};

// Bytes of a string that ends with a null character of the source (as many zero bytes as its
// shortest character, on a character boundary of a fixed-width code set), that null included.
int terminated_length(const UConverter *source, const unsigned char *s) {
    const int unit = ucnv_getMinCharSize(source);
    int at = 0;
    for (;;) {
        bool zero = true;
        for (int k = 0; k < unit; ++k) zero = zero && s[at + k] == 0;
        if (zero) return at + unit;
        at += unit;
    }
}

} // namespace

NUU_EXPORT int nuu_useIcuCvtCall(unsigned int first, unsigned int second) {
    if (first == second) return 0;
    UConverter *a = open_number(first);
    UConverter *b = a != nullptr ? open_number(second) : nullptr;
    ucnv_close(a);
    ucnv_close(b);
    return b != nullptr ? 1 : 0;
}

// first: the target, second: the source, as the library's open functions name them.
NUU_EXPORT nuu_cv *nuu_cv_open(unsigned int first, unsigned int second, nuu_status *status) {
    auto *cv = static_cast<nuu_cv *>(std::calloc(1, sizeof(nuu_cv)));
    if (cv == nullptr) {
        fail(status, kEnomem);
        return nullptr;
    }
    cv->target = open_number(first);
    cv->source = open_number(second);
    if (cv->target == nullptr || cv->source == nullptr) {
        ucnv_close(cv->target);
        ucnv_close(cv->source);
        std::free(cv);
        fail(status, kEnofile);
        return nullptr;
    }
    UErrorCode err = U_ZERO_ERROR;
    ucnv_setToUCallBack(cv->source, UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &err);
    ucnv_setFromUCallBack(cv->target, UCNV_EXPORT_substitute, cv, nullptr, nullptr, &err);
    return cv;
}

NUU_EXPORT void nuu_cv_close(nuu_cv *cv) {
    if (cv == nullptr) return;
    ucnv_close(cv->source);
    ucnv_close(cv->target);
    std::free(cv);
}

NUU_EXPORT double nuu_iconv_expansion(nuu_cv *cv) {
    if (cv == nullptr) return 1.0;
    return static_cast<double>(ucnv_getMaxCharSize(cv->target)) /
           static_cast<double>(ucnv_getMinCharSize(cv->source));
}

namespace {

// One pass over `length` source bytes: to UTF-16 (every unit remembering its source byte),
// then to the target (every byte remembering its unit). Fills `units`/`bytes`; returns the
// source bytes that converted and sets `code` to 1 or 7 when the source stopped early.
struct Pass {
    Block<UChar> units;
    Block<int32_t> unit_from;
    Block<char> bytes;
    Block<int32_t> byte_from;
    int32_t unit_count = 0;
    int produced = 0;
    int stop = 0;
    nuu_status code = 0;
};

nuu_status run(UConverter *source, UConverter *target, const char *src, int length,
               bool flush_source, bool flush_target, Pass &p) {
    const size_t capacity = 2 * static_cast<size_t>(length) + 2;
    if (!p.units.get(capacity) || !p.unit_from.get(capacity)) return kEnomem;
    UErrorCode err = U_ZERO_ERROR;
    const char *s = src;
    UChar *u = p.units.p;
    ucnv_toUnicode(source, &u, p.units.p + capacity, &s, s + length, p.unit_from.p,
                   flush_source, &err);
    p.stop = length;
    if (U_FAILURE(err)) {
        char bad[32];
        int8_t bad_length = sizeof bad;
        UErrorCode ignored = U_ZERO_ERROR;
        ucnv_getInvalidChars(source, bad, &bad_length, &ignored);
        p.stop = static_cast<int>(s - src) - bad_length;
        p.code = err == U_TRUNCATED_CHAR_FOUND ? kEinval : kEilseq;
    }
    p.unit_count = static_cast<int32_t>(u - p.units.p);
    const size_t out_capacity =
        static_cast<size_t>(p.unit_count) * ucnv_getMaxCharSize(target) + 64;
    if (!p.bytes.get(out_capacity) || !p.byte_from.get(out_capacity)) return kEnomem;
    err = U_ZERO_ERROR;
    char *t = p.bytes.p;
    const UChar *uu = p.units.p;
    ucnv_fromUnicode(target, &t, p.bytes.p + out_capacity, &uu, p.units.p + p.unit_count,
                     p.byte_from.p, p.code == 0 && flush_target, &err);
    if (U_FAILURE(err)) return err == U_MEMORY_ALLOCATION_ERROR ? kEnomem : kEilseq;
    p.produced = static_cast<int>(t - p.bytes.p);
    return 0;
}

} // namespace

// Converts the input (up to and including its null character when no length is given) into
// the output room, with ICU's offsets, so that every output byte is known by the source
// character it came from: only whole characters are written, and when the room ends the
// input pointer stays on the first character left out. The first pass runs on copies of the
// two converters; unless it took the whole input and ended the text, the converters
// themselves then take exactly the characters that were kept, so that their shift states
// are those after the last character written.
NUU_EXPORT int nuu_cv_conv(nuu_cv *cv, int flush, const unsigned char **in, int *inlen,
                           unsigned char **out, int *room, int *irreversible,
                           nuu_status *status) {
    if (cv == nullptr || in == nullptr || *in == nullptr || room == nullptr) {
        fail(status, kEbadarg);
        return -1;
    }
    if (irreversible != nullptr) *irreversible = 0;
    const char *src = reinterpret_cast<const char *>(*in);
    const int length =
        inlen != nullptr ? *inlen : terminated_length(cv->source, *in);
    if (length <= 0) return 0;

    UErrorCode err = U_ZERO_ERROR;
    UConverter *source = ucnv_clone(cv->source, &err);
    UConverter *target = ucnv_clone(cv->target, &err);
    if (U_FAILURE(err)) {
        ucnv_close(source);
        ucnv_close(target);
        fail(status, kEnomem);
        return -1;
    }
    cv->substituted = 0;
    Pass first;
    nuu_status code = run(source, target, src, length, true, flush != 0, first);
    if (code != 0) {
        ucnv_close(source);
        ucnv_close(target);
        fail(status, code);
        return -1;
    }
    code = first.code;
    // Whole characters while they fit: a character's bytes run until the source offset
    // changes (bytes of no unit, such as a closing shift sequence, go with the one before).
    int consumed = first.stop;
    if (first.produced > *room) {
        int previous = -1;
        for (int b = 0; b < first.produced; ++b) {
            const int from = first.byte_from.p[b] >= 0
                                 ? first.unit_from.p[first.byte_from.p[b]]
                                 : -1;
            if (from >= 0 && from != previous) {
                if (b > *room) break;
                consumed = from;
            }
            if (from >= 0) previous = from;
        }
        code = kE2big;
    }
    const char *bytes = first.bytes.p;
    int written = first.produced;
    Pass kept;
    if (consumed == length && code == 0 && flush != 0) {
        std::swap(source, cv->source);
        std::swap(target, cv->target);
    } else {
        cv->substituted = 0;
        const nuu_status again =
            run(cv->source, cv->target, src, consumed, false, false, kept);
        if (again != 0) {
            ucnv_resetToUnicode(cv->source);
            ucnv_resetFromUnicode(cv->target);
            code = again;
        }
        bytes = kept.bytes.p;
        written = again != 0 ? 0 : kept.produced;
        if (again == 0) consumed = kept.stop;
    }
    ucnv_close(source);
    ucnv_close(target);
    if (out != nullptr && *out != nullptr) {
        std::memcpy(*out, bytes, static_cast<size_t>(written));
        *out += written;
    }
    *room -= written;
    *in += consumed;
    if (inlen != nullptr) *inlen -= consumed;
    if (irreversible != nullptr && cv->substituted) *irreversible = 1;
    if (code != 0) {
        fail(status, code);
        return -1;
    }
    return 0;
}
