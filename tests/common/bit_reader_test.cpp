// The shared bit readers: random fields from every start offset and word
// alignment, each read, peeked or skipped, the cursor checked after every
// field and when stored, and the stream ending at a guard page right after
// the documented read slack.
#include "common/bit_writer.h"
#include "common/guarded_buffer.h"
#include "common/bit_reader.h"

#include <gtest/gtest.h>

#include <random>
#include <type_traits>

namespace {

template <class Reader>
void check_reader() {
    std::mt19937 rng(7);
    std::vector<std::pair<uint32_t, int>> fields;
    for (int i = 0; i < 300; ++i) {
        const int bits = static_cast<int>(rng() % 33);
        fields.push_back({bits == 32 ? rng() : (rng() & ((1u << bits) - 1)), bits});
    }
    for (int offset = 0; offset < 8; ++offset) {
        nkptest::BitWriter w;
        w.put(0, offset);
        for (auto [v, b] : fields) w.put(v, b);
        for (size_t misalign = 0; misalign < 4; ++misalign) {
            nkptest::GuardedBuffer buf(w.bytes(), misalign);
            Reader r(buf.data(), offset);
            size_t done = offset;
            for (size_t i = 0; i < fields.size(); ++i) {
                const auto [v, b] = fields[i];
                if (b) {  // the cache refills only before it consumes
                    if constexpr (std::is_same_v<Reader, nkp::BitCache>) r.refill();
                    ASSERT_EQ(r.peek(b), v) << "offset " << offset << " field " << i;
                }
                if (i % 4 == 3) {
                    r.skip(b);
                } else {
                    ASSERT_EQ(r.read(b), v) << "offset " << offset << " field " << i;
                }
                done += static_cast<size_t>(b);
                ASSERT_EQ(r.byte(), buf.data() + done / 8);
                ASSERT_EQ(r.bit_offset(), static_cast<int>(done % 8));
            }
            const uint8_t* byte = nullptr;
            int bit = -1;
            r.store(&byte, &bit);
            EXPECT_TRUE(byte == buf.data() + done / 8 && bit == static_cast<int>(done % 8));
        }
    }
}

TEST(BitReader, FieldsAndCursorAtEveryAlignmentAndOffset) { check_reader<nkp::BitReader>(); }
TEST(BitCache, FieldsAndCursorAtEveryAlignmentAndOffset) { check_reader<nkp::BitCache>(); }

}  // namespace
