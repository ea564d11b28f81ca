# Sourced by the service scripts.

# stop_process PID: ends a process we started, asking first, then forcing.
stop_process() {
    local pid=${1:-}
    [ -n "$pid" ] && kill -0 "$pid" 2>/dev/null || return 0
    kill "$pid" 2>/dev/null || true
    for _ in $(seq 100); do kill -0 "$pid" 2>/dev/null || return 0; sleep 0.1; done
    kill -9 "$pid" 2>/dev/null || true
}
