"""A daemon that nobody asks for anything sleeps."""

import time

from harness import wire
from harness.daemon import is_sanitized
from harness.mailbox import DEADLINE, wait_until
from harness.peers import FakeScreenSaver
from harness.road import Road


def window():
    """Seconds to watch: a minute, of which a sanitizer's build sees a part."""
    return 15 if is_sanitized() else 60


def test_no_thread_wakes_up_in_an_idle_minute(stage, ready_engine):
    """An engine is connected and silent; no client has come yet."""
    daemon = stage.daemon()
    ready_engine.expect(wire.SuplServers)
    daemon.wait_for_message("assignClients", "Debug")
    seen = [daemon.wake_ups()]

    def calm():
        """The last of start-up is over: nothing for half a second."""
        seen.append(daemon.wake_ups())
        return len(seen) > 5 and all(counts == seen[-1] for counts in seen[-5:])

    wait_until(calm, "start-up is over", poll=0.1)
    before = daemon.wake_ups()
    lines = daemon.mark()
    time.sleep(window())  # the measurement itself, not a wait for something to happen
    assert daemon.wake_ups() == before
    assert daemon.lines()[lines:] == []
    assert stage.client().register() == 6000  # it is asleep, not dead
    assert daemon.wake_ups() != before


def test_no_thread_wakes_up_while_satellites_are_withheld(stage):
    """A client searches under a dark screen. The minute of the first withheld round takes six seconds;
    only the round's own end is to wake anybody."""
    FakeScreenSaver(stage.session, active=True)
    road = Road(stage, faketime="+0 x10")
    road.satellite_client()
    road.engine.expect(wire.GnssRequest, command=wire.STOP, timeout=4 * DEADLINE)
    road.settle()  # what follows from the stop is done
    samples = []

    def over():
        samples.append((time.monotonic(), road.daemon.wake_ups()))
        return road.engine.pending(wire.GnssRequest)

    wait_until(over, "satellites are allowed again", poll=0.05)
    end = samples[-1][0]
    calm = [counts for when, counts in samples if when < end - 0.5]
    assert samples[len(calm) - 1][0] - samples[0][0] > 3
    # The last of the stop may still be on its way out in the first quarter of a second.
    assert all(counts == calm[-1] for counts in calm[5:])
    assert samples[-1][1] != calm[-1]
