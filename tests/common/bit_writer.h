// The tests' own bit writer: builds streams field by field, most significant
// bit first, so a test reads like the syntax it exercises.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace nkptest {

class BitWriter {
public:
    // Appends the low `bits` bits of value (bits 0..32).
    BitWriter& put(uint32_t value, int bits) {
        for (int i = bits - 1; i >= 0; --i) put_bit((value >> i) & 1u);
        return *this;
    }
    BitWriter& put_bit(uint32_t bit) {
        if (count_ % 8 == 0) bytes_.push_back(0);
        if (bit) bytes_.back() |= static_cast<uint8_t>(0x80u >> (count_ % 8));
        ++count_;
        return *this;
    }
    // Appends a code given as a string of '0' and '1'.
    BitWriter& code(const char* bits) {
        for (; *bits; ++bits) put_bit(*bits == '1');
        return *this;
    }
    BitWriter& align() {
        count_ = (count_ + 7) & ~size_t{7};
        return *this;
    }
    size_t bit_count() const { return count_; }
    const std::vector<uint8_t>& bytes() const { return bytes_; }

private:
    std::vector<uint8_t> bytes_;
    size_t count_ = 0;
};

}  // namespace nkptest
