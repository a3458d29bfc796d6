// nkpdec INPUT OUTPUT.wav: decodes an MP3 (Layer III, MPEG-1, 2 or 2.5) to a
// 16-bit PCM WAV file with nkpac's decoder steps. A stream that mixes mono
// and stereo frames is written as stereo (mono frames on both channels);
// every frame is written, nothing is trimmed.
//
// Exit status: 0 decoded; 1 usage, unreadable input or unwritable output;
// 2 not MPEG audio layer III (nothing written); 3 truncated or damaged (what
// could be decoded is written, damaged parts as silence).
#include "mp3_decoder.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#if defined(_WIN32)
#include <io.h>
#define NKPDEC_ISATTY(fd) _isatty(fd)
#else
#include <unistd.h>
#define NKPDEC_ISATTY(fd) isatty(fd)
#endif

namespace {

// Exit codes.
enum { kOk = 0, kUsage = 1, kNoStream = 2, kDamaged = 3 };

void put_le(std::vector<uint8_t>& out, uint32_t v, int bytes) {
    for (int i = 0; i < bytes; ++i) out.push_back(static_cast<uint8_t>(v >> (8 * i)));
}

class WavWriter : public nkpdec::PcmSink {
public:
    WavWriter(std::FILE* f, int channels, int rate) : f_(f), channels_(channels), rate_(rate) { header(0); }

    void frame(const int16_t* pcm, int samples, int channels, int sample_rate) override {
        if (sample_rate != rate_) rate_changed_ = true;
        const uint16_t probe = 1;
        if (channels == channels_ && *reinterpret_cast<const uint8_t*>(&probe) == 1) {
            // Little-endian host, same layout: the samples go out as they are.
            const size_t n = static_cast<size_t>(samples) * channels;
            if (std::fwrite(pcm, sizeof(int16_t), n, f_) != n) failed_ = true;
            bytes_ += n * 2;
            return;
        }
        buf_.resize(static_cast<size_t>(samples) * channels_ * 2);
        uint8_t* o = buf_.data();
        for (int i = 0; i < samples; ++i) {
            for (int c = 0; c < channels_; ++c) {
                const int16_t v = pcm[i * channels + (c < channels ? c : 0)];
                *o++ = static_cast<uint8_t>(v & 0xFF);
                *o++ = static_cast<uint8_t>((v >> 8) & 0xFF);
            }
        }
        if (std::fwrite(buf_.data(), 1, buf_.size(), f_) != buf_.size()) failed_ = true;
        bytes_ += buf_.size();
    }

    // Fills in the sizes; false when writing failed.
    bool finish() {
        if (std::fseek(f_, 0, SEEK_SET) != 0) return false;
        header(bytes_);
        return !failed_ && std::fflush(f_) == 0;
    }
    bool rate_changed() const { return rate_changed_; }

private:
    void header(uint64_t data_bytes) {
        const uint32_t n = data_bytes > 0xFFFFFFDBu ? 0xFFFFFFDBu : static_cast<uint32_t>(data_bytes);
        std::vector<uint8_t> h;
        h.insert(h.end(), {'R', 'I', 'F', 'F'});
        put_le(h, 36 + n, 4);
        h.insert(h.end(), {'W', 'A', 'V', 'E', 'f', 'm', 't', ' '});
        put_le(h, 16, 4);
        put_le(h, 1, 2);  // PCM
        put_le(h, static_cast<uint32_t>(channels_), 2);
        put_le(h, static_cast<uint32_t>(rate_), 4);
        put_le(h, static_cast<uint32_t>(rate_ * channels_ * 2), 4);
        put_le(h, static_cast<uint32_t>(channels_ * 2), 2);
        put_le(h, 16, 2);
        h.insert(h.end(), {'d', 'a', 't', 'a'});
        put_le(h, n, 4);
        if (std::fwrite(h.data(), 1, h.size(), f_) != h.size()) failed_ = true;
    }

    std::FILE* f_;
    int channels_, rate_;
    uint64_t bytes_ = 0;
    bool failed_ = false, rate_changed_ = false;
    std::vector<uint8_t> buf_;
};

void show_progress(size_t done, size_t total, void*) {
    std::fprintf(stderr, "\rdecoding: %3d%%", total ? static_cast<int>(100.0 * done / total) : 100);
    std::fflush(stderr);
}

bool read_file(const char* path, std::vector<uint8_t>* out) {
    std::FILE* f = std::fopen(path, "rb");
    if (!f) return false;
    uint8_t chunk[65536];
    size_t n;
    while ((n = std::fread(chunk, 1, sizeof(chunk), f)) > 0) out->insert(out->end(), chunk, chunk + n);
    const bool ok = !std::ferror(f);
    std::fclose(f);
    return ok;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: nkpdec INPUT.mp3 OUTPUT.wav\n");
        return kUsage;
    }
    std::vector<uint8_t> data;
    if (!read_file(argv[1], &data)) {
        std::fprintf(stderr, "nkpdec: cannot read %s: %s\n", argv[1], std::strerror(errno));
        return kUsage;
    }
    const nkpdec::StreamInfo info = nkpdec::Decoder::scan(data.data(), data.size());
    if (info.frames == 0) {
        // Layer I or II only when their frames make up most of the file:
        // other data holds runs of look-alike headers now and then.
        if (info.other_layers > 0 && 2 * info.other_layer_bytes >= data.size())
            std::fprintf(stderr,
                         "nkpdec: %s is MPEG audio layer I or II (%d frames), not layer III (MP3); "
                         "nkpdec decodes layer III only\n",
                         argv[1], info.other_layers);
        else
            std::fprintf(stderr, "nkpdec: %s is not MPEG audio: no MP3 (MPEG audio layer III) frames found\n",
                         argv[1]);
        return kNoStream;
    }
    std::FILE* out = std::fopen(argv[2], "wb");
    if (!out) {
        std::fprintf(stderr, "nkpdec: cannot write %s: %s\n", argv[2], std::strerror(errno));
        return kUsage;
    }
    WavWriter wav(out, info.channels, info.sample_rate);
    nkpdec::Decoder decoder;
    const bool tty = NKPDEC_ISATTY(2) != 0;
    const nkpdec::Report report = decoder.decode(data.data(), data.size(), wav, tty ? show_progress : nullptr);
    if (tty) std::fprintf(stderr, "\n");
    const bool written = wav.finish();
    std::fclose(out);

    const size_t shown = report.warnings.size() < 20 ? report.warnings.size() : 20;
    for (size_t i = 0; i < shown; ++i) std::fprintf(stderr, "nkpdec: warning: %s\n", report.warnings[i].c_str());
    if (report.warnings.size() > shown)
        std::fprintf(stderr, "nkpdec: ... and %zu more warnings\n", report.warnings.size() - shown);
    if (wav.rate_changed())
        std::fprintf(stderr, "nkpdec: warning: the sampling rate changes inside the stream; written at %d Hz\n",
                     info.sample_rate);
    if (info.other_layers > 0)
        std::fprintf(stderr, "nkpdec: warning: %d frames of layers I/II skipped\n", info.other_layers);
    if (!written) {
        std::fprintf(stderr, "nkpdec: writing %s failed\n", argv[2]);
        return kUsage;
    }
    std::fprintf(stderr, "nkpdec: %d frames, %d Hz, %s -> %s\n", report.frames, info.sample_rate,
                 info.channels == 2 ? "stereo" : "mono", argv[2]);
    if (info.truncated) {
        std::fprintf(stderr, "nkpdec: error: %s is truncated (the last frame is incomplete)\n", argv[1]);
        return kDamaged;
    }
    if (report.concealed > 0) {
        std::fprintf(stderr, "nkpdec: error: %d damaged frames or granules were replaced by silence\n",
                     report.concealed);
        return kDamaged;
    }
    return kOk;
}
