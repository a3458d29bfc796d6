// The bit-stream cursor's reader: bits most significant first, fetched as
// aligned big-endian 32-bit words.
//
// Read slack: to take bits from position p the reader loads the aligned word
// holding p and the aligned word after it, never more. So a stream must stay
// readable to the end of the aligned 8-byte stretch after the last bit
// consumed (and the aligned word holding the first bit may be read from its
// start, which can lie up to 3 bytes before the stream pointer).
//
// A source compiled once per code path gets its own copy of these types (in
// an inline namespace named after the path), so that the linker cannot hand
// one path's inline code (MOVBE loads) to the other; everywhere else they are
// plain nkp:: types that files can pass to each other.
#pragma once

#include <cstdint>
#include <cstring>

#define NKP_BITS_NS_CAT(a, b) a##b
#define NKP_BITS_NS(p) NKP_BITS_NS_CAT(bits_, p)

namespace nkp {
#if defined(NKP_PATH_NS)
inline namespace NKP_BITS_NS(NKP_PATH_NS) {
#endif

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

// The same cursor with the stream kept in a register, for decoders that
// take many short fields (Huffman codes). The register holds the bits not
// yet consumed of the aligned words loaded so far, the next bit at the top.
// A word is fetched only by refill(), when at most 32 bits are left (the
// next bit to consume then lies in the last word loaded), and callers call
// refill() only before consuming at least one more bit. So the reader never
// loads more than the aligned word after the one holding the last bit
// consumed: the slack is BitReader's.
class BitCache {
public:
    BitCache(const uint8_t* byte, int bit_offset)
        : next_(byte - (reinterpret_cast<uintptr_t>(byte) & 3)) {
        const uint32_t skip =
            static_cast<uint32_t>(reinterpret_cast<uintptr_t>(byte) & 3) * 8 + static_cast<uint32_t>(bit_offset);
        start_ = next_;
        window_ = ((static_cast<uint64_t>(load_be32(next_)) << 32) | load_be32(next_ + 4)) << skip;
        left_ = 64 - skip;
        next_ += 8;
    }

    // Makes at least 33 bits available.
    void refill() {
        if (left_ <= 32) {
            window_ |= static_cast<uint64_t>(load_be32(next_)) << (32 - left_);
            next_ += 4;
            left_ += 32;
        }
    }
    // The next n bits (1..32) without consuming them; n must not exceed the
    // bits available (after refill(), any n up to 32 does).
    uint32_t peek(uint32_t n) const { return static_cast<uint32_t>(window_ >> (64 - n)); }
    void skip(uint32_t n) {
        window_ <<= n;
        left_ -= n;
    }
    // The next n bits (0..32), consumed, refilling first.
    uint32_t read(int n) {
        if (n == 0) return 0;
        refill();
        const uint32_t v = peek(static_cast<uint32_t>(n));
        skip(static_cast<uint32_t>(n));
        return v;
    }
    uint32_t read_bit() { return read(1); }

    // The cursor: the byte holding the next bit and the bit's offset in it.
    const uint8_t* byte() const { return next_ - (left_ + 7) / 8; }
    int bit_offset() const { return static_cast<int>((64 - left_) & 7); }

    // Bits consumed since the aligned word that held the starting position.
    int64_t position() const { return static_cast<int64_t>(next_ - start_) * 8 - left_; }

    // Writes the cursor back in the exported form.
    template <class BytePtr>
    void store(BytePtr* pp_byte, int* p_offset) const {
        *pp_byte = const_cast<BytePtr>(byte());
        *p_offset = bit_offset();
    }

private:
    uint64_t window_;      // unconsumed bits, most significant first; zeros below them
    uint32_t left_;        // how many (1..64)
    const uint8_t* next_;  // the next aligned word to load
    const uint8_t* start_; // the aligned word that held the starting position
};

#if defined(NKP_PATH_NS)
}  // inline namespace of the code path
#endif
}  // namespace nkp
