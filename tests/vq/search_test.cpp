// The code-book searches and the reconstruction against brute-force models
// that sum in single precision in the documented order, so that results,
// ties included, must match bit for bit: every distance and pair error
// summed element by element from the first, lists by a stable sort, pairs
// by strict improvement from 1e38, r formed by the route the data's
// alignment selects.
#include "vq/vq_test_util.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <numeric>
#include <xmmintrin.h>

namespace {

using vqtest::Book;
using vqtest::Floats;

struct Problem {
    std::vector<int> lengths, polarity, at;  // at: where each sub-vector starts
    std::vector<float> x, w;
    Problem(const std::vector<int>& l, bool integers, int polarity_mode) : lengths(l) {  // mode 2: alternating
        for (size_t k = 0, n = 0; k < l.size(); n += l[k++]) {
            at.push_back(static_cast<int>(n));
            polarity.push_back(polarity_mode == 2 ? int(k % 2) : polarity_mode);
        }
        const size_t n = std::accumulate(l.begin(), l.end(), size_t{0});
        x = integers ? vqtest::random_ints(n, -6, 6) : vqtest::random_floats(n, -2, 2);
        w = integers ? vqtest::random_ints(n, 1, 3) : vqtest::random_floats(n, 0.1f, 3);
    }
    int subs() const { return static_cast<int>(lengths.size()); }
};

// Code vector c's distance to sub-vector k, with its flag: with polarity,
// the negated vector when strictly closer.
struct Measured {
    float d;
    int flag;
};
Measured measure(const Book& b, int c, const Problem& p, int k) {
    float d[2] = {0, 0};
    for (int f = 0; f < 2; ++f) {
        for (int i = 0; i < p.lengths[k]; ++i) {
            const float t = (f ? -b.vec(c)[i] : b.vec(c)[i]) - p.x[p.at[k] + i];
            d[f] += p.w[p.at[k] + i] * (t * t);
        }
    }
    return p.polarity[k] && d[1] < d[0] ? Measured{d[1], 1} : Measured{d[0], 0};
}

// Candidate lists: the cand best by a stable sort, or every vector in index
// order with the last repeated.
void model_lists(const Book& b, const Problem& p, int cand, std::vector<int>& index, std::vector<int>& sign) {
    index.clear();
    sign.clear();
    for (int k = 0; k < p.subs(); ++k) {
        std::vector<int> order(b.count);
        std::iota(order.begin(), order.end(), 0);
        if (cand < b.count) {
            std::stable_sort(order.begin(), order.end(),
                             [&](int a, int c) { return measure(b, a, p, k).d < measure(b, c, p, k).d; });
        }
        for (int m = 0; m < cand; ++m) {
            index.push_back(order[std::min(m, b.count - 1)]);
            sign.push_back(measure(b, index.back(), p, k).flag);
        }
    }
}

float refined_reciprocal(float d) {
    const __m128 dv = _mm_set_ss(d), a = _mm_rcp_ss(dv);
    return _mm_cvtss_f32(_mm_sub_ss(_mm_add_ss(a, a), _mm_mul_ss(dv, _mm_mul_ss(a, a))));
}

// Candidate lists of two books, size[s] entries per sub-vector.
struct Lists {
    std::vector<int> index[2], sign[2];
    int size[2];
};
struct Choice {
    int i0, i1, s0, s1;
    float e;
};

// Every pair (first list outer), strict improvement from 1e38. Source and
// weight slices both on a 16-byte boundary take whole groups of four by the
// refined reciprocal, every other element divides.
Choice model_pair(const Book* const b[2], const Problem& p, const float* x, const float* w, int k, const Lists& l,
                  float divisor) {
    const int a0 = k * l.size[0], a1 = k * l.size[1], len = p.lengths[k];
    x += p.at[k];
    w += p.at[k];
    const int groups = uintptr_t(x) % 16 == 0 && uintptr_t(w) % 16 == 0 ? len & ~3 : 0;
    Choice best{l.index[0][a0], l.index[1][a1], l.sign[0][a0], l.sign[1][a1], 1e38f};
    for (int i = a0; i < a0 + l.size[0]; ++i) {
        for (int j = a1; j < a1 + l.size[1]; ++j) {
            float e = 0;
            for (int n = 0; n < len; ++n) {
                const float c0 = b[0]->vec(l.index[0][i])[n], c1 = b[1]->vec(l.index[1][j])[n];
                const float sum = (l.sign[0][i] ? -c0 : c0) + (l.sign[1][j] ? -c1 : c1);
                const float t = x[n] - (n < groups ? sum * refined_reciprocal(divisor) : sum / divisor);
                e += w[n] * (t * t);
            }
            if (e < best.e) best = {l.index[0][i], l.index[1][j], l.sign[0][i], l.sign[1][j], e};
        }
    }
    return best;
}

// One main selection; its picks as one-entry lists, and its errors.
struct Picked : Lists {
    std::vector<float> error;
};
Picked main_select(const float* x, const float* w, const std::vector<int>& lengths, const Lists& l,
                   const Book* const b[2], float divisor) {
    const int subs = static_cast<int>(lengths.size());
    const std::vector<int> unset(subs, -1);
    Picked got{{{unset, unset}, {unset, unset}, {1, 1}}, std::vector<float>(subs, -1.0f)};
    const int *cand[2] = {l.index[0].data(), l.index[1].data()}, *flags[2] = {l.sign[0].data(), l.sign[1].data()};
    int *idx[2] = {got.index[0].data(), got.index[1].data()}, *sgn[2] = {got.sign[0].data(), got.sign[1].data()};
    const nkpsVQCodeBook_32f* books[2] = {b[0]->cb, b[1]->cb};
    const int k1 = l.size[1] == l.size[0] ? 0 : l.size[1];  // 0: the same as the first
    EXPECT_EQ(nkpsVQMainSelect_32f(x, w, lengths.data(), subs, l.size[0], cand, flags, idx, sgn, books, divisor, k1,
                                   got.error.data()),
              nkpStatusOk);
    return got;
}

struct SearchCase {
    const char* name;
    int dim, count0, count1, k0, k1;  // k0, k1: candidates per sub-vector from each book
    std::vector<int> lengths;
    int polarity;  // 0 off, 1 on, 2 alternating
    float divisor;
};

const SearchCase kCases[] = {
    {"one_candidate", 4, 9, 6, 1, 1, {4, 4, 3, 4}, 1, 2.0f},
    {"few_of_many", 8, 64, 32, 5, 4, {8, 7, 8, 1, 0, 8}, 2, 2.0f},
    {"all_but_one", 5, 12, 20, 11, 6, {5, 5, 2}, 1, 1.0f},
    {"exactly_all_second_list_longer", 6, 10, 40, 10, 9, {6, 6, 3, 0}, 2, 4.0f},
    {"more_than_all", 3, 4, 7, 7, 7, {3, 1, 3}, 1, 2.0f},
    {"single_vector_book", 4, 1, 6, 3, 2, {4, 2}, 1, 2.0f},
    {"no_polarity", 12, 40, 40, 8, 8, {12, 12, 11, 12}, 0, 2.7f},
    {"odd_sizes", 7, 13, 5, 6, 5, {7, 6, 5, 7, 3}, 2, 2.0f},
    {"long_vectors", 300, 10, 5, 3, 3, {300, 129, 128, 131, 4}, 2, 2.0f},
    {"many_pairs", 16, 64, 64, 8, 8, {16, 16, 12, 16, 15, 16, 16, 8}, 1, 2.7f},
};

// The whole search on each case: preliminary lists from both books, the
// index selection (a one-entry list, and its distance), the main selection
// over the two lists. Integer data (ties) and float data, source and
// weights never both aligned (the dividing route) or aligned wherever the
// offsets allow (both routes), code books at buffer offsets up to the one
// that needs the most alignment padding (41). Where no pair's error is
// finite (NaN, overflow) the first pair is reported with error 1e38, and
// every index stays in range.
TEST(VqSearch, MatchesTheModels) {
    const struct {
        bool integers, non_finite;
        size_t misalign, shift_x, shift_w;
    } kinds[] = {{true, false, 0, 1, 2}, {true, false, 41, 2, 3}, {false, false, 21, 1, 2}, {false, false, 0, 0, 0},
                 {false, true, 0, 0, 3}};
    int routes_differ = 0;
    for (const auto& kind : kinds) {
        for (const SearchCase& c : kCases) {
            auto data = [&](int count) {
                const size_t n = static_cast<size_t>(c.dim) * count;
                return kind.integers ? vqtest::random_ints(n, -6, 6) : vqtest::random_floats(n, -2, 2);
            };
            const Book b0(data(c.count0), c.dim, kind.misalign), b1(data(c.count1), c.dim, 12);
            const Book* books[2] = {&b0, &b1};
            Problem p(c.lengths, kind.integers, c.polarity);
            const int subs = p.subs();
            for (int k = 0; kind.non_finite && k < subs; ++k) {
                if (p.lengths[k]) p.x[p.at[k] + p.lengths[k] / 2] = k % 2 ? NAN : 3e30f;
            }
            const Floats x(p.x, kind.shift_x), w(p.w, kind.shift_w);
            const bool model = !kind.non_finite;  // NaN distances do not sort
            Lists l{{}, {}, {c.k0, c.k1}};
            std::vector<int> want_index, want_sign;
            for (int s = 0; s < 2; ++s) {
                l.index[s].assign(subs * l.size[s], -1);
                l.sign[s].assign(subs * l.size[s], -1);
                ASSERT_EQ(nkpsVQPreliminarySelect_32f(x.data, w.data, subs, p.lengths.data(), l.index[s].data(),
                                                      l.sign[s].data(), l.size[s], p.polarity.data(), books[s]->cb),
                          nkpStatusOk);
                for (int i : l.index[s]) ASSERT_TRUE(i >= 0 && i < books[s]->count) << c.name;
                if (model) model_lists(*books[s], p, l.size[s], want_index, want_sign);
                EXPECT_TRUE(!model || (l.index[s] == want_index && l.sign[s] == want_sign)) << c.name << " book " << s;
            }
            std::vector<int> index(subs, -1), sign(subs, -1);
            std::vector<float> error(subs);
            ASSERT_EQ(nkpsVQIndexSelect_32f(x.data, w.data, subs, p.lengths.data(), index.data(), sign.data(),
                                            p.polarity.data(), b0.cb, error.data()),
                      nkpStatusOk);
            if (model) model_lists(b0, p, 1, want_index, want_sign);
            for (int k = 0; k < subs; ++k) {
                ASSERT_TRUE(index[k] >= 0 && index[k] < b0.count) << c.name;
                EXPECT_TRUE(!model || (index[k] == want_index[k] && sign[k] == want_sign[k])) << c.name << " " << k;
                EXPECT_TRUE(!model || error[k] == measure(b0, index[k], p, k).d) << c.name << " " << k;
            }
            const Picked got = main_select(x.data, w.data, p.lengths, l, books, c.divisor);
            const Floats x_moved(p.x, 1);  // the same pairs on the dividing route
            for (int k = 0; k < subs; ++k) {
                const Choice want = model_pair(books, p, x.data, w.data, k, l, c.divisor);
                EXPECT_TRUE(got.index[0][k] == want.i0 && got.index[1][k] == want.i1 && got.sign[0][k] == want.s0 &&
                            got.sign[1][k] == want.s1)
                    << c.name << " " << k;
                EXPECT_EQ(got.error[k], want.e) << c.name << " " << k;
                EXPECT_TRUE(model || !p.lengths[k] || got.error[k] == 1e38f) << c.name << " " << k;
                routes_differ += model_pair(books, p, x_moved.data, w.data, k, got, c.divisor).e != got.error[k];
            }
        }
    }
    EXPECT_GT(routes_differ, 0) << "no data told the two routes apart";
}

// One to four stages: the signed vectors summed in stage order, times
// 1/stages (so two stages rebuild exactly the r of the main selection's
// dividing route with divisor 2); nothing written past the spectrum.
TEST(VqReconstruction, SumsSignedStagesAndScales) {
    const std::vector<int> lengths = {6, 6, 1, 0, 5, 6};
    const int subs = static_cast<int>(lengths.size()), total = 24;
    for (int stages = 1; stages <= 4; ++stages) {
        std::vector<std::unique_ptr<Book>> books;
        std::vector<std::vector<int>> index(stages), sign(stages);
        std::vector<const int*> ip, sp;
        std::vector<const nkpsVQCodeBook_32f*> bp;
        for (int s = 0; s < stages; ++s) {
            books.push_back(std::make_unique<Book>(vqtest::random_floats(6 * (5 + s), -4, 4), 6, 4 * s));
            for (int k = 0; k < subs; ++k) {
                index[s].push_back(vqtest::random_int(0, books[s]->count - 1));
                sign[s].push_back((k + s) % 3 ? 1 : -1);
            }
            ip.push_back(index[s].data());
            sp.push_back(sign[s].data());
            bp.push_back(books[s]->cb);
        }
        std::vector<float> dst(total + 1, 123.0f);
        ASSERT_EQ(nkpsVQReconstruction_32f(ip.data(), sp.data(), lengths.data(), subs, stages, dst.data(), bp.data()),
                  nkpStatusOk);
        for (int k = 0, at = 0; k < subs; ++k) {
            for (int n = 0; n < lengths[k]; ++n, ++at) {
                float want = 0;
                for (int s = 0; s < stages; ++s) want += sign[s][k] * books[s]->vec(index[s][k])[n];
                EXPECT_EQ(dst[at], want * (1.0f / stages)) << stages << " stages, " << k << "/" << n;
            }
        }
        EXPECT_EQ(dst[total], 123.0f) << stages;
    }
}

}  // namespace
