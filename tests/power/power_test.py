#!/usr/bin/env python3
"""Sleep, wake, boots and power sources as a running daemon sees them: a bus of its own, a logind that does as it is
told, supplies that come and go.

    power_test.py [BUILD_FOLDER]      (default: what MERIDAL_BUILD_DIR names)

Nothing here sleeps: every wait is for an event with a generous deadline.
"""
import os
import shutil
import sqlite3
import subprocess
import sys
import time
import unittest

SYSTEM_PYTHON = "/usr/bin/python3"  # has the system's packages for D-Bus
try:
    import dbus
    import dbusmock  # noqa: F401
except ImportError:
    if os.path.realpath(sys.executable) != os.path.realpath(SYSTEM_PYTHON) and os.path.exists(SYSTEM_PYTHON):
        os.execv(SYSTEM_PYTHON, [SYSTEM_PYTHON, *sys.argv])
    print("no python3-dbusmock: nothing tested")
    sys.exit(0)

PRELOAD = "libumockdev-preload.so.0"  # lets a test have devices of its own
if "LD_PRELOAD" not in os.environ and shutil.which("umockdev-run"):
    os.environ.update(LD_PRELOAD=PRELOAD, ASAN_OPTIONS=os.environ.get("ASAN_OPTIONS", "") + ":verify_asan_link_order=0")
    os.execv(sys.executable, [sys.executable, *sys.argv])

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "e2e"))
import daemon_test  # noqa: E402  the daemon and its clients

LOGIN = "org.freedesktop.login1"
MANAGER = "org.freedesktop.login1.Manager"
HELD = [("sleep", "meridald", "delay")]  # the inhibitors while the machine is awake


def until(condition, what):
    """Asks until the condition holds, and answers what it gave."""
    deadline = time.monotonic() + daemon_test.DEADLINE
    while not (found := condition()):
        if time.monotonic() > deadline:
            raise AssertionError("never came: " + what)
    return found


class PowerTest(unittest.TestCase):
    start = daemon_test.DaemonTest.start

    def setUp(self):
        daemon_test.DaemonTest.setUp(self)
        self.address = "unix:path=" + os.path.join(self.root, "bus")
        os.environ["DBUS_SYSTEM_BUS_ADDRESS"] = self.address
        bus = subprocess.Popen(["dbus-daemon", "--session", "--nofork", "--nopidfile", "--nosyslog", "--print-address",
                                "--address=" + self.address], stdout=subprocess.PIPE)
        self.children.append(bus)
        bus.stdout.readline()  # printed once it listens
        bus.stdout.close()
        self.bus = dbus.bus.BusConnection(self.address)

    def tearDown(self):
        self.bus.close()
        daemon_test.DaemonTest.tearDown(self)
        del os.environ["DBUS_SYSTEM_BUS_ADDRESS"]

    def start_logind(self):
        """A logind that does nothing by itself."""
        logind = subprocess.Popen([sys.executable, "-m", "dbusmock", "--template", "logind"], stdout=subprocess.DEVNULL)
        self.children.append(logind)
        until(lambda: self.bus.name_has_owner(LOGIN), "logind")
        return logind

    def manager(self, interface=MANAGER):
        return dbus.Interface(self.bus.get_object(LOGIN, "/org/freedesktop/login1"), interface)

    def inhibitors(self):
        try:
            return [(str(what), str(who), str(mode)) for what, who, _, mode, _, _ in self.manager().ListInhibitors()]
        except dbus.DBusException:
            return None  # it has its name, but not yet its methods

    def prepare_for_sleep(self, sleeping):
        self.manager("org.freedesktop.DBus.Mock").EmitSignal(MANAGER, "PrepareForSleep", "b", [sleeping])

    def rows(self, sql, file="uptime.db"):
        connection = sqlite3.connect(os.path.join(self.root, "state", file))
        try:
            return connection.execute(sql).fetchall()
        finally:
            connection.close()

    def test_the_machine_sleeps_only_once_the_time_is_written(self):
        self.start_logind()
        daemon = self.start().wait_ready()
        client = daemon.client()
        until(lambda: self.inhibitors() == HELD, "the inhibitor")
        self.assertNotIn("sleep-messages", client.call("status")["limitations"])
        for count in (1, 2):
            before = time.time()
            self.prepare_for_sleep(True)
            until(lambda: self.inhibitors() == [], "the allowance")
            self.assertLess(time.time() - before, 5, "within logind's own patience")
            (shutdown,), = self.rows("select shutdown from uptime")
            self.assertGreaterEqual(shutdown, before - 0.01, "written before the allowance")
            self.prepare_for_sleep(False)
            until(lambda: self.inhibitors() == HELD, "the inhibitor after the wake")
            answer = client.call("uptime.boots")  # asked of the file after the row was added
            sleeps = self.rows('select start, "end" from sleep order by rowid')
            self.assertEqual(len(sleeps), count)
            self.assertEqual(sleeps[-1][0], shutdown)
            self.assertGreaterEqual(sleeps[-1][1], shutdown)
            self.assertEqual(answer["boots"][0]["end"], "running")
        client.close()
        self.assertEqual(daemon.stop(), 0)
        log = daemon.read_log()
        self.assertEqual((log.count("sleep\n"), log.count("wake\n")), (2, 2))

    def test_logind_may_come_and_go(self):
        daemon = self.start().wait_ready()
        client = daemon.client()

        def limited():
            return "sleep-messages" in client.call("status")["limitations"]

        until(limited, "the limitation, once the bus has answered")
        logind = self.start_logind()
        until(lambda: self.inhibitors() == HELD, "the inhibitor")
        until(lambda: not limited(), "the end of the limitation")
        logind.kill()
        until(limited, "the limitation")
        self.start_logind()
        until(lambda: self.inhibitors() == HELD, "the inhibitor of the new logind")
        self.prepare_for_sleep(True)
        until(lambda: self.inhibitors() == [], "the allowance")
        client.close()
        self.assertEqual(daemon.stop(), 0)
        self.assertEqual(daemon.read_log().count("sleep-messages"), 1, "said once")

    def test_one_boot_is_one_row(self):
        for _ in range(3):
            daemon = self.start().wait_ready()
            before = time.time()
            self.assertEqual(daemon.stop(), 0)
            (boot, shutdown), = self.rows("select boot, shutdown from uptime")
            self.assertGreaterEqual(shutdown, before - 0.01)
        killed = self.start().wait_ready()
        killed.process.kill()
        killed.wait()
        daemon = self.start().wait_ready()
        for file in ("uptime-history.db", "uptime-history-long.db"):
            self.assertEqual(self.rows("select time from boottimes", file), [(boot,)])
        client = daemon.client()
        answer = client.call("uptime.boots", {"limit": 5})
        self.assertEqual([row["boot"] for row in answer["boots"]], [boot])
        with open("/proc/uptime") as file:
            self.assertAlmostEqual(answer["current"]["uptime"], float(file.read().split()[0]), delta=5)
        with self.assertRaises(RuntimeError):
            client.call("uptime.boots", {"limit": 5000})
        client.close()
        shown = subprocess.run([os.path.join(daemon_test.BUILD, "meridalctl"), "--socket", daemon.socket_path, "uptime", "--history"],
                               capture_output=True, text=True, check=True).stdout
        self.assertIn("longest run", shown)
        self.assertIn("running", shown.splitlines()[-1])
        self.assertEqual(daemon.stop(), 0)

    def test_a_change_of_the_source_reaches_clients(self):
        try:
            import gi
            gi.require_version("UMockdev", "1.0")
            from gi.repository import UMockdev
        except (ImportError, ValueError):
            self.skipTest("no umockdev")
        if os.environ.get("LD_PRELOAD") != PRELOAD:
            self.skipTest("no umockdev in this process")
        bed = UMockdev.Testbed.new()
        adapter = bed.add_device("power_supply", "AC", None, ["type", "Mains", "online", "1"], [])
        battery = bed.add_device("power_supply", "BAT0", None, ["type", "Battery", "status", "Charging", "capacity", "50"], [])
        os.environ["UMOCKDEV_DIR"] = bed.get_root_dir()  # which the bed sets behind Python's back
        self.addCleanup(os.environ.pop, "UMOCKDEV_DIR", None)  # not earlier: sending an event looks the device up
        daemon = self.start().wait_ready()
        client = daemon.client()
        client.call("startRequestWithKey:interval:", 128, 1)
        client.envelope(lambda e: e["type"] == "128")  # as it is now
        bed.set_attribute(adapter, "online", "0")
        bed.set_attribute(battery, "status", "Discharging")
        for _ in range(2):  # the bed numbers them from 0, which libudev takes for no number
            bed.uevent(adapter, "change")
        client.envelope(lambda e: e["type"] == "128")
        client.close()
        self.assertEqual(daemon.stop(), 0)


if __name__ == "__main__":
    is_folder = len(sys.argv) > 1 and os.path.isdir(sys.argv[1])
    daemon_test.BUILD = os.path.abspath(sys.argv.pop(1) if is_folder else os.environ["MERIDAL_BUILD_DIR"])
    unittest.main(verbosity=2)
