// Sine, cosine and tangent for building tables, the same to the last bit on
// every platform and while compiling: no C runtime call, only IEEE double
// +, -, *, / in a fixed order, so that Linux and Windows builds store
// identical tables, and a table the compiler builds equals one built at Init.
//
// Angles are given as exact ratios of a full turn, 2 pi k / n. The ratio is
// reduced with integer arithmetic (k modulo n, then to an angle of at most
// pi/4 from a multiple of pi/2), so that
//   - multiples of a quarter turn give exactly 0, 1 or -1 (zeros are +0.0),
//     odd multiples of an eighth turn give exactly +-sqrt(1/2) (the double
//     nearest to it) for both sine and cosine;
//   - tables are exactly symmetric: sin(2 pi (n - k)/n) == -sin(2 pi k/n),
//     cos(2 pi (n/4 - k)/n) == sin(2 pi k/n), and so on;
//   - the value depends only on the rational k/n, not on how it is written
//     (k/n and 3k/3n give the same bits).
// Accuracy: within 1 ulp of the exact value (at most 0.56 ulp measured).
// Valid for 1 <= n <= 2^53 and any k; other n give a quiet NaN.
#pragma once

#include <cstdint>
#include <limits>

namespace nkp {

double sin_2pi_ratio(int64_t k, int64_t n);
double cos_2pi_ratio(int64_t k, int64_t n);
void sincos_2pi_ratio(int64_t k, int64_t n, double* s, double* c);
// tan(2 pi k / n); an odd multiple of a quarter turn gives +-infinity.
double tan_2pi_ratio(int64_t k, int64_t n);

struct SinCos {
    double s, c;
};

// The arithmetic behind them. Nothing here may be fused into a multiply-add
// or kept in wider registers: common/trig.cpp compiles it for run time with
// contraction off, and a constant evaluation is exact IEEE arithmetic
// anyway. Internal linkage, so that no other object's copy can stand in.
namespace {
namespace trig_detail {

// A value held as an unevaluated sum hi + lo with |lo| <= ulp(hi)/2.
struct Pair {
    double hi, lo;
};

constexpr Pair negate(Pair p) { return {-p.hi, -p.lo}; }

// hi + lo for |a| >= |b|, hi the rounded sum and lo its exact error.
constexpr Pair fast_two_sum(double a, double b) {
    const double s = a + b;
    return {s, b - (s - a)};
}

// The exact product a*b as a pair, with products of 26-bit halves (Veltkamp
// split), which are exact in double; no fused multiply-add is needed.
constexpr Pair two_prod(double a, double b) {
    constexpr double kSplit = 134217729.0;  // 2^27 + 1
    const double p = a * b;
    const double ta = kSplit * a, tb = kSplit * b;
    const double ah = ta - (ta - a), al = a - ah;
    const double bh = tb - (tb - b), bl = b - bh;
    return {p, ((ah * bh - p) + ah * bl + al * bh) + al * bl};
}

// pi/2 to about 107 bits.
constexpr double kHalfPiHi = 0x1.921fb54442d18p+0;
constexpr double kHalfPiLo = 0x1.1a62633145c07p-54;
// sqrt(1/2) to about 107 bits: sine and cosine of an eighth turn.
constexpr Pair kSqrtHalf = {0x1.6a09e667f3bcdp-1, -0x1.bdd3413b26456p-55};

// The angle (pi/2) m/n as a pair, for integers 1 <= m <= n/2 and n <= 2^53
// (both exact in double).
constexpr Pair quarter_turn_fraction(int64_t m, int64_t n) {
    const double dm = static_cast<double>(m), dn = static_cast<double>(n);
    // m/n to about 106 bits: the remainder of a correctly rounded division
    // is exactly representable, and (m - p.hi) is exact because p.hi is
    // within a rounding of m.
    const double x = dm / dn;
    const Pair p = two_prod(x, dn);
    const double x_lo = ((dm - p.hi) - p.lo) / dn;
    Pair a = two_prod(x, kHalfPiHi);
    a.lo += x * kHalfPiLo + x_lo * kHalfPiHi;
    return fast_two_sum(a.hi, a.lo);
}

// Taylor coefficients; the factorials up to 18! are exact in double, so
// each coefficient is the correctly rounded reciprocal. The sine's a^3/6 is
// formed separately.
constexpr double kSin[7] = {
    1.0 / 120.0,          -1.0 / 5040.0,           1.0 / 362880.0,           -1.0 / 39916800.0,
    1.0 / 6227020800.0,   -1.0 / 1307674368000.0,  1.0 / 355687428096000.0,
};
constexpr double kCos[8] = {
    1.0 / 24.0,           -1.0 / 720.0,            1.0 / 40320.0,            -1.0 / 3628800.0,
    1.0 / 479001600.0,    -1.0 / 87178291200.0,    1.0 / 20922789888000.0,   -1.0 / 6402373705728000.0,
};

template <int N>
constexpr double horner(const double (&c)[N], double z) {
    double r = c[N - 1];
    for (int i = N - 2; i >= 0; --i) r = c[i] + z * r;
    return r;
}

// sin(a.hi + a.lo) for 0 < a <= pi/4: a - a^3/6 + a^5 S(a^2), series through
// a^17 (the first omitted term is below 1e-19). a - a^3/6 is carried to
// about 100 bits, since a^3/6 reaches a tenth of the result; the rest is
// small enough that plain double rounding does not show.
constexpr Pair sin_kernel(Pair a) {
    const Pair z = two_prod(a.hi, a.hi);
    Pair cube = two_prod(a.hi, z.hi);
    cube.lo += a.hi * z.lo;
    const double sixth = cube.hi / 6.0;
    const Pair back = two_prod(sixth, 6.0);
    const double sixth_lo = (((cube.hi - back.hi) - back.lo) + cube.lo) / 6.0;
    const Pair lead = fast_two_sum(a.hi, -sixth);
    const double tail = (lead.lo - sixth_lo) + a.hi * (z.hi * z.hi) * horner(kSin, z.hi) + a.lo * (1.0 - 0.5 * z.hi);
    return fast_two_sum(lead.hi, tail);
}

// cos(a.hi + a.lo) for 0 < a <= pi/4: 1 - a^2/2 + a^4 C(a^2), series through
// a^18. a^2 is formed exactly and 1 - a^2/2 carries its rounding error, so
// the result is close to correctly rounded even where a^2/2 is large.
constexpr Pair cos_kernel(Pair a) {
    const Pair z = two_prod(a.hi, a.hi);
    const double hz = 0.5 * z.hi;
    const double w = 1.0 - hz;
    const double w_err = (1.0 - w) - hz;  // exact
    const double tail = w_err - (0.5 * z.lo + a.hi * a.lo) + (z.hi * z.hi) * horner(kCos, z.hi);
    return fast_two_sum(w, tail);
}

// Sine and cosine of 2 pi k / n as pairs, with exact symmetry: the turn is
// split as q quarter turns plus (or, when reflected, minus) the angle
// (pi/2) m/n with 0 <= m <= n/2, all in integers.
constexpr bool sincos_pairs(int64_t k, int64_t n, Pair* s, Pair* c) {
    if (n < 1 || n > (int64_t{1} << 53)) return false;
    int64_t r = k % n;
    if (r < 0) r += n;
    int64_t q = (4 * r) / n;
    int64_t m = (4 * r) % n;
    const bool reflected = 2 * m > n;
    if (reflected) {
        m = n - m;
        q = (q + 1) & 3;
    }
    Pair sa{}, ca{};
    if (m == 0) {
        sa = {0.0, 0.0};
        ca = {1.0, 0.0};
    } else if (2 * m == n) {
        sa = ca = kSqrtHalf;
    } else {
        const Pair a = quarter_turn_fraction(m, n);
        sa = sin_kernel(a);
        ca = cos_kernel(a);
    }
    // q pi/2 + a, or q pi/2 - a when reflected.
    switch (q) {
        case 0:
            *s = reflected ? negate(sa) : sa;
            *c = ca;
            break;
        case 1:
            *s = ca;
            *c = reflected ? sa : negate(sa);
            break;
        case 2:
            *s = reflected ? sa : negate(sa);
            *c = negate(ca);
            break;
        default:
            *s = negate(ca);
            *c = reflected ? negate(sa) : sa;
            break;
    }
    return true;
}

// Exact zeros come out as +0.0 whatever their sign on the way.
constexpr double finish(Pair p) { return p.hi + 0.0; }

constexpr SinCos sincos(int64_t k, int64_t n) {
    Pair ps{}, pc{};
    if (!sincos_pairs(k, n, &ps, &pc)) {
        return {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::quiet_NaN()};
    }
    return {finish(ps), finish(pc)};
}

}  // namespace trig_detail
}  // namespace

// For tables the compiler builds: the same bits as sincos_2pi_ratio.
consteval SinCos sincos_2pi_ratio_while_compiling(int64_t k, int64_t n) { return trig_detail::sincos(k, n); }

}  // namespace nkp
