// Table-building trigonometry: accuracy against a 113-bit reference, exact
// values from the integer reduction, invalid periods, the same bits while
// compiling as at run time, and a pinned hash of many results so that every
// platform is seen to produce the same bits.
#include "common/trig.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

namespace {

using nkp::cos_2pi_ratio;
using nkp::sin_2pi_ratio;
using nkp::sincos_2pi_ratio;
using nkp::tan_2pi_ratio;

constexpr int64_t kMaxPeriod = int64_t{1} << 53;

uint64_t bits(double x) {
    uint64_t u;
    std::memcpy(&u, &x, sizeof u);
    return u;
}

// Periods the library builds tables with: MDCT rotations (8N), DCT tables
// (4N), FFT twiddles (L).
const int64_t kTablePeriods[] = {8 * 12, 8 * 36, 8 * 2048, 4 * 30, 4 * 100, 4 * 4096, 1 << 13, 24};

#if defined(__SIZEOF_FLOAT128__)
using Quad = __float128;

// pi to about 160 bits as three doubles, summed in 113-bit precision.
const Quad kPiQ = Quad(0x1.921fb54442d18p+1) + Quad(0x1.1a62633145c07p-53) + Quad(-0x1.f1976b7ed8fbcp-109);

// sin and cos of 2 pi k/n in 113-bit arithmetic: the angle taken in
// (-pi, pi], the Taylor series summed well past convergence. Quarter turns
// are exact, where a rounded pi would leave a tiny nonzero value.
void reference(int64_t k, int64_t n, Quad* s, Quad* c) {
    int64_t r = k % n;
    if (r < 0) r += n;
    if (4 * r % n == 0) {
        const int q = static_cast<int>(4 * r / n);
        *s = q == 1 ? 1 : q == 3 ? -1 : 0;
        *c = q == 0 ? 1 : q == 2 ? -1 : 0;
        return;
    }
    if (2 * r > n) r -= n;
    const Quad x = 2 * kPiQ * Quad(r) / Quad(n), x2 = x * x;
    Quad ts = x, tc = 1, sum_s = 0, sum_c = 0;
    for (int i = 1; i <= 40; ++i) {
        sum_s += ts;
        sum_c += tc;
        ts *= -x2 / Quad((2 * i) * (2 * i + 1));
        tc *= -x2 / Quad((2 * i - 1) * (2 * i));
    }
    *s = sum_s;
    *c = sum_c;
}

// |got - ref| in units of the last place of ref's binade in double.
double ulp_error(double got, Quad ref) {
    const Quad mag = ref < 0 ? -ref : ref;
    if (mag == 0) return got == 0 ? 0 : std::numeric_limits<double>::infinity();
    int e;
    const double m = std::frexp(static_cast<double>(mag), &e);
    if (m == 0.5 && Quad(std::ldexp(0.5, e)) > mag) --e;  // rounded up to a power of two
    const Quad d = Quad(got) - ref;
    return static_cast<double>((d < 0 ? -d : d) / Quad(std::ldexp(1.0, e - 53)));
}

struct Worst {
    double err = 0;
    int64_t k = 0, n = 1;
    void take(double e, int64_t kk, int64_t nn) {
        if (e > err) err = e, k = kk, n = nn;
    }
};

TEST(Trig, WithinOneUlpOfTheExactValue) {
    std::vector<std::pair<int64_t, int64_t>> cases;
    for (int64_t n = 1; n <= 200; ++n)
        for (int64_t k = 0; k < n; ++k) cases.push_back({k, n});
    for (int64_t n : kTablePeriods)
        for (int64_t k = 0; k < n; ++k) cases.push_back({k, n});
    // Any k, periods of every size up to 2^53.
    std::mt19937_64 rng(7);
    for (int i = 0; i < 40000; ++i) {
        const int b = 1 + static_cast<int>(rng() % 53);
        const int64_t n = 1 + static_cast<int64_t>(rng() % (uint64_t{1} << b));
        cases.push_back({static_cast<int64_t>(rng()), n});
    }
    Worst sin_w, cos_w, tan_w, libm_w;
    for (auto [k, n] : cases) {
        Quad s, c;
        reference(k, n, &s, &c);
        double ds, dc;
        sincos_2pi_ratio(k, n, &ds, &dc);
        sin_w.take(ulp_error(ds, s), k, n);
        cos_w.take(ulp_error(dc, c), k, n);
        if (c != 0) tan_w.take(ulp_error(tan_2pi_ratio(k, n), s / c), k, n);
        if (n <= 4096 && s != 0) libm_w.take(ulp_error(std::sin(2 * 3.14159265358979323846 * double(k % n) / double(n)), s), k, n);
    }
    std::printf("max error over %zu angles: sin %.3f ulp (2pi*%lld/%lld), cos %.3f ulp (2pi*%lld/%lld), "
                "tan %.3f ulp; the C library's sin of the rounded angle: %.3g ulp\n",
                cases.size(), sin_w.err, (long long)sin_w.k, (long long)sin_w.n, cos_w.err, (long long)cos_w.k,
                (long long)cos_w.n, tan_w.err, libm_w.err);
    // Measured: sin 0.556, cos 0.556, tan 0.562 (0.5 would be correct rounding).
    EXPECT_LT(sin_w.err, 0.6);
    EXPECT_LT(cos_w.err, 0.6);
    EXPECT_LT(tan_w.err, 0.6);
}
#endif

struct Exact {
    int64_t k, n;
    double s, c;
};

TEST(Trig, QuarterAndEighthTurnsAreExact) {
    const double h = std::sqrt(0.5);  // correctly rounded
    const double inf = std::numeric_limits<double>::infinity();
    const Exact rows[] = {
        {0, 1, 0, 1},
        {0, 4, 0, 1},
        {1, 4, 1, 0},
        {2, 4, 0, -1},
        {3, 4, -1, 0},
        {-1, 4, -1, 0},
        {5, 4, 1, 0},
        {1, 8, h, h},
        {3, 8, h, -h},
        {5, 8, -h, -h},
        {7, 8, -h, h},
        {-3, 8, -h, -h},
        {INT64_MAX, 8, -h, h},  // INT64_MAX = 7 (mod 8)
        {INT64_MIN, 8, 0, 1},
        {kMaxPeriod / 4, kMaxPeriod, 1, 0},
        {3 * (kMaxPeriod / 8), kMaxPeriod, h, -h},
        {1, 12, 0.5, std::sqrt(0.75)},  // 30 degrees: exactly 1/2
        {1, 6, std::sqrt(0.75), 0.5},
    };
    for (const Exact& r : rows) {
        SCOPED_TRACE(testing::Message() << "2pi*" << r.k << "/" << r.n);
        double s, c;
        sincos_2pi_ratio(r.k, r.n, &s, &c);
        // Bit patterns: zeros must be +0.0.
        EXPECT_EQ(bits(s), bits(r.s));
        EXPECT_EQ(bits(c), bits(r.c));
        const double t = tan_2pi_ratio(r.k, r.n);
        if (r.c == 0)
            EXPECT_EQ(t, r.s > 0 ? inf : -inf);
        else if (r.s == 0)
            EXPECT_EQ(bits(t), 0u);
        else if (std::fabs(r.s) == std::fabs(r.c))
            EXPECT_EQ(bits(t), bits(r.s / r.c));
    }
}

TEST(Trig, InvalidPeriodGivesNaN) {
    for (int64_t n : {int64_t{0}, int64_t{-1}, int64_t{-8}, kMaxPeriod + 1, INT64_MIN, INT64_MAX}) {
        SCOPED_TRACE(n);
        double s = 0, c = 0;
        sincos_2pi_ratio(1, n, &s, &c);
        EXPECT_TRUE(std::isnan(s));
        EXPECT_TRUE(std::isnan(c));
        EXPECT_TRUE(std::isnan(sin_2pi_ratio(1, n)));
        EXPECT_TRUE(std::isnan(cos_2pi_ratio(1, n)));
        EXPECT_TRUE(std::isnan(tan_2pi_ratio(1, n)));
    }
}

// Tables the compiler builds (the FFT's constant twiddles) hold the same
// bits as tables built at Init.
constexpr int64_t kCompiledPeriods[] = {1024, 96, 7};

TEST(Trig, CompiledValuesEqualRunTimeValues) {
    constexpr auto compiled = []() consteval {
        std::array<nkp::SinCos, 1024 + 96 + 7> t{};
        size_t i = 0;
        for (int64_t n : kCompiledPeriods)
            for (int64_t k = 0; k < n; ++k) t[i++] = nkp::sincos_2pi_ratio_while_compiling(k, n);
        return t;
    }();
    size_t i = 0;
    for (int64_t n : kCompiledPeriods) {
        for (int64_t k = 0; k < n; ++k, ++i) {
            double s, c;
            sincos_2pi_ratio(k, n, &s, &c);
            ASSERT_EQ(bits(s), bits(compiled[i].s)) << k << "/" << n;
            ASSERT_EQ(bits(c), bits(compiled[i].c)) << k << "/" << n;
        }
    }
}

// FNV-1a over the results' bit patterns; the constant was computed on
// Linux, and any platform whose arithmetic differed would miss it.
TEST(Trig, SameBitsOnEveryPlatform) {
    uint64_t h = 0xcbf29ce484222325u;
    auto add = [&h](double x) {
        const uint64_t u = bits(x);
        for (int i = 0; i < 8; ++i) h = (h ^ ((u >> (8 * i)) & 0xff)) * 0x100000001b3u;
    };
    for (int64_t n : {int64_t{7}, int64_t{24}, int64_t{288}, int64_t{1000}, int64_t{16384}}) {
        for (int64_t k = 0; k < n; ++k) {
            double s, c;
            sincos_2pi_ratio(k, n, &s, &c);
            add(s);
            add(c);
        }
    }
    for (int64_t k = 0; k < 6; ++k) add(tan_2pi_ratio(k, 24));
    std::mt19937_64 rng(11);
    for (int i = 0; i < 2000; ++i) {
        const int64_t n = 1 + static_cast<int64_t>(rng() % static_cast<uint64_t>(kMaxPeriod));
        const int64_t k = static_cast<int64_t>(rng());
        add(sin_2pi_ratio(k, n));
        add(cos_2pi_ratio(k, n));
        add(tan_2pi_ratio(k, n));
    }
    EXPECT_EQ(h, 0xe1721d4e8aef791au) << std::hex << "0x" << h;
}

}  // namespace
