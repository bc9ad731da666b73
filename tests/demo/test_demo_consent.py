"""Who is asked for consent in run-demo: the user on a display, or nobody."""

import os
import select
import signal
import socket
import struct
import sys

import pytest

from test_demo import copy  # noqa: F401 (a fixture)
from test_demo import CHECKOUT, INTRODUCTION, NO_DISPLAY, PROGRAMS, finish, read_both_kinds, start

sys.path[:0] = [str(CHECKOUT / "tests" / "support"), str(CHECKOUT / "tools" / "demo")]
import hostdisplay  # noqa: E402
from harness.display import Display  # noqa: E402


def entry(family, *fields):
    """One cookie of an X authority file: address, display number, kind, cookie."""
    return struct.pack(">H", family) + b"".join(struct.pack(">H", len(field)) + field for field in fields)


@pytest.fixture
def display(copy):
    """A display that wants a cookie which is made out to this host."""
    authority = copy / "authority"
    authority.write_bytes(entry(256, socket.gethostname().encode(), b"", b"MIT-MAGIC-COOKIE-1", os.urandom(16)))
    display = Display(authority=authority)
    yield display
    display.stop()


def press(display, key):
    """Types the key in the dialog, and returns when the dialog is gone."""
    display.wait_window("Positioning")
    display.press(key, until=lambda: not display.windows("Positioning"))


def test_on_a_display_the_user_is_asked(copy, display):
    demo = start(copy, "--ttff", 0, "--json", env={**NO_DISPLAY, **display.environment})
    display.wait_window("Positioning")
    assert not select.select([demo.stdout], [], [], 0)[0], "a fix without consent"
    press(display, "Return")
    read_both_kinds(demo)
    demo.send_signal(signal.SIGTERM)
    status, _, errors = finish(demo)
    assert status == 0
    assert "You are asked for consent on your display: positioning starts when you allow it.\n" in errors


def test_without_consent_nothing_arrives(copy, display):
    demo = start(copy, "--ttff", 0, "--json", env={**NO_DISPLAY, **display.environment})
    press(display, "Escape")
    demo.send_signal(signal.SIGTERM)
    assert finish(demo)[:2] == (1, "")


def test_with_seconds_nobody_is_asked(copy, display):
    demo = start(copy, "--seconds", 6, "--ttff", 0, "--json", env={**NO_DISPLAY, **display.environment})
    assert demo.stdout.readline().startswith("{")
    assert not display.windows("Positioning")
    assert finish(demo)[0] == 0


@pytest.mark.parametrize("name", ["", ":4711", "elsewhere.example:0"])
def test_without_a_display_the_demo_answers_for_itself(copy, name):
    demo = start(copy, "--ttff", 0, "--json", env={**NO_DISPLAY, "DISPLAY": name, "WAYLAND_DISPLAY": "wayland-4711"})
    read_both_kinds(demo)
    demo.send_signal(signal.SIGTERM)
    status, _, errors = finish(demo)
    assert status == 0
    assert errors == INTRODUCTION.format(reason="there is no display here", end="Ctrl-C ends the demo.")


def test_a_display_that_shows_no_dialog_counts_as_none(copy, display):
    (copy / "built" / PROGRAMS[3]).write_text("#!/bin/sh\nexit 3\n")
    demo = start(copy, "--ttff", 0, "--json", env={**NO_DISPLAY, **display.environment})
    read_both_kinds(demo)
    demo.send_signal(signal.SIGTERM)
    status, _, errors = finish(demo)
    assert status == 0
    assert errors == INTRODUCTION.format(reason="no dialog can be shown on this display", end="Ctrl-C ends the demo.")


def test_cookies_are_kept_without_their_hosts():
    first, second = (b"0", b"MIT-MAGIC-COOKIE-1", b"\x01" * 16), (b"12", b"XDM-AUTHORIZATION-1", b"")
    whole = entry(256, b"handset", *first) + entry(0, b"\x7f\0\0\1", *second)
    for_any = [entry(0xFFFF, b"", *first), entry(0xFFFF, b"", *second)]
    assert hostdisplay.for_any_host(whole) == b"".join(for_any)
    for length in range(len(whole)):  # a file that is being written
        assert hostdisplay.for_any_host(whole[:length]) in (b"", for_any[0])


def test_displays_of_other_machines_are_none():
    for name in ("", ":", "0", ":x", "elsewhere:0", "elsewhere/unix:0", ":0/../../etc"):
        assert hostdisplay.find({"DISPLAY": name}) is None
