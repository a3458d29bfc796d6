// The stream headers and side elements: ADTS and ADIF headers, PCE, DSE,
// FIL, the extension- and main-layer headers and the channel pair headers.
// Every stream is read from the end of readable memory (a guard page after
// the readers' slack) at several start offsets and buffer alignments.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <vector>

#include "aac/aac_test_util.h"

namespace {

using aactest::BitWriter;

struct Outcome {
    nkpStatus status;
    long consumed;  // bits
};

// A writer holding `lead` filler bits: the stream proper starts behind them.
BitWriter lead_bits(int lead) {
    BitWriter w;
    w.put(0x2A, lead);
    return w;
}

// Runs a cursor reader on w, which already starts with `lead` filler bits
// (streams that align relative to the buffer are built that way), placed at
// the end of readable memory.
Outcome read_placed(const BitWriter& w, int lead, size_t misalign,
                    const std::function<nkpStatus(nkp8u**, int*)>& read) {
    nkptest::GuardedBuffer buffer(w.bytes(), misalign);
    nkp8u* p = buffer.data();
    int offset = lead;
    const nkpStatus status = read(&p, &offset);
    return {status, (p - buffer.data()) * 8L + offset - lead};
}

// The same for a stream that starts at its first bit: `lead` filler bits go
// in front of it.
Outcome read_at(const BitWriter& w, int lead, size_t misalign, const std::function<nkpStatus(nkp8u**, int*)>& read) {
    BitWriter all = lead_bits(lead);
    for (size_t i = 0; i < w.bit_count(); ++i) all.put_bit((w.bytes()[i / 8] >> (7 - i % 8)) & 1);
    return read_placed(all, lead, misalign, read);
}

// ---- ADTS ------------------------------------------------------------------

struct AdtsCase {
    const char* name;
    uint32_t sync;
    int protection_absent, blocks_field;
    int consumed_bytes;
};

class Adts : public ::testing::TestWithParam<AdtsCase> {};

TEST_P(Adts, ReadsEveryFieldAsItStands) {
    const AdtsCase& c = GetParam();
    BitWriter w;
    w.put(c.sync, 12).put(1, 1).put(2, 2).put(c.protection_absent, 1).put(1, 2).put(11, 4).put(1, 1).put(6, 3);
    w.put(1, 1).put(0, 1).put(1, 1).put(0, 1).put(4660, 13).put(2047, 11).put(c.blocks_field, 2);
    if (!c.protection_absent) w.put(0xBEEF, 16);
    for (size_t misalign = 0; misalign < 4; ++misalign) {
        nkptest::GuardedBuffer buffer(w.bytes(), misalign);
        nkp8u* p = buffer.data();
        nkpAacAdtsHeader h;
        std::memset(&h, 0x5A, sizeof h);
        ASSERT_EQ(nkpsUnpackADTSFrameHeader_AAC(&p, &h), nkpStatusOk);
        EXPECT_EQ(p - buffer.data(), c.consumed_bytes);
        // clang-format off
        const int got[] = {h.id, h.layer, h.protectionAbsent, h.profile, h.samplingFrequencyIndex, h.privateBit,
                           h.channelConfiguration, h.originalCopy, h.home, h.reserved, h.copyrightIdentificationBit,
                           h.copyrightIdentificationStart, h.frameLength, h.bufferFullness, h.numRawDataBlocks,
                           h.crcCheck};
        const int want[] = {1, 2, c.protection_absent, 1, 11, 1, 6, 1, 0, 0x5A5A5A5A, 1, 0, 4660, 2047,
                            c.blocks_field + 1, c.protection_absent ? 0x5A5A5A5A : 0xBEEF};
        // clang-format on
        EXPECT_EQ(std::vector<int>(got, got + 16), std::vector<int>(want, want + 16));
    }
}

const AdtsCase kAdtsCases[] = {
    {"no_crc_7_bytes_crc_untouched", 0xFFF, 1, 0, 7},
    {"crc_9_bytes", 0xFFF, 0, 1, 9},
    {"sync_not_compared", 0x123, 1, 3, 7},
};

INSTANTIATE_TEST_SUITE_P(Cases, Adts, ::testing::ValuesIn(kAdtsCases),
                         [](const ::testing::TestParamInfo<AdtsCase>& i) { return std::string(i.param.name); });

// ---- PCE and ADIF -----------------------------------------------------------

// A PCE with every list filled as its counts say; the body, comment included.
struct PceShape {
    int front, side, back, lfe, assoc, cc;
    bool mono, stereo, matrix;
    int comment;
};

void write_pce(BitWriter& w, const PceShape& s, int tag) {
    w.put(tag, 4).put(1, 2).put(3, 4).put(s.front, 4).put(s.side, 4).put(s.back, 4).put(s.lfe, 2).put(s.assoc, 3);
    w.put(s.cc, 4);
    w.put(s.mono, 1);
    if (s.mono) w.put(9, 4);
    w.put(s.stereo, 1);
    if (s.stereo) w.put(10, 4);
    w.put(s.matrix, 1);
    if (s.matrix) w.put(2, 2).put(1, 1);
    for (int i = 0; i < s.front + s.side + s.back; ++i) w.put(i & 1, 1).put(i & 15, 4);
    for (int i = 0; i < s.lfe + s.assoc; ++i) w.put((i + 3) & 15, 4);
    for (int i = 0; i < s.cc; ++i) w.put((i + 1) & 1, 1).put((15 - i) & 15, 4);
    w.align();
    w.put(s.comment, 8);
    for (int i = 0; i < s.comment; ++i) w.put((i * 5 + 1) & 255, 8);
}

void expect_pce(const nkpAacPrgCfgElt& p, const PceShape& s, int tag) {
    EXPECT_EQ(p.elementInstanceTag, tag);
    EXPECT_EQ(p.profile, 1);
    EXPECT_EQ(p.samplingFrequencyIndex, 3);
    EXPECT_EQ(p.numFrontElt, s.front);
    EXPECT_EQ(p.numValidCcElt, s.cc);
    EXPECT_EQ(p.monoMixdownEltNumber, s.mono ? 9 : 0);
    EXPECT_EQ(p.stereoMixdownEltNumber, s.stereo ? 10 : 0);
    EXPECT_EQ(p.matrixMixdownIdx, s.matrix ? 2 : 0);
    EXPECT_EQ(p.pseudoSurroundEnable, s.matrix ? 1 : 0);
    const nkp32s* flags[3] = {p.frontEltIsCpe, p.sideEltIsCpe, p.backEltIsCpe};
    const nkp32s* tags[3] = {p.frontEltTagSelect, p.sideEltTagSelect, p.backEltTagSelect};
    const int counts[3] = {s.front, s.side, s.back};
    int i = 0;
    for (int list = 0; list < 3; ++list)
        for (int k = 0; k < counts[list]; ++k, ++i) {
            EXPECT_EQ(flags[list][k], i & 1);
            EXPECT_EQ(tags[list][k], i & 15);
        }
    for (int k = 0; k < s.lfe; ++k) EXPECT_EQ(p.lfeEltTagSelect[k], (k + 3) & 15);
    for (int k = 0; k < s.assoc; ++k) EXPECT_EQ(p.assocDataEltTagSelect[k], (s.lfe + k + 3) & 15);
    for (int k = 0; k < s.cc; ++k) {
        EXPECT_EQ(p.ccEltIsIndSw[k], (k + 1) & 1);
        EXPECT_EQ(p.validCcEltTagSelect[k], (15 - k) & 15);
    }
    ASSERT_EQ(p.commentFieldBytes, s.comment);
    for (int k = 0; k < s.comment; ++k) EXPECT_EQ(p.commentFieldData[k], (k * 5 + 1) & 255);
}

struct PceCase {
    const char* name;
    PceShape shape;
};

class Pce : public ::testing::TestWithParam<PceCase> {};

TEST_P(Pce, ReadsAllListsAlignsAndEndsAfterTheComment) {
    const PceShape& s = GetParam().shape;
    for (int lead = 0; lead < 8; ++lead) {
        BitWriter w = lead_bits(lead);
        write_pce(w, s, 7);
        nkpAacPrgCfgElt pce;
        std::memset(&pce, 0x5A, sizeof pce);
        const Outcome r =
            read_placed(w, lead, lead % 4, [&](nkp8u** p, int* o) { return nkpsDecodePrgCfgElt_AAC(p, o, &pce); });
        ASSERT_EQ(r.status, nkpStatusOk);
        EXPECT_EQ(r.consumed, static_cast<long>(w.bit_count()) - lead) << "lead " << lead;
        expect_pce(pce, s, 7);
        // At most 312 bytes from the cursor's byte: what it consumed plus the slack.
        EXPECT_LE((lead + r.consumed + 7) / 8 + 7, 312);
    }
}

const PceCase kPceCases[] = {
    {"stereo_no_comment_ends_after_alignment", {1, 0, 0, 0, 0, 0, false, false, false, 0}},
    {"mixdowns_present", {2, 1, 1, 1, 1, 1, true, true, true, 3}},
    {"largest", {15, 15, 15, 3, 7, 15, true, true, true, 255}},
};

INSTANTIATE_TEST_SUITE_P(Cases, Pce, ::testing::ValuesIn(kPceCases),
                         [](const ::testing::TestParamInfo<PceCase>& i) { return std::string(i.param.name); });

// The fixed ADIF fields; `pces` elements, each behind its buffer fullness
// when the rate is constant. The PCEs follow unaligned.
BitWriter adif(bool copyright, int bitstream_type, int pces, const PceShape& shape) {
    BitWriter w;
    w.put(0x4144, 16).put(0x4946, 16).put(copyright, 1);
    if (copyright)
        for (int i = 0; i < 9; ++i) w.put(0x30 + i, 8);
    w.put(1, 1).put(0, 1).put(bitstream_type, 1).put(0x7ABCDE, 23).put(pces - 1, 4);
    for (int i = 0; i < pces; ++i) {
        if (bitstream_type == 0) w.put(0xF0000 + i, 20);
        write_pce(w, shape, i);
    }
    return w;
}

struct AdifCase {
    const char* name;
    bool copyright;
    int bitstream_type, pces, capacity;
    nkpStatus status;
};

class Adif : public ::testing::TestWithParam<AdifCase> {};

TEST_P(Adif, ReadsTheHeaderAndItsUnalignedPces) {
    const AdifCase& c = GetParam();
    const PceShape shape{2, 0, 1, 1, 0, 0, false, true, false, 2};
    const BitWriter w = adif(c.copyright, c.bitstream_type, c.pces, shape);
    nkptest::GuardedBuffer buffer(w.bytes(), 1);
    nkp8u* p = buffer.data();
    nkpAacAdifHeader h;
    std::memset(&h, 0x5A, sizeof h);
    nkpAacPrgCfgElt pce[16];
    std::memset(pce, 0x5A, sizeof pce);
    ASSERT_EQ(nkpsUnpackADIFHeader_AAC(&p, &h, pce, c.capacity), c.status);
    EXPECT_EQ(h.adifId, 0x41444946u);
    EXPECT_EQ(h.copyrightIdPresent, c.copyright);
    EXPECT_EQ(h.copyrightId[8], c.copyright ? 0x38 : 0x5A);
    EXPECT_EQ(h.originalCopy, 1);
    EXPECT_EQ(h.bitstreamType, c.bitstream_type);
    EXPECT_EQ(h.bitrate, 0x7ABCDE);
    EXPECT_EQ(h.numPrgCfgElt, c.pces);
    if (c.status != nkpStatusOk) {
        // Refused after the fixed fields: on the byte they reached, no PCE read.
        EXPECT_EQ(p - buffer.data(), (c.copyright ? 135 : 63) / 8);
        EXPECT_EQ(pce[0].elementInstanceTag, 0x5A5A5A5A);
        EXPECT_EQ(h.adifBufferFullness[0], 0x5A5A5A5A);
        return;
    }
    EXPECT_EQ(p - buffer.data(), static_cast<long>(w.bit_count() / 8));
    for (int i = 0; i < c.pces; ++i) {
        SCOPED_TRACE(i);
        expect_pce(pce[i], shape, i);
        EXPECT_EQ(h.adifBufferFullness[i], c.bitstream_type == 0 ? 0xF0000 + i : 0x5A5A5A5A);
    }
}

const AdifCase kAdifCases[] = {
    {"constant_rate_two_pces", true, 0, 2, 2, nkpStatusOk},
    {"variable_rate_no_fullness", false, 1, 3, 16, nkpStatusOk},
    {"three_pces_capacity_two", false, 0, 3, 2, nkpStatusBadAacPceCount},
    {"copyright_then_refused", true, 1, 16, 15, nkpStatusBadAacPceCount},
};

INSTANTIATE_TEST_SUITE_P(Cases, Adif, ::testing::ValuesIn(kAdifCases),
                         [](const ::testing::TestParamInfo<AdifCase>& i) { return std::string(i.param.name); });

TEST(AdifBound, SixteenLargestPcesStayWithinTheDocumentedRead) {
    const BitWriter w = adif(true, 0, 16, {15, 15, 15, 3, 7, 15, true, true, true, 255});
    nkptest::GuardedBuffer buffer(w.bytes());
    nkp8u* p = buffer.data();
    nkpAacAdifHeader h;
    std::vector<nkpAacPrgCfgElt> pce(16);
    ASSERT_EQ(nkpsUnpackADIFHeader_AAC(&p, &h, pce.data(), 16), nkpStatusOk);
    EXPECT_EQ(p - buffer.data() + 7, 4936);
}

// ---- DSE and FIL ---------------------------------------------------------------

struct CountCase {
    const char* name;
    int nibble_or_byte, escape;  // count field and its escape (-1: none)
    bool align;                  // DSE only
    int count;
};

class Dse : public ::testing::TestWithParam<CountCase> {};

TEST_P(Dse, CountEscapeAndAlignment) {
    const CountCase& c = GetParam();
    for (int lead = 0; lead < 8; ++lead) {
        BitWriter w = lead_bits(lead);
        w.put(9, 4).put(c.align, 1).put(c.nibble_or_byte, 8);
        if (c.escape >= 0) w.put(c.escape, 8);
        if (c.align) w.align();
        for (int i = 0; i < c.count; ++i) w.put((i * 3) & 255, 8);
        std::vector<nkp8u> bytes(510, 0xA5);
        int tag = -1, count = -1;
        const Outcome r = read_placed(
            w, lead, 3, [&](nkp8u** p, int* o) { return nkpsDecodeDatStrElt_AAC(p, o, &tag, &count, bytes.data()); });
        ASSERT_EQ(r.status, nkpStatusOk);
        EXPECT_EQ(r.consumed, static_cast<long>(w.bit_count()) - lead) << "lead " << lead;
        EXPECT_EQ(tag, 9);
        ASSERT_EQ(count, c.count);
        for (int i = 0; i < c.count; ++i) ASSERT_EQ(bytes[i], (i * 3) & 255);
        EXPECT_EQ(bytes[c.count % 510], c.count == 510 ? 0 : 0xA5);
        EXPECT_LE((lead + r.consumed + 7) / 8 + 7, 521);
    }
}

const CountCase kDseCases[] = {
    {"empty", 0, -1, false, 0},
    {"aligned_payload_at_next_byte", 3, -1, true, 3},
    {"unaligned_payload_right_after_count", 3, -1, false, 3},
    {"count_255_reads_the_escape", 255, 0, false, 255},
    {"count_510", 255, 255, true, 510},
};

INSTANTIATE_TEST_SUITE_P(Cases, Dse, ::testing::ValuesIn(kDseCases),
                         [](const ::testing::TestParamInfo<CountCase>& i) { return std::string(i.param.name); });

class Fil : public ::testing::TestWithParam<CountCase> {};

TEST_P(Fil, CountAndEscape) {
    const CountCase& c = GetParam();
    for (int lead = 0; lead < 8; ++lead) {
        BitWriter w = lead_bits(lead);
        w.put(c.nibble_or_byte, 4);
        if (c.escape >= 0) w.put(c.escape, 8);
        for (int i = 0; i < c.count; ++i) w.put((i * 7 + 1) & 255, 8);
        std::vector<nkp8u> bytes(269, 0xA5);
        int count = -1;
        const Outcome r = read_placed(
            w, lead, 2, [&](nkp8u** p, int* o) { return nkpsDecodeFillElt_AAC(p, o, &count, bytes.data()); });
        ASSERT_EQ(r.status, nkpStatusOk);
        EXPECT_EQ(r.consumed, static_cast<long>(w.bit_count()) - lead);
        ASSERT_EQ(count, c.count);
        for (int i = 0; i < c.count; ++i) ASSERT_EQ(bytes[i], (i * 7 + 1) & 255);
        EXPECT_LE((lead + r.consumed + 7) / 8 + 7, 279);
    }
}

const CountCase kFilCases[] = {
    {"nibble_3", 3, -1, false, 3},
    {"nibble_14", 14, -1, false, 14},
    {"escape_0_is_14", 15, 0, false, 14},
    {"escape_1_is_15", 15, 1, false, 15},
    {"escape_255_is_269", 15, 255, false, 269},
};

INSTANTIATE_TEST_SUITE_P(Cases, Fil, ::testing::ValuesIn(kFilCases),
                         [](const ::testing::TestParamInfo<CountCase>& i) { return std::string(i.param.name); });

// ---- TNS data (through the extension and main-layer headers) ------------------

// One channel's TNS data: long window, filters of the given orders with
// coef_res 1 (4 bits) and coef_compress 1 for odd orders (3 bits).
void write_tns_long(BitWriter& w, const std::vector<int>& orders) {
    w.put(static_cast<uint32_t>(orders.size()), 2);
    if (orders.empty()) return;
    w.put(1, 1);
    for (size_t f = 0; f < orders.size(); ++f) {
        w.put(20 + static_cast<int>(f), 6).put(orders[f], 5);
        if (orders[f] == 0 || orders[f] > 12) continue;
        w.put(f & 1, 1).put(orders[f] & 1, 1);
        const int width = orders[f] & 1 ? 3 : 4;
        for (int i = 0; i < orders[f]; ++i) w.put(static_cast<uint32_t>(i) & ((1u << width) - 1), width);
    }
}

TEST(TnsData, FiltersAreStoredCompactlyWithSignExtendedCoefficients) {
    BitWriter w;
    w.put(3, 6);  // max_sfb 3 (long window, stereo switch on)
    w.put(0, 2);  // msMaskPresent 0
    w.put(1, 1);
    write_tns_long(w, {3, 0, 2});
    w.put(0, 1);
    nkpAacExtensionHeader h;
    std::memset(&h, 0x5A, sizeof h);
    nkp8u ms[240];
    h.pMsUsed = ms;
    const Outcome r =
        read_at(w, 2, 0, [&](nkp8u** p, int* o) { return nkpsDecodeExtensionHeader_AAC(p, o, &h, 1, 1, 0, 0, 51, 0); });
    ASSERT_EQ(r.status, nkpStatusOk);
    EXPECT_EQ(r.consumed, static_cast<long>(w.bit_count()));
    const nkpAacTnsData& t = h.tnsData[0];
    EXPECT_EQ(t.tnsDataPresent, 1);
    EXPECT_EQ(t.nFilt[0], 3);
    EXPECT_EQ(t.coefRes[0], 4);
    EXPECT_EQ(std::vector<int>(t.length, t.length + 3), (std::vector<int>{20, 21, 22}));
    EXPECT_EQ(std::vector<int>(t.order, t.order + 3), (std::vector<int>{3, 0, 2}));
    // Directions only for the two filters of non-zero order.
    EXPECT_EQ(t.direction[0], 0);
    EXPECT_EQ(t.direction[1], 0);
    EXPECT_EQ(t.direction[2], 0x5A5A5A5A);
    // 3-bit values 0, 1, 2 then 4-bit values 0, 1.
    EXPECT_EQ(std::vector<int>(t.coef, t.coef + 6), (std::vector<int>{0, 1, 2, 0, 1, 0x5A}));
    EXPECT_EQ(h.tnsData[1].tnsDataPresent, 0);
    EXPECT_EQ(h.tnsData[1].nFilt[0], 0x5A5A5A5A) << "the record is not cleared";
}

TEST(TnsData, NegativeCoefficientsAtEachWidth) {
    // Short windows: window 0 with one order-3 filter of 2-bit coefficients
    // (coef_res 0, compress 1), window 5 with 4-bit ones.
    BitWriter w;
    w.put(5, 4);  // max_sfb
    w.put(1, 1);
    for (int win = 0; win < 8; ++win) {
        if (win != 0 && win != 5) {
            w.put(0, 1);
            continue;
        }
        w.put(1, 1).put(win == 5, 1).put(9, 4).put(3, 3).put(1, 1).put(win == 0, 1);
        const int width = win == 0 ? 2 : 4;
        const int values[3] = {-1, -(1 << (width - 1)), (1 << (width - 1)) - 1};
        for (int v : values) w.put(static_cast<uint32_t>(v) & ((1u << width) - 1), width);
    }
    w.put(0, 1);
    nkpAacExtensionHeader h;
    std::memset(&h, 0, sizeof h);
    const Outcome r =
        read_at(w, 0, 1, [&](nkp8u** p, int* o) { return nkpsDecodeExtensionHeader_AAC(p, o, &h, 1, 0, 0, 0, 0, 2); });
    ASSERT_EQ(r.status, nkpStatusOk);
    EXPECT_EQ(r.consumed, static_cast<long>(w.bit_count()));
    const nkpAacTnsData& t = h.tnsData[0];
    EXPECT_EQ(std::vector<int>(t.nFilt, t.nFilt + 8), (std::vector<int>{1, 0, 0, 0, 0, 1, 0, 0}));
    EXPECT_EQ(t.coefRes[0], 3);
    EXPECT_EQ(t.coefRes[5], 4);
    EXPECT_EQ(t.direction[1], 1);
    EXPECT_EQ(std::vector<int>(t.coef, t.coef + 6), (std::vector<int>{-1, -2, 1, -1, -8, 7}));
}

// ---- extension-layer header -----------------------------------------------------

struct ExtCase {
    const char* name;
    int window_sequence, max_sfb, start, limit;
    std::vector<int> ms_bands;  // bands with the group-0 M/S flag set
    int flags_per_channel;      // band flags the stream carries: one per band without M/S
};

class ExtensionHeader : public ::testing::TestWithParam<ExtCase> {};

TEST_P(ExtensionHeader, MsFlagsAndCompactBandFlags) {
    const ExtCase& c = GetParam();
    const bool short_windows = c.window_sequence == 2;
    const int groups = short_windows ? 4 : 1;
    BitWriter w;
    w.put(c.max_sfb, short_windows ? 4 : 6).put(1, 2);
    for (int g = 0; g < groups; ++g)
        for (int b = c.start; b < c.max_sfb; ++b) {
            const bool set = std::find(c.ms_bands.begin(), c.ms_bands.end(), b) != c.ms_bands.end();
            w.put(g == 0 ? set : (b + g) & 1, 1);
        }
    for (int ch = 0; ch < 2; ++ch)
        for (int k = 0; k < c.flags_per_channel; ++k) w.put((k + ch) & 1, 1);
    nkpAacExtensionHeader h;
    std::memset(&h, 0x5A, sizeof h);
    std::vector<nkp8u> ms(240, 0);
    h.pMsUsed = ms.data();
    const Outcome r = read_at(w, 5, 2, [&](nkp8u** p, int* o) {
        return nkpsDecodeExtensionHeader_AAC(p, o, &h, 0, 1, 1, c.start, c.limit, c.window_sequence);
    });
    ASSERT_EQ(r.status, nkpStatusOk);
    EXPECT_EQ(r.consumed, static_cast<long>(w.bit_count()));
    EXPECT_EQ(h.maxSfb, c.max_sfb);
    EXPECT_EQ(h.msMaskPresent, 1);
    for (int g = 0; g < 4; ++g)
        for (int b = 0; b < 60; ++b) {
            int want = 0;
            if (g < groups && b >= c.start && b < c.max_sfb)
                want = g == 0 ? std::find(c.ms_bands.begin(), c.ms_bands.end(), b) != c.ms_bands.end() : (b + g) & 1;
            ASSERT_EQ(ms[g * 60 + b], want) << "group " << g << " band " << b;
        }
    for (int ch = 0; ch < 2; ++ch) {
        for (int k = 0; k < c.flags_per_channel; ++k) EXPECT_EQ(h.bandFlags[ch][k], (k + ch) & 1);
        EXPECT_EQ(h.bandFlags[ch][c.flags_per_channel], 0x5A5A5A5A);
    }
}

const ExtCase kExtCases[] = {
    // Bands 2..7 without M/S on 4 and 5: four flags, for bands 2, 3, 6, 7.
    {"long_flags_skip_ms_bands", 0, 10, 2, 8, {4, 5}, 4},
    {"long_limit_above_max_sfb", 3, 6, 0, 51, {0}, 5},
    {"long_max_sfb_60", 1, 60, 50, 51, {}, 1},
    {"short_start_0_window_flags", 2, 12, 0, 51, {1, 2}, 8},
    {"short_start_3_no_flags_four_groups", 2, 9, 3, 51, {3}, 0},
};

INSTANTIATE_TEST_SUITE_P(Cases, ExtensionHeader, ::testing::ValuesIn(kExtCases),
                         [](const ::testing::TestParamInfo<ExtCase>& i) { return std::string(i.param.name); });

TEST(ExtensionHeaderData, MaxSfbAbove60StopsAfterTheField) {
    BitWriter w;
    w.put(61, 6).put(3, 2);
    nkpAacExtensionHeader h;
    std::memset(&h, 0x5A, sizeof h);
    const Outcome r =
        read_at(w, 1, 0, [&](nkp8u** p, int* o) { return nkpsDecodeExtensionHeader_AAC(p, o, &h, 1, 1, 1, 0, 51, 0); });
    EXPECT_EQ(r.status, nkpStatusBadAacMaxSfb);
    EXPECT_EQ(r.consumed, 6);
    EXPECT_EQ(h.maxSfb, 61);
    EXPECT_EQ(h.msMaskPresent, 0x5A5A5A5A);
}

TEST(ExtensionHeaderData, MsMaskOtherThanOneLeavesTheFlagsAndAnOverlongOrderEndsOneChannelsTns) {
    BitWriter w;
    w.put(8, 6).put(2, 2);  // max_sfb 8, msMaskPresent 2: no flags
    // Channel 0: two filters announced, the first of order 13, which ends
    // its TNS data right after the order field.
    w.put(1, 1).put(2, 2).put(1, 1).put(20, 6).put(13, 5);
    w.put(1, 1);
    write_tns_long(w, {1});
    nkpAacExtensionHeader h;
    std::memset(&h, 0x5A, sizeof h);
    std::vector<nkp8u> ms(240, 7);
    h.pMsUsed = ms.data();
    const Outcome r =
        read_at(w, 0, 3, [&](nkp8u** p, int* o) { return nkpsDecodeExtensionHeader_AAC(p, o, &h, 1, 1, 0, 0, 51, 0); });
    ASSERT_EQ(r.status, nkpStatusOk);
    EXPECT_EQ(r.consumed, static_cast<long>(w.bit_count()));
    EXPECT_EQ(h.msMaskPresent, 2);
    EXPECT_EQ(ms, std::vector<nkp8u>(240, 7));
    EXPECT_EQ(h.tnsData[0].nFilt[0], 2);
    EXPECT_EQ(h.tnsData[0].order[0], 13);
    EXPECT_EQ(h.tnsData[0].order[1], 0x5A5A5A5A);
    EXPECT_EQ(h.tnsData[1].order[0], 1);
}

// ---- window information: channel pair headers ------------------------------------

// ics_info of a long window with prediction data (Main form).
void write_long_ics(BitWriter& w, int max_sfb, bool predictor, int reset, int flags) {
    w.put(0, 1).put(1, 2).put(1, 1).put(max_sfb, 6).put(predictor, 1);
    if (!predictor) return;
    w.put(reset != 0, 1);
    if (reset) w.put(reset, 5);
    for (int b = 0; b < flags; ++b) w.put(b % 3 == 0, 1);
}

struct PredictionCase {
    const char* name;
    int max_sfb, limit, reset;
};

class CpePrediction : public ::testing::TestWithParam<PredictionCase> {};

TEST_P(CpePrediction, FlagsBelowTheLimitAndClearedUpToIt) {
    const PredictionCase& c = GetParam();
    const int flagged = std::min(c.max_sfb, c.limit);
    for (int form = 0; form < 2; ++form) {
        BitWriter w;
        w.put(1, 1);
        write_long_ics(w, c.max_sfb, true, c.reset, flagged);
        w.put(0, 2);
        nkpAacIcsInfo ics;
        std::memset(&ics, 0x5A, sizeof ics);
        nkpAacCpeInfo cpe;
        nkpAacMainHeader main;
        std::memset(&main, 0x5A, sizeof main);
        const Outcome r = read_at(w, 3, form, [&](nkp8u** p, int* o) {
            return form ? nkpsDecodeChanPairElt_MP4_AAC(p, o, &ics, &cpe, &main, c.limit, 1)
                        : nkpsDecodeChanPairElt_AAC(p, o, &ics, &cpe, c.limit);
        });
        ASSERT_EQ(r.status, nkpStatusOk);
        EXPECT_EQ(r.consumed, static_cast<long>(w.bit_count()));
        EXPECT_EQ(ics.windowSequence, 1);
        EXPECT_EQ(ics.predictorDataPresent, 1);
        EXPECT_EQ(ics.predictorReset, c.reset != 0);
        EXPECT_EQ(ics.predictorResetGroupNumber, c.reset ? c.reset : 0x5A5A5A5A);
        for (int b = 0; b < 41; ++b) {
            const int want = b < flagged ? b % 3 == 0 : b < c.limit ? 0 : 0x5A;
            EXPECT_EQ(ics.predictionUsed[b], want) << "band " << b;
        }
        EXPECT_EQ(ics.numWindowGroups, 1);
        EXPECT_EQ(ics.windowGroupLength[0], 1);
        EXPECT_EQ(ics.windowGroupLength[1], 0x5A5A5A5A);
        EXPECT_EQ(main.ltpInfo[0].ltpDataPresent, form ? 0 : 0x5A5A5A5A);
        EXPECT_EQ(main.ltpInfo[1].ltpDataPresent, form ? 0 : 0x5A5A5A5A);
    }
}

const PredictionCase kPredictionCases[] = {
    {"limit_below_max_sfb", 30, 20, 0},
    {"max_sfb_below_limit_rest_cleared", 10, 41, 17},
    {"limit_0_reads_reset_only", 49, 0, 31},
};

INSTANTIATE_TEST_SUITE_P(Cases, CpePrediction, ::testing::ValuesIn(kPredictionCases),
                         [](const ::testing::TestParamInfo<PredictionCase>& i) { return std::string(i.param.name); });

struct MsCase {
    const char* name;
    int mask;
    uint32_t grouping;
    int groups;
    std::vector<int> lengths;
};

class CpeShortWindows : public ::testing::TestWithParam<MsCase> {};

TEST_P(CpeShortWindows, GroupsAndMsMask) {
    const MsCase& c = GetParam();
    const int max_sfb = 13;
    BitWriter w;
    w.put(1, 1).put(1, 1).put(2, 2).put(0, 1).put(max_sfb, 4).put(c.grouping, 7).put(c.mask, 2);
    if (c.mask == 1)
        for (int g = 0; g < c.groups; ++g)
            for (int b = 0; b < max_sfb; ++b) w.put((g + b) % 3 == 0, 1);
    nkpAacIcsInfo ics;
    std::memset(&ics, 0x5A, sizeof ics);
    nkpAacCpeInfo cpe;
    std::memset(&cpe, 0x77, sizeof cpe);
    const Outcome r =
        read_at(w, 6, 1, [&](nkp8u** p, int* o) { return nkpsDecodeChanPairElt_AAC(p, o, &ics, &cpe, 41); });
    ASSERT_EQ(r.status, nkpStatusOk);
    EXPECT_EQ(r.consumed, static_cast<long>(w.bit_count()));
    EXPECT_EQ(ics.icsReservedBit, 1);
    EXPECT_EQ(ics.predictorDataPresent, 0);
    EXPECT_EQ(ics.predictorReset, 0x5A5A5A5A);
    EXPECT_EQ(ics.maxSfb, max_sfb);
    ASSERT_EQ(ics.numWindowGroups, c.groups);
    EXPECT_EQ(std::vector<int>(ics.windowGroupLength, ics.windowGroupLength + c.groups), c.lengths);
    EXPECT_EQ(cpe.commonWindow, 1);
    EXPECT_EQ(cpe.msMaskPresent, c.mask);
    for (int g = 0; g < 8; ++g)
        for (int b = 0; b < 60; ++b) {
            const int want = c.mask == 1 && g < c.groups && b < max_sfb ? (g + b) % 3 == 0 : 0x77;
            ASSERT_EQ(cpe.msUsed[g * 60 + b], want);
        }
}

const MsCase kMsCases[] = {
    {"one_group_mask_1", 1, 0x7F, 1, {8}},
    {"eight_groups_mask_1", 1, 0x00, 8, {1, 1, 1, 1, 1, 1, 1, 1}},
    {"mixed_groups_mask_1", 1, 0x5B, 3, {2, 3, 3}},
    {"mask_2_leaves_flags", 2, 0x36, 4, {1, 3, 3, 1}},
    {"mask_0_leaves_flags", 0, 0x40, 7, {2, 1, 1, 1, 1, 1, 1}},
};

INSTANTIATE_TEST_SUITE_P(Cases, CpeShortWindows, ::testing::ValuesIn(kMsCases),
                         [](const ::testing::TestParamInfo<MsCase>& i) { return std::string(i.param.name); });

TEST(CpeHeader, NoCommonWindowReadsOneBit) {
    BitWriter w;
    w.put(0, 1).put(0x7FF, 11);
    nkpAacIcsInfo ics;
    std::memset(&ics, 0x5A, sizeof ics);
    nkpAacCpeInfo cpe;
    std::memset(&cpe, 0x5A, sizeof cpe);
    const Outcome r =
        read_at(w, 7, 0, [&](nkp8u** p, int* o) { return nkpsDecodeChanPairElt_AAC(p, o, &ics, &cpe, 0); });
    EXPECT_EQ(r.status, nkpStatusOk);
    EXPECT_EQ(r.consumed, 1);
    EXPECT_EQ(cpe.commonWindow, 0);
    EXPECT_EQ(cpe.msMaskPresent, 0x5A5A5A5A);
    EXPECT_EQ(ics.windowSequence, 0x5A5A5A5A);
}

TEST(CpeHeader, LongMaxSfbAbove51StopsAfterTheField) {
    for (int form = 0; form < 2; ++form) {
        BitWriter w;
        w.put(1, 1).put(0, 1).put(0, 2).put(0, 1).put(52, 6).put(0, 8);
        nkpAacIcsInfo ics;
        nkpAacCpeInfo cpe;
        std::memset(&cpe, 0x5A, sizeof cpe);
        nkpAacMainHeader main;
        const Outcome r = read_at(w, 0, 0, [&](nkp8u** p, int* o) {
            return form ? nkpsDecodeChanPairElt_MP4_AAC(p, o, &ics, &cpe, &main, 0, 2)
                        : nkpsDecodeChanPairElt_AAC(p, o, &ics, &cpe, 0);
        });
        EXPECT_EQ(r.status, nkpStatusBadAacMaxSfb);
        EXPECT_EQ(r.consumed, 11);
        EXPECT_EQ(ics.maxSfb, 52);
        EXPECT_EQ(cpe.msMaskPresent, 0x5A5A5A5A);
    }
}

TEST(CpeHeader, Mpeg4MainPredictionLimitAbove41FailsAfterTheResetFields) {
    BitWriter w;
    w.put(1, 1);
    write_long_ics(w, 20, true, 9, 0);
    w.put(0xFF, 8);
    nkpAacIcsInfo ics;
    nkpAacCpeInfo cpe;
    nkpAacMainHeader main;
    const Outcome r = read_at(
        w, 4, 2, [&](nkp8u** p, int* o) { return nkpsDecodeChanPairElt_MP4_AAC(p, o, &ics, &cpe, &main, 42, 1); });
    EXPECT_EQ(r.status, nkpStatusBadAacPrediction);
    EXPECT_EQ(r.consumed, 1 + 11 + 1 + 5);
    EXPECT_EQ(ics.predictorResetGroupNumber, 9);
}

void write_ltp_long(BitWriter& w, int lag, int coef, int flags) {
    w.put(lag, 11).put(coef, 3);
    for (int b = 0; b < flags; ++b) w.put(b & 1, 1);
}

TEST(CpeHeader, Mpeg4LtpOfBothChannelsGoesToTheMainHeader) {
    const int q14[8] = {9352, 11413, 13320, 14931, 16137, 17496, 19572, 22438};
    for (int coef = 0; coef < 8; ++coef) {
        const int max_sfb = coef < 4 ? 45 : 12;  // flags for min(max_sfb, 40) bands
        const int flags = std::min(max_sfb, 40);
        BitWriter w;
        w.put(1, 1).put(0, 1).put(3, 2).put(0, 1).put(max_sfb, 6).put(1, 1);
        w.put(1, 1);
        write_ltp_long(w, 2000 + coef, coef, flags);
        w.put(coef & 1, 1);
        if (coef & 1) write_ltp_long(w, 7, 7 - coef, flags);
        w.put(0, 2);
        nkpAacIcsInfo ics;
        nkpAacCpeInfo cpe;
        nkpAacMainHeader main;
        std::memset(&main, 0x5A, sizeof main);
        const Outcome r = read_at(w, coef, coef % 4, [&](nkp8u** p, int* o) {
            return nkpsDecodeChanPairElt_MP4_AAC(p, o, &ics, &cpe, &main, 0, 4);
        });
        ASSERT_EQ(r.status, nkpStatusOk);
        EXPECT_EQ(r.consumed, static_cast<long>(w.bit_count()));
        EXPECT_EQ(main.maxSfb, max_sfb);
        EXPECT_EQ(main.windowSequence, 3);
        const nkpAacLtpInfo& l0 = main.ltpInfo[0];
        EXPECT_EQ(l0.ltpDataPresent, 1);
        EXPECT_EQ(l0.ltpLongDataPresent, 1);
        EXPECT_EQ(l0.ltpLag, 2000 + coef);
        EXPECT_EQ(l0.ltpCoef, q14[coef]);
        EXPECT_EQ(l0.ltpCoefHigh, 0x5A5A) << "the upper half of the word is not written";
        for (int b = 0; b < 40; ++b) EXPECT_EQ(l0.ltpLongUsed[b], b < flags ? b & 1 : 0);
        const nkpAacLtpInfo& l1 = main.ltpInfo[1];
        EXPECT_EQ(l1.ltpDataPresent, coef & 1);
        EXPECT_EQ(l1.ltpLag, coef & 1 ? 7 : 0x5A5A5A5A);
        if (coef & 1) EXPECT_EQ(l1.ltpCoef, q14[7 - coef]);
    }
}

// ---- main-layer header ------------------------------------------------------------

TEST(MainHeader, TwoLongChannelsWithEveryMsMode) {
    for (int mask = 0; mask < 4; ++mask) {
        SCOPED_TRACE(mask);
        const int max_sfb = 57;  // 6 bits, not range-checked here
        BitWriter w;
        w.put(3, 2).put(1, 1).put(max_sfb, 6).put(mask, 2);
        if (mask == 1)
            for (int b = 0; b < max_sfb; ++b) w.put(b % 5 == 1, 1);
        w.put(1, 1);
        write_tns_long(w, {2});
        w.put(0, 1);  // no LTP, channel 0
        w.put(0, 1);  // no TNS, channel 1
        w.put(1, 1);
        write_ltp_long(w, 99, 2, 40);
        nkpAacMainHeader h;
        std::memset(&h, 0x5A, sizeof h);
        std::vector<nkp8u> ms(480, 9);
        h.pMsUsed = ms.data();
        const Outcome r = read_at(w, 3, 3, [&](nkp8u** p, int* o) { return nkpsDecodeMainHeader_AAC(p, o, &h, 2, 0); });
        ASSERT_EQ(r.status, nkpStatusOk);
        EXPECT_EQ(r.consumed, static_cast<long>(w.bit_count()));
        EXPECT_EQ(h.windowSequence, 3);
        EXPECT_EQ(h.windowShape, 1);
        EXPECT_EQ(h.maxSfb, max_sfb);
        EXPECT_EQ(h.scaleFactorGrouping, 0x5A5A5A5A);
        EXPECT_EQ(h.numWindowGroups, 1);
        EXPECT_EQ(std::vector<int>(h.windowGroupLength, h.windowGroupLength + 8),
                  (std::vector<int>{1, 0, 0, 0, 0, 0, 0, 0}));
        for (int b = 0; b < 480; ++b) {
            const int want = b >= max_sfb ? 9 : mask == 1 ? b % 5 == 1 : mask == 2 ? 1 : 0;
            ASSERT_EQ(ms[b], want) << "band " << b;
        }
        EXPECT_EQ(h.tnsData[0].order[0], 2);
        EXPECT_EQ(h.tnsData[0].order[1], 0) << "cleared first";
        EXPECT_EQ(h.tnsData[1].tnsDataPresent, 0);
        EXPECT_EQ(h.tnsData[1].nFilt[0], 0);
        EXPECT_EQ(h.ltpInfo[0].ltpDataPresent, 0);
        EXPECT_EQ(h.ltpInfo[0].ltpLag, 0);
        EXPECT_EQ(h.ltpInfo[1].ltpLag, 99);
        EXPECT_EQ(h.ltpInfo[1].ltpCoef, 13320);
        EXPECT_EQ(h.ltpInfo[1].ltpLongUsed[39], 1);
    }
}

TEST(MainHeader, ShortWindowLtpLagsFollowThePreviousUsedWindow) {
    // One channel, eight short windows; windows 1, 3, 4 and 6 use LTP.
    BitWriter w;
    w.put(2, 2).put(0, 1).put(14, 4).put(0x2D, 7);
    w.put(0, 1);  // no TNS
    w.put(1, 1).put(1000, 11).put(5, 3);
    w.put(0, 1);                       // window 0 unused
    w.put(1, 1);                       // window 1: first used, no bits, lag 1000
    w.put(0, 1);                       // window 2 unused
    w.put(1, 1).put(1, 1).put(5, 5);   // window 3: 1000 - 5 + 16
    w.put(1, 1).put(1, 1).put(31, 5);  // window 4: 1011 - 31 + 16
    w.put(0, 1);                       // window 5 unused
    w.put(1, 1).put(0, 1);             // window 6: copies window 4
    w.put(0, 1);                       // window 7 unused
    nkpAacMainHeader h;
    std::memset(&h, 0x5A, sizeof h);
    h.pMsUsed = nullptr;  // one channel: not needed
    const Outcome r = read_at(w, 1, 1, [&](nkp8u** p, int* o) { return nkpsDecodeMainHeader_AAC(p, o, &h, 1, 1); });
    EXPECT_EQ(r.status, nkpStatusAacNotSupported) << "read in full, then refused";
    EXPECT_EQ(r.consumed, static_cast<long>(w.bit_count()));
    EXPECT_EQ(h.maxSfb, 14);
    EXPECT_EQ(h.scaleFactorGrouping, 0x2D);
    ASSERT_EQ(h.numWindowGroups, 4);  // 0101101: 1, 2, 3, 2
    EXPECT_EQ(std::vector<int>(h.windowGroupLength, h.windowGroupLength + 4), (std::vector<int>{1, 2, 3, 2}));
    EXPECT_EQ(h.msMaskPresent, 0x5A5A5A5A) << "no M/S with one channel";
    const nkpAacLtpInfo& l = h.ltpInfo[0];
    EXPECT_EQ(l.ltpLag, 1000);
    EXPECT_EQ(l.ltpCoef, 17496);
    EXPECT_EQ(l.ltpLongDataPresent, 0) << "cleared, not set for short windows";
    EXPECT_EQ(std::vector<int>(l.ltpShortUsed, l.ltpShortUsed + 8), (std::vector<int>{0, 1, 0, 1, 1, 0, 1, 0}));
    EXPECT_EQ(std::vector<int>(l.ltpShortLagPresent, l.ltpShortLagPresent + 8),
              (std::vector<int>{0, 0, 0, 1, 1, 0, 0, 0}));
    EXPECT_EQ(std::vector<int>(l.ltpShortLag, l.ltpShortLag + 8),
              (std::vector<int>{1000, 1000, 0, 1011, 996, 0, 996, 0}));
}

TEST(MainHeader, LargestHeaderStaysWithinTheDocumentedRead) {
    // Two channels of eight short windows in eight groups, every flag set,
    // the longest TNS and LTP data.
    BitWriter w;
    w.put(2, 2).put(1, 1).put(15, 4).put(0, 7).put(1, 2);
    for (int i = 0; i < 8 * 15; ++i) w.put(1, 1);
    for (int ch = 0; ch < 2; ++ch) {
        w.put(1, 1);
        for (int win = 0; win < 8; ++win) {
            w.put(1, 1).put(1, 1).put(15, 4).put(7, 3).put(1, 1).put(0, 1);
            for (int i = 0; i < 7; ++i) w.put(5, 4);
        }
        w.put(1, 1).put(2047, 11).put(7, 3);
        for (int win = 0; win < 8; ++win) w.put(win ? 0x7F : 1, win ? 7 : 1);
    }
    for (int lead = 0; lead < 8; ++lead) {
        nkpAacMainHeader h;
        std::vector<nkp8u> ms(480);
        h.pMsUsed = ms.data();
        const Outcome r =
            read_at(w, lead, 0, [&](nkp8u** p, int* o) { return nkpsDecodeMainHeader_AAC(p, o, &h, 2, 0); });
        ASSERT_EQ(r.status, nkpStatusOk);
        EXPECT_EQ(r.consumed, static_cast<long>(w.bit_count()));
        EXPECT_LE((lead + r.consumed + 7) / 8 + 7, 120);
        if (lead == 7) EXPECT_EQ((lead + r.consumed + 7) / 8 + 7, 120);
    }
}

}  // namespace
