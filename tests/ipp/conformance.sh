#!/bin/bash
# Runs ipptool's stock IPP conformance files against a running printer and checks every failing
# test against a list of known failures. Usage: conformance.sh URL KNOWN_FAILURES_FILE [WORKDIR]
# Exit status: 0 all failures listed, 1 a failure not listed (or a run cut short), 2 bad setup.
# IPP_FILES (names in the ipptool folder), IPP_FILE_TIMEOUT (seconds) and IPPTOOL_DIR override the defaults.
set -u
export LC_ALL=C
[ $# -ge 2 ] || { echo "usage: $0 PRINTER_URL KNOWN_FAILURES_FILE [WORKDIR]" >&2; exit 2; }
uri=$1 known=$(realpath "$2" 2>/dev/null)
[ -r "$known" ] || { echo "cannot read the known-failures file $2" >&2; exit 2; }
bad=$(grep -v -e '^[[:space:]]*#' -e '^[[:space:]]*$' "$known" | awk -F'\t' 'NF < 3 || $3 == ""')
[ -z "$bad" ] || { printf 'lines of %s need FILE.test<TAB>test name<TAB>reason:\n%s\n' "$known" "$bad" >&2; exit 2; }
work=${3:-$(mktemp -d /tmp/quorvel-ipp.XXXXXX)}
mkdir -p "$work" && work=$(realpath "$work") && cd "$work" || { echo "cannot use $work" >&2; exit 2; }
suite=${IPPTOOL_DIR:-/usr/share/cups/ipptool}
read -ra files <<<"${IPP_FILES:-ipp-1.1.test ipp-2.0.test ipp-everywhere.test}"
limit=${IPP_FILE_TIMEOUT:-1500} # seconds for one .test file; a job waits while earlier ones print
for t in ipptool gs convert od timeout; do command -v $t >/dev/null || { echo "$t is not installed" >&2; exit 2; }; done
for f in "${files[@]}"; do [ -r "$suite/$f" ] || { echo "no $suite/$f" >&2; exit 2; }; done
gsx=(gs -q -dSAFER -dBATCH -dNOPAUSE --permit-file-read="$work/")

# mk OUT COMMAND...: runs COMMAND with @OUT@ as a temporary name unless OUT is already there,
# so an interrupted run never leaves half a sample behind for the next one to reuse.
mk() {
    local out=$1; shift
    [ -s "$out" ] || { mkdir -p "$(dirname "$out")" && "${@//@OUT@/$out.part}" >>make.log 2>&1 && mv "$out.part" "$out"; } ||
        { rm -f "$out.part"; echo "could not make $work/$out (see $work/make.log)" >&2; return 1; }
}

# What the printer takes decides which raster samples the tests will send.
cat >caps.test <<'EOF'
{
	OPERATION Get-Printer-Attributes
	GROUP operation-attributes-tag
	ATTR charset attributes-charset utf-8
	ATTR naturalLanguage attributes-natural-language en
	ATTR uri printer-uri $uri
	ATTR keyword requested-attributes pwg-raster-document-resolution-supported,pwg-raster-document-type-supported
	STATUS successful-ok
	DISPLAY pwg-raster-document-resolution-supported
	DISPLAY pwg-raster-document-type-supported
}
EOF
caps=$(timeout 60 ipptool -T 20 -c "$uri" caps.test 2>&1) ||
    { echo "the printer at $uri does not answer Get-Printer-Attributes: $caps" >&2; exit 2; }
caps=$(tail -n +2 <<<"$caps")

# Sources: text and graphics over PAGES pages, and a photo-like JPEG placed on 4x6 in. media.
cat >doc.ps <<'EOF'
/PAGES where { pop } { /PAGES 3 def } ifelse /Helvetica findfont 20 scalefont setfont
1 1 PAGES { /p exch def currentpagedevice /PageSize get aload pop /h exch def /w exch def
  0 setgray 54 h 90 sub moveto (Quorvel sample page ) show p 3 string cvs show ( of ) show PAGES 3 string cvs show
  0 1 9 { /i exch def i 9 div setgray 54 i 45 mul add h 200 sub 40 40 rectfill } for
  [[0.85 0.1 0.1] [0.1 0.6 0.2] [0.1 0.2 0.85]] { aload pop setrgbcolor 54 200 150 150 rectfill 166 0 translate } forall
  -498 0 translate 0 setgray 2 setlinewidth 54 100 moveto w 54 sub h 250 sub lineto stroke showpage } for
EOF
cat >photo4x6.ps <<'EOF'
<< /PageSize [288 432] >> setpagedevice 288 432 scale
GRAY { /DeviceGray [0 1] } { /DeviceRGB [0 1 0 1 0 1] } ifelse /dec exch def setcolorspace
<< /ImageType 1 /Width 600 /Height 900 /BitsPerComponent 8 /Decode dec
   /ImageMatrix [600 0 0 -900 0 900] /DataSource JPEG (r) file /DCTDecode filter >> image showpage
EOF
ok=1
mk color.jpg convert -size 600x900 -density 150 -units PixelsPerInch gradient:gold-navy \
    -fill white -draw 'circle 300,450 300,250' -fill firebrick -draw 'rectangle 80,80 520,200' jpg:@OUT@ || ok=0
mk gray.jpg convert color.jpg -colorspace Gray jpg:@OUT@ || ok=0
for size in letter a4; do
    mk document-$size.pdf "${gsx[@]}" -sPAPERSIZE=$size -dFIXEDMEDIA -sDEVICE=pdfwrite -o @OUT@ doc.ps || ok=0
    mk onepage-$size.pdf "${gsx[@]}" -sPAPERSIZE=$size -dFIXEDMEDIA -dPAGES=1 -sDEVICE=pdfwrite -o @OUT@ doc.ps || ok=0
    mk document-$size.ps "${gsx[@]}" -sDEVICE=ps2write -o @OUT@ document-$size.pdf || ok=0
done
for c in color gray; do
    mk $c.jpg-4x6.pdf "${gsx[@]}" -sJPEG="$work/$c.jpg" -dGRAY=$([ $c = gray ] && echo true || echo false) \
        -sDEVICE=pdfwrite -o @OUT@ photo4x6.ps || ok=0
done
# Raster samples named as the tests name them: DIR/TYPE/BASE-TYPE-RESdpi.pwg, for what the printer takes.
declare -A cspace=([black-1]="3 1" [sgray-8]="18 8" [srgb-8]="19 8" [srgb-16]="19 16" [cmyk-8]="6 8")
declare -A points=([letter]="612 792" [a4]="595 842" [4x6]="288 432")
hdr() { od -An -tu4 --endian=big -j $((4 + $2)) -N "$3" "$1" | xargs; } # PWG page header words
for f in $(grep -ho 'pwg-raster-samples-[0-9]*dpi/[^ ]*\.pwg' "$suite/ipp-everywhere.test" | sort -u); do
    [[ $f =~ ^pwg-raster-samples-([0-9]+)dpi/([a-z0-9-]+)/(.+)-[a-z0-9]+-[a-z0-9]+-[0-9]+dpi\.pwg$ ]] || continue
    res=${BASH_REMATCH[1]} type=${BASH_REMATCH[2]} base=${BASH_REMATCH[3]}
    if ! grep -qw "${res}dpi" <<<"$caps" || ! grep -qw "${type/-/_}" <<<"$caps"; then
        # Never sent (its test skips what the printer does not take), but ipptool stops reading
        # the whole .test file at a FILE line naming a missing file. Empty, so never taken as a sample.
        [ -e "$f" ] || { mkdir -p "${f%/*}" && : >"$f"; }; continue
    fi
    read -r cs bits <<<"${cspace[$type]}"
    mk "$f" "${gsx[@]}" -sDEVICE=pwgraster -r"$res" -dcupsColorSpace="$cs" -dcupsBitsPerColor="$bits" \
        -o @OUT@ "$base.pdf" || { ok=0; continue; }
    want="$res $res ${points[${base##*-}]} $bits $cs"
    got="$(hdr "$f" 276 8) $(hdr "$f" 352 8) $(hdr "$f" 384 4) $(hdr "$f" 400 4)"
    [ "$got" = "$want" ] || { echo "$f: header says '$got', wanted '$want'" >&2; rm -f "$f"; ok=0; }
done
[ $ok = 1 ] || { echo "the sample files could not all be made; see $work/make.log" >&2; exit 2; }
echo "samples in $work: $(find pwg-raster-samples-* -name '*.pwg' -size +0 | wc -l) raster files for: $caps"

# plist -> "PASS|FAIL|SKIP<TAB>name<TAB>errors"; only a test's own keys are capitalised.
results() {
    awk 'function unx(s) { gsub(/<[^>]*>/, "", s); gsub(/&lt;/, "<", s); gsub(/&gt;/, ">", s)
                           gsub(/&quot;/, "\"", s); gsub(/&amp;/, "\\&", s); return s }
         function flush() { if (name != "") print (skip ? "SKIP" : ok ? "PASS" : "FAIL") "\t" name "\t" err; name = "" }
         key == "Name" { flush(); name = unx($0); ok = -1; skip = 0; err = "" }
         key == "Successful" && ok < 0 { ok = ($0 == "<true />") }
         key == "Skipped" { skip = ($0 == "<true />") }
         inerr && /^<\/array>/ { inerr = 0 } inerr && /^<string>/ { err = err (err == "" ? "" : " | ") unx($0) }
         { key = "" } /^<key>[A-Z][A-Za-z]*<\/key>$/ { key = unx($0); inerr = (key == "Errors") }
         END { flush() }' "$1"
}

say() { printf '%s\n' "$@" | tee -a summary.txt; }
rc=0
: >summary.txt; : >failures.tsv
for f in "${files[@]}"; do
    ver=${f#ipp-} && ver=${ver%.test} && [[ $ver =~ ^[0-9.]+$ ]] || ver=2.0 # as each file's usage says
    timeout "$limit" ipptool -T 30 -I -R -X -V "$ver" -f color.jpg "$uri" "$suite/$f" >"$f.plist" 2>"$f.err"
    code=$?
    results "$f.plist" >"$f.tsv"
    awk -F'\t' '{ print "[" $1 "] " $2; if ($3 != "") print "        " $3 }' "$f.tsv" >"$f.txt"
    read -r p x s <<<"$(awk -F'\t' '{ n[$1]++ } END { print n["PASS"]+0, n["FAIL"]+0, n["SKIP"]+0 }' "$f.tsv")"
    say "$f: $p pass, $x fail, $s skip"
    stop=$(sed -n '/^<key>ErrorMessage<\/key>$/{n;s/<[^>]*>//g;p;}' "$f.plist")
    if [ $code = 124 ] || [ -n "$stop" ] || [ $((p + x + s)) = 0 ]; then
        say "  $f did not run to its end (ipptool status $code${stop:+: $stop}; see $work/$f.err)"; rc=1
    fi
    awk -F'\t' -v f="$f" '$1 == "FAIL" { print f "\t" $2 }' "$f.tsv" >>failures.tsv
done
sort -u -o failures.tsv failures.tsv
grep -v '^[[:space:]]*#' "$known" | awk -F'\t' -v run=" ${files[*]} " 'index(run, " " $1 " ") { print $1 "\t" $2 }' |
    sort -u >known.tsv
unlisted=$(comm -23 failures.tsv known.tsv) fixed=$(comm -13 failures.tsv known.tsv)
[ -z "$unlisted" ] || { rc=1; say "failures not in $known:" "$(sed 's/^/  /' <<<"$unlisted")"; }
[ -z "$fixed" ] || say "listed as failing but did not fail now (take them off the list):" "$(sed 's/^/  /' <<<"$fixed")"
say "result: $([ $rc = 0 ] && echo PASS || echo FAIL); details in $work"
exit $rc
