// Table-building trigonometry at run time, with bit-identical results on
// every platform.
//
// Every value is a fixed sequence of IEEE double operations. Nothing may be
// fused into a multiply-add or kept in wider registers, or the bits would
// depend on the target: contraction is switched off here, before the
// arithmetic in common/trig.h is compiled, and the build refuses targets
// that evaluate doubles in extended precision.
#if defined(__clang__)
#pragma clang fp contract(off)
#elif defined(__GNUC__)
#pragma GCC optimize("fp-contract=off")
#elif defined(_MSC_VER)
#pragma fp_contract(off)
#endif

#include "common/trig.h"

#include <cfloat>

#if !defined(FLT_EVAL_METHOD) || FLT_EVAL_METHOD != 0
#error "table trigonometry needs doubles evaluated in double precision"
#endif

namespace nkp {

using namespace trig_detail;

void sincos_2pi_ratio(int64_t k, int64_t n, double* s, double* c) {
    const SinCos v = trig_detail::sincos(k, n);
    *s = v.s;
    *c = v.c;
}

double sin_2pi_ratio(int64_t k, int64_t n) { return trig_detail::sincos(k, n).s; }

double cos_2pi_ratio(int64_t k, int64_t n) { return trig_detail::sincos(k, n).c; }

double tan_2pi_ratio(int64_t k, int64_t n) {
    Pair s{}, c{};
    if (!sincos_pairs(k, n, &s, &c)) return std::numeric_limits<double>::quiet_NaN();
    if (c.hi == 0.0) return s.hi / 0.0;  // a quarter turn: +-infinity
    // (s.hi + s.lo) / (c.hi + c.lo) with one correction step, so that the
    // quotient is rounded about once rather than three times.
    const double t = s.hi / c.hi;
    const Pair p = two_prod(t, c.hi);
    const double rem = ((s.hi - p.hi) - p.lo) + (s.lo - t * c.lo);
    return finish(fast_two_sum(t, rem / c.hi));
}

}  // namespace nkp
