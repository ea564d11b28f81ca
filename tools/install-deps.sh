#!/usr/bin/env bash
# Installs the Debian packages listed in the given files that are missing.
# Services that the packages bring are not started: the tests start their own.
set -euo pipefail
SUDO=
[ "$(id -u)" -eq 0 ] || SUDO=sudo
wanted=$(cat "$@" | sed 's/#.*//' | tr -s ' \t' '\n' | grep -v '^$' | sort -u)
missing=()
for p in $wanted; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
echo "Installing: ${missing[*]}"
policy=/usr/sbin/policy-rc.d
made_policy=
if [ ! -e "$policy" ]; then
    printf '#!/bin/sh\nexit 101\n' | $SUDO tee "$policy" >/dev/null
    $SUDO chmod +x "$policy"
    made_policy=1
fi
trap '[ -n "$made_policy" ] && $SUDO rm -f "$policy"' EXIT
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO -E apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
