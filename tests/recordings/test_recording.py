"""A recording on its whole road: gpsd, orvd-gpsd, the daemon, an application.

In the same run an independent client writes down what gpsd reports, and a second connection to
orvd-gpsd what it sends. Every epoch with a fix has to arrive once and be gpsd's fullest report of it,
within what the protocol can say; satellites and their use have to agree.
"""

import pytest

from expectation import epochs, skies
from feed import Gpsd, Witness
from harness import client as application
from harness import stream
from orvd import EngineClient, OrvdGpsd

SOCKET = "/var/run/orvd/orvd.socket"
# The receiver's own time alone ends an epoch, however slow the machine is.
ONLY_TIME_ENDS_AN_EPOCH = ("--settle", "10000")
# Recordings in which the receiver searches for a while and already names satellites.
SEARCHING = {"generated", "trimble-lassen_iq", "haicom-305N", "telit-he910", "quectel"}
BEYOND_THE_PROTOCOL = {"generated"}  # satellites with numbers above 256

# Where a receiver finds or loses its fix or its time, two skies can fall into one epoch.
MOST_SUPERSEDED = 3

DEGREE, METRE, SPEED, HEADING = 1e-7, 0.25, 0.005, 0.005
SINGLE = 1e-6  # relative, of a single-precision value


def start_of(road, stage):
    """Everybody is connected and waits."""
    engine = OrvdGpsd(*ONLY_TIME_ENDS_AN_EPOCH, socket_path=SOCKET, port=road.port).wait_serving()
    stage.keep(engine, engine.stop)
    stage.consented_daemon()
    app = stage.client()
    assert app.start(application.SATELLITE, 1000, extra=application.SATINFO_START) == 0
    engine.log.wait_for("Session ")
    beside = EngineClient(SOCKET).register()
    stage.keep(beside, beside.close)
    assert beside.session(1) == 0
    engine.log.wait_for("Connected to gpsd")
    witness = Witness(road)
    witness.watch()
    return engine, app, beside, witness


def test_what_arrives_is_what_gpsd_reported(recording, stage):
    gpsd = Gpsd()
    stage.keep(gpsd, gpsd.stop)
    engine, app, beside, witness = start_of(gpsd, stage)
    gpsd.feed(recording)
    witness.wait_quiet()
    gpsd.stop()
    reports = witness.all_reports()
    engine.log.wait_for("gpsd has ended the connection")
    beside.barrier()

    expected, sky_list = epochs(reports), skies(reports)
    assert expected, "gpsd reports a fix in every recording"
    sent = beside.reports(1)
    check_fixes([report for report in sent if report.has_fix], expected)
    check_skies(sent, sky_list)
    check_recording(recording.stem, sent, sky_list)

    app.wait_for("positionUpdate", count=len(expected))
    app.latest_position()
    app.sync()
    check_application(app, sent, expected)


def apart(one, other):
    """Degrees between two headings."""
    return abs((one - other + 180) % 360 - 180)


def near(value, limit):
    return pytest.approx(value, abs=limit + 1e-9)


def check_fixes(sent, expected):
    assert len(sent) == len(expected)
    for fix, tpv in zip(sent, expected):
        assert fix.latitude == near(tpv["lat"], DEGREE) and fix.longitude == near(tpv["lon"], DEGREE), tpv
        for value, name, limit in ((fix.ellipsoid, "altHAE", METRE), (fix.sea_level, "altMSL", METRE),
                                   (fix.vertical_error, "epv", METRE), (fix.speed, "speed", SPEED),
                                   (fix.climb, "climb", SPEED), (fix.variation, "magvar", HEADING)):
            if name in tpv:
                assert value == near(tpv[name], limit), (name, tpv)
        assert (fix.speed is None) == ("speed" not in tpv) and (fix.climb is None) == ("climb" not in tpv), tpv
        assert (fix.heading is None) == ("track" not in tpv), tpv
        if "track" in tpv:
            assert apart(fix.heading, tpv["track"]) <= (HEADING if apart(tpv["track"], 0) > 0.015 else 0.015) + 1e-9
        if "epx" in tpv and "epy" in tpv:
            assert (fix.along, fix.ortho) == (near(max(tpv["epx"], tpv["epy"]), SPEED),
                                              near(min(tpv["epx"], tpv["epy"]), SPEED)), tpv
        assert written(fix.time) == tpv.get("time"), tpv


def written(time):
    if time is None:
        return None
    year, month, day, hours, minutes, milliseconds = time
    return f"{year}-{month:02}-{day:02}T{hours:02}:{minutes:02}:{milliseconds / 1000:06.3f}Z"


def check_skies(sent, expected):
    """Every sky is sent once, in order, and as a search's when there was no fix about."""
    carriers = [report for report in sent if report.satellites is not None]
    for report, sky in pair_up(carriers, expected):
        if sky.searching:
            assert not report.has_fix


def pair_up(carriers, expected):
    """Each report with the sky it carries."""
    skies_to_come, left_over = iter(expected), []
    for report in carriers:
        for sky in skies_to_come:
            if sky.is_as(report.satellites):
                yield report, sky
                break
            left_over.append(sky)
        else:
            raise AssertionError(f"gpsd named no such sky, or not then: {report.satellites}")
    left_over.extend(skies_to_come)
    assert len(left_over) <= MOST_SUPERSEDED, left_over
    # Of several that are alike it cannot be told which was left out.
    assert all(any(sky.is_as(r.satellites) for r in carriers) for sky in left_over if sky.searching), left_over


def check_recording(name, sent, sky_list):
    if name in SEARCHING:
        searching = [report for report in sent if not report.has_fix]
        assert any(report.satellites for report in searching), "satellites were named before there was a fix"
        assert all(report.blocks == [0xEF04] for report in searching)
    if name in BEYOND_THE_PROTOCOL:
        assert any(sky.left_out for sky in sky_list)


def check_application(app, sent, expected):
    fixes = app.fixes()
    assert len(fixes) == len(expected)
    for fix, tpv in zip(fixes, expected):
        assert fix.latitude == near(tpv["lat"], DEGREE) and fix.longitude == near(tpv["lon"], DEGREE)
        if "altMSL" in tpv:
            assert fix.altitude == near(tpv["altMSL"], METRE)
        for code, name, limit in ((stream.GROUND_SPEED, "speed", SPEED), (stream.VERTICAL_SPEED, "climb", SPEED),
                                  (stream.VERTICAL_ACCURACY, "epv", METRE),
                                  (stream.MAGNETIC_VARIATION, "magvar", HEADING)):
            if name in tpv:
                assert fix.attributes[code] == near(tpv[name], limit + SINGLE * abs(tpv[name])), (name, tpv)
        if "track" in tpv:
            limit = HEADING if apart(tpv["track"], 0) > 0.015 else 0.015
            assert apart(fix.attributes[stream.DIRECTION], tpv["track"]) <= limit + 360 * SINGLE
        if "epx" in tpv and "epy" in tpv:
            circle = (tpv["epx"] + tpv["epy"]) * 0.7572
            assert fix.attributes[stream.HORIZONTAL_ACCURACY] == near(circle, 2 * SPEED + SINGLE * circle)
    in_view = [visible(report) for report in sent if report.satellites is not None]
    assert names(app, "satellitesInViewUpdate") == [prns(s) for s in in_view if s]
    in_use = [[s for s in visible(report) if s.used] for report in sent if report.satellites and report.has_fix]
    assert names(app, "satellitesInUseUpdate") == [prns(s) for s in in_use if s]


def visible(report):
    """What the daemon counts as in view: a place in the sky, or a signal."""
    return [s for s in report.satellites
            if None not in (s.elevation, s.azimuth) or (s.signal is not None and int(s.signal) > 0)]


def prns(satellites):
    return [satellite.prn for satellite in satellites]


def names(app, method):
    return [prns(callback.satellites) for callback in app.received(method)]
