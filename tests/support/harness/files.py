"""The sandbox's file tree: the daemon's fixed places, emptied before each test."""

import configparser
import os
import re
import shutil
from pathlib import Path

HOME = Path("/home/user")
SMALL_HOME = Path("/home/tiny")  # a file system of 64 KiB
DOCUMENTS = HOME / "MyDocs"
LOGS = DOCUMENTS / "location_logs"
OPERATOR_SETTINGS = Path("/etc/xdg/varn/location-settings.conf")
SYSINFO = Path("/etc/lodestard/sysinfo")
INTERNAL_GPS = "certs/ccc/pp/internal-gps-raw"
EMPTIED = ("/home", "/tmp", "/run", "/var/lib", "/var/cache", "/etc/xdg/varn", "/etc/lodestard", "/etc/geoclue",
           "/sys")
KEPT = (HOME, SMALL_HOME, Path("/run/user"), Path(os.environ.get("XDG_RUNTIME_DIR", "/run/user/1000")),
        Path("/run/lock"))


def clean_tree():
    """Empties every writable place. Only ever called inside the sandbox."""
    assert os.path.isdir("/.bin"), "this is not the sandbox: nothing is removed"
    for directory in EMPTIED:
        _empty(Path(directory))


def _empty(directory):
    for entry in os.scandir(directory):
        path = Path(entry.path)
        if entry.is_symlink() or not entry.is_dir():
            path.unlink()
        elif path in KEPT or os.path.ismount(path) or _holds_a_mount(path):
            if os.access(path, os.W_OK):
                _empty(path)
        else:
            for folder, _, _ in os.walk(path):  # a test may have taken the right to write away
                os.chmod(folder, 0o700)
            shutil.rmtree(path)


def _holds_a_mount(path):
    """The checkout and the build may lie below /home or /tmp."""
    with open("/proc/self/mounts", encoding="utf-8", errors="surrogateescape") as mounts:
        return any(_unescaped(line.split()[1]).startswith(f"{path}/") for line in mounts)


def _unescaped(place):
    """The kernel writes blanks and backslashes in a mount's path as three octal digits."""
    return re.sub(r"\\([0-7]{3})", lambda digits: chr(int(digits[1], 8)), place)


def marker(name):
    """Makes a developer marker file, "use_supl" for /home/user/.use_supl."""
    path = HOME / f".{name}"
    path.touch()
    return path


def sysinfo(key, value):
    """Gives the system-information library a value; `key` with or without its leading slash."""
    path = SYSINFO / key.lstrip("/")
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(value)


def rd_mode(value=b"enabled"):
    sysinfo("device/rd-mode", value)


def settings_path(home=HOME):
    return home / ".lodestard" / "private" / "location_settings"


def write_settings(path, values):
    """Writes a flat settings file; booleans as the daemon writes them."""
    path.parent.mkdir(parents=True, exist_ok=True)
    lines = [f"{key}={str(value).lower() if isinstance(value, bool) else value}" for key, value in values.items()]
    path.write_text("[General]\n" + "\n".join(lines) + "\n", encoding="utf-8")


def user_settings(**values):
    write_settings(settings_path(), values)


def operator_settings(**values):
    write_settings(OPERATOR_SETTINGS, values)


def read_settings(path=None):
    """The stored keys and their texts as they stand in the file."""
    parser = configparser.ConfigParser(interpolation=None, strict=True)
    parser.optionxform = str
    parser.read_string((path or settings_path()).read_text(encoding="utf-8"))
    return dict(parser["General"]) if parser.has_section("General") else {}


def groups(**members):
    """Names the sandbox's groups: group=True for one that the sandbox's user is in. Everything starts
    with the one identity there is, so a group it is in is one with its number."""
    lines = [f"{name.replace('_', '-')}:x:{os.getgid() if inside else 4000 + number}:"
             for number, (name, inside) in enumerate(members.items())]
    Path("/etc/group").write_text("\n".join(["root:x:0:", *lines, "nogroup:x:65534:"]) + "\n", encoding="utf-8")
