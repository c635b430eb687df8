# SPDX-License-Identifier: Apache-2.0
"""Lists what applications have used, by CPU time: python3 docs/example_applications.py [HOURS] [SOCKET]"""

import sys
import time

from example_client import CallError, Client


def applications(client, hours):
    """Every application of the last so many hours, the largest first, then "other" and "kernel"."""
    question = {"from": time.time() - 3600 * hours, "by": "cpu", "limit": 100}
    while True:
        page = client.call("groups.history", question)
        yield from page["groups"]
        if not page["more"]:
            return
        question["after"] = page["next"]


if __name__ == "__main__":
    wanted = float(sys.argv[1]) if len(sys.argv) > 1 else 24
    with Client(*sys.argv[2:3]) as meridal:
        try:
            for group in applications(meridal, wanted):
                moved = (group["diskRead"] + group["diskWritten"] + group["received"] + group["sent"]) / 2**20
                print(f"{group['cpuUser'] + group['cpuSystem']:10.1f} s {moved:10.1f} MiB  {group['name']}")
        except CallError as error:
            sys.exit(error.message)
