// The decoder object, its lookup table and the code walk shared by every VLC
// decoder (the two-path plain and tuple decoders and the one-path escape
// blocks). Everything here has internal linkage, so each code path gets its
// own copy compiled with its own flags.
//
// Table layout: a sequence of tables, each a header entry holding the
// table's width w followed by 2^w entries; the first-level table has its
// header at index 0. An entry is an unsigned integer of 8, 16 or 32 bits:
//   leaf  (bit 0 = 1): bits 1..lengthBits hold the code bits that belong to
//         this level, the bits above them the value;
//   link  (bit 0 = 0, not 0): entry >> 1 is the index of the next level's
//         header;
//   0     no code starts with these bits.
// A plain value of 2^k, when it is the largest magnitude and the value field
// holds only k + 1 bits, does not fit a leaf: its slots link instead to a
// marker header (64 + the code bits of its level) placed just after the
// counted entries, where the entry width always leaves room for two.
#pragma once

#include "common/bit_reader.h"
#include "frame/object.h"
#include "nkpac.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace nkp::vlc {

// The first 64 bytes of the object; the table follows at offset 64.
struct DecodeSpec {
    uint32_t tag;
    int32_t allocated;
    int32_t maxCodeLength;  // L: every decode looks at L bits (tuples: and their sign bits)
    int32_t rootWidth;      // width of the first-level table
    const void* table;      // this + 64 (the decoders compute it from the object's address)
    int32_t entryBits;      // 8, 16 or 32
    int32_t lengthBits;     // width of a leaf's length field
    int32_t tupleElements;  // tuple objects: elements per code (0: plain object)
    int32_t tupleBits;      // tuple objects: bits per element
    int32_t bigValue;       // plain objects: the value behind the marker headers
    int32_t reserved[5];
};
static_assert(sizeof(DecodeSpec) == 64, "the table starts 64 bytes after the object");

constexpr size_t kTableOffset = 64;
constexpr uint32_t kDecodeTag = amc_tag('`');
// Init never fails after its checks, so InitAlloc's failure rule matters
// only for the allocation itself; Free keeps the tag.
constexpr LifeCycle kDecodeLife{64, OnInitFailure::KeepBuffers, OnFree::KeepTag};

namespace {

inline const DecodeSpec* decode_spec(const nkpsVLCDecodeSpec_32s* buffer) {
    return tagged_object<DecodeSpec, kDecodeLife.align>(static_cast<const void*>(buffer), kDecodeTag);
}

// The stream reader of the decoders: a 64-bit cache of left-aligned bits,
// refilled one aligned big-endian word at a time, and only when the bits
// about to be looked at reach into that word. Every look starts at a bit
// that the caller goes on to consume and spans at most 32 bits, so the words
// loaded are those holding consumed bits and at most the one after them.
// Not the shared BitCache, which refills whenever 32 bits or fewer are left
// and has no long skip: through it these decoders took 15-26% more
// instructions per symbol (bench/vlc_instructions.sh).
class Reader {
public:
    // Loads the word holding the first bit: build a reader only when at
    // least one bit will be consumed.
    Reader(const uint8_t* byte, int bit_offset) {
        const uint32_t lead = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(byte) & 3);
        base_ = byte - lead;
        const int skip = static_cast<int>(lead * 8) + bit_offset;  // 0..31
        cache_ = static_cast<uint64_t>(load_be32(base_)) << (32 + skip);
        next_ = base_ + 4;
        avail_ = 32 - skip;
    }

    // Makes n (0..32) bits available; loads at most one word.
    void need(int n) {
        if (avail_ < n) {
            cache_ |= static_cast<uint64_t>(load_be32(next_)) << (32 - avail_);
            next_ += 4;
            avail_ += 32;
        }
    }
    // The available bits, the next one highest.
    uint64_t bits() const { return cache_; }
    // Drops n (0..avail) bits.
    void consume(int n) {
        cache_ <<= n;
        avail_ -= n;
    }
    // The next n (1..32) bits, consumed.
    uint32_t read(int n) {
        need(n);
        const uint32_t v = static_cast<uint32_t>(cache_ >> (64 - n));
        consume(n);
        return v;
    }
    // Skips n bits without loading the words they lie in, then loads the word
    // holding the next bit: call only when bits follow.
    void skip_then_load(uint64_t n) {
        if (n <= static_cast<uint64_t>(avail_)) {
            consume(static_cast<int>(n));
            return;
        }
        n -= static_cast<uint64_t>(avail_);
        next_ += (n >> 5) << 2;
        const int skip = static_cast<int>(n & 31);
        cache_ = static_cast<uint64_t>(load_be32(next_)) << (32 + skip);
        next_ += 4;
        avail_ = 32 - skip;
    }

    void store(nkp8u** pp_byte, int* p_offset) const {
        const uint64_t pos = static_cast<uint64_t>(next_ - base_) * 8 - static_cast<uint64_t>(avail_);
        *pp_byte = const_cast<nkp8u*>(base_ + (pos >> 3));
        *p_offset = static_cast<int>(pos & 7);
    }

private:
    const uint8_t* base_;  // aligned word that held the first bit
    const uint8_t* next_;  // next aligned word to load
    uint64_t cache_;
    int avail_;            // valid bits at the top of cache_ (0..63)
};

// Header values above this are markers of a big plain value.
constexpr uint32_t kMarker = 64;

// The table walk of one code, given the peeked bits (at least L valid, the
// next one highest): the value (plain) or the packed elements (tuple) and the
// number of bits the code takes.
template <class E>
struct Walker {
    using S = std::make_signed_t<E>;
    const E* table;
    uint32_t root_shift;  // 64 - rootWidth
    uint32_t length_mask;
    int value_shift;      // lengthBits + 1
    int32_t big_value;

    explicit Walker(const DecodeSpec& spec)
        : table(reinterpret_cast<const E*>(reinterpret_cast<const uint8_t*>(&spec) + kTableOffset)),
          root_shift(64u - static_cast<uint32_t>(spec.rootWidth)),
          length_mask((1u << spec.lengthBits) - 1u),
          value_shift(spec.lengthBits + 1),
          big_value(spec.bigValue) {}

    // Plain decoders: a pattern that starts no code gives 0 and uses the
    // levels down to and including the one where it ends.
    int32_t plain(uint64_t bits, uint32_t& bits_used) const {
        const E e = table[1 + (bits >> root_shift)];
        if (e & 1) {
            bits_used = (static_cast<uint32_t>(e) >> 1) & length_mask;
            // Sign-extended from the entry width (an arithmetic shift).
            return static_cast<int32_t>(static_cast<S>(e)) >> value_shift;
        }
        E leaf;
        switch (links(e, bits, bits_used, leaf)) {
            case Found::Leaf: return static_cast<int32_t>(static_cast<S>(leaf)) >> value_shift;
            case Found::Big: return big_value;
            default: return 0;
        }
    }

    // Tuple decoders: false for a pattern that starts no code.
    bool tuple(uint64_t bits, uint32_t& bits_used, uint32_t& packed) const {
        const E e = table[1 + (bits >> root_shift)];
        const uint32_t x = e;
        if (x & 1) {
            bits_used = (x >> 1) & length_mask;
            packed = x >> value_shift;
            return true;
        }
        E leaf;
        switch (links(e, bits, bits_used, leaf)) {
            case Found::Leaf: packed = static_cast<uint32_t>(leaf) >> value_shift; return true;
            case Found::Big: packed = static_cast<uint32_t>(big_value); return true;
            default: return false;
        }
    }

    enum class Found { Leaf, Big, NoCode };

    // Lower levels: rare when the first-level table is wide enough.
    Found links(E e, uint64_t bits, uint32_t& bits_used, E& leaf) const {
        uint32_t above = 0;                 // widths of the levels passed
        uint32_t width = 64u - root_shift;  // width of the level of e
        for (;;) {
            const uint32_t header = static_cast<uint32_t>(e) >> 1;
            if (header == 0) {
                bits_used = above + width;
                return Found::NoCode;
            }
            const uint32_t next = table[header];
            if (next > kMarker) {
                bits_used = above + (next - kMarker);
                return Found::Big;
            }
            above += width;
            width = next;
            e = table[header + 1 + static_cast<uint32_t>((bits << above) >> (64 - width))];
            if (e & 1) {
                bits_used = above + ((e >> 1) & length_mask);
                leaf = e;
                return Found::Leaf;
            }
        }
    }
};

inline int16_t with_sign(uint32_t magnitude, uint32_t negative) {
    const uint32_t s = 0u - negative;
    return static_cast<int16_t>(static_cast<uint16_t>((magnitude ^ s) + negative));
}

// The AAC escape sequence: k one bits (k <= 8), a 0 bit, then k + 4 bits w;
// the magnitude is 2^(k+4) + w. False for more than eight one bits.
inline bool read_aac_escape(Reader& r, uint32_t& magnitude) {
    r.need(9);
    // The bits after the valid ones are 0, so the count stops inside the cache.
    const int ones = __builtin_clzll(~r.bits());
    if (ones > 8) return false;
    const int n = ones + 4;
    r.consume(ones + 1);
    magnitude = (1u << n) + r.read(n);
    return true;
}

// MP3 linbits (1 or more): the low 16 bits of a linbits-bit number.
inline uint32_t read_linbits(Reader& r, int linbits) {
    if (linbits > 16) {
        r.skip_then_load(static_cast<uint64_t>(linbits - 16));
        linbits = 16;
    }
    return r.read(linbits);
}

enum class Escape { None, Aac, Mp3 };

// Plain decoding of `count` values with the object's entry type E. Returns
// nkpStatusVlcError for a bad AAC escape, leaving the reader where it was.
template <class E, Escape kEscape>
nkpStatus decode_values(Reader& reader, const DecodeSpec& spec, nkp16s* dst, int count, int linbits) {
    Reader r = reader;  // a local copy stays in registers
    const Walker<E> walk(spec);
    const int peek = spec.maxCodeLength;
    for (int i = 0; i < count; ++i) {
        r.need(peek);
        uint32_t used;
        int32_t v = walk.plain(r.bits(), used);
        r.consume(static_cast<int>(used));
        if constexpr (kEscape == Escape::Aac) {
            if (v == 16 || v == -16) {
                uint32_t m;
                if (!read_aac_escape(r, m)) return nkpStatusVlcError;
                v = v < 0 ? -static_cast<int32_t>(m) : static_cast<int32_t>(m);
            }
        } else if constexpr (kEscape == Escape::Mp3) {
            if ((v == 15 || v == -15) && linbits > 0) {
                const int32_t m = 15 + static_cast<int32_t>(read_linbits(r, linbits));
                v = v < 0 ? -m : m;
            }
        }
        dst[i] = static_cast<nkp16s>(v);
    }
    reader = r;
    return nkpStatusOk;
}

// Tuple decoding of `count` tuples: the code, then the sign bits of the
// non-zero elements, with the escape forms' extra bits (see nkpac.h). kN is
// the element count when known at compile time (0: the object's).
// Returns nkpStatusVlcError for a pattern of no code or a bad AAC escape.
template <class E, Escape kEscape, int kN>
nkpStatus decode_tuples(Reader& reader, const DecodeSpec& spec, nkp16s* dst, int count, int linbits) {
    Reader r = reader;  // a local copy stays in registers
    const Walker<E> walk(spec);
    const int n = kN ? kN : spec.tupleElements;
    // One look of L + n bits covers the code and its sign bits when that
    // is at most 32 bits (it starts at a bit the code consumes).
    const bool one_look = spec.maxCodeLength + n <= 32;
    const int peek = one_look ? spec.maxCodeLength + n : spec.maxCodeLength;
    const int b = spec.tupleBits;
    const uint32_t mask = (1u << b) - 1u;
    // The element value that has escape bits (none: a value no element has).
    const uint32_t escape = kEscape == Escape::Aac ? 16u : kEscape == Escape::Mp3 && linbits > 0 ? 15u : ~0u;
    for (int t = 0; t < count; ++t, dst += n) {
        r.need(peek);
        uint32_t used, packed;
        if (!walk.tuple(r.bits(), used, packed)) return nkpStatusVlcError;
        r.consume(static_cast<int>(used));
        uint32_t m[kN ? kN : 32];
        int signs = 0;
        bool escaped = false;
        for (int i = 0; i < n; ++i) {
            m[i] = (packed >> (b * (n - 1 - i))) & mask;
            signs += m[i] != 0;
            if constexpr (kEscape != Escape::None) escaped |= m[i] == escape;
        }
        if constexpr (kEscape == Escape::Mp3) {
            if (escaped) {
                // Per element: its linbits, then its sign bit.
                for (int i = 0; i < n; ++i) {
                    uint32_t v = m[i];
                    if (v == 15) v += read_linbits(r, linbits);
                    dst[i] = v ? with_sign(v, r.read(1)) : nkp16s{0};
                }
                continue;
            }
        }
        // All sign bits follow the code.
        if (!one_look) r.need(signs);
        uint64_t bits = r.bits();
        for (int i = 0; i < n; ++i) {
            const uint32_t nonzero = m[i] != 0;
            dst[i] = with_sign(m[i], static_cast<uint32_t>(bits >> 63) & nonzero);
            bits <<= nonzero;
        }
        r.consume(signs);
        if constexpr (kEscape == Escape::Aac) {
            if (escaped) {
                for (int i = 0; i < n; ++i) {
                    if (m[i] != 16) continue;
                    uint32_t v;
                    if (!read_aac_escape(r, v)) return nkpStatusVlcError;
                    dst[i] = with_sign(v, dst[i] < 0);
                }
            }
        }
    }
    reader = r;
    return nkpStatusOk;
}

// Calls f.template operator()<E, N>() with the object's entry type and its
// element count N when it is 2 or 4 (else 0).
template <class F>
inline nkpStatus with_tuple_type(const DecodeSpec& spec, F&& f) {
    const int n = spec.tupleElements;
    if (spec.entryBits == 8) return n == 2 ? f.template operator()<uint8_t, 2>() : n == 4 ? f.template operator()<uint8_t, 4>() : f.template operator()<uint8_t, 0>();
    if (spec.entryBits == 16) return n == 2 ? f.template operator()<uint16_t, 2>() : n == 4 ? f.template operator()<uint16_t, 4>() : f.template operator()<uint16_t, 0>();
    return n == 2 ? f.template operator()<uint32_t, 2>() : n == 4 ? f.template operator()<uint32_t, 4>() : f.template operator()<uint32_t, 0>();
}

// Calls f.template operator()<E>() with the object's entry type.
template <class F>
inline auto with_entry_type(const DecodeSpec& spec, F&& f) {
    if (spec.entryBits == 8) return f.template operator()<uint8_t>();
    if (spec.entryBits == 16) return f.template operator()<uint16_t>();
    return f.template operator()<uint32_t>();
}

}  // namespace
}  // namespace nkp::vlc
