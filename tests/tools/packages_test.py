#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""What the packages say twice agrees: of what building takes, and of the version."""

import re
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
DEBIAN_ONLY = {"debhelper-compat", "python3", "systemd-dev"}  # making the package; testing it; where units go
NOT_NEEDED = {"ccache"}


def read(name):
    return (ROOT / name).read_text()


def first_names(entries):
    return {re.split(r"[ (|<]", entry.strip())[0] for entry in entries if entry.strip()}


class PackagesTest(unittest.TestCase):
    def test_debian_control_names_what_building_takes(self):
        listed = re.findall(r"^build +(?!- )(\S+)", read("packaging/packages.txt"), re.MULTILINE)
        control = re.search(r"^Build-Depends:\n((?: .*\n)+)", read("debian/control"), re.MULTILINE).group(1)
        self.assertEqual(first_names(control.split(",")) - DEBIAN_ONLY, first_names(listed) - NOT_NEEDED)

    def test_packages_are_of_the_latest_release_in_the_changelog(self):
        version = re.search(r"^## \[(\d\S*)\]", read("CHANGELOG.md"), re.MULTILINE).group(1)
        self.assertEqual(re.match(r"meridal \((.*)-\d+\)", read("debian/changelog")).group(1), version)
        self.assertIn(f"project(meridal VERSION {version} ", read("CMakeLists.txt"))
        self.assertEqual(re.search(r"^Version: +(\S+)", read("packaging/meridal.spec"), re.MULTILINE).group(1), version)


if __name__ == "__main__":
    unittest.main()
