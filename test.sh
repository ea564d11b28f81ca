#!/usr/bin/env bash
# Installs what the tests need, builds, runs the whole suite with CTest
# (the real services start and stop as CTest fixtures) and stops anything
# left behind. Exits non-zero on any failure.
set -euo pipefail
cd "$(dirname "$0")"
here=$(pwd)

bash tools/install-deps.sh deps/run.txt deps/test.txt

build=${QUORVEL_TEST_BUILD:-$here/build-test}
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" -j"$(nproc)"

state="$build/test-state"
stop_services() {
    for s in cups webdav nginx xtray; do
        bash "tests/support/$s.sh" down "$state" >/dev/null 2>&1 || true
    done
}
trap stop_services EXIT

ctest --test-dir "$build" --output-on-failure --timeout 900 "$@"
