// MakeFloat (mantissa and raw exponent arithmetic) and CalcSF (quarter-power
// table with its offset limit and wrap-around).
#include "nkpac.h"
#include "vector/vector_test_util.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>

namespace {

using nkptest::Buffer;

TEST(MakeFloat, ExactInRangeAndRawBitArithmeticOutside) {
    const float inf = std::numeric_limits<float>::infinity();
    const struct {
        int16_t mant, exp;
        float want;
    } cases[] = {
        {16384, 0, 0.5f},
        {-32768, -15, -32768.0f},
        {3, 111, 3 * std::ldexp(1.0f, -126)},  // smallest normal factor
        {3, 112, 0.0f},                        // field reaches 0: factor 0, not 2^-127
        {1, 113, inf},                         // field wraps to all ones: infinity
        {-1, 113, -inf},
        {0, 113, NAN},                         // 0 * infinity
        {1, -145, std::ldexp(1.0f, -126)},     // 2^130 wraps past the sign bit to 2^-126
        {5, -112, 5 * std::ldexp(1.0f, 97)},
        {1, 256 + 10, std::ldexp(1.0f, -25)},  // only the exponent's low 9 bits count
    };
    for (const auto& c : cases) {
        // Each case at every position of a 13-long run, so that the vector
        // body and the scalar tail both meet it.
        Buffer<int16_t> m(13), e(13);
        Buffer<float> d(13);
        for (int i = 0; i < 13; ++i) m[i] = c.mant, e[i] = c.exp;
        ASSERT_EQ(nkpsMakeFloat_16s32f(m.data(), e.data(), 13, d.data()), nkpStatusOk);
        for (int i = 0; i < 13; ++i) {
            EXPECT_TRUE(std::isnan(c.want) ? std::isnan(d[i]) : d[i] == c.want) << c.mant << " " << c.exp << " " << i;
        }
    }
}

// Every table entry is 2^(k/4) rounded once to float (subnormals included).
TEST(CalcSF, WholeTableAgainstExactPowers) {
    Buffer<int16_t> sf(1024);
    Buffer<float> d(1024);
    for (int k = 0; k < 1024; ++k) sf[k] = int16_t(k - 512 + 100);
    ASSERT_EQ(nkpsCalcSF_16s32f(sf.data(), 100, d.data(), 1024), nkpStatusOk);
    for (int k = 0; k < 1024; ++k) EXPECT_EQ(d[k], static_cast<float>(std::exp2l((k - 512) / 4.0L))) << k;
}

TEST(CalcSF, WrapAroundAndOffsetLimit) {
    const struct {
        const char* name;
        int16_t sf;
        int offset;
        long double exponent;  // the quarter-power actually produced
    } cases[] = {
        {"sf_equals_offset", -7, -7, 0},
        {"top_of_table", 611, 100, 511 / 4.0L},
        {"one_past_top_wraps_to_bottom", 612, 100, -128},
        {"one_below_bottom_wraps_to_top", -413, 100, 511 / 4.0L},
        {"offset_held_at_32255", 0, 40000, (1 - 512) / 4.0L},  // index (sf + 1) & 1023
        {"offset_held_huge", 1023, 2147483647, (0 - 512) / 4.0L},
        {"very_negative_offset_wraps", 0, -2147483647 - 1, 0},  // -2^31 = 0 mod 1024
    };
    for (const auto& c : cases) {
        float d = 0;
        ASSERT_EQ(nkpsCalcSF_16s32f(&c.sf, c.offset, &d, 1), nkpStatusOk) << c.name;
        EXPECT_EQ(d, static_cast<float>(std::exp2l(c.exponent))) << c.name;
    }
}

}  // namespace
