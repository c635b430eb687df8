#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Sensors as a user meets them: a running daemon on a machine with chips of the test's making, and meridalctl.

    sensors_test.py [BUILD_FOLDER]      (default: what MERIDAL_BUILD_DIR names)

Nothing here sleeps: every wait is for an answer with a generous deadline.
"""
import csv
import json
import os
import shutil
import subprocess
import sys
import xml.etree.ElementTree as xml

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
import running  # noqa: E402  the daemon and its clients

running.go_on_with_devices()

CHIP = {"name": "nct6775", "temp1_input": "41500", "temp1_label": "CPU", "temp1_crit": "100000", "fan1_input": "1200",
        "fan1_label": "Left", "fan1_min": "300", "in0_input": "1048", "power1_input": "12345678", "power1_label": "Package"}


@running.on_linux
class SensorsTest(running.DaemonTest):
    def setUp(self):
        super().setUp()
        self.devices = os.path.join(self.root, "devices")
        os.makedirs(os.path.join(self.devices, "sys/class/hwmon"))
        os.makedirs(os.path.join(self.devices, "sys/bus"))
        self.use_devices(self.devices)

    def add_chip(self, number=0, **files):
        device = "sys/devices/platform/nct6775.656"
        folder = os.path.join(self.devices, device, f"hwmon/hwmon{number}")
        os.makedirs(folder)
        os.symlink(os.path.relpath(folder, os.path.join(self.devices, "sys/class/hwmon")),
                   os.path.join(self.devices, f"sys/class/hwmon/hwmon{number}"))
        os.symlink("../..", os.path.join(folder, "device"))
        for name, content in {**CHIP, **files}.items():
            self.write(folder, name, content)
        for at, _, _ in os.walk(self.root):
            os.chmod(at, 0o777)
        return folder

    @staticmethod
    def write(folder, name, content):
        with open(os.path.join(folder, name), "w") as file:
            file.write(content + "\n")

    def sensors(self):
        return {sensor["name"]: sensor for sensor in json.loads(self.ctl("sensors", "--json"))["sensors"]}

    def test_a_machine_without_sensors_says_so(self):
        with self.serving() as (_, client):
            for words, shown in (("sensors", "no sensors on this machine"), ("sensors --json", '{"sensors":[]}'),
                                 ("fans", "no fans on this machine"), ("sensors --watch", "no sensors on this machine")):
                self.assertEqual(self.ctl(*words.split()), shown + "\n")
            self.assertIn("nothing recorded is called", self.ctl("history", "anything", status=1))
            self.assertIn("CPU use, last hour", self.ctl("history", "processors"), "the machine's own figures are there")
            self.assertEqual(client.call("supportedSensors:reply:", [{"key": "TC0P"}]), {"sensors": [], "fans": []})

    def check_power(self, key):
        """Root sees it as it is, others coarsely."""
        self.assertAlmostEqual(self.sensors()["Package"]["value"], 12.345678, places=4)
        program, *options = self.ctl_command()
        program = shutil.copy(program, self.root)  # others may not be able to reach the build folder

        def asked(*arguments):
            return json.loads(subprocess.run([program, *options, *arguments], capture_output=True, text=True, check=True,
                                             user=running.NOBODY, group=running.NOBODY, extra_groups=[], cwd="/").stdout)

        def power():
            return asked("call", "sensors:reply:", json.dumps([{"key": key, "type": 0}]))[0]["value"]

        self.assertEqual(running.until(power, "an average"), 12.3)
        listed, = [sensor for sensor in asked("sensors", "--json")["sensors"] if sensor["name"] == "Package"]
        self.assertEqual((listed["value"], listed["highest"]), (12.3, 12.3))
        entry, = asked("call", "supportedSensors:reply:", json.dumps([{"key": key}]))["sensors"]
        self.assertEqual(entry["value"], 12.3)

    @running.needs_devices
    def test_sensors_from_the_file_to_the_plot(self):
        folder = self.add_chip()
        daemon = self.start().wait_ready()
        sensors = self.sensors()
        cpu = sensors["CPU"]
        self.assertEqual((cpu["value"], cpu["unit"], cpu["kind"]), (41.5, "°C", "temperature"))
        self.assertTrue(cpu["chip"].startswith("nct6775"))
        self.assertEqual(cpu["critical"], 100)
        if os.geteuid() == 0:
            self.check_power(sensors["Package"]["key"])
        fan, = json.loads(self.ctl("fans", "--json"))["fans"]
        self.assertEqual((fan["name"], fan["value"], fan["key"], fan["unit"]), ("Left", 1200, "F0Ac", "rpm"))
        rail, = [sensor for sensor in sensors.values() if sensor["kind"] == "voltage"]
        self.assertEqual(rail["value"], 1.048)
        self.assertEqual((fan["low"], fan["high"], fan["alarm"]), (300, None, None))
        shown = self.ctl("sensors")
        self.assertIn("41.5 °C", shown)
        self.assertIn("1.048 V", shown)
        watch = subprocess.Popen(self.ctl_command("sensors", "--watch", "--refreshes", "2"), stdout=subprocess.PIPE, text=True)
        self.children.append(watch)

        client = daemon.client()
        configuration = {"key": cpu["key"], "name": "mine", "low": 10, "high": 90}
        self.assertEqual(client.call("supportedSensors:reply:", [configuration])["sensors"],
                         [{"type": 0, "config": configuration, "key": cpu["key"], "name": "mine", "value": 41.5,
                           "low": 10, "high": 90}])
        self.assertEqual(client.call("sensors:reply:", [{"key": cpu["key"]}, {"key": "Txyz"}, {}]),
                         [{"key": cpu["key"], "value": 41.5}, {"key": "Txyz", "value": -1}, {"value": -1}])
        client.close()

        self.write(folder, "temp1_input", "55000")
        running.until(lambda: self.sensors()["CPU"]["highest"] == 55, "a new highest value")
        self.write(folder, "temp1_input", "")
        self.write(folder, "fan1_input", "120")
        running.until(lambda: self.sensors()["CPU"]["value"] is None, "the absent value")
        self.assertEqual(self.sensors()["Left"]["value"], 120, "the others are on time")
        self.write(folder, "temp1_input", "50000")
        running.until(lambda: " LOW " in self.ctl("fans"), "an alarm")

        self.assertEqual(watch.communicate(timeout=running.DEADLINE)[0].count("VALUE"), 2)

        def samples():
            return list(csv.reader(self.ctl("history", "cpu", "--csv").splitlines()))[1:]

        rows = running.until(samples, "a sample of the hour")
        self.assertRegex(rows[0][0], r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ$")
        self.assertTrue(40 < float(rows[0][1]) < 56, rows)
        self.assertIn("CPU, last hour", self.ctl("history", cpu["key"]))
        self.assertIn("avg", self.ctl("history", "CPU"))
        picture = os.path.join(self.root, "cpu.svg")
        self.assertEqual(self.ctl("history", "CPU", "--svg", picture), "")
        self.assertTrue(xml.parse(picture).getroot().tag.endswith("svg"))
        self.assertEqual(json.loads(self.ctl("history", "CPU", "--json"))["unit"], "°C")
        self.assertIn("no measurements", self.ctl("history", "CPU", "--range", "year"))
        self.assertIn("CPU", self.ctl("history", "CPV", status=1), "a near name")
        self.assertEqual(daemon.stop(), 0)

        daemon = self.start().wait_ready()
        self.assertGreaterEqual(len(samples()), len(rows), "the record outlives the daemon")
        self.assertEqual(self.sensors()["CPU"]["highest"], 55)
        self.assertEqual(self.sensors()["CPU"]["key"], cpu["key"])
        self.assertEqual(daemon.stop(), 0)

    @running.needs_devices
    def test_a_chip_that_lies(self):
        self.add_chip(temp1_label="CPU\x1b[2J" + "x" * 10_000, temp1_input="9" * 400, in0_input="nan", fan1_input="-1\0" + "1" * 10_000,
                      power1_input="", temp1_crit="-" * 5000, **{f"temp{n}_input": "0x41" for n in range(2, 2000)})
        with self.serving() as (_, client):
            sensors = client.call("sensors.list")["sensors"]
            self.assertLessEqual(len(sensors), 1024)
            for sensor in sensors:
                self.assertLess(len(sensor["name"]), 100)
                self.assertNotIn("\x1b", sensor["name"])
                self.assertTrue(sensor["value"] is None or abs(sensor["value"]) < 1e9, sensor)
            self.assertNotIn("\x1b", self.ctl("sensors"))

    @running.needs_devices
    @running.needs_root
    def test_what_a_user_names_is_that_users(self):
        self.add_chip()
        daemon = self.start().wait_ready()
        mine = {"key": "XA01", "name": "the administrator's", "average": [self.sensors()["CPU"]["key"]]}
        invented = [{**mine, "key": f"Y{number:03}", "name": f"invention {number}"} for number in range(999)]

        def seen(client):
            return {sensor["name"] for sensor in client.call("sensors.list")["sensors"]}

        root, user, other = daemon.client(), daemon.client(user=running.NOBODY), daemon.client(user=running.NOBODY)
        stranger = daemon.client(user=running.NOBODY - 1)
        before = seen(stranger)
        self.assertEqual(len(user.call("supportedSensors:reply:", invented)["sensors"]), len(invented))
        self.assertEqual(len(user.call("armSensors:reply:", [])), 2, "a temperature and a fan")
        named = user.call("armSensors:reply:", [{"key": "CPU", "name": "CPU of mine"}])[0]
        self.assertEqual((named["name"], named["value"]), ("CPU of mine", 41.5))
        root.call("armSensors:reply:", [])
        for outsider in (root, stranger):
            self.assertEqual(seen(outsider), before)
        self.assertGreater(len(seen(other)), len(before), "another client of the same user")
        user.close()
        running.until(lambda: seen(other) == before, "the end of what the client named")
        self.assertEqual(len(root.call("supportedSensors:reply:", [mine])["sensors"]), 1)
        self.assertEqual(seen(stranger), before | {mine["name"]})
        self.assertEqual(daemon.stop(), 0)

        daemon = self.start().wait_ready()
        running.until(lambda: seen(daemon.client(user=running.NOBODY)) == before | {mine["name"]}, "what the administrator named")
        self.assertEqual(daemon.stop(), 0)


if __name__ == "__main__":
    running.main()
