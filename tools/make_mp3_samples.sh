#!/usr/bin/env bash
# Makes the small MP3 samples under tests/data/ with ffmpeg (deterministic
# test signals from its lavfi sources) and lame (Debian packages ffmpeg and
# lame), and two AAC files that the demo decoder must refuse as not MPEG
# audio. Re-running it rebuilds the same files.
#   tools/make_mp3_samples.sh [OUTPUT_DIR]
set -euo pipefail

out=${1:-$(cd "$(dirname "$0")/.." && pwd)/tests/data}
mkdir -p "$out"
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

# signal NAME RATE CHANNELS SECONDS EXPRESSION: a 16-bit WAV from aevalsrc
# (one expression per channel, '|'-separated).
signal() {
  ffmpeg -v error -y -f lavfi -i "aevalsrc=exprs='$5':s=$2:d=$4" -ac "$3" -c:a pcm_s16le "$tmp/$1.wav"
}

# Tones with a slow sweep and a little deterministic "noise" (a sum of
# detuned sines) so that all Huffman tables get used.
tone_l='0.35*sin(2*PI*440*t)+0.2*sin(2*PI*(1500+900*t)*t)+0.05*sin(2*PI*7321*t)*sin(2*PI*3*t)+0.03*sin(2*PI*11017*t)'
tone_r='0.3*sin(2*PI*554*t)+0.2*sin(2*PI*(2500-600*t)*t)+0.06*sin(2*PI*5123*t)*cos(2*PI*2*t)+0.03*sin(2*PI*9871*t)'
# Clicks every 0.15 s over a quiet tone: transients that force short blocks.
click='if(lt(mod(t,0.15),0.004),0.9*sin(2*PI*2900*t)*sin(2*PI*41*t+1),0.02*sin(2*PI*300*t))'
click_r='if(lt(mod(t+0.05,0.15),0.004),0.8*sin(2*PI*3700*t),0.02*sin(2*PI*250*t))'

encode() { # encode NAME WAV LAME-OPTIONS...
  local name=$1 wav=$2
  shift 2
  lame --quiet --nohist --noreplaygain "$@" "$tmp/$wav.wav" "$out/$name.mp3"
}

signal stereo44 44100 2 3 "$tone_l|$tone_r"
signal stereo48 48000 2 1 "$tone_l|$tone_r"
signal mono32 32000 1 1 "$tone_l"
signal stereo22 22050 2 1 "$tone_l|$tone_r"
signal stereo24 24000 2 1 "$tone_l|$tone_r"
signal mono16 16000 1 1 "$tone_l"
signal mono11 11025 1 1 "$tone_l"
signal stereo12 12000 2 1 "$tone_l|$tone_r"
signal mono8 8000 1 1 "$tone_l"
signal click44 44100 2 1 "$click|$click_r"
signal click24 24000 1 1 "$click"
signal click8 8000 1 1 "$click"

encode mpeg1_44k_stereo_128    stereo44 --resample 44.1 -b 128 -m s
encode mpeg1_48k_joint         stereo48 --resample 48 -b 112 -m j
encode mpeg1_32k_mono_crc      mono32   --resample 32 -b 64 -m m -p
encode mpeg1_44k_dual_crc      stereo44 --resample 44.1 -b 96 -m d -p
encode mpeg2_22k_joint_vbr     stereo22 --resample 22.05 -V 6 -m j
encode mpeg2_24k_stereo_crc    stereo24 --resample 24 -b 64 -m s -p
encode mpeg2_16k_mono          mono16   --resample 16 -b 32 -m m
encode mpeg25_11k_mono         mono11   --resample 11.025 -b 24 -m m
encode mpeg25_12k_joint_crc    stereo12 --resample 12 -b 32 -m j -p
encode mpeg25_8k_mono          mono8    --resample 8 -b 16 -m m
encode mpeg1_44k_joint_short   click44  --resample 44.1 -b 160 -m j
encode mpeg2_24k_mono_short    click24  --resample 24 -b 48 -m m
encode mpeg25_8k_mono_short    click8   --resample 8 -b 16 -m m -p

# Not MPEG audio: ffmpeg's AAC encoder, raw ADTS and in an MP4 container.
ffmpeg -v error -y -f lavfi -i sine=f=440:d=2 -c:a aac "$out/sine_440_2s.aac"
ffmpeg -v error -y -f lavfi -i sine=f=440:d=2 -c:a aac "$out/sine_440_2s.m4a"
