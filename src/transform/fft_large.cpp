// The cache-blocked large FFT (orders 16..28). With L = L1 * L2 and the data
// seen as L1 rows of L2 columns (element n1*L2 + n2):
//   1. each column is transformed (length L1) and multiplied by
//      e^(-2 pi i n2 k1 / L), written back in place;
//   2. each row is transformed (length L2): row k1 then holds X[k1 + L1 k2];
//   3. the L1 x L2 matrix is transposed in place.
// Everything runs in place on the output; the work buffer holds one column or
// row in the block-split layout, one in natural order and a bitmap.
#include "frame/object.h"
#include "common/numeric.h"
#include "common/trig.h"
#include "transform/fft_large.h"

#include <cstring>

namespace nkp::fft {

namespace {

struct Interleaved {
    float* d;
    float re(int64_t i) const { return d[2 * i]; }
    float im(int64_t i) const { return d[2 * i + 1]; }
    void set(int64_t i, float r, float m) const { d[2 * i] = r, d[2 * i + 1] = m; }
    // n contiguous elements from i into block-split form at bs.
    void load_row(int64_t i, int n, float* bs) const {
        const float* s = d + 2 * i;
        for (int b = 0; b < n / 4; ++b) {
            const __m128 v0 = _mm_loadu_ps(s + 8 * b), v1 = _mm_loadu_ps(s + 8 * b + 4);
            _mm_store_ps(bs + 8 * b, _mm_shuffle_ps(v0, v1, _MM_SHUFFLE(2, 0, 2, 0)));
            _mm_store_ps(bs + 8 * b + 4, _mm_shuffle_ps(v0, v1, _MM_SHUFFLE(3, 1, 3, 1)));
        }
    }
    void store4(int64_t i, __m128 r, __m128 m) const {
        _mm_storeu_ps(d + 2 * i, _mm_unpacklo_ps(r, m));
        _mm_storeu_ps(d + 2 * i + 4, _mm_unpackhi_ps(r, m));
    }
    void swap(int64_t i, int64_t j) const {
        const float r = d[2 * i], m = d[2 * i + 1];
        d[2 * i] = d[2 * j], d[2 * i + 1] = d[2 * j + 1];
        d[2 * j] = r, d[2 * j + 1] = m;
    }
    void copy_block(int64_t to, int64_t from, int64_t n) const {
        std::memmove(d + 2 * to, d + 2 * from, sizeof(float) * 2 * static_cast<size_t>(n));
    }
    void save_block(int64_t from, int64_t n, float* tmp) const {
        std::memcpy(tmp, d + 2 * from, sizeof(float) * 2 * static_cast<size_t>(n));
    }
    void restore_block(int64_t to, int64_t n, const float* tmp) const {
        std::memcpy(d + 2 * to, tmp, sizeof(float) * 2 * static_cast<size_t>(n));
    }
};

struct Split {
    float* r;
    float* m;
    float re(int64_t i) const { return r[i]; }
    float im(int64_t i) const { return m[i]; }
    void set(int64_t i, float a, float b) const { r[i] = a, m[i] = b; }
    void load_row(int64_t i, int n, float* bs) const {
        for (int b = 0; b < n / 4; ++b) {
            _mm_store_ps(bs + 8 * b, _mm_loadu_ps(r + i + 4 * b));
            _mm_store_ps(bs + 8 * b + 4, _mm_loadu_ps(m + i + 4 * b));
        }
    }
    void store4(int64_t i, __m128 a, __m128 b) const {
        _mm_storeu_ps(r + i, a);
        _mm_storeu_ps(m + i, b);
    }
    void swap(int64_t i, int64_t j) const {
        const float a = r[i], b = m[i];
        r[i] = r[j], m[i] = m[j];
        r[j] = a, m[j] = b;
    }
    void copy_block(int64_t to, int64_t from, int64_t n) const {
        std::memmove(r + to, r + from, sizeof(float) * static_cast<size_t>(n));
        std::memmove(m + to, m + from, sizeof(float) * static_cast<size_t>(n));
    }
    void save_block(int64_t from, int64_t n, float* tmp) const {
        std::memcpy(tmp, r + from, sizeof(float) * static_cast<size_t>(n));
        std::memcpy(tmp + n, m + from, sizeof(float) * static_cast<size_t>(n));
    }
    void restore_block(int64_t to, int64_t n, const float* tmp) const {
        std::memcpy(r + to, tmp, sizeof(float) * static_cast<size_t>(n));
        std::memcpy(m + to, tmp + n, sizeof(float) * static_cast<size_t>(n));
    }
};

// In-place transpose of the n x n square whose element (r, c) is at
// origin + r*stride + c.
template <class D>
void transpose_square(const D& d, int64_t origin, int64_t n, int64_t stride) {
    constexpr int64_t kTile = 16;
    for (int64_t r0 = 0; r0 < n; r0 += kTile) {
        for (int64_t c0 = r0; c0 < n; c0 += kTile) {
            for (int64_t r = r0; r < r0 + kTile; ++r) {
                for (int64_t c = (c0 == r0 ? r + 1 : c0); c < c0 + kTile; ++c) {
                    d.swap(origin + r * stride + c, origin + c * stride + r);
                }
            }
        }
    }
}

template <class D>
void large_forward(const FftSpecComplex32f* spec, const D& d, uint8_t* work) {
    const int p1 = spec->order1, p2 = spec->order2;
    const int64_t L1 = int64_t{1} << p1, L2 = int64_t{1} << p2;
    float* bs = reinterpret_cast<float*>(work);
    float* tmp = bs + 2 * L2;
    uint8_t* visited = reinterpret_cast<uint8_t*>(tmp + 2 * L2);
    const float* fine = spec->pFine;
    const float* coarse = spec->pCoarse;

    // 1. Columns, with the twiddles between the two factors.
    for (int64_t n2 = 0; n2 < L2; ++n2) {
        for (int64_t n1 = 0; n1 < L1; ++n1) {
            float* blk = bs + 8 * (n1 >> 2) + (n1 & 3);
            blk[0] = d.re(n1 * L2 + n2);
            blk[4] = d.im(n1 * L2 + n2);
        }
        bs_transform(spec->sub1, bs);
        for (int it = 0; it < L1 / 16; ++it) {
            __m128 re[4], im[4];
            int base[4];
            bs_gather(bs, p1, it, re, im, base);
            for (int v = 0; v < 4; ++v) {
                _mm_storeu_ps(tmp + 2 * base[v], _mm_unpacklo_ps(re[v], im[v]));
                _mm_storeu_ps(tmp + 2 * base[v] + 4, _mm_unpackhi_ps(re[v], im[v]));
            }
        }
        for (int64_t k1 = 0; k1 < L1; ++k1) {
            const int64_t e = n2 * k1;
            const int64_t lo = e & (L2 - 1), hi = e >> p2;
            const double fr = fine[2 * lo], fi = fine[2 * lo + 1];
            const double cr = coarse[2 * hi], ci = coarse[2 * hi + 1];
            const double wr = fr * cr - fi * ci, wi = fr * ci + fi * cr;
            const double yr = tmp[2 * k1], yi = tmp[2 * k1 + 1];
            d.set(k1 * L2 + n2, static_cast<float>(yr * wr - yi * wi), static_cast<float>(yr * wi + yi * wr));
        }
    }

    // 2. Rows.
    for (int64_t k1 = 0; k1 < L1; ++k1) {
        d.load_row(k1 * L2, static_cast<int>(L2), bs);
        bs_transform(spec->sub2, bs);
        for (int it = 0; it < L2 / 16; ++it) {
            __m128 re[4], im[4];
            int base[4];
            bs_gather(bs, p2, it, re, im, base);
            for (int v = 0; v < 4; ++v) d.store4(k1 * L2 + base[v], re[v], im[v]);
        }
    }

    // 3. Transpose L1 x L2 into L2 x L1.
    if (L1 == L2) {
        transpose_square(d, 0, L1, L1);
        return;
    }
    // L2 = 2 L1: transpose the left and right squares, then move the rows of
    // length L1 from order (left 0, right 0, left 1, right 1, ...) to
    // (left 0 .. left L1-1, right 0 .. right L1-1) by following cycles.
    transpose_square(d, 0, L1, L2);
    transpose_square(d, L1, L1, L2);
    const int64_t blocks = 2 * L1;
    std::memset(visited, 0, static_cast<size_t>(blocks));
    auto source_of = [&](int64_t t) { return t < L1 ? 2 * t : 2 * (t - L1) + 1; };
    for (int64_t s = 0; s < blocks; ++s) {
        if (visited[s]) continue;
        visited[s] = 1;
        if (source_of(s) == s) continue;
        d.save_block(s * L1, L1, tmp);
        int64_t cur = s;
        for (;;) {
            const int64_t from = source_of(cur);
            if (from == s) {
                d.restore_block(cur * L1, L1, tmp);
                break;
            }
            d.copy_block(cur * L1, from * L1, L1);
            visited[from] = 1;
            cur = from;
        }
    }
}

}  // namespace

void large_init(FftSpecComplex32f* spec, uint8_t* tables, uint8_t* memInit) {
    const int order = spec->order;
    const int p1 = order / 2, p2 = order - p1;
    const int64_t L1 = int64_t{1} << p1, L2 = int64_t{1} << p2;
    FftSpecComplex32f* s1 = nullptr;
    FftSpecComplex32f* s2 = nullptr;
    fftInitComplex32f(&s1, p1, kNoDivByAny, 0, tables, memInit);
    tables += block_split_spec_bytes(p1);
    if (p2 != p1) {
        fftInitComplex32f(&s2, p2, kNoDivByAny, 0, tables, memInit);
        tables += block_split_spec_bytes(p2);
    } else {
        s2 = s1;
    }
    tables = align_up<64>(tables);
    float* fine = reinterpret_cast<float*>(tables);
    float* coarse = fine + 2 * L2;
    const int64_t L = int64_t{1} << order;
    for (int64_t j = 0; j < L2; ++j) {
        double s, c;
        sincos_2pi_ratio(j, L, &s, &c);
        fine[2 * j] = static_cast<float>(c);
        fine[2 * j + 1] = static_cast<float>(-s);
    }
    for (int64_t j = 0; j < L1; ++j) {
        double s, c;
        sincos_2pi_ratio(j, L1, &s, &c);
        coarse[2 * j] = static_cast<float>(c);
        coarse[2 * j + 1] = static_cast<float>(-s);
    }
    spec->sub1 = s1;
    spec->sub2 = s2;
    spec->pFine = fine;
    spec->pCoarse = coarse;
    spec->pTwiddle = fine;
    spec->order1 = p1;
    spec->order2 = p2;
}

void large_forward_interleaved(const FftSpecComplex32f* spec, float* data, uint8_t* work) {
    large_forward(spec, Interleaved{data}, work);
}

void large_forward_split(const FftSpecComplex32f* spec, float* re, float* im, uint8_t* work) {
    large_forward(spec, Split{re, im}, work);
}

}  // namespace nkp::fft
