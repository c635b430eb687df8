#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Disks as a running daemon sees them: a test bed of devices that answer SG_IO and NVMe admin commands.

    disks_test.py [BUILD_FOLDER]      (default: what MERIDAL_BUILD_DIR names)

Nothing here sleeps: every wait is for an event with a generous deadline.
"""
import os
import signal
import struct
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
import documented  # noqa: E402
import running  # noqa: E402  the daemon and its clients
from running import until  # noqa: E402

running.go_on_with("gi")
running.go_on_with_devices()

SG_IO = 0x2285
NVME_ADMIN = 0xC0484E41
IDENTIFY, CHECK_POWER, SMART = 0xEC, 0xE5, 0xB0
DATA, THRESHOLDS, STATUS = 0xD0, 0xD1, 0xDA
ILLEGAL_COMMAND = bytes([0x70, 0, 5, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x20, 0])


def summed(page):
    return bytes(page[:511]) + bytes([-sum(page[:511]) & 255])


def attribute_page(rows):
    page = bytearray(512)
    page[0:2] = struct.pack("<H", 16)
    for place, row in enumerate(rows):
        page[2 + 12 * place:2 + 12 * place + len(row)] = row
    return summed(page)


def attribute(number, flags, current, worst, raw):
    return struct.pack("<BHBB", number, flags, current, worst) + raw.to_bytes(6, "little")


def identify_page(model, serial):
    page = bytearray(512)

    def put(offset, size, text):
        padded = text.ljust(size).encode()
        page[offset:offset + size] = bytes(padded[place ^ 1] for place in range(size))
    put(20, 20, serial)
    put(46, 8, "FW01")
    put(54, 40, model)
    page[160:162] = struct.pack("<H", 0x3FC)  # up to ACS-2, as disks of this age
    page[164] = page[170] = 1
    page[175] = 0x40
    page[434:436] = struct.pack("<H", 5400)
    page[510] = 0xA5
    return summed(page)


def health_page(kelvin, used):
    page = bytearray(512)
    page[1:3] = struct.pack("<H", kelvin)
    page[3:6] = bytes([100, 10, used])
    page[128:136] = struct.pack("<Q", 1000)
    return bytes(page)


class AtaDisk:
    """Answers ATA commands in SCSI ones. `only` is the one size of command that its bridge knows, `residual` the bytes that it
    says it did not transfer; with `power` None it returns no registers."""

    def __init__(self, serial="WX1", temperature=34, only=None, residual=0):
        self.commands = []  # (command, feature)
        self.power = 0xFF
        self.only = only
        self.residual = residual
        self.hangs = False
        self.held = []
        self.failing = False
        self.data = attribute_page([attribute(5, 0x33, 200, 200, 0), attribute(9, 0x32, 90, 90, 7300),
                                    attribute(194, 0x22, 116, 98, temperature)])
        self.thresholds = attribute_page([bytes([5, 140])])
        self.identity = identify_page("WDC WD40EFRX-68N32N0", serial)

    def handle(self, client):
        if client.get_request() != SG_IO:
            return False
        header = client.get_arg().resolve(0, 88)
        fields = bytes(header.retrieve())
        length, data_length = fields[8], struct.unpack_from("<I", fields, 12)[0]
        cdb = bytes(header.resolve(24, length).retrieve())
        if self.only and length != self.only:
            return self.answer(client, header, sense=ILLEGAL_COMMAND)
        command, feature = (cdb[14], cdb[4]) if length == 16 else (cdb[9], cdb[3])
        self.commands.append((command, feature))
        if self.hangs and command == SMART:
            self.held.append((client, header))  # answers some other day
            return True
        if command == CHECK_POWER and self.power is not None:
            return self.answer(client, header, sense=self.registers(count=self.power))
        if (command, feature) == (SMART, STATUS):
            middle, high = (0xF4, 0x2C) if self.failing else (0x4F, 0xC2)
            return self.answer(client, header, sense=self.registers(middle=middle, high=high))
        page = {(IDENTIFY, 0): self.identity, (SMART, DATA): self.data, (SMART, THRESHOLDS): self.thresholds}.get((command, feature))
        if page and data_length:
            header.resolve(16, data_length).update(0, page)
            header.update(72, struct.pack("<i", self.residual))
        return self.answer(client, header)

    @staticmethod
    def registers(count=0, middle=0, high=0):
        return bytes([0x72, 1, 0, 0x1D, 0, 0, 0, 14, 9, 12, 0, 0, 0, count, 0, 0, 0, middle, 0, high, 0, 0x50])

    @staticmethod
    def answer(client, header, sense=b""):
        if sense:
            header.resolve(32, 64).update(0, sense)
            header.update(64, bytes([2, 0, 0, len(sense)]))
        client.complete(0, 0)
        return True


class NvmeDisk:
    def __init__(self, kelvin=314, used=3):
        self.commands = []  # (opcode, cdw10)
        self.health = health_page(kelvin, used)

    def handle(self, client):
        if client.get_request() != NVME_ADMIN:
            return False
        command = client.get_arg().resolve(0, 72)
        fields = bytes(command.retrieve())
        length, cdw10 = struct.unpack_from("<II", fields, 36)
        self.commands.append((fields[0], cdw10))
        if fields[0] == 2 and cdw10 & 0xFF == 2 and length == 512:
            command.resolve(24, length).update(0, self.health)
        elif fields[0] == 6 and cdw10 == 1:
            page = bytearray(4096)
            page[24:33] = b"FAST 1000"
            page[64:66] = b"2B"
            command.resolve(24, length).update(0, bytes(page))
        else:
            client.complete(2, 0)  # a status of the disk: invalid field
            return True
        client.complete(0, 0)
        return True


def scsi_disk(place, name, minor, **properties):
    device = f"/devices/{place}/target0:0:0/{minor}:0:0:0"
    noted = "".join(f"E: {key}={value}\n" for key, value in properties.items())
    vendor = "External" if "usb" in place else "ATA     "
    return (f"P: {device}\nE: SUBSYSTEM=scsi\nA: vendor={vendor}\\n\nA: model=Disk\\n\nA: type=0\\n\n\n"
            f"P: {device}/block/{name}\nN: {name}\nE: DEVNAME=/dev/{name}\nE: SUBSYSTEM=block\nE: DEVTYPE=disk\n"
            f"E: MAJOR=8\nE: MINOR={minor}\n{noted}A: dev=8:{minor}\\n\nA: removable=0\\n\nA: queue/rotational=1\\n\n")


NVME = ("P: /devices/pci0000:00/0000:01:00.0/nvme/nvme0\nN: nvme0\nE: DEVNAME=/dev/nvme0\nE: SUBSYSTEM=nvme\n"
        "E: MAJOR=240\nE: MINOR=0\nA: model=FAST 1000   \\n\nA: serial=S5GX  \\n\nA: transport=pcie\\n\nA: dev=240:0\\n\n\n"
        "P: /devices/pci0000:00/0000:01:00.0/nvme/nvme0/nvme0n1\nE: SUBSYSTEM=block\nE: DEVTYPE=disk\nA: size=100\\n\n")


@running.needs_devices
class DisksTest(running.DaemonTest):
    def setUp(self):
        super().setUp()
        self.bed = self.make_bed()

    def tearDown(self):
        ends = [daemon.stop() for daemon in self.daemons if daemon.process.poll() is None]
        super().tearDown()
        self.assertEqual(ends, [0] * len(ends))

    def plug(self, description, node, disk):
        self.answer_ioctls(self.bed, node, disk.handle)  # first: a disk is there only when it answers
        self.bed.add_from_string(description)
        return disk

    def plug_ata(self, name="sda", minor=0, serial="WX1", **how):
        noted = dict(ID_ATA=1, ID_ATA_FEATURE_SET_SMART=1, ID_MODEL="WDC_WD40EFRX-68N32N0", ID_SERIAL_SHORT=serial)
        return self.plug(scsi_disk(f"pci0000:00/ata{minor}/host{minor}", name, minor, **noted), "/dev/" + name, AtaDisk(serial, **how))

    def list_disks(self, client):
        return {disk["bsd"]: disk for disk in client.call("disks.list", {"attributes": True})["disks"]}

    def test_disks_of_every_kind_are_found_and_read(self):
        ata = self.plug_ata()
        nvme = self.plug(NVME, "/dev/nvme0", NvmeDisk())
        usb = self.plug(scsi_disk("pci0000:00/usb1/1-1/1-1:1.0/host6", "sdb", 16, ID_BUS="usb", ID_ATA=1, ID_ATA_FEATURE_SET_SMART=1,
                                  ID_SERIAL_SHORT="USB1"), "/dev/sdb", AtaDisk("USB1", 29, only=12))
        sleeping = self.plug_ata("sdc", 32, "WX3")
        sleeping.power = 0x00
        client = self.client()
        client.call("status")
        for disk in (ata, nvme, usb, sleeping):
            self.assertEqual(disk.commands, [], "nobody has asked for disks")
        client.call("startSMARTStatus")
        disks = self.list_disks(client)
        self.assertEqual({name: disk.get("temperature") for name, disk in disks.items()},
                         {"nvme0n1": 41, "sda": 34, "sdb": 29, "sdc": None})
        self.assertEqual(disks["sdc"]["state"], "asleep")
        self.assertEqual({command for command, _ in sleeping.commands}, {CHECK_POWER}, "it sleeps on")
        self.assertEqual((disks["nvme0n1"]["wear"], disks["nvme0n1"]["serial"], disks["nvme0n1"]["firmware"]), (3, "S5GX", "2B"))
        self.assertEqual((disks["sda"]["model"], disks["sda"]["serial"], disks["sda"]["healthy"]), ("WDC WD40EFRX-68N32N0", "WX1", True))
        self.assertEqual([row["id"] for row in disks["sdb"]["attributes"]], [5, 9, 194])
        self.assertEqual(ata.commands.count((SMART, DATA)), 2)
        envelope = client.envelope(lambda e: e["type"] == "64" and all("status" in d for d in e["disks"]
                                   if "smart" in d and "asleep" not in d))
        self.assertIn({"key": "nvme0n1", "nvme": True, "nvme-percentage-used": 3}, envelope["disks"])
        documented.check(self, envelope)
        client.call("startSMARTTemps")
        documented.check(self, client.envelope(lambda e: e["type"] == "32" and e.get("sensors")))
        shown = self.ctl("disks", "--attributes")
        self.assertIn("WDC WD40EFRX", shown)
        self.assertIn("41 °C", shown)

    def test_bridges_that_hide_or_count_wrongly(self):
        self.plug_ata(residual=512)
        hidden = self.plug_ata("sdc", 32, "WX3")
        hidden.power = None
        off = self.plug_ata("sdd", 48, "WX4")
        page = bytearray(off.identity)
        page[170] = 0
        off.identity = summed(page)
        client = self.client()
        client.call("startSMARTStatus")
        disks = self.list_disks(client)
        self.assertEqual(disks["sda"]["temperature"], 34)
        self.assertEqual((disks["sdc"]["state"], disks["sdd"]["state"]), ("hidden", "off"))
        self.assertEqual({command for command, _ in hidden.commands}, {CHECK_POWER})
        self.assertNotIn(SMART, {command for command, _ in off.commands}, "nothing is switched on")
        self.assertIn("smartctl --smart=on /dev/sdd", self.ctl("disks"))
        client.close()
        self.daemons.pop().stop()
        client = self.client("--read-hidden-disks")
        client.call("startSMARTStatus")
        self.assertEqual(self.list_disks(client)["sdc"]["temperature"], 34)

    def test_a_hanging_disk_holds_up_neither_others_nor_the_end(self):
        hanging = self.plug_ata()
        hanging.hangs = True
        self.plug_ata("sdc", 32, "WX3")
        for number in range(3):  # more than the daemon has threads for slow work
            self.plug_ata("sd" + "efg"[number], 64 + 16 * number, f"H{number}").hangs = True
        self.plug(NVME, "/dev/nvme0", NvmeDisk())
        client = self.client()
        client.call("startSMARTStatus")

        def others():
            disks = self.list_disks(client)
            return "temperature" in disks["sdc"] and "temperature" in disks["nvme0n1"] and disks

        disks = until(others, "what the others say")
        self.assertEqual((disks["sdc"]["temperature"], disks["nvme0n1"]["temperature"]), (34, 41))
        until(lambda: self.list_disks(client)["sda"]["state"] == "hanging", "its state")
        self.assertIs(client.call("exists:"), True)
        before = time.monotonic()
        self.assertEqual(self.daemons[0].stop(), 0)
        self.assertLess(time.monotonic() - before, 10)  # the disk would hang for minutes

    def helpers(self):
        """The processes of the daemon's that ask disks."""
        found = []
        threads = f"/proc/{self.daemons[0].process.pid}/task"
        for thread in os.listdir(threads):
            try:
                with open(f"{threads}/{thread}/children") as children:
                    found += [int(child) for child in children.read().split()]
            except OSError:  # it has ended meanwhile
                pass
        return found

    def test_a_helper_that_is_killed_or_stands_still(self):
        disk = self.plug_ata()
        disk.hangs = True
        client = self.client()
        client.call("startSMARTStatus")
        until(lambda: disk.held, "a page that is asked for")
        helper, = self.helpers()
        disk.hangs = False
        os.kill(helper, signal.SIGSTOP)
        self.assertIs(client.call("exists:"), True)
        self.assertNotIn("temperature", self.list_disks(client)["sda"])
        self.plug_ata("sdc", 32, "WX3")
        self.uevent(self.bed, "/sys/devices/pci0000:00/ata32/host32/target0:0:0/32:0:0:0/block/sdc", "add")
        until(lambda: "temperature" in self.list_disks(client).get("sdc", ()), "what another disk says meanwhile")
        os.kill(helper, signal.SIGKILL)
        until(lambda: "temperature" in self.list_disks(client)["sda"], "the answer to another helper")
        self.assertNotIn(helper, self.helpers())

    def test_disks_come_and_go(self):
        client = self.client()
        client.call("startSMARTStatus")
        self.assertEqual(self.list_disks(client), {})
        self.assertEqual(self.ctl("disks").count("\n"), 1)
        ata = self.plug_ata()
        path = "/sys/devices/pci0000:00/ata0/host0/target0:0:0/0:0:0:0/block/sda"
        self.uevent(self.bed, path, "add")
        until(lambda: "temperature" in self.list_disks(client).get("sda", ()), "its temperature")
        self.assertGreater(len(ata.commands), 0)
        bystander = self.bed.add_device("block", "loop9", None, [], [])
        self.bed.remove_device(path)  # for which the bed then sends nothing any more
        self.uevent(self.bed, bystander, "change")
        until(lambda: not self.list_disks(client), "its end")


if __name__ == "__main__":
    running.main()
