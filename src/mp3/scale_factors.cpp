// Scale factors: unpacking and packing, MPEG-1 and LSF.
#include "common/bit_reader.h"
#include "frame/exports.h"
#include "common/bit_writer.h"
#include "mp3/tables.h"

namespace nkp {
namespace {

// MPEG-1 long blocks: four groups of bands, each with its own scfsi flag.
constexpr int kGroupStart[5] = {0, 6, 11, 16, 21};

// LSF slen values, partition-table row and preflag from scalefacCompress.
struct LsfLayout {
    int slen[4];
    int row;
    int preflag;
};

LsfLayout lsf_layout(int scalefac_compress, bool intensity_right) {
    LsfLayout l{};
    if (intensity_right) {
        // The intensity-stereo right channel codes half the value.
        const int s = scalefac_compress >> 1;
        if (s < 180) {
            l = {{s / 36, (s % 36) / 6, (s % 36) % 6, 0}, 3, 0};
        } else if (s < 244) {
            const int t = s - 180;
            l = {{t / 16, (t % 16) / 4, t % 4, 0}, 4, 0};
        } else {
            const int t = s - 244;
            l = {{t / 3, t % 3, 0, 0}, 5, 0};
        }
    } else {
        const int c = scalefac_compress;
        if (c < 400) {
            l = {{(c / 16) / 5, (c / 16) % 5, (c % 16) / 4, c % 4}, 0, 0};
        } else if (c < 500) {
            const int t = c - 400;
            l = {{(t / 4) / 5, (t / 4) % 5, t % 4, 0}, 1, 0};
        } else {
            const int t = c - 500;
            l = {{t / 3, t % 3, 0, 0}, 2, 1};
        }
    }
    return l;
}

void read_values(BitReader& r, nkp8s* dst, int count, int width) {
    for (int i = 0; i < count; ++i) dst[i] = static_cast<nkp8s>(r.read(width));
}

void write_values(mp3::ByteWriter& w, const nkp8s* src, int count, int width) {
    for (int i = 0; i < count; ++i) w.put(static_cast<uint8_t>(src[i]), width);
}

}  // namespace

nkpStatus nkpsUnpackScaleFactors_MP3_1u8s(nkp8u** ppBitStream, int* pOffset, nkp8s* pDstScaleFactor,
                                          nkpMP3SideInfo* pSideInfo, const int* pScfsi,
                                          const nkpMP3FrameHeader* pFrameHeader, int granule, int channel) {
    if (!ppBitStream || !pOffset || !pDstScaleFactor || !pSideInfo || !pScfsi || !pFrameHeader || !*ppBitStream)
        return nkpStatusNullPointer;
    if (static_cast<uint32_t>(*pOffset) > 7 || static_cast<uint32_t>(granule) > 1 ||
        static_cast<uint32_t>(channel) > 1)
        return nkpStatusOutOfRange;
    nkpMP3SideInfo& si = *pSideInfo;
    const nkpMP3FrameHeader& h = *pFrameHeader;
    nkp8s* sf = pDstScaleFactor;
    BitReader r(*ppBitStream, *pOffset);

    if (h.id == 1) {
        if (static_cast<uint32_t>(si.scalefacCompress) > 15) return nkpStatusBadMP3SideInfo;
        const int slen1 = mp3::kSlen[0][si.scalefacCompress];
        const int slen2 = mp3::kSlen[1][si.scalefacCompress];
        if (si.blockType == 2) {
            // Short and mixed blocks ignore the granule and scfsi.
            if (si.mixedBlock == 0) {
                read_values(r, sf, 18, slen1);
                read_values(r, sf + 18, 18, slen2);
                sf[36] = sf[37] = sf[38] = 0;
            } else {
                read_values(r, sf, 8 + 9, slen1);
                read_values(r, sf + 17, 18, slen2);
                sf[35] = sf[36] = sf[37] = 0;
            }
        } else {
            // Granule 1 keeps the granule-0 values of groups flagged in scfsi.
            for (int g = 0; g < 4; ++g) {
                if (granule == 1 && pScfsi[g] != 0) continue;
                read_values(r, sf + kGroupStart[g], kGroupStart[g + 1] - kGroupStart[g], g < 2 ? slen1 : slen2);
            }
            sf[21] = 0;
        }
    } else {
        if (si.scalefacCompress < 0 || si.scalefacCompress > 511) return nkpStatusBadMP3SideInfo;
        if (static_cast<uint32_t>(h.modeExtension) > 3) return nkpStatusBadMP3FrameHeader;
        int kind = 0;
        if (si.blockType == 2) {
            si.mixedBlock &= 1;
            kind = si.mixedBlock ? 2 : 1;
        }
        const bool intensity_right = (h.modeExtension & 1) && channel == 1;
        const LsfLayout l = lsf_layout(si.scalefacCompress, intensity_right);
        si.preflag = l.preflag;
        int n = 0;
        for (int k = 0; k < 4; ++k) {
            const int count = mp3::kLsfPartitionBands[l.row][kind][k];
            const int width = l.slen[k];
            const int top = (1 << width) - 1;
            for (int i = 0; i < count; ++i, ++n) {
                const int v = static_cast<int>(r.read(width));
                // A value at its width's maximum marks an illegal intensity
                // position; it is handed on negated.
                sf[n] = static_cast<nkp8s>(intensity_right && v == top ? -v : v);
            }
        }
        sf[n] = sf[n + 1] = sf[n + 2] = 0;
    }
    r.store(ppBitStream, pOffset);
    return nkpStatusOk;
}

nkpStatus nkpsPackScaleFactors_MP3_8s1u(const nkp8s* pSrcScaleFactor, nkp8u** ppBitStream, int* pOffset,
                                        const nkpMP3FrameHeader* pFrameHeader, nkpMP3SideInfo* pSideInfo,
                                        const int* pScfsi, int granule, int channel) {
    if (!pSrcScaleFactor || !ppBitStream || !pOffset || !pFrameHeader || !pSideInfo || !pScfsi || !*ppBitStream)
        return nkpStatusNullPointer;
    nkpMP3SideInfo& si = *pSideInfo;
    const nkpMP3FrameHeader& h = *pFrameHeader;
    if (h.id == 1) {
        if (static_cast<uint32_t>(si.scalefacCompress) > 15) return nkpStatusBadMP3SideInfo;
    } else {
        if (static_cast<uint32_t>(si.scalefacCompress) > 511) return nkpStatusBadMP3SideInfo;
        if (static_cast<uint32_t>(h.modeExtension) > 3) return nkpStatusBadMP3FrameHeader;
    }
    // The offset is not checked; one outside 0..7 still names a bit
    // position, counted from the byte pointer.
    const nkp8s* sf = pSrcScaleFactor;
    mp3::ByteWriter w(*ppBitStream + (*pOffset >> 3), *pOffset & 7);

    if (h.id == 1) {
        const int slen1 = mp3::kSlen[0][si.scalefacCompress];
        const int slen2 = mp3::kSlen[1][si.scalefacCompress];
        if (si.blockType == 2) {
            if (si.mixedBlock == 0) {
                write_values(w, sf, 18, slen1);
                write_values(w, sf + 18, 18, slen2);
            } else {
                write_values(w, sf, 8 + 9, slen1);
                write_values(w, sf + 17, 18, slen2);
            }
        } else {
            for (int g = 0; g < 4; ++g) {
                if (granule != 0 && pScfsi[g] != 0) continue;
                write_values(w, sf + kGroupStart[g], kGroupStart[g + 1] - kGroupStart[g], g < 2 ? slen1 : slen2);
            }
        }
    } else {
        // Unlike the reader, the writer does not mask mixedBlock: only 0 and
        // 1 select the short and mixed layouts.
        int kind = 0;
        if (si.blockType == 2 && si.mixedBlock == 0) kind = 1;
        if (si.blockType == 2 && si.mixedBlock == 1) kind = 2;
        const bool intensity_right = (h.modeExtension & 1) && channel == 1;
        const LsfLayout l = lsf_layout(si.scalefacCompress, intensity_right);
        si.preflag = l.preflag;
        int n = 0;
        for (int k = 0; k < 4; ++k) {
            const int count = mp3::kLsfPartitionBands[l.row][kind][k];
            write_values(w, sf + n, count, l.slen[k]);
            n += count;
        }
    }
    *ppBitStream = w.byte();
    *pOffset = w.bit_offset();
    return nkpStatusOk;
}

}  // namespace nkp
