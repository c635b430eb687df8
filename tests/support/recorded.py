# SPDX-License-Identifier: Apache-2.0
"""The record of a machine of the last five days, in the layout of the daemon's files, for tests that read it."""
import os
import sqlite3
import time

HOUR = 3600
SERIES = ("recorded_series", "collector varchar(32), uuid varchar(100), name varchar, origin varchar, unit varchar(16), step double, "
          "primary key (collector, uuid)")
# Files of the record: its name, prefix of its tables, figures, and of each series the collector, key, name, origin, unit and a figure
RECORDS = (
    ("sensors", "sensor", ("value",), (("sensors", "T3A7", 'CPU "0"', "nct6775-isa-0290", "°C", lambda n: 40 + n % 7),
                                       ("sensors", "F0Ac", "Left", "nct6775-isa-0290", "rpm", lambda n: 1200 + n))),
    ("disk-history", "disk", ("temperature", "wear"), (("disks", "WX1", "WDC", "sda", "°C", lambda n: 30 + n % 3),
                                                       ("wear", "WX1", "WDC", "sda", "%", lambda n: 7))),
    ("battery-history", "battery", ("value",), (("battery", "charge", "Battery charge", "", "%", lambda n: 100 - n % 90),
                                                ("battery", "power", "Battery power", "", "W", lambda n: -12.5))),
)
GROUPS = {"unit:nginx.service": (33, "nginx", 0), "exe:/usr/bin/make": (1000, "make", 0), "exe:/opt/make": (1000, "make", 0),
          "exe:/bin/tiny": (0, "tiny", 0), "other": (-1, "other", 1), "kernel": (-1, "kernel", 2)}


def whole_hour():
    """The last one, in s since 1970."""
    return time.time() // HOUR * HOUR


class RecordedMachine:
    """For a DaemonTest."""

    def open(self, name):
        os.makedirs(os.path.join(self.root, "state"), exist_ok=True)
        connection = sqlite3.connect(os.path.join(self.root, "state", name + ".db"))
        self.addCleanup(connection.close)
        return connection

    def write_samples(self, now):
        """One sample in 300 s over five days, in the layout of the files."""
        self.times = [now - 5 * 24 * HOUR + 300 * n for n in range(1, 5 * 24 * 12)]
        for file, prefix, figures, series in RECORDS:
            columns = [*figures, *(f"{figure}_{edge}" for figure in figures for edge in ("low", "high"))]
            names, rows = self.open(file), self.open(file + "-long")
            names.execute("create table {} ({})".format(*SERIES))
            rows.execute(f"create table {prefix}idhistory (sample INTEGER PRIMARY KEY, time REAL)")
            rows.execute(f"create table {prefix}history (sample INTEGER, uuid TEXT, time REAL, {', '.join(each + ' REAL' for each in columns)}, "
                         "PRIMARY KEY (sample, uuid)) WITHOUT ROWID")
            by_key = {}
            for collector, key, name, origin, unit, figure in series:
                names.execute("insert into recorded_series values (?, ?, ?, ?, ?, 0)", (collector, key, name, origin, unit))
                by_key.setdefault(key, []).append(figure)
            for number, at in enumerate(self.times, 1):
                rows.execute(f"insert into {prefix}idhistory values (?, ?)", (number, at))
                for key, told in by_key.items():
                    rows.execute(f"insert into {prefix}history values (?, ?, ?, {', '.join('?' * len(columns))})",
                                 (number, key, at, *(each(number) for each in told), *[None] * (len(columns) - len(told))))
            for each in (names, rows):
                each.commit()
                each.close()

    def write_groups(self, now):
        """Hours, then quarters of an hour of which the daemon has no minutes, and the days of both; what all of it comes to, by
        group."""
        with self.serving():
            pass  # makes the file
        connection = self.open("applications")
        connection.execute("delete from application_minutes")
        connection.execute("delete from application_map")
        for number, (identity, (owner, name, kind)) in enumerate(GROUPS.items(), 1):
            connection.execute("insert into application_map values (?, ?, ?, ?, ?)", (number, identity, owner, name, kind))
        self.used = dict.fromkeys(GROUPS, 0)
        hour = now // HOUR * HOUR
        starts = [("hours", hour - n * HOUR) for n in range(100, 60, -1)] + [("quarters", hour - n * 900) for n in range(240, 40, -1)]
        days = {}

        def insert(table, start, number, milliseconds):
            connection.execute(f"insert into application_{table} values (?, ?, ?, 500, 4096, 8192, 10, 20, 0, 0, NULL, 0, 0, 60, 1000000, 1000000, 1)",
                               (start, number, milliseconds - 500))

        for place, (table, start) in enumerate(starts):
            midnight = time.mktime((*time.localtime(start)[:3], 0, 0, 0, 0, 0, -1))
            for number, identity in enumerate(GROUPS, 1):
                if identity == "unit:nginx.service" and place % 10 >= 5 or identity == "exe:/bin/tiny" and place % 50:
                    continue  # part of "other" in these
                milliseconds = number * 1000 + place
                self.used[identity] += milliseconds
                days[int(midnight), number] = days.get((int(midnight), number), 0) + milliseconds
                insert(table, start, number, milliseconds)
        for (start, number), milliseconds in days.items():
            insert("days", start, number, milliseconds)
        connection.commit()
        connection.close()
        self.group_end = hour - 40 * 900
