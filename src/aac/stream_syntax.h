// The pieces of AAC syntax that several stream readers share: cursor checks,
// byte alignment, the PCE body, the TNS data, ics_info and LTP data.
//
// The side-information readers are templates over the bit source so that the
// element readers (BitReader) and the noiseless decoders (BitCache) run the
// same code; both sources are instantiated in the files that define them.
#pragma once

#include <cstdint>

#include "common/bit_reader.h"
#include "nkpac.h"

namespace nkp::aac {

// Window sequence 2 is the only one that changes the syntax.
inline constexpr int kEightShort = 2;

// The cursor arguments of a stream reader: the pointers (a null byte pointer
// counts as a null pointer) and the bit offset.
inline nkpStatus check_cursor(nkp8u* const* pp, const int* offset) {
    if (!pp || !offset || !*pp) return nkpStatusNullPointer;
    if (static_cast<uint32_t>(*offset) > 7) return nkpStatusBadAacBitOffset;
    return nkpStatusOk;
}

// Moves to the next byte boundary of the buffer (nothing when on one).
inline void byte_align(BitReader& bits) { bits.set_position((bits.position() + 7) & ~7u); }

// A program configuration element after its identifier, comment included.
void read_pce(BitReader& bits, nkpAacPrgCfgElt& pce);

// TNS data of one channel without its presence flag, into the record's
// arrays (the coefficients into `coef`). Stops with nkpStatusBadAacTnsOrder
// right after an order field above 12 (long) or 7 (short).
struct TnsArrays {
    int32_t* n_filt;
    int32_t* coef_res;
    int32_t* length;
    int32_t* order;
    int32_t* direction;
    int8_t* coef;
};
template <class Bits>
nkpStatus read_tns_data(Bits& bits, int window_sequence, const TnsArrays& tns);

// Window groups from the 7 grouping bits: one group of length 1, then a set
// bit lengthens the current group and a clear bit opens a new one.
void make_window_groups(uint32_t grouping, int32_t* num_groups, int32_t* lengths);

// ics_info with prediction flags for bands below min(maxSfb, limit), the
// limit 0..41 (the callers check it).
template <class Bits>
nkpStatus read_ics_info(Bits& bits, nkpAacIcsInfo& ics, int limit);

// The MPEG-4 ics_info: prediction for object type 1 (limit checked here
// against 0..41), LTP data of `channels` channels into main.ltpInfo for any
// other type.
template <class Bits>
nkpStatus read_ics_info_mp4(Bits& bits, nkpAacIcsInfo& ics, int limit, int object_type, int channels,
                            nkpAacMainHeader& main);

// LTP data after ltp_data_present (which the caller stored as 1).
template <class Bits>
void read_ltp_data(Bits& bits, nkpAacLtpInfo& ltp, int window_sequence, int max_sfb);

}  // namespace nkp::aac
