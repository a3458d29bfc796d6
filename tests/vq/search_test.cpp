// The code-book searches and the reconstruction against brute-force models:
// every distance and every pair error in double precision, lists by a stable
// sort. Small integer data make every single-precision sum exact, so the
// models' ties are the library's ties and lists must match entry for entry;
// float data check that what the library picks is as good as the best.
#include "vq/vq_test_util.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <numeric>
#include <xmmintrin.h>

namespace {

using vqtest::Book;
using vqtest::Floats;

// ---- models -----------------------------------------------------------------

struct Problem {
    std::vector<int> lengths;
    std::vector<float> x, w;
    std::vector<int> polarity;
    size_t offset(int k) const { return std::accumulate(lengths.begin(), lengths.begin() + k, size_t{0}); }
};

// Weighted distance of sign * c to the sub-vector.
double distance(const float* c, double sign, const float* x, const float* w, int len) {
    double d = 0;
    for (int i = 0; i < len; ++i) d += w[i] * (sign * c[i] - x[i]) * (sign * c[i] - x[i]);
    return d;
}

struct Measured {
    double d;
    int flag;
};

Measured measure(const Book& b, int c, const Problem& p, int k) {
    const float *x = p.x.data() + p.offset(k), *w = p.w.data() + p.offset(k);
    const double minus = distance(b.vec(c), 1, x, w, p.lengths[k]);
    if (!p.polarity[k]) return {minus, 0};
    const double plus = distance(b.vec(c), -1, x, w, p.lengths[k]);
    return plus < minus ? Measured{plus, 1} : Measured{minus, 0};
}

// Preliminary selection: the candCount best by a stable sort, or every
// vector in index order with the last repeated.
void model_preliminary(const Book& b, const Problem& p, int cand, std::vector<int>& index, std::vector<int>& sign) {
    const int subs = static_cast<int>(p.lengths.size());
    index.assign(static_cast<size_t>(subs) * cand, 0);
    sign = index;
    for (int k = 0; k < subs; ++k) {
        std::vector<int> order(b.count);
        std::iota(order.begin(), order.end(), 0);
        if (cand < b.count) {
            std::stable_sort(order.begin(), order.end(),
                             [&](int a, int c) { return measure(b, a, p, k).d < measure(b, c, p, k).d; });
        }
        for (int m = 0; m < cand; ++m) {
            const int c = order[std::min(m, b.count - 1)];
            index[k * cand + m] = c;
            sign[k * cand + m] = measure(b, c, p, k).flag;
        }
    }
}

struct Choice {
    int i0, i1, s0, s1;
    double e;
};

// Main selection: every pair, strict improvement from 1e38.
Choice model_main(const Book& b0, const Book& b1, const Problem& p, int k, const int* c0, const int* f0, int k0,
                  const int* c1, const int* f1, int k1, double divisor) {
    const float *x = p.x.data() + p.offset(k), *w = p.w.data() + p.offset(k);
    Choice best{c0[0], c1[0], f0[0], f1[0], 1e38};
    for (int i = 0; i < k0; ++i) {
        for (int j = 0; j < k1; ++j) {
            double e = 0;
            for (int n = 0; n < p.lengths[k]; ++n) {
                const double r =
                    ((1 - 2 * f0[i]) * double(b0.vec(c0[i])[n]) + (1 - 2 * f1[j]) * double(b1.vec(c1[j])[n])) / divisor;
                e += w[n] * (x[n] - r) * (x[n] - r);
            }
            if (e < best.e) best = {c0[i], c1[j], f0[i], f1[j], e};
        }
    }
    return best;
}

Problem make_problem(const std::vector<int>& lengths, bool integers, int polarity_mode) {
    Problem p;
    p.lengths = lengths;
    const size_t n = std::accumulate(lengths.begin(), lengths.end(), size_t{0});
    p.x = integers ? vqtest::random_ints(n, -6, 6) : vqtest::random_floats(n, -2, 2);
    p.w = integers ? vqtest::random_ints(n, 1, 3) : vqtest::random_floats(n, 0.1f, 3);
    for (size_t k = 0; k < lengths.size(); ++k) p.polarity.push_back(polarity_mode == 2 ? int(k % 2) : polarity_mode);
    return p;
}

// ---- preliminary selection ------------------------------------------------------

struct ListCase {
    const char* name;
    int dim, count, cand;
    std::vector<int> lengths;
    int polarity;  // 0 off, 1 on, 2 alternating
};

const ListCase kLists[] = {
    {"one_candidate", 4, 9, 1, {4, 4, 3, 4}, 1},
    {"few_of_many", 8, 64, 5, {8, 7, 8, 1, 0, 8}, 2},
    {"all_but_one", 5, 12, 11, {5, 5, 2}, 1},
    {"exactly_all", 6, 10, 10, {6, 6}, 2},
    {"more_than_all", 3, 4, 7, {3, 1, 3}, 1},
    {"single_vector_book", 4, 1, 3, {4, 2}, 1},
    {"no_polarity", 12, 40, 8, {12, 12, 11, 12}, 0},
    {"odd_sizes", 7, 13, 6, {7, 6, 5, 7, 3}, 2},
    {"long_vectors", 300, 10, 3, {300, 129, 128, 131, 4}, 2},
};

TEST(VqPreliminary, IntegerDataMatchTheStableSortEntryForEntry) {
    for (const ListCase& c : kLists) {
        for (size_t misalign : {0, 4, 20}) {
            Book b(vqtest::random_ints(static_cast<size_t>(c.dim) * c.count, -6, 6), c.dim, misalign);
            const Problem p = make_problem(c.lengths, true, c.polarity);
            const int subs = static_cast<int>(c.lengths.size());
            std::vector<int> index(subs * c.cand, -1), sign(subs * c.cand, -1), want_index, want_sign;
            Floats x(p.x, misalign / 4 % 4), w(p.w, 3);
            ASSERT_EQ(nkpsVQPreliminarySelect_32f(x.data, w.data, subs, p.lengths.data(), index.data(), sign.data(),
                                                  c.cand, p.polarity.data(), b.cb),
                      nkpStatusOk);
            model_preliminary(b, p, c.cand, want_index, want_sign);
            EXPECT_EQ(index, want_index) << c.name;
            EXPECT_EQ(sign, want_sign) << c.name;
        }
    }
}

// ---- index selection ----------------------------------------------------------

TEST(VqIndexSelect, MatchesThePreliminaryFirstCandidate) {
    for (const ListCase& c : kLists) {
        Book b(vqtest::random_ints(static_cast<size_t>(c.dim) * c.count, -6, 6), c.dim, 8);
        const Problem p = make_problem(c.lengths, true, c.polarity);
        const int subs = static_cast<int>(c.lengths.size());
        std::vector<int> index(subs), sign(subs), first(subs), first_sign(subs);
        std::vector<float> error(subs);
        ASSERT_EQ(nkpsVQIndexSelect_32f(p.x.data(), p.w.data(), subs, p.lengths.data(), index.data(), sign.data(),
                                        p.polarity.data(), b.cb, error.data()),
                  nkpStatusOk);
        ASSERT_EQ(nkpsVQPreliminarySelect_32f(p.x.data(), p.w.data(), subs, p.lengths.data(), first.data(),
                                              first_sign.data(), 1, p.polarity.data(), b.cb),
                  nkpStatusOk);
        EXPECT_EQ(index, first) << c.name;
        EXPECT_EQ(sign, first_sign) << c.name;
        for (int k = 0; k < subs; ++k) EXPECT_EQ(error[k], measure(b, index[k], p, k).d) << c.name << " " << k;
    }
}

// ---- main selection ------------------------------------------------------------

struct PairCase {
    const char* name;
    int dim, count0, count1, k0, k1;  // k1 0: same as k0
    std::vector<int> lengths;
    float divisor;
};

const PairCase kPairs[] = {
    {"conjugate_average", 8, 32, 32, 4, 0, {8, 8, 7, 8, 5}, 2.0f},
    {"plain_sum", 5, 16, 20, 3, 6, {5, 5, 5}, 1.0f},
    {"one_by_one", 4, 6, 6, 1, 1, {4, 4}, 2.0f},
    {"second_list_longer", 6, 10, 40, 2, 9, {6, 3, 6, 0}, 4.0f},
    {"whole_books", 3, 5, 7, 5, 7, {3, 3}, 2.0f},
    {"long_vectors", 260, 4, 5, 2, 3, {260, 129, 131}, 2.0f},
};

struct Lists {
    std::vector<int> index[2], sign[2];
};

Lists random_lists(const Book& b0, const Book& b1, int subs, int k0, int k1) {
    Lists l;
    for (int b = 0; b < 2; ++b) {
        const int n = subs * (b ? k1 : k0), count = (b ? b1 : b0).count;
        l.index[b] = std::vector<int>(n);
        for (int& v : l.index[b]) v = vqtest::random_ints(1, 0, count - 1)[0];
        l.sign[b] = std::vector<int>(n);
        for (int& v : l.sign[b]) v = vqtest::random_ints(1, 0, 1)[0];
    }
    return l;
}

// One call of the main selection; its outputs.
struct Picked {
    std::vector<int> index[2], sign[2];
    std::vector<float> error;
};

Picked main_select(const float* x, const float* w, const std::vector<int>& lengths, const Lists& l, int k0,
                   int k1_arg, const Book& b0, const Book& b1, float divisor) {
    const int subs = static_cast<int>(lengths.size());
    Picked p;
    for (int b = 0; b < 2; ++b) {
        p.index[b].assign(subs, -1);
        p.sign[b].assign(subs, -1);
    }
    p.error.assign(subs, -1.0f);
    const int* cand[2] = {l.index[0].data(), l.index[1].data()};
    const int* flags[2] = {l.sign[0].data(), l.sign[1].data()};
    int* idx[2] = {p.index[0].data(), p.index[1].data()};
    int* sgn[2] = {p.sign[0].data(), p.sign[1].data()};
    const nkpsVQCodeBook_32f* books[2] = {b0.cb, b1.cb};
    EXPECT_EQ(nkpsVQMainSelect_32f(x, w, lengths.data(), subs, k0, cand, flags, idx, sgn, books, divisor, k1_arg,
                                   p.error.data()),
              nkpStatusOk);
    return p;
}

// Integer data on the dividing route (source and weights never both
// aligned) are exact: the winner, ties included, is the model's, and so is
// its error.
TEST(VqMainSelect, IntegerDataPickTheModelsFirstBestPair) {
    for (const PairCase& c : kPairs) {
        for (int repeat = 0; repeat < 4; ++repeat) {
            Book b0(vqtest::random_ints(static_cast<size_t>(c.dim) * c.count0, -3, 3), c.dim);
            Book b1(vqtest::random_ints(static_cast<size_t>(c.dim) * c.count1, -3, 3), c.dim, 12);
            const Problem p = make_problem(c.lengths, true, 0);
            const int subs = static_cast<int>(c.lengths.size()), k1 = c.k1 ? c.k1 : c.k0;
            const Lists l = random_lists(b0, b1, subs, c.k0, k1);
            Floats x(p.x, 1), w(p.w, 2);
            const Picked got = main_select(x.data, w.data, c.lengths, l, c.k0, c.k1, b0, b1, c.divisor);
            for (int k = 0; k < subs; ++k) {
                const Choice want = model_main(b0, b1, p, k, &l.index[0][k * c.k0], &l.sign[0][k * c.k0], c.k0,
                                               &l.index[1][k * k1], &l.sign[1][k * k1], k1, c.divisor);
                EXPECT_EQ(got.index[0][k], want.i0) << c.name << " " << k;
                EXPECT_EQ(got.index[1][k], want.i1) << c.name << " " << k;
                EXPECT_EQ(got.sign[0][k], want.s0) << c.name << " " << k;
                EXPECT_EQ(got.sign[1][k], want.s1) << c.name << " " << k;
                EXPECT_EQ(got.error[k], want.e) << c.name << " " << k;
            }
        }
    }
}

// Float data on both routes: the chosen pair is as good as the best pair
// within rounding, and the reported error is its error.
TEST(VqMainSelect, FloatDataPickAPairAsGoodAsTheBest) {
    Book b0(vqtest::random_floats(16 * 64, -2, 2), 16), b1(vqtest::random_floats(16 * 64, -2, 2), 16);
    const std::vector<int> lengths = {16, 16, 12, 16, 15, 16, 16, 8};
    const Problem p = make_problem(lengths, false, 1);
    const int subs = static_cast<int>(lengths.size()), cand = 8;
    const Lists l = random_lists(b0, b1, subs, cand, cand);
    for (size_t shift : {0, 2}) {  // 0: aligned slices (reciprocal route) wherever the offsets allow
        Floats x(p.x, shift), w(p.w, shift);
        const Picked got = main_select(x.data, w.data, lengths, l, cand, 0, b0, b1, 2.0f);
        for (int k = 0; k < subs; ++k) {
            const Choice best = model_main(b0, b1, p, k, &l.index[0][k * cand], &l.sign[0][k * cand], cand,
                                           &l.index[1][k * cand], &l.sign[1][k * cand], cand, 2.0);
            const Choice mine = model_main(b0, b1, p, k, &got.index[0][k], &got.sign[0][k], 1, &got.index[1][k],
                                           &got.sign[1][k], 1, 2.0);
            EXPECT_LE(mine.e, best.e * (1 + 1e-5) + 1e-6) << k;
            EXPECT_NEAR(got.error[k], mine.e, mine.e * 1e-5 + 1e-6) << k;
        }
    }
}

// The two routes that form r: 16-byte-aligned source and weights take whole
// groups of four elements by the refined reciprocal of the divisor; other
// elements divide. One weighted element makes the reported error r * r.
float refined_reciprocal(float d) {
    const __m128 dv = _mm_set_ss(d), a = _mm_rcp_ss(dv);
    return _mm_cvtss_f32(_mm_sub_ss(_mm_add_ss(a, a), _mm_mul_ss(dv, _mm_mul_ss(a, a))));
}

TEST(VqMainSelect, AlignedGroupsOfFourMultiplyByTheRefinedReciprocal) {
    const struct {
        const char* name;
        int len, element;  // the one weighted, non-zero element
        size_t shift;      // floats past a 16-byte boundary
        bool reciprocal;
    } routes[] = {
        {"aligned_group", 8, 5, 0, true},
        {"aligned_tail", 7, 5, 0, false},
        {"unaligned", 8, 5, 1, false},
        {"aligned_len4", 4, 0, 0, true},
    };
    int differing = 0;
    for (int n = 1; n <= 60; ++n) {
        const float divisor = 1.0f + 0.37f * n, v = 1.0f + 0.11f * n;
        for (const auto& r : routes) {
            std::vector<float> c0(r.len, 0.0f), wv(r.len, 0.0f);
            c0[r.element] = v;
            wv[r.element] = 1.0f;
            Book b0(c0, r.len), b1(std::vector<float>(r.len, 0.0f), r.len);
            Floats x(std::vector<float>(r.len, 0.0f), r.shift), w(wv, r.shift);
            const Lists l{{{0}, {0}}, {{0}, {0}}};
            const Picked got = main_select(x.data, w.data, {r.len}, l, 1, 0, b0, b1, divisor);
            const float q = r.reciprocal ? v * refined_reciprocal(divisor) : v / divisor;
            EXPECT_EQ(got.error[0], q * q) << r.name << " divisor " << divisor;
        }
        differing += v * refined_reciprocal(divisor) != v / divisor;
    }
    EXPECT_GT(differing, 0) << "no divisor told the routes apart";
}

// NaN or overflowing data never beat the 1e38 start: the first pair is
// reported with error 1e38. The other searches stay in range.
TEST(VqMainSelect, NoFiniteErrorReportsTheFirstPair) {
    Book b0(vqtest::random_ints(4 * 5, -3, 3), 4), b1(vqtest::random_ints(4 * 5, -3, 3), 4);
    const Lists l{{{3, 1, 2}, {4, 0, 2}}, {{1, 0, 0}, {0, 1, 1}}};
    const std::vector<float> w = {1, 1, 1, 1};
    for (const std::vector<float>& in : {std::vector<float>{NAN, 1, 2, 3}, std::vector<float>{3e30f, 0, 0, 0}}) {
        const Picked got = main_select(in.data(), w.data(), {4}, l, 3, 0, b0, b1, 2.0f);
        EXPECT_EQ(got.index[0][0], 3);
        EXPECT_EQ(got.index[1][0], 4);
        EXPECT_EQ(got.sign[0][0], 1);
        EXPECT_EQ(got.sign[1][0], 0);
        EXPECT_EQ(got.error[0], 1e38f);
        const int len = 4, polarity = 1;
        int index[2], sign[2];
        EXPECT_EQ(nkpsVQIndexSelect_32f(in.data(), w.data(), 1, &len, index, sign, &polarity, b0.cb, nullptr), nkpStatusOk);
        EXPECT_EQ(nkpsVQPreliminarySelect_32f(in.data(), w.data(), 1, &len, index, sign, 2, &polarity, b0.cb), nkpStatusOk);
        EXPECT_TRUE(index[0] >= 0 && index[0] < 5 && index[1] >= 0 && index[1] < 5);
    }
}

// ---- the whole search and the reconstruction --------------------------------

// Preliminary lists from both books, the main selection on the dividing
// route with divisor 2, then a two-stage reconstruction: the reported error
// is exactly the weighted error of the reconstructed spectrum.
TEST(VqSearch, ReconstructionReproducesTheMeasuredError) {
    const int dim = 16, subs = 24, cand = 6;
    Book b0(vqtest::random_floats(dim * 128, -1.5f, 1.5f), dim), b1(vqtest::random_floats(dim * 128, -1.5f, 1.5f), dim, 40);
    std::vector<int> lengths(subs, dim);
    lengths[3] = 15;
    lengths[10] = 9;
    const Problem p = make_problem(lengths, false, 1);
    Floats x(p.x, 1), w(p.w, 2);  // never both slices aligned: the dividing route
    Lists l;
    for (int b = 0; b < 2; ++b) {
        l.index[b].resize(subs * cand);
        l.sign[b].resize(subs * cand);
        ASSERT_EQ(nkpsVQPreliminarySelect_32f(x.data, w.data, subs, lengths.data(), l.index[b].data(),
                                              l.sign[b].data(), cand, p.polarity.data(), b ? b1.cb : b0.cb),
                  nkpStatusOk);
    }
    const Picked got = main_select(x.data, w.data, lengths, l, cand, 0, b0, b1, 2.0f);
    std::vector<int> factor[2];
    for (int b = 0; b < 2; ++b) {
        for (int flag : got.sign[b]) factor[b].push_back(1 - 2 * flag);
    }
    std::vector<float> rebuilt(p.x.size(), 7.0f);
    const int* indices[2] = {got.index[0].data(), got.index[1].data()};
    const int* factors[2] = {factor[0].data(), factor[1].data()};
    const nkpsVQCodeBook_32f* books[2] = {b0.cb, b1.cb};
    ASSERT_EQ(nkpsVQReconstruction_32f(indices, factors, lengths.data(), subs, 2, rebuilt.data(), books), nkpStatusOk);
    size_t at = 0;
    for (int k = 0; k < subs; ++k) {
        float e = 0.0f;  // summed element by element in single precision
        for (int n = 0; n < lengths[k]; ++n, ++at) {
            const float t = x.data[at] - rebuilt[at];
            e += w.data[at] * (t * t);
        }
        EXPECT_EQ(e, got.error[k]) << k;
    }
}

struct StageCase {
    const char* name;
    int stages;
    std::vector<int> lengths;
};

const StageCase kStages[] = {
    {"one_stage", 1, {6, 6, 1, 0, 6}},
    {"two_stages", 2, {6, 5, 6}},
    {"three_stages", 3, {6, 6, 6, 2}},
    {"four_stages", 4, {3, 6}},
};

TEST(VqReconstruction, SumsSignedStagesAndScales) {
    for (const StageCase& c : kStages) {
        std::vector<std::unique_ptr<Book>> books;
        for (int s = 0; s < c.stages; ++s) {
            books.push_back(std::make_unique<Book>(vqtest::random_floats(6 * (5 + s), -4, 4), 6, 4 * s));
        }
        const int subs = static_cast<int>(c.lengths.size());
        std::vector<std::vector<int>> index(c.stages), sign(c.stages);
        std::vector<const int*> ip, sp;
        std::vector<const nkpsVQCodeBook_32f*> bp;
        for (int s = 0; s < c.stages; ++s) {
            for (int k = 0; k < subs; ++k) {
                index[s].push_back(vqtest::random_ints(1, 0, books[s]->count - 1)[0]);
                sign[s].push_back((k + s) % 3 ? 1 : -1);
            }
            ip.push_back(index[s].data());
            sp.push_back(sign[s].data());
            bp.push_back(books[s]->cb);
        }
        const size_t total = std::accumulate(c.lengths.begin(), c.lengths.end(), size_t{0});
        std::vector<float> dst(total + 1, 123.0f);
        ASSERT_EQ(nkpsVQReconstruction_32f(ip.data(), sp.data(), c.lengths.data(), subs, c.stages, dst.data() , bp.data()),
                  nkpStatusOk);
        size_t at = 0;
        for (int k = 0; k < subs; ++k) {
            for (int n = 0; n < c.lengths[k]; ++n, ++at) {
                double want = 0;
                for (int s = 0; s < c.stages; ++s) want += sign[s][k] * double(books[s]->vec(index[s][k])[n]);
                want /= c.stages;
                EXPECT_NEAR(dst[at], want, 1e-6 * (1 + std::abs(want))) << c.name << " " << k << "/" << n;
            }
        }
        EXPECT_EQ(dst[total], 123.0f) << c.name;
    }
}

}  // namespace
