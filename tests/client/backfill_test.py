#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The record handed to a Prometheus: a daemon's files of five days, meridalctl metrics --backfill, promtool's blocks, and the
figures asked back of a real Prometheus.

    backfill_test.py [BUILD_FOLDER]      (default: what MERIDAL_BUILD_DIR names)
"""
import importlib.util
import json
import os
import shutil
import socket
import subprocess
import sys
import time
import unittest
import urllib.error
import urllib.parse
import urllib.request

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
import recorded  # noqa: E402  the record of a machine
import running  # noqa: E402  the daemon and its clients

if os.path.exists(running.SYSTEM_PYTHON):  # of which the parser is a package
    running.go_on_with("prometheus_client")

HOUR = recorded.HOUR
RECORDS, GROUPS = recorded.RECORDS, recorded.GROUPS

needs_prometheus = unittest.skipUnless(shutil.which("prometheus") and shutil.which("promtool"), "no prometheus here")


class BackfillTest(recorded.RecordedMachine, running.DaemonTest):
    def backfill(self, *arguments):
        path = os.path.join(self.root, "past.om")
        with open(path, "w") as file:
            subprocess.run(self.ctl_command("metrics", "--backfill", *arguments), stdout=file, check=True, timeout=running.DEADLINE)
        with open(path) as file:
            return path, file.read()

    def free_port(self):
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            return probe.getsockname()[1]

    def start_prometheus(self, folder):
        config = os.path.join(self.root, "prometheus.yml")
        with open(config, "w") as file:
            file.write("global: {}\n")
        self.address = f"http://127.0.0.1:{self.free_port()}"
        self.children.append(subprocess.Popen(
            ["prometheus", "--config.file=" + config, "--storage.tsdb.path=" + folder, "--storage.tsdb.retention.time=10y",
             "--web.listen-address=" + self.address[len("http://"):]], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL))

        def is_ready():
            try:
                with urllib.request.urlopen(self.address + "/-/ready", timeout=running.DEADLINE) as answer:
                    return answer.status == 200
            except (urllib.error.URLError, ConnectionError):
                return False

        running.until(is_ready, "Prometheus")

    def query(self, words, at):
        asked = urllib.parse.urlencode({"query": words, "time": at})
        with urllib.request.urlopen(f"{self.address}/api/v1/query?{asked}", timeout=running.DEADLINE) as answer:
            result = json.load(answer)["data"]["result"]
        return {tuple(sorted((key, value) for key, value in each["metric"].items() if key != "__name__")): float(each["value"][1])
                for each in result}

    def make_blocks(self, path, folder):
        done = subprocess.run(["promtool", "tsdb", "create-blocks-from", "openmetrics", "--max-block-duration=240h", path, folder],
                              capture_output=True, text=True, timeout=running.DEADLINE)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)

    def check_strictly(self, text):
        if importlib.util.find_spec("prometheus_client"):
            from prometheus_client.openmetrics.parser import text_string_to_metric_families
            families = list(text_string_to_metric_families(text))  # its families whole, its series in order of time
            self.assertGreater(len(families), 10)

    @needs_prometheus
    def test_prometheus_tells_what_was_recorded(self):
        now = int(time.time())
        self.write_samples(now)
        self.write_groups(now)
        self.start().wait_ready()
        path, text = self.backfill("--from", "-30d", "--until", f"@{now - 600}", "--all")
        self.check_strictly(text)
        self.make_blocks(path, os.path.join(self.root, "tsdb"))
        self.start_prometheus(os.path.join(self.root, "tsdb"))

        chip = {"chip": "nct6775-isa-0290"}
        cases = (("meridal_sensor_celsius", {**chip, "sensor": "T3A7", "label": 'CPU "0"'}, RECORDS[0][3][0][5], 1),
                 ("meridal_fan_rpm", {**chip, "sensor": "F0Ac", "label": "Left"}, RECORDS[0][3][1][5], 1),
                 ("meridal_disk_celsius", {"disk": "WX1"}, RECORDS[1][3][0][5], 1),
                 ("meridal_disk_life_used_ratio", {"disk": "WX1"}, RECORDS[1][3][1][5], 100),
                 ("meridal_battery_charge_ratio", {"battery": ""}, RECORDS[2][3][0][5], 100),
                 ("meridal_battery_watts", {"battery": ""}, RECORDS[2][3][1][5], 1))
        for number in (1, 2, 700, 1001, 1437):
            for name, labels, figure, divisor in cases:
                told = self.query(name, self.times[number - 1])
                expected = {tuple(sorted((key, value) for key, value in labels.items() if value)): figure(number) / divisor}
                self.assertEqual(told, expected, (name, number))
        for name, *_ in cases:
            told = self.query(f"count_over_time({name}[6d])", now)
            self.assertEqual(list(told.values()), [sum(at < now - 600 for at in self.times)], name)

        told = self.query("max_over_time(meridal_group_cpu_seconds_total[6d])", now)
        self.assertEqual({dict(labels)["identity"]: round(value, 3) for labels, value in told.items()},
                         {identity: milliseconds / 1000 for identity, milliseconds in self.used.items()})
        self.assertIn((("group", "nginx"), ("identity", "unit:nginx.service"), ("unit", "nginx.service"), ("user", "33")), told)
        growth, = self.query('increase(meridal_group_cpu_seconds_total{group="kernel"}[900s])', self.group_end).values()
        self.assertAlmostEqual(growth, (6 * 1000 + 239) / 1000, msg="of a period is that period's alone")

    def test_few_groups_are_told_apart_and_the_rest_is_other(self):
        now = int(time.time())
        self.write_groups(now)
        self.start().wait_ready()
        until = f"@{self.group_end}"

        def totals(*arguments):
            _, text = self.backfill("--from", "-30d", "--until", until, *arguments)
            lines = [line.rsplit(" ", 2) for line in text.splitlines() if line.startswith("meridal_group_cpu_seconds_total")]
            return {name: float(value) for name, value, _ in lines}

        everything = sum(self.used.values()) / 1000
        all_of_them, few = totals(), totals("--groups", "2")
        self.assertEqual(len(all_of_them), len(GROUPS))
        self.assertEqual(len(few), 4)
        for each in (all_of_them, few):
            self.assertAlmostEqual(sum(each.values()), everything, places=3)
        self.assertEqual(totals("--groups", "0"), {})

    def test_nothing_is_a_text_too(self):
        self.start().wait_ready()
        path, text = self.backfill("--from", "2001-01-01", "--until", "2001-02-01")
        self.assertEqual(text, "# EOF\n")
        if shutil.which("promtool"):
            self.make_blocks(path, os.path.join(self.root, "tsdb"))
        self.assertIn("--from", self.ctl("metrics", "--backfill", status=64))
        self.assertIn("yet to come", self.ctl("metrics", "--backfill", "--from", "@9999999999", status=64))
        self.ctl("metrics", "--from", "-2h", status=64)
        self.daemons[0].stop()
        self.assertIn("no daemon", self.ctl("metrics", "--backfill", "--from", "-1h", status=2))


if __name__ == "__main__":
    running.main()
