// AAC noiseless decoding: every channel stream of the 128 kbit/s stereo
// low-complexity sample through the two noiseless decoders, in ns per
// channel frame (one individual channel stream: 1024 lines). For scale,
// FAAD2's and libavcodec's complete decode of the same stream.
//
// Instructions per channel frame (one pass over the 262 channel streams):
//   valgrind --tool=callgrind --toggle-collect=nkpsNoiselessDecoder_LC_AAC \
//     ./build/bench/nkpac_aac_stream_bench --benchmark_filter=OnePass_LC
// then the total Ir divided by the channel_frames counter it prints.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

#include "nkpac.h"
#include "streams/aac_reference.h"

#if defined(NKPAC_HAVE_FAAD)
#include <neaacdec.h>
#endif
#if defined(NKPAC_HAVE_AVCODEC)
extern "C" {
#include <libavcodec/avcodec.h>
}
#endif

namespace {

const char* const kSample = NKPAC_TEST_DATA_DIR "/aac/lc_44k_stereo_128.aac";

// One channel stream, ready to decode: its frame (with slack), where it
// starts, and the common window it takes.
struct ChannelStream {
    const std::vector<uint8_t>* frame;
    int64_t bit;
    bool common_window;
    nkpAacIcsInfo ics;
    int sfi;
};

struct Stream {
    std::vector<std::vector<uint8_t>> frames;
    std::vector<ChannelStream> channels;
    std::vector<uint8_t> file;
};

Stream load() {
    Stream s;
    s.file = aacref::read_file(kSample);
    const std::vector<aacref::Adts> headers = aacref::adts_frames(s.file);
    s.frames.reserve(headers.size());
    for (const aacref::Adts& h : headers) {
        s.frames.emplace_back(s.file.begin() + h.offset, s.file.begin() + h.offset + h.frame_length);
        s.frames.back().resize(h.frame_length + 8);
        aacref::Bits b{s.frames.back().data(), static_cast<size_t>(h.frame_length), h.protection_absent ? 56 : 72};
        bool ok;
        for (const aacref::Element& e : aacref::raw_data_block(b, {2, h.sfi}, ok)) {
            nkpAacIcsInfo ics{};
            if (e.id == aacref::kCpe && e.common_window) {
                nkpAacCpeInfo cpe;
                nkp8u* p = s.frames.back().data() + (e.start >> 3);
                int offset = static_cast<int>(e.start & 7);
                nkpsDecodeChanPairElt_AAC(&p, &offset, &ics, &cpe, 0);
            }
            for (const aacref::Channel& c : e.channels)
                s.channels.push_back({&s.frames.back(), c.start, e.common_window, ics, h.sfi});
        }
    }
    return s;
}

const Stream& stream() {
    static const Stream s = load();
    return s;
}

void per_channel_frame(benchmark::State& state, size_t channel_frames) {
    state.counters["ns_per_channel_frame"] =
        benchmark::Counter(static_cast<double>(channel_frames) * 1e-9,
                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    state.counters["channel_frames"] = static_cast<double>(channel_frames);
}

struct Outputs {
    alignas(16) nkp32s spectrum[1024];
    nkp16u sf[8 * 51];
    nkp8u band_cb[8 * 51];
    nkp8s tns[60];
};

template <bool kGeneral>
void decode_all(const Stream& s, Outputs& out) {
    nkpAacMainHeader main;
    for (const ChannelStream& c : s.channels) {
        nkpAacIcsInfo ics = c.ics;
        nkpAacChanInfo ci;
        ci.samplingFrequencyIndex = c.sfi;
        ci.predSfbMax = 0;
        ci.pIcsInfo = &ics;
        nkp8u* p = const_cast<nkp8u*>(c.frame->data()) + (c.bit >> 3);
        int offset = static_cast<int>(c.bit & 7);
        if (kGeneral)
            nkpsNoiselessDecode_AAC(&p, &offset, &main, out.sf, out.spectrum, out.band_cb, out.tns, &ci, 0, 0,
                                    c.common_window, 0, 2);
        else
            nkpsNoiselessDecoder_LC_AAC(&p, &offset, c.common_window, &ci, out.sf, out.spectrum, out.band_cb, out.tns);
        benchmark::DoNotOptimize(out.spectrum);
    }
}

void BM_NoiselessLC(benchmark::State& state) {
    const Stream& s = stream();
    Outputs out;
    for (auto _ : state) decode_all<false>(s, out);
    per_channel_frame(state, s.channels.size());
}
BENCHMARK(BM_NoiselessLC)->Name("NoiselessDecoder_LC_128k_stereo");
BENCHMARK(BM_NoiselessLC)->Name("OnePass_LC")->Iterations(1);

void BM_NoiselessGeneral(benchmark::State& state) {
    const Stream& s = stream();
    Outputs out;
    for (auto _ : state) decode_all<true>(s, out);
    per_channel_frame(state, s.channels.size());
}
BENCHMARK(BM_NoiselessGeneral)->Name("NoiselessDecode_128k_stereo");
BENCHMARK(BM_NoiselessGeneral)->Name("OnePass_General")->Iterations(1);

#if defined(NKPAC_HAVE_FAAD)
// FAAD2 decoding the whole stream to 16-bit PCM, for scale.
void BM_FaadFullDecode(benchmark::State& state) {
    const Stream& s = stream();
    std::vector<uint8_t> file = s.file;
    file.resize(file.size() + 64);
    size_t channel_frames = 0;
    for (auto _ : state) {
        NeAACDecHandle h = NeAACDecOpen();
        unsigned long rate;
        unsigned char channels;
        long used = NeAACDecInit(h, file.data(), static_cast<unsigned long>(s.file.size()), &rate, &channels);
        size_t pos = used < 0 ? s.file.size() : static_cast<size_t>(used);
        channel_frames = 0;
        while (pos < s.file.size()) {
            NeAACDecFrameInfo info;
            void* pcm = NeAACDecDecode(h, &info, file.data() + pos, static_cast<unsigned long>(s.file.size() - pos));
            if (info.bytesconsumed == 0) break;
            pos += info.bytesconsumed;
            channel_frames += info.channels;
            benchmark::DoNotOptimize(pcm);
        }
        NeAACDecClose(h);
    }
    per_channel_frame(state, channel_frames);
}
BENCHMARK(BM_FaadFullDecode)->Name("Faad2FullDecode_128k_stereo");
#endif

#if defined(NKPAC_HAVE_AVCODEC)
// libavcodec's AAC decoder on every ADTS frame (to planar float), for scale.
void BM_AvcodecFullDecode(benchmark::State& state) {
    const Stream& s = stream();
    const AVCodec* codec = avcodec_find_decoder(AV_CODEC_ID_AAC);
    AVPacket* packet = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    std::vector<std::vector<uint8_t>> padded;
    for (const auto& f : s.frames) {
        padded.push_back(f);
        padded.back().resize(f.size() + AV_INPUT_BUFFER_PADDING_SIZE, 0);
    }
    size_t channel_frames = 0;
    for (auto _ : state) {
        AVCodecContext* ctx = avcodec_alloc_context3(codec);
        avcodec_open2(ctx, codec, nullptr);
        channel_frames = 0;
        for (size_t i = 0; i < padded.size(); ++i) {
            packet->data = padded[i].data();
            packet->size = static_cast<int>(s.frames[i].size() - 8);
            if (avcodec_send_packet(ctx, packet) < 0) continue;
            while (avcodec_receive_frame(ctx, frame) == 0) channel_frames += frame->ch_layout.nb_channels;
        }
        avcodec_free_context(&ctx);
    }
    av_frame_free(&frame);
    av_packet_free(&packet);
    per_channel_frame(state, channel_frames);
}
BENCHMARK(BM_AvcodecFullDecode)->Name("LibavcodecFullDecode_128k_stereo");
#endif

}  // namespace
