// The TNS filter against a model written from the rules (tables from the
// sine formula, the step-up recursion, normalisation and the all-pole
// filter, the walk over windows and filters with its statuses), on random
// valid and damaged side data, plus pinned cases.
#include "frame/exports.h"
#include "tools_test_util.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <numbers>
#include <vector>

namespace {

using nkptest::random_int;

// ---- The model ------------------------------------------------------------

int64_t reflection(int res, int c) {
    if (res == 3 && c >= 4) c = 7 - c;    // 4..7 repeat 3..0
    if (res == 3 && c <= -5) c = -9 - c;  // -5..-8 repeat -4..-1
    const long double half = res == 4 ? 8.0L : 4.0L;
    const long double iq = (c >= 0 ? half - 0.5L : half + 0.5L) / (std::numbers::pi_v<long double> / 2);
    return std::llround(2147483648.0L * std::sin(c / iq));
}

struct Filter {
    std::vector<int64_t> a;  // a[1..p]
    int shift;
};

Filter convert(int res, const std::vector<int>& c) {
    const int p = static_cast<int>(c.size());
    std::vector<int64_t> a(p + 1, 0);
    for (int m = 1; m <= p; ++m) {
        const int64_t k = reflection(res, c[m - 1]);
        const std::vector<int64_t> old = a;
        for (int i = 1; i < m; ++i) {
            const int64_t rounded = (old[m - i] + 512) >> 10;
            a[i] = old[i] + ((rounded * k) >> 21);
        }
        a[m] = k;
    }
    int64_t largest = 0;
    for (int i = 1; i <= p; ++i) largest = std::max(largest, std::abs(a[i]));
    int shift = 31;
    while (largest > (int64_t{1} << 26)) {
        largest >>= 1;
        --shift;
    }
    for (int i = 1; i <= p; ++i) a[i] = static_cast<int32_t>(a[i] >> (31 - shift));
    return {a, shift};
}

void filter(int32_t* x, int size, int step, const Filter& f) {
    std::vector<int32_t> y;
    for (int n = 0; n < size; ++n) {
        int64_t acc = static_cast<int64_t>(x[n * step]) * (int64_t{1} << f.shift);
        for (int i = 1; i < static_cast<int>(f.a.size()); ++i) {
            if (n - i >= 0) acc -= f.a[i] * y[n - i];
        }
        y.push_back(static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(acc >> f.shift))));
        x[n * step] = y.back();
    }
}

struct Tns {
    std::vector<int32_t> n_filt, length, order, coef_res, direction;
    std::vector<int8_t> coef;
};

nkpStatus model_tns(std::vector<int32_t>& spec, const Tns& d, int max_sfb, int sfi, int win_len) {
    const bool is_long = win_len == 1024;
    const int windows = is_long ? 1 : 8;
    const int num_swb = is_long ? nkp::aac::kNumSwbLong[sfi] : nkp::aac::kNumSwbShort[sfi];
    const int16_t* swb = is_long ? nkp::aac::kSwbOffsetLong[sfi] : nkp::aac::kSwbOffsetShort[sfi];
    const int limit = std::min<int>(max_sfb, is_long ? nkp::aac::kTnsMaxBandsLong[sfi] : nkp::aac::kTnsMaxBandsShort[sfi]);
    size_t fi = 0, ci = 0, di = 0;
    for (int w = 0; w < windows; ++w) {
        const int n = d.n_filt[w];
        if (n < 0 || n > (is_long ? 3 : 1)) return nkpStatusBadAacTnsFilterCount;
        int top = num_swb;
        for (int f = 0; f < n; ++f, ++fi) {
            const int length = d.length[fi];
            if (length < 0 || length > num_swb) return nkpStatusBadAacTnsLength;
            const int bottom = std::max(top - length, 0);
            const int order = d.order[fi];
            if (order < 0 || order > (is_long ? 12 : 7)) return nkpStatusBadAacTnsOrder;
            if (order > 0) {
                if (d.coef_res[w] != 3 && d.coef_res[w] != 4) return nkpStatusBadAacTnsCoefRes;
                std::vector<int> c;
                for (int m = 0; m < order; ++m) {
                    c.push_back(d.coef[ci + m]);
                    if (c.back() < -8 || c.back() > 7) return nkpStatusBadAacTnsCoef;
                }
                ci += order;
                const Filter flt = convert(d.coef_res[w], c);
                const int dir = d.direction[di++];
                if (dir != 0 && dir != 1) return nkpStatusBadAacTnsDirection;
                const int start = swb[std::min(bottom, limit)];
                const int end = swb[std::min(top, limit)];
                int32_t* win = spec.data() + w * 128;
                if (end > start) {
                    if (dir == 0) filter(win + start, end - start, 1, flt);
                    else filter(win + end - 1, end - start, -1, flt);
                }
            }
            top = bottom;
        }
    }
    return nkpStatusOk;
}

// The record-sized arrays the library reads from (8 filters, 16 directions,
// 60 coefficients), filled from d.
nkpStatus library_tns(std::vector<int32_t>& spec, const Tns& d, int max_sfb, int sfi, int win_len) {
    int32_t n_filt[8] = {}, length[8] = {}, order[8] = {}, coef_res[8] = {}, direction[16] = {};
    int8_t coef[60] = {};
    std::copy(d.n_filt.begin(), d.n_filt.end(), n_filt);
    std::copy(d.length.begin(), d.length.end(), length);
    std::copy(d.order.begin(), d.order.end(), order);
    std::copy(d.coef_res.begin(), d.coef_res.end(), coef_res);
    std::copy(d.direction.begin(), d.direction.end(), direction);
    std::copy(d.coef.begin(), d.coef.end(), coef);
    return nkpsDecodeTNS_AAC_32s_I(spec.data(), n_filt, length, order, coef_res, coef, direction, max_sfb, 0, sfi,
                                   win_len);
}

// Random side data as a stream could carry it; `damage` sometimes puts one
// field out of range.
Tns random_tns(bool is_long, bool damage) {
    Tns d;
    const int windows = is_long ? 1 : 8;
    const int max_order = is_long ? 12 : 7;
    for (int w = 0; w < windows; ++w) {
        const int n = random_int(0, is_long ? 3 : 1);
        d.n_filt.push_back(n);
        d.coef_res.push_back(random_int(3, 4));
        for (int f = 0; f < n; ++f) {
            d.length.push_back(random_int(0, is_long ? 30 : 8));
            const int order = random_int(0, 4) == 0 ? 0 : random_int(1, max_order);
            d.order.push_back(order);
            if (order == 0) continue;
            d.direction.push_back(random_int(0, 1));
            const int width = random_int(0, 1) ? d.coef_res.back() : d.coef_res.back() - 1;
            for (int m = 0; m < order; ++m) {
                d.coef.push_back(static_cast<int8_t>(random_int(-(1 << (width - 1)), (1 << (width - 1)) - 1)));
            }
        }
    }
    if (damage) {
        switch (random_int(0, 5)) {
            case 0: d.n_filt[random_int(0, windows - 1)] = is_long ? 4 : 2; break;
            case 1: if (!d.length.empty()) d.length[random_int(0, static_cast<int>(d.length.size()) - 1)] = 60; break;
            case 2: if (!d.order.empty()) d.order[random_int(0, static_cast<int>(d.order.size()) - 1)] = max_order + 1; break;
            case 3: d.coef_res[random_int(0, windows - 1)] = 2; break;
            case 4: if (!d.coef.empty()) d.coef[random_int(0, static_cast<int>(d.coef.size()) - 1)] = 8; break;
            case 5: if (!d.direction.empty()) d.direction[random_int(0, static_cast<int>(d.direction.size()) - 1)] = 2; break;
        }
    }
    return d;
}

// ---- Tests ----------------------------------------------------------------

// Thousands of frames, long and short, at every sampling index, with full
// 32-bit spectra (wrap-around included) and sometimes damaged side data:
// same status and same lines, filters before a failure applied.
TEST(TnsFilter, MatchesTheModelOnRandomSideData) {
    int failures = 0, filtered = 0;
    for (int round = 0; round < 3000; ++round) {
        const bool is_long = round % 2 == 0;
        const int sfi = round % 12;
        const int bands = is_long ? nkp::aac::kNumSwbLong[sfi] : nkp::aac::kNumSwbShort[sfi];
        const int max_sfb = random_int(0, bands);
        const Tns d = random_tns(is_long, round % 5 == 0);
        std::vector<int32_t> spec(1024);
        const int magnitude_bits = random_int(4, 31);
        for (auto& v : spec) v = static_cast<int32_t>(nkptest::rng()()) >> (32 - magnitude_bits);
        std::vector<int32_t> want = spec;
        const nkpStatus want_status = model_tns(want, d, max_sfb, sfi, is_long ? 1024 : 128);
        failures += want_status != nkpStatusOk;
        filtered += want != spec;
        ASSERT_EQ(library_tns(spec, d, max_sfb, sfi, is_long ? 1024 : 128), want_status) << "round " << round;
        ASSERT_EQ(spec, want) << "round " << round;
    }
    EXPECT_GT(failures, 300);  // the damaged rounds really fail
    EXPECT_GT(filtered, 800);  // and a third or more change lines
}

TEST(TnsFilter, ReflectionTableEnds) {
    // Values given with the table's definition, through the model used above.
    EXPECT_EQ(reflection(4, 1), 446486956);
    EXPECT_EQ(reflection(4, 7), 2135719508);
    EXPECT_EQ(reflection(4, -8), -2138322861);
    EXPECT_EQ(reflection(3, -4), -2114858546);
    EXPECT_EQ(reflection(3, 3), 2093641749);
    EXPECT_EQ(reflection(3, 7), 0);
    EXPECT_EQ(reflection(3, -8), -734482665);
}

// An order-1 filter (index 1, resolution 4) on an impulse, worked by hand:
// a1 = 446486956 needs 3 halvings to reach 2^26, so a1 = 55810869 with
// 28 fraction bits and y[n] = floor(-a1 y[n-1] / 2^28).
TEST(TnsFilter, WorkedImpulseResponse) {
    std::vector<int32_t> spec(1024, 0);
    spec[0] = 1000;
    const Tns d{{1}, {49}, {1}, {4}, {0}, {1}};
    ASSERT_EQ(library_tns(spec, d, 49, 3, 1024), nkpStatusOk);
    const std::vector<int32_t> head(spec.begin(), spec.begin() + 8);
    EXPECT_EQ(head, (std::vector<int32_t>{1000, -208, 43, -9, 1, -1, 0, 0}));
}

// Cases named by what they pin; each compares the library with the model
// and with the expected status, and says whether lines must change.
TEST(TnsFilter, PinnedCases) {
    enum Change { Unchanged, Changed };
    const struct {
        const char* name;
        Tns d;
        int max_sfb, sfi, win_len;
        nkpStatus status;
        Change change;
    } rows[] = {
        {"all_indices_zero_change_nothing", {{1}, {40}, {4}, {4}, {0}, {0, 0, 0, 0}}, 49, 3, 1024, nkpStatusOk, Unchanged},
        {"resolution_3_index_7_is_index_0", {{1}, {40}, {1}, {3}, {0}, {7}}, 49, 3, 1024, nkpStatusOk, Unchanged},
        {"length_equal_to_band_count_reaches_band_0", {{1}, {49}, {2}, {4}, {1}, {3, -2}}, 49, 3, 1024, nkpStatusOk, Changed},
        {"length_above_band_count", {{1}, {60}, {2}, {4}, {1}, {3, -2}}, 49, 3, 1024, nkpStatusBadAacTnsLength, Unchanged},
        {"two_short_filters", {{0, 2, 0, 0, 0, 0, 0, 0}, {1, 1}, {0, 0}, {4, 4, 4, 4, 4, 4, 4, 4}, {}, {}}, 14, 3, 128, nkpStatusBadAacTnsFilterCount, Unchanged},
        {"order_0_takes_no_resolution_check", {{1}, {20}, {0}, {9}, {}, {}}, 49, 3, 1024, nkpStatusOk, Unchanged},
        // A filter above the TNS band limit (max_sfb 10 here) has no lines,
        // but its direction is still taken and checked.
        {"range_above_limit_still_checks_direction", {{1}, {20}, {1}, {4}, {2}, {3}}, 10, 3, 1024, nkpStatusBadAacTnsDirection, Unchanged},
        // The first filter runs; the second's bad direction stops the call.
        {"error_keeps_earlier_filters", {{2}, {20, 20}, {1, 1}, {4}, {0, 5}, {3, 3}}, 49, 3, 1024, nkpStatusBadAacTnsDirection, Changed},
        // Short windows: windows without filters take no entries.
        {"short_windows_compact_arrays", {{0, 1, 0, 1, 1, 0, 0, 1}, {3, 14, 5, 9}, {2, 0, 7, 1}, {3, 4, 3, 4, 4, 3, 9, 3}, {1, 0, 1}, {2, -3, 1, 2, 3, -4, -1, 0, 3, -8}}, 14, 3, 128, nkpStatusOk, Changed},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.name);
        std::vector<int32_t> spec(1024);
        for (int i = 0; i < 1024; ++i) spec[i] = (i * 7919) % 20001 - 10000;
        const std::vector<int32_t> before = spec;
        std::vector<int32_t> want = spec;
        EXPECT_EQ(model_tns(want, r.d, r.max_sfb, r.sfi, r.win_len), r.status);
        EXPECT_EQ(library_tns(spec, r.d, r.max_sfb, r.sfi, r.win_len), r.status);
        EXPECT_EQ(spec, want);
        EXPECT_EQ(spec != before, r.change == Changed);
    }
}

// Resolution 3, index -8 uses the value of -1.
TEST(TnsFilter, ResolutionThreeMirrorsAtTheEnds) {
    std::vector<int32_t> a(1024), b(1024);
    for (int i = 0; i < 1024; ++i) a[i] = b[i] = (i * 31) % 1001 - 500;
    ASSERT_EQ(library_tns(a, {{1}, {40}, {1}, {3}, {1}, {-8}}, 49, 3, 1024), nkpStatusOk);
    ASSERT_EQ(library_tns(b, {{1}, {40}, {1}, {3}, {1}, {-1}}, 49, 3, 1024), nkpStatusOk);
    EXPECT_EQ(a, b);
}

}  // namespace
