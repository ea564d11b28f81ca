#!/bin/bash
# A private Apache WebDAV share (mod_dav, Basic auth) on 127.0.0.1 for the cloud tests.
# Usage: webdav.sh up|down STATEDIR; "up" writes STATEDIR/webdav.env (see dav_share).
set -u
. "$(dirname "$0")/servicelib.sh"
start_server() { apache2 -f "$1/webdav.conf" -k start && wait_pid "$1/apache.pid"; }
dav_share "${1:?up or down}" "${2:?state folder}" webdav apache-dav.conf.in
