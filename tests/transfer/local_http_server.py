#!/usr/bin/env python3
"""The tests' local web server: serves one folder on 127.0.0.1.

Usage:
  python3 local_http_server.py --root FOLDER [--log FILE]

It binds a free port and prints one line "PORT <n>" on standard output as soon
as it listens (the test reads that line; no waiting for time to pass), then
serves until it is killed or its standard input closes.

GET and HEAD of /<name> answer the file FOLDER/<name> (no folder listing, no
way out of FOLDER), with Content-Length, Last-Modified, Date and
"Accept-Ranges: bytes". A "Range: bytes=a-b" or "bytes=a-" header gets a 206
with Content-Range; a range that starts past the end gets a 416. A missing
file gets a 404 with a small HTML body.

Query words change how the first GET of that exact address is answered (later
requests of the same address are served normally, so that a resumed transfer
completes):
  ?stall=N    send the headers and N bytes of the body, then send nothing more
              (the connection stays open until the client gives up)
  ?drop=N     send the headers and N bytes of the body, then close the
              connection half way
  ?noranges=1 (every request) ignore Range and do not announce ranges
  ?extra=N    (every request) announce the true length but send N bytes more
  ?status=C   (every request) answer status C with an empty body
When a stall or a drop begins, the server prints "STALLED <path>" or
"DROPPED <path>" on standard output, so that a test can wait for it.
With --log, one line per request is appended to FILE: "METHOD PATH RANGE",
RANGE being the Range header or "-".
"""

import argparse
import email.utils
import http.server
import os
import socket
import sys
import threading
import urllib.parse

_once_lock = threading.Lock()
_once_done = set()


def first_time(key):
    with _once_lock:
        if key in _once_done:
            return False
        _once_done.add(key)
        return True


def tell(line):
    with _once_lock:
        sys.stdout.write(line + "\n")
        sys.stdout.flush()


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    root = "."
    log_path = None

    def log_message(self, *args):  # quiet: the tests read the --log file
        pass

    def _log(self):
        if self.log_path:
            with _once_lock, open(self.log_path, "a") as log:
                log.write("%s %s %s\n" % (self.command, self.path, self.headers.get("Range", "-")))

    def do_HEAD(self):
        self._serve(body=False)

    def do_GET(self):
        self._serve(body=True)

    def _serve(self, body):
        self._log()
        parsed = urllib.parse.urlsplit(self.path)
        query = urllib.parse.parse_qs(parsed.query)
        word = lambda name: int(query[name][0]) if name in query else None
        if word("status") is not None:
            self.send_response(word("status"))
            self.send_header("Content-Length", "0")
            self.end_headers()
            return
        name = urllib.parse.unquote(parsed.path).lstrip("/")
        path = os.path.realpath(os.path.join(self.root, name))
        if not name or not path.startswith(self.root + os.sep) or not os.path.isfile(path):
            page = b"<html><body>Not Found</body></html>"
            self.send_response(404)
            self.send_header("Content-Type", "text/html")
            self.send_header("Content-Length", str(len(page)))
            self.end_headers()
            if body:
                self.wfile.write(page)
            return
        size = os.path.getsize(path)
        ranges = word("noranges") is None
        start, end, status = 0, size - 1, 200
        wanted = self.headers.get("Range")
        if ranges and wanted and wanted.startswith("bytes="):
            first, _, last = wanted[6:].split(",")[0].partition("-")
            try:
                start = int(first) if first else max(0, size - int(last))
                end = min(int(last), size - 1) if first and last else size - 1
            except ValueError:
                start, end = 0, size - 1
            if start >= size:
                self.send_response(416)
                self.send_header("Content-Range", "bytes */%d" % size)
                self.send_header("Content-Length", "0")
                self.end_headers()
                return
            status = 206
        length = max(0, end - start + 1)
        self.send_response(status)
        self.send_header("Content-Type", "application/octet-stream")
        self.send_header("Content-Length", str(length))
        self.send_header("Last-Modified", email.utils.formatdate(os.path.getmtime(path), usegmt=True))
        if ranges:
            self.send_header("Accept-Ranges", "bytes")
        if status == 206:
            self.send_header("Content-Range", "bytes %d-%d/%d" % (start, end, size))
        self.end_headers()
        if not body:
            return
        stall, drop, extra = word("stall"), word("drop"), word("extra")
        cut = None
        if stall is not None and first_time(("stall", self.path)):
            cut = ("stall", stall)
        elif drop is not None and first_time(("drop", self.path)):
            cut = ("drop", drop)
        with open(path, "rb") as f:
            f.seek(start)
            left = length if cut is None else min(length, cut[1])
            while left > 0:
                chunk = f.read(min(left, 1 << 16))
                if not chunk:
                    break
                self.wfile.write(chunk)
                left -= len(chunk)
        if extra:
            self.wfile.write(b"\0" * extra)
        self.wfile.flush()
        if cut is None:
            return
        if cut[0] == "drop":
            self.connection.shutdown(socket.SHUT_RDWR)
            self.close_connection = True
            tell("DROPPED %s" % self.path)
            return
        tell("STALLED %s" % self.path)
        # Stall: wait until the client goes away (its reads find nothing).
        self.close_connection = True
        try:
            while self.connection.recv(1):
                pass
        except OSError:
            pass


class QuietServer(http.server.ThreadingHTTPServer):
    daemon_threads = True

    def handle_error(self, request, client_address):
        pass  # a client that hangs up (a pause, a cancel) is no error here


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--root", required=True)
    parser.add_argument("--log")
    args = parser.parse_args()
    Handler.root = os.path.realpath(args.root)
    Handler.log_path = args.log
    server = QuietServer(("127.0.0.1", 0), Handler)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    sys.stdout.write("PORT %d\n" % server.server_address[1])
    sys.stdout.flush()
    # Ends when the test closes our standard input (or kills us).
    try:
        sys.stdin.read()
    except KeyboardInterrupt:
        pass
    server.shutdown()


if __name__ == "__main__":
    main()
