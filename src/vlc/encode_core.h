// The encoder object and the word writer shared by every VLC encoder. Inline
// helpers have internal linkage, so each code path gets its own copy.
#pragma once

#include "common/bit_reader.h"
#include "frame/object.h"
#include "nkpac.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace nkp::vlc {

// The first 64 bytes of the object. The table follows at offset 64: 2^k
// 32-bit lengths (index = value + valueOffset), then range + 1 32-bit codes.
struct EncodeSpec {
    const uint32_t* table;
    int32_t valueOffset;  // -(smallest value), modulo 2^32
    int32_t indexBits;    // k
    int32_t allocated;
    uint32_t tag;         // not the first field
    uint32_t range;       // largest value - smallest value
    int32_t reserved[9];
};
static_assert(sizeof(EncodeSpec) == 64, "the table starts 64 bytes after the object");

constexpr size_t kEncodeTableOffset = 64;
constexpr uint32_t kEncodeTag = amc_tag('_');
constexpr LifeCycle kEncodeLife{64, OnInitFailure::KeepBuffers, OnFree::KeepTag};

namespace {

inline const EncodeSpec* encode_spec(const nkpsVLCEncodeSpec_32s* buffer) {
    return tagged_object<EncodeSpec, kEncodeLife.align>(static_cast<const void*>(buffer), kEncodeTag);
}

inline void store_be32(uint8_t* p, uint32_t w) {
    w = __builtin_bswap32(w);
    std::memcpy(p, &w, 4);
}

// A value's code: length 0 for a value the code book does not hold.
struct Code {
    uint32_t bits;
    uint32_t length;
};

class CodeTable {
public:
    explicit CodeTable(const EncodeSpec& spec)
        : lengths_(reinterpret_cast<const uint32_t*>(reinterpret_cast<const uint8_t*>(&spec) + kEncodeTableOffset)),
          codes_(lengths_ + (size_t{1} << spec.indexBits)),
          offset_(static_cast<uint32_t>(spec.valueOffset)),
          range_(spec.range) {}

    uint32_t length(int32_t value) const {
        const uint32_t i = static_cast<uint32_t>(value) + offset_;
        return i <= range_ ? lengths_[i] : 0;
    }
    Code operator()(int32_t value) const {
        const uint32_t i = static_cast<uint32_t>(value) + offset_;
        if (i > range_) return {0, 0};
        return {codes_[i], lengths_[i]};
    }

private:
    const uint32_t* lengths_;
    const uint32_t* codes_;
    uint32_t offset_;
    uint32_t range_;
};

// The writer of every encoder: whole aligned big-endian 32-bit words. The bits
// of the current word before the cursor are kept; a field that ends inside
// the word leaves the bits after it at 1; a field that crosses into the next
// word keeps that word's bits after it. The partial word stays in a register
// until it is full or the writer finishes, which gives the same bytes as
// writing each field with its own read-modify-write. (The shared MP3
// ByteWriter works byte by byte and clears what follows a field instead.)
class WordWriter {
public:
    // offset may lie outside 0..7: the cursor is offset bits after byte.
    WordWriter(uint8_t* byte, int bit_offset) {
        byte += bit_offset >> 3;  // arithmetic shift: floor division
        const uint32_t lead = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(byte) & 3);
        word_ = byte - lead;
        used_ = lead * 8 + static_cast<uint32_t>(bit_offset & 7);
        acc_ = used_ ? load_be32(word_) >> (32 - used_) : 0;
    }

    // Appends the low `length` bits (1..32) of bits (no higher bits set).
    void put(uint32_t bits, uint32_t length) {
        const uint32_t total = used_ + length;
        written_ = true;
        if (total < 32) {
            acc_ = (acc_ << length) | bits;
            used_ = total;
            keep_tail_ = false;
            return;
        }
        const uint32_t spill = total - 32;
        store_be32(word_, static_cast<uint32_t>((acc_ << (32 - used_)) | (bits >> spill)));
        word_ += 4;
        used_ = spill;
        acc_ = bits & ((1u << spill) - 1u);
        keep_tail_ = spill != 0;
    }
    // Appends a field of any length >= 0: leading zeros, then the low 32 bits.
    void put_long(uint32_t bits, int64_t length) {
        for (; length > 32; length -= 32) put(0, 32);
        if (length > 0) put(length < 32 ? bits & ((1u << length) - 1u) : bits, static_cast<uint32_t>(length));
    }

    // Writes the partial word back and stores the cursor.
    void finish(nkp8u** pp_byte, int* p_offset) {
        if (written_ && used_ != 0) {
            const uint32_t tail = 32 - used_;
            const uint32_t low = (1u << tail) - 1u;
            const uint32_t rest = keep_tail_ ? load_be32(word_) & low : low;
            store_be32(word_, static_cast<uint32_t>(acc_ << tail) | rest);
        }
        *pp_byte = word_ + (used_ >> 3);
        *p_offset = static_cast<int>(used_ & 7);
    }

private:
    uint8_t* word_;          // aligned word holding the cursor
    uint64_t acc_;           // the word's bits before the cursor, right-aligned
    uint32_t used_;          // how many (0..31)
    bool keep_tail_ = false; // the last field crossed into this word
    bool written_ = false;
};

inline void put_code(WordWriter& w, Code c) {
    if (c.length) w.put(c.bits, c.length);
}

}  // namespace
}  // namespace nkp::vlc
