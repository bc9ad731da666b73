"""Applications: they register on the daemon and are called back on an object of their own."""

import threading
from dataclasses import dataclass

from gi.repository import Gio, GLib

from harness import stream
from harness.buses import flush_loop
from harness.mailbox import Mailbox

SERVICE = INTERFACE = "com.varn.lodestard.client"
PATH = "/com/varn/lodestard/client"
CALLBACKS = "com.varn.qlocation.updates"

START, STOP, SET_METHOD, SET_INTERVAL, SATINFO_START, SATINFO_STOP = 0x01, 0x02, 0x04, 0x08, 0x10, 0x20
SATELLITE, NON_SATELLITE, ALL = 0x000000FF, 0xFFFFFF00, 0xFFFFFFFF

_CALLBACK_INFO = Gio.DBusNodeInfo.new_for_xml(f"""
<node>
  <interface name="{CALLBACKS}">
    <method name="positionUpdate"><arg type="ay" direction="in"/></method>
    <method name="satellitesInUseUpdate"><arg type="ay" direction="in"/></method>
    <method name="satellitesInViewUpdate"><arg type="ay" direction="in"/></method>
    <method name="currentSettings"><arg type="u" direction="in"/><arg type="u" direction="in"/></method>
  </interface>
</node>""").interfaces[0]


@dataclass
class Callback:
    method: str
    value: object          # bytes of a fix or a list; (methods, minimum interval) of the settings
    wants_reply: bool
    sender: str            # unique name of the caller

    @property
    def fix(self):
        return stream.read_fix(self.value)

    @property
    def satellites(self):
        return stream.read_satellites(self.value)


def signed(value):
    """A mask as the signed 32-bit integer that the daemon's interface takes."""
    return value - (1 << 32) if value & 0x80000000 else value


class Client:
    """One application with its own connection. `name` gives it a well-known name (its unique name
    otherwise), `has_object=False` leaves out the object that callbacks go to."""

    def __init__(self, bus, name=None, path="/com/example/application", has_object=True):
        self.bus = bus
        self.path = path
        self.connection = bus.connect()
        self.service = name or self.connection.get_unique_name()
        self.callbacks = Mailbox(f"client {self.service}")
        self.id = self.methods = self.minimum_interval = None
        self._held = []
        self._holding = False
        self._lock = threading.Lock()
        self._registration = 0
        if name:
            bus.own(self.connection, name)
        if has_object:
            self.export()

    def export(self):
        self._registration = self.connection.register_object(self.path, _CALLBACK_INFO, self._called, None, None)

    def withdraw(self):
        """Takes the callback object away; the connection stays."""
        self.connection.unregister_object(self._registration)

    # ---- calls to the daemon

    def call(self, member, signature, *arguments, timeout=None):
        return self.bus.call(self.connection, SERVICE, PATH, INTERFACE, member,
                             GLib.Variant(signature, arguments), timeout)

    def register(self, service=None, path=None):
        """Registers (under another service and path when given) and returns the id."""
        self.id, self.methods, self.minimum_interval = self.call(
            "registerListener", "(ss)", service or self.service, path or self.path)
        return self.id

    def configure(self, command, methods=0, interval=1000, id=None):
        (result,) = self.call("configSession", "(iiii)", self.id if id is None else id, command, signed(methods),
                              interval)
        return result

    def start(self, methods=ALL, interval=1000, extra=0):
        """Registers when that has not happened, then sets method and interval and starts."""
        if self.id is None:
            self.register()
        return self.configure(SET_METHOD | SET_INTERVAL | START | extra, methods, interval)

    def stop(self):
        return self.configure(STOP)

    def latest_position(self, satellite_only=False):
        """The raw bytes of the last known fix."""
        (data,) = self.call("latestPosition", "(b)", satellite_only)
        return bytes(data)

    def prestart(self, satellite, non_satellite):
        return self.call("prestartPositioning", "(bb)", satellite, non_satellite)

    # ---- what the daemon calls

    def _called(self, _connection, sender, _path, _interface, method, parameters, invocation):
        if method == "currentSettings":
            value = parameters.unpack()
        else:
            value = parameters.get_child_value(0).get_data_as_bytes().get_data() or b""
        flags = invocation.get_message().get_flags()
        wants_reply = not flags & Gio.DBusMessageFlags.NO_REPLY_EXPECTED
        with self._lock:
            if self._holding:
                self._held.append(invocation)
            else:
                invocation.return_value(None)
        self.callbacks.append(Callback(method, value, wants_reply, sender))

    def received(self, method):
        return [c for c in self.callbacks.items() if c.method == method]

    def fixes(self):
        return [c.fix for c in self.received("positionUpdate")]

    def settings(self):
        return [c.value for c in self.received("currentSettings")]

    def wait_for(self, method, condition=lambda _: True, after=0, timeout=None, count=1):
        """Waits for a callback by name whose Callback meets the condition."""
        def wanted(callback):
            return callback.method == method and condition(callback)
        wanted.__qualname__ = f"{method} callback"
        return self.callbacks.wait_for(wanted, after=after, timeout=timeout, count=count)

    def wait_for_fix(self, condition=lambda _: True, after=0, timeout=None, count=1):
        return self.wait_for("positionUpdate", lambda c: condition(c.fix), after, timeout, count).fix

    def wait_for_settings(self, methods, after=0, timeout=None):
        return self.wait_for("currentSettings", lambda c: c.value[0] == methods, after, timeout).value

    def mark(self):
        return len(self.callbacks)

    def sync(self):
        """Returns when every callback that the bus had for this client before is recorded."""
        self.bus.call(self.connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus.Peer",
                      "Ping")
        flush_loop()

    # ---- misbehaving

    def hang(self):
        """From now on callbacks are recorded and never answered, until release()."""
        with self._lock:
            self._holding = True

    def release(self):
        with self._lock:
            self._holding = False
            held, self._held = self._held, []
        for invocation in held:
            invocation.return_value(None)

    def call_while_deaf(self, member, signature, *arguments, timeout=None):
        """A blocking call in the manner of a program that answers nothing until its own call returns."""
        self.hang()
        try:
            return self.call(member, signature, *arguments, timeout=timeout)
        finally:
            self.release()

    def vanish(self):
        """Leaves the bus at once."""
        self.connection.close_sync(None)
