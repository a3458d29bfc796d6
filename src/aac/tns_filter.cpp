// The TNS decoding filter: each filter's transmitted coefficient indices
// become Q31 reflection coefficients, then direct-form coefficients through
// a 64-bit step-up recursion, and an all-pole filter runs over the filter's
// lines in 32-bit fixed point.
#include "aac/spectral_layout.h"
#include "frame/exports.h"

#include <cstddef>
#include <cstdint>

namespace nkp {
namespace {

using namespace aac;

constexpr int kMaxOrderLong = 12;
constexpr int kMaxOrderShort = 7;
constexpr int kMaxFiltersLong = 3;
constexpr int kMaxFiltersShort = 1;
// Largest magnitude a normalised coefficient may keep: 2^26.
constexpr int64_t kCoefLimit = int64_t{1} << 26;

// Reflection coefficients in Q31 by index c = -8..7 (entry c + 8):
// round(2^31 sin(c / iq)), iq = (2^(res-1) - 0.5) / (pi/2) for c >= 0 and
// (2^(res-1) + 0.5) / (pi/2) for c < 0. For resolution 3 only -4..3 follow
// the rule; 4..7 repeat 3..0 and -5..-8 repeat -4..-1, mirrored at the ends,
// so an index outside the three-bit range still has a value.
constexpr int32_t kReflection4[16] = {
    -2138322861, -2065504841, -1922348530, -1713728946, -1446750378, -1130504462, -775760571, -394599085,
    0,           446486956,   873460290,   1262259218,  1595891361,  1859775393,  2042378317, 2135719508};
constexpr int32_t kReflection3[16] = {
    -734482665,  -1380375881, -1859775393, -2114858546, -2114858546, -1859775393, -1380375881, -734482665,
    0,           931758235,   1678970324,  2093641749,  2093641749,  1678970324,  931758235,   0};

struct DirectForm {
    int32_t a[kMaxOrderLong];  // a[i - 1] holds a_i
    int shift;                 // fraction bits of a
};

// The step-up recursion: every new a_i is computed from the values before
// step m. Magnitudes stay below about C(12, 6) * 2^31 < 2^41, so neither
// the sums nor the products (< 2^31 * 2^31) leave 64 bits.
DirectForm direct_form(const int32_t* k, int order) {
    int64_t a[kMaxOrderLong + 1] = {};
    for (int m = 1; m <= order; ++m) {
        int64_t before[kMaxOrderLong + 1];
        for (int i = 1; i < m; ++i) before[i] = a[i];
        for (int i = 1; i < m; ++i) a[i] = before[i] + ((((before[m - i] + 512) >> 10) * k[m - 1]) >> 21);
        a[m] = k[m - 1];
    }
    int64_t largest = 0;
    for (int i = 1; i <= order; ++i) {
        const int64_t magnitude = a[i] < 0 ? -a[i] : a[i];
        largest = magnitude > largest ? magnitude : largest;
    }
    DirectForm f{};
    f.shift = 31;
    while (largest > kCoefLimit) {
        largest >>= 1;
        --f.shift;
    }
    for (int i = 1; i <= order; ++i) f.a[i - 1] = static_cast<int32_t>(a[i] >> (31 - f.shift));
    return f;
}

// y[n] = (x[n] 2^shift - sum_i a_i y[n-i]) >> shift over `size` lines from
// `line` in steps of `step`, history starting at zero. Coefficients and
// outputs are widened to 64 bits once; the outputs are kept in a local run
// so that each product is one multiply with a memory operand, and y[n-1]
// also stays in a register and is subtracted last, so that the chain from
// one output to the next is a single product.
template <int P>
void all_pole(int32_t* line, ptrdiff_t step, int size, const DirectForm& f) {
    int64_t a[P];
    for (int i = 0; i < P; ++i) a[i] = f.a[i];
    int64_t run[P + kLongWindow];
    for (int i = 0; i < P; ++i) run[i] = 0;
    int64_t* y = run + P;  // y[n - i] is 0 before the first line
    const int shift = f.shift;
    int64_t previous = 0;
    for (int n = 0; n < size; ++n, line += step) {
        int64_t acc = static_cast<int64_t>(*line) * (int64_t{1} << shift);
        for (int i = P; i >= 2; --i) acc -= a[i - 1] * y[n - i];
        acc -= a[0] * previous;
        const int32_t out = static_cast<int32_t>(acc >> shift);  // arithmetic shift, low 32 bits kept
        previous = out;
        y[n] = out;
        *line = out;
    }
}

void run_filter(int32_t* line, ptrdiff_t step, int size, int order, const DirectForm& f) {
    switch (order) {
        case 1: return all_pole<1>(line, step, size, f);
        case 2: return all_pole<2>(line, step, size, f);
        case 3: return all_pole<3>(line, step, size, f);
        case 4: return all_pole<4>(line, step, size, f);
        case 5: return all_pole<5>(line, step, size, f);
        case 6: return all_pole<6>(line, step, size, f);
        case 7: return all_pole<7>(line, step, size, f);
        case 8: return all_pole<8>(line, step, size, f);
        case 9: return all_pole<9>(line, step, size, f);
        case 10: return all_pole<10>(line, step, size, f);
        case 11: return all_pole<11>(line, step, size, f);
        default: return all_pole<12>(line, step, size, f);
    }
}

}  // namespace

nkpStatus nkpsDecodeTNS_AAC_32s_I(nkp32s* pSrcDstSpectrum, const nkp32s* pNumFilt, const nkp32s* pLength,
                                  const nkp32s* pOrder, const nkp32s* pCoefRes, const nkp8s* pCoef,
                                  const nkp32s* pDirection, int maxSfb, int reserved, int samplingIndex, int winLen) {
    if (!pSrcDstSpectrum || !pNumFilt || !pLength || !pOrder || !pCoefRes || !pCoef || !pDirection) {
        return nkpStatusNullPointer;
    }
    if (winLen != kShortWindow && winLen != kLongWindow) return nkpStatusBadAacWindowLength;
    if (!sampling_index_in_range(samplingIndex)) return nkpStatusBadAacSamplingIndex;
    if (!max_sfb_in_range(maxSfb)) return nkpStatusBadAacMaxSfb;
    const int num_swb = band_count(samplingIndex, winLen);
    if (maxSfb > num_swb) return nkpStatusBadAacMaxSfb;

    const bool long_window = winLen == kLongWindow;
    const int windows = long_window ? 1 : kMaxWindows;
    const int max_filters = long_window ? kMaxFiltersLong : kMaxFiltersShort;
    const int max_order = long_window ? kMaxOrderLong : kMaxOrderShort;
    const int tns_bands = long_window ? kTnsMaxBandsLong[samplingIndex] : kTnsMaxBandsShort[samplingIndex];
    const int limit = maxSfb < tns_bands ? maxSfb : tns_bands;
    const int16_t* swb = band_offsets(samplingIndex, winLen);

    int32_t* window = pSrcDstSpectrum;
    for (int w = 0; w < windows; ++w, window += kShortWindow) {
        const int filters = pNumFilt[w];
        if (filters < 0 || filters > max_filters) return nkpStatusBadAacTnsFilterCount;
        int top = num_swb;
        for (int f = 0; f < filters; ++f) {
            const int length = *pLength++;
            if (length < 0 || length > num_swb) return nkpStatusBadAacTnsLength;
            const int bottom = top - length > 0 ? top - length : 0;
            const int order = *pOrder++;
            if (order < 0 || order > max_order) return nkpStatusBadAacTnsOrder;
            if (order != 0) {
                const int res = pCoefRes[w];
                if (res != 3 && res != 4) return nkpStatusBadAacTnsCoefRes;
                const int32_t* table = res == 4 ? kReflection4 : kReflection3;
                int32_t k[kMaxOrderLong];
                for (int m = 0; m < order; ++m) {
                    const int c = pCoef[m];
                    if (c < -8 || c > 7) return nkpStatusBadAacTnsCoef;
                    k[m] = table[c + 8];
                }
                pCoef += order;
                const DirectForm form = direct_form(k, order);
                const int direction = *pDirection++;
                if (direction != 0 && direction != 1) return nkpStatusBadAacTnsDirection;
                const int start = swb[bottom < limit ? bottom : limit];
                const int end = swb[top < limit ? top : limit];
                if (end > start) {
                    if (direction == 0) {
                        run_filter(window + start, 1, end - start, order, form);
                    } else {
                        run_filter(window + end - 1, -1, end - start, order, form);
                    }
                }
            }
            top = bottom;
        }
    }
    return nkpStatusOk;
}

}  // namespace nkp
