"""From an application's registration over the engine's packets to the bytes that call it back."""

import struct
from datetime import datetime, timedelta, timezone

import pytest

from harness import client as app
from harness import files, stream, wire
from harness.road import EMPTY_FIX, Road, fix_tail, latitudes, near, next_millisecond, satellite_list, stamp

KATHMANDU = timezone(timedelta(hours=5, minutes=45))

# 45 and 22.5 degrees; 10 m and 5 m of uncertainty; 100 m above the ellipsoid, 20 m of geoid separation.
POSITION = wire.block(0xEF01, struct.pack(">iiiiB3xhHh", 0x20000000, 0x10000000, 1000, 500, 30, 200, 21, 40))
VELOCITY = wire.velocity(heading=9000, heading_error=150, variation=-250, speed=1000, speed_error=25, climb=-50,
                         climb_error=75)
SATELLITES = wire.satellites(
    wire.satellite(5, used=1, signal=40),                               # no place in the sky known
    wire.satellite(12, used=1, signal=33.5, elevation=45, azimuth=271.25),
    wire.satellite(17, used=0, signal=0.9, elevation=10.5),             # neither signal nor whole place
    wire.satellite(23, used=0, elevation=-1.5, azimuth=0),              # in view by its place alone
    wire.satellite(30, used=1, elevation=20),                           # used, yet not in view
    wire.satellite(31, used=2, signal=20),                              # only 1 means used
    wire.satellite(32, used=0, signal=50, elevation=89.99, azimuth=359.99))


# ---- registration and requests

def test_registration(stage, road):
    first, second = stage.client(), stage.client(name="com.example.Second", path="/a/b_c/1")
    reply = first.connection.call_sync(app.SERVICE, app.PATH, app.INTERFACE, "registerListener",
                                       app.GLib.Variant("(ss)", (first.service, first.path)), None,
                                       app.Gio.DBusCallFlags.NO_AUTO_START, 20000, None)
    assert reply.get_type_string() == "(iuu)"
    assert reply.unpack() == (6000, app.ALL, 1000)
    assert second.register() == 6001
    assert (second.methods, second.minimum_interval) == (app.ALL, 1000)
    for number, client in ((6000, first), (6001, second)):
        added = road.daemon.wait_for_message(f"## Adding new client with Id:  {number}", "Debug")
        assert [line[len("00:00:00 Debug: "):] for line in road.daemon.lines()[added + 1:added + 3]] == [
            f"## Service:  {client.service}", f"##    Path:  {client.path}"]
    assert road.engine.pending() == []


def test_a_client_that_only_registered_is_stopped(stage, road):
    client, other = stage.client(), road.satellite_client()
    client.register()
    road.fix(other, 10)
    road.fix(client, 11)
    road.settle(client, other)
    assert client.callbacks.items() == []
    assert latitudes(other.fixes()) == [10]


def test_start_alone_means_all_methods_every_second(stage, road):
    client = stage.client()
    client.register()
    assert client.configure(app.START) == 0
    request = road.engine.expect(wire.GnssRequest)
    assert (request.session, request.command, request.interval) == (client.id, wire.START, 1)
    assert "startSessions: client: id=6000, stopped=0, methods=0xffffffff, actGNSS=0, actSUPL=0" in road.lines("start")


def test_the_bytes_of_a_session(stage, road):
    """Start, another interval, stop: twelve bytes each, and the daemon's lines."""
    assert road.engine.all(wire.RegisterPrivacy)[0].raw.hex() == "ef0c00060000"
    client = stage.client()
    client.register()
    client.start(app.SATELLITE, 1000)
    assert road.engine.expect(wire.GnssRequest).raw.hex() == "ef01000c1770000000020001"
    client.configure(app.SET_INTERVAL, interval=65535000)
    assert road.engine.expect(wire.GnssRequest).raw.hex() == "ef01000c177000000102ffff"
    client.configure(app.STOP | app.SATINFO_START | app.SATINFO_STOP)
    assert road.engine.expect(wire.GnssRequest).raw.hex() == "ef01000c1770000002020000"
    road.settle()
    texts = road.daemon.messages("Debug")
    begin = texts.index("PositionDaemon::configRequest: Set Method:  255")
    assert texts[begin:] == [
        "PositionDaemon::configRequest: Set Method:  255",
        "PositionDaemon::configRequest: Set interval:  1",
        "PositionDaemon::configRequest: Start!",
        "PositionDaemon::resetPowerSave",
        "assignClients",
        "stopSessions: client: id=6000, stopped=0, methods=0xffffff00, actGNSS=0, actSUPL=0",
        "PositionDaemon::contextSetState: satelliteState=0, nonsatelliteState=0, tmpState=0, iconState=0",
        "modifySessions: client: id=6000, modified=1, interval=1, actGNSS=0, actSUPL=0",
        "startSessions: client: id=6000, stopped=0, methods=0xff, actGNSS=0, actSUPL=0",
        "ORVComm::startGNSS( 6000 , 1 )",
        "GNSS mode: Search",
        "PositionDaemon::contextSetState: satelliteState=1, nonsatelliteState=0, tmpState=1, iconState=0",
        "PositionDaemon::enablePowerSave",
        "PositionDaemon::configRequest: Set interval:  65535",
        "PositionDaemon::resetPowerSave",
        "assignClients",
        "stopSessions: client: id=6000, stopped=0, methods=0xffffff00, actGNSS=1, actSUPL=0",
        "PositionDaemon::contextSetState: satelliteState=1, nonsatelliteState=0, tmpState=1, iconState=0",
        "modifySessions: client: id=6000, modified=1, interval=65535, actGNSS=1, actSUPL=0",
        "ORVComm::setGNSSInterval( 6000 , 65535 )",
        "startSessions: client: id=6000, stopped=0, methods=0xff, actGNSS=1, actSUPL=0",
        "PositionDaemon::configRequest: Stop!",
        "PositionDaemon::configRequest: SatInfoStart",
        "PositionDaemon::configRequest: SatInfoStop",
        "PositionDaemon::resetPowerSave",
        "assignClients",
        "stopSessions: client: id=6000, stopped=1, methods=0xffffff00, actGNSS=1, actSUPL=0",
        "ORVComm::stopGNSS( 6000 )",
        "GNSS mode: Idle",
        "PositionDaemon::contextSetState: satelliteState=0, nonsatelliteState=0, tmpState=0, iconState=0",
        "PositionDaemon::disablePowerSave",
        "PositionDaemon::contextSetState: satelliteState=0, nonsatelliteState=0, tmpState=0, iconState=0",
        "modifySessions: client: id=6000, modified=1, interval=65535, actGNSS=0, actSUPL=0",
        "startSessions: client: id=6000, stopped=1, methods=0xff, actGNSS=0, actSUPL=0",
        "ORV Message received. id: 0xef04 length: 10000",
    ]


# ---- one whole report

@pytest.fixture
def whole_report(road):
    """A report with everything in it, and the client that got it."""
    client = road.satellite_client(extra=app.SATINFO_START)
    road.report(client, SATELLITES, wire.time_of_fix(2026, 2, 28, 23, 59, 58750), POSITION, VELOCITY)
    client.wait_for_fix()
    road.settle(client)
    return client


def test_the_bytes_of_a_fix(whole_report):
    (callback,) = whole_report.received("positionUpdate")
    assert callback.value[8:].hex() == (
        "00"                                     # local time
        "4046800000000000" "4036800000000000" "405e000000000000"  # 45, 22.5, 120
        "00000006"
        "00000000" "4056800000000000"            # heading 90
        "00000001" "4024000000000000"            # 10 m/s
        "00000002" "bfe0000000000000"            # climb -0.5 m/s
        "00000003" "c004000000000000"            # magnetic variation -2.5
        "00000004" "4026b74bc0000000"            # 11.358 m, rounded once to single precision
        "00000005" "4025000000000000")           # 10.5 m
    assert callback.wants_reply is False


def test_the_lists_of_satellites_come_before_the_fix(whole_report, road):
    assert [callback.method for callback in whole_report.callbacks.items()] == [
        "satellitesInViewUpdate", "satellitesInUseUpdate", "positionUpdate"]
    view, use = whole_report.callbacks.items()[:2]
    assert view.wants_reply and use.wants_reply
    five, twelve = (5, 40, {}), (12, 33, {stream.ELEVATION: 45, stream.AZIMUTH: 271.25})
    assert view.value == satellite_list(
        five, twelve, (23, -1, {stream.ELEVATION: -1.5, stream.AZIMUTH: 0}), (31, 20, {}),
        (32, 50, {stream.ELEVATION: 89.99, stream.AZIMUTH: 359.99}))
    assert use.value == satellite_list(five, twelve)
    assert view.value[:16].hex() == "00000005" "00000005" "00000028" "00000000"


def test_the_lines_of_a_report(whole_report, road):
    texts = road.daemon.messages("Debug")
    begin = next(i for i, text in enumerate(texts) if text.startswith("ORV Message received. id: 0xef03"))
    length = 8 + len(SATELLITES) + 14 + len(POSITION) + len(VELOCITY)
    assert texts[begin:begin + 5] == [
        f"ORV Message received. id: 0xef03 length: {length}",
        "ORVComm::handleGNSSNotification() session id: 6000, status: 0x41",
        "ORVComm::satellitesUpdateMessage: sat: 2/4/5, (id,used,cno,elev,azim):",
        "processSubBlocks(): Time: 23:59:58.750",
        "POSDBG: lat=45.0000000, lon=22.5000000, unc_alo=10.00, unc_ort=5.00, unc_ang=30, alt_w84=100.0, "
        "alt_unc=10.5, geo_sep=20.0"]
    assert texts[begin + 5:begin + 10] == [
        "VELDBG: head=90.00+-1.50, magn=-2.50, speed=10.00+-0.25, climb=-0.50+-0.75",
        "GNSS mode: Tracking",
        "PositionDaemon::contextSetState: satelliteState=2, nonsatelliteState=0, tmpState=2, iconState=0",
        "PositionDaemon::disablePowerSave",
        "assignClients"]
    fix = texts.index("Sending GNSS fix to ClientId: 6000", begin + 10)
    assert texts[fix:fix + 2] == [
        "Sending GNSS fix to ClientId: 6000",
        "ClientApp::sendPositionUpdate: clientId=6000, type=0, fix=45.0000000,22.5000000,120.000000,11.358000,10.500000"]
    lines = road.daemon.lines()
    rows = lines.index(next(line for line in lines if line.endswith("(id,used,cno,elev,azim):")))
    assert lines[rows + 1:rows + 3] == [
        "SATDBG: 4,1,640,65408,65535 11,1,536,4500,27125 16,0,14,1050,65535 22,0,32768,65386,0 "
        "29,1,32768,2000,65535 30,2,320,65408,65535",
        "SATDBG: 31,0,800,8999,35999"]


# ---- the time stamp

def test_a_fix_is_stamped_with_the_local_time_of_its_arrival(stage):
    """The time that the engine names is not used."""
    road = Road(stage, environment={"TZ": "NPT-5:45"})
    client = road.satellite_client()
    before = datetime.now(KATHMANDU).replace(tzinfo=None)
    road.report(client, wire.time_of_fix(1999, 12, 31, 1, 2, 3000), POSITION)
    fix = client.wait_for_fix()
    after = datetime.now(KATHMANDU).replace(tzinfo=None)
    assert fix.specification == 0
    assert before - timedelta(milliseconds=1) <= stamp(fix) <= after


def test_the_exact_stamp_of_a_clock_that_stands_still(stage):
    road = Road(stage, faketime="2026-06-01 12:34:56", environment={"FAKETIME_DONT_FAKE_MONOTONIC": "1"})
    client = road.satellite_client()
    road.report(client, POSITION)
    client.wait_for_fix()
    value = client.received("positionUpdate")[0].value
    assert struct.unpack(">IIb", value[:9]) == (2461193, ((12 * 60 + 34) * 60 + 56) * 1000, 0)
    road.supl(46)
    road.settle()
    # The time stamps are equal: then the network's fix is the latest.
    assert near(46)(stream.read_fix(client.latest_position()))
    road.report(client, POSITION)
    road.settle()
    assert near(46)(stream.read_fix(client.latest_position()))
    assert client.latest_position(satellite_only=True) == value


# ---- the latest position

def test_the_latest_position(stage, road):
    client = road.satellite_client()
    assert client.latest_position() == client.latest_position(True) == EMPTY_FIX
    assert len(EMPTY_FIX) == 37
    road.report(client, POSITION, VELOCITY)
    client.wait_for_fix()
    satellite = client.received("positionUpdate")[0].value
    road.settle()
    assert client.latest_position() == client.latest_position(True) == satellite
    next_millisecond()
    road.supl(46, 7)
    road.daemon.wait_for_message("PositionDaemon::onPositionUpdateSUPL", "Debug")
    network = stream.read_fix(client.latest_position())
    assert near(46)(network) and network.attributes.keys() == {stream.HORIZONTAL_ACCURACY, stream.VERTICAL_ACCURACY}
    assert client.latest_position(True) == satellite
    next_millisecond()
    road.fix(client, 47)
    client.wait_for_fix(near(47))
    road.settle(client)
    assert near(47)(stream.read_fix(client.latest_position()))
    assert [fix.latitude for fix in client.fixes()] == pytest.approx([45, 47])


def test_a_failed_network_answer_is_older_than_any_fix(stage, road):
    client = road.satellite_client()
    road.supl(46)
    road.settle()
    assert near(46)(stream.read_fix(client.latest_position()))
    road.fix(client, 47)
    client.wait_for_fix()
    road.engine.send(wire.supl_response(2))
    road.settle()
    assert near(47)(stream.read_fix(client.latest_position()))


def test_a_report_with_nothing_but_a_velocity(road):
    """It is handed on with its time and without a place, and is no valid fix to the proxy."""
    client = road.satellite_client()
    road.report(client, wire.velocity(heading=-18000, speed=-1))
    fix = client.wait_for_fix()
    assert fix.has_time and not fix.valid
    assert fix.attributes == {stream.DIRECTION: -180}
    assert client.received("positionUpdate")[0].value[9:] == fix_tail(
        *[float("nan")] * 3, {stream.DIRECTION: -180})
    road.settle()
    assert road.daemon.has_message("ClientApp::sendPositionUpdate: clientId=6000, type=0, fix=,,,,", "Debug")


@pytest.mark.parametrize("velocity, attributes", [
    (wire.velocity(), {}),
    (wire.velocity(heading=0, speed=0, climb=0, variation=0), {0: 0, 1: 0, 2: 0, 3: 0}),
    (wire.velocity(heading=32767, speed=32767, climb=32767, variation=32767), {c: 327.67 for c in range(4)}),
    (wire.velocity(heading=-2, speed=-2, climb=-32767, variation=-32767),
     {0: -0.02, 1: -0.02, 2: -327.67, 3: -327.67}),
], ids=["nothing known", "all zero", "largest", "smallest"])
def test_the_values_of_a_velocity(road, velocity, attributes):
    client = road.satellite_client()
    road.report(client, POSITION, velocity)
    client.wait_for_fix()
    assert client.received("positionUpdate")[0].value[9:] == fix_tail(
        45, 22.5, 120, {**attributes, stream.HORIZONTAL_ACCURACY: 11.358, stream.VERTICAL_ACCURACY: 10.5})


# ---- settings that reach the engine

def test_supl_servers_are_sent_half_a_second_after_the_connection(stage):
    files.user_settings(PrimarySuplServer="abcde", PrimarySuplAllowHome=False, PrimarySuplOnlyGprs=True)
    road = Road(stage)
    (servers,) = road.engine.all(wire.SuplServers)
    assert servers.raw.hex() == "ef110010" "05000600" "6162636465000000"
    assert stage.settings().set("PrimarySuplServer", "m\u00fcnchen.example/")
    assert road.engine.expect(wire.SuplServers).primary == "m\u00fcnchen.example/".encode("latin-1")
    assert stage.settings().set("PrimarySuplServer", "x" * 300)
    long = road.engine.expect(wire.SuplServers)
    assert (long.primary, len(long.raw)) == (b"x" * 44, 52)  # one byte holds the length


def test_assistance_data_is_deleted_by_mask(stage, road):
    settings = stage.settings()
    for mask, digits in ((0x01, "1"), (0xFD, "11111101"), (0xFF, "11111111"), (0x02, None), (-1, None)):
        mark = road.daemon.mark()
        assert settings.clear_assistance(mask) is True
        assert road.engine.expect(wire.DeleteAssistance).raw.hex() == f"ef0a0008{mask & 0xFFFFFFFF:08x}"
        road.daemon.wait_for_message(f"Deleting GPS assistance data ( {mask} ).", "Debug", after=mark)
        written = [line for line in road.daemon.lines()[mark:] if "deleteAssistanceData" in line]
        assert [line[16:] for line in written] == ([f"deleteAssistanceData 0x {digits}"] if digits else [])
    road.engine.send(wire.assistance_deleted(1), wire.assistance_deleted(0), wire.assistance_deleted(2))
    road.settle()
    assert road.lines("ORVComm::handleAstncDelResponse") == [
        "ORVComm::handleAstncDelResponse assistance deletion OK"]
    assert road.lines("ORVCOMM") == 2 * ["ORVCOMM::handleAstncDelResponse assistance deletion FAILED"]
