// Helpers of the AAC stream tests: code words of the standard's code books
// (from the text tables, through the stream tests' reference loader) for the
// test-side bit writer, and a runner that places a stream at the end of
// readable memory and reports status, cursor movement and outputs.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "common/bit_writer.h"
#include "common/guarded_buffer.h"
#include "nkpac.h"
#include "streams/aac_reference.h"

namespace aactest {

using nkptest::BitWriter;

// Code words by value: the scale-factor code by difference, the spectral
// books by tuple.
struct Codes {
    std::map<int, std::string> scale_factor;               // difference -60..60
    std::map<std::vector<int>, std::string> spectral[12];  // tuple -> code
};

inline std::string bits_string(int length, uint32_t code) {
    std::string s;
    for (int i = length - 1; i >= 0; --i) s += ((code >> i) & 1) ? '1' : '0';
    return s;
}

inline const Codes& codes() {
    static const Codes c = [] {
        Codes out;
        const aacref::Tables& t = aacref::tables();
        for (const auto& [key, index] : t.scale_factor)
            out.scale_factor[index - 60] = bits_string(key.first, key.second);
        for (int b = 1; b <= 11; ++b)
            for (const auto& [key, tuple] : t.books[b].codes)
                out.spectral[b][tuple] = bits_string(key.first, key.second);
        return out;
    }();
    return c;
}

// Appends a scale-factor difference.
inline void sf(BitWriter& w, int difference) { w.code(codes().scale_factor.at(difference).c_str()); }

// Appends one tuple of a spectral book: the code word of its magnitudes (or
// values, in the signed books), the sign bits, and escapes for magnitudes
// of 16 and more in book 11 (escape N bits and prefix as given by the value).
inline void tuple(BitWriter& w, int book, const std::vector<int>& values) {
    const bool is_unsigned = aacref::tables().books[book].is_unsigned;
    std::vector<int> key;
    for (int v : values) {
        const int m = is_unsigned ? std::abs(v) : v;
        key.push_back(book == 11 && m >= 16 ? 16 : m);
    }
    w.code(codes().spectral[book].at(key).c_str());
    if (is_unsigned)
        for (int v : values)
            if (v) w.put(v < 0, 1);
    if (book == 11) {
        for (int v : values) {
            const int m = std::abs(v);
            if (m < 16) continue;
            int n = 4;
            while ((2 << n) <= m) ++n;
            w.put((1u << (n - 4)) - 1, n - 4).put(0, 1).put(static_cast<uint32_t>(m - (1 << n)), n);
        }
    }
}

// A stream placed `lead` bits into its first byte, at the end of readable
// memory (the guard page right after the readers' slack).
struct Placed {
    nkptest::GuardedBuffer buffer;
    int lead;
    Placed(const BitWriter& w, int lead_bits, size_t misalign)
        : buffer(shifted(w, lead_bits), misalign), lead(lead_bits) {}
    static std::vector<uint8_t> shifted(const BitWriter& w, int lead) {
        BitWriter all;
        all.put(0x55, lead);
        for (size_t i = 0; i < w.bit_count(); ++i) all.put_bit((w.bytes()[i / 8] >> (7 - i % 8)) & 1);
        return all.bytes();
    }
    nkp8u* start() { return buffer.data(); }
    // Bits the cursor moved from the stream's first bit.
    long moved(const nkp8u* p, int offset) { return (p - buffer.data()) * 8L + offset - lead; }
};

}  // namespace aactest
