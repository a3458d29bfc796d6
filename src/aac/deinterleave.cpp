// Eight short windows from the stream's order (inside a group, band after
// band, each band's lines of every window of the group one after another)
// into window order (128 lines per window, bands in order).
#include "aac/spectral_layout.h"
#include "frame/exports.h"

#include <cstdint>
#include <cstring>
#include <emmintrin.h>

namespace nkp {
namespace {

// Band widths are multiples of 4 and short: an inline SSE copy beats a
// library call per band and window.
inline void copy_lines(int32_t* dst, const int32_t* src, int n) {
    int i = 0;
    for (; i + 4 <= n; i += 4) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i)));
    }
    for (; i < n; ++i) dst[i] = src[i];
}

}  // namespace

nkpStatus nkpsDeinterleaveSpectrum_AAC_32s(const nkp32s* pSrc, nkp32s* pDst, int numWinGrp, const nkp32s* pWinGrpLen,
                                           int maxSfb, int samplingIndex, int winLen) {
    using namespace aac;
    if (!pSrc || !pDst || !pWinGrpLen) return nkpStatusNullPointer;
    if (winLen != kShortWindow) return nkpStatusBadAacWindowLength;
    if (numWinGrp < 1 || numWinGrp > kMaxWindows) return nkpStatusBadAacWindowGroups;
    if (!max_sfb_in_range(maxSfb)) return nkpStatusBadAacMaxSfb;
    if (!sampling_index_in_range(samplingIndex)) return nkpStatusBadAacSamplingIndex;
    if (maxSfb > kNumSwbShort[samplingIndex]) return nkpStatusBadAacMaxSfb;
    if (nkpStatus s = check_window_counts(pWinGrpLen, numWinGrp, winLen); s != nkpStatusOk) return s;

    const int16_t* swb = kSwbOffsetShort[samplingIndex];
    const int used = swb[maxSfb];
    for (int g = 0; g < numWinGrp; ++g) {
        const int windows = pWinGrpLen[g];
        const int32_t* src = pSrc;
        for (int b = 0; b < maxSfb; ++b) {
            const int width = swb[b + 1] - swb[b];
            for (int j = 0; j < windows; ++j) {
                copy_lines(pDst + j * kShortWindow + swb[b], src, width);
                src += width;
            }
        }
        for (int j = 0; j < windows; ++j) {
            std::memset(pDst + j * kShortWindow + used, 0, sizeof(int32_t) * (kShortWindow - used));
        }
        pSrc += windows * kShortWindow;
        pDst += windows * kShortWindow;
    }
    return nkpStatusOk;
}

}  // namespace nkp
