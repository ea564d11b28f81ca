#!/usr/bin/env bash
# The .deb unpacked into a private root: its files, its checks, and its program
# taking a job into the user's data folder.  installed.sh SOURCE_DIR BUILD_DIR
set -euo pipefail
t=$(mktemp -d); pid=
trap '[ -z "$pid" ] || kill "$pid"; rm -rf "$t"' EXIT
fail() { echo "FAIL: $*"; [ ! -f "$t/log" ] || cat "$t/log"; exit 1; }
cpack -G DEB --config "$2/CPackConfig.cmake" -B "$t/pack" >"$t/cpack.log" 2>&1 || fail "cpack: $(cat "$t/cpack.log")"
deb=$(echo "$t"/pack/quorvel_*.deb)
lintian --fail-on error,warning "$deb" 2>/dev/null || fail lintian
dpkg-deb -x "$deb" "$t/root" && r=$t/root/usr
for p in ghostscript libqt6core6 libqt6widgets6 libqt6network6 libqt6printsupport6 \
    libtiff6 libturbojpeg0 libcups2 libqt6keychain1 libqt6sql6-sqlite; do
    dpkg-deb -f "$deb" Depends | grep -qw "$p" || fail "Depends lacks $p"
done
[ "$(dpkg-deb -f "$deb" Recommends)" = "smbclient, libgxps-utils, libsecret-1-0" ] ||
    fail "Recommends is not smbclient, libgxps-utils, libsecret-1-0"
for s in 16 32 48 64 128 256; do
    [ "$(identify -format %wx%h "$r/share/icons/hicolor/${s}x$s/apps/quorvel.png")" = "${s}x$s" ] || fail "icon $s"
done
out=$(desktop-file-validate "$r/share/applications/quorvel.desktop") && [ -z "$out" ] || fail "desktop entry: $out"
grep -q '^Icon=quorvel$' "$r/share/applications/quorvel.desktop" || fail "desktop entry icon"
unit=$r/lib/systemd/user/quorvel.service
[ "$(grep -cxE 'ExecStart=/usr/bin/quorvel --headless|Restart=on-failure|WantedBy=default.target' \
    "$unit")" = 3 ] || fail "ExecStart, Restart or WantedBy"
if command -v systemd-analyze >/dev/null; then
    sed "s|=/usr/bin/|=$r/bin/|" "$unit" >"$t/quorvel.service"
    out=$(systemd-analyze verify "$t/quorvel.service" 2>&1) && [ -z "$out" ] || fail "unit: $out"
else
    echo "SKIP: no systemd-analyze, the unit is not verified"
fi
export HOME=$t/home XDG_DATA_HOME=$t/home/.local/share XDG_CONFIG_HOME=$t/home/.config \
    XDG_CACHE_HOME=$t/home/.cache XDG_RUNTIME_DIR=$t/home/run
mkdir -m 700 -p "$XDG_RUNTIME_DIR"
port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
jobs=$XDG_DATA_HOME/Quorvel/ImagesPdfExport
"$r/bin/quorvel" --headless --port "$port" >"$t/log" 2>&1 & pid=$!
for _ in $(seq 100); do nc -z 127.0.0.1 "$port" && break; sleep 0.2; done
grep -q "jobs are kept in $jobs" "$t/log" || fail "the log does not name $jobs"
bash "$1/tools/genps.sh" 2 | nc -N 127.0.0.1 "$port"
for _ in $(seq 120); do
    pdfinfo "$jobs"/File_*.pdf 2>/dev/null | grep -q '^Pages: *2$' && break; sleep 0.5
done
pdfinfo "$jobs"/File_*.pdf | grep -q '^Pages: *2$' || fail "no two-page PDF in $jobs"
[ ! -e "$r/bin/ImagesPdfExport" ] || fail "a job folder beside the installed program"
kill "$pid"; wait "$pid" || true; pid=
echo "PASS"
