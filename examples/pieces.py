"""The checks of the examples that show one piece of the library each. A check gets the program, the URL of a server of
the folder site, and the folder that holds it."""

import hashlib
import os
import pathlib
import subprocess

from servers import Handler, expect, expect_tls_reason, run, secure_server

CONTENT = bytes(range(251)) * 1000


def put(folder, name="data.bin", content=CONTENT):
    (folder / "site" / name).write_bytes(content)


def expect_file(file, content, done):
    expect(file.exists() and file.read_bytes() == content, f"{file.name} is not the server's", done)


def check_hash(program, url, folder):
    put(folder)
    done = run(program, url + "data.bin")
    digest = hashlib.sha256(CONTENT).hexdigest()
    expect(done.stdout == f"{digest}  {url}data.bin\n" and done.returncode == 0, "another hash was printed", done)
    done = run(program, url + "missing")
    expect(done.returncode == 1 and not done.stdout, "the page of a refusal was hashed", done)
    expect_tls_reason(program, folder, lambda secure: [secure])


def check_upload(program, url, folder):
    text = "one line\n" * 30000
    put(folder, "text", text.encode())
    file = str(folder / "site" / "text")
    arguments = [program, url + "late", file]
    with subprocess.Popen(arguments, stdout=subprocess.PIPE, stderr=subprocess.PIPE, encoding="utf-8") as upload:
        progress = upload.stderr.readline()  # the answer waits for it
        Handler.released.set()
        said, errors = upload.communicate(timeout=100)
    done = subprocess.CompletedProcess(arguments, upload.returncode, said, progress + errors)
    expect(said == text and done.returncode == 0, "another answer came", done)
    expect(f" of {len(text)} bytes, " in progress, "no progress was told", done)
    expect(os.listdir(folder / "site") == ["text"], "the answer was left behind", done)
    done = run(program, url + "refused", file)
    refused = "refused with status 403\n" in done.stderr
    expect(done.returncode == 1 and refused, "the refusal was not told", done)
    done = run(program, url, str(folder / "missing"))
    expect(done.returncode == 2, "a missing file was posted", done)
    expect_tls_reason(program, folder, lambda secure: [secure, file])


def check_observe(program, url, folder):
    put(folder)
    done = run(program, url + "data.bin", str(folder / "file"))
    expect(done.stdout == f"it comes, status 200\ndone, {len(CONTENT)} bytes\n", "the observer saw other things", done)
    expect_file(folder / "file", CONTENT, done)
    done = run(program, url + "missing", str(folder / "none"))
    expect(done.stdout == "refused, status 404\n" and done.returncode == 1, "the observer missed the refusal", done)
    expect(not (folder / "none").exists(), "the page of a refusal is there", done)


def check_secure(program, url, folder):
    put(folder, "page.txt", "gr\u00fc\u00df\n".encode())
    done = run(program, url + "page.txt")
    expect(done.returncode == 2 and not done.stdout, "a page came without verification", done)
    with secure_server(folder) as (secure, certificate):
        done = run(program, secure + "page.txt")
        expect(done.returncode == 1 and "certificate" in done.stderr, "an unknown authority was trusted", done)
        done = run(program, secure + "page.txt", str(certificate))
        expect(done.stdout == "gr\u00fc\u00df\n" and done.returncode == 0, "the named authority was not trusted", done)
        done = run(program, secure + "page.txt", str(folder / "missing.pem"))
        expect(done.returncode == 2 and not done.stdout, "without authorities the server was trusted", done)
        other = secure.replace("127.0.0.1", "localhost") + "page.txt"
        done = run(program, other, str(certificate))
        expect(done.returncode == 1 and not done.stdout, "a certificate for another name was accepted", done)


def check_background(program, url, folder):
    content = CONTENT[: 128 << 10]
    put(folder, content=content)
    done = run(program, url + "data.bin", str(folder / "file"), "64")
    expect_file(folder / "file", content, done)
    said, milliseconds = done.stdout.split(" bytes in ")
    expect(said == str(len(content)), "another size was told", done)
    # 2 s at 64 KiB/s; the first block, 16 KiB at most, is free, and sleeps are cut to whole seconds.
    expect(int(milliseconds.split()[0]) >= 750, "the limit was not kept", done)
    done = run(program, url + "data.bin", str(folder / "file"), "0")
    expect(done.returncode == 2, "a limit of 0 was taken", done)


def check_several(program, url, folder):
    names = [f"{number}.bin" for number in range(9)]
    arguments = []
    for number, name in enumerate(names):
        put(folder, name, CONTENT[: number * 20000])
        arguments += [url + name, str(folder / name)]
    done = run(program, *arguments)
    expect(done.stdout == "9 files, 0 failures\n" and done.returncode == 0, "not all came", done)
    for number, name in enumerate(names):
        expect_file(folder / name, CONTENT[: number * 20000], done)
    done = run(program, url + "missing", str(folder / "a"), url + "8.bin", str(folder / "b"))
    expect(done.stdout == "2 files, 1 failures\n" and done.returncode == 1, "the failure was not counted", done)
    expect_file(folder / "b", CONTENT[: 8 * 20000], done)


def check_mirror_list(program, url, folder):
    put(folder, "a.txt", b"first")
    put(folder, "b c.txt", b"second")
    put(folder, "unlisted.txt", b"third")
    target = folder / "target"
    listed = "5 1700000000 a.txt\n6 1700000001 b c.txt\n"
    done = run(program, url, str(target), given=listed)
    expect(done.stdout == "2 fetched, 0 continued, 0 kept, 0 of another size\n", "the summary is wrong", done)
    expect(sorted(os.listdir(target)) == ["a.txt", "b c.txt"], "other files came", done)
    expect(int((target / "b c.txt").stat().st_mtime) == 1700000001, "the file has not the time of the list", done)
    done = run(program, url, str(target), given=listed.replace("1700000001", "1700000002"))
    expect(done.stdout == "1 fetched, 0 continued, 1 kept, 0 of another size\n", "the stale file was kept", done)
    done = run(program, url, str(target), given="99 0 a.txt\n")
    expect("1 of another size" in done.stdout and done.returncode == 1, "the mismatch was a success", done)
    done = run(program, url, str(target), given="no list\n")
    expect(done.returncode == 2, "a list that is none was taken", done)


def check_logger(program, url, folder):
    put(folder)
    log = folder / "log"
    done = run(program, url + "data.bin", str(folder / "file"), str(log))
    expect(done.returncode == 0, "the download failed", done)
    expect_file(folder / "file", CONTENT, done)
    lines = log.read_text().splitlines()
    expect(lines and all(line.split()[0] in ("information", "warning") for line in lines), f"the log is {lines}", done)
    expect(any(" Corvane/" in line for line in lines), f"no source is named in {lines}", done)
    done = run(program, url + "missing", str(folder / "none"), str(log))
    added = log.read_text().splitlines()[len(lines) :]
    expect(done.returncode == 1 and added, "nothing was appended", done)


def check_explain(program, url, folder):
    done = run(program, "80011389", "0x8001001c", "80001002", "0", "87000001", "8fff0001", "80011389x")
    said = done.stdout.splitlines()
    wanted = [
        "0x80011389 failure, facility 1: Failed to connect to the specified URL",
        "0x8001001c failure, facility 1: Unknown error 0x8001001C",
        "  libcurl's failure 28, see libcurl-errors(3)",
        "0x80001002 failure, facility 0: No such file or directory",
        "0x00000000 success, facility 0: Success",
        "0x87000001 failure, facility 1792: No licence for this file",
        "0x8fff0001 failure, facility 2047: Unknown error 0x8FFF0001",
    ]
    expect(said == wanted and done.returncode == 2, "the codes stand for something else", done)


def check_load_later(program, url, folder, plugin):
    put(folder)
    done = run(program, plugin, url + "data.bin", str(folder / "file"))
    said = "before:\nloaded: com.corvane.network\nresult 0x00010000\nafter:\n"
    expect(done.stdout == said and done.returncode == 0, "the module did not come and go", done)
    expect_file(folder / "file", CONTENT, done)
    done = run(program, plugin, url + "missing", str(folder / "none"))
    expect("result 0x80011389\nafter:\n" in done.stdout and done.returncode == 1, "the failure is another", done)
    done = run(program, str(pathlib.Path(plugin).parent / "missing.so"), url, str(folder / "none"))
    expect(done.returncode == 2, "a missing plugin was loaded", done)
