// Frequency-domain prediction of the AAC Main profile: a backward-adaptive
// second-order lattice predictor on every line of a long window, in single
// precision. Each line's state (cor0, cor1, var0, var1, r0, r1) is kept at
// 16-bit precision: after every update the low 16 bits of each float are
// cleared.
//
// The arithmetic is fixed operation by operation (see the header): this
// file is compiled with -ffp-contract=off so that no multiply and add fuse,
// and it runs under the standard SSE mode word, so that the caller's
// rounding or flush-to-zero setting cannot change a bit. Four lines go
// through one SSE step; lines left over at a band's ends go one at a time
// through the same operations in scalar SSE, with the same results.
#include "aac/spectral_layout.h"
#include "common/fp_mode.h"
#include "common/numeric.h"
#include "frame/exports.h"
#include "frame/object.h"

#include <bit>
#include <cstdint>
#include <emmintrin.h>

namespace nkp {
namespace {

constexpr uint32_t kFdpTag = 59;
// The state starts at the caller's address itself; a failed InitAlloc
// leaves nothing allocated; Free clears the tag.
constexpr LifeCycle kLife{1, OnInitFailure::ReleaseBuffers, OnFree::ClearTag};

// Packed: the state may start at any address.
struct __attribute__((packed)) FdpState {
    float* cor0;
    float* cor1;
    float* var0;
    float* var1;
    float* r0;
    float* r1;
    int32_t lines;
    uint32_t tag;
    int32_t allocated;
};

// Size: a 128-byte header, then six arrays of 4 * lines bytes, each rounded
// up to 64 bytes. The header record takes at most 64 bytes, so the arrays
// can start at the first 64-byte boundary at or after byte 64 and still end
// inside the buffer, wherever it starts.
constexpr int64_t kHeaderBytes = 128;
constexpr int64_t kArraysFrom = 64;
static_assert(sizeof(FdpState) <= kArraysFrom, "the state record fits before the arrays");
constexpr int64_t array_bytes(int64_t lines) { return (4 * lines + 63) & ~int64_t{63}; }
constexpr int64_t state_bytes(int64_t lines) { return 6 * array_bytes(lines) + kHeaderBytes; }
// The most lines whose state size fits a 32-bit size.
constexpr int kMaxLines = 89478464;
static_assert(state_bytes(kMaxLines) <= INT32_MAX && state_bytes(kMaxLines + 1) > INT32_MAX);

constexpr float kAlpha = 0.90625f;
constexpr float kAttenuation = 0.953125f;  // a = b
constexpr float kHalf = 0.5f;
constexpr uint32_t kKeep16 = 0xFFFF0000u;
constexpr uint32_t kRoundHalf = 0x8000u;

// M[m] = 0.953125 / (1 + m/128) = 122 / (128 + m), rounded to the nearest
// value with 8 significant bits (no entry lies on a tie).
constexpr float mantissa_factor(int m) {
    const double v = 122.0 / (128 + m);
    const double scale = v < 0.5 ? 512.0 : 256.0;  // 2^-9 or 2^-8 steps
    return static_cast<float>(static_cast<double>(static_cast<int64_t>(v * scale + 0.5)) / scale);
}
constexpr auto make_mantissa_table() {
    struct Table {
        float v[128];
    } t{};
    for (int m = 0; m < 128; ++m) t.v[m] = mantissa_factor(m);
    return t;
}
constexpr auto kMantissa = make_mantissa_table();
static_assert(kMantissa.v[0] == 0.953125f && kMantissa.v[1] == 0.9453125f && kMantissa.v[64] == 0.63671875f &&
              kMantissa.v[127] == 0.478515625f);

// E[e] = 2^(127 - e) for e (sign and exponent bits) in 128..254, else 0.
// 2^-127 (e = 254) is the one subnormal.
inline float exponent_factor(uint32_t e) {
    if (e >= 128 && e <= 253) return std::bit_cast<float>((254 - e) << 23);
    return e == 254 ? std::bit_cast<float>(0x00400000u) : 0.0f;
}
inline __m128 exponent_factor(__m128i bits) {
    const __m128i e = _mm_srli_epi32(bits, 23);
    const __m128i normal = _mm_and_si128(_mm_cmpgt_epi32(e, _mm_set1_epi32(127)),
                                         _mm_cmplt_epi32(e, _mm_set1_epi32(254)));
    const __m128i value = _mm_slli_epi32(_mm_sub_epi32(_mm_set1_epi32(254), e), 23);
    const __m128i subnormal = _mm_and_si128(_mm_cmpeq_epi32(e, _mm_set1_epi32(254)), _mm_set1_epi32(0x00400000));
    return _mm_castsi128_ps(_mm_or_si128(_mm_and_si128(value, normal), subnormal));
}
inline __m128 mantissa_factor(__m128i bits) {
    alignas(16) uint32_t m[4];
    _mm_store_si128(reinterpret_cast<__m128i*>(m), _mm_and_si128(_mm_srli_epi32(bits, 16), _mm_set1_epi32(127)));
    return _mm_set_ps(kMantissa.v[m[3]], kMantissa.v[m[2]], kMantissa.v[m[1]], kMantissa.v[m[0]]);
}

inline float keep16(float x) { return std::bit_cast<float>(std::bit_cast<uint32_t>(x) & kKeep16); }
inline float round16(float x) { return std::bit_cast<float>((std::bit_cast<uint32_t>(x) + kRoundHalf) & kKeep16); }
inline __m128 keep16(__m128 x) { return _mm_and_ps(x, _mm_castsi128_ps(_mm_set1_epi32(static_cast<int32_t>(kKeep16)))); }
inline __m128 round16(__m128 x) {
    const __m128i bits = _mm_add_epi32(_mm_castps_si128(x), _mm_set1_epi32(kRoundHalf));
    return _mm_castsi128_ps(_mm_and_si128(bits, _mm_set1_epi32(static_cast<int32_t>(kKeep16))));
}

// What a run does with each line: the encoder subtracts the prediction, the
// decoder adds it in bands that use prediction, or only updates the state.
enum class Mode { Subtract, Add, UpdateOnly };

// Lines begin..end-1: `in` supplies the line values, `out` receives the
// residual (Subtract) or the reconstruction (Add).
template <Mode kMode>
void predict(const FdpState& st, const float* in, float* out, int begin, int end) {
    float* const cor0 = st.cor0;
    float* const cor1 = st.cor1;
    float* const var0 = st.var0;
    float* const var1 = st.var1;
    float* const r0 = st.r0;
    float* const r1 = st.r1;
    int i = begin;
    const __m128 alpha = _mm_set1_ps(kAlpha);
    const __m128 attenuation = _mm_set1_ps(kAttenuation);
    const __m128 half = _mm_set1_ps(kHalf);
    for (; i + 4 <= end; i += 4) {
        const __m128 c0 = _mm_loadu_ps(cor0 + i), c1 = _mm_loadu_ps(cor1 + i);
        const __m128 v0 = _mm_loadu_ps(var0 + i), v1 = _mm_loadu_ps(var1 + i);
        const __m128 q0 = _mm_loadu_ps(r0 + i), q1 = _mm_loadu_ps(r1 + i);
        const __m128i v0_bits = _mm_castps_si128(v0), v1_bits = _mm_castps_si128(v1);
        const __m128 k1 = _mm_mul_ps(_mm_mul_ps(mantissa_factor(v0_bits), c0), exponent_factor(v0_bits));
        const __m128 p1 = _mm_mul_ps(q0, k1);
        const __m128 p2 =
            _mm_mul_ps(_mm_mul_ps(_mm_mul_ps(mantissa_factor(v1_bits), c1), exponent_factor(v1_bits)), q1);
        const __m128 pred = round16(_mm_add_ps(p2, p1));
        __m128 x = _mm_loadu_ps(in + i);
        if constexpr (kMode == Mode::Subtract) _mm_storeu_ps(out + i, _mm_sub_ps(x, pred));
        if constexpr (kMode == Mode::Add) {
            x = _mm_add_ps(x, pred);
            _mm_storeu_ps(out + i, x);
        }
        const __m128 e1 = _mm_sub_ps(x, p1);
        _mm_storeu_ps(cor0 + i, keep16(_mm_add_ps(_mm_mul_ps(c0, alpha), _mm_mul_ps(q0, x))));
        _mm_storeu_ps(cor1 + i, keep16(_mm_add_ps(_mm_mul_ps(c1, alpha), _mm_mul_ps(q1, e1))));
        _mm_storeu_ps(var0 + i, keep16(_mm_add_ps(_mm_mul_ps(_mm_add_ps(_mm_mul_ps(x, x), _mm_mul_ps(q0, q0)), half),
                                                  _mm_mul_ps(v0, alpha))));
        _mm_storeu_ps(var1 + i, keep16(_mm_add_ps(_mm_mul_ps(_mm_add_ps(_mm_mul_ps(e1, e1), _mm_mul_ps(q1, q1)), half),
                                                  _mm_mul_ps(v1, alpha))));
        _mm_storeu_ps(r1 + i, keep16(_mm_mul_ps(_mm_sub_ps(q0, _mm_mul_ps(k1, x)), attenuation)));
        _mm_storeu_ps(r0 + i, keep16(_mm_mul_ps(x, attenuation)));
    }
    for (; i < end; ++i) {
        const float c0 = cor0[i], c1 = cor1[i], v0 = var0[i], v1 = var1[i], q0 = r0[i], q1 = r1[i];
        const uint32_t v0_bits = std::bit_cast<uint32_t>(v0), v1_bits = std::bit_cast<uint32_t>(v1);
        const float k1 = (kMantissa.v[(v0_bits >> 16) & 127] * c0) * exponent_factor(v0_bits >> 23);
        const float p1 = q0 * k1;
        const float p2 = ((kMantissa.v[(v1_bits >> 16) & 127] * c1) * exponent_factor(v1_bits >> 23)) * q1;
        const float pred = round16(p2 + p1);
        float x = in[i];
        if constexpr (kMode == Mode::Subtract) out[i] = x - pred;
        if constexpr (kMode == Mode::Add) {
            x = x + pred;
            out[i] = x;
        }
        const float e1 = x - p1;
        cor0[i] = keep16(c0 * kAlpha + q0 * x);
        cor1[i] = keep16(c1 * kAlpha + q1 * e1);
        var0[i] = keep16((x * x + q0 * q0) * kHalf + v0 * kAlpha);
        var1[i] = keep16((e1 * e1 + q1 * q1) * kHalf + v1 * kAlpha);
        r1[i] = keep16((q0 - k1 * x) * kAttenuation);
        r0[i] = keep16(x * kAttenuation);
    }
}

void reset_lines(const FdpState& st, int begin, int end) {
    for (int i = begin; i < end; ++i) {
        st.cor0[i] = st.cor1[i] = st.r0[i] = st.r1[i] = 0.0f;
        st.var0[i] = st.var1[i] = 1.0f;
    }
}

// A caller's band offset held inside 0..lines.
inline int clamp_offset(int32_t offset, int lines) { return clamp(offset, 0, lines); }

inline bool valid_line_count(int len) { return len >= 1 && len <= kMaxLines; }

FdpState* state_of(nkpsFDPState_32f* p) { return tagged_object<FdpState, kLife.align>(p, kFdpTag); }

}  // namespace

nkpStatus nkpsFDPGetSize_32f(int len, int* pSize) {
    if (!pSize) return nkpStatusNullPointer;
    if (!valid_line_count(len)) return nkpStatusBadSize;
    *pSize = static_cast<int>(state_bytes(len));
    return nkpStatusOk;
}

nkpStatus nkpsFDPInit_32f(nkpsFDPState_32f** ppState, int len, nkp8u* pMem) {
    if (!ppState || !pMem) return nkpStatusNullPointer;
    if (!valid_line_count(len)) return nkpStatusBadSize;
    FdpState* st = object_in<FdpState, kLife.align>(pMem);
    const int64_t stride = array_bytes(len);
    uint8_t* arrays = align_up<64>(pMem + kArraysFrom);
    st->cor0 = reinterpret_cast<float*>(arrays);
    st->cor1 = reinterpret_cast<float*>(arrays + stride);
    st->var0 = reinterpret_cast<float*>(arrays + 2 * stride);
    st->var1 = reinterpret_cast<float*>(arrays + 3 * stride);
    st->r0 = reinterpret_cast<float*>(arrays + 4 * stride);
    st->r1 = reinterpret_cast<float*>(arrays + 5 * stride);
    st->lines = len;
    st->tag = kFdpTag;
    st->allocated = 0;
    reset_lines(*st, 0, len);
    *ppState = reinterpret_cast<nkpsFDPState_32f*>(pMem);
    return nkpStatusOk;
}

nkpStatus nkpsFDPInitAlloc_32f(nkpsFDPState_32f** ppState, int len) {
    return init_alloc<FdpState, kLife>(
        ppState, [len](int32_t* size) { return nkp::nkpsFDPGetSize_32f(len, size); },
        [len](void* buffer) {
            nkpsFDPState_32f* unused;
            return nkp::nkpsFDPInit_32f(&unused, len, static_cast<nkp8u*>(buffer));
        });
}

nkpStatus nkpsFDPFree_32f(nkpsFDPState_32f* pState) { return free_object<FdpState, kLife>(pState, kFdpTag); }

nkpStatus nkpsFDPReset_32f(nkpsFDPState_32f* pState) {
    if (!pState) return nkpStatusNullPointer;
    const FdpState* st = state_of(pState);
    if (!st) return nkpStatusWrongObject;
    reset_lines(*st, 0, st->lines);
    return nkpStatusOk;
}

nkpStatus nkpsFDPResetGroup_32f(int first, int step, nkpsFDPState_32f* pState) {
    if (!pState) return nkpStatusNullPointer;
    if (first < 0) return nkpStatusBadSize;
    if (step < 1) return nkpStatusBadCount;
    const FdpState* st = state_of(pState);
    if (!st) return nkpStatusWrongObject;
    for (int64_t i = first; i < st->lines; i += step) reset_lines(*st, static_cast<int>(i), static_cast<int>(i) + 1);
    return nkpStatusOk;
}

nkpStatus nkpsFDPResetSfb_32f(const nkp32s* pBandOffset, int bands, const nkp8u* pResetFlag,
                              nkpsFDPState_32f* pState) {
    if (!pState || !pBandOffset || !pResetFlag) return nkpStatusNullPointer;
    if (bands < 1) return nkpStatusBadSize;
    const FdpState* st = state_of(pState);
    if (!st) return nkpStatusWrongObject;
    for (int b = 0; b < bands; ++b) {
        if (pResetFlag[b]) reset_lines(*st, clamp_offset(pBandOffset[b], st->lines), clamp_offset(pBandOffset[b + 1], st->lines));
    }
    return nkpStatusOk;
}

nkpStatus nkpsFDPFwd_32f(const nkp32f* pSrc, nkp32f* pDst, nkpsFDPState_32f* pState) {
    if (!pSrc || !pDst || !pState) return nkpStatusNullPointer;
    const FdpState* st = state_of(pState);
    if (!st) return nkpStatusWrongObject;
    const FpModeScope fp_mode(FpMode::Standard);
    predict<Mode::Subtract>(*st, pSrc, pDst, 0, st->lines);
    return aligned16(pSrc) && aligned16(pDst) ? nkpStatusOk : nkpStatusMisaligned;
}

nkpStatus nkpsFDPInv_32f_I(nkp32f* pSrcDst, const nkp32s* pBandOffset, int bands, const nkp8u* pPredUsed,
                           nkpsFDPState_32f* pState) {
    if (!pSrcDst || !pBandOffset || !pState || !pPredUsed) return nkpStatusNullPointer;
    if (bands < 1) return nkpStatusBadSize;
    const FdpState* st = state_of(pState);
    if (!st) return nkpStatusWrongObject;
    const FpModeScope fp_mode(FpMode::Standard);
    for (int b = 0; b < bands; ++b) {
        const int begin = clamp_offset(pBandOffset[b], st->lines);
        const int end = clamp_offset(pBandOffset[b + 1], st->lines);
        if (pPredUsed[b]) {
            predict<Mode::Add>(*st, pSrcDst, pSrcDst, begin, end);
        } else {
            predict<Mode::UpdateOnly>(*st, pSrcDst, nullptr, begin, end);
        }
    }
    return aligned16(pSrcDst) ? nkpStatusOk : nkpStatusMisaligned;
}

}  // namespace nkp
