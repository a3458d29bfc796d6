// The hybrid filter bank of the MP3 decoder: alias reduction, the 36- and
// 12-point inverse MDCTs with their windows, overlap-add and frequency
// inversion, all on 32-bit integers with double-precision transforms.
#include "common/fp_mode.h"
#include "frame/exports.h"
#include "mp3/decoder_tables.h"

#include <emmintrin.h>

#include <cstdint>

namespace nkp {
namespace {

using mp3::kImdctMix;
using mp3::kImdctCos;
using mp3::kImdctLongWindow;
using mp3::kImdctShort;

// Window row of a long-transform block type: 0 normal, 1 start, 3 stop.
inline int window_row(int block_type) { return block_type == 3 ? 2 : block_type == 1 ? 1 : 0; }

// Pre-additions of the fast 36-point transform, in wrapping 32-bit
// arithmetic: y_i = x_i + x_(i-1), then z_i = y_i + y_(i-2) for odd i >= 3.
inline void pre_add(const int32_t* x, uint32_t* z) {
    z[0] = static_cast<uint32_t>(x[0]);
    for (int i = 1; i < 18; ++i) z[i] = static_cast<uint32_t>(x[i]) + static_cast<uint32_t>(x[i - 1]);
    for (int i = 17; i >= 3; i -= 2) z[i] += z[i - 2];
}

// 18 values in, 36 windowed outputs, each rounded to the nearest integer
// (out-of-range values give INT32_MIN, the conversion's overflow value).
void long_transform(const int32_t* x, int32_t* out, int row) {
    uint32_t z[18];
    pre_add(x, z);
    // Lanes: (even z, odd z) pairs; one pattern per output pair.
    __m128d zz[9];
    for (int k = 0; k < 9; ++k)
        zz[k] = _mm_cvtepi32_pd(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(z + 2 * k)));
    // G_m and G_(8-m) from the even-k and odd-k partial sums.
    __m128d g[9];
    for (int m = 0; m < 4; ++m) {
        const double* c = kImdctCos + 18 * m;
        __m128d even = _mm_mul_pd(_mm_load_pd(c), zz[0]);
        __m128d odd = _mm_mul_pd(_mm_load_pd(c + 2), zz[1]);
        for (int k = 2; k < 9; k += 2) even = _mm_add_pd(even, _mm_mul_pd(_mm_load_pd(c + 2 * k), zz[k]));
        for (int k = 3; k < 9; k += 2) odd = _mm_add_pd(odd, _mm_mul_pd(_mm_load_pd(c + 2 * k), zz[k]));
        g[m] = _mm_add_pd(even, odd);
        g[8 - m] = _mm_sub_pd(even, odd);
    }
    g[4] = _mm_add_pd(_mm_sub_pd(_mm_add_pd(_mm_sub_pd(zz[0], zz[2]), zz[4]), zz[6]), zz[8]);
    alignas(16) double u[18];
    for (int r = 0; r < 9; ++r) {
        alignas(16) double eo[2];
        _mm_store_pd(eo, g[8 - r]);
        u[r] = kImdctMix[r][0] * eo[0] + kImdctMix[r][1] * eo[1];
        u[r + 9] = kImdctMix[r][2] * eo[0] + kImdctMix[r][3] * eo[1];
    }
    // Outputs in pairs straight from u: the four quarters of the 36 run
    // u[0..8] forward, u[8..0] back, u[9..17] forward, u[17..9] back.
    auto swap = [](__m128d x) { return _mm_shuffle_pd(x, x, 1); };
    __m128d p[18];
    for (int i = 0; i < 4; ++i) p[i] = _mm_load_pd(u + 2 * i);                 // n = 0..7
    p[4] = _mm_load1_pd(u + 8);                                                // n = 8, 9
    for (int i = 0; i < 4; ++i) p[5 + i] = swap(_mm_load_pd(u + 6 - 2 * i));   // n = 10..17
    for (int i = 0; i < 4; ++i) p[9 + i] = _mm_loadu_pd(u + 9 + 2 * i);        // n = 18..25
    p[13] = _mm_load1_pd(u + 17);                                              // n = 26, 27
    for (int i = 0; i < 4; ++i) p[14 + i] = swap(_mm_loadu_pd(u + 15 - 2 * i)); // n = 28..35
    const double* w = kImdctLongWindow[row];
    for (int i = 0; i < 18; i += 2) {
        const __m128i a = _mm_cvtpd_epi32(_mm_mul_pd(p[i], _mm_load_pd(w + 2 * i)));
        const __m128i b = _mm_cvtpd_epi32(_mm_mul_pd(p[i + 1], _mm_load_pd(w + 2 * i + 2)));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 2 * i), _mm_unpacklo_epi64(a, b));
    }
}

// Three short windows of six values (window-major) overlap-added into
// outputs 6..29; outputs 0..5 and 30..35 are zero.
void short_transform(const int32_t* x, int32_t* out) {
    alignas(16) double acc[36] = {};
    for (int w = 0; w < 3; ++w) {
        const int32_t* xw = x + 6 * w;
        for (int n = 0; n < 12; ++n) {
            const double* m = kImdctShort + 6 * n;
            double s = 0.0;
            for (int k = 0; k < 6; ++k) s += m[k] * static_cast<double>(xw[k]);
            acc[6 + 6 * w + n] += s;
        }
    }
    for (int n = 0; n < 36; n += 2) {
        const __m128i v = _mm_cvtpd_epi32(_mm_load_pd(acc + n));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out + n), v);
    }
}

// The eight butterflies across the border below subband sb (sb >= 1), two
// at a time: a' = a cs - b ca, b' = b cs + a ca in double precision, each
// result rounded to the nearest integer. The constants are held halved and
// the inputs doubled, which gives the same products.
void alias_border(int32_t* x, int sb) {
    int32_t* below = x + 18 * sb - 8;  // a_i = below[7 - i]
    int32_t* above = x + 18 * sb;      // b_i = above[i]
    const __m128d two = _mm_set1_pd(2.0);
    for (int h = 0; h < 2; ++h) {
        // a_(4h..4h+3) reversed into lane order, b_(4h..4h+3).
        const __m128i a4 = _mm_shuffle_epi32(
            _mm_loadu_si128(reinterpret_cast<const __m128i*>(below + 4 - 4 * h)), _MM_SHUFFLE(0, 1, 2, 3));
        const __m128i b4 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(above + 4 * h));
        __m128i na[2], nb[2];
        for (int q = 0; q < 2; ++q) {
            const int i = 4 * h + 2 * q;
            const __m128d a = _mm_mul_pd(two, _mm_cvtepi32_pd(q ? _mm_srli_si128(a4, 8) : a4));
            const __m128d b = _mm_mul_pd(two, _mm_cvtepi32_pd(q ? _mm_srli_si128(b4, 8) : b4));
            const __m128d hs = _mm_loadu_pd(mp3::kAliasHalfCs + i), ha = _mm_loadu_pd(mp3::kAliasHalfCa + i);
            na[q] = _mm_cvtpd_epi32(_mm_sub_pd(_mm_mul_pd(a, hs), _mm_mul_pd(b, ha)));
            nb[q] = _mm_cvtpd_epi32(_mm_add_pd(_mm_mul_pd(b, hs), _mm_mul_pd(a, ha)));
        }
        const __m128i a_out = _mm_shuffle_epi32(_mm_unpacklo_epi64(na[0], na[1]), _MM_SHUFFLE(0, 1, 2, 3));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(below + 4 - 4 * h), a_out);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(above + 4 * h), _mm_unpacklo_epi64(nb[0], nb[1]));
    }
}

}  // namespace

nkpStatus nkpsMDCTInv_MP3_32s(nkp32s* pSrcXr, nkp32s* pDstY, nkp32s* pSrcDstOverlapAdd, int nonZeroBound,
                              int* pPrevNumOfImdct, int blockType, int mixedBlock) {
    if (!pSrcXr || !pDstY || !pSrcDstOverlapAdd || !pPrevNumOfImdct) return nkpStatusNullPointer;
    const int prev = *pPrevNumOfImdct;
    if (static_cast<unsigned>(nonZeroBound) > 576 || static_cast<unsigned>(blockType) > 3 ||
        static_cast<unsigned>(mixedBlock) > 1 || static_cast<unsigned>(prev) > 32)
        return nkpStatusOutOfRange;
    const FpModeScope rounding(FpMode::Standard);

    const uint32_t nz = static_cast<uint32_t>(nonZeroBound);
    int n;
    if (blockType == 2) {
        n = static_cast<int>((nz * 3641 + 61897) >> 16);  // ceil(nz / 18)
        if (mixedBlock && n < 2) n = 2;
    } else {
        n = static_cast<int>((nz * 3641 + 29128) >> 16) + 1;  // floor((nz + 8) / 18) + 1
    }
    if (n > 32) n = 32;

    if (blockType != 2) {
        for (int sb = 1; sb < n; ++sb) alias_border(pSrcXr, sb);
    } else if (mixedBlock) {
        alias_border(pSrcXr, 1);
    }

    const int last = prev > n ? prev : n;
    const int row = window_row(blockType);
    alignas(16) int32_t t[36];
    for (int sb = 0; sb < last; ++sb) {
        int32_t* overlap = pSrcDstOverlapAdd + 18 * sb;
        if (sb >= n) {
            for (int k = 0; k < 36; ++k) t[k] = 0;
        } else if (blockType == 2 && !(mixedBlock && sb < 2)) {
            short_transform(pSrcXr + 18 * sb, t);
        } else {
            long_transform(pSrcXr + 18 * sb, t, (mixedBlock && sb < 2) ? 0 : row);
        }
        // Overlap-add (wrapping 32-bit), then the odd slots of an odd
        // subband negated: (v ^ m) - m with m = -1 in those lanes.
        const __m128i m = (sb & 1) ? _mm_set_epi32(-1, 0, -1, 0) : _mm_setzero_si128();
        int32_t* y = pDstY + sb;
        for (int k = 0; k < 16; k += 4) {
            __m128i v = _mm_add_epi32(_mm_load_si128(reinterpret_cast<const __m128i*>(t + k)),
                                      _mm_loadu_si128(reinterpret_cast<const __m128i*>(overlap + k)));
            v = _mm_sub_epi32(_mm_xor_si128(v, m), m);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(overlap + k),
                             _mm_loadu_si128(reinterpret_cast<const __m128i*>(t + 18 + k)));
            y[32 * k] = _mm_cvtsi128_si32(v);
            y[32 * (k + 1)] = _mm_cvtsi128_si32(_mm_shuffle_epi32(v, 1));
            y[32 * (k + 2)] = _mm_cvtsi128_si32(_mm_shuffle_epi32(v, 2));
            y[32 * (k + 3)] = _mm_cvtsi128_si32(_mm_shuffle_epi32(v, 3));
        }
        for (int k = 16; k < 18; ++k) {
            uint32_t v = static_cast<uint32_t>(t[k]) + static_cast<uint32_t>(overlap[k]);
            if ((sb & 1) && (k & 1)) v = 0u - v;
            y[32 * k] = static_cast<int32_t>(v);
            overlap[k] = t[18 + k];
        }
    }
    *pPrevNumOfImdct = n;
    for (int sb = last; sb < 32; ++sb)
        for (int k = 0; k < 18; ++k) pDstY[sb + 32 * k] = 0;
    return nkpStatusOk;
}

nkpStatus nkpsMDCTInvWindow_MP3_32s(const nkp32s* pSrc, nkp32s* pDst, int blockType) {
    const FpModeScope rounding(FpMode::Standard);
    if (blockType == 2)
        short_transform(pSrc, pDst);
    else
        long_transform(pSrc, pDst, window_row(blockType));
    return nkpStatusOk;
}

}  // namespace nkp
