// Second-order prediction coefficients of the SBR high-frequency generator
// (covariance method), for real and complex QMF sub-band samples.
//
// For each channel the five covariances are running single-precision sums
// over the len steps, taken in slot order. A product that two sums share
// (x(n+1)x(n) of one step is x(n+2)x(n+1) of the step before) is the same
// value whether it is formed once or twice: the one-channel code keeps it,
// the vector code, short of registers, forms it again. The coefficient rules
// differ between the real variant's four-wide channels and every other
// channel:
//
//                          four-wide (real)      one at a time / complex
//   alpha1 computed when   d != 0                d*d > 0
//   alpha0 computed when   phi11 != 0            phi11 > 0
//   pair kept when         both squares <= 16    both squares < 16
//
// so a coefficient of magnitude exactly 4, a tiny channel whose d squares to
// zero and a NaN come out differently in the two groups. Both are kept on
// purpose. Divisions whose result is masked away divide by 1 instead, so a
// silent channel raises no division-by-zero flag.
#include "frame/exports.h"

#include <cstddef>
#include <xmmintrin.h>

namespace nkp {
namespace {

// 1 / (1 + 1e-6) in single precision: pulls d away from zero for a channel
// that two earlier samples predict perfectly.
constexpr float kRelax = 1.0f / (1.0f + 1.0e-6f);
constexpr float kLimit = 16.0f;  // |alpha|^2 at which a channel's pair is reset

// ---- real samples, one channel ----------------------------------------------

void real_one(const nkp32f* const* slot, ptrdiff_t k, ptrdiff_t len, nkp32f* alpha0, nkp32f* alpha1) {
    float x0 = slot[0][k], x1 = slot[1][k];
    float sq0 = x0 * x0, sq1 = x1 * x1, p10 = x1 * x0;
    float p01 = 0.0f, p02 = 0.0f, p11 = 0.0f, p12 = 0.0f, p22 = 0.0f;
    for (ptrdiff_t n = 0; n < len; ++n) {
        const float x2 = slot[n + 2][k];
        const float p21 = x2 * x1;
        p01 += p21;
        p02 += x2 * x0;
        p11 += sq1;
        p12 += p10;
        p22 += sq0;
        sq0 = sq1;
        sq1 = x2 * x2;
        p10 = p21;
        x0 = x1;
        x1 = x2;
    }
    const float d = p22 * p11 - kRelax * (p12 * p12);
    float a1 = 0.0f, a0 = 0.0f;
    if (d * d > 0.0f) a1 = (p01 * p12 - p02 * p11) / d;
    if (p11 > 0.0f) a0 = -(p01 + a1 * p12) / p11;
    if (a0 * a0 >= kLimit || a1 * a1 >= kLimit) a0 = a1 = 0.0f;
    alpha0[k] = a0;
    alpha1[k] = a1;
}

// ---- real samples, G groups of four channels --------------------------------

inline __m128 select(__m128 mask, __m128 yes, __m128 no) {
    return _mm_or_ps(_mm_and_ps(mask, yes), _mm_andnot_ps(mask, no));
}

// Channels k .. k + 4G - 1; every lane follows the four-wide rules.
template <int G>
void real_group(const nkp32f* const* slot, ptrdiff_t k, ptrdiff_t len, nkp32f* alpha0, nkp32f* alpha1) {
    __m128 x0[G], x1[G];
    __m128 p01[G], p02[G], p11[G], p12[G], p22[G];
    for (int g = 0; g < G; ++g) {
        x0[g] = _mm_loadu_ps(slot[0] + k + 4 * g);
        x1[g] = _mm_loadu_ps(slot[1] + k + 4 * g);
        p01[g] = p02[g] = p11[g] = p12[g] = p22[g] = _mm_setzero_ps();
    }
    for (ptrdiff_t n = 0; n < len; ++n) {
        const nkp32f* row = slot[n + 2] + k;
        for (int g = 0; g < G; ++g) {
            const __m128 x2 = _mm_loadu_ps(row + 4 * g);
            p01[g] = _mm_add_ps(p01[g], _mm_mul_ps(x2, x1[g]));
            p02[g] = _mm_add_ps(p02[g], _mm_mul_ps(x2, x0[g]));
            p11[g] = _mm_add_ps(p11[g], _mm_mul_ps(x1[g], x1[g]));
            p12[g] = _mm_add_ps(p12[g], _mm_mul_ps(x1[g], x0[g]));
            p22[g] = _mm_add_ps(p22[g], _mm_mul_ps(x0[g], x0[g]));
            x0[g] = x1[g];
            x1[g] = x2;
        }
    }
    const __m128 zero = _mm_setzero_ps(), one = _mm_set1_ps(1.0f), limit = _mm_set1_ps(kLimit);
    const __m128 sign = _mm_set1_ps(-0.0f), relax = _mm_set1_ps(kRelax);
    for (int g = 0; g < G; ++g) {
        const __m128 d = _mm_sub_ps(_mm_mul_ps(p22[g], p11[g]), _mm_mul_ps(relax, _mm_mul_ps(p12[g], p12[g])));
        const __m128 num = _mm_sub_ps(_mm_mul_ps(p01[g], p12[g]), _mm_mul_ps(p02[g], p11[g]));
        const __m128 use_d = _mm_cmpneq_ps(d, zero);
        const __m128 a1 = _mm_and_ps(use_d, _mm_div_ps(num, select(use_d, d, one)));
        const __m128 use_p11 = _mm_cmpneq_ps(p11[g], zero);
        const __m128 t = _mm_xor_ps(_mm_add_ps(p01[g], _mm_mul_ps(a1, p12[g])), sign);
        const __m128 a0 = _mm_and_ps(use_p11, _mm_div_ps(t, select(use_p11, p11[g], one)));
        const __m128 keep = _mm_and_ps(_mm_cmple_ps(_mm_mul_ps(a0, a0), limit), _mm_cmple_ps(_mm_mul_ps(a1, a1), limit));
        _mm_storeu_ps(alpha0 + k + 4 * g, _mm_and_ps(keep, a0));
        _mm_storeu_ps(alpha1 + k + 4 * g, _mm_and_ps(keep, a1));
    }
}

// ---- complex samples ------------------------------------------------------------
//
// Complex arithmetic, in this order in every lane and in the scalar tail:
//   a conj(b) = (ar br + ai bi) + i (ai br - ar bi),   |b|^2 = br br + bi bi
//   a b       = (ar br - ai bi) + i (ar bi + ai br)
// Each step's products are summed first, then added to the running sum.

// The sample source of one layout: re(n, k) / im(n, k) for one channel, or
// four channels at a time as two vectors.
struct Interleaved {
    const nkp32fc* const* slot;
    float re(ptrdiff_t n, ptrdiff_t k) const { return slot[n][k].re; }
    float im(ptrdiff_t n, ptrdiff_t k) const { return slot[n][k].im; }
    void load4(ptrdiff_t n, ptrdiff_t k, __m128& r, __m128& i) const {
        const float* p = &slot[n][k].re;
        const __m128 lo = _mm_loadu_ps(p), hi = _mm_loadu_ps(p + 4);
        r = _mm_shuffle_ps(lo, hi, _MM_SHUFFLE(2, 0, 2, 0));
        i = _mm_shuffle_ps(lo, hi, _MM_SHUFFLE(3, 1, 3, 1));
    }
};
struct Split {
    const nkp32f* const* re_slot;
    const nkp32f* const* im_slot;
    float re(ptrdiff_t n, ptrdiff_t k) const { return re_slot[n][k]; }
    float im(ptrdiff_t n, ptrdiff_t k) const { return im_slot[n][k]; }
    void load4(ptrdiff_t n, ptrdiff_t k, __m128& r, __m128& i) const {
        r = _mm_loadu_ps(re_slot[n] + k);
        i = _mm_loadu_ps(im_slot[n] + k);
    }
};

struct InterleavedOut {
    nkp32fc* alpha0;
    nkp32fc* alpha1;
    void store(ptrdiff_t k, float a0r, float a0i, float a1r, float a1i) const {
        alpha0[k] = {a0r, a0i};
        alpha1[k] = {a1r, a1i};
    }
    void store4(ptrdiff_t k, __m128 a0r, __m128 a0i, __m128 a1r, __m128 a1i) const {
        float* p0 = &alpha0[k].re;
        float* p1 = &alpha1[k].re;
        _mm_storeu_ps(p0, _mm_unpacklo_ps(a0r, a0i));
        _mm_storeu_ps(p0 + 4, _mm_unpackhi_ps(a0r, a0i));
        _mm_storeu_ps(p1, _mm_unpacklo_ps(a1r, a1i));
        _mm_storeu_ps(p1 + 4, _mm_unpackhi_ps(a1r, a1i));
    }
};
struct SplitOut {
    nkp32f* alpha0_re;
    nkp32f* alpha0_im;
    nkp32f* alpha1_re;
    nkp32f* alpha1_im;
    void store(ptrdiff_t k, float a0r, float a0i, float a1r, float a1i) const {
        alpha0_re[k] = a0r;
        alpha0_im[k] = a0i;
        alpha1_re[k] = a1r;
        alpha1_im[k] = a1i;
    }
    void store4(ptrdiff_t k, __m128 a0r, __m128 a0i, __m128 a1r, __m128 a1i) const {
        _mm_storeu_ps(alpha0_re + k, a0r);
        _mm_storeu_ps(alpha0_im + k, a0i);
        _mm_storeu_ps(alpha1_re + k, a1r);
        _mm_storeu_ps(alpha1_im + k, a1i);
    }
};

template <class Src, class Dst>
void complex_one(const Src& src, const Dst& dst, ptrdiff_t k, ptrdiff_t len) {
    float x0r = src.re(0, k), x0i = src.im(0, k), x1r = src.re(1, k), x1i = src.im(1, k);
    float e0 = x0r * x0r + x0i * x0i, e1 = x1r * x1r + x1i * x1i;
    float c10r = x1r * x0r + x1i * x0i, c10i = x1i * x0r - x1r * x0i;
    float p01r = 0.0f, p01i = 0.0f, p02r = 0.0f, p02i = 0.0f, p11 = 0.0f, p12r = 0.0f, p12i = 0.0f, p22 = 0.0f;
    for (ptrdiff_t n = 0; n < len; ++n) {
        const float x2r = src.re(n + 2, k), x2i = src.im(n + 2, k);
        const float c21r = x2r * x1r + x2i * x1i, c21i = x2i * x1r - x2r * x1i;
        p01r += c21r;
        p01i += c21i;
        p02r += x2r * x0r + x2i * x0i;
        p02i += x2i * x0r - x2r * x0i;
        p11 += e1;
        p12r += c10r;
        p12i += c10i;
        p22 += e0;
        e0 = e1;
        e1 = x2r * x2r + x2i * x2i;
        c10r = c21r;
        c10i = c21i;
        x0r = x1r;
        x0i = x1i;
        x1r = x2r;
        x1i = x2i;
    }
    const float d = p22 * p11 - kRelax * (p12r * p12r + p12i * p12i);
    float a1r = 0.0f, a1i = 0.0f, a0r = 0.0f, a0i = 0.0f;
    if (d * d > 0.0f) {
        a1r = ((p01r * p12r - p01i * p12i) - p02r * p11) / d;
        a1i = ((p01r * p12i + p01i * p12r) - p02i * p11) / d;
    }
    if (p11 > 0.0f) {
        a0r = -(p01r + (a1r * p12r + a1i * p12i)) / p11;
        a0i = -(p01i + (a1i * p12r - a1r * p12i)) / p11;
    }
    if (a0r * a0r + a0i * a0i >= kLimit || a1r * a1r + a1i * a1i >= kLimit) a0r = a0i = a1r = a1i = 0.0f;
    dst.store(k, a0r, a0i, a1r, a1i);
}

// Channels k .. k+3 with exactly the arithmetic of complex_one in each lane.
template <class Src, class Dst>
void complex_four(const Src& src, const Dst& dst, ptrdiff_t k, ptrdiff_t len) {
    __m128 x0r, x0i, x1r, x1i;
    src.load4(0, k, x0r, x0i);
    src.load4(1, k, x1r, x1i);
    auto mul = _mm_mul_ps;
    auto add = _mm_add_ps;
    auto sub = _mm_sub_ps;
    __m128 p01r = _mm_setzero_ps(), p01i = p01r, p02r = p01r, p02i = p01r, p11 = p01r, p12r = p01r,
           p12i = p01r, p22 = p01r;
    for (ptrdiff_t n = 0; n < len; ++n) {
        __m128 x2r, x2i;
        src.load4(n + 2, k, x2r, x2i);
        p01r = add(p01r, add(mul(x2r, x1r), mul(x2i, x1i)));
        p01i = add(p01i, sub(mul(x2i, x1r), mul(x2r, x1i)));
        p02r = add(p02r, add(mul(x2r, x0r), mul(x2i, x0i)));
        p02i = add(p02i, sub(mul(x2i, x0r), mul(x2r, x0i)));
        p11 = add(p11, add(mul(x1r, x1r), mul(x1i, x1i)));
        p12r = add(p12r, add(mul(x1r, x0r), mul(x1i, x0i)));
        p12i = add(p12i, sub(mul(x1i, x0r), mul(x1r, x0i)));
        p22 = add(p22, add(mul(x0r, x0r), mul(x0i, x0i)));
        x0r = x1r;
        x0i = x1i;
        x1r = x2r;
        x1i = x2i;
    }
    const __m128 zero = _mm_setzero_ps(), one = _mm_set1_ps(1.0f), limit = _mm_set1_ps(kLimit);
    const __m128 sign = _mm_set1_ps(-0.0f);
    const __m128 d = sub(mul(p22, p11), mul(_mm_set1_ps(kRelax), add(mul(p12r, p12r), mul(p12i, p12i))));
    const __m128 use_d = _mm_cmpgt_ps(mul(d, d), zero);
    const __m128 safe_d = select(use_d, d, one);
    const __m128 a1r = _mm_and_ps(use_d, _mm_div_ps(sub(sub(mul(p01r, p12r), mul(p01i, p12i)), mul(p02r, p11)), safe_d));
    const __m128 a1i = _mm_and_ps(use_d, _mm_div_ps(sub(add(mul(p01r, p12i), mul(p01i, p12r)), mul(p02i, p11)), safe_d));
    const __m128 use_p11 = _mm_cmpgt_ps(p11, zero);
    const __m128 safe_p11 = select(use_p11, p11, one);
    const __m128 t0r = _mm_xor_ps(add(p01r, add(mul(a1r, p12r), mul(a1i, p12i))), sign);
    const __m128 t0i = _mm_xor_ps(add(p01i, sub(mul(a1i, p12r), mul(a1r, p12i))), sign);
    const __m128 a0r = _mm_and_ps(use_p11, _mm_div_ps(t0r, safe_p11));
    const __m128 a0i = _mm_and_ps(use_p11, _mm_div_ps(t0i, safe_p11));
    const __m128 reset = _mm_or_ps(_mm_cmpge_ps(add(mul(a0r, a0r), mul(a0i, a0i)), limit),
                                   _mm_cmpge_ps(add(mul(a1r, a1r), mul(a1i, a1i)), limit));
    dst.store4(k, _mm_andnot_ps(reset, a0r), _mm_andnot_ps(reset, a0i), _mm_andnot_ps(reset, a1r),
               _mm_andnot_ps(reset, a1i));
}

template <class Src, class Dst>
void complex_bands(const Src& src, const Dst& dst, ptrdiff_t bands, ptrdiff_t len) {
    ptrdiff_t k = 0;
    for (; k + 4 <= bands; k += 4) complex_four(src, dst, k, len);
    for (; k < bands; ++k) complex_one(src, dst, k, len);
}

// The slots a call reads (0 .. len+1) must all be there.
template <class T>
bool slots_present(const T* const* slot, ptrdiff_t len) {
    for (ptrdiff_t n = 0; n < len + 2; ++n) {
        if (!slot[n]) return false;
    }
    return true;
}

}  // namespace

nkpStatus nkpsPredictCoef_SBR_R_32f_D2L(const nkp32f* const* ppSrc, nkp32f* pAlpha0, nkp32f* pAlpha1, int numBands,
                                        int len) {
    if (!ppSrc || !pAlpha0 || !pAlpha1) return nkpStatusNullPointer;
    if (len < 1 || numBands < 1) return nkpStatusOk;
    if (!slots_present(ppSrc, len)) return nkpStatusNullPointer;

    const ptrdiff_t wide = numBands & ~3;  // channels that take the four-wide rules
    ptrdiff_t k = 0;
    for (; k + 8 <= wide; k += 8) real_group<2>(ppSrc, k, len, pAlpha0, pAlpha1);
    for (; k < wide; k += 4) real_group<1>(ppSrc, k, len, pAlpha0, pAlpha1);
    for (; k < numBands; ++k) real_one(ppSrc, k, len, pAlpha0, pAlpha1);
    return nkpStatusOk;
}

nkpStatus nkpsPredictCoef_SBR_C_32fc_D2L(const nkp32fc* const* ppSrc, nkp32fc* pAlpha0, nkp32fc* pAlpha1,
                                         int numBands, int len) {
    if (!ppSrc || !pAlpha0 || !pAlpha1) return nkpStatusNullPointer;
    if (len < 1 || numBands < 1) return nkpStatusOk;
    if (!slots_present(ppSrc, len)) return nkpStatusNullPointer;

    complex_bands(Interleaved{ppSrc}, InterleavedOut{pAlpha0, pAlpha1}, numBands, len);
    return nkpStatusOk;
}

nkpStatus nkpsPredictCoef_SBR_C_32f_D2L(const nkp32f* const* ppSrcRe, const nkp32f* const* ppSrcIm,
                                        nkp32f* pAlpha0Re, nkp32f* pAlpha0Im, nkp32f* pAlpha1Re,
                                        nkp32f* pAlpha1Im, int numBands, int len) {
    if (!ppSrcRe || !ppSrcIm || !pAlpha0Re || !pAlpha0Im || !pAlpha1Re || !pAlpha1Im) return nkpStatusNullPointer;
    if (len < 1 || numBands < 1) return nkpStatusOk;
    if (!slots_present(ppSrcRe, len) || !slots_present(ppSrcIm, len)) return nkpStatusNullPointer;

    complex_bands(Split{ppSrcRe, ppSrcIm}, SplitOut{pAlpha0Re, pAlpha0Im, pAlpha1Re, pAlpha1Im}, numBands, len);
    return nkpStatusOk;
}

}  // namespace nkp
