# SPDX-License-Identifier: Apache-2.0
"""What the checks share: commands in the guest, the daemon's answers, two figures side by side in a row."""

import json
import os
import socket
import subprocess
import sys
import tempfile
import time
from pathlib import Path

SOCKET = "/run/meridal/daemon.sock"
ROWS = {"agree": 0, "DIFFER": 0}


def out(command, timeout=120):
    """What a command prints, on both channels; a list, or a line for the shell."""
    try:
        done = subprocess.run(command, shell=isinstance(command, str), stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, timeout=timeout)
        return done.stdout.decode(errors="replace").strip()
    except subprocess.TimeoutExpired as late:
        return "timed out: " + (late.stdout or b"").decode(errors="replace")


def load(command):
    """What a command prints as JSON; None where it is none."""
    done = subprocess.run(command, shell=isinstance(command, str), stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, timeout=120)
    try:
        return json.loads(done.stdout)
    except ValueError:
        return None


def call(method, **parameters):
    """The daemon's answer to a question of the second interface, or a text that says what went wrong. Without meridalctl in between:
    where the processor is emulated it takes longer to start than the daemon to answer."""
    question = {"jsonrpc": "2.0", "id": 1, "method": method} | ({"params": parameters} if parameters else {})
    try:
        with socket.socket(socket.AF_UNIX) as channel:
            channel.settimeout(60)
            channel.connect(SOCKET)
            channel.sendall(json.dumps(question).encode() + b"\n")
            answer = json.loads(channel.makefile().readline())
    except (OSError, ValueError) as failure:
        return "%s: %s" % (method, failure)
    return answer.get("result", answer.get("error"))


def pages(method, member, **parameters):
    """All entries of a question that is answered page by page."""
    entries = []
    while True:
        page = call(method, **parameters)
        if not isinstance(page, dict):
            raise SystemExit("%s: %s" % (method, page))
        entries += page[member]
        if not page["more"] or not page[member]:
            return entries
        parameters["after"] = page.get("next", page[member][-1].get("key"))


def compare(what, reference, ours, slack=0.0, percent=0.0):
    """A row; numbers agree within `slack`, or within so many percent of the reference."""
    if isinstance(reference, (int, float)) and isinstance(ours, (int, float)) and not isinstance(reference, bool):
        same = abs(reference - ours) <= max(slack, abs(reference) * percent / 100) + 1e-9
    else:
        same = reference == ours
    return row(same, what, "reference %-28s meridal %s" % (shown(reference), shown(ours)))


def row(same, what, detail=""):
    """A row by itself."""
    word = "agree" if same else "DIFFER"
    ROWS[word] += 1
    print("%-7s %-46s %s" % (word, what, detail), flush=True)
    return same


def shown(value):
    return "%.10g" % value if isinstance(value, float) else str(value)


def note(*words):
    """What is told and not judged, as what an emulated machine cannot show."""
    print("        " + " ".join(str(word) for word in words).replace("\n", "\n        "), flush=True)


def until(test, seconds, step=0.25):
    """What `test` says as soon as it is true; the last that it said when time has run out, which is five times as long as it should
    take: the processor may be emulated, and others' work beside."""
    end = time.monotonic() + 5 * seconds
    while True:
        said = test()
        if said or time.monotonic() >= end:
            return said
        time.sleep(step)


def read(path, default=""):
    try:
        return Path(path).read_text(errors="replace").strip()
    except OSError:
        return default


def answers(seconds=60):
    """Waits for the daemon."""
    return bool(until(lambda: subprocess.run(["meridalctl", "ping"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode == 0,
                      seconds, 0.5))


def main_pid():
    return int(out("systemctl show -p MainPID --value meridald") or 0)


def warnings(level="warning"):
    """What the daemon has said in the journal since the machine's start, at this level or a worse one."""
    return out(["journalctl", "-b", "-q", "--no-pager", "-o", "cat", "-u", "meridald", "-p", level])


class Watcher:
    """A client that goes on watching until its `with` ends."""

    def __init__(self, *topics):
        self.lines = tempfile.TemporaryFile()
        self.process = subprocess.Popen(["meridalctl", "watch", *topics], stdout=self.lines, stderr=subprocess.DEVNULL)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.terminate()

    def hears_on(self, what):
        """A row: from now on it prints something."""
        size = os.fstat(self.lines.fileno()).st_size
        heard = until(lambda: os.fstat(self.lines.fileno()).st_size > size, 30)
        return row(heard and self.process.poll() is None, what, "" if heard else "status %s" % self.process.poll())


# The record, of one sensor.

def recorded_sensor():
    """A series of a sensor; the check ends where none is recorded."""
    told = call("history.series", collector="sensors", limit=1)
    if not isinstance(told, dict) or not told["series"]:
        row(False, "sensors are recorded", told)
        finish()
    return told["series"][0]["series"]


def samples_of(series):
    """The samples of the last hour, oldest first: what is in the file, and what waits to be written."""
    told = call("history.samples", series=series)
    return told["samples"] if isinstance(told, dict) else []


def until_written():
    """Waits for the next batch of records, which reaches the file twice a minute."""
    newest = lambda: int(out(["sqlite3", "-readonly", "/var/lib/meridal/sensors.db", "select max(sample) from hour_sensorhistory"]) or 0)
    before = newest()
    return row(until(lambda: newest() > before, 60, 1), "a batch of records is written")


def in_order(samples, prefix=""):
    """Rows: identifiers rise, one each 6 s, and so do times."""
    pairs = list(zip(samples, samples[1:]))
    row(pairs and all(two["sample"] > one["sample"] for one, two in pairs), prefix + "identifiers of samples rise", "%d samples" % len(samples))
    strays = [pair for pair in pairs if abs((pair[1]["time"] - pair[0]["time"]) - 6 * (pair[1]["sample"] - pair[0]["sample"])) > 7]
    row(not strays, prefix + "their times go with them", strays[:2] or "")


def files_are_whole():
    """Rows: all databases pass their own check, and none had to be set aside."""
    for file in out("find /var/lib/meridal -name '*.db'").split():
        compare(os.path.basename(file), "ok", out(["sqlite3", "-readonly", file, "pragma integrity_check"]))
    compare("files set aside", 0, call("status")["databases"]["filesSetAside"])


def finish():
    """The check's end: its status tells whether all rows agree, and that there were any."""
    sys.exit(0 if ROWS["agree"] and not ROWS["DIFFER"] else 1)
