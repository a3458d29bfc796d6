#!/usr/bin/env bash
# Makes the small AAC samples under tests/data/aac/ with ffmpeg's native AAC
# encoder (Debian package ffmpeg) from deterministic test signals, plus two
# files rewritten from them by the Python below: one with data stream and
# fill elements inserted into every raw data block, and one ADIF file (ADIF
# header with its PCE, then the raw data blocks of an ADTS stream).
# Re-running it rebuilds the same files.
#   tools/make_aac_samples.sh [OUTPUT_DIR]
set -euo pipefail

out=${1:-$(cd "$(dirname "$0")/.." && pwd)/tests/data/aac}
mkdir -p "$out"
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

# signal NAME RATE CHANNELS SECONDS EXPRESSIONS: a 16-bit WAV from aevalsrc
# (one expression per channel, '|'-separated).
signal() {
  ffmpeg -v error -y -f lavfi -i "aevalsrc=exprs='$5':s=$2:d=$4" -ac "$3" -c:a pcm_s16le "$tmp/$1.wav"
}

# Tones with a slow sweep and a little deterministic noise (aevalsrc's
# seeded random()), so that high bands get noise substitution where it is on.
tone_l='0.3*sin(2*PI*440*t)+0.2*sin(2*PI*(1500+900*t)*t)+0.05*sin(2*PI*7321*t)*sin(2*PI*3*t)+0.04*(random(0)-0.5)'
tone_r='0.3*sin(2*PI*554*t)+0.2*sin(2*PI*(2500-600*t)*t)+0.06*sin(2*PI*5123*t)*cos(2*PI*2*t)+0.04*(random(1)-0.5)'
tone_c='0.25*sin(2*PI*330*t)+0.1*sin(2*PI*(800+300*t)*t)+0.03*(random(2)-0.5)'
bass='0.4*sin(2*PI*55*t)+0.2*sin(2*PI*90*t)'
# Loud tones over a very quiet noise floor: at a low rate the encoder codes
# noise bands with low energies between the scale-factor bands.
quiet='0.5*sin(2*PI*440*t)+0.3*sin(2*PI*(1500+900*t)*t)+0.0005*(random(0)-0.5)'
# Clicks every 0.15 s over a quiet tone: transients that force eight short windows.
click='if(lt(mod(t,0.15),0.004),0.9*sin(2*PI*2900*t)*sin(2*PI*41*t+1),0.02*sin(2*PI*300*t))'
click_r='if(lt(mod(t+0.05,0.15),0.004),0.8*sin(2*PI*3700*t),0.02*sin(2*PI*250*t))'

# encode NAME WAV FFMPEG-OPTIONS...: an ADTS stream.
encode() {
  local name=$1 wav=$2
  shift 2
  ffmpeg -v error -y -i "$tmp/$wav.wav" -c:a aac "$@" -f adts "$out/$name.aac"
}

signal m8 8000 1 2 "$tone_l"
signal s16 16000 2 2 "$tone_l|$tone_r"
signal m22 22050 1 2 "$tone_l"
signal s22 22050 2 2 "$tone_l|$tone_r"
signal s44 44100 2 3 "$tone_l|$tone_r"
signal m44 44100 1 2 "$tone_l"
signal n44 44100 1 2 "$quiet"
signal s48 48000 2 1 "$tone_l|$tone_r"
signal s96 96000 2 1 "$tone_l|$tone_r"
signal m7 7350 1 2 "$tone_l"
signal c44 44100 2 1 "$click|$click_r"
signal q44 44100 4 1 "$tone_l|$tone_r|$tone_c|$tone_r"
signal f48 48000 6 1 "$tone_l|$tone_r|$tone_c|$bass|$tone_r|$tone_l"

# Low complexity without noise substitution (the low-complexity decoder's
# streams), at each rate.
encode lc_8k_mono         m8  -b:a 16k -aac_pns 0
encode lc_16k_stereo      s16 -b:a 32k -aac_pns 0
encode lc_22k_mono        m22 -b:a 32k -aac_pns 0
encode lc_44k_stereo_128  s44 -b:a 128k -aac_pns 0
encode lc_48k_stereo      s48 -b:a 96k -aac_pns 0
encode lc_96k_stereo      s96 -b:a 160k -aac_pns 0
encode lc_7k_mono         m7  -b:a 12k -aac_pns 0
# The coding tools: noise substitution with TNS, and intensity with forced M/S.
encode pns_tns_44k_mono   m44 -b:a 48k -aac_pns 1 -aac_tns 1
encode pns_quiet_44k_mono n44 -b:a 24k -aac_pns 1
encode is_ms_44k_stereo   s44 -b:a 64k -aac_pns 0 -aac_is 1 -aac_ms 1
# Eight short windows from transients.
encode short_44k_stereo   c44 -b:a 96k -aac_pns 0
# Main profile with prediction, and the LTP object type (real LTP data only
# at low rates in stereo without M/S).
encode main_22k_stereo    s22 -b:a 48k -profile:a aac_main -aac_pred 1
encode ltp_22k_stereo     s22 -b:a 24k -profile:a aac_ltp -aac_ltp 1 -aac_ms 0 -strict -2
# 5.1 (channel configuration 6: SCE, CPE, CPE, LFE) and a layout that needs
# a program configuration element (quad: channel configuration 0).
encode surround_48k_5_1   f48 -b:a 192k -aac_pns 0 -channel_layout 5.1
encode pce_44k_quad       q44 -b:a 128k -aac_pns 0 -channel_layout quad

python3 - "$out" <<'PY'
import os, sys

out = sys.argv[1]


def adts_frames(data):
    pos = 0
    while pos + 7 <= len(data):
        assert data[pos] == 0xFF and data[pos + 1] & 0xF6 == 0xF0, "lost ADTS sync"
        length = ((data[pos + 3] & 3) << 11) | (data[pos + 4] << 3) | (data[pos + 5] >> 5)
        header = 7 if data[pos + 1] & 1 else 9
        assert (data[pos + 6] & 3) == 0, "one raw data block per frame"
        yield data[pos:pos + header], data[pos + header:pos + length]
        pos += length
    assert pos == len(data)


class Bits:
    def __init__(self):
        self.bits = []

    def put(self, value, n):
        self.bits += [(value >> (n - 1 - i)) & 1 for i in range(n)]

    def align(self):
        while len(self.bits) % 8:
            self.bits.append(0)

    def bytes(self):
        assert len(self.bits) % 8 == 0
        return bytes(int("".join(map(str, self.bits[i:i + 8])), 2) for i in range(0, len(self.bits), 8))


# Data stream and fill elements in front of every raw data block: a fill
# element (7 + 8n bits) followed by an aligned data stream element, which
# together end on a byte boundary, so the rest of the block stays as it was.
def with_elements(path, dest):
    frames = []
    for i, (header, block) in enumerate(adts_frames(open(path, "rb").read())):
        b = Bits()
        fill = (i * 37) % 300  # counts 0..269 with and without the escape
        fill = fill if fill < 270 else i % 15
        b.put(6, 3)  # ID_FIL
        if fill < 15:
            b.put(fill, 4)
        else:
            b.put(15, 4)
            b.put(fill - 14, 8)
        for k in range(fill):  # an EXT_FILL payload: type nibble 0 first
            b.put((k * 7 + i) & (15 if k == 0 else 255), 8)
        dse = (i * 53) % 520  # counts 0..510, 255 and up with the escape
        dse = dse if dse <= 510 else 255
        b.put(4, 3)  # ID_DSE
        b.put(i & 15, 4)
        b.put(1, 1)  # data_byte_align_flag
        b.put(min(dse, 255), 8)
        if dse >= 255:
            b.put(dse - 255, 8)
        b.align()
        for k in range(dse):
            b.put((k * 13 + i) & 255, 8)
        # A second data stream element without alignment: 40 bits, so the
        # rest of the block still starts on a byte boundary.
        b.put(4, 3)
        b.put((i + 5) & 15, 4)
        b.put(0, 1)
        b.put(3, 8)
        for k in range(3):
            b.put(k + i, 8)
        block = b.bytes() + block
        length = len(header) + len(block)
        assert length < 8192
        h = bytearray(header)
        h[3] = (h[3] & 0xFC) | (length >> 11)
        h[4] = (length >> 3) & 0xFF
        h[5] = ((length & 7) << 5) | (h[5] & 0x1F)
        frames.append(bytes(h) + block)
    open(dest, "wb").write(b"".join(frames))


# An ADIF file from an ADTS stream: the header (copyright identifier,
# constant rate with a buffer fullness, one PCE with a comment), then the raw
# data blocks one after another.
def to_adif(path, dest):
    frames = list(adts_frames(open(path, "rb").read()))
    h = frames[0][0]
    profile, sfi, channels = h[2] >> 6, (h[2] >> 2) & 15, ((h[2] & 1) << 2) | (h[3] >> 6)
    assert channels == 2
    b = Bits()
    for c in b"ADIF":
        b.put(c, 8)
    b.put(1, 1)  # copyright_id_present
    for c in b"nkpac-tst":
        b.put(c, 8)
    b.put(0, 1)  # original_copy
    b.put(0, 1)  # home
    b.put(0, 1)  # bitstream_type: constant rate
    total = sum(len(blk) for _, blk in frames)
    b.put(total * 8 * 44100 // (1024 * len(frames)), 23)
    b.put(0, 4)  # num_program_config_elements - 1
    b.put(3000, 20)  # adif_buffer_fullness
    # program_config_element: one front CPE.
    b.put(0, 4)
    b.put(profile, 2)
    b.put(sfi, 4)
    b.put(1, 4)
    b.put(0, 4)
    b.put(0, 4)
    b.put(0, 2)
    b.put(0, 3)
    b.put(0, 4)
    b.put(0, 1)
    b.put(0, 1)
    b.put(0, 1)
    b.put(1, 1)  # front element is a CPE
    b.put(0, 4)  # with tag 0
    b.align()
    comment = b"nkpac ADIF sample"
    b.put(len(comment), 8)
    for c in comment:
        b.put(c, 8)
    open(dest, "wb").write(b.bytes() + b"".join(blk for _, blk in frames))


with_elements(os.path.join(out, "lc_16k_stereo.aac"), os.path.join(out, "elements_16k_stereo.aac"))
to_adif(os.path.join(out, "lc_44k_stereo_128.aac"), os.path.join(out, "adif_44k_stereo.adif"))
PY
