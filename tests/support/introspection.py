#!/usr/bin/env python3
"""Compares an annotated interface document with what a live object says of itself.

    introspection.py [--system] DOCUMENT SERVICE PATH

Prints every difference, one a line, and exits with 1 when there is any. Comments in the document
do not count; names, types, directions, annotations and the order of everything do.
"""
import argparse
import sys
import xml.etree.ElementTree as ElementTree

MEMBERS = ("method", "signal", "property")


def _annotations(element):
    return sorted((child.get("name"), child.get("value")) for child in element.findall("annotation"))


def _describe(member):
    """A member as one comparable line. The order of in and out arguments among each other says nothing."""
    arguments = {"in": [], "out": []}
    for argument in member.findall("arg"):
        direction = argument.get("direction", "out" if member.tag == "signal" else "in")
        arguments[direction].append(f"{argument.get('type')} {argument.get('name', '')}".strip())
    parts = [member.tag, member.get("name")]
    parts += [f"{direction}({', '.join(values)})" for direction, values in arguments.items()]
    parts += [member.get(key) for key in ("type", "access") if member.get(key)]
    parts += [f"@{name}={value}" for name, value in _annotations(member)]
    return " ".join(parts)


def members(xml, interface):
    """The interface's members in order, or None when the description does not have it."""
    for candidate in ElementTree.fromstring(xml).iter("interface"):
        if candidate.get("name") == interface:
            return [_describe(child) for child in candidate if child.tag in MEMBERS]
    return None


def interface_names(xml):
    return [element.get("name") for element in ElementTree.fromstring(xml).iter("interface")]


def differences(document, live):
    """What the document's interfaces and the live description do not share, as lines."""
    found = []
    for interface in interface_names(document):
        written = members(document, interface)
        offered = members(live, interface)
        if offered is None:
            found.append(f"{interface}: the object does not have it")
            continue
        found += [f"{interface}: only in the document: {line}" for line in written if line not in offered]
        found += [f"{interface}: only on the bus: {line}" for line in offered if line not in written]
        if sorted(written) == sorted(offered) and written != offered:
            found.append(f"{interface}: the order differs: {written} is {offered} on the bus")
    return found


def introspect(service, path, system=False):
    from gi.repository import Gio, GLib

    bus = Gio.bus_get_sync(Gio.BusType.SYSTEM if system else Gio.BusType.SESSION, None)
    reply = bus.call_sync(service, path, "org.freedesktop.DBus.Introspectable", "Introspect", None,
                          GLib.VariantType("(s)"), Gio.DBusCallFlags.NO_AUTO_START, 10000, None)
    return reply.unpack()[0]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--system", action="store_true", help="ask on the system bus")
    parser.add_argument("document")
    parser.add_argument("service")
    parser.add_argument("path")
    options = parser.parse_args()
    with open(options.document, encoding="utf-8") as file:
        found = differences(file.read(), introspect(options.service, options.path, options.system))
    for line in found:
        print(line)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
