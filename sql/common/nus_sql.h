/*
 * nus_sql.h: what the SQLite and PostgreSQL extensions share. Database text is UTF-8; a
 * locale of another code set is reached through the library's conversion objects (utf8 to
 * the locale's code set on the way in, back on the way out), which the cache opens with the
 * locale.
 *
 * Nothing here calls back into a database: every function returns 0 (or a count) on success
 * and -1 on failure with a message in `err`, so that each extension raises its own error
 * after releasing what it holds. Memory comes from malloc and is released here.
 */
#ifndef NUS_SQL_H
#define NUS_SQL_H

#include <nus.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Room for an error message. */
#define NUS_SQL_ERR_SIZE 320
typedef struct nus_sql_err {
    char text[NUS_SQL_ERR_SIZE];
} nus_sql_err;

/* A growing byte buffer; `data` is always terminated by four zero bytes beyond `length`. */
typedef struct nus_sql_buf {
    unsigned char *data;
    size_t length;
    size_t room;
} nus_sql_buf;

void nus_sql_buf_free(nus_sql_buf *b);

/* One loaded locale: its handle, and the conversions when its code set is not UTF-8. */
typedef struct nus_sql_locale {
    char *name;
    nu_locale_t handle;
    nu_cv_t to_local; /* utf8 to the locale's code set; null for a UTF-8 locale */
    nu_cv_t to_utf8;  /* and back */
    struct nus_sql_locale *next;
} nus_sql_locale;

/* One conversion between two code sets or locales, by their names as given. */
typedef struct nus_sql_conv {
    char *from;
    char *to;
    nu_cv_t cv; /* null when both sides share one code set */
    struct nus_sql_conv *next;
} nus_sql_conv;

/* The handles and descriptors of one connection, loaded on first use. */
typedef struct nus_sql_cache {
    nus_sql_locale *locales;
    nus_sql_conv *convs;
    nus_sql_buf scratch[4]; /* reused between calls: conversions of the arguments */
    /* The primary key of the last prefix nus_sql_has_prefix saw (a scan asks row by row). */
    nus_sql_locale *prefix_locale;
    nus_sql_buf prefix_text;
    nus_sql_buf prefix_key;
} nus_sql_cache;

void nus_sql_cache_free(nus_sql_cache *c);

/* The locale of that name, loaded and cached; null with a message when it does not load. */
nus_sql_locale *nus_sql_locale_get(nus_sql_cache *c, const char *name, nus_sql_err *err);

/* "NU_ENOFILE (data file not found)", or "error N". */
const char *nus_sql_error_text(int code, char *buffer, size_t size);

/* The sort key of a text (UTF-8, `length` bytes) into `out` (without its terminator). */
int nus_sql_sortkey(nus_sql_cache *c, nus_sql_locale *l, const char *text, size_t length,
                    nus_sql_buf *out, nus_sql_err *err);
/* The key cut after its first level, as nu_get_prim_coll_weight leaves it. */
int nus_sql_primary_key(nus_sql_cache *c, nus_sql_locale *l, const char *text, size_t length,
                        nus_sql_buf *out, nus_sql_err *err);
/* Comparison of two texts: *result negative, 0 or positive. */
int nus_sql_compare(nus_sql_cache *c, nus_sql_locale *l, const char *a, size_t alength,
                    const char *b, size_t blength, int *result, nus_sql_err *err);
/* The comparison a collation callback needs: never fails; texts the locale cannot compare
   (invalid UTF-8) are ordered by their bytes after every text it can. */
int nus_sql_collate(nus_sql_cache *c, nus_sql_locale *l, const void *a, int alength,
                    const void *b, int blength);
/* 1 when the text begins with the prefix at the first level (its primary key begins with the
   prefix's): the rule a prefix search by the collation bounds applies. */
int nus_sql_has_prefix(nus_sql_cache *c, nus_sql_locale *l, const char *text, size_t length,
                       const char *prefix, size_t plength, int *result, nus_sql_err *err);
/* The collation bound of a prefix (upper nonzero: the upper one) as UTF-8 text (`key` zero)
   or as its sort key (`key` nonzero). 1 found; 0 when no unit lies beyond the last one in
   that direction (the search is open on that side); -1 failure. */
int nus_sql_bound(nus_sql_cache *c, nus_sql_locale *l, const char *prefix, size_t length,
                  int upper, int key, nus_sql_buf *out, nus_sql_err *err);
/* Upper or lower case by the locale's CTYPE. */
int nus_sql_case(nus_sql_cache *c, nus_sql_locale *l, const char *text, size_t length,
                 int upper, nus_sql_buf *out, nus_sql_err *err);
/* LIKE without regard to case: characters match when the locale's lower case of both is the
   same; "%" matches any run of characters, "_" one character, and the escape character (0:
   none) makes the next pattern character plain. *result 1 or 0. A null locale folds the
   ASCII letters only and compares every other character as it is (invalid UTF-8 byte by
   byte), as SQLite's own LIKE does. */
int nus_sql_like(nus_sql_cache *c, nus_sql_locale *l, const char *pattern, size_t plength,
                 const char *text, size_t length, const char *escape, int *result,
                 nus_sql_err *err);
/* Display width in columns. */
int nus_sql_width(nus_sql_cache *c, nus_sql_locale *l, const char *text, size_t length,
                  long *width, nus_sql_err *err);
/* A number formatted by a format with exactly one conversion (nu_mbsfnum). An integer value
   is given as `integer` with is_integer set, else as `number`. */
int nus_sql_fmt(nus_sql_cache *c, nus_sql_locale *l, const char *format, double number,
                long long integer, int is_integer, nus_sql_buf *out, nus_sql_err *err);
/* An amount formatted by a format with exactly one %n or %i (nu_mbsfmon). */
int nus_sql_money(nus_sql_cache *c, nus_sql_locale *l, const char *format, double amount,
                  nus_sql_buf *out, nus_sql_err *err);
/* A number written the locale's way (nu_mbstod); the whole text must be read, blanks around
   it aside. grouping nonzero: thousands separators are read (and required). */
int nus_sql_parse_number(nus_sql_cache *c, nus_sql_locale *l, const char *text, size_t length,
                         int grouping, double *value, nus_sql_err *err);
/* Bytes converted between code sets, each named by code-set name or locale name. */
int nus_sql_conv_bytes(nus_sql_cache *c, const char *from, const char *to, const void *in,
                       size_t length, nus_sql_buf *out, nus_sql_err *err);
/* A Gregorian date "YYYY-MM-DD" in another calendar (gregorian, hebrew, islamic), written
   the same way (the month counted from 1: Tishri is 1 in the Hebrew calendar). */
int nus_sql_calendar(const char *date, const char *calendar, nus_sql_buf *out,
                     nus_sql_err *err);
/* Dates and times. A time value is Gregorian and carries no time zone. */
/* The value of a date and time (month and day from 1, fraction in microseconds), checked and
   completed (day of week, day of year) by the locale's handle. */
int nus_sql_time_set(nus_sql_locale *l, long year, int month, int mday, int hour, int minute,
                     int second, long fraction, nu_time_rec *t, nus_sql_err *err);
/* ISO text: "YYYY-MM-DD", optionally followed by "T" or a space and "HH:MM", "HH:MM:SS" or
   "HH:MM:SS.F" (1 to 9 digits, kept to the microsecond); blanks around it are skipped. */
int nus_sql_time_from_iso(nus_sql_locale *l, const char *text, size_t length, nu_time_rec *t,
                          nus_sql_err *err);
/* Seconds since 1970-01-01 00:00:00 (a Unix time, as UTC) and microseconds (0 to 999999). */
int nus_sql_time_from_epoch(nus_sql_locale *l, long long seconds, long micro, nu_time_rec *t,
                            nus_sql_err *err);
/* "YYYY-MM-DD HH:MM:SS", with ".ffffff" when the fraction is not 0. */
int nus_sql_time_iso(const nu_time_rec *t, nus_sql_buf *out, nus_sql_err *err);
/* A time value written by a format of the library's time formatter (nu_mbsftime). */
int nus_sql_date(nus_sql_cache *c, nus_sql_locale *l, const char *format, const nu_time_rec *t,
                 nus_sql_buf *out, nus_sql_err *err);
/* Text read by such a format (nu_mbsptime); the whole text must be read, blanks after it
   aside. */
int nus_sql_parse_date(nus_sql_cache *c, nus_sql_locale *l, const char *format, const char *text,
                       size_t length, nu_time_rec *t, nus_sql_err *err);
/* The version of a locale's collation: the library's version and the SHA-256 of the COLLATE
   section of the locale file that the library's data-file search finds for that name. */
int nus_sql_collation_version(const char *locale, nus_sql_buf *out, nus_sql_err *err);

#ifdef __cplusplus
}
#endif

#endif /* NUS_SQL_H */
