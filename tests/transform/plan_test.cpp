// The transform family's plans as objects: every status in checking order
// (one table, each row named for what it pins), the sizes callers allocate
// by (one pinned table), and the plans' life cycle: a failed Create or
// InitAlloc leaves nothing behind and the output untouched, Free clears the
// tag, a call given no work buffer allocates one for its length only.
#include "nkpcore.h"
#include "transform/engine.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <vector>

namespace {

using namespace nkp::fft;

// Memory for the rows: big enough for every plan a row makes, a sentinel
// output that a failed Init must leave alone, data, and a plan of each kind.
struct Scratch {
    alignas(64) uint8_t mem[1 << 16] = {};
    alignas(64) uint8_t init[8192] = {};
    alignas(64) float data[4096] = {};
    int s = 0, i = 0, b = 0;
    FftSpecComplex32f sentinel{};
    FftSpecComplex32f* out = &sentinel;
    FftSpecComplex16s* out16 = nullptr;
    DctInvSpec32f* dct = nullptr;
    FftSpecComplex32f* plan() {  // a complex plan of order 6 in mem
        FftSpecComplex32f* p = nullptr;
        fftInitComplex32f(&p, 6, kNoDivByAny, 0, mem, init);
        return p;
    }
    FftSpecComplex32f* split() {
        FftSpecComplex32f* p = nullptr;
        fftInitSplit32f(&p, 6, kNoDivByAny, 0, mem, init);
        return p;
    }
    nkpsMDCTFwdSpec_32f* fwd(int N = 36) {
        nkpsMDCTFwdSpec_32f* p = nullptr;
        nkpsMDCTFwdInit_32f(&p, N, mem, init);
        return p;
    }
    nkpsMDCTFwdSpec_16s* fwd16() {
        nkpsMDCTFwdSpec_16s* p = nullptr;
        nkpsMDCTFwdInit_16s(&p, 32, mem, init);
        return p;
    }
    nkp32fc* c() { return reinterpret_cast<nkp32fc*>(data); }
};

struct Row {
    const char* name;
    std::function<nkpStatus(Scratch&)> call;
    nkpStatus expected;
};

constexpr nkpStatus kNull = nkpStatusNullPointer, kOrder = nkpStatusBadOrder, kFlag = nkpStatusBadFlag,
                    kSize = nkpStatusBadSize, kWrong = nkpStatusWrongObject, kOk = nkpStatusOk;

#define ROW(name, expr, expected) {name, [](Scratch& s) -> nkpStatus { return expr; }, expected}
#define AS(type, p) reinterpret_cast<type*>(p)

const Row kRows[] = {
    // Sizes: an order above 30 before everything; 29 and 30 only after the
    // pointers and the flag.
    ROW("fft_sizes/order_31_first", fftSizesComplex32f(31, 3, 0, nullptr, &s.i, &s.b), kOrder),
    ROW("fft_sizes/order_30_after_pointers", fftSizesComplex32f(30, 3, 0, nullptr, &s.i, &s.b), kNull),
    ROW("fft_sizes/order_29_after_flag", fftSizesComplex32f(29, 3, 0, &s.s, &s.i, &s.b), kFlag),
    ROW("fft_sizes/order_29", fftSizesComplex32f(29, 8, 0, &s.s, &s.i, &s.b), kOrder),
    ROW("fft_sizes/flag_0", fftSizesComplex32f(5, 0, 0, &s.s, &s.i, &s.b), kFlag),
    ROW("fft_sizes/flag_16", fftSizesComplex32f(5, 16, 0, &s.s, &s.i, &s.b), kFlag),
    ROW("fft_sizes/order_28", fftSizesComplex32f(28, 8, 0, &s.s, &s.i, &s.b), kOk),
    ROW("fft16_sizes/order_30_after_pointers", fftSizesComplex16s(30, 3, 0, &s.s, nullptr, &s.b), kNull),
    ROW("fft16_sizes/order_29_after_flag", fftSizesComplex16s(29, 3, 0, &s.s, &s.i, &s.b), kFlag),
    ROW("fft16_sizes/order_28_work_beyond_32_bits", fftSizesComplex16s(28, 8, 0, &s.s, &s.i, &s.b), kSize),
    // Init: the output pointer, every order above 28, the memory, the flag,
    // then (orders 11 and above) the init buffer.
    ROW("fft_init/out_first", fftInitComplex32f(nullptr, 40, 3, 0, nullptr, nullptr), kNull),
    ROW("fft_init/order_29", fftInitComplex32f(&s.out, 29, 8, 0, nullptr, nullptr), kOrder),
    ROW("fft_init/memory", fftInitComplex32f(&s.out, 4, 3, 0, nullptr, nullptr), kNull),
    ROW("fft_init/flag", fftInitComplex32f(&s.out, 4, 3, 0, s.mem, nullptr), kFlag),
    ROW("fft_init/order_11_needs_init_buffer", fftInitComplex32f(&s.out, 11, 8, 0, s.mem, nullptr), kNull),
    ROW("fft_init/order_10_needs_none", fftInitComplex32f(&s.out, 10, 8, 0, s.mem, nullptr), kOk),
    ROW("fft16_init/order_29", fftInitComplex16s(&s.out16, 29, 8, 0, nullptr, nullptr), kOrder),
    ROW("fft16_init/flag", fftInitComplex16s(&s.out16, 3, 5, 0, s.mem, nullptr), kFlag),
    ROW("fft16_init/order_11_needs_init_buffer", fftInitComplex16s(&s.out16, 11, 8, 0, s.mem, nullptr), kNull),
    ROW("split_init/order_11_needs_init_buffer", fftInitSplit32f(&s.out, 11, 8, 0, s.mem, nullptr), kNull),
    // Transforms: pointers, then the tag (each kind its own).
    ROW("fft/source", fftForwardComplex32f(nullptr, s.c(), s.plan(), nullptr), kNull),
    ROW("fft/plan", fftForwardComplex32f(s.c(), s.c(), nullptr, nullptr), kNull),
    ROW("fft/split_plan", fftForwardComplex32f(s.c(), s.c(), s.split(), nullptr), kWrong),
    ROW("split/fourth_array", fftForwardSplit32f(s.data, s.data, s.data, nullptr, s.split(), nullptr), kNull),
    ROW("split/complex_plan", fftInverseSplit32f(s.data, s.data, s.data, s.data, s.plan(), nullptr), kWrong),
    ROW("fft_work_size/out", fftWorkSizeComplex32f(s.plan(), nullptr), kNull),
    ROW("fft_work_size/split_plan", fftWorkSizeComplex32f(s.split(), &s.b), kWrong),
    ROW("fft_destroy/split_plan", fftDestroyComplex32f(s.split()), kWrong),
    ROW("fft16/complex_plan", fftForwardComplex16sScaled(AS(nkp16sc, s.data), AS(nkp16sc, s.data),
                                                         AS(FftSpecComplex16s, s.plan()), 0, nullptr), kWrong),
    // The inverse DCT: a length below 1 before the pointers.
    ROW("dct_sizes/length_first", dctInvSizes32f(0, 0, nullptr, nullptr, nullptr), kSize),
    ROW("dct_sizes/pointers", dctInvSizes32f(5, 0, nullptr, &s.i, &s.b), kNull),
    ROW("dct_sizes/beyond_2_to_26", dctInvSizes32f(1 << 27, 0, &s.s, &s.i, &s.b), kSize),
    ROW("dct_init/length_first", dctInvInit32f(nullptr, -3, 0, nullptr, nullptr), kSize),
    ROW("dct_init/out", dctInvInit32f(nullptr, 3, 0, s.mem, nullptr), kNull),
    ROW("dct_init/memory", dctInvInit32f(&s.dct, 3, 0, nullptr, nullptr), kNull),
    // MDCT GetSize: pointers, then the length (12, 36 or 2^k >= 32 in float).
    ROW("mdct_sizes/pointers_first", nkpsMDCTFwdGetSize_32f(16, &s.s, nullptr, &s.b), kNull),
    ROW("mdct_sizes/16", nkpsMDCTInvGetSize_32f(16, &s.s, &s.i, &s.b), kSize),
    ROW("mdct_sizes/0", nkpsMDCTFwdGetSize_32f(0, &s.s, &s.i, &s.b), kSize),
    ROW("mdct_sizes/negative", nkpsMDCTFwdGetSize_32f(-32, &s.s, &s.i, &s.b), kSize),
    ROW("mdct_sizes/24", nkpsMDCTFwdGetSize_32f(24, &s.s, &s.i, &s.b), kSize),
    ROW("mdct_sizes/48", nkpsMDCTInvGetSize_32f(48, &s.s, &s.i, &s.b), kSize),
    ROW("mdct16_sizes/36", nkpsMDCTFwdGetSize_16s(36, &s.s, &s.i, &s.b), kSize),
    ROW("mdct16_sizes/pointers_first", nkpsMDCTFwdGetSize_16s(12, nullptr, &s.i, &s.b), kNull),
    // Float Init: the length before the pointers; the init buffer for 2^k only.
    ROW("mdct_init/length_first", nkpsMDCTFwdInit_32f(nullptr, 16, nullptr, nullptr), kSize),
    ROW("mdct_init/out", nkpsMDCTFwdInit_32f(nullptr, 64, s.mem, s.init), kNull),
    ROW("mdct_init/memory", nkpsMDCTFwdInit_32f(AS(nkpsMDCTFwdSpec_32f*, &s.out), 64, nullptr, s.init), kNull),
    ROW("mdct_init/init_buffer", nkpsMDCTFwdInit_32f(AS(nkpsMDCTFwdSpec_32f*, &s.out), 64, s.mem, nullptr), kNull),
    ROW("mdct_init/36_needs_no_init_buffer", nkpsMDCTInvInit_32f(AS(nkpsMDCTInvSpec_32f*, &s.out), 36, s.mem, nullptr), kOk),
    ROW("mdct_init_alloc/length_first", nkpsMDCTFwdInitAlloc_32f(nullptr, 20), kSize),
    ROW("mdct_init_alloc/out", nkpsMDCTInvInitAlloc_32f(nullptr, 32), kNull),
    // 16-bit Init: the other way round, pointers before the length.
    ROW("mdct16_init/pointers_first", nkpsMDCTFwdInit_16s(AS(nkpsMDCTFwdSpec_16s*, &s.out), 12, s.mem, nullptr), kNull),
    ROW("mdct16_init/length", nkpsMDCTFwdInit_16s(AS(nkpsMDCTFwdSpec_16s*, &s.out), 12, s.mem, s.init), kSize),
    ROW("mdct16_init_alloc/out_first", nkpsMDCTFwdInitAlloc_16s(nullptr, 12), kNull),
    ROW("mdct16_init_alloc/length", nkpsMDCTFwdInitAlloc_16s(AS(nkpsMDCTFwdSpec_16s*, &s.out), 36), kSize),
    // Transforms, GetBufSize and Free: the plan pointer, its tag, then data.
    ROW("mdct/plan_first", nkpsMDCTFwd_32f(nullptr, nullptr, nullptr, nullptr), kNull),
    ROW("mdct/tag_before_data", nkpsMDCTInv_32f(nullptr, nullptr, AS(nkpsMDCTInvSpec_32f, s.fwd()), nullptr), kWrong),
    ROW("mdct/destination", nkpsMDCTFwd_32f(s.data, nullptr, s.fwd(), nullptr), kNull),
    ROW("mdct/in_place_data", nkpsMDCTFwd_32f_I(nullptr, s.fwd(), nullptr), kNull),
    ROW("mdct/ok", nkpsMDCTFwd_32f(s.data, s.data + 64, s.fwd(), nullptr), kOk),
    ROW("mdct16/data", nkpsMDCTFwd_16s_Sfs(nullptr, AS(int16_t, s.data), s.fwd16(), 0, nullptr), kNull),
    ROW("mdct16/tag", nkpsMDCTFwd_16s_Sfs(AS(int16_t, s.data), AS(int16_t, s.data), AS(nkpsMDCTFwdSpec_16s, s.fwd()), 0, nullptr), kWrong),
    ROW("mdct_buf_size/out", nkpsMDCTFwdGetBufSize_32f(s.fwd(), nullptr), kNull),
    ROW("mdct_buf_size/tag", nkpsMDCTInvGetBufSize_32f(AS(nkpsMDCTInvSpec_32f, s.fwd()), &s.b), kWrong),
    ROW("mdct16_buf_size/tag", nkpsMDCTFwdGetBufSize_16s(AS(nkpsMDCTFwdSpec_16s, s.fwd()), &s.b), kWrong),
    ROW("mdct_free/null", nkpsMDCTFwdFree_32f(nullptr), kNull),
    ROW("mdct_free/tag", nkpsMDCTInvFree_32f(AS(nkpsMDCTInvSpec_32f, s.fwd())), kWrong),
    ROW("mdct16_free/tag", nkpsMDCTFwdFree_16s(AS(nkpsMDCTFwdSpec_16s, s.fwd())), kWrong),
};

#undef ROW

TEST(TransformStatuses, FirstFailingCheckDecides) {
    for (const Row& row : kRows) {
        auto s = std::make_unique<Scratch>();
        EXPECT_EQ(row.call(*s), row.expected) << row.name;
        if (row.expected < 0) EXPECT_EQ(s->out, &s->sentinel) << row.name << ": a failed Init wrote its output";
    }
}

// What a failing Init leaves in the memory: a bad flag clears the tag of the
// partly built header; a missing init buffer is found after the header is
// written, which keeps its tag (the split form's, for a split plan).
TEST(TransformStatuses, FailedInitLeavesTheHeaderAsDocumented) {
    auto s = std::make_unique<Scratch>();
    auto* header = reinterpret_cast<FftSpecComplex32f*>(s->mem);
    header->tag = 77;
    EXPECT_EQ(fftInitComplex32f(&s->out, 4, 3, 0, s->mem, nullptr), nkpStatusBadFlag);
    EXPECT_EQ(header->tag, 0u);
    EXPECT_EQ(fftInitComplex32f(&s->out, 11, 8, 0, s->mem, nullptr), nkpStatusNullPointer);
    EXPECT_EQ(header->tag, kTagComplex32f);
    EXPECT_EQ(fftInitSplit32f(&s->out, 11, 8, 0, s->mem, nullptr), nkpStatusNullPointer);
    EXPECT_EQ(header->tag, kTagSplit32f);
}

// The figures callers allocate by: GetSize's plan, Init scratch and work
// bytes, and for the MDCTs the work size the plan records (GetBufSize).
TEST(TransformSizes, PinnedFigures) {
    struct Pinned {
        const char* kind;
        int n;
        int spec, init, work, recorded;
    };
    const Pinned rows[] = {
        {"fft", 0, 200, 0, 0, 0},           {"fft", 5, 200, 0, 0, 0},
        {"fft", 6, 960, 0, 576, 0},         {"fft", 10, 9600, 0, 8256, 0},
        {"fft", 11, 18816, 2176, 16448, 0}, {"fft", 15, 295296, 32896, 262208, 0},
        {"fft", 16, 7295, 64, 4672, 0},     {"fft", 20, 26495, 64, 18496, 0},
        {"fft", 28, 410495, 16512, 294976, 0},
        {"fft16", 0, 136, 0, 0, 0},         {"fft16", 1, 320, 128, 80, 0},
        {"fft16", 3, 320, 128, 128, 0},     {"fft16", 4, 392, 64, 192, 0},
        {"fft16", 12, 37440, 4288, 65664, 0}, {"fft16", 27, 419263, 16576, 1074020480, 0},
        {"dct", 1, 191, 0, 0, 0},           {"dct", 8, 191, 0, 0, 0},
        {"dct", 16, 519, 0, 320, 0},        {"dct", 30, 3839, 0, 184, 0},
        {"dct", 100, 1791, 0, 464, 0},      {"dct", 4096, 107071, 8320, 131200, 0},
        {"mdct", 12, 192, 0, 176, 112},     {"mdct", 36, 240, 0, 272, 208},
        {"mdct", 32, 496, 0, 320, 192},     {"mdct", 256, 1704, 0, 1792, 1664},
        {"mdct", 2048, 9320, 0, 12544, 12416}, {"mdct", 65536, 279144, 16512, 393472, 393344},
        {"mdct", 1 << 20, 2111079, 64, 4203776, 4203648},
        {"mdct16", 32, 584, 128, 224, 224}, {"mdct16", 256, 1640, 64, 1472, 1472},
        {"mdct16", 2048, 7464, 64, 10432, 10432}, {"mdct16", 65536, 213800, 16576, 327872, 327872},
    };
    for (const Pinned& p : rows) {
        SCOPED_TRACE(::testing::Message() << p.kind << " " << p.n);
        const std::string kind = p.kind;
        int s = -1, i = -1, b = -1, recorded = 0;
        if (kind == "fft") {
            ASSERT_EQ(fftSizesComplex32f(p.n, kNoDivByAny, 0, &s, &i, &b), nkpStatusOk);
        } else if (kind == "fft16") {
            ASSERT_EQ(fftSizesComplex16s(p.n, kNoDivByAny, 0, &s, &i, &b), nkpStatusOk);
        } else if (kind == "dct") {
            ASSERT_EQ(dctInvSizes32f(p.n, 0, &s, &i, &b), nkpStatusOk);
        } else if (kind == "mdct") {
            int si, ii, bi;
            ASSERT_EQ(nkpsMDCTFwdGetSize_32f(p.n, &s, &i, &b), nkpStatusOk);
            ASSERT_EQ(nkpsMDCTInvGetSize_32f(p.n, &si, &ii, &bi), nkpStatusOk);
            EXPECT_TRUE(si == s && ii == i && bi == b);
            nkpsMDCTInvSpec_32f* plan = nullptr;
            ASSERT_EQ(nkpsMDCTInvInitAlloc_32f(&plan, p.n), nkpStatusOk);
            EXPECT_EQ(nkpsMDCTInvGetBufSize_32f(plan, &recorded), nkpStatusOk);
            nkpsMDCTInvFree_32f(plan);
        } else {
            ASSERT_EQ(nkpsMDCTFwdGetSize_16s(p.n, &s, &i, &b), nkpStatusOk);
            nkpsMDCTFwdSpec_16s* plan = nullptr;
            ASSERT_EQ(nkpsMDCTFwdInitAlloc_16s(&plan, p.n), nkpStatusOk);
            EXPECT_EQ(nkpsMDCTFwdGetBufSize_16s(plan, &recorded), nkpStatusOk);
            nkpsMDCTFwdFree_16s(plan);
        }
        EXPECT_EQ(s, p.spec);
        EXPECT_EQ(i, p.init);
        EXPECT_EQ(b, p.work);
        EXPECT_EQ(recorded, p.recorded);
    }
    // Another hint gives the 16-bit FFT the float figures.
    int s, i, b;
    ASSERT_EQ(fftSizesComplex16s(3, kNoDivByAny, 2, &s, &i, &b), nkpStatusOk);
    EXPECT_EQ(s, 200 + 192);
}

struct Kind {
    const char* name;
    std::function<nkpStatus(void**)> make;  // Create or InitAlloc
    std::function<nkpStatus(void*)> drop;   // Destroy or Free
    std::function<nkpStatus(void*, void*)> run;  // a transform with the given work buffer
};

std::vector<Kind> kinds() {
    static float data[2 * 65536];
    auto c = reinterpret_cast<nkp32fc*>(data);
    std::vector<Kind> k;
    for (int order : {0, 12, 16})
        k.push_back({"fft", [order](void** p) { return fftCreateComplex32f(reinterpret_cast<FftSpecComplex32f**>(p), order, 8, 0); },
                     [](void* p) { return fftDestroyComplex32f(static_cast<FftSpecComplex32f*>(p)); },
                     [c](void* p, void* w) {
                         return fftForwardComplex32f(c, c, static_cast<FftSpecComplex32f*>(p), static_cast<uint8_t*>(w));
                     }});
    k.push_back({"fft16", [](void** p) { return fftCreateComplex16s(reinterpret_cast<FftSpecComplex16s**>(p), 6, 8, 0); },
                 [](void* p) { return fftDestroyComplex16s(static_cast<FftSpecComplex16s*>(p)); },
                 [](void* p, void* w) {
                     auto* d = reinterpret_cast<nkp16sc*>(data);
                     return fftForwardComplex16sScaled(d, d, static_cast<FftSpecComplex16s*>(p), 0, static_cast<uint8_t*>(w));
                 }});
    k.push_back({"dct", [](void** p) { return dctInvCreate32f(reinterpret_cast<DctInvSpec32f**>(p), 77, 0); },
                 [](void* p) { return dctInvDestroy32f(static_cast<DctInvSpec32f*>(p)); },
                 [](void* p, void* w) { return dctInv32f(data, data, static_cast<DctInvSpec32f*>(p), static_cast<uint8_t*>(w)); }});
    for (int N : {12, 2048, 1 << 14})
        k.push_back({"mdct", [N](void** p) { return nkpsMDCTFwdInitAlloc_32f(reinterpret_cast<nkpsMDCTFwdSpec_32f**>(p), N); },
                     [](void* p) { return nkpsMDCTFwdFree_32f(static_cast<nkpsMDCTFwdSpec_32f*>(p)); },
                     [](void* p, void* w) {
                         return nkpsMDCTFwd_32f_I(data, static_cast<nkpsMDCTFwdSpec_32f*>(p), static_cast<uint8_t*>(w));
                     }});
    k.push_back({"mdct_inverse", [](void** p) { return nkpsMDCTInvInitAlloc_32f(reinterpret_cast<nkpsMDCTInvSpec_32f**>(p), 64); },
                 [](void* p) { return nkpsMDCTInvFree_32f(static_cast<nkpsMDCTInvSpec_32f*>(p)); },
                 [](void* p, void* w) { return nkpsMDCTInv_32f_I(data, static_cast<nkpsMDCTInvSpec_32f*>(p), static_cast<uint8_t*>(w)); }});
    for (int N : {32, 4096})
        k.push_back({"mdct16", [N](void** p) { return nkpsMDCTFwdInitAlloc_16s(reinterpret_cast<nkpsMDCTFwdSpec_16s**>(p), N); },
                     [](void* p) { return nkpsMDCTFwdFree_16s(static_cast<nkpsMDCTFwdSpec_16s*>(p)); },
                     [](void* p, void* w) {
                         auto* d = reinterpret_cast<int16_t*>(data);
                         return nkpsMDCTFwd_16s_Sfs(d, d, static_cast<nkpsMDCTFwdSpec_16s*>(p), 0, static_cast<uint8_t*>(w));
                     }});
    return k;
}

class PlanLifeCycle : public ::testing::Test {
protected:
    void TearDown() override { nkpcoreFailMallocAfter(-1); }
};

TEST_F(PlanLifeCycle, FailuresLeaveNothingAndFreeClearsTheTag) {
    for (const Kind& k : kinds()) {
        SCOPED_TRACE(k.name);
        const long live = nkpcoreLiveAllocations();
        // Each allocation step failing in turn, until none fails.
        for (long allowed = 0;; ++allowed) {
            int sentinel;
            void* p = &sentinel;
            nkpcoreFailMallocAfter(allowed);
            const nkpStatus st = k.make(&p);
            nkpcoreFailMallocAfter(-1);
            if (st == nkpStatusOk) {
                EXPECT_EQ(*static_cast<uint32_t*>(p) != 0, true);
                EXPECT_EQ(k.drop(p), nkpStatusOk);
                break;
            }
            ASSERT_EQ(st, nkpStatusNoMemory) << "step " << allowed;
            EXPECT_EQ(p, &sentinel) << "output written";
            EXPECT_EQ(nkpcoreLiveAllocations(), live) << "step " << allowed;
        }
        EXPECT_EQ(nkpcoreLiveAllocations(), live);
    }
}

// Free of a plan built by Init clears its tag and releases nothing: a second
// Free, or a later use, is refused.
TEST_F(PlanLifeCycle, FreeClearsTheTag) {
    auto s = std::make_unique<Scratch>();
    const long live = nkpcoreLiveAllocations();
    auto* fwd = s->fwd(2048);
    EXPECT_EQ(nkpsMDCTFwdFree_32f(fwd), nkpStatusOk);
    EXPECT_EQ(nkpsMDCTFwdFree_32f(fwd), nkpStatusWrongObject);
    EXPECT_EQ(nkpsMDCTFwd_32f(s->data, s->data, fwd, nullptr), nkpStatusWrongObject);
    EXPECT_EQ(nkpsMDCTFwdGetBufSize_32f(fwd, &s->b), nkpStatusWrongObject);
    auto* fwd16 = s->fwd16();
    EXPECT_EQ(nkpsMDCTFwdFree_16s(fwd16), nkpStatusOk);
    EXPECT_EQ(nkpsMDCTFwdFree_16s(fwd16), nkpStatusWrongObject);
    FftSpecComplex32f* plan = s->plan();
    EXPECT_EQ(fftDestroyComplex32f(plan), nkpStatusOk);
    EXPECT_EQ(fftForwardComplex32f(s->c(), s->c(), plan, nullptr), nkpStatusWrongObject);
    EXPECT_EQ(dctInvInit32f(&s->dct, 8, 0, s->mem, nullptr), nkpStatusOk);
    EXPECT_EQ(dctInvDestroy32f(s->dct), nkpStatusOk);
    EXPECT_EQ(dctInv32f(s->data, s->data, s->dct, nullptr), nkpStatusWrongObject);
    EXPECT_EQ(nkpcoreLiveAllocations(), live);
}

// A given work buffer means no allocation; none given, one for the call,
// released before it returns; when that fails, NoMemory.
TEST_F(PlanLifeCycle, NullWorkBufferAllocatesForTheCallOnly) {
    for (const Kind& k : kinds()) {
        SCOPED_TRACE(k.name);
        void* p = nullptr;
        ASSERT_EQ(k.make(&p), nkpStatusOk);
        std::vector<uint8_t> work(1 << 21);
        const long total = nkpcoreTotalAllocations(), live = nkpcoreLiveAllocations();
        ASSERT_EQ(k.run(p, work.data()), nkpStatusOk);
        EXPECT_EQ(nkpcoreTotalAllocations(), total);
        ASSERT_EQ(k.run(p, nullptr), nkpStatusOk);
        EXPECT_EQ(nkpcoreLiveAllocations(), live);
        if (nkpcoreTotalAllocations() > total) {
            nkpcoreFailMallocAfter(0);
            EXPECT_EQ(k.run(p, nullptr), nkpStatusNoMemory);
            nkpcoreFailMallocAfter(-1);
        }
        k.drop(p);
    }
}

}  // namespace
