"""Settings that change while the daemon runs: the line of each, and what engine, clients and peers see."""

import pytest
from gi.repository import GLib

from harness import client as app
from harness import files, wire
from harness.peers import FakeBluez
from harness.sidechannel import CELLULAR, CONNECTIVITY, WIFI, SideChannelPeer

ADDRESS = "00:1A:7D:DA:71:13"
CHANGED = "PositionDaemon::userSettingsChanged():  "

# Key, new value, its line.
LABELS = [
    ("Positioning", False, "Positioning [ false ]"),
    ("SatellitePositioning", False, "Sat method enable [ false ]"),
    ("SatellitePositioning", True, "Sat method enable [ true ]"),
    ("SatellitePositioningInternal", False, "Sat method internal [ false ]"),
    ("SatellitePositioningExternalName", "", "Sat method external name [  ]"),
    ("SatellitePositioningExternalAddress", "", "Sat method external address [  ]"),
    ("NetworkConnectivity", False, "Network connectivity [ false ]"),
    ("CellularPositioning", False, "Net method [ false ]"),
    ("WiFiPositioning", False, "WiFi method [ false ]"),
    ("LocationDisclaimerAccepted", True, "Disclaimer accepted [ true ]"),
    ("PrimarySuplServer", "supl.example", "PrimarySuplServer changed [ supl.example ]"),
    ("SecondarySuplServer", "supl.example", "SecondarySuplServer changed [ supl.example ]"),
    ("PrimarySuplOnlyGprs", True, "PrimarySuplOnlyGprs changed [ true ]"),
    ("SuplForced", True, "SUPL Forced [ true ]"),
    ("ContinuousLocationAwareness", False, "ContinuousLocationAwareness [ false ]"),
    ("ContinuousLocationCleanup", False, "ContinuousLocationCleanup [ false ]"),
    ("NetworkPositioningMethod", 3, "Unknown key: NetworkPositioningMethod"),
    ("VeskDisclaimerAccepted", True, "Unknown key: VeskDisclaimerAccepted"),
]
# Keys that only a reset can change: what the file holds before, and the line of the default.
RESET_LABELS = [
    ("PrimarySuplAllowHome", False, "PrimarySuplAllowHome changed [ true ]"),
    ("PrimarySuplAllowRoaming", False, "PrimarySuplAllowRoaming changed [ true ]"),
    ("SecondarySuplAllowHome", False, "SecondarySuplAllowHome changed [ true ]"),
    ("SecondarySuplAllowRoaming", False, "SecondarySuplAllowRoaming changed [ true ]"),
    ("ContinuousLocationAwarenessVisible", True, "ContinuousLocationAwarenessVisible [ false ]"),
    ("ContinuousLocationCleanupVisible", True, "ContinuousLocationCleanupVisible [ false ]"),
    ("PrimarySuplServerUsage", 1, "Unknown key: PrimarySuplServerUsage"),
    ("SuplFallback", False, "Unknown key: SuplFallback"),
]


def follows(daemon, line):
    """The known messages behind a change's line."""
    texts = daemon.messages()
    rest = texts[texts.index(CHANGED + line) + 1:]
    return [text for text in rest if text.startswith("Settings: ") or text == "assignClients"]


def started(stage, engine, methods=app.SATELLITE):
    """A running daemon and one client with a session on the engine."""
    daemon = stage.consented_daemon()
    client = stage.client()
    client.start(methods)
    engine.expect(wire.GnssRequest, command=wire.START, session=client.id)
    engine.skip()
    return daemon, client


# ---- the line of each key

@pytest.mark.parametrize("key, value, line", LABELS, ids=lambda value: str(value))
def test_a_change_is_logged_and_replanned(stage, key, value, line):
    daemon = stage.daemon()
    assert stage.settings().set(key, value)
    daemon.wait_for_message(CHANGED + line, "Debug")
    after = follows(daemon, line)
    assert [text.split(" [")[0] for text in after] == [
        "Settings: Satellite positioning", "Settings: Network positioning", "assignClients"]


@pytest.mark.parametrize("key, before, line", RESET_LABELS, ids=lambda value: str(value))
def test_a_reset_is_logged_and_replanned_key_by_key(stage, key, before, line):
    files.user_settings(**{key: before})
    daemon = stage.daemon()
    assert stage.settings().reset()
    daemon.wait_for_message(CHANGED + line, "Debug")
    assert follows(daemon, line)[-1] == "assignClients"
    assert sum(text.startswith(CHANGED) for text in daemon.messages()) == 1


def test_the_external_receivers_texts_are_logged(stage):
    FakeBluez(stage.system, [ADDRESS])
    daemon, settings = stage.daemon(), stage.settings()
    assert settings.set("SatellitePositioningExternalAddress", ADDRESS)
    assert settings.set("SatellitePositioningExternalName", "Mouse")
    daemon.wait_for_message(CHANGED + f"Sat method external address [ {ADDRESS} ]", "Debug")
    daemon.wait_for_message(CHANGED + "Sat method external name [ Mouse ]", "Debug")


def test_a_refused_change_changes_nothing(stage):
    daemon, settings = stage.daemon(), stage.settings()
    assert settings.set("SuplFallback", False) is False
    assert settings.set("PrimarySuplServer", GLib.Variant("as", ["not", "storable"])) is False
    assert not any(text.startswith(CHANGED) for text in daemon.messages())


# ---- what the engine sees

def test_satellites_off_stops_the_engines_session_and_on_starts_it_again(stage, ready_engine):
    _, client = started(stage, ready_engine)
    settings = stage.settings()
    assert settings.set("SatellitePositioning", False)
    stop = ready_engine.expect(wire.GnssRequest, session=client.id)
    assert (stop.command, stop.interval) == (wire.STOP, 0)
    assert settings.set("SatellitePositioning", True)
    assert ready_engine.expect(wire.GnssRequest, session=client.id).command == wire.START


def test_positioning_off_stops_everything_and_tells_the_client(stage, ready_engine):
    daemon, client = started(stage, ready_engine, app.ALL)
    settings = stage.settings()
    mark = client.mark()
    assert settings.set("Positioning", False)
    assert ready_engine.expect(wire.GnssRequest, session=client.id).command == wire.STOP
    client.wait_for_settings(0, after=mark)
    assert not client.wait_for_fix(after=mark).valid
    daemon.wait_for_message("Positioning has been disabled. No available method.", "Debug")
    daemon.wait_for_message("Could not find any available location methods", "Debug")
    assert settings.set("Positioning", True)
    assert ready_engine.expect(wire.GnssRequest, session=client.id).command == wire.START
    client.wait_for_settings(app.ALL, after=mark)


def test_choosing_the_external_receiver_stops_the_engines_session(stage, ready_engine):
    _, client = started(stage, ready_engine)
    settings = stage.settings()
    assert settings.set("SatellitePositioningInternal", False)
    assert ready_engine.expect(wire.GnssRequest, session=client.id).command == wire.STOP
    assert settings.set("SatellitePositioningInternal", True)
    assert ready_engine.expect(wire.GnssRequest, session=client.id).command == wire.START


def test_choosing_the_internal_receiver_again_changes_nothing(stage, ready_engine):
    daemon, _ = started(stage, ready_engine)
    assert stage.settings().set("SatellitePositioningInternal", True)
    daemon.wait_for_message(CHANGED + "Sat method internal [ true ]")
    assert ready_engine.pending() == []


def test_connectivity_is_told_with_the_next_request(stage, ready_engine):
    _, client = started(stage, ready_engine)
    settings = stage.settings()
    assert settings.set("NetworkConnectivity", False)
    assert ready_engine.pending(wire.GnssRequest) == []
    client.configure(app.SET_INTERVAL, interval=5000)
    request = ready_engine.expect(wire.GnssRequest, command=wire.CHANGE_INTERVAL)
    assert (request.mode, request.interval) == (1, 5)
    assert settings.set("NetworkConnectivity", True)
    client.stop()
    assert ready_engine.expect(wire.GnssRequest, command=wire.STOP).mode == 2


@pytest.mark.parametrize("key, value, usage, server", [
    ("PrimarySuplServer", "supl.new.example", 3, b"supl.new.example"),
    ("PrimarySuplServer", "", 3, b""),
    ("PrimarySuplOnlyGprs", True, 7, None),
    ("SecondarySuplServer", "supl.other.example", 3, None),  # sends the first server's again
], ids=lambda value: str(value))
def test_a_supl_change_reaches_the_engine(stage, ready_engine, key, value, usage, server):
    stage.daemon()
    before = ready_engine.expect(wire.SuplServers)
    assert stage.settings().set(key, value)
    after = ready_engine.expect(wire.SuplServers)
    assert after.primary == (before.primary if server is None else server)
    assert (after.primary_usage, after.secondary_usage, after.secondary) == (usage, 0, b"")


@pytest.mark.parametrize("key, usage", [("PrimarySuplAllowHome", 2), ("PrimarySuplAllowRoaming", 1),
                                        ("SecondarySuplAllowHome", 3), ("SecondarySuplAllowRoaming", 3)])
def test_a_reset_supl_permission_reaches_the_engine(stage, ready_engine, key, usage):
    files.user_settings(**{key: False})
    stage.daemon()
    assert ready_engine.expect(wire.SuplServers).primary_usage == usage
    assert stage.settings().reset()
    assert ready_engine.expect(wire.SuplServers).primary_usage == 3


def test_other_changes_are_no_business_of_the_engines(stage, ready_engine):
    started(stage, ready_engine)
    settings = stage.settings()
    for key, value in (("CellularPositioning", False), ("WiFiPositioning", False), ("SuplForced", True),
                       ("ContinuousLocationCleanup", False), ("NetworkPositioningMethod", 1)):
        assert settings.set(key, value)
    assert ready_engine.pending() == []


# ---- what clients are told

def test_clients_hear_of_new_settings_only_when_the_methods_change(stage):
    daemon, settings = stage.daemon(), stage.settings()
    client = stage.client()
    client.register()
    for key, value in (("Positioning", True), ("WiFiPositioning", False), ("NetworkConnectivity", False),
                       ("NetworkPositioningMethod", 2), ("CellularPositioning", False), ("CellularPositioning", False),
                       ("WiFiPositioning", True), ("SatellitePositioning", False), ("Positioning", False),
                       ("CellularPositioning", True), ("Positioning", True)):
        assert settings.set(key, value)
    client.wait_for("currentSettings", count=5)
    client.sync()
    assert client.settings() == [(mask, 1000) for mask in (
        app.SATELLITE,       # both radios off
        app.ALL,             # WLAN back
        app.NON_SATELLITE,   # satellites off
        0,                   # positioning off
        app.NON_SATELLITE)]  # and on again
    assert daemon.is_running()


def test_every_registered_client_hears_of_new_settings(stage):
    stage.consented_daemon()
    clients = [stage.client() for _ in range(20)]
    for number, client in enumerate(clients):
        client.register()
        if number % 2:
            client.start(app.NON_SATELLITE)
    assert stage.settings().set("SatellitePositioning", False)
    for client in clients:
        assert client.wait_for_settings(app.NON_SATELLITE) == (app.NON_SATELLITE, 1000)
        assert not client.received("currentSettings")[0].wants_reply


def test_a_client_that_hangs_does_not_delay_the_others_settings(stage):
    stage.daemon()
    hanging, other = stage.client(), stage.client()
    hanging.register()
    other.register()
    hanging.hang()
    settings = stage.settings()
    assert settings.set("SatellitePositioning", False)
    other.wait_for_settings(app.NON_SATELLITE)
    assert settings.set("SatellitePositioning", True)
    other.wait_for_settings(app.ALL)


def test_wlan_changes_nothing_while_supl_is_used(stage):
    files.user_settings(SuplForced=True)
    stage.daemon()
    settings, client = stage.settings(), stage.client()
    client.register()
    assert settings.set("WiFiPositioning", False)
    assert settings.set("CellularPositioning", False)
    assert client.wait_for_settings(app.SATELLITE)
    client.sync()
    assert client.settings() == [(app.SATELLITE, 1000)]


# ---- what the network-positioning peer is told

@pytest.fixture
def peer(stage):
    return SideChannelPeer(stage.system)


@pytest.mark.parametrize("key, code", [("CellularPositioning", CELLULAR), ("WiFiPositioning", WIFI),
                                       ("NetworkConnectivity", CONNECTIVITY)])
def test_the_peer_is_told_of_its_three_settings(stage, peer, key, code):
    stage.daemon()
    settings = stage.settings()
    for value in (False, True, True):
        assert settings.set(key, value)
    assert peer.told() == [(code, 0), (code, 1), (code, 1)]


def test_the_peer_is_told_nothing_while_supl_is_used(stage, peer):
    files.user_settings(SuplForced=True)
    stage.daemon()
    settings = stage.settings()
    for key in ("CellularPositioning", "WiFiPositioning", "NetworkConnectivity"):
        assert settings.set(key, False)
    assert peer.told() == []


def test_forcing_supl_tells_nothing_and_releasing_it_tells_all_three(stage, peer):
    stage.daemon()
    settings = stage.settings()
    assert settings.set("WiFiPositioning", False)
    assert settings.set("SuplForced", True)
    assert settings.set("CellularPositioning", False)
    assert settings.set("SuplForced", False)
    assert peer.told() == [(WIFI, 0), (CONNECTIVITY, 1), (CELLULAR, 0), (WIFI, 0)]


def test_releasing_supl_overrules_the_marker(stage, peer):
    files.marker("use_supl")
    daemon, settings = stage.daemon(), stage.settings()
    assert daemon.has_message("VESK in use:  false")
    assert settings.set("CellularPositioning", False)
    assert settings.set("SuplForced", False)
    assert settings.set("WiFiPositioning", False)
    assert peer.told() == [(CONNECTIVITY, 1), (CELLULAR, 0), (WIFI, 1), (WIFI, 0)]
