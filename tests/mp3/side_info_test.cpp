// Side information reader and writer: layouts, round trips, region counts of
// window-switched granules, the two different answers to a switched granule
// without a block type, and the reader's slack.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "common/bit_writer.h"
#include "common/guarded_buffer.h"
#include "mp3/mp3_test_util.h"

namespace {

using nkptest::lcg;

nkpMP3FrameHeader header(int id, int mode) { return nkptest::mp3_header(id, 0, mode); }

// A random record of the given block kind, with every field inside its
// width. kind: 0 normal, 1 start, 2 short, 3 stop, 4 mixed.
nkpMP3SideInfo random_record(uint32_t& s, int kind, bool mpeg1) {
    nkpMP3SideInfo si{};
    si.part23Length = lcg(s) % 4096;
    si.bigValues = lcg(s) % 512;
    si.globalGain = lcg(s) % 256;
    si.scalefacCompress = lcg(s) % (mpeg1 ? 16 : 512);
    si.windowSwitching = kind != 0;
    si.blockType = kind == 4 ? 2 : kind;
    si.mixedBlock = kind == 4;
    for (int& t : si.tableSelect) t = lcg(s) % 32;
    if (kind) {
        for (int& g : si.subblockGain) g = lcg(s) % 8;
        si.region0Count = 3;  // not coded: the reader sets 8/12 or 7/13
        si.region1Count = 3;
    } else {
        si.region0Count = lcg(s) % 16;
        si.region1Count = lcg(s) % 8;
    }
    si.preflag = mpeg1 ? lcg(s) % 2 : 0;
    si.scalefacScale = lcg(s) % 2;
    si.count1TableSelect = lcg(s) % 2;
    return si;
}

struct Layout {
    const char* name;
    int id, mode;
    int records, bytes;
};

class SideInfoLayout : public ::testing::TestWithParam<Layout> {};

TEST_P(SideInfoLayout, PackThenUnpackReturnsEveryCodedField) {
    const Layout& c = GetParam();
    const bool mpeg1 = c.id == 1;
    const nkpMP3FrameHeader h = header(c.id, c.mode);
    uint32_t seed = 99;
    for (int iter = 0; iter < 200; ++iter) {
        nkpMP3SideInfo in[4];
        for (int i = 0; i < c.records; ++i) in[i] = random_record(seed, (iter + i) % 5, mpeg1);
        int scfsi[8];
        for (int& f : scfsi) f = lcg(seed) % 2;
        const int main_data_begin = lcg(seed) % (mpeg1 ? 512 : 256);
        const int private_bits = lcg(seed) % (mpeg1 ? (c.mode == 3 ? 32 : 8) : (c.mode == 3 ? 2 : 4));

        std::vector<uint8_t> bytes(40, 0xC3);
        nkp8u* p = bytes.data();
        ASSERT_EQ(nkpsPackSideInfo_MP3(in, &p, main_data_begin, private_bits, scfsi, &h), nkpStatusOk);
        ASSERT_EQ(p - bytes.data(), c.bytes);
        EXPECT_EQ(bytes[c.bytes], 0xC3);

        nkpMP3SideInfo out[5];
        std::memset(out, 0x11, sizeof out);
        int md = -1, priv = -1, flags[8];
        std::memset(flags, 0x22, sizeof flags);
        nkp8u* q = bytes.data();
        ASSERT_EQ(nkpsUnpackSideInfo_MP3(&q, out, &md, &priv, flags, &h), nkpStatusOk);
        EXPECT_EQ(q - bytes.data(), c.bytes);
        EXPECT_EQ(md, main_data_begin);
        EXPECT_EQ(priv, private_bits);
        for (int i = 0; i < c.records; ++i) {
            nkpMP3SideInfo want = in[i];
            if (want.windowSwitching) {
                const bool pure_short = want.blockType == 2 && !want.mixedBlock;
                want.region0Count = pure_short ? 8 : 7;
                want.region1Count = pure_short ? 12 : 13;
                want.tableSelect[2] = 0x11111111;  // not coded, not written
            } else {
                for (int& g : want.subblockGain) g = 0x11111111;
            }
            if (!mpeg1) want.preflag = 0x11111111;  // LSF has no preflag bit
            EXPECT_EQ(std::memcmp(&out[i], &want, sizeof want), 0) << "record " << i << " iteration " << iter;
        }
        EXPECT_EQ(out[c.records].part23Length, 0x11111111) << "no record past the frame's";
        for (int i = 0; i < 8; ++i)
            EXPECT_EQ(flags[i], mpeg1 && i < 4 * (c.mode == 3 ? 1 : 2) ? scfsi[i] : 0x22222222);
    }
}

const Layout kLayouts[] = {
    {"mpeg1_mono", 1, 3, 2, 17},  {"mpeg1_stereo", 1, 0, 4, 32}, {"mpeg1_joint", 1, 1, 4, 32},
    {"mpeg1_dual", 1, 2, 4, 32},  {"lsf_mono", 0, 3, 1, 9},      {"lsf_joint", 0, 1, 2, 17},
};

INSTANTIATE_TEST_SUITE_P(Mp3, SideInfoLayout, ::testing::ValuesIn(kLayouts),
                         [](const auto& info) { return std::string(info.param.name); });

// Side information of one LSF mono granule: fields through windowSwitching,
// then the 22 switched bits.
nkptest::BitWriter lsf_switched(int block_type) {
    nkptest::BitWriter w;
    w.put(5, 8).put(1, 1);                                     // main-data begin, private bits
    w.put(1000, 12).put(100, 9).put(200, 8).put(300, 9).put(1, 1);  // part23 .. windowSwitching
    w.put(block_type, 2).put(1, 1).put(17, 5).put(18, 5).put(3, 3).put(4, 3).put(5, 3);
    w.put(1, 1).put(1, 1);
    return w;
}

TEST(SideInfo, ReaderStopsAtASwitchedGranuleWithoutBlockType) {
    const nkptest::BitWriter w = lsf_switched(0);
    std::vector<uint8_t> bytes = w.bytes();
    bytes.resize(16, 0);
    nkpMP3SideInfo out[1];
    std::memset(out, 0x11, sizeof out);
    int md = -1, priv = -1, scfsi[4] = {};
    const nkpMP3FrameHeader h = header(0, 3);
    nkp8u* p = bytes.data();
    EXPECT_EQ(nkpsUnpackSideInfo_MP3(&p, out, &md, &priv, scfsi, &h), nkpStatusBadMP3SideInfo);
    EXPECT_EQ(p, bytes.data() + (9 + 39 + 22) / 8) << "on the byte reached; the bit position is lost";
    EXPECT_EQ(md, 5);
    EXPECT_EQ(out[0].part23Length, 1000);
    EXPECT_EQ(out[0].scalefacCompress, 300);
    EXPECT_EQ(out[0].tableSelect[1], 18);
    EXPECT_EQ(out[0].subblockGain[2], 5);
    EXPECT_EQ(out[0].region0Count, 0x11111111);
    EXPECT_EQ(out[0].scalefacScale, 0x11111111);
    EXPECT_EQ(out[0].count1TableSelect, 0x11111111);
}

TEST(SideInfo, WriterEndsQuietlyAtASwitchedGranuleWithoutBlockType) {
    nkpMP3SideInfo in[4] = {};
    in[0].part23Length = 0xABC;
    in[1].windowSwitching = 1;  // block type 0
    in[1].part23Length = 0x123;
    const nkpMP3FrameHeader h = header(1, 0);
    int scfsi[8] = {1, 0, 1, 0, 0, 1, 0, 1};
    std::vector<uint8_t> bytes(40, 0xEE);
    nkp8u* p = bytes.data();
    EXPECT_EQ(nkpsPackSideInfo_MP3(in, &p, 0x1FF, 5, scfsi, &h), nkpStatusOk);
    // 9 + 3 + 8 bits of frame fields, record 0 (59 bits), record 1 up to its
    // windowSwitching bit (34 bits): 113 bits, so the pointer stops on
    // byte 14, which holds that last bit.
    EXPECT_EQ(p, bytes.data() + 14);
    nkptest::BitWriter want;
    want.put(0x1FF, 9).put(5, 3);
    for (int f : scfsi) want.put(f, 1);
    want.put(0xABC, 12).put(0, 9 + 8 + 4 + 1).put(0, 15 + 4 + 3 + 3);
    want.put(0x123, 12).put(0, 9 + 8 + 4).put(1, 1);
    EXPECT_EQ(std::vector<uint8_t>(bytes.begin(), bytes.begin() + 15), want.bytes());
    EXPECT_EQ(bytes[15], 0xEE);
}

#if !defined(_WIN32)
TEST(SideInfo, ReadsNoFurtherThanTheSlack) {
    // Side information that ends the buffer (17 and 9 bytes), whatever it
    // holds.
    for (int id : {1, 0}) {
        const nkpMP3FrameHeader h = header(id, 3);
        std::vector<uint8_t> bytes(id ? 17 : 9, 0);
        for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 37);
        for (size_t misalign = 0; misalign < 4; ++misalign) {
            nkptest::GuardedBuffer buffer(bytes, misalign);
            nkp8u* p = buffer.data();
            nkpMP3SideInfo si[2];
            int md, priv, scfsi[4];
            nkpsUnpackSideInfo_MP3(&p, si, &md, &priv, scfsi, &h);
        }
    }
}
#endif

}  // namespace
