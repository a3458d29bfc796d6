// Decoder and encoder table sizes: the GetSize figures of the standard code
// books pinned for four width choices, the entry-width rule at its edges, and
// the objects' life cycle.
#include "code_books.h"
#include "nkpcore.h"

#include <gtest/gtest.h>

#include <map>

namespace {

using namespace vlctest;
using nkptest::BitWriter;

const std::vector<int32_t> kW8{8, 8, 8, 8}, kW4(10, 4), kW32{32}, kW63{6, 3, 3, 3, 3, 3, 3};

struct SizeRow {
    const char* book;
    int32_t w8, w4, w32, w63;  // GetSize with kW8, kW4, kW32, kW63
};

// Worked out from the size rule by a separate model of it.
const SizeRow kSizes[] = {
    {"mp3_1", 178, 178, 178, 178},           {"mp3_2", 290, 214, 290, 290},
    {"mp3_3", 290, 214, 290, 290},           {"mp3_5", 674, 262, 674, 320},
    {"mp3_6", 418, 248, 418, 296},           {"mp3_7", 724, 346, 2210, 428},
    {"mp3_8", 764, 352, 4258, 400},          {"mp3_9", 686, 376, 1186, 398},
    {"mp3_10", 908, 530, 4258, 544},         {"mp3_11", 836, 526, 4258, 558},
    {"mp3_12", 744, 502, 2210, 530},         {"mp3_13", 15102, 2270, 2097316, 1790},
    {"mp3_15", 3644, 2106, 16546, 1574},     {"mp3_16", 16614, 2342, 524452, 1714},
    {"mp3_24", 2442, 2336, 8354, 1856},      {"mp3_quad_A", 290, 234, 290, 290},
    {"mp3_quad_B", 194, 194, 194, 194},      {"aac_1", 962, 754, 4258, 658},
    {"aac_2", 716, 678, 1186, 542},          {"aac_3", 7356, 874, 262308, 656},
    {"aac_4", 980, 704, 8354, 686},          {"aac_5", 1466, 750, 16546, 662},
    {"aac_6", 926, 684, 4258, 556},          {"aac_7", 1082, 704, 8354, 614},
    {"aac_8", 724, 550, 2210, 518},          {"aac_9", 5318, 1268, 131236, 1244},
    {"aac_10", 1660, 1622, 8354, 1172},      {"aac_11", 2612, 2608, 8354, 2018},
    {"aac_sf", 3406, 832, 2097316, 860},
};

nkp32s decode_size(const Book& b, const std::vector<int32_t>& widths, int path) {
    nkp32s size = -1;
    const int n = static_cast<int>(b.entries.size()), nw = static_cast<int>(widths.size());
    const nkpStatus s = b.elements ? nkpt_nkpsVLCDecodeUTupleGetSize_32s[path](b.entries.data(), n, widths.data(), nw,
                                                                              b.elements, b.element_bits, &size)
                                   : nkpt_nkpsVLCDecodeGetSize_32s[path](b.entries.data(), n, widths.data(), nw, &size);
    EXPECT_EQ(s, nkpStatusOk) << b.name;
    return size;
}

TEST(VlcTables, StandardBookSizesArePinned) {
    std::map<std::string, Book> books;
    for (Book& b : standard_books()) books[b.name] = b;
    ASSERT_EQ(books.size(), std::size(kSizes));
    for (const SizeRow& row : kSizes) {
        const Book& b = books.at(row.book);
        for (int path = 0; path < 2; ++path) {
            EXPECT_EQ(decode_size(b, kW8, path), row.w8) << row.book;
            EXPECT_EQ(decode_size(b, kW4, path), row.w4) << row.book;
            EXPECT_EQ(decode_size(b, kW32, path), row.w32) << row.book;
            EXPECT_EQ(decode_size(b, kW63, path), row.w63) << row.book;
        }
    }
}

// Books of one code per length 1..L-1 plus two of length L ("1", "01", ...,
// "0..01", "0..00"), with chosen values.
Book ladder(int longest, std::vector<int32_t> values) {
    Book b{"ladder", {}, 0, 0, 0, 0};
    for (int len = 1; len <= longest; ++len) {
        b.entries.push_back({0, 1, len});
        if (len == longest) b.entries.push_back({0, 0, len});
    }
    for (size_t i = 0; i < b.entries.size(); ++i) b.entries[i].value = values[i % values.size()];
    return b;
}

struct WidthRow {
    const char* name;
    Book book;
    std::vector<int32_t> widths;
    int32_t size;
};

TEST(VlcTables, EntryWidthRuleAtItsEdges) {
    // ladder(10): codes longer than 8 bits share the prefix 00000000.
    const WidthRow rows[] = {
        // Widths {8, 8, 8} for a 10-bit code use two levels, the second cut
        // to 2 bits: (257 + 5) entries of 2 bytes (index bits 9).
        {"two_levels_of_8_8_8", ladder(10, {1}), {8, 8, 8}, (257 + 5) * 2 + 160},
        {"same_as_8_2", ladder(10, {1}), {8, 2}, (257 + 5) * 2 + 160},
        // Widths {3, 3}: 9 + 9 entries; value bits 0, length bits 2, index
        // bits 5: one byte.
        {"one_byte_entries", ladder(6, {1, -1}), {3, 3}, 18 + 160},
        // Value 2^6 needs 6 value bits: 6 + 2 + 2 > 8 makes 2-byte entries.
        {"value_bits_widen", ladder(6, {64}), {3, 3}, 18 * 2 + 160},
        // 130 entries need index bits 8 (2^7 - 1 < 131): 2 bytes.
        {"index_bits_widen", ladder(12, {1}), {6, 6}, (65 + 65) * 2 + 160},
        {"index_bits_fit", ladder(11, {1}), {6, 5}, (65 + 33) * 1 + 160},
        // Width 32 for a 1-bit code: cut to 1.
        {"width_cut_to_longest", ladder(1, {0}), {32}, 3 + 160},
        // Later widths are not looked at once the longest code is reached.
        {"later_widths_ignored", ladder(2, {0}), {2, 0, -5}, 5 + 160},
        // A 17-bit value field forces 4-byte entries.
        {"four_byte_entries", ladder(4, {1 << 20}), {4}, 17 * 4 + 160},
    };
    for (const WidthRow& r : rows)
        for (int path = 0; path < 2; ++path) EXPECT_EQ(decode_size(r.book, r.widths, path), r.size) << r.name;
}

// With entries exactly as wide as the rule asks, the value field holds
// valueBits + 1 bits: -2^k fits, +2^k does not and is reached through a
// marker. Up to two code lengths of +2^k are served so; a third decodes as
// -2^k (the documented limit).
TEST(VlcTables, LargestValueInTightEntries) {
    struct Row {
        const char* name;
        std::vector<int32_t> values;  // for ladder(8): codes "1", "01", ..., "00000001", "00000000"
        std::vector<int32_t> widths;
        std::vector<nkp16s> decoded;  // where it differs from values
    } rows[] = {
        {"plus_8_only", {0, 1, 2, 3, 4, 5, 6, 7, 8}, {4, 4}, {}},
        {"both_signs", {-8, 1, 2, 3, 4, 5, 6, 7, 8}, {4, 4}, {}},
        {"both_signs_wider", {-8, 1, 2, 3, 4, 5, 6, 7, 8}, {8}, {}},
        {"two_lengths_of_8", {-8, 8, 2, 3, 4, 5, 6, 7, 8}, {4, 4}, {}},
        {"three_lengths_of_8", {-8, 8, 8, 3, 4, 5, 6, 7, 8}, {4, 4}, {-8, 8, 8, 3, 4, 5, 6, 7, -8}},
    };
    for (const Row& r : rows) {
        const Book b = ladder(8, r.values);
        BitWriter w;
        for (const Entry& e : b.entries) w.put(static_cast<uint32_t>(e.code), e.length);
        std::vector<uint8_t> stream = w.bytes();
        stream.resize(stream.size() + 8, 0);
        const std::vector<int32_t>& expected32 = r.decoded.empty() ? r.values : std::vector<int32_t>();
        std::vector<nkp16s> expected(r.decoded);
        for (int32_t v : expected32) expected.push_back(static_cast<nkp16s>(v));
        for (int path = 0; path < 2; ++path) {
            Decoder d(b, r.widths, path);
            ASSERT_EQ(d.status, nkpStatusOk);
            nkp8u* p = stream.data();
            int offset = 0;
            std::vector<nkp16s> out(b.entries.size());
            ASSERT_EQ(nkpt_nkpsVLCDecodeBlock_1u16s[path](&p, &offset, out.data(), static_cast<int>(out.size()),
                                                          d.spec),
                      nkpStatusOk);
            EXPECT_EQ(out, expected) << r.name;
            EXPECT_EQ((p - stream.data()) * 8 + offset, static_cast<long>(w.bit_count())) << r.name;
        }
    }
}

TEST(VlcTables, EncoderSizes) {
    struct Row {
        const char* name;
        std::vector<Entry> book;
        int32_t size;
    } rows[] = {
        {"range_6", {{-3, 0, 1}, {3, 1, 1}}, (6 + 8) * 4 + 132},
        {"range_7", {{-3, 0, 1}, {4, 1, 1}}, (7 + 16) * 4 + 132},
        {"one_value", {{5, 0, 1}}, (0 + 2) * 4 + 132},
        {"wide_range", {{-32768, 0, 1}, {32767, 1, 1}}, (65535 + 131072) * 4 + 132},
    };
    for (const Row& r : rows)
        for (int path = 0; path < 2; ++path) {
            nkp32s size = 0;
            EXPECT_EQ(nkpt_nkpsVLCEncodeGetSize_32s[path](r.book.data(), static_cast<int>(r.book.size()), &size),
                      nkpStatusOk);
            EXPECT_EQ(size, r.size) << r.name;
        }
}

// InitAlloc gives a working object whose Free releases it; Free on an Init
// object releases nothing and keeps the tag; a failed InitAlloc keeps what
// it allocated.
TEST(VlcTables, LifeCycle) {
    const Book b = aac_spectral(11);
    const std::vector<int32_t> widths{8, 4};
    for (int path = 0; path < 2; ++path) {
        const long live = nkpcoreLiveAllocations();
        nkpsVLCDecodeSpec_32s* d = nullptr;
        ASSERT_EQ(nkpt_nkpsVLCDecodeUTupleInitAlloc_32s[path](b.entries.data(), static_cast<int>(b.entries.size()),
                                                              widths.data(), 2, 2, 5, &d),
                  nkpStatusOk);
        uint8_t stream[8] = {0x00};  // book 11: "0000" is the pair (0, 0)
        nkp8u* p = stream;
        int offset = 0;
        nkp16s out[2] = {7, 7};
        EXPECT_EQ(nkpt_nkpsVLCDecodeUTupleOne_1u16s[path](&p, &offset, out, d), nkpStatusOk);
        EXPECT_EQ(nkpt_nkpsVLCDecodeUTupleFree_32s[path](d), nkpStatusOk);
        EXPECT_EQ(nkpcoreLiveAllocations(), live);

        nkpsVLCEncodeSpec_32s* e = nullptr;
        ASSERT_EQ(nkpt_nkpsVLCEncodeInitAlloc_32s[path](b.entries.data(), static_cast<int>(b.entries.size()), &e),
                  nkpStatusOk);
        EXPECT_EQ(nkpt_nkpsVLCEncodeFree_32s[path](e), nkpStatusOk);
        EXPECT_EQ(nkpcoreLiveAllocations(), live);

        // Init objects: Free releases nothing, twice, since the tag stays.
        Decoder init(b, widths, path, 5);
        EXPECT_EQ(nkpt_nkpsVLCDecodeFree_32s[path](init.spec), nkpStatusOk);
        EXPECT_EQ(nkpt_nkpsVLCDecodeFree_32s[path](init.spec), nkpStatusOk);
        EXPECT_EQ(nkpcoreLiveAllocations(), live);

        // The allocation fails: nothing was allocated, the output is null.
        nkpcoreFailMallocAfter(0);
        uint8_t junk[1];
        d = reinterpret_cast<nkpsVLCDecodeSpec_32s*>(junk);
        EXPECT_EQ(nkpt_nkpsVLCDecodeInitAlloc_32s[path](b.entries.data(), static_cast<int>(b.entries.size()),
                                                        widths.data(), 2, &d),
                  nkpStatusNoMemory);
        EXPECT_EQ(d, nullptr);
        nkpcoreFailMallocAfter(-1);
    }
}

}  // namespace
