// The spreading function against a double-precision model of the same
// formula, and its limits.
#include "nkpac.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace {

// 32768 * 10^((x + y)/10), with the library's constants, unrounded.
double spread_model(int first, int second, int scale) {
    const double d = std::ldexp(double(second - first), scale);
    const double t = d >= 0 ? 3.0 * d : 1.5 * d;
    if (t > 12.0 || t < -6.0) return 0.0;
    const double a = t - 0.5;
    const double x = 8.0 * std::min(a * a - 2.0 * a, 0.0);
    const double u = t + 3979066.0 / 8388608.0;
    const double y = 132635538.0 / 8388608.0 + 7.5 * u - 17.5 * std::sqrt(1.0 + u * u);
    return 32768.0 * std::pow(10.0, (x + y) / 10.0);
}

// Every distance of a 12-bit band index at the usual fractional scales:
// within one unit of the rounded model (mostly equal), saturated at 32767.
TEST(Spread, WithinOneUnitOfTheModel) {
    int exact = 0, total = 0;
    for (int scale : {-10, -8, -6, -4, -2, 0}) {
        for (int d = -4096; d <= 4096; ++d, ++total) {
            nkp16s v = -1;
            ASSERT_EQ(nkpsSpread_16s_Sfs(100, static_cast<nkp16s>(100 + d), scale, &v), nkpStatusOk);
            const double want = std::min(std::nearbyint(spread_model(100, 100 + d, scale)), 32767.0);
            ASSERT_NEAR(v, want, 1.0) << "d " << d << " scale " << scale;
            exact += v == want;
        }
    }
    EXPECT_GT(exact, total * 9 / 10);
}

// Scales far outside the usual range: no overflow in the distance.
TEST(Spread, ExtremeScales) {
    const struct {
        int first, second, scale, want;
    } cases[] = {
        {-32768, -32768, 2147483647, 32767},  // distance 0 at any scale
        {0, 1, 2147483647, 0},
        {0, 1, -2147483647 - 1, 32767},  // a huge negative scale is distance 0
    };
    for (const auto& c : cases) {
        nkp16s v = -1;
        ASSERT_EQ(nkpsSpread_16s_Sfs(nkp16s(c.first), nkp16s(c.second), c.scale, &v), nkpStatusOk);
        EXPECT_EQ(v, c.want) << c.first << " " << c.second << " " << c.scale;
    }
}

}  // namespace
