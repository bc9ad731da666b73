"""The daemon's side of a conversation with the test engine, and a reading of its packets that
shares nothing with the engine's own code: offsets are written out."""

import json
import math
import os
import socket
import struct
import subprocess
import sys
import time
from pathlib import Path

ENGINE = Path(__file__).resolve().parents[2] / "engines" / "fake_orv.py"
DEADLINE = 20.0
EARTH_RADIUS = 6371008.8


def wait_until(condition, what):
    end = time.monotonic() + DEADLINE
    while not condition():
        assert time.monotonic() < end, f"waited too long until {what}"
        time.sleep(0.01)


class Engine:
    """A running test engine in a directory of its own."""

    def __init__(self, directory, *options, before=(), environment=None):
        self.directory = Path(directory)
        self.path = str(self.directory / "orvd")
        self.log = self.directory / "log"
        self.peers = 0
        with open(self.log, "ab") as log:
            self.process = subprocess.Popen(
                [*before, sys.executable, ENGINE, "--socket", self.path, *map(str, options)], stderr=log,
                stdin=subprocess.DEVNULL, env={**os.environ, **(environment or {})})
        wait_until(lambda: os.path.exists(self.path + ".control") or self.process.poll() is not None, "it serves")

    def daemon(self):
        return Daemon(self.path)

    def tell(self, command):
        """Sends one control command and returns the answer."""
        self.peers += 1
        own = str(self.directory / f"teller{self.peers}")
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sock:
            sock.settimeout(DEADLINE)
            sock.bind(own)
            sock.sendto(command.encode(), self.path + ".control")
            answer = sock.recv(1 << 20).decode()
        os.unlink(own)
        return answer

    def state(self):
        return json.loads(self.tell("state"))

    def stop(self):
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait(DEADLINE)


class Daemon:
    """One connection to the engine."""

    def __init__(self, path):
        self.sock = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        self.sock.settimeout(DEADLINE)
        self.sock.connect(path)

    def send(self, text):
        self.sock.send(bytes.fromhex(text))

    def request(self, session, command, interval, mode=2):
        self.sock.send(struct.pack(">HHHHBBH", 0xEF01, 12, session, 0, command, mode, interval))

    def receive(self):
        """The next packet; b"" when the engine closed the connection."""
        return self.sock.recv(8192)

    def next(self, *message_ids):
        """The next packet with one of these ids; others are passed over."""
        end = time.monotonic() + DEADLINE
        while time.monotonic() < end:
            packet = self.receive()
            assert packet, "the engine closed the connection"
            if struct.unpack_from(">H", packet)[0] in message_ids:
                return packet
        raise AssertionError(f"no {[hex(i) for i in message_ids]} came")

    def start(self, session=6000, interval=1):
        self.request(session, 0, interval)
        return self.next(0xEF02)

    def report(self, wanted=lambda report: True):
        """The next GNSS report that is as wanted."""
        end = time.monotonic() + DEADLINE
        while time.monotonic() < end:
            report = Report(self.next(0xEF03))
            if wanted(report):
                return report
        raise AssertionError("no such report came")

    def fix(self, session=None):
        return self.report(lambda r: r.is_fix and session in (None, r.session))

    def close(self):
        self.sock.close()


class Report:
    """A GNSS notification, read from its bytes."""

    def __init__(self, packet):
        self.packet = packet
        message_id, length, self.session, self.status, count = struct.unpack_from(">HHHBB", packet, 0)
        assert message_id == 0xEF03 and length == len(packet)
        self.blocks = sub_blocks(packet, count)
        self.ids = [block_id for block_id, _ in self.blocks]
        self.is_fix = bool(self.status & 0x40)
        by_id = dict(self.blocks)
        if 0xEF01 in by_id:
            self.position = Position(by_id[0xEF01])
        if 0xEF02 in by_id:
            self.seconds = clock_seconds(by_id[0xEF02])
        if 0xEF03 in by_id:
            assert len(by_id[0xEF03]) == 18
            (self.heading, self.heading_error, self.variation, self.speed, self.speed_error, self.climb,
             self.climb_error) = struct.unpack_from(">hHhhHhH", by_id[0xEF03], 4)
        self.satellites = satellites(by_id[0xEF04])

    def heard(self):
        return [s for s in self.satellites if s.cno != 0x8000]


class Position:
    def __init__(self, block):
        assert len(block) == 30
        lat, lon, self.along, self.across = struct.unpack_from(">iiii", block, 4)
        self.lat, self.lon = lat * 360 / 2**32, lon * 360 / 2**32
        self.altitude, self.altitude_error, self.separation = struct.unpack_from(">hHh", block, 24)


class SatelliteRecord:
    def __init__(self, record):
        self.number, self.used, self.cno, self.elevation, self.azimuth = struct.unpack(">BBHhH", record)


def sub_blocks(packet, count):
    """[(id, bytes)] of exactly count sub-blocks that fill the packet."""
    found, offset = [], 8
    for _ in range(count):
        block_id, length = struct.unpack_from(">HH", packet, offset)
        assert 4 <= length <= len(packet) - offset
        found.append((block_id, packet[offset:offset + length]))
        offset += length
    assert offset == len(packet)
    return found


def satellites(block):
    assert len(block) == 8 + 8 * block[4] and block[5:8] == b"\0\0\0"
    return [SatelliteRecord(block[i:i + 8]) for i in range(8, len(block), 8)]


def clock_seconds(block):
    """Seconds since 1970 of a time block."""
    import calendar
    assert len(block) == 14
    year, month, day, hours, minutes = struct.unpack_from(">HBBxBB", block, 4)
    ms, = struct.unpack_from(">H", block, 12)
    assert ms < 60000
    return calendar.timegm((year, month, day, hours, minutes, 0)) + ms / 1000


def vector(lat, lon):
    p, q = math.radians(lat), math.radians(lon)
    return math.cos(p) * math.cos(q), math.cos(p) * math.sin(q), math.sin(p)


def between(a, b):
    """(distance in m, bearing in degrees) from (lat, lon) a to b, by vectors."""
    u, v = vector(*a), vector(*b)
    step = [y - x for x, y in zip(u, v)]
    distance = 2 * EARTH_RADIUS * math.asin(math.sqrt(sum(s * s for s in step)) / 2)
    lat, lon = math.radians(a[0]), math.radians(a[1])
    east = -math.sin(lon) * step[0] + math.cos(lon) * step[1]
    north = (-math.sin(lat) * math.cos(lon) * step[0] - math.sin(lat) * math.sin(lon) * step[1]
             + math.cos(lat) * step[2])
    return distance, math.degrees(math.atan2(east, north)) % 360


def turned(a, b):
    """The angle between two directions, 0 to 180 degrees."""
    return abs((a - b + 180) % 360 - 180)
