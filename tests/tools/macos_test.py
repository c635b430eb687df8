#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""What is packed for a Mac, held as far as that goes elsewhere: the job, its removal, what a program may load."""

import importlib.machinery
import importlib.util
import os
import plistlib
import subprocess
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
PACKAGING = ROOT / "packaging" / "macos"
LABEL = "org.meridal.daemon"

BUILT_FOR = """Load command 9
      cmd LC_BUILD_VERSION
  cmdsize 32
 platform 1
      sdk 12.0
    minos {}
   ntools 1
"""
LIBRARY = """Load command 12
          cmd {}
      cmdsize 56
         name {} (offset 24)
"""


def load_tool(name):
    loader = importlib.machinery.SourceFileLoader(name, str(ROOT / "tools" / name))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader(name, loader))
    loader.exec_module(module)
    return module


class MacPackagingTest(unittest.TestCase):
    def test_the_job_is_as_launchd_wants_it(self):
        with open(PACKAGING / f"{LABEL}.plist", "rb") as file:
            job = plistlib.load(file)  # refuses what is no property list
        self.assertEqual(job["Label"], LABEL, "launchd wants it to be the file's name")
        self.assertEqual(job["ProgramArguments"], ["/usr/local/libexec/meridald"])
        main = (ROOT / "daemon" / "main.macos.mm").read_text()
        self.assertEqual(list(job["MachServices"]), [LABEL])
        self.assertIn(f'"{LABEL}"', main, "the name that the daemon checks in for")
        self.assertIs(job["RunAtLoad"] and job["KeepAlive"], True)
        self.assertGreaterEqual(job["ExitTimeOut"], 5)
        for key, kind in {"ProcessType": str, "StandardErrorPath": str, "ThrottleInterval": int}.items():
            self.assertIsInstance(job.get(key, kind()), kind)
        self.assertNotIn("UserName", job, "it must be root")

    def test_uninstalling_takes_all_that_the_readme_installs_and_keeps_what_was_recorded(self):
        readme = (PACKAGING / "README.md").read_text()
        installed = [f"/Library/LaunchDaemons/{LABEL}.plist", "/usr/local/libexec/meridald", "/usr/local/bin/meridalctl"]
        for path in installed:
            self.assertIn(path if not path.endswith(".plist") else "/Library/LaunchDaemons/", readme)
        installed += ["/usr/local/share/man/man8/meridald.8", "/usr/local/share/doc/meridal/README.md"]
        kept = ["/Library/Application Support/Meridal 6/machine-history.db", "/Library/Logs/Meridal/Daemon/mas-daemon.log",
                "/etc/meridal/meridald.conf"]
        others = ["/usr/local/bin/meridian", "/usr/local/share/man/man8/other.8"]
        with tempfile.TemporaryDirectory() as root:
            def there(paths):
                return [path for path in paths if os.path.exists(root + path)]

            for path in installed + kept + others:
                os.makedirs(os.path.dirname(root + path), exist_ok=True)
                open(root + path, "w").close()
            for arguments, left in ([], kept + others), (["--purge"], others):
                subprocess.run([PACKAGING / "uninstall", *arguments], check=True, stdout=subprocess.DEVNULL,
                               env=dict(os.environ, MERIDAL_ROOT=root))
                self.assertEqual(there(installed + kept + others), left)
            wrong = subprocess.run([PACKAGING / "uninstall", "--all"], capture_output=True, env=dict(os.environ, MERIDAL_ROOT=root))
            self.assertEqual(wrong.returncode, 2)

    def test_a_program_that_would_not_start_on_another_mac_is_named(self):
        problems_of = load_tool("universal").problems_of
        sound = BUILT_FOR.format("11.0") + LIBRARY.format("LC_LOAD_DYLIB", "/usr/lib/libSystem.B.dylib")
        symbols = ("0000000000000000 01 00 0100 0000001b _weak_in_name\n"
                   "0000000000000000 01 00 0280 00000040 __Znwm\n"  # of libc++, whose own is weak: it is always there
                   "0000000100001000 0f 01 00c0 00000052 _our_own\n")
        self.assertEqual(problems_of(sound, symbols), [])
        for headers, names, said in (
                (sound.replace("minos 11.0", "minos 14.0"), symbols, "is for macOS 14.0"),
                (sound.partition("Load command 12")[2], symbols, "of any release"),
                (sound + LIBRARY.format("LC_LOAD_DYLIB", "/opt/homebrew/opt/fmt/lib/libfmt.11.dylib"), symbols, "libfmt.11.dylib"),
                (sound + LIBRARY.format("LC_LOAD_DYLIB", "@rpath/libfmt.11.dylib"), symbols, "@rpath/libfmt"),
                (sound + LIBRARY.format("LC_LOAD_WEAK_DYLIB", "/usr/lib/libpcap.A.dylib"), symbols, "without /usr/lib/libpcap"),
                (sound + "          cmd LC_RPATH\n", symbols, "LC_RPATH"),
                (sound, symbols + "0000000000000000 01 00 0140 00000061 _newer\n", "without _newer"),
                (sound, "no symbols\n", "cannot be read")):
            problems = problems_of(headers, names)
            self.assertEqual([said in problem for problem in problems], [True], problems)


if __name__ == "__main__":
    unittest.main()
