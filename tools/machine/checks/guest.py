# SPDX-License-Identifier: Apache-2.0
"""What the checks share: commands in the guest, the daemon's answers, two figures side by side in a row."""

import json
import subprocess
import sys
import time
from pathlib import Path

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
    """The daemon's answer to a question of the second interface, or a text that says what went wrong."""
    words = ["meridalctl", "--timeout", "30", "call", method] + ([json.dumps(parameters)] if parameters else [])
    done = subprocess.run(words, stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=120)
    try:
        return json.loads(done.stdout)
    except ValueError:
        return "exit %d: %s" % (done.returncode, (done.stdout + done.stderr).decode(errors="replace").strip())


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
    """What `test` says as soon as it is true; the last that it said when time has run out."""
    end = time.monotonic() + seconds
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


def finish():
    """The check's end: its status tells whether all rows agree, and that there were any."""
    sys.exit(0 if ROWS["agree"] and not ROWS["DIFFER"] else 1)
