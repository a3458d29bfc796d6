// The hybrid filter bank against a direct double-precision model, and the
// subband counts and overlap rules of nkpsMDCTInv_MP3_32s.
#include "frame/exports.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

namespace {

constexpr double kPi = 3.14159265358979323846;

double long_window(int type, int n) {
    const double w = std::sin(kPi / 36 * (n + 0.5));
    if (type == 1) return n < 18 ? w : n < 24 ? 1.0 : n < 30 ? std::sin(kPi / 12 * (n - 18 + 0.5)) : 0.0;
    if (type == 3) return n < 6 ? 0.0 : n < 12 ? std::sin(kPi / 12 * (n - 6 + 0.5)) : n < 18 ? 1.0 : w;
    return w;
}

// The windowed inverse MDCT of one subband, straight from its definition.
std::vector<double> model(const int32_t* x, int type) {
    std::vector<double> out(36, 0.0);
    if (type != 2) {
        for (int n = 0; n < 36; ++n) {
            double s = 0;
            for (int k = 0; k < 18; ++k) s += x[k] * std::cos(kPi / 72 * (2 * n + 19) * (2 * k + 1));
            out[n] = s * long_window(type, n);
        }
        return out;
    }
    for (int w = 0; w < 3; ++w)
        for (int n = 0; n < 12; ++n) {
            double s = 0;
            for (int k = 0; k < 6; ++k) s += x[6 * w + k] * std::cos(kPi / 24 * (2 * n + 7) * (2 * k + 1));
            out[6 + 6 * w + n] += s * std::sin(kPi / 12 * (n + 0.5));
        }
    return out;
}

// Rounded model values may differ by one only where the exact value is
// within a hair of a half.
void expect_rounded(double exact, int32_t got, const char* what) {
    const double r = std::nearbyint(exact);
    if (got == r) return;
    EXPECT_LT(std::fabs(std::fabs(exact - std::floor(exact)) - 0.5), 1e-6) << what << " exact " << exact << " got " << got;
}

TEST(MDCTInvWindow, MatchesDirectModelForEveryBlockType) {
    std::mt19937 rng(7);
    std::uniform_int_distribution<int32_t> value(-(1 << 26), 1 << 26);
    for (int type = 0; type < 4; ++type) {
        for (int trial = 0; trial < 200; ++trial) {
            int32_t x[18], y[36];
            for (auto& v : x) v = trial < 10 ? value(rng) >> 20 : value(rng);
            for (int path = 0; path < 2; ++path) {
                ASSERT_EQ(nkpt_nkpsMDCTInvWindow_MP3_32s[path](x, y, type), nkpStatusOk);
                const std::vector<double> m = model(x, type);
                for (int n = 0; n < 36; ++n) expect_rounded(m[n], y[n], "output");
            }
        }
    }
}

// The whole granule through a model: alias reduction, transforms,
// overlap-add and frequency inversion.
struct GranuleModel {
    std::vector<double> overlap = std::vector<double>(576, 0.0);
    int prev = 0;
};

int subbands(int nz, int type, int mixed) {
    int n = type == 2 ? (nz + 17) / 18 : (nz + 8) / 18 + 1;
    if (type == 2 && mixed && n < 2) n = 2;
    return n > 32 ? 32 : n;
}

TEST(MDCTInv, GranulesMatchModelWithOverlapAndInversion) {
    std::mt19937 rng(11);
    std::uniform_int_distribution<int32_t> value(-(1 << 24), 1 << 24);
    std::vector<int32_t> overlap(576, 0);
    int prev = 0;
    std::vector<double> model_overlap(576, 0.0);
    int model_prev = 0;
    // A run of granules with changing block types and bounds, as a stream has.
    // The subband count n is ceil(nz/18) for short blocks (at least 2 when
    // mixed), floor((nz + 8)/18) + 1 otherwise, at most 32: every branch and
    // its edges come up.
    const int plan[][3] = {{0, 576, 0}, {1, 400, 0}, {2, 300, 0}, {2, 100, 1}, {3, 576, 0}, {0, 0, 0},
                           {0, 200, 1}, {2, 10, 1},  {0, 9, 0},   {0, 10, 0},  {2, 18, 0},  {2, 19, 0},
                           {0, 576, 0}, {2, 0, 0},   {2, 1, 0}};
    for (const auto& g : plan) {
        const int type = g[0], nz = g[1], mixed = g[2];
        std::vector<int32_t> x(576, 0), y(576, 12345);
        for (int i = 0; i < nz; ++i) x[i] = value(rng);
        // Model: alias reduction in double with the same rounding.
        std::vector<int32_t> a = x;
        const int n = subbands(nz, type, mixed);
        const double c[8] = {-0.6, -0.535, -0.33, -0.185, -0.095, -0.041, -0.0142, -0.0037};
        const int borders = type != 2 ? n - 1 : (mixed ? 1 : 0);
        for (int sb = 1; sb <= borders; ++sb)
            for (int i = 0; i < 8; ++i) {
                const double cs = 1 / std::sqrt(1 + c[i] * c[i]), ca = c[i] / std::sqrt(1 + c[i] * c[i]);
                const double lo = a[18 * sb - 1 - i], hi = a[18 * sb + i];
                a[18 * sb - 1 - i] = static_cast<int32_t>(std::nearbyint(lo * cs - hi * ca));
                a[18 * sb + i] = static_cast<int32_t>(std::nearbyint(hi * cs + lo * ca));
            }
        const int last = std::max(model_prev, n);
        std::vector<double> expect(576, 0.0);
        for (int sb = 0; sb < last; ++sb) {
            std::vector<double> t(36, 0.0);
            if (sb < n) {
                const int wtype = (mixed && sb < 2) ? 0 : type;
                t = model(&a[18 * sb], wtype);
                for (auto& v : t) v = std::nearbyint(v);
            }
            for (int k = 0; k < 18; ++k) {
                double v = t[k] + model_overlap[18 * sb + k];
                if ((sb & 1) && (k & 1)) v = -v;
                expect[sb + 32 * k] = v;
                model_overlap[18 * sb + k] = t[18 + k];
            }
        }
        model_prev = n;
        ASSERT_EQ(nkpsMDCTInv_MP3_32s(x.data(), y.data(), overlap.data(), nz, &prev, type, mixed), nkpStatusOk);
        EXPECT_EQ(prev, n);
        int off_by_one = 0;
        for (int i = 0; i < 576; ++i) {
            const double d = std::fabs(y[i] - expect[i]);
            ASSERT_LE(d, 2.0) << "type " << type << " nz " << nz << " element " << i;
            off_by_one += d != 0;
        }
        EXPECT_LE(off_by_one, 2) << "type " << type << " nz " << nz;
        for (int i = 0; i < 576; ++i) model_overlap[i] = overlap[i];  // carry the exact state on
    }
}

TEST(MDCTInv, EmptyGranuleFlushesPreviousOverlapAndZeroesTheRest) {
    std::vector<int32_t> x(576, 0), y(576, 7), ov(576);
    for (int i = 0; i < 576; ++i) ov[i] = i + 1;
    int prev = 20;
    ASSERT_EQ(nkpsMDCTInv_MP3_32s(x.data(), y.data(), ov.data(), 0, &prev, 0, 0), nkpStatusOk);
    EXPECT_EQ(prev, 1);
    for (int sb = 0; sb < 32; ++sb)
        for (int k = 0; k < 18; ++k) {
            int32_t expect = sb < 20 ? 18 * sb + k + 1 : 0;
            if ((sb & 1) && (k & 1)) expect = -expect;
            EXPECT_EQ(y[sb + 32 * k], expect) << sb << "," << k;
            // Subbands up to the previous count are emptied; the rest keep theirs.
            EXPECT_EQ(ov[18 * sb + k], sb < 20 ? 0 : 18 * sb + k + 1);
        }
}

TEST(MDCTInv, OverflowWrapsWithoutTrapping) {
    // Extreme inputs must give defined (wrapped or saturated) integers, not faults.
    std::vector<int32_t> x(576, INT32_MAX), y(576), ov(576, INT32_MAX);
    for (int i = 1; i < 576; i += 2) x[i] = INT32_MIN;
    int prev = 32;
    EXPECT_EQ(nkpsMDCTInv_MP3_32s(x.data(), y.data(), ov.data(), 576, &prev, 0, 0), nkpStatusOk);
    x.assign(576, INT32_MIN);
    EXPECT_EQ(nkpsMDCTInv_MP3_32s(x.data(), y.data(), ov.data(), 576, &prev, 2, 0), nkpStatusOk);
}

}  // namespace
