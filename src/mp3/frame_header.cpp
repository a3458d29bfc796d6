// Frame header: unpacking and packing of the 4-byte Layer III header and its
// CRC word.
#include "frame/exports.h"
#include "common/bit_writer.h"

namespace nkp {

// The sync word (byte 0 and the top of byte 1) is not looked at: finding the
// frame is the caller's job, which is also why MPEG-2.5 reads as MPEG-2.
nkpStatus nkpsUnpackFrameHeader_MP3(nkp8u** ppBitStream, nkpMP3FrameHeader* pFrameHeader) {
    if (!ppBitStream || !pFrameHeader || !*ppBitStream) return nkpStatusNullPointer;
    const nkp8u* p = *ppBitStream;
    nkpMP3FrameHeader& h = *pFrameHeader;
    h.id = (p[1] >> 3) & 1;
    h.layer = (p[1] >> 1) & 3;
    h.protectionBit = p[1] & 1;
    h.bitrateIndex = p[2] >> 4;
    h.samplingFreqIndex = (p[2] >> 2) & 3;
    h.paddingBit = (p[2] >> 1) & 1;
    h.privateBit = p[2] & 1;
    h.mode = p[3] >> 6;
    h.modeExtension = (p[3] >> 4) & 3;
    h.copyright = (p[3] >> 3) & 1;
    h.originalCopy = (p[3] >> 2) & 1;
    h.emphasis = p[3] & 3;
    if (h.protectionBit == 0) {
        h.crcWord = (p[4] << 8) | p[5];
        *ppBitStream += 6;
    } else {
        *ppBitStream += 4;
    }
    return nkpStatusOk;
}

// Values are not validated: each is cut to its field width.
nkpStatus nkpsPackFrameHeader_MP3(const nkpMP3FrameHeader* pSrcFrameHeader, nkp8u** ppBitStream) {
    if (!pSrcFrameHeader || !ppBitStream || !*ppBitStream) return nkpStatusNullPointer;
    const nkpMP3FrameHeader& h = *pSrcFrameHeader;
    mp3::ByteWriter w(*ppBitStream, 0);
    w.put(4095, 12);
    w.put(h.id, 1);
    w.put(h.layer, 2);
    w.put(h.protectionBit, 1);
    w.put(h.bitrateIndex, 4);
    w.put(h.samplingFreqIndex, 2);
    w.put(h.paddingBit, 1);
    w.put(h.privateBit, 1);
    w.put(h.mode, 2);
    w.put(h.modeExtension, 2);
    w.put(h.copyright, 1);
    w.put(h.originalCopy, 1);
    w.put(h.emphasis, 2);
    if (h.protectionBit == 0) {
        w.put(static_cast<uint32_t>(h.crcWord) >> 8, 8);
        w.put(h.crcWord, 8);
    }
    *ppBitStream = w.byte();
    return nkpStatusOk;
}

}  // namespace nkp
