"""Serves the files of a directory by HTTPS, with ranges, and takes files by PUT.

usage: https_server.py CERTIFICATE KEY DIRECTORY

The files break and stall beside the directory say after how many bytes a connection breaks or stops.
"""

import http.server
import os
import re
import socket
import ssl
import sys
import time

certificate, key, directory = sys.argv[1:]


def limit(name):
    try:
        with open(os.path.join(directory, "..", name), encoding="ascii") as file:
            return int(file.read())
    except FileNotFoundError:
        return None


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, *_):
        pass

    def path_of_file(self):
        return os.path.join(directory, os.path.basename(self.path))

    def say(self, words):
        print(words, flush=True)

    def do_GET(self):
        wanted = self.headers.get("Range", "")
        self.say(f"GET {self.path} {wanted}".strip())
        try:
            with open(self.path_of_file(), "rb") as file:
                data = file.read()
        except FileNotFoundError:
            self.send_error(404)
            return
        match = re.fullmatch(r"bytes=(\d+)-", wanted)
        begin = int(match.group(1)) if match and os.path.exists(self.path_of_file()) else 0
        if begin and os.path.exists(os.path.join(directory, "..", "no-ranges")):
            begin = 0
        self.send_response(206 if begin else 200)
        if begin:
            self.send_header("Content-Range", f"bytes {begin}-{len(data) - 1}/{len(data)}")
        self.send_header("Content-Length", str(len(data) - begin))
        self.end_headers()
        broken, stalled = limit("break"), limit("stall")
        end = min(each for each in (len(data), broken and begin + broken, stalled and begin + stalled) if each)
        self.wfile.write(data[begin:end])
        self.wfile.flush()
        if end == len(data):
            return
        while limit("stall") is not None:
            time.sleep(0.05)
        self.connection.shutdown(socket.SHUT_RDWR)
        self.close_connection = True

    def do_PUT(self):
        self.say(f"PUT {self.path}")
        with open(self.path_of_file(), "wb") as file:
            file.write(self.rfile.read(int(self.headers["Content-Length"])))
        self.send_response(201)
        self.send_header("Content-Length", "0")
        self.end_headers()


class Server(http.server.ThreadingHTTPServer):
    daemon_threads = True

    def handle_error(self, request, client_address):
        pass  # the broken connections of clients are what is tested


server = Server(("127.0.0.1", 8443), Handler)
context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
context.load_cert_chain(certificate, key)
server.socket = context.wrap_socket(server.socket, server_side=True)
print("ready", file=sys.stderr, flush=True)
server.serve_forever()
