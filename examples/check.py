"""check.py EXAMPLE PROGRAM: runs an example against a small web server and looks at what it says and leaves behind."""

import html
import http.server
import io
import os
import pathlib
import ssl
import subprocess
import sys
import tempfile
import threading
import urllib.parse
import zlib

SLOW_SIZE = 1 << 20
SLOW_NAME = "sl\u00f6w.bin"


class Handler(http.server.SimpleHTTPRequestHandler):
    """Serves a folder, answers a post with its own body, sends /slow.bin only up to its middle until released, and
    knows versions of /tagged.bin."""

    released = threading.Event()
    ranges = []
    tagged = b""
    tagged_most = None  # bytes of a body, after which the server is gone

    def do_GET(self):
        path = self.path.encode("latin-1").decode()  # the bytes that came are UTF-8, percent-encoded or not
        if urllib.parse.unquote(path) == "/" + SLOW_NAME:
            self.send_slowly()
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


def run(program, *arguments):
    environment = {**os.environ, "LC_ALL": "C.UTF-8"}
    return subprocess.run(
        [program, *arguments],
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


def expect_tls_reason(program, folder, arguments):
    """A server with a certificate that nobody signed is refused, and the reason is told."""
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
        done = run(program, *arguments(f"https://127.0.0.1:{server.server_port}/"))
        expect(done.returncode == 1 and "certificate" in done.stderr, "no reason for the refused server", done)
    finally:
        server.shutdown()


def check_fetch(program, url, folder):
    expect_tls_reason(program, folder, lambda secure: [secure, str(folder / "secure")])
    old, new = bytes(range(250)) * 400, bytes(range(249)) * 400
    file = folder / "file"
    part = folder / "file.part"
    Handler.tagged, Handler.tagged_most = old, 60000
    done = run(program, url + "moved.bin", str(file))
    expect(done.returncode == 1 and done.stderr, "a part was taken for the whole", done)
    expect(part.read_bytes() == old[:60000] and not file.exists(), "what came is not there", done)
    Handler.tagged_most = None
    done = run(program, url + "moved.bin", str(file))
    expect(done.stdout == "going on at byte 60000\n100000 bytes\n", "the rest was not fetched", done)
    expect(file.read_bytes() == old and Handler.ranges[-1] == "bytes=60000-", "the file is not the server's", done)

    Handler.tagged_most = 50000
    run(program, url + "tagged.bin", str(file))
    expect(file.read_bytes() == old and part.read_bytes() == old[:50000], "the whole file was touched", done)
    Handler.tagged, Handler.tagged_most = new, None
    done = run(program, url + "tagged.bin", str(file))
    said = "going on at byte 50000\ncannot go on, beginning anew\n99600 bytes\n"
    expect(done.stdout == said and file.read_bytes() == new, "the new version did not come", done)
    expect(not part.exists() and not (folder / "file.validator").exists(), "something was left behind", done)

    done = run(program, url + "missing", str(folder / "other"))
    expect(done.returncode == 1 and not (folder / "other").exists(), "a missing file was fetched", done)


def check_lookup(program, url, folder):
    done = run(program, "localhost")
    expect(done.returncode == 0 and "127.0.0.1" in done.stdout.split(), "localhost has no loopback address", done)
    done = run(program, "x" * 64 + ".invalid")  # too long for a label: no name server is asked
    expect(done.returncode == 1 and "not found" in done.stderr, "an invalid name was found", done)


def check_mirror(program, url, folder):
    ignored = "\u00fcbergangen.txt"
    contents = {"a.txt": b"first", "gr\u00fc\u00df e.txt": b"second file", ignored: b"not wanted"}
    for name, content in contents.items():
        (folder / "site" / name).write_bytes(content)
    target = folder / "mirror"
    done = run(program, url, str(target), ignored)
    expect(done.returncode == 0, "the mirror failed", done)
    del contents[ignored]
    here = {path.name: path.read_bytes() for path in target.iterdir()}
    expect(here == contents, f"the mirror holds {here}", done)
    expect(done.stdout == "2 of 2 files fetched, 16 bytes are here, 3 answers came\n", "the summary is wrong", done)

    done = run(program, url + "missing/", str(target))
    expect(done.returncode == 1 and done.stderr, "a missing directory was mirrored", done)
    expect_tls_reason(program, folder, lambda secure: [secure, str(target)])


def check_post_form(program, url, folder):
    done = run(program, url, "name=J\u00fcrgen & Co", "empty=")
    expect(done.stdout == "empty=&name=J%C3%BCrgen+%26+Co\n", "another body was posted", done)
    expect_tls_reason(program, folder, lambda secure: [secure, "a=b"])


def check_sync(program, url, folder):
    contents = {"a.txt": b"first", "sub/gr\u00fc\u00df e.txt": b"second", "sub/deep/left.out": b"not wanted"}
    for name, content in contents.items():
        file = folder / "site" / name
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_bytes(content)
    target = folder / "tree"
    done = run(program, url, str(target), "*.out")
    expect(done.returncode == 0, "the tree failed", done)
    expect(done.stdout == "2 files to fetch\n2 fetched, 0 continued, 0 kept, 0 failed\n", "the summary is wrong", done)
    del contents["sub/deep/left.out"]
    here = {str(path.relative_to(target)): path.read_bytes() for path in target.rglob("*") if path.is_file()}
    expect(here == contents, f"the tree holds {here}", done)

    done = run(program, url, str(target), "*.out")
    expect(done.stdout == "0 files to fetch\n0 fetched, 0 continued, 2 kept, 0 failed\n", "it was fetched again", done)
    done = run(program, url + "missing/", str(target))
    expect(done.returncode == 1 and "404" in done.stderr, "a missing directory was synced", done)
    expect_tls_reason(program, folder, lambda secure: [secure, str(target)])


def check_watch(program, url, folder):
    expect_tls_reason(program, folder, lambda secure: [secure, str(folder / "secure")])
    file = folder / SLOW_NAME
    done = run(program, url + SLOW_NAME, str(file), "0")
    expect(done.returncode == 3 and "given up" in done.stdout, "the download was not given up", done)
    kept = file.stat().st_size if file.exists() else 0  # how far it came is a matter of the machine's speed
    expect(kept <= SLOW_SIZE // 2, f"{kept} bytes were kept", done)

    Handler.released.set()
    done = run(program, url + SLOW_NAME, str(file))
    expect(done.stdout == f"{SLOW_SIZE} bytes\n", "the download did not go on to its end", done)
    expect(file.read_bytes() == bytes(SLOW_SIZE), "the file is not the server's", done)
    wanted = f"bytes={kept - 32}-" if kept > 64 else None
    expect(Handler.ranges[-1] == wanted, f"the ranges asked for were {Handler.ranges}", done)


def main():
    example, program = sys.argv[1:]
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        (folder / "site").mkdir()
        os.chdir(folder / "site")
        server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        threading.Thread(target=server.serve_forever, daemon=True).start()
        try:
            globals()["check_" + example](program, f"http://127.0.0.1:{server.server_port}/", folder)
        finally:
            Handler.released.set()
            server.shutdown()


main()
