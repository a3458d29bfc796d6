// The main selection: for each sub-vector, every pair of candidates (one
// from each code book's list) is tried, and the pair whose average
// r = (s0 c0 + s1 c1) / divisor has the smallest weighted error
// e = sum w (x - r)^2 is kept; the first pair in search order (i over the
// first list, j over the second) wins a tie.
//
// Errors are summed in single precision element by element from the first,
// each term w * ((x - r) * (x - r)). Four pairs (i, j..j+3) are measured at
// once, one per lane, with the second list's vectors turned lane-wise (once
// per sub-vector, or on the fly for long ones), so every lane keeps plain
// element order.
//
// Two routes form r, and they may differ in the last bit:
//   - exact: r = (s0 c0 + s1 c1) / divisor;
//   - reciprocal: r = (s0 c0 + s1 c1) * a', a' = 2a - divisor a^2 with a the
//     processor's reciprocal estimate of the divisor (one Newton step).
// A sub-vector whose source and weight slices both start on a 16-byte
// boundary takes its elements four at a time by the reciprocal route; the
// last len mod 4 elements, and every element of any other sub-vector, take
// the exact route.
#include "common/numeric.h"
#include "frame/exports.h"
#include "vq/codebook.h"
#include "vq/lanes.h"

#include <algorithm>
#include <xmmintrin.h>

namespace nkp {
namespace {

using vq::CodeBook;

constexpr float kThreshold = 1e38f;  // the best error before any pair is tried

inline float refined_reciprocal(float d) {
    const __m128 dv = _mm_set_ss(d);
    const __m128 a = _mm_rcp_ss(dv);
    return _mm_cvtss_f32(_mm_sub_ss(_mm_add_ss(a, a), _mm_mul_ss(dv, _mm_mul_ss(a, a))));
}

inline __m128 sign_mask(int flag) { return _mm_set1_ps(flag ? -0.0f : 0.0f); }

struct SubVector {
    const float* x;
    const float* w;
    ptrdiff_t len;
    ptrdiff_t reciprocal_end;  // elements before this take the reciprocal route
    __m128 reciprocal;
    __m128 divisor;
};

// Adds the terms of elements bc.lo() .. bc.hi()-1 of the pairs (c0, c1[0..3])
// to acc; s0 and s1 are sign masks (0 or -0.0 per lane).
inline void add_errors(const SubVector& sv, const vq::Broadcasts& bc, const float* c0, __m128 s0,
                       const float* const c1[4], __m128 s1, __m128& acc) {
    auto term = [&](__m128 first, __m128 second, ptrdiff_t i, bool reciprocal) {
        const __m128 sum = _mm_add_ps(first, _mm_xor_ps(second, s1));
        const __m128 r = reciprocal ? _mm_mul_ps(sum, sv.reciprocal) : _mm_div_ps(sum, sv.divisor);
        const __m128 t = _mm_sub_ps(bc.x(i), r);
        acc = _mm_add_ps(acc, _mm_mul_ps(bc.w(i), _mm_mul_ps(t, t)));
    };
    const ptrdiff_t hi = bc.hi();
    for (ptrdiff_t b = bc.lo(); b < hi; b += 4) {
        __m128 e[4];
        vq::transpose(c1[0] + b, c1[1] + b, c1[2] + b, c1[3] + b, e);
        const __m128 a = _mm_xor_ps(_mm_load_ps(c0 + b), s0);
        const __m128 a0 = _mm_shuffle_ps(a, a, 0x00), a1 = _mm_shuffle_ps(a, a, 0x55);
        const __m128 a2 = _mm_shuffle_ps(a, a, 0xAA), a3 = _mm_shuffle_ps(a, a, 0xFF);
        if (b + 4 <= hi) {
            const bool reciprocal = b < sv.reciprocal_end;
            term(a0, e[0], b, reciprocal);
            term(a1, e[1], b + 1, reciprocal);
            term(a2, e[2], b + 2, reciprocal);
            term(a3, e[3], b + 3, reciprocal);
        } else {
            // The last len mod 4 elements always divide.
            term(a0, e[0], b, false);
            if (b + 1 < hi) term(a1, e[1], b + 1, false);
            if (b + 2 < hi) term(a2, e[2], b + 2, false);
        }
    }
}

// The second list's candidates of one sub-vector, signs applied, turned
// lane-wise once for every pair that reads them: entry (g, n) holds element n
// of candidates 4g .. 4g+3.
class SecondList {
public:
    static constexpr ptrdiff_t kEntries = 512;

    static bool fits(ptrdiff_t candidates, ptrdiff_t len) {
        return len <= vq::Broadcasts::kSpan && (candidates + 3) / 4 * ((len + 3) & ~ptrdiff_t{3}) <= kEntries;
    }
    void fill(const vq::CodeBook& book, const int* cand, const int* sign, ptrdiff_t candidates, ptrdiff_t len) {
        stride_ = (len + 3) & ~ptrdiff_t{3};
        const ptrdiff_t last = candidates - 1;
        for (ptrdiff_t j = 0, g = 0; j < candidates; j += 4, ++g) {
            const ptrdiff_t jj[4] = {j, std::min(j + 1, last), std::min(j + 2, last), std::min(j + 3, last)};
            const __m128 s1 = _mm_setr_ps(sign[jj[0]] ? -0.0f : 0.0f, sign[jj[1]] ? -0.0f : 0.0f,
                                          sign[jj[2]] ? -0.0f : 0.0f, sign[jj[3]] ? -0.0f : 0.0f);
            for (ptrdiff_t b = 0; b < len; b += 4) {
                __m128 e[4];
                vq::transpose(book.vectors[cand[jj[0]]] + b, book.vectors[cand[jj[1]]] + b,
                              book.vectors[cand[jj[2]]] + b, book.vectors[cand[jj[3]]] + b, e);
                for (int m = 0; m < 4; ++m) entry_[g * stride_ + b + m] = _mm_xor_ps(e[m], s1);
            }
        }
    }
    const __m128* group(ptrdiff_t g) const { return entry_ + g * stride_; }

private:
    __m128 entry_[kEntries];
    ptrdiff_t stride_ = 0;
};

// add_errors for a whole sub-vector held in bc, with the second list's group
// from a SecondList.
inline void add_errors_held(const SubVector& sv, const vq::Broadcasts& bc, const float* c0, __m128 s0,
                            const __m128* second, __m128& acc) {
    auto term = [&](__m128 first, __m128 c1, ptrdiff_t i, bool reciprocal) {
        const __m128 sum = _mm_add_ps(first, c1);
        const __m128 r = reciprocal ? _mm_mul_ps(sum, sv.reciprocal) : _mm_div_ps(sum, sv.divisor);
        const __m128 t = _mm_sub_ps(bc.x(i), r);
        acc = _mm_add_ps(acc, _mm_mul_ps(bc.w(i), _mm_mul_ps(t, t)));
    };
    const ptrdiff_t len = sv.len;
    for (ptrdiff_t b = 0; b < len; b += 4) {
        const __m128 a = _mm_xor_ps(_mm_load_ps(c0 + b), s0);
        const __m128 a0 = _mm_shuffle_ps(a, a, 0x00), a1 = _mm_shuffle_ps(a, a, 0x55);
        const __m128 a2 = _mm_shuffle_ps(a, a, 0xAA), a3 = _mm_shuffle_ps(a, a, 0xFF);
        if (b + 4 <= len) {
            const bool reciprocal = b < sv.reciprocal_end;
            term(a0, second[b], b, reciprocal);
            term(a1, second[b + 1], b + 1, reciprocal);
            term(a2, second[b + 2], b + 2, reciprocal);
            term(a3, second[b + 3], b + 3, reciprocal);
        } else {
            term(a0, second[b], b, false);
            if (b + 1 < len) term(a1, second[b + 1], b + 1, false);
            if (b + 2 < len) term(a2, second[b + 2], b + 2, false);
        }
    }
}

}  // namespace

nkpStatus nkpsVQMainSelect_32f(const nkp32f* pSrc, const nkp32f* pWeight, const int* pLength, int subVectorCount,
                               int candCount, const int* const* ppCandIndex, const int* const* ppCandSign,
                               int* const* ppIndex, int* const* ppSign, const nkpsVQCodeBook_32f* const* ppCodeBook,
                               nkp32f divisor, int candCount1, nkp32f* pError) {
    if (!pSrc || !pWeight || !pLength || !ppCandIndex || !ppCandSign || !ppIndex || !ppSign || !ppCodeBook) {
        return nkpStatusNullPointer;
    }
    for (int b = 0; b < 2; ++b) {
        if (!ppCandIndex[b] || !ppCandSign[b] || !ppIndex[b] || !ppSign[b] || !ppCodeBook[b]) {
            return nkpStatusNullPointer;
        }
    }
    if (subVectorCount < 1) return nkpStatusOk;
    if (candCount < 1 || candCount1 < 0) return nkpStatusBadSize;
    CodeBook record0, record1;
    if (!vq::usable(ppCodeBook[0], record0) || !vq::usable(ppCodeBook[1], record1)) return nkpStatusWrongObject;
    const CodeBook* book0 = &record0;
    const CodeBook* book1 = &record1;
    if (!vq::lengths_fit(pLength, subVectorCount, std::min(book0->dim, book1->dim))) return nkpStatusBadSize;
    const ptrdiff_t k0 = candCount, k1 = candCount1 ? candCount1 : candCount;
    if (!vq::indices_fit(ppCandIndex[0], k0 * subVectorCount, book0->count) ||
        !vq::indices_fit(ppCandIndex[1], k1 * subVectorCount, book1->count)) {
        return nkpStatusOutOfRange;
    }

    SubVector sv;
    sv.reciprocal = _mm_set1_ps(refined_reciprocal(divisor));
    sv.divisor = _mm_set1_ps(divisor);
    vq::Broadcasts bc;
    SecondList second;
    ptrdiff_t offset = 0;
    alignas(16) float e[4];
    for (int k = 0; k < subVectorCount; ++k) {
        sv.x = pSrc + offset;
        sv.w = pWeight + offset;
        sv.len = pLength[k];
        sv.reciprocal_end = aligned16(sv.x) && aligned16(sv.w) ? sv.len & ~ptrdiff_t{3} : 0;
        const bool one_span = sv.len <= vq::Broadcasts::kSpan;
        if (one_span) bc.fill(sv.x, sv.w, 0, sv.len);
        const int* cand0 = ppCandIndex[0] + k * k0;
        const int* sign0 = ppCandSign[0] + k * k0;
        const int* cand1 = ppCandIndex[1] + k * k1;
        const int* sign1 = ppCandSign[1] + k * k1;

        float best = kThreshold;
        ptrdiff_t best_i = 0, best_j = 0;
        const bool held = SecondList::fits(k1, sv.len);
        if (held) second.fill(*book1, cand1, sign1, k1, sv.len);
        for (ptrdiff_t i = 0; i < k0; ++i) {
            const float* c0 = book0->vectors[cand0[i]];
            const __m128 s0 = sign_mask(sign0[i]);
            for (ptrdiff_t j = 0; j < k1; j += 4) {
                __m128 acc = _mm_setzero_ps();
                if (held) {
                    add_errors_held(sv, bc, c0, s0, second.group(j / 4), acc);
                } else {
                    // Lanes past the list's end repeat its last candidate.
                    const ptrdiff_t last = k1 - 1;
                    const ptrdiff_t jj[4] = {j, std::min(j + 1, last), std::min(j + 2, last), std::min(j + 3, last)};
                    const float* c1[4] = {book1->vectors[cand1[jj[0]]], book1->vectors[cand1[jj[1]]],
                                          book1->vectors[cand1[jj[2]]], book1->vectors[cand1[jj[3]]]};
                    const __m128 s1 = _mm_setr_ps(sign1[jj[0]] ? -0.0f : 0.0f, sign1[jj[1]] ? -0.0f : 0.0f,
                                                  sign1[jj[2]] ? -0.0f : 0.0f, sign1[jj[3]] ? -0.0f : 0.0f);
                    for (ptrdiff_t lo = 0; lo < sv.len || lo == 0; lo += vq::Broadcasts::kSpan) {
                        if (!one_span) bc.fill(sv.x, sv.w, lo, std::min(sv.len, lo + vq::Broadcasts::kSpan));
                        add_errors(sv, bc, c0, s0, c1, s1, acc);
                        if (one_span) break;
                    }
                }
                _mm_store_ps(e, acc);
                const ptrdiff_t lanes = std::min<ptrdiff_t>(4, k1 - j);
                for (ptrdiff_t l = 0; l < lanes; ++l) {
                    if (e[l] < best) {
                        best = e[l];
                        best_i = i;
                        best_j = j + l;
                    }
                }
            }
        }
        ppIndex[0][k] = cand0[best_i];
        ppIndex[1][k] = cand1[best_j];
        ppSign[0][k] = sign0[best_i] != 0;
        ppSign[1][k] = sign1[best_j] != 0;
        if (pError) pError[k] = best;
        offset += sv.len;
    }
    return nkpStatusOk;
}

}  // namespace nkp
