#!/usr/bin/env python3
"""The whole daemon as its users meet it: a real process, a real socket, real signals, this machine's processes.

    daemon_test.py [BUILD_FOLDER]      (default: what MERIDAL_BUILD_DIR names)

Every wait is for an event (a notification, an envelope, an exit) with a generous deadline; only what comes without one is
asked for again and again (until).
"""
import contextlib
import ctypes
import os
import pwd
import select
import shutil
import signal
import socket
import stat
import subprocess
import sys
import tempfile
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "docs"))
import example_client  # noqa: E402

DEADLINE = 60  # s; met at once on a healthy machine, long enough for a sanitizer on a busy one
BUILD = None


def until(condition, what):
    """Asks until the condition holds, and answers what it gave."""
    deadline = time.monotonic() + DEADLINE
    while not (found := condition()):
        if time.monotonic() > deadline:
            raise AssertionError("never came: " + what)
        select.select([], [], [], 0.01)  # leaves the machine to what is waited for
    return found


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
        """The next envelope that satisfies a condition."""
        while (envelope := self.next_envelope()) is not None:
            if wanted(envelope):
                return envelope
        raise TimeoutError("no such envelope came")


class Daemon:
    def __init__(self, root, *arguments, user=None):
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
        self.process = subprocess.Popen(
            [program, "--root", root, *arguments],
            env=dict(os.environ, NOTIFY_SOCKET=notify_path), stdin=subprocess.DEVNULL, stderr=subprocess.PIPE,
            user=user, group=pwd.getpwuid(user).pw_gid if user else None, extra_groups=[] if user else None)

    def wait_ready(self):
        while b"READY=1" not in self.notify.recv(4096).split(b"\n"):
            pass
        return self

    def client(self):
        return Client(self.socket_path)

    def stop(self, number=signal.SIGTERM):
        self.process.send_signal(number)
        return self.wait()

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
    def setUp(self):
        self.root = tempfile.mkdtemp(prefix="meridal-test-")
        os.chmod(self.root, 0o777)
        self.daemons = []
        self.children = []

    def tearDown(self):
        for daemon in self.daemons:
            if daemon.process.poll() is None:
                daemon.process.kill()
                daemon.wait()
        for child in self.children:
            child.kill()
            child.wait()
        shutil.rmtree(self.root, ignore_errors=True)

    def start(self, *arguments, **options):
        daemon = Daemon(self.root, *arguments, **options)
        self.daemons.append(daemon)
        return daemon

    @contextlib.contextmanager
    def serving(self, **options):
        """A daemon that is ready and a client of it, which both end in order."""
        daemon = self.start(**options).wait_ready()
        client = daemon.client()
        yield daemon, client
        client.close()
        self.assertEqual(daemon.stop(), 0)

    def ctl(self, *arguments, status=0):
        """What meridalctl prints; on standard error where it is to fail."""
        command = [os.path.join(BUILD, "meridalctl"), "--socket", self.daemons[-1].socket_path, *arguments]
        done = subprocess.run(command, capture_output=True, text=True, timeout=DEADLINE)
        self.assertEqual(done.returncode, status, done.stderr)
        return done.stdout if status == 0 else done.stderr

    def spawn(self, code):
        """A child of ours that has printed a line when this returns."""
        child = subprocess.Popen([sys.executable, "-c", code], stdout=subprocess.PIPE)
        self.children.append(child)
        child.stdout.readline()
        child.stdout.close()
        return child

    def test_serves_and_ends_in_order(self):
        for number in (signal.SIGTERM, signal.SIGINT):
            daemon = self.start().wait_ready()
            client = daemon.client()
            self.assertIs(client.call("exists:"), True)
            version, build = client.call("version:")
            self.assertAlmostEqual(version, 6.6, places=5)
            self.assertEqual(build, 1177)
            mode = os.stat(daemon.socket_path).st_mode
            self.assertEqual(stat.S_IMODE(mode) & 0o666, 0o666, "every local user may connect")
            self.assertEqual(daemon.stop(number), 0)
            self.assertFalse(os.path.exists(daemon.socket_path))
            client.close()
        words = ["Daemon smc", "Prepating smc", "Prepating network", "Preparing smart", "Preparing processes", "Preparing battery",
                 "Preparing power notifier", "Preparing bandwidth", "Starting network", "Starting processes",
                 "Daemon started"]
        log = daemon.read_log()
        places = [log.find(word) for word in words]
        self.assertNotIn(-1, places, log)
        self.assertEqual(places, sorted(places))
        self.assertEqual(log.count("Daemon started"), 2, "a second run adds to the same log")

    def test_one_daemon_a_root_and_a_dead_one_is_replaced(self):
        first = self.start().wait_ready()
        second = self.start()
        self.assertEqual(second.wait(), 1)
        self.assertIn("already runs", second.errors)
        self.assertIn(str(first.process.pid), second.errors)
        self.assertEqual(len(second.errors.strip().splitlines()), 1, second.errors)
        client = first.client()
        self.assertIs(client.call("exists:"), True)
        client.close()

        first.process.kill()
        first.wait()
        self.assertTrue(os.path.exists(first.socket_path), "a killed daemon leaves its socket behind")
        third = self.start().wait_ready()
        client = third.client()
        self.assertIs(client.call("exists:"), True)
        client.close()
        self.assertEqual(third.stop(), 0)

    def test_standard_error_goes_to_its_log_unless_a_development_tool_started_us(self):
        error_log = os.path.join(self.root, "log", "mas-daemon.log")
        os.makedirs(os.path.dirname(error_log))
        for size, kept in ((3_145_728, True), (3_145_729, False)):
            with open(error_log, "wb") as file:
                file.truncate(size)
            self.assertEqual(self.start().wait_ready().stop(), 0)
            self.assertEqual(os.path.getsize(error_log) >= size, kept, f"{size} bytes")
        os.unlink(error_log)
        self.assertEqual(self.start("/Applications/xCoDe.app/Contents").wait_ready().stop(), 0)
        self.assertFalse(os.path.exists(error_log))

    def test_wrong_arguments_are_named(self):
        daemon = self.start("--nonsense")
        self.assertNotEqual(daemon.wait(), 0)
        self.assertIn("--nonsense", daemon.errors)

    def test_a_busy_process_and_its_name_of_any_bytes(self):
        child = self.spawn("import ctypes\n"
                           "ctypes.CDLL(None).prctl(15, b'ev)il \\xff\\n\\x1b[2J', 0, 0, 0)\n"
                           "print('up', flush=True)\nwhile True: pass")
        with self.serving() as (_, client):
            client.call("startRequestWithKey:interval:", 1, 1)
            key = str(child.pid)

            def busy(envelope):
                return any(row["key"] == key and float(row["c"]) > 20 for row in envelope["processes"])

            rows = client.envelope(busy)["processes"]
            self.assertLessEqual(len(rows), 20)
            shares = [float(row["c"]) for row in rows]
            self.assertEqual(shares, sorted(shares, reverse=True))
            name = client.call("infoForPids:reply:", [child.pid, 2 ** 31 - 1])
            self.assertEqual(name, [{"name": "ev)il \ufffd\n\x1b[2J", "pid": child.pid}])

    def test_memory_and_energy_of_a_known_child(self):
        child = self.spawn("import time\nblock = bytearray(b'x') * (300 << 20)\nprint('up', flush=True)\ntime.sleep(600)")
        with self.serving() as (_, client):
            for key in (2, 16, 4):
                client.call("startRequestWithKey:interval:", key, 1)
            memory = client.envelope(lambda e: e["type"] == "2" and any(r["key"] == str(child.pid) for r in e["processes"]))
            row = next(r for r in memory["processes"] if r["key"] == str(child.pid))
            self.assertGreater(float(row["m"]), 300 << 20)
            self.assertLess(float(row["m"]), 330 << 20)
            energy = client.envelope(lambda e: e["type"] == "16" and e["processes"])  # empty until there is a rate
            self.assertTrue(all({"key", "name", "score", "bundle"} <= set(r) for r in energy["processes"]))
            self.assertGreater(len(energy["processes"]), 3, "every process is on the energy list")
            disk = client.envelope(lambda e: e["type"] == "4")
            self.assertTrue({"read", "write"} <= set(disk))

    @unittest.skipUnless(os.geteuid() == 0, "needs root to become another user")
    def test_an_ordinary_user_gets_what_the_kernel_shows_and_is_told_what_is_missing(self):
        nobody = pwd.getpwnam("nobody").pw_uid
        with self.serving(user=nobody) as (daemon, client):
            client.call("startRequestWithKey:interval:", 4, 1)
            status = client.call("status")
            self.assertIn("disk", status["limitations"])
            self.assertEqual(client.call("startRequestWithKey:interval:", 1, 1), None)
            rows = client.envelope(lambda e: e["type"] == "1")["processes"]
            self.assertGreater(len(rows), 2, "CPU figures of every user's processes")
        self.assertEqual(daemon.read_log().count("Not to be had here"), 1)

    def test_status_is_about_this_process(self):
        with self.serving() as (daemon, client):
            status = client.call("status")
            self.assertEqual(status["clients"], 1)
            self.assertGreater(status["usage"]["residentBytes"], 1 << 20)
            self.assertGreater(status["usage"]["cpuSeconds"], 0)
            self.assertEqual(status["transport"]["openConnections"], 1)
            self.assertEqual(status["paths"]["socket"], daemon.socket_path)

    def test_clients_that_die_in_every_way_cost_nothing(self):
        with self.serving() as (daemon, client):
            for _ in range(200):
                other = daemon.client()
                for key in (1, 2, 4, 8, 16, 128):
                    other.notify("startRequestWithKey:interval:", key, 1)
                other._socket.sendall(b'{"jsonrpc":"2.0","meth')
                other.close()
            # The closes are seen in their own time: ask until they have been.
            while client.call("status")["clients"] > 1:
                pass
            self.assertIs(client.call("exists:"), True)


if __name__ == "__main__":
    BUILD = os.path.abspath(sys.argv.pop(1) if len(sys.argv) > 1 and os.path.isdir(sys.argv[1]) else os.environ["MERIDAL_BUILD_DIR"])
    ctypes.CDLL(None).prctl(1, signal.SIGKILL, 0, 0, 0)  # our children's parent must not outlive ctest's timeout
    unittest.main(verbosity=2)
