"""The whole road: engine, daemon and clients that are ready to talk, and what travels between them."""

import itertools
import math
import struct
import time
from datetime import datetime

from harness import client as app
from harness import files, wire
from harness.daemon import LINE
from harness.geoclue import NAME as GEOCLUE
from harness.geoclue import FakeGeoClue
from harness.mailbox import wait_until

JULIAN_DAY_OF_ORDINAL_0 = 1721425
EMPTY_FIX = bytes(4) + b"\xff" * 4 + b"\0" + struct.pack(">ddd", *[math.nan] * 3) + bytes(4)


class Road:
    """A daemon whose engine is ready. `consent=False` leaves the user's consent out; `clock` is a HandClock.
    Network positions are searched for and not found for 20 s, unless the test brings its own GeoClue or
    `geoclue=False`."""

    def __init__(self, stage, *arguments, consent=True, engine_path=None, clock=None, geoclue=True, **options):
        self.stage = stage
        if geoclue and not stage.system.owner_of(GEOCLUE):
            FakeGeoClue(stage.system)
        if consent:
            files.marker("location_ok")
        self.engine = stage.engine(**({"path": engine_path} if engine_path else {}))
        self.daemon = stage.daemon(*arguments, **({"faketime": clock} if clock else {}), **options)
        self._caller = stage.client()
        self._clock = clock
        if clock:
            self.wind(0.5)
        self.engine.expect(wire.SuplServers)  # the last thing that happens before clients are served
        self._marks = itertools.count(10000)
        self._settled = 0  # the line of the last mark

    def client(self, methods=app.SATELLITE, interval=1000, extra=0, **options):
        """A started client; when it asks for satellites, its session runs on the engine."""
        client = self.stage.client(**options)
        client.start(methods, interval, extra)
        return client

    def satellite_client(self, interval=1000, extra=0, methods=app.SATELLITE, **options):
        client = self.client(methods, interval, extra, **options)
        self.engine.expect(wire.GnssRequest, command=wire.START, session=client.id & 0xFFFF)
        return client

    def mark(self):
        """Returns when the daemon has read all that the engine sent before."""
        mark = next(self._marks)
        self.engine.send(struct.pack(">HH", 0xEF04, mark) + bytes(4))  # a message that is dropped
        self._settled = self.daemon.wait_for_message(f"ORV Message received. id: 0xef04 length: {mark}",
                                                     after=self._settled)

    def settle(self, *clients):
        """Returns when the daemon has dealt with all that engine and clients sent before, and when the
        callbacks that followed have arrived at these clients."""
        self.mark()
        self._caller.latest_position()
        for client in clients:
            client.sync()

    def report(self, session, *blocks, status=wire.WITH_FIX):
        """Sends one notification; a client stands for its session."""
        self.engine.send(wire.notification(getattr(session, "id", session) & 0xFFFF, status, *blocks))

    def fix(self, session, latitude, longitude=8.5, **velocity):
        """Sends a fix at this place, with a velocity when one is given."""
        blocks = [wire.position(latitude, longitude)]
        if velocity:
            blocks.append(wire.velocity(**velocity))
        self.report(session, *blocks)

    def supl(self, latitude, longitude=8.5):
        """Sends a SUPL answer that nobody asked for."""
        self.engine.send(wire.supl_response(0, wire.position(latitude, longitude)))

    def wind(self, seconds):
        """Moves the daemon's HandClock on; what becomes due is done then."""
        self._clock.wind(self._caller, seconds)

    def lines(self, start):
        """The messages that begin with this text."""
        return [text for text in self.daemon.messages() if text.startswith(start)]


def next_millisecond():
    """Two fixes that are to differ in their time stamps must not come within the same one."""
    start = time.time_ns() // 1_000_000
    wait_until(lambda: time.time_ns() // 1_000_000 > start, "the clock goes on", poll=0.001)


def near(degrees):
    """A test for fixes: at this latitude, within the wire's resolution."""
    return lambda fix: abs(fix.latitude - degrees) < 1e-7


def latitudes(fixes):
    return [round(fix.latitude, 6) for fix in fixes]


def single(value):
    """The nearest single-precision number, in which attributes travel."""
    return struct.unpack(">f", struct.pack(">f", value))[0]


def fix_tail(latitude, longitude, altitude, attributes):
    """The bytes of a fix behind its time stamp."""
    return struct.pack(">dddI", latitude, longitude, altitude, len(attributes)) + b"".join(
        struct.pack(">id", code, single(value)) for code, value in attributes.items())


def satellite_list(*rows):
    """The bytes of a satellite list: rows of PRN, signal and the attributes by their codes."""
    return struct.pack(">i", len(rows)) + b"".join(
        struct.pack(">iiI", prn, signal, len(attributes))
        + b"".join(struct.pack(">id", code, single(value)) for code, value in attributes.items())
        for prn, signal, attributes in rows)


def stamp(fix):
    """A fix's time stamp as the local date and time that it names."""
    day = datetime.fromordinal(fix.julian_day - JULIAN_DAY_OF_ORDINAL_0)
    seconds, milliseconds = divmod(fix.milliseconds, 1000)
    return day.replace(hour=seconds // 3600, minute=seconds // 60 % 60, second=seconds % 60,
                       microsecond=1000 * milliseconds)


def time_between(daemon, first, second, count=1):
    """Seconds on the daemon's clock from one line to another: texts that the lines hold."""
    start = daemon.stdout.wait_index(first)
    end = daemon.stdout.wait_index(second, after=start + 1, count=count)
    clocks = [datetime.strptime(LINE.match(daemon.lines()[index])[1], "%H:%M:%S") for index in (start, end)]
    return (clocks[1] - clocks[0]).total_seconds() % 86400
