// nkpdec's decoding loop (see mp3_decoder.h).
#include "mp3_decoder.h"

#include <cstdio>
#include <cstring>

namespace nkpdec {
namespace {

// ---- Frame headers --------------------------------------------------------

const int kRates[3] = {44100, 48000, 32000};
// Bit rates in kbit/s by [MPEG-1 ? 0 : 1][layer - 1][index].
const int kKbps[2][3][15] = {
    {{0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448},
     {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},
     {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320}},
    {{0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256},
     {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},
     {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160}},
};

// MPEG-2.5 band tables in the layout of the Sfb functions: rows id * 3 +
// samplingFreqIndex, so rows 0..2 (11025, 12000, 8000 Hz); rows 3..5 repeat
// them and are never used for these streams.
const nkp16s kLong25[3][23] = {
    {0, 6, 12, 18, 24, 30, 36, 44, 54, 66, 80, 96, 116, 140, 168, 200, 238, 284, 336, 396, 464, 522, 576},
    {0, 6, 12, 18, 24, 30, 36, 44, 54, 66, 80, 96, 116, 140, 168, 200, 238, 284, 336, 396, 464, 522, 576},
    {0, 12, 24, 36, 48, 60, 72, 88, 108, 132, 160, 192, 232, 280, 336, 400, 476, 566, 568, 570, 572, 574, 576},
};
const nkp16s kShort25[3][14] = {
    {0, 4, 8, 12, 18, 26, 36, 48, 62, 80, 104, 134, 174, 192},
    {0, 4, 8, 12, 18, 26, 36, 48, 62, 80, 104, 134, 174, 192},
    {0, 8, 16, 24, 36, 52, 72, 96, 124, 160, 162, 164, 166, 192},
};

// Mixed blocks: long bands below line 36, then no further short steps, so
// that region 0 of a window-switched granule ends at line 36 (8 kHz: 3 long
// bands of 12 lines; 11.025 and 12 kHz: 6 of 6).
const nkp16s kMixed25[3][2] = {{6, 0}, {6, 0}, {3, 0}};

struct RawHeader {
    int version;  // 1, 2, 25
    int layer;    // 1..3
    int rate_index;
    int bitrate_index;
    int padding;
    int mode;
};

bool parse(const uint8_t* p, RawHeader* h) {
    if (p[0] != 0xFF || (p[1] & 0xE0) != 0xE0) return false;
    const int v = (p[1] >> 3) & 3, l = (p[1] >> 1) & 3;
    const int b = p[2] >> 4, s = (p[2] >> 2) & 3;
    if (v == 1 || l == 0 || b == 15 || s == 3) return false;
    h->version = v == 3 ? 1 : v == 2 ? 2 : 25;
    h->layer = 4 - l;
    h->rate_index = s;
    h->bitrate_index = b;
    h->padding = (p[2] >> 1) & 1;
    h->mode = p[3] >> 6;
    return true;
}

int sample_rate(const RawHeader& h) {
    return kRates[h.rate_index] / (h.version == 1 ? 1 : h.version == 2 ? 2 : 4);
}

int kbps(const RawHeader& h) { return kKbps[h.version == 1 ? 0 : 1][h.layer - 1][h.bitrate_index]; }

// Frame length from the bit rate (0 for free format).
int coded_length(const RawHeader& h) {
    const int br = kbps(h), sr = sample_rate(h);
    if (br == 0) return 0;
    if (h.layer == 1) return (12000 * br / sr + h.padding) * 4;
    if (h.layer == 3 && h.version != 1) return 72000 * br / sr + h.padding;
    return 144000 * br / sr + h.padding;
}

bool same_stream(const RawHeader& a, const RawHeader& b) {
    return a.version == b.version && a.layer == b.layer && a.rate_index == b.rate_index &&
           (a.bitrate_index == 0) == (b.bitrate_index == 0);
}

// The longest frame of any layer and rate (Layer II, MPEG-2.5, 8 kHz,
// 160 kbit/s, padded: 2881 bytes); free-format frames are held to it too.
constexpr int kMaxFrameBytes = 2882;

// How many headers after a first frame must follow at the right distances
// before the walker takes it for the start of a stream: random data (a WAV
// or AAC file given by mistake) holds pairs of look-alike headers now and
// then. A frame at the very start of the data needs one.
constexpr int kConfirmingFrames = 2;

// Walks the frames of a stream: sync search, free-format lengths, and a
// check that a first frame is followed by others of the same stream.
class FrameWalker {
public:
    FrameWalker(const uint8_t* data, size_t size) : data_(data), size_(size) { pos_ = first_ = skip_id3(); }

    // The next frame (at most kMaxFrameBytes long); false at the end. *junk
    // gets the bytes skipped before it.
    bool next(size_t* start, int* length, RawHeader* h, size_t* junk) {
        *junk = 0;
        while (pos_ + 4 <= size_) {
            RawHeader cur{};
            int len = 0;
            if (parse(data_ + pos_, &cur)) {
                len = coded_length(cur);
                if (len == 0) len = free_length(cur);
            }
            // A frame that does not belong to the locked stream must be
            // confirmed by the headers that follow it.
            const bool follows = len >= 4 && locked_ && same_stream(cur, lock_);
            if (len < 4 || (!follows && !confirmed(cur, len))) {
                ++pos_;
                ++*junk;
                continue;
            }
            locked_ = true;
            lock_ = cur;
            if (cur.bitrate_index == 0) free_base_ = len - cur.padding;
            *start = pos_;
            *length = len;
            *h = cur;
            pos_ += static_cast<size_t>(len);
            return true;
        }
        *junk += size_ - pos_ < 4 ? size_ - pos_ : 0;
        pos_ = size_;
        return false;
    }

private:
    size_t skip_id3() const {
        if (size_ >= 10 && std::memcmp(data_, "ID3", 3) == 0) {
            const size_t n = (static_cast<size_t>(data_[6] & 0x7F) << 21) | (static_cast<size_t>(data_[7] & 0x7F) << 14) |
                             (static_cast<size_t>(data_[8] & 0x7F) << 7) | (data_[9] & 0x7F);
            const size_t total = 10 + n + ((data_[5] & 0x10) ? 10 : 0);
            return total < size_ ? total : size_;
        }
        return 0;
    }

    // Free format: the distance to the next header of the same stream, or
    // the previous frame's length for the last frame; 0 when neither exists.
    int free_length(const RawHeader& h) const {
        const size_t limit = pos_ + kMaxFrameBytes < size_ ? pos_ + kMaxFrameBytes : size_;
        for (size_t q = pos_ + 21; q + 4 <= limit; ++q) {
            RawHeader n;
            if (parse(data_ + q, &n) && same_stream(h, n) && n.bitrate_index == 0 && n.mode == h.mode)
                return static_cast<int>(q - pos_);
        }
        return free_base_ > 0 ? free_base_ + h.padding : 0;
    }

    // The frame at pos_ is followed by kConfirmingFrames headers of its
    // stream (one at the start of the data), each where the one before
    // ends; the data may end after a whole frame, or inside one that was
    // itself confirmed. A frame alone at the start of the data that fills it
    // exactly is a stream too.
    bool confirmed(const RawHeader& first, int len) const {
        size_t p = pos_ + static_cast<size_t>(len);
        if (p == size_) return pos_ == first_;
        const int needed = pos_ == first_ ? 1 : kConfirmingFrames;
        for (int n = 0; n < needed; ++n) {
            if (p + 4 > size_) return n > 0;
            RawHeader next;
            if (!parse(data_ + p, &next) || !same_stream(first, next)) return false;
            const int next_len = next.bitrate_index == 0 ? len - first.padding + next.padding : coded_length(next);
            p += static_cast<size_t>(next_len);
            if (p >= size_) return true;
        }
        return true;
    }

    const uint8_t* data_;
    size_t size_;
    size_t pos_ = 0;
    size_t first_ = 0;  // where the frames may start (after an ID3v2 tag)
    bool locked_ = false;
    RawHeader lock_{};
    int free_base_ = 0;
};

// ---- Decoding -----------------------------------------------------------------

constexpr int kReservoirKeep = 4096;     // more than any main_data_begin reaches back
constexpr int kReservoirCap = 4 * 4096;  // room for the kept bytes plus frames
constexpr int kReadSlack = 2048;         // zeros after the data for the readers' look-ahead

}  // namespace

struct Decoder::Impl {
    alignas(16) nkp32s xr[2][576];
    alignas(16) nkp32s subband[576];
    alignas(16) nkp32s overlap[2][576];
    alignas(16) nkp16s pcm[2 * 1152];
    nkp8s sf[2][40];
    int prev_imdct[2] = {0, 0};
    // The synthesis states live in buffers of ours (Init, not InitAlloc), so
    // that reset() can clear them with Init again.
    std::vector<uint8_t> synth_buffer[2];
    nkpMP3SynthesisState* synth[2] = {nullptr, nullptr};
    uint8_t reservoir[kReservoirCap + kReadSlack];
    int reservoir_len = 0;
    SubbandTap tap = nullptr;
    void* tap_user = nullptr;
    nkp16s long25[6 * 23];
    nkp16s short25[6 * 14];
    nkp16s mixed25[6 * 2];

    Impl() {
        for (int r = 0; r < 6; ++r) {
            std::memcpy(long25 + 23 * r, kLong25[r % 3], sizeof(kLong25[0]));
            std::memcpy(short25 + 14 * r, kShort25[r % 3], sizeof(kShort25[0]));
            std::memcpy(mixed25 + 2 * r, kMixed25[r % 3], sizeof(kMixed25[0]));
        }
        int size = 0;
        nkpsSynthesisFilterGetSize_MP3_16s(&size);
        for (int c = 0; c < 2; ++c) {
            synth_buffer[c].assign(static_cast<size_t>(size), 0);
            synth[c] = reinterpret_cast<nkpMP3SynthesisState*>(synth_buffer[c].data());
        }
        reset();
    }

    void reset() {
        std::memset(overlap, 0, sizeof(overlap));
        std::memset(reservoir, 0, sizeof(reservoir));
        std::memset(sf, 0, sizeof(sf));
        prev_imdct[0] = prev_imdct[1] = 0;
        reservoir_len = 0;
        for (auto s : synth) nkpsSynthesisFilterInit_MP3_16s(s);
    }

    // Appends a frame's main data, keeping the reservoir's tail.
    void append(const uint8_t* p, int n) {
        if (n > kReservoirCap - kReservoirKeep) n = kReservoirCap - kReservoirKeep;
        if (reservoir_len + n > kReservoirCap) {
            std::memmove(reservoir, reservoir + reservoir_len - kReservoirKeep, kReservoirKeep);
            reservoir_len = kReservoirKeep;
        }
        std::memcpy(reservoir + reservoir_len, p, static_cast<size_t>(n));
        reservoir_len += n;
        std::memset(reservoir + reservoir_len, 0, kReadSlack);
    }

    // The hybrid filter bank and synthesis of one granule and channel.
    void output(int ch, int nz, int block_type, int mixed, int step, nkp16s* dst) {
        nkpsMDCTInv_MP3_32s(xr[ch], subband, overlap[ch], nz, &prev_imdct[ch], block_type, mixed);
        if (tap) tap(ch, subband, tap_user);
        nkpsSynthesisFilter_MP3_32s16s(subband, dst, step, synth[ch]);
    }

    // What the steps of one frame share.
    struct Frame {
        nkpMP3FrameHeader hdr{};
        nkpMP3SideInfo si[4]{};
        int scfsi[8] = {};
        int nch = 1, granules = 1;
        bool mpeg25 = false;
        bool conceal = false;  // the whole frame is replaced by silence
        int main_start = 0;    // where its main data begin in the reservoir
        long end_bits = 0;     // bits of main data from there on
        long bit = 0;          // the next granule's first bit
        Report* report = nullptr;
        int index = 0;

        void warn(const char* what) const {
            char msg[160];
            std::snprintf(msg, sizeof(msg), "frame %d: %s", index, what);
            report->warnings.emplace_back(msg);
        }
    };

    // Header and side information of a frame's bytes (with the readers'
    // slack behind them), its main data into the reservoir, then its granules.
    void decode_frame(const uint8_t* bytes, size_t avail, Frame& f) {
        nkp8u* p = const_cast<nkp8u*>(bytes);
        int main_begin = 0, private_bits = 0;
        nkpsUnpackFrameHeader_MP3(&p, &f.hdr);
        f.nch = f.hdr.mode == 3 ? 1 : 2;
        f.granules = f.hdr.id == 1 ? 2 : 1;
        if (nkpsUnpackSideInfo_MP3(&p, f.si, &main_begin, &private_bits, f.scfsi, &f.hdr) != nkpStatusOk) {
            f.warn("impossible side information; frame replaced by silence");
            f.conceal = true;
        }
        const int side_bytes = f.hdr.id == 1 ? (f.nch == 1 ? 17 : 32) : (f.nch == 1 ? 9 : 17);
        const int header_bytes = f.hdr.protectionBit == 0 ? 6 : 4;
        const int main_bytes = static_cast<int>(avail) - header_bytes - side_bytes;
        if (main_bytes < 0) {
            if (!f.conceal) f.warn("frame shorter than its side information; replaced by silence");
            f.conceal = true;
        }
        // The main data join the reservoir even when this frame cannot be
        // decoded: later frames may reach back into them.
        if (main_bytes >= 0) append(bytes + header_bytes + side_bytes, main_bytes);
        if (!f.conceal && main_begin > reservoir_len - main_bytes) {
            f.warn("main data begin before the first byte received (bit reservoir); frame replaced by silence");
            f.conceal = true;
        }
        f.main_start = f.conceal ? 0 : reservoir_len - main_bytes - main_begin;
        f.end_bits = f.conceal ? 0 : static_cast<long>(reservoir_len - f.main_start) * 8;
        for (int gr = 0; gr < f.granules; ++gr) decode_granule(f, gr);
        if (f.conceal) ++f.report->concealed;
    }

    // Each channel to its requantised spectrum, joint stereo, then each
    // channel through the filter banks into the frame's PCM.
    void decode_granule(Frame& f, int gr) {
        int nz[2] = {0, 0};
        bool good[2] = {false, false};
        for (int ch = 0; ch < f.nch; ++ch) good[ch] = decode_channel(f, gr, ch, &nz[ch]);
        if (f.nch == 2 && f.hdr.mode == 1 && good[0] && good[1]) {
            const nkpMP3SideInfo* pair = &f.si[gr * 2];
            if (f.mpeg25)
                nkpsJointStereoSfb_MP3_32s_I(&xr[0][0], nz, sf[1], pair, &f.hdr, long25, short25);
            else
                nkpsJointStereo_MP3_32s_I(&xr[0][0], nz, sf[1], pair, &f.hdr);
        }
        for (int ch = 0; ch < f.nch; ++ch) {
            const nkpMP3SideInfo& s = f.si[gr * f.nch + ch];
            const bool ok = good[ch];
            output(ch, ok ? nz[ch] : 0, ok ? s.blockType : 0, ok ? s.mixedBlock : 0, f.nch,
                   pcm + gr * 576 * f.nch + ch);
        }
    }

    // Scale factors, Huffman data and requantisation of one channel of a
    // granule into xr[ch]; false (and silence) when it cannot be decoded.
    bool decode_channel(Frame& f, int gr, int ch, int* nz) {
        nkpMP3SideInfo& s = f.si[gr * f.nch + ch];
        std::memset(xr[ch], 0, sizeof(xr[ch]));
        if (f.conceal) return false;
        const long start_bit = f.bit;
        f.bit += s.part23Length;
        auto conceal = [&](const char* why) {
            f.warn(why);
            ++f.report->concealed;
            std::memset(xr[ch], 0, sizeof(xr[ch]));
            *nz = 0;
            return false;
        };
        if (f.bit > f.end_bits) return conceal("granule data run past the frame's main data; granule replaced by silence");
        nkp8u* q = reservoir + f.main_start + start_bit / 8;
        int off = static_cast<int>(start_bit % 8);
        if (nkpsUnpackScaleFactors_MP3_1u8s(&q, &off, sf[ch], &s, f.scfsi + 4 * ch, &f.hdr, gr, ch) != nkpStatusOk)
            return conceal("bad scale-factor selection; granule replaced by silence");
        const long used = (q - (reservoir + f.main_start)) * 8L + off - start_bit;
        const int huff = static_cast<int>(s.part23Length - used);
        nkpStatus st;
        if (huff < 0) {
            st = nkpStatusDataError;
        } else if (f.mpeg25) {
            // Region 0 of window-switched granules depends on the MPEG-2.5
            // bands too (8 kHz bands are twice as wide).
            st = nkpsHuffmanDecodeSfbMbp_MP3_1u32s(&q, &off, xr[ch], nz, &s, &f.hdr, huff, long25, short25, mixed25);
        } else {
            st = nkpsHuffmanDecode_MP3_1u32s(&q, &off, xr[ch], nz, &s, &f.hdr, huff);
        }
        if (st == nkpStatusOk) {
            st = f.mpeg25 ? nkpsReQuantizeSfb_MP3_32s_I(xr[ch], nz, sf[ch], &s, &f.hdr, long25, short25)
                          : nkpsReQuantize_MP3_32s_I(xr[ch], nz, sf[ch], &s, &f.hdr);
        }
        if (st != nkpStatusOk)
            return conceal("undecodable granule (bad Huffman data or side information); replaced by silence");
        return true;
    }
};

const nkp16s* mpeg25_long_bands() { return &kLong25[0][0]; }
const nkp16s* mpeg25_short_bands() { return &kShort25[0][0]; }

Decoder::Decoder() : impl_(new Impl) {}
Decoder::~Decoder() { delete impl_; }
void Decoder::reset() { impl_->reset(); }
void Decoder::set_subband_tap(SubbandTap tap, void* user) {
    impl_->tap = tap;
    impl_->tap_user = user;
}

StreamInfo Decoder::scan(const uint8_t* data, size_t size) {
    StreamInfo info;
    FrameWalker walker(data, size);
    size_t start, junk;
    int len;
    RawHeader h;
    while (walker.next(&start, &len, &h, &junk)) {
        if (h.layer != 3) {
            ++info.other_layers;
            info.other_layer_bytes += static_cast<size_t>(len);
            continue;
        }
        if (info.frames++ == 0) info.sample_rate = sample_rate(h);
        const int ch = h.mode == 3 ? 1 : 2;
        if (ch > info.channels) info.channels = ch;
        if (start + static_cast<size_t>(len) > size) info.truncated = true;
    }
    return info;
}

Report Decoder::decode(const uint8_t* data, size_t size, PcmSink& sink,
                       void (*progress)(size_t done, size_t total, void* user), void* user) {
    Report report;
    Impl& d = *impl_;
    FrameWalker walker(data, size);
    size_t start, junk;
    int len;
    RawHeader h;
    int index = 0;
    // One frame's bytes with room for the readers' look-ahead.
    std::vector<uint8_t> bytes(kMaxFrameBytes + kReadSlack);
    while (walker.next(&start, &len, &h, &junk)) {
        if (junk > 0) {
            char msg[160];
            std::snprintf(msg, sizeof(msg), "skipped %zu bytes that are not frames of the stream", junk);
            report.warnings.emplace_back(msg);
        }
        if (h.layer != 3) continue;
        Impl::Frame f;
        f.report = &report;
        f.index = index;
        f.mpeg25 = h.version == 25;
        const size_t avail = size - start < static_cast<size_t>(len) ? size - start : static_cast<size_t>(len);
        if (avail < static_cast<size_t>(len)) f.warn("truncated: the stream ends inside this frame");
        std::memset(bytes.data(), 0, bytes.size());
        std::memcpy(bytes.data(), data + start, avail);
        d.decode_frame(bytes.data(), avail, f);
        sink.frame(d.pcm, 576 * f.granules, f.nch, sample_rate(h));
        ++report.frames;
        ++index;
        if (progress && (index & 63) == 0) progress(start + avail, size, user);
    }
    if (progress) progress(size, size, user);
    return report;
}

}  // namespace nkpdec
