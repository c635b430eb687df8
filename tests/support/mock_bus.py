# SPDX-License-Identifier: Apache-2.0
"""A system bus of a test's own, with services on it that do nothing by themselves and write down what they are told."""

import os
import subprocess
import sys

import running

running.go_on_with("dbusmock")
import dbus  # noqa: E402

MOCK = "org.freedesktop.DBus.Mock"


class BusTest(running.DaemonTest):
    def setUp(self):
        super().setUp()
        address = "unix:path=" + os.path.join(self.root, "bus")
        os.environ["DBUS_SYSTEM_BUS_ADDRESS"] = address
        self.spawn("dbus-daemon", "--session", "--nofork", "--nopidfile", "--nosyslog", "--print-address", "--address=" + address)
        self.bus = dbus.bus.BusConnection(address)

    def tearDown(self):
        self.bus.close()
        super().tearDown()
        del os.environ["DBUS_SYSTEM_BUS_ADDRESS"]

    def start_mock(self, name, *arguments):
        """A service that has its name when this returns."""
        service = subprocess.Popen([sys.executable, "-m", "dbusmock", *arguments], stdout=subprocess.DEVNULL)
        self.children.append(service)
        running.until(lambda: self.bus.name_has_owner(name), name)
        return service

    def interface(self, name, path, interface=MOCK):
        return dbus.Interface(self.bus.get_object(name, path), interface)
