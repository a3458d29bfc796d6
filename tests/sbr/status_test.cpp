// The prediction functions' statuses in checking order: pointers, then an
// empty call (len or numBands < 1: success, nothing read or written), then
// the slot pointers the call would read. Nothing is written on a refusal.
#include "common/pointer_checks.h"
#include "frame/exports.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

enum { kAllSlots, kSlot2Missing, kSlot3Missing };

struct Scratch {
    float rows[4][8] = {{1, 2, 3, 4, 5, 6, 7, 8}, {2, 1, 2, 1, 2, 1, 2, 1}, {3, 1, 4, 1, 5, 9, 2, 6}, {1, 1, 2, 3}};
    nkp32fc c[4][8] = {};
    const float* slots[3][4] = {{rows[0], rows[1], rows[2], rows[3]}, {rows[0], rows[1], nullptr, rows[3]},
                                {rows[0], rows[1], rows[2], nullptr}};
    const nkp32fc* cslots[3][4] = {{c[0], c[1], c[2], c[3]}, {c[0], c[1], nullptr, c[3]}, {c[0], c[1], c[2], nullptr}};
    float out[4][8] = {};
    nkp32fc cout[2][8] = {};
    // Variants 2 and 3: the split one with the slot fault in its real, then its imaginary parts.
    nkpStatus call(int variant, int s, int bands, int len) {
        if (variant == 0) return nkpsPredictCoef_SBR_R_32f_D2L(slots[s], out[0], out[1], bands, len);
        if (variant == 1) return nkpsPredictCoef_SBR_C_32fc_D2L(cslots[s], cout[0], cout[1], bands, len);
        const float* const* re = slots[variant == 2 ? s : kAllSlots];
        const float* const* im = slots[variant == 3 ? s : kAllSlots];
        return nkpsPredictCoef_SBR_C_32f_D2L(re, im, out[0], out[1], out[2], out[3], bands, len);
    }
};

TEST(SbrStatuses, PointersComeFirst) {
    using nkptest::expect_each_pointer_required;
    Scratch s;  // the slot arrays miss a slot, and the calls are empty
    const float* const* holed = s.slots[kSlot2Missing];
    expect_each_pointer_required("real", nkpsPredictCoef_SBR_R_32f_D2L, holed, s.out[0], s.out[1], 0, 0);
    expect_each_pointer_required("complex", nkpsPredictCoef_SBR_C_32fc_D2L, s.cslots[kSlot2Missing], s.cout[0],
                                 s.cout[1], 0, 0);
    expect_each_pointer_required("split", nkpsPredictCoef_SBR_C_32f_D2L, holed, holed, s.out[0], s.out[1], s.out[2],
                                 s.out[3], 0, 0);
}

TEST(SbrStatuses, FirstFailingCheckDecidesAndRefusalsWriteNothing) {
    const struct {
        const char* name;
        int slots, bands, len;
        nkpStatus expected;
    } rows[] = {
        {"len_zero_is_empty", kSlot2Missing, 8, 0, nkpStatusOk},
        {"len_negative_is_empty", kSlot2Missing, 8, -5, nkpStatusOk},
        {"bands_zero_is_empty", kSlot2Missing, 0, 2, nkpStatusOk},
        {"bands_negative_is_empty", kSlot2Missing, -1, 2, nkpStatusOk},
        {"slot_null", kSlot2Missing, 8, 2, nkpStatusNullPointer},
        {"last_slot_null", kSlot3Missing, 8, 2, nkpStatusNullPointer},
        {"slot_past_len_unread", kSlot3Missing, 8, 1, nkpStatusOk},  // runs
    };
    for (int variant = 0; variant < 4; ++variant) {
        for (const auto& row : rows) {
            Scratch s;
            const Scratch fresh;
            EXPECT_EQ(s.call(variant, row.slots, row.bands, row.len), row.expected) << row.name << " " << variant;
            const bool untouched = !std::memcmp(s.out, fresh.out, 128) && !std::memcmp(s.cout, fresh.cout, 128);
            EXPECT_TRUE(untouched || row.len == 1) << row.name << " " << variant << ": written";
        }
    }
}

}  // namespace
