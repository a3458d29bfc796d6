// The FFT engine: accuracy against direct double-precision sums, the
// normalisation flags, the split and 16-bit forms, sizes, statuses in their
// checking order, and the work-buffer rules.
#include "nkpcore.h"
#include "transform/engine.h"
#include "transform/reference.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>

namespace {

using namespace nkp::fft;
using nkptest::cd;
using nkptest::SizedBuffer;

// A plan built by Init in exact-size caller memory.
struct FloatFft {
    SizedBuffer spec, init, work;
    FftSpecComplex32f* s = nullptr;
    int workSize = 0;
    FloatFft(int order, int flag, int offset = 0, bool split = false)
        : spec(sizes(order, flag, 0), offset), init(sizes(order, flag, 1), offset), work(sizes(order, flag, 2), offset) {
        const nkpStatus st = split ? fftInitSplit32f(&s, order, flag, 0, spec.p, init.p)
                                   : fftInitComplex32f(&s, order, flag, 0, spec.p, init.p);
        EXPECT_EQ(st, nkpStatusOk);
        workSize = sizes(order, flag, 2);
    }
    static int sizes(int order, int flag, int which) {
        int v[3] = {0, 0, 0};
        EXPECT_EQ(fftSizesComplex32f(order, flag, 0, &v[0], &v[1], &v[2]), nkpStatusOk);
        return v[which];
    }
};

std::vector<nkp32fc> random_complex(int n, uint32_t seed) {
    const std::vector<float> f = nkptest::random_floats(2 * static_cast<size_t>(n), seed);
    std::vector<nkp32fc> v(n);
    for (int i = 0; i < n; ++i) v[i] = {f[2 * i], f[2 * i + 1]};
    return v;
}

// Inverse DFT (kernel e^(+2 pi i nk/L)) through the conjugates.
std::vector<cd> idft_reference(std::vector<cd> x) {
    for (auto& v : x) v = std::conj(v);
    x = nkptest::dft_reference(x);
    for (auto& v : x) v = std::conj(v);
    return x;
}

std::vector<cd> to_cd(const std::vector<nkp32fc>& v) {
    std::vector<cd> r(v.size());
    for (size_t i = 0; i < v.size(); ++i) r[i] = cd(v[i].re, v[i].im);
    return r;
}

double complex_error(const std::vector<nkp32fc>& got, const std::vector<cd>& want, double scale = 1.0) {
    double err = 0, peak = 0;
    for (size_t i = 0; i < want.size(); ++i) {
        err = std::max(err, std::abs(cd(got[i].re, got[i].im) - want[i] * scale));
        peak = std::max(peak, std::abs(want[i] * scale));
    }
    return err / peak;
}

// Relative error bound of the float FFT of order p (peak-relative).
double fft_bound(int order) { return 6e-8 * (order + 2); }

TEST(FftFloat, EveryOrderMatchesTheDefinition) {
    for (int order = 0; order <= 18; ++order) {
        SCOPED_TRACE(order);
        const int L = 1 << order;
        FloatFft f(order, kNoDivByAny, order % 7);
        const std::vector<nkp32fc> x = random_complex(L, 100 + order);
        const std::vector<cd> want = nkptest::dft_reference(to_cd(x));
        std::vector<nkp32fc> out(L), inplace = x;
        ASSERT_EQ(fftForwardComplex32f(x.data(), out.data(), f.s, f.work.p), nkpStatusOk);
        const double err = complex_error(out, want);
        EXPECT_LT(err, fft_bound(order));
        RecordProperty("order" + std::to_string(order), nkptest::sci(err));
        // In place gives the same values bit for bit.
        ASSERT_EQ(fftForwardComplex32f(inplace.data(), inplace.data(), f.s, f.work.p), nkpStatusOk);
        EXPECT_EQ(0, std::memcmp(inplace.data(), out.data(), sizeof(nkp32fc) * L));
    }
}

TEST(FftFloat, FlagsScaleForwardAndInverse) {
    struct Row {
        int flag;
        bool fwdScaled, invScaled, sqrt;
    };
    const Row rows[] = {{kDivFwdByN, true, false, false},
                        {kDivInvByN, false, true, false},
                        {kDivBySqrtN, true, true, true},
                        {kNoDivByAny, false, false, false}};
    for (int order : {0, 3, 6, 9, 16}) {
        for (const Row& r : rows) {
            SCOPED_TRACE(::testing::Message() << "order " << order << " flag " << r.flag);
            const int L = 1 << order;
            FloatFft f(order, r.flag);
            const double factor = r.sqrt ? 1.0 / std::sqrt(double(L)) : 1.0 / L;
            const std::vector<nkp32fc> x = random_complex(L, 7 * order + r.flag);
            std::vector<nkp32fc> fwd(L), inv(L);
            ASSERT_EQ(fftForwardComplex32f(x.data(), fwd.data(), f.s, f.work.p), nkpStatusOk);
            ASSERT_EQ(fftInverseComplex32f(x.data(), inv.data(), f.s, f.work.p), nkpStatusOk);
            EXPECT_LT(complex_error(fwd, nkptest::dft_reference(to_cd(x)), r.fwdScaled ? factor : 1.0),
                      fft_bound(order));
            EXPECT_LT(complex_error(inv, idft_reference(to_cd(x)), r.invScaled ? factor : 1.0),
                      fft_bound(order));
        }
    }
}

TEST(FftFloat, SqrtFlagMakesForwardAndInverseMutuallyInverse) {
    for (int order : {2, 7, 12}) {
        const int L = 1 << order;
        FloatFft f(order, kDivBySqrtN);
        const std::vector<nkp32fc> x = random_complex(L, order);
        std::vector<nkp32fc> y(L), back(L);
        fftForwardComplex32f(x.data(), y.data(), f.s, f.work.p);
        fftInverseComplex32f(y.data(), back.data(), f.s, f.work.p);
        EXPECT_LT(complex_error(back, to_cd(x)), fft_bound(order) * 2) << order;
    }
}

TEST(FftFloat, NormFactorsAreTheRefinedSinglePrecisionValues) {
    for (int order : {0, 1, 5, 10, 17}) {
        FftSpecComplex32f* s = nullptr;
        int specSize, initSize, workSize;
        fftSizesComplex32f(order, kDivBySqrtN, 0, &specSize, &initSize, &workSize);
        SizedBuffer spec(specSize), init(initSize);
        ASSERT_EQ(fftInitComplex32f(&s, order, kDivBySqrtN, 0, spec.p, init.p), nkpStatusOk);
        const float x = float(1 << order);
        const float r = _mm_cvtss_f32(_mm_rsqrt_ss(_mm_set_ss(x)));
        EXPECT_EQ(s->normFactor, r * -0.5f * (x * r * r - 3.0f));
        EXPECT_NEAR(s->normFactor, 1.0 / std::sqrt(double(x)), 1e-7 / std::sqrt(double(x)) * 4);
        ASSERT_EQ(fftInitComplex32f(&s, order, kDivFwdByN, 0, spec.p, init.p), nkpStatusOk);
        EXPECT_EQ(s->normFactor, 1.0f / x);
    }
}

TEST(FftSplit, AgreesBitForBitWithInterleaved) {
    for (int order = 0; order <= 17; ++order) {
        SCOPED_TRACE(order);
        const int L = 1 << order;
        FloatFft fi(order, kDivFwdByN), fs(order, kDivFwdByN, 5, true);
        const std::vector<nkp32fc> x = random_complex(L, 300 + order);
        std::vector<float> re(L), im(L), ore(L), oim(L);
        for (int i = 0; i < L; ++i) re[i] = x[i].re, im[i] = x[i].im;
        std::vector<nkp32fc> out(L);
        ASSERT_EQ(fftForwardComplex32f(x.data(), out.data(), fi.s, fi.work.p), nkpStatusOk);
        ASSERT_EQ(fftForwardSplit32f(re.data(), im.data(), ore.data(), oim.data(), fs.s, fs.work.p), nkpStatusOk);
        for (int i = 0; i < L; ++i) {
            ASSERT_EQ(out[i].re, ore[i]) << i;
            ASSERT_EQ(out[i].im, oim[i]) << i;
        }
        // The inverse exchanges the parts on both sides.
        std::vector<nkp32fc> inv(L);
        ASSERT_EQ(fftInverseComplex32f(x.data(), inv.data(), fi.s, fi.work.p), nkpStatusOk);
        ASSERT_EQ(fftInverseSplit32f(re.data(), im.data(), ore.data(), oim.data(), fs.s, fs.work.p), nkpStatusOk);
        for (int i = 0; i < L; ++i) ASSERT_EQ(inv[i].re, ore[i]);
    }
}

TEST(FftSizes, MatchTheFormulas) {
    for (int order = 0; order <= 15; ++order) {
        SCOPED_TRACE(order);
        int s, i, b;
        ASSERT_EQ(fftSizesComplex32f(order, kNoDivByAny, 0, &s, &i, &b), nkpStatusOk);
        if (order <= 5) {
            EXPECT_EQ(s, 200);
            EXPECT_EQ(i, 0);
            EXPECT_EQ(b, 0);
            continue;
        }
        const int L = 1 << order, R = (L + 67) & ~63;
        EXPECT_EQ(s, ((8 * L + 71) & ~63) + R + 256);
        EXPECT_EQ(i, order >= 11 ? R + 64 : 0);
        EXPECT_EQ(b, ((8 * L + 63) & ~63) + 64);
        // The work size read back from a finished plan is the same.
        FloatFft f(order, kNoDivByAny);
        int w = 0;
        ASSERT_EQ(fftWorkSizeComplex32f(f.s, &w), nkpStatusOk);
        EXPECT_EQ(w, b);
    }
    int s16, i16, b16;
    EXPECT_EQ(fftSizesComplex16s(28, kNoDivByAny, 0, &s16, &i16, &b16), nkpStatusBadSize);  // beyond 32-bit sizes
    for (int order = 0; order <= 27; ++order) {
        int s, i, b;
        ASSERT_EQ(fftSizesComplex16s(order, kNoDivByAny, 0, &s16, &i16, &b16), nkpStatusOk);
        ASSERT_EQ(fftSizesComplex32f(order, kNoDivByAny, 0, &s, &i, &b), nkpStatusOk);
        const int L = 1 << order;
        if (order == 0) {
            EXPECT_EQ(s16, 136);
            EXPECT_EQ(i16 + b16, 0);
        } else if (order <= 3) {
            const int R = (L + 67) & ~63;
            EXPECT_EQ(s16, ((8 * L + 63) & ~63) + R + 192);
            EXPECT_EQ(i16, (((L / 4) * 2 + 65) & ~63) + 64);
            EXPECT_EQ(b16, 8 * L + 64);
            // Another hint takes the float sizes.
            ASSERT_EQ(fftSizesComplex16s(order, kNoDivByAny, 2, &s16, &i16, &b16), nkpStatusOk);
            EXPECT_EQ(s16, s + 192);
        } else if (order < 26) {
            EXPECT_EQ(s16, s + 192);
            EXPECT_EQ(i16, i + 64);
            EXPECT_EQ(b16, b + 8 * L + 64);
        }
    }
}

TEST(FftStatuses, SizesCheckOrder) {
    struct Row {
        int order, flag;
        bool nullOut;
        nkpStatus want;
    };
    const Row rows[] = {
        {31, 3, true, nkpStatusBadOrder},   // order above 30 before everything
        {30, 3, true, nkpStatusNullPointer}, // 29 and 30 only after pointers and flag
        {29, 3, false, nkpStatusBadFlag},
        {29, 8, false, nkpStatusBadOrder},
        {27, 8, false, nkpStatusOk},
        {5, 0, false, nkpStatusBadFlag},
        {5, 16, false, nkpStatusBadFlag},
    };
    for (const Row& r : rows) {
        int s, i, b;
        EXPECT_EQ(fftSizesComplex32f(r.order, r.flag, 0, r.nullOut ? nullptr : &s, &i, &b), r.want) << r.order;
        EXPECT_EQ(fftSizesComplex16s(r.order, r.flag, 0, &s, r.nullOut ? nullptr : &i, &b), r.want) << r.order;
    }
}

TEST(FftStatuses, InitCheckOrderAndWhatFailuresLeave) {
    alignas(64) static uint8_t mem[1 << 16];
    alignas(64) static uint8_t init[4096];
    FftSpecComplex32f* const sentinel = reinterpret_cast<FftSpecComplex32f*>(&mem[8]);
    auto* header = reinterpret_cast<FftSpecComplex32f*>(mem);
    FftSpecComplex32f* out = sentinel;

    EXPECT_EQ(fftInitComplex32f(nullptr, 40, 3, 0, nullptr, nullptr), nkpStatusNullPointer);
    EXPECT_EQ(fftInitComplex32f(&out, 29, 8, 0, nullptr, nullptr), nkpStatusBadOrder);
    EXPECT_EQ(fftInitComplex32f(&out, 31, 8, 0, mem, init), nkpStatusBadOrder);
    EXPECT_EQ(fftInitComplex32f(&out, 4, 3, 0, nullptr, nullptr), nkpStatusNullPointer);
    // A bad flag clears the tag of the partly built header.
    header->tag = 77;
    EXPECT_EQ(fftInitComplex32f(&out, 4, 3, 0, mem, nullptr), nkpStatusBadFlag);
    EXPECT_EQ(header->tag, 0u);
    // Order 11 and above need the init buffer; the header stays tagged.
    EXPECT_EQ(fftInitComplex32f(&out, 11, 8, 0, mem, nullptr), nkpStatusNullPointer);
    EXPECT_EQ(header->tag, kTagComplex32f);
    EXPECT_EQ(out, sentinel);  // a failed Init never writes the out pointer
    EXPECT_EQ(fftInitComplex32f(&out, 10, 8, 0, mem, nullptr), nkpStatusOk);
    EXPECT_EQ(out, header);

    // The same order for the 16-bit and split forms.
    FftSpecComplex16s* out16 = nullptr;
    EXPECT_EQ(fftInitComplex16s(nullptr, 40, 3, 0, nullptr, nullptr), nkpStatusNullPointer);
    EXPECT_EQ(fftInitComplex16s(&out16, 29, 8, 0, nullptr, nullptr), nkpStatusBadOrder);
    EXPECT_EQ(fftInitComplex16s(&out16, 3, 8, 0, nullptr, nullptr), nkpStatusNullPointer);
    EXPECT_EQ(fftInitComplex16s(&out16, 3, 5, 0, mem, nullptr), nkpStatusBadFlag);
    EXPECT_EQ(fftInitComplex16s(&out16, 11, 8, 0, mem, nullptr), nkpStatusNullPointer);
    EXPECT_EQ(out16, nullptr);
    EXPECT_EQ(fftInitSplit32f(&out, 11, 8, 0, mem, nullptr), nkpStatusNullPointer);
    EXPECT_EQ(header->tag, kTagSplit32f);
}

TEST(FftStatuses, TransformsCheckPointersThenTag) {
    FloatFft f(6, kNoDivByAny);
    FloatFft split(6, kNoDivByAny, 0, true);
    std::vector<nkp32fc> x(64);
    std::vector<float> r(64);
    EXPECT_EQ(fftForwardComplex32f(nullptr, x.data(), f.s, nullptr), nkpStatusNullPointer);
    EXPECT_EQ(fftForwardComplex32f(x.data(), nullptr, f.s, nullptr), nkpStatusNullPointer);
    EXPECT_EQ(fftForwardComplex32f(x.data(), x.data(), nullptr, nullptr), nkpStatusNullPointer);
    EXPECT_EQ(fftForwardComplex32f(x.data(), x.data(), split.s, nullptr), nkpStatusWrongObject);
    EXPECT_EQ(fftForwardSplit32f(r.data(), r.data(), r.data(), nullptr, split.s, nullptr), nkpStatusNullPointer);
    EXPECT_EQ(fftForwardSplit32f(r.data(), r.data(), r.data(), r.data(), f.s, nullptr), nkpStatusWrongObject);
    int w;
    EXPECT_EQ(fftWorkSizeComplex32f(split.s, &w), nkpStatusWrongObject);
    EXPECT_EQ(fftWorkSizeComplex32f(f.s, nullptr), nkpStatusNullPointer);
}

TEST(FftLifeCycle, CreateAndDestroy) {
    const long live = nkpcoreLiveAllocations();
    for (int order : {0, 6, 11, 16}) {
        FftSpecComplex32f* s = nullptr;
        ASSERT_EQ(fftCreateComplex32f(&s, order, kNoDivByAny, 0), nkpStatusOk);
        EXPECT_EQ(s->allocated, 1);
        EXPECT_EQ(nkpcoreLiveAllocations(), live + 1);  // the init buffer is gone again
        ASSERT_EQ(fftDestroyComplex32f(s), nkpStatusOk);
        EXPECT_EQ(nkpcoreLiveAllocations(), live);
        FftSpecComplex16s* s16 = nullptr;
        ASSERT_EQ(fftCreateComplex16s(&s16, order, kNoDivByAny, 0), nkpStatusOk);
        ASSERT_EQ(fftDestroyComplex16s(s16), nkpStatusOk);
        EXPECT_EQ(nkpcoreLiveAllocations(), live);
    }
    // Destroy clears the tag, so a second one fails.
    FloatFft f(7, kNoDivByAny);
    EXPECT_EQ(fftDestroyComplex32f(f.s), nkpStatusOk);
    EXPECT_EQ(f.s->tag, 0u);
    EXPECT_EQ(fftDestroyComplex32f(f.s), nkpStatusWrongObject);
    // Create passes allocation failures on and leaks nothing.
    for (long n = 0; n < 2; ++n) {
        nkpcoreFailMallocAfter(n);
        FftSpecComplex32f* s = nullptr;
        EXPECT_EQ(fftCreateComplex32f(&s, 12, kNoDivByAny, 0), nkpStatusNoMemory);
        nkpcoreFailMallocAfter(-1);
        EXPECT_EQ(s, nullptr);
        EXPECT_EQ(nkpcoreLiveAllocations(), live);
    }
}

TEST(FftWork, NullBufferAllocatesForTheCallOnly) {
    for (int order : {4, 8, 17}) {
        SCOPED_TRACE(order);
        const int L = 1 << order;
        FloatFft f(order, kNoDivByAny);
        const std::vector<nkp32fc> x = random_complex(L, 9);
        std::vector<nkp32fc> a(L), b(L);
        const long total = nkpcoreTotalAllocations(), live = nkpcoreLiveAllocations();
        ASSERT_EQ(fftForwardComplex32f(x.data(), a.data(), f.s, f.work.p), nkpStatusOk);
        EXPECT_EQ(nkpcoreTotalAllocations(), total);  // a given buffer means no allocation
        ASSERT_EQ(fftForwardComplex32f(x.data(), b.data(), f.s, nullptr), nkpStatusOk);
        EXPECT_EQ(nkpcoreTotalAllocations(), total + (f.workSize > 0 ? 1 : 0));
        EXPECT_EQ(nkpcoreLiveAllocations(), live);
        EXPECT_EQ(0, std::memcmp(a.data(), b.data(), sizeof(nkp32fc) * L));
        if (f.workSize > 0) {
            nkpcoreFailMallocAfter(0);
            EXPECT_EQ(fftForwardComplex32f(x.data(), b.data(), f.s, nullptr), nkpStatusNoMemory);
            nkpcoreFailMallocAfter(-1);
        }
    }
}

TEST(FftWork, AnyBufferAlignmentGivesTheSameResult) {
    for (int order : {5, 9, 16}) {
        const int L = 1 << order;
        const std::vector<nkp32fc> x = random_complex(L, 11);
        std::vector<nkp32fc> first(L), y(L);
        for (int offset : {0, 1, 4, 17, 63}) {
            FloatFft f(order, kDivFwdByN, offset);
            ASSERT_EQ(fftForwardComplex32f(x.data(), y.data(), f.s, f.work.p), nkpStatusOk);
            if (offset == 0) first = y;
            EXPECT_EQ(0, std::memcmp(first.data(), y.data(), sizeof(nkp32fc) * L)) << order << " " << offset;
        }
    }
}

// ---- 16-bit ---------------------------------------------------------------

TEST(Fft16s, ScaledAndRoundedDft) {
    struct Row {
        int order, scale, amplitude;
    };
    const Row rows[] = {{0, 0, 30000}, {0, -1, 30000}, {1, 1, 30000}, {2, 2, 30000}, {3, 3, 30000},
                        {4, 4, 30000}, {5, 5, 20000}, {6, 6, 20000}, {9, 9, 20000}, {12, 12, 20000},
                        {4, 0, 3000},  {7, 3, 100}};
    for (const Row& r : rows) {
        SCOPED_TRACE(::testing::Message() << "order " << r.order << " sf " << r.scale);
        const int L = 1 << r.order;
        int specSize, initSize, bufSize;
        ASSERT_EQ(fftSizesComplex16s(r.order, kNoDivByAny, 0, &specSize, &initSize, &bufSize), nkpStatusOk);
        SizedBuffer spec(specSize, 3), init(initSize), work(bufSize, 9);
        FftSpecComplex16s* s = nullptr;
        ASSERT_EQ(fftInitComplex16s(&s, r.order, kNoDivByAny, 0, spec.p, init.p), nkpStatusOk);
        std::mt19937 rng(r.order * 31 + r.scale);
        std::uniform_int_distribution<int> d(-r.amplitude, r.amplitude);
        std::vector<nkp16sc> x(L), y(L);
        std::vector<cd> xd(L);
        for (int i = 0; i < L; ++i) {
            x[i] = {int16_t(d(rng)), int16_t(d(rng))};
            xd[i] = cd(x[i].re, x[i].im);
        }
        ASSERT_EQ(fftForwardComplex16sScaled(x.data(), y.data(), s, r.scale, work.p), nkpStatusOk);
        const std::vector<cd> X = nkptest::dft_reference(xd);
        const double f = std::ldexp(1.0, -r.scale);
        for (int k = 0; k < L; ++k) {
            const double wr = std::min(32767.0, std::max(-32768.0, X[k].real() * f));
            const double wi = std::min(32767.0, std::max(-32768.0, X[k].imag() * f));
            ASSERT_NEAR(y[k].re, wr, 1.0) << k;
            ASSERT_NEAR(y[k].im, wi, 1.0) << k;
        }
    }
}

TEST(Fft16s, SaturatesAndAllocatesWithoutBuffer) {
    FftSpecComplex16s* s = nullptr;
    ASSERT_EQ(fftCreateComplex16s(&s, 4, kNoDivByAny, 0), nkpStatusOk);
    std::vector<nkp16sc> x(16, nkp16sc{32767, -32768}), y(16);
    const long live = nkpcoreLiveAllocations();
    ASSERT_EQ(fftForwardComplex16sScaled(x.data(), y.data(), s, 0, nullptr), nkpStatusOk);
    EXPECT_EQ(nkpcoreLiveAllocations(), live);
    EXPECT_EQ(y[0].re, 32767);
    EXPECT_EQ(y[0].im, -32768);
    EXPECT_EQ(y[1].re, 0);
    int w;
    ASSERT_EQ(fftWorkSizeComplex16s(s, &w), nkpStatusOk);
    EXPECT_EQ(w, 8 * 16 + 64);
    EXPECT_EQ(fftForwardComplex16sScaled(x.data(), nullptr, s, 0, nullptr), nkpStatusNullPointer);
    EXPECT_EQ(fftForwardComplex16sScaled(x.data(), y.data(), reinterpret_cast<FftSpecComplex16s*>(y.data()), 0,
                                         nullptr),
              nkpStatusWrongObject);
    ASSERT_EQ(fftDestroyComplex16s(s), nkpStatusOk);
}

}  // namespace
