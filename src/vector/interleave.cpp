// Moving samples between interleaved and per-channel layouts.
//
// Two channels (the common case) have their own vector routine; other
// counts walk the channels in pairs and then the odd last channel. The
// route never changes the result.
#include "frame/exports.h"
#include "common/numeric.h"

#include <cstddef>
#include <emmintrin.h>
#include <tmmintrin.h>

namespace nkp {
namespace {

// ---- two channels ----------------------------------------------------------

void split_two(const int16_t* src, int len, int16_t* d0, int16_t* d1) {
    // Within 8 interleaved samples: even ones to the low half, odd ones high.
    const __m128i order = _mm_setr_epi8(0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15);
    ptrdiff_t i = 0;
    for (; i + 8 <= len; i += 8) {
        const __m128i a = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 2 * i)), order);
        const __m128i b = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 2 * i + 8)), order);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d0 + i), _mm_unpacklo_epi64(a, b));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d1 + i), _mm_unpackhi_epi64(a, b));
    }
    for (; i < len; ++i) {
        d0[i] = src[2 * i];
        d1[i] = src[2 * i + 1];
    }
}

void split_two(const float* src, int len, float* d0, float* d1) {
    ptrdiff_t i = 0;
    for (; i + 4 <= len; i += 4) {
        const __m128 a = _mm_loadu_ps(src + 2 * i);
        const __m128 b = _mm_loadu_ps(src + 2 * i + 4);
        _mm_storeu_ps(d0 + i, _mm_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0)));
        _mm_storeu_ps(d1 + i, _mm_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1)));
    }
    for (; i < len; ++i) {
        d0[i] = src[2 * i];
        d1[i] = src[2 * i + 1];
    }
}

void merge_two(const int16_t* s0, const int16_t* s1, int len, int16_t* dst) {
    ptrdiff_t i = 0;
    for (; i + 8 <= len; i += 8) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s0 + i));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s1 + i));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 2 * i), _mm_unpacklo_epi16(a, b));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 2 * i + 8), _mm_unpackhi_epi16(a, b));
    }
    for (; i < len; ++i) {
        dst[2 * i] = s0[i];
        dst[2 * i + 1] = s1[i];
    }
}

void merge_two(const float* s0, const float* s1, int len, float* dst) {
    ptrdiff_t i = 0;
    for (; i + 4 <= len; i += 4) {
        const __m128 a = _mm_loadu_ps(s0 + i);
        const __m128 b = _mm_loadu_ps(s1 + i);
        _mm_storeu_ps(dst + 2 * i, _mm_unpacklo_ps(a, b));
        _mm_storeu_ps(dst + 2 * i + 4, _mm_unpackhi_ps(a, b));
    }
    for (; i < len; ++i) {
        dst[2 * i] = s0[i];
        dst[2 * i + 1] = s1[i];
    }
}

// ---- any count ---------------------------------------------------------------

template <typename T>
void split(const T* src, int channels, int len, T* const* dst) {
    if (channels == 2) {
        split_two(src, len, dst[0], dst[1]);
        return;
    }
    const ptrdiff_t step = channels;
    int c = 0;
    for (; c + 2 <= channels; c += 2) {
        T* d0 = dst[c];
        T* d1 = dst[c + 1];
        const T* s = src + c;
        for (int i = 0; i < len; ++i, s += step) {
            d0[i] = s[0];
            d1[i] = s[1];
        }
    }
    if (c < channels) {
        T* d = dst[c];
        const T* s = src + c;
        for (int i = 0; i < len; ++i, s += step) d[i] = *s;
    }
}

template <typename T>
void merge(const T* const* src, int channels, int len, T* dst) {
    if (channels == 2) {
        merge_two(src[0], src[1], len, dst);
        return;
    }
    const ptrdiff_t step = channels;
    int c = 0;
    for (; c + 2 <= channels; c += 2) {
        const T* s0 = src[c];
        const T* s1 = src[c + 1];
        T* d = dst + c;
        for (int i = 0; i < len; ++i, d += step) {
            d[0] = s0[i];
            d[1] = s1[i];
        }
    }
    if (c < channels) {
        const T* s = src[c];
        T* d = dst + c;
        for (int i = 0; i < len; ++i, d += step) *d = s[i];
    }
}

// Shared checks and the alignment warning. `flat` is the interleaved buffer,
// `lanes` the per-channel pointers.
template <typename Lane>
nkpStatus check(const void* flat, Lane const* lanes, int channels, int len) {
    if (!flat || !lanes) return nkpStatusNullPointer;
    if (channels < 1) return nkpStatusBadChannelCount;
    if (len < 1) return nkpStatusBadSize;
    for (int c = 0; c < channels; ++c) {
        if (!lanes[c]) return nkpStatusNullPointer;
    }
    return nkpStatusOk;
}

template <typename Lane>
nkpStatus alignment_status(const void* flat, Lane const* lanes, int channels) {
    bool aligned = aligned16(flat);
    for (int c = 0; c < channels; ++c) aligned = aligned && aligned16(lanes[c]);
    return aligned ? nkpStatusOk : nkpStatusMisaligned;
}

template <typename T>
nkpStatus deinterleave(const T* src, int channels, int len, T** dst) {
    const nkpStatus status = check(src, dst, channels, len);
    if (status != nkpStatusOk) return status;
    split(src, channels, len, dst);
    return alignment_status(src, dst, channels);
}

template <typename T>
nkpStatus interleave(const T* const* src, int channels, int len, T* dst) {
    const nkpStatus status = check(dst, src, channels, len);
    if (status != nkpStatusOk) return status;
    merge(src, channels, len, dst);
    return alignment_status(dst, src, channels);
}

}  // namespace

nkpStatus nkpsDeinterleave_16s(const nkp16s* pSrc, int channels, int len, nkp16s** ppDst) {
    return deinterleave(pSrc, channels, len, ppDst);
}

nkpStatus nkpsDeinterleave_32f(const nkp32f* pSrc, int channels, int len, nkp32f** ppDst) {
    return deinterleave(pSrc, channels, len, ppDst);
}

nkpStatus nkpsInterleave_16s(const nkp16s* const* ppSrc, int channels, int len, nkp16s* pDst) {
    return interleave(ppSrc, channels, len, pDst);
}

nkpStatus nkpsInterleave_32f(const nkp32f* const* ppSrc, int channels, int len, nkp32f* pDst) {
    return interleave(ppSrc, channels, len, pDst);
}

}  // namespace nkp
