"""What the library spends on one large body, and on one block of it."""

import json
import os
import re
import statistics
import subprocess
import sys

from questions.servers import Nginx

MIB = 1 << 20
BLOCK = 16384  # what libcurl hands on at most


def measure(program, mode, url, target):
    output = subprocess.run([program, mode, url, target], check=True, capture_output=True, text=True).stdout
    return json.loads(output)


def compare(program, kind, url, size, target, rounds):
    """Runs both sides by turns and returns the medians of each, and the median of the ratios of neighbouring runs."""
    runs = {"bare": [], "library": []}
    for number in range(rounds + 1):
        for side in ("bare", "library") if number % 2 else ("library", "bare"):
            cost = measure(program, f"{side}-{kind}", url, target)
            if cost["bytes"] != size:
                sys.exit(f"bench/run: {side}-{kind} moved {cost['bytes']} bytes instead of {size}")
            if number > 0:  # the first round warms up
                runs[side].append(cost)
    cpu = {side: [run["cpu"] for run in of] for side, of in runs.items()}
    peak = {side: statistics.median(run["peakKib"] for run in of) / 1024 for side, of in runs.items()}
    ratio = statistics.median(l / b for l, b in zip(cpu["library"], cpu["bare"]))
    return {side: statistics.median(times) for side, times in cpu.items()}, peak, ratio


def write_text(path, size, words):
    line = (words * (1 + 4096 // len(words.encode()))).encode()
    with open(path, "wb") as file:
        written = 0
        while written < size:
            block = line[: max(0, size - written)]
            file.write(block)
            written += len(block)


def ask_download(arguments, folder, results):
    program = arguments.build / "bin/bench/TransferCost"
    root = folder / "root"
    root.mkdir()
    size, text_size = arguments.mib * MIB, 100 * MIB
    with open(root / "file.bin", "wb") as file:
        for _ in range(arguments.mib):
            file.write(os.urandom(MIB))
    write_text(root / "ascii.txt", text_size, "The quick brown fox jumps over the lazy dog.\n")
    write_text(root / "mixed.txt", text_size, "Zwölf Boxkämpfer jagen Viktor quer über den großen Sylter Deich.\n")
    target = folder / "target"
    with Nginx(folder, root) as server:
        http, https = f"http://127.0.0.1:{server.port}", f"https://127.0.0.1:{server.https}"
        cases = [
            ("DownloadFile, HTTP", "file", f"{http}/file.bin", size, "<= 1.03"),
            ("DownloadFile, HTTPS", "file", f"{https}/file.bin", size, "<= 1.03"),
            ("Download, ASCII text", "text", f"{http}/ascii.txt", text_size, "<= 1.10"),
            ("Download, German text", "text", f"{http}/mixed.txt", text_size, "<= 1.10"),
        ]
        print(f"{'question':24} {'bare s/GiB':>10} {'library':>10} {'ratio':>7} {'bare MiB':>9} {'library':>9} {'peak/body':>9}")
        for title, kind, url, expected, aim in cases:
            cpu, peak, ratio = compare(program, kind, url, expected, target, arguments.rounds)
            per_gib = 1024 * MIB / expected
            print(f"{title:24} {cpu['bare'] * per_gib:10.3f} {cpu['library'] * per_gib:10.3f} {ratio:7.3f}"
                  f" {peak['bare']:9.1f} {peak['library']:9.1f} {peak['library'] * MIB / expected:9.2f}", flush=True)
            results.add(f"{title}: CPU, library / bare libcurl", ratio, aim)
            if kind == "text":
                results.add(f"{title}: most memory / body", peak["library"] * MIB / expected, "<= 5.2", unit="bodies")


def instructions(program, function, url, target, folder):
    """Instructions inside a function of the library, with all that it calls."""
    report = subprocess.run(
        ["valgrind", "--tool=callgrind", f"--callgrind-out-file={folder}/callgrind.out",
         f"--toggle-collect={function}(*", program, "library-file", url, target],
        check=True, capture_output=True, text=True).stderr
    return int(re.search(r"Collected : (\d+)", report).group(1))


def ask_block(arguments, folder, results):
    program, target, root = arguments.build / "bin/bench/TransferCost", folder / "target", folder / "root"
    root.mkdir()
    few, many = 8, 72
    for mib in (few, many):
        (root / f"{mib}.bin").write_bytes(os.urandom(mib * MIB))
    functions = {"whole": "Corvane::ZTransfer::ZTransferImpl::WriteCallback", "write": "Corvane::Wrappers::Sys::Fwrite"}
    per_block = {}
    with Nginx(folder, root) as server:
        for part, function in functions.items():
            # What the first block costs more drops out of the difference.
            less, more = (instructions(program, function, f"http://127.0.0.1:{server.port}/{mib}.bin", target, folder)
                          for mib in (few, many))
            per_block[part] = (more - less) / ((many - few) * MIB // BLOCK)
            if less <= 0 or more <= less:
                sys.exit(f"bench/run: no instructions counted in {function}: {less}, {more}")
    results.add("instructions on a block", per_block["whole"] - per_block["write"], "<= 1500", unit="instructions")
    print(f"instructions on a block of {BLOCK} bytes, throttle idle: {per_block['whole'] - per_block['write']:.0f},"
          f" and {per_block['write']:.0f} to write it to the file")
