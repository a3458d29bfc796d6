// Huffman decoding: region boundaries of the three decoders, escapes,
// count1 tables and budget, the final cursor and bound (the checks are in
// status_test.cpp).
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "common/bit_writer.h"
#include "mp3/mp3_test_util.h"

namespace {

using namespace nkptest;

// A few code words of the standard's tables 1, 16 (shared by 17..23), 24
// (shared by 25..31) and quadruple table A.
const char *const t1_11 = "000", *const t16_00 = "1", *const t16_15_0 = "000001100", *const t16_0_15 = "000010001",
                  *const t16_15_15 = "00000011", *const t24_00 = "1111", *const t24_15_15 = "0011";
const char *const qa_0000 = "1", *const qa_0001 = "0101", *const qa_1000 = "0111", *const qa_1111 = "000001";

enum Variant { kPlain, kSfb, kMbp };

struct Result {
    nkpStatus status;
    std::vector<nkp32s> lines;
    int bound;
    long moved;  // bits the cursor moved
};

// Decodes w's bits placed `lead` bits into a buffer with room behind them.
Result run(Variant v, const BitWriter& w, const nkpMP3SideInfo& si, const nkpMP3FrameHeader& h, int huf_bits,
           const Mp3Tables& t = mp3_standard_tables(), int lead = 0) {
    BitWriter all;
    all.put(0x5A, lead);
    for (uint8_t b : w.bytes()) all.put(b, 8);
    std::vector<uint8_t> buffer = all.bytes();
    buffer.resize(buffer.size() + 2048, 0);
    nkp8u* p = buffer.data() + lead / 8;
    int offset = lead % 8;
    Result r{0, std::vector<nkp32s>(576, 0x1234), -1, 0};
    if (v == kPlain)
        r.status = nkpsHuffmanDecode_MP3_1u32s(&p, &offset, r.lines.data(), &r.bound, &si, &h, huf_bits);
    else if (v == kSfb)
        r.status = nkpsHuffmanDecodeSfb_MP3_1u32s(&p, &offset, r.lines.data(), &r.bound, &si, &h, huf_bits, t.lng);
    else
        r.status = nkpsHuffmanDecodeSfbMbp_MP3_1u32s(&p, &offset, r.lines.data(), &r.bound, &si, &h, huf_bits, t.lng,
                                                     t.shrt, t.mixed);
    r.moved = (p - buffer.data()) * 8L + offset - lead;
    return r;
}

// n lines of table-1 pairs (1, 1), positive: 5 bits a pair.
void ones(BitWriter& w, int lines) {
    for (int i = 0; i < lines; i += 2) w.code(t1_11).code("00");
}

struct RegionCase {
    const char* name;
    Variant variant;
    int id, sfi;
    nkpMP3SideInfo si;  // regions with table 1 decode ones, table 0 nothing
    int mixed_steps;
    bool custom_table;  // caller tables that differ from the standard's
    int e0, e1;         // where region 0 and region 1 end
};

class HuffmanRegions : public ::testing::TestWithParam<RegionCase> {};

TEST_P(HuffmanRegions, EndWhereTheRulesSay) {
    const RegionCase& c = GetParam();
    Mp3Tables t = mp3_standard_tables(c.mixed_steps);
    if (c.custom_table) {
        const nkp16s shifted[14] = {2, 6, 10, 16, 20, 26, 34, 44, 56, 70, 88, 110, 140, 192};
        for (int r = 0; r < 6; ++r) {
            for (int b = 0; b < 23; ++b) t.lng[23 * r + b] = static_cast<nkp16s>(b == 22 ? 576 : b * 26);
            std::memcpy(t.shrt + 14 * r, shifted, sizeof shifted);
        }
    }
    const int big = 2 * c.si.bigValues;
    BitWriter w;
    ones(w, c.e0);
    ones(w, big - c.e1);
    const Result r = run(c.variant, w, c.si, mp3_header(c.id, c.sfi), static_cast<int>(w.bit_count()), t);
    ASSERT_EQ(r.status, nkpStatusOk);
    EXPECT_EQ(r.moved, static_cast<long>(w.bit_count()));
    std::vector<nkp32s> want(576, 0);
    std::fill(want.begin(), want.begin() + c.e0, 1);
    std::fill(want.begin() + c.e1, want.begin() + big, 1);
    EXPECT_EQ(r.lines, want);
}

const nkpMP3SideInfo kStart = mp3_granule(288, 1, 0, 0, 7, 13, 1, 1), kShort = mp3_granule(288, 1, 0, 0, 8, 12, 1, 2),
                     kMixed = mp3_granule(288, 1, 0, 0, 7, 13, 1, 2, 1), kStop = mp3_granule(288, 1, 0, 0, 7, 13, 1, 3);
const RegionCase kRegionCases[] = {
    {"plain_mpeg1_start_36", kPlain, 1, 0, kStart, 0, false, 36, 576},
    {"plain_mpeg1_short_36", kPlain, 1, 1, kShort, 0, false, 36, 576},
    {"plain_lsf_start_54", kPlain, 0, 0, kStart, 0, false, 54, 576},
    {"plain_lsf_stop_54", kPlain, 0, 2, kStop, 0, false, 54, 576},
    {"plain_lsf_mixed_36", kPlain, 0, 1, kMixed, 0, false, 36, 576},
    {"sfb_lsf_start_54_whatever_the_table", kSfb, 0, 0, kStart, 0, true, 54, 576},
    {"mbp_start_long_band_8", kMbp, 1, 2, kStart, 0, false, 36, 576},
    {"mbp_lsf_stop_long_band_8", kMbp, 0, 0, kStop, 0, false, 54, 576},
    {"mbp_short_three_short_bands", kMbp, 1, 0, kShort, 0, false, 36, 576},
    {"mbp_short_from_first_boundary", kMbp, 1, 0, kShort, 0, true, 3 * (16 - 2), 576},
    // 44.1 kHz mixed block: long[8] = 36, then the short bands from 16 on:
    // widths 4, 4 (the first band twice), 6, 6, 6 (three times), 8 ...
    {"mbp_mixed_0_steps", kMbp, 1, 0, kMixed, 0, false, 36, 576},
    {"mbp_mixed_3_steps", kMbp, 1, 0, kMixed, 3, false, 36 + 4 + 4 + 6, 576},
    {"mbp_mixed_6_steps", kMbp, 1, 0, kMixed, 6, false, 36 + 4 + 4 + 6 + 6 + 6 + 8, 576},
    {"long_mpeg1_44k", kPlain, 1, 0, mp3_granule(100, 1, 0, 1, 2, 3), 0, false, 12, 30},
    {"long_lsf_24k", kPlain, 0, 1, mp3_granule(200, 1, 0, 1, 7, 7), 0, false, 54, 232},
    {"long_mpeg1_32k_last_bands", kPlain, 1, 2, mp3_granule(288, 1, 0, 1, 10, 9), 0, false, 66, 550},
    {"long_capped_by_big_values", kPlain, 1, 0, mp3_granule(10, 1, 0, 1, 7, 7), 0, false, 20, 20},
    {"long_sfb_caller_table", kSfb, 1, 1, mp3_granule(200, 1, 0, 1, 3, 4), 0, true, 104, 234},
    {"long_mbp_ignores_block_type", kMbp, 0, 2, mp3_granule(200, 1, 0, 1, 3, 4, 0, 2), 0, true, 104, 234},
};

INSTANTIATE_TEST_SUITE_P(Mp3, HuffmanRegions, ::testing::ValuesIn(kRegionCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(HuffmanValues, LinbitsEscapesAndSigns) {
    // Regions end at 4 and 8 (44.1 kHz). Table 16 (linbits 1): (15 + 1,
    // -15), (0, 15 + 0); table 23 (linbits 13): (-(15 + 8191), 0), (0, 0);
    // table 24 (linbits 4): (-(15 + 9), 15 + 15), (0, 0).
    BitWriter w;
    w.code(t16_15_15).put(1, 1).put(0, 1).put(0, 1).put(1, 1).code(t16_0_15).put(0, 2);
    w.code(t16_15_0).put(8191, 13).put(1, 1).code(t16_00);
    w.code(t24_15_15).put(9, 4).put(1, 1).put(15, 4).put(0, 1).code(t24_00);
    const Result r = run(kPlain, w, mp3_granule(6, 16, 23, 24, 0, 0), mp3_header(1, 0), static_cast<int>(w.bit_count()));
    ASSERT_EQ(r.status, nkpStatusOk);
    EXPECT_EQ(std::vector<nkp32s>(r.lines.begin(), r.lines.begin() + 12),
              (std::vector<nkp32s>{16, -15, 0, 15, -8206, 0, 0, 0, -24, 30, 0, 0}));
    EXPECT_EQ(r.moved, static_cast<long>(w.bit_count()));
    EXPECT_EQ(r.bound, 10);
}

TEST(HuffmanValues, Tables0And4And14ReadNothing) {
    for (int t : {0, 4, 14}) {
        BitWriter w;
        w.code(qa_1111).code("0000");  // one quadruple after 40 big-values lines
        const Result r = run(kPlain, w, mp3_granule(20, t, t, t, 1, 1), mp3_header(1, 0), 10);
        std::vector<nkp32s> want(576, 0);
        std::fill(want.begin() + 40, want.begin() + 44, 1);
        EXPECT_EQ(r.lines, want) << t;
        EXPECT_EQ(r.bound, 44);
    }
}

struct Count1Case {
    const char* name;
    int table;  // count1TableSelect
    std::vector<std::string> bits;
    int huf_bits;  // -1: all the bits
    int big_values;
    std::vector<nkp32s> want;  // lines from 2 * big_values on
    int bound;
};

class HuffmanCount1 : public ::testing::TestWithParam<Count1Case> {};

TEST_P(HuffmanCount1, DecodesUntilTheBudgetEndsAndStopsTheCursorThere) {
    const Count1Case& c = GetParam();
    for (int lead : {0, 3, 7}) {
        BitWriter w;
        ones(w, 2 * c.big_values);
        for (const std::string& s : c.bits) w.code(s.c_str());
        const int huf = c.huf_bits < 0 ? static_cast<int>(w.bit_count()) : c.huf_bits;
        nkpMP3SideInfo si = mp3_granule(c.big_values, 1, 1, 1);
        si.count1TableSelect = c.table;
        const Result r = run(kPlain, w, si, mp3_header(1, 0), huf, mp3_standard_tables(), lead);
        ASSERT_EQ(r.status, nkpStatusOk);
        EXPECT_EQ(r.moved, huf);
        std::vector<nkp32s> want(576, 0);
        std::fill(want.begin(), want.begin() + 2 * c.big_values, 1);
        std::copy(c.want.begin(), c.want.end(), want.begin() + 2 * c.big_values);
        EXPECT_EQ(r.lines, want) << lead;
        EXPECT_EQ(r.bound, c.bound);
    }
}

const Count1Case kCount1Cases[] = {
    {"table_a", 0, {qa_0001, "1", qa_1000, "0", qa_0000}, -1, 0, {0, 0, 0, -1, 1, 0, 0, 0, 0, 0, 0, 0}, 5},
    {"table_b", 1, {"11100", "00001010"}, -1, 2, {0, 0, 0, 1, -1, 1, -1, 1}, 12},
    {"only_line_0", 1, {"01111"}, -1, 0, {-1, 0, 0, 0}, 1},
    // A last quadruple that runs past the part is dropped (zeroed); the
    // cursor still ends at the part's end.
    {"overrun_dropped", 0, {qa_1111, "0000", qa_1111, "1111"}, 16, 0, {1, 1, 1, 1, 0, 0, 0, 0}, 4},
    {"overrun_by_one_bit", 1, {"11100", "00001111"}, 12, 0, {0, 0, 0, 1}, 4},
    // 574 big-values lines leave no room for a quadruple: bits are skipped.
    {"no_room_after_574", 0, {"0000000000"}, -1, 287, {0, 0}, 574},
    {"full_big_values", 1, {"1111"}, -1, 288, {}, 576},
};

INSTANTIATE_TEST_SUITE_P(Mp3, HuffmanCount1, ::testing::ValuesIn(kCount1Cases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(HuffmanBudget, NegativeBudgetLeavesTheCursorAfterTheBigValues) {
    BitWriter w;
    ones(w, 8);  // 20 bits
    const Result r = run(kPlain, w, mp3_granule(4, 1, 1, 1), mp3_header(1, 0), 19);
    EXPECT_EQ(r.status, nkpStatusDataError);
    EXPECT_EQ(r.moved, 20);
    EXPECT_EQ(std::vector<nkp32s>(r.lines.begin(), r.lines.begin() + 9),
              (std::vector<nkp32s>{1, 1, 1, 1, 1, 1, 1, 1, 0x1234}));
    EXPECT_EQ(r.bound, -1);
}

TEST(HuffmanBudget, ZeroBitsGiveZerosWithoutMovingOrCheckingTables) {
    BitWriter w;
    w.put(0xFFFFFFFF, 32);
    for (Variant v : {kPlain, kSfb, kMbp}) {
        const Result r = run(v, w, mp3_granule(100, 1, 40, 3), mp3_header(1, 0), 0, mp3_standard_tables(), 5);
        EXPECT_EQ(r.status, nkpStatusOk);
        EXPECT_EQ(r.moved, 0);
        EXPECT_EQ(r.lines, std::vector<nkp32s>(576, 0));
        EXPECT_EQ(r.bound, 0);
    }
}

TEST(HuffmanBudget, BadTableStopsBeforeItsRegion) {
    BitWriter w;
    ones(w, 12);
    const Result r = run(kPlain, w, mp3_granule(20, 1, 32, 1, 2, 2), mp3_header(1, 0), 500);  // region 0: 12 lines
    EXPECT_EQ(r.status, nkpStatusBadMP3SideInfo);
    EXPECT_EQ(r.lines[11], 1);
    EXPECT_EQ(r.lines[12], 0x1234);
    // An empty region 2 is checked too; with window switching there is none.
    EXPECT_EQ(run(kPlain, w, mp3_granule(6, 1, 1, 99, 2, 2), mp3_header(1, 0), 500).status, nkpStatusBadMP3SideInfo);
    nkpMP3SideInfo si = mp3_granule(6, 1, 1, 99, 8, 12, 1, 2);
    EXPECT_EQ(run(kPlain, w, si, mp3_header(1, 0), 30).status, nkpStatusOk);
}

// Random side information over random bytes ends in a status or in values,
// with the cursor at the part's end on success (the sanitizer run watches
// the memory accesses).
TEST(HuffmanRobustness, RandomSideInformationOverRandomBytes) {
    uint32_t seed = 12345;
    auto next = [&seed] { return (seed = seed * 1664525u + 1013904223u) >> 8; };
    std::vector<uint8_t> bytes(1700 + 16);
    static const Mp3Tables t = mp3_standard_tables();
    for (int iter = 0; iter < 3000; ++iter) {
        for (auto& b : bytes) b = static_cast<uint8_t>(next());
        nkpMP3SideInfo si = mp3_granule(next() % 289, next() % 32, next() % 32, next() % 32, next() % 16, next() % 5,
                                    next() % 2, 1 + next() % 3, next() % 2);
        si.part23Length = next() % 4096;
        si.count1TableSelect = next() % 2;
        const nkpMP3FrameHeader h = mp3_header(next() % 2, next() % 3);
        const int huf = static_cast<int>(next() % (si.part23Length + 1));
        nkp32s lines[576];
        int bound;
        for (int v = 0; v < 3; ++v) {
            nkp8u* p = bytes.data();
            const int start = next() % 8;
            int o = start;
            const nkpStatus st =
                v == 0   ? nkpsHuffmanDecode_MP3_1u32s(&p, &o, lines, &bound, &si, &h, huf)
                : v == 1 ? nkpsHuffmanDecodeSfb_MP3_1u32s(&p, &o, lines, &bound, &si, &h, huf, t.lng)
                         : nkpsHuffmanDecodeSfbMbp_MP3_1u32s(&p, &o, lines, &bound, &si, &h, huf, t.lng, t.shrt,
                                                             t.mixed);
            ASSERT_TRUE(st == nkpStatusOk || st == nkpStatusDataError) << st;
            if (st == nkpStatusOk) {
                ASSERT_EQ((p - bytes.data()) * 8 + o, start + huf);
                ASSERT_TRUE(bound >= 0 && bound <= 576);
            }
        }
    }
}

}  // namespace
