// The float MDCT exports against direct double-precision sums; forward then
// inverse with its time-domain aliasing; windowed overlap-add; in place, a
// null work buffer, any alignment and InitAlloc give the same bits.
#include "nkpac.h"
#include "transform/reference.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

namespace {

using nkptest::SizedBuffer;

const int kLengths[] = {12, 36, 32, 64, 128, 256, 512, 1024, 2048, 4096, 8192};

// Peak-relative error bounds: the 12/36 networks, then the FFT route by length.
double bound(int N) { return N < 32 ? 5e-7 : 6e-8 * (std::log2(double(N)) + 2); }

// A plan built by Init in exact-size memory at a byte offset, with a work
// buffer of the (smaller) size Init records.
template <class Spec>
struct Made {
    SizedBuffer spec, init, work{0};
    Spec* s = nullptr;
};

template <class Spec, class GetSize, class Init, class BufSize>
std::unique_ptr<Made<Spec>> make(int N, int offset, GetSize get_size, Init init, BufSize buf_size) {
    int specSize, initSize, bufSize;
    EXPECT_EQ(get_size(N, &specSize, &initSize, &bufSize), nkpStatusOk);
    auto m = std::make_unique<Made<Spec>>(Made<Spec>{SizedBuffer(specSize, offset), SizedBuffer(initSize, offset)});
    EXPECT_EQ(init(&m->s, N, m->spec.p, m->init.p), nkpStatusOk);
    EXPECT_EQ(buf_size(m->s, &bufSize), nkpStatusOk);
    m->work = SizedBuffer(bufSize, offset);
    return m;
}
auto make_fwd(int N, int offset = 0) {
    return make<nkpsMDCTFwdSpec_32f>(N, offset, nkpsMDCTFwdGetSize_32f, nkpsMDCTFwdInit_32f, nkpsMDCTFwdGetBufSize_32f);
}
auto make_inv(int N, int offset = 0) {
    return make<nkpsMDCTInvSpec_32f>(N, offset, nkpsMDCTInvGetSize_32f, nkpsMDCTInvInit_32f, nkpsMDCTInvGetBufSize_32f);
}

bool same(const std::vector<float>& a, const std::vector<float>& b, size_t n) {
    return std::memcmp(a.data(), b.data(), sizeof(float) * n) == 0;
}

TEST(MdctFwd32f, EveryLengthMatchesTheDefinition) {
    for (int N : kLengths) {
        SCOPED_TRACE(N);
        auto m = make_fwd(N, N % 64);
        nkpsMDCTFwdSpec_32f* allocated = nullptr;
        ASSERT_EQ(nkpsMDCTFwdInitAlloc_32f(&allocated, N), nkpStatusOk);
        const std::vector<float> x = nkptest::random_floats(N, N);
        std::vector<float> y(N / 2), via_null(N / 2), via_alloc(N / 2), io = x;
        ASSERT_EQ(nkpsMDCTFwd_32f(x.data(), y.data(), m->s, m->work.p), nkpStatusOk);
        const double err = nkptest::peak_relative_error(y, nkptest::mdct_forward_direct(x), N / 2);
        EXPECT_LT(err, bound(N));
        RecordProperty("N" + std::to_string(N), nkptest::sci(err));
        ASSERT_EQ(nkpsMDCTFwd_32f(x.data(), via_null.data(), m->s, nullptr), nkpStatusOk);
        ASSERT_EQ(nkpsMDCTFwd_32f(x.data(), via_alloc.data(), allocated, nullptr), nkpStatusOk);
        ASSERT_EQ(nkpsMDCTFwd_32f_I(io.data(), m->s, m->work.p), nkpStatusOk);  // coefficients at the start
        EXPECT_TRUE(same(y, via_null, N / 2) && same(y, via_alloc, N / 2) && same(y, io, N / 2));
        EXPECT_EQ(nkpsMDCTFwdFree_32f(allocated), nkpStatusOk);
    }
}

TEST(MdctInv32f, EveryLengthMatchesTheDefinition) {
    for (int N : kLengths) {
        SCOPED_TRACE(N);
        auto m = make_inv(N, (3 * N) % 64);
        const std::vector<float> X = nkptest::random_floats(N / 2, N + 1);
        std::vector<float> y(N), via_null(N), io(N);
        ASSERT_EQ(nkpsMDCTInv_32f(X.data(), y.data(), m->s, m->work.p), nkpStatusOk);
        const double err = nkptest::peak_relative_error(y, nkptest::mdct_inverse_direct(X), N);
        EXPECT_LT(err, bound(N));
        RecordProperty("N" + std::to_string(N), nkptest::sci(err));
        ASSERT_EQ(nkpsMDCTInv_32f(X.data(), via_null.data(), m->s, nullptr), nkpStatusOk);
        std::copy(X.begin(), X.end(), io.begin());
        ASSERT_EQ(nkpsMDCTInv_32f_I(io.data(), m->s, m->work.p), nkpStatusOk);
        EXPECT_TRUE(same(y, via_null, N) && same(y, io, N));
    }
}

// Forward then inverse: gain 1 with time-domain aliasing, for every length
// including those beyond the direct sums' reach.
TEST(Mdct32f, ForwardThenInverseAliasesAsExpected) {
    for (int N : {12, 36, 32, 256, 2048, 1 << 15, 1 << 17, 1 << 18}) {
        SCOPED_TRACE(N);
        auto f = make_fwd(N);
        auto i = make_inv(N);
        const std::vector<float> x = nkptest::random_floats(N, 5 + N);
        std::vector<float> X(N / 2), y(N);
        ASSERT_EQ(nkpsMDCTFwd_32f(x.data(), X.data(), f->s, f->work.p), nkpStatusOk);
        ASSERT_EQ(nkpsMDCTInv_32f(X.data(), y.data(), i->s, i->work.p), nkpStatusOk);
        std::vector<double> want(N);
        for (int n = 0; n < N / 2; ++n) want[n] = double(x[n]) - x[N / 2 - 1 - n];
        for (int n = N / 2; n < N; ++n) want[n] = double(x[n]) + x[3 * N / 2 - 1 - n];
        EXPECT_LT(nkptest::peak_relative_error(y, want, N), 2 * bound(N));
    }
}

// Half-overlapped blocks, sine-windowed before the forward and after the
// inverse transform, add up to the input.
TEST(Mdct32f, WindowedOverlapAddReconstructs) {
    for (int N : {12, 36, 64, 2048}) {
        SCOPED_TRACE(N);
        auto f = make_fwd(N);
        auto i = make_inv(N);
        const int hop = N / 2, blocks = 6;
        const std::vector<float> x = nkptest::random_floats(hop * (blocks + 1), 77 + N);
        std::vector<double> out(x.size(), 0.0);
        std::vector<float> w(N), frame(N), X(N / 2), y(N);
        for (int n = 0; n < N; ++n) w[n] = float(std::sin(nkptest::kPi * (n + 0.5) / N));
        for (int b = 0; b < blocks; ++b) {
            for (int n = 0; n < N; ++n) frame[n] = x[b * hop + n] * w[n];
            ASSERT_EQ(nkpsMDCTFwd_32f(frame.data(), X.data(), f->s, f->work.p), nkpStatusOk);
            ASSERT_EQ(nkpsMDCTInv_32f(X.data(), y.data(), i->s, i->work.p), nkpStatusOk);
            for (int n = 0; n < N; ++n) out[b * hop + n] += double(y[n]) * w[n];
        }
        double err = 0;
        for (int n = hop; n < blocks * hop; ++n) err = std::max(err, std::abs(out[n] - x[n]));
        EXPECT_LT(err, 2 * bound(N));
    }
}

}  // namespace
