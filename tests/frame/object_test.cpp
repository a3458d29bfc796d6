// The object life cycle of frame/object.h under both policies in use (the
// general rule of the state objects and the plans' rule), with a failing
// allocator, and the memory wrappers. (The plans' multi-block InitAlloc and
// call-length work buffers: tests/transform/plan_test.cpp.)
#include "frame/object.h"
#include "nkpcore.h"

#include <gtest/gtest.h>

namespace {

using namespace nkp;

struct Probe {
    uint32_t tag;
    int32_t allocated;
    void* block;
    int32_t payload[6];
};
constexpr uint32_t kProbeTag = amc_tag('q');
constexpr LifeCycle kGeneral{16, OnInitFailure::KeepBuffers, OnFree::KeepTag};
constexpr LifeCycle kPlan{64, OnInitFailure::ReleaseBuffers, OnFree::ClearTag, Handle::Object};

void* g_work = nullptr;  // the last work buffer, so the test can release a kept one

template <LifeCycle LC>
nkpStatus make(Probe** out, nkpStatus init_result) {
    return init_alloc_with_work<Probe, LC>(
        out,
        [](int32_t* object, int32_t* work) {
            *object = static_cast<int32_t>(sizeof(Probe) + LC.align - 1);
            *work = 40;
            return nkpStatusOk;
        },
        [&](void* buffer, void* work) -> nkpStatus {
            g_work = work;
            if (init_result != nkpStatusOk) return init_result;
            Probe* p = object_in<Probe, LC.align>(buffer);
            p->tag = kProbeTag;
            p->allocated = 0;
            static_cast<int32_t*>(work)[0] = 7;  // the work buffer is usable
            return nkpStatusOk;
        });
}

class ObjectLifeCycle : public ::testing::Test {
protected:
    void TearDown() override { nkpcoreFailMallocAfter(-1); }
};

TEST(ObjectTag, AmcTagsReadAsLittleEndianWords) {
    EXPECT_EQ(amc_tag('j'), 0x434D416Au);
    EXPECT_EQ(amc_tag('`'), 0x434D4160u);
}

TEST(ObjectPlacement, AnyBufferAddressAlignsInsideItsSlack) {
    alignas(64) uint8_t storage[256];
    for (size_t shift = 0; shift < 64; ++shift) {
        uint8_t* obj16 = align_up<16>(storage + shift);
        uint8_t* obj64 = align_up<64>(storage + shift);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(obj16) % 16, 0u);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(obj64) % 64, 0u);
        EXPECT_LT(static_cast<size_t>(obj16 - (storage + shift)), 16u);
        EXPECT_LT(static_cast<size_t>(obj64 - (storage + shift)), 64u);
    }
}

enum class Output { Null, Buffer, Untouched, Object };

struct InitAllocCase {
    const char* name;
    bool plan;                 // kPlan, else kGeneral
    long allocations_allowed;  // before nkpMalloc starts failing (-1: never)
    nkpStatus init_result, expected;
    Output output;
    long left_allocated;  // the general rule's deliberate no-release
};

const InitAllocCase kInitAllocCases[] = {
    {"general_object_buffer_fails", false, 0, nkpStatusOk, nkpStatusNoMemory, Output::Null, 0},
    {"general_work_buffer_fails", false, 1, nkpStatusOk, nkpStatusNoMemory, Output::Buffer, 1},
    {"general_init_fails", false, -1, nkpStatusBadSize, nkpStatusBadSize, Output::Buffer, 2},
    {"general_success", false, -1, nkpStatusOk, nkpStatusOk, Output::Buffer, 1},
    {"plan_object_buffer_fails", true, 0, nkpStatusOk, nkpStatusNoMemory, Output::Untouched, 0},
    {"plan_work_buffer_fails", true, 1, nkpStatusOk, nkpStatusNoMemory, Output::Untouched, 0},
    {"plan_init_fails", true, -1, nkpStatusBadSize, nkpStatusBadSize, Output::Untouched, 0},
    {"plan_success", true, -1, nkpStatusOk, nkpStatusOk, Output::Object, 1},
};

TEST_F(ObjectLifeCycle, InitAllocFollowsItsPolicy) {
    for (const auto& c : kInitAllocCases) {
        SCOPED_TRACE(c.name);
        const long live = nkpcoreLiveAllocations();
        Probe sentinel{};
        Probe* p = &sentinel;
        g_work = nullptr;
        nkpcoreFailMallocAfter(c.allocations_allowed);
        const nkpStatus status = c.plan ? make<kPlan>(&p, c.init_result) : make<kGeneral>(&p, c.init_result);
        EXPECT_EQ(status, c.expected);
        nkpcoreFailMallocAfter(-1);
        EXPECT_EQ(nkpcoreLiveAllocations() - live, c.left_allocated);
        switch (c.output) {
            case Output::Null: EXPECT_EQ(p, nullptr); break;
            case Output::Untouched: EXPECT_EQ(p, &sentinel); break;
            case Output::Buffer:
                if (c.expected == nkpStatusOk) EXPECT_EQ((object_in<Probe, kGeneral.align>(p)->allocated), 1);
                break;
            case Output::Object:
                EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 64, 0u);
                EXPECT_EQ(p->allocated, 1);
                EXPECT_EQ((object_in<Probe, 64>(p->block)), p);
                break;
        }
        if (c.expected == nkpStatusOk) {
            // Free releases what InitAlloc made; the plan's clears the tag.
            const nkpStatus freed =
                c.plan ? free_object<Probe, kPlan>(p, kProbeTag) : free_object<Probe, kGeneral>(p, kProbeTag);
            EXPECT_EQ(freed, nkpStatusOk);
        } else {
            // The test's own clean-up of what the general rule keeps.
            if (c.left_allocated >= 1) nkpFree(p);
            if (c.left_allocated == 2) nkpFree(g_work);
        }
        EXPECT_EQ(nkpcoreLiveAllocations(), live);
    }
}

// Free on an object made by Init in the caller's buffer releases nothing;
// the general rule keeps the tag, the plans' clears it, so that a second
// Free or a later use is refused.
TEST_F(ObjectLifeCycle, FreeChecksTheTagAndFollowsItsPolicy) {
    for (bool plan : {false, true}) {
        SCOPED_TRACE(plan ? "plan" : "general");
        alignas(64) uint8_t buffer[sizeof(Probe) + 64];
        void* handle = plan ? buffer : buffer + 3;
        Probe* p = plan ? object_in<Probe, 64>(handle) : object_in<Probe, 16>(handle);
        p->tag = kProbeTag;
        p->allocated = 0;
        auto drop = [&](void* h, uint32_t tag) {
            return plan ? free_object<Probe, kPlan>(h, tag) : free_object<Probe, kGeneral>(h, tag);
        };
        const long live = nkpcoreLiveAllocations();
        EXPECT_EQ(drop(nullptr, kProbeTag), nkpStatusNullPointer);
        EXPECT_EQ(drop(handle, amc_tag('r')), nkpStatusWrongObject);
        EXPECT_EQ(drop(handle, kProbeTag), nkpStatusOk);
        EXPECT_EQ(p->tag, plan ? 0u : kProbeTag);
        EXPECT_EQ(drop(handle, kProbeTag), plan ? nkpStatusWrongObject : nkpStatusOk);
        EXPECT_EQ(nkpcoreLiveAllocations(), live);
    }
}

TEST(MemoryWrappers, EmptyRequestsNeverReachTheAllocator) {
    const long total = nkpcoreTotalAllocations();
    EXPECT_EQ(malloc_bytes(0), nullptr);
    EXPECT_EQ(malloc_bytes(-5), nullptr);
    EXPECT_EQ(malloc_words(0), nullptr);
    EXPECT_EQ(malloc_words(-1), nullptr);
    EXPECT_EQ(nkpcoreTotalAllocations(), total);
    void* p = malloc_words(3);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(nkpcoreTotalAllocations(), total + 1);
    nkp::release(p);
}

}  // namespace
