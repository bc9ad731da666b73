"""The status keys: what another program of the handset reads about positioning."""

import itertools

import pytest

from harness import files
from harness.keystore import KeyStore
from harness.mailbox import wait_until

FIRST = {"magneticvariation": 0.0, "satellitePositioning": True, "networkPositioning": True, "VESK": True}


@pytest.fixture
def keys(stage):
    return KeyStore(stage.session)


def test_the_first_start_writes_every_default(stage, keys):
    assert set(keys.all().values()) == {None}
    stage.daemon()
    assert keys.all() == FIRST
    assert isinstance(keys.read("magneticvariation"), float)


def test_a_start_leaves_the_variation_and_corrects_the_rest(stage, keys):
    keys.write("magneticvariation", -3)
    for name in ("satellitePositioning", "networkPositioning", "VESK"):
        keys.write(name, False)
    stage.daemon()
    assert keys.all() == {**FIRST, "magneticvariation": -3}


@pytest.mark.parametrize("settings, satellite, network, library", [
    ({"Positioning": False}, False, False, False),
    ({"SatellitePositioning": False}, False, True, True),
    ({"CellularPositioning": False}, True, True, True),
    ({"CellularPositioning": False, "WiFiPositioning": False}, True, False, True),
    ({"SuplForced": True}, True, True, False),
    ({"SuplForced": True, "NetworkConnectivity": False}, True, False, False),
], ids=str)
def test_the_settings_decide_at_the_start(stage, keys, settings, satellite, network, library):
    files.user_settings(**settings)
    stage.daemon()
    assert keys.all() == {"magneticvariation": 0.0, "satellitePositioning": satellite, "networkPositioning": network,
                          "VESK": library}


def test_a_changed_setting_shows_when_the_call_returns(stage, keys):
    stage.daemon()
    settings = stage.settings()
    for key, value, name in (("SatellitePositioning", False, "satellitePositioning"),
                             ("SuplForced", True, "VESK"),
                             ("NetworkConnectivity", False, "networkPositioning"),
                             ("NetworkConnectivity", True, "networkPositioning"),
                             ("SatellitePositioning", True, "satellitePositioning"),
                             ("SuplForced", False, "VESK")):
        before = keys.all()
        assert before[name] != keys_value(key, value)
        assert settings.set(key, value)
        assert keys.all() == {**before, name: keys_value(key, value)}
    assert keys.all() == FIRST
    assert settings.set("Positioning", False)
    assert set(keys.all().values()) == {0.0, False}


def keys_value(key, value):
    return not value if key == "SuplForced" else value


def test_the_daemon_does_not_follow_the_keys(stage, keys):
    daemon, settings = stage.daemon(), stage.settings()
    mark = daemon.mark()
    for name in ("satellitePositioning", "networkPositioning", "VESK"):
        keys.write(name, False)
    client = stage.client()
    client.register()
    assert client.methods == 0xFFFFFFFF
    assert not any("Settings:" in line for line in daemon.lines()[mark:])
    assert settings.get("SatellitePositioning") is True
    assert settings.set("ContinuousLocationCleanup", False)  # any key brings the state up to date
    assert keys.all() == FIRST


@pytest.mark.parametrize("hundredths, whole", [(240, 2), (250, 3), (-240, -1), (-60, 0), (0, 0), (32767, 328)])
def test_a_fix_brings_its_variation(road, keys, hundredths, whole):
    keys.write("magneticvariation", 77)
    client = road.satellite_client()
    road.fix(client, 60.1, variation=hundredths)
    client.wait_for_fix()
    assert keys.read("magneticvariation") == whole
    assert isinstance(keys.read("magneticvariation"), int)


def test_no_variation_leaves_the_key(stage, keys, road):
    client = road.satellite_client()
    road.fix(client, 60.1)
    road.fix(client, 60.2, speed=500)
    road.settle(client)
    assert isinstance(keys.read("magneticvariation"), float)  # still the default


def test_a_fix_for_nobody_brings_its_variation_all_the_same(road, keys):
    client = road.satellite_client()
    client.vanish()
    road.daemon.wait_for_message("onClientDisconnected: Remove client  6000")
    road.fix(client, 60.1, variation=410)
    road.daemon.wait_for_message("PositionDaemon::onPositionUpdateGNSS: Invalid GNSS session id from ORV.", "Critical")
    assert keys.read("magneticvariation") == 4


def test_the_same_variation_overwrites_what_another_program_wrote(road, keys):
    client = road.satellite_client()
    latitudes = itertools.count(60)

    def corrected():
        road.fix(client, next(latitudes) / 10, variation=410)
        road.settle(client)
        return keys.read("magneticvariation") == 4

    assert corrected()
    keys.write("magneticvariation", 99)
    wait_until(corrected, "the key is right again", poll=0.1)


def test_the_keys_outlive_the_daemon(stage, keys, road):
    client = road.satellite_client()
    road.fix(client, 60.1, variation=-1210)
    client.wait_for_fix()
    assert stage.settings().set("SatellitePositioning", False)
    expected = {**FIRST, "magneticvariation": -11, "satellitePositioning": False}
    road.daemon.stop()
    assert keys.all() == expected
    stage.daemon()
    assert keys.all() == expected
