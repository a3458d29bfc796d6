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
 * Objects (state and specification objects) follow one life cycle: GetSize
 * reports the buffer size (alignment slack included); Init builds the object
 * at the first suitably aligned address inside any caller buffer; InitAlloc
 * allocates through nkpcore and then runs Init; Free releases only what
 * InitAlloc allocated. A failed InitAlloc may leave its buffers allocated
 * (its output then holds the object buffer, or NULL when nothing was
 * allocated): treat that output as unusable.
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
    nkpStatusBadBitOffset = -193
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
 * to the exact power (an exact table below 8192, a double-precision cube
 * root above). Checks: a null pointer (NullPointer), len < 0 (BadSize);
 * len 0 does nothing. Returns nkpStatusOk. */
NKPAC_API nkpStatus nkpsPow43_16s32f(const nkp16s* pSrc, nkp32f* pDst, int len);

/* Requantisation of bands: for band b, the values at offset[b]*widthMult
 * .. offset[b+1]*widthMult - 1 of src become, in dst, sign(x) *
 * trunc(|x|^(4/3) * 2^(e/4)) with e = sf[b] - globalGain - 4*sfMult,
 * limited to 0x7FFFFFFF. Internally P = trunc(|x|^(4/3) * 4096) (a table
 * below 8192; from 8192 on the magnitude is normalised and its cube root
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
 * Specifications are built once per length and are read-only afterwards (any
 * number of concurrent calls, each with its own work buffer). Init places
 * the specification at the first 64-byte-aligned address of pMemSpec (size
 * from GetSize) and uses pMemInit (GetSize's init size) as scratch; the
 * specification pointer is returned in *ppSpec. InitAlloc allocates through
 * nkpcore; Free clears the tag and releases what InitAlloc allocated (a
 * second Free, or any use after Free, gives nkpStatusWrongObject).
 *
 * Work buffers: GetBufSize's size (GetSize reports a size at least as large);
 * the buffer is used from its first 64-byte-aligned address. A null
 * pBuffer makes the call allocate one for its duration (nkpStatusNoMemory if
 * that fails). The _I forms transform in place.
 */
typedef struct nkpsMDCTFwdSpec_32f nkpsMDCTFwdSpec_32f;
typedef struct nkpsMDCTInvSpec_32f nkpsMDCTInvSpec_32f;
typedef struct nkpsMDCTFwdSpec_16s nkpsMDCTFwdSpec_16s;

/* Sizes in bytes of the specification, the Init scratch and the work buffer. */
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
 * caller's buffer of the size GetSize reports; Init clears the history). */
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
/* NKPAC-END aac-stream */

/* ---- AAC: inverse quantisation, stereo tools, prediction, TNS ----------- */
/* NKPAC-SECTION aac-tools */
/* NKPAC-END aac-tools */

/* ---- AAC: filter bank, noise substitution, long-term prediction --------- */
/* NKPAC-SECTION aac-decoder */
/* NKPAC-END aac-decoder */

/* ---- SBR: prediction coefficients --------------------------------------- */
/* NKPAC-SECTION sbr */
/* NKPAC-END sbr */

/* ---- Vector quantisation and the block FIR filter ----------------------- */
/* NKPAC-SECTION vq */
/* NKPAC-END vq */

#ifdef __cplusplus
}
#endif

#endif /* NKPAC_H */
