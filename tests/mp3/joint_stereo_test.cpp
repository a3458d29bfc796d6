// Joint stereo: M/S, MPEG-1 and LSF intensity stereo with illegal
// positions, per-window intensity in short blocks.
#include "mp3/mp3_test_util.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

namespace {

constexpr double kPi = 3.14159265358979323846;

nkpMP3FrameHeader header(int id, int mode_ext) { return nkptest::mp3_header(id, 0, 1, mode_ext); }

struct Granule {
    std::vector<int32_t> xr = std::vector<int32_t>(1152, 0);
    int nz[2] = {576, 576};
    nkpMP3SideInfo si[2]{};
    int8_t sf[39] = {};
    int32_t* left() { return xr.data(); }
    int32_t* right() { return xr.data() + 576; }
};

int32_t rounded(double v) { return static_cast<int32_t>(std::nearbyint(v)); }

// The library's intensity factors are computed another way than this model,
// so where the exact product lies within a hair of a rounding boundary
// either neighbour is right; everywhere else only the nearest integer is.
::testing::AssertionResult rounds_from(int32_t actual, long double exact) {
    const long double frac = exact - std::floor(exact);
    const bool at_boundary = std::fabs(static_cast<double>(frac - 0.5L)) < 1e-6;
    if (actual == static_cast<int32_t>(std::llround(static_cast<double>(exact))) ||
        (at_boundary && std::fabs(static_cast<double>(actual - exact)) < 0.5 + 1e-6))
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << actual << " is not " << static_cast<double>(exact) << " rounded";
}

TEST(JointStereo, MidSideOverBothBounds) {
    Granule g;
    for (int i = 0; i < 300; ++i) {
        g.left()[i] = 1000 * i - 77;
        g.right()[i] = i < 200 ? 333 * i + 5 : 0;
    }
    g.nz[0] = 300;
    g.nz[1] = 200;
    const std::vector<int32_t> in = g.xr;
    const nkpMP3FrameHeader h = header(1, 2);
    ASSERT_EQ(nkpsJointStereo_MP3_32s_I(g.xr.data(), g.nz, g.sf, g.si, &h), nkpStatusOk);
    for (int i = 0; i < 576; ++i) {
        EXPECT_EQ(g.left()[i], rounded((double(in[i]) + in[576 + i]) / std::sqrt(2.0))) << i;
        EXPECT_EQ(g.right()[i], rounded((double(in[i]) - in[576 + i]) / std::sqrt(2.0))) << i;
    }
    EXPECT_EQ(g.nz[0], 300);
    EXPECT_EQ(g.nz[1], 300);
}

// MPEG-1 long block: the right channel is coded up to line 100 (band 13 at
// 44.1 kHz ends at 90, band 14 at 110); bands above take the intensity
// position of the right channel's scale factors, band 21 that of band 20.
TEST(JointStereo, Mpeg1IntensityAboveTheCodedRightBands) {
    for (int ms = 0; ms < 2; ++ms) {
        Granule g;
        for (int i = 0; i < 576; ++i) g.left()[i] = 100000 + 13 * i;
        for (int i = 0; i < 100; ++i) g.right()[i] = 5000 - 7 * i;
        for (int b = 0; b < 21; ++b) g.sf[b] = static_cast<int8_t>(b % 8);  // 7 is illegal
        const std::vector<int32_t> in = g.xr;
        const nkpMP3FrameHeader h = header(1, ms ? 3 : 1);
        ASSERT_EQ(nkpsJointStereo_MP3_32s_I(g.xr.data(), g.nz, g.sf, g.si, &h), nkpStatusOk);
        const int16_t* bands = nkp::mp3::kSfbLong[0];
        for (int b = 0; b < 22; ++b) {
            const int pos = g.sf[b < 21 ? b : 20];
            const bool is = bands[b] >= 100 && pos != 7;
            for (int i = bands[b]; i < bands[b + 1]; ++i) {
                const double l = in[i], r = in[576 + i];
                int32_t el = in[i], er = in[576 + i];
                if (is) {
                    const long double k = std::tan(pos * 3.14159265358979323846264338327950288L / 12);
                    ASSERT_TRUE(rounds_from(g.left()[i], l * k / (1 + k))) << "band " << b << " line " << i;
                    ASSERT_TRUE(rounds_from(g.right()[i], l / (1 + k))) << "band " << b << " line " << i;
                    continue;
                } else if (ms) {
                    el = rounded((l + r) / std::sqrt(2.0));
                    er = rounded((l - r) / std::sqrt(2.0));
                }
                ASSERT_EQ(g.left()[i], el) << "band " << b << " line " << i << " ms " << ms;
                ASSERT_EQ(g.right()[i], er) << "band " << b << " line " << i << " ms " << ms;
            }
        }
    }
}

// LSF: positions step by 2^-1/4 (scalefacCompress even) or 2^-1/2 (odd);
// negative scale factors are the reader's illegal-position marks.
TEST(JointStereo, LsfIntensityPositionsAndIllegalMarks) {
    for (int scale = 0; scale < 2; ++scale) {
        Granule g;
        g.si[1].scalefacCompress = 300 + scale;
        for (int i = 0; i < 576; ++i) g.left()[i] = 200000 - 100 * i;
        const int8_t pos[21] = {0, 1, 2, 3, 4, 5, 6, -7, 8, 9, 10, -15, 12, 13, 14, 0, 1, 2, 3, -1, 5};
        for (int b = 0; b < 21; ++b) g.sf[b] = pos[b];
        const std::vector<int32_t> in = g.xr;
        nkpMP3FrameHeader h = header(0, 1);
        ASSERT_EQ(nkpsJointStereo_MP3_32s_I(g.xr.data(), g.nz, g.sf, g.si, &h), nkpStatusOk);
        const int16_t* bands = nkp::mp3::kSfbLong[nkp::mp3::sfb_rate_row(0, 0, false)];
        const double step = scale ? 0.5 : 0.25;
        for (int b = 0; b < 22; ++b) {
            const int p = pos[b < 21 ? b : 20];
            for (int i = bands[b]; i < bands[b + 1]; ++i) {
                double kl = 1, kr = 1;
                if (p < 0) {
                    kl = 1, kr = 0;  // illegal: the band stays as coded
                } else if (p & 1) {
                    kl = std::exp2(-step * ((p + 1) / 2));
                } else {
                    kr = std::exp2(-step * (p / 2));
                }
                ASSERT_EQ(g.left()[i], rounded(in[i] * kl)) << "band " << b;
                ASSERT_EQ(g.right()[i], p < 0 ? 0 : rounded(in[i] * kr)) << "band " << b;
            }
        }
    }
}

// Short blocks: each window finds its own highest coded right band.
TEST(JointStereo, ShortBlocksDecidePerWindow) {
    Granule g;
    g.si[0].blockType = g.si[1].blockType = 2;
    g.si[0].windowSwitching = g.si[1].windowSwitching = 1;
    for (int i = 0; i < 576; ++i) g.left()[i] = 50000 + 2 * i;  // even: halves are exact
    const int16_t* sb = nkp::mp3::kSfbShort[0];
    auto index = [](int f, int w) { return 18 * (f / 6) + 6 * w + f % 6; };
    // Window 0 coded up to band 2, window 1 up to band 8, window 2 not at all.
    for (int f = 0; f < sb[3]; ++f) g.right()[index(f, 0)] = 9;
    for (int f = 0; f < sb[9]; ++f) g.right()[index(f, 1)] = 9;
    for (int i = 0; i < 36; ++i) g.sf[i] = 3;  // tan(pi/4): an even split
    const std::vector<int32_t> in = g.xr;
    const nkpMP3FrameHeader h = header(1, 1);
    ASSERT_EQ(nkpsJointStereo_MP3_32s_I(g.xr.data(), g.nz, g.sf, g.si, &h), nkpStatusOk);
    const int top[3] = {2, 8, -1};
    for (int w = 0; w < 3; ++w)
        for (int b = 0; b < 13; ++b)
            for (int f = sb[b]; f < sb[b + 1]; ++f) {
                const int i = index(f, w);
                if (b > top[w]) {
                    EXPECT_EQ(g.left()[i], rounded(in[i] * 0.5)) << w << "," << b;
                    EXPECT_EQ(g.right()[i], rounded(in[i] * 0.5)) << w << "," << b;
                } else {
                    EXPECT_EQ(g.left()[i], in[i]);
                    EXPECT_EQ(g.right()[i], in[576 + i]);
                }
            }
}

}  // namespace
