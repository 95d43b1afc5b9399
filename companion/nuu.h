/*
 * nuu.h: the interface of the companion Unicode library (libnusu.so), which serves the
 * Unicode locales of nuslib with ICU's collation, converters and character properties.
 *
 * libnus loads the companion at run time (see nu_init_nuu) and resolves each entry point by
 * its name; nothing here is linked. Every entry point that can fail takes a pointer to a
 * 16-bit status last, which the caller sets to 0: the companion leaves it at 0 on success and
 * stores a positive nuslib error code (NU_E...) on failure. Wide characters are UTF-32 code
 * points; multibyte text is in the code set the object was opened for (UTF-8).
 *
 * Objects: nuu_open makes one per served category (the converter handle of the character
 * functions, or the collator handle of the collation functions); nuu_cv_open makes a
 * conversion object. Both are closed by their own call.
 */
#ifndef NUU_H
#define NUU_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t nuu_uc32;
typedef int16_t nuu_status;
typedef struct nuu_obj nuu_obj;
typedef struct nuu_cv nuu_cv;

/* What the companion asks of the library that loads it: the registry name of a code-set
   number (0 on success, written into out, which holds 64 bytes), and the library's stream
   functions (its external-function table's fgetc, feof and ferror). */
typedef struct nuu_host {
    int version; /* NUU_INTERFACE_VERSION */
    int (*codeset_name)(unsigned int number, char *out);
    int (*fgetc)(void *stream);
    int (*feof)(void *stream);
    int (*ferror)(void *stream);
} nuu_host;

/* A function returning the next byte of a stream, or -1. */
typedef int (*nuu_getbyte)(void *stream);

/* A companion object of the collation category begins with this head: the collator's own
   comparison of text in the object's code set (lengths of -1 for NUL-terminated text) and the
   collator it takes first, so that a caller comparing many strings pays one indirect call. The
   error it stores is positive on failure; the caller then learns the status from nuu_mbscoll.
   Both are null in objects of other categories. */
typedef int (*nuu_compare_fn)(const void *collator, const char *s1, int32_t len1,
                              const char *s2, int32_t len2, int *error);
typedef struct nuu_obj_head {
    nuu_compare_fn compare;
    const void *collator;
} nuu_obj_head;

#define NUU_INTERFACE_VERSION 3

/* The entry points, as function types: the bridge's pointers use them. */
#define NUU_ENTRY_POINTS(X)                                                                    \
    X(int, nuu_init, (const nuu_host *host, nuu_status *status))                              \
    X(nuu_obj *, nuu_open, (const char *locale, const char *codeset, int category,            \
                            nuu_status *status))                                              \
    X(void, nuu_close, (nuu_obj *object))                                                     \
    X(int, nuu_mblen, (nuu_obj *o, const unsigned char *s, int n, nuu_status *status))        \
    X(int, nuu_mbtouc32, (nuu_obj *o, nuu_uc32 *pwc, const unsigned char *s, int n,           \
                          nuu_status *status))                                                \
    X(int, nuu_uc32tomb, (nuu_obj *o, unsigned char *s, nuu_uc32 wc, nuu_status *status))     \
    X(int, nuu_mbstoucs32, (nuu_obj *o, nuu_uc32 *wcs, const unsigned char *s, int slen,      \
                            int n, nuu_status *status))                                       \
    X(int, nuu_ucs32tombs, (nuu_obj *o, unsigned char *s, const nuu_uc32 *wcs, int wlen,      \
                            int n, nuu_status *status))                                       \
    X(int, nuu_mb_loc_min, (nuu_obj *o, nuu_status *status))                                  \
    X(int, nuu_mb_loc_max, (nuu_obj *o, nuu_status *status))                                  \
    X(const unsigned char *, nuu_mbsnext, (nuu_obj *o, const unsigned char *s, int n,         \
                                           nuu_status *status))                               \
    X(const unsigned char *, nuu_mbsprev, (nuu_obj *o, const unsigned char *start,            \
                                           const unsigned char *pos, nuu_status *status))     \
    X(unsigned char *, nuu_putmbsi, (nuu_obj *o, unsigned char *s, int i,                     \
                                     const unsigned char *c, nuu_status *status))             \
    X(const unsigned char *, nuu_mbschr, (nuu_obj *o, const unsigned char *s, int sn,         \
                                          const unsigned char *c, int cn, nuu_status *status)) \
    X(int, nuu_mbsntsbytes, (nuu_obj *o, const unsigned char *s, int n, nuu_status *status))  \
    X(int, nuu_getmb, (nuu_obj *o, unsigned char *buf, nuu_getbyte getbyte, void *stream,     \
                       int *len, nuu_status *status))                                         \
    X(nuu_uc32, nuu_fgetuc32, (nuu_obj *o, void *stream, nuu_status *status))                 \
    X(int, nuu_uc32width, (nuu_obj *o, nuu_uc32 wc, nuu_status *status))                      \
    X(int, nuu_mbwidth, (nuu_obj *o, const unsigned char *s, nuu_status *status))             \
    X(int, nuu_ucs32width, (nuu_obj *o, const nuu_uc32 *ws, int n, nuu_status *status))       \
    X(int, nuu_mbswidth, (nuu_obj *o, const unsigned char *s, int n, nuu_status *status))     \
    X(int, nuu_ucs32pwidth, (nuu_obj *o, const nuu_uc32 *start, const nuu_uc32 *end,          \
                             nuu_status *status))                                             \
    X(int, nuu_mbspwidth, (nuu_obj *o, const unsigned char *start, const unsigned char *end,  \
                           nuu_status *status))                                               \
    X(int, nuu_iswctype, (nuu_obj *o, nuu_uc32 wc, int mask, nuu_status *status))             \
    X(nuu_uc32, nuu_towupper, (nuu_obj *o, nuu_uc32 wc, nuu_status *status))                  \
    X(nuu_uc32, nuu_towlower, (nuu_obj *o, nuu_uc32 wc, nuu_status *status))                  \
    X(int, nuu_mbscoll, (nuu_obj *o, const unsigned char *s1, int len1,                       \
                         const unsigned char *s2, int len2, nuu_status *status))              \
    X(int, nuu_mbsxfrm, (nuu_obj *o, unsigned char *out, int n, const unsigned char *s,       \
                         nuu_status *status))                                                 \
    X(int, nuu_ucs32coll, (nuu_obj *o, const nuu_uc32 *ws1, int len1, const nuu_uc32 *ws2,    \
                           int len2, nuu_status *status))                                     \
    X(int, nuu_ucs32xfrm, (nuu_obj *o, unsigned char *out, int n, const nuu_uc32 *ws,         \
                           nuu_status *status))                                               \
    X(int, nuu_mbsCollBound, (nuu_obj *o, const unsigned char *s, int upper,                  \
                              unsigned char *out, int size, nuu_status *status))              \
    X(int, nuu_mbsSortKeyCollBound, (nuu_obj *o, const unsigned char *s, int upper,           \
                                     unsigned char *key, int size, nuu_status *status))       \
    X(int, nuu_useIcuCvtCall, (unsigned int first, unsigned int second))                      \
    X(nuu_cv *, nuu_cv_open, (unsigned int first, unsigned int second, nuu_status *status))   \
    X(int, nuu_cv_conv, (nuu_cv *cv, int flush, const unsigned char **in, int *inlen,         \
                         unsigned char **out, int *room, int *irreversible,                   \
                         nuu_status *status))                                                 \
    X(void, nuu_cv_close, (nuu_cv *cv))                                                       \
    X(double, nuu_iconv_expansion, (nuu_cv *cv))

#define NUU_DECLARE(ret, name, args) typedef ret(*name##_fn) args;
NUU_ENTRY_POINTS(NUU_DECLARE)
#undef NUU_DECLARE

/* The class masks nuu_iswctype understands (the library's CTYPE masks). */
#define NUU_UPPER 1
#define NUU_LOWER 2
#define NUU_ALPHA 4
#define NUU_DIGIT 8
#define NUU_SPACE 16
#define NUU_CNTRL 32
#define NUU_PUNCT 64
#define NUU_GRAPH 128
#define NUU_PRINT 256
#define NUU_XDIGIT 512
#define NUU_BLANK 1024

#ifdef __cplusplus
}
#endif

#endif
