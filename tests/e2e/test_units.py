"""The units: what they restrict, and that everything works all the same."""

import os
import subprocess
import sys
from pathlib import Path

import pytest

CHECKOUT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(CHECKOUT / "tests" / "orvd-gpsd"))

from fakegpsd import FakeGpsd, tpv  # noqa: E402
from harness import client as app  # noqa: E402
from harness import files, wire  # noqa: E402
from harness.mailbox import wait_until  # noqa: E402
from harness.road import Road, near  # noqa: E402
from orvd import OrvdGpsd  # noqa: E402
from unit import Unit  # noqa: E402

UNITS = CHECKOUT / "packaging" / "systemd"
DAEMON, ENGINE = UNITS / "lodestard.service.in", UNITS / "orvd-gpsd.service.in"
TEST_ENGINE_DROP_IN = UNITS / "lodestard-test-engine.conf"
PROGRAMS = {"lodestard.service": "src/daemon/lodestard", "orvd-gpsd.service": "engines/orvd-gpsd/orvd-gpsd"}
SIMULATED_RECEIVER = "/usr/lib/lodestard-tests/fake_orv.py"


def under(*unit_files):
    """What stands in front of a program that runs in this unit."""
    return ["/usr/bin/python3", CHECKOUT / "tests/support/unit.py", *unit_files, "--"]


def tell(unit_file, code):
    """What a Python program finds that runs in the unit."""
    return subprocess.run([*under(unit_file), "/usr/bin/python3", "-c", code], check=True, text=True,
                          stdout=subprocess.PIPE).stdout.split("\n")[:-1]


# ---- the first road

def test_a_fix_reaches_an_application_of_the_daemon_in_its_unit(stage):
    road = Road(stage, wrapper=under(DAEMON))
    client = road.satellite_client()
    road.fix(client, 45.5)
    assert client.wait_for_fix(near(45.5)).longitude == pytest.approx(8.5)
    assert stage.settings().set("WiFiPositioning", False) is True
    assert files.read_settings()["WiFiPositioning"] == "false"


def test_the_engine_in_its_unit_serves_the_daemon_in_its_own(stage):
    gpsd = FakeGpsd()
    stage.keep(gpsd, gpsd.close)
    engine = OrvdGpsd(socket_path="/run/orvd/orvd.socket", port=gpsd.port, wrapper=under(ENGINE))
    stage.keep(engine, engine.stop)
    engine.wait_serving()
    assert Path("/run/orvd").stat().st_mode & 0o777 == 0o750
    stage.consented_daemon(wrapper=under(DAEMON))
    client = stage.client()
    assert client.start(app.SATELLITE) == 0
    gpsd.wait_watched()
    gpsd.say(tpv(1, lat=60.25, lon=24.5), tpv(2, lat=60.5, lon=24.5))
    assert client.wait_for_fix(near(60.25)).longitude == pytest.approx(24.5)


def test_the_daemon_in_its_unit_starts_a_test_engine_that_nobody_else_sees(stage):
    Path("/tmp/orvd").touch()  # nobody listens there
    daemon = stage.daemon(wrapper=under(DAEMON), environment={"POSITIONING_SOURCE": "FAKE"})
    assert daemon.has_message("Trying to launch fake orvd.", "Warning")
    assert daemon.has_message(">>>>> Using fake position source! <<<<<<", "Warning")
    assert not Path("/tmp/orvd").is_socket()


def test_with_the_drop_in_the_daemon_sees_the_test_engine_outside(stage):
    receiver = subprocess.Popen(["/usr/bin/python3", SIMULATED_RECEIVER], env={**os.environ, "FAKE_ORV_OPTIONS": "--ttff 0"})
    stage.keep(receiver, lambda: (receiver.terminate(), receiver.wait()))
    wait_until(Path("/tmp/orvd").is_socket, "the test engine listens")
    daemon = stage.consented_daemon(wrapper=under(DAEMON, TEST_ENGINE_DROP_IN),
                                    environment={"POSITIONING_SOURCE": "FAKE"})
    assert not daemon.has_message("Trying to launch fake orvd.")
    client = stage.client()
    client.start(app.SATELLITE)
    client.wait_for_fix(lambda fix: fix.latitude == fix.latitude)


# ---- the restrictions

TRY = """
import ctypes, mmap, os, socket
def says(what, action, *arguments):
    try:
        action(*arguments)
        print(what, "works")
    except OSError as error:
        print(what, os.strerror(error.errno))
"""


@pytest.mark.parametrize("unit, expected", [
    (DAEMON, {"home": "works", "runtime": "works", "internet": "Address family not supported by protocol"}),
    (ENGINE, {"home": "Read-only file system", "runtime": "No such file or directory", "internet": "works"})])
def test_what_a_program_can_do_in_its_unit(stage, unit, expected):
    Path("/tmp/outside").touch()
    found = dict(line.split(" ", 1) for line in tell(unit, TRY + f"""
says("home", open, "/home/{'user/x' if unit is DAEMON else 'x'}", "w")
says("runtime", open, os.environ["XDG_RUNTIME_DIR"] + "/x", "w")
says("internet", socket.socket, socket.AF_INET, socket.SOCK_STREAM)
says("netlink", socket.socket, socket.AF_NETLINK, socket.SOCK_RAW)
says("local", socket.socket, socket.AF_UNIX, socket.SOCK_SEQPACKET)
says("etc", open, "/etc/xdg/varn/x", "w")
says("root", open, "/x", "w")
says("tmp", os.stat, "/tmp/outside")
says("memory", mmap.mmap, -1, 4096, mmap.MAP_PRIVATE | mmap.MAP_ANONYMOUS, mmap.PROT_WRITE | mmap.PROT_EXEC)
says("priority", os.sched_setscheduler, 0, os.SCHED_RR, os.sched_param(1))
says("setuid", os.chmod, "/tmp", 0o4700)
"""))
    assert found == {
        **expected, "netlink": "Address family not supported by protocol", "local": "works",
        "etc": "Read-only file system", "root": "Read-only file system", "tmp": "No such file or directory",
        "memory": "Operation not permitted", "priority": "Operation not permitted",
        "setuid": "Operation not permitted"}


@pytest.mark.parametrize("unit, own", [(DAEMON, {"ipc", "mnt", "net", "user", "uts"}),
                                       (ENGINE, {"ipc", "mnt", "user", "uts"})])
def test_what_a_program_has_for_itself_in_its_unit(unit, own):
    """Beside the directories: memory and semaphores, the network, users, the host's name."""
    found = dict(line.split() for line in tell(unit, """
import os
for name in os.listdir("/proc/self/ns"):
    print(name, os.readlink("/proc/self/ns/" + name))
"""))
    assert {name for name, place in found.items() if place != os.readlink(f"/proc/self/ns/{name}")} == own


def installed(directory, unit_file):
    """The unit as it is installed, with the programs just built, under a name that no drop-in of the machine has."""
    name = unit_file.name.removesuffix(".in")
    text = unit_file.read_text(encoding="utf-8")
    for place in ("@BINDIR@/lodestard", "@SBINDIR@/orvd-gpsd"):
        text = text.replace(place, f"{os.environ['LODESTARD_BUILD']}/{PROGRAMS[name]}")
    target = Path(directory, f"just-built-{name}")
    target.write_text(text, encoding="utf-8")
    return target


@pytest.mark.parametrize("unit, whose, threshold", [(DAEMON, "--user", 15), (ENGINE, "--system", 15)])
def test_the_exposure_that_systemd_counts(unit, whose, threshold):
    """In tenths: 0 is none, 100 the most."""
    result = subprocess.run(["systemd-analyze", "security", whose, "--offline=true", f"--threshold={threshold}",
                             "--no-pager", installed("/tmp", unit)], text=True, stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT)
    print(result.stdout)
    assert result.returncode == 0


@pytest.mark.parametrize("unit, whose", [(DAEMON, "--user"), (ENGINE, "--system")])
def test_systemd_understands_every_line(unit, whose):
    result = subprocess.run(["systemd-analyze", "verify", whose, "--man=no", "--recursive-errors=no",
                             installed("/tmp", unit)], text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    assert (result.returncode, result.stdout) == (0, "")


def test_what_the_units_say_about_start_and_end():
    daemon, engine = Unit.read(DAEMON), Unit.read(ENGINE)
    assert (daemon.values["Type"], daemon.values["BusName"]) == ("dbus", app.SERVICE)
    assert (engine.values["User"], engine.values["Group"]) == ("_orvd-gpsd", "lodestard")
    assert daemon.says("Restart", "on-failure") and engine.says("Restart", "on-failure")
