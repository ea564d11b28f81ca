#!/bin/bash
# A private nginx WebDAV share (dav, dav-ext, Basic auth) on 127.0.0.1, set up as the README tells
# users (master root, workers www-data). Usage: nginx.sh up|down STATEDIR; see dav_share.
set -u
. "$(dirname "$0")/servicelib.sh"
start_server() { nginx -c "$1/nginx.conf" -p "$1/" -e "$1/logs/error.log" && wait_pid "$1/nginx.pid"; }
dav_share "${1:?up or down}" "${2:?state folder}" nginx nginx-dav.conf.in
