// Decoding streams written by the tests' own bit writer: every code of the
// standard books, random complete and incomplete prefix codes, tuples with
// sign bits, both escape forms, bit patterns of no code, and the cursor
// after every call. Streams sit in page-guarded buffers that end where the
// read slack ends, so a decoder that reads one word too far faults. Both
// code paths run every case and must agree bit for bit, also on random bits.
#include "code_books.h"
#include "common/guarded_buffer.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

using namespace vlctest;
using nkptest::BitWriter;
using nkptest::GuardedBuffer;

enum class Form { Block, EscAac, EscMp3 };

// A stream of random codes of book b with what decoding it must give.
struct Stream {
    BitWriter w;
    size_t lead = 0;               // junk bits before the first code
    std::vector<size_t> ends;      // bit position after each code (with its extra bits)
    std::vector<nkp16s> expected;  // the decoded values, elements per code
};

int random_escape(std::mt19937& rng, const Book& b, int linbits) {
    if (b.escape == 16) return 16 + static_cast<int>(rng() % 8176);
    return 15 + static_cast<int>(rng() % (1u << linbits));
}

Stream make_stream(std::mt19937& rng, const Book& b, int codes, Form form, int linbits = 0) {
    Stream s;
    s.lead = rng() % 32;
    s.w.put(rng(), static_cast<int>(s.lead));
    Book book = b;
    if (form == Form::EscMp3) book.linbits = linbits, book.escape = 15;
    if (form == Form::EscAac) book.escape = 16;
    for (int k = 0; k < codes; ++k) {
        const Entry& e = b.entries[rng() % b.entries.size()];
        if (!b.elements) {
            // Plain escape forms: the value 16 / 15 (or its negative) is followed by its escape bits.
            int v = e.value;
            s.w.put(static_cast<uint32_t>(e.code), e.length);
            if (form == Form::EscAac && (v == 16 || v == -16)) {
                const int m = random_escape(rng, book, 0);
                put_aac_escape(s.w, m);
                v = v < 0 ? -m : m;
            } else if (form == Form::EscMp3 && (v == 15 || v == -15) && linbits > 0) {
                const int m = random_escape(rng, book, linbits);
                s.w.put(static_cast<uint32_t>(m - 15), linbits);
                v = v < 0 ? -m : m;
            }
            s.expected.push_back(static_cast<nkp16s>(v));
        } else {
            std::vector<int> values = elements_of(b, e.value);
            for (int& v : values) {
                if (form != Form::Block && v == book.escape && (form == Form::EscAac || linbits > 0))
                    v = random_escape(rng, book, linbits);
                if (rng() & 1) v = -v;
                s.expected.push_back(static_cast<nkp16s>(v));
            }
            if (form == Form::Block) book.escape = 0;
            put_tuple(s.w, book, e, values);
        }
        s.ends.push_back(s.w.bit_count());
    }
    return s;
}

struct Result {
    nkpStatus status;
    std::vector<nkp16s> out;
    long bits;  // how far the cursor moved
    bool operator==(const Result& o) const { return status == o.status && out == o.out && bits == o.bits; }
};

// Decodes `count` codes (plain) or tuples from the stream's bytes, held in a
// guarded buffer misaligned by `misalign`.
Result decode(const Decoder& d, const Book& b, const std::vector<uint8_t>& bytes, size_t lead, int count, Form form,
              int path, int linbits = 0, size_t misalign = 0) {
    GuardedBuffer g(bytes, misalign);
    nkp8u* const start = g.data() + lead / 8;
    nkp8u* p = start;
    int offset = static_cast<int>(lead % 8);
    const int per_code = b.elements ? b.elements : 1;
    Result r{0, std::vector<nkp16s>(static_cast<size_t>(count) * per_code + 1, 0x5555), 0};
    nkp16s* out = r.out.data();
    if (b.elements) {
        if (form == Form::Block)
            r.status = nkpt_nkpsVLCDecodeUTupleBlock_1u16s[path](&p, &offset, out, count, d.spec);
        else if (form == Form::EscAac)
            r.status = nkpt_nkpsVLCDecodeUTupleEscBlock_AAC_1u16s[path](&p, &offset, out, count, d.spec);
        else
            r.status = nkpt_nkpsVLCDecodeUTupleEscBlock_MP3_1u16s[path](&p, &offset, linbits, out, count, d.spec);
    } else {
        if (form == Form::Block)
            r.status = nkpt_nkpsVLCDecodeBlock_1u16s[path](&p, &offset, out, count, d.spec);
        else if (form == Form::EscAac)
            r.status = nkpt_nkpsVLCDecodeEscBlock_AAC_1u16s[path](&p, &offset, out, count, d.spec);
        else
            r.status = nkpt_nkpsVLCDecodeEscBlock_MP3_1u16s[path](&p, &offset, linbits, out, count, d.spec);
    }
    r.bits = static_cast<long>(p - start) * 8 + offset - static_cast<long>(lead % 8);
    return r;
}

// Decodes the stream one code at a time with the One forms (escape forms:
// blocks of one), checking the cursor after every call.
void decode_one_by_one(const Decoder& d, const Book& b, const Stream& s, Form form, int path, int linbits,
                       const std::string& what) {
    std::vector<uint8_t> bytes = s.w.bytes();
    bytes.resize(bytes.size() + 8, 0);
    nkp8u* p = bytes.data() + s.lead / 8;
    int offset = static_cast<int>(s.lead % 8);
    const int per_code = b.elements ? b.elements : 1;
    for (size_t k = 0; k < s.ends.size(); ++k) {
        nkp16s out[32];
        nkpStatus st;
        if (form == Form::Block)
            st = b.elements ? nkpt_nkpsVLCDecodeUTupleOne_1u16s[path](&p, &offset, out, d.spec)
                            : nkpt_nkpsVLCDecodeOne_1u16s[path](&p, &offset, out, d.spec);
        else if (form == Form::EscAac)
            st = b.elements ? nkpsVLCDecodeUTupleEscBlock_AAC_1u16s(&p, &offset, out, 1, d.spec)
                            : nkpsVLCDecodeEscBlock_AAC_1u16s(&p, &offset, out, 2, d.spec);
        else
            st = b.elements ? nkpsVLCDecodeUTupleEscBlock_MP3_1u16s(&p, &offset, linbits, out, 1, d.spec)
                            : nkpsVLCDecodeEscBlock_MP3_1u16s(&p, &offset, linbits, out, 1, d.spec);
        ASSERT_EQ(st, nkpStatusOk) << what << " code " << k;
        if (form == Form::EscAac && !b.elements) ++k;  // the plain AAC form decodes pairs
        ASSERT_EQ(static_cast<size_t>(p - bytes.data()) * 8 + offset, s.ends[k]) << what << " code " << k;
        const size_t first = (form == Form::EscAac && !b.elements ? k - 1 : k) * per_code;
        const size_t n = form == Form::EscAac && !b.elements ? 2 : per_code;
        for (size_t i = 0; i < n; ++i) ASSERT_EQ(out[i], s.expected[first + i]) << what << " code " << k;
    }
}

// Runs one book: blocks and single calls on both paths, which must agree.
void check_book(const Book& b, const std::vector<int32_t>& widths, Form form, std::mt19937& rng, int codes,
                int linbits = 0) {
    const std::string what = b.name + " widths " + std::to_string(widths[0]) + "+";
    Decoder d0(b, widths, 0, rng() % 64), d1(b, widths, 1, rng() % 64);
    ASSERT_EQ(d0.status, nkpStatusOk) << what;
    ASSERT_EQ(d1.status, nkpStatusOk) << what;
    // The plain AAC form decodes whole pairs.
    if (form == Form::EscAac && !b.elements) codes &= ~1;
    const Stream s = make_stream(rng, b, codes, form, linbits);
    const size_t misalign = rng() % 4;
    const Result r0 = decode(d0, b, s.w.bytes(), s.lead, codes, form, 0, linbits, misalign);
    const Result r1 = decode(d1, b, s.w.bytes(), s.lead, codes, form, 1, linbits, misalign);
    ASSERT_EQ(r0.status, nkpStatusOk) << what;
    EXPECT_EQ(r0.bits, static_cast<long>(s.w.bit_count() - s.lead)) << what;
    std::vector<nkp16s> expected = s.expected;
    expected.push_back(0x5555);  // nothing written past the last value
    EXPECT_EQ(r0.out, expected) << what;
    EXPECT_TRUE(r0 == r1) << what << ": the code paths differ";
    decode_one_by_one(d0, b, s, form, 0, linbits, what);
    decode_one_by_one(d1, b, s, form, 1, linbits, what);
}

TEST(VlcDecode, EveryStandardBookWithAnyWidths) {
    std::mt19937 rng(11);
    for (const Book& b : standard_books()) {
        const Form form = b.escape == 16 ? Form::EscAac : b.escape == 15 ? Form::EscMp3 : Form::Block;
        for (const std::vector<int32_t>& widths :
             {std::vector<int32_t>{9, 5, 5}, std::vector<int32_t>(32, 1), std::vector<int32_t>{3, 7, 2, 5, 4},
              std::vector<int32_t>{19}}) {
            check_book(b, widths, form, rng, 600, b.linbits);
            // The escape books decode as plain tuple books too (no escape bits).
            if (form != Form::Block) check_book(b, widths, Form::Block, rng, 200);
        }
    }
}

TEST(VlcDecode, Mp3BooksWithEveryLinbits) {
    std::mt19937 rng(12);
    for (int table : {16, 24})
        for (int linbits : {1, 4, 8, 13, 16})
            check_book(mp3_pairs(table), {8, 8, 8}, Form::EscMp3, rng, 300, linbits);
}

// Random widths that reach the longest code (some levels of width 1, some
// wider than needed).
std::vector<int32_t> random_widths(std::mt19937& rng, int longest) {
    std::vector<int32_t> w;
    for (int sum = 0; sum < longest;) {
        const int32_t x = 1 + static_cast<int32_t>(rng() % (rng() % 3 == 0 ? 12 : 5));
        w.push_back(x);
        sum += x;
    }
    return w;
}

TEST(VlcDecode, RandomPrefixCodes) {
    std::mt19937 rng(13);
    for (int round = 0; round < 300; ++round) {
        const bool complete = round % 2 == 0;
        const int longest = 1 + static_cast<int>(rng() % 32);
        const int count = 2 + static_cast<int>(rng() % 200);
        Book b{"random_" + std::to_string(round) + (complete ? "_complete" : "_incomplete"), {}, 0, 0, 0, 0};
        if (round % 3 == 2) {
            // A tuple book: 1..4 elements of up to 6 bits.
            b.elements = 1 + static_cast<int>(rng() % 4);
            b.element_bits = 1 + static_cast<int>(rng() % 6);
            b.entries = random_code(rng, count, longest, complete, 0, (1 << (b.elements * b.element_bits)) - 1);
        } else {
            // Plain values of every magnitude up to 16 bits.
            const int32_t span = int32_t{1} << (rng() % 16);
            b.entries = random_code(rng, count, longest, complete, -span, span);
        }
        int max_length = 0;
        for (const Entry& e : b.entries) max_length = std::max(max_length, static_cast<int>(e.length));
        const std::vector<int32_t> widths = random_widths(rng, max_length);
        check_book(b, widths, Form::Block, rng, 100);
    }
}

// Plain books with values -16..16 and -15..15 for the plain escape forms.
TEST(VlcDecode, PlainEscapeForms) {
    std::mt19937 rng(14);
    for (int round = 0; round < 40; ++round) {
        const bool aac = round % 2 == 0;
        const int top = aac ? 16 : 15;
        Book b{aac ? "plain_aac" : "plain_mp3", random_code(rng, 2 * top + 1, 12 + round % 8, true, 0, 0), 0, 0, 0, 0};
        for (size_t i = 0; i < b.entries.size(); ++i) b.entries[i].value = static_cast<int32_t>(i) - top;
        const std::vector<int32_t> widths = random_widths(rng, 20);
        if (aac)
            check_book(b, widths, Form::EscAac, rng, 300);
        else
            check_book(b, widths, Form::EscMp3, rng, 300, 1 + round % 16);
    }
}

// Linbits outside the MP3 range: negative counts as 0; above 16 the escape
// takes all its bits and adds the low 16.
TEST(VlcDecode, LinbitsOutsideTheMp3Range) {
    // Plain: "1" -> 15, "01" -> -15, "00" -> 0. Tuple: one 4-bit element, same codes.
    const Book plain{"lin", {{15, 1, 1}, {-15, 1, 2}, {0, 0, 2}}, 0, 0, 0, 0};
    const Book tuple{"lin_tuple", {{15, 1, 1}, {0, 0, 2}}, 1, 4, 0, 0};
    struct Row {
        const char* name;
        int linbits;
        uint64_t escape;  // the linbits field after the code "1"
        nkp16s value;
    } rows[] = {
        {"negative", -3, 0, 15},
        {"zero", 0, 0, 15},
        {"twenty", 20, 0xF0012, 15 + 0x12},
        {"forty", 40, 0x1234560007ull, 15 + 7},
    };
    for (const Row& r : rows) {
        const int bits = r.linbits > 0 ? r.linbits : 0;
        for (const Book* b : {&plain, &tuple}) {
            BitWriter w;
            w.put(1, 1);
            if (bits > 32) w.put(static_cast<uint32_t>(r.escape >> 32), bits - 32);
            w.put(static_cast<uint32_t>(r.escape), std::min(bits, 32));
            if (b->elements) w.put_bit(1);  // the element's sign: negative
            w.put(0, 2);                    // then "00"
            for (int path = 0; path < 2; ++path) {
                Decoder d(*b, {2}, path);
                const Result res = decode(d, *b, w.bytes(), 0, 2, Form::EscMp3, path, r.linbits);
                ASSERT_EQ(res.status, nkpStatusOk) << r.name;
                EXPECT_EQ(res.out[0], b->elements ? -r.value : r.value) << r.name;
                EXPECT_EQ(res.out[1], 0) << r.name;
                EXPECT_EQ(res.bits, static_cast<long>(w.bit_count())) << r.name;
            }
        }
    }
}

// The tuple MP3 form against the library's own MP3 Huffman decoder on the
// same big-values data: three regions, tables with and without linbits.
TEST(VlcDecode, Mp3TuplesMatchTheMp3HuffmanDecoder) {
    std::mt19937 rng(15);
    const int tables[][3] = {{24, 24, 24}, {7, 15, 16}, {13, 1, 31}, {2, 20, 27}};
    for (const auto& t : tables) {
        // Regions of the 44.1 kHz long bands with region0Count 7, region1Count 7: bands 0..7
        // (lines 0..35), bands 8..15 (36..161) and the rest of the big values.
        const int ends[3] = {36, 162, 576};
        BitWriter w;
        std::vector<nkp32s> expected(576, 0);
        std::vector<Book> books;
        for (int r = 0; r < 3; ++r) books.push_back(mp3_pairs(t[r]));
        int line = 0;
        for (int r = 0; r < 3; ++r) {
            const Book& b = books[r];
            for (; line < ends[r]; line += 2) {
                const Entry& e = b.entries[rng() % b.entries.size()];
                std::vector<int> v = elements_of(b, e.value);
                for (int& x : v) {
                    if (x == 15 && b.linbits) x += static_cast<int>(rng() % (1u << b.linbits));
                    if (rng() & 1) x = -x;
                }
                put_tuple(w, b, e, v);
                expected[line] = v[0];
                expected[line + 1] = v[1];
            }
        }
        const int bits = static_cast<int>(w.bit_count());

        // The MP3 decoder over the whole granule.
        nkpMP3FrameHeader h{};
        h.id = 1, h.layer = 1, h.samplingFreqIndex = 0, h.mode = 1;
        nkpMP3SideInfo si{};
        si.part23Length = bits, si.bigValues = 288, si.region0Count = 7, si.region1Count = 7;
        for (int r = 0; r < 3; ++r) si.tableSelect[r] = t[r];
        std::vector<uint8_t> bytes = w.bytes();
        bytes.resize(bytes.size() + 8, 0);
        nkp8u* p = bytes.data();
        int offset = 0, bound = 0;
        std::vector<nkp32s> lines(576);
        ASSERT_EQ(nkpsHuffmanDecode_MP3_1u32s(&p, &offset, lines.data(), &bound, &si, &h, bits), nkpStatusOk);
        ASSERT_EQ(lines, expected);

        // The VLC engine, region by region.
        for (int path = 0; path < 2; ++path) {
            nkp8u* q = bytes.data();
            int off = 0;
            std::vector<nkp16s> out(576);
            int at = 0;
            for (int r = 0; r < 3; ++r) {
                Decoder d(books[r], {8, 8, 8}, path);
                ASSERT_EQ(d.status, nkpStatusOk);
                ASSERT_EQ(nkpsVLCDecodeUTupleEscBlock_MP3_1u16s(&q, &off, books[r].linbits, out.data() + at,
                                                               (ends[r] - at) / 2, d.spec),
                          nkpStatusOk);
                at = ends[r];
            }
            EXPECT_EQ(std::vector<nkp32s>(out.begin(), out.end()), lines);
            EXPECT_EQ((q - bytes.data()) * 8 + off, bits);
        }
    }
}

// Bit patterns that start no code: the plain decoders give 0 and consume the
// levels down to the one where the pattern ends; the tuple decoders refuse
// and leave the cursor.
TEST(VlcDecode, PatternsOfNoCode) {
    // "1" -> 5, "01" -> 6; nothing starts with "00".
    const Book plain{"gap", {{5, 1, 1}, {6, 1, 2}}, 0, 0, 0, 0};
    const Book tuple{"gap_tuple", {{5, 1, 1}, {6, 1, 2}}, 1, 3, 0, 0};
    struct Row {
        const char* name;
        std::vector<int32_t> widths;
        long plain_bits;  // what a plain decode of "00..." consumes
    } rows[] = {{"one_level", {2}, 2}, {"two_levels", {1, 1}, 2}, {"second_level_cut", {1, 5}, 2}};
    for (const Row& r : rows)
        for (int path = 0; path < 2; ++path) {
            Decoder dp(plain, r.widths, path), dt(tuple, r.widths, path);
            const std::vector<uint8_t> zeros{0x00, 0x00};
            Result res = decode(dp, plain, zeros, 0, 1, Form::Block, path);
            EXPECT_EQ(res.status, nkpStatusOk) << r.name;
            EXPECT_EQ(res.out[0], 0) << r.name;
            EXPECT_EQ(res.bits, r.plain_bits) << r.name;
            for (Form f : {Form::Block, Form::EscAac, Form::EscMp3}) {
                res = decode(dt, tuple, zeros, 0, 1, f, path, 3);
                EXPECT_EQ(res.status, nkpStatusVlcError) << r.name;
                EXPECT_EQ(res.bits, 0) << r.name;
            }
            // After a good code the refusal keeps the value decoded before it.
            const std::vector<uint8_t> one_then_gap{0x80};  // "1" then "00"
            res = decode(dt, tuple, one_then_gap, 0, 2, Form::Block, path);
            EXPECT_EQ(res.status, nkpStatusVlcError);
            EXPECT_EQ(res.out[0], 5);
            EXPECT_EQ(res.bits, 0);
        }
}

// AAC escapes at their limit: eight one bits give 2^12 + w up to 8191; nine
// are an error that stops the block with the earlier values written and the
// cursor where it was. An odd count leaves the last value alone.
TEST(VlcDecode, AacEscapeLimits) {
    // Plain book: "1" -> 16, "01" -> -16, "00" -> 3.
    const Book plain{"esc", {{16, 1, 1}, {-16, 1, 2}, {3, 0, 2}}, 0, 0, 0, 0};
    Decoder d(plain, {2}, 0);
    struct Row {
        const char* name;
        std::vector<uint8_t> bytes;
        int count;
        nkpStatus status;
        std::vector<nkp16s> out;  // the first count + 1 outputs
        long bits;
    } rows[] = {
        // "1" 11111111 0 111111111111 (8191), then "00" (3).
        {"eight_ones", {0xFF, 0xBF, 0xFC, 0x00}, 2, nkpStatusOk, {8191, 3, 0x5555}, 24},
        // "00" (3), "01" 111111111 ...: nine ones.
        {"nine_ones", {0x1F, 0xFF, 0x00, 0x00}, 2, nkpStatusVlcError, {3, 0x5555, 0x5555}, 0},
        // "01" 0 0000 (-(16 + 0)), "00".
        {"smallest_escape", {0x40, 0x00}, 2, nkpStatusOk, {-16, 3, 0x5555}, 9},
        {"odd_count", {0x00, 0x00}, 3, nkpStatusOk, {3, 3, 0x5555, 0x5555}, 4},
        {"count_one", {0x00}, 1, nkpStatusOk, {0x5555, 0x5555}, 0},
        {"count_zero", {0x00}, 0, nkpStatusOk, {0x5555}, 0},
    };
    for (const Row& r : rows) {
        const Result res = decode(d, plain, r.bytes, 0, r.count, Form::EscAac, 0);
        EXPECT_EQ(res.status, r.status) << r.name;
        EXPECT_EQ(std::vector<nkp16s>(res.out.begin(), res.out.begin() + static_cast<long>(r.out.size())), r.out)
            << r.name;
        EXPECT_EQ(res.bits, r.bits) << r.name;
    }
}

// The bytes of an object from its aligned start to the end of what GetSize
// reserves for it, but for its pointer to its own table (bytes 16..23).
std::vector<uint8_t> object_bytes(const Decoder& d) {
    const uint8_t* base = reinterpret_cast<const uint8_t*>(d.spec);
    const uint8_t* start = base + ((0 - reinterpret_cast<uintptr_t>(base)) & 63);
    const uint8_t* end = d.storage.data() + d.storage.size();
    std::vector<uint8_t> bytes(start, end - (63 - (start - base)));
    std::fill(bytes.begin() + 16, bytes.begin() + 24, 0);
    return bytes;
}

// Both paths on random bits: any book, any stream, every decoder gives the
// same status, values and cursor on either path (and never reads past the
// slack, or the guarded buffer faults).
TEST(VlcDecode, BothPathsAgreeOnRandomBits) {
    std::mt19937 rng(16);
    for (int round = 0; round < 400; ++round) {
        const int longest = 1 + static_cast<int>(rng() % 32);
        Book b{"noise", {}, 0, 0, 0, 0};
        if (round % 2) {
            b.elements = 1 + static_cast<int>(rng() % 3);
            b.element_bits = 1 + static_cast<int>(rng() % 5);
            b.entries = random_code(rng, 2 + static_cast<int>(rng() % 80), longest, round % 4 == 1, 0,
                                    (1 << (b.elements * b.element_bits)) - 1);
        } else {
            b.entries = random_code(rng, 2 + static_cast<int>(rng() % 80), longest, round % 4 == 0, -17, 17);
        }
        int max_length = 0;
        for (const Entry& e : b.entries) max_length = std::max(max_length, static_cast<int>(e.length));
        const std::vector<int32_t> widths = random_widths(rng, max_length);
        Decoder d0(b, widths, 0), d1(b, widths, 1);
        ASSERT_EQ(object_bytes(d0), object_bytes(d1)) << "the code paths build different tables";
        // Room for 24 codes of 32 bits with three elements of sign and 21 escape bits each.
        std::vector<uint8_t> bytes(320 + rng() % 64);
        for (uint8_t& x : bytes) x = static_cast<uint8_t>(rng() & (rng() % 3 ? 0xFF : 0xF0));
        const size_t lead = rng() % 8;
        const int count = 1 + static_cast<int>(rng() % 24);
        for (Form f : {Form::Block, Form::EscAac, Form::EscMp3}) {
            const int linbits = static_cast<int>(rng() % 20) - 2;
            const Result r0 = decode(d0, b, bytes, lead, count, f, 0, linbits);
            const Result r1 = decode(d1, b, bytes, lead, count, f, 1, linbits);
            ASSERT_TRUE(r0 == r1) << "round " << round;
            // Whatever it decoded, the cursor stayed inside the stream.
            ASSERT_LE(r0.bits, static_cast<long>(bytes.size() * 8 - lead)) << "round " << round;
        }
    }
}

}  // namespace
