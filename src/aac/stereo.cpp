// Joint-stereo reconstruction of an AAC channel pair: M/S (sum and
// difference, in place) and intensity stereo (the right channel's intensity
// bands from the left channel, scaled by 2^(-position/4)).
#include "aac/spectral_layout.h"
#include "frame/exports.h"

#include <cstdint>
#include <emmintrin.h>

namespace nkp {
namespace {

using namespace aac;

constexpr uint8_t kNoiseCodebook = 13;
constexpr uint8_t kIntensityOutOfPhase = 14;
constexpr uint8_t kIntensityInPhase = 15;

// left = L + R, right = L - R, wrapping in 32 bits.
void sum_difference(int32_t* left, int32_t* right, int n) {
    int i = 0;
    for (; i + 4 <= n; i += 4) {
        __m128i* pl = reinterpret_cast<__m128i*>(left + i);
        __m128i* pr = reinterpret_cast<__m128i*>(right + i);
        const __m128i l = _mm_loadu_si128(pl);
        const __m128i r = _mm_loadu_si128(pr);
        _mm_storeu_si128(pl, _mm_add_epi32(l, r));
        _mm_storeu_si128(pr, _mm_sub_epi32(l, r));
    }
    for (; i < n; ++i) {
        const uint32_t l = static_cast<uint32_t>(left[i]);
        const uint32_t r = static_cast<uint32_t>(right[i]);
        left[i] = static_cast<int32_t>(l + r);
        right[i] = static_cast<int32_t>(l - r);
    }
}

// 2^30 * 2^(-k/4) and 2^30 * 2^(k/4), k = 0..3.
constexpr int64_t kDown[4] = {1073741824, 902905651, 759250125, 638450708};
constexpr int64_t kUp[4] = {1073741824, 1276901417, 1518500250, 1805811301};
// 2^(62 - p/4) for the positions p = -3..7 (entry p + 3).
constexpr uint64_t kNearQ62[11] = {7755900482342532474u, 6521908912666391106u, 5484249825272419512u,
                                   4611686018427387904u, 3877950241171266237u, 3260954456333195553u,
                                   2742124912636209756u, 2305843009213693952u, 1938975120585633119u,
                                   1630477228166597777u, 1371062456318104878u};

// right = sign * left * 2^(-p/4) over n lines, low 32 bits, the way of
// scaling chosen once by the position:
//  - p = -3..7: the magnitude times 2^(-p/4) in Q62, truncated toward zero
//    (the rounded factor is off by at most 2^-62 relative, so the result
//    stays within one unit of the exact value);
//  - p >= 8: the product with a Q30 factor, shifted right arithmetically by
//    30 + (p >> 2) (the high word shifted by (p >> 2) - 2), the shift held
//    at 63;
//  - p < -3: the line is first scaled up by a shift taken modulo 32 in
//    32-bit wrap-around arithmetic, then multiplied by 2^(r/4) in Q30
//    through the high word.
// The sign is applied to the scaled value: -x, not a negative factor.
template <bool kNegate>
void intensity_band(const int32_t* left, int32_t* right, int n, int p) {
    auto put = [right](int i, uint32_t x) { right[i] = static_cast<int32_t>(kNegate ? 0u - x : x); };
    if (p >= -3 && p <= 7) {
        const uint64_t factor = kNearQ62[p + 3];
        for (int i = 0; i < n; ++i) {
            const int32_t l = left[i];
            const uint64_t magnitude = l < 0 ? 0 - static_cast<uint64_t>(static_cast<int64_t>(l))
                                             : static_cast<uint64_t>(l);
            const uint32_t x = static_cast<uint32_t>((static_cast<unsigned __int128>(magnitude) * factor) >> 62);
            put(i, l < 0 ? 0u - x : x);
        }
    } else if (p >= 8) {
        const int64_t factor = kDown[p & 3];
        const int shift = 30 + (p >> 2) > 63 ? 63 : 30 + (p >> 2);  // arithmetic p >> 2 intended
        for (int i = 0; i < n; ++i) put(i, static_cast<uint32_t>((left[i] * factor) >> shift));
    } else {
        const int64_t factor = kUp[-p & 3];
        const int up = (((128 - p) >> 2) + 2) & 31;
        for (int i = 0; i < n; ++i) {
            const int32_t scaled = static_cast<int32_t>(static_cast<uint32_t>(left[i]) << up);
            put(i, static_cast<uint32_t>((scaled * factor) >> 32));
        }
    }
}

// The checks the stereo tools share after their pointers.
nkpStatus check_layout(int win_len, int groups, int max_sfb, int sampling_index) {
    if (nkpStatus s = check_length_and_groups(win_len, groups); s != nkpStatusOk) return s;
    if (!max_sfb_in_range(max_sfb)) return nkpStatusBadAacMaxSfb;
    if (!sampling_index_in_range(sampling_index)) return nkpStatusBadAacSamplingIndex;
    return nkpStatusOk;
}

}  // namespace

nkpStatus nkpsDecodeMsStereo_AAC_32s_I(nkp32s* pSrcDstL, nkp32s* pSrcDstR, int msMaskPresent, const nkp8u* pMsUsed,
                                       nkp8u* pSfbCbR, int numWinGrp, const nkp32s* pWinGrpLen, int maxSfb,
                                       int samplingIndex, int winLen) {
    if (!pSrcDstL || !pSrcDstR || !pMsUsed || !pSfbCbR || !pWinGrpLen) return nkpStatusNullPointer;
    if (nkpStatus s = check_layout(winLen, numWinGrp, maxSfb, samplingIndex); s != nkpStatusOk) return s;
    if (msMaskPresent != 1 && msMaskPresent != 2) return nkpStatusBadAacMsMask;
    if (maxSfb > band_count(samplingIndex, winLen)) return nkpStatusBadAacMaxSfb;
    if (nkpStatus s = check_window_counts(pWinGrpLen, numWinGrp, winLen); s != nkpStatusOk) return s;

    const int16_t* swb = band_offsets(samplingIndex, winLen);
    const bool all_bands = msMaskPresent == 2;
    for (int g = 0; g < numWinGrp; ++g) {
        const int windows = pWinGrpLen[g];
        for (int b = 0; b < maxSfb; ++b) {
            const uint8_t cb = pSfbCbR[b];
            if (cb == kIntensityOutOfPhase || cb == kIntensityInPhase) {
                // The exchange makes the intensity step invert this band.
                if (!all_bands && pMsUsed[b]) pSfbCbR[b] = cb ^ 1;
                continue;
            }
            if ((all_bands || pMsUsed[b]) && cb != kNoiseCodebook) {
                const int start = swb[b] * windows;
                sum_difference(pSrcDstL + start, pSrcDstR + start, (swb[b + 1] - swb[b]) * windows);
            }
        }
        pMsUsed += kMsFlagsPerGroup;
        pSfbCbR += maxSfb;
        pSrcDstL += windows * winLen;
        pSrcDstR += windows * winLen;
    }
    return nkpStatusOk;
}

nkpStatus nkpsDecodeIsStereo_AAC_32s(const nkp32s* pSrcL, nkp32s* pDstR, const nkp16u* pIsPosition,
                                     const nkp8u* pSfbCbR, int numWinGrp, const nkp32s* pWinGrpLen, int maxSfb,
                                     int samplingIndex, int winLen) {
    if (!pSrcL || !pDstR || !pIsPosition || !pSfbCbR || !pWinGrpLen) return nkpStatusNullPointer;
    if (nkpStatus s = check_layout(winLen, numWinGrp, maxSfb, samplingIndex); s != nkpStatusOk) return s;
    if (maxSfb > band_count(samplingIndex, winLen)) return nkpStatusBadAacMaxSfb;
    if (nkpStatus s = check_window_counts(pWinGrpLen, numWinGrp, winLen); s != nkpStatusOk) return s;

    const int16_t* swb = band_offsets(samplingIndex, winLen);
    for (int g = 0; g < numWinGrp; ++g) {
        const int windows = pWinGrpLen[g];
        for (int b = 0; b < maxSfb; ++b) {
            const uint8_t cb = pSfbCbR[b];
            if (cb != kIntensityOutOfPhase && cb != kIntensityInPhase) continue;
            const int p = static_cast<int16_t>(pIsPosition[b]);
            const int start = swb[b] * windows;
            const int n = (swb[b + 1] - swb[b]) * windows;
            if (cb == kIntensityInPhase) {
                intensity_band<false>(pSrcL + start, pDstR + start, n, p);
            } else {
                intensity_band<true>(pSrcL + start, pDstR + start, n, p);
            }
        }
        pIsPosition += maxSfb;
        pSfbCbR += maxSfb;
        pSrcL += windows * winLen;
        pDstR += windows * winLen;
    }
    return nkpStatusOk;
}

}  // namespace nkp
