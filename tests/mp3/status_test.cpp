// Every MP3 export's argument checks in their order: first every pointer,
// then one table of faults, each row named for what it pins. A refused call
// writes nothing and leaves the cursor where it was.
#include "common/pointer_checks.h"
#include "mp3/mp3_test_util.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <vector>

namespace {

using namespace nkptest;

struct Scratch {
    nkpMP3FrameHeader h = mp3_header(1, 0, 1, 3);
    nkpMP3SideInfo si[4] = {};
    nkpMP3BitReservoir reservoir = {123, 456};
    alignas(16) uint8_t bytes[2048];
    nkp8u* p = bytes;
    int offset = 0, huf = 10, nz[2] = {20, 20}, prev = 0, main_begin = -1, private_bits = -1, scfsi[8] = {};
    int granule = 0, channel = 0, block = 0, mixed = 0, step = 1;
    alignas(16) int32_t lines[1152] = {}, y[576] = {}, overlap[576] = {};
    int8_t sf[40] = {};
    int16_t pcm[1152] = {};
    Mp3Tables t = mp3_standard_tables();
    alignas(16) uint8_t state[32768] = {};
    alignas(16) uint8_t not_a_state[32768] = {};
    nkpMP3SynthesisState* synth() { return reinterpret_cast<nkpMP3SynthesisState*>(state); }
    Scratch() {
        std::memset(bytes, 0x80, sizeof bytes);
        for (auto& s : si) s = mp3_granule(2, 1, 1, 1, 0, 0), s.part23Length = 20;
        nkpsSynthesisFilterInit_MP3_16s(synth());
    }
    // The calls, with whatever the row changed.
    nkpStatus huffman(int variant) {
        if (variant == 0) return nkpsHuffmanDecode_MP3_1u32s(&p, &offset, lines, nz, si, &h, huf);
        if (variant == 1) return nkpsHuffmanDecodeSfb_MP3_1u32s(&p, &offset, lines, nz, si, &h, huf, t.lng);
        return nkpsHuffmanDecodeSfbMbp_MP3_1u32s(&p, &offset, lines, nz, si, &h, huf, t.lng, t.shrt, t.mixed);
    }
    nkpStatus unpack_sf() { return nkpsUnpackScaleFactors_MP3_1u8s(&p, &offset, sf, si, scfsi, &h, granule, channel); }
    nkpStatus pack_sf() { return nkpsPackScaleFactors_MP3_8s1u(sf, &p, &offset, &h, si, scfsi, granule, channel); }
    nkpStatus unpack_si() { return nkpsUnpackSideInfo_MP3(&p, si, &main_begin, &private_bits, scfsi, &h); }
    nkpStatus pack_si() { return nkpsPackSideInfo_MP3(si, &p, 0, 0, scfsi, &h); }
    nkpStatus requantize() { return nkpsReQuantize_MP3_32s_I(lines, nz, sf, si, &h); }
    nkpStatus joint_stereo() { return nkpsJointStereo_MP3_32s_I(lines, nz, sf, si, &h); }
    nkpStatus imdct() { return nkpsMDCTInv_MP3_32s(lines, y, overlap, nz[0], &prev, block, mixed); }
    nkpStatus reservoir_init() { return nkpsBitReservoirInit_MP3(&reservoir, &h); }
    nkpStatus synthesis(nkpMP3SynthesisState* st) { return nkpsSynthesisFilter_MP3_32s16s(lines, pcm, step, st); }
    nkpStatus free_synthesis(nkpMP3SynthesisState* st) { return nkpsSynthesisFilterFree_MP3_16s(st); }
};

TEST(Mp3Statuses, PointersComeFirst) {
    Scratch s;
    nkp8u* none = nullptr;
    using nkptest::expect_each_pointer_required;
    expect_each_pointer_required("UnpackFrameHeader", nkpsUnpackFrameHeader_MP3, &s.p, &s.h);
    expect_each_pointer_required("PackFrameHeader", nkpsPackFrameHeader_MP3, &s.h, &s.p);
    expect_each_pointer_required("BitReservoirInit", nkpsBitReservoirInit_MP3, &s.reservoir, &s.h);
    nkpMP3FrameHeader bad = mp3_header(2, 3, 4, 4);  // a bad header too: pointers come first
    expect_each_pointer_required("UnpackSideInfo", nkpsUnpackSideInfo_MP3, &s.p, s.si, &s.main_begin,
                                 &s.private_bits, s.scfsi, &bad);
    expect_each_pointer_required("PackSideInfo", nkpsPackSideInfo_MP3, s.si, &s.p, 0, 0, s.scfsi, &bad);
    int bad_offset = 9;
    expect_each_pointer_required("UnpackScaleFactors", nkpsUnpackScaleFactors_MP3_1u8s, &s.p, &bad_offset, s.sf,
                                 s.si, s.scfsi, &bad, 5, 5);
    expect_each_pointer_required("PackScaleFactors", nkpsPackScaleFactors_MP3_8s1u, s.sf, &s.p, &bad_offset, &bad,
                                 s.si, s.scfsi, 5, 5);
    expect_each_pointer_required("HuffmanDecode", nkpsHuffmanDecode_MP3_1u32s, &s.p, &bad_offset, s.lines, s.nz,
                                 s.si, &bad, -1);
    expect_each_pointer_required("HuffmanDecodeSfb", nkpsHuffmanDecodeSfb_MP3_1u32s, &s.p, &bad_offset, s.lines,
                                 s.nz, s.si, &bad, -1, unchecked(static_cast<const nkp16s*>(nullptr)));
    expect_each_pointer_required("HuffmanDecodeSfbMbp", nkpsHuffmanDecodeSfbMbp_MP3_1u32s, &s.p, &bad_offset,
                                 s.lines, s.nz, s.si, &bad, -1, unchecked(s.t.lng), unchecked(s.t.shrt),
                                 unchecked(s.t.mixed));
    int bad_bound[2] = {577, 600};
    expect_each_pointer_required("ReQuantize", nkpsReQuantize_MP3_32s_I, s.lines, bad_bound, s.sf, s.si, &bad);
    expect_each_pointer_required("ReQuantizeSfb", nkpsReQuantizeSfb_MP3_32s_I, s.lines, bad_bound, s.sf, s.si, &bad,
                                 s.t.lng, s.t.shrt);
    expect_each_pointer_required("JointStereo", nkpsJointStereo_MP3_32s_I, s.lines, bad_bound, s.sf, s.si, &bad);
    expect_each_pointer_required("JointStereoSfb", nkpsJointStereoSfb_MP3_32s_I, s.lines, bad_bound, s.sf, s.si,
                                 &bad, s.t.lng, s.t.shrt);
    expect_each_pointer_required("MDCTInv", nkpsMDCTInv_MP3_32s, s.lines, s.y, s.overlap, 577, &s.prev, 4, 2);
    expect_each_pointer_required("SynthesisFilter", nkpsSynthesisFilter_MP3_32s16s, s.lines, s.pcm, 3, s.synth());
    expect_each_pointer_required("SynthesisGetSize", nkpsSynthesisFilterGetSize_MP3_16s, &s.offset);
    expect_each_pointer_required("SynthesisInit", nkpsSynthesisFilterInit_MP3_16s, s.synth());
    expect_each_pointer_required("SynthesisInitAlloc", nkpsSynthesisFilterInitAlloc_MP3_16s,
                                 static_cast<nkpMP3SynthesisState**>(nullptr));
    expect_each_pointer_required("SynthesisFree", nkpsSynthesisFilterFree_MP3_16s, s.synth());
    // A null byte pointer inside the cursor counts as a null pointer.
    EXPECT_EQ(nkpsUnpackFrameHeader_MP3(&none, &s.h), nkpStatusNullPointer);
    EXPECT_EQ(nkpsPackFrameHeader_MP3(&s.h, &none), nkpStatusNullPointer);
    EXPECT_EQ(nkpsUnpackSideInfo_MP3(&none, s.si, &s.main_begin, &s.private_bits, s.scfsi, &s.h), nkpStatusNullPointer);
    EXPECT_EQ(nkpsPackSideInfo_MP3(s.si, &none, 0, 0, s.scfsi, &s.h), nkpStatusNullPointer);
    EXPECT_EQ(nkpsUnpackScaleFactors_MP3_1u8s(&none, &s.offset, s.sf, s.si, s.scfsi, &s.h, 0, 0), nkpStatusNullPointer);
    EXPECT_EQ(nkpsPackScaleFactors_MP3_8s1u(s.sf, &none, &s.offset, &s.h, s.si, s.scfsi, 0, 0), nkpStatusNullPointer);
    for (int v = 0; v < 3; ++v) {
        s.p = nullptr;
        EXPECT_EQ(s.huffman(v), nkpStatusNullPointer) << v;
    }
}

struct Row {
    const char* name;
    std::function<void(Scratch&)> setup;
    std::function<nkpStatus(Scratch&)> call;
    nkpStatus expected;
};

constexpr nkpStatus kOk = nkpStatusOk, kRange = nkpStatusOutOfRange, kSide = nkpStatusBadMP3SideInfo,
                    kHeader = nkpStatusBadMP3FrameHeader, kWrong = nkpStatusWrongObject;

#define ROW(name, setup, call, expected) \
    {name, [](Scratch& s) { setup; }, [](Scratch& s) -> nkpStatus { return s.call; }, expected}
// The three Huffman decoders: the first two share their checks; the Mbp
// variant has its own order.
#define HUFFMAN(name, setup, plain, mbp) \
    ROW("huffman/" name, setup, huffman(0), plain), ROW("huffman_sfb/" name, setup, huffman(1), plain), \
        ROW("huffman_mbp/" name, setup, huffman(2), mbp)
// The reader and the writer of a record kind.
#define BOTH(kind, name, setup, unpack_status, pack_status) \
    ROW(#kind "_unpack/" name, setup, unpack_##kind(), unpack_status), \
        ROW(#kind "_pack/" name, setup, pack_##kind(), pack_status)

const Row kRows[] = {
    ROW("reservoir/lsf", s.h.id = 0, reservoir_init(), kHeader),
    ROW("reservoir/id_2", s.h.id = 2, reservoir_init(), kHeader),
    BOTH(si, "id_2", s.h.id = 2, kHeader, kHeader),
    BOTH(si, "id_negative", s.h.id = -1, kHeader, kHeader),
    BOTH(si, "layer_0", s.h.layer = 0, kHeader, kHeader),
    BOTH(si, "lsf_layer_3", (s.h.id = 0, s.h.layer = 3), kHeader, kHeader),
    BOTH(si, "mode_4", s.h.mode = 4, kHeader, kHeader),
    BOTH(si, "mode_negative", s.h.mode = -1, kHeader, kHeader),
    // The scale-factor writer checks no offset, granule or channel.
    BOTH(sf, "offset_8", s.offset = 8, kRange, kOk),
    BOTH(sf, "offset_negative", s.offset = -1, kRange, kOk),
    BOTH(sf, "granule_2", s.granule = 2, kRange, kOk),
    BOTH(sf, "channel_before_compress", (s.channel = 2, s.si[0].scalefacCompress = 16), kRange, kSide),
    BOTH(sf, "mpeg1_compress_16", s.si[0].scalefacCompress = 16, kSide, kSide),
    BOTH(sf, "mpeg1_compress_negative", s.si[0].scalefacCompress = -1, kSide, kSide),
    BOTH(sf, "mpeg1_ignores_mode_extension", s.h.modeExtension = 9, kOk, kOk),
    BOTH(sf, "lsf_compress_512", (s.h.id = 0, s.si[0].scalefacCompress = 512), kSide, kSide),
    BOTH(sf, "lsf_compress_before_mode_extension", (s.h.id = 0, s.si[0].scalefacCompress = -5, s.h.modeExtension = 4),
         kSide, kSide),
    BOTH(sf, "lsf_mode_extension_4", (s.h.id = 0, s.h.modeExtension = 4), kHeader, kHeader),
    BOTH(sf, "id_2_reads_as_lsf", (s.h.id = 2, s.si[0].scalefacCompress = 300), kOk, kOk),
    HUFFMAN("offset_8", s.offset = 8, kRange, kRange),
    HUFFMAN("offset_negative", s.offset = -1, kRange, kRange),
    HUFFMAN("huf_bits_negative", s.huf = -1, kRange, kSide),
    HUFFMAN("huf_bits_over_part", s.huf = 21, kRange, kSide),
    HUFFMAN("offset_before_side_info", (s.offset = 9, s.si[0].bigValues = 289), kRange, kRange),
    HUFFMAN("big_values_289", s.si[0].bigValues = 289, kSide, kSide),
    HUFFMAN("big_values_before_id", (s.si[0].bigValues = 289, s.h.id = 2), kSide, kHeader),
    HUFFMAN("huf_bits_before_id", (s.huf = -1, s.h.id = 2), kRange, kHeader),
    HUFFMAN("block_type_4", s.si[0].blockType = 4, kSide, kSide),
    HUFFMAN("window_switching_2", s.si[0].windowSwitching = 2, kSide, kSide),
    HUFFMAN("count1_table_2", s.si[0].count1TableSelect = 2, kSide, kSide),
    HUFFMAN("count1_before_sampling_index", (s.si[0].count1TableSelect = 2, s.h.samplingFreqIndex = 3), kSide, kHeader),
    HUFFMAN("layer_2", s.h.layer = 2, kHeader, kHeader),
    HUFFMAN("switched_block_type_0", (s.si[0].windowSwitching = 1, s.si[0].blockType = 0), kSide, kSide),
    HUFFMAN("block_type_0_before_layer", (s.si[0].windowSwitching = 1, s.si[0].blockType = 0, s.h.layer = 3), kHeader,
            kSide),
    HUFFMAN("region_counts_sum_21", (s.si[0].region0Count = 15, s.si[0].region1Count = 6), kSide, kSide),
    HUFFMAN("region_count_negative", s.si[0].region1Count = -1, kSide, kSide),
    HUFFMAN("region_counts_sum_20", (s.si[0].region0Count = 15, s.si[0].region1Count = 5), kOk, kOk),
    HUFFMAN("switched_ignores_region_counts",
            (s.si[0].windowSwitching = 1, s.si[0].blockType = 2, s.si[0].region0Count = 30), kOk, kOk),
    // Requantisation: the bound, the side information, the header.
    ROW("requantize/bound_577_before_block_type", (s.nz[0] = 577, s.si[0].blockType = 4), requantize(), kRange),
    ROW("requantize/bound_negative", s.nz[0] = -1, requantize(), kRange),
    ROW("requantize/block_type_before_id", (s.si[0].blockType = 4, s.h.id = 2), requantize(), kSide),
    ROW("requantize/global_gain_256", s.si[0].globalGain = 256, requantize(), kSide),
    ROW("requantize/subblock_gain_8", s.si[0].subblockGain[1] = 8, requantize(), kSide),
    ROW("requantize/mixed_2", s.si[0].mixedBlock = 2, requantize(), kSide),
    ROW("requantize/scalefac_scale_2", s.si[0].scalefacScale = 2, requantize(), kSide),
    ROW("requantize/preflag_2", s.si[0].preflag = 2, requantize(), kSide),
    ROW("requantize/id_2", s.h.id = 2, requantize(), kHeader),
    ROW("requantize/sampling_index_3", s.h.samplingFreqIndex = 3, requantize(), kHeader),
    // Joint stereo: both bounds, both records, then the header.
    ROW("joint_stereo/bound_600_before_side_info", (s.nz[1] = 600, s.si[1].blockType = 5), joint_stereo(), kRange),
    ROW("joint_stereo/block_type_before_header", (s.si[1].blockType = 5, s.h.modeExtension = 4), joint_stereo(), kSide),
    ROW("joint_stereo/compress_512", s.si[0].scalefacCompress = 512, joint_stereo(), kSide),
    ROW("joint_stereo/mode_extension_4", s.h.modeExtension = 4, joint_stereo(), kHeader),
    ROW("joint_stereo/id_3", s.h.id = 3, joint_stereo(), kHeader),
    ROW("joint_stereo/other_modes_change_nothing", s.h.mode = 2, joint_stereo(), kOk),
    // The hybrid filter bank: every scalar in one check.
    ROW("imdct/bound_577", s.nz[0] = 577, imdct(), kRange),
    ROW("imdct/bound_negative", s.nz[0] = -1, imdct(), kRange),
    ROW("imdct/block_type_4", s.block = 4, imdct(), kRange),
    ROW("imdct/mixed_2", s.mixed = 2, imdct(), kRange),
    ROW("imdct/previous_count_33", s.prev = 33, imdct(), kRange),
    ROW("imdct/bound_576_mixed_stop", (s.nz[0] = 576, s.block = 3, s.mixed = 1), imdct(), kOk),
    // Synthesis: the step, then the object.
    ROW("synthesis/step_0", s.step = 0, synthesis(s.synth()), kRange),
    ROW("synthesis/step_before_object", s.step = 3, synthesis(reinterpret_cast<nkpMP3SynthesisState*>(s.not_a_state)),
        kRange),
    ROW("synthesis/not_an_object", s.step = 2, synthesis(reinterpret_cast<nkpMP3SynthesisState*>(s.not_a_state)),
        kWrong),
    ROW("synthesis_free/not_an_object", , free_synthesis(reinterpret_cast<nkpMP3SynthesisState*>(s.not_a_state)), kWrong),
};

#undef ROW
#undef HUFFMAN
#undef BOTH

TEST(Mp3Statuses, FirstFailingCheckDecidesAndNothingIsWritten) {
    for (const Row& row : kRows) {
        auto s = std::make_unique<Scratch>();
        row.setup(*s);
        std::vector<uint8_t> before(sizeof(Scratch));
        std::memcpy(before.data(), s.get(), sizeof(Scratch));
        EXPECT_EQ(row.call(*s), row.expected) << row.name;
        if (row.expected < 0)
            EXPECT_EQ(std::memcmp(before.data(), s.get(), sizeof(Scratch)), 0) << row.name << ": written before the checks";
    }
}

}  // namespace
