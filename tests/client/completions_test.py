#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Each command, option and choice that meridalctl --help tells is known to the completion of every shell that is here.

    completions_test.py [BUILD_FOLDER]      (default: what MERIDAL_BUILD_DIR names)
"""

import os
import re
import shutil
import subprocess
import sys
import unittest
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
        commands = re.findall(r"^  ([a-z]+)  +[A-Z]", self.help().split("Subcommands:")[1], re.MULTILINE)
        self.assertGreater(len(commands), 15)
        self.assertLessEqual(set(commands), shell.commands())
        for command in [[], *([name] for name in commands)]:
            text = self.help(*command)
            options = set(re.findall(r"^  (?:-\w,)?(--[\w-]+)", text, re.MULTILINE))
            self.assertLessEqual(options, shell.options(command), command)
            for option, choices in re.findall(r"^  (?:-\w,)?(\S+) :\{(.*)\}", text, re.MULTILINE):
                asked = [option] if option.startswith("--") else []
                self.assertLessEqual(set(choices.split(",")), shell.choices(command, asked), (command, option))

    @unittest.skipUnless(subprocess.run(["bash", "-c", "type mapfile"], capture_output=True, check=False).returncode == 0,
                         "bash is older than 4, which completion needs")
    def test_bash(self):
        self.check(Shell("bash", "-c", BASH))

    def test_fish(self):
        self.check(Shell("fish", "--no-config", "-c", FISH))

    def test_zsh(self):
        self.check(Zsh("zsh", "-fc", ZSH, "zsh"))


if __name__ == "__main__":
    running.main()
