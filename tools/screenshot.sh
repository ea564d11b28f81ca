#!/usr/bin/env bash
# Runs the real program on a private Xvfb display and keeps a screenshot of
# its main window: screenshot.sh QUORVEL_BINARY OUTDIR
set -euo pipefail
bin=$1
out=$2
mkdir -p "$out"
work=$(mktemp -d)
pids=()
cleanup() {
    for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
    for p in "${pids[@]}"; do wait "$p" 2>/dev/null || true; done
    rm -rf "$work"
}
trap cleanup EXIT

display=
for n in $(seq 90 140); do
    if [ ! -e /tmp/.X11-unix/X$n ] && [ ! -e /tmp/.X$n-lock ]; then display=$n; break; fi
done
[ -n "$display" ] || { echo "no free display"; exit 1; }
Xvfb ":$display" -screen 0 1280x900x24 -nolisten tcp >"$work/xvfb.log" 2>&1 &
pids+=($!)
for _ in $(seq 300); do xdpyinfo -display ":$display" >/dev/null 2>&1 && break; sleep 0.1; done
export DISPLAY=":$display"
unset QT_QPA_PLATFORM

port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])')
QUORVEL_SETTINGS_DIR="$work/settings" "$bin" --port "$port" --program-folder "$work" \
    >"$work/quorvel.log" 2>&1 &
pids+=($!)

win=
for _ in $(seq 300); do
    win=$(xdotool search --name '^Quorvel$' 2>/dev/null | head -n1 || true)
    [ -n "$win" ] && break
    sleep 0.1
done
[ -n "$win" ] || { echo "the main window did not appear"; cat "$work/quorvel.log"; exit 1; }
for _ in $(seq 100); do grep -q "Listening to port: $port" "$work/quorvel.log" && break; sleep 0.1; done
grep -q "Listening to port: $port" "$work/quorvel.log" || { cat "$work/quorvel.log"; exit 1; }
# A capture taken before the window is painted is blank: try again a little later.
colours=0
for _ in $(seq 10); do
    sleep 1
    import -window "$win" "$out/main-window.png" || continue
    colours=$(convert "$out/main-window.png" -format '%k' info:)
    [ "$colours" -gt 8 ] && break
done
echo "main window captured: $out/main-window.png ($colours colours)"
[ "$colours" -gt 8 ] || { cat "$work/quorvel.log"; exit 1; }
