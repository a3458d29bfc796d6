// Vector quantisation and the block FIR filter, each next to a plain loop
// doing the same job in the same precision (compiled here with the
// library's flags). No Debian peer exports either job.
//
// The VQ search is a conjugate-structure encoder's frame: 1024 spectral
// lines in 64 sub-vectors of 16, two code books of `count` vectors,
// 8 candidates per book with polarity: two preliminary selections and one
// main selection (divisor 2).
#include "frame/exports.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <vector>

namespace {

std::vector<float> random_floats(size_t n, float lo, float hi, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> d(lo, hi);
    std::vector<float> v(n);
    for (float& x : v) x = d(rng);
    return v;
}

constexpr int kDim = 16, kSubs = 64, kCand = 8;

struct Search {
    int count;
    std::vector<float> x, w, v0, v1;
    std::vector<int> lengths, polarity;
    nkpsVQCodeBook_32f* cb[2] = {};
    std::vector<int> cand_i[2], cand_s[2], idx[2], sgn[2];
    std::vector<float> error;
    explicit Search(int count_)
        : count(count_), x(random_floats(kDim * kSubs, -2, 2, 1)), w(random_floats(kDim * kSubs, 0.1f, 3, 2)),
          v0(random_floats(kDim * count_, -2, 2, 3)), v1(random_floats(kDim * count_, -2, 2, 4)),
          lengths(kSubs, kDim), polarity(kSubs, 1), error(kSubs) {
        nkpsVQCodeBookInitAlloc_32f(v0.data(), &cb[0], kDim, count);
        nkpsVQCodeBookInitAlloc_32f(v1.data(), &cb[1], kDim, count);
        for (int b = 0; b < 2; ++b) {
            cand_i[b].resize(kSubs * kCand);
            cand_s[b].resize(kSubs * kCand);
            idx[b].resize(kSubs);
            sgn[b].resize(kSubs);
        }
    }
    ~Search() {
        nkpsVQCodeBookFree_32f(cb[0]);
        nkpsVQCodeBookFree_32f(cb[1]);
    }
};

void BM_VQ_FullSearch(benchmark::State& state) {
    Search s(static_cast<int>(state.range(0)));
    const int* ci[2] = {s.cand_i[0].data(), s.cand_i[1].data()};
    const int* cs[2] = {s.cand_s[0].data(), s.cand_s[1].data()};
    int* oi[2] = {s.idx[0].data(), s.idx[1].data()};
    int* os[2] = {s.sgn[0].data(), s.sgn[1].data()};
    const nkpsVQCodeBook_32f* books[2] = {s.cb[0], s.cb[1]};
    for (auto _ : state) {
        for (int b = 0; b < 2; ++b) {
            nkpsVQPreliminarySelect_32f(s.x.data(), s.w.data(), kSubs, s.lengths.data(), s.cand_i[b].data(),
                                        s.cand_s[b].data(), kCand, s.polarity.data(), s.cb[b]);
        }
        nkpsVQMainSelect_32f(s.x.data(), s.w.data(), s.lengths.data(), kSubs, kCand, ci, cs, oi, os, books, 2.0f, 0,
                             s.error.data());
        benchmark::DoNotOptimize(s.idx[0].data());
    }
    state.SetItemsProcessed(state.iterations() * kSubs);
}
BENCHMARK(BM_VQ_FullSearch)->Arg(64)->Arg(128)->Arg(512)->ArgName("count");

// The same search as plain loops: distances per vector, insertion into a
// sorted list, then every pair with a division per element.
void plain_preliminary(Search& s) {
    for (int b = 0; b < 2; ++b) {
        const std::vector<float>& v = b ? s.v1 : s.v0;
        for (int k = 0; k < kSubs; ++k) {
            const float* x = s.x.data() + k * kDim;
            const float* w = s.w.data() + k * kDim;
            float best_d[kCand];
            int best_i[kCand], best_s[kCand], filled = 0;
            for (int c = 0; c < s.count; ++c) {
                float dm = 0, dp = 0;
                for (int i = 0; i < kDim; ++i) {
                    const float tm = v[c * kDim + i] - x[i], tp = v[c * kDim + i] + x[i];
                    dm += w[i] * (tm * tm);
                    dp += w[i] * (tp * tp);
                }
                const int flag = dm > dp;
                const float d = flag ? dp : dm;
                if (filled == kCand && !(d < best_d[kCand - 1])) continue;
                int p = std::min(filled, kCand - 1);
                while (p > 0 && best_d[p - 1] > d) {
                    best_d[p] = best_d[p - 1];
                    best_i[p] = best_i[p - 1];
                    best_s[p] = best_s[p - 1];
                    --p;
                }
                best_d[p] = d;
                best_i[p] = c;
                best_s[p] = flag;
                filled = std::min(filled + 1, kCand);
            }
            std::copy(best_i, best_i + kCand, s.cand_i[b].begin() + k * kCand);
            std::copy(best_s, best_s + kCand, s.cand_s[b].begin() + k * kCand);
        }
    }
}

void plain_main(Search& s) {
    for (int k = 0; k < kSubs; ++k) {
        const float* x = s.x.data() + k * kDim;
        const float* w = s.w.data() + k * kDim;
        float best = 1e38f;
        for (int i = 0; i < kCand; ++i) {
            const float* c0 = s.v0.data() + s.cand_i[0][k * kCand + i] * kDim;
            const float s0 = s.cand_s[0][k * kCand + i] ? -1.0f : 1.0f;
            for (int j = 0; j < kCand; ++j) {
                const float* c1 = s.v1.data() + s.cand_i[1][k * kCand + j] * kDim;
                const float s1 = s.cand_s[1][k * kCand + j] ? -1.0f : 1.0f;
                float e = 0;
                for (int n = 0; n < kDim; ++n) {
                    const float t = x[n] - (s0 * c0[n] + s1 * c1[n]) / 2.0f;
                    e += w[n] * (t * t);
                }
                if (e < best) {
                    best = e;
                    s.idx[0][k] = s.cand_i[0][k * kCand + i];
                    s.idx[1][k] = s.cand_i[1][k * kCand + j];
                }
            }
        }
        s.error[k] = best;
    }
}

void plain_search(Search& s) {
    plain_preliminary(s);
    plain_main(s);
}

void BM_VQ_FullSearch_PlainLoop(benchmark::State& state) {
    Search s(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        plain_search(s);
        benchmark::DoNotOptimize(s.idx[0].data());
    }
    state.SetItemsProcessed(state.iterations() * kSubs);
}
BENCHMARK(BM_VQ_FullSearch_PlainLoop)->Arg(64)->Arg(128)->Arg(512)->ArgName("count");

// The two stages alone (count 128).
void BM_VQ_Preliminary(benchmark::State& state) {
    Search s(128);
    for (auto _ : state) {
        for (int b = 0; b < 2; ++b) {
            nkpsVQPreliminarySelect_32f(s.x.data(), s.w.data(), kSubs, s.lengths.data(), s.cand_i[b].data(),
                                        s.cand_s[b].data(), kCand, s.polarity.data(), s.cb[b]);
        }
        benchmark::DoNotOptimize(s.cand_i[0].data());
    }
}
BENCHMARK(BM_VQ_Preliminary);

void BM_VQ_Preliminary_PlainLoop(benchmark::State& state) {
    Search s(128);
    for (auto _ : state) {
        plain_preliminary(s);
        benchmark::DoNotOptimize(s.cand_i[0].data());
    }
}
BENCHMARK(BM_VQ_Preliminary_PlainLoop);

void BM_VQ_Main(benchmark::State& state) {
    Search s(128);
    plain_preliminary(s);
    const int* ci[2] = {s.cand_i[0].data(), s.cand_i[1].data()};
    const int* cs[2] = {s.cand_s[0].data(), s.cand_s[1].data()};
    int* oi[2] = {s.idx[0].data(), s.idx[1].data()};
    int* os[2] = {s.sgn[0].data(), s.sgn[1].data()};
    const nkpsVQCodeBook_32f* books[2] = {s.cb[0], s.cb[1]};
    // range(0): 0 source and weights aligned (reciprocal route), 1 shifted by one float (dividing route).
    std::vector<float> x(s.x.size() + 4), w(s.w.size() + 4);
    const int shift = static_cast<int>(state.range(0));
    std::copy(s.x.begin(), s.x.end(), x.begin() + shift);
    std::copy(s.w.begin(), s.w.end(), w.begin() + shift);
    for (auto _ : state) {
        nkpsVQMainSelect_32f(x.data() + shift, w.data() + shift, s.lengths.data(), kSubs, kCand, ci, cs, oi, os, books,
                             2.0f, 0, s.error.data());
        benchmark::DoNotOptimize(s.idx[0].data());
    }
}
BENCHMARK(BM_VQ_Main)->Arg(0)->Arg(1)->ArgName("shift");

void BM_VQ_Main_PlainLoop(benchmark::State& state) {
    Search s(128);
    plain_preliminary(s);
    for (auto _ : state) {
        plain_main(s);
        benchmark::DoNotOptimize(s.idx[0].data());
    }
}
BENCHMARK(BM_VQ_Main_PlainLoop);

// ---- block FIR ---------------------------------------------------------------

void BM_FIRBlock(benchmark::State& state) {
    const int taps = static_cast<int>(state.range(0)), len = static_cast<int>(state.range(1));
    nkpsFIRBlockState_32f* st = nullptr;
    nkpsFIRBlockInitAlloc_32f(&st, taps, len);
    const std::vector<float> t = random_floats(taps + 4, -1, 1, 5), in = random_floats(len + 4, -1, 1, 6);
    std::vector<float> out(len + 4);
    for (auto _ : state) {
        nkpsFIRBlockOne_32f(in.data(), out.data(), st, t.data());
        benchmark::DoNotOptimize(out.data());
    }
    nkpsFIRBlockFree_32f(st);
    state.SetItemsProcessed(state.iterations() * len);
}

// The plain loop keeps the same ring of blocks and sums in the same order.
void BM_FIRBlock_PlainLoop(benchmark::State& state) {
    const int taps = static_cast<int>(state.range(0)), len = static_cast<int>(state.range(1));
    std::vector<float> ring(static_cast<size_t>(taps) * len);
    int newest = 0;
    const std::vector<float> t = random_floats(taps + 4, -1, 1, 5), in = random_floats(len + 4, -1, 1, 6);
    std::vector<float> out(len + 4);
    for (auto _ : state) {
        newest = (newest + 1) % taps;
        std::copy(in.begin(), in.begin() + len, ring.begin() + newest * len);
        // One pass per tap over the block (the compiler vectorises these).
        const float* cur = ring.data() + newest * len;
        for (int i = 0; i < len; ++i) out[i] = t[0] * cur[i];
        for (int j = 0; j + 1 < taps; ++j) {
            const float* old = ring.data() + ((newest + 1 + j) % taps) * len;
            const float tap = t[taps - 1 - j];
            for (int i = 0; i < len; ++i) out[i] += tap * old[i];
        }
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(state.iterations() * len);
}

void fir_args(benchmark::internal::Benchmark* b) {
    for (int taps : {2, 4, 8}) {
        for (int len : {64, 256, 1024}) b->Args({taps, len});
    }
    b->ArgNames({"taps", "len"});
}
BENCHMARK(BM_FIRBlock)->Apply(fir_args);
BENCHMARK(BM_FIRBlock_PlainLoop)->Apply(fir_args);

}  // namespace
