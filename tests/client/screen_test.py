#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The full screen of meridalctl in a real terminal (tmux), fed by a real daemon.

    screen_test.py [BUILD_FOLDER]      (default: what MERIDAL_BUILD_DIR names)
"""
import fcntl
import os
import pty
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import termios
import unittest

TESTS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..")
sys.path.insert(0, os.path.join(TESTS, "support"))
import running  # noqa: E402  the daemon and its clients

HOSTILE = "e\x1b[2J\x1b]0;owned\x07vil"
COLOUR = re.compile(r"\x1b\[(?:[\d;]*;)?(?:3[0-7]|4[0-7]|[34]8;[\d;]+)(?:;[\d;]*)?m")

needs_tmux = unittest.skipUnless(shutil.which("tmux"), "no tmux here")


class Terminal:
    """A terminal of our own tmux server, in which one program runs."""

    def __init__(self, folder, command, columns=80, rows=24, **environment):
        self.socket = os.path.join(tempfile.mkdtemp(dir=folder), "tmux")
        setting = {"LC_ALL": "C.UTF-8", "NO_COLOR": "", "TMPDIR": folder, **environment}
        # tmux now and then does not say how a program ended; a shell always does.
        words = ["sh", "-c", 'trap : INT; "$@"; echo "ended with $?"; tail -f /dev/null', "sh", "env",
                 *(f"{name}={value}" for name, value in setting.items()), *command]
        self.tmux("-f", "/dev/null", "new-session", "-d", "-x", str(columns), "-y", str(rows), *words)
        self.tmux("set-option", "-g", "window-size", "manual")

    def tmux(self, *words):
        return subprocess.run(["tmux", "-u", "-S", self.socket, *words], capture_output=True, text=True, timeout=running.DEADLINE,
                              check=True).stdout

    def press(self, *keys):
        self.tmux("send-keys", *keys)

    def lines(self, *options):
        return self.tmux("capture-pane", "-p", *options).split("\n")[:-1]

    def text(self):
        return "\n".join(self.lines())

    def wait_for(self, what):
        """Until some text, or something that is asked of all of it, is on the screen."""
        holds = what if callable(what) else lambda text: what in text
        try:
            return running.until(lambda: (text := self.text()) and holds(text) and text, str(what))
        except AssertionError as never:
            raise AssertionError(f"{never}, but\n{self.text()}") from None

    def resize(self, columns, rows):
        self.tmux("resize-window", "-x", str(columns), "-y", str(rows))

    def close(self):
        subprocess.run(["tmux", "-S", self.socket, "kill-server"], capture_output=True, timeout=running.DEADLINE)


@needs_tmux
class ScreenTest(running.DaemonTest):
    def setUp(self):
        super().setUp()
        self.terminals = []

    def tearDown(self):
        for terminal in self.terminals:
            terminal.close()  # before the folder of its socket goes, or its server stays for good
        super().tearDown()

    def screen(self, *arguments, **options):
        terminal = Terminal(self.root, self.ctl_command("screen", *arguments), **options)
        self.terminals.append(terminal)
        return terminal

    def start_time(self, pid):
        """What tells a process from a later one of its number; None once it has ended."""
        try:
            with open(f"/proc/{pid}/stat") as file:
                fields = file.read().rpartition(")")[2].split()
        except FileNotFoundError:
            return None
        return None if fields[0] == "Z" else fields[19]

    def test_first_figures_panels_sizes_and_pause(self):
        self.start().wait_ready()
        terminal = self.screen()
        shown = terminal.wait_for(lambda text: "CPU " in text and "Memory " in text and "APPLICATION" in text)
        self.assertIn("[1Overview]", shown)
        self.assertIn("? help", shown.splitlines()[-1])
        titles = re.findall(r"(\d)([A-Z]\w+)", shown.splitlines()[1])
        self.assertEqual("".join(number for number, _ in titles), "123456789")
        for number, title in [*titles, *titles[:1]]:
            terminal.press(number)
            terminal.wait_for(f"[{number}{title}]")
        terminal.press("Tab", "BTab")
        terminal.press("?")
        terminal.wait_for("Everywhere")
        terminal.press("Escape")
        terminal.resize(40, 10)
        small = terminal.wait_for(lambda text: len(text.splitlines()) == 10 and "? help" in text.splitlines()[-1] and "Memory " in text)
        self.assertTrue(all(len(line) <= 40 for line in small.splitlines()), small)
        terminal.resize(80, 24)
        terminal.wait_for(lambda text: len(text.splitlines()) == 24 and "? help" in text.splitlines()[-1])
        terminal.press("p")
        terminal.wait_for("PAUSED")
        terminal.press("Space")
        terminal.wait_for(lambda text: "PAUSED" not in text)
        terminal.press("q")
        terminal.wait_for("ended with 0")

    def test_goes_on_when_the_daemon_goes_and_comes_back(self):
        daemon = self.start().wait_ready()
        terminal = self.screen()
        terminal.wait_for("Memory ")
        daemon.kill()
        gone = terminal.wait_for("NOT CONNECTED")
        self.assertIn("Memory ", gone)  # what was known stays
        self.start().wait_ready()
        terminal.wait_for(lambda text: "NOT CONNECTED" not in text and "Memory " in text)

    def test_without_a_daemon_it_says_how_to_start_one_and_waits(self):
        terminal = Terminal(self.root, [os.path.join(running.BUILD, "meridalctl"), "--socket",
                                        os.path.join(self.root, "run", "daemon.sock")], NO_COLOR="1")
        self.terminals.append(terminal)
        terminal.wait_for("systemctl start meridald" if running.IS_LINUX else "launchctl")
        self.start().wait_ready()
        terminal.wait_for("Memory ")

    def test_has_a_daemon_of_its_own_for_the_asking_and_leaves_nothing(self):
        temporary = os.path.join(self.root, "temporary")
        os.mkdir(temporary)
        terminal = Terminal(self.root, [os.path.join(running.BUILD, "meridalctl"), "screen", "--spawn"], TMPDIR=temporary)
        self.terminals.append(terminal)
        terminal.wait_for("Memory ")
        self.assertEqual(len(os.listdir(temporary)), 1)
        terminal.press("C-c")
        terminal.wait_for("ended with 0")
        self.assertEqual(os.listdir(temporary), [])

    def sleeper(self, name):
        """A child of ours that waits under some name."""
        program = os.path.join(self.root, name)
        shutil.copy(shutil.which("sleep"), program)
        child = subprocess.Popen([program, "1000"])
        self.children.append(child)
        return child

    def test_names_steer_no_terminal(self):
        self.start().wait_ready()
        child = self.sleeper(HOSTILE)
        terminal = self.screen("processes")
        terminal.wait_for("PID")
        terminal.press("/", *f"pid:{child.pid}", "Enter")
        terminal.wait_for("e?[2J?]0;owned?v")
        self.assertNotIn("owned", terminal.tmux("display-message", "-p", "#{pane_title}"))

    @running.on_linux  # start_time()
    def test_signals_the_chosen_process_after_a_question(self):
        self.start().wait_ready()
        child = self.sleeper("waiting")
        started = self.start_time(child.pid)
        terminal = self.screen("processes")
        terminal.wait_for("PID")
        terminal.press("/", *f"pid:{child.pid}", "Enter")
        terminal.wait_for(lambda text: re.search(rf"^ *{child.pid} .*waiting", text, re.MULTILINE))
        terminal.press("k", "t")
        terminal.wait_for(f"Send SIGTERM to waiting ({child.pid})?")
        terminal.press("n")
        terminal.wait_for("? help")
        terminal.press("n")
        terminal.wait_for("Nice (-20 to 19)")
        terminal.press(*["BSpace"] * 3, "7", "Enter")  # there stands the present one
        terminal.wait_for("is 7 nice now")
        self.assertEqual(os.getpriority(os.PRIO_PROCESS, child.pid), 7)
        terminal.press("k", "t")
        terminal.wait_for(f"Send SIGTERM to waiting ({child.pid})?")
        self.assertEqual(self.start_time(child.pid), started)  # it still is that child of ours
        terminal.press("y")
        terminal.wait_for("SIGTERM sent")
        self.assertEqual(child.wait(running.DEADLINE), -signal.SIGTERM)

    def test_without_colour_and_without_utf8(self):
        self.start().wait_ready()
        child = self.sleeper("caf\u00e9\u732b")
        for words, environment, name in (([], {}, "café猫"), (["--theme", "mono"], {"LC_ALL": "C"}, "caf???"),
                                         (["--ascii", "--color", "always"], {}, "caf???"), (["--ascii"], {"NO_COLOR": "1"}, "caf???")):
            terminal = self.screen("processes", *words, **environment)
            terminal.wait_for("PID")
            terminal.press("/", *f"pid:{child.pid}", "Enter")
            text = terminal.wait_for(name)
            self.assertEqual(text.isascii(), "?" in name, text)
            if "mono" in words or environment.get("NO_COLOR"):
                self.assertIsNone(COLOUR.search("\n".join(terminal.lines("-e"))))
            terminal.close()

    def test_leaves_the_terminal_as_it_was(self):
        self.start().wait_ready()
        ours, theirs = pty.openpty()
        before = fcntl.fcntl(theirs, fcntl.F_GETFL), termios.tcgetattr(theirs)
        program = subprocess.Popen(self.ctl_command("screen"), stdin=theirs, stdout=theirs, stderr=theirs,
                                   env=dict(os.environ, TERM="xterm"))
        self.children.append(program)
        text = b""
        while b"Memory" not in text:
            text += os.read(ours, 65536)
        os.write(ours, b"q")
        self.assertEqual(program.wait(running.DEADLINE), 0)
        self.assertEqual((fcntl.fcntl(theirs, fcntl.F_GETFL), termios.tcgetattr(theirs)), before)
        os.close(ours)
        os.close(theirs)

    def test_a_terminal_that_cannot_place_text_gets_the_help(self):
        for kind in ("dumb", "no-such-kind"):
            for words, status in (((), 0), (("screen",), 64)):
                ours, theirs = pty.openpty()
                program = subprocess.Popen([os.path.join(running.BUILD, "meridalctl"), *words], stdin=theirs, stdout=theirs,
                                           stderr=theirs, env=dict(os.environ, TERM=kind))
                os.close(theirs)
                text = b""
                try:
                    while chunk := os.read(ours, 4096):
                        text += chunk
                except OSError:  # all have closed it
                    pass
                os.close(ours)
                self.assertEqual(program.wait(running.DEADLINE), status, text)
                self.assertIn(b"takes a terminal" if words else b"Usage:", text)
                self.assertNotIn(b"\x1b", text)


if __name__ == "__main__":
    running.main()
