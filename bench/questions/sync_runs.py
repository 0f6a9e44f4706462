"""Brings a tree with each side by turns, checks what came, and compares."""

import os
import random
import shutil
import statistics
import subprocess
import threading
import time

from questions.sync_sides import CORVANE

PATIENCE = 900  # seconds after which a side that still runs is ended


# --- trees ------------------------------------------------------------------------------------------------------------


def write_tree(root, folders, files_each, smallest, largest):
    """Makes a tree whose files were changed at some time of the past years. Returns its files' bytes by their paths."""
    generator = random.Random(1)
    contents = {}
    for folder in folders:
        (root / folder).mkdir(parents=True, exist_ok=True)
        for number in range(files_each):
            name = f"{folder}/file{number:05d}.bin".lstrip("/")
            contents[name] = generator.randbytes(generator.randint(smallest, largest))
            (root / name).write_bytes(contents[name])
            changed = generator.randrange(1_300_000_000, 1_700_000_000)
            os.utime(root / name, (changed, changed))
    return contents


def folder_names(count):
    return [f"folder{number:03d}" for number in range(count)]


def find_files(target, own):
    for place, folders, files in os.walk(target):
        folders[:] = [name for name in folders if name not in own]
        for name in files:
            if name not in own:
                yield os.path.relpath(os.path.join(place, name), target)


def complaint_about(target, contents, own):
    """What is wrong with the files that a side brought; nothing when all are there with their bytes, and no others."""
    found = set(find_files(target, own))
    wrong = [name for name in contents.keys() & found if (target / name).read_bytes() != contents[name]]
    missing, foreign = contents.keys() - found, found - contents.keys()
    if not (wrong or missing or foreign):
        return ""
    right = len(contents) - len(missing) - len(wrong)
    return f"brought {right} of {len(contents)} files, {len(wrong)} wrong, {len(foreign)} foreign"


# --- runs -------------------------------------------------------------------------------------------------------------


def run_side(side, tree, target, contents):
    """Wall clock and CPU of one run, and what is wrong with its result."""
    command = side.command(tree, target)
    begin = time.monotonic()
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    watch = threading.Timer(PATIENCE, process.kill)
    watch.start()
    said = process.stderr.read().decode(errors="replace").strip()
    _, status, usage = os.wait4(process.pid, 0)
    wall = time.monotonic() - begin
    watch.cancel()
    process.stderr.close()
    process.returncode = os.waitstatus_to_exitcode(status)
    complaint = complaint_about(target, contents, side.own)
    if process.returncode != 0:
        complaint = "; ".join(filter(None, [f"ended with {process.returncode}", complaint, said[-200:]]))
    return {"wall": wall, "CPU": usage.ru_utime + usage.ru_stime, "complaint": complaint}


def put_aside(target):
    """What a timed run has brought stays until the question is over.

    ext4 does not use an inode again within seconds of its removal, and looks at each of them in turn: after the removal of some
    ten thousand files the next side to write paid two seconds now and then, whichever it was.
    """
    if target.exists():
        target.rename(target.with_name(f"{target.name}-{len(os.listdir(target.parent))}"))


def run_afresh(side, tree, target, contents):
    shutil.rmtree(target, ignore_errors=True)
    target.mkdir(parents=True)
    return run_side(side, tree, target, contents)


def present_sides(sides, build):
    """The sides that can be asked, and why the others cannot."""
    absent = {side.name: reason for side in sides if (reason := side.reason_to_leave_out(build))}
    return [side for side in sides if side.name not in absent], absent


class Contest:
    """The sides of a question, run by turns, and what came out of it. `absent`: why others do not take part, by their names."""

    def __init__(self, sides, absent):
        self.sides, self.absent = sides, absent
        self.runs = {side.name: [] for side in self.sides}
        self.traffic = {}
        self.complaints = {side.name: [] for side in self.sides}

    def run(self, server, timed, logged, target, contents, rounds):
        """Asks `timed`. The round that warms up asks `logged`, whose server counts what it is asked for."""
        for number in range(rounds + 1):
            first = number % len(self.sides)
            for side in self.sides[first:] + self.sides[:first]:
                if number == 0:
                    server.clear_log()
                put_aside(target)
                run = run_afresh(side, timed if number else logged, target, contents)
                if run["complaint"]:
                    self.complaints[side.name].append(run["complaint"])
                if number > 0:
                    self.runs[side.name].append(run)
                else:
                    log = server.read_log()
                    connections = {request["connection"] for request in log}
                    self.traffic[side.name] = {"requests": len(log), "connections": len(connections)}

    def reason_against(self, name):
        """Why a side has no figure to compare; nothing when it brought everything each time."""
        if name in self.absent:
            return self.absent[name]
        if failed := self.complaints[name]:
            return f"INCOMPLETE in {len(failed)} of {len(self.runs[name]) + 1} runs: {failed[0]}"
        return ""

    def median(self, name, measure):
        return statistics.median(run[measure] for run in self.runs[name])

    def report(self, results, aims):
        """Prints a line for each side. `aims`: by side what the ratio of each measure should be."""
        print(f"  {'side':28} {'wall s':>8} {'CPU s':>8} {'requests':>9} {'conn.':>6}   corvane sync / it")
        for name in [*self.absent, *self.runs]:
            verdicts = [self._compare(results, name, measure, aim) for measure, aim in aims.get(name, {}).items()]
            if reason := self.reason_against(name):
                results.lack(f"seconds of {name}", reason)
                print(f"  {name:28} {reason}", flush=True)
                continue
            wall, cpu, traffic = self.median(name, "wall"), self.median(name, "CPU"), self.traffic[name]
            results.add(f"seconds of {name}", wall, unit="s", cpu=cpu, **traffic)
            print(f"  {name:28} {wall:8.3f} {cpu:8.3f} {traffic['requests']:9} {traffic['connections']:6}   "
                  f"{', '.join(verdicts)}", flush=True)

    def _compare(self, results, name, measure, aim):
        row = f"{measure}, {CORVANE} / {name}"
        for side in (CORVANE, name):
            if reason := self.reason_against(side):
                results.lack(row, f"{side}: {reason}", aim)
                return f"{measure} -"
        ratio = self.median(CORVANE, measure) / self.median(name, measure)
        runs = {side: [run[measure] for run in self.runs[side]] for side in (CORVANE, name)}
        return f"{measure} {ratio:.3f} ({results.add(row, ratio, aim, runs=runs)})"
