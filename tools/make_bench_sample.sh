#!/usr/bin/env bash
# Makes tests/data/bench_60s_128k.mp3, the decoder benchmark's stream: 60 s of
# a deterministic music-like signal (chords with vibrato, a swept tone,
# pulses and a little noise, different per channel) encoded by lame at
# 128 kbit/s joint stereo, 44.1 kHz. Needs ffmpeg and lame (Debian packages).
#   tools/make_bench_sample.sh [OUTPUT.mp3]
set -euo pipefail

out=${1:-$(cd "$(dirname "$0")/.." && pwd)/tests/data/bench_60s_128k.mp3}
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

left='0.18*sin(2*PI*220*t+2*sin(2*PI*5*t))+0.12*sin(2*PI*277.2*t)+0.1*sin(2*PI*329.6*t)+0.08*sin(2*PI*(800+600*sin(2*PI*0.05*t))*t)+0.15*exp(-20*mod(t,0.5))*sin(2*PI*90*t)+0.03*(random(0)-0.5)'
right='0.16*sin(2*PI*246.9*t+2*sin(2*PI*4*t))+0.12*sin(2*PI*311.1*t)+0.1*sin(2*PI*370*t)+0.08*sin(2*PI*(1200+900*sin(2*PI*0.07*t))*t)+0.15*exp(-20*mod(t+0.25,0.5))*sin(2*PI*70*t)+0.03*(random(1)-0.5)'

ffmpeg -v error -y -f lavfi -i "aevalsrc=exprs='$left|$right':s=44100:d=60" -c:a pcm_s16le "$tmp/in.wav"
lame --quiet --nohist --noreplaygain -b 128 -m j "$tmp/in.wav" "$out"
