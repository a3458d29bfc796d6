// Polyphase synthesis of the MP3 decoder: 18 time slots of 32 subband
// samples (fixed point, 1.0 = 2^25) to 576 PCM samples, in single-precision
// SSE arithmetic. The state keeps the last 16 slots of the 64-value V vector.
#include "frame/exports.h"
#include "frame/object.h"
#include "mp3/decoder_tables.h"
#include "mp3/fp_mode.h"

#include <emmintrin.h>
#include <tmmintrin.h>

#include <cstring>

namespace nkp {
namespace {

constexpr uint32_t kSynthesisTag = amc_tag('S');
constexpr size_t kAlign = 16;

struct SynthesisState {
    uint32_t tag;
    int32_t allocated;
    int32_t head;  // ring slot of the newest V vector
    int32_t reserved;
    alignas(16) float v[16][64];
};

inline __m128 reverse(__m128 x) { return _mm_shuffle_ps(x, x, _MM_SHUFFLE(0, 1, 2, 3)); }

// V for one slot from its 32 subband samples. With c(m) = sum_k s_k
// cos(m (2k+1) pi / 64): V[j] = c(16 + j) for j < 16, -c(48 - j) for
// 16 <= j < 48 (c(32) is 0), -c(j - 48) from 48 on.
void compute_v(const int32_t* s, float* v) {
    __m128 x[8];
    for (int i = 0; i < 8; ++i) x[i] = _mm_cvtepi32_ps(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 4 * i)));
    alignas(16) float sum[16], dif[16];
    for (int i = 0; i < 4; ++i) {
        const __m128 hi = reverse(x[7 - i]);
        _mm_store_ps(sum + 4 * i, _mm_add_ps(x[i], hi));
        _mm_store_ps(dif + 4 * i, _mm_sub_ps(x[i], hi));
    }
    __m128 ev[4], od[4];
    for (int i = 0; i < 4; ++i) ev[i] = od[i] = _mm_setzero_ps();
    for (int k = 0; k < 16; ++k) {
        const __m128 a = _mm_set1_ps(sum[k]), d = _mm_set1_ps(dif[k]);
        const float* e = mp3::kSynthesisEven + 16 * k;
        const float* o = mp3::kSynthesisOdd + 16 * k;
        for (int i = 0; i < 4; ++i) {
            ev[i] = _mm_add_ps(ev[i], _mm_mul_ps(a, _mm_load_ps(e + 4 * i)));
            od[i] = _mm_add_ps(od[i], _mm_mul_ps(d, _mm_load_ps(o + 4 * i)));
        }
    }
    alignas(16) float c[33];
    alignas(16) float even[16], odd[16];
    for (int i = 0; i < 4; ++i) {
        _mm_store_ps(even + 4 * i, ev[i]);
        _mm_store_ps(odd + 4 * i, od[i]);
    }
    for (int p = 0; p < 16; ++p) {
        c[2 * p] = even[p];
        c[2 * p + 1] = odd[p];
    }
    c[32] = 0.0f;
    for (int j = 0; j < 16; ++j) v[j] = c[16 + j];
    for (int j = 16; j < 48; ++j) v[j] = -c[48 - j];
    for (int j = 48; j < 64; ++j) v[j] = -c[j - 48];
}

// One slot of 32 PCM samples: the window over the 16 newest V vectors.
inline void window_slot(const SynthesisState* st, int16_t* out, int step) {
    const float* w = mp3::kSynthesisWindow;
    __m128 acc[8];
    for (auto& a : acc) a = _mm_setzero_ps();
    for (int i = 0; i < 8; ++i) {
        const float* even = st->v[(st->head + 2 * i) & 15];
        const float* odd = st->v[(st->head + 2 * i + 1) & 15] + 32;
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
    return init_alloc<SynthesisState, kAlign>(ppState, get_size, init);
}

nkpStatus nkpsSynthesisFilterFree_MP3_16s(nkpMP3SynthesisState* pState) {
    return free_object<SynthesisState, kAlign>(pState, kSynthesisTag);
}

nkpStatus nkpsSynthesisFilter_MP3_32s16s(const nkp32s* pSrc, nkp16s* pDst, int channelStep,
                                         nkpMP3SynthesisState* pState) {
    if (!pSrc || !pDst || !pState) return nkpStatusNullPointer;
    if (channelStep != 1 && channelStep != 2) return nkpStatusOutOfRange;
    SynthesisState* st = tagged_object<SynthesisState, kAlign>(pState, kSynthesisTag);
    if (!st) return nkpStatusWrongObject;
    mp3::NearestRounding rounding;
    for (int t = 0; t < 18; ++t) {
        st->head = (st->head - 1) & 15;
        compute_v(pSrc + 32 * t, st->v[st->head]);
        window_slot(st, pDst + 32 * t * channelStep, channelStep);
    }
    return nkpStatusOk;
}

}  // namespace nkp
