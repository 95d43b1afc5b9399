#!/usr/bin/env python3
"""The PostgreSQL extension against a real PostgreSQL 15 server that the test starts (initdb
into a folder of the build tree, a Unix socket there) and always stops; psql and pgbench are
the clients.

    postgres_test.py EXT_BUILD EXT_SOURCE NUS_LIBDIR PG_BINDIR PG_PKGLIBDIR PG_SHAREDIR

Environment: TESSARONDIR, NUS_TOOL (the nus tool: the order and values to agree with).
"""
import hashlib
import os
import subprocess
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from pgserver import Server  # noqa: E402

tool = os.environ["NUS_TOOL"]
data = os.environ["TESSARONDIR"]
words_file = "/usr/share/dict/ngerman"
failures = []


def check(condition, what):
    if not condition:
        failures.append(what)
        print("FAIL:", what)


def tool_lines(*args, codec="utf-8"):
    """The tool's output lines; text arguments and the output in `codec` (the locale's)."""
    args = [a.encode(codec) for a in args]
    return subprocess.run([tool, *args], capture_output=True, check=True,
                          env=dict(os.environ, TESSARONDIR=data)).stdout.decode(codec).splitlines()


def quote(s):
    return "'" + s.replace("'", "''") + "'"


with Server(*sys.argv[1:7]) as pg:
    one = lambda sql: pg.psql("SELECT " + sql)[0][0]
    pg.psql("CREATE EXTENSION nus")
    check(one("extversion FROM pg_extension WHERE extname = 'nus'") == "1.0", "CREATE EXTENSION nus")

    # ---- the word list: order, the expression index and the prefix search ------------------
    if not os.path.exists(words_file):
        print("skipped the word list:", words_file, "is not installed (wngerman)")
    else:
        pg.psql("CREATE TABLE words(id serial PRIMARY KEY, w text NOT NULL);"
                "\\copy words(w) FROM '%s'\n" % words_file)
        ordered = [r[0] for r in pg.psql("SELECT w FROM words ORDER BY nus_sortkey(w, 'de_de.utf8'), w")]
        check(ordered == tool_lines("sort", "-l", "de_de.utf8", words_file),
              "ORDER BY nus_sortkey is the order of nus sort (%d words)" % len(ordered))
        by_compare = pg.psql("SELECT count(*) FROM (SELECT w, lead(w) OVER (ORDER BY nus_sortkey(w, 'de_de.utf8')) AS n"
                             " FROM words) t WHERE nus_compare(w, n, 'de_de.utf8') > 0")[0][0]
        check(by_compare == "0", "nus_compare agrees with nus_sortkey on every adjacent pair")

        pg.psql("CREATE INDEX words_key ON words (nus_sortkey(w, 'de_de.utf8')); ANALYZE words")
        search = ("SELECT w FROM words WHERE nus_sortkey(w, 'de_de.utf8') >= nus_lower_key(%(p)s, 'de_de.utf8')"
                  " AND nus_sortkey(w, 'de_de.utf8') < nus_upper_key(%(p)s, 'de_de.utf8')"
                  " AND nus_has_prefix(w, %(p)s, 'de_de.utf8') ORDER BY nus_sortkey(w, 'de_de.utf8')")
        scan = "SELECT w FROM words WHERE nus_has_prefix(w, %(p)s, 'de_de.utf8')"
        for prefix in ["Straß", "ab", "Äp", "ü", "O'"]:
            p = {"p": quote(prefix)}
            plan = "\n".join(r[0] for r in pg.psql("EXPLAIN (COSTS OFF) " + search % p))
            check(("Index Scan using words_key" in plan or "Bitmap Index Scan on words_key" in plan)
                  and "Index Cond" in plan,
                  "the prefix search on %r is an index scan:\n%s" % (prefix, plan))
            got = sorted(r[0] for r in pg.psql(search % p))
            full = sorted(r[0] for r in pg.psql("SET enable_indexscan = off; SET enable_bitmapscan = off;"
                                                + scan % p))
            check(got == full and full, "prefix %r: %d rows by the index, %d by a full scan"
                  % (prefix, len(got), len(full)))
        print("EXPLAIN of the prefix search on the word list (%d words):" % len(ordered))
        for row in pg.psql("EXPLAIN " + search % {"p": quote("Straß")}):
            print("   ", row[0])

        # Parallel workers load their own handles.
        parallel = ("SET parallel_setup_cost = 0; SET parallel_tuple_cost = 0; SET min_parallel_table_scan_size = 0;"
                    "SET max_parallel_workers_per_gather = 2; ")
        plan = "\n".join(r[0] for r in pg.psql(parallel + "EXPLAIN (COSTS OFF) " + scan % {"p": "'Sch'"}))
        count = pg.psql(parallel + scan.replace("SELECT w", "SELECT count(*)") % {"p": "'Sch'"})[0][0]
        check("Gather" in plan and count == str(len(pg.psql(scan % {"p": "'Sch'"}))),
              "a parallel scan gives the same rows (%s):\n%s" % (count, plan))

        # Eight concurrent connections calling nus_sortkey (pgbench), all transactions done.
        script = os.path.join(pg.root, "sortkey.sql")
        with open(script, "w") as f:
            f.write("\\set id random(1, %d)\n"
                    "SELECT nus_sortkey(w, 'de_de.utf8'), nus_upper(w, 'de_de.utf8') FROM words WHERE id = :id;\n"
                    % len(ordered))
        bench = subprocess.run(["pgbench", "-n", "-c", "8", "-j", "2", "-t", "200", "-f", script,
                                *pg.client_args(), "postgres"], capture_output=True, text=True)
        check(bench.returncode == 0 and "number of transactions actually processed: 1600/1600" in bench.stdout,
              "pgbench, 8 clients: %s %s" % (bench.stdout[-400:], bench.stderr[-400:]))

    # ---- the functions ---------------------------------------------------------------------
    for loc, fmt, number in [("de_de.utf8", "%'.2f", "1234567.891"), ("de_de.utf8", "%'d", "-1234567"),
                             ("en_us.utf8", "%'.3f", "-0.5"), ("de_de.8859-1", "%'.2e", "12345.678")]:
        cast = "bigint" if "d" in fmt else "float8"
        check(one("nus_fmt(%s, %s, %s::%s)" % (quote(loc), quote(fmt), number, cast)) ==
              tool_lines("fmt", "-l", loc, fmt, number)[0], "nus_fmt(%s, %s, %s)" % (loc, fmt, number))
    for loc, fmt, amount in [("de_de.utf8", "%n", "-1234.567"), ("en_us.utf8", "%i", "1234.5")]:
        check(one("nus_money(%s, %s, %s)" % (quote(loc), quote(fmt), amount)) ==
              tool_lines("money", "-l", loc, fmt, amount)[0], "nus_money(%s, %s, %s)" % (loc, fmt, amount))
    # Dates as nus date writes them, read back by nus_parse_date to the same timestamp.
    times = ["2024-02-29 13:05:07.25", "1999-12-31 23:59:59", "2019-05-01 00:00:00"]
    for loc, fmt in [("de_de.utf8", "%A, %d. %B %Y %H:%M:%S,%f"), ("de_de.8859-1", "%a %d. %b %Y %T.%f"),
                     ("ja_jp.utf8", "%EC%Ey年%m月%d日 %H時%M分%S秒.%f")]:
        expected = tool_lines("date", "-l", loc, "+" + fmt, *times, codec="latin-1" if "8859" in loc else "utf-8")
        for value, line in zip(times, expected):
            call = "nus_date(%s, %s, timestamp %s)" % (quote(loc), quote(fmt), quote(value))
            written, same = pg.psql("SELECT %s, nus_parse_date(%s, %s, %s) = timestamp %s"
                                    % (call, quote(loc), quote(fmt), call, quote(value)))[0]
            check(written == line, "nus_date(%s, %s, %s) is %r as nus date writes it, not %r" % (loc, fmt, value, line, written))
            check(same == "t", "nus_parse_date(%s, %s, %r) reads %s back" % (loc, fmt, written, value))
    hebrew = tool_lines("cal", "--to", "hebrew", "2026-11-24")[0].split()[1]
    bounds = dict((line.split("\t")[0], line.split("\t")[1:]) for line in tool_lines("bound", "-l", "de_de.utf8", "Straß"))
    with open(os.path.join(data, "nus/lc11/de_de/e01c.lco"), "rb") as f:
        body = f.read()
    start = body.index(b"\n### LC_COLLATE\n") + 1
    section = body[start:body.index(b"\n### LC_", start + 5) + 1]
    expected = [
        ("nus_cal('2026-11-24', 'hebrew')", hebrew),
        ("nus_cal(date '2026-11-24', 'hebrew')", hebrew),
        ("nus_date('de_de.utf8', '%A %x', date '2026-11-24')", "Dienstag 24.11.2026"),
        ("encode(nus_sortkey('Äpfel', 'de_de.utf8'), 'hex')", tool_lines("key", "-l", "de_de.utf8", "Äpfel")[0]),
        ("nus_lower_bound('Straß', 'de_de.utf8')", bounds["lower"][0]),
        ("nus_upper_bound('Straß', 'de_de.utf8')", bounds["upper"][0]),
        ("encode(nus_lower_key('Straß', 'de_de.utf8'), 'hex')", bounds["lower"][1]),
        ("nus_upper('straße', 'de_de.utf8')", "STRAßE"),
        ("nus_lower('IİI', 'tr_tr.8859-9')", "ıiı"),
        ("nus_width('日本語ab', 'ja_jp.utf8')", "8"),
        ("nus_parse_number('de_de.utf8', '1.234.567,5', true)", "1234567.5"),
        ("nus_parse_number('de_de.utf8', '-12,25')", "-12.25"),
        ("encode(nus_conv('\\xc4d6'::bytea, '8859-1', 'utf8'), 'hex')", "c384c396"),
        ("nus_compare('Åsa', 'Zorro', 'sv_se.utf8')", "1"),
        ("nus_has_prefix('Straßenbahn', 'STRASS', 'de_de.utf8')", "t"),
        ("nus_like('İSTANBUL', 'is%', 'tr_tr.8859-9') AND NOT nus_like('ISTANBUL', 'is%', 'tr_tr.8859-9')", "t"),
        ("nus_like('50% off', '50!%%', 'de_de.utf8', '!') AND NOT nus_like('500 off', '50!%%', 'de_de.utf8', '!')", "t"),
        ("nus_collation_version('de_de.utf8') LIKE '%%:%s'" % hashlib.sha256(section).hexdigest(), "t"),
    ]
    for sql, value in expected:
        got = one(sql)
        check(got == value, "%s gives %r, not %r" % (sql, value, got))

    # Functions are strict: NULL in any place gives NULL.
    signatures = pg.psql("SELECT p.proname, pg_get_function_identity_arguments(p.oid), p.proisstrict"
                         " FROM pg_proc p JOIN pg_depend d ON d.objid = p.oid"
                         " JOIN pg_extension e ON e.oid = d.refobjid WHERE e.extname = 'nus'")
    check(len(signatures) == 22, "the extension has 22 functions: %r" % signatures)
    check(all(s[2] == "t" for s in signatures), "every function is STRICT")
    check(one("nus_sortkey(NULL, 'de_de.utf8') IS NULL AND nus_upper('a', NULL) IS NULL") == "t",
          "NULL in, NULL out")
    volatility = dict((r[0], r[1]) for r in pg.psql(
        "SELECT proname, provolatile::text || proparallel::text FROM pg_proc WHERE proname LIKE 'nus_%'"))
    check(volatility.get("nus_sortkey") == volatility.get("nus_date") == volatility.get("nus_parse_date") == "is",
          "nus_sortkey, nus_date and nus_parse_date are IMMUTABLE and PARALLEL SAFE")

    # Errors carry the library's reason; the session goes on.
    errors = [
        ("nus_sortkey('x', 'xx_yy.utf8')", "nus_sortkey: cannot load locale 'xx_yy.utf8': NU_ENOFILE"),
        ("nus_upper('привет', 'de_de.8859-1')", "lacks"),
        ("nus_fmt('de_de.utf8', '%d', 1e10::float8)", "out of range"),
        ("nus_fmt('de_de.utf8', '%s', 1::bigint)", "unknown conversion"),
        ("nus_money('de_de.utf8', '%n %n', 1)", "exactly one conversion"),
        ("nus_parse_number('de_de.utf8', 'zwölf')", "is not a number"),
        ("nus_conv('\\xff'::bytea, 'utf8', '8859-1')", "NU_EILSEQ"),
        ("nus_cal('2026-13-01', 'hebrew')", "no Gregorian date"),
        ("nus_collation_version('nowhere')", "no locale file"),
        ("nus_date('de_de.utf8', '%Q', timestamp '2026-01-01')", "nus_date: format: NU_EFORMAT"),
        ("nus_date('de_de.utf8', '%F', timestamp '0001-01-01' - interval '1 day')", "NU_EYEAR"),
        ("nus_parse_date('de_de.utf8', '%d. %B %Y', '1. Mrz 2026')", "NU_EPMONNAME"),
    ]
    pg.psql("CREATE DATABASE latin1 TEMPLATE template0 ENCODING 'LATIN1' LOCALE 'C'")
    r = subprocess.run(["psql", "-X", *pg.client_args(), "-d", "latin1", "-c",
                        "CREATE EXTENSION nus; SELECT nus_upper('a', 'de_de.utf8')"],
                       capture_output=True, text=True)
    check(r.returncode != 0 and "the database's encoding is LATIN1" in r.stderr,
          "a LATIN1 database is refused: %r" % r.stderr)
    for sql, fragment in errors:
        r = pg.psql("SELECT " + sql, check=False)
        check(r.returncode != 0 and fragment in r.stderr, "%s fails with %r: %r" % (sql, fragment, r.stderr))

print("%d failures" % len(failures))
sys.exit(1 if failures else 0)
