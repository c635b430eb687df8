#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""tools/lint on small trees: each breaks one rule of the house, and the message must name the place and the way out."""

import os
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

LINT = Path(__file__).resolve().parents[2] / "tools" / "lint"


class LintTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)

    def lint(self, files, *options):
        """Writes the files and returns exit status and messages; the tally at the end is left out."""
        for path, text in files.items():
            (self.root / path).parent.mkdir(parents=True, exist_ok=True)
            (self.root / path).write_text(text)
        command = [sys.executable, str(LINT), "--root", str(self.root), *options]
        environment = dict(os.environ, XDG_CACHE_HOME=str(self.root / ".cache"))
        ran = subprocess.run(command, env=environment, capture_output=True, text=True, check=False)
        self.assertEqual(ran.stderr, "")
        return ran.returncode, ran.stdout.splitlines()[:-1]

    def assert_clean(self, files):
        self.assertEqual(self.lint(files, "--no-headers"), (0, []))

    def assert_finds(self, files, *wanted):
        """One message for each (place, fragment), in order, and none besides."""
        status, messages = self.lint(files, "--no-headers")
        self.assertEqual(len(messages), len(wanted), messages)
        for message, (place, fragment) in zip(messages, wanted):
            self.assertTrue(message.startswith(place + ":"), message)
            self.assertIn(fragment, message)
        self.assertEqual(status, 1)

    def test_what_sources_of_a_folder_have_for_themselves_has_names_of_its_own(self):
        unnamed = "namespace meridal {\nnamespace {\n%s\n} // namespace\n} // namespace meridal\n"
        one = unnamed % "constexpr int most = 3;\nstruct Row {\n    int a;\n};\nint half(const Row& row, int b)\n{\n    return b;\n}"
        self.assert_clean({
            "wire/One.cpp": one,
            "base/Elsewhere.cpp": one,
            "wire/Overload.cpp": unnamed % "int half(int a)\n{\n    const int most = 2;\n    return most;\n}",
        })
        self.assert_finds({"wire/Two.cpp": one}, *[("wire/Two.cpp", f"{name} is also in wire/One.cpp") for name in ("most", "Row", "half")])

    def test_a_type_has_its_name_alone(self):
        row = "#pragma once\nstruct Row final : Base {\n    int a;\n};\n"
        self.assert_clean({
            "wire/Row.h": row,
            "wire/Row.cpp": '#include "wire/Row.h"\nstruct Row::Part {\n};\nclass Other;\n',
            "tests/wire/RowTest.cpp": "namespace {\nstruct Row {\n};\n} // namespace\n",
            "platform/linux/Twin.h": "#pragma once\nclass Twin {\n};\n",
            "platform/macos/Twin.h": "#pragma once\nclass Twin {\n};\n",
        })
        self.assert_finds({"client/Row.h": row}, ("wire/Row.h", "Row is also in client/Row.h"))

    def test_includes_run_down_between_rooms(self):
        headers = {
            path: "#pragma once\n"
            for path in (
                "base/Text.h", "platform/host/Host.h", "platform/linux/LinuxHost.h", "collectors/Item.h",
                "daemon/Server.h", "wire/DaemonProtocol.h",
                "daemon/transport/Listener.h", "tests/support/FakeHost.h", "platform/linux/kernel/Netlink.h",
                "platform/linux/network/Links.h", "platform/linux/power/Battery.h",
            )
        }
        self.assert_clean(headers | {
            "collectors/Item.cpp": '#include "collectors/Item.h"\n#include "platform/host/Host.h"\n#include <vector>\n',
            "daemon/main.cpp": '#include "platform/linux/LinuxHost.h"\n#include "daemon/transport/Listener.h"\n',
            "client/Client.cpp": '#include "wire/DaemonProtocol.h"\n',
            "tests/daemon/ServerTest.cpp": '#include "platform/linux/LinuxHost.h"\n',
            "platform/linux/LinuxHost.cpp": '#include "platform/linux/power/Battery.h"\n',
            "platform/linux/traffic/Tap.cpp": '#include "platform/linux/network/Links.h"\n',
        })
        self.assert_finds(
            {
                "base/Text.cpp": '#include "base/Text.h"\n#include "collectors/Item.h"\n',
                "client/Client.cpp": '#include "daemon/Server.h"\n',
                "collectors/Item.cpp": '// #include "daemon/Server.h"\n#include "platform/linux/LinuxHost.h"\n',
                "daemon/Server.cpp": '#include "daemon/transport/Listener.h"\n#include "tests/support/FakeHost.h"\n',
                "platform/linux/kernel/Bus.cpp": '#include "platform/linux/LinuxHost.h"\n',
                "platform/linux/power/Ups.cpp": '#include "platform/linux/network/Links.h"\n',
            },
            ("base/Text.cpp:2", "base may not see collectors/Item.h; it sees base. Move what both need down"),
            ("client/Client.cpp:1", "client may not see daemon/Server.h"),
            ("collectors/Item.cpp:2", "collectors may not see platform/linux/LinuxHost.h"),
            ("daemon/Server.cpp:1", "daemon may not see daemon/transport/Listener.h"),
            ("daemon/Server.cpp:2", "the product may not see tests/support/FakeHost.h"),
            ("platform/linux/kernel/Bus.cpp:1", "platform/linux/kernel may not see platform/linux/LinuxHost.h"),
            ("platform/linux/power/Ups.cpp:1", "platform/linux/power may not see platform/linux/network/Links.h"),
        )

    def test_the_picture_says_what_the_table_says(self):
        drawn = (Path(__file__).parents[2] / "ARCHITECTURE.md").read_text()
        self.assert_clean({"ARCHITECTURE.md": drawn})
        self.assert_finds(
            {"ARCHITECTURE.md": drawn.replace("exporter --> client", 'attic["attic"]\n    exporter --> client & collectors')},
            ("ARCHITECTURE.md", "attic is drawn and no room"),
            ("ARCHITECTURE.md", "differ on whether exporter sees collectors, database, history, platform, platform/host"),
        )

    def test_own_headers_are_named_from_the_root(self):
        self.assert_finds(
            {
                "base/Text.h": "#pragma once\n",
                "base/Text.cpp": '#include "Text.h"\n#include <base/Text.h>\n#include "fmt/format.h"\n'
                                 '#include "base/../base/Text.h"\n',
            },
            ("base/Text.cpp:1", 'write "base/Text.h", the path from the root'),
            ("base/Text.cpp:2", '<base/Text.h> is ours; write "base/Text.h"'),
            ("base/Text.cpp:3", "write <fmt/format.h>"),
            ("base/Text.cpp:4", 'write "base/Text.h", the path from the root'),
        )

    def test_the_system_is_seen_in_its_folders_only(self):
        code = "#include <unistd.h>\n#include <sys/stat.h>\n#ifdef __linux__\n#endif\n"
        self.assert_clean({
            "platform/linux/Proc.cpp": code,
            "daemon/transport/Socket.cpp": code,
            "tests/daemon/SocketTest.cpp": code,
            "daemon/main.linux.cpp": "#include <systemd/sd-daemon.h>\n#include <csignal>\n",
            "base/Comment.cpp": "/*\n#ifdef __APPLE__\n*/\n",
        })
        self.assert_finds(
            {"base/Text.cpp": code + "#if defined(__APPLE__)\n#endif\n", "daemon/Stop.cpp": "#include <signal.h>\n"},
            ("base/Text.cpp:1", "<unistd.h> is the system's; ask a seam of platform/host"),
            ("base/Text.cpp:2", "<sys/stat.h>"),
            ("base/Text.cpp:3", "code that depends on __linux__"),
            ("base/Text.cpp:5", "code that depends on __APPLE__"),
            ("daemon/Stop.cpp:1", "include <csignal>"),
        )

    def test_clocks_sleeps_and_threads_belong_to_the_runtime(self):
        clock = "auto now = std::chrono::steady_clock::now();\n"
        thread = "std::thread worker([] {});\n"
        self.assert_clean({
            "base/AsioRuntime.cpp": clock + thread,
            "client/Ping.cpp": clock,
            "tests/base/LockTest.cpp": clock + thread,
            # names that only look alike, and text
            "daemon/Power.cpp": "void willSleep(); item.time(0); runtime.sleep(3); // usleep(3)\n"
                                "void Timers::wake() { sleep(); }\n"
                                'auto text = "time(0)"; auto n = 1\'000; std::thread::id id;\nvoid sleep(double s);\n',
        })
        self.assert_finds(
            {
                "collectors/Item.cpp": clock + "\n" + thread + "auto t = time(nullptr);\n",
                "daemon/Power.cpp": "void wait()\n{\n    sleep(1);\n    ::usleep(5);\n}\n",
                "tests/base/WaitTest.cpp": "std::this_thread::sleep_for(1s);\n",
            },
            ("collectors/Item.cpp:1", "steady_clock asks the system for the time; use Runtime::monotonicTime()"),
            ("collectors/Item.cpp:3", "std::thread starts a thread; use Runtime::makeSerialQueue()"),
            ("collectors/Item.cpp:4", "time asks the system for the time"),
            ("daemon/Power.cpp:3", "sleep sleeps; use Runtime::after()"),
            ("daemon/Power.cpp:4", "usleep sleeps"),
            ("tests/base/WaitTest.cpp:1", "VirtualRuntime::advance()"),
        )

    def test_texts_and_lengths(self):
        cited = "spec" + "ification"
        self.assert_clean({
            "docs/protocol.md": f"The JSON-RPC {cited} has the error codes.\n",
            "base/Long.cpp": "\n" * 600,
        })
        self.assert_finds(
            {
                "README.md": "Unpack it into /wo" + "rk/main first.\n",
                "base/Long.cpp": "\n" * 601,
                "base/Text.cpp": "// TO" + f"DO: faster\n// See the {cited}.\n",
                "base/Text.h": "int x;\n",
            },
            ("README.md:1", "path of one machine"),
            ("base/Long.cpp:600", "is 601 lines long; split it"),
            ("base/Text.cpp:1", "leaves work behind"),
            ("base/Text.cpp:2", "in your own words"),
            ("base/Text.h:1", "without #pragma once"),
        )

    def test_headers_compile_alone_and_are_tried_again_when_what_they_include_changes(self):
        files = {
            "base/Kind.h": "#pragma once\nenum class Kind { A };\n",
            "base/Item.h": '#pragma once\n#include "base/Kind.h"\nstruct Item {\n    Kind kind = Kind::A;\n};\n',
            "platform/macos/Mac.h": "#pragma once\n#include <nowhere/Mac.h>\n",
        }
        if sys.platform == "darwin":
            del files["platform/macos/Mac.h"]
        self.assertEqual(self.lint(files), (0, []))
        status, messages = self.lint({"base/Kind.h": "#pragma once\nenum class Sort { A };\n"})
        self.assertEqual((status, len(messages)), (1, 1))
        self.assertIn("base/Item.h:1: does not compile on its own; include what it uses.", messages[0])
        self.assertEqual(self.lint({})[0], 1, "a failure is not remembered as checked")


if __name__ == "__main__":
    unittest.main()
