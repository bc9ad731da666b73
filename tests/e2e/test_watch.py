"""lodestar-watch beside the real daemon: what it prints, how it ends, and its screen."""

import fcntl
import json
import os
import pty
import re
import select
import signal
import struct
import subprocess
import termios
import time

import pytest

from harness import files, wire
from harness.mailbox import DEADLINE
from harness.program import Program, built
from harness.road import Road

ENTER, LEAVE = "\x1b[?1049h\x1b[?25l\x1b[?7l\x1b[2J", "\x1b[?7h\x1b[?25h\x1b[?1049l"
SATELLITES = wire.satellites(wire.satellite(5, used=1, signal=40, elevation=60, azimuth=90),
                             wire.satellite(23, used=0, signal=20, elevation=10, azimuth=300))


def program():
    return built("clients/lodestar-watch/lodestar-watch")


def environment(bus, **changes):
    return {**os.environ, "DBUS_SESSION_BUS_ADDRESS": bus.address if bus else "unix:path=/nonexistent",
            "ASAN_OPTIONS": "exitcode=99", "UBSAN_OPTIONS": "halt_on_error=1:exitcode=99", **changes}


@pytest.fixture
def watch(stage):
    """Starts lodestar-watch on the session bus."""
    def start(*arguments):
        watch = Program(program(), *arguments, environment=environment(stage.session))
        return stage.keep(watch, watch.stop)
    return start


def whole_report(road, session, latitude=47.5):
    road.report(session, SATELLITES, wire.position(latitude, -8.25, along=1000, ortho=500, altitude=800,
                                                   altitude_error=20, geoid=96),
                wire.velocity(heading=-9000, speed=250, climb=-50, variation=150))


# ---- lines

def test_json_names_every_value(road, watch):
    watch = watch("--json", "--satellites", "--count", "2")
    start = road.engine.expect(wire.GnssRequest)
    assert (start.command, start.interval) == (wire.START, 1)
    whole_report(road, start.session)
    road.report(start.session, SATELLITES, status=wire.NO_FIX)
    road.fix(start.session, 48)
    assert watch.status() == 0
    first, second = map(json.loads, watch.lines.items())
    stamp = first.pop("time")
    assert re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}(Z|[+-]\d\d:\d\d)", stamp)
    assert first.pop("satellites") == [
        {"prn": 5, "signal": 40, "elevation": 60, "azimuth": 90, "used": True},
        {"prn": 23, "signal": 20, "elevation": 10, "azimuth": 300, "used": False}]
    assert first == pytest.approx({
        "valid": True, "latitude": 47.5, "longitude": -8.25, "altitude": 448, "heading": 270, "speed": 2.5,
        "climb": -0.5, "magneticVariation": 1.5, "horizontalAccuracy": 11.358, "verticalAccuracy": 10,
        "satellitesInView": 2, "satellitesUsed": 1})
    assert second["latitude"] == pytest.approx(48) and "heading" not in second
    assert watch.errors.items() == []


def test_json_tells_of_a_fix_that_is_lost(road, watch):
    """An invalid fix is a line as well, and does not count."""
    watch = watch("--json", "--count", "2")
    session = road.engine.expect(wire.GnssRequest).session
    road.fix(session, 1)
    road.report(session, wire.velocity(heading=100))
    road.fix(session, 2)
    assert watch.status() == 0
    reports = [json.loads(line) for line in watch.lines.items()]
    assert [report["valid"] for report in reports] == [True, False, True]
    assert reports[1]["heading"] == 1 and "latitude" not in reports[1]


def test_plain_lines(road, watch):
    watch = watch("--count", "1", "--interval", "5000")
    start = road.engine.expect(wire.GnssRequest)
    assert start.interval == 5
    whole_report(road, start.session)
    assert watch.status() == 0
    (line,) = watch.lines.items()
    assert re.fullmatch(r"\d\d:\d\d:\d\d  47\.5000000 -8\.2500000  altitude 448\.0 m  "
                        r"accuracy 11\.4 m across, 10\.0 m up  "
                        r"speed 2\.50 m/s \(9\.0 km/h\)  heading 270\.0° W  2 in view, 1 used", line)


@pytest.mark.parametrize("methods, mask", [("satellite", "0xff"), ("network", "0xffffff00"), ("all", "0xffffffff")])
def test_the_methods_that_are_asked_for(road, watch, methods, mask):
    watch = watch("--json", "--methods", methods)
    road.daemon.wait_for_message(
        f"startSessions: client: id=6000, stopped=0, methods={mask}, actGNSS=0, actSUPL=0", "Debug")
    watch.signal(signal.SIGTERM)
    assert watch.status() == 1


# ---- a network client beside it

def test_network_positions_are_lines_of_their_own(stage, watch):
    files.marker("use_supl")
    road = Road(stage)
    watch = watch("--json", "--network", "60000")
    session = road.engine.expect(wire.GnssRequest).session
    road.engine.expect(wire.SuplRequest)
    road.supl(12)
    watch.lines.wait_for('"client":"network"')
    whole_report(road, session)
    watch.lines.wait_for('"latitude":47.5')
    watch.signal(signal.SIGTERM)
    assert watch.status() == 0
    network, satellite = map(json.loads, watch.lines.items())
    assert network["latitude"] == pytest.approx(12) and "satellitesInView" not in network
    assert "client" not in satellite
    assert watch.errors.items() == []


@pytest.mark.parametrize("network_arrives", [True, False])
def test_one_kind_of_fix_is_not_enough(stage, watch, network_arrives):
    files.marker("use_supl")
    road = Road(stage)
    watch = watch("--plain", "--network", "60000")
    session = road.engine.expect(wire.GnssRequest).session
    road.engine.expect(wire.SuplRequest)
    if network_arrives:
        road.supl(12)
        watch.lines.wait_for(re.compile(r"^network: \d\d:\d\d:\d\d  12\.0000000 8\.5000000 "))
    else:
        road.engine.send(wire.supl_response(2))
        watch.lines.wait_for(re.compile("^network: no position$"))
        road.fix(session, 12)
        watch.lines.wait_for(re.compile(r"^\d\d:\d\d:\d\d  12\.0000000 8\.5000000 "))
    watch.signal(signal.SIGTERM)
    assert watch.status() == 1


# ---- ends

def test_a_time_limit_without_a_fix(road, watch):
    begin = time.monotonic()
    assert watch("--json", "--seconds", "1").status() == 1
    assert time.monotonic() - begin >= 0.9  # its timer may be a little early
    road.daemon.wait_for_message("PositionDaemon: Removing client with id: 6000")


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_a_signal_after_a_fix(road, watch, number):
    watch = watch("--json")
    road.fix(road.engine.expect(wire.GnssRequest).session, 1)
    watch.lines.wait_for('"valid":true')
    watch.signal(number)
    assert watch.status() == 0


@pytest.mark.parametrize("arguments", [["--nonsense"], ["--json", "--plain"], ["--count", "-1"], ["--count", "1e3"],
                                       ["--seconds", ""], ["--interval", "x"], ["--methods", "gps"], ["more"]],
                         ids=" ".join)
def test_wrong_usage(watch, arguments):
    watch = watch(*arguments)
    assert watch.status() == 2
    assert watch.lines.items() == []
    assert watch.errors.items()[-1] == "Try 'lodestar-watch --help'."


def test_no_daemon(watch):
    watch = watch("--json")
    assert watch.status() == 3
    assert watch.lines.items() == []
    assert watch.errors.items()[0].startswith("lodestar-watch: lodestard does not answer: ")


def test_no_bus():
    done = subprocess.run([program(), "--json"], env=environment(None), capture_output=True, text=True,
                          timeout=DEADLINE, check=False)
    assert done.returncode == 3
    assert done.stderr.startswith("lodestar-watch: there is no session bus: ")


def test_a_daemon_that_vanishes(road, watch):
    watch = watch("--json")
    road.fix(road.engine.expect(wire.GnssRequest).session, 1)
    watch.lines.wait_for('"valid":true')
    road.daemon.signal(signal.SIGKILL)
    assert watch.status() == 3
    assert watch.errors.items() == ["lodestar-watch: lodestard left the session bus"]


def test_waiting_for_a_daemon_that_comes_and_comes_again(stage, watch):
    watch = watch("--json", "--wait", "--count", "2")
    watch.errors.wait_for("lodestard does not answer")
    road = Road(stage)
    road.fix(road.engine.expect(wire.GnssRequest, command=wire.START).session, 1)
    watch.lines.wait_for('"valid":true')
    road.daemon.signal(signal.SIGKILL)
    watch.errors.wait_for("lodestard left the session bus")
    road.daemon.wait_exit()
    stage.daemon()
    road.engine.expect(wire.RegisterPrivacy)
    road.fix(road.engine.expect(wire.GnssRequest, command=wire.START).session, 2)
    assert watch.status() == 0
    assert [json.loads(line)["latitude"] for line in watch.lines.items()] == pytest.approx([1, 2])


def test_two_watchers_side_by_side(road, watch):
    first, second = watch("--json", "--count", "1"), watch("--json", "--count", "1")
    for latitude in (1, 2):
        road.fix(road.engine.expect(wire.GnssRequest, command=wire.START).session, latitude)
    assert [first.status(), second.status()] == [0, 0]
    assert sorted(json.loads(w.lines.items()[0])["latitude"] for w in (first, second)) == pytest.approx([1, 2])


# ---- the screen

class Screen:
    """The program on a terminal of 100 columns and 30 rows; `text` is all that it has drawn."""

    def __init__(self, bus, *arguments, **variables):
        path, surroundings = program(), environment(bus, **{"TERM": "xterm-256color", **variables})
        self.pid, self._terminal = pty.fork()
        if self.pid == 0:
            os.execve(path, [path, *arguments], surroundings)
        fcntl.ioctl(self._terminal, termios.TIOCSWINSZ, struct.pack("HHHH", 30, 100, 0, 0))
        self._raw = b""
        self._ended = False

    @property
    def text(self):
        return self._raw.decode("utf-8", "replace")

    def wait_for(self, wanted):
        end = time.monotonic() + DEADLINE
        while not re.search(wanted, self.text, re.DOTALL):
            assert not self._ended and time.monotonic() < end, f"{wanted!r} is not on the screen: {self.text!r}"
            self._read()

    def _read(self):
        if select.select([self._terminal], [], [], 0.5)[0]:
            try:
                data = os.read(self._terminal, 65536)
            except OSError:  # the other side is closed
                data = b""
            self._raw += data
            self._ended = not data

    def type(self, keys):
        os.write(self._terminal, keys)

    def status(self):
        end = time.monotonic() + DEADLINE
        while not self._ended and time.monotonic() < end:
            self._read()
        return os.waitstatus_to_exitcode(os.waitpid(self.pid, 0)[1])

    def close(self):
        os.close(self._terminal)


@pytest.fixture
def screen(stage):
    def start(*arguments, **variables):
        screen = Screen(stage.session, *arguments, **variables)
        return stage.keep(screen, screen.close)
    return start


def test_the_screen_shows_fix_and_satellites_and_is_put_back(road, screen):
    screen = screen()
    screen.wait_for("client 6000 of lodestard")
    assert screen.text.startswith(ENTER)
    whole_report(road, road.engine.expect(wire.GnssRequest).session)
    for text in ("47.5000000° N", "8.2500000° W", "448.0 m", "2.50 m/s", "270.0° W", "3D fix", "2 in view, 1 used",
                 "On offer: satellite, network"):
        screen.wait_for(re.escape(text))
    screen.type(b"\x03")  # Ctrl-C
    assert screen.status() == 0
    assert screen.text.endswith(LEAVE)
    assert screen.text.count(ENTER) == screen.text.count(LEAVE) == 1


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGHUP, signal.SIGINT])
def test_the_screen_is_put_back_on_every_signal(road, screen, number):
    screen = screen()
    screen.wait_for("client 6000 of lodestard")
    os.kill(screen.pid, number)
    assert screen.status() == 1
    assert screen.text.endswith(LEAVE)


def test_the_screen_counts_its_time_down(road, screen):
    screen = screen("--seconds", "2")
    screen.wait_for("2 s left.*1 s left")
    assert screen.status() == 1
    assert screen.text.endswith(LEAVE)


def test_the_screen_is_put_back_before_the_complaint(road, screen):
    screen = screen()
    screen.wait_for("client 6000 of lodestard")
    road.daemon.signal(signal.SIGKILL)
    assert screen.status() == 3
    assert screen.text.endswith(LEAVE + "lodestar-watch: lodestard left the session bus\r\n")


def test_a_terminal_without_abilities_gets_lines(road, screen):
    screen = screen("--count", "1", TERM="dumb")
    road.fix(road.engine.expect(wire.GnssRequest).session, 1)
    assert screen.status() == 0
    assert "\x1b" not in screen.text and "1.0000000" in screen.text


def test_no_colour_where_none_is_wanted(road, screen):
    screen = screen("--count", "1", NO_COLOR="1")
    road.fix(road.engine.expect(wire.GnssRequest).session, 1)
    assert screen.status() == 0
    assert not re.search(r"\x1b\[[0-9;]*3[0-9]", screen.text)
