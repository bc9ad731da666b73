"""What arrived, in order, and how to wait for it. Nothing here sleeps for a hoped-for state."""

import os
import re
import threading
import time

# How long a test waits for what must happen; only a failing test ever waits so long.
DEADLINE = float(os.environ.get("LODESTARD_DEADLINE", "20"))


def matcher(wanted):
    """A text is searched for, a pattern is searched with, anything else is asked."""
    if isinstance(wanted, str):
        return lambda item: wanted in str(item)
    if isinstance(wanted, re.Pattern):
        return lambda item: wanted.search(str(item)) is not None
    return wanted


class Mailbox:
    """A list that a thread fills and a test waits on."""

    def __init__(self, name):
        self.name = name
        self._items = []
        self._changed = threading.Condition()
        self._closed = False

    def append(self, item):
        with self._changed:
            self._items.append(item)
            self._changed.notify_all()

    def close(self):
        """Nothing more will come: whoever still waits has waited in vain."""
        with self._changed:
            self._closed = True
            self._changed.notify_all()

    def items(self):
        with self._changed:
            return list(self._items)

    def since(self, index):
        """What has arrived behind the first `index` items."""
        with self._changed:
            return self._items[index:]

    def __len__(self):
        with self._changed:
            return len(self._items)

    def clear(self):
        with self._changed:
            self._items.clear()

    def find(self, wanted, after=0):
        """Index of the first match at or behind `after`, or None."""
        test = matcher(wanted)
        for index, item in enumerate(self.items()[after:], start=after):
            if test(item):
                return index
        return None

    def wait_index(self, wanted, after=0, timeout=None, count=1):
        """Waits until `count` items match and returns the index of the last of them."""
        test = matcher(wanted)
        end = time.monotonic() + (DEADLINE if timeout is None else timeout)
        seen, index = 0, after
        with self._changed:
            while True:
                while index < len(self._items):
                    seen += bool(test(self._items[index]))
                    if seen == count:
                        return index
                    index += 1
                left = end - time.monotonic()
                if left <= 0 or self._closed:
                    break
                self._changed.wait(left)
            listing = "\n  ".join(map(str, self._items[after:])) or "nothing"
        why = "it ended" if self._closed else "no time left"
        raise AssertionError(
            f"{self.name}: waited for {getattr(wanted, '__qualname__', repr(wanted))} (saw {seen} of {count}; {why}); arrived:\n  {listing}")

    def wait_for(self, wanted, after=0, timeout=None, count=1):
        """Waits like wait_index and returns the item."""
        index = self.wait_index(wanted, after, timeout, count)
        return self.items()[index]


def wait_until(condition, what, timeout=None, poll=0.005):
    """For states that nothing announces (a file, a process): looks until they hold."""
    end = time.monotonic() + (DEADLINE if timeout is None else timeout)
    while True:
        result = condition()
        if result:
            return result
        assert time.monotonic() < end, f"waited in vain until {what}"
        time.sleep(poll)
