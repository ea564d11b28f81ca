#!/bin/bash
# Pages as the program has Ghostscript make them, with the print (tifflzw) and
# colour image (tiff12nc) options and a private TMPDIR. Usage: pages.sh OUTDIR
set -eu
mkdir -p "$1/tmp"
for n in 1 3; do
    bash "$(dirname "$0")/../../tools/genps.sh" "$n" >"$1/job$n.ps"
    for dev in tifflzw:0 tiff12nc:4; do
        TMPDIR="$1/tmp" gs -dNOPAUSE -dBATCH -r600 -sDEVICE="${dev%:*}" -sPAPERSIZE=letter \
            -dCOLORSCREEN="${dev#*:}" -dDITHERPPI=204 -dQUIET -sOutputFile="$1/${dev%:*}-$n.tif" "$1/job$n.ps"
    done
done
