// MP3 stream syntax: Huffman decoding and scale-factor unpacking of every
// granule of the 128 kbit/s stereo sample, in ns per granule (one granule of
// one channel). For scale, mpg123's complete decode of the same stream.
#include <benchmark/benchmark.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "nkpac.h"

#if defined(NKPAC_BENCH_MPG123)
#include <mpg123.h>
#endif

namespace {

const char* const kSample = NKPAC_TEST_DATA_DIR "/mpeg1_44k_stereo_128.mp3";

std::vector<uint8_t> read_file(const char* path) {
    std::ifstream f(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

// One granule of one channel, ready to decode: its main data, where its
// scale factors begin, and what they took.
struct Granule {
    const std::vector<uint8_t>* data;
    int64_t bit;       // scale factors start
    int64_t huf_bit;   // Huffman data start
    int huf_bits;
    int granule, channel;
    nkpMP3SideInfo si;
    nkpMP3FrameHeader header;
    int scfsi[4];
};

struct Stream {
    std::vector<std::vector<uint8_t>> buffers;
    std::vector<Granule> granules;
};

// Finds the MPEG-1 Layer III frames and keeps the main-data reservoir.
Stream load() {
    static const int kbps[15] = {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320};
    static const int hz[3] = {44100, 48000, 32000};
    Stream s;
    const std::vector<uint8_t> file = read_file(kSample);
    std::vector<uint8_t> reservoir;
    s.buffers.reserve(file.size() / 100);
    size_t pos = 0;
    while (pos + 4 <= file.size()) {
        const uint8_t* p = &file[pos];
        const int br = p[2] >> 4, sfi = (p[2] >> 2) & 3;
        if (p[0] != 0xFF || (p[1] & 0xFE) != 0xFA || br == 0 || br == 15 || sfi == 3) {
            ++pos;
            continue;
        }
        const size_t length = 144000 * kbps[br] / hz[sfi] + ((p[2] >> 1) & 1);
        if (pos + length > file.size()) break;
        std::vector<uint8_t> frame(file.begin() + pos, file.begin() + pos + length);
        frame.resize(length + 8);
        pos += length;
        nkp8u* q = frame.data();
        nkpMP3FrameHeader h;
        nkpsUnpackFrameHeader_MP3(&q, &h);
        nkpMP3SideInfo si[4];
        int md, priv, scfsi[8];
        if (nkpsUnpackSideInfo_MP3(&q, si, &md, &priv, scfsi, &h) != nkpStatusOk) continue;
        const bool have = static_cast<size_t>(md) <= reservoir.size();
        const size_t start = reservoir.size() - (have ? md : 0);
        reservoir.insert(reservoir.end(), frame.begin() + (q - frame.data()), frame.begin() + length);
        if (!have) continue;
        s.buffers.emplace_back(reservoir.begin() + start, reservoir.end());
        s.buffers.back().resize(s.buffers.back().size() + 2048);
        const int nch = h.mode == 3 ? 1 : 2;
        int64_t bit = 0;
        std::vector<nkp8s> sf(64);
        for (int g = 0; g < 2; ++g) {
            for (int c = 0; c < nch; ++c) {
                Granule gr{&s.buffers.back(), bit, 0, 0, g, c, si[g * nch + c], h, {}};
                std::memcpy(gr.scfsi, scfsi + 4 * c, sizeof gr.scfsi);
                nkp8u* b = s.buffers.back().data() + (bit >> 3);
                int off = static_cast<int>(bit & 7);
                nkpMP3SideInfo copy = gr.si;
                nkpsUnpackScaleFactors_MP3_1u8s(&b, &off, sf.data(), &copy, gr.scfsi, &h, g, c);
                gr.huf_bit = (b - s.buffers.back().data()) * 8 + off;
                gr.huf_bits = static_cast<int>(bit + gr.si.part23Length - gr.huf_bit);
                s.granules.push_back(gr);
                bit += gr.si.part23Length;
            }
        }
    }
    return s;
}

const Stream& stream() {
    static const Stream s = load();
    return s;
}

void per_granule(benchmark::State& state, size_t granules) {
    state.counters["ns_per_granule"] = benchmark::Counter(
        static_cast<double>(granules) * 1e-9, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    state.counters["granules"] = static_cast<double>(granules);
}

void BM_HuffmanDecode(benchmark::State& state) {
    const Stream& s = stream();
    alignas(16) nkp32s lines[576];
    for (auto _ : state) {
        for (const Granule& g : s.granules) {
            nkp8u* p = const_cast<nkp8u*>(g.data->data()) + (g.huf_bit >> 3);
            int off = static_cast<int>(g.huf_bit & 7);
            int bound;
            nkpsHuffmanDecode_MP3_1u32s(&p, &off, lines, &bound, &g.si, &g.header, g.huf_bits);
            benchmark::DoNotOptimize(lines);
            benchmark::DoNotOptimize(bound);
        }
    }
    per_granule(state, s.granules.size());
}
BENCHMARK(BM_HuffmanDecode)->Name("HuffmanDecode_128k_stereo");

void BM_UnpackScaleFactors(benchmark::State& state) {
    const Stream& s = stream();
    nkp8s sf[2][64] = {};
    for (auto _ : state) {
        for (const Granule& g : s.granules) {
            nkp8u* p = const_cast<nkp8u*>(g.data->data()) + (g.bit >> 3);
            int off = static_cast<int>(g.bit & 7);
            nkpMP3SideInfo si = g.si;
            nkpsUnpackScaleFactors_MP3_1u8s(&p, &off, sf[g.channel], &si, g.scfsi, &g.header, g.granule, g.channel);
            benchmark::DoNotOptimize(sf);
        }
    }
    per_granule(state, s.granules.size());
}
BENCHMARK(BM_UnpackScaleFactors)->Name("UnpackScaleFactors_128k_stereo");

void BM_UnpackHeaderAndSideInfo(benchmark::State& state) {
    const std::vector<uint8_t> file = read_file(kSample);
    // The first real frame after the Info frame.
    size_t pos = 417;
    while (pos < file.size() && !(file[pos] == 0xFF && (file[pos + 1] & 0xFE) == 0xFA)) ++pos;
    std::vector<uint8_t> frame(file.begin() + pos, file.begin() + pos + 64);
    for (auto _ : state) {
        nkp8u* p = frame.data();
        nkpMP3FrameHeader h;
        nkpMP3SideInfo si[4];
        int md, priv, scfsi[8];
        nkpsUnpackFrameHeader_MP3(&p, &h);
        nkpsUnpackSideInfo_MP3(&p, si, &md, &priv, scfsi, &h);
        benchmark::DoNotOptimize(si);
    }
}
BENCHMARK(BM_UnpackHeaderAndSideInfo)->Name("UnpackHeaderAndSideInfo_stereo_frame");

#if defined(NKPAC_BENCH_MPG123)
// mpg123 decoding the whole stream to 16-bit PCM (everything: Huffman,
// requantisation, stereo, hybrid and polyphase synthesis), for scale.
void BM_Mpg123FullDecode(benchmark::State& state) {
    const std::vector<uint8_t> file = read_file(kSample);
    mpg123_init();
    mpg123_handle* mh = mpg123_new(nullptr, nullptr);
    mpg123_param(mh, MPG123_ADD_FLAGS, MPG123_QUIET | MPG123_IGNORE_INFOFRAME, 0);
    std::vector<unsigned char> pcm(1 << 20);
    size_t granules = 0;
    for (auto _ : state) {
        mpg123_open_feed(mh);
        size_t done = 0;
        mpg123_decode(mh, file.data(), file.size(), pcm.data(), pcm.size(), &done);
        size_t more = 0;
        while (mpg123_decode(mh, nullptr, 0, pcm.data(), pcm.size(), &more) == MPG123_OK && more) done += more;
        granules = done / (576 * 2 * 2) * 2;  // 16-bit stereo samples -> granules of one channel
        benchmark::DoNotOptimize(pcm.data());
        mpg123_close(mh);
    }
    mpg123_delete(mh);
    per_granule(state, granules);
}
BENCHMARK(BM_Mpg123FullDecode)->Name("Mpg123FullDecode_128k_stereo");
#endif

}  // namespace
