"""The published properties: who hears what, and what a subscription sets going."""

import time

import pytest
from gi.repository import Gio

from harness import client as app
from harness import files, wire
from harness.context import COORDINATES, INTERFACE, SERVICE, STATE, Subscriber
from harness.mailbox import Mailbox
from harness.road import Road

FIRST_MAP = "First context fw client for positioinig."
FIRST_BAR = "First context fw client for gps state."
LAST_MAP = "PositionDaemon::delContextFWPositionClient()"
LAST_BAR = "PositionDaemon::delContextFWStateClient()"
STATE_LINE = "PositionDaemon::contextSetState: "


@pytest.fixture
def subscriber(stage):
    return Subscriber(stage.session)


def start_of(engine, session):
    return engine.expect(wire.GnssRequest, command=wire.START, session=session)


# ---- the state

def test_before_anything_happens(road, subscriber):
    assert subscriber.get(STATE) == "off"
    _value, time_ms = subscriber.call("Get", STATE)
    assert abs(time.time() - time_ms / 1000) < 60
    assert subscriber.call("Get", COORDINATES) == ([], 0)
    assert road.lines("First context") == []  # asking is not subscribing


def test_a_first_subscriber_gets_the_state_of_now(road, subscriber):
    road.satellite_client()
    assert road.lines(STATE_LINE)[-1].endswith("satelliteState=1, nonsatelliteState=0, tmpState=1, iconState=0")
    assert subscriber.get(STATE) == "off"  # logged, not published
    assert subscriber.subscribe(STATE) == "search"
    assert subscriber.values(STATE) == []  # the answer said it
    road.daemon.wait_for_message(FIRST_BAR, "Debug")
    assert road.engine.pending() == []  # a status bar sets nothing going


def test_the_state_follows_the_receiver(road, subscriber):
    assert subscriber.subscribe(STATE) == "off"
    client = road.satellite_client()
    subscriber.wait_value(STATE, "search")
    road.fix(client, 10)
    subscriber.wait_value(STATE, "on")
    client.stop()
    subscriber.wait_value(STATE, "off")
    assert subscriber.values(STATE) == ["search", "on", "off"]
    # Nobody listens: the state goes on, and a new subscriber finds it.
    subscriber.unsubscribe(STATE)
    road.daemon.wait_for_message(LAST_BAR, "Debug")
    client.configure(app.START)
    assert subscriber.get(STATE) == "off"
    assert subscriber.subscribe(STATE) == "search"
    assert subscriber.values(STATE) == ["search", "on", "off"]


def test_the_state_follows_the_network(stage, subscriber):
    """Network positions through the engine, and satellites beside them."""
    files.marker("use_supl")
    road = Road(stage)
    subscriber.subscribe(STATE)
    road.satellite_client()
    subscriber.wait_value(STATE, "search")
    client = road.client(app.NON_SATELLITE)
    road.engine.expect(wire.SuplRequest)
    assert road.lines(STATE_LINE)[-1].endswith("satelliteState=1, nonsatelliteState=1, tmpState=1, iconState=1")
    assert subscriber.values(STATE) == ["search"]  # equal states are told once
    road.supl(20)
    subscriber.wait_value(STATE, "on")  # on wins over the satellites' search
    client.vanish()
    road.daemon.wait_for_line("onClientDisconnected: Remove client")
    stage.settings().set("VeskDisclaimerAccepted", True)  # any change plans anew
    subscriber.wait_value(STATE, "search")
    assert subscriber.values(STATE) == ["search", "on", "search"]


def test_a_failed_network_request_is_no_fix(stage, subscriber):
    files.marker("use_supl")
    road = Road(stage)
    subscriber.subscribe(STATE)
    subscriber.subscribe(COORDINATES)
    road.client(app.NON_SATELLITE)
    road.engine.expect(wire.SuplRequest)
    road.engine.send(wire.supl_response(2))
    road.daemon.wait_for_line("PositionDaemon::onPositionUpdateSUPL")
    road.settle()
    assert "on" not in subscriber.values(STATE)
    assert subscriber.values(COORDINATES) == []


@pytest.mark.parametrize("key", ["Positioning", "SatellitePositioning", "SatellitePositioningInternal"])
def test_settings_of_satellites_look_at_the_state_again(stage, road, key):
    before = len(road.lines(STATE_LINE))
    assert stage.settings().set("WiFiPositioning", False)
    assert len(road.lines(STATE_LINE)) == before
    assert stage.settings().set(key, False)
    assert len(road.lines(STATE_LINE)) == before + 1


# ---- the coordinates

def test_coordinates_ask_for_satellites(road, subscriber):
    assert subscriber.subscribe(COORDINATES) is None
    start = start_of(road.engine, 6000)
    assert start.interval == 1
    lines = road.daemon.messages("Debug")
    begin = lines.index(FIRST_MAP)
    assert lines[begin + 1:begin + 4] == [
        "## Adding new client with Id:  6000", "## Service:  context", "##    Path:  context"]
    road.fix(6000, 60.169856, -24.938379)
    subscriber.wait_count(COORDINATES, 1)
    # Nobody is called back for it.
    assert road.lines("ClientApp::") == []


def test_coordinates_are_those_of_the_fix(road, subscriber):
    """To the last bit of what an application gets, altitude left out."""
    client = road.satellite_client()
    subscriber.subscribe(COORDINATES)
    road.report(client, wire.position(-33.8688197531, 151.2092955864, altitude=80))
    fix = client.wait_for_fix()
    assert subscriber.values(COORDINATES) == [[fix.latitude, fix.longitude]]
    assert subscriber.get(COORDINATES) == [fix.latitude, fix.longitude]
    assert round(fix.latitude, 6) == -33.86882


def test_each_fix_is_published_once(road, subscriber):
    first, second = road.satellite_client(), road.satellite_client()
    subscriber.subscribe(COORDINATES)
    start_of(road.engine, 6002)
    for session, latitude in ((first, 1), (second, 2), (6002, 3), (first, 3)):
        road.fix(session, latitude)
    road.supl(4)
    road.settle()
    assert [round(latitude, 6) for latitude, _ in subscriber.values(COORDINATES)] == [1, 2, 3, 3, 4]
    assert subscriber.times == sorted(subscriber.times)


def test_an_invalid_coordinate_is_never_published(road, subscriber):
    client = road.satellite_client()
    subscriber.subscribe(COORDINATES)
    road.fix(client, 1)
    road.report(client, wire.velocity(speed=100))  # a fix without a position
    road.engine.send(wire.supl_response(2))        # a position that was not found
    road.settle(client)
    assert len(client.fixes()) == 2
    assert len(subscriber.values(COORDINATES)) == 1
    _values, time_ms = subscriber.call("Get", COORDINATES)
    assert time_ms == subscriber.times[0]


def test_a_fix_that_nobody_is_handed_is_not_published(road, subscriber):
    client, other = road.satellite_client(), road.satellite_client()
    subscriber.subscribe(COORDINATES)
    client.stop()
    road.fix(client, 5)
    road.fix(other, 6)
    road.settle()
    assert [round(latitude, 6) for latitude, _ in subscriber.values(COORDINATES)] == [6]


def test_coordinates_wait_for_the_users_consent(stage, subscriber):
    road = Road(stage, consent=False)
    assert subscriber.subscribe(COORDINATES) is None
    road.settle()
    assert road.engine.pending() == []
    assert stage.client().register() == 6001


# ---- subscribers

def test_the_state_and_the_coordinates_are_sent_to_subscribers_alone(stage, road, subscriber):
    monitor = stage.monitor(stage.session)
    client = road.satellite_client()
    road.fix(client, 1)
    client.wait_for_fix()
    other = Subscriber(stage.session)
    bystander = stage.session.connect()
    overheard = Mailbox("overheard")
    bystander.signal_subscribe(None, INTERFACE, None, None, None, Gio.DBusSignalFlags.NONE,
                               lambda *signal: overheard.append(signal))
    subscriber.subscribe(STATE)
    for each in (subscriber, other):
        each.subscribe(COORDINATES)
    for latitude in (2, 3):
        road.fix(client, latitude)
    start_of(road.engine, 6001)
    road.settle()
    client.stop()
    for each in (subscriber, other):
        assert len(each.values(COORDINATES)) == 2
    lines = monitor.settled_lines(stage.session)
    signals = [line for line in lines if "member=ValueChanged" in line]
    names = [each.connection.get_unique_name() for each in (subscriber, other)]
    assert [sum(f"destination={name} " in line for line in signals if f"path={COORDINATES};" in line)
            for name in names] == [2, 2]
    assert len([line for line in signals if f"path={COORDINATES};" in line]) == 4
    assert all(f"destination={names[0]} " in line for line in signals if f"path={STATE};" in line)
    # Before anybody subscribed nothing was said at all.
    subscribed = next(index for index, line in enumerate(lines) if "member=Subscribe" in line)
    assert not any("member=ValueChanged" in line for line in lines[:subscribed])
    # Nothing is asked of a subscriber, neither what it is nor anything else.
    daemon = stage.session.owner_of(SERVICE)
    assert not any(line.startswith("method call") and f"sender={daemon} " in line and f"destination={name} " in line
                   for line in lines for name in names)
    stage.session.call(bystander, "org.freedesktop.DBus", "/", "org.freedesktop.DBus.Peer", "Ping")
    assert overheard.items() == []


def test_subscribers_share_one_client_and_count_once(stage, road, subscriber):
    other = Subscriber(stage.session)
    subscriber.subscribe(COORDINATES)
    start_of(road.engine, 6000)
    subscriber.subscribe(COORDINATES)
    other.subscribe(COORDINATES)
    road.fix(6000, 1)
    road.settle()
    assert [len(each.values(COORDINATES)) for each in (subscriber, other)] == [1, 1]
    subscriber.unsubscribe(COORDINATES)  # once, though it subscribed twice
    road.fix(6000, 2)
    road.settle()
    assert [len(each.values(COORDINATES)) for each in (subscriber, other)] == [1, 2]
    assert road.engine.pending() == []
    assert road.lines(FIRST_MAP) == [FIRST_MAP]
    assert not road.daemon.has_message(LAST_MAP)


def test_the_last_subscriber_ends_the_client_without_a_word_to_the_engine(stage, road, subscriber):
    subscriber.subscribe(COORDINATES)
    start_of(road.engine, 6000)
    road.fix(6000, 1)
    subscriber.wait_count(COORDINATES, 1)
    subscriber.unsubscribe(COORDINATES)
    road.daemon.wait_for_message(LAST_MAP, "Debug")
    road.daemon.wait_for_message("PositionDaemon: Removing client with id: 6000", "Debug")
    road.fix(6000, 2)
    road.settle()
    assert road.engine.pending() == []
    assert road.daemon.has_message("PositionDaemon::onPositionUpdateGNSS: Invalid GNSS session id from ORV.",
                                   "Critical")
    # Who comes back gets a client anew, and at first the last place that was published.
    latitude, _ = subscriber.subscribe(COORDINATES)
    assert round(latitude, 6) == 1
    start_of(road.engine, 6001)
    road.fix(6001, 3)
    subscriber.wait_count(COORDINATES, 2)


def test_a_subscriber_that_dies_is_forgotten(stage, road):
    dying, living = Subscriber(stage.session), Subscriber(stage.session)
    for path in (STATE, COORDINATES):
        dying.subscribe(path)
        living.subscribe(path)
    start_of(road.engine, 6000)
    dying.vanish()
    stage.session.wait_owner(dying.connection.get_unique_name(), present=False)
    road.fix(6000, 1)
    living.wait_count(COORDINATES, 1)
    assert not road.daemon.has_message(LAST_MAP)
    living.vanish()
    road.daemon.wait_for_message(LAST_MAP, "Debug")
    road.daemon.wait_for_message(LAST_BAR, "Debug")
    again = Subscriber(stage.session)
    assert again.subscribe(STATE) == "on"
    again.subscribe(COORDINATES)
    start_of(road.engine, 6001)


def test_a_subscriber_that_is_gone_before_the_answer(stage, road):
    for count in (1, 2):
        Subscriber(stage.session).subscribe_and_vanish(COORDINATES)
        road.daemon.wait_for_message(FIRST_MAP, "Debug", count=count)
        road.daemon.wait_for_message(LAST_MAP, "Debug", count=count)
    assert stage.client().register() == 6002


# ---- the service

def test_the_service_belongs_to_the_daemon(stage, road):
    assert stage.session.pid_of(SERVICE) == road.daemon.pid


def test_a_taken_name_does_not_keep_the_daemon_from_serving(stage):
    squatter = stage.session.connect()
    stage.session.own(squatter, SERVICE)
    road = Road(stage)
    assert road.daemon.messages("Warning") == [
        "The context service com.varn.lodestard.context cannot be registered."]
    assert road.daemon.has_message("PositionDaemon::init() ContextProvider init done.", "Debug")
    client = road.satellite_client()
    road.fix(client, 1)
    client.wait_for_fix()
