// Prediction coefficients against a model written from the covariance
// method's definition (double-precision sums and coefficient formulas) with
// its two rule sets: the real variant's four-wide channels, every other
// channel. The rules' edges on small integer signals, whose sums are exact.
#include "frame/exports.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstring>
#include <random>
#include <vector>

namespace {

using cd = std::complex<double>;
using Frame = std::vector<std::vector<cd>>;  // [slot n][channel k], n = 0 .. len+1

struct Pair {
    cd a0, a1;
};

// One channel, x(n) for n = 0 .. len+1.
Pair model(const std::vector<cd>& x, bool four_wide) {
    cd p01 = 0, p02 = 0, p12 = 0;
    double p11 = 0, p22 = 0;
    for (size_t n = 0; n + 2 < x.size(); ++n) {
        p01 += x[n + 2] * std::conj(x[n + 1]);
        p02 += x[n + 2] * std::conj(x[n]);
        p12 += x[n + 1] * std::conj(x[n]);
        p11 += std::norm(x[n + 1]);
        p22 += std::norm(x[n]);
    }
    const double d = p22 * p11 - 0.99999905 * std::norm(p12);
    Pair r{0.0, 0.0};
    if (four_wide ? d != 0 : d * d > 0) r.a1 = (p01 * p12 - p02 * p11) / d;
    if (four_wide ? p11 != 0 : p11 > 0) r.a0 = -(p01 + r.a1 * std::conj(p12)) / p11;
    const double big = std::max(std::norm(r.a0), std::norm(r.a1));
    return four_wide ? (big > 16 ? Pair{0.0, 0.0} : r) : (big >= 16 ? Pair{0.0, 0.0} : r);
}

// Per channel: the real variant's pair (imaginary parts ignored) and the
// complex variants' pair; the interleaved and the split complex variants
// must agree bit for bit. Nothing is written past the last channel.
struct Results {
    std::vector<Pair> real, complex;
};

Results run(const Frame& x) {
    const int slots = static_cast<int>(x.size()), bands = static_cast<int>(x[0].size()), len = slots - 2;
    std::vector<std::vector<float>> re(slots), im(slots);  // one array per slot, as a QMF matrix gives them
    std::vector<std::vector<nkp32fc>> c(slots);
    std::vector<const float*> re_slots, im_slots;
    std::vector<const nkp32fc*> c_slots;
    for (int n = 0; n < slots; ++n) {
        for (const cd& v : x[n]) {
            re[n].push_back(static_cast<float>(v.real()));
            im[n].push_back(static_cast<float>(v.imag()));
            c[n].push_back({re[n].back(), im[n].back()});
        }
        re_slots.push_back(re[n].data());
        im_slots.push_back(im[n].data());
        c_slots.push_back(c[n].data());
    }
    std::vector<float> r0(bands + 1, 9.0f), r1 = r0, s0r = r0, s0i = r0, s1r = r0, s1i = r0;
    std::vector<nkp32fc> c0(bands + 1, {9.0f, 9.0f}), c1 = c0;
    EXPECT_TRUE(nkpsPredictCoef_SBR_R_32f_D2L(re_slots.data(), r0.data(), r1.data(), bands, len) == nkpStatusOk &&
                nkpsPredictCoef_SBR_C_32fc_D2L(c_slots.data(), c0.data(), c1.data(), bands, len) == nkpStatusOk &&
                nkpsPredictCoef_SBR_C_32f_D2L(re_slots.data(), im_slots.data(), s0r.data(), s0i.data(), s1r.data(),
                                              s1i.data(), bands, len) == nkpStatusOk);
    Results r;
    for (int k = 0; k <= bands; ++k) {
        const float split[4] = {s0r[k], s0i[k], s1r[k], s1i[k]};
        EXPECT_EQ(std::memcmp(split, &c0[k], 8) | std::memcmp(split + 2, &c1[k], 8), 0) << "channel " << k;
        r.real.push_back({r0[k], r1[k]});
        r.complex.push_back({cd(c0[k].re, c0[k].im), cd(c1[k].re, c1[k].im)});
    }
    EXPECT_TRUE(r0[bands] == 9.0f && r1[bands] == 9.0f && s0r[bands] == 9.0f) << "wrote past the channels";
    return r;
}

// Every channel carries the same signal.
Frame uniform(const std::vector<cd>& x, int bands) {
    Frame f;
    for (cd v : x) f.push_back(std::vector<cd>(bands, v));
    return f;
}

TEST(PredictCoef, MatchesTheModelOnNoiseAndTones) {
    const struct {
        const char* name;
        int bands, len;
        double tone;  // 0: white noise; else the per-slot phase step of a tone in noise
        double noise, tolerance;
    } cases[] = {
        {"noise_64x38", 64, 38, 0, 1.0, 1e-4}, {"noise_13x38", 13, 38, 0, 1.0, 1e-4},
        {"noise_7x8", 7, 8, 0, 1000.0, 1e-4},  {"noise_3x30", 3, 30, 0, 1e-3, 1e-4},
        {"huge_but_finite_8x38", 8, 38, 0, 1e8, 1e-4},
        // A complex tone is nearly first-order predictable: d cancels to about
        // 1e-4 of its terms at this noise level, so single precision keeps only
        // about three digits of the coefficients.
        {"tone_32x38", 32, 38, 0.7, 10.0, 5e-3}, {"tone_5x36", 5, 36, 2.1, 10.0, 5e-3},
    };
    std::mt19937 rng(615);
    for (const auto& c : cases) {
        std::normal_distribution<double> g(0.0, c.noise);
        Frame f(c.len + 2, std::vector<cd>(c.bands));
        for (int k = 0; k < c.bands; ++k) {
            const double p0 = std::uniform_real_distribution<double>(0, 6.283)(rng);
            for (int n = 0; n < c.len + 2; ++n) {
                const cd tone = c.tone ? 1000.0 * std::polar(1.0, p0 + c.tone * n * (1 + 0.1 * k)) : cd(0);
                f[n][k] = tone + cd(g(rng), g(rng));
            }
        }
        const Results r = run(f);
        for (int k = 0; k < c.bands; ++k) {
            std::vector<cd> re, cf;  // the channel as the variants see it
            for (const auto& slot : f) {
                re.push_back(static_cast<float>(slot[k].real()));
                cf.push_back(cd(re.back().real(), static_cast<float>(slot[k].imag())));
            }
            const Pair mr = model(re, k < (c.bands & ~3)), mc = model(cf, false);
            const double real_error = std::abs(r.real[k].a0 - mr.a0) + std::abs(r.real[k].a1 - mr.a1);
            EXPECT_LT(real_error + std::abs(r.complex[k].a0 - mc.a0) + std::abs(r.complex[k].a1 - mc.a1), c.tolerance)
                << c.name << " channel " << k;
        }
    }
}

// Thirteen channels of one signal: 0 .. 11 four-wide in the real variant
// (eight and four at a time), 12 alone; the complex variants take the
// one-at-a-time rules everywhere.
TEST(PredictCoef, RulesAtTheirEdges) {
    const cd I(0, 1);
    const Pair Z{0.0, 0.0};
    const struct {
        const char* name;
        std::vector<cd> x;
        Pair four_wide, one_at_a_time, complex;
    } cases[] = {
        // alpha1 = 4: its square is exactly 16.
        {"alpha1_exactly_4", {1, 0, -4, 0}, {0.0, 4.0}, Z, Z},
        // d = 0 leaves alpha1 = 0; alpha0 = -phi01/phi11 = 4.
        {"alpha0_exactly_4", {0, 1, -4}, {4.0, 0.0}, Z, Z},
        {"alpha0_just_below_4", {0, 1, -3.5}, {3.5, 0.0}, {3.5, 0.0}, {3.5, 0.0}},
        {"alpha1_above_4", {1, 0, -5, 0}, Z, Z, Z},
        // x(n) = 2^n: alpha0 = -2, and the relaxed d keeps alpha1 at 0 / d = 0.
        {"first_order_predictable", {1, 2, 4, 8, 16}, {-2.0, 0.0}, {-2.0, 0.0}, {-2.0, 0.0}},
        {"silent", {0, 0, 0, 0, 0}, Z, Z, Z},          {"first_slot_only", {7, 0, 0, 0}, Z, Z, Z},
        {"middle_slot_only", {0, 0, 7, 0, 0}, Z, Z, Z}, {"last_slot_only", {0, 0, 0, 7}, Z, Z, Z},
        // Complex coefficients: |alpha0|^2 = 16 resets, 13 survives.
        {"complex_alpha0_4i", {0, 1, -4.0 * I}, Z, Z, Z},
        {"complex_alpha0_squared_13", {0, 1, -(2.0 + 3.0 * I)}, {2.0, 0.0}, {2.0, 0.0}, {2.0 + 3.0 * I, 0.0}},
        {"complex_alpha0_2i", {0, I, 2.0}, Z, Z, {2.0 * I, 0.0}},
    };
    for (const auto& c : cases) {
        const Results r = run(uniform(c.x, 13));
        for (int k = 0; k < 13; ++k) {
            const Pair& real = k < 12 ? c.four_wide : c.one_at_a_time;
            EXPECT_TRUE(r.real[k].a0 == real.a0 && r.real[k].a1 == real.a1 && r.complex[k].a0 == c.complex.a0 &&
                        r.complex[k].a1 == c.complex.a1)
                << c.name << " channel " << k;
        }
    }
}

// A very quiet channel: d is a normal float but d*d rounds to 0. The
// four-wide channels are scale-invariant; every other channel drops alpha1
// and keeps alpha0 = -phi01/phi11.
TEST(PredictCoef, QuietChannelDropsAlpha1OutsideTheFourWideChannels) {
    const std::vector<cd> x = {1, 2, 3, 5};
    std::vector<cd> quiet;
    for (cd v : x) quiet.push_back(v * std::ldexp(1.0, -30));
    const Results loud = run(uniform(x, 6)), q = run(uniform(quiet, 6));
    EXPECT_TRUE(loud.real[0].a1 != 0.0 && loud.real[5].a1 == loud.real[0].a1);  // loud: the rules agree
    for (int k = 0; k < 6; ++k) {
        EXPECT_EQ(q.real[k].a0, k < 4 ? loud.real[k].a0 : cd(-21.0f / 13.0f)) << k;
        EXPECT_EQ(q.real[k].a1, k < 4 ? loud.real[k].a1 : 0.0) << k;
        EXPECT_TRUE(q.complex[k].a0 == cd(-21.0f / 13.0f) && q.complex[k].a1 == 0.0) << k;
    }
}

}  // namespace
