// Float channels to interleaved 16-bit PCM. Two-path source: built once per
// code path into nkp::NKP_PATH_NS.
//
// Every sample goes through the same clamp-then-convert sequence
// (common/numeric.h), so the vector and scalar routes and both code paths
// agree bit for bit, NaN included.
#include "frame/exports.h"
#include "common/fp_mode.h"
#include "common/numeric.h"

#include <cstddef>
#include <emmintrin.h>

namespace nkp::NKP_PATH_NS {
namespace {

void join_one(const float* s, ptrdiff_t len, int16_t* dst) {
    ptrdiff_t i = 0;
    for (; i + 8 <= len; i += 8) {
        const __m128i a = float_to_s16x4(_mm_loadu_ps(s + i));
        const __m128i b = float_to_s16x4(_mm_loadu_ps(s + i + 4));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), _mm_packs_epi32(a, b));
    }
    for (; i < len; ++i) dst[i] = float_to_s16(s[i]);
}

void join_two(const float* s0, const float* s1, ptrdiff_t len, int16_t* dst) {
    ptrdiff_t i = 0;
    for (; i + 4 <= len; i += 4) {
        const __m128 l = _mm_loadu_ps(s0 + i);
        const __m128 r = _mm_loadu_ps(s1 + i);
        const __m128i lo = float_to_s16x4(_mm_unpacklo_ps(l, r));
        const __m128i hi = float_to_s16x4(_mm_unpackhi_ps(l, r));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 2 * i), _mm_packs_epi32(lo, hi));
    }
    for (; i < len; ++i) {
        dst[2 * i] = float_to_s16(s0[i]);
        dst[2 * i + 1] = float_to_s16(s1[i]);
    }
}

// Any count: each channel's samples are converted four at a time and
// written at the channel's stride.
void join_many(const float* const* src, int channels, ptrdiff_t len, int16_t* dst) {
    const ptrdiff_t step = channels;
    ptrdiff_t i = 0;
    for (; i + 4 <= len; i += 4) {
        int16_t* row = dst + i * step;
        for (int c = 0; c < channels; ++c) {
            alignas(16) int32_t v[4];
            _mm_store_si128(reinterpret_cast<__m128i*>(v), float_to_s16x4(_mm_loadu_ps(src[c] + i)));
            row[c] = static_cast<int16_t>(v[0]);
            row[c + step] = static_cast<int16_t>(v[1]);
            row[c + 2 * step] = static_cast<int16_t>(v[2]);
            row[c + 3 * step] = static_cast<int16_t>(v[3]);
        }
    }
    for (; i < len; ++i) {
        for (int c = 0; c < channels; ++c) dst[i * step + c] = float_to_s16(src[c][i]);
    }
}

}  // namespace

nkpStatus nkpsJoin_32f16s_D2L(const nkp32f* const* ppSrc, int channels, int len, nkp16s* pDst) {
    // The destination is checked before the sizes and the source array after
    // them: this function's own order.
    if (!pDst) return nkpStatusNullPointer;
    if (channels < 1 || len < 1) return nkpStatusBadSize;
    if (!ppSrc) return nkpStatusNullPointer;
    for (int c = 0; c < channels; ++c) {
        if (!ppSrc[c]) return nkpStatusNullPointer;
    }

    const FpModeScope mode(FpMode::Nearest);
    if (channels == 1) {
        join_one(ppSrc[0], len, pDst);
    } else if (channels == 2) {
        join_two(ppSrc[0], ppSrc[1], len, pDst);
    } else {
        join_many(ppSrc, channels, len, pDst);
    }
    return nkpStatusOk;
}

}  // namespace nkp::NKP_PATH_NS
