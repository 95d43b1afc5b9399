#!/usr/bin/env python3
"""Assembles the seed corpus of every fuzz target into OUT/<target>/ from the hand-made test
data, the generated data tree and the system's charmaps and locale sources.

    make-corpus.py SOURCE_ROOT DATA_DIR OUT

Seeds larger than MAX_SEED bytes are left out (the readers' time per input grows with them).
The saved regression inputs of tests/data/fuzz/<target>/ are seeds too.
"""
import gzip
import hashlib
import os
import sys

MAX_SEED = 160 * 1024

root, data, out = sys.argv[1:4]
lc = os.path.join(data, "nus", "lc11")
cv = os.path.join(data, "nus", "cv9")
fixtures = os.path.join(root, "tests", "data")
charmaps = "/usr/share/i18n/charmaps"


def files(top, suffix):
    found = []
    for d, _, names in os.walk(top):
        found += [os.path.join(d, n) for n in names if n.endswith(suffix)]
    return sorted(found)


def read(path):
    with open(path, "rb") as f:
        return f.read()


def charmap(name):
    return gzip.decompress(read(os.path.join(charmaps, name + ".gz")))


def seed(target, content):
    if len(content) > MAX_SEED:
        return
    d = os.path.join(out, target)
    os.makedirs(d, exist_ok=True)
    with open(os.path.join(d, hashlib.sha1(content).hexdigest()), "wb") as f:
        f.write(content)


locale_files = files(lc, ".lco") + files(os.path.join(fixtures, "lc11"), ".lco")
conversion_files = files(cv, ".cvo") + files(os.path.join(fixtures, "cv9"), ".cvo")

# The multi-level table text: the CTYPE class table of each locale file (two-byte descriptors,
# mode 0x80), behind a few probe strings.
probes = b"\x03\x02\x82\xa0\x01A\x03\xe3\x81\x82"
for path in locale_files:
    text = read(path)
    at = text.find(b"### LC_CTYPE\n")
    if at >= 0:
        seed("multi_table", b"\x80" + probes + text[at + 13:])

seed("registry", b"\x16" + read(os.path.join(root, "data", "registry")))
seed("registry", b"\x05# comment\nascii 364\nLatin-1 819 extra\n  utf8\t57372\n")

for path in locale_files:
    seed("locale_file", read(path))

samples = [b"Gr\xfc\xdfe", b"abc \xe3\x81\x82\xe6\x97\xa5", b"\x82\xa0\x82\xa2x", b"\x0e\x41\x42\x0fz",
           b"A\x00\xe9\x00", b"\xa4\xa2\xa4\xa4\x8e\xb1"]
for i, path in enumerate(conversion_files):
    sample = samples[i % len(samples)]
    seed("cvo_file", bytes([i % 4, len(sample)]) + sample + read(path))

# Conversion: every pair (the first byte picks it) in each of the modes, with pieces of
# (length, room, flags) before their bytes.
pair_count = len([n for n in os.listdir(cv) if len(n) == 12 and n.endswith(".cvo")])
for i in range(pair_count):
    for mode, sample in ((1, samples[i % 6]), (3, samples[(i + 1) % 6]), (4, samples[(i + 2) % 6]),
                         (0, samples[(i + 3) % 6])):
        body = bytes([len(sample), 40, 0]) + sample if mode != 4 else sample
        seed("convert", bytes([i, mode]) + body)

words = [(b"Muller", b"M\xfcller"), (b"\x82\xa0\x82\xa2", b"\x82\xa2"), (b"\xc3\xa9tat", b"etat"),
         (b"\xa1\xe0\xa2", b"\xe0\xa1\xa2")]
for i, (a, b) in enumerate(words):
    for ops in (0, 1, 3, 5):
        seed("collate", bytes([i, ops, 16, len(a)]) + a + b)

# The TIME section of every locale file, behind the byte that picks the CTYPE it is read with
# (one of the target's four: the section's own code set where it is one of them) and a probe.
time_ctype = {"8859-1": 0, "sjis": 1, "utf8": 2, "8859-5": 3}
for path in locale_files:
    text = read(path)
    start, end = text.find(b"### LC_TIME\n"), text.find(b"### LC_MESSAGES\n")
    codeset = text.split(b"\n")[4].strip().decode("latin-1") if text.count(b"\n") > 5 else ""
    if 0 <= start < end:
        seed("time_section", bytes([time_ctype.get(codeset, 0), 3]) + b"MAR" + text[start + 12:end])

seed("numeric", b"\x00\x40\x00\x03\x02ab\x1f\x05\x01")
seed("numeric", b"\x01\x40\x01\x05%=*#5n\x01\x02\x03")
seed("numeric", b"\x02\x40\x02\x02%n1.234,56")
seed("numeric", b"\x00\x40\x03\x0a\x01\x01\x02\x031.234.567,5")
seed("numeric", b"\x03\x40\x01\x0a%+(^#3.2i\x05\x05")
# Character map objects behind an output size, a text and symbols to convert.
for path in files(os.path.join(data, "nus", "cm3"), ".cmo"):
    seed("cm_file", b"\x80\x04A\xe9\xa4\x81\x0f<U0041><U00E9>x" + read(path))
seed("pnum", b"\x00\x01\x12%'d ; %'.2f|%#x %*hd\x201.234.567 ; 8.765,43|0xff 12")
seed("pnum", b"\x01\x01\x0b%-12lu|%e %%12           |1,5e-3 %")
for loc in range(4):
    seed("pnum", bytes([loc, 0, 1, 1, 1, 1, 1, 1, 1, 0x15, 2, 0x87, 0xd6, 0x12, 0x80]))
for loc in range(5):
    for op in range(6):
        seed("strings", bytes([loc, op, 7, 32, 4]) + b"ab\x82\xa0Gr\xc3\xbc\xc3\x9fe \xa4\xa2 \n\xa1\xa1\x8e\xb1\n")
for loc in range(4):
    # A TIME record of short pieces, then a value and a format (or a format and a text).
    record = bytes([loc]) + b"\x00%c" + b"\x01\x03abc" * 14 + b"\x0c\x00" + b"\x02\x02Mo" * 80
    seed("time_format", record + b"\x01" * 40 + b"\x30%c|%Ey %EC %Od %B %^a %-5j %f %.3f")
    seed("time_parse", record + b"\x08%Y-%m-%d" + b"2024-02-29 rest")

for name in ("ISO-8859-1", "KOI8-R", "TIS-620", "CP1252", "ISO-8859-7"):
    seed("charmap", charmap(name))
seed("charmap", read(os.path.join(charmaps, "ISO-8859-2.gz")))
for a, b in (("ISO-8859-1", "CP1252"), ("KOI8-R", "ISO-8859-5"), ("TIS-620", "ISO-8859-11")):
    seed("cvdef", charmap(a) + charmap(b))

seed("locale_source", read("/usr/share/i18n/locales/POSIX"))
seed("locale_source", b"""comment_char %
escape_char /
LC_CTYPE
upper <U0041>;<U0042>
lower <U0061>;<U0062>
toupper (<U0061>,<U0041>);(<U0062>,<U0042>)
END LC_CTYPE
LC_COLLATE
collating-element <ch> from "<U0063><U0068>"
order_start forward;backward
<U0061> <U0061>;<U0061>
<U0062> <U0062>;<U0062>
<ch> <ch>;<ch>
UNDEFINED
order_end
END LC_COLLATE
LC_NUMERIC
decimal_point ","
thousands_sep "."
grouping 3;3
END LC_NUMERIC
LC_MONETARY
int_curr_symbol "EUR "
currency_symbol "<U20AC>"
mon_decimal_point ","
mon_thousands_sep "."
mon_grouping 3;3
positive_sign ""
negative_sign "-"
frac_digits 2
p_cs_precedes 0
n_cs_precedes 0
END LC_MONETARY
""")

# The saved regression inputs.
saved = os.path.join(fixtures, "fuzz")
if os.path.isdir(saved):
    for target in os.listdir(saved):
        for path in files(os.path.join(saved, target), ""):
            seed(target, read(path))
