/* nus_pg.c: the PostgreSQL extension "nus" (CREATE EXTENSION nus), built on nuslib.
 *
 * The functions take the locale by name (de_de.utf8) as their last argument, or as their first
 * where a format follows; they are STRICT (NULL in, NULL out) and raise an error with the
 * library's reason on failure. Each backend (one per connection, and each parallel worker)
 * keeps one handle per locale, loaded on first use and freed when the backend exits.
 */
#include "postgres.h"

#include "fmgr.h"
#include "mb/pg_wchar.h"
#include "storage/ipc.h"
#include "utils/builtins.h"
#include "utils/datetime.h"
#include "utils/timestamp.h"

#include "nus_sql.h"

PG_MODULE_MAGIC;

static nus_sql_cache cache;
static nus_sql_buf result_buf; /* reused: nothing of ours is left behind by an error */
static bool exit_hook;

static void release_all(int code, Datum arg) {
    (void)code;
    (void)arg;
    nus_sql_cache_free(&cache);
    nus_sql_buf_free(&result_buf);
}

static void raise(const char *function, const nus_sql_err *err) pg_attribute_noreturn();
static void raise(const char *function, const nus_sql_err *err) {
    ereport(ERROR, (errcode(ERRCODE_INVALID_PARAMETER_VALUE),
                    errmsg("%s: %s", function, err->text)));
    pg_unreachable();
}

static nus_sql_locale *locale_arg(FunctionCallInfo fcinfo, int i, const char *function) {
    if (!exit_hook) {
        on_proc_exit(release_all, (Datum)0);
        exit_hook = true;
    }
    /* The text handed over is the database's: the functions read and write UTF-8. */
    const int encoding = GetDatabaseEncoding();
    if (encoding != PG_UTF8 && encoding != PG_SQL_ASCII)
        ereport(ERROR, (errcode(ERRCODE_FEATURE_NOT_SUPPORTED),
                        errmsg("%s: the database's encoding is %s; the nus functions read and "
                               "write UTF-8 (a database created with ENCODING 'UTF8')",
                               function, GetDatabaseEncodingName())));
    char *name = text_to_cstring(PG_GETARG_TEXT_PP(i));
    nus_sql_err err;
    nus_sql_locale *l = nus_sql_locale_get(&cache, name, &err);
    pfree(name);
    if (l == NULL) raise(function, &err);
    return l;
}

#define TEXT_ARG(i, s, n)                                                                         \
    text *s##_t = PG_GETARG_TEXT_PP(i);                                                           \
    const char *s = VARDATA_ANY(s##_t);                                                           \
    size_t n = VARSIZE_ANY_EXHDR(s##_t)

static bytea *to_bytea(const nus_sql_buf *b) {
    bytea *r = (bytea *)palloc(VARHDRSZ + b->length);
    SET_VARSIZE(r, VARHDRSZ + b->length);
    if (b->length != 0) memcpy(VARDATA(r), b->data, b->length);
    return r;
}

static text *to_text(const nus_sql_buf *b) {
    return cstring_to_text_with_len((const char *)b->data, (int)b->length);
}

PG_FUNCTION_INFO_V1(nus_sortkey);
Datum nus_sortkey(PG_FUNCTION_ARGS) {
    nus_sql_locale *l = locale_arg(fcinfo, 1, "nus_sortkey");
    TEXT_ARG(0, s, n);
    nus_sql_err err;
    if (nus_sql_sortkey(&cache, l, s, n, &result_buf, &err) != 0) raise("nus_sortkey", &err);
    PG_RETURN_BYTEA_P(to_bytea(&result_buf));
}

PG_FUNCTION_INFO_V1(nus_compare);
Datum nus_compare(PG_FUNCTION_ARGS) {
    nus_sql_locale *l = locale_arg(fcinfo, 2, "nus_compare");
    TEXT_ARG(0, a, an);
    TEXT_ARG(1, b, bn);
    int r;
    nus_sql_err err;
    if (nus_sql_compare(&cache, l, a, an, b, bn, &r, &err) != 0) raise("nus_compare", &err);
    PG_RETURN_INT32((r > 0) - (r < 0));
}

PG_FUNCTION_INFO_V1(nus_has_prefix);
Datum nus_has_prefix(PG_FUNCTION_ARGS) {
    nus_sql_locale *l = locale_arg(fcinfo, 2, "nus_has_prefix");
    TEXT_ARG(0, s, n);
    TEXT_ARG(1, p, pn);
    int r;
    nus_sql_err err;
    if (nus_sql_has_prefix(&cache, l, s, n, p, pn, &r, &err) != 0) raise("nus_has_prefix", &err);
    PG_RETURN_BOOL(r != 0);
}

/* The bounds. An open side: the lower ones give the empty text or key (below everything);
   the upper ones NULL (nothing lies above all). */
static Datum bound(FunctionCallInfo fcinfo, int upper, int key, const char *function) {
    nus_sql_locale *l = locale_arg(fcinfo, 1, function);
    TEXT_ARG(0, s, n);
    nus_sql_err err;
    const int r = nus_sql_bound(&cache, l, s, n, upper, key, &result_buf, &err);
    if (r < 0) raise(function, &err);
    if (r == 0) {
        if (upper) PG_RETURN_NULL();
        result_buf.length = 0;
    }
    if (key) PG_RETURN_BYTEA_P(to_bytea(&result_buf));
    PG_RETURN_TEXT_P(to_text(&result_buf));
}

PG_FUNCTION_INFO_V1(nus_lower_bound);
Datum nus_lower_bound(PG_FUNCTION_ARGS) { return bound(fcinfo, 0, 0, "nus_lower_bound"); }
PG_FUNCTION_INFO_V1(nus_upper_bound);
Datum nus_upper_bound(PG_FUNCTION_ARGS) { return bound(fcinfo, 1, 0, "nus_upper_bound"); }
PG_FUNCTION_INFO_V1(nus_lower_key);
Datum nus_lower_key(PG_FUNCTION_ARGS) { return bound(fcinfo, 0, 1, "nus_lower_key"); }
PG_FUNCTION_INFO_V1(nus_upper_key);
Datum nus_upper_key(PG_FUNCTION_ARGS) { return bound(fcinfo, 1, 1, "nus_upper_key"); }

static Datum case_of(FunctionCallInfo fcinfo, int upper, const char *function) {
    nus_sql_locale *l = locale_arg(fcinfo, 1, function);
    TEXT_ARG(0, s, n);
    nus_sql_err err;
    if (nus_sql_case(&cache, l, s, n, upper, &result_buf, &err) != 0) raise(function, &err);
    PG_RETURN_TEXT_P(to_text(&result_buf));
}

PG_FUNCTION_INFO_V1(nus_upper);
Datum nus_upper(PG_FUNCTION_ARGS) { return case_of(fcinfo, 1, "nus_upper"); }
PG_FUNCTION_INFO_V1(nus_lower);
Datum nus_lower(PG_FUNCTION_ARGS) { return case_of(fcinfo, 0, "nus_lower"); }

/* nus_like(text, pattern, locale [, escape]) */
PG_FUNCTION_INFO_V1(nus_like);
Datum nus_like(PG_FUNCTION_ARGS) {
    nus_sql_locale *l = locale_arg(fcinfo, 2, "nus_like");
    TEXT_ARG(0, s, n);
    TEXT_ARG(1, p, pn);
    char *escape = PG_NARGS() > 3 ? text_to_cstring(PG_GETARG_TEXT_PP(3)) : NULL;
    int r;
    nus_sql_err err;
    const int status = nus_sql_like(&cache, l, p, pn, s, n, escape, &r, &err);
    if (escape != NULL) pfree(escape);
    if (status != 0) raise("nus_like", &err);
    PG_RETURN_BOOL(r != 0);
}

PG_FUNCTION_INFO_V1(nus_width);
Datum nus_width(PG_FUNCTION_ARGS) {
    nus_sql_locale *l = locale_arg(fcinfo, 1, "nus_width");
    TEXT_ARG(0, s, n);
    long w;
    nus_sql_err err;
    if (nus_sql_width(&cache, l, s, n, &w, &err) != 0) raise("nus_width", &err);
    PG_RETURN_INT32((int32)w);
}

/* nus_fmt(locale, format, float8) and nus_fmt(locale, format, int8). */
static Datum fmt(FunctionCallInfo fcinfo, double number, long long integer, int is_integer) {
    nus_sql_locale *l = locale_arg(fcinfo, 0, "nus_fmt");
    char *format = text_to_cstring(PG_GETARG_TEXT_PP(1));
    nus_sql_err err;
    const int r = nus_sql_fmt(&cache, l, format, number, integer, is_integer, &result_buf, &err);
    pfree(format);
    if (r != 0) raise("nus_fmt", &err);
    PG_RETURN_TEXT_P(to_text(&result_buf));
}

PG_FUNCTION_INFO_V1(nus_fmt_float8);
Datum nus_fmt_float8(PG_FUNCTION_ARGS) { return fmt(fcinfo, PG_GETARG_FLOAT8(2), 0, 0); }
PG_FUNCTION_INFO_V1(nus_fmt_int8);
Datum nus_fmt_int8(PG_FUNCTION_ARGS) { return fmt(fcinfo, 0, PG_GETARG_INT64(2), 1); }

PG_FUNCTION_INFO_V1(nus_money);
Datum nus_money(PG_FUNCTION_ARGS) {
    nus_sql_locale *l = locale_arg(fcinfo, 0, "nus_money");
    char *format = text_to_cstring(PG_GETARG_TEXT_PP(1));
    nus_sql_err err;
    const int r = nus_sql_money(&cache, l, format, PG_GETARG_FLOAT8(2), &result_buf, &err);
    pfree(format);
    if (r != 0) raise("nus_money", &err);
    PG_RETURN_TEXT_P(to_text(&result_buf));
}

PG_FUNCTION_INFO_V1(nus_parse_number);
Datum nus_parse_number(PG_FUNCTION_ARGS) {
    nus_sql_locale *l = locale_arg(fcinfo, 0, "nus_parse_number");
    TEXT_ARG(1, s, n);
    const bool grouping = PG_GETARG_BOOL(2);
    double value;
    nus_sql_err err;
    if (nus_sql_parse_number(&cache, l, s, n, grouping, &value, &err) != 0)
        raise("nus_parse_number", &err);
    PG_RETURN_FLOAT8(value);
}

PG_FUNCTION_INFO_V1(nus_conv);
Datum nus_conv(PG_FUNCTION_ARGS) {
    bytea *in = PG_GETARG_BYTEA_PP(0);
    char *from = text_to_cstring(PG_GETARG_TEXT_PP(1));
    char *to = text_to_cstring(PG_GETARG_TEXT_PP(2));
    if (!exit_hook) {
        on_proc_exit(release_all, (Datum)0);
        exit_hook = true;
    }
    nus_sql_err err;
    const int r = nus_sql_conv_bytes(&cache, from, to, VARDATA_ANY(in), VARSIZE_ANY_EXHDR(in),
                                     &result_buf, &err);
    pfree(from);
    pfree(to);
    if (r != 0) raise("nus_conv", &err);
    PG_RETURN_BYTEA_P(to_bytea(&result_buf));
}

PG_FUNCTION_INFO_V1(nus_cal);
Datum nus_cal(PG_FUNCTION_ARGS) {
    char *date = text_to_cstring(PG_GETARG_TEXT_PP(0));
    char *calendar = text_to_cstring(PG_GETARG_TEXT_PP(1));
    nus_sql_err err;
    const int r = nus_sql_calendar(date, calendar, &result_buf, &err);
    pfree(date);
    pfree(calendar);
    if (r != 0) raise("nus_cal", &err);
    PG_RETURN_TEXT_P(to_text(&result_buf));
}

/* nus_date(locale, format, timestamp) -> text. A date argument is cast to its midnight. */
PG_FUNCTION_INFO_V1(nus_date);
Datum nus_date(PG_FUNCTION_ARGS) {
    nus_sql_locale *l = locale_arg(fcinfo, 0, "nus_date");
    const Timestamp value = PG_GETARG_TIMESTAMP(2);
    struct pg_tm tm;
    fsec_t fsec;
    nus_sql_err err;
    if (TIMESTAMP_NOT_FINITE(value) || timestamp2tm(value, NULL, &tm, &fsec, NULL, NULL) != 0)
        ereport(ERROR, (errcode(ERRCODE_DATETIME_VALUE_OUT_OF_RANGE),
                        errmsg("nus_date: timestamp out of range")));
    char *format = text_to_cstring(PG_GETARG_TEXT_PP(1));
    nu_time_rec t;
    const int r = nus_sql_time_set(l, tm.tm_year, tm.tm_mon, tm.tm_mday, tm.tm_hour, tm.tm_min,
                                   tm.tm_sec, fsec, &t, &err) != 0 ||
                  nus_sql_date(&cache, l, format, &t, &result_buf, &err) != 0;
    pfree(format);
    if (r != 0) raise("nus_date", &err);
    PG_RETURN_TEXT_P(to_text(&result_buf));
}

/* nus_parse_date(locale, format, text) -> timestamp */
PG_FUNCTION_INFO_V1(nus_parse_date);
Datum nus_parse_date(PG_FUNCTION_ARGS) {
    nus_sql_locale *l = locale_arg(fcinfo, 0, "nus_parse_date");
    char *format = text_to_cstring(PG_GETARG_TEXT_PP(1));
    TEXT_ARG(2, s, n);
    nu_time_rec t;
    nus_sql_err err;
    const int r = nus_sql_parse_date(&cache, l, format, s, n, &t, &err);
    pfree(format);
    if (r != 0) raise("nus_parse_date", &err);
    struct pg_tm tm;
    memset(&tm, 0, sizeof tm);
    tm.tm_year = t.year + 1900;
    tm.tm_mon = t.month + 1;
    tm.tm_mday = t.mday;
    tm.tm_hour = t.hour;
    tm.tm_min = t.minute;
    tm.tm_sec = t.second;
    Timestamp result;
    if (tm2timestamp(&tm, t.fraction, NULL, &result) != 0)
        ereport(ERROR, (errcode(ERRCODE_DATETIME_VALUE_OUT_OF_RANGE),
                        errmsg("nus_parse_date: timestamp out of range")));
    PG_RETURN_TIMESTAMP(result);
}

PG_FUNCTION_INFO_V1(nus_collation_version);
Datum nus_collation_version(PG_FUNCTION_ARGS) {
    char *locale = text_to_cstring(PG_GETARG_TEXT_PP(0));
    nus_sql_err err;
    const int r = nus_sql_collation_version(locale, &result_buf, &err);
    pfree(locale);
    if (r != 0) raise("nus_collation_version", &err);
    PG_RETURN_TEXT_P(to_text(&result_buf));
}
