// The cache-blocked large FFT (orders 16..28), private to the engine: the
// length splits into 2^order1 rows of 2^order2 columns; columns and rows are
// transformed by the table-driven engine, then the matrix is transposed in
// place, so the work buffer stays O(sqrt(L)).
#pragma once

#include "transform/engine.h"

namespace nkp::fft {

// Builds the tables behind the header at `tables` (64-byte aligned).
void large_init(FftSpecComplex32f* spec, uint8_t* tables, uint8_t* memInit);
// Unnormalised forward transform in place; `work` is 64-byte aligned.
void large_forward_interleaved(const FftSpecComplex32f* spec, float* data, uint8_t* work);
void large_forward_split(const FftSpecComplex32f* spec, float* re, float* im, uint8_t* work);

// Written-out kernels of orders 0..5 on interleaved data (src may equal
// dst), with an optional multiply by factor.
void kernel_forward(const nkp32fc* src, nkp32fc* dst, int order, bool scale, float factor);

// Twiddles of the table-driven passes for one block-split order (6..15).
void block_split_fill_twiddles(float* tw, int order);

}  // namespace nkp::fft
