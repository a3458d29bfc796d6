// Records and band tables the MP3 tests build on.
#pragma once

#include "mp3/tables.h"
#include "nkpac.h"

#include <cstdint>
#include <cstring>

namespace nkptest {

inline nkpMP3FrameHeader mp3_header(int id, int sfi, int mode = 1, int mode_extension = 0) {
    nkpMP3FrameHeader h{};
    h.id = id, h.layer = 1, h.samplingFreqIndex = sfi, h.mode = mode, h.modeExtension = mode_extension;
    return h;
}

// ws 0: tables t0..t2 and region counts r0/r1; ws 1: block type bt, mixed.
inline nkpMP3SideInfo mp3_granule(int big_values, int t0, int t1, int t2, int r0 = 7, int r1 = 7, int ws = 0,
                                  int bt = 0, int mixed = 0) {
    nkpMP3SideInfo si{};
    si.part23Length = 4095, si.bigValues = big_values, si.windowSwitching = ws, si.blockType = bt;
    si.mixedBlock = mixed, si.region0Count = r0, si.region1Count = r1;
    si.tableSelect[0] = t0, si.tableSelect[1] = t1, si.tableSelect[2] = t2;
    return si;
}

// The standard's band tables in the callers' row order (id * 3 + sfi), and
// a mixed-block row of 8 long bands and `mixed_steps` short steps.
struct Mp3Tables {
    nkp16s lng[6 * 23], shrt[6 * 14], mixed[6 * 2];
};
inline Mp3Tables mp3_standard_tables(int mixed_steps = 3) {
    Mp3Tables t{};
    for (int r = 0; r < 6; ++r) {
        std::memcpy(t.lng + 23 * r, nkp::mp3::kSfbLong[r < 3 ? r + 3 : r - 3], sizeof(nkp16s) * 23);
        std::memcpy(t.shrt + 14 * r, nkp::mp3::kSfbShort[r < 3 ? r + 3 : r - 3], sizeof(nkp16s) * 14);
        t.mixed[2 * r] = 8;
        t.mixed[2 * r + 1] = static_cast<nkp16s>(mixed_steps);
    }
    return t;
}

inline uint32_t lcg(uint32_t& s) { return (s = s * 1664525u + 1013904223u) >> 8; }

}  // namespace nkptest
