#!/usr/bin/env python3
"""Writes the hand-made locale object files the tests use (tests/data/lc11/...).

The files are small and readable; this script is how they were made, kept so that they can be
remade when the format grows. Run it from the repository root: tests/data/make_fixtures.py
"""
import os

HERE = os.path.dirname(os.path.abspath(__file__))

UPPER, LOWER, ALPHA, DIGIT, SPACE, CNTRL, PUNCT, GRAPH, PRINT, XDIGIT, BLANK = (
    1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 1024)


def own_class(n):
    return (2048 << (n % 32)) & 0xFFFF


def record(start, values, fmt):
    return "%02x%03x%03x" % (start, len(values), 1) + "".join(fmt(v) for v in values) + "\n"


def array(entries, fmt, default):
    """Run records for {byte: value}, one literal record per run of significant bytes."""
    out = []
    run = []
    for b in range(256):
        v = entries.get(b, default)
        if v != default:
            run.append((b, v))
        if (v == default or b == 255) and run:
            out.append(record(run[0][0], [x[1] for x in run], fmt))
            run = []
    return "".join(out) + "0000000\n"


def table(chars, fmt="%04x", default=0):
    """The uncompressed text form of a table over {bytes: value}."""
    lengths = [len(k) for k in chars] or [0]
    max_len = max(lengths)
    min_len = min(lengths) if chars else 4
    single = max_len < 2 and min_len == 1
    out = ["%d %d 1 %s\n" % (max_len, min_len, fmt % default)]

    def node(prefix):
        depth = len(prefix)
        flags, data, children = {}, {}, []
        for k, v in chars.items():
            if k[:depth] != prefix or len(k) <= depth:
                continue
            b = k[depth]
            if len(k) == depth + 1:
                flags[b] = 4
                if v != default:
                    data[b] = v
            elif flags.get(b) != 1:
                flags[b] = 1
                children.append(b)
        if depth == 0 and single:
            flags = {b: 4 for b in range(256)}
        out.append("%d %d\n" % (1 if flags else 0, 1 if data else 0))
        if flags:
            out.append(array(flags, lambda v: "%02x" % v, 0))
        if data:
            out.append(array(data, lambda v: fmt % v, default))
        for b in sorted(set(children)):
            node(prefix + bytes([b]))

    node(b"")
    return "".join(out)


def ascii_classes():
    classes = {}
    for c in range(128):
        m = 0
        ch = chr(c)
        if c < 32 or c == 127:
            m |= CNTRL
        if ch in " \t\n\v\f\r":
            m |= SPACE
        if ch in " \t":
            m |= BLANK
        if 32 <= c < 127:
            m |= PRINT
            if ch != " ":
                m |= GRAPH
        if ch.isupper():
            m |= UPPER | ALPHA
        if ch.islower():
            m |= LOWER | ALPHA
        if ch.isdigit():
            m |= DIGIT
        if ch in "0123456789abcdefABCDEF":
            m |= XDIGIT
        if 32 < c < 127 and not ch.isalnum():
            m |= PUNCT
        classes[bytes([c])] = m
    return classes


ENCODING = "latin-1"


def mbstring(s):
    data = s if isinstance(s, bytes) else s.encode(ENCODING)
    return "%d%s" % (len(data), (" " + data.hex()) if data else "")


def collate_section(chars_rows, rows, directions):
    """chars_rows: {bytes: row}; rows: a weight tuple per row, one weight per level."""
    text = "as_specified\n" + table(chars_rows)
    largest = max(max(w) for w in rows)
    text += "0 %d %d 0 0 %d\n" % (len(rows) - 1, len(directions), largest)
    text += "".join("%04x" % d for d in directions) + "\n"
    text += "".join(" ".join("%04x" % w for w in ws) + "\n" for ws in rows)
    return text


def latin1_collate():
    """Three levels: base letter, accent (walked backward), case. Control characters are
    ignorable; the no-break space collates exactly as the space."""
    import unicodedata
    keys, rows, chars_rows = {}, [], {}
    def row_of(key):
        if key not in keys:
            keys[key] = len(rows)
            rows.append(key)
        return keys[key]
    row_of((1, 1, 1))
    order = [chr(c) for c in range(0x20, 0x7F) if not chr(c).isalnum()] + \
        [chr(c) for c in range(0xA1, 0xC0)] + ["\xd7", "\xf7"] + list("0123456789") + \
        list("abcdefghijklmnopqrstuvwxyz")
    primary = {c: i + 2 for i, c in enumerate(order)}
    for b in range(256):
        c = chr(b)
        if b < 0x20 or 0x7F <= b < 0xA0:
            chars_rows[bytes([b])] = 0
            continue
        if c == "\xa0":
            c = " "
        base = unicodedata.normalize("NFD", c)[0].lower()
        if c in "\xdf":
            base = "s"
        if base not in primary:
            base = c.lower() if c.lower() in primary else c
        accent = 2 if unicodedata.normalize("NFD", c) == c else 3 + ord(unicodedata.normalize("NFD", c)[-1]) % 50
        if c in "\xc6\xe6\xd0\xf0\xd8\xf8\xde\xfe\xdf":
            accent = 60 + b % 16
        case = 3 if c.isupper() else 2
        chars_rows[bytes([b])] = row_of((primary.get(base, 2), accent, case))
    return collate_section(chars_rows, rows, [1, 2, 1])


def multibyte_collate(chars):
    """Two levels: code order, then one weight for all."""
    rows, chars_rows = [], {}
    for i, k in enumerate(sorted(chars, key=lambda k: (len(k), k))):
        chars_rows[k] = i
        rows.append((i + 2, 2))
    return collate_section(chars_rows, rows, [1, 1])


C_DAYS = ["Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"]
C_MONTHS = ["January", "February", "March", "April", "May", "June", "July", "August",
            "September", "October", "November", "December"]


def time_section(eras=(), digits=(), alt_months=()):
    """The TIME section (format: time/category.cpp) with the POSIX locale's names and formats,
    and optionally era segments (direction, offset, start, end, name, format), alternative
    digits and a second list of month names."""
    head = "1 12 %d %d %d\n7 19971130 4 1 2\n" % (len(alt_months), len(eras), len(digits))
    items = [mbstring("%a %b %e %H:%M:%S %Y")]
    items += [mbstring(d[:3]) for d in C_DAYS] + [mbstring(d) for d in C_DAYS]
    items += [mbstring(m) for m in C_MONTHS] + [mbstring(m) for m in alt_months]
    items += [mbstring(s) for s in ("%m/%d/%y", "%H:%M:%S", "%I:%M:%S %p", "AM", "PM",
                                    "%a %b %e %H:%M:%S %Z %Y", "%EC %Ey", "%EC%Ey", "", "")]
    items += [mbstring(m[:3]) for m in C_MONTHS] + [mbstring(m[:3]) for m in alt_months]
    for direction, offset, start, end, name, fmt in eras:
        items.append("%d %d %d %d %d %d %d %d" % ((direction, offset) + start + end))
        items += [mbstring(name), mbstring(fmt)]
    items += [mbstring(d) for d in digits]
    return head + "\n".join(items) + "\n"


def sections(codeset, ctype, numeric, monetary, messages, header_extra=1, collate="", time=None):
    head = ["FILE_TYPE=locale_object", "COMPILER_VERSION=11",
            "HEADER_LENGTH=%d" % (3 + header_extra)]
    head += ["SOURCE_VERSION=hand-made test fixture"] * header_extra
    return ("\n".join(head) + "\n" + codeset + "\n"
            "### LC_CTYPE\n" + ctype +
            "### LC_COLLATE\n" + collate +
            "### LC_NUMERIC\n" + numeric +
            "### LC_MONETARY\n" + monetary +
            "### LC_TIME\n" + (time if time is not None else time_section()) +
            "### LC_MESSAGES\n" + messages)


def ctype_section(classes, own, pairs_of, factor):
    """pairs_of: list of (upper bytes-as-int, lower) wide pairs; case table built from it."""
    case = {}
    for i, (up, low) in enumerate(pairs_of, start=1):
        for wc in (up, low):
            k = wc.to_bytes((wc.bit_length() + 7) // 8 or 1, "big")
            case[k] = i
    for k in classes:  # the case table covers the same characters
        case.setdefault(k, 0)
    text = table(classes)
    text += "%d\n" % len(own) + "".join("%d %s\n" % (n, name) for n, name in own)
    text += table(case)
    text += "%d\n" % len(pairs_of)
    text += "\n".join("%x %x" % p for p in pairs_of)
    text += (" " + factor if factor else "") + "\n"
    return text


def numeric_section(point, sep, grouping, pos="", neg="-"):
    return "\n".join([mbstring(point), mbstring(sep),
                      " ".join([str(len(grouping))] + [str(g) for g in grouping]),
                      mbstring(pos), mbstring(neg)]) + "\n"


def monetary_section(intl, sym, point, sep, grouping, values, pos="", neg="-"):
    return "\n".join([mbstring(intl), mbstring(sym), mbstring(point), mbstring(sep),
                      " ".join([str(len(grouping))] + [str(g) for g in grouping]),
                      mbstring(pos), mbstring(neg), " ".join(str(v) for v in values)]) + "\n"


def messages_section(yesexpr, noexpr, yes, no):
    return "\n".join(mbstring(s) for s in (yesexpr, noexpr, yes, no)) + "\n"


def latin1(codeset="8859-1", point=".", sep=",", factor="1"):
    classes = ascii_classes()
    pairs = [(ord(u), ord(u.lower())) for u in "ABCDEFGHIJKLMNOPQRSTUVWXYZ"]
    for c in range(0xA0, 0x100):
        m = PRINT
        if c == 0xA0:
            m |= SPACE | BLANK
        elif 0xC0 <= c <= 0xDE and c != 0xD7:
            m |= UPPER | ALPHA | GRAPH | own_class(0)
            pairs.append((c, c + 0x20))
        elif 0xDF <= c <= 0xFF and c != 0xF7:
            m |= LOWER | ALPHA | GRAPH | own_class(0)
        else:
            m |= GRAPH | PUNCT
        classes[bytes([c])] = m
    for v in "aeiouAEIOU":
        classes[v.encode()] |= own_class(0)
    # The single-byte table covers every byte: 0x80-0x9F are control characters.
    for c in range(0x80, 0xA0):
        classes[bytes([c])] = CNTRL
    ctype = ctype_section(classes, [(0, "vowel")], pairs, factor)
    return sections(codeset, ctype,
                    numeric_section(point, sep, [3, 3]),
                    monetary_section("EUR ", "\xa4", point, sep, [3], [2, 2, 1, 0, 1, 0, 1, 1]),
                    messages_section("^[yY]", "^[nN]", "yes", "no"),
                    collate=latin1_collate(),
                    time=time_section(
                        eras=[(1, 2, (1990, 1, 1), (2147483647, 0, 0), "Heisei", "%EC%Ey"),
                              (1, 1, (1989, 1, 8), (1989, 12, 31), "Heisei", "%ECgannen"),
                              (-1, 1, (0, 12, 31), (-2147483648, 0, 0), "B.C.", "%Ey %EC")],
                        digits=["zero", "one", "two", "three"],
                        alt_months=[m.upper() for m in C_MONTHS]))


def euc(codeset="eucjp"):
    classes = ascii_classes()
    pairs = [(ord(u), ord(u.lower())) for u in "ABCDEFGHIJKLMNOPQRSTUVWXYZ"]
    full = own_class(1)
    for lead in range(0xA1, 0xFF):
        for trail in range(0xA1, 0xFF):
            m = PRINT | GRAPH | full
            if lead == 0xA3 and 0xC1 <= trail <= 0xDA:
                m |= UPPER | ALPHA
                pairs.append((lead << 8 | trail, lead << 8 | (trail + 0x20)))
            elif lead == 0xA3 and 0xE1 <= trail <= 0xFA:
                m |= LOWER | ALPHA
            elif lead == 0xA3 and 0xB0 <= trail <= 0xB9:
                m |= DIGIT
            elif lead >= 0xB0:
                m |= ALPHA
            else:
                m |= PUNCT
            classes[bytes([lead, trail])] = m
    ctype = ctype_section(classes, [(1, "full_width")], pairs, "")
    return sections(codeset, ctype,
                    numeric_section(".", ",", [3]),
                    monetary_section("JPY ", b"\xa1\xef", ".", ",", [3], [0, 0, 1, 0, 1, 0, 1, 1]),
                    messages_section("^[yY]", "^[nN]", "yes", "no"),
                    collate=multibyte_collate(classes))


def fixed2(codeset="unicode"):
    global ENCODING
    ENCODING = "utf-16-be"   # every character two bytes, strings included
    classes = {}
    ascii = ascii_classes()
    for k, m in ascii.items():
        classes[b"\x00" + k] = m
    pairs = [(ord(u), ord(u.lower())) for u in "ABCDEFGHIJKLMNOPQRSTUVWXYZ"]
    for c in range(0x0391, 0x03AA):  # Greek capitals and their small letters
        classes[c.to_bytes(2, "big")] = UPPER | ALPHA | GRAPH | PRINT
        classes[(c + 0x20).to_bytes(2, "big")] = LOWER | ALPHA | GRAPH | PRINT
        pairs.append((c, c + 0x20))
    ctype = ctype_section(classes, [], pairs, "2.0")
    text = sections(codeset, ctype,
                    numeric_section(".", ",", [3]),
                    monetary_section("", "", ".", ",", [], [2] * 8),
                    messages_section("y", "n", "yes", "no"),
                    collate=multibyte_collate(classes))
    finally_text = text
    ENCODING = "latin-1"
    return finally_text


def write(relative, text):
    path = os.path.join(HERE, relative)
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w", encoding="latin-1", newline="\n") as f:
        f.write(text)


if __name__ == "__main__":
    write("lc11/xx_yy/0333.lco", latin1())
    write("lc11/de_de/0333.lco", latin1(point=",", sep="."))
    write("lc11/ja_jp/13ba.lco", euc())
    write("lc11/uc_uc/e005.lco", fixed2())
