#!/usr/bin/env bash
# Job queue: N one-page jobs (default 500) sent in a row, each on a connection of its own from
# one sending process, to a headless Quorvel --job-queue (--output pdf, as many workers as
# cores), from the first send to the last PDF, beside bare
# gs converting the same N files with the same command line, same run: as many at once as
# there are cores (xargs -P), and one after another.
# Goal: at least 0.9 of the rate of bare gs with every core busy.
set -euo pipefail
build=$1
bin="$build/src/quorvel"
n=${JOBQUEUE_JOBS:-500}
cores=$(nproc)
. "$(dirname "$0")/../lib.sh"
start_work /tmp/quorvel-jobqueue.XXXXXX

mkdir -p "$work/jobs" "$work/ref"
for i in $(seq "$n"); do
    printf '%%!PS\n/Helvetica findfont 14 scalefont setfont 72 700 moveto (job %d) show showpage\n' \
        "$i" > "$work/jobs/$i.ps"
done
gs_line=(gs -dNOPAUSE -dBATCH -sDEVICE=pdfwrite -dQUIET)

t0=$(now)
for i in $(seq "$n"); do "${gs_line[@]}" -sOutputFile="$work/ref/$i.pdf" "$work/jobs/$i.ps"; done
t_seq=$(echo "$(now) - $t0" | bc -l)
rm -f "$work/ref/"*
t0=$(now)
seq "$n" | xargs -P "$cores" -I{} "${gs_line[@]}" -sOutputFile="$work/ref/{}.pdf" "$work/jobs/{}.ps"
t_par=$(echo "$(now) - $t0" | bc -l)
[ "$(find "$work/ref" -name '*.pdf' | wc -l)" = "$n" ] || { echo "jobqueue: xargs made too few PDFs" >&2; exit 1; }

port=$(freeport)
folder="$work/q"
mkdir -p "$folder"
QUORVEL_SETTINGS_DIR="$folder" "$bin" --headless --job-queue --output pdf --port "$port" \
    --program-folder "$folder" >"$folder/log" 2>&1 &
qp=$!
pids+=("$qp")
for _ in $(seq 200); do grep -q "Listening to port: $port" "$folder/log" && break; sleep 0.05; done
grep -q "$cores converting at once" "$folder/log" || { echo "jobqueue: not $cores workers" >&2; exit 1; }
jobs="$folder/ImagesPdfExport"
t_q=$(python3 "$(dirname "$0")/send.py" "$port" "$folder/log" "$n" $(seq -f "$work/jobs/%g.ps" "$n"))
[ -z "$(ls -A "$jobs/spool")" ] || { echo "jobqueue: the spool is not empty at the end" >&2; exit 1; }
kill "$qp"; wait "$qp" 2>/dev/null || true
failed=$(grep -c "failed:" "$folder/log" || true)

rate() { echo "$n / $1" | bc -l; }
ratio=$(echo "$t_par / $t_q" | bc -l)
printf 'jobqueue: %d one-page jobs to PDF, %d cores\n' "$n" "$cores"
printf '  bare gs, one at a time      : %7.2f jobs/s (%.1f s)\n' "$(rate "$t_seq")" "$t_seq"
printf '  bare gs, xargs -P %d         : %7.2f jobs/s (%.1f s)\n' "$cores" "$(rate "$t_par")" "$t_par"
printf '  quorvel --job-queue         : %7.2f jobs/s (%.1f s)   ratio %.2f (goal >= 0.90), %d failed\n' \
    "$(rate "$t_q")" "$t_q" "$ratio" "$failed"
[ "$failed" = 0 ] || ratio=0
row "job queue, $n one-page jobs to PDF, $cores workers" "$(printf '%.2f jobs/s' "$(rate "$t_q")")" \
    "$(printf 'gs xargs -P %d %.2f jobs/s' "$cores" "$(rate "$t_par")")" "$ratio" ">=" 0.9
info_row "job queue beside gs one at a time" "$(printf '%.2f jobs/s' "$(rate "$t_q")")" \
    "$(printf 'gs %.2f jobs/s' "$(rate "$t_seq")")" "$(echo "$t_seq / $t_q" | bc -l)"
