#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""meridalctl check as monitoring plugins, cron and alerts use it: a running daemon, disks and sensors of the test's making, programs
that note what they got.

    check_test.py [BUILD_FOLDER]      (default: what MERIDAL_BUILD_DIR names)
"""
import json
import os
import shutil
import signal
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path[:0] = [os.path.join(HERE, "..", room) for room in ("support", "disks", "sensors")]
import running  # noqa: E402
from running import until  # noqa: E402

running.go_on_with("gi")
running.go_on_with_devices()

import disks_test  # noqa: E402
import sensors_test  # noqa: E402

# Notes its arguments, variables and input, whole at once.
NOTE = """#!/bin/sh
name=$FOLDER/$(basename "$0")-$MERIDAL_TOPIC-$MERIDAL_BEFORE-$MERIDAL_STATE
{ echo "$@"; echo "$MERIDAL_TEXT"; echo "--"; cat; } >"$name.part"
mv "$name.part" "$name"
"""


@running.needs_devices
class CheckTest(running.DaemonTest):
    plug = disks_test.DisksTest.plug
    plug_ata = disks_test.DisksTest.plug_ata
    add_chip = sensors_test.SensorsTest.add_chip
    write = staticmethod(sensors_test.SensorsTest.write)

    def setUp(self):
        super().setUp()
        self.bed = self.make_bed()
        self.devices = self.bed.get_root_dir()
        for folder in ("sys/class/hwmon", "sys/bus"):
            os.makedirs(os.path.join(self.devices, folder), exist_ok=True)

    def configure(self, text):
        folder = os.path.join(self.root, "etc")
        os.makedirs(folder, exist_ok=True)
        self.write(folder, "meridald.conf", text)

    def check(self, *arguments):
        """The exit status and the lines."""
        done = subprocess.run(self.ctl_command(*arguments), capture_output=True, text=True, timeout=running.DEADLINE, check=False)
        self.assertTrue(done.stdout, done.stderr)
        return done.returncode, done.stdout.splitlines()

    def test_states_as_plugins_take_them(self):
        failing = self.plug_ata("sdb", 16, "BAD1")
        failing.failing = True
        worn = self.plug(disks_test.NVME, "/dev/nvme0", disks_test.NvmeDisk(used=95))
        sleeping = self.plug_ata("sdc", 32, "WX3")
        sleeping.power = 0x00
        chip = self.add_chip()
        self.configure("[check]\nignore = sdb")
        with self.serving() as (daemon, client):
            status, lines = self.check("check", "disks")
            self.assertEqual((status, lines[1:]), (1, ["disks: WARNING - 3 disks, 1 asleep, 1 ignored",
                                                       "  WARNING nvme0n1 (S5GX): 95 % of its rated life is used up"]))
            self.assertTrue(lines[0].startswith("MERIDAL WARNING - nvme0n1: 95 % of its rated life is used up | "), lines[0])
            self.assertIn(" 'nvme0n1_wear'=95%;90;100 'nvme0n1_temperature'=41", lines[0])
            self.assertEqual({command for command, _ in sleeping.commands}, {disks_test.CHECK_POWER}, "it sleeps on")

            self.configure("[check]\ndisk-wear-warning = 96\nsensor = Left <1000 <500")
            daemon.process.send_signal(signal.SIGHUP)
            until(lambda: client.call("status")["configuration"]["check"]["diskWearWarning"] == 96, "the limits")
            readings = len(failing.commands) + len(worn.commands)
            status, lines = self.check("disks", "--check")
            self.assertEqual((status, lines[2]), (2, "  CRITICAL sdb (BAD1): it predicts that it will fail; copy the data while it can be read"))
            self.assertEqual(len(failing.commands) + len(worn.commands), readings, "who checks often reads no disk for it")

            until(lambda: "'nct6775-virtual-0/Left'=1200;1000:;500:" in self.check("check", "fans")[1][0], "the fan")
            self.assertEqual(self.check("sensors", "--check")[0], 0)
            self.write(chip, "temp1_input", "101000")
            until(lambda: self.check("sensors", "--check")[0] == 2, "the alarm")
            told = json.loads(self.ctl_failing("check", "--json", status=2))
            self.assertEqual([topic["state"] for topic in told["topics"]], ["critical", "critical", "ok", "ok", "ok"])
            self.assertEqual(told["topics"][1]["findings"][0]["text"], "101.0 °C, above its critical limit of 100.0 °C")
        for words, says in ((["check"], "MERIDAL UNKNOWN - meridald: no daemon at "), (["check", "dsks"], "MERIDAL UNKNOWN - "),
                            (["check", "--alert"], "MERIDAL UNKNOWN - "), (["disks", "--check", "--attributes"], "MERIDAL UNKNOWN - ")):
            status, lines = self.check(*words)
            self.assertEqual(status, 3, words)
            self.assertTrue(lines[0].startswith(says), lines[0])

    def ctl_failing(self, *arguments, status):
        found, lines = self.check(*arguments)
        self.assertEqual(found, status)
        return "\n".join(lines)

    def watch(self, user):
        """A watch for alerts, whose programs are those of the test."""
        notes, programs = os.path.join(self.root, "notes"), os.path.join(self.root, "programs")
        os.mkdir(notes)
        os.chmod(notes, 0o777)
        os.mkdir(programs)
        for name in ("tell", "sendmail", "notify-send"):
            self.write(programs, name, NOTE)
            os.chmod(os.path.join(programs, name), 0o755)
        os.chmod(programs, 0o755)
        program, *options = self.ctl_command()
        program = shutil.copy(program, self.root)  # others may not be able to reach the build folder
        environment = dict(os.environ, FOLDER=notes, PATH=programs + ":" + os.environ["PATH"], MERIDAL_STATE="of mine")
        child = subprocess.Popen([program, *options, "check", "sensors", "disks", "--watch", "--alert", "--notify"], stdout=subprocess.PIPE, text=True,
                                 env=environment, cwd="/", user=user, group=user, extra_groups=[] if user else None)
        self.addCleanup(child.stdout.close)
        self.children.append(child)
        return child, notes

    def test_alerts_run_programs_when_a_state_changes(self):
        chip = self.add_chip(temp1_input="101000")
        disk = self.plug_ata()
        self.configure(f"[alerts]\ncommand = {self.root}/programs/tell\nmail = someone@example.org\ndesktop = yes\n"
                       "after = 1\nevery = 1 s\n[record]\ndisks = no")
        daemon = self.start().wait_ready()
        until(lambda: self.check("sensors", "--check")[0] == 2, "the alarm")
        user = running.NOBODY if os.geteuid() == 0 else None
        if user:
            self.assertIn("not as root", self.ctl("check", "--watch", "--alert", status=3))
        child, notes = self.watch(user)

        def noted(name):
            with open(until(lambda: os.path.exists(os.path.join(notes, name)) and os.path.join(notes, name), name)) as file:
                return file.read()

        finding = "CRITICAL nct6775-virtual-0/CPU (TC0P): 101.0 °C, above its critical limit of 100.0 °C\n"
        title = "sensors critical, was ok\n"
        told = noted("tell-sensors-ok-critical")
        finding = finding.replace("TC0P", told.split("(")[1].split(")")[0])
        self.assertEqual(told, f"\n{finding}\n--\n{title}{finding}")
        mail = noted("sendmail-sensors-ok-critical").split("--\n", 1)
        self.assertTrue(mail[0].startswith("-i -- someone@example.org\n"))
        self.assertRegex(mail[1], "^To: someone@example.org\nSubject: \\[Meridal\\] .*: sensors critical, was ok\n")
        self.assertTrue(mail[1].endswith("\n\n" + finding))
        self.assertIn(title.strip() + " " + finding, noted("notify-send-sensors-ok-critical"))

        self.assertIn("it does not record disks", noted("tell-disks-ok-unknown"))
        self.write(chip, "temp1_input", "41000")
        self.assertIn("over: nct6775-virtual-0/CPU: 101.0 °C", noted("tell-sensors-critical-ok"))
        daemon.stop()
        self.assertIn("UNKNOWN meridald: ", noted("tell-daemon-ok-unknown"))
        self.start().wait_ready()
        noted("tell-daemon-unknown-ok")
        noted("sendmail-daemon-unknown-ok")
        noted("notify-send-daemon-unknown-ok")
        noted("notify-send-disks-ok-unknown")
        self.assertEqual(len(os.listdir(notes)), 15, "nothing else was told")
        self.assertEqual(disk.commands, [], "who watches reads no disk")
        child.send_signal(signal.SIGTERM)
        self.assertEqual(child.wait(running.DEADLINE), 0)


if __name__ == "__main__":
    running.main()
