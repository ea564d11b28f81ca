#!/usr/bin/env bash
# JPEG export: pages per second turning 600 dpi Letter TIFF pages (made by the
# real gs from a generated job, as the dispatch has them made) into
# quality-95 JPEG files, Quorvel's way (image object -> DIB section ->
# TurboJPEG, pages encoded on every core) against ImageMagick's convert on
# the same TIFF, same run. Goal: at least 5 x convert's rate, for 1-bit
# (tifflzw) and for colour (tiff12nc) pages alike.
set -euo pipefail
build=$1
here=$(cd "$(dirname "$0")" && pwd)
genps=$here/../../tools/genps.sh
exporter="$build/bench/jpeg/jpeg_export"
pages=${JPEG_PAGES:-8}
runs=${JPEG_RUNS:-3}
convert=/usr/bin/convert
work=$(mktemp -d /tmp/quorvel-jpeg.XXXXXX)
trap 'rm -rf "$work"' EXIT
. "$(dirname "$0")/../lib.sh"

bash "$genps" "$pages" > "$work/job.ps"
mkdir -p "$work/tmp"
render() { # device screen out
    TMPDIR="$work/tmp" gs -dNOPAUSE -dBATCH -r600 -sDEVICE="$1" -sPAPERSIZE=letter \
        -dCOLORSCREEN="$2" -dDITHERPPI=204 -dQUIET -sOutputFile="$3" "$work/job.ps"
}
render tifflzw 4 "$work/gray.tif"
render tiff12nc 4 "$work/colour.tif"

# Best time of $runs runs of each; every run writes fresh files.
measure_quorvel() { # tiff
    local best= out t n
    for i in $(seq "$runs"); do
        rm -rf "$work/q"; mkdir -p "$work/q"
        t0=$(now)
        out=$("$exporter" "$1" "$work/q/page")
        t=$(echo "$(now) - $t0" | bc -l)
        n=${out%% *}
        [ "$n" = "$pages" ] || { echo "jpeg_export wrote $n of $pages pages" >&2; exit 1; }
        if [ -z "$best" ] || [ "$(echo "$t < $best" | bc -l)" = 1 ]; then best=$t; fi
    done
    echo "$best"
}
measure_convert() { # tiff
    local best= t n
    for i in $(seq "$runs"); do
        rm -rf "$work/m"; mkdir -p "$work/m"
        t0=$(now)
        # One page per run: the system policy caps ImageMagick's pixel cache
        # (1 GiB of disk) below a whole multi-page document at 600 dpi.
        for p in $(seq 0 $((pages - 1))); do
            "$convert" "$1[$p]" -quality 95 "$work/m/page_$p.jpg"
        done
        t=$(echo "$(now) - $t0" | bc -l)
        n=$(ls "$work/m" | wc -l)
        [ "$n" = "$pages" ] || { echo "convert wrote $n of $pages pages" >&2; exit 1; }
        if [ -z "$best" ] || [ "$(echo "$t < $best" | bc -l)" = 1 ]; then best=$t; fi
    done
    echo "$best"
}

status=0
printf 'jpeg export: %d Letter pages at 600 dpi (5100 x 6600), quality 95, best of %d runs\n' \
    "$pages" "$runs"
for kind in gray colour; do
    tq=$(measure_quorvel "$work/$kind.tif")
    tm=$(measure_convert "$work/$kind.tif")
    pq=$(echo "$pages / $tq" | bc -l)
    pm=$(echo "$pages / $tm" | bc -l)
    ratio=$(echo "$pq / $pm" | bc -l)
    label=$([ $kind = gray ] && echo "tifflzw 1-bit" || echo "tiff12nc colour")
    printf '  %-16s ImageMagick convert: %6.2f pages/s (%.2f s)\n' "$label" "$pm" "$tm"
    printf '  %-16s quorvel            : %6.2f pages/s (%.2f s)   ratio %.2f x (goal >= 5.00)\n' \
        "" "$pq" "$tq" "$ratio"
    [ "$(echo "$ratio >= 5" | bc -l)" = 1 ] || status=1
    row "jpeg export, $pages $label pages" "$(printf '%.2f pages/s' "$pq")" \
        "$(printf 'convert %.2f pages/s' "$pm")" "$ratio" ">=" 5
done
[ $status = 0 ] && echo "  goal met" || echo "  GOAL MISSED"
exit $status
