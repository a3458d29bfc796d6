// Requantisation of one granule of one channel: the Huffman decoder's
// integers become the fixed-point spectrum the inverse MDCT reads (1.0 is
// 2^25), with short-block lines regrouped window-major within each subband.
#include "common/fp_mode.h"
#include "common/numeric.h"
#include "frame/exports.h"
#include "mp3/decoder_tables.h"
#include "mp3/requantize.h"
#include "mp3/tables.h"

#include <emmintrin.h>
#include <tmmintrin.h>

#include <cmath>
#include <cstring>

namespace nkp {
namespace mp3 {

namespace {

// Largest magnitude the Huffman tables with linbits can produce.
constexpr int32_t kMaxQuantised = kPow43Count - 1;

// The scale 2^(e/4) * 2^25 of a band, e in quarter steps of the standard's
// gain exponent (global gain - 210 - ...).
inline double band_scale(int e) {
    // e >> 2 is a floor division; the compiler's arithmetic shift is intended.
    const int p = (e >> 2) + kSpectrumFracBits;
    if (p < -1000 || p > 1000) return std::ldexp(kQuarterPow2[e & 3], p);
    // 2^p built directly as a double.
    const uint64_t bits = static_cast<uint64_t>(p + 1023) << 52;
    double two_p;
    std::memcpy(&two_p, &bits, sizeof two_p);
    return kQuarterPow2[e & 3] * two_p;
}

// sign(q) * |q|^(4/3) * scale, rounded to nearest and held within 32 bits.
// Returns false on a magnitude no Huffman table can produce.
inline bool requantize_line(int32_t q, double scale, int32_t* out) {
    const uint32_t mag = q < 0 ? 0u - static_cast<uint32_t>(q) : static_cast<uint32_t>(q);
    if (mag > static_cast<uint32_t>(kMaxQuantised)) return false;
    double v = kPow43[mag] * scale;
    if (v > 2147483647.0) v = 2147483647.0;
    const int32_t r = _mm_cvtsd_si32(_mm_set_sd(v));
    *out = q < 0 ? -r : r;
    return true;
}

// A run of lines of one band in place, four at a time without branches on
// the values; a group holding an impossible magnitude is redone line by line
// so that the lines before it are written and the error stops there.
inline bool requantize_run(int32_t* x, int count, double scale) {
    const __m128d s = _mm_set1_pd(scale);
    const __m128d top = _mm_set1_pd(2147483647.0);
    const __m128i limit = _mm_set1_epi32(kMaxQuantised);
    int i = 0;
    for (; i + 4 <= count; i += 4) {
        const __m128i q = _mm_loadu_si128(reinterpret_cast<const __m128i*>(x + i));
        const __m128i mag = _mm_abs_epi32(q);
        if (_mm_movemask_epi8(_mm_cmpgt_epi32(mag, limit)) != 0) break;
        alignas(16) int32_t m[4];
        _mm_store_si128(reinterpret_cast<__m128i*>(m), mag);
        const __m128d lo = _mm_min_pd(_mm_mul_pd(_mm_loadh_pd(_mm_load_sd(&kPow43[m[0]]), &kPow43[m[1]]), s), top);
        const __m128d hi = _mm_min_pd(_mm_mul_pd(_mm_loadh_pd(_mm_load_sd(&kPow43[m[2]]), &kPow43[m[3]]), s), top);
        const __m128i r = _mm_unpacklo_epi64(_mm_cvtpd_epi32(lo), _mm_cvtpd_epi32(hi));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(x + i), _mm_sign_epi32(r, q));
    }
    for (; i < count; ++i)
        if (x[i] != 0 && !requantize_line(x[i], scale, &x[i])) return false;
    return true;
}

// A scale factor's magnitude: the intensity-stereo reader marks illegal
// positions by negating the width's maximum.
inline int sf_value(int8_t v) { return v < 0 ? -v : v; }

// Index of short-block line f of window w in the inverse MDCT's order:
// subband f / 6, window-major inside it.
inline int short_index(int f, int w) { return 18 * (f / 6) + 6 * w + f % 6; }

}  // namespace

MixedLayout mixed_layout(const int16_t* long_row, const int16_t* short_row) {
    MixedLayout m{0, 0};
    while (m.long_bands < 22 && long_row[m.long_bands] < 36) ++m.long_bands;
    while (m.first_short < 13 && 3 * short_row[m.first_short] < 36) ++m.first_short;
    return m;
}

nkpStatus requantize(int32_t* xr, int* pNonZeroBound, const int8_t* sf, const nkpMP3SideInfo* si,
                     const nkpMP3FrameHeader* fh, const int16_t* long_row, const int16_t* short_row) {
    const int nz = *pNonZeroBound;
    const int gain = si->globalGain - 210;
    const int sf_shift = si->scalefacScale ? 2 : 1;  // 2 or 4 quarter steps per scale-factor unit
    const FpModeScope rounding(FpMode::Standard);

    if (si->blockType != 2) {
        for (int b = 0; b < 22; ++b) {
            const int start = clamp(long_row[b], 0, nz);
            const int end = clamp(long_row[b + 1], start, nz);
            if (start >= nz) break;
            const int pre = si->preflag ? kPretab[b] : 0;
            const double scale = band_scale(gain - ((sf_value(sf[b]) + pre) << sf_shift));
            if (!requantize_run(xr + start, end - start, scale)) return nkpStatusDataError;
        }
        for (int i = nz; i < 576; ++i) xr[i] = 0;
        int bound = nz;
        while (bound > 0 && xr[bound - 1] == 0) --bound;
        *pNonZeroBound = bound;
        return nkpStatusOk;
    }

    alignas(16) int32_t out[576];
    std::memset(out, 0, sizeof(out));
    int first_short = 0, sf_base = 0;
    if (si->mixedBlock) {
        const MixedLayout m = mixed_layout(long_row, short_row);
        for (int b = 0; b < m.long_bands; ++b) {
            const int start = clamp(long_row[b], 0, nz);
            const int end = clamp(long_row[b + 1], start, nz);
            const int pre = si->preflag ? kPretab[b] : 0;
            const double scale = band_scale(gain - ((sf_value(sf[b]) + pre) << sf_shift));
            for (int i = start; i < end; ++i) {
                if (xr[i] != 0 && !requantize_line(xr[i], scale, &out[i])) return nkpStatusDataError;
            }
        }
        first_short = m.first_short;
        sf_base = m.long_bands;
    }
    for (int b = first_short; b < 13; ++b) {
        const int start = clamp(short_row[b], 0, 192);
        const int width = clamp(short_row[b + 1], start, 192) - start;
        if (3 * start >= nz) break;
        for (int w = 0; w < 3; ++w) {
            const int at = sf_base + 3 * (b - first_short) + w;
            const int sfv = b < 12 && at < kScaleFactorCount ? sf_value(sf[at]) : 0;
            const double scale = band_scale(gain - 8 * si->subblockGain[w] - (sfv << sf_shift));
            const int in = 3 * start + w * width;
            for (int j = 0; j < width && in + j < nz; ++j) {
                const int32_t q = xr[in + j];
                if (q != 0 && !requantize_line(q, scale, &out[short_index(start + j, w)]))
                    return nkpStatusDataError;
            }
        }
    }
    std::memcpy(xr, out, sizeof(out));
    int bound = 576;
    while (bound > 0 && xr[bound - 1] == 0) --bound;
    *pNonZeroBound = bound;
    return nkpStatusOk;
}

nkpStatus check_granule(const int* pNonZeroBound, const nkpMP3SideInfo* si, const nkpMP3FrameHeader* fh) {
    if (static_cast<unsigned>(*pNonZeroBound) > 576) return nkpStatusOutOfRange;
    if (static_cast<unsigned>(si->blockType) > 3 || static_cast<unsigned>(si->mixedBlock) > 1 ||
        static_cast<unsigned>(si->globalGain) > 255 || static_cast<unsigned>(si->scalefacScale) > 1 ||
        static_cast<unsigned>(si->preflag) > 1 || static_cast<unsigned>(si->subblockGain[0]) > 7 ||
        static_cast<unsigned>(si->subblockGain[1]) > 7 || static_cast<unsigned>(si->subblockGain[2]) > 7)
        return nkpStatusBadMP3SideInfo;
    if (static_cast<unsigned>(fh->id) > 1 || static_cast<unsigned>(fh->samplingFreqIndex) > 2)
        return nkpStatusBadMP3FrameHeader;
    return nkpStatusOk;
}

}  // namespace mp3

nkpStatus nkpsReQuantize_MP3_32s_I(nkp32s* pSrcDstXr, int* pNonZeroBound, const nkp8s* pScaleFactor,
                                   const nkpMP3SideInfo* pSideInfo, const nkpMP3FrameHeader* pFrameHeader) {
    if (!pSrcDstXr || !pNonZeroBound || !pScaleFactor || !pSideInfo || !pFrameHeader) return nkpStatusNullPointer;
    const nkpStatus status = mp3::check_granule(pNonZeroBound, pSideInfo, pFrameHeader);
    if (status != nkpStatusOk) return status;
    const int row = mp3::sfb_rate_row(pFrameHeader->id, pFrameHeader->samplingFreqIndex, false);
    return mp3::requantize(pSrcDstXr, pNonZeroBound, pScaleFactor, pSideInfo, pFrameHeader, mp3::kSfbLong[row],
                           mp3::kSfbShort[row]);
}

nkpStatus nkpsReQuantizeSfb_MP3_32s_I(nkp32s* pSrcDstXr, int* pNonZeroBound, const nkp8s* pScaleFactor,
                                      const nkpMP3SideInfo* pSideInfo, const nkpMP3FrameHeader* pFrameHeader,
                                      const nkp16s* pSfbTableLong, const nkp16s* pSfbTableShort) {
    if (!pSrcDstXr || !pNonZeroBound || !pScaleFactor || !pSideInfo || !pFrameHeader || !pSfbTableLong ||
        !pSfbTableShort)
        return nkpStatusNullPointer;
    const nkpStatus status = mp3::check_granule(pNonZeroBound, pSideInfo, pFrameHeader);
    if (status != nkpStatusOk) return status;
    const int row = pFrameHeader->id * 3 + pFrameHeader->samplingFreqIndex;
    return mp3::requantize(pSrcDstXr, pNonZeroBound, pScaleFactor, pSideInfo, pFrameHeader, pSfbTableLong + 23 * row,
                           pSfbTableShort + 14 * row);
}

}  // namespace nkp
