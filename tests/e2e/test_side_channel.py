"""The side channel: engine fixes and network settings for a peer of the network-positioning stack."""

import pytest
from gi.repository import Gio, GLib

from harness import files, sidechannel, wire
from harness.sidechannel import CELLULAR, CONNECTIVITY, FIXED, WIFI, SideChannelPeer

UNKNOWN = "Unknown VESK request!"
REPORT = (wire.position(45.0, 22.5, along=1025, ortho=575, angle=200, altitude=200, altitude_error=21, geoid=40),
          wire.time_of_fix(2026, 11, 21, 19, 8, 59123),
          wire.velocity(heading=-1000, speed=1000, climb=50))
# What the peer makes of it.
FIELDS = (pytest.approx(45.0, abs=1e-7), pytest.approx(22.5, abs=1e-7), 120.0, 10.25, 5.75, 200, 10, 36,
          2026, 11, 21, 19, 8, 59123)


@pytest.fixture
def peer(stage):
    return SideChannelPeer(stage.system)


@pytest.fixture
def receiving(road):
    """A road with one client whose session reports fixes."""
    road.session = road.satellite_client()
    return road


def streamed(road, peer, *reports):
    """All positions the peer has by now, after these reports were dealt with."""
    for blocks in reports:
        road.report(road.session, *blocks)
    road.settle()
    peer.ask(FIXED)
    return peer.positions.items()


# ---- the stream

def test_a_report_is_passed_on_with_every_field(receiving, peer):
    peer.request(sidechannel.START)
    assert peer.ask(FIXED) == 1
    (position,) = streamed(receiving, peer, REPORT)
    assert position == FIELDS


@pytest.mark.parametrize("velocity, speed", [([wire.velocity(heading=100)], 0xFFFF), ([], 0)],
                         ids=["not known to the engine", "no velocity at all"])
def test_a_report_without_a_speed_is_passed_on_with_every_other_field(receiving, peer, velocity, speed):
    """Nothing stays of the report before."""
    peer.request(sidechannel.START)
    peer.ask(FIXED)
    _, position = streamed(receiving, peer, REPORT, (*REPORT[:2], *velocity))
    assert position == (*FIELDS[:7], speed, *FIELDS[8:])


def test_nothing_is_streamed_before_it_is_asked_for_nor_after_it_was_stopped(receiving, peer):
    assert streamed(receiving, peer, REPORT) == []
    peer.request(sidechannel.START)
    peer.ask(FIXED)
    assert len(streamed(receiving, peer, REPORT, REPORT, REPORT)) == 3
    peer.request(sidechannel.STOP)
    peer.ask(FIXED)
    assert len(streamed(receiving, peer, REPORT)) == 3
    peer.request(sidechannel.START)
    peer.ask(FIXED)
    assert len(streamed(receiving, peer, REPORT)) == 4


def test_reports_without_a_fix_are_not_streamed(receiving, peer):
    peer.request(sidechannel.START)
    peer.ask(FIXED)
    receiving.report(receiving.session, *REPORT, status=wire.NO_FIX)
    receiving.report(receiving.session, wire.time_of_fix(2026, 1, 1, 0, 0, 0))
    assert streamed(receiving, peer) == []
    assert len(streamed(receiving, peer, REPORT)) == 1


def test_every_report_is_streamed_whoever_it_is_for(receiving, peer):
    """A report for a session that the engine alone knows is one too."""
    peer.request(sidechannel.START)
    peer.ask(FIXED)
    receiving.report(4711, *REPORT)
    assert len(streamed(receiving, peer, REPORT)) == 2


def test_all_peers_hear_the_stream_that_one_asked_for(stage, receiving, peer):
    other = SideChannelPeer(stage.system)
    peer.request(sidechannel.START)
    peer.ask(FIXED)
    assert len(streamed(receiving, peer, REPORT)) == 1
    assert len(other.positions.wait_for(lambda _: True)) == 14


def test_the_stream_survives_a_lost_engine(stage, receiving, peer):
    peer.request(sidechannel.START)
    peer.ask(FIXED)
    receiving.engine.disconnect()
    receiving.engine.expect(wire.GnssRequest, command=wire.START, session=receiving.session.id)
    assert len(streamed(receiving, peer, REPORT)) == 1


@pytest.mark.parametrize("link", ["there", "away", "none"])
def test_only_the_stream_needs_an_engine(stage, peer, link):
    """Every command does the same whether the engine is there, away, or the device has none."""
    files.user_settings(WiFiPositioning=False)
    if link == "none":
        files.sysinfo(files.INTERNAL_GPS, b"\0")
    engine = stage.engine() if link == "there" else None
    daemon = stage.daemon()
    if engine:
        engine.expect(wire.SuplServers)
        engine.skip()
    commands = (sidechannel.START, sidechannel.STOP, CELLULAR, WIFI, CONNECTIVITY, 0x85)
    for command in commands:
        peer.request(command)
    assert peer.ask(FIXED) == 1
    assert peer.settings.items() == [(CELLULAR, 1), (WIFI, 0), (CONNECTIVITY, 1), (FIXED, 1)]
    assert [text for text in daemon.messages("Debug") if text.startswith("PositionDaemon::VESKRequest")] == [
        f"PositionDaemon::VESKRequest(0x{command:x})" for command in (*commands, FIXED)]
    assert daemon.messages("Warning").count(UNKNOWN) == 1
    assert len(peer.positions) == 0
    assert not engine or engine.pending() == []


# ---- queries

@pytest.mark.parametrize("key, code", [("CellularPositioning", CELLULAR), ("WiFiPositioning", WIFI),
                                       ("NetworkConnectivity", CONNECTIVITY)])
@pytest.mark.parametrize("value", [True, False])
def test_a_query_is_answered_with_the_setting(stage, peer, key, code, value):
    files.user_settings(**{key: value, "SuplForced": True})  # asked for, it is told whatever is in use
    stage.daemon()
    assert peer.ask(code) == int(value)
    assert stage.settings().set(key, not value)
    assert peer.ask(code) == int(not value)
    assert peer.ask(FIXED) == 1


@pytest.mark.parametrize("command", [0, 3, 0x80, 0x85, -1])
def test_an_unknown_request_is_warned_of_and_nothing_else(stage, peer, command):
    daemon = stage.daemon()
    peer.request(command)
    assert peer.told() == []
    assert daemon.has_message(f"PositionDaemon::VESKRequest(0x{command & 0xFFFFFFFF:x})", "Debug")
    assert daemon.messages("Warning").count(UNKNOWN) == 1
    assert len(peer.positions) == 0


def test_a_caller_that_wants_a_reply_gets_none(stage, peer):
    stage.daemon()
    monitor = stage.monitor(stage.system)
    message = Gio.DBusMessage.new_method_call(sidechannel.NAME, sidechannel.PATH, sidechannel.NAME, "request")
    message.set_body(GLib.Variant("(i)", (FIXED,)))
    _, serial = peer.connection.send_message(message, Gio.DBusSendMessageFlags.NONE)
    peer.settings.wait_for(lambda setting: setting == (FIXED, 1))
    peer.ask(CELLULAR)
    lines = monitor.settled_lines(stage.system)
    assert any("member=request" in line for line in lines)
    to_peer = [line for line in lines if f"destination={peer.connection.get_unique_name()} " in line]
    assert not any(line.startswith(("method return", "error")) and line.endswith(f"reply_serial={serial}")
                   for line in to_peer)
