#!/usr/bin/env bash
# Installs what Quorvel needs, builds it in Release and starts the server:
# with its window and tray icon where there is a display, headless with the
# log on this terminal where there is none. Arguments go to the program.
set -euo pipefail
cd "$(dirname "$0")"

bash tools/install-deps.sh deps/run.txt

build=${QUORVEL_BUILD:-build-release}
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
      -DQUORVEL_BUILD_TESTS=OFF -DQUORVEL_BUILD_BENCH=OFF >/dev/null
cmake --build "$build" -j"$(nproc)"

headless=()
if [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ]; then
    headless=(--headless)
fi
exec "$build/src/quorvel" "${headless[@]}" "$@"
