// Scale factors: MPEG-1 and LSF layouts through pack-then-unpack round trips,
// scfsi reuse, LSF preflag and intensity-stereo rules, and the checks.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "common/guarded_buffer.h"
#include "nkpac.h"

namespace {

nkpMP3FrameHeader header(int id, int mode_extension) {
    nkpMP3FrameHeader h{};
    h.id = id;
    h.layer = 1;
    h.mode = 1;
    h.modeExtension = mode_extension;
    return h;
}

nkpMP3SideInfo granule(int compress, int block_type, int mixed) {
    nkpMP3SideInfo si{};
    si.scalefacCompress = compress;
    si.windowSwitching = block_type != 0;
    si.blockType = block_type;
    si.mixedBlock = mixed;
    si.preflag = 7;
    return si;
}

// The widths of each stored value, in stream order, written out from the
// layouts: MPEG-1 from slen1/slen2, LSF from the partition table.
const int kSlen1[16] = {0, 0, 0, 0, 3, 1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4};
const int kSlen2[16] = {0, 1, 2, 3, 0, 1, 2, 3, 1, 2, 3, 1, 2, 3, 2, 3};
const int kPartitions[6][3][4] = {
    {{6, 5, 5, 5}, {9, 9, 9, 9}, {6, 9, 9, 9}},     {{6, 5, 7, 3}, {9, 9, 12, 6}, {6, 9, 12, 6}},
    {{11, 10, 0, 0}, {18, 18, 0, 0}, {15, 18, 0, 0}}, {{7, 7, 7, 0}, {12, 12, 12, 0}, {6, 15, 12, 0}},
    {{6, 6, 6, 3}, {12, 9, 9, 6}, {6, 12, 9, 6}},   {{8, 8, 5, 0}, {15, 12, 9, 0}, {6, 18, 9, 0}},
};

std::vector<int> mpeg1_widths(int compress, int block_type, int mixed) {
    const int a = kSlen1[compress], b = kSlen2[compress];
    std::vector<int> w;
    if (block_type == 2 && !mixed) w.insert(w.end(), 18, a), w.insert(w.end(), 18, b);
    else if (block_type == 2) w.insert(w.end(), 17, a), w.insert(w.end(), 18, b);
    else w.insert(w.end(), 11, a), w.insert(w.end(), 10, b);
    return w;
}

std::vector<int> lsf_widths(int compress, int kind, bool intensity_right, int* preflag) {
    int slen[4], row;
    *preflag = 0;
    if (intensity_right) {
        const int s = compress / 2;
        if (s < 180) row = 3, slen[0] = s / 36, slen[1] = s % 36 / 6, slen[2] = s % 6, slen[3] = 0;
        else if (s < 244) row = 4, slen[0] = (s - 180) / 16, slen[1] = (s - 180) % 16 / 4, slen[2] = s % 4, slen[3] = 0;
        else row = 5, slen[0] = (s - 244) / 3, slen[1] = (s - 244) % 3, slen[2] = slen[3] = 0;
    } else if (compress < 400) {
        row = 0, slen[0] = compress / 80, slen[1] = compress / 16 % 5, slen[2] = compress % 16 / 4, slen[3] = compress % 4;
    } else if (compress < 500) {
        const int t = compress - 400;
        row = 1, slen[0] = t / 20, slen[1] = t / 4 % 5, slen[2] = t % 4, slen[3] = 0;
    } else {
        const int t = compress - 500;
        row = 2, slen[0] = t / 3, slen[1] = t % 3, slen[2] = slen[3] = 0, *preflag = 1;
    }
    std::vector<int> w;
    for (int k = 0; k < 4; ++k) w.insert(w.end(), kPartitions[row][kind][k], slen[k]);
    return w;
}

struct Stream {
    std::vector<uint8_t> bytes = std::vector<uint8_t>(64, 0);
    nkp8u* p = bytes.data();
    int offset;
    explicit Stream(int lead) : offset(lead) {}
    long bits() const { return (p - bytes.data()) * 8L + offset; }
};

uint32_t lcg(uint32_t& s) { return (s = s * 1664525u + 1013904223u) >> 8; }

// Packs random values of the right widths and unpacks them again: same
// bits on both sides, values back in the documented layout.
TEST(ScaleFactors, Mpeg1RoundTrips) {
    uint32_t seed = 7;
    const int kinds[3][2] = {{0, 0}, {2, 0}, {2, 1}};
    for (int compress = 0; compress < 16; ++compress) {
        for (const auto& kind : kinds) {
            const std::vector<int> widths = mpeg1_widths(compress, kind[0], kind[1]);
            nkp8s in[40] = {};
            long total = 0;
            for (size_t i = 0; i < widths.size(); ++i) {
                in[i] = static_cast<nkp8s>(lcg(seed) % (1u << widths[i]));
                total += widths[i];
            }
            const int lead = compress % 8;
            const nkpMP3FrameHeader h = header(1, 0);
            nkpMP3SideInfo si = granule(compress, kind[0], kind[1]);
            int scfsi[4] = {1, 1, 1, 1};  // ignored in granule 0 and by short blocks
            Stream out(lead);
            ASSERT_EQ(nkpsPackScaleFactors_MP3_8s1u(in, &out.p, &out.offset, &h, &si, scfsi, 0, 0), nkpStatusOk);
            ASSERT_EQ(out.bits(), lead + total);
            Stream back(lead);
            back.bytes = out.bytes;
            back.p = back.bytes.data();
            nkp8s got[40];
            std::memset(got, 0x55, sizeof got);
            ASSERT_EQ(nkpsUnpackScaleFactors_MP3_1u8s(&back.p, &back.offset, got, &si, scfsi, &h, kind[0] == 2, 1),
                      nkpStatusOk);
            EXPECT_EQ(back.bits(), lead + total);
            const size_t n = widths.size();
            EXPECT_EQ(std::vector<nkp8s>(got, got + n), std::vector<nkp8s>(in, in + n));
            const size_t zeros = n == 21 ? 1 : 3;  // long blocks clear element 21 only
            EXPECT_EQ(std::vector<nkp8s>(got + n, got + n + zeros), std::vector<nkp8s>(zeros, 0));
            EXPECT_EQ(got[n + zeros], 0x55);
            EXPECT_EQ(si.preflag, 7) << "MPEG-1 leaves preflag to the side information";
        }
    }
}

TEST(ScaleFactors, Mpeg1Granule1KeepsGroupsFlaggedInScfsi) {
    const nkpMP3FrameHeader h = header(1, 0);
    nkpMP3SideInfo si = granule(15, 0, 0);  // slen 4 and 3
    const int group_bits[4] = {6 * 4, 5 * 4, 5 * 3, 5 * 3};
    const int group_start[5] = {0, 6, 11, 16, 21};
    for (int flags = 0; flags < 16; ++flags) {
        int scfsi[4];
        for (int g = 0; g < 4; ++g) scfsi[g] = (flags >> g) & 1;
        nkp8s in[22];
        for (int i = 0; i < 21; ++i) in[i] = static_cast<nkp8s>(i < 11 ? 15 - i : i % 8);
        Stream out(0);
        ASSERT_EQ(nkpsPackScaleFactors_MP3_8s1u(in, &out.p, &out.offset, &h, &si, scfsi, 1, 0), nkpStatusOk);
        long want_bits = 0;
        for (int g = 0; g < 4; ++g) want_bits += scfsi[g] ? 0 : group_bits[g];
        ASSERT_EQ(out.bits(), want_bits);

        nkp8s got[22];
        for (int i = 0; i < 22; ++i) got[i] = static_cast<nkp8s>(100 + i);  // "granule 0"
        Stream back(0);
        back.bytes = out.bytes;
        back.p = back.bytes.data();
        ASSERT_EQ(nkpsUnpackScaleFactors_MP3_1u8s(&back.p, &back.offset, got, &si, scfsi, &h, 1, 0), nkpStatusOk);
        EXPECT_EQ(back.bits(), want_bits);
        for (int g = 0; g < 4; ++g)
            for (int i = group_start[g]; i < group_start[g + 1]; ++i)
                EXPECT_EQ(got[i], scfsi[g] ? 100 + i : in[i]) << "flags " << flags << " line " << i;
        EXPECT_EQ(got[21], 0);
    }
}

struct LsfCase {
    const char* name;
    int kind;  // 0 long, 1 short, 2 mixed
    int mode_extension, channel;
};

class LsfScaleFactors : public ::testing::TestWithParam<LsfCase> {};

TEST_P(LsfScaleFactors, RoundTripEveryCompressValue) {
    const LsfCase& c = GetParam();
    const nkpMP3FrameHeader h = header(0, c.mode_extension);
    const bool intensity_right = (c.mode_extension & 1) && c.channel == 1;
    uint32_t seed = 3;
    for (int compress = 0; compress < 512; ++compress) {
        int preflag;
        const std::vector<int> widths = lsf_widths(compress, c.kind, intensity_right, &preflag);
        nkp8s in[40] = {}, want[40] = {};
        long total = 0;
        for (size_t i = 0; i < widths.size(); ++i) {
            const int top = (1 << widths[i]) - 1;
            in[i] = static_cast<nkp8s>(i % 5 == 0 ? top : lcg(seed) % (top + 1));
            // An intensity position at its width's maximum comes back negated.
            want[i] = static_cast<nkp8s>(intensity_right && in[i] == top ? -in[i] : in[i]);
            total += widths[i];
        }
        const int lead = compress % 8;
        nkpMP3SideInfo si = granule(compress, c.kind ? 2 : compress % 2 ? 1 : 3, c.kind == 2);
        int scfsi[4] = {};
        Stream out(lead);
        ASSERT_EQ(nkpsPackScaleFactors_MP3_8s1u(in, &out.p, &out.offset, &h, &si, scfsi, 0, c.channel), nkpStatusOk);
        ASSERT_EQ(out.bits(), lead + total) << compress;
        EXPECT_EQ(si.preflag, preflag);
        si.preflag = 9;
        Stream back(lead);
        back.bytes = out.bytes;
        back.p = back.bytes.data();
        nkp8s got[40];
        std::memset(got, 0x55, sizeof got);
        ASSERT_EQ(nkpsUnpackScaleFactors_MP3_1u8s(&back.p, &back.offset, got, &si, scfsi, &h, 0, c.channel),
                  nkpStatusOk);
        EXPECT_EQ(back.bits(), lead + total) << compress;
        EXPECT_EQ(si.preflag, preflag) << compress;
        const size_t n = widths.size();
        ASSERT_EQ(std::vector<nkp8s>(got, got + n + 3), std::vector<nkp8s>(want, want + n + 3)) << compress;
        EXPECT_EQ(got[n + 3], 0x55);
    }
}

const LsfCase kLsfCases[] = {
    {"long", 0, 0, 0},          {"short", 1, 0, 1},   {"mixed", 2, 2, 1},
    {"intensity_left", 0, 1, 0}, {"intensity_right_long", 0, 3, 1},
    {"intensity_right_short", 1, 1, 1}, {"intensity_right_mixed", 2, 1, 1},
};

INSTANTIATE_TEST_SUITE_P(Mp3, LsfScaleFactors, ::testing::ValuesIn(kLsfCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(ScaleFactors, IntensityMaximumComesBackNegated) {
    // Intensity right channel, scalefacCompress 2 * 73: slen 2, 0, 1, 0
    // (row 3, long: 7, 7, 7, 0 values).
    const nkpMP3FrameHeader h = header(0, 1);
    nkpMP3SideInfo si = granule(146, 0, 0);
    const uint8_t bytes[8] = {0xFF, 0xF0, 0x18};  // seven 3s, then one-bit 0,0,0,0,0,1,1
    std::vector<uint8_t> buffer(bytes, bytes + 8);
    nkp8u* p = buffer.data();
    int offset = 0, scfsi[4] = {};
    nkp8s sf[40];
    ASSERT_EQ(nkpsUnpackScaleFactors_MP3_1u8s(&p, &offset, sf, &si, scfsi, &h, 0, 1), nkpStatusOk);
    EXPECT_EQ(std::vector<nkp8s>(sf, sf + 4), (std::vector<nkp8s>{-3, -3, -3, -3}));
    EXPECT_EQ(sf[7], 0) << "width 0: 0 equals its maximum, stays 0";
    EXPECT_EQ(std::vector<nkp8s>(sf + 14, sf + 21), (std::vector<nkp8s>{0, 0, 0, 0, 0, -1, -1}));
    EXPECT_EQ(p - buffer.data(), 2);  // 21 bits
    EXPECT_EQ(offset, 5);
}

TEST(ScaleFactors, MixedFlagIsMaskedByTheReaderButNotByTheWriter) {
    const nkpMP3FrameHeader h = header(0, 0);
    nkpMP3SideInfo si = granule(0, 2, 3);  // all widths 0 at compress 0
    si.scalefacCompress = 399;             // slen 4, 4, 3, 3
    nkp8s in[40] = {};
    int scfsi[4] = {};
    // The writer takes mixedBlock 3 as "not short, not mixed": long layout.
    Stream out(0);
    ASSERT_EQ(nkpsPackScaleFactors_MP3_8s1u(in, &out.p, &out.offset, &h, &si, scfsi, 0, 0), nkpStatusOk);
    EXPECT_EQ(out.bits(), 6 * 4 + 5 * 4 + 5 * 3 + 5 * 3);
    EXPECT_EQ(si.mixedBlock, 3);
    // The reader keeps the low bit: mixed layout, and the record changes.
    Stream in_stream(0);
    nkp8s got[40];
    ASSERT_EQ(nkpsUnpackScaleFactors_MP3_1u8s(&in_stream.p, &in_stream.offset, got, &si, scfsi, &h, 0, 0),
              nkpStatusOk);
    EXPECT_EQ(in_stream.bits(), 6 * 4 + 9 * 4 + 9 * 3 + 9 * 3);
    EXPECT_EQ(si.mixedBlock, 1);
}

struct ScaleFactorFault {
    const char* name;
    int id, compress, mode_extension, offset, granule, channel;
    nkpStatus unpack, pack;
};

class ScaleFactorChecks : public ::testing::TestWithParam<ScaleFactorFault> {};

TEST_P(ScaleFactorChecks, FirstFailingCheckDecides) {
    const ScaleFactorFault& c = GetParam();
    const nkpMP3FrameHeader h = header(c.id, c.mode_extension);
    nkpMP3SideInfo si = granule(c.compress, 0, 0);
    int scfsi[4] = {};
    nkp8s sf[40] = {};
    std::vector<uint8_t> bytes(64, 0);
    nkp8u* p = bytes.data();
    int offset = c.offset;
    EXPECT_EQ(nkpsUnpackScaleFactors_MP3_1u8s(&p, &offset, sf, &si, scfsi, &h, c.granule, c.channel), c.unpack);
    if (c.unpack != nkpStatusOk) EXPECT_EQ(p, bytes.data());
    p = bytes.data();
    offset = c.offset;
    EXPECT_EQ(nkpsPackScaleFactors_MP3_8s1u(sf, &p, &offset, &h, &si, scfsi, c.granule, c.channel), c.pack);
}

const ScaleFactorFault kScaleFactorFaults[] = {
    {"offset_8", 1, 0, 0, 8, 0, 0, nkpStatusOutOfRange, nkpStatusOk},
    {"offset_negative", 1, 0, 0, -1, 0, 0, nkpStatusOutOfRange, nkpStatusOk},
    {"granule_2", 1, 0, 0, 0, 2, 0, nkpStatusOutOfRange, nkpStatusOk},
    {"channel_2", 0, 0, 0, 0, 0, 2, nkpStatusOutOfRange, nkpStatusOk},
    {"channel_before_compress", 1, 16, 0, 0, 0, 2, nkpStatusOutOfRange, nkpStatusBadMP3SideInfo},
    {"mpeg1_compress_16", 1, 16, 0, 0, 0, 0, nkpStatusBadMP3SideInfo, nkpStatusBadMP3SideInfo},
    {"mpeg1_compress_negative", 1, -1, 0, 0, 0, 0, nkpStatusBadMP3SideInfo, nkpStatusBadMP3SideInfo},
    {"mpeg1_ignores_mode_extension", 1, 15, 9, 0, 0, 0, nkpStatusOk, nkpStatusOk},
    {"lsf_compress_512", 0, 512, 0, 0, 0, 0, nkpStatusBadMP3SideInfo, nkpStatusBadMP3SideInfo},
    {"lsf_compress_negative", 0, -5, 0, 0, 0, 0, nkpStatusBadMP3SideInfo, nkpStatusBadMP3SideInfo},
    {"lsf_compress_before_mode_extension", 0, 600, 4, 0, 0, 0, nkpStatusBadMP3SideInfo, nkpStatusBadMP3SideInfo},
    {"lsf_mode_extension_4", 0, 511, 4, 0, 0, 0, nkpStatusBadMP3FrameHeader, nkpStatusBadMP3FrameHeader},
    {"id_2_reads_as_lsf", 2, 300, 0, 0, 0, 0, nkpStatusOk, nkpStatusOk},
};

INSTANTIATE_TEST_SUITE_P(Mp3, ScaleFactorChecks, ::testing::ValuesIn(kScaleFactorFaults),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(ScaleFactorChecks, NullPointers) {
    const nkpMP3FrameHeader h = header(1, 0);
    nkpMP3SideInfo si = granule(0, 0, 0);
    int scfsi[4] = {}, offset = 9;  // null pointers are reported before the offset
    nkp8s sf[40];
    uint8_t bytes[8] = {};
    nkp8u* p = bytes;
    nkp8u* none = nullptr;
    EXPECT_EQ(nkpsUnpackScaleFactors_MP3_1u8s(nullptr, &offset, sf, &si, scfsi, &h, 0, 0), nkpStatusNullPointer);
    EXPECT_EQ(nkpsUnpackScaleFactors_MP3_1u8s(&none, &offset, sf, &si, scfsi, &h, 0, 0), nkpStatusNullPointer);
    EXPECT_EQ(nkpsUnpackScaleFactors_MP3_1u8s(&p, nullptr, sf, &si, scfsi, &h, 0, 0), nkpStatusNullPointer);
    EXPECT_EQ(nkpsUnpackScaleFactors_MP3_1u8s(&p, &offset, nullptr, &si, scfsi, &h, 0, 0), nkpStatusNullPointer);
    EXPECT_EQ(nkpsUnpackScaleFactors_MP3_1u8s(&p, &offset, sf, nullptr, scfsi, &h, 0, 0), nkpStatusNullPointer);
    EXPECT_EQ(nkpsUnpackScaleFactors_MP3_1u8s(&p, &offset, sf, &si, nullptr, &h, 0, 0), nkpStatusNullPointer);
    EXPECT_EQ(nkpsUnpackScaleFactors_MP3_1u8s(&p, &offset, sf, &si, scfsi, nullptr, 0, 0), nkpStatusNullPointer);
    EXPECT_EQ(nkpsPackScaleFactors_MP3_8s1u(nullptr, &p, &offset, &h, &si, scfsi, 0, 0), nkpStatusNullPointer);
    EXPECT_EQ(nkpsPackScaleFactors_MP3_8s1u(sf, nullptr, &offset, &h, &si, scfsi, 0, 0), nkpStatusNullPointer);
    EXPECT_EQ(nkpsPackScaleFactors_MP3_8s1u(sf, &none, &offset, &h, &si, scfsi, 0, 0), nkpStatusNullPointer);
    EXPECT_EQ(nkpsPackScaleFactors_MP3_8s1u(sf, &p, nullptr, &h, &si, scfsi, 0, 0), nkpStatusNullPointer);
    EXPECT_EQ(nkpsPackScaleFactors_MP3_8s1u(sf, &p, &offset, nullptr, &si, scfsi, 0, 0), nkpStatusNullPointer);
    EXPECT_EQ(nkpsPackScaleFactors_MP3_8s1u(sf, &p, &offset, &h, nullptr, scfsi, 0, 0), nkpStatusNullPointer);
    EXPECT_EQ(nkpsPackScaleFactors_MP3_8s1u(sf, &p, &offset, &h, &si, nullptr, 0, 0), nkpStatusNullPointer);
}

#if !defined(_WIN32)
TEST(ScaleFactors, ReadsNoFurtherThanTheSlack) {
    // The largest MPEG-1 layout (short blocks, slen 4 and 3: 126 bits) and an
    // LSF one, each ending its buffer, at every start offset.
    const struct {
        int id, compress, block_type;
    } rows[] = {{1, 15, 2}, {0, 399, 2}};  // both 126 bits
    for (const auto& row : rows) {
        for (int lead = 0; lead < 8; ++lead) {
            const size_t bytes = (lead + 126 + 7) / 8;
            std::vector<uint8_t> data(bytes, 0xA7);
            for (size_t misalign = 0; misalign < 4; ++misalign) {
                nkptest::GuardedBuffer buffer(data, misalign);
                const nkpMP3FrameHeader h = header(row.id, 0);
                nkpMP3SideInfo si = granule(row.compress, row.block_type, 0);
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
