# SPDX-License-Identifier: Apache-2.0
"""Holds envelopes against the tables of docs/protocol.md: what a client author reads there is what comes."""
import os
import re

PROTOCOL = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "docs", "protocol.md")


def _tables(key):
    """The tables below a key's heading, each {field: present}, by the name of their first column."""
    with open(PROTOCOL, encoding="utf-8") as file:
        chapter = re.search(rf"^### Key {key}:.*?(?=^##)", file.read(), re.MULTILINE | re.DOTALL).group()
    tables = []
    for row in re.findall(r"^\| (.*) \|$", chapter, re.MULTILINE):
        cells = row.split(" | ")
        if cells[1] == "present":
            tables.append((cells[0], {}))
        elif set(row) - set("-| "):
            tables[-1][1].update({name: cells[1] for name in re.findall(r"`([^`]+)`", cells[0])})
    return tables


def _check(test, entry, table, where):
    test.assertEqual(set(entry) - set(table), set(), f"undocumented in {where}: {entry}")
    always = {name for name, present in table.items() if present == "always"}
    test.assertEqual(always - set(entry), set(), f"documented, but missing in {where}: {entry}")


def check(test, envelope):
    """Fails the test when the envelope or one of its entries holds another field than those documented."""
    key = envelope["type"]
    tables = _tables(key)
    envelope_table = next((table for column, table in tables if column == "entry"), {})
    fields = [table for column, table in tables if column == "field"]
    lists = {name: entries for name, entries in envelope.items() if isinstance(entries, list)}
    lists.update({name: [entry] for name, entry in envelope.items() if name == "battery"})
    _check(test, set(envelope) - set(lists) - {"type"}, envelope_table, f"key {key}")  # sets: only names count
    for name, entries in lists.items():
        for entry in entries:
            _check(test, entry, fields[0], name)
            for part in entry.get("attributes", []):
                _check(test, part, fields[1], "attributes")
