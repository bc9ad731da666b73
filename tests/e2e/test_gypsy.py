"""An external Bluetooth receiver: its sessions, and what its reports become for the clients."""

import math
import time
from datetime import datetime

import pytest

from harness import client as app
from harness import files, stream, wire
from harness.gypsy import (ADDRESS, FIX_2D, FIX_3D, NO_FIX, OTHER, Device, ExternalRoad, FakeGypsy, WilfulBluez,
                           device_path)
from harness.road import latitudes, satellite_list, single, stamp

GIVEN = 1316608496  # a time stamp of Gypsy's, seconds since 1970
PLACE = Device.LATITUDE | Device.LONGITUDE
SATELLITES = app.SATINFO_START


@pytest.fixture
def road(stage):
    return ExternalRoad(stage)


def engine_requests(road):
    return road.engine.all(wire.GnssRequest)


# ---- sessions

def test_the_first_session_sets_the_receiver_up(road):
    client = road.receiving()
    assert road.asked() == [*road.set_up(), f"GetFixStatus {device_path(ADDRESS)}"]
    assert road.lines("GypsyComm::") == [
        "GypsyComm::startSession", "GypsyComm::setupBluetoothConnection", "GypsyComm::createGypsy",
        "GypsyComm::startGypsy", "GypsyComm::connectionStatusChanged conn_status=1", "GypsyComm::getFixStatus",
        "GypsyComm::fixStatusChanged fix_status=0"]
    assert road.lines("Gypsy mode: ") == ["Gypsy mode: Idle"]
    assert engine_requests(road) == []
    assert client.fixes() == []


def test_the_receiver_is_looked_up_before_it_is_used(road):
    road.receiving()
    asked = road.asked(lookups=True)
    lookup = ["DefaultAdapter /", f"FindDevice {ADDRESS}"]
    # The request's plan with the session in it, then the plan of the fix status.
    assert asked == [*lookup, *road.set_up(), f"GetFixStatus {device_path(ADDRESS)}", *lookup]


def test_a_second_session_shares_the_receiver_and_the_last_one_ends_it(road):
    first = road.receiving()
    road.asked()
    second = road.receiving()
    assert road.asked() == road.session()
    first.stop()
    assert road.asked() == []
    second.stop()
    assert road.asked() == road.shut_down()
    assert road.lines("GypsyComm::s")[-3:] == ["GypsyComm::stopSession", "GypsyComm::stopSession",
                                               "GypsyComm::shutdownGypsy"]
    road.settle()
    assert road.lines("Gypsy mode: ")[-1] == "Gypsy mode: Idle"
    assert engine_requests(road) == []


def test_a_client_starts_again(road):
    client = road.receiving()
    for _ in range(3):
        road.asked()
        client.stop()
        assert road.asked() == road.shut_down()
        client.configure(app.START)
        road.settle()
        assert road.asked() == [*road.set_up(), f"GetFixStatus {device_path(ADDRESS)}"]


def test_a_new_interval_asks_nothing(road):
    client = road.receiving()
    road.asked()
    client.configure(app.SET_INTERVAL, interval=9000)
    client.configure(app.SET_METHOD, app.ALL)
    road.settle()
    assert road.asked() == []
    assert engine_requests(road) == []


def test_a_client_that_leaves_stops_nothing(road):
    """Its session stays, and so does the receiver's address: another one is refused."""
    client = road.receiving()
    client.vanish()
    road.daemon.wait_for_message("PositionDaemon: Removing client with id: 6000")
    road.asked()
    road.device.position(PLACE, 0, 1.0, 2.0)
    road.settle()
    assert road.asked() == []
    assert road.daemon.messages("Critical") == [
        "PositionDaemon::onPositionUpdateGNSS: Invalid GNSS session id from ORV."]
    assert road.stage.settings().set("SatellitePositioningExternalAddress", OTHER)
    mark = len(road.lines("GypsyComm::"))
    road.receiving()
    assert road.lines("GypsyComm::")[mark:] == ["GypsyComm::startSession"]
    assert road.asked() == []


def test_clients_that_ask_for_nothing_of_satellites_leave_it_alone(road):
    road.client(app.NON_SATELLITE)
    road.settle()
    assert road.asked() == []
    assert road.lines("GypsyComm::") == []


def test_without_an_address_there_are_no_satellites(stage):
    road = ExternalRoad(stage, address="")
    client = road.client(app.SATELLITE)
    assert not client.wait_for_fix().valid  # nothing is available
    road.settle()
    assert road.asked(lookups=True) == []
    assert road.daemon.has_message("Could not find any available location methods")


def test_without_an_internal_receiver_the_external_one_serves(stage):
    """There is no engine link at all."""
    files.sysinfo(files.INTERNAL_GPS, b"\0")
    files.marker("location_ok")
    files.user_settings(SatellitePositioningInternal=False, SatellitePositioningExternalAddress=ADDRESS)
    WilfulBluez(stage.system, [ADDRESS])
    gypsy = FakeGypsy(stage.system)
    daemon, client = stage.daemon(), stage.client()
    client.start(app.SATELLITE)
    # Nobody tells that the engine is ready, and an external receiver need not wait for it.
    daemon.wait_for_message("GypsyComm::fixStatusChanged fix_status=0")
    gypsy.device().position(PLACE, GIVEN, 60.0, 25.0)
    assert client.wait_for_fix().latitude == 60
    client.stop()
    assert [call[2] for call in gypsy.calls.items()] == ["Create", "Start", "GetFixStatus", "Shutdown"]


# ---- fixes

def test_a_sentence_of_each_kind(road):
    """Each signal is a fix that has what was known by then."""
    client = road.receiving(interval=3000)
    road.device.rmc(GIVEN, 60.17, 24.94, speed=10.0, direction=271.3)
    road.device.gga(GIVEN + 1, 60.18, 24.94, 25.5, hdop=1.2, climb=0.5)
    road.settle(client)
    speed, heading = single(10 * 1.852 / 3.6), single(271.3)
    first, second = (single(60.17), single(24.94)), (single(60.18), single(24.94))
    moving = {stream.GROUND_SPEED: speed, stream.DIRECTION: heading}
    climbing = {stream.VERTICAL_SPEED: 0.5}
    found = [((fix.latitude, fix.longitude), None if math.isnan(fix.altitude) else fix.altitude, fix.attributes)
             for fix in client.fixes()]
    assert found == [
        (first, None, {}), (first, None, moving),                                     # RMC
        (first, None, climbing), (second, 25.5, climbing),                            # GGA
        (second, 25.5, {**climbing, stream.HORIZONTAL_ACCURACY: 6.0})]
    assert all(fix.valid for fix in client.fixes())
    assert speed == pytest.approx(5.144444, abs=1e-6)
    assert road.lines("Gypsy mode: ") == ["Gypsy mode: Idle", "Gypsy mode: Fix", "Gypsy mode: Fix"]


def test_a_receiver_that_tells_of_its_quality_only(road):
    """GSA says the status again, which is no news, and the dilutions, of which one is used."""
    client = road.receiving(interval=3000)
    road.device.gga(GIVEN, 60.0, 25.0, 25.5, hdop=2.0)
    for hdop in (0.0, 0.0, 1.5):
        road.device.gsa(FIX_3D, 2.2, hdop)
    road.settle(client)
    accuracies = [fix.attributes.get(stream.HORIZONTAL_ACCURACY) for fix in client.fixes()]
    assert accuracies == [None, 10, 0, 7.5]
    assert all(stream.VERTICAL_ACCURACY not in fix.attributes for fix in client.fixes())
    assert road.lines("Gypsy mode: ") == ["Gypsy mode: Idle", "Gypsy mode: Fix"]


def test_every_session_gets_every_fix_in_the_order_of_the_clients(road):
    clients = [road.receiving() for _ in range(3)]
    for number in range(1, 6):
        road.device.position(PLACE, GIVEN + number, float(number), 8.5)
    road.settle(*clients)
    for client in clients:
        assert latitudes(client.fixes()) == [1, 2, 3, 4, 5]
    assert road.lines("Sending GNSS fix to ClientId: ") == 5 * [
        f"Sending GNSS fix to ClientId: {client.id}" for client in clients]


def test_the_bytes_of_a_fix(road):
    client = road.receiving(interval=3000)
    road.device.position(PLACE | Device.ALTITUDE, GIVEN, 60.169856, 24.938379, 25.5)
    road.settle(client)
    data = client.received("positionUpdate")[0].value
    local = datetime.fromtimestamp(GIVEN)
    assert stamp(stream.read_fix(data)) == local
    assert data[9:] == bytes.fromhex("404E15BDD76683C3 4038F0399B2C40D1 4039800000000000 00000000")


def test_half_a_position_keeps_the_place_and_brings_a_new_stamp(road):
    client = road.receiving()
    road.device.position(PLACE, GIVEN, 60.0, 25.0)
    road.device.position(Device.LATITUDE, GIVEN + 7, 61.0, 26.0)
    road.settle(client)
    fixes = client.fixes()
    assert [(fix.latitude, fix.longitude) for fix in fixes] == 2 * [(60, 25)]
    assert [stamp(fix) for fix in fixes] == [datetime.fromtimestamp(GIVEN), datetime.fromtimestamp(GIVEN + 7)]


def test_without_a_date_of_gypsys_the_daemons_clock_stamps(road):
    client = road.receiving()
    before = time.time()
    road.device.position(PLACE, 0, 60.0, 25.0)
    road.device.course(Device.DIRECTION, 0, 0.0, 90.0)
    road.settle(client)
    after = time.time()
    for fix in client.fixes():
        assert before - 0.001 <= stamp(fix).timestamp() <= after


def test_an_accuracy_leaves_the_stamp(road):
    client = road.receiving()
    road.device.position(PLACE, GIVEN, 60.0, 25.0)
    road.device.accuracy(Device.PDOP | Device.HDOP | Device.VDOP, 9.0, 1.1, 2.3)
    road.device.accuracy(Device.PDOP, 9.0, 1.1, 2.3)
    road.settle(client)
    assert {stamp(fix) for fix in client.fixes()} == {datetime.fromtimestamp(GIVEN)}
    assert [fix.attributes for fix in client.fixes()] == [
        {}, {stream.HORIZONTAL_ACCURACY: single(1.1 * 5), stream.VERTICAL_ACCURACY: single(2.3 * 5)}, {}]


@pytest.mark.parametrize("climb", [math.inf, -math.inf, math.nan])
def test_a_climb_that_is_no_number_is_left_out(road, climb):
    client = road.receiving(interval=3000)
    road.device.course(7, GIVEN, 0.0, 90.0, climb)
    road.settle(client)
    assert client.fixes()[0].attributes == {stream.GROUND_SPEED: 0, stream.DIRECTION: 90}


def test_a_lent_ground_speed_does_not_stay_in_the_receivers_fix(road):
    """The engine's rule holds here too: a missing speed is lent twice and no more."""
    client = road.receiving(interval=1000)
    road.device.position(PLACE, GIVEN, 60.0, 25.0)
    for speed in (10.0, 20.0):
        road.device.course(Device.SPEED, GIVEN, speed, 0.0)
    for number in range(4):
        road.device.course(0, GIVEN + number, 0.0, 0.0)
    road.settle(client)
    speeds = [fix.attributes.get(stream.GROUND_SPEED) for fix in client.fixes()]
    ten, twenty = (single(knots * 1.852 / 3.6) for knots in (10, 20))
    assert speeds == [None, ten, twenty, twenty, twenty, None, None]


def test_the_latest_position_is_the_external_receivers(road):
    client = road.receiving()
    road.device.position(PLACE, GIVEN, 60.0, 25.0)
    road.settle(client)
    assert client.latest_position(True) == client.received("positionUpdate")[-1].value


def test_a_free_fix_client_lives_on_the_external_receiver(road):
    free = road.client(app.SATELLITE, 666000, app.STOP)
    road.receiving()
    for latitude in (1.0, 1.0, 2.0):
        road.device.position(PLACE, GIVEN, latitude, 8.5)
    road.settle(free)
    assert latitudes(free.fixes()) == [1, 2]


def test_a_stopped_clients_session_gets_nothing(road):
    client, other = road.receiving(), road.receiving()
    client.stop()
    road.device.position(PLACE, GIVEN, 60.0, 25.0)
    road.settle(client, other)
    assert client.fixes() == []
    assert latitudes(other.fixes()) == [60]


# ---- the receiver's state

def test_a_fix_takes_the_network_session_away_and_its_loss_brings_it_back(road):
    client = road.receiving(app.ALL)
    wanted = f"startSessions: client: id={client.id}, stopped=0, methods="
    for status, mode, methods in ((NO_FIX, "Search", "0xffffffff"), (FIX_2D, "Fix", "0xff"), (FIX_3D, "Fix", "0xff"),
                                  (NO_FIX, "Search", "0xffffffff"), (0, "Idle", "0xffffffff")):
        road.device.fix(status)
        road.settle()
        assert road.lines("Gypsy mode: ")[-1] == f"Gypsy mode: {mode}"
        assert road.lines(wanted)[-1].startswith(f"{wanted}{methods},")


def test_a_network_client_rides_on_the_external_receivers_fix(road):
    road.receiving()
    network = road.client(app.NON_SATELLITE)
    road.device.fix(FIX_3D)
    road.settle()
    road.device.position(PLACE, GIVEN, 60.0, 25.0)
    road.settle(network)
    assert latitudes(network.fixes()) == [60]
    road.asked()
    road.device.fix(NO_FIX)
    road.settle()
    road.device.position(PLACE, GIVEN, 61.0, 25.0)
    road.settle(network)
    assert latitudes(network.fixes()) == [60]  # its session on the receiver has ended
    assert road.asked() == []                  # the other one's has not


def test_a_lost_fix_makes_no_fix_up(road):
    """A receiver that stands still says nothing either."""
    client = road.receiving(interval=3000)
    for _ in range(3):
        road.device.rmc(GIVEN, 60.0, 25.0, speed=0.0, direction=0.0)
    road.settle(client)
    assert len(client.fixes()) == 2
    road.device.rmc(GIVEN, 60.0, 25.0, speed=0.0, direction=0.0, status=NO_FIX)
    road.settle(client)
    assert len(client.fixes()) == 2
    assert road.lines("Gypsy mode: ")[-1] == "Gypsy mode: Search"


def test_a_receiver_that_has_its_fix_already_says_so_when_asked(road):
    road.device.fix_status = FIX_3D
    road.receiving()
    assert road.lines("Gypsy mode: ") == ["Gypsy mode: Fix"]


# ---- satellites

def test_satellites_reach_those_who_want_them(road):
    curious, other = road.receiving(extra=SATELLITES), road.receiving()
    road.device.satellites((7, True, 63, 311, 42), (32, False, 5, 10, 0), (120, True, 90, 0, 51))
    road.device.satellites()
    road.settle(curious, other)
    rows = [(7, 42, {stream.AZIMUTH: 311, stream.ELEVATION: 63}), (32, 0, {stream.AZIMUTH: 10, stream.ELEVATION: 5}),
            (120, 51, {stream.AZIMUTH: 0, stream.ELEVATION: 90})]
    found = [(call.method, [(s.prn, s.signal, s.attributes) for s in call.satellites])
             for call in curious.callbacks.items() if call.method.startswith("satellites")]
    assert found == [("satellitesInViewUpdate", rows), ("satellitesInUseUpdate", [rows[0], rows[2]]),
                     ("satellitesInViewUpdate", []), ("satellitesInUseUpdate", [])]
    assert curious.received("satellitesInUseUpdate")[1].value == satellite_list()
    assert other.received("satellitesInViewUpdate") == other.received("satellitesInUseUpdate") == []
    assert road.lines("GypsyComm::satellitesChanged") == ["GypsyComm::satellitesChanged size=3",
                                                          "GypsyComm::satellitesChanged size=0"]
