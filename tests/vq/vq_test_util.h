// Helpers for the vector-quantisation tests: random data from a fixed seed,
// code books in caller buffers at any misalignment, and float arrays at any
// offset from a 16-byte boundary.
#pragma once

#include "frame/exports.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

namespace vqtest {

inline std::mt19937& rng() {
    static std::mt19937 engine(71);
    return engine;
}
inline int random_int(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng()); }
inline std::vector<float> random_ints(size_t n, int lo, int hi) {
    std::vector<float> v(n);
    for (float& x : v) x = static_cast<float>(random_int(lo, hi));
    return v;
}
inline std::vector<float> random_floats(size_t n, float lo, float hi) {
    std::vector<float> v(n);
    for (float& x : v) x = std::uniform_real_distribution<float>(lo, hi)(rng());
    return v;
}

// A code book built by Init `misalign` bytes past a 64-byte boundary, with
// nothing written past GetSize bytes; the vectors are kept for the models.
struct Book {
    int dim, count;
    std::vector<float> vectors;  // count * dim
    std::vector<uint8_t> storage;
    nkpsVQCodeBook_32f* cb = nullptr;
    Book(std::vector<float> v, int dim_, size_t misalign = 0)
        : dim(dim_), count(static_cast<int>(v.size()) / dim_), vectors(std::move(v)) {
        int size = 0;
        EXPECT_EQ(nkpsVQCodeBookGetSize_32f(dim, count, &size), nkpStatusOk);
        storage.assign(static_cast<size_t>(size) + 128 + misalign, 0xA5);
        uint8_t* base = storage.data() + (64 - reinterpret_cast<uintptr_t>(storage.data()) % 64) % 64 + misalign;
        EXPECT_EQ(nkpsVQCodeBookInit_32f(vectors.data(), &cb, dim, count, base), nkpStatusOk);
        const auto past = storage.begin() + (base - storage.data()) + size;
        EXPECT_TRUE(std::all_of(past, storage.end(), [](uint8_t b) { return b == 0xA5; })) << "wrote past GetSize";
    }
    Book(const Book&) = delete;
    const float* vec(int c) const { return vectors.data() + static_cast<size_t>(c) * dim; }
};

// A copy of v whose element 0 lies `offset` floats past a 16-byte boundary.
struct Floats {
    std::vector<float> raw;
    float* data;
    Floats(const std::vector<float>& v, size_t offset) : raw(v.size() + 8) {
        data = raw.data() + (16 - reinterpret_cast<uintptr_t>(raw.data()) % 16) % 16 / 4 + offset;
        std::copy(v.begin(), v.end(), data);
    }
};

}  // namespace vqtest
