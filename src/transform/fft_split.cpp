// The split complex float FFT (tag 5): real and imaginary parts in two
// arrays. Same plan as the interleaved transform, with the tag
// rewritten; the block-split layout loads straight from the two arrays.
#include "frame/object.h"
#include "transform/engine.h"
#include "transform/fft_large.h"
#include "transform/fft_passes.h"

#include <cstring>

namespace nkp::fft {

namespace {

// The block at float offset `off` of the block-split layout is four real
// parts and four imaginary parts, straight from the two arrays.
struct SplitLoader {
    const float* re;
    const float* im;
    void operator()(int off, __m128* r, __m128* i) const {
        *r = _mm_loadu_ps(re + off / 2);
        *i = _mm_loadu_ps(im + off / 2);
    }
};

void forward_split(const float* sr, const float* si, float* dr, float* di, const FftSpecComplex32f* spec,
                   uint8_t* work, bool scale, float factor) {
    const int order = spec->order, L = 1 << order;
    if (spec->route == Route::Kernel) {
        nkp32fc x[1 << kMaxKernelOrder] = {};
        for (int i = 0; i < L; ++i) x[i] = {sr[i], si[i]};
        kernel_forward(x, x, order, scale, factor);
        for (int i = 0; i < L; ++i) dr[i] = x[i].re, di[i] = x[i].im;
        return;
    }
    const __m128 f = _mm_set1_ps(factor);
    if (spec->route == Route::Large) {
        if (sr != dr) std::memmove(dr, sr, sizeof(float) * static_cast<size_t>(L));
        if (si != di) std::memmove(di, si, sizeof(float) * static_cast<size_t>(L));
        large_forward_split(spec, dr, di, align_up<64>(work));
        if (scale) {
            for (int i = 0; i < L; i += 4) {
                _mm_storeu_ps(dr + i, _mm_mul_ps(_mm_loadu_ps(dr + i), f));
                _mm_storeu_ps(di + i, _mm_mul_ps(_mm_loadu_ps(di + i), f));
            }
        }
        return;
    }
    float* w = reinterpret_cast<float*>(align_up<64>(work));
    passes::transform(spec, SplitLoader{sr, si}, w);
    for (int it = 0; it < L / 16; ++it) {
        __m128 re[4], im[4];
        int base[4];
        bs_gather(w, order, it, re, im, base);
        for (int v = 0; v < 4; ++v) {
            if (scale) re[v] = _mm_mul_ps(re[v], f), im[v] = _mm_mul_ps(im[v], f);
            _mm_storeu_ps(dr + base[v], re[v]);
            _mm_storeu_ps(di + base[v], im[v]);
        }
    }
}

nkpStatus run_split(const float* sr, const float* si, float* dr, float* di, const FftSpecComplex32f* spec,
                    uint8_t* buffer, bool scale) {
    if (!sr || !si || !dr || !di || !spec) return nkpStatusNullPointer;
    if (!tagged_object<FftSpecComplex32f, 64>(spec, kTagSplit32f)) return nkpStatusWrongObject;
    const CallWork work(buffer, spec->bufSize >= 1 ? spec->bufSize + 64 : 0);
    if (work.failed()) return nkpStatusNoMemory;
    forward_split(sr, si, dr, di, spec, work.get(), scale, spec->normFactor);
    return nkpStatusOk;
}

}  // namespace

nkpStatus fftInitSplit32f(FftSpecComplex32f** ppSpec, int order, int flag, int hint, uint8_t* memSpec,
                          uint8_t* memInit) {
    const nkpStatus st = fftInitComplex32f(ppSpec, order, flag, hint, memSpec, memInit);
    // A header that was written (also when only the init buffer was missing)
    // carries the split tag.
    if (memSpec && ppSpec) {
        auto* spec = reinterpret_cast<FftSpecComplex32f*>(align_up<64>(memSpec));
        if (spec->tag == kTagComplex32f) spec->tag = kTagSplit32f;
    }
    return st;
}

nkpStatus fftCreateSplit32f(FftSpecComplex32f** ppSpec, int order, int flag, int hint) {
    const nkpStatus st = fftCreateComplex32f(ppSpec, order, flag, hint);
    if (st == nkpStatusOk) (*ppSpec)->tag = kTagSplit32f;
    return st;
}

nkpStatus fftWorkSizeSplit32f(const FftSpecComplex32f* spec, int* size) {
    if (!spec || !size) return nkpStatusNullPointer;
    if (!tagged_object<FftSpecComplex32f, 64>(spec, kTagSplit32f)) return nkpStatusWrongObject;
    *size = spec->bufSize >= 1 ? spec->bufSize + 64 : 0;
    return nkpStatusOk;
}

nkpStatus fftDestroySplit32f(FftSpecComplex32f* spec) {
    return free_object<FftSpecComplex32f, kPlanLife>(spec, kTagSplit32f);
}

nkpStatus fftForwardSplit32f(const float* srcRe, const float* srcIm, float* dstRe, float* dstIm,
                             const FftSpecComplex32f* spec, uint8_t* buffer) {
    return run_split(srcRe, srcIm, dstRe, dstIm, spec, buffer, spec && spec->normFwd != 0);
}

// The inverse DFT is the forward one with the parts exchanged on both sides.
nkpStatus fftInverseSplit32f(const float* srcRe, const float* srcIm, float* dstRe, float* dstIm,
                             const FftSpecComplex32f* spec, uint8_t* buffer) {
    return run_split(srcIm, srcRe, dstIm, dstRe, spec, buffer, spec && spec->normInv != 0);
}

}  // namespace nkp::fft
