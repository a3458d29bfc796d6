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
#include "vq/lanes.h"

#include <algorithm>
#include <cstring>
#include <emmintrin.h>

namespace nkp {
namespace {

using vq::CodeBook;

// Adds the terms of elements bc.lo() .. bc.hi()-1 for the code vectors
// v[0..3] to the sums dm (d-) and, when Both, dp (d+).
template <bool Both>
inline void add_distances(const float* const* v, const vq::Broadcasts& bc, __m128& dm, __m128& dp) {
    const ptrdiff_t lo = bc.lo(), hi = bc.hi();
    auto term = [&](__m128 e, ptrdiff_t i) {
        const __m128 xi = bc.x(i), wi = bc.w(i);
        const __m128 tm = _mm_sub_ps(e, xi);
        dm = _mm_add_ps(dm, _mm_mul_ps(wi, _mm_mul_ps(tm, tm)));
        if constexpr (Both) {
            const __m128 tp = _mm_add_ps(e, xi);
            dp = _mm_add_ps(dp, _mm_mul_ps(wi, _mm_mul_ps(tp, tp)));
        }
    };
    for (ptrdiff_t b = lo; b < hi; b += 4) {
        __m128 e[4];
        vq::transpose(v[0] + b, v[1] + b, v[2] + b, v[3] + b, e);
        if (b + 4 <= hi) {
            term(e[0], b);
            term(e[1], b + 1);
            term(e[2], b + 2);
            term(e[3], b + 3);
        } else {
            for (ptrdiff_t m = 0; b + m < hi; ++m) term(e[m], b + m);
        }
    }
}

// Measures every code vector against one sub-vector and hands them on in
// index order, four at a time: take(first, lanes, distance, flag, dv) with
// lanes vectors from index first, their distances and flags in distance[]
// and flag[], and the distances again as the vector dv. The flag is 1 when
// the negated vector is strictly closer (polarity only); a tie keeps 0.
template <class Take>
void measure(const CodeBook& cb, const float* x, const float* w, ptrdiff_t len, bool polarity, Take take) {
    const int32_t count = cb.count, last = count - 1;
    vq::Broadcasts bc;
    const bool one_span = len <= vq::Broadcasts::kSpan;
    if (one_span) bc.fill(x, w, 0, len);
    alignas(16) float distance[4];
    alignas(16) int32_t flag[4];
    for (int32_t c = 0; c < count; c += 4) {
        // Lanes past the end repeat the last vector.
        const float* v[4] = {cb.vectors[c], cb.vectors[std::min(c + 1, last)], cb.vectors[std::min(c + 2, last)],
                             cb.vectors[std::min(c + 3, last)]};
        __m128 dm = _mm_setzero_ps(), dp = _mm_setzero_ps();
        for (ptrdiff_t lo = 0; lo < len || lo == 0; lo += vq::Broadcasts::kSpan) {
            if (!one_span) bc.fill(x, w, lo, std::min(len, lo + vq::Broadcasts::kSpan));
            if (polarity) {
                add_distances<true>(v, bc, dm, dp);
            } else {
                add_distances<false>(v, bc, dm, dp);
            }
            if (one_span) break;
        }
        if (polarity) {
            // The negated vector only when strictly closer; chosen without a
            // branch, as the choice is as random as the data.
            const __m128 negated = _mm_cmpgt_ps(dm, dp);
            dm = _mm_or_ps(_mm_and_ps(negated, dp), _mm_andnot_ps(negated, dm));
            _mm_store_si128(reinterpret_cast<__m128i*>(flag), _mm_srli_epi32(_mm_castps_si128(negated), 31));
        } else {
            _mm_store_si128(reinterpret_cast<__m128i*>(flag), _mm_setzero_si128());
        }
        _mm_store_ps(distance, dm);
        take(c, std::min(4, count - c), distance, flag, dm);
    }
}

// The candidate list: the best `size` code vectors by distance, best first.
// A new distance goes after every equal one already listed, and one equal to
// the last of a full list stays out, so among equal distances the lower
// index ranks first.
class CandidateList {
public:
    CandidateList(int32_t* index, float* key, int32_t size) : index_(index), key_(key), size_(size) {}

    // A distance the list would take: any while it is filling, then only one
    // below its last. (NaN never passes the second test.)
    bool wants(float distance) const { return filled_ < size_ || distance < key_[size_ - 1]; }
    // The same test for four distances, as a mask of lanes.
    int wants4(__m128 distance) const {
        return filled_ < size_ ? 0xF : _mm_movemask_ps(_mm_cmplt_ps(distance, _mm_set1_ps(key_[size_ - 1])));
    }

    void offer(int32_t c, float distance) {
        if (!wants(distance)) return;
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
        // Make room: the entries from lo move down one place, the last of a
        // full list drops out. Short lists: a plain loop beats a library call.
        for (int32_t m = filled_ < size_ ? filled_ : size_ - 1; m > lo; --m) {
            index_[m] = index_[m - 1];
            key_[m] = key_[m - 1];
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
    CodeBook record;
    if (!vq::usable(pCodeBook, record)) return nkpStatusWrongObject;
    const CodeBook* cb = &record;
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
        // Every vector's distance and flag go to the code book's work arrays.
        auto keep = [&](int32_t first, int32_t lanes, const float* distance, const int32_t* flag) {
            std::memcpy(cb->distances + first, distance, static_cast<size_t>(lanes) * sizeof(float));
            std::memcpy(cb->signFlags + first, flag, static_cast<size_t>(lanes) * sizeof(int32_t));
        };
        if (candCount >= count) {
            // Every code vector is a candidate, in index order; the list's
            // remaining entries repeat the last one.
            measure(*cb, x, w, len, polarity,
                    [&](int32_t first, int32_t lanes, const float* distance, const int32_t* flag, __m128) {
                        keep(first, lanes, distance, flag);
                    });
            for (int32_t m = 0; m < candCount; ++m) {
                const int32_t c = std::min(m, count - 1);
                out_index[m] = c;
                out_sign[m] = cb->signFlags[c];
            }
        } else {
            CandidateList list(cb->sortIndex, cb->sortKey, candCount);
            measure(*cb, x, w, len, polarity,
                    [&](int32_t first, int32_t lanes, const float* distance, const int32_t* flag, __m128 dv) {
                        keep(first, lanes, distance, flag);
                        // Most vectors miss the list: test the four against
                        // its last entry at once, then offer the lanes that
                        // passed one by one (each offer tests again).
                        int wanted = list.wants4(dv) & ((1 << lanes) - 1);
                        for (int32_t l = 0; wanted; ++l, wanted >>= 1) {
                            if (wanted & 1) list.offer(first + l, distance[l]);
                        }
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
    CodeBook record;
    if (!vq::usable(pCodeBook, record)) return nkpStatusWrongObject;
    const CodeBook* cb = &record;
    if (!vq::lengths_fit(pLength, subVectorCount, cb->dim)) return nkpStatusBadSize;

    ptrdiff_t offset = 0;
    for (int k = 0; k < subVectorCount; ++k) {
        const ptrdiff_t len = pLength[k];
        const bool polarity = pPolarity && pPolarity[k] != 0;
        int32_t best = 0, best_flag = 0;
        float best_distance = 0.0f;
        measure(*cb, pSrc + offset, pWeight + offset, len, polarity,
                [&](int32_t first, int32_t lanes, const float* distance, const int32_t* flag, __m128) {
                    for (int32_t l = 0; l < lanes; ++l) {
                        if (first + l == 0 || distance[l] < best_distance) {
                            best = first + l;
                            best_flag = flag[l];
                            best_distance = distance[l];
                        }
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
