// Requantisation: values against the power law, the short-block regrouping
// the inverse MDCT reads, the bound it returns, hostile band tables.
#include "mp3/mp3_test_util.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

namespace {

nkpMP3FrameHeader header(int id, int sfi) { return nkptest::mp3_header(id, sfi, 3); }

nkpMP3SideInfo side(int block, int mixed, int gain, int sfs, int pre, int g0 = 0, int g1 = 0, int g2 = 0) {
    nkpMP3SideInfo s{};
    s.globalGain = gain;
    s.windowSwitching = block != 0;
    s.blockType = block;
    s.mixedBlock = mixed;
    s.scalefacScale = sfs;
    s.preflag = pre;
    s.subblockGain[0] = g0;
    s.subblockGain[1] = g1;
    s.subblockGain[2] = g2;
    return s;
}

// sign(q) |q|^(4/3) 2^(e/4) at 1.0 = 2^25, e in quarter steps, held within
// 32 bits.
double exact(int q, int e) {
    const double v = std::min(std::pow(std::abs(q), 4.0 / 3.0) * std::pow(2.0, e / 4.0) * 33554432.0, 2147483647.0);
    return q < 0 ? -v : v;
}

void expect_near_rounded(int32_t got, double want, const std::string& what) {
    EXPECT_LE(std::fabs(got - want), 0.5 + 1e-6 * std::max(1.0, std::fabs(want))) << what;
}

TEST(ReQuantize, LongBlocksFollowGainScaleFactorsAndPreEmphasis) {
    std::mt19937 rng(3);
    const struct {
        int id, sfi, sfs, pre;
    } cases[] = {{1, 0, 0, 0}, {1, 1, 1, 1}, {1, 2, 0, 1}, {0, 0, 1, 0}, {0, 2, 0, 1}};
    for (const auto& c : cases) {
        const nkpMP3FrameHeader h = header(c.id, c.sfi);
        const nkpMP3SideInfo s = side(0, 0, 170, c.sfs, c.pre);
        std::vector<int32_t> q(576, 0);
        for (int i = 0; i < 500; ++i) q[i] = static_cast<int32_t>(rng() % 41) - 20;
        q[3] = 8206;  // the largest magnitude a table with linbits gives
        q[4] = -1000;
        int8_t sf[39] = {};
        for (int b = 0; b < 21; ++b) sf[b] = static_cast<int8_t>(rng() % 16);
        std::vector<int32_t> xr = q;
        int nz = 500;
        ASSERT_EQ(nkpsReQuantize_MP3_32s_I(xr.data(), &nz, sf, &s, &h), nkpStatusOk);
        const int16_t* bands = nkp::mp3::kSfbLong[nkp::mp3::sfb_rate_row(c.id, c.sfi, false)];
        for (int b = 0; b < 22; ++b) {
            const int pre = c.pre ? nkp::mp3::kPretab[b] : 0;
            const int e = 170 - 210 - (c.sfs ? 4 : 2) * (sf[b] + pre);
            for (int i = bands[b]; i < bands[b + 1] && i < 500; ++i)
                expect_near_rounded(xr[i], exact(q[i], e), "line " + std::to_string(i));
        }
        for (int i = 500; i < 576; ++i) EXPECT_EQ(xr[i], 0);
        int last = 499;
        while (q[last] == 0) --last;
        EXPECT_EQ(nz, last + 1);
    }
}

TEST(ReQuantize, ShortBlocksComeOutWindowMajorPerSubband) {
    const nkpMP3FrameHeader h = header(1, 0);
    for (int mixed = 0; mixed < 2; ++mixed) {
        const nkpMP3SideInfo s = side(2, mixed, 210, 1, 0, 1, 2, 3);
        // Line value = 1 + input position, so each output tells where it came from.
        std::vector<int32_t> q(576);
        for (int i = 0; i < 576; ++i) q[i] = 1 + i % 15;
        int8_t sf[39] = {};
        for (int i = 0; i < 36; ++i) sf[i] = static_cast<int8_t>(i % 5);
        std::vector<int32_t> xr = q;
        int nz = 576;
        ASSERT_EQ(nkpsReQuantize_MP3_32s_I(xr.data(), &nz, sf, &s, &h), nkpStatusOk);
        const int16_t* sb = nkp::mp3::kSfbShort[0];
        const int16_t* lb = nkp::mp3::kSfbLong[0];
        if (mixed) {
            for (int b = 0; b < 8; ++b)
                for (int i = lb[b]; i < lb[b + 1]; ++i)
                    expect_near_rounded(xr[i], exact(q[i], -4 * sf[b]), "long part " + std::to_string(i));
        }
        for (int b = mixed ? 3 : 0; b < 13; ++b) {
            const int width = sb[b + 1] - sb[b];
            for (int w = 0; w < 3; ++w) {
                const int at = mixed ? 8 + 3 * (b - 3) + w : 3 * b + w;
                const int sfv = b < 12 ? sf[at] : 0;
                for (int j = 0; j < width; ++j) {
                    const int f = sb[b] + j;
                    const int in = 3 * sb[b] + w * width + j;
                    const int out = 18 * (f / 6) + 6 * w + f % 6;
                    expect_near_rounded(xr[out], exact(q[in], -8 * (w + 1) - 4 * sfv),
                                        "band " + std::to_string(b) + " window " + std::to_string(w));
                }
            }
        }
        EXPECT_EQ(nz, 576);
    }
}

TEST(ReQuantize, HugeGainSaturatesAndIntensityMarksCountByMagnitude) {
    const nkpMP3FrameHeader h = header(0, 0);
    nkpMP3SideInfo s = side(0, 0, 255, 0, 0);
    std::vector<int32_t> xr(576, 0);
    xr[0] = 8206;
    xr[1] = -8206;
    int8_t sf[39] = {};
    int nz = 2;
    ASSERT_EQ(nkpsReQuantize_MP3_32s_I(xr.data(), &nz, sf, &s, &h), nkpStatusOk);
    EXPECT_EQ(xr[0], INT32_MAX);
    EXPECT_EQ(xr[1], -INT32_MAX);

    s = side(0, 0, 210, 0, 0);
    std::vector<int32_t> pos(576, 0), neg(576, 0);
    pos[0] = neg[0] = 5;
    int8_t plus[39] = {7}, minus[39] = {-7};
    int nzp = 1, nzn = 1;
    ASSERT_EQ(nkpsReQuantize_MP3_32s_I(pos.data(), &nzp, plus, &s, &h), nkpStatusOk);
    ASSERT_EQ(nkpsReQuantize_MP3_32s_I(neg.data(), &nzn, minus, &s, &h), nkpStatusOk);
    EXPECT_EQ(pos[0], neg[0]);
}

// A magnitude no Huffman table can produce is a data error; the bound is
// left as it was.
TEST(ReQuantize, ImpossibleMagnitudeIsADataError) {
    const nkpMP3FrameHeader h = header(1, 0);
    const nkpMP3SideInfo s = side(0, 0, 100, 0, 0);
    int8_t sf[39] = {};
    std::vector<int32_t> xr(576, 0);
    xr[10] = 8207;
    int nz = 20;
    EXPECT_EQ(nkpsReQuantize_MP3_32s_I(xr.data(), &nz, sf, &s, &h), nkpStatusDataError);
    EXPECT_EQ(nz, 20);
}

// Band tables from a caller are not trusted: boundaries out of order or
// beyond the granule must not take the function outside its arrays.
TEST(ReQuantize, HostileBandTablesStayInsideTheGranule) {
    std::mt19937 rng(21);
    const nkpMP3FrameHeader h = header(1, 2);
    for (int trial = 0; trial < 50; ++trial) {
        std::vector<int16_t> longs(6 * 23), shorts(6 * 14);
        for (auto& v : longs) v = static_cast<int16_t>(static_cast<int>(rng() % 2000) - 700);
        for (auto& v : shorts) v = static_cast<int16_t>(static_cast<int>(rng() % 800) - 300);
        const nkpMP3SideInfo s = side(trial % 3 == 0 ? 0 : 2, trial % 2, 180, 1, 1);
        std::vector<int32_t> xr(576);
        for (auto& v : xr) v = static_cast<int32_t>(rng() % 17) - 8;
        int8_t sf[39];
        for (auto& v : sf) v = static_cast<int8_t>(rng() % 16);
        int nz = 576;
        // Overlapping bands may meet a line twice; that ends in a data error.
        const nkpStatus st = nkpsReQuantizeSfb_MP3_32s_I(xr.data(), &nz, sf, &s, &h, longs.data(), shorts.data());
        EXPECT_TRUE(st == nkpStatusOk || st == nkpStatusDataError) << st;
        EXPECT_LE(nz, 576);
    }
}

}  // namespace
