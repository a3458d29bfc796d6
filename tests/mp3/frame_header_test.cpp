// Frame header reader and writer, and the encoder's reservoir set-up.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "nkpac.h"

namespace {

nkpMP3FrameHeader make_header(int id, int protection, int bitrate, int sfi, int mode, int crc) {
    nkpMP3FrameHeader h{};
    h.id = id;
    h.layer = 1;
    h.protectionBit = protection;
    h.bitrateIndex = bitrate;
    h.samplingFreqIndex = sfi;
    h.paddingBit = 1;
    h.privateBit = 0;
    h.mode = mode;
    h.modeExtension = 2;
    h.copyright = 1;
    h.originalCopy = 0;
    h.emphasis = 3;
    h.crcWord = crc;
    return h;
}

bool same(const nkpMP3FrameHeader& a, const nkpMP3FrameHeader& b) { return std::memcmp(&a, &b, sizeof a) == 0; }

TEST(FrameHeader, PackThenUnpackReturnsEveryField) {
    const nkpMP3FrameHeader cases[] = {
        make_header(1, 1, 9, 0, 0, 0),       make_header(1, 0, 14, 1, 1, 0xBEEF), make_header(0, 1, 1, 2, 3, 0),
        make_header(0, 0, 8, 0, 2, 0x0001),  make_header(1, 0, 0, 2, 3, 0xFFFF),
    };
    for (const nkpMP3FrameHeader& h : cases) {
        std::vector<uint8_t> bytes(16, 0xA5);  // old content is overwritten
        nkp8u* p = bytes.data();
        ASSERT_EQ(nkpsPackFrameHeader_MP3(&h, &p), nkpStatusOk);
        const long written = p - bytes.data();
        EXPECT_EQ(written, h.protectionBit ? 4 : 6);
        EXPECT_EQ(bytes[0], 0xFF);
        EXPECT_EQ(bytes[written], 0xA5) << "the byte after the header is kept";
        nkpMP3FrameHeader back;
        std::memset(&back, 0, sizeof back);
        nkp8u* q = bytes.data();
        ASSERT_EQ(nkpsUnpackFrameHeader_MP3(&q, &back), nkpStatusOk);
        EXPECT_EQ(q - bytes.data(), written);
        nkpMP3FrameHeader want = h;
        if (h.protectionBit) want.crcWord = 0;  // not read: keeps the record's value
        EXPECT_TRUE(same(back, want)) << "id " << h.id << " protection " << h.protectionBit;
    }
}

TEST(FrameHeader, ReaderIgnoresTheSyncWord) {
    // Byte 0 and the top of byte 1 are never looked at.
    const uint8_t bytes[8] = {0x00, 0x0B, 0x94, 0x64, 0x12, 0x34};
    nkpMP3FrameHeader h;
    std::memset(&h, 0x7F, sizeof h);
    nkp8u* p = const_cast<nkp8u*>(bytes);
    ASSERT_EQ(nkpsUnpackFrameHeader_MP3(&p, &h), nkpStatusOk);
    EXPECT_EQ(p, bytes + 4);
    const nkpMP3FrameHeader want = {1, 1, 1, 9, 1, 0, 0, 1, 2, 0, 1, 0, 0x7F7F7F7F};
    EXPECT_TRUE(same(h, want));
    // MPEG-2.5 reads as LSF.
    const uint8_t lsf25[8] = {0xFF, 0xE2, 0x18, 0xC0, 0xAB, 0xCD};
    p = const_cast<nkp8u*>(lsf25);
    ASSERT_EQ(nkpsUnpackFrameHeader_MP3(&p, &h), nkpStatusOk);
    EXPECT_EQ(p, lsf25 + 6);
    EXPECT_EQ(h.id, 0);
    EXPECT_EQ(h.protectionBit, 0);
    EXPECT_EQ(h.crcWord, 0xABCD);
    EXPECT_EQ(h.samplingFreqIndex, 2);
    EXPECT_EQ(h.mode, 3);
}

TEST(FrameHeader, WriterCutsFieldsToTheirWidths) {
    nkpMP3FrameHeader h = make_header(3, 3, 0x1F, 7, 5, 0x12345);
    h.layer = 5;
    std::vector<uint8_t> bytes(8, 0);
    nkp8u* p = bytes.data();
    ASSERT_EQ(nkpsPackFrameHeader_MP3(&h, &p), nkpStatusOk);
    EXPECT_EQ(p - bytes.data(), 4);  // protection bit 3 is written as 1
    nkpMP3FrameHeader back{};
    nkp8u* q = bytes.data();
    ASSERT_EQ(nkpsUnpackFrameHeader_MP3(&q, &back), nkpStatusOk);
    EXPECT_EQ(back.id, 1);
    EXPECT_EQ(back.layer, 1);
    EXPECT_EQ(back.bitrateIndex, 15);
    EXPECT_EQ(back.samplingFreqIndex, 3);
    EXPECT_EQ(back.mode, 1);
}

TEST(FrameHeader, NullPointers) {
    uint8_t bytes[8] = {};
    nkp8u* p = bytes;
    nkp8u* none = nullptr;
    nkpMP3FrameHeader h{};
    EXPECT_EQ(nkpsUnpackFrameHeader_MP3(nullptr, &h), nkpStatusNullPointer);
    EXPECT_EQ(nkpsUnpackFrameHeader_MP3(&p, nullptr), nkpStatusNullPointer);
    EXPECT_EQ(nkpsUnpackFrameHeader_MP3(&none, &h), nkpStatusNullPointer);
    EXPECT_EQ(nkpsPackFrameHeader_MP3(nullptr, &p), nkpStatusNullPointer);
    EXPECT_EQ(nkpsPackFrameHeader_MP3(&h, nullptr), nkpStatusNullPointer);
    EXPECT_EQ(nkpsPackFrameHeader_MP3(&h, &none), nkpStatusNullPointer);
    EXPECT_EQ(p, bytes);
}

struct ReservoirCase {
    const char* name;
    int id, bitrate, sfi;
    nkpStatus status;
    int max_bits;
};

class BitReservoir : public ::testing::TestWithParam<ReservoirCase> {};

TEST_P(BitReservoir, SizedFromTheFrame) {
    const ReservoirCase& c = GetParam();
    nkpMP3FrameHeader h = make_header(c.id, 1, c.bitrate, c.sfi, 0, 0);
    nkpMP3BitReservoir r = {123, 456};
    EXPECT_EQ(nkpsBitReservoirInit_MP3(&r, &h), c.status);
    if (c.status == nkpStatusOk) {
        EXPECT_EQ(r.reservoirBits, 0);
        EXPECT_EQ(r.maxReservoirBits, c.max_bits);
    } else {
        EXPECT_EQ(r.reservoirBits, 123);
        EXPECT_EQ(r.maxReservoirBits, 456);
    }
}

const ReservoirCase kReservoirCases[] = {
    {"free_format", 1, 0, 0, nkpStatusOk, 4088},
    {"k320_32kHz_fills_the_buffer", 1, 14, 2, nkpStatusOk, 0},
    {"k128_44kHz_capped", 1, 9, 0, nkpStatusOk, 4088},
    {"k256_48kHz", 1, 13, 1, nkpStatusOk, 7680 - 768 * 8},
    {"k224_44kHz", 1, 12, 0, nkpStatusOk, 7680 - 731 * 8},
    {"k320_44kHz", 1, 14, 0, nkpStatusOk, 0},
    {"unlisted_indices_as_free_format", 1, 15, 3, nkpStatusOk, 4088},
    {"lsf_rejected", 0, 9, 0, nkpStatusBadMP3FrameHeader, 0},
    {"id_2_rejected", 2, 9, 0, nkpStatusBadMP3FrameHeader, 0},
};

INSTANTIATE_TEST_SUITE_P(Mp3, BitReservoir, ::testing::ValuesIn(kReservoirCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(BitReservoir, NullPointers) {
    nkpMP3FrameHeader h = make_header(1, 1, 9, 0, 0, 0);
    nkpMP3BitReservoir r;
    EXPECT_EQ(nkpsBitReservoirInit_MP3(nullptr, &h), nkpStatusNullPointer);
    h.id = 0;  // pointers are checked first
    EXPECT_EQ(nkpsBitReservoirInit_MP3(&r, nullptr), nkpStatusNullPointer);
}

}  // namespace
