"""How the daemon lives with an engine that comes and goes: delays, what is asked of it when, what is sent again.

Most of it runs on a clock that the test winds: a delay is over when the test says so, not when a busy
machine gets round to it.
"""

import signal
import time
from datetime import datetime

import pytest

from harness import client as app
from harness import files, wire
from harness.clock import HandClock
from harness.daemon import LINE
from harness.geoclue import FakeGeoClue
from harness.mailbox import wait_until
from harness.network import HELSINKI, TAMPERE
from harness.road import Road, latitudes, near, time_between

LOST = "MsgSockClient::inMessage: Connection to ORV lost."
CONNECTED = "MsgSockClient::connect: Connected to orv."
TRYING = "Connecting to orvd."
FAILED = "lodestard: ORVComm reconnection failed."
NO_SOCKET = "MsgSockClient::send: send() : Bad file descriptor"
ALL_MASK = 0x11111111


@pytest.fixture
def wound(stage):
    """A road whose daemon's time stands still but for what the test winds."""
    return Road(stage, clock=HandClock())


def lose(road, stays_away=False):
    """The engine goes; without `stays_away` it is back at once."""
    lost = road.daemon.messages("Warning").count(LOST)
    if stays_away:
        road.engine.refuse()
    road.engine.disconnect()
    road.daemon.wait_for_message(LOST, "Warning", count=lost + 1)


def count(road, text):
    return road.daemon.messages().count(text)


def requests(road):
    """What was asked of the engine and nobody has looked at, in short."""
    return [(type(m), m.command, m.session) if isinstance(m, wire.GnssRequest) else type(m)
            for m in road.engine.pending()]


def start_of(client):
    return (wire.GnssRequest, wire.START, client.id)


# ---- losing it and finding it again

def test_an_engine_that_went_away_is_asked_again_after_a_second_and_a_half(wound):
    """Half a second to the attempt, one more to the first request; sessions begin anew, once each."""
    client = wound.satellite_client(interval=5000)
    wound.fix(client, 10)
    client.wait_for_fix()
    lose(wound)
    wound.wind(0.45)
    assert wound.lines("MsgSockClient::shutdown") == ["MsgSockClient::shutdown()"]
    assert count(wound, TRYING) == 1
    wound.wind(0.1)
    assert count(wound, TRYING) == count(wound, CONNECTED) == 2
    wound.engine.expect(wire.RegisterPrivacy)

    late = wound.client()  # nothing is asked for yet, for old clients and new ones
    client.configure(app.SET_INTERVAL, interval=7000)
    wound.wind(0.9)
    assert requests(wound) == []
    wound.wind(0.1)
    assert requests(wound) == [wire.SuplServers, start_of(client), start_of(late)]
    assert wound.engine.all(wire.GnssRequest)[-2].interval == 7
    wound.fix(client, 11)
    wound.fix(late, 12)
    wound.settle(client, late)
    assert latitudes(fix for fix in client.fixes() if fix.valid) == [10, 11]
    assert latitudes(fix for fix in late.fixes() if fix.valid) == [12]


def test_an_engine_that_is_lost_within_its_second_is_not_asked_early(wound):
    client = wound.satellite_client()
    lose(wound)
    wound.wind(0.5)
    wound.engine.expect(wire.RegisterPrivacy)
    wound.wind(0.9)
    lose(wound)
    wound.wind(0.5)  # the first connection's second ends in here
    wound.engine.expect(wire.RegisterPrivacy)
    wound.wind(0.9)
    assert requests(wound) == []
    wound.wind(0.1)
    assert requests(wound) == [wire.SuplServers, start_of(client)]
    wound.wind(60)
    assert count(wound, TRYING) == 3
    assert requests(wound)[2:] == []


def test_an_engine_that_dies_over_unread_messages_is_lost_all_the_same(wound):
    client = wound.satellite_client()
    wound.engine.stop_reading()
    client.configure(app.SET_INTERVAL, interval=3000)
    lose(wound)
    wound.engine.resume_reading()
    assert count(wound, LOST) == 1
    assert wound.daemon.messages("Critical") == ["MsgSockClient::inMessage: Unable to read! (Connection reset by peer)"]
    wound.wind(0.5)
    wound.wind(1)
    wound.engine.expect(wire.SuplServers)
    assert requests(wound) == [start_of(client)]


def test_clients_are_told_that_satellites_are_out_of_reach(wound):
    """While the engine is away a started client of satellites hears so at the next plan."""
    client = wound.satellite_client()
    lose(wound, stays_away=True)
    wound.wind(0.5)
    assert client.callbacks.items() == []
    client.configure(app.SATINFO_STOP)
    assert not client.wait_for_fix().has_time
    client.stop()
    wound.engine.listen()
    wound.wind(2.5)
    wound.wind(1)
    wound.engine.expect(wire.SuplServers)
    assert requests(wound) == []
    assert len(client.callbacks) == 1


# ---- an engine that is not there

DELAYS = [2.5, 12.5, 62.5, 312.5, 1562.5, 3600, 3600, 3600]


def announced(daemon):
    return [text for text in daemon.messages("Debug") if text.startswith("lodestard: Trying to reconnect")]


def test_an_engine_that_is_not_there_is_tried_ever_more_rarely(stage):
    """Until it is there, which makes the delays short again."""
    clock = HandClock()
    daemon = stage.consented_daemon(faketime=clock)
    client = stage.client()
    client.start()
    attempts = 1
    for delay in [30, *DELAYS]:
        clock.wind(client, delay - 0.1)
        assert daemon.messages().count(TRYING) == attempts
        clock.wind(client, 0.2)
        attempts += 1
        assert daemon.messages().count(TRYING) == attempts
    assert daemon.messages("Warning").count(FAILED) == len(DELAYS) + 1
    texts = [f"lodestard: Trying to reconnect after {seconds} s" for seconds in (2, 12, 62, 312, 1562, 3600)]
    assert announced(daemon) == [*texts, *(3 * texts[-1:])]
    times = [datetime.strptime(LINE.match(line)[1], "%H:%M:%S") for line in daemon.lines() if TRYING in line]
    waits = [(later - earlier).total_seconds() % 86400 for earlier, later in zip(times, times[1:])]
    assert waits == [pytest.approx(delay, abs=1.5) for delay in [30, *DELAYS]]

    engine = stage.engine()
    clock.wind(client, 3600)
    engine.expect(wire.RegisterPrivacy)
    clock.wind(client, 1)
    engine.expect(wire.SuplServers)
    engine.expect(wire.GnssRequest, command=wire.START, session=client.id)
    engine.refuse()
    engine.disconnect()
    daemon.wait_for_message(LOST, "Warning")
    clock.wind(client, 0.5)
    clock.wind(client, 2.5)
    assert announced(daemon)[len(DELAYS) + 1:] == texts[:2]


def test_one_success_makes_the_delays_short_again(wound):
    """However short the engine's visit is."""
    for _ in range(3):
        lose(wound, stays_away=True)
        for delay in (0.5, 2.5, 12.5):
            wound.wind(delay)
        wound.engine.listen()
        wound.wind(62.5)
        wound.engine.expect(wire.RegisterPrivacy)
    assert announced(wound.daemon) == 3 * [f"lodestard: Trying to reconnect after {n} s" for n in (2, 12, 62)]


def test_delays_go_by_while_nobody_wakes_the_daemon(stage):
    """On a clock that runs by itself."""
    road = Road(stage, faketime="+0 x20")
    road.engine.refuse()
    road.engine.disconnect()
    for seconds in (2, 12):
        road.daemon.wait_for_message(f"lodestard: Trying to reconnect after {seconds} s", "Debug")
    road.engine.listen()
    road.engine.expect(wire.RegisterPrivacy)
    # The lines' clock has whole seconds: a wait of 12.5 s shows as 12 or more.
    assert time_between(road.daemon, "reconnect after 12 s", CONNECTED) >= 12
    road.engine.expect(wire.SuplServers)


# ---- an engine that does not read

def test_an_engine_that_does_not_read(road):
    """A full socket costs two seconds and a line for each request; other business goes on."""
    client = road.satellite_client()
    other = road.satellite_client()
    road.engine.stop_reading()
    full = "MsgSockClient::send: send() : Resource temporarily unavailable"

    def full_after_one_more():
        client.configure(app.SET_INTERVAL, interval=3000)
        return road.daemon.has_message(full, "Critical")

    wait_until(full_after_one_more, "the socket is full", poll=0)
    begin = time.monotonic()
    client.configure(app.SET_INTERVAL, interval=4000)
    assert time.monotonic() - begin >= 1.9  # it might have read meanwhile
    assert road.daemon.messages("Critical") == 2 * [full]
    road.fix(other, 20)  # what it says is heard
    assert near(20)(other.wait_for_fix())
    newcomer = road.stage.client()
    newcomer.register()
    assert near(20)(app.stream.read_fix(newcomer.latest_position()))
    assert road.stage.settings().set("WiFiPositioning", False)
    road.engine.resume_reading()
    client.configure(app.SET_INTERVAL, interval=7000)
    road.engine.expect(wire.GnssRequest, interval=7)
    road.fix(client, 10)
    assert near(10)(client.wait_for_fix())
    assert count(road, LOST) == 0


# ---- the SUPL servers

def test_supl_servers_go_to_the_engine_whenever_it_is_ready(stage, wound):
    """At every connection, and with each change; of the second server nothing is ever told."""
    settings = stage.settings()
    (first,) = wound.engine.all(wire.SuplServers)

    def sent():
        found = wound.engine.pending(wire.SuplServers)
        wound.engine.skip()
        assert all((m.secondary_usage, m.secondary) == (0, b"") for m in found)
        return [m.primary for m in found]

    assert settings.set("SecondarySuplServer", "second.example")
    assert sent() == [first.primary]
    assert settings.set("PrimarySuplServer", "one.example")
    assert sent() == [b"one.example"]

    lose(wound)
    assert settings.set("SecondarySuplServer", "away.example")
    wound.wind(0.5)
    wound.engine.expect(wire.RegisterPrivacy)
    assert settings.set("PrimarySuplServer", "two.example")  # connected, and not ready yet
    assert settings.set("SecondarySuplServer", "other.example")
    assert sent() == []
    wound.wind(1)
    assert sent() == [b"two.example"]

    for _ in range(3):
        lose(wound)
        wound.wind(0.5)
        wound.wind(1)
        assert sent() == [b"two.example"]
    assert settings.set("SecondarySuplServer", "third.example")
    assert sent() == [b"two.example"]


# ---- assistance data

def deletions(road):
    masks = [m.mask for m in road.engine.pending(wire.DeleteAssistance)]
    road.engine.skip()
    return masks


def delete_both_ways(road, settings):
    """Over the bus and by signal; returns when the daemon has dealt with both."""
    told = count(road, "Deleting all GPS assistance data.")
    assert settings.clear_assistance(0xFF) is True
    road.daemon.signal(signal.SIGUSR1)
    road.daemon.wait_for_message("Deleting all GPS assistance data.", "Debug", count=told + 1)
    road.wind(0)
    return road.daemon.messages("Critical")


def test_assistance_data_is_deleted_whenever_there_is_an_engine(stage, wound):
    """It need not be ready; without one the attempt is a line."""
    settings = stage.settings()
    assert delete_both_ways(wound, settings) == []
    assert deletions(wound) == [0xFF, ALL_MASK]
    lose(wound)
    assert delete_both_ways(wound, settings) == 2 * [NO_SOCKET]
    wound.wind(0.5)
    wound.engine.expect(wire.RegisterPrivacy)
    assert delete_both_ways(wound, settings) == 2 * [NO_SOCKET]
    assert deletions(wound) == [0xFF, ALL_MASK]
    wound.wind(1)
    wound.engine.expect(wire.SuplServers)
    assert deletions(wound) == []  # what was missed is not made up for
    assert wound.lines("Deleting GPS") == 3 * ["Deleting GPS assistance data ( 255 )."]
    assert wound.lines("deleteAssistanceData") == 3 * ["deleteAssistanceData 0x 11111111"]


def test_assistance_data_without_an_engine_from_the_start(stage):
    files.marker("location_ok")
    daemon, settings = stage.daemon(), stage.settings()
    assert settings.clear_assistance(0x01) is True
    daemon.signal(signal.SIGUSR1)
    daemon.wait_for_message(NO_SOCKET, "Critical", count=2)
    assert [text for text in daemon.messages("Debug") if "eleting" in text] == [
        "Deleting GPS assistance data ( 1 ).", "Deleting all GPS assistance data."]
    assert stage.client().register() == 6000


def test_the_user_signal_deletes_all_assistance_data(road):
    for _ in range(3):
        road.daemon.signal(signal.SIGUSR1)
        assert road.engine.expect(wire.DeleteAssistance).mask == ALL_MASK
    road.settle()
    assert road.lines("Deleting all") == 3 * ["Deleting all GPS assistance data."]
    assert road.lines("deleteAssistanceData") == []


# ---- network positions

def test_the_network_library_goes_on_without_an_engine(wound):
    """Its clients stay enrolled, and are not told that nothing is available."""
    client = wound.client(app.NON_SATELLITE, 3600000)
    mixed = wound.satellite_client(3600000, methods=app.ALL)
    lose(wound, stays_away=True)
    late = wound.client(app.NON_SATELLITE, 3600000)
    wound.wind(0.5)
    wound.engine.listen()
    wound.wind(2.5)
    wound.wind(1)
    wound.engine.expect(wire.SuplServers)
    assert requests(wound) == [start_of(mixed)]
    assert wound.lines("Scheduler::removeClient") == []
    assert wound.lines("Scheduler::addClient") == [
        f"Scheduler::addClient: id: {c.id}, interval: 3600" for c in (client, mixed, late)]
    assert wound.lines("Could not find") == []


def test_the_network_library_finds_positions_while_the_engine_is_away(stage):
    geoclue = FakeGeoClue(stage.system, HELSINKI)
    road = Road(stage)
    client = road.client(app.NON_SATELLITE)
    client.wait_for_fix(near(HELSINKI.latitude))
    lose(road, stays_away=True)
    geoclue.place = TAMPERE
    client.wait_for_fix(near(TAMPERE.latitude))
    road.engine.listen()
    road.engine.expect(wire.SuplServers)
    geoclue.place = HELSINKI
    client.wait_for_fix(near(HELSINKI.latitude), after=2)
    assert len(client.callbacks) == 3
    assert road.lines("Scheduler::removeClient") == []
    assert road.engine.pending() == []
