// The spreading function of MPEG-1 psychoacoustic model 2, in fixed point
// with 23 fraction bits (Q23), from the distance between two bands.
#include "frame/exports.h"
#include "vector/tables.h"

namespace nkp {
namespace {

using namespace vector_tables;

constexpr int64_t kOne = int64_t{1} << 23;
constexpr int64_t kUpperLimit = 0x6000000;   // +12.0
constexpr int64_t kLowerLimit = -0x3000000;  // -6.0
constexpr int64_t kOffset = 3979066;         // 0.4743416
constexpr int64_t kPeak = 132635538;         // 15.811389
constexpr int64_t kSlope = 0x8C00000;        // 17.5
constexpr int64_t kSqrt2 = 1518500250;       // Q30
constexpr int64_t kLog2Of10Over10 = 356689313;  // log2(10)/10, Q30

// Bit length of a non-zero 64-bit value.
inline int bit_length(uint64_t v) {
    int n = 0;
    for (; v; v >>= 1) ++n;
    return n;
}

// sqrt(n) for a Q46 argument, as Q23. n = mant * 2^len with mant in
// [0.5, 1); 1/sqrt(mant) starts from a quadratic through the Chebyshev
// nodes of [0.5, 1] (relative error 3.6e-3) and takes two Newton steps
// (about 6e-10); sqrt(mant) = mant * that; odd lengths take a factor sqrt(2).
int64_t sqrt_q46_to_q23(uint64_t n) {
    const int len = bit_length(n);
    const int64_t mant = static_cast<int64_t>(len > 30 ? n >> (len - 30) : n << (30 - len));  // Q30
    // Horner in Q30; intermediate values go negative and the arithmetic
    // shifts are intended.
    int64_t r = 880516028;  // Q30 coefficients: 2.22552 - 2.04279 x + 0.82004 x^2
    r = ((r * mant) >> 30) - 2193432813LL;
    r = ((r * mant) >> 30) + 2389634606LL;
    for (int k = 0; k < 2; ++k) {
        const int64_t r2 = (r * r) >> 30;
        const int64_t mr2 = (mant * r2) >> 30;
        r = (r * ((int64_t{3} << 30) - mr2)) >> 31;
    }
    int64_t s = (mant * r) >> 30;  // sqrt(mant), Q30
    if (len & 1) s = (s * kSqrt2) >> 30;
    const int down = 30 - len / 2;  // 3..7 for this function's arguments
    return (s + (int64_t{1} << (down - 1))) >> down;
}

// 32768 * 2^(-w) for w >= 0 in Q23, rounded, limited to 32767. w is
// rounded to 16 fraction bits and split into an integer part (a shift)
// and two 8-bit parts, each with its own table.
int16_t pow2_neg_q15(int64_t w) {
    const int64_t w16 = (w + 64) >> 7;
    const int64_t whole = w16 >> 16;
    if (whole > 16) return 0;
    const uint64_t hi = kPow2NegCoarse[(w16 >> 8) & 0xFF];
    const uint64_t lo = kPow2NegFine[w16 & 0xFF];
    const uint64_t v = (hi * lo + (uint64_t{1} << 29)) >> 30;  // Q30
    const int down = 15 + static_cast<int>(whole);
    const uint64_t out = (v + (uint64_t{1} << (down - 1))) >> down;
    return static_cast<int16_t>(out > 32767 ? 32767 : out);
}

int16_t spread(int32_t d, int32_t scale) {
    // t = 3d (d >= 0) or 1.5d (d < 0) on the spreading axis, in Q23.
    const int64_t three_d = 3 * static_cast<int64_t>(d);
    const int64_t shift = static_cast<int64_t>(scale) + 23 - (d < 0 ? 1 : 0);
    int64_t t;
    if (d == 0) {
        t = 0;
    } else if (shift >= 0) {
        if (shift > 40) return 0;  // any non-zero distance is far outside the range
        t = three_d * (int64_t{1} << shift);
    } else {
        const int64_t down = -shift;
        // Rounded right shift; arithmetic shift of negative values intended.
        t = down > 40 ? 0 : (three_d + (int64_t{1} << (down - 1))) >> down;
    }
    if (t > kUpperLimit || t < kLowerLimit) return 0;

    const int64_t a = t - kOne / 2;
    int64_t x = ((a * a) >> 23) - 2 * a;
    x = 8 * (x < 0 ? x : 0);

    const int64_t u = t + kOffset;
    const int64_t root = sqrt_q46_to_q23(static_cast<uint64_t>(kOne * kOne + u * u));
    // 7.5u as (15u) >> 1: arithmetic shift of negative u intended (floor).
    const int64_t y = kPeak + ((15 * u) >> 1) - ((kSlope * root) >> 23);

    // 10^(z/10) = 2^(-w) with w = -z * log2(10)/10.
    const int64_t z = x + y;
    if (z >= 0) return 32767;
    const int64_t w = (-z * kLog2Of10Over10 + (int64_t{1} << 29)) >> 30;
    return pow2_neg_q15(w);
}

}  // namespace

nkpStatus nkpsSpread_16s_Sfs(nkp16s first, nkp16s second, int scaleFactor, nkp16s* pDst) {
    if (!pDst) return nkpStatusNullPointer;
    *pDst = spread(static_cast<int32_t>(second) - first, scaleFactor);
    return nkpStatusOk;
}

}  // namespace nkp
