// The program configuration element, on its own and inside the ADIF header.
#include "aac/stream_syntax.h"
#include "frame/exports.h"

namespace nkp::aac {

namespace {

int32_t field(BitReader& bits, int n) { return static_cast<int32_t>(bits.read(n)); }

// count (is-CPE bit, 4-bit tag) pairs, interleaved in the stream.
void read_elements(BitReader& bits, int count, int32_t* is_cpe, int32_t* tag) {
    for (int i = 0; i < count; ++i) {
        is_cpe[i] = field(bits, 1);
        tag[i] = field(bits, 4);
    }
}

}  // namespace

void read_pce(BitReader& bits, nkpAacPrgCfgElt& p) {
    p.elementInstanceTag = field(bits, 4);
    p.profile = field(bits, 2);
    p.samplingFrequencyIndex = field(bits, 4);
    p.numFrontElt = field(bits, 4);
    p.numSideElt = field(bits, 4);
    p.numBackElt = field(bits, 4);
    p.numLfeElt = field(bits, 2);
    p.numAssocDataElt = field(bits, 3);
    p.numValidCcElt = field(bits, 4);
    p.monoMixdownEltNumber = 0;
    p.stereoMixdownEltNumber = 0;
    p.matrixMixdownIdx = 0;
    p.pseudoSurroundEnable = 0;
    p.monoMixdownPresent = field(bits, 1);
    if (p.monoMixdownPresent) p.monoMixdownEltNumber = field(bits, 4);
    p.stereoMixdownPresent = field(bits, 1);
    if (p.stereoMixdownPresent) p.stereoMixdownEltNumber = field(bits, 4);
    p.matrixMixdownIdxPresent = field(bits, 1);
    if (p.matrixMixdownIdxPresent) {
        p.matrixMixdownIdx = field(bits, 2);
        p.pseudoSurroundEnable = field(bits, 1);
    }
    read_elements(bits, p.numFrontElt, p.frontEltIsCpe, p.frontEltTagSelect);
    read_elements(bits, p.numSideElt, p.sideEltIsCpe, p.sideEltTagSelect);
    read_elements(bits, p.numBackElt, p.backEltIsCpe, p.backEltTagSelect);
    for (int i = 0; i < p.numLfeElt; ++i) p.lfeEltTagSelect[i] = field(bits, 4);
    for (int i = 0; i < p.numAssocDataElt; ++i) p.assocDataEltTagSelect[i] = field(bits, 4);
    read_elements(bits, p.numValidCcElt, p.ccEltIsIndSw, p.validCcEltTagSelect);
    byte_align(bits);
    p.commentFieldBytes = field(bits, 8);
    for (int i = 0; i < p.commentFieldBytes; ++i) p.commentFieldData[i] = static_cast<uint8_t>(bits.read(8));
}

}  // namespace nkp::aac

namespace nkp {

nkpStatus nkpsDecodePrgCfgElt_AAC(nkp8u** ppBitStream, int* pBitOffset, nkpAacPrgCfgElt* pPrgCfgElt) {
    if (!pPrgCfgElt) return nkpStatusNullPointer;
    if (const nkpStatus s = aac::check_cursor(ppBitStream, pBitOffset)) return s;
    BitReader bits(*ppBitStream, *pBitOffset);
    aac::read_pce(bits, *pPrgCfgElt);
    bits.store(ppBitStream, pBitOffset);
    return nkpStatusOk;
}

}  // namespace nkp
