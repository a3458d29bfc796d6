// Computed constants of the MP3 decoder steps (generated into
// decoder_tables.cpp by tools/gen_mp3_decoder_tables.py) and the synthesis
// window (synthesis_window.cpp, made by tools/fit_synthesis_window.cpp).
#pragma once

#include <cstdint>

namespace nkp::mp3 {

// Fixed-point scale of the requantised spectrum and of the subband samples
// between the inverse MDCT and the synthesis: 1.0 is 2^25.
constexpr int kSpectrumFracBits = 25;

// |q|^(4/3) for q = 0..8206, the largest magnitude a Huffman table with
// linbits can produce.
constexpr int kPow43Count = 8207;
extern const double kPow43[kPow43Count];
// 2^(r/4), r = 0..3.
extern const double kQuarterPow2[4];

// Alias-reduction butterflies: cs = 1/sqrt(1 + c^2), ca = c/sqrt(1 + c^2).
extern const double kAliasCs[8];
extern const double kAliasCa[8];

// The 36-point inverse MDCT as an 18 x 18 matrix from the pre-added inputs
// to the 18 distinct outputs, stored input-major ([j][r]); output n of the
// 36 is distinct output kImdctLongMap[n] times kImdctLongWindow[type][n]
// (the window with the symmetry's sign folded in). Types: 0 normal,
// 1 start, 2 stop.
extern const double kImdctLong[18 * 18];
extern const uint8_t kImdctLongMap[36];
extern const double kImdctLongWindow[3][36];

// The windowed 12-point inverse MDCT of a short block, [n][k], n = 0..11.
extern const double kImdctShort[12 * 6];

// The synthesis filter's 32-point cosine transform split into its even
// outputs (from s_k + s_(31-k)) and odd ones (from s_k - s_(31-k)), [k][p].
extern const float kSynthesisEven[16 * 16];
extern const float kSynthesisOdd[16 * 16];

// The synthesis window in the order the filter walks it: entry 64 * i + j
// weighs V slot 2i (j < 32) or slot 2i + 1 (j >= 32), already scaled from
// subband samples at 2^kSpectrumFracBits to 16-bit PCM units.
extern const float kSynthesisWindow[512];

}  // namespace nkp::mp3
