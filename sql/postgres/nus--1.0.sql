-- The functions of the nus extension. Locales are named as nuslib names them (de_de.utf8);
-- every function is STRICT (NULL in, NULL out). The collation functions are IMMUTABLE so
-- that expression indexes can use them: the order changes only when the locale's compiled
-- data changes, which nus_collation_version(locale) tells (record it beside the index).
\echo Use "CREATE EXTENSION nus" to load this file. \quit

CREATE FUNCTION nus_sortkey(text, locale text) RETURNS bytea
    AS 'MODULE_PATHNAME', 'nus_sortkey' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION nus_compare(text, text, locale text) RETURNS integer
    AS 'MODULE_PATHNAME', 'nus_compare' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
-- True when the text begins with the prefix at the first level (ignoring accents and case):
-- the rule that the bounds below enclose.
CREATE FUNCTION nus_has_prefix(text, prefix text, locale text) RETURNS boolean
    AS 'MODULE_PATHNAME', 'nus_has_prefix' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
-- The collation bounds of a prefix, as text and as sort keys: every text that begins with the
-- prefix sorts at or above the lower and below the upper one. A side with no bound gives ''
-- (lower) or NULL (upper).
CREATE FUNCTION nus_lower_bound(prefix text, locale text) RETURNS text
    AS 'MODULE_PATHNAME', 'nus_lower_bound' LANGUAGE C IMMUTABLE PARALLEL SAFE STRICT;
CREATE FUNCTION nus_upper_bound(prefix text, locale text) RETURNS text
    AS 'MODULE_PATHNAME', 'nus_upper_bound' LANGUAGE C IMMUTABLE PARALLEL SAFE STRICT;
CREATE FUNCTION nus_lower_key(prefix text, locale text) RETURNS bytea
    AS 'MODULE_PATHNAME', 'nus_lower_key' LANGUAGE C IMMUTABLE PARALLEL SAFE STRICT;
CREATE FUNCTION nus_upper_key(prefix text, locale text) RETURNS bytea
    AS 'MODULE_PATHNAME', 'nus_upper_key' LANGUAGE C IMMUTABLE PARALLEL SAFE STRICT;

CREATE FUNCTION nus_upper(text, locale text) RETURNS text
    AS 'MODULE_PATHNAME', 'nus_upper' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION nus_lower(text, locale text) RETURNS text
    AS 'MODULE_PATHNAME', 'nus_lower' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
-- LIKE without regard to case, by the locale's lower case: % any characters, _ one.
CREATE FUNCTION nus_like(text, pattern text, locale text) RETURNS boolean
    AS 'MODULE_PATHNAME', 'nus_like' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION nus_like(text, pattern text, locale text, escape text) RETURNS boolean
    AS 'MODULE_PATHNAME', 'nus_like' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION nus_width(text, locale text) RETURNS integer
    AS 'MODULE_PATHNAME', 'nus_width' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;

-- Numbers and money: a format with exactly one conversion (nus_fmt: d i u o x X b q e E f g
-- G with the flags ' - + space # 0; nus_money: %n or %i).
CREATE FUNCTION nus_fmt(locale text, format text, number double precision) RETURNS text
    AS 'MODULE_PATHNAME', 'nus_fmt_float8' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION nus_fmt(locale text, format text, number bigint) RETURNS text
    AS 'MODULE_PATHNAME', 'nus_fmt_int8' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION nus_money(locale text, format text, amount double precision) RETURNS text
    AS 'MODULE_PATHNAME', 'nus_money' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION nus_parse_number(locale text, text, separators boolean DEFAULT false)
    RETURNS double precision
    AS 'MODULE_PATHNAME', 'nus_parse_number' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;

-- Bytes from one code set (or locale) to another.
CREATE FUNCTION nus_conv(bytea, "from" text, "to" text) RETURNS bytea
    AS 'MODULE_PATHNAME', 'nus_conv' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;

-- A Gregorian date in another calendar: gregorian, hebrew or islamic, as YYYY-MM-DD.
CREATE FUNCTION nus_cal(date text, calendar text) RETURNS text
    AS 'MODULE_PATHNAME', 'nus_cal' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION nus_cal(date, calendar text) RETURNS text
    AS $$ SELECT nus_cal(to_char($1, 'YYYY-MM-DD'), $2) $$
    LANGUAGE SQL IMMUTABLE STRICT PARALLEL SAFE;

-- The library's version and a digest of the locale's compiled collation data: when it
-- changes, indexes on nus_sortkey for that locale must be rebuilt.
CREATE FUNCTION nus_collation_version(locale text) RETURNS text
    AS 'MODULE_PATHNAME', 'nus_collation_version' LANGUAGE C STABLE STRICT PARALLEL SAFE;

-- Dates and times written and read in a locale (its names, calendar, eras and digits) by
-- the formats of strftime and the library's own (%f, %Ec, %Oy, ...). A date argument is cast
-- to its midnight; a timestamp with time zone must be cast to a timestamp (its local time).
CREATE FUNCTION nus_date(locale text, format text, timestamp) RETURNS text
    AS 'MODULE_PATHNAME', 'nus_date' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION nus_parse_date(locale text, format text, text) RETURNS timestamp
    AS 'MODULE_PATHNAME', 'nus_parse_date' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
