#!/usr/bin/env bash
# Installs the Debian packages listed in the given files that are missing,
# as root directly or through sudo. Services that the packages bring are not
# started: the tests start their own.
set -euo pipefail
as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    else
        sudo "$@"
    fi
}
wanted=$(cat "$@" | sed 's/#.*//' | tr -s ' \t' '\n' | grep -v '^$' | sort -u)
missing=()
for p in $wanted; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
echo "Installing: ${missing[*]}"
if [ "$(id -u)" -ne 0 ] && ! command -v sudo >/dev/null; then
    echo "Missing packages need root: run this as root, or install sudo." >&2
    exit 1
fi
# Keeps the packages' own daemons from starting while they install.
policy=${QUORVEL_POLICY_RC_D:-/usr/sbin/policy-rc.d}
made_policy=
if [ ! -e "$policy" ]; then
    printf '#!/bin/sh\nexit 101\n' | as_root tee "$policy" >/dev/null
    as_root chmod +x "$policy"
    made_policy=1
fi
trap '[ -z "$made_policy" ] || as_root rm -f "$policy"' EXIT
as_root apt-get update -qq
as_root env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
