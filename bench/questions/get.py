"""The program on one large file."""

import filecmp
import os
import statistics
import subprocess
import sys
import time

from questions.servers import Nginx

MIB = 1 << 20


def get_commands(build, url, target, certificate):
    """What a user types on each side: quietly, into one file, verified; and without files of the user's own."""
    return {
        "corvane get": [build / "bin/corvane", "get", url, "-o", target, "--cacert", certificate, "-q"],
        "curl": ["curl", "-q", "-s", "-S", "--cacert", certificate, "-o", target, url],
        "wget": ["wget", "--no-config", "-q", f"--ca-certificate={certificate}", "-O", target, url],
        "aria2c": ["aria2c", "--no-conf", "-q", "--allow-overwrite=true", f"--ca-certificate={certificate}", "-d", target.parent,
                   "-o", target.name, url],
    }


def pipe_commands(build, url, certificate):
    return {
        "corvane get": [build / "bin/corvane", "get", url, "--cacert", certificate, "-q"],
        "curl": ["curl", "-q", "-s", "-S", "--cacert", certificate, url],
        "wget": ["wget", "--no-config", "-q", f"--ca-certificate={certificate}", "-O", "-", url],
    }


def run_get(command, source, target):
    """CPU and wall clock of one run, which counts only when the whole file has arrived."""
    target.unlink(missing_ok=True)
    begin = time.monotonic()
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    wall = time.monotonic() - begin
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0 or not filecmp.cmp(source, target, shallow=False):
        sys.exit(f"bench/run: {command[0]} ended with {process.returncode} or brought something else")
    filecmp.clear_cache()
    return {"CPU": usage.ru_utime + usage.ru_stime, "wall": wall}


def run_pipe(command, size):
    """Time until the first byte comes out of a pipe, and CPU and wall clock until the last."""
    begin = time.monotonic()
    process = subprocess.Popen(command, stdout=subprocess.PIPE)
    received = len(os.read(process.stdout.fileno(), 1))
    first = time.monotonic() - begin
    while block := os.read(process.stdout.fileno(), 1 << 20):
        received += len(block)
    _, status, usage = os.wait4(process.pid, 0)
    wall = time.monotonic() - begin
    process.stdout.close()
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0 or received != size:
        sys.exit(f"bench/run: {command[0]} ended with {process.returncode} after {received} bytes")
    return {"first byte": first, "CPU": usage.ru_utime + usage.ru_stime, "wall": wall}


def compare_gets(results, title, commands, run, rounds, aims):
    """`aims`: by side, the measure that should be so, and what it should be."""
    runs = {side: [] for side in commands}
    for number in range(rounds + 1):
        for side in list(commands)[:: 1 if number % 2 else -1]:
            cost = run(commands[side])
            if number > 0:  # the first round warms up
                runs[side].append(cost)
    mine = runs["corvane get"]
    print(title)
    for side, of in runs.items():
        medians = "  ".join(f"{what} {statistics.median(cost[what] for cost in of):7.4f} s" for what in of[0])
        ratio = {what: statistics.median(m[what] / o[what] for m, o in zip(mine, of)) for what in of[0]}
        ratios = "  ".join(f"{what} {value:6.3f}" for what, value in ratio.items())
        print(f"  {side:12} {medians}   corvane get / it: {ratios}", flush=True)
        for what, value in ratio.items() if side != "corvane get" else ():
            results.add(f"{title}: {what}, corvane get / {side}", value, aims.get((side, what), ""))


FILE_AIMS = {(side, "CPU"): "< 1" for side in ("curl", "wget", "aria2c")}
PIPE_AIMS = {("curl", "first byte"): "<= 1"}


def ask_get(arguments, folder, results):
    root, target = folder / "root", folder / "target" / "file.bin"
    root.mkdir()
    target.parent.mkdir()
    with open(root / "file.bin", "wb") as file:
        for _ in range(arguments.mib):
            file.write(os.urandom(MIB))
    (root / "small.bin").write_bytes(os.urandom(MIB))
    with Nginx(folder, root) as server:
        certificate = folder / "cert.pem"
        for scheme, place in {"HTTP": f"http://localhost:{server.port}", "HTTPS": f"https://localhost:{server.https}"}.items():
            commands = get_commands(arguments.build, f"{place}/file.bin", target, certificate)
            compare_gets(results, f"a file of {arguments.mib} MiB over {scheme}", commands,
                         lambda command: run_get(command, root / "file.bin", target), arguments.rounds, FILE_AIMS)
            target.unlink()
            commands = pipe_commands(arguments.build, f"{place}/file.bin", certificate)
            compare_gets(results, f"{arguments.mib} MiB over {scheme} into a pipe", commands,
                         lambda command: run_pipe(command, arguments.mib * MIB), arguments.rounds, PIPE_AIMS)
            commands = pipe_commands(arguments.build, f"{place}/small.bin", certificate)
            compare_gets(results, f"1 MiB over {scheme} into a pipe", commands, lambda command: run_pipe(command, MIB),
                         4 * arguments.rounds, PIPE_AIMS)
