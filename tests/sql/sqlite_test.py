#!/usr/bin/env python3
"""The SQLite extension against the real programs: Python's sqlite3 module and the sqlite3
shell, on the build's data tree (TESSARONDIR).

    sqlite_test.py EXTENSION

Environment: TESSARONDIR, NUS_TOOL (the nus tool, the order and values the SQL functions must
agree with), NUS_SOURCE_DIR (glibc's compiled locales go to its build/glibc-locales).
Exit status 0 when every check passes; the failures are listed.
"""
import atexit
import hashlib
import locale
import os
import re
import shutil
import sqlite3
import subprocess
import sys
import tempfile

extension = os.path.abspath(sys.argv[1])
tool = os.environ["NUS_TOOL"]
data = os.environ["TESSARONDIR"]
words_file = "/usr/share/dict/ngerman"
failures = []


def check(condition, what):
    if not condition:
        failures.append(what)
        print("FAIL:", what)


def connect():
    conn = sqlite3.connect(":memory:")
    conn.enable_load_extension(True)
    conn.load_extension(extension)
    return conn


def error_of(conn, sql, args=()):
    try:
        conn.execute(sql, args).fetchall()
    except sqlite3.Error as e:
        return str(e)
    return None


def tool_lines(*args, stdin=None, codec="utf-8"):
    """The tool's output lines; text arguments and the output in `codec` (the locale's)."""
    args = [a.encode(codec) if isinstance(a, str) else a for a in args]
    return subprocess.run([tool, *args], input=stdin, capture_output=True, check=True,
                          env=dict(os.environ, TESSARONDIR=data)).stdout.decode(codec).splitlines()


def glibc_key(source):
    """strxfrm of glibc's locale compiled from the same Debian source: the one `make bench`
    compiles, else one compiled here into a folder of this test's own (other tests may be
    compiling the shared one at the same time)."""
    root = os.path.join(os.environ.get("NUS_SOURCE_DIR", "."), "build", "glibc-locales")
    name = source + ".UTF-8"
    if not os.path.exists(os.path.join(root, name, "LC_COLLATE")):
        root = tempfile.mkdtemp(prefix="glibc-", dir=os.getcwd())
        atexit.register(shutil.rmtree, root, True)
        subprocess.run(["localedef", "-i", source, "-f", "UTF-8", os.path.join(root, name)],
                       capture_output=True)
    os.environ["LOCPATH"] = root
    locale.setlocale(locale.LC_COLLATE, name)
    return locale.strxfrm


def like_regex(pattern, escape="\\"):
    """LIKE as a regular expression on lower-cased text."""
    out, i = [], 0
    while i < len(pattern):
        c = pattern[i]
        if c == escape and i + 1 < len(pattern):
            out.append(re.escape(pattern[i + 1].lower()))
            i += 2
            continue
        out.append(".*" if c == "%" else "." if c == "_" else re.escape(c.lower()))
        i += 1
    return re.compile("".join(out), re.S)


def differs_in_punctuation_only(a, b):
    # glibc's fourth level orders hyphens, apostrophes, blanks and full stops by position,
    # which the library's last level does not (see tests/tools/collation_oracle_test.cpp).
    return any(c in s for s in (a, b) for c in "-'. ")


# ---- the word list: the collation, the sort keys and the prefix search -----------------------
conn = connect()
if not os.path.exists(words_file):
    print("skipped the word list:", words_file, "is not installed (wngerman)")
else:
    with open(words_file, encoding="utf-8") as f:
        words = [w for w in f.read().split("\n") if w]
    conn.execute('CREATE TABLE words(w TEXT COLLATE "de_de.utf8")')
    conn.executemany("INSERT INTO words VALUES (?)", ((w,) for w in words))
    conn.execute("CREATE INDEX words_w ON words(w)")
    by_collation = [r[0] for r in conn.execute("SELECT w FROM words ORDER BY w")]
    by_key = [r[0] for r in conn.execute(
        "SELECT w FROM words ORDER BY nus_key(w, 'de_de.utf8'), w")]
    by_tool = tool_lines("sort", "-l", "de_de.utf8", words_file)
    check(len(by_collation) == len(words), "every word comes back")
    check(by_collation == by_tool, "ORDER BY COLLATE \"de_de.utf8\" is the order of nus sort")
    check(by_key == by_tool, "ORDER BY nus_key is the order of nus sort")

    key = glibc_key("de_DE")
    keys = [key(w) for w in by_collation]
    unexplained = [(a, b) for a, b, ka, kb in zip(by_collation, by_collation[1:], keys, keys[1:])
                   if ka > kb and not differs_in_punctuation_only(a, b)]
    check(not unexplained, "glibc's de_DE.UTF-8 agrees on every adjacent pair: %r" % unexplained[:5])

    # The prefix search: the index range between the bounds, filtered by the prefix rule,
    # returns what a full scan with the rule returns.
    ranged = ("SELECT w FROM words WHERE w >= nus_lower_bound(:p, 'de_de.utf8') "
              "AND w < nus_upper_bound(:p, 'de_de.utf8') AND nus_has_prefix(w, :p, 'de_de.utf8')")
    scanned = "SELECT w FROM words NOT INDEXED WHERE nus_has_prefix(w, :p, 'de_de.utf8')"
    # "E-" and "Straß ": a hyphen and a space weigh nothing at the first level.
    for prefix in ["Straß", "ab", "Äp", "Sch", "ü", "E-", "Straß "]:
        plan = " ".join(r[-1] for r in conn.execute("EXPLAIN QUERY PLAN " + ranged, {"p": prefix}))
        check("SEARCH" in plan and "INDEX words_w (w>? AND w<?)" in plan,
              "the prefix search on %r reads the index range: %s" % (prefix, plan))
        got = sorted(r[0] for r in conn.execute(ranged, {"p": prefix}))
        full = sorted(r[0] for r in conn.execute(scanned, {"p": prefix}))
        check(got == full and full,
              "prefix %r: %d rows by the range, %d by a full scan" % (prefix, len(got), len(full)))
    # Sort keys and bounds as blobs order the same way.
    for prefix in ["Straß"]:
        n = conn.execute("SELECT count(*) FROM words WHERE nus_key(w, 'de_de.utf8') "
                         "BETWEEN nus_lower_key(:p, 'de_de.utf8') AND nus_upper_key(:p, 'de_de.utf8')"
                         " AND nus_has_prefix(w, :p, 'de_de.utf8')", {"p": prefix}).fetchone()[0]
        full = conn.execute(scanned.replace("SELECT w", "SELECT count(*)"), {"p": prefix}).fetchone()[0]
        check(n == full, "the key bounds of %r hold every match (%d of %d)" % (prefix, n, full))
    # nus_like against a regular expression on Python's lower case (which agrees with de_DE's
    # for these words), on every tenth word.
    conn.execute("CREATE TABLE sample AS SELECT w FROM words WHERE rowid % 10 = 0")
    sample = [r[0] for r in conn.execute("SELECT w FROM sample")]
    for pattern in ["%straß%", "AB%", "%ung", "_ber%", "%Ä%e_", "%s_s%", "%e\\r"]:
        regex = like_regex(pattern)
        expected = sorted(w for w in sample if regex.fullmatch(w.lower()))
        got = sorted(r[0] for r in conn.execute(
            "SELECT w FROM sample WHERE nus_like(w, ?, 'de_de.utf8', '\\')", (pattern,)))
        check(got == expected and expected, "nus_like on %r: %d words, expected %d"
              % (pattern, len(got), len(expected)))
    # LIKE itself is nus_like by the connection's LIKE locale: the same words, a few hundred
    # of them (the pattern and the text in their places, the escape).
    conn.execute("SELECT nus_like_locale('de_de.utf8')")
    few = "SELECT w FROM sample WHERE rowid % 100 = 0 AND "
    for pattern in ["%ung", "_E%", "%ä%", "%s_s%", "s%\\s", "%e\\r"]:
        got = [r[0] for r in conn.execute(few + "w LIKE ? ESCAPE '\\'", (pattern,))]
        expected = [r[0] for r in conn.execute(few + "nus_like(w, ?, 'de_de.utf8', '\\')", (pattern,))]
        check(got == expected and expected, "LIKE %r: %d words, nus_like %d" % (pattern, len(got), len(expected)))
    print("word list: %d words; the EXPLAIN QUERY PLAN of the prefix search:" % len(words))
    for row in conn.execute("EXPLAIN QUERY PLAN " + ranged, {"p": "Straß"}):
        print("   ", row[-1])

# ---- the functions: each against the tool or a known value -----------------------------------
one = lambda sql, *args: conn.execute(sql, args).fetchone()[0]

for loc, fmt, number in [("de_de.utf8", "%'.2f", 1234567.891), ("de_de.utf8", "%'d", -1234567),
                         ("en_us.utf8", "%'.3f", -0.5), ("fr_fr.utf8", "%'10.1f", 98765.43),
                         ("de_de.8859-1", "%'.2e", 12345.678), ("ja_jp.utf8", "%'x", 65535)]:
    check(one("SELECT nus_fmt(?, ?, ?)", loc, fmt, number) == tool_lines("fmt", "-l", loc, fmt, str(number))[0],
          "nus_fmt(%s, %s, %s) as nus fmt prints it" % (loc, fmt, number))
for loc, fmt, amount in [("de_de.utf8", "%n", -1234.567), ("en_us.utf8", "%i", 1234.5),
                         ("sv_se.utf8", "%n", 1e6), ("de_de.8859-1", "%(#8.2n", -3.5)]:
    check(one("SELECT nus_money(?, ?, ?)", loc, fmt, amount) ==
          tool_lines("money", "-l", loc, fmt, str(amount))[0],
          "nus_money(%s, %s, %s) as nus money prints it" % (loc, fmt, amount))
for date in ["2026-11-24", "1900-03-01", "2024-02-29", "0622-07-18"]:
    expected = {line.split()[0]: line.split()[1] for line in tool_lines("cal", "--to", "hebrew,islamic", date)}
    for calendar in ["hebrew", "islamic"]:
        if calendar in expected:
            check(one("SELECT nus_cal(?, ?)", date, calendar) == expected[calendar],
                  "nus_cal(%s, %s) is %s" % (date, calendar, expected[calendar]))
check(one("SELECT nus_cal('2026-11-24', 'gregorian')") == "2026-11-24", "nus_cal to gregorian")

# Dates as nus date writes them (a locale of another code set through the conversions), read
# back by nus_parse_date to the same value; Unix seconds as nus date's @SECONDS.
times = ["2024-02-29 13:05:07.250000", "1999-12-31 23:59:59", "2019-05-01 00:00:00"]
for loc, fmt in [("de_de.utf8", "%A, %d. %B %Y %H:%M:%S,%f"), ("de_de.8859-1", "%a %d. %b %Y %T.%f"),
                 ("ja_jp.utf8", "%EC%Ey年%m月%d日 %H時%M分%S秒.%f"), ("en_us.utf8", "%B %e, %Y %r .%f")]:
    expected = tool_lines("date", "-l", loc, "+" + fmt, *times, codec="latin-1" if "8859" in loc else "utf-8")
    for value, line in zip(times, expected):
        written = one("SELECT nus_date(?, ?, ?)", loc, fmt, value)
        check(written == line, "nus_date(%s, %s, %s) is %r as nus date writes it, not %r" % (loc, fmt, value, line, written))
        back = one("SELECT nus_parse_date(?, ?, ?)", loc, fmt, written)
        check(back == value.replace(".000000", ""), "nus_parse_date(%s, %s, %r) reads %s back, not %s" % (loc, fmt, written, value, back))
for seconds in [0, 951782400, -86401, 253402300799]:
    check(one("SELECT nus_date('de_de.utf8', '%c', ?)", seconds) ==
          tool_lines("date", "-l", "de_de.utf8", "+%c", "@%d" % seconds)[0], "nus_date of %d seconds since 1970" % seconds)
check(one("SELECT nus_date('en_us.utf8', '%F %T.%f', -1.5)") == "1969-12-31 23:59:58.500000", "nus_date of -1.5 seconds")

expected_values = [
    ("SELECT nus_upper('straße größer', 'de_de.utf8')", "STRAßE GRÖßER"),
    ("SELECT upper('ıi', 'tr_tr.8859-9')", "Iİ"),  # through the conversion objects
    ("SELECT nus_lower('ÀÉÎ', 'fr_fr.utf8')", "àéî"),
    ("SELECT nus_upper('привет', 'ru_ru.8859-5')", "ПРИВЕТ"),
    ("SELECT nus_width('日本語ab', 'ja_jp.utf8')", 8),
    ("SELECT nus_width('', 'de_de.utf8')", 0),
    ("SELECT nus_parse_number('de_de.utf8', '1.234.567,5', 1)", 1234567.5),
    ("SELECT nus_parse_number('de_de.utf8', ' -12,25 ')", -12.25),
    ("SELECT nus_parse_number('en_us.utf8', '1e3')", 1000.0),
    ("SELECT hex(nus_conv(x'c4d6dc', '8859-1', 'utf8'))", "C384C396C39C"),
    ("SELECT hex(nus_conv('Äß', 'utf8', 'de_de.8859-1'))", "C4DF"),
    ("SELECT hex(nus_conv(x'82a0', 'sjis', 'utf8'))", "E38182"),
    ("SELECT nus_compare('Äpfel', 'Apfel', 'de_de.utf8')", 1),
    ("SELECT nus_compare('apfel', 'Zebra', 'de_de.utf8')", -1),
    ("SELECT nus_compare('Åsa', 'Zorro', 'sv_se.utf8')", 1),  # Å after Z in Swedish
    ("SELECT nus_has_prefix('Straßenbahn', 'STRASS', 'de_de.utf8')", 1),
    ("SELECT nus_has_prefix('Strand', 'Straß', 'de_de.utf8')", 0),
    ("SELECT nus_lower_bound('ab', 'de_de.utf8') < 'ab' COLLATE \"de_de.utf8\"", 1),
    # Turkish dotted and dotless i, through the conversion objects.
    ("SELECT nus_like('İSTANBUL', 'istanbul', 'tr_tr.8859-9') + nus_like('ISTANBUL', 'ıstanbul', 'tr_tr.8859-9')", 2),
    ("SELECT nus_like('ISTANBUL', 'istanbul', 'tr_tr.8859-9')", 0),
    ("SELECT nus_like('Straße', '%ẞE', 'de_de.utf8')", 1),
]
for sql, value in expected_values:
    got = one(sql)
    check(got == value, "%s gives %r, not %r" % (sql, value, got))

# LIKE by the connection's LIKE locale: en_us.utf8 until nus_like_locale names another, ''
# for the ASCII letters only (SQLite's own LIKE); SQLite's NULLs, ESCAPE rule and length limit.
like = connect()
row = lambda sql, *args: like.execute(sql, args).fetchone()
check(row("SELECT 'ÄPFEL' LIKE 'äp%', 'ISTANBUL' LIKE 'is%', 'STRAẞE' LIKE 'straße', 'STRASSE' LIKE 'straße'")
      == (1, 1, 1, 0), "LIKE by en_us.utf8 before nus_like_locale")
like.execute("SELECT nus_like_locale('tr_tr.8859-9')")  # through the conversion objects
check(row("SELECT 'İSTANBUL' LIKE 'is%', 'ISTANBUL' LIKE 'is%', 'ıstanbul' LIKE 'IS%'") == (1, 0, 1),
      "LIKE by tr_tr.8859-9's dotted and dotless i")
like.execute("SELECT nus_like_locale('')")
check(error_of(like, "SELECT nus_like_locale('xx_yy.utf8')") is not None, "an unknown LIKE locale is an error")
check(row("SELECT 'ÄPFEL' LIKE 'äp%', 'ISTANBUL' LIKE 'is%', 'ÄPFEL' LIKE 'Äp%', "
          "CAST(x'ff41c3' AS TEXT) LIKE CAST(x'ff61c3' AS TEXT), CAST(x'ff' AS TEXT) LIKE '_'") == (0, 1, 1, 1, 1),
      "LIKE folds only the ASCII letters after nus_like_locale('') and a failed nus_like_locale")
check(row("SELECT 'a%b' LIKE 'A!%%' ESCAPE '!', 'ab' LIKE 'a!%%' ESCAPE '!', 'é_' NOT LIKE 'É!_' ESCAPE '!', "
          "NULL LIKE 'a', 'a' LIKE NULL, 'a' LIKE 'a' ESCAPE NULL, 'a!' LIKE 'a!' ESCAPE '!', "
          "'ab' LIKE 'a%!' ESCAPE '!', 'axb' LIKE 'ax%' ESCAPE 'X', 'A%' LIKE 'aX%' ESCAPE 'X'") ==
      (1, 0, 1, None, None, None, 0, 0, 1, 1),
      "LIKE with an escape and with NULLs")
like.setlimit(sqlite3.SQLITE_LIMIT_LIKE_PATTERN_LENGTH, 8)
check(row("SELECT 'abcdefgh' LIKE 'a%c%e%gh'") == (1,), "a pattern at the length limit")
for sql, fragment in [("SELECT 'abcdefghi' LIKE 'a%b%c%d%i'", "LIKE or GLOB pattern too complex"),
                      ("SELECT 'a' LIKE 'a' ESCAPE 'xy'", "ESCAPE expression must be a single character"),
                      ("SELECT 'a' LIKE 'a' ESCAPE ''", "ESCAPE expression must be a single character")]:
    message = error_of(like, sql)
    check(message is not None and fragment in message, "%s fails with %r: %r" % (sql, fragment, message))
like.close()

# Sort keys are nus key's, and the bounds are nus bound's.
for loc, text in [("de_de.utf8", "Äpfel"), ("ja_jp.utf8", "日本"), ("sv_se.8859-1", "Åsa")]:
    local = text.encode("latin-1" if "8859" in loc else "utf-8")  # the tool reads the locale's code set
    check(one("SELECT lower(hex(nus_key(?, ?)))", text, loc) == tool_lines("key", "-l", loc, local)[0],
          "nus_key(%s, %s) is the key nus key prints" % (text, loc))
bounds = dict((line.split("\t")[0], line.split("\t")[1:]) for line in tool_lines("bound", "-l", "de_de.utf8", "Straß"))
check(one("SELECT nus_lower_bound('Straß', 'de_de.utf8')") == bounds["lower"][0], "the lower bound is nus bound's")
check(one("SELECT nus_upper_bound('Straß', 'de_de.utf8')") == bounds["upper"][0], "the upper bound is nus bound's")
check(one("SELECT lower(hex(nus_upper_key('Straß', 'de_de.utf8')))") == bounds["upper"][1], "the upper key is nus bound's")

# A locale of another code set collates through the conversion objects as its UTF-8 form does.
swedish = ["Åsa", "Ärla", "Öland", "Zorro", "ängel", "apa", "Bertil", "örn", "Aaron"]
conn.execute("CREATE TABLE sv(w TEXT)")
conn.executemany("INSERT INTO sv VALUES (?)", ((w,) for w in swedish))
latin1 = [r[0] for r in conn.execute('SELECT w FROM sv ORDER BY w COLLATE "sv_se.8859-1"')]
utf8 = [r[0] for r in conn.execute('SELECT w FROM sv ORDER BY w COLLATE "sv_se.utf8"')]
check(latin1 == utf8, "sv_se.8859-1 and sv_se.utf8 sort alike: %r / %r" % (latin1, utf8))

# The collation under another name, and the collation version.
conn.execute("SELECT nus_load_collation('de_de.utf8', 'german')")
german = [r[0] for r in conn.execute("SELECT w FROM sv ORDER BY w COLLATE german")]
check(german == [r[0] for r in conn.execute('SELECT w FROM sv ORDER BY w COLLATE "de_de.utf8"')],
      "nus_load_collation registers the locale's order under a name of one's choice")
with open(os.path.join(data, "nus/lc11/de_de/e01c.lco"), "rb") as f:
    body = f.read()
start = body.index(b"\n### LC_COLLATE\n") + 1
end = body.index(b"\n### LC_", start + 5) + 1
version = one("SELECT nus_collation_version('de_de.utf8')")
check(version.endswith(":" + hashlib.sha256(body[start:end]).hexdigest()),
      "nus_collation_version is the SHA-256 of the COLLATE section: %s" % version)
check(version != one("SELECT nus_collation_version('sv_se.utf8')"), "another locale, another version")

# NULL in, NULL out: every function, a NULL in each place.
calls = [("nus_key", 2), ("nus_compare", 3), ("nus_has_prefix", 3), ("nus_like", 3), ("nus_like", 4), ("nus_lower_bound", 2),
         ("nus_upper_bound", 2), ("nus_lower_key", 2), ("nus_upper_key", 2), ("nus_upper", 2),
         ("nus_lower", 2), ("nus_width", 2), ("nus_fmt", 3), ("nus_money", 3),
         ("nus_parse_number", 2), ("nus_parse_number", 3), ("nus_conv", 3), ("nus_cal", 2),
         ("nus_date", 3), ("nus_parse_date", 3),
         ("nus_collation_version", 1), ("nus_load_collation", 2), ("nus_like_locale", 1)]
good = {"nus_like": ["abc", "a%", "de_de.utf8", "!"], "nus_fmt": ["de_de.utf8", "%d", 1], "nus_money": ["de_de.utf8", "%n", 1],
        "nus_parse_number": ["de_de.utf8", "1", 0], "nus_conv": ["a", "utf8", "8859-1"],
        "nus_cal": ["2026-01-01", "hebrew"], "nus_collation_version": ["de_de.utf8"],
        "nus_date": ["de_de.utf8", "%x", "2026-01-01"], "nus_parse_date": ["de_de.utf8", "%Y", "2026"],
        "nus_load_collation": ["de_de.utf8", "g2"]}
for name, n in calls:
    args = good.get(name, ["abc", "abc", "de_de.utf8"][-n:] if n == 3 else ["abc", "de_de.utf8"])[:n]
    for i in range(n):
        nulled = list(args)
        nulled[i] = None
        got = conn.execute("SELECT %s(%s)" % (name, ", ".join("?" * n)), nulled).fetchone()[0]
        check(got is None, "%s with NULL as argument %d gives NULL, not %r" % (name, i + 1, got))

# Errors: SQL errors with the library's reason, and the connection goes on.
errors = [
    ("SELECT nus_key('x', 'xx_yy.utf8')", "cannot load locale 'xx_yy.utf8': NU_ENOFILE"),
    ("SELECT nus_upper(CAST(x'41ff42' AS TEXT), 'de_de.utf8')", "NU_EILSEQ"),
    ("SELECT nus_key(CAST(x'c3' AS TEXT), 'de_de.utf8')", "nus_key: sort key:"),
    ("SELECT nus_upper('привет', 'de_de.8859-1')", "lacks"),
    ("SELECT nus_fmt('de_de.utf8', '%d', 1e10)", "out of range"),
    ("SELECT nus_like('a', 'a', 'de_de.utf8', 'xy')", "one character"),
    ("SELECT nus_fmt('de_de.utf8', '%d', 1.5)", "not a whole number"),
    ("SELECT nus_fmt('de_de.utf8', '%d %d', 1)", "exactly one conversion"),
    ("SELECT nus_fmt('de_de.utf8', '%s', 1)", "unknown conversion"),
    ("SELECT nus_fmt('de_de.utf8', '%*d', 1)", "'*' widths"),
    ("SELECT nus_fmt('de_de.utf8', '%d', 'abc')", "not a number"),
    ("SELECT nus_money('de_de.utf8', '%d', 1)", "unknown conversion"),
    ("SELECT nus_parse_number('de_de.utf8', '12abc')", "not a number"),
    ("SELECT nus_parse_number('de_de.utf8', '1234.567', 1)", "thousands separators"),
    ("SELECT nus_conv(x'ff', 'utf8', '8859-1')", "NU_EILSEQ"),
    ("SELECT nus_conv('a', 'utf8', 'nosuchset')", "no conversion from 'utf8' to 'nosuchset'"),
    ("SELECT nus_cal('2026-02-30', 'hebrew')", "no Gregorian date"),
    ("SELECT nus_cal('2026-1-1x', 'hebrew')", "YYYY-MM-DD"),
    ("SELECT nus_cal('0100-01-01', 'islamic')", "outside the islamic calendar's range"),
    ("SELECT nus_cal('2026-01-01', 'julian')", "unknown calendar"),
    ("SELECT nus_collation_version('xx_yy.utf8')", "NU_ENOFILE"),
    ("SELECT nus_date('de_de.utf8', '%Q', '2026-01-01')", "nus_date: format: NU_EFORMAT"),
    ("SELECT nus_date('de_de.utf8', '%F', '2026-02-29')", "NU_EMDAY"),
    ("SELECT nus_date('de_de.utf8', '%F', '2026-1-1')", "YYYY-MM-DD"),
    ("SELECT nus_date('de_de.utf8', '%F', 1e12)", "outside the years 1 to 9999"),
    ("SELECT nus_parse_date('de_de.utf8', '%d. %B %Y', '1. Mrz 2026')", "NU_EPMONNAME"),
    ("SELECT nus_parse_date('de_de.utf8', '%Y', '2026 x')", "text after the date"),
    ("SELECT 1 ORDER BY 'a' COLLATE \"no_such_locale\"", "no such collation sequence"),
]
for sql, fragment in errors:
    message = error_of(conn, sql)
    check(message is not None and fragment in message, "%s fails with %r: %r" % (sql, fragment, message))
check(one("SELECT nus_upper('ok', 'de_de.utf8')") == "OK", "the connection works after the errors")

# Invalid text in a collated column keeps a consistent order: after every valid text.
conn.execute('CREATE TABLE mixed(w TEXT COLLATE "de_de.utf8")')
conn.executemany("INSERT INTO mixed VALUES (CAST(? AS TEXT))",
                 [(b"b",), (b"\xff\xfe",), (b"a",), (b"\xc3",), (b"\xc3\x84",)])
order = [r[0] for r in conn.execute("SELECT CAST(w AS BLOB) FROM mixed ORDER BY w")]
check(order == [b"a", b"\xc3\x84", b"b", b"\xc3", b"\xff\xfe"], "invalid text sorts last: %r" % order)
conn.close()

# Many connections, each with its own handles, closed again.
for i in range(50):
    c = connect()
    c.execute('SELECT nus_upper(\'x\', \'de_de.utf8\') ORDER BY 1 COLLATE "sv_se.utf8"').fetchall()
    c.close()

# The sqlite3 shell loads it too.
shell = subprocess.run(["sqlite3", ":memory:", ".load " + os.path.splitext(extension)[0],
                        "SELECT nus_upper('straße', 'de_de.utf8'), nus_fmt('de_de.utf8', '%''.2f', 1234.5);"],
                       capture_output=True, env=dict(os.environ, TESSARONDIR=data))
check(shell.stdout.decode().strip() == "STRAßE|1.234,50",
      "the sqlite3 shell: %r %r" % (shell.stdout, shell.stderr))

print("%d failures" % len(failures))
sys.exit(1 if failures else 0)
