// The escape blocks of the plain and tuple decoders: the AAC escape sequence
// and MP3 linbits after the codes (rules in nkpac.h). One implementation for
// both code paths.
#include "frame/exports.h"
#include "vlc/decode_core.h"

namespace nkp {
namespace {

using vlc::DecodeSpec;
using vlc::Escape;

template <bool kTuple, Escape kEscape>
nkpStatus decode_escaped(nkp8u** ppBitStream, int* pBitOffset, int linbits, nkp16s* pDst, int count,
                         const nkpsVLCDecodeSpec_32s* pVLCSpec) {
    if (!ppBitStream || !pBitOffset || !pDst || !pVLCSpec) return nkpStatusNullPointer;
    if (static_cast<uint32_t>(*pBitOffset) > 7) return nkpStatusBadBitOffset;
    const DecodeSpec* spec = vlc::decode_spec(pVLCSpec);
    if (!spec) return nkpStatusWrongObject;
    // The plain AAC form works in pairs of values.
    if (!kTuple && kEscape == Escape::Aac) count &= ~1;
    if (count < 1) return nkpStatusOk;
    vlc::Reader r(*ppBitStream, *pBitOffset);
    nkpStatus status;
    if constexpr (kTuple)
        status = vlc::with_tuple_type(*spec, [&]<class E, int N>() {
            return vlc::decode_tuples<E, kEscape, N>(r, *spec, pDst, count, linbits);
        });
    else
        status = vlc::with_entry_type(*spec, [&]<class E>() {
            return vlc::decode_values<E, kEscape>(r, *spec, pDst, count, linbits);
        });
    if (status == nkpStatusOk) r.store(ppBitStream, pBitOffset);
    return status;
}

}  // namespace

nkpStatus nkpsVLCDecodeEscBlock_AAC_1u16s(nkp8u** ppBitStream, int* pBitOffset, nkp16s* pDst, int dstLen,
                                          const nkpsVLCDecodeSpec_32s* pVLCSpec) {
    return decode_escaped<false, Escape::Aac>(ppBitStream, pBitOffset, 0, pDst, dstLen, pVLCSpec);
}

nkpStatus nkpsVLCDecodeEscBlock_MP3_1u16s(nkp8u** ppBitStream, int* pBitOffset, int linbits, nkp16s* pDst,
                                          int dstLen, const nkpsVLCDecodeSpec_32s* pVLCSpec) {
    return decode_escaped<false, Escape::Mp3>(ppBitStream, pBitOffset, linbits, pDst, dstLen, pVLCSpec);
}

nkpStatus nkpsVLCDecodeUTupleEscBlock_AAC_1u16s(nkp8u** ppBitStream, int* pBitOffset, nkp16s* pDst,
                                                int numTuples, const nkpsVLCDecodeSpec_32s* pVLCSpec) {
    return decode_escaped<true, Escape::Aac>(ppBitStream, pBitOffset, 0, pDst, numTuples, pVLCSpec);
}

nkpStatus nkpsVLCDecodeUTupleEscBlock_MP3_1u16s(nkp8u** ppBitStream, int* pBitOffset, int linbits,
                                                nkp16s* pDst, int numTuples,
                                                const nkpsVLCDecodeSpec_32s* pVLCSpec) {
    return decode_escaped<true, Escape::Mp3>(ppBitStream, pBitOffset, linbits, pDst, numTuples, pVLCSpec);
}

}  // namespace nkp
