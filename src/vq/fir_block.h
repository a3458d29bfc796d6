// The block FIR filter's state record (made only by InitAlloc).
#pragma once

#include <cstdint>

namespace nkp::vq {

constexpr uint32_t kFirBlockTag = 58;

// numTaps slots of blockStride floats; slot s starts at s * blockStride.
// The sizes are 16-bit: InitAlloc cuts larger values to their low 16 bits
// and the filter refuses a cut size below 1. blockStride is read as
// unsigned: blockLength 32765 .. 32767 rounds up to 32768.
struct FirBlockState {
    float* delayLine;
    int16_t numTaps;
    int16_t blockLength;
    int16_t blockStride;  // blockLength rounded up to a multiple of 4
    int16_t position;     // slot of the newest block, 0 .. numTaps - 1
    uint32_t tag;
};

}  // namespace nkp::vq
