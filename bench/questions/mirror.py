"""Many small files in one directory, one after another."""

import filecmp
import os
import random
import statistics
import subprocess
import sys
import time

from questions.servers import Nginx, Vsftpd
from questions.sync_runs import put_aside


def mirror_commands(program, url, target):
    """What each side is called with; all of them serial, quiet, and without copying the server's times where that can be said."""
    return {
        "library": [program, "library", url, target],
        "bare libcurl": [program, "bare", url, target],
        "wget -r": ["wget", "--no-config", "-q", "-r", "-l1", "-np", "-nd", "-e", "robots=off", "--no-use-server-timestamps",
                    "-A", "bin", "-P", target, url],
        "lftp mirror": ["lftp", "--norc", "-c", f"set xfer:log no; mirror --parallel=1 --no-perms {url} {target}"],
    }


def run_mirror(command, source, target):
    """Wall clock and CPU of one run, which counts only when every file has arrived whole."""
    put_aside(target)
    begin = time.monotonic()
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    wall = time.monotonic() - begin
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        sys.exit(f"bench/run: {command[:2]} ended with {process.returncode}")
    names = sorted(os.listdir(source))
    if sorted(os.listdir(target)) != names:
        sys.exit(f"bench/run: {command[:2]} fetched {len(os.listdir(target))} files instead of {len(names)}")
    _, differing, unread = filecmp.cmpfiles(source, target, names, shallow=False)
    filecmp.clear_cache()
    if differing or unread:
        sys.exit(f"bench/run: {command[:2]} left {len(differing) + len(unread)} files that differ")
    return {"wall": wall, "cpu": usage.ru_utime + usage.ru_stime}


def count_connections(server, command, source, target):
    """The connections on which the server answered the run's requests."""
    server.clear_log()
    run_mirror(command, source, target)
    return len({request["connection"] for request in server.read_log()})


def write_small_files(source, count):
    generator = random.Random(1)
    source.mkdir(parents=True)
    for number in range(count):
        (source / f"file{number:05d}.bin").write_bytes(generator.randbytes(generator.randint(1024, 4096)))


def compare_mirrors(results, program, url, source, target, rounds, connections, aims):
    commands = mirror_commands(program, url, target)
    runs = {side: [] for side in commands}
    for number in range(rounds + 1):
        for side in list(commands)[:: 1 if number % 2 else -1]:
            cost = run_mirror(commands[side], source, target)
            if number > 0:  # the first round warms up
                runs[side].append(cost)
    print(f"{'side':14} {'wall s':>8} {'CPU s':>8} {'library/side: wall':>19} {'CPU':>7} {'connections':>12}")
    for side, of in runs.items():
        ratio = {what: statistics.median(mine[what] / other[what] for mine, other in zip(runs["library"], of)) for what in of[0]}
        print(f"{side:14} {statistics.median(run['wall'] for run in of):8.3f} {statistics.median(run['cpu'] for run in of):8.3f}"
              f" {ratio['wall']:19.3f} {ratio['cpu']:7.3f} {connections.get(side, ''):>12}", flush=True)
        for what in ratio if side != "library" else ():
            results.add(f"{what}, library / {side}", ratio[what], aims.get(side, ""))


AIMS = {"bare libcurl": "<= 1.10", "wget -r": "< 1", "lftp mirror": "< 1"}


def ask_mirror(arguments, folder, results):
    program, target, source = arguments.build / "bin/bench/MirrorCost", folder / "target", folder / "root/dir"
    write_small_files(source, arguments.files)
    with Nginx(folder, folder / "root") as server:
        logged = mirror_commands(program, f"http://127.0.0.1:{server.logged}/dir/", target)
        connections = {side: count_connections(server, command, source, target) for side, command in logged.items()}
        print(f"serial mirror of {arguments.files} files of 1 to 4 KiB over HTTP")
        url = f"http://127.0.0.1:{server.port}/dir/"
        compare_mirrors(results, program, url, source, target, arguments.rounds, connections, AIMS)
        results.add("connections of the library", connections["library"], "== 1", unit="connections")


def ask_mirror_ftp(arguments, folder, results):
    program, target, source = arguments.build / "bin/bench/MirrorCost", folder / "target", folder / "root/dir"
    count = max(1, arguments.files // 10)  # each file is a connection
    write_small_files(source, count)
    folder.chmod(0o755)
    with Vsftpd(folder, folder / "root") as server:
        print(f"serial mirror of {count} files of 1 to 4 KiB over FTP")
        url = f"ftp://127.0.0.1:{server.port}/dir/"
        compare_mirrors(results, program, url, source, target, arguments.rounds, {}, {})
