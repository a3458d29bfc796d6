// The code book's size, and what the two objects' life cycles allocate and
// release. (Init's bounds at any buffer address: every code book of the
// search tests is checked for writes past GetSize.)
#include "nkpcore.h"
#include "vq/codebook.h"
#include "vq/vq_test_util.h"

#include <climits>

namespace {

TEST(VqCodeBook, GetSizePinnedAndOverflowRefused) {
    const struct {
        int dim, count, size;  // size 0: BadSize
    } rows[] = {{4, 32, 15200}, {1, 1, 2256}, {16, 512, 313184}, {1, 5835548, 2147483552}, {1, 5835549, 0},
                {INT_MAX, 1, 0}, {INT_MAX, INT_MAX, 0}, {0, 5, 0}, {5, -1, 0}};
    for (const auto& r : rows) {
        int size = -7;
        EXPECT_EQ(nkpsVQCodeBookGetSize_32f(r.dim, r.count, &size), r.size ? nkpStatusOk : nkpStatusBadSize)
            << r.dim << " x " << r.count;
        EXPECT_EQ(size, r.size ? r.size : -7) << r.dim << " x " << r.count;
    }
}

// InitAlloc takes one block for a code book and two for a filter, and Free
// gives them back; a code book in a caller's buffer releases nothing, and
// Free on it twice is harmless. A failed InitAlloc keeps nothing: the code
// book's output becomes NULL (the allocation fails before pSrc is checked),
// the filter's is left alone.
TEST(VqLife, AllocationsAndFailures) {
    const long live = nkpcoreLiveAllocations();
    const std::vector<float> src(4 * 4, 1.0f);
    nkpsVQCodeBook_32f* cb = nullptr;
    nkpsFIRBlockState_32f* fir = nullptr;
    ASSERT_EQ(nkpsVQCodeBookInitAlloc_32f(src.data(), &cb, 4, 4), nkpStatusOk);
    ASSERT_EQ(nkpsFIRBlockInitAlloc_32f(&fir, 3, 8), nkpStatusOk);
    EXPECT_EQ(nkp::vq::read(cb).allocated, 1);
    EXPECT_EQ(nkpcoreLiveAllocations(), live + 3);
    EXPECT_TRUE(nkpsVQCodeBookFree_32f(cb) == nkpStatusOk && nkpsFIRBlockFree_32f(fir) == nkpStatusOk);
    const vqtest::Book book(src, 4);
    EXPECT_TRUE(nkpsVQCodeBookFree_32f(book.cb) == nkpStatusOk && nkpsVQCodeBookFree_32f(book.cb) == nkpStatusOk);
    EXPECT_EQ(nkpcoreLiveAllocations(), live);
    const struct {
        const char* name;
        bool fir;
        long fail_after;
        nkpStatus status;
    } cases[] = {{"book_allocation_before_src", false, 0, nkpStatusNoMemory},
                 {"book_null_src_after_allocation", false, -1, nkpStatusNullPointer},
                 {"filter_record", true, 0, nkpStatusNoMemory},
                 {"filter_delay_line", true, 1, nkpStatusNoMemory}};
    for (const auto& c : cases) {
        int sentinel = 0;
        void* out = &sentinel;
        nkpcoreFailMallocAfter(c.fail_after);
        const nkpStatus s =
            c.fir ? nkpsFIRBlockInitAlloc_32f(reinterpret_cast<nkpsFIRBlockState_32f**>(&out), 4, 16)
                  : nkpsVQCodeBookInitAlloc_32f(nullptr, reinterpret_cast<nkpsVQCodeBook_32f**>(&out), 4, 4);
        nkpcoreFailMallocAfter(-1);
        EXPECT_EQ(s, c.status) << c.name;
        EXPECT_EQ(out, c.fir ? static_cast<void*>(&sentinel) : nullptr) << c.name;
        EXPECT_EQ(nkpcoreLiveAllocations(), live) << c.name;
    }
}

}  // namespace
