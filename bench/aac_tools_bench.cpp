// The AAC spectral tools, one call each on frames shaped like a 128 kbit/s
// stereo stream at 44.1 kHz (quantised lines mostly small and empty above
// about 16 kHz, M/S on most bands, intensity in the top bands, TNS over the
// upper spectrum), and the predictor on 1024 lines. Both table entries of
// the two-path inverse quantisation.
//
// Instruction counts: run under callgrind with collection off at start
// (tools/aac_tools_instructions.sh does it); each benchmark then counts 100
// calls of its tool once, between collection toggles, without the copies
// that restore its input, and dumps them under its own name.
#include "frame/exports.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#define NKPAC_BENCH_CALLGRIND 1
#endif

namespace {

constexpr int kSamplingIndex = 4;  // 44.1 kHz: 49 long bands, 14 short
constexpr int kLongBands = 49;
constexpr int kShortBands = 14;
constexpr int kCountedCalls = 100;

const int16_t kSwbLong[kLongBands + 1] = {0,   4,   8,   12,  16,  20,  24,  28,  32,  36,  40,  48,  56,
                                          64,  72,  80,  88,  96,  108, 120, 132, 144, 160, 176, 196, 216,
                                          240, 264, 292, 320, 352, 384, 416, 448, 480, 512, 544, 576, 608,
                                          640, 672, 704, 736, 768, 800, 832, 864, 896, 928, 1024};
const int16_t kSwbShort[kShortBands + 1] = {0, 4, 8, 12, 16, 20, 28, 36, 44, 56, 68, 80, 96, 112, 128};

std::mt19937& rng() {
    static std::mt19937 engine(128);
    return engine;
}

// Counts kCountedCalls calls of `call` once per benchmark under callgrind;
// `restore` runs before each, outside the count.
void count_instructions(const char* name, const std::function<void()>& restore, const std::function<void()>& call) {
#if defined(NKPAC_BENCH_CALLGRIND)
    static std::vector<std::string> done;
    if (!RUNNING_ON_VALGRIND || std::find(done.begin(), done.end(), name) != done.end()) return;
    done.emplace_back(name);
    CALLGRIND_ZERO_STATS;
    for (int i = 0; i < kCountedCalls; ++i) {
        restore();
        CALLGRIND_TOGGLE_COLLECT;
        call();
        CALLGRIND_TOGGLE_COLLECT;
    }
    CALLGRIND_DUMP_STATS_AT(name);
#else
    (void)name;
    (void)restore;
    (void)call;
#endif
}

// One channel of a long frame: quantised lines whose typical size falls
// with frequency (geometric magnitudes, a few escapes), nothing above line
// 740; per band the code book a coder would pick and a scale factor near
// 100.
struct LongFrame {
    std::vector<int32_t> q = std::vector<int32_t>(1024, 0);
    std::vector<uint16_t> sf = std::vector<uint16_t>(kLongBands);
    std::vector<uint8_t> cb = std::vector<uint8_t>(kLongBands);
    explicit LongFrame(int max_line = 740) {
        for (int i = 0; i < max_line; ++i) {
            const double mean = 6.0 * std::exp(-i / 250.0) + 0.3;
            std::geometric_distribution<int> mag(1.0 / (1.0 + mean));
            int m = mag(rng());
            if (rng()() % 200 == 0) m = 16 + static_cast<int>(rng()() % 200);  // escapes
            q[i] = (rng()() & 1) ? -m : m;
        }
        for (int b = 0; b < kLongBands; ++b) {
            int largest = 0;
            for (int i = kSwbLong[b]; i < kSwbLong[b + 1]; ++i) largest = std::max(largest, std::abs(q[i]));
            cb[b] = largest == 0 ? 0 : largest <= 1 ? 1 : largest <= 2 ? 3 : largest <= 4 ? 5 : largest <= 7 ? 7
                    : largest <= 12 ? 9 : 11;
            sf[b] = static_cast<uint16_t>(95 + rng()() % 20);
        }
    }
};

// Eight short windows in three groups (3, 1, 4), in the stream's order.
struct ShortFrame {
    std::vector<int32_t> q = std::vector<int32_t>(1024, 0);
    std::vector<uint16_t> sf = std::vector<uint16_t>(3 * kShortBands);
    std::vector<uint8_t> cb = std::vector<uint8_t>(3 * kShortBands);
    const int32_t groups[3] = {3, 1, 4};
    ShortFrame() {
        int line = 0;
        for (int g = 0; g < 3; ++g) {
            for (int b = 0; b < kShortBands; ++b) {
                const int n = (kSwbShort[b + 1] - kSwbShort[b]) * groups[g];
                std::geometric_distribution<int> mag(1.0 / (1.0 + 4.0 * std::exp(-b / 4.0)));
                for (int i = 0; i < n; ++i, ++line) {
                    const int m = kSwbShort[b] < 92 ? mag(rng()) : 0;
                    q[line] = (rng()() & 1) ? -m : m;
                }
                cb[g * kShortBands + b] = kSwbShort[b] < 92 ? 11 : 0;
                sf[g * kShortBands + b] = static_cast<uint16_t>(95 + rng()() % 20);
            }
            line = (g == 0 ? 3 : g == 1 ? 4 : 8) * 128;
        }
    }
};

const int32_t kOneGroup[1] = {1};

void BM_QuantInv_Long(benchmark::State& state) {
    const int path = static_cast<int>(state.range(0));
    const LongFrame f;
    alignas(16) int32_t lines[1024];
    auto restore = [&] { std::memcpy(lines, f.q.data(), sizeof lines); };
    auto call = [&] {
        nkpt_nkpsQuantInv_AAC_32s_I[path](lines, f.sf.data(), 1, kOneGroup, kLongBands, f.cb.data(), kSamplingIndex,
                                          1024);
    };
    count_instructions(path ? "QuantInv_Long_path1" : "QuantInv_Long_path0", restore, call);
    for (auto _ : state) {
        restore();
        call();
        benchmark::DoNotOptimize(lines);
    }
}
BENCHMARK(BM_QuantInv_Long)->Arg(0)->Arg(1);

void BM_QuantInv_Short(benchmark::State& state) {
    const int path = static_cast<int>(state.range(0));
    const ShortFrame f;
    alignas(16) int32_t lines[1024];
    auto restore = [&] { std::memcpy(lines, f.q.data(), sizeof lines); };
    auto call = [&] {
        nkpt_nkpsQuantInv_AAC_32s_I[path](lines, f.sf.data(), 3, f.groups, kShortBands, f.cb.data(), kSamplingIndex,
                                          128);
    };
    count_instructions(path ? "QuantInv_Short_path1" : "QuantInv_Short_path0", restore, call);
    for (auto _ : state) {
        restore();
        call();
        benchmark::DoNotOptimize(lines);
    }
}
BENCHMARK(BM_QuantInv_Short)->Arg(0)->Arg(1);

// The copy each in-place benchmark makes to restore its input, for scale.
void BM_Copy1024Lines(benchmark::State& state) {
    const LongFrame f;
    alignas(16) int32_t lines[1024];
    for (auto _ : state) {
        std::memcpy(lines, f.q.data(), sizeof lines);
        benchmark::DoNotOptimize(lines);
    }
}
BENCHMARK(BM_Copy1024Lines);

// M/S with mask 1, the flag set on four bands in five; the right channel's
// top bands are intensity bands (code book 14 or 15).
void BM_MsStereo_Long(benchmark::State& state) {
    const LongFrame l, r;
    std::vector<uint8_t> flags(60), cb = r.cb;
    for (int b = 0; b < kLongBands; ++b) flags[b] = b % 5 != 4;
    for (int b = 40; b < kLongBands; ++b) cb[b] = b % 2 ? 14 : 15;
    alignas(16) int32_t left[1024], right[1024];
    std::memcpy(left, l.q.data(), sizeof left);
    std::memcpy(right, r.q.data(), sizeof right);
    auto call = [&] {
        nkpsDecodeMsStereo_AAC_32s_I(left, right, 1, flags.data(), cb.data(), 1, kOneGroup, kLongBands,
                                     kSamplingIndex, 1024);
    };
    count_instructions("MsStereo_Long", [] {}, call);
    for (auto _ : state) {
        call();
        benchmark::DoNotOptimize(left);
        benchmark::DoNotOptimize(right);
    }
}
BENCHMARK(BM_MsStereo_Long);

// Intensity stereo in bands 40..48 (lines 672..1023).
void BM_IsStereo_Long(benchmark::State& state) {
    const LongFrame l(1024);
    std::vector<uint8_t> cb(kLongBands, 1);
    std::vector<uint16_t> pos(kLongBands, 0);
    for (int b = 40; b < kLongBands; ++b) {
        cb[b] = b % 3 ? 15 : 14;
        pos[b] = static_cast<uint16_t>(b - 44);
    }
    alignas(16) int32_t right[1024];
    auto call = [&] {
        nkpsDecodeIsStereo_AAC_32s(l.q.data(), right, pos.data(), cb.data(), 1, kOneGroup, kLongBands,
                                   kSamplingIndex, 1024);
    };
    count_instructions("IsStereo_Long", [] {}, call);
    for (auto _ : state) {
        call();
        benchmark::DoNotOptimize(right);
    }
}
BENCHMARK(BM_IsStereo_Long);

void BM_Deinterleave_Short(benchmark::State& state) {
    const ShortFrame f;
    alignas(16) int32_t dst[1024];
    auto call = [&] {
        nkpsDeinterleaveSpectrum_AAC_32s(f.q.data(), dst, 3, f.groups, kShortBands, kSamplingIndex, 128);
    };
    count_instructions("Deinterleave_Short", [] {}, call);
    for (auto _ : state) {
        call();
        benchmark::DoNotOptimize(dst);
    }
}
BENCHMARK(BM_Deinterleave_Short);

// The predictor on 1024 lines, trained on a few frames first so that its
// coefficients are live. Inverse: every band of 44.1 kHz below the
// prediction limit of 41 bands predicted (lines 0..671), the rest updated;
// forward: all lines.
std::vector<float> spectrum_frame(int t) {
    std::vector<float> x(1024);
    for (int i = 0; i < 1024; ++i) {
        x[i] = static_cast<float>(3000.0 * std::exp(-i / 300.0) * std::sin(0.3 * t + 0.7 * i) + (i % 7) - 3);
    }
    return x;
}

struct Predictor {
    std::vector<uint8_t> memory;
    nkpsFDPState_32f* state = nullptr;
    Predictor() {
        int size = 0;
        nkpsFDPGetSize_32f(1024, &size);
        memory.resize(size);
        nkpsFDPInit_32f(&state, 1024, memory.data());
        for (int t = 0; t < 20; ++t) {
            const std::vector<float> x = spectrum_frame(t);
            std::vector<float> out(1024);
            nkpsFDPFwd_32f(x.data(), out.data(), state);
        }
    }
};

void BM_FDPInv_1024(benchmark::State& state) {
    Predictor p;
    std::vector<int32_t> offsets(kSwbLong, kSwbLong + kLongBands + 1);
    std::vector<uint8_t> used(kLongBands, 0);
    for (int b = 0; b < 41; ++b) used[b] = 1;
    const std::vector<float> frame = spectrum_frame(21);
    alignas(16) float lines[1024];
    auto restore = [&] { std::memcpy(lines, frame.data(), sizeof lines); };
    auto call = [&] { nkpsFDPInv_32f_I(lines, offsets.data(), kLongBands, used.data(), p.state); };
    count_instructions("FDPInv_1024", restore, call);
    for (auto _ : state) {
        restore();
        call();
        benchmark::DoNotOptimize(lines);
    }
}
BENCHMARK(BM_FDPInv_1024);

void BM_FDPFwd_1024(benchmark::State& state) {
    Predictor p;
    const std::vector<float> frame = spectrum_frame(21);
    alignas(16) float out[1024];
    auto call = [&] { nkpsFDPFwd_32f(frame.data(), out, p.state); };
    count_instructions("FDPFwd_1024", [] {}, call);
    for (auto _ : state) {
        call();
        benchmark::DoNotOptimize(out);
    }
}
BENCHMARK(BM_FDPFwd_1024);

// TNS: one long-window filter of the given order over bands 12..48 (lines
// 56..927), as an encoder puts it over the upper spectrum; and eight short
// windows with one order-7 filter each.
void BM_TNS_Long(benchmark::State& state) {
    const int order = static_cast<int>(state.range(0));
    const LongFrame f(1024);
    alignas(16) int32_t lines[1024];
    for (int i = 0; i < 1024; ++i) lines[i] = f.q[i] * 20000;
    const int32_t n_filt[8] = {1}, length[8] = {37}, order_of[8] = {order}, coef_res[8] = {4}, direction[16] = {0};
    int8_t coef[60];
    for (int m = 0; m < order; ++m) coef[m] = static_cast<int8_t>((m * 5) % 9 - 4);
    auto call = [&] {
        nkpsDecodeTNS_AAC_32s_I(lines, n_filt, length, order_of, coef_res, coef, direction, kLongBands, 0,
                                kSamplingIndex, 1024);
    };
    count_instructions(order == 12 ? "TNS_Long_order12" : "TNS_Long_order8", [] {}, call);
    for (auto _ : state) {
        call();
        benchmark::DoNotOptimize(lines);
    }
}
BENCHMARK(BM_TNS_Long)->Arg(8)->Arg(12);

void BM_TNS_Short(benchmark::State& state) {
    const LongFrame f(1024);
    alignas(16) int32_t lines[1024];
    for (int i = 0; i < 1024; ++i) lines[i] = f.q[i] * 20000;
    const int32_t n_filt[8] = {1, 1, 1, 1, 1, 1, 1, 1}, length[8] = {10, 10, 10, 10, 10, 10, 10, 10},
                  order[8] = {7, 7, 7, 7, 7, 7, 7, 7}, coef_res[8] = {4, 4, 4, 4, 4, 4, 4, 4},
                  direction[16] = {0, 1, 0, 1, 0, 1, 0, 1};
    int8_t coef[60];
    for (int m = 0; m < 56; ++m) coef[m] = static_cast<int8_t>((m * 3) % 11 - 5);
    auto call = [&] {
        nkpsDecodeTNS_AAC_32s_I(lines, n_filt, length, order, coef_res, coef, direction, kShortBands, 0,
                                kSamplingIndex, 128);
    };
    count_instructions("TNS_Short_order7", [] {}, call);
    for (auto _ : state) {
        call();
        benchmark::DoNotOptimize(lines);
    }
}
BENCHMARK(BM_TNS_Short);

}  // namespace
