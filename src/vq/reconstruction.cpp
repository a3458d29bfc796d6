// Reconstruction of a spectrum from the chosen code vectors: for each
// sub-vector the signed vectors of every stage are summed in stage order and
// the sum is scaled by 1 / stageCount.
#include "frame/exports.h"
#include "vq/codebook.h"

#include <xmmintrin.h>

namespace nkp {

nkpStatus nkpsVQReconstruction_32f(const int* const* ppIndex, const int* const* ppSign, const int* pLength,
                                   int subVectorCount, int stageCount, nkp32f* pDst,
                                   const nkpsVQCodeBook_32f* const* ppCodeBook) {
    if (!ppIndex || !ppSign || !pLength || !pDst || !ppCodeBook) return nkpStatusNullPointer;
    if (subVectorCount < 1) return nkpStatusOk;
    if (stageCount < 1) return nkpStatusBadSize;
    for (int s = 0; s < stageCount; ++s) {
        if (!ppIndex[s] || !ppSign[s] || !ppCodeBook[s]) return nkpStatusNullPointer;
    }
    for (int s = 0; s < stageCount; ++s) {
        vq::CodeBook cb;
        if (!vq::usable(ppCodeBook[s], cb)) return nkpStatusWrongObject;
    }
    for (int s = 0; s < stageCount; ++s) {
        vq::CodeBook cb;
        vq::usable(ppCodeBook[s], cb);
        if (!vq::lengths_fit(pLength, subVectorCount, cb.dim)) return nkpStatusBadSize;
    }
    for (int s = 0; s < stageCount; ++s) {
        vq::CodeBook cb;
        vq::usable(ppCodeBook[s], cb);
        if (!vq::indices_fit(ppIndex[s], subVectorCount, cb.count)) return nkpStatusOutOfRange;
    }

    const float scale = 1.0f / static_cast<float>(stageCount);
    const __m128 scale4 = _mm_set1_ps(scale);
    float* dst = pDst;
    for (int k = 0; k < subVectorCount; ++k) {
        const ptrdiff_t len = pLength[k];
        for (int s = 0; s < stageCount; ++s) {
            const float* c = vq::read(ppCodeBook[s]).vectors[ppIndex[s][k]];
            const float sign = static_cast<float>(ppSign[s][k]);
            const __m128 sign4 = _mm_set1_ps(sign);
            ptrdiff_t i = 0;
            if (s == 0) {
                for (; i + 4 <= len; i += 4) _mm_storeu_ps(dst + i, _mm_mul_ps(sign4, _mm_load_ps(c + i)));
                for (; i < len; ++i) dst[i] = sign * c[i];
            } else {
                for (; i + 4 <= len; i += 4) {
                    _mm_storeu_ps(dst + i, _mm_add_ps(_mm_loadu_ps(dst + i), _mm_mul_ps(sign4, _mm_load_ps(c + i))));
                }
                for (; i < len; ++i) dst[i] += sign * c[i];
            }
        }
        ptrdiff_t i = 0;
        for (; i + 4 <= len; i += 4) _mm_storeu_ps(dst + i, _mm_mul_ps(_mm_loadu_ps(dst + i), scale4));
        for (; i < len; ++i) dst[i] *= scale;
        dst += len;
    }
    return nkpStatusOk;
}

}  // namespace nkp
