#!/usr/bin/env python3
"""Checks a running daemon from another language: all 27 methods, the errors, and when envelopes come.

Exits with 1 and one line at the first mismatch. With --transcript every line that went either way is printed.
"""

import argparse
import json
import os
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "..", "docs"))
from example_client import CallError, Client  # noqa: E402

FAN_ANSWER = {"result": 1}
# What an action answers that this machine or this user cannot carry out.
ACTION_ERRORS = (-32602, -32001, -32002, -32003)


class Mismatch(Exception):
    pass


def check(condition, what):
    if not condition:
        raise Mismatch(what)


def is_number(value):
    return isinstance(value, (int, float)) and not isinstance(value, bool)


def check_questions(client):
    own = client.call("infoForPids:reply:", [os.getpid(), -1])
    check(isinstance(own, list) and all(set(entry) == {"name", "pid"} for entry in own), f"infoForPids: {own!r}")
    check(client.call("infoForPids:reply:", []) == [], "infoForPids of nothing is not an empty array")
    check(client.call("version:") == [6.6, 1177], "version is not [6.6, 1177]")
    check(is_number(client.call("fps:")), "fps is not a number")
    check(client.call("exists:") is True, "exists is not true")
    check(client.call("sensors:reply:", []) == [], "sensors of no configuration is not an empty array")
    check(isinstance(client.call("armSensors:reply:", []), list), "armSensors is not an array")
    supported = client.call("supportedSensors:reply:", [])
    check(isinstance(supported, dict) and set(supported) == {"sensors", "fans"}, f"supportedSensors: {supported!r}")
    check(isinstance(client.call("supportedFans:reply:", []), list), "supportedFans is not an array")


def check_fans(client):
    check(client.call("setFanSet:", {}) is None, "setFanSet: is not null")
    check(client.call("setT2FanConfig:reply:", {}) == FAN_ANSWER, "setT2FanConfig")
    check(client.call("setT2FanSet:", {}) is None, "setT2FanSet: is not null")
    for method in ("stopT2Fans:", "startT2Fans:", "finalizeT2Fans:"):
        check(client.call(method) == FAN_ANSWER, method)
    check(client.call("setT2SafetyTemperature:", 90.5) is None, "setT2SafetyTemperature: is not null")


def check_action(client, method, *parameters):
    try:
        check(client.call(method, *parameters) is None, f"{method} is neither null nor an error")
    except CallError as error:
        check(error.code in ACTION_ERRORS, f"{method}: {error}")


def check_actions(client):
    check_action(client, "refreshDHCP:", "none0")  # no machine has it
    check_action(client, "setNetworkSet:", "no-such-set")
    # That it exists shows without switching anybody's wireless network off.
    expect_error(client, "toggleAirPortPower", [1], -32602)


def expect_error(client, method, parameters, code):
    try:
        result = client.call(method, *parameters)
    except CallError as error:
        check(error.code == code, f"{method} with {parameters!r}: {error}, expected {code}")
    else:
        raise Mismatch(f"{method} with {parameters!r} was accepted: {result!r}")


def check_errors(client):
    for line, code in (
        ("{", -32700),
        ("\udcff", -32700),
        ("[" * 200_000, -32700),
        ("[]", -32600),
        ('{"jsonrpc":"2.0","id":1}', -32600),
        ('{"jsonrpc":"2.0","id":1,"method":"stopRequestWithKey:","params":{"key":1}}', -32602),
    ):
        answer = client.exchange(line)
        check(answer.get("error", {}).get("code") == code, f"{line[:60]!r}: {answer!r}, expected {code}")
    expect_error(client, "noSuchMethod:", [], -32601)
    expect_error(client, "startRequestWithKey:interval:", [1], -32602)
    expect_error(client, "startRequestWithKey:interval:", ["1", 2], -32602)
    client.notify("noSuchMethod:")  # never answered
    check(client.call("exists:") is True, "the connection did not survive bad input")


def envelope_of(client, kind, timeout=10.0):
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        envelope = client.next_envelope(deadline - time.monotonic())
        if envelope is not None and envelope.get("type") == kind:
            return envelope
    raise Mismatch(f"no envelope of type {kind} within {timeout} s")


def check_requests(client):
    for method in ("enableHierachy", "disableHierachy"):
        check(client.call(method) is None, f"{method} is not null")
    for key, payload in (("1", "processes"), ("2", "processes"), ("16", "processes"), ("4", None), ("128", None)):
        check(client.call("startRequestWithKey:interval:", int(key), 2) is None, "a start request is not null")
        envelope = envelope_of(client, key)
        check(payload is None or isinstance(envelope.get(payload), list), f"envelope {key}: {str(envelope)[:200]}")
        check(client.call("stopRequestWithKey:", int(key)) is None, "a stop request is not null")
    for method, key in (("smartTemps", "32"), ("startSMARTStatus", "64"), ("startSMARTTemps", "32")):
        check(client.call(method) is None, f"{method} is not null")
        envelope_of(client, key)
    for method in ("stopSMARTStatus", "stopSMARTTemps"):
        check(client.call(method) is None, f"{method} is not null")


def check_cadence(path, on_line):
    """At once, 0.6 s later, and 2.0 s after that. A busy machine may be late, never early."""
    with Client(path, on_line=on_line) as client:
        start = time.monotonic()
        client.call("startRequestWithKey:interval:", 1, 2)
        arrivals = []
        while time.monotonic() - start < 4.0:
            envelope = client.next_envelope(4.0 - (time.monotonic() - start))
            if envelope is not None and envelope["type"] == "1":
                arrivals.append(time.monotonic() - start)
    seen = ", ".join(f"{arrival:.2f}" for arrival in arrivals)
    for earliest, latest in ((0.0, 0.5), (0.55, 1.6), (2.5, 4.0)):
        check(any(earliest <= arrival <= latest for arrival in arrivals),
              f"no envelope between {earliest} and {latest} s after the request; they came at {seen} s")


def shown(direction, line):
    print(direction, line if len(line) <= 400 else line[:397] + "...", flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--socket", required=True, help="the daemon's socket")
    parser.add_argument("--transcript", action="store_true", help="print every line that goes either way")
    arguments = parser.parse_args()
    on_line = shown if arguments.transcript else None
    try:
        with Client(arguments.socket, on_line=on_line) as client:
            check_questions(client)
            check_fans(client)
            check_actions(client)
            check_requests(client)
            check_errors(client)
        check_cadence(arguments.socket, on_line)
    except Mismatch as mismatch:
        print(f"mismatch: {mismatch}", file=sys.stderr)
        return 1
    except (OSError, CallError, json.JSONDecodeError) as error:
        print(f"failed: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
