"""The conversation between daemon and test engine, byte by byte."""

import struct
import time

import pytest

from orvpeer import Position, between, clock_seconds, sub_blocks

HOME = (47.3769, 8.5417)  # where the walk begins unless told otherwise


def test_privacy_registration_is_confirmed_with_zero(engine):
    daemon = engine().daemon()
    daemon.send("ef0c 0006 0000")
    assert daemon.receive().hex() == "ef0d000800000000"


def test_starting_a_session_is_answered_before_its_first_report(engine):
    daemon = engine("--ttff", 0).daemon()
    daemon.request(0x1770, 0, 1)
    assert daemon.receive().hex() == "ef02000817700000"
    assert daemon.receive()[:2].hex() == "ef03"


@pytest.mark.parametrize("command, status", [(0, 0), (1, 0), (2, 1), (3, 2), (255, 2)])
def test_the_response_tells_an_unknown_session_and_an_unknown_command(engine, command, status):
    daemon = engine().daemon()
    daemon.request(0xFFFE, command, 1)
    assert daemon.receive().hex() == f"ef020008fffe{status:02x}00"


def test_a_searching_receiver_reports_satellites_and_no_fix(engine):
    daemon = engine("--ttff", 60).daemon()
    daemon.start(7)
    report = daemon.report()
    assert (report.session, report.status, report.ids) == (7, 0x01, [0xEF04])


def test_a_fix_carries_position_time_velocity_and_satellites(engine):
    daemon = engine("--ttff", 0).daemon()
    daemon.start(7)
    report = daemon.report()
    assert (report.session, report.status, report.ids) == (7, 0x41, [0xEF01, 0xEF02, 0xEF03, 0xEF04])
    position = report.position
    assert between(HOME, (position.lat, position.lon))[0] < 5
    assert 2 * 390 < position.altitude + position.separation < 2 * 425
    assert position.separation == -95
    assert 200 < position.across < position.along < 5000
    assert 0 < position.altitude_error < 200
    assert abs(report.seconds - time.time()) < 5
    assert 100 < report.speed < 200 and report.heading != -1
    assert report.variation == 320 and -32767 <= report.climb <= 32767


def test_the_unread_bytes_of_the_blocks_are_zero(engine):
    daemon = engine("--ttff", 0).daemon()
    daemon.start()
    blocks = dict(daemon.report().blocks)
    assert blocks[0xEF01][:4].hex() == "ef01001e" and blocks[0xEF01][21:24] == b"\0\0\0"
    assert blocks[0xEF02][:4].hex() == "ef02000e" and blocks[0xEF02][8] == blocks[0xEF02][11] == 0
    assert blocks[0xEF03][:4].hex() == "ef030012"


def test_blocks_that_nobody_reads_come_now_and_then(engine):
    daemon = engine("--ttff", 0, "--rate", 20).daemon()
    daemon.start()
    seen = [tuple(daemon.report().ids) for _ in range(10)]
    plain = (0xEF01, 0xEF02, 0xEF03, 0xEF04)
    assert seen.count(plain) == 8 and seen.count((0xEF06, *plain, 0xEF15)) == 2


def test_each_session_is_served_at_its_own_interval(engine):
    daemon = engine("--ttff", 0, "--rate", 2).daemon()  # half a second told is a quarter's delay
    daemon.start(1, 1)
    daemon.start(3, 3)
    times = {1: [], 3: []}
    while len(times[3]) < 4:
        report = daemon.fix()
        times[report.session].append(report.seconds)
    for interval, series in times.items():
        for before, after in zip(series, series[1:]):
            assert abs(after - before - interval) < 0.5
        assert abs(series[-1] - series[0] - interval * (len(series) - 1)) < 0.5, "intervals drift"


def test_a_changed_interval_counts_from_the_last_report(engine):
    daemon = engine("--ttff", 0, "--rate", 10).daemon()
    daemon.start(5, 60)
    first = daemon.fix()
    daemon.request(5, 1, 2)
    series = [first.seconds] + [daemon.fix().seconds for _ in range(3)]
    for before, after in zip(series, series[1:]):
        assert abs(after - before - 2) < 0.8


def test_changing_an_unknown_session_begins_it(engine):
    daemon = engine("--ttff", 0).daemon()
    daemon.request(9, 1, 1)
    assert daemon.fix().session == 9


def test_an_interval_of_zero_is_taken_as_a_second(engine):
    running = engine()
    daemon = running.daemon()
    daemon.start(9, 0)
    assert running.state()["sessions"] == [{"fixed": False, "id": 9, "interval": 1}]


def test_a_second_start_of_the_same_session_replaces_it(engine):
    running = engine("--ttff", 0, "--rate", 10)
    daemon = running.daemon()
    daemon.start(9, 1)
    daemon.start(9, 4)
    assert [s["interval"] for s in running.state()["sessions"]] == [4]
    daemon.fix()
    series = [daemon.fix().seconds for _ in range(3)]
    assert abs(series[2] - series[0] - 8) < 1
    daemon.request(9, 2, 0)
    assert daemon.next(0xEF02).hex() == "ef02000800090000"
    assert running.state()["sessions"] == []


def test_a_stopped_session_gets_no_more_reports(engine):
    daemon = engine("--ttff", 0, "--rate", 50).daemon()
    daemon.start(1, 1)
    daemon.start(2, 1)
    daemon.request(1, 2, 0)
    assert daemon.next(0xEF02).hex() == "ef02000800010000"
    assert {daemon.report().session for _ in range(10)} == {2}


def test_a_daemon_that_connects_again_finds_no_sessions(engine):
    running = engine("--ttff", 0, "--rate", 50)
    daemon = running.daemon()
    daemon.start(1)
    daemon.close()
    daemon = running.daemon()
    daemon.request(1, 2, 0)
    assert daemon.receive().hex() == "ef02000800010100"


def test_two_connections_have_sessions_of_their_own(engine):
    running = engine("--ttff", 0, "--rate", 20)
    one, two = running.daemon(), running.daemon()
    one.start(1)
    two.start(2)
    assert {one.report().session for _ in range(5)} == {1}
    assert {two.report().session for _ in range(5)} == {2}


def read_supl(packet):
    message_id, length, request, status, count = struct.unpack_from(">HHHBB", packet)
    assert message_id == 0xEF05 and length == len(packet)
    return request, status, dict(sub_blocks(packet, count))


def test_a_supl_request_is_answered_later_with_a_coarse_position(engine):
    running = engine("--supl-delay", 0.3)
    daemon = running.daemon()
    begin = time.monotonic()
    daemon.send("ef04 000c 0fff 0014 02 000000")
    request, status, blocks = read_supl(daemon.receive())
    assert time.monotonic() - begin >= 0.3
    assert (request, status, sorted(blocks)) == (0xFFF, 0, [0xEF01, 0xEF02])
    position = Position(blocks[0xEF01])
    assert 100 < between(HOME, (position.lat, position.lon))[0] < 200
    assert (position.along, position.across) == (30000, 25000)
    assert abs(clock_seconds(blocks[0xEF02]) - time.time()) < 5
    last = running.state()["last"]["supl"]
    assert last == {"id": 0xFFF, "parameter": 20, "kind": 2, "hex": "ef04000c0fff001402000000"}


@pytest.mark.parametrize("answer, status", [("error", 1), ("timeout", 2)])
def test_a_failed_supl_request_has_a_status_and_no_blocks(engine, answer, status):
    running = engine()
    daemon = running.daemon()
    assert running.tell(f"supl {answer} 0") == "ok"
    daemon.send("ef04 000c 0001 0014 02 000000")
    assert daemon.receive().hex() == f"ef0500080001{status:02x}00"


def test_a_silent_engine_does_not_answer_supl_requests(engine):
    running = engine("--supl-delay", 0)
    daemon = running.daemon()
    running.tell("supl silent")
    daemon.send("ef04 000c 0001 0014 02 000000")
    daemon.send("ef0c 0006 0000")
    assert daemon.receive()[:2].hex() == "ef0d"
    running.tell("supl ok")
    daemon.send("ef04 000c 0002 0014 02 000000")
    assert read_supl(daemon.receive())[0] == 2


def test_deleting_assistance_data_costs_the_fix_and_makes_the_next_one_late(engine):
    running = engine("--ttff", 1, "--rate", 10)
    daemon = running.daemon()
    daemon.start()
    before = daemon.fix()
    daemon.send("ef0a 0008 000000ff")
    assert daemon.next(0xEF0B).hex() == "ef0b000801000000"
    searching = daemon.report(lambda r: not r.is_fix and r.heard())
    assert all((s.elevation, s.azimuth) == (-128, 0xFFFF) for s in searching.satellites)
    after = daemon.fix()
    assert 2.9 <= after.seconds - before.seconds < 6
    assert any(s.elevation != -128 for s in after.satellites)
    assert running.state()["last"]["delete"]["mask"] == 0xFF


def test_deleting_nothing_or_failing_to_delete_keeps_the_fix(engine):
    running = engine("--ttff", 0, "--rate", 10)
    daemon = running.daemon()
    daemon.start()
    daemon.fix()
    daemon.send("ef0a 0008 00000000")
    assert daemon.next(0xEF0B).hex() == "ef0b000801000000"
    running.tell("assist fail")
    daemon.send("ef0a 0008 11111111")
    assert daemon.next(0xEF0B).hex() == "ef0b000800000000"
    assert daemon.report().is_fix


def test_a_short_pause_leaves_the_receiver_warm(engine):
    daemon = engine("--ttff", 30, "--rate", 30).daemon()
    daemon.start(1)
    daemon.fix()
    daemon.request(1, 2, 0)
    daemon.start(2)
    first = daemon.report()
    searches = 1
    while not first.is_fix:
        first, searches = daemon.report(), searches + 1
    assert searches <= 4, "the second start searched as long as the first"


def test_replies_and_server_names_are_remembered(engine):
    running = engine()
    daemon = running.daemon()
    daemon.send("ef0f 0006 01 00")
    daemon.send("ef0f 0006 00 00")
    daemon.send("ef11 0014 05 07 82 83" + b"alphabravo12".hex())
    daemon.send("ef0c 0006 0000")
    daemon.receive()
    state = running.state()
    assert state["replies"] == [True, False]
    assert state["servers"] == {"primary": "alpha", "primary_usage": 0x82,
                                "secondary": "bravo12", "secondary_usage": 0x83}


def test_server_names_are_padded_to_a_multiple_of_four(engine):
    running = engine()
    daemon = running.daemon()
    daemon.send("ef11 0010 01 04 01 00" + b"abcde".hex() + "000000")
    daemon.send("ef11 0008 00 00 00 00")
    daemon.send("ef0c 0006 0000")
    daemon.receive()
    assert running.state()["counters"]["servers"] == 2 and "malformed" not in running.state()["counters"]


GARBAGE = ["00", "ef01", "ef01 000c", "ef01 000c 0001 0000 00 02 0001 00", "ef01 000d 0001 0000 00 02 0001 00",
           "ef0a 0006 0000", "ef0c 0004", "ef0f 0004", "ef11 0004", "ef11 0008 05 05 00 00", "ef04 0006 0001",
           "ef02 0008 0001 0000", "ef99 0004", "0000 0004", "ffff ffff", "ff" * 8000]


@pytest.mark.parametrize("packet", GARBAGE, ids=lambda packet: packet[:40])
def test_what_is_no_request_is_logged_and_ignored(engine, packet):
    running = engine()
    daemon = running.daemon()
    daemon.send(packet)
    daemon.send("ef0c 0006 0000")
    assert daemon.receive().hex() == "ef0d000800000000"
    assert running.state()["counters"]["malformed"] == 1
    assert running.log.read_text().startswith("fake_orv: ignored: ")


def test_a_daemon_that_does_not_read_loses_reports_and_nothing_else(engine):
    running = engine("--ttff", 0, "--rate", 1000)
    deaf, other = running.daemon(), running.daemon()
    deaf.start()
    other.start(2)
    while not running.state()["counters"].get("unsent"):
        other.report()
    assert running.state()["connected"] == 2
    while deaf.receive()[:2].hex() != "ef03":
        pass
    assert deaf.fix().session == 6000
