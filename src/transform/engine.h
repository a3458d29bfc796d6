// The transform engine: complex FFTs (float interleaved, float split, 16-bit
// with a scale factor) and the orthonormal inverse DCT. Not exported; the
// MDCT family and the codec filter banks build on it, and the tests reach it
// through the static library.
//
// Every kind follows the object life cycle (frame/object.h) with the plans'
// policy, kPlanLife: Sizes (plan, init-buffer and work-buffer bytes), Init
// into caller memory (the plan starts at the first 64-byte-aligned
// address), Create (allocates; a failure releases everything and leaves the
// output untouched), WorkSize, Destroy (clears the tag, releases what Create
// allocated) and the transform itself. A transform given a null work buffer
// allocates one for the call.
#pragma once

#include "frame/object.h"
#include "nkpac.h"
#include "transform/sizes.h"

#include <cstdint>
#include <emmintrin.h>
#include <xmmintrin.h>

namespace nkp::fft {

constexpr uint32_t kTagComplex16s = 1;
constexpr uint32_t kTagComplex32f = 4;
constexpr uint32_t kTagSplit32f = 5;
constexpr uint32_t kTagDctInv32f = 22;

// Normalisation flags.
constexpr int kDivFwdByN = 1;
constexpr int kDivInvByN = 2;
constexpr int kDivBySqrtN = 4;
constexpr int kNoDivByAny = 8;
inline bool valid_flag(int flag) {
    return flag == kDivFwdByN || flag == kDivInvByN || flag == kDivBySqrtN || flag == kNoDivByAny;
}

// The life cycle of every plan, the engine's and the exported MDCTs': 64-byte
// aligned, handed back aligned, nothing left behind by a failed Create or
// InitAlloc, the tag cleared by Free.
constexpr LifeCycle kPlanLife{64, OnInitFailure::ReleaseBuffers, OnFree::ClearTag, Handle::Object};

constexpr int kMaxOrder = 28;

// The complex float FFT plan; the first 136 bytes are zeroed at Init.
struct FftSpecComplex32f {
    uint32_t tag;         // 4 (interleaved) or 5 (split)
    int32_t order;        // log2 of the length
    int32_t normFwd;      // forward output times normFactor
    int32_t normInv;      // inverse output times normFactor
    float normFactor;     // 1/2^order or 1/sqrt(2^order)
    int32_t hint;
    int32_t bufSize;      // work bytes without the alignment slack; 0 below order 6
    int32_t allocated;    // made by Create
    Route route;          // how the transform runs, chosen from the order at Init
    const uint8_t* pBitRev;  // reordering data behind the header (unused: the reorder is computed)
    const float* pTwiddle;   // per-pass twiddles in the block-split layout
    void* block;             // what Create allocated
    // Large variant (order >= 16): columns of length 2^order1, rows of 2^order2.
    const FftSpecComplex32f* sub1;
    const FftSpecComplex32f* sub2;
    const float* pFine;    // e^(-2 pi i j / L), j < 2^order2
    const float* pCoarse;  // e^(-2 pi i j 2^order2 / L), j < 2^order1
    int32_t order1;
    int32_t order2;
};
static_assert(sizeof(FftSpecComplex32f) <= kFftHeaderBytes, "header fits the zeroed area");

// The 16-bit complex FFT plan.
struct FftSpecComplex16s {
    uint32_t tag;  // 1
    int32_t order;
    int32_t flag;
    int32_t hint;
    int32_t bufSize;  // work bytes as Sizes reports them
    int32_t allocated;
    FftSpecComplex32f* fspec;  // the float transform doing the work (null for order 0)
    void* block;               // what Create allocated
};
static_assert(sizeof(FftSpecComplex16s) <= 64, "header fits 64 bytes");

// The orthonormal inverse DCT (DCT-III) plan, 96-byte header.
struct DctInvSpec32f {
    uint32_t tag;  // 22
    int32_t len;
    int32_t hint;
    int32_t workSize;    // work bytes as Sizes reports them
    float invSqrtN;      // 1/sqrt(N), single precision
    float sqrt2InvSqrtN; // sqrt(2)/sqrt(N), double precision rounded once
    int32_t method;
    int32_t allocated;
    const float* table;
    FftSpecComplex32f* fspec;
    void* block;  // what Create allocated
};
static_assert(sizeof(DctInvSpec32f) <= 96, "header fits the zeroed area");

// ---- complex float (tag 4) and split (tag 5) -------------------------------
nkpStatus fftSizesComplex32f(int order, int flag, int hint, int* specSize, int* initSize, int* bufSize);
nkpStatus fftInitComplex32f(FftSpecComplex32f** ppSpec, int order, int flag, int hint, uint8_t* memSpec,
                            uint8_t* memInit);
nkpStatus fftCreateComplex32f(FftSpecComplex32f** ppSpec, int order, int flag, int hint);
nkpStatus fftWorkSizeComplex32f(const FftSpecComplex32f* spec, int* size);
nkpStatus fftDestroyComplex32f(FftSpecComplex32f* spec);
nkpStatus fftForwardComplex32f(const nkp32fc* src, nkp32fc* dst, const FftSpecComplex32f* spec, uint8_t* buffer);
// X[k] = sum x[n] e^(+2 pi i nk/L), then the inverse normalisation.
nkpStatus fftInverseComplex32f(const nkp32fc* src, nkp32fc* dst, const FftSpecComplex32f* spec, uint8_t* buffer);

nkpStatus fftInitSplit32f(FftSpecComplex32f** ppSpec, int order, int flag, int hint, uint8_t* memSpec,
                          uint8_t* memInit);
nkpStatus fftCreateSplit32f(FftSpecComplex32f** ppSpec, int order, int flag, int hint);
nkpStatus fftWorkSizeSplit32f(const FftSpecComplex32f* spec, int* size);
nkpStatus fftDestroySplit32f(FftSpecComplex32f* spec);
nkpStatus fftForwardSplit32f(const float* srcRe, const float* srcIm, float* dstRe, float* dstIm,
                             const FftSpecComplex32f* spec, uint8_t* buffer);
nkpStatus fftInverseSplit32f(const float* srcRe, const float* srcIm, float* dstRe, float* dstIm,
                             const FftSpecComplex32f* spec, uint8_t* buffer);

// ---- complex 16-bit (tag 1) -----------------------------------------------
nkpStatus fftSizesComplex16s(int order, int flag, int hint, int* specSize, int* initSize, int* bufSize);
nkpStatus fftInitComplex16s(FftSpecComplex16s** ppSpec, int order, int flag, int hint, uint8_t* memSpec,
                            uint8_t* memInit);
nkpStatus fftCreateComplex16s(FftSpecComplex16s** ppSpec, int order, int flag, int hint);
nkpStatus fftWorkSizeComplex16s(const FftSpecComplex16s* spec, int* size);
nkpStatus fftDestroyComplex16s(FftSpecComplex16s* spec);
// The DFT of src (with the flag's forward normalisation) times
// 2^-scaleFactor, rounded to nearest and saturated to 16 bits.
nkpStatus fftForwardComplex16sScaled(const nkp16sc* src, nkp16sc* dst, const FftSpecComplex16s* spec,
                                     int scaleFactor, uint8_t* buffer);

// ---- orthonormal inverse DCT (tag 22) ---------------------------------------
nkpStatus dctInvSizes32f(int len, int hint, int* specSize, int* initSize, int* bufSize);
nkpStatus dctInvInit32f(DctInvSpec32f** ppSpec, int len, int hint, uint8_t* memSpec, uint8_t* memInit);
nkpStatus dctInvCreate32f(DctInvSpec32f** ppSpec, int len, int hint);
nkpStatus dctInvWorkSize32f(const DctInvSpec32f* spec, int* size);
nkpStatus dctInvDestroy32f(DctInvSpec32f* spec);
nkpStatus dctInv32f(const float* src, float* dst, const DctInvSpec32f* spec, uint8_t* buffer);

// ---- internals shared by the engine and the MDCT --------------------------

// e^(-2 pi i j/1024) as (re, im) pairs, built while compiling by the table
// trigonometry (transform/fft_float.cpp).
struct Twiddle1024 {
    float v[2048];
    float operator[](int i) const { return v[i]; }
};
extern const Twiddle1024 kTwiddle1024;

// 1/sqrt(x) in single precision: the reciprocal-square-root estimate refined
// by one Newton step.
inline float rsqrt_refined(float x) {
    const float r = _mm_cvtss_f32(_mm_rsqrt_ss(_mm_set_ss(x)));
    return r * -0.5f * (x * r * r - 3.0f);
}

// The block-split layout: complex element c lives at float 8*(c/4) + c%4
// (real part) and 4 floats later (imaginary part), so that four real parts
// and four imaginary parts are one vector each.
//
// Orders 6..15 transform block-split data in place with bs_transform(); the
// result is left in a scrambled order that bs_gather() reads back: for
// it = 0 .. L/16 - 1 it yields four vectors of real parts and four of
// imaginary parts, re[v]/im[v] holding X[base[v] .. base[v] + 3].
void bs_transform(const FftSpecComplex32f* spec, float* data);

struct ByteReverse {
    uint8_t v[256];
    constexpr ByteReverse() : v{} {
        for (int i = 0; i < 256; ++i) {
            int r = 0;
            for (int b = 0; b < 8; ++b) r |= ((i >> b) & 1) << (7 - b);
            v[i] = static_cast<uint8_t>(r);
        }
    }
};
inline constexpr ByteReverse kByteReverse;

// The low `bits` bits of x in reverse order.
inline uint32_t bit_reverse(uint32_t x, int bits) {
    const uint32_t r = (uint32_t{kByteReverse.v[x & 255]} << 24) | (uint32_t{kByteReverse.v[(x >> 8) & 255]} << 16) |
                       (uint32_t{kByteReverse.v[(x >> 16) & 255]} << 8) | kByteReverse.v[(x >> 24) & 255];
    return bits == 0 ? 0 : r >> (32 - bits);
}

inline void transpose4(__m128& a, __m128& b, __m128& c, __m128& d) { _MM_TRANSPOSE4_PS(a, b, c, d); }

inline void bs_gather(const float* data, int order, int it, __m128 re[4], __m128 im[4], int base[4]) {
    const int L = 1 << order;
    const int q = L / 16;  // blocks per quarter
    // Rows in output order u = 0..3 come from quarters 0, 2, 1, 3.
    const float* p0 = data + 8 * it;
    const float* p1 = data + 8 * (it + 2 * q);
    const float* p2 = data + 8 * (it + q);
    const float* p3 = data + 8 * (it + 3 * q);
    re[0] = _mm_load_ps(p0), re[1] = _mm_load_ps(p1), re[2] = _mm_load_ps(p2), re[3] = _mm_load_ps(p3);
    im[0] = _mm_load_ps(p0 + 4), im[1] = _mm_load_ps(p1 + 4), im[2] = _mm_load_ps(p2 + 4),
    im[3] = _mm_load_ps(p3 + 4);
    transpose4(re[0], re[1], re[2], re[3]);
    transpose4(im[0], im[1], im[2], im[3]);
    const int s0 = 16 * (it >> 2) + (it & 3);
    const int b = 4 * static_cast<int>(bit_reverse(static_cast<uint32_t>(s0), order - 2));
    base[0] = b;
    base[1] = b + 2 * q;
    base[2] = b + q;
    base[3] = b + 3 * q;
}

}  // namespace nkp::fft
