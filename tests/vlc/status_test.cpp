// Every VLC export's statuses in its checking order: one row per case, the
// first failing check decides. A refused call leaves the cursor, the
// destination and the outputs alone.
#include "code_books.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

namespace {

using vlctest::Entry;

struct Scratch {
    Entry book[3] = {{1, 1, 1}, {-1, 1, 2}, {16, 0, 2}};  // "1", "01", "00"
    Entry bad[2] = {{0, 0, 33}, {1, 1, 1}};               // a 33-bit code
    Entry zero_length[2] = {{1, 1, 1}, {2, 0, 0}};
    Entry nine[2] = {{0, 0, 9}, {1, 1, 1}};
    Entry deep[2] = {{0, 0, 31}, {1, 1, 1}};
    Entry huge_range[2] = {{INT32_MIN, 0, 1}, {INT32_MAX, 1, 1}};
    int32_t w[4] = {2, 2, 2, 2}, w44[2] = {4, 4}, w0[2] = {0, 4}, w20[2] = {2, 0}, w31[1] = {31};
    alignas(64) uint8_t plain_mem[512], tuple_mem[512], enc_mem[512], foreign[512] = {};
    nkpsVLCDecodeSpec_32s *plain = reinterpret_cast<nkpsVLCDecodeSpec_32s*>(plain_mem),
                          *tuple = reinterpret_cast<nkpsVLCDecodeSpec_32s*>(tuple_mem),
                          *fdec = reinterpret_cast<nkpsVLCDecodeSpec_32s*>(foreign), *dout = nullptr;
    nkpsVLCEncodeSpec_32s *enc = reinterpret_cast<nkpsVLCEncodeSpec_32s*>(enc_mem),
                          *fenc = reinterpret_cast<nkpsVLCEncodeSpec_32s*>(foreign), *eout = nullptr;
    uint8_t stream[16] = {0x5A, 0x5A};
    nkp8u* p = stream;
    int off = 0;
    nkp16s dst[4] = {0x5555, 0x5555, 0x5555, 0x5555}, src[4] = {1, -1, 16, 1};
    nkp32s out = -7;

    Scratch() {
        nkpsVLCDecodeInit_32s(book, 3, w, 4, plain);
        nkpsVLCDecodeUTupleInit_32s(book, 2, w, 4, 1, 1, tuple);
        nkpsVLCEncodeInit_32s(book, 3, enc);
    }
};

struct Row {
    const char* name;
    std::function<nkpStatus(Scratch&)> call;
    nkpStatus expected;
    int offset = 0;  // the bit offset the call is given
};

constexpr nkpStatus kNull = nkpStatusNullPointer, kOk = nkpStatusOk, kVlc = nkpStatusVlcError,
                    kLength = nkpStatusVlcCodeLength, kRange = nkpStatusOutOfRange, kWrong = nkpStatusWrongObject,
                    kOffset = nkpStatusBadBitOffset;

#define ROW(name, expr, expected, ...) \
    {name, [](Scratch& s) -> nkpStatus { return expr; }, expected __VA_OPT__(, ) __VA_ARGS__}

const Row kRows[] = {
    // Decoder tables: pointers, then the code book, then the size.
    ROW("dec_size/size_null_first", nkpsVLCDecodeGetSize_32s(s.bad, 2, s.w, 4, nullptr), kNull),
    ROW("dec_size/empty_book", nkpsVLCDecodeGetSize_32s(s.book, 0, s.w, 4, &s.out), kLength),
    ROW("dec_size/length_33", nkpsVLCDecodeGetSize_32s(s.bad, 2, s.w, 4, &s.out), kLength),
    ROW("dec_size/length_0", nkpsVLCDecodeGetSize_32s(s.zero_length, 2, s.w, 4, &s.out), kLength),
    ROW("dec_size/widths_4_4_for_9_bits", nkpsVLCDecodeGetSize_32s(s.nine, 2, s.w44, 2, &s.out), kLength),
    ROW("dec_size/width_0_before_longest", nkpsVLCDecodeGetSize_32s(s.book, 3, s.w0, 2, &s.out), kLength),
    ROW("dec_size/widths_after_longest_unread", nkpsVLCDecodeGetSize_32s(s.book, 3, s.w20, 2, &s.out), kOk),
    ROW("dec_size/object_over_2gb", nkpsVLCDecodeGetSize_32s(s.deep, 2, s.w31, 1, &s.out), kRange),
    ROW("dec_init/buffer_null", nkpsVLCDecodeInit_32s(s.bad, 2, s.w, 4, nullptr), kNull),
    ROW("dec_alloc/out_null_first", nkpsVLCDecodeInitAlloc_32s(nullptr, 2, s.w, 4, nullptr), kNull),
    ROW("dec_alloc/book_null", nkpsVLCDecodeInitAlloc_32s(nullptr, 2, s.w, 4, &s.dout), kNull),
    ROW("dec_free/null", nkpsVLCDecodeFree_32s(nullptr), kNull),
    ROW("dec_free/encoder_object", nkpsVLCDecodeFree_32s(reinterpret_cast<nkpsVLCDecodeSpec_32s*>(s.enc)), kWrong),
    ROW("tup_free/tuple_object", nkpsVLCDecodeUTupleFree_32s(s.tuple), kOk),
    // Tuple tables, in their deliberate order: pointers; element count and
    // bits before a code-book error; the code book; the size; the width.
    ROW("tup_size/null_first", nkpsVLCDecodeUTupleGetSize_32s(s.bad, 2, s.w, 4, 0, 0, nullptr), kNull),
    ROW("tup_size/elements_0_before_book", nkpsVLCDecodeUTupleGetSize_32s(s.bad, 2, s.w, 4, 0, 3, &s.out), kRange),
    ROW("tup_size/bits_0_before_book", nkpsVLCDecodeUTupleGetSize_32s(s.bad, 2, s.w, 4, 2, 0, &s.out), kRange),
    ROW("tup_size/book", nkpsVLCDecodeUTupleGetSize_32s(s.bad, 2, s.w, 4, 2, 3, &s.out), kLength),
    ROW("tup_size/widest", nkpsVLCDecodeUTupleGetSize_32s(s.book, 2, s.w, 4, 1, 29, &s.out), kOk),
    ROW("tup_init/too_wide", nkpsVLCDecodeUTupleInit_32s(s.book, 2, s.w, 4, 10, 3, s.fdec), kRange),
    // One and Block, plain and tuple: pointers, then offset, count or tag,
    // all nkpStatusVlcError.
    ROW("one/offset_null", nkpsVLCDecodeOne_1u16s(&s.p, nullptr, s.dst, s.plain), kNull),
    ROW("one/spec_null_before_offset", nkpsVLCDecodeOne_1u16s(&s.p, &s.off, s.dst, nullptr), kNull, 8),
    ROW("one/offset_8", nkpsVLCDecodeOne_1u16s(&s.p, &s.off, s.dst, s.plain), kVlc, 8),
    ROW("one/offset_negative", nkpsVLCDecodeOne_1u16s(&s.p, &s.off, s.dst, s.plain), kVlc, -1),
    ROW("one/foreign", nkpsVLCDecodeOne_1u16s(&s.p, &s.off, s.dst, s.fdec), kVlc),
    ROW("block/dst_null", nkpsVLCDecodeBlock_1u16s(&s.p, &s.off, nullptr, 0, s.plain), kNull),
    ROW("block/count_0", nkpsVLCDecodeBlock_1u16s(&s.p, &s.off, s.dst, 0, s.plain), kVlc),
    ROW("block/foreign", nkpsVLCDecodeBlock_1u16s(&s.p, &s.off, s.dst, 2, s.fdec), kVlc),
    ROW("tup_one/offset_8", nkpsVLCDecodeUTupleOne_1u16s(&s.p, &s.off, s.dst, s.tuple), kVlc, 8),
    ROW("tup_block/count_0", nkpsVLCDecodeUTupleBlock_1u16s(&s.p, &s.off, s.dst, 0, s.tuple), kVlc),
    ROW("tup_block/foreign", nkpsVLCDecodeUTupleBlock_1u16s(&s.p, &s.off, s.dst, 1, s.fdec), kVlc),
    // Escape blocks: their own offset and tag codes; counts unchecked.
    ROW("esc_aac/null", nkpsVLCDecodeEscBlock_AAC_1u16s(&s.p, nullptr, s.dst, 2, s.plain), kNull),
    ROW("esc_aac/offset_before_tag", nkpsVLCDecodeEscBlock_AAC_1u16s(&s.p, &s.off, s.dst, 2, s.fdec), kOffset, 8),
    ROW("esc_aac/foreign", nkpsVLCDecodeEscBlock_AAC_1u16s(&s.p, &s.off, s.dst, 2, s.fdec), kWrong),
    ROW("esc_aac/count_negative", nkpsVLCDecodeEscBlock_AAC_1u16s(&s.p, &s.off, s.dst, -4, s.plain), kOk),
    ROW("esc_mp3/offset_8", nkpsVLCDecodeEscBlock_MP3_1u16s(&s.p, &s.off, 4, s.dst, 2, s.plain), kOffset, 8),
    ROW("esc_mp3/foreign", nkpsVLCDecodeEscBlock_MP3_1u16s(&s.p, &s.off, 4, s.dst, 2, s.fdec), kWrong),
    ROW("tup_esc_aac/offset_negative", nkpsVLCDecodeUTupleEscBlock_AAC_1u16s(&s.p, &s.off, s.dst, 1, s.tuple), kOffset,
        -3),
    ROW("tup_esc_mp3/foreign", nkpsVLCDecodeUTupleEscBlock_MP3_1u16s(&s.p, &s.off, 1, s.dst, 1, s.fdec), kWrong),
    // Encoder tables.
    ROW("enc_size/null", nkpsVLCEncodeGetSize_32s(s.book, 3, nullptr), kNull),
    ROW("enc_size/count_0", nkpsVLCEncodeGetSize_32s(s.book, 0, &s.out), kVlc),
    ROW("enc_size/object_over_2gb", nkpsVLCEncodeGetSize_32s(s.huge_range, 2, &s.out), kRange),
    ROW("enc_alloc/out_null", nkpsVLCEncodeInitAlloc_32s(s.book, 0, nullptr), kNull),
    ROW("enc_alloc/count_0", nkpsVLCEncodeInitAlloc_32s(s.book, 0, &s.eout), kVlc),
    ROW("enc_free/decoder_object", nkpsVLCEncodeFree_32s(reinterpret_cast<nkpsVLCEncodeSpec_32s*>(s.plain)), kWrong),
    // Encoders and counters.
    ROW("enc_one/null", nkpsVLCEncodeOne_16s1u(1, &s.p, &s.off, nullptr), kNull),
    ROW("enc_one/foreign", nkpsVLCEncodeOne_16s1u(1, &s.p, &s.off, s.fenc), kVlc),
    ROW("enc_one/offset_unchecked", nkpsVLCEncodeOne_16s1u(1, &s.p, &s.off, s.enc), kOk, 9),
    ROW("enc_block/src_null", nkpsVLCEncodeBlock_16s1u(nullptr, 0, &s.p, &s.off, s.enc), kNull),
    ROW("enc_block/count_0", nkpsVLCEncodeBlock_16s1u(s.src, 0, &s.p, &s.off, s.enc), kVlc),
    ROW("enc_block/offset_8", nkpsVLCEncodeBlock_16s1u(s.src, 4, &s.p, &s.off, s.enc), kVlc, 8),
    ROW("enc_esc_aac/offset_before_tag", nkpsVLCEncodeEscBlock_AAC_16s1u(s.src, 4, &s.p, &s.off, s.fenc), kOffset, 8),
    ROW("enc_esc_aac/foreign", nkpsVLCEncodeEscBlock_AAC_16s1u(s.src, 4, &s.p, &s.off, s.fenc), kWrong),
    ROW("enc_esc_aac/count_0", nkpsVLCEncodeEscBlock_AAC_16s1u(s.src, 0, &s.p, &s.off, s.enc), kOk),
    ROW("enc_esc_mp3/offset_negative", nkpsVLCEncodeEscBlock_MP3_16s1u(s.src, 4, 3, &s.p, &s.off, s.enc), kOffset, -1),
    ROW("count/null", nkpsVLCCountBits_16s32s(s.src, 4, nullptr, s.enc), kNull),
    ROW("count/count_0", nkpsVLCCountBits_16s32s(s.src, 0, &s.out, s.enc), kVlc),
    ROW("count_esc_aac/foreign", nkpsVLCCountEscBits_AAC_16s32s(s.src, 4, &s.out, s.fenc), kWrong),
    ROW("count_esc_mp3/count_0", nkpsVLCCountEscBits_MP3_16s32s(s.src, 0, 2, &s.out, s.enc), kOk),
};

TEST(VlcStatus, EveryRow) {
    for (const Row& row : kRows) {
        Scratch s;
        s.off = row.offset;
        EXPECT_EQ(row.call(s), row.expected) << row.name;
        if (row.expected < 0) {
            EXPECT_TRUE(s.p == s.stream && s.off == row.offset && s.out == -7) << row.name;
            for (nkp16s d : s.dst) EXPECT_EQ(d, 0x5555) << row.name;
            EXPECT_EQ(std::count(s.foreign, std::end(s.foreign), 0), 512) << row.name;
        }
    }
}

}  // namespace
