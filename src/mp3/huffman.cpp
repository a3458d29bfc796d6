// Huffman decoding of one granule/channel: the big-values pairs (up to three
// regions with their own tables, linbits escapes) and the count1 quadruples,
// into 576 signed quantised lines.
//
// The codes are walked through multi-level lookup tables (tables.h) from the
// shared bit cache (common/bit_reader.h), which never reads past the aligned
// word after the one holding the last bit consumed.
#include <emmintrin.h>

#include "common/bit_reader.h"
#include "common/numeric.h"
#include "frame/exports.h"
#include "mp3/tables.h"

namespace nkp {
namespace {

inline int32_t with_sign(uint32_t magnitude, uint32_t negative) {
    const int32_t m = static_cast<int32_t>(magnitude);
    const int32_t s = -static_cast<int32_t>(negative);
    return (m ^ s) - s;
}

// Zeros lines [begin, end) of the 576-line output; both are even.
void zero_lines(nkp32s* out, int begin, int end) {
    int i = begin;
    if (i < end && (i & 2)) {
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out + i), _mm_setzero_si128());
        i += 2;
    }
    for (; i + 4 <= end; i += 4) _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), _mm_setzero_si128());
    if (i < end) _mm_storel_epi64(reinterpret_cast<__m128i*>(out + i), _mm_setzero_si128());
}

// Decodes the pairs of lines [begin, end) with one code table.
template <bool kLinbits>
void decode_pairs(BitCache& bits, const mp3::HuffmanTable& table, nkp32s* out, int begin, int end) {
    const uint16_t* lut = mp3::kHuffmanLookup + table.offset;
    const uint32_t root = table.root_bits;
    const uint32_t linbits = table.linbits;
    for (int i = begin; i < end; i += 2) {
        bits.refill();
        uint32_t e = lut[bits.peek(root)];
        if (e & 0x8000) {
            bits.skip(root);
            for (;;) {
                const uint32_t width = ((e >> 12) & 7) + 1;
                e = lut[(e & 0xfff) + bits.peek(width)];
                if (!(e & 0x8000)) break;
                bits.skip(width);
            }
        }
        if ((e & 0xC000) == 0x4000) {
            // Code and sign bits in one entry: the common case.
            bits.skip((e >> 10) & 15);
            out[i] = static_cast<int32_t>(e << 22) >> 27;  // arithmetic shifts sign-extend
            out[i + 1] = static_cast<int32_t>(e << 27) >> 27;
            continue;
        }
        bits.skip((e >> 8) & 15);
        uint32_t x = (e >> 4) & 15;
        uint32_t y = e & 15;
        int32_t vx = 0, vy = 0;
        if (x) {
            if (kLinbits && x == 15) {
                bits.refill();
                x += bits.read(linbits);
            }
            vx = with_sign(x, bits.read(1));
        }
        if (y) {
            if (kLinbits && y == 15) {
                bits.refill();
                y += bits.read(linbits);
            }
            vy = with_sign(y, bits.read(1));
        }
        out[i] = vx;
        out[i + 1] = vy;
    }
}

// Where region 0 of a window-switched granule ends, from the caller's band
// tables (the Mbp variant).
int mbp_region0_end(const nkpMP3SideInfo& si, const nkp16s* long_row, const nkp16s* short_row,
                    const nkp16s* mixed_row) {
    if (si.blockType != 2) return long_row[8];
    if (si.mixedBlock == 0) return 3 * (short_row[3] - short_row[0]);
    // Mixed block: past the long bands, region 0 takes in short-band widths
    // S times; the first short band is counted twice, the later ones three
    // times each.
    const int long_bands = mixed_row[0] < 0 ? 0 : mixed_row[0] > 22 ? 22 : mixed_row[0];
    int e0 = long_row[long_bands];
    int k = 0;
    while (k < 13 && 3 * short_row[k] <= e0) ++k;
    if (k == 0) k = 1;
    const int steps = mixed_row[1];
    for (int step = 1; step <= steps; ++step) {
        e0 += short_row[k] - short_row[k - 1];
        if (step % 3 == 2 && k < 13) ++k;
    }
    return e0;
}

struct Regions {
    int end[3];     // line where each region ends
    int count;      // 2, or 3 without window switching
};

// Decodes once the checks have passed and the region ends are known.
nkpStatus decode(nkp8u** ppBitStream, int* pOffset, nkp32s* out, int* pNonZeroBound, const nkpMP3SideInfo& si,
                 int huf_bits, const Regions& regions) {
    const int big_end = 2 * si.bigValues;
    if (huf_bits == 0) {
        zero_lines(out, 0, 576);
        *pNonZeroBound = 0;
        return nkpStatusOk;
    }
    BitCache bits(*ppBitStream, *pOffset);
    const int64_t start = bits.position();

    int line = 0;
    for (int r = 0; r < regions.count; ++r) {
        const uint32_t t = static_cast<uint32_t>(si.tableSelect[r]);
        if (t > 31) return nkpStatusBadMP3SideInfo;
        const int end = regions.end[r];
        const mp3::HuffmanTable& table = mp3::kHuffmanTables[t];
        if (table.root_bits == 0)
            zero_lines(out, line, end);
        else if (table.linbits)
            decode_pairs<true>(bits, table, out, line, end);
        else
            decode_pairs<false>(bits, table, out, line, end);
        line = end;
    }
    line = big_end;

    const int64_t used = bits.position() - start;
    if (used > huf_bits) {
        const int64_t total = *pOffset + used;
        *ppBitStream += total >> 3;
        *pOffset = static_cast<int>(total & 7);
        return nkpStatusDataError;
    }

    // Count1 quadruples until the part's bits are used up or no room is left.
    // One lookup gives a quadruple's code and sign bits together.
    const int64_t part_end = start + huf_bits;
    const uint16_t* quads = si.count1TableSelect == 0 ? mp3::kCount1TableA : mp3::kCount1TableB;
    const uint32_t quad_bits = si.count1TableSelect == 0 ? 10 : 8;
    while (line < 574 && bits.position() < part_end) {
        bits.refill();
        const uint32_t e = quads[bits.peek(quad_bits)];
        bits.skip(e >> 12);
        out[line] = static_cast<int32_t>(e << 24) >> 30;
        out[line + 1] = static_cast<int32_t>(e << 26) >> 30;
        out[line + 2] = static_cast<int32_t>(e << 28) >> 30;
        out[line + 3] = static_cast<int32_t>(e << 30) >> 30;
        line += 4;
    }
    // A quadruple that ran past the part is dropped.
    if (bits.position() > part_end) line -= 4;

    const int64_t total = *pOffset + static_cast<int64_t>(huf_bits);
    *ppBitStream += total >> 3;
    *pOffset = static_cast<int>(total & 7);

    zero_lines(out, line, 576);

    int i = line;
    while (i > 1 && out[i - 1] == 0) --i;
    *pNonZeroBound = i == 1 ? (out[0] != 0) : i;
    return nkpStatusOk;
}

// Region ends capped to the big-values region, in order.
Regions make_regions(int e0, int e1, int big_end, int count) {
    Regions r;
    r.end[0] = clamp(e0, 0, big_end);
    r.end[1] = clamp(e1, r.end[0], big_end);
    r.end[2] = big_end;
    r.count = count;
    return r;
}

// The checks and region rules shared by the built-in and caller band-table
// variants.
nkpStatus decode_long_table(nkp8u** ppBitStream, int* pOffset, nkp32s* pDstIs, int* pDstNonZeroBound,
                            const nkpMP3SideInfo* pSideInfo, const nkpMP3FrameHeader* pFrameHeader, int hufSize,
                            const nkp16s* long_table) {
    if (!ppBitStream || !pOffset || !pDstIs || !pDstNonZeroBound || !pSideInfo || !pFrameHeader || !*ppBitStream)
        return nkpStatusNullPointer;
    const nkpMP3SideInfo& si = *pSideInfo;
    const nkpMP3FrameHeader& h = *pFrameHeader;
    if (static_cast<uint32_t>(*pOffset) > 7 || hufSize < 0 || hufSize > si.part23Length) return nkpStatusOutOfRange;
    if (static_cast<uint32_t>(si.bigValues) > 288 || static_cast<uint32_t>(si.blockType) > 3 ||
        static_cast<uint32_t>(si.windowSwitching) > 1 || static_cast<uint32_t>(si.count1TableSelect) > 1)
        return nkpStatusBadMP3SideInfo;
    if (static_cast<uint32_t>(h.id) > 1 || h.layer != 1 || static_cast<uint32_t>(h.samplingFreqIndex) > 2)
        return nkpStatusBadMP3FrameHeader;

    const int big_end = 2 * si.bigValues;
    Regions regions;
    if (si.windowSwitching) {
        if (si.blockType == 0) return nkpStatusBadMP3SideInfo;
        // LSF start and stop blocks have a longer region 0.
        const int e0 = (h.id == 1 || si.blockType == 2) ? 36 : 54;
        regions = make_regions(e0, big_end, big_end, 2);
    } else {
        if (si.region0Count < 0 || si.region1Count < 0 || si.region0Count + si.region1Count >= 21)
            return nkpStatusBadMP3SideInfo;
        const nkp16s* row = long_table ? long_table + 23 * (h.id * 3 + h.samplingFreqIndex) : nullptr;
        if (!row) row = mp3::builtin_long_row(h.id * 3 + h.samplingFreqIndex);
        regions = make_regions(row[si.region0Count + 1], row[si.region0Count + si.region1Count + 2], big_end, 3);
    }
    return decode(ppBitStream, pOffset, pDstIs, pDstNonZeroBound, si, hufSize, regions);
}

}  // namespace

nkpStatus nkpsHuffmanDecode_MP3_1u32s(nkp8u** ppBitStream, int* pOffset, nkp32s* pDstIs, int* pDstNonZeroBound,
                                      const nkpMP3SideInfo* pSideInfo, const nkpMP3FrameHeader* pFrameHeader,
                                      int hufSize) {
    return decode_long_table(ppBitStream, pOffset, pDstIs, pDstNonZeroBound, pSideInfo, pFrameHeader, hufSize,
                             nullptr);
}

nkpStatus nkpsHuffmanDecodeSfb_MP3_1u32s(nkp8u** ppBitStream, int* pOffset, nkp32s* pDstIs, int* pDstNonZeroBound,
                                         const nkpMP3SideInfo* pSideInfo, const nkpMP3FrameHeader* pFrameHeader,
                                         int hufSize, const nkp16s* pSfbTableLong) {
    return decode_long_table(ppBitStream, pOffset, pDstIs, pDstNonZeroBound, pSideInfo, pFrameHeader, hufSize,
                             pSfbTableLong);
}

nkpStatus nkpsHuffmanDecodeSfbMbp_MP3_1u32s(nkp8u** ppBitStream, int* pOffset, nkp32s* pDstIs,
                                            int* pDstNonZeroBound, const nkpMP3SideInfo* pSideInfo,
                                            const nkpMP3FrameHeader* pFrameHeader, int hufSize,
                                            const nkp16s* pSfbTableLong, const nkp16s* pSfbTableShort,
                                            const nkp16s* pMbpTable) {
    if (!ppBitStream || !pOffset || !pDstIs || !pDstNonZeroBound || !pSideInfo || !pFrameHeader || !*ppBitStream)
        return nkpStatusNullPointer;
    const nkpMP3SideInfo& si = *pSideInfo;
    const nkpMP3FrameHeader& h = *pFrameHeader;
    if (static_cast<uint32_t>(*pOffset) > 7) return nkpStatusOutOfRange;
    if (static_cast<uint32_t>(h.id) > 1) return nkpStatusBadMP3FrameHeader;
    if (static_cast<uint32_t>(si.bigValues) > 288 || static_cast<uint32_t>(si.blockType) > 3)
        return nkpStatusBadMP3SideInfo;
    if (static_cast<uint32_t>(si.windowSwitching) > 1) return nkpStatusBadMP3SideInfo;
    if (si.windowSwitching && si.blockType == 0) return nkpStatusBadMP3SideInfo;
    if (h.layer != 1 || static_cast<uint32_t>(h.samplingFreqIndex) > 2) return nkpStatusBadMP3FrameHeader;
    // Here a bad bit count is a side-information error.
    if (static_cast<uint32_t>(si.count1TableSelect) > 1 || hufSize < 0 || hufSize > si.part23Length)
        return nkpStatusBadMP3SideInfo;

    const int row = h.id * 3 + h.samplingFreqIndex;
    const int big_end = 2 * si.bigValues;
    Regions regions;
    if (si.windowSwitching) {
        const int e0 = mbp_region0_end(si, pSfbTableLong + 23 * row, pSfbTableShort + 14 * row, pMbpTable + 2 * row);
        regions = make_regions(e0, big_end, big_end, 2);
    } else {
        // Without window switching the block type is not looked at.
        if (si.region0Count < 0 || si.region1Count < 0 || si.region0Count + si.region1Count >= 21)
            return nkpStatusBadMP3SideInfo;
        const nkp16s* long_row = pSfbTableLong + 23 * row;
        regions = make_regions(long_row[si.region0Count + 1], long_row[si.region0Count + si.region1Count + 2],
                               big_end, 3);
    }
    return decode(ppBitStream, pOffset, pDstIs, pDstNonZeroBound, si, hufSize, regions);
}

}  // namespace nkp
