// The power laws: x^(3/4) through the reciprocal-square-root estimate and in
// fixed point, x^(4/3) as float and in the requantiser's integer scale.
#include "nkpac.h"
#include "vector/vector_test_util.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>
#include <xmmintrin.h>

namespace {

using nkptest::Buffer;

// The largest float the estimate treats as zero (1.0e-37 rounded), and the next.
constexpr float kZeroBelow = std::bit_cast<float>(0x02081CEAu), kAbove = std::bit_cast<float>(0x02081CEBu);

// ---- Pow34 with the processor's estimate ----------------------------------

// What this processor's rsqrtss gives for a * r(a) * r(r(a)).
float pow34_estimate(float x) {
    const float a = std::fabs(x);
    if (!(a > kZeroBelow)) return 0.0f;
    const float r1 = _mm_cvtss_f32(_mm_rsqrt_ss(_mm_set_ss(a)));
    const float r2 = _mm_cvtss_f32(_mm_rsqrt_ss(_mm_set_ss(r1)));
    return a * r1 * r2;
}

// Both forms carry the estimate, unrefined: equal to the same sequence of
// rsqrt instructions, the 16-bit form saturated (infinity included) and
// rounded; at most 1.0e-37, and NaN, give 0.
TEST(Pow34, UsesTheProcessorEstimate) {
    const int n = 1023;  // odd: the tail runs too
    Buffer<float> src(n), dst(n);
    Buffer<int16_t> dst16(n);
    for (int i = 0; i < n; ++i) {
        const float mag = std::ldexp(nkptest::random_float(1.0f, 2.0f), nkptest::random_int(-120, 24));
        src[i] = (i & 1) ? -mag : mag;
    }
    const float inf = std::numeric_limits<float>::infinity();
    const float specials[] = {0.0f, kZeroBelow, -kAbove, 1.0e-38f, 1e9f, 16.0f, -inf,
                              std::numeric_limits<float>::quiet_NaN()};
    std::copy(std::begin(specials), std::end(specials), src.data());
    ASSERT_EQ(nkpsPow34_32f(src.data(), dst.data(), n), nkpStatusOk);
    ASSERT_EQ(nkpsPow34_32f16s(src.data(), dst16.data(), n), nkpStatusOk);
    EXPECT_GT(dst[2], 0.0f);  // just above the threshold
    for (int i = 0; i < n; ++i) {
        const float est = pow34_estimate(src[i]);
        ASSERT_TRUE(std::isnan(est) ? std::isnan(dst[i]) : dst[i] == est) << src[i];
        ASSERT_EQ(dst16[i], static_cast<int16_t>(std::nearbyint(est < 32767.0f ? est : 32767.0f))) << src[i];
    }
}

// With every exception unmasked and round-up set, 0 and infinity (0 * inf
// inside) neither trap nor change the caller's MXCSR.
TEST(Pow34, MasksExceptionsAndRestoresTheCallersMode) {
    const unsigned saved = _mm_getcsr();
    const unsigned strict = (saved & ~0x1F80u & ~0x6000u) | 0x4000u;  // unmasked, round up
    alignas(16) float src[5] = {0.0f, std::numeric_limits<float>::infinity(), 2.0f, 1e-30f, 3.0f}, d[5];
    alignas(16) int16_t d16[5];
    _mm_setcsr(strict);
    const nkpStatus a = nkpsPow34_32f(src, d, 5);
    const unsigned after_a = _mm_getcsr();
    _mm_setcsr(strict);
    const nkpStatus b = nkpsPow34_32f16s(src, d16, 5);
    const unsigned after_b = _mm_getcsr();
    _mm_setcsr(saved);
    EXPECT_TRUE(a == nkpStatusOk && b == nkpStatusOk);
    EXPECT_EQ(after_a & ~0x3Fu, strict & ~0x3Fu);
    EXPECT_EQ(after_b & ~0x3Fu, strict & ~0x3Fu);
    EXPECT_EQ(d16[4], 2);  // 2.28 rounds to nearest even under round-up
}

// ---- Pow34 in fixed point -----------------------------------------------------

// Against (|x| 2^in)^(3/4) 2^-out in double: rounded to nearest and
// saturated, except within 0.02 of a rounding boundary (the interpolated
// table's error), where either neighbour is accepted.
TEST(Pow34Sfs, WithinInterpolationErrorOfTheExactPower) {
    std::vector<int16_t> src(65536);
    for (int i = 0; i < 65536; ++i) src[i] = static_cast<int16_t>(i - 32768);
    std::vector<int16_t> dst(src.size());
    int near_boundary = 0;
    for (int in : {0, -3, 4, 7, -12}) {
        for (int out : {0, 2, -5, 3}) {
            ASSERT_EQ(nkpsPow34_16s_Sfs(src.data(), in, dst.data(), out, 65536), nkpStatusOk);
            for (int i = 0; i < 65536; ++i) {
                const double m = std::fabs(double(src[i]));
                const double exact = std::pow(m * std::ldexp(1.0, in), 0.75) * std::ldexp(1.0, -out);
                if (exact < 1.5) {  // 0 stays 0; tiny results may come out as 1 or 2 (the held shift below)
                    ASSERT_TRUE(dst[i] >= std::nearbyint(exact) && dst[i] <= (m ? 2 : 0)) << src[i] << " " << in;
                    continue;
                }
                const double frac = exact - std::floor(exact);
                const bool near = std::fabs(frac - 0.5) < 0.02 && exact < 32767.0;
                near_boundary += near;
                const double want = exact >= 32767.0 ? 32767.0 : std::nearbyint(exact);
                if (near) {
                    ASSERT_NEAR(dst[i], exact, 0.52) << src[i] << " in " << in << " out " << out;
                } else {
                    ASSERT_EQ(dst[i], want) << src[i] << " in " << in << " out " << out << " exact " << exact;
                }
            }
        }
    }
    EXPECT_GT(near_boundary, 0);
}

// The final shift never exceeds 31, so results that should be tiny come out
// as round(product / 2^31): 1 or 2 instead of 0. A product exactly halfway
// goes to the even neighbour. Extreme scales saturate or hold without
// overflow.
TEST(Pow34Sfs, ShiftHeldAt31TiesToEvenAndExtremeScales) {
    const struct {
        int16_t x;
        int in, out;
        int16_t want;
    } cases[] = {
        {1, 0, 0, 1},         // shift exactly 31
        {1, 0, 1, 1},         // 0.59 exactly, but the shift is held
        {1, 0, 40, 1},        {7, 2, 10, 2},  // 0.012 exactly; the product is 1.52 * 2^31
        {27042, 2, 0, 5964},  // 5964.5008, but the Q31 product is exactly halfway: to even
        {32767, 40, 0, 32767}, {32767, 2147483647, -2147483647 - 1, 32767}, {5, -2147483647 - 1, 2147483647, 1},
    };
    for (const auto& c : cases) {
        int16_t d = -1;
        ASSERT_EQ(nkpsPow34_16s_Sfs(&c.x, c.in, &d, c.out, 1), nkpStatusOk);
        EXPECT_EQ(d, c.want) << c.x << " in " << c.in << " out " << c.out;
    }
}

// ---- Pow43 ---------------------------------------------------------------------

// Every 16-bit input: the float nearest to sign(x) |x|^(4/3).
TEST(Pow43, EveryInputIsTheNearestFloat) {
    std::vector<int16_t> src(65536);
    for (int i = 0; i < 65536; ++i) src[i] = static_cast<int16_t>(i - 32768);
    std::vector<float> dst(src.size());
    ASSERT_EQ(nkpsPow43_16s32f(src.data(), dst.data(), 65536), nkpStatusOk);
    for (int i = 0; i < 65536; ++i) {
        const long double m = std::fabs(static_cast<long double>(src[i]));
        const long double exact = m * std::cbrtl(m);
        const float want = static_cast<float>(src[i] < 0 ? -exact : exact);
        ASSERT_EQ(dst[i], want) << src[i];
    }
}

// ---- Pow43Scale -------------------------------------------------------------------

// floor(m^(4/3) * 4096) in exact integer arithmetic.
uint64_t pow43_q12_exact(int m) {
    const unsigned __int128 x = static_cast<unsigned __int128>(uint64_t(m) * m * m * m) << 36;
    uint64_t lo = 0, hi = uint64_t{1} << 33;
    while (hi - lo > 1) {
        const uint64_t mid = (lo + hi) / 2;
        (static_cast<unsigned __int128>(mid) * mid * mid <= x ? lo : hi) = mid;
    }
    return lo;
}

int32_t requantise(int16_t x, int sf, int gain = 0, int sf_mult = 0) {
    const nkp16s sf16 = static_cast<nkp16s>(sf);
    const nkp32s offset[2] = {0, 1};
    nkp32s out = 12345;
    EXPECT_EQ(nkpsPow43Scale_16s32s_Sf(&x, &out, &sf16, offset, gain, 1, 1, sf_mult), nkpStatusOk);
    return out;
}

// With e = 48 the shift is 30 and the Q30 factor is 1.0, so the output is
// the internal m^(4/3) * 4096 itself while it fits 31 bits; with e = 44 it
// is half of it. Both must be the exactly truncated power, table and
// polynomial range alike.
TEST(Pow43Scale, TwelveBitScaleIsExactForEveryMagnitude) {
    std::vector<int16_t> src(32768);
    for (int m = 0; m < 32768; ++m) src[m] = static_cast<int16_t>(-m);
    std::vector<int32_t> d48(32768), d44(32768);
    const nkp16s sf48 = 48, sf44 = 44;
    const nkp32s off[2] = {0, 32768};
    ASSERT_EQ(nkpsPow43Scale_16s32s_Sf(src.data(), d48.data(), &sf48, off, 0, 1, 1, 0), nkpStatusOk);
    ASSERT_EQ(nkpsPow43Scale_16s32s_Sf(src.data(), d44.data(), &sf44, off, 0, 1, 1, 0), nkpStatusOk);
    for (int m = 0; m < 32768; ++m) {
        const uint64_t p = pow43_q12_exact(m);
        ASSERT_EQ(-int64_t(d48[m]), std::min<uint64_t>(p, 0x7FFFFFFF)) << m;
        ASSERT_EQ(-int64_t(d44[m]), int64_t(p / 2)) << m;
    }
    EXPECT_EQ(requantise(-32768, 44), -2147483647);  // 2^32 / 2 limited
}

// Band layout, width multiplier and the exponent sf - globalGain - 4 sfMult
// against trunc(|x|^(4/3) 2^(e/4)) in long double (one unit of slack where
// e is not a multiple of 4: the Q30 quarter powers are rounded).
TEST(Pow43Scale, BandsFollowOffsetsAndExponent) {
    const int bands = 5, mult = 3, gain = 10, sfmult = 2;
    const nkp32s off[bands + 1] = {0, 2, 2, 5, 9, 1};  // an empty and a reversed band
    const nkp16s sf[bands] = {18, 30, -7, 100, 21};
    std::vector<int16_t> src(27 + 3);
    for (auto& v : src) v = static_cast<int16_t>(nkptest::random_int(-8191, 8191));
    std::vector<int32_t> dst(src.size(), 0x5A5A5A5A);
    ASSERT_EQ(nkpsPow43Scale_16s32s_Sf(src.data(), dst.data(), sf, off, gain, bands, mult, sfmult), nkpStatusOk);
    std::vector<bool> touched(src.size());
    for (int b = 0; b < bands; ++b) {
        const int e = sf[b] - gain - 4 * sfmult;
        for (int j = off[b] * mult; j < off[b + 1] * mult; ++j) {
            touched[j] = true;
            const long double m = std::fabs(static_cast<long double>(src[j]));
            const long double exact = m * std::cbrtl(m) * std::exp2l(e / 4.0L);
            const long double want = std::floor(std::min(exact, 2147483647.0L)) * (src[j] < 0 ? -1 : 1);
            EXPECT_NEAR(dst[j], want, (e & 3) ? 1.0 : 0.0) << "band " << b << " x " << src[j];
        }
    }
    for (size_t j = 0; j < src.size(); ++j) EXPECT_TRUE(touched[j] || dst[j] == 0x5A5A5A5A) << j;
}

// The exponent e = sf - gain - 4 sfMult in full (beyond 16 bits too).
TEST(Pow43Scale, ShiftLimitsAndSaturation) {
    const struct {
        int16_t x;
        int sf, gain, sf_mult;
        int32_t want;
    } cases[] = {
        {8191, -87, 0, 0, 0},            // shift 63
        {8191, -88, 0, 0, 0},            // shift 64: defined as 0
        {32767, -32768, 0, 0, 0},        {8191, 100, 0, 0, 0x7FFFFFFF},  // limited
        {-8191, 100, 0, 0, -0x7FFFFFFF}, {-2, 32767, 0, 0, -0x7FFFFFFF}, {0, 32767, 0, 0, 0},
        {1, 171, 0, 0, 0x7FFFFFFF},      // shift 0: 2^30 * 2^(3/4) * 4096 overflows 31 bits
        {1, 172, 0, 0, 0x7FFFFFFF},      // negative shift
        {4, 0, 2147483647, 2147483647, 0}, {4, 0, -2147483647 - 1, 0, 0x7FFFFFFF},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(requantise(c.x, c.sf, c.gain, c.sf_mult), c.want) << c.x << " " << c.sf << " " << c.gain;
    }
}

}  // namespace
