#!/usr/bin/env bash
# TCP intake: streams a 512 MB job over loopback into a headless Quorvel (the one job buffer
# of the default mode), beside receivers that keep the bytes too, in turn in each round:
# `nc -l` writing into a tmpfs file, and p910nd (a packaged 9100 server) writing into one.
# Every Quorvel run is a fresh process taking its first job; a run ends when the receiver
# holds every byte (nc has exited; p910nd's file is whole; Quorvel logs the close).
# Goals: Quorvel's median rate at least 0.9 of the better reference median; its worst run at
# most 1.5 x its own median (no first-run collapse hides behind a median); peak memory at
# most 1.2 x job + 64 MB. nc writing to /dev/null (keeping nothing) is shown for comparison.
set -euo pipefail
build=$1
bin="$build/src/quorvel"
mb=${INTAKE_MB:-512}
runs=${INTAKE_RUNS:-5}
. "$(dirname "$0")/../lib.sh"
start_work /dev/shm/quorvel-intake.XXXXXX
mkdir -p /var/lock/p910nd

# A job that Ghostscript gives up on at once, so the dispatch after each run stays short.
job="$work/job.ps"
{ printf '%%!PS\nquit\n'; yes '% padding of a large job, repeated to size ...........' ; } \
    | head -c $((mb * 1024 * 1024)) > "$job" || true
bytes=$(stat -c %s "$job")

# gone_until T0 TEST: seconds from T0 until TEST holds (polled every 2 ms, 60 s at most).
gone_until() {
    for _ in $(seq 30000); do eval "$2" && break; sleep 0.002; done
    echo "$(now) - $1" | bc -l
}
# nc_run SINK: seconds until an nc listener writing to SINK has the whole job.
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
# p910nd_run: the same into p910nd, which listens on 9102 and neither makes nor empties its file.
p910nd_run() {
    local pp t0 sink="$work/p910nd.out"
    : > "$sink"
    p910nd -d -i 127.0.0.1 -f "$sink" 2 >/dev/null 2>&1 &
    pp=$!
    for _ in $(seq 100); do (exec 3<>/dev/tcp/127.0.0.1/9102) 2>/dev/null && break; sleep 0.05; done
    : > "$sink" # the probe above was a connection of its own
    t0=$(now)
    nc -N 127.0.0.1 9102 < "$job"
    gone_until "$t0" '[ "$(stat -c %s "$sink")" -ge "$bytes" ]'
    kill "$pp" 2>/dev/null; wait "$pp" 2>/dev/null || true
    rm -f "$sink"
}
if ss -ltn | grep -q '127.0.0.1:9102 \|\*:9102 '; then
    echo "intake: port 9102 is taken; p910nd cannot run" >&2
    exit 1
fi
null_times=(); nc_times=(); p9_times=(); q_times=()
peak_kb=0
for i in $(seq "$runs"); do
    null_times+=("$(nc_run /dev/null)")
    nc_times+=("$(nc_run "$work/kept.ps")")
    rm -f "$work/kept.ps"
    p9_times+=("$(p910nd_run)")

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
    q_times+=("$(gone_until "$t0" "grep -q 'Connection closed' '$folder/log'")")
    # The dispatch saves the job after the close; the peak must include it.
    sleep 2
    kb=$(awk '/VmHWM/ {print $2}' /proc/$qp/status)
    kill "$qp"; wait "$qp" 2>/dev/null || true
    [ "$kb" -gt "$peak_kb" ] && peak_kb=$kb
    printf '  round %d: nc > /dev/null %.2f s, nc > tmpfs %.2f s, p910nd > tmpfs %.2f s, quorvel %.2f s, peak %d MB\n' \
        "$i" "${null_times[-1]}" "${nc_times[-1]}" "${p9_times[-1]}" "${q_times[-1]}" $((kb / 1024))
    rm -rf "$folder"
done
rate() { echo "$bytes / 1048576 / $1" | bc -l; }
med_null=$(median "${null_times[@]}"); med_nc=$(median "${nc_times[@]}")
med_p9=$(median "${p9_times[@]}"); med_q=$(median "${q_times[@]}")
worst_q=$(printf '%s\n' "${q_times[@]}" | sort -g | tail -1)
best_ref=$med_nc; best_name="nc > tmpfs"
if [ "$(echo "$med_p9 < $med_nc" | bc -l)" = 1 ]; then best_ref=$med_p9; best_name="p910nd > tmpfs"; fi
ratio=$(echo "$best_ref / $med_q" | bc -l)
spread=$(echo "$worst_q / $med_q" | bc -l)
peak_mb=$(echo "$peak_kb / 1024" | bc -l)
limit_mb=$(echo "1.2 * $bytes / 1048576 + 64" | bc -l)
printf 'intake: %d MB job, %d rounds, medians\n' "$mb" "$runs"
printf '  nc -l > /dev/null     : %8.1f MB/s (%.2f s)\n' "$(rate "$med_null")" "$med_null"
printf '  nc -l > tmpfs file    : %8.1f MB/s (%.2f s)\n' "$(rate "$med_nc")" "$med_nc"
printf '  p910nd > tmpfs file   : %8.1f MB/s (%.2f s)\n' "$(rate "$med_p9")" "$med_p9"
printf '  quorvel --headless    : %8.1f MB/s (%.2f s; worst %.2f s)   ratio %.2f (goal >= 0.90)\n' \
    "$(rate "$med_q")" "$med_q" "$worst_q" "$ratio"
printf '  quorvel peak RSS      : %8.1f MB            limit %.1f MB (1.2 x job + 64 MB)\n' "$peak_mb" "$limit_mb"
row "TCP intake, $mb MB job, median of $runs fresh processes" "$(printf '%.0f MB/s' "$(rate "$med_q")")" \
    "$(printf '%s %.0f MB/s' "$best_name" "$(rate "$best_ref")")" "$ratio" ">=" 0.9
row "TCP intake, worst of the $runs runs against their median" "$(printf '%.2f s' "$worst_q")" \
    "$(printf 'median %.2f s' "$med_q")" "$spread" "<=" 1.5
info_row "TCP intake beside nc keeping nothing (nc > /dev/null)" \
    "$(printf '%.0f MB/s' "$(rate "$med_q")")" "$(printf 'nc %.0f MB/s' "$(rate "$med_null")")" \
    "$(echo "$med_null / $med_q" | bc -l)"
row "intake peak memory, $mb MB job" "$(printf '%.0f MB' "$peak_mb")" \
    "$(printf 'limit %.0f MB' "$limit_mb")" "$(echo "$peak_mb / $limit_mb" | bc -l)" "<=" 1
ok=1
[ "$(echo "$ratio >= 0.9 && $spread <= 1.5 && $peak_mb <= $limit_mb" | bc -l)" = 1 ] || ok=0
[ $ok = 1 ] && echo "  goals met" || echo "  GOAL MISSED"
