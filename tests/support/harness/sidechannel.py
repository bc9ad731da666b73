"""The other end of the side channel: a process of the network-positioning stack."""

from gi.repository import Gio, GLib

from harness.buses import flush_loop
from harness.mailbox import Mailbox

NAME, PATH = "com.varn.lodestard.vesk", "/com/varn/lodestard/vesk"
START, STOP = 0x01, 0x02
CELLULAR, WIFI, CONNECTIVITY, FIXED = 0x81, 0x82, 0x83, 0x84


class SideChannelPeer:
    """Asks on the side channel and hears its broadcasts."""

    def __init__(self, bus):
        self.bus, self.connection = bus, bus.connect()
        self.positions = Mailbox("positionMessage")
        self.settings = Mailbox("settingMessage")
        for signal, mailbox in (("positionMessage", self.positions), ("settingMessage", self.settings)):
            self.connection.signal_subscribe(
                None, NAME, signal, PATH, None, Gio.DBusSignalFlags.NONE,
                lambda _c, _s, _p, _i, _n, arguments, box=mailbox: box.append(arguments.unpack()))
        # The bus has taken in what this connection wants to hear once it answers.
        bus.call(self.connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId")

    def request(self, command):
        """Sends a request; there is never a reply."""
        message = Gio.DBusMessage.new_method_call(NAME, PATH, NAME, "request")
        message.set_body(GLib.Variant("(i)", (command,)))
        message.set_flags(Gio.DBusMessageFlags.NO_REPLY_EXPECTED)
        self.connection.send_message(message, Gio.DBusSendMessageFlags.NONE)
        self.connection.flush_sync(None)

    def sync(self):
        """Returns when everything that the bus had for the peer before is recorded."""
        self.bus.call(self.connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus.Peer",
                      "Ping")
        flush_loop()

    def ask(self, command):
        """The value that a query is answered with."""
        before = len(self.settings.items())
        self.request(command)
        return self.settings.wait_for(lambda setting: setting[0] == command, after=before)[1]

    def told(self):
        """All settings that the peer has been told by now: the answer to a query comes behind them."""
        self.ask(FIXED)
        return [setting for setting in self.settings.items() if setting != (FIXED, 1)]
