// The block FIR filter against direct models over many calls: a double-
// precision sum for accuracy, and the single-precision sum in the filter's
// order (new block first, then the oldest block down to the newest but one)
// bit for bit.
#include "nkpcore.h"
#include "vq/fir_block.h"
#include "vq/vq_test_util.h"

#include <cmath>
#include <deque>

namespace {

using vqtest::Floats;

struct Filter {
    nkpsFIRBlockState_32f* state = nullptr;
    Filter(int taps, int len) { EXPECT_EQ(nkpsFIRBlockInitAlloc_32f(&state, taps, len), nkpStatusOk); }
    ~Filter() {
        if (state) EXPECT_EQ(nkpsFIRBlockFree_32f(state), nkpStatusOk);
    }
    nkp::vq::FirBlockState* record() { return reinterpret_cast<nkp::vq::FirBlockState*>(state); }
};

// Input blocks with a wide dynamic range, so that the order of the sum shows.
std::vector<float> block(int len) {
    std::vector<float> b = vqtest::random_floats(len, -1, 1);
    std::uniform_int_distribution<int> e(-12, 12);
    for (float& v : b) v = std::ldexp(v, e(vqtest::rng()));
    return b;
}

struct FilterCase {
    const char* name;
    int taps, len, calls;
    size_t shift;  // floats past a 16-byte boundary for source, destination and taps
};

const FilterCase kFilters[] = {
    {"one_tap", 1, 7, 5, 0},           {"two_taps", 2, 16, 9, 1},
    {"three_taps_len1", 3, 1, 12, 0},  {"five_taps_len33", 5, 33, 20, 3},
    {"eight_taps_len64", 8, 64, 30, 0}, {"seventy_taps", 70, 19, 150, 2},
    {"long_filter", 131, 20, 300, 0},  {"len_not_multiple_of_4", 4, 101, 11, 1},
};

TEST(FirBlock, MatchesDirectModelsAcrossManyCalls) {
    for (const FilterCase& c : kFilters) {
        Filter f(c.taps, c.len);
        const Floats taps(vqtest::random_floats(c.taps, -1, 1), c.shift);
        std::deque<std::vector<float>> history;  // newest first
        long order_shows = 0;
        for (int call = 0; call < c.calls; ++call) {
            history.push_front(block(c.len));
            if (history.size() > static_cast<size_t>(c.taps)) history.pop_back();
            const Floats in(history[0], c.shift);
            Floats out(std::vector<float>(c.len + 1, 55.0f), c.shift);
            const nkpStatus want_status = c.shift ? nkpStatusMisaligned : nkpStatusOk;
            ASSERT_EQ(nkpsFIRBlockOne_32f(in.data, out.data, f.state, taps.data), want_status) << c.name;
            for (int i = 0; i < c.len; ++i) {
                // Blocks older than the first call are zero.
                auto old = [&](int k) { return k < static_cast<int>(history.size()) ? history[k][i] : 0.0f; };
                double exact = 0, magnitude = 0;
                for (int k = 0; k < c.taps; ++k) {
                    exact += double(taps.data[k]) * old(k);
                    magnitude += std::abs(double(taps.data[k]) * old(k));
                }
                float ordered = taps.data[0] * old(0), reversed = taps.data[0] * old(0);
                for (int k = c.taps - 1; k >= 1; --k) ordered += taps.data[k] * old(k);
                for (int k = 1; k < c.taps; ++k) reversed += taps.data[k] * old(k);
                order_shows += ordered != reversed;
                ASSERT_EQ(out.data[i], ordered) << c.name << " call " << call << " element " << i;
                ASSERT_NEAR(out.data[i], exact, 1e-6 * magnitude + 1e-30) << c.name;
            }
            EXPECT_EQ(out.data[c.len], 55.0f) << c.name << ": wrote past the block";
        }
        if (c.taps >= 3) EXPECT_GT(order_shows, 0) << c.name << ": data too tame to pin the order";
    }
}

TEST(FirBlock, FiltersInPlace) {
    Filter f(3, 9), g(3, 9);
    const std::vector<float> taps = {0.5f, -0.25f, 2.0f};
    for (int call = 0; call < 6; ++call) {
        std::vector<float> in = block(9), out(9);
        nkpsFIRBlockOne_32f(in.data(), out.data(), f.state, taps.data());
        nkpsFIRBlockOne_32f(in.data(), in.data(), g.state, taps.data());
        EXPECT_EQ(in, out) << call;
    }
}

// The record's sizes are 16-bit: larger arguments keep their low 16 bits,
// and a cut size below 1 is refused by the filter call.
TEST(FirBlock, SizesAreCutTo16Bits) {
    const struct {
        const char* name;
        int taps, len;
        nkpStatus status;
        int effective_taps, effective_len;
    } cases[] = {
        {"taps_65537_act_as_1", 65537, 3, nkpStatusOk, 1, 3},
        {"len_65541_acts_as_5", 2, 65541, nkpStatusOk, 2, 5},
        {"taps_32768_refused", 32768, 2, nkpStatusBadFilterLength, 0, 0},
        {"len_32768_refused", 1, 32768, nkpStatusBadFilterLength, 0, 0},
        {"len_65536_refused", 1, 65536, nkpStatusBadFilterLength, 0, 0},
        {"len_32767_stride_32768", 2, 32767, nkpStatusOk, 2, 32767},
    };
    for (const auto& c : cases) {
        Filter f(c.taps, c.len);
        ASSERT_NE(f.state, nullptr) << c.name;
        const int n = c.effective_len ? c.effective_len : 4;
        std::vector<float> taps(c.effective_taps ? c.effective_taps : 1, 0.75f), out(n + 1, 9.0f);
        taps.push_back(1000.0f);  // must not be read
        const std::vector<float> a(n, 2.0f), b(n, 3.0f);
        const nkpStatus s = nkpsFIRBlockOne_32f(a.data(), out.data(), f.state, taps.data());
        EXPECT_EQ(s == nkpStatusMisaligned ? nkpStatusOk : s, c.status) << c.name;
        if (c.status != nkpStatusOk) {
            EXPECT_EQ(out[0], 9.0f) << c.name;
            continue;
        }
        nkpsFIRBlockOne_32f(b.data(), out.data(), f.state, taps.data());
        const float want = c.effective_taps == 1 ? 0.75f * 3.0f : 0.75f * 3.0f + 0.75f * 2.0f;
        EXPECT_EQ(out[0], want) << c.name;
        EXPECT_EQ(out[n - 1], want) << c.name;
        EXPECT_EQ(out[n], 9.0f) << c.name;
    }
}

class FirBlockLife : public ::testing::Test {
protected:
    void TearDown() override { nkpcoreFailMallocAfter(-1); }
};

TEST_F(FirBlockLife, FailedInitAllocKeepsNothingAndStoresNothing) {
    for (long fail_after : {0L, 1L}) {  // the record, then the delay line
        const long live = nkpcoreLiveAllocations();
        nkpsFIRBlockState_32f* state = reinterpret_cast<nkpsFIRBlockState_32f*>(&fail_after);
        nkpcoreFailMallocAfter(fail_after);
        EXPECT_EQ(nkpsFIRBlockInitAlloc_32f(&state, 4, 16), nkpStatusNoMemory) << fail_after;
        nkpcoreFailMallocAfter(-1);
        EXPECT_EQ(state, reinterpret_cast<nkpsFIRBlockState_32f*>(&fail_after));
        EXPECT_EQ(nkpcoreLiveAllocations(), live) << fail_after;
    }
}

TEST_F(FirBlockLife, FreeReleasesBothAllocationsAndRefusesOtherRecords) {
    const long live = nkpcoreLiveAllocations();
    nkpsFIRBlockState_32f* state = nullptr;
    ASSERT_EQ(nkpsFIRBlockInitAlloc_32f(&state, 3, 8), nkpStatusOk);
    EXPECT_EQ(nkpcoreLiveAllocations(), live + 2);
    nkp::vq::FirBlockState fake = *reinterpret_cast<nkp::vq::FirBlockState*>(state);
    fake.tag = 57;
    EXPECT_EQ(nkpsFIRBlockFree_32f(reinterpret_cast<nkpsFIRBlockState_32f*>(&fake)), nkpStatusWrongObject);
    EXPECT_EQ(nkpcoreLiveAllocations(), live + 2);
    EXPECT_EQ(nkpsFIRBlockFree_32f(state), nkpStatusOk);
    EXPECT_EQ(nkpcoreLiveAllocations(), live);
}

}  // namespace
