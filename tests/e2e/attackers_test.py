#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The attackers that SECURITY.md names, against a running daemon; what is measured against each in the small stands there, too.

    attackers_test.py [BUILD_FOLDER]      (default: what MERIDAL_BUILD_DIR names)
"""
import os
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
import running  # noqa: E402  the daemon and its clients

MOST_OF_USER = 64
EVIL = b"ev)il \x1b[2J\n\x07"


class AttackersTest(running.DaemonTest):
    @running.needs_root
    def test_a_user_who_connects_for_ever_is_the_only_one_turned_away(self):
        with self.serving() as (daemon, client):
            held = [daemon.client(user=running.NOBODY) for _ in range(MOST_OF_USER)]
            self.assertIs(held[-1].call("exists:"), True)
            refused = daemon.client(user=running.NOBODY)
            self.assertEqual(refused._next_message(time.monotonic() + running.DEADLINE)["error"]["code"], -32003)
            self.assertRaises((running.example_client.ConnectionEnded, OSError), refused.call, "exists:")
            for other in (daemon.client(), daemon.client(user=running.NOBODY - 1), client):
                self.assertIs(other.call("exists:"), True)
            held.pop().close()
            running.until(lambda: self.is_served(daemon), "room for another")
            for each in held:
                each.close()

    @staticmethod
    def is_served(daemon):
        try:
            return daemon.client(user=running.NOBODY).call("exists:")
        except (running.example_client.ConnectionEnded, RuntimeError, OSError):
            return False

    @running.needs_root
    def test_large_requests_and_clients_that_do_not_read_hold_up_nobody(self):
        line = b'{"jsonrpc":"2.0","id":1,"method":"sensors:reply:","params":[[' + b",".join([b"{}"] * 60_000) + b"]]}\n"
        with self.serving() as (daemon, client):
            attackers = [daemon.client(user=running.NOBODY) for _ in range(8)]
            for attacker in attackers:
                attacker._socket.settimeout(1)
                try:
                    for _ in range(3):
                        attacker._socket.sendall(line)
                except TimeoutError:  # the rest waits in vain: nobody reads its answers
                    pass
            answer = attackers[-1]._next_message(time.monotonic() + running.DEADLINE)  # they are served, one after another
            self.assertEqual(len(answer["result"]), 60_000)
            client.call("startRequestWithKey:interval:", 1, 1)
            for _ in range(3):
                client.envelope(1)
                self.assertIs(client.call("exists:"), True)
            most = 1000 if running.BUILD.endswith("asan") else 400  # that keeps for a while what was given back
            self.assertLess(client.call("status")["usage"]["residentBytes"], most << 20)
            for attacker in attackers:
                attacker.close()
            running.until(lambda: client.call("status")["clients"] == 1, "the end of the attackers")

    def test_what_lies_in_its_place_is_neither_believed_nor_destroyed(self):
        victim = os.path.join(self.root, "victim")
        for folder in ("state", "run"):
            os.makedirs(os.path.join(self.root, folder))
        for path, text in ((victim, b"precious"), (os.path.join(self.root, "state", "uptime.db"), os.urandom(5000)),
                           (os.path.join(self.root, "state", "sensor-keys"), os.urandom(5000))):
            with open(path, "wb") as file:
                file.write(text)
        os.symlink(victim, os.path.join(self.root, "state", "battery-history.db"))
        os.symlink(victim, os.path.join(self.root, "run", "daemon.sock"))
        refused = self.start()
        self.assertEqual(refused.wait(), 1)
        self.assertIn("is not a socket", refused.read_log())
        os.unlink(refused.socket_path)
        with self.serving() as (_, client):
            self.assertIs(client.call("exists:"), True)
            running.until(lambda: client.call("uptime.boots")["boots"], "the record in a file of its own")
        with open(victim, "rb") as file:
            self.assertEqual(file.read(), b"precious")
        os.unlink(os.path.join(self.root, "run", "daemon.lock"))
        os.symlink(victim, os.path.join(self.root, "run", "daemon.lock"))
        self.assertEqual(self.start().wait(), 1)
        with open(victim, "rb") as file:
            self.assertEqual(file.read(), b"precious")

    @running.on_linux
    def test_a_hostile_name_reaches_neither_the_terminal_nor_the_log(self):
        child = self.spawn(sys.executable, "-c", f"import ctypes\nctypes.CDLL(None).prctl(15, {EVIL!r}, 0, 0, 0)\n"
                           "print('up', flush=True)\nwhile True: pass")
        with self.serving() as (daemon, client):
            client.call("startRequestWithKey:interval:", 1, 1)
            client.envelope(lambda e: any(row["key"] == str(child.pid) and float(row["c"]) > 1 for row in e["processes"]))
            shown = self.ctl("top", "cpu", "--once", "-n", "20")
            self.assertIn("ev)il ?[2J??", shown)
            self.assertFalse(set(shown.encode()) & set(range(32)) - {ord("\n")})
            name = 'en0\x1b[2J\n2026 forged line'
            with self.assertRaises(RuntimeError):
                client.call("refreshDHCP:", name)
        self.assertNotIn("\x1b", daemon.read_log())
        self.assertNotIn("\n2026 forged", daemon.read_log())


if __name__ == "__main__":
    running.main()
