#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The program that asks disks (meridal-disks), as a service manager starts it: with a socket that listens.

    disk_helper_test.py [BUILD_FOLDER]      (default: what MERIDAL_BUILD_DIR names)
"""
import os
import socket
import struct
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
import running  # noqa: E402
from running import DEADLINE, until  # noqa: E402

REQUEST = struct.Struct("=6I")
REPLY = struct.Struct("=3Ii4I512s")
MARK, REPLY_MARK = 0x6D647131, 0x6D647231
LIST, POWER, PAGE, IDENTIFY = 1, 2, 3, 4
NO_DEVICE = 19


def request(verb=LIST, disk=0, page=0, flags=0):
    return REQUEST.pack(MARK, verb, disk, page, flags, 0)


@running.on_linux
class DiskHelperTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        os.chmod(folder.name, 0o755)
        self.path = os.path.join(folder.name, "socket")
        self.listener = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        self.addCleanup(self.listener.close)
        self.listener.bind(self.path)
        os.chmod(self.path, 0o777)
        self.listener.listen(16)

    def start(self, *arguments, **options):
        def hand_over():
            os.dup2(self.listener.fileno(), 3)
            os.set_inheritable(3, True)

        helper = subprocess.Popen([os.path.join(running.BUILD, "meridal-disks"), *arguments], close_fds=False, preexec_fn=hand_over, **options)
        self.addCleanup(helper.wait)
        self.addCleanup(helper.kill)
        return helper

    def connect(self):
        client = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        self.addCleanup(client.close)
        client.settimeout(DEADLINE)
        client.connect(self.path)
        return client

    def ask(self, client, *fields):
        client.send(request(*fields))
        reply = client.recv(4096)
        self.assertEqual(len(reply), REPLY.size)
        return REPLY.unpack(reply)

    def test_what_is_no_request_ends_that_conversation_alone(self):
        self.start("--root", "/nowhere")
        good = self.connect()
        self.assertEqual(self.ask(good)[:5], (REPLY_MARK, LIST, 0, 0, 0))
        for hostile in (b"x", request(5), request() + b"x", os.urandom(60_000)):
            client = self.connect()
            client.send(hostile)
            self.assertEqual(client.recv(4096), b"", hostile[:24])
        self.assertEqual(self.ask(good, IDENTIFY, 1023)[3], NO_DEVICE)

    def test_it_leaves_when_nobody_is_there_and_not_before(self):
        helper = self.start("--root", "/nowhere", "--idle", "0")
        helper.wait(DEADLINE)
        first = self.connect()  # waits for a process, as under a service manager
        helper = self.start("--root", "/nowhere", "--idle", "0")
        self.assertEqual(self.ask(first)[3], 0)
        self.assertIsNone(helper.poll())
        first.close()
        self.assertEqual(helper.wait(DEADLINE), 0)

    @running.needs_root
    def test_other_users_are_sent_away(self):
        self.start("--root", "/nowhere")
        script = ("import socket,sys; s=socket.socket(socket.AF_UNIX,socket.SOCK_SEQPACKET); s.settimeout(60); s.connect(sys.argv[1])\n"
                  "try: s.send(bytes.fromhex(sys.argv[2])); answer=s.recv(4096)\n"
                  "except (BrokenPipeError, ConnectionResetError): answer=b''\n"
                  "sys.exit(1 if answer else 0)")
        done = subprocess.run([running.SYSTEM_PYTHON, "-c", script, self.path, request().hex()], user=running.NOBODY, group=running.NOBODY,
                              extra_groups=[], timeout=DEADLINE)
        self.assertEqual(done.returncode, 0)
        self.assertEqual(self.ask(self.connect())[3], 0)

    def test_a_conversation_that_dies_or_hangs_is_nobody_elses(self):
        helper = self.start("--root", "/nowhere")
        clients = [self.connect() for _ in range(3)]
        for client in clients:
            self.ask(client)
        children = f"/proc/{helper.pid}/task/{helper.pid}/children"

        def processes():
            with open(children) as file:
                return [int(word) for word in file.read().split()]

        self.assertEqual(len(processes()), 3)
        killed, stopped, _ = processes()
        os.kill(killed, 9)
        os.kill(stopped, 19)
        self.assertEqual(clients[0].recv(4096), b"")
        self.assertEqual(self.ask(clients[2])[3], 0)
        self.assertEqual(self.ask(self.connect())[3], 0)
        until(lambda: killed not in processes(), "the end of the one that was killed")
        os.kill(stopped, 9)

    @running.needs_root
    def test_refused_a_disk_it_soon_leaves_for_another_to_be_started(self):
        root = tempfile.mkdtemp(dir=os.path.dirname(self.path))
        disk = os.path.join(root, "sys/class/nvme/nvme0")
        for name in (disk, os.path.join(root, "dev")):
            os.makedirs(name)
        with open(os.path.join(root, "dev/nvme0"), "w"):
            pass
        for folder, _, files in os.walk(root):
            os.chmod(folder, 0o755)
            for name in files:
                os.chmod(os.path.join(folder, name), 0o600)
        helper = self.start("--root", root, "--idle", "100000", user=running.NOBODY, group=running.NOBODY, extra_groups=[])
        client = self.connect()
        self.assertEqual(self.ask(client)[4], 1)
        self.assertEqual(self.ask(client, PAGE, 0, 4)[3], 13)
        client.close()
        self.assertEqual(helper.wait(DEADLINE), 0)

    def test_by_hand_it_says_who_starts_it(self):
        done = subprocess.run([os.path.join(running.BUILD, "meridal-disks")], stderr=subprocess.PIPE, text=True, timeout=DEADLINE)
        self.assertEqual(done.returncode, 2)
        self.assertIn("meridald", done.stderr)


if __name__ == "__main__":
    running.main()
