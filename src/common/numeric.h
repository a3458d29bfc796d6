// Small numeric helpers every family uses: 64-byte rounding of sizes,
// clamping, saturation to 16 bits and the 16-byte alignment test.
//
// Internal linkage on purpose: two-path sources include this header too, and
// a shared inline copy could hand one path's instructions to the other.
#pragma once

#include <cstdint>
#include <emmintrin.h>

namespace nkp {
namespace {

// x rounded up / down to a multiple of 64 (x >= 0).
constexpr int64_t align64(int64_t x) { return (x + 63) & ~int64_t{63}; }
constexpr int64_t round_down64(int64_t x) { return x & ~int64_t{63}; }

// v held inside lo..hi (lo <= hi). Band boundaries from a caller's table are
// clamped so: each inside the granule and not below the one before it.
constexpr int clamp(int v, int lo, int hi) { return v < lo ? lo : v > hi ? hi : v; }

constexpr int16_t saturate16(int64_t v) {
    return static_cast<int16_t>(v > 32767 ? 32767 : (v < -32768 ? -32768 : v));
}

// Floats to 16 bits: clamped (minps, then maxps), then converted with the
// current rounding. minps returns its second operand when the first is NaN,
// so NaN gives 32767; the vector and scalar forms agree bit for bit.
inline __m128i float_to_s16x4(__m128 v) {
    v = _mm_min_ps(v, _mm_set1_ps(32767.0f));
    v = _mm_max_ps(v, _mm_set1_ps(-32768.0f));
    return _mm_cvtps_epi32(v);
}
inline int16_t float_to_s16(float x) {
    __m128 v = _mm_set_ss(x);
    v = _mm_min_ss(v, _mm_set_ss(32767.0f));
    v = _mm_max_ss(v, _mm_set_ss(-32768.0f));
    return static_cast<int16_t>(_mm_cvtss_si32(v));
}

// True when p is 16-byte aligned.
inline bool aligned16(const void* p) { return (reinterpret_cast<uintptr_t>(p) & 15) == 0; }

}  // namespace
}  // namespace nkp
