"""GeoClue 2 on the system bus, as far as lodestard uses it, with the real one's moods."""

import threading
import time
from dataclasses import dataclass

from gi.repository import Gio, GLib

from harness.mailbox import Mailbox, wait_until
from harness.peers import Peer

NAME = "org.freedesktop.GeoClue2"
MANAGER_PATH = "/org/freedesktop/GeoClue2/Manager"
MANAGER, CLIENT, LOCATION = f"{NAME}.Manager", f"{NAME}.Client", f"{NAME}.Location"
PROPERTIES = "org.freedesktop.DBus.Properties"
DENIED = "org.freedesktop.DBus.Error.AccessDenied"
NO_ALTITUDE = -1.7976931348623157e308
CITY, NEIGHBOURHOOD, STREET, EXACT = 4, 5, 6, 8

LOCATION_LIFETIME_MS = 5000  # a location outlives the one after it by so much

_MANAGER_XML = f"""
<interface name="{MANAGER}">
  <method name="GetClient"><arg type="o" direction="out"/></method>
  <method name="CreateClient"><arg type="o" direction="out"/></method>
  <method name="DeleteClient"><arg type="o" direction="in"/></method>
  <method name="AddAgent"><arg type="s" direction="in"/></method>
  <property name="InUse" type="b" access="read"/>
  <property name="AvailableAccuracyLevel" type="u" access="read"/>
</interface>"""
_CLIENT_XML = f"""
<interface name="{CLIENT}">
  <method name="Start"/>
  <method name="Stop"/>
  <property name="Location" type="o" access="read"/>
  <property name="DistanceThreshold" type="u" access="readwrite"/>
  <property name="TimeThreshold" type="u" access="readwrite"/>
  <property name="DesktopId" type="s" access="readwrite"/>
  <property name="RequestedAccuracyLevel" type="u" access="readwrite"/>
  <property name="Active" type="b" access="read"/>
  <signal name="LocationUpdated"><arg type="o"/><arg type="o"/></signal>
</interface>"""
_LOCATION_XML = f"""
<interface name="{LOCATION}">
  <property name="Latitude" type="d" access="read"/>
  <property name="Longitude" type="d" access="read"/>
  <property name="Accuracy" type="d" access="read"/>
  <property name="Altitude" type="d" access="read"/>
  <property name="Speed" type="d" access="read"/>
  <property name="Heading" type="d" access="read"/>
  <property name="Description" type="s" access="read"/>
  <property name="Timestamp" type="(tt)" access="read"/>
</interface>"""


def _interface(xml):
    return Gio.DBusNodeInfo.new_for_xml(f"<node>{xml}</node>").interfaces[0]


@dataclass
class Place:
    """What a source found; `age` is how many seconds ago, `stamp` overrides it (seconds since 1970)."""
    latitude: float
    longitude: float = 24.94
    accuracy: float = 50.0
    altitude: float = NO_ALTITUDE
    age: float = 0.0
    stamp: float = None

    def properties(self):
        microseconds = int(((time.time() - self.age) if self.stamp is None else self.stamp) * 1_000_000)
        return {
            "Latitude": GLib.Variant("d", self.latitude), "Longitude": GLib.Variant("d", self.longitude),
            "Accuracy": GLib.Variant("d", self.accuracy), "Altitude": GLib.Variant("d", self.altitude),
            "Speed": GLib.Variant("d", -1.0), "Heading": GLib.Variant("d", -1.0),
            "Description": GLib.Variant("s", ""), "Timestamp": GLib.Variant("(tt)", divmod(microseconds, 1_000_000)),
        }


class GeoClient:
    """One client object of GeoClue's: made for one caller, who alone may use it."""

    def __init__(self, service, number, owner):
        self.path = f"/org/freedesktop/GeoClue2/Client/{number}"
        self.owner = owner
        self.values = {"Location": GLib.Variant("o", "/"), "DistanceThreshold": GLib.Variant("u", 0),
                       "TimeThreshold": GLib.Variant("u", 0), "DesktopId": GLib.Variant("s", ""),
                       "RequestedAccuracyLevel": GLib.Variant("u", 0), "Active": GLib.Variant("b", False)}
        self._service = service
        self._locations = 0
        connection = service.connection
        self._registration = connection.register_object(
            self.path, _interface(_CLIENT_XML), service._called, self._get, self._set)
        self._watch = connection.signal_subscribe(
            "org.freedesktop.DBus", "org.freedesktop.DBus", "NameOwnerChanged", "/org/freedesktop/DBus", owner,
            Gio.DBusSignalFlags.NONE, lambda *_: service._drop(self))

    @property
    def desktop_id(self):
        return self.values["DesktopId"].unpack()

    @property
    def level(self):
        return self.values["RequestedAccuracyLevel"].unpack()

    @property
    def active(self):
        return self.values["Active"].unpack()

    def _get(self, _connection, _sender, _path, _interface_name, name):
        return self.values[name]

    def _set(self, _connection, sender, _path, _interface_name, name, value):
        if sender != self.owner:
            return False
        self.values[name] = value
        return True

    def set_active(self, active):
        self.values["Active"] = GLib.Variant("b", active)
        self._service.connection.emit_signal(
            self.owner, self.path, PROPERTIES, "PropertiesChanged",
            GLib.Variant("(sa{sv}as)", (CLIENT, {"Active": self.values["Active"]}, [])))

    def found(self, place):
        """A location object for the place, announced to the owner alone."""
        connection = self._service.connection
        before = self.values["Location"].unpack()
        path = f"{self.path}/Location/{self._locations}"
        self._locations += 1
        values = place.properties()
        registration = connection.register_object(
            path, _interface(_LOCATION_XML), None, lambda _c, _s, _p, _i, name: values[name], None)
        self._service._retire(before)
        self._service._registrations[path] = registration
        self.values["Location"] = GLib.Variant("o", path)
        connection.emit_signal(self.owner, self.path, CLIENT, "LocationUpdated", GLib.Variant("(oo)", (before, path)))

    def close(self):
        connection = self._service.connection
        if not connection.is_closed():
            connection.signal_unsubscribe(self._watch)
            connection.unregister_object(self._registration)
            self._service._retire(self.values["Location"].unpack())


class FakeGeoClue(Peer):
    """By itself it answers at once and finds nothing. What a test may set:

    place   what a client finds as soon as it is started, or None: silence, as the real one keeps it
    denied  Start is refused, as when the user has switched location off
    agent   without one no client is ever made; agent_arrives() answers those that wait

    `started` records each client that was started. hold() and release() keep back any method's answer.
    """

    def __init__(self, bus, place=None, agent=True, denied=False):
        self.place, self.denied = place, denied
        self.started = Mailbox("GeoClue clients")
        self.created = 0
        self._live = {}
        self._held = {} if agent else {"CreateClient": []}
        self._registrations = {}
        self._guard = threading.RLock()
        super().__init__(bus, NAME)
        self.connection.register_object(MANAGER_PATH, _interface(_MANAGER_XML), self._called, self._manager_value, None)

    # ---- what a test does

    def agent_arrives(self):
        self.release("CreateClient")

    def hold(self, method):
        """From now on calls of the method stay unanswered, and without effect, until release()."""
        with self._guard:
            self._held[method] = []

    def release(self, method):
        with self._guard:
            waiting = self._held.pop(method, [])
        for call in waiting:
            self.answer(*call)

    def find(self, place):
        """Every started client finds this place, now."""
        for client in self.clients():
            if client.active:
                client.found(place)

    def switch_off(self):
        """The user takes location away: started clients fall silent without an error."""
        for client in self.clients():
            client.set_active(False)

    def clients(self):
        """The clients that exist, oldest first."""
        with self._guard:
            return list(self._live.values())

    def wait_started(self, count=1, timeout=None):
        """The count-th client that was started since the beginning."""
        return self.started.wait_for(lambda _: True, timeout=timeout, count=count)

    def wait_idle(self):
        """Waits until nobody has left a client behind."""
        wait_until(lambda: not self.clients(), "every GeoClue client is deleted")

    # ---- what the bus asks

    def _manager_value(self, _connection, _sender, _path, _interface_name, name):
        if name == "InUse":
            return GLib.Variant("b", any(client.active for client in self.clients()))
        return GLib.Variant("u", EXACT)

    def answer(self, path, interface, method, arguments, invocation):
        with self._guard:
            if method in self._held:
                self._held[method].append((path, interface, method, arguments, invocation))
                return
        sender = invocation.get_sender()
        if method == "CreateClient":
            invocation.return_value(GLib.Variant("(o)", (self._create(sender).path,)))
        elif method == "DeleteClient":
            self._delete(arguments[0], sender, invocation)
        elif interface == CLIENT:
            self._use(path, method, sender, invocation)
        else:
            invocation.return_value(None)

    def _create(self, owner):
        with self._guard:
            self.created += 1
            client = GeoClient(self, self.created, owner)
            self._live[client.path] = client
            return client

    def _delete(self, path, sender, invocation):
        client = self._live.get(path)
        if client and client.owner != sender:
            invocation.return_dbus_error(DENIED, "Client is owned by somebody else")
            return
        self._drop(client)
        invocation.return_value(None)

    def _use(self, path, method, sender, invocation):
        client = self._live.get(path)
        if not client:
            invocation.return_dbus_error("org.freedesktop.DBus.Error.UnknownMethod", f"No such object path '{path}'")
            return
        if client.owner != sender or not client.desktop_id or (method == "Start" and self.denied):
            invocation.return_dbus_error(DENIED, f"{client.desktop_id!r} disallowed by configuration for UID 1000")
            return
        invocation.return_value(None)
        client.set_active(method == "Start")
        if method == "Start":
            self.started.append(client)
            if self.place:
                client.found(self.place)

    def _drop(self, client):
        with self._guard:
            if client and self._live.pop(client.path, None):
                client.close()

    def _retire(self, path):
        registration = self._registrations.pop(path, 0)
        if registration:
            GLib.timeout_add(LOCATION_LIFETIME_MS, self._forget, registration)

    def _forget(self, registration):
        if not self.connection.is_closed():
            self.connection.unregister_object(registration)
        return GLib.SOURCE_REMOVE


class FakeNetworkManager(Peer):
    """NetworkManager as far as it tells what the way to the network costs."""

    INTERFACE, PATH = "org.freedesktop.NetworkManager", "/org/freedesktop/NetworkManager"
    METERED_YES, METERED_NO = 1, 2

    def __init__(self, bus, connection="802-11-wireless", metered=False):
        super().__init__(bus, self.INTERFACE)
        values = {"PrimaryConnectionType": GLib.Variant("s", connection),
                  "Metered": GLib.Variant("u", self.METERED_YES if metered else self.METERED_NO)}
        self.connection.register_object(self.PATH, _interface(f"""
            <interface name="{self.INTERFACE}">
              <property name="PrimaryConnectionType" type="s" access="read"/>
              <property name="Metered" type="u" access="read"/>
            </interface>"""), None, lambda _c, _s, _p, _i, name: values[name], None)
