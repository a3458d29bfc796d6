// Per-band scaling of spectral data. Two-path source: built once per code
// path into nkp::NKP_PATH_NS. Each value is one IEEE multiply whichever
// route it takes, so both paths agree bit for bit.
#include "frame/exports.h"

#include <cstddef>
#include <xmmintrin.h>

namespace nkp::NKP_PATH_NS {

nkpStatus nkpsScale_32f_I(nkp32f* pSrcDst, const nkp32f* pFactor, const nkp32s* pBandOffset, int bands) {
    if (!pSrcDst || !pFactor || !pBandOffset) return nkpStatusNullPointer;
    if (bands < 1) return nkpStatusBadSize;

    for (int b = 0; b < bands; ++b) {
        ptrdiff_t j = pBandOffset[b];
        const ptrdiff_t end = pBandOffset[b + 1];
        const float f = pFactor[b];
        const __m128 vf = _mm_set1_ps(f);
        for (; j + 4 <= end; j += 4) {
            _mm_storeu_ps(pSrcDst + j, _mm_mul_ps(_mm_loadu_ps(pSrcDst + j), vf));
        }
        for (; j < end; ++j) pSrcDst[j] *= f;
    }
    return nkpStatusOk;
}

}  // namespace nkp::NKP_PATH_NS
