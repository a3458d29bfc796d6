// The VLC engine per symbol: AAC spectral book 11 as a pair book with
// escapes, MP3 table 24 with linbits beside the library's own MP3 Huffman
// decoder on the same granule, the AAC scale-factor book with the plain
// block decoder, and encoding and bit counting. Both code paths run through
// their table entries (suffix /0 and /1).
//
//   build/bench/nkpac_vlc_bench --benchmark_repetitions=5 --benchmark_report_aggregates_only
//
// Instructions per symbol (callgrind, counted inside the measured function):
//   bench/vlc_instructions.sh build
#include "vlc/code_books.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <queue>

namespace {

using namespace vlctest;
using nkptest::BitWriter;

Book standard_book(const std::string& name) {
    for (const Book& b : standard_books())
        if (b.name == name) return b;
    std::abort();
}

// Magnitudes with a geometric distribution of the given mean.
int magnitude(std::mt19937& rng, double mean) {
    std::exponential_distribution<double> d(1.0 / mean);
    return std::min(8191, static_cast<int>(d(rng)));
}

std::vector<uint8_t> with_slack(const BitWriter& w) {
    std::vector<uint8_t> bytes = w.bytes();
    bytes.resize(bytes.size() + 8, 0);
    return bytes;
}

void per_symbol(benchmark::State& state, int64_t symbols) {
    state.counters["ns_per_symbol"] = benchmark::Counter(static_cast<double>(symbols) * state.iterations() * 1e-9,
                                                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

// ---- AAC book 11: 512 pairs (one long window), escapes above 15 ----------
struct AacData {
    Book book = standard_book("aac_11");
    std::vector<uint8_t> stream;
    int pairs = 512;
    AacData() {
        std::mt19937 rng(1);
        BitWriter w;
        for (int i = 0; i < pairs; ++i) {
            std::vector<int> v{magnitude(rng, 5.0), magnitude(rng, 5.0)};
            const int32_t packed = (std::min(v[0], 16) << 5) | std::min(v[1], 16);
            for (int& x : v)
                if (rng() & 1) x = -x;
            put_code(w, book, book.entries[static_cast<size_t>(
                                   std::find_if(book.entries.begin(), book.entries.end(),
                                                [&](const Entry& e) { return e.value == packed; }) -
                                   book.entries.begin())],
                      v);
        }
        stream = with_slack(w);
    }
};

void BM_AacBook11TupleEsc(benchmark::State& state) {
    static const AacData data;
    const int path = static_cast<int>(state.range(0));
    Decoder d(data.book, {static_cast<int32_t>(state.range(1)), 12}, 0, path);
    std::vector<nkp16s> out(2 * data.pairs);
    for (auto _ : state) {
        nkp8u* p = const_cast<nkp8u*>(data.stream.data());
        int offset = 0;
        benchmark::DoNotOptimize(
            nkpt_nkpsVLCDecodeUTupleEscBlock_AAC_1u16s[path](&p, &offset, out.data(), data.pairs, d.spec));
        benchmark::ClobberMemory();
    }
    per_symbol(state, data.pairs);
}
BENCHMARK(BM_AacBook11TupleEsc)->ArgsProduct({{0, 1}, {8, 10}});

// ---- MP3 table 24, linbits 4: one granule of 288 pairs -------------------
struct Mp3Data {
    Book book = standard_book("mp3_24");
    std::vector<uint8_t> stream;
    int bits = 0;
    Mp3Data() {
        std::mt19937 rng(2);
        BitWriter w;
        for (int i = 0; i < 288; ++i) {
            std::vector<int> v{std::min(30, magnitude(rng, 6.0)), std::min(30, magnitude(rng, 6.0))};
            const int32_t packed = (std::min(v[0], 15) << 4) | std::min(v[1], 15);
            for (int& x : v)
                if (rng() & 1) x = -x;
            put_code(w, book, book.entries[static_cast<size_t>(packed)], v);
        }
        bits = static_cast<int>(w.bit_count());
        stream = with_slack(w);
    }
};

void BM_Mp3Table24TupleEsc(benchmark::State& state) {
    static const Mp3Data data;
    const int path = static_cast<int>(state.range(0));
    Decoder d(data.book, {static_cast<int32_t>(state.range(1)), 12}, 0, path);
    std::vector<nkp16s> out(576);
    for (auto _ : state) {
        nkp8u* p = const_cast<nkp8u*>(data.stream.data());
        int offset = 0;
        benchmark::DoNotOptimize(
            nkpt_nkpsVLCDecodeUTupleEscBlock_MP3_1u16s[path](&p, &offset, 4, out.data(), 288, d.spec));
        benchmark::ClobberMemory();
    }
    per_symbol(state, 288);
}
BENCHMARK(BM_Mp3Table24TupleEsc)->ArgsProduct({{0, 1}, {8, 12}});

// The same granule through the dedicated MP3 decoder (big values only).
void BM_Mp3Table24HuffmanDecodeMp3(benchmark::State& state) {
    static const Mp3Data data;
    nkpMP3FrameHeader h{};
    h.id = 1, h.layer = 1, h.mode = 1;
    nkpMP3SideInfo si{};
    si.part23Length = data.bits, si.bigValues = 288, si.region0Count = 7, si.region1Count = 7;
    si.tableSelect[0] = si.tableSelect[1] = si.tableSelect[2] = 24;
    std::vector<nkp32s> out(576);
    int bound = 0;
    for (auto _ : state) {
        nkp8u* p = const_cast<nkp8u*>(data.stream.data());
        int offset = 0;
        benchmark::DoNotOptimize(nkpsHuffmanDecode_MP3_1u32s(&p, &offset, out.data(), &bound, &si, &h, data.bits));
        benchmark::ClobberMemory();
    }
    per_symbol(state, 288);
}
BENCHMARK(BM_Mp3Table24HuffmanDecodeMp3);

// ---- AAC scale-factor book: 1024 plain values ----------------------------
struct ScaleFactorData {
    Book book = standard_book("aac_sf");
    std::vector<nkp16s> values;
    std::vector<uint8_t> stream;
    ScaleFactorData() {
        std::mt19937 rng(3);
        BitWriter w;
        for (int i = 0; i < 1024; ++i) {
            int v = std::min(60, magnitude(rng, 2.0));
            if (rng() & 1) v = -v;
            values.push_back(static_cast<nkp16s>(v));
            const Entry& e = book.entries[static_cast<size_t>(v + 60)];
            w.put(static_cast<uint32_t>(e.code), e.length);
        }
        stream = with_slack(w);
    }
};

void BM_ScaleFactorDecodeBlock(benchmark::State& state) {
    static const ScaleFactorData data;
    const int path = static_cast<int>(state.range(0));
    Decoder d(data.book, {8, 8, 8}, 0, path);
    std::vector<nkp16s> out(data.values.size());
    for (auto _ : state) {
        nkp8u* p = const_cast<nkp8u*>(data.stream.data());
        int offset = 0;
        benchmark::DoNotOptimize(
            nkpt_nkpsVLCDecodeBlock_1u16s[path](&p, &offset, out.data(), static_cast<int>(out.size()), d.spec));
        benchmark::ClobberMemory();
    }
    per_symbol(state, static_cast<int64_t>(out.size()));
}
BENCHMARK(BM_ScaleFactorDecodeBlock)->Arg(0)->Arg(1);

void BM_ScaleFactorEncodeBlock(benchmark::State& state) {
    static const ScaleFactorData data;
    const int path = static_cast<int>(state.range(0));
    Encoder e(data.book.entries, 0, path);
    std::vector<uint8_t> out(data.stream.size() + 16);
    const int n = static_cast<int>(data.values.size());
    for (auto _ : state) {
        nkp8u* p = out.data();
        int offset = 0;
        benchmark::DoNotOptimize(nkpt_nkpsVLCEncodeBlock_16s1u[path](data.values.data(), n, &p, &offset, e.spec));
        benchmark::ClobberMemory();
    }
    per_symbol(state, n);
}
BENCHMARK(BM_ScaleFactorEncodeBlock)->Arg(0)->Arg(1);

void BM_ScaleFactorCountBits(benchmark::State& state) {
    static const ScaleFactorData data;
    const int path = static_cast<int>(state.range(0));
    Encoder e(data.book.entries, 0, path);
    const int n = static_cast<int>(data.values.size());
    nkp32s bits = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(nkpt_nkpsVLCCountBits_16s32s[path](data.values.data(), n, &bits, e.spec));
        benchmark::ClobberMemory();
    }
    per_symbol(state, n);
}
BENCHMARK(BM_ScaleFactorCountBits)->Arg(0)->Arg(1);

// ---- Escape encoding: a Huffman code for -16..16 (AAC) or -15..15 (MP3) --
// built from the same geometric distribution as the values.
std::vector<Entry> huffman_book(int top, double mean) {
    using Node = std::pair<double, int>;
    std::vector<int> parent(2 * (2 * top + 1), -1);
    std::priority_queue<Node, std::vector<Node>, std::greater<Node>> queue;
    const int n = 2 * top + 1;
    for (int v = -top; v <= top; ++v) {
        const int m = std::abs(v);
        double p = std::exp(-m / mean) * (m == top ? 4.0 : 1.0);  // the escape value takes the tail
        queue.push({p, v + top});
    }
    int next = n;
    while (queue.size() > 1) {
        const Node a = queue.top();
        queue.pop();
        const Node b = queue.top();
        queue.pop();
        parent[static_cast<size_t>(a.second)] = parent[static_cast<size_t>(b.second)] = next;
        queue.push({a.first + b.first, next++});
    }
    // Lengths, then canonical codes.
    std::vector<std::pair<int, int>> lengths;  // (length, value)
    for (int i = 0; i < n; ++i) {
        int len = 0;
        for (int x = i; parent[static_cast<size_t>(x)] >= 0; x = parent[static_cast<size_t>(x)]) ++len;
        lengths.push_back({len, i - top});
    }
    std::sort(lengths.begin(), lengths.end());
    std::vector<Entry> book;
    uint32_t code = 0;
    int prev = lengths[0].first;
    for (const auto& [len, value] : lengths) {
        code <<= (len - prev);
        prev = len;
        book.push_back({value, static_cast<int32_t>(code++), len});
    }
    return book;
}

struct EscapeData {
    std::vector<Entry> book;
    std::vector<nkp16s> values;
    explicit EscapeData(bool aac) : book(huffman_book(aac ? 16 : 15, 5.0)) {
        std::mt19937 rng(4);
        for (int i = 0; i < 1024; ++i) {
            int v = std::min(aac ? 8191 : 30, magnitude(rng, 5.0));
            values.push_back(static_cast<nkp16s>(rng() & 1 ? -v : v));
        }
    }
};

void BM_EscapeEncode(benchmark::State& state) {
    const bool aac = state.range(0) == 0;
    static const EscapeData aac_data(true), mp3_data(false);
    const EscapeData& data = aac ? aac_data : mp3_data;
    Encoder e(data.book, 0, 0);
    std::vector<uint8_t> out(data.values.size() * 8);
    const int n = static_cast<int>(data.values.size());
    for (auto _ : state) {
        nkp8u* p = out.data();
        int offset = 0;
        benchmark::DoNotOptimize(aac ? nkpsVLCEncodeEscBlock_AAC_16s1u(data.values.data(), n, &p, &offset, e.spec)
                                     : nkpsVLCEncodeEscBlock_MP3_16s1u(data.values.data(), n, 4, &p, &offset, e.spec));
        benchmark::ClobberMemory();
    }
    per_symbol(state, n);
    state.SetLabel(aac ? "aac" : "mp3");
}
BENCHMARK(BM_EscapeEncode)->Arg(0)->Arg(1);

void BM_EscapeCountBits(benchmark::State& state) {
    const bool aac = state.range(0) == 0;
    static const EscapeData aac_data(true), mp3_data(false);
    const EscapeData& data = aac ? aac_data : mp3_data;
    Encoder e(data.book, 0, 0);
    const int n = static_cast<int>(data.values.size());
    nkp32s bits = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(aac ? nkpsVLCCountEscBits_AAC_16s32s(data.values.data(), n, &bits, e.spec)
                                     : nkpsVLCCountEscBits_MP3_16s32s(data.values.data(), n, 4, &bits, e.spec));
        benchmark::ClobberMemory();
    }
    per_symbol(state, n);
    state.SetLabel(aac ? "aac" : "mp3");
}
BENCHMARK(BM_EscapeCountBits)->Arg(0)->Arg(1);

}  // namespace
