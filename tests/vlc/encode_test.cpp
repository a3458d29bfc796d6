// Encoding and bit counting: the writers' word behaviour, block writing equal
// to one call per code, the bits against the tests' own writer, round trips
// through the decoders (plain and both escape forms) and counts equal to the
// bits written. Both code paths run every case.
#include "code_books.h"

#include <gtest/gtest.h>

#include <array>

namespace {

using namespace vlctest;
using nkptest::BitWriter;

using Bytes = std::array<uint8_t, 8>;

struct WordRow {
    const char* name;
    Bytes before;
    int start, offset;  // cursor: byte index into the 8 bytes, bit offset
    uint32_t code;
    int length;
    Bytes after;
    int end, end_offset;
};

const WordRow kWordRows[] = {
    // A code ending inside its word leaves the rest of the word at 1.
    {"three_bits_fill_ones", {0, 0, 0, 0, 0, 0, 0, 0}, 0, 0, 0b101, 3,
     {0xBF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0}, 0, 3},
    // The next code keeps the bits above its cursor.
    {"second_code_keeps_first", {0xBF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0}, 0, 3, 0b010, 3,
     {0xAB, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0}, 0, 6},
    // Ending on the word boundary: the next word is not touched.
    {"ends_on_word_boundary", {0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0xDE, 0xF0}, 3, 5, 0b101, 3,
     {0x12, 0x34, 0x56, 0x7D, 0x9A, 0xBC, 0xDE, 0xF0}, 4, 0},
    // Crossing: the next word's bits after the code stay as they were.
    {"crossing_keeps_lower_bits", {0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0xDE, 0xF0}, 3, 5, 0b10101, 5,
     {0x12, 0x34, 0x56, 0x7D, 0x5A, 0xBC, 0xDE, 0xF0}, 4, 2},
    // The bytes of the aligned word before the byte pointer keep their bits.
    {"bits_before_the_pointer_kept", {0xFF, 0xFF, 0x00, 0x00, 0, 0, 0, 0}, 1, 2, 0b0, 1,
     {0xFF, 0xDF, 0xFF, 0xFF, 0, 0, 0, 0}, 1, 3},
    {"thirty_two_bit_code", {0, 0, 0, 0, 0xAA, 0xAA, 0xAA, 0xAA}, 2, 0, 0x12345678, 32,
     {0, 0, 0x12, 0x34, 0x56, 0x78, 0xAA, 0xAA}, 6, 0},
};

// An encoder whose only value, 0, has the given code.
Encoder one_code(uint32_t code, int length, int path) {
    return Encoder({{0, static_cast<int32_t>(code), length}}, path, 7);
}

TEST(VlcEncode, WordBehaviour) {
    for (const WordRow& r : kWordRows)
        for (int path = 0; path < 2; ++path)
            for (int form = 0; form < 3; ++form) {
                Encoder e = one_code(r.code, r.length, path);
                alignas(4) Bytes buf = r.before;
                nkp8u* p = buf.data() + r.start;
                int offset = r.offset;
                const nkp16s zero = 0;
                nkpStatus s = form == 0   ? nkpt_nkpsVLCEncodeOne_16s1u[path](0, &p, &offset, e.spec)
                              : form == 1 ? nkpt_nkpsVLCEncodeBlock_16s1u[path](&zero, 1, &p, &offset, e.spec)
                                          : nkpsVLCEncodeEscBlock_MP3_16s1u(&zero, 1, 4, &p, &offset, e.spec);
                ASSERT_EQ(s, nkpStatusOk) << r.name;
                EXPECT_EQ(buf, r.after) << r.name << " form " << form;
                EXPECT_EQ(p - buf.data(), r.end) << r.name;
                EXPECT_EQ(offset, r.end_offset) << r.name;
            }
}

// EncodeOne does not check the offset: offset 9 writes 9 bits after the
// byte pointer.
TEST(VlcEncode, OneTakesAnyOffset) {
    for (int path = 0; path < 2; ++path) {
        Encoder e = one_code(0b101, 3, path);
        alignas(4) Bytes buf{};
        nkp8u* p = buf.data();
        int offset = 9;
        ASSERT_EQ(nkpt_nkpsVLCEncodeOne_16s1u[path](0, &p, &offset, e.spec), nkpStatusOk);
        EXPECT_EQ(buf, (Bytes{0x00, 0x5F, 0xFF, 0xFF, 0, 0, 0, 0}));
        EXPECT_EQ(p, buf.data() + 1);
        EXPECT_EQ(offset, 4);
    }
}

struct Written {
    std::vector<uint8_t> buffer;
    long bits;  // how far the cursor moved
};

// Writes src into a copy of `init` from bit `start`, with the block form or
// with one EncodeOne call per value.
Written write(const Encoder& e, const std::vector<nkp16s>& src, const std::vector<uint8_t>& init, size_t start,
              int path, bool block) {
    Written w{init, 0};
    nkp8u* const p0 = w.buffer.data() + start / 8;
    nkp8u* p = p0;
    int offset = static_cast<int>(start % 8);
    if (block) {
        EXPECT_EQ(nkpt_nkpsVLCEncodeBlock_16s1u[path](src.data(), static_cast<int>(src.size()), &p, &offset, e.spec),
                  nkpStatusOk);
    } else {
        for (nkp16s v : src) EXPECT_EQ(nkpt_nkpsVLCEncodeOne_16s1u[path](v, &p, &offset, e.spec), nkpStatusOk);
    }
    w.bits = (p - p0) * 8 + offset - static_cast<long>(start % 8);
    return w;
}

bool bit_at(const std::vector<uint8_t>& b, size_t i) { return (b[i / 8] >> (7 - i % 8)) & 1; }

// Random books with gaps, values inside and outside them, random buffer
// contents and start bits: the block form writes exactly what one call per
// value writes, the bits up to the cursor are those of the tests' writer, the
// bits before the start are kept, and CountBits gives the distance.
TEST(VlcEncode, BlockEqualsOneByOneAndTheTestWriter) {
    std::mt19937 rng(21);
    for (int round = 0; round < 300; ++round) {
        std::vector<Entry> book = random_code(rng, 2 + static_cast<int>(rng() % 60), 1 + static_cast<int>(rng() % 32),
                                              round % 2 == 0, -40, 40);
        std::vector<nkp16s> src(1 + rng() % 200);
        for (nkp16s& v : src) v = static_cast<nkp16s>(static_cast<int>(rng() % 101) - 50);
        std::vector<uint8_t> init(src.size() * 4 + 16);
        for (uint8_t& x : init) x = static_cast<uint8_t>(rng());
        const size_t start = 8 + rng() % 64;

        // The expected bits: the earliest entry of each value, nothing for values not in the book.
        BitWriter expected;
        for (nkp16s v : src)
            for (const Entry& en : book)
                if (en.value == v) {
                    expected.put(static_cast<uint32_t>(en.code), en.length);
                    break;
                }

        Encoder e0(book, 0, rng() % 64), e1(book, 1, rng() % 64);
        const Written block0 = write(e0, src, init, start, 0, true);
        const Written one0 = write(e0, src, init, start, 0, false);
        const Written block1 = write(e1, src, init, start, 1, true);
        ASSERT_EQ(block0.buffer, one0.buffer) << "round " << round;
        ASSERT_EQ(block0.bits, one0.bits);
        ASSERT_EQ(block0.buffer, block1.buffer) << "the code paths differ, round " << round;
        ASSERT_EQ(static_cast<size_t>(block0.bits), expected.bit_count());
        for (size_t i = 0; i < start; ++i) ASSERT_EQ(bit_at(block0.buffer, i), bit_at(init, i));
        for (size_t i = 0; i < expected.bit_count(); ++i)
            ASSERT_EQ(bit_at(block0.buffer, start + i), bit_at(expected.bytes(), i)) << "round " << round;

        for (int path = 0; path < 2; ++path) {
            nkp32s count = -1;
            ASSERT_EQ(nkpt_nkpsVLCCountBits_16s32s[path](src.data(), static_cast<int>(src.size()), &count,
                                                         (path ? e1 : e0).spec),
                      nkpStatusOk);
            EXPECT_EQ(count, block0.bits);
        }
    }
}

// Encode, then decode with a decoder built from the same book.
TEST(VlcEncode, RoundTripsThroughTheDecoders) {
    std::mt19937 rng(22);
    std::vector<Book> books{aac_scalefactor(), aac_spectral(1), aac_spectral(5)};
    for (int i = 0; i < 20; ++i)
        books.push_back({"random", random_code(rng, 2 + static_cast<int>(rng() % 300), 32, true, -3000, 3000), 0, 0,
                         0, 0});
    for (const Book& b : books)
        for (int path = 0; path < 2; ++path) {
            // Values from the book (the first entry of each value decodes back to it).
            std::vector<nkp16s> src(500);
            for (nkp16s& v : src) v = static_cast<nkp16s>(b.entries[rng() % b.entries.size()].value);
            Encoder e(b.entries, path);
            std::vector<uint8_t> buf(src.size() * 4 + 8);
            const Written w = write(e, src, buf, 0, path, true);
            Decoder d(b, {8, 8, 8, 8}, path);
            std::vector<uint8_t> stream = w.buffer;
            nkp8u* p = stream.data();
            int offset = 0;
            std::vector<nkp16s> out(src.size());
            ASSERT_EQ(nkpt_nkpsVLCDecodeBlock_1u16s[path](&p, &offset, out.data(), static_cast<int>(out.size()),
                                                          d.spec),
                      nkpStatusOk);
            EXPECT_EQ(out, src) << b.name;
            EXPECT_EQ((p - stream.data()) * 8 + offset, w.bits) << b.name;
        }
}

TEST(VlcEncode, EscapeRoundTripsAndCounts) {
    std::mt19937 rng(23);
    for (int round = 0; round < 60; ++round) {
        const bool aac = round % 2 == 0;
        const int top = aac ? 16 : 15;
        const int linbits = 1 + round % 16;
        Book b{"escape", random_code(rng, 2 * top + 1, 20, true, 0, 0), 0, 0, 0, 0};
        for (size_t i = 0; i < b.entries.size(); ++i) b.entries[i].value = static_cast<int32_t>(i) - top;
        const int limit = aac ? 8191 : std::min(32767, 14 + (1 << linbits));
        std::vector<nkp16s> src(2 * (1 + rng() % 150));
        for (nkp16s& v : src) {
            const int m = rng() % 3 ? static_cast<int>(rng() % (top + 1)) : static_cast<int>(rng() % (limit + 1));
            v = static_cast<nkp16s>(rng() & 1 ? -m : m);
        }
        const Encoder e(b.entries, 0);
        std::vector<uint8_t> stream(src.size() * 8 + 8, 0);
        nkp8u* p = stream.data() + 1;
        int offset = static_cast<int>(rng() % 8);
        const long start = 8 + offset;
        ASSERT_EQ(aac ? nkpsVLCEncodeEscBlock_AAC_16s1u(src.data(), static_cast<int>(src.size()), &p, &offset, e.spec)
                      : nkpsVLCEncodeEscBlock_MP3_16s1u(src.data(), static_cast<int>(src.size()), linbits, &p, &offset,
                                                        e.spec),
                  nkpStatusOk);
        const long bits = (p - stream.data()) * 8 + offset - start;
        nkp32s count = -1;
        ASSERT_EQ(aac ? nkpsVLCCountEscBits_AAC_16s32s(src.data(), static_cast<int>(src.size()), &count, e.spec)
                      : nkpsVLCCountEscBits_MP3_16s32s(src.data(), static_cast<int>(src.size()), linbits, &count,
                                                       e.spec),
                  nkpStatusOk);
        EXPECT_EQ(count, bits);

        for (int path = 0; path < 2; ++path) {
            Decoder d(b, {7, 7, 7}, path);
            nkp8u* q = stream.data() + 1;
            int off = static_cast<int>(start - 8);
            std::vector<nkp16s> out(src.size());
            ASSERT_EQ(aac ? nkpsVLCDecodeEscBlock_AAC_1u16s(&q, &off, out.data(), static_cast<int>(out.size()), d.spec)
                          : nkpsVLCDecodeEscBlock_MP3_1u16s(&q, &off, linbits, out.data(),
                                                            static_cast<int>(out.size()), d.spec),
                      nkpStatusOk);
            EXPECT_EQ(out, src) << "round " << round;
            EXPECT_EQ((q - stream.data()) * 8 + off - start, bits);
        }
    }
}

// Choices of the encoder tables: the earlier of two entries for one value
// is kept; values the book lacks, values outside its range and entries of
// impossible lengths write nothing and count nothing.
TEST(VlcEncode, TableChoices) {
    const std::vector<Entry> book{{5, 0b11, 2}, {7, 0b0, 1}, {5, 0b10, 2}, {9, 1, 40}};
    struct Row {
        const char* name;
        nkp16s value;
        int bits;
        uint8_t first_byte;  // written into a zeroed word at offset 0
    } rows[] = {
        {"first_of_two_kept", 5, 2, 0xFF},   // "11", then ones
        {"single", 7, 1, 0x7F},              // "0", then ones
        {"gap_in_range", 6, 0, 0x00},        // nothing written
        {"above_range", 100, 0, 0x00},
        {"below_range", -3, 0, 0x00},
        {"bad_length_left_out", 9, 0, 0x00},
    };
    for (const Row& r : rows)
        for (int path = 0; path < 2; ++path) {
            const Encoder e(book, path);
            alignas(4) Bytes buf{};
            nkp8u* p = buf.data();
            int offset = 0;
            ASSERT_EQ(nkpt_nkpsVLCEncodeOne_16s1u[path](r.value, &p, &offset, e.spec), nkpStatusOk);
            EXPECT_EQ(offset, r.bits) << r.name;
            EXPECT_EQ(buf[0], r.first_byte) << r.name;
            nkp32s count = -1;
            ASSERT_EQ(nkpt_nkpsVLCCountBits_16s32s[path](&r.value, 1, &count, e.spec), nkpStatusOk);
            EXPECT_EQ(count, r.bits) << r.name;
        }
}

}  // namespace
