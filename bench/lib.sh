# Helpers shared by the benchmark scripts (sourced).
freeport() { python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])'; }
now() { date +%s.%N; }
# min CURRENT VALUE: the smaller (CURRENT may be empty).
min() { if [ -z "$1" ] || [ "$(echo "$2 < $1" | bc -l)" = 1 ]; then echo "$2"; else echo "$1"; fi; }
median() { printf '%s\n' "$@" | sort -g | awk '{v[NR]=$1} END {print v[int((NR+1)/2)]}'; }

# start_work TEMPLATE: makes $work (removed on exit) and $pids (killed on exit).
start_work() {
    work=$(mktemp -d "$1")
    pids=()
    trap 'for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done; rm -rf "$work"' EXIT
}

# The row protocol: every benchmark prints one line per figure,
#   ROW|benchmark|quorvel|reference|ratio|goal|met
# (met is "yes" or "no"; no field holds "|"), and run.sh gathers them into one table.
# row NAME QUORVEL REFERENCE RATIO OP LIMIT: met when RATIO OP LIMIT holds (OP is <= or >=).
row() {
    local ratio met=no goal
    ratio=$(printf '%.2f' "$4")
    [ "$(echo "$ratio $5 $6" | bc -l)" = 1 ] && met=yes
    goal=$([ "$5" = ">=" ] && echo "≥ $6" || echo "≤ $6")
    printf 'ROW|%s|%s|%s|%s|%s|%s\n' "$1" "$2" "$3" "$ratio" "$goal" "$met"
}

# info_row NAME QUORVEL REFERENCE RATIO: a figure shown for comparison, with no goal of its own.
info_row() {
    printf 'ROW|%s|%s|%s|%.2f|-|-\n' "$1" "$2" "$3" "$4"
}
