// The orthonormal inverse DCT: every method against the definition, the
// length checks (before the pointers for N < 1) and the life cycle.
#include "nkpcore.h"
#include "transform/engine.h"
#include "transform/reference.h"

#include <gtest/gtest.h>

namespace {

using namespace nkp::fft;
using nkptest::SizedBuffer;

std::vector<double> dct3_direct(const std::vector<float>& X) {
    const int N = int(X.size());
    std::vector<double> y(N);
    for (int n = 0; n < N; ++n) {
        double acc = X[0] / std::sqrt(double(N));
        for (int k = 1; k < N; ++k) {
            acc += std::sqrt(2.0 / N) * X[k] * std::cos(nkptest::kPi * (2 * n + 1) * k / (2.0 * N));
        }
        y[n] = acc;
    }
    return y;
}

TEST(DctInv, EveryMethodMatchesTheDefinition) {
    std::vector<int> lengths;
    for (int n = 1; n <= 40; ++n) lengths.push_back(n);
    for (int n : {64, 100, 128, 1000, 1024, 2048, 4096}) lengths.push_back(n);
    for (int N : lengths) {
        SCOPED_TRACE(N);
        int specSize, initSize, bufSize;
        ASSERT_EQ(dctInvSizes32f(N, 0, &specSize, &initSize, &bufSize), nkpStatusOk);
        SizedBuffer spec(specSize, N % 64), init(initSize), work(bufSize, 3);
        DctInvSpec32f* s = nullptr;
        ASSERT_EQ(dctInvInit32f(&s, N, 0, spec.p, init.p), nkpStatusOk);
        const std::vector<float> X = nkptest::random_floats(N, 40 + N);
        std::vector<float> y(N), again(N), io = X;
        ASSERT_EQ(dctInv32f(X.data(), y.data(), s, work.p), nkpStatusOk);
        const double err = nkptest::peak_relative_error(y, dct3_direct(X), N);
        EXPECT_LT(err, 1e-6);
        RecordProperty("N" + std::to_string(N), nkptest::sci(err));
        ASSERT_EQ(dctInv32f(X.data(), again.data(), s, nullptr), nkpStatusOk);
        EXPECT_EQ(y, again);
        ASSERT_EQ(dctInv32f(io.data(), io.data(), s, work.p), nkpStatusOk);
        EXPECT_EQ(y, io);
    }
}

TEST(DctInv, StatusesAndLifeCycle) {
    int s, i, b;
    EXPECT_EQ(dctInvSizes32f(0, 0, nullptr, nullptr, nullptr), nkpStatusBadSize);
    EXPECT_EQ(dctInvSizes32f(5, 0, nullptr, &i, &b), nkpStatusNullPointer);
    EXPECT_EQ(dctInvSizes32f(1 << 27, 0, &s, &i, &b), nkpStatusBadSize);
    DctInvSpec32f* out = nullptr;
    alignas(64) static uint8_t mem[8192];
    EXPECT_EQ(dctInvInit32f(nullptr, -3, 0, nullptr, nullptr), nkpStatusBadSize);
    EXPECT_EQ(dctInvInit32f(nullptr, 3, 0, mem, nullptr), nkpStatusNullPointer);
    EXPECT_EQ(dctInvInit32f(&out, 3, 0, nullptr, nullptr), nkpStatusNullPointer);
    EXPECT_EQ(out, nullptr);
    ASSERT_EQ(dctInvInit32f(&out, 8, 0, mem, nullptr), nkpStatusOk);
    float x[8] = {1}, y[8];
    EXPECT_EQ(dctInv32f(x, y, out, nullptr), nkpStatusOk);
    for (float v : y) EXPECT_NEAR(v, 1 / std::sqrt(8.0), 1e-7);
    EXPECT_EQ(dctInvDestroy32f(out), nkpStatusOk);
    EXPECT_EQ(dctInvDestroy32f(out), nkpStatusWrongObject);
    EXPECT_EQ(dctInv32f(x, y, out, nullptr), nkpStatusWrongObject);

    const long live = nkpcoreLiveAllocations();
    for (int N : {1, 20, 64, 77, 4096}) {
        ASSERT_EQ(dctInvCreate32f(&out, N, 0), nkpStatusOk) << N;
        EXPECT_EQ(out->allocated, 1);
        int w;
        ASSERT_EQ(dctInvWorkSize32f(out, &w), nkpStatusOk);
        ASSERT_EQ(dctInvSizes32f(N, 0, &s, &i, &b), nkpStatusOk);
        EXPECT_EQ(w, b);
        EXPECT_EQ(dctInvDestroy32f(out), nkpStatusOk);
        EXPECT_EQ(nkpcoreLiveAllocations(), live);
    }
}

}  // namespace
