// The object life cycle shared by every state and specification object:
// placement at an aligned address inside any caller buffer, type tags, the
// InitAlloc / Free pair, and the work buffer a call borrows when the caller
// gives none.
//
// A family describes its object as a struct with a `tag` (uint32_t) and an
// `allocated` (int32_t) member, and states once, in a LifeCycle constant,
// the three choices its contract makes:
//   align       where the object starts inside the caller's buffer (1: at
//               the buffer's own address);
//   on_failure  what a failed InitAlloc leaves behind: KeepBuffers (the
//               general rule: the output already holds the object buffer and
//               nothing is released) or ReleaseBuffers (nothing leaks and the
//               output is left null);
//   on_free     whether Free clears the tag (ClearTag: a second Free, or any
//               use after Free, is answered WrongObject) or keeps it (KeepTag).
#pragma once

#include "frame/memory.h"
#include "nkpac.h"

#include <cstddef>
#include <cstdint>

namespace nkp {

enum class OnInitFailure { KeepBuffers, ReleaseBuffers };
enum class OnFree { KeepTag, ClearTag };

struct LifeCycle {
    size_t align;
    OnInitFailure on_failure;
    OnFree on_free;
};

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
// order is part of the contract: GetSize's error is passed on; *out is set
// to null; the object buffer's own address is stored in *out as soon as it
// is allocated; the work buffer is allocated (none when its size is 0);
// Init runs; the work buffer is released and the allocated word set.
template <class Obj, LifeCycle LC, class Out, class GetSize, class Init>
nkpStatus init_alloc_with_work(Out** out, GetSize get_size, Init init) {
    if (!out) return nkpStatusNullPointer;
    int32_t object_size = 0, work_size = 0;
    nkpStatus status = get_size(&object_size, &work_size);
    if (status != nkpStatusOk) return status;
    *out = nullptr;
    void* buffer = malloc_bytes(object_size);
    if (!buffer) return nkpStatusNoMemory;
    if constexpr (LC.on_failure == OnInitFailure::KeepBuffers) *out = static_cast<Out*>(buffer);
    void* work = nullptr;
    if (work_size > 0) {
        work = malloc_bytes(work_size);
        if (!work) {
            if constexpr (LC.on_failure == OnInitFailure::ReleaseBuffers) release(buffer);
            return nkpStatusNoMemory;
        }
    }
    status = init(buffer, work);
    if (status != nkpStatusOk) {
        if constexpr (LC.on_failure == OnInitFailure::ReleaseBuffers) {
            release(work);
            release(buffer);
        }
        return status;
    }
    if (work) release(work);
    object_in<Obj, LC.align>(buffer)->allocated = 1;
    *out = static_cast<Out*>(buffer);
    return nkpStatusOk;
}

// InitAlloc for an object without a work buffer: get_size(int32_t* object),
// init(void* buffer).
template <class Obj, LifeCycle LC, class Out, class GetSize, class Init>
nkpStatus init_alloc(Out** out, GetSize get_size, Init init) {
    return init_alloc_with_work<Obj, LC>(
        out, [&](int32_t* object, int32_t* work) {
            *work = 0;
            return get_size(object);
        },
        [&](void* buffer, void*) { return init(buffer); });
}

// Free: the tag must match; releases the buffer only when InitAlloc made it.
template <class Obj, LifeCycle LC>
nkpStatus free_object(void* buffer, uint32_t tag) {
    if (!buffer) return nkpStatusNullPointer;
    Obj* obj = tagged_object<Obj, LC.align>(buffer, tag);
    if (!obj) return nkpStatusWrongObject;
    if constexpr (LC.on_free == OnFree::ClearTag) obj->tag = 0;
    if (obj->allocated == 1) release(buffer);
    return nkpStatusOk;
}

// The work buffer of one call: the caller's when it gives one, else one
// allocated for the length of the call and released when this goes out of
// scope. get() is null when the allocation failed (the call then answers
// nkpStatusNoMemory before writing anything).
class CallWork {
public:
    CallWork(uint8_t* caller_buffer, int32_t bytes)
        : own_(caller_buffer ? nullptr : static_cast<uint8_t*>(malloc_bytes(bytes))),
          buffer_(caller_buffer ? caller_buffer : own_) {}
    ~CallWork() {
        if (own_) release(own_);
    }
    CallWork(const CallWork&) = delete;
    CallWork& operator=(const CallWork&) = delete;

    uint8_t* get() const { return buffer_; }
    template <size_t Align>
    uint8_t* aligned() const {
        return align_up<Align>(buffer_);
    }

private:
    uint8_t* own_;
    uint8_t* buffer_;
};

}  // namespace nkp
