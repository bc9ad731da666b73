"""The dialog service, real: lodestar-dialogs as a process, and whoever asks it."""

import os

from gi.repository import Gio, GLib

from harness.daemon import faketime_library
from harness.mailbox import Mailbox
from harness.program import Program, built

NAME, PATH = "com.varn.location.ui", "/com/varn/location/ui"
APPLICATION_PATH, APPLICATION = "/org/sarnel/m", "com.varn.MApplicationIf"
ERRORS = NAME + ".Error."
PRIVACY_TITLE, REQUEST_TITLE = "Positioning", "Location request"
WITHDRAWN = 2  # the type of a location request that closes the open one


def program():
    return built("clients/lodestar-dialogs/lodestar-dialogs")


def environment(display=None, **changes):
    """Of the program, on this display or on none."""
    return {"QT_QPA_PLATFORM": "xcb", "DISPLAY": display.name if display else "",
            "ASAN_OPTIONS": "exitcode=99:verify_asan_link_order=0", "UBSAN_OPTIONS": "halt_on_error=1:exitcode=99",
            "LSAN_OPTIONS": f"suppressions='{os.path.dirname(__file__)}/lsan.supp':print_suppressions=0", **changes}


class Dialogs(Program):
    """The program, started by the test and not by the bus."""

    def __init__(self, bus, display, *arguments, faketime=None, **changes):
        variables = {**os.environ, **environment(display, **changes),
                     "DBUS_SESSION_BUS_ADDRESS": bus.address if bus else "unix:path=/nonexistent"}
        if faketime:
            variables.update(LD_PRELOAD=faketime_library(), FAKETIME=faketime)
        super().__init__(program(), *arguments, environment=variables)


class Answer:
    """Of a call that may take as long as a person needs."""

    def __init__(self, what):
        self._arrived = Mailbox(what)

    def arrive(self, connection, result, _data):
        try:
            self._arrived.append(connection.call_finish(result).unpack())
        except GLib.Error as error:
            self._arrived.append(error)

    def is_there(self):
        return len(self._arrived) > 0

    def value(self):
        """The tuple of results."""
        result = self._arrived.wait_for(lambda item: True)
        assert not isinstance(result, GLib.Error), result
        return result

    def error(self):
        """The name of the D-Bus error."""
        result = self._arrived.wait_for(lambda item: True)
        assert isinstance(result, GLib.Error), result
        return Gio.DBusError.get_remote_error(result)


class Asker:
    """Whoever calls the dialog service, with a connection of its own; the calls start the service."""

    def __init__(self, bus):
        self.connection = bus.connect()

    def _ask(self, path, interface, method, arguments=None):
        answer = Answer(method)
        self.connection.call(NAME, path, interface, method, arguments, None, Gio.DBusCallFlags.NONE, 2**31 - 1, None,
                             answer.arrive, None)
        return answer

    def privacy(self):
        return self._ask(PATH, NAME, "privacyDialog")

    def location(self, type=1, default_accept=False, name="Friend Finder", id="+49 170 1234567"):
        return self._ask(PATH, NAME, "locationRequest", GLib.Variant("(ibss)", (type, default_accept, name, id)))

    def tell_exit(self):
        return self._ask(APPLICATION_PATH, APPLICATION, "exit")

    def leave(self):
        self.connection.close_sync(None)
