// Transforms beside their peers: the complex float FFT of 2^4 .. 2^12 points
// and the forward and inverse MDCT of N = 2048, 256, 36 and 12, each beside
// FFTW (single precision, measured plans; its MDCT is an N/4-point FFT
// between the same pre- and post-rotation as ours) and FFmpeg's libavutil
// transforms (av_tx float FFT and MDCT, full-length inverse).
#include "nkpac.h"
#include "transform/engine.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#if defined(NKPAC_BENCH_FFTW)
#include <fftw3.h>
#endif
#if defined(NKPAC_BENCH_AVUTIL)
extern "C" {
#include <libavutil/mem.h>
#include <libavutil/tx.h>
}
#endif

namespace {

using namespace nkp::fft;

std::vector<float> noise(size_t n, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> d(-1.0f, 1.0f);
    std::vector<float> v(n);
    for (auto& x : v) x = d(rng);
    return v;
}

// A 64-byte-aligned float array.
struct Floats {
    float* p;
    explicit Floats(size_t n) : p(static_cast<float*>(::operator new[](n * sizeof(float) + 64, std::align_val_t{64}))) {
        std::memset(p, 0, n * sizeof(float));
    }
    ~Floats() { ::operator delete[](p, std::align_val_t{64}); }
    Floats(const Floats&) = delete;
    Floats& operator=(const Floats&) = delete;
};

// ---- FFT ----------------------------------------------------------------------

void BM_Fft_nkpac(benchmark::State& state) {
    const int order = static_cast<int>(state.range(0)), L = 1 << order;
    FftSpecComplex32f* spec = nullptr;
    fftCreateComplex32f(&spec, order, kNoDivByAny, 0);
    int workSize = 0;
    fftWorkSizeComplex32f(spec, &workSize);
    std::vector<uint8_t> work(static_cast<size_t>(workSize) + 1);
    const std::vector<float> x = noise(2 * L, 1);
    Floats in(2 * L), out(2 * L);
    std::memcpy(in.p, x.data(), sizeof(float) * 2 * L);
    for (auto _ : state) {
        fftForwardComplex32f(reinterpret_cast<nkp32fc*>(in.p), reinterpret_cast<nkp32fc*>(out.p), spec, work.data());
        benchmark::DoNotOptimize(out.p);
    }
    fftDestroyComplex32f(spec);
}
BENCHMARK(BM_Fft_nkpac)->DenseRange(4, 12);

#if defined(NKPAC_BENCH_FFTW)
void BM_Fft_fftw(benchmark::State& state) {
    const int L = 1 << state.range(0);
    auto* in = fftwf_alloc_complex(L);
    auto* out = fftwf_alloc_complex(L);
    fftwf_plan plan = fftwf_plan_dft_1d(L, in, out, FFTW_FORWARD, FFTW_MEASURE);
    const std::vector<float> x = noise(2 * L, 1);
    std::memcpy(in, x.data(), sizeof(float) * 2 * L);
    for (auto _ : state) {
        fftwf_execute(plan);
        benchmark::DoNotOptimize(out);
    }
    fftwf_destroy_plan(plan);
    fftwf_free(in);
    fftwf_free(out);
}
BENCHMARK(BM_Fft_fftw)->DenseRange(4, 12);
#endif

#if defined(NKPAC_BENCH_AVUTIL)
void BM_Fft_ffmpeg(benchmark::State& state) {
    const int L = 1 << state.range(0);
    AVTXContext* ctx = nullptr;
    av_tx_fn fn = nullptr;
    const float scale = 1.0f;
    if (av_tx_init(&ctx, &fn, AV_TX_FLOAT_FFT, 0, L, &scale, 0) < 0) {
        state.SkipWithError("av_tx_init failed");
        return;
    }
    Floats in(2 * L), out(2 * L);
    const std::vector<float> x = noise(2 * L, 1);
    std::memcpy(in.p, x.data(), sizeof(float) * 2 * L);
    for (auto _ : state) {
        fn(ctx, out.p, in.p, sizeof(AVComplexFloat));
        benchmark::DoNotOptimize(out.p);
    }
    av_tx_uninit(&ctx);
}
BENCHMARK(BM_Fft_ffmpeg)->DenseRange(4, 12);
#endif

// ---- MDCT ---------------------------------------------------------------------

void mdct_lengths(benchmark::internal::Benchmark* b) {
    for (int n : {2048, 256, 36, 12}) b->Arg(n);
}

void BM_MdctFwd_nkpac(benchmark::State& state) {
    const int N = static_cast<int>(state.range(0));
    nkpsMDCTFwdSpec_32f* spec = nullptr;
    nkpsMDCTFwdInitAlloc_32f(&spec, N);
    int bufSize = 0;
    nkpsMDCTFwdGetBufSize_32f(spec, &bufSize);
    std::vector<uint8_t> work(static_cast<size_t>(bufSize));
    const std::vector<float> x = noise(N, 2);
    Floats in(N), out(N / 2);
    std::memcpy(in.p, x.data(), sizeof(float) * N);
    for (auto _ : state) {
        nkpsMDCTFwd_32f(in.p, out.p, spec, work.data());
        benchmark::DoNotOptimize(out.p);
    }
    nkpsMDCTFwdFree_32f(spec);
}
BENCHMARK(BM_MdctFwd_nkpac)->Apply(mdct_lengths);

void BM_MdctInv_nkpac(benchmark::State& state) {
    const int N = static_cast<int>(state.range(0));
    nkpsMDCTInvSpec_32f* spec = nullptr;
    nkpsMDCTInvInitAlloc_32f(&spec, N);
    int bufSize = 0;
    nkpsMDCTInvGetBufSize_32f(spec, &bufSize);
    std::vector<uint8_t> work(static_cast<size_t>(bufSize));
    const std::vector<float> x = noise(N / 2, 3);
    Floats in(N / 2), out(N);
    std::memcpy(in.p, x.data(), sizeof(float) * N / 2);
    for (auto _ : state) {
        nkpsMDCTInv_32f(in.p, out.p, spec, work.data());
        benchmark::DoNotOptimize(out.p);
    }
    nkpsMDCTInvFree_32f(spec);
}
BENCHMARK(BM_MdctInv_nkpac)->Apply(mdct_lengths);

#if defined(NKPAC_BENCH_FFTW)
// The MDCT through FFTW: fold and pre-rotate into N/4 complex values,
// an in-place N/4-point FFT, post-rotate; the same steps and table as ours.
struct FftwMdct {
    int N;
    std::vector<float> ts, tc;
    fftwf_complex* z;
    fftwf_plan plan;
    FftwMdct(int n, bool inverse) : N(n), ts(n / 4), tc(n / 4) {
        const double scale = inverse ? 1.0 / std::sqrt(n / 2.0) : std::sqrt(2.0);
        for (int j = 0; j < n / 4; ++j) {
            const double theta = 2.0 * 3.14159265358979323846 * (j + 0.125) / n;
            ts[j] = float(scale * std::sin(theta));
            tc[j] = float(scale * std::cos(theta));
        }
        z = fftwf_alloc_complex(n / 4);
        plan = fftwf_plan_dft_1d(n / 4, z, z, FFTW_FORWARD, FFTW_MEASURE);
    }
    ~FftwMdct() {
        fftwf_destroy_plan(plan);
        fftwf_free(z);
    }
    void forward(const float* x, float* y) {
        const int N4 = N / 4, h = (N4 + 1) / 2;
        for (int k = 0; k < N4; ++k) {
            const int n = 2 * k;
            float re, im;
            if (k < h) {
                re = -x[3 * N / 4 + n] - x[3 * N / 4 - 1 - n];
                im = x[N / 4 - 1 - n] - x[N / 4 + n];
            } else {
                re = x[n - N / 4] - x[3 * N / 4 - 1 - n];
                im = -x[5 * N / 4 - 1 - n] - x[N / 4 + n];
            }
            z[k][0] = tc[k] * re + ts[k] * im;
            z[k][1] = tc[k] * im - ts[k] * re;
        }
        fftwf_execute(plan);
        for (int k = 0; k < N4; ++k) {
            const float a = z[k][0], b = z[k][1];
            y[2 * k] = tc[k] * a + ts[k] * b;
            y[N / 2 - 1 - 2 * k] = ts[k] * a - tc[k] * b;
        }
    }
    void inverse(const float* X, float* y) {
        const int N4 = N / 4, h = (N4 + 1) / 2;
        for (int k = 0; k < N4; ++k) {
            const float re = X[2 * k], im = X[N / 2 - 1 - 2 * k];
            z[k][0] = tc[k] * re + ts[k] * im;
            z[k][1] = tc[k] * im - ts[k] * re;
        }
        fftwf_execute(plan);
        for (int k = 0; k < N4; ++k) {
            const float a = z[k][0], b = z[k][1];
            const float P = tc[k] * a + ts[k] * b, Q = tc[k] * b - ts[k] * a;
            if (k < h) {
                y[3 * N / 4 + 2 * k] = -P;
                y[3 * N / 4 - 1 - 2 * k] = -P;
                y[N / 4 - 1 - 2 * k] = -Q;
                y[N / 4 + 2 * k] = Q;
            } else {
                y[2 * k - N / 4] = P;
                y[3 * N / 4 - 1 - 2 * k] = -P;
                y[5 * N / 4 - 1 - 2 * k] = Q;
                y[N / 4 + 2 * k] = Q;
            }
        }
    }
};

void BM_MdctFwd_fftw(benchmark::State& state) {
    const int N = static_cast<int>(state.range(0));
    FftwMdct m(N, false);
    const std::vector<float> x = noise(N, 2);
    Floats out(N / 2);
    for (auto _ : state) {
        m.forward(x.data(), out.p);
        benchmark::DoNotOptimize(out.p);
    }
}
BENCHMARK(BM_MdctFwd_fftw)->Apply(mdct_lengths);

void BM_MdctInv_fftw(benchmark::State& state) {
    const int N = static_cast<int>(state.range(0));
    FftwMdct m(N, true);
    const std::vector<float> x = noise(N / 2, 3);
    Floats out(N);
    for (auto _ : state) {
        m.inverse(x.data(), out.p);
        benchmark::DoNotOptimize(out.p);
    }
}
BENCHMARK(BM_MdctInv_fftw)->Apply(mdct_lengths);
#endif

#if defined(NKPAC_BENCH_AVUTIL)
void mdct_ffmpeg(benchmark::State& state, int inverse) {
    const int N = static_cast<int>(state.range(0));
    AVTXContext* ctx = nullptr;
    av_tx_fn fn = nullptr;
    const float scale = 1.0f;
    if (av_tx_init(&ctx, &fn, AV_TX_FLOAT_MDCT, inverse, N / 2, &scale, inverse ? AV_TX_FULL_IMDCT : 0) < 0) {
        state.SkipWithError("av_tx_init failed for this length");
        return;
    }
    const int inLen = inverse ? N / 2 : N, outLen = inverse ? N : N / 2;
    Floats in(inLen), out(outLen);
    const std::vector<float> x = noise(inLen, 4);
    std::memcpy(in.p, x.data(), sizeof(float) * inLen);
    for (auto _ : state) {
        fn(ctx, out.p, in.p, sizeof(float));
        benchmark::DoNotOptimize(out.p);
    }
    av_tx_uninit(&ctx);
}
void BM_MdctFwd_ffmpeg(benchmark::State& state) { mdct_ffmpeg(state, 0); }
void BM_MdctInv_ffmpeg(benchmark::State& state) { mdct_ffmpeg(state, 1); }
BENCHMARK(BM_MdctFwd_ffmpeg)->Apply(mdct_lengths);
BENCHMARK(BM_MdctInv_ffmpeg)->Apply(mdct_lengths);
#endif

}  // namespace
