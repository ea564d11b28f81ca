#!/usr/bin/env bash
# Connection list: 12,000 empty connections, one after another, into Quorvel
# headless and with its window shown (offscreen); the last 500 against
# connections 500-999 of the same run (the first 500 warm up).
# Goal: the last 500 take at most 1.5 x as long (a line of the connection
# list costs the same however many came before; it keeps 10,000 lines).
set -euo pipefail
build=$1
bin="$build/src/quorvel"
count=${CONNECTIONS:-12000}
. "$(dirname "$0")/../lib.sh"
start_work /tmp/quorvel-connections.XXXXXX

status=0
for mode in headless shown; do
    port=$(freeport)
    folder="$work/$mode"
    mkdir -p "$folder"
    args=(--port "$port" --program-folder "$folder")
    [ $mode = headless ] && args+=(--headless)
    QT_QPA_PLATFORM=offscreen QUORVEL_SETTINGS_DIR="$folder" "$bin" "${args[@]}" \
        >"$folder/log" 2>&1 &
    pids+=("$!")
    for _ in $(seq 100); do grep -q "Listening to port: $port" "$folder/log" && break; sleep 0.05; done
    # Each client waits for the server's close: its time includes its two lines.
    python3 - "$port" "$count" "$mode" <<'PY' || status=1
import socket, sys, time
port, count, mode, block = int(sys.argv[1]), int(sys.argv[2]), sys.argv[3], 500
times = []
for i in range(count):
    if i % block == 0:
        times.append(time.perf_counter())
    s = socket.create_connection(("127.0.0.1", port))
    s.shutdown(socket.SHUT_WR)
    while s.recv(4096):
        pass
    s.close()
times.append(time.perf_counter())
ref, last = times[2] - times[1], times[-1] - times[-2]
ratio = last / ref
print(f"connections, {mode}: {count} empty ones, one at a time")
print(f"  connections 500-999: {ref * 1000 / block:6.2f} ms each")
print(f"  last 500           : {last * 1000 / block:6.2f} ms each   ratio {ratio:.2f} (goal <= 1.50)")
print("  goal met" if ratio <= 1.5 else "  GOAL MISSED")
print(f"ROW|connection list, {mode}: last 500 of {count} connections|{last * 1000 / block:.2f} ms "
      f"each|connections 500-999 {ref * 1000 / block:.2f} ms each|{ratio:.2f}|≤ 1.5|"
      + ("yes" if ratio <= 1.5 else "no"))
sys.exit(0 if ratio <= 1.5 else 1)
PY
    [ "$(grep -c 'Connection closed' "$folder/log")" -eq "$count" ] || { echo "  connections lost"; status=1; }
done
exit $status
