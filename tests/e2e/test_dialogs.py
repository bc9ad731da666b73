"""lodestar-dialogs on a real screen: what it shows, how it is answered by keyboard, how it ends."""

import time
from pathlib import Path

import pytest

import introspection
from harness import dialogs
from harness.dialogs import ERRORS, PRIVACY_TITLE, REQUEST_TITLE, WITHDRAWN

DOCUMENTS = Path(__file__).resolve().parents[2] / "docs" / "dbus"
NO_DISPLAY = "lodestar-dialogs: no display to show dialogs on (see DISPLAY and WAYLAND_DISPLAY)"


@pytest.fixture
def asker(stage):
    return dialogs.Asker(stage.session)


@pytest.fixture
def start(stage, display):
    """Starts the program and waits until it serves."""
    def start(**options):
        program = stage.dialogs(display, **options)
        stage.session.wait_owner(dialogs.NAME)
        return program
    return start


# ---- answers by keyboard

@pytest.mark.parametrize("key, accepted", [("Return", True), ("Escape", False), ("alt+a", True), ("alt+n", False)])
def test_the_privacy_dialog_is_answered_by_keyboard(display, start, asker, key, accepted):
    start()
    answer = asker.privacy()
    display.wait_window(PRIVACY_TITLE)
    display.press(key, until=answer.is_there)
    assert answer.value() == (accepted,)
    display.wait_no_window(PRIVACY_TITLE)


@pytest.mark.parametrize("request_type", [0, 1])
@pytest.mark.parametrize("default_accept, key, reply", [
    (True, "Return", 1), (False, "Return", 0), (False, "alt+s", 1), (True, "alt+r", 0), (True, "Escape", 0)])
def test_a_location_request_is_answered_by_keyboard(display, start, asker, request_type, default_accept, key, reply):
    start()
    answer = asker.location(request_type, default_accept)
    display.wait_window(REQUEST_TITLE)
    display.press(key, until=answer.is_there)
    assert answer.value() == (reply,)
    display.wait_no_window(REQUEST_TITLE)


def test_the_texts_follow_the_users_language(display, start, asker):
    start(LANG="de_AT.UTF-8", LC_ALL="", LANGUAGE="")
    answer = asker.location()
    display.wait_window("Standortanfrage")
    display.press("alt+s", until=answer.is_there)
    assert answer.value() == (1,)


@pytest.mark.parametrize("default_accept", [True, False])
def test_without_an_answer_the_default_is_replied_after_two_minutes(display, start, asker, default_accept):
    start(faketime="+0 x60")
    began = time.monotonic()
    answer = asker.location(default_accept=default_accept)
    assert answer.value() == (int(default_accept),)
    assert time.monotonic() - began > 1.9  # 120 s, sixty times as fast
    display.wait_no_window(REQUEST_TITLE)


# ---- dialogs that end otherwise

def test_a_withdrawn_request_is_answered_with_an_error(stage, display, start, asker):
    start()
    answer = asker.location(default_accept=True)
    display.wait_window(REQUEST_TITLE)
    assert dialogs.Asker(stage.session).location(WITHDRAWN).value() == (0,)
    assert answer.error() == ERRORS + "Withdrawn"
    display.wait_no_window(REQUEST_TITLE)


def test_a_second_dialog_is_refused_and_the_first_one_stays(stage, display, start, asker):
    start()
    first = asker.privacy()
    display.wait_window(PRIVACY_TITLE)
    assert dialogs.Asker(stage.session).location().error() == ERRORS + "Busy"
    assert display.windows(PRIVACY_TITLE) and not display.windows(REQUEST_TITLE)
    display.press("Return", until=first.is_there)
    assert first.value() == (True,)


def test_a_caller_that_leaves_takes_its_dialog_along(stage, display, start, asker):
    start()
    asker.location()
    display.wait_window(REQUEST_TITLE)
    asker.leave()
    display.wait_no_window(REQUEST_TITLE)
    answer = dialogs.Asker(stage.session).privacy()
    display.wait_window(PRIVACY_TITLE)
    display.press("Return", until=answer.is_there)
    assert answer.value() == (True,)


def test_exit_while_a_dialog_is_open(stage, display, start, asker):
    program = start()
    answer = asker.location(default_accept=True)
    display.wait_window(REQUEST_TITLE)
    assert dialogs.Asker(stage.session).tell_exit().value() == ()
    assert answer.error() == ERRORS + "Leaving"
    assert program.status() == 0
    assert program.errors.items() == []


def test_a_hostile_name_is_only_a_name(display, start, asker):
    start()
    answer = asker.location(name="<img src='/dev/zero'>" + "\u202e%s\n\x1b" * 5000, id="&a" * 30000)
    display.wait_window(REQUEST_TITLE)
    display.press("alt+r", until=answer.is_there)
    assert answer.value() == (0,)


# ---- the process

def test_it_serves_until_it_is_told_to_exit(start, asker):
    program = start()
    assert asker.tell_exit().value() == ()
    assert program.status() == 0
    assert program.lines.items() == program.errors.items() == []


@pytest.mark.parametrize("name", ["", ":4711"])
def test_without_a_display_it_says_so(stage, name):
    program = stage.dialogs(None, DISPLAY=name)
    assert program.status() == 3
    assert NO_DISPLAY in program.errors.items()
    assert stage.session.owner_of(dialogs.NAME) is None


def test_without_a_session_bus_it_says_so(stage, display):
    program = dialogs.Dialogs(None, display)
    assert program.status() == 1
    assert program.errors.items()[-1] == "lodestar-dialogs: cannot connect to the session bus"


def test_a_second_instance_leaves(stage, start, asker):
    first = start()
    second = start()
    assert second.status() == 1
    assert second.errors.items() == ["lodestar-dialogs: another dialog service has the name com.varn.location.ui"]
    asker.tell_exit().value()
    assert first.status() == 0


def test_it_ends_with_the_session_bus(stage, display, start, asker):
    program = start()
    asker.privacy()
    display.wait_window(PRIVACY_TITLE)
    stage.session.stop()
    assert program.status() == 1
    assert program.errors.items() == ["lodestar-dialogs: the session bus is gone"]


@pytest.mark.parametrize("argument, status", [("--help", 0), ("--version", 0), ("--fullscreen", 2)])
def test_arguments_need_no_display(stage, argument, status):
    program = stage.dialogs(None, argument)
    assert program.status() == status
    (printed, silent) = (program.lines, program.errors) if status == 0 else (program.errors, program.lines)
    assert "lodestar-dialogs" in printed.items()[0] and silent.items() == []


# ---- on the bus

@pytest.mark.parametrize("path, document", [(dialogs.PATH, "com.varn.location.ui.xml"),
                                            (dialogs.APPLICATION_PATH, "com.varn.MApplicationIf.xml")])
def test_the_documents_are_what_the_objects_offer(stage, start, path, document):
    start()
    live = stage.session.introspect(dialogs.NAME, path)
    assert introspection.differences((DOCUMENTS / document).read_text(encoding="utf-8"), live) == []


@pytest.fixture
def activating_bus(stage, display):
    """A session bus that starts the dialog service for whoever calls it."""
    return stage.use_session(services={dialogs.NAME: dialogs.program()}, environment=dialogs.environment(display))


def test_a_call_starts_it_and_the_next_one_after_exit_again(stage, display, activating_bus):
    asker = dialogs.Asker(activating_bus)
    processes = []
    for _ in range(2):
        answer = asker.privacy()
        display.wait_window(PRIVACY_TITLE)
        processes.append(activating_bus.pid_of(dialogs.NAME))
        display.press("Return", until=answer.is_there)
        assert answer.value() == (True,)
        # The next question follows the answer at once, as the daemon's may.
        assert asker.tell_exit().value() == ()
    assert processes[0] != processes[1]


def test_a_call_without_a_display_is_an_error(stage):
    bus = stage.use_session(services={dialogs.NAME: dialogs.program()}, environment=dialogs.environment(None))
    assert dialogs.Asker(bus).privacy().error() == "org.freedesktop.DBus.Error.Spawn.ChildExited"
