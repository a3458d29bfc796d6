// The 16-bit forward MDCT (tag 57), powers of two from 32. The input is
// shifted up by a headroom s chosen from its peak, folded and rotated with a
// Q14 table into 16-bit complex values, transformed by the 16-bit FFT with
// scale factor order + 1, rotated again into 32-bit values and narrowed with
// scale factor scaleFactor - order + s + 10: an overall gain of
// 2 * 2^-scaleFactor, as in the float transform.
#include "frame/exports.h"
#include "common/numeric.h"
#include "common/trig.h"
#include "transform/mdct_common.h"

#include <cstring>

namespace nkp {

namespace {

using namespace mdct;
using fft::FftSpecComplex16s;

// The GetSize figures (transform/sizes.h), with the FFT's status.
nkpStatus plan_sizes(int len, Sizes* s) {
    int S = 0, I = 0, B = 0;
    const nkpStatus st = fft::fftSizesComplex16s(order_of(len), fft::kNoDivByAny, 0, &S, &I, &B);
    if (st != nkpStatusOk) return st;
    *s = sizes16(len, {S, I, B});
    if (s->spec > INT32_MAX || s->work > INT32_MAX) return nkpStatusBadSize;
    return nkpStatusOk;
}

void fill_table(int16_t* t, int len) {
    const int N4 = len / 4;
    for (int j = 0; j < N4; ++j) {
        // theta_j = 2 pi (j + 1/8) / N = 2 pi (8j + 1) / 8N.
        double s, c;
        sincos_2pi_ratio(8 * j + 1, 8 * int64_t{len}, &s, &c);
        tab_sin(t, j) = static_cast<int16_t>(16384.0 * s + 0.5);
        tab_cos(t, j) = static_cast<int16_t>(16384.0 * c + 0.5);
    }
}

// Header, then the Q14 table, then the 16-bit FFT plan.
nkpStatus init16(MdctSpec** out, int len, uint8_t* memSpec, uint8_t* memInit) {
    if (!out || !memSpec || !memInit) return nkpStatusNullPointer;
    if (!is_pow2_at_least_32(len)) return nkpStatusBadSize;
    Sizes sizes;
    nkpStatus st = plan_sizes(len, &sizes);
    if (st != nkpStatusOk) return st;
    uint8_t* base = align_up<64>(memSpec);
    std::memset(base, 0, kHeaderBytes);
    auto* spec = reinterpret_cast<MdctSpec*>(base);
    spec->tag = kTagFwd16s;
    spec->len = len;
    auto* table = reinterpret_cast<int16_t*>(base + kHeaderPadded);
    spec->pTwiddle = table;
    FftSpecComplex16s* f = nullptr;
    st = fft::fftInitComplex16s(&f, order_of(len), fft::kNoDivByAny, 0,
                                base + kHeaderPadded + align64(2 * int64_t{len / 2}), memInit);
    if (st != nkpStatusOk) {
        spec->tag = 0;
        return st;
    }
    spec->pFFTSpec = f;
    spec->bufSize = static_cast<int32_t>(sizes.work);
    spec->order = order_of(len);
    fill_table(table, len);
    *out = spec;
    return nkpStatusOk;
}

// InitAlloc makes two blocks: the header with the table behind it (the
// object), and the FFT plan (the engine's Create).
nkpStatus init_alloc16(MdctSpec** out, int len) {
    Sizes sizes;
    return init_alloc<MdctSpec, fft::kPlanLife>(
        out,
        [&](int32_t* size) -> nkpStatus {
            if (!is_pow2_at_least_32(len)) return nkpStatusBadSize;
            *size = static_cast<int32_t>(kHeaderPadded + align64(len) + 63);
            return plan_sizes(len, &sizes);
        },
        [&](void* header) -> nkpStatus {
            FftSpecComplex16s* f = nullptr;
            const nkpStatus st = fft::fftCreateComplex16s(&f, order_of(len), fft::kNoDivByAny, 0);
            if (st != nkpStatusOk) return st;
            uint8_t* base = align_up<64>(header);
            std::memset(base, 0, kHeaderBytes);
            auto* spec = reinterpret_cast<MdctSpec*>(base);
            auto* table = reinterpret_cast<int16_t*>(base + kHeaderPadded);
            spec->tag = kTagFwd16s;
            spec->len = len;
            spec->bufSize = static_cast<int32_t>(sizes.work);
            spec->order = order_of(len);
            spec->pTwiddle = table;
            spec->pFFTSpec = f;
            fill_table(table, len);
            return nkpStatusOk;
        });
}

// Narrows n 32-bit values with scale factor sf: a positive factor shifts
// right with rounding (at most 31), a negative one shifts left (at most 15);
// every result saturates to 16 bits.
void convert32s_to16s_scaled(const int32_t* src, int16_t* dst, int n, int64_t sf) {
    if (sf > 0) {
        const int sh = sf > 31 ? 31 : static_cast<int>(sf);
        const int64_t round = int64_t{1} << (sh - 1);
        for (int i = 0; i < n; ++i) dst[i] = saturate16((int64_t{src[i]} + round) >> sh);
    } else {
        const int sh = -sf > 15 ? 15 : static_cast<int>(-sf);
        for (int i = 0; i < n; ++i) dst[i] = saturate16(int64_t{src[i]} * (int64_t{1} << sh));
    }
}

void forward16(const int16_t* x, int16_t* dst, const MdctSpec* spec, int scaleFactor, uint8_t* work) {
    const int N = spec->len, N4 = N / 4;
    int32_t mx = x[0], mn = x[0];
    for (int i = 1; i < N; ++i) {
        mx = x[i] > mx ? x[i] : mx;
        mn = x[i] < mn ? x[i] : mn;
    }
    const int32_t m = mx > -mn ? mx : -mn;
    if (m == 0) {
        std::memset(dst, 0, sizeof(int16_t) * static_cast<size_t>(N / 2));
        return;
    }
    // Headroom: m * 2^s <= 32768 < m * 2^(s+1), one more when m * 2^s is
    // still at most 32768/sqrt(2).
    int doublings = 0;
    for (int32_t v = m; v <= 32768; v *= 2) ++doublings;
    int s = doublings - 1;
    if ((m << s) <= 23168) ++s;
    const int32_t r = int32_t{1} << (15 - s);
    const int16_t* t = static_cast<const int16_t*>(spec->pTwiddle);
    auto* z = reinterpret_cast<nkp16sc*>(work);
    for (int k = 0; k < N4; ++k) {
        int32_t re, im;
        fold(x, N, k, &re, &im);
        const int32_t ts = tab_sin(t, k), tc = tab_cos(t, k);
        // Arithmetic right shifts of negative sums are intended (floor).
        z[k].re = static_cast<int16_t>((tc * re + ts * im + r) >> (16 - s));
        z[k].im = static_cast<int16_t>((tc * im - ts * re + r) >> (16 - s));
    }
    uint8_t* behind = work + N;  // N4 complex 16-bit values take N bytes
    const auto* f = static_cast<const FftSpecComplex16s*>(spec->pFFTSpec);
    fft::fftForwardComplex16sScaled(z, z, f, spec->order + 1, behind);
    auto* y = reinterpret_cast<int32_t*>(behind);
    for (int k = 0; k < N4; ++k) {
        const int32_t a = z[k].re, b = z[k].im, ts = tab_sin(t, k), tc = tab_cos(t, k);
        y[2 * k] = tc * a + ts * b;
        y[N / 2 - 1 - 2 * k] = ts * a - tc * b;
    }
    convert32s_to16s_scaled(y, dst, N / 2, int64_t{scaleFactor} - spec->order + s + 10);
}

}  // namespace

nkpStatus nkpsMDCTFwdGetSize_16s(int len, int* pSpecSize, int* pSizeInit, int* pSizeBuf) {
    if (!pSpecSize || !pSizeInit || !pSizeBuf) return nkpStatusNullPointer;
    if (!is_pow2_at_least_32(len)) return nkpStatusBadSize;
    Sizes s;
    const nkpStatus st = plan_sizes(len, &s);
    if (st != nkpStatusOk) return st;
    *pSpecSize = static_cast<int>(s.spec);
    *pSizeInit = static_cast<int>(s.init);
    *pSizeBuf = static_cast<int>(s.work);
    return nkpStatusOk;
}

nkpStatus nkpsMDCTFwdInit_16s(nkpsMDCTFwdSpec_16s** ppSpec, int len, nkp8u* pMemSpec, nkp8u* pMemInit) {
    return init16(reinterpret_cast<MdctSpec**>(ppSpec), len, pMemSpec, pMemInit);
}

nkpStatus nkpsMDCTFwdInitAlloc_16s(nkpsMDCTFwdSpec_16s** ppSpec, int len) {
    return init_alloc16(reinterpret_cast<MdctSpec**>(ppSpec), len);
}

nkpStatus nkpsMDCTFwdFree_16s(nkpsMDCTFwdSpec_16s* pSpec) {
    return free_object<MdctSpec, fft::kPlanLife>(pSpec, kTagFwd16s, [](MdctSpec* spec) {
        fft::fftDestroyComplex16s(static_cast<FftSpecComplex16s*>(spec->pFFTSpec));
    });
}

nkpStatus nkpsMDCTFwdGetBufSize_16s(const nkpsMDCTFwdSpec_16s* pSpec, int* pSize) {
    if (!pSpec || !pSize) return nkpStatusNullPointer;
    const MdctSpec* spec = tagged_object<MdctSpec, 64>(pSpec, kTagFwd16s);
    if (!spec) return nkpStatusWrongObject;
    *pSize = spec->bufSize;
    return nkpStatusOk;
}

nkpStatus nkpsMDCTFwd_16s_Sfs(const nkp16s* pSrc, nkp16s* pDst, const nkpsMDCTFwdSpec_16s* pSpec, int scaleFactor,
                              nkp8u* pBuffer) {
    if (!pSpec) return nkpStatusNullPointer;
    const MdctSpec* spec = tagged_object<MdctSpec, 64>(pSpec, kTagFwd16s);
    if (!spec) return nkpStatusWrongObject;
    if (!pSrc || !pDst) return nkpStatusNullPointer;
    const CallWork work(pBuffer, spec->bufSize);
    if (work.failed()) return nkpStatusNoMemory;
    forward16(pSrc, pDst, spec, scaleFactor, work.aligned<64>());
    return nkpStatusOk;
}

}  // namespace nkp
