// The whole decoder (nkpdec's decoding loop over the library's steps):
// the compliance streams against their reference output, the committed
// samples against mpg123, and damaged input.
#include "mp3/tables.h"
#include "common/external_data.h"
#include "decoder/not_mpeg.h"
#include "mp3_decoder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace {

std::vector<uint8_t> load(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

std::vector<int16_t> to_pcm(const std::vector<uint8_t>& bytes) {
    std::vector<int16_t> pcm(bytes.size() / 2);
    for (size_t i = 0; i < pcm.size(); ++i) pcm[i] = static_cast<int16_t>(bytes[2 * i] | (bytes[2 * i + 1] << 8));
    return pcm;
}

// Collects the decoded PCM: each frame in its own channel count, as the
// compliance references store mixed mono/stereo streams, or widened to two
// channels.
class Collect : public nkpdec::PcmSink {
public:
    explicit Collect(int widen_to = 0) : widen_(widen_to) {}
    void frame(const int16_t* pcm, int samples, int channels, int) override {
        const int out = widen_ ? widen_ : channels;
        for (int i = 0; i < samples; ++i)
            for (int c = 0; c < out; ++c) data.push_back(pcm[i * channels + (c < channels ? c : 0)]);
        ++frames;
    }
    std::vector<int16_t> data;
    int frames = 0;

private:
    int widen_;
};

struct Error {
    double rms = 0;
    int max = 0;
    size_t n = 0;
};

Error compare(const std::vector<int16_t>& got, size_t skip, const std::vector<int16_t>& ref) {
    Error e;
    if (got.size() <= skip) return e;
    e.n = std::min(got.size() - skip, ref.size());
    double sum = 0;
    for (size_t i = 0; i < e.n; ++i) {
        const int d = got[skip + i] - ref[i];
        sum += double(d) * d;
        e.max = std::max(e.max, std::abs(d));
    }
    e.rms = std::sqrt(sum / e.n);
    return e;
}

// Full accuracy: RMS below 2^-15 / sqrt(12) of full scale, at most 2 LSB off.
const double kFullAccuracyRms = 32768.0 / 32768.0 / std::sqrt(12.0);

struct Conformance {
    const char* name;
    size_t skip_frames;  // decoded frames before the reference starts
};

class ComplianceStreams : public ::testing::TestWithParam<Conformance> {};

TEST_P(ComplianceStreams, DecodeToFullAccuracy) {
    const std::string dir = std::string(NKPAC_CONFORMANCE_DIR) + "/mp3/";
    const std::vector<uint8_t> bits = load(dir + GetParam().name + ".bit");
    const std::vector<uint8_t> ref_bytes = load(dir + GetParam().name + ".pcm");
    NKPT_NEED_EXTERNAL(!bits.empty() && !ref_bytes.empty(), "the compliance stream " + dir + GetParam().name);
    const std::vector<int16_t> ref = to_pcm(ref_bytes);
    nkpdec::Decoder decoder;
    Collect out;
    const nkpdec::Report report = decoder.decode(bits.data(), bits.size(), out);
    EXPECT_GT(report.frames, 0);
    const nkpdec::StreamInfo info = nkpdec::Decoder::scan(bits.data(), bits.size());
    const size_t skip = GetParam().skip_frames * 1152 * info.channels;
    const Error e = compare(out.data, skip, ref);
    std::printf("[ %-14s ] %zu samples, RMS error %.4f LSB, max %d LSB\n", GetParam().name, e.n, e.rms, e.max);
    EXPECT_GE(e.n + 2 * 1152 * info.channels, ref.size()) << "output shorter than the reference";
    EXPECT_LT(e.rms, kFullAccuracyRms);
    EXPECT_LE(e.max, 1);  // full accuracy allows 2; the standard's window gives 1
}

INSTANTIATE_TEST_SUITE_P(Mp3, ComplianceStreams,
                         ::testing::Values(Conformance{"l3-compl", 0}, Conformance{"l3-he_32khz", 0},
                                           Conformance{"l3-he_44khz", 0}, Conformance{"l3-he_48khz", 0},
                                           Conformance{"l3-he_free", 0}, Conformance{"l3-he_mode", 0},
                                           Conformance{"l3-hecommon", 0}, Conformance{"l3-si", 0},
                                           Conformance{"l3-si_block", 0}, Conformance{"l3-si_huff", 0},
                                           Conformance{"l3-sin1k0db", 2}),
                         [](const auto& info) {
                             std::string n = info.param.name + 3;
                             for (char& c : n)
                                 if (c == '-') c = '_';
                             return n;
                         });

#if !defined(_WIN32)
// mpg123's decode of a file (16-bit, native channel count), or empty.
std::vector<int16_t> mpg123_decode(const std::string& path) {
    const std::string cmd = "mpg123 -q --no-gapless -e s16 -s '" + path + "' 2>/dev/null";
    std::vector<uint8_t> bytes;
    if (std::FILE* p = popen(cmd.c_str(), "r")) {
        uint8_t buf[65536];
        size_t n;
        while ((n = std::fread(buf, 1, sizeof buf, p)) > 0) bytes.insert(bytes.end(), buf, buf + n);
        pclose(p);
    }
    std::vector<int16_t> pcm(bytes.size() / 2);
    std::memcpy(pcm.data(), bytes.data(), pcm.size() * 2);
    return pcm;
}

class Samples : public ::testing::TestWithParam<const char*> {};

TEST_P(Samples, MatchMpg123ToFullAccuracy) {
    const std::string path = std::string(NKPAC_TEST_DATA_DIR) + "/" + GetParam();
    const std::vector<uint8_t> bits = load(path);
    ASSERT_FALSE(bits.empty()) << path;
    const std::vector<int16_t> peer = mpg123_decode(path);
    NKPT_NEED_EXTERNAL(!peer.empty(), std::string("the peer decoder mpg123"));
    nkpdec::Decoder decoder;
    Collect out;
    const nkpdec::Report report = decoder.decode(bits.data(), bits.size(), out);
    EXPECT_TRUE(report.warnings.empty()) << report.warnings.front();
    EXPECT_EQ(report.concealed, 0);
    // mpg123 leaves out the encoder's Info frame at the start: try whole
    // frames of offset and keep the best.
    const nkpdec::StreamInfo info = nkpdec::Decoder::scan(bits.data(), bits.size());
    const size_t frame = static_cast<size_t>(out.data.size() / std::max(1, out.frames));
    Error best;
    best.rms = 1e9;
    for (size_t k = 0; k < 3; ++k) {
        const Error e = compare(out.data, k * frame, peer);
        if (e.n > 0 && e.rms < best.rms) best = e;
    }
    std::printf("[ %-26s ] %d Hz, %zu samples, RMS error %.4f LSB, max %d LSB\n", GetParam(), info.sample_rate,
                best.n, best.rms, best.max);
    EXPECT_GT(best.n, peer.size() - 2 * frame);
    EXPECT_LT(best.rms, kFullAccuracyRms);
    EXPECT_LE(best.max, 2);
}

INSTANTIATE_TEST_SUITE_P(Mp3, Samples,
                         ::testing::Values("mpeg1_32k_mono_crc.mp3", "mpeg1_44k_dual_crc.mp3",
                                           "mpeg1_44k_joint_short.mp3", "mpeg1_44k_stereo_128.mp3",
                                           "mpeg1_48k_joint.mp3", "mpeg25_11k_mono.mp3",
                                           "mpeg25_12k_joint_crc.mp3", "mpeg25_8k_mono.mp3",
                                           "mpeg25_8k_mono_short.mp3", "mpeg2_16k_mono.mp3",
                                           "mpeg2_22k_joint_vbr.mp3", "mpeg2_24k_mono_short.mp3",
                                           "mpeg2_24k_stereo_crc.mp3"),
                         [](const auto& info) {
                             std::string n = info.param;
                             n = n.substr(0, n.size() - 4);
                             return n;
                         });
#endif

TEST(Decoder, Mpeg25BandTablesAreTheStandardRows) {
    for (int r = 0; r < 3; ++r) {
        for (int b = 0; b < 23; ++b) EXPECT_EQ(nkpdec::mpeg25_long_bands()[23 * r + b], nkp::mp3::kSfbLong[6 + r][b]);
        for (int b = 0; b < 14; ++b) EXPECT_EQ(nkpdec::mpeg25_short_bands()[14 * r + b], nkp::mp3::kSfbShort[6 + r][b]);
    }
}

// A stream whose frames are all Layer II: found, counted, not decoded.
TEST(Decoder, LayerTwoStreamIsRecognisedAndNotDecoded) {
    std::vector<uint8_t> data;
    for (int f = 0; f < 5; ++f) {
        // MPEG-1 Layer II, 128 kbit/s, 44.1 kHz: 417 bytes.
        const uint8_t h[4] = {0xFF, 0xFD, 0x80, 0x00};
        data.insert(data.end(), h, h + 4);
        data.resize(data.size() + 413, 0x55);
    }
    const nkpdec::StreamInfo info = nkpdec::Decoder::scan(data.data(), data.size());
    EXPECT_EQ(info.frames, 0);
    EXPECT_EQ(info.other_layers, 5);
    nkpdec::Decoder decoder;
    Collect out;
    EXPECT_EQ(decoder.decode(data.data(), data.size(), out).frames, 0);
}

TEST(Decoder, TruncatedStreamDecodesWhatItHolds) {
    const std::vector<uint8_t> bits = load(std::string(NKPAC_TEST_DATA_DIR) + "/mpeg1_48k_joint.mp3");
    ASSERT_FALSE(bits.empty());
    const size_t cut = bits.size() * 2 / 3;
    const nkpdec::StreamInfo whole = nkpdec::Decoder::scan(bits.data(), bits.size());
    const nkpdec::StreamInfo info = nkpdec::Decoder::scan(bits.data(), cut);
    EXPECT_FALSE(whole.truncated);
    EXPECT_TRUE(info.truncated);
    nkpdec::Decoder decoder;
    Collect out;
    const nkpdec::Report report = decoder.decode(bits.data(), cut, out);
    EXPECT_EQ(report.frames, info.frames);
    EXPECT_FALSE(report.warnings.empty());
}

// Damaged streams: bytes flipped at random, runs of garbage, and pieces cut
// out must neither crash nor hang; the decoder keeps producing frames.
TEST(Decoder, DamagedStreamsNeverCrash) {
    const char* files[] = {"mpeg1_44k_joint_short.mp3", "mpeg2_22k_joint_vbr.mp3", "mpeg25_8k_mono_short.mp3",
                           "mpeg1_44k_dual_crc.mp3"};
    std::mt19937 rng(1234);
    for (const char* name : files) {
        const std::vector<uint8_t> clean = load(std::string(NKPAC_TEST_DATA_DIR) + "/" + name);
        ASSERT_FALSE(clean.empty()) << name;
        for (int trial = 0; trial < 12; ++trial) {
            std::vector<uint8_t> bits = clean;
            std::uniform_int_distribution<size_t> at(0, bits.size() - 1);
            const int kind = trial % 3;
            if (kind == 0) {
                for (int i = 0; i < 200; ++i) bits[at(rng)] ^= static_cast<uint8_t>(1u << (rng() % 8));
            } else if (kind == 1) {
                const size_t p = at(rng);
                for (size_t i = p; i < std::min(bits.size(), p + 3000); ++i) bits[i] = static_cast<uint8_t>(rng());
            } else {
                const size_t p = at(rng);
                bits.erase(bits.begin() + static_cast<long>(p),
                           bits.begin() + static_cast<long>(std::min(bits.size(), p + 777)));
            }
            nkpdec::Decoder decoder;
            Collect out(2);
            const nkpdec::Report report = decoder.decode(bits.data(), bits.size(), out);
            EXPECT_GT(report.frames, 0) << name << " trial " << trial;
        }
    }
    // Pure noise: no frame of a stream may be confirmed, and nothing breaks.
    std::vector<uint8_t> noise(50000);
    for (auto& b : noise) b = static_cast<uint8_t>(rng());
    nkpdec::Decoder decoder;
    Collect out(2);
    decoder.decode(noise.data(), noise.size(), out);
}

TEST(Decoder, NotMpegAudioHasNoFrames) {
    for (const nkptest::NamedInput& input : nkptest::not_mpeg_inputs()) {
        SCOPED_TRACE(input.name);
        ASSERT_GT(input.bytes.size(), 1000u);
        EXPECT_EQ(nkpdec::Decoder::scan(input.bytes.data(), input.bytes.size()).frames, 0);
        nkpdec::Decoder decoder;
        Collect out(2);
        EXPECT_EQ(decoder.decode(input.bytes.data(), input.bytes.size(), out).frames, 0);
        EXPECT_TRUE(out.data.empty());
    }
}

}  // namespace
