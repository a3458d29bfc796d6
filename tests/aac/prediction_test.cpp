// Frequency-domain prediction: the library against a one-operation-at-a-time
// model over many frames (every float operation forced through a volatile,
// so it is rounded once, in the stated order), the resets, the life cycle,
// alignment and the caller's floating-point mode.
#include "frame/exports.h"
#include "nkpcore.h"
#include "tools_test_util.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

namespace {

// ---- The model ------------------------------------------------------------

uint32_t bits_of(float f) {
    uint32_t u;
    std::memcpy(&u, &f, 4);
    return u;
}
float float_of(uint32_t u) {
    float f;
    std::memcpy(&f, &u, 4);
    return f;
}
float mul(float a, float b) {
    volatile float r = a * b;
    return r;
}
float add(float a, float b) {
    volatile float r = a + b;
    return r;
}
float sub(float a, float b) {
    volatile float r = a - b;
    return r;
}
float truncate16(float f) { return float_of(bits_of(f) & 0xFFFF0000u); }
float round16(float f) { return float_of((bits_of(f) + 0x8000u) & 0xFFFF0000u); }

// 0.953125 / (1 + m/128) rounded to 7 mantissa bits.
float reciprocal_mantissa(uint32_t m) {
    int exponent;
    const double fraction = std::frexp(0.953125 / (1.0 + m / 128.0), &exponent);  // in [0.5, 1)
    return static_cast<float>(std::ldexp(std::nearbyint(fraction * 256.0), exponent - 8));
}
// 2^(127 - e) for e in 128..254, else 0.
float reciprocal_exponent(uint32_t e) { return (e >= 128 && e <= 254) ? std::ldexp(1.0f, 127 - static_cast<int>(e)) : 0.0f; }

struct ModelLine {
    float cor0 = 0, cor1 = 0, var0 = 1, var1 = 1, r0 = 0, r1 = 0;

    // Predicts, then updates from the value returned by reconstruct(pred).
    template <class Reconstruct>
    void step(Reconstruct reconstruct) {
        const uint32_t b0 = bits_of(var0), b1 = bits_of(var1);
        const float k1 = mul(mul(reciprocal_mantissa((b0 >> 16) & 127), cor0), reciprocal_exponent(b0 >> 23));
        const float p1 = mul(r0, k1);
        const float p2 = mul(mul(mul(reciprocal_mantissa((b1 >> 16) & 127), cor1), reciprocal_exponent(b1 >> 23)), r1);
        const float pred = round16(add(p2, p1));
        const float x = reconstruct(pred);
        const float e1 = sub(x, p1);
        const float c0 = add(mul(cor0, 0.90625f), mul(r0, x));
        const float c1 = add(mul(cor1, 0.90625f), mul(r1, e1));
        const float v0 = add(mul(add(mul(x, x), mul(r0, r0)), 0.5f), mul(var0, 0.90625f));
        const float v1 = add(mul(add(mul(e1, e1), mul(r1, r1)), 0.5f), mul(var1, 0.90625f));
        const float q1 = mul(sub(r0, mul(k1, x)), 0.953125f);
        const float q0 = mul(x, 0.953125f);
        cor0 = truncate16(c0);
        cor1 = truncate16(c1);
        var0 = truncate16(v0);
        var1 = truncate16(v1);
        r0 = truncate16(q0);
        r1 = truncate16(q1);
    }
};

// ---- Helpers --------------------------------------------------------------

// A state of `lines` lines built at `misalign` bytes past a 64-byte boundary.
class State {
public:
    explicit State(int lines, int misalign = 0) {
        int size = 0;
        EXPECT_EQ(nkpsFDPGetSize_32f(lines, &size), nkpStatusOk);
        memory_.resize(size + 64 + misalign);
        uint8_t* p = memory_.data();
        p += (64 - reinterpret_cast<uintptr_t>(p) % 64) % 64 + misalign;
        EXPECT_EQ(nkpsFDPInit_32f(&state_, lines, p), nkpStatusOk);
        EXPECT_EQ(reinterpret_cast<uint8_t*>(state_), p);
    }
    nkpsFDPState_32f* get() { return state_; }

private:
    std::vector<uint8_t> memory_;
    nkpsFDPState_32f* state_ = nullptr;
};

// Frame t of a signal whose lines are slow sinusoids of varied amplitude
// (some tiny, down to subnormal predictions) with a little noise.
std::vector<float> signal_frame(int lines, int t) {
    std::vector<float> x(lines);
    for (int i = 0; i < lines; ++i) {
        const double amplitude = (i % 7 == 6) ? 1e-37 : std::pow(10.0, (i % 5) + (i % 3) * 0.3);
        const double w = 0.05 + 0.9 * ((i * 37) % 101) / 101.0;
        x[i] = static_cast<float>(amplitude * std::sin(w * t + i) + amplitude * 0.01 * ((i * t) % 13 - 6));
    }
    return x;
}

bool same_bits(const std::vector<float>& a, const float* b) {
    return std::memcmp(a.data(), b, a.size() * sizeof(float)) == 0;
}

// ---- Tests ----------------------------------------------------------------

// The encoder side over 300 frames of 1024 lines, bit for bit.
TEST(Prediction, ForwardMatchesTheModelOverManyFrames) {
    constexpr int kLines = 1024;
    State st(kLines);
    std::vector<ModelLine> model(kLines);
    long predicted = 0;
    for (int t = 0; t < 300; ++t) {
        const std::vector<float> in = signal_frame(kLines, t);
        std::vector<float> want(kLines), got(kLines);
        for (int i = 0; i < kLines; ++i) {
            model[i].step([&](float pred) {
                want[i] = sub(in[i], pred);
                predicted += pred != 0.0f;
                return in[i];
            });
        }
        ASSERT_EQ(nkpsFDPFwd_32f(in.data(), got.data(), st.get()), nkpStatusOk);
        ASSERT_TRUE(same_bits(want, got.data())) << "frame " << t;
    }
    // The predictor is really at work on most lines.
    EXPECT_GT(predicted, 300L * kLines / 2);
}

// The decoder side: bands with uneven edges and a gap, prediction used in a
// changing half of them; lines outside the bands are neither changed nor
// updated.
TEST(Prediction, InverseMatchesTheModelBandByBand) {
    constexpr int kLines = 1024;
    const std::vector<int32_t> offsets = {0, 4, 13, 16, 40, 41, 100, 203, 300, 301, 310, 500, 640, 777, 1000};
    const int bands = static_cast<int>(offsets.size()) - 1;
    State st(kLines);
    std::vector<ModelLine> model(kLines);
    for (int t = 0; t < 200; ++t) {
        std::vector<float> lines = signal_frame(kLines, t);
        std::vector<uint8_t> used(bands);
        for (int b = 0; b < bands; ++b) used[b] = static_cast<uint8_t>((b + t / 10) % 2 ? 0 : 1 + b);
        std::vector<float> want = lines;
        for (int b = 0; b < bands; ++b) {
            for (int i = offsets[b]; i < offsets[b + 1]; ++i) {
                model[i].step([&](float pred) {
                    if (used[b]) want[i] = add(lines[i], pred);
                    return want[i];
                });
            }
        }
        ASSERT_EQ(nkpsFDPInv_32f_I(lines.data(), offsets.data(), bands, used.data(), st.get()), nkpStatusOk);
        ASSERT_TRUE(same_bits(want, lines.data())) << "frame " << t;
    }
}

// Resets of every kind, between frames of a trained predictor, against the
// model with the same lines reset.
TEST(Prediction, ResetsMatchTheModel) {
    constexpr int kLines = 1024;
    State st(kLines);
    std::vector<ModelLine> model(kLines);
    const std::vector<int32_t> sfb = {0, 8, 16, 100, 300, 512, 1024};
    const std::vector<uint8_t> sfb_flags = {0, 1, 0, 9, 0, 1};
    for (int t = 0; t < 60; ++t) {
        std::vector<bool> reset(kLines, false);
        switch (t) {
            case 20:  // reset group 4 in 30: lines 3, 33, ..., 993
                ASSERT_EQ(nkpsFDPResetGroup_32f(3, 30, st.get()), nkpStatusOk);
                for (int i = 3; i < kLines; i += 30) reset[i] = true;
                break;
            case 25:  // a first line past the end changes nothing
                ASSERT_EQ(nkpsFDPResetGroup_32f(2000, 1, st.get()), nkpStatusOk);
                break;
            case 30:
                ASSERT_EQ(nkpsFDPResetSfb_32f(sfb.data(), 6, sfb_flags.data(), st.get()), nkpStatusOk);
                for (int b = 0; b < 6; ++b) {
                    for (int i = sfb[b]; i < sfb[b + 1]; ++i) reset[i] = reset[i] || sfb_flags[b] != 0;
                }
                break;
            case 40:
                ASSERT_EQ(nkpsFDPReset_32f(st.get()), nkpStatusOk);
                reset.assign(kLines, true);
                break;
        }
        for (int i = 0; i < kLines; ++i) {
            if (reset[i]) model[i] = ModelLine{};
        }
        const std::vector<float> in = signal_frame(kLines, t);
        std::vector<float> want(kLines), got(kLines);
        for (int i = 0; i < kLines; ++i) {
            model[i].step([&](float pred) {
                want[i] = sub(in[i], pred);
                return in[i];
            });
            // A line just reset predicts exactly 0.
            if (reset[i]) ASSERT_EQ(bits_of(want[i]), bits_of(in[i])) << "frame " << t << " line " << i;
        }
        ASSERT_EQ(nkpsFDPFwd_32f(in.data(), got.data(), st.get()), nkpStatusOk);
        ASSERT_TRUE(same_bits(want, got.data())) << "frame " << t;
    }
}

// Run frames through Fwd and return the last output.
// With odd_mode the calls run under another MXCSR word, which must come
// back unchanged.
std::vector<float> run_forward(nkpsFDPState_32f* st, int lines, int frames, int in_offset, int out_offset,
                               nkpStatus* status, bool odd_mode = false) {
    std::vector<float> in(lines + 8), out(lines + 8);
    for (int t = 0; t < frames; ++t) {
        const std::vector<float> x = signal_frame(lines, t);
        std::copy(x.begin(), x.end(), in.begin() + in_offset);
        if (odd_mode) {
            nkptest::MxcsrScope odd(nkptest::kOddMxcsr);
            *status = nkpsFDPFwd_32f(in.data() + in_offset, out.data() + out_offset, st);
            EXPECT_EQ(_mm_getcsr(), nkptest::kOddMxcsr);
        } else {
            *status = nkpsFDPFwd_32f(in.data() + in_offset, out.data() + out_offset, st);
        }
    }
    return std::vector<float>(out.begin() + out_offset, out.begin() + out_offset + lines);
}

// Any state address, misaligned data (status 2) and the caller's rounding,
// flush-to-zero and denormals-are-zero settings give the same results; the
// caller's MXCSR is put back. 1021 lines leave a scalar tail.
TEST(Prediction, AlignmentAndFpModeDoNotChangeResults) {
    constexpr int kLines = 1021;
    nkpStatus status;
    State reference_state(kLines);
    const std::vector<float> reference = run_forward(reference_state.get(), kLines, 40, 0, 0, &status);
    EXPECT_EQ(status, nkpStatusOk);
    for (int misalign : {1, 3, 8, 13}) {
        State st(kLines, misalign);
        EXPECT_EQ(run_forward(st.get(), kLines, 40, 0, 0, &status), reference) << "state at +" << misalign;
    }
    {
        State st(kLines);
        EXPECT_EQ(run_forward(st.get(), kLines, 40, 0, 2, &status), reference);
        EXPECT_EQ(status, nkpStatusMisaligned);
    }
    {
        State st(kLines);
        EXPECT_EQ(run_forward(st.get(), kLines, 40, 1, 0, &status), reference);
        EXPECT_EQ(status, nkpStatusMisaligned);
    }
    {
        State st(kLines);
        const std::vector<float> got = run_forward(st.get(), kLines, 40, 0, 0, &status, true);
        EXPECT_TRUE(same_bits(reference, got.data()));
    }
    // The inverse reports its one data pointer.
    State st(kLines);
    std::vector<float> lines(kLines + 4, 1.0f);
    const int32_t offsets[2] = {0, kLines};
    const uint8_t used[1] = {1};
    EXPECT_EQ(nkpsFDPInv_32f_I(lines.data() + 1, offsets, 1, used, st.get()), nkpStatusMisaligned);
}

// Band offsets outside the state are held at its ends.
TEST(Prediction, BandOffsetsAreHeldInsideTheState) {
    State st(64);
    std::vector<float> lines(80, 5.0f);
    const int32_t offsets[4] = {-100, 10, 5, 1000000};
    const uint8_t flags[3] = {1, 1, 1};
    EXPECT_EQ(nkpsFDPInv_32f_I(lines.data(), offsets, 3, flags, st.get()), nkpStatusOk);
    EXPECT_EQ(nkpsFDPResetSfb_32f(offsets, 3, flags, st.get()), nkpStatusOk);
    for (int i = 64; i < 80; ++i) EXPECT_EQ(lines[i], 5.0f);
}

TEST(Prediction, SizesAndLifeCycle) {
    const struct {
        int lines, size;
    } sizes[] = {{1, 6 * 64 + 128}, {16, 6 * 64 + 128}, {17, 6 * 128 + 128}, {1024, 6 * 4096 + 128},
                 {89478464, 2147483264}};
    for (const auto& s : sizes) {
        int size = 0;
        EXPECT_EQ(nkpsFDPGetSize_32f(s.lines, &size), nkpStatusOk);
        EXPECT_EQ(size, s.size) << s.lines << " lines";
    }
    int size = 0;
    EXPECT_EQ(nkpsFDPGetSize_32f(89478465, &size), nkpStatusBadSize);

    const long live = nkpcoreLiveAllocations();
    nkpsFDPState_32f* st = nullptr;
    ASSERT_EQ(nkpsFDPInitAlloc_32f(&st, 1024), nkpStatusOk);
    EXPECT_EQ(nkpcoreLiveAllocations(), live + 1);
    nkpStatus status;
    State reference(1024);
    EXPECT_EQ(run_forward(st, 1024, 5, 0, 0, &status), run_forward(reference.get(), 1024, 5, 0, 0, &status));
    EXPECT_EQ(nkpsFDPFree_32f(st), nkpStatusOk);
    EXPECT_EQ(nkpcoreLiveAllocations(), live);

    // Free of a state in the caller's memory releases nothing but ends it:
    // its tag is cleared, so every later call is refused.
    State mine(32);
    EXPECT_EQ(nkpsFDPFree_32f(mine.get()), nkpStatusOk);
    EXPECT_EQ(nkpcoreLiveAllocations(), live);
    EXPECT_EQ(nkpsFDPFree_32f(mine.get()), nkpStatusWrongObject);
    EXPECT_EQ(nkpsFDPReset_32f(mine.get()), nkpStatusWrongObject);

    // A failed allocation leaves nothing behind and the output null.
    nkpcoreFailMallocAfter(0);
    st = reinterpret_cast<nkpsFDPState_32f*>(&size);
    EXPECT_EQ(nkpsFDPInitAlloc_32f(&st, 1024), nkpStatusNoMemory);
    nkpcoreFailMallocAfter(-1);
    EXPECT_EQ(st, nullptr);
    EXPECT_EQ(nkpcoreLiveAllocations(), live);
}

}  // namespace
