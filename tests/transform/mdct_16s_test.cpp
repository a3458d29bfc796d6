// The 16-bit forward MDCT: accuracy against the double-precision definition
// across scale factors, the headroom boundaries, all-zero input, saturation,
// statuses (pointers before length in Init) and the life cycle.
#include "nkpac.h"
#include "nkpcore.h"
#include "transform/reference.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>

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

// Largest error in output steps, relative to the output's peak.
double error_vs_definition(const std::vector<int16_t>& x, const std::vector<int16_t>& y, int sf, double* peak) {
    const std::vector<double> want = nkptest::mdct_forward_direct(x);
    double err = 0;
    *peak = 0;
    for (size_t k = 0; k < want.size(); ++k) {
        const double w = std::min(32767.0, std::max(-32768.0, std::ldexp(want[k], -sf)));
        err = std::max(err, std::abs(y[k] - w));
        *peak = std::max(*peak, std::abs(w));
    }
    return err;
}

std::vector<int16_t> random_samples(int N, int amplitude, uint32_t seed) {
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> d(-amplitude, amplitude);
    std::vector<int16_t> x(N);
    for (auto& v : x) v = int16_t(d(rng));
    return x;
}

// The error allowed: a few output steps plus a share of the peak. The 16-bit
// FFT runs with scale factor order + 1, so a noise-like signal keeps fewer
// bits as N grows (about sqrt(N) in relative error).
double allowed(double peak, int N) { return 3.0 + peak * 6e-5 * std::sqrt(double(N)); }

TEST(MdctFwd16s, EveryLengthMatchesTheDefinition) {
    for (int N = 32; N <= 8192; N *= 2) {
        for (int amplitude : {32767, 1000, 3}) {
            SCOPED_TRACE(::testing::Message() << "N " << N << " amplitude " << amplitude);
            Made16 m(N, N % 61);
            const std::vector<int16_t> x = random_samples(N, amplitude, N + amplitude);
            // Scale so that the output stays well inside 16 bits.
            const int sf = int(std::ceil(std::log2(std::max(1.0, amplitude * std::sqrt(double(N)) * 2 / 8000.0))));
            std::vector<int16_t> y(N / 2), y2(N / 2);
            ASSERT_EQ(nkpsMDCTFwd_16s_Sfs(x.data(), y.data(), m.s, sf, m.work.p), nkpStatusOk);
            double peak;
            const double err = error_vs_definition(x, y, sf, &peak);
            EXPECT_LE(err, allowed(peak, N));
            RecordProperty("N" + std::to_string(N) + "_a" + std::to_string(amplitude),
                           std::to_string(err) + "/" + std::to_string(peak));
            ASSERT_EQ(nkpsMDCTFwd_16s_Sfs(x.data(), y2.data(), m.s, sf, nullptr), nkpStatusOk);
            EXPECT_EQ(y, y2);
        }
    }
}

// The headroom shift s: m = 32768 (a -32768 sample) gives s = 0, m = 23168
// gives s = 1, m = 23169 gives s = 0. Inputs that push every folded sum to
// its limit must come out right on both sides of each boundary.
TEST(MdctFwd16s, HeadroomBoundaries) {
    const int N = 256;
    Made16 m(N);
    for (int peak : {32768, 23169, 23168, 16384, 16385, 11584, 11585, 1, 2}) {
        for (int pattern = 0; pattern < 3; ++pattern) {
            SCOPED_TRACE(::testing::Message() << "m " << peak << " pattern " << pattern);
            std::vector<int16_t> x(N);
            for (int n = 0; n < N; ++n) {
                // Worst cases for the folded sums: the sign of the cosine of
                // one coefficient, constant blocks, and alternating signs.
                const double c = std::cos(nkptest::mdct_phi(N, n, pattern == 0 ? 5 : 0));
                const int s = pattern == 0 ? (c >= 0 ? 1 : -1) : (pattern == 1 ? 1 : ((n / 3) % 2 ? 1 : -1));
                x[n] = int16_t(s > 0 ? std::min(peak, 32767) : -peak);
            }
            if (peak == 32768) x[7] = -32768;
            const int sf = peak >= 1000 ? 8 : 0;
            std::vector<int16_t> y(N / 2);
            ASSERT_EQ(nkpsMDCTFwd_16s_Sfs(x.data(), y.data(), m.s, sf, m.work.p), nkpStatusOk);
            double out_peak;
            const double err = error_vs_definition(x, y, sf, &out_peak);
            EXPECT_LE(err, allowed(out_peak, N));
        }
    }
}

TEST(MdctFwd16s, ZerosSaturationAndScaleExtremes) {
    Made16 m(64);
    std::vector<int16_t> zero(64, 0), y(32, 1234);
    for (int sf : {INT_MIN, -100, -15, 0, 7, 100, INT_MAX}) {
        ASSERT_EQ(nkpsMDCTFwd_16s_Sfs(zero.data(), y.data(), m.s, sf, m.work.p), nkpStatusOk);
        EXPECT_EQ(y, std::vector<int16_t>(32, 0)) << sf;
    }
    const std::vector<int16_t> x = random_samples(64, 20000, 4);
    const std::vector<double> want = nkptest::mdct_forward_direct(x);
    // Strongly negative factors saturate every large coefficient.
    ASSERT_EQ(nkpsMDCTFwd_16s_Sfs(x.data(), y.data(), m.s, -20, m.work.p), nkpStatusOk);
    for (int k = 0; k < 32; ++k) {
        if (std::abs(want[k]) > 100) EXPECT_EQ(y[k], want[k] > 0 ? 32767 : -32768) << k;
    }
    // The left shift stops at 15, so every factor from there down gives the same.
    std::vector<int16_t> capped(32), extreme(32);
    ASSERT_EQ(nkpsMDCTFwd_16s_Sfs(x.data(), capped.data(), m.s, -200, m.work.p), nkpStatusOk);
    ASSERT_EQ(nkpsMDCTFwd_16s_Sfs(x.data(), extreme.data(), m.s, INT_MIN, m.work.p), nkpStatusOk);
    EXPECT_EQ(extreme, capped);
    // Very large factors round everything to zero.
    for (int sf : {60, INT_MAX}) {
        ASSERT_EQ(nkpsMDCTFwd_16s_Sfs(x.data(), y.data(), m.s, sf, m.work.p), nkpStatusOk);
        EXPECT_EQ(y, std::vector<int16_t>(32, 0));
    }
}

TEST(MdctFwd16s, StatusesInCheckingOrder) {
    int s, i, b;
    for (int len : {12, 36, 16, 48, 0, -64}) EXPECT_EQ(nkpsMDCTFwdGetSize_16s(len, &s, &i, &b), nkpStatusBadSize) << len;
    EXPECT_EQ(nkpsMDCTFwdGetSize_16s(12, nullptr, &i, &b), nkpStatusNullPointer);
    alignas(64) static uint8_t mem[4096], init[1024];
    nkpsMDCTFwdSpec_16s* out = nullptr;
    // The 16-bit Init tests the pointers before the length.
    EXPECT_EQ(nkpsMDCTFwdInit_16s(&out, 12, mem, nullptr), nkpStatusNullPointer);
    EXPECT_EQ(nkpsMDCTFwdInit_16s(nullptr, 16, mem, init), nkpStatusNullPointer);
    EXPECT_EQ(nkpsMDCTFwdInit_16s(&out, 12, mem, init), nkpStatusBadSize);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(nkpsMDCTFwdInitAlloc_16s(nullptr, 12), nkpStatusNullPointer);
    EXPECT_EQ(nkpsMDCTFwdInitAlloc_16s(&out, 36), nkpStatusBadSize);
    ASSERT_EQ(nkpsMDCTFwdInit_16s(&out, 32, mem, init), nkpStatusOk);
    int16_t x[32] = {}, y[16];
    EXPECT_EQ(nkpsMDCTFwd_16s_Sfs(x, y, nullptr, 0, nullptr), nkpStatusNullPointer);
    EXPECT_EQ(nkpsMDCTFwd_16s_Sfs(nullptr, y, out, 0, nullptr), nkpStatusNullPointer);
    EXPECT_EQ(nkpsMDCTFwd_16s_Sfs(x, y, reinterpret_cast<nkpsMDCTFwdSpec_16s*>(init), 0, nullptr),
              nkpStatusWrongObject);
    EXPECT_EQ(nkpsMDCTFwdGetBufSize_16s(out, &b), nkpStatusOk);
    EXPECT_EQ(b, Made16::size(32, 2));
    EXPECT_EQ(nkpsMDCTFwdFree_16s(out), nkpStatusOk);
    EXPECT_EQ(nkpsMDCTFwdFree_16s(out), nkpStatusWrongObject);
    EXPECT_EQ(nkpsMDCTFwd_16s_Sfs(x, y, out, 0, nullptr), nkpStatusWrongObject);
    EXPECT_EQ(nkpsMDCTFwdGetBufSize_16s(out, &b), nkpStatusWrongObject);
}

TEST(MdctFwd16s, InitAllocAndFree) {
    const long live = nkpcoreLiveAllocations();
    for (int N : {32, 1024, 4096}) {
        nkpsMDCTFwdSpec_16s* s = nullptr;
        ASSERT_EQ(nkpsMDCTFwdInitAlloc_16s(&s, N), nkpStatusOk);
        Made16 m(N);
        const std::vector<int16_t> x = random_samples(N, 30000, 2);
        std::vector<int16_t> a(N / 2), b(N / 2);
        ASSERT_EQ(nkpsMDCTFwd_16s_Sfs(x.data(), a.data(), s, 6, nullptr), nkpStatusOk);
        ASSERT_EQ(nkpsMDCTFwd_16s_Sfs(x.data(), b.data(), m.s, 6, m.work.p), nkpStatusOk);
        EXPECT_EQ(a, b);
        ASSERT_EQ(nkpsMDCTFwdFree_16s(s), nkpStatusOk);
        EXPECT_EQ(nkpcoreLiveAllocations(), live);
        for (long n = 0; n < 3; ++n) {
            nkpcoreFailMallocAfter(n);
            nkpsMDCTFwdSpec_16s* g = nullptr;
            const nkpStatus st = nkpsMDCTFwdInitAlloc_16s(&g, N);
            nkpcoreFailMallocAfter(-1);
            if (st == nkpStatusOk) {
                nkpsMDCTFwdFree_16s(g);
                break;
            }
            EXPECT_EQ(st, nkpStatusNoMemory);
            EXPECT_EQ(g, nullptr);
            EXPECT_EQ(nkpcoreLiveAllocations(), live);
        }
    }
}

}  // namespace
