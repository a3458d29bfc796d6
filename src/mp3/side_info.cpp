// Side information: unpacking and packing of the per-granule, per-channel
// records, main-data begin, private bits and scfsi.
#include "common/bit_reader.h"
#include "frame/exports.h"
#include "common/bit_writer.h"

namespace nkp {
namespace {

// Not the shared aligned-word reader: side information promises to read at
// most 3 bytes past its end, less than that reader's slack. Its fields are at
// most 12 bits, so one unaligned 32-bit fetch at the current byte always
// holds the next field.
class FieldReader {
public:
    explicit FieldReader(const nkp8u* p) : p_(p) {}
    uint32_t get(int n) {
        const uint32_t w = load_be32(p_) << bit_;
        const int end = bit_ + n;
        p_ += end >> 3;
        bit_ = end & 7;
        return w >> (32 - n);
    }
    const nkp8u* byte() const { return p_; }

private:
    const nkp8u* p_;
    int bit_ = 0;
};

bool bad_layer3_header(const nkpMP3FrameHeader& h) {
    return static_cast<uint32_t>(h.id) > 1 || h.layer != 1 || static_cast<uint32_t>(h.mode) > 3;
}

}  // namespace

nkpStatus nkpsUnpackSideInfo_MP3(nkp8u** ppBitStream, nkpMP3SideInfo* pDstSideInfo, int* pDstMainDataBegin,
                                 int* pDstPrivateBits, int* pDstScfsi, const nkpMP3FrameHeader* pFrameHeader) {
    if (!ppBitStream || !pDstSideInfo || !pDstMainDataBegin || !pDstPrivateBits || !pDstScfsi || !pFrameHeader ||
        !*ppBitStream)
        return nkpStatusNullPointer;
    const nkpMP3FrameHeader& h = *pFrameHeader;
    if (bad_layer3_header(h)) return nkpStatusBadMP3FrameHeader;

    const int nch = h.mode == 3 ? 1 : 2;
    const bool mpeg1 = h.id == 1;
    const int granules = mpeg1 ? 2 : 1;
    FieldReader r(*ppBitStream);
    if (mpeg1) {
        *pDstMainDataBegin = static_cast<int>(r.get(9));
        *pDstPrivateBits = static_cast<int>(r.get(nch == 1 ? 5 : 3));
        for (int i = 0; i < 4 * nch; ++i) pDstScfsi[i] = static_cast<int>(r.get(1));
    } else {
        *pDstMainDataBegin = static_cast<int>(r.get(8));
        *pDstPrivateBits = static_cast<int>(r.get(nch == 1 ? 1 : 2));
    }
    for (int i = 0; i < granules * nch; ++i) {
        nkpMP3SideInfo& si = pDstSideInfo[i];
        si.part23Length = static_cast<int>(r.get(12));
        si.bigValues = static_cast<int>(r.get(9));
        si.globalGain = static_cast<int>(r.get(8));
        si.scalefacCompress = static_cast<int>(r.get(mpeg1 ? 4 : 9));
        si.windowSwitching = static_cast<int>(r.get(1));
        if (si.windowSwitching) {
            si.blockType = static_cast<int>(r.get(2));
            si.mixedBlock = static_cast<int>(r.get(1));
            si.tableSelect[0] = static_cast<int>(r.get(5));
            si.tableSelect[1] = static_cast<int>(r.get(5));
            si.subblockGain[0] = static_cast<int>(r.get(3));
            si.subblockGain[1] = static_cast<int>(r.get(3));
            si.subblockGain[2] = static_cast<int>(r.get(3));
            if (si.blockType == 0) {
                // The sub-byte position is lost: the pointer stays on the byte
                // the reader had reached.
                *ppBitStream = const_cast<nkp8u*>(r.byte());
                return nkpStatusBadMP3SideInfo;
            }
            // Region 1 always reaches the end of the big-values region.
            const bool pure_short = si.blockType == 2 && si.mixedBlock == 0;
            si.region0Count = pure_short ? 8 : 7;
            si.region1Count = pure_short ? 12 : 13;
        } else {
            si.tableSelect[0] = static_cast<int>(r.get(5));
            si.tableSelect[1] = static_cast<int>(r.get(5));
            si.tableSelect[2] = static_cast<int>(r.get(5));
            si.region0Count = static_cast<int>(r.get(4));
            si.region1Count = static_cast<int>(r.get(3));
            si.blockType = 0;
            si.mixedBlock = 0;
        }
        if (mpeg1) si.preflag = static_cast<int>(r.get(1));
        si.scalefacScale = static_cast<int>(r.get(1));
        si.count1TableSelect = static_cast<int>(r.get(1));
    }
    *ppBitStream = const_cast<nkp8u*>(r.byte());
    return nkpStatusOk;
}

nkpStatus nkpsPackSideInfo_MP3(const nkpMP3SideInfo* pSrcSideInfo, nkp8u** ppBitStream, int mainDataBegin,
                               int privateBits, const int* pSrcScfsi, const nkpMP3FrameHeader* pFrameHeader) {
    if (!pSrcSideInfo || !ppBitStream || !*ppBitStream || !pSrcScfsi || !pFrameHeader) return nkpStatusNullPointer;
    const nkpMP3FrameHeader& h = *pFrameHeader;
    if (bad_layer3_header(h)) return nkpStatusBadMP3FrameHeader;

    const int nch = h.mode == 3 ? 1 : 2;
    const bool mpeg1 = h.id == 1;
    const int granules = mpeg1 ? 2 : 1;
    mp3::ByteWriter w(*ppBitStream, 0);
    if (mpeg1) {
        w.put(mainDataBegin, 9);
        w.put(privateBits, nch == 1 ? 5 : 3);
        for (int i = 0; i < 4 * nch; ++i) w.put(pSrcScfsi[i], 1);
    } else {
        w.put(mainDataBegin, 8);
        w.put(privateBits, nch == 1 ? 1 : 2);
    }
    for (int i = 0; i < granules * nch; ++i) {
        const nkpMP3SideInfo& si = pSrcSideInfo[i];
        w.put(si.part23Length, 12);
        w.put(si.bigValues, 9);
        w.put(si.globalGain, 8);
        w.put(si.scalefacCompress, mpeg1 ? 4 : 9);
        w.put(si.windowSwitching, 1);
        if (si.windowSwitching & 1) {
            // A window-switched record without a block type ends the writing
            // here, and still reports success.
            if (si.blockType == 0) {
                *ppBitStream = w.byte();
                return nkpStatusOk;
            }
            w.put(si.blockType, 2);
            w.put(si.mixedBlock, 1);
            w.put(si.tableSelect[0], 5);
            w.put(si.tableSelect[1], 5);
            w.put(si.subblockGain[0], 3);
            w.put(si.subblockGain[1], 3);
            w.put(si.subblockGain[2], 3);
        } else {
            w.put(si.tableSelect[0], 5);
            w.put(si.tableSelect[1], 5);
            w.put(si.tableSelect[2], 5);
            w.put(si.region0Count, 4);
            w.put(si.region1Count, 3);
        }
        if (mpeg1) w.put(si.preflag, 1);
        w.put(si.scalefacScale, 1);
        w.put(si.count1TableSelect, 1);
    }
    *ppBitStream = w.byte();
    return nkpStatusOk;
}

}  // namespace nkp
