// Every size, in bytes, that a caller of the transform family allocates by:
// the GetSize figures of the plans (plan, Init scratch, work buffer) and the
// work sizes the plans record. The figures are part of the contract; the
// comment of each function says what each term holds in this library's
// layout. A plan starts at the first 64-byte-aligned address of its memory
// and a work buffer is used from its first 64-byte-aligned address, so every
// figure carries up to 64 bytes of alignment slack.
#pragma once

#include "common/numeric.h"

#include <cstdint>

namespace nkp::fft {

struct Sizes {
    int64_t spec, init, work;
};

// How a complex FFT of an order runs, chosen once at Init and kept in the
// plan: written-out kernels, table-driven passes on the block-split layout,
// or the cache-blocked large variant built from two block-split plans.
enum class Route : int32_t { Kernel, BlockSplit, Large };
constexpr int kMaxKernelOrder = 5;
constexpr int kMaxBlockSplitOrder = 15;
constexpr Route route_of(int order) {
    return order <= kMaxKernelOrder ? Route::Kernel : order <= kMaxBlockSplitOrder ? Route::BlockSplit : Route::Large;
}

// The header of a complex float plan: zeroed at Init (136 bytes), padded to
// 192 so that its tables start 64-byte aligned.
constexpr int64_t kFftHeaderBytes = 136;
constexpr int64_t kFftHeaderPadded = 192;

// Block-split orders (L = 2^order, R = round_down64(L + 67), that is L + 64):
//   plan   round_down64(8L + 71) = 8L + 64: the per-pass twiddles (2L floats)
//          with their alignment; R: room for an L-byte reordering table that
//          the passes do not need (the reorder is computed); 256: the padded
//          header and the plan's own alignment slack;
//   init   R + 64 from order 11 on: the contract makes the Init scratch
//          mandatory there, though these orders compute their twiddles in
//          place and leave it unused;
//   work   round_down64(8L + 63) = 8L: the data in the block-split layout,
//          recorded in the plan; the caller's figure adds 64 of slack.
constexpr int64_t block_split_spec_bytes(int order) {
    const int64_t L = int64_t{1} << order;
    return round_down64(8 * L + 71) + round_down64(L + 67) + 256;
}
constexpr int64_t block_split_init_bytes(int order) {
    return order >= 11 ? round_down64((int64_t{1} << order) + 67) + 64 : 0;
}
constexpr int64_t block_split_work_bytes(int order) { return round_down64(8 * (int64_t{1} << order) + 63); }

// Large orders: L1 = 2^(order/2) rows of L2 = 2^(order - order/2) columns.
//   plan   63 + 192: slack and padded header; the two block-split sub-plans
//          (one when L1 = L2); the fine and coarse twiddles (L2 and L1
//          complex floats, each 64-byte rounded);
//   init   what the sub-plans need, at least 64 (never 0: from order 11 on
//          the contract requires an Init scratch);
//   work   one column or row in the block-split layout and in natural order
//          (16 L2 bytes) and the transpose's bitmap (2 L1 bytes), rounded to
//          64; recorded in the plan.
constexpr Sizes large_sizes(int order) {
    const int p1 = order / 2, p2 = order - p1;
    const int64_t L1 = int64_t{1} << p1, L2 = int64_t{1} << p2;
    const int64_t i1 = block_split_init_bytes(p1), i2 = block_split_init_bytes(p2);
    const int64_t init = i1 > i2 ? i1 : i2;
    return {63 + kFftHeaderPadded + block_split_spec_bytes(p1) + (p2 != p1 ? block_split_spec_bytes(p2) : 0) +
                align64(8 * L2) + align64(8 * L1),
            init < 64 ? 64 : init, align64(16 * L2 + 2 * L1)};
}

// The work bytes a complex float plan records: none for the kernels.
constexpr int64_t fft32f_recorded_work(int order) {
    switch (route_of(order)) {
        case Route::Kernel: return 0;
        case Route::BlockSplit: return block_split_work_bytes(order);
        case Route::Large: return large_sizes(order).work;
    }
    return 0;
}

// GetSize of the complex float FFT (flag and hint change nothing):
//   kernels  plan 200 (the 136-byte header and its slack), nothing else;
//   others   the figures above; the large plan adds 256 for its own header,
//            and every work figure adds 64 of slack to the recorded one.
constexpr Sizes fft32f_sizes(int order) {
    switch (route_of(order)) {
        case Route::Kernel: return {200, 0, 0};
        case Route::BlockSplit:
            return {block_split_spec_bytes(order), block_split_init_bytes(order), fft32f_recorded_work(order) + 64};
        case Route::Large: {
            const Sizes s = large_sizes(order);
            return {s.spec + 256, s.init, s.work + 64};
        }
    }
    return {0, 0, 0};
}

// GetSize of the 16-bit complex FFT, which runs the float FFT on a float
// copy of its data:
//   order 0            plan 136 (the header), nothing else;
//   orders 1..3 with hint 0 or 1 (the sizes of a direct kernel): plan
//                      round_down64(8L + 63) + R + 192, init
//                      round_down64(L/2 + 65) + 64, work 8L + 64 (the float
//                      copy and its slack);
//   otherwise          the float figures plus 192 for the 16-bit header in
//                      front of the float plan, 64 of slack on the init
//                      scratch, and 8L + 64 for the float copy.
constexpr Sizes fft16s_sizes(int order, int hint) {
    const int64_t L = int64_t{1} << order;
    if (order == 0) return {136, 0, 0};
    if (order <= 3 && (hint == 0 || hint == 1))
        return {round_down64(8 * L + 63) + round_down64(L + 67) + 192, round_down64((L / 4) * 2 + 65) + 64, 8 * L + 64};
    const Sizes f = fft32f_sizes(order);
    return {f.spec + 192, f.init + 64, f.work + 8 * L + 64};
}

// The inverse DCT of length n: a 96-byte header padded to 128 and its slack,
// then by method: powers of two above 8 the N complex rotations (8N, 64
// rounded) and the 2N-point FFT plan, with work for the 2N complex values
// (16N) and the FFT's work; other lengths below 36 the N x N cosine matrix
// (4N^2) and a work copy of the input (4N); other lengths 4N cosines
// (16N) and the same copy. Every work figure adds 64 of slack.
constexpr bool dct_is_pow2(int n) { return n > 0 && (n & (n - 1)) == 0; }
constexpr Sizes dct_sizes(int n) {
    Sizes s{63 + 128, 0, 0};
    if (n == 1 || n == 2 || n == 4 || n == 8) return s;
    if (dct_is_pow2(n)) {
        int order = 0;
        while ((int64_t{1} << order) < 2 * int64_t{n}) ++order;
        const Sizes f = fft32f_sizes(order);
        return {s.spec + align64(8 * int64_t{n}) + f.spec, f.init, 64 + 16 * int64_t{n} + f.work};
    }
    if (n < 36) return {s.spec + align64(4 * int64_t{n} * n), 0, 64 + 4 * int64_t{n}};
    return {s.spec + align64(16 * int64_t{n}), 0, 64 + 4 * int64_t{n}};
}

}  // namespace nkp::fft

namespace nkp::mdct {

using fft::Sizes;

// The float MDCTs (N = 12, 36 or 2^k), with (S, I, B) the FFT's figures for
// order log2(N/4):
//   plan   4 (N/2): the rotation table (N/4 sine and cosine pairs); 104 + 64:
//          the 40-byte public header with the private fields behind it, its
//          padding to 64 and the plan's alignment slack; for 2^k also S and
//          64 to align the FFT plan behind the table;
//   init   I: the FFT's Init scratch;
//   work   4N: the N/4 complex values folded from the input (2N) and room
//          for the FFT's in-place layout; B: the FFT's work; 64 + 128: slack.
// Init records the smaller 4N + B' + 64, B' the work size read back from the
// finished FFT plan.
constexpr Sizes float_sizes(int len, const Sizes& fft) {
    const int64_t N = len;
    if (len == 12 || len == 36) return {4 * (N / 2) + 104 + 64, 0, 4 * N + 128};
    return {4 * (N / 2) + 104 + 64 + fft.spec + 64, fft.init, 4 * N + fft.work + 64 + 128};
}
constexpr int64_t float_recorded_work(int len, int fft_work) { return 4 * int64_t{len} + fft_work + 64; }

// The 16-bit MDCT (N = 2^k), with (S, I, B) the 16-bit FFT's figures:
//   plan   2 (N/2): the Q14 rotation table; 168: the header, its padding and
//          slack; S and 64 to align the FFT plan behind the table;
//   init   I;
//   work   N: the N/4 complex 16-bit values; max(4N, B): the FFT's work,
//          reused afterwards for the N/2 32-bit rotated outputs; 64: slack.
constexpr Sizes sizes16(int len, const Sizes& fft) {
    const int64_t N = len;
    return {2 * (N / 2) + 168 + fft.spec + 64, fft.init, N + (4 * N > fft.work ? 4 * N : fft.work) + 64};
}

}  // namespace nkp::mdct
