// The spectral tools' statuses in their checking order: one row per case,
// named for what it pins; the first failing check decides, and a refused
// call writes nothing (lines, code books, TNS arrays, predictor state).
// The two-path inverse quantisation runs through both entries.
#include "frame/exports.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <vector>

namespace {

struct Scratch {
    alignas(16) int32_t left[1024];
    alignas(16) int32_t right[1024];
    uint16_t sf[8 * 51];
    uint8_t cb[8 * 51];
    uint8_t flags[8 * 60];
    // Window counts per group.
    int32_t one[8] = {1};
    int32_t eight[8] = {1, 1, 1, 1, 1, 1, 1, 1};
    int32_t zero_windows[8] = {0};
    int32_t two_windows[8] = {2};
    int32_t nine_windows[8] = {9};
    int32_t nine_in_two_groups[8] = {4, 5};
    // TNS arrays: one long filter over 10 bands, order 2, unless a row's
    // setup changes them.
    int32_t n_filt[8] = {1};
    int32_t length[8] = {10};
    int32_t order[8] = {2};
    int32_t coef_res[8] = {4};
    int32_t direction[16] = {0};
    int8_t coef[60] = {1, -1};
    // The predictor: a state of 16 lines, and a buffer that holds none.
    alignas(16) float lines[32];
    int32_t sfb[3] = {0, 4, 16};
    uint8_t used[2] = {1, 0};
    uint8_t state_memory[512];
    nkpsFDPState_32f* state = nullptr;
    uint8_t not_a_state[512] = {};
    nkpsFDPState_32f* out = nullptr;
    int size = 0;

    Scratch() {
        for (int i = 0; i < 1024; ++i) {
            left[i] = (i % 23) - 11;
            right[i] = (i % 19) - 9;
        }
        for (int i = 0; i < 8 * 51; ++i) {
            sf[i] = static_cast<uint16_t>(90 + i % 30);
            cb[i] = static_cast<uint8_t>(1 + i % 15);  // every kind of band
        }
        for (int i = 0; i < 8 * 60; ++i) flags[i] = static_cast<uint8_t>(i % 2);
        for (int i = 0; i < 32; ++i) lines[i] = 100.0f * i;
        nkpsFDPInit_32f(&state, 16, state_memory);
    }
    nkpsFDPState_32f* wrong() { return reinterpret_cast<nkpsFDPState_32f*>(not_a_state); }
};

enum Writes { NothingOnFailure, WritesBeforeFailure };

struct Row {
    const char* name;
    std::function<void(Scratch&)> setup;
    std::function<nkpStatus(Scratch&, int path)> call;
    nkpStatus expected;
    Writes writes = NothingOnFailure;
};

static_assert(nkpStatusBadAacMsMask == -142);

constexpr nkpStatus kOk = nkpStatusOk, kNull = nkpStatusNullPointer, kGroups = nkpStatusBadAacWindowGroups,
                    kLength = nkpStatusBadAacWindowLength, kMaxSfb = nkpStatusBadAacMaxSfb,
                    kSampling = nkpStatusBadAacSamplingIndex, kMask = nkpStatusBadAacMsMask,
                    kSize = nkpStatusBadSize, kCount = nkpStatusBadCount, kWrong = nkpStatusWrongObject,
                    kMisaligned = nkpStatusMisaligned;

#define CALL(expr) [](Scratch & s, int path) -> nkpStatus { (void)path; return expr; }
#define SET(stmt) [](Scratch & s) { stmt; }
#define NONE nullptr

// Inverse quantisation through the table entry `path`.
#define QI(lines, sf, groups, counts, max_sfb, cb, sfi, len) \
    nkpt_nkpsQuantInv_AAC_32s_I[path](lines, sf, groups, counts, max_sfb, cb, sfi, len)
#define MS(l, r, mask, flags, cb, groups, counts, max_sfb, sfi, len) \
    nkpsDecodeMsStereo_AAC_32s_I(l, r, mask, flags, cb, groups, counts, max_sfb, sfi, len)
#define IS(l, r, pos, cb, groups, counts, max_sfb, sfi, len) \
    nkpsDecodeIsStereo_AAC_32s(l, r, pos, cb, groups, counts, max_sfb, sfi, len)
#define DI(src, dst, groups, counts, max_sfb, sfi, len) \
    nkpsDeinterleaveSpectrum_AAC_32s(src, dst, groups, counts, max_sfb, sfi, len)
#define TNS(spec, max_sfb, sfi, len)                                                                         \
    nkpsDecodeTNS_AAC_32s_I(spec, s.n_filt, s.length, s.order, s.coef_res, s.coef, s.direction, max_sfb, 0, \
                            sfi, len)

const Row kRows[] = {
    // Inverse quantisation: pointers, length and groups, max_sfb range,
    // sampling index, band count, window counts, then the data.
    {"quant_inv/lines_null", NONE, CALL(QI(nullptr, s.sf, 1, s.one, 10, s.cb, 3, 1024)), kNull},
    {"quant_inv/scale_factors_null", NONE, CALL(QI(s.left, nullptr, 1, s.one, 10, s.cb, 3, 1024)), kNull},
    {"quant_inv/counts_null", NONE, CALL(QI(s.left, s.sf, 1, nullptr, 10, s.cb, 3, 1024)), kNull},
    {"quant_inv/codebooks_null_before_length", NONE, CALL(QI(s.left, s.sf, 1, s.one, 10, nullptr, 3, 7)), kNull},
    {"quant_inv/long_with_two_groups", NONE, CALL(QI(s.left, s.sf, 2, s.one, 10, s.cb, 3, 1024)), kGroups},
    {"quant_inv/short_with_no_groups", NONE, CALL(QI(s.left, s.sf, 0, s.eight, 10, s.cb, 3, 128)), kGroups},
    {"quant_inv/length_512_is_a_length_error", NONE, CALL(QI(s.left, s.sf, 2, s.one, 10, s.cb, 3, 512)), kLength},
    {"quant_inv/groups_before_max_sfb", NONE, CALL(QI(s.left, s.sf, 2, s.one, 99, s.cb, 3, 1024)), kGroups},
    {"quant_inv/max_sfb_52_before_sampling", NONE, CALL(QI(s.left, s.sf, 1, s.one, 52, s.cb, 12, 1024)), kMaxSfb},
    {"quant_inv/sampling_12", NONE, CALL(QI(s.left, s.sf, 1, s.one, 10, s.cb, 12, 1024)), kSampling},
    {"quant_inv/sampling_negative_before_band_count", NONE, CALL(QI(s.left, s.sf, 1, s.one, 51, s.cb, -1, 1024)), kSampling},
    {"quant_inv/max_sfb_above_long_band_count", NONE, CALL(QI(s.left, s.sf, 1, s.one, 50, s.cb, 3, 1024)), kMaxSfb},
    {"quant_inv/max_sfb_above_short_band_count", NONE, CALL(QI(s.left, s.sf, 8, s.eight, 15, s.cb, 3, 128)), kMaxSfb},
    {"quant_inv/band_count_before_window_counts", NONE, CALL(QI(s.left, s.sf, 1, s.two_windows, 50, s.cb, 3, 1024)), kMaxSfb},
    {"quant_inv/long_window_of_two", NONE, CALL(QI(s.left, s.sf, 1, s.two_windows, 10, s.cb, 3, 1024)), kGroups},
    {"quant_inv/group_of_no_windows", NONE, CALL(QI(s.left, s.sf, 1, s.zero_windows, 10, s.cb, 3, 128)), kGroups},
    {"quant_inv/nine_windows_in_two_groups", NONE, CALL(QI(s.left, s.sf, 2, s.nine_in_two_groups, 10, s.cb, 3, 128)), kGroups},
    {"quant_inv/magnitude_8192_after_earlier_bands", SET(s.left[600] = 8192), CALL(QI(s.left, s.sf, 1, s.one, 49, s.cb, 3, 1024)),
     nkpStatusBadAacQuantValue, WritesBeforeFailure},
    {"quant_inv/ok", NONE, CALL(QI(s.left, s.sf, 8, s.eight, 14, s.cb, 3, 128)), kOk},

    // M/S: pointers, length and groups, max_sfb range, sampling index,
    // mask (BadAacMsMask, -142), band count, window counts.
    {"ms/left_null", NONE, CALL(MS(nullptr, s.right, 1, s.flags, s.cb, 1, s.one, 10, 3, 1024)), kNull},
    {"ms/flags_null_even_for_mask_2", NONE, CALL(MS(s.left, s.right, 2, nullptr, s.cb, 1, s.one, 10, 3, 1024)), kNull},
    {"ms/codebooks_null", NONE, CALL(MS(s.left, s.right, 1, s.flags, nullptr, 1, s.one, 10, 3, 1024)), kNull},
    {"ms/counts_null_before_mask", NONE, CALL(MS(s.left, s.right, 7, s.flags, s.cb, 1, nullptr, 10, 3, 1024)), kNull},
    {"ms/long_with_two_groups", NONE, CALL(MS(s.left, s.right, 1, s.flags, s.cb, 2, s.one, 10, 3, 1024)), kGroups},
    {"ms/length_512", NONE, CALL(MS(s.left, s.right, 1, s.flags, s.cb, 1, s.one, 10, 3, 512)), kLength},
    {"ms/max_sfb_52_before_sampling", NONE, CALL(MS(s.left, s.right, 1, s.flags, s.cb, 1, s.one, 52, 12, 1024)), kMaxSfb},
    {"ms/sampling_before_mask", NONE, CALL(MS(s.left, s.right, 3, s.flags, s.cb, 1, s.one, 10, 12, 1024)), kSampling},
    // A mask outside 1..2 is answered with BadAacMsMask (-142), the code
    // named for it, not BadAacElementChannels (-141).
    {"ms/mask_0_is_bad_ms_mask_not_element_channels", NONE, CALL(MS(s.left, s.right, 0, s.flags, s.cb, 1, s.one, 10, 3, 1024)), kMask},
    {"ms/mask_3_before_band_count", NONE, CALL(MS(s.left, s.right, 3, s.flags, s.cb, 1, s.one, 50, 3, 1024)), kMask},
    {"ms/max_sfb_above_band_count", NONE, CALL(MS(s.left, s.right, 1, s.flags, s.cb, 1, s.one, 50, 3, 1024)), kMaxSfb},
    {"ms/window_counts", NONE, CALL(MS(s.left, s.right, 1, s.flags, s.cb, 2, s.nine_in_two_groups, 10, 3, 128)), kGroups},
    {"ms/ok_mask_1", NONE, CALL(MS(s.left, s.right, 1, s.flags, s.cb, 8, s.eight, 14, 3, 128)), kOk},
    {"ms/ok_mask_2", NONE, CALL(MS(s.left, s.right, 2, s.flags, s.cb, 1, s.one, 49, 3, 1024)), kOk},

    // Intensity stereo.
    {"is/left_null", NONE, CALL(IS(nullptr, s.right, s.sf, s.cb, 1, s.one, 10, 3, 1024)), kNull},
    {"is/positions_null", NONE, CALL(IS(s.left, s.right, nullptr, s.cb, 1, s.one, 10, 3, 1024)), kNull},
    {"is/counts_null", NONE, CALL(IS(s.left, s.right, s.sf, s.cb, 1, nullptr, 10, 3, 1024)), kNull},
    {"is/short_with_nine_groups", NONE, CALL(IS(s.left, s.right, s.sf, s.cb, 9, s.eight, 10, 3, 128)), kGroups},
    {"is/length_0", NONE, CALL(IS(s.left, s.right, s.sf, s.cb, 1, s.one, 10, 3, 0)), kLength},
    {"is/max_sfb_negative", NONE, CALL(IS(s.left, s.right, s.sf, s.cb, 1, s.one, -3, 12, 1024)), kMaxSfb},
    {"is/sampling_12", NONE, CALL(IS(s.left, s.right, s.sf, s.cb, 1, s.one, 10, 12, 1024)), kSampling},
    {"is/max_sfb_above_band_count", NONE, CALL(IS(s.left, s.right, s.sf, s.cb, 1, s.one, 42, 11, 1024)), kMaxSfb},
    {"is/window_counts", NONE, CALL(IS(s.left, s.right, s.sf, s.cb, 1, s.nine_windows, 10, 3, 128)), kGroups},
    {"is/ok", NONE, CALL(IS(s.left, s.right, s.sf, s.cb, 8, s.eight, 14, 3, 128)), kOk},

    // Short-window reordering: the length first, then the groups.
    {"deinterleave/src_null", NONE, CALL(DI(nullptr, s.right, 8, s.eight, 10, 3, 128)), kNull},
    {"deinterleave/dst_null", NONE, CALL(DI(s.left, nullptr, 8, s.eight, 10, 3, 128)), kNull},
    {"deinterleave/counts_null", NONE, CALL(DI(s.left, s.right, 8, nullptr, 10, 3, 128)), kNull},
    {"deinterleave/long_window_refused", NONE, CALL(DI(s.left, s.right, 1, s.one, 10, 3, 1024)), kLength},
    {"deinterleave/length_before_groups", NONE, CALL(DI(s.left, s.right, 0, s.one, 10, 3, 1024)), kLength},
    {"deinterleave/no_groups", NONE, CALL(DI(s.left, s.right, 0, s.eight, 10, 3, 128)), kGroups},
    {"deinterleave/max_sfb_52_before_sampling", NONE, CALL(DI(s.left, s.right, 8, s.eight, 52, 12, 128)), kMaxSfb},
    {"deinterleave/sampling_12", NONE, CALL(DI(s.left, s.right, 8, s.eight, 10, 12, 128)), kSampling},
    {"deinterleave/max_sfb_above_short_band_count", NONE, CALL(DI(s.left, s.right, 8, s.eight, 13, 0, 128)), kMaxSfb},
    {"deinterleave/window_counts", NONE, CALL(DI(s.left, s.right, 2, s.nine_in_two_groups, 10, 3, 128)), kGroups},
    {"deinterleave/ok", NONE, CALL(DI(s.left, s.right, 8, s.eight, 14, 3, 128)), kOk},

    // Predictor life cycle.
    {"fdp_size/null_before_length", NONE, CALL(nkpsFDPGetSize_32f(0, nullptr)), kNull},
    {"fdp_size/length_0", NONE, CALL(nkpsFDPGetSize_32f(0, &s.size)), kSize},
    {"fdp_size/length_too_large_for_32_bits", NONE, CALL(nkpsFDPGetSize_32f(0x7FFFFFFF, &s.size)), kSize},
    {"fdp_init/out_null", NONE, CALL(nkpsFDPInit_32f(nullptr, 16, s.not_a_state)), kNull},
    {"fdp_init/memory_null_before_length", NONE, CALL(nkpsFDPInit_32f(&s.out, 0, nullptr)), kNull},
    {"fdp_init/length_negative", NONE, CALL(nkpsFDPInit_32f(&s.out, -1, s.not_a_state)), kSize},
    {"fdp_init_alloc/out_null", NONE, CALL(nkpsFDPInitAlloc_32f(nullptr, 16)), kNull},
    {"fdp_init_alloc/length_0", NONE, CALL(nkpsFDPInitAlloc_32f(&s.out, 0)), kSize},
    {"fdp_free/null", NONE, CALL(nkpsFDPFree_32f(nullptr)), kNull},
    {"fdp_free/not_a_state", NONE, CALL(nkpsFDPFree_32f(s.wrong())), kWrong},
    {"fdp_reset/null", NONE, CALL(nkpsFDPReset_32f(nullptr)), kNull},
    {"fdp_reset/not_a_state", NONE, CALL(nkpsFDPReset_32f(s.wrong())), kWrong},
    {"fdp_reset_group/null_before_first", NONE, CALL(nkpsFDPResetGroup_32f(-1, 0, nullptr)), kNull},
    {"fdp_reset_group/first_before_step", NONE, CALL(nkpsFDPResetGroup_32f(-1, 0, s.state)), kSize},
    {"fdp_reset_group/step_before_tag", NONE, CALL(nkpsFDPResetGroup_32f(0, 0, s.wrong())), kCount},
    {"fdp_reset_group/not_a_state", NONE, CALL(nkpsFDPResetGroup_32f(0, 1, s.wrong())), kWrong},
    {"fdp_reset_sfb/state_null", NONE, CALL(nkpsFDPResetSfb_32f(s.sfb, 2, s.used, nullptr)), kNull},
    {"fdp_reset_sfb/offsets_null", NONE, CALL(nkpsFDPResetSfb_32f(nullptr, 2, s.used, s.state)), kNull},
    {"fdp_reset_sfb/flags_null_before_bands", NONE, CALL(nkpsFDPResetSfb_32f(s.sfb, 0, nullptr, s.state)), kNull},
    {"fdp_reset_sfb/bands_before_tag", NONE, CALL(nkpsFDPResetSfb_32f(s.sfb, 0, s.used, s.wrong())), kSize},
    {"fdp_reset_sfb/not_a_state", NONE, CALL(nkpsFDPResetSfb_32f(s.sfb, 2, s.used, s.wrong())), kWrong},
    {"fdp_fwd/src_null", NONE, CALL(nkpsFDPFwd_32f(nullptr, s.lines, s.state)), kNull},
    {"fdp_fwd/state_null", NONE, CALL(nkpsFDPFwd_32f(s.lines, s.lines, nullptr)), kNull},
    {"fdp_fwd/not_a_state", NONE, CALL(nkpsFDPFwd_32f(s.lines, s.lines + 16, s.wrong())), kWrong},
    {"fdp_fwd/misaligned_dst_warns", NONE, CALL(nkpsFDPFwd_32f(s.lines, s.lines + 17, s.state)), kMisaligned},
    {"fdp_fwd/ok", NONE, CALL(nkpsFDPFwd_32f(s.lines, s.lines + 16, s.state)), kOk},
    {"fdp_inv/lines_null", NONE, CALL(nkpsFDPInv_32f_I(nullptr, s.sfb, 2, s.used, s.state)), kNull},
    {"fdp_inv/state_null", NONE, CALL(nkpsFDPInv_32f_I(s.lines, s.sfb, 2, s.used, nullptr)), kNull},
    {"fdp_inv/flags_null_before_bands", NONE, CALL(nkpsFDPInv_32f_I(s.lines, s.sfb, 0, nullptr, s.state)), kNull},
    {"fdp_inv/bands_before_tag", NONE, CALL(nkpsFDPInv_32f_I(s.lines, s.sfb, -1, s.used, s.wrong())), kSize},
    {"fdp_inv/not_a_state", NONE, CALL(nkpsFDPInv_32f_I(s.lines, s.sfb, 2, s.used, s.wrong())), kWrong},
    {"fdp_inv/misaligned_warns", NONE, CALL(nkpsFDPInv_32f_I(s.lines + 2, s.sfb, 2, s.used, s.state)), kMisaligned},
    {"fdp_inv/ok", NONE, CALL(nkpsFDPInv_32f_I(s.lines, s.sfb, 2, s.used, s.state)), kOk},

    // TNS: pointers, window length, sampling index, max_sfb; then per
    // window and filter: count, length, order, resolution, coefficients,
    // direction.
    {"tns/spectrum_null", NONE, CALL(TNS(nullptr, 10, 3, 1024)), kNull},
    {"tns/filter_counts_null", NONE, CALL(nkpsDecodeTNS_AAC_32s_I(s.left, nullptr, s.length, s.order, s.coef_res, s.coef, s.direction, 10, 0, 3, 1024)), kNull},
    {"tns/lengths_null", NONE, CALL(nkpsDecodeTNS_AAC_32s_I(s.left, s.n_filt, nullptr, s.order, s.coef_res, s.coef, s.direction, 10, 0, 3, 1024)), kNull},
    {"tns/orders_null", NONE, CALL(nkpsDecodeTNS_AAC_32s_I(s.left, s.n_filt, s.length, nullptr, s.coef_res, s.coef, s.direction, 10, 0, 3, 1024)), kNull},
    {"tns/resolutions_null", NONE, CALL(nkpsDecodeTNS_AAC_32s_I(s.left, s.n_filt, s.length, s.order, nullptr, s.coef, s.direction, 10, 0, 3, 1024)), kNull},
    {"tns/coefficients_null", NONE, CALL(nkpsDecodeTNS_AAC_32s_I(s.left, s.n_filt, s.length, s.order, s.coef_res, nullptr, s.direction, 10, 0, 3, 1024)), kNull},
    {"tns/directions_null_before_length", NONE, CALL(nkpsDecodeTNS_AAC_32s_I(s.left, s.n_filt, s.length, s.order, s.coef_res, s.coef, nullptr, 10, 0, 3, 7)), kNull},
    {"tns/length_512_before_sampling", NONE, CALL(TNS(s.left, 10, 12, 512)), kLength},
    {"tns/sampling_before_max_sfb", NONE, CALL(TNS(s.left, 52, 12, 1024)), kSampling},
    {"tns/max_sfb_52", NONE, CALL(TNS(s.left, 52, 3, 1024)), kMaxSfb},
    {"tns/max_sfb_above_short_band_count", NONE, CALL(TNS(s.left, 15, 3, 128)), kMaxSfb},
    {"tns/filter_count_negative", SET(s.n_filt[0] = -1), CALL(TNS(s.left, 10, 3, 1024)), nkpStatusBadAacTnsFilterCount},
    {"tns/length_before_order", SET((s.length[0] = 50, s.order[0] = 13)), CALL(TNS(s.left, 10, 3, 1024)), nkpStatusBadAacTnsLength},
    {"tns/length_negative", SET(s.length[0] = -1), CALL(TNS(s.left, 10, 3, 1024)), nkpStatusBadAacTnsLength},
    {"tns/order_before_resolution", SET((s.order[0] = 13, s.coef_res[0] = 2)), CALL(TNS(s.left, 10, 3, 1024)), nkpStatusBadAacTnsOrder},
    {"tns/order_negative", SET(s.order[0] = -1), CALL(TNS(s.left, 10, 3, 1024)), nkpStatusBadAacTnsOrder},
    {"tns/resolution_before_coefficients", SET((s.coef_res[0] = 2, s.coef[0] = 9)), CALL(TNS(s.left, 10, 3, 1024)), nkpStatusBadAacTnsCoefRes},
    {"tns/coefficient_before_direction", SET((s.coef[1] = -9, s.direction[0] = 2)), CALL(TNS(s.left, 10, 3, 1024)), nkpStatusBadAacTnsCoef},
    {"tns/direction_2", SET(s.direction[0] = 2), CALL(TNS(s.left, 10, 3, 1024)), nkpStatusBadAacTnsDirection},
    {"tns/reserved_is_not_read", NONE, CALL(nkpsDecodeTNS_AAC_32s_I(s.left, s.n_filt, s.length, s.order, s.coef_res, s.coef, s.direction, 10, -12345, 3, 1024)), kOk},
};

TEST(SpectralStatus, ChecksInOrderAndNothingWrittenOnFailure) {
    for (const Row& row : kRows) {
        // Two-path exports are told apart by the row's use of `path`; all
        // rows simply run twice.
        for (int path = 0; path < 2; ++path) {
            SCOPED_TRACE(row.name);
            Scratch s;
            if (row.setup) row.setup(s);
            std::vector<uint8_t> before(sizeof(Scratch));
            std::memcpy(before.data(), &s, sizeof(Scratch));
            EXPECT_EQ(row.call(s, path), row.expected) << "path " << path;
            if (row.expected < 0 && row.writes == NothingOnFailure) {
                EXPECT_EQ(std::memcmp(before.data(), &s, sizeof(Scratch)), 0) << "written on failure";
            }
        }
    }
}

}  // namespace
