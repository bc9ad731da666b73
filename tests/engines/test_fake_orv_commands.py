"""Trouble on request: every command of the control socket."""

import struct

import pytest

from orvpeer import between, sub_blocks


def test_nofix_and_fix(engine):
    running = engine("--ttff", 0, "--rate", 10)
    daemon = running.daemon()
    daemon.start()
    daemon.fix()
    assert running.tell("nofix") == "ok"
    daemon.report(lambda r: not r.is_fix)
    assert not any(daemon.report().is_fix for _ in range(5))
    assert running.state()["fix"] is False and running.state()["searching"] is True
    assert running.tell("fix") == "ok"
    assert daemon.fix().status == 0x41


def test_fix_ends_a_long_search(engine):
    running = engine("--ttff", 10000)
    daemon = running.daemon()
    daemon.start()
    assert not daemon.report().is_fix
    running.tell("fix")
    assert daemon.fix().is_fix


def test_lose_interrupts_the_fix_for_so_long(engine):
    running = engine("--ttff", 0, "--rate", 10)
    daemon = running.daemon()
    daemon.start(1, 60)
    before = daemon.fix().seconds
    assert running.tell("lose 5") == "ok"
    assert not daemon.report().is_fix
    assert 5 <= daemon.fix().seconds - before < 8


def test_lose_without_a_number_takes_the_time_to_first_fix(engine):
    running = engine("--ttff", 3, "--rate", 10)
    daemon = running.daemon()
    daemon.start(1, 60)
    before = daemon.fix().seconds
    running.tell("lose")
    assert 3 <= daemon.fix().seconds - before < 6


@pytest.mark.parametrize("number, fixed", [(0, False), (3, False), (4, True), (9, True)])
def test_few_satellites_give_no_fix(engine, number, fixed):
    running = engine("--ttff", 0, "--rate", 10)
    daemon = running.daemon()
    assert running.tell(f"satellites {number}") == "ok"
    daemon.start()
    report = daemon.report()
    assert (len(report.heard()), report.is_fix) == (number, fixed)
    running.tell("satellites all")
    assert len(daemon.report(lambda r: r.is_fix and len(r.heard()) != number).heard()) > 9


def test_speed_changes_without_a_jump_and_standing_has_no_heading(engine):
    running = engine("--ttff", 0, "--rate", 10)
    daemon = running.daemon()
    daemon.start()
    before = daemon.fix()
    assert running.tell("speed 100") == "ok"
    fast = daemon.report(lambda r: r.speed > 2000)
    distance = between((before.position.lat, before.position.lon), (fast.position.lat, fast.position.lon))[0]
    assert distance < 33 * (fast.seconds - before.seconds)
    running.tell("speed 0")
    standing = daemon.report(lambda r: r.speed == 0)
    assert (standing.heading, standing.climb) == (-1, 0)
    later = daemon.fix()
    assert (later.position.lat, later.position.lon) == (standing.position.lat, standing.position.lon)


def test_privacy_and_assist_failures(engine):
    running = engine()
    daemon = running.daemon()
    assert (running.tell("privacy fail"), running.tell("assist fail")) == ("ok", "ok")
    daemon.send("ef0c 0006 0000")
    assert daemon.receive().hex() == "ef0d000801000000"
    daemon.send("ef0a 0008 00000001")
    assert daemon.receive().hex() == "ef0b000800000000"
    assert (running.tell("privacy ok"), running.tell("assist ok")) == ("ok", "ok")
    daemon.send("ef0c 0006 0000")
    assert daemon.receive().hex() == "ef0d000800000000"
    daemon.send("ef0a 0008 00000001")
    assert daemon.receive().hex() == "ef0b000801000000"


@pytest.mark.parametrize("command, packet", [
    ("locationrequest 1 9", "ef0e0008 01090000"),
    ("locationrequest 2 255", "ef0e0008 02ff0000"),
    ("locationrequest 0 3 Al", "ef0e0014 00030001 ef12000c 00000002 0041006c"),
    ("locationrequest 1 3 - ABCD", "ef0e0018 01030001 ef130010 0000 0400 0041004200430044"),
    ("locationrequest 1 3 - - 1", "ef0e0010 01030001 ef140008 0000 0100"),
    ("locationrequest 1 3 - - 0", "ef0e0010 01030001 ef140008 0000 0000"),
    ("locationrequest 1 3 'A B' '' yes",
     "ef0e0026 01030003 ef12000e 00000003 004100200042 ef130008 00000000 ef140008 0000 0100"),
    ("locationrequest 1 3 \u00e9\U0001f600", "ef0e0016 01030001 ef12000e 00000003 00e9d83dde00"),
    ("withdraw 9", "ef0e0008 04090000"),
    ("raw ef990004", "ef990004"),
    ("raw 00", "00"),
])
def test_packets_on_request(engine, command, packet):
    running = engine()
    daemon = running.daemon()
    daemon.send("ef0c 0006 0000")
    daemon.receive()
    assert running.tell(command) == "ok"
    assert daemon.receive().hex() == packet.replace(" ", "")


def test_a_long_client_name_is_cut_and_a_long_id_is_not(engine):
    running = engine()
    daemon = running.daemon()
    daemon.send("ef0c 0006 0000")
    daemon.receive()
    running.tell(f"locationrequest 1 1 {'n' * 300} {'i' * 300}")
    packet = daemon.receive()
    blocks = dict(sub_blocks(packet, packet[7]))
    assert blocks[0xEF12][7] == 255 and len(blocks[0xEF12]) == 8 + 510
    assert struct.unpack_from("<H", blocks[0xEF13], 6) == (300,) and len(blocks[0xEF13]) == 8 + 600


def test_mute_stops_the_reports_and_nothing_else(engine):
    running = engine("--ttff", 0, "--rate", 20)
    daemon = running.daemon()
    daemon.start()
    daemon.fix()
    running.tell("mute")
    running.tell("raw ef990004")
    daemon.next(0xEF99)  # whatever was on its way has come
    daemon.send("ef0c 0006 0000")
    assert daemon.receive()[:2].hex() == "ef0d"
    running.tell("unmute")
    assert daemon.receive()[:2].hex() == "ef03"


def test_deaf_leaves_requests_unread_until_it_hears_again(engine):
    running = engine()
    daemon = running.daemon()
    running.tell("deaf")
    daemon.send("ef0c 0006 0000")
    assert "privacy" not in running.state()["counters"]
    running.tell("hear")
    assert daemon.receive()[:2].hex() == "ef0d"


def test_drop_closes_the_connection_and_the_next_one_starts_empty(engine):
    running = engine("--ttff", 0)
    daemon = running.daemon()
    daemon.start()
    running.tell("drop")
    while daemon.receive():
        pass
    assert (running.state()["connected"], running.state()["sessions"]) == (0, [])
    assert running.daemon().start()[:2].hex() == "ef02"


def test_quit_ends_the_engine_cleanly(engine):
    running = engine()
    running.tell("quit")
    assert running.process.wait(20) == 0


def test_state_tells_what_was_asked_and_where_the_walker_is(engine):
    running = engine("--ttff", 0)
    daemon = running.daemon()
    daemon.request(0x1770, 0, 30, mode=1)
    fix = daemon.fix()
    state = running.state()
    assert state["sessions"] == [{"fixed": True, "id": 0x1770, "interval": 30}]
    assert state["last"]["gnss"] == {"session": 0x1770, "command": 0, "mode": 1, "interval": 30,
                                     "hex": "ef01000c177000000001001e"}
    assert (state["connected"], state["fix"], state["searching"]) == (1, True, False)
    assert between((fix.position.lat, fix.position.lon), (state["latitude"], state["longitude"]))[0] < 50
    assert state["counters"]["gnss"] == 1 and state["counters"]["connections"] == 1


@pytest.mark.parametrize("command", [
    "", " ", "nonsense", "__init__", "state now", "lose soon", "lose nan", "lose inf", "lose -1", "speed", "speed -1",
    "speed nan", "satellites few", "supl maybe", "supl ok nan", "supl ok inf", "supl ok -1", "assist maybe",
    "locationrequest", "locationrequest 1", "locationrequest 256 1", "withdraw x", "raw 0", "raw xyz", "raw \u00e9",
    "locationrequest 1 1 'open", "\u00e9"])
def test_a_wrong_command_gets_an_error_and_changes_nothing(engine, command):
    running = engine()
    assert running.tell(command).startswith("error: ")
    assert running.tell("mute") == "ok"


def test_a_supl_command_with_a_wrong_delay_changes_nothing(engine):
    running = engine("--supl-delay", 0)
    daemon = running.daemon()
    assert running.tell("supl timeout soon").startswith("error: ")
    daemon.send("ef04 000c 0001 0014 02 000000")
    assert daemon.receive()[6] == 0
