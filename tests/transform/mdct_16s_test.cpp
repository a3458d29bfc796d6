// The 16-bit forward MDCT against the double-precision definition across
// amplitudes and scale factors, at the headroom boundaries, on all-zero
// input and where it saturates.
#include "nkpac.h"
#include "transform/reference.h"

#include <gtest/gtest.h>

#include <climits>

namespace {

using nkptest::SizedBuffer;

struct Made16 {
    SizedBuffer spec, init, work;
    nkpsMDCTFwdSpec_16s* s = nullptr;
    explicit Made16(int N, int offset = 0) : spec(size(N, 0), offset), init(size(N, 1), offset), work(size(N, 2), offset) {
        EXPECT_EQ(nkpsMDCTFwdInit_16s(&s, N, spec.p, init.p), nkpStatusOk);
    }
    static int size(int N, int which) {
        int v[3] = {0, 0, 0};
        EXPECT_EQ(nkpsMDCTFwdGetSize_16s(N, &v[0], &v[1], &v[2]), nkpStatusOk);
        return v[which];
    }
};

// Largest error in output steps against the saturated definition, and the
// output's peak. The error allowed is a few steps plus a share of the peak:
// the 16-bit FFT runs with scale factor order + 1, so a noise-like signal
// keeps fewer bits as N grows (about sqrt(N) in relative error).
void expect_near_definition(const std::vector<int16_t>& x, const std::vector<int16_t>& y, int sf) {
    const std::vector<double> want = nkptest::mdct_forward_direct(x);
    double err = 0, peak = 0;
    for (size_t k = 0; k < want.size(); ++k) {
        const double w = std::min(32767.0, std::max(-32768.0, std::ldexp(want[k], -sf)));
        err = std::max(err, std::abs(y[k] - w));
        peak = std::max(peak, std::abs(w));
    }
    EXPECT_LE(err, 3.0 + peak * 6e-5 * std::sqrt(double(x.size()))) << "peak " << peak;
}

std::vector<int16_t> random_samples(int N, int amplitude, uint32_t seed) {
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> d(-amplitude, amplitude);
    std::vector<int16_t> x(N);
    for (auto& v : x) v = int16_t(d(rng));
    return x;
}

TEST(MdctFwd16s, EveryLengthMatchesTheDefinition) {
    for (int N = 32; N <= 8192; N *= 2) {
        for (int amplitude : {32767, 1000, 3}) {
            SCOPED_TRACE(::testing::Message() << "N " << N << " amplitude " << amplitude);
            Made16 m(N, N % 61);
            const std::vector<int16_t> x = random_samples(N, amplitude, N + amplitude);
            // Scale so that the output stays well inside 16 bits.
            const int sf = int(std::ceil(std::log2(std::max(1.0, amplitude * std::sqrt(double(N)) * 2 / 8000.0))));
            std::vector<int16_t> y(N / 2), via_null(N / 2);
            ASSERT_EQ(nkpsMDCTFwd_16s_Sfs(x.data(), y.data(), m.s, sf, m.work.p), nkpStatusOk);
            expect_near_definition(x, y, sf);
            ASSERT_EQ(nkpsMDCTFwd_16s_Sfs(x.data(), via_null.data(), m.s, sf, nullptr), nkpStatusOk);
            EXPECT_EQ(y, via_null);
        }
    }
}

// The headroom shift s: a peak of 32768 gives s = 0, 23168 gives s = 1,
// 23169 gives s = 0. Inputs that push every folded sum to its limit must
// come out right on both sides of each boundary.
TEST(MdctFwd16s, HeadroomBoundaries) {
    const int N = 256;
    Made16 m(N);
    for (int peak : {32768, 23169, 23168, 16384, 16385, 11584, 11585, 1, 2}) {
        for (int pattern = 0; pattern < 3; ++pattern) {
            SCOPED_TRACE(::testing::Message() << "peak " << peak << " pattern " << pattern);
            std::vector<int16_t> x(N);
            for (int n = 0; n < N; ++n) {
                // The sign of one coefficient's cosine, constant, alternating runs.
                const double c = std::cos(nkptest::mdct_phi(N, n, pattern == 0 ? 5 : 0));
                const int s = pattern == 0 ? (c >= 0 ? 1 : -1) : (pattern == 1 ? 1 : ((n / 3) % 2 ? 1 : -1));
                x[n] = int16_t(s > 0 ? std::min(peak, 32767) : -peak);
            }
            if (peak == 32768) x[7] = -32768;
            const int sf = peak >= 1000 ? 8 : 0;
            std::vector<int16_t> y(N / 2);
            ASSERT_EQ(nkpsMDCTFwd_16s_Sfs(x.data(), y.data(), m.s, sf, m.work.p), nkpStatusOk);
            expect_near_definition(x, y, sf);
        }
    }
}

TEST(MdctFwd16s, ZerosSaturationAndScaleExtremes) {
    Made16 m(64);
    std::vector<int16_t> zero(64, 0), y(32, 1234);
    for (int sf : {INT_MIN, -15, 0, 100, INT_MAX}) {
        ASSERT_EQ(nkpsMDCTFwd_16s_Sfs(zero.data(), y.data(), m.s, sf, m.work.p), nkpStatusOk);
        EXPECT_EQ(y, std::vector<int16_t>(32, 0)) << sf;
    }
    const std::vector<int16_t> x = random_samples(64, 20000, 4);
    const std::vector<double> want = nkptest::mdct_forward_direct(x);
    // Strongly negative factors saturate every large coefficient, and the
    // left shift stops at 15, so every factor from there down gives the same.
    std::vector<int16_t> capped(32), extreme(32);
    ASSERT_EQ(nkpsMDCTFwd_16s_Sfs(x.data(), capped.data(), m.s, -200, m.work.p), nkpStatusOk);
    ASSERT_EQ(nkpsMDCTFwd_16s_Sfs(x.data(), extreme.data(), m.s, INT_MIN, m.work.p), nkpStatusOk);
    EXPECT_EQ(extreme, capped);
    for (int k = 0; k < 32; ++k)
        if (std::abs(want[k]) > 100) EXPECT_EQ(capped[k], want[k] > 0 ? 32767 : -32768) << k;
    // Very large factors round everything to zero.
    ASSERT_EQ(nkpsMDCTFwd_16s_Sfs(x.data(), y.data(), m.s, INT_MAX, m.work.p), nkpStatusOk);
    EXPECT_EQ(y, std::vector<int16_t>(32, 0));
}

}  // namespace
