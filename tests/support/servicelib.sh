# Sourced by the service scripts.

# stop_process PID: ends a process we started, asking first, then forcing.
stop_process() {
    local pid=${1:-}
    [ -n "$pid" ] && kill -0 "$pid" 2>/dev/null || return 0
    kill "$pid" 2>/dev/null || true
    for _ in $(seq 100); do kill -0 "$pid" 2>/dev/null || return 0; sleep 0.1; done
    kill -9 "$pid" 2>/dev/null || true
}

# dav_share up|down STATEDIR NAME TEMPLATE: a Basic-auth WebDAV share on 127.0.0.1, configured
# from TEMPLATE and started by the caller's start_server HOME (prints the PID); "up" writes
# STATEDIR/NAME.env (DAV_URL ends in "/", DAV_ROOT is the folder behind it).
dav_share() {
    local env=$2/$3.env home port pid code
    if [ -f "$env" ]; then
        stop_process "$(sed -n 's/^DAV_PID=//p' "$env")"
        home=$(sed -n 's/^DAV_HOME=//p' "$env")
        case "$home" in /tmp/quorvel-$3.*) rm -rf "$home" ;; esac
        rm -f "$env"
    fi
    [ "$1" = down ] && return 0
    [ "$1" = up ] || { echo "usage: $0 up|down STATEDIR" >&2; return 2; }
    mkdir -p "$2" && home=$(mktemp -d "/tmp/quorvel-$3.XXXXXX") && chmod 755 "$home"
    mkdir -p "$home/www/dav" "$home/lock" "$home/logs" "$home/tmp"
    chown -R www-data:www-data "$home/www" "$home/lock"
    htpasswd -b -c "$home/htpasswd" 'cloudprint@quorvel.test' 'dav s3cret' 2>/dev/null
    chmod 644 "$home/htpasswd"
    for _ in $(seq 20); do
        port=$(( 20000 + (RANDOM % 30000) ))
        (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null && continue # taken
        sed -e "s|@HOME@|$home|g" -e "s|@PORT@|$port|g" "$(dirname "$0")/$4" >"$home/$3.conf"
        pid=$(start_server "$home" 2>>"$home/logs/start.log") || continue
        # Ready when it answers 401 to a request without credentials.
        for _ in $(seq 100); do
            code=$( (exec 3<>"/dev/tcp/127.0.0.1/$port" && printf 'GET /dav/ HTTP/1.0\r\n\r\n' >&3 &&
                read -r _ c _ <&3 && echo "$c") 2>/dev/null)
            [ "$code" = 401 ] && break
            sleep 0.05
        done
        if [ -n "$pid" ] && [ "$code" = 401 ]; then
            printf '%s\n' "DAV_URL=http://127.0.0.1:$port/dav/" 'DAV_USER=cloudprint@quorvel.test' \
                'DAV_PASSWORD=dav s3cret' "DAV_ROOT=$home/www/dav" "DAV_PORT=$port" \
                "DAV_PID=$pid" "DAV_HOME=$home" >"$env"
            echo "$3: WebDAV share at http://127.0.0.1:$port/dav/ (pid $pid)" && return 0
        fi
        stop_process "$pid"
    done
    echo "could not start $3; see $home/logs" >&2
    cat "$home/logs/"*.log >&2 2>/dev/null
    return 1
}

# wait_pid FILE: prints the PID a daemon writes to FILE (up to 5 s).
wait_pid() {
    for _ in $(seq 100); do [ -s "$1" ] && break; sleep 0.05; done
    cat "$1" 2>/dev/null
}
