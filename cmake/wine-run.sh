#!/usr/bin/env bash
# Runs a Windows program under 64-bit Wine: the emulator of the mingw-w64 cross build.
# scripts/windows-test.sh sets WINEPREFIX and keeps a wineserver running for the whole run.
export WINEDEBUG=${WINEDEBUG:--all}
exec /usr/lib/wine/wine64 "$@"
