// Noiseless decoding of one individual channel stream: global gain, window
// information, section data, scale factors, pulse, TNS and gain-control
// data, and the Huffman-coded spectrum.
//
// Everything is read through one BitCache. The Huffman codes are walked in
// the multi-level lookup tables of huffman_tables.h: one refill before each
// code makes at least 33 bits available, enough for any scale-factor code
// and for any spectral code with its sign bits, so a tuple costs one root
// lookup (rarely a second level) and, in the unsigned books, usually no
// separate sign reads. Escapes take one refill each.
#include <cstring>

#include "aac/band_tables.h"
#include "aac/huffman_tables.h"
#include "aac/stream_syntax.h"
#include "frame/exports.h"

namespace nkp::aac {
namespace {

// The window information the decoder works with, copied from the caller's
// record or the stream.
struct Window {
    bool short_windows;
    int max_sfb;
    int num_groups;
    int32_t group_length[8];
    int num_swb;
    const int16_t* swb_offset;  // the row of the window length and rate
    int window_lines;           // 128 or 1024
};

// Sets the decoder's window from the window sequence, max_sfb and groups,
// and writes the derived fields of the channel record.
Window make_window(nkpAacChanInfo& ci, int window_sequence, int max_sfb, int num_groups, const int32_t* lengths) {
    Window w{};
    w.short_windows = window_sequence == kEightShort;
    w.max_sfb = max_sfb;
    w.num_groups = num_groups;
    const int sfi = ci.samplingFrequencyIndex;
    w.num_swb = w.short_windows ? kNumSwbShort[sfi] : kNumSwbLong[sfi];
    w.swb_offset = w.short_windows ? kSwbOffsetShort[sfi] : kSwbOffsetLong[sfi];
    w.window_lines = w.short_windows ? 128 : 1024;
    ci.numWindows = w.short_windows ? 8 : 1;
    ci.frameLength = w.window_lines;
    ci.numSwb = w.num_swb;
    if (num_groups >= 1 && num_groups <= 8) std::memcpy(w.group_length, lengths, sizeof(int32_t) * num_groups);
    return w;
}

// Groups that cover the windows exactly: a long window is one group of one
// window, eight short windows are 1..8 groups of 1..8 windows adding up to 8.
bool groups_valid(const Window& w) {
    if (!w.short_windows) return w.num_groups == 1 && w.group_length[0] == 1;
    if (w.num_groups < 1 || w.num_groups > 8) return false;
    int windows = 0;
    for (int g = 0; g < w.num_groups; ++g) {
        if (w.group_length[g] < 1 || w.group_length[g] > 8) return false;
        windows += w.group_length[g];
    }
    return windows == 8;
}

// Section data of every group. Sections hold at least one band, so a group
// has at most max_sfb of them (the last one may run past max_sfb, and then
// the group fails): at most 8 x 15 or 51 in all, which sectCb holds.
nkpStatus read_sections(BitCache& bits, const Window& w, nkpAacChanInfo& ci, uint8_t* band_cb) {
    const int length_bits = w.short_windows ? 3 : 5;
    const uint32_t escape = (1u << length_bits) - 1;
    int section = 0;
    for (int g = 0; g < w.num_groups; ++g) {
        uint8_t* row = band_cb + g * w.max_sfb;
        int band = 0, count = 0;
        while (band < w.max_sfb) {
            const uint32_t cb = bits.read(4);
            int end = band;
            uint32_t length = bits.read(length_bits);
            while (length == escape && end <= w.max_sfb) {
                end += static_cast<int>(escape);
                length = bits.read(length_bits);
            }
            end += static_cast<int>(length);
            if (end == band) return nkpStatusBadAacSectionData;  // could repeat without end
            ci.sectCb[section] = static_cast<uint8_t>(cb);
            ci.sectEnd[section] = static_cast<uint8_t>(end);
            ++section;
            ++count;
            std::memset(row + band, static_cast<int>(cb), static_cast<size_t>(end - band));
            band = end;
        }
        if (band != w.max_sfb) return nkpStatusBadAacSectionData;
        ci.numSec[g] = count;
    }
    return nkpStatusOk;
}

// Walks the sub-tables of a code from the link entry `e` (its root bits
// already consumed) and returns the leaf.
inline uint32_t walk(BitCache& bits, const uint32_t* lut, uint32_t e) {
    for (;;) {
        const uint32_t width = (e >> 16) & 15;
        e = lut[(e & 0xFFFF) + bits.peek(width)];
        if (!(e & kLookupLink)) return e;
        bits.skip(width);
    }
}

// One scale-factor code: the difference it stands for (index - 60).
inline int32_t read_sf_difference(BitCache& bits) {
    bits.refill();
    uint32_t e = kScaleFactorLookup[bits.peek(kScaleFactorRootBits)];
    if (e & kLookupLink) {
        bits.skip(kScaleFactorRootBits);
        e = walk(bits, kScaleFactorLookup, e);
    }
    bits.skip((e >> 24) & 31);
    return static_cast<int32_t>(e & 127) - 60;
}

// Scale factors, noise energies and intensity positions of every band, in
// group and band order. Scale factors and noise energies share one
// accumulator (kSeparateNoise gives noise energies their own, unchecked,
// as the coding standard keeps them); intensity positions have theirs.
template <bool kAcceptNoise, bool kSeparateNoise>
nkpStatus read_scale_factors_from(BitCache& bits, const Window& w, int global_gain, const uint8_t* band_cb,
                                  uint16_t* sf) {
    int32_t scale = global_gain, noise = 0, position = 0;
    bool first_noise = true;
    const int bands = w.num_groups * w.max_sfb;
    for (int i = 0; i < bands; ++i) {
        const uint32_t cb = band_cb[i];
        if (cb == 0) {
            sf[i] = 0;
        } else if (cb <= 11 || (cb == 13 && kAcceptNoise)) {
            int32_t& value = (cb == 13 && kSeparateNoise) ? noise : scale;
            if (cb == 13 && first_noise) {
                first_noise = false;
                value = global_gain + static_cast<int32_t>(bits.read(9)) - 346;  // no range check
            } else {
                value += read_sf_difference(bits);
                if (!(kSeparateNoise && cb == 13) && static_cast<uint32_t>(value) > 255)
                    return nkpStatusBadAacScaleFactor;
            }
            sf[i] = static_cast<uint16_t>(value);
        } else if (cb >= 14) {
            position += read_sf_difference(bits);
            sf[i] = static_cast<uint16_t>(position);
        } else {
            return nkpStatusBadAacCodebook;  // 12, and 13 where noise is not accepted
        }
    }
    return nkpStatusOk;
}

template <bool kAcceptNoise, bool kSeparateNoise>
nkpStatus read_scale_factors(BitCache& cache, const Window& w, int global_gain, const uint8_t* band_cb, uint16_t* sf) {
    BitCache bits = cache;  // in registers while the loop stores
    const nkpStatus status = read_scale_factors_from<kAcceptNoise, kSeparateNoise>(bits, w, global_gain, band_cb, sf);
    cache = bits;
    return status;
}

struct Pulses {
    int count = 0;
    int start_band = 0;
    int offset[4];
    int amplitude[4];
};

nkpStatus read_pulses(BitCache& bits, Pulses& p, int num_swb) {
    p.count = static_cast<int>(bits.read(2)) + 1;
    p.start_band = static_cast<int>(bits.read(6));
    if (p.start_band > 51) return nkpStatusBadAacPulseData;
    for (int i = 0; i < p.count; ++i) {
        p.offset[i] = static_cast<int>(bits.read(5));
        p.amplitude[i] = static_cast<int>(bits.read(4));
    }
    if (p.start_band >= num_swb) return nkpStatusBadAacPulseData;
    return nkpStatusOk;
}

nkpStatus apply_pulses(const Pulses& p, const Window& w, int32_t* spectrum) {
    int k = w.swb_offset[p.start_band];
    for (int i = 0; i < p.count; ++i) {
        k += p.offset[i];
        if (k >= 1024) return nkpStatusBadAacPulseData;
        spectrum[k] += spectrum[k] > 0 ? p.amplitude[i] : -p.amplitude[i];
    }
    return nkpStatusOk;
}

// An escape sequence after a value of magnitude 16: N = 4 + the number of
// leading one bits (at most 8), then N bits w; the magnitude is 2^N + w.
// A ninth one bit fails, with the cursor after it.
inline bool read_escape(BitCache& bits, int32_t& value) {
    bits.refill();
    const uint32_t ones = static_cast<uint32_t>(__builtin_clz(~bits.peek(32) | (1u << 22)));
    if (ones > 8) {
        bits.skip(9);
        return false;
    }
    bits.skip(ones + 1);
    const uint32_t n = 4 + ones;
    const int32_t magnitude = static_cast<int32_t>((1u << n) + bits.peek(n));
    bits.skip(n);
    value = value < 0 ? -magnitude : magnitude;
    return true;
}

// Sign-extends the 6-bit field i of a leaf (arithmetic shift intended).
inline int32_t leaf_value(uint32_t e, int i) { return static_cast<int32_t>(e << (26 - 6 * i)) >> 26; }

// Decodes the tuples of lines [p, stop) with one code book.
template <int kDim, bool kUnsigned, bool kEscape>
nkpStatus decode_tuples(BitCache& cache, const SpectralBook& book, int32_t* p, const int32_t* stop) {
    // A local copy stays in registers: the output stores cannot alias it.
    BitCache bits = cache;
    const uint32_t* lut = kSpectralLookup + book.offset;
    for (; p < stop; p += kDim) {
        bits.refill();
        uint32_t e = lut[bits.peek(kSpectralRootBits)];
        if (e & kLookupLink) {
            bits.skip(kSpectralRootBits);
            e = walk(bits, lut, e);
        }
        bits.skip((e >> 24) & 31);
        int32_t v[kDim];
        for (int i = 0; i < kDim; ++i) v[i] = leaf_value(e, i);
        if (kUnsigned && !(e & kLookupSigned)) {
            // Magnitudes: one sign bit per non-zero value follows. The code
            // and its signs take at most 20 bits, within the refill.
            for (int i = 0; i < kDim; ++i) {
                if (!v[i]) continue;
                if (bits.peek(1)) v[i] = -v[i];
                bits.skip(1);
            }
        }
        if (kEscape && (e & kLookupEscape)) {
            for (int i = 0; i < kDim; ++i) {
                if ((v[i] == 16 || v[i] == -16) && !read_escape(bits, v[i])) {
                    cache = bits;
                    return nkpStatusBadAacQuantValue;
                }
            }
        }
        for (int i = 0; i < kDim; ++i) p[i] = v[i];
    }
    cache = bits;
    return nkpStatusOk;
}

void zero_lines(int32_t* p, const int32_t* stop) {
    if (stop > p) std::memset(p, 0, sizeof(int32_t) * static_cast<size_t>(stop - p));
}

// The spectrum of every group, section by section, in the stream's
// interleaved order; the rest of each group is zero.
nkpStatus read_spectrum(BitCache& bits, const Window& w, const nkpAacChanInfo& ci, int32_t* spectrum) {
    int section = 0;
    int32_t* group = spectrum;
    for (int g = 0; g < w.num_groups; ++g) {
        const int length = w.group_length[g];
        int32_t* p = group;
        for (int s = 0; s < ci.numSec[g]; ++s, ++section) {
            const int cb = ci.sectCb[section];
            const int end = ci.sectEnd[section];
            if (end > w.num_swb) return nkpStatusDataError;
            int32_t* stop = group + w.swb_offset[end] * length;
            nkpStatus status = nkpStatusOk;
            const SpectralBook& book = kSpectralBooks[cb <= 11 ? cb : 0];
            switch (cb) {
                case 1:
                case 2:
                    status = decode_tuples<4, false, false>(bits, book, p, stop);
                    break;
                case 3:
                case 4:
                    status = decode_tuples<4, true, false>(bits, book, p, stop);
                    break;
                case 5:
                case 6:
                    status = decode_tuples<2, false, false>(bits, book, p, stop);
                    break;
                case 7:
                case 8:
                case 9:
                case 10:
                    status = decode_tuples<2, true, false>(bits, book, p, stop);
                    break;
                case 11:
                    status = decode_tuples<2, true, true>(bits, book, p, stop);
                    break;
                case 12:
                    return nkpStatusBadAacCodebook;
                default:
                    zero_lines(p, stop);
                    break;  // 0, and noise and intensity bands
            }
            if (status) return status;
            p = stop;
        }
        group += length * w.window_lines;
        zero_lines(p, group);
    }
    return nkpStatusOk;
}

// Everything after the window information. `side_data`: the pulse, TNS and
// gain-control fields are present (not in the second layer).
template <bool kAcceptNoise, bool kSeparateNoise>
nkpStatus decode_body(BitCache& bits, const Window& w, nkpAacChanInfo& ci, bool side_data, uint16_t* sf,
                      int32_t* spectrum, uint8_t* band_cb, int8_t* tns_coef) {
    if (const nkpStatus s = read_sections(bits, w, ci, band_cb)) return s;
    if (const nkpStatus s = read_scale_factors<kAcceptNoise, kSeparateNoise>(bits, w, ci.globalGain, band_cb, sf))
        return s;
    Pulses pulses;
    if (side_data) {
        ci.pulseDataPresent = static_cast<int32_t>(bits.read(1));
        if (ci.pulseDataPresent) {
            if (w.short_windows) return nkpStatusBadAacPulseData;
            if (const nkpStatus s = read_pulses(bits, pulses, w.num_swb)) return s;
        }
        ci.nFilt[0] = 0;
        ci.tnsDataPresent = static_cast<int32_t>(bits.read(1));
        if (ci.tnsDataPresent) {
            const TnsArrays tns{ci.nFilt, ci.coefRes, ci.length, ci.order, ci.direction, tns_coef};
            if (const nkpStatus s = read_tns_data(bits, w.short_windows ? kEightShort : 0, tns)) return s;
        }
        ci.gainControlDataPresent = static_cast<int32_t>(bits.read(1));
        if (ci.gainControlDataPresent) return nkpStatusBadAacGainControl;
    }
    if (const nkpStatus s = read_spectrum(bits, w, ci, spectrum)) return s;
    return pulses.count ? apply_pulses(pulses, w, spectrum) : nkpStatusOk;
}

nkpStatus decode_lc(BitCache& bits, int common_window, nkpAacChanInfo& ci, uint16_t* sf, int32_t* spectrum,
                    uint8_t* band_cb, int8_t* tns_coef) {
    ci.globalGain = static_cast<int32_t>(bits.read(8));
    nkpAacIcsInfo& ics = *ci.pIcsInfo;
    if (!common_window)
        if (const nkpStatus s = read_ics_info(bits, ics, 0)) return s;
    const Window w = make_window(ci, ics.windowSequence, ics.maxSfb, ics.numWindowGroups, ics.windowGroupLength);
    if (static_cast<uint32_t>(w.max_sfb) > static_cast<uint32_t>(w.num_swb)) return nkpStatusBadAacMaxSfb;
    if (!groups_valid(w)) return nkpStatusBadAacWindowGroups;
    return decode_body<false, false>(bits, w, ci, true, sf, spectrum, band_cb, tns_coef);
}

// The general decoder; kSeparateNoise selects the noise-energy accumulator
// (the exports keep the shared one).
template <bool kSeparateNoise>
nkpStatus decode_general(BitCache& bits, nkpAacMainHeader& main, nkpAacChanInfo& ci, int window_sequence, int max_sfb,
                         int common_window, int layer, int object_type, uint16_t* sf, int32_t* spectrum,
                         uint8_t* band_cb, int8_t* tns_coef) {
    ci.globalGain = static_cast<int32_t>(bits.read(8));
    Window w;
    if (layer) {
        w = make_window(ci, window_sequence, max_sfb, main.numWindowGroups, main.windowGroupLength);
    } else {
        nkpAacIcsInfo& ics = *ci.pIcsInfo;
        if (!common_window)
            if (const nkpStatus s = read_ics_info_mp4(bits, ics, ci.predSfbMax, object_type, 1, main)) return s;
        w = make_window(ci, ics.windowSequence, ics.maxSfb, ics.numWindowGroups, ics.windowGroupLength);
    }
    if (static_cast<uint32_t>(w.max_sfb) > (w.short_windows ? 15u : 51u)) return nkpStatusBadAacMaxSfb;
    if (!groups_valid(w)) return nkpStatusBadAacWindowGroups;
    return decode_body<true, kSeparateNoise>(bits, w, ci, !layer, sf, spectrum, band_cb, tns_coef);
}

}  // namespace
}  // namespace nkp::aac

namespace nkp {

using namespace aac;

nkpStatus nkpsNoiselessDecoder_LC_AAC(nkp8u** ppBitStream, int* pBitOffset, int commonWin, nkpAacChanInfo* pChanInfo,
                                      nkp16u* pDstScaleFactor, nkp32s* pDstSpectrum, nkp8u* pDstSfbCb,
                                      nkp8s* pDstTnsCoef) {
    if (!pChanInfo || !pDstScaleFactor || !pDstSpectrum || !pDstSfbCb || !pDstTnsCoef || !pChanInfo->pIcsInfo)
        return nkpStatusNullPointer;
    if (const nkpStatus s = check_cursor(ppBitStream, pBitOffset)) return s;
    if (static_cast<uint32_t>(commonWin) > 1) return nkpStatusBadAacNoiselessMode;
    if (static_cast<uint32_t>(pChanInfo->samplingFrequencyIndex) > 11) return nkpStatusBadAacSamplingIndex;
    if (pChanInfo->predSfbMax != 0) return nkpStatusBadAacPrediction;
    BitCache bits(*ppBitStream, *pBitOffset);
    const nkpStatus status =
        decode_lc(bits, commonWin, *pChanInfo, pDstScaleFactor, pDstSpectrum, pDstSfbCb, pDstTnsCoef);
    bits.store(ppBitStream, pBitOffset);
    return status;
}

nkpStatus nkpsNoiselessDecode_AAC(nkp8u** ppBitStream, int* pBitOffset, nkpAacMainHeader* pMainHeader,
                                  nkp16u* pDstScaleFactor, nkp32s* pDstSpectrum, nkp8u* pDstSfbCb, nkp8s* pDstTnsCoef,
                                  nkpAacChanInfo* pChanInfo, int windowSequence, int maxSfb, int commonWin,
                                  int layerFlag, int audioObjectType) {
    if (!pMainHeader || !pDstScaleFactor || !pDstSpectrum || !pDstSfbCb || !pDstTnsCoef || !pChanInfo ||
        (layerFlag != 1 && !pChanInfo->pIcsInfo))
        return nkpStatusNullPointer;
    if (const nkpStatus s = check_cursor(ppBitStream, pBitOffset)) return s;
    if (static_cast<uint32_t>(commonWin) > 1) return nkpStatusBadAacNoiselessMode;
    if (static_cast<uint32_t>(windowSequence) > 3) return nkpStatusBadAacWindowSequence;
    if (static_cast<uint32_t>(layerFlag) > 1) return nkpStatusBadAacNoiselessFlag;
    if (static_cast<uint32_t>(audioObjectType) > 16) return nkpStatusBadAacLimit16;
    if (static_cast<uint32_t>(maxSfb) > 51) return nkpStatusBadAacMaxSfb;
    if (static_cast<uint32_t>(pChanInfo->samplingFrequencyIndex) > 11) return nkpStatusBadAacSamplingIndex;
    BitCache bits(*ppBitStream, *pBitOffset);
    const nkpStatus status =
        decode_general<false>(bits, *pMainHeader, *pChanInfo, windowSequence, maxSfb, commonWin, layerFlag,
                              audioObjectType, pDstScaleFactor, pDstSpectrum, pDstSfbCb, pDstTnsCoef);
    bits.store(ppBitStream, pBitOffset);
    return status;
}

}  // namespace nkp
