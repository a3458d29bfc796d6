// The SSE floating-point mode (MXCSR) for one call, so that results do not
// depend on the caller's settings: set when the guard is made, the caller's
// word put back when it goes out of scope (written only when it differs).
//
// Internal linkage on purpose: two-path sources include this header too, and
// a shared inline copy could hand one path's instructions to the other.
#pragma once

#include <xmmintrin.h>

namespace nkp {
namespace {

enum class FpMode {
    MaskExceptions,  // every exception masked, the caller's rounding kept
    Nearest,         // round to nearest (ties to even), the caller's masks kept
    NearestMasked,   // both of the above
    Standard,        // the whole word reset to 0x1F80: nearest, all masked, no
                     // flush-to-zero or denormals-are-zero, no flags
};

class FpModeScope {
public:
    explicit FpModeScope(FpMode mode) : saved_(_mm_getcsr()) {
        constexpr unsigned kExceptionMasks = 0x1F80;  // IM DM ZM OM UM PM
        constexpr unsigned kRounding = 0x6000;        // RC; 00 is round to nearest
        unsigned csr = saved_;
        switch (mode) {
            case FpMode::MaskExceptions: csr |= kExceptionMasks; break;
            case FpMode::Nearest: csr &= ~kRounding; break;
            case FpMode::NearestMasked: csr = (csr & ~kRounding) | kExceptionMasks; break;
            case FpMode::Standard: csr = kExceptionMasks; break;
        }
        changed_ = csr != saved_;
        if (changed_) _mm_setcsr(csr);
    }
    ~FpModeScope() {
        if (changed_) _mm_setcsr(saved_);
    }
    FpModeScope(const FpModeScope&) = delete;
    FpModeScope& operator=(const FpModeScope&) = delete;

private:
    unsigned saved_;
    bool changed_;
};

}  // namespace
}  // namespace nkp
