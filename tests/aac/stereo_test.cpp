// M/S and intensity stereo: the band rules (masks, flags, noise and
// intensity code books, the code-book exchange), wrap-around, and the
// intensity scaling against 2^(-p/4) with its documented edges.
#include "frame/exports.h"
#include "tools_test_util.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

namespace {

using nkptest::Frame;
using nkptest::random_int;

struct MsCase {
    const char* name;
    Frame frame;
    int mask;
};

// Random lines, flags (any non-zero byte counts as set) and right-channel
// code books drawn from every kind of band.
TEST(MsStereo, BandRulesMatchTheModel) {
    const MsCase cases[] = {
        {"long_mask_1", {1024, {1}, 49, 3}, 1},
        {"long_mask_2_every_band", {1024, {1}, 40, 8}, 2},
        {"short_groups_mask_1", {128, {1, 4, 2, 1}, 14, 5}, 1},
        {"short_groups_mask_2", {128, {3, 5}, 15, 11}, 2},
        {"no_bands", {1024, {1}, 0, 4}, 1},
    };
    const uint8_t codebooks[] = {0, 1, 5, 11, 13, 14, 15};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const Frame& f = c.frame;
        std::vector<int32_t> left(1024), right(1024);
        for (int i = 0; i < 1024; ++i) {
            left[i] = random_int(-100000, 100000);
            right[i] = random_int(-100000, 100000);
        }
        std::vector<uint8_t> flags(8 * 60), cbs(f.num_groups() * f.max_sfb + 1, 77);
        for (auto& v : flags) v = static_cast<uint8_t>(random_int(0, 2) * 3);  // 0, 3 or 6
        for (size_t i = 0; i + 1 < cbs.size(); ++i) cbs[i] = codebooks[random_int(0, 6)];

        std::vector<int32_t> want_l = left, want_r = right;
        std::vector<uint8_t> want_cb = cbs;
        f.for_each_line([&](int g, int b, int, int, int line) {
            const int band = g * f.max_sfb + b;
            const bool flag = flags[g * 60 + b] != 0;
            const uint8_t cb = cbs[band];
            if (cb == 14 || cb == 15) {
                if (c.mask == 1 && flag) want_cb[band] = cb == 14 ? 15 : 14;
            } else if ((c.mask == 2 || flag) && cb != 13) {
                want_l[line] = left[line] + right[line];
                want_r[line] = left[line] - right[line];
            }
        });
        ASSERT_EQ(nkpsDecodeMsStereo_AAC_32s_I(left.data(), right.data(), c.mask, flags.data(), cbs.data(),
                                               f.num_groups(), f.groups.data(), f.max_sfb, f.sampling_index,
                                               f.win_len),
                  nkpStatusOk);
        EXPECT_EQ(left, want_l);
        EXPECT_EQ(right, want_r);
        EXPECT_EQ(cbs, want_cb);  // the entry past the bands is untouched too
    }
}

TEST(MsStereo, SumAndDifferenceWrapAround) {
    std::vector<int32_t> left(1024, 0), right(1024, 0);
    left[0] = INT32_MAX;
    right[0] = 1;
    left[1] = INT32_MIN;
    right[1] = 1;
    const int32_t groups[1] = {1};
    uint8_t flags[60] = {1};
    uint8_t cbs[1] = {1};
    ASSERT_EQ(nkpsDecodeMsStereo_AAC_32s_I(left.data(), right.data(), 1, flags, cbs, 1, groups, 1, 4, 1024),
              nkpStatusOk);
    EXPECT_EQ(left[0], INT32_MIN);
    EXPECT_EQ(right[0], INT32_MAX - 1);
    EXPECT_EQ(left[1], INT32_MIN + 1);
    EXPECT_EQ(right[1], INT32_MAX);
}

// One long band (band 0 at 48 kHz: lines 0..3) of intensity stereo.
int32_t intensity(int32_t left, int position, uint8_t codebook) {
    std::vector<int32_t> l(1024, 0), r(1024, 12345);
    l[2] = left;
    const int32_t groups[1] = {1};
    const uint16_t pos[1] = {static_cast<uint16_t>(position)};
    EXPECT_EQ(nkpsDecodeIsStereo_AAC_32s(l.data(), r.data(), pos, &codebook, 1, groups, 1, 3, 1024), nkpStatusOk);
    return r[2];
}

TEST(IsStereo, PinnedValues) {
    const struct {
        const char* name;
        int32_t left;
        int position;
        uint8_t codebook;
        int32_t want;
    } rows[] = {
        {"position_0_copies", -123456, 0, 15, -123456},
        {"position_0_out_of_phase_negates", -123456, 0, 14, 123456},
        {"position_4_halves", 1001, 4, 15, 500},
        {"position_8_quarters_by_arithmetic_shift", -5, 8, 15, -2},
        {"position_8_positive", 5, 8, 15, 1},
        {"position_8_out_of_phase_negates_afterwards", -5, 8, 14, 2},
        {"position_8_out_of_phase_positive", 5, 8, 14, -1},
        {"position_minus_4_doubles", -1001, -4, 15, -2002},
        {"position_minus_8_quadruples", 1001, -8, 15, 4004},
        {"far_positive_gives_0", 2000000000, 300, 15, 0},
        {"far_positive_negative_line_gives_minus_1", -1, 32767, 15, -1},
        {"far_positive_negative_line_out_of_phase", -1, 32767, 14, 1},
        // Below -3 the scale-up shift is taken modulo 32: -128 shifts by
        // (64 + 2) mod 32 = 2 and multiplies by 1/4, so the line comes back.
        {"position_minus_128_wraps_to_the_line", 777, -128, 15, 777},
        {"most_negative_position", 777, -32768, 15, 777},
    };
    for (const auto& r : rows) EXPECT_EQ(intensity(r.left, r.position, r.codebook), r.want) << r.name;
}

// Every position -60..200 on random lines against sign * left * 2^(-p/4)
// (lines small enough that nothing wraps), only intensity bands written;
// then positions -3..7 on lines of any size.
TEST(IsStereo, ScalingOverPositionsMatchesThePower) {
    const Frame f{128, {2, 1, 5}, 14, 3};
    std::vector<int32_t> left(1024);
    std::vector<uint16_t> pos(f.num_groups() * f.max_sfb);
    std::vector<uint8_t> cbs(pos.size());
    for (int round = 0; round < 20; ++round) {
        for (size_t i = 0; i < pos.size(); ++i) {
            pos[i] = static_cast<uint16_t>(random_int(-60, 200));
            cbs[i] = static_cast<uint8_t>(random_int(0, 3) == 0 ? 1 : random_int(14, 15));
        }
        for (auto& v : left) v = random_int(-(1 << 14), 1 << 14) * (random_int(0, 1) ? 1 : 1021);
        std::vector<int32_t> right(1024, -999);
        ASSERT_EQ(nkpsDecodeIsStereo_AAC_32s(left.data(), right.data(), pos.data(), cbs.data(), f.num_groups(),
                                             f.groups.data(), f.max_sfb, f.sampling_index, f.win_len),
                  nkpStatusOk);
        std::vector<bool> written(1024, false);
        f.for_each_line([&](int g, int b, int, int, int line) {
            const int band = g * f.max_sfb + b;
            if (cbs[band] != 14 && cbs[band] != 15) return;
            written[line] = true;
            const int p = static_cast<int16_t>(pos[band]);
            const long double exact = left[line] * std::exp2(-p / 4.0L) * (cbs[band] == 15 ? 1 : -1);
            // Results that do not fit 32 bits wrap, and below -3 so does a
            // line whose scale-up by 2^(2 + (-p >> 2)) does not: skipped.
            if (std::fabs(exact) >= 2147483647.0L) return;
            if (p < -3 && std::fabs(left[line] * std::exp2(2.0L + (-p >> 2))) >= 2147483648.0L) return;
            // -3..7 within one unit; elsewhere the Q30 factors may add
            // |x| 2^-30.
            const long double tolerance = (p >= -3 && p <= 7) ? 1.0L : 1.0L + std::fabs(exact) * 0x1p-30L;
            EXPECT_LE(std::fabs(right[line] - exact), tolerance) << "p " << p << " left " << left[line];
        });
        for (int i = 0; i < 1024; ++i) {
            if (!written[i]) ASSERT_EQ(right[i], -999) << "line " << i;
        }
    }
    // Near zero (positions -3..7) lines up to the full 32-bit range.
    for (int p = -3; p <= 7; ++p) {
        for (int i = 0; i < 2000; ++i) {
            const int32_t l = static_cast<int32_t>(nkptest::rng()());
            const long double exact = l * std::exp2(-p / 4.0L);
            if (std::fabs(exact) >= 2147483647.0L) continue;
            ASSERT_LE(std::fabs(intensity(l, p, 15) - exact), 1.0L) << "p " << p << " left " << l;
        }
    }
}

// M/S with mask 1 turns a flagged in-phase intensity band into an
// out-of-phase one, which the intensity step then inverts.
TEST(IsStereo, MsExchangeInvertsTheBand) {
    std::vector<int32_t> left(1024, 0), right(1024, 0);
    for (int i = 0; i < 8; ++i) left[i] = 400 + i;
    const int32_t groups[1] = {1};
    uint8_t flags[60] = {1, 0};
    uint8_t cbs[2] = {15, 15};
    const uint16_t pos[2] = {4, 4};
    ASSERT_EQ(nkpsDecodeMsStereo_AAC_32s_I(left.data(), right.data(), 1, flags, cbs, 1, groups, 2, 3, 1024),
              nkpStatusOk);
    EXPECT_EQ(cbs[0], 14);
    EXPECT_EQ(cbs[1], 15);
    EXPECT_EQ(left[0], 400);  // intensity lines are not summed
    ASSERT_EQ(nkpsDecodeIsStereo_AAC_32s(left.data(), right.data(), pos, cbs, 1, groups, 2, 3, 1024), nkpStatusOk);
    EXPECT_EQ(right[0], -200);
    EXPECT_EQ(right[4], 202);
}

}  // namespace
