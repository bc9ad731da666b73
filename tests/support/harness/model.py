"""What the daemon must do, told once more from the rules, for tests that let much happen at once.

A test tells the model what it does to the daemon, in the same order, and afterwards compares: the lines that
tell of plans, sessions, rows and receivers of fixes (`trace`), what engine and Gypsy were asked, and what each
client and the side channel's peer heard. Times are milliseconds on the daemon's clock, which the test moves.
A fix is the number that the test has given it; None is an empty one. Nothing here is shared with the daemon.
"""

from harness.modelparts import (ALL, BY_NETWORK, BY_SATELLITE, FIX, FREE_FIX, IDLE, INFO_START, INFO_STOP,
                                LOST_RECEIVER, LOST_SESSION, NETWORK, OTHERWISE, SATELLITE, SET_INTERVAL, SET_METHOD,
                                START, STOP, ZEROS, Client, EngineLink, ExternalReceiver, NetworkLibrary, Scheduler,
                                Timers)

INTERNAL, ADDRESS = "SatellitePositioningInternal", "SatellitePositioningExternalAddress"
CODES = {"NetworkConnectivity": 0x83, "CellularPositioning": 0x81, "WiFiPositioning": 0x82}
STREAM, NO_STREAM, ALWAYS = 0x01, 0x02, 0x84


class ModelDaemon:
    """Each public operation is one thing that happens to the daemon; `settle` what follows by itself."""

    def __init__(self, settings):
        self.settings = dict(settings)
        self.timers = Timers()
        self.trace, self.later = [], []
        self.clients = {}  # by id, in the order of registration
        self.next_id = 6000
        self.free_fix, self.prestarted = [], []
        self.receiver, self.planning = IDLE, False
        self.latest_satellite = self.latest_network = (None, -1)  # fix and time stamp
        self.refused = False  # the library's last request: its batch still waits
        self.streamed, self.told = [], []  # by the side channel
        self.scheduler, self.library = Scheduler(self), NetworkLibrary(self)
        self.engine, self.external = EngineLink(self), ExternalReceiver(self)
        self.offered = self._offer()

    def say(self, text):
        self.trace.append(text)

    def settle(self):
        """What peers answer once they have been asked."""
        while self.later:
            self.later.pop(0)()

    def advance(self, now):
        self.timers.advance(now)

    # ---- clients

    def register(self, application=True):
        client = self.clients[self.next_id] = Client(self.next_id, application)
        self.next_id += 1
        return client

    def configure(self, client, command, methods, milliseconds):
        seconds = 1 if milliseconds < 1000 else (milliseconds + 500) // 1000
        if command & SET_METHOD:
            client.methods = methods
        if command & SET_INTERVAL:
            client.interval = seconds
            if seconds == FREE_FIX and client.id not in self.free_fix:
                self.free_fix.append(client.id)
        if command & (START | STOP):
            client.stopped = bool(command & STOP)
        if command & (INFO_START | INFO_STOP):
            client.info = not command & INFO_STOP
        client.modified = True
        self.plan()

    def prestart(self, methods):
        client = self.register(application=False)
        self.prestarted.append(client.id)
        self.configure(client, START | SET_METHOD | SET_INTERVAL, methods, 1000)
        self.timers.start(("prestart", client.id), 15_000, lambda: self.leave(self.prestarted.pop(0)))

    def leave(self, id):
        """Its row and its sessions stay."""
        self.say(f"PositionDaemon: Removing client with id: {id}")
        del self.clients[id]
        if id in self.free_fix:
            self.free_fix.remove(id)

    # ---- settings

    def set(self, key, value):
        before, on = self.settings[key], self.settings
        vesk = not on["SuplForced"]
        if (key == INTERNAL and value != before) or (key == ADDRESS and not on[INTERNAL]):
            self._end_satellite_sessions()
        on[key] = value
        if key in CODES and vesk:
            self.told.append((CODES[key], int(value)))
        if key == "SuplForced" and not value:
            self.told += [(code, int(on[name])) for name, code in CODES.items()]
        offered = self._offer()
        if offered != self.offered:
            self.offered = offered
            for client in self.clients.values():
                client.masks += [offered] if client.application else []
        self.plan()
        if self.refused and self._network_allowed():
            self.ask_for_network_fix()

    def _network_allowed(self):
        on = self.settings
        if on["SuplForced"]:
            return on["CellularPositioning"] and on["NetworkConnectivity"]
        return on["CellularPositioning"] or on["WiFiPositioning"]

    def _offer(self):
        on = self.settings
        if not on["Positioning"]:
            return 0
        return SATELLITE * on["SatellitePositioning"] | NETWORK * self._network_allowed()

    def _end_satellite_sessions(self):
        self.planning = True
        for client in self.clients.values():
            if client.gnss:
                client.set_gnss(False)
                self._receiver_stop(client)
        self.planning = False

    # ---- plans

    def effective(self, requested):
        on = self.settings
        if not on["Positioning"]:
            return 0
        methods = requested if on["SatellitePositioning"] else requested & NETWORK
        if self.receiver == FIX and requested == NETWORK and on["SatellitePositioning"]:
            if any(client.methods & SATELLITE and not client.stopped for client in self.clients.values()):
                methods = SATELLITE
        if not self._network_allowed():
            methods &= SATELLITE
        if self.receiver == FIX and methods & SATELLITE:
            methods &= SATELLITE
        if not on[INTERNAL] and not on[ADDRESS]:
            methods &= NETWORK
        return methods

    def plan(self):
        self.say("assignClients")
        self.planning = True
        for client in self.clients.values():
            methods = self.effective(client.methods)
            self._stop_sessions(client, ALL & ~methods)
            self._change_sessions(client)
            self._start_sessions(client, methods)
            client.modified = False
        self.planning = False

    def _stop_sessions(self, client, unwanted):
        if client.gnss and (client.stopped or unwanted & SATELLITE):
            client.set_gnss(False)
            self._receiver_stop(client)
        if client.supl and (client.stopped or unwanted & NETWORK):
            client.set_supl(False)
            self.scheduler.remove(client.id)

    def _change_sessions(self, client):
        if client.modified and client.gnss and self.settings[INTERNAL]:
            self.engine.retime(client.id, client.interval)
        if client.modified and client.supl:
            self.scheduler.retime(client.id, client.interval)

    def _start_sessions(self, client, methods):
        self.say(f"startSessions: client: id={client.id}, stopped={client.stopped:d}, methods=0x{methods:x}, "
                 f"actGNSS={client.gnss:d}, actSUPL={client.supl:d}")
        if client.stopped:
            return
        if not methods and not client.info:
            client.hear(None, OTHERWISE)
        if methods & SATELLITE and not client.gnss:
            client.set_gnss(True)
            if self.settings[INTERNAL]:
                self.engine.start(client.id, client.interval)
            else:
                self.external.start(client.id, self.settings[ADDRESS])
        if methods & NETWORK and not client.supl:
            client.set_supl(True)
            client.last_network = ZEROS
            self.scheduler.add(client.id, client.interval)

    def _receiver_stop(self, client):
        (self.engine if self.settings[INTERNAL] else self.external).stop(client.id)

    def receiver_report(self, line, state):
        self.say(line)
        self.receiver = state
        if not self.planning:
            self.plan()

    # ---- fixes

    def satellite_fix(self, id, fix, stamp):
        client = self.clients.get(id)
        if not client:
            self.say(LOST_SESSION.format("onPositionUpdateGNSS"))
            return
        if not client.stopped and self.settings["SatellitePositioning"]:
            self.say(f"Sending GNSS fix to ClientId: {id}")
            client.hear(fix, BY_SATELLITE)
        if fix != self.latest_satellite[0]:
            for rider in map(self.clients.get, self.free_fix):
                if rider.stopped and rider.methods & SATELLITE:
                    rider.hear(fix, BY_SATELLITE)
                    self.say("PositionDaemon::onPositionUpdateGNSS: Sending GNSS fix to free fix client")
        self.latest_satellite = (fix, stamp)

    def satellite_timeout(self, id):
        client = self.clients.get(id)
        if client:
            client.hear(None, BY_SATELLITE)
        else:
            self.say(LOST_SESSION.format("onUpdateTimeoutGNSS"))

    def satellite_list(self, kind):
        for client in self.clients.values():
            if client.info and client.application:
                client.satellites.append(kind)

    def ask_for_network_fix(self):
        on = self.settings
        if on["SuplForced"]:
            self.say("PositionDaemon: Sending SUPL Location request to ORV.")
            self.engine.ask_supl()
        else:
            self.say("PositionDaemon: Sending Network Location request to VESK.")
            self.refused = self.library.ask(on["WiFiPositioning"], on["CellularPositioning"]) != 0

    def network_fix(self, fix, accuracy):
        """The library's answer, or the engine's."""
        self.say("PositionDaemon::onPositionUpdateSUPL")
        self.refused = False
        for id in self.scheduler.take():
            self.say(f"Sending update to ClientId:  {id}")
            client = self.clients.get(id)
            if not client:
                self.say(LOST_RECEIVER)
            elif not client.knows(fix, accuracy):
                client.hear(fix, BY_NETWORK)
        for rider in map(self.clients.get, self.free_fix):
            if rider.methods & NETWORK:
                rider.hear(fix, BY_NETWORK)
                self.say("PositionDaemon::onPositionUpdateSUPL: Sending SUPL fix to free fix client")
        self.latest_network = (fix, self.timers.now if fix is not None else -1)

    def supl_answer(self, status, fix=None):
        problem = {1: "SUPL connection error", 2: "SUPL timeout"}.get(status)
        if problem:
            self.say(f"ORVComm::handleSUPLResponse: {problem}")
        self.network_fix(None if status else fix, self.engine.SUPL_ACCURACY)

    def latest(self):
        satellite, network = self.latest_satellite, self.latest_network
        return satellite[0] if network[1] < satellite[1] else network[0]

    # ---- the side channel

    def peer_request(self, command):
        names = {code: name for name, code in CODES.items()}
        if command in (STREAM, NO_STREAM):
            self.engine.streaming = command == STREAM
        elif command in names:
            self.told.append((command, int(self.settings[names[command]])))
        elif command == ALWAYS:
            self.told.append((command, 1))
        else:
            self.say("Unknown VESK request!")
