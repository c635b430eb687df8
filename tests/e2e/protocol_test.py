#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""A running daemon from another language, with the client that the documentation shows: all 27 methods, and when
envelopes come.

    protocol_test.py [BUILD_FOLDER]      (default: what MERIDAL_BUILD_DIR names)
"""
import json
import os
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
import documented  # noqa: E402
import running  # noqa: E402  the daemon and its clients

FAN_ANSWER = {"result": 1}
ANSWERS = (
    ("infoForPids:reply:", [[]], []), ("version:", [], [6.6, 1177]), ("exists:", [], True),
    ("sensors:reply:", [[]], []), ("setFanSet:", [{}], None), ("setT2FanConfig:reply:", [{}], FAN_ANSWER),
    ("setT2FanSet:", [{}], None), ("stopT2Fans:", [], FAN_ANSWER), ("startT2Fans:", [], FAN_ANSWER),
    ("finalizeT2Fans:", [], FAN_ANSWER), ("setT2SafetyTemperature:", [90.5], None), ("enableHierachy", [], None),
    ("disableHierachy", [], None))
# What an action answers that this machine or this user cannot carry out.
ACTION_ERRORS = (-32602, -32001, -32002, -32003)


class ProtocolTest(running.DaemonTest):
    def test_questions_and_orders(self):
        with self.serving() as (_, client):
            for method, parameters, answer in ANSWERS:
                self.assertEqual(client.call(method, *parameters), answer, method)
            for entry in client.call("infoForPids:reply:", [os.getpid(), -1]):
                self.assertEqual(set(entry), {"name", "pid"})
            self.assertIn(type(client.call("fps:")), (int, float))
            for method in ("armSensors:reply:", "supportedFans:reply:"):
                self.assertIsInstance(client.call(method, []), list, method)
            self.assertEqual(set(client.call("supportedSensors:reply:", [])), {"sensors", "fans"})
            for method, name in (("refreshDHCP:", "none0"), ("setNetworkSet:", "no-such-set")):  # no machine has them
                answer = client.exchange(json.dumps({"jsonrpc": "2.0", "id": 1, "method": method, "params": [name]}))
                if "error" in answer:
                    self.assertIn(answer["error"]["code"], ACTION_ERRORS, method)
                else:
                    self.assertIsNone(answer["result"], method)

    def test_requests_bring_their_envelopes(self):
        with self.serving() as (_, client):
            for key in ("1", "2", "16", "4", "8", "128"):
                self.assertIsNone(client.call("startRequestWithKey:interval:", int(key), 2))
                envelope = client.envelope(key)
                self.assertTrue(key == "128" or any(isinstance(entry, list) for entry in envelope.values()), key)
                documented.check(self, envelope)
                self.assertIsNone(client.call("stopRequestWithKey:", int(key)))
            for method, key in (("smartTemps", "32"), ("startSMARTStatus", "64"), ("startSMARTTemps", "32")):
                self.assertIsNone(client.call(method), method)
                client.envelope(key)
            for method in ("stopSMARTStatus", "stopSMARTTemps"):
                self.assertIsNone(client.call(method), method)

    def test_envelopes_come_at_once_then_after_0_6_s_and_then_every_two(self):
        """A busy machine may be late, never early."""
        with self.serving() as (_, client):
            def arrive():
                client.envelope(1)
                return time.monotonic() - begin

            begin = time.monotonic()
            client.call("startRequestWithKey:interval:", 1, 2)
            self.assertLessEqual(arrive(), 0.5)
            while (second := arrive()) < 0.55:
                pass
            self.assertLessEqual(second, 1.6)
            third = arrive()  # at the moment of all that is read every two seconds
            self.assertTrue(0.8 <= third - second <= 4, third - second)
            fourth = arrive()
            self.assertTrue(0.8 <= fourth - third <= 3.5, fourth - third)


if __name__ == "__main__":
    running.main()
