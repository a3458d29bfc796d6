// The complex float FFT (interleaved data, tag 4): sizes, life cycle, the
// written-out kernels of orders 0..5 and the table-driven passes of orders
// 6..15 on the block-split layout.
#include "frame/memory.h"
#include "frame/object.h"
#include "transform/engine.h"
#include "transform/fft_large.h"

#include <cmath>
#include <cstring>

namespace nkp::fft {

namespace {

constexpr int kHeaderBytes = 136;
constexpr int kHeaderPadded = 192;  // tables start 64-byte aligned behind the header


bool valid_flag(int flag) {
    return flag == kDivFwdByN || flag == kDivInvByN || flag == kDivBySqrtN || flag == kNoDivByAny;
}

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

// ---- table-driven passes on the block-split layout --------------------------

inline __m128 cmul_re(__m128 ar, __m128 ai, __m128 wr, __m128 wi) {
    return _mm_sub_ps(_mm_mul_ps(ar, wr), _mm_mul_ps(ai, wi));
}
inline __m128 cmul_im(__m128 ar, __m128 ai, __m128 wr, __m128 wi) {
    return _mm_add_ps(_mm_mul_ps(ar, wi), _mm_mul_ps(ai, wr));
}

// Radix 4, span m (m >= 4): quarters q = 0..3 of each group of 4m receive
// the sub-spectra k = 0, 2, 1, 3 (mod 4), which keeps the overall output in
// bit-reversed order.
// Block loads: block-split data in place, or interleaved source data (the
// same float offsets) de-interleaved on the way in.
template <bool Interleaved>
inline void load_block(const float* p, __m128* r, __m128* i) {
    if constexpr (Interleaved) {
        load_split4(p, r, i);
    } else {
        *r = _mm_load_ps(p);
        *i = _mm_load_ps(p + 4);
    }
}

template <bool Interleaved>
void pass_radix4(const float* src, float* d, int L, int m, const float* tw0) {
    const int q = 2 * m;  // floats between quarters
    for (int g = 0; g < L; g += 4 * m) {
        float* a = d + 2 * g;
        const float* s = src + 2 * g;
        const float* tw = tw0;
        for (int jb = 0; jb < m / 4; ++jb, a += 8, s += 8, tw += 24) {
            __m128 ar, ai, br, bi, cr, ci, dr, di;
            load_block<Interleaved>(s, &ar, &ai);
            load_block<Interleaved>(s + q, &br, &bi);
            load_block<Interleaved>(s + 2 * q, &cr, &ci);
            load_block<Interleaved>(s + 3 * q, &dr, &di);
            const __m128 t0r = _mm_add_ps(ar, cr), t0i = _mm_add_ps(ai, ci);
            const __m128 t1r = _mm_sub_ps(ar, cr), t1i = _mm_sub_ps(ai, ci);
            const __m128 t2r = _mm_add_ps(br, dr), t2i = _mm_add_ps(bi, di);
            const __m128 t3r = _mm_sub_ps(br, dr), t3i = _mm_sub_ps(bi, di);
            _mm_store_ps(a, _mm_add_ps(t0r, t2r));
            _mm_store_ps(a + 4, _mm_add_ps(t0i, t2i));
            const __m128 y2r = _mm_sub_ps(t0r, t2r), y2i = _mm_sub_ps(t0i, t2i);
            const __m128 y1r = _mm_add_ps(t1r, t3i), y1i = _mm_sub_ps(t1i, t3r);
            const __m128 y3r = _mm_sub_ps(t1r, t3i), y3i = _mm_add_ps(t1i, t3r);
            const __m128 w1r = _mm_load_ps(tw), w1i = _mm_load_ps(tw + 4);
            const __m128 w2r = _mm_load_ps(tw + 8), w2i = _mm_load_ps(tw + 12);
            const __m128 w3r = _mm_load_ps(tw + 16), w3i = _mm_load_ps(tw + 20);
            _mm_store_ps(a + q, cmul_re(y2r, y2i, w2r, w2i));
            _mm_store_ps(a + q + 4, cmul_im(y2r, y2i, w2r, w2i));
            _mm_store_ps(a + 2 * q, cmul_re(y1r, y1i, w1r, w1i));
            _mm_store_ps(a + 2 * q + 4, cmul_im(y1r, y1i, w1r, w1i));
            _mm_store_ps(a + 3 * q, cmul_re(y3r, y3i, w3r, w3i));
            _mm_store_ps(a + 3 * q + 4, cmul_im(y3r, y3i, w3r, w3i));
        }
    }
}

// A radix-4 butterfly on vectors of four complex values (re, im), the
// outputs in slot order 0, 2, 1, 3.
struct Quad {
    __m128 r[4], i[4];
};

inline void butterfly4(__m128 ar, __m128 ai, __m128 br, __m128 bi, __m128 cr, __m128 ci, __m128 dr, __m128 di,
                       Quad& out) {
    const __m128 t0r = _mm_add_ps(ar, cr), t0i = _mm_add_ps(ai, ci);
    const __m128 t1r = _mm_sub_ps(ar, cr), t1i = _mm_sub_ps(ai, ci);
    const __m128 t2r = _mm_add_ps(br, dr), t2i = _mm_add_ps(bi, di);
    const __m128 t3r = _mm_sub_ps(br, dr), t3i = _mm_sub_ps(bi, di);
    out.r[0] = _mm_add_ps(t0r, t2r), out.i[0] = _mm_add_ps(t0i, t2i);
    out.r[1] = _mm_sub_ps(t0r, t2r), out.i[1] = _mm_sub_ps(t0i, t2i);
    out.r[2] = _mm_add_ps(t1r, t3i), out.i[2] = _mm_sub_ps(t1i, t3r);
    out.r[3] = _mm_sub_ps(t1r, t3i), out.i[3] = _mm_add_ps(t1i, t3r);
}

// Slots 1..3 times the twiddles w2, w1, w3 of one radix-4 block (24 floats).
inline void twiddle_slots(Quad& q, const float* tw) {
    const __m128 w1r = _mm_load_ps(tw), w1i = _mm_load_ps(tw + 4);
    const __m128 w2r = _mm_load_ps(tw + 8), w2i = _mm_load_ps(tw + 12);
    const __m128 w3r = _mm_load_ps(tw + 16), w3i = _mm_load_ps(tw + 20);
    __m128 r = q.r[1], i = q.i[1];
    q.r[1] = cmul_re(r, i, w2r, w2i), q.i[1] = cmul_im(r, i, w2r, w2i);
    r = q.r[2], i = q.i[2];
    q.r[2] = cmul_re(r, i, w1r, w1i), q.i[2] = cmul_im(r, i, w1r, w1i);
    r = q.r[3], i = q.i[3];
    q.r[3] = cmul_re(r, i, w3r, w3i), q.i[3] = cmul_im(r, i, w3r, w3i);
}

// The first pass of odd orders: radix 2 (span L/2) and the first radix-4
// pass (span L/8) fused into one radix-8 sweep.
template <bool Interleaved>
void pass_radix8_first(const float* src, float* d, int L, const float* tw2, const float* tw4) {
    const int M = L / 8;      // elements per eighth
    const int e = 2 * M;      // floats per eighth
    for (int jb = 0; jb < M / 4; ++jb) {
        float* a = d + 8 * jb;
        const float* s = src + 8 * jb;
        __m128 sr[4], si[4], tr[4], ti[4];
        for (int q = 0; q < 4; ++q) {
            __m128 xr, xi, yr, yi;
            load_block<Interleaved>(s + q * e, &xr, &xi);
            load_block<Interleaved>(s + (q + 4) * e, &yr, &yi);
            sr[q] = _mm_add_ps(xr, yr), si[q] = _mm_add_ps(xi, yi);
            const __m128 dr = _mm_sub_ps(xr, yr), di = _mm_sub_ps(xi, yi);
            const float* w = tw2 + 8 * (jb + q * M / 4);
            const __m128 wr = _mm_load_ps(w), wi = _mm_load_ps(w + 4);
            tr[q] = cmul_re(dr, di, wr, wi), ti[q] = cmul_im(dr, di, wr, wi);
        }
        const float* w4 = tw4 + 24 * jb;
        Quad o;
        butterfly4(sr[0], si[0], sr[1], si[1], sr[2], si[2], sr[3], si[3], o);
        twiddle_slots(o, w4);
        for (int q = 0; q < 4; ++q) _mm_store_ps(a + q * e, o.r[q]), _mm_store_ps(a + q * e + 4, o.i[q]);
        butterfly4(tr[0], ti[0], tr[1], ti[1], tr[2], ti[2], tr[3], ti[3], o);
        twiddle_slots(o, w4);
        for (int q = 0; q < 4; ++q) _mm_store_ps(a + (q + 4) * e, o.r[q]), _mm_store_ps(a + (q + 4) * e + 4, o.i[q]);
    }
}

// The last two radix-4 passes (span 4, then inside each block) on four
// blocks held in registers. The inner pass runs on the transposed blocks
// and its result is left transposed (bs_gather knows the order).
void pass_last(float* d, int L, const float* tw) {
    for (int b = 0; b < L / 4; b += 4) {
        float* p = d + 8 * b;
        Quad o;
        butterfly4(_mm_load_ps(p), _mm_load_ps(p + 4), _mm_load_ps(p + 8), _mm_load_ps(p + 12), _mm_load_ps(p + 16),
                   _mm_load_ps(p + 20), _mm_load_ps(p + 24), _mm_load_ps(p + 28), o);
        twiddle_slots(o, tw);
        transpose4(o.r[0], o.r[1], o.r[2], o.r[3]);
        transpose4(o.i[0], o.i[1], o.i[2], o.i[3]);
        Quad f;
        butterfly4(o.r[0], o.i[0], o.r[1], o.i[1], o.r[2], o.i[2], o.r[3], o.i[3], f);
        for (int q = 0; q < 4; ++q) _mm_store_ps(p + 8 * q, f.r[q]), _mm_store_ps(p + 8 * q + 4, f.i[q]);
    }
}

// e^(-2 pi i num/den): from the constant table when den divides 1024, else
// computed in double precision.
void twiddle(int64_t num, int64_t den, float* re, float* im) {
    if (den <= 1024) {
        const int64_t j = num * (1024 / den);
        *re = kTwiddle1024[2 * j];
        *im = kTwiddle1024[2 * j + 1];
        return;
    }
    const double a = 2.0 * 3.14159265358979323846 * static_cast<double>(num) / static_cast<double>(den);
    *re = static_cast<float>(std::cos(a));
    *im = static_cast<float>(-std::sin(a));
}

int64_t round_down64(int64_t x) { return x & ~int64_t{63}; }

int32_t work_bytes_of(const FftSpecComplex32f* spec) { return spec->bufSize >= 1 ? spec->bufSize + 64 : 0; }

// The last two passes as in pass_last, writing each result straight to its
// place in natural order in the interleaved output: the element in slot s,
// lane l of group g is X[bitrev(g) + rev2(l) L/16 + rev2(s) L/4].
void pass_last_to_interleaved(const float* d, int order, const float* tw, float* out, bool scale, float factor) {
    const int L = 1 << order, q = L / 16;
    const __m128 f = _mm_set1_ps(factor);
    const int lane_offset[4] = {0, 2 * q, q, 3 * q};
    const int slot_offset[4] = {0, 8 * q, 4 * q, 12 * q};
    for (int g = 0; g < L / 16; ++g) {
        const float* p = d + 32 * g;
        Quad o;
        butterfly4(_mm_load_ps(p), _mm_load_ps(p + 4), _mm_load_ps(p + 8), _mm_load_ps(p + 12), _mm_load_ps(p + 16),
                   _mm_load_ps(p + 20), _mm_load_ps(p + 24), _mm_load_ps(p + 28), o);
        twiddle_slots(o, tw);
        transpose4(o.r[0], o.r[1], o.r[2], o.r[3]);
        transpose4(o.i[0], o.i[1], o.i[2], o.i[3]);
        Quad r;
        butterfly4(o.r[0], o.i[0], o.r[1], o.i[1], o.r[2], o.i[2], o.r[3], o.i[3], r);
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

// The passes but the last two; the first one reads src (block-split, or
// interleaved) and writes d, the others work in place on d. Returns the
// twiddles of the last two passes.
template <bool Interleaved>
const float* bs_passes(const FftSpecComplex32f* spec, const float* src, float* d) {
    const int p = spec->order, L = 1 << p;
    const float* tw = spec->pTwiddle;
    int m = L / 4;
    if (p & 1) {
        pass_radix8_first<Interleaved>(src, d, L, tw, tw + L);
        tw += L + 6 * (L / 8);
        m = L / 32;
    } else {
        pass_radix4<Interleaved>(src, d, L, m, tw);
        tw += 6 * m;
        m /= 4;
    }
    for (; m > 4; m /= 4) {
        pass_radix4<false>(d, d, L, m, tw);
        tw += 6 * m;
    }
    return tw;
}

// Unnormalised forward transform of interleaved data, src may equal dst;
// `work` is the caller's buffer (any alignment) of work_bytes_of(spec).
void forward_interleaved(const nkp32fc* src, nkp32fc* dst, const FftSpecComplex32f* spec, uint8_t* work,
                         bool scale, float factor) {
    const int order = spec->order;
    if (order <= kMaxKernelOrder) {
        kernel_forward(src, dst, order, scale, factor);
        return;
    }
    const int L = 1 << order;
    if (order > kMaxMediumOrder) {
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
    const float* tw = bs_passes<true>(spec, reinterpret_cast<const float*>(src), w);
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

bool uses_block_split(const FftSpecComplex32f* spec) {
    return spec->order > kMaxKernelOrder && spec->order <= kMaxMediumOrder;
}

void bs_transform(const FftSpecComplex32f* spec, float* d) {
    pass_last(d, 1 << spec->order, bs_passes<false>(spec, d, d));
}

int64_t medium_spec_bytes(int order) {
    const int64_t L = int64_t{1} << order, R = round_down64(L + 67);
    return round_down64(8 * L + 71) + R + 256;
}
int64_t medium_init_bytes(int order) {
    const int64_t L = int64_t{1} << order, R = round_down64(L + 67);
    return order >= 11 ? R + 64 : 0;
}
int64_t medium_work_bytes(int order) { return round_down64(8 * (int64_t{1} << order) + 63); }

void medium_fill_twiddles(float* tw, int order) {
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
    if (order <= kMaxKernelOrder) {
        *specSize = 200;
        *initSize = 0;
        *bufSize = 0;
    } else if (order <= kMaxMediumOrder) {
        *specSize = static_cast<int>(medium_spec_bytes(order));
        *initSize = static_cast<int>(medium_init_bytes(order));
        *bufSize = static_cast<int>(medium_work_bytes(order) + 64);
    } else {
        int64_t s, i, w;
        large_sizes(order, &s, &i, &w);
        *specSize = static_cast<int>(s + 256);
        *initSize = static_cast<int>(i);
        *bufSize = static_cast<int>(w + 64);
    }
    return nkpStatusOk;
}

nkpStatus fftInitComplex32f(FftSpecComplex32f** ppSpec, int order, int flag, int hint, uint8_t* memSpec,
                            uint8_t* memInit) {
    if (!ppSpec) return nkpStatusNullPointer;
    if (order < 0 || order > kMaxOrder) return nkpStatusBadOrder;
    if (!memSpec) return nkpStatusNullPointer;
    uint8_t* base = align_up<64>(memSpec);
    std::memset(base, 0, kHeaderBytes);
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
    if (order > kMaxKernelOrder && order <= kMaxMediumOrder) {
        spec->bufSize = static_cast<int32_t>(medium_work_bytes(order));
    } else if (order > kMaxMediumOrder) {
        int64_t s, i, w;
        large_sizes(order, &s, &i, &w);
        spec->bufSize = static_cast<int32_t>(w);
    }
    if (order >= 11 && !memInit) return nkpStatusNullPointer;
    if (order > kMaxKernelOrder && order <= kMaxMediumOrder) {
        float* tw = reinterpret_cast<float*>(base + kHeaderPadded);
        spec->pBitRev = base + kHeaderBytes;
        spec->pTwiddle = tw;
        medium_fill_twiddles(tw, order);
    } else if (order > kMaxMediumOrder) {
        large_init(spec, base + kHeaderPadded, memInit);
    }
    *ppSpec = spec;
    return nkpStatusOk;
}

nkpStatus fftCreateComplex32f(FftSpecComplex32f** ppSpec, int order, int flag, int hint) {
    if (!ppSpec) return nkpStatusNullPointer;
    int specSize = 0, initSize = 0, bufSize = 0;
    nkpStatus st = fftSizesComplex32f(order, flag, hint, &specSize, &initSize, &bufSize);
    if (st != nkpStatusOk) return st;
    void* block = malloc_bytes(specSize);
    if (!block) return nkpStatusNoMemory;
    void* init = nullptr;
    if (initSize > 0) {
        init = malloc_bytes(initSize);
        if (!init) {
            release(block);
            return nkpStatusNoMemory;
        }
    }
    FftSpecComplex32f* spec = nullptr;
    st = fftInitComplex32f(&spec, order, flag, hint, static_cast<uint8_t*>(block), static_cast<uint8_t*>(init));
    release(init);
    if (st != nkpStatusOk) {
        release(block);
        return st;
    }
    spec->isAllocated = 1;
    spec->block = block;
    *ppSpec = spec;
    return nkpStatusOk;
}

nkpStatus fftWorkSizeComplex32f(const FftSpecComplex32f* spec, int* size) {
    if (!spec || !size) return nkpStatusNullPointer;
    if (spec->tag != kTagComplex32f) return nkpStatusWrongObject;
    *size = work_bytes_of(spec);
    return nkpStatusOk;
}

nkpStatus fftDestroyComplex32f(FftSpecComplex32f* spec) {
    if (!spec) return nkpStatusNullPointer;
    if (spec->tag != kTagComplex32f && spec->tag != kTagSplit32f) return nkpStatusWrongObject;
    spec->tag = 0;
    if (spec->isAllocated == 1) release(spec->block);
    return nkpStatusOk;
}

namespace {

// Runs body(work) with the caller's buffer, or with one allocated for the call.
template <class Body>
nkpStatus with_work(const FftSpecComplex32f* spec, uint8_t* buffer, Body body) {
    const int32_t bytes = work_bytes_of(spec);
    if (buffer || bytes == 0) {
        body(buffer);
        return nkpStatusOk;
    }
    auto* own = static_cast<uint8_t*>(malloc_bytes(bytes));
    if (!own) return nkpStatusNoMemory;
    body(own);
    release(own);
    return nkpStatusOk;
}

}  // namespace

nkpStatus fftForwardComplex32f(const nkp32fc* src, nkp32fc* dst, const FftSpecComplex32f* spec, uint8_t* buffer) {
    if (!src || !dst || !spec) return nkpStatusNullPointer;
    if (spec->tag != kTagComplex32f) return nkpStatusWrongObject;
    return with_work(spec, buffer, [&](uint8_t* work) {
        forward_interleaved(src, dst, spec, work, spec->normFwd != 0, spec->normFactor);
    });
}

nkpStatus fftInverseComplex32f(const nkp32fc* src, nkp32fc* dst, const FftSpecComplex32f* spec, uint8_t* buffer) {
    if (!src || !dst || !spec) return nkpStatusNullPointer;
    if (spec->tag != kTagComplex32f) return nkpStatusWrongObject;
    return with_work(spec, buffer, [&](uint8_t* work) {
        const int L = 1 << spec->order;
        swap_parts(src, dst, L);
        forward_interleaved(dst, dst, spec, work, spec->normInv != 0, spec->normFactor);
        swap_parts(dst, dst, L);
    });
}

}  // namespace nkp::fft
