// The MP3 byte writer shared by the header, side-information, scale-factor
// and Huffman writers: fields most significant bit first from a byte pointer
// and a bit offset (0..7 from the most significant bit).
#pragma once

#include <cstdint>

namespace nkp::mp3 {

class ByteWriter {
public:
    ByteWriter(uint8_t* byte, int bit_offset) : byte_(byte), offset_(bit_offset) {}

    // Writes the low `width` bits of value (width 0..32). A field starting at
    // offset 0 overwrites its first byte; one starting inside a byte is ORed
    // into it (the bits below the cursor must be zero). The last partial
    // byte gets zeros after the field. A field that ends on a byte boundary
    // reads and stores back the following byte, so that byte must be
    // addressable.
    void put(uint32_t value, int width) {
        if (width <= 0) return;
        const uint64_t field = width >= 32 ? value : (value & ((uint32_t{1} << width) - 1));
        const int end = offset_ + width;
        const uint64_t bits = field << (64 - end);
        uint8_t* p = byte_;
        const int bytes = (end + 7) >> 3;
        p[0] = static_cast<uint8_t>((offset_ ? p[0] : 0) | (bits >> 56));
        for (int i = 1; i < bytes; ++i) p[i] = static_cast<uint8_t>(bits >> (56 - 8 * i));
        if ((end & 7) == 0) {
            volatile uint8_t* next = p + bytes;
            *next = *next;
        }
        byte_ += end >> 3;
        offset_ = end & 7;
    }

    uint8_t* byte() const { return byte_; }
    int bit_offset() const { return offset_; }

private:
    uint8_t* byte_;
    int offset_;
};

}  // namespace nkp::mp3
