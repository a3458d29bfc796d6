// Every stream reader's argument checks in their order: one row per case,
// named for what it pins; the first failing check decides, and a refused
// call writes nothing (cursor and records as they were).
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <vector>

#include "nkpac.h"

namespace {

// Everything a row may pass, with valid defaults: a stream of zero bytes
// (every reader succeeds on it) and records filled with a pattern.
struct Scratch {
    std::vector<nkp8u> stream = std::vector<nkp8u>(64, 0);
    nkp8u* p = stream.data();
    nkp8u* null_p = nullptr;
    int offset = 3;
    int bad_offset = 8;
    int negative_offset = -1;
    nkpAacAdtsHeader adts;
    nkpAacAdifHeader adif;
    nkpAacPrgCfgElt pce[2];
    nkpAacExtensionHeader ext;
    nkpAacIcsInfo ics;
    nkpAacCpeInfo cpe;
    nkpAacMainHeader main;
    nkpAacChanInfo chan;
    nkp8u ms[480];
    nkp8u bytes[510];
    int tag, count;
    nkp16u sf[408];
    nkp32s spectrum[1024];
    nkp8u band_cb[408];
    nkp8s tns[60];

    Scratch() {
        std::memset(&adts, 0x5A, reinterpret_cast<char*>(&tns + 1) - reinterpret_cast<char*>(&adts));
        ext.pMsUsed = ms;
        main.pMsUsed = ms;
        chan.pIcsInfo = &ics;
        chan.samplingFrequencyIndex = 4;
        chan.predSfbMax = 0;
    }
    // What a refused call must leave as it was.
    std::vector<char> state() const {
        const char* first = reinterpret_cast<const char*>(&p);
        const char* last = reinterpret_cast<const char*>(&tns + 1);
        return std::vector<char>(first, last);
    }
};

struct Row {
    const char* name;
    std::function<void(Scratch&)> setup;  // inputs the row changes
    std::function<nkpStatus(Scratch&)> call;
    nkpStatus expected;
};

constexpr nkpStatus kOk = nkpStatusOk, kNull = nkpStatusNullPointer, kOffset = nkpStatusBadAacBitOffset;

#define ROW(name, expr, expected)                                                     \
    {                                                                                 \
        name, [](Scratch&) {}, [](Scratch& s) -> nkpStatus { return expr; }, expected \
    }
#define SET(name, setup, expr, expected)                                                        \
    {                                                                                           \
        name, [](Scratch& s) { setup; }, [](Scratch& s) -> nkpStatus { return expr; }, expected \
    }

// The readers with their valid arguments, so that a row changes one thing.
#define PCE(pp, off, rec) nkpsDecodePrgCfgElt_AAC(pp, off, rec)
#define DSE(pp, off, t, c, b) nkpsDecodeDatStrElt_AAC(pp, off, t, c, b)
#define FIL(pp, off, c, b) nkpsDecodeFillElt_AAC(pp, off, c, b)
#define EXT(pp, off, h, tns, st, bf, start, limit, seq) \
    nkpsDecodeExtensionHeader_AAC(pp, off, h, tns, st, bf, start, limit, seq)
#define CPE(pp, off, i, c, limit) nkpsDecodeChanPairElt_AAC(pp, off, i, c, limit)
#define CPE4(pp, off, i, c, m, limit, aot) nkpsDecodeChanPairElt_MP4_AAC(pp, off, i, c, m, limit, aot)
#define MAIN(pp, off, m, ch, sw) nkpsDecodeMainHeader_AAC(pp, off, m, ch, sw)
#define LC(pp, off, cw, ci, sf, sp, cb, tn) nkpsNoiselessDecoder_LC_AAC(pp, off, cw, ci, sf, sp, cb, tn)
#define GEN(pp, off, m, sf, sp, cb, tn, ci, seq, msfb, cw, layer, aot) \
    nkpsNoiselessDecode_AAC(pp, off, m, sf, sp, cb, tn, ci, seq, msfb, cw, layer, aot)

const Row kRows[] = {
    // ADTS: pointers only.
    ROW("adts/stream_null", nkpsUnpackADTSFrameHeader_AAC(nullptr, &s.adts), kNull),
    ROW("adts/byte_pointer_null", nkpsUnpackADTSFrameHeader_AAC(&s.null_p, &s.adts), kNull),
    ROW("adts/header_null", nkpsUnpackADTSFrameHeader_AAC(&s.p, nullptr), kNull),
    ROW("adts/ok", nkpsUnpackADTSFrameHeader_AAC(&s.p, &s.adts), kOk),
    // ADIF: pointers, then the capacity 1..16.
    ROW("adif/byte_pointer_null", nkpsUnpackADIFHeader_AAC(&s.null_p, &s.adif, s.pce, 1), kNull),
    ROW("adif/header_null", nkpsUnpackADIFHeader_AAC(&s.p, nullptr, s.pce, 1), kNull),
    ROW("adif/pce_null_before_capacity", nkpsUnpackADIFHeader_AAC(&s.p, &s.adif, nullptr, 0), kNull),
    ROW("adif/capacity_0", nkpsUnpackADIFHeader_AAC(&s.p, &s.adif, s.pce, 0), nkpStatusBadAacPceCount),
    ROW("adif/capacity_17", nkpsUnpackADIFHeader_AAC(&s.p, &s.adif, s.pce, 17), nkpStatusBadAacPceCount),
    ROW("adif/ok", nkpsUnpackADIFHeader_AAC(&s.p, &s.adif, s.pce, 1), kOk),
    // PCE, DSE, FIL: pointers, then the offset.
    ROW("pce/stream_null", PCE(nullptr, &s.offset, s.pce), kNull),
    ROW("pce/offset_null", PCE(&s.p, nullptr, s.pce), kNull),
    ROW("pce/record_null_before_offset", PCE(&s.p, &s.bad_offset, nullptr), kNull),
    ROW("pce/byte_pointer_null", PCE(&s.null_p, &s.offset, s.pce), kNull),
    ROW("pce/offset_8", PCE(&s.p, &s.bad_offset, s.pce), kOffset),
    ROW("pce/offset_negative", PCE(&s.p, &s.negative_offset, s.pce), kOffset),
    ROW("pce/ok", PCE(&s.p, &s.offset, s.pce), kOk),
    ROW("dse/tag_null", DSE(&s.p, &s.offset, nullptr, &s.count, s.bytes), kNull),
    ROW("dse/count_null", DSE(&s.p, &s.offset, &s.tag, nullptr, s.bytes), kNull),
    ROW("dse/buffer_null_before_offset", DSE(&s.p, &s.bad_offset, &s.tag, &s.count, nullptr), kNull),
    ROW("dse/offset_8", DSE(&s.p, &s.bad_offset, &s.tag, &s.count, s.bytes), kOffset),
    ROW("dse/ok", DSE(&s.p, &s.offset, &s.tag, &s.count, s.bytes), kOk),
    ROW("fil/count_null", FIL(&s.p, &s.offset, nullptr, s.bytes), kNull),
    ROW("fil/buffer_null_before_offset", FIL(&s.p, &s.bad_offset, &s.count, nullptr), kNull),
    ROW("fil/byte_pointer_null", FIL(&s.null_p, &s.offset, &s.count, s.bytes), kNull),
    ROW("fil/offset_negative", FIL(&s.p, &s.negative_offset, &s.count, s.bytes), kOffset),
    ROW("fil/ok", FIL(&s.p, &s.offset, &s.count, s.bytes), kOk),
    // Extension header: pointers (pMsUsed with the stereo switch), offset,
    // the three switches, start band and limit, window sequence.
    ROW("ext/header_null", EXT(&s.p, &s.offset, nullptr, 1, 1, 1, 0, 51, 0), kNull),
    SET("ext/ms_used_null_with_stereo", (s.ext.pMsUsed = nullptr), EXT(&s.p, &s.bad_offset, &s.ext, 1, 1, 1, 0, 51, 0),
        kNull),
    SET("ext/ms_used_unneeded_without_stereo", (s.ext.pMsUsed = nullptr),
        EXT(&s.p, &s.offset, &s.ext, 1, 0, 1, 0, 51, 0), kOk),
    ROW("ext/offset_before_switches", EXT(&s.p, &s.bad_offset, &s.ext, 2, 2, 2, 52, 52, 4), kOffset),
    ROW("ext/tns_switch_first", EXT(&s.p, &s.offset, &s.ext, 2, 2, 2, 52, 52, 4), nkpStatusBadAacHeaderFlag),
    ROW("ext/stereo_switch_second", EXT(&s.p, &s.offset, &s.ext, 1, 2, 2, 52, 52, 4), nkpStatusBadAacExtFlag2),
    ROW("ext/stereo_switch_negative", EXT(&s.p, &s.offset, &s.ext, 0, -1, 0, 52, 52, 4), nkpStatusBadAacExtFlag2),
    ROW("ext/band_flags_switch", EXT(&s.p, &s.offset, &s.ext, 0, 0, 2, 52, 52, 4), nkpStatusBadAacExtFlag3),
    ROW("ext/start_band_52", EXT(&s.p, &s.offset, &s.ext, 0, 0, 0, 52, 0, 4), nkpStatusBadAacMaxSfb),
    ROW("ext/band_limit_52", EXT(&s.p, &s.offset, &s.ext, 0, 0, 0, 0, 52, 4), nkpStatusBadAacMaxSfb),
    ROW("ext/band_limit_negative", EXT(&s.p, &s.offset, &s.ext, 0, 0, 0, 0, -1, 0), nkpStatusBadAacMaxSfb),
    ROW("ext/window_sequence_4", EXT(&s.p, &s.offset, &s.ext, 0, 0, 0, 51, 51, 4), nkpStatusBadAacWindowSequence),
    ROW("ext/ok", EXT(&s.p, &s.offset, &s.ext, 1, 1, 1, 51, 51, 3), kOk),
    // Channel pair headers: pointers, offset, prediction limit.
    ROW("cpe/ics_null", CPE(&s.p, &s.offset, nullptr, &s.cpe, 0), kNull),
    ROW("cpe/cpe_null", CPE(&s.p, &s.offset, &s.ics, nullptr, 0), kNull),
    ROW("cpe/byte_pointer_null", CPE(&s.null_p, &s.bad_offset, &s.ics, &s.cpe, 42), kNull),
    ROW("cpe/offset_before_limit", CPE(&s.p, &s.bad_offset, &s.ics, &s.cpe, 42), kOffset),
    ROW("cpe/limit_42", CPE(&s.p, &s.offset, &s.ics, &s.cpe, 42), nkpStatusBadAacPrediction),
    ROW("cpe/limit_negative", CPE(&s.p, &s.offset, &s.ics, &s.cpe, -1), nkpStatusBadAacPrediction),
    ROW("cpe/limit_41", CPE(&s.p, &s.offset, &s.ics, &s.cpe, 41), kOk),
    ROW("cpe_mp4/main_null", CPE4(&s.p, &s.offset, &s.ics, &s.cpe, nullptr, 0, 2), kNull),
    ROW("cpe_mp4/offset_before_limit", CPE4(&s.p, &s.negative_offset, &s.ics, &s.cpe, &s.main, 52, 2), kOffset),
    ROW("cpe_mp4/limit_52", CPE4(&s.p, &s.offset, &s.ics, &s.cpe, &s.main, 52, 2), nkpStatusBadAacMaxSfb),
    ROW("cpe_mp4/limit_51_any_object_type", CPE4(&s.p, &s.offset, &s.ics, &s.cpe, &s.main, 51, 99), kOk),
    // Main-layer header: pointers (pMsUsed with two channels), offset,
    // channels, switch; the switch's refusal comes after the whole header.
    ROW("main/header_null", MAIN(&s.p, &s.offset, nullptr, 1, 0), kNull),
    SET("main/ms_used_null_two_channels", (s.main.pMsUsed = nullptr), MAIN(&s.p, &s.offset, &s.main, 2, 0), kNull),
    SET("main/ms_used_unneeded_one_channel", (s.main.pMsUsed = nullptr), MAIN(&s.p, &s.offset, &s.main, 1, 0), kOk),
    ROW("main/offset_before_channels", MAIN(&s.p, &s.bad_offset, &s.main, 3, 2), kOffset),
    ROW("main/channels_before_switch", MAIN(&s.p, &s.offset, &s.main, 3, 2), nkpStatusBadAacElementChannels),
    ROW("main/channels_0", MAIN(&s.p, &s.offset, &s.main, 0, 0), nkpStatusBadAacElementChannels),
    ROW("main/switch_2", MAIN(&s.p, &s.offset, &s.main, 2, 2), nkpStatusBadAacHeaderFlag),
    // Low-complexity decoder: every pointer and pIcsInfo, offset, common
    // window flag, sampling index, prediction limit (which must be 0).
    ROW("lc/chan_null", LC(&s.p, &s.offset, 0, nullptr, s.sf, s.spectrum, s.band_cb, s.tns), kNull),
    ROW("lc/scale_factors_null", LC(&s.p, &s.offset, 0, &s.chan, nullptr, s.spectrum, s.band_cb, s.tns), kNull),
    ROW("lc/spectrum_null", LC(&s.p, &s.offset, 0, &s.chan, s.sf, nullptr, s.band_cb, s.tns), kNull),
    ROW("lc/band_cb_null", LC(&s.p, &s.offset, 0, &s.chan, s.sf, s.spectrum, nullptr, s.tns), kNull),
    ROW("lc/tns_null", LC(&s.p, &s.offset, 0, &s.chan, s.sf, s.spectrum, s.band_cb, nullptr), kNull),
    SET("lc/ics_null", (s.chan.pIcsInfo = nullptr),
        LC(&s.p, &s.bad_offset, 0, &s.chan, s.sf, s.spectrum, s.band_cb, s.tns), kNull),
    ROW("lc/byte_pointer_null", LC(&s.null_p, &s.bad_offset, 2, &s.chan, s.sf, s.spectrum, s.band_cb, s.tns), kNull),
    ROW("lc/offset_before_flag", LC(&s.p, &s.bad_offset, 2, &s.chan, s.sf, s.spectrum, s.band_cb, s.tns), kOffset),
    SET("lc/common_window_2", (s.chan.samplingFrequencyIndex = 12, s.chan.predSfbMax = 1),
        LC(&s.p, &s.offset, 2, &s.chan, s.sf, s.spectrum, s.band_cb, s.tns), nkpStatusBadAacNoiselessMode),
    SET("lc/sampling_index_12", (s.chan.samplingFrequencyIndex = 12, s.chan.predSfbMax = 1),
        LC(&s.p, &s.offset, 1, &s.chan, s.sf, s.spectrum, s.band_cb, s.tns), nkpStatusBadAacSamplingIndex),
    SET("lc/sampling_index_negative", (s.chan.samplingFrequencyIndex = -1),
        LC(&s.p, &s.offset, 1, &s.chan, s.sf, s.spectrum, s.band_cb, s.tns), nkpStatusBadAacSamplingIndex),
    SET("lc/prediction_limit_not_0", (s.chan.predSfbMax = 1),
        LC(&s.p, &s.offset, 1, &s.chan, s.sf, s.spectrum, s.band_cb, s.tns), nkpStatusBadAacPrediction),
    ROW("lc/ok", LC(&s.p, &s.offset, 0, &s.chan, s.sf, s.spectrum, s.band_cb, s.tns), kOk),
    // General decoder: pointers (pIcsInfo unless in layer mode), offset,
    // common window flag, window sequence, layer flag, object type,
    // max_sfb, sampling index.
    ROW("gen/main_null", GEN(&s.p, &s.offset, nullptr, s.sf, s.spectrum, s.band_cb, s.tns, &s.chan, 0, 0, 0, 0, 2),
        kNull),
    ROW("gen/chan_null", GEN(&s.p, &s.offset, &s.main, s.sf, s.spectrum, s.band_cb, s.tns, nullptr, 0, 0, 0, 0, 2),
        kNull),
    SET("gen/ics_null", (s.chan.pIcsInfo = nullptr),
        GEN(&s.p, &s.offset, &s.main, s.sf, s.spectrum, s.band_cb, s.tns, &s.chan, 0, 0, 0, 0, 2), kNull),
    SET("gen/ics_unneeded_in_layer_mode",
        (s.chan.pIcsInfo = nullptr, s.main.numWindowGroups = 1, s.main.windowGroupLength[0] = 1),
        GEN(&s.p, &s.offset, &s.main, s.sf, s.spectrum, s.band_cb, s.tns, &s.chan, 0, 0, 0, 1, 2), kOk),
    ROW("gen/offset_first",
        GEN(&s.p, &s.bad_offset, &s.main, s.sf, s.spectrum, s.band_cb, s.tns, &s.chan, 4, 52, 2, 2, 17), kOffset),
    ROW("gen/common_window_before_sequence",
        GEN(&s.p, &s.offset, &s.main, s.sf, s.spectrum, s.band_cb, s.tns, &s.chan, 4, 52, 2, 2, 17),
        nkpStatusBadAacNoiselessMode),
    ROW("gen/sequence_before_layer",
        GEN(&s.p, &s.offset, &s.main, s.sf, s.spectrum, s.band_cb, s.tns, &s.chan, 4, 52, 1, 2, 17),
        nkpStatusBadAacWindowSequence),
    ROW("gen/layer_before_object_type",
        GEN(&s.p, &s.offset, &s.main, s.sf, s.spectrum, s.band_cb, s.tns, &s.chan, 3, 52, 1, 2, 17),
        nkpStatusBadAacNoiselessFlag),
    ROW("gen/object_type_before_max_sfb",
        GEN(&s.p, &s.offset, &s.main, s.sf, s.spectrum, s.band_cb, s.tns, &s.chan, 3, 52, 1, 1, 17),
        nkpStatusBadAacLimit16),
    SET("gen/max_sfb_before_sampling_index", (s.chan.samplingFrequencyIndex = 12),
        GEN(&s.p, &s.offset, &s.main, s.sf, s.spectrum, s.band_cb, s.tns, &s.chan, 3, 52, 1, 1, 16),
        nkpStatusBadAacMaxSfb),
    SET("gen/sampling_index_12", (s.chan.samplingFrequencyIndex = 12),
        GEN(&s.p, &s.offset, &s.main, s.sf, s.spectrum, s.band_cb, s.tns, &s.chan, 3, 51, 1, 1, 16),
        nkpStatusBadAacSamplingIndex),
    SET("gen/prediction_limit_not_checked_up_front", (s.chan.predSfbMax = 99),
        GEN(&s.p, &s.offset, &s.main, s.sf, s.spectrum, s.band_cb, s.tns, &s.chan, 0, 0, 0, 0, 1), kOk),
};

class StreamStatus : public ::testing::TestWithParam<Row> {};

TEST_P(StreamStatus, FirstFailingCheckDecides) {
    const Row& row = GetParam();
    Scratch s;
    row.setup(s);
    const std::vector<char> before = s.state();
    const nkpStatus status = row.call(s);
    ASSERT_EQ(status, row.expected);
    if (status < 0 && status != nkpStatusAacNotSupported)
        EXPECT_EQ(s.state(), before) << "a refused call wrote into its cursor or outputs";
}

INSTANTIATE_TEST_SUITE_P(Rows, StreamStatus, ::testing::ValuesIn(kRows), [](const ::testing::TestParamInfo<Row>& info) {
    std::string n = info.param.name;
    for (char& c : n)
        if (c == '/') c = '_';
    return n;
});

}  // namespace
