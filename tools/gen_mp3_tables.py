#!/usr/bin/env python3
"""Generates the MP3 tables of the library from the standard's tables.

    python3 tools/gen_mp3_tables.py

Reads tools/tables/mp3_*.txt and writes src/mp3/generated/tables.cpp and
huffman_tables.cpp (declared in src/mp3/tables.h) and synthesis_window.cpp
(declared in src/mp3/decoder_tables.h).

The big-value Huffman codes become multi-level lookup tables of 16-bit
entries (see src/mp3/tables.h for the entry layout): a root table indexed by
the next ROOT_BITS bits (fewer for short codes), and sub-tables of at most
SUB_BITS bits for longer codes.
"""
import os

ROOT_BITS = 8
SUB_BITS = 5

HERE = os.path.dirname(os.path.abspath(__file__))
REPO = os.path.dirname(HERE)
TABLES = os.path.join(HERE, "tables")
OUT = os.path.join(REPO, "src", "mp3", "generated")


def records(path):
    with open(path) as f:
        for line in f:
            line = line.split("#", 1)[0].split()
            if line:
                yield line


def read_pairs(d):
    tables = {}
    cur = None
    for rec in records(os.path.join(d, "mp3_huffman_pairs.txt")):
        if rec[0] == "table":
            kv = dict(zip(rec[2::2], rec[3::2]))
            n = int(rec[1])
            cur = {"n": n, "xlen": int(kv["xlen"]), "linbits": int(kv["linbits"]),
                   "codes": kv["codes"], "entries": []}
            tables[n] = cur
        else:
            x, y, length, code = int(rec[0]), int(rec[1]), int(rec[2]), rec[3]
            assert len(code) == length
            cur["entries"].append((x, y, code))
    assert sorted(tables) == list(range(32))
    return tables


def read_quads(d):
    quads = {}
    cur = None
    for rec in records(os.path.join(d, "mp3_huffman_quads.txt")):
        if rec[0] == "table":
            cur = quads.setdefault(rec[1], [])
        else:
            v, w, x, y, length, code = rec
            assert len(code) == int(length)
            cur.append((int(v) * 8 + int(w) * 4 + int(x) * 2 + int(y), code))
    return quads


def read_bands(d):
    bands = {"long": {}, "short": {}}
    for rec in records(os.path.join(d, "mp3_sfb_bands.txt")):
        bands[rec[0]][int(rec[1])] = [int(v) for v in rec[2:]]
    return bands


def read_sf_tables(d):
    nsfb = {}
    other = {}
    for rec in records(os.path.join(d, "mp3_scalefactor_tables.txt")):
        if rec[0] == "nsfb":
            nsfb[(int(rec[1]), rec[2])] = [int(v) for v in rec[3:]]
        else:
            other[rec[0]] = [int(v) for v in rec[1:]]
    return nsfb, other


def read_header_tables(d):
    bitrate = {}
    rate = {}
    for rec in records(os.path.join(d, "mp3_header_tables.txt")):
        if rec[0] == "bitrate":
            bitrate[(rec[1], int(rec[2]))] = [int(v) for v in rec[3:]]
        else:
            rate[rec[1]] = [int(v) for v in rec[2:]]
    return bitrate, rate


def s5(v):
    return v & 31


def build_lookup(codes, root_bits, escapes):
    """codes: list of (code string, x, y). Returns a list of 16-bit entries:
    complete pair = 0x4000 | len << 10 | x << 5 | y, with x and y signed
    5-bit values and len the bits consumed at this level including the sign
    bits (only where no escape can follow and the sign bits fit the level);
    raw leaf = len << 8 | x << 4 | y (magnitudes; signs and escapes follow);
    link = 0x8000 | (width - 1) << 12 | index of the sub-table."""
    out = []

    def put(index, value):
        assert out[index] is None
        out[index] = value

    def build(group, width):
        base = len(out)
        out.extend([None] * (1 << width))
        subgroups = {}
        for code, x, y in group:
            if len(code) <= width:
                signs = (x != 0) + (y != 0)
                escape = escapes and (x == 15 or y == 15)
                if not escape and len(code) + signs <= width:
                    pad = width - len(code) - signs
                    for sign in range(1 << signs):
                        sx = -x if x and (sign >> (signs - 1)) & 1 else x
                        sy = -y if y and sign & 1 else y
                        first = ((int(code, 2) << signs) | sign) << pad
                        entry = 0x4000 | ((len(code) + signs) << 10) | (s5(sx) << 5) | s5(sy)
                        for i in range(1 << pad):
                            put(base + first + i, entry)
                else:
                    pad = width - len(code)
                    first = int(code, 2) << pad
                    for i in range(1 << pad):
                        put(base + first + i, (len(code) << 8) | (x << 4) | y)
            else:
                subgroups.setdefault(int(code[:width], 2), []).append((code[width:], x, y))
        for prefix, sub in sorted(subgroups.items()):
            sub_width = min(max(len(c) for c, _, _ in sub), SUB_BITS)
            index = build(sub, sub_width)
            assert index < 4096 and 1 <= sub_width <= 8
            out[base + prefix] = 0x8000 | ((sub_width - 1) << 12) | index
        return base

    build(codes, root_bits)
    assert None not in out, "incomplete code"
    return out


def c_rows(rows, indent="    ", per_line=12):
    lines = []
    for i in range(0, len(rows), per_line):
        lines.append(indent + ", ".join(str(v) for v in rows[i:i + per_line]) + ",")
    return "\n".join(lines)


GENERATED = ("// Generated by tools/gen_mp3_tables.py from tools/tables/mp3_*.txt. Do not edit:\n"
             "// change the generator or the table files and run it again.\n")


def main():
    d = TABLES
    os.makedirs(OUT, exist_ok=True)
    pairs = read_pairs(d)
    quads = read_quads(d)
    bands = read_bands(d)
    nsfb, sf_other = read_sf_tables(d)
    bitrate, rate = read_header_tables(d)

    # ---- Huffman ---------------------------------------------------------
    entries = []
    info = []  # per table number: (offset, root bits, linbits, has code)
    code_tables = {}
    for n in range(32):
        t = pairs[n]
        if t["codes"] == "none":
            info.append((0, 0, 0))
            continue
        src = int(t["codes"])
        if src not in code_tables:
            codes = [(code, x, y) for x, y, code in pairs[src]["entries"]]
            root = min(ROOT_BITS, max(len(c) for c, _, _ in codes))
            lookup = build_lookup(codes, root, t["linbits"] > 0)
            code_tables[src] = (len(entries), root)
            entries.extend(lookup)
        offset, root = code_tables[src]
        info.append((offset, root, t["linbits"]))
    assert len(entries) < 65536

    # Quadruples with their sign bits: indexed by the next 10 (table A) or
    # 8 (table B) bits, entry = total bits << 12 | four 2-bit signed values.
    def quad_lookup(codes, width):
        out = [None] * (1 << width)
        for value, code in codes:
            mags = [(value >> (3 - j)) & 1 for j in range(4)]
            signs = sum(mags)
            pad = width - len(code) - signs
            for sign in range(1 << signs):
                entry = (len(code) + signs) << 12
                k = signs
                for j in range(4):
                    v = 0
                    if mags[j]:
                        k -= 1
                        v = 3 if (sign >> k) & 1 else 1
                    entry |= v << (2 * (3 - j))
                first = ((int(code, 2) << signs) | sign) << pad
                for i in range(1 << pad):
                    assert out[first + i] is None
                    out[first + i] = entry
        assert None not in out
        return out

    for value, code in quads["B"]:
        assert int(code, 2) == 15 - value and len(code) == 4
    quad_a = quad_lookup(quads["A"], 10)
    quad_b = quad_lookup(quads["B"], 8)

    with open(os.path.join(OUT, "huffman_tables.cpp"), "w") as f:
        f.write(GENERATED)
        f.write("#include \"mp3/tables.h\"\n\nnamespace nkp::mp3 {\n\n")
        f.write("alignas(64) const uint16_t kHuffmanLookup[%d] = {\n%s\n};\n\n" % (len(entries), c_rows(entries)))
        f.write("const HuffmanTable kHuffmanTables[32] = {\n")
        for n, (offset, root, linbits) in enumerate(info):
            f.write("    {%d, %d, %d},  // table %d\n" % (offset, root, linbits, n))
        f.write("};\n\n")
        f.write("alignas(64) const uint16_t kCount1TableA[1024] = {\n%s\n};\n\n" % c_rows(quad_a, per_line=16))
        f.write("alignas(64) const uint16_t kCount1TableB[256] = {\n%s\n};\n\n" % c_rows(quad_b, per_line=16))
        f.write("}  // namespace nkp::mp3\n")

    # ---- bands and side tables ------------------------------------------
    rates = rate["mpeg1"] + rate["mpeg2"] + rate["mpeg25"]
    long_rows = [bands["long"][hz] for hz in rates]
    short_rows = [bands["short"][hz] for hz in rates]
    assert all(len(r) == 23 and r[-1] == 576 for r in long_rows)
    assert all(len(r) == 14 and r[-1] == 192 for r in short_rows)
    kinds = ["long", "short", "mixed"]
    l3_mpeg1 = bitrate[("mpeg1", 3)]
    frame_bytes = [[144000 * br // hz for br in l3_mpeg1] for hz in rate["mpeg1"]]

    with open(os.path.join(OUT, "tables.cpp"), "w") as f:
        f.write(GENERATED)
        f.write("#include \"mp3/tables.h\"\n\nnamespace nkp::mp3 {\n\n")
        f.write("const int32_t kSampleRateHz[9] = {%s};\n\n" % ", ".join(map(str, rates)))
        f.write("alignas(16) const int16_t kSfbLong[9][23] = {\n")
        for hz, r in zip(rates, long_rows):
            f.write("    {%s},  // %d Hz\n" % (", ".join(map(str, r)), hz))
        f.write("};\n\nalignas(16) const int16_t kSfbShort[9][14] = {\n")
        for hz, r in zip(rates, short_rows):
            f.write("    {%s},  // %d Hz\n" % (", ".join(map(str, r)), hz))
        f.write("};\n\nconst uint8_t kLsfPartitionBands[6][3][4] = {\n")
        for row in range(6):
            f.write("    {%s},\n" % ", ".join("{%s}" % ", ".join(map(str, nsfb[(row, k)])) for k in kinds))
        f.write("};\n\n")
        f.write("const uint8_t kSlen[2][16] = {\n    {%s},\n    {%s},\n};\n\n"
                % (", ".join(map(str, sf_other["slen1"])), ", ".join(map(str, sf_other["slen2"]))))
        f.write("const uint8_t kPretab[22] = {%s};\n\n" % ", ".join(map(str, sf_other["pretab"])))
        f.write("const int16_t kBitrateKbps[2][3][15] = {\n")
        for std in ["lsf", "mpeg1"]:
            f.write("    {\n")
            for layer in (1, 2, 3):
                f.write("        {%s},\n" % ", ".join(map(str, bitrate[(std, layer)])))
            f.write("    },\n")
        f.write("};\n\n")
        f.write("const int16_t kReservoirFrameBytes[3][15] = {\n")
        for row in frame_bytes:
            f.write("    {%s},\n" % ", ".join(map(str, row)))
        f.write("};\n\n}  // namespace nkp::mp3\n")

    # ---- the synthesis window ---------------------------------------------
    # D[i] of the standard as integers of 2^-16, in the filter's walking
    # order (entry 64 i + j weighs V slot 2i for j < 32, slot 2i + 1 for
    # j >= 32: the standard's own index), scaled from subband samples at
    # 2^25 to 16-bit PCM units: D * 2^15 / 2^25 = value * 2^-26, exact in float.
    window = {}
    for rec in records(os.path.join(d, "mp3_synthesis_window.txt")):
        window[int(rec[0])] = int(rec[1])
    assert sorted(window) == list(range(512))
    assert all(abs(v) < 2 ** 24 for v in window.values())
    with open(os.path.join(OUT, "synthesis_window.cpp"), "w") as f:
        f.write(GENERATED)
        f.write("#include \"mp3/decoder_tables.h\"\n\nnamespace nkp::mp3 {\n\n")
        f.write("// D[i] * 2^-26: the standard's window, scaled from subband samples at 2^25\n")
        f.write("// to 16-bit PCM units.\n")
        f.write("alignas(16) const float kSynthesisWindow[512] = {\n")
        for i in range(0, 512, 8):
            f.write("    %s,\n" % ", ".join("%d * 0x1p-26f" % window[k] for k in range(i, i + 8)))
        f.write("};\n\n}  // namespace nkp::mp3\n")


if __name__ == "__main__":
    main()
