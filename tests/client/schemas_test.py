#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""What each command prints with --json is as docs/schemas tells: a running daemon with devices of the test's making and a record of
five days.

    schemas_test.py [BUILD_FOLDER]      (default: what MERIDAL_BUILD_DIR names)
"""
import json
import os
import sys
import warnings

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path[:0] = [os.path.join(HERE, "..", room) for room in ("support", "disks", "sensors")]
import recorded  # noqa: E402
import running  # noqa: E402

running.go_on_with("jsonschema")
running.go_on_with_devices()

import jsonschema  # noqa: E402

import disks_test  # noqa: E402
import sensors_test  # noqa: E402

SCHEMAS = os.path.join(HERE, "..", "..", "docs", "schemas")


def load_schemas():
    schemas = {}
    for name in os.listdir(SCHEMAS):
        with open(os.path.join(SCHEMAS, name), encoding="utf-8") as file:
            schemas[name] = json.load(file)
    return schemas


def moments_in(value, key=""):
    """Numbers that look like seconds since 1970, where a moment should be told as text; a boot is named by one."""
    if isinstance(value, dict):
        return [found for entry, each in value.items() for found in moments_in(each, entry)]
    if isinstance(value, list):
        return [found for each in value for found in moments_in(each, key)]
    is_number = isinstance(value, (int, float)) and not isinstance(value, bool)
    return [(key, value)] if is_number and key != "boot" and 1.5e9 < value < 2e9 and "ytes" not in key else []


@running.needs_devices
class SchemasTest(recorded.RecordedMachine, running.DaemonTest):
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
        now = recorded.whole_hour()
        self.write_samples(now)
        self.write_groups(now)
        self.schemas = load_schemas()

    def validate(self, name, answer):
        with warnings.catch_warnings():  # which replacement there is depends on the release
            warnings.simplefilter("ignore", DeprecationWarning)
            resolver = jsonschema.RefResolver("", self.schemas[name], store=self.schemas)
            validator = jsonschema.Draft202012Validator(self.schemas[name], resolver=resolver)
        faults = [f"{'/'.join(map(str, fault.absolute_path))}: {fault.message}" for fault in validator.iter_errors(answer)]
        self.assertEqual(faults, [], name)

    def test_each_answer_is_as_its_schema_tells(self):
        self.plug_ata("sda", 0, "WX1")
        self.add_chip()
        commands = ("top cpu --once", "top memory --once", "top network --once", "top disk --once", "top energy --once", f"processes 1 {os.getpid()}",
                    "processes", "processes --grouped --sort memory", f"process {os.getpid()}", "status", "sensors", "fans",
                    "history --range week", "history processors", "history --range week T3A7", "history --range week T3A7 F0Ac",
                    "battery --history --sleeps", "disks --attributes", "network", "bandwidth", "bandwidth --by interface",
                    "apps --range week", "apps --range week --group nginx", "at now", "at yesterday", "why slow", "why hot --at yesterday",
                    "uptime", "uptime --history")
        told = set()
        with self.serving():
            for command in commands:
                with self.subTest(command):
                    answer = json.loads(self.ctl(*command.split(), "--json"))
                    self.validate(command.split()[0] + ".json", answer)
                    self.assertEqual(moments_in(answer), [])
                told.add(command.split()[0])
            self.validate("check.json", json.loads(self.ctl("check", "fans", "battery", "--json")))
        self.assertEqual({name[:-5] for name in self.schemas}, told | {"check", "common"})

    def test_schemas_are_schemas_and_refuse_what_is_none(self):
        for name, schema in self.schemas.items():
            jsonschema.Draft202012Validator.check_schema(schema)
            if name != "common.json":
                self.assertRaises(AssertionError, self.validate, name, {"sensors": 1, "wallTime": 1795249835.2})


if __name__ == "__main__":
    running.main()
