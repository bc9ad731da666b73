"""Consent to positioning: who waits for it, how the user is asked, and what an answer sets going."""

import time

import pytest
from gi.repository import GLib

from harness import client as app
from harness import files, wire
from harness.dialogs import APPLICATION, APPLICATION_PATH, NAME, PATH
from harness.fakedialogs import FakeDialogs
from harness.mailbox import wait_until
from harness.road import Road, time_between

ALREADY_OPEN = "There is already another dialog open!"
DBUS_ERROR = "LocationUI::dialogDone() : Dbus Error:"
NO_BOOLEAN = "LocationUI::privacyDialogDone: no boolean in the reply, taken as declined"
FINISHED = "PositionDaemon::dialogFinished()"
POPPED = "PositionDaemon::dialogFinished() request queue pop"
INVALID_ID = "*** Warning! Config request from client with invalid Id!"
ACCEPTED_SETTING = "PositionDaemon::userSettingsChanged():  Disclaimer accepted [ true ]"


@pytest.fixture
def dialogs(stage):
    return FakeDialogs(stage.session)


@pytest.fixture
def waiting(stage, dialogs):
    """A ready daemon without consent, with the dialog service beside it."""
    return Road(stage, consent=False)


def started(road):
    """The sessions started on the engine so far, in order."""
    return [request.session for request in road.engine.all(wire.GnssRequest) if request.command == wire.START]


# ---- asking

def test_a_start_without_consent_asks_the_user(waiting, dialogs):
    client = waiting.client()
    question = dialogs.next("privacyDialog")
    assert question.arguments == ()
    assert question.starts_service  # the service runs when it is needed
    assert dialogs.calls.items() == [(PATH, NAME, "privacyDialog", ())]
    waiting.settle(client)
    assert waiting.engine.pending() == []
    assert waiting.lines("PositionDaemon::configRequest") == []


def test_only_a_start_asks(stage, waiting, dialogs):
    client = stage.client()
    client.register()
    assert client.configure(0x3E, app.SATELLITE, 2000) == 0
    waiting.settle(client)
    assert dialogs.unseen() == []
    assert waiting.lines("PositionDaemon::configRequest: Stop!") == ["PositionDaemon::configRequest: Stop!"]


def test_with_consent_nobody_is_asked(stage, dialogs):
    road = Road(stage)
    road.satellite_client()
    road.settle()
    assert dialogs.unseen() == []


# ---- accepting

def test_requests_are_replayed_in_the_order_of_their_arrival(stage, waiting, dialogs):
    clients = [stage.client() for _ in range(3)]
    for client in clients:
        client.register()
    order = [clients[index] for index in (2, 0, 1)]
    for seconds, client in enumerate(order, start=2):
        assert client.start(app.SATELLITE, seconds * 1000) == 0
    assert waiting.lines(ALREADY_OPEN) == [ALREADY_OPEN] * 2  # one dialog is enough
    dialogs.accept()
    requests = [waiting.engine.expect(wire.GnssRequest, command=wire.START) for _ in clients]
    assert [(r.session, r.interval) for r in requests] == [(c.id, s) for s, c in enumerate(order, start=2)]
    waiting.settle()
    assert waiting.lines(FINISHED) == [FINISHED] + [POPPED] * 3
    assert dialogs.unseen() == []

    # Nobody is asked again.
    later = waiting.satellite_client()
    assert started(waiting) == [client.id for client in [*order, later]]
    assert dialogs.unseen() == []
    assert waiting.daemon.messages("Warning") == waiting.daemon.messages("Critical") == []


def test_all_requests_of_one_client_are_replayed(stage, waiting, dialogs):
    client = stage.client()
    for interval in (3000, 7000):
        client.start(app.SATELLITE, interval, extra=app.SATINFO_START)
    client.configure(app.SET_INTERVAL, interval=9000)  # does not start, so it does not wait
    dialogs.accept()
    waiting.engine.expect(wire.GnssRequest, command=wire.START, session=client.id, interval=3)
    waiting.engine.expect(wire.GnssRequest, command=wire.CHANGE_INTERVAL, session=client.id, interval=7)
    waiting.settle()
    assert waiting.lines("PositionDaemon::configRequest: Set interval") == [
        f"PositionDaemon::configRequest: Set interval:  {seconds}" for seconds in (9, 3, 7)]


def test_the_application_is_told_to_exit(waiting, dialogs):
    waiting.client()
    dialogs.next("privacyDialog").answer(True)
    exit = dialogs.next("exit")
    assert dialogs.calls.items()[-1] == (APPLICATION_PATH, APPLICATION, "exit", ())
    assert not exit.starts_service


def test_a_service_that_does_not_answer_its_exit_is_waited_for(stage):
    """Everything waits for the bus library's time-out of 25 s, the replayed requests excepted."""
    dialogs = FakeDialogs(stage.session, answers_exit=False)
    road = Road(stage, consent=False, faketime="+0 x25")
    client = road.client()
    dialogs.next("privacyDialog").answer(True)
    dialogs.next("exit")
    road.engine.expect(wire.GnssRequest, command=wire.START, session=client.id)
    client.stop()
    assert 24 <= time_between(road.daemon, FINISHED, "PositionDaemon::configRequest: Stop!") <= 100
    assert road.daemon.messages("Warning") == road.daemon.messages("Critical") == []


def test_brisd_is_started_when_the_user_accepts(stage, waiting, dialogs):
    monitor = stage.monitor(stage.system)
    waiting.client()
    dialogs.decline()
    waiting.settle()
    assert not any("brisd" in line for line in monitor.settled_lines(stage.system))
    waiting.client()
    dialogs.accept()
    monitor.wait_call("start", destination="com.varn.location.brisd", path="/com/varn/location/brisd")
    waiting.settle()
    calls = [line for line in monitor.settled_lines(stage.system) if "method call" in line and "brisd" in line]
    assert len(calls) == 1
    texts = waiting.daemon.messages("Debug")
    assert texts.index("startBrisd()") < texts.index(POPPED)


def test_an_acceptance_lasts_as_long_as_the_daemon(stage, waiting, dialogs):
    """The setting is not stored: the next daemon asks again."""
    client = waiting.client()
    dialogs.accept()
    waiting.engine.expect(wire.GnssRequest, command=wire.START, session=client.id)
    assert stage.settings().get("LocationDisclaimerAccepted") is False
    assert not waiting.daemon.has_message(ACCEPTED_SETTING)
    waiting.daemon.stop()
    assert files.read_settings()["LocationDisclaimerAccepted"] == "false"
    again = stage.daemon()
    stage.client().start(app.SATELLITE)
    dialogs.next("privacyDialog")
    assert not again.has_message("startBrisd()")


def test_what_waited_starts_when_the_engine_is_back(waiting, dialogs):
    """The user accepts while it is away."""
    client = waiting.client()
    question = dialogs.next("privacyDialog")
    waiting.engine.refuse()
    waiting.engine.disconnect()
    waiting.daemon.wait_for_line("lodestard: ORVComm reconnection failed.")
    question.answer(True)
    dialogs.next("exit")
    waiting.daemon.wait_for_message(POPPED, "Debug")
    assert not client.wait_for_fix().valid  # nothing is available for now
    waiting.engine.listen()
    waiting.engine.expect(wire.SuplServers)
    waiting.engine.expect(wire.GnssRequest, command=wire.START, session=client.id)
    waiting.settle()
    assert started(waiting) == [client.id]


# ---- declining

def test_a_decline_keeps_what_waits_for_a_later_acceptance(stage, waiting, dialogs):
    first = waiting.client()
    dialogs.decline()
    waiting.settle()
    assert waiting.lines(FINISHED) == [FINISHED]
    assert started(waiting) == []
    assert not waiting.daemon.has_message("startBrisd()")

    second = waiting.client()
    dialogs.decline()
    third = waiting.client()
    dialogs.accept()
    for client in (first, second, third):
        waiting.engine.expect(wire.GnssRequest, command=wire.START, session=client.id)
    assert started(waiting) == [first.id, second.id, third.id]
    assert not waiting.daemon.has_message(ALREADY_OPEN)


def test_consent_by_the_setting_leaves_the_dialog_and_what_waits(stage, waiting, dialogs):
    first = waiting.client()
    question = dialogs.next("privacyDialog")
    assert stage.settings().set("LocationDisclaimerAccepted", True)
    second = waiting.satellite_client()
    waiting.settle()
    assert started(waiting) == [second.id]
    assert not waiting.daemon.has_message("startBrisd()")
    question.answer(True)
    waiting.engine.expect(wire.GnssRequest, command=wire.START, session=first.id)
    assert waiting.daemon.has_message("startBrisd()")


def test_consent_taken_back_by_the_setting_asks_again(stage, waiting, dialogs):
    waiting.client()
    dialogs.accept()
    assert stage.settings().set("LocationDisclaimerAccepted", False)
    waiting.client()
    dialogs.next("privacyDialog")


# ---- what waits may have lost its client

def test_a_prestart_waits_and_is_replayed(stage, waiting, dialogs):
    stage.client().prestart(True, False)
    dialogs.next("privacyDialog").answer(True)
    waiting.engine.expect(wire.GnssRequest, command=wire.START, session=6000, interval=1)


def test_a_prestart_that_is_over_fails_at_its_replay(stage, dialogs):
    road = Road(stage, consent=False, faketime="+0 x20")
    stage.client().prestart(True, True)
    client = road.client()
    road.daemon.wait_for_message("PositionDaemon: Removing client with id: 6000")
    dialogs.accept()
    road.engine.expect(wire.GnssRequest, command=wire.START, session=client.id)
    assert started(road) == [client.id]
    assert road.daemon.messages("Critical") == [INVALID_ID, "*** id: 6000  command: 13"]


def test_an_unknown_id_waits_and_fails_at_its_replay(stage, waiting, dialogs):
    stranger, client = stage.client(), stage.client()
    assert stranger.configure(app.START, id=5999) == 0
    client.start(app.SATELLITE)
    assert waiting.daemon.messages("Critical") == []
    dialogs.accept()
    waiting.engine.expect(wire.GnssRequest, command=wire.START, session=client.id)
    assert waiting.daemon.messages("Critical") == [INVALID_ID, "*** id: 5999  command: 1"]
    assert waiting.lines(POPPED) == [POPPED] * 2


def test_a_client_that_has_left_fails_at_its_replay(waiting, dialogs):
    gone, client = waiting.client(), waiting.client()
    gone.vanish()
    waiting.daemon.wait_for_message(f"PositionDaemon: Removing client with id: {gone.id}")
    dialogs.accept()
    waiting.engine.expect(wire.GnssRequest, command=wire.START, session=client.id)
    assert started(waiting) == [client.id]
    assert waiting.daemon.messages("Critical") == [INVALID_ID, f"*** id: {gone.id}  command: 13"]


# ---- dialogs that fail

def refused_from_now_on(road, dialogs=None):
    """A failed dialog counts as open for good: later starts wait, and nobody is asked."""
    seen = len(road.lines(ALREADY_OPEN))
    road.client()
    road.settle()
    assert len(road.lines(ALREADY_OPEN)) == seen + 1
    assert started(road) == []
    assert not road.daemon.has_message(FINISHED)
    assert dialogs is None or dialogs.unseen() == []


def test_without_the_dialog_service_a_start_goes_on_waiting(stage):
    road = Road(stage, consent=False)
    road.client()
    road.daemon.wait_for_message(DBUS_ERROR, "Warning")
    road.settle()
    warnings = road.daemon.messages("Warning")
    assert len(warnings) == 2 and warnings[0] == DBUS_ERROR and NAME in warnings[1]
    refused_from_now_on(road, FakeDialogs(stage.session))  # it comes too late


def test_a_dialog_service_that_dies_in_mid_dialog(stage, waiting, dialogs):
    waiting.client()
    dialogs.next("privacyDialog")
    dialogs.leave()
    waiting.daemon.wait_for_message(DBUS_ERROR, "Warning")
    waiting.settle()
    warnings = waiting.daemon.messages("Warning")
    assert len(warnings) == 2 and "disconnected" in warnings[1]
    refused_from_now_on(waiting, FakeDialogs(stage.session))


def test_an_error_of_the_dialog_service(waiting, dialogs):
    waiting.client()
    dialogs.next("privacyDialog").fail("The display is %s off.")
    waiting.daemon.wait_for_message("The display is %s off.", "Warning")
    assert waiting.daemon.messages("Warning") == [DBUS_ERROR, "The display is %s off."]
    refused_from_now_on(waiting, dialogs)  # and it was not told to exit


def test_a_reply_of_the_wrong_type_is_no_consent(waiting, dialogs):
    wrong = ("()", "(1,)", "(2,)", "(uint32 1,)", "(byte 1,)", "(int64 1,)", "(1.0,)", "('true',)", "('1',)", "([true],)",
             "(objectpath '/yes',)", "(<1>,)", "(<'true'>,)", "((true, true),)", "((1,),)", "({'accepted': <true>},)")
    for number, reply in enumerate(wrong, start=1):
        waiting.client()  # each start asks anew: the reply before was an answer all the same
        dialogs.next("privacyDialog").answer(GLib.Variant.parse(None, reply, None, None))
        dialogs.next("exit")
        waiting.settle()
        assert waiting.daemon.messages("Warning") == [NO_BOOLEAN] * number, reply
        assert waiting.lines(FINISHED) == [FINISHED] * number, reply
        assert started(waiting) == [], reply
    assert not waiting.daemon.has_message("startBrisd()")
    assert not waiting.daemon.has_message(ALREADY_OPEN)


@pytest.mark.parametrize("reply", ["(<true>,)", "(<<true>>,)", "((true,),)", "(true, false)"])
def test_a_boolean_counts_in_its_wrapping_too(waiting, dialogs, reply):
    client = waiting.client()
    dialogs.next("privacyDialog").answer(GLib.Variant.parse(None, reply, None, None))
    waiting.engine.expect(wire.GnssRequest, command=wire.START, session=client.id)
    dialogs.next("exit")


def test_a_location_request_does_not_disturb_the_open_dialog(waiting, dialogs):
    client = waiting.client()
    question = dialogs.next("privacyDialog")
    waiting.engine.send(wire.location_request(1, 0), wire.location_request(4, 0))
    waiting.settle()
    assert waiting.lines(ALREADY_OPEN) == [ALREADY_OPEN]
    assert waiting.lines("Could not close") == ["Could not close dialog with transaction id: 0"]
    assert dialogs.unseen() == []
    question.answer(True)
    waiting.engine.expect(wire.GnssRequest, command=wire.START, session=client.id)
    assert waiting.engine.all(wire.LocationReply) == []


# ---- a user who takes their time

def test_an_answer_after_five_minutes_counts(stage, dialogs):
    speed = 10
    road = Road(stage, consent=False, faketime=f"+0 x{speed}")
    client = road.client()
    question = dialogs.next("privacyDialog")
    end = time.monotonic() + 301 / speed
    wait_until(lambda: time.monotonic() > end, "five minutes are over", timeout=60)
    question.answer(True)
    road.engine.expect(wire.GnssRequest, command=wire.START, session=client.id)
    assert 300 <= time_between(road.daemon, "##    Path:", FINISHED) <= 320


def test_nobody_is_waited_for_longer_than_320_seconds(stage, dialogs):
    road = Road(stage, consent=False, faketime="+0 x40")
    road.client()
    question = dialogs.next("privacyDialog")
    road.daemon.wait_for_message(DBUS_ERROR, "Warning", timeout=60)
    assert 319 <= time_between(road.daemon, "##    Path:", DBUS_ERROR) <= 400
    question.answer(True)
    road.settle()
    refused_from_now_on(road, dialogs)
