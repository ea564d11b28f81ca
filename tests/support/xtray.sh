#!/usr/bin/env bash
# A private X display (Xvfb) with a tray host (trayer); "up" writes STATEDIR/xtray.env.
# Usage: xtray.sh up|down|kill-trayer|start-trayer STATEDIR (the last two: the tray host only)
set -euo pipefail
cmd=$1 dir=$2/xtray envfile=$2/xtray.env
mkdir -p "$dir"
. "$(dirname "$0")/servicelib.sh"

stop_pid() { [ -f "$1" ] || return 0; stop_process "$(cat "$1")"; rm -f "$1"; }

write_env() {
    printf '%s\n' "DISPLAY=:$(cat "$dir/display")" "XVFB_PID=$(cat "$dir/xvfb.pid")" \
        "TRAYER_PID=$(cat "$dir/trayer.pid" 2>/dev/null || true)" \
        "XTRAY_SCRIPT=$(readlink -f "$0")" >"$envfile"
}

# xprop cannot ask who owns _NET_SYSTEM_TRAY_S0, so look for trayer's window instead.
tray_owner() { DISPLAY=":$(cat "$dir/display")" xwininfo -root -tree 2>/dev/null | grep -qi 'panel\|trayer'; }

start_trayer() {
    # A busy machine may need several seconds; a tray host that died is started again.
    for _ in 1 2 3; do
        DISPLAY=":$(cat "$dir/display")" trayer --edge top --align right --widthtype request --height 32 \
            --SetDockType true --transparent false --tint 0xd0d0d0 >>"$dir/trayer.log" 2>&1 &
        echo $! >"$dir/trayer.pid"
        for _ in $(seq 300); do
            tray_owner && break
            kill -0 "$(cat "$dir/trayer.pid")" 2>/dev/null || break
            sleep 0.1
        done
        tray_owner && break
        stop_pid "$dir/trayer.pid"
    done
    tray_owner || { echo "the tray host did not start"; cat "$dir/trayer.log"; exit 1; }
    sleep 0.3
    write_env
}

case "$cmd" in
up)
    stop_pid "$dir/trayer.pid"
    stop_pid "$dir/xvfb.pid"
    rm -f "$dir/display"
    Xvfb -displayfd 5 -screen 0 1024x768x24 -nolisten tcp 5>"$dir/display" >"$dir/xvfb.log" 2>&1 &
    echo $! >"$dir/xvfb.pid"
    for _ in $(seq 100); do [ -s "$dir/display" ] && break; sleep 0.1; done
    [ -s "$dir/display" ] || { echo "Xvfb did not start"; cat "$dir/xvfb.log"; exit 1; }
    tr -d '\n ' <"$dir/display" >"$dir/display.tmp" && mv "$dir/display.tmp" "$dir/display"
    for _ in $(seq 300); do DISPLAY=":$(cat "$dir/display")" xdpyinfo >/dev/null 2>&1 && break; sleep 0.1; done
    DISPLAY=":$(cat "$dir/display")" xdpyinfo >/dev/null 2>&1 || { echo "Xvfb does not answer"; cat "$dir/xvfb.log"; exit 1; }
    start_trayer
    echo "Xvfb on :$(cat "$dir/display") with trayer $(cat "$dir/trayer.pid")"
    ;;
kill-trayer) stop_pid "$dir/trayer.pid"; write_env ;;
start-trayer) stop_pid "$dir/trayer.pid"; start_trayer ;;
down) stop_pid "$dir/trayer.pid"; stop_pid "$dir/xvfb.pid"; rm -f "$envfile" "$dir/display" ;;
*) echo "usage: $0 up|down|kill-trayer|start-trayer STATEDIR" >&2; exit 2 ;;
esac
