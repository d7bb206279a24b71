#!/usr/bin/env bash
# Runs a Windows program under 64-bit Wine: the emulator of the mingw-w64 cross build.
# scripts/windows-test.sh sets WINEPREFIX and keeps a wineserver running for the whole run.
export WINEDEBUG=${WINEDEBUG:--all}
# Wine hands the Unix environment to the program. A Windows machine sets no LANG or LC_*
# variables, and the C++ runtime's std::locale("") accepts none but "C" from them, so they
# are left out, as there.
for variable in $(compgen -e); do
    case $variable in LANG | LANGUAGE | LC_*) unset "$variable" ;; esac
done
# ORVIK_WINE_LANG starts Wine in that Unix locale instead, which gives the program its code
# pages (ja_JP.UTF-8: ANSI code page 932); the program then sees it as LANG, as a shell on
# Windows may set it. LOCPATH may point at a locale that the system does not have installed.
if [ -n "${ORVIK_WINE_LANG:-}" ]; then
    export LANG=$ORVIK_WINE_LANG
fi
# On a Windows machine the working directory, the temporary folder and the build usually share
# drive C:, so a path rooted without a drive ("\x") reaches the same drive as "C:\x". Here
# the build lies on Z: (Wine's view of /), so programs start in C:\ instead.
cd "${WINEPREFIX:-$HOME/.wine}/drive_c"
exec /usr/lib/wine/wine64 "$@"
