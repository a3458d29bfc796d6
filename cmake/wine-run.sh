#!/bin/sh
# Runs a cross-built Windows program under 64-bit Wine and passes on its exit
# status. The Wine prefix defaults to one per build tree user, created on
# first use; Wine's own diagnostics are silenced unless WINEDEBUG is set.
set -eu
if [ -x /usr/lib/wine/wine64 ]; then
  wine=/usr/lib/wine/wine64
elif command -v wine64 > /dev/null 2>&1; then
  wine=wine64
else
  echo "wine-run.sh: wine64 not found (Debian package wine64)" >&2
  exit 127
fi
: "${WINEPREFIX:=${HOME:-/tmp}/.nkpac-wine}"
: "${WINEDEBUG:=-all}"
# No crash dialog and no desktop window: a crashing test just fails.
: "${WINEDLLOVERRIDES:=winemenubuilder.exe=d}"
export WINEPREFIX WINEDEBUG WINEDLLOVERRIDES
exec "$wine" "$@"
