"""run-demo as a person runs it, in a copy of what it needs: nothing else can be read or written."""

import json
import os
import pty
import select
import shutil
import signal
import subprocess
import tempfile
import time
from functools import reduce
from pathlib import Path

import pytest

CHECKOUT = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ.get("LODESTARD_BUILD", CHECKOUT / "build" / "dev"))
NEEDED = ("run-demo", "tools/demo", "tools/install-deps", "tests/support", "engines/fake_orv.py")
PROGRAMS = ("src/daemon/lodestard", "clients/lodestar-watch/lodestar-watch", "engines/orvd-gpsd/orvd-gpsd",
            "clients/lodestar-dialogs/lodestar-dialogs")
NO_DISPLAY = {name: value for name, value in os.environ.items() if name not in ("DISPLAY", "WAYLAND_DISPLAY")}
DEADLINE = 60
LEAVE_SCREEN = b"\x1b[?1049l"
INTRODUCTION = """\
lodestard, fed by the test engine: a simulated receiver that walks around.
Beside the satellite client a network client: every 5 s the engine looks up a coarse position for it.
While the engine starts, the network has no position yet.
Positioning needs the user's consent. Since {reason}, the demo gives it itself.
{end}
"""


@pytest.fixture
def copy():
    """A checkout of its own that everybody can read; its path marks the processes that belong to it."""
    top = Path(tempfile.mkdtemp(prefix="demo-", dir="/tmp"))
    try:
        top.chmod(0o755)
        for name in NEEDED:
            place = top / "checkout" / name
            place.parent.mkdir(parents=True, exist_ok=True)
            source = CHECKOUT / name
            if source.is_dir():
                shutil.copytree(source, place, ignore=shutil.ignore_patterns("__pycache__"))
            else:
                shutil.copy(source, place)
        for name in PROGRAMS:
            place = top / "built" / name
            place.parent.mkdir(parents=True)
            shutil.copy(BUILD / name, place)
        yield top
        # The sandbox's processes are killed with it, and die a moment after it.
        wait_until(lambda: processes_of(top) == [], "the demo left no process behind")
    finally:
        shutil.rmtree(top)


def processes_of(top):
    """Command lines of the processes that were started for this copy."""
    found = []
    for process in Path("/proc").iterdir():
        if process.name.isdecimal() and int(process.name) != os.getpid():
            try:
                command = (process / "cmdline").read_bytes()
                if str(top).encode() in command + (process / "environ").read_bytes():
                    found.append(command.replace(b"\0", b" ").decode(errors="replace"))
            except OSError:
                continue  # gone meanwhile
    return found


def wait_until(condition, what):
    end = time.monotonic() + DEADLINE
    while not condition():
        assert time.monotonic() < end, f"waited too long until {what}"
        time.sleep(0.02)


def command(top, *options):
    return [str(top / "checkout" / "run-demo"), "--build-dir", str(top / "built"), *map(str, options)]


def start(top, *options, before=(), env=NO_DISPLAY, **keywords):
    return subprocess.Popen([*before, *command(top, *options)], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, text=True, cwd="/", env=env, **keywords)


def finish(demo):
    output, errors = demo.communicate(timeout=DEADLINE)
    return demo.returncode, output, errors


def fixes(output):
    return [json.loads(line) for line in output.splitlines()]


def of_network(shown):
    return [fix for fix in shown if fix.get("client") == "network"]


def assert_both_kinds(output):
    """A walker's satellite fixes, and beside them coarse positions of the network."""
    shown = fixes(output)
    network = of_network(shown)
    accuracies = [[fix["horizontalAccuracy"] for fix in kind if fix["valid"]]
                  for kind in (network, [fix for fix in shown if fix not in network])]
    assert all(accuracies) and min(accuracies[0]) > 100 > max(accuracies[1])


def read_both_kinds(demo):
    """Reads until a fix of each kind has come."""
    missing = {None, "network"}
    while missing:
        line = demo.stdout.readline()
        assert line, "it ended by itself"
        fix = json.loads(line)
        if fix["valid"]:
            missing.discard(fix.get("client"))


def tree(top):
    return sorted((str(p.relative_to(top)), p.lstat().st_mtime_ns) for p in top.rglob("*"))


def test_fixes_arrive_and_nothing_is_written(copy):
    before = tree(copy)
    status, output, errors = finish(start(copy, "--seconds", 6, "--ttff", 1, "--json"))
    assert status == 0, errors
    assert_both_kinds(output)
    assert errors == INTRODUCTION.format(reason="the demo ends by itself",
                                         end="The demo ends after 6 s, or with Ctrl-C.")
    assert tree(copy) == before


def test_without_a_fix_the_status_is_1(copy):
    status, output, errors = finish(start(copy, "--seconds", 6, "--ttff", 1000, "--json"))
    assert status == 1
    assert of_network(fixes(output)) == fixes(output)
    assert "run-demo: fixes did not arrive." in errors


def test_without_a_network_position_the_status_is_1(copy):
    engine = copy / "checkout/engines/fake_orv.py"
    engine.write_text(engine.read_text(encoding="utf-8").replace("self.supl_answer, self.supl_delay = 'ok'",
                                                                 "self.supl_answer, self.supl_delay = 'timeout'"),
                      encoding="utf-8")
    status, output, errors = finish(start(copy, "--seconds", 6, "--ttff", 1, "--json"))
    assert status == 1
    assert not any(fix["valid"] for fix in of_network(fixes(output)))
    assert "run-demo: fixes did not arrive." in errors


def test_a_daemon_that_does_not_start_is_told_with_its_log(copy):
    (copy / "built" / PROGRAMS[0]).write_text("#!/bin/sh\necho out of order\nexit 3\n")
    status, output, errors = finish(start(copy, "--seconds", 60))
    assert (status, output) == (1, "")
    assert "run-demo: lodestard does not start.\n  lodestard: out of order\n" in errors


def test_a_bus_that_does_not_start_is_told_with_its_log(copy):
    buses = copy / "checkout/tests/support/harness/buses.py"
    buses.write_text(buses.read_text(encoding="utf-8").replace('"--nofork"', '"--no-such-option"'), encoding="utf-8")
    status, output, errors = finish(start(copy, "--seconds", 60))
    assert (status, output) == (1, "")
    assert "run-demo: the session bus does not start.\n  session bus: " in errors


def test_two_demos_run_side_by_side(copy):
    pair = [start(copy, "--seconds", 8, "--ttff", 1, "--json") for _ in range(2)]
    for status, output, errors in [finish(demo) for demo in pair]:
        assert status == 0, errors
        assert_both_kinds(output)


def test_an_ordinary_user_can_run_it(copy):
    drop = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"] if os.getuid() == 0 else []
    status, output, errors = finish(start(copy, "--seconds", 6, "--ttff", 1, "--json", before=drop))
    assert status == 0, errors
    assert_both_kinds(output)


def test_the_callers_settings_are_not_read(copy):
    hostile = {**os.environ, "POSITIONING_SOURCE": "REAL", "DBUS_SESSION_BUS_ADDRESS": "unix:path=/nonexistent",
               "PYTHONPATH": "/nonexistent", "PYTHONHOME": "/nonexistent", "FAKE_ORV_OPTIONS": "--wrong",
               "HOME": "/nonexistent", "QT_PLUGIN_PATH": "/nonexistent", "LODESTARD": "/bin/false"}
    status, output, errors = finish(start(copy, "--seconds", 6, "--ttff", 1, "--json", env=hostile))
    assert status == 0, errors
    assert_both_kinds(output)


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGHUP, signal.SIGINT])
def test_a_signal_ends_it_as_asked(copy, number):
    demo = start(copy, "--ttff", 0, "--json")
    read_both_kinds(demo)
    demo.send_signal(number)
    assert finish(demo)[0] == 0


def test_a_signal_before_the_first_fix_gives_status_1(copy):
    demo = start(copy, "--ttff", 1000, "--json")
    wait_until(lambda: any("--json" in c and "lodestar-watch" in c for c in processes_of(copy)), "it watches")
    demo.send_signal(signal.SIGTERM)
    assert finish(demo)[0] == 1


def test_nothing_survives_a_killed_demo(copy):
    demo = start(copy, "--ttff", 0, "--json")
    demo.stdout.readline()
    assert len(processes_of(copy)) > 4
    demo.kill()
    demo.communicate(timeout=DEADLINE)
    wait_until(lambda: processes_of(copy) == [], "everything is gone")


def test_ctrl_c_on_a_terminal_gives_the_terminal_back(copy):
    pid, terminal = pty.fork()
    if pid == 0:
        arguments = command(copy, "--ttff", 0)
        os.execve(arguments[0], arguments, {**NO_DISPLAY, "TERM": "xterm"})
    try:
        screen = read_screen(terminal, b"8.54")  # a longitude
        screen += read_screen(terminal, b"fix 1, ")  # of the network
        os.write(terminal, b"\x03")
        screen += read_screen(terminal, None)
    finally:
        os.close(terminal)
        status = os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1])
    assert status == 0
    assert screen.endswith(LEAVE_SCREEN), screen[-200:]


def read_screen(terminal, wanted):
    """What the terminal gets until the wanted text came, or until everybody has closed it."""
    seen, end = b"", time.monotonic() + DEADLINE
    while wanted is None or wanted not in seen:
        assert select.select([terminal], [], [], max(0, end - time.monotonic()))[0], seen[-2000:]
        try:
            part = os.read(terminal, 65536)
        except OSError:
            part = b""
        if not part:
            assert wanted is None, seen
            break
        seen += part
    return seen


def sentence(body):
    return f"${body}*{reduce(lambda a, b: a ^ b, body.encode()):02X}\r\n"


def test_a_recording_is_replayed_through_gpsd(copy):
    recording = copy / "walk.nmea"
    with open(recording, "w", encoding="ascii", newline="") as log:
        for second in range(30):
            time_of_day, lat = f"12{second // 60:02}{second % 60:02}.00", f"4722.{6140 + second:04}"
            log.write(sentence(f"GPRMC,{time_of_day},A,{lat},N,00832.5020,E,3.60,0.0,140624,,,A"))
            log.write(sentence(f"GPGGA,{time_of_day},{lat},N,00832.5020,E,1,08,1.0,408.0,M,47.5,M,,"))
            log.write(sentence("GPGSA,A,3,01,02,03,04,05,06,07,08,,,,,1.8,1.0,1.5"))
    status, output, errors = finish(start(copy, "--seconds", 12, "--json", "--recording", recording))
    assert status == 0, errors
    shown = [fix for fix in fixes(output) if fix.get("latitude")]
    assert shown and all(abs(fix["latitude"] - 47.377) < 0.002 for fix in shown)


def test_help_and_wrong_usage(copy):
    helped = finish(start(copy, "--help"))
    assert helped[0] == 0 and "--recording FILE" in helped[1] and helped[2] == ""
    for wrong in (["--seconds", "x"], ["--seconds", "0"], ["--recording", "/nonexistent"], ["--ttff", "-1"],
                  ["--json", "--plain"], ["extra"]):
        status, output, errors = finish(start(copy, *wrong))
        assert (status, output) == (2, "") and "usage: run-demo" in errors
    (copy / "built" / PROGRAMS[1]).unlink()
    assert finish(start(copy))[::2] == (1, f"run-demo: no lodestar-watch below {copy / 'built'}\n")
