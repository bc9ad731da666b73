"""Which session runs for whom: planning after fixes, losses, settings and watchdogs."""

import time

import pytest

from harness import client as app
from harness import files, wire
from harness.road import Road, latitudes, near, time_between

NETWORK_STARTED = "startSessions: client: id={}, stopped=0, methods=0xffffff00, actGNSS=0, actSUPL=0"
RIDES = "startSessions: client: id={}, stopped=0, methods=0xff, actGNSS=0, actSUPL={}"


def tracking(road, client, latitude=10):
    """Gives the client a fix and returns when the receiver counts as tracking."""
    road.fix(client, latitude)
    client.wait_for_fix(near(latitude))


# ---- methods and the running fix

def test_a_network_client_rides_on_a_running_satellite_fix(road):
    worker = road.satellite_client()
    tracking(road, worker)
    rider = road.client(app.NON_SATELLITE)
    assert road.engine.expect(wire.GnssRequest, command=wire.START).session == rider.id
    assert road.lines(RIDES.format(rider.id, 0)) == [RIDES.format(rider.id, 0)]
    road.fix(rider, 11)
    rider.wait_for_fix(near(11))
    # Back to the network when nobody asks for satellites any more.
    worker.stop()
    assert road.engine.expect(wire.GnssRequest, command=wire.STOP).session == worker.id
    assert road.engine.expect(wire.GnssRequest, command=wire.STOP).session == rider.id
    road.daemon.wait_for_message("GNSS mode: Idle", "Debug")
    road.settle(rider)
    assert NETWORK_STARTED.format(rider.id) in road.lines("startSessions")
    assert latitudes(rider.fixes()) == [11]


def test_a_network_client_changes_over_when_the_fix_comes_and_when_it_is_lost(stage):
    road = Road(stage, faketime="+0 x20")
    worker = road.satellite_client()
    rider = road.client(app.NON_SATELLITE, 2000)
    road.daemon.wait_for_message(NETWORK_STARTED.format(rider.id), "Debug")
    assert road.engine.pending() == []
    road.fix(worker, 10)
    start = road.engine.expect(wire.GnssRequest)
    assert (start.session, start.command, start.interval) == (rider.id, wire.START, 2)
    assert "stopSessions: client: id=6001, stopped=0, methods=0xffffff00, actGNSS=0, actSUPL=1" in road.lines("stop")
    road.daemon.wait_for_message("GNSS mode: Search", "Debug", count=2)  # nothing more came: the fix is lost
    stop = road.engine.expect(wire.GnssRequest)
    assert (stop.session, stop.command) == (rider.id, wire.STOP)
    road.daemon.wait_for_message(NETWORK_STARTED.format(rider.id), "Debug", count=2)


def test_only_the_exact_network_mask_rides(road):
    worker = road.satellite_client()
    tracking(road, worker)
    other = road.client(0x0000FF00)
    road.settle()
    assert road.engine.pending() == []
    assert "startSessions: client: id=6001, stopped=0, methods=0xff00, actGNSS=0, actSUPL=0" in road.lines("start")
    assert other.callbacks.items() == []


def test_a_network_client_does_not_ride_on_disabled_satellites(stage, road):
    worker = road.satellite_client()
    tracking(road, worker)
    assert stage.settings().set("SatellitePositioning", False)
    assert road.engine.expect(wire.GnssRequest).command == wire.STOP
    road.client(app.NON_SATELLITE)
    road.settle()
    assert road.engine.pending() == []


def test_a_client_of_all_methods_keeps_only_satellites_during_a_fix(road):
    client = road.satellite_client(methods=app.ALL)
    assert "startSessions: client: id=6000, stopped=0, methods=0xffffffff, actGNSS=0, actSUPL=0" in road.lines("start")
    tracking(road, client)
    road.settle()
    assert road.lines("stopSessions")[-1] == (
        "stopSessions: client: id=6000, stopped=0, methods=0xffffff00, actGNSS=1, actSUPL=1")
    later = road.satellite_client(methods=app.ALL)
    assert RIDES.format(later.id, 0) in road.lines("startSessions")


def test_a_running_session_is_told_of_a_new_interval_only_when_its_client_asks(road):
    first, second = road.satellite_client(), road.satellite_client()
    second.configure(app.SET_INTERVAL, interval=4000)
    road.settle()
    assert [(r.session, r.command, r.interval) for r in road.engine.pending()] == [(second.id, wire.CHANGE_INTERVAL, 4)]
    road.engine.skip()
    second.configure(app.SATINFO_START)  # every request counts as a change
    assert road.engine.expect(wire.GnssRequest).interval == 4
    tracking(road, first)
    road.settle()
    assert road.engine.pending() == []


def test_a_client_that_gives_up_satellites_loses_its_session(road):
    client = road.satellite_client()
    client.configure(app.SET_METHOD, app.NON_SATELLITE)
    assert road.engine.expect(wire.GnssRequest).command == wire.STOP
    client.configure(app.SET_METHOD, app.ALL)
    assert road.engine.expect(wire.GnssRequest).command == wire.START
    client.stop()
    assert road.engine.expect(wire.GnssRequest).command == wire.STOP
    client.stop()
    road.settle()
    assert road.engine.pending() == []


def test_sessions_wait_until_the_engine_is_ready(stage):
    """Satellites are not offered before; a client of satellites alone gets the empty fix of type 2.
    Half a second takes two and a half here."""
    files.marker("location_ok")
    engine = stage.engine()
    begin = time.monotonic()
    daemon = stage.daemon(faketime="+0 x0.2")
    client = stage.client()
    client.start(app.SATELLITE)
    assert not client.wait_for_fix().has_time
    assert daemon.has_message("Could not find any available location methods", "Debug")
    assert daemon.has_message("ClientApp::sendPositionUpdate: clientId=6000, type=2, fix=,,,,", "Debug")
    assert engine.all(wire.GnssRequest) == []
    engine.expect(wire.SuplServers)
    assert time.monotonic() - begin >= 2.4
    assert engine.expect(wire.GnssRequest).command == wire.START


# ---- settings

def test_positioning_off_and_on(stage, road):
    """A started client is told by an empty fix, unless it has satellite information switched on."""
    plain = road.satellite_client(methods=app.ALL)
    informed = road.satellite_client(extra=app.SATINFO_START)
    stopped = stage.client()
    stopped.register()
    settings = stage.settings()
    assert settings.set("Positioning", False)
    assert [road.engine.expect(wire.GnssRequest).command for _ in range(2)] == [wire.STOP, wire.STOP]
    road.settle(plain, informed, stopped)
    assert [(c.method, c.wants_reply) for c in plain.callbacks.items()] == [
        ("currentSettings", False), ("positionUpdate", False)]
    assert len(plain.received("positionUpdate")[0].value) == 37
    assert [c.value for c in informed.callbacks.items()] == [(0, 1000)]
    assert [c.value for c in stopped.callbacks.items()] == [(0, 1000)]
    assert road.daemon.has_message("Positioning has been disabled. No available method.", "Debug")
    assert road.daemon.has_message("ClientApp::sendPositionUpdate: clientId=6000, type=2, fix=,,,,", "Debug")
    assert settings.set("Positioning", True)
    assert [road.engine.expect(wire.GnssRequest).session for _ in range(2)] == [plain.id, informed.id]
    assert stopped.wait_for_settings(app.ALL) == (app.ALL, 1000)


def test_satellites_off_leaves_the_network_and_on_brings_them_back(stage, road):
    both, only = road.satellite_client(methods=app.ALL), road.satellite_client()
    settings = stage.settings()
    assert settings.set("SatellitePositioning", False)
    assert {road.engine.expect(wire.GnssRequest, command=wire.STOP).session for _ in range(2)} == {both.id, only.id}
    road.settle(both, only)
    assert both.fixes() == [] and len(only.fixes()) == 1
    assert both.settings() == only.settings() == [(app.NON_SATELLITE, 1000)]
    road.fix(only, 10)  # too late
    road.settle(only)
    assert len(only.fixes()) == 1
    assert settings.set("SatellitePositioning", True)
    assert {road.engine.expect(wire.GnssRequest, command=wire.START).session for _ in range(2)} == {both.id, only.id}


@pytest.mark.parametrize("off, mask, network", [
    (["CellularPositioning"], app.ALL, True),
    (["WiFiPositioning"], app.ALL, True),
    (["CellularPositioning", "WiFiPositioning"], app.SATELLITE, False),
    (["NetworkConnectivity"], app.ALL, True),
    (["SuplForced+", "CellularPositioning"], app.SATELLITE, False),
    (["SuplForced+", "WiFiPositioning"], app.ALL, True),
    (["SuplForced+", "NetworkConnectivity"], app.SATELLITE, False),
], ids=lambda value: "-".join(value) if isinstance(value, list) else "")
def test_the_network_settings_decide_on_the_network_method(stage, road, off, mask, network):
    client = road.client(app.NON_SATELLITE)
    settings = stage.settings()
    for key in off:
        assert settings.set(key.rstrip("+"), key.endswith("+"))
    newcomer = stage.client()
    newcomer.start(app.NON_SATELLITE)
    assert newcomer.methods == mask
    road.settle(client, newcomer)
    assert client.settings() == ([] if mask == app.ALL else [(mask, 1000)])
    assert [fix.valid for fix in newcomer.fixes()] == ([] if network else [False])
    assert road.engine.pending(wire.GnssRequest) == []


def test_the_connectivity_byte_of_later_requests(stage, road):
    client = road.satellite_client()
    settings = stage.settings()
    modes = []
    for value in (False, True, False):
        assert settings.set("NetworkConnectivity", value)
        client.configure(app.SATINFO_STOP)
        modes.append(road.engine.expect(wire.GnssRequest, command=wire.CHANGE_INTERVAL).mode)
    client.stop()
    modes.append(road.engine.expect(wire.GnssRequest, command=wire.STOP).mode)
    client.configure(app.START)
    modes.append(road.engine.expect(wire.GnssRequest, command=wire.START).mode)
    assert modes == [1, 2, 1, 1, 1]


# ---- watchdogs

def test_no_first_fix_within_two_minutes(stage):
    """The client is told with an empty fix; the search goes on, without another word."""
    road = Road(stage, faketime="+0 x60")
    client = road.satellite_client()
    assert not client.wait_for_fix().has_time
    road.settle(client)
    assert 119 <= time_between(road.daemon, "GNSS mode: Search", "type=0, fix=,,,,") <= 170
    assert road.daemon.has_message("ClientApp::sendPositionUpdate: clientId=6000, type=0, fix=,,,,", "Debug")
    assert road.lines("GNSS mode") == ["GNSS mode: Search"]
    assert road.engine.pending() == []


@pytest.mark.parametrize("interval, seconds, late, rate", [
    (1, 11, 4, 8), (9, 19, 4, 8), (10, 25, 14, 20), (59, 74, 14, 25), (60, 90, 25, 40)])
def test_fixes_that_stop_coming(stage, interval, seconds, late, rate):
    """After the interval and a margin the receiver counts as searching, and the client is told."""
    road = Road(stage, faketime=f"+0 x{rate}")
    client = road.satellite_client(interval=1000 * interval)
    road.fix(client, 10)
    client.wait_for_fix(near(10))
    client.wait_for_fix(lambda fix: not fix.valid)
    waited = time_between(road.daemon, "Sending GNSS fix to ClientId: 6000", "type=0, fix=,,,,")
    assert seconds - 1 <= waited <= seconds + late
    assert road.lines("GNSS mode") == [f"GNSS mode: {state}" for state in ("Search", "Tracking", "Search")]
    road.fix(client, 11)
    client.wait_for_fix(near(11))
    assert road.lines("GNSS mode")[3:] == ["GNSS mode: Tracking"]


def test_a_new_interval_counts_from_the_next_fix_on(stage):
    road = Road(stage, faketime="+0 x40")
    client = road.satellite_client(interval=1000)
    client.configure(app.SET_INTERVAL, interval=60000)
    road.fix(client, 10)
    client.wait_for_fix(lambda fix: not fix.valid)
    assert 88 <= time_between(road.daemon, "Sending GNSS fix", "type=0, fix=,,,,") <= 118


def test_a_client_of_two_methods_is_told_when_both_have_failed(stage):
    """An invalid fix of one method is held back while the other may still deliver."""
    files.marker("use_supl")
    road = Road(stage, faketime="+0 x60")
    client = road.satellite_client(interval=60000, methods=app.ALL)
    lone = road.satellite_client()
    lone.wait_for_fix(lambda fix: not fix.valid)  # its watchdog ran out, and so did the other's before
    road.settle(client)
    assert client.fixes() == []
    road.engine.send(wire.supl_response(1))
    assert not client.wait_for_fix().has_time
    road.settle(client)
    assert road.lines("ClientApp::sendPositionUpdate: clientId=6000") == [
        "ClientApp::sendPositionUpdate: clientId=6000, type=1, fix=,,,,"]


def test_satellites_failing_after_the_network_tell_the_client_too(stage):
    files.marker("use_supl")
    road = Road(stage, faketime="+0 x60")
    client = road.satellite_client(interval=60000, methods=app.ALL)
    road.engine.send(wire.supl_response(1))
    assert not client.wait_for_fix().has_time
    assert road.lines("ClientApp::sendPositionUpdate: clientId=6000") == [
        "ClientApp::sendPositionUpdate: clientId=6000, type=0, fix=,,,,"]


def test_a_stopped_session_has_no_watchdog(stage):
    road = Road(stage, faketime="+0 x60")
    quiet, other = road.satellite_client(), road.satellite_client()
    quiet.stop()
    other.wait_for_fix(lambda fix: not fix.valid)
    road.settle(quiet)
    assert quiet.callbacks.items() == []
