"""Calls that no good application makes: each gets its answer at once, and the others are served on."""

import time

import pytest
from gi.repository import Gio, GLib

from harness import client as app
from harness import wire
from harness.road import latitudes

INT_MIN, INT_MAX = -2**31, 2**31 - 1
UNKNOWN_METHOD, UNKNOWN_INTERFACE, UNKNOWN_OBJECT = (
    f"org.freedesktop.DBus.Error.Unknown{what}" for what in ("Method", "Interface", "Object"))
NAMES = ["", " ", "a b", "*", "com.*.x", "com", ".com.x", "com..x", "com.x.", "1com.x", "com.1x", "com.x:1", ":1",
         "com.ex\u00e4mple.x", "\u4f4d\u7f6e", "com." + 300 * "x", 300 * "a.b", "com.x\n", "com.x' or '1", "com/x", "-"]
PATHS = ["", " ", "x", "/x/", "//", "/a//b", "/a b", "/*", "/\u00e4", "/a.b", "/" + 300 * "a", "/" + 300 * "a/", "/a-b"]


@pytest.fixture
def good(road):
    """An application that behaves, beside all that the others do."""
    return road.satellite_client(extra=app.SATINFO_START)


def still_serves(road, good):
    """A fix and the satellites still reach the good client, and a newcomer can register."""
    road.settle(good)
    good.callbacks.clear()
    road.report(good, wire.satellites(wire.satellite(3, used=1, signal=30)), wire.position(10, 20))
    road.settle(good)
    assert [c.method for c in good.callbacks.items()] == [
        "satellitesInViewUpdate", "satellitesInUseUpdate", "positionUpdate"]
    assert latitudes(good.fixes()) == [10]
    newcomer = road.stage.client()
    assert newcomer.register() > good.id
    assert road.daemon.is_running()


def call(client, member, arguments, interface=app.INTERFACE, path=app.PATH):
    """One call; returns its result, or the name of its error, and asks that either comes at once."""
    begin = time.monotonic()
    try:
        return client.bus.call(client.connection, app.SERVICE, path, interface, member, arguments, timeout=10)
    except GLib.Error as error:
        return Gio.DBusError.get_remote_error(error)
    finally:
        assert time.monotonic() - begin < 8


# ---- numbers

def test_unknown_ids_get_the_answer_0(stage, road, good):
    client = stage.client()
    ids = (0, 1, -1, 5999, 6001, 65536 + 6000, INT_MIN, INT_MAX)
    for id in ids:
        assert client.configure(app.START | app.SET_METHOD, app.ALL, id=id) == 0
    road.settle()
    assert [text for text in road.daemon.messages("Critical") if "command" in text] == [
        f"*** id: {id}  command: 5" for id in ids]
    assert road.engine.pending() == []
    still_serves(road, good)


@pytest.mark.parametrize("interval, seconds", [(INT_MIN, 1), (-1000, 1), (-1, 1), (0, 1), (INT_MAX, 2147484)])
@pytest.mark.parametrize("methods", [app.ALL, 0, 0x80000000])
def test_extreme_intervals_and_masks(stage, road, interval, seconds, methods):
    client = stage.client()
    assert client.start(methods, interval) == 0
    road.daemon.wait_for_message(f"PositionDaemon::configRequest: Set interval:  {seconds}", "Debug")
    road.settle(client)
    assert [request.interval for request in road.engine.pending(wire.GnssRequest)] == (
        [min(seconds, 0xFFFF)] if methods & 0xFF else [])
    assert [fix.valid for fix in client.fixes()] == ([] if methods else [False])


def test_extreme_commands(stage, road, good):
    """All bits do everything, in order; unknown bits do nothing."""
    client = stage.client()
    client.register()
    for command in (INT_MIN, 0, 0x40, ~0x3F, INT_MAX, -1):
        assert client.configure(command, app.SATELLITE) == 0
    road.settle()
    done = [text.split(": ")[1] for text in road.lines("PositionDaemon::configRequest") if "Set" not in text]
    assert done[2:] == 2 * ["Start!", "Stop!", "SatInfoStart", "SatInfoStop"]
    assert road.lines("startSessions: client: id=6001")[-1].startswith("startSessions: client: id=6001, stopped=1")
    still_serves(road, good)


# ---- names and paths

@pytest.mark.parametrize("names, paths", [(NAMES, ["/x"]), (["com.example.Nobody", ":1.99999"], PATHS)],
                         ids=["names", "paths"])
def test_malformed_names_and_paths_register_like_any(stage, road, good, names, paths):
    """They get an id and are never reached; nobody else is disturbed."""
    caller = stage.client()
    expected = good.id
    for name in names:
        for path in paths:
            expected += 1
            id, methods, interval = call(caller, "registerListener", GLib.Variant("(ss)", (name, path)))
            assert (id, methods, interval) == (expected, app.ALL, 1000)
            assert caller.configure(app.START | app.SET_METHOD | app.SATINFO_START, app.SATELLITE, id=id) == 0
            assert road.engine.expect(wire.GnssRequest, command=wire.START).session == id
            road.fix(id, 5)
    road.settle(good, caller)
    assert good.fixes() == [] and caller.callbacks.items() == []
    assert stage.settings().set("SatellitePositioning", False)
    good.wait_for_settings(app.NON_SATELLITE)
    assert stage.settings().set("SatellitePositioning", True)
    road.engine.expect(wire.GnssRequest, command=wire.START, session=good.id)
    road.engine.expect(wire.GnssRequest, command=wire.START, session=expected)
    still_serves(road, good)
    assert road.lines("PositionDaemon: Removing") == []


def test_a_client_that_cannot_be_reached_is_named_once(stage, road, good):
    """The connection is tried with the first delivery only."""
    caller = stage.client()
    id = caller.register("com.example.Nobody", "/x")
    caller.start(app.SATELLITE)
    road.fix(id, 1)
    road.fix(id, 2)
    road.settle()
    failed = road.daemon.messages("Critical")
    assert failed[0] == "ClientApp::connectClient() failed."
    assert len(failed) == 2 and "com.example.Nobody" in failed[1]
    assert len(road.lines(f"ClientApp::sendPositionUpdate: clientId={id}")) == 2
    still_serves(road, good)


def test_a_client_registered_under_the_daemons_own_name(stage, road, good):
    """Calls to it end where nothing answers to them."""
    caller = stage.client()
    id = caller.register(app.SERVICE, app.PATH)
    caller.configure(app.START | app.SATINFO_START)
    road.report(id, wire.satellites(wire.satellite(3, used=1, signal=30)), wire.position(5, 5))
    road.settle()
    assert road.daemon.messages("Warning")[::2] == 2 * [f"ClientApp:: client {id} disconnected."]
    still_serves(road, good)


def test_an_object_that_lacks_the_interface(stage, road, good):
    """The bus daemon itself answers to any path with an error."""
    caller = stage.client()
    id = caller.register("org.freedesktop.DBus", "/org/freedesktop/DBus")
    caller.configure(app.START | app.SATINFO_START)
    road.report(id, wire.satellites(wire.satellite(3, used=1, signal=30)), wire.position(5, 5))
    still_serves(road, good)
    assert f"ClientApp:: client {id} disconnected." in road.daemon.messages("Warning")


# ---- types, members, interfaces

WRONG_CALLS = [
    ("registerListener", None),
    ("registerListener", GLib.Variant("(s)", ("com.x.y",))),
    ("registerListener", GLib.Variant("(so)", ("com.x.y", "/x"))),
    ("registerListener", GLib.Variant("(sss)", ("com.x.y", "/x", "more"))),
    ("registerListener", GLib.Variant("(vv)", (GLib.Variant("s", "com.x.y"), GLib.Variant("s", "/x")))),
    ("configSession", None),
    ("configSession", GLib.Variant("(iii)", (6000, 1, 1))),
    ("configSession", GLib.Variant("(uiii)", (6000, 1, 1, 1))),
    ("configSession", GLib.Variant("(iiid)", (6000, 1, 1, 1.0))),
    ("configSession", GLib.Variant("(iiiii)", (6000, 1, 1, 1, 1))),
    ("configSession", GLib.Variant("(xxxx)", (6000, 1, 1, 1))),
    ("configSession", GLib.Variant("(a{sv})", ({},))),
    ("latestPosition", None),
    ("latestPosition", GLib.Variant("(i)", (1,))),
    ("latestPosition", GLib.Variant("(s)", ("true",))),
    ("latestPosition", GLib.Variant("(ay)", (b"\1",))),
    ("prestartPositioning", GLib.Variant("(b)", (True,))),
    ("prestartPositioning", GLib.Variant("(ii)", (1, 1))),
    ("prestartPositioning", GLib.Variant("(bbb)", (True, True, True))),
    ("noSuchMethod", None),
    ("LatestPosition", GLib.Variant("(b)", (True,))),
    ("positionUpdate", GLib.Variant("(ay)", (b"",))),
    ("clearAssistanceData", GLib.Variant("(i)", (1,))),
    ("deleteLater", None),
]
WRONG_PLACES = [
    ("com.varn.location.settings", app.PATH, UNKNOWN_INTERFACE),
    ("com.example.Other", app.PATH, UNKNOWN_INTERFACE),
    (app.INTERFACE, "/", UNKNOWN_INTERFACE),
    (app.INTERFACE, "/com/varn/lodestard", UNKNOWN_INTERFACE),
    (app.INTERFACE, app.PATH + "/x", UNKNOWN_OBJECT),
    (app.INTERFACE, "/com/varn/lodestard/settings", UNKNOWN_INTERFACE),
]


def test_wrong_types_members_and_places(stage, road, good):
    """They are refused by their form, before anything is done."""
    client = stage.client()
    answers = {(member, str(arguments)): call(client, member, arguments) for member, arguments in WRONG_CALLS}
    assert answers == {(member, str(arguments)): UNKNOWN_METHOD for member, arguments in WRONG_CALLS}
    latest = GLib.Variant("(b)", (True,))
    places = {place[:2]: call(client, "latestPosition", latest, *place[:2]) for place in WRONG_PLACES}
    assert places == {place[:2]: place[2] for place in WRONG_PLACES}
    assert road.lines("## Adding") == ["## Adding new client with Id:  6000"]
    assert road.lines("PositionDaemon::addPrestartClient") == []
    assert road.daemon.messages("Critical") == []
    still_serves(road, good)


def test_messages_that_ask_for_no_reply(stage, road, good):
    """They are carried out all the same."""
    client = stage.client()
    client.register()
    message = Gio.DBusMessage.new_method_call(app.SERVICE, app.PATH, app.INTERFACE, "configSession")
    message.set_body(GLib.Variant("(iiii)", (client.id, app.START, 0, 0)))
    message.set_flags(Gio.DBusMessageFlags.NO_REPLY_EXPECTED)
    client.connection.send_message(message, Gio.DBusSendMessageFlags.NONE)
    assert road.engine.expect(wire.GnssRequest, session=client.id).command == wire.START
    still_serves(road, good)


def test_a_caller_that_leaves_before_its_answer(stage, road, good):
    for _ in range(20):
        client = stage.client()
        client.connection.call(app.SERVICE, app.PATH, app.INTERFACE, "registerListener",
                               GLib.Variant("(ss)", (client.service, client.path)), None,
                               Gio.DBusCallFlags.NO_AUTO_START, 5000, None, None)
        client.connection.flush_sync(None)
        client.vanish()
    road.daemon.wait_for_message("## Adding new client with Id:  6020", "Debug")
    still_serves(road, good)
