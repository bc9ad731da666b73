"""Engines that die again and again: every session comes back once, nothing is left behind, and when it is too much."""

import contextlib
import os
import re
from collections import Counter
from datetime import datetime

import pytest
from gi.repository import GLib

from harness import client as app
from harness import files, wire
from harness.clock import HandClock
from harness.daemon import LINE, is_sanitized
from harness.road import Road, latitudes

LOST = "MsgSockClient::inMessage: Connection to ORV lost."
TRYING = "Connecting to orvd."
FATAL = "PositionDaemon::onOrvDisconnected Too frequent respawns from ORV - exiting"
REFUSED = "MsgSockClient::connect: (socket) connect() : Connection refused"
LONG = 3600000  # ms: an interval that no test lives to see the end of
CLIENTS = 50
KINDS = (app.SATELLITE, app.NON_SATELLITE, app.ALL)


def lose(road):
    mark = road.daemon.mark()
    road.engine.disconnect()
    road.daemon.wait_for_message(LOST, "Warning", after=mark)


def kill(road):
    """The engine dies, comes back at once and gets ready."""
    lose(road)
    road.wind(0.5)
    road.wind(4.2)  # a watchdog's two minutes are no multiple of the whole
    road.engine.expect(wire.SuplServers)
    road.engine.pending()  # nothing is unread when it dies again
    road.settle()  # on either side


# ---- what fifty clients get back

def a_crowd(stage):
    """A road with network positions through the engine, and clients of all kinds in turns."""
    files.marker("use_supl")
    road = Road(stage, clock=HandClock())
    clients = [road.client(KINDS[number % 3], LONG, extra=app.SATINFO_START) for number in range(CLIENTS)]
    assert road.engine.expect(wire.SuplRequest).request == 1
    return road, clients


def count(road, text):
    return road.daemon.messages().count(text)


def of_kind(clients, *kinds):
    return [client for number, client in enumerate(clients) if KINDS[number % 3] in kinds]


def serve(road, clients, latitude):
    """One network position, and then one fix for each satellite session."""
    road.supl(latitude)
    road.settle()
    for client in of_kind(clients, app.SATELLITE, app.ALL):
        road.fix(client, latitude + 0.5)
    road.settle(*clients)


def starts(road):
    """The sessions that the engine was asked to start, each as often as it was."""
    return Counter(m.session for m in road.engine.pending(wire.GnssRequest) if m.command == wire.START)


@pytest.mark.parametrize("before, told", [
    (lambda road, clients: None, {}),
    (lambda road, clients: road.supl(1), {app.NON_SATELLITE: [1], app.ALL: [1]}),
    (lambda road, clients: serve(road, clients, 1), {app.SATELLITE: [1.5], app.NON_SATELLITE: [1], app.ALL: [1, 1.5]}),
], ids=["while a request is out", "between two requests", "while all ride on satellites"])
def test_fifty_clients_get_their_sessions_back(stage, before, told):
    """The engine dies, dies again within a second of its return, and then stays away for a while."""
    road, clients = a_crowd(stage)
    before(road, clients)
    road.settle(*clients)
    road.engine.skip()
    lose(road)
    road.wind(0.5)
    road.engine.expect(wire.RegisterPrivacy)
    road.wind(0.8)
    road.engine.refuse()
    lose(road)
    for delay in (0.5, 2.5, 12.5):
        road.wind(delay)
    road.engine.listen()
    road.wind(62.5)
    road.engine.expect(wire.RegisterPrivacy)
    assert road.engine.pending() == []
    road.wind(1)
    road.engine.expect(wire.SuplServers)
    searching = of_kind(clients, app.SATELLITE, app.ALL)
    assert starts(road) == {client.id: 1 for client in searching}
    assert [m.request for m in road.engine.pending(wire.SuplRequest)] == [1]
    assert len(road.engine.pending()) == len(searching) + 1  # and nothing else

    serve(road, clients, 5)
    news = {app.SATELLITE: [5.5], app.NON_SATELLITE: [5], app.ALL: [5, 5.5]}
    assert [latitudes(client.fixes()) for client in clients] == [
        told.get(kind, []) + news[kind] for kind in (KINDS[number % 3] for number in range(CLIENTS))]
    assert set(road.daemon.messages("Critical")) == {REFUSED}


# ---- nothing is left behind

def descriptors(daemon):
    return sorted(re.sub(r"\[\d+\]", "", os.readlink(entry.path)) for entry in os.scandir(f"/proc/{daemon.pid}/fd"))


def resident(daemon):
    return int(daemon.status("VmRSS").split()[0])


def written_by_a_kill(road):
    mark = road.daemon.mark()
    kill(road)
    # Times differ, and so do the lengths of the messages that the road is settled with.
    return sorted(re.sub(r"\d+ms|(?<=0xef04 length: )\d+", "#", LINE.match(line)[3])
                  for line in road.daemon.lines()[mark:])


def test_two_hundred_kills_leave_nothing_behind(stage):
    """Descriptors, memory, timers; the clock goes on, so that it is never too much."""
    files.marker("use_supl")
    road = Road(stage, clock=HandClock())
    clients = [road.client(KINDS[number % 3], LONG, extra=app.SATINFO_START) for number in range(18)]
    road.engine.expect(wire.GnssRequest, command=wire.START, session=clients[-1].id & 0xFFFF)
    for _ in range(30):  # watchdogs of lost sessions go on for two minutes: as many as there will ever be
        kill(road)
    road.engine.skip()
    attempts = count(road, TRYING)
    opened, memory, written = descriptors(road.daemon), resident(road.daemon), written_by_a_kill(road)
    for _ in range(198):
        kill(road)
    assert written_by_a_kill(road) == written
    assert descriptors(road.daemon) == opened
    if not is_sanitized():  # whose freed memory waits before it is used again
        assert resident(road.daemon) - memory < 1024  # KiB
    assert count(road, TRYING) == attempts + 200
    road.engine.expect(wire.SuplRequest)
    assert Counter(m.session for m in road.engine.all(wire.GnssRequest)) == {
        client.id: 231 for client in of_kind(clients, app.SATELLITE, app.ALL)}

    for client in clients:
        client.stop()
    road.wind(200)  # the last watchdogs, and the end of power save
    mark = road.daemon.mark()
    road.wind(100000)
    assert road.daemon.lines()[mark:] == []


# ---- when it is too much

def is_too_soon(moments):
    """Does the last of these losses, told in whole seconds, end the daemon?"""
    mark = now = 0
    for now in moments:
        since = now - mark
        mark = now - (3600 if since > 3600 else since // 2)
    return bool(moments) and now - mark < 20


def moment_of_loss(road, number):
    """In whole seconds of the daemon's clock, for losses between one noon and the next."""
    index = road.daemon.wait_for_message(LOST, "Warning", count=number)
    clock = datetime.strptime(LINE.match(road.daemon.lines()[index])[1], "%H:%M:%S")
    return 2**30 + (clock - datetime(1900, 1, 1, 12)).seconds


def dying_at_once(stage):
    """A road whose engine closes each connection as soon as it has accepted it."""
    road = Road(stage, clock=HandClock())
    road.engine.hang_up()
    return road


def test_an_engine_that_dies_at_once_is_borne_at_a_second_between_losses(stage):
    road = dying_at_once(stage)
    for number in range(1, 51):
        road.daemon.wait_for_message(LOST, "Warning", count=number)
        road.wind(1)
    road.daemon.wait_for_message(LOST, "Warning", count=51)
    road.engine.hang_up(False)
    road.wind(0.5)
    road.wind(1)
    road.engine.expect(wire.SuplServers)
    assert count(road, TRYING) == 1 + 51


def test_an_engine_that_dies_at_once_ends_the_daemon_within_seconds(stage):
    """With nothing but half a second between them two losses fall into one second, and the mark comes closer."""
    road = dying_at_once(stage)
    moments = []
    while not is_too_soon(moments):
        if moments:
            with contextlib.suppress(GLib.Error):  # it may end in here
                road.wind(0.5)
        moments.append(moment_of_loss(road, len(moments) + 1))
    assert road.daemon.wait_exit() == 1
    assert road.daemon.messages("Fatal") == [FATAL]
    assert 9 <= len(moments) <= 10


def test_an_engine_that_keeps_dying_ends_the_daemon(stage):
    """Told by a clock that stands still between its ends, while the delays go by."""
    road = Road(stage, faketime="2026-06-01 12:00:00", environment={"FAKETIME_DONT_FAKE_MONOTONIC": "1"})
    for count in range(2, 11):
        road.engine.disconnect()
        if count < 10:
            road.engine.wait_connected(count)
    assert road.daemon.wait_exit() == 1
    assert road.daemon.messages("Fatal") == [FATAL]
