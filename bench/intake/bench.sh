#!/usr/bin/env bash
# TCP intake: streams a 512 MB job over loopback into a headless Quorvel and
# into `nc -l` writing to /dev/null, same file, same run.
# Goals: at least 0.9 of nc's rate; peak memory at most 1.2 x job + 64 MB.
set -euo pipefail
build=$1
bin="$build/src/quorvel"
mb=${INTAKE_MB:-512}
runs=${INTAKE_RUNS:-3}
. "$(dirname "$0")/../lib.sh"
start_work /dev/shm/quorvel-intake.XXXXXX

# A job that Ghostscript gives up on at once, so the dispatch after each run stays short.
job="$work/job.ps"
{ printf '%%!PS\nquit\n'; yes '% padding of a large job, repeated to size ...........' ; } \
    | head -c $((mb * 1024 * 1024)) > "$job" || true
bytes=$(stat -c %s "$job")

best_nc=
for _ in $(seq "$runs"); do
    port=$(freeport)
    nc -l 127.0.0.1 "$port" > /dev/null &
    lp=$!
    sleep 0.3
    t0=$(now)
    nc -N 127.0.0.1 "$port" < "$job"
    wait "$lp" || true
    t=$(echo "$(now) - $t0" | bc -l)
    best_nc=$(min "$best_nc" "$t")
done

best_q=
peak_kb=0
for i in $(seq "$runs"); do
    port=$(freeport)
    folder="$work/q$i"
    mkdir -p "$folder"
    QUORVEL_SETTINGS_DIR="$folder" "$bin" --headless --port "$port" --program-folder "$folder" \
        >"$folder/log" 2>&1 &
    qp=$!
    pids+=("$qp")
    for _ in $(seq 100); do grep -q "Listening to port: $port" "$folder/log" && break; sleep 0.05; done
    t0=$(now)
    nc -N 127.0.0.1 "$port" < "$job"
    t=$(echo "$(now) - $t0" | bc -l)
    # The dispatch saves the job after the close; the peak must include it.
    for _ in $(seq 100); do
        grep -q "Connection closed" "$folder/log" && break; sleep 0.05
    done
    sleep 2
    kb=$(awk '/VmHWM/ {print $2}' /proc/$qp/status)
    kill "$qp"; wait "$qp" 2>/dev/null || true
    [ "$kb" -gt "$peak_kb" ] && peak_kb=$kb
    best_q=$(min "$best_q" "$t")
    rm -rf "$folder"
done

rate_nc=$(echo "$bytes / 1048576 / $best_nc" | bc -l)
rate_q=$(echo "$bytes / 1048576 / $best_q" | bc -l)
ratio=$(echo "$rate_q / $rate_nc" | bc -l)
peak_mb=$(echo "$peak_kb / 1024" | bc -l)
limit_mb=$(echo "1.2 * $bytes / 1048576 + 64" | bc -l)
printf 'intake: %d MB job, best of %d runs\n' "$mb" "$runs"
printf '  nc -l > /dev/null : %8.1f MB/s (%.2f s)\n' "$rate_nc" "$best_nc"
printf '  quorvel --headless: %8.1f MB/s (%.2f s)   ratio %.2f (goal >= 0.90)\n' "$rate_q" "$best_q" "$ratio"
printf '  quorvel peak RSS  : %8.1f MB            limit %.1f MB (1.2 x job + 64 MB)\n' "$peak_mb" "$limit_mb"
ok=1
[ "$(echo "$ratio >= 0.9" | bc -l)" = 1 ] || ok=0
[ "$(echo "$peak_mb <= $limit_mb" | bc -l)" = 1 ] || ok=0
[ $ok = 1 ] && echo "  goals met" || echo "  GOAL MISSED"
