// The 16-bit complex FFT with a scale factor (tag 1). The data are widened
// to float in the work buffer, transformed by the float engine, scaled by
// 2^-scaleFactor, rounded to nearest and saturated back to 16 bits.
#include "common/numeric.h"
#include "frame/object.h"
#include "transform/engine.h"

#include <climits>
#include <cmath>
#include <cstring>
#include <emmintrin.h>

namespace nkp::fft {

namespace {

constexpr int kHeaderBytes = 64;

// 2^-sf as a float multiplier; factors beyond the float range saturate the
// result anyway, so the exponent is clamped.
float pow2_neg(int sf) {
    if (sf > 200) sf = 200;
    if (sf < -200) sf = -200;
    return static_cast<float>(std::ldexp(1.0, -sf));
}

// n floats (n a multiple of 2) times f, rounded to nearest, saturated to s16.
void narrow(const float* v, int16_t* out, int n, float f) {
    const __m128 vf = _mm_set1_ps(f);
    int i = 0;
    for (; i + 4 <= n; i += 4) {
        const __m128i r = float_to_s16x4(_mm_mul_ps(_mm_loadu_ps(v + i), vf));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out + i), _mm_packs_epi32(r, r));
    }
    for (; i < n; ++i) out[i] = float_to_s16(v[i] * f);
}

}  // namespace

nkpStatus fftSizesComplex16s(int order, int flag, int hint, int* specSize, int* initSize, int* bufSize) {
    if (order > 30 || order < 0) return nkpStatusBadOrder;
    if (!specSize || !initSize || !bufSize) return nkpStatusNullPointer;
    if (!valid_flag(flag)) return nkpStatusBadFlag;
    if (order > kMaxOrder) return nkpStatusBadOrder;
    const Sizes s = fft16s_sizes(order, hint);
    // The float copy of order 28 would not fit a 32-bit size.
    if (s.work > INT32_MAX) return nkpStatusBadSize;
    *specSize = static_cast<int>(s.spec);
    *initSize = static_cast<int>(s.init);
    *bufSize = static_cast<int>(s.work);
    return nkpStatusOk;
}

nkpStatus fftInitComplex16s(FftSpecComplex16s** ppSpec, int order, int flag, int hint, uint8_t* memSpec,
                            uint8_t* memInit) {
    if (!ppSpec) return nkpStatusNullPointer;
    if (order < 0 || order > kMaxOrder) return nkpStatusBadOrder;
    if (!memSpec) return nkpStatusNullPointer;
    uint8_t* base = align_up<64>(memSpec);
    std::memset(base, 0, kHeaderBytes);
    auto* spec = reinterpret_cast<FftSpecComplex16s*>(base);
    if (!valid_flag(flag)) return nkpStatusBadFlag;
    const Sizes sizes = fft16s_sizes(order, hint);
    spec->tag = kTagComplex16s;
    spec->order = order;
    spec->flag = flag;
    spec->hint = hint;
    spec->bufSize = sizes.work > INT32_MAX ? 0 : static_cast<int32_t>(sizes.work);
    if (order >= 11 && !memInit) return nkpStatusNullPointer;
    if (order > 0) {
        // The float plan sits 64-byte aligned behind the header.
        const nkpStatus st = fftInitComplex32f(&spec->fspec, order, flag, hint, base + kHeaderBytes, memInit);
        if (st != nkpStatusOk) {
            spec->tag = 0;
            return st;
        }
    }
    *ppSpec = spec;
    return nkpStatusOk;
}

nkpStatus fftCreateComplex16s(FftSpecComplex16s** ppSpec, int order, int flag, int hint) {
    return init_alloc_with_work<FftSpecComplex16s, kPlanLife>(
        ppSpec,
        [&](int32_t* spec, int32_t* scratch) {
            int work = 0;
            return fftSizesComplex16s(order, flag, hint, spec, scratch, &work);
        },
        [&](void* mem, void* scratch) {
            FftSpecComplex16s* spec = nullptr;
            return fftInitComplex16s(&spec, order, flag, hint, static_cast<uint8_t*>(mem),
                                     static_cast<uint8_t*>(scratch));
        });
}

nkpStatus fftWorkSizeComplex16s(const FftSpecComplex16s* spec, int* size) {
    if (!spec || !size) return nkpStatusNullPointer;
    if (!tagged_object<FftSpecComplex16s, 64>(spec, kTagComplex16s)) return nkpStatusWrongObject;
    *size = spec->bufSize;
    return nkpStatusOk;
}

nkpStatus fftDestroyComplex16s(FftSpecComplex16s* spec) {
    return free_object<FftSpecComplex16s, kPlanLife>(spec, kTagComplex16s);
}

nkpStatus fftForwardComplex16sScaled(const nkp16sc* src, nkp16sc* dst, const FftSpecComplex16s* spec,
                                     int scaleFactor, uint8_t* buffer) {
    if (!src || !dst || !spec) return nkpStatusNullPointer;
    if (!tagged_object<FftSpecComplex16s, 64>(spec, kTagComplex16s)) return nkpStatusWrongObject;
    const float f = pow2_neg(scaleFactor);
    if (spec->order == 0) {
        const float v[2] = {static_cast<float>(src[0].re), static_cast<float>(src[0].im)};
        narrow(v, &dst[0].re, 2, f);
        return nkpStatusOk;
    }
    const CallWork work(buffer, spec->bufSize);
    if (work.failed()) return nkpStatusNoMemory;
    const int L = 1 << spec->order;
    auto* w = reinterpret_cast<float*>(work.aligned<64>());
    const int16_t* s = &src[0].re;
    int i = 0;
    for (; i + 8 <= 2 * L; i += 8) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i));
        const __m128i lo = _mm_srai_epi32(_mm_unpacklo_epi16(v, v), 16);
        const __m128i hi = _mm_srai_epi32(_mm_unpackhi_epi16(v, v), 16);
        _mm_store_ps(w + i, _mm_cvtepi32_ps(lo));
        _mm_store_ps(w + i + 4, _mm_cvtepi32_ps(hi));
    }
    for (; i < 2 * L; ++i) w[i] = static_cast<float>(s[i]);
    auto* data = reinterpret_cast<nkp32fc*>(w);
    fftForwardComplex32f(data, data, spec->fspec, reinterpret_cast<uint8_t*>(w + 2 * L));
    narrow(w, &dst[0].re, 2 * L, f);
    return nkpStatusOk;
}

}  // namespace nkp::fft
