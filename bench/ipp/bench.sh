#!/usr/bin/env bash
# IPP beside 9100: a 10-page PDF sent by ipptool's Print-Job, from the client's start to the
# job's completed state (its output made), against the same PDF sent to port 9100 by nc, from
# the client's start to the job's line in the log. One headless Quorvel takes both; runs
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

port=$(freeport) ipp=$(freeport)
QUORVEL_SETTINGS_DIR="$work" "$bin" --headless --port "$port" --ipp-port "$ipp" \
    --program-folder "$work" --output pdf >"$work/log" 2>&1 &
pids+=($!)
for _ in $(seq 200); do grep -q "IPP printer" "$work/log" && break; sleep 0.05; done
grep -q "IPP printer" "$work/log" || { echo "no IPP printer:" >&2; cat "$work/log" >&2; exit 1; }

# Each job is sent by a client program of its own, timed from its start: nc for port 9100
# (ended by the job's line in the log), ipptool for IPP (ended by the job's completed state).
python3 - "$port" "$ipp" "$work" "$runs" "$(dirname "$0")/../../tests/support/ipp-print.test" \
    >"$work/times" <<'PY'
import subprocess, sys, time
port, ipp, work, runs, test = sys.argv[1], sys.argv[2], sys.argv[3], int(sys.argv[4]), sys.argv[5]
log, pdf = work + "/log", work + "/ten.pdf"
def logged():
    with open(log, "rb") as f:
        return f.read().count(b"10 pages -> ")
jobs = 0
for _ in range(runs):
    t0 = time.monotonic()
    subprocess.run(["ipptool", "-T", "60", "-f", pdf, "-d", "type=application/pdf", "-d",
                    "title=bench", "-d", "poll=0.005", "ipp://127.0.0.1:%s/ipp/print" % ipp,
                    test], check=True, stdout=subprocess.DEVNULL)
    t_ipp = time.monotonic() - t0
    jobs += 2
    time.sleep(0.2)
    t0 = time.monotonic()
    with open(pdf, "rb") as f:
        subprocess.run(["nc", "-N", "127.0.0.1", port], stdin=f, check=True)
    while logged() < jobs:
        time.sleep(0.002)
    print("%.4f %.4f" % (t_ipp, time.monotonic() - t0))
    time.sleep(0.2)
PY
jobs=$((runs * 2))
[ "$(grep -c '10 pages -> ' "$work/log")" = "$jobs" ] || { echo "jobs lost:" >&2; cat "$work/log" >&2; exit 1; }
mapfile -t ipp_t < <(cut -d' ' -f1 "$work/times")
mapfile -t raw_t < <(cut -d' ' -f2 "$work/times")
mi=$(median "${ipp_t[@]}") mr=$(median "${raw_t[@]}")
ratio=$(echo "$mi / $mr" | bc -l)
printf 'ipp: 10-page PDF, median of %d runs each\n' "$runs"
printf '  nc to port 9100 -> logged    : %7.3f s\n' "$mr"
printf '  ipptool Print-Job -> completed : %5.3f s   ratio %.2f (goal <= 1.2)\n' "$mi" "$ratio"
row "IPP Print-Job, 10-page PDF, to completed" "$(printf '%.3f s' "$mi")" \
    "$(printf '9100 %.3f s' "$mr")" "$ratio" "<=" 1.2
