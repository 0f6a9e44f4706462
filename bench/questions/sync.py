"""Whole trees of small files: over a long link, over HTTP/2, and on one machine."""

import statistics
import subprocess
import sys

from questions import sync_sides
from questions.servers import Nginx, Relay
from questions.sync_runs import Contest, folder_names, present_sides, write_tree
from questions.sync_sides import Tree

ONE_WAY_MS = 20


# --- over a long link -------------------------------------------------------------------------------------------------


def measure_link(url, certificate):
    """Milliseconds until the answer to the first request of a connection, and to each of the next four."""
    authority = ["--cacert", certificate] if certificate else []
    told = subprocess.run(
        ["curl", "-q", "-s", "-S", "-f", *authority, "-w", "%{num_connects} %{time_starttransfer}\\n",
         *["-o", "/dev/null", url] * 5], check=True, capture_output=True, text=True).stdout
    opened, seconds = zip(*(line.split() for line in told.splitlines()))
    if opened != ("1", "0", "0", "0", "0"):
        sys.exit(f"bench/run: requests through the relay were not on one connection: {opened}")
    first, *later = (1000 * float(one) for one in seconds)
    return first, later


def check_link(results, url, round_trips, certificate=None):
    """Measures the relay before it is relied on, with a few connections, so that a busy moment is not held against it."""
    measured = [measure_link(url, certificate) for _ in range(5)]
    first = statistics.median(first for first, _ in measured)
    kept = statistics.median(one for _, later in measured for one in later)
    wanted = 2 * ONE_WAY_MS
    print(f"  the link: {kept:.1f} ms until an answer, {first:.1f} ms for the first of a connection ({round_trips} round trips)")
    if not (wanted <= kept < 1.25 * wanted and wanted * round_trips <= first < 1.25 * wanted * round_trips):
        sys.exit(f"bench/run: that is no link of {wanted} ms")
    results.add("link: first answer", first, unit="ms")
    results.add("link: later answers", kept, unit="ms")


def ask_sync_link(arguments, folder, results):
    contents = write_tree(folder / "root/tree", [""], arguments.link_files, 1024, 10240)
    build = arguments.build
    sides = [sync_sides.corvane(build, 8), sync_sides.bare(build, "h1", 8), sync_sides.curl(8), sync_sides.lftp(8),
             sync_sides.wget2("--max-threads=8"), sync_sides.rclone("--transfers=8")]
    bounds = ["<= 1.05", "<= 1.05", "< 1", "< 1", "< 1"]
    aims = {side.name: {"wall": bound} for side, bound in zip(sides[1:], bounds)}
    with Nginx(folder, folder / "root") as server, Relay(build, server.port, ONE_WAY_MS) as timed, \
            Relay(build, server.logged, ONE_WAY_MS) as logged:
        print(f"sync-link: {len(contents)} files of 1 to 10 KiB in one folder, HTTP/1.1, 8 connections,"
              f" {2 * ONE_WAY_MS} ms round trip")
        timed, logged = (Tree(f"http://127.0.0.1:{relay.port}/tree/", list(contents), folder) for relay in (timed, logged))
        check_link(results, timed.url + timed.files[0], 2)
        contest = Contest(*present_sides(sides, build))
        contest.run(server, timed, logged, folder / "target", contents, arguments.rounds)
        contest.report(results, aims)


def ask_sync_h2(arguments, folder, results):
    contents = write_tree(folder / "root/tree", [""], arguments.link_files, 1024, 10240)
    build = arguments.build
    sides = [sync_sides.corvane(build), sync_sides.bare(build, "h2", 100), sync_sides.curl(100, "--http2"), sync_sides.wget2()]
    aims = {side.name: {"wall": bound} for side, bound in zip(sides[1:], ["<= 1.1", "<= 1.2", "< 1"])}
    with Nginx(folder, folder / "root") as server, Relay(build, server.http2, ONE_WAY_MS) as timed, \
            Relay(build, server.http2_logged, ONE_WAY_MS) as logged:
        print(f"sync-h2: the same {len(contents)} files over HTTP/2 with TLS, each side with as many in flight as it takes")
        timed, logged = (Tree(f"https://127.0.0.1:{relay.port}/tree/", list(contents), folder, folder / "cert.pem")
                         for relay in (timed, logged))
        check_link(results, timed.url + timed.files[0], 3, folder / "cert.pem")
        contest = Contest(*present_sides(sides, build))
        contest.run(server, timed, logged, folder / "target", contents, arguments.rounds)
        contest.report(results, aims)


# --- on one machine ------------------------------------------------------------------------------------------------------


def ask_sync_tree(arguments, folder, results):
    names = folder_names(100)
    contents = write_tree(folder / "root/tree", names, max(1, arguments.files // len(names)), 1024, 4096)
    build = arguments.build
    sides = [sync_sides.corvane(build, 8), sync_sides.bare(build, "h1", 8), sync_sides.wget2(), sync_sides.rclone(),
             sync_sides.lftp(8)]
    aims = {side.name: {"wall": bound, "CPU": bound} for side, bound in zip(sides[1:], ["<= 1.2", "< 1", "< 1", "< 1"])}
    with Nginx(folder, folder / "root") as server:
        print(f"sync-tree: {len(contents)} files of 1 to 4 KiB in {len(names)} folders, HTTP/1.1")
        timed, logged = (Tree(f"http://127.0.0.1:{port}/tree/", list(contents), folder) for port in (server.port, server.logged))
        contest = Contest(*present_sides(sides, build))
        contest.run(server, timed, logged, folder / "target", contents, arguments.rounds)
        contest.report(results, aims)
