// Every VLC export's statuses in its checking order: one row per case, the
// first failing check decides. Two-path exports run through both entries. A
// refused call leaves the cursor and the destination as they were.
#include "code_books.h"

#include <gtest/gtest.h>

#include <functional>

namespace {

using vlctest::Entry;

struct Scratch {
    // "1" -> 1, "01" -> -1, "00" -> 16: a complete 2-bit book.
    Entry book[3] = {{1, 1, 1}, {-1, 1, 2}, {16, 0, 2}};
    Entry long_code[2] = {{0, 0, 33}, {1, 1, 1}};
    Entry zero_length[3] = {{1, 1, 1}, {-1, 1, 2}, {2, 0, 0}};
    Entry nine_bits[2] = {{0, 0, 9}, {1, 1, 1}};
    Entry deep[2] = {{0, 0, 31}, {1, 1, 1}};  // 31 bits in one level: over 2^31 bytes
    Entry huge_range[2] = {{INT32_MIN, 0, 1}, {INT32_MAX, 1, 1}};
    int32_t widths[4] = {2, 2, 2, 2};
    int32_t w44[2] = {4, 4};
    int32_t w0[2] = {0, 4};
    int32_t w31[1] = {31};
    alignas(64) uint8_t plain_mem[512], tuple_mem[512], enc_mem[512], foreign[512] = {};
    nkpsVLCDecodeSpec_32s* plain = reinterpret_cast<nkpsVLCDecodeSpec_32s*>(plain_mem);
    nkpsVLCDecodeSpec_32s* tuple = reinterpret_cast<nkpsVLCDecodeSpec_32s*>(tuple_mem);
    nkpsVLCEncodeSpec_32s* enc = reinterpret_cast<nkpsVLCEncodeSpec_32s*>(enc_mem);
    nkpsVLCDecodeSpec_32s* foreign_dec = reinterpret_cast<nkpsVLCDecodeSpec_32s*>(foreign);
    nkpsVLCEncodeSpec_32s* foreign_enc = reinterpret_cast<nkpsVLCEncodeSpec_32s*>(foreign);
    uint8_t stream[16] = {0x5A, 0x5A, 0x5A, 0x5A};
    nkp8u* p = stream;
    int off = 0;
    nkp16s dst[8];
    nkp16s src[4] = {1, -1, 16, 1};
    nkp32s out = -7;
    nkpsVLCDecodeSpec_32s* dout = nullptr;
    nkpsVLCEncodeSpec_32s* eout = nullptr;

    Scratch() {
        EXPECT_EQ(nkpsVLCDecodeInit_32s(book, 3, widths, 4, plain), nkpStatusOk);
        EXPECT_EQ(nkpsVLCDecodeUTupleInit_32s(book, 2, widths, 4, 1, 1, tuple), nkpStatusOk);
        EXPECT_EQ(nkpsVLCEncodeInit_32s(book, 3, enc), nkpStatusOk);
        for (nkp16s& d : dst) d = 0x5555;
    }
};

struct Row {
    const char* name;
    std::function<nkpStatus(Scratch&, int path)> call;
    nkpStatus expected;
    int offset = 0;  // the bit offset the call is given
};

constexpr nkpStatus kNull = nkpStatusNullPointer, kOk = nkpStatusOk, kVlc = nkpStatusVlcError,
                    kLength = nkpStatusVlcCodeLength, kRange = nkpStatusOutOfRange, kWrong = nkpStatusWrongObject,
                    kOffset = nkpStatusBadBitOffset;

#define ROW(name, expr, expected, ...) \
    {name, [](Scratch& s, int path) -> nkpStatus { (void)path; return expr; }, expected __VA_OPT__(,) __VA_ARGS__}
#define PATH(f) nkpt_##f[path]

const Row kRows[] = {
    // Decoder tables: pointers, then the code book, then the size.
    ROW("dec_size/book_null", PATH(nkpsVLCDecodeGetSize_32s)(nullptr, 3, s.widths, 4, &s.out), kNull),
    ROW("dec_size/widths_null", PATH(nkpsVLCDecodeGetSize_32s)(s.book, 3, nullptr, 4, &s.out), kNull),
    ROW("dec_size/size_null_before_book", PATH(nkpsVLCDecodeGetSize_32s)(s.long_code, 2, s.widths, 4, nullptr), kNull),
    ROW("dec_size/empty_book", PATH(nkpsVLCDecodeGetSize_32s)(s.book, 0, s.widths, 4, &s.out), kLength),
    ROW("dec_size/negative_count", PATH(nkpsVLCDecodeGetSize_32s)(s.book, -2, s.widths, 4, &s.out), kLength),
    ROW("dec_size/length_33", PATH(nkpsVLCDecodeGetSize_32s)(s.long_code, 2, s.widths, 4, &s.out), kLength),
    ROW("dec_size/length_0", PATH(nkpsVLCDecodeGetSize_32s)(s.zero_length, 3, s.widths, 4, &s.out), kLength),
    ROW("dec_size/widths_4_4_for_9_bits", PATH(nkpsVLCDecodeGetSize_32s)(s.nine_bits, 2, s.w44, 2, &s.out), kLength),
    ROW("dec_size/width_0_before_longest", PATH(nkpsVLCDecodeGetSize_32s)(s.book, 3, s.w0, 2, &s.out), kLength),
    ROW("dec_size/no_widths", PATH(nkpsVLCDecodeGetSize_32s)(s.book, 3, s.widths, 0, &s.out), kLength),
    ROW("dec_size/object_over_2gb", PATH(nkpsVLCDecodeGetSize_32s)(s.deep, 2, s.w31, 1, &s.out), kRange),
    ROW("dec_size/ok", PATH(nkpsVLCDecodeGetSize_32s)(s.book, 3, s.widths, 4, &s.out), kOk),
    ROW("dec_init/buffer_null", PATH(nkpsVLCDecodeInit_32s)(s.long_code, 2, s.widths, 4, nullptr), kNull),
    ROW("dec_init/length_33", PATH(nkpsVLCDecodeInit_32s)(s.long_code, 2, s.widths, 4, s.foreign_dec), kLength),
    ROW("dec_init/widths_4_4_for_9_bits", PATH(nkpsVLCDecodeInit_32s)(s.nine_bits, 2, s.w44, 2, s.foreign_dec), kLength),
    ROW("dec_alloc/out_null_first", PATH(nkpsVLCDecodeInitAlloc_32s)(nullptr, 2, s.widths, 4, nullptr), kNull),
    ROW("dec_alloc/book_null", PATH(nkpsVLCDecodeInitAlloc_32s)(nullptr, 2, s.widths, 4, &s.dout), kNull),
    ROW("dec_alloc/length_33", PATH(nkpsVLCDecodeInitAlloc_32s)(s.long_code, 2, s.widths, 4, &s.dout), kLength),
    ROW("dec_free/null", PATH(nkpsVLCDecodeFree_32s)(nullptr), kNull),
    ROW("dec_free/encoder_object", PATH(nkpsVLCDecodeFree_32s)(reinterpret_cast<nkpsVLCDecodeSpec_32s*>(s.enc)), kWrong),
    ROW("dec_free/init_object", PATH(nkpsVLCDecodeFree_32s)(s.plain), kOk),

    // Tuple tables, in their deliberate order: pointers; element count and
    // bits before a code-book error; the code book; the size; the width.
    ROW("tup_size/null_first", PATH(nkpsVLCDecodeUTupleGetSize_32s)(s.long_code, 2, s.widths, 4, 0, 0, nullptr), kNull),
    ROW("tup_size/elements_0_before_book", PATH(nkpsVLCDecodeUTupleGetSize_32s)(s.long_code, 2, s.widths, 4, 0, 3, &s.out),
        kRange),
    ROW("tup_size/bits_0_before_book", PATH(nkpsVLCDecodeUTupleGetSize_32s)(s.long_code, 2, s.widths, 4, 2, 0, &s.out),
        kRange),
    ROW("tup_size/negative_elements", PATH(nkpsVLCDecodeUTupleGetSize_32s)(s.book, 2, s.widths, 4, -2, -3, &s.out),
        kRange),
    ROW("tup_size/book", PATH(nkpsVLCDecodeUTupleGetSize_32s)(s.long_code, 2, s.widths, 4, 2, 3, &s.out), kLength),
    ROW("tup_size/widest", PATH(nkpsVLCDecodeUTupleGetSize_32s)(s.book, 2, s.widths, 4, 1, 29, &s.out), kOk),
    ROW("tup_init/buffer_null", PATH(nkpsVLCDecodeUTupleInit_32s)(s.book, 2, s.widths, 4, 1, 1, nullptr), kNull),
    ROW("tup_init/elements_0_before_book", PATH(nkpsVLCDecodeUTupleInit_32s)(s.long_code, 2, s.widths, 4, 0, 1,
                                                                          s.foreign_dec),
        kRange),
    ROW("tup_init/book", PATH(nkpsVLCDecodeUTupleInit_32s)(s.long_code, 2, s.widths, 4, 1, 1, s.foreign_dec), kLength),
    ROW("tup_init/too_wide", PATH(nkpsVLCDecodeUTupleInit_32s)(s.book, 2, s.widths, 4, 10, 3, s.foreign_dec), kRange),
    ROW("tup_alloc/out_null", PATH(nkpsVLCDecodeUTupleInitAlloc_32s)(s.book, 2, s.widths, 4, 1, 1, nullptr), kNull),
    ROW("tup_alloc/too_wide", PATH(nkpsVLCDecodeUTupleInitAlloc_32s)(s.book, 2, s.widths, 4, 10, 3, &s.dout), kRange),
    ROW("tup_free/foreign", PATH(nkpsVLCDecodeUTupleFree_32s)(s.foreign_dec), kWrong),

    // Plain and tuple One/Block: pointers, then offset, count or tag, all
    // nkpStatusVlcError.
    ROW("one/stream_null", PATH(nkpsVLCDecodeOne_1u16s)(nullptr, &s.off, s.dst, s.plain), kNull),
    ROW("one/offset_null", PATH(nkpsVLCDecodeOne_1u16s)(&s.p, nullptr, s.dst, s.plain), kNull),
    ROW("one/dst_null", PATH(nkpsVLCDecodeOne_1u16s)(&s.p, &s.off, nullptr, s.plain), kNull),
    ROW("one/spec_null_before_offset", PATH(nkpsVLCDecodeOne_1u16s)(&s.p, &s.off, s.dst, nullptr), kNull, 8),
    ROW("one/offset_8", PATH(nkpsVLCDecodeOne_1u16s)(&s.p, &s.off, s.dst, s.plain), kVlc, 8),
    ROW("one/offset_negative", PATH(nkpsVLCDecodeOne_1u16s)(&s.p, &s.off, s.dst, s.plain), kVlc, -1),
    ROW("one/foreign", PATH(nkpsVLCDecodeOne_1u16s)(&s.p, &s.off, s.dst, s.foreign_dec), kVlc),
    ROW("one/ok", PATH(nkpsVLCDecodeOne_1u16s)(&s.p, &s.off, s.dst, s.plain), kOk, 7),
    ROW("block/dst_null", PATH(nkpsVLCDecodeBlock_1u16s)(&s.p, &s.off, nullptr, 0, s.plain), kNull),
    ROW("block/count_0", PATH(nkpsVLCDecodeBlock_1u16s)(&s.p, &s.off, s.dst, 0, s.plain), kVlc),
    ROW("block/offset_8", PATH(nkpsVLCDecodeBlock_1u16s)(&s.p, &s.off, s.dst, 2, s.plain), kVlc, 8),
    ROW("block/foreign", PATH(nkpsVLCDecodeBlock_1u16s)(&s.p, &s.off, s.dst, 2, s.foreign_dec), kVlc),
    ROW("tup_one/null", PATH(nkpsVLCDecodeUTupleOne_1u16s)(&s.p, &s.off, nullptr, s.tuple), kNull),
    ROW("tup_one/offset_8", PATH(nkpsVLCDecodeUTupleOne_1u16s)(&s.p, &s.off, s.dst, s.tuple), kVlc, 8),
    ROW("tup_one/foreign", PATH(nkpsVLCDecodeUTupleOne_1u16s)(&s.p, &s.off, s.dst, s.foreign_dec), kVlc),
    ROW("tup_block/count_0", PATH(nkpsVLCDecodeUTupleBlock_1u16s)(&s.p, &s.off, s.dst, 0, s.tuple), kVlc),
    ROW("tup_block/foreign", PATH(nkpsVLCDecodeUTupleBlock_1u16s)(&s.p, &s.off, s.dst, 1, s.foreign_dec), kVlc),

    // Escape blocks: their own offset and tag codes; counts unchecked.
    ROW("esc_aac/null", nkpsVLCDecodeEscBlock_AAC_1u16s(&s.p, nullptr, s.dst, 2, s.plain), kNull),
    ROW("esc_aac/offset_before_tag", nkpsVLCDecodeEscBlock_AAC_1u16s(&s.p, &s.off, s.dst, 2, s.foreign_dec), kOffset,
        8),
    ROW("esc_aac/foreign", nkpsVLCDecodeEscBlock_AAC_1u16s(&s.p, &s.off, s.dst, 2, s.foreign_dec), kWrong),
    ROW("esc_aac/count_negative", nkpsVLCDecodeEscBlock_AAC_1u16s(&s.p, &s.off, s.dst, -4, s.plain), kOk),
    ROW("esc_mp3/offset_8", nkpsVLCDecodeEscBlock_MP3_1u16s(&s.p, &s.off, 4, s.dst, 2, s.plain), kOffset, 8),
    ROW("esc_mp3/foreign", nkpsVLCDecodeEscBlock_MP3_1u16s(&s.p, &s.off, 4, s.dst, 2, s.foreign_dec), kWrong),
    ROW("esc_mp3/count_0", nkpsVLCDecodeEscBlock_MP3_1u16s(&s.p, &s.off, 4, s.dst, 0, s.plain), kOk),
    ROW("tup_esc_aac/offset_negative", nkpsVLCDecodeUTupleEscBlock_AAC_1u16s(&s.p, &s.off, s.dst, 1, s.tuple),
        kOffset, -3),
    ROW("tup_esc_aac/foreign", nkpsVLCDecodeUTupleEscBlock_AAC_1u16s(&s.p, &s.off, s.dst, 1, s.foreign_dec), kWrong),
    ROW("tup_esc_mp3/null", nkpsVLCDecodeUTupleEscBlock_MP3_1u16s(nullptr, &s.off, 1, s.dst, 1, s.tuple), kNull),
    ROW("tup_esc_mp3/foreign", nkpsVLCDecodeUTupleEscBlock_MP3_1u16s(&s.p, &s.off, 1, s.dst, 1, s.foreign_dec),
        kWrong),

    // Encoder tables.
    ROW("enc_size/null", PATH(nkpsVLCEncodeGetSize_32s)(s.book, 3, nullptr), kNull),
    ROW("enc_size/count_0", PATH(nkpsVLCEncodeGetSize_32s)(s.book, 0, &s.out), kVlc),
    ROW("enc_size/object_over_2gb", PATH(nkpsVLCEncodeGetSize_32s)(s.huge_range, 2, &s.out), kRange),
    ROW("enc_init/null", PATH(nkpsVLCEncodeInit_32s)(nullptr, 3, s.foreign_enc), kNull),
    ROW("enc_init/count_0", PATH(nkpsVLCEncodeInit_32s)(s.book, 0, s.foreign_enc), kVlc),
    ROW("enc_alloc/out_null", PATH(nkpsVLCEncodeInitAlloc_32s)(s.book, 0, nullptr), kNull),
    ROW("enc_alloc/count_0", PATH(nkpsVLCEncodeInitAlloc_32s)(s.book, 0, &s.eout), kVlc),
    ROW("enc_free/null", PATH(nkpsVLCEncodeFree_32s)(nullptr), kNull),
    ROW("enc_free/decoder_object", PATH(nkpsVLCEncodeFree_32s)(reinterpret_cast<nkpsVLCEncodeSpec_32s*>(s.plain)),
        kWrong),

    // Encoders and counters.
    ROW("enc_one/null", PATH(nkpsVLCEncodeOne_16s1u)(1, &s.p, &s.off, nullptr), kNull),
    ROW("enc_one/foreign", PATH(nkpsVLCEncodeOne_16s1u)(1, &s.p, &s.off, s.foreign_enc), kVlc),
    ROW("enc_one/offset_unchecked", PATH(nkpsVLCEncodeOne_16s1u)(1, &s.p, &s.off, s.enc), kOk, 9),
    ROW("enc_block/src_null", PATH(nkpsVLCEncodeBlock_16s1u)(nullptr, 0, &s.p, &s.off, s.enc), kNull),
    ROW("enc_block/count_before_offset", PATH(nkpsVLCEncodeBlock_16s1u)(s.src, 0, &s.p, &s.off, s.foreign_enc), kVlc, 8),
    ROW("enc_block/offset_8", PATH(nkpsVLCEncodeBlock_16s1u)(s.src, 4, &s.p, &s.off, s.enc), kVlc, 8),
    ROW("enc_block/foreign", PATH(nkpsVLCEncodeBlock_16s1u)(s.src, 4, &s.p, &s.off, s.foreign_enc), kVlc),
    ROW("enc_esc_aac/null", nkpsVLCEncodeEscBlock_AAC_16s1u(s.src, 4, &s.p, nullptr, s.enc), kNull),
    ROW("enc_esc_aac/offset_before_tag", nkpsVLCEncodeEscBlock_AAC_16s1u(s.src, 4, &s.p, &s.off, s.foreign_enc),
        kOffset, 8),
    ROW("enc_esc_aac/foreign", nkpsVLCEncodeEscBlock_AAC_16s1u(s.src, 4, &s.p, &s.off, s.foreign_enc), kWrong),
    ROW("enc_esc_aac/count_0", nkpsVLCEncodeEscBlock_AAC_16s1u(s.src, 0, &s.p, &s.off, s.enc), kOk),
    ROW("enc_esc_mp3/offset_negative", nkpsVLCEncodeEscBlock_MP3_16s1u(s.src, 4, 3, &s.p, &s.off, s.enc), kOffset,
        -1),
    ROW("enc_esc_mp3/foreign", nkpsVLCEncodeEscBlock_MP3_16s1u(s.src, 4, 3, &s.p, &s.off, s.foreign_enc), kWrong),
    ROW("count/null", PATH(nkpsVLCCountBits_16s32s)(s.src, 4, nullptr, s.enc), kNull),
    ROW("count/count_0", PATH(nkpsVLCCountBits_16s32s)(s.src, 0, &s.out, s.enc), kVlc),
    ROW("count/foreign", PATH(nkpsVLCCountBits_16s32s)(s.src, 4, &s.out, s.foreign_enc), kVlc),
    ROW("count_esc_aac/null", nkpsVLCCountEscBits_AAC_16s32s(nullptr, 4, &s.out, s.enc), kNull),
    ROW("count_esc_aac/foreign", nkpsVLCCountEscBits_AAC_16s32s(s.src, 4, &s.out, s.foreign_enc), kWrong),
    ROW("count_esc_aac/count_0", nkpsVLCCountEscBits_AAC_16s32s(s.src, 0, &s.out, s.enc), kOk),
    ROW("count_esc_mp3/foreign", nkpsVLCCountEscBits_MP3_16s32s(s.src, 4, 2, &s.out, s.foreign_enc), kWrong),
};

TEST(VlcStatus, EveryRowOnBothPaths) {
    for (const Row& row : kRows)
        for (int path = 0; path < 2; ++path) {
            Scratch s;
            s.off = row.offset;
            EXPECT_EQ(row.call(s, path), row.expected) << row.name << " path " << path;
            if (row.expected < 0) {
                EXPECT_EQ(s.p, s.stream) << row.name;
                EXPECT_EQ(s.off, row.offset) << row.name;
                for (nkp16s d : s.dst) EXPECT_EQ(d, 0x5555) << row.name;
                EXPECT_EQ(s.out, -7) << row.name;
            }
        }
}

// The tuple GetSize stores the size before its last check refuses.
TEST(VlcStatus, TupleSizeIsStoredBeforeTheWidthCheck) {
    Scratch s;
    for (int path = 0; path < 2; ++path) {
        nkp32s ok = 0, refused = 0;
        ASSERT_EQ(nkpt_nkpsVLCDecodeUTupleGetSize_32s[path](s.book, 2, s.widths, 4, 1, 1, &ok), kOk);
        ASSERT_EQ(nkpt_nkpsVLCDecodeUTupleGetSize_32s[path](s.book, 2, s.widths, 4, 10, 3, &refused), kRange);
        EXPECT_EQ(refused, ok);
    }
}

}  // namespace
