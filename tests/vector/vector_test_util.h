// Helpers for the vector tests: aligned scratch buffers that can be offset
// to any misalignment, and a fixed-seed random source.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace nkptest {

// `count` zeroed elements of T starting `misalign` bytes past a 64-byte
// boundary (T is a plain number type).
template <typename T>
class Buffer {
public:
    explicit Buffer(size_t count, size_t misalign = 0)
        : raw_(count * sizeof(T) + 64 + misalign + 64), count_(count) {
        uintptr_t p = reinterpret_cast<uintptr_t>(raw_.data());
        p = (p + 63) & ~uintptr_t{63};
        data_ = reinterpret_cast<T*>(p + misalign);
    }
    T* data() { return data_; }
    T& operator[](size_t i) { return data_[i]; }
    size_t size() const { return count_; }

private:
    std::vector<unsigned char> raw_;
    T* data_;
    size_t count_;
};

inline std::mt19937& rng() {
    static std::mt19937 engine(20261121);
    return engine;
}

inline float random_float(float lo, float hi) { return std::uniform_real_distribution<float>(lo, hi)(rng()); }
inline int random_int(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng()); }

}  // namespace nkptest
