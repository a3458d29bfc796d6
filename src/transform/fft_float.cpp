// The complex float FFT (interleaved data, tag 4): sizes, life cycle, the
// written-out kernels of orders 0..5 and the table-driven passes of orders
// 6..15 on the block-split layout.
#include "frame/memory.h"
#include "frame/object.h"
#include "common/numeric.h"
#include "common/trig.h"
#include "transform/engine.h"
#include "transform/fft_large.h"
#include "transform/fft_passes.h"

#include <cstring>

namespace nkp::fft {

namespace {

consteval Twiddle1024 make_twiddle_1024() {
    Twiddle1024 t{};
    for (int j = 0; j < 1024; ++j) {
        const SinCos w = sincos_2pi_ratio_while_compiling(j, 1024);
        t.v[2 * j] = static_cast<float>(w.c);
        t.v[2 * j + 1] = static_cast<float>(-w.s);
    }
    return t;
}

}  // namespace

alignas(64) constexpr Twiddle1024 kTwiddle1024 = make_twiddle_1024();

namespace {

// ---- written-out kernels, orders 0..5 ---------------------------------------

// Interleaved complex arithmetic on (re, im) float pairs.
struct C {
    float r, i;
};
inline C add(C a, C b) { return {a.r + b.r, a.i + b.i}; }
inline C sub(C a, C b) { return {a.r - b.r, a.i - b.i}; }
inline C mul(C a, C w) { return {a.r * w.r - a.i * w.i, a.r * w.i + a.i * w.r}; }
inline C mul_minus_i(C a) { return {a.i, -a.r}; }

// In place on x (length 2^order, order 2..3): bit reversal, then radix-2
// passes with twiddles decimated from the 1024-point table.
void kernel_radix2(C* x, int order) {
    const int L = 1 << order;
    for (int i = 0; i < L; ++i) {
        const int j = static_cast<int>(bit_reverse(static_cast<uint32_t>(i), order));
        if (j > i) {
            const C t = x[i];
            x[i] = x[j];
            x[j] = t;
        }
    }
    // Length-4 butterflies first (no twiddles).
    for (int g = 0; g < L; g += 4) {
        const C a = x[g], b = x[g + 1], c = x[g + 2], d = x[g + 3];
        const C t0 = add(a, b), t1 = sub(a, b), t2 = add(c, d), t3 = mul_minus_i(sub(c, d));
        x[g] = add(t0, t2);
        x[g + 2] = sub(t0, t2);
        x[g + 1] = add(t1, t3);
        x[g + 3] = sub(t1, t3);
    }
    for (int half = 4; half < L; half *= 2) {
        const int step = 1024 / (2 * half);
        for (int g = 0; g < L; g += 2 * half) {
            for (int j = 0; j < half; ++j) {
                const C w = {kTwiddle1024[2 * j * step], kTwiddle1024[2 * j * step + 1]};
                const C a = x[g + j], b = mul(x[g + half + j], w);
                x[g + j] = add(a, b);
                x[g + half + j] = sub(a, b);
            }
        }
    }
}

// Four-wide kernels of 16 and 32 points. With n = 4 n1 + n2 the 16-point
// DFT is a 4-point DFT over n1 (one vector per n1, lanes n2), twiddles
// e^(-2 pi i n2 k1/16), a transpose, and a 4-point DFT over n2, after which
// vector k2 holds X[4 k2 .. 4 k2 + 3].
alignas(16) constexpr float kW16[6][4] = {
    {1.0f, 0.92387953f, 0.70710678f, 0.38268343f},   {0.0f, -0.38268343f, -0.70710678f, -0.92387953f},
    {1.0f, 0.70710678f, 0.0f, -0.70710678f},         {0.0f, -0.70710678f, -1.0f, -0.70710678f},
    {1.0f, 0.38268343f, -0.70710678f, -0.92387953f}, {0.0f, -0.92387953f, -0.70710678f, 0.38268343f}};
alignas(16) constexpr float kW32[2][16] = {
    {1.0f, 0.98078528f, 0.92387953f, 0.83146961f, 0.70710678f, 0.55557023f, 0.38268343f, 0.19509032f, 0.0f,
     -0.19509032f, -0.38268343f, -0.55557023f, -0.70710678f, -0.83146961f, -0.92387953f, -0.98078528f},
    {0.0f, -0.19509032f, -0.38268343f, -0.55557023f, -0.70710678f, -0.83146961f, -0.92387953f, -0.98078528f,
     -1.0f, -0.98078528f, -0.92387953f, -0.83146961f, -0.70710678f, -0.55557023f, -0.38268343f, -0.19509032f}};

inline void dft4_natural(const __m128* r, const __m128* i, __m128* yr, __m128* yi) {
    const __m128 t0r = _mm_add_ps(r[0], r[2]), t0i = _mm_add_ps(i[0], i[2]);
    const __m128 t1r = _mm_sub_ps(r[0], r[2]), t1i = _mm_sub_ps(i[0], i[2]);
    const __m128 t2r = _mm_add_ps(r[1], r[3]), t2i = _mm_add_ps(i[1], i[3]);
    const __m128 t3r = _mm_sub_ps(r[1], r[3]), t3i = _mm_sub_ps(i[1], i[3]);
    yr[0] = _mm_add_ps(t0r, t2r), yi[0] = _mm_add_ps(t0i, t2i);
    yr[2] = _mm_sub_ps(t0r, t2r), yi[2] = _mm_sub_ps(t0i, t2i);
    yr[1] = _mm_add_ps(t1r, t3i), yi[1] = _mm_sub_ps(t1i, t3r);
    yr[3] = _mm_sub_ps(t1r, t3i), yi[3] = _mm_add_ps(t1i, t3r);
}

// r/i: x[4b .. 4b+3] for b = 0..3; zr/zi: X[4k2 .. 4k2+3].
inline void dft16_vectors(const __m128* r, const __m128* i, __m128* zr, __m128* zi) {
    __m128 yr[4], yi[4];
    dft4_natural(r, i, yr, yi);
    for (int k1 = 1; k1 < 4; ++k1) {
        const __m128 wr = _mm_load_ps(kW16[2 * (k1 - 1)]), wi = _mm_load_ps(kW16[2 * (k1 - 1) + 1]);
        const __m128 a = yr[k1], b = yi[k1];
        yr[k1] = _mm_sub_ps(_mm_mul_ps(a, wr), _mm_mul_ps(b, wi));
        yi[k1] = _mm_add_ps(_mm_mul_ps(a, wi), _mm_mul_ps(b, wr));
    }
    _MM_TRANSPOSE4_PS(yr[0], yr[1], yr[2], yr[3]);
    _MM_TRANSPOSE4_PS(yi[0], yi[1], yi[2], yi[3]);
    dft4_natural(yr, yi, zr, zi);
}

inline void load_split4(const float* s, __m128* r, __m128* i) {
    const __m128 v0 = _mm_loadu_ps(s), v1 = _mm_loadu_ps(s + 4);
    *r = _mm_shuffle_ps(v0, v1, _MM_SHUFFLE(2, 0, 2, 0));
    *i = _mm_shuffle_ps(v0, v1, _MM_SHUFFLE(3, 1, 3, 1));
}

void kernel16(const float* src, float* dst, bool scale, float factor) {
    __m128 r[4], i[4], zr[4], zi[4];
    for (int b = 0; b < 4; ++b) load_split4(src + 8 * b, &r[b], &i[b]);
    dft16_vectors(r, i, zr, zi);
    const __m128 f = _mm_set1_ps(factor);
    for (int k = 0; k < 4; ++k) {
        __m128 lo = _mm_unpacklo_ps(zr[k], zi[k]), hi = _mm_unpackhi_ps(zr[k], zi[k]);
        if (scale) lo = _mm_mul_ps(lo, f), hi = _mm_mul_ps(hi, f);
        _mm_storeu_ps(dst + 8 * k, lo);
        _mm_storeu_ps(dst + 8 * k + 4, hi);
    }
}

// 32 points: one radix-2 split into two 16-point DFTs (even and odd k).
void kernel32(const float* src, float* dst, bool scale, float factor) {
    __m128 ar[4], ai[4], br[4], bi[4];
    for (int b = 0; b < 4; ++b) {
        __m128 xr, xi, yr, yi;
        load_split4(src + 8 * b, &xr, &xi);
        load_split4(src + 8 * b + 32, &yr, &yi);
        ar[b] = _mm_add_ps(xr, yr), ai[b] = _mm_add_ps(xi, yi);
        const __m128 dr = _mm_sub_ps(xr, yr), di = _mm_sub_ps(xi, yi);
        const __m128 wr = _mm_load_ps(kW32[0] + 4 * b), wi = _mm_load_ps(kW32[1] + 4 * b);
        br[b] = _mm_sub_ps(_mm_mul_ps(dr, wr), _mm_mul_ps(di, wi));
        bi[b] = _mm_add_ps(_mm_mul_ps(dr, wi), _mm_mul_ps(di, wr));
    }
    __m128 er[4], ei[4], orr[4], oi[4];
    dft16_vectors(ar, ai, er, ei);
    dft16_vectors(br, bi, orr, oi);
    const __m128 f = _mm_set1_ps(factor);
    for (int k = 0; k < 4; ++k) {
        // X[2k] and X[2k+1] alternate in the output.
        const __m128 el = _mm_unpacklo_ps(er[k], ei[k]), eh = _mm_unpackhi_ps(er[k], ei[k]);
        const __m128 ol = _mm_unpacklo_ps(orr[k], oi[k]), oh = _mm_unpackhi_ps(orr[k], oi[k]);
        __m128 v[4] = {_mm_movelh_ps(el, ol), _mm_movehl_ps(ol, el), _mm_movelh_ps(eh, oh), _mm_movehl_ps(oh, eh)};
        for (int j = 0; j < 4; ++j) {
            if (scale) v[j] = _mm_mul_ps(v[j], f);
            _mm_storeu_ps(dst + 16 * k + 4 * j, v[j]);
        }
    }
}

}  // namespace

void kernel_forward(const nkp32fc* src, nkp32fc* dst, int order, bool scale, float factor) {
    if (order == 4) return kernel16(&src[0].re, &dst[0].re, scale, factor);
    if (order == 5) return kernel32(&src[0].re, &dst[0].re, scale, factor);
    C x[32];
    const int L = 1 << order;
    for (int i = 0; i < L; ++i) x[i] = {src[i].re, src[i].im};
    switch (order) {
        case 0:
            break;
        case 1: {
            const C a = x[0], b = x[1];
            x[0] = add(a, b);
            x[1] = sub(a, b);
            break;
        }
        default:
            kernel_radix2(x, order);
            break;
    }
    if (scale) {
        for (int i = 0; i < L; ++i) dst[i] = {x[i].r * factor, x[i].i * factor};
    } else {
        for (int i = 0; i < L; ++i) dst[i] = {x[i].r, x[i].i};
    }
}

namespace {

// e^(-2 pi i num/den): from the constant table when den divides 1024, else
// computed in double precision.
void twiddle(int64_t num, int64_t den, float* re, float* im) {
    if (den <= 1024) {
        const int64_t j = num * (1024 / den);
        *re = kTwiddle1024[2 * j];
        *im = kTwiddle1024[2 * j + 1];
        return;
    }
    double s, c;
    sincos_2pi_ratio(num, den, &s, &c);
    *re = static_cast<float>(c);
    *im = static_cast<float>(-s);
}

// The work a call needs: the recorded bytes and their alignment slack.
int32_t work_bytes_of(const FftSpecComplex32f* spec) { return spec->bufSize >= 1 ? spec->bufSize + 64 : 0; }

// The last two passes, writing each result straight to its
// place in natural order in the interleaved output: the element in slot s,
// lane l of group g is X[bitrev(g) + rev2(l) L/16 + rev2(s) L/4].
void pass_last_to_interleaved(const float* d, int order, const float* tw, float* out, bool scale, float factor) {
    const int L = 1 << order, q = L / 16;
    const __m128 f = _mm_set1_ps(factor);
    const int lane_offset[4] = {0, 2 * q, q, 3 * q};
    const int slot_offset[4] = {0, 8 * q, 4 * q, 12 * q};
    for (int g = 0; g < L / 16; ++g) {
        const float* p = d + 32 * g;
        passes::Quad r;
        passes::last_two(p, tw, r);
        float* base = out + 2 * static_cast<int>(bit_reverse(static_cast<uint32_t>(g), order - 4));
        for (int s = 0; s < 4; ++s) {
            __m128 lo = _mm_unpacklo_ps(r.r[s], r.i[s]), hi = _mm_unpackhi_ps(r.r[s], r.i[s]);
            if (scale) lo = _mm_mul_ps(lo, f), hi = _mm_mul_ps(hi, f);
            float* row = base + 2 * slot_offset[s];
            _mm_storel_pi(reinterpret_cast<__m64*>(row + 2 * lane_offset[0]), lo);
            _mm_storeh_pi(reinterpret_cast<__m64*>(row + 2 * lane_offset[1]), lo);
            _mm_storel_pi(reinterpret_cast<__m64*>(row + 2 * lane_offset[2]), hi);
            _mm_storeh_pi(reinterpret_cast<__m64*>(row + 2 * lane_offset[3]), hi);
        }
    }
}

// Unnormalised forward transform of interleaved data, src may equal dst;
// `work` is the caller's buffer (any alignment) of work_bytes_of(spec).
void forward_interleaved(const nkp32fc* src, nkp32fc* dst, const FftSpecComplex32f* spec, uint8_t* work,
                         bool scale, float factor) {
    const int order = spec->order;
    if (spec->route == Route::Kernel) {
        kernel_forward(src, dst, order, scale, factor);
        return;
    }
    const int L = 1 << order;
    if (spec->route == Route::Large) {
        float* d = reinterpret_cast<float*>(dst);
        if (src != dst) std::memcpy(d, src, sizeof(nkp32fc) * static_cast<size_t>(L));
        large_forward_interleaved(spec, d, align_up<64>(work));
        if (scale) {
            const __m128 f = _mm_set1_ps(factor);
            for (int i = 0; i < 2 * L; i += 4) _mm_storeu_ps(d + i, _mm_mul_ps(_mm_loadu_ps(d + i), f));
        }
        return;
    }
    float* w = reinterpret_cast<float*>(align_up<64>(work));
    const float* tw = passes::passes_but_last(spec, passes::InterleavedLoader{reinterpret_cast<const float*>(src)}, w);
    pass_last_to_interleaved(w, order, tw, reinterpret_cast<float*>(dst), scale, factor);
}

// Swaps real and imaginary parts of n elements, src may equal dst:
// the inverse DFT is the forward one on swapped data, swapped back.
void swap_parts(const nkp32fc* src, nkp32fc* dst, int n) {
    for (int i = 0; i < n; ++i) {
        const float r = src[i].re, m = src[i].im;
        dst[i].re = m;
        dst[i].im = r;
    }
}

}  // namespace

void bs_transform(const FftSpecComplex32f* spec, float* d) { passes::transform(spec, passes::BlockSplitLoader{d}, d); }

void block_split_fill_twiddles(float* tw, int order) {
    const int L = 1 << order;
    int m = L / 4;
    if (order & 1) {
        for (int j = 0; j < L / 2; ++j) twiddle(j, L, tw + 8 * (j / 4) + j % 4, tw + 8 * (j / 4) + 4 + j % 4);
        tw += L;
        m = L / 8;
    }
    for (; m >= 4; m /= 4) {
        for (int j = 0; j < m; ++j) {
            float* blk = tw + 24 * (j / 4) + j % 4;
            for (int q = 1; q <= 3; ++q) twiddle(int64_t{q} * j, 4 * m, blk + 8 * (q - 1), blk + 8 * (q - 1) + 4);
        }
        tw += 6 * m;
    }
}

nkpStatus fftSizesComplex32f(int order, int flag, int hint, int* specSize, int* initSize, int* bufSize) {
    if (order > 30 || order < 0) return nkpStatusBadOrder;
    if (!specSize || !initSize || !bufSize) return nkpStatusNullPointer;
    if (!valid_flag(flag)) return nkpStatusBadFlag;
    if (order > kMaxOrder) return nkpStatusBadOrder;
    const Sizes s = fft32f_sizes(order);
    *specSize = static_cast<int>(s.spec);
    *initSize = static_cast<int>(s.init);
    *bufSize = static_cast<int>(s.work);
    return nkpStatusOk;
}

nkpStatus fftInitComplex32f(FftSpecComplex32f** ppSpec, int order, int flag, int hint, uint8_t* memSpec,
                            uint8_t* memInit) {
    if (!ppSpec) return nkpStatusNullPointer;
    if (order < 0 || order > kMaxOrder) return nkpStatusBadOrder;
    if (!memSpec) return nkpStatusNullPointer;
    uint8_t* base = align_up<64>(memSpec);
    std::memset(base, 0, kFftHeaderBytes);
    auto* spec = reinterpret_cast<FftSpecComplex32f*>(base);
    if (!valid_flag(flag)) {
        spec->tag = 0;
        return nkpStatusBadFlag;
    }
    const float x = static_cast<float>(int64_t{1} << order);
    spec->tag = kTagComplex32f;
    spec->order = order;
    spec->normFwd = (flag == kDivFwdByN || flag == kDivBySqrtN) ? 1 : 0;
    spec->normInv = (flag == kDivInvByN || flag == kDivBySqrtN) ? 1 : 0;
    spec->normFactor = flag == kDivBySqrtN ? rsqrt_refined(x) : 1.0f / x;
    spec->hint = hint;
    spec->route = route_of(order);
    spec->bufSize = static_cast<int32_t>(fft32f_recorded_work(order));
    if (order >= 11 && !memInit) return nkpStatusNullPointer;
    if (spec->route == Route::BlockSplit) {
        float* tw = reinterpret_cast<float*>(base + kFftHeaderPadded);
        spec->pBitRev = base + kFftHeaderBytes;
        spec->pTwiddle = tw;
        block_split_fill_twiddles(tw, order);
    } else if (spec->route == Route::Large) {
        large_init(spec, base + kFftHeaderPadded, memInit);
    }
    *ppSpec = spec;
    return nkpStatusOk;
}

nkpStatus fftCreateComplex32f(FftSpecComplex32f** ppSpec, int order, int flag, int hint) {
    return init_alloc_with_work<FftSpecComplex32f, kPlanLife>(
        ppSpec,
        [&](int32_t* spec, int32_t* scratch) {
            int work = 0;
            return fftSizesComplex32f(order, flag, hint, spec, scratch, &work);
        },
        [&](void* mem, void* scratch) {
            FftSpecComplex32f* spec = nullptr;
            return fftInitComplex32f(&spec, order, flag, hint, static_cast<uint8_t*>(mem),
                                     static_cast<uint8_t*>(scratch));
        });
}

nkpStatus fftWorkSizeComplex32f(const FftSpecComplex32f* spec, int* size) {
    if (!spec || !size) return nkpStatusNullPointer;
    if (!tagged_object<FftSpecComplex32f, 64>(spec, kTagComplex32f)) return nkpStatusWrongObject;
    *size = work_bytes_of(spec);
    return nkpStatusOk;
}

nkpStatus fftDestroyComplex32f(FftSpecComplex32f* spec) {
    return free_object<FftSpecComplex32f, kPlanLife>(spec, kTagComplex32f);
}

nkpStatus fftForwardComplex32f(const nkp32fc* src, nkp32fc* dst, const FftSpecComplex32f* spec, uint8_t* buffer) {
    if (!src || !dst || !spec) return nkpStatusNullPointer;
    if (!tagged_object<FftSpecComplex32f, 64>(spec, kTagComplex32f)) return nkpStatusWrongObject;
    const CallWork work(buffer, work_bytes_of(spec));
    if (work.failed()) return nkpStatusNoMemory;
    forward_interleaved(src, dst, spec, work.get(), spec->normFwd != 0, spec->normFactor);
    return nkpStatusOk;
}

nkpStatus fftInverseComplex32f(const nkp32fc* src, nkp32fc* dst, const FftSpecComplex32f* spec, uint8_t* buffer) {
    if (!src || !dst || !spec) return nkpStatusNullPointer;
    if (!tagged_object<FftSpecComplex32f, 64>(spec, kTagComplex32f)) return nkpStatusWrongObject;
    const CallWork work(buffer, work_bytes_of(spec));
    if (work.failed()) return nkpStatusNoMemory;
    const int L = 1 << spec->order;
    swap_parts(src, dst, L);
    forward_interleaved(dst, dst, spec, work.get(), spec->normInv != 0, spec->normFactor);
    swap_parts(dst, dst, L);
    return nkpStatusOk;
}

}  // namespace nkp::fft
