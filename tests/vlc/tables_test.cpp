// Table sizes: the GetSize figures of the standard code books pinned for
// four width choices, the entry-width rule at its edges, the encoder sizes,
// and the objects' life cycle.
#include "code_books.h"
#include "nkpcore.h"

#include <gtest/gtest.h>

#include <array>

namespace {

using namespace vlctest;

nkp32s decode_size(const Book& b, const std::vector<int32_t>& w, int path) {
    nkp32s size = -1;
    const int n = static_cast<int>(b.entries.size()), nw = static_cast<int>(w.size());
    EXPECT_EQ(b.elements ? nkpt_nkpsVLCDecodeUTupleGetSize_32s[path](b.entries.data(), n, w.data(), nw, b.elements,
                                                                     b.element_bits, &size)
                         : nkpt_nkpsVLCDecodeGetSize_32s[path](b.entries.data(), n, w.data(), nw, &size),
              nkpStatusOk)
        << b.name;
    return size;
}

// Worked out from the size rule by a separate model of it: widths {8, 8, 8,
// 8}, ten of 4, {32} and {6, 3, 3, 3, 3, 3, 3}.
const std::vector<std::vector<int32_t>> kWidths{{8, 8, 8, 8}, std::vector<int32_t>(10, 4), {32}, {6, 3, 3, 3, 3, 3, 3}};
const std::pair<const char*, std::array<int32_t, 4>> kSizes[] = {
    {"mp3_1", {178, 178, 178, 178}},           {"mp3_2", {290, 214, 290, 290}},
    {"mp3_3", {290, 214, 290, 290}},           {"mp3_5", {674, 262, 674, 320}},
    {"mp3_6", {418, 248, 418, 296}},           {"mp3_7", {724, 346, 2210, 428}},
    {"mp3_8", {764, 352, 4258, 400}},          {"mp3_9", {686, 376, 1186, 398}},
    {"mp3_10", {908, 530, 4258, 544}},         {"mp3_11", {836, 526, 4258, 558}},
    {"mp3_12", {744, 502, 2210, 530}},         {"mp3_13", {15102, 2270, 2097316, 1790}},
    {"mp3_15", {3644, 2106, 16546, 1574}},     {"mp3_16", {16614, 2342, 524452, 1714}},
    {"mp3_24", {2442, 2336, 8354, 1856}},      {"mp3_quad_A", {290, 234, 290, 290}},
    {"mp3_quad_B", {194, 194, 194, 194}},      {"aac_1", {962, 754, 4258, 658}},
    {"aac_2", {716, 678, 1186, 542}},          {"aac_3", {7356, 874, 262308, 656}},
    {"aac_4", {980, 704, 8354, 686}},          {"aac_5", {1466, 750, 16546, 662}},
    {"aac_6", {926, 684, 4258, 556}},          {"aac_7", {1082, 704, 8354, 614}},
    {"aac_8", {724, 550, 2210, 518}},          {"aac_9", {5318, 1268, 131236, 1244}},
    {"aac_10", {1660, 1622, 8354, 1172}},      {"aac_11", {2612, 2608, 8354, 2018}},
    {"aac_sf", {3406, 832, 2097316, 860}},
};

TEST(VlcTables, StandardBookSizesArePinned) {
    const std::vector<Book> books = standard_books();
    ASSERT_EQ(books.size(), std::size(kSizes));
    for (size_t k = 0; k < books.size(); ++k) {
        ASSERT_EQ(books[k].name, kSizes[k].first);
        for (int path = 0; path < 2; ++path)
            for (size_t i = 0; i < kWidths.size(); ++i)
                EXPECT_EQ(decode_size(books[k], kWidths[i], path), kSizes[k].second[i]) << books[k].name << " " << i;
    }
}

// Books of one code per length 1..L-1 and two of length L.
Book ladder(int longest, std::vector<int32_t> values) {
    Book b{"ladder"};
    for (int len = 1; len <= longest; ++len) b.entries.push_back({values[len % values.size()], 1, len});
    b.entries.push_back({values[0], 0, longest});
    return b;
}

TEST(VlcTables, EntryWidthRuleAtItsEdges) {
    struct Row {
        const char* name;
        Book book;
        std::vector<int32_t> widths;
        int32_t size;
    } rows[] = {
        // {8, 8, 8} for a 10-bit code: two levels, the second cut to 2 bits;
        // 262 entries need index bits 9, so 2 bytes each.
        {"two_levels_of_8_8_8", ladder(10, {1}), {8, 8, 8}, (257 + 5) * 2 + 160},
        {"same_as_8_2", ladder(10, {1}), {8, 2}, (257 + 5) * 2 + 160},
        // 18 entries, value bits 0, length bits 2, index bits 5: one byte.
        {"one_byte_entries", ladder(6, {1, -1}), {3, 3}, 18 + 160},
        {"value_bits_widen", ladder(6, {64}), {3, 3}, 18 * 2 + 160},            // 6 + 2 + 2 > 8
        {"index_bits_widen", ladder(12, {1}), {6, 6}, (65 + 65) * 2 + 160},     // 2^7 - 1 < 131
        {"index_bits_fit", ladder(11, {1}), {6, 5}, (65 + 33) + 160},           // 2^7 - 1 >= 99
        {"width_cut_to_longest", ladder(1, {0}), {32}, 3 + 160},
        {"later_widths_ignored", ladder(2, {0}), {2, 0, -5}, 5 + 160},
        {"four_byte_entries", ladder(4, {1 << 20}), {4}, 17 * 4 + 160},          // 20 + 3 + 2 > 16
    };
    for (const Row& r : rows)
        for (int path = 0; path < 2; ++path) EXPECT_EQ(decode_size(r.book, r.widths, path), r.size) << r.name;
}

TEST(VlcTables, EncoderSizes) {
    const std::pair<std::vector<Entry>, int32_t> rows[] = {
        {{{-3, 0, 1}, {3, 1, 1}}, (6 + 8) * 4 + 132},   // range 6: k = 3
        {{{-3, 0, 1}, {4, 1, 1}}, (7 + 16) * 4 + 132},  // range 7: k = 4
        {{{5, 0, 1}}, (0 + 2) * 4 + 132},
        {{{-32768, 0, 1}, {32767, 1, 1}}, (65535 + 131072) * 4 + 132},
    };
    for (const auto& [book, expected] : rows)
        for (int path = 0; path < 2; ++path) {
            nkp32s size = 0;
            EXPECT_EQ(nkpt_nkpsVLCEncodeGetSize_32s[path](book.data(), static_cast<int>(book.size()), &size),
                      nkpStatusOk);
            EXPECT_EQ(size, expected);
        }
}

// InitAlloc objects work and Free releases them; Free on Init objects
// releases nothing and keeps the tag; an InitAlloc whose allocation fails
// leaves its output null.
TEST(VlcTables, LifeCycle) {
    const Book b = standard_book("aac_11");
    const int n = static_cast<int>(b.entries.size());
    const std::vector<int32_t> w{8, 4};
    for (int path = 0; path < 2; ++path) {
        const long live = nkpcoreLiveAllocations();
        nkpsVLCDecodeSpec_32s* d = nullptr;
        ASSERT_EQ(nkpt_nkpsVLCDecodeUTupleInitAlloc_32s[path](b.entries.data(), n, w.data(), 2, 2, 5, &d), nkpStatusOk);
        uint8_t stream[8] = {};  // "0000": the pair (0, 0)
        nkp8u* p = stream;
        int off = 0;
        nkp16s out[2];
        EXPECT_EQ(nkpt_nkpsVLCDecodeUTupleOne_1u16s[path](&p, &off, out, d), nkpStatusOk);
        EXPECT_EQ(off, 4);
        EXPECT_EQ(nkpt_nkpsVLCDecodeUTupleFree_32s[path](d), nkpStatusOk);
        nkpsVLCEncodeSpec_32s* e = nullptr;
        ASSERT_EQ(nkpt_nkpsVLCEncodeInitAlloc_32s[path](b.entries.data(), n, &e), nkpStatusOk);
        EXPECT_EQ(nkpt_nkpsVLCEncodeFree_32s[path](e), nkpStatusOk);
        EXPECT_EQ(nkpcoreLiveAllocations(), live);

        const Decoder init(b, w, path, 5);
        EXPECT_EQ(nkpt_nkpsVLCDecodeFree_32s[path](init.spec), nkpStatusOk);
        EXPECT_EQ(nkpt_nkpsVLCDecodeFree_32s[path](init.spec), nkpStatusOk);
        EXPECT_EQ(nkpcoreLiveAllocations(), live);

        nkpcoreFailMallocAfter(0);
        d = init.spec;
        EXPECT_EQ(nkpt_nkpsVLCDecodeInitAlloc_32s[path](b.entries.data(), n, w.data(), 2, &d), nkpStatusNoMemory);
        EXPECT_EQ(d, nullptr);
        nkpcoreFailMallocAfter(-1);
    }
}

}  // namespace
