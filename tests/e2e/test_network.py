"""Network positions: from GeoClue's moods to the application's callback."""

import time

import pytest

from harness import client as app
from harness import files, stream, wire
from harness.geoclue import FakeGeoClue, Place
from harness.mailbox import wait_until
from harness.network import (FALLBACK, HANDED_ON, HELSINKI, SENDING, TAMPERE, finished, network_client, only_fix,
                             wait_for_empty)
from harness.road import Road, latitudes, near, stamp, time_between


# ---- what GeoClue finds

def test_a_position_of_geoclue_reaches_the_client(stage):
    found = round(time.time(), 3)
    geoclue = FakeGeoClue(stage.system, Place(60.17, 24.94, accuracy=50.0, altitude=25.5, stamp=found))
    daemon = stage.consented_daemon()
    client = network_client(stage)
    fix = client.wait_for_fix()
    assert (fix.latitude, fix.longitude, fix.altitude) == (60.17, 24.94, 25.5)
    assert fix.attributes == {stream.HORIZONTAL_ACCURACY: 50.0}
    assert stamp(fix).timestamp() == pytest.approx(found, abs=0.002)
    texts = daemon.messages("Debug")
    begin = texts.index(SENDING)
    road = [text for text in texts[begin:] if text.startswith(("VESKComm", "PositionDaemon::onPos", "Sending update"))]
    assert road == ["VESKComm::requestPositionVESK wifi: 1, cellular: 1, gprs: 1, timeout: 20", finished(0), HANDED_ON,
                    f"Sending update to ClientId:  {client.id}"]
    assert stream.read_fix(client.latest_position()) == fix
    assert stream.read_fix(client.latest_position(satellite_only=True)).valid is False
    geoclue.wait_idle()
    assert (geoclue.created, only_fix(client).wants_reply) == (1, False)


def test_a_client_of_all_methods_gets_network_fixes_until_satellites_are_found(stage):
    geoclue = FakeGeoClue(stage.system, HELSINKI)
    road = Road(stage)
    client = road.satellite_client(methods=app.ALL)
    assert client.wait_for_fix().latitude == 60.17
    road.fix(client, 45)
    client.wait_for_fix(near(45))
    geoclue.wait_idle()
    requests = len(road.lines(SENDING))
    road.settle()
    assert "actGNSS=1, actSUPL=0" in road.lines("startSessions: ")[-1]
    assert len(road.lines(SENDING)) == requests


@pytest.mark.parametrize("accuracy, delivered", [(30000.0, True), (30001.0, False)])
def test_a_guess_of_a_whole_region_is_success_without_a_place(stage, ready_engine, accuracy, delivered):
    geoclue = FakeGeoClue(stage.system, Place(60.17, accuracy=accuracy))
    daemon = stage.consented_daemon()
    ready_engine.expect(wire.SuplServers)
    client = network_client(stage)
    assert client.wait_for_fix().valid is delivered
    assert daemon.has_message(finished(0)) and not daemon.has_message(FALLBACK)
    assert ready_engine.pending(wire.SuplRequest) == []
    geoclue.wait_idle()


def test_the_next_request_starts_afresh(stage):
    geoclue = FakeGeoClue(stage.system, HELSINKI)
    stage.consented_daemon()
    client = network_client(stage, interval=1000)
    client.wait_for_fix(near(60.17))
    geoclue.place = TAMPERE
    client.wait_for_fix(near(61.5))
    assert latitudes(client.fixes()) == [60.17, 61.5]


def test_a_request_that_is_outstanding_at_the_end_is_taken_back(stage):
    geoclue = FakeGeoClue(stage.system)
    daemon = stage.consented_daemon()
    network_client(stage)
    geoclue.wait_started()
    daemon.stop()
    geoclue.wait_idle()


# ---- what GeoClue does not find, and how

def nobody_there(_stage):
    return None


def no_agent(stage):
    return FakeGeoClue(stage.system, HELSINKI, agent=False)


def silence(stage):
    return FakeGeoClue(stage.system)


def an_old_fix_at_once(stage):
    return FakeGeoClue(stage.system, Place(60.17, age=3600))


def a_refusal(stage):
    return FakeGeoClue(stage.system, HELSINKI, denied=True)


def start_is_never_answered(stage):
    geoclue = FakeGeoClue(stage.system, HELSINKI)
    geoclue.hold("Start")
    return geoclue


def ended_in_time(daemon):
    """20 s by the daemon's clock, which runs ahead while the machine is busy."""
    return time_between(daemon, SENDING, HANDED_ON) < 30


@pytest.mark.parametrize("mood, error", [
    (nobody_there, -2105), (no_agent, -2105), (silence, -2105), (an_old_fix_at_once, -2105), (a_refusal, -2104),
    (start_is_never_answered, -2105),
], ids=lambda value: getattr(value, "__name__", ""))
def test_nothing_found_is_one_empty_fix_in_time(stage, mood, error):
    files.operator_settings(SuplFallback=False)
    geoclue = mood(stage)
    daemon = stage.consented_daemon(faketime="+0 x5")
    client = network_client(stage)
    wait_for_empty(client)
    assert daemon.has_message(finished(error), "Debug")
    assert daemon.has_message(f"VESKComm::veskRequestFinished request failed, err: {error}", "Warning")
    assert ended_in_time(daemon)
    client.latest_position()
    only_fix(client)
    assert daemon.messages().count(SENDING) == 1
    if geoclue:
        geoclue.release("CreateClient")
        geoclue.release("Start")
        geoclue.wait_idle()


@pytest.mark.parametrize("when", ["before a client is made", "before the search begins", "while it searches"])
def test_geoclue_disappears_in_the_middle_of_a_request(stage, when):
    files.operator_settings(SuplFallback=False)
    geoclue = FakeGeoClue(stage.system)
    held = {"before a client is made": "CreateClient", "before the search begins": "Start"}.get(when)
    if held:
        geoclue.hold(held)
    daemon = stage.consented_daemon(faketime="+0 x5")
    client = network_client(stage)
    if held:
        geoclue.calls.wait_for(held)
    else:
        geoclue.wait_started()
    geoclue.leave()
    wait_for_empty(client)
    assert daemon.has_message(finished(-2105)) and ended_in_time(daemon)
    client.latest_position()
    only_fix(client)


def test_location_is_switched_off_while_it_searches(stage):
    files.operator_settings(SuplFallback=False)
    geoclue = FakeGeoClue(stage.system)
    daemon = stage.consented_daemon(faketime="+0 x5")
    client = network_client(stage)
    geoclue.wait_started()
    geoclue.switch_off()
    wait_for_empty(client)
    client.latest_position()
    only_fix(client)
    assert daemon.has_message(finished(-2104)) and ended_in_time(daemon)
    assert daemon.messages().count(HANDED_ON) == 1
    geoclue.wait_idle()


def test_a_client_that_geoclue_makes_too_late_is_deleted(stage):
    files.operator_settings(SuplFallback=False)
    geoclue = FakeGeoClue(stage.system, HELSINKI, agent=False)
    stage.consented_daemon(faketime="+0 x5")
    client = network_client(stage)
    wait_for_empty(client)
    assert geoclue.created == 0
    geoclue.agent_arrives()
    wait_until(lambda: geoclue.created == 1, "GeoClue makes its client")
    geoclue.wait_idle()
    assert geoclue.started.items() == []
    only_fix(client)


def test_a_late_answer_within_the_time_out_is_a_fix(stage):
    geoclue = FakeGeoClue(stage.system, agent=False)
    stage.consented_daemon()
    client = network_client(stage)
    geoclue.calls.wait_for("CreateClient")
    geoclue.agent_arrives()
    geoclue.wait_started()
    geoclue.find(HELSINKI)
    assert client.wait_for_fix().latitude == 60.17
    geoclue.wait_idle()


def test_a_new_client_of_geoclue_gets_a_fresh_fix_behind_a_cached_one(stage):
    geoclue = FakeGeoClue(stage.system, Place(59.0, age=3600))
    stage.consented_daemon()
    client = network_client(stage)
    geoclue.wait_started()
    geoclue.find(HELSINKI)
    assert client.wait_for_fix().latitude == 60.17
    assert only_fix(client)
    geoclue.wait_idle()


@pytest.mark.parametrize("silent", ["CreateClient", "Start", "the search"])
def test_satellite_fixes_keep_arriving_while_geoclue_hangs(stage, silent):
    """Whoever waits for GeoClue must not make anybody else wait."""
    geoclue = FakeGeoClue(stage.system)
    geoclue.hold(silent)
    road = Road(stage)
    satellites = road.satellite_client()
    begin = time.monotonic()
    network_client(stage)
    longest = time.monotonic() - begin
    if silent == "the search":
        geoclue.wait_started()
    else:
        geoclue.calls.wait_for(silent)
    for number in range(100):
        begin = time.monotonic()
        road.fix(satellites, 10 + number / 10)
        satellites.wait_for_fix(near(10 + number / 10))
        longest = max(longest, time.monotonic() - begin)
    assert longest < 5  # a waiting daemon would take 20 s or more
    assert not any("veskRequestFinished" in text for text in road.daemon.messages())
    geoclue.release(silent)
    geoclue.wait_started()
    geoclue.find(HELSINKI)
    road.daemon.wait_for_message(finished(0))
    geoclue.wait_idle()
