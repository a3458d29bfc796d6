#!/bin/sh
# Installs the build into a scratch prefix and builds a tiny consumer twice:
# once through find_package(nkpac), once through pkg-config.
set -eu
build=$1
src=$2
work=$3
rm -rf "$work"
mkdir -p "$work"
cmake --install "$build" --prefix "$work/prefix" > "$work/install.log"

cmake -S "$src/consumer" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$work/prefix" > "$work/cmake.log"
cmake --build "$work/cmake" > "$work/cmake-build.log"
LD_LIBRARY_PATH="$work/prefix/lib:$work/prefix/lib64:${LD_LIBRARY_PATH:-}" "$work/cmake/consumer"

libdir=$(ls -d "$work"/prefix/lib*/pkgconfig | head -n 1)
flags=$(PKG_CONFIG_PATH="$libdir" pkg-config --cflags --libs nkpac)
cc -std=c99 -Wall -Werror -o "$work/consumer-pc" "$src/consumer/consumer.c" $flags
LD_LIBRARY_PATH="$work/prefix/lib:$work/prefix/lib64:${LD_LIBRARY_PATH:-}" "$work/consumer-pc"
