#!/usr/bin/env python3
"""Times one trip of the cloud road, so that no shell start-up falls inside the span.
  road.py reference URL USER PASSWORD JOB PROBE OUTDIR
      curl PUT, PROPFIND, GET of JOB at URL, then the program's Ghostscript line (through
      PROBE, which reports gs's own wall time) on the fetched file
  road.py quorvel PORT JOB ACCESSLOG FOLDER RECEIVER...
      sends JOB to the sender on PORT, waits for its PUT in Apache's ACCESSLOG, starts
      RECEIVER... (settings in FOLDER) and waits until FOLDER/ImagesPdfExport holds a
      PDF and no .ps
Prints the seconds taken, then (quorvel) the seconds until the upload was on the share."""
import glob, os, socket, subprocess, sys, time

PROPFIND = ('<?xml version="1.0"?><d:propfind xmlns:d="DAV:"><d:prop><d:getlastmodified/>'
            '<d:getcontentlength/><d:getcontenttype/><d:resourcetype/></d:prop></d:propfind>')


def reference(url, user, password, job, probe, outdir):
    auth = ["-sf", "-u", user + ":" + password]
    folder = url.rsplit("/", 1)[0] + "/"
    fetched, pdf = os.path.join(outdir, "fetched.ps"), os.path.join(outdir, "ref.pdf")
    t0 = time.monotonic()
    subprocess.run(["curl", *auth, "-T", job, "-H", "Content-Type: text/plain", "-o",
                    os.devnull, url], check=True)
    subprocess.run(["curl", *auth, "-X", "PROPFIND", "-H", "Depth: 1", "-H",
                    "Content-Type: text/xml", "-d", PROPFIND, "-o", os.devnull, folder], check=True)
    subprocess.run(["curl", *auth, "-o", fetched, url], check=True)
    curl = time.monotonic() - t0
    out = subprocess.run([probe, "gs", "pdf", pdf, fetched], check=True, capture_output=True)
    print("%.4f" % (curl + float(out.stdout.split()[0])))


def puts(log):
    with open(log) as f:
        return sum(1 for line in f if '"PUT ' in line and (" 201 " in line or " 204 " in line))


def quorvel(port, job, log, folder, receiver):
    data = open(job, "rb").read()
    before = puts(log)
    jobs = os.path.join(folder, "ImagesPdfExport")
    t0 = time.monotonic()
    with socket.create_connection(("127.0.0.1", int(port))) as s:
        s.sendall(data)
    while puts(log) == before:
        time.sleep(0.002)
    uploaded = time.monotonic() - t0
    with open(os.path.join(folder, "log"), "wb") as out:
        p = subprocess.Popen(receiver, stdout=out, stderr=subprocess.STDOUT,
                             env=dict(os.environ, QUORVEL_SETTINGS_DIR=folder))
        while not glob.glob(jobs + "/*.pdf") or glob.glob(jobs + "/*.ps"):
            if p.poll() is not None:
                sys.exit("the receiver ended early; see " + folder + "/log")
            time.sleep(0.002)
        print("%.4f %.4f" % (time.monotonic() - t0, uploaded))
        p.terminate()
        p.wait()


if __name__ == "__main__":
    if sys.argv[1] == "quorvel":
        quorvel(*sys.argv[2:6], sys.argv[6:])
    else:
        reference(*sys.argv[2:8])
