// Sine, cosine and tangent for building tables at Init, the same to the last
// bit on every platform: no C runtime call, only IEEE double +, -, *, / in a
// fixed order, so that Linux and Windows builds store identical tables.
//
// Angles are given as exact ratios of a full turn, 2 pi k / n. The ratio is
// reduced with integer arithmetic (k modulo n, then to an angle of at most
// pi/4 from a multiple of pi/2), so that
//   - multiples of a quarter turn give exactly 0, 1 or -1 (zeros are +0.0),
//     odd multiples of an eighth turn give exactly +-sqrt(1/2) (the double
//     nearest to it) for both sine and cosine;
//   - tables are exactly symmetric: sin(2 pi (n - k)/n) == -sin(2 pi k/n),
//     cos(2 pi (n/4 - k)/n) == sin(2 pi k/n), and so on;
//   - the value depends only on the rational k/n, not on how it is written
//     (k/n and 3k/3n give the same bits).
// Accuracy: within 1 ulp of the exact value (at most 0.56 ulp measured).
// Valid for 1 <= n <= 2^53 and any k; other n give a quiet NaN.
#pragma once

#include <cstdint>

namespace nkp {

double sin_2pi_ratio(int64_t k, int64_t n);
double cos_2pi_ratio(int64_t k, int64_t n);
void sincos_2pi_ratio(int64_t k, int64_t n, double* s, double* c);
// tan(2 pi k / n); an odd multiple of a quarter turn gives +-infinity.
double tan_2pi_ratio(int64_t k, int64_t n);

}  // namespace nkp
