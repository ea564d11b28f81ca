#!/usr/bin/env bash
# The cloud road: a job sent to a sending installation's port (--output cloud)
# until a receiving installation, started headless with --get-cloud-data once
# the upload is on the share, has its PDF; beside curl doing the same PUT,
# PROPFIND and GET and bare gs converting the same file, against the tests'
# Apache WebDAV share, same run. Medians of the runs.
# Goal: at most 1.3 x the reference.
set -euo pipefail
build=$1
bin="$build/src/quorvel"
probe="$build/bench/dispatch/dispatch_probe"
runs=${CLOUD_RUNS:-9}
pages=${CLOUD_PAGES:-10}
here=$(cd "$(dirname "$0")" && pwd)
. "$here/../lib.sh"
start_work /tmp/quorvel-cloud.XXXXXX
state="$work/state"
bash "$here/../../tests/support/webdav.sh" up "$state" >/dev/null
trap 'for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
      bash "$here/../../tests/support/webdav.sh" down "$state"; rm -rf "$work"' EXIT
davenv() { sed -n "s/^$1=//p" "$state/webdav.env"; } # values may hold blanks
DAV_URL=$(davenv DAV_URL); DAV_USER=$(davenv DAV_USER); DAV_PASSWORD=$(davenv DAV_PASSWORD)
DAV_ROOT=$(davenv DAV_ROOT); DAV_HOME=$(davenv DAV_HOME)
access="$DAV_HOME/logs/access.log"
installation=quorvel-bench
email=printer@example.org
box="CloudPrint/$installation/$email"
mkdir -p "$DAV_ROOT/$box" "$DAV_ROOT/CloudPrint/reference"
chown -R www-data:www-data "$DAV_ROOT/CloudPrint"

job="$work/job.ps"
"$probe" job "$pages" "$job"

# settings NAME (KEY=VALUE lines on stdin): a fresh folder whose settings know the share.
settings() {
    folder="$work/$1"
    rm -rf "$folder"; mkdir -p "$folder"
    { echo '[Quorvel]'
      printf 'CloudBaseUrl=%s\nCloudUser=%s\nCloudPassword=%s\n' "$DAV_URL" "$DAV_USER" "$DAV_PASSWORD"
      cat; } >"$folder/Quorvel.ini"
}

q_times=(); ref_times=(); up_times=()
for i in $(seq "$runs"); do
    # Reference: the same three requests, then the program's own Ghostscript line.
    t=$(python3 "$here/road.py" reference "${DAV_URL}CloudPrint/reference/File_$i.ps" \
        "$DAV_USER" "$DAV_PASSWORD" "$job" "$probe" "$work")
    ref_times+=("$t")
    cmp -s "$job" "$work/fetched.ps" || { echo "cloud: curl fetched another file" >&2; exit 1; }
    rm -f "$DAV_ROOT/CloudPrint/reference/"* "$work/ref.pdf" "$work/fetched.ps"

    # Quorvel: a fresh sender (its buffer keeps each job it uploads), then the receiver.
    settings sender <<INI
ClientUserId1=$installation
ClientServerId1=$email
Selected1=Y
CloudClientUserId=$installation
CloudClientServerId=$email
INI
    port=$(freeport)
    QUORVEL_SETTINGS_DIR="$folder" "$bin" --headless --port "$port" --program-folder "$folder" \
        --output cloud >"$folder/log" 2>&1 &
    sender=$!
    pids+=("$sender")
    for _ in $(seq 500); do grep -qs "Listening to port: $port" "$folder/log" && break; sleep 0.01; done
    settings receiver <<INI
EMailId=$email
UserValidate=$email
InstallationId=$installation
INI
    read -r t up < <(python3 "$here/road.py" quorvel "$port" "$job" "$access" "$folder" \
        "$bin" --headless --port "$(freeport)" --program-folder "$folder" --get-cloud-data)
    q_times+=("$t"); up_times+=("$up")
    kill "$sender"; wait "$sender" 2>/dev/null || true
    uploaded=("$DAV_ROOT/$box"/*)
    cmp -s "$job" "${uploaded[0]}" || { echo "cloud: the share holds another file" >&2; exit 1; }
    rm -f "$DAV_ROOT/$box/"*
    sleep 1 # the next job gets a name of its own
done
ref_med=$(median "${ref_times[@]}")
q_med=$(median "${q_times[@]}")
ratio=$(echo "$q_med / $ref_med" | bc -l)
printf 'cloud road: %d-page job (%d bytes), median of %d runs\n' "$pages" "$(stat -c %s "$job")" "$runs"
printf '  curl PUT + PROPFIND + GET, bare gs : %6.3f s (%s)\n' "$ref_med" "${ref_times[*]}"
printf '  quorvel sender -> receiver PDF     : %6.3f s (%s)   ratio %.2f (goal <= 1.30)\n' \
    "$q_med" "${q_times[*]}" "$ratio"
printf '    of which TCP close -> upload on the share: %.3f s (median)\n' "$(median "${up_times[@]}")"
row "cloud road, $pages-page job to the receiver's PDF" "$(printf '%.3f s' "$q_med")" \
    "$(printf 'curl + gs %.3f s' "$ref_med")" "$ratio" "<=" 1.3
