// Scale factors: pack-then-unpack round trips over the MPEG-1 and LSF
// layouts with hand-counted bit totals, scfsi reuse, the LSF preflag and
// intensity-stereo rules, the reader/writer difference on mixedBlock, and
// the reader's slack.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "common/guarded_buffer.h"
#include "mp3/mp3_test_util.h"

namespace {

nkpMP3FrameHeader header(int id, int mode_extension) { return nkptest::mp3_header(id, 0, 1, mode_extension); }

nkpMP3SideInfo granule(int compress, int block_type, int mixed) {
    nkpMP3SideInfo si{};
    si.scalefacCompress = compress, si.windowSwitching = block_type != 0, si.blockType = block_type;
    si.mixedBlock = mixed, si.preflag = 7;
    return si;
}

using nkptest::lcg;

struct Layout {
    const char* name;
    int id, compress, block_type, mixed, mode_extension, channel;
    std::vector<int> widths;  // bits per stored value, in order
    int preflag;              // after the call (7: untouched)
};

std::vector<int> repeat(std::initializer_list<std::pair<int, int>> runs) {
    std::vector<int> w;
    for (auto [count, width] : runs) w.insert(w.end(), count, width);
    return w;
}

class ScaleFactorLayouts : public ::testing::TestWithParam<Layout> {};

// Packs random values of the right widths (maxima included) at every start
// offset and unpacks them again.
TEST_P(ScaleFactorLayouts, RoundTrip) {
    const Layout& c = GetParam();
    const bool intensity_right = c.id != 1 && (c.mode_extension & 1) && c.channel == 1;
    uint32_t seed = 3;
    for (int lead = 0; lead < 8; ++lead) {
        nkp8s in[40] = {}, want[40] = {};
        long total = lead;
        for (size_t i = 0; i < c.widths.size(); ++i) {
            const int top = (1 << c.widths[i]) - 1;
            in[i] = static_cast<nkp8s>(i % 4 == 0 ? top : lcg(seed) % (top + 1));
            // An intensity position at its width's maximum is read back negated.
            want[i] = static_cast<nkp8s>(intensity_right && in[i] == top ? -top : in[i]);
            total += c.widths[i];
        }
        const nkpMP3FrameHeader h = header(c.id, c.mode_extension);
        nkpMP3SideInfo si = granule(c.compress, c.block_type, c.mixed);
        int scfsi[4] = {1, 1, 1, 1};  // ignored in granule 0
        std::vector<uint8_t> bytes(64, 0);
        nkp8u* p = bytes.data();
        int offset = lead;
        ASSERT_EQ(nkpsPackScaleFactors_MP3_8s1u(in, &p, &offset, &h, &si, scfsi, 0, c.channel), nkpStatusOk);
        ASSERT_EQ((p - bytes.data()) * 8 + offset, total);
        EXPECT_EQ(si.preflag, c.preflag);
        si.preflag = 7;
        nkp8s got[42];
        std::memset(got, 0x55, sizeof got);
        p = bytes.data(), offset = lead;
        ASSERT_EQ(nkpsUnpackScaleFactors_MP3_1u8s(&p, &offset, got, &si, scfsi, &h, 0, c.channel), nkpStatusOk);
        EXPECT_EQ((p - bytes.data()) * 8 + offset, total);
        EXPECT_EQ(si.preflag, c.preflag);
        // Zeros after the values: one for MPEG-1 long blocks, else three.
        const size_t n = c.widths.size(), zeros = n == 21 && c.id == 1 ? 1 : 3;
        EXPECT_EQ(std::vector<nkp8s>(got, got + n + zeros), std::vector<nkp8s>(want, want + n + zeros));
        EXPECT_EQ(got[n + zeros], 0x55);
    }
}

const Layout kLayouts[] = {
    // MPEG-1: slen1/slen2 by scalefacCompress; 11 + 10 long values, 18 + 18
    // short, 17 + 18 mixed (long bands 0..7 and short bands 3..5 take slen1).
    {"mpeg1_long_4_3", 1, 15, 0, 0, 0, 0, repeat({{11, 4}, {10, 3}}), 7},
    {"mpeg1_long_0_0", 1, 0, 0, 0, 0, 0, repeat({{21, 0}}), 7},
    {"mpeg1_start_3_0", 1, 4, 1, 0, 0, 0, repeat({{11, 3}, {10, 0}}), 7},
    {"mpeg1_short_2_1", 1, 8, 2, 0, 0, 0, repeat({{18, 2}, {18, 1}}), 7},
    {"mpeg1_mixed_1_3", 1, 7, 2, 1, 0, 1, repeat({{17, 1}, {18, 3}}), 7},
    // LSF rows 0..2 (scalefacCompress < 400, < 500, < 512).
    {"lsf_399_long", 0, 399, 0, 0, 0, 0, repeat({{6, 4}, {5, 4}, {5, 3}, {5, 3}}), 0},
    {"lsf_399_short", 0, 399, 2, 0, 0, 0, repeat({{9, 4}, {9, 4}, {9, 3}, {9, 3}}), 0},
    {"lsf_399_mixed", 0, 399, 2, 1, 2, 1, repeat({{6, 4}, {9, 4}, {9, 3}, {9, 3}}), 0},
    {"lsf_499_stop", 0, 499, 3, 0, 0, 0, repeat({{6, 4}, {5, 4}, {7, 3}, {3, 0}}), 0},
    {"lsf_511_preflag", 0, 511, 0, 0, 0, 1, repeat({{11, 3}, {10, 2}}), 1},
    {"lsf_511_short_preflag", 0, 511, 2, 0, 1, 0, repeat({{18, 3}, {18, 2}}), 1},
    // Intensity-stereo right channel: half the value, rows 3..5, no preflag.
    {"is_358_long", 0, 358, 0, 0, 1, 1, repeat({{7, 4}, {7, 5}, {7, 5}}), 0},
    {"is_486_short", 0, 486, 2, 0, 3, 1, repeat({{12, 3}, {9, 3}, {9, 3}, {6, 0}}), 0},
    {"is_511_mixed", 0, 511, 2, 1, 1, 1, repeat({{6, 3}, {18, 2}, {9, 0}}), 0},
};

INSTANTIATE_TEST_SUITE_P(Mp3, ScaleFactorLayouts, ::testing::ValuesIn(kLayouts),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(ScaleFactors, Mpeg1Granule1KeepsGroupsFlaggedInScfsi) {
    const nkpMP3FrameHeader h = header(1, 0);
    nkpMP3SideInfo si = granule(15, 0, 0);  // slen 4 and 3
    const int group_start[5] = {0, 6, 11, 16, 21}, group_bits[4] = {24, 20, 15, 15};
    for (int flags = 0; flags < 16; ++flags) {
        int scfsi[4];
        long want_bits = 0;
        for (int g = 0; g < 4; ++g) scfsi[g] = (flags >> g) & 1, want_bits += scfsi[g] ? 0 : group_bits[g];
        nkp8s in[22], got[22];
        for (int i = 0; i < 22; ++i) in[i] = static_cast<nkp8s>(i % 8), got[i] = static_cast<nkp8s>(100 + i);
        std::vector<uint8_t> bytes(16, 0);
        nkp8u* p = bytes.data();
        int offset = 0;
        ASSERT_EQ(nkpsPackScaleFactors_MP3_8s1u(in, &p, &offset, &h, &si, scfsi, 1, 0), nkpStatusOk);
        ASSERT_EQ((p - bytes.data()) * 8 + offset, want_bits);
        p = bytes.data(), offset = 0;
        ASSERT_EQ(nkpsUnpackScaleFactors_MP3_1u8s(&p, &offset, got, &si, scfsi, &h, 1, 0), nkpStatusOk);
        EXPECT_EQ((p - bytes.data()) * 8 + offset, want_bits);
        for (int g = 0; g < 4; ++g)
            for (int i = group_start[g]; i < group_start[g + 1]; ++i)
                EXPECT_EQ(got[i], scfsi[g] ? 100 + i : in[i]) << "flags " << flags << " value " << i;
        EXPECT_EQ(got[21], 0);
    }
}

TEST(ScaleFactors, MixedFlagIsMaskedByTheReaderButNotByTheWriter) {
    const nkpMP3FrameHeader h = header(0, 0);
    nkpMP3SideInfo si = granule(399, 2, 3);  // slen 4, 4, 3, 3
    nkp8s sf[40] = {};
    int scfsi[4] = {}, offset = 0;
    std::vector<uint8_t> bytes(32, 0);
    nkp8u* p = bytes.data();
    // The writer takes mixedBlock 3 as neither short nor mixed: long layout.
    ASSERT_EQ(nkpsPackScaleFactors_MP3_8s1u(sf, &p, &offset, &h, &si, scfsi, 0, 0), nkpStatusOk);
    EXPECT_EQ((p - bytes.data()) * 8 + offset, 6 * 4 + 5 * 4 + 5 * 3 + 5 * 3);
    EXPECT_EQ(si.mixedBlock, 3);
    // The reader keeps the low bit, in the record too: mixed layout.
    p = bytes.data(), offset = 0;
    ASSERT_EQ(nkpsUnpackScaleFactors_MP3_1u8s(&p, &offset, sf, &si, scfsi, &h, 0, 0), nkpStatusOk);
    EXPECT_EQ((p - bytes.data()) * 8 + offset, 6 * 4 + 9 * 4 + 9 * 3 + 9 * 3);
    EXPECT_EQ(si.mixedBlock, 1);
}

#if !defined(_WIN32)
TEST(ScaleFactors, ReadsNoFurtherThanTheSlack) {
    // 126-bit layouts (MPEG-1 and LSF short blocks) ending their buffers.
    for (int id : {1, 0}) {
        for (int lead = 0; lead < 8; ++lead) {
            const std::vector<uint8_t> data((lead + 126 + 7) / 8, 0xA7);
            for (size_t misalign = 0; misalign < 4; ++misalign) {
                nkptest::GuardedBuffer buffer(data, misalign);
                const nkpMP3FrameHeader h = header(id, 0);
                nkpMP3SideInfo si = granule(id ? 15 : 399, 2, 0);
                int scfsi[4] = {}, offset = lead;
                nkp8s sf[40];
                nkp8u* p = buffer.data();
                ASSERT_EQ(nkpsUnpackScaleFactors_MP3_1u8s(&p, &offset, sf, &si, scfsi, &h, 0, 0), nkpStatusOk);
                EXPECT_EQ((p - buffer.data()) * 8 + offset, lead + 126);
            }
        }
    }
}
#endif

}  // namespace
