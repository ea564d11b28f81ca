#!/bin/bash
# A private CUPS scheduler (own folder under /tmp, socket and 127.0.0.1 port, no systemd) with
# queues QuorvelPDF (cups-pdf, default), QuorvelFile and QuorvelReject (refuses jobs).
# Usage: cups.sh up|down STATEDIR; "up" writes the keys below into STATEDIR/cups.env.
set -u
MODE=${1:?up or down} STATE=${2:?state folder} ENVFILE=$2/cups.env
. "$(dirname "$0")/servicelib.sh"

stop() {
    [ -f "$ENVFILE" ] || return 0
    local home pdfconf
    home=$(sed -n 's/^CUPS_HOME=//p' "$ENVFILE") pdfconf=$(sed -n 's/^CUPS_PDF_CONF=//p' "$ENVFILE")
    stop_process "$(sed -n 's/^CUPS_PID=//p' "$ENVFILE")"
    case "$pdfconf" in /etc/cups/cups-pdf-quorvel*.conf) rm -f "$pdfconf" ;; esac
    case "$home" in /tmp/quorvel-cups.*) rm -rf "$home" ;; esac
    rm -f "$ENVFILE"
}

[ "$MODE" = down ] && { stop; exit 0; }
[ "$MODE" = up ] || { echo "usage: $0 up|down STATEDIR" >&2; exit 2; }

mkdir -p "$STATE"
stop
HOME_DIR=$(mktemp -d /tmp/quorvel-cups.XXXXXX)
TAG=quorvel${HOME_DIR##*.}
chmod 755 "$HOME_DIR"
mkdir -p "$HOME_DIR/conf/ppd" "$HOME_DIR/logs" "$HOME_DIR/cache" "$HOME_DIR/state/certs" \
    "$HOME_DIR/spool/tmp" "$HOME_DIR/pdf" "$HOME_DIR/file"
chown root:lp "$HOME_DIR/spool" "$HOME_DIR/spool/tmp" "$HOME_DIR/cache"
chmod 0710 "$HOME_DIR/spool"
chmod 1770 "$HOME_DIR/spool/tmp"
chmod 0770 "$HOME_DIR/cache"
chmod 1777 "$HOME_DIR/pdf" "$HOME_DIR/file"
SOCKET=$HOME_DIR/cups.sock
sed "s|@HOME@|$HOME_DIR|g" "$(dirname "$0")/cups-files.conf.in" >"$HOME_DIR/conf/cups-files.conf"
# cups-pdf reads its settings only from /etc/cups/cups-pdf-NAME.conf.
PDFCONF=/etc/cups/cups-pdf-$TAG.conf
sed "s|@HOME@|$HOME_DIR|g" "$(dirname "$0")/cups-pdf.conf.in" >"$PDFCONF"

export CUPS_SERVER=$SOCKET
for attempt in $(seq 20); do
    PORT=$((20000 + (RANDOM % 30000)))
    ss -Htln | awk '{print $4}' | grep -q ":$PORT\$" && continue
    sed -e "s|@SOCKET@|$SOCKET|g" -e "s|@PORT@|$PORT|g" "$(dirname "$0")/cupsd.conf.in" \
        >"$HOME_DIR/conf/cupsd.conf"
    rm -f "$SOCKET"
    setsid /usr/sbin/cupsd -f -c "$HOME_DIR/conf/cupsd.conf" -s "$HOME_DIR/conf/cups-files.conf" </dev/null \
        >>"$HOME_DIR/logs/cupsd.out" 2>&1 &
    PID=$!
    # lpstat -r says "is running" only once the scheduler answers.
    for _ in $(seq 100); do
        lpstat -r 2>/dev/null | grep -q "is running" && break
        kill -0 "$PID" 2>/dev/null || break
        sleep 0.1
    done
    if kill -0 "$PID" 2>/dev/null && lpstat -r 2>/dev/null | grep -q "is running"; then
        ok=1
        lpadmin -p QuorvelPDF -v "cups-pdf:/$TAG" -m lsb/usr/cups-pdf/CUPS-PDF_opt.ppd -E || ok=0
        lpadmin -p QuorvelFile -v "file://$HOME_DIR/file/out.prn" \
            -m drv:///sample.drv/generic.ppd -E || ok=0
        # A raw queue on an AppSocket (port 9100 style) printer that a test plays.
        RAWPORT=$((PORT + 1))
        lpadmin -p QuorvelRaw -v "socket://127.0.0.1:$RAWPORT" -m raw -E || ok=0
        lpadmin -p QuorvelReject -v file:///dev/null -m drv:///sample.drv/generic.ppd -E || ok=0
        cupsreject QuorvelReject || ok=0
        lpadmin -d QuorvelPDF || ok=0
        if [ "$ok" = 1 ]; then
            printf '%s\n' "CUPS_SERVER=$SOCKET" "CUPS_PORT=$PORT" "CUPS_WEB=http://127.0.0.1:$PORT" \
                CUPS_PDF_QUEUE=QuorvelPDF CUPS_FILE_QUEUE=QuorvelFile \
                CUPS_REJECT_QUEUE=QuorvelReject "CUPS_PDF_OUT=$HOME_DIR/pdf" \
                CUPS_RAW_QUEUE=QuorvelRaw "CUPS_RAW_PORT=$RAWPORT" \
                "CUPS_FILE_OUT=$HOME_DIR/file/out.prn" "CUPS_PDF_CONF=$PDFCONF" "CUPS_PID=$PID" \
                "CUPS_HOME=$HOME_DIR" >"$ENVFILE"
            echo "CUPS scheduler on $SOCKET and 127.0.0.1:$PORT (pid $PID); PDFs in $HOME_DIR/pdf"
            exit 0
        fi
    fi
    kill "$PID" 2>/dev/null
    wait "$PID" 2>/dev/null
done
echo "could not start cupsd; see $HOME_DIR/logs" >&2
cat "$HOME_DIR/logs/"* >&2 2>/dev/null
rm -f "$PDFCONF"
exit 1
