// Internals shared by requantisation and joint stereo.
#pragma once

#include "nkpac.h"

#include <cstdint>

namespace nkp::mp3 {

// Values in a granule/channel's scale-factor array.
constexpr int kScaleFactorCount = 39;

// The split of a mixed block for one sampling rate: long bands below line 36,
// and the first short band above it.
struct MixedLayout {
    int long_bands;
    int first_short;
};
MixedLayout mixed_layout(const int16_t* long_row, const int16_t* short_row);

// Checks of the bound, side information and header shared by the two
// requantisation exports.
nkpStatus check_granule(const int* pNonZeroBound, const nkpMP3SideInfo* si, const nkpMP3FrameHeader* fh);

nkpStatus requantize(int32_t* xr, int* pNonZeroBound, const int8_t* sf, const nkpMP3SideInfo* si,
                     const nkpMP3FrameHeader* fh, const int16_t* long_row, const int16_t* short_row);

}  // namespace nkp::mp3
