"""What the Debian packages hold, and what they ask of the machine."""

import os
import subprocess
from dataclasses import dataclass
from pathlib import Path

import pytest

from test_install import FILES

DIRECTORY = Path(os.environ["LODESTARD_PACKAGES"])
NAMES = ("lodestar-dialogs", "lodestar-tools", "lodestard", "lodestard-tests", "orvd-gpsd")


@dataclass
class Entry:
    mode: str
    owner: str


class Package:
    def __init__(self, path):
        listing = subprocess.run(["dpkg-deb", "--contents", path], check=True, text=True, stdout=subprocess.PIPE).stdout
        fields = [line.split(maxsplit=5) for line in listing.splitlines()]
        self.entries = {f[5].split(" -> ")[0].removeprefix("."): Entry(f[0], f[1]) for f in fields}
        self.files = {path for path in self.entries if not path.endswith("/")}
        depends = subprocess.run(["dpkg-deb", "--field", path, "Depends"], check=True, text=True,
                                 stdout=subprocess.PIPE).stdout
        self.depends = {name.split()[0] for name in depends.replace("|", ",").split(",")}


@pytest.fixture(scope="module")
def packages():
    found = {path.name.split("_")[0]: Package(path) for path in DIRECTORY.glob("*.deb") if "-dbgsym_" not in path.name}
    assert sorted(found) == list(NAMES)
    return found


def test_what_is_installed_is_in_exactly_one_package(packages):
    shipped = sorted(path for package in packages.values() for path in package.files)
    assert len(shipped) == len(set(shipped))
    units = "/lib/systemd/system/"
    flat = {path.removesuffix(".gz").removeprefix("/usr" if path.startswith(f"/usr{units}") else "") for path in shipped}
    for name in FILES:
        place = f"/{name}" if f"/{name}".startswith(units) else f"/usr/{name}"
        assert place in flat, place


@pytest.mark.parametrize("name, programs", [("lodestard", {"/usr/bin/lodestard"}),
                                            ("lodestard-tests", {"/usr/lib/lodestard-tests/fake_orv.py"}),
                                            ("orvd-gpsd", {"/usr/sbin/orvd-gpsd"}),
                                            ("lodestar-tools", {"/usr/bin/lodestar-watch"}),
                                            ("lodestar-dialogs", {"/usr/bin/lodestar-dialogs"})])
def test_the_programs_of_a_package(packages, name, programs):
    assert {path for path, entry in packages[name].entries.items()
            if not path.endswith("/") and "x" in entry.mode} == programs


def test_everything_belongs_to_root_and_nobody_else_may_write(packages):
    for package in packages.values():
        for path, entry in package.entries.items():
            assert entry.owner == "root/root", path
            assert entry.mode[1:] in ("rwxr-xr-x", "rw-r--r--"), path


def test_nobody_ships_the_old_interpreter(packages):
    assert not [path for package in packages.values() for path in package.files if "python" in path]


@pytest.mark.parametrize("name", NAMES)
def test_a_package_has_the_manual_page_of_its_program(packages, name):
    programs = {Path(path).name for path in packages[name].files if path.startswith(("/usr/bin/", "/usr/sbin/"))}
    pages = {Path(path).name.split(".")[0] for path in packages[name].files if path.startswith("/usr/share/man/")}
    assert pages == (programs or {name})


def test_a_package_asks_for_what_it_uses(packages):
    def uses(name):
        return {library for library in ("libqt6widgets6", "libdconf1", "libgps28", "python3:any")
                if library in packages[name].depends}
    assert uses("lodestard") == {"libdconf1"}
    assert uses("orvd-gpsd") <= {"libgps28"}  # the library's number is the release's
    assert uses("lodestar-tools") == set()
    assert uses("lodestar-dialogs") == {"libqt6widgets6"}
    assert uses("lodestard-tests") == {"python3:any"}


def test_only_the_options_of_the_engine_are_the_administrators(packages):
    assert [path for package in packages.values() for path in package.files if path.startswith("/etc/")] == [
        "/etc/default/orvd-gpsd"]
