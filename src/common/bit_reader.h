// The bit-stream cursor's reader: bits most significant first, fetched as
// aligned big-endian 32-bit words.
//
// Read slack: to take bits from position p the reader loads the aligned word
// holding p and the aligned word after it, never more. So a stream must stay
// readable to the end of the aligned 8-byte stretch after the last bit
// consumed (and the aligned word holding the first bit may be read from its
// start, which can lie up to 3 bytes before the stream pointer).
//
// Internal linkage on purpose: two-path sources read bit streams too, and a
// shared inline copy could hand one path's instructions (MOVBE) to the other.
#pragma once

#include <cstdint>
#include <cstring>

namespace nkp {
namespace {

inline uint32_t load_be32(const uint8_t* p) {
    uint32_t w;
    std::memcpy(&w, p, 4);
    return __builtin_bswap32(w);
}

class BitReader {
public:
    BitReader(const uint8_t* byte, int bit_offset)
        : base_(byte - (reinterpret_cast<uintptr_t>(byte) & 3)),
          pos_(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(byte) & 3) * 8 +
               static_cast<uint32_t>(bit_offset)) {}

    // The next n bits (1..32) without consuming them.
    uint32_t peek(int n) const { return static_cast<uint32_t>((window() << (pos_ & 31)) >> (64 - n)); }
    // The next n bits (0..32), consumed.
    uint32_t read(int n) {
        if (n == 0) return 0;
        const uint32_t v = peek(n);
        pos_ += static_cast<uint32_t>(n);
        return v;
    }
    uint32_t read_bit() { return read(1); }
    void skip(uint32_t n) { pos_ += n; }

    // Bits consumed since the aligned word that held the starting position.
    uint32_t position() const { return pos_; }
    void set_position(uint32_t pos) { pos_ = pos; }

    const uint8_t* byte() const { return base_ + (pos_ >> 3); }
    int bit_offset() const { return static_cast<int>(pos_ & 7); }

    // Writes the cursor back in the exported form.
    template <class BytePtr>
    void store(BytePtr* pp_byte, int* p_offset) const {
        *pp_byte = const_cast<BytePtr>(byte());
        *p_offset = bit_offset();
    }

private:
    // The aligned 32-bit word holding the current bit and the one after it.
    uint64_t window() const {
        const uint8_t* w = base_ + ((pos_ >> 5) << 2);
        return (static_cast<uint64_t>(load_be32(w)) << 32) | load_be32(w + 4);
    }

    const uint8_t* base_;  // aligned to 4
    uint32_t pos_;         // bit position from base_
};

// The same reader for tight decoding loops: the window of the aligned word
// holding the next bit and the word after it is kept in a register, and a
// word is fetched only by refill(), when the next bit lies in the second
// word. Same read slack as BitReader.
class BitCache {
public:
    BitCache(const uint8_t* byte, int bit_offset)
        : word_(byte - (reinterpret_cast<uintptr_t>(byte) & 3)),
          pos_(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(byte) & 3) * 8 + static_cast<uint32_t>(bit_offset)),
          start_(word_) {
        window_ = (static_cast<uint64_t>(load_be32(word_)) << 32) | load_be32(word_ + 4);
    }

    // Makes at least 33 bits available; call only before consuming a bit.
    void refill() {
        if (pos_ >= 32) {
            word_ += 4;
            window_ = (window_ << 32) | load_be32(word_ + 4);
            pos_ -= 32;
        }
    }
    // The next n bits (1..32), with pos + n <= 64.
    uint32_t peek(uint32_t n) const { return static_cast<uint32_t>((window_ << pos_) >> (64 - n)); }
    void skip(uint32_t n) { pos_ += n; }
    uint32_t read(uint32_t n) {
        const uint32_t v = peek(n);
        pos_ += n;
        return v;
    }
    // Bits from the aligned word that held the starting position.
    int64_t position() const { return static_cast<int64_t>(word_ - start_) * 8 + pos_; }

private:
    const uint8_t* word_;  // aligned word holding bit pos_ (while pos_ < 32)
    uint64_t window_;
    uint32_t pos_;
    const uint8_t* start_;
};

}  // namespace
}  // namespace nkp
