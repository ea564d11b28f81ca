# A private CUPS scheduler with a cups-pdf queue and a queue that rejects jobs.
quorvel_add_service(cups cups.sh)
