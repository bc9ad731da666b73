"""The packages on a machine: installed, started by a call, upgraded, removed.

Runs where dpkg may install (run_installed.py). The tests belong together and run in their order.
"""

import os
import signal
import subprocess
from pathlib import Path

import pytest
from gi.repository import GLib

from harness import files
from harness.buses import Bus
from harness.mailbox import wait_until

MACHINE = os.environ["MACHINE"]
PACKAGES = os.environ["PACKAGES"].split("\n")
NAMES = [Path(package).name.split("_")[0] for package in PACKAGES]
DPKG = Path("/var/lib/dpkg")
LOOKED_AT = ("/usr", "/etc", "/var")
# What a package manager itself keeps, and links that only lead to the machine's own files.
DPKG_FILES = ("/var/lib/dpkg/", "/var/log/")
ACCOUNTS = {"/etc/.pwd.lock", *(f"/etc/{name}{mark}" for name in ("passwd", "group", "shadow", "gshadow")
                                for mark in ("", "-"))}
SETTINGS = Path("/home/user/.lodestard/private/location_settings")
CLIENT = ("com.varn.lodestard.client", "/com/varn/lodestard/client", "com.varn.lodestard.client")
SERVICE = ("com.varn.lodestard.settings", "/com/varn/lodestard/settings", "com.varn.location.settings")


def dpkg(*arguments):
    """dpkg as root, or what looks like root to it. Its output, with that of the maintainer scripts."""
    # The sandbox has one user, so that giving files to another one is not even to be tried.
    result = subprocess.run(["fakeroot", "dpkg", *arguments], text=True, stdin=subprocess.DEVNULL,
                            env={**os.environ, "FAKEROOTDONTTRYCHOWN": "1"}, stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT)
    if result.returncode != 0:
        pytest.fail(result.stdout)
    return result.stdout


def all_files():
    """Every file below the directories that packages write to."""
    found = set()
    for top in LOOKED_AT:
        for folder, directories, names in os.walk(top):
            directories[:] = [d for d in directories if os.access(f"{folder}/{d}", os.W_OK)]  # not the machine's own
            found |= {f"{folder}/{name}" for name in [*names, *directories]}
    return {path for path in found if not path.startswith(DPKG_FILES)}


@pytest.fixture(scope="module")
def before():
    """The machine's own packages, known to dpkg; and the files there were."""
    (DPKG / "info").mkdir(parents=True)
    (DPKG / "updates").mkdir()
    status = Path(f"{MACHINE}{DPKG}/status").read_text(encoding="utf-8").split("\n\n")
    ours = tuple(f"Package: {name}{kind}\n" for name in NAMES for kind in ("", "-dbgsym"))
    (DPKG / "status").write_text("\n\n".join(p for p in status if not p.startswith(ours)), encoding="utf-8")
    if os.path.exists(f"{MACHINE}{DPKG}/diversions"):  # overridden owners are accounts of the machine: not taken
        (DPKG / "diversions").write_bytes(Path(f"{MACHINE}{DPKG}/diversions").read_bytes())
    for path in Path(f"{MACHINE}{DPKG}/info").glob("*.list"):
        if path.stem.removesuffix("-dbgsym") not in NAMES:
            (DPKG / "info" / path.name).symlink_to(path)
    Path("/var/log").mkdir(exist_ok=True)
    for program in ("lodestard", "lodestar-watch", "lodestar-dialogs"):
        Path("/usr/bin", program).unlink(missing_ok=True)  # the machine's own
    return all_files()


@pytest.fixture(scope="module")
def installed(before):
    dpkg("--install", *PACKAGES)
    return all_files()


class Session:
    """Debian's own session bus with what is installed, and Debian's own system bus with the policy."""

    def __init__(self, **environment):
        self.system = Bus("system", policy="/usr/share/dbus-1/system.d/com.varn.lodestard.vesk.conf")
        self.environment = {**os.environ, "DBUS_SYSTEM_BUS_ADDRESS": self.system.address, **environment}
        self._process = subprocess.Popen(["dbus-daemon", "--session", "--nofork", "--print-address"], text=True,
                                         stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, env=self.environment)
        self.environment["DBUS_SESSION_BUS_ADDRESS"] = self._process.stdout.readline().strip()

    def run(self, *command, **options):
        return subprocess.run(command, text=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=60,
                              env=self.environment, **options)

    def start_call(self, service, method, *arguments):
        """A call as an application makes it, which the bus may start a service for."""
        name, path, interface = service
        return subprocess.Popen(["gdbus", "call", "--session", "-d", name, "-o", path, "-m", f"{interface}.{method}",
                                 *arguments], text=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                env=self.environment)

    def call(self, service, method, *arguments):
        call = self.start_call(service, method, *arguments)
        output, errors = call.communicate(timeout=60)
        assert call.returncode == 0, errors
        return GLib.Variant.parse(None, output.strip(), None, None).unpack()

    def ask_the_bus(self, method, *arguments):
        return self.call(("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus"), method, *arguments)

    def daemon(self):
        """The process id of the one daemon that runs."""
        (pid,) = self.ask_the_bus("GetConnectionUnixProcessID", CLIENT[0])
        assert daemons() == [pid]
        return pid

    def close(self):
        self._process.kill()
        self._process.wait()
        self._process.stdout.close()
        self.system.stop()
        wait_until(lambda: not daemons(), "the daemon ends with its bus")


def daemons():
    """The process ids of all daemons."""
    return [int(entry) for entry in os.listdir("/proc") if entry.isdecimal() and program(entry) == "/usr/bin/lodestard"]


def program(process):
    try:
        return os.readlink(f"/proc/{process}/exe").removesuffix(" (deleted)")
    except OSError:
        return None  # it has ended


@pytest.fixture
def session(installed):
    """The user is in the group whose sessions may run the daemon."""
    groups = Path("/etc/group").read_text(encoding="utf-8")
    files.groups(user=True, lodestard=True, lodestard_vesk=False)
    made = Session(POSITIONING_SOURCE="FAKE")
    yield made
    made.close()
    Path("/etc/group").write_text(groups, encoding="utf-8")


@pytest.fixture
def simulated_receiver(installed):
    """The installed test engine, started by hand: no machine has the interpreter that the daemon would start."""
    engine = subprocess.Popen(["/usr/bin/python3", "/usr/lib/lodestard-tests/fake_orv.py"], stderr=subprocess.DEVNULL,
                              env={**os.environ, "FAKE_ORV_OPTIONS": "--ttff 0"})
    wait_until(Path("/tmp/orvd").is_socket, "the test engine listens")
    yield engine
    engine.terminate()
    engine.wait()


# ---- installed

def test_dpkg_is_content(installed):
    assert dpkg("--audit", *NAMES) == ""
    assert dpkg("--verify", *NAMES) == ""
    states = subprocess.run(["dpkg-query", "-W", "-f", "${db:Status-Status} ${Version}\n", *NAMES], check=True,
                            text=True, stdout=subprocess.PIPE).stdout.splitlines()
    assert len(states) == 5 and len(set(states)) == 1 and states[0].startswith("installed ")


def test_the_groups_and_the_user_are_made(installed):
    groups = {line.split(":")[0] for line in Path("/etc/group").read_text(encoding="utf-8").splitlines()}
    users = {line.split(":")[0]: line.split(":") for line in Path("/etc/passwd").read_text(encoding="utf-8").splitlines()}
    assert {"lodestard", "lodestard-vesk", "_orvd-gpsd"} <= groups
    assert users["_orvd-gpsd"][5:] == ["/", "/usr/sbin/nologin"]


def test_the_interpreter_of_the_test_engine_is_not_installed(installed):
    assert not os.path.lexists("/usr/bin/python2.6")


def test_the_engine_is_enabled_and_the_daemon_is_not(installed):
    assert os.path.lexists("/etc/systemd/system/multi-user.target.wants/orvd-gpsd.service")
    assert not [path for path in Path("/etc/systemd/user").rglob("lodestard*")]


@pytest.mark.parametrize("program", ["lodestar-watch", "lodestar-dialogs", "orvd-gpsd"])
def test_a_program_says_its_version(installed, program):
    version = Path(PACKAGES[0]).name.split("_")[1]
    result = subprocess.run([program, "--version"], check=True, text=True, stdout=subprocess.PIPE)
    assert result.stdout == f"{program} {version}\n"


# ---- started

def test_an_applications_call_starts_the_daemon_and_brings_fixes(session, simulated_receiver):
    assert daemons() == []
    (fix,) = session.call(CLIENT, "latestPosition", "false")
    assert len(fix) == 37  # nothing is known yet
    session.daemon()
    assert session.call(SERVICE, "setSetting", "LocationDisclaimerAccepted", "<true>") == (True,)
    watch = session.run("lodestar-watch", "--json", "--count", "3", "--seconds", "50")
    assert (watch.returncode, watch.stderr, watch.stdout.count('"valid":true')) == (0, "", 3)


def test_the_application_itself_starts_the_daemon(session, simulated_receiver):
    watch = session.run("lodestar-watch", "--json", "--count", "1", "--seconds", "50")
    assert (watch.returncode, watch.stderr) == (0, "")  # consent was kept
    session.daemon()


def test_a_settings_application_starts_the_daemon(session, simulated_receiver):
    assert session.call(SERVICE, "getSetting", "LocationDisclaimerAccepted") == ("true",)
    session.daemon()


def test_calls_of_both_names_at_once_start_one_daemon(session, simulated_receiver):
    calls = [session.start_call(*call) for call in ((SERVICE, "getSetting", "Positioning"),
                                                    (CLIENT, "latestPosition", "false"),
                                                    (SERVICE, "getSetting", "SuplFallback"),
                                                    (CLIENT, "latestPosition", "true"))]
    assert [(call.communicate(timeout=60)[1], call.returncode) for call in calls] == [("", 0)] * 4
    session.daemon()


def test_a_daemon_that_crashed_is_started_by_the_next_call(session, simulated_receiver):
    session.call(SERVICE, "getSetting", "Positioning")
    killed = session.daemon()
    os.kill(killed, signal.SIGKILL)
    wait_until(lambda: not daemons(), "the daemon is dead")
    session.call(SERVICE, "getSetting", "Positioning")
    assert session.daemon() != killed


def test_the_context_name_starts_nobody(session):
    (names,) = session.ask_the_bus("ListActivatableNames")
    ours = [name for name in names if name.startswith("com.varn.")]
    assert sorted(ours) == ["com.varn.location.ui", "com.varn.lodestard.client", "com.varn.lodestard.settings"]


def test_outside_the_group_the_caller_is_told_at_once(installed):
    """The daemon has the name by then, and loses it."""
    session = Session()
    try:
        call = session.start_call(CLIENT, "latestPosition", "false")
        assert "org.freedesktop.DBus.Error.NoReply" in call.communicate(timeout=60)[1]
    finally:
        session.close()


# ---- upgraded and removed

def upgraded(directory):
    """The packages again, a version later."""
    os.mkdir(directory)
    for package in PACKAGES:
        tree = Path(directory, Path(package).stem)
        subprocess.run(["dpkg-deb", "--raw-extract", package, tree], check=True)
        control = tree / "DEBIAN" / "control"
        text = control.read_text(encoding="utf-8").replace("\nVersion: ", "\nVersion: 1:")
        control.write_text(text, encoding="utf-8")
        target = f"{tree}.deb"
        subprocess.run(["dpkg-deb", "--root-owner-group", "-Znone", "--build", tree, target], check=True,
                       stdout=subprocess.DEVNULL)
        yield target


def test_an_upgrade_keeps_settings_and_what_the_administrator_wrote(session, simulated_receiver):
    session.call(SERVICE, "setSetting", "WiFiPositioning", "<false>")
    options = Path("/etc/default/orvd-gpsd")
    options.write_text('ORVD_GPSD_OPTIONS="--port 2950"\n', encoding="utf-8")
    kept = SETTINGS.read_bytes()
    running = session.daemon()
    os.unlink("/etc/systemd/system/multi-user.target.wants/orvd-gpsd.service")  # as `systemctl disable` does
    dpkg("--install", *upgraded("/tmp/upgraded"))
    assert session.daemon() == running
    assert session.call(SERVICE, "getSetting", "WiFiPositioning") == (False,)
    assert SETTINGS.read_bytes() == kept
    assert options.read_text(encoding="utf-8") == 'ORVD_GPSD_OPTIONS="--port 2950"\n'
    assert not os.path.lexists("/etc/systemd/system/multi-user.target.wants/orvd-gpsd.service")


def test_removal_leaves_the_users_settings_and_what_the_administrator_decided(before, installed):
    enabled = Path("/etc/systemd/user/default.target.wants/lodestard.service")  # `systemctl --global enable`
    enabled.parent.mkdir()
    enabled.symlink_to("/usr/lib/systemd/user/lodestard.service")
    dpkg("--remove", *NAMES)
    left = all_files() - before - ACCOUNTS
    assert {path for path in left if not path.startswith("/var/lib/systemd")} == {
        "/etc/default/orvd-gpsd", str(enabled), str(enabled.parent)}
    assert SETTINGS.exists()


def test_purging_leaves_nothing_but_the_users_settings(before, installed):
    dpkg("--purge", *NAMES)
    assert all_files() - before - ACCOUNTS - {"/var/lib/systemd"} == set()
    assert before - all_files() == set()
    assert SETTINGS.exists()
