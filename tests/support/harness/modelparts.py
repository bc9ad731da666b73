"""The parts of the model in model.py: timers, clients, rows, the ends towards engine, Gypsy and GeoClue."""

import itertools
from dataclasses import dataclass, field
from math import gcd

from harness import wire

SATELLITE, NETWORK, ALL = 0x000000FF, 0xFFFFFF00, 0xFFFFFFFF
START, STOP, SET_METHOD, SET_INTERVAL, INFO_START, INFO_STOP = 0x01, 0x02, 0x04, 0x08, 0x10, 0x20
IDLE, SEARCH, FIX = 0, 1, 2
BY_SATELLITE, BY_NETWORK, OTHERWISE = 0, 1, 2
ZEROS, INVALID = "nothing yet", "an empty fix"
FREE_FIX = 666
DAY = 86400_000
LOST_SESSION = "PositionDaemon::{}: Invalid GNSS session id from ORV."
LOST_RECEIVER = "onPositionUpdateSUPL: Invalid client in receiver list."


class Timers:
    """What happens when: by deadline, and of equal deadlines the one that was set first."""

    def __init__(self):
        self.now = 0
        self._numbers = itertools.count()
        self._pending = {}

    def start(self, name, delay, action):
        self._pending[name] = (self.now + delay, next(self._numbers), action)

    def stop(self, name):
        self._pending.pop(name, None)

    def running(self, name):
        return name in self._pending

    def next(self):
        return min((deadline for deadline, _, _ in self._pending.values()), default=None)

    def advance(self, now):
        """Moves the clock at once, as late timers see it: each that is due fires once."""
        self.now = now
        due = sorted((timer[:2], name, timer) for name, timer in self._pending.items() if timer[0] <= now)
        for _, name, timer in due:
            if self._pending.get(name) is timer:
                del self._pending[name]
                timer[2]()


@dataclass
class Client:
    """What the daemon knows of one client, and what the client has heard."""
    id: int
    application: bool = True  # somebody is called back
    methods: int = ALL
    interval: int = 1
    stopped: bool = True
    info: bool = False
    modified: bool = False
    gnss: bool = False
    supl: bool = False
    satellites_failed: bool = False
    network_failed: bool = False
    last_network: object = ZEROS
    heard: list = field(default_factory=list)      # fixes
    masks: list = field(default_factory=list)      # methods on offer
    satellites: list = field(default_factory=list)  # "view" and "use"

    def set_gnss(self, active):
        self.gnss, self.satellites_failed = active, False

    def set_supl(self, active):
        self.supl, self.network_failed = active, False

    def knows(self, network_fix, accuracy):
        """Is this network fix, a number or None, nothing new?"""
        fix = INVALID if network_fix is None else (network_fix, accuracy)
        known = self.last_network == fix
        self.last_network = fix
        return known

    def hear(self, fix, source):
        if source == BY_SATELLITE:
            self.satellites_failed = fix is None
            if fix is None and self.supl and not self.network_failed:
                self.last_network = ZEROS
        elif source == BY_NETWORK:
            self.network_failed = fix is None
        held_back = fix is None and self.gnss and self.supl and not (self.satellites_failed and self.network_failed)
        if self.application and not held_back:
            self.heard.append(fix)


@dataclass
class Row:
    id: int
    interval: int
    phase: int

    def left(self, now):
        return 1000 * self.interval - (now - self.phase)


class Scheduler:
    """Who waits for network positions; rows outlive clients that leave."""

    def __init__(self, daemon):
        self.daemon, self.timers = daemon, daemon.timers
        self.rows, self.due, self.taken = [], [], True

    def add(self, id, interval):
        self.daemon.say(f"Scheduler::addClient: id: {id}, interval: {interval}")
        row = Row(id, interval, self.timers.now - 1000 * interval)
        self.rows.append(row)
        self.step()
        if len(self.rows) > 1:
            self.align(row)

    def retime(self, id, interval):
        self.daemon.say(f"Scheduler::setClientInterval: id: {id}, interval: {interval}")
        for row in self.rows:
            if row.id == id and row.interval != interval:
                row.interval = interval
                self.align(row)
                self.plan()

    def remove(self, id):
        self.daemon.say(f"Scheduler::removeClient: id: {id}")
        self.rows = [row for row in self.rows if row.id != id]
        if id in self.due:
            self.due.remove(id)
        if self.rows:
            self.plan()
        else:
            self.timers.stop("scheduler")

    def align(self, row):
        reference, divisor = self.rows[0], 1
        for other in self.rows:
            if other is not row and gcd(other.interval, row.interval) > divisor:
                reference, divisor = other, gcd(other.interval, row.interval)
        row.phase = self.timers.now - (self.timers.now - reference.phase) % (1000 * divisor)

    def step(self):
        self.daemon.say("Scheduler::nextStep")
        if self.taken:
            self.due, self.taken = [], False
        waiting = bool(self.due)
        for row in self.rows:
            if row.left(self.timers.now) < 100:
                self.due += [row.id] if row.id not in self.due else []
                row.phase = self.timers.now
        if self.due and not waiting:
            self.daemon.ask_for_network_fix()
        self.plan()

    def plan(self):
        wait = min([DAY] + [row.left(self.timers.now) for row in self.rows])
        self.timers.start("scheduler", max(wait, 50), self.step)

    def take(self):
        self.taken = True
        return list(self.due)


class Session:
    def __init__(self, id, interval):
        self.id, self.interval = id, interval

    def patience(self):
        margins = ((10, 10), (60, 15), (600, 30), (1 << 16, 60))
        margin = next(margin for limit, margin in margins if self.interval < limit)
        return 1000 * (self.interval + margin)


class EngineLink:
    """The daemon's end of the engine's socket; sessions outlive clients that leave."""

    SUPL_ACCURACY = "6 m"  # never the library's

    def __init__(self, daemon):
        self.daemon, self.timers = daemon, daemon.timers
        self.state, self.sessions, self.streaming = IDLE, [], False
        self.asked = []  # (command, session, mode, interval), or "SUPL"

    def _ask(self, command, id, interval):
        self.asked.append((command, id, 2 if self.daemon.settings["NetworkConnectivity"] else 1, interval))

    def _find(self, id):
        return next((session for session in self.sessions if session.id == id), None)

    def _watch(self, session, patience):
        self.timers.start(session, patience, self._timeout)

    def set_state(self, state):
        self.state = state
        self.daemon.receiver_report("GNSS mode: " + ("Idle", "Search", "Tracking")[state], state)

    def start(self, id, interval):
        self._ask(wire.START, id, interval)
        if self.state == IDLE:
            self.set_state(SEARCH)
        session = Session(id, interval)
        self.sessions.append(session)
        self._watch(session, 120_000 if self.state == SEARCH else session.patience())

    def retime(self, id, interval):
        self._ask(wire.CHANGE_INTERVAL, id, interval)
        session = self._find(id)
        if session:
            session.interval = interval
        else:
            self.sessions.append(Session(id, interval))

    def stop(self, id):
        self._ask(wire.STOP, id, 0)
        session = self._find(id)
        if session:
            self.timers.stop(session)
            self.sessions.remove(session)
        if not self.sessions:
            self.set_state(IDLE)

    def ask_supl(self):
        self.asked.append("SUPL")
        self.daemon.refused = False  # now the engine answers who waits

    def _timeout(self):
        if self.state != SEARCH:
            self.set_state(SEARCH)
        for session in [session for session in self.sessions if not self.timers.running(session)]:
            if session in self.sessions:
                self.daemon.satellite_timeout(session.id)

    def report(self, id, fix, satellites=False):
        """A notification: of a fix when there is one, and perhaps of satellites in use."""
        if self.state == IDLE:
            return
        if satellites:
            self.daemon.satellite_list("view")
        if satellites and fix is not None:
            self.daemon.satellite_list("use")
        if fix is None:
            return
        if self.state != FIX:
            self.set_state(FIX)
        session = self._find(id)
        if session:
            self._watch(session, session.patience())
            self.daemon.satellite_fix(id, fix, self.timers.now)
        if self.streaming:
            self.daemon.streamed.append(fix)


class ExternalReceiver:
    """Gypsy's side of the daemon, and the Gypsy of the tests, which connects at once."""

    def __init__(self, daemon):
        self.daemon, self.timers = daemon, daemon.timers
        self.sessions, self.address, self.connected = {}, None, False
        self.device_status = {}  # address: what the device answers when asked for its fix
        self.fix, self.stamp = None, None
        self.asked = []

    def start(self, id, address):
        if self.sessions and address != self.address:
            return
        if not self.sessions:
            self.address = address
            self.asked += [f"Create {address}", f"Start {address}"]
            self._connects()
        self.sessions[id] = True

    def stop(self, id):
        if self.sessions.pop(id, None) and not self.sessions:
            self.fix_status(0)
            self.asked.append(f"Shutdown {self.address}")

    def fix_status(self, status):
        name, state = {1: ("Search", SEARCH), 2: ("Fix", FIX), 3: ("Fix", FIX)}.get(status, ("Idle", IDLE))
        self.daemon.receiver_report(f"Gypsy mode: {name}", state)

    def connection(self, connected):
        self.connected = connected
        if connected:
            self.timers.stop("gypsy")
            self.asked.append(f"GetFixStatus {self.address}")
            self.fix_status(self.device_status.get(self.address, 0))
            return
        self.fix_status(0)
        if self.sessions and not self.timers.running("gypsy"):
            self.timers.start("gypsy", 15_000, self._restart)

    def _restart(self):
        if self.sessions and not self.connected:
            self.asked.append(f"Start {self.address}")
            self._connects()

    def _connects(self):
        # The signal comes with the reply; what GeoClue has to say takes more than one question.
        self.daemon.later.insert(0, lambda: self.connection(True))

    def position(self, fix):
        self.fix, self.stamp = fix, self.timers.now
        self.accuracy()

    def accuracy(self):
        """Sends what is known so far once more."""
        for id in sorted(self.sessions):
            if id in self.sessions:
                self.daemon.satellite_fix(id, self.fix, self.stamp)


class NetworkLibrary:
    """The library's one request, and GeoClue as the test has it: finding a place, denying, or silent."""

    BUSY, DENIED, UNKNOWN = -2101, -2104, -2105
    ACCURACY = "50 m"

    def __init__(self, daemon):
        self.daemon, self.timers = daemon, daemon.timers
        self.outstanding = False
        self.finds = None  # a fix, "denied", or None: nothing within the time-out
        self.started = self.finished = 0

    def ask(self, wifi, cellular):
        if not wifi and not cellular:
            return -1
        if self.outstanding:
            self.daemon.say(f"VESKComm::requestPositionVESK request failed, err: {self.BUSY}")
            return self.BUSY
        self.outstanding = True
        self.timers.start("library", 19_900, lambda: self.finish(self.UNKNOWN))
        self.daemon.later.append(self._search)
        return 0

    def _search(self):
        if self.finds == "denied":
            self.finish(self.DENIED)
            return
        self.started += 1
        if self.finds is not None:
            self.finish(0, self.finds)

    def found(self, fix):
        """GeoClue finds a place for whoever is waiting."""
        if self.outstanding:
            self.finish(0, fix)

    def finish(self, error, fix=None):
        self.outstanding = False
        self.finished += 1
        self.timers.stop("library")
        self.daemon.say(f"VESKComm::veskRequestFinished vsek_err: {error}")
        if error:
            self.daemon.say(f"VESKComm::veskRequestFinished request failed, err: {error}")
        if error == self.UNKNOWN and self.daemon.settings["SuplFallback"]:
            self.daemon.say("PositionDaemon::onPositionUpdateVESK: Unknown location. Fallback to SUPL")
            self.daemon.engine.ask_supl()
        else:
            self.daemon.network_fix(fix, self.ACCURACY)
