"""Debian's GeoClue daemon on the stage's system bus, with the two parties that it needs: an agent that
speaks for the user (the test's, or GeoClue's own), and the web service that knows where the network is."""

import http.server
import json
import os
import subprocess
import threading
from pathlib import Path

from gi.repository import Gio, GLib

from harness.geoclue import MANAGER, MANAGER_PATH, NAME, PROPERTIES, EXACT
from harness.mailbox import DEADLINE, Mailbox

PROGRAM = "/usr/libexec/geoclue"
AGENT_PROGRAM = "/usr/libexec/geoclue-2.0/demos/agent"
CONFIGURATION = Path("/etc/geoclue/geoclue.conf")
AGENT_ID = "lodestard-test-agent"
OWN_AGENT_ID = "geoclue-demo-agent"
AGENT_PATH = "/org/freedesktop/GeoClue2/Agent"

_CONFIGURATION = """[agent]
whitelist={agents}
[network-nmea]
enable=false
[3g]
enable=false
[cdma]
enable=false
[modem-gps]
enable=false
[compass]
enable=false
[wifi]
enable=true
url=http://127.0.0.1:{port}/locate
submit-data=false
{sections}"""

_AGENT = Gio.DBusNodeInfo.new_for_xml("""
<node>
  <interface name="org.freedesktop.GeoClue2.Agent">
    <method name="AuthorizeApp">
      <arg type="s" direction="in"/><arg type="u" direction="in"/>
      <arg type="b" direction="out"/><arg type="u" direction="out"/>
    </method>
    <property name="MaxAccuracyLevel" type="u" access="read"/>
  </interface>
</node>""").interfaces[0]


class LocationService:
    """What GeoClue asks over HTTP when it sees no WLAN: where is this network? `place` is latitude,
    longitude and accuracy, or None when nobody knows. `requests` records what was asked."""

    def __init__(self, place):
        self.place = place
        self.requests = Mailbox("location service")
        service = self

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_POST(self):
                service.requests.append(self.rfile.read(int(self.headers["Content-Length"])))
                status, answer = service._answer()
                self.send_response(status)
                self.send_header("Content-Type", "application/json")
                self.send_header("Content-Length", str(len(answer)))
                self.end_headers()
                self.wfile.write(answer)

            def log_message(self, *_):
                pass

        self._server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self.port = self._server.server_port
        threading.Thread(target=self._server.serve_forever, name="location service", daemon=True).start()

    def _answer(self):
        if self.place is None:
            return 404, b'{"error": {"code": 404, "message": "Not found"}}'
        latitude, longitude, accuracy = self.place
        return 200, json.dumps({"location": {"lat": latitude, "lng": longitude}, "accuracy": accuracy}).encode()

    def close(self):
        self._server.shutdown()
        self._server.server_close()


class RealGeoClue:
    """The daemon itself; `sections` are further ones of its configuration."""

    def __init__(self, bus, place, sections=""):
        self.bus = bus
        self.service = LocationService(place)
        CONFIGURATION.write_text(_CONFIGURATION.format(agents=f"{AGENT_ID};{OWN_AGENT_ID}", port=self.service.port,
                                                       sections=sections), encoding="utf-8")
        # Without a network of its own the machine counts as connected only to a monitor that looks at nothing.
        self._process = subprocess.Popen(
            [PROGRAM, "--timeout=0"], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
            env={**os.environ, "DBUS_SYSTEM_BUS_ADDRESS": bus.address, "GIO_USE_NETWORK_MONITOR": "base"})
        bus.wait_owner(NAME)
        self._connection = bus.connect()

    def in_use(self):
        """Does any client keep a source of positions busy?"""
        return self.bus.call(self._connection, NAME, MANAGER_PATH, PROPERTIES, "Get",
                             GLib.Variant("(ss)", (MANAGER, "InUse")))[0]

    def close(self):
        self._process.kill()
        self._process.wait(DEADLINE)
        self.service.close()


class Agent:
    """Speaks for a user who allows positions as exact as `level` (0: none at all), but no application that
    the agent is asked about; `asked` records (desktop id, level)."""

    def __init__(self, bus, level=EXACT):
        self.asked = Mailbox("GeoClue's agent")
        connection = bus.connect()
        connection.register_object(AGENT_PATH, _AGENT, self._authorize, lambda *_: GLib.Variant("u", level), None)
        bus.call(connection, NAME, MANAGER_PATH, MANAGER, "AddAgent", GLib.Variant("(s)", (AGENT_ID,)))

    def _authorize(self, _connection, _sender, _path, _interface, _method, arguments, invocation):
        desktop_id, level = arguments.unpack()
        self.asked.append((desktop_id, level))
        invocation.return_value(GLib.Variant("(bu)", (False, level)))


class OwnAgent:
    """GeoClue's own agent, as desktops start it that have none."""

    def __init__(self, bus):
        self._process = subprocess.Popen(
            [AGENT_PROGRAM], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
            env={**os.environ, "DBUS_SYSTEM_BUS_ADDRESS": bus.address})

    def close(self):
        self._process.kill()
        self._process.wait(DEADLINE)
