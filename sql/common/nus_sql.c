/* nus_sql.c: locale handles cached per connection, and the work the SQL functions of both
   extensions do with them. */
#include "nus_sql.h"

#include <errno.h>
#include <limits.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* ---- messages -------------------------------------------------------------------------- */

static void set_err(nus_sql_err *err, const char *format, ...)
    __attribute__((format(printf, 2, 3)));
static void set_err(nus_sql_err *err, const char *format, ...) {
    va_list args;
    va_start(args, format);
    vsnprintf(err->text, sizeof err->text, format, args);
    va_end(args);
}

const char *nus_sql_error_text(int code, char *buffer, size_t size) {
    static const struct {
        int code;
        const char *text;
    } names[] = {
        {NU_EILSEQ, "NU_EILSEQ (invalid byte sequence)"},
        {NU_EBADARG, "NU_EBADARG (bad argument)"},
        {NU_ENOMEM, "NU_ENOMEM (out of memory)"},
        {NU_ENOWIDTH, "NU_ENOWIDTH (no display width)"},
        {NU_ERANGE, "NU_ERANGE (no digits or out of range)"},
        {NU_EINVAL, "NU_EINVAL (incomplete character or malformed name)"},
        {NU_ENOFILE, "NU_ENOFILE (data file not found)"},
        {NU_EBADVAL, "NU_EBADVAL (argument out of its domain)"},
        {NU_EBADFILE, "NU_EBADFILE (data file malformed)"},
        {NU_ECODESET, "NU_ECODESET (categories of different code sets)"},
        {NU_E2BIG, "NU_E2BIG (output too small)"},
        {NU_EBADFMT, "NU_EBADFMT (bad format)"},
        {NU_EBADCONV, "NU_EBADCONV (monetary conversion other than i or n)"},
        {NU_EFORMAT, "NU_EFORMAT (format and input disagree)"},
        {NU_EMODIFIER, "NU_EMODIFIER (malformed format modifier)"},
        {NU_EVERSION, "NU_EVERSION (data file of another compiler version)"},
        {NU_ELOAD, "NU_ELOAD (a category could not be loaded)"},
        {NU_ECATCODESET, "NU_ECATCODESET (a category of another code set)"},
        {NU_EFRACTION, "NU_EFRACTION (fraction of a second out of range)"},
        {NU_ESECOND, "NU_ESECOND (seconds out of range)"},
        {NU_EMINUTE, "NU_EMINUTE (minutes out of range)"},
        {NU_EHOUR, "NU_EHOUR (hour out of range)"},
        {NU_EMDAY, "NU_EMDAY (day of month out of range)"},
        {NU_EWDAY, "NU_EWDAY (day of week out of range)"},
        {NU_EYDAY, "NU_EYDAY (day of year out of range)"},
        {NU_EMONTH, "NU_EMONTH (month out of range)"},
        {NU_EYEAR, "NU_EYEAR (year out of range)"},
        {NU_EPFRACTION, "NU_EPFRACTION (fraction of a second not found)"},
        {NU_EPSECOND, "NU_EPSECOND (seconds not found)"},
        {NU_EPMINUTE, "NU_EPMINUTE (minutes not found)"},
        {NU_EPHOUR, "NU_EPHOUR (hour or am/pm not found)"},
        {NU_EPMDAY, "NU_EPMDAY (day not found)"},
        {NU_EPWDAY, "NU_EPWDAY (day of week not found or contradicting the date)"},
        {NU_EPMONTH, "NU_EPMONTH (month number not found)"},
        {NU_EPYEAR, "NU_EPYEAR (year or century not found)"},
        {NU_EPERA, "NU_EPERA (era name or year not found)"},
        {NU_EMODIFIER, "NU_EMODIFIER (malformed format modifier)"},
        {NU_ENOMATCH, "NU_ENOMATCH (text does not match the format)"},
        {NU_EPMONNAME, "NU_EPMONNAME (month name not found)"},
    };
    for (size_t i = 0; i < sizeof names / sizeof names[0]; ++i)
        if (names[i].code == code) {
            snprintf(buffer, size, "%s", names[i].text);
            return buffer;
        }
    snprintf(buffer, size, "error %d", code);
    return buffer;
}

/* "<what>: <library's reason>" from the error slot of a handle or descriptor. */
static int fail_code(nus_sql_err *err, int code, const char *what) {
    char reason[96];
    if (code == 0)
        snprintf(reason, sizeof reason, "the library gave no reason");
    else
        nus_sql_error_text(code, reason, sizeof reason);
    set_err(err, "%s: %s", what, reason);
    return -1;
}

static int fail_handle(nus_sql_err *err, nu_locale_t h, const char *what) {
    return fail_code(err, *_nu_ext_errno(h), what);
}

/* ---- buffers --------------------------------------------------------------------------- */

void nus_sql_buf_free(nus_sql_buf *b) {
    free(b->data);
    b->data = NULL;
    b->length = b->room = 0;
}

/* Room for `size` bytes and the four terminating zeros. */
static int buf_reserve(nus_sql_buf *b, size_t size, nus_sql_err *err) {
    if (size > (size_t)INT_MAX - 8) {
        set_err(err, "the text is too long (%zu bytes)", size);
        return -1;
    }
    if (b->room < size + 4) {
        size_t room = b->room < 64 ? 64 : b->room;
        while (room < size + 4) room *= 2;
        unsigned char *p = realloc(b->data, room);
        if (p == NULL) {
            set_err(err, "out of memory");
            return -1;
        }
        b->data = p;
        b->room = room;
    }
    return 0;
}

static void buf_terminate(nus_sql_buf *b, size_t length) {
    b->length = length;
    memset(b->data + length, 0, 4);
}

static int buf_set(nus_sql_buf *b, const void *data, size_t length, nus_sql_err *err) {
    if (buf_reserve(b, length, err) != 0) return -1;
    if (length != 0) memmove(b->data, data, length);
    buf_terminate(b, length);
    return 0;
}

/* ---- conversions around a non-UTF-8 locale --------------------------------------------- */

/* Converts `length` bytes through cv into out; `strict`: a character the target lacks fails
   instead of becoming the target's substitute. */
static int convert(nu_cv_t cv, const void *in, size_t length, nus_sql_buf *out, int strict,
                   const char *what, nus_sql_err *err) {
    if (length > (size_t)INT_MAX / 8) {
        set_err(err, "%s: the text is too long (%zu bytes)", what, length);
        return -1;
    }
    int room = nu_cv_outbuflen(cv, (int)length);
    if (room < 16) room = 16;
    for (int attempt = 0; attempt < 8; ++attempt, room *= 2) {
        if (buf_reserve(out, (size_t)room, err) != 0) return -1;
        nu_cv_state state = {1, 1, 0, 0};
        unsigned char *src = (unsigned char *)in, *dst = out->data;
        int inlen = (int)length, left = room, irreversible = 0;
        *_nu_ext_errno(cv) = 0;
        if (length == 0) {
            buf_terminate(out, 0);
            return 0;
        }
        if (nu_cv_mconv(cv, &state, &src, &inlen, &dst, &left, &irreversible) == 0) {
            if (strict && irreversible) {
                set_err(err, "%s: the text holds a character that the locale's code set lacks",
                        what);
                return -1;
            }
            buf_terminate(out, (size_t)(room - left));
            return 0;
        }
        const int code = *_nu_ext_errno(cv);
        if (code != NU_E2BIG) {
            char reason[96];
            set_err(err, "%s: %s at byte %ld", what, nus_sql_error_text(code, reason, sizeof reason),
                    (long)(src - (unsigned char *)in) + 1);
            return -1;
        }
    }
    set_err(err, "%s: the converted text does not fit", what);
    return -1;
}

/* The text in the locale's code set, terminated: the input itself copied for a UTF-8 locale. */
static int to_local(nus_sql_locale *l, const char *text, size_t length, nus_sql_buf *out,
                    int strict, nus_sql_err *err) {
    if (l->to_local == NULL) return buf_set(out, text, length, err);
    return convert(l->to_local, text, length, out, strict, "text", err);
}

static int to_utf8(nus_sql_locale *l, const unsigned char *text, size_t length, nus_sql_buf *out,
                   nus_sql_err *err) {
    if (l->to_utf8 == NULL) return buf_set(out, text, length, err);
    return convert(l->to_utf8, text, length, out, 1, "result", err);
}

/* ---- the cache ------------------------------------------------------------------------- */

static char *copy_text(const char *s) {
    const size_t n = strlen(s) + 1;
    char *p = malloc(n);
    if (p != NULL) memcpy(p, s, n);
    return p;
}

static void locale_free(nus_sql_locale *l) {
    if (l == NULL) return;
    nu_lc_unload(l->handle);
    if (l->to_local != NULL) nu_cv_unload(l->to_local);
    if (l->to_utf8 != NULL) nu_cv_unload(l->to_utf8);
    free(l->name);
    free(l);
}

void nus_sql_cache_free(nus_sql_cache *c) {
    if (c == NULL) return;
    while (c->locales != NULL) {
        nus_sql_locale *next = c->locales->next;
        locale_free(c->locales);
        c->locales = next;
    }
    while (c->convs != NULL) {
        nus_sql_conv *next = c->convs->next;
        if (c->convs->cv != NULL) nu_cv_unload(c->convs->cv);
        free(c->convs->from);
        free(c->convs->to);
        free(c->convs);
        c->convs = next;
    }
    for (size_t i = 0; i < sizeof c->scratch / sizeof c->scratch[0]; ++i)
        nus_sql_buf_free(&c->scratch[i]);
    nus_sql_buf_free(&c->prefix_text);
    nus_sql_buf_free(&c->prefix_key);
    c->prefix_locale = NULL;
}

/* Opens the conversion between utf8 and a code set; 0 when they are one (*cv null). */
static int open_utf8_pair(const char *to, const char *from, nu_cv_t *cv, const char *locale,
                          nus_sql_err *err) {
    *cv = NULL;
    nu_cv_t d = NULL;
    const int r = nu_cv_load(&d, to, from, NULL, NULL);
    if (r >= 0) {
        *cv = d;
        return 0;
    }
    const int code = d != NULL ? *_nu_ext_errno(d) : NU_ENOMEM;
    nu_cv_unload(d);
    char what[200];
    snprintf(what, sizeof what, "locale '%.60s' is in %s, and the conversion from %s to %s",
             locale, strcmp(from, "utf8") == 0 ? to : from, from, to);
    return fail_code(err, code, what);
}

nus_sql_locale *nus_sql_locale_get(nus_sql_cache *c, const char *name, nus_sql_err *err) {
    nus_sql_locale **link = &c->locales;
    for (nus_sql_locale *l = c->locales; l != NULL; link = &l->next, l = l->next) {
        if (strcmp(l->name, name) == 0) {
            /* The most recently used first: most queries use one locale. */
            if (l != c->locales) {
                *link = l->next;
                l->next = c->locales;
                c->locales = l;
            }
            return l;
        }
    }
    if (name[0] == '\0' || strlen(name) > 255) {
        set_err(err, "'%.60s' is no locale name", name);
        return NULL;
    }
    nus_sql_locale *l = calloc(1, sizeof *l);
    if (l == NULL || (l->name = copy_text(name)) == NULL) {
        free(l);
        set_err(err, "out of memory");
        return NULL;
    }
    if (nu_lc_load(&l->handle, name, NULL, NULL) != 0) {
        char what[128];
        snprintf(what, sizeof what, "cannot load locale '%.60s'", name);
        fail_code(err, l->handle != NULL ? *_nu_ext_errno(l->handle) : NU_ENOMEM, what);
        locale_free(l);
        return NULL;
    }
    const char *codeset = nu_nl_langinfo(l->handle, 60);
    if (codeset == NULL || *codeset == '\0') codeset = "utf8";
    if (nu_cs_name2cs_num(NULL, codeset, NULL) != nu_cs_name2cs_num(NULL, "utf8", NULL)) {
        if (open_utf8_pair(codeset, "utf8", &l->to_local, name, err) != 0 ||
            open_utf8_pair("utf8", codeset, &l->to_utf8, name, err) != 0) {
            locale_free(l);
            return NULL;
        }
    }
    l->next = c->locales;
    c->locales = l;
    return l;
}

/* ---- collation ------------------------------------------------------------------------- */

/* The sort key of a terminated local text into out. */
static int key_of_local(nu_locale_t h, const unsigned char *s, nus_sql_buf *out, nus_sql_err *err) {
    size_t guess = strlen((const char *)s) * 4 + 32;
    for (int attempt = 0; attempt < 3; ++attempt) {
        if (buf_reserve(out, guess, err) != 0) return -1;
        *_nu_ext_errno(h) = 0;
        const int n = nu_full_mbsxfrm(h, out->data, s, (int)guess);
        if (n < 0) return fail_handle(err, h, "sort key");
        if ((size_t)n < guess) {
            buf_terminate(out, (size_t)n);
            return 0;
        }
        guess = (size_t)n + 1;
    }
    set_err(err, "sort key: the key keeps growing");
    return -1;
}

int nus_sql_sortkey(nus_sql_cache *c, nus_sql_locale *l, const char *text, size_t length,
                    nus_sql_buf *out, nus_sql_err *err) {
    if (to_local(l, text, length, &c->scratch[0], 0, err) != 0) return -1;
    return key_of_local(l->handle, c->scratch[0].data, out, err);
}

int nus_sql_primary_key(nus_sql_cache *c, nus_sql_locale *l, const char *text, size_t length,
                        nus_sql_buf *out, nus_sql_err *err) {
    if (nus_sql_sortkey(c, l, text, length, out, err) != 0) return -1;
    nu_get_prim_coll_weight(out->data);
    buf_terminate(out, strlen((const char *)out->data));
    return 0;
}

int nus_sql_compare(nus_sql_cache *c, nus_sql_locale *l, const char *a, size_t alength,
                    const char *b, size_t blength, int *result, nus_sql_err *err) {
    const unsigned char *s1 = (const unsigned char *)a, *s2 = (const unsigned char *)b;
    if (alength > INT_MAX || blength > INT_MAX) {
        set_err(err, "the text is too long");
        return -1;
    }
    if (l->to_local != NULL) {
        if (to_local(l, a, alength, &c->scratch[0], 0, err) != 0 ||
            to_local(l, b, blength, &c->scratch[1], 0, err) != 0)
            return -1;
        s1 = c->scratch[0].data;
        s2 = c->scratch[1].data;
        alength = c->scratch[0].length;
        blength = c->scratch[1].length;
    }
    *_nu_ext_errno(l->handle) = 0;
    const int r = _tsn_nu_full_mbscoll(l->handle, s1, (int)alength, s2, (int)blength);
    if (r == 0 && *_nu_ext_errno(l->handle) != 0) return fail_handle(err, l->handle, "comparison");
    *result = r;
    return 0;
}

/* 1 when the text converts to the locale's code set and decodes there. */
static int decodes(nus_sql_cache *c, nus_sql_locale *l, const void *text, int length) {
    nus_sql_err ignored;
    if (to_local(l, text, (size_t)length, &c->scratch[2], 0, &ignored) != 0) return 0;
    const unsigned char *p = c->scratch[2].data, *end = p + c->scratch[2].length;
    while (p < end) {
        const int n = _tsn_nu_full_mblen(l->handle, p, (int)(end - p));
        if (n <= 0) return 0;
        p += n;
    }
    return 1;
}

static int byte_order(const void *a, int alength, const void *b, int blength) {
    const int n = memcmp(a, b, (size_t)(alength < blength ? alength : blength));
    return n != 0 ? n : (alength > blength) - (alength < blength);
}

int nus_sql_collate(nus_sql_cache *c, nus_sql_locale *l, const void *a, int alength,
                    const void *b, int blength) {
    nus_sql_err err;
    int r;
    if (alength >= 0 && blength >= 0 &&
        nus_sql_compare(c, l, a, (size_t)alength, b, (size_t)blength, &r, &err) == 0)
        return r;
    /* Kept consistent for an index: what the locale cannot read sorts after all it can,
       among itself by bytes. */
    const int va = decodes(c, l, a, alength), vb = decodes(c, l, b, blength);
    if (va != vb) return va ? -1 : 1;
    return byte_order(a, alength, b, blength);
}

int nus_sql_has_prefix(nus_sql_cache *c, nus_sql_locale *l, const char *text, size_t length,
                       const char *prefix, size_t plength, int *result, nus_sql_err *err) {
    nus_sql_buf *pk = &c->prefix_key;
    if (c->prefix_locale != l || c->prefix_text.length != plength ||
        (plength != 0 && memcmp(c->prefix_text.data, prefix, plength) != 0)) {
        c->prefix_locale = NULL;
        if (nus_sql_primary_key(c, l, prefix, plength, pk, err) != 0 ||
            buf_set(&c->prefix_text, prefix, plength, err) != 0)
            return -1;
        c->prefix_locale = l;
    }
    if (nus_sql_primary_key(c, l, text, length, &c->scratch[1], err) != 0) return -1;
    *result = c->scratch[1].length >= pk->length &&
              memcmp(c->scratch[1].data, pk->data, pk->length) == 0;
    return 0;
}

/* The length of the prefix without the characters at its end that weigh nothing at the
   first level (a hyphen, an apostrophe, a space in many locales): they add nothing to the
   prefix's primary key, so the texts with the prefix are those with the rest, and the
   neighbours of such a character would bound nothing. -1 on failure. */
static long weighed_length(nus_sql_cache *c, nus_sql_locale *l, nus_sql_err *err) {
    unsigned char *s = c->scratch[0].data;
    long length = (long)c->scratch[0].length;
    while (length > 0) {
        long last = 0;
        for (long at = 0; at < length;) {
            const int n = _tsn_nu_full_mblen(l->handle, s + at, (int)(length - at));
            if (n <= 0) return fail_handle(err, l->handle, "bound");
            last = at;
            at += n;
        }
        unsigned char one[8] = {0};
        memcpy(one, s + last, (size_t)(length - last));
        if (key_of_local(l->handle, one, &c->scratch[2], err) != 0) return -1;
        nu_get_prim_coll_weight(c->scratch[2].data);
        if (c->scratch[2].data[0] != 0) break;
        length = last;
    }
    return length;
}

int nus_sql_bound(nus_sql_cache *c, nus_sql_locale *l, const char *prefix, size_t length,
                  int upper, int key, nus_sql_buf *out, nus_sql_err *err) {
    if (to_local(l, prefix, length, &c->scratch[0], 1, err) != 0) return -1;
    const long weighed = weighed_length(c, l, err);
    if (weighed < 0) return -1;
    if (weighed == 0 && c->scratch[0].length != 0) return 0; /* bounds nothing: open */
    buf_terminate(&c->scratch[0], (size_t)weighed);
    nus_sql_buf *bound = &c->scratch[1];
    size_t room = c->scratch[0].length + 64;
    int n = -1;
    for (int attempt = 0; attempt < 8; ++attempt, room *= 2) {
        if (buf_reserve(bound, room, err) != 0) return -1;
        *_nu_ext_errno(l->handle) = 0;
        n = nu_mbsCollBound(l->handle, c->scratch[0].data, upper, bound->data, (int)room);
        if (n != -1 || *_nu_ext_errno(l->handle) != NU_E2BIG) break;
    }
    if (n == -2) return 0;
    if (n < 0) return fail_handle(err, l->handle, upper ? "upper bound" : "lower bound");
    buf_terminate(bound, (size_t)n);
    if (key) {
        if (key_of_local(l->handle, bound->data, out, err) != 0) return -1;
    } else if (to_utf8(l, bound->data, bound->length, out, err) != 0) {
        return -1;
    }
    return 1;
}

/* ---- characters ------------------------------------------------------------------------ */

int nus_sql_case(nus_sql_cache *c, nus_sql_locale *l, const char *text, size_t length, int upper,
                 nus_sql_buf *out, nus_sql_err *err) {
    if (to_local(l, text, length, &c->scratch[0], 1, err) != 0) return -1;
    const size_t n = c->scratch[0].length;
    const int room = nu_case_conv_outbuflen(l->handle, (int)n + 1);
    if (room < 0) return fail_handle(err, l->handle, "case conversion");
    nus_sql_buf *local = &c->scratch[1];
    if (buf_reserve(local, (size_t)room + 8, err) != 0) return -1;
    *_nu_ext_errno(l->handle) = 0;
    const int r = upper ? nu_tombsupper(l->handle, local->data, c->scratch[0].data)
                        : nu_tombslower(l->handle, local->data, c->scratch[0].data);
    if (r < 0) return fail_handle(err, l->handle, upper ? "upper case" : "lower case");
    /* The count may take in the terminator (multibyte locales do): the text ends at it. */
    const void *zero = memchr(local->data, 0, (size_t)r);
    buf_terminate(local, zero != NULL ? (size_t)((const unsigned char *)zero - local->data) : (size_t)r);
    return to_utf8(l, local->data, local->length, out, err);
}

/* The characters of a UTF-8 text lower-cased by the locale, as wide characters in out
   (4 bytes each, terminated by 0); their count, or -1. */
static long lower_wide(nus_sql_cache *c, nus_sql_locale *l, const char *text, size_t length,
                       nus_sql_buf *out, nus_sql_err *err) {
    if (nus_sql_case(c, l, text, length, 0, &c->scratch[3], err) != 0) return -1;
    /* Back in the locale's code set for decoding: the case map gave UTF-8. */
    if (to_local(l, (const char *)c->scratch[3].data, c->scratch[3].length, &c->scratch[0], 1,
                 err) != 0)
        return -1;
    const unsigned char *p = c->scratch[0].data, *end = p + c->scratch[0].length;
    long n = 0;
    if (buf_reserve(out, (c->scratch[0].length + 1) * sizeof(nu_wchar), err) != 0) return -1;
    nu_wchar *w = (nu_wchar *)(void *)out->data;
    while (p < end) {
        *_nu_ext_errno(l->handle) = 0;
        const int k = _tsn_nu_full_mbtowc(l->handle, &w[n], p, (int)(end - p));
        if (k <= 0) return fail_handle(err, l->handle, "like");
        p += k;
        ++n;
    }
    w[n] = 0;
    return n;
}

/* Without a locale: the characters of a UTF-8 text with the ASCII letters lower-cased, as
   SQLite's own LIKE folds them. A byte that begins no valid sequence stands for itself, as
   0xdc00 plus its value (no valid sequence decodes there). */
static long ascii_wide(const char *text, size_t length, nus_sql_buf *out, nus_sql_err *err) {
    if (buf_reserve(out, (length + 1) * sizeof(nu_wchar), err) != 0) return -1;
    nu_wchar *w = (nu_wchar *)(void *)out->data;
    const unsigned char *p = (const unsigned char *)text, *end = p + length;
    long n = 0;
    while (p < end) {
        const unsigned b = *p;
        const int more = b < 0x80 ? 0 : b >= 0xc2 && b < 0xe0 ? 1 : b >= 0xe0 && b < 0xf0 ? 2
                       : b >= 0xf0 && b < 0xf5 ? 3 : -1;
        nu_wchar u = more == 0 ? b : more == 1 ? b & 0x1f : more == 2 ? b & 0x0f : b & 0x07;
        int k = 1;
        while (more > 0 && k <= more && p + k < end && (p[k] & 0xc0) == 0x80)
            u = (u << 6) | (p[k++] & 0x3f);
        const nu_wchar least = more == 1 ? 0x80 : more == 2 ? 0x800 : 0x10000;
        if (more < 0 || k != more + 1 || (more > 0 && u < least) || u > 0x10ffff ||
            (u >= 0xd800 && u < 0xe000)) {
            u = 0xdc00 + b;
            k = 1;
        }
        w[n++] = u >= 'A' && u <= 'Z' ? u + ('a' - 'A') : u;
        p += k;
    }
    w[n] = 0;
    return n;
}

static long like_wide(nus_sql_cache *c, nus_sql_locale *l, const char *text, size_t length,
                      nus_sql_buf *out, nus_sql_err *err) {
    return l != NULL ? lower_wide(c, l, text, length, out, err) : ascii_wide(text, length, out, err);
}

/* Appends the characters of one piece of a pattern, lowered, to `out`, each marked in `plain`
   (1: the escape makes it an ordinary character). */
static int like_append(nus_sql_cache *c, nus_sql_locale *l, const char *piece, size_t length,
                       int mark, nus_sql_buf *scratch, nus_sql_buf *out, nus_sql_buf *plain,
                       long *n, nus_sql_err *err) {
    if (length == 0) return 0;
    const long k = like_wide(c, l, piece, length, scratch, err);
    if (k < 0) return -1;
    if (buf_reserve(out, (size_t)(*n + k + 1) * sizeof(nu_wchar), err) != 0 ||
        buf_reserve(plain, (size_t)(*n + k + 1), err) != 0)
        return -1;
    memcpy(out->data + (size_t)*n * sizeof(nu_wchar), scratch->data, (size_t)k * sizeof(nu_wchar));
    memset(plain->data + *n, mark, (size_t)k);
    *n += k;
    return 0;
}

/* The pattern as lowered characters, each marked plain or not. The escape is looked for in
   the pattern as given, before lowering, so that ESCAPE 'X' leaves an 'x' alone. *dangling is
   set when the pattern ends in the escape. The count, or -1. */
static long like_pattern(nus_sql_cache *c, nus_sql_locale *l, const char *pattern,
                         size_t plength, const char *escape, nus_sql_buf *out, nus_sql_buf *plain,
                         int *dangling, nus_sql_err *err) {
    nus_sql_buf scratch = {0};
    const size_t elen = escape != NULL ? strlen(escape) : 0;
    long n = 0;
    size_t at = 0;
    *dangling = 0;
    for (;;) {
        size_t stop = plength;
        for (size_t k = at; elen > 0 && k + elen <= plength; ++k)
            if (memcmp(pattern + k, escape, elen) == 0) {
                stop = k;
                break;
            }
        if (like_append(c, l, pattern + at, stop - at, 0, &scratch, out, plain, &n, err) != 0) break;
        if (stop == plength) {
            nus_sql_buf_free(&scratch);
            return n;
        }
        const size_t from = stop + elen;
        if (from >= plength) {
            *dangling = 1;
            nus_sql_buf_free(&scratch);
            return n;
        }
        /* The escaped character: one UTF-8 sequence (a byte that begins none stands alone). */
        const unsigned char b = (unsigned char)pattern[from];
        size_t len = b < 0xc0 ? 1 : b < 0xe0 ? 2 : b < 0xf0 ? 3 : 4;
        if (len > plength - from) len = plength - from;
        for (size_t k = 1; k < len; ++k)
            if (((unsigned char)pattern[from + k] & 0xc0) != 0x80) len = k;
        if (like_append(c, l, pattern + from, len, 1, &scratch, out, plain, &n, err) != 0) break;
        at = from + len;
    }
    nus_sql_buf_free(&scratch);
    return -1;
}

int nus_sql_like(nus_sql_cache *c, nus_sql_locale *l, const char *pattern, size_t plength,
                 const char *text, size_t length, const char *escape, int *result,
                 nus_sql_err *err) {
    nus_sql_buf wp = {0}, wt = {0}, we = {0}, marks = {0};
    int status = -1, dangling = 0;
    if (escape != NULL) {
        const long ne = like_wide(c, l, escape, strlen(escape), &we, err);
        if (ne >= 0 && ne != 1) set_err(err, "the escape must be one character");
        if (ne != 1) goto done;
    }
    const long np = like_pattern(c, l, pattern, plength, escape, &wp, &marks, &dangling, err);
    const long nt = np < 0 ? -1 : like_wide(c, l, text, length, &wt, err);
    if (nt < 0) goto done;
    if (dangling) {
        /* An escape that ends the pattern escapes nothing: no text matches (as SQLite). */
        *result = 0;
        status = 0;
        goto done;
    }
    const nu_wchar *p = (const nu_wchar *)(void *)wp.data, *t = (const nu_wchar *)(void *)wt.data;
    const unsigned char *plain = marks.data;
    const nu_wchar percent = '%', underscore = '_';
    /* The classic walk: on a mismatch, go back to the last "%" and let it take one more
       character. Linear in practice, quadratic at worst. */
    long i = 0, j = 0, star = -1, mark = 0;
    while (j < nt) {
        if (i < np && p[i] == percent && !plain[i]) {
            star = i++;
            mark = j;
            continue;
        }
        if (i < np && ((p[i] == underscore && !plain[i]) || p[i] == t[j])) {
            ++i;
            ++j;
        } else if (star >= 0) {
            i = star + 1;
            j = ++mark;
        } else {
            *result = 0;
            status = 0;
            goto done;
        }
    }
    while (i < np && p[i] == percent && !plain[i]) ++i;
    *result = i == np;
    status = 0;
done:
    nus_sql_buf_free(&wp);
    nus_sql_buf_free(&wt);
    nus_sql_buf_free(&we);
    nus_sql_buf_free(&marks);
    return status;
}

int nus_sql_width(nus_sql_cache *c, nus_sql_locale *l, const char *text, size_t length,
                  long *width, nus_sql_err *err) {
    if (to_local(l, text, length, &c->scratch[0], 1, err) != 0) return -1;
    *_nu_ext_errno(l->handle) = 0;
    const int w = nu_mbswidth(l->handle, c->scratch[0].data, INT_MAX);
    if (w < 0) {
        if (*_nu_ext_errno(l->handle) == 0)
            set_err(err, "width: the text holds a character without a display width");
        else
            fail_handle(err, l->handle, "width");
        return -1;
    }
    *width = w;
    return 0;
}

/* ---- numbers and money ----------------------------------------------------------------- */

static int is_digit(unsigned char c) { return c >= '0' && c <= '9'; }

/* Finds the one conversion of a format (local text): its letter, or 0 after a message.
   `letters`: the conversions allowed. Positional and "*" arguments are refused, since the
   SQL function passes exactly one value. */
static char scan_format(nu_locale_t h, const char *format, const char *letters, int money,
                        int *is_long, nus_sql_err *err) {
    char found = 0;
    int count = 0;
    for (const unsigned char *p = (const unsigned char *)format; *p != 0;) {
        if (*p != '%') {
            const int n = _tsn_nu_full_mblen(h, p, 4);
            p += n > 0 ? n : 1;
            continue;
        }
        if (p[1] == '%') {
            p += 2;
            continue;
        }
        ++p;
        const unsigned char *q = p;
        while (is_digit(*q)) ++q;
        if (q != p && *q == '$') {
            set_err(err, "format: positional conversions (%%N$) are not supported");
            return 0;
        }
        if (money) {
            for (;;) {
                if (*p == '=' && p[1] != 0) {
                    const int n = _tsn_nu_full_mblen(h, p + 1, 4);
                    p += 1 + (n > 0 ? n : 1);
                } else if (*p != 0 && strchr("+(^!-", *p) != NULL) {
                    ++p;
                } else {
                    break;
                }
            }
            while (is_digit(*p)) ++p;
            if (*p == '#')
                for (++p; is_digit(*p);) ++p;
        } else {
            while (*p != 0 && strchr(" #'+-0", *p) != NULL) ++p;
            while (is_digit(*p)) ++p;
        }
        if (*p == '*') {
            set_err(err, "format: '*' widths are not supported: write the width in the format");
            return 0;
        }
        if (*p == '.') {
            ++p;
            if (*p == '*') {
                set_err(err, "format: '*' precisions are not supported");
                return 0;
            }
            while (is_digit(*p)) ++p;
        }
        if (!money && *p != 0 && strchr("lLhH", *p) != NULL) {
            if (is_long != NULL) *is_long = *p == 'l' || *p == 'L';
            ++p;
        }
        if (*p == 0) {
            set_err(err, "format ends inside a conversion");
            return 0;
        }
        if (strchr(letters, *p) == NULL) {
            set_err(err, "format: unknown conversion '%c' (%s)", *p,
                    money ? "n or i" : "d i u o x X b q e E f g G");
            return 0;
        }
        found = (char)*p++;
        ++count;
    }
    if (count != 1) {
        set_err(err, "format must hold exactly one conversion, not %d", count);
        return 0;
    }
    return found;
}

static int format_failure(nu_locale_t h, nus_sql_err *err) {
    const int code = *_nu_ext_errno(h);
    if (code == NU_E2BIG) {
        set_err(err, "format: the result is too long");
        return -1;
    }
    return fail_code(err, code, "format");
}

int nus_sql_fmt(nus_sql_cache *c, nus_sql_locale *l, const char *format, double number,
                long long integer, int is_integer, nus_sql_buf *out, nus_sql_err *err) {
    if (to_local(l, format, strlen(format), &c->scratch[0], 1, err) != 0) return -1;
    const char *local = (const char *)c->scratch[0].data;
    int is_long = 0;
    const char letter = scan_format(l->handle, local, "diuoxXbqeEfgG", 0, &is_long, err);
    if (letter == 0) return -1;
    const int integral = strchr("diuoxXbq", letter) != NULL;
    int word = 0;
    if (integral) {
        if (!is_integer) {
            if (!(number == number) || number != (double)(long long)number ||
                number > 9e18 || number < -9e18) {
                set_err(err, "value %g is not a whole number (%%%c takes one)", number, letter);
                return -1;
            }
            integer = (long long)number;
        }
        const int fits = letter == 'u' ? integer >= 0 && integer <= (long long)UINT32_MAX
                                       : integer >= INT32_MIN && integer <= INT32_MAX;
        if (!fits) {
            set_err(err, "value %lld out of range (%%%c takes %s)", integer, letter,
                    letter == 'u' ? "0 to 4294967295" : "-2147483648 to 2147483647");
            return -1;
        }
        /* The library reads a 32-bit int for every integer conversion. */
        word = (int)(uint32_t)integer;
    } else if (is_integer) {
        number = (double)integer;
    }
    nus_sql_buf *result = &c->scratch[1];
    for (size_t size = 256; size <= 65536; size *= 2) {
        if (buf_reserve(result, size, err) != 0) return -1;
        *_nu_ext_errno(l->handle) = 0;
        /* "l" reads a long: the same 32-bit value, passed at the width that is read. */
        const int n = !integral ? nu_mbsfnum(l->handle, (char *)result->data, (int)size, local, number)
                      : is_long ? nu_mbsfnum(l->handle, (char *)result->data, (int)size, local, (long)word)
                                : nu_mbsfnum(l->handle, (char *)result->data, (int)size, local, word);
        if (n >= 0) {
            buf_terminate(result, (size_t)n);
            return to_utf8(l, result->data, result->length, out, err);
        }
        if (*_nu_ext_errno(l->handle) != NU_E2BIG) break;
    }
    return format_failure(l->handle, err);
}

int nus_sql_money(nus_sql_cache *c, nus_sql_locale *l, const char *format, double amount,
                  nus_sql_buf *out, nus_sql_err *err) {
    if (to_local(l, format, strlen(format), &c->scratch[0], 1, err) != 0) return -1;
    const char *local = (const char *)c->scratch[0].data;
    if (scan_format(l->handle, local, "in", 1, NULL, err) == 0) return -1;
    if (!(amount == amount) || amount > 1e300 || amount < -1e300) {
        set_err(err, "amount %g out of range", amount);
        return -1;
    }
    nus_sql_buf *result = &c->scratch[1];
    for (size_t size = 256; size <= 65536; size *= 2) {
        if (buf_reserve(result, size, err) != 0) return -1;
        *_nu_ext_errno(l->handle) = 0;
        const int n = nu_mbsfmon(l->handle, (char *)result->data, (int)size, local, amount);
        if (n >= 0) {
            buf_terminate(result, (size_t)n);
            return to_utf8(l, result->data, result->length, out, err);
        }
        if (*_nu_ext_errno(l->handle) != NU_E2BIG) break;
    }
    return format_failure(l->handle, err);
}

static int blank(unsigned char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

int nus_sql_parse_number(nus_sql_cache *c, nus_sql_locale *l, const char *text, size_t length,
                         int grouping, double *value, nus_sql_err *err) {
    if (to_local(l, text, length, &c->scratch[0], 1, err) != 0) return -1;
    const char *s = (const char *)c->scratch[0].data;
    char *end = NULL;
    *_nu_ext_errno(l->handle) = 0;
    const double v = nu_mbstod(l->handle, s, &end, grouping ? 1 : 0);
    const int code = *_nu_ext_errno(l->handle);
    if (code == NU_EINVAL) {
        set_err(err, "'%.60s': thousands separators out of place", text);
        return -1;
    }
    if (code != 0 || end == NULL || end == s) {
        set_err(err, "'%.60s' is not a number", text);
        return -1;
    }
    int digits = 0;
    for (const char *p = s; p < end; ++p) digits |= is_digit((unsigned char)*p);
    while (blank((unsigned char)*end)) ++end;
    if (!digits || *end != '\0') {
        set_err(err, "'%.60s' is not a number%s", text, digits ? " (text after it)" : "");
        return -1;
    }
    *value = v;
    return 0;
}

/* ---- conversions ----------------------------------------------------------------------- */

int nus_sql_conv_bytes(nus_sql_cache *c, const char *from, const char *to, const void *in,
                       size_t length, nus_sql_buf *out, nus_sql_err *err) {
    nus_sql_conv *found = NULL;
    for (nus_sql_conv *v = c->convs; v != NULL; v = v->next)
        if (strcmp(v->from, from) == 0 && strcmp(v->to, to) == 0) {
            found = v;
            break;
        }
    if (found == NULL) {
        nu_cv_t cv = NULL;
        int r = nu_cv_load(&cv, to, from, NULL, NULL);
        if (r < 0 && cv != NULL && *_nu_ext_errno(cv) == NU_ENOFILE) {
            nu_cv_unload(cv);
            cv = NULL;
            r = nu_cv_open(&cv, to, from);
        }
        if (r < 0) {
            const int code = cv != NULL ? *_nu_ext_errno(cv) : NU_ENOMEM;
            nu_cv_unload(cv);
            char what[200];
            snprintf(what, sizeof what, "no conversion from '%.60s' to '%.60s'", from, to);
            return fail_code(err, code, what);
        }
        found = calloc(1, sizeof *found);
        if (found == NULL || (found->from = copy_text(from)) == NULL ||
            (found->to = copy_text(to)) == NULL) {
            if (found != NULL) free(found->from);
            free(found);
            if (cv != NULL) nu_cv_unload(cv);
            set_err(err, "out of memory");
            return -1;
        }
        found->cv = cv;
        found->next = c->convs;
        c->convs = found;
    }
    if (found->cv == NULL) return buf_set(out, in, length, err);
    return convert(found->cv, in, length, out, 0, "conversion", err);
}

/* ---- calendars ------------------------------------------------------------------------- */

static int leap(long year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int nus_sql_calendar(const char *date, const char *calendar, nus_sql_buf *out,
                     nus_sql_err *err) {
    long parts[3];
    const char *p = date;
    for (int i = 0; i < 3; ++i) {
        if (!is_digit((unsigned char)*p)) goto bad;
        char *end = NULL;
        parts[i] = strtol(p, &end, 10);
        if (end - p > 6) goto bad;
        p = end;
        if (i < 2 && *p++ != '-') goto bad;
    }
    if (*p != '\0') goto bad;
    static const int lengths[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (parts[1] < 1 || parts[1] > 12 || parts[2] < 1 ||
        parts[2] > lengths[parts[1] - 1] + (parts[1] == 2 && leap(parts[0])) || parts[0] < 1) {
        set_err(err, "'%.40s' is no Gregorian date", date);
        return -1;
    }
    nu_time_rec in, result;
    memset(&in, 0, sizeof in);
    in.year = (int32_t)(parts[0] - 1900);
    in.month = (int32_t)(parts[1] - 1);
    in.month_name = in.month;
    in.mday = (int32_t)parts[2];
    in.wday = _nu_gregorian_weekday(in.mday, in.month, (int)parts[0]);
    in.yday = _nu_gregorian_yearday(in.mday, in.month, (int)parts[0]);
    int r;
    if (strcmp(calendar, "gregorian") == 0) {
        result = in;
        r = 0;
    } else if (strcmp(calendar, "hebrew") == 0) {
        r = nu_cal_gregorian_to_hebrew(&in, &result);
    } else if (strcmp(calendar, "islamic") == 0) {
        r = nu_cal_gregorian_to_islamic(&in, &result);
    } else {
        set_err(err, "unknown calendar '%.40s' (gregorian, hebrew, islamic)", calendar);
        return -1;
    }
    if (r != 0) {
        set_err(err, "%s is outside the %s calendar's range", date, calendar);
        return -1;
    }
    char text[48];
    const int n = snprintf(text, sizeof text, "%04ld-%02d-%02d", (long)result.year + 1900,
                           result.month + 1, result.mday);
    return buf_set(out, text, (size_t)n, err);
bad:
    set_err(err, "'%.40s' is not a date written YYYY-MM-DD", date);
    return -1;
}

/* ---- dates and times ------------------------------------------------------------------- */

int nus_sql_time_set(nus_sql_locale *l, long year, int month, int mday, int hour, int minute,
                     int second, long fraction, nu_time_rec *t, nus_sql_err *err) {
    /* The library checks the fields; only what would not fit its words is refused here. */
    if (year < -100000 || year > 100000 || fraction < 0 || fraction > 999999) {
        set_err(err, "%s out of range", fraction < 0 || fraction > 999999 ? "fraction" : "year");
        return -1;
    }
    memset(t, 0, sizeof *t);
    t->year = (int32_t)(year - 1900);
    t->month = t->month_name = month - 1;
    t->mday = mday;
    t->hour = hour;
    t->minute = minute;
    t->second = second;
    t->fraction = (int32_t)fraction;
    *_nu_ext_errno(l->handle) = 0;
    if (nu_time_normalize(l->handle, t) != 0) return fail_handle(err, l->handle, "time");
    return 0;
}

/* Reads `digits` decimal digits (at least one, at most `most`) into *value. */
static const char *read_number(const char *p, const char *end, int most, long *value,
                               int *digits) {
    long v = 0;
    int n = 0;
    while (p < end && is_digit((unsigned char)*p) && n < most) {
        v = v * 10 + (*p++ - '0');
        ++n;
    }
    *value = v;
    *digits = n;
    return p;
}

/* How many bytes of a text to quote in a message: at most 60, not cutting a UTF-8 character. */
static int quoted_length(const char *text, size_t length) {
    size_t n = length < 60 ? length : 60;
    while (n > 0 && n < length && ((unsigned char)text[n] & 0xC0) == 0x80) --n;
    return (int)n;
}

/* Expects `sep` (or, for 'T', a space too) at *p. */
static int separator(const char **p, const char *end, char sep) {
    if (*p == end || (**p != sep && !(sep == 'T' && **p == ' '))) return 0;
    ++*p;
    return 1;
}

static int two_digits(const char **p, const char *end, long *value) {
    int n;
    *p = read_number(*p, end, 2, value, &n);
    return n == 2;
}

int nus_sql_time_from_iso(nus_sql_locale *l, const char *text, size_t length, nu_time_rec *t,
                          nus_sql_err *err) {
    const char *p = text, *end = text + length;
    while (p < end && blank((unsigned char)*p)) ++p;
    while (end > p && blank((unsigned char)end[-1])) --end;
    long year = 0, month = 0, mday = 0, hour = 0, minute = 0, second = 0, fraction = 0;
    int n;
    p = read_number(p, end, 4, &year, &n);
    if (n != 4 || !separator(&p, end, '-') || !two_digits(&p, end, &month) ||
        !separator(&p, end, '-') || !two_digits(&p, end, &mday))
        goto bad;
    if (p < end) {
        if (!separator(&p, end, 'T') || !two_digits(&p, end, &hour) ||
            !separator(&p, end, ':') || !two_digits(&p, end, &minute))
            goto bad;
        if (p < end && *p == ':') {
            ++p;
            if (!two_digits(&p, end, &second)) goto bad;
            if (p < end && *p == '.') {
                int digits = 0;
                for (++p; p < end && is_digit((unsigned char)*p); ++p, ++digits)
                    if (digits < 6) fraction = fraction * 10 + (*p - '0');
                if (digits == 0 || digits > 9) goto bad;
                for (; digits < 6; ++digits) fraction *= 10;
            }
        }
    }
    if (p != end) goto bad;
    if (nus_sql_time_set(l, year, (int)month, (int)mday, (int)hour, (int)minute, (int)second,
                         fraction, t, err) != 0) {
        char what[96];
        snprintf(what, sizeof what, "'%.*s'", quoted_length(text, length), text);
        return fail_handle(err, l->handle, what);
    }
    return 0;
bad:
    set_err(err, "'%.*s' is not a time written YYYY-MM-DD[ HH:MM[:SS[.FFFFFF]]]",
            quoted_length(text, length), text);
    return -1;
}

int nus_sql_time_from_epoch(nus_sql_locale *l, long long seconds, long micro, nu_time_rec *t,
                            nus_sql_err *err) {
    /* 0001-01-01 00:00:00 to 9999-12-31 23:59:59: the years the formatter writes. */
    if (seconds < -62135596800LL || seconds > 253402300799LL) {
        set_err(err, "%lld seconds since 1970 is outside the years 1 to 9999", seconds);
        return -1;
    }
    long long days = seconds / 86400, rest = seconds % 86400;
    if (rest < 0) {
        rest += 86400;
        --days;
    }
    /* The Gregorian date of a day count from 1970-01-01, counted in 400-year eras from
       0000-03-01. */
    const long long z = days + 719468;
    const long long era = (z >= 0 ? z : z - 146096) / 146097;
    const long long doe = z - era * 146097;
    const long long yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const long long doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const long long mp = (5 * doy + 2) / 153;
    const int mday = (int)(doy - (153 * mp + 2) / 5 + 1);
    const int month = (int)(mp < 10 ? mp + 3 : mp - 9);
    const long year = (long)(yoe + era * 400 + (month <= 2));
    return nus_sql_time_set(l, year, month, mday, (int)(rest / 3600), (int)(rest / 60 % 60),
                            (int)(rest % 60), micro, t, err);
}

int nus_sql_time_iso(const nu_time_rec *t, nus_sql_buf *out, nus_sql_err *err) {
    char text[64];
    int n = snprintf(text, sizeof text, "%04ld-%02d-%02d %02d:%02d:%02d", (long)t->year + 1900,
                     t->month + 1, t->mday, t->hour, t->minute, t->second);
    if (t->fraction != 0)
        n += snprintf(text + n, sizeof text - (size_t)n, ".%06ld", (long)t->fraction);
    return buf_set(out, text, (size_t)n, err);
}

int nus_sql_date(nus_sql_cache *c, nus_sql_locale *l, const char *format, const nu_time_rec *t,
                 nus_sql_buf *out, nus_sql_err *err) {
    if (to_local(l, format, strlen(format), &c->scratch[0], 1, err) != 0) return -1;
    const char *local = (const char *)c->scratch[0].data;
    *_nu_ext_errno(l->handle) = 0;
    /* Measured first: the result is then written into a buffer that holds it. */
    const int needed = nu_mbsftime(l->handle, NULL, 0, local, t);
    if (needed < 0) return fail_handle(err, l->handle, "format");
    nus_sql_buf *result = &c->scratch[1];
    if (buf_reserve(result, (size_t)needed, err) != 0) return -1;
    const int n = nu_mbsftime(l->handle, (char *)result->data, needed + 4, local, t);
    if (n < 0) return fail_handle(err, l->handle, "format");
    buf_terminate(result, (size_t)n);
    return to_utf8(l, result->data, result->length, out, err);
}

int nus_sql_parse_date(nus_sql_cache *c, nus_sql_locale *l, const char *format, const char *text,
                       size_t length, nu_time_rec *t, nus_sql_err *err) {
    if (to_local(l, format, strlen(format), &c->scratch[0], 1, err) != 0) return -1;
    if (to_local(l, text, length, &c->scratch[2], 1, err) != 0) return -1;
    const char *local = (const char *)c->scratch[2].data;
    if (memchr(local, 0, c->scratch[2].length) != NULL) {
        set_err(err, "the text holds a NUL character");
        return -1;
    }
    *_nu_ext_errno(l->handle) = 0;
    const char *end = nu_mbsptime(l->handle, local, (const char *)c->scratch[0].data, t);
    if (end == NULL) {
        char what[96];
        snprintf(what, sizeof what, "'%.*s'", quoted_length(text, length), text);
        return fail_handle(err, l->handle, what);
    }
    while (blank((unsigned char)*end)) ++end;
    if (*end != '\0') {
        set_err(err, "'%.*s': text after the date", quoted_length(text, length), text);
        return -1;
    }
    return 0;
}

/* ---- collation version ----------------------------------------------------------------- */

/* SHA-256 (FIPS 180-4). */
typedef struct sha256 {
    uint32_t h[8];
    uint64_t bytes;
    unsigned char block[64];
    size_t used;
} sha256;

static const uint32_t sha_k[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

static uint32_t ror(uint32_t x, int n) { return (x >> n) | (x << (32 - n)); }

static void sha_block(sha256 *s, const unsigned char *p) {
    uint32_t w[64];
    for (int i = 0; i < 16; ++i)
        w[i] = (uint32_t)p[4 * i] << 24 | (uint32_t)p[4 * i + 1] << 16 |
               (uint32_t)p[4 * i + 2] << 8 | p[4 * i + 3];
    for (int i = 16; i < 64; ++i) {
        const uint32_t s0 = ror(w[i - 15], 7) ^ ror(w[i - 15], 18) ^ (w[i - 15] >> 3);
        const uint32_t s1 = ror(w[i - 2], 17) ^ ror(w[i - 2], 19) ^ (w[i - 2] >> 10);
        w[i] = w[i - 16] + s0 + w[i - 7] + s1;
    }
    uint32_t a = s->h[0], b = s->h[1], c = s->h[2], d = s->h[3], e = s->h[4], f = s->h[5],
             g = s->h[6], h = s->h[7];
    for (int i = 0; i < 64; ++i) {
        const uint32_t t1 = h + (ror(e, 6) ^ ror(e, 11) ^ ror(e, 25)) + ((e & f) ^ (~e & g)) +
                            sha_k[i] + w[i];
        const uint32_t t2 = (ror(a, 2) ^ ror(a, 13) ^ ror(a, 22)) + ((a & b) ^ (a & c) ^ (b & c));
        h = g;
        g = f;
        f = e;
        e = d + t1;
        d = c;
        c = b;
        b = a;
        a = t1 + t2;
    }
    s->h[0] += a, s->h[1] += b, s->h[2] += c, s->h[3] += d;
    s->h[4] += e, s->h[5] += f, s->h[6] += g, s->h[7] += h;
}

static void sha_init(sha256 *s) {
    static const uint32_t init[8] = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                     0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
    memcpy(s->h, init, sizeof init);
    s->bytes = 0;
    s->used = 0;
}

static void sha_add(sha256 *s, const void *data, size_t n) {
    const unsigned char *p = data;
    s->bytes += n;
    while (n > 0) {
        size_t take = 64 - s->used;
        if (take > n) take = n;
        memcpy(s->block + s->used, p, take);
        s->used += take;
        p += take;
        n -= take;
        if (s->used == 64) {
            sha_block(s, s->block);
            s->used = 0;
        }
    }
}

static void sha_hex(sha256 *s, char out[65]) {
    const uint64_t bits = s->bytes * 8;
    const unsigned char one = 0x80, zero = 0;
    sha_add(s, &one, 1);
    while (s->used != 56) sha_add(s, &zero, 1);
    unsigned char length[8];
    for (int i = 0; i < 8; ++i) length[i] = (unsigned char)(bits >> (56 - 8 * i));
    sha_add(s, length, 8);
    for (int i = 0; i < 8; ++i) snprintf(out + 8 * i, 9, "%08x", s->h[i]);
}

int nus_sql_collation_version(const char *locale, nus_sql_buf *out, nus_sql_err *err) {
    /* The file the library itself opens for that name: the name turned into a file name as
       nu_lc_load turns it (else taken as a file name), found by the library's own search. */
    char name[512];
    int32_t code = 0;
    const char *use = locale;
    if (strlen(locale) < 286 && nu_lc_spec2lc_fname(&code, locale, name, NULL, NULL) == 0)
        use = name;
    code = 0;
    FILE *stream = nu_path_search(&code, use, "lc", nu_lc_version());
    if (stream == NULL) {
        char what[128];
        snprintf(what, sizeof what, "no locale file for '%.60s'", locale);
        return fail_code(err, code != 0 ? code : NU_ENOFILE, what);
    }
    /* The COLLATE section: from its marker line to the next category's marker. */
    sha256 sha;
    sha_init(&sha);
    enum { before, inside, after } where = before;
    int line_start = 1;
    char line[4096];
    while (where != after && _nu_ext_fgets(line, (int)sizeof line, stream) != NULL) {
        const size_t n = strlen(line);
        if (line_start) {
            if (where == before && strcmp(line, "### LC_COLLATE\n") == 0) where = inside;
            else if (where == inside && strncmp(line, "### LC_", 7) == 0 && line[n - 1] == '\n')
                where = after;
        }
        if (where == inside) sha_add(&sha, line, n);
        line_start = n > 0 && line[n - 1] == '\n';
    }
    _nu_ext_fclose(stream);
    if (where != after) {
        set_err(err, "the locale file of '%.60s' has no complete collation section", locale);
        return -1;
    }
    char hex[65];
    sha_hex(&sha, hex);
    char text[160];
    const int n = snprintf(text, sizeof text, "%s:%s", nu_version(), hex);
    return buf_set(out, text, (size_t)n, err);
}
