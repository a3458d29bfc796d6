// A byte buffer whose readable memory ends exactly where a reader's
// documented slack ends: the page after it is inaccessible, so a reader that
// fetches one word too many faults in the test instead of passing silently.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#if defined(_WIN32)
#include <windows.h>
#else
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace nkptest {

class GuardedBuffer {
public:
    // Places `size` bytes so that the memory after them stays readable up to
    // the end of the aligned 32-bit word after the word holding the last
    // byte (the bit readers' slack), and faults from there on. `misalign`
    // (0..3) shifts the data start inside its word.
    GuardedBuffer(const void* bytes, size_t size, size_t misalign = 0) {
        const size_t end_slack = ((size + misalign + 3) & ~size_t{3}) + 4 - (size + misalign);
        const size_t need = size + misalign + end_slack;
        page_ = page_size();
        span_ = ((need + page_ - 1) / page_ + 1) * page_;
#if defined(_WIN32)
        base_ = static_cast<uint8_t*>(VirtualAlloc(nullptr, span_, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
        DWORD old;
        VirtualProtect(base_ + span_ - page_, page_, PAGE_NOACCESS, &old);
#else
        base_ = static_cast<uint8_t*>(
            mmap(nullptr, span_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        mprotect(base_ + span_ - page_, page_, PROT_NONE);
#endif
        uint8_t* guard = base_ + span_ - page_;
        data_ = guard - end_slack - size;
        std::memset(guard - need, 0, need);
        if (size) std::memcpy(data_, bytes, size);
    }
    explicit GuardedBuffer(const std::vector<uint8_t>& bytes, size_t misalign = 0)
        : GuardedBuffer(bytes.data(), bytes.size(), misalign) {}
    GuardedBuffer(const GuardedBuffer&) = delete;
    GuardedBuffer& operator=(const GuardedBuffer&) = delete;
    ~GuardedBuffer() {
#if defined(_WIN32)
        VirtualFree(base_, 0, MEM_RELEASE);
#else
        munmap(base_, span_);
#endif
    }

    uint8_t* data() { return data_; }

private:
    static size_t page_size() {
#if defined(_WIN32)
        SYSTEM_INFO info;
        GetSystemInfo(&info);
        return info.dwPageSize;
#else
        return static_cast<size_t>(sysconf(_SC_PAGESIZE));
#endif
    }

    uint8_t* base_ = nullptr;
    uint8_t* data_ = nullptr;
    size_t span_ = 0;
    size_t page_ = 0;
};

}  // namespace nkptest
