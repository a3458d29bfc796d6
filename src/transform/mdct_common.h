// What the three MDCT plans share: the 40-byte public header (with private
// fields behind it, 64 bytes in all), the life cycle (fft::kPlanLife), the
// length rules and the folding of N inputs into N/4 complex values.
#pragma once

#include "frame/object.h"
#include "transform/engine.h"

#include <cstdint>

namespace nkp::mdct {

constexpr uint32_t kTagFwd32f = 55;
constexpr uint32_t kTagInv32f = 56;
constexpr uint32_t kTagFwd16s = 57;
constexpr int kHeaderBytes = 40;
constexpr int kHeaderPadded = 64;

struct MdctSpec {
    uint32_t tag;
    int32_t len;
    int32_t bufSize;
    int32_t order;  // log2(N/4); 0 for 12 and 36
    int32_t allocated;     // made by InitAlloc
    const void* pTwiddle;  // rotation table
    void* pFFTSpec;        // the N/4-point FFT plan; null for 12 and 36
    // Private: the blocks InitAlloc obtained (header, float table).
    void* block;
    void* tableBlock;
};
static_assert(sizeof(MdctSpec) <= kHeaderPadded, "header fits 64 bytes");

inline bool is_pow2_at_least_32(int len) { return len >= 32 && (len & (len - 1)) == 0; }
inline bool is_float_length(int len) { return len == 12 || len == 36 || is_pow2_at_least_32(len); }
inline int order_of(int len) {
    if (!is_pow2_at_least_32(len)) return 0;
    int o = 0;
    while ((4 << o) < len) ++o;
    return o;
}

// Rotation tables in blocks of four: block b holds the entries 2j (sine
// side) of j = 4b..4b+3, then their entries 2j+1 (cosine side).
template <class T>
inline T& tab_sin(T* t, int j) {
    return t[8 * (j >> 2) + (j & 3)];
}
template <class T>
inline T& tab_cos(T* t, int j) {
    return t[8 * (j >> 2) + 4 + (j & 3)];
}
// Entries in the table, rounded up to whole blocks.
inline int table_entries(int len) { return 8 * ((len / 4 + 3) / 4); }

// Folds x (N values) into the complex value of index k (0 <= k < N/4).
template <class T, class S>
inline void fold(const T* x, int N, int k, S* re, S* im) {
    const int n = 2 * k, h = (N / 4 + 1) / 2;
    if (k < h) {
        *re = -static_cast<S>(x[3 * N / 4 + n]) - static_cast<S>(x[3 * N / 4 - 1 - n]);
        *im = static_cast<S>(x[N / 4 - 1 - n]) - static_cast<S>(x[N / 4 + n]);
    } else {
        *re = static_cast<S>(x[n - N / 4]) - static_cast<S>(x[3 * N / 4 - 1 - n]);
        *im = -static_cast<S>(x[5 * N / 4 - 1 - n]) - static_cast<S>(x[N / 4 + n]);
    }
}

}  // namespace nkp::mdct
