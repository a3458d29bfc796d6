// Polyphase synthesis of the MP3 decoder: 18 time slots of 32 subband
// samples (fixed point, 1.0 = 2^25) to 576 PCM samples, in single-precision
// SSE arithmetic. The state keeps the recent 64-value V vectors.
#include "common/fp_mode.h"
#include "frame/exports.h"
#include "frame/object.h"
#include "mp3/decoder_tables.h"

#include <emmintrin.h>
#include <tmmintrin.h>

#include <cstring>

namespace nkp {
namespace {

constexpr uint32_t kSynthesisTag = amc_tag('S');
constexpr size_t kAlign = 16;
// The general rule: a failed InitAlloc keeps what it allocated, Free keeps the tag.
constexpr LifeCycle kLife{kAlign, OnInitFailure::KeepBuffers, OnFree::KeepTag};

constexpr int kRing = 32;

struct SynthesisState {
    uint32_t tag;
    int32_t allocated;
    int32_t head;  // ring slot of the newest V vector
    int32_t reserved;
    // A ring of V vectors: the window reads the 16 newest; the slack lets
    // the next four be formed before they are windowed.
    alignas(16) float v[kRing][64];
};

inline __m128 reverse(__m128 x) { return _mm_shuffle_ps(x, x, _MM_SHUFFLE(0, 1, 2, 3)); }

// Offset of the factors for size N in kDctFactors (32, 16, 8, 4, 2).
constexpr int factor_offset(int n) { return n == 32 ? 0 : n == 16 ? 16 : n == 8 ? 24 : n == 4 ? 28 : 30; }

// The cosine transform c(m) = sum_k x_k cos(m (2k+1) pi / 2N) of four time
// slots at once (one per lane), in place, outputs in natural order.
template <int N>
inline void dct(__m128* x) {
    if constexpr (N == 1) {
        return;
    } else {
        constexpr int H = N / 2;
        const float* f = mp3::kDctFactors + factor_offset(N);
        __m128 a[H], b[H];
        for (int k = 0; k < H; ++k) {
            a[k] = _mm_add_ps(x[k], x[N - 1 - k]);
            b[k] = _mm_mul_ps(_mm_sub_ps(x[k], x[N - 1 - k]), _mm_set1_ps(f[k]));
        }
        dct<H>(a);
        dct<H>(b);
        for (int p = 0; p < H - 1; ++p) {
            x[2 * p] = a[p];
            x[2 * p + 1] = _mm_add_ps(b[p], b[p + 1]);
        }
        x[N - 2] = a[H - 1];
        x[N - 1] = b[H - 1];
    }
}

// V of four slots from their subband samples (slot t at s + 32 t). With
// c(m) = sum_k s_k cos(m (2k+1) pi / 64): V[j] = c(16 + j) for j < 16,
// -c(48 - j) for 16 <= j < 48 (c(32) is 0), -c(j - 48) from 48 on.
void compute_v4(const int32_t* s, float* const v[4]) {
    __m128 x[32];
    for (int q = 0; q < 8; ++q) {
        __m128 r0 = _mm_cvtepi32_ps(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 4 * q)));
        __m128 r1 = _mm_cvtepi32_ps(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 32 + 4 * q)));
        __m128 r2 = _mm_cvtepi32_ps(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 64 + 4 * q)));
        __m128 r3 = _mm_cvtepi32_ps(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 96 + 4 * q)));
        _MM_TRANSPOSE4_PS(r0, r1, r2, r3);
        x[4 * q] = r0;
        x[4 * q + 1] = r1;
        x[4 * q + 2] = r2;
        x[4 * q + 3] = r3;
    }
    dct<32>(x);
    alignas(16) float c[4][36];
    for (int q = 0; q < 8; ++q) {
        __m128 r0 = x[4 * q], r1 = x[4 * q + 1], r2 = x[4 * q + 2], r3 = x[4 * q + 3];
        _MM_TRANSPOSE4_PS(r0, r1, r2, r3);
        _mm_store_ps(c[0] + 4 * q, r0);
        _mm_store_ps(c[1] + 4 * q, r1);
        _mm_store_ps(c[2] + 4 * q, r2);
        _mm_store_ps(c[3] + 4 * q, r3);
    }
    const __m128 sign = _mm_set1_ps(-0.0f);
    for (int t = 0; t < 4; ++t) {
        float* ct = c[t];
        float* vt = v[t];
        _mm_store_ps(ct + 32, _mm_setzero_ps());
        for (int i = 0; i < 4; ++i) {
            // V[j] = c(16 + j), j < 16.
            _mm_store_ps(vt + 4 * i, _mm_load_ps(ct + 16 + 4 * i));
            // V[16 + j] = -c(32 - j): reversed c(17..32).
            _mm_store_ps(vt + 16 + 4 * i, _mm_xor_ps(sign, reverse(_mm_loadu_ps(ct + 29 - 4 * i))));
            // V[32 + j] = -c(16 - j): reversed c(1..16).
            _mm_store_ps(vt + 32 + 4 * i, _mm_xor_ps(sign, reverse(_mm_loadu_ps(ct + 13 - 4 * i))));
            // V[48 + j] = -c(j).
            _mm_store_ps(vt + 48 + 4 * i, _mm_xor_ps(sign, _mm_load_ps(ct + 4 * i)));
        }
    }
}

// One slot of 32 PCM samples: the window over the 16 newest V vectors.
inline void window_slot(const SynthesisState* st, int16_t* out, int step) {
    const float* w = mp3::kSynthesisWindow;
    __m128 acc[8];
    for (auto& a : acc) a = _mm_setzero_ps();
    for (int i = 0; i < 8; ++i) {
        const float* even = st->v[(st->head + 2 * i) & (kRing - 1)];
        const float* odd = st->v[(st->head + 2 * i + 1) & (kRing - 1)] + 32;
        const float* we = w + 64 * i;
        const float* wo = we + 32;
        for (int j = 0; j < 8; ++j) {
            acc[j] = _mm_add_ps(acc[j], _mm_mul_ps(_mm_load_ps(we + 4 * j), _mm_load_ps(even + 4 * j)));
            acc[j] = _mm_add_ps(acc[j], _mm_mul_ps(_mm_load_ps(wo + 4 * j), _mm_load_ps(odd + 4 * j)));
        }
    }
    for (int j = 0; j < 8; j += 2) {
        const __m128i pcm = _mm_packs_epi32(_mm_cvtps_epi32(acc[j]), _mm_cvtps_epi32(acc[j + 1]));
        if (step == 1) {
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 4 * j), pcm);
        } else {
            alignas(16) int16_t tmp[8];
            _mm_store_si128(reinterpret_cast<__m128i*>(tmp), pcm);
            for (int k = 0; k < 8; ++k) out[2 * (4 * j + k)] = tmp[k];
        }
    }
}

nkpStatus get_size(int32_t* size) {
    *size = static_cast<int32_t>(sizeof(SynthesisState) + kAlign - 1);
    return nkpStatusOk;
}

nkpStatus init(void* buffer) {
    SynthesisState* st = object_in<SynthesisState, kAlign>(buffer);
    std::memset(st, 0, sizeof(*st));
    st->tag = kSynthesisTag;
    st->allocated = 0;
    return nkpStatusOk;
}

}  // namespace

nkpStatus nkpsSynthesisFilterGetSize_MP3_16s(int* pSize) {
    if (!pSize) return nkpStatusNullPointer;
    int32_t size = 0;
    get_size(&size);
    *pSize = size;
    return nkpStatusOk;
}

nkpStatus nkpsSynthesisFilterInit_MP3_16s(nkpMP3SynthesisState* pState) {
    if (!pState) return nkpStatusNullPointer;
    return init(pState);
}

nkpStatus nkpsSynthesisFilterInitAlloc_MP3_16s(nkpMP3SynthesisState** ppState) {
    return init_alloc<SynthesisState, kLife>(ppState, get_size, init);
}

nkpStatus nkpsSynthesisFilterFree_MP3_16s(nkpMP3SynthesisState* pState) {
    return free_object<SynthesisState, kLife>(pState, kSynthesisTag);
}

nkpStatus nkpsSynthesisFilter_MP3_32s16s(const nkp32s* pSrc, nkp16s* pDst, int channelStep,
                                         nkpMP3SynthesisState* pState) {
    if (!pSrc || !pDst || !pState) return nkpStatusNullPointer;
    if (channelStep != 1 && channelStep != 2) return nkpStatusOutOfRange;
    SynthesisState* st = tagged_object<SynthesisState, kAlign>(pState, kSynthesisTag);
    if (!st) return nkpStatusWrongObject;
    const FpModeScope rounding(FpMode::Standard);
    // V vectors are formed four slots at a time (the last group holds two
    // slots and two of zeros), then each slot enters the ring and is windowed.
    alignas(16) int32_t tail[4 * 32] = {};
    alignas(16) float spare[2][64];
    for (int t0 = 0; t0 < 18; t0 += 4) {
        const int count = t0 + 4 <= 18 ? 4 : 18 - t0;
        const int32_t* src = pSrc + 32 * t0;
        if (count < 4) {
            std::memcpy(tail, src, sizeof(int32_t) * 32 * count);
            src = tail;
        }
        float* v[4];
        for (int t = 0; t < 4; ++t) v[t] = t < count ? st->v[(st->head - 1 - t) & (kRing - 1)] : spare[t - count];
        compute_v4(src, v);
        for (int t = 0; t < count; ++t) {
            st->head = (st->head - 1) & (kRing - 1);
            window_slot(st, pDst + 32 * (t0 + t) * channelStep, channelStep);
        }
    }
    return nkpStatusOk;
}

}  // namespace nkp
