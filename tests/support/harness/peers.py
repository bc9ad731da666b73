"""Services that the daemon expects on its buses, played with their real interfaces."""

from gi.repository import Gio, GLib

from harness.mailbox import Mailbox


class Peer:
    """A service on a bus of its own connection; `calls` records what it was asked, in order."""

    def __init__(self, bus, name):
        self.bus, self.name = bus, name
        self.connection = bus.connect()
        self.calls = Mailbox(name)
        self.own()

    def own(self):
        self.bus.own(self.connection, self.name)

    def export(self, path, xml):
        """Answers for the interfaces of the description at this path; returns their registrations."""
        return [self.connection.register_object(path, interface, self._called, None, None)
                for interface in Gio.DBusNodeInfo.new_for_xml(f"<node>{xml}</node>").interfaces]

    def _called(self, _connection, _sender, path, interface, method, parameters, invocation):
        arguments = parameters.unpack()
        self.calls.append((path, interface, method, arguments))
        self.answer(path, interface, method, arguments, invocation)

    def answer(self, path, interface, method, arguments, invocation):
        invocation.return_value(None)

    def emit(self, path, interface, signal, arguments=None):
        """Broadcasts a signal and returns once the bus has it."""
        self.connection.emit_signal(None, path, interface, signal, arguments)
        self.connection.flush_sync(None)

    def leave(self):
        self.connection.close_sync(None)


class FakeBluez(Peer):
    """bluez 4 as far as lodestard uses it: a manager, an adapter and the devices it remembers."""

    MANAGER, ADAPTER_INTERFACE = "org.bluez.Manager", "org.bluez.Adapter"

    def __init__(self, bus, devices=(), adapter="/org/bluez/1234/hci0"):
        self.devices = {device.upper() for device in devices}
        self.adapter = adapter  # None: no adapter is plugged in
        super().__init__(bus, "org.bluez")
        self.export("/", f"""
            <interface name="{self.MANAGER}">
              <method name="DefaultAdapter"><arg type="o" direction="out"/></method>
            </interface>""")
        if adapter:
            self.export(adapter, f"""
                <interface name="{self.ADAPTER_INTERFACE}">
                  <method name="FindDevice"><arg type="s" direction="in"/><arg type="o" direction="out"/></method>
                  <method name="RequestSession"/>
                  <method name="ReleaseSession"/>
                  <signal name="DeviceRemoved"><arg type="o"/></signal>
                </interface>""")

    def device_path(self, address):
        return f"{self.adapter}/dev_{address.upper().replace(':', '_')}"

    def answer(self, path, interface, method, arguments, invocation):
        if method == "DefaultAdapter":
            if self.adapter:
                invocation.return_value(GLib.Variant("(o)", (self.adapter,)))
            else:
                invocation.return_dbus_error("org.bluez.Error.NoSuchAdapter", "No such adapter")
        elif method == "FindDevice":
            if arguments[0].upper() in self.devices:
                invocation.return_value(GLib.Variant("(o)", (self.device_path(arguments[0]),)))
            else:
                invocation.return_dbus_error("org.bluez.Error.DoesNotExist", "Does Not Exist")
        else:
            invocation.return_value(None)

    def remove_device(self, address, forget=True):
        """Announces it; `forget=False` for a device that is known again when somebody asks."""
        if forget:
            self.devices.discard(address.upper())
        self.emit(self.adapter, self.ADAPTER_INTERFACE, "DeviceRemoved",
                  GLib.Variant("(o)", (self.device_path(address),)))


class FakeDeviceState(Peer):
    """The device-state daemon, which announces that the device is about to be switched off."""

    def __init__(self, bus):
        super().__init__(bus, "com.varn.hallix")

    def announce_shutdown(self):
        self.emit("/com/varn/hallix/signal", "com.varn.hallix.signal", "shutdown_ind")


class FakeBrisd(Peer):
    """The sibling daemon's name. It is called without an interface name, which GLib's server side
    does not dispatch: a BusMonitor sees the call."""

    PATH = "/com/varn/location/brisd"

    def __init__(self, bus):
        super().__init__(bus, "com.varn.location.brisd")


class FakeScreenSaver(Peer):
    """A desktop's screen saver: the common one, or GNOME's own."""

    COMMON, GNOME = "org.freedesktop.ScreenSaver", "org.gnome.ScreenSaver"

    def __init__(self, bus, active, name=COMMON):
        self.active = active
        self.path = "/" + name.replace(".", "/")
        super().__init__(bus, name)

    def own(self):
        self.export(self.path, f"""
            <interface name="{self.name}">
              <method name="GetActive"><arg type="b" direction="out"/></method>
              <signal name="ActiveChanged"><arg type="b"/></signal>
            </interface>""")
        super().own()  # whoever sees the name may ask at once

    def answer(self, path, interface, method, arguments, invocation):
        invocation.return_value(GLib.Variant("(b)", (self.active,)))

    def show(self, active):
        """Darkens the screen or lights it up, and tells."""
        self.active = active
        self.emit(self.path, self.name, "ActiveChanged", GLib.Variant("(b)", (active,)))
