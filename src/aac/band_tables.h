// Band layout tables shared by the AAC family (generated into
// generated/band_tables.cpp by tools/gen_aac_band_tables.py), indexed by the
// sampling-frequency index 0..11 (index 12, 7,350 Hz, has no rows of its own).
#pragma once

#include <cstdint>

namespace nkp::aac {

// Sampling frequencies in Hz for the indices 0..12.
extern const int32_t kSamplingRateHz[13];

// swb_offset of 1024-line and 128-line windows: entries 0..numSwb are the
// band starts and the window's end (1024 or 128); the rows are padded with
// that end to the widest row, so an entry at or above numSwb is the end.
extern const int16_t kSwbOffsetLong[12][52];
extern const int16_t kSwbOffsetShort[12][16];
extern const uint8_t kNumSwbLong[12];
extern const uint8_t kNumSwbShort[12];

// TNS_MAX_BANDS of the Main and low-complexity profiles.
extern const uint8_t kTnsMaxBandsLong[12];
extern const uint8_t kTnsMaxBandsShort[12];

// The long-term prediction coefficients, indexed by the 3-bit ltp_coef.
extern const float kLtpCoefficient[8];

}  // namespace nkp::aac
