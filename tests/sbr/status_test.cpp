// The prediction functions' statuses in checking order: pointers, then an
// empty call (len or numBands < 1: success, nothing written), then the slot
// pointers the call would read. Nothing is written on any refusal.
#include "frame/exports.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>

namespace {

struct Scratch {
    float rows[4][8] = {{1, 2, 3, 4, 5, 6, 7, 8}, {2, 1, 2, 1, 2, 1, 2, 1}, {3, 1, 4, 1, 5, 9, 2, 6}, {1, 1, 2, 3, 5, 8, 1, 3}};
    nkp32fc crows[4][8] = {};
    const float* slots[4] = {rows[0], rows[1], rows[2], rows[3]};
    const float* holed[4] = {rows[0], rows[1], nullptr, rows[3]};
    const float* short_tail[4] = {rows[0], rows[1], rows[2], nullptr};
    const nkp32fc* cslots[4] = {crows[0], crows[1], crows[2], crows[3]};
    const nkp32fc* choled[4] = {crows[0], crows[1], crows[2], nullptr};
    float out[4][8] = {};
    nkp32fc cout[2][8] = {};
};

struct Row {
    const char* name;
    std::function<nkpStatus(Scratch&, int path)> call;
    nkpStatus expected;
};

constexpr nkpStatus kNull = nkpStatusNullPointer, kOk = nkpStatusOk;

#define ROW(name, expr, expected) {name, [](Scratch& s, int path) -> nkpStatus { return expr; }, expected}
#define REAL nkpt_nkpsPredictCoef_SBR_R_32f_D2L[path]
#define CPLX nkpt_nkpsPredictCoef_SBR_C_32fc_D2L[path]
#define SPLIT nkpt_nkpsPredictCoef_SBR_C_32f_D2L[path]

const Row kRows[] = {
    ROW("real/src_null", REAL(nullptr, s.out[0], s.out[1], 8, 2), kNull),
    ROW("real/alpha0_null", REAL(s.slots, nullptr, s.out[1], 8, 2), kNull),
    ROW("real/alpha1_null", REAL(s.slots, s.out[0], nullptr, 0, 0), kNull),
    ROW("real/len_zero_is_empty", REAL(s.holed, s.out[0], s.out[1], 8, 0), kOk),
    ROW("real/len_negative_is_empty", REAL(s.slots, s.out[0], s.out[1], 8, -5), kOk),
    ROW("real/bands_zero_is_empty", REAL(s.holed, s.out[0], s.out[1], 0, 2), kOk),
    ROW("real/bands_negative_is_empty", REAL(s.slots, s.out[0], s.out[1], -1, 2), kOk),
    ROW("real/slot_null_after_sizes", REAL(s.holed, s.out[0], s.out[1], 8, 2), kNull),
    ROW("real/last_slot_null", REAL(s.short_tail, s.out[0], s.out[1], 8, 2), kNull),
    ROW("real/slot_beyond_len_unread_ok", REAL(s.short_tail, s.out[0], s.out[1], 8, 1), kOk),
    ROW("complex/src_null", CPLX(nullptr, s.cout[0], s.cout[1], 8, 2), kNull),
    ROW("complex/alpha0_null", CPLX(s.cslots, nullptr, s.cout[1], 8, 2), kNull),
    ROW("complex/alpha1_null", CPLX(s.cslots, s.cout[0], nullptr, 8, 2), kNull),
    ROW("complex/bands_zero_is_empty", CPLX(s.choled, s.cout[0], s.cout[1], 0, 2), kOk),
    ROW("complex/slot_null", CPLX(s.choled, s.cout[0], s.cout[1], 8, 2), kNull),
    ROW("complex/slot_beyond_len_unread_ok", CPLX(s.choled, s.cout[0], s.cout[1], 8, 1), kOk),
    ROW("split/re_null", SPLIT(nullptr, s.slots, s.out[0], s.out[1], s.out[2], s.out[3], 8, 2), kNull),
    ROW("split/im_null", SPLIT(s.slots, nullptr, s.out[0], s.out[1], s.out[2], s.out[3], 8, 2), kNull),
    ROW("split/alpha0_re_null", SPLIT(s.slots, s.slots, nullptr, s.out[1], s.out[2], s.out[3], 8, 2), kNull),
    ROW("split/alpha0_im_null", SPLIT(s.slots, s.slots, s.out[0], nullptr, s.out[2], s.out[3], 8, 2), kNull),
    ROW("split/alpha1_re_null", SPLIT(s.slots, s.slots, s.out[0], s.out[1], nullptr, s.out[3], 8, 2), kNull),
    ROW("split/alpha1_im_null", SPLIT(s.slots, s.slots, s.out[0], s.out[1], s.out[2], nullptr, 0, 0), kNull),
    ROW("split/len_zero_is_empty", SPLIT(s.holed, s.holed, s.out[0], s.out[1], s.out[2], s.out[3], 8, 0), kOk),
    ROW("split/im_slot_null", SPLIT(s.slots, s.holed, s.out[0], s.out[1], s.out[2], s.out[3], 8, 2), kNull),
    ROW("split/ok", SPLIT(s.slots, s.slots, s.out[0], s.out[1], s.out[2], s.out[3], 8, 2), kOk),
};

#undef ROW
#undef REAL
#undef CPLX
#undef SPLIT

TEST(SbrStatuses, FirstFailingCheckDecidesAndRefusalsWriteNothing) {
    for (int path = 0; path < 2; ++path) {
        for (const Row& row : kRows) {
            Scratch s;
            EXPECT_EQ(row.call(s, path), row.expected) << row.name << " (path " << path << ")";
            const bool ran = std::string(row.name).find("ok") != std::string::npos;
            if (ran) continue;
            const Scratch fresh;
            EXPECT_TRUE(std::equal(&s.out[0][0], &s.out[0][0] + 32, &fresh.out[0][0])) << row.name;
            EXPECT_TRUE(std::equal(&s.cout[0][0].re, &s.cout[0][0].re + 32, &fresh.cout[0][0].re)) << row.name;
        }
    }
}

}  // namespace
