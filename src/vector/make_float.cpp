// Floats from mantissa/exponent pairs and from scale factors.
#include "frame/exports.h"
#include "common/numeric.h"

#include <array>
#include <cstddef>
#include <cstring>
#include <emmintrin.h>

namespace nkp {
namespace {

// ---- mantissa * 2^(-15 - exp) ---------------------------------------------

// The factor is assembled as a bit pattern: 0x38000000 is 2^-15, and each
// exponent step moves the exponent field by one. Nothing stops the field
// from wrapping; the sign bit is cleared afterwards.
inline uint32_t factor_bits(int16_t exp) {
    return (0x38000000u - (static_cast<uint32_t>(static_cast<int32_t>(exp)) << 23)) & 0x7FFFFFFFu;
}

inline __m128i widen_lo(__m128i v) { return _mm_srai_epi32(_mm_unpacklo_epi16(v, v), 16); }
inline __m128i widen_hi(__m128i v) { return _mm_srai_epi32(_mm_unpackhi_epi16(v, v), 16); }

inline __m128 make4(__m128i mant, __m128i exp) {
    const __m128i bits = _mm_and_si128(_mm_sub_epi32(_mm_set1_epi32(0x38000000), _mm_slli_epi32(exp, 23)),
                                       _mm_set1_epi32(0x7FFFFFFF));
    return _mm_mul_ps(_mm_cvtepi32_ps(mant), _mm_castsi128_ps(bits));
}

// ---- 2^((sf - offset) / 4) ---------------------------------------------------

constexpr int kSfTableSize = 1024;
constexpr int kSfTableZero = 512;  // the entry that holds 1.0

constexpr double power_of_two(int q) {
    double v = 1.0;
    for (; q > 0; --q) v *= 2.0;
    for (; q < 0; ++q) v *= 0.5;
    return v;
}

// Entry k = 2^((k - 512)/4) = 2^(r/4) * 2^q: the quarter powers in double,
// scaled exactly, rounded once to float (entries below 2^-126 are subnormal).
constexpr std::array<float, kSfTableSize> make_sf_table() {
    constexpr double quarter[4] = {1.0, 1.1892071150027210667, 1.4142135623730950488, 1.6817928305074290861};
    std::array<float, kSfTableSize> t{};
    for (int k = 0; k < kSfTableSize; ++k) {
        const int e = k - kSfTableZero;
        const int q = e >= 0 ? e / 4 : -((-e + 3) / 4);
        t[k] = static_cast<float>(quarter[e - 4 * q] * power_of_two(q));
    }
    return t;
}

alignas(64) constexpr std::array<float, kSfTableSize> kSfTable = make_sf_table();

}  // namespace

nkpStatus nkpsMakeFloat_16s32f(const nkp16s* pMant, const nkp16s* pExp, int len, nkp32f* pDst) {
    if (!pMant || !pExp || !pDst) return nkpStatusNullPointer;
    if (len < 1) return nkpStatusBadSize;

    ptrdiff_t i = 0;
    for (; i + 8 <= len; i += 8) {
        const __m128i m = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pMant + i));
        const __m128i e = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pExp + i));
        _mm_storeu_ps(pDst + i, make4(widen_lo(m), widen_lo(e)));
        _mm_storeu_ps(pDst + i + 4, make4(widen_hi(m), widen_hi(e)));
    }
    for (; i < len; ++i) {
        const uint32_t bits = factor_bits(pExp[i]);
        float factor;
        std::memcpy(&factor, &bits, sizeof factor);
        pDst[i] = static_cast<float>(pMant[i]) * factor;
    }
    const bool aligned = aligned16(pMant) && aligned16(pExp) && aligned16(pDst);
    return aligned ? nkpStatusOk : nkpStatusMisaligned;
}

nkpStatus nkpsCalcSF_16s32f(const nkp16s* pSrc, int offset, nkp32f* pDst, int len) {
    if (!pSrc || !pDst) return nkpStatusNullPointer;
    if (len < 1) return nkpStatusBadSize;

    // The offset is held at 32767 - 512 before it enters the 16-bit
    // difference; only the difference's low ten bits pick the entry, so an
    // out-of-table difference wraps around silently.
    const int64_t base64 = static_cast<int64_t>(offset) + kSfTableZero;
    const uint16_t base = static_cast<uint16_t>(base64 < 32767 ? base64 : 32767);
    for (ptrdiff_t i = 0; i < len; ++i) {
        const uint16_t diff = static_cast<uint16_t>(static_cast<uint16_t>(pSrc[i]) - base);
        pDst[i] = kSfTable[diff & (kSfTableSize - 1)];
    }
    return nkpStatusOk;
}

}  // namespace nkp
