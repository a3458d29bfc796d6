// The float MDCTs (forward tag 55, inverse tag 56). Powers of two go
// through an N/4-point complex FFT between a pre- and a post-rotation; 12 and
// 36 use written-out 3- and 9-point DFTs instead. From N = 256 up to 2^17 the
// rotations run four values at a time and the FFT works on the block-split
// layout in place, its scrambled output read back by the post-rotation.
#include "frame/exports.h"
#include "common/numeric.h"
#include "common/trig.h"
#include "transform/fft_passes.h"
#include "transform/mdct_common.h"

#include <cmath>
#include <cstring>

namespace nkp {

namespace {

using namespace mdct;
using fft::FftSpecComplex32f;

// ---- the written-out short DFTs ---------------------------------------------

struct Cx {
    float r, i;
};

// 3-point DFT with kernel e^(-2 pi i nk/3).
inline void dft3(Cx a, Cx b, Cx c, Cx* x0, Cx* x1, Cx* x2) {
    const Cx t = {b.r + c.r, b.i + c.i}, s = {b.r - c.r, b.i - c.i};
    const Cx m = {a.r - 0.5f * t.r, a.i - 0.5f * t.i};
    const float sr = 0.8660254f * s.r, si = 0.8660254f * s.i;
    *x0 = {a.r + t.r, a.i + t.i};
    *x1 = {m.r + si, m.i - sr};
    *x2 = {m.r - si, m.i + sr};
}

inline Cx cmul(Cx a, float wr, float wi) { return {a.r * wr - a.i * wi, a.r * wi + a.i * wr}; }

// 9-point DFT as 3 x 3: column DFTs, twiddles e^(-2 pi i n2 k1/9), row DFTs.
void dft9(Cx* z) {
    static constexpr float kC1 = 0.76604444f, kS1 = 0.64278761f;  // 2 pi/9
    static constexpr float kC2 = 0.17364818f, kS2 = 0.98480775f;  // 4 pi/9
    static constexpr float kC4 = -0.93969262f, kS4 = 0.34202014f; // 8 pi/9
    Cx y[3][3];
    for (int n2 = 0; n2 < 3; ++n2) dft3(z[n2], z[3 + n2], z[6 + n2], &y[n2][0], &y[n2][1], &y[n2][2]);
    y[1][1] = cmul(y[1][1], kC1, -kS1);
    y[1][2] = cmul(y[1][2], kC2, -kS2);
    y[2][1] = cmul(y[2][1], kC2, -kS2);
    y[2][2] = cmul(y[2][2], kC4, -kS4);
    for (int k1 = 0; k1 < 3; ++k1) {
        Cx a, b, c;
        dft3(y[0][k1], y[1][k1], y[2][k1], &a, &b, &c);
        z[k1] = a, z[k1 + 3] = b, z[k1 + 6] = c;
    }
}

// The N/4-point DFT of z in place (scalar route).
void short_dft(const MdctSpec* spec, Cx* z, uint8_t* fft_work) {
    if (spec->len == 12) {
        dft3(z[0], z[1], z[2], &z[0], &z[1], &z[2]);
    } else if (spec->len == 36) {
        dft9(z);
    } else {
        auto* c = reinterpret_cast<nkp32fc*>(z);
        fft::fftForwardComplex32f(c, c, static_cast<const FftSpecComplex32f*>(spec->pFFTSpec), fft_work);
    }
}

// ---- four-wide helpers ------------------------------------------------------

inline __m128 even4(const float* p) {  // p[0], p[2], p[4], p[6]
    return _mm_shuffle_ps(_mm_loadu_ps(p), _mm_loadu_ps(p + 4), _MM_SHUFFLE(2, 0, 2, 0));
}
inline __m128 oddrev4(const float* p) {  // p[0], p[-2], p[-4], p[-6]
    return _mm_shuffle_ps(_mm_loadu_ps(p - 3), _mm_loadu_ps(p - 7), _MM_SHUFFLE(1, 3, 1, 3));
}
inline __m128 reverse4(__m128 v) { return _mm_shuffle_ps(v, v, _MM_SHUFFLE(0, 1, 2, 3)); }
inline __m128 neg(__m128 v) { return _mm_xor_ps(v, _mm_set1_ps(-0.0f)); }
inline void store_interleaved(float* p, __m128 even, __m128 odd) {
    _mm_storeu_ps(p, _mm_unpacklo_ps(even, odd));
    _mm_storeu_ps(p + 4, _mm_unpackhi_ps(even, odd));
}

bool vector_route(const MdctSpec* spec) {
    const auto* f = static_cast<const FftSpecComplex32f*>(spec->pFFTSpec);
    return f && f->route == fft::Route::BlockSplit;
}

// ---- forward ----------------------------------------------------------------

void forward_vector(const float* x, float* y, const MdctSpec* spec, float* z) {
    const int N = spec->len, N4 = N / 4, h = N / 8;
    const float* t = static_cast<const float*>(spec->pTwiddle);
    // Folding and pre-rotation as a sweep of its own: inside the FFT's first
    // pass (as the inverse does) it measured slower, the folding loads
    // competing with the radix-8 pass for registers.
    for (int k = 0; k < N4; k += 4) {
        __m128 re, im;
        if (k < h) {
            re = _mm_sub_ps(neg(even4(x + 3 * N / 4 + 2 * k)), oddrev4(x + 3 * N / 4 - 1 - 2 * k));
            im = _mm_sub_ps(oddrev4(x + N / 4 - 1 - 2 * k), even4(x + N / 4 + 2 * k));
        } else {
            re = _mm_sub_ps(even4(x + 2 * k - N / 4), oddrev4(x + 3 * N / 4 - 1 - 2 * k));
            im = _mm_sub_ps(neg(oddrev4(x + 5 * N / 4 - 1 - 2 * k)), even4(x + N / 4 + 2 * k));
        }
        const __m128 ts = _mm_load_ps(t + 2 * k), tc = _mm_load_ps(t + 2 * k + 4);
        _mm_store_ps(z + 2 * k, _mm_add_ps(_mm_mul_ps(tc, re), _mm_mul_ps(ts, im)));
        _mm_store_ps(z + 2 * k + 4, _mm_sub_ps(_mm_mul_ps(tc, im), _mm_mul_ps(ts, re)));
    }
    const auto* f = static_cast<const FftSpecComplex32f*>(spec->pFFTSpec);
    fft::bs_transform(f, z);
    // Post-rotation: blocks K and N4-4-K fill y[2K..2K+7] and y[2K'..2K'+7].
    const int order = f->order, iters = N4 / 16;
    for (int it = 0; it < iters / 2; ++it) {
        __m128 ra[4], ia[4], rb[4], ib[4];
        int ba[4], bb[4];
        fft::bs_gather(z, order, it, ra, ia, ba);
        fft::bs_gather(z, order, iters - 1 - it, rb, ib, bb);
        for (int v = 0; v < 4; ++v) {
            const int K = ba[v], K2 = bb[3 - v];
            const __m128 a = ra[v], b = ia[v], a2 = rb[3 - v], b2 = ib[3 - v];
            const __m128 ts = _mm_load_ps(t + 2 * K), tc = _mm_load_ps(t + 2 * K + 4);
            const __m128 ts2 = _mm_load_ps(t + 2 * K2), tc2 = _mm_load_ps(t + 2 * K2 + 4);
            const __m128 e = _mm_add_ps(_mm_mul_ps(tc, a), _mm_mul_ps(ts, b));
            const __m128 o = _mm_sub_ps(_mm_mul_ps(ts, a), _mm_mul_ps(tc, b));
            const __m128 e2 = _mm_add_ps(_mm_mul_ps(tc2, a2), _mm_mul_ps(ts2, b2));
            const __m128 o2 = _mm_sub_ps(_mm_mul_ps(ts2, a2), _mm_mul_ps(tc2, b2));
            store_interleaved(y + 2 * K, e, reverse4(o2));
            store_interleaved(y + 2 * K2, e2, reverse4(o));
        }
    }
}

// The scalar route: 12 and 36 (lengths fixed at compile time, so that the
// folding indices are constants), small powers of two and the large ones.
template <int NF>
void forward_fixed(const float* x, float* y, const MdctSpec* spec, Cx* zwork, uint8_t* fft_work) {
    const int N = NF ? NF : spec->len, N4 = N / 4;
    const float* t = static_cast<const float*>(spec->pTwiddle);
    Cx local[NF ? NF / 4 : 1];
    Cx* z = NF ? local : zwork;
#pragma GCC unroll 9
    for (int k = 0; k < N4; ++k) {
        float re, im;
        fold(x, N, k, &re, &im);
        const float ts = tab_sin(t, k), tc = tab_cos(t, k);
        z[k] = {tc * re + ts * im, tc * im - ts * re};
    }
    if constexpr (NF == 12) {
        dft3(z[0], z[1], z[2], &z[0], &z[1], &z[2]);
    } else if constexpr (NF == 36) {
        dft9(z);
    } else {
        short_dft(spec, z, fft_work);
    }
#pragma GCC unroll 9
    for (int k = 0; k < N4; ++k) {
        const float a = z[k].r, b = z[k].i, ts = tab_sin(t, k), tc = tab_cos(t, k);
        y[2 * k] = tc * a + ts * b;
        y[N / 2 - 1 - 2 * k] = ts * a - tc * b;
    }
}

void forward_scalar(const float* x, float* y, const MdctSpec* spec, Cx* z, uint8_t* fft_work) {
    if (spec->len == 12) return forward_fixed<12>(x, y, spec, z, fft_work);
    if (spec->len == 36) return forward_fixed<36>(x, y, spec, z, fft_work);
    forward_fixed<0>(x, y, spec, z, fft_work);
}

// ---- inverse ----------------------------------------------------------------

// The pre-rotation of the inverse transform, as the FFT's first pass asks
// for each block.
struct InversePreRotation {
    const float* X;
    const float* t;
    int N;
    void operator()(int off, __m128* zr, __m128* zi) const {
        const int k = off / 2;
        const __m128 re = even4(X + 2 * k), im = oddrev4(X + N / 2 - 1 - 2 * k);
        const __m128 ts = _mm_load_ps(t + off), tc = _mm_load_ps(t + off + 4);
        *zr = _mm_add_ps(_mm_mul_ps(tc, re), _mm_mul_ps(ts, im));
        *zi = _mm_sub_ps(_mm_mul_ps(tc, im), _mm_mul_ps(ts, re));
    }
};

void inverse_vector(const float* X, float* y, const MdctSpec* spec, float* z) {
    const int N = spec->len, N4 = N / 4, h = N / 8;
    const float* t = static_cast<const float*>(spec->pTwiddle);
    const auto* f = static_cast<const FftSpecComplex32f*>(spec->pFFTSpec);
    fft::passes::transform(f, InversePreRotation{X, t, N}, z);
    const int order = f->order, iters = N4 / 16;
    for (int it = 0; it < iters / 2; ++it) {
        __m128 ra[4], ia[4], rb[4], ib[4];
        int ba[4], bb[4];
        fft::bs_gather(z, order, it, ra, ia, ba);
        fft::bs_gather(z, order, iters - 1 - it, rb, ib, bb);
        for (int v = 0; v < 4; ++v) {
            // K < N/8 <= K2 = N/4 - 4 - K.
            int K = ba[v], K2 = bb[3 - v];
            __m128 a = ra[v], b = ia[v], a2 = rb[3 - v], b2 = ib[3 - v];
            if (K >= h) {
                const int tk = K;
                K = K2, K2 = tk;
                const __m128 ta = a, tb = b;
                a = a2, b = b2, a2 = ta, b2 = tb;
            }
            const __m128 ts = _mm_load_ps(t + 2 * K), tc = _mm_load_ps(t + 2 * K + 4);
            const __m128 ts2 = _mm_load_ps(t + 2 * K2), tc2 = _mm_load_ps(t + 2 * K2 + 4);
            const __m128 P = _mm_add_ps(_mm_mul_ps(tc, a), _mm_mul_ps(ts, b));
            const __m128 Q = _mm_sub_ps(_mm_mul_ps(tc, b), _mm_mul_ps(ts, a));
            const __m128 P2 = _mm_add_ps(_mm_mul_ps(tc2, a2), _mm_mul_ps(ts2, b2));
            const __m128 Q2 = _mm_sub_ps(_mm_mul_ps(tc2, b2), _mm_mul_ps(ts2, a2));
            store_interleaved(y + 3 * N / 4 + 2 * K, neg(P), reverse4(Q2));
            store_interleaved(y + 3 * N / 4 - 8 - 2 * K, Q2, neg(reverse4(P)));
            store_interleaved(y + N / 4 - 8 - 2 * K, P2, neg(reverse4(Q)));
            store_interleaved(y + N / 4 + 2 * K, Q, neg(reverse4(P2)));
        }
    }
}

template <int NF>
void inverse_fixed(const float* X, float* y, const MdctSpec* spec, Cx* zwork, uint8_t* fft_work) {
    const int N = NF ? NF : spec->len, N4 = N / 4, h = (N4 + 1) / 2;
    const float* t = static_cast<const float*>(spec->pTwiddle);
    Cx local[NF ? NF / 4 : 1];
    Cx* z = NF ? local : zwork;
#pragma GCC unroll 9
    for (int k = 0; k < N4; ++k) {
        const float re = X[2 * k], im = X[N / 2 - 1 - 2 * k], ts = tab_sin(t, k), tc = tab_cos(t, k);
        z[k] = {tc * re + ts * im, tc * im - ts * re};
    }
    if constexpr (NF == 12) {
        dft3(z[0], z[1], z[2], &z[0], &z[1], &z[2]);
    } else if constexpr (NF == 36) {
        dft9(z);
    } else {
        short_dft(spec, z, fft_work);
    }
#pragma GCC unroll 9
    for (int k = 0; k < N4; ++k) {
        const float a = z[k].r, b = z[k].i, ts = tab_sin(t, k), tc = tab_cos(t, k);
        const float P = tc * a + ts * b, Q = tc * b - ts * a;
        if (k < h) {
            y[3 * N / 4 + 2 * k] = -P;
            y[3 * N / 4 - 1 - 2 * k] = -P;
            y[N / 4 - 1 - 2 * k] = -Q;
            y[N / 4 + 2 * k] = Q;
        } else {
            y[2 * k - N / 4] = P;
            y[3 * N / 4 - 1 - 2 * k] = -P;
            y[5 * N / 4 - 1 - 2 * k] = Q;
            y[N / 4 + 2 * k] = Q;
        }
    }
}

void inverse_scalar(const float* X, float* y, const MdctSpec* spec, Cx* z, uint8_t* fft_work) {
    if (spec->len == 12) return inverse_fixed<12>(X, y, spec, z, fft_work);
    if (spec->len == 36) return inverse_fixed<36>(X, y, spec, z, fft_work);
    inverse_fixed<0>(X, y, spec, z, fft_work);
}

// ---- life cycle ---------------------------------------------------------------

// The GetSize figures (transform/sizes.h), with the FFT's status.
nkpStatus plan_sizes(int len, Sizes* s) {
    int S = 0, I = 0, B = 0;
    if (is_pow2_at_least_32(len)) {
        const nkpStatus st = fft::fftSizesComplex32f(order_of(len), fft::kNoDivByAny, 0, &S, &I, &B);
        if (st != nkpStatusOk) return st;
    }
    *s = float_sizes(len, {S, I, B});
    if (s->spec > INT32_MAX || s->work > INT32_MAX) return nkpStatusBadSize;
    return nkpStatusOk;
}

void fill_table(float* t, int len, bool inverse) {
    const int N4 = len / 4;
    const double n = static_cast<double>(len);
    const double scale = inverse ? 1.0 / std::sqrt(n / 2.0) : std::sqrt(2.0);
    std::memset(t, 0, sizeof(float) * static_cast<size_t>(table_entries(len)));
    for (int j = 0; j < N4; ++j) {
        // theta_j = 2 pi (j + 1/8) / N = 2 pi (8j + 1) / 8N.
        double s, c;
        sincos_2pi_ratio(8 * j + 1, 8 * int64_t{len}, &s, &c);
        tab_sin(t, j) = static_cast<float>(scale * s);
        tab_cos(t, j) = static_cast<float>(scale * c);
    }
}

nkpStatus init_float(MdctSpec** out, int len, uint8_t* memSpec, uint8_t* memInit, uint32_t tag) {
    if (!is_float_length(len)) return nkpStatusBadSize;
    const bool pow2 = is_pow2_at_least_32(len);
    if (!out || !memSpec || (pow2 && !memInit)) return nkpStatusNullPointer;
    Sizes sizes;
    const nkpStatus sst = plan_sizes(len, &sizes);
    if (sst != nkpStatusOk) return sst;
    uint8_t* base = align_up<64>(memSpec);
    std::memset(base, 0, kHeaderBytes);
    auto* spec = reinterpret_cast<MdctSpec*>(base);
    spec->tag = tag;
    spec->len = len;
    float* table = reinterpret_cast<float*>(base + kHeaderPadded);
    spec->pTwiddle = table;
    int B = 0;
    if (pow2) {
        FftSpecComplex32f* f = nullptr;
        uint8_t* fmem = base + kHeaderPadded + align64(4 * int64_t{table_entries(len)});
        const nkpStatus st = fft::fftInitComplex32f(&f, order_of(len), fft::kNoDivByAny, 0, fmem, memInit);
        if (st != nkpStatusOk) {
            spec->tag = 0;
            return st;
        }
        fft::fftWorkSizeComplex32f(f, &B);
        spec->pFFTSpec = f;
    }
    spec->bufSize = static_cast<int32_t>(float_recorded_work(len, B));
    spec->order = order_of(len);
    fill_table(table, len, tag == kTagInv32f);
    *out = spec;
    return nkpStatusOk;
}

// InitAlloc makes three blocks: the header (the object), the table and the
// FFT plan (the engine's Create); a failure releases those already made.
nkpStatus init_alloc_float(MdctSpec** out, int len, uint32_t tag) {
    if (!is_float_length(len)) return nkpStatusBadSize;
    return init_alloc<MdctSpec, fft::kPlanLife>(
        out,
        [&](int32_t* size) -> nkpStatus {
            Sizes sizes;
            *size = kHeaderPadded + 63;
            return plan_sizes(len, &sizes);
        },
        [&](void* header) -> nkpStatus {
            PendingBlocks<1> blocks;
            void* tableBlock = blocks.take(4 * table_entries(len) + 63);
            if (!tableBlock) return nkpStatusNoMemory;
            FftSpecComplex32f* f = nullptr;
            int B = 0;
            if (is_pow2_at_least_32(len)) {
                const nkpStatus st = fft::fftCreateComplex32f(&f, order_of(len), fft::kNoDivByAny, 0);
                if (st != nkpStatusOk) return st;
                fft::fftWorkSizeComplex32f(f, &B);
            }
            auto* spec = object_in<MdctSpec, 64>(header);
            std::memset(spec, 0, kHeaderBytes);
            float* table = reinterpret_cast<float*>(align_up<64>(tableBlock));
            spec->tag = tag;
            spec->len = len;
            spec->bufSize = static_cast<int32_t>(float_recorded_work(len, B));
            spec->order = order_of(len);
            spec->pTwiddle = table;
            spec->pFFTSpec = f;
            spec->tableBlock = tableBlock;
            fill_table(table, len, tag == kTagInv32f);
            blocks.keep();
            return nkpStatusOk;
        });
}

nkpStatus free_float(void* p, uint32_t tag) {
    return free_object<MdctSpec, fft::kPlanLife>(p, tag, [](MdctSpec* spec) {
        release(spec->tableBlock);
        if (spec->pFFTSpec) fft::fftDestroyComplex32f(static_cast<FftSpecComplex32f*>(spec->pFFTSpec));
    });
}

nkpStatus get_buf_size(const void* p, int* size, uint32_t tag) {
    if (!p || !size) return nkpStatusNullPointer;
    const MdctSpec* spec = tagged_object<MdctSpec, 64>(p, tag);
    if (!spec) return nkpStatusWrongObject;
    *size = spec->bufSize;
    return nkpStatusOk;
}

template <class Vector, class Scalar>
nkpStatus run(const float* src, float* dst, const void* p, uint8_t* buffer, uint32_t tag, Vector vector_path,
              Scalar scalar_path) {
    if (!p) return nkpStatusNullPointer;
    const MdctSpec* spec = tagged_object<MdctSpec, 64>(p, tag);
    if (!spec) return nkpStatusWrongObject;
    if (!src || !dst) return nkpStatusNullPointer;
    const CallWork call_work(buffer, spec->bufSize);
    if (call_work.failed()) return nkpStatusNoMemory;
    uint8_t* work = call_work.aligned<64>();
    if (vector_route(spec)) {
        vector_path(src, dst, spec, reinterpret_cast<float*>(work));
    } else {
        scalar_path(src, dst, spec, reinterpret_cast<Cx*>(work), work + 8 * (spec->len / 4));
    }
    return nkpStatusOk;
}

}  // namespace

nkpStatus nkpsMDCTFwdGetSize_32f(int len, int* pSpecSize, int* pSizeInit, int* pSizeBuf) {
    if (!pSpecSize || !pSizeInit || !pSizeBuf) return nkpStatusNullPointer;
    if (!is_float_length(len)) return nkpStatusBadSize;
    Sizes s;
    const nkpStatus st = plan_sizes(len, &s);
    if (st != nkpStatusOk) return st;
    *pSpecSize = static_cast<int>(s.spec);
    *pSizeInit = static_cast<int>(s.init);
    *pSizeBuf = static_cast<int>(s.work);
    return nkpStatusOk;
}

nkpStatus nkpsMDCTInvGetSize_32f(int len, int* pSpecSize, int* pSizeInit, int* pSizeBuf) {
    return nkp::nkpsMDCTFwdGetSize_32f(len, pSpecSize, pSizeInit, pSizeBuf);
}

nkpStatus nkpsMDCTFwdInit_32f(nkpsMDCTFwdSpec_32f** ppSpec, int len, nkp8u* pMemSpec, nkp8u* pMemInit) {
    return init_float(reinterpret_cast<MdctSpec**>(ppSpec), len, pMemSpec, pMemInit, kTagFwd32f);
}

nkpStatus nkpsMDCTInvInit_32f(nkpsMDCTInvSpec_32f** ppSpec, int len, nkp8u* pMemSpec, nkp8u* pMemInit) {
    return init_float(reinterpret_cast<MdctSpec**>(ppSpec), len, pMemSpec, pMemInit, kTagInv32f);
}

nkpStatus nkpsMDCTFwdInitAlloc_32f(nkpsMDCTFwdSpec_32f** ppSpec, int len) {
    return init_alloc_float(reinterpret_cast<MdctSpec**>(ppSpec), len, kTagFwd32f);
}

nkpStatus nkpsMDCTInvInitAlloc_32f(nkpsMDCTInvSpec_32f** ppSpec, int len) {
    return init_alloc_float(reinterpret_cast<MdctSpec**>(ppSpec), len, kTagInv32f);
}

nkpStatus nkpsMDCTFwdFree_32f(nkpsMDCTFwdSpec_32f* pSpec) { return free_float(pSpec, kTagFwd32f); }
nkpStatus nkpsMDCTInvFree_32f(nkpsMDCTInvSpec_32f* pSpec) { return free_float(pSpec, kTagInv32f); }

nkpStatus nkpsMDCTFwdGetBufSize_32f(const nkpsMDCTFwdSpec_32f* pSpec, int* pSize) {
    return get_buf_size(pSpec, pSize, kTagFwd32f);
}
nkpStatus nkpsMDCTInvGetBufSize_32f(const nkpsMDCTInvSpec_32f* pSpec, int* pSize) {
    return get_buf_size(pSpec, pSize, kTagInv32f);
}

nkpStatus nkpsMDCTFwd_32f(const nkp32f* pSrc, nkp32f* pDst, const nkpsMDCTFwdSpec_32f* pSpec, nkp8u* pBuffer) {
    return run(pSrc, pDst, pSpec, pBuffer, kTagFwd32f, forward_vector, forward_scalar);
}

nkpStatus nkpsMDCTFwd_32f_I(nkp32f* pSrcDst, const nkpsMDCTFwdSpec_32f* pSpec, nkp8u* pBuffer) {
    return nkp::nkpsMDCTFwd_32f(pSrcDst, pSrcDst, pSpec, pBuffer);
}

nkpStatus nkpsMDCTInv_32f(const nkp32f* pSrc, nkp32f* pDst, const nkpsMDCTInvSpec_32f* pSpec, nkp8u* pBuffer) {
    return run(pSrc, pDst, pSpec, pBuffer, kTagInv32f, inverse_vector, inverse_scalar);
}

nkpStatus nkpsMDCTInv_32f_I(nkp32f* pSrcDst, const nkpsMDCTInvSpec_32f* pSpec, nkp8u* pBuffer) {
    return nkp::nkpsMDCTInv_32f(pSrcDst, pSrcDst, pSpec, pBuffer);
}

}  // namespace nkp
