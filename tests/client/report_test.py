#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""meridalctl report: a page of a machine with a record of five days, read by a strict parser and shown by a browser.

    report_test.py [BUILD_FOLDER]      (default: what MERIDAL_BUILD_DIR names)
"""
import os
import shutil
import struct
import subprocess
import sys
import unittest
import xml.etree.ElementTree as ElementTree
import zlib

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "support"))
import recorded  # noqa: E402
import running  # noqa: E402

running.go_on_with("html5lib")

import html5lib  # noqa: E402

CHROMIUM = shutil.which("chromium") or shutil.which("chromium-browser")
SVG = "{http://www.w3.org/2000/svg}"


def colours_of(path):
    """The size of a picture, and how many different lines of pixels it has."""
    with open(path, "rb") as file:
        data = file.read()
    width, height = struct.unpack(">II", data[16:24])
    pixels, at = b"", 8
    while at < len(data):
        length, kind = struct.unpack(">I4s", data[at:at + 8])
        pixels += data[at + 8:at + 8 + length] if kind == b"IDAT" else b""
        at += 12 + length
    lines = zlib.decompress(pixels)
    stride = len(lines) // height
    return (width, height), len({lines[stride * row:stride * (row + 1)] for row in range(height)})


class ReportTest(recorded.RecordedMachine, running.DaemonTest):
    def setUp(self):
        super().setUp()
        now = recorded.whole_hour()
        self.write_samples(now)
        self.write_groups(now)
        self.page = os.path.join(self.root, "report.html")

    def test_page_of_a_machine(self):
        with self.serving():
            self.ctl("report", "--html", self.page)
            apps = self.ctl("apps", "--range", "week", "--by", "network", "--svg", "-")
            battery = self.ctl("battery", "--svg", "-")
        with open(self.page, encoding="utf-8") as file:
            text = file.read()
        tree = html5lib.HTMLParser(strict=True, namespaceHTMLElements=False).parse(text)  # raises at the first fault
        headings = [each.text for each in tree.iter("h2")]
        self.assertEqual(headings[:3], ["Health", "Applications", "Load"])
        self.assertIn("Temperatures", headings)
        self.assertIn("Boots", headings)
        words = " ".join(each.text or "" for each in tree.iter(SVG + "text"))
        self.assertIn("nginx", words)
        self.assertIn('CPU "0"', words)
        self.assertNotIn("<script", text)
        self.assertNotIn("http://", text.replace("http://www.w3.org/2000/svg", ""))
        for picture in (apps, battery):
            self.assertEqual(ElementTree.fromstring(picture).tag, SVG + "svg")
            self.assertIn("prefers-color-scheme:dark", picture)
        self.assertIn("received", apps)

    @unittest.skipUnless(CHROMIUM, "no Chromium here")
    def test_browser_shows_it_without_complaint(self):
        with self.serving():
            self.ctl("report", "--range", "month", "--html", self.page)
        picture = os.path.join(self.root, "page.png")
        done = subprocess.run(
            [CHROMIUM, "--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--enable-logging=stderr", "--window-size=1000,2400",
             "--user-data-dir=" + os.path.join(self.root, "browser"), "--screenshot=" + picture, "file://" + self.page],
            capture_output=True, text=True, timeout=running.DEADLINE, check=False)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertNotIn("CONSOLE", done.stderr)
        size, lines = colours_of(picture)
        self.assertEqual(size, (1000, 2400))
        self.assertGreater(lines, 500)  # of 2400; an empty page has one or two


if __name__ == "__main__":
    running.main()
