// The orthonormal inverse DCT (DCT-III, tag 22) of any length N >= 1:
//   y[n] = X[0]/sqrt(N) + sqrt(2/N) sum_{k>=1} X[k] cos(pi (2n+1) k / 2N).
// The input is first copied with element 0 times 1/sqrt(N) and the others
// times sqrt(2)/sqrt(N); the unnormalised transform then runs on the copy:
// written-out kernels for N = 1, 2, 4, 8; a 2N-point FFT for larger powers
// of two; a precomputed matrix below 36; a cosine table otherwise.
#include "frame/object.h"
#include "common/numeric.h"
#include "common/trig.h"
#include "transform/engine.h"

#include <cmath>
#include <cstring>

namespace nkp::fft {

namespace {

constexpr int kHeaderBytes = 96;
constexpr int kHeaderPadded = 128;

enum Method : int32_t { kKernel = 1, kPow2 = 2, kDirect = 3, kGeneral = 4 };

int log2i(int n) {
    int r = 0;
    while ((1 << r) < n) ++r;
    return r;
}

Method method_of(int n) {
    if (n == 1 || n == 2 || n == 4 || n == 8) return kKernel;
    if (dct_is_pow2(n)) return kPow2;
    if (n < 36) return kDirect;
    return kGeneral;
}

// The largest lengths each method takes (the work buffer must stay within
// 32-bit sizes).
bool length_in_range(int n) {
    const Method m = method_of(n);
    if (m == kPow2) return n <= (1 << 26);
    if (m == kGeneral) return n <= (1 << 26) - 1;
    return true;
}

// Unnormalised DCT-III of c (length 1, 2, 4 or 8) with cosines from the
// constant table: cos(pi m / 2N) = Re e^(-2 pi i m (256/N) / 1024).
void kernel(const float* c, float* y, int n) {
    if (n == 1) {
        y[0] = c[0];
        return;
    }
    if (n == 2) {
        const float h = c[1] * 0.70710677f;
        y[0] = c[0] + h;
        y[1] = c[0] - h;
        return;
    }
    const int step = 256 / n;
    for (int i = 0; i < n; ++i) {
        float acc = c[0];
        for (int k = 1; k < n; ++k) {
            const int m = ((2 * i + 1) * k * step) & 1023;
            acc += c[k] * kTwiddle1024[2 * m];
        }
        y[i] = acc;
    }
}

}  // namespace

nkpStatus dctInvSizes32f(int len, int hint, int* specSize, int* initSize, int* bufSize) {
    if (len < 1) return nkpStatusBadSize;
    if (!specSize || !initSize || !bufSize) return nkpStatusNullPointer;
    if (!length_in_range(len)) return nkpStatusBadSize;
    const Sizes s = dct_sizes(len);
    *specSize = static_cast<int>(s.spec);
    *initSize = static_cast<int>(s.init);
    *bufSize = static_cast<int>(s.work);
    return nkpStatusOk;
}

nkpStatus dctInvInit32f(DctInvSpec32f** ppSpec, int len, int hint, uint8_t* memSpec, uint8_t* memInit) {
    if (len < 1) return nkpStatusBadSize;
    if (!ppSpec || !memSpec) return nkpStatusNullPointer;
    if (!length_in_range(len)) return nkpStatusBadSize;
    const Method method = method_of(len);
    if (method == kPow2 && 2 * len >= 2048 && !memInit) return nkpStatusNullPointer;
    uint8_t* base = align_up<64>(memSpec);
    std::memset(base, 0, kHeaderBytes);
    auto* spec = reinterpret_cast<DctInvSpec32f*>(base);
    const Sizes sizes = dct_sizes(len);
    spec->len = len;
    spec->hint = hint;
    spec->workSize = static_cast<int32_t>(sizes.work);
    spec->invSqrtN = rsqrt_refined(static_cast<float>(len));
    spec->sqrt2InvSqrtN = static_cast<float>(std::sqrt(2.0) / std::sqrt(static_cast<double>(len)));
    spec->method = method;
    auto* table = reinterpret_cast<float*>(base + kHeaderPadded);
    spec->table = table;
    switch (method) {
        case kKernel:
            spec->table = nullptr;
            break;
        case kPow2: {
            // e^(-i pi k / 2N), k < N, then the 2N-point FFT plan.
            for (int k = 0; k < len; ++k) {
                double s, c;
                sincos_2pi_ratio(k, 4 * int64_t{len}, &s, &c);
                table[2 * k] = static_cast<float>(c);
                table[2 * k + 1] = static_cast<float>(-s);
            }
            uint8_t* fmem = base + kHeaderPadded + align64(8 * int64_t{len});
            const nkpStatus st = fftInitComplex32f(&spec->fspec, log2i(2 * len), kNoDivByAny, 0, fmem, memInit);
            if (st != nkpStatusOk) return st;
            break;
        }
        case kDirect:
            for (int i = 0; i < len; ++i) {
                for (int k = 0; k < len; ++k) {
                    table[i * len + k] = static_cast<float>(cos_2pi_ratio((2 * i + 1) * k, 4 * len));
                }
            }
            break;
        case kGeneral:
            for (int m = 0; m < 4 * len; ++m) table[m] = static_cast<float>(cos_2pi_ratio(m, 4 * int64_t{len}));
            break;
    }
    spec->tag = kTagDctInv32f;
    *ppSpec = spec;
    return nkpStatusOk;
}

nkpStatus dctInvCreate32f(DctInvSpec32f** ppSpec, int len, int hint) {
    return init_alloc_with_work<DctInvSpec32f, kPlanLife>(
        ppSpec,
        [&](int32_t* spec, int32_t* scratch) {
            int work = 0;
            return dctInvSizes32f(len, hint, spec, scratch, &work);
        },
        [&](void* mem, void* scratch) {
            DctInvSpec32f* spec = nullptr;
            return dctInvInit32f(&spec, len, hint, static_cast<uint8_t*>(mem), static_cast<uint8_t*>(scratch));
        });
}

nkpStatus dctInvWorkSize32f(const DctInvSpec32f* spec, int* size) {
    if (!spec || !size) return nkpStatusNullPointer;
    if (!tagged_object<DctInvSpec32f, 64>(spec, kTagDctInv32f)) return nkpStatusWrongObject;
    *size = spec->workSize;
    return nkpStatusOk;
}

nkpStatus dctInvDestroy32f(DctInvSpec32f* spec) {
    return free_object<DctInvSpec32f, kPlanLife>(spec, kTagDctInv32f);
}

nkpStatus dctInv32f(const float* src, float* dst, const DctInvSpec32f* spec, uint8_t* buffer) {
    if (!src || !dst || !spec) return nkpStatusNullPointer;
    if (!tagged_object<DctInvSpec32f, 64>(spec, kTagDctInv32f)) return nkpStatusWrongObject;
    const int n = spec->len;
    if (spec->method == kKernel) {
        float c[8], y[8];
        c[0] = src[0] * spec->invSqrtN;
        for (int k = 1; k < n; ++k) c[k] = src[k] * spec->sqrt2InvSqrtN;
        kernel(c, y, n);
        std::memcpy(dst, y, sizeof(float) * static_cast<size_t>(n));
        return nkpStatusOk;
    }
    const CallWork call_work(buffer, spec->workSize);
    if (call_work.failed()) return nkpStatusNoMemory;
    auto* work = reinterpret_cast<float*>(call_work.aligned<64>());
    const float* t = spec->table;
    if (spec->method == kPow2) {
        // y[n] = Re FFT_2N(c[k] e^(-i pi k/2N), zero-padded)[n].
        auto* z = reinterpret_cast<nkp32fc*>(work);
        for (int k = 0; k < n; ++k) {
            const float c = src[k] * (k == 0 ? spec->invSqrtN : spec->sqrt2InvSqrtN);
            z[k] = {c * t[2 * k], c * t[2 * k + 1]};
        }
        std::memset(z + n, 0, sizeof(nkp32fc) * static_cast<size_t>(n));
        fftForwardComplex32f(z, z, spec->fspec, reinterpret_cast<uint8_t*>(z + 2 * n));
        for (int i = 0; i < n; ++i) dst[i] = z[i].re;
    } else {
        float* c = work;
        c[0] = src[0] * spec->invSqrtN;
        for (int k = 1; k < n; ++k) c[k] = src[k] * spec->sqrt2InvSqrtN;
        if (spec->method == kDirect) {
            for (int i = 0; i < n; ++i) {
                float acc = 0.0f;
                for (int k = 0; k < n; ++k) acc += t[i * n + k] * c[k];
                dst[i] = acc;
            }
        } else {
            const int64_t period = 4 * int64_t{n};
            for (int i = 0; i < n; ++i) {
                double acc = 0.0;
                int64_t m = 0;
                const int64_t step = 2 * int64_t{i} + 1;
                for (int k = 0; k < n; ++k) {
                    acc += static_cast<double>(c[k]) * t[m];
                    m += step;
                    if (m >= period) m -= period;
                }
                dst[i] = static_cast<float>(acc);
            }
        }
    }
    return nkpStatusOk;
}

}  // namespace nkp::fft
