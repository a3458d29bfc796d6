// The code book's life cycle: GetSize, Init, InitAlloc, Free.
#include "frame/exports.h"
#include "frame/object.h"
#include "vq/codebook.h"

#include <cstring>

namespace nkp {
namespace {

using vq::CodeBook;

// Placed at the buffer's own address; a failed InitAlloc releases what it
// allocated. Free is written out below: it checks no tag and clears the
// validity word instead.
constexpr LifeCycle kLife{1, OnInitFailure::ReleaseBuffers, OnFree::KeepTag};

nkpStatus check_sizes(int dim, int count) {
    if (dim < 1 || count < 1) return nkpStatusBadSize;
    if (vq::buffer_size(dim, count) < 0) return nkpStatusBadSize;
    return nkpStatusOk;
}

}  // namespace

nkpStatus nkpsVQCodeBookGetSize_32f(int dim, int count, int* pSize) {
    if (!pSize) return nkpStatusNullPointer;
    if (const nkpStatus s = check_sizes(dim, count); s != nkpStatusOk) return s;
    *pSize = static_cast<int>(vq::buffer_size(dim, count));
    return nkpStatusOk;
}

nkpStatus nkpsVQCodeBookInit_32f(const nkp32f* pSrc, nkpsVQCodeBook_32f** ppCodeBook, int dim, int count,
                                 nkp8u* pBuffer) {
    if (!pSrc || !ppCodeBook || !pBuffer) return nkpStatusNullPointer;
    if (const nkpStatus s = check_sizes(dim, count); s != nkpStatusOk) return s;

    const vq::Layout l = vq::layout(dim, count);
    uint8_t* base = align_up<64>(pBuffer + vq::kRecordBytes);
    CodeBook cb{};
    cb.count = count;
    cb.dim = dim;
    cb.vectors = reinterpret_cast<float**>(base);
    cb.distances = reinterpret_cast<float*>(base + l.distances);
    cb.sortIndex = reinterpret_cast<int32_t*>(base + l.sort_index);
    cb.sortKey = reinterpret_cast<float*>(base + l.sort_key);
    cb.signFlags = reinterpret_cast<int32_t*>(base + l.sign_flags);
    cb.allocated = 0;

    const size_t row = static_cast<size_t>(dim) * sizeof(float);
    for (int32_t c = 0; c < count; ++c) {
        uint8_t* slot = base + l.vectors + c * l.vector_stride;
        std::memcpy(slot, pSrc + static_cast<size_t>(c) * dim, row);
        std::memset(slot + row, 0, static_cast<size_t>(l.vector_stride) - row);
        cb.vectors[c] = reinterpret_cast<float*>(slot);
    }
    std::memset(base + l.distances, 0, static_cast<size_t>(l.end - l.distances));
    cb.valid = 1;
    vq::write(pBuffer, cb);
    *ppCodeBook = reinterpret_cast<nkpsVQCodeBook_32f*>(pBuffer);
    return nkpStatusOk;
}

nkpStatus nkpsVQCodeBookInitAlloc_32f(const nkp32f* pSrc, nkpsVQCodeBook_32f** ppCodeBook, int dim, int count) {
    return init_alloc<CodeBook, kLife>(
        ppCodeBook, [&](int32_t* size) { return nkp::nkpsVQCodeBookGetSize_32f(dim, count, size); },
        [&](void* buffer) {
            nkpsVQCodeBook_32f* unused;
            return nkp::nkpsVQCodeBookInit_32f(pSrc, &unused, dim, count, static_cast<nkp8u*>(buffer));
        });
}

nkpStatus nkpsVQCodeBookFree_32f(nkpsVQCodeBook_32f* pCodeBook) {
    if (!pCodeBook) return nkpStatusNullPointer;
    CodeBook cb = vq::read(pCodeBook);
    cb.valid = 0;
    vq::write(pCodeBook, cb);
    if (cb.allocated == 1) release(pCodeBook);
    return nkpStatusOk;
}

}  // namespace nkp
