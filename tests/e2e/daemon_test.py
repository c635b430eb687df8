#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The whole daemon as its users meet it: a real process, a real socket, real signals, this machine's processes.

    daemon_test.py [BUILD_FOLDER]      (default: what MERIDAL_BUILD_DIR names)
"""

import contextlib
import os
import pwd
import signal
import socket
import stat
import subprocess
import sys
import threading

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
import running  # noqa: E402  the daemon and its clients


class WholeDaemonTest(running.DaemonTest):
    def test_serves_and_ends_in_order(self):
        for number in (signal.SIGTERM, signal.SIGINT):
            daemon = self.start().wait_ready()
            client = daemon.client()
            self.assertIs(client.call("exists:"), True)
            version, build = client.call("version:")
            self.assertAlmostEqual(version, 6.6, places=5)
            self.assertEqual(build, 1177)
            mode = os.stat(daemon.socket_path).st_mode
            self.assertEqual(stat.S_IMODE(mode) & 0o666, 0o666, "every local user may connect")
            self.assertEqual(daemon.stop(number), 0)
            self.assertFalse(os.path.exists(daemon.socket_path))
            client.close()
        words = ["Daemon smc", "Prepating smc", "Prepating network", "Preparing smart", "Preparing processes", "Preparing battery",
                 "Preparing power notifier", "Preparing bandwidth", "Starting network", "Starting processes",
                 "Daemon started"]
        log = daemon.read_log()
        places = [log.find(word) for word in words]
        self.assertNotIn(-1, places, log)
        self.assertEqual(places, sorted(places))
        self.assertEqual(log.count("Daemon started"), 2, "a second run adds to the same log")

    def test_programs_and_status_name_the_same_release(self):
        with self.serving() as (_, client):
            release = client.call("status")["release"]
        for program in ("meridald", "meridalctl"):
            said = subprocess.run([os.path.join(running.BUILD, program), "--version"], capture_output=True, text=True, check=True)
            self.assertEqual(said.stdout, f"{program} {release} (protocol 6.6, build 1177)\n")

    def test_one_daemon_a_root_and_a_dead_one_is_replaced(self):
        first = self.start().wait_ready()
        second = self.start()
        self.assertEqual(second.wait(), 1)
        self.assertIn("already runs", second.errors)
        self.assertIn(str(first.process.pid), second.errors)
        self.assertEqual(len(second.errors.strip().splitlines()), 1, second.errors)
        client = first.client()
        self.assertIs(client.call("exists:"), True)
        client.close()

        first.kill()
        self.assertTrue(os.path.exists(first.socket_path), "a killed daemon leaves its socket behind")
        third = self.start().wait_ready()
        client = third.client()
        self.assertIs(client.call("exists:"), True)
        client.close()
        self.assertEqual(third.stop(), 0)

    def test_standard_error_goes_to_its_log_unless_a_development_tool_started_us(self):
        error_log = os.path.join(self.root, "log", "mas-daemon.log")
        os.makedirs(os.path.dirname(error_log))
        for size, kept in ((3_145_728, True), (3_145_729, False)):
            with open(error_log, "wb") as file:
                file.truncate(size)
            self.assertEqual(self.start().wait_ready().stop(), 0)
            self.assertEqual(os.path.getsize(error_log) >= size, kept, f"{size} bytes")
        os.unlink(error_log)
        self.assertEqual(self.start("/Applications/xCoDe.app/Contents").wait_ready().stop(), 0)
        self.assertFalse(os.path.exists(error_log))

    @running.on_linux
    def test_a_socket_of_the_service_managers_loses_nobody_over_a_restart(self):
        path = os.path.join(self.root, "run", "daemon.sock")
        os.mkdir(os.path.dirname(path))
        listening = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.addCleanup(listening.close)
        listening.bind(path)
        listening.listen(512)

        refused, answered, ending = [], [], threading.Event()

        def visit():
            while not ending.is_set():
                try:
                    client = running.Client(path)
                except OSError as error:
                    refused.append(error)
                    continue
                with contextlib.suppress(OSError, running.example_client.ConnectionEnded):  # of a daemon that had taken it
                    answered.append(client.call("exists:"))
                client.close()

        visitors = [threading.Thread(target=visit, daemon=True) for _ in range(3)]
        self.addCleanup(ending.set)
        waiting = []
        for end, status in ((signal.SIGTERM, 0), (signal.SIGKILL, -signal.SIGKILL), (signal.SIGTERM, 0)):
            daemon = self.start(service=True, listening=listening).wait_ready()
            for client in [*waiting, daemon.client()]:
                self.assertIs(client.call("exists:"), True)
                client.close()
            if not answered:
                for visitor in visitors:
                    visitor.start()
                running.until(lambda: answered, "an answer")
            self.assertEqual(daemon.stop(end), status)
            waiting = [daemon.client() for _ in range(3)]
        ending.set()
        listening.close()  # those that wait now are turned away
        for visitor in visitors:
            visitor.join()
        for client in waiting:
            client.close()
        self.assertEqual(refused, [])

    @running.on_linux
    def test_the_journal_gets_lines_with_levels_and_crashes_with_their_calls(self):
        self.write_configuration("[record]\nsensors = nope\n")
        daemon = self.start(service=True).wait_ready()
        lines = []
        while "<6>Daemon started" not in lines:
            lines.append(daemon.process.stderr.readline().decode().rstrip("\n"))
            self.assertNotEqual(lines[-1], "", "it has ended")
        self.assertEqual(daemon.stop(signal.SIGABRT), -signal.SIGABRT)
        lines += daemon.errors.splitlines()
        self.assertEqual([line[:3] for line in lines if '"nope" is neither' in line], ["<4>"], "once, as a warning")
        crash = next(place for place, line in enumerate(lines) if line.endswith("build 1177): SIGABRT"))
        self.assertTrue(lines[crash].startswith("<2>"), lines[crash])
        calls = [line for line in lines[crash + 1:] if "  at " in line]  # the log's own thread goes on meanwhile
        self.assertTrue(all(line.startswith("<2>") for line in calls), lines)
        self.assertGreater(sum("/meridald+0x" in line for line in calls), 1, calls)
        self.assertEqual(os.listdir(os.path.join(self.root, "log")), [])
        daemon = self.start(environment={"JOURNAL_STREAM": "8:1234"}).wait_ready()
        daemon.stop()
        self.assertIn("Daemon started", daemon.read_log(), "a stream in the journal's place gets no log")

    @running.on_linux
    def test_a_service_manager_that_watches_hears_of_it(self):
        daemon = self.start(environment={"WATCHDOG_USEC": "300000"}).wait_ready()
        for _ in range(3):
            daemon.wait_told(b"WATCHDOG=1")
        self.assertEqual(daemon.stop(), 0)

    def test_wrong_arguments_are_named(self):
        daemon = self.start("--nonsense")
        self.assertNotEqual(daemon.wait(), 0)
        self.assertIn("--nonsense", daemon.errors)

    def write_configuration(self, text, name="etc/meridald.conf"):
        path = os.path.join(self.root, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w") as file:
            file.write(text)
        return path

    def test_a_bad_line_of_the_configuration_is_named_everywhere_and_stops_nothing(self):
        main = self.write_configuration("[record]\nsensors = nope\n\n[traffic]\nsuorce = bpf\nsource = sockets\n")
        extra = self.write_configuration("[processes]\nsource = bpf\n", "etc/meridald.conf.d/10.conf")
        with self.serving("--process-source", "proc") as (daemon, client):
            told = client.call("status")["configuration"]
            self.assertEqual(told["files"], [main, extra])
            self.assertEqual([(w["file"], w["line"]) for w in told["warnings"]], [(main, 2), (main, 5)])
            self.assertIn('did you mean "source"?', told["warnings"][1]["text"])
            self.assertTrue(told["record"]["sensors"])
            self.assertIn(f"{main}:5: ", self.ctl("status"))
            if "source" in (processes := client.call("status").get("processes", {})):
                self.assertEqual(processes["source"], "proc", "the command line wins")
        for text in (daemon.errors, daemon.read_log()):
            self.assertIn(f'{main}:2: sensors: "nope" is neither yes nor no', text)
        other = self.write_configuration("[record]\nmachine = no\n", "other.conf")
        with self.serving("--config", other) as (daemon, client):
            self.assertEqual(client.call("status")["configuration"]["files"], [other])
            self.assertEqual(daemon.process.poll(), None)

    def test_a_hangup_reads_the_configuration_again(self):
        files = [os.path.join(self.root, "state", name) for name in ("machine-history.db", "battery-history.db")]
        self.write_configuration("[record]\nmachine = no\nsensors = no\ndisks = no\nbattery = no\n")
        with self.serving() as (daemon, client):
            self.assertEqual([os.path.exists(file) for file in files], [False, False])
            self.write_configuration("[traffic]\nsource = sockets\n[record]\nmachine = perhaps\n")
            daemon.process.send_signal(signal.SIGHUP)
            running.until(lambda: client.call("status")["configuration"]["record"]["machine"], "the switch")
            running.until(lambda: all(map(os.path.exists, files)), "the files of the record")
            self.assertEqual(len(client.call("status")["configuration"]["warnings"]), 1)
        self.assertIn("source in [traffic] was changed, which takes effect at the next start", daemon.read_log())

    def test_a_busy_process_and_its_name_of_any_bytes(self):
        rename = "import ctypes\nctypes.CDLL(None).prctl(15, b'ev)il \\xff\\n\\x1b[2J', 0, 0, 0)\n"  # elsewhere a file's name
        child = self.spawn(sys.executable, "-c", (rename if running.IS_LINUX else "") + "print('up', flush=True)\nwhile True: pass")
        with self.serving() as (_, client):
            client.call("startRequestWithKey:interval:", 1, 1)
            key = str(child.pid)

            def busy(envelope):
                return any(row["key"] == key and float(row["c"]) > 20 for row in envelope["processes"])

            rows = client.envelope(busy)["processes"]
            self.assertLessEqual(len(rows), 20)
            shares = [float(row["c"]) for row in rows]
            self.assertEqual(shares, sorted(shares, reverse=True))
            (name,) = client.call("infoForPids:reply:", [child.pid, 2 ** 31 - 1])
            self.assertEqual(name["pid"], child.pid)
            if running.IS_LINUX:
                self.assertEqual(name["name"], "ev)il \ufffd\n\x1b[2J")

    def test_memory_and_energy_of_a_known_child(self):
        child = self.spawn(sys.executable, "-c", "import time\n"
                           "block = bytearray(b'x') * (300 << 20)\nprint('up', flush=True)\ntime.sleep(600)")
        with self.serving() as (_, client):
            for key in (2, 16, 4):
                client.call("startRequestWithKey:interval:", key, 1)
            memory = client.envelope(lambda e: e["type"] == "2" and any(r["key"] == str(child.pid) for r in e["processes"]))
            row = next(r for r in memory["processes"] if r["key"] == str(child.pid))
            self.assertGreater(float(row["m"]), 300 << 20)
            self.assertLess(float(row["m"]), 330 << 20)
            energy = client.envelope(lambda e: e["type"] == "16" and e["processes"])  # empty until there is a rate
            self.assertTrue(all({"key", "name", "score", "bundle"} <= set(r) for r in energy["processes"]))
            self.assertGreater(len(energy["processes"]), 3, "every process is on the energy list")
            disk = client.envelope(lambda e: e["type"] == "4")
            self.assertTrue({"read", "write"} <= set(disk))

    @running.needs_root
    def test_an_ordinary_user_gets_what_the_kernel_shows_and_is_told_what_is_missing(self):
        nobody = pwd.getpwnam("nobody").pw_uid
        with self.serving(user=nobody) as (daemon, client):
            client.call("startRequestWithKey:interval:", 4, 1)
            status = client.call("status")
            self.assertIn("disk", status["limitations"])
            self.assertEqual(client.call("startRequestWithKey:interval:", 1, 1), None)
            rows = client.envelope(lambda e: e["type"] == "1")["processes"]
            self.assertGreater(len(rows), 2, "CPU figures of every user's processes")
        self.assertEqual(daemon.read_log().count("Not to be had here"), 1)

    def test_the_status_is_of_this_process_and_clients_that_die_in_every_way_cost_nothing(self):
        with self.serving() as (daemon, client):
            status = client.call("status")
            self.assertEqual((status["clients"], status["transport"]["openConnections"]), (1, 1))
            self.assertGreater(status["usage"]["residentBytes"], 1 << 20)
            self.assertGreater(status["usage"]["cpuSeconds"], 0)
            self.assertEqual(status["paths"]["socket"], daemon.socket_path)
            for number in range(200):
                if number % 32 == 0:  # as many as a user may have at once
                    running.until(lambda: client.call("status")["clients"] == 1, "the end of the others")
                other = daemon.client()
                for key in (1, 2, 4, 8, 16, 128):
                    other.notify("startRequestWithKey:interval:", key, 1)
                other._socket.sendall(b'{"jsonrpc":"2.0","meth')
                other.close()
            # The closes are seen in their own time: ask until they have been.
            while client.call("status")["clients"] > 1:
                pass
            self.assertIs(client.call("exists:"), True)


if __name__ == "__main__":
    running.main()
