// Every export's statuses in its checking order: one row per case, the
// first failing check decides. Two-path exports run through both entries.
#include "frame/exports.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>

namespace {

// Scratch arrays large enough for every row, 16-byte aligned.
struct Scratch {
    alignas(16) int16_t s16[16] = {1, 2, 3, 4, 5, 6, 7, 8};
    alignas(16) int16_t d16[16] = {};
    alignas(16) float f32[16] = {1, 2, 3, 4, 5, 6, 7, 8};
    alignas(16) float g32[16] = {};
    alignas(16) int32_t d32[16] = {};
    int32_t offsets[3] = {0, 4, 8};
    int16_t* lanes16[2] = {d16, d16 + 8};
    float* lanes32[2] = {g32, g32 + 8};
    int16_t* null_lane16[2] = {d16, nullptr};
    float* null_lane32[2] = {g32, nullptr};
    int16_t* misaligned_lane16[2] = {d16, d16 + 9};
    float* misaligned_lane32[2] = {g32, g32 + 9};
};

struct Row {
    const char* name;
    std::function<nkpStatus(Scratch&, int path)> call;
    nkpStatus expected;
};

constexpr nkpStatus kNull = nkpStatusNullPointer, kSize = nkpStatusBadSize, kOk = nkpStatusOk,
                    kChannels = nkpStatusBadChannelCount, kMisaligned = nkpStatusMisaligned;

#define ROW(name, expr, expected) {name, [](Scratch& s, int path) -> nkpStatus { (void)path; return expr; }, expected}

const Row kRows[] = {
    // Interleaving: pointers, channel count, length, then the lanes.
    ROW("deinterleave16/src_null", nkpsDeinterleave_16s(nullptr, 0, 0, s.lanes16), kNull),
    ROW("deinterleave16/lanes_null", nkpsDeinterleave_16s(s.s16, 2, 4, nullptr), kNull),
    ROW("deinterleave16/channels_before_length", nkpsDeinterleave_16s(s.s16, 0, 0, s.lanes16), kChannels),
    ROW("deinterleave16/length", nkpsDeinterleave_16s(s.s16, 2, 0, s.null_lane16), kSize),
    ROW("deinterleave16/null_lane_last", nkpsDeinterleave_16s(s.s16, 2, 4, s.null_lane16), kNull),
    ROW("deinterleave32/channels", nkpsDeinterleave_32f(s.f32, -1, 4, s.lanes32), kChannels),
    ROW("deinterleave32/null_lane_last", nkpsDeinterleave_32f(s.f32, 2, 4, s.null_lane32), kNull),
    ROW("interleave16/dst_null", nkpsInterleave_16s(s.lanes16, 0, 0, nullptr), kNull),
    ROW("interleave16/length", nkpsInterleave_16s(s.null_lane16, 2, -3, s.s16), kSize),
    ROW("interleave32/lanes_null", nkpsInterleave_32f(nullptr, 2, 4, s.f32), kNull),
    ROW("interleave32/null_lane_last", nkpsInterleave_32f(s.null_lane32, 2, 4, s.f32), kNull),
    ROW("interleave32/ok", nkpsInterleave_32f(s.lanes32, 2, 4, s.f32), kOk),
    // Any one misaligned pointer, flat buffer or lane, gives the warning.
    ROW("deinterleave16/misaligned_src", nkpsDeinterleave_16s(s.s16 + 1, 2, 3, s.lanes16), kMisaligned),
    ROW("deinterleave32/misaligned_lane", nkpsDeinterleave_32f(s.f32, 2, 3, s.misaligned_lane32), kMisaligned),
    ROW("interleave16/misaligned_lane", nkpsInterleave_16s(s.misaligned_lane16, 2, 3, s.s16), kMisaligned),
    ROW("interleave32/misaligned_dst", nkpsInterleave_32f(s.lanes32, 2, 3, s.g32 + 2), kMisaligned),
    // Join: destination first, then the sizes, then the source array.
    ROW("join/dst_null_first", nkpt_nkpsJoin_32f16s_D2L[path](nullptr, 0, 0, nullptr), kNull),
    ROW("join/channels_before_src", nkpt_nkpsJoin_32f16s_D2L[path](nullptr, 0, 4, s.d16), kSize),
    ROW("join/length_before_src", nkpt_nkpsJoin_32f16s_D2L[path](nullptr, 2, 0, s.d16), kSize),
    ROW("join/src_null", nkpt_nkpsJoin_32f16s_D2L[path](nullptr, 2, 4, s.d16), kNull),
    ROW("join/null_lane", nkpt_nkpsJoin_32f16s_D2L[path](s.null_lane32, 2, 4, s.d16), kNull),
    ROW("join/misaligned_is_ok", nkpt_nkpsJoin_32f16s_D2L[path](s.lanes32, 1, 3, s.d16 + 1), kOk),
    // Scale.
    ROW("scale/data_null", nkpt_nkpsScale_32f_I[path](nullptr, s.f32, s.offsets, 0), kNull),
    ROW("scale/factor_null", nkpt_nkpsScale_32f_I[path](s.g32, nullptr, s.offsets, 1), kNull),
    ROW("scale/offsets_null", nkpt_nkpsScale_32f_I[path](s.g32, s.f32, nullptr, 1), kNull),
    ROW("scale/bands", nkpt_nkpsScale_32f_I[path](s.g32, s.f32, s.offsets, 0), kSize),
    ROW("scale/misaligned_is_ok", nkpt_nkpsScale_32f_I[path](s.g32 + 1, s.f32, s.offsets, 2), kOk),
    // MakeFloat and CalcSF.
    ROW("makefloat/mant_null", nkpsMakeFloat_16s32f(nullptr, s.s16, 0, s.g32), kNull),
    ROW("makefloat/exp_null", nkpsMakeFloat_16s32f(s.s16, nullptr, 4, s.g32), kNull),
    ROW("makefloat/dst_null", nkpsMakeFloat_16s32f(s.s16, s.s16, 4, nullptr), kNull),
    ROW("makefloat/length", nkpsMakeFloat_16s32f(s.s16, s.s16, 0, s.g32), kSize),
    ROW("makefloat/misaligned_exp", nkpsMakeFloat_16s32f(s.s16, s.s16 + 1, 4, s.g32), kMisaligned),
    ROW("calcsf/src_null", nkpsCalcSF_16s32f(nullptr, 0, s.g32, 0), kNull),
    ROW("calcsf/dst_null", nkpsCalcSF_16s32f(s.s16, 0, nullptr, 1), kNull),
    ROW("calcsf/length", nkpsCalcSF_16s32f(s.s16, 0, s.g32, -1), kSize),
    ROW("calcsf/misaligned_is_ok", nkpsCalcSF_16s32f(s.s16 + 1, 0, s.g32 + 1, 3), kOk),
    // Power laws: the fixed-point x^(3/4) checks its length before its
    // pointers, and x^(4/3) accepts length 0.
    ROW("pow34/src_null", nkpsPow34_32f(nullptr, s.g32, 0), kNull),
    ROW("pow34/dst_null", nkpsPow34_32f(s.f32, nullptr, 4), kNull),
    ROW("pow34/length", nkpsPow34_32f(s.f32, s.g32, 0), kSize),
    ROW("pow34/misaligned_dst", nkpsPow34_32f(s.f32, s.g32 + 1, 3), kMisaligned),
    ROW("pow34_16s/src_null", nkpsPow34_32f16s(nullptr, s.d16, -1), kNull),
    ROW("pow34_16s/length", nkpsPow34_32f16s(s.f32, s.d16, -1), kSize),
    ROW("pow34_16s/misaligned_src", nkpsPow34_32f16s(s.f32 + 2, s.d16, 3), kMisaligned),
    ROW("pow34_16s/ok", nkpsPow34_32f16s(s.f32, s.d16, 3), kOk),
    ROW("pow34_sfs/length_before_pointers", nkpsPow34_16s_Sfs(s.s16, 0, nullptr, 0, 0), kSize),
    ROW("pow34_sfs/negative_length_null_src", nkpsPow34_16s_Sfs(nullptr, 0, s.d16, 0, -1), kSize),
    ROW("pow34_sfs/src_null", nkpsPow34_16s_Sfs(nullptr, 0, s.d16, 0, 1), kNull),
    ROW("pow34_sfs/dst_null", nkpsPow34_16s_Sfs(s.s16, 0, nullptr, 0, 1), kNull),
    ROW("pow34_sfs/misaligned_is_ok", nkpsPow34_16s_Sfs(s.s16 + 1, 0, s.d16, 0, 1), kOk),
    ROW("pow43/src_null", nkpsPow43_16s32f(nullptr, s.g32, -1), kNull),
    ROW("pow43/dst_null", nkpsPow43_16s32f(s.s16, nullptr, 0), kNull),
    ROW("pow43/negative_length", nkpsPow43_16s32f(s.s16, s.g32, -1), kSize),
    ROW("pow43/zero_length", nkpsPow43_16s32f(s.s16, s.g32, 0), kOk),
    ROW("pow43scale/src_null", nkpsPow43Scale_16s32s_Sf(nullptr, s.d32, s.s16, s.offsets, 0, -1, 1, 0), kNull),
    ROW("pow43scale/dst_null", nkpsPow43Scale_16s32s_Sf(s.s16, nullptr, s.s16, s.offsets, 0, 1, 1, 0), kNull),
    ROW("pow43scale/sf_null", nkpsPow43Scale_16s32s_Sf(s.s16, s.d32, nullptr, s.offsets, 0, 1, 1, 0), kNull),
    ROW("pow43scale/offsets_null", nkpsPow43Scale_16s32s_Sf(s.s16, s.d32, s.s16, nullptr, 0, 1, 1, 0), kNull),
    ROW("pow43scale/bands", nkpsPow43Scale_16s32s_Sf(s.s16, s.d32, s.s16, s.offsets, 0, -1, 1, 0), kSize),
    ROW("pow43scale/width_mult", nkpsPow43Scale_16s32s_Sf(s.s16, s.d32, s.s16, s.offsets, 0, 0, -1, 0), kSize),
    ROW("pow43scale/zero_bands", nkpsPow43Scale_16s32s_Sf(s.s16, s.d32, s.s16, s.offsets, 0, 0, 1, 0), kOk),
    ROW("spread/dst_null", nkpsSpread_16s_Sfs(0, 1, 0, nullptr), kNull),
};

#undef ROW

TEST(Statuses, FirstFailingCheckDecidesAndNothingIsWritten) {
    for (int path = 0; path < 2; ++path) {
        for (const Row& row : kRows) {
            Scratch s;
            EXPECT_EQ(row.call(s, path), row.expected) << row.name << " (path " << path << ")";
            if (row.expected < 0) {
                const Scratch fresh;
                const bool untouched = std::equal(s.d16, s.d16 + 16, fresh.d16) &&
                                       std::equal(s.g32, s.g32 + 16, fresh.g32) &&
                                       std::equal(s.d32, s.d32 + 16, fresh.d32);
                EXPECT_TRUE(untouched) << row.name << ": written before the checks";
            }
        }
    }
}

}  // namespace
