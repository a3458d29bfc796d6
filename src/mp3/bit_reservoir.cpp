// Bit reservoir of an MPEG-1 Layer III encoder.
#include "frame/exports.h"
#include "mp3/tables.h"

namespace nkp {

// 7680 bits is the Layer III input buffer; 4088 = 8 * 511 the farthest the
// 9-bit main-data begin reaches back. The indices are not checked: callers
// pass samplingFreqIndex 0..2 and bitrateIndex 0..14 (others are taken as a
// free-format frame rather than read from outside the table).
nkpStatus nkpsBitReservoirInit_MP3(nkpMP3BitReservoir* pBitReservoir, const nkpMP3FrameHeader* pFrameHeader) {
    if (!pBitReservoir || !pFrameHeader) return nkpStatusNullPointer;
    const nkpMP3FrameHeader& h = *pFrameHeader;
    if (h.id != 1) return nkpStatusBadMP3FrameHeader;
    pBitReservoir->reservoirBits = 0;
    const bool listed = static_cast<uint32_t>(h.samplingFreqIndex) < 3 && static_cast<uint32_t>(h.bitrateIndex) < 15;
    const int frame_bits = listed ? 8 * mp3::kReservoirFrameBytes[h.samplingFreqIndex][h.bitrateIndex] : 0;
    const int room = 7680 - (frame_bits < 7680 ? frame_bits : 7680);
    pBitReservoir->maxReservoirBits = room < 4088 ? room : 4088;
    return nkpStatusOk;
}

}  // namespace nkp
