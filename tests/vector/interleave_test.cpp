// Interleaving and deinterleaving round trips for many channel counts and
// lengths (odd ones included, so that the vector loops' tails run), with and
// without an offset that breaks 16-byte alignment: layout and warning.
#include "nkpac.h"
#include "vector/vector_test_util.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using nkptest::Buffer;

template <typename T, typename Split, typename Merge>
void check_round_trip(Split split, Merge merge) {
    for (int channels = 1; channels <= 9; ++channels) {
        for (int len : {1, 3, 4, 7, 8, 9, 17, 64, 1153}) {
            for (size_t misalign : {size_t{0}, sizeof(T)}) {
                Buffer<T> flat(size_t(channels) * len, misalign), back(size_t(channels) * len, misalign);
                std::vector<Buffer<T>> lanes;
                std::vector<T*> lane_ptrs;
                for (int c = 0; c < channels; ++c) lanes.emplace_back(len, c == channels - 1 ? misalign : 0);
                for (auto& l : lanes) lane_ptrs.push_back(l.data());
                for (size_t i = 0; i < flat.size(); ++i) flat[i] = static_cast<T>(nkptest::random_int(-32768, 32767));
                const nkpStatus warn = misalign ? nkpStatusMisaligned : nkpStatusOk;
                ASSERT_EQ(split(flat.data(), channels, len, lane_ptrs.data()), warn);
                for (int c = 0; c < channels; ++c) {
                    for (int i = 0; i < len; ++i) ASSERT_EQ(lanes[c][i], flat[size_t(i) * channels + c]) << channels;
                }
                ASSERT_EQ(merge(lane_ptrs.data(), channels, len, back.data()), warn);
                for (size_t i = 0; i < flat.size(); ++i) ASSERT_EQ(back[i], flat[i]) << channels << " x " << len;
            }
        }
    }
}

TEST(Interleave, LayoutAndWarning) {
    check_round_trip<int16_t>(nkpsDeinterleave_16s, nkpsInterleave_16s);
    check_round_trip<float>(nkpsDeinterleave_32f, nkpsInterleave_32f);
}

}  // namespace
