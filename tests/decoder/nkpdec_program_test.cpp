// The nkpdec program: its WAV files and exit codes (0 decoded, 1 unreadable
// input or unwritable output, 2 no Layer III frames, 3 truncated or damaged).
#include "common/external_data.h"
#include "decoder/not_mpeg.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#if defined(NKPDEC_PROGRAM) && !defined(_WIN32)
#include <sys/wait.h>

namespace {

std::vector<uint8_t> load(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

void save(const std::string& path, const std::vector<uint8_t>& data) {
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(data.data()),
                                                static_cast<std::streamsize>(data.size()));
}

int run(const std::string& in, const std::string& out, const std::string& messages = "/dev/null") {
    const std::string cmd = std::string(NKPDEC_PROGRAM) + " '" + in + "' '" + out + "' 2>'" + messages + "'";
    const int status = std::system(cmd.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

uint32_t le(const std::vector<uint8_t>& d, size_t at, int bytes) {
    uint32_t v = 0;
    for (int i = 0; i < bytes; ++i) v |= static_cast<uint32_t>(d[at + i]) << (8 * i);
    return v;
}

const std::string kTmp = ::testing::TempDir();

TEST(NkpdecProgram, WritesEveryFrameAsWav) {
    const struct {
        const char* file;
        uint32_t channels, rate, samples_per_frame;
    } cases[] = {{"mpeg1_44k_stereo_128.mp3", 2, 44100, 1152},
                 {"mpeg1_32k_mono_crc.mp3", 1, 32000, 1152},
                 {"mpeg25_8k_mono_short.mp3", 1, 8000, 576}};
    for (const auto& c : cases) {
        const std::string out = kTmp + "/nkpdec_out.wav";
        ASSERT_EQ(run(std::string(NKPAC_TEST_DATA_DIR) + "/" + c.file, out), 0) << c.file;
        const std::vector<uint8_t> wav = load(out);
        ASSERT_GE(wav.size(), 44u);
        EXPECT_EQ(std::string(wav.begin(), wav.begin() + 4), "RIFF");
        EXPECT_EQ(le(wav, 20, 2), 1u);  // PCM
        EXPECT_EQ(le(wav, 22, 2), c.channels);
        EXPECT_EQ(le(wav, 24, 4), c.rate);
        EXPECT_EQ(le(wav, 34, 2), 16u);
        const uint32_t data = le(wav, 40, 4);
        EXPECT_EQ(data + 44, wav.size());
        EXPECT_EQ(data % (c.samples_per_frame * c.channels * 2), 0u) << "whole frames only";
    }
}

TEST(NkpdecProgram, ExitCodesTellWhatWentWrong) {
    const std::string out = kTmp + "/nkpdec_bad.wav";
    EXPECT_EQ(run(kTmp + "/does_not_exist.mp3", out), 1);

    std::vector<uint8_t> text(5000);
    for (size_t i = 0; i < text.size(); ++i) text[i] = static_cast<uint8_t>("not an mp3 file\n"[i % 16]);
    save(kTmp + "/nkpdec_text.mp3", text);
    EXPECT_EQ(run(kTmp + "/nkpdec_text.mp3", out), 2);

    std::vector<uint8_t> bits = load(std::string(NKPAC_TEST_DATA_DIR) + "/mpeg1_48k_joint.mp3");
    ASSERT_GT(bits.size(), 100u);
    bits.erase(bits.end() - 100, bits.end());
    save(kTmp + "/nkpdec_cut.mp3", bits);
    EXPECT_EQ(run(kTmp + "/nkpdec_cut.mp3", out), 3);
    EXPECT_GT(load(out).size(), 44u) << "the frames before the cut are still written";

    EXPECT_EQ(run(std::string(NKPAC_TEST_DATA_DIR) + "/mpeg1_48k_joint.mp3", kTmp + "/no/such/dir/x.wav"), 1);
}

TEST(NkpdecProgram, NotMpegAudioIsRefusedClearly) {
    for (const nkptest::NamedInput& input : nkptest::not_mpeg_inputs()) {
        const std::string in = kTmp + "/nkpdec_" + input.name, out = kTmp + "/nkpdec_not.wav",
                          messages = kTmp + "/nkpdec_messages.txt";
        save(in, input.bytes);
        std::remove(out.c_str());
        EXPECT_EQ(run(in, out, messages), 2) << input.name;
        const std::vector<uint8_t> text = load(messages);
        EXPECT_NE(std::string(text.begin(), text.end()).find("is not MPEG audio"), std::string::npos) << input.name;
        EXPECT_TRUE(load(out).empty()) << input.name << ": nothing is written";
    }
}

// A stream that switches between mono and stereo frames is written as
// stereo, mono frames on both channels.
TEST(NkpdecProgram, MixedMonoAndStereoFramesBecomeStereo) {
    const std::string path = std::string(NKPAC_CONFORMANCE_DIR) + "/mp3/l3-he_mode.bit";
    NKPT_NEED_EXTERNAL(!load(path).empty(), "the compliance stream " + path);
    const std::string out = kTmp + "/nkpdec_mode.wav";
    ASSERT_EQ(run(path, out), 0);
    const std::vector<uint8_t> wav = load(out);
    EXPECT_EQ(le(wav, 22, 2), 2u);
    EXPECT_EQ((wav.size() - 44) / 4 % 1152, 0u);
}

}  // namespace
#endif
