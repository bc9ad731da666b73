"""What the daemon's objects say of themselves, beside the interface documents."""

from pathlib import Path
from xml.etree import ElementTree

import pytest

from harness import client, context, settings, sidechannel

DOCUMENTS = Path(__file__).resolve().parents[2] / "docs" / "dbus"

# Bus, service, object, interface, and the members with their signatures (in, out).
OBJECTS = {
    "settings": ("session", settings.SERVICE, settings.PATH, settings.INTERFACE, {
        ("signal", "valueChanged"): ("", "s"),
        ("method", "setSetting"): ("sv", "b"),
        ("method", "getSetting"): ("s", "v"),
        ("method", "resetToDefaults"): ("", "b"),
        ("method", "clearAssistanceData"): ("i", "b"),
    }),
    "client": ("session", client.SERVICE, client.PATH, client.INTERFACE, {
        ("method", "registerListener"): ("ss", "iuu"),
        ("method", "configSession"): ("iiii", "i"),
        ("method", "latestPosition"): ("b", "ay"),
        ("method", "prestartPositioning"): ("bb", ""),
    }),
    "state": ("session", context.SERVICE, context.STATE, context.INTERFACE, context.MEMBERS),
    "coordinates": ("session", context.SERVICE, context.COORDINATES, context.INTERFACE, context.MEMBERS),
    "side channel": ("system", sidechannel.NAME, sidechannel.PATH, sidechannel.NAME, {
        ("signal", "positionMessage"): ("", "dddddyqqqyyyyq"),
        ("signal", "settingMessage"): ("", "ii"),
        ("method", "request"): ("i", ""),
    }),
}


def signatures(interface):
    """Each method and signal with the types that go in and come out."""
    found = {}
    for member in interface:
        if member.tag not in ("method", "signal"):
            continue
        ways = {"in": "", "out": ""}
        for argument in member.iter("arg"):
            ways[argument.get("direction", "out" if member.tag == "signal" else "in")] += argument.get("type")
        found[member.tag, member.get("name")] = (ways["in"], ways["out"])
    return found


def argument_names(interface):
    return {member.get("name"): [a.get("name") for a in member.iter("arg") if a.get("name")]
            for member in interface if member.tag in ("method", "signal")}


def named(interface, name):
    (found,) = [i for i in interface.iter("interface") if i.get("name") == name]
    return found


def live(stage, which):
    bus, service, path, interface, _ = OBJECTS[which]
    xml = getattr(stage, bus).introspect(service, path)
    return named(ElementTree.fromstring(xml), interface)


@pytest.mark.parametrize("which", OBJECTS)
def test_an_object_offers_exactly_these_members(stage, which):
    stage.daemon()
    assert signatures(live(stage, which)) == OBJECTS[which][4]


def test_parameters_have_names(stage):
    stage.daemon()
    names = argument_names(live(stage, "client"))
    assert names["registerListener"] == ["service", "path", "id", "methods", "minInterval"]
    assert names["configSession"] == ["id", "command", "method", "interval"]
    assert names["latestPosition"] == ["satelliteOnly"]
    assert names["prestartPositioning"] == ["satellite", "nonSatellite"]


def test_requests_on_the_side_channel_are_marked_as_unanswered(stage):
    stage.daemon()
    (request,) = [m for m in live(stage, "side channel") if m.get("name") == "request"]
    marks = {a.get("name"): a.get("value") for a in request.iter("annotation")}
    assert marks.get("org.freedesktop.DBus.Method.NoReply") == "true"


@pytest.mark.parametrize("which", OBJECTS)
def test_the_document_of_an_object_tells_what_it_offers(stage, which):
    stage.daemon()
    interface = OBJECTS[which][3]
    document = named(ElementTree.parse(DOCUMENTS / f"{interface}.xml").getroot(), interface)
    offered = live(stage, which)
    assert signatures(document) == signatures(offered)
    assert argument_names(document) == argument_names(offered)
