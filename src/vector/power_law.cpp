// The quantisers' power laws: x^(3/4) for quantisation, x^(4/3) for
// requantisation.
#include "frame/exports.h"
#include "common/fp_mode.h"
#include "common/numeric.h"
#include "common/pow43.h"
#include "vector/tables.h"

#include <cstddef>
#include <cstring>
#include <emmintrin.h>

namespace nkp {
namespace {

using namespace vector_tables;

// ---- |x|^(3/4) through the reciprocal-square-root estimate ------------------

// a * rsqrt(a) * rsqrt(rsqrt(a)), unrefined, so the result carries the
// estimate's error (|rel| < 1.5 * 2^-12 per rsqrtps) in the last bits.
// Magnitudes up to 1.0e-37 (and NaN, which compares false) give 0.
inline __m128 pow34x4(__m128 x) {
    const __m128 a = _mm_andnot_ps(_mm_set1_ps(-0.0f), x);
    const __m128 r1 = _mm_rsqrt_ps(a);
    const __m128 r2 = _mm_rsqrt_ps(r1);
    const __m128 p = _mm_mul_ps(_mm_mul_ps(a, r1), r2);
    const __m128 live = _mm_cmpgt_ps(a, _mm_castsi128_ps(_mm_set1_epi32(0x02081CEA)));
    return _mm_and_ps(p, live);
}

// The tail goes through the same packed instructions as the body, so a
// value's result never depends on its position.
inline __m128 load_tail(const float* src, ptrdiff_t count) {
    alignas(16) float lane[4] = {0, 0, 0, 0};
    std::memcpy(lane, src, static_cast<size_t>(count) * sizeof(float));
    return _mm_load_ps(lane);
}

inline __m128i to16x4(__m128 p) { return _mm_cvtps_epi32(_mm_min_ps(p, _mm_set1_ps(32767.0f))); }

// ---- x^(4/3) beyond the table ------------------------------------------------

// m^(4/3) in double for 8192 <= m <= 32768: m is normalised as 4096 * u,
// u in [2, 8], cube root of u from a quadratic seed (error < 1%) and four
// Newton steps, so cbrt(m) = 16 * cbrt(u). Within a few units of the last
// place of a double: the nearest float and the truncated Q12 value of
// every 16-bit magnitude come out exact.
inline double pow43_large(int32_t m) {
    const double u = static_cast<double>(m) * (1.0 / 4096.0);
    double c = 0.8943371536963689 + u * (0.20564594931400784 - 0.008503638143588458 * u);
    for (int k = 0; k < 4; ++k) c -= (c * c * c - u) / (3.0 * c * c);
    return static_cast<double>(m) * 16.0 * c;
}

// floor(m^(4/3) * 4096): the shared table's entry times 4096 is exact, and
// truncating it gives the truncated exact power.
inline uint64_t pow43_q12(int32_t m) {
    return static_cast<uint64_t>((m < kPow43Count ? kPow43[m] : pow43_large(m)) * 4096.0);
}

// ---- fixed-point |x|^(3/4) ---------------------------------------------------

// Leading zeros of a 16-bit magnitude, looked up a byte at a time.
constexpr auto kLeadingZeros = [] {
    struct { uint8_t v[256]; } t{};
    for (int b = 0; b < 256; ++b) {
        int n = 16;
        for (int v = b; v; v >>= 1) --n;
        t.v[b] = static_cast<uint8_t>(n);
    }
    return t;
}();

inline int leading_zeros16(uint32_t m) {
    return m >= 256 ? kLeadingZeros.v[m >> 8] - 8 : kLeadingZeros.v[m];
}

// 2^(-r/4) in Q30: the exponent's remainder by 4 after 2^(3q + r) has
// been taken out as a shift.
constexpr uint32_t kQuarterDown[4] = {1073741824u, 902905651u, 759250125u, 638450708u};

// What the exponent contributes for one leading-zero count: the quarter
// constant and the final right shift (0 when the result saturates).
struct Pow34Step {
    uint32_t quarter;
    int shift;
};

// The steps for every leading-zero count 0..15 of a call's scales, and a
// step for 0 (count 16) whose zero constant makes the result 0.
// (m * 2^in)^(3/4) = mant * 2^(3e/4) relative to the Q31 product, with
// e = in - lz + 7 = 4q + r and 2^(3e/4) = 2^(3q + r) * 2^(-r/4).
void pow34_steps(int32_t in_scale, int32_t out_scale, Pow34Step (&steps)[17]) {
    for (int lz = 0; lz < 16; ++lz) {
        const int64_t e = static_cast<int64_t>(in_scale) - lz + 7;
        const int64_t q = e >> 2;  // floor division: arithmetic shift intended
        const int r = static_cast<int>(e & 3);
        const int64_t shift = 25 + static_cast<int64_t>(out_scale) - 3 * q - r;
        // Below 15 the result saturates: the smallest product (0.59 in Q31)
        // shifted by 15 already exceeds 32767, so 15 serves for all of them.
        // Above 31 the shift is held at 31, so magnitudes that should round
        // to 0 give 1 or 2.
        steps[lz].quarter = kQuarterDown[r];
        steps[lz].shift = shift < 15 ? 15 : (shift > 31 ? 31 : static_cast<int>(shift));
    }
    steps[16] = {0, 31};
}

// Branch-free: zeros and saturation come out of the steps and the limit.
inline int16_t pow34_fixed(int16_t x, const Pow34Step (&steps)[17]) {
    const uint32_t m = x < 0 ? static_cast<uint32_t>(-static_cast<int32_t>(x)) : static_cast<uint32_t>(x);
    const int lz = leading_zeros16(m);
    const Pow34Step step = steps[lz];

    // Mantissa in [1, 2) as 1.15; its 3/4 power interpolated between the
    // table's 257 points.
    const uint32_t norm = (m << lz) & 0xFFFFu;
    const uint32_t index = (norm >> 7) & 0xFF;
    const uint32_t frac = norm & 0x7F;
    const uint64_t lo = kPow34Mantissa[index];
    const uint64_t mant = lo + (((kPow34Mantissa[index + 1] - lo) * frac) >> 7);
    const uint64_t product = (mant * step.quarter) >> 29;  // Q31

    const int s = step.shift;
    const uint64_t half = (uint64_t{1} << (s - 1)) - 1 + ((product >> s) & 1);  // ties to even
    const uint64_t v = (product + half) >> s;
    return static_cast<int16_t>(v > 32767 ? 32767 : v);
}

// ---- requantisation of one band ------------------------------------------------

// Q30 constants 2^((e & 3)/4).
constexpr uint64_t kQuarterUp[4] = {1073741824u, 1276901416u, 1518500249u, 1805811301u};

void requantise_band(const int16_t* src, int32_t* dst, int64_t count, int64_t e) {
    const uint64_t c = kQuarterUp[e & 3];
    const int64_t shift = 42 - (e >> 2);  // floor(e/4): arithmetic shift intended
    for (int64_t i = 0; i < count; ++i) {
        const int32_t x = src[i];
        const int32_t m = x < 0 ? -x : x;
        uint64_t v;
        if (m == 0 || shift >= 64) {
            v = 0;
        } else if (shift < 0) {
            v = 0x7FFFFFFF;  // gains this large leave the 32-bit range anyway
        } else {
            v = (pow43_q12(m) * c) >> shift;
            if (v > 0x7FFFFFFF) v = 0x7FFFFFFF;
        }
        dst[i] = x < 0 ? -static_cast<int32_t>(v) : static_cast<int32_t>(v);
    }
}

}  // namespace

nkpStatus nkpsPow34_32f(const nkp32f* pSrc, nkp32f* pDst, int len) {
    if (!pSrc || !pDst) return nkpStatusNullPointer;
    if (len < 1) return nkpStatusBadSize;

    const FpModeScope mode(FpMode::MaskExceptions);
    ptrdiff_t i = 0;
    for (; i + 4 <= len; i += 4) _mm_storeu_ps(pDst + i, pow34x4(_mm_loadu_ps(pSrc + i)));
    if (i < len) {
        alignas(16) float out[4];
        _mm_store_ps(out, pow34x4(load_tail(pSrc + i, len - i)));
        std::memcpy(pDst + i, out, static_cast<size_t>(len - i) * sizeof(float));
    }
    return aligned16(pSrc) && aligned16(pDst) ? nkpStatusOk : nkpStatusMisaligned;
}

nkpStatus nkpsPow34_32f16s(const nkp32f* pSrc, nkp16s* pDst, int len) {
    if (!pSrc || !pDst) return nkpStatusNullPointer;
    if (len < 1) return nkpStatusBadSize;

    const FpModeScope mode(FpMode::NearestMasked);
    ptrdiff_t i = 0;
    for (; i + 8 <= len; i += 8) {
        const __m128i a = to16x4(pow34x4(_mm_loadu_ps(pSrc + i)));
        const __m128i b = to16x4(pow34x4(_mm_loadu_ps(pSrc + i + 4)));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(pDst + i), _mm_packs_epi32(a, b));
    }
    for (; i < len; i += 4) {
        const ptrdiff_t n = len - i < 4 ? len - i : 4;
        alignas(16) int16_t out[8];
        const __m128i v = to16x4(pow34x4(load_tail(pSrc + i, n)));
        _mm_store_si128(reinterpret_cast<__m128i*>(out), _mm_packs_epi32(v, v));
        std::memcpy(pDst + i, out, static_cast<size_t>(n) * sizeof(int16_t));
    }
    return aligned16(pSrc) && aligned16(pDst) ? nkpStatusOk : nkpStatusMisaligned;
}

nkpStatus nkpsPow34_16s_Sfs(const nkp16s* pSrc, int inScale, nkp16s* pDst, int outScale, int len) {
    // The length comes first here, before the pointers.
    if (len < 1) return nkpStatusBadSize;
    if (!pSrc || !pDst) return nkpStatusNullPointer;

    Pow34Step steps[17];
    pow34_steps(inScale, outScale, steps);
    for (ptrdiff_t i = 0; i < len; ++i) pDst[i] = pow34_fixed(pSrc[i], steps);
    return nkpStatusOk;
}

nkpStatus nkpsPow43_16s32f(const nkp16s* pSrc, nkp32f* pDst, int len) {
    if (!pSrc || !pDst) return nkpStatusNullPointer;
    if (len < 0) return nkpStatusBadSize;

    for (ptrdiff_t i = 0; i < len; ++i) {
        const int32_t x = pSrc[i];
        const int32_t m = x < 0 ? -x : x;
        const float p = static_cast<float>(m < kPow43Count ? kPow43[m] : pow43_large(m));
        pDst[i] = x < 0 ? -p : p;
    }
    return nkpStatusOk;
}

nkpStatus nkpsPow43Scale_16s32s_Sf(const nkp16s* pSrc, nkp32s* pDst, const nkp16s* pScaleFactor,
                                   const nkp32s* pBandOffset, int globalGain, int bands, int widthMult,
                                   int sfMult) {
    if (!pSrc || !pDst || !pScaleFactor || !pBandOffset) return nkpStatusNullPointer;
    if (bands < 0 || widthMult < 0) return nkpStatusBadSize;

    for (int b = 0; b < bands; ++b) {
        const int64_t start = static_cast<int64_t>(pBandOffset[b]) * widthMult;
        const int64_t width = (static_cast<int64_t>(pBandOffset[b + 1]) - pBandOffset[b]) * widthMult;
        const int64_t e = static_cast<int64_t>(pScaleFactor[b]) - globalGain - 4 * static_cast<int64_t>(sfMult);
        if (width > 0) requantise_band(pSrc + start, pDst + start, width, e);
    }
    return nkpStatusOk;
}

}  // namespace nkp
