// Pieces shared by the searches, which measure several code vectors (or
// pairs) at once, one per lane, each lane summing over the elements in
// plain order.
#pragma once

#include <cstddef>
#include <xmmintrin.h>

namespace nkp::vq {

// Every element of a stretch of the source and the weights, each copied to
// all four lanes once, for the lane groups that all read them. Long
// sub-vectors go in stretches of kSpan elements, their sums carried over.
class Broadcasts {
public:
    static constexpr ptrdiff_t kSpan = 128;  // a multiple of 4

    // Elements lo .. hi-1 (hi - lo <= kSpan).
    void fill(const float* x, const float* w, ptrdiff_t lo, ptrdiff_t hi) {
        lo_ = lo;
        hi_ = hi;
        for (ptrdiff_t i = lo; i < hi; ++i) {
            x_[i - lo] = _mm_set1_ps(x[i]);
            w_[i - lo] = _mm_set1_ps(w[i]);
        }
    }
    ptrdiff_t lo() const { return lo_; }
    ptrdiff_t hi() const { return hi_; }
    __m128 x(ptrdiff_t i) const { return x_[i - lo_]; }
    __m128 w(ptrdiff_t i) const { return w_[i - lo_]; }

private:
    __m128 x_[kSpan];
    __m128 w_[kSpan];
    ptrdiff_t lo_ = 0, hi_ = 0;
};

// Four floats from each of four rows, turned so that lane l of e[m] holds
// element m of row l.
inline void transpose(const float* r0, const float* r1, const float* r2, const float* r3, __m128 e[4]) {
    __m128 a = _mm_load_ps(r0), b = _mm_load_ps(r1), c = _mm_load_ps(r2), d = _mm_load_ps(r3);
    _MM_TRANSPOSE4_PS(a, b, c, d);
    e[0] = a;
    e[1] = b;
    e[2] = c;
    e[3] = d;
}

}  // namespace nkp::vq
