#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Metrics of a running daemon as those who scrape them see them: promtool, the strict parser of Prometheus' own client for
OpenMetrics, and the file for node_exporter.

    metrics_test.py [BUILD_FOLDER]      (default: what MERIDAL_BUILD_DIR names)
"""
import importlib.util
import os
import re
import shutil
import stat
import subprocess
import sys
import threading
import unittest

TESTS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..")
sys.path[:0] = [os.path.join(TESTS, "support"), os.path.join(TESTS, "disks")]
import running  # noqa: E402  the daemon and its clients

running.go_on_with("gi")
running.go_on_with_devices()

import disks_test  # noqa: E402  disks that answer

CHIP = {"name": "nct6775", "temp1_input": "41500", "temp1_label": "CPU \"0\"", "temp1_crit": "100000", "fan1_input": "1200",
        "fan1_label": "Left", "fan1_min": "300", "in0_input": "1048"}
BATTERY = {"type": "Battery", "status": "Discharging", "present": "1", "energy_full_design": "50000000", "energy_full": "40000000",
           "energy_now": "20000000", "voltage_now": "12000000", "power_now": "18000000", "cycle_count": "211", "capacity": "50",
           "manufacturer": "Acme", "model_name": "5B10W", "serial_number": "77", "scope": "System"}
SAMPLE = re.compile(r'^(meridal_\w+)(?:\{(.*)\})? (\S+)$')

needs_promtool = unittest.skipUnless(shutil.which("promtool"), "no promtool here")
needs_parser = unittest.skipUnless(importlib.util.find_spec("prometheus_client"), "no prometheus_client for Python here")


def figures(text):
    """What is told, by name and labels as they are written."""
    found = [SAMPLE.match(line).groups() for line in text.splitlines() if not line.startswith("#")]
    return {(name, labels or ""): float(value) for name, labels, value in found}


class DeviceTest(running.DaemonTest):
    """On a machine that has one of each: chip, disks of both kinds, battery."""

    def add_chip(self, root):
        folder = os.path.join(root, "sys/devices/platform/nct6775.656/hwmon/hwmon0")
        os.makedirs(folder)
        for name, content in CHIP.items():
            with open(os.path.join(folder, name), "w") as file:
                file.write(content + "\n")
        os.symlink("../..", os.path.join(folder, "device"))
        os.makedirs(os.path.join(root, "sys/class/hwmon"))
        os.symlink(os.path.relpath(folder, os.path.join(root, "sys/class/hwmon")), os.path.join(root, "sys/class/hwmon/hwmon0"))

    def start_with_devices(self, failing=False):
        """A daemon whose disks are awake, and nobody has asked for them."""
        self.bed = bed = self.make_bed()
        self.add_chip(bed.get_root_dir())
        bed.add_device("power_supply", "BAT0", None, [word for pair in BATTERY.items() for word in pair], [])
        self.disk, self.nvme = disks_test.AtaDisk(), disks_test.NvmeDisk()
        self.disk.failing = failing
        noted = dict(ID_ATA=1, ID_ATA_FEATURE_SET_SMART=1, ID_MODEL="WDC", ID_SERIAL_SHORT="WX1")
        for disk, node, description in (
                (self.disk, "/dev/sda", disks_test.scsi_disk("pci0000:00/ata0/host0", "sda", 0, **noted)),
                (self.nvme, "/dev/nvme0", disks_test.NVME)):
            self.answer_ioctls(bed, node, disk.handle)
            bed.add_from_string(description)
        return self.client()


class MetricsTest(DeviceTest):
    def check(self, text):
        done = subprocess.run(["promtool", "check", "metrics"], input=text, capture_output=True, text=True, timeout=running.DEADLINE)
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "", ""))

    def parse(self, text):
        """The same of OpenMetrics, in the spelling of the other format."""
        from prometheus_client.openmetrics.parser import text_string_to_metric_families
        families = list(text_string_to_metric_families(text))
        self.assertEqual(len({family.name for family in families}), len(families))
        for family in families:
            self.assertTrue(family.documentation, family.name)
            self.assertTrue(family.name.endswith(family.unit), family.name)
        return {(sample.name, tuple(sorted(sample.labels.items()))): sample.value for family in families for sample in family.samples}

    @running.needs_devices
    @needs_promtool
    def test_promtool_finds_nothing_amiss_and_counters_do_not_go_back(self):
        client = self.start_with_devices()
        figures(self.ctl("metrics"))
        self.assertEqual(self.disk.commands + self.nvme.commands, [], "nobody holds a key: no disk is asked")
        client.call("startSMARTStatus")
        client.call("disks.list")
        before = self.ctl("metrics", "--all")
        self.check(before)
        self.check(self.ctl("metrics", "--groups", "0", "--no-wifi-names"))
        now = figures(self.ctl("metrics", "--all"))
        counters = re.findall(r"^# TYPE (\w+) counter$", before, re.MULTILINE)
        followed = {key: value for key, value in figures(before).items() if key[0] in counters and key in now}
        self.assertGreater(len(followed), 10)
        self.assertEqual({key: (value, now[key]) for key, value in followed.items() if now[key] < value}, {})
        self.assertNotRegex(before, r'[{,]pid="')

    @running.needs_devices
    @needs_parser
    def test_both_formats_tell_the_same_in_base_units(self):
        client = self.start_with_devices()
        client.call("startSMARTStatus")
        client.call("disks.list")

        def told():
            text = self.ctl("metrics")
            return "sensor_volts" in text and "battery_watts" in text and re.search(r"disk_powered_on.*WX1", text) and text

        text = running.until(told, "what the chip, the battery and the disk say")
        opened = self.ctl("metrics", "--openmetrics")
        self.assertTrue(opened.endswith("\n# EOF\n"))
        known = figures(text)
        parsed = self.parse(opened)

        def written(name, labels):  # as the text has them, which the strict parser has read
            return name, ",".join(f'{key}="{value}"' for key, value in labels)

        steady = re.compile("meridal_(sensor|fan|disk|smart|battery|build)")
        by_name = {(name, tuple(sorted(re.findall(r'(\w+)="((?:[^"\\]|\\.)*)"', labels)))): value for (name, labels), value in known.items()}
        parsed = {(name, tuple((key, value.replace("\\", "\\\\").replace('"', '\\"')) for key, value in labels)): value
                  for (name, labels), value in parsed.items()}
        self.assertEqual({written(*key): value for key, value in by_name.items() if steady.match(key[0])},
                         {written(*key): value for key, value in parsed.items() if steady.match(key[0])})

        def figure(name, *labels):
            found = [value for (each, its), value in known.items() if each == "meridal_" + name and all(word in its for word in labels)]
            self.assertEqual(len(found), 1, (name, labels, found))
            return found[0]

        for expected, name, *labels in (
                (41.5, "sensor_celsius", r'label="CPU \"0\""'), (100, "sensor_limit_celsius", 'limit="critical"'),
                (1200, "fan_rpm", 'label="Left"'), (300, "fan_limit_rpm", 'limit="low"'), (1.048, "sensor_volts"),
                (34, "disk_celsius", 'disk="WX1"'), (1, "disk_state", 'disk="WX1",state="awake"'), (1, "disk_healthy", "WX1"),
                (7300 * 3600, "disk_powered_on_seconds_total", "WX1"), (0.03, "disk_life_used_ratio", "S5GX"),
                (0.1, "disk_spare_threshold_ratio", "S5GX"), (1, "disk_info", 'model="FAST 1000"', 'kind="nvme"', 'device="nvme0n1"'),
                (7300, "smart_attribute_raw", 'id="9"'), (140, "smart_attribute_threshold", 'id="5"'),
                (0.5, "battery_charge_ratio"), (0.8, "battery_health_ratio"), (211, "battery_cycles_total"), (12, "battery_volts"),
                (-18, "battery_watts"), (1, "battery_state", 'state="draining"'), (0, "battery_on_ac"), (1, "battery_info", "internal")):
            self.assertAlmostEqual(figure(name, *labels), expected, places=3, msg=name)
        self.assertNotIn('smart_attribute_threshold{disk="WX1",id="194"', text, "it has none")
        self.assertNotIn("meridal_machine_cpu", text, "that is another's by default")

    def test_a_file_is_replaced_whole_for_everybody(self):
        client = self.client()
        folder = os.path.join(self.root, "collected")
        os.mkdir(folder)
        path = os.path.join(folder, "meridal.prom")
        program = self.ctl_command("metrics", "--output", path)
        subprocess.run(program, check=True, umask=0o77, timeout=running.DEADLINE)
        self.assertEqual(stat.S_IMODE(os.stat(path).st_mode), 0o644)
        ended, broken, looks = threading.Event(), [], []

        def look():
            while not ended.is_set():
                with open(path) as file:
                    content = file.read()
                looks.append(content)
                if not content.startswith("# HELP meridal_up ") or not re.search(r"\nmeridal_metrics_dropped_series 0\n$", content):
                    broken.append(content)

        reader = threading.Thread(target=look)
        reader.start()
        try:
            for _ in range(20):
                subprocess.run(program, check=True, timeout=running.DEADLINE)
        finally:
            ended.set()
            reader.join()
        self.assertEqual(broken, [])
        self.assertTrue(looks)
        self.assertEqual(os.listdir(folder), ["meridal.prom"], "nothing is left beside it")

        os.symlink(path, os.path.join(self.root, "link"))
        os.mkfifo(os.path.join(self.root, "fifo"))
        for name, words in (("link", "symbolic link"), ("collected", "folder"), ("fifo", "no plain file"), ("none/x", "No such file")):
            complaint = self.ctl("metrics", "--output", os.path.join(self.root, name), status=1)
            self.assertIn(words, complaint)
        self.assertTrue(os.path.islink(os.path.join(self.root, "link")))
        self.ctl("metrics", "--groups", "513", status=64)

        client.close()
        self.assertEqual(self.daemons[0].stop(), 0)
        self.assertIn("no daemon", self.ctl("metrics", "--output", path, status=2))
        with open(path) as file:
            self.assertEqual(figures(file.read()), {("meridal_up", ""): 0}, "so that it raises an alert")
        away = subprocess.run(self.ctl_command("metrics", "--openmetrics"), capture_output=True, text=True, timeout=running.DEADLINE)
        self.assertEqual((away.returncode, away.stdout.splitlines()[-2:]), (2, ["meridal_up 0", "# EOF"]))


if __name__ == "__main__":
    running.main()
