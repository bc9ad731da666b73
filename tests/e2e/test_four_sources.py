"""All four sources at once: an hour of the daemon's clock with clients that come, go and change their minds.

Everything that happens is drawn from one seed, LODESTARD_SEED, and happens to the daemon and to the model in
harness/model.py alike. After each step both must have done the same. The clock moves between the steps only.
"""

import math
import os
import random
import re
from collections import Counter
from dataclasses import replace

from harness import client as app
from harness import sidechannel, wire
from harness.clock import StandingClock
from harness.daemon import LINE, is_sanitized
from harness.geoclue import FakeGeoClue, Place
from harness.gypsy import ADDRESS, OTHER, Device, ExternalRoad
from harness.mailbox import wait_until
from harness.model import ADDRESS as ADDRESS_KEY
from harness.model import INTERNAL, ModelDaemon
from harness.settings import KEYS
from harness.sidechannel import SideChannelPeer
from harness.stream import read_fix

HOUR = 3600
CLIENTS = 20
SEED = int(os.environ.get("LODESTARD_SEED", "6"))
METHODS = 3 * (app.SATELLITE, app.NON_SATELLITE, app.ALL) + (0x01, 0x100, 0x1FF, 0)
INTERVALS = (0, 1000, 2000, 3000, 4000, 5000, 7000, 10000, 15000, 30000, 60000, 120000, 600000, 666000)
SWITCHES = ("Positioning", "SatellitePositioning", INTERNAL, "CellularPositioning", "WiFiPositioning",
            "NetworkConnectivity", "SuplForced")
ENGINE, GYPSY, SUPL, GEOCLUE, SIDE_CHANNEL = "engine", "Gypsy", "SUPL", "GeoClue", "side channel"
ALLOWED_GROWTH = 1024  # KiB within 50 minutes, with the rows and sessions that stay
USUAL = {"SuplForced": False}  # the others are on
# What the scenario explains above debug: sessions and rows of clients that have left, and refusals that
# it asks for. How many of each there must be says the model.
EXPLAINED = {
    "PositionDaemon::onPositionUpdateGNSS: Invalid GNSS session id from ORV.",
    "PositionDaemon::onUpdateTimeoutGNSS: Invalid GNSS session id from ORV.",
    "onPositionUpdateSUPL: Invalid client in receiver list.",
    "VESKComm::requestPositionVESK request failed, err: -2101",
    "VESKComm::veskRequestFinished request failed, err: -2104",
    "VESKComm::veskRequestFinished request failed, err: -2105",
    "ORVComm::handleSUPLResponse: SUPL connection error",
    "ORVComm::handleSUPLResponse: SUPL timeout",
    "Unknown VESK request!",
}
# The lines that tell what the daemon does; those above debug are compared as well.
TELLING = re.compile(r"assignClients$|startSessions|Scheduler::(add|set|remove|nextStep)|Sending (GNSS fix|update) to"
                     r"|GNSS mode|Gypsy mode|PositionDaemon: |PositionDaemon::onPositionUpdate"
                     r"|VESKComm::veskRequestFinished vsek_err")
ANSWERED = "VESKComm::veskRequestFinished vsek_err"
TABLE = "### Scheduler::dumpClientTable"
ROW = re.compile(r"id: (\d+), interval: (\d+)s, elapsed")
STEP = 360 / 2**18  # degrees from one fix to the next: the engine's units and doubles both hold them exactly
LONGITUDE = 22.5


def latitude(number):
    """Where the fix of this number is."""
    return number * STEP


def number_of(degrees):
    return None if math.isnan(degrees) else round(degrees / STEP)


def take(items):
    """The list's items; it is empty afterwards."""
    taken = items[:]
    items.clear()
    return taken


class Witness:
    """What the daemon has done since the last look, in the model's words."""

    def __init__(self, road, peer):
        self.warnings = Counter()
        self.rows = []  # the schedule as listed last: id and interval
        self._daemon, self._engine, self._peer = road.daemon, road.engine, peer
        self._calls = road.bluez.calls  # Gypsy's are among them
        self._called = 0
        self._heard = {}  # by client: callbacks that have been looked at
        self.line = self._daemon.mark()
        self._engine.skip()

    def trace(self):
        self._daemon.lines()
        lines = self._daemon.stdout.since(self.line)
        self.line += len(lines)
        told = []
        for level, text in (match.group(2, 3) for match in map(LINE.match, lines) if match):
            if level != "Debug":
                self.warnings[text] += 1
            if level != "Debug" or TELLING.match(text):
                told.append(text)
            elif text.startswith(TABLE):
                self.rows = []
            elif row := ROW.match(text):
                self.rows.append((int(row[1]), int(row[2])))
        return told

    def engine_asked(self):
        messages = self._engine.pending()
        self._engine.skip()
        return ["SUPL" if isinstance(message, wire.SuplRequest) else
                (message.command, message.session, message.mode, message.interval)
                for message in messages if isinstance(message, (wire.SuplRequest, wire.GnssRequest))]

    def gypsy_asked(self):
        calls = self._calls.since(self._called)
        self._called += len(calls)
        return [f"{method} {(arguments[0] if arguments else path).rsplit('/', 1)[-1].replace('_', ':')}"
                for path, _, method, arguments in calls if method in ("Create", "Start", "Shutdown", "GetFixStatus")]

    def heard_by(self, application):
        """Fixes, methods on offer, kinds of satellite lists."""
        application.sync()
        callbacks = application.callbacks.since(self._heard.get(application.id, 0))
        self._heard[application.id] = len(application.callbacks)
        lists = {"satellitesInViewUpdate": "view", "satellitesInUseUpdate": "use"}
        return ([number_of(c.fix.latitude) for c in callbacks if c.method == "positionUpdate"],
                [c.value[0] for c in callbacks if c.method == "currentSettings"],
                [lists[c.method] for c in callbacks if c.method in lists])

    def heard_by_peer(self):
        """Settings and fixes of the side channel."""
        self._peer.sync()
        settings, fixes = self._peer.settings.items(), [number_of(p[0]) for p in self._peer.positions.items()]
        self._peer.settings.clear()
        self._peer.positions.clear()
        return settings, fixes


class World:
    """The daemon with everything around it, and beside it the model."""

    def __init__(self, stage, seed):
        self.random = random.Random(seed)
        self.stage, self.clock = stage, StandingClock()
        self.geoclue = FakeGeoClue(stage.system)
        self.road = ExternalRoad(stage, internal=True, faketime=self.clock)
        self.clock.stop()
        self.daemon, self.engine = self.road.daemon, self.road.engine
        self.settings, self.peer = stage.settings(), SideChannelPeer(stage.system)
        self.model = ModelDaemon({**{key: default for key, _, default, _ in KEYS}, ADDRESS_KEY: ADDRESS})
        self.apps = {}   # by id
        self.steps = []  # what has happened
        self.fixes = 0
        self.heard_from = Counter()
        self._sources = {}  # by fix: who told of it last
        self._side = stage.system.owner_of(sidechannel.NAME)
        self._found = 0  # answers of GeoClue that have been waited for
        self.road.settle()
        self.witness = Witness(self.road, self.peer)

    # ---- comparing

    def step(self, *words):
        """Called when something has been done to both: lets it take effect, and compares."""
        self.steps.append(f"{self.clock.now} s: " + " ".join(map(str, words)))
        self.settle()
        self.compare()

    def settle(self):
        """Both have done all that follows."""
        self.model.settle()
        self.road.mark()
        self._ping(self.road.gypsy.connection)
        self.road.settle()
        library = self.model.library
        if len(self.geoclue.started) < library.started or self._found < library.finished:
            wait_until(lambda: len(self.geoclue.started) >= library.started, "GeoClue was asked")
            if self._found < library.finished:
                self.daemon.stdout.wait_index(ANSWERED, after=self.witness.line, count=library.finished - self._found)
            self._found = library.finished
            self.road.settle()

    def _ping(self, connection):
        """The daemon's bus thread has taken in what this connection sent."""
        self.stage.system.call(connection, self._side, "/", "org.freedesktop.DBus.Peer", "Ping")

    def compare(self, everybody=False):
        """`everybody`: also those who should have heard nothing."""
        model, witness, last = self.model, self.witness, "\n".join(["", *self.steps[-12:]])
        assert witness.trace() == take(model.trace), last
        assert witness.rows == [(row.id, row.interval) for row in model.scheduler.rows], last
        assert witness.engine_asked() == take(model.engine.asked), last
        assert witness.gypsy_asked() == take(model.external.asked), last
        for id, application in self.apps.items():
            client = model.clients[id]
            if everybody or client.heard or client.masks or client.satellites:
                self.heard_from.update(map(self._sources.get, client.heard))
                expected = take(client.heard), take(client.masks), take(client.satellites)
                assert witness.heard_by(application) == expected, f"client {id}{last}"
        if everybody or model.told or model.streamed:
            self.heard_from[SIDE_CHANNEL] += len(model.streamed)
            assert witness.heard_by_peer() == (take(model.told), take(model.streamed)), last

    # ---- time

    def move(self, seconds, punctual=True):
        """Timers fire when they are due, or all late at the end."""
        end = self.clock.now + seconds
        while self.clock.now < end:
            due = self.model.timers.next()
            delta = end - self.clock.now
            if punctual and due is not None:
                delta = max(1, min(delta, math.ceil(due / 1000) - self.clock.now))
            if self.geoclue.place:
                self.geoclue.place = replace(self.geoclue.place, stamp=self.clock.seconds_since_1970() + delta)
            self.clock.move(delta)
            self.road.mark()  # wakes it up
            self.model.advance(1000 * self.clock.now)
            self.step("moved the clock")


class Life(World):
    """What happens, each drawn from the seed and done to both."""

    def new_fix(self, source):
        self.fixes += self.random.random() < 0.9  # now and then the same place again
        self._sources[self.fixes] = source
        return self.fixes

    def arrive(self):
        if len(self.apps) < CLIENTS:
            start = self.random.choice((app.START, app.START | app.SATINFO_START, 0))
            self.configure(self.newcomer(), app.SET_METHOD | app.SET_INTERVAL | start)

    def newcomer(self):
        application = self.stage.client()
        application.register()
        client = self.model.register()
        assert (application.id, application.methods) == (client.id, self.model.offered)
        self.apps[client.id] = application
        return client.id

    def configure(self, id, command, methods=None, interval=None):
        methods = self.random.choice(METHODS) if methods is None else methods
        interval = self.random.choice(INTERVALS) if interval is None else interval
        assert self.apps[id].configure(command, methods, interval) == 0
        self.model.configure(self.model.clients[id], command, methods, interval)
        self.step("client", id, hex(command), hex(methods), interval)

    def change(self):
        if self.apps:
            self.configure(self.random.choice(list(self.apps)), self.random.choice(
                (app.START, app.STOP, app.START | app.SET_METHOD, app.START | app.SET_INTERVAL,
                 self.random.getrandbits(6))))

    def leave(self):
        if len(self.apps) < CLIENTS / 2:
            return
        id = self.random.choice(list(self.apps))
        if self.random.random() < 0.7:  # most are polite
            self.configure(id, app.STOP)
        self.goodbye(id)

    def goodbye(self, id):
        self.compare(everybody=True)
        self.apps.pop(id).vanish()
        self.model.leave(id)
        self.daemon.wait_for_message(f"PositionDaemon: Removing client with id: {id}", after=self.witness.line)
        self.step("client", id, "left")

    def prestart(self):
        satellite, network = self.random.choice(((True, True), (True, False), (False, True)))
        next(iter(self.apps.values()), self.stage.client()).prestart(satellite, network)
        self.model.prestart(app.SATELLITE * satellite | app.NON_SATELLITE * network)
        self.step("prestart", satellite, network)

    def switch(self):
        key = self.random.choice((*SWITCHES, INTERNAL, INTERNAL))
        usual = USUAL.get(key, True)
        self.set(key, usual if self.random.random() < (0.5 if key == INTERNAL else 0.65) else not usual)

    def set(self, key, value):
        assert self.settings.set(key, value)
        self.model.set(key, value)
        self.step(key, "=", value)

    def readdress(self):
        self.set(ADDRESS_KEY, self.random.choice((ADDRESS, ADDRESS, OTHER, "")))

    def report(self):
        """The engine tells every session of the same place."""
        fix = self.new_fix(ENGINE)
        for id in dict.fromkeys(session.id for session in self.model.engine.sessions):
            self.notify(id, fix)
            if self.model.later:  # a peer was asked, and may answer before the next packet
                self.step("engine:", id, fix)
        self.step("engine, all:", fix)

    def report_one(self):
        sessions = [session.id for session in self.model.engine.sessions]
        id, fix = self.random.choice([*sessions, 17]), self.random.choice((None, self.new_fix(ENGINE)))
        self.notify(id, fix, self.random.random() < 0.5)
        self.step("engine, one:", id, fix)

    def notify(self, id, fix, satellites=False):
        blocks = [wire.position(latitude(fix), LONGITUDE)] if fix is not None else []
        if satellites:
            blocks.insert(0, wire.satellites(wire.satellite(5, used=1, signal=40)))
        self.road.report(id, *blocks, status=wire.NO_FIX if fix is None else wire.WITH_FIX)
        self.model.engine.report(id, fix, satellites)

    def supl(self, status=None):
        """Mostly an answer to the engine's oldest question, now and then one that nobody asked for."""
        status, fix = self.random.choice((0, 0, 0, 1, 2)) if status is None else status, self.new_fix(SUPL)
        self.engine.send(wire.supl_response(status, *[] if status else [wire.position(latitude(fix), LONGITUDE)]))
        self.model.supl_answer(status, fix)
        self.step("SUPL", status, fix)

    def geoclue_mood(self):
        finds = self.random.choice((self.new_fix(GEOCLUE), self.new_fix(GEOCLUE), "denied", None))
        self.model.library.finds = finds
        self.geoclue.denied = finds == "denied"
        self.geoclue.place = self.place(finds) if isinstance(finds, int) else None
        self.step("GeoClue:", finds)

    def geoclue_finds(self):
        fix = self.new_fix(GEOCLUE)
        self.geoclue.find(self.place(fix))
        self.model.library.found(fix)
        self.step("GeoClue finds", fix)

    def place(self, fix):
        return Place(latitude(fix), accuracy=50.0, stamp=self.clock.seconds_since_1970())

    def device(self):
        address = self.model.external.address or ADDRESS
        return address, self.road.gypsy.device(address)

    def gypsy_position(self):
        fix, (_, device) = self.new_fix(GYPSY), self.device()
        device.position(7, 0, latitude(fix), LONGITUDE, 0.0)
        self.model.external.position(fix)
        self.step("Gypsy:", fix)

    def gypsy_accuracy(self):
        _, device = self.device()
        device.accuracy(Device.HDOP, 0.0, 1.2, 0.0)
        self.model.external.accuracy()
        self.step("Gypsy: accuracy")

    def gypsy_status(self):
        status, (address, device) = self.random.choice((1, 2, 3)), self.device()
        device.fix(status)
        self.model.external.device_status[address] = status
        self.model.external.fix_status(status)
        self.step("Gypsy: fix status", status)

    def gypsy_lost(self):
        """The receiver is out of reach, and Gypsy may say so more than once."""
        for _ in range(self.random.choice((1, 2)) if self.model.external.sessions else 0):
            self.device()[1].connected(False)
            self.model.external.connection(False)
            self.step("Gypsy: receiver lost")
            self.move(3)

    def ask_side_channel(self, command=None):
        command = command or self.random.choice((1, 1, 1, 2, 0x81, 0x82, 0x83, 0x84, 0x85))
        self.peer.request(command)
        self._ping(self.peer.connection)
        self.model.peer_request(command)
        self.step("side channel", hex(command))

    def ask_latest(self):
        application = next(iter(self.apps.values()), None)
        if application:
            got = read_fix(application.latest_position()).latitude
            assert number_of(got) == self.model.latest()

    WEIGHTS = {report: 8, report_one: 3, gypsy_position: 4, gypsy_status: 2, gypsy_accuracy: 1, gypsy_lost: 1, supl: 2,
               geoclue_mood: 2, geoclue_finds: 1, arrive: 3, change: 5, leave: 1.5, prestart: 0.3, switch: 3,
               readdress: 0.3, ask_side_channel: 1.5, ask_latest: 2}

    def overture(self):
        """Every source is heard once, whatever the seed brings."""
        network, satellites = self.newcomer(), self.newcomer()
        begin = app.SET_METHOD | app.SET_INTERVAL | app.START
        self.configure(network, begin, app.NON_SATELLITE, 2000)
        self.geoclue_finds()
        self.set("SuplForced", True)
        self.move(3)
        self.supl(0)
        self.set("SuplForced", False)
        self.configure(satellites, begin, app.SATELLITE, 1000)
        self.ask_side_channel(sidechannel.START)
        self.report()
        self.set(INTERNAL, False)
        self.gypsy_position()
        self.set(INTERNAL, True)

    def live(self, until):
        """Things happen, and time passes, until then."""
        while self.clock.now < until:
            for happen in self.random.choices(list(self.WEIGHTS), self.WEIGHTS.values(), k=self.random.randint(1, 3)):
                happen(self)
            self.move(self.random.choice((1, 2, 3, 5, 8, 13)), punctual=self.random.random() < 0.15)
        self.compare(everybody=True)

    def close_down(self):
        """The user allows everything again, and every client stops and goes."""
        for key in SWITCHES:
            self.set(key, USUAL.get(key, True))
        for id in list(self.apps):
            self.configure(id, app.STOP)
            self.goodbye(id)
        self.move(20)  # the last prestart client goes
        self.compare(everybody=True)


class Footprint:
    """What the daemon holds of the machine."""

    def __init__(self, daemon):
        self.descriptors = sorted(os.readlink(f"/proc/{daemon.pid}/fd/{fd}").split(":")[0]
                                  for fd in os.listdir(f"/proc/{daemon.pid}/fd"))
        self.kilobytes = int(daemon.status("VmRSS").split()[0])


def test_an_hour_of_all_four_sources(stage):
    print(f"LODESTARD_SEED={SEED}")
    world = Life(stage, SEED)
    before = Footprint(world.daemon)
    world.overture()
    world.live(HOUR // 6)
    warm = Footprint(world.daemon)
    world.live(HOUR)
    world.close_down()
    after = Footprint(world.daemon)
    print(f"{len(world.steps)} steps, {after.kilobytes - warm.kilobytes} KiB more")
    print(f"fixes {world.heard_from}, explained {world.witness.warnings}")

    assert set(world.witness.warnings) <= EXPLAINED
    assert after.descriptors == before.descriptors
    # What a sanitizer's build does not give back it tells of itself, when it ends.
    assert is_sanitized() or after.kilobytes < warm.kilobytes + ALLOWED_GROWTH
    # All sources have had their say, the side channel among those who heard it.
    assert all(world.heard_from[source] for source in (ENGINE, GYPSY, SUPL, GEOCLUE, SIDE_CHANNEL))
    # Nobody is left. The rows and sessions that are belong to clients that have gone.
    assert world.model.clients == {} and world.apps == {}
    assert (world.model.scheduler.rows, world.model.engine.sessions) != ([], [])
