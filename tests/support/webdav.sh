#!/bin/bash
# A private Apache WebDAV share (mod_dav, Basic auth) on 127.0.0.1 for the cloud tests.
# Usage: webdav.sh up|down STATEDIR
# "up" writes STATEDIR/webdav.env: DAV_URL (ends in "/"), DAV_USER, DAV_PASSWORD,
# DAV_ROOT (the folder behind DAV_URL), DAV_PORT, DAV_PID.
# A backslash in a request path separates levels, as on the Windows servers the
# program was made for; Apache alone would store it as part of a name.
set -u
MODE=${1:?up or down}
STATE=${2:?state folder}
ENVFILE=$STATE/webdav.env

. "$(dirname "$0")/servicelib.sh"

stop() {
    [ -f "$ENVFILE" ] || return 0
    local pid root
    pid=$(sed -n 's/^DAV_PID=//p' "$ENVFILE")
    root=$(sed -n 's/^DAV_HOME=//p' "$ENVFILE")
    stop_process "$pid"
    case "$root" in /tmp/quorvel-webdav.*) rm -rf "$root" ;; esac
    rm -f "$ENVFILE"
}

if [ "$MODE" = down ]; then
    stop
    exit 0
fi
[ "$MODE" = up ] || { echo "usage: $0 up|down STATEDIR" >&2; exit 2; }

mkdir -p "$STATE"
stop
HOME_DIR=$(mktemp -d /tmp/quorvel-webdav.XXXXXX)
chmod 755 "$HOME_DIR"
mkdir -p "$HOME_DIR/www/dav" "$HOME_DIR/lock" "$HOME_DIR/logs"
chown -R www-data:www-data "$HOME_DIR/www" "$HOME_DIR/lock"
USER_NAME='cloudprint@quorvel.test'
PASSWORD='dav s3cret'
htpasswd -b -c "$HOME_DIR/htpasswd" "$USER_NAME" "$PASSWORD" 2>/dev/null
chmod 644 "$HOME_DIR/htpasswd"

write_conf() {
    sed -e "s|@HOME@|$HOME_DIR|g" -e "s|@PORT@|$1|g" "$(dirname "$0")/apache-dav.conf.in" \
        >"$HOME_DIR/apache.conf"
}

# The status code of GET /dav/ without credentials ("" when nothing answers).
status_of() {
    (
        exec 3<>"/dev/tcp/127.0.0.1/$1" || exit 0
        printf 'GET /dav/ HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n' >&3
        read -r _ code _ <&3
        echo "$code"
    ) 2>/dev/null
}

for _ in $(seq 20); do
    PORT=$(( 20000 + (RANDOM % 30000) ))
    # Taken when something answers there already.
    (exec 3<>"/dev/tcp/127.0.0.1/$PORT") 2>/dev/null && continue
    write_conf "$PORT"
    rm -f "$HOME_DIR/apache.pid"
    if apache2 -f "$HOME_DIR/apache.conf" -k start 2>>"$HOME_DIR/logs/start.log"; then
        for _ in $(seq 100); do [ -s "$HOME_DIR/apache.pid" ] && break; sleep 0.05; done
        PID=$(cat "$HOME_DIR/apache.pid" 2>/dev/null)
        # Ready when it answers (401 without credentials).
        for _ in $(seq 100); do
            code=$(status_of "$PORT")
            [ "$code" = 401 ] && break
            sleep 0.05
        done
        if [ -n "$PID" ] && [ "$code" = 401 ]; then
            {
                echo "DAV_URL=http://127.0.0.1:$PORT/dav/"
                echo "DAV_USER=$USER_NAME"
                echo "DAV_PASSWORD=$PASSWORD"
                echo "DAV_ROOT=$HOME_DIR/www/dav"
                echo "DAV_PORT=$PORT"
                echo "DAV_PID=$PID"
                echo "DAV_HOME=$HOME_DIR"
            } > "$ENVFILE"
            echo "WebDAV share at http://127.0.0.1:$PORT/dav/ (pid $PID)"
            exit 0
        fi
        [ -n "$PID" ] && kill "$PID" 2>/dev/null
        sleep 0.2
    fi
done
echo "could not start Apache; see $HOME_DIR/logs" >&2
cat "$HOME_DIR/logs/"*.log >&2 2>/dev/null
exit 1
