"""Walk and sky: what is reported fits together, from one report to the next and over the hours."""

import random
import struct

import pytest

from orvpeer import between, turned


def walk(daemon, count):
    """Pairs of consecutive fixes."""
    fixes = [daemon.fix() for _ in range(count)]
    return list(zip(fixes, fixes[1:]))


def place(report):
    return report.position.lat, report.position.lon


@pytest.mark.parametrize("start", ["47.3769,8.5417", "-33.9,18.4", "51.5,-0.001", "0.0005,179.9995", "-89,12"])
def test_speed_and_heading_agree_with_the_positions(engine, start):
    daemon = engine("--ttff", 0, "--rate", 20, "--speed", 40, f"--start={start}").daemon()
    daemon.start()
    for before, after in walk(daemon, 30):
        distance, bearing = between(place(before), place(after))
        seconds = after.seconds - before.seconds
        assert distance == pytest.approx((before.speed + after.speed) / 200 * seconds, rel=0.02, abs=0.1)
        for report in (before, after):
            assert turned(report.heading / 100, bearing) < 10 * max(1, seconds)  # a busy machine skips seconds


def test_climb_agrees_with_the_altitudes(engine):
    daemon = engine("--ttff", 0, "--rate", 20, "--speed", 200).daemon()
    daemon.start()
    pairs = walk(daemon, 40)
    climbed = sum((a.climb + b.climb) / 200 * (b.seconds - a.seconds) for a, b in pairs)
    altitudes = [(r.position.altitude + r.position.separation) / 2 for r in (pairs[0][0], pairs[-1][1])]
    assert climbed == pytest.approx(altitudes[1] - altitudes[0], abs=1.5)
    assert max(abs(r.climb) for r, _ in pairs) > 50


def test_headings_are_signed_and_cover_the_circle(fake_orv):
    points = fake_orv.loop_around((47.0, 8.0), random.Random(1))
    route = fake_orv.Walk(points, 36)
    raw = [fake_orv.heading(route.at(t).course) for t in range(int(route.length / 10) + 1)]
    assert -1 not in raw and min(raw) < -16000 and max(raw) > 16000
    assert all(-18000 <= value <= 18000 for value in raw)
    for before, after in zip(raw, raw[1:]):
        assert turned(before / 100, after / 100) < 15, "the walker turns on the spot"


@pytest.mark.parametrize("degrees, raw", [(0, 0), (350, -1000), (359.99, 0), (359.98, -2), (0.01, 1), (90.004, 9000),
                                          (179.99, 17999), (180, -18000), (270, -9000), (None, -1)])
def test_heading_on_the_wire(fake_orv, degrees, raw):
    assert fake_orv.heading(degrees) == raw


@pytest.mark.parametrize("degrees, raw", [(45, 0x20000000), (22.5, 0x10000000), (-90, -0x40000000), (0, 0),
                                          (180, -0x80000000), (-180, -0x80000000)])
def test_angles_on_the_wire(fake_orv, degrees, raw):
    assert fake_orv.angle(degrees) == raw


def test_values_that_a_field_cannot_hold_are_clamped(fake_orv):
    velocity = fake_orv.velocity_block(None, 9999, 500, 400, 9999, -400, 9999)
    assert struct.unpack(">hHhhHhH", velocity[4:]) == (-1, 65535, 32767, 32767, 65535, -32767, 65535)
    position = fake_orv.position_block(0, 0, 1e9, 1e9, 0, 20000, -47.5, 1e6)
    assert struct.unpack(">iiiiBxxxhHh", position[4:])[2:] == (10**9, 10**9, 0, 16095, 65535, -95)


@pytest.mark.parametrize("epoch, fields", [
    (0, (1970, 1, 1, 0, 0, 0)), (1709210096.7895, (2024, 2, 29, 12, 34, 56789)), (59.9999, (1970, 1, 1, 0, 0, 59999))])
def test_time_on_the_wire(fake_orv, epoch, fields):
    assert struct.unpack(">HBBxBBxH", fake_orv.time_block(epoch)[4:]) == fields


def test_accuracy_improves_after_the_first_fix(engine):
    daemon = engine("--ttff", 0, "--rate", 50).daemon()
    daemon.start(1, 10)
    series = [daemon.fix().position for _ in range(8)]
    along = [p.along for p in series]
    assert along == sorted(along, reverse=True) and along[0] > 3 * along[-1]
    assert series[0].altitude_error > 3 * series[-1].altitude_error
    assert 300 < along[-1] < 450


def check_sky(report):
    numbers = [s.number for s in report.satellites]
    assert len(set(numbers)) == len(numbers)
    for s in report.satellites:
        assert 0 <= s.number < 32 or 64 <= s.number < 88
        assert s.used in (0, 1)
        if s.elevation != -128:
            assert 500 <= s.elevation <= 9000 and 0 <= s.azimuth < 36000
        if s.cno != 0x8000:
            assert 16 * 20 <= s.cno <= 16 * 55
        if s.used:
            assert report.is_fix and s.cno != 0x8000 and s.elevation >= 1000


def test_satellites_are_acquired_one_after_another_and_some_are_used(engine):
    daemon = engine("--ttff", 8, "--rate", 8).daemon()
    daemon.start()
    heard = []
    report = daemon.report()
    while not report.is_fix:
        check_sky(report)
        heard.append(len(report.heard()))
        report = daemon.report()
    check_sky(report)
    assert heard[0] == 0 and heard == sorted(heard) and len(set(heard)) > 3
    used = [s for s in report.satellites if s.used]
    assert 4 <= len(used) <= 12 < len(report.satellites)
    high = [s.cno for s in report.satellites if s.elevation > 5000]
    low = [s.cno for s in report.satellites if s.elevation < 1500]
    assert sum(high) / len(high) > sum(low) / len(low) + 16 * 5


@pytest.mark.parametrize("lat, lon", [(47.4, 8.5), (0, 0), (-70, 150), (89, 0)])
def test_satellites_rise_and_set_and_there_are_always_enough(fake_orv, lat, lon):
    sky = fake_orv.Sky(random.Random(1))
    seen = {}
    for minute in range(0, 12 * 60, 2):
        above = sky.above(minute * 60.0, lat, lon)
        assert 8 <= len(above) <= 40
        for s in above:
            seen.setdefault(s.prn, []).append((minute, s.elevation, s.azimuth))
    assert len(seen) > 30, "the same satellites stay up all day"
    for track in seen.values():
        assert len(track) < 360, "a satellite never sets"
        for before, after in zip(track, track[1:]):
            if after[0] - before[0] == 2:
                assert abs(after[1] - before[1]) < 2.0, "a satellite jumps"
            else:
                assert before[1] < 8 and after[1] < 8, "a satellite vanishes high in the sky"


def test_the_gps_sky_comes_back_after_a_sidereal_day_and_not_after_half_of_it(fake_orv):
    sky = fake_orv.Sky(random.Random(1))

    def places(t):
        return {s.prn: (s.elevation, s.azimuth) for s in sky.above(t, 47.0, 8.0) if s.prn <= 32}

    today, tomorrow, between_them = places(1000.0), places(1000.0 + 86164.1), places(1000.0 + 43082.05)
    assert today.keys() == tomorrow.keys()
    assert all(tomorrow[prn] == pytest.approx(today[prn], abs=0.01) for prn in today)
    # The orbits have come round, the Earth has not.
    assert len(today.keys() & between_them.keys()) < len(today)


@pytest.mark.parametrize("due, interval, now, expected", [
    (10.0, 1, 10.0, 11.0), (10.0, 1, 10.4, 11.0), (10.0, 1, 10.999, 11.0), (10.0, 1, 11.0, 12.0), (10.0, 5, 27.5, 32.5)])
def test_intervals_do_not_drift_and_missed_reports_are_left_out(fake_orv, due, interval, now, expected):
    assert fake_orv.next_due(due, interval, now) == expected


def test_the_same_seed_gives_the_same_walk_and_sky(fake_orv):
    def world(seed):
        rng = random.Random(seed)
        route = fake_orv.Walk(fake_orv.loop_around((47.0, 8.0), rng), 5)
        sky = fake_orv.Sky(rng)
        return [route.at(t) for t in (0, 10, 1000)], sky.above(100, 47.0, 8.0)

    assert world(3) == world(3)
    assert world(3)[0] != world(4)[0] and world(3)[1] != world(4)[1]


def test_a_path_begins_at_its_first_point(fake_orv):
    place = fake_orv.Walk([(10.0, 20.0), (10.0, 20.001), (10.001, 20.0)], 100).at(0)
    assert (place.lat, place.lon) == (pytest.approx(10.0), pytest.approx(20.0))
    assert place.course == pytest.approx(90, abs=0.01)


def test_a_path_is_walked_around(engine, tmp_path):
    path = tmp_path / "path"
    path.write_text("# a triangle\n10.0,20.0\n\n10.0,20.001\n10.001,20.0\n")
    daemon = engine("--ttff", 0, "--rate", 50, "--speed", 100, "--path", path).daemon()
    daemon.start()
    # East, north-west (degrees of longitude are a little shorter here), south.
    legs, walked = {90, 315, 180}, set()
    for _ in range(500):  # a busy machine is late, and the walker is elsewhere by then
        fix = daemon.fix()
        assert 9.9999 < fix.position.lat < 10.0011 and 19.9999 < fix.position.lon < 20.0011
        walked.add(round(fix.heading / 100) % 360)
        if walked >= legs:
            break
    assert walked == legs
