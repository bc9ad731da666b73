"""GNSS power save: what the engine is asked to do while it searches under a dark screen.

Time runs fast here, or is wound. Where it runs, a duration is taken from the daemon's own lines, so that
only its own lateness counts; what it may be late is less than what tells one length from the next.
"""

import re
from datetime import datetime

import pytest
from gi.repository import GLib

from harness import client as app
from harness import wire
from harness.clock import HandClock
from harness.daemon import LINE
from harness.peers import FakeScreenSaver
from harness.road import Road, near

LONG = 90  # real seconds for what takes minutes in the daemon's time
ROUND = "PositionDaemon::onPowerSaveTimeout: powerSaveRound={}"
FREED = "PositionDaemon::onPowerSaveContextUnsubscribe"
SESSION = re.compile(r"ORVComm::(start|stop)GNSS\( 6000")


def moment(line):
    return datetime.strptime(LINE.match(line)[1], "%H:%M:%S")


def durations(daemon, pattern):
    """Seconds on the daemon's clock from each line of a pattern to the next."""
    moments = [moment(line) for line in daemon.lines() if pattern.search(line)]
    return [int((later - earlier).total_seconds()) % 86400 for earlier, later in zip(moments, moments[1:])]


def expect(road, command, timeout=LONG):
    request = road.engine.expect(wire.GnssRequest, timeout=timeout)
    assert (request.session, request.command) == (6000, command)


def wait_round(road, number, count=1):
    return road.daemon.wait_for_message(ROUND.format(number), "Debug", timeout=LONG, count=count)


def without_place(fix):
    """What a client is told two minutes after its start, when there was no fix."""
    return not fix.valid


def withheld(road):
    """A searching client whose satellites have just been withheld for the first time."""
    client = road.satellite_client()
    expect(road, wire.STOP)
    return client


# ---- the rounds

def test_satellites_are_allowed_and_withheld_in_turns(stage):
    FakeScreenSaver(stage.session, active=True)
    road = Road(stage, faketime="+0 x15")
    road.satellite_client()
    for _ in range(4):
        expect(road, wire.STOP)
        expect(road, wire.START)
    lengths = durations(road.daemon, SESSION)
    expected = [300, 60, 20, 90, 10, 120, 20, 120]
    assert all(length - 1 <= seen < length + 9 for seen, length in zip(lengths, expected, strict=True)), lengths
    # It is idle because it is withheld: that does not end power save.
    assert len(road.lines("GNSS mode: Idle")) == 4
    assert not road.daemon.has_message("PositionDaemon::disablePowerSave")


def test_satellites_heard_put_a_withheld_round_off_once(stage):
    FakeScreenSaver(stage.session, active=True)
    road = Road(stage, faketime="+0 x30")

    def hear(*signals):
        sky = [wire.satellite(prn, signal=signal) for prn, signal in enumerate(signals, start=1)]
        road.report(6000, wire.satellites(*sky), status=wire.NO_FIX)

    road.satellite_client()
    hear(40, 40, 40, 40, 40)  # round 2 comes in its time whatever was heard
    expect(road, wire.STOP)
    expect(road, wire.START)
    hear(30, None, 35, 20)    # three with a signal
    hear(30)
    expect(road, wire.STOP)
    expect(road, wire.START)
    expect(road, wire.STOP)   # nothing was heard since: in time again
    lengths = durations(road.daemon, SESSION)
    expected = [300, 60, 20 + 3 * 20, 90, 10]
    assert all(length - 1 <= seen < length + 15 for seen, length in zip(lengths, expected, strict=True)), lengths
    rounds = [int(line.rsplit("=", 1)[1]) for line in road.lines("PositionDaemon::onPowerSaveTimeout")]
    assert rounds == [1, 2, 3, 4, 4, 5, 6]


def test_light_brings_satellites_back_at_once(stage):
    saver = FakeScreenSaver(stage.session, active=True)
    road = Road(stage, faketime="+0 x60")
    road.satellite_client()
    for _ in range(2):
        expect(road, wire.STOP)
        expect(road, wire.START)
    expect(road, wire.STOP)
    wait_round(road, 6)
    saver.show(False)
    expect(road, wire.START)
    lit = road.daemon.wait_for_message("PositionDaemon::onScreenBlanked screenBlanked=0", "Debug")
    lines = road.daemon.lines()
    began = max(index for index, line in enumerate(lines) if ROUND.format(6) in line)
    assert (moment(lines[lit]) - moment(lines[began])).total_seconds() % 86400 < 115  # not by the round's end
    # As long as there is light they stay: no round goes on, and none begins.
    road.satellite_client().wait_for_fix(without_place, timeout=LONG)
    assert road.lines("PositionDaemon::onPowerSaveTimeout")[-1] == ROUND.format(6)
    # Dark again: everything from the beginning.
    saver.show(True)
    expect(road, wire.STOP)
    assert 299 <= durations(road.daemon, SESSION)[-1]
    assert len(road.lines(ROUND.format(1))) == 2
    assert durations(road.daemon, re.compile(r"powerSaveRound=[12]$"))[-1] in range(299, 340)


def test_the_screen_may_go_dark_during_the_search(stage):
    saver = FakeScreenSaver(stage.session, active=False, name=FakeScreenSaver.GNOME)
    road = Road(stage, faketime="+0 x60")
    road.satellite_client()
    road.daemon.wait_for_message("PositionDaemon::onScreenBlanked screenBlanked=0", "Debug")
    assert road.lines("PositionDaemon::onPowerSaveTimeout") == []
    saver.show(True)
    wait_round(road, 1)
    expect(road, wire.STOP)
    assert road.lines("PositionDaemon::onPowerSaveTimeout") == [ROUND.format(1), ROUND.format(2)]


# ---- what ends it, and what begins it again

def let_go(road):
    """Winds through the 150 s for which the screen is watched on, and past the end that round 1 had."""
    road.daemon.wait_for_message("PositionDaemon::disablePowerSave", "Debug")
    road.wind(149)
    assert road.lines(FREED) == []
    road.wind(2)
    assert road.lines(FREED) == [FREED]
    road.wind(150)


def test_a_fix_ends_it(stage):
    """The client asks for fixes so rarely that one keeps the receiver tracking."""
    saver = FakeScreenSaver(stage.session, active=True)
    road = Road(stage, clock=HandClock())
    client = road.satellite_client(interval=3600000)
    wait_round(road, 1)
    road.fix(client, 10)
    client.wait_for_fix(near(10))
    let_go(road)
    # The screen is of no interest any more, and the round has not been left running.
    saver.show(False)
    saver.show(True)
    for _ in range(2):
        other = road.satellite_client(interval=3600000)
        other.stop()
    road.settle()
    assert road.lines("PositionDaemon::onScreenBlanked") == ["PositionDaemon::onScreenBlanked screenBlanked=1"]
    assert road.lines("PositionDaemon::onPowerSaveTimeout") == [ROUND.format(1)]


def test_a_client_that_stops_ends_it(stage):
    saver = FakeScreenSaver(stage.session, active=True)
    road = Road(stage, clock=HandClock())
    client = road.satellite_client()
    wait_round(road, 1)
    client.stop()
    road.daemon.wait_for_message("GNSS mode: Idle", "Debug")
    let_go(road)
    assert road.lines("PositionDaemon::onPowerSaveTimeout") == [ROUND.format(1)] * 2  # the stop began it anew
    # A later search, in the light, only arms it.
    saver.show(False)
    road.satellite_client()
    road.daemon.wait_for_message("PositionDaemon::onScreenBlanked screenBlanked=0", "Debug")
    road.wind(310)
    assert road.lines("PositionDaemon::onPowerSaveTimeout") == [ROUND.format(1)] * 2


def test_a_request_for_satellites_begins_anew(stage):
    FakeScreenSaver(stage.session, active=True)
    road = Road(stage, faketime="+0 x60")
    client = withheld(road)
    other = road.client(app.NON_SATELLITE)  # has nothing to do with it
    road.settle()
    assert road.engine.pending() == []
    assert len(road.lines("PositionDaemon::resetPowerSave")) == 1
    client.configure(app.SET_INTERVAL, interval=2000)
    expect(road, wire.START)
    assert road.lines("PositionDaemon::onPowerSaveTimeout")[-1] == ROUND.format(1)
    other.stop()
    expect(road, wire.STOP)
    assert durations(road.daemon, re.compile(r"powerSaveRound=[12]$"))[-1] in range(299, 340)


@pytest.mark.parametrize("key", ["Positioning", "SatellitePositioning", "SatellitePositioningInternal"])
def test_a_setting_of_satellites_begins_anew(stage, key):
    FakeScreenSaver(stage.session, active=True)
    road = Road(stage, faketime="+0 x60")
    withheld(road)
    assert stage.settings().set("WiFiPositioning", False)
    road.settle()
    assert road.engine.pending() == []
    assert stage.settings().set(key, True)
    expect(road, wire.START)
    assert road.lines("PositionDaemon::onPowerSaveTimeout")[-1] == ROUND.format(1)


# ---- the screen

def test_a_screen_saver_may_be_absent_come_late_and_vanish(stage):
    road = Road(stage, faketime="+0 x60")
    # Without one the screen counts as lit.
    for _ in range(3):
        road.satellite_client().wait_for_fix(without_place, timeout=LONG)
    assert road.lines("PositionDaemon::enablePowerSave") == ["PositionDaemon::enablePowerSave"]
    assert road.lines("PositionDaemon::onPowerSaveTimeout") == []
    assert road.engine.pending() == []

    saver = FakeScreenSaver(stage.session, active=True)
    road.engine.expect(wire.GnssRequest, command=wire.STOP, session=6000, timeout=LONG)
    wait_round(road, 2)
    saver.leave()
    road.engine.expect(wire.GnssRequest, command=wire.START, session=6000)
    road.daemon.wait_for_message("PositionDaemon::onScreenBlanked screenBlanked=0", "Debug")
    assert not road.daemon.has_message(ROUND.format(3))


def match_rules(stage, name):
    """What the owner of a name listens to, as the bus knows it."""
    (rules,) = stage.session.call(stage.session.connect(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                  "org.freedesktop.DBus.Debug.Stats", "GetAllMatchRules")
    return [rule for rule in rules[stage.session.owner_of(name)] if "ScreenSaver" in rule]


def test_the_screen_is_watched_only_while_it_matters(stage):
    saver = FakeScreenSaver(stage.session, active=False)
    monitor = stage.monitor(stage.session)
    road = Road(stage, faketime="+0 x30")
    road.client(app.NON_SATELLITE)
    road.settle()
    assert saver.calls.items() == []
    assert match_rules(stage, app.SERVICE) == []

    client = road.satellite_client()
    road.daemon.wait_for_message("PositionDaemon::onScreenBlanked screenBlanked=0", "Debug")
    assert [call[2] for call in saver.calls.items()] == ["GetActive"]
    assert match_rules(stage, app.SERVICE) != []
    client.stop()
    ended = road.daemon.wait_for_message("PositionDaemon::disablePowerSave", "Debug")
    assert match_rules(stage, app.SERVICE) != []  # for a while: searches often begin again
    freed = road.daemon.wait_for_message(FREED, "Debug", timeout=LONG)
    lines = road.daemon.lines()
    assert 149 <= (moment(lines[freed]) - moment(lines[ended])).total_seconds() % 86400 < 170
    road.settle()
    assert match_rules(stage, app.SERVICE) == []
    assert [call[2] for call in saver.calls.items()] == ["GetActive"]

    # Not introspected either, and nothing was started.
    daemon = stage.session.owner_of(app.SERVICE)
    seen = monitor.settled_lines(stage.session)
    assert not any(f"sender={daemon} " in line and ("Introspect" in line or "StartServiceByName" in line)
                   for line in seen)
    # The next search asks again.
    saver.active = True
    client.configure(app.START)
    wait_round(road, 1)
    assert [call[2] for call in saver.calls.items()] == ["GetActive"] * 2


def test_the_screen_is_let_go_in_time_however_often_searches_end(stage):
    FakeScreenSaver(stage.session, active=False)
    road = Road(stage, faketime="+0 x10")
    client = road.satellite_client()
    client.stop()
    first = road.daemon.wait_for_message("PositionDaemon::disablePowerSave", "Debug")
    for count in (1, 2, 3):  # 45 s
        stage.client().prestart(False, True)
        road.daemon.wait_for_message("PositionDaemon::removePrestartClient", "Debug", timeout=LONG, count=count)
    client.configure(app.START)
    client.stop()
    again = road.daemon.wait_for_message("PositionDaemon::disablePowerSave", "Debug", count=2)
    freed = road.daemon.wait_for_message(FREED, "Debug", timeout=LONG)
    first, again, freed = (moment(road.daemon.lines()[index]) for index in (first, again, freed))
    assert (freed - first).total_seconds() % 86400 >= 149
    assert (freed - again).total_seconds() % 86400 < 140


def test_a_screen_saver_that_hangs_holds_nothing_up(stage):
    class Hung(FakeScreenSaver):
        def answer(self, path, interface, method, arguments, invocation):
            self.invocation = invocation

    saver = Hung(stage.session, active=True)
    road = Road(stage, faketime="+0 x10")
    client = road.satellite_client()
    saver.calls.wait_for("GetActive")
    road.fix(client, 10)
    client.wait_for_fix(near(10))
    client.stop()
    client.configure(app.START)
    road.settle()
    assert road.lines("PositionDaemon::onScreenBlanked") == []
    saver.invocation.return_value(GLib.Variant("(b)", (True,)))
    wait_round(road, 1)
