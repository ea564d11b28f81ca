#!/usr/bin/env bash
# The streaming spool of --job-queue, on a disk folder as a spool is:
#  - memory: a 1 GB job, then 100 clients sending 10 MB each at once, into a fresh headless
#    Quorvel each; peak RSS above the process's idle RSS. Goals: <= 64 MB and <= 200 MB.
#  - intake: a 512 MB job until it is whole in the spool, synced (the job exists once its .ps
#    does), beside `nc -l` writing the same bytes into a file in the
#    same folder and then `sync`-ing it; 5 fresh processes each, in turn.
#    Goal: Quorvel's median rate at least 0.9 of nc's.
# Each job is PostScript that ends at once, so Ghostscript takes no time from the figures.
set -euo pipefail
build=$1
bin="$build/src/quorvel"
big_mb=${SPOOL_BIG_MB:-1024}
clients=${SPOOL_CLIENTS:-100}
each_mb=${SPOOL_EACH_MB:-10}
mb=${SPOOL_MB:-512}
runs=${SPOOL_RUNS:-5}
. "$(dirname "$0")/../lib.sh"
start_work /var/tmp/quorvel-spool.XXXXXX

# job FILE MB: PostScript that quits, padded to MB.
job() { { printf '%%!PS\nquit\n'; yes '% padding of a large job, repeated to size ...........'; } |
        head -c $(($2 * 1024 * 1024)) > "$1" || true; }
job "$work/big.ps" "$big_mb"; job "$work/each.ps" "$each_mb"; job "$work/job.ps" "$mb"

# start_q NAME: a fresh Quorvel --job-queue in $work/NAME; sets qp, port, folder.
start_q() {
    folder="$work/$1"; port=$(freeport)
    mkdir -p "$folder"
    QUORVEL_SETTINGS_DIR="$folder" "$bin" --headless --job-queue --port "$port" \
        --program-folder "$folder" >"$folder/log" 2>&1 &
    qp=$!
    pids+=("$qp")
    for _ in $(seq 200); do grep -q "Listening to port: $port" "$folder/log" && break; sleep 0.05; done
}
status_kb() { awk -v k="$2:" '$1 == k {print $2}' "/proc/$1/status"; }
# spooled N: true once N jobs are whole in the spool (or converted since, which logs them).
spooled() {
    local n
    n=$(( $(find "$folder/ImagesPdfExport/spool" -name '*.ps' | wc -l) +
          $(grep -c '^[0-9: -]*Job File_' "$folder/log" || true) ))
    [ "$n" -ge "$1" ]
}
wait_spooled() { for _ in $(seq 60000); do spooled "$1" && return 0; sleep 0.002; done; return 1; }
stop_q() { kill "$qp"; wait "$qp" 2>/dev/null || true; rm -rf "$folder"; }

# Memory.
start_q big
idle_kb=$(status_kb "$qp" VmRSS)
nc -N 127.0.0.1 "$port" < "$work/big.ps"
wait_spooled 1
sleep 1
big_kb=$(( $(status_kb "$qp" VmHWM) - idle_kb ))
stop_q
start_q many
idle_kb=$(status_kb "$qp" VmRSS)
for _ in $(seq "$clients"); do nc -N 127.0.0.1 "$port" < "$work/each.ps" & done
wait $(jobs -p | grep -vxF "$qp") 2>/dev/null || true
wait_spooled "$clients"
sleep 1
many_kb=$(( $(status_kb "$qp" VmHWM) - idle_kb ))
stop_q

# Intake.
nc_times=(); q_times=()
for i in $(seq "$runs"); do
    port=$(freeport)
    nc -l 127.0.0.1 "$port" > "$work/kept.ps" &
    lp=$!
    sleep 0.3
    t0=$(now)
    nc -N 127.0.0.1 "$port" < "$work/job.ps"
    wait "$lp" || true
    sync "$work/kept.ps"
    nc_times+=("$(echo "$(now) - $t0" | bc -l)")
    rm -f "$work/kept.ps"

    start_q "q$i"
    t0=$(now)
    nc -N 127.0.0.1 "$port" < "$work/job.ps"
    wait_spooled 1
    q_times+=("$(echo "$(now) - $t0" | bc -l)")
    stop_q
    printf '  round %d: nc + sync %.2f s, quorvel %.2f s\n' "$i" "${nc_times[-1]}" "${q_times[-1]}"
done
bytes=$(stat -c %s "$work/job.ps")
rate() { echo "$bytes / 1048576 / $1" | bc -l; }
med_nc=$(median "${nc_times[@]}"); med_q=$(median "${q_times[@]}")
ratio=$(echo "$med_nc / $med_q" | bc -l)
printf 'spool: --job-queue on %s\n' "$(df --output=fstype "$work" | tail -1)"
printf '  %d MB job, peak RSS above idle        : %6.1f MB   (goal <= 64 MB)\n' "$big_mb" "$(echo "$big_kb / 1024" | bc -l)"
printf '  %d x %d MB at once, peak RSS above idle : %6.1f MB   (goal <= 200 MB)\n' "$clients" "$each_mb" "$(echo "$many_kb / 1024" | bc -l)"
printf '  %d MB job: nc -l > file + sync        : %6.1f MB/s (%.2f s)\n' "$mb" "$(rate "$med_nc")" "$med_nc"
printf '  %d MB job: quorvel --job-queue        : %6.1f MB/s (%.2f s)   ratio %.2f (goal >= 0.90)\n' \
    "$mb" "$(rate "$med_q")" "$med_q" "$ratio"
row "queue spool memory, $big_mb MB job, above idle" "$(printf '%.0f MB' "$(echo "$big_kb / 1024" | bc -l)")" \
    "limit 64 MB" "$(echo "$big_kb / 1024 / 64" | bc -l)" "<=" 1
row "queue spool memory, $clients x $each_mb MB at once, above idle" \
    "$(printf '%.0f MB' "$(echo "$many_kb / 1024" | bc -l)")" "limit 200 MB" \
    "$(echo "$many_kb / 1024 / 200" | bc -l)" "<=" 1
row "queue intake, $mb MB job to the synced spool, median of $runs" \
    "$(printf '%.0f MB/s' "$(rate "$med_q")")" "$(printf 'nc + sync %.0f MB/s' "$(rate "$med_nc")")" \
    "$ratio" ">=" 0.9
