// Noiseless decoding of channel streams built field by field: every code
// word and sign pattern of the eleven spectral books and every scale-factor
// difference, the deliberate rules (one accumulator for scale factors and
// noise energies, escapes, pulses, section lengths), the data errors with
// the cursor and outputs they leave, the caller's window information, and
// the read bound on the largest stream. Streams sit at the end of readable
// memory, behind the readers' slack.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "aac/aac_test_util.h"

namespace {

using aactest::BitWriter;
using aactest::sf;
using aactest::tuple;

struct Section {
    int cb, length;
};

void ics_long(BitWriter& w, int max_sfb, int window_sequence = 0) {
    w.put(0, 1).put(window_sequence, 2).put(1, 1).put(max_sfb, 6).put(0, 1);
}

void ics_short(BitWriter& w, int max_sfb, int grouping) {
    w.put(0, 1).put(2, 2).put(0, 1).put(max_sfb, 4).put(grouping, 7);
}

// One group's section data; lengths of an escape value or more continue.
void sections(BitWriter& w, bool short_windows, const std::vector<Section>& list) {
    const int bits = short_windows ? 3 : 5, escape = short_windows ? 7 : 31;
    for (const Section& s : list) {
        w.put(s.cb, 4);
        int length = s.length;
        for (; length >= escape; length -= escape) w.put(escape, bits);
        w.put(length, bits);
    }
}

void no_side_data(BitWriter& w) { w.put(0, 3); }  // pulse, TNS, gain control

enum Decoder { kLc, kGeneral };

struct Options {
    Decoder decoder = kLc;
    int sfi = 4;  // 44.1 kHz: 49 long bands, 14 short
    int common_window = 0;
    nkpAacIcsInfo* common = nullptr;
    int lead = 3;
    size_t misalign = 1;
    // The general decoder's arguments.
    int window_sequence = 0, max_sfb = 0, layer = 0, object_type = 2;
    const nkpAacMainHeader* main = nullptr;
    int pred_sfb_max = 0;
};

struct Decoded {
    nkpStatus status;
    long consumed;  // bits
    std::vector<nkp16u> sf = std::vector<nkp16u>(408, 0xA5A5);
    std::vector<nkp32s> spectrum = std::vector<nkp32s>(1024, 0x5A5A5A5A);
    std::vector<nkp8u> band_cb = std::vector<nkp8u>(408, 0xA5);
    std::vector<nkp8s> tns = std::vector<nkp8s>(60, 0x5A);
    nkpAacChanInfo ci;
    nkpAacIcsInfo ics;
    nkpAacMainHeader main;
};

Decoded decode(const BitWriter& w, const Options& o = {}) {
    Decoded d;
    std::memset(&d.ci, 0x5A, sizeof d.ci);
    std::memset(&d.ics, 0x5A, sizeof d.ics);
    if (o.main)
        d.main = *o.main;
    else
        std::memset(&d.main, 0x5A, sizeof d.main);
    d.ci.samplingFrequencyIndex = o.sfi;
    d.ci.predSfbMax = o.pred_sfb_max;
    d.ci.pIcsInfo = o.common ? o.common : &d.ics;
    aactest::Placed placed(w, o.lead, o.misalign);
    nkp8u* p = placed.start();
    int offset = o.lead;
    d.status = o.decoder == kLc ? nkpsNoiselessDecoder_LC_AAC(&p, &offset, o.common_window, &d.ci, d.sf.data(),
                                                              d.spectrum.data(), d.band_cb.data(), d.tns.data())
                                : nkpsNoiselessDecode_AAC(&p, &offset, &d.main, d.sf.data(), d.spectrum.data(),
                                                          d.band_cb.data(), d.tns.data(), &d.ci, o.window_sequence,
                                                          o.max_sfb, o.common_window, o.layer, o.object_type);
    d.consumed = placed.moved(p, offset);
    return d;
}

const nkp16s* swb_long(int sfi) {
    static const std::vector<int>* rows = aacref::tables().swb_long;
    static nkp16s table[13][64];
    for (size_t b = 0; b < rows[sfi].size(); ++b) table[sfi][b] = static_cast<nkp16s>(rows[sfi][b]);
    return table[sfi];
}

// ---- every code word --------------------------------------------------------------

// All tuples of a book with every sign pattern (unsigned books), escape
// magnitudes from a list in book 11.
std::vector<std::vector<int>> all_tuples(int book) {
    static const int escapes[] = {16, 17, 31, 32, 63, 64, 100, 511, 1000, 4095, 4096, 8191};
    std::vector<std::vector<int>> out;
    int next_escape = 0;
    for (const auto& [values, code] : aactest::codes().spectral[book]) {
        if (!aacref::tables().books[book].is_unsigned) {
            out.push_back(values);
            continue;
        }
        int nonzero = 0;
        for (int v : values) nonzero += v != 0;
        for (int signs = 0; signs < (1 << nonzero); ++signs) {
            std::vector<int> t = values;
            int k = nonzero;
            for (int& v : t) {
                if (!v) continue;
                if (v == 16) v = escapes[next_escape++ % 12];
                if ((signs >> --k) & 1) v = -v;
            }
            out.push_back(t);
        }
    }
    return out;
}

class CodeBooks : public ::testing::TestWithParam<int> {};

TEST_P(CodeBooks, EveryCodeWordAndSignPatternDecodes) {
    const int book = GetParam();
    const std::vector<std::vector<int>> tuples = all_tuples(book);
    const int dim = static_cast<int>(tuples[0].size());
    // 48 kHz long windows: 49 bands over all 1024 lines, one section each
    // frame; the tuples fill as many frames as they need, zeros after.
    const size_t per_frame = 1024 / dim;
    int frame = 0;
    for (size_t first = 0; first < tuples.size(); first += per_frame, ++frame) {
        SCOPED_TRACE("frame " + std::to_string(frame));
        BitWriter w;
        w.put(100, 8);
        ics_long(w, 49);
        sections(w, false, {{book, 49}});
        for (int b = 0; b < 49; ++b) sf(w, 0);
        no_side_data(w);
        std::vector<nkp32s> want(1024, 0);
        for (size_t i = 0; i < per_frame; ++i) {
            const std::vector<int> t = first + i < tuples.size() ? tuples[first + i] : std::vector<int>(dim, 0);
            tuple(w, book, t);
            for (int j = 0; j < dim; ++j) want[i * dim + j] = t[j];
        }
        for (int lead = frame % 8; lead < 8; lead += 3) {
            Options o;
            o.sfi = 3;
            o.lead = lead;
            o.misalign = static_cast<size_t>(lead % 4);
            const Decoded d = decode(w, o);
            ASSERT_EQ(d.status, nkpStatusOk);
            EXPECT_EQ(d.consumed, static_cast<long>(w.bit_count()));
            ASSERT_EQ(d.spectrum, want);
            EXPECT_EQ(std::vector<nkp8u>(d.band_cb.begin(), d.band_cb.begin() + 49), std::vector<nkp8u>(49, book));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Books, CodeBooks, ::testing::Range(1, 12),
                         [](const ::testing::TestParamInfo<int>& i) { return "book" + std::to_string(i.param); });

TEST(ScaleFactors, EveryDifference) {
    // Global gain 128; band pairs +d then -d (cb 1), so every difference
    // occurs and the value stays in range. Zero spectrum (book 1, all-zero quads).
    std::vector<int> diffs;
    for (int d = -60; d <= 60; ++d) diffs.insert(diffs.end(), {d, -d});
    for (size_t first = 0; first < diffs.size(); first += 48) {
        const int bands = static_cast<int>(std::min<size_t>(48, diffs.size() - first));
        BitWriter w;
        w.put(128, 8);
        ics_long(w, bands);
        sections(w, false, {{1, bands}});
        std::vector<nkp16u> want;
        int value = 128;
        for (int b = 0; b < bands; ++b) {
            sf(w, diffs[first + b]);
            want.push_back(static_cast<nkp16u>(value += diffs[first + b]));
        }
        no_side_data(w);
        for (int i = 0; i < swb_long(4)[bands] / 4; ++i) tuple(w, 1, {0, 0, 0, 0});
        for (Decoder which : {kLc, kGeneral}) {
            Options o;
            o.decoder = which;
            const Decoded d = decode(w, o);
            ASSERT_EQ(d.status, nkpStatusOk);
            EXPECT_EQ(d.consumed, static_cast<long>(w.bit_count()));
            EXPECT_EQ(std::vector<nkp16u>(d.sf.begin(), d.sf.begin() + bands), want);
        }
    }
}

// ---- the rules, one stream each ----------------------------------------------------

struct RuleCase {
    const char* name;
    Decoder decoder;
    void (*write)(BitWriter&);
    nkpStatus status;
    long consumed;           // bits; negative: the whole stream less -consumed - 1 bits
    std::vector<int> sf;     // leading scale factors (as stored, 16 bits)
    std::vector<int> lines;  // leading spectral lines (0x5A5A5A5A: not written)
    int sfi = 4;
};

class Rules : public ::testing::TestWithParam<RuleCase> {};

TEST_P(Rules, StatusCursorAndOutputs) {
    const RuleCase& c = GetParam();
    BitWriter w;
    c.write(w);
    Options o;
    o.decoder = c.decoder;
    o.sfi = c.sfi;
    const Decoded d = decode(w, o);
    EXPECT_EQ(d.status, c.status);
    EXPECT_EQ(d.consumed, c.consumed < 0 ? static_cast<long>(w.bit_count()) + c.consumed + 1 : c.consumed);
    for (size_t i = 0; i < c.sf.size(); ++i) EXPECT_EQ(d.sf[i], static_cast<nkp16u>(c.sf[i])) << "band " << i;
    for (size_t i = 0; i < c.lines.size(); ++i) EXPECT_EQ(d.spectrum[i], c.lines[i]) << "line " << i;
}

constexpr int kUnwritten = 0x5A5A5A5A;
constexpr int kHead = 8 + 11;  // global gain and a long ics_info

// max_sfb 0: no sections, no scale factors, a zero spectrum.
void max_sfb_0(BitWriter& w) {
    w.put(77, 8);
    ics_long(w, 0);
    no_side_data(w);
}

// Section lengths 31, 31, 3: a 65-band section, beyond any max_sfb.
void overlong_section(BitWriter& w) {
    w.put(100, 8);
    ics_long(w, 49);
    w.put(1, 4).put(31, 5).put(31, 5).put(3, 5);
}

void zero_length_section(BitWriter& w) {
    w.put(100, 8);
    ics_long(w, 4);
    w.put(1, 4).put(0, 5);
}

// A section that ends short of max_sfb, then one past it.
void sections_past_max_sfb(BitWriter& w) {
    w.put(100, 8);
    ics_long(w, 4);
    sections(w, false, {{1, 3}, {2, 2}});
}

// Noise first (9 bits: 256, global gain 100 gives 10), then a book-1 band
// with difference +1 from the shared accumulator: 11.
void noise_then_scale_factor(BitWriter& w) {
    w.put(100, 8);
    ics_long(w, 3);
    sections(w, false, {{13, 1}, {1, 1}, {13, 1}});
    w.put(256, 9);
    sf(w, 1);
    sf(w, -4);  // the second noise band adds like a scale factor: 7
    no_side_data(w);
    tuple(w, 1, {1, 0, 0, -1});
}

// An intensity band with index 50 (difference -10): -10 stored as 65526.
void intensity(BitWriter& w) {
    w.put(90, 8);
    ics_long(w, 3);
    sections(w, false, {{15, 1}, {1, 1}, {14, 1}});
    sf(w, -10);
    sf(w, 5);  // the scale factor accumulator is apart: 95
    sf(w, 3);  // intensity again: -7
    no_side_data(w);
    tuple(w, 1, {0, 1, 0, 0});
}

// The first noise energy is not range-checked: 10 + 0 - 346 = -336, stored
// as 65200; the scale factor after it (+60) is, and fails.
void first_noise_energy_unchecked(BitWriter& w) {
    w.put(10, 8);
    ics_long(w, 2);
    sections(w, false, {{13, 1}, {1, 1}});
    w.put(0, 9);
    sf(w, 60);
}

void shared_accumulator_below_0(BitWriter& w) {
    w.put(50, 8);
    ics_long(w, 3);
    sections(w, false, {{13, 1}, {1, 2}});
    w.put(300, 9);  // noise energy 4
    sf(w, -3);      // 1
    sf(w, -2);      // -1: refused, not stored
}

void scale_factor_above_255(BitWriter& w) {
    w.put(250, 8);
    ics_long(w, 2);
    sections(w, false, {{2, 2}});
    sf(w, 5);
    sf(w, 1);
}

void book_12(BitWriter& w) {
    w.put(100, 8);
    ics_long(w, 3);
    sections(w, false, {{1, 1}, {12, 1}, {1, 1}});
    sf(w, 2);
}

// One escape pair decoded, then one whose first value has nine one bits.
void escape_prefix_too_long(BitWriter& w) {
    w.put(100, 8);
    ics_long(w, 1);
    sections(w, false, {{11, 1}});
    sf(w, 0);
    no_side_data(w);
    tuple(w, 11, {-16, 3});
    w.code(aactest::codes().spectral[11].at({16, 0}).c_str()).put(0, 1);
    w.put(0x1FF, 9).put(0, 1).put(0, 13);
}

// Escapes at both ends: prefix 0 (N = 4, 16..31) and eight ones (N = 12).
void escape_lengths(BitWriter& w) {
    w.put(100, 8);
    ics_long(w, 1);
    sections(w, false, {{11, 1}});
    sf(w, 0);
    no_side_data(w);
    w.code(aactest::codes().spectral[11].at({16, 16}).c_str()).put(0, 1).put(1, 1);
    w.put(0, 1).put(15, 4);                  // 16 + 15
    w.put(0xFF, 8).put(0, 1).put(4095, 12);  // -(4096 + 4095)
    tuple(w, 11, {16, -5});
}

// Pulses on a positive line, a zero line and a negative line (band 1 at
// 44.1 kHz starts at line 4).
void pulses(BitWriter& w) {
    w.put(100, 8);
    ics_long(w, 2);
    sections(w, false, {{1, 2}});
    sf(w, 0);
    sf(w, 0);
    w.put(1, 1).put(2, 2).put(1, 6);
    w.put(0, 5).put(3, 4);  // line 4: 1 + 3
    w.put(1, 5).put(5, 4);  // line 5: 0 - 5
    w.put(2, 5).put(2, 4);  // line 7: -1 - 2
    w.put(0, 2);            // no TNS, no gain control
    tuple(w, 1, {0, 0, 0, 0});
    tuple(w, 1, {1, 0, 1, -1});
}

void pulse_beyond_the_frame(BitWriter& w) {
    w.put(100, 8);
    ics_long(w, 48);
    sections(w, false, {{0, 48}});
    w.put(1, 1).put(3, 2).put(48, 6);                                                      // band 48 starts at line 928
    w.put(31, 5).put(1, 4).put(31, 5).put(2, 4).put(31, 5).put(3, 4).put(3, 5).put(4, 4);  // 959, 990, 1021, 1024
    w.put(0, 2);
}

void pulse_start_52(BitWriter& w) {
    w.put(100, 8);
    ics_long(w, 0);
    w.put(1, 1).put(0, 2).put(52, 6).put(0, 9);
}

void pulse_start_at_num_swb(BitWriter& w) {
    w.put(100, 8);
    ics_long(w, 0);
    w.put(1, 1).put(1, 2).put(49, 6).put(0, 18);
}

void pulse_with_short_windows(BitWriter& w) {
    w.put(100, 8);
    ics_short(w, 0, 0x7F);
    w.put(1, 1).put(0, 17);
}

void gain_control(BitWriter& w) {
    w.put(100, 8);
    ics_long(w, 0);
    w.put(0, 2).put(1, 1).put(0, 8);
}

void tns_order_13(BitWriter& w) {
    w.put(100, 8);
    ics_long(w, 0);
    w.put(0, 1).put(1, 1).put(1, 2).put(0, 1).put(10, 6).put(13, 5).put(0, 8);
}

// max_sfb 50 at 44.1 kHz (49 bands): refused by the low-complexity decoder
// at once; the general one reads on and refuses the section past band 49
// when the spectrum reaches it.
void beyond_num_swb(BitWriter& w) {
    w.put(100, 8);
    ics_long(w, 50);
    sections(w, false, {{1, 49}, {2, 1}});
    for (int b = 0; b < 50; ++b) sf(w, 0);
    no_side_data(w);
    for (int i = 0; i < 256; ++i) tuple(w, 1, {0, 0, i == 0, 0});
    w.put(0, 16);
}

const std::vector<int> zeros8(8, 0);

// clang-format off
const RuleCase kRuleCases[] = {
    {"max_sfb_0_zero_spectrum", kLc, max_sfb_0, nkpStatusOk, -1, {}, zeros8},
    {"max_sfb_0_general", kGeneral, max_sfb_0, nkpStatusOk, -1, {}, zeros8},
    {"section_31_31_3_is_65_bands", kLc, overlong_section, nkpStatusBadAacSectionData, kHead + 19, {}, {kUnwritten}},
    {"zero_length_section", kGeneral, zero_length_section, nkpStatusBadAacSectionData, kHead + 9, {}, {}},
    {"sections_past_max_sfb", kLc, sections_past_max_sfb, nkpStatusBadAacSectionData, kHead + 18, {}, {}},
    {"noise_energy_shares_the_accumulator", kGeneral, noise_then_scale_factor, nkpStatusOk, -1, {10, 11, 7},
     {0, 0, 0, 0, 1, 0, 0, -1, 0}},
    {"noise_band_refused_by_low_complexity", kLc, noise_then_scale_factor, nkpStatusBadAacCodebook, kHead + 3 * 9,
     {0xA5A5}, {kUnwritten}},
    {"first_noise_energy_unchecked", kGeneral, first_noise_energy_unchecked, nkpStatusBadAacScaleFactor, -1,
     {65200, 0xA5A5}, {kUnwritten}},
    {"intensity_positions_own_accumulator", kLc, intensity, nkpStatusOk, -1, {65526, 95, 65529},
     {0, 0, 0, 0, 0, 1, 0, 0}},
    {"shared_accumulator_below_0", kGeneral, shared_accumulator_below_0, nkpStatusBadAacScaleFactor, -1,
     {4, 1, 0xA5A5}, {kUnwritten}},
    {"scale_factor_above_255", kLc, scale_factor_above_255, nkpStatusBadAacScaleFactor, -1, {255, 0xA5A5}, {}},
    {"book_12_in_scale_factors", kGeneral, book_12, nkpStatusBadAacCodebook, -1, {102, 0xA5A5}, {kUnwritten}},
    {"escape_prefix_of_nine_ones", kLc, escape_prefix_too_long, nkpStatusBadAacQuantValue, -1 - 14, {},
     {-16, 3, kUnwritten, kUnwritten}},
    {"escape_lengths", kLc, escape_lengths, nkpStatusOk, -1, {}, {31, -8191, 16, -5, 0}},
    {"pulses_add_to_positive_subtract_otherwise", kLc, pulses, nkpStatusOk, -1, {}, {0, 0, 0, 0, 4, -5, 1, -3, 0}},
    {"pulse_reaching_line_1024", kLc, pulse_beyond_the_frame, nkpStatusBadAacPulseData, -1, {}, {}},
    {"pulse_start_band_52", kLc, pulse_start_52, nkpStatusBadAacPulseData, kHead + 3 + 6, {}, {kUnwritten}},
    {"pulse_start_band_at_num_swb", kGeneral, pulse_start_at_num_swb, nkpStatusBadAacPulseData, kHead + 9 + 18, {},
     {kUnwritten}},
    {"pulse_with_short_windows", kLc, pulse_with_short_windows, nkpStatusBadAacPulseData, 8 + 15 + 1, {}, {}},
    {"gain_control", kGeneral, gain_control, nkpStatusBadAacGainControl, kHead + 3, {}, {kUnwritten}},
    {"tns_order_13", kLc, tns_order_13, nkpStatusBadAacTnsOrder, kHead + 2 + 2 + 1 + 6 + 5, {}, {kUnwritten}},
    {"max_sfb_above_num_swb_low_complexity", kLc, beyond_num_swb, nkpStatusBadAacMaxSfb, kHead, {}, {kUnwritten}},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Cases, Rules, ::testing::ValuesIn(kRuleCases),
                         [](const ::testing::TestParamInfo<RuleCase>& i) { return std::string(i.param.name); });

TEST(Rules, PulsesBeforeTheOneReachingTheFrameEndStayAdded) {
    BitWriter w;
    pulse_beyond_the_frame(w);
    const Decoded d = decode(w);
    ASSERT_EQ(d.status, nkpStatusBadAacPulseData);
    EXPECT_EQ(d.spectrum[959], -1);
    EXPECT_EQ(d.spectrum[990], -2);
    EXPECT_EQ(d.spectrum[1021], -3);
}

TEST(Rules, OverlongSectionWritesItsBookForAllItsBands) {
    BitWriter w;
    overlong_section(w);
    const Decoded d = decode(w);
    ASSERT_EQ(d.status, nkpStatusBadAacSectionData);
    EXPECT_EQ(std::vector<nkp8u>(d.band_cb.begin(), d.band_cb.begin() + 66), [] {
        std::vector<nkp8u> v(65, 1);
        v.push_back(0xA5);
        return v;
    }());
    EXPECT_EQ(d.ci.sectEnd[0], 65);
    EXPECT_EQ(d.ci.numSec[0], 0x5A5A5A5A) << "the failing group's count is not stored";
}

TEST(Rules, SectionBeyondNumSwbFailsInTheGeneralDecoderWhenTheSpectrumGetsThere) {
    BitWriter w;
    beyond_num_swb(w);
    Options o;
    o.decoder = kGeneral;
    const Decoded d = decode(w, o);
    EXPECT_EQ(d.status, nkpStatusDataError);
    EXPECT_EQ(d.ci.numSwb, 49);
    EXPECT_EQ(d.sf[49], 100) << "scale factors go up to max_sfb";
    EXPECT_EQ(d.band_cb[49], 2);
    EXPECT_EQ(d.spectrum[2], 1);
    EXPECT_EQ(d.spectrum[1023], 0) << "the first section decoded in full";
    EXPECT_EQ(d.consumed, static_cast<long>(w.bit_count()) - 16);
}

// ---- short windows and the caller's window information -----------------------------

// Eight short windows in groups of 3 and 5 (grouping 1101111), max_sfb 2
// at 44.1 kHz (bands of 4 lines): group 0 has band 0 in book 1 and band 1
// zero; group 1 band 0 zero and band 1 in book 2.
void two_groups(BitWriter& w, bool with_ics) {
    w.put(120, 8);
    if (with_ics) ics_short(w, 2, 0x6F);
    sections(w, true, {{1, 1}, {0, 1}});
    sections(w, true, {{0, 1}, {2, 1}});
    sf(w, -20);
    sf(w, 1);
    no_side_data(w);
    for (int i = 0; i < 3; ++i) tuple(w, 1, {i - 1, 0, 0, -1});
    for (int i = 0; i < 5; ++i) tuple(w, 2, {0, 1, 0, i % 2});
}

std::vector<nkp32s> two_groups_spectrum() {
    std::vector<nkp32s> s(1024, 0);
    for (int i = 0; i < 3; ++i) s[4 * i] = i - 1, s[4 * i + 3] = -1;  // group 0, band 0, windows 0..2
    for (int i = 0; i < 5; ++i) s[384 + 20 + 4 * i + 1] = 1, s[384 + 20 + 4 * i + 3] = i % 2;  // group 1, band 1
    return s;
}

TEST(ShortWindows, GroupsHoldTheirBandsWindowAfterWindow) {
    BitWriter w;
    two_groups(w, true);
    for (Decoder which : {kLc, kGeneral}) {
        Options o;
        o.decoder = which;
        const Decoded d = decode(w, o);
        ASSERT_EQ(d.status, nkpStatusOk);
        EXPECT_EQ(d.consumed, static_cast<long>(w.bit_count()));
        EXPECT_EQ(d.ci.numWindows, 8);
        EXPECT_EQ(d.ci.frameLength, 128);
        EXPECT_EQ(d.ci.numSwb, 14);
        EXPECT_EQ(std::vector<int>(d.ci.numSec, d.ci.numSec + 2), (std::vector<int>{2, 2}));
        EXPECT_EQ(std::vector<int>(d.ci.sectEnd, d.ci.sectEnd + 4), (std::vector<int>{1, 2, 1, 2}));
        EXPECT_EQ(std::vector<int>(d.sf.begin(), d.sf.begin() + 5), (std::vector<int>{100, 0, 0, 101, 0xA5A5}));
        EXPECT_EQ(d.spectrum, two_groups_spectrum());
    }
}

TEST(CommonWindow, TheCallersWindowInformationIsUsedAndChecked) {
    BitWriter w;
    two_groups(w, false);
    nkpAacIcsInfo ics;
    std::memset(&ics, 0, sizeof ics);
    ics.windowSequence = 2;
    ics.maxSfb = 2;
    ics.numWindowGroups = 2;
    ics.windowGroupLength[0] = 3;
    ics.windowGroupLength[1] = 5;
    struct Bad {
        const char* name;
        void (*spoil)(nkpAacIcsInfo&);
        nkpStatus lc, general;
    };
    const Bad cases[] = {
        {"valid", [](nkpAacIcsInfo&) {}, nkpStatusOk, nkpStatusOk},
        {"groups_0", [](nkpAacIcsInfo& i) { i.numWindowGroups = 0; }, nkpStatusBadAacWindowGroups,
         nkpStatusBadAacWindowGroups},
        {"groups_9", [](nkpAacIcsInfo& i) { i.numWindowGroups = 9; }, nkpStatusBadAacWindowGroups,
         nkpStatusBadAacWindowGroups},
        {"lengths_short_of_8", [](nkpAacIcsInfo& i) { i.windowGroupLength[1] = 4; }, nkpStatusBadAacWindowGroups,
         nkpStatusBadAacWindowGroups},
        {"length_0", [](nkpAacIcsInfo& i) { i.windowGroupLength[0] = 0, i.windowGroupLength[1] = 8; },
         nkpStatusBadAacWindowGroups, nkpStatusBadAacWindowGroups},
        {"long_with_two_groups", [](nkpAacIcsInfo& i) { i.windowSequence = 0; }, nkpStatusBadAacWindowGroups,
         nkpStatusBadAacWindowGroups},
        // The general decoder takes 15 short bands and reads on (not checked here).
        {"max_sfb_above_num_swb", [](nkpAacIcsInfo& i) { i.maxSfb = 15; }, nkpStatusBadAacMaxSfb, 1},
        {"short_max_sfb_16", [](nkpAacIcsInfo& i) { i.maxSfb = 16; }, nkpStatusBadAacMaxSfb, nkpStatusBadAacMaxSfb},
        {"negative_max_sfb", [](nkpAacIcsInfo& i) { i.maxSfb = -1; }, nkpStatusBadAacMaxSfb, nkpStatusBadAacMaxSfb},
    };
    for (const Bad& c : cases) {
        SCOPED_TRACE(c.name);
        nkpAacIcsInfo spoilt = ics;
        c.spoil(spoilt);
        for (Decoder which : {kLc, kGeneral}) {
            Options o;
            o.decoder = which;
            o.common_window = 1;
            o.common = &spoilt;
            const nkpAacIcsInfo before = spoilt;
            const Decoded d = decode(w, o);
            const nkpStatus expected = which == kLc ? c.lc : c.general;
            if (expected == 1) continue;
            EXPECT_EQ(d.status, expected);
            EXPECT_EQ(std::memcmp(&before, &spoilt, sizeof before), 0);
            if (d.status == nkpStatusOk) {
                EXPECT_EQ(d.spectrum, two_groups_spectrum());
            } else {
                EXPECT_EQ(d.consumed, 8) << "refused after the global gain";
                EXPECT_EQ(d.band_cb[0], 0xA5);
            }
        }
    }
}

TEST(LayerMode, WindowFromTheArgumentsAndMainHeaderWithoutSideData) {
    // The two groups' stream without ics_info and without the pulse, TNS
    // and gain-control fields, which the layer mode does not have.
    BitWriter layered;
    layered.put(120, 8);
    sections(layered, true, {{1, 1}, {0, 1}});
    sections(layered, true, {{0, 1}, {2, 1}});
    sf(layered, -20);
    sf(layered, 1);
    for (int i = 0; i < 3; ++i) tuple(layered, 1, {i - 1, 0, 0, -1});
    for (int i = 0; i < 5; ++i) tuple(layered, 2, {0, 1, 0, i % 2});
    nkpAacMainHeader main;
    std::memset(&main, 0, sizeof main);
    main.numWindowGroups = 2;
    main.windowGroupLength[0] = 3;
    main.windowGroupLength[1] = 5;
    Options o;
    o.decoder = kGeneral;
    o.layer = 1;
    o.window_sequence = 2;
    o.max_sfb = 2;
    o.main = &main;
    Decoded d = decode(layered, o);
    ASSERT_EQ(d.status, nkpStatusOk);
    EXPECT_EQ(d.consumed, static_cast<long>(layered.bit_count()));
    EXPECT_EQ(d.spectrum, two_groups_spectrum());
    EXPECT_EQ(d.ci.pulseDataPresent, 0x5A5A5A5A);
    EXPECT_EQ(d.ics.windowSequence, 0x5A5A5A5A) << "pIcsInfo is not touched";
    // A long window in layer mode needs one group of one window.
    o.window_sequence = 0;
    d = decode(layered, o);
    EXPECT_EQ(d.status, nkpStatusBadAacWindowGroups);
}

// ---- window information read by the decoders ---------------------------------------

// What the real streams cannot show: the decoder's refusal of a prediction
// limit above 41 after the reset fields, and the low-complexity decoder
// reading a predictor flag with its reset fields and no band flags.
TEST(DecoderIcsInfo, PredictionLimitAndLowComplexityPredictorFlag) {
    BitWriter m;
    m.put(100, 8);
    m.put(0, 1).put(0, 2).put(0, 1).put(3, 6).put(1, 1).put(1, 1).put(21, 5).put(1, 1).put(0, 1);
    sections(m, false, {{0, 3}});
    no_side_data(m);
    Options o;
    o.decoder = kGeneral;
    o.object_type = 1;
    o.pred_sfb_max = 42;
    Decoded d = decode(m, o);
    EXPECT_EQ(d.status, nkpStatusBadAacPrediction);
    EXPECT_EQ(d.consumed, 8 + 11 + 1 + 5);
    EXPECT_EQ(d.ics.predictorResetGroupNumber, 21);

    BitWriter lc;
    lc.put(100, 8);
    lc.put(0, 1).put(0, 2).put(0, 1).put(3, 6).put(1, 1).put(0, 1);
    sections(lc, false, {{0, 3}});
    no_side_data(lc);
    d = decode(lc);
    ASSERT_EQ(d.status, nkpStatusOk);
    EXPECT_EQ(d.consumed, static_cast<long>(lc.bit_count()));
    EXPECT_EQ(d.ics.predictorDataPresent, 1);
    EXPECT_EQ(d.ics.predictorReset, 0);
    EXPECT_EQ(d.ics.predictionUsed[0], 0x5A) << "no band flags with limit 0";
}

// ---- the largest stream ----------------------------------------------------------------

// Eight short windows in eight groups at 22.05 kHz (15 short bands over all
// 128 lines), every band its own book-11 section with the longest scale
// factor codes, the longest TNS data, and every pair an escape pair with
// eight-one prefixes: the most a channel stream can hold.
TEST(ReadBound, TheLargestChannelStreamStaysWithinTheDocumentedRead) {
    BitWriter w;
    w.put(128, 8);
    ics_short(w, 15, 0);
    for (int g = 0; g < 8; ++g) {
        std::vector<Section> s(15, Section{11, 1});
        sections(w, true, s);
    }
    for (int i = 0; i < 120; ++i) sf(w, i % 2 ? -50 : 50);
    w.put(0, 1).put(1, 1);
    for (int win = 0; win < 8; ++win) {
        w.put(1, 1).put(1, 1).put(15, 4).put(7, 3).put(1, 1).put(0, 1);
        for (int i = 0; i < 7; ++i) w.put(i, 4);
    }
    w.put(0, 1);
    std::vector<nkp32s> want;
    const char* code = aactest::codes().spectral[11].at({16, 16}).c_str();
    for (int i = 0; i < 512; ++i) {
        w.code(code).put(i & 1, 1).put(0, 1);
        w.put(0xFF, 8).put(0, 1).put(i, 12);
        w.put(0xFF, 8).put(0, 1).put(4095, 12);
        want.push_back((i & 1 ? -1 : 1) * (4096 + i));
        want.push_back(8191);
    }
    long worst = 0;
    for (int lead = 0; lead < 8; ++lead) {
        Options o;
        o.sfi = 7;
        o.lead = lead;
        o.misalign = static_cast<size_t>(lead % 4);
        for (Decoder which : {kLc, kGeneral}) {
            o.decoder = which;
            const Decoded d = decode(w, o);
            ASSERT_EQ(d.status, nkpStatusOk);
            ASSERT_EQ(d.consumed, static_cast<long>(w.bit_count()));
            ASSERT_EQ(d.spectrum, want);
            worst = std::max(worst, (lead + d.consumed + 7) / 8 + 7);
        }
    }
    EXPECT_EQ(worst, 3577) << "the bound the header states";
}

}  // namespace
