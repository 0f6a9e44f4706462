"""What each side is called with to bring a whole tree: as a user would, quietly, with no pauses, and with the server's times.

A command is made anew for each place of the tree, since some sides are given a ready list of what to fetch. All of them check
the server's certificate against the same file.
"""

import dataclasses
import pathlib
import shutil
import subprocess
import typing


@dataclasses.dataclass
class Tree:
    """A tree on a server: its URL, the paths of its files below that, and where its certificate is."""

    url: str
    files: list
    lists: pathlib.Path  # a folder for the lists that some sides want
    certificate: typing.Optional[pathlib.Path] = None  # None without TLS


@dataclasses.dataclass
class Side:
    name: str
    command: typing.Callable  # of a Tree and the folder that the files go into
    own: tuple = ()  # names of files that are none of the tree's: the side's own bookkeeping

    def reason_to_leave_out(self, build):
        program = str(self.command(Tree("http://127.0.0.1/tree/", [], pathlib.Path("/nowhere")), pathlib.Path("/nowhere"))[0])
        if self.name == CORVANE:
            return "" if has_sync(program) else "not built"
        return "" if shutil.which(program) else "not installed"


CORVANE = "corvane sync"


def has_sync(program):
    """Whether this build of the program has the command: one that it does not know it takes for a call for help."""
    try:
        told = subprocess.run([program, "--help"], capture_output=True, text=True).stdout
    except OSError:
        return False
    return any(line.split()[:1] == ["sync"] for line in told.splitlines())


def write_list(tree, name, line):
    path = tree.lists / name
    if tree.files:
        path.write_text("".join(line.format(url=tree.url + file, file=file) for file in tree.files))
    return path


def trust(tree, option):
    return [option, tree.certificate] if tree.certificate else []


def corvane(build, connections=None):
    at_once = ["--connections", str(connections)] if connections else []

    def command(tree, target):
        return [build / "bin/corvane", "sync", tree.url, target, "-q", *at_once, *trust(tree, "--cacert")]
    return Side(CORVANE, command, (".corvane",))


def bare(build, mode, in_flight):
    def command(tree, target):
        listed = write_list(tree, "bare", "{url}\t{file}\n")
        authority = [tree.certificate] if tree.certificate else []
        return [build / "bin/bench/SyncCost", mode, str(in_flight), listed, target, *authority]
    return Side("bare loop", command, (".corvane",))


def curl(at_once, *options):
    def command(tree, target):
        listed = write_list(tree, "curl", 'url = "{url}"\noutput = "' + str(target) + '/{file}"\n')
        return ["curl", "-q", "-S", "--no-progress-meter", "-Z", "--parallel-max", str(at_once), *options, "--create-dirs",
                "--remote-time", *trust(tree, "--cacert"), "-K", listed]
    return Side(f"curl -Z --parallel-max {at_once}", command)


def lftp(at_once):
    def command(tree, target):
        authority = f"set ssl:ca-file {tree.certificate}; " if tree.certificate else ""
        return ["lftp", "--norc", "-c", f"{authority}set xfer:log no; mirror --parallel={at_once} --no-perms {tree.url} {target}"]
    return Side(f"lftp mirror -P{at_once}", command)


def wget2(*options):
    # It keeps the pages that it read the names from.
    def command(tree, target):
        return ["wget2", "--no-config", "-q", "-r", "-l", "inf", "-np", "-nH", "--cut-dirs=1", "--robots=off", *options,
                *trust(tree, "--ca-certificate"), "-P", target, tree.url]
    return Side(" ".join(("wget2 -r", *options)), command, ("index.html",))


def rclone(*options):
    def command(tree, target):
        return ["rclone", "copy", "-q", "--config", "", *options, *trust(tree, "--ca-cert"), "--http-url", tree.url, ":http:",
                target]
    return Side(" ".join(("rclone copy", *options)), command)
