"""Which engine is chosen, the test engine, one that is not there, and what an engine answers."""

import contextlib
import os
import time
from pathlib import Path

import pytest

from harness import client as app
from harness import files, wire
from harness.engine import REAL, TEST
from harness.road import Road, near

FAKE_IN_USE = ">>>>> Using fake position source! <<<<<<"
INTERPRETER = "/usr/bin/python2.6"
SCRIPT = "/usr/lib/lodestard-tests/fake_orv.py"


# ---- the choice

@pytest.mark.parametrize("variable, markers, path", [
    (None, [], REAL),
    ("TEST", [], REAL),
    ("REAL", [], REAL),
    ("", [], REAL),
    (" FAKE", [], REAL),
    ("FAKE", [], TEST),
    ("fake", [], TEST),
    ("FaKe", [], TEST),
    ("REAL", ["fake_positioning"], TEST),
    (None, ["fake_positioning"], TEST),
    ("FAKE", ["real_positioning"], REAL),
    ("FAKE", ["fake_positioning", "real_positioning"], REAL),
], ids=lambda value: "+".join(value) if isinstance(value, list) else str(value))
def test_the_choice_of_the_engine(stage, variable, markers, path):
    engines = {place: stage.engine(path=place) for place in (REAL, TEST)}
    for name in markers:
        files.marker(name)
    daemon = stage.daemon(environment={"POSITIONING_SOURCE": variable})
    engines[path].expect(wire.RegisterPrivacy)
    assert len(engines[path].connections) == 1
    assert [len(engine.connections) for engine in engines.values()].count(0) == 1
    name = "orvd" if path == REAL else "fake orvd"
    assert [t for t in daemon.messages("Debug") if t.startswith("Connecting to")] == [f"Connecting to {name}."]
    assert daemon.messages("Warning") == ([] if path == REAL else [FAKE_IN_USE])


# ---- the test engine

def children(daemon):
    tasks = Path(f"/proc/{daemon.pid}/task/{daemon.pid}/children").read_text(encoding="utf-8").split()
    return {int(pid): Path(f"/proc/{pid}/cmdline").read_bytes().split(b"\0")[:-1] for pid in tasks}


@contextlib.contextmanager
def interpreter_replaced_by(target):
    """Another file in the interpreter's place, or none."""
    before = os.readlink(INTERPRETER)
    os.unlink(INTERPRETER)
    try:
        if target:
            os.symlink(target, INTERPRETER)
        yield
    finally:
        if target:
            os.unlink(INTERPRETER)
        os.symlink(before, INTERPRETER)


@pytest.mark.parametrize("spelling", ["FAKE", "Fake"])
def test_the_test_engine_is_launched_and_gives_fixes(stage, spelling):
    files.marker("location_ok")
    daemon = stage.daemon(environment={"POSITIONING_SOURCE": spelling, "FAKE_ORV_OPTIONS": "--ttff 0.2"})
    assert list(children(daemon).values()) == [[b"python2.6", SCRIPT.encode()]]
    assert daemon.messages("Warning")[0] == "Trying to launch fake orvd."
    assert daemon.messages("Warning")[-1] == FAKE_IN_USE
    client = stage.client()
    client.start(app.SATELLITE, extra=app.SATINFO_START)
    fix = client.wait_for_fix(lambda fix: fix.valid)
    assert abs(fix.latitude - 47.3769) < 0.1 and abs(fix.longitude - 8.5417) < 0.1
    assert len(client.wait_for("satellitesInUseUpdate").satellites) >= 4
    client.wait_for_fix(lambda fix: fix.valid, count=3)
    assert not any("Ignored block" in text for text in daemon.messages())


def test_a_running_test_engine_is_used_as_it_is(stage):
    road = Road(stage, engine_path=TEST, environment={"POSITIONING_SOURCE": "FAKE"})
    client = road.satellite_client()
    road.fix(client, 10)
    assert near(10)(client.wait_for_fix())
    assert children(road.daemon) == {}
    assert road.daemon.messages("Warning") == [FAKE_IN_USE]


def fatal_start(stage):
    """A start that fails on the test engine; returns the daemon and how long it took."""
    begin = time.monotonic()
    daemon = stage.launch("-v", environment={"POSITIONING_SOURCE": "FAKE"})
    assert daemon.wait_exit() == 1
    return daemon, time.monotonic() - begin


def test_without_an_interpreter_the_start_fails(stage):
    with interpreter_replaced_by(None):
        daemon, took = fatal_start(stage)
    assert 4.1 <= took <= 15  # six attempts, 0.2 s and four seconds
    assert sorted(daemon.messages("Fatal")) == [
        ">>>>> Could not start fake orvd. <<<<<", "Connection to fake orvd failed."]
    assert daemon.messages("Fatal")[-1] == "Connection to fake orvd failed."
    assert daemon.messages("Warning") == ["Trying to launch fake orvd.", *4 * ["Trying to connect to fake ORV."]]
    refused = "MsgSockClient::connect: (socket) connect() : No such file or directory"
    assert daemon.messages("Critical") == 6 * [refused]


def test_a_test_engine_that_ends_at_once_fails_the_start(stage):
    """As with a script that is missing: the interpreter comes back with an error."""
    with interpreter_replaced_by("/usr/bin/false"):
        daemon, _ = fatal_start(stage)
    assert daemon.messages("Fatal") == ["Connection to fake orvd failed."]


def test_a_test_engine_that_is_late_is_waited_for(stage):
    with interpreter_replaced_by("/usr/bin/true"):
        daemon = stage.launch("-v", environment={"POSITIONING_SOURCE": "FAKE"})
        daemon.wait_for_message("Trying to connect to fake ORV.", "Warning", count=2)
        engine = stage.engine(path=TEST)
        engine.expect(wire.RegisterPrivacy)
        daemon.wait_ready()
    assert daemon.messages("Warning")[-1] == FAKE_IN_USE
    assert 2 <= daemon.messages("Warning").count("Trying to connect to fake ORV.") <= 4


# ---- an engine that is not there

def test_a_daemon_without_an_engine_serves_all_the_same(stage):
    files.marker("location_ok")
    daemon = stage.daemon()
    assert daemon.messages("Critical") == ["MsgSockClient::connect: (socket) connect() : No such file or directory"]
    assert daemon.messages("Warning") == ["Connection to orvd failed.", "lodestard: ORVComm init failed."]
    client = stage.client()
    assert client.register() == 6000
    assert client.start(app.ALL) == 0
    assert len(client.latest_position()) == 37
    daemon.wait_for_message("startSessions: client: id=6000, stopped=0, methods=0xffffff00, actGNSS=0, actSUPL=0")
    client.start(app.SATELLITE)
    assert not client.wait_for_fix().has_time
    settings = stage.settings()
    assert settings.set("PrimarySuplServer", "x") and settings.get("PrimarySuplServer") == "x"
    assert not any("SUPL server information" in text for text in daemon.messages())


def test_a_door_that_nobody_opens(stage):
    stage.engine().refuse()
    daemon = stage.daemon()
    assert daemon.messages("Critical") == ["MsgSockClient::connect: (socket) connect() : Connection refused"]


# ---- what the engine answers

@pytest.mark.parametrize("result, level, text", [
    (0, "Debug", "ORVComm::handlePrivacyRegistrationResponse privacy reg OK"),
    (1, "Critical", "ORVComm::handlePrivacyRegistrationResponse privacy req FAILED"),
    (255, "Critical", "ORVComm::handlePrivacyRegistrationResponse privacy req FAILED")])
def test_the_answer_to_the_registration(stage, result, level, text):
    engine = stage.engine(answer_privacy=False)
    daemon = stage.daemon()
    engine.expect(wire.RegisterPrivacy)
    engine.send(wire.privacy_registered(result))
    daemon.wait_for_message(text, level)
    engine.expect(wire.SuplServers)  # nothing else comes of it


def test_answers_that_are_only_logged(road):
    road.engine.send(wire.gnss_response(6000, 0), wire.gnss_response(0xFFFF, 0xAB), wire.message(0xEF10, bytes(4)),
                     wire.message(0xEF01, bytes(8)), wire.message(0x1234, bytes(4)), wire.message(0xEF02, bytes(2)))
    road.settle()
    assert road.lines("ORVComm::handleGNSSResponse") == [
        "ORVComm::handleGNSSResponse() session id: 6000, status: 0x0",
        "ORVComm::handleGNSSResponse() session id: 65535, status: 0xab"]
    assert road.lines("ORV Message received. id: ")[1:-1] == [
        f"ORV Message received. id: 0x{id} length: {length}" for id, length in (
            ("ef02", 8), ("ef02", 8), ("ef10", 8), ("ef01", 12), ("1234", 8), ("ef02", 6))]
    assert road.engine.pending() == []
