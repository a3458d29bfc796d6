// The float MDCT exports: accuracy against direct double-precision sums,
// time-domain aliasing cancellation, in-place and null-buffer calls, sizes,
// statuses in their checking order, and the object life cycle.
#include "frame/exports.h"
#include "nkpac.h"
#include "nkpcore.h"
#include "transform/reference.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

using nkptest::SizedBuffer;

const int kLengths[] = {12, 36, 32, 64, 128, 256, 512, 1024, 2048, 4096, 8192};

// Peak-relative error bounds: the 12/36 networks, then the FFT route by length.
double forward_bound(int N) { return N < 32 ? 5e-7 : 6e-8 * (std::log2(double(N)) + 2); }

template <class Spec>
struct Made {
    SizedBuffer spec, init, work;
    Spec* s = nullptr;
    int bufSize = 0;
};

Made<nkpsMDCTFwdSpec_32f>* make_fwd(int N, int offset = 0) {
    int specSize, initSize, bufSize;
    EXPECT_EQ(nkpsMDCTFwdGetSize_32f(N, &specSize, &initSize, &bufSize), nkpStatusOk);
    auto* m = new Made<nkpsMDCTFwdSpec_32f>{SizedBuffer(specSize, offset), SizedBuffer(initSize, offset), SizedBuffer(0)};
    EXPECT_EQ(nkpsMDCTFwdInit_32f(&m->s, N, m->spec.p, m->init.p), nkpStatusOk);
    EXPECT_EQ(nkpsMDCTFwdGetBufSize_32f(m->s, &m->bufSize), nkpStatusOk);
    m->work = SizedBuffer(m->bufSize, offset);  // the smaller Init figure suffices
    return m;
}

Made<nkpsMDCTInvSpec_32f>* make_inv(int N, int offset = 0) {
    int specSize, initSize, bufSize;
    EXPECT_EQ(nkpsMDCTInvGetSize_32f(N, &specSize, &initSize, &bufSize), nkpStatusOk);
    auto* m = new Made<nkpsMDCTInvSpec_32f>{SizedBuffer(specSize, offset), SizedBuffer(initSize, offset), SizedBuffer(0)};
    EXPECT_EQ(nkpsMDCTInvInit_32f(&m->s, N, m->spec.p, m->init.p), nkpStatusOk);
    EXPECT_EQ(nkpsMDCTInvGetBufSize_32f(m->s, &m->bufSize), nkpStatusOk);
    m->work = SizedBuffer(m->bufSize, offset);
    return m;
}

TEST(MdctFwd32f, EveryLengthMatchesTheDefinition) {
    for (int N : kLengths) {
        SCOPED_TRACE(N);
        std::unique_ptr<Made<nkpsMDCTFwdSpec_32f>> m(make_fwd(N, N % 64));
        const std::vector<float> x = nkptest::random_floats(N, N);
        const std::vector<double> want = nkptest::mdct_forward_direct(x);
        std::vector<float> y(N / 2, 99.0f), viaNull(N / 2), viaEntry1(N / 2);
        ASSERT_EQ(nkpsMDCTFwd_32f(x.data(), y.data(), m->s, m->work.p), nkpStatusOk);
        const double err = nkptest::peak_relative_error(y, want, N / 2);
        EXPECT_LT(err, forward_bound(N));
        RecordProperty("N" + std::to_string(N), nkptest::sci(err));
        // A null buffer (allocated for the call) and the second table entry
        // give the same values.
        ASSERT_EQ(nkpsMDCTFwd_32f(x.data(), viaNull.data(), m->s, nullptr), nkpStatusOk);
        ASSERT_EQ(nkpt_nkpsMDCTFwd_32f[1](x.data(), viaEntry1.data(), m->s, m->work.p), nkpStatusOk);
        EXPECT_EQ(0, std::memcmp(y.data(), viaNull.data(), sizeof(float) * N / 2));
        EXPECT_EQ(0, std::memcmp(y.data(), viaEntry1.data(), sizeof(float) * N / 2));
        // In place: the coefficients land at the start of the buffer.
        std::vector<float> io = x;
        ASSERT_EQ(nkpsMDCTFwd_32f_I(io.data(), m->s, m->work.p), nkpStatusOk);
        EXPECT_EQ(0, std::memcmp(y.data(), io.data(), sizeof(float) * N / 2));
    }
}

TEST(MdctInv32f, EveryLengthMatchesTheDefinition) {
    for (int N : kLengths) {
        SCOPED_TRACE(N);
        std::unique_ptr<Made<nkpsMDCTInvSpec_32f>> m(make_inv(N, (3 * N) % 64));
        const std::vector<float> X = nkptest::random_floats(N / 2, N + 1);
        const std::vector<double> want = nkptest::mdct_inverse_direct(X);
        std::vector<float> y(N), viaNull(N);
        ASSERT_EQ(nkpsMDCTInv_32f(X.data(), y.data(), m->s, m->work.p), nkpStatusOk);
        const double err = nkptest::peak_relative_error(y, want, N);
        EXPECT_LT(err, forward_bound(N));
        RecordProperty("N" + std::to_string(N), nkptest::sci(err));
        ASSERT_EQ(nkpsMDCTInv_32f(X.data(), viaNull.data(), m->s, nullptr), nkpStatusOk);
        EXPECT_EQ(0, std::memcmp(y.data(), viaNull.data(), sizeof(float) * N));
        std::vector<float> io(N);
        std::copy(X.begin(), X.end(), io.begin());
        ASSERT_EQ(nkpsMDCTInv_32f_I(io.data(), m->s, m->work.p), nkpStatusOk);
        EXPECT_EQ(0, std::memcmp(y.data(), io.data(), sizeof(float) * N));
    }
}

TEST(MdctFwd32f, ImpulseOfLength12) {
    std::unique_ptr<Made<nkpsMDCTFwdSpec_32f>> m(make_fwd(12));
    float x[12] = {1.0f}, y[6];
    ASSERT_EQ(nkpsMDCTFwd_32f(x, y, m->s, m->work.p), nkpStatusOk);
    for (int k = 0; k < 6; ++k) EXPECT_NEAR(y[k], 2.0 * std::cos(2.0 * nkptest::kPi / 12 * 3.5 * (k + 0.5)), 1e-6);
}

// Forward then inverse: gain 1 with time-domain aliasing, for every length
// including those beyond the direct sums' reach.
TEST(Mdct32f, ForwardThenInverseAliasesAsExpected) {
    for (int N : {12, 36, 32, 256, 2048, 1 << 15, 1 << 17, 1 << 18}) {
        SCOPED_TRACE(N);
        std::unique_ptr<Made<nkpsMDCTFwdSpec_32f>> f(make_fwd(N));
        std::unique_ptr<Made<nkpsMDCTInvSpec_32f>> i(make_inv(N));
        const std::vector<float> x = nkptest::random_floats(N, 5 + N);
        std::vector<float> X(N / 2), y(N);
        ASSERT_EQ(nkpsMDCTFwd_32f(x.data(), X.data(), f->s, f->work.p), nkpStatusOk);
        ASSERT_EQ(nkpsMDCTInv_32f(X.data(), y.data(), i->s, i->work.p), nkpStatusOk);
        std::vector<double> want(N);
        for (int n = 0; n < N / 2; ++n) want[n] = double(x[n]) - x[N / 2 - 1 - n];
        for (int n = N / 2; n < N; ++n) want[n] = double(x[n]) + x[3 * N / 2 - 1 - n];
        EXPECT_LT(nkptest::peak_relative_error(y, want, N), 2 * forward_bound(N));
    }
}

// Half-overlapped blocks, sine-windowed before the forward and after the
// inverse transform, add up to the input.
TEST(Mdct32f, WindowedOverlapAddReconstructs) {
    for (int N : {12, 36, 64, 256, 2048}) {
        SCOPED_TRACE(N);
        std::unique_ptr<Made<nkpsMDCTFwdSpec_32f>> f(make_fwd(N));
        std::unique_ptr<Made<nkpsMDCTInvSpec_32f>> i(make_inv(N));
        const int hop = N / 2, blocks = 6, total = hop * (blocks + 1);
        const std::vector<float> x = nkptest::random_floats(total, 77 + N);
        std::vector<double> out(total, 0.0);
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
        EXPECT_LT(err, 2 * forward_bound(N));
        RecordProperty("N" + std::to_string(N), nkptest::sci(err));
    }
}

TEST(Mdct32f, AnySpecAndBufferAlignmentGivesTheSameResult) {
    for (int N : {36, 128, 1024}) {
        const std::vector<float> x = nkptest::random_floats(N, 3);
        std::vector<float> first(N / 2), y(N / 2);
        for (int offset : {0, 1, 8, 33, 63}) {
            std::unique_ptr<Made<nkpsMDCTFwdSpec_32f>> m(make_fwd(N, offset));
            ASSERT_EQ(nkpsMDCTFwd_32f(x.data(), y.data(), m->s, m->work.p), nkpStatusOk);
            if (offset == 0) first = y;
            EXPECT_EQ(0, std::memcmp(first.data(), y.data(), sizeof(float) * N / 2)) << N << " " << offset;
        }
    }
}

TEST(Mdct32f, SizesFollowTheFormulas) {
    for (int N : {12, 36}) {
        int s, i, b;
        ASSERT_EQ(nkpsMDCTFwdGetSize_32f(N, &s, &i, &b), nkpStatusOk);
        EXPECT_EQ(s, 4 * (N / 2) + 104 + 64);
        EXPECT_EQ(i, 0);
        EXPECT_EQ(b, 4 * N + 128);
        std::unique_ptr<Made<nkpsMDCTFwdSpec_32f>> m(make_fwd(N));
        EXPECT_EQ(m->bufSize, 4 * N + 64);
    }
    for (int k = 5; k <= 20; ++k) {
        SCOPED_TRACE(k);
        const int N = 1 << k, L = N / 4, order = k - 2;
        // The FFT figures for order log2(N/4), flag 8, hint 0.
        int S, I, B;
        if (order <= 5) {
            S = 200, I = 0, B = 0;
        } else if (order <= 15) {
            const int R = (L + 67) & ~63;
            S = ((8 * L + 71) & ~63) + R + 256;
            I = order >= 11 ? R + 64 : 0;
            B = ((8 * L + 63) & ~63) + 64;
        } else {
            continue;  // the large variant's own figures; Init checks them below
        }
        int s, i, b, si, ii, bi;
        ASSERT_EQ(nkpsMDCTFwdGetSize_32f(N, &s, &i, &b), nkpStatusOk);
        ASSERT_EQ(nkpsMDCTInvGetSize_32f(N, &si, &ii, &bi), nkpStatusOk);
        EXPECT_EQ(s, 4 * (N / 2) + 104 + 64 + S + 64);
        EXPECT_EQ(i, I);
        EXPECT_EQ(b, 4 * N + B + 64 + 128);
        EXPECT_EQ(s, si);
        EXPECT_EQ(b, bi);
        ASSERT_EQ(nkpsMDCTFwdGetSize_16s(N, &s, &i, &b), nkpStatusOk);
        int S16, I16, B16;
        if (order <= 3) {
            const int R = (L + 67) & ~63;
            S16 = ((8 * L + 63) & ~63) + R + 192, I16 = (((L / 4) * 2 + 65) & ~63) + 64, B16 = 8 * L + 64;
        } else {
            S16 = S + 192, I16 = I + 64, B16 = B + 8 * L + 64;
        }
        EXPECT_EQ(s, 2 * (N / 2) + 168 + S16 + 64);
        EXPECT_EQ(i, I16);
        EXPECT_EQ(b, N + std::max(4 * N, B16) + 64);
        // Init records 4N + B + 64, smaller than the GetSize figure.
        std::unique_ptr<Made<nkpsMDCTFwdSpec_32f>> m(make_fwd(N));
        EXPECT_EQ(m->bufSize, 4 * N + B + 64);
    }
}

TEST(Mdct32f, StatusesInCheckingOrder) {
    int s, i, b;
    struct SizeRow {
        int len;
        bool null;
        nkpStatus want;
    };
    const SizeRow sizeRows[] = {{16, true, nkpStatusNullPointer}, {16, false, nkpStatusBadSize},
                                {0, false, nkpStatusBadSize},     {-32, false, nkpStatusBadSize},
                                {24, false, nkpStatusBadSize},    {48, false, nkpStatusBadSize},
                                {12, false, nkpStatusOk},         {32, false, nkpStatusOk}};
    for (const SizeRow& r : sizeRows) {
        EXPECT_EQ(nkpsMDCTFwdGetSize_32f(r.len, &s, r.null ? nullptr : &i, &b), r.want) << r.len;
        EXPECT_EQ(nkpsMDCTInvGetSize_32f(r.len, &s, &i, r.null ? nullptr : &b), r.want) << r.len;
    }

    alignas(64) static uint8_t mem[8192], init[1024];
    nkpsMDCTFwdSpec_32f* const sentinel = reinterpret_cast<nkpsMDCTFwdSpec_32f*>(&init[8]);
    nkpsMDCTFwdSpec_32f* out = sentinel;
    // Float Init: the length before the pointers; memInit only for 2^k.
    EXPECT_EQ(nkpsMDCTFwdInit_32f(nullptr, 16, nullptr, nullptr), nkpStatusBadSize);
    EXPECT_EQ(nkpsMDCTFwdInit_32f(nullptr, 64, mem, init), nkpStatusNullPointer);
    EXPECT_EQ(nkpsMDCTFwdInit_32f(&out, 64, nullptr, init), nkpStatusNullPointer);
    EXPECT_EQ(nkpsMDCTFwdInit_32f(&out, 64, mem, nullptr), nkpStatusNullPointer);
    EXPECT_EQ(out, sentinel);
    EXPECT_EQ(nkpsMDCTFwdInit_32f(&out, 36, mem, nullptr), nkpStatusOk);
    EXPECT_EQ(nkpsMDCTFwdInitAlloc_32f(nullptr, 20), nkpStatusBadSize);
    EXPECT_EQ(nkpsMDCTFwdInitAlloc_32f(nullptr, 32), nkpStatusNullPointer);
    nkpsMDCTInvSpec_32f* inv = nullptr;
    EXPECT_EQ(nkpsMDCTInvInit_32f(nullptr, 100, nullptr, nullptr), nkpStatusBadSize);
    EXPECT_EQ(nkpsMDCTInvInit_32f(&inv, 12, nullptr, nullptr), nkpStatusNullPointer);

    // Transforms: spec pointer, tag, then data pointers.
    float x[36] = {}, y[36];
    nkpsMDCTFwdSpec_32f* fwd = out;
    auto* asInv = reinterpret_cast<nkpsMDCTInvSpec_32f*>(fwd);
    EXPECT_EQ(nkpsMDCTFwd_32f(nullptr, nullptr, nullptr, nullptr), nkpStatusNullPointer);
    EXPECT_EQ(nkpsMDCTInv_32f(nullptr, nullptr, asInv, nullptr), nkpStatusWrongObject);
    EXPECT_EQ(nkpsMDCTFwd_32f(x, nullptr, fwd, nullptr), nkpStatusNullPointer);
    EXPECT_EQ(nkpsMDCTFwd_32f_I(nullptr, fwd, nullptr), nkpStatusNullPointer);
    EXPECT_EQ(nkpsMDCTFwd_32f(x, y, fwd, nullptr), nkpStatusOk);
    EXPECT_EQ(nkpsMDCTInvGetBufSize_32f(asInv, &b), nkpStatusWrongObject);
    EXPECT_EQ(nkpsMDCTFwdGetBufSize_32f(fwd, nullptr), nkpStatusNullPointer);
    EXPECT_EQ(nkpsMDCTInvFree_32f(asInv), nkpStatusWrongObject);
    EXPECT_EQ(nkpsMDCTFwdFree_32f(nullptr), nkpStatusNullPointer);

    // Free clears the tag: everything after it sees a foreign object.
    EXPECT_EQ(nkpsMDCTFwdFree_32f(fwd), nkpStatusOk);
    EXPECT_EQ(nkpsMDCTFwdFree_32f(fwd), nkpStatusWrongObject);
    EXPECT_EQ(nkpsMDCTFwd_32f(x, y, fwd, nullptr), nkpStatusWrongObject);
    EXPECT_EQ(nkpsMDCTFwdGetBufSize_32f(fwd, &b), nkpStatusWrongObject);

    // A null buffer whose allocation fails.
    std::unique_ptr<Made<nkpsMDCTFwdSpec_32f>> m(make_fwd(256));
    nkpcoreFailMallocAfter(0);
    EXPECT_EQ(nkpsMDCTFwd_32f(x, y, m->s, nullptr), nkpStatusNoMemory);
    nkpcoreFailMallocAfter(-1);
}

TEST(Mdct32f, InitAllocAndFreeReleaseEverything) {
    const long live = nkpcoreLiveAllocations();
    for (int N : {12, 36, 32, 2048, 1 << 14}) {
        SCOPED_TRACE(N);
        nkpsMDCTFwdSpec_32f* f = nullptr;
        nkpsMDCTInvSpec_32f* i = nullptr;
        ASSERT_EQ(nkpsMDCTFwdInitAlloc_32f(&f, N), nkpStatusOk);
        ASSERT_EQ(nkpsMDCTInvInitAlloc_32f(&i, N), nkpStatusOk);
        // Same results as a plan built by Init.
        std::unique_ptr<Made<nkpsMDCTFwdSpec_32f>> m(make_fwd(N));
        const std::vector<float> x = nkptest::random_floats(N, 1);
        std::vector<float> a(N / 2), b(N / 2), y(N);
        ASSERT_EQ(nkpsMDCTFwd_32f(x.data(), a.data(), f, nullptr), nkpStatusOk);
        ASSERT_EQ(nkpsMDCTFwd_32f(x.data(), b.data(), m->s, m->work.p), nkpStatusOk);
        EXPECT_EQ(0, std::memcmp(a.data(), b.data(), sizeof(float) * N / 2));
        ASSERT_EQ(nkpsMDCTInv_32f(a.data(), y.data(), i, nullptr), nkpStatusOk);
        EXPECT_EQ(nkpsMDCTFwdFree_32f(f), nkpStatusOk);
        EXPECT_EQ(nkpsMDCTInvFree_32f(i), nkpStatusOk);
        EXPECT_EQ(nkpcoreLiveAllocations(), live);
        // Every failing allocation step releases what it had and leaves the
        // out pointer alone.
        for (long n = 0; n < 4; ++n) {
            nkpcoreFailMallocAfter(n);
            nkpsMDCTFwdSpec_32f* g = reinterpret_cast<nkpsMDCTFwdSpec_32f*>(&n);
            const nkpStatus st = nkpsMDCTFwdInitAlloc_32f(&g, N);
            nkpcoreFailMallocAfter(-1);
            if (st == nkpStatusOk) {
                nkpsMDCTFwdFree_32f(g);
                break;
            }
            EXPECT_EQ(st, nkpStatusNoMemory);
            EXPECT_EQ(g, reinterpret_cast<nkpsMDCTFwdSpec_32f*>(&n));
            EXPECT_EQ(nkpcoreLiveAllocations(), live);
        }
    }
}

}  // namespace
