// A plain AAC bit-stream parser for the tests and benchmarks, written from
// the standard's syntax tables (ISO/IEC 13818-7, ISO/IEC 14496-3) and not
// from the library: it reads one bit at a time and matches Huffman codes
// against the text code books of tools/tables, and walks raw data blocks
// element by element, recording where each element and channel stream
// starts and ends and what it holds.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace aacref {

inline std::vector<uint8_t> read_file(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

// ---- tables ----------------------------------------------------------------

struct Book {
    int dim = 0;
    bool is_unsigned = false;
    std::map<std::pair<int, uint32_t>, std::vector<int>> codes;  // (length, code) -> tuple
};

struct Tables {
    Book books[12];
    std::map<std::pair<int, uint32_t>, int> scale_factor;  // (length, code) -> index
    std::vector<int> swb_long[13], swb_short[13];          // index 12 takes the 8 kHz rows
    bool loaded = false;
};

inline std::vector<std::vector<std::string>> records(const std::string& path) {
    std::vector<std::vector<std::string>> out;
    std::ifstream f(path);
    std::string line;
    while (std::getline(f, line)) {
        line = line.substr(0, line.find('#'));
        std::istringstream in(line);
        std::vector<std::string> fields;
        std::string s;
        while (in >> s) fields.push_back(s);
        if (!fields.empty()) out.push_back(fields);
    }
    return out;
}

inline uint32_t code_bits(const std::string& s) {
    uint32_t v = 0;
    for (char c : s) v = v * 2 + (c == '1');
    return v;
}

inline Tables load_tables(const std::string& dir) {
    Tables t;
    int book = -1;
    for (const auto& r : records(dir + "/aac_spectral_codebooks.txt")) {
        if (r[0] == "book") {
            book = std::stoi(r[1]);
            t.books[book].dim = std::stoi(r[3]);
            t.books[book].is_unsigned = r[5] == "unsigned";
            continue;
        }
        std::vector<int> values;
        for (size_t i = 3; i < r.size(); ++i) values.push_back(std::stoi(r[i]));
        t.books[book].codes[{std::stoi(r[1]), code_bits(r[2])}] = values;
    }
    for (const auto& r : records(dir + "/aac_scalefactor_codebook.txt"))
        t.scale_factor[{std::stoi(r[2]), code_bits(r[3])}] = std::stoi(r[0]);
    for (const auto& r : records(dir + "/aac_swb_offsets.txt")) {
        std::vector<int> offsets;
        for (size_t i = 4; i < r.size(); ++i) offsets.push_back(std::stoi(r[i]));
        (r[0] == "long" ? t.swb_long : t.swb_short)[std::stoi(r[1])] = offsets;
    }
    t.swb_long[12] = t.swb_long[11];
    t.swb_short[12] = t.swb_short[11];
    t.loaded = t.books[11].codes.size() == 289 && t.scale_factor.size() == 121 && !t.swb_long[0].empty();
    return t;
}

inline const Tables& tables() {
    static const Tables t = load_tables(NKPAC_TEST_DATA_DIR "/../../tools/tables");
    return t;
}

// The prediction band limit of the Main profile (PRED_SFB_MAX) per
// sampling-frequency index.
inline int pred_sfb_max(int sfi) {
    static const int limit[13] = {33, 33, 38, 40, 40, 40, 41, 41, 37, 37, 37, 34, 34};
    return limit[sfi];
}

// ---- bits --------------------------------------------------------------------

struct Bits {
    const uint8_t* data;
    size_t size;
    int64_t pos = 0;  // in bits from data
    bool overrun = false;

    int bit() {
        if ((pos >> 3) >= static_cast<int64_t>(size)) {
            overrun = true;
            ++pos;
            return 0;
        }
        const int b = (data[pos >> 3] >> (7 - (pos & 7))) & 1;
        ++pos;
        return b;
    }
    int bits(int n) {
        int v = 0;
        for (int i = 0; i < n; ++i) v = v * 2 + bit();
        return v;
    }
    void align() { pos = (pos + 7) & ~int64_t{7}; }
    template <class Map>
    typename Map::mapped_type code(const Map& codes) {
        uint32_t v = 0;
        for (int length = 1; length <= 20; ++length) {
            v = v * 2 + static_cast<uint32_t>(bit());
            const auto it = codes.find({length, v});
            if (it != codes.end()) return it->second;
        }
        overrun = true;
        return typename Map::mapped_type{};
    }
};

// ---- syntax ------------------------------------------------------------------

enum ElementId { kSce = 0, kCpe = 1, kCce = 2, kLfe = 3, kDse = 4, kPce = 5, kFil = 6, kEnd = 7 };

struct Ltp {
    bool present = false;
    int lag = 0, coef = 0;
    int long_used[40] = {};
};

struct IcsInfo {
    int reserved = 0, window_sequence = 0, window_shape = 0, max_sfb = 0, grouping = 0;
    bool predictor = false;
    int reset = 0, reset_group = 0;
    int prediction_used[64] = {};
    int num_groups = 1;
    int group_length[8] = {1};
    Ltp ltp[2];
    bool short_windows() const { return window_sequence == 2; }
};

struct Tns {
    bool present = false;
    std::vector<int> n_filt, coef_res, length, order, direction, coef;
};

// One individual channel stream, decoded. Values per band are group-major
// with max_sfb bands per group, as the library stores them.
struct Channel {
    int64_t start = 0, end = 0;  // bits: at global_gain, after the spectral data
    int global_gain = 0;
    IcsInfo ics;
    std::vector<int> band_cb;
    std::vector<int> sect_cb, sect_end, num_sec;
    std::vector<int> scale_factor;  // the coding standard's values (own noise accumulator)
    std::vector<int> shared;        // one accumulator for scale factors and noise energies
    std::vector<int64_t> sf_start;  // bit position where each band's scale-factor field starts
    std::vector<int64_t> sf_end;    // and where it ends
    int first_noise = -1;           // first band of code book 13
    int shared_out_of_range = -1;   // first band where the shared accumulator leaves 0..255
    bool pulse = false;
    int pulse_count = 0, pulse_start = 0, pulse_offset[4] = {}, pulse_amp[4] = {};
    Tns tns;
    bool gain_control = false;
    std::vector<int32_t> spectrum = std::vector<int32_t>(1024, 0);
    int escapes = 0;
    bool ok = true;
};

struct Element {
    int id = kEnd, tag = 0;
    int64_t start = 0, end = 0;  // bits: after the identifier, after the element
    // CPE
    bool common_window = false;
    int64_t header_end = 0;
    IcsInfo ics;
    int ms_mask_present = 0;
    int ms_used[8][64] = {};
    std::vector<Channel> channels;
    // DSE and FIL
    int count = 0;
    std::vector<uint8_t> bytes;
    bool align = false;
    // PCE
    std::vector<int> pce;  // all fields in stream order
    std::vector<uint8_t> comment;
};

struct Stream {
    int object_type = 2;  // 1 Main, 2 LC, 4 LTP
    int sfi = 4;
};

inline void make_groups(IcsInfo& ics) {
    ics.num_groups = 1;
    for (int g = 0; g < 8; ++g) ics.group_length[g] = 0;
    ics.group_length[0] = 1;
    if (!ics.short_windows()) return;
    for (int w = 1; w < 8; ++w) {
        if ((ics.grouping >> (6 - (w - 1))) & 1)
            ++ics.group_length[ics.num_groups - 1];
        else
            ics.group_length[ics.num_groups++] = 1;
    }
}

inline void ltp_data(Bits& b, Ltp& ltp, const IcsInfo& ics) {
    ltp.lag = b.bits(11);
    ltp.coef = b.bits(3);
    for (int sfb = 0; sfb < std::min(ics.max_sfb, 40); ++sfb) ltp.long_used[sfb] = b.bit();
}

inline void ics_info(Bits& b, IcsInfo& ics, const Stream& s, bool common_window) {
    ics.reserved = b.bit();
    ics.window_sequence = b.bits(2);
    ics.window_shape = b.bit();
    if (ics.short_windows()) {
        ics.max_sfb = b.bits(4);
        ics.grouping = b.bits(7);
    } else {
        ics.max_sfb = b.bits(6);
        ics.predictor = b.bit();
        if (ics.predictor) {
            if (s.object_type == 1) {
                ics.reset = b.bit();
                if (ics.reset) ics.reset_group = b.bits(5);
                for (int sfb = 0; sfb < std::min(ics.max_sfb, pred_sfb_max(s.sfi)); ++sfb)
                    ics.prediction_used[sfb] = b.bit();
            } else {
                ics.ltp[0].present = b.bit();
                if (ics.ltp[0].present) ltp_data(b, ics.ltp[0], ics);
                if (common_window) {
                    ics.ltp[1].present = b.bit();
                    if (ics.ltp[1].present) ltp_data(b, ics.ltp[1], ics);
                }
            }
        }
    }
    make_groups(ics);
}

inline void tns_data(Bits& b, Tns& tns, const IcsInfo& ics) {
    const bool s = ics.short_windows();
    for (int w = 0; w < (s ? 8 : 1); ++w) {
        const int n = b.bits(s ? 1 : 2);
        tns.n_filt.push_back(n);
        if (!n) {
            tns.coef_res.push_back(-1);
            continue;
        }
        const int res = b.bit();
        tns.coef_res.push_back(res + 3);
        for (int f = 0; f < n; ++f) {
            tns.length.push_back(b.bits(s ? 4 : 6));
            const int order = b.bits(s ? 3 : 5);
            tns.order.push_back(order);
            if (!order) continue;
            tns.direction.push_back(b.bit());
            const int compress = b.bit();
            const int width = res + 3 - compress;
            for (int i = 0; i < order; ++i) {
                int v = b.bits(width);
                if (v >= (1 << (width - 1))) v -= 1 << width;
                tns.coef.push_back(v);
            }
        }
    }
}

// individual_channel_stream(common_window); `ics` holds the common window's
// information when there is one.
inline Channel channel_stream(Bits& b, const Stream& s, bool common_window, const IcsInfo* common) {
    const Tables& t = tables();
    Channel c;
    c.start = b.pos;
    c.global_gain = b.bits(8);
    if (common_window)
        c.ics = *common;
    else
        ics_info(b, c.ics, s, false);
    const IcsInfo& ics = c.ics;
    const bool sw = ics.short_windows();
    const int max_sfb = ics.max_sfb;
    const std::vector<int>& swb = sw ? t.swb_short[s.sfi] : t.swb_long[s.sfi];
    const int num_swb = static_cast<int>(swb.size()) - 1;
    if (max_sfb > num_swb) {
        c.ok = false;
        return c;
    }

    // section_data()
    c.band_cb.assign(ics.num_groups * max_sfb, 0);
    const int esc = sw ? 7 : 31, len_bits = sw ? 3 : 5;
    for (int g = 0; g < ics.num_groups; ++g) {
        int k = 0, i = 0;
        while (k < max_sfb) {
            const int cb = b.bits(4);
            int len = 0, incr;
            while ((incr = b.bits(len_bits)) == esc) len += esc;
            len += incr;
            if (len == 0 || k + len > max_sfb || b.overrun) {
                c.ok = false;
                return c;
            }
            for (int sfb = k; sfb < k + len; ++sfb) c.band_cb[g * max_sfb + sfb] = cb;
            k += len;
            c.sect_cb.push_back(cb);
            c.sect_end.push_back(k);
            ++i;
        }
        c.num_sec.push_back(i);
    }

    // scale_factor_data()
    int scale = c.global_gain, noise = c.global_gain - 90, position = 0, shared = c.global_gain;
    bool noise_pcm = true;
    for (int i = 0; i < ics.num_groups * max_sfb; ++i) {
        const int cb = c.band_cb[i];
        c.sf_start.push_back(b.pos);
        int value = 0, shared_value = 0;
        if (cb == 0) {
        } else if (cb == 14 || cb == 15) {
            position += b.code(t.scale_factor) - 60;
            value = shared_value = position;
        } else if (cb == 13) {
            if (c.first_noise < 0) c.first_noise = i;
            if (noise_pcm) {
                noise_pcm = false;
                noise += b.bits(9) - 256;
                shared = noise;  // the shared accumulator takes the first noise energy unchecked
            } else {
                const int d = b.code(t.scale_factor) - 60;
                noise += d;
                shared += d;
                if ((shared < 0 || shared > 255) && c.shared_out_of_range < 0) c.shared_out_of_range = i;
            }
            value = noise;
            shared_value = shared;
        } else if (cb == 12) {
            c.ok = false;
            return c;
        } else {
            const int d = b.code(t.scale_factor) - 60;
            scale += d;
            shared += d;
            if ((shared < 0 || shared > 255) && c.shared_out_of_range < 0) c.shared_out_of_range = i;
            value = scale;
            shared_value = shared;
        }
        c.sf_end.push_back(b.pos);
        c.scale_factor.push_back(value);
        c.shared.push_back(shared_value);
    }

    c.pulse = b.bit();
    if (c.pulse) {
        c.pulse_count = b.bits(2) + 1;
        c.pulse_start = b.bits(6);
        for (int i = 0; i < c.pulse_count; ++i) {
            c.pulse_offset[i] = b.bits(5);
            c.pulse_amp[i] = b.bits(4);
        }
    }
    c.tns.present = b.bit();
    if (c.tns.present) tns_data(b, c.tns, ics);
    c.gain_control = b.bit();
    if (c.gain_control) {
        c.ok = false;
        return c;
    }

    // spectral_data()
    int section = 0, group_start = 0;
    for (int g = 0; g < ics.num_groups; ++g) {
        const int glen = ics.group_length[g];
        int k = 0;
        for (int i = 0; i < c.num_sec[g]; ++i, ++section) {
            const int cb = c.sect_cb[section];
            const int end = swb[c.sect_end[section]] * glen;
            if (cb == 0 || cb >= 13) {
                k = end;
                continue;
            }
            const Book& book = t.books[cb];
            for (; k < end; k += book.dim) {
                std::vector<int> v = b.code(book.codes);
                if (v.empty()) {
                    c.ok = false;
                    return c;
                }
                if (book.is_unsigned)
                    for (int& x : v)
                        if (x && b.bit()) x = -x;
                if (cb == 11) {
                    for (int& x : v) {
                        if (std::abs(x) != 16) continue;
                        int n = 4;
                        while (b.bit()) ++n;
                        const int word = b.bits(n);
                        x = (x < 0 ? -1 : 1) * ((1 << n) + word);
                        ++c.escapes;
                    }
                }
                for (int j = 0; j < book.dim; ++j) c.spectrum[group_start + k + j] = v[j];
            }
        }
        group_start += glen * (sw ? 128 : 1024);
    }
    if (c.pulse) {
        int k = t.swb_long[s.sfi][c.pulse_start];
        for (int i = 0; i < c.pulse_count; ++i) {
            k += c.pulse_offset[i];
            c.spectrum[k] += c.spectrum[k] > 0 ? c.pulse_amp[i] : -c.pulse_amp[i];
        }
    }
    c.end = b.pos;
    c.ok = c.ok && !b.overrun;
    return c;
}

inline void pce_list(Bits& b, Element& e, int count, bool with_flag) {
    for (int i = 0; i < count; ++i) {
        if (with_flag) e.pce.push_back(b.bit());
        e.pce.push_back(b.bits(4));
    }
}

inline void program_config_element(Bits& b, Element& e) {
    int f[9];
    const int widths[9] = {4, 2, 4, 4, 4, 4, 2, 3, 4};
    for (int i = 0; i < 9; ++i) e.pce.push_back(f[i] = b.bits(widths[i]));
    for (int m = 0; m < 2; ++m) {
        const int present = b.bit();
        e.pce.push_back(present);
        if (present) e.pce.push_back(b.bits(4));
    }
    const int matrix = b.bit();
    e.pce.push_back(matrix);
    if (matrix) {
        e.pce.push_back(b.bits(2));
        e.pce.push_back(b.bit());
    }
    pce_list(b, e, f[3], true);
    pce_list(b, e, f[4], true);
    pce_list(b, e, f[5], true);
    pce_list(b, e, f[6], false);
    pce_list(b, e, f[7], false);
    pce_list(b, e, f[8], true);
    b.align();
    const int n = b.bits(8);
    for (int i = 0; i < n; ++i) e.comment.push_back(static_cast<uint8_t>(b.bits(8)));
}

// raw_data_block(): the elements up to and including END, then the block's
// byte alignment.
inline std::vector<Element> raw_data_block(Bits& b, const Stream& s, bool& ok) {
    std::vector<Element> out;
    ok = true;
    for (;;) {
        Element e;
        e.id = b.bits(3);
        e.start = b.pos;
        switch (e.id) {
            case kSce:
            case kLfe:
                e.tag = b.bits(4);
                e.channels.push_back(channel_stream(b, s, false, nullptr));
                ok = ok && e.channels.back().ok;
                break;
            case kCpe: {
                e.tag = b.bits(4);
                e.start = b.pos;
                e.common_window = b.bit();
                if (e.common_window) {
                    ics_info(b, e.ics, s, true);
                    e.ms_mask_present = b.bits(2);
                    if (e.ms_mask_present == 1)
                        for (int g = 0; g < e.ics.num_groups; ++g)
                            for (int sfb = 0; sfb < e.ics.max_sfb; ++sfb) e.ms_used[g][sfb] = b.bit();
                }
                e.header_end = b.pos;
                for (int ch = 0; ch < 2 && ok; ++ch) {
                    e.channels.push_back(channel_stream(b, s, e.common_window, &e.ics));
                    ok = ok && e.channels.back().ok;
                }
                break;
            }
            case kDse: {
                e.tag = b.bits(4);
                e.align = b.bit();
                e.count = b.bits(8);
                if (e.count == 255) e.count += b.bits(8);
                if (e.align) b.align();
                for (int i = 0; i < e.count; ++i) e.bytes.push_back(static_cast<uint8_t>(b.bits(8)));
                break;
            }
            case kPce:
                program_config_element(b, e);
                break;
            case kFil: {
                e.count = b.bits(4);
                if (e.count == 15) e.count += b.bits(8) - 1;
                for (int i = 0; i < e.count; ++i) e.bytes.push_back(static_cast<uint8_t>(b.bits(8)));
                break;
            }
            case kEnd:
                break;
            default:
                ok = false;  // coupling channels are not in the samples
                break;
        }
        e.end = b.pos;
        out.push_back(e);
        if (e.id == kEnd || !ok || b.overrun) break;
    }
    b.align();
    ok = ok && !b.overrun && out.back().id == kEnd;
    return out;
}

// ---- framing -----------------------------------------------------------------

struct Adts {
    int id, layer, protection_absent, profile, sfi, private_bit, channel_config, original, home, copyright_bit,
        copyright_start, frame_length, fullness, blocks, crc;
    size_t offset;  // of the header in the file
};

inline std::vector<Adts> adts_frames(const std::vector<uint8_t>& file) {
    std::vector<Adts> out;
    size_t pos = 0;
    while (pos + 7 <= file.size()) {
        Bits b{file.data() + pos, file.size() - pos};
        if (b.bits(12) != 0xFFF) break;
        Adts h{};
        h.offset = pos;
        h.id = b.bit();
        h.layer = b.bits(2);
        h.protection_absent = b.bit();
        h.profile = b.bits(2);
        h.sfi = b.bits(4);
        h.private_bit = b.bit();
        h.channel_config = b.bits(3);
        h.original = b.bit();
        h.home = b.bit();
        h.copyright_bit = b.bit();
        h.copyright_start = b.bit();
        h.frame_length = b.bits(13);
        h.fullness = b.bits(11);
        h.blocks = b.bits(2) + 1;
        h.crc = h.protection_absent ? -1 : b.bits(16);
        if (h.frame_length < 7 || pos + h.frame_length > file.size()) break;
        out.push_back(h);
        pos += h.frame_length;
    }
    return out;
}

}  // namespace aacref
