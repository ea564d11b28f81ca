#!/usr/bin/env bash
# Job queue: N one-page jobs (default 2000) sent in a row to a headless
# Quorvel --job-queue (--output pdf), from the first send to the last PDF,
# beside bare gs converting the same N files one after another with the same
# command line, same run. Goal: at least 0.9 of bare gs's jobs per second.
set -euo pipefail
build=$1
bin="$build/src/quorvel"
n=${JOBQUEUE_JOBS:-2000}
. "$(dirname "$0")/../lib.sh"
start_work /tmp/quorvel-jobqueue.XXXXXX

mkdir -p "$work/jobs" "$work/ref"
for i in $(seq "$n"); do
    printf '%%!PS\n/Helvetica findfont 14 scalefont setfont 72 700 moveto (job %d) show showpage\n' \
        "$i" > "$work/jobs/$i.ps"
done

t0=$(now)
for i in $(seq "$n"); do
    gs -dNOPAUSE -dBATCH -sDEVICE=pdfwrite -dQUIET -sOutputFile="$work/ref/$i.pdf" "$work/jobs/$i.ps"
done
t_gs=$(echo "$(now) - $t0" | bc -l)

port=$(freeport)
folder="$work/q"
mkdir -p "$folder"
QUORVEL_SETTINGS_DIR="$folder" "$bin" --headless --job-queue --output pdf --port "$port" \
    --program-folder "$folder" >"$folder/log" 2>&1 &
qp=$!
pids+=("$qp")
for _ in $(seq 200); do grep -q "Listening to port: $port" "$folder/log" && break; sleep 0.05; done
jobs="$folder/ImagesPdfExport"
t0=$(now)
for i in $(seq "$n"); do nc -N 127.0.0.1 "$port" < "$work/jobs/$i.ps"; done
# Done: every job a PDF, the spool empty.
while [ "$(find "$jobs" -maxdepth 1 -name '*.pdf' | wc -l)" -lt "$n" ] ||
      [ -n "$(ls -A "$jobs/spool")" ]; do
    sleep 0.05
done
t_q=$(echo "$(now) - $t0" | bc -l)
kill "$qp"; wait "$qp" 2>/dev/null || true
failed=$(grep -c "failed:" "$folder/log" || true)

rate_gs=$(echo "$n / $t_gs" | bc -l)
rate_q=$(echo "$n / $t_q" | bc -l)
ratio=$(echo "$rate_q / $rate_gs" | bc -l)
met=no
[ "$(echo "$ratio >= 0.9" | bc -l)" = 1 ] && [ "$failed" = 0 ] && met=yes
printf 'jobqueue: %d one-page jobs to PDF, one after another\n' "$n"
printf '  bare gs, same command line : %7.2f jobs/s (%.1f s)\n' "$rate_gs" "$t_gs"
printf '  quorvel --job-queue        : %7.2f jobs/s (%.1f s)   ratio %.2f (goal >= 0.90), %d failed\n' \
    "$rate_q" "$t_q" "$ratio" "$failed"
printf 'ROW|job queue, %d one-page jobs to PDF|%.2f jobs/s|gs %.2f jobs/s|%.2f|≥ 0.9|%s\n' "$n" \
    "$rate_q" "$rate_gs" "$ratio" "$met"
[ "$met" = yes ] && echo "  goals met" || echo "  GOAL MISSED"
