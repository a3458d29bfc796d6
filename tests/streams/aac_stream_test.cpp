// Walks every raw data block of the committed AAC samples element by element
// with the library's readers (ADTS or ADIF header, SCE, CPE, LFE, DSE, PCE,
// FIL, END) and compares everything they return with the plain parser of
// aac_reference.h: cursors, records, scale factors, band code books, section
// and TNS data and the quantised spectra. Each frame sits at the end of
// readable memory (a guard page after the readers' slack), so the walk also
// proves the read slack on real data.
//
// Where the library's rules refuse a valid stream the walk expects the
// refusal exactly where the rules put it: the low-complexity decoder at the
// first noise band, the shared scale-factor/noise accumulator where it
// leaves 0..255, and sampling index 12 (7,350 Hz) before reading anything.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "common/guarded_buffer.h"
#include "nkpac.h"
#include "streams/aac_reference.h"

namespace {

using aacref::Channel;
using aacref::Element;
using aacref::IcsInfo;

enum Feature : unsigned {
    kNoise = 1,
    kIntensity = 2,
    kMsMask = 4,
    kTns = 8,
    kShort = 16,
    kPrediction = 32,
    kLtp = 64,
    kLfe = 128,
    kPceElement = 256,
    kDse = 512,
    kFil = 1024,
    kAdif = 2048,
    kSfi12 = 4096,
    kSharedRefusal = 8192,
};

struct Totals {
    int blocks = 0, channels = 0, lc_checked = 0, general_checked = 0;
    int noise_bands = 0, intensity_bands = 0, ms_masks = 0, tns = 0, short_windows = 0, prediction = 0, ltp = 0;
    int lfe = 0, pce = 0, dse = 0, fil = 0, escapes = 0;
    int lc_noise_refusals = 0, shared_refusals = 0, rate_refusals = 0;
    unsigned seen = 0;
};

struct Walk {
    const uint8_t* data;  // the buffer the library reads (guarded)
    aacref::Stream stream;
    Totals* totals;
};

nkp8u* at(const Walk& w, int64_t bit, int& offset) {
    offset = static_cast<int>(bit & 7);
    return const_cast<nkp8u*>(w.data + (bit >> 3));
}

int64_t where(const Walk& w, const nkp8u* p, int offset) { return (p - w.data) * 8 + offset; }

void expect_ics(const nkpAacIcsInfo& got, const IcsInfo& want, int object_type) {
    EXPECT_EQ(got.icsReservedBit, want.reserved);
    EXPECT_EQ(got.windowSequence, want.window_sequence);
    EXPECT_EQ(got.windowShape, want.window_shape);
    EXPECT_EQ(got.maxSfb, want.max_sfb);
    if (want.short_windows()) EXPECT_EQ(got.scaleFactorGrouping, want.grouping);
    EXPECT_EQ(got.predictorDataPresent, want.predictor ? 1 : 0);
    if (want.predictor && object_type == 1) {
        EXPECT_EQ(got.predictorReset, want.reset);
        if (want.reset) EXPECT_EQ(got.predictorResetGroupNumber, want.reset_group);
        for (int b = 0; b < std::min(want.max_sfb, 41); ++b) EXPECT_EQ(got.predictionUsed[b], want.prediction_used[b]);
    }
    ASSERT_EQ(got.numWindowGroups, want.num_groups);
    for (int g = 0; g < want.num_groups; ++g) EXPECT_EQ(got.windowGroupLength[g], want.group_length[g]);
}

void expect_ltp(const nkpAacLtpInfo& got, const aacref::Ltp& want, int max_sfb) {
    static const int q14[8] = {9352, 11413, 13320, 14931, 16137, 17496, 19572, 22438};
    EXPECT_EQ(got.ltpDataPresent, want.present ? 1 : 0);
    if (!want.present) return;
    EXPECT_EQ(got.ltpLag, want.lag);
    EXPECT_EQ(got.ltpCoef, q14[want.coef]);
    for (int b = 0; b < 40; ++b) EXPECT_EQ(got.ltpLongUsed[b], b < max_sfb ? want.long_used[b] : 0);
}

// One channel stream through one of the noiseless decoders: the statuses the
// rules predict, then every output against the reference.
void check_channel(const Walk& w, const Channel& c, bool general, bool common_window, nkpAacIcsInfo* common_ics) {
    const aacref::Stream& s = w.stream;
    const int object_type = s.object_type;
    nkpAacIcsInfo own_ics;
    std::memset(&own_ics, 0x5A, sizeof own_ics);
    nkpAacChanInfo ci;
    std::memset(&ci, 0x5A, sizeof ci);
    ci.samplingFrequencyIndex = s.sfi;
    ci.predSfbMax = general && object_type == 1 ? aacref::pred_sfb_max(s.sfi) : 0;
    ci.pIcsInfo = common_window ? common_ics : &own_ics;
    nkpAacMainHeader main;
    std::memset(&main, 0x5A, sizeof main);
    std::vector<nkp16u> sf(8 * 51, 0xA5A5);
    std::vector<nkp32s> spectrum(1024, 0x5A5A5A5A);
    std::vector<nkp8u> band_cb(8 * 51, 0xA5);
    std::vector<nkp8s> tns_coef(60, 0x5A);
    nkpAacIcsInfo before = *ci.pIcsInfo;

    auto run = [&](int sfi) {
        ci.samplingFrequencyIndex = sfi;
        int offset;
        nkp8u* p = at(w, c.start, offset);
        const nkpStatus st =
            general ? nkpsNoiselessDecode_AAC(&p, &offset, &main, sf.data(), spectrum.data(), band_cb.data(),
                                              tns_coef.data(), &ci, 0, 0, common_window, 0, object_type)
                    : nkpsNoiselessDecoder_LC_AAC(&p, &offset, common_window, &ci, sf.data(), spectrum.data(),
                                                  band_cb.data(), tns_coef.data());
        return std::make_pair(st, where(w, p, offset));
    };

    int sfi = s.sfi;
    if (sfi == 12) {
        // 7,350 Hz has no band tables of its own: refused before reading.
        const auto [st, pos] = run(12);
        EXPECT_EQ(st, nkpStatusBadAacSamplingIndex);
        EXPECT_EQ(pos, c.start);
        ++w.totals->rate_refusals;
        sfi = 11;  // decoders commonly take the 8 kHz tables
    }
    const auto [status, end] = run(sfi);

    // Which refusal the rules predict, and where the cursor then stops.
    int failing_band = -1;
    nkpStatus expected = nkpStatusOk;
    int64_t expected_end = c.end;
    if (!general && c.first_noise >= 0) {
        failing_band = c.first_noise;
        expected = nkpStatusBadAacCodebook;
        expected_end = c.sf_start[failing_band];
        ++w.totals->lc_noise_refusals;
    } else if (c.shared_out_of_range >= 0) {
        failing_band = c.shared_out_of_range;
        expected = nkpStatusBadAacScaleFactor;
        expected_end = c.sf_end[failing_band];
        ++w.totals->shared_refusals;
    }
    ASSERT_EQ(status, expected);
    EXPECT_EQ(end, expected_end);
    general ? ++w.totals->general_checked : ++w.totals->lc_checked;

    EXPECT_EQ(ci.globalGain, c.global_gain);
    const IcsInfo& ics = c.ics;
    if (!common_window) {
        expect_ics(own_ics, ics, object_type);
        if (general && object_type != 1 && ics.predictor) expect_ltp(main.ltpInfo[0], ics.ltp[0], ics.max_sfb);
    } else {
        EXPECT_EQ(std::memcmp(&before, common_ics, sizeof before), 0) << "the common window is read only";
    }
    EXPECT_EQ(ci.numWindows, ics.short_windows() ? 8 : 1);
    EXPECT_EQ(ci.frameLength, ics.short_windows() ? 128 : 1024);
    const auto& t = aacref::tables();
    EXPECT_EQ(ci.numSwb, static_cast<int>((ics.short_windows() ? t.swb_short[sfi] : t.swb_long[sfi]).size()) - 1);
    ASSERT_EQ(c.sect_cb.size(), c.sect_end.size());
    for (size_t i = 0; i < c.sect_cb.size(); ++i) {
        EXPECT_EQ(ci.sectCb[i], c.sect_cb[i]);
        EXPECT_EQ(ci.sectEnd[i], c.sect_end[i]);
    }
    for (size_t g = 0; g < c.num_sec.size(); ++g) EXPECT_EQ(ci.numSec[g], c.num_sec[g]);
    const size_t bands = c.band_cb.size();
    EXPECT_EQ(std::vector<int>(band_cb.begin(), band_cb.begin() + bands), c.band_cb);
    const size_t decoded = failing_band < 0 ? bands : static_cast<size_t>(failing_band);
    for (size_t i = 0; i < decoded; ++i)
        ASSERT_EQ(sf[i], static_cast<nkp16u>(c.shared[i])) << "band " << i << " code book " << c.band_cb[i];
    if (failing_band >= 0) {
        EXPECT_EQ(sf[decoded], 0xA5A5) << "the refused band is not stored";
        return;
    }
    ASSERT_EQ(std::vector<int32_t>(spectrum.begin(), spectrum.end()), c.spectrum);
    EXPECT_EQ(ci.pulseDataPresent, c.pulse ? 1 : 0);
    EXPECT_EQ(ci.tnsDataPresent, c.tns.present ? 1 : 0);
    EXPECT_EQ(ci.gainControlDataPresent, 0);
    if (c.tns.present) {
        size_t filter = 0, directed = 0, coef = 0;
        for (size_t win = 0; win < c.tns.n_filt.size(); ++win) {
            EXPECT_EQ(ci.nFilt[win], c.tns.n_filt[win]);
            if (!c.tns.n_filt[win]) continue;
            EXPECT_EQ(ci.coefRes[win], c.tns.coef_res[win]);
            for (int f = 0; f < c.tns.n_filt[win]; ++f, ++filter) {
                EXPECT_EQ(ci.length[filter], c.tns.length[filter]);
                EXPECT_EQ(ci.order[filter], c.tns.order[filter]);
                if (c.tns.order[filter]) EXPECT_EQ(ci.direction[directed], c.tns.direction[directed]), ++directed;
            }
        }
        for (; coef < c.tns.coef.size(); ++coef) EXPECT_EQ(tns_coef[coef], c.tns.coef[coef]);
    }
}

void count_features(Totals& t, const Channel& c) {
    ++t.channels;
    for (int cb : c.band_cb) {
        t.noise_bands += cb == 13;
        t.intensity_bands += cb == 14 || cb == 15;
    }
    t.tns += c.tns.present;
    t.short_windows += c.ics.short_windows();
    t.escapes += c.escapes;
}

// The channel streams of one element through every decoder that applies to
// the stream's object type.
void check_channels(const Walk& w, const Element& e, nkpAacIcsInfo* common_ics) {
    for (size_t ch = 0; ch < e.channels.size(); ++ch) {
        SCOPED_TRACE("channel " + std::to_string(ch));
        const Channel& c = e.channels[ch];
        count_features(*w.totals, c);
        if (w.stream.object_type == 2) check_channel(w, c, false, e.common_window, common_ics);
        check_channel(w, c, true, e.common_window, common_ics);
    }
}

void check_cpe(const Walk& w, const Element& e) {
    const int aot = w.stream.object_type;
    const int limit = aot == 1 ? aacref::pred_sfb_max(w.stream.sfi) : 0;
    nkpAacIcsInfo ics[2];
    for (int form = 0; form < 2; ++form) {
        // The MPEG-2 form reads prediction flags, not LTP data.
        if (form == 0 && aot == 4) continue;
        SCOPED_TRACE(form ? "MPEG-4 form" : "MPEG-2 form");
        std::memset(&ics[form], 0x5A, sizeof ics[form]);
        nkpAacCpeInfo cpe;
        std::memset(&cpe, 0x5A, sizeof cpe);
        nkpAacMainHeader main;
        std::memset(&main, 0x5A, sizeof main);
        int offset;
        nkp8u* p = at(w, e.start, offset);
        const nkpStatus st = form ? nkpsDecodeChanPairElt_MP4_AAC(&p, &offset, &ics[form], &cpe, &main, limit, aot)
                                  : nkpsDecodeChanPairElt_AAC(&p, &offset, &ics[form], &cpe, limit);
        ASSERT_EQ(st, nkpStatusOk);
        EXPECT_EQ(where(w, p, offset), e.header_end);
        EXPECT_EQ(cpe.commonWindow, e.common_window ? 1 : 0);
        if (!e.common_window) continue;
        expect_ics(ics[form], e.ics, aot);
        EXPECT_EQ(cpe.msMaskPresent, e.ms_mask_present);
        if (e.ms_mask_present == 1)
            for (int g = 0; g < e.ics.num_groups; ++g)
                for (int b = 0; b < e.ics.max_sfb; ++b) EXPECT_EQ(cpe.msUsed[g * 60 + b], e.ms_used[g][b]);
        if (form == 1 && aot != 1 && e.ics.predictor) {
            for (int ch = 0; ch < 2; ++ch) expect_ltp(main.ltpInfo[ch], e.ics.ltp[ch], e.ics.max_sfb);
            EXPECT_EQ(main.maxSfb, e.ics.max_sfb);
        }
    }
    Totals& t = *w.totals;
    t.ms_masks += e.ms_mask_present != 0;
    t.prediction += e.ics.predictor && aot == 1;
    t.ltp += e.ics.ltp[0].present || e.ics.ltp[1].present;
    check_channels(w, e, &ics[1]);
}

void check_pce(const Walk& w, const Element& e) {
    nkpAacPrgCfgElt pce;
    std::memset(&pce, 0x5A, sizeof pce);
    int offset;
    nkp8u* p = at(w, e.start, offset);
    ASSERT_EQ(nkpsDecodePrgCfgElt_AAC(&p, &offset, &pce), nkpStatusOk);
    EXPECT_EQ(where(w, p, offset), e.end);
    // The record's fields in stream order, as the reference lists them.
    std::vector<int> got = {pce.elementInstanceTag, pce.profile,         pce.samplingFrequencyIndex,
                            pce.numFrontElt,        pce.numSideElt,      pce.numBackElt,
                            pce.numLfeElt,          pce.numAssocDataElt, pce.numValidCcElt};
    got.push_back(pce.monoMixdownPresent);
    if (pce.monoMixdownPresent) got.push_back(pce.monoMixdownEltNumber);
    got.push_back(pce.stereoMixdownPresent);
    if (pce.stereoMixdownPresent) got.push_back(pce.stereoMixdownEltNumber);
    got.push_back(pce.matrixMixdownIdxPresent);
    if (pce.matrixMixdownIdxPresent) got.insert(got.end(), {pce.matrixMixdownIdx, pce.pseudoSurroundEnable});
    auto pairs = [&](int n, const nkp32s* flag, const nkp32s* tag) {
        for (int i = 0; i < n; ++i) {
            if (flag) got.push_back(flag[i]);
            got.push_back(tag[i]);
        }
    };
    pairs(pce.numFrontElt, pce.frontEltIsCpe, pce.frontEltTagSelect);
    pairs(pce.numSideElt, pce.sideEltIsCpe, pce.sideEltTagSelect);
    pairs(pce.numBackElt, pce.backEltIsCpe, pce.backEltTagSelect);
    pairs(pce.numLfeElt, nullptr, pce.lfeEltTagSelect);
    pairs(pce.numAssocDataElt, nullptr, pce.assocDataEltTagSelect);
    pairs(pce.numValidCcElt, pce.ccEltIsIndSw, pce.validCcEltTagSelect);
    EXPECT_EQ(got, e.pce);
    ASSERT_EQ(pce.commentFieldBytes, static_cast<int>(e.comment.size()));
    EXPECT_EQ(std::vector<uint8_t>(pce.commentFieldData, pce.commentFieldData + pce.commentFieldBytes), e.comment);
    ++w.totals->pce;
}

void check_data_element(const Walk& w, const Element& e) {
    std::vector<nkp8u> bytes(510, 0xA5);
    int count = -1, tag = -1, offset;
    nkp8u* p = at(w, e.start, offset);
    if (e.id == aacref::kDse) {
        ASSERT_EQ(nkpsDecodeDatStrElt_AAC(&p, &offset, &tag, &count, bytes.data()), nkpStatusOk);
        EXPECT_EQ(tag, e.tag);
        ++w.totals->dse;
    } else {
        ASSERT_EQ(nkpsDecodeFillElt_AAC(&p, &offset, &count, bytes.data()), nkpStatusOk);
        ++w.totals->fil;
    }
    EXPECT_EQ(where(w, p, offset), e.end);
    ASSERT_EQ(count, e.count);
    EXPECT_EQ(std::vector<uint8_t>(bytes.begin(), bytes.begin() + count), e.bytes);
}

// One raw data block from `bit`; returns where it ends (byte-aligned).
int64_t walk_block(const Walk& w, size_t size, int64_t bit) {
    aacref::Bits ref{w.data, size, bit};
    bool ok;
    const std::vector<Element> elements = aacref::raw_data_block(ref, w.stream, ok);
    EXPECT_TRUE(ok) << "the reference parser failed at bit " << ref.pos;
    if (!ok) return -1;
    ++w.totals->blocks;
    for (const Element& e : elements) {
        SCOPED_TRACE("element " + std::to_string(e.id) + " at bit " + std::to_string(e.start));
        switch (e.id) {
            case aacref::kSce:
            case aacref::kLfe:
                w.totals->lfe += e.id == aacref::kLfe;
                check_channels(w, e, nullptr);
                break;
            case aacref::kCpe:
                check_cpe(w, e);
                break;
            case aacref::kPce:
                check_pce(w, e);
                break;
            case aacref::kDse:
            case aacref::kFil:
                check_data_element(w, e);
                break;
            default:
                break;
        }
        if (::testing::Test::HasFatalFailure()) return -1;
    }
    return ref.pos;
}

void walk_adts(const std::vector<uint8_t>& file, int object_type, Totals& totals) {
    const std::vector<aacref::Adts> frames = aacref::adts_frames(file);
    ASSERT_GT(frames.size(), 10u);
    size_t covered = 0;
    for (size_t i = 0; i < frames.size(); ++i) {
        const aacref::Adts& f = frames[i];
        SCOPED_TRACE("frame " + std::to_string(i));
        covered += f.frame_length;
        nkptest::GuardedBuffer buffer(file.data() + f.offset, f.frame_length, i % 4);
        nkp8u* p = buffer.data();
        nkpAacAdtsHeader h;
        std::memset(&h, 0x5A, sizeof h);
        ASSERT_EQ(nkpsUnpackADTSFrameHeader_AAC(&p, &h), nkpStatusOk);
        EXPECT_EQ(p - buffer.data(), f.protection_absent ? 7 : 9);
        // clang-format off
        const int want[] = {f.id, f.layer, f.protection_absent, f.profile, f.sfi, f.private_bit, f.channel_config,
                            f.original, f.home, f.copyright_bit, f.copyright_start, f.frame_length, f.fullness,
                            f.blocks};
        const int got[] = {h.id, h.layer, h.protectionAbsent, h.profile, h.samplingFrequencyIndex, h.privateBit,
                           h.channelConfiguration, h.originalCopy, h.home, h.copyrightIdentificationBit,
                           h.copyrightIdentificationStart, h.frameLength, h.bufferFullness, h.numRawDataBlocks};
        // clang-format on
        EXPECT_EQ(std::vector<int>(got, got + 14), std::vector<int>(want, want + 14));
        EXPECT_EQ(h.reserved, 0x5A5A5A5A);
        ASSERT_EQ(f.blocks, 1);
        ASSERT_EQ(h.profile + 1, object_type);
        const Walk w{buffer.data(), {object_type, f.sfi}, &totals};
        const int64_t end = walk_block(w, f.frame_length, (p - buffer.data()) * 8);
        ASSERT_EQ(end, int64_t{f.frame_length} * 8) << "END must close the frame";
    }
    EXPECT_EQ(covered, file.size());
}

void walk_adif(const std::vector<uint8_t>& file, Totals& totals) {
    nkptest::GuardedBuffer buffer(file, 1);
    nkp8u* p = buffer.data();
    nkpAacAdifHeader h;
    std::memset(&h, 0x5A, sizeof h);
    nkpAacPrgCfgElt pce[2];
    ASSERT_EQ(nkpsUnpackADIFHeader_AAC(&p, &h, pce, 2), nkpStatusOk);

    // The reference reads the header field by field.
    aacref::Bits ref{buffer.data(), file.size()};
    EXPECT_EQ(h.adifId, static_cast<nkp32u>(ref.bits(16)) << 16 | static_cast<nkp32u>(ref.bits(16)));
    EXPECT_EQ(h.adifId, 0x41444946u);
    EXPECT_EQ(h.copyrightIdPresent, ref.bit());
    for (int i = 0; h.copyrightIdPresent && i < 9; ++i) EXPECT_EQ(h.copyrightId[i], ref.bits(8));
    EXPECT_EQ(h.originalCopy, ref.bit());
    EXPECT_EQ(h.home, ref.bit());
    EXPECT_EQ(h.bitstreamType, ref.bit());
    EXPECT_EQ(h.bitrate, ref.bits(23));
    ASSERT_EQ(h.numPrgCfgElt, ref.bits(4) + 1);
    int sfi = -1, profile = -1;
    for (int i = 0; i < h.numPrgCfgElt; ++i) {
        if (h.bitstreamType == 0) EXPECT_EQ(h.adifBufferFullness[i], ref.bits(20));
        Element e;
        aacref::program_config_element(ref, e);
        EXPECT_EQ(pce[i].elementInstanceTag, e.pce[0]);
        EXPECT_EQ(pce[i].numFrontElt, e.pce[3]);
        EXPECT_EQ(pce[i].frontEltIsCpe[0], 1);
        EXPECT_EQ(std::vector<uint8_t>(pce[i].commentFieldData, pce[i].commentFieldData + pce[i].commentFieldBytes),
                  e.comment);
        profile = e.pce[1];
        sfi = e.pce[2];
    }
    ASSERT_EQ(p - buffer.data(), ref.pos / 8);
    ASSERT_EQ(ref.pos % 8, 0);

    const Walk w{buffer.data(), {profile + 1, sfi}, &totals};
    int64_t bit = ref.pos;
    while (bit < static_cast<int64_t>(file.size()) * 8) {
        SCOPED_TRACE("block at byte " + std::to_string(bit / 8));
        bit = walk_block(w, file.size(), bit);
        ASSERT_GT(bit, 0);
    }
    EXPECT_EQ(bit, static_cast<int64_t>(file.size()) * 8) << "the last block ends the file";
}

struct Sample {
    const char* file;
    int object_type;    // 1 Main, 2 low complexity, 4 LTP
    unsigned features;  // what the stream must contain
};

const Sample kSamples[] = {
    {"lc_8k_mono.aac", 2, 0},
    {"lc_16k_stereo.aac", 2, kMsMask},
    {"lc_22k_mono.aac", 2, 0},
    {"lc_44k_stereo_128.aac", 2, kMsMask | kIntensity},
    {"lc_48k_stereo.aac", 2, kMsMask},
    {"lc_96k_stereo.aac", 2, kMsMask},
    {"lc_7k_mono.aac", 2, kSfi12},
    {"pns_tns_44k_mono.aac", 2, kNoise | kTns},
    {"pns_quiet_44k_mono.aac", 2, kNoise | kSharedRefusal},
    {"is_ms_44k_stereo.aac", 2, kIntensity | kMsMask},
    {"short_44k_stereo.aac", 2, kShort | kTns},
    {"main_22k_stereo.aac", 1, kPrediction | kNoise},
    {"ltp_22k_stereo.aac", 4, kLtp},
    {"surround_48k_5_1.aac", 2, kLfe},
    {"pce_44k_quad.aac", 2, kPceElement},
    {"elements_16k_stereo.aac", 2, kDse | kFil},
    {"adif_44k_stereo.adif", 2, kAdif},
};

class AacStreams : public ::testing::TestWithParam<Sample> {};

TEST_P(AacStreams, EveryElementMatchesTheReference) {
    ASSERT_TRUE(aacref::tables().loaded) << "tools/tables not readable";
    const Sample& sample = GetParam();
    const std::vector<uint8_t> file = aacref::read_file(std::string(NKPAC_TEST_DATA_DIR) + "/aac/" + sample.file);
    ASSERT_FALSE(file.empty());
    Totals t;
    if (sample.features & kAdif)
        walk_adif(file, t);
    else
        walk_adts(file, sample.object_type, t);
    if (HasFatalFailure()) return;

    const unsigned f = sample.features;
    if (f & kNoise) EXPECT_GT(t.noise_bands, 0);
    if (f & kIntensity) EXPECT_GT(t.intensity_bands, 0);
    if (f & kMsMask) EXPECT_GT(t.ms_masks, 0);
    if (f & kTns) EXPECT_GT(t.tns, 0);
    if (f & kShort) EXPECT_GT(t.short_windows, 0);
    if (f & kPrediction) EXPECT_GT(t.prediction, 0);
    if (f & kLtp) EXPECT_GT(t.ltp, 0);
    if (f & kLfe) EXPECT_GT(t.lfe, 0);
    if (f & kPceElement) EXPECT_GT(t.pce, 0);
    if (f & kDse) EXPECT_GT(t.dse, 0);
    if (f & kFil) EXPECT_GT(t.fil, 0);
    if (f & kSharedRefusal) EXPECT_GT(t.shared_refusals, 0);
    if (f & kSfi12) EXPECT_EQ(t.rate_refusals, t.lc_checked + t.general_checked);
    if (!(f & kNoise)) EXPECT_EQ(t.noise_bands, 0) << "only the noise samples substitute noise";
    EXPECT_EQ(t.lc_checked + t.general_checked > 0, true);
    std::printf(
        "[ walk ] %s: %d blocks, %d channel streams (%d low-complexity, %d general decodes); noise %d, "
        "intensity %d bands, M/S %d, TNS %d, short %d, prediction %d, LTP %d, escapes %d; refusals: "
        "noise band %d, shared accumulator %d\n",
        sample.file, t.blocks, t.channels, t.lc_checked, t.general_checked, t.noise_bands, t.intensity_bands,
        t.ms_masks, t.tns, t.short_windows, t.prediction, t.ltp, t.escapes, t.lc_noise_refusals, t.shared_refusals);
}

INSTANTIATE_TEST_SUITE_P(Samples, AacStreams, ::testing::ValuesIn(kSamples),
                         [](const ::testing::TestParamInfo<Sample>& info) {
                             std::string n = info.param.file;
                             return n.substr(0, n.find('.'));
                         });

}  // namespace
