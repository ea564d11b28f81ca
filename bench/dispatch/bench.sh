#!/usr/bin/env bash
# Dispatch benchmarks, each beside bare Ghostscript running the same command
# line on the same file in the same run.
#  1. TCP close -> PDF complete (the job's .ps wiped) in a headless Quorvel
#     (--output pdf). Goal: at most 1.05 x bare gs.
#  2. Quorvel's own CPU time (all its threads, from /proc) while a 20-page
#     600 dpi TIFF converts (--output tiff). Goal: at most 2 % of gs's CPU time.
set -euo pipefail
build=$1
bin="$build/src/quorvel"
probe="$build/bench/dispatch/dispatch_probe"
runs=${DISPATCH_RUNS:-9}
pages=${DISPATCH_PAGES:-20}
. "$(dirname "$0")/../lib.sh"
start_work /tmp/quorvel-dispatch.XXXXXX

# start_server NAME ARGS... : sets port, folder, qp
start_server() {
    local name=$1; shift
    port=$(freeport)
    folder="$work/$name"
    mkdir -p "$folder"
    QUORVEL_SETTINGS_DIR="$folder" "$bin" --headless --port "$port" --program-folder "$folder" "$@" \
        >"$folder/log" 2>&1 &
    qp=$!
    pids+=("$qp")
    for _ in $(seq 200); do grep -q "Listening to port: $port" "$folder/log" && return 0; sleep 0.05; done
    echo "the server did not start:" >&2; cat "$folder/log" >&2; exit 1
}

job="$work/job.ps"
"$probe" job "$pages" "$job"

# 1. PDF.
start_server pdf --output pdf
jobs="$folder/ImagesPdfExport"
best_gs= ; best_q= ; all_gs=() ; all_q=()
"$probe" gs pdf "$work/warm.pdf" "$job" >/dev/null # caches warm for both
for _ in $(seq "$runs"); do
    read -r wall _ < <("$probe" gs pdf "$work/ref.pdf" "$job")
    best_gs=$(min "$best_gs" "$wall")
    all_gs+=("$wall")
    t=$("$probe" send "$port" "$job" "$jobs")
    best_q=$(min "$best_q" "$t")
    all_q+=("$t")
    [ "$(ls "$jobs"/*.pdf | wc -l)" = 1 ] || { echo "no PDF kept" >&2; exit 1; }
    rm -f "$jobs"/*.pdf
    sleep 0.2
done
kill "$qp"; wait "$qp" 2>/dev/null || true
ratio1=$(echo "$best_q / $best_gs" | bc -l)
printf 'dispatch: %d-page job to PDF, best of %d runs\n' "$pages" "$runs"
printf '  bare gs, same command line : %7.3f s (median %.3f s)\n' "$best_gs" "$(median "${all_gs[@]}")"
printf '  quorvel, TCP close -> done : %7.3f s (median %.3f s)   ratio %.3f (goal <= 1.05)\n' \
    "$best_q" "$(median "${all_q[@]}")" "$ratio1"

# 2. CPU while a TIFF converts.
start_server tiff --output tiff
jobs="$folder/ImagesPdfExport"
truns=${DISPATCH_TIFF_RUNS:-3}
best_gscpu= ; best_qcpu=
for _ in $(seq "$truns"); do
    read -r _ cpu < <("$probe" gs tiff "$work/ref.tif" "$job")
    rm -f "$work/ref.tif"
    best_gscpu=$(min "$best_gscpu" "$cpu")
    c0=$("$probe" cpu "$qp")
    "$probe" send "$port" "$job" "$jobs" >/dev/null
    c1=$("$probe" cpu "$qp")
    best_qcpu=$(min "$best_qcpu" "$(echo "$c1 - $c0" | bc -l)")
    [ "$(ls "$jobs"/*.tif | wc -l)" = 1 ] || { echo "no TIFF kept" >&2; exit 1; }
    rm -f "$jobs"/*.tif
    sleep 0.2
done
kill "$qp"; wait "$qp" 2>/dev/null || true
pct=$(echo "100 * $best_qcpu / $best_gscpu" | bc -l)
printf 'waiting: %d-page 600 dpi TIFF (tifflzw), best of %d runs\n' "$pages" "$truns"
printf '  gs CPU time                : %7.3f s\n' "$best_gscpu"
printf '  quorvel CPU time meanwhile : %7.4f s   %.2f %% of gs (goal <= 2 %%)\n' "$best_qcpu" "$pct"

row "dispatch, $pages-page job to PDF" "$(printf '%.3f s' "$best_q")" \
    "$(printf 'gs %.3f s' "$best_gs")" "$ratio1" "<=" 1.05
row "CPU while a $pages-page TIFF converts" "$(printf '%.4f s' "$best_qcpu")" \
    "$(printf 'gs %.3f s' "$best_gscpu")" "$(echo "$pct / 100" | bc -l)" "<=" 0.02
ok=1
[ "$(echo "$ratio1 <= 1.05" | bc -l)" = 1 ] || ok=0
[ "$(echo "$pct <= 2" | bc -l)" = 1 ] || ok=0
[ $ok = 1 ] && echo "  goals met" || echo "  GOAL MISSED"
