#!/usr/bin/python3
"""A time-stamp authority for tests (RFC 3161 over HTTP) on 127.0.0.1, until killed.

    tsa.py <openssl ts config> <port file>   answers with `openssl ts -reply`
    tsa.py --silent <port file>              never answers; a line in <port file>.connections each
"""
import http.server
import os
import socket
import subprocess
import sys


class Handler(http.server.BaseHTTPRequestHandler):
    def do_POST(self):
        query = self.rfile.read(int(self.headers.get("Content-Length", 0)))
        reply = subprocess.run(["openssl", "ts", "-reply", "-config", sys.argv[1], "-queryfile", "/dev/stdin"],
                               input=query, capture_output=True)
        if reply.returncode != 0:
            self.send_error(500, reply.stderr.decode(errors="replace"))
            return
        self.send_response(200)
        self.send_header("Content-Type", "application/timestamp-reply")
        self.send_header("Content-Length", str(len(reply.stdout)))
        self.end_headers()
        self.wfile.write(reply.stdout)

    def log_message(self, *args):
        pass


def publish_port(port):
    with open(sys.argv[2] + ".part", "w") as f:
        f.write(str(port))
    os.rename(sys.argv[2] + ".part", sys.argv[2])


if sys.argv[1] == "--silent":
    listener = socket.create_server(("127.0.0.1", 0))
    publish_port(listener.getsockname()[1])
    held = []
    while True:
        held.append(listener.accept()[0])
        with open(sys.argv[2] + ".connections", "a") as f:
            f.write("connection\n")
else:
    server = http.server.HTTPServer(("127.0.0.1", 0), Handler)
    publish_port(server.server_port)
    server.serve_forever()
