// Every export's statuses in its checking order: first every pointer, then
// one row per fault, the first failing check deciding; a refusal writes
// nothing. Two-path exports run through both entries.
#include "common/pointer_checks.h"
#include "frame/exports.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>

namespace {

// Scratch arrays large enough for every row, 16-byte aligned: the inputs
// count up, the outputs hold a pattern, and a refusal must change nothing.
struct Arrays {
    alignas(16) int16_t s16[16], d16[16];
    alignas(16) float f32[16], g32[16];
    alignas(16) int32_t d32[16];
};
struct Scratch : Arrays {
    int32_t offsets[3] = {0, 4, 8};
    int16_t *lanes16[2] = {d16, d16 + 8}, *null_lane16[2] = {d16, nullptr}, *misaligned_lane16[2] = {d16, d16 + 9};
    float *lanes32[2] = {g32, g32 + 8}, *null_lane32[2] = {g32, nullptr}, *misaligned_lane32[2] = {g32, g32 + 9};
    Scratch() {
        std::memset(static_cast<Arrays*>(this), 0x55, sizeof(Arrays));
        for (int i = 0; i < 16; ++i) s16[i] = static_cast<int16_t>(i + 1), f32[i] = static_cast<float>(i + 1);
    }
    bool unchanged_since(const Arrays& before) const { return !std::memcmp(&before, this, sizeof before); }
};

constexpr nkpStatus kNull = nkpStatusNullPointer, kSize = nkpStatusBadSize, kOk = nkpStatusOk,
                    kChannels = nkpStatusBadChannelCount, kMisaligned = nkpStatusMisaligned;

// Every pointer null in turn, the scalars bad as well: the pointers come
// first, except where a row below says otherwise.
TEST(Statuses, PointersComeFirst) {
    using nkptest::expect_each_pointer_required, nkptest::unchecked;
    Scratch s;
    const Arrays before = s;
    expect_each_pointer_required("deinterleave16", nkpsDeinterleave_16s, s.s16, 0, 0, s.lanes16);
    expect_each_pointer_required("deinterleave32", nkpsDeinterleave_32f, s.f32, 0, 0, s.lanes32);
    expect_each_pointer_required("interleave16", nkpsInterleave_16s, s.lanes16, 0, 0, s.d16);
    expect_each_pointer_required("interleave32", nkpsInterleave_32f, s.lanes32, 0, 0, s.g32);
    for (int path = 0; path < 2; ++path) {
        expect_each_pointer_required("join", nkpt_nkpsJoin_32f16s_D2L[path], unchecked(s.lanes32), 0, 0, s.d16);
        expect_each_pointer_required("scale", nkpt_nkpsScale_32f_I[path], s.g32, s.f32, s.offsets, 0);
    }
    expect_each_pointer_required("makefloat", nkpsMakeFloat_16s32f, s.s16, s.s16, 0, s.g32);
    expect_each_pointer_required("calcsf", nkpsCalcSF_16s32f, s.s16, 0, s.g32, 0);
    expect_each_pointer_required("pow34", nkpsPow34_32f, s.f32, s.g32, 0);
    expect_each_pointer_required("pow34_16s", nkpsPow34_32f16s, s.f32, s.d16, -1);
    expect_each_pointer_required("pow34_sfs", nkpsPow34_16s_Sfs, s.s16, 0, s.d16, 0, 1);
    expect_each_pointer_required("pow43", nkpsPow43_16s32f, s.s16, s.g32, -1);
    expect_each_pointer_required("pow43scale", nkpsPow43Scale_16s32s_Sf, s.s16, s.d32, s.s16, s.offsets, 0, -1, -1, 0);
    expect_each_pointer_required("spread", nkpsSpread_16s_Sfs, 0, 1, 0, s.d16);
    EXPECT_TRUE(s.unchanged_since(before)) << "written before the pointer checks";
}

struct Row {
    const char* name;
    std::function<nkpStatus(Scratch&, int path)> call;
    nkpStatus expected;
};

#define ROW(name, expr, expected) {name, [](Scratch& s, int path) -> nkpStatus { (void)path; return expr; }, expected}

const Row kRows[] = {
    // Interleaving: pointers, channel count, length, then the lanes.
    ROW("deinterleave16/channels_before_length", nkpsDeinterleave_16s(s.s16, 0, 0, s.lanes16), kChannels),
    ROW("deinterleave16/length", nkpsDeinterleave_16s(s.s16, 2, 0, s.null_lane16), kSize),
    ROW("deinterleave16/null_lane_last", nkpsDeinterleave_16s(s.s16, 2, 4, s.null_lane16), kNull),
    ROW("deinterleave32/channels", nkpsDeinterleave_32f(s.f32, -1, 4, s.lanes32), kChannels),
    ROW("deinterleave32/null_lane_last", nkpsDeinterleave_32f(s.f32, 2, 4, s.null_lane32), kNull),
    ROW("interleave16/length", nkpsInterleave_16s(s.null_lane16, 2, -3, s.s16), kSize),
    ROW("interleave32/null_lane_last", nkpsInterleave_32f(s.null_lane32, 2, 4, s.f32), kNull),
    // Any one misaligned pointer, flat buffer or lane, gives the warning.
    ROW("deinterleave16/misaligned_src", nkpsDeinterleave_16s(s.s16 + 1, 2, 3, s.lanes16), kMisaligned),
    ROW("deinterleave32/misaligned_lane", nkpsDeinterleave_32f(s.f32, 2, 3, s.misaligned_lane32), kMisaligned),
    ROW("interleave16/misaligned_lane", nkpsInterleave_16s(s.misaligned_lane16, 2, 3, s.s16), kMisaligned),
    ROW("interleave32/misaligned_dst", nkpsInterleave_32f(s.lanes32, 2, 3, s.g32 + 2), kMisaligned),
    // Join: destination first, then the sizes, then the source array.
    ROW("join/channels_before_src", nkpt_nkpsJoin_32f16s_D2L[path](nullptr, 0, 4, s.d16), kSize),
    ROW("join/length_before_src", nkpt_nkpsJoin_32f16s_D2L[path](nullptr, 2, 0, s.d16), kSize),
    ROW("join/src_null", nkpt_nkpsJoin_32f16s_D2L[path](nullptr, 2, 4, s.d16), kNull),
    ROW("join/null_lane", nkpt_nkpsJoin_32f16s_D2L[path](s.null_lane32, 2, 4, s.d16), kNull),
    ROW("join/misaligned_is_ok", nkpt_nkpsJoin_32f16s_D2L[path](s.lanes32, 1, 3, s.d16 + 1), kOk),
    ROW("scale/bands", nkpt_nkpsScale_32f_I[path](s.g32, s.f32, s.offsets, 0), kSize),
    ROW("scale/misaligned_is_ok", nkpt_nkpsScale_32f_I[path](s.g32 + 1, s.f32, s.offsets, 2), kOk),
    ROW("makefloat/length", nkpsMakeFloat_16s32f(s.s16, s.s16, 0, s.g32), kSize),
    ROW("makefloat/misaligned_exp", nkpsMakeFloat_16s32f(s.s16, s.s16 + 1, 4, s.g32), kMisaligned),
    ROW("calcsf/length", nkpsCalcSF_16s32f(s.s16, 0, s.g32, -1), kSize),
    ROW("calcsf/misaligned_is_ok", nkpsCalcSF_16s32f(s.s16 + 1, 0, s.g32 + 1, 3), kOk),
    // Power laws: the fixed-point x^(3/4) checks its length before its
    // pointers, and x^(4/3) accepts length 0.
    ROW("pow34/length", nkpsPow34_32f(s.f32, s.g32, 0), kSize),
    ROW("pow34/misaligned_dst", nkpsPow34_32f(s.f32, s.g32 + 1, 3), kMisaligned),
    ROW("pow34_16s/length", nkpsPow34_32f16s(s.f32, s.d16, -1), kSize),
    ROW("pow34_16s/misaligned_src", nkpsPow34_32f16s(s.f32 + 2, s.d16, 3), kMisaligned),
    ROW("pow34_16s/ok", nkpsPow34_32f16s(s.f32, s.d16, 3), kOk),
    ROW("pow34_sfs/length_before_pointers", nkpsPow34_16s_Sfs(s.s16, 0, nullptr, 0, 0), kSize),
    ROW("pow34_sfs/negative_length_null_src", nkpsPow34_16s_Sfs(nullptr, 0, s.d16, 0, -1), kSize),
    ROW("pow34_sfs/misaligned_is_ok", nkpsPow34_16s_Sfs(s.s16 + 1, 0, s.d16, 0, 1), kOk),
    ROW("pow43/negative_length", nkpsPow43_16s32f(s.s16, s.g32, -1), kSize),
    ROW("pow43/zero_length", nkpsPow43_16s32f(s.s16, s.g32, 0), kOk),
    ROW("pow43scale/bands", nkpsPow43Scale_16s32s_Sf(s.s16, s.d32, s.s16, s.offsets, 0, -1, 1, 0), kSize),
    ROW("pow43scale/width_mult", nkpsPow43Scale_16s32s_Sf(s.s16, s.d32, s.s16, s.offsets, 0, 0, -1, 0), kSize),
    ROW("pow43scale/zero_bands", nkpsPow43Scale_16s32s_Sf(s.s16, s.d32, s.s16, s.offsets, 0, 0, 1, 0), kOk),
};

#undef ROW

TEST(Statuses, FirstFailingCheckDecidesAndNothingIsWritten) {
    for (int path = 0; path < 2; ++path) {
        for (const Row& row : kRows) {
            Scratch s;
            const Arrays before = s;
            EXPECT_EQ(row.call(s, path), row.expected) << row.name << " (path " << path << ")";
            EXPECT_TRUE(row.expected >= 0 || s.unchanged_since(before)) << row.name << ": written";
        }
    }
}

}  // namespace
