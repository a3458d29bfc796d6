// The object life cycle shared by every state and specification object:
// placement at an aligned address inside any caller buffer, type tags, and
// the InitAlloc / Free pair. A family describes its object as a struct with
// a `tag` (uint32_t) and an `allocated` (int32_t) member and lets these
// helpers run the life cycle.
#pragma once

#include "frame/memory.h"
#include "nkpac.h"

#include <cstddef>
#include <cstdint>

namespace nkp {

// Tags of the "?AMC" kind: a distinguishing character, then "AMC", read as
// a little-endian word ("jAMC" is 0x434D416A).
constexpr uint32_t amc_tag(char c) {
    return static_cast<uint32_t>(static_cast<uint8_t>(c)) | (uint32_t{'A'} << 8) |
           (uint32_t{'M'} << 16) | (uint32_t{'C'} << 24);
}

// The first address inside buffer that is a multiple of Align: buffer plus
// (-address) mod Align. GetSize figures include Align - 1 bytes for this.
template <size_t Align>
inline uint8_t* align_up(void* buffer) {
    static_assert((Align & (Align - 1)) == 0, "power of two");
    const uintptr_t a = reinterpret_cast<uintptr_t>(buffer);
    return static_cast<uint8_t*>(buffer) + ((0 - a) & (Align - 1));
}
template <size_t Align>
inline const uint8_t* align_up(const void* buffer) {
    return align_up<Align>(const_cast<void*>(buffer));
}

template <class Obj, size_t Align>
inline Obj* object_in(void* buffer) {
    return reinterpret_cast<Obj*>(align_up<Align>(buffer));
}
template <class Obj, size_t Align>
inline const Obj* object_in(const void* buffer) {
    return reinterpret_cast<const Obj*>(align_up<Align>(buffer));
}

// The aligned object in buffer if its tag is `tag`, else null.
template <class Obj, size_t Align>
inline Obj* tagged_object(void* buffer, uint32_t tag) {
    Obj* obj = object_in<Obj, Align>(buffer);
    return obj->tag == tag ? obj : nullptr;
}
template <class Obj, size_t Align>
inline const Obj* tagged_object(const void* buffer, uint32_t tag) {
    const Obj* obj = object_in<Obj, Align>(buffer);
    return obj->tag == tag ? obj : nullptr;
}

// InitAlloc for an object with a work buffer. get_size(int32_t* object,
// int32_t* work) and init(void* buffer, void* work) return statuses. The
// order is part of the contract, including what a failure leaves behind:
// once the object buffer is allocated its address is in *out, and a later
// failure releases nothing (the object is not initialised as allocated, so
// Free will not release it either).
template <class Obj, size_t Align, class Out, class GetSize, class Init>
nkpStatus init_alloc_with_work(Out** out, GetSize get_size, Init init) {
    if (!out) return nkpStatusNullPointer;
    int32_t object_size = 0, work_size = 0;
    nkpStatus status = get_size(&object_size, &work_size);
    if (status != nkpStatusOk) return status;
    *out = nullptr;
    void* buffer = malloc_bytes(object_size);
    *out = static_cast<Out*>(buffer);
    if (!buffer) return nkpStatusNoMemory;
    void* work = malloc_bytes(work_size);
    if (!work) return nkpStatusNoMemory;
    status = init(buffer, work);
    if (status != nkpStatusOk) return status;
    release(work);
    object_in<Obj, Align>(buffer)->allocated = 1;
    return nkpStatusOk;
}

// InitAlloc for an object without a work buffer: get_size(int32_t* object),
// init(void* buffer).
template <class Obj, size_t Align, class Out, class GetSize, class Init>
nkpStatus init_alloc(Out** out, GetSize get_size, Init init) {
    if (!out) return nkpStatusNullPointer;
    int32_t object_size = 0;
    nkpStatus status = get_size(&object_size);
    if (status != nkpStatusOk) return status;
    *out = nullptr;
    void* buffer = malloc_bytes(object_size);
    *out = static_cast<Out*>(buffer);
    if (!buffer) return nkpStatusNoMemory;
    status = init(buffer);
    if (status != nkpStatusOk) return status;
    object_in<Obj, Align>(buffer)->allocated = 1;
    return nkpStatusOk;
}

// Free: releases the buffer only when InitAlloc made it. The tag stays.
template <class Obj, size_t Align>
nkpStatus free_object(void* buffer, uint32_t tag) {
    if (!buffer) return nkpStatusNullPointer;
    Obj* obj = tagged_object<Obj, Align>(buffer, tag);
    if (!obj) return nkpStatusWrongObject;
    if (obj->allocated == 1) release(buffer);
    return nkpStatusOk;
}

}  // namespace nkp
