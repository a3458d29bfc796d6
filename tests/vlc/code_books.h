// The standard code books as VLC code books, read from the vendored text
// tables (tools/tables, format in its README), and what the VLC tests and
// benchmarks share: objects built through either code path, random prefix
// codes, and tuples written with their sign and escape bits.
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
inline std::vector<Book> standard_books() {
    std::vector<Book> books;
    int shared = -1;  // MP3 tables 17..23 and 25..31 share the codes of 16 and 24
    for (const auto& r : table_rows("mp3_huffman_pairs.txt")) {
        if (r[0] == "table") {
            const int n = std::stoi(r[1]), lin = std::stoi(r[7]);
            shared = r[9] == "none" || r[9] != r[1] ? -1 : n;
            if (shared >= 0) books.push_back({"mp3_" + r[1], {}, 2, 4, lin ? 15 : 0, lin});
        } else if (shared >= 0) {
            books.back().entries.push_back(entry(std::stoi(r[0]) * 16 + std::stoi(r[1]), r[3]));
        }
    }
    for (const auto& r : table_rows("mp3_huffman_quads.txt")) {
        if (r[0] == "table")
            books.push_back({"mp3_quad_" + r[1], {}, 4, 1});
        else
            books.back().entries.push_back(entry(std::stoi(r[0]) * 8 + std::stoi(r[1]) * 4 + std::stoi(r[2]) * 2 +
                                                     std::stoi(r[3]),
                                                 r[5]));
    }
    for (const auto& r : table_rows("aac_spectral_codebooks.txt")) {
        if (r[0] == "book") {
            int bits = 0;
            while (std::stoi(r[7]) >> bits) ++bits;
            const bool is_signed = r[5] == "signed";
            books.push_back({"aac_" + r[1], {}, is_signed ? 0 : std::stoi(r[3]), is_signed ? 0 : bits,
                             r[1] == "11" ? 16 : 0});
            continue;
        }
        Book& b = books.back();
        int32_t value = b.elements ? 0 : std::stoi(r[0]);
        for (size_t i = 3; b.elements && i < r.size(); ++i) value = (value << b.element_bits) | std::stoi(r[i]);
        b.entries.push_back(entry(value, r[2]));
    }
    books.push_back({"aac_sf", {}});
    for (const auto& r : table_rows("aac_scalefactor_codebook.txt")) books.back().entries.push_back(entry(std::stoi(r[1]), r[3]));
    return books;
}

inline Book standard_book(const std::string& name) {
    for (Book& b : standard_books())
        if (b.name == name) return b;
    std::abort();
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

// Objects built through code path `path` in buffers misaligned by `shift`.
struct Decoder {
    std::vector<uint8_t> storage;
    nkpsVLCDecodeSpec_32s* spec = nullptr;
    nkpStatus status;
    Decoder(const Book& b, const std::vector<int32_t>& w, int path, size_t shift = 0) {
        const Entry* e = b.entries.data();
        const int n = static_cast<int>(b.entries.size()), nw = static_cast<int>(w.size()), k = b.elements;
        nkp32s size = 0;
        status = k ? nkpt_nkpsVLCDecodeUTupleGetSize_32s[path](e, n, w.data(), nw, k, b.element_bits, &size)
                   : nkpt_nkpsVLCDecodeGetSize_32s[path](e, n, w.data(), nw, &size);
        if (status != nkpStatusOk) return;
        storage.assign(static_cast<size_t>(size) + shift, 0xA5);
        spec = reinterpret_cast<nkpsVLCDecodeSpec_32s*>(storage.data() + shift);
        status = k ? nkpt_nkpsVLCDecodeUTupleInit_32s[path](e, n, w.data(), nw, k, b.element_bits, spec)
                   : nkpt_nkpsVLCDecodeInit_32s[path](e, n, w.data(), nw, spec);
    }
};

struct Encoder {
    std::vector<uint8_t> storage;
    nkpsVLCEncodeSpec_32s* spec;
    Encoder(const std::vector<Entry>& book, int path, size_t shift = 0) {
        nkp32s size = 0;
        nkpt_nkpsVLCEncodeGetSize_32s[path](book.data(), static_cast<int>(book.size()), &size);
        storage.assign(static_cast<size_t>(size) + shift, 0x5A);
        spec = reinterpret_cast<nkpsVLCEncodeSpec_32s*>(storage.data() + shift);
        nkpt_nkpsVLCEncodeInit_32s[path](book.data(), static_cast<int>(book.size()), spec);
    }
};

// The elements of a tuple value, first element first.
inline std::vector<int> elements_of(const Book& b, int32_t value) {
    std::vector<int> out(static_cast<size_t>(b.elements));
    for (int i = 0; i < b.elements; ++i)
        out[i] = (value >> (b.element_bits * (b.elements - 1 - i))) & ((1 << b.element_bits) - 1);
    return out;
}

// The AAC escape sequence of magnitude m (16..8191).
inline void put_aac_escape(nkptest::BitWriter& w, int m) {
    int n = 4;
    while (m >> (n + 1)) ++n;
    for (int i = 4; i < n; ++i) w.put_bit(1);
    w.put_bit(0).put(static_cast<uint32_t>(m - (1 << n)), n);
}

// One code of book b with what follows it in the stream order of b's escape
// form; `values` are the signed value (plain books) or elements. Tuples:
// the sign bits of the non-zero elements, then the AAC escapes of elements
// of 16; or per element its MP3 linbits and sign. Plain values: the escape.
inline void put_code(nkptest::BitWriter& w, const Book& b, const Entry& code, const std::vector<int>& values) {
    w.put(static_cast<uint32_t>(code.code), code.length);
    const bool mp3 = b.escape == 15 && b.linbits > 0;
    for (int v : values) {
        if (mp3 && std::abs(v) >= 15) w.put(static_cast<uint32_t>(std::abs(v) - 15), b.linbits);
        if (b.elements && v) w.put_bit(v < 0);
    }
    for (int v : values)
        if (b.escape == 16 && std::abs(v) >= 16) put_aac_escape(w, std::abs(v));
}

}  // namespace vlctest
