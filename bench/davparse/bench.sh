#!/bin/bash
# Parsing a 10,000-entry PROPFIND answer, beside xmllint --stream on the same file.
# Usage: bench.sh BUILD_DIR        Goal: at most 2 x xmllint's parse time.
set -eu
BUILD=${1:?build folder}
BIN=$BUILD/bench/davparse/davparse_bench
[ -x "$BIN" ] || { echo "davparse: $BIN not built" >&2; exit 1; }
command -v xmllint > /dev/null || { echo "davparse: xmllint missing (libxml2-utils)" >&2; exit 1; }
WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT
ENTRIES=10000
RUNS=7
"$BIN" generate "$WORK/listing.xml" $ENTRIES
echo '<a/>' > "$WORK/tiny.xml"
xmllint --stream --noout "$WORK/listing.xml" # well-formed, or stop here

# Best wall time of RUNS runs of a command, in ms.
best_ms() {
    local best=""
    for _ in $(seq $RUNS); do
        local t0 t1 ms
        t0=$(date +%s%N)
        "$@" > /dev/null
        t1=$(date +%s%N)
        ms=$(( (t1 - t0) / 1000 ))
        if [ -z "$best" ] || [ "$ms" -lt "$best" ]; then best=$ms; fi
    done
    awk -v us="$best" 'BEGIN { printf "%.2f", us / 1000 }'
}

LINT_FULL=$(best_ms xmllint --stream --noout "$WORK/listing.xml")
LINT_START=$(best_ms xmllint --stream --noout "$WORK/tiny.xml")
LINT=$(awk -v a="$LINT_FULL" -v b="$LINT_START" 'BEGIN { d = a - b; if (d < 0.01) d = 0.01; printf "%.2f", d }')
read -r OURS COUNT < <("$BIN" parse "$WORK/listing.xml" $RUNS)
[ "$COUNT" = "$ENTRIES" ] || { echo "davparse: parsed $COUNT entries, expected $ENTRIES" >&2; exit 1; }
read -r QT _ < <("$BIN" parse "$WORK/listing.xml" $RUNS qt)
SIZE=$(stat -c %s "$WORK/listing.xml")
RATIO=$(awk -v a="$OURS" -v b="$LINT" 'BEGIN { printf "%.2f", a / b }')
VERDICT=$(awk -v r="$RATIO" 'BEGIN { print (r <= 2.0) ? "goal met" : "GOAL MISSED" }')
echo "davparse: $ENTRIES-entry multistatus ($SIZE bytes), best of $RUNS"
echo "  listing parser (entries, dates):  $OURS ms"
echo "  xmllint --stream --noout:         $LINT ms (process $LINT_FULL ms less start-up $LINT_START ms)"
echo "  (same walk over QXmlStreamReader: $QT ms, for comparison)"
echo "  ratio $RATIO (goal <= 2.00): $VERDICT"
. "$(dirname "$0")/../lib.sh"
row "WebDAV listing, $ENTRIES entries" "$OURS ms" "xmllint $LINT ms" "$RATIO" "<=" 2
