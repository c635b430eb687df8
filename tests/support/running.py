# SPDX-License-Identifier: Apache-2.0
"""A running daemon for tests in Python: how it is started, asked and stopped, and the devices it believes to have.

Every wait is for an event (a notification, an envelope, an exit) with a generous deadline; only what comes without one is
asked for again and again (until).
"""

import contextlib
import ctypes
import importlib.util
import os
import pwd
import select
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "docs"))
import example_client  # noqa: E402

NOBODY = pwd.getpwnam("nobody").pw_uid  # an ordinary user
DEADLINE = 60  # s; met at once on a healthy machine, long enough for a sanitizer on a busy one
SYSTEM_PYTHON = "/usr/bin/python3"  # has the system's packages
IS_LINUX = sys.platform == "linux"
PRELOAD = "libumockdev-preload.so.0"  # lets a process have devices of its own
BUILD = None
# Becomes a program as a service manager starts it: standard error is the journal's, and a socket (-1: none) is handed over.
BECOME_SERVICE = """
import os, sys
error = os.fstat(2)
environment = dict(os.environ, JOURNAL_STREAM=f"{error.st_dev}:{error.st_ino}")
if (descriptor := int(sys.argv[1])) >= 0:
    os.dup2(descriptor, 3)
    environment.update(LISTEN_FDS="1", LISTEN_PID=str(os.getpid()))
os.execve(sys.argv[2], sys.argv[2:], environment)
"""

on_linux = unittest.skipUnless(IS_LINUX, "Linux alone has it")
needs_root = unittest.skipUnless(os.geteuid() == 0, "needs root")
needs_devices = unittest.skipUnless(os.environ.get("LD_PRELOAD") == PRELOAD, "no umockdev in this process")


def go_on_with(module):
    """Goes on in the system's Python where this one lacks a module; where both do, nothing can be tested."""
    if importlib.util.find_spec(module):
        return
    if os.path.realpath(sys.executable) != os.path.realpath(SYSTEM_PYTHON) and os.path.exists(SYSTEM_PYTHON):
        os.execv(SYSTEM_PYTHON, [SYSTEM_PYTHON, *sys.argv])
    print(f"no {module} for Python: nothing tested")
    sys.exit(0)


def go_on_with_devices():
    """Goes on below umockdev where that is installed."""
    if "LD_PRELOAD" not in os.environ and shutil.which("umockdev-run"):
        os.environ.update(LD_PRELOAD=PRELOAD, ASAN_OPTIONS=os.environ.get("ASAN_OPTIONS", "") + ":verify_asan_link_order=0")
        os.execv(sys.executable, [sys.executable, *sys.argv])


def until(condition, what):
    """Asks until the condition holds, and answers what it gave."""
    deadline = time.monotonic() + DEADLINE
    while not (found := condition()):
        if time.monotonic() > deadline:
            raise AssertionError("never came: " + what)
        select.select([], [], [], 0.01)  # leaves the machine to what is waited for
    return found


@contextlib.contextmanager
def acting_as(user):
    """What is done within is another user's, for the kernel, with no group of ours; None changes nothing."""
    if user is None:
        yield
        return
    groups = os.getgroups()
    os.setgroups([])
    os.setegid(user)
    os.seteuid(user)
    try:
        yield
    finally:
        os.seteuid(0)
        os.setegid(0)
        os.setgroups(groups)


class Client(example_client.Client):
    """The client that the documentation shows, as patient as these tests."""

    def __init__(self, path):
        super().__init__(path, timeout=DEADLINE)

    def call(self, method, *params):
        try:
            return super().call(method, *params)
        except example_client.CallError as refusal:
            raise RuntimeError(refusal) from refusal

    def envelope(self, wanted):
        """The next envelope that satisfies a condition; a key stands for the envelopes of that key."""
        while (envelope := self.next_envelope()) is not None:
            if wanted(envelope) if callable(wanted) else envelope["type"] == str(wanted):
                return envelope
        raise TimeoutError("no such envelope came")


class Daemon:
    def __init__(self, root, *arguments, user=None, service=False, listening=None, environment=None):
        """`service`: as systemd starts it, with a listening socket of its own where one is given."""
        self.root = root
        self.socket_path = os.path.join(root, "run", "daemon.sock")
        self.notify = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.notify.settimeout(DEADLINE)
        notify_path = os.path.join(root, "notify")
        if os.path.exists(notify_path):
            os.unlink(notify_path)
        self.notify.bind(notify_path)
        os.chmod(notify_path, 0o777)
        program = os.path.join(BUILD, "meridald")
        if user:  # who may not be able to reach the build folder
            program = shutil.copy(program, root)
        command = [program, "--root", root, *arguments]
        passed = [listening.fileno()] if listening else []
        if service:
            command = [sys.executable, "-c", BECOME_SERVICE, str(*passed or [-1]), *command]
        self.process = subprocess.Popen(
            command, pass_fds=passed, env=dict(os.environ, NOTIFY_SOCKET=notify_path, **environment or {}),
            stdin=subprocess.DEVNULL, stderr=subprocess.PIPE, user=user,
            group=pwd.getpwuid(user).pw_gid if user else None, extra_groups=[] if user else None)

    def wait_ready(self):
        if IS_LINUX:
            return self.wait_told(b"READY=1")
        until(self.answers, "a daemon that answers")  # launchd is told nothing
        return self

    def answers(self):
        if self.process.poll() is not None:
            raise AssertionError("the daemon has ended")
        try:
            self.client().close()
        except OSError:
            return False
        return True

    def wait_told(self, what):
        """Waits until the service manager has been told so."""
        while what not in self.notify.recv(4096).split(b"\n"):
            pass
        return self

    def client(self, user=None):
        with acting_as(user):
            return Client(self.socket_path)

    def stop(self, number=signal.SIGTERM):
        self.process.send_signal(number)
        return self.wait()

    def kill(self):
        self.process.kill()
        self.wait()

    def wait(self):
        status = self.process.wait(DEADLINE)
        self.errors = self.process.stderr.read().decode()
        self.process.stderr.close()
        self.notify.close()
        return status

    def read_log(self):
        folder = os.path.join(self.root, "log")
        text = ""
        for name in sorted(os.listdir(folder)):
            if name != "mas-daemon.log":
                with open(os.path.join(folder, name)) as file:
                    text += file.read()
        return text


class DaemonTest(unittest.TestCase):
    """A folder of its own for daemons, which end with the test as its other children do."""

    def setUp(self):
        # By its own name, as the daemon tells it, and short: the longest path of a socket is 103 bytes on a Mac.
        self.root = os.path.realpath(tempfile.mkdtemp(prefix="meridal-test-", dir="/tmp"))
        os.chmod(self.root, 0o777)
        self.daemons = []
        self.children = []

    def tearDown(self):
        for daemon in self.daemons:
            if daemon.process.poll() is None:
                daemon.kill()
        for child in self.children:
            child.kill()
            child.wait()
        shutil.rmtree(self.root, ignore_errors=True)

    def start(self, *arguments, **options):
        daemon = Daemon(self.root, *arguments, **options)
        self.daemons.append(daemon)
        return daemon

    @contextlib.contextmanager
    def serving(self, *arguments, **options):
        """A daemon that is ready and a client of it, which both end in order."""
        daemon = self.start(*arguments, **options).wait_ready()
        client = daemon.client()
        yield daemon, client
        client.close()
        self.assertEqual(daemon.stop(), 0)

    def client(self, *arguments):
        """A client of a daemon of its own; both last as long as the test."""
        client = self.start(*arguments).wait_ready().client()
        self.addCleanup(client.close)
        return client

    def ctl_command(self, *arguments):
        return [os.path.join(BUILD, "meridalctl"), "--socket", self.daemons[-1].socket_path, *arguments]

    def ctl(self, *arguments, status=0):
        """What meridalctl prints; on standard error where it is to fail."""
        done = subprocess.run(self.ctl_command(*arguments), capture_output=True, text=True, timeout=DEADLINE)
        self.assertEqual(done.returncode, status, done.stderr)
        return done.stdout if status == 0 else done.stderr

    def spawn(self, *command):
        """A child of ours that has printed a line when this returns."""
        child = subprocess.Popen(command, stdout=subprocess.PIPE)
        self.children.append(child)
        child.stdout.readline()
        child.stdout.close()
        return child

    def use_devices(self, folder):
        """Puts what umockdev shows the daemons in a folder's place."""
        os.environ["UMOCKDEV_DIR"] = folder
        self.addCleanup(os.environ.pop, "UMOCKDEV_DIR", None)

    def make_bed(self):
        """A test bed of umockdev's, which sets its folder behind Python's back."""
        try:
            import gi
            gi.require_version("UMockdev", "1.0")
            from gi.repository import UMockdev
        except (ImportError, ValueError):
            self.skipTest("no umockdev for Python")
        bed = UMockdev.Testbed.new()
        self.use_devices(bed.get_root_dir())
        return bed

    @staticmethod
    def uevent(bed, device, action):
        for _ in range(2):  # the bed numbers them from 0, which libudev takes for no number
            bed.uevent(device, action)

    @staticmethod
    def answer_ioctls(bed, node, handle):
        """Asks a function of client for the answer to each ioctl; false where it has none."""
        from gi.repository import UMockdev
        handler = UMockdev.IoctlBase()
        handler.connect("handle-ioctl", lambda _, client: handle(client))
        bed.attach_ioctl(node, handler)
        return handler


def main():
    """Runs the tests of a script whose argument, if any, is the build folder."""
    global BUILD
    is_folder = len(sys.argv) > 1 and os.path.isdir(sys.argv[1])
    BUILD = os.path.abspath(sys.argv.pop(1) if is_folder else os.environ["MERIDAL_BUILD_DIR"])
    if IS_LINUX:
        ctypes.CDLL(None).prctl(1, signal.SIGKILL, 0, 0, 0)  # our children's parent must not outlive ctest's timeout
    unittest.main(verbosity=2)
