#!/usr/bin/env bash
# Builds Quorvel in Release and runs every benchmark; each prints its
# figures beside a reference measured in the same run, and one ROW line per
# figure (see row() in bench/lib.sh). The run ends with one table of all rows
# and the machine it ran on, written to bench/out/table.md and (for a run of
# all of them) into the README's benchmark section.
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
mkdir -p bench/out
rows=bench/out/rows
: >"$rows"
status=0
for n in "${names[@]}"; do
    echo "=== $n"
    bash "bench/$n/bench.sh" "$build" | tee "bench/out/$n.log" || status=1
    grep '^ROW|' "bench/out/$n.log" >>"$rows" || echo "ROW|$n|-|-|-|-|failed" >>"$rows"
done
grep -q '|no$\||failed$' "$rows" && status=1

cpu=$(awk -F': ' '/^model name/ {print $2; exit}' /proc/cpuinfo)
mem=$(awk '/^MemTotal/ {printf "%.1f GB", $2 / 1048576}' /proc/meminfo)
table=bench/out/table.md
{
    echo "Run of $(date -u '+%Y-%m-%d %H:%M UTC') on $cpu, $(nproc) cores, $mem memory," \
        "Linux $(uname -r); load average at the end $(cut -d' ' -f1-3 /proc/loadavg)."
    echo
    echo "| benchmark | Quorvel | reference | ratio | goal | met |"
    echo "|---|---|---|---|---|---|"
    awk -F'|' '{ printf "| %s | %s | %s | %s | %s | %s |\n", $2, $3, $4, $5, $6, $7 }' "$rows"
} >"$table"
echo
cat "$table"
# The README shows the latest table of a whole run, between its two markers.
if [ $# -eq 0 ]; then
    awk -v t="$table" '
        /<!-- bench-table -->/ { print; while ((getline l < t) > 0) print l; skip = 1; next }
        /<!-- \/bench-table -->/ { skip = 0 }
        !skip' README.md >bench/out/README.md && cp bench/out/README.md README.md
fi
exit $status
