// Constant tables of the MP3 family (generated into generated/tables.cpp and
// generated/huffman_tables.cpp by tools/gen_mp3_tables.py).
#pragma once

#include <cstdint>

namespace nkp::mp3 {

// Sampling-rate rows used by the band tables: 0..2 MPEG-1 (44100, 48000,
// 32000 Hz), 3..5 MPEG-2 (22050, 24000, 16000), 6..8 MPEG-2.5 (11025, 12000,
// 8000), i.e. row = 3 * version + samplingFreqIndex with version 0 MPEG-1,
// 1 MPEG-2, 2 MPEG-2.5.
extern const int32_t kSampleRateHz[9];

// Scale-factor band boundaries: long bands (23 boundaries, 0..576) and short
// bands of one window (14 boundaries, 0..192).
extern const int16_t kSfbLong[9][23];
extern const int16_t kSfbShort[9][14];

inline int sfb_rate_row(int id, int sampling_freq_index, bool mpeg25) {
    return (id == 1 ? 0 : mpeg25 ? 6 : 3) + sampling_freq_index;
}

// The long-band row the Huffman decoder uses by default, indexed like the
// callers' tables: id * 3 + samplingFreqIndex (0..2 LSF, 3..5 MPEG-1).
inline const int16_t* builtin_long_row(int row) { return kSfbLong[row < 3 ? row + 3 : row - 3]; }

// LSF scale-factor partitions: bands per partition, [row][block kind][k],
// block kind 0 long, 1 short, 2 mixed (short and mixed counts include the
// three windows).
extern const uint8_t kLsfPartitionBands[6][3][4];

// MPEG-1 scale-factor widths by scalefacCompress: kSlen[0] slen1, [1] slen2.
extern const uint8_t kSlen[2][16];

// Pre-emphasis added to long-band scale factors 0..21 when preflag is set.
extern const uint8_t kPretab[22];

// Bit rates in kbit/s, [id][layer 1..3 - 1][bitrateIndex 0..14]; id 0 (LSF)
// serves MPEG-2 and MPEG-2.5. Index 0 is free format.
extern const int16_t kBitrateKbps[2][3][15];

// MPEG-1 Layer III frame size in bytes without padding,
// [samplingFreqIndex 0..2][bitrateIndex 0..14].
extern const int16_t kReservoirFrameBytes[3][15];

// Big-value Huffman tables. Each code is walked in kHuffmanLookup starting
// at `offset` with a root of `root_bits` bits. An entry is one of:
//  - a complete pair, bits 15..14 = 01: bits 10..13 the bits it consumes at
//    its level, sign bits included; bits 5..9 x and 0..4 y, signed 5-bit
//    (where the sign bits fit the level and no escape can follow);
//  - a leaf, bits 15..14 = 00: bits 8..11 the code bits at its level, bits
//    4..7 |x|, 0..3 |y|; sign bits and linbits follow in the stream;
//  - a link, bit 15 set: bits 12..14 the sub-table's width minus one, bits
//    0..11 the sub-table's index from `offset`.
// root_bits 0 marks tables 0, 4 and 14, which read nothing.
struct HuffmanTable {
    uint16_t offset;
    uint8_t root_bits;
    uint8_t linbits;
};
extern const uint16_t kHuffmanLookup[];
extern const HuffmanTable kHuffmanTables[32];

// Quadruple tables A and B with the sign bits, indexed by the next 10 (A)
// or 8 (B) bits: bits 12..15 the bits a quadruple takes, code and signs;
// v, w, x, y as 2-bit signed values in bits 6..7, 4..5, 2..3, 0..1.
extern const uint16_t kCount1TableA[1024];
extern const uint16_t kCount1TableB[256];

}  // namespace nkp::mp3
