#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Sleep, wake, boots and power sources as a running daemon sees them: a bus of its own, a logind that does as it is
told, supplies that come and go.

    power_test.py [BUILD_FOLDER]      (default: what MERIDAL_BUILD_DIR names)

Nothing here sleeps: every wait is for an event with a generous deadline.
"""
import json
import os
import sqlite3
import sys
import threading
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
import mock_bus  # noqa: E402  goes on in a Python that has D-Bus
import running  # noqa: E402  the daemon and its clients

running.go_on_with_devices()

import dbus  # noqa: E402
import documented  # noqa: E402
from running import until  # noqa: E402

LOGIN = "org.freedesktop.login1"
MANAGER = "org.freedesktop.login1.Manager"
HELD = [("sleep", "meridald", "delay")]  # the inhibitors while the machine is awake


HID = "/devices/pci0000:00/usb1/1-1/1-1:1.0/0003:FFFF:0001.0001"
# A UPS, in it a PowerSummary. Report 1: RemainingCapacity in %, RunTimeToEmpty in s. Report 2: PresentStatus with the bits
# ACPresent, Charging, Discharging, FullyCharged.
HID_DESCRIPTOR = ("05840904A101" "0924A100" "850175089501150025640585" "0966B102" "751027FFFF0000660110" "0968B102"
                  "05840902A102" "85027501950425016500" "058509D0094409450946B102" "75049501B103" "C0C0C0")
HID_UPS = (f"P: {HID}\nE: SUBSYSTEM=hid\nE: HID_NAME=Acme UPS 650\nE: HID_UNIQ=4B17\nH: report_descriptor={HID_DESCRIPTOR}\n\n"
           f"P: {HID}/hidraw/hidraw0\nN: hidraw0\nE: DEVNAME=/dev/hidraw0\nE: SUBSYSTEM=hidraw\nE: MAJOR=242\nE: MINOR=0\n"
           "L: device=../../../0003:FFFF:0001.0001\n\n")


class PowerTest(mock_bus.BusTest):
    def start_logind(self):
        return self.start_mock(LOGIN, "--template", "logind")

    def manager(self, interface=MANAGER):
        return self.interface(LOGIN, "/org/freedesktop/login1", interface)

    def inhibitors(self):
        try:
            return [(str(what), str(who), str(mode)) for what, who, _, mode, _, _ in self.manager().ListInhibitors()]
        except dbus.DBusException:
            return None  # it has its name, but not yet its methods

    def prepare_for_sleep(self, sleeping):
        self.manager(mock_bus.MOCK).EmitSignal(MANAGER, "PrepareForSleep", "b", [sleeping])

    def rows(self, sql, file="uptime.db"):
        connection = sqlite3.connect(os.path.join(self.root, "state", file))
        try:
            return connection.execute(sql).fetchall()
        finally:
            connection.close()

    def test_the_machine_sleeps_only_once_the_time_is_written(self):
        self.start_logind()
        with self.serving() as (daemon, client):
            until(lambda: self.inhibitors() == HELD, "the inhibitor")
            self.assertNotIn("sleep-messages", client.call("status")["limitations"])
            for _ in range(2):
                before = time.time()
                self.prepare_for_sleep(True)
                until(lambda: self.inhibitors() == [], "the allowance")
                self.assertLess(time.time() - before, 5, "within logind's own patience")
                (shutdown,), = self.rows("select shutdown from uptime")
                self.assertGreaterEqual(shutdown, before - 0.01, "written before the allowance")
                self.prepare_for_sleep(False)
                until(lambda: self.inhibitors() == HELD, "the inhibitor after the wake")
                answer = client.call("uptime.boots")  # asked of the file after the row was added
                self.assertEqual(answer["boots"][0]["end"], "running")
                self.assertEqual(self.rows("select * from sleep"), [], "announced, but the kernel did not sleep")
                self.assertEqual(answer["boots"][0]["asleep"], 0)
        log = daemon.read_log()
        self.assertEqual((log.count("sleep\n"), log.count("wake\n")), (2, 2))

    def test_logind_may_come_and_go_also_during_a_sleep(self):
        with self.serving() as (daemon, client):

            def limited():
                return "sleep-messages" in client.call("status")["limitations"]

            until(limited, "the limitation, once the bus has answered")
            logind = self.start_logind()
            until(lambda: self.inhibitors() == HELD, "the inhibitor")
            until(lambda: not limited(), "the end of the limitation")
            logind.kill()
            until(limited, "the limitation")
            for _ in range(2):  # the second one tells of no wake
                logind = self.start_logind()
                until(lambda: self.inhibitors() == HELD, "the inhibitor of the new logind")
                self.prepare_for_sleep(True)
                until(lambda: self.inhibitors() == [], "the allowance")
                logind.kill()
                until(lambda: not self.bus.name_has_owner(LOGIN), "the end of logind")
        self.assertEqual(daemon.read_log().count("sleep-messages"), 1, "said once")

    def test_an_end_is_recorded_though_the_file_is_locked_for_a_moment(self):
        daemon = self.start().wait_ready()
        client = daemon.client()
        until(lambda: client.call("uptime.boots")["boots"], "this boot, in a file that the start does not wait for")
        other = sqlite3.connect(os.path.join(self.root, "state", "uptime.db"), isolation_level=None, check_same_thread=False)
        self.addCleanup(other.close)
        other.execute("begin immediate")
        release = threading.Timer(0.7, other.execute, ["commit"])  # several times the daemon's patience with one statement
        release.start()
        before = time.time()
        self.assertEqual(daemon.stop(), 0)
        release.join()
        self.assertLess(time.time() - before, 5)
        (shutdown,), = self.rows("select shutdown from uptime")
        self.assertGreaterEqual(shutdown, before - 0.01)

    def test_one_boot_is_one_row(self):
        for _ in range(3):
            daemon = self.start().wait_ready()
            before = time.time()
            self.assertEqual(daemon.stop(), 0)
            (boot, shutdown), = self.rows("select boot, shutdown from uptime")
            self.assertGreaterEqual(shutdown, before - 0.01)
        self.start().wait_ready().kill()
        daemon = self.start().wait_ready()
        for file in ("uptime-history.db", "uptime-history-long.db"):  # which the start does not wait for
            rows = until(lambda: self.rows("select time from boottimes", file), "the boot")
            self.assertEqual(rows, [(boot,)])
        client = daemon.client()
        answer = client.call("uptime.boots", {"limit": 5})
        self.assertEqual([row["boot"] for row in answer["boots"]], [boot])
        awake_or_not = getattr(time, "CLOCK_BOOTTIME", time.CLOCK_MONOTONIC)  # the latter counts sleep where the former is not
        self.assertAlmostEqual(answer["current"]["uptime"], time.clock_gettime(awake_or_not), delta=5)
        with self.assertRaises(RuntimeError):
            client.call("uptime.boots", {"limit": 5000})
        client.close()
        shown = self.ctl("uptime", "--history")
        self.assertIn("longest run", shown)
        self.assertIn("running", shown.splitlines()[-1])
        self.assertEqual(daemon.stop(), 0)

    @running.needs_devices
    def test_a_laptop_is_unplugged(self):
        self.start_bluez()
        bed = self.make_bed()
        adapter = bed.add_device("power_supply", "AC", None, ["type", "Mains", "online", "1"], [])
        battery = bed.add_device("power_supply", "BAT0", None, [
            "type", "Battery", "status", "Charging", "capacity", "50", "cycle_count", "123", "voltage_min_design", "11400000",
            "voltage_now", "12000000", "power_now", "24000000", "energy_full_design", "57000000", "energy_full", "50160000",
            "energy_now", "25080000", "model_name", "5B10W", "serial_number", "77"], [])
        mouse = ["type", "Battery", "scope", "Device", "online", "1", "status", "Discharging", "capacity", "40", "model_name", "Mouse"]
        bed.add_device("power_supply", "hidpp_battery_0", None, mouse, [])
        with self.serving() as (daemon, client):
            client.call("startRequestWithKey:interval:", 128, 1)
            envelope = client.envelope(128)
            documented.check(self, envelope)
            plugged = envelope["battery"]
            self.assertEqual((plugged["key"], plugged["source"]), ("5B10W 77", 1))
            state = client.call("battery.state")
            before = state["batteries"][0]
            self.assertEqual((before["state"], before["cycles"], before["health"], before["power"]), (1, 123, 88, 24))
            self.assertEqual([(p["name"], p["percentage"]) for p in state["peripherals"]], [("Ear phones", 65), ("Mouse", 40)])

            def sources():
                return [row["value"] for row in client.call("battery.history", {"figure": "source"})["rows"]]

            series = client.call("history.series", {"collector": "battery"})["series"]
            self.assertEqual([(s["series"], s["unit"]) for s in series], [("battery/charge", "%"), ("battery/power", "W")])
            self.assertEqual(client.call("battery.sleeps", {"worst": True}), {"sleeps": [], "more": False})

            bed.set_attribute(battery, "status", "Discharging")
            bed.set_attribute(adapter, "online", "0")
            self.uevent(bed, adapter, "change")
            unplugged = client.envelope(lambda e: e["type"] == "128" and e["battery"]["source"] == 0)["battery"]
            self.assertGreaterEqual(unplugged["time"], plugged["time"])
            until(lambda: client.call("battery.state")["batteries"][0]["state"] == 2, "the state")
            until(lambda: sources() == [0, 1], "both sources in the file")
            self.assertIn("on battery", self.ctl("battery"))
            self.assertIn("no sleep has been recorded", self.ctl("battery", "--sleeps"))
            self.assertIn("88 %, 4400 of 5000 mAh", self.ctl("battery", "--history"))
            self.assertEqual(json.loads(self.ctl("battery", "--json", "--history"))["history"]["cycles"][0]["value"], 123)
        self.assertEqual(self.rows("select uuid, health from battery_health", "battery-history.db"), [("5B10W 77", 88)])

    @running.needs_devices
    def test_a_ups_without_a_driver_is_asked_over_hid(self):
        bed = self.make_bed()
        bed.add_from_string(HID_UPS)
        reports = {1: bytes([80]) + (1500).to_bytes(2, "little"), 2: bytes([0b0001])}
        hanging, held = [], []

        def handle(client):
            request = client.get_request()
            if request >> 8 & 0xFF != ord("H") or request & 0xFF != 7:  # HIDIOCGFEATURE
                return False
            data = client.get_arg().resolve(0, request >> 16 & 0x3FFF)
            if hanging:
                held.append(client)  # answers some other day
                return True
            report = reports[bytes(data.retrieve())[0]]
            data.update(1, report)
            client.complete(1 + len(report), 0)
            return True

        self.answer_ioctls(bed, "/dev/hidraw0", handle)
        with self.serving() as (_, client):
            ups, = client.call("battery.state")["batteries"]
            self.assertEqual([ups[name] for name in ("key", "name", "type", "percentage", "source", "state")],
                             ["Acme UPS 650 4B17", "Acme UPS 650", 1, 80, 1, 3])
            reports[1], reports[2] = bytes([79]) + (1200).to_bytes(2, "little"), bytes([0b0100])
            state = until(lambda: [b for b in client.call("battery.state")["batteries"] if b["state"] == 2], "the state")
            self.assertEqual((state[0]["percentage"], state[0]["source"]), (79, 0))
            self.assertIn("Acme UPS 650", self.ctl("battery"))
            hanging.append(True)
            until(lambda: client.call("battery.state") and held, "a reading that hangs")
            self.assertEqual(client.call("battery.state")["batteries"][0]["percentage"], 79)
            asked = time.monotonic()
        self.assertLess(time.monotonic() - asked, 10, "a UPS that hangs holds up the end")

    def start_bluez(self):
        """A BlueZ with an ear phone that is connected and one that is not."""
        self.start_mock("org.bluez", "--system", "--is-object-manager", "org.bluez", "/", "org.bluez.Mock")
        mock = self.interface("org.bluez", "/")
        for number, connected in ((1, True), (2, False)):
            path = "/org/bluez/hci0/dev_%d" % number
            mock.AddObject(path, "org.bluez.Device1", {
                "Address": "AA:BB:CC:DD:EE:0%d" % number, "Alias": "Ear phones", "Icon": "audio-headset", "Paired": True,
                "Connected": connected, "UUIDs": dbus.Array(["x"], signature="s")}, dbus.Array([], signature="(ssss)"))
            self.interface("org.bluez", path).AddProperties("org.bluez.Battery1", {"Percentage": dbus.Byte(65)})


if __name__ == "__main__":
    running.main()
