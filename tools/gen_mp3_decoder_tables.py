#!/usr/bin/env python3
"""Generates the computed constants of the MP3 decoder steps.

    python3 tools/gen_mp3_decoder_tables.py

Writes src/mp3/generated/decoder_tables.cpp (declared in
src/mp3/decoder_tables.h): alias-reduction butterflies, inverse-MDCT matrices
and windows, the synthesis filter's cosine-transform factors. (|q|^(4/3) is
the shared table of tools/gen_common_tables.py.) Standard library only; reads
nothing.
"""
import math
import os
from decimal import Decimal, getcontext
from fractions import Fraction

getcontext().prec = 50


def d(x):
    return repr(float(x))


def rows(values, per_line=4, fmt=d):
    out = []
    for i in range(0, len(values), per_line):
        out.append("    " + ", ".join(fmt(v) for v in values[i:i + per_line]) + ",")
    return "\n".join(out)


# 2^(r/4), r = 0..3.
quarter = [float((Decimal(2).ln() * r / 4).exp()) for r in range(4)]

# Alias-reduction butterflies.
C = [-0.6, -0.535, -0.33, -0.185, -0.095, -0.041, -0.0142, -0.0037]
cs = [1.0 / math.sqrt(1.0 + c * c) for c in C]
ca = [c / math.sqrt(1.0 + c * c) for c in C]

# Long transform. u[r] are the 18 distinct outputs of the 36-point inverse
# MDCT: n = r for r < 9, n = r + 9 otherwise. The input is the pre-added
# vector z = P x; B = A P^-1 works on z directly.
def pre_add_matrix():
    # x -> y: y0 = x0, yi = xi + x(i-1); y -> z: z1 = y1, zi = yi + y(i-2) for odd i >= 3.
    Y = [[Fraction(0)] * 18 for _ in range(18)]
    for i in range(18):
        Y[i][i] += 1
        if i > 0:
            Y[i][i - 1] += 1
    Z = [[Fraction(0)] * 18 for _ in range(18)]
    for i in range(18):
        Z[i][i] += 1
        if i % 2 == 1 and i >= 3:
            Z[i][i - 2] += 1
    return [[sum(Z[i][k] * Y[k][j] for k in range(18)) for j in range(18)] for i in range(18)]


def invert(M):
    n = len(M)
    A = [row[:] + [Fraction(int(i == j)) for j in range(n)] for i, row in enumerate(M)]
    for c in range(n):
        p = next(r for r in range(c, n) if A[r][c] != 0)
        A[c], A[p] = A[p], A[c]
        inv = 1 / A[c][c]
        A[c] = [v * inv for v in A[c]]
        for r in range(n):
            if r != c and A[r][c] != 0:
                f = A[r][c]
                A[r] = [a - f * b for a, b in zip(A[r], A[c])]
    return [row[n:] for row in A]


Pinv = invert(pre_add_matrix())
A = [[math.cos(math.pi / 72 * (2 * (r if r < 9 else r + 9) + 19) * (2 * k + 1)) for k in range(18)]
     for r in range(18)]
B = [[math.fsum(A[r][k] * float(Pinv[k][j]) for k in range(18)) for j in range(18)] for r in range(18)]
# B factors: row r and row r + 9 (r < 9) apply one 9-tap pattern to the even
# and to the odd pre-added inputs, and that pattern is p_r[0] cos(k pi
# (2m+1) / 18), m = 8 - r: G_m = sum_k cos(k pi (2m+1) / 18) z_(2k) (and the
# same of z_(2k+1)) gives u[r] = mix[r][0] G_m.even + mix[r][1] G_m.odd and
# u[r + 9] = mix[r][2] G_m.even + mix[r][3] G_m.odd. G_(8-m) is G_m with the
# odd taps negated, so only m = 0..3 need multiplications (m = 4 is
# z0 - z4 + z8 - ...). kImdctCos holds cos(k pi (2m+1) / 18) for m = 0..3,
# k = 0..8, each twice (both SIMD lanes).
cos9 = []
for m in range(4):
    cos9 += [math.cos(k * math.pi * (2 * m + 1) / 18) for k in range(9) for _ in range(2)]
mix = []
for r in range(9):
    m = 8 - r
    p0 = B[r][0]
    for k in range(9):
        c = math.cos(k * math.pi * (2 * m + 1) / 18)
        assert abs(B[r][2 * k] - p0 * c) < 1e-12 * max(1.0, abs(B[r][2 * k]))
        assert abs(B[r][2 * k + 1] - B[r][1] * c) < 1e-12 * max(1.0, abs(B[r][2 * k + 1]))
        assert abs(B[r + 9][2 * k] - B[r + 9][0] * c) < 1e-12 * max(1.0, abs(B[r + 9][2 * k]))
        assert abs(B[r + 9][2 * k + 1] - B[r + 9][1] * c) < 1e-12 * max(1.0, abs(B[r + 9][2 * k + 1]))
    mix += [B[r][0], B[r][1], B[r + 9][0], B[r + 9][1]]


def window(kind, n):
    long_w = math.sin(math.pi / 36 * (n + 0.5))
    if kind == 0:
        return long_w
    if kind == 1:  # start
        if n < 18:
            return long_w
        if n < 24:
            return 1.0
        if n < 30:
            return math.sin(math.pi / 12 * (n - 18 + 0.5))
        return 0.0
    # stop
    if n < 6:
        return 0.0
    if n < 12:
        return math.sin(math.pi / 12 * (n - 6 + 0.5))
    if n < 18:
        return 1.0
    return long_w


# Output n takes u[map(n)] with a sign: the first half of the 36 outputs is
# odd-symmetric, the second half even-symmetric.
def out_map(n):
    if n < 9:
        return n, 1.0
    if n < 18:
        return 17 - n, -1.0
    if n < 27:
        return n - 9, 1.0
    return 44 - n, 1.0


long_win = []
for kind in range(3):
    long_win += [out_map(n)[1] * window(kind, n) for n in range(36)]

# Short transform: 12 windowed outputs from 6 values, [n][k].
short_m = [math.sin(math.pi / 12 * (n + 0.5)) * math.cos(math.pi / 24 * (2 * n + 7) * (2 * k + 1))
           for n in range(12) for k in range(6)]



# Factors 1/(2 cos(pi (2k+1) / (2N))) of the recursive 32-point cosine
# transform, for N = 32, 16, 8, 4, 2 one after the other (N/2 each).
dct_factors = []
for n in (32, 16, 8, 4, 2):
    dct_factors += [0.5 / math.cos(math.pi * (2 * k + 1) / (2 * n)) for k in range(n // 2)]


def f(x):
    return repr(float(x)) + "f"


out = []
out.append("// Generated by tools/gen_mp3_decoder_tables.py. Do not edit: change the generator and")
out.append("// run it again.")
out.append('#include "mp3/decoder_tables.h"')
out.append("")
out.append("namespace nkp::mp3 {")
out.append("")
out.append("const double kQuarterPow2[4] = {%s};" % ", ".join(d(v) for v in quarter))
out.append("")
out.append("const double kAliasHalfCs[8] = {%s};" % ", ".join(d(v / 2) for v in cs))
out.append("const double kAliasHalfCa[8] = {%s};" % ", ".join(d(v / 2) for v in ca))
out.append("")
out.append("alignas(16) const double kImdctCos[4 * 9 * 2] = {")
out.append(rows(cos9, 6))
out.append("};")
out.append("")
out.append("alignas(16) const double kImdctMix[9][4] = {")
out.append(rows(mix, 4))
out.append("};")
out.append("")
out.append("alignas(16) const double kImdctLongWindow[3][36] = {")
out.append(rows(long_win, 4))
out.append("};")
out.append("")
out.append("alignas(16) const double kImdctShort[12 * 6] = {")
out.append(rows(short_m, 6))
out.append("};")
out.append("")
out.append("alignas(16) const float kDctFactors[31] = {")
out.append(rows(dct_factors, 4, f))
out.append("};")
out.append("")
out.append("}  // namespace nkp::mp3")
OUT = os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "src", "mp3", "generated",
                   "decoder_tables.cpp")
os.makedirs(os.path.dirname(OUT), exist_ok=True)
with open(OUT, "w") as f:
    f.write("\n".join(out) + "\n")
