// Every vq-family export's statuses in checking order: one row per case, the
// first failing check decides, and a refusal writes nothing (outputs, the
// code book's work arrays, the filter's state).
#include "vq/codebook.h"
#include "vq/fir_block.h"
#include "vq/vq_test_util.h"

#include <cstring>
#include <functional>
#include <string>

namespace {

struct Scratch {
    // Two code books of 6 vectors of 4 floats, in caller buffers.
    alignas(64) uint8_t mem0[4096] = {};
    alignas(64) uint8_t mem1[4096] = {};
    alignas(64) uint8_t dead_mem[4096] = {};
    nkpsVQCodeBook_32f* cb[2] = {};
    nkpsVQCodeBook_32f* dead = nullptr;  // freed: no longer valid
    const nkpsVQCodeBook_32f* books[2] = {};
    const nkpsVQCodeBook_32f* null_book[2] = {};
    const nkpsVQCodeBook_32f* dead_book[2] = {};
    alignas(16) float x[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    alignas(16) float w[8] = {1, 1, 1, 1, 1, 1, 1, 1};
    int len[2] = {4, 4}, long_len[2] = {4, 5}, negative_len[2] = {4, -1}, polarity[2] = {1, 0};
    int cand[2][4] = {{0, 1, 2, 3}, {5, 4, 3, 2}}, flags[2][4] = {};
    int bad_cand[4] = {0, 1, 2, 6}, bad_choice[2] = {0, 7};
    const int* cands[2] = {cand[0], cand[1]};
    const int* bad_cands[2] = {cand[0], bad_cand};
    const int* bad_choices[2] = {cand[0], bad_choice};
    const int* flag_lists[2] = {flags[0], flags[1]};
    const int* holed[2] = {cand[0], nullptr};
    const int* factors[2] = {factor, factor};
    int factor[2] = {1, -1};
    // Outputs.
    int out_index[2][8], out_sign[2][8];
    int* idx[2] = {out_index[0], out_index[1]};
    int* sgn[2] = {out_sign[0], out_sign[1]};
    int* null_out[2] = {out_index[0], nullptr};
    float err[8], dst[16];
    int size = -1;
    nkpsVQCodeBook_32f* made = nullptr;
    // The block filter.
    nkpsFIRBlockState_32f* fir = nullptr;
    nkp::vq::FirBlockState wrong_tag{}, bad_position{};
    alignas(16) float taps[4] = {1, 0.5f, 0.25f, 0.125f};
    alignas(16) float block[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    alignas(16) float fir_out[16];

    Scratch() {
        const std::vector<float> v = vqtest::random_ints(24, -4, 4);
        nkpsVQCodeBookInit_32f(v.data(), &cb[0], 4, 6, mem0 + 3);
        nkpsVQCodeBookInit_32f(v.data(), &cb[1], 4, 6, mem1);
        nkpsVQCodeBookInit_32f(v.data(), &dead, 4, 6, dead_mem);
        nkpsVQCodeBookFree_32f(dead);
        books[0] = cb[0];
        books[1] = cb[1];
        null_book[0] = cb[0];
        dead_book[0] = cb[0];
        dead_book[1] = dead;
        std::memset(out_index, 0x11, sizeof out_index);
        std::memset(out_sign, 0x11, sizeof out_sign);
        std::memset(err, 0x11, sizeof err);
        std::memset(dst, 0x11, sizeof dst);
        std::memset(fir_out, 0x11, sizeof fir_out);
        nkpsFIRBlockInitAlloc_32f(&fir, 4, 16);
        wrong_tag = *reinterpret_cast<nkp::vq::FirBlockState*>(fir);
        wrong_tag.tag = 59;
        bad_position = *reinterpret_cast<nkp::vq::FirBlockState*>(fir);
        bad_position.position = 4;
    }
    ~Scratch() { nkpsFIRBlockFree_32f(fir); }
    Scratch(const Scratch&) = delete;
    nkpsFIRBlockState_32f* as_state(nkp::vq::FirBlockState& r) { return reinterpret_cast<nkpsFIRBlockState_32f*>(&r); }
    nkpsFIRBlockState_32f* cut(int taps_, int len_) {
        bad_position.position = 0;
        bad_position.numTaps = static_cast<int16_t>(taps_);
        bad_position.blockLength = static_cast<int16_t>(len_);
        return as_state(bad_position);
    }

    // Everything a refusal must leave alone.
    std::vector<uint8_t> snapshot() const {
        std::vector<uint8_t> s;
        auto add = [&](const void* p, size_t n) {
            const size_t at = s.size();
            s.resize(at + n);
            std::memcpy(s.data() + at, p, n);
        };
        add(out_index, sizeof out_index);
        add(out_sign, sizeof out_sign);
        add(err, sizeof err);
        add(dst, sizeof dst);
        add(fir_out, sizeof fir_out);
        add(&size, sizeof size);
        add(&made, sizeof made);
        for (const nkpsVQCodeBook_32f* b : {cb[0], cb[1]}) {
            const nkp::vq::CodeBook record = nkp::vq::read(b);
            const nkp::vq::CodeBook* r = &record;
            add(r->distances, 4 * 6);
            add(r->signFlags, 4 * 6);
            add(r->sortIndex, 4 * 6);
            add(r->sortKey, 4 * 6);
        }
        const auto* f = reinterpret_cast<const nkp::vq::FirBlockState*>(fir);
        add(&f->position, sizeof f->position);
        add(f->delayLine, 4 * 16 * 4);
        return s;
    }
};

struct Row {
    const char* name;
    std::function<nkpStatus(Scratch&)> call;
    nkpStatus expected;
};

constexpr nkpStatus kNull = nkpStatusNullPointer, kOk = nkpStatusOk, kSize = nkpStatusBadSize,
                    kWrong = nkpStatusWrongObject, kRange = nkpStatusOutOfRange, kFilter = nkpStatusBadFilterLength,
                    kMisaligned = nkpStatusMisaligned;

#define ROW(name, expr, expected) {name, [](Scratch& s) -> nkpStatus { return expr; }, expected}
#define PRE(x, w, n, len, ci, cs, k, pol, cb) nkpsVQPreliminarySelect_32f(x, w, n, len, ci, cs, k, pol, cb)
#define MAIN(x, w, len, n, k, ci, cs, oi, os, books, k1) \
    nkpsVQMainSelect_32f(x, w, len, n, k, ci, cs, oi, os, books, 2.0f, k1, s.err)
#define REC(ii, ss, len, n, st, dst, books) nkpsVQReconstruction_32f(ii, ss, len, n, st, dst, books)

const Row kRows[] = {
    // Code book life cycle.
    ROW("getsize/size_null", nkpsVQCodeBookGetSize_32f(0, 0, nullptr), kNull),
    ROW("getsize/dim", nkpsVQCodeBookGetSize_32f(0, 5, &s.size), kSize),
    ROW("getsize/count", nkpsVQCodeBookGetSize_32f(5, 0, &s.size), kSize),
    ROW("getsize/overflow", nkpsVQCodeBookGetSize_32f(1 << 24, 1 << 10, &s.size), kSize),
    ROW("init/src_null", nkpsVQCodeBookInit_32f(nullptr, &s.made, 0, 0, s.dead_mem), kNull),
    ROW("init/out_null", nkpsVQCodeBookInit_32f(s.x, nullptr, 4, 2, s.dead_mem), kNull),
    ROW("init/buffer_null", nkpsVQCodeBookInit_32f(s.x, &s.made, 4, 2, nullptr), kNull),
    ROW("init/dim", nkpsVQCodeBookInit_32f(s.x, &s.made, -4, 2, s.dead_mem), kSize),
    ROW("init/count", nkpsVQCodeBookInit_32f(s.x, &s.made, 4, 0, s.dead_mem), kSize),
    ROW("initalloc/out_null", nkpsVQCodeBookInitAlloc_32f(s.x, nullptr, 0, 0), kNull),
    ROW("initalloc/sizes_before_src", nkpsVQCodeBookInitAlloc_32f(nullptr, &s.made, 0, 2), kSize),
    ROW("free/null", nkpsVQCodeBookFree_32f(nullptr), kNull),
    // Preliminary selection.
    ROW("pre/src_null", PRE(nullptr, s.w, 0, s.len, s.out_index[0], s.out_sign[0], 0, s.polarity, s.cb[0]), kNull),
    ROW("pre/weights_null", PRE(s.x, nullptr, 2, s.len, s.out_index[0], s.out_sign[0], 2, s.polarity, s.cb[0]), kNull),
    ROW("pre/lengths_null", PRE(s.x, s.w, 2, nullptr, s.out_index[0], s.out_sign[0], 2, s.polarity, s.cb[0]), kNull),
    ROW("pre/index_null", PRE(s.x, s.w, 2, s.len, nullptr, s.out_sign[0], 2, s.polarity, s.cb[0]), kNull),
    ROW("pre/sign_null", PRE(s.x, s.w, 2, s.len, s.out_index[0], nullptr, 2, s.polarity, s.cb[0]), kNull),
    ROW("pre/polarity_null", PRE(s.x, s.w, 2, s.len, s.out_index[0], s.out_sign[0], 2, nullptr, s.cb[0]), kNull),
    ROW("pre/book_null", PRE(s.x, s.w, 2, s.len, s.out_index[0], s.out_sign[0], 2, s.polarity, nullptr), kNull),
    ROW("pre/no_sub_vectors_before_all_else", PRE(s.x, s.w, 0, s.negative_len, s.out_index[0], s.out_sign[0], 0, s.polarity, s.dead), kOk),
    ROW("pre/cand_count", PRE(s.x, s.w, 2, s.negative_len, s.out_index[0], s.out_sign[0], 0, s.polarity, s.dead), kSize),
    ROW("pre/invalid_book", PRE(s.x, s.w, 2, s.negative_len, s.out_index[0], s.out_sign[0], 2, s.polarity, s.dead), kWrong),
    ROW("pre/length_beyond_dim", PRE(s.x, s.w, 2, s.long_len, s.out_index[0], s.out_sign[0], 2, s.polarity, s.cb[0]), kSize),
    ROW("pre/negative_length", PRE(s.x, s.w, 2, s.negative_len, s.out_index[0], s.out_sign[0], 2, s.polarity, s.cb[0]), kSize),
    // Index selection: polarity and error outputs are optional.
    ROW("index/src_null", nkpsVQIndexSelect_32f(nullptr, s.w, 1, s.len, s.out_index[0], s.out_sign[0], nullptr, s.cb[0], nullptr), kNull),
    ROW("index/sign_null", nkpsVQIndexSelect_32f(s.x, s.w, 1, s.len, s.out_index[0], nullptr, nullptr, s.cb[0], nullptr), kNull),
    ROW("index/book_null", nkpsVQIndexSelect_32f(s.x, s.w, 1, s.len, s.out_index[0], s.out_sign[0], nullptr, nullptr, nullptr), kNull),
    ROW("index/no_sub_vectors", nkpsVQIndexSelect_32f(s.x, s.w, -3, s.len, s.out_index[0], s.out_sign[0], nullptr, s.dead, s.err), kOk),
    ROW("index/invalid_book", nkpsVQIndexSelect_32f(s.x, s.w, 2, s.long_len, s.out_index[0], s.out_sign[0], nullptr, s.dead, s.err), kWrong),
    ROW("index/length_beyond_dim", nkpsVQIndexSelect_32f(s.x, s.w, 2, s.long_len, s.out_index[0], s.out_sign[0], nullptr, s.cb[0], s.err), kSize),
    // Main selection.
    ROW("main/src_null", MAIN(nullptr, s.w, s.len, 2, 4, s.cands, s.flag_lists, s.idx, s.sgn, s.books, 0), kNull),
    ROW("main/lengths_null", MAIN(s.x, s.w, nullptr, 2, 4, s.cands, s.flag_lists, s.idx, s.sgn, s.books, 0), kNull),
    ROW("main/candidates_null", MAIN(s.x, s.w, s.len, 2, 4, nullptr, s.flag_lists, s.idx, s.sgn, s.books, 0), kNull),
    ROW("main/candidate_list_null", MAIN(s.x, s.w, s.len, 0, 4, s.holed, s.flag_lists, s.idx, s.sgn, s.books, 0), kNull),
    ROW("main/flag_list_null", MAIN(s.x, s.w, s.len, 2, 4, s.cands, s.holed, s.idx, s.sgn, s.books, 0), kNull),
    ROW("main/out_array_null", MAIN(s.x, s.w, s.len, 2, 4, s.cands, s.flag_lists, s.null_out, s.sgn, s.books, 0), kNull),
    ROW("main/sign_array_null", MAIN(s.x, s.w, s.len, 2, 4, s.cands, s.flag_lists, s.idx, s.null_out, s.books, 0), kNull),
    ROW("main/book_null", MAIN(s.x, s.w, s.len, 2, 4, s.cands, s.flag_lists, s.idx, s.sgn, s.null_book, 0), kNull),
    ROW("main/no_sub_vectors", MAIN(s.x, s.w, s.negative_len, 0, 0, s.bad_cands, s.flag_lists, s.idx, s.sgn, s.dead_book, -1), kOk),
    ROW("main/cand_count", MAIN(s.x, s.w, s.negative_len, 2, 0, s.bad_cands, s.flag_lists, s.idx, s.sgn, s.dead_book, 0), kSize),
    ROW("main/second_cand_count", MAIN(s.x, s.w, s.negative_len, 2, 2, s.bad_cands, s.flag_lists, s.idx, s.sgn, s.dead_book, -1), kSize),
    ROW("main/invalid_book", MAIN(s.x, s.w, s.negative_len, 2, 2, s.bad_cands, s.flag_lists, s.idx, s.sgn, s.dead_book, 0), kWrong),
    ROW("main/length_beyond_dim", MAIN(s.x, s.w, s.long_len, 2, 2, s.bad_cands, s.flag_lists, s.idx, s.sgn, s.books, 0), kSize),
    ROW("main/candidate_out_of_range", MAIN(s.x, s.w, s.len, 1, 4, s.bad_cands, s.flag_lists, s.idx, s.sgn, s.books, 0), kRange),
    ROW("main/in_range_with_shorter_second_list", MAIN(s.x, s.w, s.len, 1, 4, s.bad_cands, s.flag_lists, s.idx, s.sgn, s.books, 3), kOk),
    // Reconstruction.
    ROW("rec/index_null", REC(nullptr, s.factors, s.len, 2, 2, s.dst, s.books), kNull),
    ROW("rec/signs_null", REC(s.cands, nullptr, s.len, 2, 2, s.dst, s.books), kNull),
    ROW("rec/lengths_null", REC(s.cands, s.factors, nullptr, 2, 2, s.dst, s.books), kNull),
    ROW("rec/dst_null", REC(s.cands, s.factors, s.len, 2, 2, nullptr, s.books), kNull),
    ROW("rec/books_null", REC(s.cands, s.factors, s.len, 2, 2, s.dst, nullptr), kNull),
    ROW("rec/no_sub_vectors", REC(s.holed, s.factors, s.len, 0, 0, s.dst, s.dead_book), kOk),
    ROW("rec/stage_count", REC(s.holed, s.factors, s.len, 2, 0, s.dst, s.dead_book), kSize),
    ROW("rec/stage_entry_null", REC(s.holed, s.factors, s.long_len, 2, 2, s.dst, s.dead_book), kNull),
    ROW("rec/stage_book_null", REC(s.cands, s.factors, s.long_len, 2, 2, s.dst, s.null_book), kNull),
    ROW("rec/unused_stage_entries_ignored", REC(s.holed, s.factors, s.len, 2, 1, s.dst, s.null_book), kOk),
    ROW("rec/invalid_book", REC(s.bad_cands, s.factors, s.long_len, 2, 2, s.dst, s.dead_book), kWrong),
    ROW("rec/length_beyond_dim", REC(s.bad_cands, s.factors, s.long_len, 2, 2, s.dst, s.books), kSize),
    ROW("rec/index_out_of_range", REC(s.bad_choices, s.factors, s.len, 2, 2, s.dst, s.books), kRange),
    // Block FIR.
    ROW("fir/initalloc_out_null", nkpsFIRBlockInitAlloc_32f(nullptr, 0, 0), kNull),
    ROW("fir/initalloc_taps", nkpsFIRBlockInitAlloc_32f(&s.fir, 0, 4), kFilter),
    ROW("fir/initalloc_length", nkpsFIRBlockInitAlloc_32f(&s.fir, 4, 0), kFilter),
    ROW("fir/free_null", nkpsFIRBlockFree_32f(nullptr), kNull),
    ROW("fir/free_wrong_tag", nkpsFIRBlockFree_32f(s.as_state(s.wrong_tag)), kWrong),
    ROW("fir/src_null", nkpsFIRBlockOne_32f(nullptr, s.fir_out, s.fir, s.taps), kNull),
    ROW("fir/dst_null", nkpsFIRBlockOne_32f(s.block, nullptr, s.fir, s.taps), kNull),
    ROW("fir/state_null", nkpsFIRBlockOne_32f(s.block, s.fir_out, nullptr, s.taps), kNull),
    ROW("fir/taps_null", nkpsFIRBlockOne_32f(s.block, s.fir_out, s.as_state(s.wrong_tag), nullptr), kNull),
    ROW("fir/wrong_tag", nkpsFIRBlockOne_32f(s.block, s.fir_out, s.as_state(s.wrong_tag), s.taps), kWrong),
    ROW("fir/cut_length", nkpsFIRBlockOne_32f(s.block, s.fir_out, s.cut(4, -5), s.taps), kFilter),
    ROW("fir/cut_taps", nkpsFIRBlockOne_32f(s.block, s.fir_out, s.cut(0, 16), s.taps), kFilter),
    ROW("fir/position_past_taps", nkpsFIRBlockOne_32f(s.block, s.fir_out, s.as_state(s.bad_position), s.taps), kFilter),
    ROW("fir/ok", nkpsFIRBlockOne_32f(s.block, s.fir_out, s.fir, s.taps), kOk),
    ROW("fir/misaligned_src_ok", nkpsFIRBlockOne_32f(s.block + 1, s.fir_out, s.fir, s.taps), kMisaligned),
    ROW("fir/misaligned_dst_ok", nkpsFIRBlockOne_32f(s.block, s.fir_out + 2, s.fir, s.taps), kMisaligned),
    ROW("fir/misaligned_taps_ok", nkpsFIRBlockOne_32f(s.block, s.fir_out, s.fir, s.taps + 1), kMisaligned),
};

#undef ROW
#undef PRE
#undef MAIN
#undef REC

TEST(VqStatuses, FirstFailingCheckDecidesAndRefusalsWriteNothing) {
    for (const Row& row : kRows) {
        Scratch s;
        const std::vector<uint8_t> before = s.snapshot();
        EXPECT_EQ(row.call(s), row.expected) << row.name;
        if (row.expected < 0 || row.name == std::string("pre/no_sub_vectors_before_all_else") ||
            row.name == std::string("index/no_sub_vectors") || row.name == std::string("main/no_sub_vectors") ||
            row.name == std::string("rec/no_sub_vectors")) {
            EXPECT_TRUE(s.snapshot() == before) << row.name << ": written before the checks";
        }
    }
}

// Both table entries of every export are the same function.
TEST(VqStatuses, BothPathsShareOneImplementation) {
    EXPECT_EQ(nkpt_nkpsVQMainSelect_32f[0], nkpt_nkpsVQMainSelect_32f[1]);
    EXPECT_EQ(nkpt_nkpsVQPreliminarySelect_32f[0], nkpt_nkpsVQPreliminarySelect_32f[1]);
    EXPECT_EQ(nkpt_nkpsVQIndexSelect_32f[0], nkpt_nkpsVQIndexSelect_32f[1]);
    EXPECT_EQ(nkpt_nkpsVQReconstruction_32f[0], nkpt_nkpsVQReconstruction_32f[1]);
    EXPECT_EQ(nkpt_nkpsFIRBlockOne_32f[0], nkpt_nkpsFIRBlockOne_32f[1]);
    EXPECT_EQ(nkpt_nkpsVQCodeBookInit_32f[0], nkpt_nkpsVQCodeBookInit_32f[1]);
}

}  // namespace
