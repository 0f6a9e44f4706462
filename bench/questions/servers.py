"""The servers that the questions are asked of: daemons on loopback ports, with all that they write in a folder of their own."""

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
    """A web server over `root`: HTTP, HTTPS, and HTTP with a log of the connections.

    A connection serves as many requests as a client likes, so that no side has to open a second one.
    """

    def __init__(self, folder, root):
        self.port, self.https, self.logged = free_port(), free_port(), free_port()
        self.log = folder / "connections.log"
        subprocess.run(
            ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-days", "2",
             "-subj", "/CN=localhost", "-keyout", folder / "key.pem", "-out", folder / "cert.pem"],
            check=True, capture_output=True)
        user = "user root;" if os.geteuid() == 0 else ""
        (folder / "nginx.conf").write_text(f"""
            daemon off; pid {folder}/nginx.pid; worker_processes 1; {user}
            events {{}}
            http {{
              access_log off; sendfile on; autoindex on; root {root};
              keepalive_requests 10000000;
              log_format connections "$connection $request";
              server {{
                listen 127.0.0.1:{self.port};
                listen 127.0.0.1:{self.https} ssl;
                ssl_certificate {folder}/cert.pem; ssl_certificate_key {folder}/key.pem;
              }}
              server {{ listen 127.0.0.1:{self.logged}; access_log {self.log} connections; }}
            }}""")
        self.command = ["nginx", "-c", folder / "nginx.conf", "-p", folder, "-e", folder / "error.log"]


class Vsftpd(Server):
    """An FTP server over `root` for anonymous clients."""

    def __init__(self, folder, root):
        self.port = free_port()
        (folder / "empty").mkdir(exist_ok=True)
        (folder / "vsftpd.conf").write_text(
            f"listen=YES\nlisten_address=127.0.0.1\nlisten_port={self.port}\nbackground=NO\nanonymous_enable=YES\n"
            f"no_anon_password=YES\nanon_root={root}\nsecure_chroot_dir={folder}/empty\nconnect_from_port_20=NO\n")
        self.command = ["vsftpd", folder / "vsftpd.conf"]
