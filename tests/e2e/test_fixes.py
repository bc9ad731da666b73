"""What becomes of a report: who hears of it, which values it carries, and what is dropped."""

import pytest

from harness import client as app
from harness import stream, wire
from harness.road import Road, latitudes, near, time_between

LIST = wire.satellites(wire.satellite(7, used=1, signal=41, elevation=30, azimuth=180))
FAKED = "PositionDaemon::sendPositionUpdate: faking ground speed="


# ---- status bits and what a report holds

@pytest.mark.parametrize("status, callbacks, state", [
    (0x41, ["satellitesInViewUpdate", "satellitesInUseUpdate", "positionUpdate"], "Tracking"),
    (0xFF, ["satellitesInViewUpdate", "satellitesInUseUpdate", "positionUpdate"], "Tracking"),
    (0x01, ["satellitesInViewUpdate"], "Search"),
    (0xBF, ["satellitesInViewUpdate"], "Search"),
    (0x40, [], "Search"),
    (0xFE, [], "Search"),
    (0x00, [], "Search"),
])
def test_two_status_bits_decide(road, status, callbacks, state):
    client = road.satellite_client(extra=app.SATINFO_START)
    road.report(client, wire.position(10, 20), wire.velocity(speed=100), LIST, status=status)
    road.settle(client)
    assert [callback.method for callback in client.callbacks.items()] == callbacks
    assert road.lines("GNSS mode")[-1] == f"GNSS mode: {state}"
    assert road.daemon.has_message(
        f"ORVComm::handleGNSSNotification() session id: 6000, status: 0x{status:x}", "Debug")
    assert len(road.lines("POSDBG")) == len(road.lines("VELDBG")) == callbacks.count("positionUpdate")


def test_a_report_of_satellites_alone_is_no_fix(road):
    client = road.satellite_client(extra=app.SATINFO_START)
    road.report(client, LIST)  # the fix bit is set, but there is nothing to use
    road.report(client, wire.time_of_fix(2026, 1, 2, 3, 4, 5000))
    road.report(client)
    road.settle(client)
    assert [callback.method for callback in client.callbacks.items()] == [
        "satellitesInViewUpdate", "satellitesInUseUpdate"]
    assert road.lines("GNSS mode") == ["GNSS mode: Search"]
    assert "processSubBlocks(): Time: 3:4:5.000" in road.daemon.messages("Debug")


def test_empty_lists_are_not_sent(road):
    client = road.satellite_client(extra=app.SATINFO_START)
    road.report(client, wire.satellites())
    road.report(client, wire.satellites(wire.satellite(3, used=1), wire.satellite(256, elevation=3)))
    road.report(client, wire.satellites(wire.satellite(4, signal=20)))
    road.settle(client)
    assert [(callback.method, [s.prn for s in callback.satellites]) for callback in client.callbacks.items()] == [
        ("satellitesInViewUpdate", [4])]
    texts = [text for text in road.daemon.messages() if "satellitesUpdateMessage" in text]
    assert texts == [f"ORVComm::satellitesUpdateMessage: sat: 0/{n}/{n}, (id,used,cno,elev,azim):" for n in (0, 0, 1)]


def test_known_and_unknown_sub_blocks(road):
    client = road.satellite_client()
    road.report(client, wire.block(0xEF06, bytes(8)), wire.block(0xEF09, bytes(5)), wire.block(0xEF15, b""),
                wire.block(0x0000, bytes(3)), wire.position(10, 20), wire.block(0xFFFF, b""))
    assert near(10)(client.wait_for_fix())
    assert road.lines("processSubBlocks") == [
        f"processSubBlocks(): Ignored block 0x{id}." for id in ("ef09", "0000", "ffff")]


def test_a_report_for_an_unknown_session_moves_the_state_and_reaches_nobody(road):
    client = road.satellite_client()
    road.fix(7777, 10)
    road.settle(client)
    assert client.callbacks.items() == []
    assert road.lines("GNSS mode") == ["GNSS mode: Search", "GNSS mode: Tracking"]
    assert road.daemon.messages("Critical") == []
    assert len(client.latest_position(True)) == 37


def test_reports_while_no_session_runs_are_dropped(stage, road):
    listener = stage.client()
    listener.register()
    listener.configure(app.SATINFO_START)
    road.report(6000, wire.position(10, 20), LIST)
    road.settle(listener)
    assert listener.callbacks.items() == []
    assert road.lines("POSDBG") == road.lines("GNSS mode") == []
    assert len(listener.latest_position()) == 37


def test_nothing_carries_over_to_the_next_fix(road):
    client = road.satellite_client(interval=3000)
    road.report(client, wire.position(10, 20, altitude=50), wire.velocity(100, 200, 300, 400))
    road.report(client, wire.velocity(heading=500))
    road.report(client, wire.position(11, 21))
    road.settle(client)
    whole, moving, placed = client.fixes()
    assert len(whole.attributes) == 6 and whole.altitude == 25
    assert moving.attributes == {stream.DIRECTION: 5} and moving.latitude != moving.latitude
    assert set(placed.attributes) == {stream.HORIZONTAL_ACCURACY, stream.VERTICAL_ACCURACY}


@pytest.mark.parametrize("latitude, longitude", [
    (0, 0), (90, 180 - 1e-7), (-90, -180), (47.3769, 8.5417), (-33.8568, 151.2153)])
def test_places_all_over_the_world(road, latitude, longitude):
    client = road.satellite_client()
    road.report(client, wire.position(latitude, longitude, altitude=-32768, altitude_error=65535, geoid=32767))
    fix = client.wait_for_fix()
    assert fix.latitude == wire.degrees(latitude) * 360 / 2**32
    assert fix.longitude == wire.degrees(longitude) * 360 / 2**32
    assert (fix.altitude, fix.attributes[stream.VERTICAL_ACCURACY]) == (-0.5, 32767.5)


def test_a_place_off_the_earth_is_no_valid_place(road):
    """Latitudes beyond 90 degrees fit into the message; the client hears of a fix without a place."""
    client = road.satellite_client()
    road.fix(client, 90.5)
    fix = client.wait_for_fix()
    assert fix.has_time and not fix.valid
    assert fix.attributes == pytest.approx({stream.HORIZONTAL_ACCURACY: 6.0576, stream.VERTICAL_ACCURACY: 0})
    road.settle()
    assert road.daemon.has_message("ClientApp::sendPositionUpdate: clientId=6000, type=0, fix=,,,,", "Debug")


# ---- faked ground speed

@pytest.mark.parametrize("interval, speeds", [
    # What the engine says, and what arrives where it says nothing.
    (1, [(2, 2), (3, 3), (None, 3), (None, 3), (None, None), (4, 4), (None, None), (5, 5), (6, 6), (None, 6)]),
    (2, [(2, 2), (None, None), (3, 3), (4, 4), (None, 4), (None, None), (None, None)]),
    (3, [(2, 2), (3, 3), (None, None), (None, None)]),
], ids=["1 s", "2 s", "3 s"])
def test_a_missing_ground_speed_is_lent_for_a_moment(road, interval, speeds):
    client = road.satellite_client(interval=1000 * interval)
    road.fix(client, 1)  # leads from searching to tracking, which forgets the speeds
    road.settle(client)
    for number, (speed, _) in enumerate(speeds, start=2):
        road.fix(client, number, speed=-1 if speed is None else 100 * speed, heading=100)
    road.settle(client)
    assert [fix.attributes.get(stream.GROUND_SPEED) for fix in client.fixes()[1:]] == [a for _, a in speeds]
    assert road.lines(FAKED) == [f"{FAKED}{arrived:.6f}" for said, arrived in speeds if said is None and arrived]


def test_a_request_forgets_the_speeds(road):
    client = road.satellite_client()
    road.fix(client, 1, speed=200)
    road.fix(client, 2, speed=300)
    road.settle(client)
    client.configure(app.SATINFO_STOP)
    road.fix(client, 3)
    road.settle(client)
    assert stream.GROUND_SPEED not in client.fixes()[-1].attributes


def test_a_lent_speed_stays_with_the_fix(road):
    """Whoever gets the fix afterwards, and who asks for the latest, sees it too."""
    free = road.client(app.SATELLITE, 666000, app.STOP)
    client = road.satellite_client()
    road.fix(client, 1)
    road.settle(client)
    for latitude, speed in ((2, 100), (3, 123), (4, -1)):
        road.fix(client, latitude, speed=speed)
    road.settle(client, free)
    last = client.received("positionUpdate")[-1].value
    assert stream.read_fix(last).attributes[stream.GROUND_SPEED] == pytest.approx(1.23)
    assert free.received("positionUpdate")[-1].value == client.latest_position(True) == last


# ---- network answers

def free_network_client(road):
    """A client that waits for no position of its own and gets every network answer."""
    client = road.stage.client()
    client.register()
    client.configure(app.SET_METHOD | app.SET_INTERVAL, app.NON_SATELLITE, 666000)
    return client


def test_network_answers_without_a_place(road):
    """A velocity makes an answer as well; without either it is empty, even of its time."""
    free = free_network_client(road)
    road.engine.send(wire.supl_response(0, LIST), wire.supl_response(0, wire.velocity(speed=150)),
                     wire.supl_response(7, wire.position(1, 2)))
    road.settle(free)
    fixes = free.fixes()
    assert [fix.has_time for fix in fixes] == [False, True, False]
    assert [fix.attributes for fix in fixes] == [{}, {stream.GROUND_SPEED: 1.5}, {}]
    assert road.daemon.messages("Warning") == []


@pytest.mark.parametrize("status, warning", [(1, ["ORVComm::handleSUPLResponse: SUPL connection error"]),
                                             (2, ["ORVComm::handleSUPLResponse: SUPL timeout"]), (3, [])])
def test_network_answers_that_failed(road, status, warning):
    free = free_network_client(road)
    road.engine.send(wire.supl_response(status, wire.position(1, 2)))
    assert not free.wait_for_fix().has_time
    road.settle()
    assert road.daemon.messages("Warning") == warning
    assert len(free.latest_position()) == 37
    assert road.lines("ClientApp") == ["ClientApp::sendPositionUpdate: clientId=6000, type=1, fix=,,,,"]
    assert road.lines("POSDBG") == []


# ---- clients that do not answer

def test_a_client_inside_a_blocking_call_gets_its_answer(stage):
    """Positions go out to all meanwhile, to the waiting one as well."""
    road = Road(stage)
    blocked, other = road.satellite_client(), road.satellite_client()
    road.fix(blocked, 1)
    road.fix(other, 2)
    assert len(blocked.call_while_deaf("latestPosition", "(b)", True, timeout=5)[0]) > 0
    for latitude in range(3, 23):
        road.fix(other, latitude)
        road.fix(blocked, latitude + 40)
        assert blocked.call_while_deaf("configSession", "(iiii)", blocked.id, 0, 0, 0, timeout=5) == (0,)
    road.settle(blocked, other)
    assert latitudes(other.fixes()) == [2, *range(3, 23)]
    assert latitudes(blocked.fixes()) == [1, *range(43, 63)]


def test_a_client_that_hangs_in_a_satellite_callback_holds_the_daemon_for_25_seconds(stage):
    """Then everything goes on, in order; the client is kept and warned about."""
    road = Road(stage, faketime="+0 x25")
    hanging, other = road.satellite_client(extra=app.SATINFO_START), road.satellite_client(extra=app.SATINFO_START)
    hanging.hang()
    road.report(other, LIST, status=wire.NO_FIX)
    other.wait_for("satellitesInViewUpdate")
    waited = time_between(road.daemon, "handleGNSSNotification()", "ClientApp:: client 6000 disconnected.")
    assert 24 <= waited <= 45
    assert road.daemon.messages("Warning")[0] == "ClientApp:: client 6000 disconnected."
    assert road.daemon.messages("Warning")[1].startswith("Did not receive a reply.")
    hanging.release()
    road.report(hanging, LIST, wire.position(10, 20))
    road.settle(hanging, other)
    assert [c.method for c in hanging.callbacks.items()] == [
        "satellitesInViewUpdate", "satellitesInViewUpdate", "satellitesInUseUpdate", "positionUpdate"]
    assert road.lines("onClientDisconnected") == []


def test_a_client_without_the_callback_object(stage, road):
    """Its fixes are lost; a satellite list for it costs two warnings, and the others get theirs."""
    deaf = stage.client(has_object=False)
    deaf.start(app.SATELLITE, extra=app.SATINFO_START)
    other = road.satellite_client(extra=app.SATINFO_START)
    road.report(deaf, wire.position(1, 2), LIST)
    road.fix(other, 10)
    road.settle(other)
    assert latitudes(other.fixes()) == [10]
    assert len(other.received("satellitesInViewUpdate")) == 1
    warnings = road.daemon.messages("Warning")
    assert warnings[0::2] == 2 * ["ClientApp:: client 6000 disconnected."]
    assert len(warnings) == 4 and all("Object does not exist" in text for text in warnings[1::2])
    deaf.export()
    road.fix(deaf, 11)
    assert near(11)(deaf.wait_for_fix())


def test_fixes_keep_their_order(road):
    client = road.satellite_client()
    sent = [number / 10 for number in range(500)]
    for latitude in sent:
        road.fix(client, latitude)
    road.settle(client)
    assert latitudes(client.fixes()) == sent
