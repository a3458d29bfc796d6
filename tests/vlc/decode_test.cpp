// Decoding streams written by the tests' own bit writer: the standard books,
// random complete and incomplete prefix codes, tuples with sign bits, both
// escape forms, edge streams, and the cursor after every call. Streams sit
// in page-guarded buffers that end where the read slack ends. Both code
// paths decode every stream and must agree bit for bit, on random bits too.
#include "code_books.h"
#include "common/guarded_buffer.h"

#include <gtest/gtest.h>

namespace {

using namespace vlctest;
using nkptest::BitWriter;

enum class Form { Block, One, EscAac, EscMp3 };

struct Result {
    nkpStatus status;
    std::vector<nkp16s> out;
    long bits;  // how far the cursor moved
    bool operator==(const Result&) const = default;
    friend void PrintTo(const Result& r, std::ostream* os) {
        *os << "status " << r.status << ", " << r.bits << " bits, " << testing::PrintToString(r.out);
    }
};

// Decodes `count` codes or tuples from bit `lead` of bytes held in a guarded
// buffer misaligned by `misalign`.
Result decode(const Decoder& d, const Book& b, const std::vector<uint8_t>& bytes, size_t lead, int count, Form form,
              int path, int linbits = 0, size_t misalign = 0) {
    nkptest::GuardedBuffer g(bytes, misalign);
    nkp8u *const start = g.data() + lead / 8, *p = start;
    int off = static_cast<int>(lead % 8);
    Result r{0, std::vector<nkp16s>(static_cast<size_t>(count) * std::max(b.elements, 1) + 1, 0x5555), 0};
    nkp16s* o = r.out.data();
    if (b.elements)
        r.status = form == Form::EscAac   ? nkpsVLCDecodeUTupleEscBlock_AAC_1u16s(&p, &off, o, count, d.spec)
                   : form == Form::EscMp3 ? nkpsVLCDecodeUTupleEscBlock_MP3_1u16s(&p, &off, linbits, o, count, d.spec)
                   : form == Form::One    ? nkpt_nkpsVLCDecodeUTupleOne_1u16s[path](&p, &off, o, d.spec)
                                          : nkpt_nkpsVLCDecodeUTupleBlock_1u16s[path](&p, &off, o, count, d.spec);
    else
        r.status = form == Form::EscAac   ? nkpsVLCDecodeEscBlock_AAC_1u16s(&p, &off, o, count, d.spec)
                   : form == Form::EscMp3 ? nkpsVLCDecodeEscBlock_MP3_1u16s(&p, &off, linbits, o, count, d.spec)
                   : form == Form::One    ? nkpt_nkpsVLCDecodeOne_1u16s[path](&p, &off, o, d.spec)
                                          : nkpt_nkpsVLCDecodeBlock_1u16s[path](&p, &off, o, count, d.spec);
    r.bits = (p - start) * 8 + off - static_cast<long>(lead % 8);
    return r;
}

// Writes `codes` random codes of book b (with random signs and escapes) after
// junk bits, then decodes them on both paths: as a block, and code by code
// with the One forms, checking the cursor after each. Random bits then give
// the same results on both paths with every decoder.
void check_book(Book b, const std::vector<int32_t>& widths, Form form, std::mt19937& rng, int codes, int linbits) {
    const std::string what = b.name + " widths " + std::to_string(widths[0]) + "..";
    const Decoder d0(b, widths, 0, rng() % 64), d1(b, widths, 1, rng() % 64);
    ASSERT_TRUE(d0.status == nkpStatusOk && d1.status == nkpStatusOk) << what;
    if (form == Form::EscAac && !b.elements) codes &= ~1;  // the plain AAC form decodes pairs
    b.escape = form == Form::EscAac ? 16 : form == Form::EscMp3 ? 15 : 0, b.linbits = linbits;
    BitWriter w;
    const size_t lead = rng() % 32;
    w.put(rng(), static_cast<int>(lead));
    std::vector<size_t> ends;
    std::vector<nkp16s> expected;
    for (int k = 0; k < codes; ++k) {
        const Entry& e = b.entries[rng() % b.entries.size()];
        std::vector<int> v = b.elements ? elements_of(b, e.value) : std::vector<int>{e.value};
        for (int& x : v) {
            const int m = b.escape == 16 ? 16 + static_cast<int>(rng() % 8176) : 15 + static_cast<int>(rng() % (1u << linbits));
            if (b.escape && std::abs(x) == b.escape && (b.escape == 16 || linbits > 0)) x = x < 0 ? -m : m;
            if (b.elements && (rng() & 1)) x = -x;
            expected.push_back(static_cast<nkp16s>(x));
        }
        put_code(w, b, e, v);
        ends.push_back(w.bit_count());
    }
    const size_t misalign = rng() % 4;
    const Result r0 = decode(d0, b, w.bytes(), lead, codes, form, 0, linbits, misalign);
    expected.push_back(0x5555);  // nothing written after the last value
    EXPECT_EQ(r0, (Result{nkpStatusOk, expected, static_cast<long>(w.bit_count() - lead)})) << what;
    EXPECT_EQ(decode(d1, b, w.bytes(), lead, codes, form, 1, linbits, misalign), r0) << what << ": paths differ";
    for (int path = 0; path < 2 && form == Form::Block; ++path)
        for (size_t k = 0, at = lead, per = std::max(b.elements, 1); k < std::min<size_t>(ends.size(), 40); at = ends[k++]) {
            const Result r = decode(path ? d1 : d0, b, w.bytes(), at, 1, Form::One, path);
            ASSERT_EQ(r.bits, static_cast<long>(ends[k] - at)) << what << " code " << k;
            ASSERT_TRUE(std::equal(r.out.begin(), r.out.end() - 1, expected.begin() + k * per)) << what;
        }
    // 400 bytes hold 24 codes of 32 bits with four elements of a sign and 21 escape bits each.
    std::vector<uint8_t> noise(400);
    for (uint8_t& x : noise) x = static_cast<uint8_t>(rng() & (rng() % 3 ? 0xFF : 0xF0));
    for (Form f : {Form::Block, Form::EscAac, Form::EscMp3}) {
        const size_t at = rng() % 8;
        const int n = 1 + static_cast<int>(rng() % 24), lin = static_cast<int>(rng() % 20) - 2;
        ASSERT_EQ(decode(d0, b, noise, at, n, f, 0, lin), decode(d1, b, noise, at, n, f, 1, lin)) << what;
    }
}

TEST(VlcDecode, StandardBooksWithAnyWidths) {
    std::mt19937 rng(11);
    for (const Book& b : standard_books())
        for (const auto& widths : {std::vector<int32_t>{9, 5, 5}, std::vector<int32_t>(32, 1), {3, 7, 2, 5, 4}, {19}}) {
            check_book(b, widths, Form::Block, rng, 300, 0);
            if (b.escape) check_book(b, widths, b.escape == 16 ? Form::EscAac : Form::EscMp3, rng, 600, b.linbits);
        }
}

// Plain books with values of every magnitude, tuple books of 1..4 elements,
// and plain books of -16..16 and -15..15 for the escape forms (linbits 1..16).
TEST(VlcDecode, RandomPrefixCodes) {
    std::mt19937 rng(13);
    for (int round = 0; round < 400; ++round) {
        const int longest = 1 + static_cast<int>(rng() % 32), count = 2 + static_cast<int>(rng() % 200);
        Book b{"random_" + std::to_string(round)};
        Form form = Form::Block;
        if (round % 4 == 1) {
            b.elements = 1 + static_cast<int>(rng() % 4), b.element_bits = 1 + static_cast<int>(rng() % 6);
            b.entries = random_code(rng, count, longest, round % 8 == 1, 0, (1 << (b.elements * b.element_bits)) - 1);
        } else if (round % 4 == 2) {
            const int top = round % 8 == 2 ? 16 : 15;
            form = top == 16 ? Form::EscAac : Form::EscMp3;
            b.entries = random_code(rng, 2 * top + 1, 12 + round % 20, true, 0, 0);
            for (size_t i = 0; i < b.entries.size(); ++i) b.entries[i].value = static_cast<int32_t>(i) - top;
        } else {
            const int32_t span = int32_t{1} << (rng() % 16);
            b.entries = random_code(rng, count, longest, round % 8 == 0, -span, span);
        }
        int longest_code = 0;
        for (const Entry& e : b.entries) longest_code = std::max(longest_code, static_cast<int>(e.length));
        std::vector<int32_t> widths;  // random widths reaching the longest code, some of width 1
        for (int sum = 0; sum < longest_code; sum += widths.back())
            widths.push_back(1 + static_cast<int32_t>(rng() % (rng() % 3 ? 5 : 12)));
        check_book(b, widths, form, rng, 100, 1 + round % 16);
    }
}

// The tuple MP3 form against the library's MP3 Huffman decoder on the same
// big values: three regions (44.1 kHz, region counts 7 and 7).
TEST(VlcDecode, Mp3TuplesMatchTheMp3HuffmanDecoder) {
    std::mt19937 rng(15);
    const int ends[3] = {36, 162, 576};
    for (const auto& t : {std::vector<int>{24, 24, 24}, {7, 15, 16}, {13, 1, 24}, {2, 16, 12}}) {
        BitWriter w;
        std::vector<nkp32s> lines(576), expected;
        nkpMP3SideInfo si{};
        for (int r = 0, line = 0; r < 3; ++r) {
            const Book b = standard_book("mp3_" + std::to_string(si.tableSelect[r] = t[r]));
            for (; line < ends[r]; line += 2) {
                const Entry& e = b.entries[rng() % b.entries.size()];
                std::vector<int> v = elements_of(b, e.value);
                for (int& x : v) {
                    if (x == 15 && b.linbits) x += static_cast<int>(rng() % (1u << b.linbits));
                    expected.push_back(x = rng() & 1 ? -x : x);
                }
                put_code(w, b, e, v);
            }
        }
        nkpMP3FrameHeader h{};
        h.id = 1, h.layer = 1, h.mode = 1;
        si.part23Length = static_cast<int>(w.bit_count()), si.bigValues = 288, si.region0Count = si.region1Count = 7;
        std::vector<uint8_t> bytes = w.bytes();
        bytes.resize(bytes.size() + 8);
        nkp8u* p = bytes.data();
        int off = 0, bound = 0;
        ASSERT_EQ(nkpsHuffmanDecode_MP3_1u32s(&p, &off, lines.data(), &bound, &si, &h, si.part23Length), nkpStatusOk);
        ASSERT_EQ(lines, expected);
        for (int path = 0; path < 2; ++path) {
            std::vector<nkp16s> out(576);
            p = bytes.data(), off = 0;
            for (int r = 0, at = 0; r < 3; at = ends[r++]) {
                const Book b = standard_book("mp3_" + std::to_string(t[r]));
                ASSERT_EQ(nkpsVLCDecodeUTupleEscBlock_MP3_1u16s(&p, &off, b.linbits, out.data() + at, (ends[r] - at) / 2,
                                                               Decoder(b, {8, 8, 8}, path).spec),
                          nkpStatusOk);
            }
            EXPECT_EQ(std::vector<nkp32s>(out.begin(), out.end()), lines);
            EXPECT_EQ((p - bytes.data()) * 8 + off, si.part23Length);
        }
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
    int linbits;
    const char* stream;  // bits
    int count;
    nkpStatus status;
    std::vector<nkp16s> out;  // the first outputs
    long bits;
};

const Book kGap = ladder(2, {5, 6}, 0, 0, true), kGapTuple = ladder(2, {5, 6}, 1, 3, true);  // "00" is no code
const Book kEsc = ladder(2, {16, -16, 3}), kLin = ladder(2, {15, -15, 0});
const char* const kLadder8 = "1" "01" "001" "0001" "00001" "000001" "0000001" "00000001" "00000000";

const EdgeRow kEdges[] = {
    // Patterns of no code: plain decoders give 0 and use the levels down to
    // the one where the pattern ends; tuple decoders refuse.
    {"no_code_plain_one_level", kGap, {2}, Form::Block, 0, "00", 1, nkpStatusOk, {0}, 2},
    {"no_code_plain_two_levels", kGap, {1, 1}, Form::Block, 0, "00", 1, nkpStatusOk, {0}, 2},
    {"no_code_tuple", kGapTuple, {2}, Form::Block, 0, "1000", 2, nkpStatusVlcError, {5, 0x5555}, 0},
    {"no_code_tuple_escape", kGapTuple, {1, 1}, Form::EscAac, 0, "00", 1, nkpStatusVlcError, {0x5555}, 0},
    // AAC escapes: eight one bits give 2^12 + w up to 8191; nine are an error
    // after which the values before stay and the cursor does not move.
    {"aac_eight_ones", kEsc, {2}, Form::EscAac, 0, "1" "111111110" "111111111111" "00", 2, nkpStatusOk, {8191, 3}, 24},
    {"aac_nine_ones", kEsc, {2}, Form::EscAac, 0, "00" "01" "1111111110", 2, nkpStatusVlcError, {3, 0x5555}, 0},
    {"aac_smallest", kEsc, {2}, Form::EscAac, 0, "01" "0" "0000" "00", 2, nkpStatusOk, {-16, 3}, 9},
    {"aac_odd_count", kEsc, {2}, Form::EscAac, 0, "00" "00" "00", 3, nkpStatusOk, {3, 3, 0x5555}, 4},
    {"aac_count_one", kEsc, {2}, Form::EscAac, 0, "00", 1, nkpStatusOk, {0x5555}, 0},
    // Linbits outside the MP3 range: negative counts as 0; above 16 the low
    // 16 of the field are added.
    {"linbits_negative", kLin, {2}, Form::EscMp3, -3, "1" "00", 2, nkpStatusOk, {15, 0}, 3},
    {"linbits_20", kLin, {2}, Form::EscMp3, 20, "01" "11110000000000010010" "00", 2, nkpStatusOk, {-33, 0}, 24},
    {"linbits_40", kLin, {2}, Form::EscMp3, 40, "1" "0001001000110100010101100000000000000111", 1, nkpStatusOk, {22}, 41},
    {"linbits_tuple", ladder(1, {15, 0}, 1, 4), {1}, Form::EscMp3, 20, "1" "11110000000000010010" "1", 1, nkpStatusOk,
     {-33}, 22},
    // The largest value 2^k where the value field holds k + 1 bits (tight
    // 1-byte entries: 3 value bits, 3 length bits): +8 goes through a
    // marker, for codes of up to two lengths; a third length decodes as -8.
    {"tight_plus_8", ladder(8, {0, 1, 2, 3, 4, 5, 6, 7, 8}), {4, 4}, Form::Block, 0, kLadder8, 9, nkpStatusOk,
     {0, 1, 2, 3, 4, 5, 6, 7, 8}, 44},
    {"tight_both_signs", ladder(8, {-8, 1, 2, 3, 4, 5, 6, 7, 8}), {4, 4}, Form::Block, 0, kLadder8, 9, nkpStatusOk,
     {-8, 1, 2, 3, 4, 5, 6, 7, 8}, 44},
    {"tight_third_length", ladder(8, {-8, 8, 8, 3, 4, 5, 6, 7, 8}), {4, 4}, Form::Block, 0, kLadder8, 9, nkpStatusOk,
     {-8, 8, 8, 3, 4, 5, 6, 7, -8}, 44},
    {"wider_entries", ladder(8, {-8, 8, 8, 3, 4, 5, 6, 7, 8}), {8}, Form::Block, 0, kLadder8, 9, nkpStatusOk,
     {-8, 8, 8, 3, 4, 5, 6, 7, 8}, 44},
};

TEST(VlcDecode, EdgeStreams) {
    for (const EdgeRow& r : kEdges)
        for (int path = 0; path < 2; ++path) {
            const Decoder d(r.book, r.widths, path);
            ASSERT_EQ(d.status, nkpStatusOk) << r.name;
            Result res = decode(d, r.book, BitWriter().code(r.stream).bytes(), 0, r.count, r.form, path, r.linbits);
            res.out.resize(r.out.size());
            EXPECT_EQ(res, (Result{r.status, r.out, r.bits})) << r.name;
        }
}

}  // namespace
