"""Clients by what they ask for: intervals, command bits, free fixes, prestarts, consent, and how they go."""

import pytest
from gi.repository import GLib

from harness import client as app
from harness import stream, wire
from harness.road import Road, latitudes, near, time_between

FREE = 666000  # milliseconds: only what others' sessions produce anyway
GNSS_TO_FREE = "PositionDaemon::onPositionUpdateGNSS: Sending GNSS fix to free fix client"
SUPL_TO_FREE = "PositionDaemon::onPositionUpdateSUPL: Sending SUPL fix to free fix client"
INVALID_ID = "*** Warning! Config request from client with invalid Id!"


# ---- intervals and command bits

@pytest.mark.parametrize("milliseconds, seconds", [
    (-2147483648, 1), (0, 1), (999, 1), (1000, 1), (1499, 1), (1500, 2), (59499, 59), (2147483647, 2147484)])
def test_intervals_are_whole_seconds(road, milliseconds, seconds):
    client = road.client(interval=milliseconds)
    assert road.engine.expect(wire.GnssRequest, session=client.id).interval == min(seconds, 0xFFFF)
    road.daemon.wait_for_message(f"PositionDaemon::configRequest: Set interval:  {seconds}", "Debug")


def test_start_and_stop_together_leave_the_client_stopped(stage, road):
    client = stage.client()
    client.register()
    client.start(app.SATELLITE, extra=app.STOP)
    road.settle()
    assert road.engine.pending() == []
    assert "startSessions: client: id=6000, stopped=1, methods=0xff, actGNSS=0, actSUPL=0" in road.lines("startS")
    assert [text.split(": ")[1] for text in road.lines("PositionDaemon::configRequest")] == [
        "Set Method", "Set interval", "Start!", "Stop!"]


def test_satellite_lists_go_to_those_who_asked_for_them(road):
    """Starting and stopping the lists in one request leaves them off."""
    clients = [road.satellite_client(extra=extra) for extra in (
        app.SATINFO_START, app.SATINFO_START | app.SATINFO_STOP, 0, app.SATINFO_START)]
    clients[3].stop()  # stopped, and still interested
    road.report(clients[0], wire.satellites(wire.satellite(3, used=1, signal=30)), wire.position(1, 2))
    road.settle(*clients)
    lists = ["satellitesInViewUpdate", "satellitesInUseUpdate"]
    assert [[c.method for c in client.callbacks.items()] for client in clients] == [
        lists + ["positionUpdate"], [], [], lists]
    clients[0].configure(app.SATINFO_STOP)
    clients[0].callbacks.clear()
    road.report(clients[0], wire.satellites(wire.satellite(3, used=1, signal=30)))
    road.settle(*clients)
    assert clients[0].callbacks.items() == []
    assert len(clients[3].received("satellitesInViewUpdate")) == 2


def test_two_clients_have_a_session_each(road):
    """Each with its own interval; a fix goes to the client of its session alone."""
    first, second = road.satellite_client(), road.satellite_client(interval=5000)
    assert [(request.session, request.interval) for request in road.engine.all(wire.GnssRequest)] == [
        (6000, 1), (6001, 5)]
    for latitude in (10, 11, 12):
        road.fix(first, latitude)
    road.fix(second, 13)
    road.settle(first, second)
    assert (latitudes(first.fixes()), latitudes(second.fixes())) == ([10, 11, 12], [13])
    first.stop()
    stop = road.engine.expect(wire.GnssRequest)
    assert (stop.session, stop.command) == (first.id, wire.STOP)
    road.fix(second, 14)
    second.wait_for_fix(near(14))
    assert latitudes(first.fixes()) == [10, 11, 12]


# ---- free fixes

def test_a_free_fix_client(road):
    """Started, it has a session like any other; stopped, it gets what the others' sessions find."""
    free = road.satellite_client(interval=FREE)
    assert road.engine.all(wire.GnssRequest)[-1].interval == 666
    free.configure(app.SET_INTERVAL, interval=FREE)
    worker = road.satellite_client()
    road.fix(worker, 10)
    road.settle(free, worker)
    assert free.fixes() == []
    free.stop()
    for latitude in (11, 11, 12):
        road.fix(worker, latitude)
    road.settle(free, worker)
    assert latitudes(worker.fixes()) == [10, 11, 11, 12]
    assert latitudes(free.fixes()) == [11, 12]  # only where the position changed
    assert road.lines("PositionDaemon::configRequest: Free") == ["PositionDaemon::configRequest: Free fix client added"]
    assert road.lines(GNSS_TO_FREE) == 2 * [GNSS_TO_FREE]
    free.configure(app.START)
    road.fix(worker, 13)
    road.settle(free, worker)
    assert latitudes(free.fixes()) == [11, 12]


def test_free_fixes_follow_the_clients_methods(stage, road):
    """Satellite fixes go to stopped clients with a satellite bit, network fixes to all with another bit."""
    masks = (app.SATELLITE, app.NON_SATELLITE, app.ALL, 0x01, 0x100)
    stopped, started = [], []
    for mask in masks:
        for group, extra in ((stopped, app.STOP), (started, 0)):
            group.append(road.client(mask, FREE, extra))
    worker = road.satellite_client()
    road.fix(worker, 10)
    road.supl(20)
    road.settle(*stopped, *started)
    assert [latitudes(client.fixes()) for client in stopped] == [[10], [20], [10, 20], [10], [20]]
    # The last one is due for a network fix as well; the others ride on the satellite fix.
    assert [latitudes(client.fixes()) for client in started] == [[], [20], [20], [], [20, 20]]
    assert len(road.lines(GNSS_TO_FREE)) == 3
    assert road.lines(SUPL_TO_FREE) == 6 * [SUPL_TO_FREE]
    assert worker.callbacks.items()[-1].fix.attributes == stopped[0].fixes()[0].attributes


def test_a_free_fix_client_that_left_is_forgotten(road):
    free, worker = road.client(app.SATELLITE, FREE, app.STOP), road.satellite_client()
    free.vanish()
    road.daemon.wait_for_message("PositionDaemon: Removing client with id: 6000", "Debug")
    road.fix(worker, 10)
    road.settle(worker)
    assert road.lines(GNSS_TO_FREE) == []


# ---- prestart

def test_prestarted_clients_live_for_fifteen_seconds(stage):
    """They are removed oldest first, and their engine sessions stay."""
    road = Road(stage, faketime="+0 x8")
    caller = stage.client()
    assert caller.prestart(False, False) == ()
    assert caller.prestart(True, False) == ()
    start = road.engine.expect(wire.GnssRequest)
    assert (start.session, start.command, start.interval) == (6000, wire.START, 1)
    assert caller.prestart(False, True) == ()
    assert caller.prestart(True, True) == ()
    assert road.engine.expect(wire.GnssRequest).session == 6002
    later = caller.register()
    assert later == 6003
    removed = "PositionDaemon: Removing client with id:"
    for number, id in enumerate((6000, 6001, 6002), start=1):
        road.daemon.wait_for_message(f"{removed} {id}", "Debug")
        assert len(road.lines("PositionDaemon::removePrestartClient")) >= number
    assert road.lines(removed) == [f"{removed} {id}" for id in (6000, 6001, 6002)]
    assert road.lines("PositionDaemon::addPrestartClient") == [
        f"PositionDaemon::addPrestartClient sat:{s}, nonsat:{n}" for s, n in ((0, 0), (1, 0), (0, 1), (1, 1))]
    assert road.lines("PositionDaemon::configRequest: Set") == [
        f"PositionDaemon::configRequest: Set {what}" for mask in (0xFF, 0xFFFFFF00, 0xFFFFFFFF)
        for what in (f"Method:  {mask}", "interval:  1")]
    assert 14 <= time_between(road.daemon, "addPrestartClient sat:1, nonsat:0", "Removing client with id: 6000") <= 20
    assert road.engine.pending(wire.GnssRequest) == []
    assert "## Service:  prestart" in road.daemon.messages() and "##    Path:  prestart" in road.daemon.messages()


def test_a_prestart_without_consent_waits_like_any_start(stage):
    road = Road(stage, consent=False, faketime="+0 x20")
    stage.client().prestart(True, True)
    road.daemon.wait_for_message("PositionDaemon: Removing client with id: 6000")
    assert road.engine.pending() == []
    assert not road.daemon.has_message("PositionDaemon::configRequest: Start!")


@pytest.mark.parametrize("service", ["context", "prestart"])
def test_the_daemons_own_names_are_never_called(stage, service):
    monitor = stage.monitor(stage.session)
    road = Road(stage)
    pseudo = stage.client()
    pseudo.register(service, "/com/example/application")
    pseudo.start(app.SATELLITE, extra=app.SATINFO_START)
    road.engine.expect(wire.GnssRequest, command=wire.START)
    road.report(pseudo, wire.satellites(wire.satellite(3, used=1, signal=30)), wire.position(1, 2))
    road.settle()
    assert stage.settings().set("SatellitePositioning", False)
    real = road.client(app.NON_SATELLITE)
    assert stage.settings().set("SatellitePositioning", True)
    real.wait_for_settings(app.ALL)
    road.settle(pseudo, real)
    assert pseudo.callbacks.items() == []
    calls = [line for line in monitor.settled_lines(stage.session) if "com.varn.qlocation.updates" in line]
    assert len(calls) == 1 and "member=currentSettings" in calls[0] and real.service in calls[0]
    assert road.daemon.messages("Warning") == road.daemon.messages("Critical") == []
    assert near(1)(stream.read_fix(real.latest_position(True)))  # its fix counts all the same


# ---- consent

def test_without_consent_a_start_waits(stage):
    road = Road(stage, consent=False)
    client = stage.client()
    client.register()
    assert client.start(app.SATELLITE) == 0
    assert client.configure(app.START, id=9999) == 0
    road.settle(client)
    assert road.engine.pending() == []
    assert road.lines("PositionDaemon::configRequest") == []
    assert road.daemon.messages("Critical") == []
    # Requests that do not start are carried out, and fail when they have to.
    assert client.configure(app.SET_INTERVAL | app.SATINFO_START, interval=3000) == 0
    assert client.configure(app.STOP, id=9999) == 0
    road.daemon.wait_for_message("*** id: 9999  command: 2", "Critical")
    assert road.lines("PositionDaemon::configRequest") == [
        "PositionDaemon::configRequest: Set interval:  3", "PositionDaemon::configRequest: SatInfoStart"]


def test_consent_by_the_setting_lets_the_next_start_through(stage):
    """What waits goes on waiting: the setting replays nothing."""
    road = Road(stage, consent=False)
    first, second = stage.client(), stage.client()
    first.start(app.SATELLITE)
    assert stage.settings().set("LocationDisclaimerAccepted", True)
    second.start(app.SATELLITE)
    assert road.engine.expect(wire.GnssRequest).session == second.id
    road.settle()
    assert [request.session for request in road.engine.all(wire.GnssRequest)] == [second.id]
    assert not road.daemon.has_message("startBrisd()")


def test_an_unknown_id_is_two_critical_lines(road, stage):
    client = stage.client()
    assert client.configure(app.START, id=5999) == 0
    assert client.configure(-1, id=-7) == 0
    road.settle()
    assert road.daemon.messages("Critical") == [
        INVALID_ID, "*** id: 5999  command: 1", INVALID_ID, "*** id: -7  command: -1"]


# ---- leaving

def test_a_client_that_vanishes(stage, road):
    """Its session stays on the engine, and later reports for it belong to nobody."""
    client, other = road.satellite_client(), stage.client()
    road.fix(client, 10)
    client.wait_for_fix()
    client.vanish()
    road.daemon.wait_for_message("PositionDaemon: Removing client with id: 6000", "Debug")
    texts = road.daemon.messages("Debug")
    assert texts[-3:] == [f"serviceHasJustLeftTheBuilding:  {client.service}",
                          "onClientDisconnected: Remove client  6000",
                          "PositionDaemon: Removing client with id: 6000"]
    assert road.engine.pending() == []
    road.fix(client, 11)
    road.daemon.wait_for_message("PositionDaemon::onPositionUpdateGNSS: Invalid GNSS session id from ORV.", "Critical")
    road.settle()
    assert near(10)(stream.read_fix(other.latest_position(True)))
    assert other.register() == 6001
    assert other.configure(app.STOP, id=6000) == 0
    road.daemon.wait_for_message("*** id: 6000  command: 2", "Critical")


def test_the_watchdog_of_a_client_that_vanished(stage):
    road = Road(stage, faketime="+0 x60")
    client = road.satellite_client()
    client.vanish()
    road.daemon.wait_for_message("PositionDaemon::onUpdateTimeoutGNSS: Invalid GNSS session id from ORV.", "Critical")
    assert time_between(road.daemon, "Removing client with id: 6000", "onUpdateTimeoutGNSS: Inv") <= 170


def test_a_name_that_is_given_up_ends_the_client(stage, road):
    """The name counts that was registered, not the connection."""
    client = road.satellite_client(name="com.example.Short")
    stage.session.call(client.connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                       "ReleaseName", GLib.Variant("(s)", ("com.example.Short",)))
    road.daemon.wait_for_message("PositionDaemon: Removing client with id: 6000", "Debug")
    assert road.lines("serviceHas") == ["serviceHasJustLeftTheBuilding:  com.example.Short"]


def test_one_application_may_be_several_clients(stage, road):
    """All of them go when it goes."""
    application = road.satellite_client()
    first = application.id
    second = application.register(path="/com/example/application")
    application.start(app.SATELLITE)
    road.engine.expect(wire.GnssRequest, session=second)
    road.fix(first, 10)
    road.fix(second, 11)
    application.wait_for_fix(near(11))
    assert latitudes(application.fixes()) == [10, 11]
    application.vanish()
    for id in (first, second):
        road.daemon.wait_for_message(f"PositionDaemon: Removing client with id: {id}", "Debug")


def test_a_hundred_clients_get_their_fixes(road):
    clients = [road.satellite_client() for _ in range(100)]
    for latitude in (1, 2, 3):
        for number, client in enumerate(clients):
            road.fix(client, latitude + number / 1000)
    road.settle(*clients)
    for number, client in enumerate(clients):
        assert latitudes(client.fixes()) == [round(latitude + number / 1000, 6) for latitude in (1, 2, 3)]
