#!/bin/sh
# Instructions per symbol of the VLC benchmarks, counted by callgrind inside
# the measured function only: vlc_instructions.sh [BUILD_DIR]
set -eu
build=${1:-build}
bench=$build/bench/nkpac_vlc_bench
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT

# benchmark filter | function (callgrind name, path namespace included) | symbols per call
while IFS='|' read -r filter fn symbols; do
  valgrind --tool=callgrind --callgrind-out-file="$out/cg" --toggle-collect="$fn(*" \
    "$bench" --benchmark_filter="^$filter\$" --benchmark_min_time=0.01 >/dev/null 2>&1
  # The caller line of the function: "  IR (P%)  < caller (CALLSx)".
  callgrind_annotate --inclusive=yes --tree=caller "$out/cg" 2>/dev/null |
    awk -v fn="$fn(" -v f="$filter" -v s="$symbols" '
      /^ *[0-9,]+ .*< / { last = $0 }
      index($0, "*  ???:" fn) && last != "" {
        ir = last; sub(/^ */, "", ir); sub(/ .*/, "", ir); gsub(/,/, "", ir)
        calls = last; sub(/.*\(/, "", calls); sub(/x\).*/, "", calls)
        printf "%-36s %8.1f instructions per symbol\n", f, ir / calls / s; exit }'
done <<'LIST'
BM_AacBook11TupleEsc/0/8|nkp::nkpsVLCDecodeUTupleEscBlock_AAC_1u16s|512
BM_AacBook11TupleEsc/0/10|nkp::nkpsVLCDecodeUTupleEscBlock_AAC_1u16s|512
BM_Mp3Table24TupleEsc/0/8|nkp::nkpsVLCDecodeUTupleEscBlock_MP3_1u16s|288
BM_Mp3Table24TupleEsc/0/12|nkp::nkpsVLCDecodeUTupleEscBlock_MP3_1u16s|288
BM_Mp3Table24HuffmanDecodeMp3|nkp::nkpsHuffmanDecode_MP3_1u32s|288
BM_ScaleFactorDecodeBlock/0|nkp::ssse3::nkpsVLCDecodeBlock_1u16s|1024
BM_ScaleFactorDecodeBlock/1|nkp::lowpower::nkpsVLCDecodeBlock_1u16s|1024
BM_ScaleFactorEncodeBlock/0|nkp::ssse3::nkpsVLCEncodeBlock_16s1u|1024
BM_ScaleFactorCountBits/0|nkp::ssse3::nkpsVLCCountBits_16s32s|1024
BM_EscapeEncode/0|nkp::nkpsVLCEncodeEscBlock_AAC_16s1u|1024
BM_EscapeEncode/1|nkp::nkpsVLCEncodeEscBlock_MP3_16s1u|1024
BM_EscapeCountBits/0|nkp::nkpsVLCCountEscBits_AAC_16s32s|1024
BM_EscapeCountBits/1|nkp::nkpsVLCCountEscBits_MP3_16s32s|1024
LIST
