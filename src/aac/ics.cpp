// Window information (ics_info, both forms), LTP data, the channel pair
// element's header and the main-layer header of a two-layer stream.
#include <cstring>

#include "aac/band_tables.h"
#include "aac/stream_syntax.h"
#include "frame/exports.h"

namespace nkp::aac {

void make_window_groups(uint32_t grouping, int32_t* num_groups, int32_t* lengths) {
    int groups = 1;
    lengths[0] = 1;
    for (int bit = 6; bit >= 0; --bit) {
        if ((grouping >> bit) & 1) {
            ++lengths[groups - 1];
        } else {
            lengths[groups] = 1;
            ++groups;
        }
    }
    *num_groups = groups;
}

namespace {

// The fields every ics_info starts with, up to and including max_sfb (and
// the grouping of eight short windows). Stops after a long window's max_sfb
// above 51.
template <class Bits>
nkpStatus read_ics_head(Bits& bits, nkpAacIcsInfo& ics) {
    ics.icsReservedBit = static_cast<int32_t>(bits.read(1));
    ics.windowSequence = static_cast<int32_t>(bits.read(2));
    ics.windowShape = static_cast<int32_t>(bits.read(1));
    ics.predictorDataPresent = 0;
    if (ics.windowSequence == kEightShort) {
        ics.maxSfb = static_cast<int32_t>(bits.read(4));
        ics.scaleFactorGrouping = static_cast<int32_t>(bits.read(7));
        return nkpStatusOk;
    }
    ics.maxSfb = static_cast<int32_t>(bits.read(6));
    if (ics.maxSfb > 51) return nkpStatusBadAacMaxSfb;
    return nkpStatusOk;
}

template <class Bits>
void read_prediction_reset(Bits& bits, nkpAacIcsInfo& ics) {
    ics.predictorReset = static_cast<int32_t>(bits.read(1));
    if (ics.predictorReset) ics.predictorResetGroupNumber = static_cast<int32_t>(bits.read(5));
}

template <class Bits>
void read_prediction_used(Bits& bits, nkpAacIcsInfo& ics, int limit) {
    const int flagged = ics.maxSfb < limit ? ics.maxSfb : limit;
    for (int b = 0; b < flagged; ++b) ics.predictionUsed[b] = static_cast<uint8_t>(bits.read(1));
    for (int b = flagged; b < limit; ++b) ics.predictionUsed[b] = 0;
}

void set_groups(nkpAacIcsInfo& ics) {
    if (ics.windowSequence == kEightShort) {
        make_window_groups(static_cast<uint32_t>(ics.scaleFactorGrouping), &ics.numWindowGroups, ics.windowGroupLength);
    } else {
        ics.numWindowGroups = 1;
        ics.windowGroupLength[0] = 1;
    }
}

// The LTP coefficient in Q14 from its 3-bit index.
int16_t ltp_coef_q14(uint32_t index) { return static_cast<int16_t>(kLtpCoefficient[index] * 16384.0f + 0.5f); }

}  // namespace

template <class Bits>
nkpStatus read_ics_info(Bits& bits, nkpAacIcsInfo& ics, int limit) {
    if (const nkpStatus s = read_ics_head(bits, ics)) return s;
    if (ics.windowSequence != kEightShort) {
        ics.predictorDataPresent = static_cast<int32_t>(bits.read(1));
        ics.predictorReset = 0;
        if (ics.predictorDataPresent) {
            read_prediction_reset(bits, ics);
            read_prediction_used(bits, ics, limit);
        }
    }
    set_groups(ics);
    return nkpStatusOk;
}

template <class Bits>
void read_ltp_data(Bits& bits, nkpAacLtpInfo& ltp, int window_sequence, int max_sfb) {
    ltp.ltpLag = static_cast<int32_t>(bits.read(11));
    ltp.ltpCoef = ltp_coef_q14(bits.read(3));
    if (window_sequence == kEightShort) {
        ltp.ltpShortLag[0] = ltp.ltpLag;
        int previous = -1;  // the last used window
        for (int w = 0; w < 8; ++w) {
            ltp.ltpShortUsed[w] = static_cast<int32_t>(bits.read(1));
            if (!ltp.ltpShortUsed[w]) continue;
            if (previous < 0) {
                ltp.ltpShortLagPresent[w] = 0;
                ltp.ltpShortLag[w] = ltp.ltpLag;
            } else {
                ltp.ltpShortLagPresent[w] = static_cast<int32_t>(bits.read(1));
                // Relative to the previous used window's lag, by design.
                ltp.ltpShortLag[w] = ltp.ltpShortLagPresent[w]
                                         ? ltp.ltpShortLag[previous] - static_cast<int32_t>(bits.read(5)) + 16
                                         : ltp.ltpShortLag[previous];
            }
            previous = w;
        }
        return;
    }
    ltp.ltpLongDataPresent = ltp.ltpDataPresent;
    const int flagged = max_sfb < 40 ? max_sfb : 40;
    for (int b = 0; b < flagged; ++b) ltp.ltpLongUsed[b] = static_cast<int32_t>(bits.read(1));
    for (int b = flagged; b < 40; ++b) ltp.ltpLongUsed[b] = 0;
}

template <class Bits>
nkpStatus read_ics_info_mp4(Bits& bits, nkpAacIcsInfo& ics, int limit, int object_type, int channels,
                            nkpAacMainHeader& main) {
    main.ltpInfo[0].ltpDataPresent = 0;
    main.ltpInfo[1].ltpDataPresent = 0;
    if (const nkpStatus s = read_ics_head(bits, ics)) return s;
    if (ics.windowSequence != kEightShort) {
        ics.predictorDataPresent = static_cast<int32_t>(bits.read(1));
        ics.predictorReset = 0;
        if (ics.predictorDataPresent) {
            if (object_type == 1) {
                read_prediction_reset(bits, ics);
                if (static_cast<uint32_t>(limit) > 41) return nkpStatusBadAacPrediction;
                read_prediction_used(bits, ics, limit);
            } else {
                main.maxSfb = ics.maxSfb;
                main.windowSequence = ics.windowSequence;
                for (int ch = 0; ch < channels; ++ch) {
                    nkpAacLtpInfo& ltp = main.ltpInfo[ch];
                    ltp.ltpDataPresent = static_cast<int32_t>(bits.read(1));
                    if (ltp.ltpDataPresent) read_ltp_data(bits, ltp, ics.windowSequence, ics.maxSfb);
                }
            }
        }
    }
    set_groups(ics);
    return nkpStatusOk;
}

template nkpStatus read_ics_info<BitReader>(BitReader&, nkpAacIcsInfo&, int);
template nkpStatus read_ics_info<BitCache>(BitCache&, nkpAacIcsInfo&, int);
template nkpStatus read_ics_info_mp4<BitReader>(BitReader&, nkpAacIcsInfo&, int, int, int, nkpAacMainHeader&);
template nkpStatus read_ics_info_mp4<BitCache>(BitCache&, nkpAacIcsInfo&, int, int, int, nkpAacMainHeader&);
template void read_ltp_data<BitReader>(BitReader&, nkpAacLtpInfo&, int, int);

namespace {

// M/S flags of every group's bands below max_sfb.
void read_ms_used(BitReader& bits, uint8_t* ms_used, int groups, int max_sfb) {
    for (int g = 0; g < groups; ++g)
        for (int b = 0; b < max_sfb; ++b) ms_used[g * 60 + b] = static_cast<uint8_t>(bits.read(1));
}

// The channel pair header once the checks passed; `ics` reads the ics_info.
template <class ReadIcs>
nkpStatus read_cpe(nkp8u** pp, int* offset, nkpAacIcsInfo& ics, nkpAacCpeInfo& cpe, ReadIcs read_ics) {
    BitReader bits(*pp, *offset);
    nkpStatus status = nkpStatusOk;
    cpe.commonWindow = static_cast<int32_t>(bits.read(1));
    if (cpe.commonWindow) {
        status = read_ics(bits);
        if (status == nkpStatusOk) {
            cpe.msMaskPresent = static_cast<int32_t>(bits.read(2));
            if (cpe.msMaskPresent == 1) read_ms_used(bits, cpe.msUsed, ics.numWindowGroups, ics.maxSfb);
        }
    }
    bits.store(pp, offset);
    return status;
}

}  // namespace
}  // namespace nkp::aac

namespace nkp {

using namespace aac;

nkpStatus nkpsDecodeChanPairElt_AAC(nkp8u** ppBitStream, int* pBitOffset, nkpAacIcsInfo* pIcsInfo,
                                    nkpAacCpeInfo* pCpeInfo, int predSfbMax) {
    if (!pIcsInfo || !pCpeInfo) return nkpStatusNullPointer;
    if (const nkpStatus s = check_cursor(ppBitStream, pBitOffset)) return s;
    if (static_cast<uint32_t>(predSfbMax) > 41) return nkpStatusBadAacPrediction;
    return read_cpe(ppBitStream, pBitOffset, *pIcsInfo, *pCpeInfo,
                    [&](BitReader& bits) { return read_ics_info(bits, *pIcsInfo, predSfbMax); });
}

nkpStatus nkpsDecodeChanPairElt_MP4_AAC(nkp8u** ppBitStream, int* pBitOffset, nkpAacIcsInfo* pIcsInfo,
                                        nkpAacCpeInfo* pCpeInfo, nkpAacMainHeader* pMainHeader, int predSfbMax,
                                        int audioObjectType) {
    if (!pIcsInfo || !pCpeInfo || !pMainHeader) return nkpStatusNullPointer;
    if (const nkpStatus s = check_cursor(ppBitStream, pBitOffset)) return s;
    if (static_cast<uint32_t>(predSfbMax) > 51) return nkpStatusBadAacMaxSfb;
    return read_cpe(ppBitStream, pBitOffset, *pIcsInfo, *pCpeInfo, [&](BitReader& bits) {
        return read_ics_info_mp4(bits, *pIcsInfo, predSfbMax, audioObjectType, 2, *pMainHeader);
    });
}

nkpStatus nkpsDecodeMainHeader_AAC(nkp8u** ppBitStream, int* pBitOffset, nkpAacMainHeader* pMainHeader, int channels,
                                   int unsupportedMode) {
    if (!pMainHeader || (channels == 2 && !pMainHeader->pMsUsed)) return nkpStatusNullPointer;
    if (const nkpStatus s = check_cursor(ppBitStream, pBitOffset)) return s;
    if (channels != 1 && channels != 2) return nkpStatusBadAacElementChannels;
    if (static_cast<uint32_t>(unsupportedMode) > 1) return nkpStatusBadAacHeaderFlag;

    nkpAacMainHeader& h = *pMainHeader;
    BitReader bits(*ppBitStream, *pBitOffset);
    h.windowSequence = static_cast<int32_t>(bits.read(2));
    h.windowShape = static_cast<int32_t>(bits.read(1));
    if (h.windowSequence == kEightShort) {
        h.maxSfb = static_cast<int32_t>(bits.read(4));
        h.scaleFactorGrouping = static_cast<int32_t>(bits.read(7));
        make_window_groups(static_cast<uint32_t>(h.scaleFactorGrouping), &h.numWindowGroups, h.windowGroupLength);
    } else {
        h.maxSfb = static_cast<int32_t>(bits.read(6));
        h.numWindowGroups = 1;
        h.windowGroupLength[0] = 1;
        for (int g = 1; g < 8; ++g) h.windowGroupLength[g] = 0;
    }
    if (channels == 2) {
        h.msMaskPresent = static_cast<int32_t>(bits.read(2));
        if (h.msMaskPresent == 1) {
            read_ms_used(bits, h.pMsUsed, h.numWindowGroups, h.maxSfb);
        } else {
            const uint8_t all = h.msMaskPresent == 2;
            for (int g = 0; g < h.numWindowGroups; ++g) std::memset(h.pMsUsed + g * 60, all, h.maxSfb);
        }
    }
    for (int ch = 0; ch < channels; ++ch) {
        nkpAacTnsData& tns = h.tnsData[ch];
        std::memset(&tns, 0, sizeof tns);
        tns.tnsDataPresent = static_cast<int32_t>(bits.read(1));
        if (tns.tnsDataPresent)  // an over-long order only ends this channel's TNS data
            (void)read_tns_data(bits, h.windowSequence,
                                {tns.nFilt, tns.coefRes, tns.length, tns.order, tns.direction, tns.coef});
        nkpAacLtpInfo& ltp = h.ltpInfo[ch];
        std::memset(&ltp, 0, sizeof ltp);
        ltp.ltpDataPresent = static_cast<int32_t>(bits.read(1));
        if (ltp.ltpDataPresent) read_ltp_data(bits, ltp, h.windowSequence, h.maxSfb);
    }
    bits.store(ppBitStream, pBitOffset);
    return unsupportedMode ? nkpStatusAacNotSupported : nkpStatusOk;
}

}  // namespace nkp
