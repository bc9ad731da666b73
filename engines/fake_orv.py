#!/usr/bin/env python3
"""The test engine: plays the GNSS engine's side of the socket protocol with a simulated receiver.

lodestard starts it as "python2.6 /usr/lib/lodestard-tests/fake_orv.py" when its source is the test
engine; it can also be started by hand. Further options are taken from the environment variable
FAKE_ORV_OPTIONS, in front of the command line's own. Written in the common subset of Python 2.6
and 3, standard library only.

Somebody walks around a loop under two satellite constellations. A report goes to each session at
its interval; while the receiver searches, each session hears of the satellites every second.
It ends by itself once no daemon is connected and its parent has gone, or after --linger seconds
without a connection.

Control: one text command a datagram, to the control socket (the engine's socket + ".control"); a
sender with an address gets the answer, "ok", "error: ..." or JSON:
  nofix | fix              never get a fix | get it now, and as usual from then on
  lose [SECONDS]           lose the fix, regain it after so long (default: the time to first fix)
  satellites N | all       hear at most N satellites (fewer than 4 give no fix)
  speed KMH                walk at this speed; 0 stands still, with no heading
  supl ok|error|timeout|silent [SECONDS]   how, and after how long, SUPL requests are answered
  assist ok|fail           how the deletion of assistance data is answered
  privacy ok|fail          how the privacy registration is answered
  locationrequest TYPE TRANSACTION [NAME] [ID] [DEFAULT]   "-" leaves a part out
  withdraw TRANSACTION     the engine gives up on that location request
  mute | unmute            stop reporting | go on
  deaf | hear              stop reading requests | go on
  drop                     close the daemon's connection
  raw HEX                  send these bytes as one packet
  state                    sessions, counters and last requests as JSON
  quit                     end
"""
from __future__ import division, print_function

import binascii
import collections
import errno
import json
import math
import optparse
import os
import random
import select
import shlex
import signal
import socket
import struct
import sys
import time

VERSION = '0.1.0'

# ---------------------------------------------------------------------------------------------
# Protocol: bytes out of values and values out of bytes. Big-endian; offsets follow from the formats.

STATUS_PROCESS = 0x01  # the report is to be looked at
STATUS_FIX = 0x40      # its position and velocity hold a fix
START, CHANGE, STOP = 0, 1, 2
SUPL_OK, SUPL_ERROR, SUPL_TIMEOUT = 0, 1, 2
CNO_UNKNOWN, ELEVATION_UNKNOWN, AZIMUTH_UNKNOWN = 0x8000, -128, 0xFFFF

# message id -> (name, format behind the four common header bytes, names of the fields)
REQUESTS = {
    0xEF01: ('gnss', '>HxxBBH', ('session', 'command', 'mode', 'interval')),
    0xEF04: ('supl', '>HHBxxx', ('id', 'parameter', 'kind')),
    0xEF0A: ('delete', '>I', ('mask',)),
    0xEF0C: ('privacy', '>xx', ()),
    0xEF0F: ('reply', '>Bx', ('accepted',)),
}

Satellite = collections.namedtuple('Satellite', 'prn used cno elevation azimuth')  # None: not known


def nearest(value, low, high):
    """The whole number nearest to value, within the field's range."""
    return max(low, min(high, int(math.floor(value + 0.5))))


def parse_request(packet):
    """(name, {field: value}) of a packet; ValueError says what is wrong with it."""
    if len(packet) < 4:
        raise ValueError('%d bytes are no message' % len(packet))
    msg_id, length = struct.unpack('>HH', packet[:4])
    if length != len(packet):
        raise ValueError('0x%04x says %d bytes, has %d' % (msg_id, length, len(packet)))
    if msg_id == 0xEF11:
        return 'servers', parse_servers(packet)
    if msg_id not in REQUESTS:
        raise ValueError('0x%04x is no request' % msg_id)
    name, layout, fields = REQUESTS[msg_id]
    if length != 4 + struct.calcsize(layout):
        raise ValueError('0x%04x of %d bytes' % (msg_id, length))
    return name, dict(zip(fields, struct.unpack(layout, packet[4:])))


def parse_servers(packet):
    if len(packet) < 8:
        raise ValueError('0xef11 of %d bytes' % len(packet))
    primary, secondary, primary_usage, secondary_usage = struct.unpack('>BBBB', packet[4:8])
    if len(packet) != (primary + secondary + 11) // 4 * 4:
        raise ValueError('0xef11 with names of %d and %d in %d bytes' % (primary, secondary, len(packet)))
    text = packet[8:8 + primary + secondary].decode('latin-1')
    return {'primary': text[:primary], 'primary_usage': primary_usage,
            'secondary': text[primary:], 'secondary_usage': secondary_usage}


def message(msg_id, head, blocks=()):
    """head: the four bytes that belong to the message itself."""
    body = head + b''.join(blocks)
    return struct.pack('>HH', msg_id, 4 + len(body)) + body


def block(block_id, body):
    return struct.pack('>HH', block_id, 4 + len(body)) + body


def session_response(session, status):
    return message(0xEF02, struct.pack('>HBx', session, status))


def notification(session, status, blocks):
    return message(0xEF03, struct.pack('>HBB', session, status, len(blocks)), blocks)


def supl_response(request, status, blocks):
    return message(0xEF05, struct.pack('>HBB', request, status, len(blocks)), blocks)


def deletion_response(deleted):
    return message(0xEF0B, struct.pack('>Bxxx', 1 if deleted else 0))


def privacy_response(registered):
    return message(0xEF0D, struct.pack('>Bxxx', 0 if registered else 1))  # 0 is the success here


def location_request(kind, transaction, name=None, client=None, default=None):
    blocks = []
    if name is not None:
        units = name.encode('utf-16-be')[:2 * 255]
        blocks.append(block(0xEF12, struct.pack('>xxxB', len(units) // 2) + units))
    if client is not None:
        units = client.encode('utf-16-be')
        # The one little-endian field of the protocol.
        blocks.append(block(0xEF13, struct.pack('<xxH', len(units) // 2) + units))
    if default is not None:
        blocks.append(block(0xEF14, struct.pack('>xxBx', 1 if default else 0)))
    return message(0xEF0E, struct.pack('>BBxB', kind, transaction, len(blocks)), blocks)


def angle(degrees):
    """Degrees in units of 360 / 2^32; 180 degrees wrap to -180."""
    units = nearest(degrees * 2.0 ** 32 / 360.0, -2 ** 32, 2 ** 32)
    return (units + 2 ** 31) % 2 ** 32 - 2 ** 31


def heading(degrees):
    """Hundredths from -180.00 to 180.00; -0.01 would mean "not known" and goes as 0."""
    if degrees is None:
        return -1
    raw = nearest(((degrees + 180.0) % 360.0 - 180.0) * 100, -18000, 18000)
    return 0 if raw == -1 else raw


def position_block(lat, lon, along, across, orientation, altitude, separation, altitude_error):
    """Degrees and metres; altitude above mean sea level, separation its difference to the ellipsoid's."""
    above_sea, apart = nearest(altitude * 2, -16000, 16000), nearest(separation * 2, -16000, 16000)
    return block(0xEF01, struct.pack(
        '>iiiiBxxxhHh', angle(lat), angle(lon), nearest(along * 100, 0, 10 ** 9),
        nearest(across * 100, 0, 10 ** 9), orientation, above_sea - apart,
        nearest(altitude_error * 2, 0, 65535), apart))


def time_block(epoch):
    """epoch: seconds since 1970, UTC."""
    whole = int(math.floor(epoch))
    t = time.gmtime(whole)
    ms = min(t.tm_sec, 59) * 1000 + min(999, int((epoch - whole) * 1000))
    return block(0xEF02, struct.pack('>HBBxBBxH', t.tm_year, t.tm_mon, t.tm_mday, t.tm_hour, t.tm_min, ms))


def velocity_block(course, course_error, variation, speed, speed_error, climb, climb_error):
    """Degrees and m/s; course may be None."""
    return block(0xEF03, struct.pack(
        '>hHhhHhH', heading(course), nearest(course_error * 100, 0, 65535),
        nearest(variation * 100, -32767, 32767), nearest(speed * 100, 0, 32767),
        nearest(speed_error * 100, 0, 65535), nearest(climb * 100, -32767, 32767),
        nearest(climb_error * 100, 0, 65535)))


def satellites_block(satellites):
    records = [struct.pack(
        '>BBHhH', s.prn - 1, 1 if s.used else 0,
        CNO_UNKNOWN if s.cno is None else nearest(s.cno * 16, 0, 1600),
        ELEVATION_UNKNOWN if s.elevation is None else nearest(s.elevation * 100, 0, 9000),
        AZIMUTH_UNKNOWN if s.azimuth is None else nearest(s.azimuth * 100, 0, 36000) % 36000)
        for s in satellites[:255]]
    return block(0xEF04, struct.pack('>Bxxx', len(records)) + b''.join(records))


# ---------------------------------------------------------------------------------------------
# Simulation: where the walker is and what the sky looks like, as functions of time.

EARTH_RADIUS = 6371008.8          # m, mean radius
SIDEREAL_DAY = 86164.1            # s
GEOID_SEPARATION = -47.5          # m, mean sea level minus ellipsoid, as the protocol counts it
MAGNETIC_VARIATION = 3.2          # degree
MASK_ELEVATION = 5.0              # degree; lower satellites are not listed

# first PRN, number of satellites, orbital planes, inclination (degree), radius (m), period (s)
CONSTELLATIONS = (
    (1, 32, 6, 55.0, 26559700.0, SIDEREAL_DAY / 2),
    (65, 24, 3, 64.8, 25508000.0, SIDEREAL_DAY * 8 / 17),
)

Place = collections.namedtuple('Place', 'lat lon course speed altitude climb')  # course None: standing


def destination(lat, lon, bearing, distance):
    """The point at this great-circle distance (m) and initial bearing (degree)."""
    p, b, d = math.radians(lat), math.radians(bearing), distance / EARTH_RADIUS
    sin_q = math.sin(p) * math.cos(d) + math.cos(p) * math.sin(d) * math.cos(b)
    q = math.asin(max(-1.0, min(1.0, sin_q)))
    east = math.atan2(math.sin(b) * math.sin(d) * math.cos(p), math.cos(d) - math.sin(p) * sin_q)
    return math.degrees(q), (lon + math.degrees(east) + 180.0) % 360.0 - 180.0


def inverse(a, b):
    """(distance in m, initial bearing in degrees) from a to b, haversine."""
    p, q = math.radians(a[0]), math.radians(b[0])
    east = math.radians(b[1] - a[1])
    h = math.sin((q - p) / 2) ** 2 + math.cos(p) * math.cos(q) * math.sin(east / 2) ** 2
    bearing = math.atan2(math.sin(east) * math.cos(q),
                         math.cos(p) * math.sin(q) - math.sin(p) * math.cos(q) * math.cos(east))
    return 2 * EARTH_RADIUS * math.asin(min(1.0, math.sqrt(h))), math.degrees(bearing) % 360.0


def loop_around(start, rng):
    """A smooth closed loop of about a kilometre through start, in legs of some metres."""
    first, second = rng.uniform(0, 2 * math.pi), rng.uniform(0, 2 * math.pi)

    def radius(turn):
        return 150.0 * (1 + 0.25 * math.sin(2 * turn + first) + 0.1 * math.sin(3 * turn + second))

    centre = destination(start[0], start[1], 180.0, radius(0.0))
    turns = [2 * math.pi * k / 180 for k in range(180)]
    return [destination(centre[0], centre[1], math.degrees(turn), radius(turn)) for turn in turns]


class Walk(object):
    """A closed route of great-circle legs, walked at a speed that swings a little."""

    SWING, PERIOD = 0.15, 40.0  # share of the speed, s

    def __init__(self, points, kmh):
        self.legs = []  # start point, end point, length, bearing, distance before it
        self.length = 0.0
        for here, there in zip(points, points[1:] + points[:1]):
            distance, bearing = inverse(here, there)
            if distance > 0:
                self.legs.append((here, there, distance, bearing, self.length))
                self.length += distance
        if not self.legs:
            raise ValueError('a path needs two different points')
        self.since, self.done = 0.0, 0.0
        self.base = kmh / 3.6

    def distance(self, t):
        w = 2 * math.pi / self.PERIOD
        swing = self.SWING * (math.sin(w * t) - math.sin(w * self.since)) / w
        return self.done + self.base * (t - self.since + swing)

    def set_speed(self, t, kmh):
        self.done, self.since, self.base = self.distance(t), t, kmh / 3.6

    def at(self, t):
        walked = self.distance(t)
        along = walked % self.length
        here, there, length, bearing, before = [leg for leg in self.legs if leg[4] <= along][-1]
        point = destination(here[0], here[1], bearing, along - before)
        # Taken from the farther end: a bearing over a few millimetres would be noise.
        if along - before > length / 2:
            course = (inverse(point, here)[1] + 180.0) % 360.0
        else:
            course = inverse(point, there)[1]
        speed = self.base * (1 + self.SWING * math.cos(2 * math.pi * t / self.PERIOD))
        phase = 2 * math.pi / self.length
        return Place(point[0], point[1], course if speed > 0 else None, speed,
                     408.0 + 12.0 * math.sin(phase * along), 12.0 * phase * math.cos(phase * along) * speed)


class Sky(object):
    """Satellites on circular orbits over a turning Earth: they rise and set."""

    def __init__(self, rng):
        self.turn = rng.uniform(0, 2 * math.pi)
        self.strength = dict((prn, rng.uniform(-3.0, 3.0)) for first, count, _, _, _, _ in CONSTELLATIONS
                             for prn in range(first, first + count))

    def position(self, constellation, index, t):
        """Earth-fixed metres."""
        _, count, planes, inclination, radius, period = constellation
        plane, slot = index % planes, index // planes
        node = 2 * math.pi * plane / planes + self.turn - 2 * math.pi * t / SIDEREAL_DAY
        u = 2 * math.pi * (slot * planes / count + plane / count + t / period) + self.turn
        i = math.radians(inclination)
        return (radius * (math.cos(u) * math.cos(node) - math.sin(u) * math.cos(i) * math.sin(node)),
                radius * (math.cos(u) * math.sin(node) + math.sin(u) * math.cos(i) * math.cos(node)),
                radius * math.sin(u) * math.sin(i))

    def above(self, t, lat, lon):
        """Satellites over the mask as Satellite, the highest first; used is always False."""
        p, q = math.radians(lat), math.radians(lon)
        up = (math.cos(p) * math.cos(q), math.cos(p) * math.sin(q), math.sin(p))
        east = (-math.sin(q), math.cos(q), 0.0)
        north = (-math.sin(p) * math.cos(q), -math.sin(p) * math.sin(q), math.cos(p))
        found = []
        for constellation in CONSTELLATIONS:
            for index in range(constellation[1]):
                orbit = self.position(constellation, index, t)
                ray = [orbit[k] - EARTH_RADIUS * up[k] for k in range(3)]
                e, n, u = [sum(ray[k] * axis[k] for k in range(3)) for axis in (east, north, up)]
                elevation = math.degrees(math.atan2(u, math.hypot(e, n)))
                if elevation >= MASK_ELEVATION:
                    prn = constellation[0] + index
                    cno = (27.0 + 19.0 * math.sin(math.radians(elevation)) + self.strength[prn]
                           + 1.5 * math.sin(t / 7.0 + prn))
                    found.append(Satellite(prn, False, cno, elevation, math.degrees(math.atan2(e, n)) % 360))
        return sorted(found, key=lambda s: -s.elevation)


class Receiver(object):
    """When there is a fix: off, searching until `due`, then fixed. due None: never."""

    HOT, COLD = 1.0, 3.0  # s to a fix after a short pause; factor after a deletion
    ACQUIRE = 16          # satellites heard by the time of the fix

    def __init__(self, ttff):
        self.ttff = ttff
        self.on_since = self.due = None
        self.next_start, self.cold, self.allowed, self.limit = ttff, False, True, None

    def start(self, t):
        if self.on_since is None:
            self.search(t, self.next_start)

    def search(self, t, seconds):
        self.on_since, self.due = t, t + seconds

    def stop(self, t):
        if self.has_fix(t):
            self.next_start = min(self.HOT, self.ttff)
        self.on_since = self.due = None

    def forget(self, t):
        """Assistance data is gone: the next fix takes longer, also the one that is there now."""
        self.cold, self.next_start = True, self.COLD * self.ttff
        if self.on_since is not None:
            self.search(t, self.next_start)

    def has_fix(self, t):
        fixed = (self.on_since is not None and self.allowed and t >= self.due
                 and (self.limit is None or self.limit >= 4))
        if fixed:
            self.cold = False
        return fixed

    def hear(self, t, sky):
        """What the receiver makes of the sky: signals come one after another during the search."""
        fixed = self.has_fix(t)
        share = 1.0 if t >= self.due else (t - self.on_since) / (self.due - self.on_since)
        heard = len(sky) if fixed else int(self.ACQUIRE * share)
        heard = heard if self.limit is None else min(heard, self.limit)
        result = []
        for rank, s in enumerate(sky):
            if rank < heard:
                used = fixed and s.elevation >= 10.0 and rank < 12
                # Without an almanac a signal says nothing about where it comes from.
                where = (None, None) if self.cold else (s.elevation, s.azimuth)
                result.append(Satellite(s.prn, used, s.cno, where[0], where[1]))
            elif not self.cold:
                result.append(s._replace(cno=None))
        return result


# ---------------------------------------------------------------------------------------------
# Server: one select loop over the engine's socket, its connections and the control socket.

class Clock(object):
    """Seconds since the start, and the time of day that belongs to them, at --rate times their pace."""

    def __init__(self, rate):
        self.rate = rate
        self.read = getattr(time, 'monotonic', time.time)
        self.begin, self.wall_begin = self.read(), time.time()

    def now(self):
        return (self.read() - self.begin) * self.rate

    def wall(self, t):
        return self.wall_begin + t


def next_due(due, interval, now):
    """Counted on from the last time, so that intervals do not drift; missed ones are left out."""
    return (due if due + interval > now else now) + interval


class Session(object):
    def __init__(self, session_id, interval, now):
        self.id, self.interval, self.due, self.last, self.fixed = session_id, interval, now, None, False


class Link(object):
    """One connected daemon. It starts with nothing running."""

    def __init__(self, sock):
        self.sock, self.sessions, self.supl = sock, {}, []  # supl: (due, request id)


class Listener(object):
    """A Unix socket that takes its path over atomically and gives up only what is its own."""

    def __init__(self, kind, path):
        self.path = path
        self.sock = socket.socket(socket.AF_UNIX, kind, 0)
        staged = '%s.%d' % (path, os.getpid())
        self.sock.bind(staged)
        if kind != socket.SOCK_DGRAM:
            self.sock.listen(8)
        self.sock.setblocking(False)
        # Renamed once it listens: nobody ever finds a socket there that refuses.
        os.rename(staged, path)
        self.inode = os.stat(path).st_ino

    def owns_path(self):
        try:
            return os.stat(self.path).st_ino == self.inode
        except OSError:
            return False

    def close(self):
        self.sock.close()
        if self.owns_path():
            os.unlink(self.path)


SEQPACKET = getattr(socket, 'SOCK_SEQPACKET', 5)


def is_served(path):
    """Does somebody listen there? A socket file that nobody serves does not count."""
    probe = socket.socket(socket.AF_UNIX, SEQPACKET, 0)
    probe.setblocking(False)
    try:
        probe.connect(path)
    except socket.error as error:
        return error.errno in (errno.EAGAIN, errno.EINPROGRESS)
    finally:
        probe.close()
    return True


def read_seconds(text):
    """A time span in a command. Neither infinity nor "not a number" is one."""
    seconds = float(text)
    if not 0 <= seconds < 1e6:
        raise ValueError('seconds from 0 to a million')
    return seconds


def log(text):
    try:
        print('fake_orv: ' + text, file=sys.stderr)
        sys.stderr.flush()
    except (IOError, OSError, ValueError):
        pass  # the daemon's terminal has gone


class Engine(object):
    SEARCH_REPORT = 1.0  # s between two reports without a fix
    LOOK_AROUND = 0.25   # s between two looks whether anybody still needs us

    def __init__(self, options, points):
        rng = random.Random(options.seed)
        self.options = options
        self.clock = Clock(options.rate)
        self.walk = Walk(loop_around(options.start, rng) if points is None else points, options.speed)
        self.sky = Sky(rng)
        self.receiver = Receiver(options.ttff)
        self.links = []
        self.deaf = self.muted = self.over = False
        self.supl_answer, self.supl_delay = 'ok', options.supl_delay
        self.deletes = self.registers = True
        self.parent, self.alone_since = os.getppid(), self.clock.read()
        self.reports = 0
        self.counters, self.last, self.replies, self.servers = {}, {}, [], None
        self.listener = Listener(SEQPACKET, options.socket)
        self.control = Listener(socket.SOCK_DGRAM, options.control or options.socket + '.control')

    # -- the loop

    def run(self):
        try:
            while not self.over:
                self.step()
        finally:
            for link in self.links:
                link.sock.close()
            self.listener.close()
            self.control.close()

    def step(self):
        reading = [self.listener.sock, self.control.sock]
        if not self.deaf:
            reading += [link.sock for link in self.links]
        try:
            ready = select.select(reading, [], [], self.pause())[0]
        except (select.error, OSError) as error:
            if error.args[0] != errno.EINTR:
                raise
            return
        if self.control.sock in ready:
            self.read_control()
        if self.listener.sock in ready:
            self.accept()
        for link in [link for link in self.links if link.sock in ready]:
            self.read_link(link)
        self.serve(self.clock.now())
        self.look_around()

    def pause(self):
        """Seconds until something is due, None when only others can wake us."""
        due = [when for link in self.links for when, _ in link.supl]
        if not self.muted:
            due += [session.due for link in self.links for session in link.sessions.values()]
        waits = [max(0.0, min(due) - self.clock.now()) / self.clock.rate] if due else []
        if self.deaf or not self.links:
            waits.append(self.LOOK_AROUND)
        return min(waits) if waits else None

    def look_around(self):
        if self.links:
            self.alone_since = self.clock.read()
            if not (self.deaf and os.getppid() != self.parent):  # deaf: a dead daemon goes unnoticed
                return
        linger = self.options.linger
        if (os.getppid() != self.parent or not self.listener.owns_path()
                or linger and self.clock.read() - self.alone_since > linger):
            self.over = True

    def accept(self):
        try:
            sock = self.listener.sock.accept()[0]
        except socket.error:
            return
        sock.setblocking(False)
        self.links.append(Link(sock))
        self.count('connections')

    def close_link(self, link):
        if link in self.links:
            self.links.remove(link)
            link.sock.close()
            self.settle_receiver(self.clock.now())

    def read_link(self, link):
        try:
            packet = link.sock.recv(8192)
        except socket.error as error:
            if error.errno not in (errno.EAGAIN, errno.EINTR):
                self.close_link(link)
            return
        if not packet:
            self.close_link(link)
            return
        try:
            name, fields = parse_request(packet)
        except ValueError as error:
            log('ignored: %s' % error)
            self.count('malformed')
            return
        self.count(name)
        self.last[name] = dict(fields, hex=binascii.hexlify(packet).decode('ascii'))
        getattr(self, 'on_' + name)(link, fields)

    def send(self, link, packet):
        try:
            link.sock.send(packet)
            self.count('sent')
        except socket.error as error:
            if error.errno in (errno.EAGAIN, errno.ENOBUFS):
                self.count('unsent')  # the daemon does not read: this one is lost
            else:
                self.close_link(link)

    def send_all(self, packet):
        for link in list(self.links):
            self.send(link, packet)

    def count(self, name):
        self.counters[name] = self.counters.get(name, 0) + 1

    # -- requests

    def on_gnss(self, link, request):
        now, session_id = self.clock.now(), request['session']
        status = 0
        if request['command'] in (START, CHANGE):
            interval = max(1, request['interval'])
            session = link.sessions.get(session_id)
            if session is None or request['command'] == START:
                link.sessions[session_id] = Session(session_id, interval, now)
            else:
                session.interval = interval
                if session.fixed:
                    session.due = max(now, session.last + interval)
        elif request['command'] == STOP:
            status = 0 if link.sessions.pop(session_id, None) else 1
        else:
            status = 2
        self.settle_receiver(now)
        self.send(link, session_response(session_id, status))

    def on_supl(self, link, request):
        if self.supl_answer != 'silent':
            link.supl.append((self.clock.now() + self.supl_delay, request['id']))

    def on_delete(self, link, request):
        if self.deletes and request['mask']:
            self.receiver.forget(self.clock.now())
            self.report_now()
        self.send(link, deletion_response(self.deletes))

    def on_privacy(self, link, _):
        self.send(link, privacy_response(self.registers))

    def on_reply(self, _, request):
        self.replies.append(bool(request['accepted']))

    def on_servers(self, _, request):
        self.servers = request

    # -- reports

    def settle_receiver(self, now):
        """The receiver runs while anybody has a session."""
        if any(link.sessions for link in self.links):
            self.receiver.start(now)
        else:
            self.receiver.stop(now)

    def report_now(self):
        for link in self.links:
            for session in link.sessions.values():
                session.due, session.fixed = self.clock.now(), False

    def serve(self, now):
        for link in list(self.links):
            for due, request in [entry for entry in link.supl if entry[0] <= now]:
                link.supl.remove((due, request))
                self.answer_supl(link, request, now)
            if self.muted:
                continue
            for session in sorted(link.sessions.values(), key=lambda s: s.id):
                if session.due <= now:
                    self.report(link, session, now)

    def report(self, link, session, now):
        fixed = self.receiver.has_fix(now)
        status, blocks = STATUS_PROCESS, []
        place = self.walk.at(now)
        if fixed:
            status |= STATUS_FIX
            blocks += self.fix_blocks(place, now)
            session.due = next_due(session.due if session.fixed else now, session.interval, now)
        else:
            session.due = now + self.SEARCH_REPORT
            if self.receiver.allowed and now < self.receiver.due:
                session.due = min(session.due, self.receiver.due)
        session.fixed, session.last = fixed, now
        blocks.append(satellites_block(self.receiver.hear(now, self.sky.above(now, place.lat, place.lon))))
        self.reports += 1
        if self.reports % 5 == 0:  # of no use to the daemon, and it must not stumble over them
            blocks.insert(0, block(0xEF06, b'\0' * 8))
            blocks.append(block(0xEF15, b'\0' * 12))
        self.send(link, notification(session.id, status, blocks))

    def fix_blocks(self, place, now):
        blur = math.exp(-(now - self.receiver.due) / 15.0)  # accuracy settles after the first fix
        course_error = 180.0 if place.course is None else 2.0 + 20.0 * blur
        return [position_block(place.lat, place.lon, 3.5 + 30.0 * blur, 2.5 + 20.0 * blur, 45,
                               place.altitude, GEOID_SEPARATION, 5.0 + 45.0 * blur),
                time_block(self.clock.wall(now)),
                velocity_block(place.course, course_error, MAGNETIC_VARIATION, place.speed,
                               0.1 + blur, place.climb, 0.2 + blur)]

    def answer_supl(self, link, request, now):
        if self.supl_answer == 'ok':
            place = self.walk.at(now)
            lat, lon = destination(place.lat, place.lon, 37.0 * request % 360.0, 150.0)  # coarse
            blocks = [position_block(lat, lon, 300.0, 250.0, 0, place.altitude, GEOID_SEPARATION, 100.0),
                      time_block(self.clock.wall(now))]
            self.send(link, supl_response(request, SUPL_OK, blocks))
        else:
            status = SUPL_ERROR if self.supl_answer == 'error' else SUPL_TIMEOUT
            self.send(link, supl_response(request, status, []))

    # -- control

    def read_control(self):
        try:
            data, sender = self.control.sock.recvfrom(65536)
        except socket.error:
            return
        try:
            words = [word if isinstance(word, type(u'')) else word.decode('utf-8')
                     for word in shlex.split(data if str is bytes else data.decode('utf-8'))]
            action = getattr(self, 'do_' + words[0], None) if words else None
            if action is None:
                raise ValueError('no such command')
            answer = action(*words[1:]) or 'ok'
        except (ValueError, TypeError, KeyError, struct.error, binascii.Error) as error:
            answer = 'error: %s' % error
        if sender:
            try:
                self.control.sock.sendto(answer.encode('utf-8'), sender)
            except socket.error:
                pass  # the sender did not wait

    def do_fix(self):
        self.receiver.allowed = True
        if self.receiver.on_since is not None:
            self.receiver.due = min(self.receiver.due, self.clock.now())
            self.report_now()

    def do_nofix(self):
        self.receiver.allowed = False
        self.report_now()

    def do_lose(self, seconds=None):
        seconds = self.receiver.ttff if seconds is None else read_seconds(seconds)
        if self.receiver.on_since is not None:
            self.receiver.search(self.clock.now(), seconds)
            self.report_now()

    def do_satellites(self, number):
        self.receiver.limit = None if number == 'all' else int(number)
        self.report_now()

    def do_speed(self, kmh):
        if not 0 <= float(kmh) <= 1000:
            raise ValueError('a speed from 0 to 1000 km/h')
        self.walk.set_speed(self.clock.now(), float(kmh))

    def do_supl(self, answer, seconds=None):
        if answer not in ('ok', 'error', 'timeout', 'silent'):
            raise ValueError('supl ok|error|timeout|silent')
        self.supl_delay = self.supl_delay if seconds is None else read_seconds(seconds)
        self.supl_answer = answer

    def do_assist(self, answer):
        self.deletes = {'ok': True, 'fail': False}[answer]

    def do_privacy(self, answer):
        self.registers = {'ok': True, 'fail': False}[answer]

    def do_locationrequest(self, kind, transaction, name='-', client='-', default='-'):
        self.send_all(location_request(int(kind), int(transaction), None if name == '-' else name,
                                       None if client == '-' else client,
                                       None if default == '-' else default not in ('0', 'no', 'false')))

    def do_withdraw(self, transaction):
        self.send_all(location_request(4, int(transaction)))

    def do_mute(self):
        self.muted = True

    def do_unmute(self):
        self.muted = False

    def do_deaf(self):
        self.deaf = True

    def do_hear(self):
        self.deaf = False

    def do_drop(self):
        for link in list(self.links):
            self.close_link(link)

    def do_raw(self, text):
        self.send_all(binascii.unhexlify(text.encode('ascii')))

    def do_quit(self):
        self.over = True

    def do_state(self):
        now = self.clock.now()
        place = self.walk.at(now)
        return json.dumps({
            'sessions': [{'id': s.id, 'interval': s.interval, 'fixed': s.fixed}
                         for link in self.links for s in link.sessions.values()],
            'connected': len(self.links), 'fix': self.receiver.has_fix(now),
            'searching': self.receiver.on_since is not None and not self.receiver.has_fix(now),
            'latitude': place.lat, 'longitude': place.lon, 'course': place.course, 'speed': place.speed,
            'replies': self.replies, 'servers': self.servers, 'counters': self.counters,
            'last': self.last}, sort_keys=True)


# ---------------------------------------------------------------------------------------------

def read_point(text):
    lat, lon = [float(part) for part in text.split(',')]
    if not (-89.9 <= lat <= 89.9 and -180.0 <= lon <= 180.0):
        raise ValueError('no place on Earth: %s' % text)
    return lat, lon


def read_path(name):
    """Points from "LAT,LON" lines; blank lines and lines that begin with # do not count."""
    with open(name) as lines:
        return [read_point(line) for line in lines if line.strip() and not line.startswith('#')]


class PlainFormatter(optparse.IndentedHelpFormatter):
    """Keeps the line breaks of the description."""

    def format_description(self, description):
        return description + '\n'


def parse_arguments(arguments):
    parser = optparse.OptionParser(usage='%prog [options]', version='%prog ' + VERSION, description=__doc__,
                                   formatter=PlainFormatter())
    add = parser.add_option
    add('--socket', metavar='PATH', default='/tmp/orvd', help='the engine\'s socket [%default]')
    add('--control', metavar='PATH', help='the control socket [the engine\'s socket + ".control"]')
    add('--ttff', type='float', metavar='SECONDS', default=4.0, help='time to first fix [%default]')
    add('--seed', type='int', metavar='N', default=1, help='another seed, another walk and sky [%default]')
    add('--start', metavar='LAT,LON', default='47.3769,8.5417', help='where the walk begins [%default]')
    add('--path', metavar='FILE', help='walk around these "LAT,LON" lines instead')
    add('--speed', type='float', metavar='KMH', default=5.0, help='walking speed [%default]')
    add('--rate', type='float', metavar='N', default=1.0, help='make time pass N times as fast [%default]')
    add('--supl-delay', type='float', metavar='SECONDS', default=1.5, help='until a SUPL answer [%default]')
    add('--linger', type='float', metavar='SECONDS', default=60.0,
        help='end after so long without a connection, 0: never [%default]')
    options, rest = parser.parse_args(shlex.split(os.environ.get('FAKE_ORV_OPTIONS', '')) + arguments)
    if rest:
        parser.error('no arguments are taken: %s' % ' '.join(rest))
    if not (0 <= options.ttff < 1e6 and 0 < options.rate <= 1000 and 0 <= options.speed <= 1000
            and 0 <= options.supl_delay < 1e6 and 0 <= options.linger):
        parser.error('a number is out of range')
    try:
        options.start = read_point(options.start)
        points = read_path(options.path) if options.path else None
    except (ValueError, IOError) as error:
        parser.error(str(error))
    return options, points


def main(arguments):
    options, points = parse_arguments(arguments)
    os.umask(0o077)  # the sockets belong to this user alone
    if is_served(options.socket):
        log('%s is served already' % options.socket)
        return 1
    try:
        engine = Engine(options, points)
    except (OSError, IOError, socket.error, ValueError) as error:
        log('cannot serve %s: %s' % (options.socket, error))
        return 1
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
    signal.signal(signal.SIGINT, lambda *_: sys.exit(0))
    engine.run()
    return 0


if __name__ == '__main__':
    sys.exit(main(sys.argv[1:]))
