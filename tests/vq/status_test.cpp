// Every vq-family export's statuses in checking order: first every pointer,
// then one row per fault, the first failing check deciding. A refusal (and
// an empty call) writes nothing: outputs, the code books' work arrays, the
// filter's state.
#include "common/pointer_checks.h"
#include "vq/codebook.h"
#include "vq/fir_block.h"
#include "vq/vq_test_util.h"

#include <cstring>
#include <functional>

namespace {

using Book = nkpsVQCodeBook_32f;

struct Scratch {
    // Two code books of 6 vectors of 4 floats and a freed one, in mem[0..2].
    alignas(64) uint8_t mem[3][4096] = {};
    Book *cb0 = book(mem[0] + 3), *cb1 = book(mem[1]), *dead = book(mem[2], true);
    const Book *books[2] = {cb0, cb1}, *null_book[2] = {cb0, nullptr}, *dead_book[2] = {cb0, dead};
    alignas(16) float x[8] = {1, 2, 3, 4, 5, 6, 7, 8}, w[8] = {1, 1, 1, 1, 1, 1, 1, 1};
    int len[2] = {4, 4}, long_len[2] = {4, 5}, negative_len[2] = {4, -1}, polarity[2] = {1, 0};
    int cand[2][4] = {{0, 1, 2, 3}, {5, 4, 3, 2}}, flags[2][4] = {}, bad_cand[4] = {0, 1, 2, 6};
    int bad_choice[2] = {0, 7}, factor[2] = {1, -1};
    const int *cands[2] = {cand[0], cand[1]}, *bad_cands[2] = {cand[0], bad_cand}, *holed[2] = {cand[0], nullptr};
    const int *bad_choices[2] = {cand[0], bad_choice}, *flag_lists[2] = {flags[0], flags[1]};
    const int* factors[2] = {factor, factor};
    nkpsFIRBlockState_32f* fir = filter();
    nkp::vq::FirBlockState faked{};
    alignas(16) float taps[4] = {1, 0.5f, 0.25f, 0.125f}, block[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    struct {  // the outputs, filled with 0x11
        int index[4][8], size;
        alignas(16) float err[8], dst[16], fir[16];
        Book* made;
        nkpsFIRBlockState_32f* made_fir;
    } o;
    int *idx[2] = {o.index[0], o.index[1]}, *sgn[2] = {o.index[2], o.index[3]};

    Scratch() { std::memset(&o, 0x11, sizeof o); }
    ~Scratch() { nkpsFIRBlockFree_32f(fir); }
    Scratch(const Scratch&) = delete;
    static Book* book(uint8_t* at, bool freed = false) {
        const std::vector<float> v = vqtest::random_ints(24, -4, 4);
        Book* b = nullptr;
        nkpsVQCodeBookInit_32f(v.data(), &b, 4, 6, at);
        if (freed) nkpsVQCodeBookFree_32f(b);
        return b;
    }
    static nkpsFIRBlockState_32f* filter() {
        nkpsFIRBlockState_32f* f = nullptr;
        nkpsFIRBlockInitAlloc_32f(&f, 4, 16);
        return f;
    }
    // A copy of the filter's record, sharing its delay line, with the given fields.
    nkpsFIRBlockState_32f* fake(uint32_t tag, int num_taps, int length, int position) {
        const auto& real = *reinterpret_cast<nkp::vq::FirBlockState*>(fir);
        faked = {real.delayLine, int16_t(num_taps), int16_t(length), real.blockStride, int16_t(position), tag};
        return reinterpret_cast<nkpsFIRBlockState_32f*>(&faked);
    }
    // Everything a refusal must leave alone.
    std::vector<std::vector<uint8_t>> snapshot() const {
        auto bytes = [](const void* p, size_t n) {
            return std::vector<uint8_t>(static_cast<const uint8_t*>(p), static_cast<const uint8_t*>(p) + n);
        };
        const auto& f = *reinterpret_cast<const nkp::vq::FirBlockState*>(fir);
        return {bytes(mem, sizeof mem), bytes(&o, sizeof o), bytes(&f.position, 2), bytes(f.delayLine, 4 * 16 * 4)};
    }
};

constexpr uint32_t kTag = nkp::vq::kFirBlockTag, kOtherTag = kTag + 1;

// Every pointer null in turn, the scalars (and the code books) bad as well.
TEST(VqStatuses, PointersComeFirst) {
    using nkptest::expect_each_pointer_required, nkptest::unchecked;
    Scratch s;
    const auto before = s.snapshot();
    expect_each_pointer_required("getsize", nkpsVQCodeBookGetSize_32f, 0, 0, &s.o.size);
    expect_each_pointer_required("init", nkpsVQCodeBookInit_32f, s.x, &s.o.made, 0, 0, s.mem[2]);
    expect_each_pointer_required("initalloc", nkpsVQCodeBookInitAlloc_32f, unchecked(s.x), &s.o.made, 0, 0);
    expect_each_pointer_required("free", nkpsVQCodeBookFree_32f, s.dead);
    expect_each_pointer_required("preliminary", nkpsVQPreliminarySelect_32f, s.x, s.w, 0, s.len, s.o.index[0],
                                 s.o.index[1], 0, s.polarity, s.dead);
    expect_each_pointer_required("index", nkpsVQIndexSelect_32f, s.x, s.w, 0, s.len, s.o.index[0], s.o.index[1],
                                 unchecked(s.polarity), s.dead, unchecked(s.o.err));
    expect_each_pointer_required("main", nkpsVQMainSelect_32f, s.x, s.w, s.len, 0, 0, s.cands, s.flag_lists, s.idx,
                                 s.sgn, s.dead_book, 2.0f, -1, unchecked(s.o.err));
    // The entries of the two-entry arrays, also before the counts.
    auto main_entries = [&s](const int* c0, const int* c1, const int* f0, const int* f1, int* i0, int* i1, int* g0,
                             int* g1, const Book* b0, const Book* b1) {
        const int *c[2] = {c0, c1}, *f[2] = {f0, f1};
        int *i[2] = {i0, i1}, *g[2] = {g0, g1};
        const Book* b[2] = {b0, b1};
        return nkpsVQMainSelect_32f(s.x, s.w, s.len, 0, 0, c, f, i, g, b, 2.0f, -1, s.o.err);
    };
    expect_each_pointer_required("main/entries", main_entries, s.cand[0], s.cand[1], s.flags[0], s.flags[1],
                                 s.o.index[0], s.o.index[1], s.o.index[2], s.o.index[3], s.dead, s.dead);
    expect_each_pointer_required("reconstruction", nkpsVQReconstruction_32f, s.cands, s.factors, s.len, 0, 0, s.o.dst,
                                 s.dead_book);
    // The first stageCount entries: after the counts, before the code books.
    auto stage_entries = [&s](const int* i0, const int* i1, const int* f0, const int* f1, const Book* b0,
                              const Book* b1) {
        const int *i[2] = {i0, i1}, *f[2] = {f0, f1};
        const Book* b[2] = {b0, b1};
        return nkpsVQReconstruction_32f(i, f, s.long_len, 2, 2, s.o.dst, b);
    };
    expect_each_pointer_required("reconstruction/entries", stage_entries, s.bad_cand, s.bad_cand, s.factor,
                                 s.factor, s.dead, s.dead);
    expect_each_pointer_required("fir_initalloc", nkpsFIRBlockInitAlloc_32f, &s.o.made_fir, 0, 0);
    expect_each_pointer_required("fir_free", nkpsFIRBlockFree_32f, s.fake(kOtherTag, 4, 16, 0));
    expect_each_pointer_required("fir", nkpsFIRBlockOne_32f, s.block, s.o.fir, s.fake(kOtherTag, 4, 16, 0), s.taps);
    EXPECT_TRUE(s.snapshot() == before) << "written before the pointer checks";
}

struct Row {
    const char* name;
    std::function<nkpStatus(Scratch&)> call;
    nkpStatus expected;
};

constexpr nkpStatus kOk = nkpStatusOk, kSize = nkpStatusBadSize, kWrong = nkpStatusWrongObject,
                    kRange = nkpStatusOutOfRange, kFilter = nkpStatusBadFilterLength, kMisaligned = nkpStatusMisaligned;

#define ROW(name, expr, expected) {name, [](Scratch& s) -> nkpStatus { return expr; }, expected}
#define PRE(n, len, k, cb) nkpsVQPreliminarySelect_32f(s.x, s.w, n, len, s.o.index[0], s.o.index[1], k, s.polarity, cb)
#define INDEX(n, len, cb) nkpsVQIndexSelect_32f(s.x, s.w, n, len, s.o.index[0], s.o.index[1], nullptr, cb, s.o.err)
#define MAIN(len, n, k, cand, books, k1) \
    nkpsVQMainSelect_32f(s.x, s.w, len, n, k, cand, s.flag_lists, s.idx, s.sgn, books, 2.0f, k1, s.o.err)
#define REC(index, len, n, stages, books) nkpsVQReconstruction_32f(index, s.factors, len, n, stages, s.o.dst, books)
#define FIR(src, dst, state, taps) nkpsFIRBlockOne_32f(src, dst, state, taps)

// Rows named ".../empty" are calls with no sub-vector: Ok at once.
const Row kRows[] = {
    ROW("init/dim", nkpsVQCodeBookInit_32f(s.x, &s.o.made, -4, 2, s.mem[2]), kSize),
    ROW("init/count", nkpsVQCodeBookInit_32f(s.x, &s.o.made, 4, 0, s.mem[2]), kSize),
    ROW("initalloc/sizes_before_src", nkpsVQCodeBookInitAlloc_32f(nullptr, &s.o.made, 0, 2), kSize),
    ROW("pre/empty", PRE(0, s.negative_len, 0, s.dead), kOk),
    ROW("pre/cand_count", PRE(2, s.negative_len, 0, s.dead), kSize),
    ROW("pre/invalid_book", PRE(2, s.negative_len, 2, s.dead), kWrong),
    ROW("pre/length_beyond_dim", PRE(2, s.long_len, 2, s.cb0), kSize),
    ROW("pre/negative_length", PRE(2, s.negative_len, 2, s.cb0), kSize),
    ROW("index/empty", INDEX(-3, s.len, s.dead), kOk),
    ROW("index/invalid_book", INDEX(2, s.long_len, s.dead), kWrong),
    ROW("index/length_beyond_dim", INDEX(2, s.long_len, s.cb0), kSize),
    ROW("main/empty", MAIN(s.negative_len, 0, 0, s.bad_cands, s.dead_book, -1), kOk),
    ROW("main/cand_count", MAIN(s.negative_len, 2, 0, s.bad_cands, s.dead_book, 0), kSize),
    ROW("main/second_cand_count", MAIN(s.negative_len, 2, 2, s.bad_cands, s.dead_book, -1), kSize),
    ROW("main/invalid_book", MAIN(s.negative_len, 2, 2, s.bad_cands, s.dead_book, 0), kWrong),
    ROW("main/length_beyond_dim", MAIN(s.long_len, 2, 2, s.bad_cands, s.books, 0), kSize),
    ROW("main/candidate_out_of_range", MAIN(s.len, 1, 4, s.bad_cands, s.books, 0), kRange),
    ROW("main/in_range_with_shorter_second_list", MAIN(s.len, 1, 4, s.bad_cands, s.books, 3), kOk),
    ROW("rec/empty", REC(s.holed, s.len, 0, 0, s.dead_book), kOk),
    ROW("rec/stage_count", REC(s.holed, s.len, 2, 0, s.dead_book), kSize),
    ROW("rec/unused_stage_entries_ignored", REC(s.holed, s.len, 2, 1, s.null_book), kOk),
    ROW("rec/invalid_book", REC(s.bad_cands, s.long_len, 2, 2, s.dead_book), kWrong),
    ROW("rec/length_beyond_dim", REC(s.bad_cands, s.long_len, 2, 2, s.books), kSize),
    ROW("rec/index_out_of_range", REC(s.bad_choices, s.len, 2, 2, s.books), kRange),
    ROW("fir/initalloc_taps", nkpsFIRBlockInitAlloc_32f(&s.o.made_fir, 0, 4), kFilter),
    ROW("fir/initalloc_length", nkpsFIRBlockInitAlloc_32f(&s.o.made_fir, 4, 0), kFilter),
    ROW("fir/free_wrong_tag", nkpsFIRBlockFree_32f(s.fake(kOtherTag, 4, 16, 0)), kWrong),
    ROW("fir/wrong_tag", FIR(s.block, s.o.fir, s.fake(kOtherTag, 4, 16, 0), s.taps), kWrong),
    ROW("fir/cut_length", FIR(s.block, s.o.fir, s.fake(kTag, 4, -5, 0), s.taps), kFilter),
    ROW("fir/cut_taps", FIR(s.block, s.o.fir, s.fake(kTag, 0, 16, 0), s.taps), kFilter),
    ROW("fir/position_past_taps", FIR(s.block, s.o.fir, s.fake(kTag, 4, 16, 4), s.taps), kFilter),
    ROW("fir/ok", FIR(s.block, s.o.fir, s.fir, s.taps), kOk),
    ROW("fir/misaligned_src", FIR(s.block + 1, s.o.fir, s.fir, s.taps), kMisaligned),
    ROW("fir/misaligned_dst", FIR(s.block, s.o.fir + 2, s.fir, s.taps), kMisaligned),
    ROW("fir/misaligned_taps", FIR(s.block, s.o.fir, s.fir, s.taps + 1), kMisaligned),
};

#undef ROW
#undef PRE
#undef INDEX
#undef MAIN
#undef REC
#undef FIR

TEST(VqStatuses, FirstFailingCheckDecidesAndRefusalsWriteNothing) {
    for (const Row& row : kRows) {
        Scratch s;
        const auto before = s.snapshot();
        EXPECT_EQ(row.call(s), row.expected) << row.name;
        if (row.expected < 0 || std::strstr(row.name, "/empty")) {
            EXPECT_TRUE(s.snapshot() == before) << row.name << ": written before the checks";
        }
    }
}

}  // namespace
