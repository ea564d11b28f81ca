#!/usr/bin/env bash
# IPP beside 9100: a 10-page PDF sent by ipptool's Print-Job, from the start of the request to
# the job's completed state (its output made), against the same PDF sent to port 9100, from
# the connection's start to the job's line in the log. One headless Quorvel takes both; runs
# alternate. Goal: IPP at most 1.2 x 9100 (medians).
set -euo pipefail
build=$1
bin="$build/src/quorvel"
runs=${IPP_RUNS:-9}
. "$(dirname "$0")/../lib.sh"
start_work /tmp/quorvel-ipp.XXXXXX

for i in $(seq 10); do
    printf '/Helvetica findfont 24 scalefont setfont 72 700 moveto (Page %d of 10) show\n' "$i"
    printf '0 1 60 { /y exch def 72 650 y 9 mul sub moveto (Line ) show } for showpage\n'
done | gs -q -dBATCH -dNOPAUSE -sDEVICE=pdfwrite -sOutputFile="$work/ten.pdf" -
cat >"$work/print.test" <<'TEST'
{ NAME "Print-Job" OPERATION Print-Job
  GROUP operation-attributes-tag
  ATTR charset attributes-charset utf-8
  ATTR naturalLanguage attributes-natural-language en
  ATTR uri printer-uri $uri
  ATTR name requesting-user-name bench
  ATTR mimeMediaType document-format application/pdf
  FILE $filename
  STATUS successful-ok
  STATUS server-error-busy REPEAT-MATCH
  EXPECT job-id }
{ NAME "Wait" OPERATION Get-Job-Attributes DELAY "0,0.005"
  GROUP operation-attributes-tag
  ATTR charset attributes-charset utf-8
  ATTR naturalLanguage attributes-natural-language en
  ATTR uri printer-uri $uri
  ATTR integer job-id $job-id
  STATUS successful-ok
  EXPECT job-state WITH-VALUE >6 REPEAT-NO-MATCH
  EXPECT job-state WITH-VALUE 9 }
TEST

port=$(freeport) ipp=$(freeport)
QUORVEL_SETTINGS_DIR="$work" "$bin" --headless --port "$port" --ipp-port "$ipp" \
    --program-folder "$work" --output pdf >"$work/log" 2>&1 &
pids+=($!)
for _ in $(seq 200); do grep -q "IPP printer" "$work/log" && break; sleep 0.05; done
grep -q "IPP printer" "$work/log" || { echo "no IPP printer:" >&2; cat "$work/log" >&2; exit 1; }

# send9100: seconds from connecting to the log line of the Nth job ("... 10 pages -> ...").
send9100() {
    python3 - "$port" "$work/ten.pdf" "$work/log" "$1" <<'PY'
import socket, sys, time
port, path, log, n = int(sys.argv[1]), sys.argv[2], sys.argv[3], int(sys.argv[4])
data = open(path, "rb").read()
t0 = time.monotonic()
s = socket.create_connection(("127.0.0.1", port)); s.sendall(data); s.close()
with open(log, "rb") as f:
    while True:
        if f.read().count(b"10 pages -> ") >= n:
            break
        f.seek(0); time.sleep(0.002)
print("%.4f" % (time.monotonic() - t0))
PY
}
ipp_t=() raw_t=() jobs=0
for _ in $(seq "$runs"); do
    t0=$(now)
    ipptool -T 60 -f "$work/ten.pdf" "ipp://127.0.0.1:$ipp/ipp/print" "$work/print.test" >/dev/null
    ipp_t+=("$(echo "$(now) - $t0" | bc -l)")
    jobs=$((jobs + 2))
    raw_t+=("$(send9100 "$jobs")")
    sleep 0.2
done
[ "$(grep -c '10 pages -> ' "$work/log")" = "$jobs" ] || { echo "jobs lost:" >&2; cat "$work/log" >&2; exit 1; }
mi=$(median "${ipp_t[@]}") mr=$(median "${raw_t[@]}")
ratio=$(echo "$mi / $mr" | bc -l)
printf 'ipp: 10-page PDF, median of %d runs each\n' "$runs"
printf '  port 9100, connect -> logged : %7.3f s\n' "$mr"
printf '  IPP Print-Job -> completed   : %7.3f s   ratio %.2f (goal <= 1.2)\n' "$mi" "$ratio"
row "IPP Print-Job, 10-page PDF, to completed" "$(printf '%.3f s' "$mi")" \
    "$(printf '9100 %.3f s' "$mr")" "$ratio" "<=" 1.2
