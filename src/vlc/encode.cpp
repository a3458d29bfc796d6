// Encoder tables, the plain encoders and the bit counter. Two-path source:
// built once per code path into nkp::NKP_PATH_NS; both write the same bits.
#include "frame/exports.h"
#include "vlc/encode_core.h"

namespace nkp::NKP_PATH_NS {
namespace {

using vlc::EncodeSpec;
using vlc::kEncodeLife;
using vlc::kEncodeTag;

struct Range {
    int64_t smallest, largest;
    int32_t index_bits;
    int64_t size;
};

// The values' range and the object size: (range + 2^k) * 4 + 132 bytes, k
// the bit length of range + 1. nkpStatusOutOfRange past 2^31 - 1 bytes.
nkpStatus measure(const nkpsVLCCodeEntry_32s* book, int count, Range& r) {
    r.smallest = r.largest = book[0].value;
    for (int i = 1; i < count; ++i) {
        if (book[i].value < r.smallest) r.smallest = book[i].value;
        if (book[i].value > r.largest) r.largest = book[i].value;
    }
    const int64_t range = r.largest - r.smallest;
    r.index_bits = 0;
    while ((range + 1) >> r.index_bits) ++r.index_bits;
    r.size = (range + (int64_t{1} << r.index_bits)) * 4 + 132;
    return r.size > 0x7FFFFFFF ? nkpStatusOutOfRange : nkpStatusOk;
}

nkpStatus total_bits(int64_t bits, nkp32s* pCount) {
    *pCount = bits > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<nkp32s>(bits);
    return nkpStatusOk;
}

}  // namespace

nkpStatus nkpsVLCEncodeGetSize_32s(const nkpsVLCCodeEntry_32s* pInputTable, int inputTableSize, nkp32s* pSize) {
    if (!pInputTable || !pSize) return nkpStatusNullPointer;
    if (inputTableSize < 1) return nkpStatusVlcError;
    Range r;
    const nkpStatus status = measure(pInputTable, inputTableSize, r);
    if (status != nkpStatusOk) return status;
    *pSize = static_cast<nkp32s>(r.size);
    return nkpStatusOk;
}

nkpStatus nkpsVLCEncodeInit_32s(const nkpsVLCCodeEntry_32s* pInputTable, int inputTableSize,
                                nkpsVLCEncodeSpec_32s* pVLCSpec) {
    if (!pInputTable || !pVLCSpec) return nkpStatusNullPointer;
    if (inputTableSize < 1) return nkpStatusVlcError;
    Range r;
    const nkpStatus status = measure(pInputTable, inputTableSize, r);
    if (status != nkpStatusOk) return status;

    EncodeSpec* spec = object_in<EncodeSpec, kEncodeLife.align>(pVLCSpec);
    std::memset(spec, 0, sizeof(EncodeSpec));
    uint32_t* lengths = reinterpret_cast<uint32_t*>(reinterpret_cast<uint8_t*>(spec) + vlc::kEncodeTableOffset);
    const uint32_t range = static_cast<uint32_t>(r.largest - r.smallest);
    uint32_t* codes = lengths + (size_t{1} << r.index_bits);
    std::memset(lengths, 0, ((size_t{1} << r.index_bits) + range + 1) * sizeof(uint32_t));
    // From the last entry to the first: of two entries for one value, the
    // earlier is kept. Lengths outside 1..32 leave the value out.
    for (int i = inputTableSize - 1; i >= 0; --i) {
        const nkpsVLCCodeEntry_32s& e = pInputTable[i];
        if (e.length < 1 || e.length > 32) continue;
        const uint32_t index = static_cast<uint32_t>(e.value) - static_cast<uint32_t>(r.smallest);
        const uint32_t code = static_cast<uint32_t>(e.code);
        lengths[index] = static_cast<uint32_t>(e.length);
        codes[index] = e.length == 32 ? code : code & ((1u << e.length) - 1u);
    }
    spec->table = lengths;
    spec->valueOffset = static_cast<int32_t>(0u - static_cast<uint32_t>(r.smallest));
    spec->indexBits = r.index_bits;
    spec->allocated = 0;
    spec->range = range;
    spec->tag = kEncodeTag;
    return nkpStatusOk;
}

nkpStatus nkpsVLCEncodeInitAlloc_32s(const nkpsVLCCodeEntry_32s* pInputTable, int inputTableSize,
                                     nkpsVLCEncodeSpec_32s** ppVLCSpec) {
    return init_alloc<EncodeSpec, kEncodeLife>(
        ppVLCSpec, [&](int32_t* size) { return NKP_PATH_NS::nkpsVLCEncodeGetSize_32s(pInputTable, inputTableSize, size); },
        [&](void* buffer) {
            return NKP_PATH_NS::nkpsVLCEncodeInit_32s(pInputTable, inputTableSize, static_cast<nkpsVLCEncodeSpec_32s*>(buffer));
        });
}

nkpStatus nkpsVLCEncodeFree_32s(nkpsVLCEncodeSpec_32s* pVLCSpec) {
    return free_object<EncodeSpec, kEncodeLife>(pVLCSpec, kEncodeTag);
}

nkpStatus nkpsVLCEncodeOne_16s1u(nkp16s src, nkp8u** ppBitStream, int* pBitOffset,
                                 const nkpsVLCEncodeSpec_32s* pVLCSpec) {
    if (!ppBitStream || !pBitOffset || !pVLCSpec) return nkpStatusNullPointer;
    const EncodeSpec* spec = vlc::encode_spec(pVLCSpec);
    if (!spec) return nkpStatusVlcError;
    const vlc::CodeTable table(*spec);
    vlc::WordWriter w(*ppBitStream, *pBitOffset);
    vlc::put_code(w, table(src));
    w.finish(ppBitStream, pBitOffset);
    return nkpStatusOk;
}

nkpStatus nkpsVLCEncodeBlock_16s1u(const nkp16s* pSrc, int srcLen, nkp8u** ppBitStream, int* pBitOffset,
                                   const nkpsVLCEncodeSpec_32s* pVLCSpec) {
    if (!pSrc || !ppBitStream || !pBitOffset || !pVLCSpec) return nkpStatusNullPointer;
    if (srcLen < 1 || static_cast<uint32_t>(*pBitOffset) > 7) return nkpStatusVlcError;
    const EncodeSpec* spec = vlc::encode_spec(pVLCSpec);
    if (!spec) return nkpStatusVlcError;
    const vlc::CodeTable table(*spec);
    vlc::WordWriter w(*ppBitStream, *pBitOffset);
    for (int i = 0; i < srcLen; ++i) vlc::put_code(w, table(pSrc[i]));
    w.finish(ppBitStream, pBitOffset);
    return nkpStatusOk;
}

nkpStatus nkpsVLCCountBits_16s32s(const nkp16s* pSrc, int srcLen, nkp32s* pCount,
                                  const nkpsVLCEncodeSpec_32s* pVLCSpec) {
    if (!pSrc || !pCount || !pVLCSpec) return nkpStatusNullPointer;
    if (srcLen < 1) return nkpStatusVlcError;
    const EncodeSpec* spec = vlc::encode_spec(pVLCSpec);
    if (!spec) return nkpStatusVlcError;
    const vlc::CodeTable table(*spec);
    int64_t bits = 0;
    for (int i = 0; i < srcLen; ++i) bits += table.length(pSrc[i]);
    return total_bits(bits, pCount);
}

}  // namespace nkp::NKP_PATH_NS
