# SPDX-License-Identifier: Apache-2.0
"""The short program in docs/ against answers as the daemon gives them, page by page."""

import json
import pathlib
import socket
import subprocess
import sys
import tempfile
import threading
import unittest

EXAMPLE = pathlib.Path(__file__).parents[2] / "docs" / "example_applications.py"


def group(name, cpu):
    return {"name": name, "cpuUser": cpu, "cpuSystem": 0.5, "diskRead": 1 << 20, "diskWritten": 0, "received": 0, "sent": 0}


def serve(listener, questions):
    client, _ = listener.accept()
    with client, client.makefile("rw") as lines:
        for line in lines:
            request = json.loads(line)
            question = request["params"][0]
            questions.append(question)
            page = {"groups": [group("kernel", 2)], "more": False}
            if "after" not in question:
                page = {"groups": [group("firefox", 60)], "more": True, "next": "60.5/3"}
            lines.write(json.dumps({"jsonrpc": "2.0", "id": request["id"], "result": page}) + "\n")
            lines.flush()


class ExampleTest(unittest.TestCase):
    def test_lists_applications(self):
        questions = []
        with tempfile.TemporaryDirectory() as folder, socket.socket(socket.AF_UNIX) as listener:
            listener.bind(folder + "/daemon.sock")
            listener.listen()
            server = threading.Thread(target=serve, args=(listener, questions), daemon=True)
            server.start()
            out = subprocess.run([sys.executable, EXAMPLE, "2", folder + "/daemon.sock"], capture_output=True, text=True,
                                 check=True, timeout=30).stdout
            server.join(10)
        self.assertEqual(out, "      60.5 s        1.0 MiB  firefox\n       2.5 s        1.0 MiB  kernel\n")
        self.assertEqual(questions[1]["after"], "60.5/3")
        self.assertLessEqual(len(EXAMPLE.read_text().splitlines()), 30)


if __name__ == "__main__":
    unittest.main()
