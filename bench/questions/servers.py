"""The servers that the questions are asked of: daemons on loopback ports, with all that they write in a folder of their own."""

import http.client
import os
import socket
import subprocess
import sys
import time


def free_port():
    with socket.socket() as listener:
        listener.bind(("127.0.0.1", 0))
        return listener.getsockname()[1]


class Server:
    """A daemon that lives as long as the with statement; it is up when its port answers."""

    def __enter__(self):
        self.process = subprocess.Popen(self.command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        for _ in range(100):
            try:
                socket.create_connection(("127.0.0.1", self.port), timeout=1).close()
                return self
            except OSError:
                time.sleep(0.1)
        self.process.kill()
        sys.exit(f"bench/run: {self.command[0]} did not start")

    def __exit__(self, *_):
        self.process.terminate()
        self.process.wait()


class Nginx(Server):
    """A web server over `root`: HTTP, HTTPS, HTTP/2 with TLS, and HTTP and HTTP/2 with a log of the requests.

    A connection serves as many requests as a client likes, so that no side has to open a second one.
    """

    def __init__(self, folder, root):
        self.port, self.https, self.logged, self.http2, self.http2_logged = (free_port() for _ in range(5))
        self.log = folder / "requests.log"
        subprocess.run(
            ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-days", "2",
             "-subj", "/CN=localhost", "-addext", "subjectAltName=DNS:localhost,IP:127.0.0.1",
             "-keyout", folder / "key.pem", "-out", folder / "cert.pem"],
            check=True, capture_output=True)
        user = "user root;" if os.geteuid() == 0 else ""
        # The HTTP/2 servers speak TLS 1.3, as servers do today, although this release of nginx would have to be asked for it.
        (folder / "nginx.conf").write_text(f"""
            daemon off; pid {folder}/nginx.pid; worker_processes 1; {user}
            events {{}}
            http {{
              access_log off; sendfile on; autoindex on; root {root};
              keepalive_requests 10000000;
              log_format requests "$connection $status $bytes_sent $body_bytes_sent $request";
              ssl_certificate {folder}/cert.pem; ssl_certificate_key {folder}/key.pem;
              server {{ listen 127.0.0.1:{self.port}; listen 127.0.0.1:{self.https} ssl; }}
              server {{ listen 127.0.0.1:{self.logged}; access_log {self.log} requests; }}
              server {{ listen 127.0.0.1:{self.http2} ssl http2; ssl_protocols TLSv1.2 TLSv1.3; }}
              server {{
                listen 127.0.0.1:{self.http2_logged} ssl http2; ssl_protocols TLSv1.2 TLSv1.3;
                access_log {self.log} requests;
              }}
            }}""")
        self.command = ["nginx", "-c", folder / "nginx.conf", "-p", folder, "-e", folder / "error.log"]
        self.marks = 0

    def clear_log(self):
        self.read_log()
        self.log.write_text("")

    def read_log(self):
        """All requests since the log was cleared.

        A line is written after its answer, so that the last ones may be on their way. The one process takes requests one after
        another: once one of ours is in the log, those that were answered before it are, too.
        """
        self.marks += 1
        mark = f"/mark-{self.marks}"
        client = http.client.HTTPConnection("127.0.0.1", self.logged, timeout=10)
        client.request("GET", mark)
        client.getresponse().read()
        client.close()
        deadline = time.monotonic() + 10
        while f" {mark} " not in (told := self.log.read_text()):
            if time.monotonic() > deadline:
                sys.exit(f"bench/run: nginx did not write {mark} into its log")
            time.sleep(0.01)
        return [request for line in told.splitlines() if not (request := parse_log(line))["path"].startswith("/mark-")]


def parse_log(line):
    connection, status, sent, body, request = line.split(" ", 4)
    method, path = (request.split() + ["", ""])[:2]  # a request can be anything
    return {
        "connection": connection, "status": int(status), "bytes": int(sent), "body": int(body), "method": method, "path": path}


class Relay:
    """A long way to the server on a port: see bench/Relay.cpp. Its own port is the system's choice."""

    def __init__(self, build, server_port, one_way_ms):
        self.command = [build / "bin/bench/Relay", str(server_port), str(one_way_ms)]

    def __enter__(self):
        self.process = subprocess.Popen(self.command, stdout=subprocess.PIPE, text=True)
        self.port = int(self.process.stdout.readline())
        return self

    def __exit__(self, *_):
        self.process.terminate()
        self.process.wait()
        self.process.stdout.close()


class Vsftpd(Server):
    """An FTP server over `root` for anonymous clients."""

    def __init__(self, folder, root):
        self.port = free_port()
        (folder / "empty").mkdir(exist_ok=True)
        (folder / "vsftpd.conf").write_text(
            f"listen=YES\nlisten_address=127.0.0.1\nlisten_port={self.port}\nbackground=NO\nanonymous_enable=YES\n"
            f"no_anon_password=YES\nanon_root={root}\nsecure_chroot_dir={folder}/empty\nconnect_from_port_20=NO\n")
        self.command = ["vsftpd", folder / "vsftpd.conf"]
