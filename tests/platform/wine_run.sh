#!/usr/bin/env bash
# Links every Windows adapter (src/platform/*_win.cpp) without Qt into one 64-bit program and runs
# it under wine64 in a private prefix, on the tray fixture's display.   wine_run.sh SRC WORK STATE
set -uo pipefail
src=$1 work=$2 state=$3 cxx=x86_64-w64-mingw32-g++
wine=$(command -v wine64 || echo /usr/lib/wine/wine64)
[ -x "$wine" ] || { echo "SKIPPED: wine64 is not installed (Debian package wine64)"; exit 77; }
command -v "$cxx" >/dev/null || { echo "$cxx is not installed (package mingw-w64)"; exit 1; }
mkdir -p "$work"
"$cxx" -std=c++20 -Wall -Wextra -Wno-missing-field-initializers -static -I"$src" \
    "$src"/platform/*_win.cpp "$src"/platform/safefile.cpp "$src"/platform/sharedcounter.cpp "$(dirname "$0")"/wine_adapters.cpp \
    -o "$work"/adapters.exe -lws2_32 -lwinspool -lgdi32 || exit 1
set -a && . "$state"/xtray.env && set +a
# No Mono or Gecko installer on the prefix's first start; wineserver ends with the test.
export WINEPREFIX=$work/prefix WINEDEBUG=-all WINEARCH=win64 WINEDLLOVERRIDES="mscoree,mshtml="
trap '"$(dirname "$wine")"/wineserver -k 2>/dev/null' EXIT
"$wine" "$work"/adapters.exe
