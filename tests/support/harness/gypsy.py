"""Gypsy 0.9 and bluez 4 on the system bus, and the road from a Bluetooth receiver to the clients."""

from gi.repository import GLib

from harness import files
from harness.mailbox import Mailbox
from harness.peers import FakeBluez, Peer
from harness.road import Road, single

ADDRESS, OTHER = "00:1A:7D:DA:71:13", "00:1A:7D:DA:71:14"
NO_FIX, FIX_2D, FIX_3D = 1, 2, 3
UNKNOWN_METHOD = "org.freedesktop.DBus.Error.UnknownMethod"
# What dbus-glib makes of an error of Gypsy's own.
OWN_ERROR = "org.freedesktop.DBus.GLib.UnmappedError.GypsyServerErrorQuark.Code1"

_SERVER_XML = """
    <interface name="org.freedesktop.Gypsy.Server">
      <method name="Create"><arg type="s" direction="in"/><arg type="o" direction="out"/></method>
      <method name="Shutdown"><arg type="o" direction="in"/></method>
    </interface>"""
_DEVICE_XML = """
    <interface name="org.freedesktop.Gypsy.Device">
      <method name="Start"/>
      <method name="Stop"/>
      <method name="GetFixStatus"><arg type="i" direction="out"/></method>
      <method name="GetConnectionStatus"><arg type="b" direction="out"/></method>
      <signal name="FixStatusChanged"><arg type="i"/></signal>
      <signal name="ConnectionStatusChanged"><arg type="b"/></signal>
    </interface>"""


def device_path(address):
    """Gypsy keeps the case of what it was given."""
    return "/org/freedesktop/Gypsy/" + address.rsplit("/", 1)[-1].replace(":", "_")


class Wilful(Peer):
    """A peer that refuses single methods, or takes its time, when a test says so."""

    def __init__(self, *arguments, **options):
        self.held = Mailbox("calls held back")
        self._refusals = {}  # method: [how often it still answers, name of the error, its text]
        self._holding = set()
        super().__init__(*arguments, **options)

    def refuse(self, method, error, text, answered=0):
        """From now on, after so many more answers, the method fails."""
        self._refusals[method] = [answered, error, text]

    def obey(self, method):
        self._refusals.pop(method, None)

    def hold(self, method):
        """Calls of it wait until release(), or for ever."""
        self._holding.add(method)

    def release(self, method):
        self._holding.discard(method)
        for call in self.held.items():
            if call[2] == method:
                super().answer(*call)
        self.held.clear()

    def answer(self, path, interface, method, arguments, invocation):
        refusal = self._refusals.get(method)
        if method in self._holding:
            self.held.append((path, interface, method, arguments, invocation))
        elif refusal and refusal[0] == 0:
            invocation.return_dbus_error(*refusal[1:])
        else:
            if refusal:
                refusal[0] -= 1
            super().answer(path, interface, method, arguments, invocation)


class WilfulBluez(Wilful, FakeBluez):
    pass


class GypsyServer(Peer):
    """Gypsy as it behaves: a device for each address, signals of what has changed."""

    NAME, PATH = "org.freedesktop.Gypsy", "/org/freedesktop/Gypsy"

    def __init__(self, bus, connects=True):
        self.connects = connects  # a device reports its connection after Start
        self._registered = {}     # device path: its registration
        self._devices = {}
        super().__init__(bus, self.NAME)
        self.export(self.PATH, _SERVER_XML)

    def device(self, address=ADDRESS):
        """The receiver at this address, whether Gypsy has a path for it or not."""
        path = device_path(address)
        return self._devices.setdefault(path, Device(self, path))

    def answer(self, path, interface, method, arguments, invocation):
        if method == "Create":
            created = device_path(arguments[0])
            if created not in self._registered:
                (self._registered[created],) = self.export(created, _DEVICE_XML)
            invocation.return_value(GLib.Variant("(o)", (created,)))
        elif method == "Shutdown":
            registration = self._registered.pop(arguments[0], None)
            if registration is None:
                invocation.return_dbus_error(UNKNOWN_METHOD, "No such device")
            else:
                self.connection.unregister_object(registration)
                invocation.return_value(None)
        elif method == "Start":
            invocation.return_value(None)
            if self.connects:
                self._devices.setdefault(path, Device(self, path)).connected(True)
        elif method == "GetFixStatus":
            invocation.return_value(GLib.Variant("(i)", (self._devices[path].fix_status,)))
        else:
            invocation.return_value(None)


class FakeGypsy(Wilful, GypsyServer):
    pass


class Device:
    """One receiver. The plain methods send what they are told, the NMEA ones only what has changed.
    It goes on sending when Gypsy has shut it down, as real ones do for a while."""

    SPEED, DIRECTION, CLIMB = LATITUDE, LONGITUDE, ALTITUDE = PDOP, HDOP, VDOP = 1, 2, 4

    def __init__(self, gypsy, path):
        self._gypsy, self.path = gypsy, path
        self._sent = {}
        self.fix_status = 0

    def _emit(self, interface, signal, signature, *values):
        self._sent[signal] = values
        self._gypsy.emit(self.path, f"org.freedesktop.Gypsy.{interface}", signal, GLib.Variant(signature, values))

    def _changes(self, send, signal, *values):
        if self._sent.get(signal) != values:
            send(*values)

    def connected(self, state):
        self._emit("Device", "ConnectionStatusChanged", "(b)", state)

    def fix(self, status):
        self.fix_status = status
        self._emit("Device", "FixStatusChanged", "(i)", status)

    def position(self, fields, timestamp, latitude, longitude, altitude=0.0):
        self._emit("Position", "PositionChanged", "(iiddd)", fields, timestamp, latitude, longitude, altitude)

    def course(self, fields, timestamp, speed, direction, climb=0.0):
        self._emit("Course", "CourseChanged", "(iiddd)", fields, timestamp, speed, direction, climb)

    def accuracy(self, fields, pdop, hdop, vdop):
        self._emit("Accuracy", "AccuracyChanged", "(iddd)", fields, pdop, hdop, vdop)

    def satellites(self, *rows):
        """Rows of PRN, in use, elevation, azimuth, signal."""
        self._emit("Satellite", "SatellitesChanged", "(a(ubuuu))", list(rows))

    # ---- what a sentence of the receiver makes Gypsy say

    def rmc(self, timestamp, latitude, longitude, speed, direction, status=FIX_2D):
        """Position, fix status, course; positions are single precision."""
        self._changes(self.position, "PositionChanged", 3, timestamp, single(latitude), single(longitude), 0.0)
        self._changes(self.fix, "FixStatusChanged", status)
        self._changes(self.course, "CourseChanged", 3, timestamp, speed, direction, 0.0)

    def gga(self, timestamp, latitude, longitude, altitude, hdop, climb=None, status=FIX_3D):
        """Course (when the altitude has changed), position, fix status, accuracy."""
        if climb is not None:
            self._changes(self.course, "CourseChanged", 4, timestamp, 0.0, 0.0, climb)
        self._changes(self.position, "PositionChanged", 7, timestamp, single(latitude), single(longitude), altitude)
        self._changes(self.fix, "FixStatusChanged", status)
        self._changes(self.accuracy, "AccuracyChanged", 2, 0.0, hdop, 0.0)

    def gsa(self, status, pdop, hdop):
        """Fix status, accuracy."""
        self._changes(self.fix, "FixStatusChanged", status)
        self._changes(self.accuracy, "AccuracyChanged", 3, pdop, hdop, 0.0)


class ExternalRoad(Road):
    """A Road whose receiver is the external one: paired, known to Gypsy, chosen by the user.
    `internal` starts with the engine's; `chosen` adds settings, `gypsy` and `bluez` may be played before."""

    def __init__(self, stage, internal=False, address=ADDRESS, chosen=None, **options):
        files.user_settings(SatellitePositioningInternal=internal, SatellitePositioningExternalAddress=address,
                            **(chosen or {}))
        self.bluez = WilfulBluez(stage.system, [ADDRESS, OTHER])
        self.gypsy = FakeGypsy(stage.system)
        self.gypsy.calls = self.bluez.calls  # one record, in order
        self._looked = 0
        super().__init__(stage, **options)

    @property
    def device(self):
        return self.gypsy.device(ADDRESS)

    def restart_gypsy(self):
        """Gypsy dies and comes back, with no memory."""
        self.gypsy.leave()
        self.stage.system.wait_owner(FakeGypsy.NAME, present=False)
        self.gypsy = FakeGypsy(self.stage.system)
        self.gypsy.calls = self.bluez.calls

    def settle(self, *clients):
        """As before, and the daemon has dealt with what Gypsy and bluez sent."""
        for peer in (self.gypsy, self.bluez):
            if not peer.connection.is_closed():
                self.stage.system.ping(peer.connection, self.daemon.pid)
        super().settle(*clients)

    def asked(self, lookups=False):
        """What bluez and Gypsy were asked since the last look: "Start /org/freedesktop/Gypsy/00_1A_...".
        A plan's questions whether the receiver is still known are left out unless they are wanted."""
        items = self.bluez.calls.items()
        words = [f"{method} {arguments[0]}" if arguments else f"{method} {path}"
                 for path, _, method, arguments in items[self._looked:]]
        self._looked = len(items)
        if lookups:
            return words
        return [word for index, word in enumerate(words)
                if not word.startswith("FindDevice")
                and not (word == "DefaultAdapter /" and words[index + 1:index + 2] != [f"RequestSession {self.bluez.adapter}"])]

    def set_up(self, address=ADDRESS):
        """What the first session asks."""
        return [*self.session(), f"Create {address}", f"Start {device_path(address)}"]

    def session(self):
        """What every session asks."""
        return ["DefaultAdapter /", f"RequestSession {self.bluez.adapter}"]

    @staticmethod
    def shut_down(address=ADDRESS):
        return [f"Shutdown {device_path(address)}"]

    def receiving(self, *arguments, **options):
        """A started client on the connected receiver."""
        client = self.client(*arguments, **options)
        self.settle(client)
        return client
