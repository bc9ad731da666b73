"""Private session and system buses, and connections to them."""

import itertools
import os
import subprocess
import threading
import xml.sax.saxutils
from xml.etree import ElementTree

from gi.repository import Gio, GLib

from harness.mailbox import DEADLINE, Mailbox

_numbers = itertools.count(1)
_loop_lock = threading.Lock()
_loop = None

DEBIAN_SYSTEM_BUS = "/usr/share/dbus-1/system.conf"
SESSION_SERVICES = "/usr/share/dbus-1/services"
# Helpers of a desktop that a test may need for real; everything else must be played by the test.
ACTIVATABLE = ("ca.desrt.dconf.service", "org.gnome.GConf.service")

_CONFIG = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>{type}</type>
  <keep_umask/>
  <listen>unix:path={socket}</listen>
  <auth>EXTERNAL</auth>
  <servicedir>{services}</servicedir>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
{denials}
  </policy>
  <limit name="max_incoming_bytes">1000000000</limit>
  <limit name="max_outgoing_bytes">1000000000</limit>
  <limit name="max_message_size">1000000000</limit>
  <limit name="service_start_timeout">120000</limit>
  <limit name="auth_timeout">240000</limit>
  <limit name="max_completed_connections">100000</limit>
  <limit name="max_connections_per_user">100000</limit>
  <limit name="max_names_per_connection">50000</limit>
  <limit name="max_match_rules_per_connection">50000</limit>
  <limit name="max_replies_per_connection">50000</limit>
</busconfig>
"""


def start_loop():
    """The one GLib loop, on a thread of its own: objects answer while a test is in a blocking call."""
    global _loop
    with _loop_lock:
        if _loop is None:
            _loop = GLib.MainLoop()
            threading.Thread(target=_loop.run, name="glib", daemon=True).start()


def flush_loop():
    """Returns when everything that has arrived for this process by now has been handed out."""
    done = threading.Event()
    GLib.idle_add(done.set, priority=GLib.PRIORITY_LOW)
    assert done.wait(DEADLINE), "the test's own loop hangs"


def debian_config(socket, policy):
    """What Debian gives its system bus, with this address and one more policy file; what only a bus of
    the machine's own can do (another user, a helper that starts services) is left out."""
    root = ElementTree.parse(DEBIAN_SYSTEM_BUS).getroot()
    for tag in ("user", "fork", "pidfile", "syslog", "listen", "servicehelper", "standard_system_servicedirs",
                "includedir", "include"):
        for element in root.findall(tag):
            root.remove(element)
    ElementTree.SubElement(root, "listen").text = f"unix:path={socket}"
    ElementTree.SubElement(root, "include").text = str(policy)
    return ElementTree.tostring(root, encoding="unicode")


class Bus:
    """A dbus-daemon of its own. `deny_own` lists names that nobody may take; `services` maps names to
    the programs that it starts for them, with `environment` beside its own; `activatable` are the
    service files of this machine that a session bus has too. With `policy`, a file, it allows what
    Debian's system bus allows and what that file adds. What it has to say, and what the programs say that
    it starts, goes to `log`, an open file, or else to this process's standard error."""

    def __init__(self, kind, deny_own=(), services=None, environment=None, activatable=ACTIVATABLE, policy=None,
                 log=None):
        self.kind = kind
        start_loop()
        self._directory = f"{os.environ['XDG_RUNTIME_DIR']}/{kind}-{next(_numbers)}"
        folder = f"{self._directory}/services"
        os.makedirs(folder, mode=0o700)
        for name, program in (services or {}).items():
            with open(f"{folder}/{name}.service", "w", encoding="utf-8") as file:
                file.write(f"[D-BUS Service]\nName={name}\nExec='{program}'\n")
        if kind == "session":
            for name in activatable:
                if os.path.exists(f"{SESSION_SERVICES}/{name}"):
                    os.symlink(f"{SESSION_SERVICES}/{name}", f"{folder}/{name}")
        denials = "\n".join(f"    <deny own={xml.sax.saxutils.quoteattr(name)}/>" for name in deny_own)
        config = f"{self._directory}/bus.conf"
        with open(config, "w", encoding="utf-8") as file:
            socket = f"{self._directory}/socket"
            file.write(debian_config(socket, policy) if policy else
                       _CONFIG.format(type=kind, socket=socket, services=folder, denials=denials))
        self._connections = []
        self._process = subprocess.Popen(
            ["/usr/bin/dbus-daemon", f"--config-file={config}", "--nofork", "--nopidfile", "--print-address=1"],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=log, text=True, start_new_session=True,
            env={**os.environ, **(environment or {}), "DBUS_SESSION_BUS_ADDRESS": f"unix:path={self._directory}/socket"})
        self.address = self._process.stdout.readline().strip()
        assert self.address, f"the {kind} bus does not start"
        self._own = self.connect()  # for the test's own questions

    @property
    def pid(self):
        return self._process.pid

    def connect(self):
        """A connection of its own to this bus, closed with the bus at the latest."""
        flags = Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT | Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION
        connection = Gio.DBusConnection.new_for_address_sync(self.address, flags, None, None)
        connection.set_exit_on_close(False)
        self._connections.append(connection)
        return connection

    def call(self, connection, destination, path, interface, member, arguments=None, timeout=None):
        """A blocking call; returns the tuple of results. D-Bus errors come as GLib.Error."""
        result = connection.call_sync(destination, path, interface, member, arguments, None,
                                      Gio.DBusCallFlags.NO_AUTO_START,
                                      int(1000 * (DEADLINE if timeout is None else timeout)), None)
        return result.unpack()

    def own(self, connection, name):
        (answer,) = self.call(connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                              "RequestName", GLib.Variant("(su)", (name, 4)))
        assert answer == 1, f"{name} is taken"

    def ask(self, member, *names):
        """Asks the bus itself; a name without an owner answers None."""
        try:
            return self.call(self._own, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                             member, GLib.Variant("(" + "s" * len(names) + ")", names))[0]
        except GLib.Error:
            return None

    def owner_of(self, name):
        """The unique name that owns `name`, or None."""
        return self.ask("GetNameOwner", name)

    def pid_of(self, name):
        return self.ask("GetConnectionUnixProcessID", name)

    def wait_owner(self, name, present=True):
        """Waits until the name has an owner (or has none) and returns the owner."""
        changes = Mailbox(f"owners of {name}")
        subscription = self._own.signal_subscribe(
            "org.freedesktop.DBus", "org.freedesktop.DBus", "NameOwnerChanged", "/org/freedesktop/DBus", name,
            Gio.DBusSignalFlags.NONE, lambda _c, _s, _p, _i, _n, arguments: changes.append(arguments.unpack()[2]))
        try:
            now = self.owner_of(name)
            return now if bool(now) == present else changes.wait_for(lambda owner: bool(owner) == present)
        finally:
            self._own.signal_unsubscribe(subscription)

    def ping(self, connection, pid):
        """Waits until the process with this id has handled what `connection` sent it before."""
        bus = ("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus")
        (names,) = self.call(connection, *bus, "ListNames")
        for name in (n for n in names if n.startswith(":")):
            (owner,) = self.call(connection, *bus, "GetConnectionUnixProcessID", GLib.Variant("(s)", (name,)))
            if owner == pid:
                self.call(connection, name, "/", "org.freedesktop.DBus.Peer", "Ping")

    def introspect(self, destination, path):
        """The description that an object gives of itself, as XML text."""
        return self.call(self._own, destination, path, "org.freedesktop.DBus.Introspectable", "Introspect")[0]

    def stop(self):
        """Ends the bus as a crash would: at once, whoever is still connected."""
        if self._process.poll() is None:
            self._process.kill()
        self._process.wait(DEADLINE)
        self._process.stdout.close()
        for connection in self._connections:
            if not connection.is_closed():
                connection.close(None, None, None)
        self._connections.clear()


class BusMonitor:
    """Every message of a bus as a line of text, as dbus-monitor writes them."""

    def __init__(self, bus):
        self.lines = Mailbox(f"{bus.kind} bus monitor")
        self._process = subprocess.Popen(["/usr/bin/stdbuf", "-oL", "/usr/bin/dbus-monitor", "--address", bus.address],
                                         stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
        self._thread = threading.Thread(target=self._read, daemon=True)
        self._thread.start()
        self._ready(bus)

    def _read(self):
        for line in self._process.stdout:
            self.lines.append(line.rstrip("\n"))
        self.lines.close()

    def _ready(self, bus):
        # The monitor sees what is sent from now on once it has lost its own name.
        self.lines.wait_for("member=NameLost")
        bus.connect().close_sync(None)

    def settled_lines(self, bus):
        """Everything that was sent on the bus by now: the monitor writes in its own time, so a question
        that only this call can ask is waited for behind it."""
        last = f"com.example.Last{next(_numbers)}"
        bus.owner_of(last)
        self.lines.wait_for(last)
        return self.lines.items()

    def wait_call(self, member, **fields):
        """Waits for a method call; fields as dbus-monitor prints them (destination, path, interface)."""
        def wanted(line):
            return line.startswith("method call") and f"member={member}" in line.split("; ")[-1] \
                and all(f"{name}={value}" in line for name, value in fields.items())
        return self.lines.wait_for(wanted)

    def stop(self):
        self._process.kill()
        self._process.wait(DEADLINE)
        self._thread.join(DEADLINE)
        self._process.stdout.close()
