#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""What docs/fleet.md promises, with the real programs: Prometheus scrapes the exporter, alerts fire, the dashboard's questions have
answers, every command that is written there runs.

    fleet_test.py [BUILD_FOLDER]      (default: what MERIDAL_BUILD_DIR names)

Programs that are not installed are said so, and their tests left out; the full check has them.
"""
import json
import os
import re
import shlex
import shutil
import socket
import subprocess
import sys
import unittest
import urllib.error
import urllib.parse
import urllib.request

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path[:0] = [os.path.join(HERE, "..", folder) for folder in ("support", "client")]
import metrics_test  # noqa: E402  goes on in a Python that has devices
import running  # noqa: E402  the daemon and its clients
from running import until  # noqa: E402

SOURCE = os.path.join(HERE, "..", "..")
PROMETHEUS = os.path.join(SOURCE, "packaging", "prometheus")
INSTALLED = "/usr/share/meridal/prometheus"
# Commands of the page that want a booted machine, of which tools/try-machine has one, or ten minutes.
NOT_HERE = ("systemctl ", "tools/fleet ")


def needs(*programs):
    missing = [program for program in programs if not shutil.which(program)]
    return unittest.skipIf(missing, "not installed: " + ", ".join(missing))


def fetched(url, data=None):
    """What a server says; empty while it is not there."""
    try:
        with urllib.request.urlopen(url, data=data, timeout=running.DEADLINE) as answer:
            return answer.read().decode()
    except (OSError, urllib.error.URLError):
        return ""


def free_port():
    with socket.socket() as listening:
        listening.bind(("127.0.0.1", 0))
        return listening.getsockname()[1]


class FleetTest(metrics_test.DeviceTest):
    def begin(self, *command):
        """A program that runs until the test has ended; what it says is kept beside it."""
        with open(os.path.join(self.root, os.path.basename(command[0]) + ".log"), "ab") as log:
            child = subprocess.Popen(command, stdout=log, stderr=log, cwd=self.root)
        self.children.append(child)
        return child

    def start_exporter(self, socket_path):
        port = free_port()
        self.begin(os.path.join(running.BUILD, "meridal-exporter"), "--socket", socket_path, "--listen", f"127.0.0.1:{port}")
        until(lambda: fetched(f"http://127.0.0.1:{port}/metrics"), "the exporter")
        return port

    def add_chip(self, root):
        super().add_chip(root)
        with open(os.path.join(root, "sys/class/hwmon/hwmon0/power1_input"), "w") as file:
            file.write("12345678\n")

    def start_machine(self):
        """A machine that has one of each, a failing disk among them, and counts traffic; the exporter's port."""
        self.asker = self.start_with_devices(failing=True)
        self.addCleanup(self.asker.close)
        self.asker.call("startSMARTStatus")
        self.asker.call("disks.list")
        self.asker.call("startRequestWithKey:interval:", 8, 2)
        return self.start_exporter(self.daemons[-1].socket_path)

    def configure(self, port):
        """The lines that we ship, with this test's port and patience, and the rules."""
        with open(os.path.join(PROMETHEUS, "scrape.yml"), encoding="utf-8") as file:
            text = file.read().replace("9669", str(port)).replace("scrape_interval: 15s", "scrape_interval: 1s")
        rules = os.path.join(PROMETHEUS, "meridal.rules.yml")
        path = os.path.join(self.root, "prometheus.yml")
        with open(path, "w", encoding="utf-8") as file:
            file.write(f"global: {{evaluation_interval: 1s}}\nrule_files: [{rules}]\n{text}")
        return path

    def start_prometheus(self, exporter):
        port = free_port()
        self.begin("prometheus", "--config.file", self.configure(exporter), "--storage.tsdb.path", os.path.join(self.root, "tsdb"),
                   "--web.listen-address", f"127.0.0.1:{port}")
        until(lambda: fetched(f"http://127.0.0.1:{port}/-/ready"), "Prometheus")
        return f"http://127.0.0.1:{port}"

    @staticmethod
    def asked(server, expression):
        text = fetched(f"{server}/api/v1/query?" + urllib.parse.urlencode({"query": expression}))
        return json.loads(text)["data"]["result"] if text else []

    def absent_here(self):
        """What no question can be answered of, as the machine lacks it."""
        absent = ["meridal_wifi_"]
        if self.asker.call("status")["capture"]["source"] == "none":
            absent.append("meridal_traffic_")
        if not os.path.exists("/proc/pressure/cpu"):
            absent.append("meridal_pressure_")
        return absent

    @running.needs_devices
    @needs("prometheus")
    def test_the_dashboard_has_answers_and_an_alert_fires(self):
        server = self.start_prometheus(self.start_machine())
        with open(os.path.join(PROMETHEUS, "grafana-dashboard.json"), encoding="utf-8") as file:
            panels = json.load(file)["panels"]
        expressions = [target["expr"] for panel in panels for target in panel.get("targets", [])]
        absent = self.absent_here()
        answerable = [each for each in expressions if not any(name in each for name in absent)]
        self.assertGreater(len(answerable), 30)
        for expression in answerable:
            asked = expression.replace("$instance", ".*").replace("$group", ".*").replace("$__rate_interval", "1m")
            until(lambda: self.asked(server, asked), f"an answer to {asked}")  # rates take a second scrape

        def firing():
            alerts = json.loads(fetched(server + "/api/v1/alerts"))["data"]["alerts"]
            return [alert for alert in alerts if alert["state"] == "firing" and alert["labels"]["alertname"] == "MeridalDiskFailing"]

        alert, = until(firing, "the alert")
        self.assertEqual(alert["labels"]["disk"], "WX1")
        self.assertIn("Disk WX1 of", alert["annotations"]["summary"])

    @needs("promtool", "vmagent", "victoria-metrics", "prometheus-node-exporter", "curl")
    def test_every_command_of_the_page_runs(self):
        with open(os.path.join(SOURCE, "docs", "fleet.md"), encoding="utf-8") as file:
            commands = re.findall(r"^    (\S.*)$", re.sub(r"```.*?```", "", file.read(), flags=re.DOTALL), re.MULTILINE)
        self.assertGreater(len(commands), 8)
        daemon = self.start().wait_ready()
        exporter = self.start_exporter(daemon.socket_path)
        self.folder = os.path.join(self.root, "textfile")
        self.blocks = os.path.join(self.root, "blocks")
        self.work = os.path.join(self.root, "work")
        for folder in (self.folder, self.work):
            os.mkdir(folder)
        self.receiver = free_port()
        self.begin("victoria-metrics", "-storageDataPath", os.path.join(self.root, "vm"), "-httpListenAddr", f"127.0.0.1:{self.receiver}")
        until(lambda: fetched(f"http://127.0.0.1:{self.receiver}/health"), "VictoriaMetrics")
        for command in commands:
            if not command.startswith(NOT_HERE):
                with self.subTest(command):
                    self.run_documented(command, exporter)
        self.check_textfile()
        self.check_pushed()

    def run_documented(self, command, exporter):
        for written, meant in ((INSTALLED, PROMETHEUS), ("/var/lib/prometheus/node-exporter", self.folder),
                               ("/var/lib/prometheus/metrics2", self.blocks), ("127.0.0.1:8428", f"127.0.0.1:{self.receiver}"),
                               ("127.0.0.1:9669", f"127.0.0.1:{exporter}")):
            command = command.replace(written, meant)
        if command.startswith("vmagent"):  # runs on
            command = command.replace(os.path.join(PROMETHEUS, "scrape.yml"), self.scraped_often(exporter))
            self.begin(*shlex.split(command), "-remoteWrite.tmpDataPath", os.path.join(self.root, "vmagent"),
                       "-httpListenAddr", f"127.0.0.1:{free_port()}")
            return
        environment = dict(os.environ, PATH=running.BUILD + ":" + os.environ["PATH"], MERIDAL_SOCKET=self.daemons[-1].socket_path)
        done = subprocess.run(["sh", "-c", command], cwd=self.work, env=environment, capture_output=True, text=True,
                              timeout=2 * running.DEADLINE)
        # A check may have something to say of this machine.
        self.assertIn(done.returncode, range(4) if command == "meridalctl check" else [0], done.stdout + done.stderr)
        self.assertTrue(done.stdout or os.listdir(self.folder) or ">" in command, command)

    def scraped_often(self, exporter):
        path = os.path.join(self.root, "scrape.yml")
        with open(os.path.join(PROMETHEUS, "scrape.yml"), encoding="utf-8") as file, open(path, "w", encoding="utf-8") as own:
            own.write(file.read().replace("9669", str(exporter)).replace("scrape_interval: 15s", "scrape_interval: 1s"))
        return path

    def check_textfile(self):
        port = free_port()
        self.begin("prometheus-node-exporter", f"--collector.textfile.directory={self.folder}", f"--web.listen-address=127.0.0.1:{port}")
        told = until(lambda: fetched(f"http://127.0.0.1:{port}/metrics"), "node_exporter")
        self.assertIn("\nmeridal_up 1\n", told)
        self.assertIn("\nnode_textfile_scrape_error 0\n", told)

    def check_pushed(self):
        query = f"http://127.0.0.1:{self.receiver}/api/v1/query?query=meridal_up"
        until(lambda: '"job":"meridal"' in fetched(query), "what vmagent sent")


if __name__ == "__main__":
    running.main()
