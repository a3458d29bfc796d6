// Inputs that are not MPEG audio, which the demo decoder must refuse without
// crashing: a free-format header with nothing after it (the frame walker
// once took the rest of such a file as one frame and overran its buffer), a
// 44.1 kHz WAV file, and ffmpeg's AAC as ADTS and in MP4.
#pragma once

#include <cmath>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace nkptest {

struct NamedInput {
    std::string name;
    std::vector<uint8_t> bytes;
};

inline std::vector<uint8_t> file_bytes(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

inline std::vector<NamedInput> not_mpeg_inputs() {
    std::vector<NamedInput> in;
    std::vector<uint8_t> free_format = {0xFF, 0xFB, 0x00, 0xC0};
    free_format.resize(4 + 9000, 0);
    in.push_back({"free_format_header_then_zeros", free_format});

    // Two seconds of a 440 Hz sine, 16-bit mono at 44.1 kHz.
    const uint32_t samples = 2 * 44100, data = 2 * samples;
    std::vector<uint8_t> wav;
    auto put = [&](uint32_t v, int bytes) {
        for (int i = 0; i < bytes; ++i) wav.push_back(static_cast<uint8_t>(v >> (8 * i)));
    };
    for (char c : std::string("RIFF")) wav.push_back(static_cast<uint8_t>(c));
    put(36 + data, 4);
    for (char c : std::string("WAVEfmt ")) wav.push_back(static_cast<uint8_t>(c));
    put(16, 4), put(1, 2), put(1, 2), put(44100, 4), put(88200, 4), put(2, 2), put(16, 2);
    for (char c : std::string("data")) wav.push_back(static_cast<uint8_t>(c));
    put(data, 4);
    for (uint32_t i = 0; i < samples; ++i)
        put(static_cast<uint16_t>(static_cast<int16_t>(std::lround(16000 * std::sin(2 * 3.14159265358979 * 440 * i / 44100)))), 2);
    in.push_back({"wav_44k", wav});

    for (const char* name : {"sine_440_2s.aac", "sine_440_2s.m4a"})
        in.push_back({name, file_bytes(std::string(NKPAC_TEST_DATA_DIR) + "/" + name)});
    return in;
}

}  // namespace nkptest
