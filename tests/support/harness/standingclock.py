"""A clock that stands still until the test moves it: the daemon's timers fire when the test says so."""

import os
import time

FILE = "/tmp/daemon-clock"
FORMAT = "%Y-%m-%d %H:%M:%S"
START = "2026-06-01 12:00:00"


class StandingClock:
    """For one daemon, which gets `environment` and `preload`. It runs until `stop()`, so that the daemon
    can start, and stands from then on; `now` counts whole seconds since it stood."""

    def __init__(self):
        self._start = time.mktime(time.strptime(START, FORMAT))
        self.now = 0
        self._write("@" + START)

    environment = {"FAKETIME_TIMESTAMP_FILE": FILE, "FAKETIME_NO_CACHE": "1"}

    def stop(self):
        self._start += 3600  # later than it can have run to by now
        self.move(0)

    def move(self, seconds):
        """Lets so many seconds pass at once. The daemon sees it when something wakes it up."""
        self.now += seconds
        self._write(time.strftime(FORMAT, time.localtime(self.seconds_since_1970())))

    def seconds_since_1970(self):
        return self._start + self.now

    @staticmethod
    def _write(text):
        with open(f"{FILE}.new", "w", encoding="ascii") as file:
            file.write(text + "\n")
        os.replace(f"{FILE}.new", FILE)  # never seen half written
