"""Initialisation: its order, the engine it may find or not, the markers and the sibling daemon."""

import re
from datetime import datetime

import pytest

from harness import client as app
from harness import files, wire
from harness.daemon import LINE
from harness.peers import FakeBrisd

ORDER = [
    "PositionDaemon::init()",
    "Checking if already running.",
    "VESK in use:  true",
    "Settings: Satellite positioning [ ON]",
    "Settings: Network positioning [ ON]",
    "PositionDaemon::init() Settings done.",
    "PositionDaemon::init() ORVComm done.",
    "PositionDaemon::init() VESKComm done.",
    "PositionDaemon::init() GypsyComm done.",
    "PositionDaemon::init() Client server done.",
    "PositionDaemon::init() VESK server done.",
    "PositionDaemon::init() ContextProvider init done.",
    "PositionDaemon::init() GNSS power save done",
    "PositionDaemon::init() Signal handler done.",
    "startBrisd()",
    "PositionDaemon::init() done.",
]
BRISD_START = {"destination": "com.varn.location.brisd", "path": "/com/varn/location/brisd"}


def steps(daemon):
    """The known lines of the initialisation, as debug messages, in the order they came."""
    return [text for text in daemon.messages("Debug") if text in ORDER]


def seconds(line):
    return datetime.strptime(LINE.match(line)[1], "%H:%M:%S")


# ---- the order

def test_the_steps_come_in_their_order(stage, ready_engine):
    assert steps(stage.daemon()) == [step for step in ORDER if step != "startBrisd()"]


def test_the_sibling_daemon_is_started_last(stage, ready_engine):
    assert steps(stage.consented_daemon()) == ORDER


def test_settings_are_seeded_between_the_instance_check_and_the_first_decision(stage):
    texts = stage.daemon().messages("Debug")
    seeds = [index for index, text in enumerate(texts) if text.startswith("Use default setting: ")]
    assert texts.index("Checking if already running.") < seeds[0]
    assert seeds[-1] < texts.index("VESK in use:  true")


def test_the_three_services_are_there(stage):
    daemon = stage.daemon()
    assert stage.session.pid_of("com.varn.lodestard.settings") == daemon.pid
    assert stage.session.pid_of("com.varn.lodestard.client") == daemon.pid
    assert stage.system.pid_of("com.varn.lodestard.vesk") == daemon.pid


# ---- the engine

def test_a_daemon_without_an_engine_goes_on(stage):
    daemon = stage.daemon()
    warnings = daemon.messages("Warning")
    assert warnings[:2] == ["Connection to orvd failed.", "lodestard: ORVComm init failed."]
    assert steps(daemon) == [step for step in ORDER if step != "startBrisd()"]
    assert stage.client().register() == 6000


def test_an_engine_that_comes_later_is_found_after_30_seconds(stage):
    daemon = stage.daemon(faketime="+0 x10")
    engine = stage.engine()
    engine.expect(wire.RegisterPrivacy)
    first = daemon.wait_for_line("lodestard: ORVComm init failed.")
    again = daemon.wait_for_line("Connecting to orvd.", count=2)
    assert 29 <= (seconds(again) - seconds(first)).seconds <= 34
    engine.expect(wire.SuplServers)


def test_the_engine_is_ready_half_a_second_after_it_was_reached(stage, ready_engine):
    """Time runs slowly here: until then nothing but the registration is sent."""
    files.marker("location_ok")
    daemon = stage.daemon(faketime="+0 x0.1")
    client = stage.client()
    client.start(app.SATELLITE)
    assert stage.settings().set("PrimarySuplServer", "supl.early.example")
    assert [type(message) for message in ready_engine.all()] == [wire.RegisterPrivacy]
    servers = ready_engine.expect(wire.SuplServers)
    assert servers.primary == b"supl.early.example"
    ready_engine.expect(wire.GnssRequest, command=wire.START, session=client.id)
    assert len(ready_engine.all(wire.SuplServers)) == 1
    assert daemon.has_message("assignClients")


def test_the_engine_is_told_of_the_supl_server(stage, ready_engine):
    files.user_settings(PrimarySuplServer="supl.one.example", SecondarySuplServer="supl.two.example",
                        PrimarySuplAllowHome=True, PrimarySuplAllowRoaming=False, PrimarySuplOnlyGprs=True)
    daemon = stage.daemon()
    servers = ready_engine.expect(wire.SuplServers)
    assert (servers.primary_usage, servers.primary, servers.secondary_usage, servers.secondary) == (
        0b101, b"supl.one.example", 0, b"")
    texts = daemon.messages("Debug")
    assert texts.count("Sending SUPL server information to ORV") == 2
    assert 'Primary SUPL server:  "supl.one.example"  usage: 5' in texts
    assert 'Secondary SUPL server:  "" usage:  0' in texts


@pytest.mark.parametrize("connectivity, mode", [(True, 2), (False, 1)])
def test_the_engine_hears_at_the_start_whether_it_may_connect(stage, ready_engine, connectivity, mode):
    files.user_settings(NetworkConnectivity=connectivity)
    stage.consented_daemon()
    client = stage.client()
    client.start(app.SATELLITE)
    assert ready_engine.expect(wire.GnssRequest, session=client.id).mode == mode


# ---- without an internal receiver

def test_without_an_internal_receiver_there_is_no_engine_link(stage, ready_engine):
    files.sysinfo(files.INTERNAL_GPS, b"\0")
    daemon = stage.consented_daemon()
    assert daemon.has_message("lodestard: Internal GPS disabled, skipping ORVComm init", "Debug")
    assert not daemon.has_message("Connecting to orvd.")
    assert steps(daemon) == ORDER
    settings = stage.settings()
    client = stage.client()
    client.start(app.SATELLITE)
    for key, value in (("PrimarySuplServer", "x"), ("NetworkConnectivity", False), ("SuplForced", True)):
        assert settings.set(key, value)
    client.stop()
    assert settings.clear_assistance(0xFF) is True
    assert ready_engine.connections.items() == []
    assert daemon.is_running()


# ---- markers and flags read at the start

@pytest.mark.parametrize("forced, marker, in_use", [
    (False, False, True), (True, False, False), (False, True, False), (True, True, False),
])
def test_the_network_library_is_used_unless_supl_is_forced(stage, forced, marker, in_use):
    files.user_settings(SuplForced=forced)
    if marker:
        files.marker("use_supl")
    assert stage.daemon().has_message(f"VESK in use:  {str(in_use).lower()}", "Debug")


@pytest.mark.parametrize("values, satellite, network", [
    ({}, True, True),
    ({"Positioning": False}, False, False),
    ({"SatellitePositioning": False}, False, True),
    ({"CellularPositioning": False}, True, True),
    ({"WiFiPositioning": False}, True, True),
    ({"CellularPositioning": False, "WiFiPositioning": False}, True, False),
    ({"NetworkConnectivity": False}, True, True),                       # the library needs a radio only
    ({"SuplForced": True}, True, True),
    ({"SuplForced": True, "WiFiPositioning": False}, True, True),       # SUPL needs cellular ...
    ({"SuplForced": True, "CellularPositioning": False}, True, False),
    ({"SuplForced": True, "NetworkConnectivity": False}, True, False),  # ... and connectivity
], ids=lambda value: " ".join(f"{k}={v}" for k, v in value.items()) or "defaults" if isinstance(value, dict) else None)
def test_the_settings_decide_on_the_methods_offered(stage, values, satellite, network):
    files.user_settings(**values)
    daemon = stage.daemon()
    state = {True: " ON", False: "OFF"}
    assert [text for text in daemon.messages("Debug") if text.startswith("Settings: ")] == [
        f"Settings: Satellite positioning [{state[satellite]}]", f"Settings: Network positioning [{state[network]}]"]
    client = stage.client()
    client.register()
    assert client.methods == (app.SATELLITE if satellite else 0) | (app.NON_SATELLITE if network else 0)
    assert client.minimum_interval == 1000


# ---- the sibling daemon and the consent

def test_brisd_is_started_when_the_marker_gives_consent(stage):
    monitor = stage.monitor(stage.system)
    daemon = stage.consented_daemon()
    assert daemon.has_message("startBrisd()", "Debug")
    call = monitor.wait_call("start", **BRISD_START)
    assert re.search(r"sender=:\d", call)


def test_brisd_is_started_when_the_setting_gives_consent(stage):
    files.user_settings(LocationDisclaimerAccepted=True)
    FakeBrisd(stage.system)
    monitor = stage.monitor(stage.system)
    daemon = stage.daemon()
    assert daemon.has_message("startBrisd()", "Debug")
    monitor.wait_call("start", **BRISD_START)
    assert stage.client().register() == 6000


def test_brisd_is_not_started_without_consent(stage):
    monitor = stage.monitor(stage.system)
    daemon = stage.daemon()
    assert stage.settings().set("LocationDisclaimerAccepted", True)  # nor by the setting later
    daemon.wait_for_message("PositionDaemon::userSettingsChanged():  Disclaimer accepted [ true ]")
    assert not daemon.has_message("startBrisd()")
    assert not any("brisd" in line for line in monitor.settled_lines(stage.system))
