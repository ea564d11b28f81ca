#!/bin/bash
# A private mDNS responder: dbus-daemon as a system bus on its own socket under /tmp, and
# avahi-daemon on it, on the loopback interface only (IPv4), as root, no systemd.
# Usage: avahi.sh up|down|restart-avahi STATEDIR; "up" writes STATEDIR/avahi.env
# (DBUS_SYSTEM_BUS_ADDRESS, the pids, AVAHI_HOME); "restart-avahi" stops the daemon and starts it
# again on the same bus, as a package upgrade does. avahi-daemon has one pid file and socket for
# the whole host (/run/avahi-daemon): a daemon that is not ours is left alone and "up" fails.
set -u
MODE=${1:?up or down} STATE=${2:?state folder} ENVFILE=$2/avahi.env
RUNDIR=/run/avahi-daemon
HOSTNAME_TAG=quorvel-test
. "$(dirname "$0")/servicelib.sh"

key() { sed -n "s/^$1=//p" "$ENVFILE"; }

stop() {
    [ -f "$ENVFILE" ] || return 0
    local home
    home=$(key AVAHI_HOME)
    stop_process "$(key AVAHI_PID)"
    stop_process "$(key DBUS_PID)"
    case "$home" in /tmp/quorvel-avahi.*) rm -rf "$home" ;; esac
    rm -f "$ENVFILE"
}

# A daemon left by a run that never said "down" names our host in its process title.
clear_stale() {
    local pid
    pid=$(cat "$RUNDIR/pid" 2>/dev/null) || return 0
    if [ -n "$pid" ] && kill -0 "$pid" 2>/dev/null; then
        if ! tr '\0' ' ' <"/proc/$pid/cmdline" | grep -q "\[$HOSTNAME_TAG\.local\]"; then
            echo "avahi-daemon already runs on this host (pid $pid); not starting another" >&2
            return 1
        fi
        stop_process "$pid"
    fi
    rm -f "$RUNDIR/pid" "$RUNDIR/socket"
}

# start_avahi: starts the daemon and waits until it answers on the bus with lo in use.
start_avahi() {
    [ -f "$HOME_DIR/avahi.log" ] && mv "$HOME_DIR/avahi.log" "$HOME_DIR/avahi.log.old"
    setsid avahi-daemon --no-drop-root --no-chroot -f "$HOME_DIR/avahi-daemon.conf" </dev/null \
        >"$HOME_DIR/avahi.log" 2>&1 &
    AVAHI_PID=$!
    for _ in $(seq 100); do
        kill -0 "$AVAHI_PID" 2>/dev/null || return 1
        grep -q "Server startup complete" "$HOME_DIR/avahi.log" &&
            timeout 5 avahi-browse -at >/dev/null 2>&1 && break
        sleep 0.1
    done
    grep -q "New relevant interface lo.IPv4" "$HOME_DIR/avahi.log"
}

[ "$MODE" = down ] && { stop; exit 0; }
if [ "$MODE" = restart-avahi ]; then
    HOME_DIR=$([ -f "$ENVFILE" ] && key AVAHI_HOME)
    [ -n "$HOME_DIR" ] || { echo "avahi is not up" >&2; exit 1; }
    DBUS_SYSTEM_BUS_ADDRESS=$(key DBUS_SYSTEM_BUS_ADDRESS)
    export DBUS_SYSTEM_BUS_ADDRESS
    stop_process "$(key AVAHI_PID)"
    start_avahi || { cat "$HOME_DIR/avahi.log" >&2; exit 1; }
    sed -i "s/^AVAHI_PID=.*/AVAHI_PID=$AVAHI_PID/" "$ENVFILE"
    exit 0
fi
[ "$MODE" = up ] || { echo "usage: $0 up|down|restart-avahi STATEDIR" >&2; exit 2; }

mkdir -p "$STATE"
stop
clear_stale || exit 1
HOME_DIR=$(mktemp -d /tmp/quorvel-avahi.XXXXXX)
chmod 755 "$HOME_DIR"
SOCKET=$HOME_DIR/system_bus_socket
# A system bus where root may own Avahi's name and anyone may talk to it.
cat >"$HOME_DIR/bus.conf" <<EOF
<busconfig>
  <type>system</type>
  <listen>unix:path=$SOCKET</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <deny own="*"/>
    <allow send_destination="org.freedesktop.DBus"/>
    <allow send_destination="org.freedesktop.Avahi"/>
    <allow receive_sender="org.freedesktop.Avahi"/>
    <allow send_requested_reply="true"/>
    <allow receive_requested_reply="true"/>
  </policy>
  <policy user="root"><allow own="org.freedesktop.Avahi"/></policy>
</busconfig>
EOF
# avahi takes lo for its LOOPBACK flag, MULTICAST or not.
printf '%s\n' '[server]' "host-name=$HOSTNAME_TAG" allow-interfaces=lo use-ipv6=no enable-dbus=yes \
    '[wide-area]' enable-wide-area=no '[publish]' publish-hinfo=no publish-workstation=no \
    >"$HOME_DIR/avahi-daemon.conf"

export DBUS_SYSTEM_BUS_ADDRESS=unix:path=$SOCKET
setsid dbus-daemon --config-file="$HOME_DIR/bus.conf" --nofork --nopidfile </dev/null \
    >"$HOME_DIR/dbus.log" 2>&1 &
DBUS_PID=$!
for _ in $(seq 100); do [ -S "$SOCKET" ] && break; sleep 0.05; done

if start_avahi && timeout 5 avahi-browse -at >/dev/null 2>&1; then
    printf '%s\n' "DBUS_SYSTEM_BUS_ADDRESS=$DBUS_SYSTEM_BUS_ADDRESS" "DBUS_PID=$DBUS_PID" \
        "AVAHI_PID=$AVAHI_PID" "AVAHI_HOME=$HOME_DIR" "AVAHI_HOST=$HOSTNAME_TAG.local" >"$ENVFILE"
    echo "avahi-daemon on lo (pid $AVAHI_PID), bus $DBUS_SYSTEM_BUS_ADDRESS (pid $DBUS_PID)"
    exit 0
fi
echo "could not start avahi-daemon on lo; see $HOME_DIR" >&2
cat "$HOME_DIR/"*.log >&2 2>/dev/null
stop_process "$AVAHI_PID"
stop_process "$DBUS_PID"
exit 1
