// Side elements of a raw data block: data stream and fill elements, and the
// extension-layer header of a two-layer stream.
#include "aac/stream_syntax.h"
#include "frame/exports.h"

namespace nkp {

using namespace aac;

nkpStatus nkpsDecodeDatStrElt_AAC(nkp8u** ppBitStream, int* pBitOffset, int* pDataTag, int* pDataCnt, nkp8u* pDataElt) {
    if (!pDataTag || !pDataCnt || !pDataElt) return nkpStatusNullPointer;
    if (const nkpStatus s = check_cursor(ppBitStream, pBitOffset)) return s;
    BitReader bits(*ppBitStream, *pBitOffset);
    *pDataTag = static_cast<int>(bits.read(4));
    const uint32_t align = bits.read(1);
    int count = static_cast<int>(bits.read(8));
    if (count == 255) count += static_cast<int>(bits.read(8));
    if (align) byte_align(bits);
    for (int i = 0; i < count; ++i) pDataElt[i] = static_cast<uint8_t>(bits.read(8));
    *pDataCnt = count;
    bits.store(ppBitStream, pBitOffset);
    return nkpStatusOk;
}

nkpStatus nkpsDecodeFillElt_AAC(nkp8u** ppBitStream, int* pBitOffset, int* pFillCnt, nkp8u* pFillElt) {
    if (!pFillCnt || !pFillElt) return nkpStatusNullPointer;
    if (const nkpStatus s = check_cursor(ppBitStream, pBitOffset)) return s;
    BitReader bits(*ppBitStream, *pBitOffset);
    int count = static_cast<int>(bits.read(4));
    if (count == 15) count += static_cast<int>(bits.read(8)) - 1;
    for (int i = 0; i < count; ++i) pFillElt[i] = static_cast<uint8_t>(bits.read(8));
    *pFillCnt = count;
    bits.store(ppBitStream, pBitOffset);
    return nkpStatusOk;
}

nkpStatus nkpsDecodeExtensionHeader_AAC(nkp8u** ppBitStream, int* pBitOffset, nkpAacExtensionHeader* pExtHeader,
                                        int tnsSwitch, int stereoSwitch, int bandFlagsSwitch, int startBand,
                                        int bandLimit, int windowSequence) {
    if (!pExtHeader || (stereoSwitch == 1 && !pExtHeader->pMsUsed)) return nkpStatusNullPointer;
    if (const nkpStatus s = check_cursor(ppBitStream, pBitOffset)) return s;
    if (static_cast<uint32_t>(tnsSwitch) > 1) return nkpStatusBadAacHeaderFlag;
    if (static_cast<uint32_t>(stereoSwitch) > 1) return nkpStatusBadAacExtFlag2;
    if (static_cast<uint32_t>(bandFlagsSwitch) > 1) return nkpStatusBadAacExtFlag3;
    if (static_cast<uint32_t>(startBand) > 51 || static_cast<uint32_t>(bandLimit) > 51) return nkpStatusBadAacMaxSfb;
    if (static_cast<uint32_t>(windowSequence) > 3) return nkpStatusBadAacWindowSequence;

    nkpAacExtensionHeader& h = *pExtHeader;
    const bool short_windows = windowSequence == kEightShort;
    BitReader bits(*ppBitStream, *pBitOffset);
    if (short_windows) {
        h.maxSfb = static_cast<int32_t>(bits.read(4));
    } else {
        h.maxSfb = static_cast<int32_t>(bits.read(6));
        if (h.maxSfb > 60) {
            bits.store(ppBitStream, pBitOffset);
            return nkpStatusBadAacMaxSfb;
        }
    }
    if (stereoSwitch) {
        h.msMaskPresent = static_cast<int32_t>(bits.read(2));
        if (h.msMaskPresent == 1) {
            // Four groups for eight short windows, whatever the grouping.
            const int groups = short_windows ? 4 : 1;
            for (int g = 0; g < groups; ++g)
                for (int b = startBand; b < h.maxSfb; ++b) h.pMsUsed[g * 60 + b] = static_cast<uint8_t>(bits.read(1));
        }
    }
    if (tnsSwitch) {
        for (nkpAacTnsData& tns : h.tnsData) {
            tns.tnsDataPresent = static_cast<int32_t>(bits.read(1));
            if (tns.tnsDataPresent)  // an over-long order only ends this channel's TNS data
                (void)read_tns_data(bits, windowSequence,
                                    {tns.nFilt, tns.coefRes, tns.length, tns.order, tns.direction, tns.coef});
        }
    }
    if (bandFlagsSwitch && stereoSwitch) {
        for (int ch = 0; ch < 2; ++ch) {
            int32_t* flags = h.bandFlags[ch];
            if (short_windows) {
                if (startBand == 0)
                    for (int w = 0; w < 8; ++w) flags[w] = static_cast<int32_t>(bits.read(1));
                continue;
            }
            const int end = bandLimit < h.maxSfb ? bandLimit : h.maxSfb;
            int k = 0;
            for (int b = startBand; b < end; ++b)
                if (h.pMsUsed[b] == 0) flags[k++] = static_cast<int32_t>(bits.read(1));
        }
    }
    bits.store(ppBitStream, pBitOffset);
    return nkpStatusOk;
}

}  // namespace nkp
