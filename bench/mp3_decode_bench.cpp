// Whole-file MP3 decoding: nkpdec's decoding loop over the library's steps,
// and libmpg123 on the same 60-second 128 kbit/s stereo stream in the same
// run. Reported per frame (1152 samples per channel).
#include "mp3_decoder.h"

#include <benchmark/benchmark.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#if defined(NKPAC_BENCH_MPG123)
#include <mpg123.h>
#endif

namespace {

const std::vector<uint8_t>& stream() {
    static const std::vector<uint8_t> data = [] {
        std::ifstream f(std::string(NKPAC_TEST_DATA_DIR) + "/bench_60s_128k.mp3", std::ios::binary);
        return std::vector<uint8_t>(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
    }();
    return data;
}

class Discard : public nkpdec::PcmSink {
public:
    void frame(const int16_t* pcm, int samples, int channels, int) override {
        benchmark::DoNotOptimize(pcm[samples * channels - 1]);
        ++frames;
    }
    long frames = 0;
};

void BM_Nkpdec(benchmark::State& state) {
    const std::vector<uint8_t>& data = stream();
    if (data.empty()) {
        state.SkipWithError("tests/data/bench_60s_128k.mp3 is missing");
        return;
    }
    nkpdec::Decoder decoder;
    long frames = 0;
    for (auto _ : state) {
        decoder.reset();
        Discard sink;
        decoder.decode(data.data(), data.size(), sink);
        frames += sink.frames;
    }
    state.counters["ns_per_frame"] =
        benchmark::Counter(static_cast<double>(frames) * 1e-9, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.counters["frames"] = static_cast<double>(frames / state.iterations());
}
BENCHMARK(BM_Nkpdec)->Unit(benchmark::kMillisecond)->MinTime(2.0);

#if defined(NKPAC_BENCH_MPG123)
void BM_Mpg123(benchmark::State& state) {
    const std::vector<uint8_t>& data = stream();
    if (data.empty()) {
        state.SkipWithError("tests/data/bench_60s_128k.mp3 is missing");
        return;
    }
#if MPG123_API_VERSION < 46
    mpg123_init();
#endif
    int err = 0;
    mpg123_handle* mh = mpg123_new(nullptr, &err);
    mpg123_param(mh, MPG123_ADD_FLAGS, MPG123_QUIET, 0.0);
    mpg123_format_none(mh);
    mpg123_format(mh, 44100, MPG123_STEREO, MPG123_ENC_SIGNED_16);
    long frames = 0;
    for (auto _ : state) {
        mpg123_open_feed(mh);
        mpg123_feed(mh, data.data(), data.size());
        off_t num;
        unsigned char* audio;
        size_t bytes;
        for (;;) {
            const int r = mpg123_decode_frame(mh, &num, &audio, &bytes);
            if (r == MPG123_OK) {
                if (bytes) benchmark::DoNotOptimize(audio[bytes - 1]);
                ++frames;
            } else if (r != MPG123_NEW_FORMAT) {
                break;
            }
        }
        mpg123_close(mh);
    }
    mpg123_delete(mh);
    state.counters["ns_per_frame"] =
        benchmark::Counter(static_cast<double>(frames) * 1e-9, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.counters["frames"] = static_cast<double>(frames / state.iterations());
}
BENCHMARK(BM_Mpg123)->Unit(benchmark::kMillisecond)->MinTime(2.0);
#endif

}  // namespace
