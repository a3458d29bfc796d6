// The object life cycle: aligned placement, InitAlloc under a failing
// allocator (including the deliberate no-release), Free, and the memory
// wrappers' refusal of empty requests.
#include "frame/object.h"
#include "nkpcore.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

struct Probe {
    uint32_t tag;
    int32_t allocated;
    int32_t payload[6];
};
constexpr uint32_t kProbeTag = nkp::amc_tag('q');
constexpr size_t kAlign = 16;
constexpr nkp::LifeCycle kLife{kAlign, nkp::OnInitFailure::KeepBuffers, nkp::OnFree::KeepTag};
constexpr int32_t kProbeSize = sizeof(Probe) + kAlign - 1;

nkpStatus probe_get_size(int32_t* object, int32_t* work) {
    *object = kProbeSize;
    *work = 40;
    return nkpStatusOk;
}

void* g_last_work = nullptr;  // so the test can release a deliberately kept buffer

nkpStatus probe_init(void* buffer, void* work, nkpStatus result) {
    g_last_work = work;
    if (result != nkpStatusOk) return result;
    Probe* p = nkp::object_in<Probe, kAlign>(buffer);
    p->tag = kProbeTag;
    p->allocated = 0;
    static_cast<int32_t*>(work)[0] = 7;  // the work buffer is usable
    return nkpStatusOk;
}

nkpStatus probe_init_alloc(Probe** out, nkpStatus init_result) {
    return nkp::init_alloc_with_work<Probe, kLife>(
        out, probe_get_size, [&](void* b, void* w) { return probe_init(b, w, init_result); });
}

class ObjectLifeCycle : public ::testing::Test {
protected:
    void TearDown() override { nkpcoreFailMallocAfter(-1); }
};

TEST(ObjectTag, AmcTagsReadAsLittleEndianWords) {
    EXPECT_EQ(nkp::amc_tag('j'), 0x434D416Au);
    EXPECT_EQ(nkp::amc_tag('`'), 0x434D4160u);
}

TEST(ObjectPlacement, AnyBufferAddressAlignsInsideItsSlack) {
    alignas(64) uint8_t storage[256];
    for (size_t shift = 0; shift < 64; ++shift) {
        uint8_t* obj16 = nkp::align_up<16>(storage + shift);
        uint8_t* obj64 = nkp::align_up<64>(storage + shift);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(obj16) % 16, 0u);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(obj64) % 64, 0u);
        EXPECT_LT(static_cast<size_t>(obj16 - (storage + shift)), 16u);
        EXPECT_LT(static_cast<size_t>(obj64 - (storage + shift)), 64u);
    }
}

TEST_F(ObjectLifeCycle, SuccessfulInitAllocIsReleasedByFree) {
    const long live = nkpcoreLiveAllocations();
    Probe* p = nullptr;
    ASSERT_EQ(probe_init_alloc(&p, nkpStatusOk), nkpStatusOk);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ((nkp::object_in<Probe, kAlign>(p)->allocated), 1);
    EXPECT_EQ(nkpcoreLiveAllocations(), live + 1);  // the work buffer is gone
    EXPECT_EQ((nkp::free_object<Probe, kLife>(p, kProbeTag)), nkpStatusOk);
    EXPECT_EQ(nkpcoreLiveAllocations(), live);
}

struct FailureCase {
    const char* name;
    long allocations_allowed;  // before nkpMalloc starts failing
    nkpStatus init_result;
    nkpStatus expected;
    bool output_null;
    long left_allocated;  // the deliberate no-release
};

const FailureCase kFailures[] = {
    {"object_buffer_fails", 0, nkpStatusOk, nkpStatusNoMemory, true, 0},
    {"work_buffer_fails", 1, nkpStatusOk, nkpStatusNoMemory, false, 1},
    {"init_fails", -1, nkpStatusBadSize, nkpStatusBadSize, false, 2},
};

TEST_F(ObjectLifeCycle, FailedInitAllocLeavesWhatItAllocated) {
    for (const auto& c : kFailures) {
        SCOPED_TRACE(c.name);
        const long live = nkpcoreLiveAllocations();
        Probe* p = reinterpret_cast<Probe*>(uintptr_t{1});
        g_last_work = nullptr;
        nkpcoreFailMallocAfter(c.allocations_allowed);
        EXPECT_EQ(probe_init_alloc(&p, c.init_result), c.expected);
        nkpcoreFailMallocAfter(-1);
        EXPECT_EQ(p == nullptr, c.output_null);
        EXPECT_EQ(nkpcoreLiveAllocations() - live, c.left_allocated);
        // The test's own clean-up of what the library kept on purpose.
        if (c.left_allocated >= 1) nkpFree(p);
        if (c.left_allocated == 2) nkpFree(g_last_work);
        EXPECT_EQ(nkpcoreLiveAllocations(), live);
    }
}

TEST_F(ObjectLifeCycle, FreeChecksAndReleasesOnlyAllocatedObjects) {
    alignas(16) uint8_t buffer[kProbeSize + 3];
    void* start = buffer + 3;
    nkp::object_in<Probe, kAlign>(start)->tag = kProbeTag;
    nkp::object_in<Probe, kAlign>(start)->allocated = 0;
    const long live = nkpcoreLiveAllocations();
    EXPECT_EQ((nkp::free_object<Probe, kLife>(start, kProbeTag)), nkpStatusOk);
    EXPECT_EQ(nkpcoreLiveAllocations(), live);
    EXPECT_EQ((nkp::object_in<Probe, kAlign>(start)->tag), kProbeTag);  // Free keeps the tag
    EXPECT_EQ((nkp::free_object<Probe, kLife>(start, nkp::amc_tag('r'))), nkpStatusWrongObject);
    EXPECT_EQ((nkp::free_object<Probe, kLife>(nullptr, kProbeTag)), nkpStatusNullPointer);
}

TEST(MemoryWrappers, EmptyRequestsNeverReachTheAllocator) {
    const long total = nkpcoreTotalAllocations();
    EXPECT_EQ(nkp::malloc_bytes(0), nullptr);
    EXPECT_EQ(nkp::malloc_bytes(-5), nullptr);
    EXPECT_EQ(nkp::malloc_words(0), nullptr);
    EXPECT_EQ(nkp::malloc_words(-1), nullptr);
    EXPECT_EQ(nkpcoreTotalAllocations(), total);
    void* p = nkp::malloc_words(3);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(nkpcoreTotalAllocations(), total + 1);
    nkp::release(p);
}

}  // namespace
