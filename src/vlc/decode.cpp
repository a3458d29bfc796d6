// The plain and tuple decoders without escapes. Two-path source: built once
// per code path into nkp::NKP_PATH_NS from the shared walk in decode_core.h.
#include "frame/exports.h"
#include "vlc/decode_core.h"

namespace nkp::NKP_PATH_NS {
namespace {

using vlc::DecodeSpec;

// The checks of the plain and tuple One/Block forms: every failure after the
// pointers is nkpStatusVlcError.
const DecodeSpec* checked(nkp8u** pp, int* offset, const void* dst, int count,
                          const nkpsVLCDecodeSpec_32s* buffer, nkpStatus& status) {
    if (!pp || !offset || !dst || !buffer) {
        status = nkpStatusNullPointer;
        return nullptr;
    }
    status = nkpStatusVlcError;
    if (static_cast<uint32_t>(*offset) > 7 || count < 1) return nullptr;
    return vlc::decode_spec(buffer);
}

template <bool kTuple>
nkpStatus decode(nkp8u** ppBitStream, int* pBitOffset, nkp16s* pDst, int count,
                 const nkpsVLCDecodeSpec_32s* pVLCSpec) {
    nkpStatus status;
    const DecodeSpec* spec = checked(ppBitStream, pBitOffset, pDst, count, pVLCSpec, status);
    if (!spec) return status;
    vlc::Reader r(*ppBitStream, *pBitOffset);
    if constexpr (kTuple)
        status = vlc::with_tuple_type(*spec, [&]<class E, int N>() {
            return vlc::decode_tuples<E, vlc::Escape::None, N>(r, *spec, pDst, count, 0);
        });
    else
        status = vlc::with_entry_type(*spec, [&]<class E>() {
            return vlc::decode_values<E, vlc::Escape::None>(r, *spec, pDst, count, 0);
        });
    if (status == nkpStatusOk) r.store(ppBitStream, pBitOffset);
    return status;
}

}  // namespace

nkpStatus nkpsVLCDecodeOne_1u16s(nkp8u** ppBitStream, int* pBitOffset, nkp16s* pDst,
                                 const nkpsVLCDecodeSpec_32s* pVLCSpec) {
    return decode<false>(ppBitStream, pBitOffset, pDst, 1, pVLCSpec);
}

nkpStatus nkpsVLCDecodeBlock_1u16s(nkp8u** ppBitStream, int* pBitOffset, nkp16s* pDst, int dstLen,
                                   const nkpsVLCDecodeSpec_32s* pVLCSpec) {
    return decode<false>(ppBitStream, pBitOffset, pDst, dstLen, pVLCSpec);
}

nkpStatus nkpsVLCDecodeUTupleOne_1u16s(nkp8u** ppBitStream, int* pBitOffset, nkp16s* pDst,
                                       const nkpsVLCDecodeSpec_32s* pVLCSpec) {
    return decode<true>(ppBitStream, pBitOffset, pDst, 1, pVLCSpec);
}

nkpStatus nkpsVLCDecodeUTupleBlock_1u16s(nkp8u** ppBitStream, int* pBitOffset, nkp16s* pDst, int numTuples,
                                         const nkpsVLCDecodeSpec_32s* pVLCSpec) {
    return decode<true>(ppBitStream, pBitOffset, pDst, numTuples, pVLCSpec);
}

}  // namespace nkp::NKP_PATH_NS
