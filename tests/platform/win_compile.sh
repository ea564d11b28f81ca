#!/usr/bin/env bash
# Compiles every Windows adapter (src/platform/*_win.cpp, found now, so new files are covered)
# with the 32-bit mingw-w64 compiler, syntax only, without Qt.   win_compile.sh SOURCE_DIR
set -uo pipefail
src=$1 cxx=i686-w64-mingw32-g++ failed=0
command -v "$cxx" >/dev/null || { echo "$cxx is not installed (package mingw-w64)"; exit 1; }
shopt -s nullglob
files=("$src"/platform/*_win.cpp)
[ ${#files[@]} -gt 0 ] || { echo "no Windows adapters found under $src/platform"; exit 1; }
for f in "${files[@]}"; do
    if log=$("$cxx" -std=c++20 -fsyntax-only -Wall -Wextra -I"$src" "$f" 2>&1); then
        echo "ok      ${f#"$src"/}"
    else
        echo "FAILED  ${f#"$src"/}" && failed=1
        sed 's/^/    /' <<<"$log" | head -40
    fi
done
exit $failed
