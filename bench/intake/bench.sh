#!/usr/bin/env bash
# TCP intake: streams a 512 MB job over loopback into a headless Quorvel and
# into `nc -l` writing to /dev/null, same file, same run. Every Quorvel run is
# a fresh process taking its first job (the slow case: memory never touched
# before); nc runs in turn with it.
# Goals: the worst Quorvel run at least 0.9 of nc's median rate; peak memory
# at most 1.2 x job + 64 MB. A second reference, nc keeping the bytes in a
# tmpfs file, shows what holding a job in fresh memory costs on this machine.
set -euo pipefail
build=$1
bin="$build/src/quorvel"
mb=${INTAKE_MB:-512}
runs=${INTAKE_RUNS:-5}
. "$(dirname "$0")/../lib.sh"
start_work /dev/shm/quorvel-intake.XXXXXX

# A job that Ghostscript gives up on at once, so the dispatch after each run stays short.
job="$work/job.ps"
{ printf '%%!PS\nquit\n'; yes '% padding of a large job, repeated to size ...........' ; } \
    | head -c $((mb * 1024 * 1024)) > "$job" || true
bytes=$(stat -c %s "$job")

nc_times=(); keep_times=()
# nc_run SINK: seconds nc takes to send the job to an nc listener writing to SINK.
nc_run() {
    local port lp t0
    port=$(freeport)
    nc -l 127.0.0.1 "$port" > "$1" &
    lp=$!
    sleep 0.3
    t0=$(now)
    nc -N 127.0.0.1 "$port" < "$job"
    wait "$lp" || true
    echo "$(now) - $t0" | bc -l
}
worst_q=
peak_kb=0
for i in $(seq "$runs"); do
    nc_times+=("$(nc_run /dev/null)")
    keep_times+=("$(nc_run "$work/kept.ps")")
    rm -f "$work/kept.ps"

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
    printf '  run %d: nc %.2f s, nc kept %.2f s, quorvel %.2f s, peak %d MB\n' "$i" "${nc_times[-1]}" "${keep_times[-1]}" "$t" $((kb / 1024))
    if [ -z "$worst_q" ] || [ "$(echo "$t > $worst_q" | bc -l)" = 1 ]; then worst_q=$t; fi
    rm -rf "$folder"
done
med_nc=$(median "${nc_times[@]}")

rate_nc=$(echo "$bytes / 1048576 / $med_nc" | bc -l)
med_keep=$(median "${keep_times[@]}")
rate_keep=$(echo "$bytes / 1048576 / $med_keep" | bc -l)
rate_q=$(echo "$bytes / 1048576 / $worst_q" | bc -l)
ratio=$(echo "$rate_q / $rate_nc" | bc -l)
peak_mb=$(echo "$peak_kb / 1024" | bc -l)
limit_mb=$(echo "1.2 * $bytes / 1048576 + 64" | bc -l)
printf 'intake: %d MB job, %d fresh processes\n' "$mb" "$runs"
printf '  nc -l > /dev/null : %8.1f MB/s (%.2f s, median)\n' "$rate_nc" "$med_nc"
printf '  nc -l > tmpfs file: %8.1f MB/s (%.2f s, median)\n' "$rate_keep" "$med_keep"
printf '  quorvel --headless: %8.1f MB/s (%.2f s, worst)   ratio %.2f (goal >= 0.90)\n' \
    "$rate_q" "$worst_q" "$ratio"
printf '  quorvel peak RSS  : %8.1f MB            limit %.1f MB (1.2 x job + 64 MB)\n' "$peak_mb" "$limit_mb"
row "TCP intake, $mb MB job, worst of $runs fresh processes" "$(printf '%.0f MB/s' "$rate_q")" \
    "$(printf 'nc %.0f MB/s' "$rate_nc")" "$ratio" ">=" 0.9
row "TCP intake, same worst run, beside nc keeping the job in memory" \
    "$(printf '%.0f MB/s' "$rate_q")" "$(printf 'nc > tmpfs %.0f MB/s' "$rate_keep")" \
    "$(echo "$rate_q / $rate_keep" | bc -l)" ">=" 0.9
row "intake peak memory, $mb MB job" "$(printf '%.0f MB' "$peak_mb")" \
    "$(printf 'limit %.0f MB' "$limit_mb")" "$(echo "$peak_mb / $limit_mb" | bc -l)" "<=" 1
ok=1
[ "$(echo "$ratio >= 0.9" | bc -l)" = 1 ] || ok=0
[ "$(echo "$peak_mb <= $limit_mb" | bc -l)" = 1 ] || ok=0
[ $ok = 1 ] && echo "  goals met" || echo "  GOAL MISSED"
