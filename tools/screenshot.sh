#!/usr/bin/env bash
# Runs the real program on a private Xvfb display with a tray host and keeps
# the README's pictures: the main window, the tray icon, the tray menu,
# the cloud server list, the jobs window with sample rows and each page of
# the preferences.
#   screenshot.sh QUORVEL_BINARY OUTDIR
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
fail() { echo "$*" >&2; cat "$work/quorvel.log" >&2 2>/dev/null; exit 1; }

# Xvfb picks a free display itself and writes its number.
exec 5>"$work/display"
Xvfb -displayfd 5 -screen 0 1280x900x24 -nolisten tcp >"$work/xvfb.log" 2>&1 &
pids+=($!)
exec 5>&-
for _ in $(seq 300); do [ -s "$work/display" ] && break; sleep 0.1; done
export DISPLAY=":$(tr -d '\n ' <"$work/display")"
for _ in $(seq 300); do xdpyinfo >/dev/null 2>&1 && break; sleep 0.1; done
xdpyinfo >/dev/null 2>&1 || fail "Xvfb did not start: $(cat "$work/xvfb.log")"
unset QT_QPA_PLATFORM
# A tray host that died at start is started again.
for try in 1 2 3; do
    trayer --edge top --align right --widthtype request --height 32 --SetDockType true \
        --transparent false --tint 0xd0d0d0 >>"$work/trayer.log" 2>&1 &
    pids+=($!)
    for _ in $(seq 100); do xwininfo -name panel >/dev/null 2>&1 && break; sleep 0.1; done
    xwininfo -name panel >/dev/null 2>&1 && break
done
xwininfo -name panel >/dev/null 2>&1 || fail "the tray host did not start: $(cat "$work/trayer.log")"

# One stored cloud server, so that the server list shows a filled row.
mkdir -p "$work/settings"
cat >"$work/settings/Quorvel.ini" <<'INI'
[Quorvel]
ClientUserId1=office-pc
ClientServerId1=alice@example.org
ClientNotes1=Alice's printer at the office
Selected1=Y
CloudClientUserId=office-pc
CloudClientServerId=alice@example.org
NameTemplate={user}/{date}/{title}
INI

port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])')
QUORVEL_SETTINGS_DIR="$work/settings" "$bin" --port "$port" --program-folder "$work" \
    >"$work/quorvel.log" 2>&1 &
pids+=($!)

# visible_window TITLE: the id of the visible window of that title, once it shows.
visible_window() {
    local id=
    for _ in $(seq 300); do
        id=$(xdotool search --onlyvisible --name "^$1\$" 2>/dev/null | head -n1 || true)
        [ -n "$id" ] && break
        sleep 0.1
    done
    [ -n "$id" ] || fail "the window \"$1\" did not appear"
    echo "$id"
}
win=$(visible_window Quorvel)
for _ in $(seq 100); do grep -q "Listening to port: $port" "$work/quorvel.log" && break; sleep 0.1; done
grep -q "Listening to port: $port" "$work/quorvel.log" || fail "the server did not listen"

# capture NAME [import args...]: a capture taken before anything is painted is
# blank, so try again a little later until it has colours.
capture() {
    local name=$1 colours=0
    shift
    for _ in $(seq 10); do
        sleep 1
        import "$@" "$out/$name.png" || continue
        colours=$(convert "$out/$name.png" -format '%k' info:)
        [ "$colours" -gt 8 ] && break
    done
    echo "$name captured: $out/$name.png ($colours colours)"
    [ "$colours" -gt 8 ] || fail "$name stayed blank"
}
capture main-window -window "$win"

# The tray host's panel holds the one icon, at the top right of the screen.
geometry() { xwininfo -name panel | awk -v k="$1" '$0 ~ k {print $NF}'; }
x=$(geometry "Absolute upper-left X:")
w=$(geometry "Width:")
h=$(geometry "Height:")
[ "${w:-0}" -ge 16 ] || fail "no tray icon in the panel"
capture tray-icon -window root -crop "$((w + 160))x$((h + 12))+$((x - 160))+0"
# The right button opens the tray menu below and left of the pointer.
xdotool mousemove "$((x + w / 2))" "$((h / 2))" click 3
capture tray-menu -window root -crop "180x80+$((x + w - 180))+0"

# "Select Cloud Server" is the third control in the tab order.
xdotool key Escape
xdotool windowfocus --sync "$win" key --delay 100 Tab Tab space
capture server-list -window "$(visible_window 'Cloud Server List')"

# Two sample jobs (a second apart: the window's naming gives one name per second) for the jobs
# window, which --jobs opens in the running instance, as --preferences opens the preferences.
for title in "Quarterly report" "Minutes of the meeting"; do
    python3 - "$port" "$title" <<'PY'
import socket, sys
s = socket.create_connection(("127.0.0.1", int(sys.argv[1])))
s.sendall(b"%!PS-Adobe-3.0\n%%Title: " + sys.argv[2].encode() + b"\n%%For: alice\n"
          b"%%EndComments\n/Helvetica 24 selectfont 72 700 moveto (Hello) show showpage\n")
s.close()
PY
    sleep 1.1
done
for _ in $(seq 300); do [ "$(grep -c '^Job .* -> ' "$work/quorvel.log")" -ge 2 ] && break; sleep 0.1; done
QUORVEL_SETTINGS_DIR="$work/settings" "$bin" --jobs || fail "--jobs was not taken"
capture jobs -window "$(visible_window 'Quorvel Jobs')"
QUORVEL_SETTINGS_DIR="$work/settings" "$bin" --preferences || fail "--preferences was not taken"
prefs=$(visible_window 'Quorvel Preferences')
for page in receiving conversion file-names after-saving cloud-share; do
    capture "preferences-$page" -window "$prefs"
    xdotool windowfocus --sync "$prefs" key ctrl+Tab
done
