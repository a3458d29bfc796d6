#!/usr/bin/env bash
# Installs the Debian packages a build needs, and only those missing.
#   tools/deps.sh            build, tests, benchmarks and the peer libraries
#   tools/deps.sh windows    also the MinGW-w64 cross toolchain and Wine
set -euo pipefail

packages=(cmake g++ make pkg-config python3 libgtest-dev libgmock-dev libbenchmark-dev
          libfftw3-dev libavutil-dev libavcodec-dev libfaad-dev libmpg123-dev mpg123 valgrind)
if [ "${1:-}" = windows ]; then
  packages+=(g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 googletest wine wine64)
fi

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
[ "$(id -u)" -eq 0 ] || sudo=sudo
echo "installing: ${missing[*]}"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" > /dev/null
