// Inverse quantisation: worked values, every magnitude at every scale factor
// against a long-double model, the band layout (groups, skipped code books),
// and the stop at a bad magnitude (both code paths: tests/aac/both_paths.cpp).
#include "frame/exports.h"
#include "tools_test_util.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace {

using nkptest::Frame;

// sign(v) |v|^(4/3) 2^((sf - 100)/4) * 8 before truncation.
long double exact(int v, int sf) {
    const long double a = std::fabs(static_cast<long double>(v));
    const long double value = a * std::cbrt(a) * std::exp2((sf - 100) / 4.0L) * 8.0L;
    return v < 0 ? -value : value;
}

// The truncated, saturated value, and whether the exact value lies so close
// to an integer that one unit less or more is within the tolerance.
struct Expected {
    int32_t value;
    bool near_integer;
};
Expected expected(int v, int sf) {
    const long double e = exact(v, sf);
    const long double m = std::fabs(e);
    if (m >= 2147483647.0L) return {v < 0 ? -2147483647 : 2147483647, false};
    const int32_t t = static_cast<int32_t>(std::floor(m));
    const bool near = std::fabs(m - std::nearbyint(m)) <= 1e-14L * (1.0L + m);
    return {v < 0 ? -t : t, near};
}

// One long window at 48 kHz (49 bands cover all 1024 lines), every band
// with code book 1 and scale factor sf.
nkpStatus quant_inv_long(int path, int32_t* lines, int sf) {
    static const int32_t one_group[1] = {1};
    std::vector<uint16_t> sfs(49, static_cast<uint16_t>(sf));
    std::vector<uint8_t> cbs(49, 1);
    return nkpt_nkpsQuantInv_AAC_32s_I[path](lines, sfs.data(), 1, one_group, 49, cbs.data(), 3, 1024);
}

TEST(QuantInv, WorkedValues) {
    const struct {
        const char* name;
        int sf, line;
        int32_t want;
    } rows[] = {
        {"unit_line_at_sf_100_is_8", 100, 1, 8},
        {"minus_two_truncates_toward_zero", 100, -2, -20},  // 2^(4/3) * 8 = 20.16
        {"four_steps_up_doubles", 104, 1, 16},
        {"four_steps_down_halves", 96, 1, 4},
        {"perfect_cube_8_is_exact", 100, 8, 128},
        {"perfect_cube_27_is_exact", 100, 27, 648},
        {"perfect_cube_8000_is_exact", 100, 8000, 1280000},
        {"zero_stays_zero", 255, 0, 0},
        {"largest_line_at_sf_100", 100, 8191, 1320907},  // 8191^(4/3) * 8 = 1320907.95
        {"quarter_step_down", 99, 1, 6},                  // 8 * 2^(-1/4) = 6.73
        {"quarter_step_up", 101, 3, 41},                  // 41.16
        {"largest_unsaturated", 142, 8191, 1912879043},
        {"first_saturated", 143, 8191, 2147483647},
        {"saturates_negative_symmetric", 255, -8191, -2147483647},
        {"small_result_of_large_line", 40, -8191, -40},
        {"scale_factor_far_above_255_saturates", 1000, 1, 2147483647},
        {"largest_16_bit_scale_factor_saturates", 65535, -3, -2147483647},
    };
    for (int path = 0; path < 2; ++path) {
        for (const auto& r : rows) {
            std::vector<int32_t> lines(1024, 0);
            lines[5] = r.line;
            ASSERT_EQ(quant_inv_long(path, lines.data(), r.sf), nkpStatusOk) << r.name;
            EXPECT_EQ(lines[5], r.want) << r.name << " path " << path;
        }
    }
}

// Every magnitude 0..8191 with both signs at every scale factor 0..255.
TEST(QuantInv, EveryMagnitudeAtEveryScaleFactorMatchesTheModel) {
    for (int path = 0; path < 2; ++path) {
        long mismatches = 0, near_integer_mismatches = 0;
        for (int sf = 0; sf <= 255; ++sf) {
            for (int chunk = 0; chunk < 16; ++chunk) {
                std::vector<int32_t> lines(1024);
                for (int i = 0; i < 1024; ++i) {
                    const int magnitude = (chunk * 1024 + i) >> 1;
                    lines[i] = (i & 1) ? -magnitude : magnitude;
                }
                const std::vector<int32_t> input = lines;
                ASSERT_EQ(quant_inv_long(path, lines.data(), sf), nkpStatusOk);
                for (int i = 0; i < 1024; ++i) {
                    const Expected e = expected(input[i], sf);
                    if (lines[i] == e.value) continue;
                    ++mismatches;
                    if (e.near_integer && std::abs(static_cast<int64_t>(lines[i]) - e.value) == 1) {
                        ++near_integer_mismatches;
                    } else {
                        ADD_FAILURE() << "line " << input[i] << " sf " << sf << " got " << lines[i] << " want "
                                      << e.value;
                    }
                }
            }
        }
        EXPECT_EQ(mismatches, near_integer_mismatches);
        // Measured: none at all; the tolerance only covers the model's own
        // last bits where the exact value is an integer.
        EXPECT_LE(mismatches, 16) << "path " << path;
    }
}

// Short windows in three groups: each band's lines get their group's scale
// factor; bands with code books 0, 13, 14 and 15 keep their input, other
// code books (12 and 200 included) are converted.
TEST(QuantInv, ShortWindowGroupsAndSkippedCodebooks) {
    const Frame frame{128, {3, 1, 4}, 12, 4};
    const int bands = frame.num_groups() * frame.max_sfb;
    std::vector<uint16_t> sfs(bands);
    std::vector<uint8_t> cbs(bands);
    const uint8_t codebook_cycle[] = {1, 0, 11, 13, 14, 15, 12, 5, 200};
    for (int i = 0; i < bands; ++i) {
        sfs[i] = static_cast<uint16_t>(60 + 7 * i % 90);
        cbs[i] = codebook_cycle[i % 9];
    }
    std::vector<int32_t> lines(1024);
    for (int i = 0; i < 1024; ++i) lines[i] = nkptest::random_int(-300, 300);
    for (int path = 0; path < 2; ++path) {
        std::vector<int32_t> out = lines;
        ASSERT_EQ(nkpt_nkpsQuantInv_AAC_32s_I[path](out.data(), sfs.data(), frame.num_groups(), frame.groups.data(),
                                                    frame.max_sfb, cbs.data(), frame.sampling_index, 128),
                  nkpStatusOk);
        std::vector<bool> visited(1024, false);
        frame.for_each_line([&](int g, int b, int, int, int line) {
            visited[line] = true;
            const int band = g * frame.max_sfb + b;
            const uint8_t cb = cbs[band];
            const bool skipped = cb == 0 || cb == 13 || cb == 14 || cb == 15;
            const int32_t want = skipped ? lines[line] : expected(lines[line], sfs[band]).value;
            ASSERT_EQ(out[line], want) << "group " << g << " band " << b << " line " << line;
        });
        for (int i = 0; i < 1024; ++i) {
            if (!visited[i]) ASSERT_EQ(out[i], lines[i]) << "line above max_sfb " << i;
        }
    }
}

// A magnitude above 8191 stops the call at that line: every line before it
// is converted, it and everything after are untouched. Each position of a
// four-line step is tried.
TEST(QuantInv, BadMagnitudeStopsAtItsLine) {
    for (int path = 0; path < 2; ++path) {
        for (int bad_at : {100, 101, 102, 103, 1023}) {
            for (int32_t bad : {8192, -8192, INT32_MIN}) {
                std::vector<int32_t> lines(1024);
                for (int i = 0; i < 1024; ++i) lines[i] = (i % 17) - 8;
                lines[bad_at] = bad;
                std::vector<int32_t> out = lines;
                ASSERT_EQ(quant_inv_long(path, out.data(), 100), nkpStatusBadAacQuantValue);
                for (int i = 0; i < 1024; ++i) {
                    const int32_t want = i < bad_at ? expected(lines[i], 100).value : lines[i];
                    ASSERT_EQ(out[i], want) << "bad at " << bad_at << " line " << i;
                }
            }
        }
    }
    // 8191 itself passes.
    std::vector<int32_t> lines(1024, 8191);
    EXPECT_EQ(quant_inv_long(0, lines.data(), 100), nkpStatusOk);
}

}  // namespace
