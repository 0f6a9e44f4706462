"""The small web servers against which the examples run, and what all their checks do."""

import contextlib
import html
import http.server
import io
import os
import ssl
import subprocess
import sys
import threading
import urllib.parse
import zlib

SLOW_SIZE = 1 << 20
SLOW_NAME = "sl\u00f6w.bin"


class Handler(http.server.SimpleHTTPRequestHandler):
    """Serves a folder, answers a post with its own body (one to /late when released, one to /refused never), sends
    /slow.bin only up to its middle until released, answers nothing to /silent, and knows versions of /tagged.bin."""

    released = threading.Event()
    ranges = []
    tagged = b""
    tagged_most = None  # bytes of a body, after which the server is gone

    def do_GET(self):
        path = self.path.encode("latin-1").decode()  # the bytes that came are UTF-8, percent-encoded or not
        if urllib.parse.unquote(path) == "/" + SLOW_NAME:
            self.send_slowly()
        elif self.path == "/silent":
            self.released.wait()
        elif self.path == "/tagged.bin":
            self.send_tagged()
        elif self.path == "/moved.bin":
            self.send_response(302)
            self.send_header("Location", "/tagged.bin")
            self.end_headers()
        else:
            super().do_GET()

    def list_directory(self, path):
        """The page of common web servers: one link a line, in a preformatted block. Python's own list has none."""
        names = [name + "/" * os.path.isdir(os.path.join(path, name)) for name in sorted(os.listdir(path))]
        links = "".join(f'<a href="{urllib.parse.quote(name)}">{html.escape(name)}</a>\n' for name in names)
        page = f'<html><body><pre><a href="../">../</a>\n{links}</pre></body></html>'.encode()
        self.send_response(200)
        self.send_header("Content-Length", str(len(page)))
        self.end_headers()
        return io.BytesIO(page)

    def do_POST(self):
        body = self.rfile.read(int(self.headers["Content-Length"]))
        if self.path == "/refused":
            self.send_error(403)
            return
        if self.path == "/late":
            self.released.wait()
        self.send_response(200)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def send_slowly(self):
        wanted = self.headers.get("Range")
        self.ranges.append(wanted)
        first = int(wanted.removeprefix("bytes=").rstrip("-")) if wanted else 0
        self.send_response(206 if wanted else 200)
        if wanted:
            self.send_header("Content-Range", f"bytes {first}-{SLOW_SIZE - 1}/{SLOW_SIZE}")
        self.send_header("Content-Length", str(SLOW_SIZE - first))
        self.end_headers()
        middle = max(first, SLOW_SIZE // 2)
        self.wfile.write(bytes(middle - first))
        self.released.wait()
        try:
            self.wfile.write(bytes(SLOW_SIZE - middle))
        except OSError:
            pass  # the client that gave up is gone

    def send_tagged(self):
        """A part only of the version that was asked for, and all of any other."""
        tag = f'"{zlib.crc32(self.tagged)}"'
        wanted = self.headers.get("Range")
        self.ranges.append(wanted)
        if self.headers.get("If-Range", tag) != tag:
            wanted = None
        first = int(wanted.removeprefix("bytes=").rstrip("-")) if wanted else 0
        self.send_response(206 if wanted else 200)
        self.send_header("ETag", tag)
        if wanted:
            self.send_header("Content-Range", f"bytes {first}-{len(self.tagged) - 1}/{len(self.tagged)}")
        self.send_header("Content-Length", str(len(self.tagged) - first))
        self.end_headers()
        self.wfile.write(self.tagged[first:][: self.tagged_most])

    def log_message(self, *args):
        pass


def run(program, *arguments, given=""):
    """Runs a program, which is given a text on its standard input."""
    environment = {**os.environ, "LC_ALL": "C.UTF-8"}
    return subprocess.run(
        [program, *arguments],
        input=given,
        capture_output=True,
        encoding="utf-8",
        env=environment,
        timeout=100,
        check=False,
    )


def expect(condition, what, done):
    if not condition:
        sys.exit(f"{what}; exit code {done.returncode}\n{done.stdout}{done.stderr}")


class SecureServer(http.server.ThreadingHTTPServer):
    def handle_error(self, request, client_address):
        pass  # the client has refused the certificate


@contextlib.contextmanager
def secure_server(folder):
    """Serves the folder site over https, with a certificate that nobody but itself signed: yields URL and certificate."""
    key, certificate = folder / "key.pem", folder / "certificate.pem"
    subject = ["-subj", "/CN=127.0.0.1", "-addext", "subjectAltName=IP:127.0.0.1"]
    form = ["-newkey", "rsa:2048", "-nodes", "-days", "1", "-keyout", str(key), "-out", str(certificate)]
    subprocess.run(["openssl", "req", "-x509", *form, *subject], check=True, capture_output=True)
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(certificate, key)
    server = SecureServer(("127.0.0.1", 0), Handler)
    server.socket = context.wrap_socket(server.socket, server_side=True, do_handshake_on_connect=False)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    try:
        yield f"https://127.0.0.1:{server.server_port}/", certificate
    finally:
        server.shutdown()


def expect_tls_reason(program, folder, arguments):
    """A server with a certificate that nobody signed is refused, and the reason is told."""
    with secure_server(folder) as (url, _):
        done = run(program, *arguments(url))
        expect(done.returncode == 1 and "certificate" in done.stderr, "no reason for the refused server", done)
