"""Status bars and maps: subscribers of the properties that the daemon publishes."""

from gi.repository import Gio

from harness.buses import flush_loop
from harness.mailbox import Mailbox

SERVICE, INTERFACE = "com.varn.lodestard.context", "com.varn.context.Property"
STATE = "/com/varn/context/Location/SatPositioningState"
COORDINATES = "/com/varn/context/Location/Coordinates"

MEMBERS = {
    ("method", "Subscribe"): ("", "avt"),
    ("method", "Get"): ("", "avt"),
    ("method", "Unsubscribe"): ("", ""),
    ("signal", "ValueChanged"): ("", "avt"),
}


class Subscriber:
    """One program with a connection of its own; `heard` records (path, value) of each ValueChanged, the
    value None for an unset property."""

    def __init__(self, bus):
        self.bus = bus
        self.connection = bus.connect()
        self.heard = Mailbox("ValueChanged")
        self.times = []
        self.connection.signal_subscribe(
            None, INTERFACE, "ValueChanged", None, None, Gio.DBusSignalFlags.NO_MATCH_RULE, self._take)

    def _take(self, _connection, _sender, path, _interface, _signal, arguments):
        values, time = arguments.unpack()
        assert len(values) <= 1
        self.times.append(time)
        self.heard.append((path, values[0] if values else None))

    def call(self, member, path):
        return self.bus.call(self.connection, SERVICE, path, INTERFACE, member)

    def _value(self, member, path):
        values, _time = self.call(member, path)
        assert len(values) <= 1
        return values[0] if values else None

    def subscribe(self, path):
        """Returns the value of now, None for an unset one."""
        return self._value("Subscribe", path)

    def get(self, path):
        return self._value("Get", path)

    def unsubscribe(self, path):
        self.call("Unsubscribe", path)

    def values(self, path):
        """What was heard of the property by now, in order."""
        self.bus.call(self.connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus.Peer",
                      "Ping")
        flush_loop()
        return [value for where, value in self.heard.items() if where == path]

    def wait_value(self, path, wanted):
        return self.heard.wait_for(lambda item: item == (path, wanted))

    def wait_count(self, path, count):
        self.heard.wait_for(lambda item: item[0] == path, count=count)

    def vanish(self):
        """Leaves the bus at once."""
        self.connection.close_sync(None)

    def subscribe_and_vanish(self, path):
        """Asks and is gone before any answer."""
        self.connection.call(SERVICE, path, INTERFACE, "Subscribe", None, None, Gio.DBusCallFlags.NO_AUTO_START, -1,
                             None, None)
        self.connection.flush_sync(None)
        self.connection.close_sync(None)
