// Polyphase synthesis against a direct double-precision model of the filter
// bank as the standard writes it (the 64-value V by the defining cosine
// matrix, the 1024-value V buffer, the 512-tap window read from
// tools/tables), and the state's life cycle.
#include "nkpac.h"
#include "nkpcore.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <random>
#include <sstream>
#include <vector>

namespace {

constexpr double kPi = 3.14159265358979323846;

// D[i] of the standard, from its text table (integers of 2^-16).
const std::vector<double>& window() {
    static const std::vector<double> d = [] {
        std::vector<double> w(512, 0.0);
        std::ifstream f(std::string(NKPAC_TABLES_DIR) + "/mp3_synthesis_window.txt");
        std::string line;
        int count = 0;
        while (std::getline(f, line)) {
            std::istringstream in(line.substr(0, line.find('#')));
            int i, v;
            if (in >> i >> v) w.at(i) = v / 65536.0, ++count;
        }
        EXPECT_EQ(count, 512) << "tools/tables/mp3_synthesis_window.txt";
        return w;
    }();
    return d;
}

class Model {
public:
    // 18 slots of 32 subband samples at 2^25 to PCM units (2^15).
    void run(const int32_t* src, double* out) {
        const std::vector<double>& d = window();
        for (int t = 0; t < 18; ++t) {
            for (int i = 1023; i >= 64; --i) v_[i] = v_[i - 64];
            for (int i = 0; i < 64; ++i) {
                double s = 0;
                for (int k = 0; k < 32; ++k) s += std::cos((16 + i) * (2 * k + 1) * kPi / 64) * src[32 * t + k];
                v_[i] = s / 33554432.0;
            }
            for (int j = 0; j < 32; ++j) {
                double acc = 0;
                for (int i = 0; i < 8; ++i) acc += d[64 * i + j] * v_[128 * i + j] + d[64 * i + 32 + j] * v_[128 * i + 96 + j];
                out[32 * t + j] = acc * 32768.0;
            }
        }
    }

private:
    std::vector<double> v_ = std::vector<double>(1024, 0.0);
};

struct State {
    std::vector<uint8_t> buffer;
    nkpMP3SynthesisState* st;
    explicit State(int misalign = 0) {
        int size = 0;
        EXPECT_EQ(nkpsSynthesisFilterGetSize_MP3_16s(&size), nkpStatusOk);
        buffer.assign(static_cast<size_t>(size) + 16, 0xA5);
        st = reinterpret_cast<nkpMP3SynthesisState*>(buffer.data() + misalign);
        EXPECT_EQ(nkpsSynthesisFilterInit_MP3_16s(st), nkpStatusOk);
    }
};

TEST(SynthesisFilter, MatchesTheStandardsFilterBankOverManyGranules) {
    std::mt19937 rng(5);
    // Subband samples up to about a quarter of full scale (1.0 = 2^25).
    std::uniform_int_distribution<int32_t> value(-(1 << 23), 1 << 23);
    State state;
    Model model;
    std::vector<int32_t> src(576);
    std::vector<int16_t> pcm(576);
    std::vector<double> expect(576);
    int differ = 0;
    for (int g = 0; g < 12; ++g) {
        for (auto& s : src) s = g % 4 == 3 ? 0 : value(rng) >> (g % 3 * 4);
        ASSERT_EQ(nkpsSynthesisFilter_MP3_32s16s(src.data(), pcm.data(), 1, state.st), nkpStatusOk);
        model.run(src.data(), expect.data());
        for (int i = 0; i < 576; ++i) {
            const double e = std::max(-32768.0, std::min(32767.0, expect[i]));
            ASSERT_LE(std::fabs(pcm[i] - e), 0.52) << "granule " << g << " sample " << i;
            differ += pcm[i] != std::nearbyint(e);
        }
    }
    // Single precision costs a rounding flip now and then, no more.
    EXPECT_LT(differ, 12 * 576 / 100);
}

TEST(SynthesisFilter, StereoStepWritesOneChannelAndAnyAlignmentGivesTheSame) {
    std::mt19937 rng(9);
    std::uniform_int_distribution<int32_t> value(-(1 << 24), 1 << 24);
    std::vector<int32_t> src(576);
    for (auto& s : src) s = value(rng);
    State mono(0);
    std::vector<int16_t> a(576);
    ASSERT_EQ(nkpsSynthesisFilter_MP3_32s16s(src.data(), a.data(), 1, mono.st), nkpStatusOk);
    for (int misalign = 1; misalign < 16; misalign += 5) {
        State other(misalign);
        std::vector<int16_t> b(1152, 777);
        ASSERT_EQ(nkpsSynthesisFilter_MP3_32s16s(src.data(), b.data() + 1, 2, other.st), nkpStatusOk);
        for (int i = 0; i < 576; ++i) {
            EXPECT_EQ(b[2 * i + 1], a[i]) << i;
            EXPECT_EQ(b[2 * i], 777) << "the other channel is left alone";
        }
    }
}

TEST(SynthesisFilter, LoudInputSaturates) {
    std::vector<int32_t> src(576, 0);
    for (int t = 0; t < 18; ++t) src[32 * t] = (t & 1 ? -1 : 1) * (1 << 30);
    State state;
    std::vector<int16_t> pcm(576);
    for (int g = 0; g < 3; ++g) ASSERT_EQ(nkpsSynthesisFilter_MP3_32s16s(src.data(), pcm.data(), 1, state.st), nkpStatusOk);
    EXPECT_NE(std::find(pcm.begin(), pcm.end(), 32767), pcm.end());
    EXPECT_NE(std::find(pcm.begin(), pcm.end(), -32768), pcm.end());
}

// The general rule: Free releases only what InitAlloc made; a failed
// InitAlloc leaves its output null.
TEST(SynthesisFilter, LifeCycle) {
    State state;
    const long live = nkpcoreLiveAllocations();
    EXPECT_EQ(nkpsSynthesisFilterFree_MP3_16s(state.st), nkpStatusOk);
    nkpMP3SynthesisState* owned = nullptr;
    ASSERT_EQ(nkpsSynthesisFilterInitAlloc_MP3_16s(&owned), nkpStatusOk);
    EXPECT_EQ(nkpcoreLiveAllocations(), live + 1);
    std::vector<int32_t> src(576, 0);
    std::vector<int16_t> pcm(1152);
    EXPECT_EQ(nkpsSynthesisFilter_MP3_32s16s(src.data(), pcm.data(), 2, owned), nkpStatusOk);
    EXPECT_EQ(nkpsSynthesisFilterFree_MP3_16s(owned), nkpStatusOk);
    EXPECT_EQ(nkpcoreLiveAllocations(), live);
    nkpcoreFailMallocAfter(0);
    owned = state.st;  // anything but null
    EXPECT_EQ(nkpsSynthesisFilterInitAlloc_MP3_16s(&owned), nkpStatusNoMemory);
    nkpcoreFailMallocAfter(-1);
    EXPECT_EQ(owned, nullptr);
}

}  // namespace
