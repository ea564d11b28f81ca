#!/usr/bin/env python3
"""Sends each file to 127.0.0.1:PORT on a connection of its own, one after another, from one
process (as a client's spooler does), so that no start of a sending program counts against
the server.   send.py PORT FILE..."""
import socket, sys

port = int(sys.argv[1])
for name in sys.argv[2:]:
    with open(name, "rb") as f:
        data = f.read()
    with socket.create_connection(("127.0.0.1", port)) as s:
        s.sendall(data)
