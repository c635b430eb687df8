#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Each command, option and choice that meridalctl --help tells is known to the completion of every shell that is here.

    completions_test.py [BUILD_FOLDER]      (default: what MERIDAL_BUILD_DIR names)
"""

import json
import os
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import threading
import unittest
import unittest.mock
from pathlib import Path

COMPLETIONS = Path(__file__).resolve().parents[2] / "packaging" / "completions"
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
import running  # noqa: E402

# What each shell is asked with: the words typed so far, the last of which may be begun.
BASH = """
source "$0"
COMP_WORDS=(meridalctl "$@") COMP_CWORD=$#
_meridalctl
printf '%s\\n' "${COMPREPLY[@]}"
"""
FISH = 'source $argv[1]; complete -C "meridalctl $argv[2..-1]"'
# zsh completes on a terminal only: what the script would hand to its machinery is printed instead.
ZSH = """
_arguments() { [[ $1 == -C ]] && state=$stage; print -rl -- "$@" }
_describe() { print -rl -- "${(@P)4}" }
file=$1 stage=argument; shift
[[ -n $2 || $1 != -* ]] || stage=command
words=("$@")
source $file
"""


def offered(text):
    """Words of a shell's answer, without descriptions."""
    return set(re.findall(r"^[\w-]+", text, re.MULTILINE))


class Shell:
    def __init__(self, name, *command):
        self.name, self.command = name, command

    def ask(self, *words):
        program = shutil.which(self.name)
        script = COMPLETIONS / f"meridalctl.{self.name}"
        done = subprocess.run([program, *self.command, str(script), *words], capture_output=True, text=True, check=False)
        if done.stderr:
            raise AssertionError(f"{self.name} {words}: {done.stderr}")
        return done.stdout

    def commands(self):
        return offered(self.ask(""))

    def options(self, command):
        return offered(self.ask(*command, "--"))

    def choices(self, command, option):
        return offered(self.ask(*command, *option, ""))


class Zsh(Shell):
    def commands(self):
        return offered(self.ask("-"))

    def options(self, command):
        return set(re.findall(r"--[\w-]+(?==?\[)|(?<=\))--[\w-]+", self.ask(*command)))

    def choices(self, command, option):
        pattern = re.escape(option[0]) + r"=?\[" if option else r"^1:"
        found = re.search(pattern + r".*:\((.*)\)$", self.ask(*command), re.MULTILINE)
        return set(found.group(1).split()) if found else set()


class CompletionsTest(unittest.TestCase):
    @staticmethod
    def help(*command):
        program = os.path.join(running.BUILD, "meridalctl")
        return subprocess.run([program, *command, "--help"], capture_output=True, text=True, check=True).stdout

    def check(self, shell):
        if not shutil.which(shell.name):
            self.skipTest(f"no {shell.name} here")
        commands = re.findall(r"^  ([a-z]+)  +[A-Z]", self.help().split("Commands:")[1], re.MULTILINE)
        self.assertGreater(len(commands), 15)
        self.assertLessEqual(set(commands), shell.commands())
        for command in [[], *([name] for name in commands)]:
            text = self.help(*command)
            options = set(re.findall(r"^  (?:-\w,)?(--[\w-]+)", text, re.MULTILINE))
            self.assertLessEqual(options, shell.options(command), command)
            for option, choices in re.findall(r"^  (?:-\w,)?(\S+) ([\w-]+(?:\|[\w-]+)+)", text, re.MULTILINE):
                asked = [option] if option.startswith("--") else []
                self.assertLessEqual(set(choices.split("|")), shell.choices(command, asked), (command, option))

    @unittest.skipUnless(subprocess.run(["bash", "-c", "type mapfile"], capture_output=True, check=False).returncode == 0,
                         "bash is older than 4, which completion needs")
    def test_bash(self):
        self.check(Shell("bash", "-c", BASH))

    def test_fish(self):
        self.check(Shell("fish", "--no-config", "-c", FISH))

    def test_zsh(self):
        self.check(Zsh("zsh", "-fc", ZSH, "zsh"))


class Daemon(threading.Thread):
    """Answers what completion asks for, until its socket is gone."""

    ANSWERS = {"history.series": {"series": [{"series": "memory", "key": "", "values": ["used", "free"]},
                                             {"series": "sensors/1", "key": "1", "name": "Package id 0", "values": ["value"],
                                              "origin": "coretemp-isa-0000"}]},
               "network.interfaces": {"interfaces": [{"interface": "eth7"}]}, "disks.list": {"disks": [{"bsd": "sdq"}]}}

    def __init__(self, path):
        super().__init__(daemon=True)
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind(path)
        self.listener.listen()

    def run(self):
        while True:
            client, _ = self.listener.accept()
            with client, client.makefile("rw") as lines:
                for line in lines:
                    call = json.loads(line)
                    lines.write(json.dumps({"jsonrpc": "2.0", "id": call["id"], "result": self.ANSWERS[call["method"]]}) + "\n")
                    lines.flush()


class NamesTest(unittest.TestCase):
    """What the daemon knows, as the shells offer it."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.socket = os.path.join(folder.name, "daemon.sock")
        changed = {"MERIDAL_SOCKET": self.socket, "PATH": os.path.abspath(running.BUILD) + ":" + os.environ["PATH"]}
        patch = unittest.mock.patch.dict(os.environ, changed)
        patch.start()
        self.addCleanup(patch.stop)

    @staticmethod
    def complete(what):
        return subprocess.run(["meridalctl", "complete", what], capture_output=True, text=True, check=True)

    def test_silent_without_a_daemon(self):
        done = self.complete("series")
        self.assertEqual((done.stdout, done.stderr), ("", ""))

    def test_methods_are_all_that_there_are(self):
        header = (COMPLETIONS.parents[1] / "wire" / "Methods.h").read_text()
        named = set(re.findall(r'\[\] = "([^"]+)"', header)) - {"daemonResponse:"}
        self.assertEqual(set(self.complete("methods").stdout.splitlines()), named)

    def test_names(self):
        Daemon(self.socket).start()
        self.assertEqual(self.complete("series").stdout, "coretemp/Package id 0\nmemory\nmemory/free\nmemory/used\n")
        for shell in Shell("bash", "-c", BASH), Shell("fish", "--no-config", "-c", FISH):
            if not shutil.which(shell.name):
                continue
            for typed, offered_here in ((("history", "core"), r"coretemp/Package\ id\ 0"), (("history", "memory/u"), "memory/used"),
                                        (("bandwidth", "--interface", ""), "eth7"), (("disks", "sd"), "sdq"),
                                        (("call", "machine.w"), "machine.watch")):
                names = shell.ask(*typed).splitlines()
                plain = offered_here.replace("\\", "") if shell.name == "fish" else offered_here
                self.assertIn(plain, [name.split("\t")[0].replace("\\", "") if shell.name == "fish" else name for name in names],
                              (shell.name, typed))


if __name__ == "__main__":
    running.main()
