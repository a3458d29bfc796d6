/*
 * nkpcore: the companion core library of nkpac.
 *
 * nkpac imports exactly three functions from here: nkpMalloc, nkpFree and
 * nkpGetEnabledCpuFeatures. Everything under "Test hooks" exists so that test
 * suites can steer the core (force a feature mask, make allocation fail,
 * count live blocks); nkpac itself never calls those.
 *
 * Compiles as C99 and as C++.
 */
#ifndef NKPCORE_H
#define NKPCORE_H

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32)
#  if defined(NKPCORE_BUILDING)
#    define NKPCORE_API __declspec(dllexport)
#  else
#    define NKPCORE_API __declspec(dllimport)
#  endif
#else
#  define NKPCORE_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Processor-feature bits reported by nkpGetEnabledCpuFeatures. A bit is set
 * only when the processor has the feature and, for AVX-class features, the
 * operating system saves the wider registers. nkpac's code-path selection
 * reads only NKP_CPU_SSSE3 and NKP_CPU_MOVBE.
 */
#define NKP_CPU_MMX    0x00000001ull
#define NKP_CPU_SSE    0x00000002ull
#define NKP_CPU_SSE2   0x00000004ull
#define NKP_CPU_SSE3   0x00000008ull
#define NKP_CPU_SSSE3  0x00000010ull
#define NKP_CPU_MOVBE  0x00000020ull
#define NKP_CPU_SSE41  0x00000040ull
#define NKP_CPU_SSE42  0x00000080ull
#define NKP_CPU_AVX    0x00000100ull
#define NKP_CPU_AES    0x00000200ull
#define NKP_CPU_CLMUL  0x00000400ull
#define NKP_CPU_AVX2   0x00000800ull
#define NKP_CPU_POPCNT 0x00001000ull
#define NKP_CPU_F16C   0x00002000ull
#define NKP_CPU_FMA    0x00004000ull
#define NKP_CPU_BMI1   0x00008000ull
#define NKP_CPU_BMI2   0x00010000ull

/* Allocates size bytes aligned to 64 bytes. Returns NULL on failure or when
 * size is 0. Release with nkpFree. */
NKPCORE_API void* nkpMalloc(size_t size);

/* Releases a block from nkpMalloc. NULL is accepted and ignored. */
NKPCORE_API void nkpFree(void* pointer);

/* The enabled-feature mask (NKP_CPU_* bits). Stable for the life of the
 * process unless a test hook overrides it. */
NKPCORE_API uint64_t nkpGetEnabledCpuFeatures(void);

/* ---- Test hooks ------------------------------------------------------- */

/* Makes nkpGetEnabledCpuFeatures return mask from now on. The code-path
 * selection of nkpac happens when nkpac is loaded, so set this before
 * loading it (dlopen / LoadLibrary). The environment variable
 * NKPCORE_CPU_FEATURES (a number, decimal or 0x-hex), read once when
 * nkpcore loads, has the same effect for a whole process. */
NKPCORE_API void nkpcoreSetCpuFeatures(uint64_t mask);

/* Forgets any override: nkpGetEnabledCpuFeatures reports the processor's
 * own mask again. */
NKPCORE_API void nkpcoreResetCpuFeatures(void);

/* After n more successful nkpMalloc calls, every further call returns NULL.
 * n < 0 switches the failure off (the default). */
NKPCORE_API void nkpcoreFailMallocAfter(long n);

/* Number of blocks returned by nkpMalloc and not yet released by nkpFree. */
NKPCORE_API long nkpcoreLiveAllocations(void);

/* Total number of nkpMalloc calls that returned memory, since load. */
NKPCORE_API long nkpcoreTotalAllocations(void);

#ifdef __cplusplus
}
#endif

#endif /* NKPCORE_H */
