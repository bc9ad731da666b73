"""Start-up: the command line, detaching, the exit statuses and the single instance."""

import json
import os
import re
import subprocess
import sys

import pytest

from harness import files, wire
from harness.buses import Bus
from harness.daemon import LINE, binary, preloadable
from harness.mailbox import wait_until

USAGE = """\
Usage: lodestard [options]
Options:
-l  || --logtofile    : Create a logfile (/home/$USER/lodestard.log)
-nl || --no-logtofile : Don't create a logfile (default)
-v  || --verbose      : Display a lot of debug messages (default)
-nv || --no-verbose   : Don't display any debug messages
-w  || --warning      : Display warning messages (default)
-nw || --no-warning   : Don't display warning messages
-d  || --daemon       : Execute as a daemon process
"""
CLIENT_SERVICE = "com.varn.lodestard.client"
SETTINGS_SERVICE = "com.varn.lodestard.settings"
ENGINE_MISSING = "Connection to orvd failed."  # a warning that every start without an engine gives


# ---- the command line

@pytest.mark.parametrize("arguments", [
    ["--logtofile"], ["--no-logtofile"],  # the advertised spellings, which are not the parsed ones
    ["-h"], ["--help"], ["--version"], ["-V"], ["-L"], ["-D"], ["--Verbose"], ["-vv"], ["-lv"], ["-l=1"], ["v"],
    [""], [" -v"], ["-v", "-nv", "-x"], ["-d", "--bogus"], ["-x", "-v"], ["--"], ["-"], ["--logfile "],
], ids=" ".join)
def test_an_unknown_argument_prints_the_usage_and_nothing_else(arguments):
    result = subprocess.run([binary(), *arguments], capture_output=True, text=True, timeout=20, check=False,
                            env={"PATH": "/usr/bin", "USER": "user"})  # no bus is needed to refuse
    assert (result.returncode, result.stdout, result.stderr) == (0, USAGE, "")
    assert list(files.HOME.iterdir()) == []


def test_an_unknown_argument_leaves_the_log_file_alone():
    files.rd_mode()
    files.LOGS.mkdir(parents=True)
    (files.LOGS / "log_lodestard").write_bytes(b"41")
    result = subprocess.run([binary(), "-l", "--logtofile"], capture_output=True, text=True, timeout=20, check=False)
    assert (result.returncode, result.stdout) == (0, USAGE)
    assert (files.LOGS / "log_lodestard").read_bytes() == b"41"


# What an option switches: a start without an engine gives lines of all three levels.
DEBUG, WARNINGS = {"Debug"}, {"Warning", "Critical"}


@pytest.mark.parametrize("arguments, levels", [
    ([], WARNINGS),
    (["-v"], DEBUG | WARNINGS),
    (["--verbose"], DEBUG | WARNINGS),
    (["-v", "-nv"], WARNINGS),
    (["--verbose", "--no-verbose"], WARNINGS),
    (["-nv", "-v"], DEBUG | WARNINGS),
    (["-nw"], set()),
    (["--no-warning"], set()),
    (["-nw", "-w"], WARNINGS),
    (["--no-warning", "--warning"], WARNINGS),
    (["-v", "-nw"], DEBUG),
    (["-w", "-nw", "-v", "-nv"], set()),
], ids=lambda value: " ".join(value) or "none" if isinstance(value, list) else None)
def test_the_levels_on_the_console(stage, arguments, levels):
    daemon = stage.launch(*arguments)
    stage.wait_serving()
    daemon.stop()
    seen = {LINE.match(line)[2] for line in daemon.lines()}
    assert seen == levels
    assert daemon.has_message(ENGINE_MISSING, "Warning") == bool(levels & WARNINGS)
    assert daemon.errors() == []


def test_every_line_has_time_level_and_text(stage):
    daemon = stage.daemon()
    for line in daemon.lines():
        assert re.fullmatch(r"([01]\d|2[0-3]):[0-5]\d:[0-5]\d (Debug|Warning|Critical): .+", line), line


# ---- detaching

def test_detaching_leaves_a_process_of_its_own(stage):
    os.umask(0o022)
    daemon = stage.launch("-d", cwd="/tmp")
    assert daemon.wait_detached(stage.session) == 0
    assert os.getsid(daemon.pid) == os.getpgid(daemon.pid) == daemon.pid
    assert os.readlink(f"/proc/{daemon.pid}/cwd") == "/"
    assert daemon.status("Umask") == "0000"
    assert daemon.status("PPid") == "1"


def test_detaching_keeps_the_standard_streams(stage):
    daemon = stage.launch("-d", "-v")
    daemon.wait_detached(stage.session)
    places = [os.readlink(f"/proc/{daemon.pid}/fd/{number}") for number in (0, 1, 2)]
    assert places[0] == "/dev/null" and all(place.startswith("pipe:") for place in places[1:])


@pytest.mark.parametrize("arguments, levels", [
    (["-d"], set()),
    (["--daemon"], set()),
    (["-d", "-v"], DEBUG),       # verbose on, warnings stay off
    (["-v", "-d"], set()),         # -d switches both off
    (["-w", "-d"], set()),
    (["-d", "-w"], WARNINGS),
    (["-d", "-v", "-w"], DEBUG | WARNINGS),
], ids=lambda value: " ".join(value) if isinstance(value, list) else None)
def test_detaching_quietens_what_came_before_it(stage, arguments, levels):
    daemon = stage.launch(*arguments)
    daemon.wait_detached(stage.session)
    stage.wait_serving()
    daemon.stop()
    assert {LINE.match(line)[2] for line in daemon.lines()} == levels
    assert daemon.errors() == []


def test_every_line_is_written_once_when_detaching(stage):
    daemon = stage.launch("-d", "-v")
    daemon.wait_detached(stage.session)
    daemon.wait_ready()
    daemon.stop()
    assert daemon.messages().count("PositionDaemon::init()") == 1


def test_the_detached_process_makes_private_settings_despite_its_umask(stage):
    daemon = stage.launch("-d")
    daemon.wait_detached(stage.session)
    assert stage.settings().set("Positioning", False)
    path = files.settings_path()
    assert (path.parent.stat().st_mode & 0o777, path.stat().st_mode & 0o777) == (0o700, 0o600)


def test_the_detached_process_serves_clients_and_engine(stage, ready_engine):
    daemon = stage.launch("-d")
    daemon.wait_detached(stage.session)
    stage.wait_serving()
    ready_engine.wait_connected()
    assert stage.client().register() == 6000
    assert daemon.is_running()


def test_closed_standard_streams_swallow_the_log(stage, ready_engine):
    """Or the socket pair of SIGUSR1 would take their numbers, and every line would delete assistance data."""
    daemon = stage.launch("-v", wrapper=["sh", "-c", 'exec "$0" "$@" <&- >&- 2>&-'])
    stage.wait_serving()
    assert [os.readlink(f"/proc/{daemon.pid}/fd/{number}") for number in (0, 1, 2)] == 3 * ["/dev/null"]
    assert stage.settings().set("WiFiPositioning", False)  # more lines
    ready_engine.expect(wire.SuplServers)
    assert ready_engine.pending(wire.DeleteAssistance) == []


# Becomes a child of process 1 first, as a daemon that an init system starts.
ORPHAN = """
import os, sys
if os.fork():
    os._exit(0)
while os.getppid() != 1:
    os.sched_yield()
open("/tmp/orphan", "w").write(str(os.getpid()))
os.execv(sys.argv[1], sys.argv[1:])
"""


def test_a_child_of_process_1_does_not_detach_again(stage):
    os.umask(0o022)
    daemon = stage.launch("-d", wrapper=[sys.executable, "-c", ORPHAN], cwd="/tmp")
    assert daemon.wait_detached(stage.session) == 0
    with open("/tmp/orphan", encoding="ascii") as file:
        assert daemon.pid == int(file.read())
    assert os.getsid(daemon.pid) != daemon.pid
    assert os.readlink(f"/proc/{daemon.pid}/cwd") == "/tmp"
    assert daemon.status("Umask") == "0022"


# Starts the daemon with chosen system calls failing and reports how it and its child ended.
REAPER = """
import ctypes, json, os, subprocess, sys
ctypes.CDLL(None).prctl(36, 1, 0, 0, 0)  # PR_SET_CHILD_SUBREAPER: orphans become ours
environment = dict(os.environ, LD_PRELOAD=sys.argv[1], LODESTARD_FAIL=sys.argv[2])
first = subprocess.Popen(sys.argv[3:], env=environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
text = first.stdout.read().decode()
ended = []
while True:
    try:
        pid, status = os.wait()
    except ChildProcessError:
        break
    ended.append(["first" if pid == first.pid else "child", os.waitstatus_to_exitcode(status)])
print(json.dumps([sorted(ended), text]))
"""


def ends_when_failing(stage, call, *arguments):
    result = subprocess.run(
        [sys.executable, "-c", REAPER, preloadable(os.environ["LODESTARD_SHIM"]), call, binary(),
         *arguments],
        capture_output=True, text=True, timeout=30, check=True,
        env={**os.environ, "ASAN_OPTIONS": "verify_asan_link_order=0", "DBUS_SESSION_BUS_ADDRESS": stage.session.address,
             "DBUS_SYSTEM_BUS_ADDRESS": stage.system.address})
    return json.loads(result.stdout)


def test_a_failing_fork_ends_with_1_and_no_word(stage):
    assert ends_when_failing(stage, "fork", "-d") == [[["first", 1]], ""]


@pytest.mark.parametrize("call", ["setsid", "chdir"])
def test_a_failing_detachment_ends_the_child_with_1_and_no_word(stage, call):
    assert ends_when_failing(stage, call, "-d") == [[["child", 1], ["first", 0]], ""]


def test_a_failing_socket_pair_is_fatal(stage):
    ended, text = ends_when_failing(stage, "socketpair")
    assert ended == [["first", 1]]
    assert re.fullmatch(r"\d\d:\d\d:\d\d Fatal: Couldn't create USR1 socketpair\n", text)


# ---- failures of the initialisation

def test_no_session_bus_is_fatal(stage):
    stage.use_session().stop()
    daemon = stage.launch("-v")
    assert daemon.wait_exit() == 1
    assert daemon.messages("Critical") == ["Cannot connect to the D-Bus session bus."]  # the dialogs' side of it
    assert daemon.messages()[1] == "PositionDaemon::init()"
    assert daemon.messages("Fatal") == ["lodestard: Cannot connect to the D-BUS session bus."]
    assert LINE.match(daemon.lines()[-1])[2] == "Fatal"
    assert daemon.errors() == []


def test_a_refused_settings_service_ends_with_1(stage):
    stage.use_session(deny_own=[SETTINGS_SERVICE])
    daemon = stage.launch("-v")
    assert daemon.wait_exit() == 1
    assert SETTINGS_SERVICE in daemon.messages("Critical")[-1]  # the bus's own words
    assert daemon.errors() == ["init failed."]
    assert not daemon.has_message("PositionDaemon::init() Settings done.")


def test_a_refused_client_service_is_fatal(stage):
    stage.use_session(deny_own=[CLIENT_SERVICE])
    daemon = stage.launch("-v")
    assert daemon.wait_exit() == 1
    assert CLIENT_SERVICE in daemon.messages("Critical")[-1]  # the bus's own words
    assert daemon.messages("Fatal") == ["PositionDaemon::init() Client server registerService() failed."]
    assert daemon.errors() == []
    assert not daemon.has_message("PositionDaemon::init() Client server done.")


def test_a_refused_side_channel_ends_with_1(stage):
    stage.use_system(deny_own=["com.varn.lodestard.vesk"])
    daemon = stage.launch("-v")
    assert daemon.wait_exit() == 1
    assert "com.varn.lodestard.vesk" in daemon.messages("Critical")[-1]
    assert daemon.errors() == ["init failed."]
    assert daemon.has_message("PositionDaemon::init() Client server done.")
    assert not daemon.has_message("PositionDaemon::init() VESK server done.")


def test_no_system_bus_ends_with_1(stage):
    stage.use_system().stop()
    daemon = stage.launch("-v")
    assert daemon.wait_exit() == 1
    assert daemon.errors() == ["init failed."]
    assert not daemon.has_message("PositionDaemon::init() VESK server done.")


def test_a_failed_initialisation_says_so_even_when_all_messages_are_off(stage):
    stage.use_system().stop()
    daemon = stage.launch("-nw")
    assert daemon.wait_exit() == 1
    assert (daemon.lines(), daemon.errors()) == ([], ["init failed."])


# ---- the single instance

def test_a_second_instance_names_the_first_and_ends_with_1(stage):
    first = stage.daemon()
    second = stage.launch("-v")
    assert second.wait_exit() == 1
    assert [LINE.match(line).groups()[1:] for line in second.lines()] == [
        ("Debug", "PositionDaemon::init()"),
        ("Debug", "Checking if already running."),
        ("Critical", "lodestard is already running."),
        ("Fatal", f"lodestard: Already running. pid: {first.pid}"),
    ]
    assert second.errors() == []
    assert first.is_running()
    assert stage.client().register() == 6000  # the first one still serves


def test_a_second_instance_is_found_by_its_name_on_the_bus(stage):
    stage.session.own(stage.session.connect(), CLIENT_SERVICE)
    daemon = stage.launch()
    assert daemon.wait_exit() == 1
    assert daemon.messages("Fatal") == [f"lodestard: Already running. pid: {os.getpid()}"]


def test_of_two_that_start_at_the_same_moment_one_remains(stage):
    """Whichever is the first to own a name; the other finds that out early or late."""
    for _ in range(5):
        pair = [stage.launch("-v") for _ in range(2)]
        wait_until(lambda: not all(daemon.is_running() for daemon in pair), "one of them gives up")
        loser, winner = sorted(pair, key=lambda daemon: daemon.is_running())
        assert loser.wait_exit() == 1
        assert loser.errors() == ["init failed."] or loser.has_message(f"lodestard: Already running. pid: {winner.pid}")
        assert winner.wait_ready().is_running()
        winner.stop()


def test_a_second_instance_can_start_when_the_first_has_ended(stage):
    stage.daemon().stop()
    assert stage.daemon().is_running()


def test_instances_on_two_buses_do_not_see_each_other(stage):
    stage.daemon()
    other = stage.keep(Bus("session"), lambda: other.stop())
    stage.use_system()
    daemon = stage.launch("-v", environment={"DBUS_SESSION_BUS_ADDRESS": other.address})
    assert daemon.wait_ready().is_running()
