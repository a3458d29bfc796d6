// Helpers for the vector-quantisation tests: code books in caller buffers
// at any misalignment, random integer and float data, and a fixed-seed
// random source.
#pragma once

#include "frame/exports.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

namespace vqtest {

inline std::mt19937& rng() {
    static std::mt19937 engine(71);
    return engine;
}

inline std::vector<float> random_ints(size_t n, int lo, int hi) {
    std::uniform_int_distribution<int> d(lo, hi);
    std::vector<float> v(n);
    for (float& x : v) x = static_cast<float>(d(rng()));
    return v;
}

inline std::vector<float> random_floats(size_t n, float lo, float hi) {
    std::uniform_real_distribution<float> d(lo, hi);
    std::vector<float> v(n);
    for (float& x : v) x = d(rng());
    return v;
}

// A code book built by Init in a buffer `misalign` bytes past a 64-byte
// boundary; the vectors are also kept here for the models.
struct Book {
    int dim, count;
    std::vector<float> vectors;  // count * dim
    std::vector<uint8_t> storage;
    nkpsVQCodeBook_32f* cb = nullptr;

    Book(std::vector<float> v, int dim_, size_t misalign = 0)
        : dim(dim_), count(static_cast<int>(v.size()) / dim_), vectors(std::move(v)) {
        int size = 0;
        EXPECT_EQ(nkpsVQCodeBookGetSize_32f(dim, count, &size), nkpStatusOk);
        storage.assign(static_cast<size_t>(size) + 64 + misalign, 0xA5);
        uint8_t* base = storage.data() + ((64 - reinterpret_cast<uintptr_t>(storage.data()) % 64) % 64) + misalign;
        EXPECT_EQ(nkpsVQCodeBookInit_32f(vectors.data(), &cb, dim, count, base), nkpStatusOk);
    }
    Book(const Book&) = delete;
    Book& operator=(const Book&) = delete;
    const float* vec(int c) const { return vectors.data() + static_cast<size_t>(c) * dim; }
};

// Float arrays whose element 0 lies `offset` floats past a 16-byte boundary.
struct Floats {
    std::vector<float> raw;
    float* data;
    Floats(const std::vector<float>& v, size_t offset) : raw(v.size() + 8) {
        uintptr_t p = reinterpret_cast<uintptr_t>(raw.data());
        data = raw.data() + ((16 - p % 16) % 16) / 4 + offset;
        std::copy(v.begin(), v.end(), data);
    }
};

}  // namespace vqtest
