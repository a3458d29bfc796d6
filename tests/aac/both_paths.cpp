// The AAC family's two-path export, the inverse quantisation: both table
// entries on the same random frames (long and grouped short windows, every
// code book, magnitudes up to the 8191 limit and one past it), at any
// alignment and under an odd caller MXCSR, which must come back unchanged.
#include "aac/tools_test_util.h"
#include "common/both_paths.h"

#include <algorithm>
#include <string>

void both_paths_nkpsQuantInv_AAC_32s_I() {
    const nkptest::Frame frames[] = {{1024, {1}, 49, 3}, {128, {2, 2, 1, 3}, 14, 3}, {128, {8}, 12, 0},
                                     {1024, {1}, 40, 11}};
    for (const auto& frame : frames) {
        const int bands = frame.num_groups() * frame.max_sfb;
        for (int round = 0; round < 40; ++round) {
            std::vector<uint16_t> sfs(bands);
            std::vector<uint8_t> cbs(bands);
            for (int i = 0; i < bands; ++i) {
                sfs[i] = static_cast<uint16_t>(nkptest::random_int(0, 255));
                cbs[i] = static_cast<uint8_t>(nkptest::random_int(0, 15));
            }
            std::vector<int32_t> lines(1024);
            for (auto& v : lines) v = nkptest::random_int(-8191, 8191) >> nkptest::random_int(0, 12);
            if (round % 8 == 7) lines[nkptest::random_int(0, 1023)] = 8192;  // stops part-way
            nkptest::expect_same_on_both_paths(
                [&](int path) {
                    alignas(16) int32_t buffer[1024 + 4];
                    int32_t* p = buffer + (round + path) % 4;
                    std::copy(lines.begin(), lines.end(), p);
                    nkptest::Outcome o;
                    {
                        nkptest::MxcsrScope odd(path ? nkptest::kOddMxcsr : 0x1F80u);
                        o.status = nkpt_nkpsQuantInv_AAC_32s_I[path](p, sfs.data(), frame.num_groups(),
                                                                     frame.groups.data(), frame.max_sfb, cbs.data(),
                                                                     frame.sampling_index, frame.win_len);
                        // The control bits come back; exception flags (the low six) may be raised.
                        EXPECT_EQ(_mm_getcsr() & ~0x3Fu, path ? nkptest::kOddMxcsr : 0x1F80u);
                    }
                    return o.add(p, 4096);
                },
                "frame " + std::to_string(frame.win_len) + "/" + std::to_string(frame.max_sfb));
        }
    }
}
