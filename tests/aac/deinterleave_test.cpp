// Short-window reordering: every line lands at its window and band, the
// lines above max_sfb are cleared, and windows past the groups are left
// alone.
#include "frame/exports.h"
#include "tools_test_util.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace {

using nkptest::Frame;

TEST(Deinterleave, LinesLandInWindowOrder) {
    const struct {
        const char* name;
        Frame frame;
    } cases[] = {
        {"eight_single_windows", {128, {1, 1, 1, 1, 1, 1, 1, 1}, 14, 3}},
        {"one_group_of_eight", {128, {8}, 12, 0}},
        {"uneven_groups", {128, {2, 3, 1, 2}, 15, 9}},
        {"below_the_band_count", {128, {4, 4}, 7, 4}},
        {"max_sfb_0_writes_only_zeros", {128, {3, 5}, 0, 6}},
        {"groups_short_of_eight_windows", {128, {2, 3}, 10, 11}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const Frame& f = c.frame;
        std::vector<int32_t> src(1024), dst(1024, -7);
        for (int i = 0; i < 1024; ++i) src[i] = 1000000 + i;

        std::vector<int32_t> want(1024, -7);
        std::vector<int> first_window(f.num_groups() + 1, 0);
        for (int g = 0; g < f.num_groups(); ++g) first_window[g + 1] = first_window[g] + f.groups[g];
        for (int w = 0; w < first_window.back(); ++w) {
            for (int k = f.swb()[f.max_sfb]; k < 128; ++k) want[w * 128 + k] = 0;
        }
        f.for_each_line([&](int g, int b, int w, int k, int line) {
            want[(first_window[g] + w) * 128 + f.swb()[b] + k] = src[line];
        });
        ASSERT_EQ(nkpsDeinterleaveSpectrum_AAC_32s(src.data(), dst.data(), f.num_groups(), f.groups.data(),
                                                   f.max_sfb, f.sampling_index, 128),
                  nkpStatusOk);
        EXPECT_EQ(dst, want);
    }
}

}  // namespace
