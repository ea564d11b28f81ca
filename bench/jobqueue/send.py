#!/usr/bin/env python3
"""send.py PORT LOG COUNT FILE...
Sends each FILE to 127.0.0.1:PORT on a connection of its own, one after another, from one
process (as a client's spooler does), then follows the server's LOG until COUNT jobs have
ended there ("... -> File_..."). Waiting reads only what the log gained, so that neither the
start of a sending program nor a polling one counts against the server. Prints the seconds
from the first send to the last job's end."""
import socket, sys, time

port, log, count, files = int(sys.argv[1]), sys.argv[2], int(sys.argv[3]), sys.argv[4:]
jobs = [open(name, "rb").read() for name in files]
with open(log, "rb") as f:
    f.seek(0, 2)
    t0 = time.monotonic()
    for data in jobs:
        with socket.create_connection(("127.0.0.1", port)) as s:
            s.sendall(data)
    ended, rest = 0, b""
    while ended < count:
        chunk = f.read()
        if not chunk:
            time.sleep(0.01)
            continue
        lines = (rest + chunk).split(b"\n")
        rest = lines.pop()
        ended += sum(1 for line in lines if b" -> File_" in line or b" failed (" in line)
    print("%.3f" % (time.monotonic() - t0))
