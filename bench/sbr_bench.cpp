// SBR prediction coefficients for one frame: 64 QMF channels, 38 steps
// (40 time slots: 32 slots of a 1024-sample frame plus the 6 + 2 the
// high-frequency generator looks back), for each variant, next to a plain
// per-channel loop doing the same job in the same precision. No Debian peer
// exports this step (FFmpeg's and FAAD2's versions are internal).
#include "frame/exports.h"

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

namespace {

constexpr int kBands = 64;
constexpr int kLen = 38;
constexpr int kSlots = kLen + 2;

struct Frame {
    std::vector<std::vector<float>> re, im;
    std::vector<std::vector<nkp32fc>> c;
    std::vector<const float*> re_slots, im_slots;
    std::vector<const nkp32fc*> c_slots;
    Frame() : re(kSlots, std::vector<float>(kBands)), im(re), c(kSlots, std::vector<nkp32fc>(kBands)) {
        std::mt19937 rng(38);
        std::normal_distribution<float> g(0.0f, 1000.0f);
        for (int n = 0; n < kSlots; ++n) {
            for (int k = 0; k < kBands; ++k) {
                re[n][k] = g(rng);
                im[n][k] = g(rng);
                c[n][k] = {re[n][k], im[n][k]};
            }
            re_slots.push_back(re[n].data());
            im_slots.push_back(im[n].data());
            c_slots.push_back(c[n].data());
        }
    }
};

// ---- plain loops: one channel at a time, the sums, then the coefficients ----

void plain_real(const float* const* x, float* a0, float* a1) {
    for (int k = 0; k < kBands; ++k) {
        float p01 = 0, p02 = 0, p11 = 0, p12 = 0, p22 = 0;
        for (int n = 0; n < kLen; ++n) {
            p01 += x[n + 2][k] * x[n + 1][k];
            p02 += x[n + 2][k] * x[n][k];
            p11 += x[n + 1][k] * x[n + 1][k];
            p12 += x[n + 1][k] * x[n][k];
            p22 += x[n][k] * x[n][k];
        }
        const float d = p22 * p11 - 0.99999905f * (p12 * p12);
        float b1 = d * d > 0 ? (p01 * p12 - p02 * p11) / d : 0.0f;
        float b0 = p11 > 0 ? -(p01 + b1 * p12) / p11 : 0.0f;
        if (b0 * b0 >= 16 || b1 * b1 >= 16) b0 = b1 = 0;
        a0[k] = b0;
        a1[k] = b1;
    }
}

void plain_complex(const nkp32fc* const* x, nkp32fc* a0, nkp32fc* a1) {
    for (int k = 0; k < kBands; ++k) {
        float p01r = 0, p01i = 0, p02r = 0, p02i = 0, p11 = 0, p12r = 0, p12i = 0, p22 = 0;
        for (int n = 0; n < kLen; ++n) {
            const nkp32fc a = x[n + 2][k], b = x[n + 1][k], c = x[n][k];
            p01r += a.re * b.re + a.im * b.im;
            p01i += a.im * b.re - a.re * b.im;
            p02r += a.re * c.re + a.im * c.im;
            p02i += a.im * c.re - a.re * c.im;
            p11 += b.re * b.re + b.im * b.im;
            p12r += b.re * c.re + b.im * c.im;
            p12i += b.im * c.re - b.re * c.im;
            p22 += c.re * c.re + c.im * c.im;
        }
        const float d = p22 * p11 - 0.99999905f * (p12r * p12r + p12i * p12i);
        float b1r = 0, b1i = 0, b0r = 0, b0i = 0;
        if (d * d > 0) {
            b1r = ((p01r * p12r - p01i * p12i) - p02r * p11) / d;
            b1i = ((p01r * p12i + p01i * p12r) - p02i * p11) / d;
        }
        if (p11 > 0) {
            b0r = -(p01r + (b1r * p12r + b1i * p12i)) / p11;
            b0i = -(p01i + (b1i * p12r - b1r * p12i)) / p11;
        }
        if (b0r * b0r + b0i * b0i >= 16 || b1r * b1r + b1i * b1i >= 16) b0r = b0i = b1r = b1i = 0;
        a0[k] = {b0r, b0i};
        a1[k] = {b1r, b1i};
    }
}

void BM_PredictCoef_Real(benchmark::State& state) {
    Frame f;
    std::vector<float> a0(kBands), a1(kBands);
    for (auto _ : state) {
        nkpsPredictCoef_SBR_R_32f_D2L(f.re_slots.data(), a0.data(), a1.data(), kBands, kLen);
        benchmark::DoNotOptimize(a0.data());
    }
    state.SetItemsProcessed(state.iterations() * kBands);
}
BENCHMARK(BM_PredictCoef_Real);

void BM_PredictCoef_Real_PlainLoop(benchmark::State& state) {
    Frame f;
    std::vector<float> a0(kBands), a1(kBands);
    for (auto _ : state) {
        plain_real(f.re_slots.data(), a0.data(), a1.data());
        benchmark::DoNotOptimize(a0.data());
    }
    state.SetItemsProcessed(state.iterations() * kBands);
}
BENCHMARK(BM_PredictCoef_Real_PlainLoop);

void BM_PredictCoef_Complex(benchmark::State& state) {
    Frame f;
    std::vector<nkp32fc> a0(kBands), a1(kBands);
    for (auto _ : state) {
        nkpsPredictCoef_SBR_C_32fc_D2L(f.c_slots.data(), a0.data(), a1.data(), kBands, kLen);
        benchmark::DoNotOptimize(a0.data());
    }
    state.SetItemsProcessed(state.iterations() * kBands);
}
BENCHMARK(BM_PredictCoef_Complex);

void BM_PredictCoef_ComplexSplit(benchmark::State& state) {
    Frame f;
    std::vector<float> a0r(kBands), a0i(kBands), a1r(kBands), a1i(kBands);
    for (auto _ : state) {
        nkpsPredictCoef_SBR_C_32f_D2L(f.re_slots.data(), f.im_slots.data(), a0r.data(), a0i.data(), a1r.data(),
                                      a1i.data(), kBands, kLen);
        benchmark::DoNotOptimize(a0r.data());
    }
    state.SetItemsProcessed(state.iterations() * kBands);
}
BENCHMARK(BM_PredictCoef_ComplexSplit);

void BM_PredictCoef_Complex_PlainLoop(benchmark::State& state) {
    Frame f;
    std::vector<nkp32fc> a0(kBands), a1(kBands);
    for (auto _ : state) {
        plain_complex(f.c_slots.data(), a0.data(), a1.data());
        benchmark::DoNotOptimize(a0.data());
    }
    state.SetItemsProcessed(state.iterations() * kBands);
}
BENCHMARK(BM_PredictCoef_Complex_PlainLoop);

}  // namespace
