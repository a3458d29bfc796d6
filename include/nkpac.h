/*
 * nkpac: audio-coding primitives.
 *
 * Every function does one step of a coding standard on buffers the caller
 * owns and returns a status (nkpStatus; 0 is success, negative values are
 * errors, positive values are warnings after which the results are complete).
 * Arguments are checked in one order everywhere, and the first failing check
 * decides the status: (1) the required pointers, (2) the bit offset, (3) the
 * scalars in parameter order, (4) the object's tag, (5) values stored in the
 * object, (6) errors found in the data. Nothing is written before the checks
 * pass unless a function's comment says otherwise.
 *
 * Bit-stream cursor (functions with "1u" in their type codes): a position is
 * a pointer to the byte pointer (ppBitStream) and a pointer to a bit offset
 * 0..7 counted from the most significant bit (pBitOffset). Reading or writing
 * n bits moves the cursor to byte pointer + (offset + n) / 8, offset
 * (offset + n) % 8. Readers fetch aligned 32-bit big-endian words: a stream
 * buffer must stay readable up to the end of the aligned 8-byte stretch after
 * the last bit consumed, so keep 8 readable bytes of slack after the data.
 *
 * Objects (state objects, and the plans, or spec objects, of the
 * transforms) follow one life cycle: GetSize reports the buffer size
 * (alignment slack included); Init builds the object at the first suitably
 * aligned address inside any caller buffer; InitAlloc allocates through
 * nkpcore and then builds the object; Free releases only what InitAlloc
 * allocated. Each family states two choices where its objects are described:
 * what a failed InitAlloc leaves behind (either its buffers, with the output
 * holding the object buffer or NULL when nothing was allocated, so treat that
 * output as unusable; or nothing, with the output untouched), and whether
 * Free clears the object's tag (then a second Free, or any use after Free,
 * gives nkpStatusWrongObject).
 *
 * The library picks one of two code paths when it is loaded: path 0 (SSSE3)
 * or path 1 (low-power processors with SSSE3 and MOVBE). Both paths give
 * identical results; nkpacGetLibVersion tells which one is active.
 *
 * Compiles as C99 and as C++.
 */
#ifndef NKPAC_H
#define NKPAC_H

#include <stdint.h>

#if defined(_WIN32)
#  if defined(NKPAC_BUILDING)
#    define NKPAC_API
#  else
#    define NKPAC_API __declspec(dllimport)
#  endif
#else
#  define NKPAC_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Data types ------------------------------------------------------- */

typedef uint8_t nkp8u;
typedef int8_t nkp8s;
typedef uint16_t nkp16u;
typedef int16_t nkp16s;
typedef uint32_t nkp32u;
typedef int32_t nkp32s;
typedef uint64_t nkp64u;
typedef int64_t nkp64s;
typedef float nkp32f;
typedef double nkp64f;
typedef struct { nkp16s re, im; } nkp16sc;
typedef struct { nkp32s re, im; } nkp32sc;
typedef struct { nkp32f re, im; } nkp32fc;

/* ---- Status codes ----------------------------------------------------- */

typedef nkp32s nkpStatus;

enum {
    nkpStatusMisaligned = 2,  /* warning: complete, but a data pointer was not
                                 16-byte aligned and the unaligned path ran */
    nkpStatusOk = 0,
    nkpStatusDataError = -2,  /* inconsistent input data */
    nkpStatusOutOfRange = -5, /* an argument outside its allowed set */
    nkpStatusBadSize = -6,    /* a length or count out of range */
    nkpStatusNullPointer = -8,
    nkpStatusNoMemory = -9,
    nkpStatusBadCount = -14,
    nkpStatusBadOrder = -15,
    nkpStatusBadFlag = -16,
    nkpStatusWrongObject = -17, /* an object's type tag does not match */
    nkpStatusBadFilterLength = -26,
    nkpStatusBadShift = -32,
    nkpStatusBadChannelCount = -53,
    nkpStatusVlcError = -127,
    nkpStatusVlcCodeLength = -129,
    nkpStatusBadAacChannelStep = -134,
    nkpStatusBadAacWindowShape = -135,
    nkpStatusBadAacLimit16 = -136,
    nkpStatusBadAacNoiselessFlag = -137,
    nkpStatusBadAacExtFlag3 = -138,
    nkpStatusBadAacExtFlag2 = -139,
    nkpStatusBadAacHeaderFlag = -140,
    nkpStatusBadAacElementChannels = -141,
    nkpStatusBadAacMsMask = -142,
    nkpStatusBadAacNoiselessMode = -143,
    nkpStatusBadAacWindowSequence = -144,
    nkpStatusBadAacWindowGroups = -145,
    nkpStatusBadAacWindowLength = -146,
    nkpStatusBadAacSamplingIndex = -147,
    nkpStatusBadAacBitOffset = -149,
    nkpStatusBadAacTnsMode = -151,
    nkpStatusBadAacTnsDirection = -152,
    nkpStatusBadAacTnsCoef = -153,
    nkpStatusBadAacTnsCoefRes = -154,
    nkpStatusBadAacTnsOrder = -155,
    nkpStatusBadAacTnsLength = -156,
    nkpStatusBadAacTnsFilterCount = -157,
    nkpStatusBadAacSectionData = -158,
    nkpStatusBadAacGainControl = -159,
    nkpStatusBadAacPulseData = -160,
    nkpStatusBadAacPrediction = -161,
    nkpStatusBadAacMaxSfb = -162,
    nkpStatusBadAacQuantValue = -163,
    nkpStatusBadAacScaleFactor = -164,
    nkpStatusBadAacCodebook = -166,
    nkpStatusBadAacPceCount = -167,
    nkpStatusBadMP3SideInfo = -170,
    nkpStatusBadMP3FrameHeader = -171,
    nkpStatusBadBitOffset = -193,
    nkpStatusAacNotSupported = -9999 /* the AAC main-layer header's unsupported mode */
};

/* ---- Version ---------------------------------------------------------- */

typedef struct {
    nkp32s major;
    nkp32s minor;
    nkp32s majorBuild;     /* update number */
    nkp32s build;          /* revision number */
    char targetCpu[4];     /* "S3" (SSSE3 path) or "LP" (low-power path), zero-padded */
    const char* name;      /* "nkpAC SSSE3 (S3)" or "nkpAC Low-power SSSE3+MOVBE (LP)" */
    const char* version;   /* "major.minor.majorBuild (rN)" */
    const char* buildDate; /* "Mon D YYYY" */
} nkpLibraryVersion;

/* The constant version record of the active code path. Never fails; the
 * record is the library's and must not be freed. */
NKPAC_API const nkpLibraryVersion* nkpacGetLibVersion(void);

/* ---- Vector utilities ------------------------------------------------- */
/* NKPAC-SECTION vector */
/*
 * Small array utilities used around a codec's main stages. None keeps state.
 * "Misaligned" below means the function returns nkpStatusMisaligned (2), a
 * warning after a complete run, when one of the named data pointers is not
 * 16-byte aligned. Float-to-16-bit conversions clamp to -32768..32767 and
 * round to nearest, ties to even, whatever the caller's rounding mode (the
 * caller's MXCSR is restored before returning).
 */

/* dst[c][i] = src[i*channels + c]. src holds channels*len samples, each
 * dst[c] len samples. Checks: src or dst null (NullPointer), channels < 1
 * (BadChannelCount), len < 1 (BadSize), a null dst[c] (NullPointer).
 * Misaligned: src or any dst[c]. */
NKPAC_API nkpStatus nkpsDeinterleave_16s(const nkp16s* pSrc, int channels, int len, nkp16s** ppDst);
NKPAC_API nkpStatus nkpsDeinterleave_32f(const nkp32f* pSrc, int channels, int len, nkp32f** ppDst);

/* dst[i*channels + c] = src[c][i]. Checks: src or dst null (NullPointer),
 * channels < 1 (BadChannelCount), len < 1 (BadSize), a null src[c]
 * (NullPointer). Misaligned: dst or any src[c]. */
NKPAC_API nkpStatus nkpsInterleave_16s(const nkp16s* const* ppSrc, int channels, int len, nkp16s* pDst);
NKPAC_API nkpStatus nkpsInterleave_32f(const nkp32f* const* ppSrc, int channels, int len, nkp32f* pDst);

/* Float channels to interleaved 16-bit PCM: dst[i*channels + c] =
 * src[c][i] clamped and rounded (NaN gives 32767). dst holds channels*len
 * samples. Checks: dst null (NullPointer), channels < 1 or len < 1
 * (BadSize), src null (NullPointer), a null src[c] (NullPointer). Any
 * alignment; returns nkpStatusOk. */
NKPAC_API nkpStatus nkpsJoin_32f16s_D2L(const nkp32f* const* ppSrc, int channels, int len, nkp16s* pDst);

/* Per-band scaling in place: data[j] *= factor[b] for offset[b] <= j <
 * offset[b+1], b = 0..bands-1 (offset has bands+1 entries; an empty or
 * reversed band is skipped). Checks: a null pointer (NullPointer),
 * bands < 1 (BadSize). Any alignment; returns nkpStatusOk. */
NKPAC_API nkpStatus nkpsScale_32f_I(nkp32f* pSrcDst, const nkp32f* pFactor, const nkp32s* pBandOffset, int bands);

/* dst[i] = mant[i] * 2^(-15 - exp[i]), the factor built as the float bit
 * pattern (0x38000000 - (exp << 23)) & 0x7FFFFFFF: exponents are not range
 * checked, out-of-range ones give what that bit arithmetic gives. Checks: a
 * null pointer (NullPointer), len < 1 (BadSize). Misaligned: any pointer. */
NKPAC_API nkpStatus nkpsMakeFloat_16s32f(const nkp16s* pMant, const nkp16s* pExp, int len, nkp32f* pDst);

/* dst[i] = 2^((sf[i] - offset)/4) from a 1024-entry table (2^-128 ..
 * 2^127.75). The table index is (sf[i] - min(offset + 512, 32767)) mod
 * 1024 in 16-bit arithmetic, so differences outside -512..511 wrap around
 * the table unreported. Checks: a null pointer (NullPointer), len < 1
 * (BadSize). Returns nkpStatusOk. */
NKPAC_API nkpStatus nkpsCalcSF_16s32f(const nkp16s* pSrc, int offset, nkp32f* pDst, int len);

/* dst[i] = |src[i]|^(3/4) through the processor's reciprocal-square-root
 * estimate, a * rsqrt(a) * rsqrt(rsqrt(a)) with no refinement (relative
 * error about 2^-11); |src[i]| <= 1.0e-37 (and NaN) gives 0, infinity NaN.
 * Floating-point exceptions are masked during the call. Checks: a null pointer
 * (NullPointer), len < 1 (BadSize). Misaligned: src or dst. */
NKPAC_API nkpStatus nkpsPow34_32f(const nkp32f* pSrc, nkp32f* pDst, int len);
/* As nkpsPow34_32f, then saturated to 32767 (infinity included) and rounded
 * to 16 bits. */
NKPAC_API nkpStatus nkpsPow34_32f16s(const nkp32f* pSrc, nkp16s* pDst, int len);

/* dst[i] = (|src[i]| * 2^inScale)^(3/4) * 2^-outScale, rounded to nearest
 * (ties to even) and saturated to 32767; 0 stays 0. Fixed point: the
 * mantissa's 3/4 power is interpolated in a 257-entry Q30 table and
 * scaled by 2^(-r/4) (r = exponent mod 4) to a Q31 product; results are
 * within one unit of the exactly rounded value and differ from it only
 * where the exact power lies within 0.02 of a rounding boundary (the
 * interpolation error is below 4e-7 relative). Where the final shift would exceed
 * 31 it is held at 31, so results that should round to 0 come out as 1 or
 * 2. Checks: len < 1 (BadSize) BEFORE a null pointer (NullPointer).
 * Returns nkpStatusOk. */
NKPAC_API nkpStatus nkpsPow34_16s_Sfs(const nkp16s* pSrc, int inScale, nkp16s* pDst, int outScale, int len);

/* dst[i] = sign(x) * |x|^(4/3), x = src[i], each value the float nearest
 * to the exact power (an exact table below 8207, a double-precision cube
 * root above). Checks: a null pointer (NullPointer), len < 0 (BadSize);
 * len 0 does nothing. Returns nkpStatusOk. */
NKPAC_API nkpStatus nkpsPow43_16s32f(const nkp16s* pSrc, nkp32f* pDst, int len);

/* Requantisation of bands: for band b, the values at offset[b]*widthMult
 * .. offset[b+1]*widthMult - 1 of src become, in dst, sign(x) *
 * trunc(|x|^(4/3) * 2^(e/4)) with e = sf[b] - globalGain - 4*sfMult,
 * limited to 0x7FFFFFFF. Internally P = trunc(|x|^(4/3) * 4096) (a table
 * below 8207; from 8207 on the magnitude is normalised and its cube root
 * refined from a polynomial seed in double precision, giving the same
 * truncated value as the exact power), times one of the four Q30
 * constants 2^((e&3)/4), shifted right by 42 - floor(e/4) (a shift of 64
 * or more gives 0; a negative shift, e >= 172, gives 0x7FFFFFFF for any
 * non-zero x). pScaleFactor has bands entries, pBandOffset bands+1.
 * Checks: a null pointer (NullPointer), bands < 0 or widthMult < 0
 * (BadSize); bands == 0 returns nkpStatusOk at once. */
NKPAC_API nkpStatus nkpsPow43Scale_16s32s_Sf(const nkp16s* pSrc, nkp32s* pDst, const nkp16s* pScaleFactor,
                                             const nkp32s* pBandOffset, int globalGain, int bands,
                                             int widthMult, int sfMult);

/* The spreading function of MPEG-1 psychoacoustic model 2 between two band
 * positions, distance (second - first) * 2^scaleFactor Bark, as one Q15
 * value saturated to 32767 (distance 0 gives 32767; beyond +12 or -6 on
 * the spreading axis, 0). Computed in Q23 fixed point; the final power of
 * ten goes through two 256-entry power-of-two tables (exponent rounded to
 * 16 fraction bits): within one unit of 32768 * 10^(value/10) rounded.
 * Checks: dst null (NullPointer). Returns nkpStatusOk. */
NKPAC_API nkpStatus nkpsSpread_16s_Sfs(nkp16s first, nkp16s second, int scaleFactor, nkp16s* pDst);
/* NKPAC-END vector */

/* ---- Transforms: generic MDCT ------------------------------------------ */
/* NKPAC-SECTION transform */
/*
 * Generic MDCT of length N: N time samples, N/2 coefficients, with
 * phi(n,k) = (2 pi/N)(n + 1/2 + N/4)(k + 1/2):
 *   forward float   X[k] = 2 sum_n x[n] cos phi(n,k)            (no 1/N)
 *   inverse float   y[n] = (2/N) sum_k X[k] cos phi(n,k)
 *   forward 16-bit  X[k] = sat16(round(2 sum_n x[n] cos phi(n,k) 2^-scaleFactor))
 * Lengths: the float transforms take 12, 36 and powers of two >= 32; the
 * 16-bit transform takes powers of two >= 32.
 *
 * Plans (spec objects) are built once per length and are read-only
 * afterwards (any number of concurrent calls, each with its own work
 * buffer). Init places the plan at the first 64-byte-aligned address of
 * pMemSpec (size from GetSize) and uses pMemInit (GetSize's init size) as
 * scratch; the plan's pointer is returned in *ppSpec. InitAlloc allocates
 * through nkpcore, in several blocks; if it fails it releases every block it
 * had obtained and leaves *ppSpec untouched. Free clears the tag and releases
 * what InitAlloc allocated (a second Free, or any use after Free, gives
 * nkpStatusWrongObject; Free of a plan built by Init only clears the tag).
 *
 * Work buffers: GetBufSize's size (GetSize reports a size at least as large);
 * the buffer is used from its first 64-byte-aligned address. A null
 * pBuffer makes the call allocate one for its duration (nkpStatusNoMemory if
 * that fails). The _I forms transform in place.
 */
typedef struct nkpsMDCTFwdSpec_32f nkpsMDCTFwdSpec_32f;
typedef struct nkpsMDCTInvSpec_32f nkpsMDCTInvSpec_32f;
typedef struct nkpsMDCTFwdSpec_16s nkpsMDCTFwdSpec_16s;

/* Sizes in bytes of the plan, the Init scratch and the work buffer. */
NKPAC_API nkpStatus nkpsMDCTFwdGetSize_32f(int len, int* pSpecSize, int* pSizeInit, int* pSizeBuf);
NKPAC_API nkpStatus nkpsMDCTInvGetSize_32f(int len, int* pSpecSize, int* pSizeInit, int* pSizeBuf);
NKPAC_API nkpStatus nkpsMDCTFwdGetSize_16s(int len, int* pSpecSize, int* pSizeInit, int* pSizeBuf);

/* Float Init checks the length first (nkpStatusBadSize), then the pointers
 * (pMemInit is required for powers of two only); 16-bit Init checks the
 * three pointers first, then the length. */
NKPAC_API nkpStatus nkpsMDCTFwdInit_32f(nkpsMDCTFwdSpec_32f** ppSpec, int len, nkp8u* pMemSpec, nkp8u* pMemInit);
NKPAC_API nkpStatus nkpsMDCTInvInit_32f(nkpsMDCTInvSpec_32f** ppSpec, int len, nkp8u* pMemSpec, nkp8u* pMemInit);
NKPAC_API nkpStatus nkpsMDCTFwdInit_16s(nkpsMDCTFwdSpec_16s** ppSpec, int len, nkp8u* pMemSpec, nkp8u* pMemInit);

NKPAC_API nkpStatus nkpsMDCTFwdInitAlloc_32f(nkpsMDCTFwdSpec_32f** ppSpec, int len);
NKPAC_API nkpStatus nkpsMDCTInvInitAlloc_32f(nkpsMDCTInvSpec_32f** ppSpec, int len);
NKPAC_API nkpStatus nkpsMDCTFwdInitAlloc_16s(nkpsMDCTFwdSpec_16s** ppSpec, int len);

NKPAC_API nkpStatus nkpsMDCTFwdFree_32f(nkpsMDCTFwdSpec_32f* pSpec);
NKPAC_API nkpStatus nkpsMDCTInvFree_32f(nkpsMDCTInvSpec_32f* pSpec);
NKPAC_API nkpStatus nkpsMDCTFwdFree_16s(nkpsMDCTFwdSpec_16s* pSpec);

NKPAC_API nkpStatus nkpsMDCTFwdGetBufSize_32f(const nkpsMDCTFwdSpec_32f* pSpec, int* pSize);
NKPAC_API nkpStatus nkpsMDCTInvGetBufSize_32f(const nkpsMDCTInvSpec_32f* pSpec, int* pSize);
NKPAC_API nkpStatus nkpsMDCTFwdGetBufSize_16s(const nkpsMDCTFwdSpec_16s* pSpec, int* pSize);

/* pSrc: N floats, pDst: N/2 floats. Checks: pSpec null, its tag, then pSrc
 * and pDst null. */
NKPAC_API nkpStatus nkpsMDCTFwd_32f(const nkp32f* pSrc, nkp32f* pDst, const nkpsMDCTFwdSpec_32f* pSpec,
                                    nkp8u* pBuffer);
/* pSrcDst: N floats in, N/2 coefficients out at its start. */
NKPAC_API nkpStatus nkpsMDCTFwd_32f_I(nkp32f* pSrcDst, const nkpsMDCTFwdSpec_32f* pSpec, nkp8u* pBuffer);
/* pSrc: N samples, pDst: N/2 coefficients times 2^-scaleFactor. */
NKPAC_API nkpStatus nkpsMDCTFwd_16s_Sfs(const nkp16s* pSrc, nkp16s* pDst, const nkpsMDCTFwdSpec_16s* pSpec,
                                        int scaleFactor, nkp8u* pBuffer);
/* pSrc: N/2 coefficients, pDst: N floats. */
NKPAC_API nkpStatus nkpsMDCTInv_32f(const nkp32f* pSrc, nkp32f* pDst, const nkpsMDCTInvSpec_32f* pSpec,
                                    nkp8u* pBuffer);
/* pSrcDst: N/2 coefficients in, N samples out (the buffer holds N floats). */
NKPAC_API nkpStatus nkpsMDCTInv_32f_I(nkp32f* pSrcDst, const nkpsMDCTInvSpec_32f* pSpec, nkp8u* pBuffer);
/* NKPAC-END transform */

/* ---- MP3 ---------------------------------------------------------------- */
/* NKPAC-SECTION mp3 */
/* Layer III frame header: each field holds its bit field as it stands in the
 * stream (no translation to bit rates or hertz). */
typedef struct {
    nkp32s id;                /* 1 MPEG-1, 0 lower sampling frequencies (MPEG-2 and 2.5) */
    nkp32s layer;             /* layer code as coded; 1 = Layer III */
    nkp32s protectionBit;     /* 0: a 16-bit CRC word follows the header */
    nkp32s bitrateIndex;      /* 0..15 */
    nkp32s samplingFreqIndex; /* 0..3 */
    nkp32s paddingBit;
    nkp32s privateBit;
    nkp32s mode;              /* 0 stereo, 1 joint stereo, 2 dual channel, 3 single channel */
    nkp32s modeExtension;     /* bit 1 M/S stereo, bit 0 intensity stereo */
    nkp32s copyright;
    nkp32s originalCopy;
    nkp32s emphasis;
    nkp32s crcWord;           /* meaningful only when protectionBit is 0 */
} nkpMP3FrameHeader;

/* Side information of one granule of one channel. A frame's records are
 * granule-major: granule g, channel c is element g * nch + c (nch = 1 when
 * mode is 3, else 2); MPEG-1 has two granules, LSF one. */
typedef struct {
    nkp32s part23Length;      /* bits of scale factors plus Huffman data */
    nkp32s bigValues;         /* value pairs in the big-values region */
    nkp32s globalGain;
    nkp32s scalefacCompress;  /* 4 bits MPEG-1, 9 bits LSF */
    nkp32s windowSwitching;
    nkp32s blockType;         /* 0 normal, 1 start, 2 short, 3 stop */
    nkp32s mixedBlock;
    nkp32s tableSelect[3];    /* Huffman table of regions 0..2 */
    nkp32s subblockGain[3];
    nkp32s region0Count;      /* bands in region 0, minus one */
    nkp32s region1Count;      /* bands in region 1, minus one */
    nkp32s preflag;
    nkp32s scalefacScale;
    nkp32s count1TableSelect; /* quadruple table A (0) or B (1) */
} nkpMP3SideInfo;

/* An MPEG-1 encoder's bit reservoir. */
typedef struct {
    nkp32s reservoirBits;     /* bits now held */
    nkp32s maxReservoirBits;  /* most bits it may hold with frames of this size */
} nkpMP3BitReservoir;

/* The header, side-information and reservoir functions keep no bit offset:
 * each starts at the most significant bit of the byte under the pointer and
 * leaves the pointer on the byte after what it read or wrote. */

/* Reads the 4-byte header at *ppBitStream (the sync word is not examined)
 * and, when protectionBit is 0, the CRC word after it; advances 4 or 6 bytes.
 * crcWord is left as it was when there is no CRC. */
NKPAC_API nkpStatus nkpsUnpackFrameHeader_MP3(nkp8u** ppBitStream, nkpMP3FrameHeader* pFrameHeader);

/* Reads the side information that follows the header (and CRC): MPEG-1 17
 * bytes mono / 32 stereo, LSF 9 / 17. pDstSideInfo holds 2 * nch records
 * (MPEG-1) or nch (LSF); pDstScfsi holds 4 * nch flags (MPEG-1 only, must be
 * non-null for LSF too). Up to 3 bytes after the side information may be
 * read. Window-switched granules get region counts 8/12 (pure short blocks)
 * or 7/13. LSF leaves preflag untouched. A window-switched record with
 * blockType 0 gives nkpStatusBadMP3SideInfo after that record's fields up
 * to subblockGain are stored; the pointer is then left on the byte reached. */
NKPAC_API nkpStatus nkpsUnpackSideInfo_MP3(nkp8u** ppBitStream, nkpMP3SideInfo* pDstSideInfo,
                                           int* pDstMainDataBegin, int* pDstPrivateBits,
                                           int* pDstScfsi, const nkpMP3FrameHeader* pFrameHeader);

/* Writes a header (12 sync bits, fields cut to their widths, CRC word when
 * protectionBit is 0). The byte after the last one written must be
 * addressable: it is read and stored back unchanged. */
NKPAC_API nkpStatus nkpsPackFrameHeader_MP3(const nkpMP3FrameHeader* pSrcFrameHeader, nkp8u** ppBitStream);

/* Writes side information in the reader's layout. A record with
 * windowSwitching 1 and blockType 0 ends the writing after its
 * windowSwitching bit, with nkpStatusOk. As for the header writer, the byte
 * after the last one written must be addressable. */
NKPAC_API nkpStatus nkpsPackSideInfo_MP3(const nkpMP3SideInfo* pSrcSideInfo, nkp8u** ppBitStream,
                                         int mainDataBegin, int privateBits, const int* pSrcScfsi,
                                         const nkpMP3FrameHeader* pFrameHeader);

/* Empty reservoir sized for MPEG-1 frames of this header: maxReservoirBits =
 * min(7680 - frame bits, 4088). Pass samplingFreqIndex 0..2 and
 * bitrateIndex 0..14; other values are not rejected (they count as a
 * free-format frame). */
NKPAC_API nkpStatus nkpsBitReservoirInit_MP3(nkpMP3BitReservoir* pBitReservoir,
                                             const nkpMP3FrameHeader* pFrameHeader);

/* The scale factors and Huffman functions below take the full cursor
 * (*ppBitStream, *pOffset 0..7) and advance it. */

/* Reads one granule/channel's scale factors into pDstScaleFactor (at least
 * 39 values). Layout: MPEG-1 long blocks bands 0..20 (+1 zero); short blocks
 * 3 * band + window (36, +3 zeros); mixed blocks long bands 0..7 then short
 * bands 3..11 (35 values, +3 zeros); LSF the values in stream order (+3
 * zeros). MPEG-1 granule 1 keeps the granule-0 values of groups whose scfsi
 * flag is set, so pass the same array for both granules of a channel.
 * pScfsi points at this channel's four flags. LSF writes preflag (and masks
 * mixedBlock to its low bit for short blocks); on the intensity-stereo right
 * channel a value at its width's maximum is stored negated (an illegal
 * intensity position). Reads no further than the end of the aligned 32-bit
 * word after the one holding the last bit consumed (8 bytes of slack). */
NKPAC_API nkpStatus nkpsUnpackScaleFactors_MP3_1u8s(nkp8u** ppBitStream, int* pOffset, nkp8s* pDstScaleFactor,
                                                    nkpMP3SideInfo* pSideInfo, const int* pScfsi,
                                                    const nkpMP3FrameHeader* pFrameHeader, int granule,
                                                    int channel);

/* Writes scale factors in the reader's layout (values cut to their widths;
 * LSF writes preflag into the record). Writing starts at the caller's bit
 * offset; bits below it in the current byte are kept. */
NKPAC_API nkpStatus nkpsPackScaleFactors_MP3_8s1u(const nkp8s* pSrcScaleFactor, nkp8u** ppBitStream, int* pOffset,
                                                  const nkpMP3FrameHeader* pFrameHeader, nkpMP3SideInfo* pSideInfo,
                                                  const int* pScfsi, int granule, int channel);

/* Decodes one granule/channel's Huffman data (hufSize bits: part23Length
 * minus the scale-factor bits) into 576 quantised lines pDstIs, and sets
 * *pDstNonZeroBound to one past the last non-zero line (0 when none). The
 * cursor ends exactly hufSize bits on, also when the last quadruple overran
 * the part (it is dropped, and its lines are zero). Region boundaries come
 * from the built-in long-band table (row id * 3 + samplingFreqIndex, MPEG-1
 * and MPEG-2 rates; MPEG-2.5 streams need the caller's table, see the Sfb
 * variants); region 0 of a window-switched granule is 36 lines, or 54 for
 * LSF start and stop blocks.
 * Read slack: 8 bytes after the last bit read. In a valid granule that is
 * the part's last bit (or up to 9 bits later when a quadruple overruns the
 * part). Big-values decoding does not stop at hufSize, so a corrupt granule
 * may read up to 288 * 47 bits (1692 bytes) past the cursor before
 * nkpStatusDataError tells: keep a buffer of untrusted data readable for
 * max(hufSize / 8 + 2, 1692) + 8 bytes after the cursor. */
NKPAC_API nkpStatus nkpsHuffmanDecode_MP3_1u32s(nkp8u** ppBitStream, int* pOffset, nkp32s* pDstIs,
                                                int* pDstNonZeroBound, const nkpMP3SideInfo* pSideInfo,
                                                const nkpMP3FrameHeader* pFrameHeader, int hufSize);

/* As nkpsHuffmanDecode_MP3_1u32s, with the caller's long-band table:
 * 6 rows (id * 3 + samplingFreqIndex) of 23 boundaries (NULL: the built-in
 * table). */
NKPAC_API nkpStatus nkpsHuffmanDecodeSfb_MP3_1u32s(nkp8u** ppBitStream, int* pOffset, nkp32s* pDstIs,
                                                   int* pDstNonZeroBound, const nkpMP3SideInfo* pSideInfo,
                                                   const nkpMP3FrameHeader* pFrameHeader, int hufSize,
                                                   const nkp16s* pSfbTableLong);

/* As nkpsHuffmanDecodeSfb_MP3_1u32s, with region 0 of window-switched
 * granules taken from the caller's tables too: pSfbTableShort, 6 rows of 14
 * short-band boundaries; pMbpTable, 6 rows of two values (long bands of a
 * mixed block, short-band steps that region 0 extends over beyond them).
 * Region 0 of a window-switched granule ends at long band 8 (start and stop
 * blocks), after three short bands (short blocks), or, in a mixed block,
 * after the long bands plus the short-band steps, the first short band
 * counted twice and the later ones three times each. The three tables are
 * not checked and must be valid. Checks its arguments in its own order (a
 * bad hufSize gives nkpStatusBadMP3SideInfo here). */
NKPAC_API nkpStatus nkpsHuffmanDecodeSfbMbp_MP3_1u32s(nkp8u** ppBitStream, int* pOffset, nkp32s* pDstIs,
                                                      int* pDstNonZeroBound, const nkpMP3SideInfo* pSideInfo,
                                                      const nkpMP3FrameHeader* pFrameHeader, int hufSize,
                                                      const nkp16s* pSfbTableLong, const nkp16s* pSfbTableShort,
                                                      const nkp16s* pMbpTable);
/* NKPAC-END mp3 */

/* ---- MP3 decoder steps: requantisation, joint stereo, synthesis ---------- */
/* NKPAC-SECTION mp3-decoder */
/*
 * The decoder's steps after Huffman decoding, per granule:
 *   nkpsReQuantize_MP3_32s_I       (each channel)
 *   nkpsJointStereo_MP3_32s_I      (joint-stereo frames)
 *   nkpsMDCTInv_MP3_32s            (each channel)
 *   nkpsSynthesisFilter_MP3_32s16s (each channel)
 * Fixed point throughout: the requantised spectrum and the subband samples
 * that the inverse MDCT hands to the synthesis hold 1.0 (the standard's
 * requantised value 1, and a full-scale subband sample) as 2^25, leaving
 * 64 times the full-scale range of headroom. Every rounding is to nearest
 * (ties to even), whatever the caller's floating-point mode (it is restored
 * on return).
 *
 * Band tables of the Sfb variants have the Huffman decoders' layout: rows
 * id * 3 + samplingFreqIndex (0..2 LSF, 3..5 MPEG-1), 23 long-band
 * boundaries (0..576) and 14 short-band boundaries of one window (0..192)
 * per row. The plain variants use the built-in MPEG-1 and MPEG-2 rows; an
 * MPEG-2.5 decoder passes its own rows through the Sfb variants.
 */

/* Requantises one granule/channel in place: pSrcDstXr holds the 576
 * quantised lines from the Huffman decoder and becomes the spectrum
 * sign(q) |q|^(4/3) 2^(gain/4) * 2^25 (rounded, held within +-(2^31 - 1)),
 * with global gain, scalefacScale, preflag, subblock gain and the scale
 * factors of pScaleFactor (the scale-factor reader's layout, 39 values;
 * negative intensity marks count by their magnitude). Short blocks come out
 * window-major within each subband (subband sb, window w, line j at
 * 18 sb + 6 w + j), as nkpsMDCTInv_MP3_32s reads them; the long part of a
 * mixed block stays in place. *pNonZeroBound (in: the Huffman decoder's
 * bound; out: one past the last non-zero output line) limits the work;
 * lines from the returned bound on are zero.
 * Checks: a null pointer (NullPointer); the bound above 576 (OutOfRange);
 * blockType above 3, mixedBlock, scalefacScale or preflag above 1,
 * globalGain above 255 or a subblockGain above 7 (BadMP3SideInfo); id above
 * 1 or samplingFreqIndex above 2 (BadMP3FrameHeader); a quantised magnitude
 * above 8206 (DataError: the lines before it may already be requantised). */
NKPAC_API nkpStatus nkpsReQuantize_MP3_32s_I(nkp32s* pSrcDstXr, int* pNonZeroBound, const nkp8s* pScaleFactor,
                                             const nkpMP3SideInfo* pSideInfo, const nkpMP3FrameHeader* pFrameHeader);
/* As nkpsReQuantize_MP3_32s_I with the caller's band tables. */
NKPAC_API nkpStatus nkpsReQuantizeSfb_MP3_32s_I(nkp32s* pSrcDstXr, int* pNonZeroBound, const nkp8s* pScaleFactor,
                                                const nkpMP3SideInfo* pSideInfo,
                                                const nkpMP3FrameHeader* pFrameHeader, const nkp16s* pSfbTableLong,
                                                const nkp16s* pSfbTableShort);

/* Joint stereo of one granule, in place on both requantised channels
 * (pSrcDstXr: 576 lines of channel 0, then 576 of channel 1; pNonZeroBound:
 * their two bounds, both set to the larger on return). Only frames with mode
 * 1 and a non-zero modeExtension change anything. M/S: left = (m + s)/sqrt 2,
 * right = (m - s)/sqrt 2. Intensity: in the bands of the right channel above
 * its highest coded band (per window in short blocks; the long part of a
 * mixed block only when no short window is coded), the left lines are split
 * by the position in pScaleFactorR, the right channel's scale factors
 * (MPEG-1: tan(pos pi/12) ratios, 7 is illegal; LSF: powers of 2^-1/4 or
 * 2^-1/2 by scalefacCompress bit 0, negative values are the reader's
 * illegal-position marks). The top long band and the top short band take
 * the position of the band below. Bands with an illegal position get M/S
 * when it is on. pSideInfo: the granule's two records (channel 0, 1); the
 * right channel's block type decides the band layout.
 * Checks: a null pointer (NullPointer); a bound above 576 (OutOfRange); a
 * blockType above 3, mixedBlock above 1 or scalefacCompress above 511 in
 * either record (BadMP3SideInfo); id above 1, samplingFreqIndex above 2,
 * mode or modeExtension above 3 (BadMP3FrameHeader). */
NKPAC_API nkpStatus nkpsJointStereo_MP3_32s_I(nkp32s* pSrcDstXr, int* pNonZeroBound, const nkp8s* pScaleFactorR,
                                              const nkpMP3SideInfo* pSideInfo, const nkpMP3FrameHeader* pFrameHeader);
/* As nkpsJointStereo_MP3_32s_I with the caller's band tables. */
NKPAC_API nkpStatus nkpsJointStereoSfb_MP3_32s_I(nkp32s* pSrcDstXr, int* pNonZeroBound, const nkp8s* pScaleFactorR,
                                                 const nkpMP3SideInfo* pSideInfo,
                                                 const nkpMP3FrameHeader* pFrameHeader,
                                                 const nkp16s* pSfbTableLong, const nkp16s* pSfbTableShort);

/* The hybrid filter bank of one granule/channel. pSrcXr: 576 spectral
 * lines, 18 per subband (alias reduction works on them in place); pDstY: 576
 * subband samples, subband sb at time slot k in element sb + 32 k;
 * pSrcDstOverlapAdd: 576 values kept per channel between granules (zero at
 * the start); nonZeroBound 0..576 sets the number of subbands transformed, n
 * (ceil(nz/18) for short blocks, at least 2 when mixed; floor((nz+8)/18)+1
 * otherwise; at most 32); *pPrevNumOfImdct (per channel, 0 at the start)
 * holds the previous granule's n and becomes this one's. Subbands up to the
 * previous n still empty their overlap; the rest of the output is zero. Odd
 * time slots of odd subbands are negated (frequency inversion). Outputs
 * keep the input's scale (1.0 = 2^25). Checks: a null pointer
 * (NullPointer); nonZeroBound above 576, blockType above 3, mixedBlock
 * above 1 or a previous count above 32 (OutOfRange). */
NKPAC_API nkpStatus nkpsMDCTInv_MP3_32s(nkp32s* pSrcXr, nkp32s* pDstY, nkp32s* pSrcDstOverlapAdd, int nonZeroBound,
                                        int* pPrevNumOfImdct, int blockType, int mixedBlock);

/* The windowed inverse MDCT of one subband: 18 values in, 36 out (blockType
 * 0 normal, 1 start, 3 stop window; 2: three short windows overlap-added
 * into outputs 6..29). No checks; blockType must be 0..3. */
NKPAC_API nkpStatus nkpsMDCTInvWindow_MP3_32s(const nkp32s* pSrc, nkp32s* pDst, int blockType);

/* Polyphase synthesis state of one channel (16-byte aligned inside the
 * caller's buffer of the size GetSize reports; Init clears the history).
 * InitAlloc follows the general rule: *ppState is set to NULL, then holds
 * the buffer as soon as it is allocated; a failure after that releases
 * nothing. Free keeps the tag, and releases the buffer only when InitAlloc
 * made it. */
typedef struct nkpMP3SynthesisState nkpMP3SynthesisState;

NKPAC_API nkpStatus nkpsSynthesisFilterGetSize_MP3_16s(int* pSize);
NKPAC_API nkpStatus nkpsSynthesisFilterInit_MP3_16s(nkpMP3SynthesisState* pState);
NKPAC_API nkpStatus nkpsSynthesisFilterInitAlloc_MP3_16s(nkpMP3SynthesisState** ppState);
NKPAC_API nkpStatus nkpsSynthesisFilterFree_MP3_16s(nkpMP3SynthesisState* pState);

/* 18 time slots of 32 subband samples (pSrc, element sb + 32 k, 1.0 =
 * 2^25, as nkpsMDCTInv_MP3_32s leaves them) to 576 PCM samples, rounded and
 * saturated to 16 bits, written to pDst[i * channelStep] (1: mono; 2: one
 * channel of an interleaved stereo buffer). Checks: a null pointer
 * (NullPointer); channelStep not 1 or 2 (OutOfRange); a state that Init did
 * not make (WrongObject). */
NKPAC_API nkpStatus nkpsSynthesisFilter_MP3_32s16s(const nkp32s* pSrc, nkp16s* pDst, int channelStep,
                                                   nkpMP3SynthesisState* pState);
/* NKPAC-END mp3-decoder */

/* ---- VLC: code-book decoding, encoding and bit counting ----------------- */
/* NKPAC-SECTION vlc */
/*
 * Variable-length codes for any code book the caller describes: decoder
 * tables (multi-level lookup tables), encoder tables (value -> length, code),
 * decoding of single values, blocks and tuples with the AAC and MP3 escape
 * rules, encoding, and bit counting.
 *
 * Code book: an array of nkpsVLCCodeEntry_32s. `code` holds the code word in
 * its low `length` bits, first transmitted bit highest; bits above `length`
 * are ignored. Code books are not checked for being prefix codes: where two
 * codes are equal the later entry wins, and where a code is a prefix of a
 * longer one, the longer code's link to its lower-level table wins the
 * slots they share.
 *
 * ---- Decoder tables (nkpsVLCDecodeSpec_32s) ----
 * One object type serves the plain decoders (one signed value per code) and
 * the tuple decoders (one code carries several unsigned elements). It lives
 * at the first 64-byte-aligned address inside the caller's buffer; every
 * function takes the buffer's own address. Tag "`AMC" (0x434D4160).
 *
 * Sub-table widths (pSubTablesSizes, numSubTables): the width in bits of the
 * first-level table, then of every second-level table, and so on. Levels are
 * used until the widths add up to the longest code length L; the last used
 * width is cut to reach L exactly, later widths are not looked at. A wide
 * first level makes most codes one lookup.
 *
 * Size (GetSize): entries * entryBytes + 160, where entries = 2^w0 + 1 for
 * the first level plus 2^wi + 1 for every lower-level table (one per distinct
 * prefix, at the level above, of a longer code), and entryBytes is 1, 2 or 4:
 *   valueBits  = smallest k with 2^k >= largest |value| (0 when that is <= 1)
 *   lengthBits = smallest k with 2^k > largest used width
 *   indexBits  = smallest k with 2^k - 1 >= entries + 1
 *   need       = max(valueBits + lengthBits + 2, indexBits + 1)
 *   entryBytes = 1 if need < 9, 2 if need < 17, else 4.
 * The 160 bytes are the 64-byte object header, 63 bytes of alignment slack
 * and 33 bytes of room after the table.
 * A plain decoder returns the value modulo 2^16. Where the entries are
 * exactly `need` bits wide, the value +2^valueBits does not fit an entry and
 * its codes go through one of two spare entries after the table: a book
 * that gives it codes of more than two different lengths decodes the codes
 * of the further lengths as -2^valueBits.
 *
 * Checks of GetSize, Init and InitAlloc, in order:
 *   nkpStatusNullPointer   pInputTable, pSubTablesSizes, or the output or
 *                          buffer is NULL (InitAlloc: ppVLCSpec first);
 *   nkpStatusVlcCodeLength the longest code is 0 (so also an entry count
 *                          below 1) or above 32 bits, an entry's length is
 *                          below 1, a width met before the widths reach L is
 *                          below 1, or all widths together stay below L;
 *   nkpStatusOutOfRange    the object would take more than 2^31 - 1 bytes.
 * The tuple forms check in this order, on purpose: the pointers; then the
 * code book, whose error is held back; numElements or numValueBits below 1
 * (nkpStatusOutOfRange); then the held-back code-book error; then the size
 * is computed and stored (GetSize); last, numElements * numValueBits +
 * lengthBits + 1 above 32 gives nkpStatusOutOfRange, from GetSize with the
 * size already stored. InitAlloc passes GetSize's status on, then
 * nkpStatusNoMemory; a failed InitAlloc's output is unusable (see the object
 * life cycle above). Free (both Free functions take either kind of decoder
 * object): nkpStatusNullPointer, then nkpStatusWrongObject for a foreign
 * tag; it releases only InitAlloc's buffers and keeps the tag.
 *
 * Reading: the decoders follow the cursor rule above. Keep the stream
 * readable to the end of the aligned 32-bit word after the word that holds
 * its last bit (8 bytes of slack after the data suffice); the aligned word
 * holding the first bit is read from its start, up to 3 bytes before
 * *ppBitStream, which is not checked for NULL.
 *
 * Plain decoders (One, Block, EscBlock_AAC, EscBlock_MP3) do not detect bit
 * patterns that start no code: such a pattern decodes as 0 and consumes the
 * widths of the table levels down to and including the one where it ends.
 * Tuple decoders detect them and return nkpStatusVlcError.
 *
 * Checks of the One and Block forms (plain and tuple), in order:
 * nkpStatusNullPointer for any pointer argument; nkpStatusVlcError for a bit
 * offset outside 0..7, a count below 1 (Block) or a foreign tag. Escape
 * blocks: nkpStatusNullPointer; nkpStatusBadBitOffset for an offset outside
 * 0..7; nkpStatusWrongObject for a foreign tag. Their counts are not
 * checked: a count below 1 decodes nothing and succeeds. A refused call
 * leaves the cursor as it was. A data error (a bad escape; a pattern of no
 * code in a tuple decoder) stops the call: the values decoded before it stay
 * written and the cursor is left as it was.
 *
 * AAC escape (EscBlock_AAC): after a code that decodes to 16 or -16 (tuple
 * forms: an element of 16) come k one bits, a 0 bit and k + 4 bits w; the
 * magnitude is 2^(k+4) + w. More than eight one bits (a magnitude above
 * 8191) is nkpStatusVlcError. The plain form decodes dstLen rounded down to
 * an even number of values (dstLen 1 moves nothing); the tuple form decodes
 * numTuples tuples.
 * MP3 escape (EscBlock_MP3): after a code that decodes to 15 or -15 (tuple
 * forms: an element of 15), linbits bits follow and are added to the
 * magnitude. A negative linbits counts as 0; with linbits above 16 the
 * escape still takes linbits bits, of which the low 16 are added.
 *
 * Tuple code books (UTuple): a value holds numElements unsigned elements of
 * numValueBits bits each, the first element in the highest bits:
 * value = (e0 << (b * (n - 1))) | (e1 << (b * (n - 2))) | ... | e(n-1).
 * After the code word, each non-zero element has one sign bit, in element
 * order (1 = negative). The AAC escape form reads all sign bits, then the
 * escape sequences of the elements of 16 in element order (AAC spectral
 * data); the MP3 form reads, per element, the linbits of an element of 15,
 * then its sign bit (MP3 big values). Elements are written as signed 16-bit
 * values, numElements per tuple. A tuple decoder given a plain object
 * (numElements 0) consumes codes and writes nothing.
 *
 * ---- Encoder tables (nkpsVLCEncodeSpec_32s) ----
 * A direct table from value to (length, code), 64-byte aligned in the
 * caller's buffer; tag "_AMC". Size: range = largest - smallest value, k =
 * the bit length of range + 1, size = (range + 2^k) * 4 + 132 bytes (2^k
 * lengths and range + 1 codes of 4 bytes, the 64-byte object header, 63
 * bytes of alignment slack and one spare byte). When a value occurs twice
 * the earlier entry is kept. Entries whose length is outside 1..32 are left
 * out. A value the code book does not hold (also any value outside its
 * range) writes nothing and counts 0 bits.
 * Checks: GetSize and Init: nkpStatusNullPointer, nkpStatusVlcError for an
 * entry count below 1, nkpStatusOutOfRange when the size would pass
 * 2^31 - 1 bytes; InitAlloc: nkpStatusNullPointer for ppVLCSpec, then as
 * Init, then nkpStatusNoMemory. Free as for the decoder. Each encoding and
 * counting function lists its checks below; a refused call writes nothing.
 *
 * Writing: every writer works on aligned big-endian 32-bit words. A code
 * that ends inside its word rewrites the whole word: the bits before the
 * cursor (also those of the up to 3 bytes before *ppBitStream) keep their
 * values, the bits after the code become 1. A code that crosses into the
 * next word keeps that word's bits after the code as they were. A code that
 * ends on a word boundary leaves the next word untouched. So a stream written
 * code after code is exact up to the cursor, and the buffer must be writable
 * to the end of the aligned word holding the last bit written. Block forms
 * give the same bytes as one call per code; an escape sequence or linbits
 * field is written as one more code after its value's code.
 * AAC escape writing: a magnitude m >= 16 is written as the code of 16 or
 * -16, then N - 4 one bits, a 0 and m - 2^N in N bits, with 2^N <= m <
 * 2^(N+1) (magnitudes above 8191 are written too, though the decoder refuses
 * them). MP3: a magnitude m >= 15 is written as the code of 15 or -15, then
 * m - 15 in linbits bits (negative linbits count as 0).
 * Bit counts are the sums of code, escape and linbits lengths (at most
 * 2^31 - 1).
 */
typedef struct {
    nkp32s value;  /* the decoded value (tuple books: the packed elements) */
    nkp32s code;   /* the code word in the low `length` bits */
    nkp32s length; /* code length in bits, 1..32 */
} nkpsVLCCodeEntry_32s;

typedef struct nkpsVLCDecodeSpec_32s nkpsVLCDecodeSpec_32s;
typedef struct nkpsVLCEncodeSpec_32s nkpsVLCEncodeSpec_32s;

NKPAC_API nkpStatus nkpsVLCDecodeGetSize_32s(const nkpsVLCCodeEntry_32s* pInputTable, int inputTableSize,
                                             const nkp32s* pSubTablesSizes, int numSubTables, nkp32s* pSize);
NKPAC_API nkpStatus nkpsVLCDecodeInit_32s(const nkpsVLCCodeEntry_32s* pInputTable, int inputTableSize,
                                          const nkp32s* pSubTablesSizes, int numSubTables,
                                          nkpsVLCDecodeSpec_32s* pVLCSpec);
NKPAC_API nkpStatus nkpsVLCDecodeInitAlloc_32s(const nkpsVLCCodeEntry_32s* pInputTable, int inputTableSize,
                                               const nkp32s* pSubTablesSizes, int numSubTables,
                                               nkpsVLCDecodeSpec_32s** ppVLCSpec);
NKPAC_API nkpStatus nkpsVLCDecodeFree_32s(nkpsVLCDecodeSpec_32s* pVLCSpec);

/* One value into *pDst. */
NKPAC_API nkpStatus nkpsVLCDecodeOne_1u16s(nkp8u** ppBitStream, int* pBitOffset, nkp16s* pDst,
                                           const nkpsVLCDecodeSpec_32s* pVLCSpec);
/* dstLen values into pDst. */
NKPAC_API nkpStatus nkpsVLCDecodeBlock_1u16s(nkp8u** ppBitStream, int* pBitOffset, nkp16s* pDst, int dstLen,
                                             const nkpsVLCDecodeSpec_32s* pVLCSpec);
NKPAC_API nkpStatus nkpsVLCDecodeEscBlock_AAC_1u16s(nkp8u** ppBitStream, int* pBitOffset, nkp16s* pDst,
                                                    int dstLen, const nkpsVLCDecodeSpec_32s* pVLCSpec);
NKPAC_API nkpStatus nkpsVLCDecodeEscBlock_MP3_1u16s(nkp8u** ppBitStream, int* pBitOffset, int linbits,
                                                    nkp16s* pDst, int dstLen,
                                                    const nkpsVLCDecodeSpec_32s* pVLCSpec);

NKPAC_API nkpStatus nkpsVLCDecodeUTupleGetSize_32s(const nkpsVLCCodeEntry_32s* pInputTable, int inputTableSize,
                                                   const nkp32s* pSubTablesSizes, int numSubTables,
                                                   int numElements, int numValueBits, nkp32s* pSize);
NKPAC_API nkpStatus nkpsVLCDecodeUTupleInit_32s(const nkpsVLCCodeEntry_32s* pInputTable, int inputTableSize,
                                                const nkp32s* pSubTablesSizes, int numSubTables,
                                                int numElements, int numValueBits,
                                                nkpsVLCDecodeSpec_32s* pVLCSpec);
NKPAC_API nkpStatus nkpsVLCDecodeUTupleInitAlloc_32s(const nkpsVLCCodeEntry_32s* pInputTable,
                                                     int inputTableSize, const nkp32s* pSubTablesSizes,
                                                     int numSubTables, int numElements, int numValueBits,
                                                     nkpsVLCDecodeSpec_32s** ppVLCSpec);
NKPAC_API nkpStatus nkpsVLCDecodeUTupleFree_32s(nkpsVLCDecodeSpec_32s* pVLCSpec);

/* One tuple: numElements values into pDst. */
NKPAC_API nkpStatus nkpsVLCDecodeUTupleOne_1u16s(nkp8u** ppBitStream, int* pBitOffset, nkp16s* pDst,
                                                 const nkpsVLCDecodeSpec_32s* pVLCSpec);
/* numTuples tuples: numTuples * numElements values into pDst. */
NKPAC_API nkpStatus nkpsVLCDecodeUTupleBlock_1u16s(nkp8u** ppBitStream, int* pBitOffset, nkp16s* pDst,
                                                   int numTuples, const nkpsVLCDecodeSpec_32s* pVLCSpec);
NKPAC_API nkpStatus nkpsVLCDecodeUTupleEscBlock_AAC_1u16s(nkp8u** ppBitStream, int* pBitOffset, nkp16s* pDst,
                                                          int numTuples, const nkpsVLCDecodeSpec_32s* pVLCSpec);
NKPAC_API nkpStatus nkpsVLCDecodeUTupleEscBlock_MP3_1u16s(nkp8u** ppBitStream, int* pBitOffset, int linbits,
                                                          nkp16s* pDst, int numTuples,
                                                          const nkpsVLCDecodeSpec_32s* pVLCSpec);

NKPAC_API nkpStatus nkpsVLCEncodeGetSize_32s(const nkpsVLCCodeEntry_32s* pInputTable, int inputTableSize,
                                             nkp32s* pSize);
NKPAC_API nkpStatus nkpsVLCEncodeInit_32s(const nkpsVLCCodeEntry_32s* pInputTable, int inputTableSize,
                                          nkpsVLCEncodeSpec_32s* pVLCSpec);
NKPAC_API nkpStatus nkpsVLCEncodeInitAlloc_32s(const nkpsVLCCodeEntry_32s* pInputTable, int inputTableSize,
                                               nkpsVLCEncodeSpec_32s** ppVLCSpec);
NKPAC_API nkpStatus nkpsVLCEncodeFree_32s(nkpsVLCEncodeSpec_32s* pVLCSpec);

/* Checks: nkpStatusNullPointer (ppBitStream, pBitOffset, pVLCSpec), then
 * nkpStatusVlcError for a foreign tag. The bit offset is not checked: the
 * code goes *pBitOffset bits after *ppBitStream, whatever the offset. */
NKPAC_API nkpStatus nkpsVLCEncodeOne_16s1u(nkp16s src, nkp8u** ppBitStream, int* pBitOffset,
                                           const nkpsVLCEncodeSpec_32s* pVLCSpec);
/* Checks: nkpStatusNullPointer; nkpStatusVlcError for srcLen < 1, then for
 * an offset outside 0..7 or a foreign tag. */
NKPAC_API nkpStatus nkpsVLCEncodeBlock_16s1u(const nkp16s* pSrc, int srcLen, nkp8u** ppBitStream,
                                             int* pBitOffset, const nkpsVLCEncodeSpec_32s* pVLCSpec);
/* Checks: nkpStatusNullPointer; nkpStatusBadBitOffset for an offset outside
 * 0..7; nkpStatusWrongObject for a foreign tag. srcLen < 1 writes nothing. */
NKPAC_API nkpStatus nkpsVLCEncodeEscBlock_AAC_16s1u(const nkp16s* pSrc, int srcLen, nkp8u** ppBitStream,
                                                    int* pBitOffset, const nkpsVLCEncodeSpec_32s* pVLCSpec);
NKPAC_API nkpStatus nkpsVLCEncodeEscBlock_MP3_16s1u(const nkp16s* pSrc, int srcLen, int linbits,
                                                    nkp8u** ppBitStream, int* pBitOffset,
                                                    const nkpsVLCEncodeSpec_32s* pVLCSpec);
/* Checks: nkpStatusNullPointer; nkpStatusVlcError for srcLen < 1 or a
 * foreign tag. */
NKPAC_API nkpStatus nkpsVLCCountBits_16s32s(const nkp16s* pSrc, int srcLen, nkp32s* pCount,
                                            const nkpsVLCEncodeSpec_32s* pVLCSpec);
/* Checks: nkpStatusNullPointer; nkpStatusWrongObject for a foreign tag.
 * srcLen < 1 counts 0. */
NKPAC_API nkpStatus nkpsVLCCountEscBits_AAC_16s32s(const nkp16s* pSrc, int srcLen, nkp32s* pCount,
                                                   const nkpsVLCEncodeSpec_32s* pVLCSpec);
NKPAC_API nkpStatus nkpsVLCCountEscBits_MP3_16s32s(const nkp16s* pSrc, int srcLen, int linbits, nkp32s* pCount,
                                                   const nkpsVLCEncodeSpec_32s* pVLCSpec);
/* NKPAC-END vlc */

/* ---- AAC: stream headers, side elements and channel streams ------------- */
/* NKPAC-SECTION aac-stream */
/*
 * AAC stream readers: the ADTS and ADIF headers, the raw data block's side
 * elements (program configuration, data stream, fill), the extension- and
 * main-layer headers of a two-layer stream, the channel pair element's
 * header, and the noiseless decoding of one individual channel stream into
 * scale factors, band code books and quantised spectral lines.
 *
 * The caller drives the stream: it finds the frames, reads each element's
 * 3-bit identifier (and, for SCE, CPE and LFE, the 4-bit instance tag)
 * itself and calls the reader of that element, which starts right behind
 * them. No reader searches for a sync word, checks a CRC or keeps state.
 *
 * Records hold one signed 32-bit word per stream field with the field's
 * unsigned value, right-aligned, unless a comment says otherwise; arrays are
 * sized to the largest count their count field can express. A field that the
 * stream does not carry in a given case is left as the caller had it, unless
 * its comment says it is cleared. Window sequences: 0 only-long, 1
 * long-start, 2 eight-short, 3 long-stop (only 2 changes the syntax).
 *
 * Statuses: each function lists its codes in the order it checks them. The
 * pointer check covers the byte pointer inside ppBitStream too; the bit
 * offset must be 0..7 (nkpStatusBadAacBitOffset). A failure found in the
 * data stops the reader at once: fields, output lines and the cursor stay as
 * far as they got.
 *
 * Read slack: the readers fetch aligned 32-bit big-endian words and read no
 * further than the end of the aligned word after the one that holds the last
 * bit they consume, i.e. at most 7 bytes past the byte of that bit (and from
 * the start of the aligned word holding the first bit, up to 3 bytes before
 * the cursor). Keep 8 readable bytes after the data. No reader takes the
 * data's length: a truncated or corrupt element is read on into whatever
 * follows it, but only so far; each function states its bound ("reads at
 * most N bytes": the cursor's byte and the N - 1 after it, slack included),
 * so a caller can size a buffer of untrusted data.
 */

/* ADTS frame header. */
typedef struct {
    nkp32s id;                           /* 1 bit: 0 MPEG-4, 1 MPEG-2 */
    nkp32s layer;                        /* 2 bits */
    nkp32s protectionAbsent;             /* 1 bit: 0 means a CRC word follows */
    nkp32s profile;                      /* 2 bits: audio object type - 1 */
    nkp32s samplingFrequencyIndex;       /* 4 bits */
    nkp32s privateBit;
    nkp32s channelConfiguration;         /* 3 bits; 0: the layout is in a PCE */
    nkp32s originalCopy;
    nkp32s home;
    nkp32s reserved;                     /* never written */
    nkp32s copyrightIdentificationBit;
    nkp32s copyrightIdentificationStart;
    nkp32s frameLength;                  /* 13 bits: the frame in bytes, header included */
    nkp32s bufferFullness;               /* 11 bits */
    nkp32s numRawDataBlocks;             /* the 2-bit field plus one: 1..4 raw data blocks */
    nkp32s crcCheck;                     /* 16 bits; written only when protectionAbsent is 0 */
} nkpAacAdtsHeader;

/* Program configuration element. Only the first `count` entries of each
 * array are written. */
typedef struct {
    nkp32s elementInstanceTag;           /* 4 bits */
    nkp32s profile;                      /* 2 bits */
    nkp32s samplingFrequencyIndex;       /* 4 bits */
    nkp32s numFrontElt;                  /* 4 bits */
    nkp32s numSideElt;                   /* 4 bits */
    nkp32s numBackElt;                   /* 4 bits */
    nkp32s numLfeElt;                    /* 2 bits */
    nkp32s numAssocDataElt;              /* 3 bits */
    nkp32s numValidCcElt;                /* 4 bits */
    nkp32s monoMixdownPresent;
    nkp32s monoMixdownEltNumber;         /* cleared, then read when present */
    nkp32s stereoMixdownPresent;
    nkp32s stereoMixdownEltNumber;       /* cleared, then read when present */
    nkp32s matrixMixdownIdxPresent;
    nkp32s matrixMixdownIdx;             /* 2 bits; cleared, then read when present */
    nkp32s pseudoSurroundEnable;         /* cleared, then read with matrixMixdownIdx */
    nkp32s frontEltIsCpe[16];
    nkp32s frontEltTagSelect[16];
    nkp32s sideEltIsCpe[16];
    nkp32s sideEltTagSelect[16];
    nkp32s backEltIsCpe[16];
    nkp32s backEltTagSelect[16];
    nkp32s lfeEltTagSelect[4];
    nkp32s assocDataEltTagSelect[8];
    nkp32s ccEltIsIndSw[16];
    nkp32s validCcEltTagSelect[16];
    nkp32s commentFieldBytes;            /* 0..255 */
    nkp8u commentFieldData[255];
} nkpAacPrgCfgElt;

/* ADIF header. */
typedef struct {
    nkp32u adifId;                       /* 32 bits ("ADIF"; not compared) */
    nkp32s copyrightIdPresent;
    nkp32s originalCopy;
    nkp32s home;
    nkp32s bitstreamType;                /* 0 constant rate, 1 variable rate */
    nkp32s bitrate;                      /* 23 bits */
    nkp32s numPrgCfgElt;                 /* the 4-bit field plus one: 1..16 */
    nkp32s adifBufferFullness[16];       /* 20 bits; entry i only with bitstreamType 0 */
    nkp8u copyrightId[9];                /* only when copyrightIdPresent is 1 */
} nkpAacAdifHeader;

/* TNS data of one channel (64 words). Filters are stored compactly: walk the
 * windows (8 for eight short windows, else 1), each window's nFilt filters,
 * taking length and order for every filter, and a direction and `order`
 * coefficients only for filters whose order is not 0. */
typedef struct {
    nkp32s tnsDataPresent;
    nkp32s nFilt[8];       /* filters per window (2 bits long, 1 bit each short window) */
    nkp32s coefRes[8];     /* coef_res + 3 (3 or 4), only for windows with filters */
    nkp32s length[8];      /* per filter in stream order (6 bits long, 4 bits short) */
    nkp32s order[8];       /* per filter (5 bits long, 3 bits short) */
    nkp32s direction[16];  /* per filter of non-zero order */
    nkp8s coef[60];        /* all coefficients, each sign-extended from its width
                              coefRes - coef_compress (2..4 bits) */
} nkpAacTnsData;

/* Extension-layer header of a two-layer stream. */
typedef struct {
    nkp32s msMaskPresent;       /* 2 bits; only with the stereo switch */
    nkp32s maxSfb;              /* 6 bits long, 4 bits eight short windows */
    nkp8u* pMsUsed;             /* set by the caller: 4 x 60 bytes, M/S flag per band, 60 per group */
    nkpAacTnsData tnsData[2];
    nkp32s bandFlags[2][51];    /* per channel, compact: entry k belongs to the k-th band read */
} nkpAacExtensionHeader;

/* Window information of one channel or of a common window. */
typedef struct {
    nkp32s icsReservedBit;
    nkp32s windowSequence;            /* 2 bits */
    nkp32s windowShape;               /* 1 bit */
    nkp32s maxSfb;                    /* 6 bits long (at most 51), 4 bits short */
    nkp32s scaleFactorGrouping;       /* 7 bits, eight short windows only */
    nkp32s predictorDataPresent;      /* cleared first; read for long windows */
    nkp32s predictorReset;            /* cleared for long windows, then read with prediction */
    nkp32s predictorResetGroupNumber; /* 5 bits, when predictorReset is 1 */
    nkp8u predictionUsed[41];         /* per band below the prediction limit */
    nkp32s numWindowGroups;           /* 1..8 */
    nkp32s windowGroupLength[8];      /* windows per group; long: group 0 of length 1 */
} nkpAacIcsInfo;

/* Channel pair element header. */
typedef struct {
    nkp32s commonWindow;
    nkp32s msMaskPresent;             /* 2 bits */
    nkp8u msUsed[8 * 60];             /* M/S flag per band, 60 bytes per window group */
} nkpAacCpeInfo;

/* Long-term prediction side data of one channel (88 words). The LTP reader
 * writes the fields the stream carries; only the main-layer header clears
 * the whole record first. */
typedef struct {
    nkp32s ltpDataPresent;
    nkp32s ltpLag;                    /* 11 bits */
    nkp16s ltpCoef;                   /* the coefficient in Q14 (9352 .. 22438) */
    nkp16s ltpCoefHigh;               /* the upper half of ltpCoef's word: not read from the stream */
    nkp32s ltpLongDataPresent;        /* long windows: a copy of ltpDataPresent */
    nkp32s ltpLongUsed[40];           /* per band 0..39 */
    nkp32s ltpShortUsed[8];           /* per short window */
    nkp32s ltpShortLagPresent[8];
    nkp32s ltpShortLag[8];            /* lag of each used short window */
    nkp32s reserved[20];              /* not read from the stream */
} nkpAacLtpInfo;

/* Main-layer header of a two-layer stream; also the LTP destination of the
 * MPEG-4 channel readers. */
typedef struct {
    nkp32s windowSequence;
    nkp32s windowShape;
    nkp32s maxSfb;
    nkp32s scaleFactorGrouping;
    nkp32s numWindowGroups;
    nkp32s windowGroupLength[8];
    nkp32s msMaskPresent;             /* 2 bits */
    nkp8u* pMsUsed;                   /* set by the caller: 8 x 60 bytes */
    nkpAacTnsData tnsData[2];
    nkpAacLtpInfo ltpInfo[2];
} nkpAacMainHeader;

/* Per-channel record of the noiseless decoders. */
typedef struct {
    nkp32s reserved0[2];              /* neither read nor written */
    nkp32s samplingFrequencyIndex;    /* in: 0..11 */
    nkp32s predSfbMax;                /* in: bands that may carry prediction flags (0 for
                                         the low-complexity decoder) */
    nkp32s reserved1;                 /* neither read nor written */
    nkp32s frameLength;               /* out: 1024, or 128 for eight short windows */
    nkp32s numWindows;                /* out: 1 or 8 */
    nkp32s numSwb;                    /* out: bands of the window length at this rate */
    nkp32s globalGain;                /* out: 8 bits */
    nkp32s pulseDataPresent;          /* out */
    nkp32s tnsDataPresent;            /* out */
    nkp32s gainControlDataPresent;    /* out */
    nkpAacIcsInfo* pIcsInfo;          /* in: the channel's window information */
    nkp8u sectCb[120];                /* out: code book of each section, groups one after another */
    nkp8u sectEnd[120];               /* out: end band (exclusive) of each section */
    nkp32s numSec[8];                 /* out: sections per group */
    nkp32s nFilt[8];                  /* out: the TNS filters, as in nkpAacTnsData */
    nkp32s coefRes[8];
    nkp32s length[8];
    nkp32s order[8];
    nkp32s direction[16];
} nkpAacChanInfo;

/* Reads a 7-byte ADTS header (9 bytes when protectionAbsent is 0: the CRC
 * word, not verified) starting at bit 0 of *ppBitStream, and advances the
 * pointer by 7 or 9 bytes. The sync word is skipped, not compared, and no
 * field is checked. Reads at most 16 bytes.
 * Statuses: NullPointer. */
NKPAC_API nkpStatus nkpsUnpackADTSFrameHeader_AAC(nkp8u** ppBitStream, nkpAacAdtsHeader* pAdtsHeader);

/* Reads an ADIF header starting at bit 0 of *ppBitStream with its
 * numPrgCfgElt program configuration elements into pPrgCfgElt[0..], and
 * advances the pointer past the last one (a PCE ends byte-aligned). The
 * header's fields and the PCEs follow each other without alignment, as in
 * the stream. prgCfgEltMax is the capacity of pPrgCfgElt, 1..16.
 * Reads at most 4,936 bytes (16 PCEs with full comments).
 * Statuses: NullPointer; BadAacPceCount (capacity outside 1..16, before
 * reading; or the stream declares more PCEs than the capacity, after the
 * fixed fields: those stay written and the pointer is left on the byte
 * reached). */
NKPAC_API nkpStatus nkpsUnpackADIFHeader_AAC(nkp8u** ppBitStream, nkpAacAdifHeader* pAdifHeader,
                                             nkpAacPrgCfgElt* pPrgCfgElt, int prgCfgEltMax);

/* Reads a program configuration element (after its identifier): the fixed
 * fields, the element lists, byte alignment (relative to the buffer's bytes)
 * and the comment. Reads at most 312 bytes.
 * Statuses: NullPointer, BadAacBitOffset. */
NKPAC_API nkpStatus nkpsDecodePrgCfgElt_AAC(nkp8u** ppBitStream, int* pBitOffset, nkpAacPrgCfgElt* pPrgCfgElt);

/* Reads a data stream element (after its identifier): tag, align flag,
 * count (8 bits, plus 8 more when it is 255: 0..510), byte alignment when
 * flagged, then the payload into pDataElt, which must hold 510 bytes.
 * Reads at most 521 bytes.
 * Statuses: NullPointer, BadAacBitOffset. */
NKPAC_API nkpStatus nkpsDecodeDatStrElt_AAC(nkp8u** ppBitStream, int* pBitOffset, int* pDataTag, int* pDataCnt,
                                            nkp8u* pDataElt);

/* Reads a fill element (after its identifier): count (4 bits; 15 means
 * 15 + the next 8 bits - 1: 0..269), then that many bytes, unparsed (the
 * extension type nibble included), into pFillElt, which must hold 269 bytes.
 * Reads at most 279 bytes.
 * Statuses: NullPointer, BadAacBitOffset. */
NKPAC_API nkpStatus nkpsDecodeFillElt_AAC(nkp8u** ppBitStream, int* pBitOffset, int* pFillCnt, nkp8u* pFillElt);

/* Reads the extension-layer header of a two-layer stream: max_sfb; with the
 * stereo switch, msMaskPresent and (value 1) the M/S flags of bands
 * startBand..maxSfb-1 into pMsUsed[g * 60 + band] for one group (long) or
 * four groups (eight short windows, always four); with the TNS switch,
 * tnsDataPresent and TNS data of both channels (the records are not cleared
 * first, and an over-long filter order ends that channel's TNS data early
 * without failing: reading goes on after the order field); with the stereo
 * and band-flags switches, per channel either 8 window flags (eight short
 * windows, startBand 0 only) or one flag for each band from startBand to
 * min(bandLimit, maxSfb) - 1 whose group-0 M/S flag is 0, stored compactly.
 * pExtHeader->pMsUsed (240 bytes) is required when the stereo switch is 1.
 * Reads at most 97 bytes.
 * Statuses: NullPointer (pMsUsed included when needed), BadAacBitOffset,
 * BadAacHeaderFlag (tnsSwitch), BadAacExtFlag2 (stereoSwitch),
 * BadAacExtFlag3 (bandFlagsSwitch), BadAacMaxSfb (startBand or bandLimit
 * outside 0..51), BadAacWindowSequence (above 3); then BadAacMaxSfb for a
 * 6-bit max_sfb above 60 (the field stays written). */
NKPAC_API nkpStatus nkpsDecodeExtensionHeader_AAC(nkp8u** ppBitStream, int* pBitOffset,
                                                  nkpAacExtensionHeader* pExtHeader, int tnsSwitch,
                                                  int stereoSwitch, int bandFlagsSwitch, int startBand,
                                                  int bandLimit, int windowSequence);

/* Reads a channel pair element's header (after identifier and tag):
 * common_window; if 1, the ics_info into pIcsInfo with prediction flags for
 * bands below min(maxSfb, predSfbMax) (entries from there up to predSfbMax
 * cleared), then msMaskPresent and, when it is 1, one M/S flag per group and
 * band below maxSfb into msUsed[g * 60 + band] (values 0, 2 and 3 leave
 * msUsed as it was). Reads at most 26 bytes.
 * Statuses: NullPointer, BadAacBitOffset, BadAacPrediction (predSfbMax
 * outside 0..41); BadAacMaxSfb (a long window's max_sfb above 51). */
NKPAC_API nkpStatus nkpsDecodeChanPairElt_AAC(nkp8u** ppBitStream, int* pBitOffset, nkpAacIcsInfo* pIcsInfo,
                                              nkpAacCpeInfo* pCpeInfo, int predSfbMax);

/* As nkpsDecodeChanPairElt_AAC with the MPEG-4 ics_info: first the
 * ltpDataPresent words of both pMainHeader->ltpInfo are cleared; a long
 * window's predictor flag then means prediction for audio object type 1
 * (predSfbMax must then lie in 0..41: BadAacPrediction after the reset
 * fields), and LTP for any other type: windowSequence and maxSfb are copied
 * into pMainHeader, and ltp_data_present with the LTP data of channel 0 and
 * of channel 1 are read into its ltpInfo. Reads at most 30 bytes.
 * Statuses: NullPointer, BadAacBitOffset, BadAacMaxSfb (predSfbMax outside
 * 0..51); BadAacMaxSfb or BadAacPrediction from the ics_info. */
NKPAC_API nkpStatus nkpsDecodeChanPairElt_MP4_AAC(nkp8u** ppBitStream, int* pBitOffset, nkpAacIcsInfo* pIcsInfo,
                                                  nkpAacCpeInfo* pCpeInfo, nkpAacMainHeader* pMainHeader,
                                                  int predSfbMax, int audioObjectType);

/* Reads the main-layer header of a two-layer stream: window sequence and
 * shape, max_sfb (not range-checked) and grouping (long: one group of length
 * 1, the other seven lengths cleared); with two channels msMaskPresent and
 * the M/S flags into pMainHeader->pMsUsed (1: read; 2: all set; 0, 3: all
 * cleared, for every group and band below maxSfb; pMsUsed, 480 bytes, is
 * required for two channels); then per channel the cleared TNS record with
 * tnsDataPresent and the TNS data (an over-long order ends it without
 * failing) and the cleared LTP record with ltpDataPresent and the LTP data.
 * The whole record is read even when unsupportedMode is 1, which marks a
 * stream this library cannot decode further: the status is then
 * nkpStatusAacNotSupported. Reads at most 120 bytes.
 * Statuses: NullPointer (pMsUsed included with two channels),
 * BadAacBitOffset, BadAacElementChannels (channels not 1 or 2),
 * BadAacHeaderFlag (unsupportedMode not 0 or 1); AacNotSupported. */
NKPAC_API nkpStatus nkpsDecodeMainHeader_AAC(nkp8u** ppBitStream, int* pBitOffset, nkpAacMainHeader* pMainHeader,
                                             int channels, int unsupportedMode);

/*
 * Noiseless decoding of one individual channel stream (after an SCE's or
 * LFE's tag, or for each channel of a CPE after its header): global gain,
 * ics_info where the element has no common window, section data, scale
 * factors, pulse, TNS and gain-control data, and the Huffman-coded spectrum.
 *
 * Caller buffers:
 *  - pDstScaleFactor, 8 * 51 values, maxSfb per window group, group after
 *    group: the scale factor (code books 1..11), the noise energy (13), the
 *    intensity position (14, 15; two's complement in 16 bits), 0 (book 0).
 *    Scale factors and noise energies share one accumulator, which starts
 *    at the global gain: the first noise band sets it to globalGain - 346 +
 *    its 9-bit value (no range check), later bands of either kind add their
 *    difference, and a result outside 0..255 gives BadAacScaleFactor (the
 *    band's value is not stored). Intensity positions have their own
 *    accumulator from 0, without range check. Code book 12 gives
 *    BadAacCodebook.
 *  - pDstSpectrum, 1024 values: group g takes windowGroupLength[g] * (128 or
 *    1024) lines; in a group the bands follow in order, each with its lines
 *    for all the group's windows one window after another (the stream's
 *    interleaved order). Lines of code books 0, 13, 14, 15 and lines above
 *    the last section are 0. A quantised value's magnitude is at most 8191
 *    (escape prefix of at most 8 one bits: a ninth one gives
 *    BadAacQuantValue, the cursor after it, and nothing of that pair
 *    stored); pulses are added after decoding (to a line that is not
 *    positive, zero included, the amplitude is subtracted).
 *  - pDstSfbCb, 8 * 51 bytes, maxSfb per group: each band's code book. A
 *    section that runs past maxSfb writes its code book for all its bands
 *    (at most 134 bytes in all) before BadAacSectionData.
 *  - pDstTnsCoef, 60 bytes: the TNS coefficients, as in nkpAacTnsData.
 *
 * A section of length 0 gives BadAacSectionData (after its code book and
 * length fields). A section's length fields continue after an escape value
 * (31 long, 7 short) as long as the running end has not passed maxSfb.
 * Pulse data: a start band above 51 stops at once, one not below numSwb
 * after the pulse data; a pulse that reaches line 1024 stops after the
 * pulses before it were added (both BadAacPulseData).
 *
 * Window information given by the caller (pIcsInfo with commonWin 1, or the
 * layer mode of nkpsNoiselessDecode_AAC) is checked before use: a window
 * sequence other than 2 counts as long; a long window needs one group of
 * length 1, eight short windows 1..8 groups of lengths 1..8 that add up to 8
 * (else BadAacWindowGroups).
 *
 * Read slack: the stream buffer must be readable to the end of the aligned
 * word after the one holding the last bit decoded (at most 7 bytes past its
 * byte). On corrupt data a call reads at most 3,577 bytes.
 */

/* Low-complexity profile. pChanInfo->samplingFrequencyIndex (0..11) and
 * predSfbMax (0) are inputs, pChanInfo->pIcsInfo the channel's window
 * information: with commonWin 0 the ics_info is read into it (a predictor
 * flag is read with its reset fields and no band flags), with commonWin 1 it
 * is used as the caller filled it (nkpsDecodeChanPairElt_AAC). Code book 13
 * (noise substitution) is refused; use nkpsNoiselessDecode_AAC for it.
 * Statuses: NullPointer (every pointer, the byte pointer and pIcsInfo),
 * BadAacBitOffset, BadAacNoiselessMode (commonWin not 0 or 1),
 * BadAacSamplingIndex, BadAacPrediction (predSfbMax not 0); then in stream
 * order: BadAacMaxSfb (above 51, or above numSwb), BadAacWindowGroups (the
 * caller's groups), BadAacSectionData, BadAacCodebook or BadAacScaleFactor
 * (scale factors: code book 12 or 13), BadAacPulseData (with eight short
 * windows, or a bad start band), BadAacTnsOrder, BadAacGainControl (gain
 * control present), DataError (a section beyond numSwb; max_sfb's check
 * keeps it from happening here), BadAacCodebook or BadAacQuantValue
 * (spectrum), BadAacPulseData (pulse position). */
NKPAC_API nkpStatus nkpsNoiselessDecoder_LC_AAC(nkp8u** ppBitStream, int* pBitOffset, int commonWin,
                                                nkpAacChanInfo* pChanInfo, nkp16u* pDstScaleFactor,
                                                nkp32s* pDstSpectrum, nkp8u* pDstSfbCb, nkp8s* pDstTnsCoef);

/* General form for the MPEG-2 and MPEG-4 object types (audioObjectType
 * 0..16), with noise substitution. With layerFlag 1 (second layer of a
 * two-layer stream) windowSequence and maxSfb are the arguments, the window
 * groups those of pMainHeader, and there are no pulse, TNS or gain-control
 * fields. With layerFlag 0 and commonWin 0 the MPEG-4 ics_info is read into
 * pChanInfo->pIcsInfo (prediction limit pChanInfo->predSfbMax for object
 * type 1, else LTP data of one channel into pMainHeader->ltpInfo[0]); with
 * commonWin 1 the caller's pIcsInfo is used. maxSfb is not compared with
 * numSwb: a section beyond numSwb gives DataError when the spectrum reaches
 * it. Eight short windows take at most 15 bands.
 * Statuses: NullPointer (every pointer, the byte pointer, and pIcsInfo
 * unless layerFlag is 1), BadAacBitOffset, BadAacNoiselessMode (commonWin),
 * BadAacWindowSequence (windowSequence above 3), BadAacNoiselessFlag
 * (layerFlag), BadAacLimit16 (audioObjectType above 16), BadAacMaxSfb
 * (maxSfb above 51), BadAacSamplingIndex; then in stream order: BadAacMaxSfb
 * or BadAacPrediction (ics_info), BadAacMaxSfb (long above 51, short above
 * 15), BadAacWindowGroups, and the data errors of the low-complexity decoder
 * (noise bands accepted; DataError for a section beyond numSwb). */
NKPAC_API nkpStatus nkpsNoiselessDecode_AAC(nkp8u** ppBitStream, int* pBitOffset, nkpAacMainHeader* pMainHeader,
                                            nkp16u* pDstScaleFactor, nkp32s* pDstSpectrum, nkp8u* pDstSfbCb,
                                            nkp8s* pDstTnsCoef, nkpAacChanInfo* pChanInfo, int windowSequence,
                                            int maxSfb, int commonWin, int layerFlag, int audioObjectType);
/* NKPAC-END aac-stream */

/* ---- AAC: inverse quantisation, stereo tools, prediction, TNS ----------- */
/* NKPAC-SECTION aac-tools */
/*
 * The spectral tools of an AAC decoder, run on one frame after noiseless
 * decoding: inverse quantisation, M/S and intensity stereo, reordering of
 * eight short windows into window order, the Main-profile frequency-domain
 * predictor and the TNS filter.
 *
 * Band layout (every tool but the predictor): winLen is 1024 (one long
 * window) or 128 (eight short windows); numWinGrp window groups with
 * pWinGrpLen[g] windows each; maxSfb bands per group (0..51 and at most the
 * band count of the sampling index for that window length); samplingIndex
 * 0..11 picks the scale-factor band offsets of ISO/IEC 14496-3. Group g
 * takes pWinGrpLen[g] * winLen consecutive lines; inside a group band b
 * holds its lines of every window of the group, one window after another
 * (the stream's order, as the noiseless decoders deliver it). Per-band side
 * arrays (scale factors, intensity positions, code books) hold maxSfb
 * entries per group, group after group; M/S flags 60 bytes per group.
 *
 * Window counts: each pWinGrpLen[g] must lie in 1..8 and together they may
 * not exceed 8 windows (exactly 1 for a 1024-line window), so that no tool
 * reaches past 1024 lines; a grouping that breaks this is refused with
 * BadAacWindowGroups after all the other argument checks. Windows past the
 * groups' total are left alone. Checks below list the statuses in their
 * order; the window-count check always comes last.
 */

/* Inverse quantisation in place: each line v (|v| <= 8191) of a band whose
 * code book is not 0, 13, 14 or 15 becomes sign(v) * |v|^(4/3) *
 * 2^((sf - 100)/4) * 8, truncated toward zero (3 fraction bits), saturated
 * to +-(2^31 - 1); sf = pScaleFactor[band] (0..255 from the noiseless
 * decoders, any value accepted). Bands of code books 0, 13, 14 and 15 are
 * not touched (zero, noise and intensity bands belong to other tools).
 * Results: the power comes from a table of |v|^(4/3) rounded to double,
 * the band factor 2^((sf - 100)/4) * 8 is a double, one double product,
 * then truncation. That is the exactly truncated value for every line at
 * every scale factor 0..255 (checked against a 64-bit-mantissa model); an
 * exact value within about 1e-15 relative of an integer could in principle
 * come out one unit low. Both code paths run the same arithmetic and give
 * identical results; the caller's MXCSR does not affect them.
 * pSrcDstSpectrum: 1024 lines. Checks: a null pointer (NullPointer); winLen
 * 128 with numWinGrp outside 1..8, or winLen 1024 with numWinGrp not 1
 * (BadAacWindowGroups); any other winLen (BadAacWindowLength); maxSfb
 * outside 0..51 (BadAacMaxSfb); samplingIndex outside 0..11
 * (BadAacSamplingIndex); maxSfb above the band count (BadAacMaxSfb); the
 * window counts (BadAacWindowGroups). Then, working band by band and line
 * by line, a magnitude above 8191 stops the call with BadAacQuantValue: the
 * lines before it stay converted. */
NKPAC_API nkpStatus nkpsQuantInv_AAC_32s_I(nkp32s* pSrcDstSpectrum, const nkp16u* pScaleFactor, int numWinGrp,
                                           const nkp32s* pWinGrpLen, int maxSfb, const nkp8u* pSfbCb,
                                           int samplingIndex, int winLen);

/* M/S stereo in place. For each band of each group, with the right
 * channel's code book cb and the band's flag pMsUsed[g * 60 + b]:
 *  - cb 14 or 15 (intensity band): when msMaskPresent is 1 and the flag is
 *    set, the code book is changed in place to the other one (14 <-> 15) so
 *    that the intensity step inverts the band; the lines are not touched;
 *  - otherwise, when msMaskPresent is 2 or the flag is set (not 0), and cb
 *    is not 13:
 *    left = L + R, right = L - R, 32-bit wrap-around, no 1/sqrt(2) factor;
 *  - other bands stay as they are.
 * pMsUsed: 60 bytes per group (not read when msMaskPresent is 2, but
 * required); pSfbCbR: maxSfb code books per group, in/out. A mask other
 * than 1 or 2 is answered with BadAacMsMask (-142), the status named for
 * exactly that condition. Checks: a null pointer (NullPointer); winLen and
 * numWinGrp as for nkpsQuantInv_AAC_32s_I (BadAacWindowGroups,
 * BadAacWindowLength); maxSfb outside 0..51 (BadAacMaxSfb); samplingIndex
 * (BadAacSamplingIndex); msMaskPresent not 1 or 2 (BadAacMsMask); maxSfb
 * above the band count (BadAacMaxSfb); the window counts
 * (BadAacWindowGroups). */
NKPAC_API nkpStatus nkpsDecodeMsStereo_AAC_32s_I(nkp32s* pSrcDstL, nkp32s* pSrcDstR, int msMaskPresent,
                                                 const nkp8u* pMsUsed, nkp8u* pSfbCbR, int numWinGrp,
                                                 const nkp32s* pWinGrpLen, int maxSfb, int samplingIndex,
                                                 int winLen);

/* Intensity stereo: in every band whose right-channel code book is 15
 * (sign +1) or 14 (sign -1), right = sign * x with x = left * 2^(-p/4) and
 * p = pIsPosition[band] read as a two's-complement 16-bit value (the
 * noiseless decoders' scale-factor output); other bands of pDstR are not
 * written. With T[k] = round(2^30 * 2^(-k/4)) and U[k] = round(2^30 *
 * 2^(k/4)), k = 0..3, 64-bit products and >> arithmetic (toward minus
 * infinity):
 *  - p = -3..7: |left| * 2^(-p/4) truncated toward zero (the factor held
 *    in Q62), so x is within one unit of the exact value;
 *  - p >= 8: x = (left * T[p & 3]) >> (30 + (p >> 2)), i.e. the product's
 *    high word shifted right by (p >> 2) - 2, shifts above 63 held at 63
 *    (x is then 0 or -1);
 *  - p < -3: left is first shifted left by (((128 - p) >> 2) + 2) mod 32 in
 *    32-bit wrap-around arithmetic, then x = (that * U[-p & 3]) >> 32; so
 *    a line whose scale-up by 2^(2 + (-p >> 2)) does not fit 32 bits wraps,
 *    and below -127 the shift comes round again (p = -128 gives x = left).
 * In the last two the Q30 factors add up to |x| * 2^-30 to the one unit.
 * x keeps its low 32 bits (results too large for 32 bits wrap around) and
 * the sign is applied afterwards: -x for code book 14. Checks: a null pointer
 * (NullPointer); winLen and numWinGrp as for nkpsQuantInv_AAC_32s_I;
 * maxSfb outside 0..51 (BadAacMaxSfb); samplingIndex (BadAacSamplingIndex);
 * maxSfb above the band count (BadAacMaxSfb); the window counts
 * (BadAacWindowGroups). */
NKPAC_API nkpStatus nkpsDecodeIsStereo_AAC_32s(const nkp32s* pSrcL, nkp32s* pDstR, const nkp16u* pIsPosition,
                                               const nkp8u* pSfbCbR, int numWinGrp, const nkp32s* pWinGrpLen,
                                               int maxSfb, int samplingIndex, int winLen);

/* Eight short windows from the stream's band-interleaved order into window
 * order: in group g, band b's lines for window j of the group go to line
 * swbOffset[b] of window j (window j of a group starts j * 128 lines into
 * it); lines swbOffset[maxSfb]..127 of each window of the groups are set to
 * 0. pSrc and pDst (1024 lines each) must not overlap. Checks: a null
 * pointer (NullPointer); winLen not 128 (BadAacWindowLength); numWinGrp
 * outside 1..8 (BadAacWindowGroups); maxSfb outside 0..51 (BadAacMaxSfb);
 * samplingIndex (BadAacSamplingIndex); maxSfb above the short-window band
 * count (BadAacMaxSfb); the window counts (BadAacWindowGroups). */
NKPAC_API nkpStatus nkpsDeinterleaveSpectrum_AAC_32s(const nkp32s* pSrc, nkp32s* pDst, int numWinGrp,
                                                     const nkp32s* pWinGrpLen, int maxSfb, int samplingIndex,
                                                     int winLen);

/*
 * Frequency-domain prediction (AAC Main profile): a backward-adaptive
 * second-order lattice predictor per spectral line of long windows, in
 * single precision. The state starts at the caller's buffer address itself
 * (no alignment step; its arrays are aligned inside it) and holds, per
 * line, cor0, cor1, var0, var1, r0, r1, each kept at 16-bit precision (the
 * low 16 bits of the float cleared). A reset sets cor, r to 0 and var to
 * 1.0. The state keeps pointers into its own buffer: do not move or copy
 * it, build a new one.
 *
 * One line, x the reconstructed value, every operation one single-precision
 * IEEE operation in exactly this order (no fused multiply-add, no wider
 * intermediates; the caller's MXCSR is set aside for the call, so results
 * do not depend on it):
 *   k1 = (M[var0] * cor0) * E[var0];  p1 = r0 * k1
 *   p2 = ((M[var1] * cor1) * E[var1]) * r1
 *   pred = p2 + p1, rounded to 16 bits (0x8000 added to the bit pattern,
 *          the low 16 bits cleared)
 *   forward: out = in - pred, x = in; inverse: x = line + pred (written)
 *          in bands whose flag is set, else x = line (not written)
 *   e1 = x - p1
 *   cor0 = cor0 * 0.90625 + r0 * x;  cor1 = cor1 * 0.90625 + r1 * e1
 *   var0 = (x * x + r0 * r0) * 0.5 + var0 * 0.90625
 *   var1 = (e1 * e1 + r1 * r1) * 0.5 + var1 * 0.90625
 *   r1 = (r0 - k1 * x) * 0.953125;  r0 = x * 0.953125
 *   all six truncated to 16 bits.
 * M[m] = 0.953125 / (1 + m/128) rounded to 8 significant bits, m the 7
 * mantissa bits of the variance (bits 16..22); E[e] = 2^(127 - e) for the
 * 9 bits above them (sign and exponent) in 128..254, else 0: a variance
 * below 2.0 gives a coefficient of exactly 0.
 * Misaligned (nkpStatusMisaligned, 2): the data pointers named below are
 * not 16-byte aligned; the results are the same.
 */
typedef struct nkpsFDPState_32f nkpsFDPState_32f;

/* Size in bytes of a state for len lines: 6 * (4 * len rounded up to a
 * multiple of 64) + 128. Checks: pSize null (NullPointer); len < 1, or a
 * size that does not fit 32 bits (len above 89478464) (BadSize). */
NKPAC_API nkpStatus nkpsFDPGetSize_32f(int len, int* pSize);
/* Builds the state at pMem (GetSize bytes, any alignment), resets every
 * line and stores pMem in *ppState. Checks: ppState or pMem null
 * (NullPointer); len as for GetSize (BadSize). */
NKPAC_API nkpStatus nkpsFDPInit_32f(nkpsFDPState_32f** ppState, int len, nkp8u* pMem);
/* Allocates the state through nkpcore and builds it. Checks: ppState null
 * (NullPointer), then GetSize's checks, then NoMemory. On failure *ppState
 * is null and nothing stays allocated. */
NKPAC_API nkpStatus nkpsFDPInitAlloc_32f(nkpsFDPState_32f** ppState, int len);
/* Clears the state's tag and releases it if InitAlloc made it (a state in
 * the caller's memory is only marked unusable). Checks: null
 * (NullPointer), not a predictor state (WrongObject). */
NKPAC_API nkpStatus nkpsFDPFree_32f(nkpsFDPState_32f* pState);
/* Resets every line. Checks: null (NullPointer), WrongObject. */
NKPAC_API nkpStatus nkpsFDPReset_32f(nkpsFDPState_32f* pState);
/* Resets lines first, first + step, first + 2 step, ... below the line count
 * (nothing when first is at or past it): an AAC reset group n is first
 * n - 1, step 30. Checks: null (NullPointer); first < 0 (BadSize); step < 1
 * (BadCount); WrongObject. */
NKPAC_API nkpStatus nkpsFDPResetGroup_32f(int first, int step, nkpsFDPState_32f* pState);
/* Resets every line of each band b < bands whose pResetFlag[b] is not 0:
 * lines pBandOffset[b] .. pBandOffset[b+1] - 1, each offset held inside
 * 0..line count. Checks: pState, pBandOffset or pResetFlag null
 * (NullPointer); bands < 1 (BadSize); WrongObject. */
NKPAC_API nkpStatus nkpsFDPResetSfb_32f(const nkp32s* pBandOffset, int bands, const nkp8u* pResetFlag,
                                        nkpsFDPState_32f* pState);
/* Encoder side: for every line of the state, pDst[i] = pSrc[i] - pred and
 * the state is updated from pSrc[i] (pSrc may equal pDst). Checks: a null
 * pointer (NullPointer), WrongObject. Misaligned: pSrc or pDst. */
NKPAC_API nkpStatus nkpsFDPFwd_32f(const nkp32f* pSrc, nkp32f* pDst, nkpsFDPState_32f* pState);
/* Decoder side, in place, band by band: lines pBandOffset[b] ..
 * pBandOffset[b+1] - 1 (offsets held inside 0..line count) are predicted and
 * the prediction added where pPredUsed[b] is not 0; every line of the bands
 * updates the state, lines outside them are neither touched nor updated.
 * pBandOffset has bands + 1 entries, pPredUsed bands. Checks: pSrcDst,
 * pBandOffset, pState or pPredUsed null (NullPointer); bands < 1 (BadSize);
 * WrongObject. Misaligned: pSrcDst. */
NKPAC_API nkpStatus nkpsFDPInv_32f_I(nkp32f* pSrcDst, const nkp32s* pBandOffset, int bands,
                                     const nkp8u* pPredUsed, nkpsFDPState_32f* pState);

/* The TNS filters of one channel, in place, in 32-bit fixed point, from the
 * arrays of an nkpAacTnsData record: pNumFilt (one per window: 1 for
 * winLen 1024, 8 for 128), pLength and pOrder (one per filter, stream
 * order), pCoefRes (per window, 3 or 4), pCoef (order entries per filter of
 * non-zero order) and pDirection (one per filter of non-zero order).
 * pSrcDstSpectrum: 1024 lines (eight short windows: 128 each, in window
 * order, i.e. after nkpsDeinterleaveSpectrum_AAC_32s). reserved is not
 * read. No state: each filter starts from zero history.
 * Per window, the filters run from the top band down: top starts at the
 * band count; each filter covers bottom = max(top - length, 0) .. top and
 * then top = bottom (a filter of order 0 still takes its range, but no
 * coefficients, direction or resolution check). Its lines are
 * swbOffset[min(bottom, L)] .. swbOffset[min(top, L)] - 1, L = min(maxSfb,
 * the TNS band limit of the sampling index); direction 0 walks them upward,
 * 1 downward.
 * Coefficients: index c (-8..7) -> Q31 reflection coefficient
 * round(2^31 sin(c / iq)), iq = (2^(res-1) -+ 0.5) / (pi / 2) for c >= 0 /
 * c < 0; for resolution 3 the indices 4..7 and -5..-8 mirror 3..0 and
 * -4..-1 (7 gives 0). Step-up recursion in 64 bits: a[m] = k[m], a[i] +=
 * ((((a[m-i] + 512) >> 10) * k[m]) >> 21) from the values before step m;
 * then all a[i] are shifted right until their largest magnitude is at most
 * 2^26, leaving them with `shift` fraction bits (31 when none was needed).
 * Filter: y[n] = (x[n] * 2^shift - sum a[i] y[n-i]) >> shift, 64-bit
 * products and sum, arithmetic shift, low 32 bits kept (no saturation).
 * Checks: a null pointer (NullPointer); winLen not 128 or 1024
 * (BadAacWindowLength); samplingIndex outside 0..11 (BadAacSamplingIndex);
 * maxSfb outside 0..51 or above the band count (BadAacMaxSfb). Then per
 * window and filter, in order: the window's filter count negative or above
 * 3 (long) / 1 (short) (BadAacTnsFilterCount); a length negative or above
 * the band count (BadAacTnsLength); an order negative or above 12 / 7
 * (BadAacTnsOrder); for non-zero order, pCoefRes not 3 or 4
 * (BadAacTnsCoefRes), a coefficient index outside -8..7 (BadAacTnsCoef), a
 * direction not 0 or 1 (BadAacTnsDirection, before any line of that
 * filter changes). Such an error stops the call: earlier filters stay
 * applied. */
NKPAC_API nkpStatus nkpsDecodeTNS_AAC_32s_I(nkp32s* pSrcDstSpectrum, const nkp32s* pNumFilt, const nkp32s* pLength,
                                            const nkp32s* pOrder, const nkp32s* pCoefRes, const nkp8s* pCoef,
                                            const nkp32s* pDirection, int maxSfb, int reserved, int samplingIndex,
                                            int winLen);
/* NKPAC-END aac-tools */

/* ---- AAC: filter bank, noise substitution, long-term prediction --------- */
/* NKPAC-SECTION aac-decoder */
/* NKPAC-END aac-decoder */

/* ---- SBR: prediction coefficients --------------------------------------- */
/* NKPAC-SECTION sbr */
/*
 * Second-order prediction coefficients for the high-frequency generator of
 * an SBR decoder (covariance method). Stateless.
 *
 * Input: an array of len+2 slot pointers (time slots 0 .. len+1), each
 * pointing at numBands QMF samples (channels 0 .. numBands-1); the caller's
 * QMF matrix is used in place. For each channel k, with x(n) the sample of
 * slot n and the sums running over n = 0 .. len-1:
 *   phi01 = sum x(n+2) x*(n+1)   phi02 = sum x(n+2) x*(n)
 *   phi11 = sum |x(n+1)|^2       phi12 = sum x(n+1) x*(n)   phi22 = sum |x(n)|^2
 * (x* is the conjugate; for real samples the identity), each a running
 * single-precision sum in slot order. Then
 *   d      = phi22 phi11 - 0.99999905 |phi12|^2   (0.99999905 = 1/(1 + 1e-6)
 *            in single precision: d stays away from 0 for a channel that its
 *            two previous samples predict perfectly)
 *   alpha1 = (phi01 phi12 - phi02 phi11) / d           when d*d > 0, else 0
 *   alpha0 = -(phi01 + alpha1 phi12*) / phi11          when phi11 > 0, else 0
 * and both coefficients of the channel are reset to 0 when |alpha0|^2 >= 16
 * or |alpha1|^2 >= 16. A channel with no energy gives 0 and 0.
 *
 * The real variant takes channels four at a time while four remain, and
 * those channels (0 .. 4*floor(numBands/4) - 1) follow slightly different
 * rules, kept on purpose: alpha1 is computed whenever d != 0, alpha0
 * whenever phi11 != 0, and the pair is reset only when a square EXCEEDS 16.
 * So a coefficient of magnitude exactly 4 survives in those channels and is
 * reset in the remaining ones, and a very quiet channel (|d| below 2^-75,
 * about 2.6e-23, where d*d rounds to 0; 2^-63 when the caller flushes
 * denormals to zero) gets a computed alpha1 there and alpha1 = 0 in the
 * remaining ones. The complex variants use the one-at-a-time rules for
 * every channel.
 *
 * Coefficients are finite while len * max|x|^2 stays below about 1e19, far
 * above any QMF sample of PCM audio. Beyond that, or with NaN or infinite
 * samples, products of covariances overflow and the results follow IEEE
 * arithmetic: the four-wide channels of the real variant reset a non-finite
 * coefficient to 0 (it fails "square <= 16"), the other channels may return
 * NaN.
 *
 * Checks: any pointer argument null (NullPointer); len < 1 or numBands < 1:
 * nkpStatusOk at once, nothing read or written; then a null slot pointer
 * among slots 0 .. len+1 (NullPointer), before anything is written.
 * Any alignment; returns nkpStatusOk.
 */
/* Real samples (the low-power SBR decoder). */
NKPAC_API nkpStatus nkpsPredictCoef_SBR_R_32f_D2L(const nkp32f* const* ppSrc, nkp32f* pAlpha0, nkp32f* pAlpha1,
                                                  int numBands, int len);
/* Complex samples stored as (re, im) pairs; complex coefficients likewise. */
NKPAC_API nkpStatus nkpsPredictCoef_SBR_C_32fc_D2L(const nkp32fc* const* ppSrc, nkp32fc* pAlpha0,
                                                   nkp32fc* pAlpha1, int numBands, int len);
/* Complex samples with real and imaginary parts in separate slot arrays
 * (ppSrcRe[n][k], ppSrcIm[n][k]); the coefficients' parts are written to
 * four arrays. Same results as nkpsPredictCoef_SBR_C_32fc_D2L, bit for bit. */
NKPAC_API nkpStatus nkpsPredictCoef_SBR_C_32f_D2L(const nkp32f* const* ppSrcRe, const nkp32f* const* ppSrcIm,
                                                  nkp32f* pAlpha0Re, nkp32f* pAlpha0Im, nkp32f* pAlpha1Re,
                                                  nkp32f* pAlpha1Im, int numBands, int len);
/* NKPAC-END sbr */

/* ---- Vector quantisation and the block FIR filter ----------------------- */
/* NKPAC-SECTION vq */
/*
 * Weighted vector quantisation with two conjugate code books. A spectrum is
 * cut into sub-vectors (sub-vector k is the next pLength[k] floats of the
 * source and of the weights), and each sub-vector is represented by
 * (s0 c0 + s1 c1) / divisor: one signed vector from each code book. The
 * search has two stages: nkpsVQPreliminarySelect_32f keeps a short list of
 * candidates per sub-vector and code book, nkpsVQMainSelect_32f tries every
 * pair of candidates. nkpsVQReconstruction_32f rebuilds the spectrum;
 * nkpsVQIndexSelect_32f searches one whole code book for the single best
 * vector (a one-book quantiser, or a refinement stage).
 *
 * Signs: the searches report sign FLAGS (0: the vector as stored, 1: its
 * negation; the factor is 1 - 2 * flag, and any non-zero flag given to a
 * function counts as 1). nkpsVQReconstruction_32f takes sign FACTORS (+1 or
 * -1) per stage: convert with 1 - 2 * flag.
 *
 * Weighted distance of a code vector c to the sub-vector x with weights w:
 * sum w * ((c - x) * (c - x)), in single precision, summed element by
 * element from the first, identically in every function; with polarity also
 * the negated vector's sum w * ((c + x) * (c + x)). Sub-vector lengths must
 * lie in 0 .. the code book's dim; length 0 gives distance 0.
 *
 * Checking order of the searches and the reconstruction: the pointers
 * (NullPointer); subVectorCount < 1 returns nkpStatusOk at once, writing
 * nothing; the other scalars in parameter order (BadSize); a code book that
 * Init did not make or that Free has invalidated (WrongObject); a sub-vector
 * length outside 0 .. a code book's dim (BadSize); a candidate or chosen
 * index outside 0 .. count-1 of its code book (OutOfRange). Nothing is
 * written, the code book's work arrays included, before every check passes.
 * Floats are not checked: NaN or overflowing data give what IEEE arithmetic
 * gives (see each function for how such distances rank), never a crash.
 */
typedef struct nkpsVQCodeBook_32f nkpsVQCodeBook_32f;

/* Bytes for a code book of count vectors of dim floats:
 * (dim * 16 + 352) * count + 1888. Checks: pSize null (NullPointer); dim < 1,
 * count < 1, or a size above 2^31 - 1 (BadSize). */
NKPAC_API nkpStatus nkpsVQCodeBookGetSize_32f(int dim, int count, int* pSize);

/* Builds a code book in pBuffer (GetSize bytes, any alignment) from count
 * vectors of dim floats at pSrc (vector after vector; copied) and stores
 * pBuffer in *ppCodeBook. The code book starts at the buffer's own address;
 * its arrays begin at the first 64-byte boundary at or after 88 bytes into
 * the buffer: count vector pointers (rounded up to 64 bytes), the vectors
 * (each dim * 4 bytes rounded up to 64), then four work arrays of count
 * 32-bit entries (each rounded up to 64 bytes). The work arrays belong to
 * nkpsVQPreliminarySelect_32f; every other function only reads a code book.
 * Checks: a null pointer (NullPointer); dim, count as GetSize (BadSize). */
NKPAC_API nkpStatus nkpsVQCodeBookInit_32f(const nkp32f* pSrc, nkpsVQCodeBook_32f** ppCodeBook, int dim,
                                           int count, nkp8u* pBuffer);

/* GetSize, allocation, Init. Checks: ppCodeBook null (NullPointer); dim and
 * count (BadSize); the allocation (NoMemory); then Init's checks with the
 * buffer released again (pSrc null: NullPointer). Unlike other objects'
 * InitAlloc, a failure leaves nothing allocated; *ppCodeBook is then NULL. */
NKPAC_API nkpStatus nkpsVQCodeBookInitAlloc_32f(const nkp32f* pSrc, nkpsVQCodeBook_32f** ppCodeBook, int dim,
                                                int count);

/* Marks the code book invalid (the working functions then answer
 * WrongObject) and releases the buffer when InitAlloc made it. There is no
 * type check: pass only code books. Checks: null (NullPointer). */
NKPAC_API nkpStatus nkpsVQCodeBookFree_32f(nkpsVQCodeBook_32f* pCodeBook);

/* Candidate lists for one code book. For each sub-vector k every code
 * vector's distance d- is measured; with pPolarity[k] non-zero also d+, and
 * the vector takes the smaller with flag 1 only when d+ < d- (a tie keeps
 * flag 0). Then:
 *  - candCount < count: the candCount vectors of smallest distance, best
 *    first; among equal distances the lower index first (a NaN distance
 *    never displaces a listed one);
 *  - candCount >= count: every code vector in index order (not sorted by
 *    distance), then the last one repeated to fill candCount entries.
 * Output per sub-vector k and m = 0 .. candCount-1: pCandIndex[k*candCount
 * + m] and the flag pCandSign[k*candCount + m]. The call writes the code
 * book's work arrays: one call at a time per code book. Checks (order
 * above): a null pointer; subVectorCount < 1 (Ok); candCount < 1 (BadSize);
 * the code book (WrongObject); the lengths (BadSize). */
NKPAC_API nkpStatus nkpsVQPreliminarySelect_32f(const nkp32f* pSrc, const nkp32f* pWeight, int subVectorCount,
                                                const int* pLength, int* pCandIndex, int* pCandSign, int candCount,
                                                const int* pPolarity, nkpsVQCodeBook_32f* pCodeBook);

/* The best pair of candidates per sub-vector. ppCandIndex[b], ppCandSign[b]
 * (b = 0, 1) are the candidate lists of code book ppCodeBook[b] as
 * nkpsVQPreliminarySelect_32f writes them: candCount entries per sub-vector
 * for the first book, candCount1 for the second (0: candCount as well).
 * For every pair (i over the first list, outer; j over the second, inner):
 *   r = (s0 c0[i] + s1 c1[j]) / divisor, e = sum w * ((x - r) * (x - r)),
 * summed element by element; a pair replaces the best only when its e is
 * strictly smaller than the best so far, which starts at 1e38: the first
 * pair in search order wins a tie. When no pair comes below 1e38 (overflow,
 * NaN, a zero divisor) the first pair of the lists is reported.
 * Output at position k: ppIndex[b][k] (code-vector indices), ppSign[b][k]
 * (flags, 0 or 1) and, when pError is not NULL, pError[k] = the best e (1e38
 * when no pair came below it).
 *
 * Data alignment decides how r is formed, so results may differ in the last
 * bit between aligned and unaligned data: a sub-vector whose source and
 * weight slices both start on a 16-byte boundary takes its first
 * 4*floor(len/4) elements four at a time, multiplying by a reciprocal of the
 * divisor (the processor's reciprocal estimate a refined by one Newton step,
 * 2a - divisor*a*a; the estimate, and so the last bit, may differ between
 * processor models); its last len mod 4 elements, and every element of any
 * other sub-vector, divide by the divisor.
 *
 * Optional arguments (after the divisor): candCount1 (0: same as
 * candCount) and pError (NULL: not written). With 0 and NULL the call is
 * the plain two-book search.
 * Checks (order above): a null pointer among the eight, or a null entry in
 * one of the two-entry arrays (NullPointer); subVectorCount < 1 (Ok);
 * candCount < 1, candCount1 < 0 (BadSize); the code books (WrongObject); the
 * lengths against the smaller dim (BadSize); the candidate indices
 * (OutOfRange). */
NKPAC_API nkpStatus nkpsVQMainSelect_32f(const nkp32f* pSrc, const nkp32f* pWeight, const int* pLength,
                                         int subVectorCount, int candCount, const int* const* ppCandIndex,
                                         const int* const* ppCandSign, int* const* ppIndex, int* const* ppSign,
                                         const nkpsVQCodeBook_32f* const* ppCodeBook, nkp32f divisor,
                                         int candCount1, nkp32f* pError);

/* The single best code vector for each sub-vector, over the whole code book:
 * the smallest distance (d-, or with pPolarity[k] non-zero the smaller of d-
 * and d+ as in nkpsVQPreliminarySelect_32f), the lower index on a tie; the
 * same answer as nkpsVQPreliminarySelect_32f with candCount 1, but the code
 * book is only read, so concurrent calls may share it. A NaN distance never
 * displaces an earlier one. Output: pIndex[k], the flag pSign[k] and, when
 * pError is not NULL, pError[k] = the distance. pPolarity may be NULL (no
 * polarity anywhere). Checks (order above): a null required pointer;
 * subVectorCount < 1 (Ok); the code book (WrongObject); the lengths
 * (BadSize). */
NKPAC_API nkpStatus nkpsVQIndexSelect_32f(const nkp32f* pSrc, const nkp32f* pWeight, int subVectorCount,
                                          const int* pLength, int* pIndex, int* pSign, const int* pPolarity,
                                          const nkpsVQCodeBook_32f* pCodeBook, nkp32f* pError);

/* Rebuilds the spectrum: for each sub-vector k (pLength[k] floats of pDst,
 * consecutive), dst = ppSign[0][k] * c0 + ppSign[1][k] * c1 + ... in stage
 * order, with c_s = vector ppIndex[s][k] of code book ppCodeBook[s] and the
 * signs as factors (+1/-1; other integers scale the vector), then every value
 * times 1/stageCount (in single precision). Two stages from
 * nkpsVQMainSelect_32f with divisor 2 give exactly the r it measured on the
 * dividing route. Checks (order above): a null pointer (NullPointer);
 * subVectorCount < 1 (Ok); stageCount < 1 (BadSize); a null entry among the
 * first stageCount of ppIndex, ppSign, ppCodeBook (NullPointer); the code
 * books (WrongObject); the lengths (BadSize); the indices (OutOfRange). */
NKPAC_API nkpStatus nkpsVQReconstruction_32f(const int* const* ppIndex, const int* const* ppSign,
                                             const int* pLength, int subVectorCount, int stageCount,
                                             nkp32f* pDst, const nkpsVQCodeBook_32f* const* ppCodeBook);

/*
 * Block FIR filter: each call takes one block of blockLength floats, and the
 * output block is, element by element, taps[0] times the new block plus
 * taps[k] times the block of k calls ago (k = 1 .. numTaps-1; blocks before
 * the first call are zero). The sum is formed as taps[0]*new, then adds the
 * oldest block first, down to the block of one call ago; that order is part
 * of the result. The state is a small record that only InitAlloc makes.
 */
typedef struct nkpsFIRBlockState_32f nkpsFIRBlockState_32f;

/* Creates the state with a zero delay line. The record keeps numTaps and
 * blockLength in 16-bit fields: values above 32767 are cut to their low 16
 * bits, and a cut value below 1 is refused later by nkpsFIRBlockOne_32f
 * (BadFilterLength); the delay line is sized from the full values. Checks:
 * ppState null (NullPointer); numTaps < 1 or blockLength < 1
 * (BadFilterLength); either allocation failing (NoMemory, nothing kept).
 * *ppState is written only on success. */
NKPAC_API nkpStatus nkpsFIRBlockInitAlloc_32f(nkpsFIRBlockState_32f** ppState, int numTaps, int blockLength);

/* Releases the delay line and the record. Checks: null (NullPointer); a
 * record that InitAlloc did not make (WrongObject, nothing released). */
NKPAC_API nkpStatus nkpsFIRBlockFree_32f(nkpsFIRBlockState_32f* pState);

/* Filters one block: pSrc and pDst hold blockLength floats (they may be the
 * same array), pTaps numTaps floats. Checks: a null pointer (NullPointer);
 * the record (WrongObject); its block length or tap count below 1, or its
 * position outside 0 .. numTaps-1 (BadFilterLength). Returns
 * nkpStatusMisaligned (a warning; the block is complete) when pSrc, pDst or
 * pTaps is not 16-byte aligned, else nkpStatusOk. */
NKPAC_API nkpStatus nkpsFIRBlockOne_32f(const nkp32f* pSrc, nkp32f* pDst, nkpsFIRBlockState_32f* pState,
                                        const nkp32f* pTaps);
/* NKPAC-END vq */

#ifdef __cplusplus
}
#endif

#endif /* NKPAC_H */
