// The object life cycle shared by every state object and plan (spec
// object): placement at an aligned address inside any caller buffer, type
// tags, the InitAlloc / Free pair, and the work buffer a call borrows when
// the caller gives none.
//
// A family describes its object as a struct with a `tag` (uint32_t) and an
// `allocated` (int32_t) member, and states once, in a LifeCycle constant,
// the choices its contract makes:
//   align       where the object starts inside the caller's buffer (1: at
//               the buffer's own address);
//   on_failure  what a failed InitAlloc leaves behind: KeepBuffers (the
//               general rule: the output already holds the object buffer and
//               nothing is released) or ReleaseBuffers (nothing leaks);
//   on_free     whether Free clears the tag (ClearTag: a second Free, or any
//               use after Free, is answered WrongObject) or keeps it (KeepTag);
//   handle      what InitAlloc hands back and Free takes: the buffer's own
//               address (Buffer, the general rule; the output is set to null
//               before anything is allocated), or the aligned object itself
//               (Object, the transform plans: the object keeps its buffer's
//               address in a member `block`, and the output is written only
//               when InitAlloc succeeds).
//
// Tags are of one of two kinds, both compared whole through tagged_object():
// a small number that the contract fixes (the transform plans) or a
// character followed by "AMC" (amc_tag).
//
// Internal linkage on purpose: two-path sources make objects too, and a
// shared inline copy could hand one path's instructions to the other.
#pragma once

#include "frame/memory.h"
#include "nkpac.h"

#include <cstddef>
#include <cstdint>

namespace nkp {
namespace {

enum class OnInitFailure { KeepBuffers, ReleaseBuffers };
enum class OnFree { KeepTag, ClearTag };
enum class Handle { Buffer, Object };

struct LifeCycle {
    size_t align;
    OnInitFailure on_failure;
    OnFree on_free;
    Handle handle = Handle::Buffer;
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

// InitAlloc for an object with a work buffer (for a plan: its init
// scratch). get_size(int32_t* object, int32_t* work) and init(void* buffer,
// void* work) return statuses. The order is part of the contract:
// GetSize's error is passed on; *out is set to null (Handle::Buffer); the
// object buffer's own address is stored in *out as soon as it is allocated
// (KeepBuffers); the work buffer is allocated (none when its size is 0);
// Init runs; the work buffer is released and the allocated word set.
template <class Obj, LifeCycle LC, class Out, class GetSize, class Init>
nkpStatus init_alloc_with_work(Out** out, GetSize get_size, Init init) {
    static_assert(LC.handle == Handle::Buffer || LC.on_failure == OnInitFailure::ReleaseBuffers,
                  "an object handed back aligned cannot leave its buffer behind in the output");
    constexpr bool keep = LC.on_failure == OnInitFailure::KeepBuffers;
    if (!out) return nkpStatusNullPointer;
    int32_t object_size = 0, work_size = 0;
    nkpStatus status = get_size(&object_size, &work_size);
    if (status != nkpStatusOk) return status;
    if constexpr (LC.handle == Handle::Buffer) *out = nullptr;
    void* buffer = malloc_bytes(object_size);
    if (!buffer) return nkpStatusNoMemory;
    if constexpr (keep) *out = static_cast<Out*>(buffer);
    void* work = nullptr;
    if (work_size > 0) {
        work = malloc_bytes(work_size);
        if (!work) {
            if constexpr (!keep) release(buffer);
            return nkpStatusNoMemory;
        }
    }
    status = init(buffer, work);
    if (status != nkpStatusOk) {
        if constexpr (!keep) {
            if (work) release(work);
            release(buffer);
        }
        return status;
    }
    if (work) release(work);
    Obj* obj = object_in<Obj, LC.align>(buffer);
    obj->allocated = 1;
    if constexpr (LC.handle == Handle::Object) {
        obj->block = buffer;
        *out = reinterpret_cast<Out*>(obj);
    } else {
        *out = static_cast<Out*>(buffer);
    }
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

struct NoParts {
    template <class Obj>
    void operator()(Obj*) const {}
};

// Free: the tag must match; releases the buffer only when InitAlloc made it.
// An object InitAlloc built from several blocks names the others in
// release_parts(obj), which runs first.
template <class Obj, LifeCycle LC, class Parts = NoParts>
nkpStatus free_object(void* handle, uint32_t tag, Parts release_parts = {}) {
    if (!handle) return nkpStatusNullPointer;
    Obj* obj = tagged_object<Obj, LC.align>(handle, tag);
    if (!obj) return nkpStatusWrongObject;
    if constexpr (LC.on_free == OnFree::ClearTag) obj->tag = 0;
    if (obj->allocated == 1) {
        release_parts(obj);
        if constexpr (LC.handle == Handle::Object) {
            release(obj->block);
        } else {
            release(handle);
        }
    }
    return nkpStatusOk;
}

// The further blocks a multi-block InitAlloc obtains inside its init step:
// released together, last first, unless keep() is called (ReleaseBuffers).
template <int N>
class PendingBlocks {
public:
    PendingBlocks() = default;
    PendingBlocks(const PendingBlocks&) = delete;
    PendingBlocks& operator=(const PendingBlocks&) = delete;
    ~PendingBlocks() {
        while (count_ > 0) release(blocks_[--count_]);
    }
    // A new block of `bytes`, or null when the allocation failed.
    void* take(int32_t bytes) {
        void* p = count_ < N ? malloc_bytes(bytes) : nullptr;
        if (p) blocks_[count_++] = p;
        return p;
    }
    void keep() { count_ = 0; }

private:
    void* blocks_[N] = {};
    int count_ = 0;
};

// The work buffer of one call: the caller's when it gives one, else one
// allocated for the length of the call and released when this goes out of
// scope. failed() tells that the allocation failed (the call then answers
// nkpStatusNoMemory before writing anything); a call that needs no work
// (bytes <= 0) and got no buffer has get() null and has not failed.
class CallWork {
public:
    CallWork(uint8_t* caller_buffer, int32_t bytes)
        : own_(caller_buffer ? nullptr : static_cast<uint8_t*>(malloc_bytes(bytes))),
          buffer_(caller_buffer ? caller_buffer : own_),
          failed_(!caller_buffer && bytes > 0 && !own_) {}
    ~CallWork() {
        if (own_) release(own_);
    }
    CallWork(const CallWork&) = delete;
    CallWork& operator=(const CallWork&) = delete;

    uint8_t* get() const { return buffer_; }
    bool failed() const { return failed_; }
    template <size_t Align>
    uint8_t* aligned() const {
        return align_up<Align>(buffer_);
    }

private:
    uint8_t* own_;
    uint8_t* buffer_;
    bool failed_;
};

}  // namespace
}  // namespace nkp
