// nkpcore: CPU feature detection and aligned allocation, plus the hooks that
// test suites use to steer both.
#include "nkpcore.h"

#include <atomic>
#include <cpuid.h>
#include <cstdlib>

#if defined(_WIN32)
#include <malloc.h>
#endif

namespace {

constexpr size_t kAlignment = 64;

std::atomic<bool> g_override_set{false};
std::atomic<uint64_t> g_override_mask{0};
std::atomic<long> g_fail_after{-1};
std::atomic<long> g_live{0};
std::atomic<long> g_total{0};

uint64_t read_xcr0() {
    uint32_t lo, hi;
    __asm__ volatile("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0));
    return (static_cast<uint64_t>(hi) << 32) | lo;
}

uint64_t detect_features() {
    unsigned a, b, c, d;
    if (!__get_cpuid(1, &a, &b, &c, &d)) return 0;
    uint64_t m = 0;
    if (d & bit_MMX) m |= NKP_CPU_MMX;
    if (d & bit_SSE) m |= NKP_CPU_SSE;
    if (d & bit_SSE2) m |= NKP_CPU_SSE2;
    if (c & bit_SSE3) m |= NKP_CPU_SSE3;
    if (c & bit_SSSE3) m |= NKP_CPU_SSSE3;
    if (c & bit_MOVBE) m |= NKP_CPU_MOVBE;
    if (c & bit_SSE4_1) m |= NKP_CPU_SSE41;
    if (c & bit_SSE4_2) m |= NKP_CPU_SSE42;
    if (c & bit_AES) m |= NKP_CPU_AES;
    if (c & bit_PCLMUL) m |= NKP_CPU_CLMUL;
    if (c & bit_POPCNT) m |= NKP_CPU_POPCNT;
    // AVX-class features count only when the OS saves the YMM state.
    const bool ymm_saved = (c & bit_OSXSAVE) && (read_xcr0() & 0x6) == 0x6;
    if (ymm_saved) {
        if (c & bit_AVX) m |= NKP_CPU_AVX;
        if (c & bit_F16C) m |= NKP_CPU_F16C;
        if (c & bit_FMA) m |= NKP_CPU_FMA;
    }
    unsigned a7, b7, c7, d7;
    if (__get_cpuid_count(7, 0, &a7, &b7, &c7, &d7)) {
        if (ymm_saved && (b7 & bit_AVX2)) m |= NKP_CPU_AVX2;
        if (b7 & bit_BMI) m |= NKP_CPU_BMI1;
        if (b7 & bit_BMI2) m |= NKP_CPU_BMI2;
    }
    return m;
}

// NKPCORE_CPU_FEATURES lets a whole test run pretend to be another processor.
bool env_features(uint64_t* mask) {
    const char* text = std::getenv("NKPCORE_CPU_FEATURES");
    if (!text || !*text) return false;
    char* end = nullptr;
    const unsigned long long v = std::strtoull(text, &end, 0);
    if (end == text) return false;
    *mask = v;
    return true;
}

}  // namespace

extern "C" {

void* nkpMalloc(size_t size) {
    if (size == 0) return nullptr;
    long budget = g_fail_after.load();
    while (budget >= 0) {
        if (budget == 0) return nullptr;
        if (g_fail_after.compare_exchange_weak(budget, budget - 1)) break;
    }
    const size_t rounded = (size + kAlignment - 1) & ~(kAlignment - 1);
    if (rounded < size) return nullptr;
#if defined(_WIN32)
    void* p = _aligned_malloc(rounded, kAlignment);
#else
    void* p = std::aligned_alloc(kAlignment, rounded);
#endif
    if (p) {
        ++g_live;
        ++g_total;
    }
    return p;
}

void nkpFree(void* pointer) {
    if (!pointer) return;
    --g_live;
#if defined(_WIN32)
    _aligned_free(pointer);
#else
    std::free(pointer);
#endif
}

uint64_t nkpGetEnabledCpuFeatures(void) {
    if (g_override_set.load()) return g_override_mask.load();
    uint64_t forced;
    if (env_features(&forced)) return forced;
    static const uint64_t detected = detect_features();
    return detected;
}

void nkpcoreSetCpuFeatures(uint64_t mask) {
    g_override_mask.store(mask);
    g_override_set.store(true);
}

void nkpcoreResetCpuFeatures(void) { g_override_set.store(false); }

void nkpcoreFailMallocAfter(long n) { g_fail_after.store(n < 0 ? -1 : n); }

long nkpcoreLiveAllocations(void) { return g_live.load(); }

long nkpcoreTotalAllocations(void) { return g_total.load(); }

}  // extern "C"
