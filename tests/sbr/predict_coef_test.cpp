// Prediction coefficients against a model written from the covariance
// method's definition: double-precision sums and coefficient formulas, with
// the two rule sets (four-wide channels of the real variant, every other
// channel). Exact cases use small integer signals, whose sums are exact.
#include "frame/exports.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstring>
#include <random>
#include <vector>

namespace {

using cd = std::complex<double>;

struct Pair {
    cd a0, a1;
};

enum class Rules { FourWide, OneAtATime };

// One channel: x holds len + 2 samples.
Pair model(const std::vector<cd>& x, Rules rules) {
    const size_t len = x.size() - 2;
    cd p01 = 0, p02 = 0, p12 = 0;
    double p11 = 0, p22 = 0;
    for (size_t n = 0; n < len; ++n) {
        p01 += x[n + 2] * std::conj(x[n + 1]);
        p02 += x[n + 2] * std::conj(x[n]);
        p12 += x[n + 1] * std::conj(x[n]);
        p11 += std::norm(x[n + 1]);
        p22 += std::norm(x[n]);
    }
    const double d = p22 * p11 - 0.99999905 * std::norm(p12);
    const bool four = rules == Rules::FourWide;
    Pair r{0.0, 0.0};
    if (four ? d != 0 : d * d > 0) r.a1 = (p01 * p12 - p02 * p11) / d;
    if (four ? p11 != 0 : p11 > 0) r.a0 = -(p01 + r.a1 * std::conj(p12)) / p11;
    const bool reset = four ? (std::norm(r.a0) > 16 || std::norm(r.a1) > 16)
                            : (std::norm(r.a0) >= 16 || std::norm(r.a1) >= 16);
    if (reset) r = {0.0, 0.0};
    return r;
}

// A QMF frame: slots[n][k], n = 0 .. len+1.
struct Frame {
    int bands, len;
    std::vector<std::vector<cd>> x;  // [n][k]
    Frame(int bands_, int len_) : bands(bands_), len(len_), x(len_ + 2, std::vector<cd>(bands_)) {}
    std::vector<cd> channel(int k) const {
        std::vector<cd> c;
        for (const auto& slot : x) c.push_back(slot[k]);
        return c;
    }
};

struct Results {
    std::vector<cd> a0, a1;
};

// The real variant (imaginary parts ignored), through table entry `path`.
Results run_real(const Frame& f, int path) {
    std::vector<std::vector<float>> rows(f.len + 2);
    std::vector<const float*> slots;
    for (int n = 0; n < f.len + 2; ++n) {
        for (int k = 0; k < f.bands; ++k) rows[n].push_back(static_cast<float>(f.x[n][k].real()));
        slots.push_back(rows[n].data());
    }
    std::vector<float> a0(f.bands, 99.0f), a1(f.bands, 99.0f);
    EXPECT_EQ(nkpt_nkpsPredictCoef_SBR_R_32f_D2L[path](slots.data(), a0.data(), a1.data(), f.bands, f.len),
              nkpStatusOk);
    return {std::vector<cd>(a0.begin(), a0.end()), std::vector<cd>(a1.begin(), a1.end())};
}

// Both complex variants; they must agree bit for bit.
Results run_complex(const Frame& f, int path) {
    std::vector<std::vector<nkp32fc>> rows(f.len + 2);
    std::vector<std::vector<float>> re(f.len + 2), im(f.len + 2);
    std::vector<const nkp32fc*> slots;
    std::vector<const float*> re_slots, im_slots;
    for (int n = 0; n < f.len + 2; ++n) {
        for (int k = 0; k < f.bands; ++k) {
            const nkp32fc v{static_cast<float>(f.x[n][k].real()), static_cast<float>(f.x[n][k].imag())};
            rows[n].push_back(v);
            re[n].push_back(v.re);
            im[n].push_back(v.im);
        }
        slots.push_back(rows[n].data());
        re_slots.push_back(re[n].data());
        im_slots.push_back(im[n].data());
    }
    std::vector<nkp32fc> a0(f.bands), a1(f.bands);
    EXPECT_EQ(nkpt_nkpsPredictCoef_SBR_C_32fc_D2L[path](slots.data(), a0.data(), a1.data(), f.bands, f.len),
              nkpStatusOk);
    std::vector<float> b0r(f.bands), b0i(f.bands), b1r(f.bands), b1i(f.bands);
    EXPECT_EQ(nkpt_nkpsPredictCoef_SBR_C_32f_D2L[path](re_slots.data(), im_slots.data(), b0r.data(), b0i.data(),
                                                        b1r.data(), b1i.data(), f.bands, f.len),
              nkpStatusOk);
    Results r;
    for (int k = 0; k < f.bands; ++k) {
        EXPECT_EQ(std::memcmp(&a0[k].re, &b0r[k], 4), 0) << "band " << k;
        EXPECT_EQ(std::memcmp(&a0[k].im, &b0i[k], 4), 0) << "band " << k;
        EXPECT_EQ(std::memcmp(&a1[k].re, &b1r[k], 4), 0) << "band " << k;
        EXPECT_EQ(std::memcmp(&a1[k].im, &b1i[k], 4), 0) << "band " << k;
        r.a0.emplace_back(a0[k].re, a0[k].im);
        r.a1.emplace_back(a1[k].re, a1[k].im);
    }
    return r;
}

std::mt19937& rng() {
    static std::mt19937 engine(615);
    return engine;
}

// ---- against the double-precision model on noise and tones ----------------

struct SignalCase {
    const char* name;
    int bands, len;
    double tone;  // 0: white noise; else the per-slot phase step of a tone in noise
    double noise;
    double tolerance;
};

const SignalCase kSignals[] = {
    {"noise_64x38", 64, 38, 0, 1.0, 1e-4},   {"noise_13x38", 13, 38, 0, 1.0, 1e-4},
    {"noise_7x8", 7, 8, 0, 1000.0, 1e-4},    {"noise_3x30", 3, 30, 0, 1e-3, 1e-4},
    // A complex tone is nearly first-order predictable: d cancels to about
    // 1e-4 of its terms at this noise level, so single precision keeps only
    // about three digits of the coefficients.
    {"tone_32x38", 32, 38, 0.7, 10.0, 5e-3}, {"tone_5x36", 5, 36, 2.1, 10.0, 5e-3},
};

TEST(PredictCoef, MatchesDoubleModelOnNoiseAndTones) {
    for (const SignalCase& c : kSignals) {
        std::normal_distribution<double> g(0.0, c.noise);
        std::uniform_real_distribution<double> phase(0, 6.283);
        Frame f(c.bands, c.len);
        for (int k = 0; k < c.bands; ++k) {
            const double p0 = phase(rng()), amp = 1000.0;
            for (int n = 0; n < c.len + 2; ++n) {
                cd tone = c.tone ? amp * std::polar(1.0, p0 + c.tone * n * (1 + 0.1 * k)) : cd(0);
                f.x[n][k] = tone + cd(g(rng()), g(rng()));
            }
        }
        for (int path = 0; path < 2; ++path) {
            const Results real = run_real(f, path), cplx = run_complex(f, path);
            for (int k = 0; k < c.bands; ++k) {
                std::vector<cd> ch = f.channel(k), re_ch;
                for (cd v : ch) re_ch.push_back(cd(static_cast<float>(v.real())));
                std::vector<cd> cf_ch;
                for (cd v : ch) cf_ch.push_back(cd(static_cast<float>(v.real()), static_cast<float>(v.imag())));
                const Rules rules = k < (c.bands & ~3) ? Rules::FourWide : Rules::OneAtATime;
                const Pair mr = model(re_ch, rules), mc = model(cf_ch, Rules::OneAtATime);
                EXPECT_LT(std::abs(real.a0[k] - mr.a0), c.tolerance) << c.name << " real band " << k;
                EXPECT_LT(std::abs(real.a1[k] - mr.a1), c.tolerance) << c.name << " real band " << k;
                EXPECT_LT(std::abs(cplx.a0[k] - mc.a0), c.tolerance) << c.name << " complex band " << k;
                EXPECT_LT(std::abs(cplx.a1[k] - mc.a1), c.tolerance) << c.name << " complex band " << k;
                EXPECT_TRUE(std::isfinite(real.a0[k].real()) && std::isfinite(real.a1[k].real()));
            }
        }
    }
}

// ---- exact cases: the rules at their edges ------------------------------------

struct EdgeCase {
    const char* name;
    std::vector<cd> x;  // one channel, len + 2 slots
    Pair four_wide;     // expected in the four-wide channels of the real variant
    Pair one_at_a_time; // expected elsewhere, and in the complex variants
};

const cd I(0, 1);

const EdgeCase kEdges[] = {
    // alpha1 = 4: its square is exactly 16.
    {"alpha1_exactly_4", {1, 0, -4, 0}, {0.0, 4.0}, {0.0, 0.0}},
    // d = 0 leaves alpha1 = 0; alpha0 = -phi01/phi11 = 4.
    {"alpha0_exactly_4", {0, 1, -4}, {4.0, 0.0}, {0.0, 0.0}},
    {"alpha0_just_below_4", {0, 1, -3.5}, {3.5, 0.0}, {3.5, 0.0}},
    {"alpha1_above_4", {1, 0, -5, 0}, {0.0, 0.0}, {0.0, 0.0}},
    // x(n) = 2^n: alpha0 = -2, and the relaxed d keeps alpha1 at 0 / d = 0.
    {"first_order_predictable", {1, 2, 4, 8, 16}, {-2.0, 0.0}, {-2.0, 0.0}},
    {"silent", {0, 0, 0, 0, 0}, {0.0, 0.0}, {0.0, 0.0}},
    {"first_slot_only", {7, 0, 0, 0}, {0.0, 0.0}, {0.0, 0.0}},
    {"middle_slot_only", {0, 0, 7, 0, 0}, {0.0, 0.0}, {0.0, 0.0}},
    {"last_slot_only", {0, 0, 0, 7}, {0.0, 0.0}, {0.0, 0.0}},
};

// Every channel of the frame carries the same signal.
Frame uniform(const std::vector<cd>& x, int bands) {
    Frame f(bands, static_cast<int>(x.size()) - 2);
    for (size_t n = 0; n < x.size(); ++n) {
        for (int k = 0; k < bands; ++k) f.x[n][k] = x[n];
    }
    return f;
}

TEST(PredictCoef, RealVariantRulesDifferBetweenFourWideAndRemainingChannels) {
    for (const EdgeCase& c : kEdges) {
        for (int bands : {3, 6, 9}) {
            const Results r = run_real(uniform(c.x, bands), bands % 2);
            for (int k = 0; k < bands; ++k) {
                const Pair& want = k < (bands & ~3) ? c.four_wide : c.one_at_a_time;
                EXPECT_EQ(r.a0[k], want.a0) << c.name << " bands " << bands << " channel " << k;
                EXPECT_EQ(r.a1[k], want.a1) << c.name << " bands " << bands << " channel " << k;
            }
        }
    }
}

TEST(PredictCoef, ComplexVariantsUseTheOneAtATimeRulesEverywhere) {
    for (const EdgeCase& c : kEdges) {
        const Results r = run_complex(uniform(c.x, 9), 0);
        for (int k = 0; k < 9; ++k) {
            EXPECT_EQ(r.a0[k], c.one_at_a_time.a0) << c.name << " channel " << k;
            EXPECT_EQ(r.a1[k], c.one_at_a_time.a1) << c.name << " channel " << k;
        }
    }
    // Complex coefficients: |alpha0|^2 = 16 resets, 13 survives.
    struct {
        std::vector<cd> x;
        cd a0;
    } rotated[] = {{{0, 1, -4.0 * I}, 0.0}, {{0, 1, -(2.0 + 3.0 * I)}, 2.0 + 3.0 * I}, {{0, I, 2.0}, 2.0 * I}};
    for (const auto& c : rotated) {
        const Results r = run_complex(uniform(c.x, 5), 1);
        for (int k = 0; k < 5; ++k) {
            EXPECT_EQ(r.a0[k], c.a0) << "channel " << k;
            EXPECT_EQ(r.a1[k], cd(0.0)) << "channel " << k;
        }
    }
}

// A very quiet channel: d is a normal float but d*d rounds to 0. The
// four-wide channels are scale-invariant; the others drop alpha1.
TEST(PredictCoef, QuietChannelDropsAlpha1OnlyOutsideTheFourWideChannels) {
    const std::vector<cd> loud = {1, 2, 3, 5};
    std::vector<cd> quiet;
    for (cd v : loud) quiet.push_back(v * std::ldexp(1.0, -30));
    const Results a = run_real(uniform(loud, 6), 0), b = run_real(uniform(quiet, 6), 0);
    for (int k = 0; k < 4; ++k) {
        EXPECT_EQ(b.a0[k], a.a0[k]) << k;
        EXPECT_EQ(b.a1[k], a.a1[k]) << k;
        EXPECT_NE(a.a1[k], cd(0.0));
    }
    for (int k = 4; k < 6; ++k) {
        EXPECT_EQ(b.a1[k], cd(0.0)) << k;
        EXPECT_EQ(b.a0[k], cd(-21.0f / 13.0f)) << k;  // -phi01 / phi11
        EXPECT_EQ(a.a1[k], a.a1[0]) << k;             // loud: the rules agree
    }
    // The complex variants follow the one-at-a-time rules in every channel,
    // those taken four at a time included.
    const Results c = run_complex(uniform(quiet, 6), 1);
    for (int k = 0; k < 6; ++k) {
        EXPECT_EQ(c.a1[k], cd(0.0)) << k;
        EXPECT_EQ(c.a0[k], cd(-21.0f / 13.0f)) << k;
    }
}

// len = 1 reads slots 0, 1 and 2 only; channels beyond numBands are not
// touched; huge but finite inputs stay finite.
TEST(PredictCoef, ReadsOnlyItsSlotsAndWritesOnlyItsChannels) {
    float s0[5] = {0, 0, 0, 0, 0}, s1[5] = {1, 1, 1, 1, 1}, s2[5] = {-2, -2, -2, -2, -2};
    const float* slots[4] = {s0, s1, s2, nullptr};  // slot 3 must not be read
    float a0[6], a1[6];
    std::fill(a0, a0 + 6, 9.0f);
    std::fill(a1, a1 + 6, 9.0f);
    EXPECT_EQ(nkpsPredictCoef_SBR_R_32f_D2L(slots, a0, a1, 5, 1), nkpStatusOk);
    for (int k = 0; k < 5; ++k) EXPECT_EQ(a0[k], 2.0f) << k;
    EXPECT_EQ(a0[5], 9.0f);
    EXPECT_EQ(a1[5], 9.0f);

    Frame f(8, 38);
    std::normal_distribution<double> g(0.0, 1e8);
    for (auto& slot : f.x) {
        for (cd& v : slot) v = cd(g(rng()), g(rng()));
    }
    for (int path = 0; path < 2; ++path) {
        const Results r = run_real(f, path), c = run_complex(f, path);
        for (int k = 0; k < 8; ++k) {
            EXPECT_TRUE(std::isfinite(r.a0[k].real()) && std::isfinite(r.a1[k].real())) << k;
            EXPECT_TRUE(std::isfinite(std::abs(c.a0[k])) && std::isfinite(std::abs(c.a1[k]))) << k;
        }
    }
}

}  // namespace
