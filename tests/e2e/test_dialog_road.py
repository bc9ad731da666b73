"""From a start without consent, and from the network's question, to a person at the keyboard and back:
the daemon, and the real dialog service that the bus starts."""

import pytest

from harness import client as app
from harness import dialogs, wire
from harness.daemon import faketime_library
from harness.dialogs import PRIVACY_TITLE, REQUEST_TITLE
from harness.road import Road

HASTE = "+0 x20"  # for clocks: two minutes in six seconds
ASKER = (wire.client_name("Friend Finder"), wire.client_id("+49 170 1234567"))


@pytest.fixture
def desktop(stage, display):
    """A session bus that starts the dialog service on the display."""
    return stage.use_session(services={dialogs.NAME: dialogs.program()}, environment=dialogs.environment(display))


@pytest.fixture
def hasty_desktop(stage, display):
    """The same with a dialog service whose clock is as fast as HASTE."""
    hasty = dialogs.environment(display, LD_PRELOAD=faketime_library(), FAKETIME=HASTE)
    return stage.use_session(services={dialogs.NAME: dialogs.program()}, environment=hasty)


def answer_privacy(desktop, display, key):
    """The user's answer; the dialog service has ended then."""
    display.wait_window(PRIVACY_TITLE)
    display.press(key, until=lambda: desktop.owner_of(dialogs.NAME) is None)


def test_enter_gives_consent_and_the_session_starts(stage, desktop, display):
    road = Road(stage, consent=False)
    client = road.client()
    answer_privacy(desktop, display, "Return")
    road.engine.expect(wire.GnssRequest, command=wire.START, session=client.id)
    road.satellite_client()  # is not asked about
    road.settle()
    assert display.windows(PRIVACY_TITLE) == [] and desktop.owner_of(dialogs.NAME) is None
    assert road.daemon.messages("Warning") == []


def test_escape_declines_and_the_next_start_asks_again(stage, desktop, display):
    road = Road(stage, consent=False)
    first = road.client()
    answer_privacy(desktop, display, "Escape")
    second = road.client()
    display.wait_window(PRIVACY_TITLE)
    assert road.engine.all(wire.GnssRequest) == []
    answer_privacy(desktop, display, "alt+a")
    for client in (first, second):
        road.engine.expect(wire.GnssRequest, command=wire.START, session=client.id)


@pytest.mark.parametrize("default, key, accepted", [
    (0, "alt+s", 1), (1, "alt+r", 0), (1, "Return", 1), (0, "Return", 0), (1, "Escape", 0)])
def test_the_networks_question_is_answered_by_keyboard(stage, desktop, display, default, key, accepted):
    road = Road(stage)
    road.engine.send(wire.location_request(1, 7, *ASKER, wire.default_answer(default)))
    display.wait_window(REQUEST_TITLE)
    display.press(key, until=lambda: desktop.owner_of(dialogs.NAME) is None)
    assert road.engine.expect(wire.LocationReply).accepted == accepted
    road.settle()
    assert len(road.engine.all(wire.LocationReply)) == 1
    assert road.daemon.messages("Warning") == []


@pytest.mark.parametrize("blocks, accepted", [([wire.default_answer(1)], 1), ([], 0)])
def test_without_an_answer_the_engine_is_told_the_default(stage, hasty_desktop, blocks, accepted):
    """The countdown ends before the daemon gives the question up."""
    road = Road(stage, faketime=HASTE)
    road.engine.send(wire.location_request(1, 7, *ASKER, *blocks))
    assert road.engine.expect(wire.LocationReply).accepted == accepted
    road.settle()
    assert len(road.engine.all(wire.LocationReply)) == 1
    assert road.daemon.messages("Warning") == []
    assert hasty_desktop.owner_of(dialogs.NAME) is None


def test_a_withdrawn_question_gets_no_answer_and_the_next_one_does(stage, desktop, display):
    road = Road(stage)
    road.engine.send(wire.location_request(0, 1, *ASKER, wire.default_answer(1)))
    display.wait_window(REQUEST_TITLE)
    withdrawn = desktop.pid_of(dialogs.NAME)
    # The next question follows at once, while the service that showed the first is leaving.
    road.engine.send(wire.location_request(4, 1), wire.location_request(0, 2, *ASKER))
    road.settle()
    display.wait_window(REQUEST_TITLE)
    assert desktop.pid_of(dialogs.NAME) != withdrawn
    assert road.engine.all(wire.LocationReply) == []
    display.press("alt+s", until=lambda: desktop.owner_of(dialogs.NAME) is None)
    assert road.engine.expect(wire.LocationReply).accepted == 1
    road.settle()
    assert len(road.engine.all(wire.LocationReply)) == 1


def test_the_dialog_of_a_daemon_that_ends_is_closed(stage, desktop, display):
    road = Road(stage, consent=False)
    road.client(app.SATELLITE)
    display.wait_window(PRIVACY_TITLE)
    road.daemon.stop()
    display.wait_no_window(PRIVACY_TITLE)
    again = stage.daemon()
    stage.client().start(app.SATELLITE)
    answer_privacy(desktop, display, "Return")
    again.wait_for_message("PositionDaemon::dialogFinished() request queue pop")
