// Huffman decoding: region boundaries, escapes, count1 tables and budget,
// the final cursor and non-zero bound, and the three decoders' checks.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "common/bit_writer.h"
#include "mp3/tables.h"
#include "nkpac.h"

namespace {

using nkptest::BitWriter;

// A few code words of the standard's tables, enough to build streams.
namespace code {
// table 1
const char* const t1_00 = "1";
const char* const t1_10 = "01";
const char* const t1_11 = "000";
// table 16 (codes shared by 17..23)
const char* const t16_00 = "1";
const char* const t16_15_0 = "000001100";
const char* const t16_0_15 = "000010001";
const char* const t16_15_15 = "00000011";
// table 24 (codes shared by 25..31)
const char* const t24_00 = "1111";
const char* const t24_15_15 = "0011";
// quadruple table A
const char* const qa_0000 = "1";
const char* const qa_0001 = "0101";
const char* const qa_1000 = "0111";
const char* const qa_1111 = "000001";
}  // namespace code

nkpMP3FrameHeader header(int id, int sfi) {
    nkpMP3FrameHeader h{};
    h.id = id;
    h.layer = 1;
    h.samplingFreqIndex = sfi;
    h.mode = 1;
    return h;
}

nkpMP3SideInfo long_granule(int big_values, int t0, int t1, int t2, int r0, int r1) {
    nkpMP3SideInfo si{};
    si.part23Length = 4095;
    si.bigValues = big_values;
    si.tableSelect[0] = t0;
    si.tableSelect[1] = t1;
    si.tableSelect[2] = t2;
    si.region0Count = r0;
    si.region1Count = r1;
    return si;
}

nkpMP3SideInfo switched_granule(int big_values, int block_type, int mixed, int t0, int t1) {
    nkpMP3SideInfo si = long_granule(big_values, t0, t1, 0, 7, 13);
    si.windowSwitching = 1;
    si.blockType = block_type;
    si.mixedBlock = mixed;
    if (block_type == 2 && !mixed) si.region0Count = 8, si.region1Count = 12;
    return si;
}

enum Variant { kPlain, kSfb, kMbp };

struct Tables {
    nkp16s long_bands[6 * 23];
    nkp16s short_bands[6 * 14];
    nkp16s mixed[6 * 2];
};

// The standard's band tables in the callers' row order (id * 3 + sfi).
Tables standard_tables() {
    Tables t{};
    for (int r = 0; r < 6; ++r) {
        const int rate = r < 3 ? r + 3 : r - 3;
        std::memcpy(t.long_bands + 23 * r, nkp::mp3::kSfbLong[rate], sizeof(nkp16s) * 23);
        std::memcpy(t.short_bands + 14 * r, nkp::mp3::kSfbShort[rate], sizeof(nkp16s) * 14);
        t.mixed[2 * r] = 8;
        t.mixed[2 * r + 1] = 3;
    }
    return t;
}

struct Result {
    nkpStatus status;
    std::vector<nkp32s> lines;
    int bound;
    long moved;  // bits the cursor moved
};

// Decodes `w`'s bits starting `lead` bits into the buffer; the buffer has
// room behind the data for the longest garbage a granule can take.
Result run(Variant v, const BitWriter& w, const nkpMP3SideInfo& si, const nkpMP3FrameHeader& h, int huf_bits,
           const Tables* tables = nullptr, int lead = 0) {
    BitWriter all;
    all.put(0x5A, lead);
    for (uint8_t b : w.bytes()) all.put(b, 8);
    std::vector<uint8_t> buffer = all.bytes();
    buffer.resize(buffer.size() + 2048, 0);
    static const Tables standard = standard_tables();
    if (!tables) tables = &standard;
    nkp8u* p = buffer.data() + lead / 8;
    int offset = lead % 8;
    Result r{0, std::vector<nkp32s>(576, 0x1234), -1, 0};
    if (v == kPlain)
        r.status = nkpsHuffmanDecode_MP3_1u32s(&p, &offset, r.lines.data(), &r.bound, &si, &h, huf_bits);
    else if (v == kSfb)
        r.status = nkpsHuffmanDecodeSfb_MP3_1u32s(&p, &offset, r.lines.data(), &r.bound, &si, &h, huf_bits,
                                                  tables->long_bands);
    else
        r.status = nkpsHuffmanDecodeSfbMbp_MP3_1u32s(&p, &offset, r.lines.data(), &r.bound, &si, &h, huf_bits,
                                                     tables->long_bands, tables->short_bands, tables->mixed);
    r.moved = (p - buffer.data()) * 8L + offset - lead;
    return r;
}

// Lines [0, n) as table-1 pairs (1, 1) with positive signs: 5 bits a pair.
void ones(BitWriter& w, int lines) {
    for (int i = 0; i < lines; i += 2) w.code(code::t1_11).code("00");
}

// ---- region boundaries ---------------------------------------------------

struct SwitchedCase {
    const char* name;
    Variant variant;
    int id, sfi, block_type, mixed;
    int mixed_steps;  // second value of the Mbp mixed-block row
    int region0_end;
};

class Region0OfSwitchedBlocks : public ::testing::TestWithParam<SwitchedCase> {};

// Region 0 decodes with table 1, region 1 with table 0: the output shows
// where region 0 ended, and the cursor shows that no other bits were read.
TEST_P(Region0OfSwitchedBlocks, EndsWhereTheRuleSays) {
    const SwitchedCase& c = GetParam();
    Tables t = standard_tables();
    for (int r = 0; r < 6; ++r) t.mixed[2 * r + 1] = static_cast<nkp16s>(c.mixed_steps);
    BitWriter w;
    ones(w, c.region0_end);
    const nkpMP3SideInfo si = switched_granule(288, c.block_type, c.mixed, 1, 0);
    const Result r = run(c.variant, w, si, header(c.id, c.sfi), static_cast<int>(w.bit_count()), &t);
    ASSERT_EQ(r.status, nkpStatusOk);
    EXPECT_EQ(r.moved, static_cast<long>(w.bit_count()));
    std::vector<nkp32s> want(576, 0);
    std::fill(want.begin(), want.begin() + c.region0_end, 1);
    EXPECT_EQ(r.lines, want);
    EXPECT_EQ(r.bound, c.region0_end);
}

const SwitchedCase kSwitchedCases[] = {
    {"plain_mpeg1_start", kPlain, 1, 0, 1, 0, 0, 36},
    {"plain_mpeg1_short", kPlain, 1, 1, 2, 0, 0, 36},
    {"plain_lsf_start_is_54", kPlain, 0, 0, 1, 0, 0, 54},
    {"plain_lsf_stop_is_54", kPlain, 0, 2, 3, 0, 0, 54},
    {"plain_lsf_short_is_36", kPlain, 0, 1, 2, 0, 0, 36},
    {"plain_lsf_mixed_is_36", kPlain, 0, 1, 2, 1, 0, 36},
    {"sfb_lsf_start_is_54", kSfb, 0, 0, 1, 0, 0, 54},
    {"mbp_mpeg1_start_long_band_8", kMbp, 1, 2, 1, 0, 0, 36},
    {"mbp_lsf_stop_long_band_8", kMbp, 0, 0, 3, 0, 0, 54},
    {"mbp_short_three_short_bands", kMbp, 1, 0, 2, 0, 0, 36},
    // 44.1 kHz mixed block: long[8] = 36; the first short boundary past it
    // is 16 (3 * 16 > 36). Widths 4, 4 (first band twice), then 6, 6, 6,
    // then 8 ...
    {"mbp_mixed_3_steps", kMbp, 1, 0, 2, 1, 3, 36 + 4 + 4 + 6},
    {"mbp_mixed_6_steps", kMbp, 1, 0, 2, 1, 6, 36 + 4 + 4 + 6 + 6 + 6 + 8},
    {"mbp_mixed_0_steps", kMbp, 1, 0, 2, 1, 0, 36},
};

INSTANTIATE_TEST_SUITE_P(Huffman, Region0OfSwitchedBlocks, ::testing::ValuesIn(kSwitchedCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(HuffmanRegions, MbpShortRegionIsMeasuredFromTheFirstShortBoundary) {
    Tables t = standard_tables();
    const nkp16s shifted[14] = {2, 6, 10, 16, 20, 26, 34, 44, 56, 70, 88, 110, 140, 192};
    std::memcpy(t.short_bands + 14 * 3, shifted, sizeof shifted);
    BitWriter w;
    ones(w, 42);  // 3 * (16 - 2)
    const Result r = run(kMbp, w, switched_granule(288, 2, 0, 1, 0), header(1, 0), int(w.bit_count()), &t);
    ASSERT_EQ(r.status, nkpStatusOk);
    EXPECT_EQ(r.bound, 42);
    EXPECT_EQ(r.moved, long(w.bit_count()));
}

struct LongCase {
    const char* name;
    Variant variant;
    int id, sfi, big_values, r0, r1;
    int e0, e1;  // expected region ends (already capped)
};

class RegionsOfLongBlocks : public ::testing::TestWithParam<LongCase> {};

// Tables 1, 0, 1: regions 0 and 2 carry ones, region 1 reads nothing.
TEST_P(RegionsOfLongBlocks, FollowTheBandTable) {
    const LongCase& c = GetParam();
    Tables t = standard_tables();
    if (c.variant != kPlain) {
        // A caller table that differs from the built-in one.
        for (int b = 0; b < 23; ++b) t.long_bands[23 * (c.id * 3 + c.sfi) + b] = static_cast<nkp16s>(b * 26);
        t.long_bands[23 * (c.id * 3 + c.sfi) + 22] = 576;
    }
    BitWriter w;
    ones(w, c.e0);
    ones(w, 2 * c.big_values - c.e1);
    nkpMP3SideInfo si = long_granule(c.big_values, 1, 0, 1, c.r0, c.r1);
    if (c.variant == kMbp) si.blockType = 2;  // not looked at without window switching
    const Result r = run(c.variant, w, si, header(c.id, c.sfi), static_cast<int>(w.bit_count()), &t);
    ASSERT_EQ(r.status, nkpStatusOk);
    EXPECT_EQ(r.moved, static_cast<long>(w.bit_count()));
    std::vector<nkp32s> want(576, 0);
    std::fill(want.begin(), want.begin() + c.e0, 1);
    std::fill(want.begin() + c.e1, want.begin() + 2 * c.big_values, 1);
    EXPECT_EQ(r.lines, want);
}

const LongCase kLongCases[] = {
    {"mpeg1_44k", kPlain, 1, 0, 100, 2, 3, 12, 30},
    {"lsf_24k", kPlain, 0, 1, 200, 7, 7, 54, 232},
    {"mpeg1_32k_last_bands", kPlain, 1, 2, 288, 10, 9, 66, 550},
    {"capped_by_big_values", kPlain, 1, 0, 10, 7, 7, 20, 20},
    {"sfb_caller_table", kSfb, 1, 1, 200, 3, 4, 104, 234},
    {"mbp_caller_table_block_type_ignored", kMbp, 0, 2, 200, 3, 4, 104, 234},
};

INSTANTIATE_TEST_SUITE_P(Huffman, RegionsOfLongBlocks, ::testing::ValuesIn(kLongCases),
                         [](const auto& info) { return std::string(info.param.name); });

// ---- values --------------------------------------------------------------

TEST(HuffmanValues, LinbitsEscapesAndSigns) {
    // Regions end at 4 and 8 (44.1 kHz). Table 16 (linbits 1): (15 + 1,
    // -15), (0, 15 + 0); table 23 (linbits 13): (-(15 + 8191), 0), (0, 0);
    // table 24 (linbits 4): (-(15 + 9), 15 + 15), (0, 0).
    BitWriter w;
    w.code(code::t16_15_15).put(1, 1).put(0, 1).put(0, 1).put(1, 1);
    w.code(code::t16_0_15).put(0, 1).put(0, 1);
    w.code(code::t16_15_0).put(8191, 13).put(1, 1);
    w.code(code::t16_00);
    w.code(code::t24_15_15).put(9, 4).put(1, 1).put(15, 4).put(0, 1);
    w.code(code::t24_00);
    nkpMP3SideInfo si = long_granule(6, 16, 23, 24, 0, 0);
    const Result r = run(kPlain, w, si, header(1, 0), static_cast<int>(w.bit_count()));
    ASSERT_EQ(r.status, nkpStatusOk);
    const std::vector<nkp32s> head(r.lines.begin(), r.lines.begin() + 12);
    EXPECT_EQ(head, (std::vector<nkp32s>{16, -15, 0, 15, -8206, 0, 0, 0, -24, 30, 0, 0}));
    EXPECT_EQ(r.moved, static_cast<long>(w.bit_count()));
    EXPECT_EQ(r.bound, 10);
}

TEST(HuffmanValues, Tables0And4And14ReadNothing) {
    for (int t : {0, 4, 14}) {
        BitWriter w;
        w.code(code::qa_1111).code("0000");  // one quadruple after the big values
        const Result r = run(kPlain, w, long_granule(20, t, t, t, 1, 1), header(1, 0), 10);
        ASSERT_EQ(r.status, nkpStatusOk) << t;
        std::vector<nkp32s> want(576, 0);
        std::fill(want.begin() + 40, want.begin() + 44, 1);
        EXPECT_EQ(r.lines, want) << t;
        EXPECT_EQ(r.bound, 44);
    }
}

// ---- count1 part, budget and cursor --------------------------------------

struct Count1Case {
    const char* name;
    int table;                // count1TableSelect
    std::vector<std::string> codes;  // code and sign bits per quadruple
    int huf_bits;             // -1: the bits written
    int big_values;
    std::vector<nkp32s> want;  // lines from 2 * big_values on
    int bound;
};

class Count1 : public ::testing::TestWithParam<Count1Case> {};

TEST_P(Count1, DecodesUntilTheBudgetEnds) {
    const Count1Case& c = GetParam();
    for (int lead : {0, 3, 7}) {
        BitWriter w;
        ones(w, 2 * c.big_values);
        for (const std::string& s : c.codes) w.code(s.c_str());
        const int huf = c.huf_bits < 0 ? static_cast<int>(w.bit_count()) : c.huf_bits;
        nkpMP3SideInfo si = long_granule(c.big_values, 1, 1, 1, 7, 7);
        si.count1TableSelect = c.table;
        const Result r = run(kPlain, w, si, header(1, 0), huf, nullptr, lead);
        ASSERT_EQ(r.status, nkpStatusOk) << lead;
        EXPECT_EQ(r.moved, huf) << "the cursor ends exactly at the part's end";
        std::vector<nkp32s> want(576, 0);
        std::fill(want.begin(), want.begin() + 2 * c.big_values, 1);
        std::copy(c.want.begin(), c.want.end(), want.begin() + 2 * c.big_values);
        EXPECT_EQ(r.lines, want) << lead;
        EXPECT_EQ(r.bound, c.bound) << lead;
    }
}

const Count1Case kCount1Cases[] = {
    {"table_a", 0, {code::qa_0001 + std::string("1"), code::qa_1000 + std::string("0"), code::qa_0000}, -1, 0,
     {0, 0, 0, -1, 1, 0, 0, 0, 0, 0, 0, 0}, 5},
    {"table_b", 1, {"11100", "00001010"}, -1, 2, {0, 0, 0, 1, -1, 1, -1, 1}, 12},
    {"padding_too_short_for_a_quadruple", 0, {code::qa_1111 + std::string("0000"), "0000000"}, -1, 0, {1, 1, 1, 1}, 4},
    // The second quadruple needs 10 bits but only 6 remain: it is dropped.
    {"overrunning_quadruple_dropped", 0, {code::qa_1111 + std::string("0000"), code::qa_1111 + std::string("1111")},
     16, 0, {1, 1, 1, 1, 0, 0, 0, 0}, 4},
    {"overrun_by_one_bit", 1, {"11100", "00001111"}, 12, 0, {0, 0, 0, 1}, 4},
    // 287 pairs leave 574 lines: no quadruple fits, the rest is skipped.
    {"no_room_after_574_lines", 0, {"0000000000"}, -1, 287, {0, 0}, 574},
    {"full_big_values", 1, {"1111"}, -1, 288, {}, 576},
};

INSTANTIATE_TEST_SUITE_P(Huffman, Count1, ::testing::ValuesIn(kCount1Cases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(HuffmanBudget, NegativeBudgetLeavesTheCursorAfterTheBigValues) {
    BitWriter w;
    ones(w, 8);  // 20 bits
    const Result r = run(kPlain, w, long_granule(4, 1, 1, 1, 7, 7), header(1, 0), 19);
    EXPECT_EQ(r.status, nkpStatusDataError);
    EXPECT_EQ(r.moved, 20);
    EXPECT_EQ(std::vector<nkp32s>(r.lines.begin(), r.lines.begin() + 9),
              (std::vector<nkp32s>{1, 1, 1, 1, 1, 1, 1, 1, 0x1234}));
    EXPECT_EQ(r.bound, -1);
}

TEST(HuffmanBudget, ZeroBitsGiveZerosWithoutMovingOrReadingTables) {
    for (Variant v : {kPlain, kSfb, kMbp}) {
        BitWriter w;
        w.put(0xFFFFFFFF, 32);
        nkpMP3SideInfo si = long_granule(100, 1, 2, 3, 7, 7);
        si.tableSelect[1] = 40;  // tables are checked only when a region is decoded
        const Result r = run(v, w, si, header(1, 0), 0, nullptr, 5);
        EXPECT_EQ(r.status, nkpStatusOk);
        EXPECT_EQ(r.moved, 0);
        EXPECT_EQ(r.lines, std::vector<nkp32s>(576, 0));
        EXPECT_EQ(r.bound, 0);
    }
}

TEST(HuffmanBound, CountsBackOverZeros) {
    struct Row {
        std::vector<std::string> pairs;  // table-1 codes with signs
        int bound;
    } rows[] = {
        {{code::t1_10 + std::string("1")}, 1},          // only line 0
        {{code::t1_00, code::t1_00}, 0},                 // all zero
        {{code::t1_00, code::t1_10 + std::string("0"), code::t1_00}, 3},
        {{code::t1_11 + std::string("01"), code::t1_00}, 2},
    };
    for (const Row& row : rows) {
        BitWriter w;
        for (const std::string& p : row.pairs) w.code(p.c_str());
        const int lines = 2 * static_cast<int>(row.pairs.size());
        const Result r = run(kPlain, w, long_granule(lines / 2, 1, 1, 1, 7, 7), header(1, 0), int(w.bit_count()));
        ASSERT_EQ(r.status, nkpStatusOk);
        EXPECT_EQ(r.bound, row.bound);
    }
}

TEST(HuffmanBudget, BadTableStopsBeforeItsRegion) {
    BitWriter w;
    ones(w, 12);
    nkpMP3SideInfo si = long_granule(20, 1, 32, 1, 2, 2);  // region 0: 12 lines (44.1 kHz)
    const Result r = run(kPlain, w, si, header(1, 0), 500);
    EXPECT_EQ(r.status, nkpStatusBadMP3SideInfo);
    EXPECT_EQ(std::vector<nkp32s>(r.lines.begin(), r.lines.begin() + 13),
              (std::vector<nkp32s>{1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0x1234}));
    // Region 2 is checked even when it is empty.
    si = long_granule(6, 1, 1, 99, 2, 2);
    EXPECT_EQ(run(kPlain, w, si, header(1, 0), 500).status, nkpStatusBadMP3SideInfo);
    // With window switching there is no region 2.
    si = switched_granule(6, 2, 0, 1, 1);
    si.tableSelect[2] = 99;
    EXPECT_EQ(run(kPlain, w, si, header(1, 0), 30).status, nkpStatusOk);
}

// ---- checks ----------------------------------------------------------------

struct Fault {
    const char* name;
    std::function<void(nkpMP3SideInfo&, nkpMP3FrameHeader&, int& offset, int& huf_bits)> apply;
    nkpStatus plain;  // nkpsHuffmanDecode and nkpsHuffmanDecodeSfb
    nkpStatus mbp;
};

const Fault kFaults[] = {
    {"offset_8", [](auto&, auto&, int& o, int&) { o = 8; }, nkpStatusOutOfRange, nkpStatusOutOfRange},
    {"offset_negative", [](auto&, auto&, int& o, int&) { o = -1; }, nkpStatusOutOfRange, nkpStatusOutOfRange},
    {"huf_bits_negative", [](auto&, auto&, int&, int& n) { n = -1; }, nkpStatusOutOfRange, nkpStatusBadMP3SideInfo},
    {"huf_bits_over_part", [](auto& s, auto&, int&, int& n) { n = s.part23Length + 1; }, nkpStatusOutOfRange,
     nkpStatusBadMP3SideInfo},
    {"offset_before_big_values", [](auto& s, auto&, int& o, int&) { o = 9, s.bigValues = 289; },
     nkpStatusOutOfRange, nkpStatusOutOfRange},
    {"big_values_289", [](auto& s, auto&, int&, int&) { s.bigValues = 289; }, nkpStatusBadMP3SideInfo,
     nkpStatusBadMP3SideInfo},
    {"big_values_before_id", [](auto& s, auto& h, int&, int&) { s.bigValues = 289, h.id = 2; },
     nkpStatusBadMP3SideInfo, nkpStatusBadMP3FrameHeader},
    {"huf_bits_before_id", [](auto&, auto& h, int&, int& n) { n = -1, h.id = 2; }, nkpStatusOutOfRange,
     nkpStatusBadMP3FrameHeader},
    {"block_type_4", [](auto& s, auto&, int&, int&) { s.blockType = 4; }, nkpStatusBadMP3SideInfo,
     nkpStatusBadMP3SideInfo},
    {"window_switching_2", [](auto& s, auto&, int&, int&) { s.windowSwitching = 2; }, nkpStatusBadMP3SideInfo,
     nkpStatusBadMP3SideInfo},
    {"count1_table_2", [](auto& s, auto&, int&, int&) { s.count1TableSelect = 2; }, nkpStatusBadMP3SideInfo,
     nkpStatusBadMP3SideInfo},
    {"count1_before_sampling_rate", [](auto& s, auto& h, int&, int&) { s.count1TableSelect = 2, h.samplingFreqIndex = 3; },
     nkpStatusBadMP3SideInfo, nkpStatusBadMP3FrameHeader},
    {"layer_2", [](auto&, auto& h, int&, int&) { h.layer = 2; }, nkpStatusBadMP3FrameHeader,
     nkpStatusBadMP3FrameHeader},
    {"sampling_index_3", [](auto&, auto& h, int&, int&) { h.samplingFreqIndex = 3; }, nkpStatusBadMP3FrameHeader,
     nkpStatusBadMP3FrameHeader},
    {"switched_block_type_0", [](auto& s, auto&, int&, int&) { s.windowSwitching = 1, s.blockType = 0; },
     nkpStatusBadMP3SideInfo, nkpStatusBadMP3SideInfo},
    {"block_type_0_before_layer",
     [](auto& s, auto& h, int&, int&) { s.windowSwitching = 1, s.blockType = 0, h.layer = 3; },
     nkpStatusBadMP3FrameHeader, nkpStatusBadMP3SideInfo},
    {"region_counts_sum_21", [](auto& s, auto&, int&, int&) { s.region0Count = 15, s.region1Count = 6; },
     nkpStatusBadMP3SideInfo, nkpStatusBadMP3SideInfo},
    {"region_count_negative", [](auto& s, auto&, int&, int&) { s.region1Count = -1; }, nkpStatusBadMP3SideInfo,
     nkpStatusBadMP3SideInfo},
    {"region_counts_sum_20", [](auto& s, auto&, int&, int&) { s.region0Count = 15, s.region1Count = 5; },
     nkpStatusOk, nkpStatusOk},
    {"switched_ignores_region_counts",
     [](auto& s, auto&, int&, int&) { s.windowSwitching = 1, s.blockType = 2, s.region0Count = 30; }, nkpStatusOk,
     nkpStatusOk},
};

class HuffmanChecks : public ::testing::TestWithParam<Fault> {};

TEST_P(HuffmanChecks, FirstFailingCheckDecides) {
    const Fault& f = GetParam();
    nkpMP3SideInfo si = long_granule(2, 1, 1, 1, 0, 0);
    si.part23Length = 20;
    nkpMP3FrameHeader h = header(1, 0);
    int offset = 0, huf_bits = 10;
    f.apply(si, h, offset, huf_bits);
    std::vector<uint8_t> bytes(2048, 0x80);
    nkp32s lines[576];
    int bound;
    const nkp8u* const start = bytes.data();
    static const Tables t = standard_tables();
    for (int v = 0; v < 3; ++v) {
        nkp8u* p = bytes.data();
        int o = offset;
        nkpStatus st;
        if (v == 0) st = nkpsHuffmanDecode_MP3_1u32s(&p, &o, lines, &bound, &si, &h, huf_bits);
        else if (v == 1) st = nkpsHuffmanDecodeSfb_MP3_1u32s(&p, &o, lines, &bound, &si, &h, huf_bits, t.long_bands);
        else st = nkpsHuffmanDecodeSfbMbp_MP3_1u32s(&p, &o, lines, &bound, &si, &h, huf_bits, t.long_bands,
                                                     t.short_bands, t.mixed);
        EXPECT_EQ(st, v == 2 ? f.mbp : f.plain) << "variant " << v;
        if (st != nkpStatusOk) {
            EXPECT_EQ(p, start);
            EXPECT_EQ(o, offset);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Huffman, HuffmanChecks, ::testing::ValuesIn(kFaults),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(HuffmanChecks, NullPointers) {
    std::vector<uint8_t> bytes(64, 0);
    nkp8u* p = bytes.data();
    nkp8u* null_byte = nullptr;
    int offset = 0, bound;
    nkp32s lines[576];
    nkpMP3SideInfo si = long_granule(0, 0, 0, 0, 0, 0);
    nkpMP3FrameHeader h = header(1, 0);
    EXPECT_EQ(nkpsHuffmanDecode_MP3_1u32s(nullptr, &offset, lines, &bound, &si, &h, 0), nkpStatusNullPointer);
    EXPECT_EQ(nkpsHuffmanDecode_MP3_1u32s(&null_byte, &offset, lines, &bound, &si, &h, 0), nkpStatusNullPointer);
    EXPECT_EQ(nkpsHuffmanDecode_MP3_1u32s(&p, nullptr, lines, &bound, &si, &h, 0), nkpStatusNullPointer);
    EXPECT_EQ(nkpsHuffmanDecode_MP3_1u32s(&p, &offset, nullptr, &bound, &si, &h, 0), nkpStatusNullPointer);
    EXPECT_EQ(nkpsHuffmanDecode_MP3_1u32s(&p, &offset, lines, nullptr, &si, &h, 0), nkpStatusNullPointer);
    EXPECT_EQ(nkpsHuffmanDecode_MP3_1u32s(&p, &offset, lines, &bound, nullptr, &h, 0), nkpStatusNullPointer);
    EXPECT_EQ(nkpsHuffmanDecode_MP3_1u32s(&p, &offset, lines, &bound, &si, nullptr, 0), nkpStatusNullPointer);
    // A null pointer beats a bad offset.
    offset = 9;
    EXPECT_EQ(nkpsHuffmanDecodeSfb_MP3_1u32s(&p, &offset, lines, nullptr, &si, &h, 0, nullptr),
              nkpStatusNullPointer);
    EXPECT_EQ(nkpsHuffmanDecodeSfbMbp_MP3_1u32s(&null_byte, &offset, lines, &bound, &si, &h, 0, nullptr, nullptr,
                                                nullptr),
              nkpStatusNullPointer);
}

// Garbage of every kind ends in a status or in values, never outside the
// buffer: random side information over random bytes.
TEST(HuffmanRobustness, RandomSideInformationOverRandomBytes) {
    uint32_t seed = 12345;
    auto next = [&seed] { return seed = seed * 1664525u + 1013904223u; };
    std::vector<uint8_t> bytes(2048);
    static const Tables t = standard_tables();
    for (int iter = 0; iter < 3000; ++iter) {
        for (auto& b : bytes) b = static_cast<uint8_t>(next() >> 24);
        nkpMP3SideInfo si{};
        si.part23Length = next() % 4096;
        si.bigValues = next() % 300;
        si.windowSwitching = next() % 2;
        si.blockType = next() % 4;
        si.mixedBlock = next() % 2;
        for (int& ts : si.tableSelect) ts = next() % 32;
        si.region0Count = next() % 16;
        si.region1Count = next() % 8;
        si.count1TableSelect = next() % 2;
        nkpMP3FrameHeader h = header(next() % 2, next() % 3);
        const int huf = si.part23Length ? static_cast<int>(next() % si.part23Length) : 0;
        nkp32s lines[576];
        int bound = -1;
        for (int v = 0; v < 3; ++v) {
            nkp8u* p = bytes.data();
            const int start = next() % 8;
            int offset = start;
            nkpStatus st;
            if (v == 0) st = nkpsHuffmanDecode_MP3_1u32s(&p, &offset, lines, &bound, &si, &h, huf);
            else if (v == 1) st = nkpsHuffmanDecodeSfb_MP3_1u32s(&p, &offset, lines, &bound, &si, &h, huf, t.long_bands);
            else st = nkpsHuffmanDecodeSfbMbp_MP3_1u32s(&p, &offset, lines, &bound, &si, &h, huf, t.long_bands,
                                                         t.short_bands, t.mixed);
            ASSERT_TRUE(st == nkpStatusOk || st == nkpStatusDataError || st == nkpStatusBadMP3SideInfo) << st;
            ASSERT_LE(p, bytes.data() + 1700);
            if (st == nkpStatusOk) {
                ASSERT_EQ((p - bytes.data()) * 8 + offset, start + huf);
                ASSERT_GE(bound, 0);
                ASSERT_LE(bound, 576);
            }
        }
    }
}

}  // namespace
