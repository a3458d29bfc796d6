// The vector family's two-path exports, Join (float channels to interleaved
// 16-bit PCM) and Scale (per-band factors): both table entries on the same
// random inputs, and each against a plain model.
#include "common/both_paths.h"
#include "vector/vector_test_util.h"

#include <algorithm>
#include <cfenv>
#include <cmath>
#include <limits>
#include <xmmintrin.h>

using nkptest::Buffer;
using nkptest::Outcome;

namespace {

// Clamp, then round to nearest with ties to even (independent of MXCSR).
int16_t join_model(float x) {
    if (std::isnan(x)) return 32767;
    const double c = x > 32767.0f ? 32767.0 : (x < -32768.0f ? -32768.0 : x);
    double r = std::floor(c);
    const double frac = c - r;
    if (frac > 0.5 || (frac == 0.5 && std::fmod(r, 2.0) != 0.0)) r += 1.0;
    return static_cast<int16_t>(r);
}

}  // namespace

// Every channel-count route, odd lengths, misaligned lanes, ties, saturation,
// infinities and NaN, under each rounding mode: the model's values, and the
// caller's rounding mode back on return.
void both_paths_nkpsJoin_32f16s_D2L() {
    const int modes[] = {FE_TONEAREST, FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO};
    const float specials[] = {2.5f, -2.5f, 3.5f, -0.5f, 32766.5f, -32768.5f, 40000.0f,
                              std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity(),
                              std::numeric_limits<float>::quiet_NaN()};
    for (int channels = 1; channels <= 9; ++channels) {
        for (int len : {1, 3, 8, 13, 1152}) {
            std::vector<Buffer<float>> lanes;
            std::vector<const float*> ptrs;
            for (int c = 0; c < channels; ++c) {
                lanes.emplace_back(len, size_t(4 * (c % 4)));
                for (int i = 0; i < len; ++i) lanes.back()[i] = nkptest::random_float(-40000.0f, 40000.0f);
                for (int i = 0; i < len && i < 10; ++i) lanes.back()[i] = specials[(i + c) % 10];
            }
            for (auto& l : lanes) ptrs.push_back(l.data());
            const int mode = modes[(channels + len) % 4];
            nkptest::expect_same_on_both_paths(
                [&](int path) {
                    Buffer<int16_t> out(size_t(channels) * len, 2 + 4 * path);
                    std::fesetround(mode);
                    const unsigned before = _mm_getcsr();
                    Outcome o;
                    o.status = nkpt_nkpsJoin_32f16s_D2L[path](ptrs.data(), channels, len, out.data());
                    const unsigned after = _mm_getcsr();
                    std::fesetround(FE_TONEAREST);
                    EXPECT_EQ(after & 0x6000, before & 0x6000) << "caller's rounding mode not restored";
                    for (int i = 0; i < len; ++i)
                        for (int c = 0; c < channels; ++c)
                            EXPECT_EQ(out[size_t(i) * channels + c], join_model(lanes[c][i])) << lanes[c][i];
                    return o.add(out.data(), out.size() * sizeof(int16_t));
                },
                std::to_string(channels) + " x " + std::to_string(len));
        }
    }
}

// Random band layouts (empty and reversed bands included) over misaligned
// data: the plain product, bit for bit, and values outside every band alone.
void both_paths_nkpsScale_32f_I() {
    for (int round = 0; round < 200; ++round) {
        const int bands = nkptest::random_int(1, 49);
        std::vector<int32_t> offset(bands + 1);
        offset[0] = nkptest::random_int(0, 3);
        for (int b = 1; b <= bands; ++b) offset[b] = std::max(0, offset[b - 1] + nkptest::random_int(-1, 23));
        const int32_t top = *std::max_element(offset.begin(), offset.end());
        std::vector<float> factor(bands);
        for (float& f : factor) f = nkptest::random_float(-4.0f, 4.0f);
        const size_t n = size_t(top) + 8;
        std::vector<float> input(n), model(n);
        for (size_t j = 0; j < n; ++j) model[j] = input[j] = nkptest::random_float(-1e4f, 1e4f);
        for (int b = 0; b < bands; ++b)
            for (int32_t j = offset[b]; j < offset[b + 1]; ++j) model[j] *= factor[b];
        nkptest::expect_same_on_both_paths(
            [&](int path) {
                Buffer<float> data(n, size_t(4 * ((round + path) % 4)));
                std::copy(input.begin(), input.end(), data.data());
                Outcome o;
                o.status = nkpt_nkpsScale_32f_I[path](data.data(), factor.data(), offset.data(), bands);
                for (size_t j = 0; j < n; ++j) EXPECT_EQ(data[j], model[j]) << j;
                return o.add(data.data(), n * sizeof(float));
            },
            "round " + std::to_string(round));
    }
}
