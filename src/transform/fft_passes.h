// The table-driven passes of orders 6..15 on the block-split layout, private
// to the transform family. The first pass takes its input through a loader,
// load(offset, &re, &im) giving the block at float offset `offset` (8 floats
// per block of four complex values), so that callers can feed data in other
// layouts, or computed on the fly, without a separate sweep.
#pragma once

#include "transform/engine.h"

namespace nkp::fft::passes {

inline __m128 cmul_re(__m128 ar, __m128 ai, __m128 wr, __m128 wi) {
    return _mm_sub_ps(_mm_mul_ps(ar, wr), _mm_mul_ps(ai, wi));
}
inline __m128 cmul_im(__m128 ar, __m128 ai, __m128 wr, __m128 wi) {
    return _mm_add_ps(_mm_mul_ps(ar, wi), _mm_mul_ps(ai, wr));
}

// Block-split data in place.
struct BlockSplitLoader {
    const float* src;
    void operator()(int off, __m128* r, __m128* i) const {
        *r = _mm_load_ps(src + off);
        *i = _mm_load_ps(src + off + 4);
    }
};

// Interleaved (re, im) data at the same float offsets, de-interleaved.
struct InterleavedLoader {
    const float* src;
    void operator()(int off, __m128* r, __m128* i) const {
        const __m128 v0 = _mm_loadu_ps(src + off), v1 = _mm_loadu_ps(src + off + 4);
        *r = _mm_shuffle_ps(v0, v1, _MM_SHUFFLE(2, 0, 2, 0));
        *i = _mm_shuffle_ps(v0, v1, _MM_SHUFFLE(3, 1, 3, 1));
    }
};

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

inline void store_quad(float* a, int stride, const Quad& o) {
    for (int q = 0; q < 4; ++q) _mm_store_ps(a + q * stride, o.r[q]), _mm_store_ps(a + q * stride + 4, o.i[q]);
}

// Radix 4, span m (m >= 4), decimation in frequency: quarters 0..3 of each
// group of 4m receive the sub-spectra k = 0, 2, 1, 3 (mod 4), which keeps
// the overall output in bit-reversed order.
template <class Load>
inline void pass_radix4(const Load& load, float* d, int L, int m, const float* tw0) {
    const int q = 2 * m;  // floats between quarters
    for (int g = 0; g < 2 * L; g += 4 * q) {
        const float* tw = tw0;
        for (int off = g; off < g + q; off += 8, tw += 24) {
            __m128 ar, ai, br, bi, cr, ci, dr, di;
            load(off, &ar, &ai);
            load(off + q, &br, &bi);
            load(off + 2 * q, &cr, &ci);
            load(off + 3 * q, &dr, &di);
            Quad o;
            butterfly4(ar, ai, br, bi, cr, ci, dr, di, o);
            twiddle_slots(o, tw);
            store_quad(d + off, q, o);
        }
    }
}

// The first pass of odd orders: radix 2 (span L/2) and the first radix-4
// pass (span L/8) fused into one radix-8 sweep.
template <class Load>
inline void pass_radix8_first(const Load& load, float* d, int L, const float* tw2, const float* tw4) {
    const int M = L / 8;  // elements per eighth
    const int e = 2 * M;  // floats per eighth
    for (int jb = 0; jb < M / 4; ++jb) {
        const int off = 8 * jb;
        __m128 sr[4], si[4], tr[4], ti[4];
        for (int q = 0; q < 4; ++q) {
            __m128 xr, xi, yr, yi;
            load(off + q * e, &xr, &xi);
            load(off + (q + 4) * e, &yr, &yi);
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
        store_quad(d + off, e, o);
        butterfly4(tr[0], ti[0], tr[1], ti[1], tr[2], ti[2], tr[3], ti[3], o);
        twiddle_slots(o, w4);
        store_quad(d + off + 4 * e, e, o);
    }
}

// The last two radix-4 passes (span 4, then inside each block) on the four
// blocks of group g held in registers. The inner pass runs on the
// transposed blocks; slot s, lane l of the result is element 16g + 4l + s of
// the bit-reversed spectrum.
inline void last_two(const float* p, const float* tw, Quad& r) {
    Quad o;
    butterfly4(_mm_load_ps(p), _mm_load_ps(p + 4), _mm_load_ps(p + 8), _mm_load_ps(p + 12), _mm_load_ps(p + 16),
               _mm_load_ps(p + 20), _mm_load_ps(p + 24), _mm_load_ps(p + 28), o);
    twiddle_slots(o, tw);
    transpose4(o.r[0], o.r[1], o.r[2], o.r[3]);
    transpose4(o.i[0], o.i[1], o.i[2], o.i[3]);
    butterfly4(o.r[0], o.i[0], o.r[1], o.i[1], o.r[2], o.i[2], o.r[3], o.i[3], r);
}

// ... written back in place, left transposed (bs_gather knows the order).
inline void pass_last(float* d, int L, const float* tw) {
    for (int g = 0; g < L / 16; ++g) {
        Quad r;
        last_two(d + 32 * g, tw, r);
        store_quad(d + 32 * g, 8, r);
    }
}

// All passes but the last two; the first one reads through `load` and
// writes d, the others work in place on d. Returns the twiddles of the
// last two passes.
template <class Load>
inline const float* passes_but_last(const FftSpecComplex32f* spec, const Load& load, float* d) {
    const int p = spec->order, L = 1 << p;
    const float* tw = spec->pTwiddle;
    int m = L / 4;
    if (p & 1) {
        pass_radix8_first(load, d, L, tw, tw + L);
        tw += L + 6 * (L / 8);
        m = L / 32;
    } else {
        pass_radix4(load, d, L, m, tw);
        tw += 6 * m;
        m /= 4;
    }
    for (; m > 4; m /= 4) {
        pass_radix4(BlockSplitLoader{d}, d, L, m, tw);
        tw += 6 * m;
    }
    return tw;
}

// The whole transform in place on d, the first pass reading through `load`.
template <class Load>
inline void transform(const FftSpecComplex32f* spec, const Load& load, float* d) {
    pass_last(d, 1 << spec->order, passes_but_last(spec, load, d));
}

}  // namespace nkp::fft::passes
