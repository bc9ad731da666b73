"""The engine's side of the message protocol, written for the tests alone: big-endian, one message a packet.

Nothing here is shared with the daemon's own code, so that the two check each other.
"""

import struct
from dataclasses import dataclass, field

START, CHANGE_INTERVAL, STOP = 0, 1, 2

PROCESS, FIX = 0x01, 0x40  # status bits of a notification
NO_FIX, WITH_FIX = PROCESS, PROCESS | FIX


# ---- what the daemon sends -------------------------------------------------------------------

@dataclass(frozen=True)
class Unknown:
    raw: bytes = field(repr=False)
    id: int
    length: int


@dataclass(frozen=True)
class GnssRequest:
    raw: bytes = field(repr=False)
    session: int
    command: int
    mode: int
    interval: int


@dataclass(frozen=True)
class SuplRequest:
    raw: bytes = field(repr=False)
    request: int
    parameter: int
    constant: int


@dataclass(frozen=True)
class DeleteAssistance:
    raw: bytes = field(repr=False)
    mask: int


@dataclass(frozen=True)
class RegisterPrivacy:
    raw: bytes = field(repr=False)


@dataclass(frozen=True)
class LocationReply:
    raw: bytes = field(repr=False)
    accepted: int


@dataclass(frozen=True)
class SuplServers:
    raw: bytes = field(repr=False)
    primary_usage: int
    primary: bytes
    secondary_usage: int
    secondary: bytes


def parse(packet):
    """One packet of the daemon. Whatever breaks the layout is an AssertionError."""
    assert len(packet) >= 4, packet.hex()
    identifier, length = struct.unpack_from(">HH", packet)
    assert length == len(packet), f"header says {length}, the packet has {len(packet)}: {packet.hex()}"
    if identifier == 0xEF01:
        session, zero, command, mode, interval = struct.unpack(">HHBBH", packet[4:])
        assert zero == 0, packet.hex()
        return GnssRequest(packet, session, command, mode, interval)
    if identifier == 0xEF04:
        request, parameter, constant, zeros = struct.unpack(">HHB3s", packet[4:])
        assert zeros == bytes(3), packet.hex()
        return SuplRequest(packet, request, parameter, constant)
    if identifier == 0xEF0A:
        return DeleteAssistance(packet, *struct.unpack(">I", packet[4:]))
    if identifier == 0xEF0C:
        assert packet[4:] == bytes(2), packet.hex()
        return RegisterPrivacy(packet)
    if identifier == 0xEF0F:
        accepted, zero = packet[4:]
        assert zero == 0, packet.hex()
        return LocationReply(packet, accepted)
    if identifier == 0xEF11:
        return _supl_servers(packet)
    return Unknown(packet, identifier, length)


def _supl_servers(packet):
    p, s, primary_usage, secondary_usage = packet[4:8]
    assert len(packet) == (p + s + 11) & ~3, packet.hex()
    primary, secondary, padding = packet[8:8 + p], packet[8 + p:8 + p + s], packet[8 + p + s:]
    assert padding == bytes(len(padding)), packet.hex()
    return SuplServers(packet, primary_usage, primary, secondary_usage, secondary)


# ---- what the engine sends -------------------------------------------------------------------

def message(identifier, body):
    return struct.pack(">HH", identifier, 4 + len(body)) + body


def gnss_response(session, status=0):
    return message(0xEF02, struct.pack(">HBx", session, status))


def notification(session, status, *blocks):
    return message(0xEF03, struct.pack(">HBB", session, status, len(blocks)) + b"".join(blocks))


def supl_response(status, *blocks, request=0):
    return message(0xEF05, struct.pack(">HBB", request, status, len(blocks)) + b"".join(blocks))


def assistance_deleted(result=1):
    return message(0xEF0B, struct.pack(">B3x", result))


def privacy_registered(result=0):
    return message(0xEF0D, struct.pack(">B3x", result))


def location_request(kind, transaction, *blocks):
    return message(0xEF0E, struct.pack(">BBxB", kind, transaction, len(blocks)) + b"".join(blocks))


def block(identifier, body):
    return struct.pack(">HH", identifier, 4 + len(body)) + body


def degrees(value):
    """Degrees in the wire's unit, 360 / 2^32."""
    return round(value * 2**32 / 360)


def position(latitude, longitude, along=500, ortho=300, angle=0, altitude=0, altitude_error=0, geoid=0):
    """Degrees; centimetres along and across; orientation; half metres."""
    return block(0xEF01, struct.pack(">iiiiB3xhHh", degrees(latitude), degrees(longitude), along, ortho, angle,
                                     altitude, altitude_error, geoid))


def time_of_fix(year, month, day, hours, minutes, milliseconds):
    return block(0xEF02, struct.pack(">HBBxBBxH", year, month, day, hours, minutes, milliseconds))


def velocity(heading=-1, speed=-1, climb=-32768, variation=-32768, heading_error=0, speed_error=0, climb_error=0):
    """Hundredths of a degree and of a metre per second; the defaults mean "not known"."""
    return block(0xEF03, struct.pack(">hHhhHhH", heading, heading_error, variation, speed, speed_error, climb,
                                     climb_error))


def satellite(prn, used=0, signal=None, elevation=None, azimuth=None):
    """One satellite record: signal in dB-Hz, elevation and azimuth in degrees, None where not known."""
    return struct.pack(">BBHHH", prn - 1, used, 0x8000 if signal is None else round(signal * 16),
                       0xFF80 if elevation is None else round(elevation * 100) & 0xFFFF,
                       0xFFFF if azimuth is None else round(azimuth * 100))


def satellites(*records):
    return block(0xEF04, struct.pack(">B3x", len(records)) + b"".join(records))


def client_name(name):
    text = name.encode("utf-16-be")
    return block(0xEF12, struct.pack(">3xB", len(text) // 2) + text)


def client_id(identifier):
    """The one count of the protocol that is stored least-significant byte first."""
    text = identifier.encode("utf-16-be")
    return block(0xEF13, bytes(2) + struct.pack("<H", len(text) // 2) + text)


def default_answer(accept):
    return block(0xEF14, struct.pack(">2xBx", accept))
