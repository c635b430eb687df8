# SPDX-License-Identifier: Apache-2.0
"""A client of meridald in plain Python: one connection, calls, and the envelopes that are pushed.

    from example_client import Client

    with Client("/run/meridal/daemon.sock") as client:
        print(client.call("version:"))                          # [6.6, 1177]
        client.call("startRequestWithKey:interval:", 1, 2)      # processes by CPU
        while True:
            print(client.next_envelope(timeout=5))

docs/protocol.md describes what goes over the wire.
"""

import collections
import json
import socket
import time


class CallError(Exception):
    """The daemon answered with an error."""

    def __init__(self, code, message):
        super().__init__(f"{message} ({code})")
        self.code = code
        self.message = message


class ConnectionEnded(Exception):
    """The daemon closed the connection."""


class Client:
    def __init__(self, path="/run/meridal/daemon.sock", timeout=10.0, on_line=None):
        """on_line(direction, line) sees every line: direction is "->" to the daemon and "<-" from it."""
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._socket.connect(path)
        self._timeout = timeout
        self._on_line = on_line or (lambda direction, line: None)
        self._received = b""
        self._envelopes = collections.deque()
        self._last_id = 0

    def __enter__(self):
        return self

    def __exit__(self, *exception):
        self.close()

    def close(self):
        self._socket.close()

    def call(self, method, *parameters):
        """Calls a method, waits for its answer and returns the result. Raises CallError."""
        self._last_id += 1
        request = {"jsonrpc": "2.0", "id": self._last_id, "method": method, "params": list(parameters)}
        return self._result(self.exchange(json.dumps(request, ensure_ascii=False, separators=(",", ":"))))

    def notify(self, method, *parameters):
        """Calls a method without asking for an answer."""
        self.send_line(json.dumps({"jsonrpc": "2.0", "method": method, "params": list(parameters)},
                                  ensure_ascii=False, separators=(",", ":")))

    def next_envelope(self, timeout=None):
        """The next pushed envelope, a dictionary; None when none came in time."""
        deadline = time.monotonic() + (self._timeout if timeout is None else timeout)
        while not self._envelopes:
            message = self._next_message(deadline)
            if message is None:
                return None
            self._keep_envelope(message)
        return self._envelopes.popleft()

    def exchange(self, line):
        """Sends one line as it is and returns the answer to it, as a dictionary."""
        self.send_line(line)
        deadline = time.monotonic() + self._timeout
        while True:
            message = self._next_message(deadline)
            if message is None:
                raise TimeoutError(f"no answer within {self._timeout} s")
            if not self._keep_envelope(message):
                return message

    def send_line(self, line):
        self._on_line("->", line)
        self._socket.settimeout(self._timeout)
        self._socket.sendall(line.encode("utf-8", "surrogateescape") + b"\n")

    @staticmethod
    def _result(answer):
        if "error" in answer:
            raise CallError(answer["error"]["code"], answer["error"]["message"])
        return answer["result"]

    def _keep_envelope(self, message):
        if message.get("method") != "daemonResponse:":
            return False
        self._envelopes.append(message["params"][0])
        return True

    def _next_message(self, deadline):
        while b"\n" not in self._received:
            remaining = deadline - time.monotonic()
            if remaining <= 0:
                return None
            self._socket.settimeout(remaining)
            try:
                received = self._socket.recv(65536)
            except socket.timeout:
                return None
            if not received:
                raise ConnectionEnded("the daemon closed the connection")
            self._received += received
        line, _, self._received = self._received.partition(b"\n")
        text = line.decode("utf-8")
        self._on_line("<-", text)
        return json.loads(text)
