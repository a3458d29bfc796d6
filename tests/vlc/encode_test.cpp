// Encoding and bit counting: the writers' word behaviour and table choices,
// block writing equal to one call per code and to the tests' own writer,
// round trips through the decoders (plain and both escape forms) and counts
// equal to the bits written. Both code paths run every case.
#include "code_books.h"

#include <gtest/gtest.h>

#include <array>

namespace {

using namespace vlctest;
using nkptest::BitWriter;
using Bytes = std::array<uint8_t, 8>;

const std::vector<Entry> kCode101{{0, 0b101, 3}}, kCode010{{0, 0b010, 3}}, kCode10101{{0, 0b10101, 5}},
    kCode0{{0, 0, 1}}, kCode32{{0, 0x12345678, 32}}, kChoices{{5, 0b11, 2}, {7, 0, 1}, {5, 0b10, 2}, {9, 1, 40}};
const Bytes kZero{}, kWords{0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0xDE, 0xF0};

struct WordRow {
    const char* name;
    const std::vector<Entry>& book;
    nkp16s value;
    Bytes before;
    int start, offset;  // cursor: byte index into the 8 bytes, bit offset
    Bytes after;
    int end, end_offset;
};

const WordRow kWordRows[] = {
    // A code ending inside its word leaves the rest of the word at 1; the
    // next code keeps the bits above its cursor.
    {"three_bits_fill_ones", kCode101, 0, kZero, 0, 0, {0xBF, 0xFF, 0xFF, 0xFF}, 0, 3},
    {"second_code_keeps_first", kCode010, 0, {0xBF, 0xFF, 0xFF, 0xFF}, 0, 3, {0xAB, 0xFF, 0xFF, 0xFF}, 0, 6},
    // Ending on the word boundary leaves the next word alone; crossing into
    // it keeps its bits after the code.
    {"ends_on_word_boundary", kCode101, 0, kWords, 3, 5, {0x12, 0x34, 0x56, 0x7D, 0x9A, 0xBC, 0xDE, 0xF0}, 4, 0},
    {"crossing_keeps_lower_bits", kCode10101, 0, kWords, 3, 5, {0x12, 0x34, 0x56, 0x7D, 0x5A, 0xBC, 0xDE, 0xF0}, 4, 2},
    {"thirty_two_bits", kCode32, 0, {0, 0, 0, 0, 0xAA, 0xAA, 0xAA, 0xAA}, 2, 0, {0, 0, 0x12, 0x34, 0x56, 0x78, 0xAA, 0xAA},
     6, 0},
    // The bytes of the aligned word before the byte pointer keep their bits.
    {"bits_before_the_pointer_kept", kCode0, 0, {0xFF, 0xFF}, 1, 2, {0xFF, 0xDF, 0xFF, 0xFF}, 1, 3},
    // EncodeOne takes any offset: 9 means 9 bits after the byte pointer.
    {"offset_9_one_only", kCode101, 0, kZero, 0, 9, {0x00, 0x5F, 0xFF, 0xFF}, 1, 4},
    // Table choices: of two entries for one value the first is kept; values
    // the book lacks, values outside it and impossible lengths write nothing.
    {"first_of_two_kept", kChoices, 5, kZero, 0, 0, {0xFF, 0xFF, 0xFF, 0xFF}, 0, 2},
    {"single", kChoices, 7, kZero, 0, 0, {0x7F, 0xFF, 0xFF, 0xFF}, 0, 1},
    {"value_not_in_book", kChoices, 6, kZero, 0, 5, kZero, 0, 5},
    {"value_outside_range", kChoices, 100, kZero, 0, 0, kZero, 0, 0},
    {"length_40_left_out", kChoices, 9, kZero, 0, 0, kZero, 0, 0},
};

TEST(VlcEncode, WordBehaviourAndTableChoices) {
    for (const WordRow& r : kWordRows)
        for (int path = 0; path < 2; ++path) {
            const Encoder e(r.book, path, 7);
            // One, Block, and the MP3 escape form for values without escapes.
            for (int form = 0; form < (r.offset > 7 ? 1 : r.value < 15 ? 3 : 2); ++form) {
                alignas(4) Bytes buf = r.before;
                nkp8u* p = buf.data() + r.start;
                int off = r.offset;
                const nkpStatus s = form == 0 ? nkpt_nkpsVLCEncodeOne_16s1u[path](r.value, &p, &off, e.spec)
                                    : form == 1
                                        ? nkpt_nkpsVLCEncodeBlock_16s1u[path](&r.value, 1, &p, &off, e.spec)
                                        : nkpsVLCEncodeEscBlock_MP3_16s1u(&r.value, 1, 4, &p, &off, e.spec);
                ASSERT_EQ(s, nkpStatusOk) << r.name;
                EXPECT_EQ(buf, r.after) << r.name << " form " << form;
                EXPECT_EQ((p - buf.data()) * 8 + off, r.end * 8 + r.end_offset) << r.name;
            }
            nkp32s count = -1;
            ASSERT_EQ(nkpt_nkpsVLCCountBits_16s32s[path](&r.value, 1, &count, e.spec), nkpStatusOk);
            EXPECT_EQ(count, (r.end - r.start) * 8 + r.end_offset - r.offset) << r.name;
        }
}

bool bit_at(const std::vector<uint8_t>& b, size_t i) { return (b[i / 8] >> (7 - i % 8)) & 1; }

// Random books with gaps, values inside and outside them, random buffer
// contents and start bits: the block form writes what one call per value
// writes, the bits up to the cursor are the tests' writer's, the bits before
// the start are kept, and CountBits gives the distance.
TEST(VlcEncode, BlockEqualsOneByOneAndTheTestWriter) {
    std::mt19937 rng(21);
    for (int round = 0; round < 300; ++round) {
        const std::vector<Entry> book = random_code(rng, 2 + static_cast<int>(rng() % 60),
                                                    1 + static_cast<int>(rng() % 32), round % 2 == 0, -40, 40);
        std::vector<nkp16s> src(1 + rng() % 200);
        for (nkp16s& v : src) v = static_cast<nkp16s>(static_cast<int>(rng() % 101) - 50);
        BitWriter expected;  // the first entry of each value, nothing for others
        for (nkp16s v : src) {
            const auto e = std::find_if(book.begin(), book.end(), [v](const Entry& x) { return x.value == v; });
            if (e != book.end()) expected.put(static_cast<uint32_t>(e->code), e->length);
        }
        std::vector<uint8_t> init(src.size() * 4 + 16);
        for (uint8_t& x : init) x = static_cast<uint8_t>(rng());
        const size_t start = 8 + rng() % 64;
        std::vector<uint8_t> first;
        for (int path = 0; path < 2; ++path)
            for (int block = 0; block < 2; ++block) {
                const Encoder e(book, path, rng() % 64);
                std::vector<uint8_t> buf = init;
                nkp8u* p = buf.data() + start / 8;
                int off = static_cast<int>(start % 8);
                if (block)
                    ASSERT_EQ(nkpt_nkpsVLCEncodeBlock_16s1u[path](src.data(), static_cast<int>(src.size()), &p, &off,
                                                                  e.spec),
                              nkpStatusOk);
                else
                    for (nkp16s v : src) ASSERT_EQ(nkpt_nkpsVLCEncodeOne_16s1u[path](v, &p, &off, e.spec), nkpStatusOk);
                ASSERT_EQ(static_cast<size_t>((p - buf.data()) * 8 + off), start + expected.bit_count());
                if (first.empty()) first = buf;
                ASSERT_EQ(buf, first) << "round " << round << " path " << path << " block " << block;
                nkp32s count = -1;
                ASSERT_EQ(nkpt_nkpsVLCCountBits_16s32s[path](src.data(), static_cast<int>(src.size()), &count, e.spec),
                          nkpStatusOk);
                ASSERT_EQ(static_cast<size_t>(count), expected.bit_count());
            }
        for (size_t i = 0; i < start; ++i) ASSERT_EQ(bit_at(first, i), bit_at(init, i));
        for (size_t i = 0; i < expected.bit_count(); ++i)
            ASSERT_EQ(bit_at(first, start + i), bit_at(expected.bytes(), i)) << "round " << round;
    }
}

// Encode, count and decode again: plain books (the scale-factor book, random
// books), and books of -16..16 and -15..15 with escaped magnitudes up to
// 8191 (AAC) and 14 + 2^linbits (MP3, linbits 1..16).
TEST(VlcEncode, RoundTripsAndCounts) {
    std::mt19937 rng(22);
    for (int round = 0; round < 90; ++round) {
        const int kind = round % 3;  // 0 plain, 1 AAC escapes, 2 MP3 escapes
        const int top = kind == 1 ? 16 : 15, linbits = 1 + round % 16;
        Book b{"round_trip"};
        if (kind == 0) {
            b = round < 6 ? standard_book("aac_sf")
                          : Book{"random", random_code(rng, 2 + static_cast<int>(rng() % 300), 32, true, -3000, 3000)};
        } else {
            b.entries = random_code(rng, 2 * top + 1, 20, true, 0, 0);
            for (size_t i = 0; i < b.entries.size(); ++i) b.entries[i].value = static_cast<int32_t>(i) - top;
        }
        const int limit = kind == 1 ? 8191 : std::min(32767, 14 + (1 << linbits));
        std::vector<nkp16s> src(2 * (1 + rng() % 150));
        for (nkp16s& v : src) {
            if (kind == 0) {
                v = static_cast<nkp16s>(b.entries[rng() % b.entries.size()].value);
            } else {
                const int m = static_cast<int>(rng() % (rng() % 3 ? top + 1 : limit + 1));
                v = static_cast<nkp16s>(rng() & 1 ? -m : m);
            }
        }
        const int n = static_cast<int>(src.size());
        for (int path = 0; path < 2; ++path) {
            const Encoder e(b.entries, path);
            std::vector<uint8_t> stream(src.size() * 8 + 8);
            nkp8u* p = stream.data() + 1;
            int off = static_cast<int>(rng() % 8);
            const long start = 8 + off;
            nkp32s count = -1;
            ASSERT_EQ(kind == 0   ? nkpt_nkpsVLCEncodeBlock_16s1u[path](src.data(), n, &p, &off, e.spec)
                      : kind == 1 ? nkpsVLCEncodeEscBlock_AAC_16s1u(src.data(), n, &p, &off, e.spec)
                                  : nkpsVLCEncodeEscBlock_MP3_16s1u(src.data(), n, linbits, &p, &off, e.spec),
                      nkpStatusOk);
            ASSERT_EQ(kind == 0   ? nkpt_nkpsVLCCountBits_16s32s[path](src.data(), n, &count, e.spec)
                      : kind == 1 ? nkpsVLCCountEscBits_AAC_16s32s(src.data(), n, &count, e.spec)
                                  : nkpsVLCCountEscBits_MP3_16s32s(src.data(), n, linbits, &count, e.spec),
                      nkpStatusOk);
            const long bits = (p - stream.data()) * 8 + off - start;
            EXPECT_EQ(count, bits) << b.name;

            const Decoder d(b, {7, 7, 7, 7, 7}, path);
            nkp8u* q = stream.data() + 1;
            off = static_cast<int>(start - 8);
            std::vector<nkp16s> out(src.size());
            ASSERT_EQ(kind == 0   ? nkpt_nkpsVLCDecodeBlock_1u16s[path](&q, &off, out.data(), n, d.spec)
                      : kind == 1 ? nkpsVLCDecodeEscBlock_AAC_1u16s(&q, &off, out.data(), n, d.spec)
                                  : nkpsVLCDecodeEscBlock_MP3_1u16s(&q, &off, linbits, out.data(), n, d.spec),
                      nkpStatusOk);
            EXPECT_EQ(out, src) << b.name << " round " << round;
            EXPECT_EQ((q - stream.data()) * 8 + off - start, bits);
        }
    }
}

}  // namespace
