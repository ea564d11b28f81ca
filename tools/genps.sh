#!/bin/bash
# Writes an N-page Letter PostScript job to stdout, as a client would send it:
# a title, forty lines of text, three colour fills and a grey ramp per page.
# Usage: genps.sh N > job.ps
N=${1:-3}
cat <<HDR
%!PS-Adobe-3.0
%%Creator: quorvel tests
%%Title: test job $N pages
%%Pages: $N
%%BoundingBox: 0 0 612 792
%%DocumentMedia: Letter 612 792 0 () ()
%%EndComments
%%BeginProlog
/F { findfont exch scalefont setfont } bind def
%%EndProlog
HDR
for i in $(seq 1 "$N"); do
    cat <<PG
%%Page: $i $i
<< /PageSize [612 792] >> setpagedevice
gsave
24 /Helvetica-Bold F 72 720 moveto (Test page $i of $N) show
10 /Times-Roman F
0 1 40 { /y exch def 72 680 y 14 mul sub moveto (The quick brown fox jumps over the lazy dog 0123456789 line ) show y 3 string cvs show } for
1 0 0 setrgbcolor 72 72 150 100 rectfill
0 0.6 0 setrgbcolor 250 72 150 100 rectfill
0 0 1 setrgbcolor 428 72 112 100 rectfill
0 1 99 { /k exch def k 99 div setgray 72 k 4.68 mul add 190 4.68 40 rectfill } for
0 setgray 2 setlinewidth 72 240 moveto 540 240 lineto stroke
grestore
showpage
PG
done
echo "%%EOF"
