#!/bin/sh
# Fails unless the library exports exactly the symbols of its version script
# and takes nothing from nkpcore beyond its three functions.
set -eu
lib=$1
map=$2
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

sed -n 's/^[[:space:]]*\([A-Za-z_][A-Za-z0-9_]*\);[[:space:]]*$/\1/p' "$map" | sort > "$tmp/listed"
nm -D --defined-only "$lib" | awk '$2 ~ /^[TtWiDdBbRr]$/ {print $3}' | sed 's/@.*//' | sort -u > "$tmp/exported"
if ! diff -u "$tmp/listed" "$tmp/exported"; then
  echo "exports differ from the export list (- listed, + exported)"
  exit 1
fi
echo "exports: $(wc -l < "$tmp/exported") symbols, as listed"

nm -D --undefined-only "$lib" | awk '{print $2}' | sed 's/@.*//' | grep '^nkp' | sort > "$tmp/imported" || true
printf 'nkpFree\nnkpGetEnabledCpuFeatures\nnkpMalloc\n' > "$tmp/allowed"
if ! diff -u "$tmp/allowed" "$tmp/imported"; then
  echo "imports from nkpcore differ from nkpMalloc, nkpFree, nkpGetEnabledCpuFeatures"
  exit 1
fi
needed=$(readelf -d "$lib" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | tr '\n' ' ')
for n in $needed; do
  case "$n" in
    libnkpcore.so*|libc.so*|libm.so*|ld-linux*) ;;
    libasan.so*|libubsan.so*) ;;  # sanitizer builds only
    *) echo "unexpected dependency: $n"; exit 1 ;;
  esac
done
echo "imports: nkpcore's three functions; depends on: $needed"
