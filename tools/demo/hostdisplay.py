"""The caller's display, made ready for use inside the sandbox."""

import os
import re
import socket
import struct
from dataclasses import dataclass, field
from pathlib import Path

X_SOCKETS = "/tmp/.X11-unix/X"
AUTHORITY = "/home/user/.Xauthority"  # inside the sandbox
ANY_HOST = 0xFFFF                     # in an authority file: a cookie for whatever the host is called


@dataclass
class HostDisplay:
    """What the sandbox must show of the host, and what programs must be told."""

    bind_ro: list = field(default_factory=list)
    files: dict = field(default_factory=dict)
    environment: dict = field(default_factory=dict)


def find(environment):
    """The display that these variables name, if somebody listens there; None otherwise."""
    found = HostDisplay()
    platforms = []
    if x_socket := _x_socket(environment.get("DISPLAY", "")):
        platforms.append("xcb")
        found.bind_ro.append(x_socket)
        found.environment["DISPLAY"] = ":" + x_socket.removeprefix(X_SOCKETS)
        authority = Path(environment.get("XAUTHORITY") or Path(environment.get("HOME", "/"), ".Xauthority"))
        if os.access(authority, os.R_OK):
            found.files[AUTHORITY] = for_any_host(authority.read_bytes())
            found.environment["XAUTHORITY"] = AUTHORITY
    if name := environment.get("WAYLAND_DISPLAY"):
        wayland_socket = os.path.join(environment.get("XDG_RUNTIME_DIR", "/"), name)
        if _is_served(wayland_socket):
            platforms.append("wayland")
            found.bind_ro.append(wayland_socket)
            found.environment["WAYLAND_DISPLAY"] = wayland_socket
    found.environment["QT_QPA_PLATFORM"] = ";".join(platforms)
    return found if platforms else None


def _x_socket(display):
    """The socket of a display on this machine; one elsewhere cannot be reached from the sandbox."""
    match = re.fullmatch(r"(?:unix)?:(\d+)(?:\.\d+)?", display)
    return X_SOCKETS + match[1] if match and _is_served(X_SOCKETS + match[1]) else None


def _is_served(path):
    with socket.socket(socket.AF_UNIX) as connection:
        try:
            connection.connect(path)
        except OSError:
            return False
    return True


def for_any_host(authority):
    """The cookies of an X authority file without the names of their hosts: the sandbox has its own name."""
    cookies, place = b"", 0
    while place + 2 <= len(authority):
        place += 2  # the address family
        fields = []
        for _ in range(4):  # address, display number, kind, cookie
            (length,) = struct.unpack_from(">H", authority, place) if place + 2 <= len(authority) else (0,)
            fields.append(authority[place + 2:place + 2 + length])
            place += 2 + length
        if place > len(authority):
            break  # cut off
        cookies += struct.pack(">HH", ANY_HOST, 0)
        cookies += b"".join(struct.pack(">H", len(part)) + part for part in fields[1:])
    return cookies
