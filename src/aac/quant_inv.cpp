// Inverse quantisation of AAC spectral lines: sign(v) |v|^(4/3)
// 2^((sf - 100)/4) in Q3, truncated toward zero and saturated to 2^31 - 1 in
// magnitude. Two-path source: built once per code path into
// nkp::NKP_PATH_NS. Both paths and both routes inside one (four lines per
// SSE step, single lines at a band's end) do the same double-precision
// operations, so every result is the same bit for bit.
#include "aac/band_tables.h"
#include "aac/spectral_layout.h"
#include "common/fp_mode.h"
#include "frame/exports.h"
#include "common/pow43.h"
#include "mp3/decoder_tables.h"

#include <bit>
#include <cstdint>
#include <tmmintrin.h>

namespace nkp::NKP_PATH_NS {
namespace {

// kQuarterPow2 (2^(r/4)) is shared with the MP3 requantiser.
using nkp::mp3::kQuarterPow2;
using namespace nkp::aac;

constexpr uint32_t kMaxMagnitude = 8191;
constexpr double kSaturated = 2147483647.0;

// 2^((sf - 100)/4) * 8 = 2^((sf - 88)/4), as 2^(t & 3)/4 * 2^(t >> 2). The
// exponent is held inside -200..160: below, every |v| <= 8191 gives 0
// (8191^(4/3) < 2^18); above, every non-zero line saturates.
inline double band_gain(int scale_factor) {
    int t = scale_factor - 88;
    t = t < -200 ? -200 : (t > 160 ? 160 : t);
    // t >> 2 is the floor of t / 4 (arithmetic shift intended).
    const uint64_t exponent_bits = static_cast<uint64_t>(1023 + (t >> 2)) << 52;
    return kQuarterPow2[t & 3] * std::bit_cast<double>(exponent_bits);
}

inline int32_t dequantise_line(int32_t v, uint32_t magnitude, double gain) {
    double x = kPow43[magnitude] * gain;
    x = x < kSaturated ? x : kSaturated;
    const int32_t m = static_cast<int32_t>(x);  // truncation, as cvttsd2si
    return v < 0 ? -m : m;
}

// One band of n lines. Returns BadAacQuantValue at the first magnitude above
// 8191, with the lines before it converted.
nkpStatus dequantise_band(int32_t* line, int n, double gain) {
    const __m128d g = _mm_set1_pd(gain);
    const __m128d limit = _mm_set1_pd(kSaturated);
    const __m128i over_mask = _mm_set1_epi32(static_cast<int32_t>(~kMaxMagnitude));
    const __m128i zero = _mm_setzero_si128();
    int i = 0;
    for (; i + 4 <= n; i += 4) {
        __m128i* p = reinterpret_cast<__m128i*>(line + i);
        const __m128i v = _mm_loadu_si128(p);
        // |INT32_MIN| stays 0x80000000, which the mask catches too.
        const __m128i magnitude = _mm_abs_epi32(v);
        if (_mm_movemask_epi8(_mm_cmpeq_epi32(_mm_and_si128(magnitude, over_mask), zero)) != 0xFFFF) break;
        if (_mm_movemask_epi8(_mm_cmpeq_epi32(v, zero)) == 0xFFFF) continue;
        alignas(16) uint32_t index[4];
        _mm_store_si128(reinterpret_cast<__m128i*>(index), magnitude);
        __m128d lo = _mm_set_pd(kPow43[index[1]], kPow43[index[0]]);
        __m128d hi = _mm_set_pd(kPow43[index[3]], kPow43[index[2]]);
        lo = _mm_min_pd(_mm_mul_pd(lo, g), limit);
        hi = _mm_min_pd(_mm_mul_pd(hi, g), limit);
        const __m128i m = _mm_unpacklo_epi64(_mm_cvttpd_epi32(lo), _mm_cvttpd_epi32(hi));
        _mm_storeu_si128(p, _mm_sign_epi32(m, v));
    }
    // The band's last lines, and from a vector holding a bad value on, one
    // line at a time.
    for (; i < n; ++i) {
        const int32_t v = line[i];
        const uint32_t magnitude = v < 0 ? 0u - static_cast<uint32_t>(v) : static_cast<uint32_t>(v);
        if (magnitude > kMaxMagnitude) return nkpStatusBadAacQuantValue;
        line[i] = dequantise_line(v, magnitude, gain);
    }
    return nkpStatusOk;
}

// Zero, noise and intensity bands are filled by other tools.
inline bool skipped_codebook(uint8_t cb) { return cb == 0 || cb == 13 || cb == 14 || cb == 15; }

}  // namespace

nkpStatus nkpsQuantInv_AAC_32s_I(nkp32s* pSrcDstSpectrum, const nkp16u* pScaleFactor, int numWinGrp,
                                 const nkp32s* pWinGrpLen, int maxSfb, const nkp8u* pSfbCb, int samplingIndex,
                                 int winLen) {
    if (!pSrcDstSpectrum || !pScaleFactor || !pWinGrpLen || !pSfbCb) return nkpStatusNullPointer;
    if (nkpStatus s = check_length_and_groups(winLen, numWinGrp); s != nkpStatusOk) return s;
    if (!max_sfb_in_range(maxSfb)) return nkpStatusBadAacMaxSfb;
    if (!sampling_index_in_range(samplingIndex)) return nkpStatusBadAacSamplingIndex;
    if (maxSfb > band_count(samplingIndex, winLen)) return nkpStatusBadAacMaxSfb;
    if (nkpStatus s = check_window_counts(pWinGrpLen, numWinGrp, winLen); s != nkpStatusOk) return s;

    const FpModeScope fp_mode(FpMode::Standard);
    const int16_t* swb = band_offsets(samplingIndex, winLen);
    int32_t* group = pSrcDstSpectrum;
    for (int g = 0; g < numWinGrp; ++g) {
        const int windows = pWinGrpLen[g];
        for (int b = 0; b < maxSfb; ++b) {
            if (skipped_codebook(pSfbCb[b])) continue;
            const nkpStatus s = dequantise_band(group + swb[b] * windows, (swb[b + 1] - swb[b]) * windows,
                                                band_gain(pScaleFactor[b]));
            if (s != nkpStatusOk) return s;
        }
        pScaleFactor += maxSfb;
        pSfbCb += maxSfb;
        group += windows * winLen;
    }
    return nkpStatusOk;
}

}  // namespace nkp::NKP_PATH_NS
