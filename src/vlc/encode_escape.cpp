// The escape forms of the encoder and the bit counter: the AAC escape
// sequence and MP3 linbits (rules in nkpac.h). One implementation for both
// code paths.
#include "frame/exports.h"
#include "vlc/encode_core.h"

namespace nkp {
namespace {

using vlc::EncodeSpec;

// A magnitude m >= 16 as the AAC escape sequence: N - 4 one bits, a 0, then
// m - 2^N in N bits, where 2^N <= m < 2^(N+1); 2N - 3 bits in all.
vlc::Code aac_escape(uint32_t m) {
    const uint32_t n = 31u - static_cast<uint32_t>(__builtin_clz(m));
    const uint32_t ones = ((1u << (n - 4)) - 1u) << (n + 1);
    return {ones | (m - (1u << n)), 2 * n - 3};
}

int32_t magnitude(nkp16s v) { return v < 0 ? -static_cast<int32_t>(v) : v; }

template <class Step>
nkpStatus encode_escaped(const nkp16s* pSrc, int srcLen, nkp8u** ppBitStream, int* pBitOffset,
                         const nkpsVLCEncodeSpec_32s* pVLCSpec, Step step) {
    if (!pSrc || !ppBitStream || !pBitOffset || !pVLCSpec) return nkpStatusNullPointer;
    if (static_cast<uint32_t>(*pBitOffset) > 7) return nkpStatusBadBitOffset;
    const EncodeSpec* spec = vlc::encode_spec(pVLCSpec);
    if (!spec) return nkpStatusWrongObject;
    const vlc::CodeTable table(*spec);
    vlc::WordWriter w(*ppBitStream, *pBitOffset);
    for (int i = 0; i < srcLen; ++i) step(w, table, pSrc[i]);
    w.finish(ppBitStream, pBitOffset);
    return nkpStatusOk;
}

template <class Step>
nkpStatus count_escaped(const nkp16s* pSrc, int srcLen, nkp32s* pCount, const nkpsVLCEncodeSpec_32s* pVLCSpec,
                        Step step) {
    if (!pSrc || !pCount || !pVLCSpec) return nkpStatusNullPointer;
    const EncodeSpec* spec = vlc::encode_spec(pVLCSpec);
    if (!spec) return nkpStatusWrongObject;
    const vlc::CodeTable table(*spec);
    int64_t bits = 0;
    for (int i = 0; i < srcLen; ++i) bits += step(table, pSrc[i]);
    *pCount = bits > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<nkp32s>(bits);
    return nkpStatusOk;
}

}  // namespace

nkpStatus nkpsVLCEncodeEscBlock_AAC_16s1u(const nkp16s* pSrc, int srcLen, nkp8u** ppBitStream, int* pBitOffset,
                                          const nkpsVLCEncodeSpec_32s* pVLCSpec) {
    return encode_escaped(pSrc, srcLen, ppBitStream, pBitOffset, pVLCSpec,
                          [](vlc::WordWriter& w, const vlc::CodeTable& table, nkp16s v) {
                              const int32_t m = magnitude(v);
                              if (m < 16) return vlc::put_code(w, table(v));
                              vlc::put_code(w, table(v < 0 ? -16 : 16));
                              const vlc::Code esc = aac_escape(static_cast<uint32_t>(m));
                              w.put(esc.bits, esc.length);
                          });
}

nkpStatus nkpsVLCEncodeEscBlock_MP3_16s1u(const nkp16s* pSrc, int srcLen, int linbits, nkp8u** ppBitStream,
                                          int* pBitOffset, const nkpsVLCEncodeSpec_32s* pVLCSpec) {
    return encode_escaped(pSrc, srcLen, ppBitStream, pBitOffset, pVLCSpec,
                          [linbits](vlc::WordWriter& w, const vlc::CodeTable& table, nkp16s v) {
                              const int32_t m = magnitude(v);
                              if (m < 15) return vlc::put_code(w, table(v));
                              vlc::put_code(w, table(v < 0 ? -15 : 15));
                              w.put_long(static_cast<uint32_t>(m - 15), linbits);
                          });
}

nkpStatus nkpsVLCCountEscBits_AAC_16s32s(const nkp16s* pSrc, int srcLen, nkp32s* pCount,
                                         const nkpsVLCEncodeSpec_32s* pVLCSpec) {
    return count_escaped(pSrc, srcLen, pCount, pVLCSpec, [](const vlc::CodeTable& table, nkp16s v) -> int64_t {
        const int32_t m = magnitude(v);
        if (m < 16) return table.length(v);
        return table.length(v < 0 ? -16 : 16) + aac_escape(static_cast<uint32_t>(m)).length;
    });
}

nkpStatus nkpsVLCCountEscBits_MP3_16s32s(const nkp16s* pSrc, int srcLen, int linbits, nkp32s* pCount,
                                         const nkpsVLCEncodeSpec_32s* pVLCSpec) {
    const int64_t extra = linbits > 0 ? linbits : 0;
    return count_escaped(pSrc, srcLen, pCount, pVLCSpec, [extra](const vlc::CodeTable& table, nkp16s v) -> int64_t {
        const int32_t m = magnitude(v);
        if (m < 15) return table.length(v);
        return table.length(v < 0 ? -15 : 15) + extra;
    });
}

}  // namespace nkp
