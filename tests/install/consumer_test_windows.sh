#!/bin/sh
# Windows counterpart of consumer_test.sh: installs the cross-build into a
# scratch prefix and builds the consumer twice with the same toolchain, once
# through find_package(nkpac) and once from the pkg-config flags, linking the
# import libraries; each program runs under Wine with only the installed DLLs
# beside it.
# usage: consumer_test_windows.sh BUILD SRC WORK TOOLCHAIN_FILE C_COMPILER
set -eu
build=$1
src=$2
work=$3
toolchain=$4
cc=$5
run="$(dirname "$toolchain")/wine-run.sh"
rm -rf "$work"
mkdir -p "$work"
prefix="$work/prefix"
cmake --install "$build" --prefix "$prefix" > "$work/install.log"
for f in nkpac.dll nkpcore.dll; do
  [ -f "$prefix/bin/$f" ] || { echo "missing bin/$f"; exit 1; }
done
for f in nkpac.lib nkpcore.lib nkpac.def; do
  [ -f "$prefix/lib/$f" ] || { echo "missing lib/$f"; exit 1; }
done

# Only nkpac.dll and nkpcore.dll next to the program: nothing else may be needed.
cmake -S "$src/consumer" -B "$work/cmake" -DCMAKE_TOOLCHAIN_FILE="$toolchain" \
      -Dnkpac_DIR="$prefix/lib/cmake/nkpac" > "$work/cmake.log"
cmake --build "$work/cmake" > "$work/cmake-build.log"
cp "$prefix/bin/nkpac.dll" "$prefix/bin/nkpcore.dll" "$work/cmake/"
"$run" "$work/cmake/consumer.exe"

mkdir -p "$work/pc"
flags=$(PKG_CONFIG_LIBDIR="$prefix/lib/pkgconfig" PKG_CONFIG_PATH= pkg-config --cflags --libs nkpac)
"$cc" -std=c99 -Wall -Werror -o "$work/pc/consumer-pc.exe" "$src/consumer/consumer.c" $flags
cp "$prefix/bin/nkpac.dll" "$prefix/bin/nkpcore.dll" "$work/pc/"
"$run" "$work/pc/consumer-pc.exe"
