// The FFT engine against direct double-precision sums: every order in float,
// the normalisation flags, the split form, the 16-bit form with its scale
// factor; in place, with a null work buffer and at any alignment the results
// are the same bits.
#include "transform/engine.h"
#include "transform/reference.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace {

using namespace nkp::fft;
using nkptest::cd;
using nkptest::SizedBuffer;

// A plan built by Init in exact-size caller memory at a byte offset.
struct FloatFft {
    SizedBuffer spec, init, work;
    FftSpecComplex32f* s = nullptr;
    FloatFft(int order, int flag, int offset = 0, bool split = false)
        : spec(size(order, 0), offset), init(size(order, 1), offset), work(size(order, 2), offset) {
        EXPECT_EQ(split ? fftInitSplit32f(&s, order, flag, 0, spec.p, init.p)
                        : fftInitComplex32f(&s, order, flag, 0, spec.p, init.p),
                  nkpStatusOk);
    }
    static int size(int order, int which) {
        int v[3] = {0, 0, 0};
        EXPECT_EQ(fftSizesComplex32f(order, kNoDivByAny, 0, &v[0], &v[1], &v[2]), nkpStatusOk);
        return v[which];
    }
};

std::vector<nkp32fc> random_complex(int n, uint32_t seed) {
    const std::vector<float> f = nkptest::random_floats(2 * static_cast<size_t>(n), seed);
    std::vector<nkp32fc> v(n);
    for (int i = 0; i < n; ++i) v[i] = {f[2 * i], f[2 * i + 1]};
    return v;
}

// Peak-relative error of got against the DFT of x times scale; sign -1 for
// the forward kernel e^(-2 pi i nk/L), +1 for the inverse.
double error_vs_dft(const std::vector<nkp32fc>& got, const std::vector<nkp32fc>& x, int sign, double scale = 1.0) {
    std::vector<cd> in(x.size());
    for (size_t i = 0; i < x.size(); ++i) in[i] = sign > 0 ? cd(x[i].re, -x[i].im) : cd(x[i].re, x[i].im);
    std::vector<cd> want = nkptest::dft_reference(in);
    double err = 0, peak = 0;
    for (size_t i = 0; i < want.size(); ++i) {
        const cd w = (sign > 0 ? std::conj(want[i]) : want[i]) * scale;
        err = std::max(err, std::abs(cd(got[i].re, got[i].im) - w));
        peak = std::max(peak, std::abs(w));
    }
    return err / peak;
}

double fft_bound(int order) { return 6e-8 * (order + 2); }

bool same_bits(const std::vector<nkp32fc>& a, const std::vector<nkp32fc>& b) {
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), sizeof(nkp32fc) * a.size()) == 0;
}

TEST(FftFloat, EveryOrderMatchesTheDefinition) {
    for (int order = 0; order <= 18; ++order) {
        SCOPED_TRACE(order);
        const int L = 1 << order;
        FloatFft f(order, kNoDivByAny, order % 7), g(order, kNoDivByAny, 63 - order);
        const std::vector<nkp32fc> x = random_complex(L, 100 + order);
        std::vector<nkp32fc> out(L), inplace = x, via_null(L), other_alignment(L);
        ASSERT_EQ(fftForwardComplex32f(x.data(), out.data(), f.s, f.work.p), nkpStatusOk);
        const double err = error_vs_dft(out, x, -1);
        EXPECT_LT(err, fft_bound(order));
        RecordProperty("order" + std::to_string(order), nkptest::sci(err));
        ASSERT_EQ(fftForwardComplex32f(inplace.data(), inplace.data(), f.s, f.work.p), nkpStatusOk);
        ASSERT_EQ(fftForwardComplex32f(x.data(), via_null.data(), f.s, nullptr), nkpStatusOk);
        ASSERT_EQ(fftForwardComplex32f(x.data(), other_alignment.data(), g.s, g.work.p), nkpStatusOk);
        EXPECT_TRUE(same_bits(out, inplace) && same_bits(out, via_null) && same_bits(out, other_alignment));
    }
}

// Flag 1 scales the forward output by 1/L, 2 the inverse, 4 both by
// 1/sqrt(L) (so that they are mutually inverse), 8 neither.
TEST(FftFloat, FlagsScaleForwardAndInverse) {
    const struct {
        int flag;
        bool fwd, inv, sqrt;
    } rows[] = {{kDivFwdByN, true, false, false},
                {kDivInvByN, false, true, false},
                {kDivBySqrtN, true, true, true},
                {kNoDivByAny, false, false, false}};
    for (int order : {0, 3, 6, 9, 16}) {
        for (const auto& r : rows) {
            SCOPED_TRACE(::testing::Message() << "order " << order << " flag " << r.flag);
            const int L = 1 << order;
            FloatFft f(order, r.flag);
            const double factor = r.sqrt ? 1.0 / std::sqrt(double(L)) : 1.0 / L;
            const std::vector<nkp32fc> x = random_complex(L, 7 * order + r.flag);
            std::vector<nkp32fc> fwd(L), inv(L), back(L);
            ASSERT_EQ(fftForwardComplex32f(x.data(), fwd.data(), f.s, f.work.p), nkpStatusOk);
            ASSERT_EQ(fftInverseComplex32f(x.data(), inv.data(), f.s, f.work.p), nkpStatusOk);
            EXPECT_LT(error_vs_dft(fwd, x, -1, r.fwd ? factor : 1.0), fft_bound(order));
            EXPECT_LT(error_vs_dft(inv, x, +1, r.inv ? factor : 1.0), fft_bound(order));
            if (r.sqrt) {
                ASSERT_EQ(fftInverseComplex32f(fwd.data(), back.data(), f.s, f.work.p), nkpStatusOk);
                double err = 0;
                for (int i = 0; i < L; ++i) err = std::max(err, std::abs(cd(back[i].re - x[i].re, back[i].im - x[i].im)));
                EXPECT_LT(err, 2 * fft_bound(order));
            }
        }
    }
}

// The split form gives the interleaved form's values bit for bit, forward
// and (with the parts exchanged) inverse.
TEST(FftSplit, AgreesBitForBitWithInterleaved) {
    for (int order = 0; order <= 17; ++order) {
        SCOPED_TRACE(order);
        const int L = 1 << order;
        FloatFft fi(order, kDivFwdByN), fs(order, kDivFwdByN, 5, true);
        const std::vector<nkp32fc> x = random_complex(L, 300 + order);
        std::vector<float> re(L), im(L), ore(L), oim(L), ire(L), iim(L);
        for (int i = 0; i < L; ++i) re[i] = x[i].re, im[i] = x[i].im;
        std::vector<nkp32fc> out(L), inv(L);
        ASSERT_EQ(fftForwardComplex32f(x.data(), out.data(), fi.s, fi.work.p), nkpStatusOk);
        ASSERT_EQ(fftForwardSplit32f(re.data(), im.data(), ore.data(), oim.data(), fs.s, fs.work.p), nkpStatusOk);
        ASSERT_EQ(fftInverseComplex32f(x.data(), inv.data(), fi.s, fi.work.p), nkpStatusOk);
        ASSERT_EQ(fftInverseSplit32f(re.data(), im.data(), ire.data(), iim.data(), fs.s, nullptr), nkpStatusOk);
        for (int i = 0; i < L; ++i) {
            ASSERT_TRUE(out[i].re == ore[i] && out[i].im == oim[i]) << i;
            ASSERT_TRUE(inv[i].re == ire[i] && inv[i].im == iim[i]) << i;
        }
    }
}

// The 16-bit FFT: the DFT times 2^-scaleFactor, rounded and saturated.
TEST(Fft16s, ScaledRoundedAndSaturatedDft) {
    const struct {
        int order, scale, amplitude;
    } rows[] = {{0, 0, 30000}, {0, -1, 30000}, {1, 1, 30000},  {2, 2, 30000},   {3, 3, 30000}, {4, 4, 30000},
                {5, 5, 20000}, {6, 6, 20000},  {9, 9, 20000},  {12, 12, 20000}, {4, 0, 3000},  {7, 3, 100},
                {4, 0, 32767}};  // saturates
    for (const auto& r : rows) {
        SCOPED_TRACE(::testing::Message() << "order " << r.order << " sf " << r.scale);
        const int L = 1 << r.order;
        int specSize, initSize, bufSize;
        ASSERT_EQ(fftSizesComplex16s(r.order, kNoDivByAny, 0, &specSize, &initSize, &bufSize), nkpStatusOk);
        SizedBuffer spec(specSize, 3), init(initSize), work(bufSize, 9);
        FftSpecComplex16s* s = nullptr;
        ASSERT_EQ(fftInitComplex16s(&s, r.order, kNoDivByAny, 0, spec.p, init.p), nkpStatusOk);
        std::mt19937 rng(r.order * 31 + r.scale);
        std::uniform_int_distribution<int> d(-r.amplitude, r.amplitude);
        std::vector<nkp16sc> x(L), y(L), via_null(L);
        std::vector<cd> xd(L);
        for (int i = 0; i < L; ++i) {
            x[i] = {int16_t(d(rng)), int16_t(d(rng))};
            xd[i] = cd(x[i].re, x[i].im);
        }
        ASSERT_EQ(fftForwardComplex16sScaled(x.data(), y.data(), s, r.scale, work.p), nkpStatusOk);
        ASSERT_EQ(fftForwardComplex16sScaled(x.data(), via_null.data(), s, r.scale, nullptr), nkpStatusOk);
        const std::vector<cd> X = nkptest::dft_reference(xd);
        const double f = std::ldexp(1.0, -r.scale);
        for (int k = 0; k < L; ++k) {
            ASSERT_NEAR(y[k].re, std::clamp(X[k].real() * f, -32768.0, 32767.0), 1.0) << k;
            ASSERT_NEAR(y[k].im, std::clamp(X[k].imag() * f, -32768.0, 32767.0), 1.0) << k;
            ASSERT_TRUE(y[k].re == via_null[k].re && y[k].im == via_null[k].im);
        }
    }
}

}  // namespace
