// Helpers for the spectral-tool tests: a frame's band layout walked the
// plain way (group, band, window, line), a fixed-seed random source and a
// scope that runs code under a chosen SSE mode word.
#pragma once

#include "aac/band_tables.h"

#include <cstdint>
#include <functional>
#include <random>
#include <vector>
#include <xmmintrin.h>

namespace nkptest {

struct Frame {
    int win_len;               // 1024 or 128
    std::vector<int32_t> groups;  // windows per group
    int max_sfb;
    int sampling_index;

    int num_groups() const { return static_cast<int>(groups.size()); }
    const int16_t* swb() const {
        return win_len == 1024 ? nkp::aac::kSwbOffsetLong[sampling_index] : nkp::aac::kSwbOffsetShort[sampling_index];
    }
    // Calls visit(group, band, window, k, line) for every line of every band
    // below max_sfb, where `line` is the index in the stream's order: groups
    // one after another, inside a group band after band, inside a band the
    // windows one after another.
    void for_each_line(const std::function<void(int, int, int, int, int)>& visit) const {
        int group_start = 0;
        for (int g = 0; g < num_groups(); ++g) {
            int line = group_start;
            for (int b = 0; b < max_sfb; ++b) {
                const int width = swb()[b + 1] - swb()[b];
                for (int w = 0; w < groups[g]; ++w) {
                    for (int k = 0; k < width; ++k) visit(g, b, w, k, line++);
                }
            }
            group_start += groups[g] * win_len;
        }
    }
};

inline std::mt19937& rng() {
    static std::mt19937 engine(7301);
    return engine;
}
inline int random_int(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng()); }

// Runs with another MXCSR word and puts the test's own back afterwards.
class MxcsrScope {
public:
    explicit MxcsrScope(unsigned csr) : saved_(_mm_getcsr()) { _mm_setcsr(csr); }
    ~MxcsrScope() { _mm_setcsr(saved_); }

private:
    unsigned saved_;
};
// Round toward zero, flush-to-zero and denormals-are-zero, all masked.
constexpr unsigned kOddMxcsr = 0x1F80 | 0x6000 | 0x8000 | 0x0040;

}  // namespace nkptest
