// The block FIR filter: each call takes one block, and the output block is
// the sum over the taps of tap k times the input block of k calls ago,
// element by element:
//   dst = taps[0] new; then for the older blocks, oldest first,
//   dst += taps[k] (block k calls old), k = N-1 down to 1.
// The order of that sum is part of the result.
#include "common/numeric.h"
#include "frame/exports.h"
#include "frame/memory.h"
#include "vq/fir_block.h"

#include <cstddef>
#include <cstring>
#include <xmmintrin.h>

namespace nkp {
namespace {

using vq::FirBlockState;


// dst[i] = tap[0] slot[0][i] + tap[1] slot[1][i] + ... in that order (or,
// when Accumulate, dst[i] + tap[0] slot[0][i] + ...); each tap comes in all
// four lanes. Sixteen, then four, then single elements at a time; every
// element sees the same order. Each slot line is read once, whole.
template <bool Accumulate>
void filter(const float* const* slot, const __m128* tap, ptrdiff_t taps, float* dst, ptrdiff_t len) {
    auto start = [&](ptrdiff_t i) {
        const __m128 p = _mm_mul_ps(tap[0], _mm_load_ps(slot[0] + i));
        return Accumulate ? _mm_add_ps(_mm_loadu_ps(dst + i), p) : p;
    };
    ptrdiff_t i = 0;
    for (; i + 16 <= len; i += 16) {
        __m128 a0 = start(i), a1 = start(i + 4), a2 = start(i + 8), a3 = start(i + 12);
        for (ptrdiff_t k = 1; k < taps; ++k) {
            const __m128 t = tap[k];
            const float* s = slot[k] + i;
            a0 = _mm_add_ps(a0, _mm_mul_ps(t, _mm_load_ps(s)));
            a1 = _mm_add_ps(a1, _mm_mul_ps(t, _mm_load_ps(s + 4)));
            a2 = _mm_add_ps(a2, _mm_mul_ps(t, _mm_load_ps(s + 8)));
            a3 = _mm_add_ps(a3, _mm_mul_ps(t, _mm_load_ps(s + 12)));
        }
        _mm_storeu_ps(dst + i, a0);
        _mm_storeu_ps(dst + i + 4, a1);
        _mm_storeu_ps(dst + i + 8, a2);
        _mm_storeu_ps(dst + i + 12, a3);
    }
    for (; i + 4 <= len; i += 4) {
        __m128 a = start(i);
        for (ptrdiff_t k = 1; k < taps; ++k) a = _mm_add_ps(a, _mm_mul_ps(tap[k], _mm_load_ps(slot[k] + i)));
        _mm_storeu_ps(dst + i, a);
    }
    for (; i < len; ++i) {
        float a = _mm_cvtss_f32(tap[0]) * slot[0][i];
        if (Accumulate) a = dst[i] + a;
        for (ptrdiff_t k = 1; k < taps; ++k) a += _mm_cvtss_f32(tap[k]) * slot[k][i];
        dst[i] = a;
    }
}

}  // namespace

nkpStatus nkpsFIRBlockInitAlloc_32f(nkpsFIRBlockState_32f** ppState, int numTaps, int blockLength) {
    if (!ppState) return nkpStatusNullPointer;
    if (numTaps < 1 || blockLength < 1) return nkpStatusBadFilterLength;
    FirBlockState* st = static_cast<FirBlockState*>(malloc_bytes(sizeof(FirBlockState)));
    if (!st) return nkpStatusNoMemory;
    // The delay line is sized from the full 32-bit arguments, so it always
    // holds the (never larger) 16-bit sizes the filter works with.
    const int64_t stride = (static_cast<int64_t>(blockLength) + 3) & ~int64_t{3};
    const int64_t floats = stride * numTaps;
    float* line = floats <= INT32_MAX / 4 ? static_cast<float*>(malloc_words(static_cast<int32_t>(floats))) : nullptr;
    if (!line) {
        release(st);
        return nkpStatusNoMemory;
    }
    std::memset(line, 0, static_cast<size_t>(floats) * sizeof(float));
    st->delayLine = line;
    st->numTaps = static_cast<int16_t>(numTaps);
    st->blockLength = static_cast<int16_t>(blockLength);
    st->blockStride = static_cast<int16_t>(stride);
    st->position = 0;
    st->tag = vq::kFirBlockTag;
    *ppState = reinterpret_cast<nkpsFIRBlockState_32f*>(st);
    return nkpStatusOk;
}

nkpStatus nkpsFIRBlockFree_32f(nkpsFIRBlockState_32f* pState) {
    if (!pState) return nkpStatusNullPointer;
    FirBlockState* st = reinterpret_cast<FirBlockState*>(pState);
    if (st->tag != vq::kFirBlockTag) return nkpStatusWrongObject;
    st->tag = 0;
    release(st->delayLine);
    release(st);
    return nkpStatusOk;
}

nkpStatus nkpsFIRBlockOne_32f(const nkp32f* pSrc, nkp32f* pDst, nkpsFIRBlockState_32f* pState, const nkp32f* pTaps) {
    if (!pSrc || !pDst || !pState || !pTaps) return nkpStatusNullPointer;
    FirBlockState* st = reinterpret_cast<FirBlockState*>(pState);
    if (st->tag != vq::kFirBlockTag) return nkpStatusWrongObject;
    const ptrdiff_t taps = st->numTaps, len = st->blockLength;
    if (len < 1 || taps < 1) return nkpStatusBadFilterLength;
    if (st->position < 0 || st->position >= taps) return nkpStatusBadFilterLength;

    const ptrdiff_t stride = static_cast<uint16_t>(st->blockStride);
    const ptrdiff_t newest = (st->position + 1) % taps;
    st->position = static_cast<int16_t>(newest);
    float* line = st->delayLine;
    std::memmove(line + newest * stride, pSrc, static_cast<size_t>(len) * sizeof(float));

    // The sum's order, laid out once: tap 0 with the newest block, then the
    // oldest block (tap N-1) down to the block one call old (tap 1). Long
    // filters go through in chunks, the later ones adding to dst.
    constexpr ptrdiff_t kChunk = 64;
    const float* slot[kChunk];
    __m128 tap[kChunk];
    for (ptrdiff_t first = 0; first < taps; first += kChunk) {
        const ptrdiff_t n = taps - first < kChunk ? taps - first : kChunk;
        for (ptrdiff_t m = 0; m < n; ++m) {
            const ptrdiff_t order = first + m;  // 0: newest; j + 1: the j-th oldest
            const ptrdiff_t s = order == 0 ? newest : (newest + order) % taps;
            slot[m] = line + s * stride;
            tap[m] = _mm_set1_ps(pTaps[order == 0 ? 0 : taps - order]);
        }
        if (first == 0) {
            filter<false>(slot, tap, n, pDst, len);
        } else {
            filter<true>(slot, tap, n, pDst, len);
        }
    }
    return aligned16(pSrc) && aligned16(pDst) && aligned16(pTaps) ? nkpStatusOk : nkpStatusMisaligned;
}

}  // namespace nkp
