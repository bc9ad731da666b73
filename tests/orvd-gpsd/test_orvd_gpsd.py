"""The orvd-gpsd program between a daemon's socket and a gpsd that says what the test wants."""

import os
import signal
import socket
import stat
import struct

import pytest

from fakegpsd import sky, tpv
from orvd import CHANGE_INTERVAL, STOP, Satellite, wait_gone

MOVING = dict(altHAE=155.0, altMSL=109.5, speed=3.25, track=350.0, climb=-0.5, magvar=1.4, epx=15.0, epy=31.0,
              epv=20.5)


# ---- requests --------------------------------------------------------------------------------

def test_a_registration_is_accepted(stage):
    _, _, daemon = stage
    assert daemon.wait_answer(0xEF0D).body == bytes(4)


def test_session_requests_are_answered(stage):
    _, _, daemon = stage
    assert daemon.session(7) == 0
    assert daemon.session(7, CHANGE_INTERVAL, 5) == 0
    assert daemon.session(7, STOP, 0) == 0
    assert daemon.session(7, STOP, 0) == 1, "it has been stopped before"
    assert daemon.session(8, CHANGE_INTERVAL, 5) == 0, "an unknown session starts"


def test_assistance_data_cannot_be_deleted(stage):
    _, engine, daemon = stage
    daemon.delete_assistance(0xFD)
    assert daemon.wait_answer(0xEF0B).body[0] != 1
    engine.log.wait_for("orvd-gpsd: gpsd cannot delete assistance data (mask 0xfd)")


def test_replies_and_server_names_are_read_and_ignored(stage):
    _, engine, daemon = stage
    daemon.send(struct.pack(">HHBB", 0xEF0F, 6, 1, 0))
    daemon.send(struct.pack(">HHBBBB4s4s", 0xEF11, 16, 4, 4, 1, 2, b"abcd", b"efgh"))
    daemon.barrier()
    assert not [line for line in engine.log.items() if "warning" in line and "gpsd" not in line.split("warning")[1]]


@pytest.mark.parametrize("packet", [
    b"\xef", b"\xef\x01\x00\x04", b"\xef\x01\x00\x0c\x00\x07\x00\x00\x03\x02\x00\x01", b"\xef\x03\x00\x08\x00\x07\x41\x00",
    b"\xef\x11\x00\x08\xff\xff\x00\x00", bytes(8192), b"\xef\x0a\x00\x08\x00\x00"],
    ids=["one byte", "too short", "unknown command", "an engine's own message", "names beyond the packet",
         "zeros", "a mask cut short"])
def test_a_request_that_cannot_be_read_is_logged_and_dropped(stage, packet):
    _, engine, daemon = stage
    daemon.send(packet)
    engine.log.wait_for(f"orvd-gpsd: warning: Dropped a request that cannot be read, {len(packet)} bytes")
    assert daemon.session(7) == 0


# ---- epochs ----------------------------------------------------------------------------------

def test_an_epoch_arrives_once_with_all_that_gpsd_knows(stage):
    gpsd, _, daemon = stage
    daemon.session(7)
    gpsd.wait_watched().say(
        sky((5, True, 40.0, 45.0, 270.0), (12, False, None, None, None), (301, True, 40.0, 45.0, 270.0)),
        tpv(0.5, lat=50.84, lon=-4.347), tpv(0.5, lat=50.84, lon=-4.347, **MOVING), tpv(0.5, lat=50.84, lon=-4.347),
        tpv(1.5))
    report = daemon.wait_report()
    assert (report.session, report.status) == (7, 0x41)
    assert report.latitude == pytest.approx(50.84, abs=1e-7)
    assert report.longitude == pytest.approx(-4.347, abs=1e-7)
    assert (report.ellipsoid, report.sea_level, report.vertical_error) == (155.0, 109.5, 20.5)
    assert (report.along, report.ortho, report.angle) == (31.0, 15.0, 0)
    assert (report.heading, report.speed, report.climb, report.variation) == \
        pytest.approx((-10.0, 3.25, -0.5, 1.4))
    assert report.time == (2023, 11, 14, 22, 0, 500)
    assert report.satellites == [Satellite(5, True, 40.0, 45.0, pytest.approx(270.0)), Satellite(12, False)]
    daemon.wait_report(lambda r: r.time[5] == 1500)  # by silence
    daemon.barrier()
    assert len(daemon.reports()) == 2


def test_a_fix_that_says_little_claims_little(stage):
    gpsd, _, daemon = stage
    daemon.session(7)
    gpsd.wait_watched().say(tpv(0, mode=2), tpv(1, mode=2))
    report = daemon.wait_report()
    assert report.has_fix and 0xEF03 not in report.blocks and 0xEF04 not in report.blocks
    assert (report.along, report.ortho, report.vertical_error) == (None, None, None)
    assert (report.ellipsoid, report.sea_level) == (0, 0)


def test_a_search_shows_satellites_and_no_fix(stage):
    gpsd, _, daemon = stage
    daemon.session(7)
    gpsd.wait_watched().say(tpv(mode=1), sky((1, False), (2, False)), tpv(mode=1), sky((1, False), (3, False)), tpv(mode=1))
    first, second = daemon.wait_report(), daemon.wait_report(count=2)
    assert (first.status, first.blocks, [s.prn for s in first.satellites]) == (0x01, [0xEF04], [1, 2])
    assert (second.status, second.blocks, [s.prn for s in second.satellites]) == (0x01, [0xEF04], [1, 3])


def test_an_empty_sky_is_told(stage):
    gpsd, _, daemon = stage
    daemon.session(7)
    gpsd.wait_watched().say(sky(), tpv(mode=1))
    assert daemon.wait_report().satellites == []


def test_sessions_get_epochs_by_their_interval_in_receiver_time(stage):
    gpsd, _, daemon = stage
    daemon.session(7, interval=1)
    daemon.session(8, interval=10)
    gpsd.wait_watched().say(*(tpv(0.2 * i, lat=i) for i in range(150)))
    daemon.wait_report(lambda r: r.session == 7, count=150)
    daemon.barrier()
    assert [round(r.latitude) for r in daemon.reports(7)] == list(range(150))
    assert [round(r.latitude) for r in daemon.reports(8)] == [0, 50, 100]


def test_a_stopped_session_gets_nothing_more(stage):
    gpsd, _, daemon = stage
    daemon.session(7)
    daemon.session(8)
    gpsd.wait_watched().say(tpv(0), tpv(1))
    daemon.wait_report(count=2)
    daemon.session(7, STOP, 0)
    after = len(daemon.received)
    gpsd.say(tpv(2), tpv(3))
    daemon.wait_report(lambda r: r.session == 8, after=after, count=2)
    daemon.barrier()
    assert len(daemon.reports(7)) == 1


def test_a_receiver_that_is_slow_within_an_epoch_is_waited_for_longer(pieces):
    gpsd = pieces.gpsd()
    engine = pieces.engine(gpsd, "--settle", "20")
    daemon = pieces.daemon(engine).register()
    daemon.session(7)
    gpsd.wait_watched().say(tpv(0))
    daemon.wait_report()
    gpsd.say(tpv(0, **MOVING))
    engine.log.wait_for("The receiver is slow to complete an epoch, waiting 40 ms now")
    daemon.barrier()
    assert len(daemon.reports()) == 1


# ---- single fixes ----------------------------------------------------------------------------

def test_a_single_fix_is_answered_from_the_current_one(stage):
    gpsd, _, daemon = stage
    daemon.session(7)
    gpsd.wait_watched().say(tpv(0, lat=50.84, **MOVING), tpv(1, lat=50.85, **MOVING))
    daemon.wait_report(count=2)
    daemon.supl()
    report = daemon.wait_report(lambda r: r.session is None)
    assert report.status == 0 and report.blocks == [0xEF01, 0xEF02, 0xEF03]
    assert report.latitude == pytest.approx(50.85, abs=1e-7)


def test_a_single_fix_is_waited_for_without_any_session(stage):
    gpsd, _, daemon = stage
    daemon.supl()
    gpsd.wait_watched().say(tpv(mode=1), tpv(5, lat=51.0))
    report = daemon.wait_report(lambda r: r.session is None)
    assert report.status == 0 and report.latitude == pytest.approx(51.0, abs=1e-7)
    daemon.barrier()
    assert daemon.reports() == []


def test_a_single_fix_that_does_not_come_is_a_time_out(stage):
    gpsd, _, daemon = stage
    daemon.supl(1)
    daemon.supl(2)
    gpsd.wait_watched().say(sky((1, False)), tpv(mode=1))
    report = daemon.wait_report(lambda r: r.session is None, count=2)
    assert (report.status, report.blocks) == (2, [])


def test_a_single_fix_without_gpsd_is_a_time_out(pieces):
    gpsd = pieces.gpsd()
    gpsd.close()
    daemon = pieces.daemon(pieces.engine(gpsd)).register()
    daemon.supl()
    assert daemon.wait_report(lambda r: r.session is None).status == 2


# ---- gpsd comes and goes ---------------------------------------------------------------------

def test_gpsd_is_left_alone_until_somebody_waits(stage):
    gpsd, _, daemon = stage
    daemon.barrier()
    assert gpsd.connections == 0
    daemon.session(7)
    gpsd.wait_watched()


def test_gpsd_may_start_later(pieces):
    gpsd = pieces.gpsd()
    gpsd.close()
    engine = pieces.engine(gpsd)
    daemon = pieces.daemon(engine).register()
    daemon.session(7)
    engine.log.wait_for("warning: gpsd cannot be reached")
    pieces.gpsd(port=gpsd.port).wait_watched().say(tpv(0), tpv(1))
    assert daemon.wait_report().has_fix


def test_gpsd_may_end_and_come_back(stage):
    gpsd, engine, daemon = stage
    daemon.session(7)
    gpsd.wait_watched().say(tpv(0, lat=1.0))
    gpsd.hang_up()  # the end of the stream ends the epoch
    assert daemon.wait_report().latitude == pytest.approx(1.0, abs=1e-7)
    engine.log.wait_for("warning: gpsd has ended the connection")
    gpsd.wait_watched(count=2).say(tpv(0, lat=2.0), tpv(1, lat=2.0))
    assert daemon.wait_report(count=2).latitude == pytest.approx(2.0, abs=1e-7), "the same moment, a new stream"


def test_what_gpsd_should_never_say_does_no_harm(stage):
    gpsd, engine, daemon = stage
    daemon.session(7)
    gpsd.wait_watched().say_raw(b'{"class":"TPV"}\r\n{"class":"SKY"}\r\nnonsense\r\n{"class":"TPV","mode":9,"lat":"x"}\r\n'
                                b'{"class":"ERROR","message":"no"}\r\n')
    gpsd.say(tpv(3, lat=3.0), tpv(4))
    assert daemon.wait_report(lambda r: r.has_fix).latitude == pytest.approx(3.0, abs=1e-7)
    assert engine.is_running()


# ---- daemons come and go ---------------------------------------------------------------------

def test_a_daemon_that_reconnects_starts_afresh(pieces, stage):
    gpsd, engine, first = stage
    first.session(7)
    gpsd.wait_watched().say(tpv(0))
    first.wait_report()
    first.close()
    engine.log.wait_for("A daemon has gone")
    second = pieces.daemon(engine).register()
    second.session(9)
    gpsd.say(tpv(1), tpv(2))
    assert second.wait_report().session == 9
    second.barrier()
    assert not second.reports(7), "sessions belong to their connection"
    assert gpsd.connections == 1, "gpsd is kept for a daemon that comes back at once"


def test_two_daemons_are_served_each_its_own(pieces, stage):
    gpsd, engine, first = stage
    second = pieces.daemon(engine).register()
    first.session(7)
    second.session(7, interval=60)
    gpsd.wait_watched().say(tpv(0), tpv(1), tpv(2))
    first.wait_report(count=3)
    second.wait_report()
    second.barrier()
    assert len(second.reports()) == 1


def test_a_daemon_that_does_not_read_holds_up_nobody(pieces, stage):
    gpsd, engine, reader = stage
    sleeper = pieces.daemon(engine, reading=False)
    sleeper.send(struct.pack(">HHHHBBH", 0xEF01, 12, 9, 0, 0, 2, 1))
    reader.session(7)
    gpsd.wait_watched()
    for start in range(0, 6000, 500):
        gpsd.say(*(tpv(0.1 * i, lat=i / 100) for i in range(start, start + 500)))
        reader.wait_report(lambda r: r.has_fix, count=start + 499)
    engine.log.wait_for("warning: The daemon does not read, messages to it are dropped")
    sleeper.read()
    last = sleeper.wait_report(lambda r: r.latitude > 59.97)
    assert last.session == 9
    sleeper.barrier()
    latitudes = [report.latitude for report in sleeper.reports()]
    assert latitudes == sorted(latitudes) and 4000 < len(latitudes) < 5999
    engine.log.wait_for("orvd-gpsd: The daemon reads again")


def test_a_burst_reaches_a_daemon_that_reads_slowly(pieces, stage):
    gpsd, engine, _ = stage
    slow = pieces.daemon(engine, reading=False)
    slow.send(struct.pack(">HHHHBBH", 0xEF01, 12, 9, 0, 0, 2, 1))
    gpsd.wait_watched().say(*(tpv(i, lat=i / 100) for i in range(1001)))
    engine_saw = pieces.daemon(engine).register()
    engine_saw.barrier()
    slow.read().wait_report(lambda r: r.latitude > 9.985)
    assert len(slow.reports()) >= 1000
    assert "dropped" not in "\n".join(engine.log.items())


# ---- the process -----------------------------------------------------------------------------

@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT, signal.SIGHUP])
def test_it_ends_on_a_signal_and_takes_its_socket_along(pieces, number):
    engine = pieces.engine(pieces.gpsd())
    daemon = pieces.daemon(engine).register()
    engine.signal(number)
    assert engine.wait_exit() == 0
    wait_gone(engine.socket_path)
    daemon.close()


def test_the_socket_is_for_every_user_and_its_directory_is_made(pieces):
    engine = pieces.engine(pieces.gpsd(), socket_path="/tmp/some/where/engine")
    assert stat.S_IMODE(os.stat(engine.socket_path).st_mode) == 0o666
    assert stat.S_ISSOCK(os.stat(engine.socket_path).st_mode)


def test_a_socket_that_nobody_serves_is_replaced(pieces):
    left_over = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
    left_over.bind("/tmp/left-over")
    left_over.close()
    engine = pieces.engine(pieces.gpsd(), socket_path="/tmp/left-over")
    pieces.daemon(engine).register()


def test_a_socket_that_is_served_is_refused(pieces):
    first = pieces.engine(pieces.gpsd())
    second = pieces.launch(socket_path=first.socket_path)
    assert second.wait_exit() == 1
    second.log.wait_for("warning: Cannot serve /tmp/engine/socket: another engine serves it")
    pieces.daemon(first).register()


def test_a_socket_of_another_kind_is_refused_for_what_it_is(pieces):
    stream = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    stream.bind("/tmp/stream")
    stream.listen()
    engine = pieces.launch(socket_path="/tmp/stream")
    assert engine.wait_exit() == 1
    engine.log.wait_for("warning: Cannot serve /tmp/stream: Protocol wrong type for socket")
    stream.close()


def test_a_socket_with_many_who_wait_is_served(pieces):
    busy = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
    busy.bind("/tmp/busy")
    busy.listen(0)
    waiting = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
    waiting.connect("/tmp/busy")
    engine = pieces.launch(socket_path="/tmp/busy")
    assert engine.wait_exit() == 1
    engine.log.wait_for("warning: Cannot serve /tmp/busy: another engine serves it")
    waiting.close()
    busy.close()


def test_a_broken_pipe_is_not_its_end(stage):
    _, engine, daemon = stage
    engine.signal(signal.SIGPIPE)
    daemon.barrier()
    assert engine.is_running()


def test_a_file_that_is_no_socket_is_left_alone(pieces, tmp_path):
    file = tmp_path / "file"
    file.write_text("precious")
    engine = pieces.launch(socket_path=str(file))
    assert engine.wait_exit() == 1
    engine.log.wait_for(f"Cannot serve {file}: there is something that is no socket")
    assert file.read_text() == "precious"


@pytest.mark.parametrize("path, reason", [
    ("/proc/none/socket", "its directory cannot be made"), ("/tmp/" + "x" * 120, "the path is empty or too long")])
def test_a_path_that_cannot_be_served_is_an_error(pieces, path, reason):
    engine = pieces.launch(socket_path=path)
    assert engine.wait_exit() == 1
    engine.log.wait_for(f"Cannot serve {path}: {reason}")


def test_another_engines_socket_is_not_removed_at_the_end(pieces):
    engine = pieces.engine(pieces.gpsd())
    os.unlink(engine.socket_path)
    other = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
    other.bind(engine.socket_path)
    engine.signal(signal.SIGTERM)
    assert engine.wait_exit() == 0
    assert os.path.exists(engine.socket_path)
    other.close()


@pytest.mark.parametrize("arguments, status", [(["--help"], 0), (["--version"], 0), (["--no-such"], 2), (["--port", "0"], 2)])
def test_exit_statuses(pieces, arguments, status):
    assert pieces.launch(*arguments).wait_exit() == status
