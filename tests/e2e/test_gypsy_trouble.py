"""An external receiver that fails, goes away and comes back; a Gypsy and a bluez that refuse or take their time."""

import threading

import pytest

from harness import client as app
from harness import wire
from harness.gypsy import ADDRESS, FIX_3D, OTHER, OWN_ERROR, Device, ExternalRoad, device_path
from harness.road import latitudes, time_between

PLACE = Device.LATITUDE | Device.LONGITUDE
PATH = device_path(ADDRESS)
REMOVED = "Currently used bluetooth device has been removed. Stopping gypsy."
FAST = "+0 x10"  # 15 s pass in one and a half, the bus library's time-out in two and a half


@pytest.fixture
def road(stage):
    return ExternalRoad(stage)


def warnings(road):
    return road.daemon.messages("Warning")


def starting(client, *arguments):
    """A request on a thread of its own, since the daemon may not answer it for a while."""
    client.register()
    thread = threading.Thread(target=client.start, args=arguments, daemon=True)
    thread.start()
    return thread


def finished(thread):
    thread.join(20)
    return not thread.is_alive()


def asked_names(road):
    return [word.split()[0] for word in road.asked()]


# ---- refusals

@pytest.mark.parametrize("peer, method, answered, error, warning, asked", [
    # The plan's own question comes first and is answered; the session's is not.
    ("bluez", "DefaultAdapter", 1, "org.bluez.Error.NoSuchAdapter", "Could not find default bluetooth adapter", []),
    ("bluez", "RequestSession", 0, "org.bluez.Error.Rejected", "Bluetooth session rejected",
     ["DefaultAdapter", "RequestSession"]),
    ("gypsy", "Create", 0, OWN_ERROR, 'Gypsy session creation failed:  "Not today"',
     ["DefaultAdapter", "RequestSession", "Create"]),
    ("gypsy", "Start", 0, OWN_ERROR, 'Gypsy session starting failed:  "Not today"',
     ["DefaultAdapter", "RequestSession", "Create", "Start", "Shutdown"]),
], ids=["no adapter", "rejected", "not created", "not started"])
def test_a_start_that_is_refused(road, peer, method, answered, error, warning, asked):
    """One line, and nothing more: the session counts as running until the client stops and starts."""
    getattr(road, peer).refuse(method, error, "Not today", answered)
    client = road.receiving()
    assert warnings(road) == [warning]
    assert asked_names(road) == asked
    getattr(road, peer).obey(method)
    client.configure(app.SET_INTERVAL, interval=4000)
    client.stop()
    assert asked_names(road) == []
    client.configure(app.START)
    road.device.position(PLACE, 0, 60.0, 25.0)
    road.settle(client)
    assert road.asked()[:4] == road.set_up()
    assert latitudes(client.fixes()) == [60]
    assert warnings(road) == [warning]
    assert road.engine.all(wire.GnssRequest) == []


def test_a_refused_start_reports_the_end(road):
    road.gypsy.refuse("Start", OWN_ERROR, "Not today")
    road.receiving()
    assert road.lines("GypsyComm::")[-3:] == [
        "GypsyComm::startGypsy", "GypsyComm::shutdownGypsy", "GypsyComm::fixStatusChanged fix_status=0"]
    assert road.lines("Gypsy mode: ") == ["Gypsy mode: Idle"]


def test_a_second_client_that_is_rejected_leaves_the_first_alone(road):
    first = road.receiving()
    road.bluez.refuse("RequestSession", "org.bluez.Error.Rejected", "Rejected")
    second = road.receiving()
    assert warnings(road) == ["Bluetooth session rejected"]
    road.asked()
    road.device.position(PLACE, 0, 60.0, 25.0)
    road.settle(first, second)
    assert (latitudes(first.fixes()), second.fixes()) == ([60], [])
    second.stop()
    assert road.asked() == []
    first.stop()
    assert road.asked() == road.shut_down()


def test_a_fix_status_that_cannot_be_told_is_only_logged(road):
    road.gypsy.refuse("GetFixStatus", OWN_ERROR, "Who knows")
    client = road.receiving()
    assert warnings(road) == ['Getting fix status from Gypsy failed:  "Who knows"']
    assert road.lines("Gypsy mode: ") == []
    road.device.position(PLACE, 0, 60.0, 25.0)
    assert client.wait_for_fix().latitude == 60


def test_a_shutdown_that_fails(road):
    client = road.receiving()
    road.gypsy.refuse("Shutdown", OWN_ERROR, "Not mine")
    client.stop()
    assert warnings(road) == ['Gypsy session shutdown failed:  "Not mine"']
    road.asked()
    client.configure(app.START)
    assert road.asked()[:4] == road.set_up()


@pytest.mark.parametrize("missing, warning", [
    ("gypsy", 'Gypsy session creation failed:  "The name org.freedesktop.Gypsy was not provided by any .service files"'),
    ("bluez", "Could not find default bluetooth adapter"),
])
def test_a_service_that_does_not_run(road, missing, warning):
    getattr(road, missing).leave()
    road.client()
    assert warnings(road) == [warning]
    assert road.daemon.is_running()


# ---- connections

def test_a_lost_connection_is_retried_once_after_15_seconds(stage):
    road = ExternalRoad(stage, faketime=FAST)
    client = road.receiving(app.SATELLITE)
    road.device.fix(FIX_3D)
    road.settle()
    road.asked()
    road.device.connected(False)
    road.settle()
    assert road.asked() == []
    assert road.lines("Gypsy mode: ")[-1] == "Gypsy mode: Idle"
    road.daemon.wait_for_message("GypsyComm::restartGypsy")
    waited = time_between(road.daemon, "connectionStatusChanged conn_status=0", "GypsyComm::restartGypsy")
    assert 14 <= waited <= 60  # the lines' clock shows whole seconds
    road.settle()
    assert road.asked() == [f"Start {PATH}", f"GetFixStatus {PATH}"]  # no Create; Gypsy reports the connection
    road.device.position(PLACE, 0, 60.0, 25.0)
    road.settle(client)
    assert latitudes(client.fixes()) == [60]
    assert road.lines("Gypsy mode: ")[-1] == "Gypsy mode: Fix"  # as Gypsy has it still


def test_a_retry_that_fails_is_the_only_one(stage):
    road = ExternalRoad(stage, faketime=FAST)
    road.receiving(app.SATELLITE)
    road.asked()
    road.gypsy.refuse("Start", OWN_ERROR, "Out of reach")
    road.device.connected(False)
    road.daemon.wait_for_message('Gypsy session starting failed:  "Out of reach"', "Warning")
    road.client(app.NON_SATELLITE).prestart(False, True)  # which lasts 15 s: as long as another retry takes
    road.daemon.wait_for_message("PositionDaemon::removePrestartClient")
    assert road.asked() == [f"Start {PATH}"]
    assert road.lines("GypsyComm::restartGypsy") == ["GypsyComm::restartGypsy"]
    road.device.connected(False)  # a new loss: a new retry
    road.daemon.wait_for_message('Gypsy session starting failed:  "Out of reach"', "Warning", count=2)
    assert road.asked() == [f"Start {PATH}"]


def test_a_connection_that_comes_back_by_itself_is_not_restarted(stage):
    road = ExternalRoad(stage, faketime=FAST)
    road.receiving(app.SATELLITE)
    road.asked()
    road.device.connected(False)
    road.device.connected(True)
    road.client(app.NON_SATELLITE).prestart(False, True)
    road.daemon.wait_for_message("PositionDaemon::removePrestartClient")
    assert road.asked() == [f"GetFixStatus {PATH}"]


def test_a_connection_lost_without_sessions_is_not_restarted(stage):
    road = ExternalRoad(stage, faketime=FAST)
    road.device.connected(False)
    road.settle()
    assert road.lines("Gypsy") == ["GypsyComm::connectionStatusChanged conn_status=0",
                                   "GypsyComm::fixStatusChanged fix_status=0", "Gypsy mode: Idle"]
    road.client(app.NON_SATELLITE).prestart(False, True)
    road.daemon.wait_for_message("PositionDaemon::removePrestartClient")
    assert road.lines("GypsyComm::restartGypsy") == []


def test_a_receiver_that_was_shut_down_goes_on_for_a_while(road):
    client = road.receiving()
    client.stop()
    road.asked()
    road.device.position(PLACE, 0, 60.0, 25.0)
    road.device.connected(False)
    road.settle(client)
    assert client.fixes() == []
    assert road.asked() == []
    assert warnings(road) == [] and road.daemon.messages("Critical") == []


# ---- removed receivers

def test_a_removed_receiver_gives_way_to_the_internal_one(road):
    clients = [road.receiving() for _ in range(2)]
    road.asked()
    road.bluez.remove_device(ADDRESS)
    started = [road.engine.expect(wire.GnssRequest).session for _ in clients]
    assert sorted(started) == [client.id for client in clients]
    road.settle()
    assert road.asked() == road.shut_down()  # once
    assert warnings(road) == [REMOVED]
    assert road.daemon.has_message("External BT device removed. Not returning it.")
    settings = road.stage.settings()
    assert settings.get("SatellitePositioningInternal") is True
    assert settings.get("SatellitePositioningExternalAddress") == ""
    road.fix(clients[0], 12.5)
    road.settle(clients[0])
    assert latitudes(clients[0].fixes())[-1] == 12.5


def test_a_removed_receiver_that_bluez_still_knows_keeps_its_sessions(road):
    """Paired again at once: it is shut down, the session stays, and the last stop asks once more in vain."""
    client = road.receiving()
    road.asked()
    road.bluez.remove_device(ADDRESS, forget=False)
    road.settle()
    assert warnings(road) == [REMOVED]
    assert road.asked() == road.shut_down()
    assert road.engine.all(wire.GnssRequest) == []
    client.stop()
    assert road.asked() == road.shut_down()
    assert warnings(road)[1:] == ['Gypsy session shutdown failed:  "No such device"']
    client.configure(app.START)
    assert road.asked()[:4] == road.set_up()


def test_other_devices_come_and_go(road):
    client = road.receiving()
    road.asked()
    road.bluez.remove_device(OTHER)
    road.device.position(PLACE, 0, 60.0, 25.0)
    road.settle(client)
    assert road.asked() == []
    assert warnings(road) == []
    assert latitudes(client.fixes()) == [60]


def test_a_receiver_that_is_removed_after_its_last_session(road):
    client = road.receiving()
    client.stop()
    road.asked()
    road.bluez.remove_device(ADDRESS)
    road.settle()
    assert road.asked() == []
    assert warnings(road) == []


# ---- a Gypsy that dies, or takes its time

def test_a_gypsy_that_was_started_anew(road):
    """It knows no device until the next Create: the running session is silent, its end fails."""
    client = road.receiving()
    road.restart_gypsy()
    road.asked()
    client.stop()
    assert road.asked() == road.shut_down()
    assert len(warnings(road)) == 1
    assert warnings(road)[0].startswith('Gypsy session shutdown failed:  "')
    client.configure(app.START)
    road.device.position(PLACE, 0, 60.0, 25.0)
    road.settle(client)
    assert road.asked()[:4] == road.set_up()
    assert latitudes(client.fixes()) == [60]


@pytest.mark.parametrize("peer, method", [("bluez", "DefaultAdapter"), ("bluez", "RequestSession"), ("gypsy", "Create"),
                                          ("gypsy", "Start"), ("gypsy", "GetFixStatus"), ("gypsy", "Shutdown")])
def test_an_answer_that_comes_late(road, peer, method):
    """Everything waits for it; then everything goes on, in order."""
    client, service = road.stage.client(), getattr(road, peer)
    service.hold(method)
    if method == "Shutdown":
        client.start(app.SATELLITE)
        stopping = threading.Thread(target=client.stop, daemon=True)
        stopping.start()
        service.held.wait_for(lambda call: call[2] == method)
        service.release(method)
        assert finished(stopping)
        client.configure(app.START)
    else:
        thread = starting(client, app.SATELLITE)
        service.held.wait_for(lambda call: call[2] == method)
        road.device.position(PLACE, 0, 60.0, 25.0)  # too early for most: nobody has a session
        service.release(method)
        assert finished(thread)
    road.device.position(PLACE, 0, 61.0, 25.0)
    road.settle(client)
    assert latitudes(client.fixes())[-1] == 61
    assert warnings(road) == []


def test_a_gypsy_that_never_answers(stage):
    road = ExternalRoad(stage, faketime="+0 x20")
    road.gypsy.hold("Create")
    client = stage.client()
    assert finished(starting(client, app.SATELLITE))
    line = road.daemon.wait_for_line('Gypsy session creation failed:  "Did not receive a reply.')
    assert " Warning: " in line
    assert time_between(road.daemon, "GypsyComm::createGypsy", "Gypsy session creation failed") >= 24
    road.gypsy.release("Create")
    client.stop()
    client.configure(app.START)
    road.device.position(PLACE, 0, 60.0, 25.0)
    road.settle(client)
    assert latitudes(client.fixes()) == [60]
