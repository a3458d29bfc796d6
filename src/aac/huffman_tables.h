// Huffman lookup tables of the AAC noiseless decoders (generated into
// generated/huffman_tables.cpp by tools/gen_aac_huffman_tables.py from the
// standard's code books).
//
// A code is walked from its root table, indexed by the next
// kSpectralRootBits (kScaleFactorRootBits) bits of the stream. Every entry is a 32-bit word:
//  - a link, bit 31 set: bits 16..19 the width of the next table, bits
//    0..15 its index from the book's first entry; the root's bits are
//    consumed and the walk goes on with the next bits;
//  - a leaf, bit 31 clear: bits 24..28 the bits it consumes at its level.
//    Spectral leaves hold the tuple in four 6-bit two's-complement fields,
//    first value in bits 0..5, then 6..11, 12..17, 18..23 (pairs use the
//    first two). Bit 30 set: the values carry their signs (the signed books,
//    and the unsigned books where the code and its sign bits fit the level:
//    the sign bits are then among the bits consumed). Bit 30 clear: the
//    values are magnitudes and one sign bit per non-zero value follows.
//    Bit 29 set: a value of magnitude 16 in book 11, an escape follows.
//    Scale-factor leaves hold the index 0..120 in bits 0..6.
// Every code is complete, so every bit pattern reaches a leaf.
#pragma once

#include <cstdint>

namespace nkp::aac {

inline constexpr uint32_t kLookupLink = 1u << 31;
inline constexpr uint32_t kLookupSigned = 1u << 30;
inline constexpr uint32_t kLookupEscape = 1u << 29;

inline constexpr int kSpectralRootBits = 9;

struct SpectralBook {
    uint16_t offset;      // first entry in kSpectralLookup (book 0 has no code)
    uint8_t dimension;    // 4 (quads) or 2 (pairs)
    uint8_t is_unsigned;  // magnitudes with sign bits after the code
};

extern const uint32_t kSpectralLookup[];
extern const SpectralBook kSpectralBooks[12];

inline constexpr int kScaleFactorRootBits = 8;
extern const uint32_t kScaleFactorLookup[];

}  // namespace nkp::aac
