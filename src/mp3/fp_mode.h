// The decoder steps round with the SSE conversions, which follow MXCSR. A
// guard sets round-to-nearest with all exceptions masked for one call and
// gives the caller's mode back afterwards.
#pragma once

#include <xmmintrin.h>

namespace nkp::mp3 {

class NearestRounding {
public:
    NearestRounding() : saved_(_mm_getcsr()) { _mm_setcsr(0x1F80u); }
    ~NearestRounding() { _mm_setcsr(saved_); }
    NearestRounding(const NearestRounding&) = delete;
    NearestRounding& operator=(const NearestRounding&) = delete;

private:
    unsigned saved_;
};

}  // namespace nkp::mp3
