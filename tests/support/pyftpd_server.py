"""A read-only FTP server on 127.0.0.1 for the tests; runs until it is ended by a signal."""

import argparse
import sys

try:
    from pyftpdlib.authorizers import DummyAuthorizer
    from pyftpdlib.handlers import FTPHandler
    from pyftpdlib.servers import FTPServer
except ImportError as error:
    sys.exit(f"{error} (Debian package python3-pyftpdlib)")


def make_handler(options):
    authorizer = DummyAuthorizer()
    if options.anonymous:
        authorizer.add_anonymous(options.root)
    if options.user:
        authorizer.add_user(options.user, options.password, options.root)

    class Handler(FTPHandler):
        """Notes each file sent, with the path as the client sees it."""

        def note(self, outcome, file):
            with open(options.access_log, "a", encoding="utf-8") as log:
                log.write(f"{outcome} {self.fs.fs2ftp(file)}\n")

        def on_file_sent(self, file):
            self.note("sent", file)

        def on_incomplete_file_sent(self, file):
            self.note("broke off", file)

    Handler.authorizer = authorizer
    Handler.auth_failed_timeout = 0  # by default a wrong password costs three seconds
    return Handler


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--port", type=int, required=True)
    parser.add_argument("--root", required=True)
    parser.add_argument("--access-log", required=True)
    parser.add_argument("--anonymous", action="store_true")
    parser.add_argument("--user")
    parser.add_argument("--password", default="")
    options = parser.parse_args()
    FTPServer(("127.0.0.1", options.port), make_handler(options)).serve_forever(handle_exit=False)


main()
