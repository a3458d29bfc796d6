// Walks every frame of the committed MP3 samples: the test finds the frames
// and keeps the main-data reservoir itself, then for every granule and
// channel checks the statuses, that scale factors plus Huffman data end
// exactly part23Length bits after they began, and that all three Huffman
// decoders give the lines of a plain bit-by-bit decoder built here from the
// text tables of the standard.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "common/guarded_buffer.h"
#include "frame/exports.h"
#include "mp3/tables.h"
#include "nkpac.h"

namespace {

std::vector<uint8_t> read_file(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

// ---- the reference decoder ----------------------------------------------

struct Code {
    int length;
    uint32_t bits;
    int x, y;
};

struct ReferenceTables {
    std::vector<Code> pairs[32];
    int linbits[32] = {};
    std::vector<Code> quads_a;  // x holds v*8+w*4+x*2+y
    bool loaded = false;
};

// Parses the standard's tables from their text form (see the tables'
// README): big-value tables 0..31 and quadruple table A.
ReferenceTables load_reference(const std::string& dir) {
    ReferenceTables t;
    std::ifstream pairs(dir + "/mp3_huffman_pairs.txt");
    std::ifstream quads(dir + "/mp3_huffman_quads.txt");
    if (!pairs || !quads) return t;
    std::string line;
    int current = -1;
    std::map<int, int> shares;
    while (std::getline(pairs, line)) {
        line = line.substr(0, line.find('#'));
        std::istringstream in(line);
        std::string first;
        if (!(in >> first)) continue;
        if (first == "table") {
            std::string k, codes;
            int xlen, ylen;
            in >> current >> k >> xlen >> k >> ylen >> k >> t.linbits[current] >> k >> codes;
            if (codes != "none" && std::stoi(codes) != current) shares[current] = std::stoi(codes);
        } else {
            Code c{};
            std::string bits;
            c.x = std::stoi(first);
            in >> c.y >> c.length >> bits;
            for (char b : bits) c.bits = c.bits * 2 + (b == '1');
            t.pairs[current].push_back(c);
        }
    }
    for (auto [table, source] : shares) t.pairs[table] = t.pairs[source];
    bool in_a = false;
    while (std::getline(quads, line)) {
        line = line.substr(0, line.find('#'));
        std::istringstream in(line);
        std::string first;
        if (!(in >> first)) continue;
        if (first == "table") {
            std::string name;
            in >> name;
            in_a = name == "A";
        } else if (in_a) {
            int w, x, y, length;
            std::string bits;
            in >> w >> x >> y >> length >> bits;
            Code c{length, 0, std::stoi(first) * 8 + w * 4 + x * 2 + y, 0};
            for (char b : bits) c.bits = c.bits * 2 + (b == '1');
            t.quads_a.push_back(c);
        }
    }
    t.loaded = true;
    return t;
}

struct BitByBit {
    const uint8_t* data;
    int64_t pos;  // bits from data
    int bit() {
        const int b = (data[pos >> 3] >> (7 - (pos & 7))) & 1;
        ++pos;
        return b;
    }
    uint32_t bits(int n) {
        uint32_t v = 0;
        for (int i = 0; i < n; ++i) v = v * 2 + bit();
        return v;
    }
    // Reads one bit at a time until the bits so far form a code of the table.
    const Code& code(const std::vector<Code>& codes) {
        uint32_t v = 0;
        for (int length = 1; length <= 32; ++length) {
            v = v * 2 + bit();
            for (const Code& c : codes)
                if (c.length == length && c.bits == v) return c;
        }
        static const Code none{0, 0, 0, 0};
        ADD_FAILURE() << "no code matched";
        return none;
    }
};

// The decoding rules written out plainly: region 0 ends at e0 (window
// switching: e0 given, else from the long bands), region 1 at e1, count1
// quadruples while bits remain, the overrunning quadruple dropped.
std::vector<int32_t> reference_decode(const ReferenceTables& t, const uint8_t* data, int64_t bit, int huf_bits,
                                      const nkpMP3SideInfo& si, int e0, int e1) {
    std::vector<int32_t> out(576, 0);
    BitByBit r{data, bit};
    const int big = 2 * si.bigValues;
    int i = 0;
    for (; i < big; i += 2) {
        const int region = i < e0 ? 0 : i < e1 ? 1 : 2;
        const int table = si.tableSelect[region];
        if (t.pairs[table].empty()) continue;  // tables 0, 4 and 14 read nothing
        const Code& c = r.code(t.pairs[table]);
        int x = c.x, y = c.y;
        if (x == 15 && t.linbits[table]) x += static_cast<int>(r.bits(t.linbits[table]));
        if (x && r.bit()) x = -x;
        if (y == 15 && t.linbits[table]) y += static_cast<int>(r.bits(t.linbits[table]));
        if (y && r.bit()) y = -y;
        out[i] = x;
        out[i + 1] = y;
    }
    const int64_t end = bit + huf_bits;
    while (i < 574 && r.pos < end) {
        int q;
        if (si.count1TableSelect == 0) {
            q = r.code(t.quads_a).x;
        } else {
            q = 15 - static_cast<int>(r.bits(4));
        }
        for (int j = 0; j < 4; ++j) {
            int v = (q >> (3 - j)) & 1;
            if (v && r.bit()) v = -v;
            out[i + j] = v;
        }
        i += 4;
    }
    if (r.pos > end) std::fill(out.begin() + (i - 4), out.begin() + i, 0);
    return out;
}

// ---- the stream walk ----------------------------------------------------

struct FrameInfo {
    int version;  // 3 MPEG-1, 2 MPEG-2, 0 MPEG-2.5
    int sfi, mode, protection, length;
};

bool parse_header(const uint8_t* p, FrameInfo& f) {
    static const int kbps[2][15] = {{0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},
                                    {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320}};
    static const int hz[3] = {44100, 48000, 32000};
    if (p[0] != 0xFF || (p[1] & 0xE0) != 0xE0) return false;
    f.version = (p[1] >> 3) & 3;
    const int layer = (p[1] >> 1) & 3;
    const int br = p[2] >> 4;
    f.sfi = (p[2] >> 2) & 3;
    if (f.version == 1 || layer != 1 || br == 0 || br == 15 || f.sfi == 3) return false;
    f.protection = p[1] & 1;
    f.mode = p[3] >> 6;
    const int rate = hz[f.sfi] >> (f.version == 3 ? 0 : f.version == 2 ? 1 : 2);
    const int pad = (p[2] >> 1) & 1;
    f.length = (f.version == 3 ? 144000 : 72000) * kbps[f.version == 3][br] / rate + pad;
    return true;
}

struct Totals {
    int frames = 0, granules = 0, short_blocks = 0, start_stop = 0, compared = 0;
};

// The tables are part of the repository: without them the walk fails.
const ReferenceTables& reference() {
    static const ReferenceTables t = load_reference(NKPAC_TABLES_DIR);
    EXPECT_TRUE(t.loaded && t.pairs[13].size() == 256 && t.pairs[31].size() == 256 && t.quads_a.size() == 16)
        << "the standard's tables under " NKPAC_TABLES_DIR;
    return t;
}

void walk(const std::string& name, Totals& totals) {
    const std::vector<uint8_t> file = read_file(std::string(NKPAC_TEST_DATA_DIR) + "/" + name);
    ASSERT_FALSE(file.empty()) << name;
    const ReferenceTables& ref = reference();
    std::vector<uint8_t> reservoir;
    std::vector<nkp8s> scalefactors[2] = {std::vector<nkp8s>(64), std::vector<nkp8s>(64)};

    size_t pos = 0;
    while (pos + 4 <= file.size()) {
        FrameInfo f;
        if (!parse_header(&file[pos], f) || pos + f.length > file.size()) {
            ++pos;
            continue;
        }
        SCOPED_TRACE(name + " frame " + std::to_string(totals.frames));
        ++totals.frames;
        // The library reads from a copy with room after the frame.
        std::vector<uint8_t> frame(file.begin() + pos, file.begin() + pos + f.length);
        frame.resize(frame.size() + 8, 0);
        nkp8u* p = frame.data();
        nkpMP3FrameHeader h;
        std::memset(&h, 0x55, sizeof h);
        EXPECT_EQ(nkpsUnpackFrameHeader_MP3(&p, &h), nkpStatusOk);
        EXPECT_EQ(p - frame.data(), f.protection ? 4 : 6);
        EXPECT_TRUE(h.id == (f.version == 3 ? 1 : 0) && h.layer == 1 && h.samplingFreqIndex == f.sfi && h.mode == f.mode &&
                    (f.protection || h.crcWord == frame[4] * 256 + frame[5]));

        const int nch = f.mode == 3 ? 1 : 2;
        const int granules = h.id == 1 ? 2 : 1;
        nkpMP3SideInfo si[4];
        int main_data_begin = -1, private_bits = -1, scfsi[8] = {};
        nkp8u* side = p;
        EXPECT_EQ(nkpsUnpackSideInfo_MP3(&p, si, &main_data_begin, &private_bits, scfsi, &h), nkpStatusOk);
        const int side_bytes = h.id == 1 ? (nch == 1 ? 17 : 32) : (nch == 1 ? 9 : 17);
        EXPECT_EQ(p - side, side_bytes);

        const size_t main_start = reservoir.size() - std::min<size_t>(reservoir.size(), main_data_begin);
        const bool have_main = static_cast<size_t>(main_data_begin) <= reservoir.size();
        reservoir.insert(reservoir.end(), frame.begin() + (p - frame.data()), frame.begin() + f.length);
        pos += f.length;
        if (!have_main) continue;

        std::vector<uint8_t> data(reservoir.begin() + main_start, reservoir.end());
        data.resize(data.size() + 16, 0);
        const int row = h.id * 3 + h.samplingFreqIndex;
        const bool mpeg25 = f.version == 0;
        int64_t bit = 0;
        for (int g = 0; g < granules; ++g) {
            for (int c = 0; c < nch; ++c) {
                nkpMP3SideInfo info = si[g * nch + c];
                ++totals.granules;
                if (info.windowSwitching && info.blockType == 2) ++totals.short_blocks;
                if (info.windowSwitching && info.blockType != 2) ++totals.start_stop;

                nkp8u* q = data.data() + (bit >> 3);
                int offset = static_cast<int>(bit & 7);
                ASSERT_EQ(nkpsUnpackScaleFactors_MP3_1u8s(&q, &offset, scalefactors[c].data(), &info, scfsi + 4 * c,
                                                          &h, g, c),
                          nkpStatusOk);
                const int64_t after_sf = (q - data.data()) * 8 + offset;
                const int huf_bits = static_cast<int>(bit + info.part23Length - after_sf);
                ASSERT_GE(huf_bits, 0);

                // The band tables at the stream's real rate for the Mbp
                // variant (MPEG-2.5 is told apart only by the sync).
                nkp16s long_table[6 * 23], short_table[6 * 14];
                const nkp16s mixed[6 * 2] = {8, 3, 8, 3, 8, 3, 6, 3, 6, 3, 6, 3};
                for (int r = 0; r < 6; ++r) {
                    const int rate_row = r < 3 ? (mpeg25 ? 6 : 3) + r : r - 3;
                    std::memcpy(long_table + 23 * r, nkp::mp3::kSfbLong[rate_row], 23 * sizeof(nkp16s));
                    std::memcpy(short_table + 14 * r, nkp::mp3::kSfbShort[rate_row], 14 * sizeof(nkp16s));
                }

                // The built-in band table knows MPEG-2 rates only: MPEG-2.5
                // streams need the caller's tables.
                for (int variant = mpeg25 ? 1 : 0; variant < 3; ++variant) {
                    SCOPED_TRACE("granule " + std::to_string(g) + " channel " + std::to_string(c) + " variant " +
                                 std::to_string(variant));
                    // The first two variants fix region 0 of window-switched
                    // granules at 36 or 54 lines; where the stream's bands
                    // put it elsewhere (8 kHz) only the Mbp variant applies.
                    const int fixed_e0 = (h.id == 1 || info.blockType == 2) ? 36 : 54;
                    const int band_e0 = info.blockType == 2 ? 3 * short_table[14 * row + 3] : long_table[23 * row + 8];
                    if (variant < 2 && info.windowSwitching && fixed_e0 != band_e0) continue;
                    nkp8u* hp = q;
                    int hoff = offset;
                    std::vector<nkp32s> lines(576, 0x7777);
                    int bound = -1;
                    nkpStatus st;
                    if (variant == 0)
                        st = nkpsHuffmanDecode_MP3_1u32s(&hp, &hoff, lines.data(), &bound, &info, &h, huf_bits);
                    else if (variant == 1)
                        st = nkpsHuffmanDecodeSfb_MP3_1u32s(&hp, &hoff, lines.data(), &bound, &info, &h, huf_bits,
                                                            long_table);
                    else
                        st = nkpsHuffmanDecodeSfbMbp_MP3_1u32s(&hp, &hoff, lines.data(), &bound, &info, &h, huf_bits,
                                                               long_table, short_table, mixed);
                    ASSERT_EQ(st, nkpStatusOk);
                    EXPECT_EQ((hp - data.data()) * 8 + hoff, bit + info.part23Length);
                    int last = 576;
                    while (last > 0 && lines[last - 1] == 0) --last;
                    EXPECT_EQ(bound, last);

                    int e0, e1;
                    const nkp16s* lrow = long_table + 23 * row;
                    if (!info.windowSwitching) {
                        e0 = lrow[info.region0Count + 1];
                        e1 = lrow[info.region0Count + info.region1Count + 2];
                    } else {
                        e1 = 576;
                        if (variant < 2)
                            e0 = (h.id == 1 || info.blockType == 2) ? 36 : 54;
                        else if (info.blockType != 2)
                            e0 = lrow[8];
                        else
                            e0 = 3 * short_table[14 * row + 3];
                    }
                    const std::vector<int32_t> want = reference_decode(ref, data.data(), after_sf, huf_bits, info,
                                                                       e0, e1);
                    ASSERT_EQ(std::vector<int32_t>(lines.begin(), lines.end()), want);
                    ++totals.compared;
                }

#if !defined(_WIN32)
                // Again with the granule's bytes at the very end of readable
                // memory (plus the reader's slack): the decoders read no
                // further than the slack after the part's last bit.
                if (info.part23Length > 0) {
                    const int64_t first = bit >> 3;
                    const int64_t last = (bit + info.part23Length - 1) >> 3;
                    const std::vector<uint8_t> part(data.begin() + first, data.begin() + last + 1);
                    for (size_t misalign = 0; misalign < 4; misalign += 3) {
                        nkptest::GuardedBuffer guarded(part, misalign);
                        nkp8u* gp = guarded.data();
                        int goff = static_cast<int>(bit & 7);
                        nkpMP3SideInfo again = si[g * nch + c];
                        std::vector<nkp8s> sf = scalefactors[c];
                        ASSERT_EQ(nkpsUnpackScaleFactors_MP3_1u8s(&gp, &goff, sf.data(), &again, scfsi + 4 * c, &h, g, c),
                                  nkpStatusOk);
                        std::vector<nkp32s> lines(576);
                        int bound;
                        ASSERT_EQ(nkpsHuffmanDecodeSfbMbp_MP3_1u32s(&gp, &goff, lines.data(), &bound, &again, &h,
                                                                    huf_bits, long_table, short_table, mixed),
                                  nkpStatusOk);
                        EXPECT_EQ((gp - guarded.data()) * 8 + goff, (bit & 7) + info.part23Length);
                    }
                }
#endif
                bit += info.part23Length;
            }
        }
    }
}

struct Sample {
    const char* file;
    bool short_blocks;  // the signal forces short blocks
};

const Sample kSamples[] = {
    {"mpeg1_44k_stereo_128.mp3", false}, {"mpeg1_48k_joint.mp3", false},
    {"mpeg1_32k_mono_crc.mp3", false},   {"mpeg1_44k_dual_crc.mp3", false},
    {"mpeg1_44k_joint_short.mp3", true}, {"mpeg2_22k_joint_vbr.mp3", false},
    {"mpeg2_24k_stereo_crc.mp3", false}, {"mpeg2_16k_mono.mp3", false},
    {"mpeg2_24k_mono_short.mp3", true},  {"mpeg25_11k_mono.mp3", false},
    {"mpeg25_12k_joint_crc.mp3", false}, {"mpeg25_8k_mono.mp3", false},
    {"mpeg25_8k_mono_short.mp3", true},
};

class Mp3Streams : public ::testing::TestWithParam<Sample> {};

TEST_P(Mp3Streams, EveryGranuleDecodesToItsPartEnd) {
    Totals t;
    walk(GetParam().file, t);
    EXPECT_GT(t.frames, 10);
    EXPECT_GT(t.granules, 10);
    if (GetParam().short_blocks) {
        EXPECT_GT(t.short_blocks, 0);
        EXPECT_GT(t.start_stop, 0);
    }
    RecordProperty("granules", t.granules);
}

INSTANTIATE_TEST_SUITE_P(Samples, Mp3Streams, ::testing::ValuesIn(kSamples),
                         [](const ::testing::TestParamInfo<Sample>& info) {
                             std::string n = info.param.file;
                             return n.substr(0, n.find('.'));
                         });

}  // namespace
