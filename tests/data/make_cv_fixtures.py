#!/usr/bin/env python3
"""Writes the hand-made conversion object files the tests use (tests/data/cv9/...).

Small toy code sets, one file per converter, written in the uncompressed table form so that
they stay readable. Run from the repository root: tests/data/make_cv_fixtures.py

Record byte 0: count of target bytes (0x07), end of string 0x08, valid 0x10, substitute 0x20,
shifted target 0x40, source shift 0x80.
"""
import os

HERE = os.path.dirname(os.path.abspath(__file__))
END, VALID, SUB, TSHIFT, SSHIFT = 0x08, 0x10, 0x20, 0x40, 0x80


def rec(target, flags=0):
    return bytes([VALID | flags | len(target)]) + bytes(target)


def rec_text(r):
    return "".join("%02x" % b for b in r)


def table_text(chars):
    """chars: {source bytes: record bytes}. Uncompressed form, one record per element."""
    lengths = [len(k) for k in chars]
    out = ["%d %d %d %s\n" % (max(lengths), min(lengths), 0, "00")]

    def node(prefix):
        depth = len(prefix)
        here = {k[depth]: k for k in chars if len(k) > depth and k[:depth] == prefix}
        flags, data, kids = {}, {}, []
        for b in sorted(here):
            longer = any(len(k) > depth + 1 and k[:depth + 1] == prefix + bytes([b]) for k in chars)
            if longer:
                flags[b] = 1
                kids.append(prefix + bytes([b]))
            else:
                flags[b] = 4
                data[b] = chars[prefix + bytes([b])]
        out.append("1 %d\n" % (1 if data else 0))
        for b, f in flags.items():
            out.append("%02x%03x%03x%02x\n" % (b, 1, 1, f))
        out.append("0000000\n")
        if data:
            for b, r in data.items():
                out.append("%02x%03x%03x%s\n" % (b, 1, 1, rec_text(r)))
            out.append("0000000\n")
        for k in kids:
            node(k)

    node(b"")
    return "".join(out)


def special(seq):
    return "%x%s" % (len(seq), "".join("%02x" % b for b in seq))


def cvo(name, source, target, lengths, expansion, table, shift_table=None, shifts=(b"", b"")):
    """lengths: target min, target max, two kept integers, source min, source max, seventh."""
    text = ["FILE_TYPE=codeset_conversion_object\n", "COMPILER_VERSION=9\n", "HEADER_LENGTH=5\n",
            "SOURCE_CODESET=%s\n" % source, "TARGET_CODESET=%s\n" % target,
            "%d %d\n" % (1 if shift_table else 0, 1 if shifts[0] else 0),
            " ".join(special(s) for s in (shifts[0], shifts[1], b"", b"")) + "\n",
            " ".join(str(n) for n in lengths) + "\n", "%s\n" % expansion, table_text(table)]
    if shift_table:
        text.append(table_text(shift_table))
    os.makedirs(os.path.join(HERE, "cv9"), exist_ok=True)
    with open(os.path.join(HERE, "cv9", name), "w") as f:
        f.write("".join(text))


def ascii_identity(upper=False):
    t = {b"\x00": rec([0], END)}
    for c in range(1, 0x80):
        t[bytes([c])] = rec([c - 32 if upper and ord("a") <= c <= ord("z") else c])
    return t


# Single-byte: lower case to upper case; 0x80 has only a substitute; 0x81 is invalid, 0x82
# valid again (so that the 256-byte table stops filling at 0x81).
sb = ascii_identity(upper=True)
sb[b"\x80"] = rec([ord("?")], SUB)
sb[b"\x82"] = rec([0xE9])
cvo("sb.cvo", "toysb", "toyupper", (1, 1, 0, 0, 1, 1, 0), "1.0", sb)

# Multibyte: ASCII, two-byte characters to three bytes, one three-byte character to four,
# one character with only a substitute.
mb = ascii_identity()
mb[b"\xa1\xa1"] = rec([0xE3, 0x80, 0x80])
mb[b"\xa1\xa2"] = rec([0xE3, 0x80, 0x81])
mb[b"\xa1\xa3"] = rec([0xE3, 0x80, 0x82])
mb[b"\xa1\xa4"] = rec([ord("?")], SUB)
mb[b"\x8f\xa2\xaf"] = rec([0xF0, 0x9F, 0x98, 0x80])
cvo("mb.cvo", "toyeuc", "toyutf8", (1, 4, 0, 0, 1, 3, 1), "1.5", mb)

# Little-endian 2-byte source (keys are the code units, most significant byte first).
le = {b"\x00\x00": rec([0], END), b"\x00\x41": rec([0x41]), b"\x00\xe9": rec([0xC3, 0xA9]),
      b"\x4e\x00": rec([0xE4, 0xB8, 0x80]), b"\x00\x42": rec([0x42])}
cvo("le2src.cvo", "toyucs2", "toyutf8", (1, 3, 0, 0, 2, 2, 1), "1.5", le)
le4 = {b"\x00\x00\x00\x00": rec([0], END), b"\x00\x00\x00\x41": rec([0x41]),
       b"\x00\x01\xf6\x00": rec([0xF0, 0x9F, 0x98, 0x80])}
cvo("le4src.cvo", "toyucs4", "toyutf8", (1, 4, 0, 0, 4, 4, 1), "1.0", le4)

# Little-endian targets: the records hold the unit most significant byte first.
let = {b"\x00": rec([0, 0], END), b"\x41": rec([0x00, 0x41]), b"\xc3\xa9": rec([0x00, 0xE9]),
       b"\xe4\xb8\x80": rec([0x4E, 0x00])}
cvo("le2tgt.cvo", "toyutf8", "toyucs2", (2, 2, 0, 0, 1, 3, 1), "2.0", let)
let4 = {b"\x00": rec([0, 0, 0, 0], END), b"\x41": rec([0, 0, 0, 0x41]),
        b"\xf0\x9f\x98\x80": rec([0x00, 0x01, 0xF6, 0x00])}
cvo("le4tgt.cvo", "toyutf8", "toyucs4", (4, 4, 0, 0, 1, 4, 1), "4.0", let4)

# Stateful source: single bytes, 0x0e shifts to two-byte characters, 0x0f back; a shift to
# the state already in force changes nothing.
initial = {b"\x00": rec([0], END), b"\xc1": rec([0x41]), b"\xc2": rec([0x42]),
           b"\x40": rec([0x20]), b"\x0e": rec([], SSHIFT), b"\x0f": rec([])}
shifted = {b"\x0f": rec([], SSHIFT), b"\x0e": rec([]), b"\x4c\x41": rec([0xE4, 0xB8, 0x80]),
           b"\x40\x40": rec([0xE3, 0x80, 0x80]), b"\x4c\x42": rec([ord("?")], SUB)}
cvo("ssrc.cvo", "toyebcdic", "toyutf8", (1, 3, 0, 0, 1, 2, 1), "3.0", initial, shifted)

# Stateful target: two-byte characters are written between shift-out 0x0e and shift-in 0x0f.
stgt = {b"\x00": rec([0], END), b"A": rec([0xC1]), b"B": rec([0xC2]), b" ": rec([0x40]),
        b"\xe4\xb8\x80": rec([0x4C, 0x41], TSHIFT), b"\xe3\x80\x80": rec([0x40, 0x40], TSHIFT)}
cvo("stgt.cvo", "toyutf8", "toyebcdic", (1, 2, 0, 0, 1, 3, 1), "4.0", stgt,
    shifts=(b"\x0e", b"\x0f"))
