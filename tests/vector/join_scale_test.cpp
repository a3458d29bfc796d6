// The two-path exports: Join (float channels to interleaved 16-bit PCM) and
// Scale (per-band factors). Both table entries run on the same inputs and
// must agree bit for bit; results are checked against plain models.
#include "frame/exports.h"
#include "vector/vector_test_util.h"

#include <gtest/gtest.h>

#include <cfenv>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>
#include <xmmintrin.h>

namespace {

using nkptest::Buffer;

// Clamp, then round to nearest with ties to even (independent of MXCSR).
int16_t join_model(float x) {
    if (std::isnan(x)) return 32767;
    const double c = x > 32767.0f ? 32767.0 : (x < -32768.0f ? -32768.0 : x);
    double r = std::floor(c);
    const double frac = c - r;
    if (frac > 0.5 || (frac == 0.5 && std::fmod(r, 2.0) != 0.0)) r += 1.0;
    return static_cast<int16_t>(r);
}

TEST(Join, ClampsAndRoundsTiesToEvenUnderAnyRoundingMode) {
    const float in[] = {40000.0f, -40000.0f, 2.5f, 3.5f, -2.5f, -0.5f, 0.5f, 1.5f, 32766.5f, 32767.49f,
                        -32768.5f, 32768.0f, std::numeric_limits<float>::infinity(),
                        -std::numeric_limits<float>::infinity(), std::numeric_limits<float>::quiet_NaN()};
    const int16_t want[] = {32767, -32768, 2, 4, -2, 0, 0, 2, 32766, 32767, -32768, 32767, 32767, -32768, 32767};
    const int n = sizeof in / sizeof in[0];
    for (int path = 0; path < 2; ++path) {
        for (int mode : {FE_TONEAREST, FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
            for (int channels : {1, 2, 3}) {
                std::vector<const float*> lanes(channels, in);
                std::vector<int16_t> out(size_t(n) * channels);
                std::fesetround(mode);
                const unsigned before = _mm_getcsr();
                const nkpStatus s = nkpt_nkpsJoin_32f16s_D2L[path](lanes.data(), channels, n, out.data());
                const unsigned after = _mm_getcsr();
                std::fesetround(FE_TONEAREST);
                ASSERT_EQ(s, nkpStatusOk);
                EXPECT_EQ(after & 0x6000, before & 0x6000) << "caller's rounding mode not restored";
                for (int i = 0; i < n; ++i) {
                    for (int c = 0; c < channels; ++c) {
                        EXPECT_EQ(out[size_t(i) * channels + c], want[i])
                            << in[i] << " mode " << mode << " channels " << channels << " path " << path;
                    }
                }
            }
        }
    }
}

// Random data for every channel-count route, odd lengths and misaligned
// lanes: both paths equal each other and the model.
TEST(Join, BothPathsAgreeWithModel) {
    for (int channels = 1; channels <= 9; ++channels) {
        for (int len : {1, 2, 3, 5, 8, 13, 1152}) {
            std::vector<Buffer<float>> lanes;
            std::vector<const float*> ptrs;
            for (int c = 0; c < channels; ++c) {
                lanes.emplace_back(len, size_t(4 * (c % 4)));
                for (int i = 0; i < len; ++i) lanes.back()[i] = nkptest::random_float(-40000.0f, 40000.0f);
                lanes.back()[0] = 0.5f + nkptest::random_int(-10, 10);  // a tie in every lane
            }
            for (auto& l : lanes) ptrs.push_back(l.data());
            Buffer<int16_t> out0(size_t(channels) * len, 2), out1(size_t(channels) * len, 6);
            ASSERT_EQ(nkpt_nkpsJoin_32f16s_D2L[0](ptrs.data(), channels, len, out0.data()), nkpStatusOk);
            ASSERT_EQ(nkpt_nkpsJoin_32f16s_D2L[1](ptrs.data(), channels, len, out1.data()), nkpStatusOk);
            for (int i = 0; i < len; ++i) {
                for (int c = 0; c < channels; ++c) {
                    const size_t k = size_t(i) * channels + c;
                    ASSERT_EQ(out0[k], out1[k]) << channels << "x" << len << " at " << k;
                    ASSERT_EQ(out0[k], join_model(lanes[c][i])) << lanes[c][i];
                }
            }
        }
    }
}

// Random band layouts (empty and reversed bands included) over misaligned
// data: both paths give the plain product, bit for bit, and leave the
// values outside every band alone.
TEST(Scale, BothPathsAgreeWithModel) {
    for (int round = 0; round < 200; ++round) {
        const int bands = nkptest::random_int(1, 49);
        std::vector<int32_t> offset(bands + 1);
        offset[0] = nkptest::random_int(0, 3);
        for (int b = 1; b <= bands; ++b) offset[b] = std::max(0, offset[b - 1] + nkptest::random_int(-1, 23));
        int32_t top = 0;
        for (int32_t o : offset) top = std::max(top, o);
        std::vector<float> factor(bands);
        for (float& f : factor) f = nkptest::random_float(-4.0f, 4.0f);

        const size_t n = size_t(top) + 8;
        Buffer<float> data0(n, size_t(4 * (round % 4))), data1(n, 4);
        std::vector<float> model(n);
        for (size_t j = 0; j < n; ++j) model[j] = data0[j] = data1[j] = nkptest::random_float(-1e4f, 1e4f);
        for (int b = 0; b < bands; ++b) {
            for (int32_t j = offset[b]; j < offset[b + 1]; ++j) model[j] *= factor[b];
        }
        ASSERT_EQ(nkpt_nkpsScale_32f_I[0](data0.data(), factor.data(), offset.data(), bands), nkpStatusOk);
        ASSERT_EQ(nkpt_nkpsScale_32f_I[1](data1.data(), factor.data(), offset.data(), bands), nkpStatusOk);
        for (size_t j = 0; j < n; ++j) {
            ASSERT_EQ(data0[j], data1[j]) << j;
            ASSERT_EQ(data0[j], model[j]) << j;
        }
    }
}

}  // namespace
