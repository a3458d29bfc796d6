// The vector utilities on codec-sized inputs. Both table entries of the
// two-path exports, plain C loops doing the same job, and mpg123's syn123
// (interleaving and float-to-16-bit conversion) where it is available.
#include "frame/exports.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#if defined(NKPAC_BENCH_SYN123)
#include <syn123.h>
#endif

namespace {

constexpr int kGranule = 576;
constexpr int kFrame = 1152;

std::mt19937& rng() {
    static std::mt19937 engine(7);
    return engine;
}

std::vector<float> random_floats(size_t n, float lo, float hi) {
    std::uniform_real_distribution<float> dist(lo, hi);
    std::vector<float> v(n);
    for (float& x : v) x = dist(rng());
    return v;
}

// Quantised lines as a real granule has them: mostly small, a few large.
std::vector<int16_t> quantised_lines(size_t n) {
    std::geometric_distribution<int> mag(0.35);
    std::vector<int16_t> v(n);
    for (size_t i = 0; i < n; ++i) {
        const int m = std::min(mag(rng()), 8191);
        v[i] = static_cast<int16_t>((i & 1) ? -m : m);
    }
    return v;
}

// MPEG-1 44.1 kHz long-block band edges (22 bands, 576 lines).
const int32_t kLongBands[23] = {0,  4,  8,  12, 16, 20, 24, 30, 36, 44,  52,  62,
                                74, 90, 110, 134, 162, 196, 238, 288, 342, 418, 576};

// ---- Join: 2 channels x 1152 samples ------------------------------------------

void BM_Join_2x1152(benchmark::State& state) {
    const int path = static_cast<int>(state.range(0));
    auto l = random_floats(kFrame, -40000, 40000), r = random_floats(kFrame, -40000, 40000);
    const float* src[2] = {l.data(), r.data()};
    std::vector<int16_t> dst(2 * kFrame);
    for (auto _ : state) {
        nkpt_nkpsJoin_32f16s_D2L[path](src, 2, kFrame, dst.data());
        benchmark::DoNotOptimize(dst.data());
    }
    state.SetItemsProcessed(state.iterations() * 2 * kFrame);
}
BENCHMARK(BM_Join_2x1152)->Arg(0)->Arg(1)->ArgName("path");

void BM_Join_2x1152_PlainLoop(benchmark::State& state) {
    auto l = random_floats(kFrame, -40000, 40000), r = random_floats(kFrame, -40000, 40000);
    std::vector<int16_t> dst(2 * kFrame);
    for (auto _ : state) {
        for (int i = 0; i < kFrame; ++i) {
            for (int c = 0; c < 2; ++c) {
                const float x = c ? r[i] : l[i];
                dst[2 * i + c] = static_cast<int16_t>(std::lrintf(std::fmin(std::fmax(x, -32768.0f), 32767.0f)));
            }
        }
        benchmark::DoNotOptimize(dst.data());
    }
    state.SetItemsProcessed(state.iterations() * 2 * kFrame);
}
BENCHMARK(BM_Join_2x1152_PlainLoop);

#if defined(NKPAC_BENCH_SYN123)
// syn123: interleave the float channels, then convert (its scale is +-1.0).
void BM_Join_2x1152_Syn123(benchmark::State& state) {
    auto l = random_floats(kFrame, -1.2f, 1.2f), r = random_floats(kFrame, -1.2f, 1.2f);
    void* src[2] = {l.data(), r.data()};
    std::vector<float> mixed(2 * kFrame);
    std::vector<int16_t> dst(2 * kFrame);
    for (auto _ : state) {
        syn123_interleave(mixed.data(), src, 2, sizeof(float), kFrame);
        size_t written = 0, clipped = 0;
        syn123_conv(dst.data(), MPG123_ENC_SIGNED_16, dst.size() * 2, mixed.data(), MPG123_ENC_FLOAT_32,
                    mixed.size() * 4, &written, &clipped, nullptr);
        benchmark::DoNotOptimize(dst.data());
    }
    state.SetItemsProcessed(state.iterations() * 2 * kFrame);
}
BENCHMARK(BM_Join_2x1152_Syn123);

void BM_Interleave16s_2x1152_Syn123(benchmark::State& state) {
    std::vector<int16_t> l(kFrame, 1), r(kFrame, 2), dst(2 * kFrame);
    void* src[2] = {l.data(), r.data()};
    for (auto _ : state) {
        syn123_interleave(dst.data(), src, 2, sizeof(int16_t), kFrame);
        benchmark::DoNotOptimize(dst.data());
    }
    state.SetItemsProcessed(state.iterations() * 2 * kFrame);
}
BENCHMARK(BM_Interleave16s_2x1152_Syn123);
#endif

void BM_Interleave16s_2x1152(benchmark::State& state) {
    std::vector<int16_t> l(kFrame, 1), r(kFrame, 2), dst(2 * kFrame);
    const int16_t* src[2] = {l.data(), r.data()};
    for (auto _ : state) {
        nkpsInterleave_16s(src, 2, kFrame, dst.data());
        benchmark::DoNotOptimize(dst.data());
    }
    state.SetItemsProcessed(state.iterations() * 2 * kFrame);
}
BENCHMARK(BM_Interleave16s_2x1152);

void BM_Deinterleave32f_2x1152(benchmark::State& state) {
    auto src = random_floats(2 * kFrame, -1, 1);
    std::vector<float> l(kFrame), r(kFrame);
    float* dst[2] = {l.data(), r.data()};
    for (auto _ : state) {
        nkpsDeinterleave_32f(src.data(), 2, kFrame, dst);
        benchmark::DoNotOptimize(l.data());
    }
    state.SetItemsProcessed(state.iterations() * 2 * kFrame);
}
BENCHMARK(BM_Deinterleave32f_2x1152);

// ---- Scale over 49 bands (AAC long window at 44.1 kHz) ------------------------------

const int32_t kAacLongBands[50] = {0,   4,   8,   12,  16,  20,  24,  28,  32,  36,  40,  48,  56,
                                   64,  72,  80,  88,  96,  108, 120, 132, 144, 160, 176, 196, 216,
                                   240, 264, 292, 320, 352, 384, 416, 448, 480, 512, 544, 576, 608,
                                   640, 672, 704, 736, 768, 800, 832, 864, 896, 928, 1024};

void BM_Scale_49Bands(benchmark::State& state) {
    const int path = static_cast<int>(state.range(0));
    auto factor = random_floats(49, 0.999f, 1.001f);
    auto data = random_floats(1024, -1, 1);
    for (auto _ : state) {
        nkpt_nkpsScale_32f_I[path](data.data(), factor.data(), kAacLongBands, 49);
        benchmark::DoNotOptimize(data.data());
    }
    state.SetItemsProcessed(state.iterations() * 1024);
}
BENCHMARK(BM_Scale_49Bands)->Arg(0)->Arg(1)->ArgName("path");

// ---- power laws ------------------------------------------------------------------

void BM_Pow34_32f_576(benchmark::State& state) {
    auto src = random_floats(kGranule, -30000, 30000);
    std::vector<float> dst(kGranule);
    for (auto _ : state) {
        nkpsPow34_32f(src.data(), dst.data(), kGranule);
        benchmark::DoNotOptimize(dst.data());
    }
    state.SetItemsProcessed(state.iterations() * kGranule);
}
BENCHMARK(BM_Pow34_32f_576);

// What an encoder writes without the library: sqrt(x * sqrt(x)).
void BM_Pow34_32f_576_SqrtLoop(benchmark::State& state) {
    auto src = random_floats(kGranule, -30000, 30000);
    std::vector<float> dst(kGranule);
    for (auto _ : state) {
        for (int i = 0; i < kGranule; ++i) {
            const float a = std::fabs(src[i]);
            dst[i] = std::sqrt(a * std::sqrt(a));
        }
        benchmark::DoNotOptimize(dst.data());
    }
    state.SetItemsProcessed(state.iterations() * kGranule);
}
BENCHMARK(BM_Pow34_32f_576_SqrtLoop);

void BM_Pow34_32f16s_576(benchmark::State& state) {
    auto src = random_floats(kGranule, -3e6f, 3e6f);
    std::vector<int16_t> dst(kGranule);
    for (auto _ : state) {
        nkpsPow34_32f16s(src.data(), dst.data(), kGranule);
        benchmark::DoNotOptimize(dst.data());
    }
    state.SetItemsProcessed(state.iterations() * kGranule);
}
BENCHMARK(BM_Pow34_32f16s_576);

void BM_Pow34_16s_Sfs_576(benchmark::State& state) {
    auto src = quantised_lines(kGranule);
    std::vector<int16_t> dst(kGranule);
    for (auto _ : state) {
        nkpsPow34_16s_Sfs(src.data(), 2, dst.data(), 0, kGranule);
        benchmark::DoNotOptimize(dst.data());
    }
    state.SetItemsProcessed(state.iterations() * kGranule);
}
BENCHMARK(BM_Pow34_16s_Sfs_576);

void BM_Pow43_16s32f_576(benchmark::State& state) {
    auto src = quantised_lines(kGranule);
    std::vector<float> dst(kGranule);
    for (auto _ : state) {
        nkpsPow43_16s32f(src.data(), dst.data(), kGranule);
        benchmark::DoNotOptimize(dst.data());
    }
    state.SetItemsProcessed(state.iterations() * kGranule);
}
BENCHMARK(BM_Pow43_16s32f_576);

// The same without a table: |x| * cbrt(|x|) per line.
void BM_Pow43_16s32f_576_CbrtLoop(benchmark::State& state) {
    auto src = quantised_lines(kGranule);
    std::vector<float> dst(kGranule);
    for (auto _ : state) {
        for (int i = 0; i < kGranule; ++i) {
            const float m = std::fabs(float(src[i]));
            dst[i] = std::copysign(m * std::cbrt(m), float(src[i]));
        }
        benchmark::DoNotOptimize(dst.data());
    }
    state.SetItemsProcessed(state.iterations() * kGranule);
}
BENCHMARK(BM_Pow43_16s32f_576_CbrtLoop);

void BM_Pow43Scale_Granule(benchmark::State& state) {
    auto src = quantised_lines(kGranule);
    std::vector<int32_t> dst(kGranule);
    std::vector<int16_t> sf(22);
    for (auto& s : sf) s = static_cast<int16_t>(std::uniform_int_distribution<int>(0, 15)(rng()));
    for (auto _ : state) {
        nkpsPow43Scale_16s32s_Sf(src.data(), dst.data(), sf.data(), kLongBands, 180, 22, 1, 0);
        benchmark::DoNotOptimize(dst.data());
    }
    state.SetItemsProcessed(state.iterations() * kGranule);
}
BENCHMARK(BM_Pow43Scale_Granule);

// ---- float building ------------------------------------------------------------------

void BM_MakeFloat_1024(benchmark::State& state) {
    std::vector<int16_t> mant(1024), exp(1024);
    for (int i = 0; i < 1024; ++i) mant[i] = int16_t(i * 31 - 16000), exp[i] = int16_t(i % 16);
    std::vector<float> dst(1024);
    for (auto _ : state) {
        nkpsMakeFloat_16s32f(mant.data(), exp.data(), 1024, dst.data());
        benchmark::DoNotOptimize(dst.data());
    }
    state.SetItemsProcessed(state.iterations() * 1024);
}
BENCHMARK(BM_MakeFloat_1024);

void BM_CalcSF_49(benchmark::State& state) {
    std::vector<int16_t> sf(49);
    for (int i = 0; i < 49; ++i) sf[i] = int16_t(100 + i % 60);
    std::vector<float> dst(49);
    for (auto _ : state) {
        nkpsCalcSF_16s32f(sf.data(), 100, dst.data(), 49);
        benchmark::DoNotOptimize(dst.data());
    }
    state.SetItemsProcessed(state.iterations() * 49);
}
BENCHMARK(BM_CalcSF_49);

// One row of a partition spreading matrix: 63 evaluations.
void BM_Spread_Row63(benchmark::State& state) {
    nkp16s out[63];
    for (auto _ : state) {
        for (int j = 0; j < 63; ++j) nkpsSpread_16s_Sfs(30, static_cast<nkp16s>(j * 8), -3, &out[j]);
        benchmark::DoNotOptimize(out);
    }
    state.SetItemsProcessed(state.iterations() * 63);
}
BENCHMARK(BM_Spread_Row63);

}  // namespace
