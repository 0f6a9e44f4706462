"""What the questions found: a list of rows, each with what it should be, for the summary, the file and the plot."""

import datetime
import json
import operator
import os
import platform
import re
import subprocess
import time

MEETS = {"<": operator.lt, "<=": operator.le, "==": operator.eq}

VERSION_COMMANDS = {
    "corvane": ["{build}/bin/corvane", "--version"],
    "curl": ["curl", "-q", "--version"],
    "wget": ["wget", "--version"],
    "wget2": ["wget2", "--version"],
    "aria2c": ["aria2c", "--version"],
    "lftp": ["lftp", "--version"],
    "rclone": ["rclone", "version"],
    "nginx": ["nginx", "-v"],
}


def meets(value, aim):
    """Whether a value is what an aim like "<= 1.05" asks for."""
    sign, bound = aim.split()
    return MEETS[sign](value, float(bound))


class Results:
    def __init__(self, arguments):
        self.question = ""  # the one that is being asked
        self.rows = []
        self.lacking = []  # what should have been measured and was not
        self.load = {}
        self.about = {
            "when": datetime.datetime.now(datetime.timezone.utc).isoformat(timespec="seconds"),
            "rounds": arguments.rounds,
            "machine": f"{os.cpu_count()} processors, {processor()}, {platform.system()} {platform.release()}",
            "versions": {name: version(command, arguments.build) for name, command in VERSION_COMMANDS.items()},
        }

    def begin(self, question):
        self.question = question
        self.load[question] = {"begin": os.getloadavg()}
        self.begun = time.monotonic()

    def end(self):
        """Other work on the machine shows in the load, which is part of what was measured."""
        load = self.load[self.question]
        load.update(end=os.getloadavg(), seconds=round(time.monotonic() - self.begun, 1))
        before, after = (", ".join(f"{one:.2f}" for one in load[when]) for when in ("begin", "end"))
        print(f"load before: {before}; after: {after}; {load['seconds']:.0f} s\n", flush=True)

    def add(self, row, value, aim="", unit="", **details):
        """Keeps a row and returns a few words on it. Without an aim it is for information."""
        met = meets(value, aim) if aim else None
        self._keep(row, value, aim, met, unit=unit, **details)
        return f"{aim} {'met' if met else 'missed'}" if aim else ""

    def lack(self, row, reason, aim=""):
        """Keeps a row that could not be measured."""
        self._keep(row, None, aim, None, reason=reason)
        self.lacking.append(f"{self.question}: {row}: {reason}")

    def _keep(self, row, value, aim, met, **details):
        self.rows.append({"question": self.question, "row": row, "value": value, "aim": aim, "met": met, **details})

    def print_about(self):
        print(f"{self.about['machine']}; {self.about['rounds']} rounds")
        print("\n".join(f"  {name:8} {found}" for name, found in self.about["versions"].items()), flush=True)
        print()

    def print_summary(self):
        aimed = [row for row in self.rows if row["aim"]]
        if not aimed:
            return
        width = max(len(f"{row['question']}: {row['row']}") for row in aimed)
        print(f"{'what':{width}} {'value':>10}  aim")
        for row in aimed:
            label = f"{row['question']}: {row['row']}"
            if row["value"] is None:
                print(f"{label:{width}} {'-':>10}  {row['aim']} not measured: {row['reason']}")
            else:
                print(f"{label:{width}} {row['value']:10.3f}  {row['aim']} {'met' if row['met'] else 'missed'}")

    def write(self, path):
        path.parent.mkdir(parents=True, exist_ok=True)
        found = {**self.about, "load": self.load, "rows": self.rows, "lacking": self.lacking}
        path.write_text(json.dumps(found, indent=1) + "\n")


def processor():
    try:
        with open("/proc/cpuinfo") as file:
            return re.search(r"^model name\s*: (.*)$", file.read(), re.MULTILINE).group(1)
    except (OSError, AttributeError):
        return platform.machine()


def version(command, build):
    """The beginning of what a program tells about itself."""
    try:
        told = subprocess.run([part.format(build=build) for part in command], capture_output=True, text=True)
    except OSError:
        return "not installed"
    lines = (told.stdout or told.stderr).strip().splitlines()
    return lines[0][:80].strip() if lines else "tells no version"
