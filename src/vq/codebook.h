// The vector-quantisation code book as it lies in its buffer, and the
// placement of its arrays.
//
// The record starts at the buffer's own address (no alignment); only its
// arrays are aligned, to 64 bytes. After the record, from the first 64-byte
// boundary at or after kRecordBytes into the buffer:
//   the pointer array       count pointers, rounded up to 64 bytes
//   the code vectors        count slots of dim floats, each rounded up to
//                           64 bytes, in index order (padding zeroed)
//   distances, signFlags, sortIndex, sortKey
//                           four work arrays of count 32-bit entries, each
//                           rounded up to 64 bytes, in this memory order
// The working functions read vectors[c][0 .. ceil4(dim) - 1]: whole aligned
// groups of four, which the 64-byte slots always hold.
#pragma once

#include "nkpac.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace nkp::vq {

struct CodeBook {
    int32_t count;       // number of code vectors
    int32_t dim;         // floats per code vector
    int32_t valid;       // 1 after Init; Free clears it
    float** vectors;     // count pointers, one per code vector
    float* distances;    // per code vector: its distance in the last search
    int32_t* sortIndex;  // candidate list: code-vector indices, best first
    float* sortKey;      //                 their distances
    int32_t* signFlags;  // per code vector: 1 when its negation matched better
    int32_t allocated;   // 1 when InitAlloc made the buffer
};

// Room the record may take before the arrays begin.
constexpr int64_t kRecordBytes = 88;
static_assert(sizeof(CodeBook) <= kRecordBytes, "the record must end before its arrays");

constexpr int64_t round64(int64_t bytes) { return (bytes + 63) & ~int64_t{63}; }

// Byte offsets of the arrays, counted from the first 64-byte boundary at or
// after kRecordBytes into the buffer (where the pointer array begins).
struct Layout {
    int64_t vectors;        // first code vector
    int64_t vector_stride;  // bytes from one code vector to the next
    int64_t distances, sign_flags, sort_index, sort_key;
    int64_t end;
};

constexpr Layout layout(int64_t dim, int64_t count) {
    Layout l{};
    const int64_t work = round64(count * 4);
    l.vectors = round64(count * 8);
    l.vector_stride = round64(dim * 4);
    l.distances = l.vectors + count * l.vector_stride;
    l.sign_flags = l.distances + work;
    l.sort_index = l.sign_flags + work;
    l.sort_key = l.sort_index + work;
    l.end = l.sort_key + work;
    return l;
}

// The buffer size GetSize reports: (dim * 16 + 352) * count + 1888 bytes.
// It covers the record, up to 63 bytes of alignment slack and the arrays
// above for every dim and count; -1 when it does not fit in 32 bits.
constexpr int64_t buffer_size(int64_t dim, int64_t count) {
    const int64_t per_vector = dim * 16 + 352;  // dim, count >= 1 and below 2^31
    if (per_vector > (INT32_MAX - 1888) / count) return -1;
    return per_vector * count + 1888;
}

// The record may lie at any address (a caller's buffer is not aligned for
// it), so it is read and written whole, by copy.
inline CodeBook read(const void* book) {
    CodeBook cb;
    std::memcpy(&cb, book, sizeof cb);
    return cb;
}
inline void write(void* book, const CodeBook& cb) { std::memcpy(book, &cb, sizeof cb); }

// True, with the record in cb, when a working function may use the code
// book: Init made it and Free has not cleared it.
inline bool usable(const nkpsVQCodeBook_32f* book, CodeBook& cb) {
    cb = read(book);
    return cb.valid == 1 && cb.count >= 1 && cb.dim >= 1;
}

// True when every sub-vector length lies in 0 .. dim (a sub-vector never
// reads past its code vectors).
inline bool lengths_fit(const int* lengths, int sub_vectors, int dim) {
    for (int k = 0; k < sub_vectors; ++k) {
        if (lengths[k] < 0 || lengths[k] > dim) return false;
    }
    return true;
}

// True when every index lies in 0 .. count - 1.
inline bool indices_fit(const int* index, ptrdiff_t n, int count) {
    for (ptrdiff_t i = 0; i < n; ++i) {
        if (index[i] < 0 || index[i] >= count) return false;
    }
    return true;
}

}  // namespace nkp::vq
