"""check.py EXAMPLE PROGRAM [FILE...]: runs an example against a small web server and looks at what it says and leaves
behind. FILE is what else the example is given."""

import http.server
import os
import pathlib
import sys
import tempfile
import threading

import pieces
from servers import SLOW_NAME, SLOW_SIZE, Handler, expect, expect_tls_reason, run


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
    expect(done.stdout == "100000 bytes\n" and Handler.ranges[-1] == "bytes=59968-", "not only the rest came", done)
    expect(file.read_bytes() == old, "the file is not the server's", done)

    Handler.tagged_most = 50000
    run(program, url + "tagged.bin", str(file))
    expect(file.read_bytes() == old and part.read_bytes() == old[:50000], "the whole file was touched", done)
    Handler.tagged, Handler.tagged_most = new, None
    done = run(program, url + "tagged.bin", str(file))
    said = "cannot go on, beginning anew\n99600 bytes\n"
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

    done = run(program, url + "silent", str(folder / "silent"), "0")
    expect(done.returncode == 3 and "given up" in done.stdout, "the wait for an answer was not given up", done)

    Handler.released.set()
    done = run(program, url + SLOW_NAME, str(file))
    expect(done.stdout == f"{SLOW_SIZE} bytes\n", "the download did not go on to its end", done)
    expect(file.read_bytes() == bytes(SLOW_SIZE), "the file is not the server's", done)
    wanted = f"bytes={kept - 32}-" if kept > 64 else None
    expect(Handler.ranges[-1] == wanted, f"the ranges asked for were {Handler.ranges}", done)


def main():
    example, program, *more = sys.argv[1:]
    check = globals().get("check_" + example) or getattr(pieces, "check_" + example)
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        (folder / "site").mkdir()
        os.chdir(folder / "site")
        server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        threading.Thread(target=server.serve_forever, daemon=True).start()
        try:
            check(program, f"http://127.0.0.1:{server.server_port}/", folder, *more)
        finally:
            Handler.released.set()
            server.shutdown()


main()
