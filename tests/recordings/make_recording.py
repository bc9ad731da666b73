#!/usr/bin/python3
"""Writes a recording of a receiver that never was: NMEA sentences with correct checksums.

    make_recording.py FILE

Four minutes at 1 Hz across the end of a leap day. The receiver searches, finds itself, drives a
circle (so every heading comes, north from both sides) up and down a hill, loses the sky in a
tunnel, and comes out again. GPS, GLONASS and BeiDou satellites; some of them get numbers from gpsd
that the engine protocol cannot carry. Always the same bytes.
"""

import math
import sys
from datetime import datetime, timedelta

START = datetime(2024, 2, 29, 23, 58, 0)
SECONDS = 240
FIRST_FIX = 12
TUNNEL = range(130, 155)
CENTRE = (48.2, -0.0005)     # degrees: the circle crosses the prime meridian
RADIUS = 350.0               # m
LAP = 100.0                  # s
METRES_PER_DEGREE = 111320.0
GEOID = 47.3                 # m

GPS = {3: (12, 40), 6: (35, 310), 11: (67, 120), 17: (22, 75), 22: (48, 205), 30: (5, 350)}
GLONASS = {66: (30, 20), 75: (55, 260), 82: (14, 140)}
BEIDOU = {6: (44, 100), 14: (25, 190), 33: (71, 300)}


def sentence(body):
    checksum = 0
    for byte in body.encode():
        checksum ^= byte
    return f"${body}*{checksum:02X}\r\n"


def angle(value, width, positive, negative):
    """Degrees as NMEA writes them: whole degrees and minutes run together."""
    whole = int(abs(value))
    return f"{whole:0{width}}{(abs(value) - whole) * 60:08.5f},{positive if value >= 0 else negative}"


def state(second):
    """Position, height, speed and track of that second."""
    turn = 2 * math.pi * second / LAP
    latitude = CENTRE[0] + RADIUS * math.cos(turn) / METRES_PER_DEGREE
    longitude = CENTRE[1] + RADIUS * math.sin(turn) / (METRES_PER_DEGREE * math.cos(math.radians(CENTRE[0])))
    height = 60 + 25 * math.sin(turn * 1.5)
    speed = 2 * math.pi * RADIUS / LAP
    return latitude, longitude, height, speed, (math.degrees(turn) + 90) % 360


def signal(prn, second):
    """dB-Hz, or none: nothing is heard in the tunnel."""
    return "" if second in TUNNEL or prn % 5 == 0 else f"{28 + (prn * 7 + second // 9) % 20:02}"


def skies(second):
    for talker, constellation in (("GP", GPS), ("GL", GLONASS), ("GB", BEIDOU)):
        fields = [f"{prn:02},{elevation:02},{(azimuth + second // 20) % 360:03},{signal(prn, second)}"
                  for prn, (elevation, azimuth) in constellation.items()]
        parts = [fields[i:i + 4] for i in range(0, len(fields), 4)]
        for number, part in enumerate(parts, start=1):
            yield sentence(f"{talker}GSV,{len(parts)},{number},{len(fields):02},{','.join(part)}")


def used(second):
    """What takes part in the fix changes now and then."""
    return [prn for prn in (*GPS, *GLONASS) if signal(prn, second) and (prn + second // 30) % 4]


def epoch(second):
    moment = START + timedelta(seconds=second)
    time, date = moment.strftime("%H%M%S.00"), moment.strftime("%d%m%y")
    latitude, longitude, height, speed, track = state(second)
    place = f"{angle(latitude, 2, 'N', 'S')},{angle(longitude, 3, 'E', 'W')}"
    taking_part = used(second)
    if second < FIRST_FIX or second in TUNNEL:
        yield sentence(f"GNGGA,{time},,,,,0,00,,,M,,M,,")
        yield sentence("GNGSA,A,1,,,,,,,,,,,,,,,")
        yield from skies(second)
        yield sentence(f"GNRMC,{time},V,,,,,,,{date},,,N")
        return
    yield sentence(f"GNGGA,{time},{place},1,{len(taking_part):02},1.2,{height:.1f},M,{GEOID:.1f},M,,")
    for constellation in (GPS, GLONASS):
        members = [f"{prn:02}" for prn in taking_part if prn in constellation]
        members += [""] * (12 - len(members))
        yield sentence(f"GNGSA,A,3,{','.join(members)},2.1,1.2,1.7")
    yield from skies(second)
    yield sentence(f"GNRMC,{time},A,{place},{speed * 3600 / 1852:.2f},{track:.2f},{date},,,A")


def recording():
    yield "# Name: a receiver that never was\r\n"
    yield f"# Date: {START:%Y-%m-%d}\r\n"
    for second in range(SECONDS):
        yield from epoch(second)


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    with open(sys.argv[1], "w", encoding="ascii", newline="") as file:
        file.writelines(recording())


if __name__ == "__main__":
    main()
