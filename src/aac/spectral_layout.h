// The band layout of one frame as the spectral tools take it (window
// length, window groups, max_sfb, sampling index) and its argument checks.
//
// Internal linkage on purpose: the inverse quantisation is built once per
// code path, and a shared inline copy could hand one path's instructions to
// the other.
#pragma once

#include "aac/band_tables.h"
#include "nkpac.h"

#include <cstdint>

namespace nkp::aac {
namespace {

constexpr int kLongWindow = 1024;
constexpr int kShortWindow = 128;
constexpr int kMaxWindows = 8;
constexpr int kMaxSfbLimit = 51;
constexpr int kSamplingIndexCount = 12;
// M/S flags are stored 60 bytes per window group.
constexpr int kMsFlagsPerGroup = 60;

// Window length and group count together: 128 takes 1..8 groups, 1024
// exactly one; any other length is refused as a length.
inline nkpStatus check_length_and_groups(int win_len, int groups) {
    if (win_len == kShortWindow) return (groups < 1 || groups > kMaxWindows) ? nkpStatusBadAacWindowGroups : nkpStatusOk;
    if (win_len == kLongWindow) return groups != 1 ? nkpStatusBadAacWindowGroups : nkpStatusOk;
    return nkpStatusBadAacWindowLength;
}

inline bool max_sfb_in_range(int max_sfb) { return max_sfb >= 0 && max_sfb <= kMaxSfbLimit; }
inline bool sampling_index_in_range(int index) { return index >= 0 && index < kSamplingIndexCount; }

inline int band_count(int sampling_index, int win_len) {
    return win_len == kLongWindow ? kNumSwbLong[sampling_index] : kNumSwbShort[sampling_index];
}
inline const int16_t* band_offsets(int sampling_index, int win_len) {
    return win_len == kLongWindow ? kSwbOffsetLong[sampling_index] : kSwbOffsetShort[sampling_index];
}

// The window count of every group lies in 1..8 and the groups hold at most
// eight windows together (one for a long window), so that no tool walks
// past the frame's 1024 lines.
inline nkpStatus check_window_counts(const int32_t* counts, int groups, int win_len) {
    const int limit = win_len == kLongWindow ? 1 : kMaxWindows;
    int total = 0;
    for (int g = 0; g < groups; ++g) {
        if (counts[g] < 1 || counts[g] > kMaxWindows) return nkpStatusBadAacWindowGroups;
        total += counts[g];
    }
    return total > limit ? nkpStatusBadAacWindowGroups : nkpStatusOk;
}

}  // namespace
}  // namespace nkp::aac
