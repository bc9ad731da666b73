"""Who is asked for a network position, how often, and what the user's settings allow."""

import pytest

from harness import client as app
from harness import files, wire
from harness.geoclue import NEIGHBOURHOOD, STREET, FakeGeoClue, FakeNetworkManager
from harness.mailbox import wait_until
from harness.network import (FALLBACK, HANDED_ON, HELSINKI, HOUR, SENDING, TAMPERE, finished, network_client, only_fix,
                             wait_for_empty)
from harness.road import EMPTY_FIX, Road, latitudes, near

FREE_FIX = 666000


# ---- when GeoClue does not know: SUPL through the engine

def test_an_unknown_location_is_asked_of_the_engine(stage):
    road = Road(stage, geoclue=False)
    client = network_client(stage)
    request = road.engine.expect(wire.SuplRequest)
    assert request.parameter == 20
    assert road.lines("PositionDaemon::onPositionUpdateVESK") == [FALLBACK]
    road.settle(client)
    assert client.callbacks.items() == [] and not road.daemon.has_message(HANDED_ON)
    road.supl(48.2, 16.4)
    fix = client.wait_for_fix()
    assert (fix.latitude, fix.longitude) == (pytest.approx(48.2), pytest.approx(16.4))
    road.settle(client)
    only_fix(client)
    assert road.engine.pending(wire.SuplRequest) == []


def test_the_engine_may_not_know_either(stage):
    road = Road(stage, geoclue=False)
    client = network_client(stage)
    road.engine.expect(wire.SuplRequest)
    road.engine.send(wire.supl_response(1))
    wait_for_empty(client)
    road.settle(client)
    only_fix(client)


def test_without_the_fallback_the_empty_fix_goes_out(stage):
    files.operator_settings(SuplFallback=False)
    road = Road(stage, geoclue=False)
    client = network_client(stage)
    wait_for_empty(client)
    road.settle(client)
    only_fix(client)
    assert road.engine.all(wire.SuplRequest) == [] and not road.daemon.has_message(FALLBACK)


def test_only_an_unknown_location_is_asked_of_the_engine(stage):
    geoclue = FakeGeoClue(stage.system, denied=True)
    road = Road(stage)
    client = network_client(stage)
    wait_for_empty(client)
    road.settle(client)
    assert road.engine.all(wire.SuplRequest) == [] and not road.daemon.has_message(FALLBACK)
    geoclue.wait_idle()


def test_an_engine_that_is_not_there_is_not_asked(stage):
    daemon = stage.consented_daemon()
    client = network_client(stage)
    wait_for_empty(client)
    only_fix(client)
    assert not daemon.has_message(FALLBACK)


def test_an_engine_that_is_not_ready_is_not_asked(stage, ready_engine):
    """Time runs slowly here: the engine is connected, and has its half second to get ready."""
    daemon = stage.consented_daemon(faketime="+0 x0.1")
    client = network_client(stage)
    wait_for_empty(client)
    assert not daemon.has_message(FALLBACK)
    assert [type(message) for message in ready_engine.all()] == [wire.RegisterPrivacy]


def test_without_an_internal_receiver_nobody_else_is_asked(stage, ready_engine):
    files.sysinfo(files.INTERNAL_GPS, b"\0")
    daemon = stage.consented_daemon()
    client = network_client(stage)
    wait_for_empty(client)
    only_fix(client)
    assert not daemon.has_message(FALLBACK)
    assert ready_engine.connections.items() == []


def test_an_engine_that_goes_before_it_answers_leaves_an_empty_fix(stage):
    road = Road(stage, geoclue=False)
    client = network_client(stage, interval=2000)
    other = network_client(stage)
    road.engine.expect(wire.SuplRequest)
    FakeGeoClue(stage.system, HELSINKI)
    road.engine.refuse()
    road.engine.disconnect()
    wait_for_empty(client)
    wait_for_empty(other)
    # The batch was taken: the next one is asked for, and this time there is somebody to find it.
    client.wait_for_fix(near(60.17))
    assert len(road.lines(SENDING)) == 2


# ---- riding on satellites

def test_network_clients_move_onto_a_satellite_fix_and_back(stage):
    geoclue = FakeGeoClue(stage.system, HELSINKI)
    road = Road(stage)
    satellites = road.satellite_client()
    client = network_client(stage, interval=1000)
    client.wait_for_fix(near(60.17))

    road.fix(satellites, 45)
    road.engine.expect(wire.GnssRequest, command=wire.START, session=client.id)
    road.fix(client, 45.5)
    client.wait_for_fix(near(45.5))
    road.settle(client)
    assert f"Scheduler::removeClient: id: {client.id}" in road.lines("Scheduler::removeClient")
    geoclue.wait_idle()
    geoclue.place = TAMPERE

    road.report(satellites, status=wire.NO_FIX)
    road.engine.expect(wire.GnssRequest, command=wire.STOP, session=client.id)
    client.wait_for_fix(near(61.5))
    geoclue.wait_idle()


# ---- what the user allows

@pytest.mark.parametrize("wifi, cellular, level", [(True, True, STREET), (True, False, STREET),
                                                   (False, True, NEIGHBOURHOOD)])
def test_geoclue_is_asked_for_no_more_than_the_user_allows(stage, wifi, cellular, level):
    files.user_settings(WiFiPositioning=wifi, CellularPositioning=cellular)
    geoclue = FakeGeoClue(stage.system, HELSINKI)
    daemon = stage.consented_daemon()
    client = network_client(stage)
    client.wait_for_fix()
    asked = geoclue.wait_started()
    assert (asked.desktop_id, asked.level) == ("lodestard", level)
    assert daemon.has_message(f"VESKComm::requestPositionVESK wifi: {wifi:d}, cellular: {cellular:d}, gprs: 1, timeout: 20")


def test_a_change_of_the_settings_holds_from_the_next_request(stage):
    geoclue = FakeGeoClue(stage.system, HELSINKI)
    stage.consented_daemon()
    network_client(stage, interval=1000).wait_for_fix()
    assert stage.settings().set("WiFiPositioning", False)
    wait_until(lambda: geoclue.started.items()[-1].level == NEIGHBOURHOOD, "GeoClue is asked for cells only")


@pytest.mark.parametrize("connection, metered, found", [("gsm", False, False), ("cdma", False, False),
                                                        ("802-11-wireless", True, False),
                                                        ("802-11-wireless", False, True)])
def test_without_connectivity_no_packet_data_is_used(stage, connection, metered, found):
    files.user_settings(NetworkConnectivity=False)
    geoclue = FakeGeoClue(stage.system, HELSINKI)
    FakeNetworkManager(stage.system, connection, metered)
    daemon = stage.consented_daemon()
    client = network_client(stage)
    assert client.wait_for_fix().valid is found
    only_fix(client)
    assert daemon.has_message("VESKComm::requestPositionVESK wifi: 1, cellular: 1, gprs: 0, timeout: 20")
    assert daemon.has_message(finished(0 if found else -2107))
    geoclue.wait_idle()
    assert len(geoclue.started) == found


def test_with_neither_radio_geoclue_is_not_asked(stage):
    files.user_settings(WiFiPositioning=False, CellularPositioning=False)
    geoclue = FakeGeoClue(stage.system, HELSINKI)
    daemon = stage.consented_daemon()
    client = network_client(stage)
    client.latest_position()
    assert not daemon.has_message(SENDING)
    assert geoclue.created == 0


# ---- period by period

def test_a_repeated_fix_is_kept_from_who_has_it(stage):
    geoclue = FakeGeoClue(stage.system, HELSINKI)
    daemon = stage.consented_daemon()
    first = network_client(stage, interval=1000)
    first.wait_for_fix()
    update = f"Sending update to ClientId:  {first.id}"
    daemon.wait_for_message(update, count=2)
    second = network_client(stage, interval=1000)  # for whom it is news
    second.wait_for_fix(near(60.17))
    daemon.wait_for_message(update, after=daemon.mark(), count=1)
    geoclue.place = TAMPERE
    for client in (first, second):
        client.wait_for_fix(near(61.5))
    assert latitudes(first.fixes()) == latitudes(second.fixes()) == [60.17, 61.5]


def test_every_period_without_geoclue_ends_in_an_empty_fix(stage):
    """A client is told once; one that rides on what others ask for hears it each time."""
    files.operator_settings(SuplFallback=False)
    daemon = stage.consented_daemon()
    rider = stage.client()
    rider.register()
    rider.configure(app.SET_METHOD | app.SET_INTERVAL, app.NON_SATELLITE, FREE_FIX)
    client = network_client(stage, interval=1000)
    rider.wait_for_fix(count=3)
    assert len([line for line in daemon.messages() if line == SENDING]) >= 3
    assert all(callback.value == EMPTY_FIX for callback in rider.callbacks.items())
    only_fix(client)
    assert client.fixes()[0].valid is False
    FakeGeoClue(stage.system, HELSINKI)  # it comes back
    client.wait_for_fix(near(60.17))
    rider.wait_for_fix(near(60.17))


def test_a_request_too_many_leaves_the_batch_to_the_outstanding_one(stage):
    geoclue = FakeGeoClue(stage.system)
    road = Road(stage)
    client = network_client(stage, interval=1000)
    geoclue.wait_started()
    road.supl(48.2)  # nobody asked the engine, yet it takes the batch
    client.wait_for_fix(lambda fix: fix.latitude == pytest.approx(48.2))
    road.daemon.wait_for_message("VESKComm::requestPositionVESK request failed, err: -2101", "Warning")
    geoclue.find(HELSINKI)
    client.wait_for_fix(near(60.17))
    road.settle(client)
    assert len(client.fixes()) == 2
    assert geoclue.created == 1


def test_an_outstanding_request_is_still_good_when_supl_is_forced(stage):
    geoclue = FakeGeoClue(stage.system)
    road = Road(stage)
    client = network_client(stage, interval=2000)
    geoclue.wait_started()
    assert stage.settings().set("SuplForced", True)
    geoclue.find(HELSINKI)
    client.wait_for_fix(near(60.17))
    assert road.engine.expect(wire.SuplRequest).parameter == 20  # the next one is the engine's
    geoclue.wait_idle()
    assert geoclue.created == 1


def test_radios_that_were_off_for_a_while_find_positions_again(stage):
    """An application that left is still asked for, and with both radios off there is nobody to ask."""
    geoclue = FakeGeoClue(stage.system, HELSINKI)
    daemon = stage.consented_daemon()
    gone, client = network_client(stage, interval=1000), stage.client()
    gone.wait_for_fix()
    gone.vanish()
    settings = stage.settings()
    assert settings.set("WiFiPositioning", False) and settings.set("CellularPositioning", False)
    daemon.wait_for_message("VESKComm::requestPositionVESK wifi: 0, cellular: 0, gprs: 1, timeout: 20")
    assert settings.set("WiFiPositioning", True)
    client.start(app.NON_SATELLITE, HOUR)
    assert client.wait_for_fix().latitude == 60.17
    geoclue.wait_idle()
