"""orvd-gpsd as a child process, and a daemon's end of its socket. Nothing of it is shared with the
program's own code, so that the two check each other."""

import os
import socket
import struct
import subprocess
import threading
from dataclasses import dataclass, field

from harness.mailbox import DEADLINE, Mailbox, wait_until

START, CHANGE_INTERVAL, STOP = 0, 1, 2
UNKNOWN_ERROR_CM = (1 << 30) - 1


def program():
    return os.environ.get("ORVD_GPSD") or f"{os.environ['LODESTARD_BUILD']}/engines/orvd-gpsd/orvd-gpsd"


class OrvdGpsd:
    """The process: its standard error by line, and its end."""

    def __init__(self, *arguments, socket_path="/tmp/engine/socket", port=2947, environment=None, wrapper=()):
        self.socket_path = socket_path
        self.log = Mailbox("orvd-gpsd")
        self._process = subprocess.Popen(
            [*wrapper, program(), "--verbose", "--socket", socket_path, "--host", "127.0.0.1", "--port",
             str(port), *arguments],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True,
            env={**os.environ, **(environment or {})})
        self._thread = threading.Thread(target=self._read, daemon=True)
        self._thread.start()

    def _read(self):
        for line in self._process.stderr:
            self.log.append(line.rstrip("\n"))
        self.log.close()

    @property
    def pid(self):
        return self._process.pid

    def wait_serving(self):
        self.log.wait_for("orvd-gpsd: Serving ")
        return self

    def is_running(self):
        return self._process.poll() is None

    def signal(self, number):
        self._process.send_signal(number)

    def wait_exit(self):
        status = self._process.wait(DEADLINE)
        self._thread.join(DEADLINE)
        return status

    def stop(self):
        """Ends the process, and fails if it did not end well."""
        if self.is_running():
            self._process.terminate()
        try:
            status = self.wait_exit()
        except subprocess.TimeoutExpired:
            self._process.kill()
            raise AssertionError("orvd-gpsd did not end on SIGTERM") from None
        assert status >= 0 and "Sanitizer" not in "\n".join(self.log.items()), "\n".join(self.log.items())
        return status


@dataclass
class Satellite:
    prn: int
    used: bool
    signal: float = None      # dB-Hz
    elevation: float = None   # degrees
    azimuth: float = None


@dataclass
class Report:
    """A notification, or the answer to a SUPL request (session None). What is not known is None."""

    session: int
    status: int
    latitude: float = None
    longitude: float = None
    along: float = None       # m
    ortho: float = None
    angle: int = None
    ellipsoid: float = None   # m
    sea_level: float = None
    vertical_error: float = None
    time: tuple = None        # year, month, day, hours, minutes, milliseconds
    heading: float = None
    speed: float = None
    climb: float = None
    variation: float = None
    satellites: list = None
    blocks: list = field(default_factory=list)

    @property
    def has_fix(self):
        return bool(self.status & 0x40) if self.session is not None else self.status == 0


@dataclass
class Answer:
    """Any other message of the engine."""

    id: int
    body: bytes


def _known(value, unknown, unit):
    return None if value == unknown else value * unit


def _position(report, body):
    latitude, longitude, along, ortho, report.angle = struct.unpack_from(">iiiiB", body, 4)
    altitude, error, geoid = struct.unpack_from(">hHh", body, 24)
    report.latitude, report.longitude = latitude * 360 / 2**32, longitude * 360 / 2**32
    report.along, report.ortho = (_known(v, UNKNOWN_ERROR_CM, 0.01) for v in (along, ortho))
    report.ellipsoid, report.sea_level = altitude / 2, (altitude + geoid) / 2
    report.vertical_error = _known(error, 0xFFFF, 0.5)


def _velocity(report, body):
    heading, _, variation, speed, _, climb, _ = struct.unpack_from(">hHhhHhH", body, 4)
    report.heading, report.speed = _known(heading, -1, 0.01), _known(speed, -1, 0.01)
    report.variation, report.climb = _known(variation, -32768, 0.01), _known(climb, -32768, 0.01)


def _satellites(report, body):
    assert len(body) == 8 + 8 * body[4], body.hex()
    report.satellites = []
    for number, used, signal, elevation, azimuth in struct.iter_unpack(">BBHHH", body[8:]):
        assert used in (0, 1)
        degrees = elevation - 0x10000 if elevation & 0x8000 else elevation
        report.satellites.append(Satellite(
            number + 1, used == 1, _known(signal, 0x8000, 1 / 16),
            None if elevation == 0xFF80 else degrees / 100, _known(azimuth, 0xFFFF, 0.01)))


def parse(packet):
    """A message of the engine; whatever breaks the layout is an AssertionError."""
    identifier, length = struct.unpack_from(">HH", packet)
    assert length == len(packet), packet.hex()
    if identifier not in (0xEF03, 0xEF05):
        return Answer(identifier, packet[4:])
    session, status, count = struct.unpack_from(">HBB", packet, 4)
    report = Report(session if identifier == 0xEF03 else None, status)
    offset = 8
    for _ in range(count):
        block, size = struct.unpack_from(">HH", packet, offset)
        body = packet[offset:offset + size]
        assert 4 <= size == len(body), packet.hex()
        assert block not in report.blocks, f"{block:#x} twice"
        report.blocks.append(block)
        if block == 0xEF01:
            _position(report, body)
        elif block == 0xEF02:
            report.time = struct.unpack_from(">HBBxBBxH", body, 4)
        elif block == 0xEF03:
            _velocity(report, body)
        else:
            assert block == 0xEF04, packet.hex()
            _satellites(report, body)
        offset += size
    assert offset == len(packet), packet.hex()
    return report


class EngineClient:
    """A daemon's end: sends requests and records what the engine sends."""

    def __init__(self, path, reading=True):
        self.received = Mailbox("daemon")
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        self._socket.connect(path)
        self._thread = threading.Thread(target=self._read, daemon=True)
        if reading:
            self.read()

    def read(self):
        self._thread.start()
        return self

    def _read(self):
        while True:
            try:
                packet = self._socket.recv(8192)
            except OSError:
                packet = b""
            if not packet:
                break
            self.received.append(parse(packet))
        self.received.close()

    def send(self, packet):
        self._socket.send(packet)

    def register(self):
        self.send(struct.pack(">HHH", 0xEF0C, 6, 0))
        assert self.wait_answer(0xEF0D).body[0] == 0
        return self

    def session(self, session, command=START, interval=1):
        """Sends the request and gives the status that the engine answers with."""
        after = len(self.received)
        self.send(struct.pack(">HHHHBBH", 0xEF01, 12, session, 0, command, 2, interval))
        answered, status = struct.unpack_from(">HB", self.wait_answer(0xEF02, after).body)
        assert answered == session
        return status

    def supl(self, request=1):
        self.send(struct.pack(">HHHHB3x", 0xEF04, 12, request, 20, 2))

    def delete_assistance(self, mask=0xFF):
        self.send(struct.pack(">HHI", 0xEF0A, 8, mask))

    def barrier(self):
        """Returns when everything that the engine sent before is recorded."""
        after = len(self.received)
        self.delete_assistance()
        self.wait_answer(0xEF0B, after)

    def wait_answer(self, identifier, after=0):
        def wanted(message):
            return isinstance(message, Answer) and message.id == identifier
        wanted.__qualname__ = f"message {identifier:#x}"
        return self.received.wait_for(wanted, after=after)

    def wait_report(self, condition=lambda report: True, after=0, count=1):
        def wanted(message):
            return isinstance(message, Report) and condition(message)
        wanted.__qualname__ = "report"
        return self.received.wait_for(wanted, after=after, count=count)

    def reports(self, session=None):
        return [m for m in self.received.items()
                if isinstance(m, Report) and m.session is not None and session in (None, m.session)]

    def close(self):
        self._socket.shutdown(socket.SHUT_RDWR)
        if self._thread.ident:
            self._thread.join(DEADLINE)
        self._socket.close()


def wait_gone(path):
    wait_until(lambda: not os.path.lexists(path), f"{path} is gone")
