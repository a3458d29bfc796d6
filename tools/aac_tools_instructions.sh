#!/bin/sh
# Instructions per call of each AAC spectral tool: runs the tools benchmark
# under callgrind with collection off, so that only the 100 calls each
# benchmark counts between its toggles are collected, and prints each dump's
# total divided by 100.
#   tools/aac_tools_instructions.sh [build directory, default build]
set -eu
build=${1:-build}
out=$(mktemp -d)
valgrind --tool=callgrind --collect-atstart=no --callgrind-out-file="$out/cg.%p" \
  "$build/bench/nkpac_aac_tools_bench" --benchmark_min_time=0.001 > /dev/null 2>&1
for f in "$out"/cg.*.*; do
  name=$(sed -n 's/^desc: Trigger: Client Request: //p' "$f")
  total=$(sed -n 's/^totals: *//p' "$f" | cut -d' ' -f1)
  [ -n "$name" ] && echo "$name $((total / 100))"
done | sort
rm -rf "$out"
