// Computed constants of the MP3 decoder steps (generated into
// generated/decoder_tables.cpp by tools/gen_mp3_decoder_tables.py) and the
// standard's synthesis window (generated/synthesis_window.cpp, by
// tools/gen_mp3_tables.py from tools/tables/mp3_synthesis_window.txt).
#pragma once

#include "common/pow43.h"

#include <cstdint>

namespace nkp::mp3 {

// Fixed-point scale of the requantised spectrum and of the subband samples
// between the inverse MDCT and the synthesis: 1.0 is 2^25.
constexpr int kSpectrumFracBits = 25;

// |q|^(4/3) for q = 0..8206 is the shared kPow43 (common/pow43.h).
// 2^(r/4), r = 0..3.
extern const double kQuarterPow2[4];

// Alias-reduction butterflies, halved: cs/2 and ca/2 with cs = 1/sqrt(1 + c^2),
// ca = c/sqrt(1 + c^2).
extern const double kAliasHalfCs[8];
extern const double kAliasHalfCa[8];

// The 36-point inverse MDCT from the pre-added inputs z to its 18 distinct
// outputs u. With G_m = sum_k cos(k pi (2m+1) / 18) z_(2k) (and the same
// over the odd z_(2k+1)), for r < 9 and m = 8 - r: u[r] = mix[r][0] G.even
// + mix[r][1] G.odd, u[r + 9] = mix[r][2] G.even + mix[r][3] G.odd.
// G_(8-m) equals G_m with its odd-k terms negated. kImdctCos holds the
// cosines of m = 0..3, k = 0..8, each twice (one per SIMD lane).
// Output n of the 36 is u[n], u[17 - n], u[n - 9] or u[44 - n] for the four
// quarters of n, times kImdctLongWindow[type][n] (the window with the
// symmetry's sign folded in). Types: 0 normal, 1 start, 2 stop.
extern const double kImdctCos[4 * 9 * 2];
extern const double kImdctMix[9][4];
extern const double kImdctLongWindow[3][36];

// The windowed 12-point inverse MDCT of a short block, [n][k], n = 0..11.
extern const double kImdctShort[12 * 6];

// The synthesis filter's 32-point cosine transform c(m) = sum_k s_k
// cos(m (2k+1) pi / 64), split recursively: even outputs are the half-size
// transform of s_k + s_(N-1-k), odd ones come from the half-size transform
// of (s_k - s_(N-1-k)) / (2 cos(pi (2k+1) / 2N)) by adding neighbours. The
// factors for N = 32, 16, 8, 4, 2 follow one another (N/2 each).
extern const float kDctFactors[31];

// The standard's synthesis window D[0..511] in the order the filter walks
// it: entry 64 * i + j weighs V slot 2i (j < 32) or slot 2i + 1 (j >= 32),
// already scaled from subband samples at 2^kSpectrumFracBits to 16-bit PCM
// units (D * 2^15 / 2^25, exact in float).
extern const float kSynthesisWindow[512];

}  // namespace nkp::mp3
