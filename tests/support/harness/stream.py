"""The byte arrays that clients receive, read by code that shares nothing with the daemon's."""

import math
import struct
from dataclasses import dataclass, field

DIRECTION, GROUND_SPEED, VERTICAL_SPEED, MAGNETIC_VARIATION, HORIZONTAL_ACCURACY, VERTICAL_ACCURACY = range(6)
ELEVATION, AZIMUTH = 0, 1


@dataclass
class Fix:
    julian_day: int       # 0: no date
    milliseconds: int     # of the day; 0xFFFFFFFF: no time
    specification: int    # 0 local time
    latitude: float       # degrees, NaN when not set
    longitude: float
    altitude: float       # metres
    attributes: dict = field(default_factory=dict)

    @property
    def valid(self):
        return self.has_time and not math.isnan(self.latitude) and not math.isnan(self.longitude)

    @property
    def has_time(self):
        return self.julian_day != 0 and self.milliseconds != 0xFFFFFFFF


@dataclass
class Satellite:
    prn: int
    signal: int           # dB-Hz, -1 unknown
    attributes: dict = field(default_factory=dict)


class _Reader:
    def __init__(self, data):
        self._data, self._offset = data, 0

    def take(self, layout):
        values = struct.unpack_from(">" + layout, self._data, self._offset)
        self._offset += struct.calcsize(">" + layout)
        return values

    def attributes(self, codes):
        (count,) = self.take("I")
        pairs = [self.take("id") for _ in range(count)]
        assert len({code for code, _ in pairs}) == count, f"an attribute twice: {pairs}"
        assert all(code in codes for code, _ in pairs), f"unknown attribute: {pairs}"
        return dict(pairs)

    def end(self):
        assert self._offset == len(self._data), f"{len(self._data) - self._offset} bytes too many"


def read_fix(data):
    """One fix; more or fewer bytes than it needs is an error."""
    reader = _Reader(data)
    fix = Fix(*reader.take("IIbddd"))
    fix.attributes = reader.attributes(range(6))
    reader.end()
    return fix


def read_satellites(data):
    reader = _Reader(data)
    (count,) = reader.take("i")
    found = []
    for _ in range(count):
        satellite = Satellite(*reader.take("ii"))
        satellite.attributes = reader.attributes(range(2))
        found.append(satellite)
    reader.end()
    return found
