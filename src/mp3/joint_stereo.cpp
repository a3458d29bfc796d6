// Joint-stereo reconstruction of one granule: M/S and intensity stereo,
// MPEG-1 and LSF, on the requantised spectra of both channels.
#include "common/fp_mode.h"
#include "common/numeric.h"
#include "frame/exports.h"
#include "common/trig.h"
#include "mp3/decoder_tables.h"
#include "mp3/requantize.h"
#include "mp3/tables.h"

#include <emmintrin.h>

#include <cmath>

namespace nkp {
namespace mp3 {
namespace {

inline int32_t round_sat(double v) {
    if (v > 2147483647.0) v = 2147483647.0;
    if (v < -2147483648.0) v = -2147483648.0;
    return _mm_cvtsd_si32(_mm_set_sd(v));
}

inline int short_index(int f, int w) { return 18 * (f / 6) + 6 * w + f % 6; }

constexpr double kInvSqrt2 = 0.70710678118654752440;

// One band (or one window of a short band) and how it is to be rebuilt.
struct Stereo {
    int32_t* left;
    int32_t* right;
    bool ms;
    bool lsf;
    int intensity_scale;  // LSF: scalefac_compress of the right channel, bit 0

    void mid_side(int i) const {
        const double m = left[i], s = right[i];
        left[i] = round_sat((m + s) * kInvSqrt2);
        right[i] = round_sat((m - s) * kInvSqrt2);
    }

    // Factors of an intensity position for the left and right outputs; false
    // for an illegal position (the band then stays as coded, M/S if on).
    bool intensity_factors(int pos, double* kl, double* kr) const {
        if (!lsf) {
            if (pos < 0 || pos >= 7) return false;
            // tan(pos pi/12) / (1 + tan) as sin / (sin + cos): exact at pos 0
            // and 6, and the same bits on every platform.
            double sn, cs;
            sincos_2pi_ratio(pos, 24, &sn, &cs);
            *kl = sn / (sn + cs);
            *kr = cs / (sn + cs);
            return true;
        }
        if (pos < 0) return false;
        // Attenuation per step: 2^-1/2 or 2^-1/4, counted here in quarter
        // powers of two and built from exact constants, not exp2.
        const int quarters_per_step = intensity_scale ? 2 : 1;
        const int e = -quarters_per_step * ((pos + 1) / 2);  // odd positions attenuate left
        const int f = -quarters_per_step * (pos / 2);        // even ones right
        // e >> 2 is a floor division; the compiler's arithmetic shift is intended.
        *kl = (pos & 1) ? std::ldexp(kQuarterPow2[e & 3], e >> 2) : 1.0;
        *kr = (pos & 1) ? 1.0 : std::ldexp(kQuarterPow2[f & 3], f >> 2);
        return true;
    }

    // Rebuild the lines of a band, given by a line-index function.
    template <class Index>
    void band(int first, int last, Index index, bool use_intensity, int pos) const {
        double kl = 0, kr = 0;
        if (use_intensity && intensity_factors(pos, &kl, &kr)) {
            for (int f = first; f < last; ++f) {
                const int i = index(f);
                const double l = left[i];
                left[i] = round_sat(l * kl);
                right[i] = round_sat(l * kr);
            }
        } else if (ms) {
            for (int f = first; f < last; ++f) mid_side(index(f));
        }
    }
};

nkpStatus check_stereo(const int* nz, const nkpMP3SideInfo* si, const nkpMP3FrameHeader* fh) {
    if (static_cast<unsigned>(nz[0]) > 576 || static_cast<unsigned>(nz[1]) > 576) return nkpStatusOutOfRange;
    for (int c = 0; c < 2; ++c)
        if (static_cast<unsigned>(si[c].blockType) > 3 || static_cast<unsigned>(si[c].mixedBlock) > 1 ||
            static_cast<unsigned>(si[c].scalefacCompress) > 511)
            return nkpStatusBadMP3SideInfo;
    if (static_cast<unsigned>(fh->id) > 1 || static_cast<unsigned>(fh->samplingFreqIndex) > 2 ||
        static_cast<unsigned>(fh->mode) > 3 || static_cast<unsigned>(fh->modeExtension) > 3)
        return nkpStatusBadMP3FrameHeader;
    return nkpStatusOk;
}

nkpStatus joint_stereo(int32_t* xr, int* nz, const int8_t* sf_right, const nkpMP3SideInfo* si,
                       const nkpMP3FrameHeader* fh, const int16_t* long_row, const int16_t* short_row) {
    if (fh->mode != 1 || fh->modeExtension == 0) return nkpStatusOk;
    const FpModeScope rounding(FpMode::Standard);
    const int bound = nz[0] > nz[1] ? nz[0] : nz[1];
    Stereo st{xr, xr + 576, (fh->modeExtension & 2) != 0, fh->id != 1, si[1].scalefacCompress & 1};
    auto linear = [](int f) { return f; };

    if (!(fh->modeExtension & 1)) {
        st.band(0, bound, linear, false, 0);
        nz[0] = nz[1] = bound;
        return nkpStatusOk;
    }

    const int32_t* right = xr + 576;
    auto sf_at = [&](int i) { return i < kScaleFactorCount ? static_cast<int>(sf_right[i]) : -1; };
    const nkpMP3SideInfo& r = si[1];
    if (r.blockType != 2) {
        // Intensity above the highest long band that holds a coded right line.
        int last = 576;
        while (last > 0 && right[last - 1] == 0) --last;
        for (int b = 0; b < 22; ++b) {
            const int first = clamp(long_row[b], 0, 576);
            const int end = clamp(long_row[b + 1], first, 576);
            const bool is = first >= last;
            st.band(first, end, linear, is, sf_at(b < 21 ? b : 20));
        }
    } else {
        int first_short = 0, sf_base = 0;
        bool short_coded = false;
        if (r.mixedBlock) {
            const MixedLayout m = mixed_layout(long_row, short_row);
            first_short = m.first_short;
            sf_base = m.long_bands;
        }
        for (int w = 0; w < 3; ++w) {
            // Highest short band of this window with a coded right line.
            int top = first_short - 1;
            for (int b = 12; b >= first_short && top < first_short; --b) {
                const int s = clamp(short_row[b], 0, 192), e = clamp(short_row[b + 1], s, 192);
                for (int f = s; f < e; ++f)
                    if (right[short_index(f, w)] != 0) {
                        top = b;
                        break;
                    }
            }
            if (top >= first_short) short_coded = true;
            for (int b = first_short; b < 13; ++b) {
                const int s = clamp(short_row[b], 0, 192), e = clamp(short_row[b + 1], s, 192);
                const int pos_band = b < 12 ? b : 11;
                st.band(s, e, [w](int f) { return short_index(f, w); }, b > top,
                        sf_at(sf_base + 3 * (pos_band - first_short) + w));
            }
        }
        if (r.mixedBlock) {
            // The long part takes intensity only when no short window is coded.
            int last = 36;
            while (last > 0 && right[last - 1] == 0) --last;
            for (int b = 0; b < sf_base; ++b) {
                const int first = clamp(long_row[b], 0, 36);
                const int end = clamp(long_row[b + 1], first, 36);
                st.band(first, end, linear, !short_coded && first >= last, sf_at(b));
            }
        }
    }
    nz[0] = nz[1] = bound;
    // Intensity bands copy the left lines into the right channel, all below
    // the left bound; M/S ones keep both within the larger bound.
    return nkpStatusOk;
}

}  // namespace
}  // namespace mp3

nkpStatus nkpsJointStereo_MP3_32s_I(nkp32s* pSrcDstXr, int* pNonZeroBound, const nkp8s* pScaleFactorR,
                                    const nkpMP3SideInfo* pSideInfo, const nkpMP3FrameHeader* pFrameHeader) {
    if (!pSrcDstXr || !pNonZeroBound || !pScaleFactorR || !pSideInfo || !pFrameHeader) return nkpStatusNullPointer;
    const nkpStatus status = mp3::check_stereo(pNonZeroBound, pSideInfo, pFrameHeader);
    if (status != nkpStatusOk) return status;
    const int row = mp3::sfb_rate_row(pFrameHeader->id, pFrameHeader->samplingFreqIndex, false);
    return mp3::joint_stereo(pSrcDstXr, pNonZeroBound, pScaleFactorR, pSideInfo, pFrameHeader, mp3::kSfbLong[row],
                             mp3::kSfbShort[row]);
}

nkpStatus nkpsJointStereoSfb_MP3_32s_I(nkp32s* pSrcDstXr, int* pNonZeroBound, const nkp8s* pScaleFactorR,
                                       const nkpMP3SideInfo* pSideInfo, const nkpMP3FrameHeader* pFrameHeader,
                                       const nkp16s* pSfbTableLong, const nkp16s* pSfbTableShort) {
    if (!pSrcDstXr || !pNonZeroBound || !pScaleFactorR || !pSideInfo || !pFrameHeader || !pSfbTableLong ||
        !pSfbTableShort)
        return nkpStatusNullPointer;
    const nkpStatus status = mp3::check_stereo(pNonZeroBound, pSideInfo, pFrameHeader);
    if (status != nkpStatusOk) return status;
    const int row = pFrameHeader->id * 3 + pFrameHeader->samplingFreqIndex;
    return mp3::joint_stereo(pSrcDstXr, pNonZeroBound, pScaleFactorR, pSideInfo, pFrameHeader,
                             pSfbTableLong + 23 * row, pSfbTableShort + 14 * row);
}

}  // namespace nkp
