"""Network positions through the engine: who is asked for, who gets the answer, and what ends it."""

import pytest

from harness import client as app
from harness import files, wire
from harness.road import EMPTY_FIX, Road, latitudes, near

ASKING = "PositionDaemon: Sending SUPL Location request to ORV."
TAKING = "PositionDaemon::onPositionUpdateSUPL"
INVALID = "onPositionUpdateSUPL: Invalid client in receiver list."
FREE_FIX = "PositionDaemon::onPositionUpdateSUPL: Sending SUPL fix to free fix client"
LONG = 3600000  # an interval that no test lives to see the end of


@pytest.fixture
def supl(stage):
    return supl_road(stage)


def supl_road(stage, **options):
    """A road on which network positions come from the engine."""
    files.marker("use_supl")
    return Road(stage, **options)


def answer(road, latitude):
    """Answers the next request with this place."""
    road.engine.expect(wire.SuplRequest)
    road.supl(latitude)


def leave(road, client):
    """The client leaves the bus, and the daemon knows."""
    client.vanish()
    road.daemon.wait_for_message(f"PositionDaemon: Removing client with id: {client.id}", "Debug")


def requests(road):
    """Requests for a network position that nobody has looked at yet."""
    return road.engine.pending(wire.SuplRequest)


# ---- asking and answering

def test_requests_count_up_and_one_follows_each_answer(stage):
    road = supl_road(stage, faketime="+0 x10")
    client = road.client(app.NON_SATELLITE, 2000)
    for number in range(1, 5):
        request = road.engine.expect(wire.SuplRequest)
        assert request.raw == bytes.fromhex("EF04 000C") + bytes([0, number]) + bytes.fromhex("0014 02 000000")
        assert requests(road) == []  # one at a time
        road.supl(number)
        client.wait_for_fix(near(number))
    assert latitudes(client.fixes()) == [1, 2, 3, 4]
    assert road.daemon.messages("Critical") == road.daemon.messages("Warning") == []


@pytest.mark.parametrize("status, blocks, warning", [
    (0, (), []),
    (1, (wire.position(1, 2),), ["ORVComm::handleSUPLResponse: SUPL connection error"]),
    (2, (wire.position(1, 2),), ["ORVComm::handleSUPLResponse: SUPL timeout"]),
    (3, (wire.position(1, 2),), []),
    (255, (), []),
])
def test_an_answer_without_a_place_goes_to_who_waits_and_the_next_is_asked_for(stage, status, blocks, warning):
    road = supl_road(stage, faketime="+0 x10")
    client = road.client(app.NON_SATELLITE, 2000)
    for _ in range(2):
        road.engine.expect(wire.SuplRequest)
        road.engine.send(wire.supl_response(status, *blocks))
    answer(road, 7)
    client.wait_for_fix(near(7))
    assert [fix.valid for fix in client.fixes()] == [False, True]  # a second failure is no news
    assert client.received("positionUpdate")[0].value == EMPTY_FIX
    assert road.daemon.messages("Warning") == 2 * warning
    assert road.daemon.messages("Critical") == []


def test_a_velocity_alone_is_an_answer(supl):
    client = supl.client(app.NON_SATELLITE, LONG)
    supl.engine.expect(wire.SuplRequest)
    supl.engine.send(wire.supl_response(0, wire.velocity(speed=150)))
    fix = client.wait_for_fix()
    assert fix.has_time and not fix.valid and list(fix.attributes.values()) == [1.5]


# ---- who gets it

def test_each_kind_of_client_gets_what_it_asked_for(supl):
    free = supl.stage.client()
    free.register()
    free.configure(app.SET_METHOD | app.SET_INTERVAL, app.NON_SATELLITE, 666000)
    network = supl.client(app.NON_SATELLITE, LONG)
    mixed = supl.satellite_client(LONG, methods=app.ALL)
    satellite = supl.satellite_client(LONG)
    stopped = supl.client(app.NON_SATELLITE, LONG)
    stopped.stop()
    supl.supl(3)
    supl.settle(free, network, mixed, satellite, stopped)
    assert [latitudes(c.fixes()) for c in (free, network, mixed, satellite, stopped)] == [[3], [3], [3], [], []]
    assert supl.lines("Sending update") == [f"Sending update to ClientId:  {c.id}" for c in (network, mixed)]
    assert supl.lines("ClientApp::") == [text for text in supl.lines("ClientApp::") if ", type=1, " in text]
    assert supl.lines(TAKING) == [TAKING, FREE_FIX]
    assert len(supl.engine.all(wire.SuplRequest)) == 1
    assert network.latest_position() == network.received("positionUpdate")[0].value


def test_a_client_of_both_methods_is_served_until_the_satellites_are_there(stage):
    road = supl_road(stage, faketime="+0 x10")
    client = road.satellite_client(2000, methods=app.ALL)
    answer(road, 3)
    client.wait_for_fix(near(3))
    road.engine.expect(wire.SuplRequest)
    road.fix(client, 4)
    client.wait_for_fix(near(4))
    road.daemon.wait_for_message(f"Scheduler::removeClient: id: {client.id}", "Debug")
    road.supl(5)  # the last answer comes when nobody wants it any more
    road.fix(client, 6)
    client.wait_for_fix(near(6))
    assert latitudes(client.fixes()) == [3, 4, 6]
    assert requests(road) == []


def test_each_client_is_told_a_place_once(stage):
    road = supl_road(stage, faketime="+0 x10")
    early = road.client(app.NON_SATELLITE, 2000)
    answer(road, 3)
    early.wait_for_fix(near(3))
    late = road.client(app.NON_SATELLITE, 2000)
    answer(road, 3)
    late.wait_for_fix(near(3))
    both = road.daemon.mark()
    for _ in range(3):
        answer(road, 3)
        road.settle()
    assert f"Sending update to ClientId:  {early.id}" in "\n".join(road.daemon.lines()[both:])
    answer(road, 4)
    for client in (early, late):
        client.wait_for_fix(near(4))
        assert latitudes(client.fixes()) == [3, 4]


def test_a_client_that_left_stays_a_receiver_that_nobody_knows(supl):
    leaving = supl.client(app.NON_SATELLITE, LONG)
    staying = supl.client(app.NON_SATELLITE, LONG)
    leave(supl, leaving)
    answer(supl, 3)
    staying.wait_for_fix(near(3))
    assert supl.daemon.messages("Critical") == [INVALID]
    assert supl.lines("Scheduler::removeClient") == []


# ---- what begins and ends it

def test_a_network_client_moves_onto_a_satellite_fix_and_back(stage):
    road = supl_road(stage, faketime="+0 x20")
    worker = road.satellite_client()
    rider = road.client(app.NON_SATELLITE, 5000)
    answer(road, 3)
    rider.wait_for_fix(near(3))
    road.fix(worker, 10)
    road.engine.expect(wire.GnssRequest, command=wire.START, session=rider.id)
    road.fix(rider, 11)
    rider.wait_for_fix(near(11))
    road.engine.skip()
    moved = road.daemon.mark()
    road.daemon.wait_for_message("GNSS mode: Search", "Debug", after=moved)  # no more reports: lost
    road.engine.expect(wire.GnssRequest, command=wire.STOP, session=rider.id)
    answer(road, 3)  # the place that it knew before is news again
    rider.wait_for_fix(near(3), after=2)
    texts = road.lines("Scheduler::addClient") + road.lines("Scheduler::removeClient")
    assert texts == 2 * [f"Scheduler::addClient: id: {rider.id}, interval: 5"] + [
        f"Scheduler::removeClient: id: {rider.id}"]


def test_nobody_is_asked_for_a_client_that_stopped(stage):
    road = supl_road(stage, faketime="+0 x60")
    client = road.client(app.NON_SATELLITE, 2000)
    answer(road, 3)
    client.wait_for_fix(near(3))
    client.stop()
    assert road.lines("Removed index: ") == ["Removed index:  0"]
    road.engine.skip()
    stopped = road.daemon.mark()
    lone = road.satellite_client()
    lone.wait_for_fix(lambda fix: not fix.valid)  # two minutes later
    assert requests(road) == []
    assert "Scheduler::" not in "\n".join(road.daemon.lines()[stopped:])
    client.configure(app.START)
    answer(road, 3)
    client.wait_for_fix(near(3), after=1)


def test_an_answer_that_comes_after_the_stop_reaches_nobody(supl):
    client = supl.client(app.NON_SATELLITE, LONG)
    supl.engine.expect(wire.SuplRequest)
    client.stop()
    supl.supl(3)
    supl.settle(client)
    assert client.callbacks.items() == []
    client.configure(app.START)  # and the request that nobody waits for holds nothing up
    answer(supl, 4)
    client.wait_for_fix(near(4))


def test_a_shorter_interval_counts_at_once(stage):
    road = supl_road(stage, faketime="+0 x60")
    client = road.client(app.NON_SATELLITE, 36000000)
    answer(road, 1)
    client.wait_for_fix(near(1))
    client.configure(app.SET_INTERVAL, interval=3000)
    for latitude in (2, 3):
        answer(road, latitude)
        client.wait_for_fix(near(latitude))
    assert road.lines("Scheduler::setClientInterval") == [
        f"Scheduler::setClientInterval: id: {client.id}, interval: 3"]


def test_a_setting_that_takes_the_network_away_ends_it(stage, supl):
    client = supl.client(app.NON_SATELLITE, LONG)
    answer(supl, 3)
    client.wait_for_fix(near(3))
    assert stage.settings().set("CellularPositioning", False)
    assert supl.lines("Scheduler::removeClient") == [f"Scheduler::removeClient: id: {client.id}"]
    client.wait_for_fix(lambda fix: not fix.valid)  # no method is left
    assert stage.settings().set("CellularPositioning", True)
    answer(supl, 3)
    client.wait_for_fix(near(3), after=2)


# ---- a lost engine

def test_a_lost_engine_takes_the_waiting_batch_along(stage):
    """Of a client that left its place in the batch would stay for ever, and nobody else be asked for."""
    road = supl_road(stage, faketime="+0 x5")
    leaving = road.client(app.NON_SATELLITE, LONG)
    client = road.client(app.NON_SATELLITE, LONG)
    leave(road, leaving)
    assert road.engine.expect(wire.SuplRequest).request == 1
    road.engine.disconnect()
    road.engine.wait_connected(count=2)
    assert road.lines("Scheduler::removeClient") == [f"Scheduler::removeClient: id: {client.id}"]
    assert road.engine.expect(wire.SuplRequest).request == 1  # counted anew on each connection
    road.supl(3)
    client.wait_for_fix(near(3))
    assert len(client.callbacks) == 1


def test_nobody_is_asked_for_while_there_is_no_engine(stage):
    road = supl_road(stage, faketime="+0 x60")
    client = road.client(app.NON_SATELLITE, 2000)
    answer(road, 1)
    client.wait_for_fix(near(1))
    road.engine.refuse()
    road.engine.disconnect()
    road.daemon.wait_for_message("lodestard: ORVComm reconnection failed.", "Warning", count=2)
    gone = road.daemon.lines()
    road.daemon.wait_for_message("lodestard: ORVComm reconnection failed.", "Warning", count=3)
    assert ASKING not in "\n".join(road.daemon.lines()[len(gone):])
    road.engine.listen()
    answer(road, 2)
    client.wait_for_fix(near(2))
    assert latitudes(client.fixes()) == [1, 2]


def test_clients_that_left_ask_for_nothing_more_than_a_line_while_there_is_no_engine(stage):
    road = supl_road(stage, faketime="+0 x20")
    leaving = road.client(app.NON_SATELLITE, 2000)
    answer(road, 1)
    leave(road, leaving)
    road.engine.refuse()
    road.engine.disconnect()
    gone = road.daemon.stdout.wait_index("Connection to ORV lost.")
    road.daemon.wait_for_message(INVALID, "Critical", after=gone, count=3)  # one row, one round each
    road.engine.listen()
    client = road.client(app.NON_SATELLITE, LONG)
    road.daemon.wait_for_message(f"Scheduler::addClient: id: {client.id}, interval: 3600", "Debug")
    road.supl(5)
    client.wait_for_fix(near(5))
