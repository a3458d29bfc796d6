// Frame header reader and writer, and the encoder's reservoir set-up.
#include "mp3/mp3_test_util.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

nkpMP3FrameHeader make_header(int id, int protection, int bitrate, int sfi, int mode, int crc) {
    nkpMP3FrameHeader h = nkptest::mp3_header(id, sfi, mode, 2);
    h.protectionBit = protection, h.bitrateIndex = bitrate, h.paddingBit = 1, h.copyright = 1, h.emphasis = 3;
    h.crcWord = crc;
    return h;
}

bool same(const nkpMP3FrameHeader& a, const nkpMP3FrameHeader& b) { return std::memcmp(&a, &b, sizeof a) == 0; }

TEST(FrameHeader, PackThenUnpackReturnsEveryField) {
    const nkpMP3FrameHeader cases[] = {make_header(1, 1, 9, 0, 0, 0), make_header(1, 0, 14, 1, 1, 0xBEEF),
                                       make_header(0, 1, 1, 2, 3, 0), make_header(0, 0, 8, 0, 2, 0x0001),
                                       make_header(1, 0, 0, 2, 3, 0xFFFF)};
    for (const nkpMP3FrameHeader& h : cases) {
        std::vector<uint8_t> bytes(16, 0xA5);  // old content is overwritten
        nkp8u* p = bytes.data();
        ASSERT_EQ(nkpsPackFrameHeader_MP3(&h, &p), nkpStatusOk);
        const long written = p - bytes.data();
        EXPECT_EQ(written, h.protectionBit ? 4 : 6);
        EXPECT_EQ(bytes[0], 0xFF);
        EXPECT_EQ(bytes[written], 0xA5) << "the byte after the header is kept";
        nkpMP3FrameHeader back{};
        nkp8u* q = bytes.data();
        ASSERT_EQ(nkpsUnpackFrameHeader_MP3(&q, &back), nkpStatusOk);
        EXPECT_EQ(q - bytes.data(), written);
        nkpMP3FrameHeader want = h;
        if (h.protectionBit) want.crcWord = 0;  // not read: keeps the record's value
        EXPECT_TRUE(same(back, want)) << "id " << h.id << " protection " << h.protectionBit;
    }
}

// The reader looks at no sync bits (MPEG-2.5 reads as LSF); the writer cuts
// every field to its width.
TEST(FrameHeader, ReaderIgnoresTheSyncAndWriterCutsFields) {
    const uint8_t bytes[8] = {0x00, 0x0B, 0x94, 0x64, 0x12, 0x34};
    nkpMP3FrameHeader h;
    std::memset(&h, 0x7F, sizeof h);
    nkp8u* p = const_cast<nkp8u*>(bytes);
    ASSERT_EQ(nkpsUnpackFrameHeader_MP3(&p, &h), nkpStatusOk);
    EXPECT_EQ(p, bytes + 4);
    EXPECT_TRUE(same(h, nkpMP3FrameHeader{1, 1, 1, 9, 1, 0, 0, 1, 2, 0, 1, 0, 0x7F7F7F7F}));
    const uint8_t lsf25[8] = {0xFF, 0xE2, 0x18, 0xC0, 0xAB, 0xCD};
    p = const_cast<nkp8u*>(lsf25);
    ASSERT_EQ(nkpsUnpackFrameHeader_MP3(&p, &h), nkpStatusOk);
    EXPECT_EQ(p, lsf25 + 6);
    EXPECT_TRUE(h.id == 0 && h.protectionBit == 0 && h.crcWord == 0xABCD && h.samplingFreqIndex == 2 && h.mode == 3);

    nkpMP3FrameHeader wide = make_header(3, 3, 0x1F, 7, 5, 0x12345);
    wide.layer = 5;
    std::vector<uint8_t> out(8, 0);
    p = out.data();
    ASSERT_EQ(nkpsPackFrameHeader_MP3(&wide, &p), nkpStatusOk);
    EXPECT_EQ(p - out.data(), 4);  // protection bit 3 is written as 1
    nkpMP3FrameHeader back{};
    p = out.data();
    ASSERT_EQ(nkpsUnpackFrameHeader_MP3(&p, &back), nkpStatusOk);
    EXPECT_TRUE(back.id == 1 && back.layer == 1 && back.bitrateIndex == 15 && back.samplingFreqIndex == 3 &&
                back.mode == 1);
}

// maxReservoirBits = min(7680 - frame bits, 4088), free format for indices
// outside the table.
TEST(BitReservoir, SizedFromTheFrame) {
    const struct {
        const char* name;
        int bitrate, sfi, max_bits;
    } cases[] = {
        {"free_format", 0, 0, 4088},      {"k320_32kHz_fills_the_buffer", 14, 2, 0},
        {"k128_44kHz_capped", 9, 0, 4088}, {"k256_48kHz", 13, 1, 7680 - 768 * 8},
        {"k224_44kHz", 12, 0, 7680 - 731 * 8}, {"k320_44kHz", 14, 0, 0},
        {"unlisted_indices_as_free_format", 15, 3, 4088},
    };
    for (const auto& c : cases) {
        const nkpMP3FrameHeader h = make_header(1, 1, c.bitrate, c.sfi, 0, 0);
        nkpMP3BitReservoir r = {123, 456};
        EXPECT_EQ(nkpsBitReservoirInit_MP3(&r, &h), nkpStatusOk) << c.name;
        EXPECT_EQ(r.reservoirBits, 0) << c.name;
        EXPECT_EQ(r.maxReservoirBits, c.max_bits) << c.name;
    }
}

}  // namespace
