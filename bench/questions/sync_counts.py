"""Whole trees once more: what a second run asks of the server, and the memory that a run takes for each file."""

import statistics
import tempfile

from questions import sync_sides
from questions.servers import Nginx
from questions.sync_runs import folder_names, present_sides, run_afresh, run_side, write_tree
from questions.sync_sides import CORVANE, Side, Tree

FEW_FILES = 1000


def lack(results, name, reason, aims):
    """Keeps rows that could not be measured: those with an aim where they are ours, else one for information."""
    print(f"  {name:18} {reason}", flush=True)
    for row, aim in aims.items() if name == CORVANE else [(name, "")]:
        results.lack(row, f"{name}: {reason}", aim)


# --- a second run -----------------------------------------------------------------------------------------------------


def count_second_run(server, side, tree, target, contents):
    """What the server was asked for, and sent, when all was there already."""
    first = run_afresh(side, tree, target, contents)
    server.clear_log()
    second = run_side(side, tree, target, contents)
    log = server.read_log()
    sent = [request["body"] for request in log if request["body"] > 0 and not request["path"].endswith("/")]
    return {
        "complaint": first["complaint"] or second["complaint"], "wall": second["wall"], "requests": len(log),
        "HEAD": sum(request["method"] == "HEAD" for request in log), "304": sum(request["status"] == 304 for request in log),
        "files": len(sent), "file bytes": sum(sent), "bytes": sum(request["bytes"] for request in log)}


def ask_sync_again(arguments, folder, results):
    names, build = folder_names(100), arguments.build
    contents = write_tree(folder / "root/tree", names, max(1, arguments.files // len(names)), 1024, 4096)
    sides = [sync_sides.corvane(build, 8), sync_sides.lftp(8), sync_sides.rclone(), sync_sides.wget2("-N")]
    sides, absent = present_sides(sides, build)
    pages = len(names) + 1  # the folders' and that of the tree itself
    aims = {f"requests of {CORVANE} a folder": "== 1", f"bytes of files sent to {CORVANE}": "== 0"}
    print(f"sync-again: a second run when nothing has changed, {len(contents)} files in {pages} folders; one run, it is counted")
    print(f"  {'side':18} {'requests':>8} {'a folder':>9} {'HEAD':>6} {'304':>6} {'files sent':>10} {'their bytes':>11}"
          f" {'all bytes':>10} {'wall s':>7}")
    for name, reason in absent.items():
        lack(results, name, reason, aims)
    with Nginx(folder, folder / "root") as server:
        tree = Tree(f"http://127.0.0.1:{server.logged}/tree/", list(contents), folder)
        for side in sides:
            count = count_second_run(server, side, tree, folder / "target", contents)
            if count["complaint"]:
                lack(results, side.name, f"INCOMPLETE: {count['complaint']}", aims)
                continue
            each = count["requests"] / pages
            asked, sent = f"requests of {side.name} a folder", f"bytes of files sent to {side.name}"
            verdicts = [results.add(asked, each, aims.get(asked, ""), counts=count),
                        results.add(sent, count["file bytes"], aims.get(sent, ""), unit="bytes")]
            print(f"  {side.name:18} {count['requests']:8} {each:9.2f} {count['HEAD']:6} {count['304']:6} {count['files']:10}"
                  f" {count['file bytes']:11} {count['bytes']:10} {count['wall']:7.3f}  {', '.join(filter(None, verdicts))}",
                  flush=True)


# --- memory -----------------------------------------------------------------------------------------------------------


def peak_kib(side, tree, target, contents):
    """The most memory that a run held, and what is wrong with its result.

    A small program starts the side, since the kernel also counts what the process held that became it, and Python is large.
    """
    with tempfile.NamedTemporaryFile("r") as told:
        timed = Side(side.name, lambda *place: ["time", "-f", "%M", "-o", told.name, *side.command(*place)], side.own)
        complaint = run_afresh(timed, tree, target, contents)["complaint"]
        return (0, complaint) if complaint else (int(told.read().split()[-1]), "")


def ask_sync_memory(arguments, folder, results):
    names, build, target = folder_names(100), arguments.build, folder / "target"
    sides = [sync_sides.corvane(build, 8), sync_sides.bare(build, "h1", 8), sync_sides.wget2(), sync_sides.rclone(),
             sync_sides.lftp(8)]
    sides, absent = present_sides(sides, build)
    few, many = (write_tree(folder / "root" / place, names, files // len(names), 1, 16)
                 for place, files in (("few", FEW_FILES), ("many", arguments.many_files)))
    row, aim = "{} a file", "< 1"
    print(f"sync-memory: the most memory held with {len(few)} and with {len(many)} files of 1 to 16 bytes in {len(names)}"
          " folders; medians of 3 runs")
    print(f"  {'side':18} {'few, KiB':>10} {'many, KiB':>10} {'KiB a file':>11}")
    for name, reason in absent.items():
        lack(results, name, reason, {row.format(name): aim})
    with Nginx(folder, folder / "root") as server:
        for side in sides:
            peaks, complaints = {}, set()
            for place, contents in (("few", few), ("many", many)):
                tree = Tree(f"http://127.0.0.1:{server.port}/{place}/", list(contents), folder)
                runs = [peak_kib(side, tree, target, contents) for _ in range(3)]
                peaks[place] = statistics.median(peak for peak, _ in runs)
                complaints |= {complaint for _, complaint in runs if complaint}
            if complaints:
                lack(results, side.name, f"INCOMPLETE: {'; '.join(complaints)}", {row.format(side.name): aim})
                continue
            each = (peaks["many"] - peaks["few"]) / (len(many) - len(few))
            verdict = results.add(row.format(side.name), each, aim if side.name == CORVANE else "", unit="KiB", peaks=peaks)
            print(f"  {side.name:18} {peaks['few']:10.0f} {peaks['many']:10.0f} {each:11.3f}  {verdict}", flush=True)
