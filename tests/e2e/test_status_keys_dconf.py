"""The status keys in dconf: what it costs, and what happens when dconf takes nothing."""

import os
import signal
import subprocess

import pytest

from harness import files
from harness.keystore import FOLDER, KeyStore
from harness.mailbox import wait_until

SERVICE = "ca.desrt.dconf"


def test_only_another_variation_is_written(stage, road):
    keys = KeyStore(stage.session)
    client = road.satellite_client()
    monitor = stage.monitor(stage.session)
    for number in range(50):
        road.fix(client, 60 + number / 100, variation=400 + number % 40)
    road.settle(client)
    road.fix(client, 61, variation=500)
    road.settle(client)
    assert keys.read("magneticvariation") == 5
    writes = [line for line in monitor.settled_lines(stage.session)
              if line.startswith("method call") and "interface=ca.desrt.dconf.Writer; member=Change" in line]
    assert len(writes) == 2


def test_a_start_that_finds_the_keys_right_asks_nobody(stage):
    stage.daemon().stop()
    stage.session.stop()
    stage.use_session()
    stage.daemon()
    assert stage.session.owner_of(SERVICE) is None
    assert KeyStore(stage.session).read("satellitePositioning") is True


def test_the_child_of_a_detached_daemon_writes(stage):
    daemon = stage.launch("-d")
    assert daemon.wait_detached(stage.session) == 0
    keys = KeyStore(stage.session)
    assert stage.settings().set("SatellitePositioning", False)
    assert keys.read("satellitePositioning") is False
    runtime = os.environ["XDG_RUNTIME_DIR"]
    assert os.stat(f"{runtime}/dconf").st_mode & 0o777 == 0o700  # -d clears the umask
    assert os.stat(f"{runtime}/dconf/user").st_mode & 0o777 == 0o600


def serves_without_keys(stage, keys, environment=None):
    """The daemon starts, does all it does, and says nothing about keys that it cannot write."""
    before = keys.all()
    daemon = stage.daemon(environment=environment)
    settings = stage.settings()
    assert settings.set("SatellitePositioning", False)
    assert settings.get("SatellitePositioning") is False
    assert stage.client().register() == 6000
    assert keys.all() == before
    assert daemon.is_running()
    assert not any("dconf" in line.lower() for line in daemon.lines())
    return daemon


def test_no_dconf_service_at_all(stage):
    stage.use_session(activatable=())
    daemon = serves_without_keys(stage, KeyStore(stage.session))
    assert daemon.errors() == []


def test_a_profile_that_does_not_exist(stage):
    environment = {"DCONF_PROFILE": str(files.HOME / "nowhere")}
    serves_without_keys(stage, KeyStore(stage.session, environment), environment)


def test_a_database_in_a_folder_without_the_right_to_write(stage):
    folder = files.HOME / ".config" / "dconf"
    folder.mkdir(parents=True)
    folder.chmod(0o500)
    daemon = serves_without_keys(stage, KeyStore(stage.session))
    assert daemon.errors() == []
    folder.chmod(0o700)
    assert stage.settings().set("ContinuousLocationCleanup", False)
    assert KeyStore(stage.session).read("satellitePositioning") is False


def test_keys_that_the_operator_has_locked(stage):
    site = files.HOME / "site"
    (site / "locks").mkdir(parents=True)
    (site / "keys").write_text(f"[{FOLDER.strip('/')}]\nsatellitePositioning=true\nVESK=true\n", encoding="utf-8")
    (site / "locks" / "all").write_text(f"{FOLDER}/satellitePositioning\n{FOLDER}/VESK\n", encoding="utf-8")
    database = files.HOME / "site.db"
    subprocess.run(["dconf", "compile", database, site], check=True)
    profile = files.HOME / "profile"
    profile.write_text(f"user-db:user\nfile-db:{database}\n", encoding="utf-8")
    environment = {"DCONF_PROFILE": str(profile)}
    keys = KeyStore(stage.session, environment)
    daemon = stage.daemon(environment=environment)
    assert stage.settings().set("Positioning", False)
    assert keys.all() == {"magneticvariation": 0.0, "satellitePositioning": True, "networkPositioning": False,
                          "VESK": True}
    assert daemon.errors() == []


def test_a_database_that_is_damaged(stage):
    database = files.HOME / ".config" / "dconf" / "user"
    database.parent.mkdir(parents=True)
    database.write_bytes(b"GVariant" + bytes(range(256)))
    stage.daemon()
    assert stage.settings().set("SatellitePositioning", False)
    assert KeyStore(stage.session).read("satellitePositioning") is False


@pytest.fixture
def hung_service(stage):
    """The dconf service, which has stopped in its tracks."""
    keys = KeyStore(stage.session)
    keys.write("other", 1)  # starts it
    pid = stage.session.pid_of(SERVICE)
    os.kill(pid, signal.SIGSTOP)
    yield pid
    os.kill(pid, signal.SIGCONT)


def test_a_service_that_hangs_delays_the_start_only_for_a_while(stage, hung_service):
    daemon = stage.daemon()  # dconf's own patience is 25 s a key, which the test does not have
    assert stage.settings().set("SatellitePositioning", False)
    keys = KeyStore(stage.session)
    assert set(keys.all().values()) == {None}
    os.kill(hung_service, signal.SIGCONT)
    keys.wait_for("satellitePositioning", False)
    for name, value in (("magneticvariation", 0.0), ("networkPositioning", True), ("VESK", True)):
        keys.wait_for(name, value)
    assert daemon.errors() == []


def test_a_value_that_is_taken_back_while_the_service_hangs(stage):
    daemon, settings, keys = stage.daemon(), stage.settings(), KeyStore(stage.session)
    assert settings.set("ContinuousLocationCleanup", False)
    threads = daemon.status("Threads")
    pid = stage.session.pid_of(SERVICE)
    os.kill(pid, signal.SIGSTOP)
    try:
        assert settings.set("SatellitePositioning", False)  # on its way
        assert settings.set("SatellitePositioning", True)  # what the database still holds
    finally:
        os.kill(pid, signal.SIGCONT)
    wait_until(lambda: daemon.status("Threads") == threads, "the last write is over")
    assert keys.read("satellitePositioning") is True


def test_nothing_of_a_hanging_service_holds_the_end_up(stage, hung_service):
    daemon = stage.daemon()
    daemon.signal(signal.SIGTERM)
    assert daemon.wait_exit() == 0


def test_the_end_of_the_bus_ends_a_daemon_behind_a_hanging_service(stage, hung_service):
    daemon = stage.daemon()
    stage.session.stop()
    assert daemon.wait_exit() == 0
