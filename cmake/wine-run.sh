#!/bin/sh
# Runs a cross-built Windows program under 64-bit Wine and passes on its exit
# status. The Wine prefix defaults to one per user, created on first use;
# Wine's own diagnostics are silenced unless WINEDEBUG is set.
#   wine-run.sh PROGRAM.exe ARGS...   run a program
#   wine-run.sh --stop                stop this prefix's Wine server
set -eu
if [ -x /usr/lib/wine/wine64 ]; then
  wine=/usr/lib/wine/wine64
  server=/usr/lib/wine/wineserver64
elif command -v wine64 > /dev/null 2>&1; then
  wine=wine64
  server=wineserver
else
  echo "wine-run.sh: wine64 not found (Debian package wine64)" >&2
  exit 127
fi
: "${WINEPREFIX:=${HOME:-/tmp}/.nkpac-wine}"
: "${WINEDEBUG:=-all}"
# No crash dialog and no desktop window: a crashing test just fails.
: "${WINEDLLOVERRIDES:=winemenubuilder.exe=d}"
export WINEPREFIX WINEDEBUG WINEDLLOVERRIDES

if [ "${1:-}" = --stop ]; then
  "$server" -k > /dev/null 2>&1 || true
  exit 0
fi

# One server stays up for a minute after the last program ends, so that the
# programs of a test run share it: a program that starts while an idle
# server is shutting down cannot connect and fails. Starting it is a no-op
# when one is already running.
if [ ! -e "$WINEPREFIX/system.reg" ]; then
  # A new prefix: let Wine build it, and wait for that server to end.
  "$wine" wineboot --init > /dev/null 2>&1 || true
  "$server" -w > /dev/null 2>&1 || true
fi
"$server" -p60 > /dev/null 2>&1 || true
exec "$wine" "$@"
