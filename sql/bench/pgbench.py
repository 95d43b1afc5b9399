#!/usr/bin/env python3
"""Throughput of the PostgreSQL extension under pgbench, beside PostgreSQL's ICU collation, on
the German word list (Debian's wngerman): not a test; the figures of the README come from it.

    sql/bench/pgbench.py [BUILD_TREE [SECONDS]]     (default build/64, 20 seconds per script)

Starts a server of its own (as the extension's test does: staged in the build tree, stopped
at the end), loads the words into a table, and runs each script with 8 clients (2 pgbench
threads) for SECONDS, printing transactions per second. TESSARONDIR defaults to the build's
data tree.
"""
import os
import re
import subprocess
import sys

here = os.path.dirname(os.path.abspath(__file__))
source = os.path.dirname(os.path.dirname(here))
sys.path.insert(0, os.path.join(source, "tests", "sql"))
from pgserver import Server  # noqa: E402

build = os.path.abspath(sys.argv[1] if len(sys.argv) > 1 else os.path.join(source, "build", "64"))
seconds = sys.argv[2] if len(sys.argv) > 2 else "20"
os.environ.setdefault("TESSARONDIR", os.path.join(os.path.dirname(build), "data"))
pg_config = lambda what: subprocess.run(["pg_config", what], capture_output=True, text=True,
                                        check=True).stdout.strip()

BATCH = 1000
SCRIPTS = [
    ("sort keys of 1,000 rows: nus_sortkey(w, 'de_de.utf8')",
     "SELECT sum(length(nus_sortkey(w, 'de_de.utf8'))) FROM words WHERE id BETWEEN :id AND :id + %d;"),
    ("sort 1,000 rows: ORDER BY nus_sortkey(w, 'de_de.utf8')",
     "SELECT w FROM words WHERE id BETWEEN :id AND :id + %d ORDER BY nus_sortkey(w, 'de_de.utf8') OFFSET %d;"),
    ("sort 1,000 rows: ORDER BY w COLLATE \"de-DE-x-icu\"",
     "SELECT w FROM words WHERE id BETWEEN :id AND :id + %d ORDER BY w COLLATE \"de-DE-x-icu\" OFFSET %d;"),
    ("sort 1,000 rows: ORDER BY w COLLATE \"C\" (byte order, for reference)",
     "SELECT w FROM words WHERE id BETWEEN :id AND :id + %d ORDER BY w COLLATE \"C\" OFFSET %d;"),
    ("prefix search through the expression index (nus_lower_key / nus_upper_key)",
     "SELECT count(*) FROM words WHERE nus_sortkey(w, 'de_de.utf8') >= nus_lower_key(:p, 'de_de.utf8')"
     " AND nus_sortkey(w, 'de_de.utf8') < nus_upper_key(:p, 'de_de.utf8')"
     " AND nus_has_prefix(w, :p, 'de_de.utf8');"),
]

with Server(os.path.join(build, "sql", "postgres"), os.path.join(source, "sql", "postgres"), build,
            pg_config("--bindir"), pg_config("--pkglibdir"), pg_config("--sharedir"),
            where=os.path.join(build, "sql")) as pg:
    pg.psql("CREATE EXTENSION nus; CREATE TABLE words(id serial PRIMARY KEY, w text NOT NULL);"
            "\\copy words(w) FROM '/usr/share/dict/ngerman'\n"
            "CREATE INDEX words_key ON words (nus_sortkey(w, 'de_de.utf8')); ANALYZE words")
    count = int(pg.psql("SELECT count(*) FROM words")[0][0])
    print("%d words, 8 clients, %s s per script; %s" % (count, seconds,
          pg.psql("SELECT version()")[0][0].split(" on ")[0]))
    # Eight prefixes, one picked by each transaction; the bounds are folded into constants when
    # the statement is planned, as they are for a literal prefix.
    prefixes = "(ARRAY['Straß', 'ab', 'Sch', 'über', 'Mö', 'zw', 'Kr', 'Ei'])[:k]"
    for title, sql in SCRIPTS:
        path = os.path.join(pg.root, "script.sql")
        with open(path, "w") as f:
            if ":p" in sql:
                f.write("\\set k random(1, 8)\n" + sql.replace(":p", prefixes) + "\n")
            else:
                f.write("\\set id random(1, %d)\n" % (count - BATCH))
                f.write((sql % ((BATCH - 1, BATCH) if "OFFSET" in sql else (BATCH - 1,))) + "\n")
        r = subprocess.run(["pgbench", "-n", "-c", "8", "-j", "2", "-T", seconds, "-f", path,
                            *pg.client_args(), "postgres"], capture_output=True, text=True)
        tps = re.search(r"tps = ([0-9.]+)", r.stdout)
        print("%-90s %s" % (title, ("%.1f tps" % float(tps.group(1))) if tps else r.stdout + r.stderr))
