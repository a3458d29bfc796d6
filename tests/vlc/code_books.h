// The standard code books as VLC code books, read from the vendored text
// tables (tools/tables, format in its README), and what the VLC tests
// share: random prefix codes and widths, objects, and codes written with
// their sign and escape bits.
#pragma once

#include "common/bit_writer.h"
#include "frame/exports.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace vlctest {

using Entry = nkpsVLCCodeEntry_32s;

struct Book {
    std::string name;
    std::vector<Entry> entries;
    int elements = 0, element_bits = 0;  // tuple books; 0: a plain book
    int escape = 0;                      // the escaping element: 16 (AAC book 11), 15 (MP3 with linbits)
    int linbits = 0;
};

inline std::vector<std::vector<std::string>> table_rows(const char* file) {
    std::ifstream in(std::string(NKPAC_TABLES_DIR) + "/" + file);
    if (!in) std::fprintf(stderr, "cannot read %s\n", file), std::abort();
    std::vector<std::vector<std::string>> rows;
    for (std::string line; std::getline(in, line);) {
        std::istringstream words(line.substr(0, line.find('#')));
        std::vector<std::string> row;
        for (std::string w; words >> w;) row.push_back(w);
        if (!row.empty()) rows.push_back(row);
    }
    return rows;
}

inline Entry entry(int32_t value, const std::string& bits) {
    return {value, static_cast<int32_t>(std::stoul(bits, nullptr, 2)), static_cast<int32_t>(bits.size())};
}

// MP3 big-value tables: tuples of two 4-bit elements (x, y); count1 tables:
// four 1-bit elements; AAC unsigned spectral books: tuples of elements of
// the bit length of lav; AAC signed books (values with their signs): plain
// books of the code-word index; the AAC scale-factor book: plain -60..60.
inline const std::vector<Book>& standard_books() {
    static const std::vector<Book> books = [] {
        std::vector<Book> v;
        bool own = false;  // MP3 tables 17..23 and 25..31 share the codes of 16 and 24
        for (const auto& r : table_rows("mp3_huffman_pairs.txt"))
            if (r[0] == "table" && (own = r[9] == r[1]))
                v.push_back({"mp3_" + r[1], {}, 2, 4, r[7] != "0" ? 15 : 0, std::stoi(r[7])});
            else if (r[0] != "table" && own)
                v.back().entries.push_back(entry(std::stoi(r[0]) * 16 + std::stoi(r[1]), r[3]));
        for (const auto& r : table_rows("mp3_huffman_quads.txt"))
            if (r[0] == "table")
                v.push_back({"mp3_quad_" + r[1], {}, 4, 1});
            else
                v.back().entries.push_back(entry(std::stoi(r[0] + r[1] + r[2] + r[3], nullptr, 2), r[5]));
        for (const auto& r : table_rows("aac_spectral_codebooks.txt")) {
            if (r[0] == "book") {
                const int lav = std::stoi(r[7]), bits = lav < 2 ? 1 : lav < 4 ? 2 : lav < 8 ? 3 : lav < 16 ? 4 : 5;
                const bool plain = r[5] == "signed";
                v.push_back({"aac_" + r[1], {}, plain ? 0 : std::stoi(r[3]), plain ? 0 : bits, r[1] == "11" ? 16 : 0});
                continue;
            }
            Book& b = v.back();
            int32_t value = b.elements ? 0 : std::stoi(r[0]);
            for (size_t i = 3; b.elements && i < r.size(); ++i) value = (value << b.element_bits) | std::stoi(r[i]);
            b.entries.push_back(entry(value, r[2]));
        }
        v.push_back({"aac_sf", {}});
        for (const auto& r : table_rows("aac_scalefactor_codebook.txt"))
            v.back().entries.push_back(entry(std::stoi(r[1]), r[3]));
        return v;
    }();
    return books;
}

// A random prefix code of `count` codes no longer than max_length, made by
// splitting random leaves of a binary tree; values in lo..hi. `complete`
// keeps every leaf (Kraft sum 1), otherwise about a quarter are dropped.
inline std::vector<Entry> random_code(std::mt19937& rng, int count, int max_length, bool complete, int32_t lo,
                                      int32_t hi) {
    std::vector<Entry> leaves{{0, 0, 1}, {0, 1, 1}};
    for (int tries = 0; static_cast<int>(leaves.size()) < count && tries < 100 * count; ++tries) {
        Entry& l = leaves[rng() % leaves.size()];
        if (l.length == max_length) continue;
        const int32_t code = static_cast<int32_t>(static_cast<uint32_t>(l.code) << 1), length = l.length + 1;
        l = {0, code, length};
        leaves.push_back({0, code | 1, length});
    }
    std::vector<Entry> book;
    for (Entry e : leaves) {
        if (!complete && book.size() > 1 && rng() % 4 == 0) continue;
        e.value = std::uniform_int_distribution<int32_t>(lo, hi)(rng);
        book.push_back(e);
    }
    std::shuffle(book.begin(), book.end(), rng);
    return book;
}

// Random books of four kinds by round: plain books of values up to 2^14 in
// magnitude and tuple books of 1..4 elements of 1..4 bits, each with
// complete codes every other time, and complete books of -16..16 (AAC
// escape) and -15..15 (MP3 escape, linbits 1..16).
inline Book random_book(std::mt19937& rng, int round) {
    const int longest = 1 + static_cast<int>(rng() % 32), count = 2 + static_cast<int>(rng() % 150);
    Book b{"random_" + std::to_string(round)};
    if (round % 4 == 1) {
        b.elements = 1 + static_cast<int>(rng() % 4), b.element_bits = 1 + static_cast<int>(rng() % 4);
        b.entries = random_code(rng, count, longest, round % 8 == 1, 0, (1 << (b.elements * b.element_bits)) - 1);
    } else if (round % 4 == 2) {
        b.escape = round % 8 == 2 ? 16 : 15, b.linbits = 1 + static_cast<int>(rng() % 16);
        b.entries = random_code(rng, 2 * b.escape + 1, 12 + round % 20, true, 0, 0);
        for (size_t i = 0; i < b.entries.size(); ++i) b.entries[i].value = static_cast<int32_t>(i) - b.escape;
    } else {
        const int32_t span = int32_t{1} << (rng() % 15);
        b.entries = random_code(rng, count, longest, round % 8 == 0, -span, span);
    }
    return b;
}

// Random sub-table widths that reach the book's longest code, some of width 1.
inline std::vector<int32_t> random_widths(std::mt19937& rng, const std::vector<Entry>& book) {
    int longest = 0;
    for (const Entry& e : book) longest = std::max(longest, static_cast<int>(e.length));
    std::vector<int32_t> widths;
    for (int sum = 0; sum < longest; sum += widths.back())
        widths.push_back(1 + static_cast<int32_t>(rng() % (rng() % 3 ? 5 : 12)));
    return widths;
}

// Objects made through code path `path` in buffers misaligned by `shift`:
// GetSize's status and size, then Init's status (Init runs when GetSize
// refuses too, into 128 bytes, and must refuse).
struct Decoder {
    std::vector<uint8_t> storage;
    nkpsVLCDecodeSpec_32s* spec = nullptr;
    nkp32s size = 0;
    nkpStatus sized, status;
    Decoder(const Book& b, const std::vector<int32_t>& w, size_t shift = 0, int path = 0) {
        const Entry* e = b.entries.data();
        const int n = static_cast<int>(b.entries.size()), nw = static_cast<int>(w.size()), k = b.elements;
        sized = k ? nkpt_nkpsVLCDecodeUTupleGetSize_32s[path](e, n, w.data(), nw, k, b.element_bits, &size)
                  : nkpt_nkpsVLCDecodeGetSize_32s[path](e, n, w.data(), nw, &size);
        storage.assign(static_cast<size_t>(sized ? 128 : size) + shift, 0xA5);
        spec = reinterpret_cast<nkpsVLCDecodeSpec_32s*>(storage.data() + shift);
        status = k ? nkpt_nkpsVLCDecodeUTupleInit_32s[path](e, n, w.data(), nw, k, b.element_bits, spec)
                   : nkpt_nkpsVLCDecodeInit_32s[path](e, n, w.data(), nw, spec);
    }
};

struct Encoder {
    std::vector<uint8_t> storage;
    nkpsVLCEncodeSpec_32s* spec;
    nkp32s size = 0;
    nkpStatus sized, status;
    Encoder(const std::vector<Entry>& book, size_t shift = 0, int path = 0) {
        sized = nkpt_nkpsVLCEncodeGetSize_32s[path](book.data(), static_cast<int>(book.size()), &size);
        storage.assign(static_cast<size_t>(sized ? 128 : size) + shift, 0x5A);
        spec = reinterpret_cast<nkpsVLCEncodeSpec_32s*>(storage.data() + shift);
        status = nkpt_nkpsVLCEncodeInit_32s[path](book.data(), static_cast<int>(book.size()), spec);
    }
};

enum class Form { Block, One, EscAac, EscMp3 };

// One decoding call through code path `path`: `count` values or tuples
// (One: one) into out.
inline nkpStatus decode_call(int path, bool tuple, Form f, nkp8u** p, int* off, nkp16s* out, int count, int linbits,
                             const nkpsVLCDecodeSpec_32s* spec) {
    if (tuple)
        return f == Form::EscAac   ? nkpt_nkpsVLCDecodeUTupleEscBlock_AAC_1u16s[path](p, off, out, count, spec)
               : f == Form::EscMp3 ? nkpt_nkpsVLCDecodeUTupleEscBlock_MP3_1u16s[path](p, off, linbits, out, count, spec)
               : f == Form::One    ? nkpt_nkpsVLCDecodeUTupleOne_1u16s[path](p, off, out, spec)
                                   : nkpt_nkpsVLCDecodeUTupleBlock_1u16s[path](p, off, out, count, spec);
    return f == Form::EscAac   ? nkpt_nkpsVLCDecodeEscBlock_AAC_1u16s[path](p, off, out, count, spec)
           : f == Form::EscMp3 ? nkpt_nkpsVLCDecodeEscBlock_MP3_1u16s[path](p, off, linbits, out, count, spec)
           : f == Form::One    ? nkpt_nkpsVLCDecodeOne_1u16s[path](p, off, out, spec)
                               : nkpt_nkpsVLCDecodeBlock_1u16s[path](p, off, out, count, spec);
}

// The n values of src written in form `f` (One: one call each) through code
// path `path`; or, given `bits`, their bit count.
inline nkpStatus encode_call(int path, Form f, const nkp16s* src, int n, int linbits, nkp8u** p, int* off,
                             const nkpsVLCEncodeSpec_32s* spec, nkp32s* bits = nullptr) {
    if (bits)
        return f == Form::EscAac   ? nkpt_nkpsVLCCountEscBits_AAC_16s32s[path](src, n, bits, spec)
               : f == Form::EscMp3 ? nkpt_nkpsVLCCountEscBits_MP3_16s32s[path](src, n, linbits, bits, spec)
                                   : nkpt_nkpsVLCCountBits_16s32s[path](src, n, bits, spec);
    nkpStatus s = nkpStatusOk;
    for (int i = 0; f == Form::One && i < n; ++i)
        s = std::min(s, nkpt_nkpsVLCEncodeOne_16s1u[path](src[i], p, off, spec));
    return f == Form::One      ? s
           : f == Form::EscAac ? nkpt_nkpsVLCEncodeEscBlock_AAC_16s1u[path](src, n, p, off, spec)
           : f == Form::EscMp3 ? nkpt_nkpsVLCEncodeEscBlock_MP3_16s1u[path](src, n, linbits, p, off, spec)
                               : nkpt_nkpsVLCEncodeBlock_16s1u[path](src, n, p, off, spec);
}

// One code of book b with what follows it in the stream order of b's escape
// form; `values` are the signed value (plain books) or elements. Tuples:
// the sign bits of the non-zero elements, then the AAC escapes of elements
// of 16; or per element its MP3 linbits and sign. Plain values: the escape.
// An AAC escape of magnitude m is N - 4 one bits, a 0 and m - 2^N in N bits.
inline void put_code(nkptest::BitWriter& w, const Book& b, const Entry& code, const std::vector<int>& values) {
    w.put(static_cast<uint32_t>(code.code), code.length);
    const bool mp3 = b.escape == 15 && b.linbits > 0;
    for (int v : values) {
        if (mp3 && std::abs(v) >= 15) w.put(static_cast<uint32_t>(std::abs(v) - 15), b.linbits);
        if (b.elements && v) w.put_bit(v < 0);
    }
    for (int v : values) {
        const int m = std::abs(v);
        if (b.escape != 16 || m < 16) continue;
        int n = 4;
        while (m >> (n + 1)) ++n;
        for (int i = 4; i < n; ++i) w.put_bit(1);
        w.put_bit(0).put(static_cast<uint32_t>(m - (1 << n)), n);
    }
}

}  // namespace vlctest
