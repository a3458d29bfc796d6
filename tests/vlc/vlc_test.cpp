// The VLC engine against the tests' own bit writer: the standard books and
// random complete and incomplete prefix codes, decoded (tuples with sign
// bits, both escape forms, the cursor after every call) from page-guarded
// buffers that end where the read slack ends; plain books encoded, counted
// and decoded again. Then rows of deliberate behaviour at the edges, and the
// standard books' object sizes.
#include "code_books.h"
#include "common/guarded_buffer.h"

#include <gtest/gtest.h>

#include <array>
#include <tuple>

namespace {

using namespace vlctest;
using nkptest::BitWriter;
using Result = std::tuple<nkpStatus, std::vector<nkp16s>, long>;  // status, outputs, bits the cursor moved

// Decodes `count` codes or tuples from bit `lead` of bytes held in a guarded
// buffer misaligned by `misalign`; the outputs end in one untouched 0x5555.
Result decode(const Decoder& d, const Book& b, const std::vector<uint8_t>& bytes, size_t lead, int count, Form form,
              size_t misalign = 0) {
    nkptest::GuardedBuffer g(bytes, misalign);
    nkp8u *const start = g.data() + lead / 8, *p = start;
    int off = static_cast<int>(lead % 8);
    std::vector<nkp16s> out(static_cast<size_t>(count) * std::max(b.elements, 1) + 1, 0x5555);
    const nkpStatus s = decode_call(0, b.elements, form, &p, &off, out.data(), count, b.linbits, d.spec);
    return {s, out, (p - start) * 8 + off - static_cast<long>(lead % 8)};
}

bool bit_at(const std::vector<uint8_t>& b, size_t i) { return (b[i / 8] >> (7 - i % 8)) & 1; }

// Writes `codes` random codes of book b (with random signs, and escapes when
// `escaped`) after junk bits and decodes them in one call; without escapes,
// also code by code with the One forms, checking the cursor after each.
// Plain books are also encoded, from the same bit in a buffer of the junk
// bits followed by random ones: the bits up to the cursor must be `first`'s
// (the writer's stream with the first entry of each value), Block must
// write what One writes, the count must be the bits written, and the result
// must decode again.
void check_book(Book b, const std::vector<int32_t>& widths, std::mt19937& rng, int codes, bool escaped) {
    const std::string what = b.name + " widths " + std::to_string(widths[0]) + "..";
    const Decoder d(b, widths, rng() % 64);
    ASSERT_EQ(d.status, nkpStatusOk) << what;
    const Form form = !escaped ? Form::Block : b.escape == 16 ? Form::EscAac : Form::EscMp3;
    if (!escaped) b.escape = b.linbits = 0;
    if (form == Form::EscAac && !b.elements) codes &= ~1;  // the plain AAC form decodes pairs
    BitWriter w, first;
    const size_t lead = rng() % 32;
    const uint32_t junk = rng();
    w.put(junk, static_cast<int>(lead)), first.put(junk, static_cast<int>(lead));
    std::vector<size_t> ends;
    std::vector<nkp16s> expected;
    for (int k = 0; k < codes; ++k) {
        const Entry& e = b.entries[rng() % b.entries.size()];
        std::vector<int> v(static_cast<size_t>(std::max(b.elements, 1)), e.value);  // the elements, first one highest
        for (int i = 0, mask = (1 << b.element_bits) - 1; i < b.elements; ++i)
            v[i] = (e.value >> (b.element_bits * (b.elements - 1 - i))) & mask;
        for (int& x : v) {
            const int m = b.escape == 16 ? 16 + static_cast<int>(rng() % 8176)
                                         : 15 + static_cast<int>(rng() % std::min(1u << b.linbits, 32753u));
            if (b.escape && std::abs(x) == b.escape && (b.escape == 16 || b.linbits > 0)) x = x < 0 ? -m : m;
            if (b.elements && (rng() & 1)) x = -x;
            expected.push_back(static_cast<nkp16s>(x));
        }
        put_code(w, b, e, v);
        ends.push_back(w.bit_count());
        auto same_value = [&](const Entry& x) { return x.value == e.value; };
        if (!b.elements) put_code(first, b, *std::find_if(b.entries.begin(), b.entries.end(), same_value), v);
    }
    expected.push_back(0x5555);
    EXPECT_EQ(decode(d, b, w.bytes(), lead, codes, form, rng() % 4),
              (Result{nkpStatusOk, expected, w.bit_count() - lead})) << what;
    const size_t per = std::max(b.elements, 1);
    for (size_t k = 0, at = lead; !escaped && k < std::min<size_t>(ends.size(), 40); at = ends[k++]) {
        const auto [status, out, bits] = decode(d, b, w.bytes(), at, 1, Form::One);
        ASSERT_EQ(bits, static_cast<long>(ends[k] - at)) << what << " code " << k;
        ASSERT_TRUE(std::equal(out.begin(), out.end() - 1, expected.begin() + k * per)) << what;
    }
    if (b.elements) return;
    const Encoder e(b.entries, rng() % 64);
    std::vector<uint8_t> init = first.bytes(), block;
    init.resize(init.size() + 4);
    for (size_t i = lead; i < init.size() * 8; ++i) init[i / 8] ^= static_cast<uint8_t>((rng() & 1) << (7 - i % 8));
    for (Form f : {form, Form::One}) {
        std::vector<uint8_t> buf = init;
        nkp8u* p = buf.data() + lead / 8;
        int off = static_cast<int>(lead % 8);
        ASSERT_EQ(encode_call(0, f, expected.data(), codes, b.linbits, &p, &off, e.spec), nkpStatusOk);
        EXPECT_EQ(static_cast<size_t>((p - buf.data()) * 8 + off), first.bit_count()) << what;
        for (size_t i = 0; i < first.bit_count(); ++i) ASSERT_EQ(bit_at(buf, i), bit_at(first.bytes(), i)) << what;
        if (f == Form::One) EXPECT_EQ(buf, block) << what;
        else block = buf;
        if (escaped) break;
    }
    nkp32s count = -1;
    EXPECT_EQ(encode_call(0, form, expected.data(), codes, b.linbits, nullptr, nullptr, e.spec, &count), nkpStatusOk);
    EXPECT_EQ(static_cast<size_t>(count), first.bit_count() - lead) << what;
    EXPECT_EQ(decode(d, b, block, lead, codes, form), (Result{nkpStatusOk, expected, first.bit_count() - lead}))
        << what;
}

TEST(Vlc, StandardBooksWithAnyWidths) {
    std::mt19937 rng(11);
    for (const Book& b : standard_books())
        for (const auto& widths : {std::vector<int32_t>{9, 5, 5}, std::vector<int32_t>(32, 1), {3, 7, 2, 5, 4}, {19}}) {
            check_book(b, widths, rng, 300, false);
            if (b.escape) check_book(b, widths, rng, 600, true);
        }
}

TEST(Vlc, RandomPrefixCodes) {
    std::mt19937 rng(13);
    for (int round = 0; round < 400; ++round) {
        const Book b = random_book(rng, round);
        check_book(b, random_widths(rng, b.entries), rng, 100, b.escape != 0);
    }
}

// Books of one code per length 1..L-1 and two of length L ("1", "01", ...,
// "0..01", "0..00"), with values in that order; `gap` drops the last code.
Book ladder(int longest, std::vector<int32_t> values, int elements = 0, int element_bits = 0, bool gap = false) {
    Book b{"ladder", {}, elements, element_bits};
    for (int len = 1; len <= longest; ++len) b.entries.push_back({values[b.entries.size()], 1, len});
    if (!gap) b.entries.push_back({values[b.entries.size()], 0, longest});
    return b;
}

struct EdgeRow {
    const char* name;
    Book book;
    std::vector<int32_t> widths;
    Form form;
    int linbits, count;  // count: values or tuples to decode
    const char* stream;  // bits
    Result result;       // the first outputs
};

const Book kGap = ladder(2, {5, 6}, 0, 0, true), kGapTuple = ladder(2, {5, 6}, 1, 3, true);  // "00" is no code
const Book kEsc = ladder(2, {16, -16, 3}), kLin = ladder(2, {15, -15, 0});
const Book kTight = ladder(8, {-8, 8, 8, 3, 4, 5, 6, 7, 8});
const char* const kLadder8 = "1" "01" "001" "0001" "00001" "000001" "0000001" "00000001" "00000000";

const EdgeRow kEdges[] = {
    // Patterns of no code: plain decoders give 0 and use the levels down to
    // the one where the pattern ends; tuple decoders refuse, cursor unmoved.
    {"no_code_plain_one_level", kGap, {2}, Form::Block, 0, 1, "00", {nkpStatusOk, {0}, 2}},
    {"no_code_plain_two_levels", kGap, {1, 1}, Form::Block, 0, 1, "00", {nkpStatusOk, {0}, 2}},
    {"no_code_tuple", kGapTuple, {2}, Form::Block, 0, 2, "1000", {nkpStatusVlcError, {5, 0x5555}, 0}},
    {"no_code_tuple_escape", kGapTuple, {1, 1}, Form::EscAac, 0, 1, "00", {nkpStatusVlcError, {0x5555}, 0}},
    // AAC escapes: eight one bits give 2^12 + w up to 8191; nine are an error
    // after which the values before stay and the cursor does not move.
    {"aac_eight_ones", kEsc, {2}, Form::EscAac, 0, 2, "1" "111111110" "111111111111" "00",
     {nkpStatusOk, {8191, 3}, 24}},
    {"aac_nine_ones", kEsc, {2}, Form::EscAac, 0, 2, "00" "01" "1111111110", {nkpStatusVlcError, {3, 0x5555}, 0}},
    {"aac_odd_count", kEsc, {2}, Form::EscAac, 0, 3, "00" "00" "00", {nkpStatusOk, {3, 3, 0x5555}, 4}},
    // Linbits outside the MP3 range: negative counts as 0; above 16 the low
    // 16 of the field are added.
    {"linbits_negative", kLin, {2}, Form::EscMp3, -3, 2, "1" "00", {nkpStatusOk, {15, 0}, 3}},
    {"linbits_20", kLin, {2}, Form::EscMp3, 20, 2, "01" "11110000000000010010" "00", {nkpStatusOk, {-33, 0}, 24}},
    {"linbits_40", kLin, {2}, Form::EscMp3, 40, 1, "1" "0001001000110100010101100000000000000111",
     {nkpStatusOk, {22}, 41}},
    // The largest value 2^k where the value field holds k + 1 bits (tight
    // 1-byte entries: 3 value bits, 3 length bits): +8 goes through a
    // marker, for codes of up to two lengths; a third length decodes as -8.
    {"tight_plus_8", ladder(8, {0, 1, 2, 3, 4, 5, 6, 7, 8}), {4, 4}, Form::Block, 0, 9, kLadder8,
     {nkpStatusOk, {0, 1, 2, 3, 4, 5, 6, 7, 8}, 44}},
    {"tight_third_length", kTight, {4, 4}, Form::Block, 0, 9, kLadder8,
     {nkpStatusOk, {-8, 8, 8, 3, 4, 5, 6, 7, -8}, 44}},
};

TEST(Vlc, EdgeStreams) {
    for (EdgeRow r : kEdges) {
        const Decoder d(r.book, r.widths);
        ASSERT_EQ(d.status, nkpStatusOk) << r.name;
        r.book.linbits = r.linbits;
        Result res = decode(d, r.book, BitWriter().code(r.stream).bytes(), 0, r.count, r.form);
        std::get<1>(res).resize(std::get<1>(r.result).size());
        EXPECT_EQ(res, r.result) << r.name;
    }
}

// The encoders' word behaviour and table choices, in every writing form and
// the bit count.
using Bytes = std::array<uint8_t, 8>;

const std::vector<Entry> kCode101{{0, 0b101, 3}}, kCode10101{{0, 0b10101, 5}}, kChoices{{5, 0b11, 2}, {9, 1, 40}};
const Bytes kZero{}, kWords{0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0xDE, 0xF0};

struct WordRow {
    const char* name;
    const std::vector<Entry>& book;
    nkp16s value;
    Bytes before, after;
    int start, offset, end;  // the cursor: byte and offset it starts at, bit it ends at
};

const WordRow kWordRows[] = {
    // A code ending inside its word leaves the rest of the word at 1.
    {"three_bits_fill_ones", kCode101, 0, kZero, {0xBF, 0xFF, 0xFF, 0xFF}, 0, 0, 3},
    // Ending on the word boundary leaves the next word alone; crossing into
    // it keeps its bits after the code.
    {"ends_on_word_boundary", kCode101, 0, kWords, {0x12, 0x34, 0x56, 0x7D, 0x9A, 0xBC, 0xDE, 0xF0}, 3, 5, 32},
    {"crossing_keeps_lower_bits", kCode10101, 0, kWords, {0x12, 0x34, 0x56, 0x7D, 0x5A, 0xBC, 0xDE, 0xF0}, 3, 5, 34},
    // EncodeOne takes any offset: 9 means 9 bits after the byte pointer.
    {"offset_9_one_only", kCode101, 0, kZero, {0x00, 0x5F, 0xFF, 0xFF}, 0, 9, 12},
    // Values the book lacks, values outside it and impossible lengths write
    // nothing.
    {"value_not_in_book", kChoices, 6, kZero, kZero, 0, 5, 5},
    {"value_outside_range", kChoices, 100, kZero, kZero, 0, 0, 0},
    {"length_40_left_out", kChoices, 9, kZero, kZero, 0, 0, 0},
};

TEST(Vlc, WordBehaviourAndTableChoices) {
    for (const WordRow& r : kWordRows) {
        const Encoder e(r.book, 7);
        for (Form f : {Form::One, Form::Block, Form::EscMp3}) {  // the last without escapes
            if ((f != Form::One && r.offset > 7) || (f == Form::EscMp3 && r.value >= 15)) continue;
            alignas(4) Bytes buf = r.before;
            nkp8u* p = buf.data() + r.start;
            int off = r.offset;
            ASSERT_EQ(encode_call(0, f, &r.value, 1, 4, &p, &off, e.spec), nkpStatusOk) << r.name;
            EXPECT_EQ(buf, r.after) << r.name;
            EXPECT_EQ((p - buf.data()) * 8 + off, r.end) << r.name;
        }
        nkp32s count = -1;
        ASSERT_EQ(encode_call(0, Form::Block, &r.value, 1, 0, nullptr, nullptr, e.spec, &count), nkpStatusOk);
        EXPECT_EQ(count, r.end - r.start * 8 - r.offset) << r.name;
    }
}

// Worked out from the size rules by a separate model of them: the decoder
// with widths {8, 8, 8, 8}, ten of 4, {32} and {6, 3, 3, 3, 3, 3, 3}, then
// the encoder.
const std::vector<std::vector<int32_t>> kWidths{{8, 8, 8, 8}, std::vector<int32_t>(10, 4), {32}, {6, 3, 3, 3, 3, 3, 3}};
const std::pair<const char*, std::array<int32_t, 5>> kSizes[] = {
    {"mp3_1", {178, 178, 178, 178, 328}}, {"mp3_2", {290, 214, 290, 290, 524}}, {"mp3_3", {290, 214, 290, 290, 524}},
    {"mp3_5", {674, 262, 674, 320, 592}}, {"mp3_6", {418, 248, 418, 296, 592}}, {"mp3_7", {724, 346, 2210, 428, 984}},
    {"mp3_8", {764, 352, 4258, 400, 984}}, {"mp3_9", {686, 376, 1186, 398, 984}},
    {"mp3_10", {908, 530, 4258, 544, 1120}}, {"mp3_11", {836, 526, 4258, 558, 1120}},
    {"mp3_12", {744, 502, 2210, 530, 1120}}, {"mp3_13", {15102, 2270, 2097316, 1790, 3200}},
    {"mp3_15", {3644, 2106, 16546, 1574, 3200}}, {"mp3_16", {16614, 2342, 524452, 1714, 3200}},
    {"mp3_24", {2442, 2336, 8354, 1856, 3200}}, {"mp3_quad_A", {290, 234, 290, 290, 320}},
    {"mp3_quad_B", {194, 194, 194, 194, 320}}, {"aac_1", {962, 754, 4258, 658, 964}},
    {"aac_2", {716, 678, 1186, 542, 964}}, {"aac_3", {7356, 874, 262308, 656, 1836}},
    {"aac_4", {980, 704, 8354, 686, 1836}}, {"aac_5", {1466, 750, 16546, 662, 964}},
    {"aac_6", {926, 684, 4258, 556, 964}}, {"aac_7", {1082, 704, 8354, 614, 896}},
    {"aac_8", {724, 550, 2210, 518, 896}}, {"aac_9", {5318, 1268, 131236, 1244, 1972}},
    {"aac_10", {1660, 1622, 8354, 1172, 1972}}, {"aac_11", {2612, 2608, 8354, 2018, 6340}},
    {"aac_sf", {3406, 832, 2097316, 860, 1124}},
};

TEST(Vlc, StandardBookSizesArePinned) {
    const std::vector<Book>& books = standard_books();
    ASSERT_EQ(books.size(), std::size(kSizes));
    for (size_t k = 0; k < books.size(); ++k) {
        const Book& b = books[k];
        ASSERT_EQ(b.name, kSizes[k].first);
        for (size_t i = 0; i < kWidths.size(); ++i)
            EXPECT_EQ(Decoder(b, kWidths[i]).size, kSizes[k].second[i]) << b.name << " " << i;
        EXPECT_EQ(Encoder(b.entries).size, kSizes[k].second[4]) << b.name;
    }
    // The tuple GetSize stores the size before its last check, the width of
    // a leaf's elements, refuses.
    const Decoder too_wide({"too_wide", {{0, 1, 1}, {0, 1, 2}, {0, 0, 2}}, 10, 3}, {8});
    EXPECT_EQ(too_wide.sized, nkpStatusOutOfRange);
    EXPECT_EQ(too_wide.size, 5 + 160);
}

}  // namespace
