#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""meridal-exporter between a real daemon and scrapers that mean well, are slow, or mean harm, over real sockets.

    exporter_test.py [BUILD_FOLDER]      (default: what MERIDAL_BUILD_DIR names)
"""

import contextlib
import gzip
import http.client
import os
import re
import signal
import socket
import subprocess
import sys
import time
from concurrent.futures import ThreadPoolExecutor

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
import running  # noqa: E402  the daemon and its clients

TEXT = "text/plain; version=0.0.4; charset=utf-8"
OPEN = "application/openmetrics-text; version=1.0.0; charset=utf-8"
PROMETHEUS_2_42 = ("application/openmetrics-text;version=1.0.0,application/openmetrics-text;version=0.0.1;q=0.75,"
                   "text/plain;version=0.0.4;q=0.5,*/*;q=0.1")
MOST_OF_ADDRESS = 128
REQUEST_TIME = 10  # s


class Connection(http.client.HTTPConnection):
    """To a place as the exporter names it."""

    def __init__(self, place):
        super().__init__("exporter", timeout=running.DEADLINE)
        self.place = place

    def connect(self):
        if self.place.startswith("unix:"):
            self.sock = socket.socket(socket.AF_UNIX)
            self.sock.settimeout(self.timeout)
            self.sock.connect(self.place[5:])
        else:
            host, port = self.place.rsplit(":", 1)
            self.sock = socket.create_connection((host.strip("[]"), int(port)), self.timeout)

    def ask(self, method="GET", path="/metrics", body=None, **headers):
        self.request(method, path, body, {name.replace("_", "-"): value for name, value in headers.items()})
        answer = self.getresponse()
        answer.body = answer.read()
        return answer


class Exporter:
    def __init__(self, test, *arguments, listen=("127.0.0.1:0",), inherited=None):
        command = [os.path.join(running.BUILD, "meridal-exporter"), "--socket", os.path.join(test.root, "run", "daemon.sock")]
        for place in listen:
            command += ["--listen", place]
        if inherited:
            command = [sys.executable, "-c", running.BECOME_SERVICE, str(inherited.fileno()), *command]
        self.process = subprocess.Popen([*command, *arguments], stderr=subprocess.PIPE, text=True, bufsize=1,
                                        pass_fds=[inherited.fileno()] if inherited else [])
        test.children.append(self.process)
        test.addCleanup(self.process.stderr.close)
        told = [self.process.stderr.readline() for _ in range(len(listen) + bool(inherited))]
        self.places = [re.fullmatch(r"Serving /metrics at (\S+)\n", line).group(1) for line in told]

    def connect(self):
        return contextlib.closing(Connection(self.places[0]))

    def ask(self, *arguments, **headers):
        with self.connect() as connection:
            return connection.ask(*arguments, **headers)

    def is_up(self):
        answer = self.ask()
        assert answer.status == 200, answer.status
        return figure(answer, "meridal_up") == 1

    def raw(self, sent=b""):
        """A client's socket that has sent so much."""
        connection = Connection(self.places[0])
        connection.connect()
        connection.sock.sendall(sent)
        return connection.sock

    def open_files(self):
        return len(os.listdir(f"/proc/{self.process.pid}/fd"))

    def resident(self):
        with open(f"/proc/{self.process.pid}/statm") as file:
            return int(file.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")


def figure(answer, name):
    return float(re.search(rf"^{name} (\S+)$", answer.body.decode(), re.MULTILINE).group(1))


def has_ended(client, sent=b""):
    """Whether the other end is closed, having sent it that."""
    try:
        client.sendall(sent)
        client.setblocking(False)
        return client.recv(65536) == b""
    except BlockingIOError:
        return False
    except OSError:
        return True
    finally:
        client.setblocking(True)


class ExporterTest(running.DaemonTest):
    def setUp(self):
        super().setUp()
        if not os.path.exists(os.path.join(running.BUILD, "meridal-exporter")):
            self.skipTest("built without cpp-httplib")

    def test_each_gets_the_format_and_the_coding_that_it_understands(self):
        self.start().wait_ready()
        exporter = Exporter(self)
        for accept, kind in ((None, TEXT), ("*/*", TEXT), (PROMETHEUS_2_42, OPEN), ("text/html, */*;q=0.8", TEXT),
                             ("application/openmetrics-text;q=0.3, text/plain;q=0.4", TEXT),
                             ('Application/OpenMetrics-Text; version="1.0.0", text/*;q=0.9', OPEN),
                             ("application/openmetrics-text; version=2.0.0", TEXT), ("application/openmetrics-text;q=0", TEXT),
                             ("application/openmetrics-text;q=1.5", TEXT), (",;q=,;;=," * 300, TEXT)):
            answer = exporter.ask(**{"Accept": accept} if accept else {})
            self.assertEqual((answer.status, answer.headers["Content-Type"]), (200, kind), accept)
            self.assertEqual(answer.body.endswith(b"\n# EOF\n"), kind == OPEN, accept)
            self.assertEqual(figure(answer, "meridal_up"), 1)
        for coding, is_compressed in (("gzip", True), ("deflate, gzip;q=0.5", True), ("br", False), ("gzip;q=0, *", False),
                                      ("identity;q=0.5, *;q=0.1", True), ("", False)):
            for accept in ("*/*", PROMETHEUS_2_42):  # the library knows only the former as text
                answer = exporter.ask(Accept=accept, Accept_Encoding=coding)
                self.assertEqual(answer.headers["Content-Encoding"], "gzip" if is_compressed else None, coding)
                self.assertIn(b"meridal_up 1\n", gzip.decompress(answer.body) if is_compressed else answer.body)

    def test_nothing_else_is_there_and_a_connection_goes_on(self):
        exporter = Exporter(self)
        with exporter.connect() as connection:
            for method, path, status in (("GET", "/", 200), ("GET", "/metrics?collect=all", 200), ("HEAD", "/metrics", 200),
                                         ("GET", "/metrics/", 404), ("GET", "/../../etc/passwd", 404), ("HEAD", "/x", 404)):
                answer = connection.ask(method, path)
                self.assertEqual((answer.status, answer.will_close), (status, False), path)
                self.assertEqual(answer.body == b"", method == "HEAD")
                self.assertGreater(int(answer.headers["Content-Length"]), 0)
            for method in ("POST", "PUT", "DELETE", "OPTIONS", "PATCH", "TRACE"):
                answer = connection.ask(method, "/metrics", b"x" * 100_000)
                self.assertEqual((answer.status, answer.headers["Allow"], answer.will_close), (405, "GET, HEAD", True), method)
        pipelined = exporter.raw(b"GET / HTTP/1.1\r\n\r\nGET /2 HTTP/1.1\r\nRange: bytes=0-1,2-3\r\nExpect: 100-continue\r\n\r\n"
                                 b"GET / HTTP/1.1\r\nContent-Length: 3\r\n\r\n")
        with pipelined, pipelined.makefile("rb") as answers:
            said = answers.read()
        self.assertEqual(re.findall(rb"^HTTP/1.1 (\d+)", said, re.MULTILINE), [b"200", b"404", b"200"], said)
        self.assertEqual(said.count(b"Connection: close"), 1, said)

    def test_the_daemon_comes_and_goes_and_hangs(self):
        exporter = Exporter(self)
        self.assertFalse(exporter.is_up())
        for _ in range(2):
            daemon = self.start().wait_ready()
            running.until(exporter.is_up, "figures of the daemon")
            daemon.kill()
            running.until(lambda: not exporter.is_up(), "that it is away")
        daemon = self.start().wait_ready()
        running.until(exporter.is_up, "figures of the daemon")
        daemon.process.send_signal(signal.SIGSTOP)
        running.until(lambda: not exporter.is_up(), "that it hangs")
        self.assertEqual(exporter.ask("GET", "/").status, 200)
        daemon.process.send_signal(signal.SIGCONT)
        running.until(exporter.is_up, "figures of the daemon")

    def test_fifty_at_once_cost_the_daemon_one_round_of_questions(self):
        with self.serving() as (daemon, client):
            def questions_for(scrape):
                before = client.call("status")["transport"]["requests"]
                scraped = scrape()
                return client.call("status")["transport"]["requests"] - before - 1, scraped

            of_a_round, _ = questions_for(Exporter(self).ask)
            exporter = Exporter(self)  # which has no answer yet that it could share

            def fifty():
                daemon.process.send_signal(signal.SIGSTOP)
                with contextlib.ExitStack() as open_ones, ThreadPoolExecutor(50) as threads:
                    connections = [open_ones.enter_context(exporter.connect()) for _ in range(50)]
                    for connection in connections:
                        connection.request("GET", "/metrics")
                    started = time.monotonic()
                    daemon.process.send_signal(signal.SIGCONT)
                    bodies = list(threads.map(lambda connection: connection.getresponse().read(), connections))
                return bodies, time.monotonic() - started

            questions, (bodies, took) = questions_for(fifty)
            self.assertTrue(all(b"meridal_up 1\n" in body for body in bodies))
            self.assertGreater(of_a_round, 1)
            self.assertEqual(questions, of_a_round * len(set(bodies)), "each round once")
            self.assertLessEqual(len(set(bodies)), 1 + took, "at most one a second")

    @running.on_linux  # where this process's files and memory can be read
    def test_bad_clients_cost_the_good_ones_nothing(self):
        self.start().wait_ready()
        exporter = Exporter(self)
        with contextlib.ExitStack() as bad_ones:
            for number in range(200):
                head = (b"", b"GET /metrics HTTP/1.1\r\nX: ", b"\0\xff" * 100, b"GET /metrics HTTP/1.1\r\n\r\n" * 300)[number % 4]
                bad_ones.enter_context(exporter.raw(head))  # the last kind never reads what it asked for
                if number % 50 == 49:
                    started = time.monotonic()
                    self.assertTrue(exporter.is_up())
                    self.assertLess(time.monotonic() - started, REQUEST_TIME / 2, "not after they have been cut off")
            running.until(lambda: exporter.open_files() < MOST_OF_ADDRESS + 20, "no more than there may be")
            self.assertTrue(exporter.is_up())
        for bad in (b"GET /" + b"x" * 9000 + b" HTTP/1.1\r\n\r\n", b"GET / HTTP/1.1\r\nX: " + b"y" * 9000,
                    b"GET / HTTP/1.1\r\n" + b"a: b\r\n" * 2000):
            with exporter.raw(bad) as client, client.makefile("rb") as answer:
                self.assertEqual(answer.readline(), b"HTTP/1.1 431 Request Header Fields Too Large\r\n")
        for bad in (b"\r\n\r\n", b"GET\r\n\r\n", b"BREW / HTTP/1.1\r\n\r\n", b"GET / HTTP/9\r\n\r\n", b"\x16\x03\x01\r\n\r\n"):
            with exporter.raw(bad) as client, client.makefile("rb") as answer:
                self.assertIn(answer.read().split(b"\r\n")[0], (b"HTTP/1.1 400 Bad Request", b""), bad)
        ranges = b"GET / HTTP/1.1\r\nRange: bytes=" + b"0-1," * 1900 + b"0-1\r\n\r\n"
        with exporter.raw(ranges) as client, client.makefile("rb") as answer:
            self.assertEqual(answer.readline(), b"HTTP/1.1 200 OK\r\n")
        with open(os.path.join(running.BUILD, "meridal-exporter"), "rb") as file:
            program = file.read()
        is_sanitized = b"__asan_init" in program or b"__tsan_init" in program
        self.assertLess(exporter.resident(), 400 << 20 if is_sanitized else 32 << 20)

        with exporter.raw(b"GET /metr") as trickling:
            trickled = time.monotonic()
            running.until(lambda: has_ended(trickling, b"x"), "the end of a client that sends a byte now and then")
        self.assertLess(time.monotonic() - trickled, REQUEST_TIME + 5)
        running.until(lambda: exporter.open_files() < 20, "their end")
        self.assertTrue(exporter.is_up())

    def test_it_serves_where_it_is_told_to(self):
        path = os.path.join(self.root, "exporter.sock")
        with socket.socket(socket.AF_UNIX) as dead:
            dead.bind(path)
        handed = socket.create_server(("127.0.0.1", 0))
        exporter = Exporter(self, "--groups", "0", "--all", "--no-wifi-names", listen=("127.0.0.1:0", f"unix:{path}"), inherited=handed)
        self.assertEqual(exporter.places[0], "127.0.0.1:%d" % handed.getsockname()[1])
        handed.close()
        self.assertEqual(len(set(exporter.places)), 3)
        for place in exporter.places:
            with contextlib.closing(Connection(place)) as connection:
                self.assertEqual(connection.ask().status, 200)
        if socket.has_dualstack_ipv6():
            self.assertFalse(Exporter(self, listen=("[::1]:0",)).is_up())
        program = os.path.join(running.BUILD, "meridal-exporter")
        versions = [subprocess.run([name, "--version"], capture_output=True, text=True, check=True).stdout.split(" ", 1)
                    for name in (program, os.path.join(running.BUILD, "meridald"))]
        self.assertEqual(versions[0], ["meridal-exporter", versions[1][1]])
        for arguments, status, complaint in ((["--listen", exporter.places[0]], 1, "Address already in use"),
                                             (["--listen", f"unix:{path}"], 1, "Address already in use"),
                                             (["--listen", "localhost"], 64, "neither ADDRESS:PORT nor"),
                                             (["--listen", "1.2.3.4:70000"], 64, "neither ADDRESS:PORT nor"),
                                             (["--listen", "unix:x"], 64, "neither ADDRESS:PORT nor"), (["--groups", "600"], 64, "600")):
            ran = subprocess.run([program, *arguments], capture_output=True, text=True, timeout=running.DEADLINE)
            self.assertEqual(ran.returncode, status, ran.stderr)
            self.assertIn(complaint, ran.stderr)
        exporter.process.send_signal(signal.SIGTERM)
        self.assertEqual(exporter.process.wait(running.DEADLINE), 0)
        self.assertFalse(os.path.exists(path), "its socket goes with it")


if __name__ == "__main__":
    running.main()
