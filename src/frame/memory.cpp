#include "frame/memory.h"

#include "nkpcore.h"

namespace nkp {

void* malloc_bytes(int32_t bytes) {
    if (bytes <= 0) return nullptr;
    return nkpMalloc(static_cast<size_t>(bytes));
}

void* malloc_words(int32_t count) {
    if (count <= 0) return nullptr;
    return nkpMalloc(static_cast<size_t>(count) * 4u);
}

void release(void* pointer) { nkpFree(pointer); }

}  // namespace nkp
