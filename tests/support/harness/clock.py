"""Clocks of the daemon that a test moves: its timers fire when the test says so, whatever the machine's load.

The daemon looks at such a clock when something wakes it up: a jump alone wakes nobody.
"""

import os
import time

FILE = "/tmp/daemon-clock"
FORMAT = "%Y-%m-%d %H:%M:%S"
START = "2026-06-01 12:00:00"
ENVIRONMENT = {"FAKETIME_TIMESTAMP_FILE": FILE, "FAKETIME_NO_CACHE": "1"}


def _write(text):
    with open(f"{FILE}.new", "w", encoding="ascii") as file:
        file.write(text + "\n")
    os.replace(f"{FILE}.new", FILE)  # never seen half written


def _look(caller):
    """Has the daemon go round: the first call may be answered in a round that began before, the second ahead of
    what that round finds, the third comes behind all of it."""
    for _ in range(3):
        caller.latest_position()


class HandClock:
    """Begins at the test's own time, goes on a thousandth as fast, and jumps by any time when it is told.
    Given to a daemon as its `faketime`."""

    environment = ENVIRONMENT

    def __init__(self):
        self._ahead = 0.0
        self._write()

    def wind(self, caller, seconds):
        """Moves on; returns when the daemon has done what became due. `caller` is any client."""
        _look(caller)  # what goes on now has started its timers
        self._ahead += seconds
        self._write()
        _look(caller)

    def _write(self):
        _write(f"{self._ahead:+.3f} x0.001")


class StandingClock:
    """For one daemon, which gets `environment` and `preload`. It runs until `stop()`, so that the daemon
    can start, and stands from then on; `now` counts whole seconds since it stood."""

    environment = ENVIRONMENT

    def __init__(self):
        self._start = time.mktime(time.strptime(START, FORMAT))
        self.now = 0
        _write("@" + START)

    def stop(self):
        self._start += 3600  # later than it can have run to by now
        self.move(0)

    def move(self, seconds):
        """Lets so many seconds pass at once."""
        self.now += seconds
        _write(time.strftime(FORMAT, time.localtime(self.seconds_since_1970())))

    def seconds_since_1970(self):
        return self._start + self.now
