// The code book's size, memory layout and life cycle.
#include "nkpcore.h"
#include "vq/codebook.h"
#include "vq/vq_test_util.h"

#include <cstring>

namespace {

using vqtest::Book;

struct SizeCase {
    const char* name;
    int dim, count;
    nkpStatus status;
    int size;
};

const SizeCase kSizes[] = {
    {"dim4_count32", 4, 32, nkpStatusOk, 15200},
    {"smallest", 1, 1, nkpStatusOk, 2256},
    {"dim16_count512", 16, 512, nkpStatusOk, 313184},
    {"largest_that_fits", 1, 5835548, nkpStatusOk, 2147483552},
    {"one_more_overflows", 1, 5835549, nkpStatusBadSize, 0},
    {"huge_dim", 2147483647, 1, nkpStatusBadSize, 0},
    {"huge_both", 2147483647, 2147483647, nkpStatusBadSize, 0},
    {"dim_zero", 0, 5, nkpStatusBadSize, 0},
    {"count_negative", 5, -1, nkpStatusBadSize, 0},
};

TEST(VqCodeBook, GetSizeFollowsTheFormulaAndRefusesOverflow) {
    for (const SizeCase& c : kSizes) {
        int size = -7;
        EXPECT_EQ(nkpsVQCodeBookGetSize_32f(c.dim, c.count, &size), c.status) << c.name;
        EXPECT_EQ(size, c.status == nkpStatusOk ? c.size : -7) << c.name;
    }
}

constexpr uintptr_t up64(uintptr_t a) { return (a + 63) & ~uintptr_t{63}; }

// The arrays begin at the first 64-byte boundary at or after 88 bytes into
// the buffer; every part is rounded to 64 bytes; all of it fits in GetSize.
TEST(VqCodeBook, LayoutFromAnyBufferAddress) {
    const struct {
        int dim, count;
    } shapes[] = {{1, 1}, {3, 5}, {4, 32}, {16, 33}, {17, 100}, {40, 3}};
    for (const auto& shape : shapes) {
        const std::vector<float> src = vqtest::random_floats(static_cast<size_t>(shape.dim) * shape.count, -1, 1);
        int size = 0;
        ASSERT_EQ(nkpsVQCodeBookGetSize_32f(shape.dim, shape.count, &size), nkpStatusOk);
        for (size_t misalign = 0; misalign < 64; misalign += 7) {
            std::vector<uint8_t> storage(static_cast<size_t>(size) + 128 + 64, 0xA5);
            uint8_t* buf = reinterpret_cast<uint8_t*>(up64(reinterpret_cast<uintptr_t>(storage.data()))) + misalign;
            nkpsVQCodeBook_32f* cb = nullptr;
            ASSERT_EQ(nkpsVQCodeBookInit_32f(src.data(), &cb, shape.dim, shape.count, buf), nkpStatusOk);
            ASSERT_EQ(reinterpret_cast<uint8_t*>(cb), buf);
            const nkp::vq::CodeBook record = nkp::vq::read(buf);
            const nkp::vq::CodeBook* rec = &record;
            EXPECT_EQ(rec->count, shape.count);
            EXPECT_EQ(rec->dim, shape.dim);
            EXPECT_EQ(rec->valid, 1);
            EXPECT_EQ(rec->allocated, 0);

            const uintptr_t arrays = up64(reinterpret_cast<uintptr_t>(buf) + 88);
            const uintptr_t pointers_bytes = up64(8u * shape.count), slot = up64(4u * shape.dim);
            const uintptr_t work = up64(4u * shape.count);
            EXPECT_EQ(reinterpret_cast<uintptr_t>(rec->vectors), arrays);
            for (int c = 0; c < shape.count; ++c) {
                ASSERT_EQ(reinterpret_cast<uintptr_t>(rec->vectors[c]), arrays + pointers_bytes + c * slot);
                EXPECT_EQ(std::memcmp(rec->vectors[c], src.data() + c * shape.dim, 4u * shape.dim), 0);
            }
            const uintptr_t after = arrays + pointers_bytes + shape.count * slot;
            EXPECT_EQ(reinterpret_cast<uintptr_t>(rec->distances), after);
            EXPECT_EQ(reinterpret_cast<uintptr_t>(rec->signFlags), after + work);
            EXPECT_EQ(reinterpret_cast<uintptr_t>(rec->sortIndex), after + 2 * work);
            EXPECT_EQ(reinterpret_cast<uintptr_t>(rec->sortKey), after + 3 * work);
            EXPECT_LE(after + 4 * work, reinterpret_cast<uintptr_t>(buf) + size);
            // Nothing past the reported size is touched.
            for (size_t i = static_cast<size_t>(size); i < static_cast<size_t>(size) + 64; ++i) {
                ASSERT_EQ(buf[i], 0xA5) << "byte " << i;
            }
        }
    }
}

class VqCodeBookLife : public ::testing::Test {
protected:
    void TearDown() override { nkpcoreFailMallocAfter(-1); }
};

TEST_F(VqCodeBookLife, InitAllocMarksAllocatedAndFreeReleases) {
    const std::vector<float> src = vqtest::random_floats(8 * 10, -1, 1);
    const long live = nkpcoreLiveAllocations();
    nkpsVQCodeBook_32f* cb = nullptr;
    ASSERT_EQ(nkpsVQCodeBookInitAlloc_32f(src.data(), &cb, 8, 10), nkpStatusOk);
    ASSERT_NE(cb, nullptr);
    EXPECT_EQ(nkp::vq::read(cb).allocated, 1);
    EXPECT_EQ(nkpcoreLiveAllocations(), live + 1);
    EXPECT_EQ(nkpsVQCodeBookFree_32f(cb), nkpStatusOk);
    EXPECT_EQ(nkpcoreLiveAllocations(), live);
}

// Unlike the other objects, a failed InitAlloc leaves nothing allocated.
TEST_F(VqCodeBookLife, FailedInitAllocReleasesEverything) {
    const std::vector<float> src(4 * 4, 1.0f);
    const struct {
        const char* name;
        const float* src;
        long fail_after;
        nkpStatus status;
    } cases[] = {
        {"allocation_fails", src.data(), 0, nkpStatusNoMemory},
        {"init_fails_on_null_vectors", nullptr, -1, nkpStatusNullPointer},
    };
    for (const auto& c : cases) {
        const long live = nkpcoreLiveAllocations(), total = nkpcoreTotalAllocations();
        nkpcoreFailMallocAfter(c.fail_after);
        long sentinel = 0;
        nkpsVQCodeBook_32f* cb = reinterpret_cast<nkpsVQCodeBook_32f*>(&sentinel);
        EXPECT_EQ(nkpsVQCodeBookInitAlloc_32f(c.src, &cb, 4, 4), c.status) << c.name;
        nkpcoreFailMallocAfter(-1);
        EXPECT_EQ(cb, nullptr) << c.name;
        EXPECT_EQ(nkpcoreLiveAllocations(), live) << c.name;
        if (c.status == nkpStatusNullPointer) EXPECT_EQ(nkpcoreTotalAllocations(), total + 1) << c.name;
    }
}

// Free on a caller's buffer clears the validity word and releases nothing;
// the working functions then refuse the code book.
TEST_F(VqCodeBookLife, FreeInvalidatesACallersCodeBook) {
    Book book(vqtest::random_ints(4 * 6, -3, 3), 4);
    const long live = nkpcoreLiveAllocations();
    EXPECT_EQ(nkpsVQCodeBookFree_32f(book.cb), nkpStatusOk);
    EXPECT_EQ(nkpcoreLiveAllocations(), live);
    EXPECT_EQ(nkp::vq::read(book.cb).valid, 0);
    float x[4] = {1, 2, 3, 4}, w[4] = {1, 1, 1, 1};
    int len = 4, polarity = 1, index = -1, sign = -1;
    EXPECT_EQ(nkpsVQPreliminarySelect_32f(x, w, 1, &len, &index, &sign, 1, &polarity, book.cb), nkpStatusWrongObject);
    EXPECT_EQ(nkpsVQIndexSelect_32f(x, w, 1, &len, &index, &sign, nullptr, book.cb, nullptr), nkpStatusWrongObject);
    EXPECT_EQ(index, -1);
    // A second Free is harmless: there is no tag to check.
    EXPECT_EQ(nkpsVQCodeBookFree_32f(book.cb), nkpStatusOk);
}

}  // namespace
