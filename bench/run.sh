#!/usr/bin/env bash
# Builds Quorvel in Release and runs every benchmark; each prints its
# figures beside a reference measured in the same run.
# bench/run.sh [NAME...]   (default: all of bench/*/bench.sh)
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/install-deps.sh deps/run.txt deps/test.txt
build=${QUORVEL_BENCH_BUILD:-$(pwd)/build-bench}
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DQUORVEL_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" -j"$(nproc)"
names=("$@")
if [ ${#names[@]} -eq 0 ]; then
    for b in bench/*/bench.sh; do names+=("$(basename "$(dirname "$b")")"); done
fi
status=0
for n in "${names[@]}"; do
    echo "=== $n"
    bash "bench/$n/bench.sh" "$build" || status=1
done
exit $status
