// The standard code books as VLC code books, read from the vendored text
// tables (tools/tables, format in its README), plus what the VLC tests and
// benchmarks share:
// objects built through either code path, random prefix codes and stream
// writing with sign bits and escapes.
#pragma once

#include "common/bit_writer.h"
#include "frame/exports.h"

#include <algorithm>
#include <cstdint>
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
    int elements = 0;      // tuple books: elements per code (0: a plain book)
    int element_bits = 0;  // tuple books: bits per element
    int escape = 0;        // the element that escapes: 16 (AAC book 11), 15 (MP3 with linbits), 0
    int linbits = 0;
};

// The data lines of a table file, split into words ('#' comments dropped).
inline std::vector<std::vector<std::string>> table_lines(const char* file) {
    std::ifstream in(std::string(NKPAC_TABLES_DIR) + "/" + file);
    if (!in.good()) {
        std::fprintf(stderr, "cannot read %s/%s\n", NKPAC_TABLES_DIR, file);
        std::abort();
    }
    std::vector<std::vector<std::string>> rows;
    std::string line;
    while (std::getline(in, line)) {
        line = line.substr(0, line.find('#'));
        std::istringstream words(line);
        std::vector<std::string> row;
        for (std::string w; words >> w;) row.push_back(w);
        if (!row.empty()) rows.push_back(row);
    }
    return rows;
}

inline Entry entry(int32_t value, const std::string& bits) {
    return {value, static_cast<int32_t>(std::stoul(bits, nullptr, 2)), static_cast<int32_t>(bits.size())};
}

// MP3 big-value table n as a tuple book of two 4-bit elements (x, y).
inline Book mp3_pairs(int n) {
    Book b{"mp3_" + std::to_string(n), {}, 2, 4, 0, 0};
    const auto rows = table_lines("mp3_huffman_pairs.txt");
    int codes_of = -1;  // tables 17..23 and 25..31 use the codes of 16 and 24
    for (const auto& r : rows)
        if (r[0] == "table" && std::stoi(r[1]) == n) {
            b.linbits = std::stoi(r[7]);
            codes_of = r[9] == "none" ? -1 : std::stoi(r[9]);
        }
    int table = -1;
    for (const auto& r : rows) {
        if (r[0] == "table")
            table = std::stoi(r[1]);
        else if (table == codes_of)
            b.entries.push_back(entry(std::stoi(r[0]) * 16 + std::stoi(r[1]), r[3]));
    }
    if (b.linbits) b.escape = 15;
    return b;
}

// MP3 count1 table 'A' or 'B' as a tuple book of four 1-bit elements.
inline Book mp3_quads(char t) {
    Book b{std::string("mp3_quad_") + t, {}, 4, 1, 0, 0};
    bool mine = false;
    for (const auto& r : table_lines("mp3_huffman_quads.txt")) {
        if (r[0] == "table") {
            mine = r[1][0] == t;
            continue;
        }
        if (mine)
            b.entries.push_back(
                entry(std::stoi(r[0]) * 8 + std::stoi(r[1]) * 4 + std::stoi(r[2]) * 2 + std::stoi(r[3]), r[5]));
    }
    return b;
}

// AAC spectral book n. Unsigned books become tuple books (elements of the
// bit length of lav); signed books, whose values carry their signs, become
// plain books of the code-word index.
inline Book aac_spectral(int n) {
    Book b{"aac_" + std::to_string(n), {}, 0, 0, n == 11 ? 16 : 0, 0};
    int book = 0;
    bool is_signed = false;
    for (const auto& r : table_lines("aac_spectral_codebooks.txt")) {
        if (r[0] == "book") {
            book = std::stoi(r[1]);
            if (book == n) {
                is_signed = r[5] == "signed";
                const int lav = std::stoi(r[7]);
                b.elements = is_signed ? 0 : std::stoi(r[3]);
                b.element_bits = 0;
                while ((lav >> b.element_bits) != 0) ++b.element_bits;
                if (is_signed) b.element_bits = 0;
            }
            continue;
        }
        if (book != n) continue;
        int32_t value = std::stoi(r[0]);
        if (!is_signed) {
            value = 0;
            for (size_t i = 3; i < r.size(); ++i) value = (value << b.element_bits) | std::stoi(r[i]);
        }
        b.entries.push_back(entry(value, r[2]));
    }
    return b;
}

// The AAC scale-factor book: plain values -60..60.
inline Book aac_scalefactor() {
    Book b{"aac_sf", {}, 0, 0, 0, 0};
    for (const auto& r : table_lines("aac_scalefactor_codebook.txt")) b.entries.push_back(entry(std::stoi(r[1]), r[3]));
    return b;
}

inline std::vector<Book> standard_books() {
    std::vector<Book> books;
    for (int n : {1, 2, 3, 5, 6, 7, 8, 9, 10, 11, 12, 13, 15, 16, 24}) books.push_back(mp3_pairs(n));
    books.push_back(mp3_quads('A'));
    books.push_back(mp3_quads('B'));
    for (int n = 1; n <= 11; ++n) books.push_back(aac_spectral(n));
    books.push_back(aac_scalefactor());
    return books;
}

// A random prefix code of `count` codes no longer than max_length: random
// leaves of a binary tree are split until there are enough. `complete` keeps
// every leaf (Kraft sum 1); otherwise about a quarter of them are dropped.
inline std::vector<Entry> random_code(std::mt19937& rng, int count, int max_length, bool complete, int32_t lo,
                                      int32_t hi) {
    struct Leaf {
        uint32_t code;
        int length;
    };
    std::vector<Leaf> leaves{{0, 1}, {1, 1}};
    while (static_cast<int>(leaves.size()) < count) {
        std::vector<size_t> splittable;
        for (size_t i = 0; i < leaves.size(); ++i)
            if (leaves[i].length < max_length) splittable.push_back(i);
        if (splittable.empty()) break;
        Leaf& l = leaves[splittable[rng() % splittable.size()]];
        const Leaf parent = l;
        l = {parent.code << 1, parent.length + 1};
        leaves.push_back({(parent.code << 1) | 1, parent.length + 1});
    }
    std::vector<Entry> book;
    std::uniform_int_distribution<int32_t> value(lo, hi);
    for (const Leaf& l : leaves) {
        if (!complete && book.size() > 1 && rng() % 4 == 0) continue;
        book.push_back({value(rng), static_cast<int32_t>(l.code), l.length});
    }
    std::shuffle(book.begin(), book.end(), rng);
    return book;
}

// An object built through code path `path`, in a buffer misaligned by
// `shift` bytes.
struct Decoder {
    std::vector<uint8_t> storage;
    nkpsVLCDecodeSpec_32s* spec = nullptr;
    nkpStatus status = nkpStatusOk;

    Decoder(const Book& b, const std::vector<int32_t>& widths, int path, size_t shift = 0) {
        nkp32s size = 0;
        const Entry* e = b.entries.data();
        const int n = static_cast<int>(b.entries.size()), nw = static_cast<int>(widths.size());
        status = b.elements ? nkpt_nkpsVLCDecodeUTupleGetSize_32s[path](e, n, widths.data(), nw, b.elements,
                                                                        b.element_bits, &size)
                            : nkpt_nkpsVLCDecodeGetSize_32s[path](e, n, widths.data(), nw, &size);
        if (status != nkpStatusOk) return;
        storage.assign(static_cast<size_t>(size) + shift, 0xA5);
        spec = reinterpret_cast<nkpsVLCDecodeSpec_32s*>(storage.data() + shift);
        status = b.elements ? nkpt_nkpsVLCDecodeUTupleInit_32s[path](e, n, widths.data(), nw, b.elements,
                                                                     b.element_bits, spec)
                            : nkpt_nkpsVLCDecodeInit_32s[path](e, n, widths.data(), nw, spec);
    }
};

struct Encoder {
    std::vector<uint8_t> storage;
    nkpsVLCEncodeSpec_32s* spec = nullptr;
    nkpStatus status = nkpStatusOk;

    Encoder(const std::vector<Entry>& book, int path, size_t shift = 0) {
        nkp32s size = 0;
        status = nkpt_nkpsVLCEncodeGetSize_32s[path](book.data(), static_cast<int>(book.size()), &size);
        if (status != nkpStatusOk) return;
        storage.assign(static_cast<size_t>(size) + shift, 0x5A);
        spec = reinterpret_cast<nkpsVLCEncodeSpec_32s*>(storage.data() + shift);
        status = nkpt_nkpsVLCEncodeInit_32s[path](book.data(), static_cast<int>(book.size()), spec);
    }
};

// The elements of a tuple value, first element first.
inline std::vector<int> elements_of(const Book& b, int32_t value) {
    std::vector<int> out(b.elements);
    for (int i = 0; i < b.elements; ++i)
        out[i] = (value >> (b.element_bits * (b.elements - 1 - i))) & ((1 << b.element_bits) - 1);
    return out;
}

// Writes the AAC escape sequence of magnitude m (16..8191).
inline void put_aac_escape(nkptest::BitWriter& w, int m) {
    int n = 4;
    while ((m >> (n + 1)) != 0) ++n;
    for (int i = 4; i < n; ++i) w.put_bit(1);
    w.put_bit(0);
    w.put(static_cast<uint32_t>(m - (1 << n)), n);
}

// Writes one tuple of book b in the stream order of its escape form: the
// code, then (AAC) all sign bits and the escapes, or (MP3) per element the
// linbits and the sign. `values` are the signed elements; escaped magnitudes
// (>= b.escape) are coded as the escape element.
inline void put_tuple(nkptest::BitWriter& w, const Book& b, const Entry& code, const std::vector<int>& values) {
    w.put(static_cast<uint32_t>(code.code), code.length);
    if (b.escape == 15 && b.linbits) {
        for (int v : values) {
            const int m = std::abs(v);
            if (m >= 15) w.put(static_cast<uint32_t>(m - 15), b.linbits);
            if (m) w.put_bit(v < 0);
        }
        return;
    }
    for (int v : values)
        if (v) w.put_bit(v < 0);
    if (b.escape == 16)
        for (int v : values)
            if (std::abs(v) >= 16) put_aac_escape(w, std::abs(v));
}

}  // namespace vlctest
