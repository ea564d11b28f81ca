# Sourced by the service scripts.

# stop_process PID: ends a process we started, asking first, then forcing.
stop_process() {
    local pid=${1:-}
    [ -n "$pid" ] && kill -0 "$pid" 2>/dev/null || return 0
    kill "$pid" 2>/dev/null || true
    for _ in $(seq 100); do kill -0 "$pid" 2>/dev/null || return 0; sleep 0.1; done
    kill -9 "$pid" 2>/dev/null || true
}

# tls_files DIR: a private CA (DIR/ca.pem) and a certificate it signed for 127.0.0.1
# (DIR/server.pem, DIR/server.key).
tls_files() {
    mkdir -p "$1" && (
        cd "$1" || exit 1
        local ec=(-newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes)
        openssl req -x509 "${ec[@]}" -keyout ca.key -out ca.pem -days 2 -subj "/CN=Quorvel test CA" \
            -addext "basicConstraints=critical,CA:TRUE" -addext "keyUsage=keyCertSign,cRLSign" &&
            openssl req "${ec[@]}" -keyout server.key -out server.csr \
                -subj "/O=Quorvel test share/CN=127.0.0.1" &&
            openssl x509 -req -in server.csr -CA ca.pem -CAkey ca.key -CAcreateserial -days 2 \
                -out server.pem -extfile <(printf 'subjectAltName=IP:127.0.0.1\n')
    ) >/dev/null 2>&1
}

# dav_share up|down STATEDIR NAME TEMPLATE [https]: a Basic-auth WebDAV share on 127.0.0.1,
# configured from TEMPLATE and started by the caller's start_server HOME (prints the PID); "up"
# writes STATEDIR/NAME.env (DAV_URL ends in "/", DAV_ROOT is the folder behind it). With https:
# certificates from tls_files in HOME/tls, and DAV_CA names the CA's PEM file.
dav_share() {
    local env=$2/$3.env home port pid code scheme=${5:-http}
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
    if [ "$scheme" = https ] && ! tls_files "$home/tls"; then
        echo "could not make the certificates of $3" >&2
        return 1
    fi
    for _ in $(seq 20); do
        port=$(( 20000 + (RANDOM % 30000) ))
        (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null && continue # taken
        sed -e "s|@HOME@|$home|g" -e "s|@PORT@|$port|g" "$(dirname "$0")/$4" >"$home/$3.conf"
        pid=$(start_server "$home" 2>>"$home/logs/start.log") || continue
        # Ready when it answers 401 to a request without credentials.
        for _ in $(seq 100); do
            if [ "$scheme" = https ]; then
                code=$(curl -s --cacert "$home/tls/ca.pem" -o /dev/null -w '%{http_code}' \
                    "https://127.0.0.1:$port/dav/")
            else
                code=$( (exec 3<>"/dev/tcp/127.0.0.1/$port" && printf 'GET /dav/ HTTP/1.0\r\n\r\n' >&3 &&
                    read -r _ c _ <&3 && echo "$c") 2>/dev/null)
            fi
            [ "$code" = 401 ] && break
            sleep 0.05
        done
        if [ -n "$pid" ] && [ "$code" = 401 ]; then
            printf '%s\n' "DAV_URL=$scheme://127.0.0.1:$port/dav/" 'DAV_USER=cloudprint@quorvel.test' \
                'DAV_PASSWORD=dav s3cret' "DAV_ROOT=$home/www/dav" "DAV_PORT=$port" \
                "DAV_PID=$pid" "DAV_HOME=$home" >"$env"
            [ "$scheme" = https ] && echo "DAV_CA=$home/tls/ca.pem" >>"$env"
            echo "$3: WebDAV share at $scheme://127.0.0.1:$port/dav/ (pid $pid)" && return 0
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
