#!/usr/bin/env bash
# Compiles every Windows adapter (src/platform/*_win.cpp, found now, so new
# files are covered) with the 32-bit mingw-w64 compiler, syntax only.
#   win_compile.sh SOURCE_DIR [QT_INCLUDE_DIR]
set -uo pipefail
src=$1
qt=${2:-/usr/include/x86_64-linux-gnu/qt6}
cxx=i686-w64-mingw32-g++
command -v "$cxx" >/dev/null || { echo "$cxx is not installed (package mingw-w64)"; exit 1; }
shopt -s nullglob
files=("$src"/platform/*_win.cpp)
[ ${#files[@]} -gt 0 ] || { echo "no Windows adapters found under $src/platform"; exit 1; }
failed=0
for f in "${files[@]}"; do
    if "$cxx" -std=c++20 -fsyntax-only -Wall -Wextra -I"$src" -I"$qt" -I"$qt/QtCore" \
        -I"$qt/QtGui" -I"$qt/QtWidgets" -I"$qt/QtNetwork" "$f" 2>"$f.log.tmp"; then
        echo "ok      ${f#$src/}"
    else
        echo "FAILED  ${f#$src/}"
        sed 's/^/    /' "$f.log.tmp" | head -40
        failed=1
    fi
    rm -f "$f.log.tmp"
done
exit $failed
