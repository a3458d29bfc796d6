// The memory wrappers: the only way the library reaches nkpcore's allocator.
#pragma once

#include <cstdint>

namespace nkp {

// Null without calling the allocator when bytes <= 0.
void* malloc_bytes(int32_t bytes);
// count 32-bit words; null when count <= 0.
void* malloc_words(int32_t count);
void release(void* pointer);

}  // namespace nkp
