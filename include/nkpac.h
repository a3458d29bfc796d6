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
/* NKPAC-END vector */

/* ---- Transforms: generic MDCT ------------------------------------------ */
/* NKPAC-SECTION transform */
/* NKPAC-END transform */

/* ---- MP3 ---------------------------------------------------------------- */
/* NKPAC-SECTION mp3 */
/* NKPAC-END mp3 */

/* ---- MP3 decoder steps: requantisation, joint stereo, synthesis ---------- */
/* NKPAC-SECTION mp3-decoder */
/* NKPAC-END mp3-decoder */

#ifdef __cplusplus
}
#endif

#endif /* NKPAC_H */
