#!/bin/bash
# A private nginx WebDAV share over https (dav, dav-ext, Basic auth) on 127.0.0.1, its certificate
# signed by a CA the fixture makes (DAV_CA). Usage: nginx-tls.sh up|down STATEDIR; see dav_share.
set -u
. "$(dirname "$0")/servicelib.sh"
start_server() { nginx -c "$1/nginx-tls.conf" -p "$1/" -e "$1/logs/error.log" && wait_pid "$1/nginx.pid"; }
dav_share "${1:?up or down}" "${2:?state folder}" nginx-tls nginx-dav-tls.conf.in https
