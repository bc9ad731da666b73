"""The settings service, as a settings application sees it."""

from gi.repository import Gio, GLib

from harness.buses import flush_loop
from harness.mailbox import Mailbox

SERVICE = "com.varn.lodestard.settings"
INTERFACE = "com.varn.location.settings"
PATH = "/com/varn/lodestard/settings"

# Key, type, default, writable by the user: the whole table, in its order. `None` stands for the
# default SUPL server, which is the build's choice.
KEYS = (
    ("Positioning", "b", True, True),
    ("SatellitePositioning", "b", True, True),
    ("SatellitePositioningInternal", "b", True, True),
    ("SatellitePositioningExternalName", "s", "", True),
    ("SatellitePositioningExternalAddress", "s", "", True),
    ("CellularPositioning", "b", True, True),
    ("WiFiPositioning", "b", True, True),
    ("NetworkConnectivity", "b", True, True),
    ("NetworkPositioningMethod", "i", 0, True),
    ("PrimarySuplServer", "s", None, True),
    ("PrimarySuplServerUsage", "i", 2, False),
    ("PrimarySuplServerEditable", "b", True, False),
    ("PrimarySuplServerVisible", "b", True, False),
    ("PrimarySuplAllowHome", "b", True, False),
    ("PrimarySuplAllowRoaming", "b", True, False),
    ("PrimarySuplOnlyGprs", "b", False, True),
    ("SecondarySuplServer", "s", None, True),
    ("SecondarySuplServerUsage", "i", 2, False),
    ("SecondarySuplServerEditable", "b", True, False),
    ("SecondarySuplServerVisible", "b", True, False),
    ("SecondarySuplAllowHome", "b", True, False),
    ("SecondarySuplAllowRoaming", "b", True, False),
    ("LocationDisclaimerAccepted", "b", False, True),
    ("VeskDisclaimerAccepted", "b", False, True),
    ("SuplForced", "b", False, True),
    ("SuplFallback", "b", True, False),
    ("InternalGpsDisabled", "b", False, False),
    ("ContinuousLocationAwareness", "b", True, True),
    ("ContinuousLocationAwarenessVisible", "b", False, False),
    ("ContinuousLocationCleanup", "b", True, True),
    ("ContinuousLocationCleanupVisible", "b", False, False),
)


def variant(value):
    """A Python value as the variant that a settings application would send."""
    if isinstance(value, GLib.Variant):
        return value
    return GLib.Variant({bool: "b", int: "i", str: "s", float: "d"}[type(value)], value)


class Settings:
    """One settings application with its own connection; `changes` records valueChanged."""

    def __init__(self, bus):
        self.bus = bus
        self.connection = bus.connect()
        self.changes = Mailbox("valueChanged")
        self.connection.signal_subscribe(
            None, INTERFACE, "valueChanged", PATH, None, Gio.DBusSignalFlags.NONE,
            lambda _c, _sender, _path, _interface, _signal, arguments: self.changes.append(arguments.unpack()[0]))

    def call(self, member, arguments=None, timeout=None):
        return self.bus.call(self.connection, SERVICE, PATH, INTERFACE, member, arguments, timeout)

    def get(self, key):
        return self.get_variant(key).unpack()

    def get_variant(self, key):
        """The value with its D-Bus type."""
        result = self.connection.call_sync(SERVICE, PATH, INTERFACE, "getSetting", GLib.Variant("(s)", (key,)),
                                           GLib.VariantType("(v)"), Gio.DBusCallFlags.NO_AUTO_START, 20000, None)
        return result.get_child_value(0).get_variant()

    def set(self, key, value):
        return self.call("setSetting", GLib.Variant("(sv)", (key, variant(value))))[0]

    def reset(self):
        return self.call("resetToDefaults")[0]

    def clear_assistance(self, mask):
        return self.call("clearAssistanceData", GLib.Variant("(i)", (mask,)))[0]

    def announced(self):
        """The changes announced by now: a call's signals come before its reply."""
        self.bus.call(self.connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus.Peer",
                      "Ping")
        flush_loop()
        return self.changes.items()

    def forget_changes(self):
        """Starts the record afresh."""
        self.announced()
        self.changes.clear()

    def wait_for_change(self, key, after=0, timeout=None):
        return self.changes.wait_for(lambda changed: changed == key, after=after, timeout=timeout)
