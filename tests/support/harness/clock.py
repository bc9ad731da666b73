"""Clocks of the daemon that a test moves: its timers fire when the test says so, whatever the machine's load.

The daemon looks at such a clock when something wakes it up: a jump alone wakes nobody.
"""

import mmap
import os
import struct
import time

FILE = "/tmp/daemon-clock"
START = "2026-06-01 12:00:00"
STANDS, RUNS, CREEPS = range(3)  # the last: a thousandth as fast


class _Clock:
    """What hand_clock.cpp shows one daemon, which gets `environment` and `library`. It begins at `wall`, ns since 1970."""

    def __init__(self, wall, pace):
        self.environment = {"LODESTARD_CLOCK": FILE}
        self.library = os.path.join(os.environ["LODESTARD_BUILD"], "tests/support/hand-clock.so")
        with open(f"{FILE}.new", "w+b") as file:
            file.write(struct.pack("=qqq", wall, time.monotonic_ns(), 0))
            file.flush()
            self._memory = mmap.mmap(file.fileno(), 0)
        self._set(0, pace)
        os.replace(f"{FILE}.new", FILE)  # an earlier daemon's stays as it is

    def _set(self, seconds, pace):
        """Moves it to so long after its beginning."""
        struct.pack_into("=q", self._memory, 16, round(seconds * 1000000) << 2 | pace)


def _look(caller):
    """Has the daemon go round: the first call may be answered in a round that began before, the second ahead of
    what that round finds, the third comes behind all of it."""
    for _ in range(3):
        caller.latest_position()


class HandClock(_Clock):
    """Begins at the test's own time, goes on a thousandth as fast, and jumps by any time when it is told."""

    def __init__(self):
        super().__init__(time.time_ns(), CREEPS)
        self._ahead = 0.0

    def wind(self, caller, seconds):
        """Moves on; returns when the daemon has done what became due. `caller` is any client."""
        _look(caller)  # what goes on now has started its timers
        self._ahead += seconds
        self._set(self._ahead, CREEPS)
        _look(caller)


class StandingClock(_Clock):
    """It runs until `stop()`, so that the daemon can start, and stands from then on; `now` counts whole seconds
    since it stood."""

    _SPAN = 3600  # s: later than it can have run to when it stops

    def __init__(self):
        self._start = int(time.mktime(time.strptime(START, "%Y-%m-%d %H:%M:%S")))
        super().__init__(self._start * 10**9, RUNS)
        self.now = 0

    def stop(self):
        self.move(0)

    def move(self, seconds):
        """Lets so many seconds pass at once."""
        self.now += seconds
        self._set(self._SPAN + self.now, STANDS)

    def seconds_since_1970(self):
        return self._start + self._SPAN + self.now
