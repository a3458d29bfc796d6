// The orthonormal inverse DCT: every method (written-out kernels, the
// power-of-two FFT route, the direct matrix, the general cosine table)
// against the definition; a null work buffer and in place give the same bits.
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
        for (int k = 1; k < N; ++k) acc += std::sqrt(2.0 / N) * X[k] * std::cos(nkptest::kPi * (2 * n + 1) * k / (2.0 * N));
        y[n] = acc;
    }
    return y;
}

TEST(DctInv, EveryMethodMatchesTheDefinition) {
    std::vector<int> lengths;
    for (int n = 1; n <= 40; ++n) lengths.push_back(n);
    for (int n : {64, 100, 1000, 1024, 4096}) lengths.push_back(n);
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
        EXPECT_LT(nkptest::peak_relative_error(y, dct3_direct(X), N), 1e-6);
        ASSERT_EQ(dctInv32f(X.data(), again.data(), s, nullptr), nkpStatusOk);
        ASSERT_EQ(dctInv32f(io.data(), io.data(), s, work.p), nkpStatusOk);
        EXPECT_TRUE(y == again && y == io);
    }
}

}  // namespace
