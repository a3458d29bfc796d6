// The TNS data reader shared by the extension- and main-layer headers and
// the noiseless decoders.
#include "aac/stream_syntax.h"

namespace nkp::aac {

template <class Bits>
nkpStatus read_tns_data(Bits& bits, int window_sequence, const TnsArrays& tns) {
    const bool short_windows = window_sequence == kEightShort;
    const int windows = short_windows ? 8 : 1;
    const int n_filt_bits = short_windows ? 1 : 2;
    const int length_bits = short_windows ? 4 : 6;
    const int order_bits = short_windows ? 3 : 5;
    const uint32_t max_order = short_windows ? 7 : 12;
    int filter = 0, directed = 0, coef = 0;
    for (int w = 0; w < windows; ++w) {
        const int n_filt = static_cast<int>(bits.read(n_filt_bits));
        tns.n_filt[w] = n_filt;
        if (n_filt == 0) continue;
        const int coef_res = static_cast<int>(bits.read(1)) + 3;
        tns.coef_res[w] = coef_res;
        for (int f = 0; f < n_filt; ++f, ++filter) {
            tns.length[filter] = static_cast<int32_t>(bits.read(length_bits));
            const uint32_t order = bits.read(order_bits);
            tns.order[filter] = static_cast<int32_t>(order);
            if (order > max_order) return nkpStatusBadAacTnsOrder;
            if (order == 0) continue;
            tns.direction[directed++] = static_cast<int32_t>(bits.read(1));
            const int width = coef_res - static_cast<int>(bits.read(1));
            const int shift = 32 - width;
            for (uint32_t i = 0; i < order; ++i) {
                // Sign-extend from the top bit of the field (arithmetic shift intended).
                tns.coef[coef++] = static_cast<int8_t>(static_cast<int32_t>(bits.read(width) << shift) >> shift);
            }
        }
    }
    return nkpStatusOk;
}

template nkpStatus read_tns_data<BitReader>(BitReader&, int, const TnsArrays&);
template nkpStatus read_tns_data<BitCache>(BitCache&, int, const TnsArrays&);

}  // namespace nkp::aac
