#!/bin/sh
# Fails when an object of either code path defines a weak symbol. Both paths
# are built from the same sources with different flags; a weak definition
# (an inline function or a template a header gives external linkage) would be
# merged with the other path's copy at link time, and one path could run the
# other's instructions. Headers that two-path sources include keep their
# inline helpers in an anonymous namespace.
#   check_path_symbols.sh NM OBJECTS...   (OBJECTS may be '|'-joined lists)
set -eu
nm=$1
shift
found=0
objects=0
for list in "$@"; do
  old_ifs=$IFS
  IFS='|'
  for obj in $list; do
    IFS=$old_ifs
    objects=$((objects + 1))
    weak=$("$nm" -C "$obj" | awk '$(NF-1) ~ /^[WVu]$/ || $1 ~ /^[WVu]$/' || true)
    if [ -n "$weak" ]; then
      echo "weak symbols in $obj:"
      echo "$weak"
      found=1
    fi
  done
  IFS=$old_ifs
done
[ "$objects" -gt 0 ] || { echo "no objects given"; exit 1; }
[ "$found" -eq 0 ] || exit 1
echo "code-path objects: $objects, no weak symbols"
