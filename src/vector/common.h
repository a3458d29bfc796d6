// Helpers shared by the vector family: scoped control of the SSE
// floating-point mode (MXCSR) for conversions whose results must not depend
// on the caller's settings, and the 16-byte alignment test behind the
// misalignment warning.
//
// Internal linkage on purpose: two-path sources include this header too, and
// a shared inline copy could hand one path's instructions to the other.
#pragma once

#include <xmmintrin.h>

namespace nkp {
namespace {

constexpr unsigned kMxcsrExceptionMasks = 0x1F80;  // IM DM ZM OM UM PM
constexpr unsigned kMxcsrRoundingBits = 0x6000;    // RC, 00 is round to nearest

// Sets the mode for one call; the caller's word is put back at scope end.
class FpModeScope {
public:
    // round_to_nearest: clear RC for the call; mask_exceptions: set all masks.
    FpModeScope(bool round_to_nearest, bool mask_exceptions) : saved_(_mm_getcsr()) {
        unsigned csr = saved_;
        if (round_to_nearest) csr &= ~kMxcsrRoundingBits;
        if (mask_exceptions) csr |= kMxcsrExceptionMasks;
        if (csr != saved_) _mm_setcsr(csr);
        changed_ = csr != saved_;
    }
    ~FpModeScope() {
        if (changed_) _mm_setcsr(saved_);
    }
    FpModeScope(const FpModeScope&) = delete;
    FpModeScope& operator=(const FpModeScope&) = delete;

private:
    unsigned saved_;
    bool changed_ = false;
};

// True when p is 16-byte aligned.
inline bool aligned16(const void* p) { return (reinterpret_cast<unsigned long long>(p) & 15) == 0; }

}  // namespace
}  // namespace nkp
