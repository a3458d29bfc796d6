// The block FIR filter over many calls against the single-precision sum in
// the filter's order (new block first, then the oldest block down to the
// newest but one), bit for bit, in place or not. The record keeps its sizes
// in 16 bits: InitAlloc cuts larger ones, and the filter refuses a cut size
// below 1.
#include "vq/vq_test_util.h"

#include <cmath>
#include <deque>

namespace {

TEST(FirBlock, MatchesTheOrderedSumAcrossManyCalls) {
    const struct {
        const char* name;
        int taps, len, calls;
        size_t shift;             // floats past a 16-byte boundary for source, destination and taps
        int init_taps, init_len;  // InitAlloc's arguments when they are cut (0: taps, len)
    } cases[] = {
        {"one_tap", 1, 7, 5, 0},           {"two_taps", 2, 16, 9, 1},
        {"three_taps_len1", 3, 1, 12, 0},  {"five_taps_len33", 5, 33, 20, 3},
        {"eight_taps_len64", 8, 64, 30, 0}, {"seventy_taps", 70, 19, 150, 2},
        {"long_filter", 131, 20, 300, 0},  {"len_not_multiple_of_4", 4, 101, 11, 1},
        {"taps_65537_act_as_1", 1, 3, 4, 0, 65537, 3}, {"len_65541_acts_as_5", 2, 5, 4, 0, 2, 65541},
        {"len_32767_stride_32768", 2, 32767, 3, 0},
    };
    for (const auto& c : cases) {
        nkpsFIRBlockState_32f* state = nullptr;
        const int init_taps = c.init_taps ? c.init_taps : c.taps, init_len = c.init_len ? c.init_len : c.len;
        ASSERT_EQ(nkpsFIRBlockInitAlloc_32f(&state, init_taps, init_len), nkpStatusOk);
        const vqtest::Floats taps(vqtest::random_floats(c.taps, -1, 1), c.shift);
        std::deque<std::vector<float>> history;  // newest first
        long order_shows = 0;
        for (int call = 0; call < c.calls; ++call) {
            // A wide dynamic range, so that the order of the sum shows.
            std::vector<float> block = vqtest::random_floats(c.len, -1, 1);
            for (float& v : block) v = std::ldexp(v, vqtest::random_int(-12, 12));
            history.push_front(block);
            if (history.size() > static_cast<size_t>(c.taps)) history.pop_back();
            const bool in_place = call % 2;
            const vqtest::Floats in(block, c.shift);
            block.push_back(55.0f);
            const vqtest::Floats out(in_place ? block : std::vector<float>(c.len + 1, 55.0f), c.shift);
            ASSERT_EQ(nkpsFIRBlockOne_32f(in_place ? out.data : in.data, out.data, state, taps.data),
                      c.shift ? nkpStatusMisaligned : nkpStatusOk);
            for (int i = 0; i < c.len; ++i) {
                // Blocks older than the first call are zero.
                auto old = [&](int k) { return k < static_cast<int>(history.size()) ? history[k][i] : 0.0f; };
                float ordered = taps.data[0] * old(0), reversed = ordered;
                for (int k = c.taps - 1; k >= 1; --k) ordered += taps.data[k] * old(k);
                for (int k = 1; k < c.taps; ++k) reversed += taps.data[k] * old(k);
                order_shows += ordered != reversed;
                ASSERT_EQ(out.data[i], ordered) << c.name << " call " << call << " element " << i;
            }
            EXPECT_EQ(out.data[c.len], 55.0f) << c.name << ": wrote past the block";
        }
        if (c.taps >= 3) EXPECT_GT(order_shows, 0) << c.name << ": data too tame to pin the order";
        EXPECT_EQ(nkpsFIRBlockFree_32f(state), nkpStatusOk);
    }
    for (const auto& [taps, len] : {std::pair{32768, 2}, std::pair{1, 32768}, std::pair{1, 65536}}) {
        nkpsFIRBlockState_32f* state = nullptr;
        ASSERT_EQ(nkpsFIRBlockInitAlloc_32f(&state, taps, len), nkpStatusOk);
        alignas(16) float block[4] = {1, 2, 3, 4}, out[4] = {};
        EXPECT_EQ(nkpsFIRBlockOne_32f(block, out, state, block), nkpStatusBadFilterLength) << taps << " x " << len;
        EXPECT_EQ(nkpsFIRBlockFree_32f(state), nkpStatusOk);
    }
}

}  // namespace
