// Scale factors: unpacking and packing, MPEG-1 and LSF.
#include "frame/exports.h"

namespace nkp {

nkpStatus nkpsUnpackScaleFactors_MP3_1u8s(nkp8u** ppBitStream, int* pOffset, nkp8s* pDstScaleFactor,
                                          nkpMP3SideInfo* pSideInfo, const int* pScfsi,
                                          const nkpMP3FrameHeader* pFrameHeader, int granule, int channel) {
    return nkpStatusNullPointer;
}

nkpStatus nkpsPackScaleFactors_MP3_8s1u(const nkp8s* pSrcScaleFactor, nkp8u** ppBitStream, int* pOffset,
                                        const nkpMP3FrameHeader* pFrameHeader, nkpMP3SideInfo* pSideInfo,
                                        const int* pScfsi, int granule, int channel) {
    return nkpStatusNullPointer;
}

}  // namespace nkp
