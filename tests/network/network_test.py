#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The network actions of a running daemon, with services on a bus of its own that write down what they are told; and its
account of bandwidth over real traffic in a network of its own.

    network_test.py [BUILD_FOLDER]      (default: what MERIDAL_BUILD_DIR names)
"""
import ctypes
import json
import os
import socket
import sqlite3
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
import mock_bus  # noqa: E402  goes on in a Python that has D-Bus
import running  # noqa: E402  the daemon and its clients

import dbus  # noqa: E402
from running import until  # noqa: E402

MANAGER = "org.freedesktop.NetworkManager"
MANAGER_PATH = "/org/freedesktop/NetworkManager"
SYSTEMD = "org.freedesktop.systemd1"
SYSTEMD_PATH = "/org/freedesktop/systemd1"


class NetworkTest(mock_bus.BusTest):
    def mock(self, name, path, *arguments):
        """The mock interface of a service of its own."""
        self.start_mock(name, *arguments)
        return self.interface(name, path)

    def calls(self, mock, method):
        return [[str(word) for word in arguments] for _, arguments in mock.GetMethodCalls(method)]

    def test_network_manager_renews_leases_and_switches_profiles(self):
        mock = self.mock(MANAGER, MANAGER_PATH, "--template", "networkmanager")
        device = mock.AddEthernetDevice("mock0", "lo", 100)
        settings = self.interface(MANAGER, MANAGER_PATH + "/Settings", MANAGER + ".Settings")
        first, second = [settings.AddConnection({"connection": {"id": name, "type": "802-3-ethernet", "autoconnect": False},
                                                 "802-3-ethernet": {"name": name}}) for name in ("Café (upstairs)", "work")]
        client = self.client()
        with self.assertRaises(RuntimeError):  # not active, so it holds no lease
            client.call("refreshDHCP:", "lo")
        mock.AddActiveConnection([device], first, "/", "0", dbus.UInt32(2))
        client.call("refreshDHCP:", "lo")
        client.call("setNetworkSet:", "work")
        uuid = self.interface(MANAGER, first, MANAGER + ".Settings.Connection").GetSettings()["connection"]["uuid"]
        client.call("setNetworkSet:", str(uuid))
        client.call("setNetworkSet:", "Café (upstairs)")
        self.assertEqual(self.calls(mock, "ActivateConnection"),
                         [[first, device, "/"], [second, "/", "/"], [first, "/", "/"], [first, "/", "/"]])
        for method, argument in (("setNetworkSet:", "home"), ("setNetworkSet:", "../x"), ("refreshDHCP:", "nosuch0"),
                                 ("refreshDHCP:", ""), ("refreshDHCP:", "lo;id")):
            with self.assertRaises(RuntimeError):
                client.call(method, argument)
        self.assertEqual(len(self.calls(mock, "ActivateConnection")), 4)

    def test_networkd_renews_the_lease_of_its_own_links(self):
        path = "/org/freedesktop/network1"
        mock = self.mock("org.freedesktop.network1", path, "--system", "org.freedesktop.network1", path,
                         "org.freedesktop.network1.Manager")
        mock.AddMethod("org.freedesktop.network1.Manager", "RenewLink", "i", "", "")
        client = self.client()
        client.call("refreshDHCP:", "lo")
        self.assertEqual(self.calls(mock, "RenewLink"), [[str(socket.if_nametoindex("lo"))]])
        mock.AddMethod("org.freedesktop.network1.Manager", "RenewLink", "i", "",
                       "raise dbus.exceptions.DBusException('unmanaged', name='org.freedesktop.network1.UnmanagedInterface')")
        with self.assertRaisesRegex(RuntimeError, "nothing on this machine asks for leases"):
            client.call("refreshDHCP:", "lo")

    def test_without_a_manager_a_network_set_is_a_unit(self):
        mock = self.mock(SYSTEMD, SYSTEMD_PATH, "--system", SYSTEMD, SYSTEMD_PATH, SYSTEMD + ".Manager")
        mock.AddMethod(SYSTEMD + ".Manager", "LoadUnit", "s", "o",
                       "ret = '/unit/home' if args[0] == 'meridal-network-set@home.service' else '/unit/other'")
        mock.AddMethod(SYSTEMD + ".Manager", "RestartUnit", "ss", "o", "ret = '/job/1'")
        mock.AddObject("/unit/home", SYSTEMD + ".Unit", {"LoadState": "loaded"}, [])
        mock.AddObject("/unit/other", SYSTEMD + ".Unit", {"LoadState": "not-found"}, [])
        client = self.client()
        client.call("setNetworkSet:", "home")
        for identifier in ("work", "home@x", "home.service x", "%h"):
            with self.assertRaises(RuntimeError):
                client.call("setNetworkSet:", identifier)
        self.assertEqual(self.calls(mock, "RestartUnit"), [["meridal-network-set@home.service", "replace"]])

    def test_a_dhcp_client_of_its_own_runs_again_outside_of_the_daemons_unit(self):
        if os.geteuid() != 0:
            self.skipTest("only root's DHCP clients count")
        mock = self.mock(SYSTEMD, SYSTEMD_PATH, "--system", SYSTEMD, SYSTEMD_PATH, SYSTEMD + ".Manager")
        mock.AddMethod(SYSTEMD + ".Manager", "StartTransientUnit", "ssa(sv)a(sa(sv))", "o", "ret = '/job/1'")
        trusted = tempfile.TemporaryDirectory()  # root's alone, as self.root is not
        self.addCleanup(trusted.cleanup)
        program = os.path.join(trusted.name, "dhclient")  # its own name is what the kernel knows it by
        os.link("/usr/bin/tail", program) if os.stat("/usr/bin/tail").st_dev == os.stat(trusted.name).st_dev else \
            subprocess.run(["cp", "/usr/bin/tail", program], check=True)
        open(os.path.join(self.root, "lo"), "w").close()
        self.children.append(subprocess.Popen([program, "-f", "lo"], cwd=self.root))
        client = self.client()
        if not os.path.isdir("/run/systemd/system"):  # nobody's sandbox to leave: it is run at once, and knows no -r
            with self.assertRaisesRegex(RuntimeError, "dhclient failed: exit status 1"):
                client.call("refreshDHCP:", "lo")
        else:
            client.call("refreshDHCP:", "lo")
            (unit, _, properties, _), = [arguments for _, arguments in mock.GetMethodCalls("StartTransientUnit")]
            self.assertEqual(unit, "meridal-lease-lo.service")
            commands = {str(name): value for name, value in properties}["ExecStart"]
            self.assertEqual([[str(word) for word in words] for _, words, _ in commands],
                             [[program, "-r", "lo"], [program, "-f", "lo"]])


class BandwidthTest(running.DaemonTest):
    """The daemon in a network namespace, with two ends of a virtual cable."""

    def enter_network(self):
        libc = ctypes.CDLL(None, use_errno=True)
        before = os.open("/proc/self/ns/net", os.O_RDONLY)
        self.addCleanup(os.close, before)
        if libc.unshare(0x40000000) != 0:
            self.skipTest("a network of its own takes root")
        self.addCleanup(libc.setns, before, 0)
        for words in ("link add near type veth peer name far", "addr add 192.0.2.1/24 dev near", "link set near up",
                      "link set far up", "link set lo up", "neigh add 192.0.2.2 lladdr 02:00:00:00:00:02 dev near"):
            self.ip(words)

    @staticmethod
    def ip(words):
        return subprocess.run(["ip", *words.split()], check=True, capture_output=True, text=True).stdout

    def sent(self):
        link, = json.loads(self.ip("-j -s link show dev near"))
        return link["stats64"]["tx"]["bytes"]

    def test_who_watches_and_the_record_have_every_byte_whoever_comes_and_goes(self):
        self.enter_network()
        daemon = self.start().wait_ready()
        sender = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.addCleanup(sender.close)
        datagram, header, link = b"x" * 1200, 28, 14
        key, sent = str(os.getpid()), 0

        def send(count):
            nonlocal sent
            for _ in range(count):
                sender.sendto(datagram, ("192.0.2.2", 9))
            sent += count

        def uploaded(envelope):
            return sum(entry["u"] for entry in envelope["upload"] if entry["key"] == key)

        watcher = daemon.client()
        is_recorded = watcher.call("status")["capture"]["recorded"]
        self.assertIn(is_recorded, (True, False))  # packets are captured for clients only
        send(500 if is_recorded else 0)
        before = sent
        watcher.call("startRequestWithKey:interval:", 8, 1)
        first = watcher.envelope(8)
        self.assertIn(first["source"], ("bpf", "capture"))
        shown = uploaded(first)
        self.assertEqual(shown, 0, "of the time before")
        for number in range(6):
            send(200)
            with daemon.client() as passing:
                passing.call("startRequestWithKey:interval:", 8, 1)
                send(200)
                if number % 2:
                    passing.call("stopRequestWithKey:", 8)
            send(200)
            shown += uploaded(watcher.envelope(8))
        expected = (sent - before) * (len(datagram) + header)

        def is_all_shown():
            nonlocal shown
            shown += uploaded(watcher.envelope(8))
            return shown >= expected * 0.98

        until(is_all_shown, "the last byte")
        shown += uploaded(watcher.envelope(8))
        self.assertAlmostEqual(shown, expected, delta=expected * 0.02)
        watcher.call("stopRequestWithKey:", 8)
        if is_recorded:
            send(500)
            expected = sent * (len(datagram) + header + link)
            counted = until(lambda: [n for n in [watcher.call("status")["capture"]["processBytes"]] if n >= expected * 0.98],
                            "the pass after the last byte")[0]
            self.assertAlmostEqual(counted, expected, delta=expected * 0.02)
        watcher.close()
        self.assertEqual(daemon.stop(), 0)

    def test_what_the_file_says_was_really_sent(self):
        self.enter_network()
        daemon = self.start().wait_ready()
        client = daemon.client()
        first = until(lambda: [i for i in client.call("network.interfaces")["interfaces"] if i["interface"] == "near"],
                      "the interface")[0]
        self.assertEqual(first["hardware"], "Virtual")
        self.assertIn("192.0.2.1/24", first["addresses"])
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
            for _ in range(2000):
                sender.sendto(b"x" * 1200, ("192.0.2.2", 9))
        sent = self.sent()
        self.assertGreater(sent, 2000 * 1200)

        def seen():
            shown = client.call("network.interfaces")["interfaces"]
            return [i for i in shown if i["interface"] == "near" and i["bytes"]["sent"] >= sent]

        until(seen, "the tick after the last byte")
        account = client.call("bandwidth.totals", {"by": "interface", "interface": "near"})
        client.close()
        self.assertEqual(daemon.stop(), 0)
        connection = sqlite3.connect(os.path.join(self.root, "state", "bandwidth.db"))
        (upload,), = connection.execute("select sum(upload) from bandwidth_samples join bandwidth_interface_map on "
                                        "identifier = bandwidth_samples.interface where bandwidth_interface_map.interface = "
                                        "'near'").fetchall()
        connection.close()
        self.assertAlmostEqual(account["upload"], upload, delta=2000)  # neighbour discovery goes on meanwhile
        self.assertGreaterEqual(upload, 2000 * (1200 + 42) - 5000, "but for what went before the first tick")
        self.assertLessEqual(upload, self.sent())

        daemon = self.start().wait_ready()
        picture = os.path.join(self.root, "bandwidth.svg")

        self.assertRegex(self.ctl("bandwidth", "--all"), r"DAY +DOWNLOAD +UPLOAD +TOTAL\n\d{4}-\d\d-\d\d  .*2\.\d\d MiB")
        self.assertEqual(json.loads(self.ctl("bandwidth", "--all", "--json"))["by"], "day")
        self.assertRegex(self.ctl("bandwidth", "--all", "--by", "interface"), r"(?m)^near  +█")
        self.ctl("bandwidth", "--all", "--svg", picture)
        with open(picture) as file:
            svg = file.read()
        self.assertTrue(svg.startswith("<svg ") and svg.endswith("</svg>\n"))
        self.assertIn("2.3", svg)
        self.assertEqual(daemon.stop(), 0)


if __name__ == "__main__":
    running.main()
