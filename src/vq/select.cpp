// Code-book searches for one sub-vector at a time: the preliminary selection
// (a short candidate list per sub-vector) and the index selection (the single
// best code vector).
//
// Distances: d- = sum w (c - x)^2 and, with polarity, d+ = sum w (c + x)^2
// (the negated vector's distance), each summed in single precision element
// by element from the first, the term formed as w * ((c - x) * (c - x)).
// Four code vectors are measured at once, one per lane: their elements are
// transposed on the fly from the 64-byte-aligned slots, so every lane sums in
// plain element order and a code vector's distance does not depend on its
// neighbours or on where the source lies.
#include "frame/exports.h"
#include "vq/codebook.h"

#include <algorithm>
#include <cstring>
#include <xmmintrin.h>

namespace nkp {
namespace {

using vq::CodeBook;

// Distances of the code vectors v[0..3] to x (len elements), d- in dm and,
// when Both, d+ in dp.
template <bool Both>
inline void distances4(const float* const v[4], const float* x, const float* w, ptrdiff_t len, __m128& dm,
                       __m128& dp) {
    __m128 am = _mm_setzero_ps(), ap = _mm_setzero_ps();
    auto term = [&](__m128 e, ptrdiff_t i) {
        const __m128 xi = _mm_set1_ps(x[i]), wi = _mm_set1_ps(w[i]);
        const __m128 tm = _mm_sub_ps(e, xi);
        am = _mm_add_ps(am, _mm_mul_ps(wi, _mm_mul_ps(tm, tm)));
        if constexpr (Both) {
            const __m128 tp = _mm_add_ps(e, xi);
            ap = _mm_add_ps(ap, _mm_mul_ps(wi, _mm_mul_ps(tp, tp)));
        }
    };
    for (ptrdiff_t b = 0; b < len; b += 4) {
        __m128 e0 = _mm_load_ps(v[0] + b), e1 = _mm_load_ps(v[1] + b);
        __m128 e2 = _mm_load_ps(v[2] + b), e3 = _mm_load_ps(v[3] + b);
        _MM_TRANSPOSE4_PS(e0, e1, e2, e3);
        if (b + 4 <= len) {
            term(e0, b);
            term(e1, b + 1);
            term(e2, b + 2);
            term(e3, b + 3);
        } else {
            term(e0, b);
            if (b + 1 < len) term(e1, b + 1);
            if (b + 2 < len) term(e2, b + 2);
        }
    }
    dm = am;
    dp = ap;
}

// Measures every code vector against one sub-vector and calls
// take(c, distance, flag) in index order. The flag is 1 when the negated
// vector is strictly closer (polarity only); a tie keeps 0.
template <class Take>
void measure(const CodeBook& cb, const float* x, const float* w, ptrdiff_t len, bool polarity, Take take) {
    const int32_t count = cb.count;
    alignas(16) float dm[4], dp[4];
    for (int32_t c = 0; c < count; c += 4) {
        const int32_t last = count - 1;
        const float* v[4] = {cb.vectors[c], cb.vectors[std::min(c + 1, last)], cb.vectors[std::min(c + 2, last)],
                             cb.vectors[std::min(c + 3, last)]};
        __m128 m, p;
        if (polarity) {
            distances4<true>(v, x, w, len, m, p);
        } else {
            distances4<false>(v, x, w, len, m, p);
        }
        _mm_store_ps(dm, m);
        _mm_store_ps(dp, p);
        const int32_t lanes = std::min(4, count - c);
        for (int32_t l = 0; l < lanes; ++l) {
            if (polarity && dm[l] > dp[l]) {
                take(c + l, dp[l], 1);
            } else {
                take(c + l, dm[l], 0);
            }
        }
    }
}

// The candidate list: the best `size` code vectors by distance, best first.
// A new distance goes after every equal one already listed, and one equal to
// the last of a full list stays out, so among equal distances the lower
// index ranks first.
class CandidateList {
public:
    CandidateList(int32_t* index, float* key, int32_t size) : index_(index), key_(key), size_(size) {}

    void offer(int32_t c, float distance) {
        if (filled_ == size_ && !(distance < key_[size_ - 1])) return;
        // First position whose distance is greater (binary search).
        int32_t lo = 0, hi = filled_;
        while (lo < hi) {
            const int32_t mid = lo + (hi - lo) / 2;
            if (key_[mid] > distance) {
                hi = mid;
            } else {
                lo = mid + 1;
            }
        }
        const int32_t moved = std::min(filled_, size_ - 1) - lo;
        if (moved > 0) {
            std::memmove(index_ + lo + 1, index_ + lo, static_cast<size_t>(moved) * sizeof *index_);
            std::memmove(key_ + lo + 1, key_ + lo, static_cast<size_t>(moved) * sizeof *key_);
        }
        index_[lo] = c;
        key_[lo] = distance;
        if (filled_ < size_) ++filled_;
    }

private:
    int32_t* index_;
    float* key_;
    int32_t size_;
    int32_t filled_ = 0;
};

}  // namespace

nkpStatus nkpsVQPreliminarySelect_32f(const nkp32f* pSrc, const nkp32f* pWeight, int subVectorCount,
                                      const int* pLength, int* pCandIndex, int* pCandSign, int candCount,
                                      const int* pPolarity, nkpsVQCodeBook_32f* pCodeBook) {
    if (!pSrc || !pWeight || !pLength || !pCandIndex || !pCandSign || !pPolarity || !pCodeBook) {
        return nkpStatusNullPointer;
    }
    if (subVectorCount < 1) return nkpStatusOk;
    if (candCount < 1) return nkpStatusBadSize;
    CodeBook* cb = vq::usable(pCodeBook);
    if (!cb) return nkpStatusWrongObject;
    if (!vq::lengths_fit(pLength, subVectorCount, cb->dim)) return nkpStatusBadSize;

    const int32_t count = cb->count;
    ptrdiff_t offset = 0;
    for (int k = 0; k < subVectorCount; ++k) {
        const ptrdiff_t len = pLength[k];
        const float* x = pSrc + offset;
        const float* w = pWeight + offset;
        const bool polarity = pPolarity[k] != 0;
        int* out_index = pCandIndex + static_cast<ptrdiff_t>(k) * candCount;
        int* out_sign = pCandSign + static_cast<ptrdiff_t>(k) * candCount;
        if (candCount >= count) {
            // Every code vector is a candidate, in index order; the list's
            // remaining entries repeat the last one.
            measure(*cb, x, w, len, polarity, [&](int32_t c, float distance, int32_t flag) {
                cb->distances[c] = distance;
                cb->signFlags[c] = flag;
            });
            for (int32_t m = 0; m < candCount; ++m) {
                const int32_t c = std::min(m, count - 1);
                out_index[m] = c;
                out_sign[m] = cb->signFlags[c];
            }
        } else {
            CandidateList list(cb->sortIndex, cb->sortKey, candCount);
            measure(*cb, x, w, len, polarity, [&](int32_t c, float distance, int32_t flag) {
                cb->distances[c] = distance;
                cb->signFlags[c] = flag;
                list.offer(c, distance);
            });
            for (int32_t m = 0; m < candCount; ++m) {
                out_index[m] = cb->sortIndex[m];
                out_sign[m] = cb->signFlags[cb->sortIndex[m]];
            }
        }
        offset += len;
    }
    return nkpStatusOk;
}

nkpStatus nkpsVQIndexSelect_32f(const nkp32f* pSrc, const nkp32f* pWeight, int subVectorCount, const int* pLength,
                                int* pIndex, int* pSign, const int* pPolarity, const nkpsVQCodeBook_32f* pCodeBook,
                                nkp32f* pError) {
    if (!pSrc || !pWeight || !pLength || !pIndex || !pSign || !pCodeBook) return nkpStatusNullPointer;
    if (subVectorCount < 1) return nkpStatusOk;
    const CodeBook* cb = vq::usable(pCodeBook);
    if (!cb) return nkpStatusWrongObject;
    if (!vq::lengths_fit(pLength, subVectorCount, cb->dim)) return nkpStatusBadSize;

    ptrdiff_t offset = 0;
    for (int k = 0; k < subVectorCount; ++k) {
        const ptrdiff_t len = pLength[k];
        const bool polarity = pPolarity && pPolarity[k] != 0;
        int32_t best = 0, best_flag = 0;
        float best_distance = 0.0f;
        measure(*cb, pSrc + offset, pWeight + offset, len, polarity, [&](int32_t c, float distance, int32_t flag) {
            if (c == 0 || distance < best_distance) {
                best = c;
                best_flag = flag;
                best_distance = distance;
            }
        });
        pIndex[k] = best;
        pSign[k] = best_flag;
        if (pError) pError[k] = best_distance;
        offset += len;
    }
    return nkpStatusOk;
}

}  // namespace nkp
