// Huffman decoding of the big-values pairs and count1 quadruples.
#include "frame/exports.h"

namespace nkp {

nkpStatus nkpsHuffmanDecode_MP3_1u32s(nkp8u** ppBitStream, int* pOffset, nkp32s* pDstIs, int* pDstNonZeroBound,
                                      const nkpMP3SideInfo* pSideInfo, const nkpMP3FrameHeader* pFrameHeader,
                                      int hufSize) {
    return nkpStatusNullPointer;
}

nkpStatus nkpsHuffmanDecodeSfb_MP3_1u32s(nkp8u** ppBitStream, int* pOffset, nkp32s* pDstIs, int* pDstNonZeroBound,
                                         const nkpMP3SideInfo* pSideInfo, const nkpMP3FrameHeader* pFrameHeader,
                                         int hufSize, const nkp16s* pSfbTableLong) {
    return nkpStatusNullPointer;
}

nkpStatus nkpsHuffmanDecodeSfbMbp_MP3_1u32s(nkp8u** ppBitStream, int* pOffset, nkp32s* pDstIs,
                                            int* pDstNonZeroBound, const nkpMP3SideInfo* pSideInfo,
                                            const nkpMP3FrameHeader* pFrameHeader, int hufSize,
                                            const nkp16s* pSfbTableLong, const nkp16s* pSfbTableShort,
                                            const nkp16s* pMbpTable) {
    return nkpStatusNullPointer;
}

}  // namespace nkp
