/* nus_sqlite.c: a loadable SQLite extension built on nuslib.
 *
 *   .load nus_sqlite                      (sqlite3 shell)
 *   conn.load_extension("nus_sqlite")     (Python's sqlite3)
 *
 * Every locale of the data tree is a collation, registered when a statement first names it
 * (ORDER BY name COLLATE "de_de.utf8"); nus_load_collation(locale, name) registers one under
 * another name. The functions take the locale by name as their last argument, or as their
 * first where a format follows. A NULL argument gives NULL; a failure is an SQL error with the
 * library's reason. One handle per connection and locale, loaded on first use and freed when
 * the connection closes.
 *
 * LIKE (the functions like(pattern, text) and like(pattern, text, escape), as SQLite's ICU
 * extension replaces them) ignores case by the lower case of the connection's LIKE locale:
 * the one nus_like_locale(locale) names, else en_us.utf8, else (the data tree lacks it) the
 * ASCII letters only, as SQLite's own LIKE does.
 */
#include <sqlite3ext.h>
SQLITE_EXTENSION_INIT1

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "nus_sql.h"

/* The state of one connection, shared by its functions and collations: freed when the last
   of them is dropped (when the connection closes). */
typedef struct connection {
    nus_sql_cache cache;
    sqlite3 *db;
    int refs;
    /* The locale of LIKE: null folds the ASCII letters only. Chosen on first use (en_us.utf8
       when the data tree has it) unless nus_like_locale chose it before. */
    nus_sql_locale *like_locale;
    int like_chosen;
} connection;

static void connection_release(void *p) {
    connection *c = p;
    if (c != NULL && --c->refs == 0) {
        nus_sql_cache_free(&c->cache);
        sqlite3_free(c);
    }
}

/* A collation: the connection and the locale whose handle compares. */
typedef struct collation {
    connection *conn;
    nus_sql_locale *locale;
} collation;

static void collation_release(void *p) {
    collation *k = p;
    connection_release(k->conn);
    sqlite3_free(k);
}

static int collation_compare(void *p, int alength, const void *a, int blength, const void *b) {
    collation *k = p;
    return nus_sql_collate(&k->conn->cache, k->locale, a, alength, b, blength);
}

/* Registers a locale's collation under `name`; SQLITE_OK, or an error with the message. */
static int register_collation(connection *conn, const char *locale, const char *name,
                              nus_sql_err *err) {
    nus_sql_locale *l = nus_sql_locale_get(&conn->cache, locale, err);
    if (l == NULL) return SQLITE_ERROR;
    collation *k = sqlite3_malloc(sizeof *k);
    if (k == NULL) {
        strcpy(err->text, "out of memory");
        return SQLITE_NOMEM;
    }
    k->conn = conn;
    k->locale = l;
    ++conn->refs;
    /* SQLite calls the destructor itself when the registration fails. */
    const int rc = sqlite3_create_collation_v2(conn->db, name, SQLITE_UTF8, k, collation_compare,
                                               collation_release);
    if (rc != SQLITE_OK) snprintf(err->text, sizeof err->text, "%s", sqlite3_errmsg(conn->db));
    return rc;
}

static void collation_needed(void *p, sqlite3 *db, int encoding, const char *name) {
    (void)db;
    (void)encoding;
    nus_sql_err err;
    /* A name that is no locale stays unknown: SQLite reports "no such collation sequence". */
    register_collation(p, name, name, &err);
}

/* ---- helpers of the functions ---------------------------------------------------------- */

static connection *conn_of(sqlite3_context *ctx) { return sqlite3_user_data(ctx); }

/* True when an argument is NULL: the result is then NULL. */
static int any_null(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
    for (int i = 0; i < argc; ++i)
        if (sqlite3_value_type(argv[i]) == SQLITE_NULL) {
            sqlite3_result_null(ctx);
            return 1;
        }
    return 0;
}

static const char *text_arg(sqlite3_value *v, size_t *length) {
    const char *s = (const char *)sqlite3_value_text(v);
    if (length != NULL) *length = (size_t)sqlite3_value_bytes(v);
    return s != NULL ? s : "";
}

static void fail(sqlite3_context *ctx, const char *function, const nus_sql_err *err) {
    char *message = sqlite3_mprintf("%s: %s", function, err->text);
    if (message == NULL) {
        sqlite3_result_error_nomem(ctx);
        return;
    }
    sqlite3_result_error(ctx, message, -1);
    sqlite3_free(message);
}

/* The locale named by argument i, or null after an error. */
static nus_sql_locale *locale_arg(sqlite3_context *ctx, sqlite3_value *v, const char *function) {
    nus_sql_err err;
    nus_sql_locale *l = nus_sql_locale_get(&conn_of(ctx)->cache, text_arg(v, NULL), &err);
    if (l == NULL) fail(ctx, function, &err);
    return l;
}

static void result_text(sqlite3_context *ctx, const nus_sql_buf *b) {
    sqlite3_result_text(ctx, (const char *)b->data, (int)b->length, SQLITE_TRANSIENT);
}

static void result_blob(sqlite3_context *ctx, const nus_sql_buf *b) {
    sqlite3_result_blob(ctx, b->data, (int)b->length, SQLITE_TRANSIENT);
}

/* ---- the functions --------------------------------------------------------------------- */

/* nus_key(text, locale) -> blob */
static void fn_key(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
    if (any_null(ctx, argc, argv)) return;
    nus_sql_locale *l = locale_arg(ctx, argv[1], "nus_key");
    if (l == NULL) return;
    size_t n;
    const char *s = text_arg(argv[0], &n);
    nus_sql_buf key = {0};
    nus_sql_err err;
    if (nus_sql_sortkey(&conn_of(ctx)->cache, l, s, n, &key, &err) == 0)
        result_blob(ctx, &key);
    else
        fail(ctx, "nus_key", &err);
    nus_sql_buf_free(&key);
}

/* nus_compare(a, b, locale) -> -1, 0, 1 */
static void fn_compare(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
    if (any_null(ctx, argc, argv)) return;
    nus_sql_locale *l = locale_arg(ctx, argv[2], "nus_compare");
    if (l == NULL) return;
    size_t an, bn;
    const char *a = text_arg(argv[0], &an), *b = text_arg(argv[1], &bn);
    int r;
    nus_sql_err err;
    if (nus_sql_compare(&conn_of(ctx)->cache, l, a, an, b, bn, &r, &err) == 0)
        sqlite3_result_int(ctx, (r > 0) - (r < 0));
    else
        fail(ctx, "nus_compare", &err);
}

/* nus_has_prefix(text, prefix, locale) -> 0 or 1 */
static void fn_has_prefix(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
    if (any_null(ctx, argc, argv)) return;
    nus_sql_locale *l = locale_arg(ctx, argv[2], "nus_has_prefix");
    if (l == NULL) return;
    size_t n, pn;
    const char *s = text_arg(argv[0], &n), *p = text_arg(argv[1], &pn);
    int r;
    nus_sql_err err;
    if (nus_sql_has_prefix(&conn_of(ctx)->cache, l, s, n, p, pn, &r, &err) == 0)
        sqlite3_result_int(ctx, r);
    else
        fail(ctx, "nus_has_prefix", &err);
}

/* The bounds: user data of the registration says which. */
enum { LOWER_TEXT, UPPER_TEXT, LOWER_KEY, UPPER_KEY };
static const char *const bound_names[] = {"nus_lower_bound", "nus_upper_bound", "nus_lower_key",
                                          "nus_upper_key"};

static void fn_bound_which(sqlite3_context *ctx, int argc, sqlite3_value **argv, int which) {
    if (any_null(ctx, argc, argv)) return;
    const char *name = bound_names[which];
    nus_sql_locale *l = locale_arg(ctx, argv[1], name);
    if (l == NULL) return;
    size_t n;
    const char *prefix = text_arg(argv[0], &n);
    const int upper = which == UPPER_TEXT || which == UPPER_KEY;
    const int key = which == LOWER_KEY || which == UPPER_KEY;
    nus_sql_buf out = {0};
    nus_sql_err err;
    const int r = nus_sql_bound(&conn_of(ctx)->cache, l, prefix, n, upper, key, &out, &err);
    if (r < 0) {
        fail(ctx, name, &err);
    } else if (r == 0) {
        /* Open on that side: every text is above the empty one; nothing is above all. */
        if (upper) sqlite3_result_null(ctx);
        else if (key) sqlite3_result_zeroblob(ctx, 0);
        else sqlite3_result_text(ctx, "", 0, SQLITE_STATIC);
    } else if (key) {
        result_blob(ctx, &out);
    } else {
        result_text(ctx, &out);
    }
    nus_sql_buf_free(&out);
}

static void fn_lower_bound(sqlite3_context *c, int n, sqlite3_value **v) {
    fn_bound_which(c, n, v, LOWER_TEXT);
}
static void fn_upper_bound(sqlite3_context *c, int n, sqlite3_value **v) {
    fn_bound_which(c, n, v, UPPER_TEXT);
}
static void fn_lower_key(sqlite3_context *c, int n, sqlite3_value **v) {
    fn_bound_which(c, n, v, LOWER_KEY);
}
static void fn_upper_key(sqlite3_context *c, int n, sqlite3_value **v) {
    fn_bound_which(c, n, v, UPPER_KEY);
}

static void case_which(sqlite3_context *ctx, int argc, sqlite3_value **argv, int upper,
                       const char *name) {
    if (any_null(ctx, argc, argv)) return;
    nus_sql_locale *l = locale_arg(ctx, argv[1], name);
    if (l == NULL) return;
    size_t n;
    const char *s = text_arg(argv[0], &n);
    nus_sql_buf out = {0};
    nus_sql_err err;
    if (nus_sql_case(&conn_of(ctx)->cache, l, s, n, upper, &out, &err) == 0)
        result_text(ctx, &out);
    else
        fail(ctx, name, &err);
    nus_sql_buf_free(&out);
}

static void fn_upper(sqlite3_context *c, int n, sqlite3_value **v) {
    case_which(c, n, v, 1, "nus_upper");
}
static void fn_lower(sqlite3_context *c, int n, sqlite3_value **v) {
    case_which(c, n, v, 0, "nus_lower");
}

/* nus_like(text, pattern, locale [, escape]) -> 0 or 1: LIKE without regard to case. */
static void fn_like(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
    if (any_null(ctx, argc, argv)) return;
    nus_sql_locale *l = locale_arg(ctx, argv[2], "nus_like");
    if (l == NULL) return;
    size_t n, pn;
    const char *s = text_arg(argv[0], &n), *p = text_arg(argv[1], &pn);
    int r;
    nus_sql_err err;
    if (nus_sql_like(&conn_of(ctx)->cache, l, p, pn, s, n, argc > 3 ? text_arg(argv[3], NULL) : NULL,
                     &r, &err) == 0)
        sqlite3_result_int(ctx, r);
    else
        fail(ctx, "nus_like", &err);
}

/* like(pattern, text [, escape]): `text LIKE pattern [ESCAPE escape]` by the connection's LIKE
   locale. The checks and messages are SQLite's own LIKE's. */
static void fn_sql_like(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
    connection *conn = conn_of(ctx);
    size_t pn, n;
    const char *p = text_arg(argv[0], &pn);
    if ((long long)pn > (long long)sqlite3_limit(conn->db, SQLITE_LIMIT_LIKE_PATTERN_LENGTH, -1)) {
        sqlite3_result_error(ctx, "LIKE or GLOB pattern too complex", -1);
        return;
    }
    const char *escape = NULL;
    if (argc > 2) {
        if (any_null(ctx, 1, argv + 2)) return;
        escape = text_arg(argv[2], NULL);
        int characters = 0;
        for (const unsigned char *e = (const unsigned char *)escape; *e != 0; ++e)
            characters += (*e & 0xc0) != 0x80;
        if (characters != 1) {
            sqlite3_result_error(ctx, "ESCAPE expression must be a single character", -1);
            return;
        }
    }
    if (any_null(ctx, 2, argv)) return;
    const char *s = text_arg(argv[1], &n);
    if (!conn->like_chosen) {
        nus_sql_err ignored;
        conn->like_locale = nus_sql_locale_get(&conn->cache, "en_us.utf8", &ignored);
        conn->like_chosen = 1;
    }
    int r;
    nus_sql_err err;
    if (nus_sql_like(&conn->cache, conn->like_locale, p, pn, s, n, escape, &r, &err) == 0)
        sqlite3_result_int(ctx, r);
    else
        fail(ctx, "LIKE", &err);
}

/* nus_like_locale(locale): the connection's LIKE locale from now on; '' folds the ASCII letters
   only. An unknown locale is an error and changes nothing. */
static void fn_like_locale(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
    if (any_null(ctx, argc, argv)) return;
    connection *conn = conn_of(ctx);
    const char *name = text_arg(argv[0], NULL);
    nus_sql_locale *l = NULL;
    if (*name != 0 && (l = locale_arg(ctx, argv[0], "nus_like_locale")) == NULL) return;
    conn->like_locale = l;
    conn->like_chosen = 1;
    sqlite3_result_null(ctx);
}

/* nus_width(text, locale) -> display columns */
static void fn_width(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
    if (any_null(ctx, argc, argv)) return;
    nus_sql_locale *l = locale_arg(ctx, argv[1], "nus_width");
    if (l == NULL) return;
    size_t n;
    const char *s = text_arg(argv[0], &n);
    long w;
    nus_sql_err err;
    if (nus_sql_width(&conn_of(ctx)->cache, l, s, n, &w, &err) == 0)
        sqlite3_result_int64(ctx, w);
    else
        fail(ctx, "nus_width", &err);
}

/* nus_fmt(locale, format, number) -> text */
static void fn_fmt(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
    if (any_null(ctx, argc, argv)) return;
    nus_sql_locale *l = locale_arg(ctx, argv[0], "nus_fmt");
    if (l == NULL) return;
    const int type = sqlite3_value_numeric_type(argv[2]);
    nus_sql_err err;
    if (type != SQLITE_INTEGER && type != SQLITE_FLOAT) {
        snprintf(err.text, sizeof err.text, "'%.60s' is not a number", text_arg(argv[2], NULL));
        fail(ctx, "nus_fmt", &err);
        return;
    }
    nus_sql_buf out = {0};
    if (nus_sql_fmt(&conn_of(ctx)->cache, l, text_arg(argv[1], NULL), sqlite3_value_double(argv[2]),
                    sqlite3_value_int64(argv[2]), type == SQLITE_INTEGER, &out, &err) == 0)
        result_text(ctx, &out);
    else
        fail(ctx, "nus_fmt", &err);
    nus_sql_buf_free(&out);
}

/* nus_money(locale, format, amount) -> text */
static void fn_money(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
    if (any_null(ctx, argc, argv)) return;
    nus_sql_locale *l = locale_arg(ctx, argv[0], "nus_money");
    if (l == NULL) return;
    const int type = sqlite3_value_numeric_type(argv[2]);
    nus_sql_err err;
    if (type != SQLITE_INTEGER && type != SQLITE_FLOAT) {
        snprintf(err.text, sizeof err.text, "'%.60s' is not an amount", text_arg(argv[2], NULL));
        fail(ctx, "nus_money", &err);
        return;
    }
    nus_sql_buf out = {0};
    if (nus_sql_money(&conn_of(ctx)->cache, l, text_arg(argv[1], NULL),
                      sqlite3_value_double(argv[2]), &out, &err) == 0)
        result_text(ctx, &out);
    else
        fail(ctx, "nus_money", &err);
    nus_sql_buf_free(&out);
}

/* nus_parse_number(locale, text [, grouping]) -> real */
static void fn_parse_number(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
    if (any_null(ctx, argc, argv)) return;
    nus_sql_locale *l = locale_arg(ctx, argv[0], "nus_parse_number");
    if (l == NULL) return;
    size_t n;
    const char *s = text_arg(argv[1], &n);
    const int grouping = argc > 2 && sqlite3_value_int(argv[2]) != 0;
    double value;
    nus_sql_err err;
    if (nus_sql_parse_number(&conn_of(ctx)->cache, l, s, n, grouping, &value, &err) == 0)
        sqlite3_result_double(ctx, value);
    else
        fail(ctx, "nus_parse_number", &err);
}

/* nus_conv(bytes, from, to) -> blob */
static void fn_conv(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
    if (any_null(ctx, argc, argv)) return;
    const void *in = sqlite3_value_blob(argv[0]);
    const size_t n = (size_t)sqlite3_value_bytes(argv[0]);
    nus_sql_buf out = {0};
    nus_sql_err err;
    if (nus_sql_conv_bytes(&conn_of(ctx)->cache, text_arg(argv[1], NULL), text_arg(argv[2], NULL),
                           in != NULL ? in : "", n, &out, &err) == 0)
        result_blob(ctx, &out);
    else
        fail(ctx, "nus_conv", &err);
    nus_sql_buf_free(&out);
}

/* nus_cal(date, calendar) -> text */
static void fn_cal(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
    if (any_null(ctx, argc, argv)) return;
    nus_sql_buf out = {0};
    nus_sql_err err;
    if (nus_sql_calendar(text_arg(argv[0], NULL), text_arg(argv[1], NULL), &out, &err) == 0)
        result_text(ctx, &out);
    else
        fail(ctx, "nus_cal", &err);
    nus_sql_buf_free(&out);
}

/* The time argument of nus_date: ISO text, or a number of seconds since 1970 (Unix time). */
static int time_arg(nus_sql_locale *l, sqlite3_value *v, nu_time_rec *t, nus_sql_err *err) {
    const int type = sqlite3_value_type(v);
    if (type == SQLITE_INTEGER)
        return nus_sql_time_from_epoch(l, sqlite3_value_int64(v), 0, t, err);
    if (type == SQLITE_FLOAT) {
        const double seconds = sqlite3_value_double(v);
        if (!(seconds > -7e10 && seconds < 3e11)) {
            snprintf(err->text, sizeof err->text, "%g seconds since 1970 is outside the years "
                     "1 to 9999", seconds);
            return -1;
        }
        double whole = (double)(long long)seconds;
        if (whole > seconds) whole -= 1; /* toward minus infinity */
        long micro = (long)((seconds - whole) * 1e6 + 0.5);
        if (micro > 999999) {
            micro -= 1000000;
            whole += 1;
        }
        return nus_sql_time_from_epoch(l, (long long)whole, micro, t, err);
    }
    size_t n;
    const char *s = text_arg(v, &n);
    return nus_sql_time_from_iso(l, s, n, t, err);
}

/* nus_date(locale, format, time) -> text; time is ISO text or Unix seconds */
static void fn_date(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
    if (any_null(ctx, argc, argv)) return;
    nus_sql_locale *l = locale_arg(ctx, argv[0], "nus_date");
    if (l == NULL) return;
    nu_time_rec t;
    nus_sql_buf out = {0};
    nus_sql_err err;
    if (time_arg(l, argv[2], &t, &err) == 0 &&
        nus_sql_date(&conn_of(ctx)->cache, l, text_arg(argv[1], NULL), &t, &out, &err) == 0)
        result_text(ctx, &out);
    else
        fail(ctx, "nus_date", &err);
    nus_sql_buf_free(&out);
}

/* nus_parse_date(locale, format, text) -> 'YYYY-MM-DD HH:MM:SS[.ffffff]' */
static void fn_parse_date(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
    if (any_null(ctx, argc, argv)) return;
    nus_sql_locale *l = locale_arg(ctx, argv[0], "nus_parse_date");
    if (l == NULL) return;
    size_t n;
    const char *s = text_arg(argv[2], &n);
    nu_time_rec t;
    nus_sql_buf out = {0};
    nus_sql_err err;
    if (nus_sql_parse_date(&conn_of(ctx)->cache, l, text_arg(argv[1], NULL), s, n, &t, &err) == 0 &&
        nus_sql_time_iso(&t, &out, &err) == 0)
        result_text(ctx, &out);
    else
        fail(ctx, "nus_parse_date", &err);
    nus_sql_buf_free(&out);
}

/* nus_collation_version(locale) -> text */
static void fn_collation_version(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
    if (any_null(ctx, argc, argv)) return;
    nus_sql_buf out = {0};
    nus_sql_err err;
    if (nus_sql_collation_version(text_arg(argv[0], NULL), &out, &err) == 0)
        result_text(ctx, &out);
    else
        fail(ctx, "nus_collation_version", &err);
    nus_sql_buf_free(&out);
}

/* nus_load_collation(locale, name): registers the locale's collation under name. */
static void fn_load_collation(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
    if (any_null(ctx, argc, argv)) return;
    nus_sql_err err;
    if (register_collation(conn_of(ctx), text_arg(argv[0], NULL), text_arg(argv[1], NULL),
                           &err) == SQLITE_OK)
        sqlite3_result_null(ctx);
    else
        fail(ctx, "nus_load_collation", &err);
}

/* ---- the entry point ------------------------------------------------------------------- */

static const struct {
    const char *name;
    int args;
    int deterministic;
    void (*fn)(sqlite3_context *, int, sqlite3_value **);
} functions[] = {
    {"nus_key", 2, 1, fn_key},
    {"nus_compare", 3, 1, fn_compare},
    {"nus_has_prefix", 3, 1, fn_has_prefix},
    {"nus_lower_bound", 2, 1, fn_lower_bound},
    {"nus_upper_bound", 2, 1, fn_upper_bound},
    {"nus_lower_key", 2, 1, fn_lower_key},
    {"nus_upper_key", 2, 1, fn_upper_key},
    {"nus_upper", 2, 1, fn_upper},
    {"nus_lower", 2, 1, fn_lower},
    /* upper(text, locale) and lower(text, locale), as SQLite's ICU extension has them; the
       built-in one-argument forms stay. */
    {"upper", 2, 1, fn_upper},
    {"lower", 2, 1, fn_lower},
    {"nus_like", 3, 1, fn_like},
    {"nus_like", 4, 1, fn_like},
    /* LIKE itself: a LIKE b is like(b, a), a LIKE b ESCAPE c is like(b, a, c). */
    {"like", 2, 1, fn_sql_like},
    {"like", 3, 1, fn_sql_like},
    {"nus_like_locale", 1, 0, fn_like_locale},
    {"nus_width", 2, 1, fn_width},
    {"nus_fmt", 3, 1, fn_fmt},
    {"nus_money", 3, 1, fn_money},
    {"nus_parse_number", 2, 1, fn_parse_number},
    {"nus_parse_number", 3, 1, fn_parse_number},
    {"nus_conv", 3, 1, fn_conv},
    {"nus_cal", 2, 1, fn_cal},
    {"nus_date", 3, 1, fn_date},
    {"nus_parse_date", 3, 1, fn_parse_date},
    {"nus_collation_version", 1, 0, fn_collation_version},
    {"nus_load_collation", 2, 0, fn_load_collation},
};

/* The entry point SQLite derives from the file name nus_sqlite.so; the one name exported. */
__attribute__((visibility("default"))) int sqlite3_nussqlite_init(sqlite3 *db, char **error, const sqlite3_api_routines *api) {
    SQLITE_EXTENSION_INIT2(api);
    connection *conn = sqlite3_malloc(sizeof *conn);
    if (conn == NULL) return SQLITE_NOMEM;
    memset(conn, 0, sizeof *conn);
    conn->db = db;
    conn->refs = 1; /* held by the loading until the registrations below are done */
    int rc = SQLITE_OK;
    for (size_t i = 0; i < sizeof functions / sizeof functions[0] && rc == SQLITE_OK; ++i) {
        ++conn->refs;
        const int flags = SQLITE_UTF8 | (functions[i].deterministic ? SQLITE_DETERMINISTIC : 0);
        rc = sqlite3_create_function_v2(db, functions[i].name, functions[i].args, flags, conn,
                                        functions[i].fn, NULL, NULL, connection_release);
    }
    if (rc == SQLITE_OK) rc = sqlite3_collation_needed(db, conn, collation_needed);
    if (rc != SQLITE_OK && error != NULL) *error = sqlite3_mprintf("nus: %s", sqlite3_errmsg(db));
    connection_release(conn);
    return rc;
}
