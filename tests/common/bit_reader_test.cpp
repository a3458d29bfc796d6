// The shared bit reader: values and cursor at every start offset and word
// alignment, and its read slack against a guard page.
#include "common/bit_writer.h"
#include "common/guarded_buffer.h"
#include "common/bit_reader.h"

#include <gtest/gtest.h>

#include <random>

namespace {

TEST(BitReader, ReadsFieldsAtEveryAlignmentAndOffset) {
    std::mt19937 rng(7);
    std::vector<std::pair<uint32_t, int>> fields;
    for (int i = 0; i < 200; ++i) {
        const int bits = static_cast<int>(rng() % 33);
        const uint32_t value = bits == 32 ? rng() : (rng() & ((1u << bits) - 1));
        fields.push_back({value, bits});
    }
    for (int offset = 0; offset < 8; ++offset) {
        nkptest::BitWriter w;
        w.put(0, offset);
        size_t total = offset;
        for (auto [v, b] : fields) {
            w.put(v, b);
            total += static_cast<size_t>(b);
        }
        for (size_t misalign = 0; misalign < 4; ++misalign) {
            nkptest::GuardedBuffer buf(w.bytes(), misalign);
            nkp::BitReader r(buf.data(), offset);
            for (auto [v, b] : fields) ASSERT_EQ(r.read(b), v) << "offset " << offset;
            const uint8_t* byte = nullptr;
            int bit = -1;
            r.store(&byte, &bit);
            EXPECT_EQ(byte, buf.data() + total / 8);
            EXPECT_EQ(bit, static_cast<int>(total % 8));
        }
    }
}

TEST(BitReader, PeekDoesNotConsume) {
    const std::vector<uint8_t> bytes = {0xA5, 0x0F, 0xF0, 0x3C, 0x81};
    nkptest::GuardedBuffer buf(bytes);
    nkp::BitReader r(buf.data(), 3);
    EXPECT_EQ(r.peek(5), 0x05u);
    EXPECT_EQ(r.peek(13), 0x050Fu);
    EXPECT_EQ(r.read(13), 0x050Fu);
    EXPECT_EQ(r.bit_offset(), 0);
    EXPECT_EQ(r.byte(), buf.data() + 2);
}

}  // namespace

namespace {

// The cached reader gives the same fields and cursor as BitReader, refilling
// only before it consumes from a new word, so it too stays within the slack.
TEST(BitCache, ReadsFieldsAtEveryAlignmentAndOffset) {
    std::mt19937 rng(11);
    std::vector<std::pair<uint32_t, int>> fields;
    for (int i = 0; i < 300; ++i) {
        const int bits = static_cast<int>(rng() % 33);
        const uint32_t value = bits == 32 ? rng() : (rng() & ((1u << bits) - 1));
        fields.push_back({value, bits});
    }
    for (int offset = 0; offset < 8; ++offset) {
        nkptest::BitWriter w;
        w.put(0, offset);
        size_t total = offset;
        for (auto [v, b] : fields) {
            w.put(v, b);
            total += static_cast<size_t>(b);
        }
        for (size_t misalign = 0; misalign < 4; ++misalign) {
            nkptest::GuardedBuffer buf(w.bytes(), misalign);
            nkp::BitCache c(buf.data(), offset);
            size_t done = offset;
            for (auto [v, b] : fields) {
                ASSERT_EQ(c.read(b), v) << "offset " << offset;
                done += static_cast<size_t>(b);
                ASSERT_EQ(c.byte(), buf.data() + done / 8);
                ASSERT_EQ(c.bit_offset(), static_cast<int>(done % 8));
            }
            const uint8_t* byte = nullptr;
            int bit = -1;
            c.store(&byte, &bit);
            EXPECT_EQ(byte, buf.data() + total / 8);
            EXPECT_EQ(bit, static_cast<int>(total % 8));
        }
    }
}

TEST(BitCache, PeekAndSkipAfterRefill) {
    const std::vector<uint8_t> bytes = {0xA5, 0x0F, 0xF0, 0x3C, 0x81, 0x7E, 0x00, 0xFF, 0x12};
    nkptest::GuardedBuffer buf(bytes, 2);
    nkp::BitCache c(buf.data(), 3);
    c.refill();
    EXPECT_EQ(c.peek(5), 0x05u);
    EXPECT_EQ(c.peek(32), 0x287F81E4u);
    c.skip(29);
    c.refill();
    EXPECT_EQ(c.peek(32), 0x817E00FFu);
    c.skip(32);
    EXPECT_EQ(c.byte(), buf.data() + 8);
    EXPECT_EQ(c.bit_offset(), 0);
    EXPECT_EQ(c.read(8), 0x12u);
}

}  // namespace
