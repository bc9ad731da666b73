"""The running process: how it ends, and what signals do to it."""

import os
import signal
import subprocess

import pytest
from gi.repository import GLib

from harness import client as app
from harness import files, wire
from harness.daemon import binary
from harness.mailbox import wait_until
from harness.peers import FakeDeviceState

CATCHING = {signal.SIGUSR1, signal.SIGINT, signal.SIGHUP, signal.SIGTERM, signal.SIGABRT, signal.SIGBUS, signal.SIGSEGV}


def signals(mask):
    """The signal numbers in a mask of /proc/PID/status."""
    return {number for number in range(1, 65) if int(mask, 16) >> (number - 1) & 1}


def tracking_session(stage, engine):
    """A daemon with one client whose satellite session runs."""
    daemon = stage.consented_daemon()
    client = stage.client()
    client.start(app.SATELLITE)
    engine.expect(wire.GnssRequest, command=wire.START, session=client.id)
    return daemon, client


# ---- terminating signals

@pytest.mark.parametrize("number, status", [
    (signal.SIGHUP, 0), (signal.SIGINT, 0), (signal.SIGTERM, 0),
    (signal.SIGABRT, 1), (signal.SIGBUS, 1), (signal.SIGSEGV, 1),
], ids=lambda value: value.name if isinstance(value, signal.Signals) else None)
def test_a_terminating_signal_ends_with_its_status(stage, number, status):
    daemon = stage.daemon()
    daemon.signal(number)
    assert daemon.wait_exit() == status
    assert daemon.errors() == []


def test_the_handlers_are_installed_as_they_should_be(stage):
    daemon = stage.daemon()
    assert CATCHING <= signals(daemon.status("SigCgt"))
    assert signal.SIGCHLD in signals(daemon.status("SigIgn"))
    assert signals(daemon.status("SigBlk")) == set()


def test_a_reader_of_the_log_that_leaves_does_not_take_the_daemon_along(stage):
    reader, writer = os.pipe()
    os.close(reader)
    environment = {**os.environ, "DBUS_SESSION_BUS_ADDRESS": stage.session.address,
                   "DBUS_SYSTEM_BUS_ADDRESS": stage.system.address, "ASAN_OPTIONS": "verify_asan_link_order=0"}
    process = subprocess.Popen([binary(), "-v"], stdout=writer, stdin=subprocess.DEVNULL, env=environment)
    os.close(writer)
    stage.keep(process, process.kill)
    stage.wait_serving()
    assert stage.client().register() == 6000
    assert process.poll() is None


def test_a_signal_ends_the_daemon_without_cleaning_up(stage, ready_engine):
    daemon, _ = tracking_session(stage, ready_engine)
    daemon.signal(signal.SIGTERM)
    assert daemon.wait_exit() == 0
    ready_engine.connections.wait_for("closed by the daemon")
    assert ready_engine.pending() == []


def test_a_signal_ends_the_daemon_in_the_middle_of_a_blocking_call(stage, ready_engine):
    daemon, client = tracking_session(stage, ready_engine)
    client.configure(app.SATINFO_START)
    client.hang()
    ready_engine.send(wire.notification(client.id, wire.NO_FIX, wire.satellites(wire.satellite(3, 0, 40, 50, 60))))
    client.wait_for("satellitesInViewUpdate")
    daemon.signal(signal.SIGINT)
    assert daemon.wait_exit() == 0


# ---- the two quiet ends

def test_the_devices_shutdown_ends_the_daemon(stage, ready_engine):
    device = FakeDeviceState(stage.system)
    daemon, _ = tracking_session(stage, ready_engine)
    device.announce_shutdown()
    assert daemon.wait_exit() == 0
    assert ready_engine.pending() == []  # nothing is sent on the way out
    assert daemon.errors() == []


def test_the_devices_shutdown_ends_a_detached_daemon(stage):
    device = FakeDeviceState(stage.system)
    daemon = stage.launch("-d", "-v")
    daemon.wait_detached(stage.session)
    daemon.wait_ready()
    device.announce_shutdown()
    daemon.wait_exit()
    assert daemon.errors() == []


def test_a_device_state_daemon_that_comes_later_is_heard(stage):
    daemon = stage.daemon()
    FakeDeviceState(stage.system).announce_shutdown()
    assert daemon.wait_exit() == 0


def test_nobody_else_can_announce_the_shutdown(stage):
    FakeDeviceState(stage.system)
    daemon = stage.daemon()
    stranger = stage.system.connect()
    stranger.emit_signal(None, "/com/varn/hallix/signal", "com.varn.hallix.signal", "shutdown_ind", None)
    stage.system.ping(stranger, daemon.pid)  # answered behind it on the same bus: the signal has been seen by then
    assert stage.client().register() == 6000
    assert daemon.is_running()


def test_other_signals_of_the_device_state_daemon_are_nothing(stage):
    device = FakeDeviceState(stage.system)
    daemon = stage.daemon()
    device.emit("/com/varn/hallix/signal", "com.varn.hallix.signal", "save_unsaved_data_ind")
    device.emit("/com/varn/hallix/other", "com.varn.hallix.signal", "shutdown_ind")
    stage.system.ping(device.connection, daemon.pid)
    assert stage.client().register() == 6000
    assert daemon.is_running()


def test_losing_the_session_bus_ends_the_daemon(stage, ready_engine):
    daemon, _ = tracking_session(stage, ready_engine)
    stage.session.stop()
    assert daemon.wait_exit() == 0
    assert ready_engine.pending() == []


def test_losing_the_system_bus_does_not(stage):
    daemon = stage.daemon()
    stage.system.stop()
    assert stage.client().register() == 6000
    assert stage.settings().get("SuplFallback") in (True, "true")
    assert daemon.is_running()


# ---- SIGUSR1

def test_the_user_signal_deletes_all_assistance_data(stage, ready_engine):
    daemon = stage.daemon()
    for _ in range(2):
        daemon.signal(signal.SIGUSR1)
        message = ready_engine.expect(wire.DeleteAssistance)
        assert message.raw == bytes.fromhex("ef0a0008 11111111")
    assert daemon.messages("Debug").count("Deleting all GPS assistance data.") == 2
    # The digits are written for the masks 0x01, 0xFD and 0xFF alone.
    assert not any(text.startswith("deleteAssistanceData 0x") for text in daemon.messages())


def test_the_user_signal_without_an_internal_receiver_does_nothing(stage, ready_engine):
    files.sysinfo(files.INTERNAL_GPS, b"\0")
    daemon = stage.daemon()
    for _ in range(3):
        daemon.signal(signal.SIGUSR1)
    assert stage.client().register() == 6000
    assert not daemon.has_message("Deleting all GPS assistance data.")
    assert ready_engine.connections.items() == []


def test_the_user_signal_without_an_engine_is_survived(stage):
    daemon = stage.daemon()
    daemon.signal(signal.SIGUSR1)
    daemon.wait_for_message("Deleting all GPS assistance data.", "Debug")
    assert stage.client().register() == 6000


def test_the_user_signal_waits_while_a_call_blocks(stage, ready_engine):
    daemon, client = tracking_session(stage, ready_engine)
    client.configure(app.SATINFO_START)
    ready_engine.skip()
    client.hang()
    ready_engine.send(wire.notification(client.id, wire.NO_FIX, wire.satellites(wire.satellite(3, 0, 40, 50, 60))))
    client.wait_for("satellitesInViewUpdate")
    main = str(daemon.pid)
    wait_until(lambda: daemon.status("State").startswith("S"), "the call waits for its answer")
    asleep = daemon.wake_ups()[main]
    daemon.signal(signal.SIGUSR1)
    wait_until(lambda: daemon.wake_ups()[main] > asleep, "the handler has run, and the call waits again")
    assert ready_engine.pending() == []
    assert not daemon.has_message("Deleting all GPS assistance data.")
    client.release()
    ready_engine.expect(wire.DeleteAssistance, mask=0x11111111)


# ---- a long life

def test_children_never_become_zombies(stage):
    """The test engine is a child that nobody waits for."""
    daemon = stage.consented_daemon(environment={"POSITIONING_SOURCE": "fake"})
    daemon.wait_for_message(">>>>> Using fake position source! <<<<<<", "Warning")
    (child,) = daemon.proc(f"task/{daemon.pid}/children").split()
    with open(f"/proc/{child}/cmdline", encoding="utf-8") as file:
        assert file.read().split("\0")[:2] == ["python2.6", "/usr/lib/lodestard-tests/fake_orv.py"]
    os.kill(int(child), signal.SIGKILL)
    daemon.wait_for_line("Trying to launch fake orvd.", count=2)
    assert child not in daemon.proc(f"task/{daemon.pid}/children").split()


def test_an_unanswered_client_does_not_keep_the_settings_from_answering(stage, ready_engine):
    """A position is sent without waiting: a client that hangs holds up nobody."""
    _, client = tracking_session(stage, ready_engine)
    client.hang()
    ready_engine.send(wire.notification(client.id, wire.WITH_FIX, wire.position(60.0, 25.0)))
    client.wait_for_fix(lambda fix: abs(fix.latitude - 60.0) < 1e-6)
    settings = stage.settings()
    try:
        assert settings.set("Positioning", True)
    except GLib.Error as error:
        pytest.fail(f"the daemon is held up: {error}")
