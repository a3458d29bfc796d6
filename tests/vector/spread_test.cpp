// The spreading function against a double-precision model of the same
// formula.
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
// within one unit of the rounded model, saturated at 32767.
TEST(Spread, WithinOneUnitOfTheModel) {
    int exact = 0, total = 0;
    for (int scale : {-10, -8, -6, -4, -2, 0}) {
        for (int d = -4096; d <= 4096; ++d) {
            nkp16s v = -1;
            ASSERT_EQ(nkpsSpread_16s_Sfs(100, static_cast<nkp16s>(100 + d), scale, &v), nkpStatusOk);
            const double model = spread_model(100, 100 + d, scale);
            const double want = std::min(std::nearbyint(model), 32767.0);
            ASSERT_NEAR(v, want, 1.0) << "d " << d << " scale " << scale << " model " << model;
            exact += v == want;
            ++total;
        }
    }
    EXPECT_GT(exact, total * 9 / 10);
}

TEST(Spread, PointsAndLimits) {
    struct Case {
        const char* name;
        int first, second, scale;
        int want;
    };
    const Case cases[] = {
        {"same_band_saturates", 7, 7, 0, 32767},
        {"same_band_any_scale", -32768, -32768, 2147483647, 32767},
        {"beyond_plus_12", 0, 5, 0, 0},       // t = 15
        {"beyond_minus_6", 0, -5, 0, 0},      // t = -7.5
        {"huge_scale", 0, 1, 2147483647, 0},
        {"huge_negative_scale_is_distance_0", 0, 1, -2147483647 - 1, 32767},
    };
    for (const auto& c : cases) {
        nkp16s v = -1;
        ASSERT_EQ(nkpsSpread_16s_Sfs(static_cast<nkp16s>(c.first), static_cast<nkp16s>(c.second), c.scale, &v),
                  nkpStatusOk);
        EXPECT_EQ(v, c.want) << c.name;
    }
}

}  // namespace
