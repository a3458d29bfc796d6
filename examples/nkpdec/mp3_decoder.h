// nkpdec's decoding loop: finds the Layer III frames of a whole MP3 stream
// held in memory (free format included), keeps the main-data bit reservoir
// and decodes every frame to 16-bit PCM through nkpac's public functions.
// Library-free apart from nkpac.h, so that tests can drive it directly.
#pragma once

#include "nkpac.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace nkpdec {

// One frame header as the sync search sees it.
struct FrameInfo {
    int version = 0;      // 1 MPEG-1, 2 MPEG-2, 25 MPEG-2.5
    int layer = 0;        // 1, 2 or 3
    int sample_rate = 0;  // Hz
    int channels = 0;     // 1 or 2
    int bitrate_kbps = 0; // 0 for free format
    int bytes = 0;        // whole frame, header included
    int samples = 0;      // per channel: 1152 (MPEG-1) or 576
};

// What the stream holds, from a scan of its headers.
struct StreamInfo {
    int frames = 0;        // Layer III frames found
    int other_layers = 0;  // frames of layers I and II
    size_t other_layer_bytes = 0;  // the bytes they cover
    int sample_rate = 0;   // of the first frame
    int channels = 0;      // 2 when any frame is two-channel
    bool truncated = false;  // the last frame runs past the end of the data
};

// Receives each frame's PCM: `channels` interleaved channels (the frame's
// own count), `samples` per channel.
class PcmSink {
public:
    virtual ~PcmSink() = default;
    virtual void frame(const int16_t* pcm, int samples, int channels, int sample_rate) = 0;
};

struct Report {
    int frames = 0;        // frames decoded and delivered
    int concealed = 0;     // of those, frames (or granules) replaced by silence
    std::vector<std::string> warnings;
};

// The MPEG-2.5 band tables nkpdec passes to the Sfb functions (6 rows,
// id * 3 + samplingFreqIndex, of 23 long and 14 short boundaries).
const nkp16s* mpeg25_long_bands();
const nkp16s* mpeg25_short_bands();

class Decoder {
public:
    Decoder();
    ~Decoder();
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    // Scans the frame headers of data (nothing is decoded).
    static StreamInfo scan(const uint8_t* data, size_t size);

    // Decodes every Layer III frame of data in order. progress (if set) is
    // called now and then with the bytes consumed so far.
    Report decode(const uint8_t* data, size_t size, PcmSink& sink,
                  void (*progress)(size_t done, size_t total, void* user) = nullptr, void* user = nullptr);

    // Back to the start of a stream: empty reservoir, filter states cleared.
    void reset();

    // Test hook: called with each granule's 576 subband samples (after the
    // inverse MDCT, before the synthesis) and the channel.
    using SubbandTap = void (*)(int channel, const nkp32s* subband, void* user);
    void set_subband_tap(SubbandTap tap, void* user);

private:
    struct Impl;
    Impl* impl_;
};

}  // namespace nkpdec
