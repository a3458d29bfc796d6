#!/usr/bin/env python3
"""Generates the AAC Huffman lookup tables: the scale-factor code and the
eleven spectral code books.

    python3 tools/gen_aac_huffman_tables.py

Reads tools/tables/aac_spectral_codebooks.txt and
tools/tables/aac_scalefactor_codebook.txt and writes
src/aac/generated/huffman_tables.cpp (declared, with the entry layout, in
src/aac/huffman_tables.h).

Each code becomes a multi-level lookup table of 32-bit entries: a root table
indexed by the next ROOT_BITS bits (SF_ROOT_BITS for the scale-factor code)
and sub-tables of at most SUB_BITS bits for the longer codes. In the
unsigned spectral books the sign bits that follow a code word are folded into
the entry wherever the code and its sign bits fit the level, so that one
lookup gives the signed tuple.
"""
import os

HERE = os.path.dirname(os.path.abspath(__file__))
REPO = os.path.dirname(HERE)
TABLES = os.path.join(HERE, "tables")
OUT = os.path.join(REPO, "src", "aac", "generated", "huffman_tables.cpp")

ROOT_BITS = 9
SUB_BITS = 6
SF_ROOT_BITS = 8

LINK = 1 << 31
SIGNED = 1 << 30
ESCAPE = 1 << 29


def records(name):
    with open(os.path.join(TABLES, name)) as f:
        for line in f:
            fields = line.split("#", 1)[0].split()
            if fields:
                yield fields


def read_books():
    books = {}
    cur = None
    for r in records("aac_spectral_codebooks.txt"):
        if r[0] == "book":
            kv = dict(zip(r[2::2], r[3::2]))
            cur = {"dim": int(kv["dim"]), "unsigned": kv["kind"] == "unsigned", "lav": int(kv["lav"]),
                   "entries": int(kv["entries"]), "codes": []}
            books[int(r[1])] = cur
        else:
            index, length, code = int(r[0]), int(r[1]), r[2]
            values = [int(v) for v in r[3:]]
            assert len(code) == length and index == len(cur["codes"]) and len(values) == cur["dim"]
            cur["codes"].append((code, values))
    assert sorted(books) == list(range(1, 12))
    for b in books.values():
        assert len(b["codes"]) == b["entries"]
    return books


def read_scale_factor_code():
    codes = []
    for r in records("aac_scalefactor_codebook.txt"):
        index, diff, length, code = int(r[0]), int(r[1]), int(r[2]), r[3]
        assert index == len(codes) and diff == index - 60 and len(code) == length
        codes.append((code, index))
    assert len(codes) == 121
    return codes


def check_complete(codes):
    """Prefix-free and complete (Kraft sum 1): every bit pattern decodes."""
    total = sum(2 ** (20 - len(c)) for c in codes)
    assert total == 2 ** 20, "incomplete code"
    s = sorted(codes)
    for a, b in zip(s, s[1:]):
        assert not b.startswith(a), "not prefix-free"


def field6(v):
    return v & 63


def tuple_entry(values, consumed, signed):
    e = (consumed << 24) | (SIGNED if signed else 0)
    for i, v in enumerate(values):
        e |= field6(v) << (6 * i)
    if any(abs(v) == 16 for v in values):
        e |= ESCAPE
    return e


def build(symbols, root_bits):
    """symbols: list of (code, payload, sign_count), where payload(sign_bits)
    gives the entry of the code followed by those sign bits (or, with
    sign_bits None, the entry without them). Returns the entry list."""
    out = []

    def put(index, value):
        assert out[index] is None
        out[index] = value

    def level(group, width):
        base = len(out)
        out.extend([None] * (1 << width))
        longer = {}
        for code, payload, signs in group:
            if len(code) > width:
                longer.setdefault(code[:width], []).append((code[width:], payload, signs))
            elif len(code) + signs <= width:
                pad = width - len(code) - signs
                for sign in range(1 << signs):
                    first = ((int(code, 2) << signs) | sign) << pad
                    for i in range(1 << pad):
                        put(base + first + i, payload(len(code) + signs, sign, signs))
            else:
                pad = width - len(code)
                first = int(code, 2) << pad
                for i in range(1 << pad):
                    put(base + first + i, payload(len(code), None, signs))
        for prefix, sub in sorted(longer.items()):
            sub_width = min(max(len(c) + s for c, _, s in sub), SUB_BITS)
            index = level(sub, sub_width)
            assert index < 65536 and 1 <= sub_width <= 15
            out[base + int(prefix, 2)] = LINK | (sub_width << 16) | index
        return base

    level(symbols, root_bits)
    assert None not in out
    return out


def spectral_symbols(book):
    symbols = []
    for code, values in book["codes"]:
        signs = sum(1 for v in values if v) if book["unsigned"] else 0

        def payload(consumed, sign_bits, signs, values=values, unsigned=book["unsigned"]):
            if not unsigned:
                return tuple_entry(values, consumed, True)
            if sign_bits is None:
                return tuple_entry(values, consumed, False)
            signed = []
            k = signs
            for v in values:
                if v:
                    k -= 1
                    v = -v if (sign_bits >> k) & 1 else v
                signed.append(v)
            return tuple_entry(signed, consumed, True)

        symbols.append((code, payload, signs))
    return symbols


def c_rows(rows, per_line=8):
    lines = []
    for i in range(0, len(rows), per_line):
        lines.append("    " + ", ".join("0x%08x" % v for v in rows[i:i + per_line]) + ",")
    return "\n".join(lines)


def main():
    books = read_books()
    sf = read_scale_factor_code()
    for b in books.values():
        check_complete([c for c, _ in b["codes"]])
    check_complete([c for c, _ in sf])

    entries = []
    info = [(0, 0, 0)]
    for n in range(1, 12):
        b = books[n]
        table = build(spectral_symbols(b), ROOT_BITS)
        info.append((len(entries), 4 if b["dim"] == 4 else 2, 1 if b["unsigned"] else 0))
        entries.extend(table)

    sf_table = build([(code, lambda consumed, s, n, index=index: (consumed << 24) | index, 0) for code, index in sf],
                     SF_ROOT_BITS)

    out = []
    out.append("// Generated by tools/gen_aac_huffman_tables.py from tools/tables/aac_spectral_codebooks.txt")
    out.append("// and tools/tables/aac_scalefactor_codebook.txt.")
    out.append("// Do not edit: change the generator or the table files and run it again.")
    out.append('#include "aac/huffman_tables.h"')
    out.append("")
    out.append("namespace nkp::aac {")
    out.append("")
    out.append("alignas(64) const uint32_t kSpectralLookup[%d] = {" % len(entries))
    out.append(c_rows(entries))
    out.append("};")
    out.append("")
    out.append("static_assert(kSpectralRootBits == %d && kScaleFactorRootBits == %d, \"the tables' root widths\");"
               % (ROOT_BITS, SF_ROOT_BITS))
    out.append("")
    out.append("const SpectralBook kSpectralBooks[12] = {")
    for n, (offset, dim, unsigned) in enumerate(info):
        out.append("    {%d, %d, %d},  // book %d" % (offset, dim, unsigned, n))
    out.append("};")
    out.append("")
    out.append("alignas(64) const uint32_t kScaleFactorLookup[%d] = {" % len(sf_table))
    out.append(c_rows(sf_table))
    out.append("};")
    out.append("")
    out.append("}  // namespace nkp::aac")
    text = "\n".join(out) + "\n"
    os.makedirs(os.path.dirname(OUT), exist_ok=True)
    with open(OUT, "w") as f:
        f.write(text)
    print("spectral lookup: %d entries, scale-factor lookup: %d entries" % (len(entries), len(sf_table)))


if __name__ == "__main__":
    main()
