// The two stream headers: ADTS (one per frame) and ADIF (once, before the
// raw data blocks). Both start at bit 0 of the addressed byte and move the
// byte pointer by whole bytes.
#include "aac/stream_syntax.h"
#include "frame/exports.h"

namespace nkp {

nkpStatus nkpsUnpackADTSFrameHeader_AAC(nkp8u** ppBitStream, nkpAacAdtsHeader* pAdtsHeader) {
    if (!ppBitStream || !*ppBitStream || !pAdtsHeader) return nkpStatusNullPointer;
    nkpAacAdtsHeader& h = *pAdtsHeader;
    BitReader bits(*ppBitStream, 0);
    auto field = [&](int n) { return static_cast<int32_t>(bits.read(n)); };
    bits.skip(12);  // the sync word: the caller has found the frame
    h.id = field(1);
    h.layer = field(2);
    h.protectionAbsent = field(1);
    h.profile = field(2);
    h.samplingFrequencyIndex = field(4);
    h.privateBit = field(1);
    h.channelConfiguration = field(3);
    h.originalCopy = field(1);
    h.home = field(1);
    h.copyrightIdentificationBit = field(1);
    h.copyrightIdentificationStart = field(1);
    h.frameLength = field(13);
    h.bufferFullness = field(11);
    h.numRawDataBlocks = field(2) + 1;
    if (h.protectionAbsent == 0) h.crcCheck = field(16);
    *ppBitStream = const_cast<nkp8u*>(bits.byte());
    return nkpStatusOk;
}

nkpStatus nkpsUnpackADIFHeader_AAC(nkp8u** ppBitStream, nkpAacAdifHeader* pAdifHeader, nkpAacPrgCfgElt* pPrgCfgElt,
                                   int prgCfgEltMax) {
    if (!ppBitStream || !*ppBitStream || !pAdifHeader || !pPrgCfgElt) return nkpStatusNullPointer;
    if (prgCfgEltMax < 1 || prgCfgEltMax > 16) return nkpStatusBadAacPceCount;
    nkpAacAdifHeader& h = *pAdifHeader;
    // One cursor through the header and its PCEs, which are not aligned.
    BitReader bits(*ppBitStream, 0);
    auto field = [&](int n) { return static_cast<int32_t>(bits.read(n)); };
    const uint32_t high = bits.read(16);
    h.adifId = (high << 16) | bits.read(16);
    h.copyrightIdPresent = field(1);
    if (h.copyrightIdPresent)
        for (int i = 0; i < 9; ++i) h.copyrightId[i] = static_cast<uint8_t>(bits.read(8));
    h.originalCopy = field(1);
    h.home = field(1);
    h.bitstreamType = field(1);
    h.bitrate = field(23);
    h.numPrgCfgElt = field(4) + 1;
    if (h.numPrgCfgElt > prgCfgEltMax) {
        *ppBitStream = const_cast<nkp8u*>(bits.byte());
        return nkpStatusBadAacPceCount;
    }
    for (int i = 0; i < h.numPrgCfgElt; ++i) {
        if (h.bitstreamType == 0) h.adifBufferFullness[i] = field(20);
        aac::read_pce(bits, pPrgCfgElt[i]);
    }
    // A PCE ends byte-aligned, so no bit offset is left to drop.
    *ppBitStream = const_cast<nkp8u*>(bits.byte());
    return nkpStatusOk;
}

}  // namespace nkp
