"""Choosing between the internal and the external receiver while clients run, seen at both receivers' wires."""

import pytest

from harness import client as app
from harness import wire
from harness.gypsy import ADDRESS, FIX_3D, OTHER, Device, ExternalRoad, device_path
from harness.road import latitudes

INTERNAL, NAME_KEY = "SatellitePositioningInternal", "SatellitePositioningExternalName"
ADDRESS_KEY = "SatellitePositioningExternalAddress"
PLACE = Device.LATITUDE | Device.LONGITUDE


@pytest.fixture
def road(stage):
    """The external receiver is chosen."""
    return ExternalRoad(stage)


@pytest.fixture
def inside(stage):
    """The engine's receiver is chosen, the external one is known."""
    return ExternalRoad(stage, internal=True)


def engine_requests(road):
    """Command and session of what the engine was asked since the last look."""
    found = [(request.command, request.session) for request in road.engine.pending(wire.GnssRequest)]
    road.engine.skip()
    return found


def each(command, clients):
    return [(command, client.id) for client in clients]


def receiver_lines(road, after=0):
    """What both receivers were asked, in the order of the log."""
    starts = ("ORVComm::startGNSS", "ORVComm::stopGNSS", "GypsyComm::startS", "GypsyComm::stopS", "GypsyComm::shutdown")
    return [text for text in road.daemon.messages()[after:] if text.startswith(starts)]


def test_from_inside_to_outside_and_back(inside):
    """Every session ends on the old receiver, in the clients' order, before the first one starts on the new."""
    road = inside
    clients = [road.satellite_client() for _ in range(3)]
    idle = road.client(app.SATELLITE, extra=app.STOP)
    road.engine.skip()
    settings = road.stage.settings()
    assert road.asked() == []

    mark = len(road.daemon.messages())
    assert settings.set(INTERNAL, False)
    assert engine_requests(road) == each(wire.STOP, clients)
    assert road.asked()[:8] == [*road.set_up(), *road.session(), *road.session()]
    assert receiver_lines(road, mark) == [
        *(f"ORVComm::stopGNSS( {client.id} )" for client in clients), *3 * ["GypsyComm::startSession"]]
    road.device.position(PLACE, 0, 60.0, 25.0)
    road.settle(*clients, idle)
    assert [latitudes(client.fixes()) for client in clients] == 3 * [[60]]
    assert idle.fixes() == []

    road.asked()
    mark = len(road.daemon.messages())
    assert settings.set(INTERNAL, True)
    assert road.asked() == road.shut_down()
    assert engine_requests(road) == each(wire.START, clients)
    assert receiver_lines(road, mark) == [
        *3 * ["GypsyComm::stopSession"], "GypsyComm::shutdownGypsy",
        *(f"ORVComm::startGNSS( {client.id} , 1 )" for client in clients)]
    for client in clients:
        road.fix(client, 10)
    road.settle(*clients)
    assert [latitudes(client.fixes()) for client in clients] == 3 * [[60, 10]]


def test_the_end_of_the_receiver_starts_no_plan_inside_the_switch(road):
    """The fix status 0 that goes with the shutdown only sets the state: one plan, with the new receiver."""
    road.receiving()
    road.device.fix(FIX_3D)
    road.settle()
    mark = len(road.daemon.messages())
    assert road.stage.settings().set(INTERNAL, True)
    lines = road.daemon.messages()[mark:]
    assert lines.count("assignClients") == 1
    assert lines.index("Gypsy mode: Idle") < lines.index("assignClients")
    assert lines.index("assignClients") < lines.index("ORVComm::startGNSS( 6000 , 1 )")


@pytest.mark.parametrize("value", [False, 0, "false"])
def test_choosing_the_same_receiver_again_changes_nothing(road, value):
    road.receiving()
    road.asked()
    assert road.stage.settings().set(INTERNAL, value)
    road.settle()
    assert road.asked() == []
    assert engine_requests(road) == []


def test_the_external_receiver_without_an_address(stage):
    road = ExternalRoad(stage, internal=True, address="")
    client = road.satellite_client()
    settings = stage.settings()
    assert settings.set(INTERNAL, False)
    assert engine_requests(road) == each(wire.STOP, [client])
    assert not client.wait_for_fix().valid
    assert road.asked(lookups=True) == []
    assert settings.set(ADDRESS_KEY, ADDRESS)  # now there is one
    assert road.asked()[:4] == road.set_up()


def test_a_new_address_moves_the_running_sessions(road):
    clients = [road.receiving() for _ in range(2)]
    road.asked()
    mark = len(road.daemon.messages())
    assert road.stage.settings().set(ADDRESS_KEY, OTHER)
    asked = road.asked()
    assert asked[:7] == [*road.shut_down(), *road.set_up(OTHER), *road.session()]
    assert receiver_lines(road, mark) == [*2 * ["GypsyComm::stopSession"], "GypsyComm::shutdownGypsy",
                                          *2 * ["GypsyComm::startSession"]]
    road.gypsy.device(OTHER).position(PLACE, 0, 61.0, 25.0)
    road.settle(*clients)
    assert [latitudes(client.fixes()) for client in clients] == 2 * [[61]]
    assert engine_requests(road) == []
    for client in clients:
        client.stop()
    assert road.asked()[-1:] == road.shut_down(OTHER)


def test_the_same_address_again_connects_anew(road):
    road.receiving()
    road.asked()
    assert road.stage.settings().set(ADDRESS_KEY, ADDRESS)
    assert road.asked()[:5] == [*road.shut_down(), *road.set_up()]


def test_an_address_means_nothing_while_the_internal_receiver_is_chosen(inside):
    client = inside.satellite_client()
    inside.engine.skip()
    assert inside.stage.settings().set(ADDRESS_KEY, OTHER)
    inside.settle(client)
    assert engine_requests(inside) == []
    assert inside.asked() == []


def test_an_address_that_bluez_does_not_know_falls_back_to_the_internal_receiver(road):
    client = road.receiving()
    road.asked()
    settings = road.stage.settings()
    assert settings.set(ADDRESS_KEY, "00:00:00:00:00:01")
    assert road.asked() == road.shut_down()
    assert engine_requests(road) == each(wire.START, [client])
    assert settings.get(INTERNAL) is True
    assert settings.get(ADDRESS_KEY) == ""


@pytest.mark.parametrize("key, announced", [
    (NAME_KEY, [ADDRESS_KEY, INTERNAL, NAME_KEY]),  # the plan that follows the name's change reads the address
    (ADDRESS_KEY, [ADDRESS_KEY, INTERNAL]),
])
def test_reading_what_bluez_no_longer_knows_brings_the_internal_receiver_back(stage, key, announced):
    road = ExternalRoad(stage, chosen={NAME_KEY: "Mouse"})
    clients = [road.receiving() for _ in range(2)]
    road.asked()
    road.bluez.devices.clear()  # forgotten without a word
    settings = stage.settings()
    assert settings.get(key) == ""
    assert road.asked() == road.shut_down()
    assert sorted(engine_requests(road)) == each(wire.START, clients)
    assert settings.get(INTERNAL) is True
    assert settings.announced() == announced
    assert settings.get(ADDRESS_KEY) == ""


def test_satellites_off_and_on(road):
    client = road.receiving()
    road.asked()
    settings = road.stage.settings()
    assert settings.set("SatellitePositioning", False)
    assert road.asked() == road.shut_down()
    assert settings.set("SatellitePositioning", True)
    assert road.asked()[:4] == road.set_up()
    assert settings.set("Positioning", False)
    assert road.asked()[-1:] == road.shut_down()
    assert client.wait_for_settings(0)
    assert engine_requests(road) == []


def test_a_reset_of_all_settings_brings_the_internal_receiver_back(road):
    """Its key comes before the address, which nobody looks up any more."""
    clients = [road.receiving() for _ in range(2)]
    road.asked()
    settings = road.stage.settings()
    assert settings.reset()
    assert road.asked(lookups=True) == road.shut_down()
    assert engine_requests(road) == each(wire.START, clients)
    assert settings.announced() == [INTERNAL, ADDRESS_KEY]


def test_the_engine_going_away_does_not_touch_the_external_receiver(stage):
    road = ExternalRoad(stage)
    client = road.receiving()
    road.asked()
    road.engine.disconnect()
    road.engine.expect(wire.SuplServers)  # it is back
    road.device.position(PLACE, 0, 60.0, 25.0)
    assert client.wait_for_fix().latitude == 60
    client.stop()
    assert f"Shutdown {device_path(ADDRESS)}" in road.asked()
